#ifndef ZFORMKNOB_H
#define ZFORMKNOB_H

#include "zformfield.h"

class QwtKnob;
class ZFormNumber;

// A number field with a knob beside it: turning the knob writes its value,
// rounded to the field's places, into the field; a valid number typed into
// the field turns the knob. The field's checks and messages are those of
// ZFormNumber.
class ZFormKnob : public ZFormField {
    Q_OBJECT
public:
    ZFormKnob(double min, double max, int decimals, QWidget* parent = nullptr);

    void setValue(double value);
    bool value(double& value) const;
    double value() const;
    ZFormNumber* number() const { return onumber; }
    QwtKnob* knob() const { return oknob; }

    QString error() const override;
    bool isModified() const override;

private slots:
    void knobMoved(double value);
    void numberEdited();

private:
    ZFormNumber* onumber;
    QwtKnob* oknob;
};

#endif
