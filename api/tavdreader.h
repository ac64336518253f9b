#ifndef TAVDREADER_H
#define TAVDREADER_H

#include "datafile.h"
#include "tavrorecords.h"
#include "zarray.h"
#include "zerror.h"
#include "zfile.h"
#include "zstring.h"

#include <cstdint>
#include <functional>

namespace TavroApi {

// Reads a ".tavd" file block by block. Every block is checked before its
// payload is read: magic 0x555A, a length from 16 to packetMax and a block
// type from 30 to 33. While info.fileType is Block512 each block occupies
// round512(length) bytes; info.fileType starts as Stream so that the first
// block is read at its natural size.
class TavdReader {
public:
    static constexpr unsigned packetMax = 4096;

    TavdReader();
    TavdReader(const TavdReader&) = delete;
    TavdReader& operator=(const TavdReader&) = delete;

    // "rb". Failure: 1 and "Unable to open file: " + name + ": " + the reason.
    ZError open(const ZString& fileName);
    ZError close() { return file.close(); }

    // Next block into the buffer. 14 "File read end" at the end of the file,
    // 15 "File read error" on a short or impossible block, 1 for a bad magic,
    // length or block type.
    ZError readPacket();
    // Moves on to the next multiple of 512 (after the info block of a
    // Block512 file).
    ZError alignSector();
    // Where the next block starts and the size of the file; -1 when closed.
    int64_t position() const { return file.position(); }
    int64_t length() const { return file.length(); }

    const TavdBlockHeader& header() const {
        return *reinterpret_cast<const TavdBlockHeader*>(buffer);
    }
    unsigned blockType() const { return unsigned(header().blockType & 0xFFFF); }
    // The payload and its length as the header gives it (without the sector
    // padding of a Block512 file).
    const uint8_t* payload() const { return buffer + sizeof(TavdBlockHeader); }
    unsigned payloadLength() const { return header().length - unsigned(sizeof(TavdBlockHeader)); }

    InfoBlock info;

private:
    ZFile file;
    alignas(8) uint8_t buffer[packetMax];
};

// Turns a raw block of a unit (DataType Raw40x) into floats; out holds a
// whole 16-channel block.
using TavdRawConverter = std::function<ZError(const DataBlock& raw, DataBlockFloat& out)>;

// Told after every block how far a conversion has come: the bytes of the
// input read so far and its size. Returning false stops the conversion.
using TavdProgress = std::function<bool(uint64_t done, uint64_t total)>;

// Converts the ".tavd" file input into output, whose suffix gives the format
// ("csv" becomes "csv_with_header" when csvWithHeader is set). Raw blocks
// need rawConverter; without one they fail with number 12. A conversion
// stopped by progress fails with -125 "Conversion cancelled" and leaves the
// output as far as it got.
ZError tavdConvert(const ZString& input, const ZString& output, bool csvWithHeader,
                   const TavdRawConverter& rawConverter = TavdRawConverter(),
                   const TavdProgress& progress = TavdProgress());

} // namespace TavroApi

#endif
