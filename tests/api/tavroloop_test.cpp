// Whole exchanges between a client Tavro and a serving Tavro: every call
// round-trips its arguments, results and error, over the loopback transport
// (threaded and polled) and over TCP on 127.0.0.1.

#include "tavropair.h"

#include <gtest/gtest.h>

#include <mutex>
#include <set>
#include <tuple>
#include <type_traits>
#include <utility>

using namespace TavroApi;
using namespace zoaptest;

namespace {

// The bytes of a value, to compare what was sent with what was served.
template <class T>
Bytes bytesOf(const T& v) {
    if constexpr (std::is_same<T, ZString>::value)
        return Bytes(v.str(), v.str() + v.len());
    else if constexpr (std::is_same<T, bool>::value)
        return Bytes(1, v ? 1 : 0);
    else
        return Bytes(reinterpret_cast<const uint8_t*>(&v),
                     reinterpret_cast<const uint8_t*>(&v + 1));
}

// Inputs made from a seed: strings of 0 to 5 characters, scalars and
// records of varied bytes.
template <class T>
void sample(T& v, int seed) {
    if constexpr (std::is_same<T, ZString>::value)
        v = ZString("abcde").subString(0, seed % 6);
    else if constexpr (std::is_same<T, bool>::value)
        v = seed % 2 == 0;
    else if constexpr (std::is_floating_point<T>::value)
        v = 1.5f * float(seed);
    else if constexpr (std::is_integral<T>::value)
        v = T(0x0102030405060708ull * uint64_t(seed) + 1);
    else if constexpr (std::is_enum<T>::value)
        v = T(seed % 3 + 1);
    else
        for (size_t i = 0; i < sizeof(T); i++)
            reinterpret_cast<uint8_t*>(&v)[i] = uint8_t(seed + i * 11);
}

// What a unit answers for function f: outputs from f (a bool is true), and
// an error for every third function.
template <class T>
void answer(T& v, uint16_t f) {
    sample(v, std::is_same<T, bool>::value ? 0 : f);
}
ZError errorFor(uint16_t f) {
    return f % 3 == 0 ? ZError(-int(f), ZString("Failed ") + ZString(int(f))) : ZError();
}

bool isOneWay(uint16_t f) {
    const std::set<uint16_t> oneWay = {5, 6, 9, 30, 31, 32, 95, 101};
    return oneWay.count(f) > 0;
}

// Serves every function by keeping its inputs and answering for it.
class Recorder : public Tavro {
public:
    struct Call {
        uint16_t function;
        Bytes inputs;
    };

    Recorder(bool threaded, unsigned int maxPacket) : Tavro(threaded, maxPacket) {}

    std::vector<Call> calls() {
        std::lock_guard<std::mutex> lock(omutex);
        return ocalls;
    }
    size_t count() { return calls().size(); }

