// The debug console and its command line, the manual, and the calibration
// page against a simulated unit that reports every stage it runs.

#include "guimessagesdouble.h"
#include "helpwindow.h"
#include "simgui.h"
#include "wcalibrate.h"
#include "wdebug.h"
#include "wstatus.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QDoubleSpinBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QSpinBox>
#include <QTextBlock>
#include <QTextBrowser>
#include <QToolButton>
#include <QtTest>

// Stands for a main window that opens manual topics.
class TopicWindow : public QWidget {
    Q_OBJECT
public slots:
    void manualTopic(const QString& topic) { topics << topic; }

public:
    QStringList topics;
};

using namespace TavroApi;

namespace {

// The page on a connected unit whose messages it receives (the unit says
// "Calibrate <stage>: done").
struct Rig {
    Rig()
        : b(nullptr, simOptions([](TavroSim::SimOptions& o) { o.debug = true; })),
          page(b.control()) {
        ok = b.connect();
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
    bool ok;
};

} // namespace

class WDebugHelpTest : public QObject {
    Q_OBJECT
private slots:
    void init() { clearSettings(); }
    void consoleAndCommandLine();
    void manual();
    void calibrateChannels();
    void calibrateBoard();
    void calibrateRefusals();
};

void WDebugHelpTest::consoleAndCommandLine() {
    QCOMPARE(WDebug::messageLine(QTime(9, 5, 7, 42), 1, "cpu load 4%\r\n"),
             QString("09:05:07.042 [Debug] cpu load 4%"));
    QCOMPARE(WDebug::messageLine(QTime(23, 0, 0), 99, "a\nb\xff"),
             QString("23:00:00.000 [Uknown] a\nb") + QChar(0xFFFD));
    QCOMPARE(WDebug::messageLine(QTime(0, 0, 0), -1, ""), QString("00:00:00.000 [Uknown] "));
    WDebug page;
    QSignalSpy received(&page, SIGNAL(messageReceived(int, QByteArray)));
    QVERIFY(QMetaObject::invokeMethod(&page, "sendMessageServe", Qt::QueuedConnection,
                                      Q_ARG(int, 3), Q_ARG(QByteArray, "Wifi connected")));
    QVERIFY(page.getConsole()->toPlainText().isEmpty());
    QTRY_COMPARE(received.count(), 1);
    QVERIFY(QRegularExpression("^\\d\\d:\\d\\d:\\d\\d\\.\\d{3} \\[Wifi\\] Wifi connected$")
                .match(page.getConsole()->toPlainText())
                .hasMatch());
    for (int i = 0; i < WDebug::consoleLines + 10; i++)
        page.sendMessageServe(0, QByteArray::number(i));
    QCOMPARE(page.getConsole()->blockCount(), WDebug::consoleLines);
    QVERIFY(page.getConsole()->document()->firstBlock().text().endsWith("[General] 10"));
    QSignalSpy commands(&page, SIGNAL(command(QByteArray)));
    QLineEdit* line = page.getCommandLine();
    for (const char* text : {"status", "", "  ", "dump 1", "dump 1", "wifi scan"}) {
        line->setText(text);
        QTest::keyClick(line, Qt::Key_Return);
    }
    QCOMPARE(commands.count(), 4);
    QCOMPARE(commands.at(3).at(0).toByteArray(), QByteArray("wifi scan"));
    QCOMPARE(page.getHistory(), QStringList({"status", "dump 1", "wifi scan"}));
    QVERIFY(line->text().isEmpty());
    QVERIFY(page.getConsole()->toPlainText().endsWith(" > wifi scan"));
    // Up and Down walk the history; past its end the typed line comes back.
    line->setText("draft");
    QStringList seen;
    for (Qt::Key key : {Qt::Key_Up, Qt::Key_Up, Qt::Key_Up, Qt::Key_Up, Qt::Key_Down, Qt::Key_Down,
                        Qt::Key_Down, Qt::Key_Down}) {
        QTest::keyClick(line, key);
        seen << line->text();
    }
    QCOMPARE(seen, QStringList({"wifi scan", "dump 1", "status", "status", "dump 1", "wifi scan",
                                "draft", "draft"}));
    for (int i = 0; i < WDebug::historyMax + 5; i++) {
        line->setText(QString("c%1").arg(i));
        QTest::keyClick(line, Qt::Key_Return);
    }
    QCOMPARE(page.getHistory().size(), WDebug::historyMax);
    QCOMPARE(page.getHistory().first(), QString("c5"));
    // In a main window the command goes to the units through it.
    GuiMessagesDouble messages;
    Gui gui;
    WDebug* inWindow = new WDebug();
    gui.setCentralWidget(inWindow);
    QSignalSpy none(inWindow, SIGNAL(command(QByteArray)));
    inWindow->getCommandLine()->setText("status");
    QTest::keyClick(inWindow->getCommandLine(), Qt::Key_Return);
    QCOMPARE(none.count(), 0);
    QCOMPARE(messages.messages.size(), 1);
    QVERIFY(messages.texts()[0].startsWith("Tavro-gui - Warning: Unable to send command: "));
}

// Every page is in the contents; every local link and anchor leads somewhere;
// topics, refused names, and the status page's help button.
void WDebugHelpTest::manual() {
    HelpWindow help;
    QCOMPARE(help.currentTopic(), QString("index"));
    int number;
    const HelpWindow::Topic* topics = HelpWindow::topics(number);
    QStringList names;
    for (int i = 0; i < number; i++) {
        names << QString(topics[i].name) + ".html";
        QVERIFY(help.showTopic(topics[i].name));
        QCOMPARE(help.getContents()->currentRow(), i);
    }
    QDir dir(HelpWindow::manualPath);
    QStringList pages = dir.entryList({"*.html"});
    std::sort(names.begin(), names.end());
    QCOMPARE(pages, names);
    QRegularExpression link("(?:href|src)=\"(?!https?://)([^\"#]*)#?([^\"]*)\"");
    for (const QString& page : pages) {
        QFile file(dir.filePath(page));
        QVERIFY(file.open(QIODevice::ReadOnly));
        for (auto m = link.globalMatch(QString::fromUtf8(file.readAll())); m.hasNext();) {
            const QRegularExpressionMatch target = m.next();
            QFile linked(dir.filePath(target.captured(1).isEmpty() ? page : target.captured(1)));
            const QByteArray id = ("id=\"" + target.captured(2) + "\"").toUtf8();
            QVERIFY2(linked.open(QIODevice::ReadOnly) &&
                         (target.captured(2).isEmpty() || linked.readAll().contains(id)),
                     qPrintable(page + ": " + target.captured(0)));
        }
    }
    QVERIFY(help.showTopic("status"));
    QVERIFY(help.isVisible());
    QCOMPARE(help.getBrowser()->source(), QUrl("qrc:/manual/status.html"));
    QVERIFY(help.getBrowser()->toPlainText().contains("Calibration Date"));
    QVERIFY(help.showTopic("files.html#csv"));
    QCOMPARE(help.getBrowser()->source(), QUrl("qrc:/manual/files.html#csv"));
    for (const char* bad : {"nosuch", "", "../gui", ":/images/run", "index/x"}) {
        QVERIFY(!help.showTopic(bad));
        QCOMPARE(help.currentTopic(), QString("files"));
    }
    help.showContents();
    QCOMPARE(help.currentTopic(), QString("index"));
    // The status page's help button asks its window for its topic.
    Control control;
    TopicWindow window;
    WStatus* status = new WStatus(control, &window);
    status->findChild<QToolButton*>("help")->click();
    QCOMPARE(window.topics, QStringList{"status"});
}

void WDebugHelpTest::calibrateChannels() {
    GuiMessagesDouble messages;
    Rig r;
    QVERIFY(r.ok);
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

void WDebugHelpTest::calibrateBoard() {
    GuiMessagesDouble messages;
    Rig r;
    QVERIFY(r.ok);
    r.page.getProcedureBox()->setCurrentIndex(WCalibrate::ProcedureBoard);
    r.page.getFiveVolts()->setValue(5.0123);
    r.page.getSettle()->setValue(100);
    QCOMPARE(r.page.stageTimeoutUs(1), 110000000u);
    // Cancelled after two stages, then run from the start to the end.
    r.press(3);
    r.page.getCancelButton()->click();
    QCOMPARE(r.page.currentStage(), -1);
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

void WDebugHelpTest::calibrateRefusals() {
    GuiMessagesDouble messages;
    SimGui b;
    QVERIFY(b.ok);
    WCalibrate page(b.control());
    page.getNextButton()->click(); // no unit
    QVERIFY(b.connect());
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

QTEST_MAIN(WDebugHelpTest)
#include "wdebughelp_qtest.moc"
