// One unit, then a group of units, against simulated units served in this process over
// TCP and a pty: URLs and connect failures, the API version check, losing and re-making
// the link, raw block conversion, discovery in a private network namespace; the merge,
// channel routing, call errors, stream limits, drop counting, backlog and load.
#include "simmdns.h"
#include "unitstest.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <fstream>
#include <thread>
#include <vector>

using namespace unitstest;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

// A unit that counts losses and keeps what it would forward.
class Unit : public TavroUnit {
public:
    ~Unit() override { shutdown(); }
    void disconnected() override { lost++; }
    ZError sendDataFloatServe(const DataBlockFloat& b) override {
        return floats.push_back(b), ZError();
    }
    ZError sendDataProcServe(const DataBlockProc&) override { return procs++, ZError(); }
    std::atomic<int> lost{0};
    std::vector<DataBlockFloat> floats; // test thread only: no capture runs
    int procs = 0;
};

DataBlock rawBlock(unsigned int rowWords, unsigned int rows) {
    DataBlock b;
    b.time = 0x1122334455667788ull;
    b.source = 0x0A0B;
    b.status = 0x0C0D;
    b.numChannels = uint16_t(rowWords);
    b.numSamples = uint16_t(rows);
    b.sequence = 0xDEADBEEF;
    b.type = DataType::Raw40x;
    for (unsigned int i = 0; i < unsigned(DataBlock::dataMax); i++)
        b.data[i] = float(i) + 0.5f;
    for (unsigned int r = 0; r < rows && (r + 1) * rowWords <= unsigned(DataBlock::dataMax); r++) {
        uint32_t bits = 0xFFFFFF00u | (0xA5u ^ r); // only the low 8 bits are inputs
        memcpy(&b.data[r * rowWords + 8], &bits, 4);
    }
    return b;
}

// The blocks on stream 0 once the processing thread is through.
std::vector<TavroUnitsDataBlock> drain(Group& g) {
    EXPECT_TRUE(g.dataFlush(2000000));
    std::vector<TavroUnitsDataBlock> v;
    while (TavroUnitsDataBlock* b = g.dataRead(0)) {
        v.push_back(*b);
        g.dataDone(0);
    }
    return v;
}

class SlowGroup : public Group {
public:
    // The units and the processing thread end before this part goes.
    ~SlowGroup() override {
        hold = false;
        stop();
        unitsDisconnect();
    }
    void dataEvent(unsigned int stream) override {
        if (stream != 1)
            return;
        while (hold)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        while (TavroUnitsDataBlock* b = dataRead(1)) {
            if (b->header.sequence < next)
                outOfOrder++;
            next = b->header.sequence + 1;
            taken++;
            dataDone(1);
        }
    }
    std::atomic<bool> hold{true};
    std::atomic<uint64_t> taken{0}, outOfOrder{0};
    uint32_t next = 0;
};

} // namespace

