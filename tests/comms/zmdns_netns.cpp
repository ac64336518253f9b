// mDNS discovery over real sockets, inside a private network
// namespace of this test process: against a responder of the test's own that
// answers as a unit does, and against a real avahi-daemon.
//
// The process leaves the machine's network namespace before anything is
// sent (unshare(CLONE_NEWNET), or a user namespace when not root) and checks
// that it sees no interface but lo; otherwise every test here is skipped: a
// query must never leave through the machine's real network card.
#include "comms/mdns_builder.h"
#include "zmdns.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using mdnstest::Unit;
using Clock = std::chrono::steady_clock;

namespace {

const char* const Service = "_tavro._tcp.local.";
const unsigned TimeoutMs = 150;

long msSince(Clock::time_point t) {
    return long(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - t).count());
}

bool run(const std::string& command) {
    return system((command + " >/dev/null 2>&1").c_str()) == 0;
}

bool writeFile(const std::string& path, const std::string& text) {
    std::ofstream f(path);
    f << text;
    return bool(f);
}

std::string readFile(const std::string& path) {
    std::ifstream f(path);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

std::vector<std::string> interfaces() {
    std::vector<std::string> r;
    struct if_nameindex* list = if_nameindex();
    if (!list)
        return {"?"};
    for (struct if_nameindex* i = list; i->if_index; i++)
        r.push_back(i->if_name);
    if_freenameindex(list);
    return r;
}

// ------------------------------------------------------------- namespace

// Empty when this process is in a fresh network namespace with lo up and a
// route for multicast; otherwise why not.
std::string g_notReady = "namespace not set up";
// Set when only a user namespace (not real root) made the network namespace.
bool g_userNamespace = false;

bool enterUserNamespace() {
    uid_t uid = getuid();
    gid_t gid = getgid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
        return false;
    writeFile("/proc/self/setgroups", "deny");
    return writeFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1\n") &&
           writeFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1\n");
}

// Runs once, from the main thread before any test thread exists (unshare of
// a user namespace needs a single-threaded process).
class NamespaceEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        if (unshare(CLONE_NEWNET) != 0) {
            int err = errno;
            if (!enterUserNamespace()) {
                g_notReady = std::string("cannot create a network namespace (unshare: ") +
                             strerror(err) + "); run as root or allow unprivileged user namespaces";
                return;
            }
            g_userNamespace = true;
        }
        std::vector<std::string> ifs = interfaces();
        if (ifs != std::vector<std::string>{"lo"}) {
            g_notReady = "the new network namespace has interfaces other than lo";
            return;
        }
        if (!run("ip link set lo up") || !run("ip route add 224.0.0.0/4 dev lo src 127.0.0.1")) {
            g_notReady = "cannot set up lo in the namespace (is iproute2's ip installed?)";
            return;
        }
        g_notReady.clear();
    }
};

const ::testing::Environment* const g_env =
    ::testing::AddGlobalTestEnvironment(new NamespaceEnvironment);

#define REQUIRE_NAMESPACE()                                                                        \
    do {                                                                                           \
        if (!g_notReady.empty())                                                                   \
            GTEST_SKIP() << "mDNS namespace tests skipped: " << g_notReady;                        \
        ASSERT_EQ(interfaces(), std::vector<std::string>{"lo"});                                   \
    } while (0)

// -------------------------------------------------------------- responder

// Answers each query that reaches 224.0.0.251:5353 with a script of replies,
// sent unicast to the query's source as a unit does.
class Responder {
public:
    struct Reply {
        int delayMs;
        std::function<std::vector<uint8_t>(uint16_t id)> make;
    };

    explicit Responder(std::vector<Reply> script) : script(std::move(script)) {}
    ~Responder() { stop(); }

