#ifndef UNITFILES_H
#define UNITFILES_H

#include "tavdreader.h"
#include "tavrofiles.h"
#include "zerror.h"
#include "zlist.h"
#include "zstring.h"

#include <cstdint>
#include <functional>

namespace TavroApi {
class Tavro;
}

// The data files a unit keeps on its own storage: listing, downloading,
// deleting and formatting, and the conversion of a downloaded raw file.
// Works on one connected unit (the master unit of the group); the calls
// block the caller's thread for as long as the unit takes.
//
// Storage roots: "/internal" (logging device 0) and "/sdcard" (device 1);
// the data files lie in the root's "data" folder.
//
// The failures carry the texts the user sees ("Cannot open file on Tavro",
// "Cannot read file on Tavro", ...) with the number of the error behind
// them; cause() keeps that error itself, with its own text.
//
//   UnitFiles files(*control.unitMaster());
//   ZList<TavroApi::FileInfo> list;
//   ZError err = files.list("/internal", list);
//   err = files.download(UnitFiles::dataPath("/internal", "data_1.tavd"), "/tmp/x.tavd");
class UnitFiles {
public:
    // What one fileRead asks for.
    static constexpr unsigned int pieceSize = 512;
    // A listing is refused beyond this many entries (a unit that never says
    // "no more files").
    static constexpr unsigned int listMax = 10000;
    // Failure number of a download or conversion stopped by its progress.
    static constexpr int cancelled = -125;

    // Told after every piece: the bytes so far and the total (0 when not
    // known). Returning false cancels.
    using Progress = std::function<bool(uint64_t done, uint64_t total)>;

    explicit UnitFiles(TavroApi::Tavro& unit) : ounit(unit) {}

    // "/internal" for logging device 0, "/sdcard" for 1; "/internal" beyond.
    static ZString root(unsigned int device);
    // The root named "internal" or "sdcard" (with or without its slash);
    // empty for another name.
    static ZString rootNamed(const ZString& name);
    // root + "/data/" + name
    static ZString dataPath(const ZString& root, const ZString& name);
    // "file" for type 1, "dir" for type 2, "unknown" otherwise.
    static ZString typeText(const TavroApi::FileInfo& info);
    // The name of a listed file (its field need not end in a zero).
    static ZString fileName(const TavroApi::FileInfo& info);

    ZError info(const ZString& root, TavroApi::FilesysInfo& info);
    // The entries of root + "/data" in the unit's order; the unit's 14
    // ("No more files") ends the listing.
    ZError list(const ZString& root, ZList<TavroApi::FileInfo>& files);

    // Copies the unit's file path byte for byte into the local file
    // localName, 512 bytes a call, until the unit reports the end (14).
    // total is only handed to progress. Failures: "Cannot create file",
    // "Cannot open file on Tavro", "Cannot read file on Tavro", "Cannot write
    // to file"; cancelled "Download cancelled", and the local file is
    // removed. The unit's file is closed on every path once it was opened.
    ZError download(const ZString& path, const ZString& localName, uint64_t total = 0,
                    const Progress& progress = Progress());

    ZError remove(const ZString& path);
    // Deletes every data file of root.
    ZError removeAll(const ZString& root);
    // Empties root altogether.
    ZError format(const ZString& root);

    // The error behind the last failure of download, with the unit's or the
    // system's own text.
    const ZError& cause() const { return ocause; }

    // Converts the raw ".tavd" file input into output; the suffix of output
    // gives the format ("csv" becomes "csv_with_header" with csvWithHeader).
    // Raw unit samples are turned into floats on the way.
    static ZError convert(const ZString& input, const ZString& output, bool csvWithHeader,
                          const TavroApi::TavdProgress& progress = TavroApi::TavdProgress());

private:
    // Sets ocause and returns text with the cause's number.
    ZError fail(const char* text, const ZError& cause);

    TavroApi::Tavro& ounit;
    ZError ocause;
};

#endif
