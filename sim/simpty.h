#ifndef SIMPTY_H
#define SIMPTY_H

#include "simlink.h"
#include "zerror.h"
#include "zmutex.h"
#include "zstring.h"

#include <atomic>
#include <memory>

namespace TavroSim {

class SimUnit;

// The unit's serial port: a pseudo-terminal whose slave side (path()) a
// client opens as its tty, raw, as CommsSerial sets it up.
//
// A session starts when a client opens the slave side and ends when the
// last opener closes it (the master then hangs up) or the unit drops the
// link itself (a reboot, a factory reset); then the unit waits for the next
// opener. Between sessions nothing is served and nothing is sent. The slave
// side is raw from the start, so that nothing the unit sends is echoed back
// to it before the client has set the line up.
class SimPty {
public:
    explicit SimPty(SimUnit& unit);
    ~SimPty();
    SimPty(const SimPty&) = delete;
    SimPty& operator=(const SimPty&) = delete;

    // Opens the pseudo-terminal pair and starts waiting for a client.
    ZError start();
    // Ends the session and the thread; closes the pair. Harmless twice.
    void stop();

    // The slave side's path ("/dev/pts/N"), empty before start().
    ZString path() const { return opath; }
    bool serving() const { return obusy; }
    // Sessions served to their end (not counting the tries refused while
    // the unit had a client on another link).
    unsigned int sessions() const { return osessions; }

private:
    void run();
    // True when a client holds the slave side open.
    bool clientAttached() const;
    // Sleeps ms milliseconds unless stop() comes first.
    void pause(int ms);

    SimUnit& ounit;
    int omaster;
    int owake;
    ZString opath;
    std::atomic<bool> ostopping;
    std::atomic<bool> obusy;
    std::atomic<unsigned int> osessions;
    ZMutex olinkMutex;
    std::unique_ptr<SimLink> olink; // under olinkMutex
    SimThread othread;
};

} // namespace TavroSim

#endif
