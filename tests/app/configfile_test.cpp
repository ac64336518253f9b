// The ".zconfig" file: addresses, record lines, a parser that refuses or
// ignores hostile text, and a whole save/restore exchange with a simulated
// unit (the restores that stop early are tried through the page).
#include "app/recordfiles.h"
#include "configfile.h"
#include "control.h"
#include "simserver.h"
#include "simunit.h"
#include "tavro.h"
#include "zstringlist.h"

#include <gtest/gtest.h>

using namespace TavroApi;
using namespace recordtest;
using namespace std::string_literals;

namespace {

const char* const Head = "[file]\ntype: zconfig\nversion: 0\n";

} // namespace

TEST(ConfigFile, AddressesAndRecordLines) {
    uint32_t a = 7;
    for (const char* bad : {"300.1.1.1", "1.2.3", "1.2.3.4.5", "1..2.3", "1.2.3.4x", "0001.2.3.4",
                            "-1.2.3.4", "", "1 .2.3.4"})
        EXPECT_EQ(networkFromString(bad, a).str(),
                  "Invalid network address (four numbers 0-255 separated by '.'): " + ZString(bad));
    EXPECT_EQ(a, 7u);
    for (const char* good : {"192.168.1.10", "0.0.0.0", "255.255.255.255"})
        EXPECT_EQ(networkToString(networkFromString(good, a) ? 7 : a), good);
    EXPECT_FALSE(networkFromString(" 192.168.1.10\t", a));
    EXPECT_EQ(a, 0xC0A8010A);
    Configuration config;
    config.networkAddress = 0xC0A8010A;
    config.networkNameServer0 = 0xC0A8010A;
    config.alarms[3].mode = AlarmMode::Range;
    config.alarms[15].levelLow = -2.5f;
    config.wifiMode = WifiMode::Ap;
    config.digitalPins[7] = 2;
    setCharArray(config.name, "Bench 1");
    BoardConfig board;
    board.hardwareVersion.ver0 = 1;
    board.hardwareVersion.ver2 = 4;
    ZList<ZString> lines;
    ASSERT_FALSE(objToDict(&config, Configuration::getMembers(), lines));
    ASSERT_FALSE(objToDict(&board, BoardConfig::getMembers(), lines));
    for (const char* line :
         {"networkAddress: 192.168.1.10", "networkNameServer0: 3232235786", "alarm3.mode: 3",
          "alarm15.levelLow: -2.500000e+00", "wifiMode: 2", "digitalPins: [0,0,0,0,0,0,0,2]",
          "name: Bench 1", "hardwareVersion: [0,1,0,4]", "wifiAp0: "})
        EXPECT_TRUE(zstringListinList(lines, line)) << line;
    EXPECT_EQ(lines.number(), 30 + 16 * 5 + 16);
}

// Hostile text is refused with its reason or ignored, never read out of bounds.
TEST(ConfigFile, ParserRefusesOrIgnores) {
    const std::string longLine(5000, 'x');
    const struct {
        std::string text;
        const char* error; // null: parsed and applied
    } cases[] = {
        {"[file]\ntype: zconfog\n[configuration]\nname: x\n", "Not a zconfig file"},
        {"type: zconfig\n[configuration]\nname: x\n", "Not a zconfig file"},
        {"", "Not a zconfig file"},
        {Head + longLine + ":1\n", "Line 4 of the zconfig file is too long"},
        {std::string(Head) + "[configuration]\nna\0me: x\n"s,
         "Line 5 of the zconfig file holds a NUL byte"},
        {std::string(Head) + "[configuration]\ndigitalPins: [1,1,1,1,1,1,1,1,1]\n",
         "[configuration] digitalPins: Invalid array"},
        {std::string(Head) + "[channel2]\nscale: many\n", "[channel2] scale: Invalid number"},
        {std::string(Head) + "[configuration]\nnetworkMask: 300.1.1.1\n",
         "[configuration] networkMask: Invalid network address (four numbers 0-255 separated "
         "by '.'): 300.1.1.1"},
        {std::string(Head) +
             "[channel99999999999]\nscale: 1\n[channel16]\nscale: 1\n[channel-1]\n[channel]\n"
             "[configuration]\nalarm16.mode: 1\nalarm99.mode: 1\nalarm-1.mode: 1\nalarm.mode: 1\n"
             "alarm1.nothing: 1\nalarm1mode: 1\nversion: 7\nmode: 1\nfoo: 1\nno colon\n"
             "[channel0]\nnumber: 9\ntype: 3\ncalibScale: 7\n[awgConfig\nmode: 2\n[boardConfig]\n"
             "magic: 1\n",
         nullptr},
    };
    for (const auto& c : cases) {
        ConfigFile file;
        ConfigSet set, before;
        set.channels.resize(16);
        before.channels.resize(16);
        ZError err = file.parse(c.text.data(), long(c.text.size()));
        if (!err)
            err = file.apply(set);
        EXPECT_EQ(err.str(), ZString(c.error ? c.error : "")) << c.text.substr(0, 80);
        if (!c.error) { // only the unterminated "[awgConfig" section applied
            EXPECT_EQ(int(set.awgConfig.mode), 2);
            set.awgConfig.mode = before.awgConfig.mode;
            EXPECT_EQ(memcmp(&set.config, &before.config, sizeof(set.config)), 0);
            EXPECT_EQ(
                memcmp(set.channels.data(), before.channels.data(), 16 * sizeof(ChannelConfig)), 0);
        }
    }
}