    // Socket bound to the group address itself (so only datagrams sent to
    // 224.0.0.251:5353 arrive) and member of the group.
    ::testing::AssertionResult start() {
        fd = ::socket(AF_INET, SOCK_DGRAM, 0);
        if (fd < 0)
            return ::testing::AssertionFailure() << "socket: " << strerror(errno);
        int on = 1;
        setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
        struct sockaddr_in a = {};
        a.sin_family = AF_INET;
        a.sin_port = htons(5353);
        a.sin_addr.s_addr = htonl(0xE00000FB);
        if (::bind(fd, reinterpret_cast<struct sockaddr*>(&a), sizeof(a)) != 0)
            return ::testing::AssertionFailure() << "bind 5353: " << strerror(errno);
        struct ip_mreq m = {};
        m.imr_multiaddr.s_addr = htonl(0xE00000FB);
        m.imr_interface.s_addr = htonl(INADDR_ANY);
        if (setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &m, sizeof(m)) != 0)
            return ::testing::AssertionFailure() << "membership: " << strerror(errno);
        thread = std::thread([this] { loop(); });
        return ::testing::AssertionSuccess();
    }

    void stop() {
        stopping = true;
        if (thread.joinable())
            thread.join();
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }

    std::vector<std::vector<uint8_t>> queries() {
        std::lock_guard<std::mutex> l(mutex);
        return received;
    }
    std::vector<struct sockaddr_in> sources() {
        std::lock_guard<std::mutex> l(mutex);
        return from;
    }
    // When the last reply of the last query left.
    Clock::time_point lastSent() {
        std::lock_guard<std::mutex> l(mutex);
        return sent;
    }

private:
    void loop() {
        while (!stopping) {
            struct pollfd p = {fd, POLLIN, 0};
            if (poll(&p, 1, 20) <= 0)
                continue;
            uint8_t buf[2048];
            struct sockaddr_in src = {};
            socklen_t len = sizeof(src);
            ssize_t n = recvfrom(fd, buf, sizeof(buf), 0, reinterpret_cast<sockaddr*>(&src), &len);
            if (n < 2)
                continue;
            {
                std::lock_guard<std::mutex> l(mutex);
                received.emplace_back(buf, buf + n);
                from.push_back(src);
            }
            uint16_t id = uint16_t((buf[0] << 8) | buf[1]);
            for (const Reply& r : script) {
                if (r.delayMs > 0)
                    std::this_thread::sleep_for(std::chrono::milliseconds(r.delayMs));
                std::vector<uint8_t> d = r.make(id);
                sendto(fd, d.data(), d.size(), 0, reinterpret_cast<sockaddr*>(&src), sizeof(src));
                std::lock_guard<std::mutex> l(mutex);
                sent = Clock::now();
            }
        }
    }

    std::vector<Reply> script;
    int fd = -1;
    std::thread thread;
    std::atomic<bool> stopping{false};
    std::mutex mutex;
    std::vector<std::vector<uint8_t>> received;
    std::vector<struct sockaddr_in> from;
    Clock::time_point sent = Clock::now();
};

Responder::Reply unitReply(int delayMs, const Unit& u = Unit()) {
    return {delayMs, [u](uint16_t id) { return mdnstest::unitReply(id, u); }};
}

Unit unitB() {
    Unit u;
    u.instance = "Tavro-0077";
    u.host = "tavro-0077";
    u.address = 0x0A000177; // 10.0.1.119
    u.port = 40359;
    u.texts = {"serial=0077"};
    return u;
}

std::vector<std::string> texts(const ZMdnsService& s) {
    std::vector<std::string> r;
    for (const ZString& t : s.texts)
        r.push_back(t.retStr());
    return r;
}

void expectUnit(const ZMdnsService& s, const Unit& u) {
    EXPECT_EQ(s.address.address(), u.address);
    EXPECT_EQ(s.address.port(), u.port);
    EXPECT_EQ(std::string(s.name.retStr()), u.host + ".local.");
    EXPECT_EQ(texts(s), u.texts);
}

unsigned boundPort(ZMdns& m) {
    ZSocketAddressINET a;
    if (m.socket().getAddress(a))
        return 0;
    return a.port();
}

} // namespace

// ------------------------------------------------------------------ tests

