#include "simcore.h"

#include "simserve.h"
#include "simwire.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace TavroSim {

using namespace TavroApi;

namespace {

// Raw blocks made in one go before the unit pushes them and looks around.
const unsigned int BatchBlocks = 64;
// More sample periods than this owed (seconds) and the capture skips ahead.
const double BacklogMax = 2.0;
const std::chrono::milliseconds Tick(20);
const int DebugEvery = 5; // seconds between debug messages

uint32_t address(unsigned a, unsigned b, unsigned c, unsigned d) {
    return a << 24 | b << 16 | c << 8 | d;
}

// The version an image carries: a processor image header (magic 0x7C5D3E00,
// version at 13..15) at 512, also behind a 64-byte package section header,
// or a package file header (magic 0x01524F4B, type 33, version at 32..34).
bool imageVersion(const std::vector<uint8_t>& image, Version& v) {
    for (size_t at : {size_t(512), size_t(576)}) {
        uint32_t magic = 0;
        if (image.size() < at + 16)
            continue;
        memcpy(&magic, image.data() + at, 4);
        if (magic == 0x7C5D3E00) {
            v.ver0 = image[at + 13];
            v.ver1 = image[at + 14];
            v.ver2 = image[at + 15];
            return true;
        }
    }
    uint32_t head[5];
    if (image.size() >= 64) {
        memcpy(head, image.data(), sizeof(head));
        if (head[0] == 0x01524F4B && head[4] == 33) {
            v.ver0 = image[32];
            v.ver1 = image[33];
            v.ver2 = image[34];
            return true;
        }
    }
    return false;
}

} // namespace

const SimAccessPoint SimAccessPoint::all[SimAccessPoint::number] = {
    {"Korvel-Lab", -48, 6, 3, WifiStatus::ConnectedInternet},
    {"Workshop", -61, 11, 3, WifiStatus::Connected},
    {"Office-5G", -67, 36, 4, WifiStatus::ConnectedInternet},
    {"Guest", -74, 1, 0, WifiStatus::ConnectedInternet},
};

const SimAccessPoint* SimAccessPoint::find(const ZString& name) {
    for (const SimAccessPoint& a : all)
        if (name == a.name)
            return &a;
    return nullptr;
}

SimCore::SimCore(const SimOptions& o)
    : options(o), measure(signals), files(o.sdcard), mode(Mode::Idle), clockOffsetUs(0),
      dataEnable(1), generation(0), loggedIn(false), relays(0), errorNumber(0), overrun(false),
      dirty(false), wifiStatus(WifiStatus::Off), owed(0.0), rebootPending(false),
      resetPending(false), dropAfter(0), delayUs(0), garbageBytes(0), garbagePackets(0),
      errorFunction(0), noStatus(false), dropNow(false), server(nullptr), wire(nullptr),
      serving(false), links(0), stopped(false), blocksSent(0), quit(false) {
    status = state.init(options);
    if (!status && !options.stateFile.isEmpty())
        status = state.load(options.stateFile);
    if (status)
        return;
    awayUntil = Clock::now();
    {
        std::lock_guard<std::mutex> lock(mutex);
        boot();
    }
    thread = std::thread([this] { run(); });
}

SimCore::~SimCore() {
    {
        std::lock_guard<std::mutex> lock(wakeMutex);
        quit = true;
    }
    wakeUp.notify_all();
    if (thread.joinable())
        thread.join();
    std::lock_guard<std::mutex> lock(mutex);
    if (dirty && !options.stateFile.isEmpty())
        state.save(options.stateFile);
}

void SimCore::wake() {
    wakeUp.notify_all();
}

uint64_t SimCore::unitTimeUs() const {
    return ZTimeUs::now().getMicroSeconds() + clockOffsetUs;
}

bool SimCore::softwarePushesStatus() const {
    const Version& v = state.nodeInfo.softwareVersion;
    return v.ver0 >= 2 || v.ver1 != 0 || v.ver2 > 7;
}

ZError SimCore::allowed(Access access) const {
    SecurityMode m = state.config.securityMode;
    bool needLogin = (access == Access::Change && m != SecurityMode::Basic) ||
                     (access == Access::Read && m == SecurityMode::Full);
    if (needLogin && !loggedIn)
        return ZError(13, "Access denied: login required");
    return ZError();
}

