// mDNS reply parsing on hand-built datagrams: no network.
#include "comms/mdns_builder.h"
#include "zmdns.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

using mdnstest::DnsBuilder;
using mdnstest::Unit;

namespace {

const char* const Service = "_tavro._tcp.local.";

// The bytes in a heap block of exactly their size, so that AddressSanitizer
// reports any read past the end.
struct Exact {
    explicit Exact(const std::vector<uint8_t>& v)
        : n(v.size()), p(new uint8_t[v.size() ? v.size() : 1]) {
        if (n)
            memcpy(p.get(), v.data(), n);
    }
    size_t n;
    std::unique_ptr<uint8_t[]> p;
    ZMdnsPacket packet() const { return ZMdnsPacket{p.get(), unsigned(n)}; }
};

ZMdnsReply parse(const std::vector<uint8_t>& v, unsigned id, ZMdnsService& s,
                 const ZString& service = Service) {
    Exact e(v);
    return mdnsParseReply(e.p.get(), e.n, uint16_t(id), service, s);
}

std::vector<std::string> texts(const ZMdnsService& s) {
    std::vector<std::string> r;
    for (const ZString& t : s.texts)
        r.push_back(std::string(t.retStr(), size_t(t.len())));
    return r;
}

void expectUnit(const ZMdnsService& s, uint32_t address, unsigned port, const char* name,
                std::vector<std::string> txt) {
    EXPECT_EQ(s.address.address(), address);
    EXPECT_EQ(s.address.port(), port);
    EXPECT_STREQ(s.name.retStr(), name);
    EXPECT_EQ(texts(s), txt);
}

} // namespace

// ---------------------------------------------------------------- the query

TEST(MdnsQuery, ImageByteForByte) {
    // clang-format off
    const uint8_t expected[] = {
        0x00, 0x01,                                     // id 1
        0x00, 0x00,                                     // flags
        0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // counts 1/0/0/0
        6,    '_',  't',  'a',  'v',  'r',  'o',        //
        4,    '_',  't',  'c',  'p',                    //
        5,    'l',  'o',  'c',  'a',  'l',  0,          //
        0x00, 0x0C,                                     // PTR
        0x80, 0x01,                                     // IN + unicast reply
    };
    // clang-format on
    static_assert(sizeof(expected) == MdnsQuerySize, "35 bytes");
    uint8_t q[MdnsQuerySize];
    mdnsBuildQuery(1, q);
    EXPECT_EQ(std::vector<uint8_t>(q, q + MdnsQuerySize),
              std::vector<uint8_t>(expected, expected + sizeof(expected)));
    mdnsBuildQuery(0xBEEF, q);
    EXPECT_EQ(q[0], 0xBE);
    EXPECT_EQ(q[1], 0xEF);
}

TEST(MdnsQuery, CounterStartsAtZero) {
    ZMdns m;
    EXPECT_EQ(m.counter(), 0u);
}

// ---------------------------------------------------------- label reading

TEST(MdnsReadString, LabelPointerAndZero) {
    DnsBuilder b;
    b.header(0, 0, 0, 0, 0, 0);
    b.name({"_tavro", "_tcp", "local"}); // 12
    b.ptr(12);                           // 31
    b.ptr(19);                           // 33: "_tcp"
    Exact e(b.bytes);
    ZString out;
    EXPECT_EQ(mdns_read_string(e.packet(), 12, out), 7);
    EXPECT_STREQ(out.retStr(), "_tavro");
    EXPECT_EQ(mdns_read_string(e.packet(), 19, out), 5);
    EXPECT_STREQ(out.retStr(), "_tcp");
    // A pointer yields only the one label at its target, and consumes 2.
    EXPECT_EQ(mdns_read_string(e.packet(), 31, out), 2);
    EXPECT_STREQ(out.retStr(), "_tavro");
    EXPECT_EQ(mdns_read_string(e.packet(), 33, out), 2);
    EXPECT_STREQ(out.retStr(), "_tcp");
    // The zero byte: nothing read, 0 consumed.
    EXPECT_EQ(mdns_read_string(e.packet(), 30, out), 0);
    EXPECT_STREQ(out.retStr(), "");
}