TEST(MdnsNetns, InitSetsUpTheSocket) {
    REQUIRE_NAMESPACE();
    ZMdns m;
    ZError e = m.init();
    ASSERT_FALSE(e) << e.getString();
    int fd = m.socket().getFd();
    ASSERT_GE(fd, 0);
    ZSocketAddressINET a;
    ASSERT_FALSE(m.socket().getAddress(a));
    EXPECT_EQ(a.address(), 0u);
    EXPECT_NE(a.port(), 0u);
    EXPECT_NE(a.port(), 5353u);
    unsigned char v = 0;
    socklen_t len = sizeof(v);
    ASSERT_EQ(getsockopt(fd, IPPROTO_IP, IP_MULTICAST_TTL, &v, &len), 0);
    EXPECT_EQ(v, 1);
    len = sizeof(v);
    ASSERT_EQ(getsockopt(fd, IPPROTO_IP, IP_MULTICAST_LOOP, &v, &len), 0);
    EXPECT_EQ(v, 1);
    int type = 0;
    len = sizeof(type);
    ASSERT_EQ(getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &len), 0);
    EXPECT_EQ(type, SOCK_DGRAM);
}

TEST(MdnsNetns, InitReturnsTheFailingStep) {
    REQUIRE_NAMESPACE();
    // Without a multicast route the membership step fails with ENODEV.
    ASSERT_TRUE(run("ip route del 224.0.0.0/4 dev lo"));
    ZMdns m;
    ZError e = m.init();
    bool restored = run("ip route add 224.0.0.0/4 dev lo src 127.0.0.1");
    EXPECT_EQ(e.getNumber(), -ENODEV) << e.getString();
    EXPECT_STREQ(e.getString().retStr(), strerror(ENODEV));
    ASSERT_TRUE(restored);
}

TEST(MdnsNetns, OneUnit) {
    REQUIRE_NAMESPACE();
    Responder r({unitReply(0)});
    ASSERT_TRUE(r.start());
    ZMdns m;
    ASSERT_FALSE(m.init());
    ZList<ZMdnsService> found;
    Clock::time_point t0 = Clock::now();
    ZError e = m.findServices(Service, TimeoutMs, found);
    long took = msSince(t0);
    ASSERT_FALSE(e) << e.getString();
    ASSERT_EQ(found.size(), 1);
    expectUnit(found[0], Unit());
    EXPECT_GE(took, long(TimeoutMs));
    EXPECT_LT(took, long(TimeoutMs) + 1000);

    // The query, byte for byte, to 224.0.0.251:5353 from the socket's own port.
    std::vector<std::vector<uint8_t>> q = r.queries();
    ASSERT_EQ(q.size(), 1u);
    uint8_t expected[MdnsQuerySize];
    mdnsBuildQuery(1, expected);
    EXPECT_EQ(q[0], std::vector<uint8_t>(expected, expected + MdnsQuerySize));
    EXPECT_EQ(q[0][0], 0);
    EXPECT_EQ(q[0][1], 1); // the counter after incrementing: 1
    EXPECT_EQ(ntohs(r.sources()[0].sin_port), boundPort(m));
    EXPECT_EQ(m.counter(), 1u);
}

TEST(MdnsNetns, TwoUnitsInArrivalOrder) {
    REQUIRE_NAMESPACE();
    Responder r({unitReply(0, unitB()), unitReply(20)});
    ASSERT_TRUE(r.start());
    ZMdns m;
    ASSERT_FALSE(m.init());
    ZList<ZMdnsService> found;
    ASSERT_FALSE(m.findServices(Service, TimeoutMs, found));
    ASSERT_EQ(found.size(), 2);
    expectUnit(found[0], unitB());
    expectUnit(found[1], Unit());
}

TEST(MdnsNetns, UnitAnsweringTwiceIsListedTwice) {
    REQUIRE_NAMESPACE();
    Responder r({unitReply(0), unitReply(10)});
    ASSERT_TRUE(r.start());
    ZMdns m;
    ASSERT_FALSE(m.init());
    ZList<ZMdnsService> found;
    ASSERT_FALSE(m.findServices(Service, TimeoutMs, found));
    ASSERT_EQ(found.size(), 2);
    expectUnit(found[0], Unit());
    expectUnit(found[1], Unit());
}

