#ifndef SIMRECORDER_H
#define SIMRECORDER_H

#include "simfiles.h"
#include "tavrorecords.h"
#include "zerror.h"
#include "zstring.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace TavroSim {

// Records a capture into a ".tavd" file of the unit's file system the way a
// unit does ("Block512"): every block is a 16-byte header {0x555A, length,
// 0, block type} and a record image, zero-filled to occupy round512(length)
// bytes. The file starts with the InfoBlock (type 30) and one ChannelConfig
// block (type 32) per channel; DataBlock and DataBlockProc follow as blocks
// of type 31. When storage runs out, mode DeleteOld deletes the oldest files
// of the folder to make room; Normal ends the recording with the error.
class SimRecorder {
public:
    static constexpr uint16_t magic = 0x555A;
    enum BlockType : uint64_t { Info = 30, Data = 31, Channel = 32 };

    SimRecorder() : ofiles(nullptr), odeleteOld(false) {}

    ZError start(SimFiles& files, const ZString& path, const TavroApi::InfoBlock& info,
                 const TavroApi::ChannelConfig* channels, int number, bool deleteOld, uint32_t now);
    ZError add(const TavroApi::DataBlock& block, uint32_t now);
    ZError add(const TavroApi::DataBlockProc& block, uint32_t now);
    void end() { ofiles = nullptr; }
    bool active() const { return ofiles != nullptr; }
    const ZString& path() const { return opath; }

    // (n + 511) rounded down to a multiple of 512.
    static size_t round512(size_t n) { return (n + 511) / 512 * 512; }
    // The image of one block as it lies in the file.
    static void blockImage(uint64_t type, const void* record, size_t size,
                           std::vector<uint8_t>& out);

private:
    ZError write(uint64_t type, const void* record, size_t size, uint32_t now);

    SimFiles* ofiles;
    ZString opath;
    bool odeleteOld;
    std::vector<uint8_t> oimage;
};

} // namespace TavroSim

#endif
