#include "commsnet.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>

using TavroApi::CommsNet;

namespace {

typedef std::chrono::steady_clock Clock;

double secondsSince(Clock::time_point t0) {
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

double threadCpuSeconds() {
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

// A plain TCP server on 127.0.0.1 (ephemeral port) with a CommsNet connected
// to it; `peer` is the server's end of the connection.
struct Connected : ::testing::Test {
    int listener = -1;
    int peer = -1;
    unsigned short port = 0;
    CommsNet net{1024, 1024};

    void SetUp() override {
        listener = socket(AF_INET, SOCK_STREAM, 0);
        ASSERT_GE(listener, 0);
        sockaddr_in a;
        memset(&a, 0, sizeof(a));
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&a), sizeof(a)), 0);
        ASSERT_EQ(listen(listener, 5), 0);
        socklen_t len = sizeof(a);
        getsockname(listener, reinterpret_cast<sockaddr*>(&a), &len);
        port = ntohs(a.sin_port);

        ASSERT_FALSE(net.init());
        ZError e = net.connect("127.0.0.1", port);
        ASSERT_FALSE(e) << e.string;
        peer = accept(listener, nullptr, nullptr);
        ASSERT_GE(peer, 0);
    }
    void TearDown() override {
        net.disconnect();
        if (peer >= 0)
            close(peer);
        close(listener);
    }

    void peerSend(const std::string& s) {
        ASSERT_EQ(send(peer, s.data(), s.size(), 0), ssize_t(s.size()));
    }
    // Waits (briefly) until the transport has n bytes queued.
    void awaitAvailable(unsigned int n) {
        for (int i = 0; i < 1000 && net.readAvailable() < n; i++)
            usleep(1000);
        ASSERT_GE(net.readAvailable(), n);
    }
};

void expectNotConnected(const ZError& e) {
    EXPECT_EQ(e.number, 1);
    EXPECT_EQ(e.string, "Not connected");
}

} // namespace

TEST(CommsNet, RefusesEverythingBeforeConnect) {
    CommsNet net(1024, 1024);
    EXPECT_FALSE(net.init());
    char buf[4];
    unsigned int n = 9;
    expectNotConnected(net.write("x", 1, n));
    EXPECT_EQ(n, 0u);
    ZDataChunk chunk = {"x", 1};
    expectNotConnected(net.writeChunks(&chunk, 1, n));
    expectNotConnected(net.read(buf, 4, n));
    EXPECT_EQ(n, 0u);
    expectNotConnected(net.wait(2, 1000, 1));
    EXPECT_EQ(net.readAvailable(), 0u);
    EXPECT_FALSE(net.disconnect());
    EXPECT_EQ(net.setPacketMode(true).number, 5);
}

TEST(CommsNet, ConnectFailures) {
    CommsNet net(1024, 1024);
    ZError e = net.connect("no-such-host.invalid", 40358);
    EXPECT_LT(e.number, 0);
    EXPECT_FALSE(net.isConnected());

    // A port nobody listens on: bind one, note it, close it.
    int s = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a;
    memset(&a, 0, sizeof(a));
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(s, reinterpret_cast<sockaddr*>(&a), sizeof(a));
    socklen_t len = sizeof(a);
    getsockname(s, reinterpret_cast<sockaddr*>(&a), &len);
    close(s);
    e = net.connect("127.0.0.1", ntohs(a.sin_port));
    EXPECT_EQ(e.number, -ECONNREFUSED);
    EXPECT_EQ(e.string, "Connection refused");
    EXPECT_FALSE(net.isConnected());
}

TEST_F(Connected, GatheredWriteArrivesWholeAndInOrder) {
    EXPECT_TRUE(net.isConnected());
    std::string body(3000, 'b');
    ZDataChunk chunks[] = {{"HEADER-16-BYTES!", 16}, {body.data(), 3000}, {"ERR", 3}};
    unsigned int written = 0;
    EXPECT_FALSE(net.writeChunks(chunks, 3, written));
    EXPECT_EQ(written, 3019u);
    unsigned int w2 = 0;
    EXPECT_FALSE(net.write("tail", 4, w2));
    EXPECT_EQ(w2, 4u);

    std::string got(3023, 0);
    ASSERT_EQ(recv(peer, &got[0], got.size(), MSG_WAITALL), 3023);
    EXPECT_EQ(got, "HEADER-16-BYTES!" + body + "ERRtail");
}