    // clang-format off
    ZError getNodeInfoServe(NodeInfo& a) override { return any(1, a); }
    ZError loginServe(const ZString& a, const ZString& b) override { return any(2, a, b); }
    ZError logoutServe() override { return any(3); }
    ZError changePasswordServe(const ZString& a, const ZString& b, const ZString& c) override { return any(4, a, b, c); }
    ZError factoryResetServe(const bool& a, const bool& b) override { return any(5, a, b); }
    ZError sendTimeServe(const ZTimeUs& a) override { return any(6, a); }
    ZError setModeServe(const Mode& a) override { return any(7, a); }
    ZError getStatusServe(NodeStatus& a) override { return any(8, a); }
    ZError sendStatusServe(const NodeStatus& a) override { return any(9, a); }
    ZError getInformationServe(Information& a) override { return any(10, a); }
    ZError getInfoBlockServe(InfoBlock& a) override { return any(11, a); }
    ZError getChannelConfigServe(const unsigned int& a, ChannelConfig& b) override { return any(12, a, b); }
    ZError setChannelConfigServe(const unsigned int& a, const ChannelConfig& b) override { return any(13, a, b); }
    ZError setChannelConfigFullServe(const unsigned long& a, const unsigned int& b, const ChannelConfig& c) override { return any(14, a, b, c); }
    ZError getConfigServe(Configuration& a) override { return any(15, a); }
    ZError setConfigServe(const Configuration& a) override { return any(16, a); }
    ZError getMeasurementConfigServe(const bool& a, MeasurementConfig& b) override { return any(17, a, b); }
    ZError setMeasurementConfigServe(const bool& a, const MeasurementConfig& b) override { return any(18, a, b); }
    ZError sendDataEnableServe(const unsigned char& a) override { return any(20, a); }
    ZError measureServe(const DataType& a, DataBlock& b) override { return any(21, a, b); }
    ZError sendInfoServe(const InfoBlock& a) override { return any(30, a); }
    ZError sendDataServe(const DataBlock& a) override { return any(31, a); }
    ZError sendChannelConfigServe(const ChannelConfig& a) override { return any(32, a); }
    ZError getAwgConfigServe(const bool& a, AwgConfig& b) override { return any(40, a, b); }
    ZError setAwgConfigServe(const bool& a, const AwgConfig& b) override { return any(41, a, b); }
    ZError setAwgWaveformServe(const unsigned int& a, const unsigned int& b, const FileData& c) override { return any(42, a, b, c); }
    ZError setAnalogueOutServe(const unsigned int& a, const float& b) override { return any(43, a, b); }
    ZError setDigitalServe(const unsigned int& a) override { return any(44, a); }
    ZError getDigitalServe(unsigned int& a) override { return any(45, a); }
    ZError setRelayServe(const unsigned int& a, const bool& b) override { return any(46, a, b); }
    ZError getSwitchServe(const unsigned int& a, bool& b) override { return any(47, a, b); }
    ZError alarmsClearServe(const unsigned int& a) override { return any(48, a); }
    ZError filesysInfoServe(const ZString& a, FilesysInfo& b) override { return any(50, a, b); }
    ZError filesysDeleteServe(const ZString& a, const FilesysDeleteType& b) override { return any(51, a, b); }
    ZError fileListServe(const ZString& a, const unsigned int& b, FileInfo& c) override { return any(52, a, b, c); }
    ZError fileOpenServe(const ZString& a, const ZString& b, unsigned int& c) override { return any(53, a, b, c); }
    ZError fileReadServe(const unsigned int& a, const unsigned int& b, const unsigned int& c, FileData& d) override { return any(54, a, b, c, d); }
    ZError fileWriteServe(const unsigned int& a, const unsigned int& b, const FileData& c) override { return any(55, a, b, c); }
    ZError fileCloseServe(const unsigned int& a) override { return any(56, a); }
    ZError fileDeleteServe(const ZString& a) override { return any(57, a); }
    ZError wifiAccesspointNumServe(unsigned int& a) override { return any(70, a); }
    ZError wifiAccesspointInfoServe(const unsigned int& a, WifiAccessPoint& b) override { return any(71, a, b); }
    ZError wifiCommandServe(const WifiCmd& a) override { return any(72, a); }
    ZError getBoardConfigServe(BoardConfig& a) override { return any(91, a); }
    ZError setBoardConfigServe(const BoardConfig& a) override { return any(92, a); }
    ZError runBoardTestServe(const ZString& a) override { return any(93, a); }
    ZError calibrateServe(const CalibrateInfo& a) override { return any(94, a); }
    ZError sendMessageServe(const unsigned int& a, const ZString& b) override { return any(95, a, b); }
    ZError setDigitalSerialServe(const SerialConfig& a) override { return any(100, a); }
    ZError sendStreamDataServe(const StreamData& a) override { return any(101, a); }
    ZError setDevConfigServe(const DevConfig& a) override { return any(102, a); }
    ZError transactDevServe(const Transact& a, Transact& b) override { return any(103, a, b); }
    // clang-format on

private:
    // Keeps the inputs' bytes and fills the outputs.
    template <class... A>
    ZError any(uint16_t f, A&... a) {
        Bytes in;
        (
            [&] {
                if constexpr (std::is_const<A>::value)
                    in = cat(in, bytesOf(a));
                else
                    answer(a, f);
            }(),
            ...);
        std::lock_guard<std::mutex> lock(omutex);
        ocalls.push_back({f, in});
        return errorFor(f);
    }

