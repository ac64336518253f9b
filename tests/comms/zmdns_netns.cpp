// mDNS discovery over real sockets in a private network namespace (needs root),
// against a scripted responder and a real avahi-daemon. Unless only lo is seen,
// every test is skipped: a query must never leave through a real network card.
#include "comms/mdns_builder.h"
#include "zmdns.h"

#include <gtest/gtest.h>

#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using mdnstest::Unit;
using Bytes = std::vector<uint8_t>;
using Strings = std::vector<std::string>;

namespace {

const char* const Service = "_tavro._tcp.local.";
const unsigned TimeoutMs = 150;
const char* const UnitA = "192.168.1.42:40358 tavro-0042.local. serial=0042";
const char* const UnitB = "192.168.1.119:40359 tavro-0077.local. serial=0077";

bool run(const std::string& command) {
    return system((command + " >/dev/null 2>&1").c_str()) == 0;
}

bool writeFile(const std::string& path, const std::string& text) {
    return bool(std::ofstream(path) << text);
}

std::string readFile(const std::string& path) {
    std::stringstream s;
    s << std::ifstream(path).rdbuf();
    return s.str();
}

// True when lo is the only interface this process sees.
bool onlyLo() {
    struct if_nameindex* list = if_nameindex();
    bool only = list && list[0].if_index && strcmp(list[0].if_name, "lo") == 0 && !list[1].if_index;
    if (list)
        if_freenameindex(list);
    return only;
}

Strings describeAll(const ZList<ZMdnsService>& found) {
    Strings r;
    for (const ZMdnsService& s : found)
        r.push_back(mdnstest::describe(s));
    return r;
}

using Reply = std::pair<int, std::function<Bytes(uint16_t id)>>; // delay in ms, datagram

Reply unit(int delayMs, const Unit& u = Unit()) {
    return {delayMs, [u](uint16_t id) { return mdnstest::unitReply(id, u); }};
}

struct Exchange {
    Bytes query;       // as it reached 224.0.0.251:5353
    unsigned port = 0; // its source port
    ZError error;
};

// One search of TimeoutMs by `m`, its query answered by `script` as a unit
// answers: unicast to the query's source. The responder's socket is bound to
// the group address itself, so that only datagrams sent to it arrive.
Exchange exchange(ZMdns& m, ZList<ZMdnsService>& found, const std::vector<Reply>& script) {
    Exchange x;
    ZSocket responder(ZSocket::Datagram);
    ZSocketAddressINET group(0xE00000FB, 5353), from;
    ip_mreq join = {};
    join.imr_multiaddr.s_addr = htonl(group.address());
    EXPECT_FALSE(responder.setReuseAddress(true) || responder.bind(group) ||
                 responder.setSockOpt(IPPROTO_IP, IP_ADD_MEMBERSHIP, &join, sizeof(join)));
    std::thread search([&] { x.error = m.findServices(Service, TimeoutMs, found); });
    uint8_t buf[2048];
    unsigned int n = 0, sent = 0;
    if (!responder.recvFromWithTimeout(from, buf, sizeof(buf), n, 2000000) && n >= 2) {
        x.query.assign(buf, buf + n);
        x.port = from.port();
        for (const Reply& r : script) {
            std::this_thread::sleep_for(std::chrono::milliseconds(r.first));
            Bytes d = r.second(uint16_t((buf[0] << 8) | buf[1]));
            responder.sendTo(from, d.data(), unsigned(d.size()), sent);
        }
    }
    search.join();
    return x;
}

// One search by a fresh ZMdns: the services found, as text.
Strings search(const std::vector<Reply>& script) {
    ZMdns m;
    EXPECT_FALSE(m.init());
    ZList<ZMdnsService> found;
    Exchange x = exchange(m, found, script);
    EXPECT_EQ(x.error.getNumber(), 0) << x.error.getString(); // the final time-out is success
    EXPECT_TRUE(x.error.getString().isEmpty());
    return describeAll(found);
}

// The tests share one fresh network namespace of this process, made once,
// with lo up and a route for multicast.
class MdnsNetns : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (unshare(CLONE_NEWNET) != 0)
            notReady =
                std::string("cannot create a network namespace (needs root): ") + strerror(errno);
        else if (!onlyLo())
            notReady = "the new network namespace has interfaces other than lo";
        else if (!run("ip link set lo up") || !run("ip route add 224.0.0.0/4 dev lo src 127.0.0.1"))
            notReady = "cannot set up lo in the namespace (is iproute2's ip installed?)";
        else
            notReady.clear();
    }
    void SetUp() override {
        if (!notReady.empty())
            GTEST_SKIP() << "mDNS namespace tests skipped: " << notReady;
    }
    static inline std::string notReady = "namespace not set up";
};

} // namespace

