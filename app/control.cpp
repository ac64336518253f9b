#include "control.h"

#include "zcomms.h"
#include "ztime.h"

#include <QByteArray>
#include <QMetaObject>
#include <QObject>

using namespace TavroApi;

int ControlTask::function() {
    (ocontrol.*ofunction)();
    return 0;
}

Control::Control(QObject* gui)
    : TavroUnits(1), ogui(gui), odebugView(nullptr), ostatusTask(*this, &Control::runStatus),
      oblocksSeen(0), oblockLimitNow(0), oblockLimit(0), odataStatus(0), orunning(false),
      oended(false), ostatusPoll(false), ostatusQuit(false), odisconnections(0), ostatusTime(0) {
    resetCaches();
}

Control::~Control() {
    ostatusQuit = true;
    ostatusTask.waitForCompletion();
    // No unit and no processing thread may call the overrides below once
    // this part of the object starts to go.
    unitsDisconnect();
    stop();
    ZMutexLock lock(ofileMutex);
    drainRaw();
    drainProc();
    finishFiles();
}

void Control::resetCaches() {
    omeasurementConfig = MeasurementConfig();
    omeasurementConfig.measureMode = MeasureMode::OneShot;
    omeasurementConfig.sampleRate = 4000.0;
    omeasurementConfig.numSamples0 = 1000;
    oconfiguration = Configuration();
    oinformation = Information();
    oawgConfig = AwgConfig();
    ostatusPoll = false;
    ZMutexLock lock(ostatusLock);
    ostatus = NodeStatus();
}

ZError Control::init(const ZString& ttyDevice) {
    ottyDevice = ttyDevice;
    resetCaches();
    qRegisterMetaType<DataBlock>("DataBlock");
    return start();
}

void Control::setDebugView(QObject* view) {
    odebugView = view;
}

void Control::notify(const char* slot) {
    if (ogui)
        QMetaObject::invokeMethod(ogui, slot, Qt::QueuedConnection);
}

// ------------------------------------------------------------ caches and status

ZError Control::update() {
    if (!unitsConnected()) {
        ostatusPoll = false;
        return ZError();
    }
    ZError err;
    if ((err = getNodeInfo(onodeInfo)) || (err = getConfig(oconfiguration)) ||
        (err = getInformation(oinformation)))
        return err;

    // A group has the channels of all its units.
    unsigned int channels = oinformation.numChannels;
    if (multi() && numChannels() > channels)
        channels = numChannels();
    ochannelConfigs.clear();
    for (unsigned int c = 0; c < channels; c++) {
        ChannelConfig config;
        if ((err = getChannelConfig(c, config)))
            return err;
        ochannelConfigs.append(config);
    }
    if ((err = getMeasurementConfig(false, omeasurementConfig)) ||
        (err = getAwgConfig(false, oawgConfig)))
        return err;

    // Units newer than 1.0.7 push their status; older ones are polled.
    const Version& v = onodeInfo.softwareVersion;
    if (!(v.ver0 >= 2 || v.ver1 != 0 || v.ver2 > 7))
        ostatusPoll = true;
    if (!ostatusTask.running())
        ostatusTask.start();
    return ZError();
}

void Control::runStatus() {
    const unsigned int stepMs = 50;
    while (!ostatusQuit) {
        for (unsigned int ms = 0; ms < 1000 && !ostatusQuit; ms += stepMs)
            delayMs(stepMs);
        if (ostatusQuit || !ostatusPoll || !unitsConnected())
            continue;
        NodeStatus status;
        if (TavroUnits::getStatus(status))
            continue;
        sendStatusServe(status);
    }
}

ZError Control::sendStatusServe(const NodeStatus& status) {
    ZMutexLock lock(ostatusLock);
    ostatus = status;
    ostatusTime = ZTime::now().getSeconds();
    return ZError();
}

ZError Control::getStatus(NodeStatus& status) {
    ZMutexLock lock(ostatusLock);
    status = ostatus;
    if (int64_t(ZTime::now().getSeconds()) - int64_t(ostatusTime) > int64_t(statusTimeoutS))
        return ZError(4, "Status timeout");
    return ZError();
}

ZString Control::getWifiStatusString() {
    uint8_t wifi;
    {
        ZMutexLock lock(ostatusLock);
        wifi = ostatus.wifiStatus;
    }
    switch (wifi) {
    case 0:
        return "Wifi is off";
    case 1:
        return "Wifi is disconnected";
    case 2:
        return "Wifi is connecting";
    case 3:
        return "Wifi is connected, no Internet";
    case 4:
        return "Wifi is connected with Internet";
    default:
        return "Wifi state unknown";
    }
}

double Control::scaleValue(unsigned int channel) {
    if (channel >= unsigned(ochannelConfigs.size()))
        return 1.0;
    const ChannelConfig& c = ochannelConfigs[int(channel)];
    double scale = c.scale * c.calibScale / c.pgaGain;
    if (c.attenuator)
        scale *= c.calibScaleAtten1;
    return scale;
}

ZError Control::reboot() {
    if (!unitsConnected())
        return ZError();
    ZError err;
    if (orunning && (err = measureStop(1)))
        return err;
    TavroUnit1* master = unitMaster();
    if (!master)
        return ZError("No master unit set");
    return master->factoryReset(false, false);
}

ZError Control::calibrate(const CalibrateInfo& info) {
    if (!unitsConnected())
        return ZError();
    ZError err;
    if (orunning && (err = measureStop(1)))
        return err;
    TavroUnit1* master = unitMaster();
    if (!master)
        return ZError("No master unit set");
    return master->calibrate(info);
}

// ------------------------------------------------------------ events

void Control::disconnected() {
    odisconnections++;
    notify("unitsDisconnected");
}

ZError Control::sendMessageServe(const unsigned int& id, const ZString& message) {
    QObject* view = odebugView;
    if (view)
        QMetaObject::invokeMethod(view, "sendMessageServe", Qt::QueuedConnection,
                                  Q_ARG(int, int(id)),
                                  Q_ARG(QByteArray, QByteArray(message.str(), message.len())));
    return ZError();
}
