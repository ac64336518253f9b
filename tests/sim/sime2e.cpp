// The tavroSim program run as a child process: its command line, a client
// over TCP through to a capture, a client on its serial line, discovery by
// mDNS and its exit on SIGTERM. In a private network namespace of this test
// (needs root) it listens on the unit's own port 40358 and answers mDNS;
// without one it takes a free port and the mDNS part is skipped.
#include "comms/mdns_builder.h"
#include "sim/simlinkclient.h"
#include "zmdns.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Strings = std::vector<std::string>;

std::string tmpPrefix() {
    const char* t = getenv("TAVRO_TEST_TMP");
    std::string dir = t && *t ? t : "/tmp";
    mkdir(dir.c_str(), 0755);
    return dir + "/sime2e-" + std::to_string(getpid());
}

std::string readFile(const std::string& path) {
    std::stringstream s;
    s << std::ifstream(path).rdbuf();
    return s.str();
}

// Polls done() until it holds (true) or 5 s pass (false).
template <class F>
bool within5s(F done) {
    for (Clock::time_point t0 = Clock::now(); !done();) {
        if (Clock::now() - t0 > std::chrono::seconds(5))
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

// One run of the program, its standard output and error going to files;
// killed and reaped on every way out.
struct Program {
    explicit Program(const Strings& args)
        : out(tmpPrefix() + "-" + std::to_string(++runs) + ".out"), err(out + ".err") {
        std::vector<char*> argv{const_cast<char*>(TAVRO_SIM_PROGRAM)};
        for (const std::string& a : args)
            argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        pid_t parent = getpid();
        if ((pid = fork()) == 0) { // system calls only until exec
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            int o = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            int e = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            if (getppid() == parent && dup2(o, 1) == 1 && dup2(e, 2) == 2)
                execv(argv[0], argv.data());
            _exit(127);
        }
    }
    ~Program() {
        if (pid > 0 && kill(pid, SIGKILL) == 0)
            waitpid(pid, nullptr, 0);
        unlink(out.c_str());
        unlink(err.c_str());
    }
    std::string output() const { return readFile(out); }
    std::string errors() const { return readFile(err); }
    // The rest of the first output line holding `what`; "" after 5 s.
    std::string after(const std::string& what) const {
        std::string line;
        within5s([&] {
            std::string o = output();
            size_t at = o.find(what), end = at == o.npos ? at : o.find('\n', at);
            if (end != o.npos)
                line = o.substr(at + what.size(), end - at - what.size());
            return end != o.npos;
        });
        return line;
    }
    // The exit status; -1 when the program is still running after 5 s.
    int exitStatus() {
        int status = 0;
        if (!within5s([&] { return waitpid(pid, &status, WNOHANG) == pid; }))
            return -1;
        pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    static inline int runs = 0;
    std::string out, err;
    pid_t pid = -1;
};

bool run(const std::string& command) {
    return system((command + " >/dev/null 2>&1").c_str()) == 0;
}

class SimProgram : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (unshare(CLONE_NEWNET) != 0)
            return; // not root: the machine's own namespace, a free port, no mDNS
        struct if_nameindex* list = if_nameindex();
        bool onlyLo =
            list && list[0].if_index && std::string(list[0].if_name) == "lo" && !list[1].if_index;
        if (list)
            if_freenameindex(list);
        if (!onlyLo)
            broken = "the new network namespace has interfaces other than lo";
        else if (!run("ip link set lo up") || !run("ip route add 224.0.0.0/4 dev lo src 127.0.0.1"))
            broken = "cannot set up lo in the namespace (is iproute2's ip installed?)";
        else
            netns = true;
    }
    void SetUp() override {
        if (!broken.empty())
            GTEST_SKIP() << "tavroSim tests skipped: " << broken;
    }
    static inline bool netns = false;
    static inline std::string broken;
};

} // namespace

