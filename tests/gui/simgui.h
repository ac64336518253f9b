#ifndef SIMGUI_H
#define SIMGUI_H

// The main window with a simulated unit served over TCP in the test process,
// for the pages that need both: the window is built (Gui::init, which also
// reads the units' settings) but the unit is not added to the unit manager.
// prepare, when given, runs between the start of the unit's server and the
// building of the window, with the unit's URL (to put it in the settings).

#include "gui.h"
#include "simserver.h"
#include "simunit.h"

#include <QApplication>
#include <QSettings>
#include <QTimer>

#include <functional>

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

    TavroSim::SimUnit unit;
    TavroSim::SimTcpServer server;
    Gui gui;
    bool ok;
};

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

#endif
