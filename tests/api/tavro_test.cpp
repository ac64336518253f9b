// The Zoap channel, Tavro calls and Tavro serving against a raw far end: framing,
// resynchronisation, late replies, exact request bytes, result reading, and the
// answers to hostile or unknown requests. Then a client and a serving Tavro over
// loopback and TCP: every call round-trips; four threads call while the unit pushes.

#include "tavropair.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <mutex>
#include <set>
#include <thread>
#include <tuple>
#include <type_traits>
#include <utility>

using namespace TavroApi;
using namespace zoaptest;

namespace {

typedef std::vector<uint8_t> Bytes;

Bytes cat(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// A whole packet: header (length from the payload unless given) and payload.
Bytes packet(uint16_t function, const Bytes& payload = Bytes(), uint16_t status = 0,
             uint16_t destination = 1, uint16_t source = 2, int length = -1) {
    Bytes b;
    for (uint16_t w : {uint16_t(0x555A), uint16_t(length >= 0 ? length : 16 + int(payload.size())),
                       destination, source, function, status, uint16_t(0), uint16_t(0)})
        b.insert(b.end(), {uint8_t(w), uint8_t(w >> 8)});
    return cat(b, payload);
}

// A 40-byte error record; text is copied as given (up to 38 bytes).
Bytes errorRecord(int16_t number, const char* text = "") {
    Bytes b = {uint8_t(number), uint8_t(uint16_t(number) >> 8)};
    b.resize(40);
    memcpy(&b[2], text, std::min(strlen(text), size_t(38)));
    return b;
}

// Everything the end has received within a short time.
Bytes drain(ZCommsLoopback& end) {
    Bytes out;
    while (!end.wait(2, 20000, 1) && end.readAvailable() > 0) {
        Bytes b(end.readAvailable());
        unsigned int got = 0;
        if (end.read(b.data(), unsigned(b.size()), got))
            break;
        out.insert(out.end(), b.begin(), b.begin() + got);
    }
    return out;
}

ZError send(ZCommsLoopback& end, const Bytes& b) {
    unsigned int written = 0;
    return end.write(b.data(), unsigned(b.size()), written);
}

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

const Bytes Payload8 = {'0', '1', '2', '3', '4', '5', '6', '7'};

// An end of type T over a loopback transport whose far end the test plays;
// reads on both ends give up after 50 ms, a reply after 20 ms.
template <class T = Tavro>
struct Wire {
    explicit Wire(bool threaded = false, unsigned int maxPacket = 1024, bool packetMode = false)
        : end(threaded, maxPacket) {
        near.setPacketMode(packetMode);
        far.setPacketMode(packetMode);
        ZCommsLoopback::connectPair(near, far);
        near.setTimeout(50000);
        far.setTimeout(50000);
        end.setComms(near);
        end.setAddress(1, 2);
        end.setTimeout(20000);
    }
    ZCommsLoopback near, far;
    T end;
};

// A channel that keeps every request it is sent (header and payload).
class Channel : public ZoapMc1Comms {
public:
    using ZoapMc1Comms::ZoapMc1Comms;
    ZError processRequest() override {
        ZError err = readRequestPayload();
        if (!err)
            taken.push_back(Bytes(packetRx(), packetRx() + rxHeader().length));
        return err;
    }
    // Sends a request of one header and one 4-byte argument chunk.
    ZError request(uint16_t function, bool wantReply = true) {
        ZoapMc1Header h = {0x555A, 20, 1, 2, function, 0, 0};
        uint32_t arg = 0x11223344;
        ZDataChunk chunks[2] = {{&h, 16}, {&arg, 4}};
        return packetTx(chunks, 2, wantReply ? function : 0);
    }
    std::vector<Bytes> taken;
};
using Link = Wire<Channel>;

// Passes at most `most` bytes per write on to another transport, as a busy
// socket may.
struct Dribble : ZComms {
    Dribble(ZComms& to, unsigned int most) : to(to), most(most) {}
    ZError write(const void* d, unsigned int n, unsigned int& w) override {
        return to.write(d, std::min(n, most), w);
    }
    ZError read(void* d, unsigned int n, unsigned int& got) override { return to.read(d, n, got); }
    unsigned int readAvailable() override { return to.readAvailable(); }
    ZError wait(unsigned int what, unsigned int t, unsigned int c) override {
        return to.wait(what, t, c);
    }
    ZComms& to;
    unsigned int most;
};

void expectError(const ZError& err, int number, const char* text) {
    EXPECT_EQ(err.number, number) << err.string;
    EXPECT_EQ(err.string, text);
}

} // namespace

TEST(ZoapMc1Comms, TimeoutCapAndMissingTransport) {
    Channel c(true, 256);
    EXPECT_EQ(c.setTimeout(5000000), 2000000u);
    uint8_t b[4];
    expectError(c.packetTx(nullptr, 0, 8), 5, "No connection");
    expectError(c.processRx(), 5, "No connection");
    expectError(c.packetRxData(b, 4), 5, "No connection");
    ZCommsLoopback a;
    c.setComms(&a);
    c.setComms(nullptr);
    expectError(c.processRequests(), 5, "No connection");
}

TEST(ZoapMc1Comms, PolledExchange) {
    Link l(false);
    // A request of the unit ahead of the reply is served on the way.
    send(l.far,
         cat(packet(9, Payload8), packet(0x8007, cat({'A', 'B', 'C', 'D'}, errorRecord(0)))));
    ASSERT_FALSE(l.end.request(7));
    EXPECT_EQ(drain(l.far), packet(7, {0x44, 0x33, 0x22, 0x11}));
    EXPECT_EQ(l.end.taken.size(), 1u);
    EXPECT_EQ(l.end.rxHeader().function, 0x8007);
    char result[4];
    ZoapMc1ErrorRecord record;
    ASSERT_FALSE(l.end.packetRxData(result, 4));
    EXPECT_EQ(memcmp(result, "ABCD", 4), 0);
    ASSERT_FALSE(l.end.packetRxData(&record, 40));
    EXPECT_FALSE(l.end.packetRxEnd());
    EXPECT_EQ(l.near.readAvailable(), 0u);
    // A reply longer than what is read: packetRxEnd reads off the rest.
    send(l.far, cat(packet(0x8007, cat(errorRecord(0), Bytes(12, 0x5A))), packet(9, Payload8)));
    ASSERT_FALSE(l.end.request(7));
    EXPECT_FALSE(l.end.packetRxData(&record, 40));
    EXPECT_FALSE(l.end.packetRxEnd());
    EXPECT_FALSE(l.end.processRx());
    EXPECT_EQ(l.end.taken.at(1), packet(9, Payload8));
    // No reply at all: the exchange still counts as sent; a one-way one does not wait.
    drain(l.far);
    EXPECT_FALSE(l.end.request(7));
    EXPECT_FALSE(l.end.request(31, false));
    EXPECT_EQ(drain(l.far).size(), 40u);
}

TEST(ZoapMc1Comms, StreamResynchronisation) {
    const Bytes garbage8 = {1, 2, 3, 4, 5, 6, 7, 8}, abc = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'};
    const Bytes good = packet(9, Payload8), tail = cat(Bytes(16, 0xEE), good);
    struct Case {
        const char* what;
        unsigned int maxPacket;
        Bytes stream;
        bool corrupt; // the first call reports "Currupt packet", the second finds the packet
        Bytes taken;
    };
    const Case cases[] = {
        {"magic at 8: the header is whole again", 256, cat(garbage8, good), false, good},
        // As many bytes are read again as were kept (12): 8 after the header go with it.
        {"magic at 4", 256, cat(cat({1, 2, 3, 4}, good), abc), false, packet(9, abc)},
        {"no magic in 16 bytes", 256, cat(cat(garbage8, garbage8), good), true, good},
        // A length above maxPacket or below 16 is a bad header like a bad magic.
        {"length 65", 64, cat(packet(9, {}, 0, 1, 2, 65), tail), true, good},
        {"length 15", 64, cat(packet(9, {}, 0, 1, 2, 15), tail), true, good},
        {"length of exactly maxPacket", 64, packet(9, Bytes(48, 7)), false,
         packet(9, Bytes(48, 7))},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Link l(false, c.maxPacket);
        send(l.far, c.stream);
        if (c.corrupt)
            expectError(l.end.processRx(), 6, "Currupt packet");
        EXPECT_FALSE(l.end.processRx());
        EXPECT_EQ(l.end.taken, std::vector<Bytes>{c.taken});
    }
}

TEST(ZoapMc1Comms, PacketModeRefusesBadPackets) {
    Link l(false, 64, true);
    Bytes badMagic = packet(9, Payload8);
    badMagic[1] = 0x56;
    // Bad magic, too long, too short, a short packet, a length past the packet's end.
    for (const Bytes& b : {badMagic, packet(9, {}, 0, 1, 2, 65), packet(9, {}, 0, 1, 2, 8),
                           Bytes(8, 0x5A), packet(9, Payload8, 0, 1, 2, 40)}) {
        send(l.far, b);
        expectError(l.end.processRx(), 6, "ZoapMc1 packet data error");
        l.near.flush(ZComms::FlushRead);
    }
    EXPECT_TRUE(l.end.taken.empty());
    send(l.far, packet(9, Payload8));
    EXPECT_FALSE(l.end.processRx());
    EXPECT_EQ(l.end.taken.size(), 1u);
}

TEST(ZoapMc1Comms, UnawaitedAndLateReplies) {
    {
        // Timed out, then another function called: the late reply is corrupt.
        Link l(true);
        expectError(l.end.request(45), 4, "Timeout");
        expectError(l.end.request(8), 4, "Timeout");
        send(l.far, packet(0x802D, cat({1, 0, 0, 0}, errorRecord(0))));
        expectError(l.end.processRx(), 6, "Currupt packet");
    }
    {
        // A late reply in before the same function is called again is taken as its reply.
        Link l(true);
        expectError(l.end.request(45), 4, "Timeout");
        send(l.far, packet(0x802D, cat({0x6F, 0, 0, 0}, errorRecord(0))));
        EXPECT_FALSE(l.end.processRx()); // waits out the time-out on replyDone
        ASSERT_FALSE(l.end.request(45));
        uint32_t value = 0;
        EXPECT_FALSE(l.end.packetRxData(&value, 4));
        EXPECT_EQ(value, 111u);
    }
}

TEST(TavroRequest, ArgumentShapesOnTheWire) {
    Configuration config;
    ChannelConfig channel;
    sample(config, 1);
    sample(channel, 2);
    const FileData noData;
    struct Case {
        const char* what;
        std::function<ZError(Tavro&)> call;
        Bytes request;
        bool oneWay;
    };
    const Case cases[] = {
        {"none", [](Tavro& t) { return t.logout(); }, packet(3), false},
        {"word", [](Tavro& t) { return t.setDigital(0xAABBCCDD); },
         packet(44, {0xDD, 0xCC, 0xBB, 0xAA}), false},
        {"byte word", [](Tavro& t) { return t.sendDataEnable(0xFE); }, packet(20, {0xFE, 0, 0, 0}),
         false},
        {"word, bool word", [](Tavro& t) { return t.setRelay(3, true); },
         packet(46, {3, 0, 0, 0, 1, 0, 0, 0}), false},
        {"word, float", [](Tavro& t) { return t.setAnalogueOut(2, 1.5f); },
         packet(43, {2, 0, 0, 0, 0, 0, 0xC0, 0x3F}), false},
        {"empty and 3-char strings", [](Tavro& t) { return t.login("", "abc"); },
         packet(2, {0, 0, 0, 0, 'a', 'b', 'c', 0}), false},
        {"4-char, empty, 3-char strings",
         [](Tavro& t) { return t.changePassword("abcd", "", "abc"); },
         packet(4, {'a', 'b', 'c', 'd', 0, 0, 0, 0, 0, 0, 0, 0, 'a', 'b', 'c', 0}), false},
        {"string, enum word",
         [](Tavro& t) { return t.filesysDelete("/d", FilesysDeleteType::Format); },
         packet(51, {'/', 'd', 0, 0, 2, 0, 0, 0}), false},
        {"record", [&](Tavro& t) { return t.setConfig(config); }, packet(16, bytesOf(config)),
         false},
        {"8 bytes, word, record",
         [&](Tavro& t) { return t.setChannelConfigFull(0x0102030405060708ul, 5, channel); },
         packet(14, cat({8, 7, 6, 5, 4, 3, 2, 1, 5, 0, 0, 0}, bytesOf(channel))), false},
        {"two words, record", [&](Tavro& t) { return t.fileWrite(9, 0x100, noData); },
         packet(55, cat({9, 0, 0, 0, 0, 1, 0, 0}, bytesOf(noData))), false},
        {"one-way time", [](Tavro& t) { return t.sendTime(ZTimeUs(0x1122334455667788ull)); },
         packet(6, {0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11}), true},
        {"one-way word, string", [](Tavro& t) { return t.sendMessage(7, "hi"); },
         packet(95, {7, 0, 0, 0, 'h', 'i', 0, 0}), true},
    };
    Wire<> w;
    for (const Case& c : cases) {
        if (!c.oneWay)
            send(w.far, packet(c.request[8] | 0x8000, errorRecord(0)));
        EXPECT_FALSE(c.call(w.end)) << c.what;
        EXPECT_EQ(drain(w.far), c.request) << c.what;
        EXPECT_EQ(w.near.readAvailable(), 0u) << c.what;
    }
}

// The exchanges below share one stream, which therefore also shows that
// every reply is read to its end.
TEST(TavroReply, ResultShapes) {
    Wire<> w;
    NodeStatus sent, before, status;
    sample(sent, 3);
    sample(before, 9);
    send(w.far, packet(0x8008, cat(bytesOf(sent), errorRecord(0))));
    EXPECT_FALSE(w.end.getStatus(status));
    EXPECT_EQ(bytesOf(status), bytesOf(sent));
    // A result and an error together.
    send(w.far, packet(0x802D, cat({0x78, 0x56, 0x34, 0x12}, errorRecord(3, "warn"))));
    unsigned int value = 0;
    expectError(w.end.getDigital(value), 3, "warn");
    EXPECT_EQ(value, 0x12345678u);
    // getSwitch reads one byte: the reply is 57 bytes long.
    for (uint8_t b : {0, 1, 2}) {
        send(w.far, packet(0x802F, cat({b}, errorRecord(0))));
        bool on = b == 0;
        EXPECT_FALSE(w.end.getSwitch(1, on));
        EXPECT_EQ(on, b != 0);
    }
    // An error reply (status 1, length 56) leaves the result alone; its number sign-extends.
    status = before;
    Bytes reply = packet(0x8008, errorRecord(-5, "Refused"), 1);
    ASSERT_EQ(reply.size(), 56u);
    send(w.far, reply);
    expectError(w.end.getStatus(status), -5, "Refused");
    EXPECT_EQ(bytesOf(status), bytesOf(before));
    // 38 bytes of text without a zero are cut there.
    send(w.far, packet(0x8003, errorRecord(7, "0123456789012345678901234567890123456789")));
    expectError(w.end.logout(), 7, "01234567890123456789012345678901234567");
    // A reply too short for its result: refused, the record left alone, the stream in step.
    send(w.far, cat(packet(0x8008, errorRecord(0)), packet(0x8003, errorRecord(0))));
    expectError(w.end.getStatus(status), 6, "Currupt packet");
    EXPECT_EQ(bytesOf(status), bytesOf(before));
    EXPECT_FALSE(w.end.logout());
    EXPECT_EQ(uint32_t(Tavro(true, 1024).getApiVersion()), 0x00010000u);
}

namespace {

// A unit that keeps the texts it was given and can refuse every request.
class Unit : public Tavro {
public:
    using Tavro::Tavro;
    ZError validate() override { return refuse; }
    ZError fileDeleteServe(const ZString& path) override {
        texts.push_back(path);
        return answer;
    }
    ZError sendMessageServe(const unsigned int&, const ZString& text) override {
        texts.push_back(text);
        return ZError();
    }
    ZError sendDataServe(const DataBlock&) override {
        blocks++;
        return ZError();
    }

