#include "guioptions.h"

#include <getopt.h>

#include <cstring>

void guiUsage(FILE* out) {
    // -dev is for developers and left out on purpose.
    fprintf(out, "Usage: tavroGui [options] ...\n");
    fprintf(out, " -help                 - Help on command line parameters\n");
    fprintf(out, " -d <ttyDevice>        - The /dev/tty* device to use for communications\n");
    fprintf(out, " -cal                  - Enable calibration functions\n");
    fprintf(out, " -demo                 - Simple demo mode\n");
}

int guiParseOptions(int argc, char** argv, GuiOptions& options, FILE* out) {
    static const struct option table[] = {
        {"help", no_argument, nullptr, 0},      {"d", required_argument, nullptr, 0},
        {"cal", no_argument, nullptr, 0},       {"demo", no_argument, nullptr, 0},
        {"dev", required_argument, nullptr, 0}, {"h", no_argument, nullptr, 0},
        {"?", no_argument, nullptr, 0},         {nullptr, 0, nullptr, 0},
    };
    if (!out)
        out = stderr;

    // A fresh scan, also when called more than once.
    optind = 0;
    for (;;) {
        int index = -1;
        int c = getopt_long_only(argc, argv, "", table, &index);
        // End of the options, or one the table does not know (the parser
        // has complained): the program starts with what was read.
        if (c != 0 || index < 0)
            break;
        const char* name = table[index].name;
        if (!strcmp(name, "help")) {
            guiUsage(out);
        } else if (!strcmp(name, "d")) {
            options.ttyDevice = optarg;
        } else if (!strcmp(name, "cal")) {
            options.cal = true;
        } else if (!strcmp(name, "demo")) {
            options.demo = true;
        } else if (!strcmp(name, "dev")) {
            options.dev = true;
        } else {
            guiUsage(out);
            return 1;
        }
    }
    return -1;
}
