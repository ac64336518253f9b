#include "clicommands.h"

#include "control.h"

#include <cstdio>

int cliFail(const ZError& err) {
    fprintf(stderr, "tavroCli: %s\n", err.string.str());
    return 1;
}

int cliBadUsage(const ZError& err, const char* command) {
    fprintf(stderr, "tavroCli %s: %s\nTry 'tavroCli %s --help' for more information.\n", command,
            err.string.str(), command);
    return 2;
}

int cliParse(CliArgs& args, int argc, char** argv, const CliOption* options, const char* command,
             const char* usage) {
    ZError err = args.parse(argc, argv, options);
    if (err)
        return cliBadUsage(err, command);
    if (args.has("help")) {
        fputs(usage, stdout);
        return 0;
    }
    return -1;
}

ZError cliConnect(Control& control, const ZList<ZString>& urls, const ZString& user,
                  const ZString& password) {
    ZError err;
    int number = 0;
    for (const ZString& url : urls) {
        if ((err = control.unitAdd("unit" + ZString(++number), url)))
            return err;
    }
    control.setMulti(urls.number() > 1);
    if ((err = control.unitsConnect()))
        return err;
    if (!user.isEmpty() && (err = control.login(user, password)))
        return err;
    return control.update();
}
