// Every enumeration's names and values, and every record: zeroed construction,
// member tables, text and JSON forms, char arrays, members set from text.
#include "tavrorecords.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <tuple>
#include <vector>

using namespace TavroApi;

namespace {

std::string s(const ZString& z) {
    return z.retStr();
}

// Constructs T over bytes of 0xFF and reports whether every byte became 0.
template <class T>
bool constructsZeroed() {
    alignas(T) unsigned char buf[sizeof(T)];
    memset(buf, 0xFF, sizeof(buf));
    T* r = new (buf) T;
    static const unsigned char zeros[sizeof(T)] = {};
    bool ok = memcmp(buf, zeros, sizeof(T)) == 0;
    r->~T();
    return ok;
}

template <class... T>
std::vector<std::pair<const char*, bool>> zeroedAll() {
    return {{T::typeName, constructsZeroed<T>()}...};
}

// The size of one element of a member, 0 when unknown.
int elementSize(const ZObjMember& m) {
    static const int sizes[] = {0, 1, 1, 1, 2, 2, 4, 4, 8, 8, 4, 8, 1, 0, 0, 4, 8};
    if (m.type == ZObjType::Enum) {
        if (const RecordInfo* r = recordInfoFind(m.typeName))
            return int(r->size);
        return enumInfoFind(m.typeName) ? 1 : 0;
    }
    return m.type < sizeof(sizes) / sizeof(sizes[0]) ? sizes[m.type] : 0;
}

struct EnumCase {
    const char* typeName;
    std::vector<const char*> names; // in value order
    std::vector<uint32_t> values;   // empty: 0, 1, 2, ...
};

// Every enumeration of the device API with its names as a unit knows them.
const std::vector<EnumCase> cases = {
    {"ErrorNum", {"System", "DataOverrun", "ToFast"}, {64, 65, 66}},
    {"NodeType", {"None", "Tavro1"}, {}},
    {"SecurityMode", {"Basic", "Config", "Full"}, {}},
    {"Status",
     {"None", "Error", "Warning", "Run", "TriggerWait", "End0", "End1", "DataOverrun",
      "FpgaOverrun", "Alarm"},
     {0, 1, 2, 4, 8, 16, 32, 64, 128, 256}},
    {"Mode", {"Idle", "Run", "RunProgram", "Internal", "Sleep", "Demo1"}, {}},
    {"ChannelType", {"None", "AnalogueIn", "AnalogueOut", "DigitalIn", "DigitalOut"}, {}},
    {"SampleType", {"None", "Bool", "Int8", "Int16", "Int32", "Float32", "Float64"}, {}},
    {"SyncMode", {"Off", "Master", "Slave"}, {}},
    {"MeasureMode", {"Off", "OneShot", "Repeat", "Continuous"}, {}},
    {"MeasureOption", {"None", "Process"}, {}},
    {"TriggerMode", {"Off", "Positive", "Negative"}, {}},
    {"TriggerConfig", {"None"}, {}},
    {"DigitalMode", {"Input", "Output", "InOut", "SyncMaster", "SyncSlave", "Individual"}, {}},
    {"DigPinMode", {"Input", "Output", "I2cDat"}, {}},
    {"AwgMode",
     {"None", "Dc", "Sine", "Square", "Triangle", "Noise", "TrackRms", "TrackMean", "Arbitrary"},
     {}},
    {"AwgOutput", {"None", "AO0", "AO1", "AO01"}, {}},
    {"FileType", {"None", "File", "Dir"}, {}},
    {"FilesysDeleteType", {"None", "Data", "Format"}, {}},
    {"LogData", {"Off", "Raw", "Processed"}, {}},
    {"LogDataMode", {"Normal", "DeleteOld"}, {}},
    {"DataType", {"Float32", "40x", "Proc"}, {}},
    {"DataSend", {"Off", "Status", "Raw", "Processed"}, {}},
    {"CalibrateStage",
     {"None", "Clear", "Settle", "AdcOffsets", "DacOffsets", "DacScaling0", "DacScaling1",
      "AdcScaling", "AttenScaling", "geFiveVolts", "AdcScalingWithAtten", "ChanClear",
      "ChanOffsets", "ChanScaling"},
     {}},
    {"MessageSource", {"General", "Debug", "Test", "Wifi", "WifiTest"}, {}},
    {"NetworkMode", {"Off", "Dhcp", "Manual"}, {}},
    {"WifiMode", {"Off", "Client", "Ap"}, {}},
    {"AlarmMode", {"Off", "High", "Low", "Range", "Magnitude"}, {}},
    {"AlarmOutput", {"Off", "DioHigh", "DioLow", "RelayOn", "RelayOff"}, {}},
    {"EventMode", {"Off", "Alarm", "Second"}, {}},
    {"Rs485Mode", {"Off", "Zoap"}, {}},
    {"TavdFileType", {"Block512", "Stream"}, {}},
    {"WifiCmd", {"Off", "On", "Scan", "Connect", "Disconnect"}, {}},
    {"WifiStatus", {"Off", "On", "Connecting", "Connected", "ConnectedInternet"}, {}},
    {"Stream", {"None", "DigitialioSerial", "DigitalI2c"}, {}},
};

} // namespace

