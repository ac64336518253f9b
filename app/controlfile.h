#ifndef CONTROLFILE_H
#define CONTROLFILE_H

#include "datafile.h"
#include "tavrorecords.h"
#include "tavrounits.h"
#include "zarray.h"
#include "zerror.h"
#include "zstring.h"
#include "ztime.h"

#include <cstdint>

// Where and how one data stream of a capture is saved.
struct FileSave {
    bool save = false; // write this stream to a file at measurement start
    ZString dir;       // directory to write into
    ZString name;      // file name without extension; may hold "%{datetime}"
    ZString type;      // "csv", "csv_with_header", "tdms" or "tavd"
};

// What went into one data file so far.
struct ControlFileStats {
    ZString path;
    ZString mode; // the fopen mode it was opened with
    bool open = false;
    uint64_t blocks = 0;  // blocks written
    uint64_t samples = 0; // samples (rows) written
    ZError error;         // the first error of the file
};

// One data file of a capture: its writer, its counters and the first error
// it met. After a failed write the file takes nothing more (it is already
// incomplete) but stays open until finish(). Not locked: the owner guards it.
class ControlFile {
public:
    // The template with its first "%{datetime}" replaced by the start time
    // in ZTime's "filename" form; a template without it is kept as it is.
    static ZString expandName(const ZString& name, const ZTime& start);
    // "csv" for "csv_with_header", else the type itself.
    static ZString extension(const ZString& type);
    // "w" (text) for a ".csv" file, else "wb".
    static ZString openMode(const ZString& type);
    // dir + "/" + expanded name + "." + extension.
    static ZString path(const FileSave& save, const ZTime& start);

    ControlFile() = default;
    ControlFile(const ControlFile&) = delete;
    ControlFile& operator=(const ControlFile&) = delete;

    // Opens the file of save at path and writes its head. Counters and error
    // start again. Failure to open: 15 "Unable to create file: " + path +
    // ", " + the reason; a failing head is returned as it is.
    ZError open(const FileSave& save, const ZString& path, const TavroApi::InfoBlock& info,
                const ZArray<TavroApi::ChannelConfig>& channels);
    // Appends a merged raw block. A block wider than one float record is
    // written as several records of whole samples, so every format sees the
    // same rows.
    void write(const TavroApi::TavroUnitsDataBlock& block);
    void write(const TavroApi::DataBlockProc& block);
    // writeEnd and close; returns the first error of the file (also one met
    // earlier while writing), until the next open(). Success for a file that
    // could not be opened (open() has said why).
    ZError finish();

    bool isOpen() const { return ofile.isOpen(); }
    ControlFileStats stats() const { return ostats; }

private:
    void fail(const ZError& err);

    TavroApi::DataFile ofile;
    ControlFileStats ostats;
    bool oopened = false; // since the last open()
};

#endif
