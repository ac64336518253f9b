// The unit's TCP server and pseudo-terminal in this process, and its mDNS
// answer to good and hostile queries, read back by the discovery parser.
#include "comms/mdns_builder.h"
#include "simharness.h"
#include "simmdns.h"
#include "simpty.h"
#include "simserver.h"
#include "simunit.h"
#include "zmdns.h"

#include <gtest/gtest.h>

#include <random>

using namespace TavroSim;
using mdnstest::DnsBuilder;
using simtest::Connection;
using simtest::eventually;
using simtest::readAndCapture;
using Bytes = std::vector<uint8_t>;

namespace {

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

// One client at a time across the unit's TCP server and pty; after a reboot
// the unit takes the next one, and stopping the server drops its client.
TEST(SimLinks, OneClientAtATimeOverTcpAndPtyAndBackAfterAReboot) {
    SimOptions o;
    o.serial = "T400-004711";
    o.rebootMs = 100;
    SimUnit unit(o);
    SimTcpServer server(unit);
    SimPty pty(unit);
    ASSERT_FALSE(server.start("127.0.0.1", 0) || pty.start());
    Connection a;
    ASSERT_FALSE(a.openTcp(server.port()));
    readAndCapture(a.client, "T400-004711");
    expectRefused(server.port());
    EXPECT_EQ(server.refused(), 1u);
    TavroApi::NodeStatus status;
    EXPECT_FALSE(a.client.getStatus(status)) << "the first client lost its unit";
    a.close();
    ASSERT_TRUE(eventually([&] { return server.sessions() == 1 && !server.serving(); }));
    Connection b;
    ASSERT_FALSE(b.openSerial(pty.path()));
    readAndCapture(b.client, "T400-004711", 40);
    expectRefused(server.port());
    b.close();
    ASSERT_TRUE(eventually([&] { return pty.sessions() == 1 && !unit.serving(); }));
    Connection c;
    TavroApi::NodeInfo info;
    ASSERT_FALSE(c.openTcp(server.port()) || c.client.getNodeInfo(info));
    unit.reboot();
    EXPECT_TRUE(c.endedWith(-32)) << c.ended;
    // Until the server's side of the session closes, a new client is refused.
    ASSERT_TRUE(eventually([&] { return server.sessions() == 3 && !server.serving(); }));
    Connection d;
    ASSERT_FALSE(d.openTcp(server.port()));
    EXPECT_FALSE(d.client.getNodeInfo(info));
    server.stop();
    EXPECT_TRUE(d.endedWith(-32)) << d.ended;
    EXPECT_FALSE(server.serving());
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
        {query(0, {"_http", "_tcp", "local"}), ""},
        {query(0, {"_tavro", "_tcp", "local"}, 1), ""},        // type A
        {query(0, {long63, long63, long63, long63, "x"}), ""}, // a name of 257 bytes
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
