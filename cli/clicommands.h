#ifndef CLICOMMANDS_H
#define CLICOMMANDS_H

#include "cliargs.h"
#include "zerror.h"
#include "zlist.h"
#include "zstring.h"

class Control;

// The commands of tavroCli. Each takes the arguments after its name and
// returns the exit status: 0 success, 1 failure, 2 a bad command line.
int cliFind(int argc, char** argv);
int cliInfo(int argc, char** argv);
int cliRecord(int argc, char** argv);
int cliConvert(int argc, char** argv);
int cliFiles(int argc, char** argv);
int cliFirmware(int argc, char** argv);
int cliConfig(int argc, char** argv);

// Prints "tavroCli: " and the error's text on standard error; returns 1.
int cliFail(const ZError& err);
// The same for a bad command line, with a pointer to the command's help; returns 2.
int cliBadUsage(const ZError& err, const char* command);
// Parses the command's arguments; -1 to go on, else the exit status (0
// after printing usage for --help).
int cliParse(CliArgs& args, int argc, char** argv, const CliOption* options, const char* command,
             const char* usage);
// Adds the units of urls to control (several make one merged group),
// connects them, logs in when a user is given and reads the caches.
ZError cliConnect(Control& control, const ZList<ZString>& urls, const ZString& user,
                  const ZString& password);

#endif