TEST(MdnsReadStrings, WholeNameCountsTheZeroByte) {
    DnsBuilder b;
    b.header(0, 0, 0, 0, 0, 0);
    b.name({"_tavro", "_tcp", "local"});
    Exact e(b.bytes);
    ZString out;
    EXPECT_EQ(mdns_read_strings(e.packet(), 12, out), 19);
    EXPECT_STREQ(out.retStr(), "_tavro._tcp.local.");
    // The root name: nothing but the zero byte.
    EXPECT_EQ(mdns_read_strings(e.packet(), 30, out), 1);
    EXPECT_STREQ(out.retStr(), "");
}

TEST(MdnsReadStrings, QuirkPointerTakesOneLabelAndReadingGoesOn) {
    // "host" + pointer to "local" + more bytes: the Part's reader takes the
    // single label "local" and carries on with the bytes after the pointer.
    DnsBuilder b;
    b.header(0, 0, 0, 0, 0, 0);
    b.name({"local"});                  // 12
    b.label("host").ptr(12).label("x"); // 19: host, 24: ptr, 26: x
    b.u8(0);
    Exact e(b.bytes);
    ZString out;
    EXPECT_EQ(mdns_read_strings(e.packet(), 19, out), 5 + 2 + 2 + 1);
    EXPECT_STREQ(out.retStr(), "host.local.x.");
    // A pointer to a name of several labels yields only the first one.
    DnsBuilder c;
    c.header(0, 0, 0, 0, 0, 0);
    c.name({"a", "b", "c"}); // 12
    c.ptr(12).u8(0);         // 19
    Exact f(c.bytes);
    EXPECT_EQ(mdns_read_strings(f.packet(), 19, out), 3);
    EXPECT_STREQ(out.retStr(), "a.");
}

TEST(MdnsReadStrings, RunningOffTheEndIsMalformed) {
    // A name whose pointer is the last thing in the datagram: the Part's
    // reader would look at the byte after it, which is not there.
    DnsBuilder b;
    b.header(0, 0, 0, 0, 0, 0);
    b.name({"local"});
    b.label("host").ptr(12);
    Exact e(b.bytes);
    ZString out;
    EXPECT_EQ(mdns_read_strings(e.packet(), 19, out), MdnsMalformed);
}

TEST(MdnsReadString, OutOfBounds) {
    ZString out;
    {
        // label longer than what is left
        DnsBuilder b;
        b.u8(5).raw("abcd");
        Exact e(b.bytes);
        EXPECT_EQ(mdns_read_string(e.packet(), 0, out), MdnsMalformed);
        EXPECT_EQ(mdns_read_string(e.packet(), 5, out), MdnsMalformed); // at the end
        EXPECT_EQ(mdns_read_string(e.packet(), 99, out), MdnsMalformed);
    }
    {
        // pointer byte with its second byte missing
        DnsBuilder b;
        b.label("ab").u8(0xC0);
        Exact e(b.bytes);
        EXPECT_EQ(mdns_read_string(e.packet(), 3, out), MdnsMalformed);
    }
    {
        // pointer past the end, and to the last byte whose label runs off
        DnsBuilder b;
        b.label("ab").ptr(5).ptr(0x3FFF).u8(9);
        Exact e(b.bytes);
        EXPECT_EQ(mdns_read_string(e.packet(), 3, out), MdnsMalformed);
        EXPECT_EQ(mdns_read_string(e.packet(), 5, out), MdnsMalformed);
    }
    {
        // empty packet
        Exact e(std::vector<uint8_t>{});
        EXPECT_EQ(mdns_read_string(e.packet(), 0, out), MdnsMalformed);
        EXPECT_EQ(mdns_read_strings(e.packet(), 0, out), MdnsMalformed);
        EXPECT_EQ(mdns_read_name(e.packet(), 0, out), MdnsMalformed);
    }
}