TEST(TavroUnit, ConnectFailuresAndApiVersions) {
    const std::pair<ZString, const char*> cases[] = {
        // URL, start of the stdout line (null: none and an invalid name)
        {"http://127.0.0.1", nullptr},
        {"zoapn:/127.0.0.1", nullptr},
        {"zoapn://", nullptr},
        {"zoapn://127.0.0.1:", nullptr},
        {"zoapn://127.0.0.1:x1", nullptr},
        {"zoapn://127.0.0.1:65536", nullptr},
        {"zoapn://127.0.0.1:0", nullptr},
        {"zoapn://127.0.0.1:1", "Connect error: -111,Connection refused\n"}, // nothing listens
        {"zoaps:///nonexistent/tty", "Connect error: 1,Unable to open serial port\n"},
        {"zoapu://T400-NOSUCHUNIT", "Connect error: 1,"},
    };
    Unit u;
    for (const auto& c : cases) {
        CaptureStdout();
        ZError e = u.connect(c.first);
        std::string out = GetCapturedStdout();
        EXPECT_EQ(
            e, ZError(1, c.second ? ZString("No connection") : "Invalid device name: " + c.first));
        EXPECT_EQ(out.rfind(c.second ? c.second : "", 0), 0u) << out;
        EXPECT_TRUE(c.second || out.empty()) << out;
        EXPECT_FALSE(u.isConnected());
    }
    NodeInfo n;
    EXPECT_EQ(u.getNodeInfo(n).number, 5) << "no transport after a failed connect";
    // A unit of another major API version is refused, another minor is fine.
    SimOptions o = options("T400-000002");
    o.api = "2.0";
    Sim two(o);
    o.api = "1.7";
    Sim newer(o);
    EXPECT_EQ(u.connect(two.url()), ZError(23, "API version 2.0 not supported"));
    EXPECT_FALSE(u.isConnected());
    EXPECT_TRUE(eventually([&] { return two.server.sessions() == 1 && !two.server.serving(); }))
        << "the refused unit's link stays open";
    ASSERT_FALSE(u.connect(newer.url()));
    EXPECT_EQ(u.nodeInfo().apiVersion.mid, 7);
    EXPECT_EQ(u.lost, 0);
    // A unit that takes the link and closes it: the waiting call is woken
    // with "No connection" instead of waiting out its time-out.
    int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a = {};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof(a);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&a), len), 0);
    ASSERT_EQ(listen(listener, 1) | getsockname(listener, reinterpret_cast<sockaddr*>(&a), &len),
              0);
    std::thread closer([listener] { close(accept(listener, nullptr, nullptr)); });
    EXPECT_EQ(u.connect("zoapn://127.0.0.1:" + ZString(unsigned(ntohs(a.sin_port)))),
              ZError(5, "No connection"));
    closer.join();
    close(listener);
    EXPECT_EQ(u.lost, 1);
}

TEST(TavroUnit, ConnectsOverTcpAndPtyAndKeepsCopies) {
    Sim tcp(options("T400-000010"));
    SimUnit ptyUnit(options("T400-000011"));
    TavroSim::SimPty pty(ptyUnit);
    ASSERT_FALSE(pty.start());
    struct {
        ZString url;
        SimUnit& unit;
        const char* serial;
    } links[] = {{tcp.url(), tcp.unit, "T400-000010"},
                 {"zoaps://" + pty.path(), ptyUnit, "T400-000011"}};
    for (const auto& l : links) {
        Unit u;
        ZError e = u.connect(l.url);
        ASSERT_FALSE(e) << l.url << ": " << e.string.str();
        EXPECT_EQ(u.serialNumber(), l.serial);
        EXPECT_EQ(u.info().numChannels, 16);
        for (unsigned int c : {0u, 15u, 16u}) {
            ChannelConfig mine = u.channelConfig(c), theirs = l.unit.channelConfig(c);
            EXPECT_EQ(memcmp(&mine, &theirs, sizeof(mine)), 0) << "channel " << c;
        }
        // The calls that keep copies.
        ChannelConfig c5 = u.channelConfig(5);
        strcpy(c5.name, "renamed");
        ASSERT_FALSE(u.setChannelConfig(5, c5));
        EXPECT_STREQ(u.channelConfig(5).name, "renamed");
        EXPECT_STREQ(l.unit.channelConfig(5).name, "renamed");
        MeasurementConfig m = capture(MeasureMode::Repeat, 100);
        ASSERT_FALSE(u.setMeasurementConfig(false, m));
        EXPECT_EQ(u.measurementConfig().numSamples0, 100u);
        m.numSamples0 = 200;
        ASSERT_FALSE(u.setMeasurementConfig(true, m));
        EXPECT_EQ(u.measurementConfig().numSamples0, 100u) << "the stored one is not in force";
        NodeStatus st;
        EXPECT_FALSE(u.getStatus(st));
        EXPECT_FALSE(u.disconnect());
        EXPECT_EQ(u.getStatus(st).number, 5);
        EXPECT_EQ(u.lost, 0) << "the owner's disconnect is no loss";
    }
}