// Save, change the unit, restore: every restorable member comes back, then a reboot.
TEST(ConfigFile, SaveRestoreRoundTrip) {
    TavroSim::SimOptions options;
    options.rebootMs = 50;
    TavroSim::SimUnit unit(options);
    TavroSim::SimTcpServer tcp(unit);
    Control control;
    ASSERT_FALSE(tcp.start("127.0.0.1", 0) || control.init() ||
                 control.unitAdd("u", "zoapn://127.0.0.1:" + ZString(unsigned(tcp.port()))) ||
                 control.unitsConnect());
    auto image = [&] { // every record a restore may touch
        std::string s;
        auto add = [&](const auto& r) { s.append(reinterpret_cast<const char*>(&r), sizeof(r)); };
        add(unit.configuration());
        add(unit.measurementConfig());
        add(unit.awgConfig());
        for (unsigned c = 0; c < 16; c++)
            add(unit.channelConfig(c));
        return s;
    };
    Configuration config = unit.configuration();
    setCharArray(config.wifiAp0, "ap-1");
    config.networkAddress = 0xC0A8010A;
    config.networkNameServer0 = 0x08080404;
    config.alarms[5].mode = AlarmMode::High;
    config.alarms[5].levelHigh = 1.25f;
    config.digitalPins[1] = 1;
    MeasurementConfig m = unit.measurementConfig();
    m.sampleRate = 2500;
    m.triggerLevel = -0.5f;
    setCharArray(m.description, "round trip");
    AwgConfig awg = unit.awgConfig();
    awg.mode = AwgMode::Square;
    awg.frequency = 125.5f;
    ChannelConfig ch = unit.channelConfig(3);
    setCharArray(ch.name, "Pressure");
    ch.scale = 2.5;
    setCharArray(ch.process, "Power");
    ASSERT_FALSE(control.setConfig(config) || control.setMeasurementConfig(false, m) ||
                 control.setAwgConfig(false, awg) || control.setChannelConfig(3, ch));
    const std::string saved = image();
    const std::string path = freshDir("zconfig") + "/saved.zconfig";
    ASSERT_FALSE(ConfigFile::save(control, path.c_str()));
    const std::string text = readFile(path);
    EXPECT_EQ(text.substr(0, 53), "[file]\ntype: zconfig\nversion: 0\n[boardConfig]\nmagic: ");
    for (const char* line :
         {"\nnetworkAddress: 192.168.1.10\n", "\nnetworkNameServer0: 134743044\n",
          "\n[channel3]\nnumber: 3\n", "\nname: Pressure\n", "\nalarm5.mode: 1\n"})
        EXPECT_NE(text.find(line), std::string::npos) << line;
    // Everything else back to defaults on the unit, then the file back in.
    Configuration blank; // the version is the unit's own, never restored
    blank.version = config.version;
    m.sampleRate = 1000;
    ch.scale = 1;
    ASSERT_FALSE(control.setConfig(blank) || control.setMeasurementConfig(false, m) ||
                 control.setAwgConfig(false, AwgConfig()) || control.setChannelConfig(3, ch));
    ASSERT_TRUE(image() != saved);
    bool done = false;
    ASSERT_FALSE(configRestore(
        control, path.c_str(), [] { return true; }, done));
    EXPECT_TRUE(done);
    EXPECT_TRUE(image() == saved);
    for (int i = 0; i < 500 && unit.serving(); i++) // the reboot ends the link
        delayMs(10);
    EXPECT_FALSE(unit.serving());
}
