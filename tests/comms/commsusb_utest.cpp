#include "commsusb.h"

#include <gtest/gtest.h>

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

static void PrintTo(const ZError& e, std::ostream* os) {
    *os << e.number << " \"" << e.string.str() << '"';
}

namespace {

// Opens the stop latch to the tests.
class TestUsb : public CommsUsb {
public:
    using CommsUsb::failed;
    using CommsUsb::setStopped;
};

// What a transport that is not connected, or is stopped, answers.
void expectRefused(TestUsb& usb) {
    uint8_t buf[16] = {};
    unsigned int got = 99, written = 99;
    EXPECT_EQ(usb.read(buf, sizeof(buf), got), ZError(1, "CommsUsb::read: not connected"));
    EXPECT_EQ(usb.write(buf, sizeof(buf), written), ZError(1, "CommsUsb::write: not connected"));
    EXPECT_EQ(got, 0u);
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(usb.wait(2, 1000, 1), ZError(1, "Not connected"));
}

} // namespace

TEST(CommsUsb, Round512AndRefusedWhenNotConnected) {
    const unsigned int cases[][2] = {
        {0, 0},         {1, 512},         {511, 512},       {512, 512},
        {513, 1024},    {102399, 102400}, {102400, 102400}, {0xFFFFFE00, 0xFFFFFE00},
        {0xFFFFFE01, 0}};
    for (auto& c : cases)
        EXPECT_EQ(TavroApi::round512(c[0]), c[1]) << c[0];
    TestUsb usb; // not connected
    expectRefused(usb);
    EXPECT_EQ(usb.readChunk(1000), ZError(1, "CommsUsb::readChunk: not connected"));
    EXPECT_EQ(usb.readAvailable(), 0u);
    EXPECT_FALSE(usb.isConnected());
    EXPECT_FALSE(usb.disconnect());
}

#if TAVRO_HAVE_UMOCKDEV

using namespace usbmock;

namespace {

const uint8_t In = 0x81, Out = 0x01;
const Bytes Attach{0x40, 1, 1, 0, 0, 0, 0, 0}, Detach{0x40, 1, 0, 0, 0, 0, 0, 0};

Bytes pattern(size_t n, uint8_t seed) {
    Bytes b(n);
    for (size_t i = 0; i < n; i++)
        b[i] = uint8_t(seed + i * 7);
    return b;
}

Bytes slice(const Bytes& b, size_t from, size_t to) {
    return Bytes(b.data() + from, b.data() + to);
}

// Vendor requests (type 0x40) a device received, as setup bytes.
std::vector<Bytes> vendorRequests(const UsbMockDevice& dev) {
    std::vector<Bytes> v;
    for (const auto& c : dev.records().controls)
        if (c.first.requestType == 0x40)
            v.push_back(c.first.bytes());
    return v;
}

// Device nodes and timers held open: what a libusb handle or context left
// behind would keep. (GLib's own descriptors come and go on its threads.)
int usbFds() {
    int n = 0;
    if (DIR* d = opendir("/proc/self/fd")) {
        while (dirent* e = readdir(d)) {
            char link[256] = {};
            std::string path = std::string("/proc/self/fd/") + e->d_name;
            if (readlink(path.c_str(), link, sizeof(link) - 1) > 0)
                n += strstr(link, "/dev/bus/usb/") || strstr(link, "[timerfd]");
        }
        closedir(d);
    }
    return n;
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
    // Plugs in a unit with serial `sn` and connects to it.
    UsbMockDevice& connected(const char* sn) {
        UsbMockDevice& dev = bus->addDevice(DeviceConfig(0x0483, 0xA2E0, sn));
        ZError err = usb->connect(sn);
        EXPECT_FALSE(err) << err.str();
        return dev;
    }
    void expectRead(unsigned int n, const Bytes& expect) {
        Bytes buf(n);
        unsigned int got = 0;
        ZError err = usb->read(buf.data(), n, got);
        ASSERT_FALSE(err) << err.str();
        buf.resize(got);
        EXPECT_EQ(buf, expect);
    }
    std::unique_ptr<UsbMockBus> bus;
    std::unique_ptr<TestUsb> usb; // goes before the devices
};

} // namespace

