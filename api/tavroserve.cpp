#include "tavro.h"
#include "tavrowire.h"

#include <array>
#include <type_traits>
#include <utility>

namespace TavroApi {

// Runs the serving operations for the functions a unit calls. Each handler
// is made from the operation's own signature: its const reference
// parameters are the inputs, taken from the request in order, its other
// reference parameters the outputs, written to the reply in order.
struct Tavro::Dispatch {
    typedef ZError (*Handler)(Tavro& t, wire::RequestReader& r, wire::ReplyWriter& w, bool reply);
    struct Entry {
        uint16_t function;
        bool reply;
        Handler handler;
    };

    template <class A>
    static constexpr bool isInput = std::is_const<std::remove_reference_t<A>>::value;

    template <class... A, size_t... I>
    static ZError run(Tavro& t, ZError (Tavro::*serve)(A...), wire::RequestReader& r,
                      wire::ReplyWriter& w, bool reply, std::index_sequence<I...>) {
        std::tuple<std::decay_t<A>...> args;
        ZError err;
        auto take = [&](auto& v, auto input) {
            if constexpr (decltype(input)::value) {
                if (!err)
                    err = r.take(v);
            }
        };
        (take(std::get<I>(args), std::bool_constant<isInput<A>>()), ...);
        // A request too short for its inputs is refused, one-way or not.
        if (err)
            return t.sendErrorReply(err);

        ZError result = (t.*serve)(std::get<I>(args)...);
        if (!reply)
            return ZError();
        auto put = [&](const auto& v, auto output) {
            if constexpr (decltype(output)::value) {
                if (!err)
                    err = w.put(v);
            }
        };
        (put(std::get<I>(args), std::bool_constant<!isInput<A>>()), ...);
        (void)take;
        (void)put;
        if (err)
            return t.sendErrorReply(err);
        return t.sendReply(w.length(), result);
    }

    template <class... A>
    static ZError runServe(Tavro& t, ZError (Tavro::*serve)(A...), wire::RequestReader& r,
                           wire::ReplyWriter& w, bool reply) {
        return run(t, serve, r, w, reply, std::index_sequence_for<A...>());
    }

    template <auto Serve>
    static ZError handle(Tavro& t, wire::RequestReader& r, wire::ReplyWriter& w, bool reply) {
        return runServe(t, Serve, r, w, reply);
    }

