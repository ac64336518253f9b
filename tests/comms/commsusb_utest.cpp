#include "commsusb.h"

#include <gtest/gtest.h>
#include <libusb.h>

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#if TAVRO_HAVE_UMOCKDEV
#include "comms/usbmock.h"
#endif

using TavroApi::CommsUsb;
typedef std::vector<uint8_t> Bytes;

namespace {

// Opens the stop latch to the tests.
class TestUsb : public CommsUsb {
public:
    using CommsUsb::failed;
    using CommsUsb::setStopped;
};

#define EXPECT_ZERR(e, n, text)                                                                    \
    do {                                                                                           \
        ZError e_ = (e);                                                                           \
        EXPECT_EQ(e_.num(), n) << e_.str();                                                        \
        EXPECT_STREQ(e_.str().retStr(), text);                                                     \
    } while (0)

} // namespace

TEST(CommsUsb, Round512) {
    const unsigned int cases[][2] = {
        {0, 0},         {1, 512},         {511, 512},       {512, 512},
        {513, 1024},    {102399, 102400}, {102400, 102400}, {0xFFFFFE00, 0xFFFFFE00},
        {0xFFFFFE01, 0}};
    for (auto& c : cases)
        EXPECT_EQ(TavroApi::round512(c[0]), c[1]) << c[0];
}

TEST(CommsUsb, RefusesWhenNotConnected) {
    TestUsb usb;
    uint8_t buf[16] = {};
    unsigned int got = 99, written = 99;
    EXPECT_ZERR(usb.read(buf, sizeof(buf), got), 1, "CommsUsb::read: not connected");
    EXPECT_EQ(got, 0u);
    EXPECT_ZERR(usb.write(buf, sizeof(buf), written), 1, "CommsUsb::write: not connected");
    EXPECT_EQ(written, 0u);
    EXPECT_ZERR(usb.wait(2, 1000, 1), 1, "Not connected");
    EXPECT_ZERR(usb.readChunk(1000), 1, "CommsUsb::readChunk: not connected");
    EXPECT_EQ(usb.readAvailable(), 0u);
    EXPECT_FALSE(usb.isConnected());
    EXPECT_FALSE(usb.disconnect());
    EXPECT_FALSE(usb.disconnect());
}

#if TAVRO_HAVE_UMOCKDEV

using usbmock::ControlRequest;
using usbmock::DeviceConfig;
using usbmock::InterfaceEvent;
using usbmock::UsbMockBus;
using usbmock::UsbMockDevice;

