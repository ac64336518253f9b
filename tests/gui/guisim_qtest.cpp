// The main window against a simulated unit served in this process:
// connecting, the status bar, login, a capture from start to stop, and the
// ways a connection is lost.

#include "graph.h"
#include "gui.h"
#include "guimessagesdouble.h"
#include "simserver.h"
#include "simunit.h"
#include "wcapture.h"
#include "wunits.h"

#include <QAction>
#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStatusBar>
#include <QTabWidget>
#include <QTimer>
#include <QToolBar>
#include <QtTest>

#include <memory>

using namespace TavroApi;

namespace {

// A simulated unit on a free port and a main window set up for it.
struct Bench {
    explicit Bench(const TavroSim::SimOptions& options = TavroSim::SimOptions())
        : unit(options), server(unit) {
        ok = !server.start("127.0.0.1", 0) && !gui.init("Tavro", ZString(), false, false, false) &&
             !gui.getControl().unitAdd("sim", ZString("zoapn://127.0.0.1:") + int(server.port()));
    }
    ~Bench() {
        // The window lets the unit go before the unit itself goes.
        if (gui.isConnected())
            gui.unitsConnect(false);
        server.stop();
    }

    Control& control() { return gui.getControl(); }
    QAction* tool(int i) { return gui.findChild<QToolBar*>("Control")->actions()[i]; }
    QString statusBar() { return gui.statusBar()->currentMessage(); }

    TavroSim::SimUnit unit;
    TavroSim::SimTcpServer server;
    Gui gui;
    bool ok;
};

// Points of the first curve of a graph.
size_t curveSize(QwtPlot* graph) {
    const QwtPlotItemList curves = graph->itemList(QwtPlotItem::Rtti_PlotCurve);
    return curves.isEmpty() ? 0 : static_cast<QwtPlotCurve*>(curves[0])->dataSize();
}

QImage iconImage(const QIcon& icon) {
    return icon.pixmap(32, 32).toImage();
}

template <class F>
void whenModal(F f) {
    QTimer::singleShot(0, [f]() {
        if (QWidget* w = QApplication::activeModalWidget())
            f(w);
    });
}

void fillLogin(const QString& user, const QString& password) {
    whenModal([user, password](QWidget* w) {
        w->findChild<QLineEdit*>("userid")->setText(user);
        w->findChild<QLineEdit*>("password")->setText(password);
        w->findChild<QPushButton*>("login")->click();
    });
}

} // namespace

class GuiSimTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { Q_INIT_RESOURCE(tavro); }

    void connectAndDisconnect();
    void refusedUnit();
    void statusString_data();
    void statusString();
    void loginLogout();
    void capture();
    void runOnAutoConnect();
    void captureFinished_data();
    void captureFinished();
    void unitDropsConnection();
    void statusTimeout();
};

void GuiSimTest::connectAndDisconnect() {
    GuiMessagesDouble messages;
    Bench b;
    QVERIFY(b.ok);
    b.tool(0)->trigger();
    QCOMPARE(messages.texts(), QStringList());
    QVERIFY(b.gui.isConnected());
    QVERIFY(!b.gui.isLoggedIn());
    QCOMPARE(iconImage(b.gui.getConnectAction()->icon()),
             iconImage(QIcon(":/images/connect_on.svg")));
    QCOMPARE(QString(b.control().nodeInfo().serialNumber), QString("T400-000001"));
    b.gui.processStatus();
    QCOMPARE(b.statusBar(), QString("Idle: Stopped"));
    QCOMPARE(b.gui.getStateLabel()->text(), QString("S"));

    // Connect again while connected: disconnects.
    b.tool(0)->trigger();
    QVERIFY(!b.gui.isConnected());
    QVERIFY(!b.control().unitsConnected());
    QCOMPARE(iconImage(b.gui.getConnectAction()->icon()),
             iconImage(QIcon(":/images/connect_off.svg")));
    b.gui.processStatus();
    QCOMPARE(b.statusBar(), QString("Not connected"));

    // "Clear" on the units page while connected: the window lets go first.
    b.tool(0)->trigger();
    QVERIFY(b.gui.isConnected());
    b.gui.getUnitsView()->getButton("Clear")->click();
    QVERIFY(!b.gui.isConnected());
    QCOMPARE(b.control().unitsNum(), 0u);
    QCOMPARE(iconImage(b.gui.getConnectAction()->icon()),
             iconImage(QIcon(":/images/connect_off.svg")));
    QCOMPARE(messages.texts(), QStringList());
}

