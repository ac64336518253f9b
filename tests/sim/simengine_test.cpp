// The simulated unit driven by a client Tavro over a loopback pair.

#include "simharness.h"
#include "simstate.h"

#include <cstdlib>
#include <fstream>
#include <unistd.h>

using namespace simtest;

namespace {

uint32_t crc32(const uint8_t* p, size_t n) {
    uint32_t c = 0xFFFFFFFF;
    for (size_t i = 0; i < n; i++) {
        c ^= p[i];
        for (int k = 0; k < 8; k++)
            c = (c >> 1) ^ (0xEDB88320 & (0 - (c & 1)));
    }
    return ~c;
}

FileData fileData(const std::string& text) {
    FileData d;
    d.length = uint32_t(text.size());
    memcpy(d.data, text.data(), d.length);
    return d;
}

} // namespace

TEST(SimEngine, IdentityRecordsAndStatusPushes) {
    // serial, software, api; "1.0.7" predates the status pushes.
    const char* good[][3] = {{"T400-000001", "1.0.8", "1.0"}, {"T400-123456", "1.0.7", "1.3"}};
    for (auto& k : good) {
        SCOPED_TRACE(k[1]);
        SimOptions o;
        std::tie(o.serial, o.software, o.api) = std::tie(k[0], k[1], k[2]);
        Rig rig(o);
        NodeInfo n;
        ASSERT_FALSE(rig.client.getNodeInfo(n));
        EXPECT_STREQ(n.serialNumber, k[0]);
        const Version& v = n.softwareVersion;
        EXPECT_EQ(ZString().printf("%u.%u.%u", v.ver0, v.ver1, v.ver2), k[1]);
        EXPECT_EQ(ZString().printf("%u.%u", n.apiVersion.maj, n.apiVersion.mid), k[2]);
        Information i;
        BoardConfig b;
        ASSERT_FALSE(rig.client.getInformation(i) || rig.client.getBoardConfig(b));
        EXPECT_EQ(i.numChannels, 16);
        ChannelConfig ch;
        for (unsigned int c = 0; c < 16; c++) {
            ASSERT_FALSE(rig.client.getChannelConfig(c, ch));
            EXPECT_EQ(ZString(ch.id), ZString().printf(c < 8 ? "AI%u" : "DI%u", c % 8));
            EXPECT_EQ(ch.type, c < 8 ? ChannelType::AnalogueIn : ChannelType::DigitalIn);
            EXPECT_TRUE(c >= 8 || ch.calibScale == b.calibAdcScales[c]) << c;
        }
        EXPECT_EQ(rig.client.getChannelConfig(16, ch), ZError(22, "Channel number out of range"));
        if (&k == good) {
            EXPECT_TRUE(rig.client.waitFor([&] { return rig.client.statuses > 0; }, 2500));
        } else {
            EXPECT_FALSE(rig.client.waitFor([&] { return rig.client.statuses > 0; }, 1300));
        }
    }
    const char* bad[][3] = {{"", "1.0.8", "1.0"},
                            {"T400-0000001", "1.0.8", "1.0"},
                            {"T400-1", "1.0", "1.0"},
                            {"T400-1", "1.0.256", "1.0"},
                            {"T400-1", "1.0.8", "1.0.0"}};
    for (auto& k : bad) {
        SimOptions o;
        std::tie(o.serial, o.software, o.api) = std::tie(k[0], k[1], k[2]);
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
        ASSERT_FALSE(rig.client.login("admin", "tavro") || rig.client.setConfig(c) ||
                     rig.client.logout());
        for (int loggedIn = 0; loggedIn < 2; loggedIn++) {
            Configuration got;
            NodeStatus s;
            unsigned int handle = 0;
            bool readOk = loggedIn || !readDenied, changeOk = loggedIn || !changeDenied;
            EXPECT_FALSE(rig.client.getStatus(s));
            EXPECT_EQ(rig.client.getConfig(got), readOk ? ok : denied);
            EXPECT_EQ(rig.client.setConfig(c), changeOk ? ok : denied);
            EXPECT_EQ(rig.client.setMode(Mode::Idle), readOk ? ok : denied);
            EXPECT_EQ(rig.client.fileOpen("/internal/data/x.txt", "w", handle),
                      changeOk ? ok : denied);
            EXPECT_TRUE(!changeOk || !rig.client.fileClose(handle));
            ASSERT_FALSE(rig.client.login("admin", "tavro"));
        }
        ASSERT_FALSE(rig.client.logout());
    }
    const ZError invalid(13, "Invalid user or password");
    EXPECT_EQ(rig.client.login("admin", "wrong"), invalid);
    EXPECT_EQ(rig.client.changePassword("admin", "tavro", ""), ZError(22, "Invalid new password"));
    // No old password: only for the user logged in on this link.
    EXPECT_EQ(rig.client.changePassword("admin", "", "s3cret"), invalid);
    ASSERT_FALSE(rig.client.changePassword("admin", "tavro", "s3cret"));
    EXPECT_TRUE(rig.client.login("admin", "tavro"));
    ASSERT_FALSE(rig.client.login("admin", "s3cret"));
    ASSERT_FALSE(rig.client.changePassword("admin", "", "tavro"));
    // One link at a time; a new link starts logged out.
    ZCommsLoopback other;
    EXPECT_EQ(rig.unit.serve(other), ZError(16, "Unit already connected"));
    rig.unit.dropConnection();
    EXPECT_EQ(rig.ended(), ZError(5, "Connection dropped"));
    EXPECT_EQ(rig.client.getConfig(c).number, -32);
    rig.connect();
    EXPECT_EQ(rig.unit.links(), 2u);
    EXPECT_FALSE(rig.unit.loggedIn());
    EXPECT_EQ(rig.client.getConfig(c), denied);
}

