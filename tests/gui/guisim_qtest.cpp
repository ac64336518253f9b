// The main window: menus, tool bar, state indicator, dialogs and what every
// action says while not connected; then against a simulated unit served in
// this process: connecting, the status bar, login, a capture, lost links
// and the units page.

#include "dialogchangepassword.h"
#include "dialoglogin.h"
#include "graph.h"
#include "guimessagesdouble.h"
#include "simgui.h"
#include "wcapture.h"
#include "wunits.h"

#include <QAction>
#include <QCheckBox>
#include <QInputDialog>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QStatusBar>
#include <QTabWidget>
#include <QTableWidget>
#include <QToolBar>
#include <QWidgetAction>
#include <QtTest>

#include <memory>

using namespace TavroApi;

namespace {

std::unique_ptr<Gui> newGui(bool cal = false, bool demo = false, bool dev = false) {
    std::unique_ptr<Gui> gui(new Gui());
    if (gui->init("Tavro", ZString(), cal, demo, dev))
        return nullptr;
    return gui;
}

// "text|status tip|shortcut" of each action.
QStringList describe(const QList<QAction*>& actions) {
    QStringList list;
    for (QAction* a : actions) {
        if (a->isSeparator() || qobject_cast<QWidgetAction*>(a))
            continue;
        list << a->text() + "|" + a->statusTip() + "|" +
                    a->shortcut().toString(QKeySequence::PortableText);
    }
    return list;
}

struct Bench : SimGui {
    using SimGui::SimGui;
    QAction* tool(int i) { return gui.findChild<QToolBar*>("Control")->actions()[i]; }
    QString statusBar() { return gui.statusBar()->currentMessage(); }
    bool connectIcon(bool on) {
        return iconImage(gui.getConnectAction()->icon()) ==
               iconImage(QIcon(on ? ":/images/connect_on.svg" : ":/images/connect_off.svg"));
    }
};

// Points of the first curve of a graph.
size_t curveSize(QwtPlot* graph) {
    const QwtPlotItemList curves = graph->itemList(QwtPlotItem::Rtti_PlotCurve);
    return curves.isEmpty() ? 0 : static_cast<QwtPlotCurve*>(curves[0])->dataSize();
}

const QString disconnected = "Tavro-gui - Error: One or more units have disconnected";

void setSettings(const QVariantMap& values) {
    QSettings settings("Korvel", "Tavro-gui");
    for (auto it = values.begin(); it != values.end(); ++it)
        settings.setValue(it.key(), it.value());
}

// Every key under "units/" with its value, sorted by key.
QStringList unitKeys() {
    QSettings settings("Korvel", "Tavro-gui");
    QStringList keys = settings.allKeys().filter(QRegularExpression("^units/"));
    keys.sort();
    QStringList list;
    for (const QString& key : keys)
        list << key + "=" + settings.value(key).toString();
    return list;
}

// A page on a unit manager of its own.
struct Page {
    explicit Page(const QStringList& urls = QStringList()) {
        for (const QString& url : urls)
            control.unitAdd(url.toUtf8().constData(), url.toUtf8().constData());
        page.update();
    }
    // The units as "url serial on|off", in order; the same from the table.
    QStringList units() {
        QStringList list;
        for (unsigned int n = 1; n <= control.unitsNum(); n++) {
            TavroApi::TavroUnit1* u = control.unit(n);
            list << QString("%1 %2 %3")
                        .arg(u->url().str(), u->serialNumber().str(), u->enabled() ? "on" : "off");
        }
        return list;
    }
    QStringList rows() {
        QTableWidget* t = page.getTable();
        QStringList list;
        for (int row = 0; row < t->rowCount(); row++)
            list << QString("%1 %2 %3")
                        .arg(t->item(row, WUnits::ColUnit)->text(),
                             t->item(row, WUnits::ColSerial)->text(),
                             cell(row, WUnits::ColEnable)->isChecked() ? "on" : "off");
        return list;
    }
    QAbstractButton* cell(int row, int column) {
        return qobject_cast<QAbstractButton*>(page.getTable()->cellWidget(row, column));
    }
    Control control;
    WUnits page{control};
};

} // namespace

class GuiSimTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { Q_INIT_RESOURCE(tavro); }
    void init() {
        clearSettings();
        messages.clear();
    }
    // A test takes every message it expects.
    void cleanup() { QCOMPARE(messages.texts(), QStringList()); }
    void menusToolBarAndState();
    void notConnected();
    void firmwareUpdatePages();
    void windowSizeSetting();
    void dialogs();
    void refusedUnit();
    void statusString();
    void loginLogout();
    void capture();
    void captureFinished();
    void connectionLost();
    void save();
    void readSettings();
    void flagsAndEnable();
    void move();
    void addUnit();
    void deleteUnit();
    void connectThroughWindow();
    void autoConnectAtStart();

private:
    GuiMessagesDouble messages;
};

void GuiSimTest::menusToolBarAndState() {
    auto gui = newGui();
    QVERIFY(gui);
    QCOMPARE(gui->windowTitle(), QString("Tavro-gui"));
    QList<QAction*> menus = gui->menuBar()->actions();
    QCOMPARE(menus.size(), 2);
    QCOMPARE(menus[0]->text(), QString("File"));
    QCOMPARE(describe(menus[0]->menu()->actions()),
             QStringList({"&Login|Login to units|", "&Change Password|Change password|",
                          "&Logout|Logout of units|", "&Quit|Quits the application|Ctrl+Q"}));
    QCOMPARE(menus[1]->text(), QString("Help"));
    QCOMPARE(describe(menus[1]->menu()->actions()),
             QStringList({"&Manual|Online Manual|Ctrl+M", "&About|About the program|Ctrl+A"}));
    QToolBar* bar = gui->findChild<QToolBar*>("Control");
    QVERIFY(bar);
    QCOMPARE(bar->windowTitle(), QString("Control"));
    QList<QAction*> tools = bar->actions();
    QCOMPARE(tools.size(), 4);
    QCOMPARE(tools[0], gui->getConnectAction());
    QCOMPARE(describe(tools), QStringList({"&Connect|Units connect/disconnect|",
                                           "&Run|Run capture|", "&Stop|Stop capture|Ctrl+S"}));
    for (int i = 0; i < 3; i++)
        QVERIFY(!tools[i]->isCheckable());
    QCOMPARE(iconImage(tools[0]->icon()), iconImage(QIcon(":/images/connect_off.svg")));
    QCOMPARE(iconImage(tools[1]->icon()), iconImage(QIcon(":/images/run.svg")));
    QCOMPARE(iconImage(tools[2]->icon()), iconImage(QIcon(":/images/stop.svg")));
    QVERIFY(iconImage(tools[0]->icon()) != iconImage(QIcon(":/images/connect_on.svg")));
    QLabel* label = gui->getStateLabel();
    QCOMPARE(bar->widgetForAction(tools[3]), label);
    QCOMPARE(label->text() + "|" + label->toolTip() + "|" + label->styleSheet(),
             QString("S|Measuring status|"));
    QCOMPARE(gui->getState(), -1);
    QCOMPARE(gui->statusBar()->currentMessage(), QString("Not connected"));
    gui->about();
    QCOMPARE(messages.messages[0].kind, GuiMessages::About);
    QCOMPARE(messages.messages.takeFirst().text,
             QString("<h3>Tavro-gui</h3><p>Tavro Version: 1.3.1</p>"));
    const char* const rows[][2] = {{"S", "red"}, {"T", "yellow"}, {"R", "green"}};
    for (int n = 0; n < 3; n++) {
        gui->stateSet(n);
        QCOMPARE(gui->getState(), n);
        QCOMPARE(label->text(), QString(rows[n][0]));
        QCOMPARE(label->styleSheet(),
                 QString("QLabel { margin: 10px; background-color : %1; }").arg(rows[n][1]));
        // The same state again leaves the label alone; other values are ignored.
        label->setText("x");
        gui->stateSet(n);
        gui->stateSet(3);
        gui->stateSet(-1);
        QCOMPARE(gui->getState(), n);
        QCOMPARE(label->text(), QString("x"));
    }
    // A capture ending without error bits says nothing.
    gui->dataCaptureFinished();
    QVERIFY(!gui->isRunning());
    QCOMPARE(gui->getState(), 0);
    QCOMPARE(label->text(), QString("S"));
}