TEST(MdnsNetns, OtherRepliesAreIgnored) {
    REQUIRE_NAMESPACE();
    Unit other = unitB();
    Responder r({
        {0, [](uint16_t id) { return mdnstest::unitReply(uint16_t(id + 1)); }},
        {0, [](uint16_t id) { return mdnstest::unitReply(id, Unit(), 0x8000); }},
        {0,
         [](uint16_t id) {
             return mdnstest::unitReply(id, Unit(), 0x8400, {"_other", "_tcp", "local"});
         }},
        // malformed: truncated, a data length past the end, and an empty datagram
        {0,
         [](uint16_t id) {
             std::vector<uint8_t> v = mdnstest::unitReply(id);
             v.resize(v.size() - 3);
             return v;
         }},
        {0,
         [](uint16_t id) {
             std::vector<uint8_t> v = mdnstest::unitReply(id);
             v[v.size() - 6] = 0xFF;
             return v;
         }},
        {0, [](uint16_t) { return std::vector<uint8_t>(); }},
        {0, [](uint16_t) { return std::vector<uint8_t>{0x00}; }},
        unitReply(5, other),
    });
    ASSERT_TRUE(r.start());
    ZMdns m;
    ASSERT_FALSE(m.init());
    ZList<ZMdnsService> found;
    ZError e = m.findServices(Service, TimeoutMs, found);
    ASSERT_FALSE(e) << e.getString();
    ASSERT_EQ(found.size(), 1);
    expectUnit(found[0], other);
}

TEST(MdnsNetns, NoUnitIsSuccessAndEmptyAfterOneTimeout) {
    REQUIRE_NAMESPACE();
    ZMdns m;
    ASSERT_FALSE(m.init());
    ZList<ZMdnsService> found;
    Clock::time_point t0 = Clock::now();
    ZError e = m.findServices(Service, TimeoutMs, found);
    long took = msSince(t0);
    EXPECT_FALSE(e) << e.getString();
    EXPECT_EQ(e.getNumber(), 0);
    EXPECT_TRUE(e.getString().isEmpty());
    EXPECT_TRUE(found.isEmpty());
    EXPECT_GE(took, long(TimeoutMs));
    EXPECT_LT(took, 2 * long(TimeoutMs));
}

TEST(MdnsNetns, EachDatagramRestartsTheTimeout) {
    REQUIRE_NAMESPACE();
    // Replies 100 ms apart: together they last longer than one time-out,
    // but none comes later than one time-out after the one before.
    Responder r({unitReply(0), unitReply(100), unitReply(100), unitReply(100)});
    ASSERT_TRUE(r.start());
    ZMdns m;
    ASSERT_FALSE(m.init());
    ZList<ZMdnsService> found;
    Clock::time_point t0 = Clock::now();
    ASSERT_FALSE(m.findServices(Service, TimeoutMs, found));
    Clock::time_point end = Clock::now();
    long took = msSince(t0);
    EXPECT_EQ(found.size(), 4);
    EXPECT_GE(took, 300 + long(TimeoutMs));
    // The search lasts at least one time-out after the last reply.
    EXPECT_GE(std::chrono::duration_cast<std::chrono::milliseconds>(end - r.lastSent()).count(),
              long(TimeoutMs) - 5);
}

TEST(MdnsNetns, ALateReplyIsMissed) {
    REQUIRE_NAMESPACE();
    Responder r({unitReply(0), unitReply(int(TimeoutMs) + 150)});
    ASSERT_TRUE(r.start());
    ZMdns m;
    ASSERT_FALSE(m.init());
    ZList<ZMdnsService> found;
    ASSERT_FALSE(m.findServices(Service, TimeoutMs, found));
    EXPECT_EQ(found.size(), 1);
    r.stop();
}

TEST(MdnsNetns, EachSearchUsesTheNextId) {
    REQUIRE_NAMESPACE();
    Responder r({unitReply(0)});
    ASSERT_TRUE(r.start());
    ZMdns m;
    ASSERT_FALSE(m.init());
    for (unsigned i = 1; i <= 3; i++) {
        ZList<ZMdnsService> found;
        ASSERT_FALSE(m.findServices(Service, TimeoutMs, found));
        EXPECT_EQ(found.size(), 1);
        EXPECT_EQ(m.counter(), i);
    }
    std::vector<std::vector<uint8_t>> q = r.queries();
    ASSERT_EQ(q.size(), 3u);
    for (unsigned i = 0; i < 3; i++) {
        EXPECT_EQ(q[i][0], 0);
        EXPECT_EQ(q[i][1], i + 1);
    }
}

