#include "zformaddress.h"

#include "configfile.h"

#include <QHBoxLayout>
#include <QLineEdit>
#include <QSignalBlocker>

ZFormAddress::ZFormAddress(QWidget* parent) : ZFormField(parent), oedit(new QLineEdit(this)) {
    QHBoxLayout* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(oedit);
    oedit->setToolTip("a.b.c.d, each 0 to 255");
    setEditor(oedit);
    connect(oedit, SIGNAL(textChanged(QString)), this, SLOT(inputChanged()));
    setValue(0);
}

void ZFormAddress::setValue(uint32_t address) {
    oloaded = toQString(networkToString(address));
    QSignalBlocker block(oedit);
    oedit->setText(oloaded);
    showError();
}

bool ZFormAddress::value(uint32_t& address) const {
    return !networkFromString(toZString(oedit->text()), address);
}

QString ZFormAddress::text() const {
    return oedit->text();
}

void ZFormAddress::setText(const QString& text) {
    oedit->setText(text);
}

QString ZFormAddress::error() const {
    uint32_t address = 0;
    ZError err = networkFromString(toZString(oedit->text()), address);
    return err ? toQString(err.str()) : QString();
}

bool ZFormAddress::isModified() const {
    return oedit->text() != oloaded;
}
