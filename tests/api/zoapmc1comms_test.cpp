#include "zoaptest.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>

using namespace zoaptest;

namespace {

const Bytes Payload8 = {'0', '1', '2', '3', '4', '5', '6', '7'};

// A channel that keeps every request it is sent (header and payload).
class Channel : public ZoapMc1Comms {
public:
    explicit Channel(bool threaded, unsigned int maxPacket = 256)
        : ZoapMc1Comms(threaded, maxPacket) {}

    ZError processRequest() override {
        ZError err = readRequestPayload();
        std::lock_guard<std::mutex> lock(mutex);
        if (!err)
            requests.push_back(Bytes(packetRx(), packetRx() + rxHeader().length));
        return err;
    }
    std::vector<Bytes> taken() {
        std::lock_guard<std::mutex> lock(mutex);
        return requests;
    }

private:
    std::mutex mutex;
    std::vector<Bytes> requests;
};

// A channel and the far end of its loopback transport; reads on both ends
// give up after 50 ms, a reply after 20 ms.
struct Link {
    explicit Link(bool threaded, unsigned int maxPacket = 256, bool packetMode = false)
        : channel(threaded, maxPacket) {
        near.setPacketMode(packetMode);
        far.setPacketMode(packetMode);
        ZCommsLoopback::connectPair(near, far);
        near.setTimeout(50000);
        far.setTimeout(50000);
        channel.setComms(near);
        channel.setAddress(1, 2);
        channel.setTimeout(20000);
    }
    // Sends a request of one header and one 4-byte argument chunk.
    ZError request(uint16_t function, bool wantReply = true) {
        ZoapMc1Header h = {0x555A, 20, 1, 2, function, 0, 0};
        uint32_t arg = 0x11223344;
        ZDataChunk chunks[2] = {{&h, 16}, {&arg, 4}};
        return channel.packetTx(chunks, 2, wantReply ? function : 0);
    }

    ZCommsLoopback near, far;
    Channel channel;
};

void expectError(const ZError& err, int number, const char* text) {
    EXPECT_EQ(err.number, number) << err.string;
    EXPECT_EQ(err.string, text);
}

} // namespace

TEST(ZoapMc1Comms, VersionSettingsAndMissingTransport) {
    EXPECT_EQ(uint32_t(ZoapMc1ApiVer(1, 0)), 0x00010000u);
    EXPECT_EQ(uint32_t(ZoapMc1ApiVer(0xFFFF, 0xFFFF)), 0xFFFFFFFFu);
    ZoapMc1ApiVer v(0x00020003u);
    EXPECT_EQ(v.majorNo(), 2);
    EXPECT_EQ(v.minorNo(), 3);

    Channel c(true);
    EXPECT_EQ(uint32_t(c.getApiVersion()), 0u);
    EXPECT_EQ(c.setTimeout(5000000), 2000000u);
    EXPECT_EQ(c.setTimeout(7), 5000000u);
    EXPECT_FALSE(c.commsMode());
    c.setCommsMode(true);
    EXPECT_TRUE(c.commsMode());
    c.setAddress(1, 2);
    EXPECT_EQ(c.destination(), 1);
    EXPECT_EQ(c.source(), 2);
    uint8_t b[4];
    expectError(c.packetTx(nullptr, 0, 8), 5, "No connection");
    expectError(c.processRx(), 5, "No connection");
    expectError(c.processRequests(), 5, "No connection");
    expectError(c.packetRxData(b, 4), 5, "No connection");
    ZCommsLoopback a;
    c.setComms(&a);
    EXPECT_EQ(c.comms(), &a);
    c.setComms(nullptr);
    expectError(c.processRequests(), 5, "No connection");
}

