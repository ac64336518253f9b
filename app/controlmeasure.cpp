// Control: captures and their data files.
#include "control.h"

#include "zcomms.h"
#include "ztime.h"

#include <unistd.h>

using namespace TavroApi;

namespace {

const uint16_t statusRun = uint16_t(Status::Run);
const unsigned char sendStatusOnly = 1; // sendDataEnable: status only
const unsigned char sendEverything = 7; // status, raw and processed data
const Mode modeProgram = Mode(5);

// The measurement as it is sent: slow rates deliver every sample at once.
MeasurementConfig measurementToSend(const MeasurementConfig& config) {
    MeasurementConfig m = config;
    m.numSamplesBlock = m.sampleRate < 10.0 ? 1 : 0;
    return m;
}

} // namespace

ZError Control::setFileRawSave(const FileSave& save) {
    ofileRawSave = save;
    return ZError();
}

ZError Control::setFileProcSave(const FileSave& save) {
    ofileProcSave = save;
    return ZError();
}

ControlFileStats Control::fileStats(bool processed) {
    ZMutexLock lock(ofileMutex);
    return processed ? ofileProc.stats() : ofileRaw.stats();
}

ZError Control::openFile(ControlFile& file, const FileSave& save, const ZTime& start,
                         const ZArray<ChannelConfig>& channels, bool processed) {
    const ZString path = ControlFile::path(save, start);
    if (access(save.dir.str(), X_OK) != 0)
        return ZError(5, "Unable to access directory: " + save.dir);
    InfoBlock info;
    ZError err = getInfoBlock(info);
    if (err)
        return err;
    // The head describes the file as it is written here: blocks at their
    // natural size, floats (or processed values) of every channel of the
    // group, and the measurement that this capture runs.
    info.fileType = TavdFileType::Stream;
    info.dataType = processed ? DataType::Proc : DataType::Float32;
    info.numChannels = uint16_t(channels.size() < 65535 ? channels.size() : 65535);
    info.measureConfig = measurementToSend(omeasurementConfig);
    ZMutexLock lock(ofileMutex);
    return file.open(save, path, info, channels);
}

ZError Control::measureStart(bool program) {
    {
        ZMutexLock lock(ofileMutex);
        finishFiles(); // left open by a start that failed
        dataClear();
        odataStatus = 0;
        oblocksSeen = 0;
        oblockLimitNow = oblockLimit;
        oended = false;
        orunning = true;
    }
    const ZArray<ChannelConfig> channels = ochannelConfigs;
    const ZTime start = ZTime::now(); // one time for both names
    ZError err;
    if (ofileRawSave.save)
        err = openFile(ofileRaw, ofileRawSave, start, channels, false);
    if (!err && ofileProcSave.save)
        err = openFile(ofileProc, ofileProcSave, start, channels, true);
    // Every raw block goes to stream 0 for the views and to stream 1 for the file.
    if (!err)
        err = dataSetNumStreams(2);
    if (!err)
        err = setMeasurementConfig(false, measurementToSend(omeasurementConfig));
    if (!err)
        err = sendDataEnable(sendEverything);
    if (!err)
        err = setMode(program ? modeProgram : Mode::Run);
    return err;
}

ZError Control::measureStop(int how) {
    if (how != 2) {
        ZError err = setMode(how == 1 ? Mode::Idle : oconfiguration.mode);
        if (!err) {
            delayMs(200);
            err = sendDataEnable(sendStatusOnly);
        }
        if (err)
            return err;
    }
    // What the units sent before they stopped goes into the files first.
    dataFlush(flushTimeoutUs);
    ZMutexLock lock(ofileMutex);
    drainRaw();
    drainProc();
    orunning = false;
    return finishFiles();
}

ZError Control::finishFiles() {
    ZError raw = ofileRaw.finish();
    ZError proc = ofileProc.finish();
    return raw ? raw : proc;
}

void Control::drainRaw() {
    while (TavroUnitsDataBlock* block = dataRead(1)) {
        const uint16_t status = block->header.status;
        odataStatus |= status;
        if (orunning && !oended) {
            oblocksSeen++;
            ofileRaw.write(*block);
            if (!(status & statusRun) || (oblockLimitNow && oblocksSeen >= oblockLimitNow)) {
                ofileRaw.finish();
                oended = true;
            }
        }
        dataDone(1);
    }
}

void Control::drainProc() {
    while (DataBlockProc* block = dataProcRead(1)) {
        if (ofileProc.isOpen()) {
            ofileProc.write(*block);
            if (!(block->status & statusRun))
                ofileProc.finish();
        }
        dataProcDone(1);
    }
}

// Whichever stream has news, stream 1 goes to the file. The owner hears of
// each batch once: not again for the file's own stream.
void Control::dataEvent(unsigned int stream) {
    {
        ZMutexLock lock(ofileMutex);
        drainRaw();
    }
    if (stream != 1)
        notify("dataReady");
}

void Control::dataProcEvent(unsigned int stream) {
    {
        ZMutexLock lock(ofileMutex);
        drainProc();
    }
    if (stream != 1)
        notify("dataProcReady");
}
