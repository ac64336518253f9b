// Dfu and dfuFlashCpu with the real libusb against an emulated DfuSe boot
// loader (umockdev) whose flash only takes bytes where a sector was erased.

#include "dfu.h"
#include "dfuflash.h"
#include "zfirmbuild.h"
#include "zfirmware.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <mutex>
#include <string>

#if TAVRO_HAVE_UMOCKDEV
#include "comms/usbmock.h"

using usbmock::Bytes;

inline void PrintTo(const ZError& e, std::ostream* os) {
    *os << e.number << " " << e.string;
}

namespace {

struct BootLoader {
    std::mutex m;
    uint8_t state = Dfu::StateIdle;
    uint32_t pointer = 0, manifestPointer = 0;
    uint16_t value = 0;
    Bytes pending, flash = Bytes(0x100000, 0x5A); // sectors 0 to 7, not erased
    std::vector<uint32_t> erased;
    std::vector<size_t> blocks;
    std::string requests; // D dnload, S getstatus, C clrstatus, X detach
    bool manifested = false, staysIdle = false;
    int failBlock = -1; // writing this block fails

    bool execute() {
        uint32_t a = pending.size() == 5 ? zfirmGet32(&pending[1]) : 0;
        if (value == 0 && pending.size() == 5 && pending[0] == 0x21)
            return pointer = a, true;
        for (unsigned int n = 0; value == 0 && pending.size() == 5 && pending[0] == 0x41 && n < 8;
             n++) {
            if (Dfu::sectorAddress(n) == a) {
                erased.push_back(a);
                size_t size = n < 4 ? 0x8000 : n == 4 ? 0x20000 : 0x40000;
                std::fill_n(flash.begin() + (a - Dfu::FlashBase), size, 0xFF);
                return true;
            }
        }
        uint64_t at = pointer + (value - 2) * 2048ull - Dfu::FlashBase;
        if (value < 2 || int(blocks.size()) == failBlock || at + pending.size() > flash.size())
            return false;
        for (size_t i = 0; i < pending.size(); i++)
            if (flash[at + i] != 0xFF)
                return false;
        std::copy(pending.begin(), pending.end(), flash.begin() + long(at));
        blocks.push_back(pending.size());
        return true;
    }

    usbmock::ControlReply handle(const usbmock::Setup& s, const Bytes& out) {
        std::lock_guard<std::mutex> lock(m);
        if (s.requestType == Dfu::TypeOut && s.request == Dfu::RequestDnload) {
            requests += 'D';
            if (state != Dfu::StateIdle && state != Dfu::StateDnloadIdle)
                return state = Dfu::StateError, usbmock::ControlReply{{}, true};
            manifested = out.empty() && s.value >= 2;
            manifestPointer = pointer;
            state = manifested ? Dfu::StateManifest : Dfu::StateDnloadSync;
            value = s.value;
            pending = out;
        } else if (s.requestType == Dfu::TypeIn && s.request == Dfu::RequestGetStatus) {
            requests += 'S';
            if (state == Dfu::StateDnloadSync && !staysIdle)
                state = execute() ? Dfu::StateDnBusy : Dfu::StateError;
            else if (state == Dfu::StateDnBusy)
                state = Dfu::StateDnloadIdle;
            // errPROG in dfuERROR; ask again after 3 ms
            return {{uint8_t(state == Dfu::StateError ? 6 : 0), 3, 0, 0, state, 0}};
        } else if (s.requestType == Dfu::TypeIn && s.request == Dfu::RequestClrStatus) {
            requests += 'C';
            state = Dfu::StateIdle;
        } else if (s.requestType == Dfu::TypeOut && s.request == Dfu::RequestDetach) {
            requests += 'X';
        } else {
            return {{}, true};
        }
        return {};
    }
};

usbmock::UsbMockDevice& plug(usbmock::UsbMockBus& bus, BootLoader& loader) {
    usbmock::DeviceConfig c(Dfu::VendorId, Dfu::ProductId, nullptr);
    // Interface 0: application specific, DFU, DfuSe mode; no endpoints.
    c.configDescriptor = {9, 2, 18, 0, 1, 1, 0, 0x80, 50, 9, 4, 0, 0, 0, 0xFE, 1, 2, 0};
    usbmock::UsbMockDevice& d = bus.addDevice(c);
    d.setControlHandler(
        [&loader](const usbmock::Setup& s, const Bytes& out) { return loader.handle(s, out); });
    return d;
}

ZString imageFile(const char* name, size_t length, Bytes& bytes) {
    std::string dir = getenv("TAVRO_TEST_TMP") ? getenv("TAVRO_TEST_TMP") : "/tmp";
    EXPECT_EQ(system(("mkdir -p '" + dir + "'").c_str()), 0);
    bytes = zfirmBuildImage(Dfu::PlatformTavro40x, {3, 1, 4}, length);
    EXPECT_FALSE(zfirmWriteFile((dir + "/" + name).c_str(), bytes));
    return (dir + "/" + name).c_str();
}

class DfuTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string why = TAVRO_USB_SKIP;
        if (why.empty() && !usbmock::UsbMockBus::available(&why))
            why = "USB emulation unavailable: " + why;
        if (!why.empty())
            GTEST_SKIP() << why;
        bus.reset(new usbmock::UsbMockBus);
    }
    std::unique_ptr<usbmock::UsbMockBus> bus;
    BootLoader loader;
    Bytes image;
};

} // namespace

