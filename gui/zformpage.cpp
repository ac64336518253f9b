#include "zformpage.h"

#include "zformfield.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

ZFormPage::ZFormPage(const QString& title, const QString& heading, QWidget* parent)
    : QWidget(parent), otitle(title), orows(new QFormLayout()) {
    QVBoxLayout* layout = new QVBoxLayout(this);
    orows->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    layout->addLayout(orows);
    // The rows keep their height; space left over goes below them.
    layout->addStretch(1);
    addHeading(heading);
}

void ZFormPage::addFieldOnly(const QString& label, ZFormField* field) {
    ofields.append(Entry{label, field});
}

void ZFormPage::addRow(const QString& label, QWidget* widget) {
    orows->addRow(label, widget);
}

void ZFormPage::addHeading(const QString& text) {
    QLabel* heading = new QLabel(text, this);
    QFont font = heading->font();
    font.setBold(true);
    heading->setFont(font);
    addWidget(heading);
}

void ZFormPage::addWidget(QWidget* widget) {
    orows->addRow(widget);
}

void ZFormPage::addButtons(const QList<Button>& buttons, QObject* receiver) {
    QHBoxLayout* row = new QHBoxLayout();
    for (const Button& b : buttons) {
        QPushButton* button = new QPushButton(b.text, this);
        connect(button, SIGNAL(clicked()), receiver, b.slot);
        row->addWidget(button);
    }
    row->addStretch();
    orows->addRow(row);
}

ZFormField* ZFormPage::field(const QString& label) const {
    for (const Entry& e : ofields) {
        if (e.label == label)
            return e.field;
    }
    return nullptr;
}

QStringList ZFormPage::labels() const {
    QStringList list;
    for (const Entry& e : ofields)
        list << e.label;
    return list;
}

bool ZFormPage::firstError(QString& label, QString& error) const {
    for (const Entry& e : ofields) {
        if (!e.field->isEnabled())
            continue;
        QString err = e.field->error();
        if (!err.isEmpty()) {
            label = e.label;
            error = err;
            return true;
        }
    }
    return false;
}

bool ZFormPage::isModified() const {
    for (const Entry& e : ofields) {
        if (e.field->isModified())
            return true;
    }
    return false;
}

QPushButton* ZFormPage::button(const QString& text) const {
    for (QPushButton* b : findChildren<QPushButton*>()) {
        if (b->text() == text)
            return b;
    }
    return nullptr;
}
