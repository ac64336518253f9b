#include "commsnet.h"

#include "zpoll.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

namespace TavroApi {

namespace {

ZError notConnected() {
    return ZError(1, "Not connected");
}

} // namespace

// Marks one call as using the socket for its lifetime. The count goes up
// before `closing` is read, and disconnect() sets `closing` before it reads
// the count, so either the call sees `closing` or disconnect() waits for it.
class CommsNet::Use {
public:
    explicit Use(CommsNet& comms) : c(comms) {
        c.owaiting++;
        ok = c.oconnected && !c.oclosing;
    }
    ~Use() { c.owaiting--; }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    CommsNet& c;
    bool ok;
};

CommsNet::CommsNet(unsigned int, unsigned int)
    : owaiting(0), oclosing(false), orxHead(0), orxTail(0) {}

CommsNet::~CommsNet() {
    disconnect();
}

ZError CommsNet::init() {
    return osocket.init(ZSocket::Stream);
}

ZError CommsNet::connect(const char* host) {
    return connect(ZString(host), UnitPort);
}

ZError CommsNet::connect(const ZString& host, unsigned short port) {
    if (oconnected)
        disconnect();
    ZSocketAddressINET address;
    ZError err = address.set(host, port);
    if (err)
        return err;
    if (!osocket.isOpen() && (err = init()))
        return err;
    if ((err = osocket.connect(address))) {
        // A socket whose connect failed cannot be used again: start afresh next time.
        osocket.close();
        return err;
    }
    orxHead = orxTail = 0;
    orxEnd = ZError();
    oclosing = false;
    return ZComms::connect(nullptr);
}

ZError CommsNet::disconnect() {
    if (oconnected && !oclosing.exchange(true)) {
        osocket.shutdown(SHUT_RDWR);
        while (owaiting > 0)
            delayMs(1);
        osocket.close();
    }
    return ZComms::disconnect();
}

ZError CommsNet::write(const void* data, unsigned int n, unsigned int& written) {
    written = 0;
    Use use(*this);
    if (!use.ok)
        return notConnected();
    return osocket.send(data, n, written, 0);
}

ZError CommsNet::writeChunks(const ZDataChunk* chunks, unsigned int n, unsigned int& written) {
    written = 0;
    Use use(*this);
    if (!use.ok)
        return notConnected();
    return osocket.sendChunks(chunks, n, written, 0);
}

unsigned int CommsNet::readAvailable() {
    return buffered() + osocket.recvAvailable();
}

// One recv without waiting of what the kernel holds, behind the buffered
// bytes (fewer than count). The buffer is compacted first and grows only
// while it is full and still short of count.
ZError CommsNet::fill(unsigned int count) {
    if (orxHead > 0) {
        memmove(orx.data(), orx.data() + orxHead, orxTail - orxHead);
        orxTail -= orxHead;
        orxHead = 0;
    }
    if (orxTail == orx.size())
        orx.resize(std::max(size_t(RxBufferSize), std::min(orx.size() * 2, size_t(count))));
    unsigned int got = 0;
    ZError err =
        osocket.recv(orx.data() + orxTail, unsigned(orx.size() - orxTail), got, MSG_DONTWAIT);
    orxTail += got;
    return err;
}

ZError CommsNet::read(void* data, unsigned int n, unsigned int& got) {
    got = 0;
    Use use(*this);
    if (!use.ok)
        return notConnected();
    ZError err = wait(2, otimeout, n);
    if (err)
        return err;
    if (n == 0)
        return ZError();
    // Fewer than n only when the peer has closed: the rest, then the close.
    if (buffered() == 0)
        return orxEnd;
    got = std::min(n, buffered());
    memcpy(data, orx.data() + orxHead, got);
    orxHead += got;
    return ZError();
}

ZError CommsNet::wait(unsigned int, unsigned int timeoutUs, unsigned int count) {
    Use use(*this);
    if (!use.ok)
        return notConnected();
    typedef std::chrono::steady_clock Clock;
    const bool forever = timeoutUs == WaitForever;
    const Clock::time_point deadline = Clock::now() + std::chrono::microseconds(timeoutUs);
    ZPoll poll;
    poll.append(osocket.getFd(), POLLIN | POLLRDHUP);
    bool first = true, pull = true;
    for (;;) {
        if (oclosing)
            return notConnected();
        // At the end of the stream read hands out what is left, then the close.
        if (buffered() >= count || orxEnd)
            return ZError();
        // Take what the kernel holds; poll only when that is not enough. A
        // recv that got bytes emptied the kernel's queue, so poll next.
        if (pull) {
            ZError err = fill(count);
            if (!err) {
                pull = false;
                continue;
            }
            if (err.number == -32) {
                orxEnd = err;
                continue;
            }
            if (err.number != -EAGAIN && err.number != -EWOULDBLOCK)
                return ZError(1, ZString("Poll error: ") + err.string);
        }
        pull = true;
        // The first poll gets the whole time-out; a repeated one what is left of it.
        int64_t leftUs = forever ? -1 : int64_t(timeoutUs);
        if (!forever && !first) {
            leftUs = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now())
                         .count();
            if (leftUs <= 0)
                return ZError(-110, "Timeout");
        }
        first = false;
        int fd = -1, events = 0;
        ZError err = poll.doPollEvents(fd, events, leftUs);
        // A disconnect shuts the socket down, which wakes the poll with a hang-up.
        if (oclosing)
            return notConnected();
        if (err)
            return err;
        if (events & (POLLERR | POLLHUP | POLLNVAL))
            return ZError(1, ZString("Poll error: ") + strerror(errno));
        // Readable or at the end of the stream: the next round takes it in.
    }
}

} // namespace TavroApi
