#include "guimessages.h"

#include <QIcon>
#include <QPixmap>

namespace {
GuiMessageBoxes messageBoxes;
GuiMessages* current = nullptr;
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