// What each action says without units; only Stop has a working shortcut.
void GuiSimTest::notConnected() {
    auto gui = newGui();
    QVERIFY(gui);
    gui->show();
    QApplication::setActiveWindow(gui.get());
    QVERIFY(QTest::qWaitForWindowActive(gui.get()));
    QTest::keyClick(gui.get(), Qt::Key_C, Qt::ControlModifier);
    QTest::keyClick(gui.get(), Qt::Key_R, Qt::ControlModifier);
    QCOMPARE(messages.texts(), QStringList());
    QTest::keyClick(gui.get(), Qt::Key_S, Qt::ControlModifier);
    gui->run(false);
    QVERIFY(!gui->isRunning());
    gui->login();
    gui->logout();
    gui->changePassword();
    const QString notAny = "Tavro-gui - Warning: You are not connected to any units";
    QCOMPARE(messages.messages[0].kind, GuiMessages::Critical);
    QCOMPARE(messages.messages[2].kind, GuiMessages::Warning);
    QCOMPARE(messages.take(), QStringList({"Tavro-gui - Error: Not connected to any units",
                                           "Tavro-gui - Error: Not connected to any units", notAny,
                                           notAny, notAny}));
    // Connecting with no units at all; disconnecting does nothing.
    gui->getConnectAction()->trigger();
    QVERIFY(!gui->isConnected());
    QCOMPARE(messages.take().last(), QString("Tavro-gui - Warning: No units connected"));
    QCOMPARE(iconImage(gui->getConnectAction()->icon()),
             iconImage(QIcon(":/images/connect_off.svg")));
    gui->unitsConnect(false);
    // A lost connection is reported once.
    gui->unitsDisconnected();
    gui->unitsConnectionGone();
    gui->unitsDisconnected();
    QCOMPARE(messages.messages[0].kind, GuiMessages::Warning);
    QCOMPARE(messages.take(), QStringList{disconnected});
}

void GuiSimTest::firmwareUpdatePages() {
    auto gui = newGui(false, true, true);
    QVERIFY(gui);
    QTabWidget* tabs = gui->getTabs();
    auto disabled = [tabs] {
        QStringList list;
        for (int i = 0; i < tabs->count(); i++)
            if (!tabs->widget(i)->isEnabled())
                list << tabs->tabText(i);
        return list;
    };
    gui->firmwareUpdate();
    QCOMPARE(tabs->tabText(tabs->currentIndex()), QString("Config"));
    QCOMPARE(disabled(), QStringList({"Status", "Units", "Channel Config", "Raw Data",
                                      "Processed Data", "Data Log", "Calibrate", "Capture Demo"}));
    gui->firmwareUpdateClear();
    QCOMPARE(disabled(), QStringList());
}

// The window with every page fits a 1280x800 screen; its size is kept.
void GuiSimTest::windowSizeSetting() {
    QSize size;
    {
        auto gui = newGui(true, true, true);
        QVERIFY(gui);
        gui->show();
        QVERIFY2(gui->minimumSizeHint().width() <= 1200 && gui->minimumSizeHint().height() <= 700,
                 qPrintable(QString("minimum %1x%2")
                                .arg(gui->minimumSizeHint().width())
                                .arg(gui->minimumSizeHint().height())));
        size = gui->minimumSizeHint().expandedTo(QSize(900, 610)) + QSize(37, 23);
        gui->resize(size);
        gui->close();
    }
    QCOMPARE(QSettings("Korvel", "Tavro-gui").value("windowSize").toSize(), size);
    auto gui = newGui(true, true, true);
    QVERIFY(gui);
    QCOMPARE(gui->size(), size);
}

