#include "wconfigawg.h"

#include "control.h"
#include "zformknob.h"

using namespace TavroApi;

WConfigAwg::WConfigAwg(Control& control, QWidget* parent)
    : WConfigPage(control, "Tavro-40x AWG Config", "AWG", parent) {
    ooutput = addField("Output", new ZFormCombo("None,AO 0,AO 1,AO 0&1", this));
    omode = addField("Mode",
                     new ZFormCombo("None,DC,Sine,Square,Triangle,Noise,TrackRms,TrackMean", this));
    otrackChannel = addField("Track Channel", new ZFormNumber(0, 15, 0, this));
    ofrequency = addField("Frequency", new ZFormKnob(0, 100000, 3, this));
    oamplitude = addField("Amplitude", new ZFormKnob(0, 10, 3, this));
    ooffset = addField("Offset", new ZFormNumber(-10, 10, 3, this));
    oduty = addField("Duty", new ZFormNumber(0, 1, 3, this));
    configRead();
}

AwgConfig WConfigAwg::defaults() {
    AwgConfig a;
    a.frequency = 100.0f;
    a.amplitude = 5.0f;
    a.offset = 0.0f;
    a.duty = 0.5f;
    return a;
}

void WConfigAwg::configRead() {
    AwgConfig a = ocontrol.unitsConnected() ? ocontrol.awgConfig() : defaults();
    ooutput->setValue(unsigned(a.output));
    omode->setValue(unsigned(a.mode));
    otrackChannel->setValue(a.trackChannel);
    ofrequency->setValue(a.frequency);
    oamplitude->setValue(a.amplitude);
    ooffset->setValue(a.offset);
    oduty->setValue(a.duty);
}

void WConfigAwg::configChange(WConfigRecords& records) {
    if (!isModified())
        return;
    AwgConfig& a = records.awg;
    double v = 0.0;
    if (ooutput->isModified())
        a.output = AwgOutput(ooutput->value());
    if (omode->isModified())
        a.mode = AwgMode(omode->value());
    if (otrackChannel->isModified() && otrackChannel->value(v))
        a.trackChannel = uint8_t(v);
    if (ofrequency->isModified() && ofrequency->value(v))
        a.frequency = float(v);
    if (oamplitude->isModified() && oamplitude->value(v))
        a.amplitude = float(v);
    if (ooffset->isModified() && ooffset->value(v))
        a.offset = float(v);
    if (oduty->isModified() && oduty->value(v))
        a.duty = float(v);
    records.awgChanged = true;
}
