// The status page: its rows without a unit and the value formats, a unit's
// status against a simulated unit, a stale status, and refreshing only
// while the page is on show.

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

const QStringList notConnectedRows = {
    "", "Not Connected", "", "", "", "", "", "", "", "", "", "", "", "", "", "", "", ""};

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
    void cleanup() { QCOMPARE(messages.texts(), QStringList()); }
    void notConnectedPage();
    void connectedAndStale();
    void refreshWhileVisible();

private:
    GuiMessagesDouble messages;
};

// The page without a unit; the value formats.
void WStatusTest::notConnectedPage() {
    Control control;
    WStatus page(control);
    QStringList labels;
    for (int row = 0; row < WStatus::RowNum; row++)
        labels << page.label(row);
    QCOMPARE(labels,
             QStringList({"Serial Number", "Unit Status", "Unit Mode", "Unit Time", "Ethernet Mode",
                          "Ethernet MAC", "Ethernet Address", "Ethernet Netmask", "Network Gateway",
                          "Network NameServer", "Network TimeServer", "Wifi Mode", "Wifi MAC",
                          "Wifi Address", "Wifi Netmask", "Wifi Gateway", "Wifi Status",
                          "Calibration Date"}));
    QCOMPARE(page.value(WStatus::RowNum), QString());
    page.update();
    QCOMPARE(values(page), notConnectedRows);
    const uint8_t mac[6] = {0x00, 0x01, 0x8A, 0xFE, 0xFF, 0xA0};
    QCOMPARE(WStatus::macString(mac), ZString("00:01:8A:FE:FF:A0"));
    QCOMPARE(WStatus::dottedString(0xFFFFFFFF), ZString("255.255.255.255"));
    QStringList names;
    for (uint32_t m : {0u, 1u, 2u, 3u, 0xFFFFFFFFu})
        names << WStatus::networkModeName(m).str();
    QCOMPARE(names, QStringList({"Off", "DHCP", "Manual", "3", "4294967295"}));
    names.clear();
    for (unsigned int m : {0, 1, 2, 3, 4, 5, 6, 255})
        names << WStatus::modeName(m).str();
    QCOMPARE(names, QStringList({"Idle", "Run", "RunProgram", "Internal", "Sleep", "Demo", "Uknown",
                                 "Uknown"}));
}

// The rows of a unit's status; a status older than five seconds counts as
// no connection, while the connection itself stays; a disconnection too.
void WStatusTest::connectedAndStale() {
    SimGui b;
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
    QCOMPARE(values(*page),
             QStringList({"T400-000001", "Uknown: Stopped", "Uknown", "2025-06-30 23:59:58", "DHCP",
                          WStatus::macString(info.networkMacAddress).str(), "192.168.1.57",
                          "255.255.255.0", "192.168.1.1", "192.168.1.1", "192.168.1.1", "Off",
                          WStatus::macString(info.wifiMacAddress).str(), "0.0.0.0", "0.0.0.0",
                          "0.0.0.0", "Wifi is connected, no Internet", "2024-01-15 09:30:00"}));
    sendMode(b, Mode::Idle);
    page->update();
    QCOMPARE(page->value(WStatus::RowUnitMode), QString("Idle"));
    QTRY_VERIFY_WITH_TIMEOUT((page->update(), page->value(WStatus::RowUnitMode).isEmpty()), 15000);
    QCOMPARE(values(*page), notConnectedRows);
    QVERIFY(b.gui.isConnected() && b.control().unitsConnected());
    sendMode(b, Mode::Idle);
    b.gui.unitsConnect(false);
    page->update();
    QCOMPARE(values(*page), notConnectedRows);
}

void WStatusTest::refreshWhileVisible() {
    SimGui b;
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
}

QTEST_MAIN(WStatusTest)
#include "wstatus_qtest.moc"
