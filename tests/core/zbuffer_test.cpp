// Tests of ZBuffer, ZBufferStore, bswap_copy.
#include "zbuffer.h"

#include <gtest/gtest.h>

#include <climits>
#include <complex>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

std::string S(const ZString& s) {
    return std::string(s.retStr());
}

std::vector<uint8_t> bytes(const ZBuffer& b) {
    return std::vector<uint8_t>(b.data(), b.data() + b.size());
}

std::vector<uint8_t> swapped(const std::vector<uint8_t>& src, const char* format) {
    std::vector<uint8_t> dst(src.size(), 0xEE);
    bswap_copy(1, src.data(), dst.data(), uint32_t(src.size()), format);
    return dst;
}

std::vector<uint8_t> seq(int n) {
    std::vector<uint8_t> v(n);
    for (int i = 0; i < n; i++)
        v[i] = uint8_t(i + 1);
    return v;
}

bool littleEndianHost() {
    uint16_t v = 1;
    uint8_t b;
    memcpy(&b, &v, 1);
    return b == 1;
}

} // namespace

// ---------------------------------------------------------------- bswap_copy

TEST(BswapCopy, NoSwapIsPlainCopy) {
    auto s = seq(16);
    std::vector<uint8_t> d(16);
    bswap_copy(0, s.data(), d.data(), 16, "8");
    EXPECT_EQ(d, s);
}

TEST(BswapCopy, SingleCharacterFormats) {
    auto s = seq(8);
    EXPECT_EQ(swapped(s, "1"), s);
    EXPECT_EQ(swapped(s, "x"), s);
    EXPECT_EQ(swapped(s, ""), s);
    EXPECT_EQ(swapped(s, "2"), (std::vector<uint8_t>{2, 1, 4, 3, 6, 5, 8, 7}));
    EXPECT_EQ(swapped(s, "4"), (std::vector<uint8_t>{4, 3, 2, 1, 8, 7, 6, 5}));
    EXPECT_EQ(swapped(s, "8"), (std::vector<uint8_t>{8, 7, 6, 5, 4, 3, 2, 1}));
    auto s16 = seq(16);
    EXPECT_EQ(swapped(s16, "8"),
              (std::vector<uint8_t>{8, 7, 6, 5, 4, 3, 2, 1, 16, 15, 14, 13, 12, 11, 10, 9}));
}

TEST(BswapCopy, MultiCharacterFormatsRestartUntilNBytes) {
    // "24": a 2-byte then a 4-byte element, repeated.
    auto s = seq(12);
    EXPECT_EQ(swapped(s, "24"), (std::vector<uint8_t>{2, 1, 6, 5, 4, 3, 8, 7, 12, 11, 10, 9}));
    // "1248": 15-byte records.
    auto r = seq(30);
    std::vector<uint8_t> want = {1,  3,  2,  7,  6,  5,  4,  15, 14, 13, 12, 11, 10, 9,  8,
                                 16, 18, 17, 22, 21, 20, 19, 30, 29, 28, 27, 26, 25, 24, 23};
    EXPECT_EQ(swapped(r, "1248"), want);
    // "8" over 24 bytes.
    auto e = seq(24);
    auto w8 = swapped(e, "8");
    EXPECT_EQ(w8[0], 8);
    EXPECT_EQ(w8[8], 16);
    EXPECT_EQ(w8[16], 24);
    EXPECT_EQ(w8[23], 17);
    // "14" (a byte then a 4-byte value) as an array of records.
    auto q = seq(10);
    EXPECT_EQ(swapped(q, "14"), (std::vector<uint8_t>{1, 5, 4, 3, 2, 6, 10, 9, 8, 7}));
}

