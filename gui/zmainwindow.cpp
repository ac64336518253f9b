#include "zmainwindow.h"

#include <QAction>
#include <QApplication>
#include <QIcon>
#include <QKeySequence>

ZMainWindow::ZMainWindow(QWidget* parent) : QMainWindow(parent) {}

ZError ZMainWindow::init(const ZString& name) {
    oname = name;
    setObjectName(name.str());
    initMenus();
    initToolBars();
    initMainArea();
    initStatusBar();
    return ZError();
}

QAction* ZMainWindow::actionNew(const QString& text, const QString& icon, const QObject* receiver,
                                const char* slot, const QString& shortcut, const QString& statusTip,
                                bool checkable) {
    QAction* action = new QAction(text, this);
    if (!icon.isEmpty())
        action->setIcon(QIcon(icon));
    if (!shortcut.isEmpty())
        action->setShortcut(QKeySequence(shortcut));
    if (!statusTip.isEmpty())
        action->setStatusTip(statusTip);
    action->setCheckable(checkable);
    if (receiver && slot) {
        if (checkable)
            connect(action, SIGNAL(toggled(bool)), receiver, slot);
        else
            connect(action, SIGNAL(triggered()), receiver, slot);
    }
    return action;
}

void ZMainWindow::quit() {
    QApplication::quit();
}