TEST_F(SimProgram, HelpAndBadCommandLines) {
    Program help({"--help"});
    ASSERT_EQ(help.exitStatus(), 0);
    for (const char* option :
         {"--port N", "--bind ADDR", "--pty", "--mdns", "--serial S", "--software X.Y.Z",
          "--api MAJ.MIN", "--sdcard", "--fast", "--state FILE", "--debug", "--help", "\"admin\""})
        EXPECT_NE(help.output().find(option), std::string::npos) << option;

    const struct {
        Strings args;
        int status;
        std::string error;
    } bad[] = {
        {{"--port", "65536"}, 2, "invalid port (0 to 65535): '65536'\nTry 'tavroSim --help'"},
        {{"--port", "-1"}, 2, "invalid port"},
        {{"--port"}, 2, "requires an argument"},
        {{"--bogus"}, 2, "unrecognized option"},
        {{"extra"}, 2, "unexpected argument: 'extra'"},
        {{"--software", "one"}, 1, "tavroSim: Invalid software version"},
        {{"--serial", ""}, 1, "tavroSim: Invalid serial number"},
        {{"--bind", "no.such.host.invalid"}, 1, "tavroSim: Cannot resolve no.such.host.invalid"},
    };
    for (const auto& b : bad) {
        Program p(b.args);
        EXPECT_EQ(p.exitStatus(), b.status) << b.error;
        EXPECT_NE(p.errors().find(b.error), std::string::npos) << p.errors();
    }
}

TEST_F(SimProgram, DiscoveredServesTcpAndSerialClientsAndStopsOnSigterm) {
    const std::string state = tmpPrefix() + ".state";
    unlink(state.c_str());
    Strings args = {"--port", netns ? "40358" : "0", "--serial", "T400-000042", "--pty", "--state",
                    state};
    if (netns)
        args.push_back("--mdns");
    Program sim(args);
    const std::string listening = sim.after("listening on 127.0.0.1:");
    ASSERT_FALSE(listening.empty()) << sim.output() << sim.errors();
    const unsigned short port = (unsigned short)std::stoi(listening);
    const std::string tty = sim.after("serial line ");
    ASSERT_FALSE(tty.empty()) << sim.output();

    Program again({"--port", listening});
    EXPECT_EQ(again.exitStatus(), 1);
    EXPECT_NE(again.errors().find("tavroSim: Cannot listen on 127.0.0.1:" + listening +
                                  ": Address already in use"),
              std::string::npos)
        << again.errors();

    if (netns) {
        EXPECT_EQ(port, 40358);
        ASSERT_FALSE(sim.after("answering mDNS").empty()) << sim.output();
        ZMdns mdns;
        ZList<ZMdnsService> found;
        ASSERT_FALSE(mdns.init());
        ASSERT_FALSE(mdns.findServices("_tavro._tcp.local.", 300, found));
        ASSERT_EQ(found.size(), 1);
        EXPECT_EQ(mdnstest::describe(found.front()),
                  "127.0.0.1:40358 t400-000042.local. serial=T400-000042");
    } else {
        std::cout << "[ SKIPPED  ] mDNS discovery of the program: no network namespace (root)\n";
    }
    {
        simlinktest::Connection tcp;
        ASSERT_FALSE(tcp.openTcp(port));
        simlinktest::readAndCapture(tcp.client, "T400-000042", "1.0.8");
    }
    {
        simlinktest::Connection serial;
        ASSERT_FALSE(serial.openSerial(tty.c_str()));
        simlinktest::readAndCapture(serial.client, "T400-000042", "1.0.8", 40);
    }

    ASSERT_EQ(kill(sim.pid, SIGTERM), 0);
    EXPECT_EQ(sim.exitStatus(), 0) << sim.errors();
    EXPECT_NE(sim.output().find("Terminated, stopping"), std::string::npos) << sim.output();
    EXPECT_FALSE(readFile(state).empty()) << "state not saved";
    unlink(state.c_str());
}
