// The simulated unit driven by a client Tavro over a loopback pair.

#include "api/zoaptest.h"
#include "simharness.h"
#include "simstate.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace simtest;

namespace {

ZString tempPath(const char* name) {
    const char* dir = getenv("TAVRO_TEST_TMP");
    mkdir(dir ? dir : "/tmp", 0777);
    ZString path = ZString(dir ? dir : "/tmp") + "/" + name + "-" + ZString(int(getpid()));
    unlink(path.str());
    return path;
}

uint32_t crc32(const uint8_t* p, size_t n) {
    uint32_t c = 0xFFFFFFFF;
    for (size_t i = 0; i < n; i++) {
        c ^= p[i];
        for (int k = 0; k < 8; k++)
            c = (c >> 1) ^ (0xEDB88320 & (0 - (c & 1)));
    }
    return ~c;
}

ZString version(const NodeInfo& n) {
    return ZString().printf("%u.%u.%u", n.softwareVersion.ver0, n.softwareVersion.ver1,
                            n.softwareVersion.ver2);
}

FileData fileData(const std::string& text) {
    FileData d;
    d.length = uint32_t(text.size());
    memcpy(d.data, text.data(), d.length);
    return d;
}

} // namespace

TEST(SimEngine, IdentityRecordsAndStatusPushes) {
    // serial, software, api, pushes status ("1.0.7" predates the pushes).
    const char* good[][4] = {{"T400-000001", "1.0.8", "1.0", "y"},
                             {"T400-123456", "1.0.7", "1.3", ""},
                             {"T400-000042", "2.0.0", "2.1", "y"}};
    for (auto& k : good) {
        SCOPED_TRACE(k[1]);
        SimOptions o;
        o.serial = k[0];
        o.software = k[1];
        o.api = k[2];
        Rig rig(o);
        NodeInfo n;
        ASSERT_FALSE(rig.client.getNodeInfo(n));
        EXPECT_STREQ(n.serialNumber, k[0]);
        EXPECT_EQ(version(n), k[1]);
        EXPECT_EQ(ZString().printf("%u.%u", n.apiVersion.maj, n.apiVersion.mid), k[2]);
        Information i;
        BoardConfig b;
        ASSERT_FALSE(rig.client.getInformation(i));
        ASSERT_FALSE(rig.client.getBoardConfig(b));
        EXPECT_EQ(i.numChannels, 16);
        EXPECT_EQ(memcmp(i.networkMacAddress, b.macAddress, 6), 0);
        EXPECT_EQ(b.macAddress[0], 0x70);
        EXPECT_EQ(i.wifiMacAddress[5], b.macAddress[5] | 1);
        EXPECT_EQ(i.networkAddress, 0xC0A80139u); // 192.168.1.57 from DHCP
        EXPECT_EQ(i.calibTime, b.calibTime);
        ChannelConfig ch;
        for (unsigned int c = 0; c < 16; c++) {
            ASSERT_FALSE(rig.client.getChannelConfig(c, ch));
            EXPECT_EQ(ch.number, c);
            EXPECT_EQ(ZString(ch.id), ZString().printf(c < 8 ? "AI%u" : "DI%u", c % 8));
            EXPECT_EQ(ch.type, c < 8 ? ChannelType::AnalogueIn : ChannelType::DigitalIn);
            EXPECT_TRUE(c >= 8 || ch.calibScale == b.calibAdcScales[c]) << c;
        }
        EXPECT_EQ(rig.client.getChannelConfig(16, ch), ZError(22, "Channel number out of range"));
        NodeStatus s;
        ASSERT_FALSE(rig.client.getStatus(s));
        EXPECT_EQ(s.mode, Mode::Idle);
        EXPECT_NEAR(double(s.time.getMicroSeconds()), double(ZTimeUs::now().getMicroSeconds()),
                    2e6);
        if (*k[3]) {
            EXPECT_TRUE(rig.client.waitFor([&] { return rig.client.statuses > 0; }, 2500));
            if (&k != good)
                continue;
            rig.unit.faultStopStatus(true); // the first one is also stopped
            rig.client.waitFor([] { return false; }, 50);
        }
        int before = rig.client.statusCount();
        rig.client.waitFor([] { return false; }, 1300);
        EXPECT_EQ(rig.client.statusCount(), before);
        EXPECT_TRUE(*k[3] || before == 0);
    }

    const char* bad[][3] = {{"", "1.0.8", "1.0"},         {"T400-0000001", "1.0.8", "1.0"},
                            {"T400-1", "1.0", "1.0"},     {"T400-1", "1.0.x", "1.0"},
                            {"T400-1", "1.0.256", "1.0"}, {"T400-1", "1.0.8", "1"},
                            {"T400-1", "1.0.8", "1.0.0"}};
    for (auto& k : bad) {
        SimOptions o;
        o.serial = k[0];
        o.software = k[1];
        o.api = k[2];
        SimUnit unit(o);
        ZCommsLoopback a, b;
        ZCommsLoopback::connectPair(a, b);
        EXPECT_EQ(unit.status().number, 1) << k[0] << " " << k[1] << " " << k[2];
        EXPECT_EQ(unit.serve(b), unit.status());
    }
}

