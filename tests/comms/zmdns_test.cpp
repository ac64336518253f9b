// mDNS query and reply parsing on hand-built datagrams: no network.
#include "comms/mdns_builder.h"
#include "zmdns.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

using mdnstest::describe;
using mdnstest::DnsBuilder;
using mdnstest::str;
using Bytes = std::vector<uint8_t>;

namespace {

const ZMdnsReply Accepted = ZMdnsReply::Accepted, Ignored = ZMdnsReply::Ignored,
                 Malformed = ZMdnsReply::Malformed;

// The bytes in a heap block of exactly their size, so that AddressSanitizer
// reports any read past the end.
struct Exact {
    explicit Exact(const Bytes& v) : n(v.size()), p(new uint8_t[v.empty() ? 1 : v.size()]) {
        if (n)
            memcpy(p.get(), v.data(), n);
    }
    size_t n;
    std::unique_ptr<uint8_t[]> p;
};

ZMdnsReply parse(const Bytes& v, ZMdnsService& s, const char* service = "_tavro._tcp.local.") {
    Exact e(v);
    return mdnsParseReply(e.p.get(), e.n, 7, service, s);
}

Bytes unhex(const char* hex) {
    Bytes v;
    for (size_t i = 0; hex[i] && hex[i + 1]; i += 2)
        v.push_back(uint8_t(std::stoul(std::string(hex + i, 2), nullptr, 16)));
    return v;
}

// A reply header for id 7 with flags 0x8400.
DnsBuilder reply(unsigned qd, unsigned an, unsigned ar) {
    return DnsBuilder().header(7, 0x8400, qd, an, 0, ar);
}

// avahi-daemon 0.8's reply (captured in the namespace test) to a query with id
// 7: PTR, TXT, SRV and A all answers, the SRV target "tavrotest" + pointer.
const Bytes Avahi =
    unhex("000784000001000400000000065f746176726f045f746370056c6f63616c00000c8001c00c000c0001000000"
          "0a00120f546176726f207465737420756e6974c00cc02f001000010000000a00111073657269616c3d543430"
          "302d30303432c02f002100010000000a0012000000009da609746176726f74657374c018c070000100010000"
          "000a00047f000001");

Bytes patch(Bytes v, size_t at, std::initializer_list<uint8_t> with) {
    for (uint8_t b : with)
        v.at(at++) = b;
    return v;
}

} // namespace

TEST(MdnsQuery, ImageByteForByte) {
    uint8_t q[MdnsQuerySize];
    mdnsBuildQuery(1, q);
    EXPECT_EQ(Bytes(q, q + MdnsQuerySize),
              unhex("000100000001000000000000065f746176726f045f746370056c6f63616c00000c8001"));
}

