#include "simpty.h"

#include "simunit.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/eventfd.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>

namespace TavroSim {

namespace {

// How often the unit looks whether a client has opened the line.
const int AttachPollMs = 20;

} // namespace

SimPty::SimPty(SimUnit& unit)
    : ounit(unit), omaster(-1), owake(-1), ostopping(false), obusy(false), osessions(0),
      othread([this] { run(); }) {}

SimPty::~SimPty() {
    stop();
}

ZError SimPty::start() {
    stop();
    int slave = -1;
    char name[256];
    if (openpty(&omaster, &slave, name, nullptr, nullptr) != 0) {
        omaster = -1;
        return zerrorFromErrno(errno, "Cannot open a pseudo-terminal: ");
    }
    struct termios tio;
    if (tcgetattr(slave, &tio) == 0) {
        cfmakeraw(&tio);
        cfsetspeed(&tio, B115200);
        tcsetattr(slave, TCSANOW, &tio);
    }
    // The unit holds no opener of the slave side: the master hangs up while
    // no client has it open, which is how sessions are told apart.
    ::close(slave);
    fcntl(omaster, F_SETFD, FD_CLOEXEC);
    opath = name;
    owake = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    int r = owake < 0 ? errno : 0;
    ostopping = false;
    if (!r)
        r = othread.start();
    if (r) {
        ::close(omaster);
        omaster = -1;
        if (owake >= 0)
            ::close(owake);
        owake = -1;
        opath.clear();
        return zerrorFromErrno(r, "Cannot start the serial line: ");
    }
    return ZError();
}

void SimPty::stop() {
    if (omaster < 0)
        return;
    ostopping = true;
    uint64_t one = 1;
    ssize_t w = ::write(owake, &one, sizeof(one));
    (void)w;
    {
        ZMutexLock lock(olinkMutex);
        if (olink)
            olink->interrupt();
    }
    othread.waitForCompletion();
    ::close(omaster);
    ::close(owake);
    omaster = owake = -1;
    opath.clear();
}

bool SimPty::clientAttached() const {
    struct pollfd p = {omaster, POLLIN, 0};
    return ::poll(&p, 1, 0) >= 0 && !(p.revents & POLLHUP);
}

void SimPty::pause(int ms) {
    struct pollfd p = {owake, POLLIN, 0};
    ::poll(&p, 1, ms);
}

void SimPty::run() {
    while (!ostopping) {
        if (!clientAttached()) {
            pause(AttachPollMs);
            continue;
        }
        SimLink* link;
        {
            ZMutexLock lock(olinkMutex);
            if (ostopping)
                break;
            olink.reset(new SimLink(omaster, SimLink::Tty, false, opath));
            link = olink.get();
        }
        obusy = true;
        ZError err = ounit.serve(*link);
        {
            ZMutexLock lock(olinkMutex);
            olink.reset();
        }
        obusy = false;
        // 16: the unit has a client on another link; the line is tried again.
        if (err.number != 16)
            osessions++;
        // A unit that dropped the line itself (a reboot) takes a moment to
        // come back; it also keeps a failing session from spinning.
        pause(AttachPollMs);
    }
}

} // namespace TavroSim
