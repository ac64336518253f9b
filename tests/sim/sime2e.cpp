// The tavroSim program as a child process: its command line, captures over
// TCP and its serial line, discovery by mDNS (root only) and SIGTERM.
#include "comms/mdns_builder.h"
#include "simharness.h"
#include "zmdns.h"

#include <gtest/gtest.h>

#include <net/if.h>
#include <sched.h>

#include <cstdlib>
#include <iostream>

namespace {

using simtest::Program;
using Strings = std::vector<std::string>;

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
    Program help(TAVRO_SIM_PROGRAM, {"--help"});
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
        {{"--port"}, 2, "requires an argument"},
        {{"extra"}, 2, "unexpected argument: 'extra'"},
        {{"--software", "one"}, 1, "tavroSim: Invalid software version"},
        {{"--bind", "no.such.host.invalid"}, 1, "tavroSim: Cannot resolve no.such.host.invalid"},
    };
    for (const auto& b : bad) {
        Program p(TAVRO_SIM_PROGRAM, b.args);
        EXPECT_EQ(p.exitStatus(), b.status) << b.error;
        EXPECT_NE(p.errors().find(b.error), std::string::npos) << p.errors();
    }
}

TEST_F(SimProgram, DiscoveredServesTcpAndSerialClientsAndStopsOnSigterm) {
    const std::string state = testing::TempDir() + "sime2e-" + std::to_string(getpid()) + ".state";
    unlink(state.c_str());
    Strings args = {"--port", netns ? "40358" : "0", "--serial", "T400-000042", "--pty", "--state",
                    state};
    if (netns)
        args.push_back("--mdns");
    Program sim(TAVRO_SIM_PROGRAM, args);
    const std::string listening = sim.after("listening on 127.0.0.1:");
    ASSERT_FALSE(listening.empty()) << sim.output() << sim.errors();
    const unsigned short port = (unsigned short)std::stoi(listening);
    const std::string tty = sim.after("serial line ");
    ASSERT_FALSE(tty.empty()) << sim.output();
    Program again(TAVRO_SIM_PROGRAM, {"--port", listening});
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
    for (bool serial : {false, true}) {
        simtest::Connection c;
        ASSERT_FALSE(serial ? c.openSerial(tty.c_str()) : c.openTcp(port));
        simtest::readAndCapture(c.client, "T400-000042", serial ? 40 : 1000);
    }
    ASSERT_EQ(kill(sim.pid, SIGTERM), 0);
    EXPECT_EQ(sim.exitStatus(), 0) << sim.errors();
    EXPECT_NE(sim.output().find("Terminated, stopping"), std::string::npos) << sim.output();
    EXPECT_FALSE(simtest::readFile(state).empty()) << "state not saved";
    unlink(state.c_str());
}
