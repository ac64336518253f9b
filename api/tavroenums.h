#ifndef TAVROENUMS_H
#define TAVROENUMS_H

#include "zerror.h"
#include "zobjmember.h"
#include "zstring.h"

#include <cstdint>
#include <type_traits>

// The enumerations of the Tavro device API.
//
// Inside a record an enumeration is one byte (the underlying type uint8_t
// makes every byte a unit sends a valid value); as a call argument it travels
// as a 4-byte word (enumToWord / enumFromWord). ErrorNum and Status are never
// stored in records: Status is a set of bit flags held in UInt16/UInt32
// fields.
//
// Each enumeration has one name table (tavroenums.cpp) that drives
// toZString (an unlisted value gives "Uknown"), toZStringJson and fromZString
// (an unlisted name fails with number 1 "Uknown string value").

namespace TavroApi {

enum class ErrorNum : uint8_t { System = 64, DataOverrun = 65, ToFast = 66 };

enum class NodeType : uint8_t { None, Tavro1 };

enum class SecurityMode : uint8_t { Basic, Config, Full };

// Bit flags of NodeStatus::status and DataBlock::status.
enum class Status : uint32_t {
    None = 0,
    Error = 1,
    Warning = 2,
    Run = 4,
    TriggerWait = 8,
    End0 = 16,
    End1 = 32,
    DataOverrun = 64,
    FpgaOverrun = 128,
    Alarm = 256
};

enum class Mode : uint8_t { Idle, Run, RunProgram, Internal, Sleep, Demo1 };

enum class ChannelType : uint8_t { None, AnalogueIn, AnalogueOut, DigitalIn, DigitalOut };

enum class SampleType : uint8_t { None, Bool, Int8, Int16, Int32, Float32, Float64 };

enum class SyncMode : uint8_t { Off, Master, Slave };

enum class MeasureMode : uint8_t { Off, OneShot, Repeat, Continuous };

enum class MeasureOption : uint8_t { None, Process };

enum class TriggerMode : uint8_t { Off, Positive, Negative };

enum class TriggerConfig : uint8_t { None };

enum class DigitalMode : uint8_t { Input, Output, InOut, SyncMaster, SyncSlave, Individual };

enum class DigPinMode : uint8_t { Input, Output, I2cDat };

enum class AwgMode : uint8_t {
    None,
    Dc,
    Sine,
    Square,
    Triangle,
    Noise,
    TrackRms,
    TrackMean,
    Arbitrary
};

enum class AwgOutput : uint8_t { None, AO0, AO1, AO01 };

enum class FileType : uint8_t { None, File, Dir };

enum class FilesysDeleteType : uint8_t { None, Data, Format };

enum class LogData : uint8_t { Off, Raw, Processed };

enum class LogDataMode : uint8_t { Normal, DeleteOld };

// Raw40x is the block of raw words of a Tavro-40x unit; its name is "40x".
enum class DataType : uint8_t { Float32, Raw40x, Proc };

enum class DataSend : uint8_t { Off, Status, Raw, Processed };

enum class CalibrateStage : uint8_t {
    None,
    Clear,
    Settle,
    AdcOffsets,
    DacOffsets,
    DacScaling0,
    DacScaling1,
    AdcScaling,
    AttenScaling,
    geFiveVolts,
    AdcScalingWithAtten,
    ChanClear,
    ChanOffsets,
    ChanScaling
};

enum class MessageSource : uint8_t { General, Debug, Test, Wifi, WifiTest };

enum class NetworkMode : uint8_t { Off, Dhcp, Manual };

enum class WifiMode : uint8_t { Off, Client, Ap };

enum class AlarmMode : uint8_t { Off, High, Low, Range, Magnitude };

enum class AlarmOutput : uint8_t { Off, DioHigh, DioLow, RelayOn, RelayOff };

enum class EventMode : uint8_t { Off, Alarm, Second };

enum class Rs485Mode : uint8_t { Off, Zoap };

enum class TavdFileType : uint8_t { Block512, Stream };

enum class WifiCmd : uint8_t { Off, On, Scan, Connect, Disconnect };

enum class WifiStatus : uint8_t { Off, On, Connecting, Connected, ConnectedInternet };

enum class Stream : uint8_t { None, DigitialioSerial, DigitalI2c };

// ------------------------------------------------------------ name tables

struct EnumName {
    template <class E>
    constexpr EnumName(E v, const char* n) : value(uint32_t(v)), name(n) {}
    uint32_t value;
    const char* name;
};

// One enumeration's names in value order.
struct EnumInfo {
    const char* typeName; // "Mode", "SecurityMode", ...
    const EnumName* names;
    int number;

