#ifndef ZOAPTEST_H
#define ZOAPTEST_H

// Shared pieces of the Zoap channel tests: raw packet images, reading a
// loopback end, and a receive thread that keeps calling processRx.

#include "zcommsloopback.h"
#include "zoapmc1comms.h"
#include "zthread.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <vector>

namespace zoaptest {

typedef std::vector<uint8_t> Bytes;

inline Bytes cat(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// A whole packet: header (length from the payload unless given) and payload.
inline Bytes packet(uint16_t function, const Bytes& payload = Bytes(), uint16_t status = 0,
                    uint16_t destination = 1, uint16_t source = 2, int length = -1) {
    Bytes b;
    for (uint16_t w : {uint16_t(0x555A), uint16_t(length >= 0 ? length : 16 + int(payload.size())),
                       destination, source, function, status, uint16_t(0), uint16_t(0)})
        b.insert(b.end(), {uint8_t(w), uint8_t(w >> 8)});
    return cat(b, payload);
}

// A 40-byte error record; text is copied as given (up to 38 bytes).
inline Bytes errorRecord(int16_t number, const char* text = "") {
    Bytes b = {uint8_t(number), uint8_t(uint16_t(number) >> 8)};
    b.resize(40);
    memcpy(&b[2], text, std::min(strlen(text), size_t(38)));
    return b;
}

// Everything the end has received within a short time.
inline Bytes drain(ZCommsLoopback& end, unsigned int waitUs = 20000) {
    Bytes out;
    while (!end.wait(2, waitUs, 1) && end.readAvailable() > 0) {
        Bytes b(end.readAvailable());
        unsigned int got = 0;
        if (end.read(b.data(), unsigned(b.size()), got))
            break;
        out.insert(out.end(), b.begin(), b.begin() + got);
    }
    return out;
}

// Exactly n bytes (fewer when the end's read times out).
inline Bytes readN(ZCommsLoopback& end, unsigned int n) {
    Bytes b(n);
    unsigned int done = 0, got = 0;
    while (done < n && !end.read(b.data() + done, n - done, got) && got > 0)
        done += got;
    b.resize(done);
    return b;
}

inline ZError send(ZCommsLoopback& end, const Bytes& b) {
    unsigned int written = 0;
    return end.write(b.data(), unsigned(b.size()), written);
}

// Calls processRx until stopped; keeps every error but the transport's
// time-out, and ends when the transport has gone.
class RxLoop : public ZThread {
public:
    explicit RxLoop(ZoapMc1Comms& channel) : ochannel(channel), ostop(false) { start(); }
    ~RxLoop() override { stop(); }

    void stop() {
        ostop = true;
        waitForCompletion();
    }
    std::vector<ZError> errors() {
        std::lock_guard<std::mutex> lock(omutex);
        return oerrors;
    }

    int function() override {
        while (!ostop) {
            ZError err = ochannel.processRx();
            if (!err || err.number == -110)
                continue;
            std::lock_guard<std::mutex> lock(omutex);
            oerrors.push_back(err.copy());
            if (err.number == -32 || err.number == 1 || err.number == 5)
                break;
        }
        return 0;
    }

private:
    ZoapMc1Comms& ochannel;
    std::atomic<bool> ostop;
    std::mutex omutex;
    std::vector<ZError> oerrors;
};

} // namespace zoaptest

#endif
