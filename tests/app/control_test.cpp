// Control against simulated units over TCP and a pseudo-terminal.
#include "app/recordfiles.h"
#include "control.h"
#include "simpty.h"
#include "simserver.h"
#include "simunit.h"

#include <QCoreApplication>
#include <QObject>

#include <gtest/gtest.h>

#include <memory>

using namespace TavroApi;
using namespace recordtest;
using simtest::measurement;

// The owner of a Control: counts its notifications and, like the views,
// empties stream 0.
class Receiver : public QObject {
    Q_OBJECT

public:
    Control* control = nullptr;
    int data = 0, proc = 0, disconnects = 0;
    QList<QPair<int, QByteArray>> messages;

public slots:
    void dataReady() {
        data++;
        while (control && control->dataRead(0))
            control->dataDone(0);
    }
    void dataProcReady() {
        proc++;
        while (control && control->dataProcRead(0))
            control->dataProcDone(0);
    }
    void unitsDisconnected() { disconnects++; }
    void sendMessageServe(int id, QByteArray text) { messages.append(qMakePair(id, text)); }
};

namespace {

// Runs the event loop until done() holds (true) or ms pass (false).
template <class F>
bool spin(F done, int ms = 5000) {
    static int argc = 1;
    static char name[] = "app_control_test", *argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    return eventually(
        [&] {
            QCoreApplication::processEvents();
            return done();
        },
        ms);
}

TavroSim::SimOptions simOptions(const char* software = "1.0.8", bool fast = true) {
    TavroSim::SimOptions o;
    o.software = software;
    o.fast = fast;
    return o;
}

FileSave fileSave(const std::string& dir, const std::string& name, const char* type) {
    FileSave s;
    s.save = true;
    s.dir = dir.c_str();
    s.name = name.c_str();
    s.type = type;
    return s;
}

template <class T>
bool sameImage(const T& a, const T& b) {
    return memcmp(&a, &b, sizeof(T)) == 0;
}

// A unit on TCP (and on a pty when asked) and a Control reporting to a Receiver.
struct Rig {
    explicit Rig(const TavroSim::SimOptions& options = simOptions())
        : unit(options), tcp(unit), pty(unit), control(&receiver) {
        spin([] { return true; }); // the application object first
        receiver.control = &control;
        EXPECT_FALSE(tcp.start("127.0.0.1", 0));
        EXPECT_FALSE(control.init());
    }
    ZError connect(bool serial = false) {
        ZString address = "zoapn://127.0.0.1:" + ZString(unsigned(tcp.port()));
        if (serial) {
            if (ZError e = pty.start())
                return e;
            address = "zoaps://" + pty.path();
        }
        ZError e = control.unitAdd("unit1", address);
        if (!e)
            e = control.unitsConnect();
        return e ? e : control.update();
    }
    void save(const std::string& dir, const std::string& raw, const char* rawType,
              const std::string& proc, const char* procType) {
        control.setFileRawSave(fileSave(dir, raw, rawType));
        control.setFileProcSave(fileSave(dir, proc, procType));
    }
    // Runs a capture that ends by itself, then stops it.
    ZError capture(const MeasurementConfig& m) {
        control.setMeasurement(m);
        if (ZError e = control.measureStart(false))
            return e;
        if (!spin([&] { return control.measureEnded(); }, 10000))
            return ZError("The capture did not end");
        return control.measureStop(1);
    }

    Receiver receiver;
    TavroSim::SimUnit unit;
    TavroSim::SimTcpServer tcp;
    TavroSim::SimPty pty;
    Control control;
};

} // namespace

