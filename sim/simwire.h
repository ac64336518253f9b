#ifndef SIMWIRE_H
#define SIMWIRE_H

#include "zcomms.h"

#include <atomic>
#include <mutex>

namespace TavroSim {

// The unit's side of a link as the serving Tavro sees it. Every packet, be it
// a reply written by the receive loop or a push written by the unit's thread,
// goes out whole under one lock, so the two can never interleave; short
// writes of the link are completed. Reads go straight to the link. It can
// also put garbage bytes in front of packets, for fault tests.
class SimWire : public ZComms {
public:
    explicit SimWire(ZComms& link);

    // Puts bytes garbage bytes (never holding a packet's magic) in front of
    // each of the next packets.
    void setGarbage(unsigned int bytes, unsigned int packets);

    bool packetMode() override { return olink.packetMode(); }
    bool isConnected() override { return olink.isConnected(); }
    ZError disconnect() override { return olink.disconnect(); }
    void flush(Flush what) override { olink.flush(what); }
    ZError write(const void* data, unsigned int len, unsigned int& written) override;
    ZError writeChunks(const ZDataChunk* chunks, unsigned int n, unsigned int& written) override;
    unsigned int readAvailable() override { return olink.readAvailable(); }
    ZError read(void* data, unsigned int len, unsigned int& got) override {
        return olink.read(data, len, got);
    }
    ZError wait(unsigned int what, unsigned int timeoutUs, unsigned int count) override {
        return olink.wait(what, timeoutUs, count);
    }

private:
    ZError writeFully(const void* data, unsigned int len);
    ZError garbage();

    ZComms& olink;
    std::mutex owrite;
    std::atomic<unsigned int> ogarbageBytes;
    std::atomic<unsigned int> ogarbagePackets;
};

} // namespace TavroSim

#endif