    ZError refuse, answer;
    std::vector<ZString> texts;
    int blocks = 0;
};

// The reply of unit (own address 2) to a request from source 2.
Bytes replyTo(uint16_t function, const ZError& e, uint16_t status = 1, uint16_t to = 2) {
    return packet(function | 0x8000, errorRecord(int16_t(e.number), e.string.str()), status, to, 2);
}

} // namespace

TEST(TavroServe, HostileAndUnknownRequests) {
    const char *tooShort = "ZoapMc1 request too short", *open = "ZoapMc1 string not terminated";
    struct Case {
        Bytes request;
        ZError error;
    };
    const Case refused[] = {
        {packet(31, Bytes(10, 0x55)), ZError(6, tooShort)},
        {packet(12), ZError(6, tooShort)},
        {packet(57, {'a', 'b', 'c', 'd'}), ZError(6, open)},
        {packet(4, {'a', 0, 0, 0, 'b', 'c'}), ZError(6, open)},
        {packet(19), ZError(5, "No such function")},
        {packet(104), ZError(5, "No such function")},
        {packet(0), ZError(5, "No such function")},
    };
    Wire<Unit> w;
    for (const Case& c : refused) {
        uint16_t function = uint16_t(c.request[8] | c.request[9] << 8);
        send(w.far, c.request);
        EXPECT_FALSE(w.end.processRx()) << function;
        EXPECT_EQ(drain(w.far), replyTo(function, c.error)) << function;
    }
    EXPECT_TRUE(w.end.texts.empty());
    EXPECT_EQ(w.end.blocks, 0);
    // The last string may lack its padding; a serving error goes back to the source, cut to 32.
    send(w.far, packet(57, {'a', 'b', 'c', 'd', 'e', 0}));
    EXPECT_FALSE(w.end.processRx());
    EXPECT_EQ(drain(w.far), replyTo(57, ZError(), 0));
    EXPECT_EQ(w.end.texts.at(0), "abcde");
    w.end.answer = ZError(-3, "A text longer than thirty-two characters");
    send(w.far, packet(57, {'a', 0, 0, 0}, 0, 9, 7));
    EXPECT_FALSE(w.end.processRx());
    EXPECT_EQ(drain(w.far), replyTo(57, ZError(-3, "A text longer than thirty-two ch"), 0, 7));
    // One-way requests are never answered, not even with an error.
    send(w.far, cat(packet(31, Bytes(496, 1)), packet(95, {1, 0, 0, 0, 'o', 'k', 0, 0})));
    EXPECT_FALSE(w.end.processRx());
    EXPECT_FALSE(w.end.processRx());
    EXPECT_EQ(w.end.blocks, 1);
    EXPECT_EQ(w.end.texts.at(2), "ok");
    EXPECT_TRUE(drain(w.far).empty());
    w.end.refuse = ZError(9, "Not logged in");
    send(w.far, packet(57, {'a', 0, 0, 0}, 0, 1, 7));
    EXPECT_FALSE(w.end.processRx());
    EXPECT_EQ(drain(w.far), replyTo(57, w.end.refuse, 1, 7));
    EXPECT_EQ(w.end.texts.size(), 3u);
    // A result that does not fit the unit's packets.
    Wire<Unit> small(false, 64);
    send(small.far, packet(15));
    EXPECT_FALSE(small.end.processRx());
    EXPECT_EQ(drain(small.far), replyTo(15, ZError(6, "ZoapMc1 reply too large")));
}

TEST(TavroServe, RepliesGoOutWholeThroughShortWrites) {
    Wire<Unit> w;
    Dribble dribble(w.near, 5);
    w.end.setComms(dribble);
    send(w.far, packet(57, {'a', 0, 0, 0}));
    EXPECT_FALSE(w.end.processRx());
    EXPECT_EQ(drain(w.far), replyTo(57, ZError(), 0));
    Dribble stuck(w.near, 0);
    w.end.setComms(stuck);
    send(w.far, packet(57, {'a', 0, 0, 0}));
    expectError(w.end.processRx(), 1, "ZoapMc1 write incomplete");
}

namespace {

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