TEST(ControlFile, NameTemplates) {
    const ZTime t(2024, 3, 5, 7, 8, 9);
    const char* const names[][2] = {
        {"tavro_data_%{datetime}", "tavro_data_2024-03-05_07-08-09"},
        {"%{datetime}_and_%{datetime}", "2024-03-05_07-08-09_and_%{datetime}"},
        {"%{date}%{datetime", "%{date}%{datetime"},
        {"", ""}};
    for (const auto& n : names)
        EXPECT_EQ(ControlFile::expandName(n[0], t), ZString(n[1])) << n[0];
    EXPECT_EQ(ControlFile::path(fileSave("/d", "n_%{datetime}", "csv_with_header"), t),
              ZString("/d/n_2024-03-05_07-08-09.csv"));
}

// A merged block that does not hold what its size says, or that no float
// record can carry a row of, is refused, not read past its end; the file
// takes nothing more after its first error.
TEST(ControlFile, RefusesBlocksItCannotHold) {
    const std::string dir = freshDir("controlfile");
    const struct {
        unsigned channels, samples, values;
        const char* error;
    } rows[] = {
        {16, 13, 16 * 12, "Control: a merged block holds fewer values than its size says"},
        {209, 1, 209, "Control: a block of 209 channels does not fit a data file"},
    };
    for (const auto& r : rows) {
        ControlFile file;
        ASSERT_FALSE(file.open(fileSave(dir, "x", "csv"), (dir + "/x.csv").c_str(), InfoBlock(),
                               ZArray<ChannelConfig>()));
        TavroUnitsDataBlock good(16, 13), bad(r.channels, r.samples);
        bad.data.resize(r.values);
        for (const TavroUnitsDataBlock* b : {&good, &bad, &good})
            file.write(*b);
        const ControlFileStats s = file.stats();
        EXPECT_EQ(s.blocks, 1u);
        EXPECT_EQ(s.error, ZError(12, r.error));
        EXPECT_EQ(file.finish(), s.error);
        EXPECT_EQ(readLines(dir + "/x.csv").size(), 13u);
    }
}

TEST(Control, WithoutUnitsScaleIsOneStatusTimesOutAndWifiTextsFollowTheStatus) {
    Control control;
    ASSERT_FALSE(control.init());
    EXPECT_EQ(control.scaleValue(0), 1.0);
    EXPECT_FALSE(control.update() || control.reboot());
    EXPECT_FALSE(control.measureStop(2)) << "nothing to stop, nothing to close";
    NodeStatus status;
    EXPECT_EQ(control.getStatus(status), ZError(4, "Status timeout"));
    const char* const texts[] = {"off", "disconnected", "connecting", "connected, no Internet",
                                 "connected with Internet"};
    for (uint8_t w = 0; w < 7; w++) {
        NodeStatus s;
        s.wifiStatus = w == 6 ? 255 : w;
        s.error = 100u + w;
        control.sendStatusServe(s);
        EXPECT_FALSE(control.getStatus(status));
        EXPECT_EQ(status.error, 100u + w);
        EXPECT_EQ(control.getWifiStatusString(),
                  w < 5 ? "Wifi is " + ZString(texts[w]) : ZString("Wifi state unknown"))
            << int(w);
    }
}