TEST(MdnsReadString, PointerToPointerIsTakenAsALengthByte) {
    // The Part reads the byte at a pointer's target as a label length. A
    // target that is itself a pointer (0xC0..) is a label of 192+ bytes:
    // refused when the packet is too short for it.
    DnsBuilder b;
    b.ptr(2).ptr(0);
    Exact e(b.bytes);
    ZString out;
    EXPECT_EQ(mdns_read_string(e.packet(), 0, out), MdnsMalformed);
    EXPECT_EQ(mdns_read_strings(e.packet(), 0, out), MdnsMalformed);
}

// ---------------------------------------------- the standard name decoder

TEST(MdnsReadName, FollowsPointersToTheEnd) {
    DnsBuilder b;
    b.header(0, 0, 0, 0, 0, 0);
    b.name({"_tavro", "_tcp", "local"}); // 12, "local" at 24
    b.label("host").ptr(24);             // 31
    b.ptr(31);                           // 38
    b.label("a").ptr(38);                // 40
    Exact e(b.bytes);
    ZString out;
    EXPECT_EQ(mdns_read_name(e.packet(), 12, out), 19);
    EXPECT_STREQ(out.retStr(), "_tavro._tcp.local.");
    EXPECT_EQ(mdns_read_name(e.packet(), 31, out), 7);
    EXPECT_STREQ(out.retStr(), "host.local.");
    EXPECT_EQ(mdns_read_name(e.packet(), 38, out), 2);
    EXPECT_STREQ(out.retStr(), "host.local.");
    EXPECT_EQ(mdns_read_name(e.packet(), 40, out), 4);
    EXPECT_STREQ(out.retStr(), "a.host.local.");
}

TEST(MdnsReadName, LoopsAndBadNamesAreRefused) {
    ZString out;
    {
        DnsBuilder b; // pointer to itself
        b.ptr(0);
        Exact e(b.bytes);
        EXPECT_EQ(mdns_read_name(e.packet(), 0, out), MdnsMalformed);
    }
    {
        DnsBuilder b; // two pointers to each other, with labels in between
        b.label("a").ptr(4).label("b").ptr(0);
        Exact e(b.bytes);
        EXPECT_EQ(mdns_read_name(e.packet(), 0, out), MdnsMalformed);
    }
    {
        DnsBuilder b; // reserved label types
        b.u8(0x40).u8(0);
        b.u8(0x80).u8(0);
        Exact e(b.bytes);
        EXPECT_EQ(mdns_read_name(e.packet(), 0, out), MdnsMalformed);
        EXPECT_EQ(mdns_read_name(e.packet(), 2, out), MdnsMalformed);
    }
    {
        DnsBuilder b; // longer than 255 bytes
        for (int i = 0; i < 5; i++)
            b.label(std::string(60, 'x'));
        b.u8(0);
        Exact e(b.bytes);
        EXPECT_EQ(mdns_read_name(e.packet(), 0, out), MdnsMalformed);
        // ... while four of them (245 bytes) are fine
        EXPECT_EQ(mdns_read_name(e.packet(), 61, out), 245);
    }
    {
        DnsBuilder b; // a chain of 200 pointers, each to the one before
        b.u8(0);
        b.ptr(0);
        for (int i = 1; i < 200; i++)
            b.ptr(unsigned(1 + 2 * (i - 1)));
        Exact e(b.bytes);
        EXPECT_EQ(mdns_read_name(e.packet(), 1, out), 2);                     // one hop
        EXPECT_EQ(mdns_read_name(e.packet(), unsigned(1 + 2 * 126), out), 2); // 127 hops
        EXPECT_EQ(mdns_read_name(e.packet(), unsigned(1 + 2 * 127), out), MdnsMalformed);
    }
    {
        DnsBuilder b; // label / pointer running off the end
        b.label("abc").u8(7).raw("ab");
        Exact e(b.bytes);
        EXPECT_EQ(mdns_read_name(e.packet(), 0, out), MdnsMalformed);
        DnsBuilder c;
        c.label("abc").u8(0xC0);
        Exact f(c.bytes);
        EXPECT_EQ(mdns_read_name(f.packet(), 0, out), MdnsMalformed);
        DnsBuilder d;
        d.label("abc").ptr(200);
        Exact g(d.bytes);
        EXPECT_EQ(mdns_read_name(g.packet(), 0, out), MdnsMalformed);
    }
}