TEST(SimEngine, LoginRulesBySecurityMode) {
    Rig rig;
    const ZError denied(13, "Access denied: login required"), ok;
    Configuration c;
    ASSERT_FALSE(rig.client.getConfig(c));
    // Per security mode, whether reading and changing are denied while logged out.
    const std::tuple<SecurityMode, bool, bool> cases[] = {{SecurityMode::Basic, false, false},
                                                          {SecurityMode::Config, false, true},
                                                          {SecurityMode::Full, true, true}};
    for (auto [mode, readDenied, changeDenied] : cases) {
        SCOPED_TRACE(int(mode));
        c.securityMode = mode;
        ASSERT_FALSE(rig.client.login("admin", "tavro"));
        ASSERT_FALSE(rig.client.setConfig(c));
        ASSERT_FALSE(rig.client.logout());
        EXPECT_FALSE(rig.unit.loggedIn());
        for (int loggedIn = 0; loggedIn < 2; loggedIn++) {
            Configuration got;
            NodeInfo n;
            NodeStatus s;
            unsigned int handle = 0;
            bool readOk = loggedIn || !readDenied, changeOk = loggedIn || !changeDenied;
            EXPECT_FALSE(rig.client.getNodeInfo(n));
            EXPECT_EQ(n.securityMode, mode);
            EXPECT_FALSE(rig.client.getStatus(s));
            EXPECT_EQ(rig.client.getConfig(got), readOk ? ok : denied);
            EXPECT_EQ(rig.client.setConfig(c), changeOk ? ok : denied);
            EXPECT_EQ(rig.client.setMeasurementConfig(true, rig.unit.measurementConfig()),
                      changeOk ? ok : denied);
            EXPECT_EQ(rig.client.setMode(Mode::Idle), readOk ? ok : denied);
            EXPECT_EQ(rig.client.fileOpen("/internal/data/x.txt", "w", handle),
                      changeOk ? ok : denied);
            EXPECT_TRUE(!changeOk || !rig.client.fileClose(handle));
            EXPECT_EQ(rig.client.fileDelete("/internal/data/x.txt"), changeOk ? ok : denied);
            ASSERT_FALSE(rig.client.login("admin", "tavro"));
            EXPECT_TRUE(rig.unit.loggedIn());
        }
        ASSERT_FALSE(rig.client.logout());
    }
    const ZError invalid(13, "Invalid user or password");
    EXPECT_EQ(rig.client.login("admin", "wrong"), invalid);
    EXPECT_EQ(rig.client.login("nobody", "tavro"), invalid);
    EXPECT_EQ(rig.client.changePassword("admin", "wrong", "new"), invalid);
    EXPECT_EQ(rig.client.changePassword("admin", "tavro", ""), ZError(22, "Invalid new password"));
    // No old password: only for the user logged in on this link.
    EXPECT_EQ(rig.client.changePassword("admin", "", "s3cret"), invalid);
    ASSERT_FALSE(rig.client.changePassword("admin", "tavro", "s3cret"));
    EXPECT_TRUE(rig.client.login("admin", "tavro"));
    ASSERT_FALSE(rig.client.login("admin", "s3cret"));
    EXPECT_EQ(rig.client.changePassword("nobody", "", "x"), invalid);
    ASSERT_FALSE(rig.client.changePassword("admin", "", "tavro"));
    ASSERT_FALSE(rig.client.login("admin", "tavro"));
    // A new link starts logged out.
    rig.unit.dropConnection();
    EXPECT_EQ(rig.ended(), ZError(5, "Connection dropped"));
    rig.connect();
    EXPECT_FALSE(rig.unit.loggedIn());
    EXPECT_EQ(rig.client.getConfig(c), denied);
}