TEST(Control, CachesScaleAndMessagesFromAUnit) {
    Rig rig;
    ASSERT_EQ(rig.connect(), ZError());
    Control& c = rig.control;
    EXPECT_TRUE(sameImage(c.nodeInfo(), rig.unit.nodeInfo()));
    EXPECT_TRUE(sameImage(c.configuration(), rig.unit.configuration()));
    Information info = rig.unit.information();
    info.time = c.information().time; // the unit's clock moves on
    EXPECT_TRUE(sameImage(c.information(), info));
    EXPECT_TRUE(sameImage(c.measurementConfig(), rig.unit.measurementConfig()));
    EXPECT_TRUE(sameImage(c.awgConfig(), rig.unit.awgConfig()));
    ASSERT_EQ(c.channelConfigs().size(), int(rig.unit.information().numChannels));
    ASSERT_GT(c.channelConfigs().size(), 2);
    for (int ch = 0; ch < c.channelConfigs().size(); ch++)
        EXPECT_TRUE(sameImage(c.channelConfigs()[ch], rig.unit.channelConfig(ch))) << ch;
    // scale x calibScale / pgaGain, and x calibScaleAtten1 with the attenuator on.
    ChannelConfig k = c.channelConfigs()[2];
    k.attenuator = 1;
    k.scale = 2.5;
    ASSERT_FALSE(c.setChannelConfig(2, k));
    ASSERT_FALSE(c.update());
    k = c.channelConfigs()[2];
    ASSERT_EQ(k.scale, 2.5);
    ASSERT_NE(k.calibScaleAtten1, 1.0) << "the attenuator factor must tell";
    EXPECT_DOUBLE_EQ(c.scaleValue(2), 2.5 * k.calibScale / k.pgaGain * k.calibScaleAtten1);
    const ChannelConfig& k0 = c.channelConfigs()[0];
    EXPECT_DOUBLE_EQ(c.scaleValue(0), k0.scale * k0.calibScale / k0.pgaGain);
    EXPECT_EQ(c.scaleValue(unsigned(c.channelConfigs().size())), 1.0);
    // Unit messages go to the debug view, once.
    c.setDebugView(&rig.receiver);
    rig.unit.pushMessage(3, "hello");
    ASSERT_TRUE(spin([&] { return rig.receiver.messages.size() >= 1; }));
    spin([] { return false; }, 100);
    EXPECT_EQ(rig.receiver.messages, (QList<QPair<int, QByteArray>>{{3, "hello"}}));
}

TEST(Control, StatusIsPolledUpToSoftware107AndPushedAfter) {
    const std::pair<const char*, bool> rows[] = {{"1.0.7", true},  {"0.0.3", true},
                                                 {"0.0.9", false}, {"1.0.8", false},
                                                 {"1.1.0", false}, {"2.0.0", false}};
    for (const auto& r : rows) {
        SCOPED_TRACE(r.first);
        Rig rig(simOptions(r.first));
        ASSERT_EQ(rig.connect(), ZError());
        EXPECT_EQ(rig.control.statusPolling(), r.second);
        NodeStatus s; // polled or pushed, a status arrives within about a second
        if (!strcmp(r.first, "1.0.7") || !strcmp(r.first, "1.0.8")) {
            EXPECT_TRUE(eventually([&] { return !rig.control.getStatus(s); }, 3000));
        }
    }
}

TEST(Control, StatusTimesOutAfterSixSilentSecondsAndKeepsTheLastOne) {
    Rig rig(simOptions("1.0.8", false));
    ASSERT_FALSE(rig.connect());
    NodeStatus s, last;
    ASSERT_TRUE(eventually([&] { return !rig.control.getStatus(s); }, 3000));
    rig.unit.faultStopStatus(true);
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    ASSERT_FALSE(rig.control.getStatus(last)) << "still fresh";
    const auto t0 = std::chrono::steady_clock::now();
    ZError e;
    ASSERT_TRUE(eventually([&] { return (e = rig.control.getStatus(s)).number != 0; }, 8000));
    EXPECT_GT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(3))
        << "more than 5 s after the last status";
    EXPECT_EQ(e, ZError(4, "Status timeout"));
    EXPECT_TRUE(sameImage(s, last)) << "the stale status is still copied out";
}