TEST(BswapCopy, ElementRunningPastNIsNotOverrun) {
    // n = 7 with "4": one whole element reversed, the 3 left copied as they are.
    std::vector<uint8_t> s = {1, 2, 3, 4, 5, 6, 7, 0xAA};
    std::vector<uint8_t> d(8, 0xEE);
    bswap_copy(1, s.data(), d.data(), 7, "4");
    EXPECT_EQ(d, (std::vector<uint8_t>{4, 3, 2, 1, 5, 6, 7, 0xEE}));
    // "24" with n = 5: the 4-byte element would run past n.
    d.assign(8, 0xEE);
    bswap_copy(1, s.data(), d.data(), 5, "24");
    EXPECT_EQ(d, (std::vector<uint8_t>{2, 1, 3, 4, 5, 0xEE, 0xEE, 0xEE}));
    // Exact-size heap blocks so that ASan sees any overrun.
    for (uint32_t n = 0; n < 20; n++) {
        for (const char* f : {"2", "4", "8", "24", "1248", "8421", "42"}) {
            uint8_t* a = new uint8_t[n ? n : 1];
            uint8_t* b = new uint8_t[n ? n : 1];
            for (uint32_t i = 0; i < n; i++)
                a[i] = uint8_t(i);
            bswap_copy(1, a, b, n, f);
            // Swapping twice gives the original back.
            bswap_copy(1, b, b, n, f);
            for (uint32_t i = 0; i < n; i++)
                ASSERT_EQ(b[i], uint8_t(i)) << f << " n=" << n;
            delete[] a;
            delete[] b;
        }
    }
}

// The Algorithm written out the slow way, for comparison.
static std::vector<uint8_t> referenceSwap(const std::vector<uint8_t>& s, const std::string& f) {
    std::vector<uint8_t> d(s);
    size_t n = s.size(), i = 0, c = 0;
    if (f.empty())
        return d;
    while (i < n) {
        char ch = f[c % f.size()];
        c++;
        size_t k = (ch == '2' || ch == '4' || ch == '8') ? size_t(ch - '0') : 1;
        if (i + k > n)
            break; // a partial element stays as it is
        for (size_t j = 0; j < k; j++)
            d[i + j] = s[i + k - 1 - j];
        i += k;
    }
    return d;
}

TEST(BswapCopy, AgreesWithReferenceForManySizesAndFormats) {
    for (uint32_t n = 0; n < 140; n++) {
        auto s = seq(int(n));
        for (const char* f : {"1", "2", "4", "8", "24", "42", "1248", "8", "814", "2222", "x4"}) {
            ASSERT_EQ(swapped(s, f), referenceSwap(s, f)) << f << " n=" << n;
            auto inPlace = s;
            bswap_copy(1, inPlace.data(), inPlace.data(), n, f);
            ASSERT_EQ(inPlace, referenceSwap(s, f)) << f << " n=" << n;
        }
    }
}

TEST(BswapCopy, InPlace) {
    auto s = seq(8);
    bswap_copy(1, s.data(), s.data(), 8, "4");
    EXPECT_EQ(s, (std::vector<uint8_t>{4, 3, 2, 1, 8, 7, 6, 5}));
}

// ---------------------------------------------------------------- ZBuffer

TEST(ZBufferAlloc, RoundedUpTo256) {
    ZBufferStore st(300, 0);
    EXPECT_EQ(st.size(), 300u);
    EXPECT_EQ(st.allocSize(), 512u);
    ZBuffer b;
    EXPECT_EQ(b.size(), 0u);
    EXPECT_EQ(b.allocSize(), 0u);
    EXPECT_EQ(b.setSize(1), 0);
    EXPECT_EQ(b.allocSize(), 256u);
    EXPECT_EQ(b.setSize(256), 0);
    EXPECT_EQ(b.allocSize(), 256u);
    EXPECT_EQ(b.setSize(257), 0);
    EXPECT_EQ(b.allocSize(), 512u);
    EXPECT_EQ(b.setSize(1000), 0);
    EXPECT_EQ(b.allocSize(), 1024u);
    EXPECT_EQ(b.setSize(10), 0); // shrinks too
    EXPECT_EQ(b.allocSize(), 256u);
    EXPECT_EQ(b.setSize(0), 0);
    EXPECT_EQ(b.allocSize(), 0u);
}

TEST(ZBufferAlloc, SetSizeZeroesNewBytesAndKeepsOld) {
    ZBuffer b;
    const char text[] = "hello";
    b.setData(text, 5);
    b.setSize(600);
    EXPECT_EQ(memcmp(b.data(), "hello", 5), 0);
    for (uint32_t i = 5; i < 600; i++)
        ASSERT_EQ(b.data()[i], 0);
}

