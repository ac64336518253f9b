#include "simlink.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

namespace TavroSim {

namespace {

typedef std::chrono::steady_clock Clock;

// Chunks gathered into one system call; a longer list goes out in groups.
const int GatherMax = 16;
// A peer that takes no byte for this long has stopped reading: the write
// gives up, so that the unit can drop the link.
const int64_t WriteStallUs = 3000000;

} // namespace

ZError simPeerClosed() {
    return ZError(-32, "Connection Closed by Peer");
}

ZError simNotConnected() {
    return ZError(1, "Not connected");
}

SimLink::SimLink(int fd, Kind kind, bool owned, const ZString& peer)
    : ofd(fd), okind(kind), oowned(owned), opeer(peer), oclosing(false) {
    int flags = fcntl(ofd, F_GETFL);
    if (flags >= 0)
        fcntl(ofd, F_SETFL, flags | O_NONBLOCK);
    owake = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    ZComms::connect(nullptr);
}

SimLink::~SimLink() {
    if (oowned && ofd >= 0)
        ::close(ofd);
    if (owake >= 0)
        ::close(owake);
}

void SimLink::interrupt() {
    if (oclosing.exchange(true))
        return;
    if (okind == Socket)
        ::shutdown(ofd, SHUT_RDWR);
    if (owake >= 0) {
        uint64_t one = 1;
        ssize_t r = ::write(owake, &one, sizeof(one));
        (void)r;
    }
}

ZError SimLink::disconnect() {
    interrupt();
    return ZComms::disconnect();
}

SimLink::Ready SimLink::poll(short events, int64_t timeoutUs, int& revents) {
    const Clock::time_point deadline = Clock::now() + std::chrono::microseconds(timeoutUs);
    for (;;) {
        if (oclosing)
            return Closing;
        int ms = -1;
        if (timeoutUs >= 0) {
            int64_t left =
                std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now())
                    .count();
            if (left <= 0)
                return TimedOut;
            // Rounded up: a time-out shorter than a millisecond must still wait.
            ms = int(std::min<int64_t>((left + 999) / 1000, 1 << 30));
        }
        // Without a wake-up descriptor an interrupt is seen within 100 ms.
        if (owake < 0 && (ms < 0 || ms > 100))
            ms = 100;
        struct pollfd p[2] = {{ofd, events, 0}, {owake, POLLIN, 0}};
        int r = ::poll(p, 2, ms);
        if (oclosing || (r > 0 && p[1].revents))
            return Closing;
        if (r < 0 && errno != EINTR)
            return Failed;
        if (r > 0) {
            revents = p[0].revents;
            return (events & POLLOUT) ? Writable : Readable;
        }
    }
}

long SimLink::readSome(void* data, unsigned int n, ZError& err) {
    for (;;) {
        ssize_t r = okind == Socket ? ::recv(ofd, data, n, MSG_DONTWAIT) : ::read(ofd, data, n);
        if (r > 0)
            return long(r);
        if (r == 0) {
            err = simPeerClosed();
            return -1;
        }
        if (errno == EINTR)
            continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            return 0;
        // EIO: nobody holds the slave side of the pseudo-terminal any more.
        err = (okind == Tty && errno == EIO) ? simPeerClosed() : zerrorFromErrno(errno);
        return -1;
    }
}

unsigned int SimLink::readAvailable() {
    int n = 0;
    if (::ioctl(ofd, FIONREAD, &n) != 0 || n < 0)
        n = 0;
    return unsigned(ocarry.size()) + unsigned(n);
}

bool SimLink::takeIn(unsigned int count, ZError& err) {
    if (ocarry.size() >= count)
        return true;
    size_t at = ocarry.size();
    ocarry.resize(count);
    long r = readSome(ocarry.data() + at, unsigned(count - at), err);
    ocarry.resize(at + size_t(std::max(r, 0L)));
    return r >= 0;
}

