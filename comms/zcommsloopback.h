#ifndef ZCOMMSLOOPBACK_H
#define ZCOMMSLOOPBACK_H

#include "zcomms.h"

#include <memory>
#include <mutex>

// One end of an in-process transport pair, for exercising the protocol
// layers without a device. What one end writes the other end reads.
//
// Stream mode (the default) behaves like a TCP connection. In packet mode
// (setPacketMode(true)) every write, and every writeChunks as a whole, is one
// packet, and a read never crosses a packet boundary: it returns at most the
// rest of the first packet, and a shorter buffer leaves the remainder of that
// packet for the next read.
//
// wait() blocks until count bytes (stream) or a packet (packet mode) can be
// read, else -110 "Timeout". Disconnecting an end wakes every waiter of both
// ends: the end itself then answers 1 "Not connected"; the peer can read what
// was already sent and then gets -32 "Connection Closed by Peer", and its
// writes fail with -32 "Broken pipe". Any thread may call any operation.
class ZCommsLoopback : public ZComms {
public:
    ZCommsLoopback();
    ~ZCommsLoopback() override;

    // Joins a and b into a fresh connected pair; earlier links are dropped.
    static void connectPair(ZCommsLoopback& a, ZCommsLoopback& b);

    // Refused: ends are joined with connectPair.
    ZError connect(const char* address) override;
    ZError disconnect() override;
    ZError setPacketMode(bool on) override;
    // FlushRead (and FlushAll) discard what this end has not read yet.
    void flush(Flush what) override;

    ZError write(const void* data, unsigned int len, unsigned int& written) override;
    ZError writeChunks(const ZDataChunk* chunks, unsigned int n, unsigned int& written) override;
    // Bytes waiting (stream mode) or the length of the first packet.
    unsigned int readAvailable() override;
    // Waits (default time-out) for len bytes or a packet, then copies out.
    ZError read(void* data, unsigned int len, unsigned int& got) override;
    ZError wait(unsigned int what, unsigned int timeoutUs, unsigned int count) override;

private:
    struct Link;
    ZError waitLocked(std::unique_lock<std::mutex>& lock, unsigned int timeoutUs,
                      unsigned int count);

    std::shared_ptr<Link> olink;
    int oside;
};

#endif