void GuiSimTest::refusedUnit() {
    GuiMessagesDouble messages;
    TavroSim::SimOptions options;
    options.api = "2.0";
    Bench b(options);
    QVERIFY(b.ok);
    b.gui.unitsConnect(true);
    QVERIFY(!b.gui.isConnected());
    QCOMPARE(messages.texts(), QStringList({"Tavro-gui - Error: API version 2.0 not supported",
                                            "Tavro-gui - Warning: No units connected"}));
    QCOMPARE(messages.messages[0].kind, GuiMessages::Critical);
}

void GuiSimTest::statusString_data() {
    QTest::addColumn<int>("mode");
    QTest::addColumn<uint>("status");
    QTest::addColumn<bool>("saving");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("state");
    QTest::addColumn<bool>("running");

    QTest::newRow("idle overrun") << 0 << 0x0C0u << false << "Idle: Stopped, overrun" << 0 << false;
    QTest::newRow("unknown mode") << 9 << 0u << false << "Uknown: Stopped" << 0 << false;
    QTest::newRow("running") << 1 << 0x4u << false << "Run: Running" << 2 << true;
    QTest::newRow("trigger") << 1 << 0xCu << false << "Run: Awaiting Trigger" << 1 << true;
    QTest::newRow("program alarm")
        << 2 << 0x104u << false << "RunProgram: Running, alarm" << 2 << true;
    QTest::newRow("demo both") << 5 << 0x184u << false << "Demo: Running, overrun, alarm" << 2
                               << true;
    QTest::newRow("internal fpga overrun")
        << 3 << 0x80u << false << "Internal: Stopped, overrun" << 0 << false;
    QTest::newRow("sleep") << 4 << 0x100u << false << "Sleep: Stopped, alarm" << 0 << false;
    QTest::newRow("saving") << 1 << 0x4u << true << "Run: Running: Data file saving" << 2 << true;
    QTest::newRow("saving stopped") << 0 << 0x0u << true << "Idle: Stopped" << 0 << false;
}

void GuiSimTest::statusString() {
    GuiMessagesDouble messages;
    Bench b;
    QVERIFY(b.ok);
    b.gui.unitsConnect(true);
    QVERIFY(b.gui.isConnected());
    // Only the statuses given here count.
    b.unit.faultStopStatus(true);
    b.gui.enableStatus(false);

    QFETCH(bool, saving);
    FileSave save;
    save.save = saving;
    b.control().setFileProcSave(save);

    QFETCH(int, mode);
    QFETCH(uint, status);
    NodeStatus s;
    s.mode = Mode(mode);
    s.status = status;
    b.control().sendStatusServe(s);
    b.gui.processStatus();
    QTEST(b.statusBar(), "text");
    QTEST(b.gui.getState(), "state");
    QTEST(b.gui.isRunning(), "running");
    QCOMPARE(messages.texts(), QStringList());
}

void GuiSimTest::loginLogout() {
    GuiMessagesDouble messages;
    Bench b;
    QVERIFY(b.ok);
    b.gui.unitsConnect(true);
    QVERIFY(b.gui.isConnected());

    b.gui.changePassword();
    QCOMPARE(messages.texts(),
             QStringList{"Tavro-gui - Warning: You are not logged in to any units"});

    messages.clear();
    fillLogin("admin", "wrong");
    b.gui.login();
    QVERIFY(!b.gui.isLoggedIn());
    QCOMPARE(messages.texts(),
             QStringList{"Tavro-gui - Warning: Unable to login: Invalid user or password"});

    messages.clear();
    fillLogin("admin", "tavro");
    b.gui.login();
    QCOMPARE(messages.texts(), QStringList());
    QVERIFY(b.gui.isLoggedIn());
    QCOMPARE(b.gui.getUserid(), ZString("admin"));
    QVERIFY(b.unit.loggedIn());

    // The old password goes out empty: the unit takes it from the user
    // logged in, and the new one holds from then on.
    whenModal([](QWidget* w) {
        w->findChild<QLineEdit*>("password1")->setText("newpw");
        w->findChild<QLineEdit*>("password2")->setText("newpw");
        w->findChild<QPushButton*>("setPassword")->click();
    });
    b.gui.changePassword();
    QCOMPARE(messages.texts(), QStringList());
    fillLogin("admin", "newpw");
    b.gui.login();
    QCOMPARE(messages.texts(), QStringList());
    QVERIFY(b.gui.isLoggedIn());

    b.gui.logout();
    QVERIFY(!b.gui.isLoggedIn());
    QCOMPARE(b.gui.getUserid(), ZString());
    QVERIFY(!b.unit.loggedIn());
}

