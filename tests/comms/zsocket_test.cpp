#include "zpoll.h"
#include "zsocket.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>

namespace {

double secondsSince(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// A listening socket on 127.0.0.1 (ephemeral port), a client connected to it
// and the accepted server end.
struct TcpPair {
    ZSocket listener, client, server;

    TcpPair() {
        ZSocketAddressINET any;
        EXPECT_FALSE(any.set("127.0.0.1", 0));
        EXPECT_FALSE(listener.init(ZSocket::Stream));
        EXPECT_FALSE(listener.bind(any));
        EXPECT_FALSE(listener.listen());
        ZSocketAddressINET bound;
        EXPECT_FALSE(listener.getAddress(bound));
        EXPECT_FALSE(client.init(ZSocket::Stream));
        EXPECT_FALSE(client.connect(bound));
        int fd = -1;
        ZSocketAddressINET from;
        EXPECT_FALSE(listener.accept(fd, from));
        server.setFd(fd);
        ZSocketAddressINET local;
        EXPECT_FALSE(client.getAddress(local));
        EXPECT_TRUE(from == local);
    }
};

} // namespace

TEST(ZSocketAddressINET, NumbersAndTextInHostOrder) {
    ZSocketAddressINET a;
    EXPECT_FALSE(a.set(0x7F000001u, 8080));
    EXPECT_EQ(a.address(), 0x7F000001u);
    EXPECT_EQ(a.port(), 8080u);
    EXPECT_EQ(a.getString(), "127.0.0.1:8080");
    const sockaddr_in* raw = reinterpret_cast<const sockaddr_in*>(a.raw());
    EXPECT_EQ(raw->sin_family, AF_INET);
    EXPECT_EQ(raw->sin_port, htons(8080));
    EXPECT_EQ(a.len(), socklen_t(sizeof(sockaddr_in)));

    a.setPort(40358);
    EXPECT_EQ(a.port(), 40358u);
    EXPECT_EQ(static_cast<const ZSocketAddress&>(a).getString(), "127.0.0.1:40358");

    ZSocketAddressINET b(0x7F000001u, 40358);
    EXPECT_TRUE(a == b);
    b.setPort(1);
    EXPECT_FALSE(a == b);
    EXPECT_TRUE(ZSocketAddress().getString().isEmpty());
}

TEST(ZSocketAddressINET, ResolvesNamesAndEmptyHostIsWildcard) {
    ZSocketAddressINET a;
    EXPECT_FALSE(a.set("10.1.2.3", 5));
    EXPECT_EQ(a.address(), 0x0A010203u);
    EXPECT_FALSE(a.set("localhost", 7));
    EXPECT_EQ(a.address() >> 24, 127u);
    EXPECT_FALSE(a.set("", 9));
    EXPECT_EQ(a.address(), 0u);
    EXPECT_EQ(a.getString(), "0.0.0.0:9");

    // Binding the wildcard address binds all interfaces.
    ZSocket s(ZSocket::Datagram);
    EXPECT_FALSE(a.set("", 0));
    EXPECT_FALSE(s.bind(a));
    ZSocketAddressINET bound;
    EXPECT_FALSE(s.getAddress(bound));
    EXPECT_EQ(bound.address(), 0u);
    EXPECT_NE(bound.port(), 0u);
}

TEST(ZSocketAddressINET, ResolutionFailureIsNegatedHErrno) {
    ZSocketAddressINET a;
    ZError e = a.set("no-such-host.invalid", 1);
    ASSERT_LT(e.number, 0);
    EXPECT_EQ(e.string, hstrerror(-e.number));
}

TEST(ZSocketAddressINET, ServicesDatabase) {
    ZSocketAddressINET a;
    EXPECT_FALSE(a.set("127.0.0.1", "http", "tcp"));
    EXPECT_EQ(a.port(), 80u);
    EXPECT_EQ(a.address(), 0x7F000001u);
    ZError e = a.set("127.0.0.1", "no-such-service", "tcp");
    EXPECT_EQ(e.number, 1);
    EXPECT_EQ(e.string, "Getservbyname error");
}

TEST(ZSocketAddressINET, HostAddresses) {
    EXPECT_FALSE(ZSocketAddressINET::getHostName().isEmpty());
    ZList<uint32_t> numbers = ZSocketAddressINET::getIpAddresses();
    ZList<ZString> texts = ZSocketAddressINET::getIpAddressList();
    ASSERT_EQ(numbers.number(), texts.number());
    ZIter t = texts.first();
    for (uint32_t n : numbers) {
        EXPECT_EQ(texts.nodeGet(t), ZSocketAddressINET::addressString(n));
        t = texts.next(t);
    }
    EXPECT_EQ(ZSocketAddressINET::getIpAddressListAll().number(), texts.number());
    EXPECT_EQ(ZSocketAddressINET::addressString(0xC0A80001u), "192.168.0.1");
}

TEST(ZSocket, FailuresAreNegatedErrnoWithSystemText) {
    ZSocket s;
    ZError e = s.init(-1, SOCK_STREAM, 0);
    EXPECT_EQ(e.number, -EAFNOSUPPORT);
    EXPECT_EQ(e.string, strerror(EAFNOSUPPORT));
    EXPECT_EQ(s.getFd(), -1);

    // Nothing listens on the port of a socket that was bound and closed.
    ZSocket probe(ZSocket::Stream);
    ZSocketAddressINET a;
    a.set("127.0.0.1", 0);
    ASSERT_FALSE(probe.bind(a));
    ASSERT_FALSE(probe.getAddress(a));
    probe.close();
    ASSERT_FALSE(s.init(ZSocket::Stream));
    e = s.connect(a);
    EXPECT_EQ(e.number, -ECONNREFUSED);
    EXPECT_EQ(e.string, "Connection refused");
}

TEST(ZSocket, CloseTwiceIsHarmlessAndClosedSocketHasNothingAvailable) {
    ZSocket s(ZSocket::Stream);
    EXPECT_GE(s.getFd(), 0);
    s.close();
    EXPECT_EQ(s.getFd(), -1);
    s.close();
    EXPECT_EQ(s.getFd(), -1);
    EXPECT_EQ(s.recvAvailable(), 0u);
    unsigned int got = 7;
    char c;
    ZError e = s.recv(&c, 1, got);
    EXPECT_EQ(e.number, -EBADF);
    EXPECT_EQ(got, 0u);
}

TEST(ZSocket, AdoptTypeKeepsTheDescriptor) {
    int fds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
    ZSocket s;
    s.setFd(fds[0]);
    EXPECT_FALSE(s.init(ZSocket::Adopt));
    EXPECT_EQ(s.getFd(), fds[0]);
    close(fds[1]);
}

TEST(ZSocket, StreamSendRecvAndOrderlyClose) {
    TcpPair p;
    unsigned int sent = 0, got = 0;
    EXPECT_FALSE(p.client.send("hello", 5, sent));
    EXPECT_EQ(sent, 5u);
    char buf[16] = {};
    EXPECT_FALSE(p.server.recvWithTimeout(buf, 5, got, 1000000, MSG_WAITALL));
    EXPECT_EQ(std::string(buf, got), "hello");

    p.client.close();
    ZError e = p.server.recv(buf, sizeof(buf), got);
    EXPECT_EQ(e.number, -32);
    EXPECT_EQ(e.string, "Connection Closed by Peer");
    EXPECT_EQ(got, 0u);
}

TEST(ZSocket, SendChunksGathersInOrder) {
    TcpPair p;
    ZDataChunk chunks[] = {{"one-", 4}, {"", 0}, {"two-", 4}, {"three", 5}};
    unsigned int sent = 0, got = 0;
    EXPECT_FALSE(p.client.sendChunks(chunks, 4, sent));
    EXPECT_EQ(sent, 13u);
    char buf[32] = {};
    EXPECT_FALSE(p.server.recv(buf, 13, got, MSG_WAITALL));
    EXPECT_EQ(std::string(buf, got), "one-two-three");

    // More chunks than fit on the stack.
    static const char digits[] = "0123456789";
    std::string expect;
    ZDataChunk many[40];
    for (int i = 0; i < 40; i++) {
        many[i] = {&digits[i % 10], 1};
        expect += char('0' + i % 10);
    }
    EXPECT_FALSE(p.client.sendChunks(many, 40, sent));
    EXPECT_EQ(sent, 40u);
    EXPECT_FALSE(p.server.recv(buf, 32, got, MSG_WAITALL));
    EXPECT_EQ(std::string(buf, got), expect.substr(0, 32));
}

TEST(ZSocket, RecvWithTimeout) {
    TcpPair p;
    char buf[8];
    unsigned int got = 5;

    auto t0 = std::chrono::steady_clock::now();
    ZError e = p.server.recvWithTimeout(buf, sizeof(buf), got, 30000);
    EXPECT_EQ(e.number, -110);
    EXPECT_EQ(e.string, "Connection timed out");
    EXPECT_EQ(got, 0u);
    EXPECT_GE(secondsSince(t0), 0.025);
    EXPECT_LT(secondsSince(t0), 1.0);

    // A negative time-out is a plain recv: no select, so a non-blocking recv
    // reports EAGAIN instead of a time-out.
    e = p.server.recvWithTimeout(buf, sizeof(buf), got, -1, MSG_DONTWAIT);
    EXPECT_EQ(e.number, -EAGAIN);
    e = p.server.recvWithTimeout(buf, sizeof(buf), got, 0, MSG_DONTWAIT);
    EXPECT_EQ(e.number, -110);

    // A time-out of a second or more goes through select unharmed.
    unsigned int sent = 0;
    p.client.send("xy", 2, sent);
    t0 = std::chrono::steady_clock::now();
    EXPECT_FALSE(p.server.recvWithTimeout(buf, 2, got, 1500000, MSG_WAITALL));
    EXPECT_EQ(std::string(buf, got), "xy");
    p.client.send("z", 1, sent);
    EXPECT_FALSE(p.server.recvWithTimeout(buf, sizeof(buf), got, 2147483647));
    EXPECT_LT(secondsSince(t0), 1.0);

    ZSocket closed;
    e = closed.recvWithTimeout(buf, 1, got, 1000);
    EXPECT_EQ(e.number, -EBADF);
    EXPECT_EQ(e.string, "Select error");
}

TEST(ZSocket, DatagramsCarryTheirSender) {
    ZSocketAddressINET local;
    local.set("127.0.0.1", 0);
    ZSocket a(ZSocket::Datagram), b(ZSocket::Datagram);
    ASSERT_FALSE(a.bind(local));
    ASSERT_FALSE(b.bind(local));
    ZSocketAddressINET addrA, addrB;
    a.getAddress(addrA);
    b.getAddress(addrB);

    unsigned int sent = 0, got = 0;
    EXPECT_FALSE(a.sendTo(addrB, "ping", 4, sent));
    EXPECT_EQ(sent, 4u);
    char buf[16];
    ZSocketAddressINET from;
    EXPECT_FALSE(b.recvFromWithTimeout(from, buf, sizeof(buf), got, 1000000));
    EXPECT_EQ(std::string(buf, got), "ping");
    EXPECT_TRUE(from == addrA);
    EXPECT_EQ(from.getString(), addrA.getString());

    ZError e = b.recvFromWithTimeout(from, buf, sizeof(buf), got, 10000);
    EXPECT_EQ(e.number, -110);
    EXPECT_EQ(e.string, "Connection timed out");
}

TEST(ZSocket, OptionsAndQueries) {
    TcpPair p;
    int v = -1;
    socklen_t len = sizeof(v);
    const int expected[] = {2, 0, 6};
    for (int prio = 0; prio < 3; prio++) {
        EXPECT_FALSE(p.client.setPriority(ZSocket::Priority(prio)));
        len = sizeof(v);
        EXPECT_FALSE(p.client.getSockOpt(SOL_SOCKET, SO_PRIORITY, &v, len));
        EXPECT_EQ(v, expected[prio]) << "priority " << prio;
    }
    EXPECT_FALSE(p.client.setReuseAddress(true));
    len = sizeof(v);
    p.client.getSockOpt(SOL_SOCKET, SO_REUSEADDR, &v, len);
    EXPECT_EQ(v, 1);

    ZSocket udp(ZSocket::Datagram);
    EXPECT_FALSE(udp.setBroadCast(true));
    len = sizeof(v);
    udp.getSockOpt(SOL_SOCKET, SO_BROADCAST, &v, len);
    EXPECT_EQ(v, 1);

    unsigned int mtu = 0;
    EXPECT_FALSE(p.client.getMTU(mtu));
    EXPECT_GT(mtu, 0u);

    unsigned int sent = 0;
    p.client.send("abcdef", 6, sent);
    for (int i = 0; i < 200 && p.server.recvAvailable() < 6; i++)
        usleep(1000);
    EXPECT_EQ(p.server.recvAvailable(), 6u);
}

TEST(ZPoll, TimeoutBelowAMillisecondReturnsAtOnce) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    ZPoll poll;
    poll.append(fds[0], POLLIN);
    int fd = 0;
    auto t0 = std::chrono::steady_clock::now();
    ZError e = poll.doPoll(fd, 999);
    EXPECT_LT(secondsSince(t0), 0.005);
    EXPECT_EQ(e.number, -110);
    EXPECT_EQ(e.string, "Timeout");
    EXPECT_EQ(fd, -110);

