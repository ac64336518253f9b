#include "dfu.h"

#include "zcomms.h"
#include "zfile.h"
#include "zfirmware.h"

#include <libusb.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

const long ImageHeaderAt = 512;
const uint32_t ImageMagic = 0x7C5D3E00;
// The largest image taken: far beyond any flash, and small enough that no
// address computed from it wraps.
const int64_t ImageMax = 0x08000000;
// The longest single wait a device may ask for, and how many times in a row
// it may report itself busy after a data block.
const uint32_t PollMaxMs = 60000;
const int BusyPollsMax = 100;

ZError usbError(const char* prefix, int result) {
    return ZError(ZString(prefix) + libusb_strerror(libusb_error(result)));
}

void sleepPoll(uint32_t ms) {
    delayMs(std::min(ms, PollMaxMs));
}

} // namespace

Dfu::Dfu() : octx(nullptr), ohandle(nullptr), ointerface(Interface), overbose(false) {
    olastStatus = DfuStatus();
}

Dfu::~Dfu() {
    disconnect();
}

ZError Dfu::init(bool verbose) {
    overbose = verbose;
    return ZError();
}

void Dfu::log(const char* what) {
    if (overbose)
        printf("Dfu: %s\n", what);
}

void Dfu::report(const ZString& text, double done) {
    if (oprogress)
        oprogress(text, done);
}

uint32_t Dfu::sectorAddress(unsigned int n) {
    if (n < 4)
        return FlashBase + n * 0x8000u;
    if (n == 4)
        return 0x08020000;
    return 0x07F00000 + n * 0x40000u;
}

// A fresh context for every look: devices plugged in since the last one
// are seen, and nothing is held afterwards.
ZError Dfu::findDevice(uint16_t productId, bool& found) {
    found = false;
    libusb_context* ctx = nullptr;
    if (libusb_init(&ctx) < 0)
        return ZError("Libusb init error");
    libusb_device** list = nullptr;
    ssize_t n = libusb_get_device_list(ctx, &list);
    if (n < 0) {
        libusb_exit(ctx);
        return ZError("Libusb error");
    }
    for (ssize_t i = 0; i < n && !found; i++) {
        libusb_device_descriptor desc;
        if (libusb_get_device_descriptor(list[i], &desc) == 0)
            found = desc.idVendor == VendorId && desc.idProduct == productId;
    }
    libusb_free_device_list(list, 1);
    libusb_exit(ctx);
    return ZError();
}

ZError Dfu::detectDevice(bool& found) {
    ZError err = findDevice(ProductId, found);
    if (!err && !found)
        err = ZError("No DFU devices found");
    return err;
}

ZError Dfu::detectUnit(bool& found) {
    return findDevice(UnitProductId, found);
}

ZError Dfu::connect() {
    if (ohandle)
        disconnect();
    if (!octx && libusb_init(&octx) < 0) {
        octx = nullptr;
        return ZError("Libusb init error");
    }

    libusb_device** list = nullptr;
    ssize_t n = libusb_get_device_list(octx, &list);
    if (n < 0) {
        reset();
        return ZError("Libusb error");
    }
    for (ssize_t i = 0; i < n && !ohandle; i++) {
        libusb_device_descriptor desc;
        if (libusb_get_device_descriptor(list[i], &desc) == 0 && desc.idVendor == VendorId &&
            desc.idProduct == ProductId && libusb_open(list[i], &ohandle) < 0)
            ohandle = nullptr;
    }
    libusb_free_device_list(list, 1);
    if (!ohandle) {
        reset();
        return ZError("Tavro DFU unit not found");
    }
    log("device opened");

    libusb_set_auto_detach_kernel_driver(ohandle, 1);
    if (libusb_claim_interface(ohandle, ointerface) < 0) {
        reset();
        return ZError("Tavro DFU unit cannot claim");
    }
    ZError err;
    if (libusb_set_interface_alt_setting(ohandle, ointerface, AltSetting) < 0)
        err = ZError("Cannot set alt interface zero");

    DfuStatus status;
    if (!err && !(err = getStatus(status)) && status.state != StateIdle) {
        log("clearing the device's state");
        if (clearStatus())
            err = ZError("Unable to clear error state");
    }
    if (err) {
        libusb_release_interface(ohandle, ointerface);
        reset();
    }
    return err;
}

ZError Dfu::getStatus(DfuStatus& status) {
    if (!ohandle)
        return ZError("Dfu::getStatus: Error: not connected");
    uint8_t b[6] = {};
    int r = libusb_control_transfer(ohandle, TypeIn, RequestGetStatus, 0, uint16_t(ointerface), b,
                                    sizeof(b), TimeoutMs);
    if (r < 0)
        return usbError("Dfu::getStatus: Error: ", r);
    if (r != int(sizeof(b)))
        return ZError("Dfu::getStatus: Error: short reply of " + ZString(r) + " bytes");
    status.status = b[0];
    status.pollTimeout = uint32_t(b[1]) | uint32_t(b[2]) << 8 | uint32_t(b[3]) << 16;
    status.state = b[4];
    status.stringIndex = b[5];
    olastStatus = status;
    return ZError();
}