ZError SimLink::wait(unsigned int, unsigned int timeoutUs, unsigned int count) {
    if (oclosing)
        return simNotConnected();
    const int64_t forever = -1;
    const Clock::time_point deadline = Clock::now() + std::chrono::microseconds(timeoutUs);
    for (;;) {
        if (readAvailable() >= std::max(count, 1u))
            return ZError();
        int64_t leftUs = forever;
        if (timeoutUs != WaitForever) {
            leftUs = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now())
                         .count();
            leftUs = std::max<int64_t>(leftUs, 0);
        }
        int revents = 0;
        switch (poll(POLLIN | POLLRDHUP, leftUs, revents)) {
        case Closing:
            return simNotConnected();
        case TimedOut:
            return ZError(-110, "Timeout");
        case Failed:
            return zerrorFromErrno(errno);
        default:
            break;
        }
        // Short of count: take in what is there, so that the next poll
        // sleeps until more comes (and TCP keeps its window open). Once the
        // peer has gone, what it sent before is read first.
        ZError err;
        if (!takeIn(std::max(count, 1u), err))
            return readAvailable() > 0 ? ZError() : err;
        if (revents & (POLLHUP | POLLERR | POLLRDHUP | POLLNVAL))
            return ZError();
    }
}

ZError SimLink::read(void* data, unsigned int n, unsigned int& got) {
    got = 0;
    if (oclosing)
        return simNotConnected();
    if (n == 0)
        return ZError();
    if (!ocarry.empty()) {
        got = unsigned(std::min<size_t>(n, ocarry.size()));
        memcpy(data, ocarry.data(), got);
        ocarry.erase(ocarry.begin(), ocarry.begin() + got);
        return ZError();
    }
    const unsigned int timeoutUs = otimeout;
    const Clock::time_point deadline = Clock::now() + std::chrono::microseconds(timeoutUs);
    for (;;) {
        ZError err;
        long r = readSome(data, n, err);
        if (r > 0) {
            got = unsigned(r);
            return ZError();
        }
        if (r < 0)
            return err;
        int64_t leftUs = -1;
        if (timeoutUs != WaitForever)
            leftUs = std::max<int64_t>(
                0, std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now())
                       .count());
        int revents = 0;
        switch (poll(POLLIN | POLLRDHUP, leftUs, revents)) {
        case Closing:
            return simNotConnected();
        case TimedOut:
            return ZError(-110, "Timeout");
        case Failed:
            return zerrorFromErrno(errno);
        default:
            break;
        }
    }
}

ZError SimLink::writeVector(struct iovec* iov, int count, unsigned int& written) {
    while (count > 0) {
        if (oclosing)
            return simNotConnected();
        ssize_t r;
        if (okind == Socket) {
            struct msghdr m;
            memset(&m, 0, sizeof(m));
            m.msg_iov = iov;
            m.msg_iovlen = size_t(count);
            r = ::sendmsg(ofd, &m, MSG_NOSIGNAL | MSG_DONTWAIT);
        } else {
            r = ::writev(ofd, iov, count);
        }
        if (r < 0) {
            if (errno == EINTR)
                continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK)
                return zerrorFromErrno(errno);
            int revents = 0;
            Ready ready = poll(POLLOUT, WriteStallUs, revents);
            if (ready == Closing)
                return simNotConnected();
            if (ready == TimedOut)
                return ZError(-110, "Timeout");
            if (ready == Failed)
                return zerrorFromErrno(errno);
            if (revents & (POLLERR | POLLNVAL))
                return simPeerClosed();
            continue;
        }
        written += unsigned(r);
        size_t done = size_t(r);
        while (count > 0 && done >= iov->iov_len) {
            done -= iov->iov_len;
            iov++;
            count--;
        }
        if (count > 0) {
            iov->iov_base = static_cast<char*>(iov->iov_base) + done;
            iov->iov_len -= done;
        }
    }
    return ZError();
}

ZError SimLink::write(const void* data, unsigned int n, unsigned int& written) {
    ZDataChunk chunk = {data, n};
    return writeChunks(&chunk, 1, written);
}

ZError SimLink::writeChunks(const ZDataChunk* chunks, unsigned int n, unsigned int& written) {
    written = 0;
    if (oclosing)
        return simNotConnected();
    ZMutexLock lock(owriteMutex);
    unsigned int i = 0;
    while (i < n) {
        struct iovec iov[GatherMax];
        int count = 0;
        for (; i < n && count < GatherMax; i++) {
            if (chunks[i].length == 0)
                continue;
            iov[count].iov_base = const_cast<void*>(chunks[i].data);
            iov[count].iov_len = chunks[i].length;
            count++;
        }
        ZError err = writeVector(iov, count, written);
        if (err)
            return err;
    }
    return ZError();
}

} // namespace TavroSim