TEST(ZBufferAlloc, OutOfMemoryLeavesItEmpty) {
    ZBuffer b(10);
    EXPECT_EQ(b.setSize(0xFFFFFFFFu), 1); // rounds past 32 bits / far too much
    EXPECT_EQ(b.size(), 0u);
    EXPECT_EQ(b.allocSize(), 0u);
    EXPECT_EQ(b.data(), nullptr);
}

TEST(ZBufferData, SetDataWriteDataAndCopies) {
    ZBuffer b;
    EXPECT_EQ(b.setData("abcdef", 6), 0);
    EXPECT_EQ(b.size(), 6u);
    EXPECT_EQ(b.allocSize(), 256u);
    EXPECT_EQ(b.writeData(4, "XYZ", 3), 0); // grows
    EXPECT_EQ(std::string((const char*)b.data(), b.size()), "abcdXYZ");
    EXPECT_EQ(b.writeData(1, "--", 2), 0); // inside
    EXPECT_EQ(std::string((const char*)b.data(), b.size()), "a--dXYZ");
    EXPECT_EQ(b.writeData(9, "!", 1), 0); // past the end: the gap is zero
    EXPECT_EQ(b.size(), 10u);
    EXPECT_EQ(b.data()[7], 0);
    EXPECT_EQ(b.data()[8], 0);
    EXPECT_EQ(b.data()[9], '!');
    ZBuffer c(b);
    EXPECT_EQ(bytes(c), bytes(b));
    ZBuffer d;
    d = c;
    EXPECT_EQ(bytes(d), bytes(b));
    ZBuffer e(std::move(d));
    EXPECT_EQ(bytes(e), bytes(b));
    EXPECT_EQ(d.size(), 0u);
    // Data taken from the buffer itself.
    e.setData(e.data() + 1, 3);
    EXPECT_EQ(std::string((const char*)e.data(), e.size()), "--d");
    e.writeData(3, e.data(), 3);
    EXPECT_EQ(std::string((const char*)e.data(), e.size()), "--d--d");
    std::vector<uint8_t> big(1000, 7);
    e.setData(big.data(), 1000);
    e.writeData(1000, e.data(), 1000); // source inside a block that moves
    EXPECT_EQ(e.size(), 2000u);
    for (uint32_t i = 0; i < 2000; i++)
        ASSERT_EQ(e.data()[i], 7);
}

// ---------------------------------------------------------------- ZBufferStore: scalars

TEST(ZBufferStorePush, ScalarsRoundTripBothByteOrders) {
    for (int sw = 0; sw < 2; sw++) {
        ZBufferStore st(0, sw);
        EXPECT_EQ(st.push(int8_t(-5)), 0);
        EXPECT_EQ(st.push(uint8_t(250)), 0);
        EXPECT_EQ(st.push(int16_t(-1234)), 0);
        EXPECT_EQ(st.push(uint16_t(54321)), 0);
        EXPECT_EQ(st.push(int32_t(-123456789)), 0);
        EXPECT_EQ(st.push(uint32_t(0xDEADBEEF)), 0);
        EXPECT_EQ(st.push(int64_t(-1234567890123LL)), 0);
        EXPECT_EQ(st.push(uint64_t(0x0102030405060708ULL)), 0);
        EXPECT_EQ(st.push(1.5f), 0);
        EXPECT_EQ(st.push(-2.25), 0);
        EXPECT_EQ(st.push(std::complex<double>(3.5, -4.5)), 0);
        EXPECT_EQ(st.push('c'), 0);
        EXPECT_EQ(st.push(true), 0);
        EXPECT_EQ(st.size(), 1u + 1 + 2 + 2 + 4 + 4 + 8 + 8 + 4 + 8 + 16 + 1 + 1);
        EXPECT_EQ(st.getPos(), st.size());
        st.setPos(0);
        int8_t a{};
        uint8_t b{};
        int16_t c{};
        uint16_t d{};
        int32_t e{};
        uint32_t f{};
        int64_t g{};
        uint64_t h{};
        float i{};
        double j{};
        std::complex<double> k{};
        char l{};
        bool m{};
        EXPECT_EQ(st.pop(a), 0);
        EXPECT_EQ(st.pop(b), 0);
        EXPECT_EQ(st.pop(c), 0);
        EXPECT_EQ(st.pop(d), 0);
        EXPECT_EQ(st.pop(e), 0);
        EXPECT_EQ(st.pop(f), 0);
        EXPECT_EQ(st.pop(g), 0);
        EXPECT_EQ(st.pop(h), 0);
        EXPECT_EQ(st.pop(i), 0);
        EXPECT_EQ(st.pop(j), 0);
        EXPECT_EQ(st.pop(k), 0);
        EXPECT_EQ(st.pop(l), 0);
        EXPECT_EQ(st.pop(m), 0);
        EXPECT_EQ(a, -5);
        EXPECT_EQ(b, 250);
        EXPECT_EQ(c, -1234);
        EXPECT_EQ(d, 54321);
        EXPECT_EQ(e, -123456789);
        EXPECT_EQ(f, 0xDEADBEEFu);
        EXPECT_EQ(g, -1234567890123LL);
        EXPECT_EQ(h, 0x0102030405060708ULL);
        EXPECT_EQ(i, 1.5f);
        EXPECT_EQ(j, -2.25);
        EXPECT_EQ(k, std::complex<double>(3.5, -4.5));
        EXPECT_EQ(l, 'c');
        EXPECT_TRUE(m);
        EXPECT_EQ(st.pop(a), 1); // nothing left
    }
}

