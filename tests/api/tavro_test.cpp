// Tavro calls and serving against a raw far end: the exact request bytes of
// every argument shape, the reading of every result shape, and the answers
// to hostile or unknown requests.

#include "tavro.h"
#include "zoaptest.h"

#include <gtest/gtest.h>

#include <functional>

using namespace TavroApi;
using namespace zoaptest;

namespace {

template <class T>
Bytes image(const T& v) {
    Bytes b(sizeof(T));
    memcpy(b.data(), static_cast<const void*>(&v), sizeof(T));
    return b;
}

template <class T>
T patterned(uint8_t seed) {
    T v;
    uint8_t* p = reinterpret_cast<uint8_t*>(&v);
    for (size_t i = 0; i < sizeof(T); i++)
        p[i] = uint8_t(seed + i * 7);
    return v;
}

// A Tavro over a loopback transport whose far end the test plays.
template <class T = Tavro>
struct Wire {
    explicit Wire(unsigned int maxPacket = 1024) : tavro(false, maxPacket) {
        ZCommsLoopback::connectPair(near, far);
        near.setTimeout(50000);
        far.setTimeout(50000);
        tavro.setComms(near);
        tavro.setAddress(1, 2);
        tavro.setTimeout(20000);
    }
    ZCommsLoopback near, far;
    T tavro;
};

void expectError(const ZError& err, int number, const char* text) {
    EXPECT_EQ(err.number, number) << err.string;
    EXPECT_EQ(err.string, text);
}

} // namespace

TEST(TavroRequest, ArgumentShapesOnTheWire) {
    const Configuration config = patterned<Configuration>(1);
    const ChannelConfig channel = patterned<ChannelConfig>(2);
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
        {"enum word", [](Tavro& t) { return t.setMode(Mode::Sleep); }, packet(7, {4, 0, 0, 0}),
         false},
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
        {"record", [&](Tavro& t) { return t.setConfig(config); }, packet(16, image(config)), false},
        {"8 bytes, word, record",
         [&](Tavro& t) { return t.setChannelConfigFull(0x0102030405060708ul, 5, channel); },
         packet(14, cat({8, 7, 6, 5, 4, 3, 2, 1, 5, 0, 0, 0}, image(channel))), false},
        {"two words, record", [&](Tavro& t) { return t.fileWrite(9, 0x100, noData); },
         packet(55, cat({9, 0, 0, 0, 0, 1, 0, 0}, image(noData))), false},
        {"one-way time", [](Tavro& t) { return t.sendTime(ZTimeUs(0x1122334455667788ull)); },
         packet(6, {0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11}), true},
        {"one-way words", [](Tavro& t) { return t.factoryReset(true, false); },
         packet(5, {1, 0, 0, 0, 0, 0, 0, 0}), true},
        {"one-way word, string", [](Tavro& t) { return t.sendMessage(7, "hi"); },
         packet(95, {7, 0, 0, 0, 'h', 'i', 0, 0}), true},
    };
    for (const Case& c : cases) {
        Wire<> w;
        if (!c.oneWay)
            send(w.far, packet(c.request[8] | 0x8000, errorRecord(0)));
        EXPECT_FALSE(c.call(w.tavro)) << c.what;
        EXPECT_EQ(drain(w.far), c.request) << c.what;
        EXPECT_EQ(w.near.readAvailable(), 0u) << c.what;
    }
}

TEST(TavroReply, ResultShapes) {
    {
        Wire<> w;
        const NodeStatus sent = patterned<NodeStatus>(3);
        send(w.far, packet(0x8008, cat(image(sent), errorRecord(0))));
        NodeStatus status;
        EXPECT_FALSE(w.tavro.getStatus(status));
        EXPECT_EQ(image(status), image(sent));
    }
    {
        // A result and an error together.
        Wire<> w;
        send(w.far, packet(0x802D, cat({0x78, 0x56, 0x34, 0x12}, errorRecord(3, "warn"))));
        unsigned int value = 0;
        expectError(w.tavro.getDigital(value), 3, "warn");
        EXPECT_EQ(value, 0x12345678u);
    }
    for (uint8_t b : {0, 1, 2}) {
        // getSwitch reads one byte: the reply is 57 bytes long.
        Wire<> w;
        send(w.far, packet(0x802F, cat({b}, errorRecord(0))));
        bool on = b == 0;
        EXPECT_FALSE(w.tavro.getSwitch(1, on));
        EXPECT_EQ(on, b != 0);
    }
    {
        // An error reply: status 1, length 56, the result left alone; the
        // error number is sign-extended.
        Wire<> w;
        const NodeStatus before = patterned<NodeStatus>(9);
        NodeStatus status = before;
        Bytes reply = packet(0x8008, errorRecord(-5, "Refused"), 1);
        ASSERT_EQ(reply.size(), 56u);
        send(w.far, reply);
        expectError(w.tavro.getStatus(status), -5, "Refused");
        EXPECT_EQ(image(status), image(before));
    }
    {
        // 38 bytes of text without a zero are cut there.
        Wire<> w;
        send(w.far, packet(0x8003, errorRecord(7, "0123456789012345678901234567890123456789")));
        expectError(w.tavro.logout(), 7, "01234567890123456789012345678901234567");
    }
    {
        // A reply too short for its result: refused, the record left alone,
        // the stream still in step for the next call.
        Wire<> w;
        const NodeStatus before = patterned<NodeStatus>(4);
        NodeStatus status = before;
        send(w.far, cat(packet(0x8008, errorRecord(0)), packet(0x8003, errorRecord(0))));
        expectError(w.tavro.getStatus(status), 6, "Currupt packet");
        EXPECT_EQ(image(status), image(before));
        EXPECT_FALSE(w.tavro.logout());
    }
    {
        Tavro alone(true, 1024);
        EXPECT_EQ(uint32_t(alone.getApiVersion()), 0x00010000u);
        NodeStatus status;
        expectError(alone.getStatus(status), 5, "No connection");
        Tavro tiny(true, 16);
        expectError(tiny.status(), 1, "ZoapMc1 packet size too small");
    }
}

