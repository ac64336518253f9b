#ifndef TAVRO_H
#define TAVRO_H

#include "tavrorecords.h"
#include "zmutex.h"
#include "zoapmc1comms.h"
#include "zstring.h"
#include "ztime.h"

#include <cstdint>
#include <tuple>

namespace TavroApi {

// The remote functions by number. The gaps between the groups are free on
// purpose: a unit uses the same numbers.
namespace TavroFn {
enum : uint16_t {
    getNodeInfo = 1,
    login = 2,
    logout = 3,
    changePassword = 4,
    factoryReset = 5,
    sendTime = 6,
    setMode = 7,
    getStatus = 8,
    sendStatus = 9,
    getInformation = 10,
    getInfoBlock = 11,
    getChannelConfig = 12,
    setChannelConfig = 13,
    setChannelConfigFull = 14,
    getConfig = 15,
    setConfig = 16,
    getMeasurementConfig = 17,
    setMeasurementConfig = 18,
    sendDataEnable = 20,
    measure = 21,
    sendInfo = 30,
    sendData = 31,
    sendChannelConfig = 32,
    getAwgConfig = 40,
    setAwgConfig = 41,
    setAwgWaveform = 42,
    setAnalogueOut = 43,
    setDigital = 44,
    getDigital = 45,
    setRelay = 46,
    getSwitch = 47,
    alarmsClear = 48,
    filesysInfo = 50,
    filesysDelete = 51,
    fileList = 52,
    fileOpen = 53,
    fileRead = 54,
    fileWrite = 55,
    fileClose = 56,
    fileDelete = 57,
    wifiAccesspointNum = 70,
    wifiAccesspointInfo = 71,
    wifiCommand = 72,
    getBoardConfig = 91,
    setBoardConfig = 92,
    runBoardTest = 93,
    calibrate = 94,
    sendMessage = 95,
    setDigitalSerial = 100,
    sendStreamData = 101,
    setDevConfig = 102,
    transactDev = 103,
    end = 104 // the first number no unit may call
};
} // namespace TavroFn

// The device interface of a Tavro unit.
//
// Each client call is one exchange: a request of the call's arguments and,
// except for the one-way calls (factoryReset, sendTime, sendStatus,
// sendInfo, sendData, sendChannelConfig, sendMessage, sendStreamData), a
// reply with its results and the unit's error. The call returns the
// framing's error ("No connection", "Timeout", ...) or else the unit's.
// Output arguments are only written by a normal reply.
//
// When the unit calls a function, processRequest decodes the arguments and
// runs the matching ...Serve operation on the receiving thread; it answers
// with the outputs and the operation's error, or sends nothing for a one-way
// function. A request that is too short for its arguments, a string without
// its zero, and a number without a function are answered with an error.
// Serving operations must not make client calls on the same channel.
class Tavro : public ZoapMc1Comms {
public:
    Tavro(bool threaded, unsigned int maxPacket);
    ~Tavro() override;

    ZError processRequest() override;

    // Serving operations, one per function; each returns success and leaves
    // its outputs alone unless overridden.
    virtual ZError getNodeInfoServe(NodeInfo& info);
    virtual ZError loginServe(const ZString& user, const ZString& password);
    virtual ZError logoutServe();
    virtual ZError changePasswordServe(const ZString& user, const ZString& password,
                                       const ZString& newPassword);
    virtual ZError factoryResetServe(const bool& option0, const bool& option1);
    virtual ZError sendTimeServe(const ZTimeUs& time);
    virtual ZError setModeServe(const Mode& mode);
    virtual ZError getStatusServe(NodeStatus& status);
    virtual ZError sendStatusServe(const NodeStatus& status);
    virtual ZError getInformationServe(Information& information);
    virtual ZError getInfoBlockServe(InfoBlock& infoBlock);
    virtual ZError getChannelConfigServe(const unsigned int& channel, ChannelConfig& config);
    virtual ZError setChannelConfigServe(const unsigned int& channel, const ChannelConfig& config);
    virtual ZError setChannelConfigFullServe(const unsigned long& value,
                                             const unsigned int& channel,
                                             const ChannelConfig& config);
    virtual ZError getConfigServe(Configuration& config);
    virtual ZError setConfigServe(const Configuration& config);
    virtual ZError getMeasurementConfigServe(const bool& which, MeasurementConfig& config);
    virtual ZError setMeasurementConfigServe(const bool& which, const MeasurementConfig& config);
    virtual ZError sendDataEnableServe(const unsigned char& enable);
    virtual ZError measureServe(const DataType& type, DataBlock& block);
    virtual ZError sendInfoServe(const InfoBlock& infoBlock);
    virtual ZError sendDataServe(const DataBlock& block);
    virtual ZError sendChannelConfigServe(const ChannelConfig& config);
    virtual ZError getAwgConfigServe(const bool& which, AwgConfig& config);
    virtual ZError setAwgConfigServe(const bool& which, const AwgConfig& config);
    virtual ZError setAwgWaveformServe(const unsigned int& index, const unsigned int& length,
                                       const FileData& data);
    virtual ZError setAnalogueOutServe(const unsigned int& channel, const float& value);
    virtual ZError setDigitalServe(const unsigned int& value);
    virtual ZError getDigitalServe(unsigned int& value);
    virtual ZError setRelayServe(const unsigned int& relay, const bool& on);
    virtual ZError getSwitchServe(const unsigned int& number, bool& on);
    virtual ZError alarmsClearServe(const unsigned int& mask);
    virtual ZError filesysInfoServe(const ZString& path, FilesysInfo& info);
    virtual ZError filesysDeleteServe(const ZString& path, const FilesysDeleteType& type);
    virtual ZError fileListServe(const ZString& path, const unsigned int& index, FileInfo& info);
    virtual ZError fileOpenServe(const ZString& name, const ZString& mode, unsigned int& handle);
    virtual ZError fileReadServe(const unsigned int& handle, const unsigned int& offset,
                                 const unsigned int& length, FileData& data);
    virtual ZError fileWriteServe(const unsigned int& handle, const unsigned int& offset,
                                  const FileData& data);
    virtual ZError fileCloseServe(const unsigned int& handle);
    virtual ZError fileDeleteServe(const ZString& path);
    virtual ZError wifiAccesspointNumServe(unsigned int& number);
    virtual ZError wifiAccesspointInfoServe(const unsigned int& index, WifiAccessPoint& info);
    virtual ZError wifiCommandServe(const WifiCmd& command);
    virtual ZError getBoardConfigServe(BoardConfig& config);
    virtual ZError setBoardConfigServe(const BoardConfig& config);
    virtual ZError runBoardTestServe(const ZString& test);
    virtual ZError calibrateServe(const CalibrateInfo& info);
    virtual ZError sendMessageServe(const unsigned int& type, const ZString& text);
    virtual ZError setDigitalSerialServe(const SerialConfig& config);
    virtual ZError sendStreamDataServe(const StreamData& data);
    virtual ZError setDevConfigServe(const DevConfig& config);
    virtual ZError transactDevServe(const Transact& request, Transact& reply);