TEST(ZBufferStorePush, SwapSetStoresBigEndianOnLittleEndianHost) {
    if (!littleEndianHost())
        GTEST_SKIP() << "big-endian host";
    ZBufferStore st(0, 1);
    st.push(uint32_t(0x01020304));
    EXPECT_EQ(bytes(st), (std::vector<uint8_t>{1, 2, 3, 4}));
    ZBufferStore plain(0, 0);
    plain.push(uint32_t(0x01020304));
    EXPECT_EQ(bytes(plain), (std::vector<uint8_t>{4, 3, 2, 1}));
    ZBufferStore c(0, 1);
    c.push(std::complex<double>(1.0, 2.0)); // real part first, each 8 bytes reversed
    double re = 1.0;
    uint8_t r[8];
    memcpy(r, &re, 8);
    EXPECT_EQ(c.data()[0], r[7]);
    EXPECT_EQ(c.data()[7], r[0]);
}

TEST(ZBufferStorePush, PushAfterSetPosBackwardsCutsOff) {
    ZBufferStore st;
    st.push(uint32_t(1));
    st.push(uint32_t(2));
    st.push(uint32_t(3));
    EXPECT_EQ(st.size(), 12u);
    st.setPos(4);
    st.push(uint16_t(9));
    EXPECT_EQ(st.size(), 6u);
    EXPECT_EQ(st.getPos(), 6u);
    st.setPos(0);
    uint32_t a;
    uint16_t b{};
    EXPECT_EQ(st.pop(a), 0);
    EXPECT_EQ(st.pop(b), 0);
    EXPECT_EQ(a, 1u);
    EXPECT_EQ(b, 9u);
    EXPECT_EQ(st.pop(b), 1);
}

TEST(ZBufferStorePush, PushPastTheEndZeroFillsTheGap) {
    ZBufferStore st;
    st.setPos(5);
    st.push(uint8_t(0xAB));
    EXPECT_EQ(bytes(st), (std::vector<uint8_t>{0, 0, 0, 0, 0, 0xAB}));
}

TEST(ZBufferStorePush, ManyPushesGrowInMultiplesOf256) {
    ZBufferStore st;
    for (uint32_t i = 0; i < 100000; i++) {
        ASSERT_EQ(st.push(i), 0);
        ASSERT_EQ(st.allocSize() % 256u, 0u);
        ASSERT_GE(st.allocSize(), st.size());
    }
    st.setPos(0);
    for (uint32_t i = 0; i < 100000; i++) {
        uint32_t v;
        ASSERT_EQ(st.pop(v), 0);
        ASSERT_EQ(v, i);
    }
}

// ---------------------------------------------------------------- ZBufferStore: short pops

