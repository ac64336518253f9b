#include "simstate.h"

#include "simmeasure.h"
#include "zfile.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace TavroSim {

using namespace TavroApi;

namespace {

const char FileMagic[8] = {'T', 'A', 'V', 'R', 'O', 'S', 'I', 'M'};
const uint32_t FileVersion = 1;
const uint32_t FileMax = 1 << 20;

enum Section : uint32_t {
    SecConfiguration = 1,
    SecBoard = 2,
    SecChannels = 3,
    SecMeasure = 4,
    SecAwg = 5,
    SecUsers = 6,
    SecFirmware = 7
};

uint32_t crc32(const uint8_t* p, size_t n) {
    uint32_t c = 0xFFFFFFFF;
    for (size_t i = 0; i < n; i++) {
        c ^= p[i];
        for (int k = 0; k < 8; k++)
            c = (c >> 1) ^ (0xEDB88320 & (0 - (c & 1)));
    }
    return ~c;
}

void putWord(std::vector<uint8_t>& out, uint32_t v) {
    const uint8_t* b = reinterpret_cast<const uint8_t*>(&v);
    out.insert(out.end(), b, b + 4);
}

void putSection(std::vector<uint8_t>& out, uint32_t tag, const void* data, size_t n) {
    putWord(out, tag);
    putWord(out, uint32_t(n));
    const uint8_t* b = static_cast<const uint8_t*>(data);
    out.insert(out.end(), b, b + n);
}

// "X.Y.Z" (or "X.Y" for two parts) of numbers up to max each.
bool parseVersion(const ZString& text, int parts, unsigned int max, unsigned int v[3]) {
    ZList<ZString> fields = text.split('.');
    if (fields.number() != parts)
        return false;
    int i = 0;
    for (const ZString& f : fields) {
        if (f.isEmpty() || f.len() > 5)
            return false;
        for (int k = 0; k < f.len(); k++)
            if (f[k] < '0' || f[k] > '9')
                return false;
        v[i] = unsigned(atoi(f.str()));
        if (v[i++] > max)
            return false;
    }
    return true;
}

bool terminated(const char* s, size_t n) {
    return memchr(s, 0, n) != nullptr;
}

Version version(uint8_t a, uint8_t b, uint8_t c) {
    Version v;
    v.ver0 = a;
    v.ver1 = b;
    v.ver2 = c;
    return v;
}

uint32_t address(unsigned a, unsigned b, unsigned c, unsigned d) {
    return a << 24 | b << 16 | c << 8 | d;
}

} // namespace

SimState::SimState() : firmwareInstalled(false) {}

ZError SimState::init(const SimOptions& options) {
    unsigned int sw[3], api[3];
    if (options.serial.isEmpty() || options.serial.len() >= int(sizeof(nodeInfo.serialNumber)))
        return ZError(1, "Invalid serial number: " + options.serial);
    if (!parseVersion(options.software, 3, 255, sw))
        return ZError(1, "Invalid software version: " + options.software);
    if (!parseVersion(options.api, 2, 65535, api))
        return ZError(1, "Invalid API version: " + options.api);

    nodeInfo = NodeInfo();
    nodeInfo.apiVersion.maj = uint16_t(api[0]);
    nodeInfo.apiVersion.mid = uint16_t(api[1]);
    nodeInfo.hardwareVersion = version(1, 2, 0);
    nodeInfo.fpgaVersion = version(1, 3, 2);
    nodeInfo.wifiVersion = version(1, 4, 1);
    nodeInfo.softwareVersion = version(uint8_t(sw[0]), uint8_t(sw[1]), uint8_t(sw[2]));
    setCharArray(nodeInfo.variant, "Tavro-400");
    setCharArray(nodeInfo.serialNumber, options.serial);

    // Factory data: a MAC address from the serial number, a calibration of
    // the kind a production test leaves.
    board = BoardConfig();
    board.magic = 0x42564154; // "TAVB"
    board.hardwareVersion = nodeInfo.hardwareVersion;
    setCharArray(board.serialNumber, options.serial);
    board.buildTime = ZTime(2023, 3, 14, 10, 0, 0);
    uint32_t h = options.serial.hash();
    const uint8_t mac[6] = {0x70, 0xB3, 0xD5, uint8_t(h >> 16), uint8_t(h >> 8), uint8_t(h & 0xFE)};
    memcpy(board.macAddress, mac, 6);
    board.calibTime = ZTime(2024, 1, 15, 9, 30, 0);
    board.calibTemp = 22.8f;
    board.calibDacOffsets[0] = 0.0021;
    board.calibDacOffsets[1] = -0.0013;
    board.calibDacScales[0] = 1.0004;
    board.calibDacScales[1] = 0.9997;
    for (int c = 0; c < analogue; c++) {
        board.calibAdcOffsets[c] = 0.001 * double((c * 7) % 5) - 0.002;
        board.calibAdcScales[c] = 1.0 + 0.0005 * double((c * 3) % 7) - 0.0015;
        board.calibAttenScales[c] = 10.0 + 0.004 * double(c % 3);
    }
    board.calibFiveVolts = 5.0012;
    board.fpgaVersion = nodeInfo.fpgaVersion;
    board.wifiVersion = nodeInfo.wifiVersion;

    users.clear();
    SimUser admin;
    memset(&admin, 0, sizeof(admin));
    strcpy(admin.name, "admin");
    strcpy(admin.password, "tavro");
    users.push_back(admin);
    firmwareInstalled = false;
    factoryDefaults();
    if (options.measureMode < int(MeasureMode::OneShot) ||
        options.measureMode > int(MeasureMode::Continuous))
        return ZError(1, "Invalid measure mode: " + ZString(options.measureMode));
    measure[0].measureMode = MeasureMode(options.measureMode);
    return ZError();
}