NodeStatus SimCore::nodeStatus() const {
    NodeStatus s;
    s.time = ZTimeUs(unitTimeUs());
    if (measure.running())
        s.status |= uint32_t(Status::Run);
    if (measure.phase() == SimMeasure::Phase::WaitTrigger)
        s.status |= uint32_t(Status::TriggerWait);
    if (measure.alarms())
        s.status |= uint32_t(Status::Alarm);
    if (errorNumber)
        s.status |= uint32_t(Status::Error);
    if (overrun)
        s.status |= uint32_t(Status::DataOverrun);
    s.error = errorNumber;
    setCharArray(s.errorStr, errorText);
    s.mode = mode;
    s.ethernetStatus = state.config.networkMode != NetworkMode::Off ? 1 : 0;
    s.wifiStatus = uint8_t(wifiStatus);
    return s;
}

Information SimCore::information() const {
    const Configuration& c = state.config;
    Information i;
    i.nodeInfo = state.nodeInfo;
    i.numChannels = SimState::channels;
    i.time = ZTimeUs(unitTimeUs());
    i.networkMode = uint32_t(c.networkMode);
    memcpy(i.networkMacAddress, state.board.macAddress, 6);
    if (c.networkMode == NetworkMode::Manual) {
        i.networkAddress = c.networkAddress;
        i.networkMask = c.networkMask;
        i.networkGateway = c.networkGateway;
        i.networkNameServer0 = c.networkNameServer0;
        i.networkTimeServer = c.networkTimeServer;
    } else if (c.networkMode == NetworkMode::Dhcp) {
        // What the office DHCP server hands out.
        i.networkAddress = address(192, 168, 1, 57);
        i.networkMask = address(255, 255, 255, 0);
        i.networkGateway = address(192, 168, 1, 1);
        i.networkNameServer0 = address(192, 168, 1, 1);
        i.networkTimeServer = address(192, 168, 1, 1);
    }
    i.wifiMode = uint32_t(c.wifiMode);
    memcpy(i.wifiMacAddress, state.board.macAddress, 6);
    i.wifiMacAddress[5] |= 1;
    if (wifiStatus >= WifiStatus::Connected) {
        i.wifiAddress = address(192, 168, 1, 58);
        i.wifiMask = address(255, 255, 255, 0);
        i.wifiGateway = address(192, 168, 1, 1);
    }
    i.calibTime = state.board.calibTime;
    return i;
}

InfoBlock SimCore::infoBlock() const {
    InfoBlock b;
    b.time = unitTimeUs();
    b.numChannels = SimState::channels;
    b.version = 1;
    b.fileType = TavdFileType::Stream;
    b.dataType = DataType::Raw40x;
    memcpy(b.name, state.config.name, sizeof(b.name));
    memcpy(b.location, state.config.location, sizeof(b.location));
    b.nodeInfo = state.nodeInfo;
    b.measureConfig = state.measure[0];
    return b;
}

void SimCore::message(unsigned int type, const ZString& text) {
    if (messages.size() < 64)
        messages.push_back(ZString(char('0' + type % 10)) + text);
}

ZError SimCore::setMode(Mode m) {
    switch (m) {
    case Mode::Run:
    case Mode::Demo1:
        startCapture(state.measure[0]);
        break;
    case Mode::Idle:
    case Mode::RunProgram:
    case Mode::Internal:
    case Mode::Sleep:
        stopCapture();
        break;
    default:
        return ZError(22, "Invalid mode");
    }
    mode = m;
    return ZError();
}

ZError SimCore::setConfiguration(const Configuration& c) {
    ZError err = SimState::checkConfiguration(c);
    if (err)
        return err;
    if (c.logDataDevice == 1 && !options.sdcard)
        return ZError(19, "No such device");
    bool wifiChanged = c.wifiMode != state.config.wifiMode ||
                       strncmp(c.wifiAp0, state.config.wifiAp0, sizeof(c.wifiAp0)) != 0;
    state.config = c;
    state.nodeInfo.securityMode = c.securityMode;
    signals.setDigital(signals.digitalOutputs(), c.digitalMode);
    measure.setAlarms(c.alarms, Configuration::numAlarms);
    if (wifiChanged)
        wifiCommand(c.wifiMode == WifiMode::Off ? WifiCmd::Off : WifiCmd::Connect);
    dirty = true;
    return ZError();
}

void SimCore::applyScale() {
    double scale[SimState::analogue];
    for (int c = 0; c < SimState::analogue; c++)
        scale[c] = state.rawScale(c);
    measure.setScale(scale);
}

void SimCore::startCapture(const MeasurementConfig& config) {
    recorder.end();
    applyScale();
    measure.setAlarms(state.config.alarms, Configuration::numAlarms);
    captureConfig = config;
    generation++;
    measure.start(config, unitTimeUs());
    owed = 0.0;
    overrun = false;
    lastStep = Clock::now();
    wake();
}

void SimCore::stopCapture() {
    generation++;
    measure.stop();
    recorder.end();
}