TEST(ZBufferStorePop, ShortPopsLeavePos) {
    ZBufferStore st;
    st.push(uint8_t(1));
    st.push(uint8_t(2));
    st.push(uint8_t(3));
    st.setPos(0);
    uint32_t v = 77;
    EXPECT_EQ(st.pop(v), 1); // 3 bytes left for a 4-byte value
    EXPECT_EQ(st.getPos(), 0u);
    EXPECT_EQ(v, 77u);
    uint64_t w;
    double dd;
    std::complex<double> cc;
    ZTimeStamp ts;
    ZString s;
    ZError e;
    uint8_t raw[4];
    EXPECT_EQ(st.pop(w), 1);
    EXPECT_EQ(st.pop(dd), 1);
    EXPECT_EQ(st.pop(cc), 1);
    EXPECT_EQ(st.pop(ts), 1);
    EXPECT_EQ(st.pop(s), 1);
    EXPECT_EQ(st.pop(e), 1);
    EXPECT_EQ(st.pop(4, raw, "1"), 1);
    EXPECT_EQ(st.getPos(), 0u);
    uint16_t h;
    EXPECT_EQ(st.pop(h), 0);
    EXPECT_EQ(st.getPos(), 2u);
    EXPECT_EQ(st.pop(h), 1);
    EXPECT_EQ(st.getPos(), 2u);
    // pos past the end
    st.setPos(100);
    uint8_t b;
    EXPECT_EQ(st.pop(b), 1);
    EXPECT_EQ(st.pop(s), 1);
    EXPECT_EQ(st.getPos(), 100u);
}

TEST(ZBufferStorePop, StringLengthTestedThenBytes) {
    ZBufferStore st;
    st.push(ZString("hello"));
    EXPECT_EQ(st.size(), 4u + 6u);
    // Cut the text short: the length is there, the bytes are not.
    st.setSize(8);
    st.setPos(0);
    ZString s("keep");
    EXPECT_EQ(st.pop(s), 1);
    EXPECT_EQ(st.getPos(), 0u);
    EXPECT_EQ(S(s), "keep");
    // Only 3 bytes: not even the length.
    st.setSize(3);
    EXPECT_EQ(st.pop(s), 1);
    EXPECT_EQ(st.getPos(), 0u);
}

TEST(ZBufferStorePop, HostileStringLengthNeverReadsOutOfBounds) {
    for (uint32_t n : {0xFFFFFFFFu, 0x80000000u, 0x7FFFFFFFu, 1000000u, 5u}) {
        ZBufferStore st;
        st.push(n);
        st.push(uint32_t(0x41414141)); // 4 bytes of "text", no NUL
        st.setPos(0);
        ZString s("x");
        if (n <= 4) {
            EXPECT_EQ(st.pop(s), 0);
        } else {
            EXPECT_EQ(st.pop(s), 1) << n;
            EXPECT_EQ(st.getPos(), 0u);
            EXPECT_EQ(S(s), "x");
        }
    }
    // A length that fits but the text has no NUL: at most n - 1 characters.
    ZBufferStore st;
    st.push(uint32_t(4));
    st.push(4, "ABCD", "1");
    st.setPos(0);
    ZString s;
    EXPECT_EQ(st.pop(s), 0);
    EXPECT_EQ(S(s), "ABC");
    EXPECT_EQ(st.getPos(), 8u);
    // A length of 0 is taken as an empty string.
    ZBufferStore z;
    z.push(uint32_t(0));
    z.setPos(0);
    s = "x";
    EXPECT_EQ(z.pop(s), 0);
    EXPECT_TRUE(s.isEmpty());
    EXPECT_EQ(z.getPos(), 4u);
}

// ---------------------------------------------------------------- ZBufferStore: compound values

TEST(ZBufferStoreRoundTrip, StringsIncludingEmpty) {
    for (int sw = 0; sw < 2; sw++) {
        ZBufferStore st(0, sw);
        st.push(ZString("hello"));
        st.push(ZString());
        st.push(ZString(""));
        st.push("lit");
        EXPECT_EQ(st.size(), (4u + 6u) + (4u + 1u) + (4u + 1u) + (4u + 4u));
        st.setPos(0);
        ZString a, b("x"), c("y"), d;
        EXPECT_EQ(st.pop(a), 0);
        EXPECT_EQ(st.pop(b), 0);
        EXPECT_EQ(st.pop(c), 0);
        EXPECT_EQ(st.pop(d), 0);
        EXPECT_EQ(S(a), "hello");
        EXPECT_TRUE(b.isEmpty());
        EXPECT_TRUE(c.isEmpty());
        EXPECT_EQ(S(d), "lit");
    }
}

