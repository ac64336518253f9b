#ifndef SIMLINK_H
#define SIMLINK_H

#include "zcomms.h"
#include "zmutex.h"
#include "zstring.h"
#include "zthread.h"

#include <sys/uio.h>

#include <atomic>
#include <functional>
#include <vector>

namespace TavroSim {

// The simulated unit's end of one connection: a byte stream over an
// accepted TCP socket or over the master side of a pseudo-terminal.
//
// One thread reads (read, wait, readAvailable); any number of threads may
// write, each write going out whole before the next one starts, so packets
// written by different threads never interleave. interrupt() may be called
// from any thread: waits, reads and writes in progress return 1 "Not
// connected" at once, and so does every later call.
//
// The peer going away reads as -32 "Connection Closed by Peer": an orderly
// TCP close, or, on a pseudo-terminal, the last opener of the slave side
// closing it (the master then reads EIO). Writes to a pseudo-terminal whose
// slave side nobody holds are accepted and lost, as on a serial line with
// nothing plugged in.
class SimLink : public ZComms {
public:
    enum Kind { Socket, Tty };

    // Takes the descriptor over (it becomes non-blocking); `owned` closes it
    // in the destructor. `peer` is what name() returns.
    SimLink(int fd, Kind kind, bool owned, const ZString& peer);
    ~SimLink() override;

    ZString name() override { return opeer; }
    Kind kind() const { return okind; }
    int fd() const { return ofd; }

    // Writes all n bytes, waiting while the peer is not taking them; a peer
    // that takes nothing for 3 s fails the write with -110 "Timeout" (the
    // bytes of the packet written so far stay written).
    ZError write(const void* data, unsigned int n, unsigned int& written) override;
    // All chunks, in one gathered write where the system takes them at once.
    ZError writeChunks(const ZDataChunk* chunks, unsigned int n, unsigned int& written) override;
    unsigned int readAvailable() override;
    // Waits (default time-out) for input and hands out up to n bytes.
    ZError read(void* data, unsigned int n, unsigned int& got) override;
    // Until count bytes can be read: success; the time-out: -110 "Timeout".
    // Once the peer has gone: success while bytes it sent are left (the
    // reads hand them out, then report the end), else -32.
    ZError wait(unsigned int what, unsigned int timeoutUs, unsigned int count) override;
    // interrupt(), and the connected flag cleared. The descriptor stays
    // open until the link is destroyed.
    ZError disconnect() override;

    // Ends every call in progress and refuses the ones that follow; a
    // socket is also shut down, so that the peer sees the close at once.
    void interrupt();
    bool interrupted() const { return oclosing; }

private:
    enum Ready { Readable, Writable, Closing, TimedOut, Failed };
    // Polls the descriptor for events and the wake-up descriptor; timeoutUs
    // below 0 waits without limit.
    Ready poll(short events, int64_t timeoutUs, int& revents);
    // One non-blocking read from the descriptor: > 0 bytes, 0 nothing yet,
    // < 0 the peer has gone or the read failed (err says which).
    long readSome(void* data, unsigned int n, ZError& err);
    // Moves what the descriptor holds into the carry, until it holds count
    // bytes; false when the peer has gone or the read failed (err says which).
    bool takeIn(unsigned int count, ZError& err);
    ZError writeVector(::iovec* iov, int count, unsigned int& written);

    const int ofd;
    const Kind okind;
    const bool oowned;
    const ZString opeer;
    int owake;
    std::atomic<bool> oclosing;
    ZMutex owriteMutex;
    // Bytes taken in by wait() and not read yet; the reading thread alone
    // touches them.
    std::vector<char> ocarry;
};

// -32 "Connection Closed by Peer" and 1 "Not connected", as the links give them.
ZError simPeerClosed();
ZError simNotConnected();

// A thread running one function: the accept loop of the server, the
// sessions of a client, the pseudo-terminal and mDNS loops. The destructor
// joins it; the function must be made to end first.
class SimThread : public ZThread {
public:
    explicit SimThread(std::function<void()> body) : obody(std::move(body)) {}
    ~SimThread() override { waitForCompletion(); }

    int function() override {
        obody();
        return 0;
    }

private:
    std::function<void()> obody;
};

} // namespace TavroSim

#endif
