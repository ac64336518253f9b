#ifndef ZFORMADDRESS_H
#define ZFORMADDRESS_H

#include "zformfield.h"

#include <cstdint>

class QLineEdit;

// An IPv4 address field, edited as a dotted quad ("192.168.1.10", the most
// significant byte first). Anything else is refused with a message at the
// field.
class ZFormAddress : public ZFormField {
    Q_OBJECT
public:
    explicit ZFormAddress(QWidget* parent = nullptr);

    void setValue(uint32_t address);
    // The address of valid input; false (address untouched) otherwise.
    bool value(uint32_t& address) const;
    QString text() const;
    void setText(const QString& text);
    QLineEdit* lineEdit() const { return oedit; }

    QString error() const override;
    bool isModified() const override;

private:
    QLineEdit* oedit;
    QString oloaded;
};

#endif
