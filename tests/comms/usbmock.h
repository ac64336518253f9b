#ifndef USBMOCK_H
#define USBMOCK_H

// Emulated USB devices for tests that drive the real libusb, on top of
// umockdev. The test process must run under umockdev-wrapper, and the bus
// must be created before the first libusb_init() that is meant to see it.
//
//   usbmock::UsbMockBus bus;
//   usbmock::UsbMockDevice& dev = bus.addDevice({0x0483, 0xA2E0, "SN1"});
//   dev.queueIn(0x81, {1, 2, 3});          // the device sends 3 bytes
//   ... libusb code under test ...
//   dev.outTransfers(), dev.controlRequests(), dev.inRequests()
//
// The emulated host controller behaves like usbfs: an IN transfer is filled
// packet by packet and completes on a short packet or when its buffer is
// full; otherwise it stays pending until data comes or libusb cancels it on
// its time-out (the bytes already received are kept). OUT transfers complete
// at once. String descriptors come from DeviceConfig; other control requests
// go to the control handler.
//
// Control handlers run on umockdev's worker thread: they must not call
// libusb and must not block. All other operations may be called from any
// thread.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace usbmock {

typedef std::vector<uint8_t> Bytes;

// The eight setup bytes of a control transfer, decoded.
struct Setup {
    uint8_t requestType;
    uint8_t request;
    uint16_t value;
    uint16_t index;
    uint16_t length;

    bool isIn() const { return (requestType & 0x80) != 0; }
    Bytes bytes() const; // the little-endian wire form
};

// One control transfer as the device saw it.
struct ControlRequest {
    Setup setup;
    Bytes data;   // OUT: the data stage received; IN: the reply sent
    bool stalled; // the device answered with a stall
};

// A control handler's answer: data for an IN request (cut to wLength),
// nothing for an OUT request, or a stall.
struct ControlReply {
    bool stall = false;
    Bytes data;
    static ControlReply ack() { return ControlReply(); }
    static ControlReply reply(Bytes d) {
        ControlReply r;
        r.data = std::move(d);
        return r;
    }
    static ControlReply stalled() {
        ControlReply r;
        r.stall = true;
        return r;
    }
};

// Called for every control request the harness does not answer itself
// (everything but GET_DESCRIPTOR). `outData` is the OUT data stage.
typedef std::function<ControlReply(const Setup& setup, const Bytes& outData)> ControlHandler;

struct OutTransfer {
    uint8_t endpoint;
    Bytes data;
    int status; // 0, or the negative errno it was failed with
};

struct InRequest {
    uint8_t endpoint;
    int length; // buffer length the host asked for
};

struct InterfaceEvent {
    enum Kind { Claim, Release, SetAltSetting };
    Kind kind;
    unsigned int interface;
    unsigned int altSetting;
};

struct DeviceConfig {
    uint16_t vendorId = 0x0483;
    uint16_t productId = 0xA2E0;
    // The serial-number string; with hasSerial false the device descriptor
    // has no serial-number index at all.
    std::string serial;
    bool hasSerial = true;
    std::string manufacturer = "Mock maker";
    std::string product = "Mock device";
    uint16_t bcdDevice = 0x0100;
    uint16_t maxPacket = 512; // bulk packet size, also used to split IN data
    // Configuration descriptor (all of it, wTotalLength included). Empty: one
    // vendor-class interface 0 with bulk endpoints 0x81 and 0x01.
    Bytes configDescriptor;
    // Further string descriptors by index (1, 2 and 3 are manufacturer,
    // product and serial number).
    std::map<uint8_t, std::string> strings;

    DeviceConfig() {}
    DeviceConfig(uint16_t vid, uint16_t pid, const char* serialText)
        : vendorId(vid), productId(pid), serial(serialText ? serialText : ""),
          hasSerial(serialText != nullptr) {}
};

class UsbMockBus;

class UsbMockDevice {
public:
    ~UsbMockDevice();
    UsbMockDevice(const UsbMockDevice&) = delete;
    UsbMockDevice& operator=(const UsbMockDevice&) = delete;

    const std::string& sysPath() const;
    const std::string& devNode() const;

    // The device sends `data` on IN endpoint `ep` as one transfer: packets of
    // maxPacket bytes ended by a short (or zero-length) packet. With
    // `terminate` false no zero-length packet follows a whole number of
    // packets, so the host's transfer stays open for more.
    void queueIn(uint8_t ep, const Bytes& data, bool terminate = true);
    // The next IN transfer on `ep` fails with `status` (e.g. -EPROTO).
    void failNextIn(uint8_t ep, int status);
    // The next completed IN transfer on `ep` reports `extra` bytes more
    // than it received (a misbehaving kernel or controller).
    void overReportNextIn(uint8_t ep, int extra);
    // The next OUT transfer on `ep` fails with `status`.
    void failNextOut(uint8_t ep, int status);
    // Claiming an interface fails with errno `err` (0: succeeds again).
    void failClaim(int err);
    void setControlHandler(ControlHandler handler);

    std::vector<OutTransfer> outTransfers() const;
    std::vector<ControlRequest> controlRequests() const;
    std::vector<InRequest> inRequests() const;
    std::vector<InterfaceEvent> interfaceEvents() const;
    // Number of clients (open handles) that currently have the device open.
    int openCount() const;
    // Number of IN transfers waiting for data on `ep`.
    int pendingIn(uint8_t ep) const;
    // Waits up to timeoutMs until an IN transfer is pending on `ep`.
    bool waitPendingIn(uint8_t ep, int timeoutMs) const;
    void clearRecords();

    // Pulls the device out: pending transfers end with -ENODEV, further
    // requests fail with ENODEV, and the device leaves the bus.
    void unplug();
    bool plugged() const;

    struct State;

private:
    friend class UsbMockBus;
    UsbMockDevice();
    std::unique_ptr<State> d;
};

class UsbMockBus {
public:
    // True when the process runs under umockdev-wrapper; otherwise `why`
    // says what is missing.
    static bool available(std::string* why);

    UsbMockBus();
    ~UsbMockBus();
    UsbMockBus(const UsbMockBus&) = delete;
    UsbMockBus& operator=(const UsbMockBus&) = delete;

    // Plugs a new device into bus 1 (device numbers 2, 3, ...).
    UsbMockDevice& addDevice(const DeviceConfig& config);

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace usbmock

#endif