TEST_F(CommsUsbDevice, OpensOnlyTheUnitWithTheMatchingSerial) {
    auto add = [&](uint16_t vid, uint16_t pid, const char* sn) -> UsbMockDevice& {
        return bus->addDevice(DeviceConfig(vid, pid, sn));
    };
    UsbMockDevice &other = add(0x0483, 0xA2E0, "TV-0001"), &none = add(0x0483, 0xA2E0, nullptr),
                  &unit = add(0x0483, 0xA2E0, "TV-0002"), &foreign = add(0x1234, 0xA2E0, "TV-0002"),
                  &loader = add(0x0483, 0xDF11, "TV-0002"); // boot loader
    // Neither a prefix, a longer text, another case nor the empty serial (of
    // the unit that has none) matches; each failure frees what it took.
    int fds = usbFds();
    for (const char* serial : {"TV-000", "TV-00020", "", "tv-0002"})
        EXPECT_EQ(usb->connect(serial), ZError(1, "Tavro unit not found"));
    EXPECT_EQ(usbFds(), fds);
    ASSERT_FALSE(usb->connect("TV-0002"));
    EXPECT_TRUE(usb->isConnected());
    EXPECT_EQ(usb->deviceName(), "TV-0002");
    EXPECT_TRUE(foreign.records().controls.empty() && loader.records().controls.empty());
    EXPECT_TRUE(vendorRequests(other).empty() && vendorRequests(none).empty());
    EXPECT_EQ(vendorRequests(unit), std::vector<Bytes>{Attach});
    EXPECT_EQ(unit.records().interfaces, std::vector<std::string>{"claim 0"});
    // Connecting again leaves the first unit properly first.
    ASSERT_FALSE(usb->connect("TV-0001"));
    EXPECT_EQ(vendorRequests(unit), (std::vector<Bytes>{Attach, Detach}));
    EXPECT_EQ(unit.records().interfaces, (std::vector<std::string>{"claim 0", "release 0"}));
    ASSERT_FALSE(usb->disconnect());
    EXPECT_FALSE(usb->disconnect()); // a no-op now
    EXPECT_FALSE(usb->isConnected());
    EXPECT_EQ(vendorRequests(other), (std::vector<Bytes>{Attach, Detach}));
    other.failClaim(EBUSY);
    EXPECT_EQ(usb->connect("TV-0001"), ZError(1, "Tavro unit cannot claim"));
    EXPECT_FALSE(usb->isConnected());
    EXPECT_EQ(usbFds(), fds);
    // A unit that stalls the vendor request is still connected.
    other.failClaim(0);
    other.setControlHandler([](const usbmock::Setup&, const Bytes&) {
        return ControlReply{{}, true};
    });
    ASSERT_FALSE(usb->connect("TV-0001"));
    EXPECT_TRUE(other.records().controls.back().second);
    EXPECT_TRUE(usb->isConnected());
}

TEST_F(CommsUsbDevice, WritesExactBytesAndGatheredPacketsAsOneTransfer) {
    UsbMockDevice& unit = connected("W");
    unsigned int written = 0;
    Bytes small{0x5A, 0x55, 0x01}, big = pattern(5000, 3), head = pattern(16, 5),
                                   body = pattern(40, 6);
    ASSERT_FALSE(usb->write(small.data(), 3, written));
    EXPECT_EQ(written, 3u);
    ASSERT_FALSE(usb->write(big.data(), 5000, written));
    EXPECT_EQ(written, 5000u);
    unit.failNext(Out, -EPIPE);
    EXPECT_EQ(usb->write(small.data(), 3, written), ZError(1, "CommsUsb::write: write error"));
    ZDataChunk chunks[] = {{head.data(), 16}, {nullptr, 0}, {body.data(), 40}};
    ASSERT_FALSE(usb->writeChunks(chunks, 3, written));
    EXPECT_EQ(written, 56u);
    ASSERT_FALSE(usb->writeChunks(chunks, 0, written));
    EXPECT_EQ(written, 0u);
    std::vector<OutTransfer> outs = unit.records().outs;
    ASSERT_EQ(outs.size(), 4u);
    EXPECT_EQ(outs[0].endpoint, Out);
    EXPECT_EQ(outs[0].data, small);
    EXPECT_EQ(outs[1].data, big); // one transfer, not split
    head.insert(head.end(), body.begin(), body.end());
    EXPECT_EQ(outs[3].data, head);
    EXPECT_TRUE(unit.records().ins.empty());
}

TEST_F(CommsUsbDevice, ReadsInBlocksOf512AndKeepsPartialDataOnTimeout) {
    UsbMockDevice& unit = connected("R");
    Bytes a = pattern(700, 1), b = pattern(60, 2), c = pattern(40, 3), e = pattern(1024, 4);
    unit.queueIn(In, a);
    expectRead(300, slice(a, 0, 300));
    EXPECT_EQ(usb->readAvailable(), 400u);
    expectRead(400, slice(a, 300, 700)); // from the buffer, no transfer
    EXPECT_EQ(unit.records().ins[In], std::vector<int>{102400});
    // Fewer bytes than asked: "Timeout", and they wait for the next read.
    unit.queueIn(In, b);
    unsigned int got = 99;
    Bytes buf(2000);
    EXPECT_EQ(usb->read(buf.data(), 100, got), ZError(4, "Timeout"));
    EXPECT_EQ(got, 0u);
    EXPECT_EQ(usb->readAvailable(), 60u);
    unit.queueIn(In, c);
    b.insert(b.end(), c.begin(), c.end());
    expectRead(100, b);
    // 102400 - 60 rounded down to 101888.
    EXPECT_EQ(unit.records().ins[In], (std::vector<int>{102400, 102400, 101888, 101888}));
    // Whole packets without an end keep the transfer open until its time-out,
    // and what arrived is kept.
    unit.queueIn(In, e, false);
    EXPECT_EQ(usb->read(buf.data(), 1124, got), ZError(4, "Timeout"));
    EXPECT_EQ(usb->readAvailable(), 1024u);
    expectRead(1024, e);
    EXPECT_FALSE(usb->readErrorSeen());
    // A failed transfer is reported, remembered, and not fatal.
    unit.failNext(In, -EPROTO);
    EXPECT_EQ(usb->read(buf.data(), 10, got), ZError(1, "CommsUsb::readChunk: read error"));
    EXPECT_TRUE(usb->readErrorSeen());
    unit.queueIn(In, pattern(10, 9));
    expectRead(10, pattern(10, 9));
}

