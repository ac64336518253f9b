#include "zcomms.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace {

// A transport that records what it is asked to write and can be told to fail
// or to write short.
class RecordingComms : public ZComms {
public:
    ZError write(const void* data, unsigned int len, unsigned int& written) override {
        calls++;
        written = 0;
        if (calls == failOnCall)
            return ZError(-5, "Input/output error");
        unsigned int n = len > shortBy ? len - shortBy : 0;
        out.append(static_cast<const char*>(data), n);
        written = n;
        return ZError();
    }
    ZError read(void*, unsigned int, unsigned int& got) override {
        got = 0;
        return ZError();
    }

    int calls = 0;
    int failOnCall = 0;
    unsigned int shortBy = 0;
    std::string out;
};

double secondsSince(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

} // namespace

TEST(ZComms, ConstructedDisconnectedStreamModeWaitingForever) {
    RecordingComms c;
    EXPECT_FALSE(c.isConnected());
    EXPECT_FALSE(c.packetMode());
    EXPECT_EQ(c.timeout(), 0xFFFFFFFFu);
    EXPECT_EQ(c.readAvailable(), 0u);
    EXPECT_EQ(c.writeAvailable(), 0u);
    EXPECT_EQ(c.byteRate(), 0u);
    EXPECT_TRUE(c.name().isEmpty());
    EXPECT_FALSE(c.init());
    EXPECT_FALSE(c.wait(2, 1000, 1));

    EXPECT_FALSE(c.connect("anything"));
    EXPECT_TRUE(c.isConnected());
    EXPECT_FALSE(c.disconnect());
    EXPECT_FALSE(c.isConnected());
    EXPECT_FALSE(c.setTimeout(5000000));
    EXPECT_EQ(c.timeout(), 5000000u);
}

TEST(ZComms, PacketModeIsNotSupportedEitherWay) {
    RecordingComms c;
    for (bool on : {true, false}) {
        ZError e = c.setPacketMode(on);
        EXPECT_EQ(e.number, 5);
        EXPECT_EQ(e.string, "Packet mode not supported");
        EXPECT_FALSE(c.packetMode());
    }
}

TEST(ZComms, WriteChunksOfNothingSucceedsWithoutWriting) {
    RecordingComms c;
    unsigned int written = 99;
    EXPECT_FALSE(c.writeChunks(nullptr, 0, written));
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(c.calls, 0);
}

TEST(ZComms, WriteChunksWritesInOrderAndStopsAtFirstError) {
    ZDataChunk chunks[] = {{"head", 4}, {"body-", 5}, {"tail", 4}};
    RecordingComms ok;
    unsigned int written = 0;
    EXPECT_FALSE(ok.writeChunks(chunks, 3, written));
    EXPECT_EQ(written, 13u);
    EXPECT_EQ(ok.out, "headbody-tail");

    RecordingComms failing;
    failing.failOnCall = 2;
    ZError e = failing.writeChunks(chunks, 3, written);
    EXPECT_EQ(e.number, -5);
    EXPECT_EQ(e.string, "Input/output error");
    EXPECT_EQ(written, 4u); // the first chunk stays written and counted
    EXPECT_EQ(failing.calls, 2);
    EXPECT_EQ(failing.out, "head");
}

TEST(ZComms, ShortChunkWriteIsNotRetried) {
    ZDataChunk chunks[] = {{"abcd", 4}, {"efgh", 4}};
    RecordingComms c;
    c.shortBy = 1;
    unsigned int written = 0;
    EXPECT_FALSE(c.writeChunks(chunks, 2, written));
    EXPECT_EQ(c.calls, 2);
    EXPECT_EQ(written, 6u);
    EXPECT_EQ(c.out, "abcefg");
}

TEST(Delay, ZeroReturnsAtOnceAndShortDelaysSleep) {
    auto t0 = std::chrono::steady_clock::now();
    delayMs(0);
    delayUs(0);
    EXPECT_LT(secondsSince(t0), 0.005);

    t0 = std::chrono::steady_clock::now();
    delayUs(20000);
    EXPECT_GE(secondsSince(t0), 0.020);

    t0 = std::chrono::steady_clock::now();
    delayMs(15);
    EXPECT_GE(secondsSince(t0), 0.015);
}

TEST(Delay, MillisecondsWrapIn32Bits) {
    // 4294968 ms * 1000 = 4294968000, which is 704 us modulo 2^32.
    auto t0 = std::chrono::steady_clock::now();
    delayMs(4294968);
    EXPECT_LT(secondsSince(t0), 0.5);
}
