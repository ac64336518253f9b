#include "commsserial.h"

#include "zpoll.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace TavroApi {

CommsSerial::CommsSerial() : ofd(-1) {}

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
    ofd = ::open(device.str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (ofd < 0) {
        ofd = -1;
        return ZError(1, "Unable to open serial port");
    }
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
    if (ofd >= 0)
        ::close(ofd);
    ofd = -1;
    return ZComms::disconnect();
}

unsigned int CommsSerial::pending() const {
    int n = 0;
    if (::ioctl(ofd, FIONREAD, &n) != 0 || n < 0)
        return 0;
    return unsigned(n);
}

unsigned int CommsSerial::readAvailable() {
    if (!oconnected || ofd < 0)
        return 0;
    return pending();
}

ZError CommsSerial::read(void* data, unsigned int n, unsigned int& got) {
    got = 0;
    if (ofd < 0)
        return ZError(1, "Read error: not connected");
    char* p = static_cast<char*>(data);
    while (got < n) {
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
    if (ofd < 0)
        return ZError(1, "Write error: not connected");
    ssize_t r = ::write(ofd, data, n);
    if (r < 1)
        return ZError(1, "Write error");
    written = unsigned(r);
    return ZError();
}

ZError CommsSerial::wait(unsigned int, unsigned int timeoutUs, unsigned int) {
    if (!oconnected)
        return ZError(1, "Not connected");
    ZPoll poll;
    poll.append(ofd, POLLIN);
    int fd = -1, events = 0;
    ZError err = poll.doPollEvents(fd, events, timeoutUs == WaitForever ? -1 : int64_t(timeoutUs));
    if (!err && (events & (POLLERR | POLLHUP | POLLNVAL)))
        return ZError(1, "Poll error");
    return err;
}

} // namespace TavroApi
