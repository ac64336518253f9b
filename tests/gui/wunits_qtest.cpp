// The units page: the settings it saves, reads and clears, moving, enabling,
// adding and deleting units, and connecting through the main window against
// a simulated unit (also at start, from the settings).

#include "control.h"
#include "guimessagesdouble.h"
#include "simgui.h"
#include "wunits.h"

#include <QCheckBox>
#include <QInputDialog>
#include <QPushButton>
#include <QTableWidget>
#include <QtTest>

namespace {

QImage iconImage(const QIcon& icon) {
    return icon.pixmap(32, 32).toImage();
}

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

class WUnitsTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { Q_INIT_RESOURCE(tavro); }
    void init() { clearSettings(); }

    void save();
    void readSettings_data();
    void readSettings();
    void flags();
    void move_data();
    void move();
    void enable();
    void addUnit_data();
    void addUnit();
    void deleteUnit();
    void clear();
    void connectThroughWindow();
    void autoConnectAtStart_data();
    void autoConnectAtStart();
};

// Three units over sixteen saved ones: entries 0 to 2 are written, the keys of
// 3 to 15 go.
void WUnitsTest::save() {
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
}

void WUnitsTest::readSettings_data() {
    QTest::addColumn<QVariant>("unitsNum");
    // Saved entries by index as "device|serial|enabled"; empty for none.
    QTest::addColumn<QStringList>("saved");
    QTest::addColumn<QStringList>("expected");

    const QStringList three = {"zoapn://10.0.0.1|T400-000001|true", "zoapu://T400-000002||false",
                               "zoaps:///dev/ttyACM0|T400-000003|true"};
    QTest::newRow("three") << QVariant(3) << three
                           << QStringList{"zoapn://10.0.0.1 T400-000001 on",
                                          "zoapu://T400-000002  off",
                                          "zoaps:///dev/ttyACM0 T400-000003 on"};
    QTest::newRow("count below entries")
        << QVariant(1) << three << QStringList{"zoapn://10.0.0.1 T400-000001 on"};
    QTest::newRow("gap") << QVariant(3) << QStringList{"zoapn://a|A|true", "", "zoapn://c|C|false"}
                         << QStringList{"zoapn://a A on", "zoapn://c C off"};
    QTest::newRow("huge count") << QVariant(2000000000) << QStringList{"zoapn://a|A"}
                                << QStringList{"zoapn://a A on"};
    QTest::newRow("negative count") << QVariant(-3) << QStringList{"zoapn://a|A"} << QStringList();
    QTest::newRow("count not a number")
        << QVariant("many") << QStringList{"zoapn://a|A"} << QStringList();
    QTest::newRow("blank device") << QVariant(2) << QStringList{"  |A|true", "zoapn://b|B|true"}
                                  << QStringList{"zoapn://b B on"};
}

void WUnitsTest::readSettings() {
    QFETCH(QVariant, unitsNum);
    QFETCH(QStringList, saved);
    QVariantMap settings{{"units/unitsNum", unitsNum}};
    for (int n = 0; n < saved.size(); n++) {
        QStringList f = saved[n].split('|');
        QString key = QString("units/unit%1").arg(n);
        if (f.size() > 1) {
            settings[key + ".device"] = f[0];
            settings[key + ".serialNumber"] = f[1];
        }
        if (f.size() > 2)
            settings[key + ".enabled"] = f[2] == "true";
    }
    setSettings(settings);
    GuiMessagesDouble messages;
    Page p;
    p.page.readSettings();
    QTEST(p.units(), "expected");
    QTEST(p.rows(), "expected");
    // Read again: no unit twice.
    p.page.readSettings();
    QTEST(p.units(), "expected");
    QCOMPARE(messages.texts(), QStringList());
}

void WUnitsTest::flags() {
    setSettings({{"units/unitMultiConnect", true}, {"units/unitAutoConnect", true}});
    Page p;
    p.page.readSettings();
    QVERIFY(p.page.getMultiConnect()->isChecked());
    QVERIFY(p.page.getAutoConnect()->isChecked());
    QVERIFY(p.control.multi());

    p.page.getMultiConnect()->click();
    p.page.getAutoConnect()->click();
    QVERIFY(!p.control.multi());
    QCOMPARE(unitKeys(),
             QStringList({"units/unitAutoConnect=false", "units/unitMultiConnect=false"}));
    p.page.getMultiConnect()->click();
    QVERIFY(p.control.multi());
    QCOMPARE(unitKeys(),
             QStringList({"units/unitAutoConnect=false", "units/unitMultiConnect=true"}));
}

void WUnitsTest::move_data() {
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("column");
    QTest::addColumn<QString>("order");

    QTest::newRow("first up") << 0 << int(WUnits::ColUp) << "abc";
    QTest::newRow("last down") << 2 << int(WUnits::ColDown) << "abc";
    QTest::newRow("middle up") << 1 << int(WUnits::ColUp) << "bac";
    QTest::newRow("middle down") << 1 << int(WUnits::ColDown) << "acb";
    QTest::newRow("first down") << 0 << int(WUnits::ColDown) << "bac";
    QTest::newRow("last up") << 2 << int(WUnits::ColUp) << "acb";
}

void WUnitsTest::move() {
    QFETCH(int, row);
    QFETCH(int, column);
    QFETCH(QString, order);
    Page p({"zoapn://a", "zoapn://b", "zoapn://c"});
    p.cell(row, column)->click();
    QStringList expected;
    for (QChar c : order)
        expected << QString("zoapn://%1  on").arg(c);
    QCOMPARE(p.units(), expected);
    QCOMPARE(p.rows(), expected);
    // The rebuilt rows know their own row.
    for (int r = 0; r < 3; r++)
        for (int c : {int(WUnits::ColEnable), int(WUnits::ColUp), int(WUnits::ColDown)})
            QCOMPARE(p.cell(r, c)->property("row").toInt(), r);
}

