#include "zpoll.h"
#include "zsocket.h"

#include <gtest/gtest.h>

#include <netdb.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <thread>

static void PrintTo(const ZError& e, std::ostream* os) {
    *os << e.number << " \"" << e.string.str() << '"';
}

namespace {

const ZError TimedOut(-110, "Connection timed out");

struct Pipe {
    int fd[2];
    Pipe() { EXPECT_EQ(pipe(fd), 0); }
    ~Pipe() { close(fd[0]), close(fd[1]); }
};

} // namespace

TEST(ZSocketAddressINET, NumbersNamesAndText) {
    ZSocketAddressINET a(0x7F000001u, 8080);
    a.setPort(40358);
    EXPECT_EQ(static_cast<const ZSocketAddress&>(a).getString(), "127.0.0.1:40358");
    EXPECT_FALSE(a == ZSocketAddressINET(0x7F000001u, 1));
    EXPECT_FALSE(a.set("localhost", 7));
    EXPECT_EQ(a.address() >> 24, 127u);
    EXPECT_FALSE(a.set("", 9));
    EXPECT_EQ(a.getString(), "0.0.0.0:9");
    ZError e = a.set("no-such-host.invalid", 1);
    ASSERT_LT(e.number, 0);
    EXPECT_EQ(e.string, hstrerror(-e.number));
    EXPECT_EQ(ZSocketAddressINET::addressString(0xC0A80001u), "192.168.0.1");
}

TEST(ZSocket, FailuresOnAClosedSocket) {
    ZSocket s;
    EXPECT_EQ(s.init(-1, SOCK_STREAM, 0), ZError(-EAFNOSUPPORT, strerror(EAFNOSUPPORT)));
    s.close();
    unsigned int got = 7;
    char c;
    EXPECT_EQ(s.recv(&c, 1, got).number, -EBADF);
    EXPECT_EQ(got, 0u);
    EXPECT_EQ(s.recvWithTimeout(&c, 1, got, 1000), ZError(-EBADF, "Select error"));
}

TEST(ZSocket, StreamExchangeAndTimeouts) {
    ZSocket listener{ZSocket::Stream}, client{ZSocket::Stream}, server;
    ZSocketAddressINET from, local;
    int fd = -1;
    ASSERT_FALSE(local.set("127.0.0.1", 0) || listener.bind(local) || listener.listen() ||
                 listener.getAddress(local) || client.connect(local) || listener.accept(fd, from) ||
                 client.getAddress(local));
    server.setFd(fd);
    EXPECT_TRUE(from == local);
    char buf[64] = {};
    unsigned int sent = 0, got = 5;
    EXPECT_EQ(server.recvWithTimeout(buf, 8, got, 30000), TimedOut);
    EXPECT_EQ(got, 0u);
    // A negative time-out is a plain recv: no select, so a non-blocking recv
    // reports EAGAIN instead of a time-out.
    EXPECT_EQ(server.recvWithTimeout(buf, 8, got, -1, MSG_DONTWAIT).number, -EAGAIN);
    EXPECT_EQ(server.recvWithTimeout(buf, 8, got, 0, MSG_DONTWAIT).number, -110);
    // Gathered sends with an empty chunk and with more chunks than fit on the
    // stack; time-outs of a second or more go through select unharmed.
    static const char digits[] = "0123456789";
    ZDataChunk chunks[44] = {{"one-", 4}, {"", 0}, {"two-", 4}, {"three", 5}};
    EXPECT_FALSE(client.sendChunks(chunks, 4, sent));
    EXPECT_EQ(sent, 13u);
    for (int i = 0; i < 44; i++)
        chunks[i] = {&digits[i % 10], 1};
    EXPECT_FALSE(client.sendChunks(chunks, 44, sent));
    EXPECT_EQ(sent, 44u);
    EXPECT_FALSE(client.send("!", 1, sent));
    EXPECT_FALSE(server.recvWithTimeout(buf, 50, got, 1500000, MSG_WAITALL));
    EXPECT_FALSE(server.recvWithTimeout(buf + 50, 8, got, 2147483647, MSG_WAITALL));
    EXPECT_EQ(std::string(buf, 58),
              "one-two-three" + std::string(digits) + digits + digits + digits + "0123!");
    client.close();
    EXPECT_EQ(server.recv(buf, sizeof(buf), got), ZError(-32, "Connection Closed by Peer"));
    EXPECT_EQ(got, 0u);
}

TEST(ZPoll, TimeoutsAndReadyDescriptorsInTurn) {
    Pipe p, a, b, c;
    ZPoll poll;
    poll.append(p.fd[0], POLLIN);
    int fd = 0;
    EXPECT_EQ(poll.doPoll(fd, 999), ZError(-110, "Timeout")); // a poll of 0 ms
    EXPECT_EQ(fd, -110);
    // A negative time-out waits for input.
    std::thread writer([&] {
        usleep(30000);
        EXPECT_EQ(write(p.fd[1], "x", 1), 1);
    });
    EXPECT_FALSE(poll.doPoll(fd, -1));
    EXPECT_EQ(fd, p.fd[0]);
    writer.join();
    poll.clear();
    for (int fd : {a.fd[0], c.fd[0], b.fd[0]}) // c is never ready
        poll.append(fd, POLLIN);
    ASSERT_EQ(write(a.fd[1], "x", 1) + write(b.fd[1], "y", 1), 2);
    int events = 0;
    for (int want : {a.fd[0], b.fd[0], a.fd[0], b.fd[0], a.fd[0]}) {
        EXPECT_FALSE(poll.doPollEvents(fd, events, 0));
        EXPECT_EQ(fd, want);
        EXPECT_EQ(events, POLLIN);
    }
}

TEST(ZPoll, PollFailureIsNegatedErrnoAlsoInFd) {
    // poll refuses more entries than the descriptor limit with EINVAL.
    struct rlimit old, low;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &old), 0);
    low = old;
    low.rlim_cur = 64;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
    ZPoll poll;
    for (int i = 0; i < 100; i++)
        poll.append(-1, POLLIN);
    int fd = 0;
    ZError e = poll.doPoll(fd, 0);
    setrlimit(RLIMIT_NOFILE, &old);
    EXPECT_EQ(e, ZError(-EINVAL, strerror(EINVAL)));
    EXPECT_EQ(fd, -EINVAL);
}
