#include "configfile.h"

#include "control.h"
#include "zfile.h"

#include <cstdio>
#include <cstring>

using namespace TavroApi;

namespace {

// Addresses written as dotted quads (networkNameServer0 stays a number).
const char* const NetworkMembers[] = {"networkAddress", "networkMask", "networkGateway",
                                      "networkTimeServer", nullptr};
// One-byte enumerations written as their number.
const char* const EnumMembers[] = {"mode",          "securityMode", "digitalMode", "rs485Mode",
                                   "wifiMode",      "mqttMode",     "emailMode",   "networkMode",
                                   "type",          "sampleType",   "measureMode", "triggerMode",
                                   "triggerConfig", "output",       nullptr};

// The members a restore applies, per section.
const char* const ConfigRestored[] = {"name",
                                      "location",
                                      "securityMode",
                                      "logData",
                                      "logDataMode",
                                      "logDataDevice",
                                      "source",
                                      "sampleFrequencyMode",
                                      "digitalMode",
                                      "digitalPins",
                                      "networkMode",
                                      "networkAddress",
                                      "networkMask",
                                      "networkGateway",
                                      "networkNameServer0",
                                      "networkTimeServer",
                                      "rs485Mode",
                                      "rs485Bits",
                                      "rs485StopBits",
                                      "rs485BaudRate",
                                      "wifiMode",
                                      "wifiAp0",
                                      "mqttMode",
                                      "mqttServer",
                                      "mqttPort",
                                      "emailMode",
                                      "emailAddress",
                                      "program",
                                      nullptr};
const char* const AlarmRestored[] = {"mode",      "output",   "outputChannel",
                                     "levelHigh", "levelLow", nullptr};
const char* const MeasurementRestored[] = {
    "measureMode",   "measureOptions",  "peakFilter",   "triggerMode",
    "triggerConfig", "triggerChannel",  "triggerLevel", "triggerDelay",
    "sampleRate",    "numSamples0",     "numSamples1",  "numSamples2",
    "measurePeriod", "numSamplesBlock", "description",  nullptr};
const char* const AwgRestored[] = {"mode",   "output", "trackChannel", "frequency", "amplitude",
                                   "offset", "duty",   "numSamples",   nullptr};
const char* const ChannelRestored[] = {"enabled", "attenuator", "name",    "siUnits", "pgaGain",
                                       "scale",   "offset",     "process", nullptr};

const char* const ChannelSection = "channel";
const char* const AlarmItem = "alarm";

bool inList(const char* const* list, const ZString& name) {
    for (; *list; list++)
        if (!strcmp(name.str(), *list))
            return true;
    return false;
}

template <class T>
T load(const char* p) {
    T v;
    memcpy(&v, p, sizeof(T));
    return v;
}

// One value of a scalar member type at p.
bool scalarText(uint32_t type, const char* p, ZString& text) {
    const ZString none;
    switch (type) {
    case ZObjType::Bool:
        text = toZString(none, int(load<uint8_t>(p)));
        return true;
    case ZObjType::Int8:
        text = toZString(none, int(load<int8_t>(p)));
        return true;
    case ZObjType::UInt8:
        text = toZString(none, int(load<uint8_t>(p)));
        return true;
    case ZObjType::Int16:
        text = toZString(none, load<int16_t>(p));
        return true;
    case ZObjType::UInt16:
        text = toZString(none, load<uint16_t>(p));
        return true;
    case ZObjType::Int32:
        text = toZString(none, load<int32_t>(p));
        return true;
    case ZObjType::UInt32:
        text = toZString(none, load<uint32_t>(p));
        return true;
    case ZObjType::Int64:
        text = toZString(none, (long long)load<int64_t>(p));
        return true;
    case ZObjType::UInt64:
        text = toZString(none, (unsigned long long)load<uint64_t>(p));
        return true;
    case ZObjType::Float32:
        text = toZString(none, load<float>(p));
        return true;
    case ZObjType::Float64:
        text = toZString(none, load<double>(p));
        return true;
    case ZObjType::Char:
        text = ZString(p, 1);
        return true;
    case ZObjType::Time:
        text = toZString(none, load<ZTime>(p));
        return true;
    default:
        return false;
    }
}

// The value text of one member (not the alarm table).
ZError memberText(const ZObjMember& m, const char* p, ZString& text) {
    const ZString name(m.name);
    if (m.type == ZObjType::UInt32 && m.kind == ZObjKind::Single && inList(NetworkMembers, name)) {
        text = networkToString(load<uint32_t>(p));
        return ZError();
    }
    if (m.type == ZObjType::Enum && m.kind == ZObjKind::Single && m.typeName &&
        !strcmp(m.typeName, Version::typeName)) {
        const uint8_t* v = reinterpret_cast<const uint8_t*>(p);
        text.clear();
        text.printf("[%u,%u,%u,%u]", v[0], v[1], v[2], v[3]);
        return ZError();
    }
    if (m.type == ZObjType::Enum && m.kind == ZObjKind::Single && inList(EnumMembers, name)) {
        text = toZString(ZString(), unsigned(load<uint8_t>(p)));
        return ZError();
    }
    if (m.type == ZObjType::Char && m.kind == ZObjKind::Array) {
        text = getChars(p, m.number);
        return ZError();
    }
    if (m.kind == ZObjKind::Array) {
        // Elements are written as numbers: enumerations and microsecond
        // times have no array form here.
        const int size = m.type == ZObjType::Enum || m.type == ZObjType::TimeUs
                             ? 0
                             : TavroApi::memberElementSize(m);
        if (!size)
            return ZError("Object to string conversion error2: " + name);
        text = "[";
        for (int i = 0; i < m.number; i++) {
            ZString v;
            scalarText(m.type, p + i * size, v);
            if (i)
                text += ",";
            text += v;
        }
        text += "]";
        return ZError();
    }
    if (!scalarText(m.type, p, text))
        return ZError("Object to string conversion error1: " + name);
    return ZError();
}

// Every restorable member of one section from its items, through lookup of
// names in restored; alarm items go to the alarm table when alarms is given.
ZError applyItems(const ConfigFileSection& section, const ZObjMember* members,
                  const char* const* restored, void* record, AlarmConfig* alarms) {
    for (const ConfigFileItem& item : section.items) {
        void* target = record;
        const ZObjMember* table = members;
        ZString name = item.name;
        const char* const* allowed = restored;
        if (alarms && name.subString(0, 5) == AlarmItem) {
            // "alarmN.member", N a table index.
            const int dot = name.find('.');
            const ZString index = name.subString(5, dot - 5);
            if (dot < 6 || index.len() > 2 || index.removeSeparators("0123456789").len())
                continue;
            const int n = index.retInt();
            if (n < 0 || n >= Configuration::numAlarms)
                continue;
            target = &alarms[n];
            table = AlarmConfig::getMembers();
            allowed = AlarmRestored;
            name = name.subString(dot + 1);
        }
        if (!inList(allowed, name))
            continue;
        const ZObjMember* m = findMember(table, name);
        if (!m)
            continue;
        ZError err;
        if (m->type == ZObjType::UInt32 && inList(NetworkMembers, name)) {
            uint32_t address = 0;
            if (!(err = networkFromString(item.value, address)))
                memcpy(static_cast<char*>(target) + m->offset, &address, sizeof(address));
        } else {
            err = memberFromZString(*m, target, item.value);
        }
        if (err)
            return ZError(err.number, "[" + section.name + "] " + item.name + ": " + err.string);
    }
    return ZError();
}

// Moves b and e inwards past blanks and line ends.
bool blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}
void trim(const char*& b, const char*& e) {
    while (b < e && blank(*b))
        b++;
    while (e > b && blank(e[-1]))
        e--;
}

