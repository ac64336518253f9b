#ifndef COMMSSERIAL_H
#define COMMSSERIAL_H

#include "zcomms.h"

#include <atomic>
#include <cstdint>

namespace TavroApi {

// A unit on a serial tty: raw 115200 baud, 8 data bits, no parity, 1 stop
// bit, no flow control. One reader and one writer may work at once; a
// disconnect from a third thread wakes both and waits for them to leave.
class CommsSerial : public ZComms {
public:
    CommsSerial();
    ~CommsSerial() override;

    // Opens and sets up the tty and discards input that was already waiting.
    ZError connect(const ZString& device);
    ZError connect(const char* device) override;
    ZError disconnect() override;
    ZString name() override { return oname; }

    // One write() call; written may be less than n.
    ZError write(const void* data, unsigned int n, unsigned int& written) override;
    unsigned int readAvailable() override;
    // Blocks until all n bytes have come, for at most the transport's
    // time-out in all: a unit that stops in the middle of a packet gives
    // -110 "Timeout" with got telling how much came.
    ZError read(void* data, unsigned int n, unsigned int& got) override;
    // Polls once for input; count is not looked at.
    ZError wait(unsigned int what, unsigned int timeoutUs, unsigned int count) override;

    int fd() const { return ofd; }

private:
    class Use;
    unsigned int pending() const;
    // Polls the tty and the wake pipe: -110 "Timeout" when nothing came,
    // "Not connected" once disconnect() has begun; hungUp for a dead line.
    ZError pollInput(int64_t timeoutUs, bool& hungUp);

    ZString oname;
    int ofd;
    int owake[2];
    std::atomic<int> ousers;
    std::atomic<bool> oclosing;
};

} // namespace TavroApi

#endif
