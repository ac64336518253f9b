#ifndef DFU_H
#define DFU_H

#include "zerror.h"
#include "zstring.h"

#include <cstdint>
#include <functional>

struct libusb_context;
struct libusb_device_handle;

// The 6-byte reply of a DFU GETSTATUS request.
struct DfuStatus {
    uint8_t status;
    uint32_t pollTimeout; // milliseconds, 24 bits on the wire
    uint8_t state;
    uint8_t stringIndex;
};

// Writes a main-processor image into a Tavro-40x whose processor sits in its
// USB boot loader (vendor 0x0483, product 0xDF11): USB DFU with the
// STMicroelectronics DfuSe commands, through libusb 1.0.
//
//   Dfu dfu;
//   dfu.init(false);
//   ZError err = dfu.connect();
//   if (!err) err = dfu.upload("tavro-40x-cpu.bin", Dfu::PlatformTavro40x);
//   dfu.disconnect();
//
// Every failure has number 1. A connected Dfu holds a libusb context and the
// claimed interface 0; disconnect(), reset() and the destructor give them
// back. Everything blocks the calling thread; poll time-outs are slept in
// place.
class Dfu {
public:
    typedef std::function<void(const ZString& text, double done)> Progress;

    static constexpr uint16_t VendorId = 0x0483;
    static constexpr uint16_t ProductId = 0xDF11;
    // The unit itself when it runs its firmware.
    static constexpr uint16_t UnitProductId = 0xA2E0;
    static constexpr int Interface = 0;
    static constexpr int AltSetting = 0;
    static constexpr unsigned int TimeoutMs = 5000;
    static constexpr uint32_t FlashBase = 0x08000000;
    static constexpr unsigned int BlockSize = 2048;
    static constexpr uint16_t BlockValue = 2;
    static constexpr uint8_t PlatformTavro40x = 33;

    // Class requests to the interface.
    enum Request {
        RequestDetach = 0,
        RequestDnload = 1,
        RequestGetStatus = 3,
        RequestClrStatus = 4
    };
    static constexpr uint8_t TypeOut = 0x21;
    static constexpr uint8_t TypeIn = 0xA1;
    static constexpr uint16_t DetachValue = 1000;

    // DfuSe commands of upload_cmd.
    enum Command { CmdSetAddress = 0, CmdErase = 1, CmdMassErase = 2, CmdReadUnprotect = 3 };

    // DFU states.
    enum State {
        StateIdle = 2,
        StateDnloadSync = 3,
        StateDnBusy = 4,
        StateDnloadIdle = 5,
        StateManifest = 7,
        StateError = 10
    };

    Dfu();
    ~Dfu();
    Dfu(const Dfu&) = delete;
    Dfu& operator=(const Dfu&) = delete;

    // Prepares the object; verbose prints each step on standard output.
    ZError init(bool verbose);
    // Whether a boot loader is on the bus: "Libusb init error", "Libusb
    // error", or "No DFU devices found" (found false).
    ZError detectDevice(bool& found);
    // Whether a running unit (vendor 0x0483, product 0xA2E0) is on the bus.
    ZError detectUnit(bool& found);
    // Opens and claims the first boot loader; a device not in dfuIDLE has
    // its status cleared first. "Tavro DFU unit not found", "Tavro DFU unit
    // cannot claim", "Cannot set alt interface zero", "Unable to clear error
    // state", or a getStatus error.
    ZError connect();
    bool isConnected() const { return ohandle != nullptr; }
    ZError getStatus(DfuStatus& status);
    ZError clearStatus();
    // A DfuSe command (CmdSetAddress and CmdErase take address) as a DNLOAD
    // with wValue 0; then the device must go busy and, after its poll
    // time-out, be idle again.
    ZError upload_cmd(int command, uint32_t address);
    // Validates, erases the sectors the image needs, writes it in blocks of
    // 2048 bytes from FlashBase and leaves the boot loader to start it.
    ZError upload(const ZString& fileName, unsigned int platform);
    // DETACH, then the interface and the device are given back.
    ZError disconnect();
    // Ends the session: the device and libusb are given back, no request sent.
    void reset();

    void setProgress(Progress progress) { oprogress = std::move(progress); }

    // The erase address of flash sector n.
    static uint32_t sectorAddress(unsigned int n);
    // Checks a raw image: its header at offset 512 must carry the magic
    // 0x7C5D3E00 and `platform`; version gets "%d.%d.%d" of bytes 13 to 15.
    // "Unable to open file", "File read error", "Not a firmware file",
    // "Not a Tavro-40x firmware file".
    static ZError validateFile(const ZString& fileName, unsigned int platform, ZString& version);

private:
    ZError findDevice(uint16_t productId, bool& found);
    ZError dnload(uint16_t value, const uint8_t* data, uint16_t length);
    // Waits out a DNLOAD of a data block, first for the poll time-out of
    // the last status: dfuDNLOAD-IDLE continues, a busy device is asked
    // again after its own poll time-out (a bounded number of times).
    ZError waitBlock(const DfuStatus& last);
    void log(const char* what);
    void report(const ZString& text, double done);

    libusb_context* octx;
    libusb_device_handle* ohandle;
    int ointerface;
    bool overbose;
    DfuStatus olastStatus; // the last GETSTATUS reply: its poll time-out is waited next
    Progress oprogress;
};

#endif