    std::mutex omutex;
    std::vector<Call> ocalls;
};

template <class A>
constexpr bool isOutput =
    std::is_lvalue_reference<A>::value && !std::is_const<std::remove_reference_t<A>>::value;

// Calls f with sampled inputs and checks what the far end was given and
// what came back.
template <class... A, size_t... I>
void roundTrip(Tavro& client, Recorder& unit, uint16_t f, ZError (Tavro::*call)(A...),
               const char* name, std::index_sequence<I...>) {
    std::tuple<std::decay_t<A>...> args;
    Bytes sent;
    (
        [&] {
            if constexpr (!isOutput<A>) {
                sample(std::get<I>(args), f * 4 + int(I));
                sent = cat(sent, bytesOf(std::get<I>(args)));
            }
        }(),
        ...);
    size_t before = unit.count();
    ZError err = (client.*call)(std::get<I>(args)...);
    if (isOneWay(f)) {
        EXPECT_FALSE(err) << name;
        for (int i = 0; i < 400 && unit.count() == before; i++)
            delayMs(5);
    } else {
        EXPECT_EQ(err, errorFor(f)) << name << ": " << err.string;
        (
            [&] {
                if constexpr (isOutput<A>) {
                    std::decay_t<A> expected;
                    answer(expected, f);
                    EXPECT_EQ(bytesOf(std::get<I>(args)), bytesOf(expected)) << name;
                }
            }(),
            ...);
    }
    std::vector<Recorder::Call> calls = unit.calls();
    ASSERT_EQ(calls.size(), before + 1) << name;
    EXPECT_EQ(calls.back().function, f) << name;
    EXPECT_EQ(calls.back().inputs, sent) << name;
}

template <class... A>
void roundTrip(Tavro& client, Recorder& unit, uint16_t f, ZError (Tavro::*call)(A...),
               const char* name) {
    roundTrip(client, unit, f, call, name, std::index_sequence_for<A...>());
}

#define R(name) roundTrip(c, u, TavroFn::name, &Tavro::name, #name)

// Every call, in function-number order.
void everyCall(Tavro& c, Recorder& u) {
    // clang-format off
    R(getNodeInfo); R(login); R(logout); R(changePassword); R(factoryReset); R(sendTime);
    R(setMode); R(getStatus); R(sendStatus); R(getInformation); R(getInfoBlock);
    R(getChannelConfig); R(setChannelConfig); R(setChannelConfigFull); R(getConfig); R(setConfig);
    R(getMeasurementConfig); R(setMeasurementConfig); R(sendDataEnable); R(measure); R(sendInfo);
    R(sendData); R(sendChannelConfig); R(getAwgConfig); R(setAwgConfig); R(setAwgWaveform);
    R(setAnalogueOut); R(setDigital); R(getDigital); R(setRelay); R(getSwitch); R(alarmsClear);
    R(filesysInfo); R(filesysDelete); R(fileList); R(fileOpen); R(fileRead); R(fileWrite);
    R(fileClose); R(fileDelete); R(wifiAccesspointNum); R(wifiAccesspointInfo); R(wifiCommand);
    R(getBoardConfig); R(setBoardConfig); R(runBoardTest); R(calibrate); R(sendMessage);
    R(setDigitalSerial); R(sendStreamData); R(setDevConfig); R(transactDev);
    // clang-format on
    EXPECT_EQ(u.count(), 52u);
}
#undef R

// A request for a function number the unit has no handler for.
void expectNoSuchFunction(Tavro& client, uint16_t f) {
    ZoapMc1Header h = {0x555A, 16, 1, 2, f, 0, 0};
    ZDataChunk chunk = {&h, 16};
    ASSERT_FALSE(client.packetTx(&chunk, 1, f)) << f;
    EXPECT_EQ(client.rxHeader().status, 1) << f;
    EXPECT_EQ(client.rxHeader().length, 56) << f;
    ZoapMc1ErrorRecord record;
    ASSERT_FALSE(client.packetRxData(&record, sizeof(record)));
    client.packetRxEnd();
    EXPECT_EQ(record.number, 5);
    EXPECT_STREQ(record.text, "No such function");
}

struct Setup {
    const char* what;
    Transport transport;
    bool threaded;
};

void PrintTo(const Setup& s, std::ostream* os) {
    *os << s.what;
}

class TavroLoop : public ::testing::TestWithParam<Setup> {};

} // namespace

TEST_P(TavroLoop, EveryCallRoundTrips) {
    TavroPair<Recorder> p(GetParam().transport, GetParam().threaded);
    ASSERT_FALSE(p.joined) << p.joined.string;
    p.start();
    everyCall(p.client, p.unit);
    expectNoSuchFunction(p.client, 19);
    expectNoSuchFunction(p.client, 104);
    if (GetParam().threaded) {
        // The unit pushes status, data and messages to the application.
        roundTrip(p.unit, p.client, TavroFn::sendStatus, &Tavro::sendStatus, "pushed status");
        roundTrip(p.unit, p.client, TavroFn::sendData, &Tavro::sendData, "pushed data");
        roundTrip(p.unit, p.client, TavroFn::sendMessage, &Tavro::sendMessage, "pushed message");
    }
    p.stop();
    // One-way calls were never answered: an answer would be an unawaited reply.
    EXPECT_TRUE(p.unitRx->errors().empty());
    if (p.clientRx) {
        EXPECT_TRUE(p.clientRx->errors().empty());
    }
}

INSTANTIATE_TEST_SUITE_P(Transports, TavroLoop,
                         ::testing::Values(Setup{"LoopbackThreaded", Transport::Loopback, true},
                                           Setup{"LoopbackPolled", Transport::Loopback, false},
                                           Setup{"TcpThreaded", Transport::Tcp, true},
                                           Setup{"TcpPolled", Transport::Tcp, false}),
                         [](const ::testing::TestParamInfo<Setup>& i) { return i.param.what; });
