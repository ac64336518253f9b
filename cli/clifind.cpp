// tavroCli find: the units answering mDNS discovery and the units on USB.
#include "clicommands.h"

#include "tavrounit.h"

#include <cstdio>

using namespace TavroApi;

namespace {

const char* const Usage =
    "Usage: tavroCli find [--timeout MS]\n"
    "Lists the units that answer mDNS discovery (_tavro._tcp) on the local network\n"
    "and the units on USB, one line each: type, name and URL, separated by tabs.\n"
    "\n"
    "  --timeout MS   how long to wait for mDNS answers (default 1000)\n"
    "  --help         show this help and exit\n"
    "\n"
    "Exit status: 0 when a unit was found, 1 when none was.\n";

const CliOption Options[] = {{"timeout", true}, {"help", false}, {nullptr, false}};

} // namespace

int cliFind(int argc, char** argv) {
    CliArgs args;
    int status = cliParse(args, argc, argv, Options, "find", Usage);
    if (status >= 0)
        return status;
    uint64_t timeoutMs = 1000;
    ZError err = args.number("timeout", timeoutMs, 1, 60000);
    if (!err && !args.arguments().isEmpty())
        err = ZError("Unexpected argument: " + args.arguments().front());
    if (err)
        return cliBadUsage(err, "find");

    ZList<TavroUnitDevice> found;
    if ((err = TavroUnit::findDevicesNetwork(found, unsigned(timeoutMs))))
        fprintf(stderr, "tavroCli: mDNS discovery: %s\n", err.string.str());
    if ((err = TavroUnit::findDevicesUsb(found)))
        fprintf(stderr, "tavroCli: USB: %s\n", err.string.str());
    for (const TavroUnitDevice& d : found)
        printf("%s\t%s\t%s\n", d.type.str(), d.name.str(), d.device.str());
    if (found.isEmpty())
        return cliFail(ZError("No units found"));
    return 0;
}
