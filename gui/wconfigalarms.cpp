#include "wconfigalarms.h"

#include "control.h"

#include <QGridLayout>
#include <QLabel>

using namespace TavroApi;

namespace {
const char* const headings[] = {"Alarm",      "Mode",        "Level Low",
                                "Level High", "Output Mode", "Output Channel"};
} // namespace

WConfigAlarms::WConfigAlarms(Control& control, QWidget* parent)
    : WConfigPage(control, "Tavro-40x Alarms", "Alarms Configuration", parent) {
    QWidget* grid = new QWidget(this);
    QGridLayout* layout = new QGridLayout(grid);
    layout->setContentsMargins(0, 0, 0, 0);
    for (int c = 0; c <= ColOutputChannel; c++)
        layout->addWidget(new QLabel(headings[c], grid), 0, c);
    for (int n = 0; n < Configuration::numAlarms; n++) {
        QString name = QString::asprintf("Alarm%u", unsigned(n));
        layout->addWidget(new QLabel(name, grid), n + 1, ColAlarm);
        ZFormCombo* mode = new ZFormCombo("Off,High,Low,Range,Magnitude", grid);
        ZFormNumber* low = new ZFormNumber(-1e9, 1e9, 6, grid);
        ZFormNumber* high = new ZFormNumber(-1e9, 1e9, 6, grid);
        ZFormCombo* output = new ZFormCombo("None,DIO High,DIO Low,Relay On,Relay Off", grid);
        ZFormNumber* channel = new ZFormNumber(0, 15, 0, grid);
        ZFormField* fields[] = {mode, low, high, output, channel};
        for (int c = ColMode; c <= ColOutputChannel; c++) {
            layout->addWidget(fields[c - 1], n + 1, c);
            addFieldOnly(name + " " + headings[c], fields[c - 1]);
        }
        bind(
            mode, [mode, n](const Configuration& c) { mode->setValue(unsigned(c.alarms[n].mode)); },
            [mode, n](Configuration& c) { c.alarms[n].mode = AlarmMode(mode->value()); });
        bind(
            low, [low, n](const Configuration& c) { low->setValue(c.alarms[n].levelLow); },
            [low, n](Configuration& c) { c.alarms[n].levelLow = float(low->value()); });
        bind(
            high, [high, n](const Configuration& c) { high->setValue(c.alarms[n].levelHigh); },
            [high, n](Configuration& c) { c.alarms[n].levelHigh = float(high->value()); });
        bind(
            output,
            [output, n](const Configuration& c) { output->setValue(unsigned(c.alarms[n].output)); },
            [output, n](Configuration& c) { c.alarms[n].output = AlarmOutput(output->value()); });
        bind(
            channel,
            [channel, n](const Configuration& c) { channel->setValue(c.alarms[n].outputChannel); },
            [channel, n](Configuration& c) {
                c.alarms[n].outputChannel = uint8_t(channel->value());
            });
    }
    addWidget(grid);
    addButtons({{"Clear Alarms", SLOT(clearAlarms())}}, this);
    configRead();
}

ZFormField* WConfigAlarms::alarmField(int n, Column column) const {
    if (column == ColAlarm || column > ColOutputChannel)
        return nullptr;
    return field(QString::asprintf("Alarm%u ", unsigned(n)) + headings[column]);
}

void WConfigAlarms::clearAlarms() {
    if (ocontrol.unitsConnected())
        showError(ocontrol.alarmsClear(0xFFFFFFFF));
}
