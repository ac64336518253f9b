// Firmware packages: validation, hostile section lengths, the update
// decision, and uploads to a recording unit and to a simulated one.
#include "api/tavropair.h"
#include "api/unitstest.h"
#include "dfu.h"
#include "zfirmbuild.h"
#include "zfirmupload.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <mutex>
#include <string>

using namespace TavroApi;
typedef std::vector<uint8_t> Bytes;

namespace {

ZString fileOf(const std::string& name, const Bytes& bytes) {
    std::string dir = getenv("TAVRO_TEST_TMP") ? getenv("TAVRO_TEST_TMP") : "/tmp";
    EXPECT_EQ(system(("mkdir -p '" + dir + "'").c_str()), 0);
    EXPECT_FALSE(zfirmWriteFile((dir + "/" + name).c_str(), bytes));
    return (dir + "/" + name).c_str();
}

const ZFirmwareVersion V123 = {1, 2, 3};
Bytes image(uint32_t platform, size_t n) {
    return zfirmBuildImage(uint8_t(platform), V123, n);
}
// Patches a little-endian word of a byte image.
Bytes patched(Bytes b, size_t at, uint32_t value) {
    zfirmPut32(b.data() + at, value);
    return b;
}

// A unit that keeps what is written to its files.
class Recorder : public Tavro {
public:
    Recorder(bool threaded, unsigned int maxPacket) : Tavro(threaded, maxPacket) {}
    ZError fileOpenServe(const ZString& name, const ZString& mode, unsigned int& handle) override {
        std::lock_guard<std::mutex> lock(m);
        log += std::string("open ") + name.str() + " " + mode.str() + ";";
        handle = 7;
        start = data.size();
        return ZError();
    }
    ZError fileWriteServe(const unsigned int& handle, const unsigned int& offset,
                          const FileData& d) override {
        std::lock_guard<std::mutex> lock(m);
        if (handle != 7 || start + offset != data.size())
            return ZError(22, "Invalid offset");
        pieces.push_back(d.length);
        data.insert(data.end(), d.data, d.data + d.length);
        return ZError();
    }
    ZError fileCloseServe(const unsigned int& handle) override {
        std::lock_guard<std::mutex> lock(m);
        log += "close " + std::to_string(handle) + ";";
        return ZError();
    }
    ZError fileDeleteServe(const ZString& path) override {
        std::lock_guard<std::mutex> lock(m);
        log += std::string("delete ") + path.str() + ";";
        return ZError();
    }
    std::mutex m;
    std::string log;
    Bytes data; // of every upload
    size_t start = 0;
    std::vector<uint32_t> pieces;
};

} // namespace

// Packages for the first section's platform (zfirmValidate) and raw
// main-processor images (Dfu::validateFile); the update decision.
TEST(Firmware, ValidationAndUpdateCheck) {
    const Bytes good = zfirmBuildPackage(V123, {{ZFirmwarePlatformCpu, image(34, 600)}});
    const Bytes raw = zfirmBuildImage(Dfu::PlatformTavro40x, V123, 528);
    const struct {
        bool dfu;
        Bytes bytes;
        const char* text;
    } rows[] = {
        {false, good, ""},
        {false, Bytes(good.begin(), good.begin() + 127), "File format error"},
        {false, patched(good, 0, 0x01524F4C), "Not a firmware file"},
        {false, patched(good, 16, 34), "Not a firmware file for this platform"},
        {false, zfirmBuildPackage(V123, {{35, image(35, 9)}, {34, image(34, 9)}}),
         "Not a firmware file for this platform"},
        {true, raw, ""},
        {true, Bytes(raw.begin(), raw.end() - 1), "File read error"},
        {true, patched(raw, 512, 0x7C5D3E01), "Not a firmware file"},
        {true, zfirmBuildImage(34, V123, 528), "Not a Tavro-40x firmware file"},
    };
    int n = 0;
    for (const auto& r : rows) {
        ZString version = "unset", file = fileOf("v" + std::to_string(n++), r.bytes);
        ZError e = r.dfu ? Dfu::validateFile(file, 33, version) : zfirmValidate(file, 34, version);
        EXPECT_EQ(e, *r.text ? ZError(r.text) : ZError()) << n;
        EXPECT_STREQ(version.str(), *r.text ? "unset" : "1.2.3") << n;
    }
    ZString version;
    EXPECT_EQ(zfirmValidate("/nonexistent/x.zfirm", 34, version), ZError("Unable to open file"));
    ZFirmwareFileHeader h;
    h.fromBytes(good.data());
    // The unit's version, force, update.
    const uint8_t checks[][5] = {
        {1, 2, 3, 0, 0}, {1, 2, 3, 1, 1}, {2, 2, 3, 0, 1}, {1, 3, 3, 0, 1}, {1, 2, 4, 0, 1}};
    for (const auto& c : checks) {
        Version v;
        v.type = 9; // not compared
        v.ver0 = c[0], v.ver1 = c[1], v.ver2 = c[2];
        EXPECT_EQ(firmwareUpdateCheck(h, v, c[3]), bool(c[4])) << int(c[0]) << c[1] << c[2];
    }
}

