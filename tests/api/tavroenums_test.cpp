#include "tavroenums.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

using namespace TavroApi;

namespace {

std::string s(const ZString& z) {
    return z.retStr();
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

TEST(TavroEnums, EveryNameRoundTripsThroughItsValue) {
    int number = 0;
    const EnumInfo* const* all = enumInfoAll(number);
    ASSERT_EQ(number, int(cases.size()));
    std::set<std::string> seen;
    for (int i = 0; i < number; i++)
        seen.insert(all[i]->typeName);
    EXPECT_EQ(seen.size(), cases.size());

    for (const EnumCase& c : cases) {
        SCOPED_TRACE(c.typeName);
        const EnumInfo* info = enumInfoFind(c.typeName);
        ASSERT_NE(info, nullptr);
        ASSERT_EQ(info->number, int(c.names.size()));
        for (size_t i = 0; i < c.names.size(); i++) {
            uint32_t expected = c.values.empty() ? uint32_t(i) : c.values[i];
            uint32_t v = 12345;
            ZError err = info->fromZString(c.names[i], v);
            EXPECT_EQ(err.number, 0) << c.names[i];
            EXPECT_EQ(v, expected) << c.names[i];
            EXPECT_EQ(s(info->toZString(expected)), c.names[i]);
        }
        // One past the last value, and a name in the wrong case, are not listed.
        uint32_t past = (c.values.empty() ? uint32_t(c.names.size()) : c.values.back() + 1);
        EXPECT_EQ(s(info->toZString(past)), "Uknown");
        uint32_t v = 7;
        ZError err = info->fromZString(ZString(c.names[0]).toLower().toUpper(), v);
        EXPECT_EQ(err.number, 1);
        EXPECT_EQ(s(err.string), "Uknown string value");
        EXPECT_EQ(v, 7u);
    }
    EXPECT_EQ(enumInfoFind("NoSuchEnum"), nullptr);
    EXPECT_EQ(enumInfoFind(nullptr), nullptr);
}

TEST(TavroEnums, TypedConversionsWordsAndStatusFlags) {
    EXPECT_EQ(s(toZString(Mode::Demo1)), "Demo1");
    EXPECT_EQ(s(toZString(DataType::Raw40x)), "40x");
    EXPECT_EQ(s(toZString(ErrorNum::ToFast)), "ToFast");
    EXPECT_EQ(s(toZString(CalibrateStage::geFiveVolts)), "geFiveVolts");
    EXPECT_EQ(s(toZString(Stream::DigitialioSerial)), "DigitialioSerial");
    EXPECT_EQ(s(toZString("ignored", WifiStatus::ConnectedInternet)), "ConnectedInternet");
    EXPECT_EQ(s(toZString(Mode(200))), "Uknown");
    EXPECT_EQ(s(toZString(ErrorNum(0))), "Uknown");
    // A combination of status flags is not a listed value.
    EXPECT_EQ(s(toZString(Status(uint32_t(Status::Run) | uint32_t(Status::Alarm)))), "Uknown");

    EXPECT_EQ(s(toZStringJson("mode", Mode::Run)), "\"mode\":\"Run\"");
    EXPECT_EQ(s(toZStringJson("", AwgOutput::AO01)), "\"AO01\"");
    EXPECT_EQ(s(toZStringJson("t", DataType(9))), "\"t\":\"Uknown\"");

    Mode m = Mode::Idle;
    EXPECT_EQ(fromZString("RunProgram", m).number, 0);
    EXPECT_EQ(m, Mode::RunProgram);
    ZError err = fromZString("Bogus", m);
    EXPECT_EQ(err.number, 1);
    EXPECT_EQ(s(err.string), "Uknown string value");
    EXPECT_EQ(m, Mode::RunProgram);
    DataType d = DataType::Float32;
    EXPECT_EQ(fromZString("40x", d).number, 0);
    EXPECT_EQ(d, DataType::Raw40x);
    EXPECT_EQ(fromZString("", d).number, 1);
    Status st = Status::None;
    EXPECT_EQ(fromZString("Alarm", st).number, 0);
    EXPECT_EQ(uint32_t(st), 256u);

    static_assert(sizeof(Mode) == 1 && sizeof(DataType) == 1 && sizeof(Stream) == 1, "bytes");
    EXPECT_EQ(enumToWord(AlarmOutput::RelayOff), 4u);
    EXPECT_EQ(enumToWord(Status::FpgaOverrun), 128u);
    EXPECT_EQ(enumFromWord<Mode>(1), Mode::Run);
    EXPECT_EQ(enumFromWord<Mode>(0x00000105), Mode::Demo1); // cut to the byte
    EXPECT_EQ(enumFromWord<Status>(256), Status::Alarm);

    uint32_t status = uint32_t(Status::Run) | uint32_t(Status::End1) | uint32_t(Status::Alarm);
    EXPECT_EQ(status, 4u + 32u + 256u);
    EXPECT_TRUE(statusHas(status, Status::Run));
    EXPECT_TRUE(statusHas(status, Status::Alarm));
    EXPECT_FALSE(statusHas(status, Status::Error));
    EXPECT_FALSE(statusHas(status, Status::None));
}