TEST(ZoapMc1Comms, PacketSizeBelow32IsRefused) {
    Link small(false, 31);
    expectError(small.channel.status(), 1, "ZoapMc1 packet size too small");
    send(small.far, packet(9, Payload8));
    expectError(small.channel.processRx(), 1, "ZoapMc1 packet size too small");
    EXPECT_EQ(small.near.readAvailable(), 24u) << "nothing may be read into the buffer";
    expectError(small.request(8), 1, "ZoapMc1 packet size too small");
    EXPECT_TRUE(drain(small.far).empty());

    Link least(false, 32);
    EXPECT_FALSE(least.channel.status());
    send(least.far, packet(9, Payload8));
    EXPECT_FALSE(least.channel.processRx());
    EXPECT_EQ(least.channel.taken().at(0), packet(9, Payload8));
}

TEST(ZoapMc1Comms, PolledExchange) {
    Link l(false);
    // A request of the unit ahead of the reply is served on the way.
    send(l.far,
         cat(packet(9, Payload8), packet(0x8007, cat({'A', 'B', 'C', 'D'}, errorRecord(0)))));
    ASSERT_FALSE(l.request(7));
    EXPECT_EQ(drain(l.far), packet(7, {0x44, 0x33, 0x22, 0x11}));
    EXPECT_EQ(l.channel.taken().size(), 1u);
    EXPECT_EQ(l.channel.rxHeader().function, 0x8007);
    char result[4];
    ZoapMc1ErrorRecord record;
    ASSERT_FALSE(l.channel.packetRxData(result, 4));
    EXPECT_EQ(memcmp(result, "ABCD", 4), 0);
    ASSERT_FALSE(l.channel.packetRxData(&record, 40));
    EXPECT_FALSE(l.channel.packetRxEnd());
    EXPECT_EQ(l.near.readAvailable(), 0u);
    // No reply at all: the exchange still counts as sent. A one-way request
    // does not wait.
    EXPECT_FALSE(l.request(7));
    EXPECT_FALSE(l.request(31, false));
    EXPECT_EQ(drain(l.far).size(), 40u);
}

TEST(ZoapMc1Comms, ThreadedHandOver) {
    Link l(true);
    l.channel.setTimeout(2000000);
    RxLoop rx(l.channel);
    // The unit answers, and right behind the reply sends a request of its
    // own: the receive thread must leave the reply's payload to the requester.
    std::thread unit([&] {
        readN(l.far, 20);
        send(l.far, cat(packet(0x8007, cat({'A', 'B', 'C', 'D'}, errorRecord(-2, "bad"))),
                        packet(9, Payload8)));
    });
    ASSERT_FALSE(l.request(7));
    unit.join();
    delayMs(20);
    char result[4];
    ZoapMc1ErrorRecord record;
    ASSERT_FALSE(l.channel.packetRxData(result, 4));
    ASSERT_FALSE(l.channel.packetRxData(&record, 40));
    EXPECT_EQ(memcmp(result, "ABCD", 4), 0);
    EXPECT_EQ(record.number, -2);
    EXPECT_STREQ(record.text, "bad");
    l.channel.packetRxEnd();
    for (int i = 0; i < 200 && l.channel.taken().empty(); i++)
        delayMs(5);
    rx.stop();
    EXPECT_EQ(l.channel.taken(), std::vector<Bytes>{packet(9, Payload8)});
    EXPECT_TRUE(rx.errors().empty());

    Link quiet(true);
    expectError(quiet.request(7), 4, "Timeout");
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
        // As many bytes are read again as were kept (12), so the 8 bytes
        // after the header are swallowed with it.
        {"magic at 4", 256, cat(cat({1, 2, 3, 4}, good), abc), false, packet(9, abc)},
        {"no magic in 16 bytes", 256, cat(cat(garbage8, garbage8), good), true, good},
        // A length above maxPacket or below 16 is a bad header like a bad
        // magic: the magic is found at 0, 16 more bytes are read and the
        // header is still bad.
        {"length 65", 64, cat(packet(9, {}, 0, 1, 2, 65), tail), true, good},
        {"length 15", 64, cat(packet(9, {}, 0, 1, 2, 15), tail), true, good},
        {"length 0", 64, cat(packet(9, {}, 0, 1, 2, 0), tail), true, good},
        {"length of exactly maxPacket", 64, packet(9, Bytes(48, 7)), false,
         packet(9, Bytes(48, 7))},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Link l(false, c.maxPacket);
        send(l.far, c.stream);
        if (c.corrupt)
            expectError(l.channel.processRx(), 6, "Currupt packet");
        EXPECT_FALSE(l.channel.processRx());
        EXPECT_EQ(l.channel.taken(), std::vector<Bytes>{c.taken});
    }
}

