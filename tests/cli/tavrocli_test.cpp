// tavroCli as a child process against simulated units of this process on TCP.
#include "app/recordfiles.h"
#include "simserver.h"
#include "simunit.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <iterator>
#include <sstream>

using namespace recordtest;
using Strings = std::vector<std::string>;

namespace {

struct CliRun {
    int status = -1; // the exit status; -1 when it had to be killed
    std::string out, err;
};

// Runs tavroCli in dir with input; sends SIGINT once interrupt() holds, kills it after 30 s.
CliRun runCli(const Strings& args, const std::function<bool()>& interrupt = nullptr,
              const std::string& input = "", const std::string& dir = "") {
    simtest::Program p(TAVRO_CLI_PROGRAM, args, input, dir);
    const int status = p.exitStatus(30000, interrupt);
    EXPECT_GE(status, 0) << "tavroCli did not end";
    return {status, p.output(), p.errors()};
}

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// A unit served on an ephemeral TCP port of 127.0.0.1.
struct Unit {
    explicit Unit(bool fast, const char* serial = "T400-000001") : unit(options(fast, serial)) {
        EXPECT_FALSE(server.start("127.0.0.1", 0));
        url = "zoapn://127.0.0.1:" + std::to_string(server.port());
    }
    static TavroSim::SimOptions options(bool fast, const char* serial) {
        TavroSim::SimOptions o;
        o.fast = fast;
        o.serial = serial;
        o.rebootMs = 50;
        return o;
    }
    // One client at a time: waits until the last one is gone.
    void idle() {
        eventually([&] { return !server.serving(); }, 3000);
    }
    TavroSim::SimUnit unit;
    TavroSim::SimTcpServer server{unit};
    std::string url;
};

} // namespace

TEST(TavroCli, HelpTextsExitCodesAndErrorTexts) {
    const struct {
        Strings args;
        int status;
        bool onOut; // where the text goes
        const char* text;
    } rows[] = {
        {{"--help"}, 0, true, "  convert   convert a .tavd raw data file"},
        {{}, 2, false, "Usage: tavroCli COMMAND"},
        {{"bogus"}, 2, false, "tavroCli: Unknown command: bogus"},
        {{"record", "--bogus"}, 2, false, "tavroCli record: Unknown option: --bogus"},
        {{"record"}, 2, false, "A unit URL is needed"},
        {{"record", "zoapn://x", "--format", "xls"}, 2, false, "Unknown format: xls"},
        {{"record", "zoapn://x", "--seconds=abc"}, 2, false, "Invalid value for --seconds: 'abc'"},
        {{"record", "zoapn://x", "--seconds", "1", "--blocks", "2"}, 2, false, "not both"},
        {{"record", "zoapn://x", "--processed", "--format", "tdms"}, 2, false, "processed"},
        {{"info", "--json=yes"}, 2, false, "Option --json takes no value"},
        {{"find", "--timeout"}, 2, false, "Option --timeout needs a value"},
        {{"convert", "a.tavd", "b.txt"}, 2, false, "The output must end in .csv or .tdms"},
        {{"convert", "/nonexistent/a.tavd", "/tmp/a.csv"}, 1, false, "Unable to open file: "},
        {{"record", "foo://x", "--seconds", "1"}, 1, false, "Invalid device name: foo://x"},
        {{"info", "zoapn://127.0.0.1:1"}, 1, false, "tavroCli: No connection"},
    };
    for (const auto& r : rows) {
        const CliRun run = runCli(r.args);
        SCOPED_TRACE(r.text);
        EXPECT_EQ(run.status, r.status) << run.err;
        EXPECT_TRUE(has(r.onOut ? run.out : run.err, r.text)) << run.out << run.err;
    }
}

TEST(TavroCli, InfoAsTextAndAsJson) {
    Unit u(false);
    CliRun text = runCli({"info", u.url});
    ASSERT_EQ(text.status, 0) << text.err;
    EXPECT_TRUE(has(text.out, "nodeInfo: ")) << text.out;
    EXPECT_TRUE(has(text.out, "\nchannel 15: ")) << text.out;
    EXPECT_FALSE(has(text.out, "\nchannel 16: "));
    CliRun json = runCli({"info", u.url, "--json"});
    ASSERT_EQ(json.status, 0) << json.err;
    const QJsonDocument doc = QJsonDocument::fromJson(QByteArray::fromStdString(json.out));
    ASSERT_TRUE(doc.isObject()) << json.out;
    const QJsonObject o = doc.object();
    EXPECT_EQ(o["url"].toString().toStdString(), u.url);
    EXPECT_EQ(o["nodeInfo"].toObject()["serialNumber"].toString(), QString("T400-000001"));
    EXPECT_EQ(o["channels"].toArray().size(), 16);
}