TEST(MdnsNetns, FoundListIsAppendedTo) {
    REQUIRE_NAMESPACE();
    Responder r({unitReply(0)});
    ASSERT_TRUE(r.start());
    ZMdns m;
    ASSERT_FALSE(m.init());
    ZList<ZMdnsService> found;
    found.append(ZMdnsService());
    ASSERT_FALSE(m.findServices(Service, TimeoutMs, found));
    ASSERT_EQ(found.size(), 2);
    expectUnit(found[1], Unit());
}

TEST(MdnsNetns, SendFailureIsReturned) {
    REQUIRE_NAMESPACE();
    // A search on a socket that was never set up fails at the send.
    ZMdns m;
    ZList<ZMdnsService> found;
    ZError e = m.findServices(Service, TimeoutMs, found);
    EXPECT_EQ(e.getNumber(), -EBADF) << e.getString();
    EXPECT_TRUE(found.isEmpty());
}

// ------------------------------------------------------------ avahi-daemon

namespace {

std::string findAvahi() {
    for (const char* p : {"/usr/sbin/avahi-daemon", "/usr/local/sbin/avahi-daemon",
                          "/sbin/avahi-daemon", "/usr/bin/avahi-daemon"})
        if (access(p, X_OK) == 0)
            return p;
    return "";
}

// avahi-daemon in a mount namespace of its own, with private bind mounts
// over /etc/avahi (its configuration and services) and /run (its pid file).
// It dies with this process (PR_SET_PDEATHSIG) and is killed and reaped by
// the destructor on every path out of the test.
class AvahiDaemon {
public:
    ~AvahiDaemon() { stop(); }