TEST(ZBufferStoreRoundTrip, EmptyStringIsLengthOneAndANul) {
    if (!littleEndianHost())
        GTEST_SKIP();
    ZBufferStore st;
    st.push(ZString());
    EXPECT_EQ(bytes(st), (std::vector<uint8_t>{1, 0, 0, 0, 0}));
    ZBufferStore sw(0, 1);
    sw.push(ZString("ab"));
    EXPECT_EQ(bytes(sw), (std::vector<uint8_t>{0, 0, 0, 3, 'a', 'b', 0})); // text never reversed
}

TEST(ZBufferStoreRoundTrip, Errors) {
    for (int sw = 0; sw < 2; sw++) {
        ZBufferStore st(0, sw);
        st.push(ZError(-110, "Timeout"));
        st.push(ZError());
        EXPECT_EQ(st.size(), (4u + 4u + 8u) + (4u + 4u + 1u));
        st.setPos(0);
        ZError a, b(3, "x");
        EXPECT_EQ(st.pop(a), 0);
        EXPECT_EQ(st.pop(b), 0);
        EXPECT_EQ(a.number, -110);
        EXPECT_EQ(S(a.string), "Timeout");
        EXPECT_EQ(b.number, 0);
        EXPECT_TRUE(b.string.isEmpty());
    }
    // A number without its text: pop fails and leaves pos.
    ZBufferStore st;
    st.push(int32_t(5));
    st.push(uint32_t(10)); // length 10 but no bytes
    st.setPos(0);
    ZError e(1, "keep");
    EXPECT_EQ(st.pop(e), 1);
    EXPECT_EQ(st.getPos(), 0u);
    EXPECT_EQ(e.number, 1);
    EXPECT_EQ(S(e.string), "keep");
}

TEST(ZBufferStoreRoundTrip, TimeStampIsElevenBytes) {
    if (!littleEndianHost())
        GTEST_SKIP();
    ZTimeStamp t(2024, 3, 1, 12, 30, 5, 250000);
    ZBufferStore st;
    st.push(t);
    EXPECT_EQ(st.size(), 11u);
    // year 2024 = 0x07E8, yday 60 = 0x003C, 12, 30, 5, 250000 = 0x0003D090
    EXPECT_EQ(bytes(st),
              (std::vector<uint8_t>{0xE8, 0x07, 0x3C, 0x00, 12, 30, 5, 0x90, 0xD0, 0x03, 0x00}));
    ZBufferStore sw(0, 1);
    sw.push(t);
    EXPECT_EQ(bytes(sw),
              (std::vector<uint8_t>{0x07, 0xE8, 0x00, 0x3C, 12, 30, 5, 0x00, 0x03, 0xD0, 0x90}));
    for (ZBufferStore* s : {&st, &sw}) {
        s->setPos(0);
        ZTimeStamp u;
        EXPECT_EQ(s->pop(u), 0);
        EXPECT_EQ(u, t);
        EXPECT_EQ(S(u.getString()), "2024-03-01T12:30:05.250000");
        EXPECT_EQ(s->getPos(), 11u);
    }
    ZBufferStore shortBuf;
    shortBuf.push(t);
    shortBuf.setSize(10);
    shortBuf.setPos(0);
    ZTimeStamp u;
    EXPECT_EQ(shortBuf.pop(u), 1);
    EXPECT_EQ(shortBuf.getPos(), 0u);
}

