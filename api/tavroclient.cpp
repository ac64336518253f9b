#include "tavro.h"
#include "tavrowire.h"

namespace TavroApi {

namespace {

// The record images as a unit sends them.
static_assert(sizeof(NodeInfo) == 56 && sizeof(NodeStatus) == 64 && sizeof(Information) == 160 &&
                  sizeof(InfoBlock) == 216 && sizeof(ChannelConfig) == 136 &&
                  sizeof(Configuration) == 516 && sizeof(MeasurementConfig) == 112 &&
                  sizeof(DataBlock) == 496 && sizeof(AwgConfig) == 24 &&
                  sizeof(FilesysInfo) == 144 && sizeof(FileInfo) == 144 &&
                  sizeof(FileData) == 516 && sizeof(WifiAccessPoint) == 44 &&
                  sizeof(BoardConfig) == 312 && sizeof(CalibrateInfo) == 56 &&
                  sizeof(SerialConfig) == 12 && sizeof(StreamData) == 76 &&
                  sizeof(DevConfig) == 8 && sizeof(Transact) == 264 && sizeof(ZTimeUs) == 8,
              "record images");

const unsigned int MaxArgs = 3;

// Polled, the caller reads its own reply off the transport after packetTx,
// so a whole call must not interleave with another; threaded, the receive
// thread hands the replies over one at a time.
class CallLock {
public:
    CallLock(ZMutex& mutex, bool take) : omutex(take ? &mutex : nullptr) {
        if (omutex)
            omutex->lock();
    }
    ~CallLock() {
        if (omutex)
            omutex->unlock();
    }
    CallLock(const CallLock&) = delete;
    CallLock& operator=(const CallLock&) = delete;

private:
    ZMutex* omutex;
};

} // namespace

Tavro::Tavro(bool threaded, unsigned int maxPacket) : ZoapMc1Comms(threaded, maxPacket) {
    setApiVersion(ZoapMc1ApiVer(1, 0));
    memset(&oerrorRecord, 0, sizeof(oerrorRecord));
}

Tavro::~Tavro() {}

ZError Tavro::request(uint16_t function, bool oneWay, const ZDataChunk* args, unsigned int n) {
    ZDataChunk chunks[MaxArgs + 1];
    uint32_t length = HeaderSize;
    for (unsigned int i = 0; i < n; i++) {
        chunks[i + 1] = args[i];
        length += args[i].length;
    }
    if (length > 0xFFFF)
        return ZError(6, "ZoapMc1 request too large");
    ZoapMc1Header h = {Magic, uint16_t(length), destination(), source(), function, 0, 0};
    chunks[0] = {&h, HeaderSize};
    return packetTx(chunks, n + 1, oneWay ? 0 : function);
}

template <class... A>
ZError Tavro::requestArgs(uint16_t function, bool oneWay, const A&... a) {
    if constexpr (sizeof...(a) == 0) {
        return request(function, oneWay, nullptr, 0);
    } else {
        static_assert(sizeof...(a) <= MaxArgs, "three arguments at most");
        const wire::RequestArg args[] = {wire::RequestArg(a)...};
        ZDataChunk chunks[sizeof...(a)];
        for (unsigned int i = 0; i < sizeof...(a); i++)
            chunks[i] = {args[i].data(), args[i].length()};
        return request(function, oneWay, chunks, sizeof...(a));
    }
}

template <class... A>
ZError Tavro::send(uint16_t function, const A&... inputs) {
    CallLock lock(ocallMutex, !threaded());
    return requestArgs(function, true, inputs...);
}

template <class... A, class... R>
ZError Tavro::call(uint16_t function, const std::tuple<const A&...>& inputs,
                   const std::tuple<R&...>& outputs) {
    CallLock lock(ocallMutex, !threaded());
    ZError err =
        std::apply([&](const A&... a) { return requestArgs(function, false, a...); }, inputs);
    if (err)
        return err;
    // An error reply carries the error record alone; the outputs stay as
    // they were.
    if (rxHeader().status != 0)
        return readError();
    err = std::apply(
        [&](R&... r) {
            ZError e;
            ((e ? void() : void(e = readResult(r))), ...);
            return e;
        },
        outputs);
    if (err)
        return err;
    return readError();
}

template <class T>
ZError Tavro::readResult(T& result) {
    if constexpr (std::is_same<T, bool>::value) {
        uint8_t b = 0;
        ZError err = packetRxData(&b, 1);
        if (!err)
            result = b != 0;
        return err;
    } else {
        static_assert(std::is_trivially_copyable<T>::value, "a result is a scalar or record");
        return packetRxData(static_cast<void*>(&result), sizeof(T));
    }
}

// Reads the error record that ends every reply; a read error is returned at
// once and leaves the receive side waiting out its time-out.
ZError Tavro::readError() {
    ZError err = packetRxData(&oerrorRecord, sizeof(oerrorRecord));
    if (err)
        return err;
    ZError result = getErrorRecord(oerrorRecord);
    packetRxEnd();
    return result;
}

// ------------------------------------------------------------ the calls

ZError Tavro::getNodeInfo(NodeInfo& info) {
    return call(TavroFn::getNodeInfo, in(), out(info));
}
ZError Tavro::login(const ZString& user, const ZString& password) {
    return call(TavroFn::login, in(user, password), out());
}
ZError Tavro::logout() {
    return call(TavroFn::logout, in(), out());
}
ZError Tavro::changePassword(const ZString& user, const ZString& password,
                             const ZString& newPassword) {
    return call(TavroFn::changePassword, in(user, password, newPassword), out());
}
ZError Tavro::factoryReset(bool option0, bool option1) {
    return send(TavroFn::factoryReset, option0, option1);
}
ZError Tavro::sendTime(const ZTimeUs& time) {
    return send(TavroFn::sendTime, time);
}
ZError Tavro::setMode(Mode mode) {
    return call(TavroFn::setMode, in(mode), out());
}
ZError Tavro::getStatus(NodeStatus& status) {
    return call(TavroFn::getStatus, in(), out(status));
}
ZError Tavro::sendStatus(const NodeStatus& status) {
    return send(TavroFn::sendStatus, status);
}
ZError Tavro::getInformation(Information& information) {
    return call(TavroFn::getInformation, in(), out(information));
}
ZError Tavro::getInfoBlock(InfoBlock& infoBlock) {
    return call(TavroFn::getInfoBlock, in(), out(infoBlock));
}
ZError Tavro::getChannelConfig(unsigned int channel, ChannelConfig& config) {
    return call(TavroFn::getChannelConfig, in(channel), out(config));
}
ZError Tavro::setChannelConfig(unsigned int channel, const ChannelConfig& config) {
    return call(TavroFn::setChannelConfig, in(channel, config), out());
}
ZError Tavro::setChannelConfigFull(unsigned long value, unsigned int channel,
                                   const ChannelConfig& config) {
    return call(TavroFn::setChannelConfigFull, in(value, channel, config), out());
}
ZError Tavro::getConfig(Configuration& config) {
    return call(TavroFn::getConfig, in(), out(config));
}
ZError Tavro::setConfig(const Configuration& config) {
    return call(TavroFn::setConfig, in(config), out());
}
ZError Tavro::getMeasurementConfig(bool which, MeasurementConfig& config) {
    return call(TavroFn::getMeasurementConfig, in(which), out(config));
}
ZError Tavro::setMeasurementConfig(bool which, const MeasurementConfig& config) {
    return call(TavroFn::setMeasurementConfig, in(which, config), out());
}
ZError Tavro::sendDataEnable(unsigned char enable) {
    return call(TavroFn::sendDataEnable, in(enable), out());
}
ZError Tavro::measure(DataType type, DataBlock& block) {
    return call(TavroFn::measure, in(type), out(block));
}
ZError Tavro::sendInfo(const InfoBlock& infoBlock) {
    return send(TavroFn::sendInfo, infoBlock);
}
ZError Tavro::sendData(const DataBlock& block) {
    return send(TavroFn::sendData, block);
}
ZError Tavro::sendChannelConfig(const ChannelConfig& config) {
    return send(TavroFn::sendChannelConfig, config);
}
ZError Tavro::getAwgConfig(bool which, AwgConfig& config) {
    return call(TavroFn::getAwgConfig, in(which), out(config));
}
ZError Tavro::setAwgConfig(bool which, const AwgConfig& config) {
    return call(TavroFn::setAwgConfig, in(which, config), out());
}
ZError Tavro::setAwgWaveform(unsigned int index, unsigned int length, const FileData& data) {
    return call(TavroFn::setAwgWaveform, in(index, length, data), out());
}
ZError Tavro::setAnalogueOut(unsigned int channel, float value) {
    return call(TavroFn::setAnalogueOut, in(channel, value), out());
}
ZError Tavro::setDigital(unsigned int value) {
    return call(TavroFn::setDigital, in(value), out());
}
ZError Tavro::getDigital(unsigned int& value) {
    return call(TavroFn::getDigital, in(), out(value));
}
ZError Tavro::setRelay(unsigned int relay, bool on) {
    return call(TavroFn::setRelay, in(relay, on), out());
}
ZError Tavro::getSwitch(unsigned int number, bool& on) {
    return call(TavroFn::getSwitch, in(number), out(on));
}
ZError Tavro::alarmsClear(unsigned int mask) {
    return call(TavroFn::alarmsClear, in(mask), out());
}
ZError Tavro::filesysInfo(const ZString& path, FilesysInfo& info) {
    return call(TavroFn::filesysInfo, in(path), out(info));
}
ZError Tavro::filesysDelete(const ZString& path, FilesysDeleteType type) {
    return call(TavroFn::filesysDelete, in(path, type), out());
}
ZError Tavro::fileList(const ZString& path, unsigned int index, FileInfo& info) {
    return call(TavroFn::fileList, in(path, index), out(info));
}
ZError Tavro::fileOpen(const ZString& name, const ZString& mode, unsigned int& handle) {
    return call(TavroFn::fileOpen, in(name, mode), out(handle));
}
ZError Tavro::fileRead(unsigned int handle, unsigned int offset, unsigned int length,
                       FileData& data) {
    return call(TavroFn::fileRead, in(handle, offset, length), out(data));
}
ZError Tavro::fileWrite(unsigned int handle, unsigned int offset, const FileData& data) {
    return call(TavroFn::fileWrite, in(handle, offset, data), out());
}
ZError Tavro::fileClose(unsigned int handle) {
    return call(TavroFn::fileClose, in(handle), out());
}
ZError Tavro::fileDelete(const ZString& path) {
    return call(TavroFn::fileDelete, in(path), out());
}
ZError Tavro::wifiAccesspointNum(unsigned int& number) {
    return call(TavroFn::wifiAccesspointNum, in(), out(number));
}
ZError Tavro::wifiAccesspointInfo(unsigned int index, WifiAccessPoint& info) {
    return call(TavroFn::wifiAccesspointInfo, in(index), out(info));
}
ZError Tavro::wifiCommand(WifiCmd command) {
    return call(TavroFn::wifiCommand, in(command), out());
}
ZError Tavro::getBoardConfig(BoardConfig& config) {
    return call(TavroFn::getBoardConfig, in(), out(config));
}
ZError Tavro::setBoardConfig(const BoardConfig& config) {
    return call(TavroFn::setBoardConfig, in(config), out());
}
ZError Tavro::runBoardTest(const ZString& test) {
    return call(TavroFn::runBoardTest, in(test), out());
}
ZError Tavro::calibrate(const CalibrateInfo& info) {
    return call(TavroFn::calibrate, in(info), out());
}
ZError Tavro::sendMessage(unsigned int type, const ZString& text) {
    return send(TavroFn::sendMessage, type, text);
}
ZError Tavro::setDigitalSerial(const SerialConfig& config) {
    return call(TavroFn::setDigitalSerial, in(config), out());
}
ZError Tavro::sendStreamData(const StreamData& data) {
    return send(TavroFn::sendStreamData, data);
}
ZError Tavro::setDevConfig(const DevConfig& config) {
    return call(TavroFn::setDevConfig, in(config), out());
}
ZError Tavro::transactDev(const Transact& request, Transact& reply) {
    return call(TavroFn::transactDev, in(request), out(reply));
}

} // namespace TavroApi