void SimState::factoryDefaults() {
    config = Configuration();
    config.version = 1;
    setCharArray(config.name, "Tavro-40x");
    setCharArray(config.location, "Lab bench");
    config.mode = Mode::Idle;
    config.securityMode = SecurityMode::Basic;
    config.digitalMode = DigitalMode::Input;
    config.networkMode = NetworkMode::Dhcp;
    config.networkAddress = address(192, 168, 1, 200);
    config.networkMask = address(255, 255, 255, 0);
    config.networkGateway = address(192, 168, 1, 1);
    config.networkNameServer0 = address(192, 168, 1, 1);
    config.networkTimeServer = address(192, 168, 1, 1);
    config.rs485Bits = 8;
    config.rs485StopBits = 1;
    config.rs485BaudRate = 115200;
    config.wifiMode = WifiMode::Off;
    for (AlarmConfig& a : config.alarms) {
        a.levelHigh = 5.0f;
        a.levelLow = -5.0f;
    }
    config.mqttPort = 1883;
    nodeInfo.securityMode = config.securityMode;

    static const char* const names[analogue] = {"Sine 50Hz", "Sine 5Hz",    "Square 2Hz",
                                                "Noise",     "Ramp 60s",    "Harmonics",
                                                "Sine 1kHz", "AWG loopback"};
    for (int c = 0; c < channels; c++) {
        ChannelConfig& ch = channel[c];
        ch = ChannelConfig();
        ch.number = uint8_t(c);
        ch.enabled = 1;
        ch.dataChannel = uint32_t(c);
        ch.calibScale = 1.0;
        ch.calibScaleAtten1 = 1.0;
        ch.pgaGain = 1.0;
        ch.scale = 1.0;
        ZString id, name;
        if (c < analogue) {
            ch.type = ChannelType::AnalogueIn;
            ch.sampleType = SampleType::Float32;
            id.printf("AI%d", c);
            name = names[c];
            setCharArray(ch.siUnits, "V");
            ch.calibOffset = board.calibAdcOffsets[c];
            ch.calibScale = board.calibAdcScales[c];
            ch.calibScaleAtten1 = board.calibAttenScales[c];
        } else {
            ch.type = ChannelType::DigitalIn;
            ch.sampleType = SampleType::Bool;
            id.printf("DI%d", c - analogue);
            name.printf("Digital %d", c - analogue);
        }
        setCharArray(ch.id, id);
        setCharArray(ch.name, name);
    }

    MeasurementConfig m;
    m.measureMode = MeasureMode::OneShot;
    m.sampleRate = 4000.0;
    m.numSamples0 = 1000;
    m.numSamples1 = 4000;
    m.measurePeriod = 8000;
    setCharArray(m.description, "Default measurement");
    measure[0] = m;
    m.measureMode = MeasureMode::Continuous;
    m.sampleRate = 1000.0;
    m.numSamples1 = 1000;
    setCharArray(m.description, "Autonomous logging");
    measure[1] = m;

    AwgConfig a;
    a.mode = AwgMode::Sine;
    a.output = AwgOutput::None;
    a.frequency = 100.0f;
    a.amplitude = 5.0f;
    a.offset = 0.0f;
    a.duty = 0.5f;
    awg[0] = a;
    awg[1] = a;
}

