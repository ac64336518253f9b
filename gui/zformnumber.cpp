#include "zformnumber.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QLocale>
#include <QSignalBlocker>

#include <cmath>

ZFormNumber::ZFormNumber(double min, double max, int decimals, QWidget* parent,
                         const QList<double>& choices)
    : ZFormField(parent), omin(min), omax(max), odecimals(decimals), ocombo(nullptr),
      oedit(nullptr) {
    QHBoxLayout* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    if (choices.isEmpty()) {
        oedit = new QLineEdit(this);
        layout->addWidget(oedit);
    } else {
        ocombo = new QComboBox(this);
        ocombo->setEditable(true);
        ocombo->setInsertPolicy(QComboBox::NoInsert);
        // Typed text stays as typed: no completion from the list.
        ocombo->setCompleter(nullptr);
        for (double c : choices)
            ocombo->addItem(format(c, decimals));
        oedit = ocombo->lineEdit();
        layout->addWidget(ocombo);
    }
    QWidget* editor = ocombo ? static_cast<QWidget*>(ocombo) : oedit;
    editor->setToolTip(QString("%1 to %2").arg(format(min, decimals), format(max, decimals)));
    setEditor(editor);
    connect(oedit, SIGNAL(textChanged(QString)), this, SLOT(inputChanged()));
    setValue(min > 0.0 ? min : (max < 0.0 ? max : 0.0));
}

QString ZFormNumber::format(double value, int decimals) {
    // A unit's record may hold anything: such a value is shown as it is and
    // then refused by the checks.
    if (!std::isfinite(value))
        return QString::number(value);
    if (decimals <= 0)
        return QString::number(value, 'f', 0);
    QString text = QString::number(value, 'f', decimals);
    // Trailing zeros go, down to one place.
    int keep = text.size();
    while (keep > 2 && text[keep - 1] == '0' && text[keep - 2] != '.')
        keep--;
    return text.left(keep);
}

QString ZFormNumber::parse(const QString& text, double min, double max, int decimals,
                           double& value) {
    QString t = text.trimmed();
    if (t.isEmpty())
        return "A number is needed";
    QLocale c = QLocale::c();
    c.setNumberOptions(QLocale::RejectGroupSeparator);
    bool ok = false;
    double v = c.toDouble(t, &ok);
    if (!ok || !std::isfinite(v))
        return QString("\"%1\" is not a number").arg(t);
    if (decimals == 0 && v != std::floor(v))
        return QString("\"%1\" is not a whole number").arg(t);
    int point = t.indexOf('.');
    if (decimals > 0 && point >= 0 && !t.contains('e', Qt::CaseInsensitive) &&
        t.size() - point - 1 > decimals)
        return QString("At most %1 decimal places").arg(decimals);
    if (v < min || v > max)
        return QString("Must be from %1 to %2")
            .arg(format(min, decimals < 0 ? 6 : decimals),
                 format(max, decimals < 0 ? 6 : decimals));
    value = v;
    return QString();
}

void ZFormNumber::setValue(double value) {
    oloaded = format(value, odecimals);
    QSignalBlocker block(oedit);
    oedit->setText(oloaded);
    showError();
}

bool ZFormNumber::value(double& value) const {
    return parse(oedit->text(), omin, omax, odecimals, value).isEmpty();
}

double ZFormNumber::value() const {
    double v = 0.0;
    value(v);
    return v;
}

QString ZFormNumber::text() const {
    return oedit->text();
}

void ZFormNumber::setText(const QString& text) {
    oedit->setText(text);
}

QString ZFormNumber::error() const {
    double v = 0.0;
    return parse(oedit->text(), omin, omax, odecimals, v);
}

bool ZFormNumber::isModified() const {
    return oedit->text() != oloaded;
}
