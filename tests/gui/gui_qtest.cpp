// The main window without units: menus, tool bar, shortcuts, the state
// indicator, the dialogs and what every action says while not connected.

#include "dialogchangepassword.h"
#include "dialoglogin.h"
#include "gui.h"
#include "guimessagesdouble.h"

#include <QAction>
#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QSettings>
#include <QStatusBar>
#include <QTabWidget>
#include <QTimer>
#include <QToolBar>
#include <QWidgetAction>
#include <QtTest>

#include <memory>

namespace {

std::unique_ptr<Gui> newGui(bool cal = false, bool demo = false, bool dev = false) {
    std::unique_ptr<Gui> gui(new Gui());
    if (gui->init("Tavro", ZString(), cal, demo, dev))
        return nullptr;
    return gui;
}

QImage iconImage(const QIcon& icon) {
    return icon.pixmap(32, 32).toImage();
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

// Runs f on the dialog as soon as it is shown modally.
template <class F>
void whenModal(F f) {
    QTimer::singleShot(0, [f]() {
        QWidget* w = QApplication::activeModalWidget();
        if (w)
            f(w);
    });
}

} // namespace

class GuiTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { Q_INIT_RESOURCE(tavro); }

    void menusAndToolBar();
    void shortcuts();
    void notConnected();
    void stateIndicator_data();
    void stateIndicator();
    void captureFinishedClean();
    void firmwareUpdatePages();
    void windowSizeSetting();
    void loginDialog();
    void changePasswordDialog();
    void about();
};

void GuiTest::menusAndToolBar() {
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
    QCOMPARE(tools[0]->text(), QString("&Connect"));
    QCOMPARE(tools[0]->statusTip(), QString("Units connect/disconnect"));
    QCOMPARE(tools[1]->text(), QString("&Run"));
    QCOMPARE(tools[1]->statusTip(), QString("Run capture"));
    QCOMPARE(tools[2]->text(), QString("&Stop"));
    QCOMPARE(tools[2]->statusTip(), QString("Stop capture"));
    QCOMPARE(tools[2]->shortcut(), QKeySequence(Qt::CTRL + Qt::Key_S));
    // The misspelt shortcut texts give no usable key.
    QVERIFY(tools[0]->shortcut() != QKeySequence(Qt::CTRL + Qt::Key_C));
    QVERIFY(tools[1]->shortcut() != QKeySequence(Qt::CTRL + Qt::Key_R));
    for (int i = 0; i < 3; i++)
        QVERIFY(!tools[i]->isCheckable());
    QCOMPARE(iconImage(tools[0]->icon()), iconImage(QIcon(":/images/connect_off.svg")));
    QCOMPARE(iconImage(tools[1]->icon()), iconImage(QIcon(":/images/run.svg")));
    QCOMPARE(iconImage(tools[2]->icon()), iconImage(QIcon(":/images/stop.svg")));
    QVERIFY(!iconImage(QIcon(":/images/connect_on.svg")).isNull());
    QVERIFY(iconImage(tools[0]->icon()) != iconImage(QIcon(":/images/connect_on.svg")));

    QLabel* state = gui->getStateLabel();
    QCOMPARE(bar->widgetForAction(tools[3]), state);
    QCOMPARE(state->text(), QString("S"));
    QCOMPARE(state->toolTip(), QString("Measuring status"));
    QCOMPARE(state->styleSheet(), QString());
    QCOMPARE(gui->getState(), -1);

    QCOMPARE(gui->statusBar()->currentMessage(), QString("Not connected"));
}

// Only Stop has a working shortcut: Ctrl+C and Ctrl+R do nothing.
void GuiTest::shortcuts() {
    GuiMessagesDouble messages;
    auto gui = newGui();
    QVERIFY(gui);
    gui->show();
    QApplication::setActiveWindow(gui.get());
    QVERIFY(QTest::qWaitForWindowActive(gui.get()));

    QTest::keyClick(gui.get(), Qt::Key_C, Qt::ControlModifier);
    QTest::keyClick(gui.get(), Qt::Key_R, Qt::ControlModifier);
    QCOMPARE(messages.texts(), QStringList());

    QTest::keyClick(gui.get(), Qt::Key_S, Qt::ControlModifier);
    QCOMPARE(messages.texts(), QStringList{"Tavro-gui - Error: Not connected to any units"});
    QCOMPARE(messages.messages[0].kind, GuiMessages::Critical);

    // The tool bar's Connect and Run are reached by their buttons.
    messages.clear();
    gui->getConnectAction()->trigger();
    QCOMPARE(messages.texts().value(messages.texts().size() - 1),
             QString("Tavro-gui - Warning: No units connected"));
}