    // The name of a value, or null when the value is not listed.
    const char* find(uint32_t value) const;
    // The name, or "Uknown".
    ZString toZString(uint32_t value) const;
    // The value of a name (exact, case-sensitive); number 1 "Uknown string value" else.
    ZError fromZString(const ZString& text, uint32_t& value) const;
};

// The table of an enumeration by its type name ("Mode"), or null.
const EnumInfo* enumInfoFind(const char* typeName);
// Every enumeration's table, for walking them all; number gives the count.
const EnumInfo* const* enumInfoAll(int& number);

#define TAVRO_ENUM_INFO(E)                                                                         \
    const EnumInfo& enumInfo(E);                                                                   \
    constexpr const char* enumTypeName(E) {                                                        \
        return #E;                                                                                 \
    }

TAVRO_ENUM_INFO(ErrorNum)
TAVRO_ENUM_INFO(NodeType)
TAVRO_ENUM_INFO(SecurityMode)
TAVRO_ENUM_INFO(Status)
TAVRO_ENUM_INFO(Mode)
TAVRO_ENUM_INFO(ChannelType)
TAVRO_ENUM_INFO(SampleType)
TAVRO_ENUM_INFO(SyncMode)
TAVRO_ENUM_INFO(MeasureMode)
TAVRO_ENUM_INFO(MeasureOption)
TAVRO_ENUM_INFO(TriggerMode)
TAVRO_ENUM_INFO(TriggerConfig)
TAVRO_ENUM_INFO(DigitalMode)
TAVRO_ENUM_INFO(DigPinMode)
TAVRO_ENUM_INFO(AwgMode)
TAVRO_ENUM_INFO(AwgOutput)
TAVRO_ENUM_INFO(FileType)
TAVRO_ENUM_INFO(FilesysDeleteType)
TAVRO_ENUM_INFO(LogData)
TAVRO_ENUM_INFO(LogDataMode)
TAVRO_ENUM_INFO(DataType)
TAVRO_ENUM_INFO(DataSend)
TAVRO_ENUM_INFO(CalibrateStage)
TAVRO_ENUM_INFO(MessageSource)
TAVRO_ENUM_INFO(NetworkMode)
TAVRO_ENUM_INFO(WifiMode)
TAVRO_ENUM_INFO(AlarmMode)
TAVRO_ENUM_INFO(AlarmOutput)
TAVRO_ENUM_INFO(EventMode)
TAVRO_ENUM_INFO(Rs485Mode)
TAVRO_ENUM_INFO(TavdFileType)
TAVRO_ENUM_INFO(WifiCmd)
TAVRO_ENUM_INFO(WifiStatus)
TAVRO_ENUM_INFO(Stream)

#undef TAVRO_ENUM_INFO

// ------------------------------------------------------------ conversions

// The name of a value, "Uknown" when it is not listed. The name-first form
// follows the scalar conversions of zobjmember.h and ignores the name.
template <class E>
auto toZString(E value) -> decltype(enumInfo(value), ZString()) {
    return enumInfo(value).toZString(uint32_t(value));
}
template <class E>
auto toZString(const ZString&, E value) -> decltype(enumInfo(value), ZString()) {
    return enumInfo(value).toZString(uint32_t(value));
}

// "\"name\":\"Value\"", or the bare "\"Value\"" when name is empty.
template <class E>
auto toZStringJson(const ZString& name, E value) -> decltype(enumInfo(value), ZString()) {
    return ::toZStringJson(name, enumInfo(value).toZString(uint32_t(value)));
}

// The value of a name; value is left as it was on failure.
template <class E>
auto fromZString(const ZString& text, E& value) -> decltype(enumInfo(value), ZError()) {
    uint32_t v = 0;
    ZError err = enumInfo(value).fromZString(text, v);
    if (!err)
        value = E(v);
    return err;
}

// An enumeration as the 4-byte word of a call argument, and back (a word
// from a unit is cut to the enumeration's width).
template <class E>
constexpr uint32_t enumToWord(E value) {
    static_assert(std::is_enum<E>::value, "an enumeration");
    return uint32_t(value);
}
template <class E>
constexpr E enumFromWord(uint32_t word) {
    static_assert(std::is_enum<E>::value, "an enumeration");
    return E(std::underlying_type_t<E>(word));
}

// True when a status word holds the flag.
constexpr bool statusHas(uint32_t status, Status flag) {
    return (status & uint32_t(flag)) != 0;
}

} // namespace TavroApi

#endif