TEST(MdnsNames, ReadersOnGoodAndBrokenNames) {
    using Reader = int (*)(const ZMdnsPacket&, unsigned int, ZString&);
    const Reader label = mdns_read_string, labels = mdns_read_strings, name = mdns_read_name;
    const int Bad = MdnsMalformed;
    // 12: "_tavro" "_tcp" "local"(24) 0(30); 31: "host" ->24 "x" 0; 41: ->31;
    // 43: "a" ->41; 47: ->12 0
    DnsBuilder g, n255, n256, chain;
    g.header(0, 0, 0, 0, 0, 0).name({"_tavro", "_tcp", "local"}).label("host").ptr(24);
    g.label("x").u8(0).ptr(31).label("a").ptr(41).ptr(12).u8(0);
    std::string x63(63, 'x'), x62(62, 'x'), x255 = x63 + "." + x63 + "." + x62 + "." + x62 + ".";
    n255.name({x63, x63, x62, x62}); // names of 255 and 256 bytes
    n256.name({x63, x63, x63, x62});
    chain.u8(0).ptr(0); // 200 pointers, each to the one before
    for (unsigned i = 1; i < 200; i++)
        chain.ptr(1 + 2 * (i - 1));
    const Bytes good = g.bytes, cut = {5, 'a', 'b', 'c', 'd'},
                far = {2, 'a', 'b', 0xC0, 5, 0xFF, 0xFF};
    struct {
        const char* what;
        Bytes bytes;
        Reader read;
        unsigned at;
        int n;
        std::string text;
    } cases[] = {
        {"label", good, label, 12, 7, "_tavro"},
        {"pointer: the one label at its target", good, label, 47, 2, "_tavro"},
        {"pointer", good, label, 36, 2, "local"},
        {"zero byte", good, label, 30, 0, ""},
        {"name", good, labels, 12, 19, "_tavro._tcp.local."},
        {"root name", good, labels, 30, 1, ""},
        {"reading goes on after a pointer", good, labels, 31, 10, "host.local.x."},
        {"pointer to a name of several labels", good, labels, 47, 3, "_tavro."},
        {"decoder", good, name, 12, 19, "_tavro._tcp.local."},
        {"decoder: root", good, name, 30, 1, ""},
        {"decoder follows the pointer", good, name, 31, 7, "host.local."},
        {"decoder: pointer first", good, name, 41, 2, "host.local."},
        {"decoder: two hops", good, name, 43, 4, "a.host.local."},
        {"decoder: 255 bytes", n255.bytes, name, 0, 255, x255},
        {"decoder: 127 hops", chain.bytes, name, 1 + 2 * 126, 2, ""},
        {"label past the end", cut, label, 0, Bad, ""},
        {"at the end", cut, label, 5, Bad, ""},
        {"pointer without its second byte", {2, 'a', 'b', 0xC0}, label, 3, Bad, ""},
        {"target's label past the end", far, label, 3, Bad, ""},
        {"pointer past the end", far, label, 5, Bad, ""},
        {"pointer to pointer: a 192-byte label", {0xC0, 2, 0xC0, 0}, label, 0, Bad, ""},
        {"pointer to pointer", {0xC0, 2, 0xC0, 0}, labels, 0, Bad, ""},
        {"name ending at the datagram's end", {1, 'l', 0, 1, 'h', 0xC0, 0}, labels, 3, Bad, ""},
        {"empty", {}, label, 0, Bad, ""},
        {"empty", {}, labels, 0, Bad, ""},
        {"empty", {}, name, 0, Bad, ""},
        {"pointer to itself", {0xC0, 0}, name, 0, Bad, ""},
        {"loop through labels", {1, 'a', 0xC0, 4, 1, 'b', 0xC0, 0}, name, 0, Bad, ""},
        {"reserved 0x40", {0x40, 0}, name, 0, Bad, ""},
        {"reserved 0x80", {0x80, 0}, name, 0, Bad, ""},
        {"256 bytes", n256.bytes, name, 0, Bad, ""},
        {"128 hops", chain.bytes, name, 1 + 2 * 127, Bad, ""},
        {"decoder: label past the end", {3, 'a', 'b', 'c', 7, 'a', 'b'}, name, 0, Bad, ""},
        {"decoder: pointer cut", {3, 'a', 'b', 'c', 0xC0}, name, 0, Bad, ""},
        {"decoder: pointer past the end", {3, 'a', 'b', 'c', 0xC0, 200}, name, 0, Bad, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.what << " at " << c.at);
        Exact e(c.bytes);
        ZString out;
        EXPECT_EQ(c.read(ZMdnsPacket{e.p.get(), unsigned(e.n)}, c.at, out), c.n);
        if (c.n != Bad) {
            EXPECT_EQ(str(out), c.text);
        }
    }
}

TEST(MdnsParse, AcceptedReplies) {
    DnsBuilder both = reply(1, 3, 3).question(); // answers TXT, A, SRV; additionals TXT, SRV, NSEC
    both.record(12, 16).label("a1").label("ignored").end().record(12, 1).u32(0x01020304).end();
    both.record(12, 33).u16(0).u16(0).u16(1111).name({"first", "local"}).end();
    both.record(12, 16).label("b1").end();
    both.record(12, 33).u16(0).u16(0).u16(2222).name({"second", "local"}).end();
    both.record(12, 47).put({0xC0, 12, 0, 1, 0x40}).end();
    // An additional SRV target "host" + pointer to "local": the reader goes on
    // into the next record's name, a pointer to "host", and stops at its zero.
    DnsBuilder srv = reply(1, 0, 2).question();
    size_t host = srv.record(12, 33).u16(0).u16(0).u16(1234).pos();
    srv.label("host").ptr(24).end().record(host, 1).u32(0x0A000001).end();
    struct {
        const char* what;
        Bytes bytes;
        const char* found;
    } cases[] = {
        {"unit", mdnstest::unitReply(7), "192.168.1.42:40358 tavro-0042.local. serial=0042"},
        {"avahi", Avahi, "127.0.0.1:40358 tavrotest.local. serial=T400-0042"},
        {"later records win, texts add up", both.bytes, "1.2.3.4:2222 second.local. a1,b1"},
        {"additional SRV target", srv.bytes, "10.0.0.1:1234 host.local.host. "},
        {"TXT only", reply(1, 0, 1).question().record(12, 16).label("t").end().bytes,
         "0.0.0.0:0  t"},
        {"question only", reply(1, 0, 0).question().bytes, "0.0.0.0:0  "},
        {"last question decides",
         reply(2, 0, 0).question({"_other", "_tcp", "local"}).question().bytes, "0.0.0.0:0  "},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ZMdnsService s;
        ASSERT_EQ(parse(c.bytes, s), Accepted);
        EXPECT_EQ(describe(s), c.found);
    }
}

