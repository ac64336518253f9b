#include "commsserial.h"

#include "zpoll.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace TavroApi {

// Marks one call as using the descriptor for its lifetime. The count goes up
// before `closing` is read, and disconnect() sets `closing` before it reads
// the count, so either the call sees `closing` or disconnect() waits for it.
class CommsSerial::Use {
public:
    explicit Use(CommsSerial& comms) : c(comms) {
        c.ousers++;
        ok = c.ofd >= 0 && !c.oclosing;
    }
    ~Use() { c.ousers--; }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    CommsSerial& c;
    bool ok;
};

CommsSerial::CommsSerial() : ofd(-1), owake{-1, -1}, ousers(0), oclosing(false) {}

CommsSerial::~CommsSerial() {
    disconnect();
}

ZError CommsSerial::connect(const char* device) {
    return connect(ZString(device));
}

ZError CommsSerial::connect(const ZString& device) {
    oname = device;
    if (oconnected)
        disconnect();
    // Opened without waiting for the modem lines and without becoming the
    // process's controlling terminal; switched to blocking below.
    int fd = ::open(device.str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return ZError(1, "Unable to open serial port");
    if (::pipe2(owake, O_CLOEXEC | O_NONBLOCK) != 0) {
        ::close(fd);
        owake[0] = owake[1] = -1;
        return ZError(1, "Unable to open serial port");
    }
    oclosing = false;
    ofd = fd;
    struct termios tio;
    memset(&tio, 0, sizeof(tio));
    tcgetattr(ofd, &tio);
    tio.c_iflag = IGNPAR;
    tio.c_oflag = 0;
    tio.c_cflag = B115200 | CS8 | CREAD | CLOCAL;
    tio.c_lflag = 0;
    tio.c_cc[VTIME] = 4;
    tio.c_cc[VMIN] = 1;
    tcsetattr(ofd, TCSANOW, &tio);
    tcflush(ofd, TCIOFLUSH);
    fcntl(ofd, F_SETFL, 0);
    // Whatever the unit sent before we listened is not the start of a packet.
    char c;
    while (pending() > 0 && ::read(ofd, &c, 1) == 1) {
    }
    return ZComms::connect(nullptr);
}

ZError CommsSerial::disconnect() {
    if (ofd >= 0 && !oclosing.exchange(true)) {
        // Wakes a reader in poll; a writer blocked on a full queue is woken
        // by the flush of output below.
        char c = 0;
        while (::write(owake[1], &c, 1) < 0 && errno == EINTR) {
        }
        tcflush(ofd, TCOFLUSH);
        while (ousers > 0)
            delayMs(1);
        ::close(ofd);
        ::close(owake[0]);
        ::close(owake[1]);
        ofd = owake[0] = owake[1] = -1;
    }
    return ZComms::disconnect();
}

unsigned int CommsSerial::pending() const {
    int n = 0;
    if (::ioctl(ofd, FIONREAD, &n) != 0 || n < 0)
        return 0;
    return unsigned(n);
}

unsigned int CommsSerial::readAvailable() {
    Use use(*this);
    if (!oconnected || !use.ok)
        return 0;
    return pending();
}

ZError CommsSerial::pollInput(int64_t timeoutUs, bool& hungUp) {
    ZPoll poll;
    poll.append(ofd, POLLIN);
    poll.append(owake[0], POLLIN);
    int fd = -1, events = 0;
    ZError err = poll.doPollEvents(fd, events, timeoutUs);
    if (oclosing)
        return ZError(1, "Not connected");
    hungUp = !err && (events & (POLLERR | POLLHUP | POLLNVAL));
    return err;
}

ZError CommsSerial::read(void* data, unsigned int n, unsigned int& got) {
    got = 0;
    Use use(*this);
    if (!use.ok)
        return ZError(1, "Read error: not connected");
    typedef std::chrono::steady_clock Clock;
    const bool forever = otimeout == WaitForever;
    const Clock::time_point deadline = Clock::now() + std::chrono::microseconds(otimeout);
    char* p = static_cast<char*>(data);
    while (got < n) {
        int64_t leftUs = -1;
        if (!forever) {
            leftUs = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now())
                         .count();
            if (leftUs < 0)
                leftUs = 0;
        }
        // A hang-up is left to read() below, which names the error.
        bool hungUp = false;
        ZError err = pollInput(leftUs, hungUp);
        if (err)
            return err;
        ssize_t r = ::read(ofd, p + got, n - got);
        if (r < 0 && errno == EINTR)
            continue;
        // 0 is end of file (a hung-up line): no more bytes will come.
        if (r <= 0)
            return ZError(1, ZString("Read error: ") + strerror(r < 0 ? errno : EIO));
        got += unsigned(r);
    }
    return ZError();
}

ZError CommsSerial::write(const void* data, unsigned int n, unsigned int& written) {
    written = 0;
    Use use(*this);
    if (!use.ok)
        return ZError(1, "Write error: not connected");
    ssize_t r = ::write(ofd, data, n);
    if (r < 1)
        return ZError(1, "Write error");
    written = unsigned(r);
    return ZError();
}

ZError CommsSerial::wait(unsigned int, unsigned int timeoutUs, unsigned int) {
    Use use(*this);
    if (!oconnected || !use.ok)
        return ZError(1, "Not connected");
    bool hungUp = false;
    ZError err = pollInput(timeoutUs == WaitForever ? -1 : int64_t(timeoutUs), hungUp);
    if (!err && hungUp)
        return ZError(1, "Poll error");
    return err;
}

} // namespace TavroApi