// A whole capture through the window: Run, the raw view's curves fill, the
// indicator and the status bar follow, Ctrl+S stops, Connect disconnects.
void GuiSimTest::capture() {
    GuiMessagesDouble messages;
    Bench b;
    QVERIFY(b.ok);
    b.gui.show();
    QApplication::setActiveWindow(&b.gui);
    QVERIFY(QTest::qWaitForWindowActive(&b.gui));
    b.gui.getTabs()->setCurrentWidget(b.gui.getCaptureView());

    b.gui.unitsConnect(true);
    QVERIFY(b.gui.isConnected());
    MeasurementConfig m = b.control().measurementConfig();
    m.measureMode = MeasureMode::Continuous;
    m.sampleRate = 1000.0;
    b.control().setMeasurement(m);

    b.tool(1)->trigger();
    QCOMPARE(messages.texts(), QStringList());
    QVERIFY(b.gui.isRunning());
    QCOMPARE(b.unit.mode(), Mode::Run);
    WCapture* view = b.gui.getCaptureView();
    QTRY_VERIFY_WITH_TIMEOUT(view->getSampleCount() >= 500, 20000);
    QVERIFY(view->getNumChans() > 0);
    QVERIFY(!view->getData(0).isEmpty());
    // A continuous capture is drawn while it runs, not only at its end.
    QTRY_VERIFY_WITH_TIMEOUT(curveSize(view->getGraph()) > 0, 5000);
    QTRY_VERIFY_WITH_TIMEOUT(curveSize(view->getGraph()) > 1500, 10000);
    // The time axis follows the samples (1000 per second).
    QVERIFY(view->getGraph()->axisInterval(QwtPlot::xBottom).maxValue() >= 1.5);
    QTRY_COMPARE_WITH_TIMEOUT(b.statusBar(), QString("Run: Running"), 5000);
    QCOMPARE(b.gui.getStateLabel()->text(), QString("R"));
    QCOMPARE(b.gui.getStateLabel()->styleSheet(),
             QString("QLabel { margin: 10px; background-color : green; }"));

    QTest::keyClick(&b.gui, Qt::Key_S, Qt::ControlModifier);
    QVERIFY(!b.gui.isRunning());
    QCOMPARE(b.unit.mode(), Mode::Idle);
    QTRY_COMPARE_WITH_TIMEOUT(b.statusBar(), QString("Idle: Stopped"), 5000);
    QCOMPARE(b.gui.getStateLabel()->text(), QString("S"));

    b.tool(0)->trigger();
    QVERIFY(!b.gui.isConnected());
    QCOMPARE(messages.texts(), QStringList());
}

void GuiSimTest::runOnAutoConnect() {
    GuiMessagesDouble messages;
    Bench b;
    QVERIFY(b.ok);
    b.gui.show();
    b.gui.getTabs()->setCurrentWidget(b.gui.getCaptureView());
    for (bool autoRun : {false, true}) {
        b.gui.getSettings().setValue("units/unitAutoConnect", true);
        b.gui.getSettings().setValue("units/unitAutoRun", autoRun);
        QVERIFY(QMetaObject::invokeMethod(&b.gui, "started"));
        QVERIFY(b.gui.isConnected());
        QCOMPARE(b.gui.isRunning(), autoRun);
        QCOMPARE(b.unit.mode(), autoRun ? Mode::Run : Mode::Idle);
        if (autoRun)
            QTRY_VERIFY_WITH_TIMEOUT(curveSize(b.gui.getCaptureView()->getGraph()) > 0, 10000);
        b.gui.unitsConnect(false);
    }
    // The windows of the later tests must not connect at start.
    b.gui.getSettings().remove("units");
    QCOMPARE(messages.texts(), QStringList());
}

