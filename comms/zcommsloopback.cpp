#include "zcommsloopback.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <deque>
#include <mutex>

// The core condition classes wait for one value; the loopback waits for a
// condition over two buffers, hence a plain mutex and condition variable
// (steady clock, so a time-of-day change does not stretch a time-out).
struct ZCommsLoopback::Link {
    // What one end has still to read: the bytes, and the lengths of the
    // packets they were written as (the lengths add up to the byte count).
    struct Inbox {
        std::deque<uint8_t> bytes;
        std::deque<uint32_t> packets;

        void take(uint8_t* out, uint32_t n) {
            std::copy_n(bytes.begin(), n, out);
            bytes.erase(bytes.begin(), bytes.begin() + n);
            uint32_t left = n;
            while (left > 0) {
                uint32_t k = std::min(left, packets.front());
                packets.front() -= k;
                left -= k;
                if (packets.front() == 0)
                    packets.pop_front();
            }
        }
    };

    std::mutex mutex;
    std::condition_variable cond;
    Inbox inbox[2];
    bool open[2] = {true, true};
    bool packetMode[2] = {false, false};
};

namespace {

ZError notConnected() {
    return ZError(1, "Not connected");
}

} // namespace

ZCommsLoopback::ZCommsLoopback() : oside(0) {}

ZCommsLoopback::~ZCommsLoopback() {
    disconnect();
}

void ZCommsLoopback::connectPair(ZCommsLoopback& a, ZCommsLoopback& b) {
    a.disconnect();
    b.disconnect();
    std::shared_ptr<Link> link = std::make_shared<Link>();
    link->packetMode[0] = a.opacketMode;
    link->packetMode[1] = b.opacketMode;
    a.olink = link;
    a.oside = 0;
    b.olink = link;
    b.oside = 1;
    a.ZComms::connect(nullptr);
    b.ZComms::connect(nullptr);
}

ZError ZCommsLoopback::connect(const char*) {
    return ZError(1, "Loopback ends are joined with connectPair");
}

ZError ZCommsLoopback::disconnect() {
    if (olink) {
        std::lock_guard<std::mutex> lock(olink->mutex);
        olink->open[oside] = false;
        olink->cond.notify_all();
    }
    return ZComms::disconnect();
}

ZError ZCommsLoopback::setPacketMode(bool on) {
    opacketMode = on;
    if (olink) {
        std::lock_guard<std::mutex> lock(olink->mutex);
        olink->packetMode[oside] = on;
    }
    return ZError();
}

void ZCommsLoopback::flush(Flush what) {
    if (!olink || !(what & FlushRead))
        return;
    std::lock_guard<std::mutex> lock(olink->mutex);
    olink->inbox[oside].bytes.clear();
    olink->inbox[oside].packets.clear();
}

ZError ZCommsLoopback::write(const void* data, unsigned int len, unsigned int& written) {
    ZDataChunk chunk = {data, len};
    return writeChunks(&chunk, 1, written);
}

ZError ZCommsLoopback::writeChunks(const ZDataChunk* chunks, unsigned int n,
                                   unsigned int& written) {
    written = 0;
    if (!olink)
        return notConnected();
    std::lock_guard<std::mutex> lock(olink->mutex);
    if (!olink->open[oside])
        return notConnected();
    if (!olink->open[1 - oside])
        return zerrorFromErrno(EPIPE);
    Link::Inbox& to = olink->inbox[1 - oside];
    uint32_t total = 0;
    for (unsigned int i = 0; i < n; i++) {
        const uint8_t* p = static_cast<const uint8_t*>(chunks[i].data);
        to.bytes.insert(to.bytes.end(), p, p + chunks[i].length);
        total += chunks[i].length;
    }
    if (total > 0) {
        to.packets.push_back(total);
        olink->cond.notify_all();
    }
    written = total;
    return ZError();
}

unsigned int ZCommsLoopback::readAvailable() {
    if (!olink)
        return 0;
    std::lock_guard<std::mutex> lock(olink->mutex);
    const Link::Inbox& in = olink->inbox[oside];
    if (olink->packetMode[oside])
        return in.packets.empty() ? 0 : in.packets.front();
    return unsigned(in.bytes.size());
}

ZError ZCommsLoopback::waitLocked(std::unique_lock<std::mutex>& lock, unsigned int timeoutUs,
                                  unsigned int count) {
    Link& l = *olink;
    const Link::Inbox& in = l.inbox[oside];
    auto ready = [&] {
        if (!l.open[oside] || !l.open[1 - oside])
            return true;
        return l.packetMode[oside] ? !in.packets.empty() : in.bytes.size() >= count;
    };
    if (timeoutUs == WaitForever)
        l.cond.wait(lock, ready);
    else if (!l.cond.wait_for(lock, std::chrono::microseconds(timeoutUs), ready))
        return ZError(-110, "Timeout");
    if (!l.open[oside])
        return notConnected();
    if (in.bytes.empty() && count > 0)
        return ZError(-32, "Connection Closed by Peer");
    // Enough bytes, or the peer has gone and what it sent last is still here.
    return ZError();
}

ZError ZCommsLoopback::wait(unsigned int, unsigned int timeoutUs, unsigned int count) {
    if (!olink)
        return notConnected();
    std::unique_lock<std::mutex> lock(olink->mutex);
    return waitLocked(lock, timeoutUs, count);
}

ZError ZCommsLoopback::read(void* data, unsigned int len, unsigned int& got) {
    got = 0;
    if (!olink)
        return notConnected();
    std::unique_lock<std::mutex> lock(olink->mutex);
    if (!olink->open[oside])
        return notConnected();
    if (len == 0)
        return ZError();
    ZError err = waitLocked(lock, otimeout, len);
    if (err)
        return err;
    Link::Inbox& in = olink->inbox[oside];
    uint32_t n = std::min<uint32_t>(len, olink->packetMode[oside] ? in.packets.front()
                                                                  : uint32_t(in.bytes.size()));
    in.take(static_cast<uint8_t*>(data), n);
    got = n;
    return ZError();
}