TEST(SimEngine, FileSystem) {
    SimOptions o = fastOptions();
    Rig rig(o);
    const ZError badHandle(9, "Bad file handle"), eof(14, "End of file"),
        noFile(2, "No such file or directory"), isDir(21, "Is a directory");
    FilesysInfo fs;
    ASSERT_FALSE(rig.client.filesysInfo("/internal", fs));
    EXPECT_STREQ(fs.name, "/internal");
    EXPECT_EQ(fs.size, 64u << 20);
    EXPECT_EQ(fs.free, fs.size);
    EXPECT_EQ(rig.client.filesysInfo("/sdcard", fs), ZError(19, "No such device"));
    bool card = true;
    ASSERT_FALSE(rig.client.getSwitch(1, card));
    EXPECT_FALSE(card);

    unsigned int h = 0;
    ASSERT_FALSE(rig.client.fileOpen("/internal/data/a.csv", "w", h));
    std::string text = "A" + std::string(698, 'x') + "Z";
    FileData d = fileData(text.substr(0, 512));
    ASSERT_FALSE(rig.client.fileWrite(h, 0, d));
    d = fileData(text.substr(512));
    ASSERT_FALSE(rig.client.fileWrite(h, 512, d));
    d.length = 513; // more than a FileData holds
    EXPECT_EQ(rig.client.fileWrite(h, 700, d), ZError(22, "Invalid length"));
    d.length = 1;
    EXPECT_EQ(rig.client.fileWrite(h, 702, d), ZError(22, "Invalid offset"));
    EXPECT_EQ(rig.client.fileRead(h, 0, 512, d), badHandle);
    ASSERT_FALSE(rig.client.fileClose(h));
    EXPECT_EQ(rig.client.fileClose(h), badHandle);
    ASSERT_FALSE(rig.client.fileOpen("/internal/data/empty", "w", h));
    ASSERT_FALSE(rig.client.fileClose(h));

    // folder, index: error, name, type, length
    const std::tuple<const char*, unsigned int, ZError, const char*, FileType, uint64_t> list[] = {
        {"/internal", 0, ZError(), "data", FileType::Dir, 0},
        {"/internal", 1, ZError(14, "No more files"), "", FileType::None, 0},
        {"/internal/data", 0, ZError(), "a.csv", FileType::File, 700},
        {"/internal/data", 1, ZError(), "empty", FileType::File, 0},
        {"/internal/data", 2, ZError(14, "No more files"), "", FileType::None, 0},
        {"/internal/nothing", 0, noFile, "", FileType::None, 0},
        {"/internal/../x", 0, ZError(22, "Invalid path"), "", FileType::None, 0},
        {"/sdcard/data", 0, ZError(19, "No such device"), "", FileType::None, 0},
        {"relative", 0, ZError(22, "Invalid path"), "", FileType::None, 0},
    };
    for (auto& [folder, index, error, name, type, length] : list) {
        FileInfo info;
        ZError err = rig.client.fileList(folder, index, info);
        EXPECT_EQ(err, error) << folder << " " << index;
        EXPECT_TRUE(err || (ZString(info.name) == name && info.fileType == type &&
                            info.fileLength == length))
            << folder << " " << index;
    }

    ASSERT_FALSE(rig.client.fileOpen("/internal/data/a.csv", "r", h));
    // offset, length asked, length got; the last one is past the end.
    const unsigned int reads[][3] = {
        {0, 512, 512}, {512, 512, 188}, {690, 4, 4}, {0, 100000, 512}, {700, 512, 0}};
    for (auto& r : reads) {
        FileData got;
        EXPECT_EQ(rig.client.fileRead(h, r[0], r[1], got), r[2] ? ZError() : eof) << r[0];
        EXPECT_EQ(got.length, r[2]);
        EXPECT_EQ(memcmp(got.data, text.data() + r[0], got.length), 0);
    }
    EXPECT_EQ(rig.client.fileWrite(h, 0, d), badHandle);
    EXPECT_EQ(rig.client.fileDelete("/internal/data/a.csv"), ZError(16, "File is open"));
    ASSERT_FALSE(rig.client.fileClose(h));
    ASSERT_FALSE(rig.client.fileOpen("/internal/data/empty", "r", h));
    EXPECT_EQ(rig.client.fileRead(h, 0, 512, d), eof);
    ASSERT_FALSE(rig.client.fileClose(h));
    EXPECT_EQ(rig.client.fileOpen("/internal/data/none", "r", h), noFile);
    EXPECT_EQ(rig.client.fileOpen("/internal/data/a.csv", "x", h), ZError(22, "Invalid mode"));
    EXPECT_EQ(rig.client.fileOpen("/internal/data", "w", h), isDir);
    ASSERT_FALSE(rig.client.filesysInfo("/internal", fs));
    EXPECT_EQ(fs.free, fs.size - 700);

    ASSERT_FALSE(rig.client.fileDelete("/internal/data/empty"));
    EXPECT_EQ(rig.client.fileDelete("/internal/data/empty"), noFile);
    EXPECT_EQ(rig.client.fileDelete("/internal/data"), isDir);
    ASSERT_FALSE(rig.unit.writeFile("/internal/top.txt", {1, 2, 3}));
    EXPECT_EQ(rig.client.filesysDelete("/internal", FilesysDeleteType::None),
              ZError(22, "Invalid delete type"));
    ASSERT_FALSE(rig.client.filesysDelete("/internal", FilesysDeleteType::Data));
    EXPECT_TRUE(rig.unit.fileNames("/internal/data").isEmpty());
    EXPECT_EQ(rig.unit.fileNames("/internal").number(), 2); // data, top.txt
    ASSERT_FALSE(rig.client.filesysDelete("/internal", FilesysDeleteType::Format));
    EXPECT_EQ(rig.unit.fileNames("/internal").number(), 1);

    for (int i = 0; i < 8; i++)
        ASSERT_FALSE(rig.client.fileOpen(ZString("/internal/data/f") + ZString(i), "w", h));
    EXPECT_EQ(rig.client.fileOpen("/internal/data/f8", "w", h), ZError(23, "Too many open files"));

    o.sdcard = true;
    Rig withCard(o);
    ASSERT_FALSE(withCard.client.filesysInfo("/sdcard/data", fs));
    EXPECT_STREQ(fs.name, "/sdcard");
    EXPECT_EQ(fs.size, 256u << 20);
    ASSERT_FALSE(withCard.client.getSwitch(1, card));
    EXPECT_TRUE(card);
}

