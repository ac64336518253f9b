#include "simrecorder.h"

#include <cstring>

namespace TavroSim {

using namespace TavroApi;

void SimRecorder::blockImage(uint64_t type, const void* record, size_t size,
                             std::vector<uint8_t>& out) {
    const size_t header = 16;
    uint16_t length = uint16_t(header + size);
    out.assign(round512(header + size), 0);
    uint16_t m = magic;
    memcpy(out.data(), &m, 2);
    memcpy(out.data() + 2, &length, 2);
    memcpy(out.data() + 8, &type, 8);
    memcpy(out.data() + header, record, size);
}

ZError SimRecorder::start(SimFiles& files, const ZString& path, const InfoBlock& info,
                          const ChannelConfig* channels, int number, bool deleteOld, uint32_t now) {
    end();
    ZError err = files.create(path, now);
    if (err)
        return err;
    ofiles = &files;
    opath = path;
    odeleteOld = deleteOld;
    err = write(Info, &info, sizeof(info), now);
    for (int i = 0; i < number && !err; i++)
        err = write(Channel, &channels[i], sizeof(channels[i]), now);
    return err;
}

ZError SimRecorder::add(const DataBlock& block, uint32_t now) {
    return write(Data, &block, sizeof(block), now);
}

ZError SimRecorder::add(const DataBlockProc& block, uint32_t now) {
    return write(Data, &block, sizeof(block), now);
}

ZError SimRecorder::write(uint64_t type, const void* record, size_t size, uint32_t now) {
    if (!ofiles)
        return ZError(9, "Not recording");
    blockImage(type, record, size, oimage);
    ZError err = ofiles->append(opath, oimage.data(), oimage.size(), now);
    while (err.number == 28 && odeleteOld && ofiles->removeOldest(opath.dirname(), opath))
        err = ofiles->append(opath, oimage.data(), oimage.size(), now);
    if (err)
        end();
    return err;
}

} // namespace TavroSim
