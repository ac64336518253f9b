#include "guimessages.h"

#include <QFileDialog>
#include <QIcon>
#include <QPixmap>
#include <QRegularExpression>

namespace {
GuiMessageBoxes messageBoxes;
GuiMessages* current = nullptr;

// The suffix of a filter's first pattern when it is a plain "*.ext": "csv"
// for "Comma values (*.csv *.txt)", empty for "Any file (*)".
QString filterSuffix(const QString& filter) {
    QRegularExpressionMatch m = QRegularExpression("\\(\\*\\.([A-Za-z0-9_]+)[ )]").match(filter);
    return m.hasMatch() ? m.captured(1) : QString();
}
} // namespace

GuiMessages& GuiMessages::get() {
    return current ? *current : static_cast<GuiMessages&>(messageBoxes);
}

GuiMessages* GuiMessages::set(GuiMessages* messages) {
    GuiMessages* before = current;
    current = messages;
    return before;
}

QMessageBox::StandardButton GuiMessageBoxes::ask(Kind kind, QWidget* parent, const QString& title,
                                                 const QString& text,
                                                 QMessageBox::StandardButtons buttons,
                                                 QMessageBox::StandardButton defaultButton) {
    switch (kind) {
    case Information:
        return QMessageBox::information(parent, title, text, buttons, defaultButton);
    case Warning:
        return QMessageBox::warning(parent, title, text, buttons, defaultButton);
    case Critical:
        return QMessageBox::critical(parent, title, text, buttons, defaultButton);
    case Question:
        return QMessageBox::question(parent, title, text, buttons, defaultButton);
    case About: {
        QMessageBox box(QMessageBox::NoIcon, title, text, buttons, parent);
        box.setTextFormat(Qt::RichText);
        QPixmap logo = QIcon(":/images/logo.svg").pixmap(QSize(180, 48));
        if (!logo.isNull())
            box.setIconPixmap(logo);
        box.exec();
        return QMessageBox::Ok;
    }
    }
    return QMessageBox::NoButton;
}

QString GuiMessages::fileDialog(FileKind kind, QWidget* parent, const QString& caption,
                                const QString& path, const QString& filter,
                                QString* selectedFilter) {
    QFileDialog dialog(parent, caption, path, filter);
    if (kind == Directory) {
        dialog.setFileMode(QFileDialog::Directory);
        dialog.setOption(QFileDialog::ShowDirsOnly);
    } else if (kind == SaveFile) {
        dialog.setAcceptMode(QFileDialog::AcceptSave);
        dialog.setFileMode(QFileDialog::AnyFile);
        QObject::connect(&dialog, &QFileDialog::filterSelected, &dialog,
                         [&dialog](const QString& f) { dialog.setDefaultSuffix(filterSuffix(f)); });
    } else {
        dialog.setFileMode(QFileDialog::ExistingFile);
    }
    if (selectedFilter && !selectedFilter->isEmpty())
        dialog.selectNameFilter(*selectedFilter);
    if (kind == SaveFile)
        dialog.setDefaultSuffix(filterSuffix(dialog.selectedNameFilter()));
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return QString();
    if (selectedFilter)
        *selectedFilter = dialog.selectedNameFilter();
    return dialog.selectedFiles().front();
}
