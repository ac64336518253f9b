#ifndef WCONFIGMEASUREMENT_H
#define WCONFIGMEASUREMENT_H

#include "wconfigpage.h"

class QCheckBox;
class ZFormDuration;

// The "Measurement Config" page: the MeasurementConfig that the next capture
// sends (the control object's copy) and that "Save" also sends to the units.
//
// The duration fields and the members they set, as counts of samples at the
// page's sample rate:
//   "Capture Duration"       numSamples0  samples of one capture (one shot,
//                                         and each capture of Repeat)
//   "Data Process Duration"  numSamples1  samples of one processing period
//                                         (0: one second)
//   "Chunk Duration"         numSamples2  samples the unit gathers into one
//                                         chunk of data
//   "Repeat Period"          measurePeriod samples from one capture's start to
//                                         the next (Repeat)
// numSamplesBlock is left alone: the capture start sets it from the rate.
// "Enable" under "Data Processing" sets the Process bit of measureOptions.
//
// The presets (measurementSetConfig) fill the fields; "Save" sends them:
//   0 "Set fast raw data mode": Continuous at 100 kHz, no processing, no
//     trigger;
//   1 "Set processed data mode": One Shot of 10 s (100000 samples) at
//     10 kHz, processed every 0.1 s (1000 samples), no trigger;
//   2 "Set continuous processed data mode": Continuous at 10 kHz, processed
//     every second (10000 samples), no trigger.
// The continuous presets leave the capture duration as it is.
// "Read" reads the measurement configuration back from the master unit.
class WConfigMeasurement : public WConfigPage {
    Q_OBJECT
public:
    static constexpr double rateMax = 1000000.0;

    explicit WConfigMeasurement(Control& control, QWidget* parent = nullptr);

    void configRead() override;
    void configChange(WConfigRecords& records) override;

    QCheckBox* processEnable() const { return oprocess; }
    // Writes the fields into m (the members whose field changed).
    void measurementChange(TavroApi::MeasurementConfig& m);

public slots:
    void measurementRead();
    void measurementSetConfig(int mode);
    void dataProcessToggle(bool on);
    void measurementSetFastRaw() { measurementSetConfig(0); }
    void measurementSetProcessed() { measurementSetConfig(1); }
    void measurementSetContinuous() { measurementSetConfig(2); }

private slots:
    void rateEdited();

private:
    void show(const TavroApi::MeasurementConfig& m);

    ZFormCombo* omode;
    ZFormNumber* opeakFilter;
    ZFormCombo* otriggerMode;
    ZFormNumber* otriggerChannel;
    ZFormNumber* otriggerLevel;
    ZFormNumber* otriggerDelay;
    ZFormNumber* orate;
    ZFormDuration* ochunk;
    ZFormDuration* ocapture;
    ZFormDuration* operiod;
    QCheckBox* oprocess;
    bool oprocessLoaded;
    ZFormDuration* oprocessDuration;
    ZFormText* odescription;
};

#endif
