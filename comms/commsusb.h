#ifndef COMMSUSB_H
#define COMMSUSB_H

#include "zcomms.h"
#include "zerror.h"
#include "zstring.h"

#include <atomic>
#include <cstdint>
#include <memory>

struct libusb_context;
struct libusb_device_handle;

namespace TavroApi {

// A Tavro unit on the USB bus (vendor 0x0483, product 0xA2E0), found by its
// serial-number string. Input arrives in large bulk transfers on endpoint
// 0x81 into one receive buffer and is handed out by copying; output is one
// bulk transfer per write (or per gathered packet) on endpoint 0x01.
//
// Each connection owns its own libusb context: connect() creates it and every
// failing path of connect() frees it again; disconnect() (and so the
// destructor) frees it after closing the device. A disconnected CommsUsb holds
// no libusb resources at all.
//
// Reading and writing may run in two threads at once (a receive thread and a
// sender); connect and disconnect must not race with either.
class CommsUsb : public ZComms {
public:
    static constexpr uint16_t VendorId = 0x0483;
    static constexpr uint16_t ProductId = 0xA2E0;
    static constexpr unsigned int RxBufferSize = 102400;
    static constexpr unsigned int ChunkAlign = 512;

    CommsUsb();
    ~CommsUsb() override;

    // Opens the first unit whose serial-number string is exactly `serial`.
    // The string is read as ASCII into 64 bytes: a unit's serial longer than
    // 63 characters is compared by its first 63.
    ZError connect(const char* serial) override;
    ZError connect(const ZString& serial) { return connect(serial.retStr()); }
    ZError disconnect() override;

    // One bulk OUT transfer of the n bytes; no time-out. `written` says what
    // went out, also when the transfer failed part way.
    ZError write(const void* data, unsigned int n, unsigned int& written) override;
    // A bulk transfer must carry a whole packet: the chunks are joined and go
    // out as one transfer, never one transfer per chunk.
    ZError writeChunks(const ZDataChunk* chunks, unsigned int n, unsigned int& written) override;
    // Bytes waiting in the receive buffer.
    unsigned int readAvailable() override;
    // Copies out up to n bytes, first waiting (default time-out) until n bytes
    // are buffered. A request for more than the buffer can ever hold waits
    // only until the buffer is full and then returns what it holds (got < n).
    ZError read(void* data, unsigned int n, unsigned int& got) override;
    // Reads chunks until `count` bytes are buffered, a chunk read fails (a
    // time-out included) or the buffer is full (success, fewer than count).
    ZError wait(unsigned int what, unsigned int timeoutUs, unsigned int count) override;

    // One bulk IN transfer into the free part of the receive buffer, asking
    // for the free space rounded down to a multiple of 512 bytes. When less
    // than 512 bytes are free the buffer is full: no transfer is issued and
    // the result is success with nothing added.
    ZError readChunk(unsigned int timeoutUs);

    // The serial number last given to connect().
    ZString deviceName() const { return oname; }
    // True once a bulk read has failed with something other than a time-out.
    bool readErrorSeen() const { return oreadError; }

protected:
    // The stop latch. Nothing in the transport sets it; an owner (or a test)
    // that wants reads and writes refused sets it here.
    void setStopped(bool on) { ostopped = on; }
    bool stopped() const { return ostopped; }
    bool failed() const { return ofailed; }

private:
    void closeDevice();

    ZString oname;
    libusb_context* octx;
    libusb_device_handle* ohandle;
    std::unique_ptr<uint8_t[]> orxBuffer;
    std::atomic<uint32_t> orxCount; // read by readAvailable() from any thread
    std::atomic<bool> ofailed;
    std::atomic<bool> ostopped;
    std::atomic<bool> oreadError;
};

// n rounded up to a multiple of 512. The sum is taken in 32 bits, so values
// above 0xFFFFFE00 wrap to 0.
unsigned int round512(unsigned int n);

} // namespace TavroApi

#endif