TEST(MdnsParse, IgnoredAndMalformedReplies) {
    const Bytes r = mdnstest::unitReply(7);
    const size_t aLength = r.size() - 6; // data length of the last record, the A
    Bytes big = r, biggest = r;
    big.resize(70000);
    biggest.resize(65535);
    const std::string zero("\0x", 2);
    auto ptrRecord = [](DnsBuilder& b) {
        return b.put({0, 12, 0, 1, 0, 0, 0, 120, 0, 2}).ptr(12).bytes;
    };
    struct {
        const char* what;
        Bytes bytes;
        ZMdnsReply reply;
    } cases[] = {
        {"another id", mdnstest::unitReply(8), Ignored},
        {"flags 0x8000", mdnstest::unitReply(7, {}, 0x8000), Ignored},
        {"flags 0x8404", mdnstest::unitReply(7, {}, 0x8404), Ignored},
        {"flags 0x0400", mdnstest::unitReply(7, {}, 0x0400), Ignored},
        {"another service", mdnstest::unitReply(7, {}, 0x8400, {"_other", "_tcp", "local"}),
         Ignored},
        {"no question", reply(0, 0, 0).bytes, Ignored},
        {"last question decides", reply(2, 0, 0).question().question({"_x", "_tcp", "local"}).bytes,
         Ignored},
        {"label with a zero byte", reply(1, 0, 0).question({"_tavro", "_tcp", "local", zero}).bytes,
         Ignored},
        {"huge question count", patch(r, 4, {0xFF, 0xFF}), Malformed},
        {"huge answer count", patch(r, 6, {0xFF, 0xFF}), Malformed},
        {"huge authority count", patch(r, 8, {0xFF, 0xFF}), Malformed},
        {"huge additional count", patch(r, 10, {0xFF, 0xFF}), Malformed},
        {"data length one past the end", patch(r, aLength, {0, 5}), Malformed},
        {"data length 0xFFFF", patch(r, aLength, {0xFF, 0xFF}), Malformed},
        {"record name pointing at itself", reply(1, 1, 0).question().record(35, 1).bytes,
         Malformed},
        // The record walk takes an uncompressed name's zero byte for the
        // start of the fixed part: the data length is misread as 0x7800.
        {"uncompressed record name", ptrRecord(reply(1, 1, 0).question().name({"x", "local"})),
         Malformed},
        {"compressed record name", ptrRecord(reply(1, 1, 0).question().label("x").ptr(24)),
         Accepted},
        {"larger than any datagram", big, Malformed},
        {"65535 bytes, the tail not looked at", biggest, Accepted},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ZMdnsService s;
        EXPECT_EQ(parse(c.bytes, s), c.reply);
    }
    ZMdnsService s; // the service must match exactly
    EXPECT_EQ(parse(r, s, "_tavro._tcp.local"), Ignored);
    EXPECT_EQ(parse(r, s, "_TAVRO._tcp.local."), Ignored);
}

TEST(MdnsParse, RecordContentMustFitItsData) {
    struct {
        unsigned type;
        Bytes data, after;
        ZMdnsReply answer, additional; // the verdict in either section
    } cases[] = {
        {1, {1, 2, 3}, {}, Malformed, Malformed},
        {1, {1, 2, 3, 4}, {}, Accepted, Accepted},
        {33, {0, 0, 0, 0, 1}, {}, Malformed, Malformed},
        {33, {0, 0, 0, 0, 0, 1, 0xC3, 0xFF}, {}, Malformed, Malformed}, // target past the end
        {33, {0, 0, 0, 0, 0, 1, 0xC0, 53}, {}, Malformed, Malformed},   // target pointing at itself
        {33, {0, 0, 0, 0, 0, 1, 2, 'a', 'b'}, {}, Malformed, Malformed}, // target off the datagram
        // A target ending after the record's data: the additional section's
        // reader goes on, the decoder of the answer section must not.
        {33, {0, 0, 0, 0, 0, 1, 2, 'a', 'b'}, {0}, Malformed, Accepted},
        {33, {0, 0, 0, 0, 0, 1, 2, 'a', 'b', 0}, {}, Accepted, Accepted},
        {16, {}, {}, Malformed, Malformed},
        {16, {3, 'a', 'b'}, {}, Malformed, Malformed},
        {16, {0}, {}, Accepted, Accepted},
        {12, {0xC3, 0xFF}, {}, Accepted, Accepted}, // PTR data is not read
    };
    for (const auto& c : cases) {
        for (bool answer : {true, false}) {
            SCOPED_TRACE(::testing::Message() << (answer ? "answer" : "additional") << " type "
                                              << c.type << ", " << c.data.size() << " bytes");
            DnsBuilder b = reply(1, answer, !answer).question().record(12, c.type);
            b.bytes.insert(b.bytes.end(), c.data.begin(), c.data.end());
            b.end().bytes.insert(b.bytes.end(), c.after.begin(), c.after.end());
            ZMdnsService s;
            EXPECT_EQ(parse(b.bytes, s), answer ? c.answer : c.additional);
        }
    }
}

TEST(MdnsParse, EveryTruncationIsRefused) {
    for (const Bytes& full : {mdnstest::unitReply(7), Avahi}) {
        for (size_t n = 0; n < full.size(); n++) {
            ZMdnsService s;
            EXPECT_EQ(parse(Bytes(full.begin(), full.begin() + long(n)), s), Malformed) << n;
        }
    }
}
