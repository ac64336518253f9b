#ifndef ZMAINWINDOW_H
#define ZMAINWINDOW_H

#include "zerror.h"
#include "zstring.h"

#include <QMainWindow>

class QAction;

// The generic main window: init() builds the window in four steps that a
// subclass fills in (menus, tool bars, main area, status bar); actionNew()
// makes the actions of its menus and tool bars; quit() ends the program's
// event loop.
class ZMainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit ZMainWindow(QWidget* parent = nullptr);

    // Names the window and builds it.
    virtual ZError init(const ZString& name);
    ZString name() const { return oname; }

    // An action with text, and when given an icon (resource or file name),
    // a shortcut (parsed as key-sequence text) and a status tip. Its
    // "triggered()" signal, or "toggled(bool)" when checkable, goes to the
    // receiver's slot (a SLOT() text). The action belongs to this window.
    QAction* actionNew(const QString& text, const QString& icon, const QObject* receiver,
                       const char* slot, const QString& shortcut, const QString& statusTip,
                       bool checkable = false);

public slots:
    // Ends the event loop.
    virtual void quit();

protected:
    virtual void initMenus() {}
    virtual void initToolBars() {}
    virtual void initMainArea() {}
    virtual void initStatusBar() {}

private:
    ZString oname;
};

#endif