TEST_F(Connected, ReadWaitsForAllBytesAskedFor) {
    std::thread writer([&] {
        peerSend("abc");
        usleep(20000);
        peerSend("defgh");
    });
    char buf[8];
    unsigned int got = 0;
    ASSERT_FALSE(net.setTimeout(2000000));
    EXPECT_FALSE(net.read(buf, 8, got));
    writer.join();
    EXPECT_EQ(got, 8u);
    EXPECT_EQ(std::string(buf, got), "abcdefgh");

    EXPECT_FALSE(net.read(buf, 0, got));
    EXPECT_EQ(got, 0u);
}

TEST_F(Connected, PeerCloseGivesConnectionClosedByPeer) {
    peerSend("xyz");
    close(peer);
    peer = -1;
    char buf[16];
    unsigned int got = 0;
    auto t0 = Clock::now();
    // Asked for more than will ever come: the rest is handed out ...
    EXPECT_FALSE(net.read(buf, sizeof(buf), got));
    EXPECT_EQ(std::string(buf, got), "xyz");
    // ... and then the close is reported, at once, not after the time-out.
    ZError e = net.read(buf, sizeof(buf), got);
    EXPECT_EQ(e.number, -32);
    EXPECT_EQ(e.string, "Connection Closed by Peer");
    EXPECT_EQ(got, 0u);
    EXPECT_LT(secondsSince(t0), 1.0);
}

TEST_F(Connected, PollTimeouts) {
    char buf[4];
    unsigned int got = 9;
    net.setTimeout(30000);
    auto t0 = Clock::now();
    ZError e = net.read(buf, 4, got);
    EXPECT_EQ(e.number, -110);
    EXPECT_EQ(e.string, "Timeout");
    EXPECT_EQ(got, 0u);
    EXPECT_GE(secondsSince(t0), 0.029);
    EXPECT_LT(secondsSince(t0), 1.0);

    // Below a millisecond the poll does not wait at all.
    t0 = Clock::now();
    e = net.wait(2, 999, 1);
    EXPECT_EQ(e.number, -110);
    EXPECT_LT(secondsSince(t0), 0.005);

    peerSend("ab");
    awaitAvailable(2);
    EXPECT_FALSE(net.wait(2, 999, 2));
    EXPECT_EQ(net.readAvailable(), 2u);
}

TEST_F(Connected, PartialRecordTimesOutWithoutSpinning) {
    peerSend("ab");
    awaitAvailable(2);
    double cpu0 = threadCpuSeconds();
    auto t0 = Clock::now();
    ZError e = net.wait(2, 100000, 4);
    double elapsed = secondsSince(t0);
    EXPECT_EQ(e.number, -110);
    EXPECT_EQ(e.string, "Timeout");
    EXPECT_GE(elapsed, 0.099);
    EXPECT_LT(elapsed, 1.0);
    EXPECT_LT(threadCpuSeconds() - cpu0, 0.01); // a spinning wait burns most of the 100 ms

    // The rest arriving later completes the wait.
    std::thread writer([&] {
        usleep(20000);
        peerSend("cd");
    });
    EXPECT_FALSE(net.wait(2, 2000000, 4));
    writer.join();
    char buf[4];
    unsigned int got = 0;
    EXPECT_FALSE(net.read(buf, 4, got));
    EXPECT_EQ(std::string(buf, got), "abcd");
    // Then a one-byte wait works again.
    peerSend("e");
    EXPECT_FALSE(net.wait(2, 2000000, 1));
}