// ------------------------------------------------------------ whole replies

TEST(MdnsParse, OneUnit) {
    ZMdnsService s;
    ASSERT_EQ(parse(mdnstest::unitReply(7), 7, s), ZMdnsReply::Accepted);
    expectUnit(s, 0xC0A8012A, 40358, "tavro-0042.local.", {"serial=0042"});
}

TEST(MdnsParse, OneUnitByteForByte) {
    // The same reply written out by hand, so that the builder is checked too.
    // clang-format off
    const uint8_t d[] = {
        0x00, 0x07, 0x84, 0x00, 0x00, 0x01, 0x00, 0x01, 0x00, 0x00, 0x00, 0x03,
        // 12: question
        6, '_', 't', 'a', 'v', 'r', 'o', 4, '_', 't', 'c', 'p', 5, 'l', 'o', 'c', 'a', 'l', 0,
        0x00, 0x0C, 0x80, 0x01,
        // 35: PTR answer, name -> 12, data: "Tavro-0042" + pointer to 12
        0xC0, 0x0C, 0x00, 0x0C, 0x00, 0x01, 0x00, 0x00, 0x11, 0x94, 0x00, 0x0D,
        10, 'T', 'a', 'v', 'r', 'o', '-', '0', '0', '4', '2', 0xC0, 0x0C,
        // 60: SRV additional, name -> 47 (the instance)
        0xC0, 0x2F, 0x00, 0x21, 0x80, 0x01, 0x00, 0x00, 0x00, 0x78, 0x00, 0x18,
        0x00, 0x00, 0x00, 0x00, 0x9D, 0xA6,
        10, 't', 'a', 'v', 'r', 'o', '-', '0', '0', '4', '2', 5, 'l', 'o', 'c', 'a', 'l', 0,
        // 96: TXT additional
        0xC0, 0x2F, 0x00, 0x10, 0x80, 0x01, 0x00, 0x00, 0x11, 0x94, 0x00, 0x0C,
        11, 's', 'e', 'r', 'i', 'a', 'l', '=', '0', '0', '4', '2',
        // 120: A additional, name -> 78 (the host)
        0xC0, 0x4E, 0x00, 0x01, 0x80, 0x01, 0x00, 0x00, 0x00, 0x78, 0x00, 0x04,
        192, 168, 1, 42};
    // clang-format on
    std::vector<uint8_t> v(d, d + sizeof(d));
    EXPECT_EQ(v, mdnstest::unitReply(7));
    ZMdnsService s;
    ASSERT_EQ(parse(v, 7, s), ZMdnsReply::Accepted);
    expectUnit(s, 0xC0A8012A, 40358, "tavro-0042.local.", {"serial=0042"});
}

TEST(MdnsParse, AvahiStyleAnswers) {
    // A, SRV and TXT in the answer section, the SRV target "tavrotest" +
    // pointer: read with the standard decoder to "tavrotest.local.".
    Unit u;
    u.instance = "Tavro test unit";
    u.host = "tavrotest";
    u.address = 0x7F000001;
    u.texts = {"serial=T400-0042"};
    ZMdnsService s;
    ASSERT_EQ(parse(mdnstest::avahiStyleReply(7, u), 7, s), ZMdnsReply::Accepted);
    expectUnit(s, 0x7F000001, 40358, "tavrotest.local.", {"serial=T400-0042"});
}

TEST(MdnsParse, AvahiCapturedReply) {
    // A reply of avahi-daemon 0.8 (captured in a test namespace) to a query
    // with id 7; the builder above lays out the same bytes.
    const char* hex =
        "000784000001000400000000065f746176726f045f746370056c6f63616c00000c8001c00c000c0001000000"
        "0a00120f546176726f207465737420756e6974c00cc02f001000010000000a00111073657269616c3d543430"
        "302d30303432c02f002100010000000a0012000000009da609746176726f74657374c018c070000100010000"
        "000a00047f000001";
    std::vector<uint8_t> v;
    for (size_t i = 0; hex[i] && hex[i + 1]; i += 2)
        v.push_back(uint8_t(std::stoul(std::string(hex + i, 2), nullptr, 16)));
    ASSERT_EQ(v.size(), 140u);
    ZMdnsService s;
    ASSERT_EQ(parse(v, 7, s), ZMdnsReply::Accepted);
    expectUnit(s, 0x7F000001, 40358, "tavrotest.local.", {"serial=T400-0042"});
    // The builder lays out the same bytes.
    Unit u;
    u.instance = "Tavro test unit";
    u.host = "tavrotest";
    u.address = 0x7F000001;
    u.texts = {"serial=T400-0042"};
    EXPECT_EQ(mdnstest::avahiStyleReply(7, u), v);
}

