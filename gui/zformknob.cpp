#include "zformknob.h"

#include "zformnumber.h"

#include <QHBoxLayout>
#include <QSignalBlocker>

#include <qwt_knob.h>

ZFormKnob::ZFormKnob(double min, double max, int decimals, QWidget* parent)
    : ZFormField(parent), onumber(new ZFormNumber(min, max, decimals, this)),
      oknob(new QwtKnob(this)) {
    QHBoxLayout* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(onumber, 1);
    layout->addWidget(oknob);
    oknob->setScale(min, max);
    oknob->setTotalSteps(1000);
    oknob->setKnobWidth(28);
    oknob->setScaleMaxMajor(2);
    oknob->setScaleMaxMinor(5);
    // The knob's own size hint grows with its scale labels' width.
    oknob->setFixedSize(160, 96);
    connect(oknob, SIGNAL(valueChanged(double)), this, SLOT(knobMoved(double)));
    connect(onumber, SIGNAL(edited()), this, SLOT(numberEdited()));
    setValue(onumber->value());
}

void ZFormKnob::setValue(double value) {
    onumber->setValue(value);
    QSignalBlocker block(oknob);
    oknob->setValue(value);
}

bool ZFormKnob::value(double& value) const {
    return onumber->value(value);
}

double ZFormKnob::value() const {
    return onumber->value();
}

void ZFormKnob::knobMoved(double value) {
    onumber->setText(ZFormNumber::format(value, onumber->decimals()));
}

void ZFormKnob::numberEdited() {
    double v = 0.0;
    if (onumber->value(v)) {
        QSignalBlocker block(oknob);
        oknob->setValue(v);
    }
    emit edited();
}

QString ZFormKnob::error() const {
    return onumber->error();
}

bool ZFormKnob::isModified() const {
    return onumber->isModified();
}
