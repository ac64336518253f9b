// tavroCli config against a simulated unit of this process: save, change the
// unit, restore with --yes, and the answers to a bad command line.
#include "app/recordfiles.h"
#include "simserver.h"
#include "simunit.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <sys/wait.h>

using namespace TavroApi;
using namespace recordtest;

TEST(CliConfig, SaveThenRestore) {
    TavroSim::SimOptions options;
    options.rebootMs = 50;
    TavroSim::SimUnit unit(options);
    TavroSim::SimTcpServer server(unit);
    ASSERT_FALSE(server.start("127.0.0.1", 0));
    const std::string url = "zoapn://127.0.0.1:" + std::to_string(server.port());
    const std::string file = freshDir("cliconfig") + "/unit.zconfig";
    std::string out;
    // tavroCli with input on standard input: its exit status, out holds both
    // streams. One client at a time: each run waits until the last one is gone.
    auto run = [&](const std::string& args, const char* input = "") {
        for (int i = 0; i < 300 && server.serving(); i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        FILE* p = popen(("printf '" + std::string(input) + "' | timeout 30 " + TAVRO_CLI_PROGRAM +
                         " " + args + " 2>&1")
                            .c_str(),
                        "r");
        char buffer[4096];
        out.clear();
        for (size_t n; p && (n = fread(buffer, 1, sizeof(buffer), p)) > 0;)
            out.append(buffer, n);
        const int status = p ? pclose(p) : -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };

    Configuration config = unit.configuration();
    setCharArray(config.name, "Before");
    ASSERT_FALSE(unit.setConfiguration(config));
    ASSERT_EQ(run("config save " + url + " " + file), 0) << out;
    EXPECT_EQ(out, "Configuration saved to " + file + "\n");
    EXPECT_NE(readAll(file).find("\n[configuration]\nversion: 1\nname: Before\n"),
              std::string::npos);

    setCharArray(config.name, "After");
    ASSERT_FALSE(unit.setConfiguration(config));
    EXPECT_EQ(run("config restore " + url + " " + file, "n\\n"), 1);
    EXPECT_EQ(out, "Are you sure you want to reload the configuration of the unit (Unit will "
                   "reboot after this)? [y/N] Restore cancelled\n");
    EXPECT_EQ(getCharArray(unit.configuration().name), "After");
    ASSERT_EQ(run("config restore " + url + " " + file + " --yes"), 0) << out;
    EXPECT_EQ(out, "Configuration restored, the unit is rebooting\n");
    EXPECT_EQ(getCharArray(unit.configuration().name), "Before");

    EXPECT_EQ(run("config save x y --yes"), 2);
    EXPECT_EQ(out.substr(0, out.find('\n')), "tavroCli config: --yes is for restore only");
    EXPECT_EQ(run("config restore " + url + " /nonexistent.zconfig --yes"), 1);
    EXPECT_EQ(out.substr(0, 44), "tavroCli: Cannot open file: /nonexistent.zco");
}
