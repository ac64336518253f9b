// tavroScreenshots [FOLDER [SECONDS]]: pictures of every page of the main
// window for review. Serves a simulated unit on 127.0.0.1, builds the window
// with every page, connects, and saves the window with each tab in front as
// FOLDER/NN-name.png (default "screenshots"). The data pages are taken while
// a continuous capture at 1000 samples a second runs, SECONDS (default 3)
// after it started. Message box texts go to standard error. Exit status 0
// when every picture was saved. Run it with its own XDG_CONFIG_HOME.

#include "gui.h"
#include "guimessages.h"
#include "simserver.h"
#include "simunit.h"
#include "wunits.h"

#include <QApplication>
#include <QDir>
#include <QEventLoop>
#include <QTabWidget>
#include <QTimer>

#include <cstdio>

namespace {

// Answers every message box with its default button and tells of it.
class PrintedMessages : public GuiMessages {
public:
    QMessageBox::StandardButton ask(Kind, QWidget*, const QString& title, const QString& text,
                                    QMessageBox::StandardButtons buttons,
                                    QMessageBox::StandardButton defaultButton) override {
        fprintf(stderr, "message: %s: %s\n", title.toUtf8().constData(), text.toUtf8().constData());
        if (defaultButton != QMessageBox::NoButton)
            return defaultButton;
        return (buttons & QMessageBox::Ok) ? QMessageBox::Ok : QMessageBox::NoButton;
    }
};

// Lets the event loop run for ms milliseconds.
void pause(int ms) {
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

QString fileName(int index, const QString& tab) {
    QString name = tab.toLower();
    name.replace(QRegExp("[^a-z0-9]+"), "-");
    return QString("%1-%2.png").arg(index + 1, 2, 10, QChar('0')).arg(name);
}

} // namespace

int main(int argc, char** argv) {
    Q_INIT_RESOURCE(tavro);
    QApplication app(argc, argv);
    QString folder = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString("screenshots");
    int seconds = argc > 2 ? atoi(argv[2]) : 3;
    if (seconds < 1 || seconds > 600) {
        fprintf(stderr, "tavroScreenshots: SECONDS must be 1 to 600\n");
        return 2;
    }
    if (!QDir().mkpath(folder)) {
        fprintf(stderr, "tavroScreenshots: cannot create %s\n", folder.toUtf8().constData());
        return 1;
    }

    PrintedMessages messages;
    GuiMessages::set(&messages);

    TavroSim::SimUnit unit{TavroSim::SimOptions()};
    TavroSim::SimTcpServer server(unit);
    ZError err = server.start("127.0.0.1", 0);
    if (err) {
        fprintf(stderr, "tavroScreenshots: simulated unit: %s\n", err.str().str());
        return 1;
    }
    ZString url = "zoapn://127.0.0.1:" + ZString(unsigned(server.port()));

    int status = 0;
    {
        Gui gui;
        gui.init("Tavro", ZString(), true, true, true);
        gui.getControl().unitAdd(url, url);
        gui.resize(gui.sizeHint());
        gui.show();
        pause(500);
        gui.unitsConnect(true);
        if (!gui.isConnected()) {
            fprintf(stderr, "tavroScreenshots: could not connect to %s\n", url.str());
            status = 1;
        }
        // A capture that runs until stopped, with a processed block every
        // 0.2 s, so that the data pages have something to show.
        TavroApi::MeasurementConfig measurement = gui.getControl().measurementConfig();
        measurement.measureMode = TavroApi::MeasureMode::Continuous;
        measurement.sampleRate = 1000.0;
        measurement.numSamples0 = 1000;
        measurement.numSamples1 = 200;
        gui.getControl().setMeasurement(measurement);

        QTabWidget* tabs = gui.getTabs();
        bool captured = false;
        for (int i = 0; i < tabs->count() && status == 0; i++) {
            QString tab = tabs->tabText(i);
            tabs->setCurrentIndex(i);
            if (!captured && (tab == "Raw Data" || tab == "Processed Data")) {
                gui.run(false);
                pause(seconds * 1000);
                captured = true;
            }
            if (captured && tab == "Data Log")
                gui.doStop();
            pause(1200);
            QString path = QDir(folder).filePath(fileName(i, tab));
            if (!gui.grab().save(path)) {
                fprintf(stderr, "tavroScreenshots: cannot write %s\n", path.toUtf8().constData());
                status = 1;
            } else {
                printf("%s\n", path.toUtf8().constData());
            }
        }
        if (gui.isRunning())
            gui.doStop();
        if (gui.isConnected())
            gui.unitsConnect(false);
    }
    server.stop();
    GuiMessages::set(nullptr);
    return status;
}
