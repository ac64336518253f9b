#ifndef SIMGUI_H
#define SIMGUI_H

// A simulated unit served over TCP in the test process, in front of a unit
// manager (SimControl) or of the main window (SimGui).

#include "control.h"
#include "gui.h"
#include "simserver.h"
#include "simunit.h"

#include <QApplication>
#include <QIcon>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>
#include <QTimer>

#include <functional>

inline TavroSim::SimOptions simOptions(const std::function<void(TavroSim::SimOptions&)>& set) {
    TavroSim::SimOptions options;
    set(options);
    return options;
}

// connect() adds the unit, connects and reads the caches.
struct SimControl {
    explicit SimControl(const TavroSim::SimOptions& options = TavroSim::SimOptions())
        : unit(options), server(unit) {
        ok = !server.start("127.0.0.1", 0) && !control.init();
    }
    ~SimControl() {
        control.unitsDisconnect();
        server.stop();
    }
    ZString url() const { return "zoapn://127.0.0.1:" + ZString(unsigned(server.port())); }
    bool connect() {
        return !control.unitAdd("unit1", url()) && !control.unitsConnect() && !control.update();
    }
    TavroSim::SimUnit unit;
    TavroSim::SimTcpServer server;
    Control control;
    bool ok;
};

// The window is built (Gui::init, which also reads the units' settings) but
// the unit is not added to the unit manager. prepare, when given, runs between
// the start of the unit's server and the building of the window, with the
// unit's URL (to put it in the settings).
struct SimGui {
    explicit SimGui(std::function<void(const ZString& url)> prepare = nullptr,
                    const TavroSim::SimOptions& options = TavroSim::SimOptions())
        : unit(options), server(unit) {
        ok = !server.start("127.0.0.1", 0);
        if (ok && prepare)
            prepare(url());
        ok = ok && !gui.init("Tavro", ZString(), false, false, false);
    }
    ~SimGui() {
        // The window lets the unit go before the unit itself goes.
        if (gui.isConnected())
            gui.unitsConnect(false);
        server.stop();
    }
    ZString url() const { return "zoapn://127.0.0.1:" + ZString(unsigned(server.port())); }
    Control& control() { return gui.getControl(); }
    // Adds the unit and connects through the window.
    bool connect() {
        control().unitAdd(url(), url());
        gui.unitsConnect(true);
        return gui.isConnected();
    }
    TavroSim::SimUnit unit;
    TavroSim::SimTcpServer server;
    Gui gui;
    bool ok;
};

// Connected, with the unit's status pushes and the window's status check
// off: only the statuses a test sends count.
inline bool connectQuiet(SimGui& b) {
    b.unit.faultStopStatus(true);
    b.gui.enableStatus(false);
    return b.ok && b.connect();
}

// The settings of the program, emptied.
inline void clearSettings() {
    QSettings settings("Korvel", "Tavro-gui");
    settings.clear();
    settings.sync();
}

// Runs f on the modal dialog that the next call opens, once it is up.
template <class F>
void whenModal(F f, int tries = 200) {
    QTimer::singleShot(10, [f, tries]() {
        if (QWidget* w = QApplication::activeModalWidget())
            f(w);
        else if (tries > 0)
            whenModal(f, tries - 1);
    });
}

// Logs in through the window's dialog.
inline void login(Gui& gui, const QString& user, const QString& password) {
    whenModal([user, password](QWidget* w) {
        w->findChild<QLineEdit*>("userid")->setText(user);
        w->findChild<QLineEdit*>("password")->setText(password);
        w->findChild<QPushButton*>("login")->click();
    });
    gui.login();
}

inline QImage iconImage(const QIcon& icon) {
    return icon.pixmap(32, 32).toImage();
}

#endif
