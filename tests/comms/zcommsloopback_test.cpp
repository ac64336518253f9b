#include "zcommsloopback.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>

static void PrintTo(const ZError& e, std::ostream* os) {
    *os << e.number << " \"" << e.string.str() << '"';
}

namespace {

typedef std::chrono::steady_clock Clock;

double secondsSince(Clock::time_point t0) {
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

const ZError NotConnected(1, "Not connected"), ClosedByPeer(-32, "Connection Closed by Peer");

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

TEST_F(Pair, StreamModeJoinsWritesAndWaitsForTheWholeRead) {
    EXPECT_TRUE(a.isConnected() && b.isConnected());
    EXPECT_FALSE(a.packetMode());
    send(a, "abc");
    send(a, "defg");
    EXPECT_EQ(b.readAvailable(), 7u);
    EXPECT_EQ(a.readAvailable(), 0u);
    EXPECT_EQ(receive(b, 5), "abcde");
    EXPECT_EQ(b.readAvailable(), 2u);
    // Fewer bytes than asked for: the read times out and keeps them.
    b.setTimeout(20000);
    char buf[8];
    unsigned int got = 9;
    auto t0 = Clock::now();
    EXPECT_EQ(b.read(buf, 8, got), ZError(-110, "Timeout"));
    EXPECT_EQ(got, 0u);
    EXPECT_GE(secondsSince(t0), 0.019);
    EXPECT_EQ(receive(b, 2), "fg");
    // Both directions are independent.
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
    EXPECT_TRUE(b.packetMode());
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
    EXPECT_EQ(b.readAvailable(), 0u);
    EXPECT_EQ(b.wait(2, 10000, 1), ZError(-110, "Timeout"));
}

TEST_F(Pair, WaitBlocksUntilCountBytes) {
    auto t0 = Clock::now();
    std::thread writer([&] {
        usleep(20000);
        send(a, "12");
        usleep(20000);
        send(a, "34");
    });
    EXPECT_FALSE(b.wait(2, 2000000, 4));
    EXPECT_GE(secondsSince(t0), 0.035);
    writer.join();
    EXPECT_EQ(b.readAvailable(), 4u);
    EXPECT_FALSE(b.wait(2, 0, 4));
    EXPECT_FALSE(b.wait(2, 0, 0));
}

TEST_F(Pair, DisconnectWakesWaitersOnBothEnds) {
    ZError peerResult, ownResult;
    std::thread peerReader([&] {
        char buf[4];
        unsigned int got = 0;
        peerResult = b.read(buf, 4, got);
    });
    std::thread ownWaiter([&] { ownResult = a.wait(2, ZComms::WaitForever, 1); });
    usleep(30000);
    auto t0 = Clock::now();
    EXPECT_FALSE(a.disconnect());
    peerReader.join();
    ownWaiter.join();
    EXPECT_LT(secondsSince(t0), 0.5);
    EXPECT_EQ(peerResult, ClosedByPeer);
    EXPECT_EQ(ownResult, NotConnected);
    EXPECT_FALSE(a.isConnected());
}

TEST_F(Pair, PeerReadsWhatWasSentBeforeTheClose) {
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
    EXPECT_FALSE(end.isConnected());
    EXPECT_EQ(end.connect("x").number, 1);
    unsigned int n = 0;
    char c;
    EXPECT_EQ(end.write("x", 1, n), NotConnected);
    EXPECT_EQ(end.read(&c, 1, n), NotConnected);
    EXPECT_EQ(end.wait(2, 1000, 1), NotConnected);
    EXPECT_EQ(end.readAvailable(), 0u);

    ZCommsLoopback x, y, z;
    ZCommsLoopback::connectPair(x, y);
    ZCommsLoopback::connectPair(x, z);
    EXPECT_FALSE(x.write("hi", 2, n));
    EXPECT_EQ(z.readAvailable(), 2u);
    EXPECT_EQ(y.readAvailable(), 0u);
}

// One end sends numbered messages of varying length in two chunks; the other
// echoes every byte back as a framing layer would read it (wait, then what is
// there); the first checks the echo. In packet mode a read never runs into
// the next message.
TEST(ZCommsLoopback, ThreadedEchoStress) {
    for (bool packetMode : {false, true}) {
        SCOPED_TRACE(packetMode ? "packet mode" : "stream mode");
        ZCommsLoopback a, b;
        a.setPacketMode(packetMode);
        b.setPacketMode(packetMode);
        ZCommsLoopback::connectPair(a, b);
        a.setTimeout(5000000);
        b.setTimeout(5000000);
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
            uint8_t msg[300];
            for (unsigned int have = 0, got = 0; have < length(i); have += got) {
                ZError e = a.read(msg + have, length(i) - have, got);
                ASSERT_FALSE(e) << e.string << " at message " << i;
                if (packetMode) {
                    ASSERT_EQ(have + got, length(i));
                }
            }
            for (unsigned int k = 0; k < length(i); k++)
                ASSERT_EQ(msg[k], uint8_t(i + k)) << "message " << i << " byte " << k;
        }
        sender.join();
        a.disconnect();
        echo.join();
    }
}
