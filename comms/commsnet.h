#ifndef COMMSNET_H
#define COMMSNET_H

#include "zcomms.h"
#include "zsocket.h"

#include <atomic>
#include <vector>

namespace TavroApi {

// A unit on the network: a byte stream over one TCP connection.
//
// disconnect() may be called from another thread while wait() or read()
// blocks: `closing` makes the wait leave at once and every later call fail
// with "Not connected", and disconnect() keeps the socket open until no call
// is using it any more (`waiting` counts them), so no call ever touches a
// closed or reused descriptor.
//
// Input goes through a receive buffer: whenever it holds fewer bytes than a
// read or wait needs, one recv takes as much as the kernel has, up to the free
// space (64 KB, more while a single wait needs more), so a burst of small
// records costs one system call rather than several per record. Taking the
// bytes out also lets the sender go on (TCP flow control) while a large read
// waits. readAvailable() counts buffered and kernel-queued bytes.
class CommsNet : public ZComms {
public:
    static const unsigned short UnitPort = 40358;

    // The two buffer sizes are accepted for compatibility and not used.
    CommsNet(unsigned int rxSize = 1024, unsigned int txSize = 1024);
    ~CommsNet() override;

    // Creates the TCP socket.
    ZError init() override;
    // Resolves host (a name or dotted address) and connects. A connected
    // transport is disconnected first; a missing socket is created.
    ZError connect(const ZString& host, unsigned short port);
    // connect(host, UnitPort).
    ZError connect(const char* host) override;
    ZError disconnect() override;

    ZError write(const void* data, unsigned int n, unsigned int& written) override;
    // One gathered send of all chunks.
    ZError writeChunks(const ZDataChunk* chunks, unsigned int n, unsigned int& written) override;
    unsigned int readAvailable() override;
    // Waits for n bytes (default time-out), then hands out up to n bytes from
    // the receive buffer (fewer only when the peer has closed).
    ZError read(void* data, unsigned int n, unsigned int& got) override;
    // Until count bytes can be read: success; the time-out: -110 "Timeout";
    // an error or hang-up on the socket: 1 "Poll error: ...". When the peer
    // has closed its side, returns success so that the following read
    // delivers what is left and then -32 "Connection Closed by Peer".
    ZError wait(unsigned int what, unsigned int timeoutUs, unsigned int count) override;

    ZSocket& socket() { return osocket; }

private:
    class Use;
    enum { RxBufferSize = 65536 };

    unsigned int buffered() const { return unsigned(orxTail - orxHead); }
    ZError fill(unsigned int count);

    ZSocket osocket;
    std::atomic<int> owaiting;
    std::atomic<bool> oclosing;
    // Bytes taken from the kernel and not read yet lie in orx[orxHead,
    // orxTail). orxEnd is the close the peer was seen to make, handed to
    // read() once the buffer is empty. The reading thread alone touches them.
    std::vector<char> orx;
    size_t orxHead;
    size_t orxTail;
    ZError orxEnd;
};

} // namespace TavroApi

#endif