// The running unit restarts into its boot loader, which comes up in
// dfuERROR. 200 KiB: sectors 0 to 4 (the sixth starts at 0x08040000, past
// the end at 0x08032000) and 100 whole blocks, no short one.
TEST_F(DfuTest, FlashesThroughTheBootLoader) {
    const ZString file = imageFile("cpu200k.bin", 200 * 1024, image);
    bus->addDevice(usbmock::DeviceConfig(0x0483, Dfu::UnitProductId, "T400-000001"));
    loader.state = Dfu::StateError;
    usbmock::UsbMockDevice* device = nullptr;
    DfuFlashOptions options;
    options.pollMs = 1;
    options.startBootloader = [&] { return device = &plug(*bus, loader), ZError(); };
    Dfu dfu;
    ASSERT_EQ(dfuFlashCpu(dfu, file, options), ZError());
    ASSERT_TRUE(device);
    std::lock_guard<std::mutex> lock(loader.m);
    EXPECT_EQ(loader.erased,
              (std::vector<uint32_t>{0x08000000, 0x08008000, 0x08010000, 0x08018000, 0x08020000}));
    EXPECT_EQ(loader.blocks, std::vector<size_t>(100, 2048));
    EXPECT_EQ(Bytes(loader.flash.begin(), loader.flash.begin() + long(image.size())), image);
    EXPECT_EQ(loader.requests.substr(0, 3), "SCD"); // cleared before the first download
    EXPECT_TRUE(loader.manifested);
    EXPECT_EQ(loader.manifestPointer, Dfu::FlashBase);
    EXPECT_EQ(loader.requests.substr(loader.requests.size() - 2), "DX"); // manifest, detach
    EXPECT_EQ(device->records().interfaces,
              (std::vector<std::string>{"claim 0", "alt 0 0", "release 0"}));
}

// No device, then only a running unit that does not start its boot loader;
// then a boot loader taking an image of 3 whole blocks and a short one.
TEST_F(DfuTest, NoBootLoaderThenShortLastBlockAndDeviceErrors) {
    const ZString file = imageFile("cpu-odd.bin", 3 * 2048 + 100, image);
    Dfu dfu;
    bool found = true;
    EXPECT_EQ(dfu.detectDevice(found), ZError("No DFU devices found"));
    EXPECT_FALSE(found);
    EXPECT_EQ(dfu.connect(), ZError("Tavro DFU unit not found"));
    EXPECT_EQ(dfu.upload_cmd(4, 0), ZError("Dfu::upload_cmd: Unknown command"));
    DfuFlashOptions quick;
    quick.polls = 2;
    quick.pollMs = 1;
    int asked = 0;
    quick.startBootloader = [&] { return asked++, ZError(); };
    EXPECT_EQ(dfuFlashCpu(dfu, file, quick),
              ZError("Error: no DFU or Tavro units present on the USB bus"));
    EXPECT_EQ(dfuFlashCpu(dfu, "/nonexistent.bin", quick), ZError("Unable to open file"));
    bus->addDevice(usbmock::DeviceConfig(0x0483, Dfu::UnitProductId, "T400-000001"));
    EXPECT_EQ(dfuFlashCpu(dfu, file, quick), ZError("Error: no DFU units present on the USB bus"));
    EXPECT_EQ(asked, 1);
    plug(*bus, loader);
    ASSERT_EQ(dfu.connect(), ZError());
    ASSERT_EQ(dfu.upload(file, Dfu::PlatformTavro40x), ZError());
    {
        std::lock_guard<std::mutex> lock(loader.m);
        EXPECT_EQ(loader.erased, std::vector<uint32_t>{0x08000000});
        EXPECT_EQ(loader.blocks, (std::vector<size_t>{2048, 2048, 2048, 100}));
        EXPECT_EQ(loader.requests.substr(0, 2), "SD"); // idle: nothing to clear
        loader.state = Dfu::StateIdle;
        loader.failBlock = 5; // the second block of the next upload
    }
    EXPECT_EQ(dfu.upload(file, 34), ZError("Not a Tavro-40x firmware file"));
    EXPECT_EQ(dfu.upload(file, Dfu::PlatformTavro40x), ZError("Upload error: 10"));
    {
        std::lock_guard<std::mutex> lock(loader.m);
        loader.state = Dfu::StateIdle;
        loader.staysIdle = true; // takes a command without going busy
    }
    EXPECT_EQ(dfu.upload_cmd(Dfu::CmdSetAddress, Dfu::FlashBase), ZError("Cmd error not busy"));
    EXPECT_EQ(dfu.disconnect(), ZError());
    DfuStatus status;
    EXPECT_EQ(dfu.getStatus(status), ZError("Dfu::getStatus: Error: not connected"));
}

#else

TEST(DfuTest, Skipped) {
    GTEST_SKIP() << TAVRO_USB_SKIP;
}

#endif
