#ifndef ZFORMCOMBO_H
#define ZFORMCOMBO_H

#include "zformfield.h"

class QComboBox;

// A choice field from a comma-separated list ("Off,DHCP,Manual"): the
// index of an entry is the value stored. A value beyond the list (a unit
// newer than the list) is shown as its number in an extra entry, so that it
// is kept as it is unless the user picks another.
class ZFormCombo : public ZFormField {
    Q_OBJECT
public:
    ZFormCombo(const QString& choices, QWidget* parent = nullptr);

    void setValue(unsigned int value);
    unsigned int value() const;
    // By entry text (for lists whose text is the value, such as file types);
    // a text not in the list selects the first entry.
    void setText(const QString& text);
    QString text() const;
    // The entries of the list, without an extra one.
    QStringList choices() const { return ochoices; }
    QComboBox* comboBox() const { return ocombo; }

    QString error() const override { return QString(); }
    bool isModified() const override;

private:
    QStringList ochoices;
    QComboBox* ocombo;
    unsigned int oloaded;
};

#endif
