// The status page: its rows, the value formats, "Not Connected" (no unit,
// no window, a status that stopped coming) and the refresh that runs only
// while the page is visible, against a simulated unit.

#include "control.h"
#include "guimessagesdouble.h"
#include "simgui.h"
#include "wstatus.h"

#include <QTabWidget>
#include <QtTest>

using namespace TavroApi;

namespace {

QStringList values(const WStatus& page) {
    QStringList list;
    for (int row = 0; row < WStatus::RowNum; row++)
        list << page.value(row);
    return list;
}

const QStringList notConnected = {
    "", "Not Connected", "", "", "", "", "", "", "", "", "", "", "", "", "", "", "", ""};

// Connected, with the unit's status pushes and the window's status check
// off: only the statuses a test sends count.
bool connectQuiet(SimGui& b) {
    b.control().unitAdd(b.url(), b.url());
    b.gui.unitsConnect(true);
    b.unit.faultStopStatus(true);
    b.gui.enableStatus(false);
    return b.gui.isConnected();
}

void sendMode(SimGui& b, Mode mode) {
    NodeStatus status;
    status.mode = mode;
    b.control().sendStatusServe(status);
}

} // namespace

class WStatusTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { Q_INIT_RESOURCE(tavro); }
    void init() { clearSettings(); }

    void formats_data();
    void formats();
    void notConnectedPage();
    void connectedPage();
    void staleStatus();
    void refreshWhileVisible();
};

void WStatusTest::formats_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");

    const uint8_t mac1[6] = {0x0A, 0x1B, 0x2C, 0x3D, 0x4E, 0x5F};
    const uint8_t mac2[6] = {0x00, 0x01, 0x80, 0xFE, 0xFF, 0xA0};
    auto row = [](const char* name, const ZString& text, const char* expected) {
        QTest::newRow(name) << QString(text.str()) << QString(expected);
    };
    row("mac", WStatus::macString(mac1), "0A:1B:2C:3D:4E:5F");
    row("mac edges", WStatus::macString(mac2), "00:01:80:FE:FF:A0");
    row("address", WStatus::dottedString(0xC0A80139), "192.168.1.57");
    row("address zero", WStatus::dottedString(0), "0.0.0.0");
    row("address all", WStatus::dottedString(0xFFFFFFFF), "255.255.255.255");
    row("network off", WStatus::networkModeName(0), "Off");
    row("network dhcp", WStatus::networkModeName(1), "DHCP");
    row("network manual", WStatus::networkModeName(2), "Manual");
    row("network past list", WStatus::networkModeName(3), "3");
    row("network huge", WStatus::networkModeName(0xFFFFFFFF), "4294967295");
    const char* const modes[] = {"Idle", "Run", "RunProgram", "Internal", "Sleep", "Demo"};
    for (unsigned int m = 0; m < 6; m++)
        row(modes[m], WStatus::modeName(m), modes[m]);
    row("mode 6", WStatus::modeName(6), "Uknown");
    row("mode 255", WStatus::modeName(255), "Uknown");
}

void WStatusTest::formats() {
    QFETCH(QString, text);
    QTEST(text, "expected");
}

void WStatusTest::notConnectedPage() {
    // Without a main window.
    Control control;
    WStatus alone(control);
    QStringList labels;
    for (int row = 0; row < WStatus::RowNum; row++)
        labels << alone.label(row);
    QCOMPARE(labels,
             QStringList({"Serial Number", "Unit Status", "Unit Mode", "Unit Time", "Ethernet Mode",
                          "Ethernet MAC", "Ethernet Address", "Ethernet Netmask", "Network Gateway",
                          "Network NameServer", "Network TimeServer", "Wifi Mode", "Wifi MAC",
                          "Wifi Address", "Wifi Netmask", "Wifi Gateway", "Wifi Status",
                          "Calibration Date"}));
    QCOMPARE(alone.value(WStatus::RowNum), QString());
    alone.update();
    QCOMPARE(values(alone), notConnected);

    // In the window, before and after a connection.
    GuiMessagesDouble messages;
    SimGui b;
    QVERIFY(b.ok);
    WStatus* page = b.gui.getStatusView();
    page->update();
    QCOMPARE(values(*page), notConnected);
    QVERIFY(connectQuiet(b));
    page->update();
    QCOMPARE(page->value(WStatus::RowSerialNumber), QString("T400-000001"));
    b.gui.unitsConnect(false);
    page->update();
    QCOMPARE(values(*page), notConnected);
    QCOMPARE(messages.texts(), QStringList());
}

