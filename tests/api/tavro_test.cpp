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
    const uint8_t* p = reinterpret_cast<const uint8_t*>(&v);
    return Bytes(p, p + sizeof(T));
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
    Wire<> w;
    for (const Case& c : cases) {
        if (!c.oneWay)
            send(w.far, packet(c.request[8] | 0x8000, errorRecord(0)));
        EXPECT_FALSE(c.call(w.tavro)) << c.what;
        EXPECT_EQ(drain(w.far), c.request) << c.what;
        EXPECT_EQ(w.near.readAvailable(), 0u) << c.what;
    }
}

// The exchanges below share one stream, which therefore also shows that
// every reply is read to its end.
TEST(TavroReply, ResultShapes) {
    Wire<> w;
    const NodeStatus sent = patterned<NodeStatus>(3), before = patterned<NodeStatus>(9);
    NodeStatus status;
    send(w.far, packet(0x8008, cat(image(sent), errorRecord(0))));
    EXPECT_FALSE(w.tavro.getStatus(status));
    EXPECT_EQ(image(status), image(sent));

    // A result and an error together.
    send(w.far, packet(0x802D, cat({0x78, 0x56, 0x34, 0x12}, errorRecord(3, "warn"))));
    unsigned int value = 0;
    expectError(w.tavro.getDigital(value), 3, "warn");
    EXPECT_EQ(value, 0x12345678u);

    // getSwitch reads one byte: the reply is 57 bytes long.
    for (uint8_t b : {0, 1, 2}) {
        send(w.far, packet(0x802F, cat({b}, errorRecord(0))));
        bool on = b == 0;
        EXPECT_FALSE(w.tavro.getSwitch(1, on));
        EXPECT_EQ(on, b != 0);
    }

    // An error reply: status 1, length 56, the result left alone; the error
    // number is sign-extended.
    status = before;
    Bytes reply = packet(0x8008, errorRecord(-5, "Refused"), 1);
    ASSERT_EQ(reply.size(), 56u);
    send(w.far, reply);
    expectError(w.tavro.getStatus(status), -5, "Refused");
    EXPECT_EQ(image(status), image(before));

    // 38 bytes of text without a zero are cut there.
    send(w.far, packet(0x8003, errorRecord(7, "0123456789012345678901234567890123456789")));
    expectError(w.tavro.logout(), 7, "01234567890123456789012345678901234567");

    // A reply too short for its result: refused, the record left alone, the
    // stream still in step for the next call.
    send(w.far, cat(packet(0x8008, errorRecord(0)), packet(0x8003, errorRecord(0))));
    expectError(w.tavro.getStatus(status), 6, "Currupt packet");
    EXPECT_EQ(image(status), image(before));
    EXPECT_FALSE(w.tavro.logout());

    Tavro alone(true, 1024), tiny(true, 16);
    EXPECT_EQ(uint32_t(alone.getApiVersion()), 0x00010000u);
    expectError(alone.getStatus(status), 5, "No connection");
    expectError(tiny.status(), 1, "ZoapMc1 packet size too small");
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
        {packet(95, {7, 0, 0}), ZError(6, tooShort)},
        {packet(57, {'a', 'b', 'c', 'd'}), ZError(6, open)},
        {packet(95, {7, 0, 0, 0}), ZError(6, open)},
        {packet(4, {'a', 0, 0, 0, 'b', 'c'}), ZError(6, open)},
        {packet(19), ZError(5, "No such function")},
        {packet(104), ZError(5, "No such function")},
        {packet(0), ZError(5, "No such function")},
        {packet(0x7FFF), ZError(5, "No such function")},
    };
    Wire<Unit> w;
    for (const Case& c : refused) {
        uint16_t function = uint16_t(c.request[8] | c.request[9] << 8);
        send(w.far, c.request);
        EXPECT_FALSE(w.tavro.processRx()) << function;
        EXPECT_EQ(drain(w.far), replyTo(function, c.error)) << function;
    }
    EXPECT_TRUE(w.tavro.texts.empty());
    EXPECT_EQ(w.tavro.blocks, 0);

    // The last string may come without its padding; the serving error goes
    // back to the request's source with its text cut to 32 characters.
    send(w.far, packet(57, {'a', 'b', 'c', 'd', 'e', 0}));
    EXPECT_FALSE(w.tavro.processRx());
    EXPECT_EQ(drain(w.far), replyTo(57, ZError(), 0));
    EXPECT_EQ(w.tavro.texts.at(0), "abcde");
    w.tavro.answer = ZError(-3, "A text longer than thirty-two characters");
    send(w.far, packet(57, {'a', 0, 0, 0}, 0, 9, 7));
    EXPECT_FALSE(w.tavro.processRx());
    EXPECT_EQ(drain(w.far), replyTo(57, ZError(-3, "A text longer than thirty-two ch"), 0, 7));

    // One-way requests are never answered, not even with an error.
    send(w.far, cat(packet(31, Bytes(496, 1)), packet(95, {1, 0, 0, 0, 'o', 'k', 0, 0})));
    EXPECT_FALSE(w.tavro.processRx());
    EXPECT_FALSE(w.tavro.processRx());
    EXPECT_EQ(w.tavro.blocks, 1);
    EXPECT_EQ(w.tavro.texts.at(2), "ok");
    EXPECT_TRUE(drain(w.far).empty());

    w.tavro.refuse = ZError(9, "Not logged in");
    send(w.far, packet(57, {'a', 0, 0, 0}, 0, 1, 7));
    EXPECT_FALSE(w.tavro.processRx());
    EXPECT_EQ(drain(w.far), replyTo(57, w.tavro.refuse, 1, 7));
    EXPECT_EQ(w.tavro.texts.size(), 3u);

    // A result that does not fit the unit's packets.
    Wire<Unit> small(64);
    send(small.far, packet(15));
    EXPECT_FALSE(small.tavro.processRx());
    EXPECT_EQ(drain(small.far), replyTo(15, ZError(6, "ZoapMc1 reply too large")));
}

TEST(TavroServe, RepliesGoOutWholeThroughShortWrites) {
    Wire<Unit> w;
    Dribble dribble(w.near, 5);
    w.tavro.setComms(dribble);
    send(w.far, packet(57, {'a', 0, 0, 0}));
    EXPECT_FALSE(w.tavro.processRx());
    EXPECT_EQ(drain(w.far), replyTo(57, ZError(), 0));
    send(w.far, packet(19));
    EXPECT_FALSE(w.tavro.processRx());
    EXPECT_EQ(drain(w.far), replyTo(19, ZError(5, "No such function")));

    Dribble stuck(w.near, 0);
    w.tavro.setComms(stuck);
    send(w.far, packet(57, {'a', 0, 0, 0}));
    expectError(w.tavro.processRx(), 1, "ZoapMc1 write incomplete");
}
