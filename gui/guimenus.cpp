// The main window's menus, tool bar and the actions behind the menus.

#include "dialogchangepassword.h"
#include "dialoglogin.h"
#include "gui.h"
#include "guimessages.h"
#include "helpwindow.h"

#include <QAction>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QToolBar>

namespace {

ZString toZString(const QString& text) {
    QByteArray utf8 = text.toUtf8();
    return ZString(utf8.constData(), utf8.size());
}

} // namespace

void Gui::initMenus() {
    QMenu* file = menuBar()->addMenu("File");
    file->addAction(
        actionNew("&Login", QString(), this, SLOT(login()), QString(), "Login to units"));
    file->addAction(actionNew("&Change Password", QString(), this, SLOT(changePassword()),
                              QString(), "Change password"));
    file->addAction(
        actionNew("&Logout", QString(), this, SLOT(logout()), QString(), "Logout of units"));
    file->addAction(
        actionNew("&Quit", QString(), this, SLOT(quit()), "Ctrl+Q", "Quits the application"));

    QMenu* help = menuBar()->addMenu("Help");
    help->addAction(
        actionNew("&Manual", QString(), this, SLOT(manual()), "Ctrl+M", "Online Manual"));
    help->addAction(
        actionNew("&About", QString(), this, SLOT(about()), "Ctrl+A", "About the program"));
}

void Gui::initToolBars() {
    QToolBar* bar = addToolBar("Control");
    bar->setObjectName("Control");
    // The shortcut texts of Connect and Run are not valid key sequences:
    // only Stop has a working keyboard shortcut.
    oconnectAction = actionNew("&Connect", ":/images/connect_off.svg", this,
                               SLOT(unitsConnectToggle()), "CRTL+C", "Units connect/disconnect");
    bar->addAction(oconnectAction);
    bar->addAction(
        actionNew("&Run", ":/images/run.svg", this, SLOT(run()), "CRTL+R", "Run capture"));
    bar->addAction(
        actionNew("&Stop", ":/images/stop.svg", this, SLOT(doStop()), "Ctrl+S", "Stop capture"));
    ostateLabel = new QLabel("S", bar);
    ostateLabel->setToolTip("Measuring status");
    bar->addWidget(ostateLabel);
}

void Gui::login() {
    if (!oconnected) {
        GuiMessages::warning(this, titleWarning, "You are not connected to any units");
        return;
    }
    DialogLogin dialog(this);
    QString userid;
    QString password;
    if (!dialog.process(userid, password))
        return;
    ZError err = ocontrol.login(toZString(userid), toZString(password));
    if (err) {
        GuiMessages::warning(this, titleWarning, QString("Unable to login: ") + err.str().str());
        return;
    }
    ologgedIn = true;
    ouserid = toZString(userid);
}

void Gui::logout() {
    if (!oconnected) {
        GuiMessages::warning(this, titleWarning, "You are not connected to any units");
        return;
    }
    ocontrol.logout();
    ologgedIn = false;
    ouserid.clear();
}

void Gui::changePassword() {
    if (!oconnected) {
        GuiMessages::warning(this, titleWarning, "You are not connected to any units");
        return;
    }
    if (!ologgedIn) {
        GuiMessages::warning(this, titleWarning, "You are not logged in to any units");
        return;
    }
    DialogChangePassword dialog(this);
    QString password;
    if (!dialog.process(password))
        return;
    // The units take the new password from a logged-in user without the old one.
    ZError err = ocontrol.changePassword(ouserid, ZString(), toZString(password));
    if (err)
        GuiMessages::warning(this, titleWarning,
                             QString("Unable to change password: ") + err.str().str());
}

void Gui::quit() {
    if (oconnected) {
        stop(false);
        ocontrol.unitsDisconnect();
        oconnected = false;
        ologgedIn = false;
    }
    writeSettings();
    ZMainWindow::quit();
}

void Gui::manual() {
    manualTopic(HelpWindow::home);
}

void Gui::manualTopic(const QString& topic) {
    if (!ohelpWindow) {
        ohelpWindow.reset(new HelpWindow());
        ohelpWindow->setWindowIcon(windowIcon());
    }
    if (!ohelpWindow->showTopic(topic))
        ohelpWindow->showContents();
}

void Gui::about() {
    GuiMessages::about(this, "About Tavro-gui",
                       QString("<h3>Tavro-gui</h3><p>Tavro Version: ") + version + "</p>");
}