TEST(CommsNet, ReadLargerThanTheReceiveBufferCompletes) {
    // The kernel can never queue all 200000 bytes behind a 4 KB receive
    // buffer: the wait has to take bytes out for the sender to go on.
    int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a;
    memset(&a, 0, sizeof(a));
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&a), sizeof(a)), 0);
    ASSERT_EQ(listen(listener, 5), 0);
    socklen_t len = sizeof(a);
    getsockname(listener, reinterpret_cast<sockaddr*>(&a), &len);

    CommsNet net(1024, 1024);
    ASSERT_FALSE(net.init());
    int small = 4096;
    ASSERT_FALSE(net.socket().setSockOpt(SOL_SOCKET, SO_RCVBUF, &small, sizeof(small)));
    ASSERT_FALSE(net.connect("127.0.0.1", ntohs(a.sin_port)));
    int peer = accept(listener, nullptr, nullptr);
    ASSERT_GE(peer, 0);

    std::string data(200000, 0);
    for (size_t i = 0; i < data.size(); i++)
        data[i] = char(i * 7 + i / 251);
    std::thread sender([&] {
        EXPECT_EQ(send(peer, data.data(), data.size(), MSG_NOSIGNAL), ssize_t(data.size()));
        EXPECT_EQ(send(peer, "next", 4, MSG_NOSIGNAL), 4);
    });
    net.setTimeout(5000000);
    std::string got(data.size(), 0);
    unsigned int n = 0;
    ZError e = net.read(&got[0], unsigned(got.size()), n);
    EXPECT_FALSE(e) << e.string;
    EXPECT_EQ(n, data.size());
    EXPECT_TRUE(got == data);
    sender.join();
    char tail[4];
    EXPECT_FALSE(net.read(tail, 4, n));
    EXPECT_EQ(std::string(tail, n), "next");
    net.disconnect();
    close(peer);
    close(listener);
}

TEST_F(Connected, DisconnectFromAnotherThreadEndsAWaitPromptly) {
    ZError waitResult;
    double waited = 0;
    std::thread waiter([&] {
        auto t0 = Clock::now();
        waitResult = net.wait(2, ZComms::WaitForever, 1);
        waited = secondsSince(t0);
    });
    usleep(50000);
    auto t0 = Clock::now();
    EXPECT_FALSE(net.disconnect());
    double disconnectTook = secondsSince(t0);
    waiter.join();
    EXPECT_LT(disconnectTook, 0.5);
    EXPECT_GE(waited, 0.045);
    EXPECT_LT(waited, 1.0);
    expectNotConnected(waitResult);
    EXPECT_FALSE(net.isConnected());

    char buf[4];
    unsigned int got = 5;
    expectNotConnected(net.read(buf, 4, got));
    EXPECT_EQ(got, 0u);
    expectNotConnected(net.write("x", 1, got));
    EXPECT_FALSE(net.disconnect());
}

TEST_F(Connected, DisconnectWhileReadBlocksForEver) {
    ZError readResult;
    std::thread reader([&] {
        char buf[64];
        unsigned int got = 0;
        readResult = net.read(buf, sizeof(buf), got);
    });
    peerSend("part"); // fewer bytes than the read asks for
    usleep(30000);
    net.disconnect();
    reader.join();
    expectNotConnected(readResult);
}

TEST_F(Connected, ResetConnectionIsAPollError) {
    linger l = {1, 0}; // close with RST
    setsockopt(peer, SOL_SOCKET, SO_LINGER, &l, sizeof(l));
    close(peer);
    peer = -1;
    ZError e = net.wait(2, 1000000, 1);
    EXPECT_EQ(e.number, 1);
    EXPECT_EQ(e.string.subString(0, 12), "Poll error: ");
}

TEST_F(Connected, WritingToAClosedPeerFailsWithoutSignal) {
    close(peer);
    peer = -1;
    std::string block(65536, 'x');
    ZError e;
    unsigned int written = 0;
    for (int i = 0; i < 100 && !e; i++)
        e = net.write(block.data(), unsigned(block.size()), written);
    EXPECT_TRUE(e.number == -EPIPE || e.number == -ECONNRESET) << e.number << " " << e.string;
}

TEST_F(Connected, ReconnectAfterDisconnect) {
    net.disconnect();
    close(peer);
    ASSERT_FALSE(net.connect("localhost", port));
    peer = accept(listener, nullptr, nullptr);
    ASSERT_GE(peer, 0);
    unsigned int written = 0;
    EXPECT_FALSE(net.write("again", 5, written));
    char buf[5];
    ASSERT_EQ(recv(peer, buf, 5, MSG_WAITALL), 5);
    EXPECT_EQ(std::string(buf, 5), "again");

    // connect() on a connected transport starts a new connection.
    ASSERT_FALSE(net.connect("127.0.0.1", port));
    int second = accept(listener, nullptr, nullptr);
    ASSERT_GE(second, 0);
    EXPECT_EQ(recv(peer, buf, 1, 0), 0); // the first connection was closed
    close(second);
}
