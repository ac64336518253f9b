// tavroCli files: the data files a unit keeps on its own storage.
#include "clicommands.h"

#include "control.h"
#include "unitfiles.h"
#include "ztime.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <functional>

using namespace TavroApi;

namespace {

const char* const Usage =
    "Usage: tavroCli files ls URL [--root internal|sdcard]\n"
    "       tavroCli files get URL NAME [--out FILE] [--format tavd|csv|csv_with_header|tdms]\n"
    "       tavroCli files rm URL NAME\n"
    "Lists, downloads and deletes the data files that the unit at URL has recorded\n"
    "on its own storage (the \"data\" folder of the root).\n"
    "\n"
    "  ls                     the storage size and free space, then one line a file:\n"
    "                         name, time (UTC), type and size in bytes\n"
    "  get                    downloads NAME byte for byte as a .tavd raw data file,\n"
    "                         or converts it to CSV or TDMS on the way; progress goes\n"
    "                         to standard error once a second\n"
    "  rm                     deletes NAME on the unit\n"
    "\n"
    "  --root R               internal (default) or sdcard\n"
    "  --out FILE             the local file (default NAME, its suffix following\n"
    "                         the format); its suffix gives the format when --format\n"
    "                         is not given\n"
    "  --format F             tavd, csv, csv_with_header or tdms\n"
    "  --user U --password P  log in first\n"
    "  --help                 show this help and exit\n";

const CliOption Options[] = {{"root", true},     {"out", true},   {"format", true}, {"user", true},
                             {"password", true}, {"help", false}, {nullptr, false}};

// The suffix a format's files end in.
ZString suffixOf(const ZString& format) {
    return format == "csv_with_header" ? ZString("csv") : format;
}

// Prints one line a second on standard error.
class Reporter {
public:
    explicit Reporter(const char* what)
        : owhat(what), onext(Clock::now() + std::chrono::seconds(1)) {}
    bool operator()(uint64_t done, uint64_t total) {
        if (Clock::now() < onext)
            return true;
        onext += std::chrono::seconds(1);
        if (total)
            fprintf(stderr, "tavroCli: %s: %llu of %llu bytes\n", owhat, (unsigned long long)done,
                    (unsigned long long)total);
        else
            fprintf(stderr, "tavroCli: %s: %llu bytes\n", owhat, (unsigned long long)done);
        return true;
    }

private:
    using Clock = std::chrono::steady_clock;
    const char* owhat;
    Clock::time_point onext;
};

int list(UnitFiles& files, const ZString& root) {
    FilesysInfo info;
    ZList<FileInfo> entries;
    ZError err = files.info(root, info);
    if (!err)
        err = files.list(root, entries);
    if (err)
        return cliFail(err);
    printf("Storage size: %u MBytes, Free: %u MBytes\n", unsigned(info.size >> 20),
           unsigned(info.free >> 20));
    for (const FileInfo& f : entries)
        printf("%-32s %s %-7s %llu\n", UnitFiles::fileName(f).str(),
               ZTimeUs(f.time).getString("isoSpace").str(), UnitFiles::typeText(f).str(),
               (unsigned long long)f.fileLength);
    return 0;
}

int get(UnitFiles& files, const ZString& root, const ZString& name, const ZString& out,
        const ZString& format) {
    // The size from the listing, for the progress lines.
    uint64_t total = 0;
    ZList<FileInfo> entries;
    if (!files.list(root, entries)) {
        for (const FileInfo& f : entries)
            if (UnitFiles::fileName(f) == name)
                total = f.fileLength;
    }
    const ZString path = UnitFiles::dataPath(root, name);
    ZError err;
    if (format == "tavd") {
        Reporter report("downloading");
        if ((err = files.download(path, out, total, std::ref(report)))) {
            unlink(out.str());
            return cliFail(ZError(err.number, err.str() + ": " + files.cause().str()));
        }
    } else {
        ZString raw = out.dirname();
        raw = (raw.isEmpty() ? ZString(".") : raw) + "/tavro-download.tavd";
        ZFile temp;
        if ((err = temp.openTemp(raw, "wb")))
            return cliFail(ZError(err.number, "Cannot create file: " + err.str()));
        temp.close();
        Reporter report("downloading");
        err = files.download(path, raw, total, std::ref(report));
        if (err)
            err = ZError(err.number, err.str() + ": " + files.cause().str());
        Reporter converting("converting");
        if (!err &&
            (err = UnitFiles::convert(raw, out, format == "csv_with_header", std::ref(converting))))
            err = ZError(err.number, "Cannot convert data format: " + err.str());
        unlink(raw.str());
        if (err)
            return cliFail(err);
    }
    printf("%s\n", out.str());
    return 0;
}

} // namespace

int cliFiles(int argc, char** argv) {
    CliArgs args;
    int status = cliParse(args, argc, argv, Options, "files", Usage);
    if (status >= 0)
        return status;
    const ZList<ZString>& a = args.arguments();
    const ZString action = a.number() ? a.front() : ZString();
    const int needed = action == "ls" ? 2 : (action == "get" || action == "rm") ? 3 : 0;
    if (!needed)
        return cliBadUsage(ZError("An action is needed: ls, get or rm"), "files");
    if (a.number() != needed)
        return cliBadUsage(ZError(needed == 2 ? "One unit URL is needed"
                                              : "A unit URL and a file name are needed"),
                           "files");
    const ZString root = UnitFiles::rootNamed(args.value("root", "internal"));
    if (root.isEmpty())
        return cliBadUsage(ZError("Unknown root: " + args.value("root")), "files");
    const ZString url = a[1];
    const ZString name = needed == 3 ? a[2] : ZString();

    // The format and the local file name follow each other.
    ZString format = args.value("format");
    ZString out = args.value("out");
    if (format.isEmpty()) {
        const ZString suffix = out.extension();
        format = suffix == "csv" || suffix == "tdms" ? suffix : ZString("tavd");
    } else if (format != "tavd" && format != "csv" && format != "csv_with_header" &&
               format != "tdms") {
        return cliBadUsage(ZError("Unknown format: " + format), "files");
    }
    if (out.isEmpty()) {
        out = name.filename();
        if (format != "tavd")
            out = out.basename() + "." + suffixOf(format);
    } else if (format != "tavd" && out.extension() != suffixOf(format)) {
        return cliBadUsage(ZError("The output must end in ." + suffixOf(format) + ": " + out),
                           "files");
    }

    Control control;
    ZList<ZString> urls;
    urls.append(url);
    ZError err = control.init();
    if (!err)
        err = cliConnect(control, urls, args.value("user"), args.value("password"));
    TavroUnit1* master = control.unitMaster();
    if (!err && !master)
        err = ZError("No unit");
    if (err)
        return cliFail(err);
    UnitFiles files(*master);
    status = 0;
    if (action == "ls")
        status = list(files, root);
    else if (action == "get")
        status = get(files, root, name, out, format);
    else if ((err = files.remove(UnitFiles::dataPath(root, name))))
        status = cliFail(ZError(err.number, "Cannot delete file on Tavro: " + err.str()));
    control.unitsDisconnect();
    return status;
}
