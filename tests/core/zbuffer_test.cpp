// Tests of ZBuffer, ZBufferStore, bswap_copy.
#include "zbuffer.h"

#include <gtest/gtest.h>

#include <complex>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <string>
#include <tuple>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr bool kLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

Bytes bytes(const ZBuffer& b) {
    return Bytes(b.data(), b.data() + b.size());
}

Bytes seq(int n) {
    Bytes v(n);
    for (int i = 0; i < n; i++)
        v[i] = uint8_t(i + 1);
    return v;
}

Bytes swapped(const Bytes& src, const char* format) {
    Bytes dst(src.size(), 0xEE);
    bswap_copy(1, src.data(), dst.data(), uint32_t(src.size()), format);
    return dst;
}

// The conversion written out the slow way: each format character the size of the next element
// (2, 4, 8 reversed, anything else one byte), restarting the format until n bytes; an element
// that would run past n is left as it is.
Bytes referenceSwap(const Bytes& s, const std::string& f) {
    Bytes d(s);
    for (size_t i = 0, c = 0; !f.empty() && i < s.size(); c++) {
        char ch = f[c % f.size()];
        size_t k = (ch == '2' || ch == '4' || ch == '8') ? size_t(ch - '0') : 1;
        if (i + k > s.size())
            break;
        for (size_t j = 0; j < k; j++)
            d[i + j] = s[i + k - 1 - j];
        i += k;
    }
    return d;
}

// A pop of each kind of value and the bytes it takes from a zero-filled store (a zero length
// is an empty text).
struct PopKind {
    const char* name;
    uint32_t need;
    int (*pop)(ZBufferStore&);
};
template <class T>
int popOne(ZBufferStore& s) {
    T v{};
    return s.pop(v);
}
int popRaw(ZBufferStore& s) {
    uint8_t v[6];
    return s.pop(6, v, "24");
}
const PopKind kPops[] = {{"uint8", 1, popOne<uint8_t>},
                         {"int16", 2, popOne<int16_t>},
                         {"uint32", 4, popOne<uint32_t>},
                         {"float", 4, popOne<float>},
                         {"int64", 8, popOne<int64_t>},
                         {"double", 8, popOne<double>},
                         {"complex", 16, popOne<std::complex<double>>},
                         {"ZTimeStamp", 11, popOne<ZTimeStamp>},
                         {"ZString", 4, popOne<ZString>},
                         {"ZError", 8, popOne<ZError>},
                         {"raw", 6, popRaw}};

} // namespace

TEST(BswapCopy, FormatsByteImagesAlsoInPlace) {
    Bytes s8 = seq(8), d(8);
    bswap_copy(0, s8.data(), d.data(), 8, "8"); // swap 0: a plain copy
    EXPECT_EQ(d, s8);
    // Several characters: one record, repeated until n bytes.
    EXPECT_EQ(swapped(seq(12), "24"), (Bytes{2, 1, 6, 5, 4, 3, 8, 7, 12, 11, 10, 9}));
    EXPECT_EQ(swapped(seq(30), "1248"),
              (Bytes{1,  3,  2,  7,  6,  5,  4,  15, 14, 13, 12, 11, 10, 9,  8,
                     16, 18, 17, 22, 21, 20, 19, 30, 29, 28, 27, 26, 25, 24, 23}));
    // An element that would run past n stays as it is, and nothing past n is written.
    d.assign(8, 0xEE);
    bswap_copy(1, s8.data(), d.data(), 5, "24");
    EXPECT_EQ(d, (Bytes{2, 1, 3, 4, 5, 0xEE, 0xEE, 0xEE}));
    for (uint32_t n = 0; n < 140; n++) {
        Bytes s = seq(int(n));
        for (const char* f : {"1", "x", "", "8", "24", "42", "1248", "8421", "814", "x4"}) {
            Bytes want = referenceSwap(s, f), inPlace = s;
            ASSERT_EQ(swapped(s, f), want) << f << " n=" << n;
            bswap_copy(1, inPlace.data(), inPlace.data(), n, f);
            ASSERT_EQ(inPlace, want) << f << " n=" << n;
        }
    }
}

