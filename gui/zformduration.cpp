#include "zformduration.h"

#include "zformnumber.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QSignalBlocker>

#include <cmath>

namespace {

const double maxSamples = 4294967295.0;

// Seconds per unit for the time units; 0 for samples and the frequencies.
double secondsOf(ZFormDuration::Unit unit) {
    switch (unit) {
    case ZFormDuration::MicroSeconds:
        return 1e-6;
    case ZFormDuration::Seconds:
        return 1.0;
    case ZFormDuration::Minutes:
        return 60.0;
    case ZFormDuration::Hours:
        return 3600.0;
    default:
        return 0.0;
    }
}

QString numberText(double value) {
    return QString::number(value, 'g', 12);
}

} // namespace

ZFormDuration::ZFormDuration(QWidget* parent)
    : ZFormField(parent), orate(0.0), oedit(new QLineEdit(this)), ounit(new QComboBox(this)),
      ounitNow(Samples), oloadedUnit(Samples), oloadedRate(0.0) {
    QHBoxLayout* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(oedit, 1);
    layout->addWidget(ounit);
    ounit->addItems(QString(units).split(','));
    setEditor(oedit);
    connect(oedit, SIGNAL(textChanged(QString)), this, SLOT(inputChanged()));
    connect(ounit, SIGNAL(currentIndexChanged(int)), this, SLOT(unitChanged(int)));
    setSamples(0);
}

QString ZFormDuration::toSamples(double value, Unit unit, double rate, uint32_t& samples) {
    if (!std::isfinite(value) || value < 0.0)
        return "Must not be negative";
    double n = value;
    if (unit != Samples && !(std::isfinite(rate) && rate > 0.0))
        return "Needs a sample rate above 0";
    if (unit == Hz || unit == KHz) {
        if (value <= 0.0)
            return "A frequency must be above 0";
        n = rate / (unit == KHz ? value * 1000.0 : value);
    } else if (unit != Samples) {
        n = value * secondsOf(unit) * rate;
    }
    double rounded = std::floor(n + 0.5);
    if (!(rounded <= maxSamples))
        return "Longer than 4294967295 samples";
    if (unit != Samples && value > 0.0 && rounded < 1.0)
        return "Shorter than one sample";
    if (unit == Samples && rounded != n)
        return "A number of samples must be whole";
    samples = uint32_t(rounded);
    return QString();
}

double ZFormDuration::fromSamples(uint32_t samples, Unit unit, double rate) {
    if (unit == Samples || !(rate > 0.0))
        return double(samples);
    if (unit == Hz || unit == KHz)
        return samples ? rate / double(samples) / (unit == KHz ? 1000.0 : 1.0) : 0.0;
    return double(samples) / rate / secondsOf(unit);
}

void ZFormDuration::setSampleRate(double rate) {
    orate = rate;
    showError();
}

void ZFormDuration::show(uint32_t samples, Unit unit) {
    if (samples == 0 && (unit == Hz || unit == KHz))
        unit = Samples;
    if (unit != Samples && !(orate > 0.0))
        unit = Samples;
    {
        QSignalBlocker blockUnit(ounit);
        QSignalBlocker blockEdit(oedit);
        ounit->setCurrentIndex(unit);
        ounitNow = unit;
        oedit->setText(numberText(fromSamples(samples, unit, orate)));
    }
}

void ZFormDuration::setSamples(uint32_t samples) {
    show(samples, Unit(ounitNow));
    oloadedText = oedit->text();
    oloadedUnit = ounitNow;
    oloadedRate = orate;
    showError();
}

QString ZFormDuration::check(uint32_t& samples) const {
    double value = 0.0;
    QString err = ZFormNumber::parse(oedit->text(), -1e300, 1e300, -1, value);
    if (err.isEmpty())
        err = toSamples(value, Unit(ounitNow), orate, samples);
    return err;
}

bool ZFormDuration::samples(uint32_t& samples) const {
    return check(samples).isEmpty();
}

ZFormDuration::Unit ZFormDuration::unit() const {
    return Unit(ounitNow);
}

void ZFormDuration::setUnit(Unit unit) {
    ounit->setCurrentIndex(unit);
}

void ZFormDuration::unitChanged(int index) {
    if (index < 0 || index >= UnitNum)
        return;
    uint32_t n = 0;
    bool frequency = index == Hz || index == KHz;
    // Input that has no duration in the new unit stays as it is, to be typed over.
    if (check(n).isEmpty() && !(frequency && n == 0) && (index == Samples || orate > 0.0))
        show(n, Unit(index));
    else
        ounitNow = index;
    inputChanged();
}

QString ZFormDuration::text() const {
    return oedit->text();
}

void ZFormDuration::setText(const QString& text) {
    oedit->setText(text);
}

QString ZFormDuration::error() const {
    uint32_t n = 0;
    return check(n);
}

bool ZFormDuration::isModified() const {
    return oedit->text() != oloadedText || ounitNow != oloadedUnit ||
           (ounitNow != Samples && orate != oloadedRate);
}