// The passwords are hidden; Cancel gives nothing.
void GuiSimTest::dialogs() {
    DialogLogin login;
    QCOMPARE(login.findChild<QLineEdit*>("password")->echoMode(), QLineEdit::Password);
    whenModal([](QWidget* w) { w->findChild<QPushButton*>("cancel")->click(); });
    QString userid, password;
    QVERIFY(!login.process(userid, password));
    QCOMPARE(userid, QString());
    DialogChangePassword change;
    QCOMPARE(change.findChild<QLineEdit*>("password1")->echoMode(), QLineEdit::Password);
    QCOMPARE(change.findChild<QLineEdit*>("password2")->echoMode(), QLineEdit::Password);
    whenModal([](QWidget* w) { w->findChild<QPushButton*>("cancel")->click(); });
    QVERIFY(!change.process(password));
}

void GuiSimTest::refusedUnit() {
    Bench b(nullptr, simOptions([](TavroSim::SimOptions& o) { o.api = "2.0"; }));
    QVERIFY(b.ok && !b.connect());
    QCOMPARE(messages.messages[0].kind, GuiMessages::Critical);
    QCOMPARE(messages.take(), QStringList({"Tavro-gui - Error: API version 2.0 not supported",
                                           "Tavro-gui - Warning: No units connected"}));
}

void GuiSimTest::statusString() {
    Bench b;
    QVERIFY(connectQuiet(b));
    const struct {
        int mode;
        uint16_t status;
        bool saving;
        const char* text;
        int state;
    } rows[] = {
        {0, 0x0C0, false, "Idle: Stopped, overrun", 0},
        {9, 0, false, "Uknown: Stopped", 0},
        {1, 0x4, false, "Run: Running", 2},
        {1, 0xC, false, "Run: Awaiting Trigger", 1},
        {2, 0x104, false, "RunProgram: Running, alarm", 2},
        {5, 0x184, false, "Demo: Running, overrun, alarm", 2},
        {4, 0x100, false, "Sleep: Stopped, alarm", 0},
        {1, 0x4, true, "Run: Running: Data file saving", 2},
        {0, 0x0, true, "Idle: Stopped", 0},
    };
    for (const auto& r : rows) {
        FileSave save;
        save.save = r.saving;
        b.control().setFileProcSave(save);
        NodeStatus s;
        s.mode = Mode(r.mode);
        s.status = r.status;
        b.control().sendStatusServe(s);
        b.gui.processStatus();
        QCOMPARE(b.statusBar(), QString(r.text));
        QCOMPARE(b.gui.getState(), r.state);
        QCOMPARE(b.gui.isRunning(), r.state != 0);
    }
}

void GuiSimTest::loginLogout() {
    SimGui b;
    QVERIFY(b.ok && b.connect());
    b.gui.changePassword();
    login(b.gui, "admin", "wrong");
    QVERIFY(!b.gui.isLoggedIn());
    QCOMPARE(messages.take(),
             QStringList({"Tavro-gui - Warning: You are not logged in to any units",
                          "Tavro-gui - Warning: Unable to login: Invalid user or password"}));
    login(b.gui, "admin", "tavro");
    QVERIFY(b.gui.isLoggedIn());
    QCOMPARE(b.gui.getUserid(), ZString("admin"));
    QVERIFY(b.unit.loggedIn());
    // A mismatch keeps the dialog open. The old password goes out empty:
    // the unit takes it from the user logged in, and the new one holds.
    bool stayedOpen = false;
    whenModal([&](QWidget* w) {
        w->findChild<QLineEdit*>("password1")->setText("newpw");
        w->findChild<QLineEdit*>("password2")->setText("other");
        w->findChild<QPushButton*>("setPassword")->click();
        stayedOpen = w->isVisible();
        w->findChild<QLineEdit*>("password2")->setText("newpw");
        w->findChild<QPushButton*>("setPassword")->click();
    });
    b.gui.changePassword();
    QVERIFY(stayedOpen);
    QCOMPARE(messages.messages[0].kind, GuiMessages::Critical);
    QCOMPARE(messages.take(), QStringList{"Tavro-gui - Error: Passwords do not match"});
    login(b.gui, "admin", "newpw");
    QCOMPARE(messages.texts(), QStringList());
    QVERIFY(b.gui.isLoggedIn());
    b.gui.logout();
    QVERIFY(!b.gui.isLoggedIn());
    QCOMPARE(b.gui.getUserid(), ZString());
    QVERIFY(!b.unit.loggedIn());
}