    t0 = std::chrono::steady_clock::now();
    e = poll.doPoll(fd, 20000);
    EXPECT_EQ(e.number, -110);
    EXPECT_GE(secondsSince(t0), 0.019);
    close(fds[0]);
    close(fds[1]);
}

TEST(ZPoll, ReadyDescriptorsAreServedInTurn) {
    int a[2], b[2], c[2];
    ASSERT_EQ(pipe(a), 0);
    ASSERT_EQ(pipe(b), 0);
    ASSERT_EQ(pipe(c), 0);
    ZPoll poll;
    poll.append(a[0], POLLIN);
    poll.append(c[0], POLLIN); // never ready
    poll.append(b[0], POLLIN);
    EXPECT_EQ(poll.getPollFdsNum(), 3);
    ASSERT_EQ(write(a[1], "x", 1), 1);
    ASSERT_EQ(write(b[1], "y", 1), 1);

    int fd = 0, events = 0;
    int expect[] = {a[0], b[0], a[0], b[0], a[0]};
    for (int want : expect) {
        EXPECT_FALSE(poll.doPollEvents(fd, events, 0));
        EXPECT_EQ(fd, want);
        EXPECT_EQ(events, POLLIN);
    }

    // Only b ready: b every time.
    poll.delFd(a[0]);
    EXPECT_EQ(poll.getPollFdsNum(), 2);
    for (int i = 0; i < 3; i++) {
        EXPECT_FALSE(poll.doPoll(fd, 0));
        EXPECT_EQ(fd, b[0]);
    }
    EXPECT_EQ(poll.nextFd(0), 1);
    EXPECT_EQ(poll.nextFd(1), 0);
    poll.clear();
    EXPECT_EQ(poll.getPollFdsNum(), 0);
    for (int* p : {a, b, c}) {
        close(p[0]);
        close(p[1]);
    }
}

TEST(ZPoll, NegativeTimeoutWaitsForInput) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    ZPoll poll;
    poll.append(fds[0], POLLIN);
    std::thread writer([&] {
        usleep(30000);
        EXPECT_EQ(write(fds[1], "x", 1), 1);
    });
    int fd = 0;
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_FALSE(poll.doPoll(fd, -1));
    EXPECT_EQ(fd, fds[0]);
    EXPECT_GE(secondsSince(t0), 0.025);
    writer.join();
    close(fds[0]);
    close(fds[1]);
}

TEST(ZPoll, PollFailureIsNegatedErrnoAlsoInFd) {
    // poll refuses more entries than the descriptor limit with EINVAL.
    struct rlimit old;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &old), 0);
    struct rlimit low = old;
    low.rlim_cur = 64;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
    ZPoll poll;
    for (int i = 0; i < 100; i++)
        poll.append(-1, POLLIN);
    int fd = 0;
    ZError e = poll.doPoll(fd, 0);
    setrlimit(RLIMIT_NOFILE, &old);
    EXPECT_EQ(e.number, -EINVAL);
    EXPECT_EQ(e.string, strerror(EINVAL));
    EXPECT_EQ(fd, -EINVAL);
}
