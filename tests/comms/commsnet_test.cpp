#include "commsnet.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

using TavroApi::CommsNet;

static void PrintTo(const ZError& e, std::ostream* os) {
    *os << e.number << " \"" << e.string.str() << '"';
}

namespace {

const ZError NotConnected(1, "Not connected"), Timeout(-110, "Timeout");

// A TCP listener on 127.0.0.1 (ephemeral port) with a CommsNet connected to
// it; `peer` is the unit's end of the connection.
struct Connected : ::testing::Test {
    ZSocket listener{ZSocket::Stream}, peer;
    ZSocketAddressINET address;
    CommsNet net{1024, 1024};
    void SetUp() override {
        ASSERT_FALSE(address.set("127.0.0.1", 0) || listener.bind(address) || listener.listen() ||
                     listener.getAddress(address));
        ASSERT_NO_FATAL_FAILURE(open());
    }
    // A fresh connection, with the given receive buffer size unless 0.
    void open(int rcvbuf = 0) {
        net.disconnect();
        peer.close();
        ASSERT_FALSE(net.init());
        if (rcvbuf) {
            ASSERT_FALSE(net.socket().setSockOpt(SOL_SOCKET, SO_RCVBUF, &rcvbuf, sizeof(rcvbuf)));
        }
        ASSERT_NO_FATAL_FAILURE(connectAndAccept("127.0.0.1"));
    }
    void connectAndAccept(const char* host) {
        ZError e = net.connect(host, (unsigned short)address.port());
        ASSERT_FALSE(e) << e.string;
        int fd = -1;
        ASSERT_FALSE(listener.accept(fd));
        peer.setFd(fd);
    }
    void peerSend(const std::string& s) {
        unsigned int sent = 0;
        ASSERT_FALSE(peer.send(s.data(), unsigned(s.size()), sent));
        ASSERT_EQ(sent, s.size());
    }
    std::string peerReceives(unsigned int n) {
        std::string s(n, 0);
        unsigned int got = 0;
        EXPECT_FALSE(peer.recv(&s[0], n, got, MSG_WAITALL));
        return s.substr(0, got);
    }
};

} // namespace

TEST(CommsNet, RefusesEverythingBeforeConnect) {
    CommsNet net(1024, 1024);
    EXPECT_FALSE(net.init());
    char buf[4];
    unsigned int n = 9;
    EXPECT_EQ(net.write("x", 1, n), NotConnected);
    EXPECT_EQ(n, 0u);
    ZDataChunk chunk = {"x", 1};
    EXPECT_EQ(net.writeChunks(&chunk, 1, n), NotConnected);
    EXPECT_EQ(net.read(buf, 4, n), NotConnected);
    EXPECT_EQ(n, 0u);
    EXPECT_EQ(net.wait(2, 1000, 1), NotConnected);
    EXPECT_EQ(net.readAvailable(), 0u);
    EXPECT_FALSE(net.disconnect());
    EXPECT_LT(net.connect("no-such-host.invalid", 40358).number, 0);
}

TEST_F(Connected, GatheredWriteArrivesWholeAndPeerCloseEndsReads) {
    std::string body(3000, 'b');
    ZDataChunk chunks[] = {{"HEADER-16-BYTES!", 16}, {body.data(), 3000}, {"ERR", 3}};
    unsigned int written = 0, w2 = 0;
    EXPECT_FALSE(net.writeChunks(chunks, 3, written));
    EXPECT_EQ(written, 3019u);
    EXPECT_FALSE(net.write("tail", 4, w2));
    EXPECT_EQ(w2, 4u);
    EXPECT_EQ(peerReceives(3023), "HEADER-16-BYTES!" + body + "ERRtail");
    char buf[16];
    unsigned int got = 0;
    ASSERT_FALSE(net.setTimeout(2000000));
    EXPECT_FALSE(net.read(buf, 0, got));
    EXPECT_EQ(got, 0u);
    peerSend("xyz");
    peer.close();
    // Asked for more than will ever come: the rest is handed out, then the
    // close is reported, not a time-out.
    EXPECT_FALSE(net.read(buf, sizeof(buf), got));
    EXPECT_EQ(std::string(buf, got), "xyz");
    EXPECT_EQ(net.read(buf, sizeof(buf), got), ZError(-32, "Connection Closed by Peer"));
    EXPECT_EQ(got, 0u);
}

TEST_F(Connected, PollTimeouts) {
    char buf[4];
    unsigned int got = 9;
    net.setTimeout(30000);
    EXPECT_EQ(net.read(buf, 4, got), Timeout);
    EXPECT_EQ(got, 0u);
    EXPECT_EQ(net.wait(2, 999, 1), Timeout); // a poll of 0 ms
    peerSend("ab");
    EXPECT_FALSE(net.wait(2, 1000000, 2));
    EXPECT_EQ(net.readAvailable(), 2u);
    EXPECT_EQ(net.wait(2, 30000, 4), Timeout); // a partial record
    // The rest arriving later completes the wait.
    std::thread writer([&] {
        usleep(20000);
        peerSend("cd");
    });
    EXPECT_FALSE(net.wait(2, 2000000, 4));
    writer.join();
    EXPECT_FALSE(net.read(buf, 4, got));
    EXPECT_EQ(std::string(buf, got), "abcd");
}

