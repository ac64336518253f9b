#ifndef ZFORMDURATION_H
#define ZFORMDURATION_H

#include "zformfield.h"

#include <cstdint>

class QComboBox;
class QLineEdit;

// A duration held as a count of samples, entered as a number with a unit:
// "samples", "micro seconds", "seconds", "minutes", "hours", or as a
// frequency, "Hz" or "kHz" (the count of samples of one period). The count
// depends on the sample rate (setSampleRate), which the form keeps up to
// date:
//   samples   n            micro seconds  n * rate / 1000000
//   seconds   n * rate     minutes        n * 60 * rate      hours  n * 3600 * rate
//   Hz        rate / n     kHz            rate / (n * 1000)
// rounded to the nearest whole sample. Refused: a negative number, a count
// beyond 4294967295, a duration above 0 that is shorter than one sample, a
// frequency of 0, and any unit but samples while the rate is not above 0.
//
// Changing the unit converts the number so that the duration stays the same.
class ZFormDuration : public ZFormField {
    Q_OBJECT
public:
    enum Unit { Samples, MicroSeconds, Seconds, Minutes, Hours, Hz, KHz, UnitNum };
    static constexpr const char* units = "samples,micro seconds,seconds,minutes,hours,Hz,kHz";

    explicit ZFormDuration(QWidget* parent = nullptr);

    // The rate the conversions use; the text shown stays as it is.
    void setSampleRate(double rate);
    double sampleRate() const { return orate; }
    // Loads a count, shown in the present unit (a count of 0 shown in Hz or
    // kHz switches to samples).
    void setSamples(uint32_t samples);
    // The count of valid input at the present rate; false otherwise.
    bool samples(uint32_t& samples) const;
    Unit unit() const;
    // As if the user had picked the unit.
    void setUnit(Unit unit);
    QString text() const;
    void setText(const QString& text);
    QLineEdit* lineEdit() const { return oedit; }
    QComboBox* unitBox() const { return ounit; }

    QString error() const override;
    // The text, the unit, or (for a unit other than samples) the rate
    // differs from the last load.
    bool isModified() const override;

    // value in unit to a count at rate: the message of what is wrong, empty
    // when samples was set.
    static QString toSamples(double value, Unit unit, double rate, uint32_t& samples);
    // A count at rate as a number in unit (0 for a frequency of a count of 0).
    static double fromSamples(uint32_t samples, Unit unit, double rate);

private slots:
    void unitChanged(int index);

private:
    QString check(uint32_t& samples) const;
    void show(uint32_t samples, Unit unit);

    double orate;
    QLineEdit* oedit;
    QComboBox* ounit;
    int ounitNow; // the unit the text is in
    QString oloadedText;
    int oloadedUnit;
    double oloadedRate;
};

#endif