TEST(ZoapMc1Comms, PacketModeRefusesBadPackets) {
    Link l(false, 64, true);
    Bytes badMagic = packet(9, Payload8);
    badMagic[1] = 0x56;
    // Bad magic, too long, too short, a short packet, and a length that runs
    // past the end of its packet.
    for (const Bytes& b : {badMagic, packet(9, {}, 0, 1, 2, 65), packet(9, {}, 0, 1, 2, 8),
                           Bytes(8, 0x5A), packet(9, Payload8, 0, 1, 2, 40)}) {
        send(l.far, b);
        expectError(l.channel.processRx(), 6, "ZoapMc1 packet data error");
        l.near.flush(ZComms::FlushRead);
    }
    EXPECT_TRUE(l.channel.taken().empty());
    send(l.far, packet(9, Payload8));
    EXPECT_FALSE(l.channel.processRx());
    EXPECT_EQ(l.channel.taken().size(), 1u);
}

TEST(ZoapMc1Comms, UnawaitedAndLateReplies) {
    {
        Link l(true);
        send(l.far, packet(0x8005, errorRecord(0)));
        expectError(l.channel.processRx(), 6, "Currupt packet");
    }
    {
        // Timed out, then another function called: the late reply is corrupt.
        Link l(true);
        expectError(l.request(45), 4, "Timeout");
        expectError(l.request(8), 4, "Timeout");
        send(l.far, packet(0x802D, cat({1, 0, 0, 0}, errorRecord(0))));
        expectError(l.channel.processRx(), 6, "Currupt packet");
    }
    {
        // Timed out, the late reply comes in, the same function is called
        // again: the late reply is taken for the new call's.
        Link l(true);
        expectError(l.request(45), 4, "Timeout");
        send(l.far, packet(0x802D, cat({0x6F, 0, 0, 0}, errorRecord(0))));
        EXPECT_FALSE(l.channel.processRx()); // waits out the time-out on replyDone
        ASSERT_FALSE(l.request(45));
        uint32_t value = 0;
        EXPECT_FALSE(l.channel.packetRxData(&value, 4));
        EXPECT_EQ(value, 111u);
    }
}

TEST(ZoapMc1Comms, ShortAndLongReplies) {
    Link l(false);
    const Bytes next = packet(9, Payload8);
    // A reply of 4 payload bytes read as 4 + 40: the 40 are refused and the
    // caller's record stays as it was.
    send(l.far, cat(packet(0x8007, {1, 2, 3, 4}), next));
    ASSERT_FALSE(l.request(7));
    uint32_t value = 0;
    EXPECT_FALSE(l.channel.packetRxData(&value, 4));
    ZoapMc1ErrorRecord record;
    memset(&record, 0xA5, sizeof(record));
    expectError(l.channel.packetRxData(&record, 40), 6, "Currupt packet");
    EXPECT_EQ(record.number, int16_t(0xA5A5));
    l.channel.packetRxEnd();
    EXPECT_FALSE(l.channel.processRx());
    EXPECT_EQ(l.channel.taken().at(0), next);
    // A reply longer than what is read: packetRxEnd reads off the rest.
    send(l.far, cat(packet(0x8007, cat(errorRecord(0), Bytes(12, 0x5A))), next));
    ASSERT_FALSE(l.request(7));
    EXPECT_FALSE(l.channel.packetRxData(&record, 40));
    EXPECT_FALSE(l.channel.packetRxEnd());
    EXPECT_FALSE(l.channel.processRx());
    EXPECT_EQ(l.channel.taken().at(1), next);
}