void SimCore::applyBoardCalibration() {
    for (int c = 0; c < SimState::analogue; c++) {
        ChannelConfig& ch = state.channel[c];
        ch.calibOffset = state.board.calibAdcOffsets[c];
        ch.calibScale = state.board.calibAdcScales[c];
        ch.calibScaleAtten1 = state.board.calibAttenScales[c];
    }
}

void SimCore::wifiCommand(WifiCmd command) {
    switch (command) {
    case WifiCmd::Off:
        wifiStatus = WifiStatus::Off;
        break;
    case WifiCmd::On:
    case WifiCmd::Disconnect:
        wifiStatus = WifiStatus::On;
        break;
    case WifiCmd::Connect:
        wifiStatus = WifiStatus::Connecting;
        wifiTarget = getCharArray(state.config.wifiAp0);
        wifiReadyAt = Clock::now() + std::chrono::milliseconds(1500);
        break;
    default:
        break;
    }
}

void SimCore::boot() {
    mode = Mode::Idle;
    dataEnable = 1;
    loggedIn = false;
    relays = 0;
    errorNumber = 0;
    errorText.clear();
    signals.setAwg(state.awg[0]);
    signals.setDigital(0, state.config.digitalMode);
    measure.stop();
    measure.clearAlarms(0xFFFFFFFF);
    recorder.end();
    messages.clear();
    wifiStatus = WifiStatus::Off;
    if (state.config.wifiMode != WifiMode::Off && state.config.wifiAp0[0])
        wifiCommand(WifiCmd::Connect);
    // A unit configured for autonomous running starts its capture itself.
    if (state.config.mode == Mode::Run && !SimMeasure::check(state.measure[1])) {
        startCapture(state.measure[1]);
        mode = Mode::Run;
    }
}

void SimCore::restart(bool factoryReset) {
    stopCapture();
    for (unsigned int h = 1; h <= SimFiles::handlesMax; h++)
        files.close(h);
    const char* const targets[] = {"FirmwareCpu", "FirmwareFpga", "FirmwareWifi"};
    Version* versions[] = {&state.nodeInfo.softwareVersion, &state.nodeInfo.fpgaVersion,
                           &state.nodeInfo.wifiVersion};
    for (int i = 0; i < 3; i++) {
        std::vector<uint8_t> image;
        Version v = *versions[i];
        if (files.takeFirmware(targets[i], image) && imageVersion(image, v)) {
            *versions[i] = v;
            state.firmwareInstalled = true;
            dirty = true;
        }
    }
    state.board.fpgaVersion = state.nodeInfo.fpgaVersion;
    state.board.wifiVersion = state.nodeInfo.wifiVersion;
    if (factoryReset) {
        state.factoryDefaults();
        applyBoardCalibration();
        dirty = true;
    }
    awayUntil = Clock::now() + std::chrono::milliseconds(options.rebootMs);
    boot();
}

// ------------------------------------------------------------ the unit's thread

void SimCore::record(const SimBlock& b) {
    uint8_t log = state.config.logData;
    if (!(log & (b.processed ? 2 : 1)))
        return;
    uint32_t now = uint32_t(unitTimeUs() / 1000000);
    ZError err;
    if (!recorder.active()) {
        ZString root = state.config.logDataDevice == 1 ? "/sdcard" : "/internal";
        ZString name = root + "/data/data_" + ZTime(now).getString("filename");
        ZString path = name + ".tavd";
        for (int k = 2; files.exists(path) && k < 1000; k++)
            path = name + "_" + ZString(k) + ".tavd";
        InfoBlock info = infoBlock();
        info.fileType = TavdFileType::Block512;
        info.dataType = (log & 1) ? DataType::Raw40x : DataType::Proc;
        info.measureConfig = captureConfig;
        err = recorder.start(files, path, info, state.channel, SimState::channels,
                             state.config.logDataMode == uint8_t(LogDataMode::DeleteOld), now);
    }
    if (!err)
        err = b.processed ? recorder.add(b.proc, now) : recorder.add(b.raw, now);
    if (err) {
        errorNumber = uint32_t(err.number);
        errorText = "Data logging: " + err.str();
        recorder.end();
    }
}

