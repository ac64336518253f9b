#include "simserve.h"

#include "simcore.h"

#include <cmath>
#include <cstring>

namespace TavroSim {

using namespace TavroApi;
typedef SimCore::Access Access;
typedef std::lock_guard<std::mutex> Lock;

namespace {

const char* const BoardTests[] = {"all", "adc", "dac", "digital", "memory", "wifi", "sdcard"};

ZError outOfRange(const char* what) {
    return ZError(22, ZString(what) + " out of range");
}

bool debugging(const SimCore& c) {
    return c.options.debug || c.state.board.testMode;
}

} // namespace

SimServer::SimServer(SimCore& core) : Tavro(false, packetMax), ocore(core) {}

uint32_t SimServer::now() const {
    return uint32_t(ocore.unitTimeUs() / 1000000);
}

ZError SimServer::processRequest() {
    unsigned int delay = ocore.delayUs;
    if (delay) {
        std::unique_lock<std::mutex> lock(ocore.linkMutex);
        ocore.linkChanged.wait_for(lock, std::chrono::microseconds(delay),
                                   [this] { return ocore.stopped || ocore.dropNow; });
    }
    uint16_t failing = ocore.errorFunction;
    if (failing && rxHeader().function == failing) {
        ZError err = readRequestPayload();
        if (err)
            return err;
        ZError reply;
        {
            Lock lock(ocore.mutex);
            reply = ocore.errorReply.copy();
        }
        return sendErrorReply(reply);
    }
    return Tavro::processRequest();
}

// ------------------------------------------------------------ node

ZError SimServer::getNodeInfoServe(NodeInfo& info) {
    Lock lock(ocore.mutex);
    info = ocore.state.nodeInfo;
    return ZError();
}

ZError SimServer::loginServe(const ZString& user, const ZString& password) {
    Lock lock(ocore.mutex);
    ZError err = ocore.state.checkLogin(user, password);
    ocore.loggedIn = !err;
    ocore.loginUser = err ? ZString() : user;
    return err;
}

ZError SimServer::logoutServe() {
    Lock lock(ocore.mutex);
    ocore.loggedIn = false;
    return ZError();
}

ZError SimServer::changePasswordServe(const ZString& user, const ZString& password,
                                      const ZString& newPassword) {
    Lock lock(ocore.mutex);
    // A user logged in on this link changes his own password without the old one.
    const bool own = password.isEmpty() && ocore.loggedIn && user == ocore.loginUser;
    ZError err = ocore.state.changePassword(user, password, newPassword, own);
    if (!err)
        ocore.dirty = true;
    return err;
}

ZError SimServer::factoryResetServe(const bool& resetConfig, const bool&) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Change);
    if (err)
        return err;
    // The unit reboots once this request is served (a boot loader request
    // too: this unit has none and comes back as it was).
    ocore.rebootPending = true;
    ocore.resetPending = ocore.resetPending || resetConfig;
    return ZError();
}

ZError SimServer::sendTimeServe(const ZTimeUs& time) {
    Lock lock(ocore.mutex);
    if (!ocore.allowed(Access::Read))
        ocore.clockOffsetUs = time.getMicroSeconds() - ZTimeUs::now().getMicroSeconds();
    return ZError();
}

ZError SimServer::setModeServe(const Mode& mode) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    return err ? err : ocore.setMode(mode);
}

ZError SimServer::getStatusServe(NodeStatus& status) {
    Lock lock(ocore.mutex);
    status = ocore.nodeStatus();
    return ZError();
}

ZError SimServer::getInformationServe(Information& information) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    if (!err)
        information = ocore.information();
    return err;
}

ZError SimServer::getInfoBlockServe(InfoBlock& infoBlock) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    if (!err)
        infoBlock = ocore.infoBlock();
    return err;
}

// ------------------------------------------------------------ configuration

ZError SimServer::getChannelConfigServe(const unsigned int& channel, ChannelConfig& config) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    if (err)
        return err;
    if (channel >= unsigned(SimState::channels))
        return outOfRange("Channel number");
    config = ocore.state.channel[channel];
    return ZError();
}

ZError SimServer::setChannelConfigServe(const unsigned int& channel, const ChannelConfig& config) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Change);
    if (err)
        return err;
    if (channel >= unsigned(SimState::channels))
        return outOfRange("Channel number");
    // The hardware fixes number and type; the calibration is the unit's own.
    ChannelConfig& c = ocore.state.channel[channel];
    ChannelConfig n = config;
    n.number = c.number;
    n.type = c.type;
    n.sampleType = c.sampleType;
    n.calibOffset = c.calibOffset;
    n.calibScale = c.calibScale;
    n.calibScaleAtten1 = c.calibScaleAtten1;
    n.pgaGain = c.pgaGain;
    c = n;
    ocore.dirty = true;
    return ZError();
}