TEST(SimEngine, FaultsOnTheLink) {
    using namespace zoaptest;
    // Garbage in front of a reply, error replies and delays, seen raw.
    SimOptions quiet = fastOptions();
    quiet.software = "1.0.7"; // nothing pushed between the replies
    Rig raw(quiet, false);
    raw.clientEnd->setTimeout(1000000);
    // garbage bytes, failing function, delay in us, reply status, reply length
    const unsigned int cases[][5] = {{0, 0, 0, 0, 120}, {8, 0, 0, 0, 120}, {21, 0, 0, 0, 120},
                                     {0, 8, 0, 1, 56},  {0, 7, 0, 0, 120}, {0, 0, 150000, 0, 120}};
    for (auto& k : cases) {
        raw.unit.faultGarbage(k[0], 1);
        raw.unit.faultErrorReply(uint16_t(k[1]), ZError(-5, "Injected"));
        raw.unit.faultDelayReplies(k[2]);
        auto begin = std::chrono::steady_clock::now();
        ASSERT_FALSE(send(*raw.clientEnd, packet(8)));
        Bytes junk = readN(*raw.clientEnd, k[0]);
        ASSERT_EQ(junk.size(), k[0]);
        for (size_t i = 0; i + 1 < junk.size(); i++)
            EXPECT_FALSE(junk[i] == 0x5A && junk[i + 1] == 0x55);
        Bytes reply = readN(*raw.clientEnd, k[4]);
        ASSERT_EQ(reply.size(), k[4]);
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::microseconds(k[2]));
        auto u16 = [&](int at) { return unsigned(reply[at] | reply[at + 1] << 8); };
        EXPECT_EQ(u16(0), 0x555Au);
        EXPECT_EQ(u16(2), k[4]);
        EXPECT_EQ(u16(4), 2u);      // back to the requester
        EXPECT_EQ(u16(8), 0x8008u); // getStatus reply
        EXPECT_EQ(u16(10), k[3]);
        if (k[3]) {
            EXPECT_EQ(Bytes(reply.begin() + 16, reply.end()), errorRecord(-5, "Injected"));
        }
        EXPECT_TRUE(drain(*raw.clientEnd, 1000).empty());
    }

    // Through a client: garbage is skipped, an error reply is the call's result.
    Rig rig;
    NodeStatus s;
    rig.unit.faultGarbage(8, 2);
    EXPECT_FALSE(rig.client.getStatus(s));
    EXPECT_FALSE(rig.client.getStatus(s));
    rig.unit.faultErrorReply(TavroFn::getConfig, ZError(64, "System"));
    Configuration c;
    EXPECT_EQ(rig.client.getConfig(c), ZError(64, "System"));
    rig.unit.faultErrorReply(0, ZError());

    // The link is closed after the given number of data blocks.
    rig.unit.faultDropAfterBlocks(5);
    ZError err = rig.start(measurement(MeasureMode::Continuous, 1000, 0, 13), 2);
    ASSERT_FALSE(err) << err.number << " " << err.str();
    EXPECT_EQ(rig.ended(), ZError(5, "Connection dropped"));
    rig.client.waitFor([] { return false; }, 50);
    EXPECT_EQ(rig.client.rawCopy().size(), 5u);
    EXPECT_EQ(rig.client.getStatus(s).number, -32);
    uint64_t sent = rig.unit.blocksSent();
    rig.connect();
    EXPECT_EQ(rig.unit.links(), 2u);
    rig.client.clear();
    ASSERT_FALSE(rig.client.sendDataEnable(3));
    ASSERT_TRUE(rig.client.waitFor([&] { return rig.client.blocks.size() >= 10; }));
    EXPECT_GT(rig.unit.blocksSent(), sent);
    ZCommsLoopback other;
    EXPECT_EQ(rig.unit.serve(other), ZError(16, "Unit already connected"));
    // Last, as a late reply leaves the client's channel out of step.
    rig.unit.faultDelayReplies(300000);
    rig.client.setTimeout(100000);
    NodeInfo n;
    EXPECT_EQ(rig.client.getNodeInfo(n), ZError(4, "Timeout"));
    rig.unit.faultDelayReplies(0);
}