TEST(MdnsParse, PartSrvTargetReaderInAdditionals) {
    // In the additional section the SRV target is read the Part's way: a
    // target "host" + pointer to "local" goes on into the bytes that follow
    // (here the next record's name, a pointer to the host label).
    DnsBuilder b;
    b.header(3, 0x8400, 1, 0, 0, 2);
    b.question({"_tavro", "_tcp", "local"}); // "local" label at 24
    b.ptr(12);
    size_t d = b.beginData(33);
    b.u16(0).u16(0).u16(1234);
    size_t host = b.pos();
    b.label("host").ptr(24);
    b.endData(d);
    b.ptr(unsigned(host)); // A record; the reader takes "host" again, then stops at 0x00
    d = b.beginData(1);
    b.u32(0x0A000001);
    b.endData(d);
    ZMdnsService s;
    ASSERT_EQ(parse(b.bytes, 3, s), ZMdnsReply::Accepted);
    expectUnit(s, 0x0A000001, 1234, "host.local.host.", {});
}

TEST(MdnsParse, AnswersThenAdditionalsInOrder) {
    // Records of both sections: later ones overwrite address, port and name;
    // texts accumulate in arrival order; the first string of each TXT only.
    DnsBuilder b;
    b.header(9, 0x8400, 1, 3, 0, 3);
    b.question({"_tavro", "_tcp", "local"});
    b.ptr(12);
    size_t d = b.beginData(16);
    b.label("a1").label("ignored");
    b.endData(d);
    b.ptr(12);
    d = b.beginData(1);
    b.u32(0x01020304);
    b.endData(d);
    b.ptr(12);
    d = b.beginData(33);
    b.u16(0).u16(0).u16(1111).name({"first", "local"});
    b.endData(d);
    b.ptr(12);
    d = b.beginData(16);
    b.label("b1");
    b.endData(d);
    b.ptr(12);
    d = b.beginData(33);
    b.u16(0).u16(0).u16(2222).name({"second", "local"});
    b.endData(d);
    b.ptr(12);
    d = b.beginData(47); // NSEC: skipped
    b.u8(0xC0).u8(12).u8(0).u8(1).u8(0x40);
    b.endData(d);
    ZMdnsService s;
    ASSERT_EQ(parse(b.bytes, 9, s), ZMdnsReply::Accepted);
    expectUnit(s, 0x01020304, 2222, "second.local.", {"a1", "b1"});
}

TEST(MdnsParse, AddressAndPortKeptWhenMissing) {
    DnsBuilder b;
    b.header(1, 0x8400, 1, 0, 0, 1);
    b.question({"_tavro", "_tcp", "local"});
    b.ptr(12);
    size_t d = b.beginData(16);
    b.label("only=text");
    b.endData(d);
    ZMdnsService s;
    ASSERT_EQ(parse(b.bytes, 1, s), ZMdnsReply::Accepted);
    expectUnit(s, 0, 0, "", {"only=text"});
    // Nothing but the question: still one (empty) service.
    DnsBuilder c;
    c.header(1, 0x8400, 1, 0, 0, 0);
    c.question({"_tavro", "_tcp", "local"});
    ASSERT_EQ(parse(c.bytes, 1, s), ZMdnsReply::Accepted);
    expectUnit(s, 0, 0, "", {});
}