// Enabling a unit applies the page's multi-connect choice again.
void WUnitsTest::enable() {
    Page p({"zoapn://a", "zoapn://b"});
    p.page.getMultiConnect()->click();
    p.control.setMulti(false);
    p.cell(1, WUnits::ColEnable)->click();
    QCOMPARE(p.units(), QStringList({"zoapn://a  on", "zoapn://b  off"}));
    QVERIFY(p.control.multi());
    p.cell(1, WUnits::ColEnable)->click();
    QCOMPARE(p.units(), QStringList({"zoapn://a  on", "zoapn://b  on"}));
}

void WUnitsTest::addUnit_data() {
    QTest::addColumn<bool>("accept");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("blanks around")
        << true << " zoapu://T400-000002 " << QStringList{"zoapu://T400-000002  on"};
    QTest::newRow("cancel") << false << "zoapn://10.0.0.5" << QStringList();
    QTest::newRow("empty") << true << "" << QStringList();
}

void WUnitsTest::addUnit() {
    QFETCH(bool, accept);
    QFETCH(QString, text);
    Page p;
    QStringList asked;
    whenModal([&](QWidget* w) {
        auto* dialog = qobject_cast<QInputDialog*>(w);
        if (!dialog) {
            w->close();
            return;
        }
        asked << dialog->windowTitle() << dialog->labelText() << dialog->textValue();
        dialog->setTextValue(text);
        accept ? dialog->accept() : dialog->reject();
    });
    p.page.getButton("Manual add unit")->click();
    QCOMPARE(asked, QStringList({"Add Unit", "Unit device URL:", "zoapn://"}));
    QTEST(p.units(), "expected");
    QTEST(p.rows(), "expected");
}

void WUnitsTest::deleteUnit() {
    GuiMessagesDouble messages;
    Page p({"zoapn://a", "zoapn://b", "zoapn://c"});
    // Units found on the network are named by their serial number.
    p.control.unitAdd("T400-000009", "zoapn://d");
    p.page.update();
    p.page.getButton("Delete unit")->click();
    QCOMPARE(messages.texts(), QStringList{"Warning: No unit selected"});
    QCOMPARE(messages.messages[0].kind, GuiMessages::Warning);
    QCOMPARE(p.control.unitsNum(), 4u);

    messages.clear();
    for (int row : {1, 2}) {
        p.page.getTable()->selectRow(row);
        p.page.getButton("Delete unit")->click();
    }
    QCOMPARE(p.units(), QStringList({"zoapn://a  on", "zoapn://c  on"}));
    QCOMPARE(p.rows(), p.units());
    QCOMPARE(messages.texts(), QStringList());
}

void WUnitsTest::clear() {
    QVariantMap saved{{"units/unitMultiConnect", true}, {"units/unitsNum", 20}};
    for (int n = 0; n < 20; n++)
        for (const char* field : {".device", ".serialNumber", ".enabled"})
            saved[QString("units/unit%1").arg(n) + field] = QString("zoapn://%1").arg(n);
    setSettings(saved);
    Page p;
    p.page.readSettings();
    QCOMPARE(p.control.unitsNum(), 20u);
    p.page.getButton("Clear")->click();
    QCOMPARE(unitKeys(), QStringList({"units/unitMultiConnect=true", "units/unitsNum=0"}));
    QCOMPARE(p.control.unitsNum(), 0u);
    QCOMPARE(p.page.getTable()->rowCount(), 0);
}

void WUnitsTest::connectThroughWindow() {
    GuiMessagesDouble messages;
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
        QCOMPARE(t->item(0, WUnits::ColSerial)->text(), QString("T400-000001"));
        QCOMPARE(t->item(0, WUnits::ColUnit)->text(), QString(b.url().str()));
        QCOMPARE(t->item(0, WUnits::ColInfo)->text(),
                 QString("Tavro-400 software 1.0.8, 16 channels"));
    }
    QCOMPARE(messages.texts(), QStringList());
    // The serial number learnt at connect is saved.
    page->save();
    QVERIFY(unitKeys().contains("units/unit0.serialNumber=T400-000001"));
}

void WUnitsTest::autoConnectAtStart_data() {
    QTest::addColumn<bool>("autoConnect");
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<QStringList>("texts");

    QTest::newRow("auto") << true << true << QStringList();
    QTest::newRow("not auto") << false << true << QStringList();
    QTest::newRow("auto, unit disabled") << true << false
                                         << QStringList{"Tavro-gui - Error: No master unit set",
                                                        "Tavro-gui - Warning: No units connected"};
}

void WUnitsTest::autoConnectAtStart() {
    QFETCH(bool, autoConnect);
    QFETCH(bool, enabled);
    GuiMessagesDouble messages;
    SimGui b([&](const ZString& url) {
        setSettings({{"units/unitAutoConnect", autoConnect},
                     {"units/unitsNum", 1},
                     {"units/unit0.device", url.str()},
                     {"units/unit0.enabled", enabled}});
    });
    QVERIFY(b.ok);
    QCOMPARE(b.control().unitsNum(), 1u);
    QCOMPARE(b.gui.getUnitsView()->getAutoConnect()->isChecked(), autoConnect);
    if (autoConnect && enabled) {
        QTRY_VERIFY_WITH_TIMEOUT(b.gui.isConnected(), 10000);
    } else {
        QTest::qWait(500); // past the start-up call, 200 ms after init
        QVERIFY(!b.gui.isConnected());
    }
    QTEST(messages.texts(), "texts");
}

QTEST_MAIN(WUnitsTest)
#include "wunits_qtest.moc"