void GuiSimTest::captureFinished_data() {
    QTest::addColumn<uint>("status");
    QTest::addColumn<QStringList>("texts");
    const QString e = "Tavro-gui - Error: ";
    QTest::newRow("data overrun") << 0x40u << QStringList{e + "Capture error: Overrun: 0x40\n"};
    QTest::newRow("fpga overrun") << 0x80u << QStringList{e + "Capture error: Overrun: 0x80\n"};
    QTest::newRow("overrun and error")
        << 0x1C1u << QStringList{e + "Capture error: Overrun: 0x1c1\n"};
    QTest::newRow("error") << 0x1u << QStringList{e + "Capture error: 0x1\n"};
    QTest::newRow("high bit") << 0x8000u << QStringList{e + "Capture error: 0x8000\n"};
    QTest::newRow("end and alarm") << 0x130u << QStringList();
    QTest::newRow("clean end") << 0x10u << QStringList();
}

// A block without the Run bit ends the capture; the accumulated status
// decides what is said. Nobody shows the data, so the window drains it.
void GuiSimTest::captureFinished() {
    QFETCH(uint, status);
    GuiMessagesDouble messages;
    Bench b;
    QVERIFY(b.ok);
    b.gui.unitsConnect(true);
    QVERIFY(b.gui.isConnected());
    b.gui.stateSet(2);
    QVERIFY(!b.control().dataSetNumStreams(2));

    DataBlockFloat block;
    block.numChannels = 16;
    block.numSamples = 1;
    block.status = uint16_t(status);
    QVERIFY(!b.control().sendDataFloatQueue(*b.control().unitMaster(), block));
    QTRY_COMPARE_WITH_TIMEOUT(b.control().dataStatus(), uint16_t(status), 5000);
    QTRY_COMPARE_WITH_TIMEOUT(b.gui.getState(), 0, 5000);
    QTRY_COMPARE_WITH_TIMEOUT(b.control().dataAvailable(0), 0u, 5000);
    QTEST(messages.texts(), "texts");
    QVERIFY(!b.gui.isRunning());
}

void GuiSimTest::unitDropsConnection() {
    GuiMessagesDouble messages;
    Bench b;
    QVERIFY(b.ok);
    b.gui.unitsConnect(true);
    QVERIFY(b.gui.isConnected());
    b.unit.dropConnection();
    QTRY_VERIFY_WITH_TIMEOUT(!b.gui.isConnected(), 10000);
    QCOMPARE(messages.texts(),
             QStringList{"Tavro-gui - Error: One or more units have disconnected"});
    QCOMPARE(messages.messages[0].kind, GuiMessages::Warning);
    QCOMPARE(iconImage(b.gui.getConnectAction()->icon()),
             iconImage(QIcon(":/images/connect_off.svg")));
    // Later status ticks and reports add nothing.
    QTest::qWait(1500);
    b.gui.unitsDisconnected();
    QCOMPARE(messages.texts().size(), 1);
    QCOMPARE(b.statusBar(), QString("Not connected"));
}

// A unit that stops reporting its status counts as gone.
void GuiSimTest::statusTimeout() {
    GuiMessagesDouble messages;
    Bench b;
    QVERIFY(b.ok);
    b.gui.unitsConnect(true);
    QVERIFY(b.gui.isConnected());
    b.unit.faultStopStatus(true);
    QTRY_VERIFY_WITH_TIMEOUT(!b.gui.isConnected(), 15000);
    QCOMPARE(messages.texts(),
             QStringList{"Tavro-gui - Error: One or more units have disconnected"});
    QVERIFY(!b.control().unitsConnected());
}

QTEST_MAIN(GuiSimTest)
#include "guisim_qtest.moc"