// A whole capture through the window: Connect, Run, the raw view's curves
// fill, the indicator and the status bar follow, Ctrl+S stops, Connect
// disconnects; "Clear" on the units page while connected lets go first.
void GuiSimTest::capture() {
    Bench b;
    QVERIFY(b.ok && !b.control().unitAdd(b.url(), b.url()));
    b.gui.show();
    QApplication::setActiveWindow(&b.gui);
    QVERIFY(QTest::qWaitForWindowActive(&b.gui));
    b.gui.getTabs()->setCurrentWidget(b.gui.getCaptureView());
    b.tool(0)->trigger();
    QVERIFY(b.gui.isConnected() && !b.gui.isLoggedIn() && b.connectIcon(true));
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
    // A continuous capture is drawn while it runs, not only at its end.
    QTRY_VERIFY_WITH_TIMEOUT(curveSize(view->getGraph()) > 1500, 10000);
    // The time axis follows the samples (1000 per second).
    QVERIFY(view->getGraph()->axisInterval(QwtPlot::xBottom).maxValue() >= 1.5);
    QTRY_COMPARE_WITH_TIMEOUT(b.statusBar(), QString("Run: Running"), 5000);
    QCOMPARE(b.gui.getStateLabel()->text(), QString("R"));
    QTest::keyClick(&b.gui, Qt::Key_S, Qt::ControlModifier);
    QVERIFY(!b.gui.isRunning());
    QCOMPARE(b.unit.mode(), Mode::Idle);
    QTRY_COMPARE_WITH_TIMEOUT(b.statusBar(), QString("Idle: Stopped"), 5000);
    QCOMPARE(b.gui.getStateLabel()->text(), QString("S"));
    b.tool(0)->trigger();
    QVERIFY(!b.gui.isConnected() && !b.control().unitsConnected() && b.connectIcon(false));
    b.gui.processStatus();
    QCOMPARE(b.statusBar(), QString("Not connected"));
    b.tool(0)->trigger();
    QVERIFY(b.gui.isConnected());
    b.gui.getUnitsView()->getButton("Clear")->click();
    QVERIFY(!b.gui.isConnected() && b.connectIcon(false));
    QCOMPARE(b.control().unitsNum(), 0u);
}

// A block without the Run bit ends the capture; the accumulated status
// decides what is said. Nobody shows the data, so the window drains it.
void GuiSimTest::captureFinished() {
    const QString e = "Tavro-gui - Error: Capture error: ";
    const struct {
        uint16_t status;
        QString text; // empty: nothing said
    } rows[] = {
        {0x40, e + "Overrun: 0x40\n"},   {0x80, e + "Overrun: 0x80\n"},
        {0x1C1, e + "Overrun: 0x1c1\n"}, {0x1, e + "0x1\n"},
        {0x8000, e + "0x8000\n"},        {0x130, QString()}, // end and alarm
    };
    for (const auto& r : rows) {
        GuiMessagesDouble messages;
        SimGui b;
        QVERIFY(b.ok && b.connect());
        QVERIFY(b.gui.isConnected());
        b.gui.stateSet(2);
        QVERIFY(!b.control().dataSetNumStreams(2));
        DataBlockFloat block;
        block.numChannels = 16;
        block.numSamples = 1;
        block.status = r.status;
        QVERIFY(!b.control().sendDataFloatQueue(*b.control().unitMaster(), block));
        QTRY_COMPARE_WITH_TIMEOUT(b.control().dataStatus(), r.status, 5000);
        QTRY_COMPARE_WITH_TIMEOUT(b.gui.getState(), 0, 5000);
        QTRY_COMPARE_WITH_TIMEOUT(b.control().dataAvailable(0), 0u, 5000);
        QCOMPARE(messages.texts(), r.text.isEmpty() ? QStringList() : QStringList{r.text});
        QVERIFY(!b.gui.isRunning());
    }
}