TEST(ZBufferStoreRoundTrip, RawBlocksWithFormat) {
    struct Rec {
        uint8_t a;
        uint16_t b;
        uint32_t c;
        uint64_t d;
    } __attribute__((packed));
    Rec in[3] = {{1, 0x0203, 0x04050607, 0x08090A0B0C0D0E0FULL},
                 {2, 0x1213, 0x14151617, 0x18191A1B1C1D1E1FULL},
                 {3, 0x2223, 0x24252627, 0x28292A2B2C2D2E2FULL}};
    ZBufferStore st(0, 1);
    st.push(sizeof(in), in, "1248");
    EXPECT_EQ(st.size(), sizeof(in));
    if (littleEndianHost()) {
        // Stored big-endian.
        EXPECT_EQ(st.data()[1], 0x02);
        EXPECT_EQ(st.data()[3], 0x04);
        EXPECT_EQ(st.data()[7], 0x08);
        EXPECT_EQ(st.data()[15], 2);
        EXPECT_EQ(st.data()[16], 0x12);
    }
    st.setPos(0);
    Rec out[3];
    EXPECT_EQ(st.pop(sizeof(out), out, "1248"), 0);
    EXPECT_EQ(memcmp(in, out, sizeof(in)), 0);
    // "4" over 64 bytes
    uint32_t words[16], back[16];
    for (int i = 0; i < 16; i++)
        words[i] = 0x01020304u * uint32_t(i + 1);
    ZBufferStore w(0, 1);
    w.push(64, words, ZString("4"));
    w.setPos(0);
    EXPECT_EQ(w.pop(64, back, ZString("4")), 0);
    EXPECT_EQ(memcmp(words, back, 64), 0);
}

// ---------------------------------------------------------------- hex text

TEST(ZBufferStoreHex, RoundTrip) {
    ZBufferStore st;
    st.push(uint8_t(0x00));
    st.push(uint8_t(0xAB));
    st.push(uint8_t(0x5F));
    st.push(uint8_t(0xFF));
    EXPECT_EQ(S(st.getHexString()), "00AB5FFF");
    ZBufferStore back;
    back.setPos(7);
    EXPECT_EQ(back.setHexString("00AB5FFF"), 0);
    EXPECT_EQ(back.getPos(), 0u);
    EXPECT_EQ(bytes(back), bytes(st));
    EXPECT_EQ(S(back.getHexString()), "00AB5FFF");
    // Every byte value.
    ZBufferStore all;
    for (int i = 0; i < 256; i++)
        all.push(uint8_t(i));
    ZString hex = all.getHexString();
    EXPECT_EQ(hex.len(), 512);
    ZBufferStore again;
    EXPECT_EQ(again.setHexString(hex), 0);
    EXPECT_EQ(bytes(again), bytes(all));
    // Empty.
    ZBufferStore empty;
    EXPECT_EQ(S(empty.getHexString()), "");
    EXPECT_EQ(again.setHexString(""), 0);
    EXPECT_EQ(again.size(), 0u);
}

TEST(ZBufferStoreHex, BadTextIsRefusedAndChangesNothing) {
    ZBufferStore st;
    st.setHexString("0102");
    st.setPos(1);
    for (const char* bad : {"0", "123", "0g", "ab", "0x12", "12 3", "1-"}) {
        EXPECT_EQ(st.setHexString(bad), 1) << bad;
        EXPECT_EQ(S(st.getHexString()), "0102") << bad;
        EXPECT_EQ(st.getPos(), 1u) << bad;
    }
}

TEST(ZBufferStorePop, RandomBytesNeverReadOutOfBounds) {
    uint32_t seed = 12345;
    auto rnd = [&seed]() {
        seed = seed * 1103515245u + 12345u;
        return seed >> 8;
    };
    for (int round = 0; round < 2000; round++) {
        uint32_t n = rnd() % 64;
        std::vector<uint8_t> raw(n);
        for (auto& b : raw)
            b = uint8_t(rnd());
        ZBufferStore st(0, int(rnd() & 1));
        st.setData(raw.data(), n);
        st.setPos(0);
        for (int k = 0; k < 20; k++) {
            uint32_t before = st.getPos();
            int r = 0;
            switch (rnd() % 6) {
            case 0: {
                ZString s;
                r = st.pop(s);
                break;
            }
            case 1: {
                ZError e;
                r = st.pop(e);
                break;
            }
            case 2: {
                ZTimeStamp t;
                r = st.pop(t);
                break;
            }
            case 3: {
                uint64_t v;
                r = st.pop(v);
                break;
            }
            case 4: {
                uint8_t buf[16];
                r = st.pop(rnd() % 17, buf, "24");
                break;
            }
            default: {
                uint16_t v;
                r = st.pop(v);
                break;
            }
            }
            if (r) {
                ASSERT_EQ(st.getPos(), before);
            }
            ASSERT_LE(st.getPos(), st.size());
        }
    }
}