TEST(Control, MeasureStartNamesFilesByTypeSendsTheBlockRuleAndReportsPathErrors) {
    Rig rig;
    ASSERT_FALSE(rig.connect());
    const std::string dir = freshDir("control-types");
    const struct {
        const char *type, *name, *mode, *extension;
        double rate;
        uint32_t rowsSent;
        const char* procType;
    } rows[] = {
        {"tavd", "r_%{datetime}_%{datetime}", "wb", "tavd", 9.99, 1, "tavd"},
        {"csv", "plain_raw", "w", "csv", 10.0, 0, "csv"},
        {"csv_with_header", "h_%{datetime}", "w", "csv", 1000.0, 0, "csv_with_header"},
        {"tdms", "t_%{datetime}", "wb", "tdms", 2000.0, 0, "csv"},
    };
    const uint32_t samples = 26;
    for (const auto& r : rows) {
        SCOPED_TRACE(r.type);
        rig.save(dir, r.name, r.type, std::string("p_") + r.name, r.procType);
        const ZTime t0 = ZTime::now();
        ZError e = rig.capture(measurement(MeasureMode::OneShot, r.rate, samples));
        const ZTime t1 = ZTime::now();
        ASSERT_FALSE(e) << e.string.str();
        EXPECT_EQ(rig.unit.measurementConfig().numSamplesBlock, r.rowsSent);
        EXPECT_EQ(rig.unit.measurementConfig().sampleRate, r.rate);
        EXPECT_EQ(rig.control.measurementConfig().numSamplesBlock, 0u) << "the cache is kept";
        const ControlFileStats raw = rig.control.fileStats(false);
        const ControlFileStats proc = rig.control.fileStats(true);
        const FileSave save = rig.control.fileRawSave();
        EXPECT_TRUE(raw.path == ControlFile::path(save, t0) ||
                    raw.path == ControlFile::path(save, t1))
            << raw.path;
        EXPECT_EQ(raw.mode, ZString(r.mode));
        EXPECT_EQ(raw.path.extension(), ZString(r.extension));
        EXPECT_EQ(proc.path.filename().subString(0, 2), ZString("p_"));
        EXPECT_FALSE(raw.open || raw.error || proc.error);
        EXPECT_EQ(raw.samples, samples);
        EXPECT_GE(proc.blocks, 1u);
        const uint16_t runEnd = uint16_t(Status::Run) | uint16_t(Status::End0);
        EXPECT_EQ(rig.control.dataStatus() & runEnd, runEnd);
        // The head describes the file as written: the measurement sent, floats
        // or processed values, blocks at their natural size.
        if (!strcmp(r.type, "tavd")) {
            const TavdContents t = readTavd(raw.path.str());
            EXPECT_EQ(t.end.number, 14) << t.end.string.str();
            EXPECT_EQ(t.info.fileType, TavdFileType::Stream);
            EXPECT_EQ(t.info.dataType, DataType::Float32);
            EXPECT_EQ(t.info.measureConfig.sampleRate, r.rate);
            EXPECT_EQ(t.channels.size(), 16u);
            EXPECT_EQ(t.data.size(), size_t(samples)) << "one row a block below 10 Hz";
            EXPECT_EQ(readTavd(proc.path.str()).proc.size(), size_t(proc.blocks));
        } else if (!strcmp(r.type, "csv_with_header")) {
            const std::vector<std::string> lines = readLines(raw.path.str());
            EXPECT_EQ(lines[0], "Unit serial number,T400-000001");
            EXPECT_EQ(lines[13], "SampleRate,1000.000000");
            EXPECT_EQ(lines[17], "File DataType,0");
            EXPECT_EQ(readLines(proc.path.str())[17], "File DataType,2");
            EXPECT_EQ(dataLines(raw.path.str()).size(), size_t(samples));
        }
    }
    // Path errors: the directory first, then the file.
    const std::string missing = dir + "/missing";
    rig.control.setFileRawSave(fileSave(missing, "x", "tavd"));
    EXPECT_EQ(rig.control.measureStart(false),
              ZError(5, ZString("Unable to access directory: ") + missing.c_str()));
    EXPECT_FALSE(rig.control.measureStop(2));
    rig.control.setFileRawSave(fileSave(dir, "sub/x", "csv"));
    const ZString path = ZString(dir.c_str()) + "/sub/x.csv";
    EXPECT_EQ(rig.control.measureStart(false),
              ZError(15, "Unable to create file: " + path + ", Cannot open file: " + path +
                             ": No such file or directory"));
    EXPECT_EQ(rig.control.fileError(false).number, 15);
    EXPECT_FALSE(rig.control.measureStop(2)) << "nothing was opened";
}