ZError SimServer::setChannelConfigFullServe(const unsigned long&, const unsigned int& channel,
                                            const ChannelConfig& config) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Change);
    if (err)
        return err;
    if (channel >= unsigned(SimState::channels))
        return outOfRange("Channel number");
    ChannelConfig& c = ocore.state.channel[channel];
    ChannelConfig n = config;
    n.number = c.number;
    n.type = c.type;
    n.sampleType = c.sampleType;
    c = n;
    ocore.dirty = true;
    return ZError();
}

ZError SimServer::getConfigServe(Configuration& config) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    if (!err)
        config = ocore.state.config;
    return err;
}

ZError SimServer::setConfigServe(const Configuration& config) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Change);
    return err ? err : ocore.setConfiguration(config);
}

ZError SimServer::getMeasurementConfigServe(const bool& which, MeasurementConfig& config) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    if (!err)
        config = ocore.state.measure[which ? 1 : 0];
    return err;
}

ZError SimServer::setMeasurementConfigServe(const bool& which, const MeasurementConfig& config) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(which ? Access::Change : Access::Read);
    if (!err)
        err = SimMeasure::check(config);
    if (err)
        return err;
    ocore.state.measure[which ? 1 : 0] = config;
    ocore.dirty = true;
    return ZError();
}

ZError SimServer::sendDataEnableServe(const unsigned char& enable) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    if (!err)
        ocore.dataEnable = enable & 7;
    return err;
}

ZError SimServer::measureServe(const DataType& type, DataBlock& block) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    if (err)
        return err;
    uint64_t t = ocore.unitTimeUs();
    if (!ocore.measure.running())
        ocore.applyScale();
    return ocore.measure.snapshot(type, double(t % 86400000000ull) / 1e6, t, block);
}

// ------------------------------------------------------------ outputs

ZError SimServer::getAwgConfigServe(const bool& which, AwgConfig& config) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    if (!err)
        config = ocore.state.awg[which ? 1 : 0];
    return err;
}

ZError SimServer::setAwgConfigServe(const bool& which, const AwgConfig& config) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(which ? Access::Change : Access::Read);
    if (!err)
        err = SimState::checkAwg(config);
    if (err)
        return err;
    ocore.state.awg[which ? 1 : 0] = config;
    if (!which)
        ocore.signals.setAwg(config);
    ocore.dirty = true;
    return ZError();
}

ZError SimServer::setAwgWaveformServe(const unsigned int& index, const unsigned int& length,
                                      const FileData& data) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    if (err)
        return err;
    if (data.length > FileData::dataMax)
        return ZError(22, "Invalid length");
    ocore.signals.setAwgWaveform(index, length, data.data, data.length);
    return ZError();
}

ZError SimServer::setAnalogueOutServe(const unsigned int& channel, const float& value) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    if (err)
        return err;
    if (channel >= 2)
        return outOfRange("Channel number");
    if (!std::isfinite(value) || std::fabs(value) > 10.0f)
        return ZError(22, "Invalid value");
    ocore.signals.setAnalogueOut(channel, value);
    return ZError();
}

ZError SimServer::setDigitalServe(const unsigned int& value) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    if (!err)
        ocore.signals.setDigital(value, ocore.state.config.digitalMode);
    return err;
}

ZError SimServer::getDigitalServe(unsigned int& value) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    if (!err)
        value = ocore.signals.digitalAt(double(ocore.unitTimeUs() % 86400000000ull) / 1e6);
    return err;
}

ZError SimServer::setRelayServe(const unsigned int& relay, const bool& on) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    if (err)
        return err;
    if (relay >= 2)
        return outOfRange("Relay number");
    ocore.relays = on ? ocore.relays | (1u << relay) : ocore.relays & ~(1u << relay);
    return ZError();
}

ZError SimServer::getSwitchServe(const unsigned int& number, bool& on) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    if (err)
        return err;
    // Switch 0 is the front button (never pressed here), switch 1 the card detect.
    if (number >= 2)
        return outOfRange("Switch number");
    on = number == 1 && ocore.options.sdcard;
    return ZError();
}

ZError SimServer::alarmsClearServe(const unsigned int& mask) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    if (!err)
        ocore.measure.clearAlarms(mask);
    return err;
}

// ------------------------------------------------------------ files

ZError SimServer::filesysInfoServe(const ZString& path, FilesysInfo& info) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    return err ? err : ocore.files.info(path, info);
}

ZError SimServer::filesysDeleteServe(const ZString& path, const FilesysDeleteType& type) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Change);
    if (err)
        return err;
    if (ocore.recorder.active() && SimFiles::rootOf(ocore.recorder.path()) == path)
        ocore.recorder.end();
    return ocore.files.removeAll(path, type);
}

