#ifndef DATAFILE_H
#define DATAFILE_H

#include "tavrorecords.h"
#include "zarray.h"
#include "zerror.h"
#include "zfile.h"
#include "zstring.h"

#include <cstddef>
#include <cstdint>

namespace TavroApi {

// The 16-byte header in front of every block of a ".tavd" file.
struct TavdBlockHeader {
    static constexpr uint16_t magicValue = 0x555A; // "ZU"
    static constexpr uint64_t typeInfo = 30;
    static constexpr uint64_t typeData = 31;
    static constexpr uint64_t typeChannel = 32;

    uint16_t magic;
    uint16_t length; // header plus payload, low 16 bits
    uint32_t reserved;
    uint64_t blockType;
};
static_assert(sizeof(TavdBlockHeader) == 16, "tavd block header");

// Writes captured data to a local file as "tavd" (raw blocks), "csv",
// "csv_with_header" or "tdms". Use: open, writeInfo, any number of
// writeData, writeEnd, close. The destructor closes the file.
class DataFile {
public:
    DataFile();
    ~DataFile();
    DataFile(const DataFile&) = delete;
    DataFile& operator=(const DataFile&) = delete;

    // mode "w" checks the format word first; every format but the csv ones
    // gets "b" appended to the mode.
    ZError open(const ZString& fileName, const ZString& mode, const ZString& format);
    ZError writeInfo(const InfoBlock& info, const ZArray<ChannelConfig>& channels);
    // A block of type Proc is taken as the DataBlockProc it really is.
    ZError writeData(const DataBlock* block);
    ZError writeData(const DataBlockProc* block);
    ZError writeData(const DataBlockFloat* block);
    // Patches the segment length of a "tdms" file; nothing for the others.
    ZError writeEnd();
    ZError close();

    ZString getFileName() const { return fileName; }
    bool isOpen() const { return file.isOpen(); }

private:
    // block is a DataBlock or DataBlockFloat of recordSize bytes holding
    // at most maxSamples floats.
    ZError writeFloats(const DataBlock* block, size_t recordSize, unsigned maxSamples);
    ZError writeTavd(const DataBlock* block, size_t recordSize, unsigned maxSamples);
    ZError writeTavd(const DataBlockProc* block);
    ZError writeHeadTavd(const InfoBlock& info, const ZArray<ChannelConfig>& channels);
    ZError writeHeadCsv(const InfoBlock& info, const ZArray<ChannelConfig>& channels);
    ZError writeHeadTdms(const InfoBlock& info, const ZArray<ChannelConfig>& channels);
    ZError writeCsv(const DataBlock* block, unsigned maxSamples);
    ZError writeCsv(const DataBlockProc* block);
    ZError writeTdms(const DataBlock* block, unsigned maxSamples);
    // Scratch of at least n bytes, grown and never shrunk; null if out of memory.
    uint8_t* scratch(size_t n);
    // Writes n bytes; a short write gives 15 and the system's text.
    ZError put(const void* data, size_t n);
    bool isCsv() const { return format == "csv" || format == "csv_with_header"; }

    ZString fileName;
    ZString mode;
    ZString format;
    int32_t packed;
    ZFile file;
    uint8_t* buffer;
    size_t bufferSize;
};

// Text of a float as printf "%f" gives it, written at out (room for 400
// characters); returns the length.
int dataFileFormatFloat(char* out, double value);

} // namespace TavroApi

#endif