TEST(SimEngine, StateFileKeepsRecordsAndRefusesBadOnes) {
    SimOptions o = fastOptions();
    o.stateFile = tempPath("simstate");
    {
        Rig rig(o);
        Configuration c;
        ASSERT_FALSE(rig.client.getConfig(c));
        setCharArray(c.name, "Bench 7");
        ASSERT_FALSE(rig.client.setConfig(c));
        ChannelConfig ch;
        ASSERT_FALSE(rig.client.getChannelConfig(3, ch));
        setCharArray(ch.name, "Pump current");
        ch.calibScale = 99.0; // the unit keeps its own calibration
        ASSERT_FALSE(rig.client.setChannelConfig(3, ch));
        ASSERT_FALSE(rig.client.changePassword("admin", "tavro", "kept"));
    }
    {
        Rig rig(o);
        ASSERT_FALSE(rig.unit.status());
        EXPECT_STREQ(rig.unit.configuration().name, "Bench 7");
        EXPECT_STREQ(rig.unit.channelConfig(3).name, "Pump current");
        EXPECT_NE(rig.unit.channelConfig(3).calibScale, 99.0);
        EXPECT_FALSE(rig.client.login("admin", "kept"));
    }

    TavroSim::SimState state;
    ASSERT_FALSE(state.init(o));
    std::vector<uint8_t> good;
    state.image(good);
    // A copy with bytes [at] = v (at < 0: none), cut or lengthened by grow, re-summed if asked.
    auto image = [&](long at, uint8_t v, long grow = 0, bool sum = true) {
        std::vector<uint8_t> b = good;
        if (at >= 0)
            b[size_t(at)] = v;
        if (grow < 0)
            b.resize(size_t(-grow));
        b.insert(b.end() - 4, size_t(std::max(grow, 0L)), 0);
        uint32_t c = crc32(b.data(), b.size() - 4);
        if (sum)
            memcpy(b.data() + b.size() - 4, &c, 4);
        return b;
    };
    const long config = 16 + 8; // the first section's record
    const std::pair<std::vector<uint8_t>, const char*> cases[] = {
        {{}, "not a unit state file"},
        {image(0, 'X'), "not a unit state file"},
        {image(8, 2), "unsupported version"},
        {image(config + 38, 1, 0, false), "checksum error"},
        {image(-1, 0, -100), "truncated"},
        {image(-1, 0, 4), "trailing bytes"},
        {image(16, 9), "unknown section 9"},
        {image(21, 0), "bad section 1"},
        {image(config + 38, 9), "Invalid logData"},
        {image(config + 37, 3), "Invalid securityMode"},
    };
    for (auto& [bytes, reason] : cases) {
        std::ofstream(o.stateFile.str(), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), long(bytes.size()));
        SimUnit unit(o);
        EXPECT_EQ(unit.status(), ZError(1, "Bad state file " + o.stateFile + ": " + reason));
    }
    std::ofstream(o.stateFile.str(), std::ios::binary)
        .write(reinterpret_cast<const char*>(good.data()), long(good.size()));
    EXPECT_FALSE(SimUnit(o).status());
    unlink(o.stateFile.str());
}