    using Tavro::Tavro;
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

} // namespace

TEST(TavroLoop, EveryCallRoundTripsThreadedAndPolledOverLoopbackAndTcp) {
    for (Transport transport : {Transport::Loopback, Transport::Tcp})
        for (bool threaded : {true, false}) {
            SCOPED_TRACE(std::string(threaded ? "threaded " : "polled ") +
                         (transport == Transport::Tcp ? "TCP" : "loopback"));
            TavroPair<Recorder> p(transport, threaded);
            ASSERT_FALSE(p.joined) << p.joined.string;
            p.start();
            everyCall(p.client, p.unit);
            p.stop();
            // One-way calls were never answered: an answer would be an unawaited reply.
            EXPECT_TRUE(p.unitRx->errors().empty());
            EXPECT_TRUE(!p.clientRx || p.clientRx->errors().empty());
        }
}

namespace {

float sampleValue(uint32_t sequence, int i) {
    return float(sequence % 10000 * 1000 + unsigned(i));
}

// As the unit it answers with records made from the arguments; as the
// application it keeps the sequence numbers of the blocks pushed to it.
class Node : public Tavro {
public:
    using Tavro::Tavro;
    ZError getChannelConfigServe(const unsigned int& channel, ChannelConfig& config) override {
        config.dataChannel = channel;
        config.scale = channel * 0.5;
        setCharArray(config.name, ZString(channel));
        return ZError();
    }
    ZError getDigitalServe(unsigned int& value) override {
        value = 0xC0FFEE;
        return ZError(2, "Digital");
    }
    ZError sendDataServe(const DataBlock& block) override {
        bool good = block.numSamples == 118;
        for (int i = 0; i < DataBlock::dataMax; i++)
            good = good && block.data[i] == sampleValue(block.sequence, i);
        std::lock_guard<std::mutex> lock(mutex);
        sequences.push_back(block.sequence);
        intact = intact && good;
        return ZError();
    }
    size_t received() {
        std::lock_guard<std::mutex> lock(mutex);
        return sequences.size();
    }