TEST(TavroUnit, RawBlocksConvertByteForByte) {
    for (unsigned int rowWords : {9u, 10u}) {
        const unsigned int rows = 118 / rowWords;
        DataBlock in = rawBlock(rowWords, rows);
        DataBlockFloat out;
        memset(static_cast<void*>(&out), 0x77, sizeof(out));
        ASSERT_FALSE(TavroUnit::processdataBlock(in, out));
        DataBlockHeader want;
        copyDataBlockHeader(want, in);
        want.numChannels = 16;
        want.type = DataType::Float32;
        EXPECT_EQ(memcmp(&out, &want, sizeof(want)), 0) << "header";
        for (unsigned int s = 0; s < 13; s++)
            for (unsigned int c = 0; c < 16; c++) {
                const float v = s >= rows ? 0.0f
                                : c < 8   ? in.data[s * rowWords + c]
                                          : float(((0xA5u ^ s) >> (c - 8)) & 1);
                ASSERT_EQ(out.data[s * 16 + c], v) << rowWords << " " << s << " " << c;
            }
    }
    // Other types are copied as they are.
    DataBlock proc = rawBlock(16, 1);
    proc.type = DataType::Proc;
    DataBlockFloat out;
    ASSERT_FALSE(TavroUnit::processdataBlock(proc, out));
    EXPECT_EQ(memcmp(&out, &proc, sizeof(proc)), 0);
    // Rows narrower than 9 words or beyond 118 words are refused.
    const unsigned hostile[][2] = {{0, 1},   {8, 13}, {1, 0xFFFF}, {9, 14},
                                   {10, 12}, {59, 3}, {119, 1},    {0xFFFF, 0xFFFF}};
    for (auto h : hostile) {
        DataBlock in = rawBlock(9, 13);
        in.numChannels = uint16_t(h[0]);
        in.numSamples = uint16_t(h[1]);
        EXPECT_EQ(TavroUnit::processdataBlock(in, out), ZError(1, "Invalid data block"))
            << h[0] << "x" << h[1];
    }
    EXPECT_FALSE(TavroUnit::processdataBlock(rawBlock(118, 1), out));
    EXPECT_FALSE(TavroUnit::processdataBlock(rawBlock(59, 2), out));
}

TEST(TavroUnit, PushedBlocksOfWrongSizeAreDroppedWithALine) {
    Sim sim(options("T400-000030"));
    Unit u;
    const struct {
        unsigned int rowWords, rows;
        DataType type;
        const char* line; // null: forwarded
    } cases[] = {
        {9, 13, DataType::Raw40x, nullptr},
        {9, 14, DataType::Raw40x,
         "TavroUnit::sendDataServe: invalid number of samples in block, ignoring block\n"},
        {5, 13, DataType::Raw40x, "TavroUnit::sendDataServe: Invalid data block, ignoring block\n"},
        {9, 1, DataType::Proc, nullptr},
        {9, 1, DataType::Float32, ""}, // ignored without a word
    };
    // Before its channels are known every block is refused.
    CaptureStdout();
    u.sendDataServe(rawBlock(9, 13));
    EXPECT_EQ(GetCapturedStdout(),
              "TavroUnit::sendDataServe: invalid number of channels in block, ignoring block\n");
    ASSERT_FALSE(u.connect(sim.url()));
    for (const auto& c : cases) {
        const size_t before = u.floats.size() + size_t(u.procs);
        DataBlock b = rawBlock(c.rowWords, c.rows);
        b.type = c.type;
        CaptureStdout();
        u.sendDataServe(b);
        EXPECT_EQ(GetCapturedStdout(), c.line ? c.line : "");
        EXPECT_EQ(u.floats.size() + size_t(u.procs), before + (c.line ? 0 : 1)) << c.rowWords;
    }
    EXPECT_EQ(u.procs, 1);
    ASSERT_EQ(u.floats.size(), 1u);
    EXPECT_EQ(u.floats[0].sequence, 0xDEADBEEF);
}

