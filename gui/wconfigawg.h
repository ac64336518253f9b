#ifndef WCONFIGAWG_H
#define WCONFIGAWG_H

#include "wconfigpage.h"

class ZFormKnob;

// The "Tavro-40x AWG Config" page: the waveform generator (AwgConfig).
// Frequency 0 to 100000 Hz and amplitude 0 to 10 V have knobs; offset is
// -10 to 10 V, duty 0 to 1. Without a connected unit the fields show the
// generator's defaults (frequency 100.0, amplitude 5.0, offset 0.0, duty
// 0.5). numSamples (the arbitrary waveform's length) is not edited here.
class WConfigAwg : public WConfigPage {
    Q_OBJECT
public:
    explicit WConfigAwg(Control& control, QWidget* parent = nullptr);

    void configRead() override;
    void configChange(WConfigRecords& records) override;

    // What the page shows without a unit.
    static TavroApi::AwgConfig defaults();

private:
    ZFormCombo* ooutput;
    ZFormCombo* omode;
    ZFormNumber* otrackChannel;
    ZFormKnob* ofrequency;
    ZFormKnob* oamplitude;
    ZFormNumber* ooffset;
    ZFormNumber* oduty;
};

#endif
