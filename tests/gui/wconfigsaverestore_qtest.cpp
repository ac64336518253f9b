// The save/restore page against a simulated unit: nothing without a unit,
// the save dialog and file, and restores that are refused, fail, are
// declined and go through.

#include "control.h"
#include "guimessagesdouble.h"
#include "simserver.h"
#include "simunit.h"
#include "tavro.h"
#include "wconfigsaverestore.h"

#include <QFile>
#include <QPushButton>
#include <QTemporaryDir>
#include <QtTest>

using namespace TavroApi;

class WConfigSaveRestoreTest : public QObject {
    Q_OBJECT
private slots:
    void saveAndRestore();
};

void WConfigSaveRestoreTest::saveAndRestore() {
    TavroSim::SimOptions options;
    options.rebootMs = 50;
    TavroSim::SimUnit unit(options);
    TavroSim::SimTcpServer server(unit);
    Control control;
    QVERIFY(!server.start("127.0.0.1", 0) && !control.init());
    GuiMessagesDouble messages;
    WConfigSaveRestore page(control);
    QTemporaryDir dir;
    const QString saved = dir.filePath("unit.zconfig");

    page.getSaveButton()->click();
    page.getRestoreButton()->click();
    QVERIFY(messages.fileAsks.isEmpty());

    QVERIFY(!(control.unitAdd("u", "zoapn://127.0.0.1:" + ZString(unsigned(server.port()))) ||
              control.unitsConnect()));
    Configuration config = unit.configuration();
    setCharArray(config.name, "Saved");
    QVERIFY(!unit.setConfiguration(config));
    messages.fileAnswers << GuiMessagesDouble::FileAnswer{saved, QString()};
    page.getSaveButton()->click();
    QCOMPARE(messages.fileAsks.size(), 1);
    const GuiMessagesDouble::FileAsk ask = messages.fileAsks[0];
    QCOMPARE(int(ask.kind), int(GuiMessages::SaveFile));
    QCOMPARE(ask.filter, QString("Tavro config [*.zconfig] (*.zconfig)"));
    QVERIFY2(QRegularExpression("^tavro-config_T400-000001_[0-9_-]{19}\\.zconfig$")
                 .match(ask.path)
                 .hasMatch(),
             qPrintable(ask.path));
    QFile file(saved);
    QVERIFY(file.open(QIODevice::ReadOnly) &&
            file.readAll().startsWith("[file]\ntype: zconfig\nversion: 0\n[boardConfig]\n"));

    auto write = [&](const char* name, const char* text) {
        QFile f(dir.filePath(name));
        return f.open(QIODevice::WriteOnly) && f.write(text) > 0 ? f.fileName() : QString();
    };
    const QString other = write("other.zconfig", "[file]\ntype: zconf\n[configuration]\nname: X\n");
    const QString nameOnly =
        write("name.zconfig", "[file]\ntype: zconfig\n[configuration]\nname: Only name\n");
    setCharArray(config.name, "Changed");
    QVERIFY(!unit.setConfiguration(config));
    auto restore = [&](const QString& name, QMessageBox::StandardButton answer) {
        messages.clear();
        messages.answers << answer;
        messages.fileAnswers << GuiMessagesDouble::FileAnswer{name, QString()};
        page.getRestoreButton()->click();
        return messages.texts();
    };
    const QString question = "Question: Are you sure you want to reload the configuration of the "
                             "unit (Unit will reboot after this)?";
    QCOMPARE(restore(other, QMessageBox::Yes), QStringList{"Error: Not a zconfig file"});
    QCOMPARE(restore(saved, QMessageBox::No), QStringList{question});
    QCOMPARE(getCharArray(unit.configuration().name), ZString("Changed"));

    // Only the name is listed: the first set call changes the name alone, the
    // second fails and stops the restore before any reboot.
    const MeasurementConfig measurement = unit.measurementConfig();
    unit.faultErrorReply(TavroFn::setMeasurementConfig, ZError(22, "Refused"));
    QCOMPARE(restore(nameOnly, QMessageBox::Yes),
             (QStringList{question, "Error: Error setting Measurement config: Refused"}));
    Configuration now = unit.configuration();
    QCOMPARE(getCharArray(now.name), ZString("Only name"));
    setCharArray(now.name, "Changed");
    QVERIFY(!memcmp(&now, &config, sizeof(now)));
    const MeasurementConfig measurementNow = unit.measurementConfig();
    QVERIFY(!memcmp(&measurement, &measurementNow, sizeof(measurement)));
    QVERIFY(!control.getConfig(now)); // still linked: no reboot so far

    unit.faultErrorReply(0, ZError());
    QCOMPARE(restore(saved, QMessageBox::Yes), QStringList{question});
    QCOMPARE(getCharArray(unit.configuration().name), ZString("Saved"));
    QTRY_VERIFY_WITH_TIMEOUT(!unit.serving(), 5000); // the reboot ended the link
    control.unitsDisconnect();
}

QTEST_MAIN(WConfigSaveRestoreTest)
#include "wconfigsaverestore_qtest.moc"
