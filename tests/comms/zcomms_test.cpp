#include "zcomms.h"

#include <gtest/gtest.h>

#include <string>

static void PrintTo(const ZError& e, std::ostream* os) {
    *os << e.number << " \"" << e.string.str() << '"';
}

namespace {

// Records what it writes; fails on call `failOnCall`, or writes `shortBy` short.
class RecordingComms : public ZComms {
public:
    ZError write(const void* data, unsigned int len, unsigned int& written) override {
        written = 0;
        if (++calls == failOnCall)
            return ZError(-5, "Input/output error");
        written = len > shortBy ? len - shortBy : 0;
        out.append(static_cast<const char*>(data), written);
        return ZError();
    }
    ZError read(void*, unsigned int, unsigned int& got) override {
        got = 0;
        return ZError();
    }
    int calls = 0, failOnCall = 0;
    unsigned int shortBy = 0;
    std::string out;
};

} // namespace

TEST(ZComms, BaseBehaviour) {
    RecordingComms c;
    EXPECT_EQ(c.timeout(), 0xFFFFFFFFu);
    EXPECT_EQ(c.readAvailable() + c.writeAvailable() + c.byteRate(), 0u);
    EXPECT_FALSE(c.wait(2, 1000, 1));
    EXPECT_FALSE(c.connect("anything"));
    EXPECT_TRUE(c.isConnected());
    EXPECT_FALSE(c.disconnect());
    EXPECT_FALSE(c.isConnected());
    EXPECT_EQ(c.setPacketMode(true), ZError(5, "Packet mode not supported"));
    EXPECT_FALSE(c.packetMode());
}

TEST(ZComms, WriteChunks) {
    ZDataChunk chunks[] = {{"head", 4}, {"body-", 5}, {"tail", 4}};
    RecordingComms ok, failing, shortWrites;
    unsigned int written = 99;
    EXPECT_FALSE(ok.writeChunks(nullptr, 0, written));
    EXPECT_EQ(written, 0u);
    EXPECT_FALSE(ok.writeChunks(chunks, 3, written));
    EXPECT_EQ(written, 13u);
    EXPECT_EQ(ok.out, "headbody-tail");
    // The first error ends it; the first chunk stays written and counted.
    failing.failOnCall = 2;
    EXPECT_EQ(failing.writeChunks(chunks, 3, written), ZError(-5, "Input/output error"));
    EXPECT_EQ(written, 4u);
    EXPECT_EQ(failing.out, "head");
    // A short write of one chunk is not retried.
    shortWrites.shortBy = 1;
    EXPECT_FALSE(shortWrites.writeChunks(chunks, 3, written));
    EXPECT_EQ(written, 10u);
    EXPECT_EQ(shortWrites.out, "heabodytai");
}

// 4294968 ms * 1000 is 704 us modulo 2^32: a product of more than 32 bits,
// or none, would sleep for days and the test's time-out would end it.
TEST(Delay, MillisecondsWrapAt32Bits) {
    delayMs(0);
    delayUs(0);
    delayMs(4294968);
}
