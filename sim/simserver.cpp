#include "simserver.h"

#include "simunit.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>

namespace TavroSim {

SimTcpServer::SimTcpServer(SimUnit& unit)
    : ounit(unit), owake(-1), oport(0), oaddress(0), ostopping(false), obusy(false), osessions(0),
      orefused(0), oacceptor([this] { acceptLoop(); }), osession([this] { serveSession(); }) {}

SimTcpServer::~SimTcpServer() {
    stop();
}

ZError SimTcpServer::start(const ZString& address, unsigned short port) {
    stop();
    ZSocketAddressINET where;
    ZError err = where.set(address, port);
    if (err)
        return ZError(err.number, ZString("Cannot resolve ") + address + ": " + err.string);
    const ZString text = where.getString();
    err = olistener.init(ZSocket::Stream);
    if (!err)
        err = olistener.setReuseAddress(true);
    if (!err)
        err = olistener.bind(where);
    if (!err)
        err = olistener.listen();
    ZSocketAddressINET bound;
    if (!err)
        err = olistener.getAddress(bound);
    if (err) {
        olistener.close();
        return ZError(err.number, ZString("Cannot listen on ") + text + ": " + err.string);
    }
    // A connection reset between poll and accept must not block the loop in accept.
    fcntl(olistener.getFd(), F_SETFL, fcntl(olistener.getFd(), F_GETFL) | O_NONBLOCK);
    oport = (unsigned short)bound.port();
    oaddress = bound.address();
    owake = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (owake < 0) {
        err = zerrorFromErrno(errno, "Cannot make the server's wake-up descriptor: ");
        olistener.close();
        return err;
    }
    ostopping = false;
    int r = oacceptor.start();
    if (r) {
        olistener.close();
        ::close(owake);
        owake = -1;
        return zerrorFromErrno(r, "Cannot start the server thread: ");
    }
    return ZError();
}

void SimTcpServer::wake() {
    uint64_t one = 1;
    ssize_t r = ::write(owake, &one, sizeof(one));
    (void)r;
}

void SimTcpServer::stop() {
    if (owake < 0)
        return;
    ostopping = true;
    wake();
    oacceptor.waitForCompletion();
    {
        ZMutexLock lock(olinkMutex);
        if (olink)
            olink->interrupt();
    }
    osession.waitForCompletion();
    olistener.close();
    ::close(owake);
    owake = -1;
}

void SimTcpServer::acceptLoop() {
    while (!ostopping) {
        struct pollfd p[2] = {{olistener.getFd(), POLLIN, 0}, {owake, POLLIN, 0}};
        int r = ::poll(p, 2, -1);
        if (ostopping)
            break;
        if (r <= 0 || !(p[0].revents & POLLIN))
            continue;
        int fd = -1;
        ZSocketAddressINET from;
        ZError err = olistener.accept(fd, from);
        if (err) {
            // Out of descriptors, say: let things settle rather than spin
            // on the listener. A connection gone before it was taken is
            // nothing to wait for.
            struct pollfd w = {owake, POLLIN, 0};
            if (err.number != -EAGAIN && err.number != -ECONNABORTED)
                ::poll(&w, 1, 50);
            continue;
        }
        // A client that reconnects at once may come before the session of
        // its old link has seen the close: it is served once that session
        // is over, and refused only when the session goes on for 0.5 s.
        for (int i = 0; i < 50 && obusy && !ostopping; i++) {
            struct pollfd w = {owake, POLLIN, 0};
            ::poll(&w, 1, 10);
        }
        if (obusy) {
            orefused++;
            ::close(fd);
            continue;
        }
        // The session before has ended (obusy is cleared last); join it.
        osession.waitForCompletion();
        // Whole packets go out in one write each: no reason to hold them back.
        int on = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        {
            ZMutexLock lock(olinkMutex);
            olink.reset(new SimLink(fd, SimLink::Socket, true, from.getString()));
        }
        obusy = true;
        if (osession.start() != 0) {
            ZMutexLock lock(olinkMutex);
            olink.reset();
            obusy = false;
        }
    }
}

void SimTcpServer::serveSession() {
    SimLink* link;
    {
        ZMutexLock lock(olinkMutex);
        link = olink.get();
    }
    // The link stays until this thread drops it below, so it may be used
    // outside the lock; stop() only interrupts it.
    ounit.serve(*link);
    decltype(olink) done;
    {
        ZMutexLock lock(olinkMutex);
        done = std::move(olink);
    }
    osessions++;
    // Free before the connection closes: a client that sees the close and
    // connects again at once must be taken, not refused as a second client.
    obusy = false;
    done.reset(); // closes the connection
}

} // namespace TavroSim