// The channel number of a "channelN" section, or -1.
int channelNumber(const ZString& section) {
    const ZString n = section.subString(int(strlen(ChannelSection)));
    if (section.subString(0, int(strlen(ChannelSection))) != ChannelSection || n.isEmpty() ||
        n.len() > 5 || n.removeSeparators("0123456789").len())
        return -1;
    return int(strtol(n.str(), nullptr, 10));
}

void appendSection(ZString& text, const char* name, const void* record, const ZObjMember* members) {
    ZList<ZString> lines;
    objToDict(record, members, lines); // failed lines are reported and left out
    text += ZString("[") + name + "]\n";
    for (const ZString& line : lines)
        text += line + "\n";
}

} // namespace

// ------------------------------------------------------------ network addresses

ZString networkToString(uint32_t address) {
    ZString s;
    s.printf("%d.%d.%d.%d", int((address >> 24) & 0xFF), int((address >> 16) & 0xFF),
             int((address >> 8) & 0xFF), int(address & 0xFF));
    return s;
}

ZError networkFromString(const ZString& text, uint32_t& address) {
    const ZString t = text.removeSeparators(" \t\r\n");
    const ZError bad("Invalid network address (four numbers 0-255 separated by '.'): " + text);
    int pos = 0;
    uint32_t value = 0;
    for (int field = 0; field < 4; field++) {
        if (field > 0 && t[pos++] != '.')
            return bad;
        int digits = 0;
        unsigned int n = 0;
        for (; t[pos] >= '0' && t[pos] <= '9'; pos++) {
            if (++digits > 3)
                return bad;
            n = n * 10 + unsigned(t[pos] - '0');
        }
        if (digits == 0 || n > 255)
            return bad;
        value = (value << 8) | n;
    }
    if (pos != t.len())
        return bad;
    address = value;
    return ZError();
}