void SimCore::step(std::vector<SimBlock>& out, bool linked, bool& more) {
    more = false;
    Clock::time_point now = Clock::now();
    double dt = std::chrono::duration<double>(now - lastStep).count();
    lastStep = now;
    if (!measure.running())
        return;
    double rate = measure.sampleRate();
    // Fast only while a link takes the data; waiting for a trigger, logging
    // alone or with nobody there, the unit keeps to real time.
    bool fast = options.fast && linked && (dataEnable & 6) &&
                measure.phase() != SimMeasure::Phase::WaitTrigger;
    if (fast)
        owed = double(BatchBlocks) * DataBlock::rawRowsMax;
    else
        owed += dt * rate;
    if (owed > std::max(BacklogMax * rate, 4096.0)) {
        // The link could not take the data in time: samples are lost.
        measure.skip(uint64_t(owed));
        overrun = true;
        owed = 0.0;
    }
    uint64_t used = measure.run(uint64_t(owed), BatchBlocks, out);
    owed = fast ? 0.0 : std::max(0.0, owed - double(used));
    more = fast || owed >= 1.0;
    // A file holds one capture: its last raw block and the processed block
    // made with it go in, then the file is done.
    bool ending = false;
    for (const SimBlock& b : out) {
        bool last = (b.processed ? b.proc.status : b.raw.status) & uint16_t(Status::End0);
        if (ending && !(b.processed && last))
            recorder.end();
        ending = false;
        record(b);
        if (last && b.processed)
            recorder.end();
        else
            ending = last;
    }
    if (ending)
        recorder.end();
    if (measure.finished()) {
        // A one-shot capture is over: the unit goes back to idle.
        mode = Mode::Idle;
        recorder.end();
        more = false;
    }
    if (out.empty())
        more = false;
}

void SimCore::push(const std::vector<SimBlock>& blocks, uint32_t made, bool status) {
    std::lock_guard<std::mutex> link(linkMutex);
    if (!server || dropNow)
        return;
    // Under the state lock: a block made before a call that started or
    // stopped a capture never goes out after that call's reply.
    std::lock_guard<std::mutex> lock(mutex);
    for (size_t i = 0; i < blocks.size() && made == generation; i++) {
        const SimBlock& b = blocks[i];
        if (!(dataEnable & (b.processed ? 4 : 2)))
            continue;
        DataBlock d;
        if (b.processed)
            memcpy(static_cast<void*>(&d), &b.proc, sizeof(b.proc));
        else
            d = b.raw;
        if (server->sendData(d))
            return;
        blocksSent++;
        unsigned int left = dropAfter;
        if (left == 1) {
            dropAfter = 0;
            dropNow = true;
            return;
        }
        if (left > 1)
            dropAfter = left - 1;
    }
    if (status && !noStatus && (dataEnable & 1))
        server->sendStatus(nodeStatus());
    for (const ZString& t : messages)
        server->sendMessage(unsigned(t[0] - '0'), t.subString(1));
    messages.clear();
}

void SimCore::run() {
    std::vector<SimBlock> blocks;
    Clock::time_point nextStatus = Clock::now();
    Clock::time_point nextDebug = Clock::now() + std::chrono::seconds(DebugEvery);
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(wakeMutex);
            if (quit)
                return;
        }
        bool linked;
        {
            std::lock_guard<std::mutex> link(linkMutex);
            linked = server != nullptr && !dropNow;
        }
        bool more = false, status = false;
        uint32_t made;
        blocks.clear();
        Clock::time_point now = Clock::now();
        {
            std::lock_guard<std::mutex> lock(mutex);
            step(blocks, linked, more);
            made = generation;
            if (now >= nextStatus) {
                nextStatus = now + std::chrono::seconds(1);
                status = softwarePushesStatus();
                if (dirty && !options.stateFile.isEmpty() && !state.save(options.stateFile))
                    dirty = false;
            }
            if (wifiStatus == WifiStatus::Connecting && now >= wifiReadyAt) {
                const SimAccessPoint* ap = SimAccessPoint::find(wifiTarget);
                wifiStatus = ap ? ap->reach : WifiStatus::On;
                if (options.debug || state.board.testMode)
                    message(uint32_t(MessageSource::Wifi),
                            ap ? "Wifi connected to " + wifiTarget
                               : "Wifi access point not found: " + wifiTarget);
            }
            if (now >= nextDebug) {
                nextDebug = now + std::chrono::seconds(DebugEvery);
                if (options.debug || state.board.testMode) {
                    ZString text;
                    text.printf("cpu load %u%%, heap free %u, blocks sent %lu",
                                measure.running() ? 37u : 4u, measure.running() ? 41876u : 48212u,
                                (unsigned long)blocksSent.load());
                    message(uint32_t(MessageSource::Debug), text);
                }
            }
        }
        if (linked)
            push(blocks, made, status);
        if (more)
            continue;
        std::unique_lock<std::mutex> lock(wakeMutex);
        wakeUp.wait_for(lock, Tick, [this] { return quit; });
    }
}

} // namespace TavroSim