namespace {

const uint8_t In = 0x81, Out = 0x01;

Bytes pattern(size_t n, uint8_t seed) {
    Bytes b(n);
    for (size_t i = 0; i < n; i++)
        b[i] = uint8_t(seed + i * 7);
    return b;
}

// Vendor requests (type 0x40) a device received, as setup bytes.
std::vector<Bytes> vendorRequests(const UsbMockDevice& dev) {
    std::vector<Bytes> v;
    for (const ControlRequest& c : dev.controlRequests())
        if (c.setup.requestType == 0x40)
            v.push_back(c.setup.bytes());
    return v;
}

std::vector<int> inLengths(const UsbMockDevice& dev) {
    std::vector<int> v;
    for (const usbmock::InRequest& r : dev.inRequests())
        v.push_back(r.length);
    return v;
}

// Descriptors other than sockets: what a libusb context (eventfd, timerfd)
// or an open device node holds. umockdev's own sockets come and go
// asynchronously and are left out.
int openFds() {
    int n = 0;
    if (DIR* d = opendir("/proc/self/fd")) {
        while (dirent* e = readdir(d)) {
            char link[256] = {};
            std::string path = std::string("/proc/self/fd/") + e->d_name;
            if (e->d_name[0] != '.' && readlink(path.c_str(), link, sizeof(link) - 1) > 0 &&
                strncmp(link, "socket:", 7) != 0)
                n++;
        }
        closedir(d);
    }
    return n;
}

// The client side of a handle is let go asynchronously; give it a moment.
bool waitClosed(const UsbMockDevice& dev) {
    for (int i = 0; i < 1000 && dev.openCount() > 0; i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return dev.openCount() == 0;
}

class CommsUsbDevice : public ::testing::Test {
protected:
    void SetUp() override {
        std::string why = TAVRO_USB_SKIP;
        if (why.empty() && !UsbMockBus::available(&why))
            why = "USB emulation unavailable: " + why;
        if (!why.empty())
            GTEST_SKIP() << why;
        bus.reset(new UsbMockBus);
        usb.reset(new TestUsb);
        usb->setTimeout(30000); // 30 ms per chunk read
    }
    void TearDown() override {
        usb.reset(); // before the devices go away
        bus.reset();
    }

    // Reads n bytes, expecting success and exactly `expect`.
    void expectRead(unsigned int n, const Bytes& expect) {
        Bytes buf(n);
        unsigned int got = 0;
        ZError err = usb->read(buf.data(), n, got);
        ASSERT_FALSE(err) << err.str();
        buf.resize(got);
        EXPECT_EQ(buf, expect);
    }

    std::unique_ptr<UsbMockBus> bus;
    std::unique_ptr<TestUsb> usb;
};

} // namespace

TEST_F(CommsUsbDevice, OpensOnlyTheUnitWithTheMatchingSerial) {
    UsbMockDevice& other = bus->addDevice(DeviceConfig(0x0483, 0xA2E0, "TV-0001"));
    UsbMockDevice& none = bus->addDevice(DeviceConfig(0x0483, 0xA2E0, nullptr));
    UsbMockDevice& unit = bus->addDevice(DeviceConfig(0x0483, 0xA2E0, "TV-0002"));
    UsbMockDevice& foreign = bus->addDevice(DeviceConfig(0x1234, 0xA2E0, "TV-0002"));
    UsbMockDevice& loader = bus->addDevice(DeviceConfig(0x0483, 0xDF11, "TV-0002"));

    int fds = openFds();
    // Neither a prefix, a longer text, nor an empty serial (the unit without
    // a serial string) matches; each failure frees everything it took.
    for (const char* serial : {"TV-000", "TV-00020", "", "tv-0002"})
        EXPECT_ZERR(usb->connect(serial), 1, "Tavro unit not found");
    EXPECT_FALSE(usb->isConnected());
    EXPECT_EQ(openFds(), fds);

    ASSERT_FALSE(usb->connect("TV-0002"));
    EXPECT_TRUE(usb->isConnected());
    EXPECT_EQ(usb->deviceName(), "TV-0002");
    EXPECT_EQ(unit.openCount(), 1);
    EXPECT_TRUE(waitClosed(other) && waitClosed(none));
    for (UsbMockDevice* d : {&foreign, &loader})
        EXPECT_TRUE(d->controlRequests().empty()); // never even asked
    EXPECT_TRUE(vendorRequests(other).empty());
    EXPECT_TRUE(vendorRequests(none).empty());
    EXPECT_EQ(vendorRequests(unit), (std::vector<Bytes>{{0x40, 1, 1, 0, 0, 0, 0, 0}}));
    ASSERT_EQ(unit.interfaceEvents().size(), 1u);
    EXPECT_EQ(unit.interfaceEvents()[0].kind, InterfaceEvent::Claim);
    EXPECT_EQ(unit.interfaceEvents()[0].interface, 0u);

    // Connecting again leaves the first unit properly first.
    ASSERT_FALSE(usb->connect("TV-0001"));
    EXPECT_EQ(vendorRequests(unit),
              (std::vector<Bytes>{{0x40, 1, 1, 0, 0, 0, 0, 0}, {0x40, 1, 0, 0, 0, 0, 0, 0}}));
    EXPECT_EQ(unit.interfaceEvents().back().kind, InterfaceEvent::Release);
    EXPECT_TRUE(waitClosed(unit));
    EXPECT_EQ(other.openCount(), 1);

    ASSERT_FALSE(usb->disconnect());
    EXPECT_FALSE(usb->isConnected());
    EXPECT_EQ(vendorRequests(other).back(), (Bytes{0x40, 1, 0, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(waitClosed(other));
    EXPECT_FALSE(usb->disconnect()); // a no-op now
    EXPECT_EQ(vendorRequests(other).size(), 2u);
    EXPECT_EQ(openFds(), fds);
}

TEST_F(CommsUsbDevice, ClaimFailureAndIgnoredVendorRequest) {
    UsbMockDevice& unit = bus->addDevice(DeviceConfig(0x0483, 0xA2E0, "A1"));
    int fds = openFds();
    unit.failClaim(EBUSY);
    EXPECT_ZERR(usb->connect("A1"), 1, "Tavro unit cannot claim");
    EXPECT_FALSE(usb->isConnected());
    EXPECT_TRUE(waitClosed(unit));
    EXPECT_EQ(openFds(), fds);

    // A unit that stalls the vendor request is still connected.
    unit.failClaim(0);
    unit.setControlHandler(
        [](const usbmock::Setup&, const Bytes&) { return usbmock::ControlReply::stalled(); });
    ASSERT_FALSE(usb->connect("A1"));
    EXPECT_TRUE(unit.controlRequests().back().stalled);
    EXPECT_FALSE(usb->disconnect());
}

TEST_F(CommsUsbDevice, WriteSendsExactBytesOnEndpoint1) {
    UsbMockDevice& unit = bus->addDevice(DeviceConfig(0x0483, 0xA2E0, "W"));
    ASSERT_FALSE(usb->connect("W"));
    unsigned int written = 0;
    Bytes small{0x5A, 0x55, 0x01}, big = pattern(5000, 3);
    ASSERT_FALSE(usb->write(small.data(), 3, written));
    EXPECT_EQ(written, 3u);
    ASSERT_FALSE(usb->write(big.data(), unsigned(big.size()), written));
    EXPECT_EQ(written, 5000u);
    unit.failNextOut(Out, -EPIPE);
    EXPECT_ZERR(usb->write(small.data(), 3, written), 1, "CommsUsb::write: write error");

    auto outs = unit.outTransfers();
    ASSERT_EQ(outs.size(), 3u);
    EXPECT_EQ(outs[0].endpoint, Out);
    EXPECT_EQ(outs[0].data, small);
    EXPECT_EQ(outs[1].data, big); // one transfer, not split
    EXPECT_TRUE(unit.inRequests().empty());

    // A gathered packet (header chunk + payload chunks) leaves as one transfer.
    Bytes header = pattern(16, 5), body = pattern(40, 6);
    ZDataChunk chunks[] = {{header.data(), 16}, {nullptr, 0}, {body.data(), 40}};
    ASSERT_FALSE(usb->writeChunks(chunks, 3, written));
    EXPECT_EQ(written, 56u);
    outs = unit.outTransfers();
    ASSERT_EQ(outs.size(), 4u);
    Bytes joined = header;
    joined.insert(joined.end(), body.begin(), body.end());
    EXPECT_EQ(outs[3].data, joined);
    ASSERT_FALSE(usb->writeChunks(chunks, 0, written));
    EXPECT_EQ(written, 0u);
}

TEST_F(CommsUsbDevice, ReadsInBlocksOf512AndKeepsPartialDataOnTimeout) {
    UsbMockDevice& unit = bus->addDevice(DeviceConfig(0x0483, 0xA2E0, "R"));
    ASSERT_FALSE(usb->connect("R"));
    Bytes a = pattern(700, 1), b = pattern(60, 2), c = pattern(40, 3), e = pattern(1024, 4);

    unit.queueIn(In, a);
    expectRead(300, Bytes(a.begin(), a.begin() + 300));
    EXPECT_EQ(usb->readAvailable(), 400u);
    expectRead(400, Bytes(a.begin() + 300, a.end())); // from the buffer, no transfer
    EXPECT_EQ(inLengths(unit), (std::vector<int>{102400}));

    // Fewer bytes than asked: "Timeout", and they wait for the next read.
    unit.queueIn(In, b);
    unsigned int got = 99;
    Bytes buf(100);
    EXPECT_ZERR(usb->read(buf.data(), 100, got), 4, "Timeout");
    EXPECT_EQ(got, 0u);
    EXPECT_EQ(usb->readAvailable(), 60u);
    unit.queueIn(In, c);
    Bytes bc = b;
    bc.insert(bc.end(), c.begin(), c.end());
    expectRead(100, bc);
    // 102400 - 60 rounded down to 101888.
    EXPECT_EQ(inLengths(unit), (std::vector<int>{102400, 102400, 101888, 101888}));

    // Whole packets without an end leave the transfer open until its
    // time-out; what arrived is kept.
    unit.queueIn(In, e, false);
    EXPECT_ZERR(usb->read(buf.data(), 100 + 1024, got), 4, "Timeout");
    EXPECT_EQ(usb->readAvailable(), 1024u);
    expectRead(1024, e);
    EXPECT_FALSE(usb->readErrorSeen());
}

TEST_F(CommsUsbDevice, ReadErrorIsReportedAndNotFatal) {
    UsbMockDevice& unit = bus->addDevice(DeviceConfig(0x0483, 0xA2E0, "E"));
    ASSERT_FALSE(usb->connect("E"));
    unit.failNextIn(In, -EPROTO);
    Bytes buf(10);
    unsigned int got = 0;
    EXPECT_ZERR(usb->read(buf.data(), 10, got), 1, "CommsUsb::readChunk: read error");
    EXPECT_TRUE(usb->readErrorSeen());
    EXPECT_TRUE(usb->isConnected());
    unit.queueIn(In, pattern(10, 9));
    expectRead(10, pattern(10, 9));
}

TEST_F(CommsUsbDevice, StopLatchRefusesAndLatchesFailedUntilDisconnect) {
    UsbMockDevice& unit = bus->addDevice(DeviceConfig(0x0483, 0xA2E0, "S"));
    ASSERT_FALSE(usb->connect("S"));
    usb->setStopped(true);
    Bytes buf(8);
    unsigned int n = 99;
    EXPECT_ZERR(usb->read(buf.data(), 8, n), 1, "CommsUsb::read: not connected");
    EXPECT_EQ(n, 0u);
    n = 99;
    EXPECT_ZERR(usb->write(buf.data(), 8, n), 1, "CommsUsb::write: not connected");
    EXPECT_EQ(n, 0u);
    EXPECT_ZERR(usb->wait(2, 10000, 1), 1, "Not connected");
    EXPECT_TRUE(unit.outTransfers().empty());
    EXPECT_FALSE(usb->failed());

    unit.queueIn(In, pattern(8, 1));
    EXPECT_ZERR(usb->readChunk(10000), 1, "CommsUsb::readChunk: read error");
    EXPECT_TRUE(usb->failed());
    EXPECT_EQ(usb->readAvailable(), 0u);

    // Released, the latch still holds until the next disconnect.
    usb->setStopped(false);
    EXPECT_ZERR(usb->readChunk(10000), 1, "CommsUsb::readChunk: not connected");
    EXPECT_ZERR(usb->read(buf.data(), 8, n), 1, "CommsUsb::readChunk: not connected");
    size_t transfers = unit.inRequests().size();
    EXPECT_FALSE(usb->disconnect());
    EXPECT_FALSE(usb->failed());
    ASSERT_FALSE(usb->connect("S"));
    unit.queueIn(In, pattern(8, 2));
    expectRead(8, pattern(8, 2));
    EXPECT_EQ(unit.inRequests().size(), transfers + 1);
}

TEST_F(CommsUsbDevice, NeverOverrunsTheReceiveBuffer) {
    UsbMockDevice& unit = bus->addDevice(DeviceConfig(0x0483, 0xA2E0, "M"));
    ASSERT_FALSE(usb->connect("M"));
    const unsigned int size = CommsUsb::RxBufferSize;
    Bytes big(300000);
    unsigned int got = 0;

    // Three 40000-byte bursts for a read larger than the buffer: the third
    // chunk only gets the whole blocks still free, the read returns the full
    // buffer instead of waiting for ever, the rest stays with the device.
    Bytes data = pattern(120000, 5);
    for (int i = 0; i < 3; i++)
        unit.queueIn(In, Bytes(data.begin() + i * 40000, data.begin() + (i + 1) * 40000));
    ASSERT_FALSE(usb->read(big.data(), 300000, got));
    EXPECT_EQ(got, 102016u);
    EXPECT_TRUE(std::equal(big.begin(), big.begin() + got, data.begin()));
    EXPECT_EQ(inLengths(unit), (std::vector<int>{102400, 61952, 22016}));
    EXPECT_ZERR(usb->read(big.data(), 300000, got), 4, "Timeout");
    EXPECT_EQ(usb->readAvailable(), 120000u - 102016u);
    expectRead(120000 - 102016, Bytes(data.begin() + 102016, data.end()));

    // A transfer that claims more than it was given is cut to the request.
    unit.overReportNextIn(In, 2 * size);
    unit.queueIn(In, pattern(10, 6));
    EXPECT_FALSE(usb->wait(2, 30000, 1));
    EXPECT_EQ(usb->readAvailable(), size);
    size_t transfers = unit.inRequests().size();
    ASSERT_FALSE(usb->read(big.data(), 300000, got)); // full: no further transfer
    EXPECT_EQ(got, size);
    EXPECT_EQ(unit.inRequests().size(), transfers);
    EXPECT_TRUE(std::equal(big.begin(), big.begin() + 10, pattern(10, 6).begin()));
}

TEST_F(CommsUsbDevice, ReadWakesForDataWhileAnotherThreadWrites) {
    UsbMockDevice& unit = bus->addDevice(DeviceConfig(0x0483, 0xA2E0, "T"));
    ASSERT_FALSE(usb->connect("T"));
    usb->setTimeout(5000000); // a ceiling only: the answer comes within milliseconds
    Bytes cmd = pattern(64, 1), reply = pattern(2000, 2);
    std::thread sender([&] {
        ASSERT_TRUE(unit.waitPendingIn(In, 5000));
        unsigned int written = 0;
        EXPECT_FALSE(usb->write(cmd.data(), unsigned(cmd.size()), written));
        unit.queueIn(In, reply);
    });
    expectRead(2000, reply);
    sender.join();
    ASSERT_EQ(unit.outTransfers().size(), 1u);
    EXPECT_EQ(unit.outTransfers()[0].data, cmd);
}

TEST_F(CommsUsbDevice, UnplugEndsAPendingReadWithAnError) {
    UsbMockDevice& unit = bus->addDevice(DeviceConfig(0x0483, 0xA2E0, "U"));
    ASSERT_FALSE(usb->connect("U"));
    usb->setTimeout(5000000);
    std::thread puller([&] {
        ASSERT_TRUE(unit.waitPendingIn(In, 5000));
        unit.unplug();
    });
    Bytes buf(10);
    unsigned int n = 0;
    EXPECT_ZERR(usb->read(buf.data(), 10, n), 1, "CommsUsb::readChunk: read error");
    puller.join();
    EXPECT_ZERR(usb->write(buf.data(), 10, n), 1, "CommsUsb::write: write error");
    EXPECT_FALSE(usb->disconnect());
    EXPECT_ZERR(usb->connect("U"), 1, "Tavro unit not found");
}

// The harness itself, as the boot-loader download uses it: class requests
// with data stages both ways, a status that changes between polls, a stall,
// and an alternate setting.
TEST_F(CommsUsbDevice, HarnessAnswersControlTransfersWithDataStages) {
    UsbMockDevice& dfu = bus->addDevice(DeviceConfig(0x0483, 0xDF11, "BOOT"));
    int polls = 0;
    dfu.setControlHandler([&polls](const usbmock::Setup& s, const Bytes&) {
        if (s.requestType == 0x21 && s.request == 1)
            return usbmock::ControlReply::ack();
        if (s.requestType == 0xA1 && s.request == 3) // busy once, then idle
            return usbmock::ControlReply::reply({0, 100, 0, 0, uint8_t(polls++ ? 2 : 4), 0});
        return usbmock::ControlReply::stalled();
    });
    libusb_context* ctx = nullptr;
    ASSERT_EQ(libusb_init(&ctx), 0);
    libusb_device_handle* h = libusb_open_device_with_vid_pid(ctx, 0x0483, 0xDF11);
    if (!h) {
        libusb_exit(ctx);
        FAIL() << "cannot open the emulated boot loader";
    }
    EXPECT_EQ(libusb_claim_interface(h, 0), 0);
    EXPECT_EQ(libusb_set_interface_alt_setting(h, 0, 1), 0);
    Bytes block = pattern(64, 7);
    uint8_t st[8] = {};
    EXPECT_EQ(libusb_control_transfer(h, 0x21, 1, 2, 0, block.data(), 64, 100), 64);
    EXPECT_EQ(libusb_control_transfer(h, 0xA1, 3, 0, 0, st, 8, 100), 6);
    EXPECT_EQ(st[4], 4);
    EXPECT_EQ(libusb_control_transfer(h, 0xA1, 3, 0, 0, st, 6, 100), 6);
    EXPECT_EQ(st[4], 2);
    EXPECT_EQ(libusb_control_transfer(h, 0xA1, 9, 0, 0, st, 6, 100), LIBUSB_ERROR_PIPE);
    libusb_close(h);
    libusb_exit(ctx);

    std::vector<ControlRequest> c = dfu.controlRequests();
    ASSERT_GE(c.size(), 4u);
    const ControlRequest& dn = c[c.size() - 4];
    EXPECT_EQ(dn.setup.bytes(), (Bytes{0x21, 1, 2, 0, 0, 0, 64, 0}));
    EXPECT_EQ(dn.data, block);
    EXPECT_EQ(c[c.size() - 3].data, (Bytes{0, 100, 0, 0, 4, 0}));
    EXPECT_TRUE(c.back().stalled);
    ASSERT_EQ(dfu.interfaceEvents().size(), 2u);
    EXPECT_EQ(dfu.interfaceEvents()[1].kind, InterfaceEvent::SetAltSetting);
    EXPECT_EQ(dfu.interfaceEvents()[1].altSetting, 1u);
}

#else

TEST(CommsUsbDevice, NeedsUmockdev) {
    GTEST_SKIP() << TAVRO_USB_SKIP;
}

#endif