// Run in a child process inside a network namespace of its own, as root:
// the default port is free there, and no discovery query leaves through the
// machine's network card. The child answers for a unit with SimMdns and
// reports what it saw.
std::string namespaceChild() {
    if (unshare(CLONE_NEWNET) != 0)
        return "skip: cannot create a network namespace (needs root)";
    if (system("ip link set lo up >/dev/null 2>&1") != 0 ||
        system("ip route add 224.0.0.0/4 dev lo src 127.0.0.1 >/dev/null 2>&1") != 0)
        return "skip: cannot set up lo in the namespace (iproute2)";
    std::string report;
    {
        SimUnit unit(options("T400-040358"));
        TavroSim::SimTcpServer server(unit);
        Unit u;
        ZError e = server.start("127.0.0.1", 40358);
        if (!e)
            e = u.connect("zoapn://127.0.0.1");
        report = (e ? e.string : u.serialNumber()).str();
    }
    TavroSim::SimMdns responder;
    TavroSim::SimMdnsUnit answer;
    answer.serial = "T400-000777";
    answer.address = 0x7F000001;
    answer.port = 40359;
    ZError e = responder.start(answer, 0x7F000001);
    ZList<TavroUnitDevice> found;
    if (!e)
        e = TavroUnit::findDevicesNetwork(found, 300);
    for (const TavroUnitDevice& d : found)
        report += std::string("; ") + d.type.str() + " " + d.name.str() + " " + d.device.str();
    TavroUnits group;
    group.unitsFind();
    if (TavroUnit1* u = group.unit(1))
        report += std::string("; added ") + u->name().str() + " " + u->url().str();
    return report + (e ? std::string("; ") + e.string.str() : "");
}

