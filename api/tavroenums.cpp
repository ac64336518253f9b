#include "tavroenums.h"

#include <cstring>

namespace TavroApi {

const char* EnumInfo::find(uint32_t value) const {
    for (int i = 0; i < number; i++) {
        if (names[i].value == value)
            return names[i].name;
    }
    return nullptr;
}

ZString EnumInfo::toZString(uint32_t value) const {
    const char* n = find(value);
    return ZString(n ? n : "Uknown");
}

ZError EnumInfo::fromZString(const ZString& text, uint32_t& value) const {
    for (int i = 0; i < number; i++) {
        if (text == names[i].name) {
            value = names[i].value;
            return ZError();
        }
    }
    return ZError(1, "Uknown string value");
}

namespace {

constexpr EnumName ErrorNumNames[] = {{ErrorNum::System, "System"},
                                      {ErrorNum::DataOverrun, "DataOverrun"},
                                      {ErrorNum::ToFast, "ToFast"}};

constexpr EnumName NodeTypeNames[] = {{NodeType::None, "None"}, {NodeType::Tavro1, "Tavro1"}};

constexpr EnumName SecurityModeNames[] = {
    {SecurityMode::Basic, "Basic"}, {SecurityMode::Config, "Config"}, {SecurityMode::Full, "Full"}};

constexpr EnumName StatusNames[] = {{Status::None, "None"},
                                    {Status::Error, "Error"},
                                    {Status::Warning, "Warning"},
                                    {Status::Run, "Run"},
                                    {Status::TriggerWait, "TriggerWait"},
                                    {Status::End0, "End0"},
                                    {Status::End1, "End1"},
                                    {Status::DataOverrun, "DataOverrun"},
                                    {Status::FpgaOverrun, "FpgaOverrun"},
                                    {Status::Alarm, "Alarm"}};

constexpr EnumName ModeNames[] = {
    {Mode::Idle, "Idle"},         {Mode::Run, "Run"},     {Mode::RunProgram, "RunProgram"},
    {Mode::Internal, "Internal"}, {Mode::Sleep, "Sleep"}, {Mode::Demo1, "Demo1"}};

constexpr EnumName ChannelTypeNames[] = {{ChannelType::None, "None"},
                                         {ChannelType::AnalogueIn, "AnalogueIn"},
                                         {ChannelType::AnalogueOut, "AnalogueOut"},
                                         {ChannelType::DigitalIn, "DigitalIn"},
                                         {ChannelType::DigitalOut, "DigitalOut"}};

constexpr EnumName SampleTypeNames[] = {
    {SampleType::None, "None"},      {SampleType::Bool, "Bool"},   {SampleType::Int8, "Int8"},
    {SampleType::Int16, "Int16"},    {SampleType::Int32, "Int32"}, {SampleType::Float32, "Float32"},
    {SampleType::Float64, "Float64"}};

constexpr EnumName SyncModeNames[] = {
    {SyncMode::Off, "Off"}, {SyncMode::Master, "Master"}, {SyncMode::Slave, "Slave"}};

constexpr EnumName MeasureModeNames[] = {{MeasureMode::Off, "Off"},
                                         {MeasureMode::OneShot, "OneShot"},
                                         {MeasureMode::Repeat, "Repeat"},
                                         {MeasureMode::Continuous, "Continuous"}};

constexpr EnumName MeasureOptionNames[] = {{MeasureOption::None, "None"},
                                           {MeasureOption::Process, "Process"}};

constexpr EnumName TriggerModeNames[] = {{TriggerMode::Off, "Off"},
                                         {TriggerMode::Positive, "Positive"},
                                         {TriggerMode::Negative, "Negative"}};

constexpr EnumName TriggerConfigNames[] = {{TriggerConfig::None, "None"}};

constexpr EnumName DigitalModeNames[] = {
    {DigitalMode::Input, "Input"},         {DigitalMode::Output, "Output"},
    {DigitalMode::InOut, "InOut"},         {DigitalMode::SyncMaster, "SyncMaster"},
    {DigitalMode::SyncSlave, "SyncSlave"}, {DigitalMode::Individual, "Individual"}};

constexpr EnumName DigPinModeNames[] = {
    {DigPinMode::Input, "Input"}, {DigPinMode::Output, "Output"}, {DigPinMode::I2cDat, "I2cDat"}};

constexpr EnumName AwgModeNames[] = {
    {AwgMode::None, "None"},          {AwgMode::Dc, "Dc"},
    {AwgMode::Sine, "Sine"},          {AwgMode::Square, "Square"},
    {AwgMode::Triangle, "Triangle"},  {AwgMode::Noise, "Noise"},
    {AwgMode::TrackRms, "TrackRms"},  {AwgMode::TrackMean, "TrackMean"},
    {AwgMode::Arbitrary, "Arbitrary"}};

constexpr EnumName AwgOutputNames[] = {{AwgOutput::None, "None"},
                                       {AwgOutput::AO0, "AO0"},
                                       {AwgOutput::AO1, "AO1"},
                                       {AwgOutput::AO01, "AO01"}};

constexpr EnumName FileTypeNames[] = {
    {FileType::None, "None"}, {FileType::File, "File"}, {FileType::Dir, "Dir"}};

constexpr EnumName FilesysDeleteTypeNames[] = {{FilesysDeleteType::None, "None"},
                                               {FilesysDeleteType::Data, "Data"},
                                               {FilesysDeleteType::Format, "Format"}};

constexpr EnumName LogDataNames[] = {
    {LogData::Off, "Off"}, {LogData::Raw, "Raw"}, {LogData::Processed, "Processed"}};

constexpr EnumName LogDataModeNames[] = {{LogDataMode::Normal, "Normal"},
                                         {LogDataMode::DeleteOld, "DeleteOld"}};

constexpr EnumName DataTypeNames[] = {
    {DataType::Float32, "Float32"}, {DataType::Raw40x, "40x"}, {DataType::Proc, "Proc"}};

constexpr EnumName DataSendNames[] = {{DataSend::Off, "Off"},
                                      {DataSend::Status, "Status"},
                                      {DataSend::Raw, "Raw"},
                                      {DataSend::Processed, "Processed"}};

using C = CalibrateStage;
constexpr EnumName CalibrateStageNames[] = {{C::None, "None"},
                                            {C::Clear, "Clear"},
                                            {C::Settle, "Settle"},
                                            {C::AdcOffsets, "AdcOffsets"},
                                            {C::DacOffsets, "DacOffsets"},
                                            {C::DacScaling0, "DacScaling0"},
                                            {C::DacScaling1, "DacScaling1"},
                                            {C::AdcScaling, "AdcScaling"},
                                            {C::AttenScaling, "AttenScaling"},
                                            {C::geFiveVolts, "geFiveVolts"},
                                            {C::AdcScalingWithAtten, "AdcScalingWithAtten"},
                                            {C::ChanClear, "ChanClear"},
                                            {C::ChanOffsets, "ChanOffsets"},
                                            {C::ChanScaling, "ChanScaling"}};

constexpr EnumName MessageSourceNames[] = {{MessageSource::General, "General"},
                                           {MessageSource::Debug, "Debug"},
                                           {MessageSource::Test, "Test"},
                                           {MessageSource::Wifi, "Wifi"},
                                           {MessageSource::WifiTest, "WifiTest"}};

constexpr EnumName NetworkModeNames[] = {
    {NetworkMode::Off, "Off"}, {NetworkMode::Dhcp, "Dhcp"}, {NetworkMode::Manual, "Manual"}};

constexpr EnumName WifiModeNames[] = {
    {WifiMode::Off, "Off"}, {WifiMode::Client, "Client"}, {WifiMode::Ap, "Ap"}};

constexpr EnumName AlarmModeNames[] = {{AlarmMode::Off, "Off"},
                                       {AlarmMode::High, "High"},
                                       {AlarmMode::Low, "Low"},
                                       {AlarmMode::Range, "Range"},
                                       {AlarmMode::Magnitude, "Magnitude"}};

constexpr EnumName AlarmOutputNames[] = {{AlarmOutput::Off, "Off"},
                                         {AlarmOutput::DioHigh, "DioHigh"},
                                         {AlarmOutput::DioLow, "DioLow"},
                                         {AlarmOutput::RelayOn, "RelayOn"},
                                         {AlarmOutput::RelayOff, "RelayOff"}};

constexpr EnumName EventModeNames[] = {
    {EventMode::Off, "Off"}, {EventMode::Alarm, "Alarm"}, {EventMode::Second, "Second"}};

constexpr EnumName Rs485ModeNames[] = {{Rs485Mode::Off, "Off"}, {Rs485Mode::Zoap, "Zoap"}};

constexpr EnumName TavdFileTypeNames[] = {{TavdFileType::Block512, "Block512"},
                                          {TavdFileType::Stream, "Stream"}};

constexpr EnumName WifiCmdNames[] = {{WifiCmd::Off, "Off"},
                                     {WifiCmd::On, "On"},
                                     {WifiCmd::Scan, "Scan"},
                                     {WifiCmd::Connect, "Connect"},
                                     {WifiCmd::Disconnect, "Disconnect"}};

constexpr EnumName WifiStatusNames[] = {{WifiStatus::Off, "Off"},
                                        {WifiStatus::On, "On"},
                                        {WifiStatus::Connecting, "Connecting"},
                                        {WifiStatus::Connected, "Connected"},
                                        {WifiStatus::ConnectedInternet, "ConnectedInternet"}};

constexpr EnumName StreamNames[] = {{Stream::None, "None"},
                                    {Stream::DigitialioSerial, "DigitialioSerial"},
                                    {Stream::DigitalI2c, "DigitalI2c"}};

} // namespace

// The table object and enumInfo() of each enumeration.
#define TAVRO_ENUM_TABLE(T)                                                                        \
    static constexpr EnumInfo T##Info = {#T, T##Names, int(sizeof(T##Names) / sizeof(EnumName))};  \
    const EnumInfo& enumInfo(T) {                                                                  \
        return T##Info;                                                                            \
    }

TAVRO_ENUM_TABLE(ErrorNum)
TAVRO_ENUM_TABLE(NodeType)
TAVRO_ENUM_TABLE(SecurityMode)
TAVRO_ENUM_TABLE(Status)
TAVRO_ENUM_TABLE(Mode)
TAVRO_ENUM_TABLE(ChannelType)
TAVRO_ENUM_TABLE(SampleType)
TAVRO_ENUM_TABLE(SyncMode)
TAVRO_ENUM_TABLE(MeasureMode)
TAVRO_ENUM_TABLE(MeasureOption)
TAVRO_ENUM_TABLE(TriggerMode)
TAVRO_ENUM_TABLE(TriggerConfig)
TAVRO_ENUM_TABLE(DigitalMode)
TAVRO_ENUM_TABLE(DigPinMode)
TAVRO_ENUM_TABLE(AwgMode)
TAVRO_ENUM_TABLE(AwgOutput)
TAVRO_ENUM_TABLE(FileType)
TAVRO_ENUM_TABLE(FilesysDeleteType)
TAVRO_ENUM_TABLE(LogData)
TAVRO_ENUM_TABLE(LogDataMode)
TAVRO_ENUM_TABLE(DataType)
TAVRO_ENUM_TABLE(DataSend)
TAVRO_ENUM_TABLE(CalibrateStage)
TAVRO_ENUM_TABLE(MessageSource)
TAVRO_ENUM_TABLE(NetworkMode)
TAVRO_ENUM_TABLE(WifiMode)
TAVRO_ENUM_TABLE(AlarmMode)
TAVRO_ENUM_TABLE(AlarmOutput)
TAVRO_ENUM_TABLE(EventMode)
TAVRO_ENUM_TABLE(Rs485Mode)
TAVRO_ENUM_TABLE(TavdFileType)
TAVRO_ENUM_TABLE(WifiCmd)
TAVRO_ENUM_TABLE(WifiStatus)
TAVRO_ENUM_TABLE(Stream)

#undef TAVRO_ENUM_TABLE

namespace {

constexpr const EnumInfo* allInfos[] = {
    &ErrorNumInfo,      &NodeTypeInfo,       &SecurityModeInfo,
    &StatusInfo,        &ModeInfo,           &ChannelTypeInfo,
    &SampleTypeInfo,    &SyncModeInfo,       &MeasureModeInfo,
    &MeasureOptionInfo, &TriggerModeInfo,    &TriggerConfigInfo,
    &DigitalModeInfo,   &DigPinModeInfo,     &AwgModeInfo,
    &AwgOutputInfo,     &FileTypeInfo,       &FilesysDeleteTypeInfo,
    &LogDataInfo,       &LogDataModeInfo,    &DataTypeInfo,
    &DataSendInfo,      &CalibrateStageInfo, &MessageSourceInfo,
    &NetworkModeInfo,   &WifiModeInfo,       &AlarmModeInfo,
    &AlarmOutputInfo,   &EventModeInfo,      &Rs485ModeInfo,
    &TavdFileTypeInfo,  &WifiCmdInfo,        &WifiStatusInfo,
    &StreamInfo};

} // namespace

const EnumInfo* enumInfoFind(const char* typeName) {
    if (!typeName)
        return nullptr;
    for (const EnumInfo* info : allInfos) {
        if (strcmp(info->typeName, typeName) == 0)
            return info;
    }
    return nullptr;
}

const EnumInfo* const* enumInfoAll(int& number) {
    number = int(sizeof(allInfos) / sizeof(allInfos[0]));
    return allInfos;
}

} // namespace TavroApi
