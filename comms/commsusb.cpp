#include "commsusb.h"

#include <libusb.h>

#include <climits>
#include <cstring>
#include <vector>

namespace TavroApi {

namespace {

const unsigned char EndpointIn = 0x81;
const unsigned char EndpointOut = 0x01;
const int InterfaceNumber = 0;

// Vendor request (host to device, vendor, device recipient) that tells the
// unit a host has attached (value 1) or is leaving (value 0).
const uint8_t AttachRequestType = 0x40;
const uint8_t AttachRequest = 1;
const unsigned int AttachTimeoutMs = 100;

// Room for the serial-number string, terminator included.
const int SerialBufferSize = 64;

// True when the device's serial-number string is exactly `serial`.
bool serialMatches(libusb_device_handle* handle, uint8_t index, const char* serial) {
    unsigned char text[SerialBufferSize];
    int len = libusb_get_string_descriptor_ascii(handle, index, text, sizeof(text));
    if (len < 0 || len >= SerialBufferSize)
        return false;
    // Compared with its length: a string holding a NUL must not match a prefix.
    return size_t(len) == strlen(serial) && memcmp(text, serial, size_t(len)) == 0;
}

} // namespace

unsigned int round512(unsigned int n) {
    return (n + 511u) & ~511u;
}

CommsUsb::CommsUsb()
    : octx(nullptr), ohandle(nullptr), orxBuffer(new uint8_t[RxBufferSize]), orxCount(0),
      ofailed(false), ostopped(false), oreadError(false) {}

CommsUsb::~CommsUsb() {
    disconnect();
}

void CommsUsb::closeDevice() {
    if (ohandle)
        libusb_close(ohandle);
    ohandle = nullptr;
    if (octx)
        libusb_exit(octx);
    octx = nullptr;
}

ZError CommsUsb::connect(const char* serial) {
    if (!serial)
        serial = "";
    oname = serial;
    if (oconnected)
        disconnect();

    libusb_context* ctx = nullptr;
    if (libusb_init(&ctx) < 0)
        return ZError(1, "Libusb init error");

    libusb_device** list = nullptr;
    ssize_t n = libusb_get_device_list(ctx, &list);
    if (n < 0) {
        libusb_exit(ctx);
        return ZError(1, "Libusb error");
    }

    libusb_device_handle* found = nullptr;
    for (ssize_t i = 0; i < n && !found; i++) {
        libusb_device_descriptor desc;
        if (libusb_get_device_descriptor(list[i], &desc) < 0)
            continue;
        if (desc.idVendor != VendorId || desc.idProduct != ProductId)
            continue;
        libusb_device_handle* handle = nullptr;
        if (libusb_open(list[i], &handle) < 0)
            continue;
        if (desc.iSerialNumber && serialMatches(handle, desc.iSerialNumber, serial))
            found = handle;
        else
            libusb_close(handle);
    }
    libusb_free_device_list(list, 1);

    if (!found) {
        libusb_exit(ctx);
        return ZError(1, "Tavro unit not found");
    }

    libusb_set_auto_detach_kernel_driver(found, 1);
    if (libusb_claim_interface(found, InterfaceNumber) < 0) {
        libusb_close(found);
        libusb_exit(ctx);
        return ZError(1, "Tavro unit cannot claim");
    }

    // The unit may not know the request; its answer does not matter.
    libusb_control_transfer(found, AttachRequestType, AttachRequest, 1, 0, nullptr, 0,
                            AttachTimeoutMs);

    octx = ctx;
    ohandle = found;
    orxCount = 0;
    ofailed = false;
    return ZComms::connect(serial);
}

ZError CommsUsb::disconnect() {
    if (!oconnected || !ohandle) {
        closeDevice();
        return ZComms::disconnect();
    }
    libusb_control_transfer(ohandle, AttachRequestType, AttachRequest, 0, 0, nullptr, 0,
                            AttachTimeoutMs);
    libusb_release_interface(ohandle, InterfaceNumber);
    closeDevice();
    orxCount = 0;
    ofailed = false;
    return ZComms::disconnect();
}

ZError CommsUsb::readChunk(unsigned int timeoutUs) {
    if (!oconnected || !ohandle || ofailed)
        return ZError(1, "CommsUsb::readChunk: not connected");

    // orxCount never exceeds the buffer; the request is the free space
    // rounded down to whole 512-byte blocks, so it always fits behind it.
    uint32_t have = orxCount;
    if (have > RxBufferSize)
        have = RxBufferSize;
    uint32_t ask = (RxBufferSize - have) & ~(ChunkAlign - 1);

    int r = 0;
    int got = 0;
    if (ask > 0)
        r = libusb_bulk_transfer(ohandle, EndpointIn, orxBuffer.get() + have, int(ask), &got,
                                 timeoutUs / 1000);

    if (ostopped) {
        ofailed = true;
        return ZError(1, "CommsUsb::readChunk: read error");
    }

    ZError err;
    if (r == LIBUSB_ERROR_TIMEOUT) {
        err = ZError(4, "Timeout");
    } else if (r < 0) {
        oreadError = true;
        return ZError(1, "CommsUsb::readChunk: read error");
    }

    // Never trust a count beyond what was asked for.
    if (got < 0)
        got = 0;
    if (uint32_t(got) > ask)
        got = int(ask);
    orxCount = have + uint32_t(got);
    return err;
}

ZError CommsUsb::wait(unsigned int, unsigned int timeoutUs, unsigned int count) {
    if (!oconnected || ostopped)
        return ZError(1, "Not connected");
    while (orxCount < count) {
        // A full buffer can take no further chunk: stop with what it holds
        // rather than asking again for ever.
        if (RxBufferSize - orxCount < ChunkAlign)
            break;
        ZError err = readChunk(timeoutUs);
        if (err)
            return err;
    }
    return ZError();
}

ZError CommsUsb::read(void* data, unsigned int n, unsigned int& got) {
    got = 0;
    if (!oconnected || !ohandle || ostopped)
        return ZError(1, "CommsUsb::read: not connected");
    if (orxCount < n) {
        ZError err = wait(2, otimeout, n);
        if (err)
            return err;
    }
    uint32_t have = orxCount;
    uint32_t take = have < n ? have : n;
    if (take > 0) {
        memcpy(data, orxBuffer.get(), take);
        memmove(orxBuffer.get(), orxBuffer.get() + take, have - take);
        orxCount = have - take;
    }
    got = take;
    return ZError();
}

ZError CommsUsb::write(const void* data, unsigned int n, unsigned int& written) {
    written = 0;
    if (!oconnected || !ohandle || ostopped)
        return ZError(1, "CommsUsb::write: not connected");
    // libusb counts in int; a longer write goes out short and says so.
    int len = n > unsigned(INT_MAX) ? INT_MAX : int(n);
    int sent = 0;
    int r = libusb_bulk_transfer(
        ohandle, EndpointOut, static_cast<unsigned char*>(const_cast<void*>(data)), len, &sent, 0);
    if (sent > 0)
        written = unsigned(sent < len ? sent : len);
    if (r < 0)
        return ZError(1, "CommsUsb::write: write error");
    return ZError();
}

ZError CommsUsb::writeChunks(const ZDataChunk* chunks, unsigned int n, unsigned int& written) {
    written = 0;
    if (n == 0)
        return ZError();
    if (n == 1)
        return write(chunks[0].data, chunks[0].length, written);
    size_t total = 0;
    for (unsigned int i = 0; i < n; i++)
        total += chunks[i].length;
    if (total > size_t(INT_MAX))
        return ZError(1, "CommsUsb::write: write error");
    std::vector<unsigned char> packet(total);
    size_t at = 0;
    for (unsigned int i = 0; i < n; i++) {
        if (chunks[i].length)
            memcpy(packet.data() + at, chunks[i].data, chunks[i].length);
        at += chunks[i].length;
    }
    return write(packet.data(), unsigned(total), written);
}

unsigned int CommsUsb::readAvailable() {
    return orxCount;
}

} // namespace TavroApi