// The unit drops the link, or stops reporting its status: gone, said once.
void GuiSimTest::connectionLost() {
    for (bool drop : {true, false}) {
        GuiMessagesDouble messages;
        Bench b;
        QVERIFY(b.ok && b.connect());
        if (drop)
            b.unit.dropConnection();
        else
            b.unit.faultStopStatus(true);
        QTRY_VERIFY_WITH_TIMEOUT(!b.gui.isConnected(), 15000);
        QVERIFY(!b.control().unitsConnected());
        QCOMPARE(messages.texts(), QStringList{disconnected});
        QVERIFY(b.connectIcon(false));
        if (drop) {
            // Later status ticks add nothing.
            QTest::qWait(1500);
            QCOMPARE(messages.texts().size(), 1);
            QCOMPARE(b.statusBar(), QString("Not connected"));
        }
    }
}

// Three units over sixteen saved ones: entries 0 to 2 are written, the keys of
// 3 to 15 go; Clear removes every unit.
void GuiSimTest::save() {
    QVariantMap old{{"units/unitsNum", 16}, {"units/unitAutoConnect", true}};
    for (int n = 0; n < 16; n++)
        for (const char* field : {".device", ".serialNumber", ".enabled"})
            old[QString("units/unit%1").arg(n) + field] = "old";
    setSettings(old);
    Page p({"zoapn://10.0.0.1", "zoapu://T400-000002", "zoaps:///dev/ttyACM0"});
    p.control.unit(2)->setSerialNumber("T400-000002");
    p.page.update();
    p.cell(2, WUnits::ColEnable)->click();
    p.page.getButton("Save")->click();
    QCOMPARE(unitKeys(),
             QStringList({"units/unit0.device=zoapn://10.0.0.1", "units/unit0.enabled=true",
                          "units/unit0.serialNumber=", "units/unit1.device=zoapu://T400-000002",
                          "units/unit1.enabled=true", "units/unit1.serialNumber=T400-000002",
                          "units/unit2.device=zoaps:///dev/ttyACM0", "units/unit2.enabled=false",
                          "units/unit2.serialNumber=", "units/unitAutoConnect=true",
                          "units/unitsNum=3"}));
    p.page.getButton("Clear")->click();
    QCOMPARE(unitKeys(), QStringList({"units/unitAutoConnect=true", "units/unitsNum=0"}));
    QCOMPARE(p.control.unitsNum(), 0u);
    QCOMPARE(p.page.getTable()->rowCount(), 0);
}

// Saved entries, hostile ones included; read twice, no unit comes twice.
void GuiSimTest::readSettings() {
    const QStringList three = {"zoapn://10.0.0.1|T400-000001|true", "zoapu://T400-000002||false",
                               "zoaps:///dev/ttyACM0|T400-000003|true"};
    const struct {
        QVariant unitsNum;
        QStringList saved; // "device|serial|enabled" by index; empty for none
        QStringList expected;
    } rows[] = {
        {3,
         three,
         {"zoapn://10.0.0.1 T400-000001 on", "zoapu://T400-000002  off",
          "zoaps:///dev/ttyACM0 T400-000003 on"}},
        {1, three, {"zoapn://10.0.0.1 T400-000001 on"}},
        {3, {"zoapn://a|A|true", "", "zoapn://c|C|false"}, {"zoapn://a A on", "zoapn://c C off"}},
        {2000000000, {"zoapn://a|A"}, {"zoapn://a A on"}},
        {-3, {"zoapn://a|A"}, {}},
        {"many", {"zoapn://a|A"}, {}},
        {2, {"  |A|true", "zoapn://b|B|true"}, {"zoapn://b B on"}},
    };
    for (const auto& r : rows) {
        clearSettings();
        QVariantMap settings{{"units/unitsNum", r.unitsNum}};
        for (int n = 0; n < r.saved.size(); n++) {
            QStringList f = r.saved[n].split('|');
            QString key = QString("units/unit%1").arg(n);
            if (f.size() > 1) {
                settings[key + ".device"] = f[0];
                settings[key + ".serialNumber"] = f[1];
            }
            if (f.size() > 2)
                settings[key + ".enabled"] = f[2] == "true";
        }
        setSettings(settings);
        Page p;
        p.page.readSettings();
        QCOMPARE(p.units(), r.expected);
        QCOMPARE(p.rows(), r.expected);
        p.page.readSettings();
        QCOMPARE(p.units(), r.expected);
    }
}