TEST(MdnsParse, NotOurs) {
    ZMdnsService s;
    EXPECT_EQ(parse(mdnstest::unitReply(8), 7, s), ZMdnsReply::Ignored);
    EXPECT_EQ(parse(mdnstest::unitReply(7, Unit(), 0x8000), 7, s), ZMdnsReply::Ignored);
    EXPECT_EQ(parse(mdnstest::unitReply(7, Unit(), 0x8404), 7, s), ZMdnsReply::Ignored);
    EXPECT_EQ(parse(mdnstest::unitReply(7, Unit(), 0x0400), 7, s), ZMdnsReply::Ignored);
    EXPECT_EQ(parse(mdnstest::unitReply(7, Unit(), 0x8400, {"_other", "_tcp", "local"}), 7, s),
              ZMdnsReply::Ignored);
    // The service must match exactly, final "." included.
    EXPECT_EQ(parse(mdnstest::unitReply(7), 7, s, "_tavro._tcp.local"), ZMdnsReply::Ignored);
    EXPECT_EQ(parse(mdnstest::unitReply(7), 7, s, "_TAVRO._tcp.local."), ZMdnsReply::Ignored);
    // No question at all.
    DnsBuilder b;
    b.header(7, 0x8400, 0, 0, 0, 0);
    EXPECT_EQ(parse(b.bytes, 7, s), ZMdnsReply::Ignored);
}

TEST(MdnsParse, LastQuestionDecides) {
    DnsBuilder b;
    b.header(5, 0x8400, 2, 0, 0, 0);
    b.question({"_other", "_tcp", "local"});
    b.question({"_tavro", "_tcp", "local"});
    ZMdnsService s;
    EXPECT_EQ(parse(b.bytes, 5, s), ZMdnsReply::Accepted);
    DnsBuilder c;
    c.header(5, 0x8400, 2, 0, 0, 0);
    c.question({"_tavro", "_tcp", "local"});
    c.question({"_other", "_tcp", "local"});
    EXPECT_EQ(parse(c.bytes, 5, s), ZMdnsReply::Ignored);
}

TEST(MdnsParse, LabelWithZeroByteDoesNotMatch) {
    // "_tavro._tcp.local." followed by a label that starts with a zero byte
    // would compare equal as a C string.
    DnsBuilder b;
    b.header(5, 0x8400, 1, 0, 0, 0);
    b.label("_tavro").label("_tcp").label("local").label(std::string("\0x", 2)).u8(0);
    b.u16(12).u16(0x8001);
    ZMdnsService s;
    EXPECT_EQ(parse(b.bytes, 5, s), ZMdnsReply::Ignored);
}

TEST(MdnsParse, QuirkRecordNameMustEndInAPointer) {
    // The Part's record walk takes the zero byte of an uncompressed name as
    // the start of the fixed part: the record is misread (here its data
    // length becomes 0x7800, past the end) and the reply refused.
    DnsBuilder b;
    b.header(5, 0x8400, 1, 1, 0, 0);
    b.question({"_tavro", "_tcp", "local"});
    b.name({"x", "local"});
    size_t d = b.beginData(12, 1, 120);
    b.ptr(12);
    b.endData(d);
    ZMdnsService s;
    EXPECT_EQ(parse(b.bytes, 5, s), ZMdnsReply::Malformed);
    // The same record with a compressed name is fine.
    DnsBuilder c;
    c.header(5, 0x8400, 1, 1, 0, 0);
    c.question({"_tavro", "_tcp", "local"});
    c.label("x").ptr(24);
    d = c.beginData(12, 1, 120);
    c.ptr(12);
    c.endData(d);
    EXPECT_EQ(parse(c.bytes, 5, s), ZMdnsReply::Accepted);
}

// ------------------------------------------------------------ hostile input

TEST(MdnsParse, EveryTruncationIsRefused) {
    for (const std::vector<uint8_t>& full :
         {mdnstest::unitReply(7), mdnstest::avahiStyleReply(7)}) {
        for (size_t n = 0; n < full.size(); n++) {
            ZMdnsService s;
            std::vector<uint8_t> cut(full.begin(), full.begin() + long(n));
            EXPECT_EQ(parse(cut, 7, s), ZMdnsReply::Malformed) << "length " << n;
        }
    }
}

