#include "zformtext.h"

#include <QHBoxLayout>
#include <QLineEdit>
#include <QSignalBlocker>

ZFormText::ZFormText(int width, QWidget* parent)
    : ZFormField(parent), owidth(width), oedit(new QLineEdit(this)) {
    QHBoxLayout* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(oedit);
    if (width > 0)
        oedit->setToolTip(QString("At most %1 characters").arg(width - 1));
    setEditor(oedit);
    connect(oedit, SIGNAL(textChanged(QString)), this, SLOT(inputChanged()));
}

void ZFormText::setValue(const QString& text) {
    oloaded = text;
    QSignalBlocker block(oedit);
    oedit->setText(text);
    showError();
}

QString ZFormText::text() const {
    return oedit->text();
}

void ZFormText::setText(const QString& text) {
    oedit->setText(text);
}

void ZFormText::setCheck(const Check& check) {
    ocheck = check;
    showError();
}

void ZFormText::setPassword(bool on) {
    oedit->setEchoMode(on ? QLineEdit::Password : QLineEdit::Normal);
}

QString ZFormText::error() const {
    if (owidth > 0 && oedit->text().toUtf8().size() > owidth - 1)
        return QString("At most %1 characters").arg(owidth - 1);
    return ocheck ? ocheck(oedit->text()) : QString();
}

bool ZFormText::isModified() const {
    return oedit->text() != oloaded;
}