// The two boxes come from the settings and are saved at once; enabling a
// unit applies the page's multi-connect choice again.
void GuiSimTest::flagsAndEnable() {
    setSettings({{"units/unitMultiConnect", true}, {"units/unitAutoConnect", true}});
    Page p({"zoapn://a", "zoapn://b"});
    p.page.readSettings();
    QVERIFY(p.page.getMultiConnect()->isChecked() && p.page.getAutoConnect()->isChecked());
    QVERIFY(p.control.multi());
    p.page.getMultiConnect()->click();
    p.page.getAutoConnect()->click();
    QVERIFY(!p.control.multi());
    QCOMPARE(unitKeys(),
             QStringList({"units/unitAutoConnect=false", "units/unitMultiConnect=false"}));
    p.page.getMultiConnect()->click();
    p.control.setMulti(false);
    p.cell(1, WUnits::ColEnable)->click();
    QCOMPARE(p.units(), QStringList({"zoapn://a  on", "zoapn://b  off"}));
    QVERIFY(p.control.multi());
}

// Up and Down move a unit, except past either end; the rebuilt rows know
// their own row.
void GuiSimTest::move() {
    const struct {
        int row;
        int column;
        const char* order;
    } rows[] = {{0, WUnits::ColUp, "abc"},
                {2, WUnits::ColDown, "abc"},
                {1, WUnits::ColUp, "bac"},
                {1, WUnits::ColDown, "acb"}};
    for (const auto& m : rows) {
        Page p({"zoapn://a", "zoapn://b", "zoapn://c"});
        p.cell(m.row, m.column)->click();
        QStringList expected;
        for (const char* c = m.order; *c; c++)
            expected << QString("zoapn://%1  on").arg(*c);
        QCOMPARE(p.units(), expected);
        QCOMPARE(p.rows(), expected);
        for (int r = 0; r < 3; r++)
            for (int c : {int(WUnits::ColEnable), int(WUnits::ColUp), int(WUnits::ColDown)})
                QCOMPARE(p.cell(r, c)->property("row").toInt(), r);
    }
}

// Blanks around the URL go; Cancel and an empty URL add nothing.
void GuiSimTest::addUnit() {
    const struct {
        bool accept;
        const char* text;
        QStringList expected;
    } rows[] = {{true, " zoapu://T400-000002 ", {"zoapu://T400-000002  on"}},
                {false, "zoapn://10.0.0.5", {}},
                {true, "", {}}};
    for (const auto& r : rows) {
        Page p;
        QStringList asked;
        whenModal([&](QWidget* w) {
            auto* dialog = qobject_cast<QInputDialog*>(w);
            if (!dialog) {
                w->close();
                return;
            }
            asked << dialog->windowTitle() << dialog->labelText() << dialog->textValue();
            dialog->setTextValue(r.text);
            r.accept ? dialog->accept() : dialog->reject();
        });
        p.page.getButton("Manual add unit")->click();
        QCOMPARE(asked, QStringList({"Add Unit", "Unit device URL:", "zoapn://"}));
        QCOMPARE(p.units(), r.expected);
        QCOMPARE(p.rows(), r.expected);
    }
}

