#include "zformcombo.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QSignalBlocker>

ZFormCombo::ZFormCombo(const QString& choices, QWidget* parent)
    : ZFormField(parent), ochoices(choices.split(',')), ocombo(new QComboBox(this)), oloaded(0) {
    QHBoxLayout* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(ocombo);
    ocombo->addItems(ochoices);
    setEditor(ocombo);
    connect(ocombo, SIGNAL(currentIndexChanged(int)), this, SLOT(inputChanged()));
}

void ZFormCombo::setValue(unsigned int value) {
    QSignalBlocker block(ocombo);
    while (ocombo->count() > ochoices.size())
        ocombo->removeItem(ocombo->count() - 1);
    if (value >= unsigned(ochoices.size())) {
        ocombo->addItem(QString::number(value), value);
        ocombo->setCurrentIndex(ocombo->count() - 1);
    } else {
        ocombo->setCurrentIndex(int(value));
    }
    oloaded = value;
}

unsigned int ZFormCombo::value() const {
    int index = ocombo->currentIndex();
    if (index >= ochoices.size())
        return ocombo->itemData(index).toUInt();
    return index < 0 ? 0 : unsigned(index);
}

void ZFormCombo::setText(const QString& text) {
    int index = ochoices.indexOf(text);
    setValue(index < 0 ? 0 : unsigned(index));
}

QString ZFormCombo::text() const {
    return ocombo->currentText();
}

bool ZFormCombo::isModified() const {
    return value() != oloaded;
}