ZError SimState::checkConfiguration(const Configuration& c) {
    struct Limit {
        uint8_t value;
        uint8_t max;
        const char* name;
    };
    const Limit limits[] = {
        {uint8_t(c.mode), uint8_t(Mode::Demo1), "mode"},
        {uint8_t(c.securityMode), uint8_t(SecurityMode::Full), "securityMode"},
        {c.logData, 3, "logData"},
        {c.logDataMode, uint8_t(LogDataMode::DeleteOld), "logDataMode"},
        {c.logDataDevice, 1, "logDataDevice"},
        {uint8_t(c.digitalMode), uint8_t(DigitalMode::Individual), "digitalMode"},
        {uint8_t(c.networkMode), uint8_t(NetworkMode::Manual), "networkMode"},
        {uint8_t(c.rs485Mode), uint8_t(Rs485Mode::Zoap), "rs485Mode"},
        {uint8_t(c.wifiMode), uint8_t(WifiMode::Ap), "wifiMode"},
        {uint8_t(c.mqttMode), uint8_t(EventMode::Second), "mqttMode"},
        {uint8_t(c.emailMode), uint8_t(EventMode::Second), "emailMode"},
    };
    for (const Limit& l : limits)
        if (l.value > l.max)
            return ZError(22, ZString("Invalid ") + l.name);
    for (uint8_t pin : c.digitalPins)
        if (pin > uint8_t(DigPinMode::I2cDat))
            return ZError(22, "Invalid digitalPins");
    for (const AlarmConfig& a : c.alarms)
        if (uint8_t(a.mode) > uint8_t(AlarmMode::Magnitude) ||
            uint8_t(a.output) > uint8_t(AlarmOutput::RelayOff))
            return ZError(22, "Invalid alarms");
    return ZError();
}

ZError SimState::checkAwg(const AwgConfig& a) {
    if (uint8_t(a.mode) > uint8_t(AwgMode::Arbitrary))
        return ZError(22, "Invalid mode");
    if (uint8_t(a.output) > uint8_t(AwgOutput::AO01))
        return ZError(22, "Invalid output");
    if (!std::isfinite(a.frequency) || a.frequency < 0.0f || a.frequency > 100000.0f)
        return ZError(22, "Invalid frequency");
    if (!std::isfinite(a.amplitude) || std::fabs(a.amplitude) > 10.0f || !std::isfinite(a.offset) ||
        std::fabs(a.offset) > 10.0f)
        return ZError(22, "Invalid amplitude or offset");
    if (!std::isfinite(a.duty) || a.duty < 0.0f || a.duty > 1.0f)
        return ZError(22, "Invalid duty");
    return ZError();
}

ZError SimState::checkLogin(const ZString& user, const ZString& password) const {
    for (const SimUser& u : users)
        if (user == u.name && password == u.password)
            return ZError();
    return ZError(13, "Invalid user or password");
}

ZError SimState::changePassword(const ZString& user, const ZString& password,
                                const ZString& newPassword, bool own) {
    bool known = false;
    for (const SimUser& u : users)
        known = known || user == u.name;
    if (!known || (!own && checkLogin(user, password)))
        return ZError(13, "Invalid user or password");
    if (newPassword.isEmpty() || newPassword.len() >= int(sizeof(SimUser::password)))
        return ZError(22, "Invalid new password");
    for (SimUser& u : users)
        if (user == u.name) {
            memset(u.password, 0, sizeof(u.password));
            memcpy(u.password, newPassword.str(), size_t(newPassword.len()));
        }
    return ZError();
}

double SimState::rawScale(int c) const {
    const ChannelConfig& ch = channel[c];
    double calib = ch.calibScale / ch.pgaGain;
    if (ch.attenuator)
        calib *= ch.calibScaleAtten1;
    if (!std::isfinite(calib) || std::fabs(calib) < 1e-9)
        return 1.0;
    return 1.0 / calib;
}

// ------------------------------------------------------------ state file

void SimState::image(std::vector<uint8_t>& out) const {
    out.assign(FileMagic, FileMagic + sizeof(FileMagic));
    putWord(out, FileVersion);
    putWord(out, firmwareInstalled ? 7 : 6);
    putSection(out, SecConfiguration, &config, sizeof(config));
    putSection(out, SecBoard, &board, sizeof(board));
    putSection(out, SecChannels, channel, sizeof(channel));
    putSection(out, SecMeasure, measure, sizeof(measure));
    putSection(out, SecAwg, awg, sizeof(awg));
    putSection(out, SecUsers, users.data(), users.size() * sizeof(SimUser));
    if (firmwareInstalled) {
        const Version v[3] = {nodeInfo.softwareVersion, nodeInfo.fpgaVersion, nodeInfo.wifiVersion};
        putSection(out, SecFirmware, v, sizeof(v));
    }
    putWord(out, crc32(out.data(), out.size()));
}

