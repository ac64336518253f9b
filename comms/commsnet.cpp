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

CommsNet::CommsNet(unsigned int, unsigned int) : owaiting(0), oclosing(false) {}

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
    ocarry.clear();
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
    return unsigned(ocarry.size()) + osocket.recvAvailable();
}

unsigned int CommsNet::takeCarry(void* data, unsigned int n) {
    unsigned int k = std::min(n, unsigned(ocarry.size()));
    memcpy(data, ocarry.data(), k);
    ocarry.erase(ocarry.begin(), ocarry.begin() + k);
    return k;
}

// Moves what the kernel holds (less than the wait needs) into the carry buffer.
void CommsNet::pullIntoCarry(unsigned int count) {
    unsigned int queued = osocket.recvAvailable();
    unsigned int want = count - unsigned(ocarry.size());
    if (queued == 0 || want == 0)
        return;
    size_t at = ocarry.size();
    ocarry.resize(at + std::min(queued, want));
    unsigned int got = 0;
    osocket.recv(ocarry.data() + at, unsigned(ocarry.size() - at), got, MSG_DONTWAIT);
    ocarry.resize(at + got);
}

ZError CommsNet::read(void* data, unsigned int n, unsigned int& got) {
    got = 0;
    Use use(*this);
    if (!use.ok)
        return notConnected();
    ZError err = wait(2, otimeout, n);
    if (err)
        return err;
    // recv of 0 bytes would read as an orderly close.
    if (n == 0)
        return ZError();
    if (ocarry.empty())
        return osocket.recv(data, n, got, 0);
    // Carried bytes first, then what the kernel has without waiting; an end
    // of stream or an error behind them shows at the next read.
    got = takeCarry(data, n);
    if (got < n && osocket.recvAvailable() > 0) {
        unsigned int more = 0;
        if (!osocket.recv(static_cast<char*>(data) + got, n - got, more, MSG_DONTWAIT))
            got += more;
    }
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
    bool first = true;
    for (;;) {
        if (oclosing)
            return notConnected();
        if (readAvailable() >= count)
            return ZError();
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
        // End of stream: read hands out what is left, then reports the close.
        if (events & POLLRDHUP)
            return ZError();
        // Readable, but maybe still short of count: take the queued bytes so
        // that the kernel accepts more and the next poll sleeps until it has.
        if (readAvailable() < count)
            pullIntoCarry(count);
    }
}

} // namespace TavroApi