TEST(ZBuffer, AllocationSetDataWriteDataAndCopies) {
    EXPECT_EQ(ZBufferStore(300, 0).allocSize(), 512u);
    ZBuffer b;
    // {size, allocation}: growing and shrinking.
    const uint32_t steps[][2] = {{1, 256}, {256, 256}, {257, 512}, {1000, 1024}, {10, 256}, {0, 0}};
    for (auto& s : steps) {
        EXPECT_EQ(b.setSize(s[0]), 0);
        EXPECT_EQ(b.size(), s[0]);
        EXPECT_EQ(b.allocSize(), s[1]) << s[0];
    }
    auto text = [](const ZBuffer& x) { return std::string((const char*)x.data(), x.size()); };
    b.setData("hello", 5);
    b.setSize(600); // the old bytes kept, the new ones zero
    EXPECT_EQ(text(b), "hello" + std::string(595, '\0'));
    EXPECT_EQ(b.setSize(0xFFFFFFFFu), 1); // out of memory: left empty
    EXPECT_EQ(b.size() + b.allocSize(), 0u);
    EXPECT_EQ(b.data(), nullptr);
    EXPECT_EQ(b.setData("abcdef", 6), 0);
    EXPECT_EQ(b.writeData(4, "XYZ", 3), 0); // grows
    EXPECT_EQ(b.writeData(1, "--", 2), 0);  // inside
    EXPECT_EQ(b.writeData(9, "!", 1), 0);   // past the end: the gap is zero
    EXPECT_EQ(text(b), std::string("a--dXYZ\0\0!", 10));
    ZBuffer c(b), d;
    d = c;
    ZBuffer e(std::move(d));
    EXPECT_EQ(text(c), text(b));
    EXPECT_EQ(text(e), text(b));
    EXPECT_EQ(d.size(), 0u);
    // Data taken from the buffer itself, also while the block moves.
    e.setData(e.data() + 1, 3);
    e.writeData(3, e.data(), 3);
    EXPECT_EQ(text(e), "--d--d");
    e.setData(std::string(1000, '7').data(), 1000);
    e.writeData(1000, e.data(), 1000);
    EXPECT_EQ(text(e), std::string(2000, '7'));
}

TEST(ZBufferStore, ScalarsRoundTripBothByteOrders) {
    const auto values = std::make_tuple(
        int8_t(-5), uint8_t(250), int16_t(-1234), uint16_t(54321), int32_t(-123456789),
        uint32_t(0xDEADBEEF), int64_t(-1234567890123LL), uint64_t(0x0102030405060708ULL), 1.5f,
        -2.25, std::complex<double>(3.5, -4.5), 'c', true, ZString("hello"), ZString(),
        ZError(-110, "Timeout"), ZError(), ZTimeStamp(2024, 3, 1, 12, 30, 5, 250000));
    for (int sw = 0; sw < 2; sw++) {
        ZBufferStore st(0, sw);
        std::apply([&](auto... v) { EXPECT_EQ((st.push(v) + ...), 0); }, values);
        // Texts are a 4-byte length, the characters and a NUL; errors a number and a text.
        EXPECT_EQ(st.size(), 1u + 1 + 2 + 2 + 4 + 4 + 8 + 8 + 4 + 8 + 16 + 1 + 1 + (4 + 6) +
                                 (4 + 1) + (4 + 4 + 8) + (4 + 4 + 1) + 11);
        EXPECT_EQ(st.getPos(), st.size());
        st.setPos(0);
        auto popEq = [&](auto want) {
            decltype(want) got{};
            EXPECT_EQ(st.pop(got), 0);
            EXPECT_EQ(got, want) << "swap " << sw;
        };
        std::apply([&](auto... v) { (popEq(v), ...); }, values);
        EXPECT_EQ(st.getPos(), st.size());
    }
}

TEST(ZBufferStore, ByteImagesOnLittleEndianHost) {
    if (!kLittleEndian)
        GTEST_SKIP() << "the byte images are written for a little-endian host";
    ZBufferStore plain(0, 0), sw(0, 1);
    plain.push(uint32_t(0x01020304));
    plain.push(ZString()); // length 1 and a NUL
    EXPECT_EQ(bytes(plain), (Bytes{4, 3, 2, 1, 1, 0, 0, 0, 0}));
    sw.push(uint32_t(0x01020304));
    sw.push(std::complex<double>(1.0, 2.0)); // real part first, each reversed
    sw.push(ZString("ab"));                  // the length reversed, never the text
    sw.push(ZError(-2, "e"));
    Bytes want = {1, 2, 3, 4, 0x3F, 0xF0, 0, 0, 0, 0, 0, 0, 0x40, 0, 0, 0, 0, 0, 0, 0};
    Bytes text = {0, 0, 0, 3, 'a', 'b', 0, 0xFF, 0xFF, 0xFF, 0xFE, 0, 0, 0, 2, 'e', 0};
    want.insert(want.end(), text.begin(), text.end());
    EXPECT_EQ(bytes(sw), want);
    // A time stamp: year 2024 = 0x07E8, yday 60, 12, 30, 5, 250000 = 0x0003D090.
    ZTimeStamp t(2024, 3, 1, 12, 30, 5, 250000);
    ZBufferStore ts(0, 0), tsw(0, 1);
    ts.push(t);
    tsw.push(t);
    EXPECT_EQ(bytes(ts), (Bytes{0xE8, 0x07, 0x3C, 0x00, 12, 30, 5, 0x90, 0xD0, 0x03, 0x00}));
    EXPECT_EQ(bytes(tsw), (Bytes{0x07, 0xE8, 0x00, 0x3C, 12, 30, 5, 0x00, 0x03, 0xD0, 0x90}));
}

