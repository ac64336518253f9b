// tavroCli convert: a ".tavd" raw data file to CSV or TDMS.
#include "clicommands.h"

#include "tavdreader.h"
#include "tavrounit.h"

#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

using namespace TavroApi;

namespace {

const char* const Usage =
    "Usage: tavroCli convert IN.tavd OUT.csv|OUT.tdms [--header]\n"
    "Converts a raw data file recorded by a unit or by 'tavroCli record' into CSV\n"
    "or TDMS; the suffix of OUT chooses the format. Raw unit samples are turned\n"
    "into floats of 16 channels on the way. Progress goes to standard error.\n"
    "\n"
    "  --header   CSV with the head lines (unit, time, measurement, channel names)\n"
    "  --help     show this help and exit\n";

const CliOption Options[] = {{"header", false}, {"help", false}, {nullptr, false}};

long long fileSize(const ZString& path) {
    struct stat st;
    return stat(path.str(), &st) == 0 ? (long long)st.st_size : 0;
}

} // namespace

int cliConvert(int argc, char** argv) {
    CliArgs args;
    int status = cliParse(args, argc, argv, Options, "convert", Usage);
    if (status >= 0)
        return status;
    if (args.arguments().number() != 2)
        return cliBadUsage(ZError("An input and an output file are needed"), "convert");
    const ZString input = args.arguments()[0];
    const ZString output = args.arguments()[1];
    const ZString suffix = output.extension();
    if (suffix != "csv" && suffix != "tdms")
        return cliBadUsage(ZError("The output must end in .csv or .tdms: " + output), "convert");

    // The conversion runs on a thread of its own; this one reports progress.
    std::atomic<bool> done(false);
    ZError err;
    std::thread worker([&] {
        err = tavdConvert(input, output, args.has("header"), TavroUnit::processdataBlock);
        done = true;
    });
    const long long inputSize = fileSize(input);
    auto next = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (!done) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        if (std::chrono::steady_clock::now() >= next && !done) {
            fprintf(stderr, "tavroCli: converting %s: %lld bytes written\n", input.str(),
                    fileSize(output));
            next += std::chrono::seconds(1);
        }
    }
    worker.join();
    if (err)
        return cliFail(err);
    fprintf(stderr, "tavroCli: converted %s (%lld bytes) to %s (%lld bytes)\n", input.str(),
            inputSize, output.str(), fileSize(output));
    return 0;
}