// ------------------------------------------------------------ records to text

ZError objToDict(const void* record, const ZObjMember* members, ZList<ZString>& lineList) {
    if (!record || !members)
        return ZError("Cannot set object");
    const char* base = static_cast<const char*>(record);
    ZError first;
    for (const ZObjMember* m = members; m->name; m++) {
        const ZString name(m->name);
        if (m->type == ZObjType::Enum && m->typeName &&
            !strcmp(m->typeName, AlarmConfig::typeName)) {
            for (int i = 0; i < m->number; i++) {
                const char* alarm = base + m->offset + i * int(sizeof(AlarmConfig));
                for (const ZObjMember* a = AlarmConfig::getMembers(); a->name; a++) {
                    ZString value;
                    memberText(*a, alarm + a->offset, value);
                    lineList.append(AlarmItem + ZString(i) + "." + a->name + ": " + value);
                }
            }
            continue;
        }
        ZString value;
        ZError err = memberText(*m, base + m->offset, value);
        if (err) {
            printf("Error: %s\n", err.string.str());
            if (!first)
                first = err;
            continue;
        }
        lineList.append(name + ": " + value);
    }
    return first;
}

// ------------------------------------------------------------ records of a unit

ConfigSet::ConfigSet() = default;

ZError configRead(Control& control, ConfigSet& set) {
    TavroUnit1* master = control.unitMaster();
    if (!control.unitsConnected() || !master)
        return ZError("No unit connected");
    Information info;
    ZError err;
    if ((err = master->getBoardConfig(set.boardConfig)) || (err = control.getConfig(set.config)) ||
        (err = control.getMeasurementConfig(false, set.measurementConfig)) ||
        (err = control.getAwgConfig(false, set.awgConfig)) || (err = control.getInformation(info)))
        return err;
    set.channels.clear();
    for (unsigned int c = 0; c < info.numChannels; c++) {
        ChannelConfig channel;
        if ((err = control.getChannelConfig(c, channel)))
            return err;
        set.channels.append(channel);
    }
    return ZError();
}

// ------------------------------------------------------------ the file

ZError ConfigFile::toText(const ConfigSet& set, ZString& text) {
    text = "[file]\ntype: zconfig\nversion: 0\n";
    appendSection(text, "boardConfig", &set.boardConfig, BoardConfig::getMembers());
    appendSection(text, "configuration", &set.config, Configuration::getMembers());
    appendSection(text, "measurementConfig", &set.measurementConfig,
                  MeasurementConfig::getMembers());
    appendSection(text, "awgConfig", &set.awgConfig, AwgConfig::getMembers());
    for (int c = 0; c < set.channels.size(); c++)
        appendSection(text, (ChannelSection + ZString(c)).str(), &set.channels[c],
                      ChannelConfig::getMembers());
    return ZError();
}

ZError ConfigFile::write(const ConfigSet& set, const ZString& fileName) {
    ZString text;
    ZFile file;
    ZError err;
    if ((err = toText(set, text)) || (err = file.open(fileName, "w")))
        return err;
    if (file.writeString(text) != text.len()) {
        file.close();
        return ZError("Cannot write file: " + fileName);
    }
    return file.close();
}

ZError ConfigFile::save(Control& control, const ZString& fileName) {
    ConfigSet set;
    ZError err = configRead(control, set);
    return err ? err : write(set, fileName);
}

