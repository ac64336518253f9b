#ifndef SIMSERVER_H
#define SIMSERVER_H

#include "simlink.h"
#include "zerror.h"
#include "zmutex.h"
#include "zsocket.h"
#include "zthread.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace TavroSim {

class SimUnit;

// The unit's TCP server: one client at a time, as a unit allows.
//
// A connection that comes while a client is being served is accepted and
// closed at once, so that the second client learns promptly that the unit
// is taken (its first read sees the close) instead of hanging on a
// connection nobody serves. When the client goes, or the unit drops the
// connection itself (a reboot, a factory reset), the server takes the next
// connection. The listening socket stays open all the while.
//
// start() and stop() belong to the owner's thread; the counters may be read
// from anywhere. The unit must outlive the server.
class SimTcpServer {
public:
    static const unsigned short UnitPort = 40358;

    explicit SimTcpServer(SimUnit& unit);
    ~SimTcpServer();
    SimTcpServer(const SimTcpServer&) = delete;
    SimTcpServer& operator=(const SimTcpServer&) = delete;

    // Listens on address (dotted, or a name; empty: every interface) and
    // port (0: an ephemeral one, see port()) and starts taking clients.
    ZError start(const ZString& address, unsigned short port = UnitPort);
    // Drops the client, stops listening, joins every thread. Harmless twice.
    void stop();

    // The port and IPv4 address (host order, 0 for every interface)
    // actually listened on.
    unsigned short port() const { return oport; }
    uint32_t address() const { return oaddress; }

    bool serving() const { return obusy; }
    // Connections served to their end, and connections refused because a
    // client was being served.
    unsigned int sessions() const { return osessions; }
    unsigned int refused() const { return orefused; }

private:
    void acceptLoop();
    void serveSession();
    void wake();

    SimUnit& ounit;
    ZSocket olistener;
    int owake;
    unsigned short oport;
    uint32_t oaddress;
    std::atomic<bool> ostopping;
    std::atomic<bool> obusy;
    std::atomic<unsigned int> osessions;
    std::atomic<unsigned int> orefused;
    ZMutex olinkMutex;
    std::unique_ptr<SimLink> olink; // the client being served, under olinkMutex
    SimThread oacceptor;
    SimThread osession;
};

} // namespace TavroSim

#endif
