#ifndef GUIOPTIONS_H
#define GUIOPTIONS_H

#include "zstring.h"

#include <cstdio>

// The program's command line.
struct GuiOptions {
    ZString ttyDevice; // -d: the serial device for communications
    bool cal = false;  // -cal: calibration functions
    bool demo = false; // -demo: the simple demo page
    bool dev = false;  // -dev <value>: developer pages
};

// Reads single-dash long options (a double dash works too) into options.
// Returns -1 when the program is to start, otherwise its exit status (after
// -h or -?). -help prints the usage and goes on. An option not known ends
// the parsing, with the parser's own complaint; what was read so far stays.
// The usage text goes to out (standard error when null).
int guiParseOptions(int argc, char** argv, GuiOptions& options, FILE* out = nullptr);

// The usage text, one line per option.
void guiUsage(FILE* out);

#endif
