// The channel table against a simulated unit: what a row shows, what Save
// sends (gain, numbers, cut names), Cancel, and the refusal during a capture.

#include "control.h"
#include "guimessagesdouble.h"
#include "simserver.h"
#include "simunit.h"
#include "wconfigchans.h"

#include <QCheckBox>
#include <QComboBox>
#include <QPushButton>
#include <QTableWidget>
#include <QtTest>

using namespace TavroApi;

class WConfigChansTest : public QObject {
    Q_OBJECT
private slots:
    void showSaveCancelAndBusy();
};

void WConfigChansTest::showSaveCancelAndBusy() {
    TavroSim::SimUnit unit{TavroSim::SimOptions()};
    TavroSim::SimTcpServer server(unit);
    Control control;
    ChannelConfig c2 = unit.channelConfig(2);
    c2.pgaGain = 3.0;
    setCharArray(c2.process, "Rms");
    QVERIFY(!(server.start("127.0.0.1", 0) || control.init() ||
              control.unitAdd("u", "zoapn://127.0.0.1:" + ZString(unsigned(server.port()))) ||
              control.unitsConnect() || control.setChannelConfig(2, c2) || control.update()));

    GuiMessagesDouble messages;
    WConfigChans page(control);
    QTableWidget* t = page.getTable();
    QCOMPARE(t->rowCount(), control.channelConfigs().size());
    auto combo = [&](int row, int column) {
        return qobject_cast<QComboBox*>(t->cellWidget(row, column))->currentText();
    };
    QCOMPARE(combo(2, WConfigChans::ColPgaGain), QString("1"));
    QCOMPARE(combo(2, WConfigChans::ColProcess), QString("Rms"));
    QCOMPARE(t->item(2, WConfigChans::ColType)->text(), QString("Analogue In"));
    QCOMPARE(t->item(2, WConfigChans::ColName)->text(), QString(getCharArray(c2.name).str()));
    QCOMPARE(t->item(2, WConfigChans::ColScale)->text(), QString("1"));

    // Cancel shows the records again.
    t->item(2, WConfigChans::ColName)->setText("edited");
    page.getCancelButton()->click();
    QCOMPARE(t->item(2, WConfigChans::ColName)->text(), QString(getCharArray(c2.name).str()));

    const ChannelConfig c0 = unit.channelConfig(0);
    t->item(2, WConfigChans::ColName)->setText("ABCDEFGHIJKLMNOPQRS");
    t->item(2, WConfigChans::ColUnits)->setText("kilopascal");
    t->item(2, WConfigChans::ColScale)->setText("many");
    t->item(2, WConfigChans::ColOffset)->setText(" -1.5 ");
    qobject_cast<QCheckBox*>(t->cellWidget(2, WConfigChans::ColAttenuator))->setChecked(true);
    page.getSaveButton()->click();
    QVERIFY(messages.messages.isEmpty());
    const ChannelConfig s = unit.channelConfig(2);
    QVERIFY(s.pgaGain == 1.0 && s.scale == 0.0 && s.offset == -1.5 && s.attenuator == 1);
    QCOMPARE(getCharArray(s.name), ZString("ABCDEFGHIJKLMNOP"));
    QCOMPARE(getCharArray(s.siUnits), ZString("kilopasc"));
    QCOMPARE(getCharArray(s.process), ZString("Rms"));
    const ChannelConfig c0After = unit.channelConfig(0);
    QVERIFY(memcmp(&c0, &c0After, sizeof(c0)) == 0);
    QCOMPARE(getCharArray(control.channelConfigs()[2].name), ZString("ABCDEFGHIJKLMNOP"));

    // A running capture: read-only, and Save says why it does nothing.
    MeasurementConfig m = control.measurementConfig();
    m.measureMode = MeasureMode::Continuous;
    control.setMeasurement(m);
    QVERIFY(!control.measureStart(false));
    page.update();
    QVERIFY(!page.getSaveButton()->isEnabled());
    QVERIFY(!(t->item(2, WConfigChans::ColName)->flags() & Qt::ItemIsEditable));
    QVERIFY(!t->cellWidget(2, WConfigChans::ColEnable)->isEnabled());
    page.save();
    QCOMPARE(messages.texts(),
             QStringList{
                 "Tavro-gui - Warning: The channels cannot be changed while a capture is running"});
    QVERIFY(!control.measureStop(1));
    control.unitsDisconnect();
}

QTEST_MAIN(WConfigChansTest)
#include "wconfigchans_qtest.moc"