ZError Dfu::clearStatus() {
    if (!ohandle)
        return ZError("Dfu::clearStatus: Error: not connected");
    // Sent as a device-to-host request without data, as the boot loader knows it.
    int r = libusb_control_transfer(ohandle, TypeIn, RequestClrStatus, 0, uint16_t(ointerface),
                                    nullptr, 0, TimeoutMs);
    return r < 0 ? usbError("Dfu::clearStatus: Error: ", r) : ZError();
}

ZError Dfu::dnload(uint16_t value, const uint8_t* data, uint16_t length) {
    if (!ohandle)
        return ZError("Dfu: not connected");
    int r = libusb_control_transfer(ohandle, TypeOut, RequestDnload, value, uint16_t(ointerface),
                                    const_cast<uint8_t*>(data), length, TimeoutMs);
    if (r < 0)
        return usbError(" Dfu::upload_cmd error: ", r);
    return ZError();
}

ZError Dfu::upload_cmd(int command, uint32_t address) {
    uint8_t cmd[5] = {};
    uint16_t length = 5;
    switch (command) {
    case CmdSetAddress:
        cmd[0] = 0x21;
        break;
    case CmdErase:
        cmd[0] = 0x41;
        break;
    case CmdMassErase:
        cmd[0] = 0x41;
        length = 1;
        break;
    case CmdReadUnprotect:
        cmd[0] = 0x92;
        length = 1;
        break;
    default:
        return ZError("Dfu::upload_cmd: Unknown command");
    }
    zfirmPut32(cmd + 1, address);

    ZError err = dnload(0, cmd, length);
    DfuStatus status;
    if (!err)
        err = getStatus(status);
    if (err)
        return err;
    if (status.state != StateDnBusy)
        return ZError("Cmd error not busy");
    sleepPoll(status.pollTimeout);
    if ((err = getStatus(status)))
        return err;
    if (status.state != StateDnloadIdle)
        return ZError("Cmds error not done");
    return ZError();
}

ZError Dfu::waitBlock(const DfuStatus& last) {
    DfuStatus status = last;
    for (int polls = 0;; polls++) {
        sleepPoll(status.pollTimeout);
        ZError err = getStatus(status);
        if (err)
            return err;
        if (status.state == StateDnloadIdle)
            return ZError();
        // Still writing: the device said how long to wait before asking again.
        bool busy = status.state == StateDnBusy || status.state == StateDnloadSync;
        if (!busy || polls >= BusyPollsMax)
            return ZError("Upload error: " + ZString(unsigned(status.state)));
    }
}

ZError Dfu::upload(const ZString& fileName, unsigned int platform) {
    ZString version;
    ZError err = validateFile(fileName, platform, version);
    if (err)
        return err;

    ZFile file;
    if ((err = file.open(fileName, "r")))
        return err;
    const int64_t length = file.length();
    if (length < 0)
        return ZError("File read error: " + ZString(strerror(errno)));
    if (length > ImageMax)
        return ZError("Firmware file too large");
    const uint32_t end = FlashBase + uint32_t(length);

    for (unsigned int n = 0; sectorAddress(n) < end; n++) {
        report("Erasing flash", 0.0);
        log("erase");
        DfuStatus status;
        if ((err = upload_cmd(CmdErase, sectorAddress(n))) || (err = getStatus(status)))
            return err;
    }

    uint8_t block[BlockSize];
    uint32_t address = FlashBase;
    for (int64_t done = 0; done < length; done += BlockSize, address += BlockSize) {
        size_t want = size_t(std::min<int64_t>(BlockSize, length - done));
        if (file.read(block, want) != want)
            return ZError("File read error: " +
                          ZString(strerror(ferror(file.stream()) ? errno : EIO)));
        if ((err = upload_cmd(CmdSetAddress, address)) ||
            (err = dnload(BlockValue, block, uint16_t(want))) || (err = waitBlock(olastStatus)))
            return err;
        report("Writing flash", double(done + int64_t(want)) / double(length));
    }

    // Back to the start of flash and an empty block: the boot loader
    // manifests and starts the new firmware.
    log("leave");
    if ((err = upload_cmd(CmdSetAddress, FlashBase)))
        return err;
    return dnload(BlockValue, nullptr, 0);
}

ZError Dfu::disconnect() {
    if (ohandle) {
        // The device may already have left to start its new firmware.
        libusb_control_transfer(ohandle, TypeOut, RequestDetach, DetachValue, uint16_t(ointerface),
                                nullptr, 0, TimeoutMs);
        libusb_release_interface(ohandle, ointerface);
    }
    reset();
    return ZError();
}

void Dfu::reset() {
    if (ohandle)
        libusb_close(ohandle);
    ohandle = nullptr;
    if (octx)
        libusb_exit(octx);
    octx = nullptr;
}

ZError Dfu::validateFile(const ZString& fileName, unsigned int platform, ZString& version) {
    ZFile file;
    if (file.open(fileName, "r"))
        return ZError("Unable to open file");
    uint8_t h[16];
    if (file.seek(ImageHeaderAt) || file.read(h, sizeof(h)) != sizeof(h))
        return ZError("File read error");
    if (zfirmGet32(h) != ImageMagic)
        return ZError("Not a firmware file");
    if (h[12] != platform)
        return ZError("Not a Tavro-40x firmware file");
    version = ZString().printf("%d.%d.%d", h[13], h[14], h[15]);
    return ZError();
}
