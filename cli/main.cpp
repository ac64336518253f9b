// tavroCli: finds, inspects and records Tavro-40x units, and converts their
// raw data files, from the command line.

#include "clicommands.h"

#include <cstdio>
#include <cstring>

namespace {

const char* const Usage =
    "Usage: tavroCli COMMAND [OPTION]...\n"
    "Finds, inspects and records Tavro-40x units and converts their raw data files.\n"
    "\n"
    "Commands:\n"
    "  find      list the units on the local network (mDNS) and on USB\n"
    "  info      show a unit's node information, configuration and channels\n"
    "  record    record a capture of one unit, or of a group of units, to files\n"
    "  convert   convert a .tavd raw data file to CSV or TDMS\n"
    "  files     list, download and delete the data files kept on a unit\n"
    "  firmware  show a firmware package, upload it to a unit, or flash a unit over USB DFU\n"
    "  config    save a unit's configuration to a .zconfig file, or restore it\n"
    "\n"
    "Unit URLs: zoapn://HOST[:PORT] (TCP), zoaps://DEVICE (serial line),\n"
    "zoapu://SERIAL (USB).\n"
    "Run 'tavroCli COMMAND --help' for the options of a command.\n"
    "Exit status: 0 on success, 1 on failure, 2 for a bad command line.\n";

struct Command {
    const char* name;
    int (*run)(int argc, char** argv);
};

const Command Commands[] = {
    {"find", cliFind},   {"info", cliInfo},         {"record", cliRecord}, {"convert", cliConvert},
    {"files", cliFiles}, {"firmware", cliFirmware}, {"config", cliConfig},
};

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        fputs(Usage, stderr);
        return 2;
    }
    const char* name = argv[1];
    if (!strcmp(name, "--help") || !strcmp(name, "-h") || !strcmp(name, "help")) {
        fputs(Usage, stdout);
        return 0;
    }
    for (const Command& c : Commands) {
        if (!strcmp(name, c.name))
            return c.run(argc - 2, argv + 2);
    }
    fprintf(stderr, "tavroCli: Unknown command: %s\nTry 'tavroCli --help' for more information.\n",
            name);
    return 2;
}
