#include "wconfigmeasurement.h"

#include "control.h"
#include "zformduration.h"

#include <QCheckBox>
#include <QComboBox>

using namespace TavroApi;

WConfigMeasurement::WConfigMeasurement(Control& control, QWidget* parent)
    : WConfigPage(control, "Measurement Config", "Measurement Configuration", parent),
      oprocessLoaded(false) {
    omode = addField("Measure Mode", new ZFormCombo("One Shot,Repeat,Continuous", this));
    opeakFilter = addField("Peak Filter", new ZFormNumber(0, 255, 0, this));
    otriggerMode = addField("Trigger Mode", new ZFormCombo("None,Positive,Negitive", this));
    otriggerChannel = addField("Trigger Channel", new ZFormNumber(0, 15, 0, this));
    otriggerLevel = addField("Trigger Level", new ZFormNumber(-1e9, 1e9, 6, this));
    otriggerDelay = addField("Trigger Delay (seconds)", new ZFormNumber(-86400, 86400, 0, this));
    const QList<double> rates = {1,     10,    100,   1000,   2000,   4000,   5000,
                                 10000, 20000, 50000, 100000, 200000, 500000, 1000000};
    orate = addField("Sample Rate (Hz)", new ZFormNumber(0.001, rateMax, 3, this, rates));
    ochunk = addField("Chunk Duration", new ZFormDuration(this));
    ocapture = addField("Capture Duration", new ZFormDuration(this));
    operiod = addField("Repeat Period", new ZFormDuration(this));
    addHeading("Data Processing");
    oprocess = new QCheckBox(this);
    addRow("Enable", oprocess);
    oprocessDuration = addField("Data Process Duration", new ZFormDuration(this));
    odescription =
        addField("Description", new ZFormText(int(sizeof(MeasurementConfig::description)), this));
    addButtons({{"Set fast raw data mode", SLOT(measurementSetFastRaw())},
                {"Set processed data mode", SLOT(measurementSetProcessed())},
                {"Set continuous processed data mode", SLOT(measurementSetContinuous())},
                {"Read", SLOT(measurementRead())}},
               this);
    connect(orate, SIGNAL(edited()), this, SLOT(rateEdited()));
    connect(oprocess, SIGNAL(toggled(bool)), this, SLOT(dataProcessToggle(bool)));
    configRead();
}

void WConfigMeasurement::show(const MeasurementConfig& m) {
    // The list starts at One Shot: measure mode n is entry n - 1 (Off, which
    // the list does not offer, is kept unless another entry is picked).
    omode->setValue(m.measureMode == MeasureMode::Off ? 0u : unsigned(m.measureMode) - 1);
    opeakFilter->setValue(m.peakFilter);
    otriggerMode->setValue(unsigned(m.triggerMode));
    otriggerChannel->setValue(m.triggerChannel);
    otriggerLevel->setValue(m.triggerLevel);
    otriggerDelay->setValue(m.triggerDelay);
    orate->setValue(m.sampleRate);
    for (ZFormDuration* d : {ochunk, ocapture, operiod, oprocessDuration})
        d->setSampleRate(m.sampleRate);
    ochunk->setSamples(m.numSamples2);
    ocapture->setSamples(m.numSamples0);
    operiod->setSamples(m.measurePeriod);
    oprocessDuration->setSamples(m.numSamples1);
    oprocessLoaded = m.measureOptions & uint8_t(MeasureOption::Process);
    oprocess->setChecked(oprocessLoaded);
    dataProcessToggle(oprocessLoaded);
    odescription->setValue(getCharArray(m.description));
}

void WConfigMeasurement::configRead() {
    show(ocontrol.measurementConfig());
}

void WConfigMeasurement::measurementChange(MeasurementConfig& m) {
    double v = 0.0;
    if (omode->isModified())
        m.measureMode = MeasureMode(omode->value() + 1);
    if (opeakFilter->isModified() && opeakFilter->value(v))
        m.peakFilter = uint8_t(v);
    if (otriggerMode->isModified())
        m.triggerMode = TriggerMode(otriggerMode->value());
    if (otriggerChannel->isModified() && otriggerChannel->value(v))
        m.triggerChannel = uint8_t(v);
    if (otriggerLevel->isModified() && otriggerLevel->value(v))
        m.triggerLevel = float(v);
    if (otriggerDelay->isModified() && otriggerDelay->value(v))
        m.triggerDelay = int32_t(v);
    if (orate->isModified() && orate->value(v))
        m.sampleRate = v;
    struct Duration {
        ZFormDuration* field;
        uint32_t& member;
    };
    const Duration durations[] = {{ochunk, m.numSamples2},
                                  {ocapture, m.numSamples0},
                                  {operiod, m.measurePeriod},
                                  {oprocessDuration, m.numSamples1}};
    for (const Duration& d : durations) {
        uint32_t n = 0;
        if (d.field->isEnabled() && d.field->isModified() && d.field->samples(n))
            d.member = n;
    }
    if (oprocess->isChecked() != oprocessLoaded) {
        if (oprocess->isChecked())
            m.measureOptions |= uint8_t(MeasureOption::Process);
        else
            m.measureOptions &= uint8_t(~uint8_t(MeasureOption::Process));
    }
    if (odescription->isModified() && odescription->error().isEmpty())
        setCharArray(m.description, odescription->value());
}

void WConfigMeasurement::configChange(WConfigRecords& records) {
    if (!isModified() && oprocess->isChecked() == oprocessLoaded)
        return;
    measurementChange(records.measurement);
    records.measurementChanged = true;
}

void WConfigMeasurement::measurementRead() {
    if (ocontrol.unitsConnected()) {
        MeasurementConfig m;
        if (showError(ocontrol.getMeasurementConfig(false, m)))
            return;
        ocontrol.setMeasurement(m);
    }
    configRead();
}

void WConfigMeasurement::measurementSetConfig(int mode) {
    struct Preset {
        unsigned int mode; // entry of "Measure Mode"
        double rate;
        bool process;
        uint32_t capture;
        uint32_t processing;
    };
    static const Preset presets[] = {
        {2, 100000.0, false, 0, 0}, {0, 10000.0, true, 100000, 1000}, {2, 10000.0, true, 0, 10000}};
    if (mode < 0 || mode > 2)
        return;
    const Preset& p = presets[mode];
    omode->comboBox()->setCurrentIndex(int(p.mode));
    otriggerMode->comboBox()->setCurrentIndex(0);
    orate->setText(ZFormNumber::format(p.rate, orate->decimals()));
    if (p.capture) {
        ocapture->setUnit(ZFormDuration::Samples);
        ocapture->setText(QString::number(p.capture));
    }
    oprocess->setChecked(p.process);
    oprocessDuration->setUnit(ZFormDuration::Samples);
    oprocessDuration->setText(QString::number(p.processing));
}

void WConfigMeasurement::dataProcessToggle(bool on) {
    oprocessDuration->setEnabled(on);
}

void WConfigMeasurement::rateEdited() {
    double rate = 0.0;
    if (!orate->value(rate))
        return;
    for (ZFormDuration* d : {ochunk, ocapture, operiod, oprocessDuration})
        d->setSampleRate(rate);
}