TEST(MdnsParse, HugeCounts) {
    for (int which = 0; which < 4; which++) {
        std::vector<uint8_t> v = mdnstest::unitReply(7);
        v[4 + 2 * which] = 0xFF;
        v[5 + 2 * which] = 0xFF;
        ZMdnsService s;
        EXPECT_EQ(parse(v, 7, s), ZMdnsReply::Malformed) << "count " << which;
    }
}

TEST(MdnsParse, RecordLengthPastTheEnd) {
    std::vector<uint8_t> v = mdnstest::unitReply(7);
    // the A record's data length (last record, 4 data bytes)
    size_t rdlen = v.size() - 6;
    ASSERT_EQ(v[rdlen + 1], 4);
    v[rdlen + 1] = 5;
    ZMdnsService s;
    EXPECT_EQ(parse(v, 7, s), ZMdnsReply::Malformed);
    v[rdlen] = 0xFF;
    v[rdlen + 1] = 0xFF;
    EXPECT_EQ(parse(v, 7, s), ZMdnsReply::Malformed);
    // and one that is exactly right still parses
    v[rdlen] = 0;
    v[rdlen + 1] = 4;
    EXPECT_EQ(parse(v, 7, s), ZMdnsReply::Accepted);
}

TEST(MdnsParse, RecordContentMustFitItsData) {
    auto one = [](unsigned type, std::vector<uint8_t> data, bool answer,
                  std::vector<uint8_t> after = {}) {
        DnsBuilder b;
        b.header(5, 0x8400, 1, answer ? 1 : 0, 0, answer ? 0 : 1);
        b.question({"_tavro", "_tcp", "local"});
        b.ptr(12);
        size_t d = b.beginData(type);
        b.bytes.insert(b.bytes.end(), data.begin(), data.end());
        b.endData(d);
        b.bytes.insert(b.bytes.end(), after.begin(), after.end());
        ZMdnsService s;
        return parse(b.bytes, 5, s);
    };
    for (bool answer : {false, true}) {
        EXPECT_EQ(one(1, {1, 2, 3}, answer), ZMdnsReply::Malformed);
        EXPECT_EQ(one(1, {1, 2, 3, 4}, answer), ZMdnsReply::Accepted);
        EXPECT_EQ(one(33, {0, 0, 0, 0, 1}, answer), ZMdnsReply::Malformed);
        EXPECT_EQ(one(16, {}, answer), ZMdnsReply::Malformed);
        EXPECT_EQ(one(16, {3, 'a', 'b'}, answer), ZMdnsReply::Malformed);
        EXPECT_EQ(one(16, {0}, answer), ZMdnsReply::Accepted);
        // an SRV target pointing past the end / to itself
        EXPECT_EQ(one(33, {0, 0, 0, 0, 0, 1, 0xC3, 0xFF}, answer), ZMdnsReply::Malformed);
        EXPECT_EQ(one(12, {0xC3, 0xFF}, answer), ZMdnsReply::Accepted); // PTR data is not read
    }
    // SRV target loop in the answer section (standard decoder): 6 data bytes
    // start at 47, the target at 53 points to itself.
    EXPECT_EQ(one(33, {0, 0, 0, 0, 0, 1, 0xC0, 53}, true), ZMdnsReply::Malformed);
    // A target running off the datagram.
    EXPECT_EQ(one(33, {0, 0, 0, 0, 0, 1, 2, 'a', 'b'}, true), ZMdnsReply::Malformed);
    EXPECT_EQ(one(33, {0, 0, 0, 0, 0, 1, 2, 'a', 'b'}, false), ZMdnsReply::Malformed);
    // In the answer section the target must end inside the record's data;
    // the Part's reader of the additional section reads on into what follows.
    EXPECT_EQ(one(33, {0, 0, 0, 0, 0, 1, 2, 'a', 'b'}, true, {0}), ZMdnsReply::Malformed);
    EXPECT_EQ(one(33, {0, 0, 0, 0, 0, 1, 2, 'a', 'b'}, false, {0}), ZMdnsReply::Accepted);
    EXPECT_EQ(one(33, {0, 0, 0, 0, 0, 1, 2, 'a', 'b', 0}, true), ZMdnsReply::Accepted);
}