ZError SimServer::fileListServe(const ZString& path, const unsigned int& index, FileInfo& info) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    return err ? err : ocore.files.list(path, index, info);
}

ZError SimServer::fileOpenServe(const ZString& name, const ZString& mode, unsigned int& handle) {
    Lock lock(ocore.mutex);
    bool reading = mode == "r" || mode == "rb";
    ZError err = ocore.allowed(reading ? Access::Read : Access::Change);
    return err ? err : ocore.files.open(name, mode, now(), handle);
}

ZError SimServer::fileReadServe(const unsigned int& handle, const unsigned int& offset,
                                const unsigned int& length, FileData& data) {
    Lock lock(ocore.mutex);
    return ocore.files.read(handle, offset, length, data);
}

ZError SimServer::fileWriteServe(const unsigned int& handle, const unsigned int& offset,
                                 const FileData& data) {
    Lock lock(ocore.mutex);
    return ocore.files.write(handle, offset, data, now());
}

ZError SimServer::fileCloseServe(const unsigned int& handle) {
    Lock lock(ocore.mutex);
    return ocore.files.close(handle);
}

ZError SimServer::fileDeleteServe(const ZString& path) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Change);
    if (err)
        return err;
    if (ocore.recorder.active() && ocore.recorder.path() == path)
        return ZError(16, "File is open");
    return ocore.files.remove(path);
}

// ------------------------------------------------------------ WiFi

ZError SimServer::wifiAccesspointNumServe(unsigned int& number) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    if (!err)
        number = ocore.wifiStatus == WifiStatus::Off ? 0 : SimAccessPoint::number;
    return err;
}

ZError SimServer::wifiAccesspointInfoServe(const unsigned int& index, WifiAccessPoint& info) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    if (err)
        return err;
    if (ocore.wifiStatus == WifiStatus::Off || index >= unsigned(SimAccessPoint::number))
        return ZError(22, "No such access point");
    const SimAccessPoint& a = SimAccessPoint::all[index];
    info = WifiAccessPoint();
    setCharArray(info.name, a.name);
    // Levels wander by a few dB from one look to the next.
    info.signalLevel = a.level - int(ocore.unitTimeUs() / 1000000 % 4);
    info.channel = a.channel;
    info.auth = a.auth;
    return ZError();
}

ZError SimServer::wifiCommandServe(const WifiCmd& command) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    if (err)
        return err;
    if (uint8_t(command) > uint8_t(WifiCmd::Disconnect))
        return ZError(22, "Invalid command");
    if (command == WifiCmd::Connect && !ocore.state.config.wifiAp0[0])
        return ZError(22, "No access point set");
    if (command == WifiCmd::Scan && ocore.wifiStatus == WifiStatus::Off)
        ocore.wifiCommand(WifiCmd::On);
    ocore.wifiCommand(command);
    return ZError();
}

// ------------------------------------------------------------ board

ZError SimServer::getBoardConfigServe(BoardConfig& config) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    if (!err)
        config = ocore.state.board;
    return err;
}

ZError SimServer::setBoardConfigServe(const BoardConfig& config) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Change);
    if (err)
        return err;
    ZString serial = getCharArray(config.serialNumber);
    if (serial.isEmpty() || serial.len() >= int(sizeof(config.serialNumber)))
        return ZError(22, "Invalid serial number");
    SimState& s = ocore.state;
    s.board = config;
    s.board.fpgaVersion = s.nodeInfo.fpgaVersion;
    s.board.wifiVersion = s.nodeInfo.wifiVersion;
    setCharArray(s.nodeInfo.serialNumber, serial);
    s.nodeInfo.hardwareVersion = config.hardwareVersion;
    ocore.applyBoardCalibration();
    ocore.dirty = true;
    return ZError();
}

ZError SimServer::runBoardTestServe(const ZString& test) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Change);
    if (err)
        return err;
    bool known = false;
    for (const char* t : BoardTests)
        known = known || test == t;
    if (!known)
        return ZError(22, "Unknown test");
    if (test == "sdcard" && !ocore.options.sdcard)
        err = ZError(19, "No such device");
    ocore.message(uint32_t(MessageSource::Test),
                  "Board test " + test + (err ? ": failed, " + err.str() : ZString(": passed")));
    return err;
}