// Stopped, cut by the unit dropping the link (reported once), or abandoned by the object
// going: the files are complete and hold every block the unit sent, in order.
TEST(Control, CapturesEndingAnyWayLeaveCompleteFilesWithEveryBlockInOrder) {
    for (const char* how : {"tcp", "serial", "dropped", "destroyed"}) {
        SCOPED_TRACE(how);
        const bool destroy = !strcmp(how, "destroyed"), drop = !strcmp(how, "dropped");
        auto rig = std::make_unique<Rig>();
        ASSERT_FALSE(rig->connect(!strcmp(how, "serial")));
        const std::string dir = freshDir("control-stop");
        rig->save(dir, "raw", "tavd", "proc", destroy ? "tavd" : "csv");
        rig->control.setMeasurement(measurement(MeasureMode::Continuous, drop ? 500.0 : 2000.0, 0));
        if (drop)
            rig->unit.faultDropAfterBlocks(40);
        const uint64_t before = rig->unit.blocksSent();
        ASSERT_FALSE(rig->control.measureStart(false));
        if (destroy) {
            ASSERT_TRUE(spin([&] { return rig->control.fileStats(false).blocks > 20; }));
            rig.reset();
            EXPECT_GT(tavdBlocks(dir + "/raw.tavd").size(), 20u);
            EXPECT_EQ(readTavd(dir + "/proc.tavd").end.number, 14);
            continue;
        }
        if (drop) {
            ASSERT_TRUE(spin([&] { return rig->receiver.disconnects > 0; }));
            spin([] { return false; }, 300);
            EXPECT_EQ(rig->receiver.disconnects, 1);
            EXPECT_EQ(rig->control.disconnections(), 1u);
            EXPECT_FALSE(rig->control.unitsConnected());
            EXPECT_EQ(rig->unit.blocksSent() - before, 40u);
        } else {
            ASSERT_TRUE(spin([&] { return rig->control.fileStats(true).blocks >= 2; }, 10000));
        }
        ASSERT_EQ(rig->control.measureStop(drop ? 2 : 1), ZError());
        EXPECT_FALSE(rig->control.measureRunning());
        const size_t blocks = tavdBlocks(dir + "/raw.tavd").size();
        EXPECT_EQ(blocks + readLines(dir + "/proc.csv").size(), rig->unit.blocksSent() - before);
        EXPECT_EQ(rig->control.fileStats(false).blocks, blocks);
        EXPECT_TRUE(spin([&] { return rig->receiver.data > 0 && (drop || rig->receiver.proc); }))
            << "the owner heard of raw and processed data";
    }
}

TEST(Control, AFailingFileIsReportedWhileTheOtherGoesOn) {
    Rig rig;
    ASSERT_FALSE(rig.connect());
    const std::string dir = freshDir("control-full");
    ASSERT_EQ(symlink("/dev/full", (dir + "/raw.csv").c_str()), 0);
    rig.save(dir, "raw", "csv", "proc", "csv_with_header");
    EXPECT_EQ(rig.capture(measurement(MeasureMode::OneShot, 1000.0, 2000)),
              ZError(15, "No space left on device"));
    EXPECT_EQ(rig.control.fileError(false), ZError(15, "No space left on device"));
    EXPECT_FALSE(rig.control.fileError(true)) << rig.control.fileError(true).string.str();
    EXPECT_LT(rig.control.fileStats(false).samples, 2000u);
    const std::vector<std::string> lines = readLines(dir + "/proc.csv");
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0], "Unit serial number,T400-000001");
    EXPECT_EQ(rig.control.fileStats(true).blocks, 2u) << "a processed block a second";
    EXPECT_EQ(fields(lines.back()), 8 * 6 + 8);
}

#include "control_test.moc"