TEST(SimEngine, FileSystem) {
    SimOptions o = fastOptions();
    Rig rig(o);
    const ZError badHandle(9, "Bad file handle"), eof(14, "End of file"),
        noFile(2, "No such file or directory"), isDir(21, "Is a directory"),
        noMore(14, "No more files"), badPath(22, "Invalid path"), noDevice(19, "No such device");
    FilesysInfo fs;
    ASSERT_FALSE(rig.client.filesysInfo("/internal", fs));
    EXPECT_EQ(fs.size, 64u << 20);
    EXPECT_EQ(fs.free, fs.size);
    EXPECT_EQ(rig.client.filesysInfo("/sdcard", fs), noDevice);
    unsigned int h = 0;
    ASSERT_FALSE(rig.client.fileOpen("/internal/data/a.csv", "w", h));
    std::string text = "A" + std::string(698, 'x') + "Z";
    ASSERT_FALSE(rig.client.fileWrite(h, 0, fileData(text.substr(0, 512))));
    FileData d = fileData(text.substr(512));
    ASSERT_FALSE(rig.client.fileWrite(h, 512, d));
    d.length = 513; // more than a FileData holds
    EXPECT_EQ(rig.client.fileWrite(h, 700, d), ZError(22, "Invalid length"));
    d.length = 1;
    EXPECT_EQ(rig.client.fileWrite(h, 702, d), ZError(22, "Invalid offset"));
    EXPECT_EQ(rig.client.fileRead(h, 0, 512, d), badHandle);
    ASSERT_FALSE(rig.client.fileClose(h));
    EXPECT_EQ(rig.client.fileClose(h), badHandle);
    ASSERT_FALSE(rig.client.fileOpen("/internal/data/empty", "w", h) || rig.client.fileClose(h));
    // folder, index: error, name, type, length
    const std::tuple<const char*, unsigned int, ZError, const char*, FileType, uint64_t> list[] = {
        {"/internal", 0, ZError(), "data", FileType::Dir, 0},
        {"/internal/data", 0, ZError(), "a.csv", FileType::File, 700},
        {"/internal/data", 1, ZError(), "empty", FileType::File, 0},
        {"/internal/data", 2, noMore, "", FileType::None, 0},
        {"/internal/nothing", 0, noFile, "", FileType::None, 0},
        {"/internal/../x", 0, badPath, "", FileType::None, 0},
        {"relative", 0, badPath, "", FileType::None, 0},
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
    EXPECT_EQ(rig.client.fileDelete("/internal/data/a.csv"), ZError(16, "File is open"));
    ASSERT_FALSE(rig.client.fileClose(h));
    EXPECT_EQ(rig.client.fileOpen("/internal/data/none", "r", h), noFile);
    EXPECT_EQ(rig.client.fileOpen("/internal/data/a.csv", "x", h), ZError(22, "Invalid mode"));
    EXPECT_EQ(rig.client.fileOpen("/internal/data", "w", h), isDir);
    ASSERT_FALSE(rig.client.filesysInfo("/internal", fs));
    EXPECT_EQ(fs.free, fs.size - 700);
    ASSERT_FALSE(rig.client.fileDelete("/internal/data/empty"));
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
    EXPECT_EQ(fs.size, 256u << 20);
}

TEST(SimEngine, StateFileKeepsRecordsAndRefusesBadOnes) {
    SimOptions o = fastOptions();
    const char* dir = getenv("TAVRO_TEST_TMP");
    o.stateFile = ZString(dir ? dir : "/tmp") + "/simstate-" + ZString(int(getpid()));
    unlink(o.stateFile.str());
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
        {image(8, 2), "unsupported version"},
        {image(config + 38, 1, 0, false), "checksum error"},
        {image(-1, 0, -100), "truncated"},
        {image(16, 9), "unknown section 9"},
        {image(config + 38, 9), "Invalid logData"},
        {good, nullptr},
    };
    for (auto& [bytes, reason] : cases) {
        std::ofstream(o.stateFile.str(), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), long(bytes.size()));
        EXPECT_EQ(SimUnit(o).status(),
                  reason ? ZError(1, "Bad state file " + o.stateFile + ": " + reason) : ZError());
    }
    unlink(o.stateFile.str());
}

TEST(SimEngine, RebootKeepsRecordsFactoryResetRestoresThem) {
    SimOptions o = fastOptions();
    o.rebootMs = 800; // long enough to be seen away
    Rig rig(o);
    Configuration c;
    ASSERT_FALSE(rig.client.getConfig(c));
    setCharArray(c.name, "Renamed");
    ASSERT_FALSE(rig.client.setConfig(c));
    for (bool reset : {false, true}) {
        ASSERT_FALSE(rig.client.factoryReset(reset, false));
        EXPECT_FALSE(rig.ended());
        EXPECT_TRUE(rig.unit.rebooting());
        rig.connect(); // serves once the unit is back
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
}