void GuiSimTest::deleteUnit() {
    Page p({"zoapn://a", "zoapn://b", "zoapn://c"});
    // Units found on the network are named by their serial number.
    p.control.unitAdd("T400-000009", "zoapn://d");
    p.page.update();
    p.page.getButton("Delete unit")->click();
    QCOMPARE(messages.messages[0].kind, GuiMessages::Warning);
    QCOMPARE(messages.take(), QStringList{"Warning: No unit selected"});
    QCOMPARE(p.control.unitsNum(), 4u);
    for (int row : {1, 2}) {
        p.page.getTable()->selectRow(row);
        p.page.getButton("Delete unit")->click();
    }
    QCOMPARE(p.units(), QStringList({"zoapn://a  on", "zoapn://c  on"}));
    QCOMPARE(p.rows(), p.units());
}

void GuiSimTest::connectThroughWindow() {
    SimGui b;
    QVERIFY(b.ok);
    WUnits* page = b.gui.getUnitsView();
    b.control().unitAdd(b.url(), b.url());
    page->update();
    QTableWidget* t = page->getTable();
    QStringList headings;
    for (int c = 0; c < t->columnCount(); c++)
        headings << t->horizontalHeaderItem(c)->text();
    QCOMPARE(headings,
             QStringList({"Enable", "Up", "Down", "Connected", "Serial Number", "Unit", "Info"}));
    QCOMPARE(t->item(0, WUnits::ColInfo)->text(), QString());
    for (bool on : {true, false}) {
        page->getButton("Connect/Disconnect")->click();
        QCOMPARE(b.gui.isConnected(), on);
        QCOMPARE(iconImage(t->item(0, WUnits::ColConnected)->icon()),
                 iconImage(QIcon(on ? ":/images/connect_on.svg" : ":/images/connect_off.svg")));
        QCOMPARE(t->item(0, WUnits::ColSerial)->text() + " " + t->item(0, WUnits::ColInfo)->text(),
                 QString("T400-000001 Tavro-400 software 1.0.8, 16 channels"));
    }
    // The serial number learnt at connect is saved.
    page->save();
    QVERIFY(unitKeys().contains("units/unit0.serialNumber=T400-000001"));
}

// Connecting at start follows the setting, and so does the capture started
// after it; a disabled unit is no master.
void GuiSimTest::autoConnectAtStart() {
    const struct {
        bool autoConnect;
        bool enabled;
        bool autoRun;
        QStringList texts;
    } rows[] = {
        {true, true, false, {}},
        {true, true, true, {}},
        {false, true, true, {}},
        {true,
         false,
         false,
         {"Tavro-gui - Error: No master unit set", "Tavro-gui - Warning: No units connected"}}};
    for (const auto& r : rows) {
        clearSettings();
        SimGui b([&](const ZString& url) {
            setSettings({{"units/unitAutoConnect", r.autoConnect},
                         {"units/unitAutoRun", r.autoRun},
                         {"units/unitsNum", 1},
                         {"units/unit0.device", url.str()},
                         {"units/unit0.enabled", r.enabled}});
        });
        QVERIFY(b.ok);
        QCOMPARE(b.control().unitsNum(), 1u);
        QCOMPARE(b.gui.getUnitsView()->getAutoConnect()->isChecked(), r.autoConnect);
        if (r.autoConnect && r.enabled) {
            QTRY_VERIFY_WITH_TIMEOUT(b.gui.isConnected(), 10000);
        } else {
            QTest::qWait(500); // past the start-up call, 200 ms after init
            QVERIFY(!b.gui.isConnected());
        }
        QCOMPARE(b.gui.isRunning(), r.autoRun && b.gui.isConnected());
        QCOMPARE(b.unit.mode(), b.gui.isRunning() ? Mode::Run : Mode::Idle);
        QCOMPARE(messages.take(), r.texts);
    }
}

QTEST_MAIN(GuiSimTest)
#include "guisim_qtest.moc"
