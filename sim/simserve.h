#ifndef SIMSERVE_H
#define SIMSERVE_H

#include "tavro.h"

namespace TavroSim {

struct SimCore;

// The functions of a simulated unit, served on the receive loop of one link.
// Every operation works on the unit's state under its lock; pushes to the
// client are made by the unit's thread, never from here.
//
// Errors answered besides those of the state, measurement and files:
// 13 "Access denied: login required", 16 "Measurement running" (calibrate),
// 22 "Channel number out of range", "Invalid mode", "Invalid data type",
// "Relay number out of range", "Switch number out of range", "Invalid
// value", "No such access point", "Invalid command", "Invalid calibration
// stage", "Unknown test", "Invalid serial config", "Invalid stream",
// "Invalid length", 6 "No device at address".
class SimServer : public TavroApi::Tavro {
public:
    static constexpr unsigned int packetMax = 1024;

    explicit SimServer(SimCore& core);

    // Holds the reply back or answers with an error when a fault says so.
    ZError processRequest() override;

    ZError getNodeInfoServe(TavroApi::NodeInfo& info) override;
    ZError loginServe(const ZString& user, const ZString& password) override;
    ZError logoutServe() override;
    ZError changePasswordServe(const ZString& user, const ZString& password,
                               const ZString& newPassword) override;
    ZError factoryResetServe(const bool& resetConfig, const bool& bootLoader) override;
    ZError sendTimeServe(const ZTimeUs& time) override;
    ZError setModeServe(const TavroApi::Mode& mode) override;
    ZError getStatusServe(TavroApi::NodeStatus& status) override;
    ZError getInformationServe(TavroApi::Information& information) override;
    ZError getInfoBlockServe(TavroApi::InfoBlock& infoBlock) override;
    ZError getChannelConfigServe(const unsigned int& channel,
                                 TavroApi::ChannelConfig& config) override;
    ZError setChannelConfigServe(const unsigned int& channel,
                                 const TavroApi::ChannelConfig& config) override;
    ZError setChannelConfigFullServe(const unsigned long& value, const unsigned int& channel,
                                     const TavroApi::ChannelConfig& config) override;
    ZError getConfigServe(TavroApi::Configuration& config) override;
    ZError setConfigServe(const TavroApi::Configuration& config) override;
    ZError getMeasurementConfigServe(const bool& which,
                                     TavroApi::MeasurementConfig& config) override;
    ZError setMeasurementConfigServe(const bool& which,
                                     const TavroApi::MeasurementConfig& config) override;
    ZError sendDataEnableServe(const unsigned char& enable) override;
    ZError measureServe(const TavroApi::DataType& type, TavroApi::DataBlock& block) override;
    ZError getAwgConfigServe(const bool& which, TavroApi::AwgConfig& config) override;
    ZError setAwgConfigServe(const bool& which, const TavroApi::AwgConfig& config) override;
    ZError setAwgWaveformServe(const unsigned int& index, const unsigned int& length,
                               const TavroApi::FileData& data) override;
    ZError setAnalogueOutServe(const unsigned int& channel, const float& value) override;
    ZError setDigitalServe(const unsigned int& value) override;
    ZError getDigitalServe(unsigned int& value) override;
    ZError setRelayServe(const unsigned int& relay, const bool& on) override;
    ZError getSwitchServe(const unsigned int& number, bool& on) override;
    ZError alarmsClearServe(const unsigned int& mask) override;
    ZError filesysInfoServe(const ZString& path, TavroApi::FilesysInfo& info) override;
    ZError filesysDeleteServe(const ZString& path,
                              const TavroApi::FilesysDeleteType& type) override;
    ZError fileListServe(const ZString& path, const unsigned int& index,
                         TavroApi::FileInfo& info) override;
    ZError fileOpenServe(const ZString& name, const ZString& mode, unsigned int& handle) override;
    ZError fileReadServe(const unsigned int& handle, const unsigned int& offset,
                         const unsigned int& length, TavroApi::FileData& data) override;
    ZError fileWriteServe(const unsigned int& handle, const unsigned int& offset,
                          const TavroApi::FileData& data) override;
    ZError fileCloseServe(const unsigned int& handle) override;
    ZError fileDeleteServe(const ZString& path) override;
    ZError wifiAccesspointNumServe(unsigned int& number) override;
    ZError wifiAccesspointInfoServe(const unsigned int& index,
                                    TavroApi::WifiAccessPoint& info) override;
    ZError wifiCommandServe(const TavroApi::WifiCmd& command) override;
    ZError getBoardConfigServe(TavroApi::BoardConfig& config) override;
    ZError setBoardConfigServe(const TavroApi::BoardConfig& config) override;
    ZError runBoardTestServe(const ZString& test) override;
    ZError calibrateServe(const TavroApi::CalibrateInfo& info) override;
    ZError setDigitalSerialServe(const TavroApi::SerialConfig& config) override;
    ZError setDevConfigServe(const TavroApi::DevConfig& config) override;
    ZError transactDevServe(const TavroApi::Transact& request, TavroApi::Transact& reply) override;

private:
    uint32_t now() const;

    SimCore& ocore;
};

} // namespace TavroSim

#endif