TEST(TavroEnums, NamesValuesWordsAndStatusFlags) {
    int number = 0;
    enumInfoAll(number);
    ASSERT_EQ(number, int(cases.size())); // and each case is found by name below
    for (const EnumCase& c : cases) {
        SCOPED_TRACE(c.typeName);
        const EnumInfo* info = enumInfoFind(c.typeName);
        ASSERT_NE(info, nullptr);
        ASSERT_EQ(info->number, int(c.names.size()));
        for (size_t i = 0; i < c.names.size(); i++) {
            uint32_t expected = c.values.empty() ? uint32_t(i) : c.values[i];
            uint32_t v = 12345;
            EXPECT_FALSE(info->fromZString(c.names[i], v)) << c.names[i];
            EXPECT_EQ(v, expected) << c.names[i];
            EXPECT_EQ(s(info->toZString(expected)), c.names[i]);
        }
        // One past the last value, and a name in the wrong case, are not listed.
        uint32_t past = (c.values.empty() ? uint32_t(c.names.size()) : c.values.back() + 1);
        EXPECT_EQ(s(info->toZString(past)), "Uknown");
        uint32_t v = 7;
        EXPECT_EQ(info->fromZString(ZString(c.names[0]).toLower().toUpper(), v),
                  ZError(1, "Uknown string value"));
        EXPECT_EQ(v, 7u);
    }
    EXPECT_EQ(enumInfoFind("NoSuchEnum"), nullptr);
    EXPECT_EQ(enumInfoFind(nullptr), nullptr);
    // The typed forms, words and status flags.
    EXPECT_EQ(s(toZString(DataType::Raw40x)), "40x");
    EXPECT_EQ(s(toZString("ignored", WifiStatus::ConnectedInternet)), "ConnectedInternet");
    EXPECT_EQ(s(toZString(ErrorNum(0))), "Uknown");
    // A combination of status flags is not a listed value.
    EXPECT_EQ(s(toZString(Status(uint32_t(Status::Run) | uint32_t(Status::Alarm)))), "Uknown");
    EXPECT_EQ(s(toZStringJson("mode", Mode::Run)), "\"mode\":\"Run\"");
    EXPECT_EQ(s(toZStringJson("", AwgOutput::AO01)), "\"AO01\"");
    Mode m = Mode::Idle;
    EXPECT_FALSE(fromZString("RunProgram", m));
    EXPECT_EQ(m, Mode::RunProgram);
    Status st = Status::None;
    EXPECT_FALSE(fromZString("Alarm", st));
    EXPECT_EQ(uint32_t(st), 256u);
    static_assert(sizeof(Mode) == 1 && sizeof(DataType) == 1 && sizeof(Stream) == 1, "bytes");
    EXPECT_EQ(enumToWord(Status::FpgaOverrun), 128u);
    EXPECT_EQ(enumFromWord<Mode>(0x00000105), Mode::Demo1); // cut to the byte
    EXPECT_EQ(enumFromWord<Status>(256), Status::Alarm);
    const uint32_t status =
        uint32_t(Status::Run) | uint32_t(Status::End1) | uint32_t(Status::Alarm);
    EXPECT_TRUE(statusHas(status, Status::Run) && statusHas(status, Status::Alarm));
    EXPECT_FALSE(statusHas(status, Status::Error) || statusHas(status, Status::None));
}