TEST(ZBufferStore, PushCutsOffAfterSetPosZeroFillsGapsAndGrowsBy256) {
    ZBufferStore st;
    for (uint32_t v : {0x11111111u, 0x22222222u, 0x33333333u})
        st.push(v);
    st.setPos(4);
    st.push(uint16_t(9)); // cuts off what followed
    EXPECT_EQ(st.size(), 6u);
    st.setPos(8);
    st.push(uint8_t(0xAB)); // past the end: the gap is zero, not what was cut off
    st.setPos(0);
    uint32_t a = 0;
    uint16_t b = 0, gap = 1;
    uint8_t c = 0;
    EXPECT_EQ(st.pop(a) + st.pop(b) + st.pop(gap) + st.pop(c), 0);
    EXPECT_EQ(std::make_tuple(a, b, gap, c), std::make_tuple(0x11111111u, 9, 0, 0xAB));
    EXPECT_EQ(st.pop(c), 1);
    ZBufferStore many;
    for (uint32_t i = 0; i < 100000; i++) {
        ASSERT_EQ(many.push(i), 0);
        ASSERT_EQ(many.allocSize() % 256u, 0u);
    }
    std::vector<uint32_t> want(100000);
    std::iota(want.begin(), want.end(), 0u);
    EXPECT_EQ(memcmp(many.data(), want.data(), 400000), 0);
}

TEST(ZBufferStore, ShortPopsReturnOneAndLeavePos) {
    for (const PopKind& k : kPops) {
        for (uint32_t have : {k.need - 1, k.need}) {
            ZBufferStore st(have);
            int rc = k.pop(st);
            EXPECT_EQ(rc, have < k.need ? 1 : 0) << k.name << " from " << have << " bytes";
            EXPECT_EQ(st.getPos(), rc ? 0u : have) << k.name << " from " << have << " bytes";
        }
    }
}

TEST(ZBufferStore, HostileLengthsAndRandomBytesNeverReadOutOfBounds) {
    // Lengths past the data, down to one byte short: refused, pos and the value kept.
    for (uint32_t n : {0xFFFFFFFFu, 0x80000000u, 0x7FFFFFFFu, 5u}) {
        ZBufferStore st;
        st.push(n);
        st.push(4, "AAAA"); // 4 bytes of text, no NUL
        st.setPos(0);
        ZString s("x");
        EXPECT_EQ(st.pop(s), 1) << n;
        EXPECT_EQ(st.getPos(), 0u);
        EXPECT_STREQ(s.retStr(), "x");
    }
    // A length that fits but a text without its NUL gives at most n - 1 characters.
    ZBufferStore st;
    st.push(uint32_t(4));
    st.push(4, "ABCD");
    st.push(ZString()); // and an empty text read into the same value
    st.setPos(0);
    ZString s;
    EXPECT_EQ(st.pop(s), 0);
    EXPECT_STREQ(s.retStr(), "ABC");
    EXPECT_EQ(st.getPos(), 8u);
    EXPECT_EQ(st.pop(s), 0);
    EXPECT_TRUE(s.isEmpty());
    // Every kind of pop from every position of random bytes (half of them zero, so that some
    // lengths fit): a failed pop leaves pos, a good one stays inside the data.
    uint32_t seed = 12345;
    for (int round = 0; round < 400; round++) {
        Bytes raw(round % 48);
        for (auto& b : raw) {
            seed = seed * 1103515245u + 12345u;
            b = (seed >> 30) & 1 ? uint8_t(seed >> 8) : 0;
        }
        ZBufferStore r(0, round & 1);
        r.setData(raw.data(), uint32_t(raw.size()));
        for (const PopKind& k : kPops) {
            for (uint32_t p = 0; p <= raw.size() + 1; p++) {
                r.setPos(p);
                if (k.pop(r)) {
                    ASSERT_EQ(r.getPos(), p) << k.name;
                } else {
                    ASSERT_GE(r.getPos(), p + k.need) << k.name;
                    ASSERT_LE(r.getPos(), r.size()) << k.name;
                }
            }
        }
    }
}

TEST(ZBufferStore, RawBlocksConvertedByFormat) {
    Bytes in = seq(45), out(45); // three records of 1 + 2 + 4 + 8 bytes
    ZBufferStore st(0, 1), plain(0, 0);
    EXPECT_EQ(st.push(45, in.data(), "1248"), 0);
    EXPECT_EQ(bytes(st), referenceSwap(in, "1248"));
    st.setPos(0);
    EXPECT_EQ(st.pop(45, out.data(), ZString("1248")), 0);
    EXPECT_EQ(out, in);
    EXPECT_EQ(st.getPos(), 45u);
    plain.push(45, in.data(), "1248"); // swap 0: as it is
    EXPECT_EQ(bytes(plain), in);
}