void GuiTest::notConnected() {
    GuiMessagesDouble messages;
    auto gui = newGui();
    QVERIFY(gui);

    gui->run(false);
    QVERIFY(!gui->isRunning());
    gui->login();
    gui->logout();
    gui->changePassword();
    QCOMPARE(messages.texts(),
             QStringList({"Tavro-gui - Error: Not connected to any units",
                          "Tavro-gui - Warning: You are not connected to any units",
                          "Tavro-gui - Warning: You are not connected to any units",
                          "Tavro-gui - Warning: You are not connected to any units"}));
    QCOMPARE(messages.messages[0].kind, GuiMessages::Critical);
    QCOMPARE(messages.messages[1].kind, GuiMessages::Warning);

    // Connecting with no units at all.
    messages.clear();
    gui->unitsConnect(true);
    QVERIFY(!gui->isConnected());
    QCOMPARE(messages.texts().last(), QString("Tavro-gui - Warning: No units connected"));
    QCOMPARE(iconImage(gui->getConnectAction()->icon()),
             iconImage(QIcon(":/images/connect_off.svg")));

    // Disconnecting while not connected does nothing.
    messages.clear();
    gui->unitsConnect(false);
    QCOMPARE(messages.texts(), QStringList());

    // A lost connection is reported once.
    gui->unitsDisconnected();
    gui->unitsConnectionGone();
    gui->unitsDisconnected();
    QCOMPARE(messages.texts(),
             QStringList{"Tavro-gui - Error: One or more units have disconnected"});
    QCOMPARE(messages.messages[0].kind, GuiMessages::Warning);

    gui->processStatus();
    QCOMPARE(gui->statusString(), ZString("Not connected"));
    QCOMPARE(gui->statusBar()->currentMessage(), QString("Not connected"));
}

void GuiTest::stateIndicator_data() {
    QTest::addColumn<int>("n");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("style");
    QTest::newRow("stopped") << 0 << "S"
                             << "QLabel { margin: 10px; background-color : red; }";
    QTest::newRow("trigger") << 1 << "T"
                             << "QLabel { margin: 10px; background-color : yellow; }";
    QTest::newRow("running") << 2 << "R"
                             << "QLabel { margin: 10px; background-color : green; }";
}

void GuiTest::stateIndicator() {
    QFETCH(int, n);
    auto gui = newGui();
    QVERIFY(gui);
    QLabel* label = gui->getStateLabel();
    gui->stateSet(n);
    QCOMPARE(gui->getState(), n);
    QTEST(label->text(), "text");
    QTEST(label->styleSheet(), "style");

    // The same state again leaves the label alone.
    label->setText("x");
    gui->stateSet(n);
    QCOMPARE(label->text(), QString("x"));
    // Values outside the three states are ignored.
    gui->stateSet(3);
    gui->stateSet(-1);
    QCOMPARE(gui->getState(), n);
    QCOMPARE(label->text(), QString("x"));
}

// A capture ending without error bits says nothing.
void GuiTest::captureFinishedClean() {
    GuiMessagesDouble messages;
    auto gui = newGui();
    QVERIFY(gui);
    gui->stateSet(2);
    gui->dataCaptureFinished();
    QVERIFY(!gui->isRunning());
    QCOMPARE(gui->getState(), 0);
    QCOMPARE(gui->getStateLabel()->text(), QString("S"));
    QCOMPARE(messages.texts(), QStringList());
}

void GuiTest::firmwareUpdatePages() {
    auto gui = newGui(false, true, true);
    QVERIFY(gui);
    QTabWidget* tabs = gui->getTabs();
    gui->firmwareUpdate();
    QCOMPARE(tabs->tabText(tabs->currentIndex()), QString("Config"));
    QStringList disabled;
    for (int i = 0; i < tabs->count(); i++) {
        if (!tabs->widget(i)->isEnabled())
            disabled << tabs->tabText(i);
    }
    QCOMPARE(disabled, QStringList({"Status", "Units", "Channel Config", "Raw Data",
                                    "Processed Data", "Data Log", "Calibrate", "Capture Demo"}));
    gui->firmwareUpdateClear();
    for (int i = 0; i < tabs->count(); i++)
        QVERIFY(tabs->widget(i)->isEnabled());
}