TEST(SimEngine, RebootInstallsFirmwareAndFactoryResetRestoresDefaults) {
    SimOptions o = fastOptions();
    o.rebootMs = 800; // long enough to be seen away
    Rig rig(o);
    // A main-processor image carries its version at 512 + 13; sent 512 bytes at a time.
    std::vector<uint8_t> image(2000, 0xEE);
    const uint8_t header[16] = {0x00, 0x3E, 0x5D, 0x7C, 0, 0, 0, 0, 0, 0, 0, 0, 33, 1, 2, 3};
    memcpy(image.data() + 512, header, 16);
    unsigned int h = 0;
    ASSERT_FALSE(rig.client.fileOpen("FirmwareCpu", "w", h));
    for (size_t at = 0; at < image.size(); at += 512) {
        std::string part(image.begin() + long(at),
                         image.begin() + long(std::min(at + 512, image.size())));
        ASSERT_FALSE(rig.client.fileWrite(h, unsigned(at), fileData(part)));
    }
    ASSERT_FALSE(rig.client.fileClose(h));
    EXPECT_EQ(rig.client.fileOpen("FirmwareCpu", "r", h), ZError(22, "Invalid mode"));
    Configuration c;
    ASSERT_FALSE(rig.client.getConfig(c));
    setCharArray(c.name, "Renamed");
    ASSERT_FALSE(rig.client.setConfig(c));

    // A plain reboot keeps the records, a factory reset restores them.
    for (bool reset : {false, true}) {
        ASSERT_FALSE(rig.client.factoryReset(reset, false));
        EXPECT_FALSE(rig.ended());
        EXPECT_TRUE(rig.unit.rebooting());
        rig.connect(); // serves once the unit is back
        NodeInfo n;
        ASSERT_FALSE(rig.client.getNodeInfo(n));
        EXPECT_EQ(version(n), "1.2.3");
        ASSERT_FALSE(rig.client.getConfig(c));
        EXPECT_STREQ(c.name, reset ? "Tavro-40x" : "Renamed");
    }
    // A unit set to run autonomously starts its capture when it boots.
    c.mode = Mode::Run;
    ASSERT_FALSE(rig.client.setConfig(c));
    rig.unit.reboot();
    EXPECT_FALSE(rig.ended());
    rig.connect();
    EXPECT_EQ(rig.unit.mode(), Mode::Run);
    MeasurementConfig m;
    ASSERT_FALSE(rig.client.getMeasurementConfig(true, m));
    EXPECT_EQ(m.measureMode, MeasureMode::Continuous);
}