TEST_F(MdnsNetns, InitThenOneUnitSearchBySearch) {
    ZMdns m, n;
    ZList<ZMdnsService> found;
    ZError e = n.findServices(Service, TimeoutMs, found); // no socket yet: the send fails
    EXPECT_EQ(e.getNumber(), -EBADF) << e.getString();
    ASSERT_FALSE(m.init());
    ZSocketAddressINET own;
    ASSERT_FALSE(m.socket().getAddress(own));
    EXPECT_EQ(own.address(), 0u);
    EXPECT_NE(own.port(), 0u);
    EXPECT_NE(own.port(), 5353u);
    auto option = [&m](int level, int name) {
        int v = -1;
        socklen_t len = sizeof(v);
        return getsockopt(m.socket().getFd(), level, name, &v, &len) == 0 ? v : -1;
    };
    EXPECT_EQ(option(IPPROTO_IP, IP_MULTICAST_TTL), 1);
    EXPECT_EQ(option(IPPROTO_IP, IP_MULTICAST_LOOP), 1);
    for (unsigned id = 1; id <= 3; id++) { // each search appends, with the next id
        Exchange x = exchange(m, found, {unit(0)});
        ASSERT_FALSE(x.error) << x.error.getString();
        EXPECT_EQ(describeAll(found), Strings(id, UnitA));
        EXPECT_EQ(m.counter(), id);
        uint8_t q[MdnsQuerySize];
        mdnsBuildQuery(uint16_t(id), q);
        EXPECT_EQ(x.query, Bytes(q, q + MdnsQuerySize));
        EXPECT_EQ(x.port, own.port());
    }
}

TEST_F(MdnsNetns, RepliesInArrivalOrderEachListedOthersIgnored) {
    const Unit b = {"Tavro-0077", "tavro-0077", 0xC0A80177, 40359, {"serial=0077"}};
    using mdnstest::unitReply;
    std::vector<Reply> script = {unit(0, b)};
    for (Bytes (*ignored)(uint16_t) : {
             +[](uint16_t id) { return unitReply(id + 1u); },
             +[](uint16_t id) { return unitReply(id, {}, 0x8000); },
             +[](uint16_t id) {
                 return unitReply(id, {}, 0x8400, {"_x", "_tcp", "local"});
             },
             +[](uint16_t id) {
                 Bytes v = unitReply(id);
                 v.resize(v.size() - 3); // truncated
                 return v;
             },
             +[](uint16_t) { return Bytes(); },
             +[](uint16_t) { return Bytes{0}; },
         })
        script.push_back({0, ignored});
    script.insert(script.end(), {unit(10), unit(10)});
    EXPECT_EQ(search(script), (Strings{UnitB, UnitA, UnitA}));
    EXPECT_EQ(search({}), Strings{}); // no unit: success and an empty list
    // 100 ms apart the replies outlast one time-out, yet each comes within
    // one time-out of the one before; the last comes too late.
    EXPECT_EQ(search({unit(0), unit(100), unit(100), unit(int(TimeoutMs) + 250)}).size(), 3u);
}

