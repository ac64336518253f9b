#ifndef USBMOCK_H
#define USBMOCK_H

// Emulated USB devices on umockdev for tests that drive the real libusb. The
// process must run under umockdev-wrapper, and the bus must exist before the
// libusb_init() that is meant to see it.
//
// As with usbfs, a bulk IN transfer is filled in 512-byte packets and ends on
// a short packet or a full buffer, or is cancelled by libusb's time-out
// (keeping what arrived); OUT transfers complete at once. Control requests
// other than descriptor requests go to the control handler, which runs on
// umockdev's worker thread and must neither call libusb nor block.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace usbmock {

typedef std::vector<uint8_t> Bytes;

struct Setup {
    uint8_t requestType, request;
    uint16_t value, index, length;
    bool isIn() const { return (requestType & 0x80) != 0; }
    Bytes bytes() const; // the eight bytes on the wire
};

// Data for an IN request (cut to wLength), nothing for an OUT request; or a
// stall: {{}, true}.
struct ControlReply {
    Bytes data;
    bool stall = false;
};
typedef std::function<ControlReply(const Setup&, const Bytes& outData)> ControlHandler;

struct OutTransfer {
    uint8_t endpoint;
    Bytes data;
};

// What a device has seen so far.
struct Records {
    std::vector<OutTransfer> outs;
    std::vector<std::pair<Setup, bool>> controls; // with whether it was stalled
    std::map<uint8_t, std::vector<int>> ins;      // IN buffer lengths asked for, by endpoint
    std::vector<std::string> interfaces;          // "claim 0", "release 0", "alt 0 1"
};

struct DeviceConfig {
    uint16_t vendorId, productId;
    const char* serial; // string 3; null: none
    // The whole configuration descriptor; empty: one vendor interface 0 with
    // bulk endpoints 0x81 and 0x01.
    Bytes configDescriptor;
    DeviceConfig(uint16_t vid, uint16_t pid, const char* sn)
        : vendorId(vid), productId(pid), serial(sn) {}
};

class UsbMockDevice {
public:
    ~UsbMockDevice();
    // The device sends `data` on `ep` as one transfer, ended by a short or
    // zero-length packet; with `terminate` false a whole number of packets
    // gets no zero-length end and the host's transfer stays open.
    void queueIn(uint8_t ep, const Bytes& data, bool terminate = true);
    // The next transfer on `ep` (IN or OUT) fails with `status`, e.g. -EPROTO.
    void failNext(uint8_t ep, int status);
    // The next completed IN transfer on `ep` reports `extra` bytes more than
    // it carried, as a misbehaving controller might.
    void overReportNextIn(uint8_t ep, int extra);
    void failClaim(int err); // claiming fails with errno `err`; 0 succeeds again
    void setControlHandler(ControlHandler handler);
    Records records() const;
    // Waits up to timeoutMs until an IN transfer is pending on `ep`.
    bool waitPendingIn(uint8_t ep, int timeoutMs) const;
    // Pending transfers end with -ENODEV, new requests fail with ENODEV, and
    // the device leaves the bus.
    void unplug();
    struct State;

private:
    friend class UsbMockBus;
    explicit UsbMockDevice(const DeviceConfig& config);
    std::unique_ptr<State> d;
};

class UsbMockBus {
public:
    // True under umockdev-wrapper; otherwise `why` says what is missing.
    static bool available(std::string* why);
    UsbMockBus();
    ~UsbMockBus();
    // Plugs a device into bus 1 (device numbers 2, 3, ...).
    UsbMockDevice& addDevice(const DeviceConfig& config);

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace usbmock

#endif
