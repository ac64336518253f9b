#include "simwire.h"

#include <algorithm>
#include <vector>

namespace TavroSim {

namespace {

// Writes that make no progress this many times in a row count as a dead link.
const int StallMax = 100;

} // namespace

SimWire::SimWire(ZComms& link) : olink(link), ogarbageBytes(0), ogarbagePackets(0) {
    oconnected = true;
}

void SimWire::setGarbage(unsigned int bytes, unsigned int packets) {
    ogarbageBytes = bytes;
    ogarbagePackets = packets;
}

ZError SimWire::writeFully(const void* data, unsigned int len) {
    const uint8_t* p = static_cast<const uint8_t*>(data);
    int stalled = 0;
    while (len > 0) {
        unsigned int w = 0;
        ZError err = olink.write(p, len, w);
        if (err)
            return err;
        w = std::min(w, len);
        if (w == 0 && ++stalled >= StallMax)
            return ZError(4, "Timeout");
        if (w == 0)
            delayUs(1000);
        else
            stalled = 0;
        p += w;
        len -= w;
    }
    return ZError();
}

ZError SimWire::garbage() {
    unsigned int n = ogarbageBytes;
    if (n == 0 || ogarbagePackets == 0)
        return ZError();
    ogarbagePackets--;
    std::vector<uint8_t> junk(n);
    for (unsigned int i = 0; i < n; i++)
        junk[i] = uint8_t(0xA5 ^ (i * 0x3B)) & 0xF7; // never 0x5A followed by 0x55
    return writeFully(junk.data(), n);
}

ZError SimWire::write(const void* data, unsigned int len, unsigned int& written) {
    std::lock_guard<std::mutex> lock(owrite);
    written = 0;
    ZError err = garbage();
    if (!err)
        err = writeFully(data, len);
    if (!err)
        written = len;
    return err;
}

ZError SimWire::writeChunks(const ZDataChunk* chunks, unsigned int n, unsigned int& written) {
    std::lock_guard<std::mutex> lock(owrite);
    written = 0;
    ZError err = garbage();
    if (err)
        return err;
    unsigned int total = 0;
    for (unsigned int i = 0; i < n; i++)
        total += chunks[i].length;
    unsigned int done = 0;
    err = olink.writeChunks(chunks, n, done);
    // Whatever the link left of the packet goes after it, chunk by chunk.
    for (unsigned int i = 0, at = 0; !err && i < n && done < total; i++) {
        unsigned int end = at + chunks[i].length;
        if (done < end) {
            const uint8_t* p = static_cast<const uint8_t*>(chunks[i].data);
            err = writeFully(p + (done - at), end - done);
            if (!err)
                done = end;
        }
        at = end;
    }
    if (!err)
        written = total;
    return err;
}

} // namespace TavroSim