TEST(TavroRecords, ConstructorsZeroEveryByte) {
    auto results = zeroedAll<ApiVersion, Version, NodeInfo, NodeStatus, BoardConfig, ChannelConfig,
                             Information, AlarmConfig, Configuration, ConfigItem, MeasurementConfig,
                             DataBlockHeader, DataBlock, DataBlockFloat, DataProc, DataBlockProc,
                             InfoBlock, AwgConfig, FilesysInfo, FileInfo, FileData, CalibrateInfo,
                             WifiAccessPoint, SerialConfig, StreamData, DevConfig, Transact>();
    int number = 0;
    recordInfoAll(number);
    EXPECT_EQ(int(results.size()), number);
    for (const auto& r : results)
        EXPECT_TRUE(r.second) << r.first;
}

TEST(TavroRecords, MemberTablesFitTheirRecords) {
    int number = 0;
    const RecordInfo* all = recordInfoAll(number);
    const std::vector<std::string> plain = {"Bool",  "UInt8",  "UInt16",  "UInt32",
                                            "Int32", "UInt64", "Float32", "Float64",
                                            "Char",  "Time",   "TimeUs"};
    for (int i = 0; i < number; i++) {
        const RecordInfo& rec = all[i];
        SCOPED_TRACE(rec.typeName);
        EXPECT_EQ(recordInfoFind(rec.typeName), &rec);
        int end = 0;
        for (const ZObjMember* m = rec.members; m->name; m++) {
            SCOPED_TRACE(m->name);
            int size = elementSize(*m);
            ASSERT_GT(size, 0) << m->typeName;
            // In offset order, no overlap, inside the record.
            EXPECT_GE(int(m->offset), end);
            end = m->offset + size * m->number;
            EXPECT_LE(end, int(rec.size));
            EXPECT_EQ(m->kind, m->number > 1 ? 2u : 0u);
            bool named = std::find(plain.begin(), plain.end(), m->typeName) != plain.end();
            EXPECT_EQ(m->type == ZObjType::Enum, !named) << m->typeName;
        }
    }
    // Entries that the member list, not the compiler, decides: Bool bytes, nested records.
    const std::pair<const ZObjMember*, ZObjMember> entries[] = {
        {NodeInfo::getMembers(), {12, 2, 20, 12, "Char", "variant"}},
        {NodeInfo::getMembers(), {0, 0, 44, 1, "SecurityMode", "securityMode"}},
        {Configuration::getMembers(), {0, 2, 152, 16, "AlarmConfig", "alarms"}},
        {DataProc::getMembers(), {1, 0, 44, 1, "Bool", "alarm"}},
        {SerialConfig::getMembers(), {1, 0, 2, 1, "Bool", "enableRx"}},
    };
    for (const auto& [table, want] : entries) {
        const ZObjMember* m = findMember(table, want.name);
        ASSERT_NE(m, nullptr) << want.name;
        EXPECT_EQ(std::tie(m->type, m->kind, m->offset, m->number),
                  std::tie(want.type, want.kind, want.offset, want.number))
            << want.name;
        EXPECT_STREQ(m->typeName, want.typeName) << want.name;
    }
}