void GuiTest::windowSizeSetting() {
    QSize size;
    {
        auto gui = newGui();
        QVERIFY(gui);
        gui->show();
        size = gui->minimumSizeHint().expandedTo(QSize(900, 610)) + QSize(37, 23);
        gui->resize(size);
        gui->close();
    }
    QCOMPARE(QSettings("Korvel", "Tavro-gui").value("windowSize").toSize(), size);
    auto gui = newGui();
    QVERIFY(gui);
    QCOMPARE(gui->size(), size);

    // Every page, demo and calibration ones included, fits a 1280 x 800
    // screen less a panel and the window frame.
    auto all = newGui(true, true, true);
    QVERIFY(all);
    QVERIFY(all->minimumSizeHint().width() <= 1200);
    QVERIFY(all->minimumSizeHint().height() <= 700);
}

void GuiTest::loginDialog() {
    DialogLogin dialog;
    QLineEdit* password = dialog.findChild<QLineEdit*>("password");
    QVERIFY(password);
    QCOMPARE(password->echoMode(), QLineEdit::Password);
    QCOMPARE(dialog.findChild<QLineEdit*>("userid")->echoMode(), QLineEdit::Normal);

    whenModal([](QWidget* w) {
        w->findChild<QLineEdit*>("userid")->setText("admin");
        w->findChild<QLineEdit*>("password")->setText("s3cret");
        w->findChild<QPushButton*>("login")->click();
    });
    QString userid, pass;
    QVERIFY(dialog.process(userid, pass));
    QCOMPARE(userid, QString("admin"));
    QCOMPARE(pass, QString("s3cret"));

    whenModal([](QWidget* w) { w->findChild<QPushButton*>("cancel")->click(); });
    userid.clear();
    QVERIFY(!dialog.process(userid, pass));
    QCOMPARE(userid, QString());
}

void GuiTest::changePasswordDialog() {
    GuiMessagesDouble messages;
    DialogChangePassword dialog;
    QLineEdit* p1 = dialog.findChild<QLineEdit*>("password1");
    QLineEdit* p2 = dialog.findChild<QLineEdit*>("password2");
    QPushButton* set = dialog.findChild<QPushButton*>("setPassword");
    QVERIFY(p1 && p2 && set);
    QCOMPARE(p1->echoMode(), QLineEdit::Password);
    QCOMPARE(p2->echoMode(), QLineEdit::Password);
    QCOMPARE(set->text(), QString("Set Password"));

    // A mismatch keeps the dialog open; matching texts close it.
    bool stayedOpen = false;
    whenModal([&](QWidget* w) {
        w->findChild<QLineEdit*>("password1")->setText("one");
        w->findChild<QLineEdit*>("password2")->setText("two");
        w->findChild<QPushButton*>("setPassword")->click();
        stayedOpen = w->isVisible();
        w->findChild<QLineEdit*>("password2")->setText("one");
        w->findChild<QPushButton*>("setPassword")->click();
    });
    QString password;
    QVERIFY(dialog.process(password));
    QVERIFY(stayedOpen);
    QCOMPARE(password, QString("one"));
    QCOMPARE(messages.texts(), QStringList{"Tavro-gui - Error: Passwords do not match"});
    QCOMPARE(messages.messages[0].kind, GuiMessages::Critical);

    whenModal([](QWidget* w) { w->findChild<QPushButton*>("cancel")->click(); });
    QVERIFY(!dialog.process(password));
}

void GuiTest::about() {
    GuiMessagesDouble messages;
    auto gui = newGui();
    QVERIFY(gui);
    gui->about();
    QCOMPARE(messages.messages.size(), 1);
    QCOMPARE(messages.messages[0].kind, GuiMessages::About);
    QCOMPARE(messages.messages[0].text, QString("<h3>Tavro-gui</h3><p>Tavro Version: 1.3.1</p>"));
}

QTEST_MAIN(GuiTest)
#include "gui_qtest.moc"
