#ifndef CONTROL_H
#define CONTROL_H

#include "controlfile.h"
#include "tavrorecords.h"
#include "tavrounits.h"
#include "zarray.h"
#include "zerror.h"
#include "zmutex.h"
#include "zstring.h"
#include "zthread.h"

#include <QMetaType>

#include <atomic>
#include <cstdint>

class QObject;

class Control;

// A thread that calls one member function of a Control once.
class ControlTask : public ZThread {
public:
    using Function = void (Control::*)();

    ControlTask(Control& control, Function function) : ocontrol(control), ofunction(function) {}
    ~ControlTask() override { waitForCompletion(); }

    int function() override;

private:
    Control& ocontrol;
    Function ofunction;
};

// The application's unit manager: the one place where the user interface
// meets the units. On top of the group of units it keeps a copy of what the
// master unit reports, polls the status of units too old to push it, runs
// captures and writes their raw and processed streams to files.
//
// The owner (a QObject) learns of events through queued invocations of its
// slots "dataReady", "dataProcReady" and "unitsDisconnected"; unit messages
// go to "sendMessageServe(int, QByteArray)" of the debug view when one is set.
//
// Threads: the owner's thread calls the public operations; the unit
// manager's threads bring data, status, messages and disconnections; the
// status thread polls. The status is shared under its own lock, the data
// files under theirs; the caches belong to the owner's thread.
class Control : public TavroApi::TavroUnits {
public:
    // Seconds without a status after which getStatus reports "Status timeout".
    static constexpr unsigned int statusTimeoutS = 5;
    // How long measureStop waits for blocks still on their way to the files.
    static constexpr unsigned int flushTimeoutUs = 2000000;

    explicit Control(QObject* gui = nullptr);
    ~Control() override;

    // Resets the caches, registers DataBlock for queued calls and starts the
    // unit manager's processing thread.
    ZError init(const ZString& ttyDevice = ZString());
    // Re-reads the caches from the master unit and starts the status thread.
    ZError update();
    // Opens the data files and starts a capture; program selects the unit's
    // program mode instead of Run.
    ZError measureStart(bool program = false);
    // how 1: the unit goes idle; 2: no unit commands (the units are gone or
    // the capture ended by itself); else: back to the unit's configured mode.
    // Everything that arrived is written before the files are closed.
    ZError measureStop(int how);
    ZError setFileRawSave(const FileSave& save);
    ZError setFileProcSave(const FileSave& save);
    // The cached status; 4 "Status timeout" (with the stale status) when
    // none came for more than statusTimeoutS seconds.
    ZError getStatus(TavroApi::NodeStatus& status) override;
    ZString getWifiStatusString();
    // The factor from raw sample to engineering units; 1.0 beyond the table.
    double scaleValue(unsigned int channel);
    ZError reboot();
    ZError calibrate(const TavroApi::CalibrateInfo& info);

    // The receiver of unit messages; null for none.
    void setDebugView(QObject* view);
    ZString ttyDevice() const { return ottyDevice; }

    // The caches (owner's thread).
    const TavroApi::NodeInfo& nodeInfo() const { return onodeInfo; }
    const TavroApi::Configuration& configuration() const { return oconfiguration; }
    const TavroApi::Information& information() const { return oinformation; }
    const TavroApi::MeasurementConfig& measurementConfig() const { return omeasurementConfig; }
    const TavroApi::AwgConfig& awgConfig() const { return oawgConfig; }
    const ZArray<TavroApi::ChannelConfig>& channelConfigs() const { return ochannelConfigs; }
    // The measurement the next measureStart sends.
    void setMeasurement(const TavroApi::MeasurementConfig& config) { omeasurementConfig = config; }
    // The configuration the pages edit; setConfig sends it to the units.
    void setConfiguration(const TavroApi::Configuration& config) { oconfiguration = config; }
    FileSave fileRawSave() const { return ofileRawSave; }
    FileSave fileProcSave() const { return ofileProcSave; }
    bool statusPolling() const { return ostatusPoll; }

    // The capture: from measureStart (also one that failed, whose files stay
    // open) to measureStop.
    bool measureRunning() const { return orunning; }
    // The capture has ended by itself: a raw block without the Run flag came,
    // or the block limit was reached.
    bool measureEnded() const { return oended; }
    // Raw blocks after which the raw file is finished and the capture counts
    // as ended; 0 for no limit. Takes effect at the next measureStart.
    void setBlockLimit(uint64_t blocks) { oblockLimit = blocks; }
    // The OR of the status of every raw block since measureStart.
    uint16_t dataStatus() const { return odataStatus; }
    // The raw (processed false) or processed data file of the capture.
    ControlFileStats fileStats(bool processed = false);
    ZError fileError(bool processed = false) { return fileStats(processed).error; }
    // Losses of a unit's link reported so far.
    unsigned int disconnections() const { return odisconnections; }

    // Events of the unit manager.
    void disconnected() override;
    void dataEvent(unsigned int stream) override;
    void dataProcEvent(unsigned int stream) override;
    ZError sendStatusServe(const TavroApi::NodeStatus& status) override;
    ZError sendMessageServe(const unsigned int& id, const ZString& message) override;

private:
    // The status thread's body: polls the master unit once a second while
    // statusPoll is set, until the object goes.
    void runStatus();
    ZError openFile(ControlFile& file, const FileSave& save, const ZTime& start,
                    const ZArray<TavroApi::ChannelConfig>& channels, bool processed);
    // Under ofileMutex: moves what waits on stream 1 into the files.
    void drainRaw();
    void drainProc();
    // Under ofileMutex: finishes both files; the first error.
    ZError finishFiles();
    void notify(const char* slot);
    void resetCaches();

    QObject* ogui;
    std::atomic<QObject*> odebugView;
    ZString ottyDevice;
    ControlTask ostatusTask;
    TavroApi::NodeInfo onodeInfo;
    TavroApi::Configuration oconfiguration;
    TavroApi::Information oinformation;
    TavroApi::MeasurementConfig omeasurementConfig;
    TavroApi::AwgConfig oawgConfig;
    ZArray<TavroApi::ChannelConfig> ochannelConfigs;
    FileSave ofileRawSave;
    FileSave ofileProcSave;

    ZMutex ofileMutex; // the two files and the capture counters below
    ControlFile ofileRaw;
    ControlFile ofileProc;
    uint64_t oblocksSeen;
    uint64_t oblockLimitNow;
    std::atomic<uint64_t> oblockLimit;
    std::atomic<uint16_t> odataStatus;
    std::atomic<bool> orunning;
    std::atomic<bool> oended;

    std::atomic<bool> ostatusPoll;
    std::atomic<bool> ostatusQuit;
    std::atomic<unsigned int> odisconnections;
    ZMutex ostatusLock; // ostatus and ostatusTime
    TavroApi::NodeStatus ostatus;
    uint32_t ostatusTime;
};

Q_DECLARE_METATYPE(TavroApi::DataBlock)

#endif