TEST(TavroRecords, TextAndJsonForms) {
    NodeInfo n;
    n.apiVersion.maj = 1;
    memcpy(&n.hardwareVersion, "\1\2\3\4", 4); // type, ver0, ver1, ver2
    memcpy(&n.fpgaVersion, "\5\6\7\10", 4);
    memcpy(&n.softwareVersion, "\1\0\7\0", 4);
    setCharArray(n.variant, "40x-8");
    setCharArray(n.serialNumber, "SN12345");
    n.securityMode = SecurityMode::Full;
    n.apiSubVersion = 3;
    EXPECT_EQ(s(toZString("", n)), "0, 1, 1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0, 0, 1, 0, 7, 0, 40x-8, "
                                   "SN12345, Error, 3");
    const std::string nodeJson =
        "{ \"apiVersion\":{ \"mid\":0, \"maj\":1}, "
        "\"hardwareVersion\":{ \"type\":1, \"ver0\":2, \"ver1\":3, \"ver2\":4}, "
        "\"fpgaVersion\":{ \"type\":5, \"ver0\":6, \"ver1\":7, \"ver2\":8}, "
        "\"wifiVersion\":{ \"type\":0, \"ver0\":0, \"ver1\":0, \"ver2\":0}, "
        "\"softwareVersion\":{ \"type\":1, \"ver0\":0, \"ver1\":7, \"ver2\":0}, "
        "\"variant\":\"40x-8\", \"serialNumber\":\"SN12345\", \"securityMode\":\"Error\", "
        "\"apiSubVersion\":3}";
    EXPECT_EQ(s(toZStringJson("", n)), nodeJson);
    EXPECT_EQ(s(toZStringJson("info", n)), "\"info\":" + nodeJson);
    // The generic routines never look inside a nested record.
    EXPECT_EQ(s(::toZString(ZString(), NodeInfo::getMembers(), &n)),
              "Error, Error, Error, Error, Error, 40x-8, SN12345, Error, 3");
    // A nested record inside a nested record, and an excluded first member.
    Information info;
    info.nodeInfo = n;
    std::string infoJson = s(toZStringJson("", info));
    std::string prefix = "{ \"nodeInfo\":" + nodeJson + ", \"numConfigItems\":0, ";
    EXPECT_EQ(infoJson.substr(0, prefix.size()), prefix);
    EXPECT_EQ(s(toZString("", info, {"nodeInfo"})).substr(0, 8), ", 0, 0, ");
    AlarmConfig a;
    a.mode = AlarmMode::High;
    a.output = AlarmOutput::RelayOn;
    a.outputChannel = 2;
    a.levelHigh = 1.5f;
    a.levelLow = -0.25f;
    EXPECT_EQ(s(toZStringJson("alarm0", a)),
              "\"alarm0\":{ \"mode\":\"Error\", \"output\":\"Error\", \"outputChannel\":2, "
              "\"levelHigh\":1.500000e+00, \"levelLow\":-2.500000e-01}");
    // A data block header: the 64-bit time in the "%lud" and "%uld" forms.
    DataBlock b;
    b.time = 0x100000005ull;
    b.source = 7;
    b.status = uint16_t(Status::Run) | uint16_t(Status::Error);
    b.numChannels = 9;
    b.numSamples = 13;
    b.sequence = 42;
    b.type = DataType::Raw40x;
    EXPECT_EQ(s(toZString("", b)), "4294967301d, 7, 5, 9, 13, 42, Error, Error");
    EXPECT_EQ(s(toZStringJson("", b)),
              "{ \"time\":5ld, \"source\":7, \"status\":5, \"numChannels\":9, "
              "\"numSamples\":13, \"sequence\":42, \"type\":\"Error\", \"data\":\"ERROR\"}");
}

TEST(TavroRecords, DataBlockHeaderCopy) {
    DataBlock b;
    b.time = 0x1122334455667788ull;
    b.sequence = 0xA5A5A5A5u;
    b.type = DataType::Raw40x;
    b.data[0] = 1.0f;
    DataBlockFloat f;
    memset(static_cast<void*>(&f), 0xEE, sizeof(f));
    copyDataBlockHeader(f, b);
    EXPECT_EQ(memcmp(&f, &b, sizeof(DataBlockHeader)), 0);
    for (size_t i = sizeof(DataBlockHeader); i < sizeof(f); i++)
        ASSERT_EQ(reinterpret_cast<const unsigned char*>(&f)[i], 0xEE) << i;
}

TEST(TavroRecords, CharArrays) {
    // Never reading past the array, with no NUL in it: ASan guards the heap block.
    for (int size : {1, 12, 32, 128}) {
        std::unique_ptr<char[]> p(new char[size]);
        memset(p.get(), 0xFF, size_t(size));
        ZString t = getChars(p.get(), size);
        EXPECT_EQ(t.len(), size);
        EXPECT_EQ(uint8_t(t[size - 1]), 0xFF);
    }
    // errorStr is 32 bytes of 0xFF and nothing of the mode that follows it.
    NodeStatus st;
    memset(static_cast<void*>(&st), 0xFF, sizeof(st));
    EXPECT_EQ(getCharArray(st.errorStr).len(), 32);
    EXPECT_NE(s(toZString("", st)).find(", " + std::string(32, '\xFF') + ", Error, 255, 255"),
              std::string::npos);
    // Truncated and always terminated, no stale bytes left, and never a
    // UTF-8 sequence cut in two.
    char a[4];
    memset(a, 0xFF, sizeof(a));
    const char* sets[][2] = {{"", "\0\0\0\0"},         {"abc", "abc\0"},
                             {"abcdef", "abc\0"},      {"x", "x\0\0\0"},
                             {"ab\xC3\xA9", "ab\0\0"}, {"a\xC3\xA9", "a\xC3\xA9\0"}};
    for (const auto& set : sets) {
        setCharArray(a, set[0]);
        EXPECT_EQ(memcmp(a, set[1], 4), 0) << set[0];
    }
    EXPECT_EQ(s(getCharArray(a)), "a\xC3\xA9");
}

