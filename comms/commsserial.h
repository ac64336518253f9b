#ifndef COMMSSERIAL_H
#define COMMSSERIAL_H

#include "zcomms.h"

namespace TavroApi {

// A unit on a serial tty: raw 115200 baud, 8 data bits, no parity, 1 stop
// bit, no flow control. One thread at a time.
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
    // Blocks until all n bytes have come.
    ZError read(void* data, unsigned int n, unsigned int& got) override;
    // Polls once for input; count is not looked at.
    ZError wait(unsigned int what, unsigned int timeoutUs, unsigned int count) override;

    int fd() const { return ofd; }

private:
    unsigned int pending() const;

    ZString oname;
    int ofd;
};

} // namespace TavroApi

#endif
