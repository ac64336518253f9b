// tavroGui: the application's entry point. Reads the command line, builds
// the main window and runs the event loop until the user quits.

#include "gui.h"
#include "guioptions.h"

#include <QApplication>

#include <cstdlib>

// At global scope: the macro declares the bundle's function.
static void resourcesCleanup() {
    Q_CLEANUP_RESOURCE(tavro);
}

int main(int argc, char** argv) {
    // The icons and images come first: the window is built from them.
    Q_INIT_RESOURCE(tavro);
    atexit(resourcesCleanup);

    GuiOptions options;
    int status = guiParseOptions(argc, argv, options);
    if (status >= 0)
        return status;

    QApplication app(argc, argv);
    Gui gui;
    gui.init("Tavro", options.ttyDevice, options.cal, options.demo, options.dev);
    gui.show();
    QObject::connect(&app, SIGNAL(aboutToQuit()), &gui, SLOT(quit()));
    return app.exec();
}