// avahi-daemon in a mount namespace of its own, with private bind mounts over
// /etc/avahi (configuration and service) and /run (pid file). It dies with
// this process (PR_SET_PDEATHSIG) and is killed and reaped by the destructor
// on every path out of the test.
struct AvahiDaemon {
    pid_t pid = -1;
    std::string dir, log;
    ::testing::AssertionResult start(const std::string& binary, const std::string& folder) {
        dir = folder;
        log = dir + "/avahi.log";
        run("rm -rf '" + dir + "'");
        if (!run("mkdir -p '" + dir + "/etc/services' '" + dir + "/run/avahi-daemon'") ||
            !writeFile(dir + "/etc/avahi-daemon.conf",
                       "[server]\nhost-name=tavrotest\ndomain-name=local\nuse-ipv4=yes\n"
                       "use-ipv6=no\nenable-dbus=no\nallow-interfaces=lo\n"
                       "ratelimit-interval-usec=1000000\nratelimit-burst=1000\n"
                       "[wide-area]\nenable-wide-area=no\n[publish]\npublish-aaaa-on-ipv4=no\n"
                       "publish-hinfo=no\npublish-workstation=no\n[reflector]\n[rlimits]\n") ||
            !writeFile(dir + "/etc/services/tavro.service",
                       "<?xml version=\"1.0\" standalone='no'?>\n"
                       "<!DOCTYPE service-group SYSTEM \"avahi-service.dtd\">\n"
                       "<service-group><name>Tavro test unit</name><service>"
                       "<type>_tavro._tcp</type><port>40358</port>"
                       "<txt-record>serial=T400-0042</txt-record></service></service-group>\n"))
            return ::testing::AssertionFailure() << "cannot prepare " << dir;
        // The shell replaces itself by the daemon, which keeps this pid.
        std::string script = "exec >'" + log + "' 2>&1; mount --make-rprivate / && mount --bind '" +
                             dir + "/etc' /etc/avahi && mount --bind '" + dir +
                             "/run' /run && exec '" + binary +
                             "' --no-drop-root --no-chroot --no-rlimits --no-proc-title "
                             "-f /etc/avahi/avahi-daemon.conf";
        pid_t parent = getpid();
        if ((pid = fork()) < 0)
            return ::testing::AssertionFailure() << "fork: " << strerror(errno);
        if (pid == 0) { // system calls only until exec
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() == parent && unshare(CLONE_NEWNS) == 0)
                execl("/bin/sh", "sh", "-c", script.c_str(), nullptr);
            _exit(121);
        }
        // Until the log says the service is published, the daemon ends, or 15 s pass.
        for (int i = 0; i < 300; i++) {
            if (readFile(log).find("successfully established") != std::string::npos)
                return ::testing::AssertionSuccess();
            if (waitpid(pid, nullptr, WNOHANG) == pid) {
                pid = -1;
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return ::testing::AssertionFailure() << "avahi-daemon did not publish the service:\n"
                                             << readFile(log);
    }
    ~AvahiDaemon() {
        if (pid > 0 && kill(pid, SIGKILL) == 0)
            waitpid(pid, nullptr, 0);
        run("rm -rf '" + dir + "'");
    }
};

TEST_F(MdnsNetns, FindsTheUnitPublishedByAvahi) {
    std::string avahi = "/usr/sbin/avahi-daemon";
    if (access(avahi.c_str(), X_OK) != 0 && access((avahi = "/sbin/avahi-daemon").c_str(), X_OK))
        GTEST_SKIP() << "avahi-daemon is not installed (apt-get install avahi-daemon)";
    const char* base = getenv("TAVRO_TEST_TMP");
    std::string dir = std::string(base && *base ? base : "/tmp") + "/tavro-mdns-avahi-" +
                      std::to_string(getpid());
    pid_t pid = -1;
    {
        AvahiDaemon daemon;
        ASSERT_TRUE(daemon.start(avahi, dir));
        pid = daemon.pid;
        ZMdns m;
        ASSERT_FALSE(m.init());
        for (int search = 0; search < 2; search++) { // found again by the next id
            ZList<ZMdnsService> found;
            ZError e = m.findServices(Service, 300, found);
            ASSERT_FALSE(e) << e.getString();
            EXPECT_EQ(describeAll(found),
                      Strings{"127.0.0.1:40358 tavrotest.local. serial=T400-0042"})
                << readFile(daemon.log);
        }
    }
    EXPECT_NE(kill(pid, 0), 0) << "avahi-daemon still running after the test";
}