    // Client calls.
    ZError getNodeInfo(NodeInfo& info);
    ZError login(const ZString& user, const ZString& password);
    ZError logout();
    ZError changePassword(const ZString& user, const ZString& password, const ZString& newPassword);
    ZError factoryReset(bool option0, bool option1);
    ZError sendTime(const ZTimeUs& time);
    ZError setMode(Mode mode);
    ZError getStatus(NodeStatus& status);
    ZError sendStatus(const NodeStatus& status);
    ZError getInformation(Information& information);
    ZError getInfoBlock(InfoBlock& infoBlock);
    ZError getChannelConfig(unsigned int channel, ChannelConfig& config);
    ZError setChannelConfig(unsigned int channel, const ChannelConfig& config);
    ZError setChannelConfigFull(unsigned long value, unsigned int channel,
                                const ChannelConfig& config);
    ZError getConfig(Configuration& config);
    ZError setConfig(const Configuration& config);
    ZError getMeasurementConfig(bool which, MeasurementConfig& config);
    ZError setMeasurementConfig(bool which, const MeasurementConfig& config);
    ZError sendDataEnable(unsigned char enable);
    ZError measure(DataType type, DataBlock& block);
    ZError sendInfo(const InfoBlock& infoBlock);
    ZError sendData(const DataBlock& block);
    ZError sendChannelConfig(const ChannelConfig& config);
    ZError getAwgConfig(bool which, AwgConfig& config);
    ZError setAwgConfig(bool which, const AwgConfig& config);
    ZError setAwgWaveform(unsigned int index, unsigned int length, const FileData& data);
    ZError setAnalogueOut(unsigned int channel, float value);
    ZError setDigital(unsigned int value);
    ZError getDigital(unsigned int& value);
    ZError setRelay(unsigned int relay, bool on);
    ZError getSwitch(unsigned int number, bool& on);
    ZError alarmsClear(unsigned int mask);
    ZError filesysInfo(const ZString& path, FilesysInfo& info);
    ZError filesysDelete(const ZString& path, FilesysDeleteType type);
    ZError fileList(const ZString& path, unsigned int index, FileInfo& info);
    ZError fileOpen(const ZString& name, const ZString& mode, unsigned int& handle);
    ZError fileRead(unsigned int handle, unsigned int offset, unsigned int length, FileData& data);
    ZError fileWrite(unsigned int handle, unsigned int offset, const FileData& data);
    ZError fileClose(unsigned int handle);
    ZError fileDelete(const ZString& path);
    ZError wifiAccesspointNum(unsigned int& number);
    ZError wifiAccesspointInfo(unsigned int index, WifiAccessPoint& info);
    ZError wifiCommand(WifiCmd command);
    ZError getBoardConfig(BoardConfig& config);
    ZError setBoardConfig(const BoardConfig& config);
    ZError runBoardTest(const ZString& test);
    ZError calibrate(const CalibrateInfo& info);
    ZError sendMessage(unsigned int type, const ZString& text);
    ZError setDigitalSerial(const SerialConfig& config);
    ZError sendStreamData(const StreamData& data);
    ZError setDevConfig(const DevConfig& config);
    ZError transactDev(const Transact& request, Transact& reply);

private:
    struct Dispatch;
    friend struct Dispatch;

    template <class... A>
    static std::tuple<const A&...> in(const A&... a) {
        return std::tuple<const A&...>(a...);
    }
    template <class... R>
    static std::tuple<R&...> out(R&... r) {
        return std::tuple<R&...>(r...);
    }
    // One exchange: the request of function with the inputs, then (when the
    // function answers) the outputs and the unit's error.
    template <class... A, class... R>
    ZError call(uint16_t function, const std::tuple<const A&...>& inputs,
                const std::tuple<R&...>& outputs);
    // A one-way request: returns once it is written.
    template <class... A>
    ZError send(uint16_t function, const A&... inputs);
    // The request of a function: the header, then one chunk per argument.
    template <class... A>
    ZError requestArgs(uint16_t function, bool oneWay, const A&... a);
    ZError request(uint16_t function, bool oneWay, const ZDataChunk* args, unsigned int n);
    template <class T>
    ZError readResult(T& result);
    ZError readError();

    ZoapMc1ErrorRecord oerrorRecord;
    // Polled, a call reads its reply itself: one call at a time.
    ZMutex ocallMutex;
};

} // namespace TavroApi

#endif
