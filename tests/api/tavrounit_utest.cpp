// One unit: URLs and connect failures, the API version check, TCP and pty links, losing
// and re-making the link, raw block conversion, refused pushed blocks; the default port
// and discovery in a private network namespace.
#include "simmdns.h"
#include "unitstest.h"
#include "zsocket.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
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

unsigned short closedPort() {
    ZSocket s(ZSocket::Stream);
    ZSocketAddressINET a;
    a.set("127.0.0.1", 0);
    s.bind(a);
    s.getAddress(a);
    return (unsigned short)a.port();
}

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

} // namespace

TEST(TavroUnit, UrlAndTransportFailures) {
    const ZString refused = ZString("zoapn://127.0.0.1:") + ZString(unsigned(closedPort()));
    const std::pair<ZString, const char*> cases[] = {
        // URL, start of the stdout line (null: none and an invalid name)
        {"http://127.0.0.1", nullptr},
        {"zoapn:/127.0.0.1", nullptr},
        {"zoapn://", nullptr},
        {"zoapn://127.0.0.1:", nullptr},
        {"zoapn://127.0.0.1:x1", nullptr},
        {"zoapn://127.0.0.1:65536", nullptr},
        {"zoapn://127.0.0.1:0", nullptr},
        {refused, "Connect error: -111,Connection refused\n"},
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
    EXPECT_EQ(u.lost, 0);
}

TEST(TavroUnit, ApiVersionOfOtherMajorRefused) {
    SimOptions o = options("T400-000002");
    o.api = "2.0";
    Sim two(o);
    o.api = "1.7";
    Sim newer(o);
    Unit u;
    EXPECT_EQ(u.connect(two.url()), ZError(23, "API version 2.0 not supported"));
    EXPECT_FALSE(u.isConnected());
    EXPECT_TRUE(eventually([&] { return two.server.sessions() == 1 && !two.server.serving(); }))
        << "the refused unit's link stays open";
    // Another minor version of major 1 is fine.
    ASSERT_FALSE(u.connect(newer.url()));
    EXPECT_EQ(u.nodeInfo().apiVersion.mid, 7);
    EXPECT_EQ(u.lost, 0);
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
        EXPECT_EQ(u.device(), l.url);
        EXPECT_EQ(u.timeout(), 5000000u);
        EXPECT_EQ(u.numChannels(), 16u);
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

TEST(TavroUnit, LinkLossIsReportedOnceAndTheSameUnitReconnects) {
    Sim sim(options("T400-000020"));
    Unit u;
    for (int round = 1; round <= 3; round++) {
        ASSERT_EQ(u.connect(sim.url()), ZError()) << "round " << round;
        ASSERT_TRUE(sim.unit.waitServing(2000000));
        sim.unit.dropConnection();
        ASSERT_TRUE(eventually([&] { return u.lost == round; })) << "round " << round;
        EXPECT_FALSE(u.isConnected());
        NodeInfo n;
        EXPECT_EQ(u.getNodeInfo(n).number, 5);
        ASSERT_TRUE(eventually([&] { return !sim.server.serving(); }));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(u.lost, 3);
    // Kept after a receive error: the loop goes on and nothing is reported.
    u.setKeepConnection(true);
    ASSERT_FALSE(u.connect(sim.url()));
    ASSERT_TRUE(sim.unit.waitServing(2000000));
    sim.unit.dropConnection();
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    EXPECT_TRUE(u.isConnected());
    EXPECT_EQ(u.lost, 3);
    EXPECT_FALSE(u.disconnect());
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
    // With 8 channels a block the digital ones are left out.
    TavroUnit::blockNumChannels = 8;
    DataBlockFloat out;
    ZError e = TavroUnit::processdataBlock(rawBlock(9, 2), out);
    TavroUnit::blockNumChannels = 16;
    ASSERT_FALSE(e);
    EXPECT_EQ(out.numChannels, 8);
    EXPECT_EQ(out.data[8], 9.5f) << "row 1 starts at word 9";
    EXPECT_EQ(out.data[16], 0.0f);

    // Other types are copied as they are.
    DataBlock proc = rawBlock(16, 1);
    proc.type = DataType::Proc;
    ASSERT_FALSE(TavroUnit::processdataBlock(proc, out));
    EXPECT_EQ(memcmp(&out, &proc, sizeof(proc)), 0);
    const char* rest = reinterpret_cast<const char*>(&out) + sizeof(proc);
    EXPECT_EQ(std::count(rest, rest + sizeof(out) - sizeof(proc), 0),
              long(sizeof(out) - sizeof(proc)));

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
    ZList<TavroUnitDevice> usb;
    TavroUnit::findDevicesUsb(usb); // no USB in a container is as good an answer as a list
    for (const TavroUnitDevice& d : usb)
        EXPECT_EQ(d.type, "usb");

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