    std::mutex mutex;
    std::vector<uint32_t> sequences;
    bool intact = true;
};

} // namespace

// Every call must get its own reply and every block be served once, in order and intact.
TEST(TavroStress, CallsWhileTheUnitPushes) {
    TavroPair<Node> p(Transport::Loopback, true);
    ASSERT_FALSE(p.joined);
    Node &app = p.client, &unit = p.unit;
    p.start();
    std::atomic<bool> callsDone(false);
    std::atomic<uint32_t> pushed(0);
    std::thread pusher([&] {
        DataBlock block;
        block.numSamples = 118;
        while (!callsDone || pushed < 200) {
            block.sequence = pushed;
            for (int i = 0; i < DataBlock::dataMax; i++)
                block.data[i] = sampleValue(block.sequence, i);
            if (unit.sendData(block))
                break;
            pushed++;
            // The loopback has no limit of its own: keep a socket's worth in flight.
            while (pushed - app.received() > 256)
                delayUs(20);
        }
    });
    std::atomic<int> wrong(0);
    std::vector<std::thread> callers;
    for (int t = 0; t < 4; t++)
        callers.emplace_back([&, t] {
            for (int i = 0; i < 150; i++) {
                unsigned int channel = unsigned(t * 100000 + i), value = 0;
                ChannelConfig config;
                ZError err = app.getChannelConfig(channel, config);
                if (err || config.dataChannel != channel || config.scale != channel * 0.5 ||
                    getCharArray(config.name) != ZString(channel))
                    wrong++;
                if (!(app.getDigital(value) == ZError(2, "Digital")) || value != 0xC0FFEE)
                    wrong++;
            }
        });
    for (std::thread& c : callers)
        c.join();
    callsDone = true;
    pusher.join();
    for (int i = 0; i < 1000 && app.received() < pushed; i++)
        delayMs(5);
    p.stop();
    EXPECT_EQ(wrong, 0);
    EXPECT_TRUE(app.intact);
    ASSERT_EQ(app.sequences.size(), size_t(pushed));
    for (uint32_t i = 0; i < pushed; i++)
        ASSERT_EQ(app.sequences[i], i);
    EXPECT_TRUE(p.unitRx->errors().empty());
    EXPECT_TRUE(p.clientRx->errors().empty());
}
