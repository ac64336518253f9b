#ifndef ZFORMNUMBER_H
#define ZFORMNUMBER_H

#include "zformfield.h"

#include <QList>

class QComboBox;
class QLineEdit;

// A number field: a value from min to max with at most decimals places
// (0: whole numbers only). Text that is not such a number is refused with a
// message at the field ("\"x\" is not a number", "Must be from 0 to 255",
// ...). Given choices, the field is an editable list of those values (for
// example the sample rates a unit offers) that still takes any other value
// in range.
//
// Values are shown as whole numbers when decimals is 0, else with up to
// decimals places and at least one ("100.0", "0.5", "0.125").
class ZFormNumber : public ZFormField {
    Q_OBJECT
public:
    ZFormNumber(double min, double max, int decimals, QWidget* parent = nullptr,
                const QList<double>& choices = QList<double>());

    // Loads a value; the field counts as unmodified until the user edits it.
    void setValue(double value);
    // The value of valid input; false (value untouched) otherwise.
    bool value(double& value) const;
    double value() const;
    QString text() const;
    // As if the user had typed text.
    void setText(const QString& text);

    double minimum() const { return omin; }
    double maximum() const { return omax; }
    int decimals() const { return odecimals; }
    QLineEdit* lineEdit() const { return oedit; }
    QComboBox* comboBox() const { return ocombo; }

    QString error() const override;
    bool isModified() const override;

    // The text of value with decimals places as this field shows it.
    static QString format(double value, int decimals);
    // Reads text as a number from min to max with at most decimals places
    // (any number of places when decimals is negative): the message of what
    // is wrong, empty when value was set.
    static QString parse(const QString& text, double min, double max, int decimals, double& value);

private:
    double omin;
    double omax;
    int odecimals;
    QComboBox* ocombo;
    QLineEdit* oedit;
    QString oloaded;
};

#endif