// The wanted section, found after another platform's, goes in pieces of at
// most 512 bytes; bad packages are refused; the unit's file is closed and
// deleted when the upload is cancelled half way.
TEST(Firmware, UploadToARecordingUnit) {
    zoaptest::TavroPair<Recorder> pair(zoaptest::Transport::Tcp, true);
    ASSERT_FALSE(pair.joined);
    pair.start();
    const Bytes cpu = image(34, 3 * 512 + 100), fpga = image(35, 1000);
    const Bytes pkg =
        zfirmBuildPackage(V123, {{ZFirmwarePlatformFpga, fpga}, {ZFirmwarePlatformCpu, cpu}});
    std::vector<std::string> texts;
    double last = -1;
    ZFirmwareUpload upload(&pair.client);
    upload.setProgress([&](const ZString& text, double done) {
        if (texts.empty() || texts.back() != text.str())
            texts.push_back(text.str());
        last = done;
        return true;
    });
    ASSERT_FALSE(upload.upload(fileOf("two.zfirm", pkg), ZFirmwarePlatformCpu));
    EXPECT_EQ(texts, (std::vector<std::string>{"Validadting firmware", "Uploading: FirmwareCpu"}));
    EXPECT_EQ(last, 1.0);
    const Bytes cpuOnly = zfirmBuildPackage(V123, {{ZFirmwarePlatformCpu, image(34, 700)}});
    upload.setProgress([](const ZString&, double done) { return done < 0.5; });
    EXPECT_EQ(upload.upload(fileOf("cancel.zfirm", cpuOnly), 34), ZError("Upload cancelled"));
    {
        std::lock_guard<std::mutex> lock(pair.unit.m);
        const size_t at = 64 + 64 + fpga.size(); // the section's header, then its image
        EXPECT_EQ(Bytes(pair.unit.data.begin(), pair.unit.data.end() - 512),
                  Bytes(pkg.begin() + long(at), pkg.end()));
        EXPECT_EQ(pair.unit.pieces, (std::vector<uint32_t>{512, 512, 512, 164, 512}));
        EXPECT_EQ(pair.unit.log,
                  "open FirmwareCpu w;close 7;open FirmwareCpu w;close 7;delete FirmwareCpu;");
    }
    const Bytes fpgaOnly = zfirmBuildPackage(V123, {{ZFirmwarePlatformFpga, image(35, 700)}});
    const char* past = "Currupt firmware file: section runs past the end of the file";
    const struct {
        const char* name;
        Bytes bytes;
        uint32_t platform;
        const char* text;
    } rows[] = {
        {"p37.zfirm", cpuOnly, 37, "Uknown platform"},
        {"header.zfirm", Bytes(cpuOnly.begin(), cpuOnly.begin() + 63), 34, "Invalid firmware file"},
        {"type.zfirm", patched(cpuOnly, 16, 32), 34, "Invalid firmware file"},
        {"missing.zfirm", fpgaOnly, 34, "FirmwareCpu: firmware not found in file"},
        {"cut.zfirm", Bytes(fpgaOnly.begin(), fpgaOnly.begin() + 64 + 63), 35,
         "FirmwareFpga: firmware not found in file"},
        {"magic.zfirm", patched(fpgaOnly, 64, 0x01524F4C), 34, "Currupt firmware file"},
        {"huge.zfirm", patched(fpgaOnly, 64 + 8, 0xFFFFFFFF), 34, past},
        {"past.zfirm", patched(cpuOnly, 64 + 8, 701), 34, past},
        {"/nonexistent.zfirm", {}, 34, "Unable to open file"},
    };
    for (const auto& r : rows) {
        const ZString file = r.bytes.empty() ? ZString(r.name) : fileOf(r.name, r.bytes);
        EXPECT_EQ(ZFirmwareUpload(&pair.client).upload(file, r.platform), ZError(r.text)) << r.name;
    }
    EXPECT_EQ(ZFirmwareUpload(nullptr).upload("x.zfirm", 34), ZError("Not connected"));
}

TEST(Firmware, SimulatedUnitInstallsAtReboot) {
    unitstest::Sim sim;
    unitstest::Group group;
    ASSERT_FALSE(group.connectAll({sim.url()}));
    const ZString file = fileOf("all.zfirm", zfirmBuildPackageAll({2, 7, 9}, 5000));
    for (uint32_t p : {ZFirmwarePlatformCpu, ZFirmwarePlatformFpga, ZFirmwarePlatformWifi})
        ASSERT_FALSE(ZFirmwareUpload(group.unitMaster()).upload(file, p)) << p;
    EXPECT_EQ(sim.unit.nodeInfo().softwareVersion.ver1, 0); // not before the reboot
    // A cancelled upload takes back what the unit had staged for its target.
    const Version wifiBefore = sim.unit.nodeInfo().wifiVersion;
    ZFirmwareUpload cancelled(group.unitMaster());
    cancelled.setProgress([](const ZString&, double done) { return done < 0.5; });
    EXPECT_EQ(cancelled.upload(file, ZFirmwarePlatformWifi), ZError("Upload cancelled"));
    group.unitMaster()->factoryReset(false, false);
    group.unitsDisconnect();
    ASSERT_TRUE(unitstest::eventually([&] { return !sim.unit.rebooting(); }));
    ASSERT_FALSE(group.unitsConnect());
    NodeInfo info;
    ASSERT_FALSE(group.unitMaster()->getNodeInfo(info));
    for (const Version& v : {info.softwareVersion, info.fpgaVersion})
        EXPECT_EQ(ZString().printf("%u.%u.%u", v.ver0, v.ver1, v.ver2), "2.7.9");
    EXPECT_EQ(info.wifiVersion.ver1, wifiBefore.ver1);
    EXPECT_EQ(info.wifiVersion.ver2, wifiBefore.ver2);
}
