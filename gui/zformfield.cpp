#include "zformfield.h"

#include <QByteArray>

ZFormField::ZFormField(QWidget* parent) : QWidget(parent), oeditor(nullptr) {}

ZString ZFormField::toZString(const QString& text) {
    QByteArray bytes = text.toUtf8();
    return ZString(bytes.constData(), bytes.size());
}

QString ZFormField::toQString(const ZString& text) {
    return QString::fromUtf8(text.str(), text.len());
}

void ZFormField::setEditor(QWidget* editor) {
    oeditor = editor;
    otoolTip = editor ? editor->toolTip() : QString();
}

void ZFormField::showError() {
    QString err = error();
    if (err == oshown || !oeditor)
        return;
    oshown = err;
    // The frame is set on the editor's own class only, so that a combo box's
    // list or a child widget keeps its look.
    QString cls = oeditor->metaObject()->className();
    oeditor->setStyleSheet(err.isEmpty() ? QString() : cls + " { border: 2px solid red; }");
    oeditor->setToolTip(err.isEmpty() ? otoolTip : err);
}

void ZFormField::inputChanged() {
    showError();
    emit edited();
}