    static const Entry* find(uint16_t function);
};

namespace {

const bool Reply = true;
const bool OneWay = false;

} // namespace

#define TAVRO_SERVE(name, kind)                                                                    \
    { TavroFn::name, kind, &Tavro::Dispatch::handle<&Tavro::name##Serve> }

const Tavro::Dispatch::Entry* Tavro::Dispatch::find(uint16_t function) {
    static const Entry table[] = {
        TAVRO_SERVE(getNodeInfo, Reply),
        TAVRO_SERVE(login, Reply),
        TAVRO_SERVE(logout, Reply),
        TAVRO_SERVE(changePassword, Reply),
        TAVRO_SERVE(factoryReset, OneWay),
        TAVRO_SERVE(sendTime, OneWay),
        TAVRO_SERVE(setMode, Reply),
        TAVRO_SERVE(getStatus, Reply),
        TAVRO_SERVE(sendStatus, OneWay),
        TAVRO_SERVE(getInformation, Reply),
        TAVRO_SERVE(getInfoBlock, Reply),
        TAVRO_SERVE(getChannelConfig, Reply),
        TAVRO_SERVE(setChannelConfig, Reply),
        TAVRO_SERVE(setChannelConfigFull, Reply),
        TAVRO_SERVE(getConfig, Reply),
        TAVRO_SERVE(setConfig, Reply),
        TAVRO_SERVE(getMeasurementConfig, Reply),
        TAVRO_SERVE(setMeasurementConfig, Reply),
        TAVRO_SERVE(sendDataEnable, Reply),
        TAVRO_SERVE(measure, Reply),
        TAVRO_SERVE(sendInfo, OneWay),
        TAVRO_SERVE(sendData, OneWay),
        TAVRO_SERVE(sendChannelConfig, OneWay),
        TAVRO_SERVE(getAwgConfig, Reply),
        TAVRO_SERVE(setAwgConfig, Reply),
        TAVRO_SERVE(setAwgWaveform, Reply),
        TAVRO_SERVE(setAnalogueOut, Reply),
        TAVRO_SERVE(setDigital, Reply),
        TAVRO_SERVE(getDigital, Reply),
        TAVRO_SERVE(setRelay, Reply),
        TAVRO_SERVE(getSwitch, Reply),
        TAVRO_SERVE(alarmsClear, Reply),
        TAVRO_SERVE(filesysInfo, Reply),
        TAVRO_SERVE(filesysDelete, Reply),
        TAVRO_SERVE(fileList, Reply),
        TAVRO_SERVE(fileOpen, Reply),
        TAVRO_SERVE(fileRead, Reply),
        TAVRO_SERVE(fileWrite, Reply),
        TAVRO_SERVE(fileClose, Reply),
        TAVRO_SERVE(fileDelete, Reply),
        TAVRO_SERVE(wifiAccesspointNum, Reply),
        TAVRO_SERVE(wifiAccesspointInfo, Reply),
        TAVRO_SERVE(wifiCommand, Reply),
        TAVRO_SERVE(getBoardConfig, Reply),
        TAVRO_SERVE(setBoardConfig, Reply),
        TAVRO_SERVE(runBoardTest, Reply),
        TAVRO_SERVE(calibrate, Reply),
        TAVRO_SERVE(sendMessage, OneWay),
        TAVRO_SERVE(setDigitalSerial, Reply),
        TAVRO_SERVE(sendStreamData, OneWay),
        TAVRO_SERVE(setDevConfig, Reply),
        TAVRO_SERVE(transactDev, Reply),
    };
    static_assert(sizeof(table) / sizeof(table[0]) == 52, "52 functions");
    static const std::array<const Entry*, TavroFn::end> byNumber = [] {
        std::array<const Entry*, TavroFn::end> a{};
        for (const Entry& e : table)
            a[e.function] = &e;
        return a;
    }();
    return function < TavroFn::end ? byNumber[function] : nullptr;
}

#undef TAVRO_SERVE

ZError Tavro::processRequest() {
    ZError err = readRequestPayload();
    if (err) {
        // The stream is broken: answer if possible and report the read error.
        sendErrorReply(err);
        return err;
    }
    err = validate();
    if (err)
        return sendErrorReply(err);

    ZoapMc1Header h = rxHeader();
    const Dispatch::Entry* entry = Dispatch::find(h.function);
    if (!entry)
        return sendErrorReply(ZError(5, "No such function"));
    wire::RequestReader r(packetRx() + HeaderSize, h.length - HeaderSize);
    const unsigned int frame = HeaderSize + ErrorRecordSize;
    wire::ReplyWriter w(packetTxBuffer() + HeaderSize,
                        maxPacket() > frame ? maxPacket() - frame : 0);
    return entry->handler(*this, r, w, entry->reply);
}

// ------------------------------------------------------------ serving defaults

ZError Tavro::getNodeInfoServe(NodeInfo&) {
    return ZError();
}
ZError Tavro::loginServe(const ZString&, const ZString&) {
    return ZError();
}
ZError Tavro::logoutServe() {
    return ZError();
}
ZError Tavro::changePasswordServe(const ZString&, const ZString&, const ZString&) {
    return ZError();
}
ZError Tavro::factoryResetServe(const bool&, const bool&) {
    return ZError();
}
ZError Tavro::sendTimeServe(const ZTimeUs&) {
    return ZError();
}
ZError Tavro::setModeServe(const Mode&) {
    return ZError();
}
ZError Tavro::getStatusServe(NodeStatus&) {
    return ZError();
}
ZError Tavro::sendStatusServe(const NodeStatus&) {
    return ZError();
}
ZError Tavro::getInformationServe(Information&) {
    return ZError();
}
ZError Tavro::getInfoBlockServe(InfoBlock&) {
    return ZError();
}
ZError Tavro::getChannelConfigServe(const unsigned int&, ChannelConfig&) {
    return ZError();
}
ZError Tavro::setChannelConfigServe(const unsigned int&, const ChannelConfig&) {
    return ZError();
}
ZError Tavro::setChannelConfigFullServe(const unsigned long&, const unsigned int&,
                                        const ChannelConfig&) {
    return ZError();
}
ZError Tavro::getConfigServe(Configuration&) {
    return ZError();
}
ZError Tavro::setConfigServe(const Configuration&) {
    return ZError();
}
ZError Tavro::getMeasurementConfigServe(const bool&, MeasurementConfig&) {
    return ZError();
}
ZError Tavro::setMeasurementConfigServe(const bool&, const MeasurementConfig&) {
    return ZError();
}
ZError Tavro::sendDataEnableServe(const unsigned char&) {
    return ZError();
}
ZError Tavro::measureServe(const DataType&, DataBlock&) {
    return ZError();
}
ZError Tavro::sendInfoServe(const InfoBlock&) {
    return ZError();
}
ZError Tavro::sendDataServe(const DataBlock&) {
    return ZError();
}
ZError Tavro::sendChannelConfigServe(const ChannelConfig&) {
    return ZError();
}
ZError Tavro::getAwgConfigServe(const bool&, AwgConfig&) {
    return ZError();
}
ZError Tavro::setAwgConfigServe(const bool&, const AwgConfig&) {
    return ZError();
}
ZError Tavro::setAwgWaveformServe(const unsigned int&, const unsigned int&, const FileData&) {
    return ZError();
}
ZError Tavro::setAnalogueOutServe(const unsigned int&, const float&) {
    return ZError();
}
ZError Tavro::setDigitalServe(const unsigned int&) {
    return ZError();
}
ZError Tavro::getDigitalServe(unsigned int&) {
    return ZError();
}
ZError Tavro::setRelayServe(const unsigned int&, const bool&) {
    return ZError();
}
ZError Tavro::getSwitchServe(const unsigned int&, bool&) {
    return ZError();
}
ZError Tavro::alarmsClearServe(const unsigned int&) {
    return ZError();
}
ZError Tavro::filesysInfoServe(const ZString&, FilesysInfo&) {
    return ZError();
}
ZError Tavro::filesysDeleteServe(const ZString&, const FilesysDeleteType&) {
    return ZError();
}
ZError Tavro::fileListServe(const ZString&, const unsigned int&, FileInfo&) {
    return ZError();
}
ZError Tavro::fileOpenServe(const ZString&, const ZString&, unsigned int&) {
    return ZError();
}
ZError Tavro::fileReadServe(const unsigned int&, const unsigned int&, const unsigned int&,
                            FileData&) {
    return ZError();
}
ZError Tavro::fileWriteServe(const unsigned int&, const unsigned int&, const FileData&) {
    return ZError();
}
ZError Tavro::fileCloseServe(const unsigned int&) {
    return ZError();
}
ZError Tavro::fileDeleteServe(const ZString&) {
    return ZError();
}
ZError Tavro::wifiAccesspointNumServe(unsigned int&) {
    return ZError();
}
ZError Tavro::wifiAccesspointInfoServe(const unsigned int&, WifiAccessPoint&) {
    return ZError();
}
ZError Tavro::wifiCommandServe(const WifiCmd&) {
    return ZError();
}
ZError Tavro::getBoardConfigServe(BoardConfig&) {
    return ZError();
}
ZError Tavro::setBoardConfigServe(const BoardConfig&) {
    return ZError();
}
ZError Tavro::runBoardTestServe(const ZString&) {
    return ZError();
}
ZError Tavro::calibrateServe(const CalibrateInfo&) {
    return ZError();
}
ZError Tavro::sendMessageServe(const unsigned int&, const ZString&) {
    return ZError();
}
ZError Tavro::setDigitalSerialServe(const SerialConfig&) {
    return ZError();
}
ZError Tavro::sendStreamDataServe(const StreamData&) {
    return ZError();
}
ZError Tavro::setDevConfigServe(const DevConfig&) {
    return ZError();
}
ZError Tavro::transactDevServe(const Transact&, Transact&) {
    return ZError();
}

} // namespace TavroApi
