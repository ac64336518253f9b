// Control against simulated units in this process, over TCP on 127.0.0.1
// and over a pseudo-terminal: the caches, status polling and its time-out,
// the scale factor, queued notifications, and captures written to every file
// type, with the capture ending by itself, being stopped, the unit dropping
// the link, a file failing half-way and the object going during a capture.
#include "app/recordfiles.h"
#include "control.h"
#include "simpty.h"
#include "simserver.h"
#include "simunit.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QList>
#include <QObject>
#include <QPair>

#include <gtest/gtest.h>

#include <memory>

using namespace TavroApi;
using namespace recordtest;
using TavroSim::SimOptions;
using TavroSim::SimPty;
using TavroSim::SimTcpServer;
using TavroSim::SimUnit;

namespace {

QCoreApplication& qtApp() {
    static int argc = 1;
    static char name[] = "app_control_test";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    return app;
}

// Runs the event loop until done() holds (true) or ms pass (false).
template <class F>
bool spin(F done, int ms = 5000) {
    qtApp();
    for (auto t0 = std::chrono::steady_clock::now();;) {
        QCoreApplication::processEvents();
        if (done())
            return true;
        if (std::chrono::steady_clock::now() - t0 > std::chrono::milliseconds(ms))
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

SimOptions simOptions(const char* software = "1.0.8", bool fast = true,
                      const char* serial = "T400-000001") {
    SimOptions o;
    o.software = software;
    o.fast = fast;
    o.serial = serial;
    o.rebootMs = 100;
    return o;
}

MeasurementConfig measurement(MeasureMode mode, double rate, uint32_t samples) {
    MeasurementConfig m;
    m.measureMode = mode;
    m.sampleRate = rate;
    m.numSamples0 = samples;
    return m;
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

} // namespace

// The owner of a Control: counts its notifications and, like the views,
// empties stream 0.
class Receiver : public QObject {
    Q_OBJECT

public:
    Control* control = nullptr;
    int data = 0;
    int proc = 0;
    int disconnects = 0;
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

// A unit on TCP (and on a pty when asked) and a Control reporting to a Receiver.
struct Rig {
    explicit Rig(const SimOptions& options = simOptions())
        : unit(options), tcp(unit), pty(unit), control(&receiver) {
        qtApp();
        receiver.control = &control;
        EXPECT_FALSE(tcp.start("127.0.0.1", 0));
        EXPECT_FALSE(control.init());
    }
    ZString url() const { return "zoapn://127.0.0.1:" + ZString(unsigned(tcp.port())); }
    ZError connect(bool serial = false) {
        ZString address = url();
        if (serial) {
            if (ZError e = pty.start())
                return e;
            address = "zoaps://" + pty.path();
        }
        ZError e = control.unitAdd("unit1", address);
        if (!e)
            e = control.unitsConnect();
        if (!e)
            e = control.update();
        return e;
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
    SimUnit unit;
    SimTcpServer tcp;
    SimPty pty;
    Control control;
};

} // namespace

TEST(ControlFile, NamesExtensionsAndOpenModes) {
    const ZTime t(2024, 3, 5, 7, 8, 9);
    const struct {
        const char* name;
        const char* expanded;
    } names[] = {
        {"tavro_data_%{datetime}", "tavro_data_2024-03-05_07-08-09"},
        {"%{datetime}_and_%{datetime}", "2024-03-05_07-08-09_and_%{datetime}"},
        {"plain", "plain"},
        {"%{date}%{datetime", "%{date}%{datetime"},
        {"", ""},
    };
    for (const auto& n : names)
        EXPECT_EQ(ControlFile::expandName(n.name, t), ZString(n.expanded)) << n.name;

    const struct {
        const char* type;
        const char* extension;
        const char* mode;
    } types[] = {{"tavd", "tavd", "wb"},
                 {"csv", "csv", "w"},
                 {"csv_with_header", "csv", "w"},
                 {"tdms", "tdms", "wb"}};
    for (const auto& y : types) {
        EXPECT_EQ(ControlFile::extension(y.type), ZString(y.extension)) << y.type;
        EXPECT_EQ(ControlFile::openMode(y.type), ZString(y.mode)) << y.type;
    }
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
        file.write(good);
        file.write(bad);
        file.write(good);
        const ControlFileStats s = file.stats();
        EXPECT_EQ(s.blocks, 1u);
        EXPECT_EQ(s.error.number, 12);
        EXPECT_EQ(s.error.string, ZString(r.error));
        EXPECT_EQ(file.finish(), s.error);
        EXPECT_EQ(readLines(dir + "/x.csv").size(), 13u);
    }
}

TEST(Control, WithoutUnitsScaleIsOneStatusTimesOutAndWifiTextsFollowTheStatus) {
    Control control;
    ASSERT_FALSE(control.init("/dev/ttyUSB7"));
    EXPECT_EQ(control.ttyDevice(), ZString("/dev/ttyUSB7"));
    EXPECT_EQ(control.measurementConfig().measureMode, MeasureMode::OneShot);
    EXPECT_EQ(control.measurementConfig().sampleRate, 4000.0);
    EXPECT_EQ(control.measurementConfig().numSamples0, 1000u);
    EXPECT_EQ(control.scaleValue(0), 1.0);
    EXPECT_FALSE(control.update());
    EXPECT_FALSE(control.statusPolling());
    EXPECT_FALSE(control.reboot());

    NodeStatus status;
    ZError e = control.getStatus(status);
    EXPECT_EQ(e.number, 4);
    EXPECT_EQ(e.string, ZString("Status timeout"));
    const char* const texts[] = {"Wifi is off",
                                 "Wifi is disconnected",
                                 "Wifi is connecting",
                                 "Wifi is connected, no Internet",
                                 "Wifi is connected with Internet",
                                 "Wifi state unknown",
                                 "Wifi state unknown"};
    for (uint8_t w = 0; w < 7; w++) {
        NodeStatus s;
        s.wifiStatus = w == 6 ? 255 : w;
        s.error = 100u + w;
        control.sendStatusServe(s);
        EXPECT_FALSE(control.getStatus(status));
        EXPECT_EQ(status.error, 100u + w);
        EXPECT_EQ(control.getWifiStatusString(), ZString(texts[w])) << int(w);
    }
    EXPECT_FALSE(control.measureStop(2)) << "nothing to stop, nothing to close";
}

TEST(Control, CachesScaleAndMessagesFromAUnitOverTcpAndSerial) {
    for (bool serial : {false, true}) {
        SCOPED_TRACE(serial ? "serial" : "tcp");
        Rig rig;
        ZError e = rig.connect(serial);
        ASSERT_FALSE(e) << e.string.str();
        Control& c = rig.control;
        EXPECT_TRUE(sameImage(c.nodeInfo(), rig.unit.nodeInfo()));
        EXPECT_EQ(getCharArray(c.nodeInfo().serialNumber), ZString("T400-000001"));
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
        EXPECT_EQ(c.scaleValue(100000), 1.0);

        // Unit messages go to the debug view.
        c.setDebugView(&rig.receiver);
        rig.unit.pushMessage(3, "hello");
        ASSERT_TRUE(spin([&] { return rig.receiver.messages.size() >= 1; }));
        spin([] { return false; }, 100);
        ASSERT_EQ(rig.receiver.messages.size(), 1);
        EXPECT_EQ(rig.receiver.messages[0].first, 3);
        EXPECT_EQ(rig.receiver.messages[0].second, QByteArray("hello"));
    }
}

TEST(Control, StatusIsPolledUpToSoftware107AndPushedAfter) {
    const struct {
        const char* software;
        bool polled;
    } rows[] = {{"1.0.7", true},  {"0.0.3", true},  {"0.0.9", false},
                {"1.0.8", false}, {"1.1.0", false}, {"2.0.0", false}};
    for (const auto& r : rows) {
        SCOPED_TRACE(r.software);
        Rig rig(simOptions(r.software));
        ZError e = rig.connect();
        ASSERT_FALSE(e) << e.string.str();
        EXPECT_EQ(rig.control.statusPolling(), r.polled);
        if (!strcmp(r.software, "1.0.7") || !strcmp(r.software, "1.0.8")) {
            // Polled or pushed, a status arrives within about a second.
            NodeStatus s;
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
    const double waited =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    EXPECT_EQ(e.number, 4);
    EXPECT_EQ(e.string, ZString("Status timeout"));
    EXPECT_GT(waited, 3.0) << "more than 5 s after the last status";
    EXPECT_TRUE(sameImage(s, last)) << "the stale status is still copied out";
}

TEST(Control, MeasureStartNamesFilesByTypeSendsTheBlockRuleAndReportsPathErrors) {
    Rig rig;
    ASSERT_FALSE(rig.connect());
    const std::string dir = freshDir("control-types");
    const struct {
        const char* type;
        const char* name;
        const char* mode;
        double rate;
        uint32_t rowsSent;
        const char* procType;
    } rows[] = {
        {"tavd", "r_%{datetime}_%{datetime}", "wb", 9.99, 1, "tavd"},
        {"csv", "plain_raw", "w", 10.0, 0, "csv"},
        {"csv_with_header", "h_%{datetime}", "w", 1000.0, 0, "csv_with_header"},
        {"tdms", "t_%{datetime}", "wb", 2000.0, 0, "csv"},
    };
    const uint32_t samples = 26;
    for (const auto& r : rows) {
        SCOPED_TRACE(r.type);
        rig.control.setFileRawSave(fileSave(dir, r.name, r.type));
        rig.control.setFileProcSave(fileSave(dir, std::string("p_") + r.name, r.procType));
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
        const ZString p0 = ControlFile::path(save, t0), p1 = ControlFile::path(save, t1);
        EXPECT_TRUE(raw.path == p0 || raw.path == p1) << raw.path;
        EXPECT_EQ(raw.path.extension(), ControlFile::extension(r.type));
        EXPECT_EQ(raw.mode, ZString(r.mode));
        EXPECT_EQ(proc.path.filename().subString(0, 2), ZString("p_"));
        EXPECT_FALSE(raw.open);
        EXPECT_FALSE(raw.error) << raw.error.string.str();
        EXPECT_FALSE(proc.error) << proc.error.string.str();
        EXPECT_EQ(raw.samples, samples);
        EXPECT_GE(proc.blocks, 1u);
        EXPECT_EQ(rig.control.dataStatus() & (uint16_t(Status::Run) | uint16_t(Status::End0)),
                  uint16_t(Status::Run) | uint16_t(Status::End0));

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
            const std::vector<std::string> plines = readLines(proc.path.str());
            EXPECT_EQ(lines[0], "Unit serial number,T400-000001");
            EXPECT_EQ(lines[13], "SampleRate,1000.000000");
            EXPECT_EQ(lines[17], "File DataType,0");
            EXPECT_EQ(plines[17], "File DataType,2");
            EXPECT_EQ(dataLines(raw.path.str()).size(), size_t(samples));
        }
    }

    // Path errors: the directory first, then the file.
    const std::string missing = dir + "/missing";
    rig.control.setFileRawSave(fileSave(missing, "x", "tavd"));
    ZError e = rig.control.measureStart(false);
    EXPECT_EQ(e.number, 5);
    EXPECT_EQ(e.string, ZString("Unable to access directory: ") + missing.c_str());
    EXPECT_FALSE(rig.control.measureStop(2));
    rig.control.setFileRawSave(fileSave(dir, "sub/x", "csv"));
    e = rig.control.measureStart(false);
    const ZString path = ZString(dir.c_str()) + "/sub/x.csv";
    EXPECT_EQ(e.number, 15);
    EXPECT_EQ(e.string, "Unable to create file: " + path + ", Cannot open file: " + path +
                            ": No such file or directory");
    EXPECT_EQ(rig.control.fileError(false).number, 15);
    EXPECT_FALSE(rig.control.measureStop(2)) << "nothing was opened";
}

TEST(Control, StopWritesEveryBlockTheUnitSentInOrder) {
    for (bool serial : {false, true}) {
        SCOPED_TRACE(serial ? "serial" : "tcp");
        Rig rig;
        ASSERT_FALSE(rig.connect(serial));
        const std::string dir = freshDir("control-stop");
        rig.control.setFileRawSave(fileSave(dir, "raw", "tavd"));
        rig.control.setFileProcSave(fileSave(dir, "proc", "csv"));
        rig.control.setMeasurement(measurement(MeasureMode::Continuous, 2000.0, 0));
        const uint64_t before = rig.unit.blocksSent();
        ASSERT_FALSE(rig.control.measureStart(false));
        ASSERT_TRUE(spin([&] { return rig.control.fileStats(true).blocks >= 2; }, 10000));
        ZError e = rig.control.measureStop(1);
        ASSERT_FALSE(e) << e.string.str();
        EXPECT_FALSE(rig.control.measureRunning());
        const uint64_t sent = rig.unit.blocksSent() - before;

        const TavdContents t = readTavd(dir + "/raw.tavd");
        EXPECT_EQ(t.end.number, 14) << t.end.string.str();
        bool contiguous = false;
        const std::vector<unsigned> blocks = samplesPerSequence(t, contiguous);
        EXPECT_TRUE(contiguous) << "sequence numbers from 0 without a gap";
        const size_t procLines = readLines(dir + "/proc.csv").size();
        EXPECT_EQ(blocks.size() + procLines, sent) << "every block the unit sent is on file";
        EXPECT_EQ(rig.control.fileStats(false).blocks, blocks.size());
        EXPECT_TRUE(spin([&] { return rig.receiver.data > 0 && rig.receiver.proc > 0; }))
            << "the owner heard of raw and processed data";
    }
}

TEST(Control, UnitDroppingTheLinkIsReportedOnceAndStopKeepsEveryBlockThatCame) {
    Rig rig;
    ASSERT_FALSE(rig.connect());
    const std::string dir = freshDir("control-drop");
    rig.control.setFileRawSave(fileSave(dir, "raw", "tavd"));
    rig.control.setFileProcSave(fileSave(dir, "proc", "csv_with_header"));
    rig.control.setMeasurement(measurement(MeasureMode::Continuous, 500.0, 0));
    rig.unit.faultDropAfterBlocks(40);
    ASSERT_FALSE(rig.control.measureStart(false));
    ASSERT_TRUE(spin([&] { return rig.receiver.disconnects > 0; }));
    spin([] { return false; }, 300);
    EXPECT_EQ(rig.receiver.disconnects, 1);
    EXPECT_EQ(rig.control.disconnections(), 1u);
    EXPECT_FALSE(rig.control.unitsConnected());

    ZError e = rig.control.measureStop(2);
    ASSERT_FALSE(e) << e.string.str();
    const TavdContents t = readTavd(dir + "/raw.tavd");
    EXPECT_EQ(t.end.number, 14) << t.end.string.str();
    bool contiguous = false;
    const std::vector<unsigned> blocks = samplesPerSequence(t, contiguous);
    EXPECT_TRUE(contiguous);
    EXPECT_EQ(rig.control.fileStats(false).blocks + rig.control.fileStats(true).blocks,
              rig.unit.blocksSent());
    EXPECT_EQ(rig.unit.blocksSent(), 40u);
    EXPECT_EQ(blocks.size(), rig.control.fileStats(false).blocks);
}

TEST(Control, AFailingFileIsReportedWhileTheOtherGoesOn) {
    Rig rig;
    ASSERT_FALSE(rig.connect());
    const std::string dir = freshDir("control-full");
    ASSERT_EQ(symlink("/dev/full", (dir + "/raw.csv").c_str()), 0);
    rig.control.setFileRawSave(fileSave(dir, "raw", "csv"));
    rig.control.setFileProcSave(fileSave(dir, "proc", "csv_with_header"));
    ZError e = rig.capture(measurement(MeasureMode::OneShot, 1000.0, 2000));
    EXPECT_EQ(e.number, 15);
    EXPECT_EQ(e.string, ZString("No space left on device"));
    EXPECT_EQ(rig.control.fileError(false).string, ZString("No space left on device"));
    EXPECT_FALSE(rig.control.fileError(true)) << rig.control.fileError(true).string.str();
    EXPECT_LT(rig.control.fileStats(false).samples, 2000u);

    const std::vector<std::string> lines = readLines(dir + "/proc.csv");
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0], "Unit serial number,T400-000001");
    EXPECT_EQ(rig.control.fileStats(true).blocks, 2u) << "a processed block a second";
    EXPECT_EQ(fields(lines.back()), 8 * 6 + 8);
}

TEST(Control, GoingAwayDuringACaptureLeavesCompleteFiles) {
    const std::string dir = freshDir("control-destroy");
    auto rig = std::make_unique<Rig>();
    ASSERT_FALSE(rig->connect());
    rig->control.setFileRawSave(fileSave(dir, "raw", "tavd"));
    rig->control.setFileProcSave(fileSave(dir, "proc", "tavd"));
    rig->control.setMeasurement(measurement(MeasureMode::Continuous, 1000.0, 0));
    ASSERT_FALSE(rig->control.measureStart(false));
    ASSERT_TRUE(spin([&] { return rig->control.fileStats(false).blocks > 20; }));
    rig.reset();
    const TavdContents raw = readTavd(dir + "/raw.tavd");
    const TavdContents proc = readTavd(dir + "/proc.tavd");
    EXPECT_EQ(raw.end.number, 14) << raw.end.string.str();
    EXPECT_EQ(proc.end.number, 14) << proc.end.string.str();
    bool contiguous = false;
    EXPECT_GT(samplesPerSequence(raw, contiguous).size(), 20u);
    EXPECT_TRUE(contiguous);
}

#include "control_test.moc"