ZError ConfigFile::parse(const char* data, long length) {
    osections.clear();
    if (length < 0 || length > maxFileLen)
        return ZError("File too large for a zconfig file");
    ZList<ConfigFileSection> sections;
    int lineNumber = 0;
    for (long pos = 0; pos < length;) {
        const char* start = data + pos;
        const char* end = static_cast<const char*>(memchr(start, '\n', size_t(length - pos)));
        const long n = end ? long(end - start) : length - pos;
        pos += n + 1;
        lineNumber++;
        if (n > maxLineLen)
            return ZError("Line " + ZString(lineNumber) + " of the zconfig file is too long");
        if (memchr(start, 0, size_t(n)))
            return ZError("Line " + ZString(lineNumber) + " of the zconfig file holds a NUL byte");
        const char* b = start;
        const char* e = start + n;
        trim(b, e);
        if (b < e && *b == '[') {
            const char* close = static_cast<const char*>(memchr(b, ']', size_t(e - b)));
            const char* nb = b + 1;
            const char* ne = close ? close : e;
            trim(nb, ne);
            ConfigFileSection section;
            section.name = ZString(nb, int(ne - nb));
            sections.append(std::move(section));
            continue;
        }
        const char* colon = static_cast<const char*>(memchr(b, ':', size_t(e - b)));
        if (!colon || sections.isEmpty())
            continue;
        const char* ne = colon;
        const char* vb = colon + 1;
        trim(b, ne);
        trim(vb, e);
        ConfigFileItem item;
        item.name = ZString(b, int(ne - b));
        item.value = ZString(vb, int(e - vb));
        sections.back().items.append(std::move(item));
    }

    ZString type;
    for (const ConfigFileSection& s : sections)
        for (const ConfigFileItem& i : s.items)
            if (s.name == "file" && i.name == "type")
                type = i.value;
    if (type != "zconfig")
        return ZError("Not a zconfig file");
    osections = std::move(sections);
    return ZError();
}

ZError ConfigFile::readFile(const ZString& fileName) {
    ZFile file;
    ZError err = file.open(fileName, "r");
    if (err)
        return err;
    const int64_t length = file.length();
    if (length < 0 || length > maxFileLen)
        return ZError("File too large for a zconfig file: " + fileName);
    std::vector<char> data(size_t(length) + 1);
    if (file.read(data.data(), size_t(length)) != size_t(length))
        return ZError("Cannot read file: " + fileName);
    if ((err = file.close()))
        return err;
    return parse(data.data(), long(length));
}

ZError ConfigFile::apply(ConfigSet& set) const {
    ZError err;
    for (const ConfigFileSection& s : osections) {
        if (s.name == "configuration")
            err = applyItems(s, Configuration::getMembers(), ConfigRestored, &set.config,
                             set.config.alarms);
        else if (s.name == "measurementConfig")
            err = applyItems(s, MeasurementConfig::getMembers(), MeasurementRestored,
                             &set.measurementConfig, nullptr);
        else if (s.name == "awgConfig")
            err = applyItems(s, AwgConfig::getMembers(), AwgRestored, &set.awgConfig, nullptr);
        else {
            const int c = channelNumber(s.name);
            if (c >= 0 && c < set.channels.size())
                err = applyItems(s, ChannelConfig::getMembers(), ChannelRestored, &set.channels[c],
                                 nullptr);
        }
        if (err)
            return err;
    }
    return ZError();
}

// ------------------------------------------------------------ restore

ZError configRestore(Control& control, const ZString& fileName, const ConfigConfirm& confirm,
                     bool& done) {
    done = false;
    if (!control.unitsConnected())
        return ZError();
    ConfigFile file;
    ConfigSet set;
    ZError err;
    if ((err = file.readFile(fileName)) || (err = configRead(control, set)) ||
        (err = file.apply(set)))
        return err;
    if (confirm && !confirm())
        return ZError();

    auto failed = [](const ZError& e, const char* message) {
        return ZError(e.number, ZString(message) + ": " + e.string);
    };
    if ((err = control.setConfig(set.config)))
        return failed(err, "Error setting config");
    if ((err = control.setMeasurementConfig(false, set.measurementConfig)))
        return failed(err, "Error setting Measurement config");
    for (int c = 0; c < set.channels.size(); c++)
        if ((err = control.setChannelConfig(unsigned(c), set.channels[c])))
            return failed(err, "Error setting Channel config");
    if ((err = control.setAwgConfig(false, set.awgConfig)))
        return failed(err, "Error setting Awg");
    if ((err = control.reboot()))
        return err;
    done = true;
    return ZError();
}