namespace {
template <class T>
ZError setMember(T& record, const char* member, const char* text) {
    const ZObjMember* m = findMember(T::getMembers(), member);
    return m ? memberFromZString(*m, &record, text) : ZError(99, "no such member");
}
} // namespace

TEST(TavroRecords, SettingMembersFromText) {
    Configuration c;
    const std::tuple<const char*, const char*, int, const char*> cases[] = {
        {"name", "A unit with a long name", 0, ""},
        {"networkAddress", "3232235786", 0, ""},
        {"mode", "Run", 0, ""},
        {"securityMode", "2", 0, ""},
        {"wifiMode", "Bogus", 1, "Uknown string value"},
        {"digitalMode", "300", 1, "Value out of range"},
        {"rs485Bits", "256", 1, "Value out of range"},
        {"rs485StopBits", " 2 ", 0, ""},
        {"mqttPort", "-1", 1, "Value out of range"},
        {"mqttPort", "12x", 1, "Invalid number"},
        {"rs485BaudRate", "4294967296", 1, "Value out of range"},
        {"digitalPins", "[0, 1,2,0,1,2,0,1]", 0, ""},
        {"digitalPins", "[1,2]", 1, "Invalid array"},
        {"digitalPins", "[1,2,3,4,5,6,7,999]", 1, "Value out of range"},
        {"alarms", "x", 1, "Cannot set member"},
    };
    for (const auto& [member, text, number, error] : cases) {
        ZError err = setMember(c, member, text);
        EXPECT_EQ(err.number, number) << member << " " << text;
        EXPECT_EQ(s(err.string), error) << member << " " << text;
    }
    EXPECT_EQ(s(getCharArray(c.name)), "A unit with a l");
    EXPECT_EQ(c.networkAddress, 0xC0A8010Au);
    EXPECT_EQ(c.mode, Mode::Run);
    EXPECT_EQ(c.securityMode, SecurityMode::Full);
    EXPECT_EQ(c.wifiMode, WifiMode::Off);
    EXPECT_EQ(c.rs485Bits, 0);
    EXPECT_EQ(c.rs485StopBits, 2);
    EXPECT_EQ(c.mqttPort, 0u);
    const uint8_t pins[8] = {0, 1, 2, 0, 1, 2, 0, 1};
    EXPECT_EQ(memcmp(c.digitalPins, pins, 8), 0); // a failed array changes nothing
    // The 64-bit form's suffix and a time as text.
    DataBlock b;
    BoardConfig bc;
    EXPECT_FALSE(setMember(b, "time", "4294967301d"));
    EXPECT_EQ(b.time, 4294967301ull);
    EXPECT_FALSE(setMember(bc, "buildTime", "2023-11-14T22:14:25"));
    EXPECT_EQ(bc.buildTime.seconds, 1700000065u);
    // A JSON object back into a record: unknown keys and "Error" values are skipped.
    MeasurementConfig mc;
    mc.measureMode = MeasureMode::Repeat;
    mc.triggerLevel = 0.5f;
    mc.triggerDelay = -12;
    mc.sampleRate = 10000.0;
    mc.numSamplesBlock = 13;
    setCharArray(mc.description, "bench test");
    MeasurementConfig back;
    back.measureMode = MeasureMode::Repeat;
    ZString json = toZStringJson("", mc);
    EXPECT_EQ(fromZStringJson("{ \"extra\":1, " + json.subString(2), back).number, 0);
    EXPECT_EQ(memcmp(&back, &mc, sizeof(mc)), 0) << s(json);
    ZError err = fromZStringJson("{ \"peakFilter\":\"999\"}", back);
    EXPECT_EQ(err.number, 1);
    EXPECT_EQ(s(err.string), "peakFilter: Value out of range");
}
