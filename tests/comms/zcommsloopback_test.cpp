// ZComms base behaviour, and the in-process loopback transport built on it.
#include "zcomms.h"
#include "zcommsloopback.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <thread>

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

const ZError NotConnected(1, "Not connected"), ClosedByPeer(-32, "Connection Closed by Peer"),
    Timeout(-110, "Timeout");

struct Pair : ::testing::Test {
    ZCommsLoopback a, b;
    void SetUp() override {
        ZCommsLoopback::connectPair(a, b);
        a.setTimeout(2000000);
        b.setTimeout(2000000);
    }
    void send(ZCommsLoopback& end, const std::string& s) {
        unsigned int written = 0;
        ASSERT_FALSE(end.write(s.data(), unsigned(s.size()), written));
        ASSERT_EQ(written, s.size());
    }
    std::string receive(ZCommsLoopback& end, unsigned int n) {
        std::string s(n, 0);
        unsigned int got = 0;
        ZError e = end.read(&s[0], n, got);
        EXPECT_FALSE(e) << e.string;
        s.resize(got);
        return s;
    }
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

TEST_F(Pair, StreamModeJoinsWritesAndWaitsForTheWholeRead) {
    std::thread writer([&] {
        send(a, "abc");
        usleep(20000);
        send(a, "defg");
    });
    EXPECT_FALSE(b.wait(2, 2000000, 7));
    writer.join();
    EXPECT_EQ(b.readAvailable(), 7u);
    EXPECT_EQ(a.readAvailable(), 0u);
    EXPECT_EQ(receive(b, 5), "abcde");
    EXPECT_FALSE(b.wait(2, 0, 2));
    // Fewer bytes than asked for: the read times out and keeps them.
    b.setTimeout(20000);
    char buf[8];
    unsigned int got = 9;
    EXPECT_EQ(b.read(buf, 8, got), Timeout);
    EXPECT_EQ(got, 0u);
    EXPECT_EQ(receive(b, 2), "fg");
    send(b, "back");
    EXPECT_EQ(receive(a, 4), "back");
    // Flushing discards unread input only.
    send(a, "old");
    b.flush(ZComms::FlushRead);
    EXPECT_EQ(b.readAvailable(), 0u);
    send(a, "new");
    EXPECT_EQ(receive(b, 3), "new");
}

TEST_F(Pair, PacketModeReadsOnePacketAtMost) {
    EXPECT_FALSE(a.setPacketMode(true));
    EXPECT_FALSE(b.setPacketMode(true));
    send(a, "abc");
    send(a, "defgh");
    ZDataChunk chunks[] = {{"HEAD", 4}, {"", 0}, {"body", 4}};
    unsigned int written = 0;
    EXPECT_FALSE(a.writeChunks(chunks, 3, written));
    EXPECT_EQ(written, 8u);
    EXPECT_EQ(b.readAvailable(), 3u);
    EXPECT_EQ(receive(b, 100), "abc");
    // A smaller buffer takes the front; the rest of that packet comes next.
    EXPECT_EQ(receive(b, 2), "de");
    EXPECT_EQ(b.readAvailable(), 3u);
    EXPECT_EQ(receive(b, 100), "fgh");
    EXPECT_EQ(receive(b, 100), "HEADbody");
    EXPECT_EQ(b.wait(2, 10000, 1), Timeout);
}

TEST_F(Pair, DisconnectWakesWaitersOnBothEndsAndThePeerReadsWhatWasSent) {
    ZError peerResult, ownResult;
    std::thread peerReader([&] {
        char buf[4];
        unsigned int got = 0;
        peerResult = b.read(buf, 4, got);
    });
    std::thread ownWaiter([&] { ownResult = a.wait(2, ZComms::WaitForever, 1); });
    usleep(30000);
    EXPECT_FALSE(a.disconnect());
    peerReader.join();
    ownWaiter.join();
    EXPECT_EQ(peerResult, ClosedByPeer);
    EXPECT_EQ(ownResult, NotConnected);
    ZCommsLoopback::connectPair(a, b);
    send(a, "last words");
    a.disconnect();
    EXPECT_EQ(receive(b, 100), "last words"); // fewer than asked: the peer is gone
    char buf[4];
    unsigned int got = 0, written = 3;
    EXPECT_EQ(b.read(buf, 4, got), ClosedByPeer);
    EXPECT_EQ(b.write("x", 1, written), ZError(-32, "Broken pipe"));
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(a.write("x", 1, written), NotConnected);
    EXPECT_EQ(a.read(buf, 1, got), NotConnected);
}

TEST(ZCommsLoopback, UnpairedEndRefusesAndRepairingReplacesTheLink) {
    ZCommsLoopback end;
    EXPECT_EQ(end.connect("x").number, 1);
    unsigned int n = 0;
    char c;
    EXPECT_EQ(end.write("x", 1, n), NotConnected);
    EXPECT_EQ(end.read(&c, 1, n), NotConnected);
    EXPECT_EQ(end.wait(2, 1000, 1), NotConnected);
    ZCommsLoopback x, y, z;
    ZCommsLoopback::connectPair(x, y);
    ZCommsLoopback::connectPair(x, z);
    EXPECT_FALSE(x.write("hi", 2, n));
    EXPECT_EQ(z.readAvailable(), 2u);
    EXPECT_EQ(y.readAvailable(), 0u);
}

// One end sends numbered messages of varying length in two chunks; the other
// echoes every byte back as a framing layer would read it (wait, then what is
// there); the first checks the echo, and that no read runs into the next
// message. (Stream mode under threads is stressed by the protocol tests.)
TEST(ZCommsLoopback, ThreadedPacketEchoStress) {
    ZCommsLoopback a, b;
    a.setPacketMode(true);
    b.setPacketMode(true);
    ZCommsLoopback::connectPair(a, b);
    a.setTimeout(5000000);
    const int messages = 5000;
    auto length = [](int i) { return 1 + unsigned(i * 37) % 299; };
    std::thread echo([&] {
        uint8_t buf[512];
        unsigned int got = 0, written = 0;
        while (!b.wait(2, 5000000, 1) &&
               !b.read(buf, std::min(b.readAvailable(), unsigned(sizeof(buf))), got))
            ASSERT_FALSE(b.write(buf, got, written));
    });
    std::thread sender([&] {
        uint8_t msg[300];
        for (int i = 0; i < messages; i++) {
            for (unsigned int k = 0; k < length(i); k++)
                msg[k] = uint8_t(i + k);
            ZDataChunk chunks[] = {{msg, 1}, {msg + 1, length(i) - 1}};
            unsigned int written = 0;
            ASSERT_FALSE(a.writeChunks(chunks, 2, written));
        }
    });
    for (int i = 0; i < messages; i++) {
        uint8_t msg[512];
        unsigned int got = 0;
        ZError e = a.read(msg, sizeof(msg), got);
        ASSERT_FALSE(e) << e.string << " at message " << i;
        ASSERT_EQ(got, length(i)) << "message " << i;
        for (unsigned int k = 0; k < length(i); k++)
            ASSERT_EQ(msg[k], uint8_t(i + k)) << "message " << i << " byte " << k;
    }
    sender.join();
    a.disconnect();
    echo.join();
}