ZError SimState::fromImage(const std::vector<uint8_t>& in) {
    const size_t head = sizeof(FileMagic) + 8;
    if (in.size() < head + 4 || memcmp(in.data(), FileMagic, sizeof(FileMagic)) != 0)
        return ZError("not a unit state file");
    uint32_t word[2], crc;
    memcpy(word, in.data() + sizeof(FileMagic), 8);
    memcpy(&crc, in.data() + in.size() - 4, 4);
    if (word[0] != FileVersion)
        return ZError("unsupported version");
    if (crc != crc32(in.data(), in.size() - 4))
        return ZError("checksum error");

    SimState s = *this;
    bool seen[8] = {};
    size_t pos = head, end = in.size() - 4;
    for (uint32_t i = 0; i < word[1]; i++) {
        uint32_t tag, length;
        if (end - pos < 8)
            return ZError("truncated");
        memcpy(&tag, in.data() + pos, 4);
        memcpy(&length, in.data() + pos + 4, 4);
        pos += 8;
        if (length > end - pos)
            return ZError("truncated");
        const uint8_t* p = in.data() + pos;
        pos += length;
        void* target = nullptr;
        size_t size = 0;
        Version firmware[3];
        switch (tag) {
        case SecConfiguration:
            target = &s.config;
            size = sizeof(s.config);
            break;
        case SecBoard:
            target = &s.board;
            size = sizeof(s.board);
            break;
        case SecChannels:
            target = s.channel;
            size = sizeof(s.channel);
            break;
        case SecMeasure:
            target = s.measure;
            size = sizeof(s.measure);
            break;
        case SecAwg:
            target = s.awg;
            size = sizeof(s.awg);
            break;
        case SecFirmware:
            target = firmware;
            size = sizeof(firmware);
            break;
        case SecUsers:
            if (length == 0 || length % sizeof(SimUser) || length / sizeof(SimUser) > usersMax)
                return ZError("bad users section");
            s.users.resize(length / sizeof(SimUser));
            target = s.users.data();
            size = length;
            break;
        default:
            return ZError(ZString("unknown section ") + ZString(tag));
        }
        if (length != size || seen[tag])
            return ZError(ZString("bad section ") + ZString(tag));
        seen[tag] = true;
        memcpy(target, p, size);
        if (tag == SecFirmware) {
            s.nodeInfo.softwareVersion = firmware[0];
            s.nodeInfo.fpgaVersion = firmware[1];
            s.nodeInfo.wifiVersion = firmware[2];
            s.firmwareInstalled = true;
        }
    }
    if (pos != end)
        return ZError("trailing bytes");

    // Every value must be one the unit takes from a client.
    ZError err = checkConfiguration(s.config);
    for (int i = 0; i < 2 && !err; i++)
        err = SimMeasure::check(s.measure[i]);
    for (int i = 0; i < 2 && !err; i++)
        err = checkAwg(s.awg[i]);
    if (err)
        return ZError(err.str());
    for (const SimUser& u : s.users)
        if (!terminated(u.name, sizeof(u.name)) || !terminated(u.password, sizeof(u.password)) ||
            u.name[0] == 0)
            return ZError("bad user entry");
    for (int c = 0; c < channels; c++) {
        ChannelConfig& ch = s.channel[c];
        ch.number = uint8_t(c);
        ch.type = c < analogue ? ChannelType::AnalogueIn : ChannelType::DigitalIn;
    }
    if (!terminated(s.board.serialNumber, sizeof(s.board.serialNumber)))
        return ZError("bad board serial number");
    s.nodeInfo.securityMode = s.config.securityMode;
    *this = s;
    return ZError();
}

ZError SimState::load(const ZString& path) {
    if (access(path.str(), F_OK) != 0 && errno == ENOENT)
        return ZError();
    ZFile f;
    ZError err = f.open(path, "rb");
    std::vector<uint8_t> in;
    if (!err) {
        int64_t n = f.length();
        if (n < 0 || n > FileMax)
            err = ZError("too large or unreadable");
        else {
            in.resize(size_t(n));
            if (f.read(in.data(), in.size()) != in.size())
                err = ZError("read error");
        }
    }
    if (!err)
        err = fromImage(in);
    if (err)
        return ZError(1, "Bad state file " + path + ": " + err.str());
    return ZError();
}

ZError SimState::save(const ZString& path) const {
    std::vector<uint8_t> out;
    image(out);
    ZString temp = path + ".new";
    ZFile f;
    ZError err = f.open(temp, "wb");
    if (err)
        return err;
    if (f.write(out.data(), out.size()) != out.size()) {
        f.close();
        unlink(temp.str());
        return ZError(15, "Cannot write state file " + temp);
    }
    err = f.close();
    if (!err && rename(temp.str(), path.str()) != 0)
        err = zerrorFromErrno(errno, "Cannot replace state file " + path + ": ");
    return err;
}

} // namespace TavroSim
