// The firmware page against a simulated unit: the unit's versions, the
// package's version once picked, the refusal without a login, the version
// check and its force box, and an upload that the unit installs at reboot.

#include "control.h"
#include "guimessagesdouble.h"
#include "simgui.h"
#include "wconfigfirmware.h"
#include "zfirmbuild.h"

#include <QCheckBox>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QtTest>

class WConfigFirmwareTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { Q_INIT_RESOURCE(tavro); }
    void init() { clearSettings(); }
    void uploadToUnit();
};

void WConfigFirmwareTest::uploadToUnit() {
    GuiMessagesDouble messages;
    SimGui b;
    QVERIFY(b.ok);
    b.control().unitAdd(b.url(), b.url());
    b.gui.unitsConnect(true);
    QVERIFY(b.gui.isConnected());
    WConfigFirmware page(b.control(), &b.gui);
    page.update();
    QCOMPARE(page.value("Software Version"), QString("1.0.8"));

    QTemporaryDir tmp;
    const QString dir = tmp.path();
    const QString same = dir + "/tavro-40x-1.0.8.zfirm", next = dir + "/tavro-40x-2.7.9.zfirm";
    QVERIFY(!zfirmWriteFile(same.toUtf8().constData(), zfirmBuildPackageAll({1, 0, 8}, 2000)));
    QVERIFY(!zfirmWriteFile(next.toUtf8().constData(), zfirmBuildPackageAll({2, 7, 9}, 2000)));
    messages.fileAnswers << GuiMessagesDouble::FileAnswer{dir + "/missing.zfirm", QString()}
                         << GuiMessagesDouble::FileAnswer{next, QString()};
    page.findChild<QPushButton*>("Browse")->click();
    QCOMPARE(page.fileVersion(), QString("Invalid file"));
    page.firmwareSelect();
    QCOMPARE(page.fileVersion(), QString("2.7.9"));
    QCOMPARE(messages.fileAsks[1].caption, QString("Firmware browser"));
    QCOMPARE(messages.fileAsks[1].filter, QString("Firmware (tavro-40x-*.zfirm)"));
    QCOMPARE(messages.fileAsks[1].path, dir + "/missing.zfirm");

    QPushButton* all = page.findChild<QPushButton*>("Upload firmware");
    all->click();
    QCOMPARE(messages.texts(),
             QStringList{"Tavro-gui - Warning: Access denied. You need to be logged in to upload "
                         "new firmware."});

    whenModal([](QWidget* w) {
        w->findChild<QLineEdit*>("userid")->setText("admin");
        w->findChild<QLineEdit*>("password")->setText("tavro");
        w->findChild<QPushButton*>("login")->click();
    });
    b.gui.login();
    QVERIFY(b.gui.isLoggedIn());

    // The version the unit already runs: nothing goes unless forced.
    messages.clear();
    page.firmwareSetFile(same);
    page.findChild<QPushButton*>("Upload Cpu firmware")->click();
    QCOMPARE(messages.messages.size(), 1);
    QVERIFY(messages.texts()[0].startsWith("Tavro-gui: The unit already runs firmware 1.0.8."));
    page.findChild<QCheckBox*>()->setChecked(true);
    messages.clear();
    page.findChild<QPushButton*>("Upload Cpu firmware")->click();
    QCOMPARE(messages.texts(),
             QStringList{"Tavro-gui: Firmware upload complete, reboot to install"});

    messages.clear();
    QCOMPARE(page.uploadFirmware(next, 37), ZError("Uknown platform"));
    page.firmwareSetFile(next);
    all->click();
    QCOMPARE(messages.texts(),
             QStringList{"Tavro-gui: Firmware upload complete, reboot to install"});
    b.unit.reboot();
    QTRY_VERIFY_WITH_TIMEOUT(!b.unit.rebooting(), 5000);
    QCOMPARE(page.value("Software Version"), QString("1.0.8")); // the page's copy until re-read
    const TavroApi::NodeInfo info = b.unit.nodeInfo();
    QCOMPARE(QString::asprintf("%u.%u.%u", info.softwareVersion.ver0, info.softwareVersion.ver1,
                               info.softwareVersion.ver2),
             QString("2.7.9"));

    b.gui.unitsConnect(false);
    messages.clear();
    page.findChild<QPushButton*>("Upload Wifi firmware")->click();
    QCOMPARE(messages.texts(),
             QStringList{"Tavro-gui - Warning: Access denied. You need to be logged in to upload "
                         "new firmware."});
}

QTEST_MAIN(WConfigFirmwareTest)
#include "wconfigfirmware_qtest.moc"
