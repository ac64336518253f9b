#include "commsserial.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <string>
#include <thread>

using TavroApi::CommsSerial;

static void PrintTo(const ZError& e, std::ostream* os) {
    *os << e.number << " \"" << e.string.str() << '"';
}

namespace {

// A real pseudo-terminal pair: the transport opens the slave by its path and
// the test plays the unit on the master side.
struct SerialPair : ::testing::Test {
    int master = -1, slave = -1;
    std::string path;
    CommsSerial serial;
    void SetUp() override {
        char name[256];
        ASSERT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0);
        path = name;
    }
    void TearDown() override {
        serial.disconnect();
        if (master >= 0)
            close(master);
        close(slave);
    }
    void unitSends(const std::string& s) {
        ASSERT_EQ(write(master, s.data(), s.size()), ssize_t(s.size()));
    }
    std::string unitReceives(size_t n) {
        std::string s;
        char buf[256];
        pollfd p = {master, POLLIN, 0};
        while (s.size() < n && poll(&p, 1, 2000) == 1) {
            ssize_t r = read(master, buf, std::min(sizeof(buf), n - s.size()));
            if (r <= 0)
                break;
            s.append(buf, size_t(r));
        }
        return s;
    }
};

} // namespace

TEST_F(SerialPair, ConnectSetsRaw115200EightNOneAndDiscardsStaleInput) {
    ZError e = serial.connect(path.c_str());
    ASSERT_FALSE(e) << e.string;
    EXPECT_EQ(serial.name(), path.c_str());
    termios t;
    ASSERT_EQ(tcgetattr(slave, &t), 0);
    EXPECT_EQ(t.c_iflag, tcflag_t(IGNPAR));
    EXPECT_EQ(t.c_oflag, tcflag_t(0));
    EXPECT_EQ(t.c_cflag, tcflag_t(B115200 | CS8 | CREAD | CLOCAL));
    EXPECT_EQ(t.c_lflag, tcflag_t(0));
    EXPECT_EQ(t.c_cc[VTIME], 4);
    EXPECT_EQ(t.c_cc[VMIN], 1);
    EXPECT_EQ(cfgetospeed(&t), speed_t(B115200));
    EXPECT_EQ(cfgetispeed(&t), speed_t(B115200));
    EXPECT_EQ(fcntl(serial.fd(), F_GETFL) & O_NONBLOCK, 0);
    // Bytes already in the tty's input queue are gone after a (re)connect.
    unitSends("stale bytes");
    pollfd p = {slave, POLLIN, 0};
    ASSERT_EQ(poll(&p, 1, 2000), 1);
    ASSERT_FALSE(serial.connect(ZString(path.c_str())));
    EXPECT_EQ(serial.readAvailable(), 0u);
    unitSends("fresh");
    char buf[5];
    unsigned int got = 0;
    EXPECT_FALSE(serial.read(buf, 5, got));
    EXPECT_EQ(std::string(buf, got), "fresh");
}

TEST_F(SerialPair, ReadGathersWriteIsRawAndWaitTimesOut) {
    ASSERT_FALSE(serial.connect(ZString(path.c_str())));
    unsigned int got = 7, written = 0;
    char buf[16];
    EXPECT_FALSE(serial.read(buf, 0, got));
    EXPECT_EQ(got, 0u);
    std::thread unit([&] {
        const std::string pieces[] = {"ZU", std::string("\x10\0", 2), "abc", "defgh"};
        for (const std::string& piece : pieces) {
            unitSends(piece);
            usleep(10000);
        }
    });
    EXPECT_FALSE(serial.read(buf, 12, got));
    unit.join();
    EXPECT_EQ(std::string(buf, got), std::string("ZU\x10\0abcdefgh", 12));
    EXPECT_FALSE(serial.write("\x01\x02\n\r", 4, written));
    EXPECT_EQ(written, 4u);
    EXPECT_EQ(unitReceives(4), "\x01\x02\n\r"); // no output processing
    EXPECT_EQ(serial.wait(2, 20000, 100), ZError(-110, "Timeout"));
    unitSends("x");
    EXPECT_FALSE(serial.wait(2, 2000000, 100)); // the count is not looked at
    EXPECT_EQ(serial.readAvailable(), 1u);
}

TEST_F(SerialPair, UnitGoneIsAPollErrorAndAReadError) {
    ASSERT_FALSE(serial.connect(ZString(path.c_str())));
    close(master);
    master = -1;
    EXPECT_EQ(serial.wait(2, 1000000, 1), ZError(1, "Poll error"));
    char c;
    unsigned int got = 0;
    ZError e = serial.read(&c, 1, got);
    EXPECT_EQ(e.number, 1);
    EXPECT_EQ(e.string.subString(0, 12), "Read error: ");
    EXPECT_GT(e.string.len(), 12);
}

// A unit that stops mid-packet must not hold the reader for ever, and a
// disconnect must wake a reader that waits without a time-out.
TEST_F(SerialPair, StalledReadTimesOutAndDisconnectWakesAReader) {
    ASSERT_FALSE(serial.connect(ZString(path.c_str())));
    serial.setTimeout(50000);
    unitSends("ZU\x10");
    char buf[12];
    unsigned int got = 0;
    EXPECT_EQ(serial.read(buf, 12, got), ZError(-110, "Timeout"));
    EXPECT_EQ(got, 3u);
    serial.setTimeout(ZComms::WaitForever);
    ZError readErr, waitErr;
    std::thread reader([&] { readErr = serial.read(buf, 12, got); });
    std::thread waiter([&] { waitErr = serial.wait(2, ZComms::WaitForever, 1); });
    usleep(50000);
    EXPECT_FALSE(serial.disconnect());
    reader.join();
    waiter.join();
    EXPECT_EQ(readErr, ZError(1, "Not connected"));
    EXPECT_EQ(waitErr, ZError(1, "Not connected"));
    EXPECT_EQ(serial.read(buf, 1, got), ZError(1, "Read error: not connected"));
}

TEST(CommsSerial, FailuresWhenNotConnected) {
    CommsSerial serial;
    EXPECT_EQ(serial.connect("/nonexistent/tty"), ZError(1, "Unable to open serial port"));
    EXPECT_FALSE(serial.isConnected());
    EXPECT_EQ(serial.readAvailable(), 0u);
    char c;
    unsigned int n = 5;
    EXPECT_EQ(serial.read(&c, 1, n), ZError(1, "Read error: not connected"));
    EXPECT_EQ(n, 0u);
    EXPECT_EQ(serial.write("x", 1, n), ZError(1, "Write error: not connected"));
    EXPECT_EQ(serial.wait(2, 1000, 1), ZError(1, "Not connected"));
    EXPECT_FALSE(serial.disconnect());
    EXPECT_EQ(serial.setPacketMode(true).number, 5);
}