    ::testing::AssertionResult start(const std::string& binary, const std::string& dir) {
        etc = dir + "/etc";
        runDir = dir + "/run";
        log = dir + "/avahi.log";
        run("rm -rf '" + dir + "'");
        if (!run("mkdir -p '" + etc + "/services' '" + runDir + "/avahi-daemon'"))
            return ::testing::AssertionFailure() << "cannot create " << dir;
        bool ok = writeFile(etc + "/avahi-daemon.conf", "[server]\n"
                                                        "host-name=tavrotest\n"
                                                        "domain-name=local\n"
                                                        "use-ipv4=yes\n"
                                                        "use-ipv6=no\n"
                                                        "enable-dbus=no\n"
                                                        "allow-interfaces=lo\n"
                                                        "ratelimit-interval-usec=1000000\n"
                                                        "ratelimit-burst=1000\n"
                                                        "[wide-area]\n"
                                                        "enable-wide-area=no\n"
                                                        "[publish]\n"
                                                        "publish-aaaa-on-ipv4=no\n"
                                                        "publish-hinfo=no\n"
                                                        "publish-workstation=no\n"
                                                        "[reflector]\n"
                                                        "[rlimits]\n") &&
                  writeFile(etc + "/services/tavro.service",
                            "<?xml version=\"1.0\" standalone='no'?>\n"
                            "<!DOCTYPE service-group SYSTEM \"avahi-service.dtd\">\n"
                            "<service-group>\n"
                            "  <name>Tavro test unit</name>\n"
                            "  <service>\n"
                            "    <type>_tavro._tcp</type>\n"
                            "    <port>40358</port>\n"
                            "    <txt-record>serial=T400-0042</txt-record>\n"
                            "  </service>\n"
                            "</service-group>\n");
        if (!ok)
            return ::testing::AssertionFailure() << "cannot write the avahi configuration";

        // Everything the child needs is prepared before fork: between fork
        // and exec it makes system calls only.
        const char* argv[] = {"avahi-daemon",
                              "--no-drop-root",
                              "--no-chroot",
                              "--no-rlimits",
                              "--no-proc-title",
                              "-f",
                              "/etc/avahi/avahi-daemon.conf",
                              nullptr};
        std::string bin = binary;
        int logFd = ::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (logFd < 0)
            return ::testing::AssertionFailure() << "cannot create " << log;
        pid_t parent = getpid();
        pid = fork();
        if (pid < 0) {
            ::close(logFd);
            return ::testing::AssertionFailure() << "fork: " << strerror(errno);
        }
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() != parent)
                _exit(120);
            dup2(logFd, 1);
            dup2(logFd, 2);
            int devnull = ::open("/dev/null", O_RDONLY);
            if (devnull >= 0)
                dup2(devnull, 0);
            if (unshare(CLONE_NEWNS) != 0 ||
                mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                mount(etc.c_str(), "/etc/avahi", nullptr, MS_BIND, nullptr) != 0 ||
                mount(runDir.c_str(), "/run", nullptr, MS_BIND, nullptr) != 0) {
                static const char msg[] = "test: mount namespace setup failed\n";
                ssize_t w = write(2, msg, sizeof(msg) - 1);
                (void)w;
                _exit(121);
            }
            execv(bin.c_str(), const_cast<char* const*>(argv));
            _exit(122);
        }
        ::close(logFd);
        return ::testing::AssertionSuccess();
    }

    // Waits until the log says the service is published, the daemon ends,
    // or the time limit passes.
    ::testing::AssertionResult waitEstablished(int limitMs) {
        Clock::time_point t0 = Clock::now();
        while (msSince(t0) < limitMs) {
            if (readFile(log).find("successfully established") != std::string::npos)
                return ::testing::AssertionSuccess();
            int status = 0;
            if (pid > 0 && waitpid(pid, &status, WNOHANG) == pid) {
                pid = -1;
                return ::testing::AssertionFailure()
                       << "avahi-daemon ended early (status " << status << "):\n"
                       << readFile(log);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return ::testing::AssertionFailure()
               << "avahi-daemon did not publish the service within " << limitMs << " ms:\n"
               << readFile(log);
    }

    void stop() {
        if (pid <= 0)
            return;
        kill(pid, SIGTERM);
        for (int i = 0; i < 100; i++) { // up to 2 s for an orderly exit
            if (waitpid(pid, nullptr, WNOHANG) == pid) {
                pid = -1;
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        pid = -1;
    }

    pid_t processId() const { return pid; }
    std::string logText() const { return readFile(log); }

private:
    pid_t pid = -1;
    std::string etc, runDir, log;
};

std::string testDir(const char* name) {
    const char* base = getenv("TAVRO_TEST_TMP");
    std::string dir = base && *base ? base : "/tmp/tavro-mdns-test-" + std::to_string(getpid());
    return dir + "/" + name;
}

} // namespace

TEST(MdnsNetnsAvahi, FindsTheUnitPublishedByAvahi) {
    REQUIRE_NAMESPACE();
    std::string avahi = findAvahi();
    if (avahi.empty())
        GTEST_SKIP() << "avahi-daemon is not installed (apt-get install avahi-daemon)";
    if (g_userNamespace)
        GTEST_SKIP() << "avahi-daemon needs root: in a user namespace it cannot give its "
                        "runtime directory to the avahi user";
    Clock::time_point t0 = Clock::now();
    AvahiDaemon daemon;
    ASSERT_TRUE(daemon.start(avahi, testDir("avahi")));
    ASSERT_TRUE(daemon.waitEstablished(15000));
    long ready = msSince(t0);

    ZMdns m;
    ASSERT_FALSE(m.init());
    ZList<ZMdnsService> found;
    ZError e = m.findServices(Service, 300, found);
    ASSERT_FALSE(e) << e.getString();
    ASSERT_EQ(found.size(), 1) << daemon.logText();
    const ZMdnsService& s = found[0];
    EXPECT_EQ(s.address.address(), 0x7F000001u);
    EXPECT_EQ(s.address.port(), 40358u);
    EXPECT_STREQ(s.address.getString().retStr(), "127.0.0.1:40358");
    EXPECT_STREQ(s.name.retStr(), "tavrotest.local.");
    EXPECT_EQ(texts(s), std::vector<std::string>{"serial=T400-0042"});

    // A second search finds it again, with the next id.
    ZList<ZMdnsService> again;
    ASSERT_FALSE(m.findServices(Service, 300, again));
    ASSERT_EQ(again.size(), 1);
    EXPECT_STREQ(again[0].name.retStr(), "tavrotest.local.");

    pid_t pid = daemon.processId();
    daemon.stop();
    EXPECT_NE(kill(pid, 0), 0) << "avahi-daemon still running after stop";
    std::cout << "[ info ] avahi-daemon ready after " << ready << " ms\n";
}