namespace {

// A unit that keeps the texts it was given and can refuse every request.
class Unit : public Tavro {
public:
    explicit Unit(bool threaded = false, unsigned int maxPacket = 1024)
        : Tavro(threaded, maxPacket) {}
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

} // namespace

TEST(TavroServe, HostileAndUnknownRequests) {
    const Bytes shortBlock(10, 0x55);
    struct Case {
        Bytes request;
        int number;
        const char* text;
    };
    const Case refused[] = {
        {packet(31, shortBlock), 6, "ZoapMc1 request too short"},
        {packet(12), 6, "ZoapMc1 request too short"},
        {packet(95, {7, 0, 0}), 6, "ZoapMc1 request too short"},
        {packet(57, {'a', 'b', 'c', 'd'}), 6, "ZoapMc1 string not terminated"},
        {packet(95, {7, 0, 0, 0}), 6, "ZoapMc1 string not terminated"},
        {packet(4, {'a', 0, 0, 0, 'b', 'c'}), 6, "ZoapMc1 string not terminated"},
        {packet(19), 5, "No such function"},
        {packet(104), 5, "No such function"},
        {packet(0), 5, "No such function"},
        {packet(0x7FFF), 5, "No such function"},
    };
    for (const Case& c : refused) {
        Wire<Unit> w;
        send(w.far, c.request);
        EXPECT_FALSE(w.tavro.processRx());
        uint16_t function = uint16_t(c.request[8] | c.request[9] << 8);
        // To the request's source (2), from the unit's own address (2).
        EXPECT_EQ(drain(w.far), packet(function | 0x8000, errorRecord(c.number, c.text), 1, 2, 2))
            << function;
        EXPECT_TRUE(w.tavro.texts.empty());
        EXPECT_EQ(w.tavro.blocks, 0);
    }
    {
        // The last string may come without its padding.
        Wire<Unit> w;
        send(w.far, packet(57, {'a', 'b', 'c', 'd', 'e', 0}));
        EXPECT_FALSE(w.tavro.processRx());
        EXPECT_EQ(drain(w.far), packet(0x8039, errorRecord(0), 0, 2, 2));
        EXPECT_EQ(w.tavro.texts.at(0), "abcde");
    }
    {
        // The serving error goes back with its text cut to 32 characters.
        Wire<Unit> w;
        w.tavro.answer = ZError(-3, "A text longer than thirty-two characters");
        send(w.far, packet(57, {'a', 0, 0, 0}, 0, 9, 7));
        EXPECT_FALSE(w.tavro.processRx());
        EXPECT_EQ(drain(w.far),
                  packet(0x8039, errorRecord(-3, "A text longer than thirty-two ch"), 0, 7, 2));
    }
    {
        // One-way requests are never answered, not even with an error.
        Wire<Unit> w;
        w.tavro.setAddress(1, 5);
        send(w.far, cat(packet(31, Bytes(496, 1)), packet(95, {1, 0, 0, 0, 'o', 'k', 0, 0})));
        EXPECT_FALSE(w.tavro.processRx());
        EXPECT_FALSE(w.tavro.processRx());
        EXPECT_EQ(w.tavro.blocks, 1);
        EXPECT_EQ(w.tavro.texts.at(0), "ok");
        EXPECT_TRUE(drain(w.far).empty());
    }
    {
        Wire<Unit> w;
        w.tavro.refuse = ZError(9, "Not logged in");
        send(w.far, packet(57, {'a', 0, 0, 0}, 0, 1, 7));
        EXPECT_FALSE(w.tavro.processRx());
        EXPECT_EQ(drain(w.far), packet(0x8039, errorRecord(9, "Not logged in"), 1, 7, 2));
        EXPECT_TRUE(w.tavro.texts.empty());
    }
    {
        // A result that does not fit the unit's packets.
        Wire<Unit> w(64);
        send(w.far, packet(15));
        EXPECT_FALSE(w.tavro.processRx());
        EXPECT_EQ(drain(w.far), packet(0x800F, errorRecord(6, "ZoapMc1 reply too large"), 1, 2, 2));
    }
}
