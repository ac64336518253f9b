// The calibration page against a simulated unit that reports every stage it
// runs: the stages in order with the page's settings, a failing stage,
// cancelling, and the refusals (no unit, a capture running, no channel).

#include "guimessagesdouble.h"
#include "simgui.h"
#include "wcalibrate.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QtTest>

using namespace TavroApi;

namespace {

TavroSim::SimOptions debugUnit() {
    TavroSim::SimOptions options;
    options.debug = true; // the unit says "Calibrate <stage>: done"
    return options;
}

// The page on a connected unit whose messages it receives.
struct Rig {
    Rig() : b(nullptr, debugUnit()), page(b.control()) {
        b.control().unitAdd(b.url(), b.url());
        b.gui.unitsConnect(true);
        b.control().setDebugView(&page);
    }
    ~Rig() { b.control().setDebugView(nullptr); }

    // Presses the button times times; its text before each press.
    QStringList press(int times) {
        QStringList texts;
        for (int i = 0; i < times; i++) {
            texts << page.getNextButton()->text();
            page.getNextButton()->click();
        }
        return texts;
    }
    // The stages the unit reported, in order.
    QStringList unitStages() const {
        QStringList stages;
        for (const QString& line : page.getMessages()->toPlainText().split('\n')) {
            if (line.contains("] Calibrate "))
                stages << line.section("] Calibrate ", 1).section(':', 0, 0);
        }
        return stages;
    }

    SimGui b;
    WCalibrate page;
};

} // namespace

class WCalibrateTest : public QObject {
    Q_OBJECT
private slots:
    void init() { clearSettings(); }
    void channelProcedure();
    void boardProcedure();
    void refusals();
};

void WCalibrateTest::channelProcedure() {
    GuiMessagesDouble messages;
    Rig r;
    QVERIFY(r.b.ok && r.b.gui.isConnected());
    for (int c : {1, 3, 6})
        r.page.getChannel(c)->setChecked(false);
    r.page.getAmplitude()->setValue(2.5);
    r.page.getFrequency()->setValue(50);
    QCOMPARE(r.press(4), QStringList({"Start", "Next", "Next", "Next"}));
    QCOMPARE(r.page.stateText(), QString("Stage 4 of 4: Measure the channel scales"));
    QCOMPARE(r.page.instruction(),
             QString("Connect the reference of 2.5 V at 50 Hz (0 Hz: DC) to each selected input."));
    QVERIFY(!r.page.getProcedureBox()->isEnabled());
    CalibrateInfo info = r.page.stageInfo(3);
    QCOMPARE(info.stage, uint32_t(CalibrateStage::ChanScaling));
    QCOMPARE(info.channelMask, 0xB5u);
    QCOMPARE(info.value, 2.5);
    QCOMPARE(info.calibrateFrequency, 50.0);
    QCOMPARE(info.calibrateTime, 1.0); // 1000 samples at 1000 Hz
    QCOMPARE(r.page.stageTimeoutUs(3), 11000000u);

    // A stage the unit refuses stays the current one until it passes.
    r.b.unit.faultErrorReply(94, ZError(22, "Invalid value"));
    r.press(1);
    QCOMPARE(messages.texts(), QStringList{"Tavro-gui - Error: Calibration stage \"Measure the "
                                           "channel scales\" failed: Invalid value"});
    QCOMPARE(r.page.currentStage(), 3);
    r.b.unit.faultErrorReply(0, ZError());
    r.press(1);
    QCOMPARE(r.page.stateText(), QString("Calibration complete"));
    QCOMPARE(r.page.getNextButton()->text(), QString("Start"));
    QVERIFY(r.page.getProcedureBox()->isEnabled() && !r.page.getCancelButton()->isEnabled());

    // Only the selected channels carry the unit's offsets and scales.
    for (int c = 0; c < 8; c++) {
        ChannelConfig ch = r.b.unit.channelConfig(c);
        bool on = 0xB5 & (1 << c);
        QCOMPARE(ch.calibOffset == 0.0004 * (c + 1) - 0.0018, on);
        QCOMPARE(ch.calibScale == 1.0 + 0.0004 * ((c * 5) % 7) - 0.0012, on);
    }
    QTRY_COMPARE_WITH_TIMEOUT(r.unitStages(),
                              QStringList({"ChanClear", "ChanOffsets", "ChanScaling"}), 10000);
}

void WCalibrateTest::boardProcedure() {
    GuiMessagesDouble messages;
    Rig r;
    QVERIFY(r.b.ok && r.b.gui.isConnected());
    r.page.getProcedureBox()->setCurrentIndex(WCalibrate::ProcedureBoard);
    r.page.getFiveVolts()->setValue(5.0123);
    r.page.getSettle()->setValue(100);
    QCOMPARE(r.page.stageInfo(1).calibrateTime, 100.0);
    QCOMPARE(r.page.stageTimeoutUs(1), 110000000u);
    QCOMPARE(r.page.stageTimeoutUs(0), 10000000u);

    // Cancelled after two stages, then run from the start to the end.
    r.press(3);
    r.page.getCancelButton()->click();
    QCOMPARE(r.page.currentStage(), -1);
    QCOMPARE(r.page.getNextButton()->text(), QString("Start"));
    r.press(11);
    QCOMPARE(r.page.stateText(), QString("Calibration complete"));
    QCOMPARE(r.b.unit.boardConfig().calibFiveVolts, 5.0123);
    QTRY_COMPARE_WITH_TIMEOUT(
        r.unitStages(),
        QStringList({"Clear", "Clear", "AdcOffsets", "DacOffsets", "DacScaling0", "DacScaling1",
                     "AdcScaling", "AttenScaling", "geFiveVolts", "AdcScalingWithAtten"}),
        10000);
    QCOMPARE(messages.texts(), QStringList());
}

void WCalibrateTest::refusals() {
    GuiMessagesDouble messages;
    SimGui b;
    QVERIFY(b.ok);
    WCalibrate page(b.control());
    page.getNextButton()->click(); // no unit
    b.control().unitAdd(b.url(), b.url());
    b.gui.unitsConnect(true);
    for (int c = 0; c < 8; c++)
        page.getChannel(c)->setChecked(false);
    page.getNextButton()->click(); // no channel
    page.getChannel(7)->setChecked(true);
    page.getNextButton()->click();
    page.getNextButton()->click();
    QCOMPARE(page.currentStage(), 1);
    b.gui.run();
    page.getNextButton()->click(); // a capture runs
    QCOMPARE(page.currentStage(), 1);
    b.gui.doStop();
    page.getNextButton()->click();
    QCOMPARE(page.currentStage(), 2);
    QCOMPARE(messages.texts(),
             QStringList({"Tavro-gui - Error: Not connected to any units",
                          "Tavro-gui - Error: Select at least one channel to calibrate",
                          "Tavro-gui - Error: Calibration is not possible while a capture is "
                          "running: stop the capture first"}));
}

QTEST_MAIN(WCalibrateTest)
#include "wcalibrate_qtest.moc"