void WStatusTest::connectedPage() {
    GuiMessagesDouble messages;
    SimGui b;
    QVERIFY(b.ok);
    QVERIFY(connectQuiet(b));
    NodeStatus status;
    status.mode = Mode(6);
    status.time = ZTimeUs(ZTime(2025, 6, 30, 23, 59, 58));
    status.time.addMicroSeconds(999999);
    status.wifiStatus = 3;
    b.control().sendStatusServe(status);
    b.gui.processStatus();

    WStatus* page = b.gui.getStatusView();
    page->update();
    const Information info = b.unit.information();
    QString mac = WStatus::macString(info.networkMacAddress).str();
    QString wifiMac = WStatus::macString(info.wifiMacAddress).str();
    QVERIFY(QRegularExpression("^70:B3:D5(:[0-9A-F]{2}){3}$").match(mac).hasMatch());
    QCOMPARE(values(*page),
             QStringList({"T400-000001", "Uknown: Stopped", "Uknown", "2025-06-30 23:59:58", "DHCP",
                          mac, "192.168.1.57", "255.255.255.0", "192.168.1.1", "192.168.1.1",
                          "192.168.1.1", "Off", wifiMac, "0.0.0.0", "0.0.0.0", "0.0.0.0",
                          "Wifi is connected, no Internet", "2024-01-15 09:30:00"}));
    QCOMPARE(messages.texts(), QStringList());
}

// A status older than five seconds counts as no connection, while the
// connection itself stays.
void WStatusTest::staleStatus() {
    GuiMessagesDouble messages;
    SimGui b;
    QVERIFY(b.ok);
    QVERIFY(connectQuiet(b));
    sendMode(b, Mode::Idle);
    WStatus* page = b.gui.getStatusView();
    page->update();
    QCOMPARE(page->value(WStatus::RowUnitMode), QString("Idle"));
    QTRY_VERIFY_WITH_TIMEOUT((page->update(), page->value(WStatus::RowUnitMode).isEmpty()), 15000);
    QCOMPARE(values(*page), notConnected);
    QVERIFY(b.gui.isConnected());
    QVERIFY(b.control().unitsConnected());
    QCOMPARE(messages.texts(), QStringList());
}

void WStatusTest::refreshWhileVisible() {
    GuiMessagesDouble messages;
    SimGui b;
    QVERIFY(b.ok);
    QVERIFY(connectQuiet(b));
    WStatus* page = b.gui.getStatusView();
    QTabWidget* tabs = b.gui.getTabs();
    QCOMPARE(tabs->indexOf(page), 0);
    QVERIFY(!page->isRefreshing());

    // Shown: filled at once, then refreshed by the timer.
    sendMode(b, Mode::Run);
    b.gui.show();
    QVERIFY(page->isRefreshing());
    QCOMPARE(page->value(WStatus::RowUnitMode), QString("Run"));
    sendMode(b, Mode::Sleep);
    QTRY_COMPARE_WITH_TIMEOUT(page->value(WStatus::RowUnitMode), QString("Sleep"), 5000);

    // Another tab: no refresh.
    tabs->setCurrentIndex(1);
    QVERIFY(!page->isRefreshing());
    sendMode(b, Mode::Internal);
    QTest::qWait(1500);
    QCOMPARE(page->value(WStatus::RowUnitMode), QString("Sleep"));

    // Back: refreshed at once.
    tabs->setCurrentIndex(0);
    QVERIFY(page->isRefreshing());
    QCOMPARE(page->value(WStatus::RowUnitMode), QString("Internal"));
    b.gui.hide();
    QVERIFY(!page->isRefreshing());
    QCOMPARE(messages.texts(), QStringList());
}

QTEST_MAIN(WStatusTest)
#include "wstatus_qtest.moc"
