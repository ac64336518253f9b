#ifndef CLIRECORDER_H
#define CLIRECORDER_H

#include "control.h"
#include "zlist.h"
#include "zstring.h"

#include <QObject>
#include <QTimer>

#include <chrono>
#include <cstdint>

class QSocketNotifier;

// What 'tavroCli record' was asked to do.
struct CliRecordOptions {
    ZList<ZString> urls;
    ZString user;
    ZString password;
    uint64_t seconds = 0; // stop after this long; 0 no limit
    uint64_t blocks = 0;  // stop after this many raw blocks; 0 no limit
    uint64_t samples = 0; // a one-shot capture of this many samples; 0 continuous
    double rate = 0.0;    // sample rate; 0 the unit's
    FileSave raw;         // save is always set
    FileSave processed;   // save when asked for
};

// Runs one recording: connects the units, starts the capture with a
// Control of its own whose notifications come here, reports progress on
// standard error once a second and stops cleanly on SIGINT or SIGTERM (read
// from signalFd), on a limit, at the end of a one-shot capture or when a
// unit is lost. The signals must be blocked in every thread before this
// object (and its Control's threads) exists.
class CliRecorder : public QObject {
    Q_OBJECT

public:
    CliRecorder(const CliRecordOptions& options, int signalFd);
    ~CliRecorder() override;

    // Runs the recording in the application's event loop; the exit status.
    int run();

public slots:
    // Notifications of the Control.
    void dataReady();
    void dataProcReady();
    void unitsDisconnected();

private slots:
    void signalled();
    void tick();

private:
    ZError start();
    void progress();
    // Stops the capture and closes the files, reports them, ends the loop.
    void finish(int how, const ZError& why);

    CliRecordOptions ooptions;
    Control ocontrol;
    QTimer otimer;
    QSocketNotifier* osignals;
    int osignalFd;
    bool ofinished;
    int ostatus;
    std::chrono::steady_clock::time_point ostarted;
    std::chrono::steady_clock::time_point onextProgress;
};

#endif