TEST(TavroCli, RecordForASecondGivesACompleteCsvWithHeader) {
    Unit u(false);
    const std::string dir = freshDir("cli-seconds");
    CliRun run = runCli({"record", u.url, "--seconds", "1", "--rate", "1000", "--format",
                         "csv_with_header", "--out", dir});
    ASSERT_EQ(run.status, 0) << run.err;
    ASSERT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 1) << run.out;
    const std::string path = run.out.substr(0, run.out.size() - 1);
    EXPECT_EQ(path.size(), dir.size() + strlen("/tavro_data_2024-01-01_00-00-00.csv")) << path;
    EXPECT_EQ(path.substr(0, dir.size() + 12), dir + "/tavro_data_");
    const std::vector<std::string> lines = readLines(path);
    ASSERT_GT(lines.size(), 18u);
    EXPECT_EQ(lines[13], "SampleRate,1000.000000");
    const Strings data = dataLines(path);
    ASSERT_FALSE(data.empty());
    for (const std::string& l : data)
        EXPECT_EQ(fields(l), 16) << l;
    EXPECT_TRUE(has(run.err, ", " + std::to_string(data.size()) + " samples\n")) << run.err;
    EXPECT_TRUE(has(run.err, " samples/s\n")) << "progress";
    EXPECT_EQ(readFile(path).back(), '\n') << "the last line is whole";
}

// The simulated unit's noise starts again with every capture, so two one-shot
// captures give the same values: converted and direct csv are byte-identical.
TEST(TavroCli, TavdConvertedToCsvEqualsTheCsvRecordedDirectly) {
    Unit u(true);
    const std::string dir = freshDir("cli-convert");
    for (const char* format : {"tavd", "csv"}) {
        CliRun run = runCli({"record", u.url, "--samples", "650", "--rate", "1000", "--format",
                             format, "--out", dir, "--name", "rec"});
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.out, dir + "/rec." + format + "\n");
    }
    CliRun plain = runCli({"convert", dir + "/rec.tavd", dir + "/conv.csv"});
    ASSERT_EQ(plain.status, 0) << plain.err;
    EXPECT_TRUE(has(plain.err, "converted " + dir + "/rec.tavd")) << plain.err;
    const std::string direct = readFile(dir + "/rec.csv");
    EXPECT_EQ(readLines(dir + "/rec.csv").size(), 650u);
    EXPECT_TRUE(readFile(dir + "/conv.csv") == direct) << "converted and direct csv differ";
    CliRun headed = runCli({"convert", dir + "/rec.tavd", dir + "/head.csv", "--header"});
    ASSERT_EQ(headed.status, 0) << headed.err;
    EXPECT_EQ(readLines(dir + "/head.csv")[0], "Unit serial number,T400-000001");
    EXPECT_EQ(dataLines(dir + "/head.csv"), readLines(dir + "/rec.csv"));
}

TEST(TavroCli, RecordEndsOnABlockCountOnSigintAndOnALostUnit) {
    {
        Unit u(true);
        const std::string dir = freshDir("cli-blocks");
        CliRun run = runCli({"record", u.url, "--blocks", "10", "--out", dir, "--name", "b"});
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(tavdBlocks(dir + "/b.tavd").size(), 10u);
    }
    {
        Unit u(false);
        const std::string dir = freshDir("cli-sigint");
        const std::string raw = dir + "/raw.csv";
        CliRun run = runCli({"record", u.url, "--rate", "1000", "--format", "csv", "--processed",
                             "--out", dir, "--name", "raw", "--proc-name", "proc"},
                            [&] { return readFile(raw).size() > 20000; });
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_TRUE(has(run.err, "Interrupt, stopping")) << run.err;
        EXPECT_EQ(run.out, raw + "\n" + dir + "/proc.csv\n");
        for (const std::string& l : readLines(raw))
            ASSERT_EQ(fields(l), 16) << l;
        EXPECT_EQ(readFile(raw).back(), '\n');
    }
    {
        Unit u(true);
        u.unit.faultDropAfterBlocks(30);
        const std::string dir = freshDir("cli-drop");
        CliRun run = runCli({"record", u.url, "--out", dir, "--name", "d"});
        EXPECT_EQ(run.status, 1);
        EXPECT_TRUE(has(run.err, "tavroCli: One or more units have disconnected")) << run.err;
        EXPECT_GT(tavdBlocks(dir + "/d.tavd").size(), 20u) << "30 blocks, some processed";
    }
}

