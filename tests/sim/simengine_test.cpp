// The simulated unit driven by a client Tavro over a loopback pair: identity
// and records, login rules, the file system, faults, the state file, reboot
// with firmware installation, and the smaller calls.

#include "api/zoaptest.h"
#include "simharness.h"
#include "simstate.h"

#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace simtest;

namespace {

ZString tempPath(const char* name) {
    const char* dir = getenv("TAVRO_TEST_TMP");
    ZString d = dir ? dir : "/tmp";
    mkdir(d.str(), 0777);
    ZString path = d + "/" + name + "-" + ZString(int(getpid()));
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

void writeBytes(const ZString& path, const std::vector<uint8_t>& b) {
    FILE* f = fopen(path.str(), "wb");
    ASSERT_TRUE(f);
    if (!b.empty())
        fwrite(b.data(), 1, b.size(), f);
    fclose(f);
}

FileData fileData(const char* text) {
    FileData d;
    d.length = uint32_t(strlen(text));
    memcpy(d.data, text, d.length);
    return d;
}

// Writes bytes to a unit file through the client, 512 at a time.
ZError upload(Client& client, const ZString& name, const std::vector<uint8_t>& bytes) {
    unsigned int handle = 0;
    ZError err = client.fileOpen(name, "w", handle);
    for (size_t at = 0; !err && at < bytes.size(); at += 512) {
        FileData d;
        d.length = uint32_t(std::min<size_t>(512, bytes.size() - at));
        memcpy(d.data, bytes.data() + at, d.length);
        err = client.fileWrite(handle, unsigned(at), d);
    }
    return err ? err : client.fileClose(handle);
}

// Polls ok() every 20 ms for at most ms milliseconds.
template <class F>
bool eventually(F ok, int ms = 3000) {
    for (int waited = 0; !ok(); waited += 20) {
        if (waited >= ms)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

} // namespace

TEST(SimEngine, IdentityRecordsAndStatusPushes) {
    struct Case {
        const char* serial;
        const char* software;
        const char* api;
        bool pushes;
    } cases[] = {{"T400-000001", "1.0.8", "1.0", true},
                 {"T400-123456", "1.0.7", "1.3", false},
                 {"T400-000042", "2.0.0", "2.1", true}};
    for (const Case& k : cases) {
        SCOPED_TRACE(k.software);
        SimOptions o;
        o.serial = k.serial;
        o.software = k.software;
        o.api = k.api;
        Rig rig(o);
        NodeInfo n;
        ASSERT_FALSE(rig.client.getNodeInfo(n));
        EXPECT_STREQ(n.serialNumber, k.serial);
        EXPECT_EQ(ZString().printf("%u.%u.%u", n.softwareVersion.ver0, n.softwareVersion.ver1,
                                   n.softwareVersion.ver2),
                  k.software);
        EXPECT_EQ(ZString().printf("%u.%u", n.apiVersion.maj, n.apiVersion.mid), k.api);
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
        for (unsigned int c = 0; c < 16; c++) {
            ChannelConfig ch;
            ASSERT_FALSE(rig.client.getChannelConfig(c, ch));
            EXPECT_EQ(ch.number, c);
            EXPECT_EQ(ZString(ch.id), ZString().printf(c < 8 ? "AI%u" : "DI%u", c % 8));
            EXPECT_EQ(ch.type, c < 8 ? ChannelType::AnalogueIn : ChannelType::DigitalIn);
            if (c < 8) {
                EXPECT_EQ(ch.calibScale, b.calibAdcScales[c]);
            }
        }
        ChannelConfig ch;
        EXPECT_EQ(rig.client.getChannelConfig(16, ch), ZError(22, "Channel number out of range"));
        NodeStatus s;
        ASSERT_FALSE(rig.client.getStatus(s));
        EXPECT_EQ(s.mode, Mode::Idle);
        EXPECT_NEAR(double(s.time.getMicroSeconds()), double(ZTimeUs::now().getMicroSeconds()),
                    2e6);
        if (k.pushes) {
            EXPECT_TRUE(rig.client.waitFor([&] { return rig.client.statuses > 0; }, 2500));
        }
        if (k.pushes && &k == cases) {
            rig.unit.faultStopStatus(true);
            rig.client.waitFor([] { return false; }, 50);
            int before = rig.client.statusCount();
            rig.client.waitFor([] { return false; }, 1300);
            EXPECT_EQ(rig.client.statusCount(), before);
        } else if (!k.pushes) {
            rig.client.waitFor([] { return false; }, 1300);
            EXPECT_EQ(rig.client.statusCount(), 0);
        }
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
    const ZError denied(13, "Access denied: login required");
    Configuration c;
    ASSERT_FALSE(rig.client.getConfig(c));
    // What each call gives while nobody is logged in, per security mode.
    struct Case {
        SecurityMode mode;
        bool readDenied, changeDenied;
    } cases[] = {{SecurityMode::Basic, false, false},
                 {SecurityMode::Config, false, true},
                 {SecurityMode::Full, true, true}};
    for (const Case& k : cases) {
        SCOPED_TRACE(int(k.mode));
        c.securityMode = k.mode;
        ASSERT_FALSE(rig.client.login("admin", "tavro"));
        ASSERT_FALSE(rig.client.setConfig(c));
        ASSERT_FALSE(rig.client.logout());
        EXPECT_FALSE(rig.unit.loggedIn());
        for (int loggedIn = 0; loggedIn < 2; loggedIn++) {
            Configuration got;
            NodeInfo n;
            NodeStatus s;
            unsigned int handle = 0;
            bool readOk = loggedIn || !k.readDenied, changeOk = loggedIn || !k.changeDenied;
            EXPECT_FALSE(rig.client.getNodeInfo(n));
            EXPECT_EQ(n.securityMode, k.mode);
            EXPECT_FALSE(rig.client.getStatus(s));
            EXPECT_EQ(rig.client.getConfig(got), readOk ? ZError() : denied);
            EXPECT_EQ(rig.client.setConfig(c), changeOk ? ZError() : denied);
            EXPECT_EQ(rig.client.setMeasurementConfig(true, rig.unit.measurementConfig()),
                      changeOk ? ZError() : denied);
            EXPECT_EQ(rig.client.setMode(Mode::Idle), readOk ? ZError() : denied);
            EXPECT_EQ(rig.client.fileOpen("/internal/data/x.txt", "w", handle),
                      changeOk ? ZError() : denied);
            if (changeOk) {
                EXPECT_FALSE(rig.client.fileClose(handle));
            }
            EXPECT_EQ(rig.client.fileDelete("/internal/data/x.txt"), changeOk ? ZError() : denied);
            ASSERT_FALSE(rig.client.login("admin", "tavro"));
            EXPECT_TRUE(rig.unit.loggedIn());
        }
        ASSERT_FALSE(rig.client.logout());
    }
    EXPECT_EQ(rig.client.login("admin", "wrong"), ZError(13, "Invalid user or password"));
    EXPECT_EQ(rig.client.login("nobody", "tavro"), ZError(13, "Invalid user or password"));
    EXPECT_EQ(rig.client.changePassword("admin", "wrong", "new"),
              ZError(13, "Invalid user or password"));
    EXPECT_EQ(rig.client.changePassword("admin", "tavro", ""), ZError(22, "Invalid new password"));
    ASSERT_FALSE(rig.client.changePassword("admin", "tavro", "s3cret"));
    EXPECT_TRUE(rig.client.login("admin", "tavro"));
    ASSERT_FALSE(rig.client.login("admin", "s3cret"));
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
    FilesysInfo fs;
    ASSERT_FALSE(rig.client.filesysInfo("/internal", fs));
    EXPECT_STREQ(fs.name, "/internal");
    EXPECT_EQ(fs.size, 64u << 20);
    EXPECT_EQ(fs.free, fs.size);
    EXPECT_EQ(rig.client.filesysInfo("/sdcard", fs), ZError(19, "No such device"));
    bool card = true;
    ASSERT_FALSE(rig.client.getSwitch(1, card));
    EXPECT_FALSE(card);

    unsigned int h = 0, h2 = 0;
    ASSERT_FALSE(rig.client.fileOpen("/internal/data/a.csv", "w", h));
    std::string text(700, 'x');
    text[0] = 'A';
    text[699] = 'Z';
    FileData d = fileData(text.substr(0, 512).c_str());
    ASSERT_FALSE(rig.client.fileWrite(h, 0, d));
    d = fileData(text.substr(512).c_str());
    ASSERT_FALSE(rig.client.fileWrite(h, 512, d));
    d.length = 513; // more than a FileData holds
    EXPECT_EQ(rig.client.fileWrite(h, 700, d), ZError(22, "Invalid length"));
    d.length = 1;
    EXPECT_EQ(rig.client.fileWrite(h, 702, d), ZError(22, "Invalid offset"));
    EXPECT_EQ(rig.client.fileRead(h, 0, 512, d), ZError(9, "Bad file handle"));
    ASSERT_FALSE(rig.client.fileClose(h));
    EXPECT_EQ(rig.client.fileClose(h), ZError(9, "Bad file handle"));
    ASSERT_FALSE(rig.client.fileOpen("/internal/data/empty", "w", h2));
    ASSERT_FALSE(rig.client.fileClose(h2));

    struct Entry {
        const char* folder;
        unsigned int index;
        ZError err;
        const char* name;
        FileType type;
        uint64_t length;
    } list[] = {
        {"/internal", 0, ZError(), "data", FileType::Dir, 0},
        {"/internal", 1, ZError(14, "No more files"), "", FileType::None, 0},
        {"/internal/data", 0, ZError(), "a.csv", FileType::File, 700},
        {"/internal/data", 1, ZError(), "empty", FileType::File, 0},
        {"/internal/data", 2, ZError(14, "No more files"), "", FileType::None, 0},
        {"/internal/nothing", 0, ZError(2, "No such file or directory"), "", FileType::None, 0},
        {"/internal/../x", 0, ZError(22, "Invalid path"), "", FileType::None, 0},
        {"/sdcard/data", 0, ZError(19, "No such device"), "", FileType::None, 0},
        {"relative", 0, ZError(22, "Invalid path"), "", FileType::None, 0},
    };
    for (const Entry& e : list) {
        FileInfo info;
        ZError err = rig.client.fileList(e.folder, e.index, info);
        EXPECT_EQ(err, e.err) << e.folder << " " << e.index;
        if (!err) {
            EXPECT_STREQ(info.name, e.name);
            EXPECT_EQ(info.fileType, e.type);
            EXPECT_EQ(info.fileLength, e.length);
        }
    }

    ASSERT_FALSE(rig.client.fileOpen("/internal/data/a.csv", "r", h));
    struct Read {
        unsigned int offset, length, got;
        ZError err;
    } reads[] = {{0, 512, 512, ZError()},
                 {512, 512, 188, ZError()},
                 {690, 4, 4, ZError()},
                 {0, 100000, 512, ZError()},
                 {700, 512, 0, ZError(14, "End of file")}};
    for (const Read& r : reads) {
        FileData got;
        EXPECT_EQ(rig.client.fileRead(h, r.offset, r.length, got), r.err) << r.offset;
        EXPECT_EQ(got.length, r.got);
        if (got.length) {
            EXPECT_EQ(memcmp(got.data, text.data() + r.offset, got.length), 0);
        }
    }
    EXPECT_EQ(rig.client.fileWrite(h, 0, d), ZError(9, "Bad file handle"));
    EXPECT_EQ(rig.client.fileDelete("/internal/data/a.csv"), ZError(16, "File is open"));
    ASSERT_FALSE(rig.client.fileClose(h));
    ASSERT_FALSE(rig.client.fileOpen("/internal/data/empty", "r", h));
    EXPECT_EQ(rig.client.fileRead(h, 0, 512, d), ZError(14, "End of file"));
    ASSERT_FALSE(rig.client.fileClose(h));
    EXPECT_EQ(rig.client.fileOpen("/internal/data/none", "r", h),
              ZError(2, "No such file or directory"));
    EXPECT_EQ(rig.client.fileOpen("/internal/data/a.csv", "x", h), ZError(22, "Invalid mode"));
    EXPECT_EQ(rig.client.fileOpen("/internal/data", "w", h), ZError(21, "Is a directory"));
    ASSERT_FALSE(rig.client.filesysInfo("/internal", fs));
    EXPECT_EQ(fs.free, fs.size - 700);

    ASSERT_FALSE(rig.client.fileDelete("/internal/data/empty"));
    EXPECT_EQ(rig.client.fileDelete("/internal/data/empty"),
              ZError(2, "No such file or directory"));
    EXPECT_EQ(rig.client.fileDelete("/internal/data"), ZError(21, "Is a directory"));
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

    // With a card, "/sdcard" is there too.
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
    struct Case {
        unsigned int garbage;
        uint16_t failing;
        unsigned int delayUs;
        uint16_t status;
        uint16_t length;
    } cases[] = {{0, 0, 0, 0, 120}, {8, 0, 0, 0, 120}, {21, 0, 0, 0, 120},
                 {0, 8, 0, 1, 56},  {0, 7, 0, 0, 120}, {0, 0, 150000, 0, 120}};
    for (const Case& k : cases) {
        raw.unit.faultGarbage(k.garbage, 1);
        raw.unit.faultErrorReply(k.failing, ZError(-5, "Injected"));
        raw.unit.faultDelayReplies(k.delayUs);
        auto begin = std::chrono::steady_clock::now();
        ASSERT_FALSE(send(*raw.clientEnd, packet(8)));
        Bytes junk = readN(*raw.clientEnd, k.garbage);
        ASSERT_EQ(junk.size(), k.garbage);
        for (size_t i = 0; i + 1 < junk.size(); i++)
            EXPECT_FALSE(junk[i] == 0x5A && junk[i + 1] == 0x55);
        Bytes reply = readN(*raw.clientEnd, k.length);
        ASSERT_EQ(reply.size(), k.length);
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::microseconds(k.delayUs));
        EXPECT_EQ(reply[0] | reply[1] << 8, 0x555A);
        EXPECT_EQ(reply[2] | reply[3] << 8, k.length);
        EXPECT_EQ(reply[4] | reply[5] << 8, 2);      // back to the requester
        EXPECT_EQ(reply[8] | reply[9] << 8, 0x8008); // getStatus reply
        EXPECT_EQ(reply[10] | reply[11] << 8, k.status);
        if (k.status) {
            EXPECT_EQ(Bytes(reply.begin() + 16, reply.end()), errorRecord(-5, "Injected"));
        }
        EXPECT_TRUE(drain(*raw.clientEnd, 1000).empty());
    }
    raw.unit.faultErrorReply(0, ZError());
    raw.unit.faultDelayReplies(0);

    // Through a client: eight garbage bytes are skipped, the error reply is
    // the call's result.
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
    // Last, as a late reply leaves the client's channel out of step: a reply
    // held back beyond the client's time-out.
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

    // A good image, then broken ones.
    TavroSim::SimState state;
    ASSERT_FALSE(state.init(o));
    std::vector<uint8_t> good;
    state.image(good);
    auto resum = [](std::vector<uint8_t> b) {
        uint32_t c = crc32(b.data(), b.size() - 4);
        memcpy(b.data() + b.size() - 4, &c, 4);
        return b;
    };
    auto patched = [&](size_t at, uint8_t v) {
        std::vector<uint8_t> b = good;
        b[at] = v;
        return resum(b);
    };
    const size_t config = 16 + 8; // the first section's record
    std::vector<uint8_t> truncated(good.begin(), good.begin() + 100);
    std::vector<uint8_t> longer = good;
    longer.insert(longer.end() - 4, 4, 0);
    std::vector<uint8_t> unsummed = good;
    unsummed[config + 38] = 1;
    struct Case {
        std::vector<uint8_t> bytes;
        const char* reason;
    } cases[] = {
        {std::vector<uint8_t>(), "not a unit state file"},
        {patched(0, 'X'), "not a unit state file"},
        {patched(8, 2), "unsupported version"},
        {unsummed, "checksum error"},
        {resum(truncated), "truncated"},
        {resum(longer), "trailing bytes"},
        {patched(16, 9), "unknown section 9"},
        {patched(21, 0), "bad section 1"},
        {patched(config + 38, 9), "Invalid logData"},
        {patched(config + 37, 3), "Invalid securityMode"},
    };
    for (const Case& k : cases) {
        writeBytes(o.stateFile, k.bytes);
        SimUnit unit(o);
        EXPECT_EQ(unit.status(), ZError(1, "Bad state file " + o.stateFile + ": " + k.reason));
    }
    writeBytes(o.stateFile, good);
    SimUnit unit(o);
    EXPECT_FALSE(unit.status());
    unlink(o.stateFile.str());
}

TEST(SimEngine, RebootInstallsFirmwareAndFactoryResetRestoresDefaults) {
    SimOptions o = fastOptions();
    o.rebootMs = 800; // long enough to be seen away
    Rig rig(o);
    // A main-processor image carries its version at 512 + 13.
    std::vector<uint8_t> image(2000, 0xEE);
    const uint8_t header[16] = {0x00, 0x3E, 0x5D, 0x7C, 0, 0, 0, 0, 0, 0, 0, 0, 33, 1, 2, 3};
    memcpy(image.data() + 512, header, 16);
    ASSERT_FALSE(upload(rig.client, "FirmwareCpu", image));
    unsigned int h;
    EXPECT_EQ(rig.client.fileOpen("FirmwareCpu", "r", h), ZError(22, "Invalid mode"));
    Configuration c;
    ASSERT_FALSE(rig.client.getConfig(c));
    setCharArray(c.name, "Renamed");
    ASSERT_FALSE(rig.client.setConfig(c));

    struct Step {
        bool reset;
        const char* version;
        const char* name;
    } steps[] = {{false, "1.2.3", "Renamed"}, {true, "1.2.3", "Tavro-40x"}};
    for (const Step& s : steps) {
        ASSERT_FALSE(rig.client.factoryReset(s.reset, false));
        EXPECT_FALSE(rig.ended());
        EXPECT_TRUE(rig.unit.rebooting());
        rig.connect(); // serves once the unit is back
        NodeInfo n;
        ASSERT_FALSE(rig.client.getNodeInfo(n));
        EXPECT_EQ(ZString().printf("%u.%u.%u", n.softwareVersion.ver0, n.softwareVersion.ver1,
                                   n.softwareVersion.ver2),
                  s.version);
        ASSERT_FALSE(rig.client.getConfig(c));
        EXPECT_STREQ(c.name, s.name);
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
    // The clock follows sendTime.
    ZTimeUs t(ZTime(2030, 6, 1, 12, 0, 0));
    ASSERT_FALSE(rig.client.sendTime(t));
    NodeStatus s;
    ASSERT_FALSE(rig.client.getStatus(s)); // served after sendTime
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
    ASSERT_TRUE(eventually([&] {
        return !rig.client.getStatus(s) && s.wifiStatus == uint8_t(WifiStatus::ConnectedInternet);
    }));
    Information info;
    ASSERT_FALSE(rig.client.getInformation(info));
    EXPECT_EQ(info.wifiAddress, 0xC0A8013Au);
    EXPECT_TRUE(rig.client.waitFor([&] {
        for (const ZString& m : rig.client.messages)
            if (m == "3:Wifi connected to Korvel-Lab")
                return true;
        return false;
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
    struct Form {
        DataType type;
        uint16_t channels, samples;
    } forms[] = {{DataType::Raw40x, 9, 13}, {DataType::Float32, 16, 7}};
    for (const Form& f : forms) {
        DataBlock b;
        ASSERT_FALSE(rig.client.measure(f.type, b));
        EXPECT_EQ(b.type, f.type);
        EXPECT_EQ(b.numChannels, f.channels);
        EXPECT_EQ(b.numSamples, f.samples);
        EXPECT_NEAR(b.data[7] * ai7.calibScale, -1.5, 1e-5);
        if (f.type == DataType::Float32) {
            EXPECT_EQ(b.data[8 + 0], 1.0f); // DI0 of 0xA5
        }
    }
    DataBlock b;
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
