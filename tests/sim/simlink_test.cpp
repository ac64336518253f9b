// The simulated unit's links inside this process: the TCP server on an
// ephemeral port of 127.0.0.1 and the pseudo-terminal, each with clients run
// as the application runs them; and the mDNS answer to good and hostile
// queries, read back by the application's own discovery parser.
#include "comms/mdns_builder.h"
#include "sim/simlinkclient.h"
#include "simmdns.h"
#include "simpty.h"
#include "simserver.h"
#include "simunit.h"
#include "zmdns.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <thread>

using namespace TavroSim;
using mdnstest::DnsBuilder;
using simlinktest::Connection;
using simlinktest::readAndCapture;
using Bytes = std::vector<uint8_t>;

namespace {

SimOptions options(const char* serial, const char* software) {
    SimOptions o;
    o.serial = serial;
    o.software = software;
    o.rebootMs = 100;
    return o;
}

template <class F>
bool eventually(F done, int ms = 5000) {
    for (auto t0 = std::chrono::steady_clock::now(); !done();) {
        if (std::chrono::steady_clock::now() - t0 > std::chrono::milliseconds(ms))
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

// A TCP connection to the unit that is refused: accepted, then closed at once.
void expectRefused(unsigned short port) {
    TavroApi::CommsNet net;
    ASSERT_FALSE(net.connect("127.0.0.1", port));
    net.setTimeout(2000000);
    char byte;
    unsigned int got = 0;
    ZError e = net.read(&byte, 1, got);
    EXPECT_EQ(e.number, -32) << e.string.str();
}

} // namespace

TEST(SimTcpServer, OneClientAtATimeCapturesReconnectsAndComesBackAfterAReboot) {
    SimUnit unit(options("T400-004711", "1.0.8"));
    ASSERT_FALSE(unit.status()) << unit.status().string.str();
    SimTcpServer server(unit);
    ZError e = server.start("127.0.0.1", 0);
    ASSERT_FALSE(e) << e.string.str();
    ASSERT_NE(server.port(), 0);
    EXPECT_EQ(server.address(), 0x7F000001u);

    Connection a;
    ASSERT_FALSE(a.openTcp(server.port()));
    readAndCapture(a.client, "T400-004711", "1.0.8");
    EXPECT_TRUE(a.client.waitFor([&] { return a.client.statuses > 0; })) << "no NodeStatus pushed";
    expectRefused(server.port());
    EXPECT_EQ(server.refused(), 1u);
    TavroApi::NodeStatus status;
    EXPECT_FALSE(a.client.getStatus(status)) << "the first client lost its unit";

    a.close();
    ASSERT_TRUE(eventually([&] { return server.sessions() == 1 && !server.serving(); }));
    Connection c;
    ASSERT_FALSE(c.openTcp(server.port()));
    readAndCapture(c.client, "T400-004711", "1.0.8", 40);

    // A reboot drops the client; the unit comes back and takes the next one.
    unit.reboot();
    EXPECT_TRUE(c.endedWith(-32)) << c.ended;
    // The server's side of the session may still be closing: a client that
    // came now would be refused as a second one.
    ASSERT_TRUE(eventually([&] { return server.sessions() == 2 && !server.serving(); }));
    Connection d;
    ASSERT_FALSE(d.openTcp(server.port()));
    TavroApi::NodeInfo info;
    EXPECT_FALSE(d.client.getNodeInfo(info));

    // Stopping with a client connected drops it and joins every thread.
    server.stop();
    EXPECT_TRUE(d.endedWith(-32)) << d.ended;
    EXPECT_FALSE(server.serving());
}

TEST(SimPty, SerialClientsOneAfterAnotherAndTcpRefusedMeanwhile) {
    SimUnit unit(options("T400-000815", "1.0.7"));
    SimPty pty(unit);
    ASSERT_FALSE(pty.start());
    ASSERT_EQ(pty.path().subString(0, 9), ZString("/dev/pts/"));
    SimTcpServer server(unit);
    ASSERT_FALSE(server.start("127.0.0.1", 0));
    for (unsigned int round = 1; round <= 2; round++) {
        Connection a;
        ZError e = a.openSerial(pty.path());
        ASSERT_FALSE(e) << e.string.str();
        readAndCapture(a.client, "T400-000815", "1.0.7", round == 1 ? 1000 : 40);
        // The unit has one client across all its links.
        expectRefused(server.port());
        a.close();
        EXPECT_TRUE(eventually([&] { return pty.sessions() == round; }));
    }
    pty.stop();
    EXPECT_TRUE(pty.path().isEmpty());
}

namespace {

const SimMdnsUnit Unit = {"T400-000001", 0x7F000001, 40358};
const char* const Found = "127.0.0.1:40358 t400-000001.local. serial=T400-000001";

// The answer to a query, read back by the discovery parser: "" when there is
// no answer, "ignored"/"malformed" when the parser refuses it.
std::string answer(const Bytes& query, unsigned int port = 5353, Bytes* raw = nullptr) {
    uint8_t r[SimMdnsReplyMax];
    unsigned int n = simMdnsAnswer(query.data(), query.size(), port, Unit, r, sizeof(r));
    if (raw)
        raw->assign(r, r + n);
    if (n == 0)
        return "";
    ZMdnsService s;
    uint16_t id = query.size() >= 2 ? uint16_t(query[0] << 8 | query[1]) : 0;
    ZMdnsReply k = mdnsParseReply(r, n, id, "_tavro._tcp.local.", s);
    return k == ZMdnsReply::Accepted  ? mdnstest::describe(s)
           : k == ZMdnsReply::Ignored ? "ignored"
                                      : "malformed";
}

Bytes query(unsigned int flags, std::initializer_list<std::string> name, unsigned int type = 12,
            unsigned int cls = 0x8001) {
    return DnsBuilder().header(0x1234, flags, 1, 0, 0, 0).name(name).u16(type).u16(cls).bytes;
}

} // namespace

TEST(SimMdns, AnswersWellFormedQueriesForTheServiceAsTheDiscoveryReadsThem) {
    uint8_t q[MdnsQuerySize];
    mdnsBuildQuery(0xBEEF, q);
    for (unsigned int port : {5353u, 40000u}) {
        Bytes r;
        ASSERT_EQ(answer(Bytes(q, q + sizeof(q)), port, &r), Found);
        EXPECT_EQ(Bytes(r.begin(), r.begin() + 12),
                  (Bytes{0xBE, 0xEF, 0x84, 0x00, 0, 1, 0, 1, 0, 0, 0, 3}));
        EXPECT_EQ(Bytes(r.begin() + 12, r.begin() + 35), Bytes(q + 12, q + 35));    // the question
        EXPECT_EQ(Bytes(r.begin() + 35, r.begin() + 39), (Bytes{0xC0, 12, 0, 12})); // PTR
        // A one-shot querier gets class IN and 10 s; port 5353 the cache-flush bit.
        size_t srv = 35 + 12 + 1 + 11 + 2;
        EXPECT_EQ(Bytes(r.begin() + srv, r.begin() + srv + 10),
                  port == 5353 ? (Bytes{0xC0, 47, 0, 33, 0x80, 1, 0, 0, 0, 120})
                               : (Bytes{0xC0, 47, 0, 33, 0, 1, 0, 0, 0, 10}));
    }
    uint8_t small[100];
    EXPECT_EQ(simMdnsAnswer(q, sizeof(q), 5353, Unit, small, sizeof(small)), 0u);
    EXPECT_EQ(simMdnsHostName("T400 x_1"), ZString("t400-x-1"));

    const Bytes good = query(0, {"_tavro", "_tcp", "local"});
    const std::string long63(63, 'a');
    DnsBuilder compressed; // the second question compressed against the first: answered in full
    compressed.header(7, 0, 2, 0, 0, 0).name({"_x", "_tcp", "local"}).u32(0x000C0001);
    compressed.label("_tavro").ptr(15).u32(0x000C0001);
    const std::vector<std::pair<Bytes, std::string>> cases = {
        {query(0, {"_TAVRO", "_Tcp", "LOCAL"}, 255, 1), "ignored"}, // answered, as it was asked
        {query(0x8000, {"_tavro", "_tcp", "local"}), ""},           // a response
        {query(0x0800, {"_tavro", "_tcp", "local"}), ""},           // another opcode
        {query(0x0001, {"_tavro", "_tcp", "local"}), ""},           // a response code
        {query(0, {"_http", "_tcp", "local"}), ""},
        {query(0, {"_tavro", "_tcp", "local", "x"}), ""},
        {query(0, {"_tavro", "_tcp", "local"}, 1), ""},        // type A
        {query(0, {"_tavro", "_tcp", "local"}, 12, 3), ""},    // class CH
        {query(0, {long63, long63, long63, long63, "x"}), ""}, // a name of 257 bytes
        {DnsBuilder().header(1, 0, 0, 0, 0, 0).bytes, ""},
        {DnsBuilder().header(1, 0, 2, 0, 0, 0).question().bytes, ""},
        {DnsBuilder().header(1, 0, 1, 0, 0, 0).ptr(12).u16(12).u16(1).bytes, ""}, // self
        {DnsBuilder().header(1, 0, 1, 0, 0, 0).ptr(14).u32(0).u16(0).bytes, ""},  // forwards
        {DnsBuilder().header(1, 0, 1, 0, 0, 0).u8(0x40).u8(0).u32(0).bytes, ""},  // reserved
        {DnsBuilder().header(1, 0, 1, 0, 0, 0).u8(9).put({'_', 't'}).bytes, ""},  // overrun
        {compressed.bytes, Found},
    };
    for (size_t i = 0; i < cases.size(); i++)
        EXPECT_EQ(answer(cases[i].first), cases[i].second) << "case " << i;
    for (size_t n = 0; n < good.size(); n++)
        EXPECT_EQ(answer(Bytes(good.begin(), good.begin() + long(n))), "") << n << " bytes";

    // Mutated queries: nothing read out of bounds, and whatever is answered
    // is a reply the discovery accepts.
    std::mt19937 random(40358);
    for (int i = 0; i < 20000; i++) {
        Bytes q = i % 2 ? good : compressed.bytes;
        for (int k = random() % 4; k >= 0; k--)
            q[random() % q.size()] = uint8_t(random());
        std::string a = answer(q);
        EXPECT_TRUE(a.empty() || a == Found || a == "ignored") << a;
    }
}