TEST_F(CommsUsbDevice, StopLatchRefusesAndLatchesFailedUntilDisconnect) {
    UsbMockDevice& unit = connected("S");
    usb->setStopped(true);
    expectRefused(*usb);
    EXPECT_TRUE(unit.records().outs.empty());
    EXPECT_FALSE(usb->failed());
    unit.queueIn(In, pattern(8, 1));
    EXPECT_EQ(usb->readChunk(10000), ZError(1, "CommsUsb::readChunk: read error"));
    EXPECT_TRUE(usb->failed());
    EXPECT_EQ(usb->readAvailable(), 0u);
    // Released, the latch still holds until the next disconnect.
    usb->setStopped(false);
    Bytes buf(8);
    unsigned int n = 0;
    EXPECT_EQ(usb->readChunk(10000), ZError(1, "CommsUsb::readChunk: not connected"));
    EXPECT_EQ(usb->read(buf.data(), 8, n), ZError(1, "CommsUsb::readChunk: not connected"));
    size_t transfers = unit.records().ins[In].size();
    EXPECT_FALSE(usb->disconnect());
    EXPECT_FALSE(usb->failed());
    ASSERT_FALSE(usb->connect("S"));
    unit.queueIn(In, pattern(8, 2));
    expectRead(8, pattern(8, 2));
    EXPECT_EQ(unit.records().ins[In].size(), transfers + 1);
}

TEST_F(CommsUsbDevice, NeverOverrunsTheReceiveBuffer) {
    UsbMockDevice& unit = connected("M");
    const unsigned int size = CommsUsb::RxBufferSize;
    Bytes big(300000), data = pattern(120000, 5);
    unsigned int got = 0;
    // Three 40000-byte bursts for a read larger than the buffer: the third
    // chunk only gets the whole blocks still free, the read returns the full
    // buffer instead of waiting for ever, the rest stays with the device.
    for (int i = 0; i < 3; i++)
        unit.queueIn(In, slice(data, i * 40000, (i + 1) * 40000));
    ASSERT_FALSE(usb->read(big.data(), 300000, got));
    EXPECT_EQ(got, 102016u);
    EXPECT_EQ(slice(big, 0, got), slice(data, 0, got));
    EXPECT_EQ(unit.records().ins[In], (std::vector<int>{102400, 61952, 22016}));
    EXPECT_EQ(usb->read(big.data(), 300000, got), ZError(4, "Timeout"));
    expectRead(120000 - 102016, slice(data, 102016, 120000));
    // A transfer that claims more than it was given is cut to the request.
    unit.overReportNextIn(In, 2 * size);
    unit.queueIn(In, pattern(10, 6));
    EXPECT_FALSE(usb->wait(2, 30000, 1));
    EXPECT_EQ(usb->readAvailable(), size);
    ASSERT_FALSE(usb->read(big.data(), 300000, got)); // full: no further transfer
    EXPECT_EQ(got, size);
    EXPECT_EQ(unit.records().ins[In],
              (std::vector<int>{102400, 61952, 22016, 102400, 83968, 102400}));
    EXPECT_EQ(slice(big, 0, 10), pattern(10, 6));
}

// A pending read wakes for data sent while another thread writes, and ends
// with an error when the unit is pulled out.
TEST_F(CommsUsbDevice, PendingReadsMeetWritesAndUnplug) {
    UsbMockDevice& unit = connected("T");
    usb->setTimeout(5000000); // a ceiling only: each read ends within milliseconds
    Bytes cmd = pattern(64, 1), reply = pattern(2000, 2), buf(10);
    std::thread sender([&] {
        ASSERT_TRUE(unit.waitPendingIn(In, 5000));
        unsigned int written = 0;
        EXPECT_FALSE(usb->write(cmd.data(), 64, written));
        unit.queueIn(In, reply);
        ASSERT_TRUE(unit.waitPendingIn(In, 5000));
        unit.unplug();
    });
    expectRead(2000, reply);
    unsigned int n = 0;
    EXPECT_EQ(usb->read(buf.data(), 10, n), ZError(1, "CommsUsb::readChunk: read error"));
    sender.join();
    ASSERT_EQ(unit.records().outs.size(), 1u);
    EXPECT_EQ(unit.records().outs[0].data, cmd);
    EXPECT_EQ(usb->write(buf.data(), 10, n), ZError(1, "CommsUsb::write: write error"));
    EXPECT_FALSE(usb->disconnect());
    EXPECT_EQ(usb->connect("T"), ZError(1, "Tavro unit not found"));
}

#else

TEST(CommsUsbDevice, NeedsUmockdev) {
    GTEST_SKIP() << TAVRO_USB_SKIP;
}

#endif