// Two units make one group of 32 channels; a block of 32 channels and 13 rows
// does not fit one float record of a .tavd file and goes in pieces of whole rows.
TEST(TavroCli, RecordsAGroupOfUnitsInEveryFormat) {
    Unit a(true, "T400-000001"), b(true, "T400-000002");
    const std::string dir = freshDir("cli-group");
    for (const char* format : {"csv", "tavd"}) {
        CliRun run = runCli({"record", a.url, b.url, "--samples", "26", "--format", format, "--out",
                             dir, "--name", "g"});
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_TRUE(has(run.err, "recording 2 units")) << run.err;
    }
    const Strings lines = readLines(dir + "/g.csv");
    ASSERT_EQ(lines.size(), 26u);
    for (const std::string& line : lines)
        EXPECT_EQ(fields(line), 32);
    EXPECT_EQ(tavdBlocks(dir + "/g.tavd"), (std::vector<unsigned>{13, 13}));
    const TavdContents t = readTavd(dir + "/g.tavd");
    ASSERT_FALSE(t.data.empty());
    EXPECT_EQ(t.data[0].numChannels, 32);
    EXPECT_EQ(t.channels.size(), t.info.numChannels);
}

TEST(TavroCli, FilesListGetDelete) {
    const std::string dir = freshDir("cli-files");
    Unit u(false);
    std::string raw;
    while (raw.size() < 1300)
        raw += "ZU"; // the magic, then a length of 0x555A
    ASSERT_FALSE(
        u.unit.writeFile("/internal/data/rec.tavd", std::vector<uint8_t>(raw.begin(), raw.end())));
    auto files = [&](const std::string& words) { // "files", words[0], the URL, the other words
        std::istringstream in(words);
        Strings args{std::istream_iterator<std::string>(in), {}};
        args.insert(args.begin() + 1, u.url);
        args.insert(args.begin(), "files");
        u.idle();
        return runCli(args, nullptr, "", dir);
    };
    CliRun r = files("ls");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.substr(0, r.out.find('\n') + 1), "Storage size: 64 MBytes, Free: 63 MBytes\n");
    EXPECT_TRUE(has(r.out, "\nrec.tavd "));
    EXPECT_TRUE(has(r.out, " file    1300\n"));
    r = files("get rec.tavd --out copy.tavd");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(readFile(dir + "/copy.tavd"), raw);
    const struct {
        const char* args;
        int status;
        const char* err;
    } failures[] = {
        {"get rec.tavd --format tdms", 1,
         "tavroCli: Cannot convert data format: Excesive packet length\n"},
        {"get none.tavd", 1, "tavroCli: Cannot open file on Tavro: No such file or directory\n"},
        {"ls --root sdcard", 1, "tavroCli: No such device\n"},
        {"get rec.tavd --out x.txt --format csv", 2,
         "tavroCli files: The output must end in .csv: x.txt\n"},
        {"ls --root usb", 2, "tavroCli files: Unknown root: usb\n"},
    };
    for (const auto& f : failures) {
        r = files(f.args);
        EXPECT_EQ(r.status, f.status) << f.err;
        EXPECT_EQ(r.err.substr(0, r.err.find('\n') + 1), f.err);
    }
    EXPECT_FALSE(std::ifstream(dir + "/none.tavd").good());
    EXPECT_TRUE(std::ifstream(dir + "/rec.tdms").good()); // named after the unit's file
    r = files("rm rec.tavd");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(u.unit.fileNames("/internal/data").number(), 0);
}

TEST(TavroCli, ConfigSaveThenRestore) {
    Unit u(false);
    const std::string file = freshDir("cliconfig") + "/unit.zconfig";
    auto config = [&](const Strings& args, const std::string& input = "") {
        u.idle();
        return runCli(args, nullptr, input);
    };
    TavroApi::Configuration c = u.unit.configuration();
    setCharArray(c.name, "Before");
    ASSERT_FALSE(u.unit.setConfiguration(c));
    CliRun r = config({"config", "save", u.url, file});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "Configuration saved to " + file + "\n");
    EXPECT_TRUE(has(readFile(file), "\n[configuration]\nversion: 1\nname: Before\n"));
    setCharArray(c.name, "After");
    ASSERT_FALSE(u.unit.setConfiguration(c));
    r = config({"config", "restore", u.url, file}, "n\n");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out + r.err, "Are you sure you want to reload the configuration of the unit "
                             "(Unit will reboot after this)? [y/N] Restore cancelled\n");
    EXPECT_EQ(getCharArray(u.unit.configuration().name), "After");
    r = config({"config", "restore", u.url, file, "--yes"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "Configuration restored, the unit is rebooting\n");
    EXPECT_EQ(getCharArray(u.unit.configuration().name), "Before");
    r = config({"config", "restore", u.url, "/nonexistent.zconfig", "--yes"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err.substr(0, 44), "tavroCli: Cannot open file: /nonexistent.zco");
}
