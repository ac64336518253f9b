// tavroCli files against a simulated unit of this process: ls, get (raw and
// through the converter) and rm, with their failure texts and exit codes.
#include "app/recordfiles.h"
#include "simserver.h"
#include "simunit.h"

#include <sys/wait.h>

#include <fstream>

using namespace recordtest;

namespace {

struct CliRun {
    int status;
    std::string out, err;
};

// tavroCli files with args, run in dir.
CliRun cli(const std::string& dir, const std::string& args) {
    const std::string out = dir + "/out", err = dir + "/err";
    const std::string command = "cd " + dir + " && timeout 30 " TAVRO_CLI_PROGRAM " files " + args +
                                " >" + out + " 2>" + err;
    const int status = system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readAll(out), readAll(err)};
}

} // namespace

TEST(CliFiles, ListGetDelete) {
    const std::string dir = freshDir("cli-files");
    TavroSim::SimUnit unit{TavroSim::SimOptions()};
    TavroSim::SimTcpServer server{unit};
    ASSERT_FALSE(server.start("127.0.0.1", 0));
    const std::string url = "zoapn://127.0.0.1:" + std::to_string(server.port()) + " ";
    std::string raw;
    while (raw.size() < 1300)
        raw += "ZU"; // the magic, then a length of 0x555A
    ASSERT_FALSE(
        unit.writeFile("/internal/data/rec.tavd", std::vector<uint8_t>(raw.begin(), raw.end())));

    CliRun r = cli(dir, "ls " + url);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.substr(0, r.out.find('\n') + 1), "Storage size: 64 MBytes, Free: 63 MBytes\n");
    EXPECT_NE(r.out.find("\nrec.tavd "), std::string::npos);
    EXPECT_NE(r.out.find(" file    1300\n"), std::string::npos);
    r = cli(dir, "get " + url + "rec.tavd --out copy.tavd");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(readAll(dir + "/copy.tavd"), raw);

    const struct {
        std::string args;
        int status;
        const char* err;
    } failures[] = {
        {"get " + url + "rec.tavd --format tdms", 1,
         "tavroCli: Cannot convert data format: Excesive packet length\n"},
        {"get " + url + "none.tavd", 1,
         "tavroCli: Cannot open file on Tavro: No such file or directory\n"},
        {"ls " + url + "--root sdcard", 1, "tavroCli: No such device\n"},
        {"get " + url + "rec.tavd --out x.txt --format csv", 2,
         "tavroCli files: The output must end in .csv: x.txt\n"},
        {"ls " + url + "--root usb", 2, "tavroCli files: Unknown root: usb\n"},
    };
    for (const auto& f : failures) {
        r = cli(dir, f.args);
        EXPECT_EQ(r.status, f.status) << f.args;
        EXPECT_EQ(r.err.substr(0, r.err.find('\n') + 1), f.err) << f.args;
    }
    EXPECT_FALSE(std::ifstream(dir + "/none.tavd").good());
    EXPECT_TRUE(std::ifstream(dir + "/rec.tdms").good()); // named after the unit's file

    r = cli(dir, "rm " + url + "rec.tavd");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(unit.fileNames("/internal/data").number(), 0);
    server.stop();
}