TEST(MdnsParse, PointerLoopsInRecordNames) {
    // The Part's label reader never follows more than one pointer, so a
    // record name that points at itself is read as a 192-byte label (refused
    // here because it runs off the end).
    DnsBuilder b;
    b.header(5, 0x8400, 1, 1, 0, 0);
    b.question({"_tavro", "_tcp", "local"});
    size_t here = b.pos();
    b.ptr(unsigned(here));
    b.beginData(1);
    ZMdnsService s;
    EXPECT_EQ(parse(b.bytes, 5, s), ZMdnsReply::Malformed);
}

TEST(MdnsParse, OversizedInputIsRefused) {
    std::vector<uint8_t> v = mdnstest::unitReply(7);
    v.resize(70000);
    ZMdnsService s;
    EXPECT_EQ(parse(v, 7, s), ZMdnsReply::Malformed);
    v.resize(65535);
    EXPECT_EQ(parse(v, 7, s), ZMdnsReply::Accepted); // trailing bytes are not looked at
}

TEST(MdnsParse, RandomMutationsStayInBounds) {
    // A small in-process fuzz: mutated replies in exact-size buffers. Any
    // out-of-bounds read fails under AddressSanitizer.
    std::mt19937 rng(12345);
    std::vector<std::vector<uint8_t>> seeds = {mdnstest::unitReply(7),
                                               mdnstest::avahiStyleReply(7)};
    int accepted = 0;
    for (int i = 0; i < 40000; i++) {
        std::vector<uint8_t> v = seeds[size_t(i) % seeds.size()];
        int edits = 1 + int(rng() % 4);
        for (int k = 0; k < edits; k++) {
            switch (rng() % 4) {
            case 0:
                v[rng() % v.size()] = uint8_t(rng());
                break;
            case 1:
                v[rng() % v.size()] ^= uint8_t(1u << (rng() % 8));
                break;
            case 2:
                v.resize(rng() % (v.size() + 1));
                break;
            default:
                v[12 + rng() % (v.size() - 12)] = uint8_t(0xC0 | (rng() % 2));
                break;
            }
            if (v.size() < 13)
                break;
        }
        ZMdnsService s;
        if (parse(v, 7, s) == ZMdnsReply::Accepted)
            accepted++;
    }
    EXPECT_GT(accepted, 0);
}

// Writes the fuzz seed corpus when TAVRO_MDNS_WRITE_CORPUS names a folder:
//   TAVRO_MDNS_WRITE_CORPUS=fuzz/corpus/mdns build/tests/comms/comms_zmdns_test
TEST(MdnsCorpus, WriteSeeds) {
    const char* dir = getenv("TAVRO_MDNS_WRITE_CORPUS");
    if (!dir)
        GTEST_SKIP() << "set TAVRO_MDNS_WRITE_CORPUS to a folder to write the seed corpus";
    Unit two;
    two.instance = "Tavro-0099";
    two.host = "tavro-0099";
    two.address = 0x0A000063;
    two.texts = {"serial=0099", "fw=1.2.3"};
    std::vector<std::pair<std::string, std::vector<uint8_t>>> seeds = {
        {"unit-reply", mdnstest::unitReply(1)},
        {"unit-reply-two-texts", mdnstest::unitReply(0x1234, two)},
        {"avahi-style-reply", mdnstest::avahiStyleReply(1)},
        {"flags-8000", mdnstest::unitReply(1, Unit(), 0x8000)},
        {"other-service", mdnstest::unitReply(1, Unit(), 0x8400, {"_http", "_tcp", "local"})},
    };
    uint8_t q[MdnsQuerySize];
    mdnsBuildQuery(1, q);
    seeds.push_back({"query", std::vector<uint8_t>(q, q + MdnsQuerySize)});
    for (const auto& s : seeds) {
        std::ofstream f(std::string(dir) + "/" + s.first, std::ios::binary);
        f.write(reinterpret_cast<const char*>(s.second.data()), long(s.second.size()));
        ASSERT_TRUE(f.good()) << s.first;
    }
}