TEST_F(Connected, RecordsInOneSegmentComeOutInOrderEachCounted) {
    std::string records;
    for (int i = 0; i < 300; i++)
        records += "r" + std::to_string(1000 + i) + "..";
    ASSERT_NO_FATAL_FAILURE(peerSend(records));
    ASSERT_FALSE(net.wait(2, 2000000, unsigned(records.size())));
    char rec[7];
    unsigned int got = 0;
    for (size_t at = 0; at < records.size(); at += 7) {
        ASSERT_EQ(net.readAvailable(), records.size() - at);
        ASSERT_FALSE(net.read(rec, 7, got));
        ASSERT_EQ(std::string(rec, got), records.substr(at, 7));
    }
    EXPECT_EQ(net.readAvailable(), 0u);
}

TEST_F(Connected, LargeReadsThroughASmallReceiveBuffer) {
    // The kernel can never queue 200000 bytes behind a 4 KB receive buffer:
    // the read has to take bytes out for the sender to go on. Then reads of
    // odd sizes straddle refills and buffer growth; then the close.
    ASSERT_NO_FATAL_FAILURE(open(4096));
    std::string data(600000, 0), out(200000, 0);
    for (size_t i = 0; i < data.size(); i++)
        data[i] = char(i * 13 + i / 509);
    std::thread sender([&] { peerSend(data); });
    net.setTimeout(5000000);
    unsigned int got = 0;
    ZError e = net.read(&out[0], 200000, got);
    ASSERT_FALSE(e) << e.string;
    ASSERT_EQ(got, 200000u);
    std::vector<char> buf(100000);
    const unsigned int sizes[] = {16, 496, 1, 65535, 70001, 3, 65536};
    for (size_t k = 0; out.size() < data.size(); k++) {
        unsigned int n = unsigned(std::min<size_t>(sizes[k % 7], data.size() - out.size()));
        e = net.read(buf.data(), n, got);
        ASSERT_FALSE(e) << e.string;
        ASSERT_EQ(got, n);
        out.append(buf.data(), got);
    }
    sender.join();
    EXPECT_TRUE(out == data);
    peer.close();
    EXPECT_EQ(net.read(buf.data(), 7, got), ZError(-32, "Connection Closed by Peer"));
    EXPECT_EQ(got, 0u);
}

TEST_F(Connected, DisconnectFromAnotherThreadEndsABlockedWaitOrRead) {
    for (bool reading : {false, true}) {
        SCOPED_TRACE(reading ? "read" : "wait");
        ASSERT_NO_FATAL_FAILURE(open());
        ZError result;
        char buf[64];
        unsigned int got = 5;
        std::thread blocked([&] {
            result = reading ? net.read(buf, 64, got) : net.wait(2, ZComms::WaitForever, 1);
        });
        if (reading)
            peerSend("part"); // fewer bytes than the read asks for
        usleep(50000);
        EXPECT_FALSE(net.disconnect());
        blocked.join();
        EXPECT_EQ(result, NotConnected);
        EXPECT_FALSE(net.isConnected());
        EXPECT_EQ(net.read(buf, 4, got), NotConnected);
        EXPECT_EQ(got, 0u);
        EXPECT_EQ(net.write("x", 1, got), NotConnected);
        EXPECT_FALSE(net.disconnect());
    }
}

TEST_F(Connected, ResetIsAPollErrorAndClosedPeerFailsWritesWithoutSignal) {
    linger l = {1, 0}; // close with RST
    peer.setSockOpt(SOL_SOCKET, SO_LINGER, &l, sizeof(l));
    peer.close();
    ZError e = net.wait(2, 1000000, 1);
    EXPECT_EQ(e.number, 1);
    EXPECT_EQ(e.string.subString(0, 12), "Poll error: ");
    EXPECT_GT(e.string.len(), 12);
    ASSERT_NO_FATAL_FAILURE(open());
    peer.close();
    std::string block(65536, 'x');
    unsigned int written = 0;
    e = ZError();
    for (int i = 0; i < 100 && !e; i++)
        e = net.write(block.data(), unsigned(block.size()), written);
    EXPECT_TRUE(e.number == -EPIPE || e.number == -ECONNRESET) << e.number << " " << e.string;
}

TEST_F(Connected, ReconnectAndRefusedConnect) {
    net.disconnect();
    peer.close();
    ASSERT_NO_FATAL_FAILURE(connectAndAccept("localhost")); // the socket is created again
    unsigned int written = 0;
    EXPECT_FALSE(net.write("again", 5, written));
    EXPECT_EQ(peerReceives(5), "again");
    // connect() on a connected transport closes the first connection.
    ZSocket first;
    first.setFd(peer.getFd());
    peer.setFd(-1);
    ASSERT_NO_FATAL_FAILURE(connectAndAccept("127.0.0.1"));
    char c;
    EXPECT_EQ(first.recv(&c, 1, written).number, -32);
    // A refused connection leaves the transport disconnected.
    listener.close();
    EXPECT_EQ(net.connect("127.0.0.1", (unsigned short)address.port()),
              ZError(-ECONNREFUSED, "Connection refused"));
    EXPECT_FALSE(net.isConnected());
}
