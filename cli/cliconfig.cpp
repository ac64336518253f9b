// tavroCli config: saves a unit's configuration to a ".zconfig" file and
// restores it from one.
#include "clicommands.h"

#include "configfile.h"
#include "control.h"

#include <cstdio>
#include <cstring>

namespace {

const char* const Usage =
    "Usage: tavroCli config save URL FILE [--user USER --password PASSWORD]\n"
    "       tavroCli config restore URL FILE [--yes] [--user USER --password PASSWORD]\n"
    "Saves the configuration of the unit at URL (board, general, measurement,\n"
    "waveform generator and channel configuration) to a .zconfig text file, or\n"
    "restores it from one. A restore sends the general, measurement, channel and\n"
    "waveform generator items the file lists and then reboots the unit.\n"
    "\n"
    "  --yes                  restore without asking for confirmation\n"
    "  --user U --password P  log in first\n"
    "  --help                 show this help and exit\n";

const CliOption Options[] = {
    {"yes", false}, {"user", true}, {"password", true}, {"help", false}, {nullptr, false}};

// The question of the restore on the terminal; anything but y/yes declines.
bool askRestore() {
    fputs("Are you sure you want to reload the configuration of the unit (Unit will reboot "
          "after this)? [y/N] ",
          stdout);
    fflush(stdout);
    char answer[16] = {};
    if (!fgets(answer, sizeof(answer), stdin))
        return false;
    return !strcmp(answer, "y\n") || !strcmp(answer, "yes\n") || !strcmp(answer, "Y\n");
}

} // namespace

int cliConfig(int argc, char** argv) {
    CliArgs args;
    int status = cliParse(args, argc, argv, Options, "config", Usage);
    if (status >= 0)
        return status;
    const ZList<ZString>& a = args.arguments();
    if (a.number() != 3 || (a[0] != "save" && a[0] != "restore"))
        return cliBadUsage(ZError("Give save or restore, a unit URL and a file name"), "config");
    const bool save = a[0] == "save";
    if (save && args.has("yes"))
        return cliBadUsage(ZError("--yes is for restore only"), "config");

    Control control;
    ZError err = control.init();
    if (!err)
        err = cliConnect(control, ZList<ZString>{a[1]}, args.value("user"), args.value("password"));
    if (err)
        return cliFail(err);
    if (save) {
        if ((err = ConfigFile::save(control, a[2])))
            return cliFail(err);
        printf("Configuration saved to %s\n", a[2].str());
        control.unitsDisconnect();
        return 0;
    }
    bool done = false;
    const bool yes = args.has("yes");
    err = configRestore(
        control, a[2], [yes] { return yes || askRestore(); }, done);
    control.unitsDisconnect();
    if (err)
        return cliFail(err);
    puts(done ? "Configuration restored, the unit is rebooting" : "Restore cancelled");
    return done ? 0 : 1;
}