TEST(SimEngine, SmallerCalls) {
    SimOptions o = fastOptions();
    o.debug = true;
    Rig rig(o);
    ZTimeUs t(ZTime(2030, 6, 1, 12, 0, 0));
    ASSERT_FALSE(rig.client.sendTime(t));
    NodeStatus s;
    ASSERT_FALSE(rig.client.getStatus(s));
    EXPECT_GE(s.time.getMicroSeconds(), t.getMicroSeconds());
    EXPECT_LT(s.time.getMicroSeconds() - t.getMicroSeconds(), 1000000u);

    // WiFi: nothing while off, four access points after a scan, connecting to one.
    unsigned int n = 9;
    ASSERT_FALSE(rig.client.wifiAccesspointNum(n));
    EXPECT_EQ(n, 0u);
    ASSERT_FALSE(rig.client.wifiCommand(WifiCmd::Scan));
    ASSERT_FALSE(rig.client.wifiAccesspointNum(n));
    EXPECT_EQ(n, 4u);
    WifiAccessPoint ap;
    ASSERT_FALSE(rig.client.wifiAccesspointInfo(0, ap));
    EXPECT_STREQ(ap.name, "Korvel-Lab");
    EXPECT_EQ(rig.client.wifiAccesspointInfo(4, ap), ZError(22, "No such access point"));
    EXPECT_EQ(rig.client.wifiCommand(WifiCmd::Connect), ZError(22, "No access point set"));
    Configuration c;
    ASSERT_FALSE(rig.client.getConfig(c));
    c.wifiMode = WifiMode::Client;
    setCharArray(c.wifiAp0, "Korvel-Lab");
    ASSERT_FALSE(rig.client.setConfig(c));
    ASSERT_FALSE(rig.client.getStatus(s));
    EXPECT_EQ(s.wifiStatus, uint8_t(WifiStatus::Connecting));
    bool connected = false;
    for (int i = 0; i < 150 && !connected; i++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        connected =
            !rig.client.getStatus(s) && s.wifiStatus == uint8_t(WifiStatus::ConnectedInternet);
    }
    ASSERT_TRUE(connected);
    Information info;
    ASSERT_FALSE(rig.client.getInformation(info));
    EXPECT_EQ(info.wifiAddress, 0xC0A8013Au);
    EXPECT_TRUE(rig.client.waitFor([&] {
        auto& m = rig.client.messages;
        return std::find(m.begin(), m.end(), ZString("3:Wifi connected to Korvel-Lab")) != m.end();
    }));

    // Digital outputs, relays, switches, analogue outputs.
    c.digitalMode = DigitalMode::Output;
    ASSERT_FALSE(rig.client.setConfig(c));
    ASSERT_FALSE(rig.client.setDigital(0x1A5));
    unsigned int bits = 0;
    ASSERT_FALSE(rig.client.getDigital(bits));
    EXPECT_EQ(bits, 0xA5u);
    bool on = true;
    EXPECT_FALSE(rig.client.setRelay(1, true));
    EXPECT_EQ(rig.client.setRelay(2, true), ZError(22, "Relay number out of range"));
    EXPECT_FALSE(rig.client.getSwitch(0, on));
    EXPECT_FALSE(on);
    EXPECT_EQ(rig.client.getSwitch(2, on), ZError(22, "Switch number out of range"));
    EXPECT_EQ(rig.client.setAnalogueOut(0, 11.0f), ZError(22, "Invalid value"));

    // One block on request, in each form.
    ASSERT_FALSE(rig.client.setAnalogueOut(0, -1.5f));
    ChannelConfig ai7;
    ASSERT_FALSE(rig.client.getChannelConfig(7, ai7));
    const std::tuple<DataType, int, int> forms[] = {{DataType::Raw40x, 9, 13},
                                                    {DataType::Float32, 16, 7}};
    DataBlock b;
    for (auto [type, channels, samples] : forms) {
        ASSERT_FALSE(rig.client.measure(type, b));
        EXPECT_EQ(b.type, type);
        EXPECT_EQ(b.numChannels, channels);
        EXPECT_EQ(b.numSamples, samples);
        EXPECT_NEAR(b.data[7] * ai7.calibScale, -1.5, 1e-5);
    }
    EXPECT_EQ(b.data[8 + 0], 1.0f); // Float32: DI0 of 0xA5
    ASSERT_FALSE(rig.client.measure(DataType::Proc, b));
    DataBlockProc p;
    memcpy(static_cast<void*>(&p), &b, sizeof(p));
    EXPECT_EQ(p.type, DataType::Proc);
    EXPECT_NEAR(p.analogueData[7].mean * ai7.calibScale, -1.5, 1e-5);
    EXPECT_EQ(p.digitalData, 0xA5u);
    EXPECT_EQ(rig.client.measure(DataType(7), b), ZError(22, "Invalid data type"));

    // Calibration stages, refused while a capture runs.
    CalibrateInfo ci;
    ci.stage = uint32_t(CalibrateStage::Clear);
    ASSERT_FALSE(rig.client.calibrate(ci));
    ASSERT_FALSE(rig.client.getChannelConfig(7, ai7));
    EXPECT_EQ(ai7.calibScale, 1.0);
    EXPECT_EQ(rig.unit.boardConfig().calibAdcScales[7], 1.0);
    ci.stage = uint32_t(CalibrateStage::AdcScaling);
    ASSERT_FALSE(rig.client.calibrate(ci));
    EXPECT_NE(rig.unit.channelConfig(7).calibScale, 1.0);
    ci.stage = 14;
    EXPECT_EQ(rig.client.calibrate(ci), ZError(22, "Invalid calibration stage"));
    ASSERT_FALSE(rig.start(measurement(MeasureMode::Continuous, 100, 0), 0));
    ci.stage = uint32_t(CalibrateStage::Clear);
    EXPECT_EQ(rig.client.calibrate(ci), ZError(16, "Measurement running"));
    ASSERT_FALSE(rig.client.setMode(Mode::Idle));
    EXPECT_EQ(rig.client.setMode(Mode(6)), ZError(22, "Invalid mode"));

    // Board tests report through a message; device streams.
    EXPECT_FALSE(rig.client.runBoardTest("adc"));
    EXPECT_EQ(rig.client.runBoardTest("sdcard"), ZError(19, "No such device"));
    EXPECT_EQ(rig.client.runBoardTest("toaster"), ZError(22, "Unknown test"));
    EXPECT_TRUE(rig.client.waitFor([&] {
        return rig.client.messages.size() >= 2 &&
               rig.client.messages.back() == "2:Board test sdcard: failed, No such device";
    }));
    Transact req, rep;
    req.stream = uint8_t(Stream::DigitalI2c);
    req.devAddress = 0x48;
    req.rxNum = 2;
    ASSERT_FALSE(rig.client.transactDev(req, rep));
    EXPECT_EQ(rep.rxNum, 2);
    EXPECT_EQ(rep.data[0], 0x17);
    req.devAddress = 0x50;
    EXPECT_EQ(rig.client.transactDev(req, rep), ZError(6, "No device at address"));
    req.rxNum = 257;
    EXPECT_EQ(rig.client.transactDev(req, rep), ZError(22, "Invalid length"));
    rig.unit.pushMessage(0, "hello");
    EXPECT_TRUE(rig.client.waitFor([&] { return rig.client.messages.back() == "0:hello"; }));
}