TEST(TavroUnit, DefaultPortAndDiscoveryInANamespace) {
    const std::string path = testing::TempDir() + "tavrounit_child.txt";
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        std::ofstream(path) << namespaceChild();
        _exit(0);
    }
    int status = 0;
    if (!eventually([&] { return waitpid(pid, &status, WNOHANG) != 0; }, 20000)) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        FAIL() << "connecting or discovery hangs";
    }
    std::ifstream in(path);
    std::string report((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (report.rfind("skip:", 0) == 0)
        GTEST_SKIP() << report;
    EXPECT_EQ(report, "T400-040358; network T400-000777 zoapn://127.0.0.1:40359; added "
                      "T400-000777 zoapn://127.0.0.1:40359");
}

TEST(TavroUnits, ThreeUnitsMergeInOrderAndRouteChannelCalls) {
    Sim a(options("T400-000101")), b(options("T400-000102")), c(options("T400-000103"));
    Group g;
    ASSERT_FALSE(g.connectAll({a.url(), b.url(), c.url()}));
    EXPECT_EQ(g.numChannels(), 48u);
    EXPECT_EQ(g.unit(2)->serialNumber(), "T400-000102");
    Information info;
    InfoBlock ib;
    ASSERT_FALSE(g.getInformation(info) || g.getInfoBlock(ib));
    EXPECT_EQ(info.numChannels, 48);
    EXPECT_EQ(ib.numChannels, 48);
    // Key 7 lacks unit 3; key 8 is complete but waits behind it.
    TavroUnit1 &u1 = *g.unit(1), &u2 = *g.unit(2), &u3 = *g.unit(3);
    EXPECT_FALSE(g.sendDataFloatQueue(u2, floatBlock(7, 2)));
    EXPECT_FALSE(g.sendDataFloatQueue(u1, floatBlock(7, 1)));
    for (TavroUnit1* u : {&u3, &u1, &u2})
        EXPECT_FALSE(g.sendDataFloatQueue(*u, floatBlock(8, u->number(), 5)));
    EXPECT_TRUE(drain(g).empty()) << "released before unit 3 delivered block 7";
    EXPECT_FALSE(g.sendDataFloatQueue(u3, floatBlock(7, 3)));
    std::vector<TavroUnitsDataBlock> v = drain(g);
    ASSERT_EQ(v.size(), 2u);
    for (size_t i = 0; i < 2; i++) {
        const TavroUnitsDataBlock& m = v[i];
        const unsigned int samples = i == 0 ? 13 : 5, first = i == 0 ? 2 : 3;
        EXPECT_EQ(m.header.sequence, 7 + i);
        EXPECT_EQ(m.unitMask, 7u);
        EXPECT_EQ(m.numChannels, 48u);
        EXPECT_EQ(m.header.numChannels, 48);
        EXPECT_EQ(m.numSamples, samples);
        EXPECT_EQ(m.data.size(), 48u * samples);
        // The header is the first arrival's: unit 2 for key 7, unit 3 for key 8.
        EXPECT_EQ(m.header.status, first);
        EXPECT_EQ(m.header.time, 1000000u * (7 + i) + first);
        for (unsigned int s = 0; s < samples; s++)
            for (unsigned int ch = 0; ch < 48; ch++)
                ASSERT_EQ(m.value(ch, s), float((ch / 16 + 1) * 1000 + s * 16 + ch % 16))
                    << "block " << i << " channel " << ch << " sample " << s;
    }
    EXPECT_GE(g.events, 1);
    // Processed blocks: the master's stand for the group.
    DataBlockProc proc;
    for (TavroUnit1* u : {&u2, &u1, &u3})
        EXPECT_FALSE(g.sendDataProcQueue(*u, proc));
    EXPECT_TRUE(g.dataFlush(2000000));
    EXPECT_EQ(g.dataProcAvailable(0), 1u);
    EXPECT_FALSE(g.dataProcDone(0));
    EXPECT_EQ(g.dataProcRead(0), nullptr);
    EXPECT_EQ(g.lost, 0);
    // Channel calls go to the owning unit with its own channel number.
    struct {
        unsigned int channel;
        SimUnit& unit;
        unsigned int local;
    } routes[] = {{0, a.unit, 0},  {15, a.unit, 15}, {16, b.unit, 0},
                  {20, b.unit, 4}, {35, c.unit, 3},  {47, c.unit, 15}};
    for (auto& r : routes) {
        ChannelConfig cfg;
        ASSERT_FALSE(g.getChannelConfig(r.channel, cfg));
        snprintf(cfg.name, sizeof(cfg.name), "g%u", r.channel);
        ASSERT_FALSE(g.setChannelConfig(r.channel, cfg)) << r.channel;
        EXPECT_STREQ(r.unit.channelConfig(r.local).name, cfg.name) << r.channel;
        ChannelConfig back;
        ASSERT_FALSE(g.getChannelConfig(r.channel, back));
        EXPECT_STREQ(back.name, cfg.name);
    }
    ChannelConfig cfg;
    for (ZError e : {g.getChannelConfig(48, cfg), g.setChannelConfig(1000, cfg)})
        EXPECT_EQ(e, ZError(1, "Channel number out of range"));
    // Unit 2 left out: its channels are gone and unit 3 moves down.
    ASSERT_FALSE(g.unitSetEnabled(2, false));
    EXPECT_EQ(g.numChannels(), 32u);
    ASSERT_FALSE(g.getChannelConfig(20, cfg));
    EXPECT_STREQ(cfg.name, c.unit.channelConfig(4).name);
    // And moved to the front it is the master.
    ASSERT_FALSE(g.unitSetEnabled(2, true));
    ASSERT_FALSE(g.unitSetOrder(2, 1));
    EXPECT_EQ(g.unitMaster()->name(), "u2");
    EXPECT_EQ(g.unit(2)->name(), "u1");
    NodeInfo n;
    ASSERT_FALSE(g.getNodeInfo(n));
    EXPECT_STREQ(n.serialNumber, "T400-000102");
    ASSERT_FALSE(g.getChannelConfig(4, cfg));
    EXPECT_STREQ(cfg.name, "g20");
    // Calls to every unit.
    ASSERT_FALSE(g.login("admin", "tavro"));
    EXPECT_TRUE(a.unit.loggedIn() && b.unit.loggedIn() && c.unit.loggedIn());
    ASSERT_FALSE(g.logout());
    EXPECT_FALSE(a.unit.loggedIn() || b.unit.loggedIn() || c.unit.loggedIn());
    EXPECT_NE(g.login("admin", "wrong").number, 0) << "the first failure comes back";
    // Without multi only the master counts.
    g.setMulti(false);
    EXPECT_EQ(g.numChannels(), 16u);
    ASSERT_FALSE(g.login("admin", "tavro"));
    EXPECT_TRUE(b.unit.loggedIn());
    EXPECT_FALSE(a.unit.loggedIn() || c.unit.loggedIn());
}

TEST(TavroUnits, UnitsAndStreamsRefuseWhatIsNotThere) {
    Group g;
    NodeInfo n;
    ChannelConfig cfg;
    const std::pair<ZError, const char*> cases[] = {
        {g.getNodeInfo(n), "No master unit set"},
        {g.getChannelConfig(0, cfg), "No master unit set"},
        {g.login("admin", "tavro"), "Not connected"},
        {g.unitDelete("nobody"), "Unit not found"},
        {g.unitSetEnabled(1, false), "Unit number not present"},
        {g.unitsConnect(), "No master unit set"},
        {g.dataSetNumStreams(3), "Max number of streams is 2"},
        {g.dataWait(0, 1000), "No such stream"},
        {g.dataDone(0), "No such stream"},
    };
    for (auto& c : cases)
        EXPECT_EQ(c.first, ZError(1, c.second));
    EXPECT_EQ(g.unit(0), nullptr);
    EXPECT_EQ(g.unit(1), nullptr);
    ASSERT_FALSE(g.unitAdd("a", "zoapn://127.0.0.1:1"));
    ASSERT_FALSE(g.unitAdd("b", "zoapn://127.0.0.1:1"));
    EXPECT_EQ(g.setMode(Mode::Run).string, "Not connected") << "enabled but not connected";
    EXPECT_EQ(g.unitSetOrder(1, 3).string, "Unit number not present");
    ASSERT_FALSE(g.unitSetEnabled(1, false));
    ASSERT_FALSE(g.unitSetEnabled(2, false));
    EXPECT_EQ(g.setMode(Mode::Run).string, "Not connected") << "none enabled";
    NodeStatus st;
    EXPECT_EQ(g.getStatus(st).string, "No master unit set");
    ASSERT_FALSE(g.unitDelete("a"));
    EXPECT_EQ(g.unit(1)->name(), "b");
    EXPECT_EQ(g.unit(1)->number(), 1u);
    ASSERT_FALSE(g.dataSetNumStreams(1));
    EXPECT_EQ(g.dataWait(0, 20000), ZError(4, "Timeout"));
    EXPECT_EQ(g.dataRead(0), nullptr);
    EXPECT_EQ(g.dataDone(0).number, 1);
    CaptureStdout(); // blocks of no group at all
    g.sendDataFloatQueue(*g.unit(1), floatBlock(0, 1));
    EXPECT_EQ(GetCapturedStdout(), "TavroUnits::sendDataQueue: No channels configured, ignoring\n");
}

TEST(TavroUnits, WrongSizesAndLimitsDropAndCount) {
    Sim a(options("T400-000301")), b(options("T400-000302"));
    Group g;
    ASSERT_FALSE(g.connectAll({a.url(), b.url()}, 2));
    TavroUnit1 &u1 = *g.unit(1), &u2 = *g.unit(2);
    // Blocks that do not fit the group go no further.
    CaptureStdout();
    for (auto change : {+[](DataBlockFloat& b) { b.numSamples = 14; },
                        +[](DataBlockFloat& b) { b.numChannels = 17; }}) {
        DataBlockFloat big = floatBlock(0, 1);
        change(big);
        EXPECT_EQ(g.sendDataFloatQueue(u1, big).string, "DataBlock sizes wrong");
    }
    EXPECT_EQ(GetCapturedStdout(), "TavroUnits::sendDataQueue: DataBlock sizes wrong, ignoring\n"
                                   "TavroUnits::sendDataQueue: DataBlock sizes wrong, ignoring\n");
    EXPECT_TRUE(g.dataFlush(1000000));
    EXPECT_EQ(g.dataAvailable(0) + g.dataAvailable(1), 0u);
    // Unit 1 runs 4096 blocks ahead: it waits for unit 2 to catch up.
    const unsigned int waiting = TavroUnits::fillMaxBlocks;
    for (unsigned int k = 0; k < waiting; k++)
        g.sendDataFloatQueue(u1, floatBlock(k, 1));
    std::thread ahead([&] { g.sendDataFloatQueue(u1, floatBlock(waiting, 1)); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    g.sendDataFloatQueue(u2, floatBlock(0, 2));
    ahead.join();
    EXPECT_EQ(g.droppedIncomplete(), 0u);
    EXPECT_TRUE(g.dataFlush(1000000));
    ASSERT_EQ(g.dataAvailable(0), 1u);
    EXPECT_EQ(g.dataRead(0)->header.sequence, 0u);
    g.dataClear();
    // Unit 2 never delivers: after a second's wait the oldest go.
    CaptureStdout();
    for (unsigned int k = 0; k < waiting + 3; k++)
        g.sendDataFloatQueue(u1, floatBlock(k, 1));
    std::string out = GetCapturedStdout();
    EXPECT_EQ(g.droppedIncomplete(), 3u);
    const char* dropped =
        "TavroUnits::sendDataQueue: block 0 still waits for a unit, 1 incomplete blocks dropped\n";
    EXPECT_EQ(out.rfind(dropped, 0), 0u) << out;
    // Unit 2 catches up with the oldest kept block: it is released alone.
    g.sendDataFloatQueue(u2, floatBlock(3, 2));
    EXPECT_TRUE(g.dataFlush(1000000));
    ASSERT_EQ(g.dataAvailable(0), 1u);
    EXPECT_EQ(g.dataRead(0)->header.sequence, 3u);
    g.dataClear();
    // Readers that never read: each stream keeps 32768 blocks and counts the rest.
    const unsigned int extra = 5;
    CaptureStdout();
    for (unsigned int k = 0; k < TavroUnits::streamMaxBlocks + extra; k++) {
        g.sendDataFloatQueue(u1, floatBlock(k, 1, 1));
        g.sendDataFloatQueue(u2, floatBlock(k, 2, 1));
    }
    EXPECT_TRUE(g.dataFlush(20000000));
    out = GetCapturedStdout();
    for (unsigned int s = 0; s < 2; s++) {
        EXPECT_EQ(g.dataAvailable(s), TavroUnits::streamMaxBlocks);
        EXPECT_EQ(g.droppedBlocks(s), extra);
        EXPECT_NE(out.find("TavroUnits::outputBlock: stream " + std::to_string(s) +
                           " full, 1 blocks dropped\n"),
                  std::string::npos)
            << out;
    }
    EXPECT_EQ(g.dataRead(1)->header.sequence, 0u);
    EXPECT_FALSE(g.dataDone(1));
    EXPECT_EQ(g.dataRead(1)->header.sequence, 1u);
    EXPECT_EQ(g.dataRead(0)->header.sequence, 0u) << "the streams are read apart";
    const unsigned int queued = g.dataAvailable(1);
    EXPECT_GT(queued, 0u);
    EXPECT_EQ(g.dataSkip(1), queued);
    EXPECT_EQ(g.dataRead(1), nullptr);
    EXPECT_NE(g.dataRead(0), nullptr) << "only stream 1 skipped";
    g.dataClear();
    EXPECT_EQ(g.dataAvailable(0) + g.dataAvailable(1), 0u);
}

TEST(TavroUnits, AUnitLosingItsLinkIsReportedOnceWithEveryBlockKept) {
    Sim sim(options("T400-000401"));
    Group g;
    ASSERT_FALSE(g.connectAll({sim.url()}));
    for (int round = 1; round <= 2; round++) {
        const unsigned int sent = 40;
        sim.unit.faultDropAfterBlocks(sent);
        ASSERT_FALSE(g.setMeasurementConfig(false, capture(MeasureMode::Continuous, 100)));
        ASSERT_FALSE(g.sendDataEnable(3));
        ASSERT_FALSE(g.setMode(Mode::Run));
        ASSERT_TRUE(eventually([&] { return g.lost == round; }));
        EXPECT_FALSE(g.unitsConnected());
        NodeInfo n;
        EXPECT_EQ(g.unitMaster()->getNodeInfo(n).number, 5);
        std::vector<TavroUnitsDataBlock> v = drain(g);
        ASSERT_EQ(v.size(), sent) << "round " << round;
        for (size_t i = 0; i < v.size(); i++)
            EXPECT_EQ(v[i].header.sequence, i);
        // The same unit object connects again.
        ASSERT_TRUE(eventually([&] { return !sim.unit.serving(); }));
        ASSERT_EQ(g.unitsConnect(), ZError());
        EXPECT_EQ(g.unitMaster()->serialNumber(), "T400-000401");
    }
    // Kept after a receive error: the loop goes on and nothing is reported.
    g.unitMaster()->setKeepConnection(true);
    ASSERT_TRUE(sim.unit.waitServing(2000000));
    sim.unit.dropConnection();
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    EXPECT_TRUE(g.unitMaster()->isConnected());
    EXPECT_EQ(g.lost, 2);
    ASSERT_FALSE(g.unitsDisconnect());
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(g.lost, 2) << "the owner's disconnect is no loss";
}

TEST(TavroUnits, TwoFastUnitsStreamInOrderUnderLoad) {
    Sim a(options("T400-000501")), b(options("T400-000502"));
    Group g;
    ASSERT_FALSE(g.connectAll({a.url(), b.url()}));
    // AI7 reads AO0 back: unit 2's value is twice unit 1's.
    ASSERT_FALSE(g.unit(1)->setAnalogueOut(0, 1.0f) || g.unit(2)->setAnalogueOut(0, 2.0f));
    std::atomic<bool> done{false};
    std::atomic<uint64_t> read{0}, disorder{0}, misplaced{0};
    std::thread reader([&] {
        int64_t last = -1;
        while (!done || g.dataAvailable(0)) {
            if (g.dataWait(0, 20000))
                continue;
            const TavroUnitsDataBlock* m = g.dataRead(0);
            if (int64_t(m->header.sequence) <= last || m->unitMask != 3)
                disorder++;
            last = m->header.sequence;
            if (std::fabs(m->value(16 + 7, 0) / m->value(7, 0) - 2.0f) > 0.05f)
                misplaced++;
            read++;
            g.dataDone(0);
        }
    });
    ASSERT_FALSE(g.setMeasurementConfig(false, capture(MeasureMode::Continuous, 1000, 100000.0)));
    ASSERT_FALSE(g.sendDataEnable(3));
    ASSERT_FALSE(g.setMode(Mode::Run));
    std::this_thread::sleep_for(std::chrono::seconds(1));
    ASSERT_FALSE(g.setMode(Mode::Idle));
    ASSERT_FALSE(g.unitsDisconnect());
    EXPECT_TRUE(g.dataFlush(5000000));
    done = true;
    reader.join();
    EXPECT_GT(read, 100u);
    EXPECT_EQ(disorder, 0u);
    EXPECT_EQ(misplaced, 0u);
    EXPECT_EQ(g.lost, 0);
}

TEST(TavroUnits, BacklogBehindASlowEventIsBatchedThenCapped) {
    Sim sim;
    SlowGroup g;
    ASSERT_FALSE(g.connectAll({sim.url()}, 2));
    TavroUnit1& u = *g.unit(1);
    uint32_t sequence = 0;
    auto push = [&](unsigned int n) {
        for (unsigned int i = 0; i < n; i++)
            ASSERT_FALSE(g.sendDataFloatQueue(u, floatBlock(sequence++, 1, 1)));
    };
    // More than a stream holds, less than may wait: all of it arrives.
    // However little the held batch took, what waits stays below the cap.
    const unsigned int within = TavroUnits::streamMaxBlocks + 4 * TavroUnits::batchMaxBlocks;
    static_assert(within + 1 < TavroUnits::readyMaxBlocks, "below the cap");
    push(within);
    g.hold = false;
    ASSERT_TRUE(g.dataFlush(10000000));
    EXPECT_EQ(g.taken, within);
    EXPECT_EQ(g.droppedBlocks(1), 0u);
    EXPECT_EQ(g.droppedBehind(), 0u);
    // Far more: the oldest waiting go, each one counted and reported.
    g.hold = true;
    CaptureStdout();
    push(TavroUnits::readyMaxBlocks + 3 * TavroUnits::batchMaxBlocks);
    std::string out = GetCapturedStdout();
    g.hold = false;
    ASSERT_TRUE(g.dataFlush(10000000));
    EXPECT_GT(g.droppedBehind(), 0u);
    EXPECT_EQ(g.taken + g.droppedBehind(), sequence) << "a block went missing uncounted";
    EXPECT_EQ(g.droppedBlocks(1), 0u);
    EXPECT_EQ(g.outOfOrder, 0u);
    EXPECT_NE(out.find("TavroUnits::sendDataQueue: processing behind, block "), std::string::npos)
        << out;
}