ZError SimServer::calibrateServe(const CalibrateInfo& info) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Change);
    if (err)
        return err;
    if (ocore.measure.running())
        return ZError(16, "Measurement running");
    if (info.stage > uint32_t(CalibrateStage::ChanScaling))
        return ZError(22, "Invalid calibration stage");
    BoardConfig& b = ocore.state.board;
    uint32_t mask = info.channelMask & 0xFF ? info.channelMask : 0xFF;
    CalibrateStage stage = CalibrateStage(info.stage);
    bool board = true;
    for (int c = 0; c < SimState::analogue; c++) {
        if (!(mask & (1u << c)))
            continue;
        ChannelConfig& ch = ocore.state.channel[c];
        // What the unit measures on its reference inputs.
        double offset = 0.0004 * double(c + 1) - 0.0018;
        double scale = 1.0 + 0.0004 * double((c * 5) % 7) - 0.0012;
        double atten = 10.0 + 0.003 * double(c % 4);
        switch (stage) {
        case CalibrateStage::Clear:
            b.calibAdcOffsets[c] = 0.0;
            b.calibAdcScales[c] = 1.0;
            b.calibAttenScales[c] = 10.0;
            break;
        case CalibrateStage::AdcOffsets:
            b.calibAdcOffsets[c] = offset;
            break;
        case CalibrateStage::AdcScaling:
        case CalibrateStage::AdcScalingWithAtten:
            b.calibAdcScales[c] = scale;
            break;
        case CalibrateStage::AttenScaling:
            b.calibAttenScales[c] = atten;
            break;
        case CalibrateStage::ChanClear:
            ch.calibOffset = 0.0;
            ch.calibScale = 1.0;
            ch.calibScaleAtten1 = 10.0;
            board = false;
            break;
        case CalibrateStage::ChanOffsets:
            ch.calibOffset = offset;
            board = false;
            break;
        case CalibrateStage::ChanScaling:
            ch.calibScale = scale;
            board = false;
            break;
        default:
            break;
        }
    }
    switch (stage) {
    case CalibrateStage::None:
    case CalibrateStage::Settle:
        return ZError();
    case CalibrateStage::Clear:
        b.calibDacOffsets[0] = b.calibDacOffsets[1] = 0.0;
        b.calibDacScales[0] = b.calibDacScales[1] = 1.0;
        b.calibFiveVolts = 5.0;
        break;
    case CalibrateStage::DacOffsets:
        b.calibDacOffsets[0] = 0.0018;
        b.calibDacOffsets[1] = -0.0011;
        break;
    case CalibrateStage::DacScaling0:
        b.calibDacScales[0] = 1.0003;
        break;
    case CalibrateStage::DacScaling1:
        b.calibDacScales[1] = 0.9996;
        break;
    case CalibrateStage::geFiveVolts:
        b.calibFiveVolts =
            std::isfinite(info.value) && std::fabs(info.value - 5.0) < 0.5 ? info.value : 5.0009;
        break;
    default:
        break;
    }
    b.calibTime = ZTime(now());
    b.calibTemp = 23.1f;
    if (board)
        ocore.applyBoardCalibration();
    ocore.dirty = true;
    if (debugging(ocore))
        ocore.message(uint32_t(MessageSource::Debug), "Calibrate " + toZString(stage) + ": done");
    return ZError();
}

// ------------------------------------------------------------ streams

ZError SimServer::setDigitalSerialServe(const SerialConfig& config) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Change);
    if (err)
        return err;
    if (config.numBits < 5 || config.numBits > 8 || config.numStopBits < 1 ||
        config.numStopBits > 2 || config.baudRate == 0 || config.baudRate > 1000000)
        return ZError(22, "Invalid serial config");
    return ZError();
}

ZError SimServer::setDevConfigServe(const DevConfig& config) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Change);
    if (err)
        return err;
    if (config.stream > uint8_t(Stream::DigitalI2c))
        return ZError(22, "Invalid stream");
    return ZError();
}

ZError SimServer::transactDevServe(const Transact& request, Transact& reply) {
    Lock lock(ocore.mutex);
    ZError err = ocore.allowed(Access::Read);
    if (err)
        return err;
    if (request.txNum > Transact::dataMax || request.rxNum > Transact::dataMax)
        return ZError(22, "Invalid length");
    reply = Transact();
    reply.stream = request.stream;
    reply.devAddress = request.devAddress;
    switch (Stream(request.stream)) {
    case Stream::DigitialioSerial:
        // The serial pins are looped back: what goes out comes back.
        reply.rxNum = std::min(request.rxNum, request.txNum);
        memcpy(reply.data, request.data, reply.rxNum);
        return ZError();
    case Stream::DigitalI2c:
        // A temperature sensor at 0x48 answers 23.5 degrees.
        if (request.devAddress != 0x48)
            return ZError(6, "No device at address");
        reply.rxNum = request.rxNum;
        for (unsigned int i = 0; i < reply.rxNum; i++)
            reply.data[i] = i % 2 ? 0x80 : 0x17;
        return ZError();
    default:
        return ZError(22, "Invalid stream");
    }
}

} // namespace TavroSim
