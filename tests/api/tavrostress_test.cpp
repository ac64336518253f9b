// Four threads call through one channel while the unit pushes data blocks
// as fast as it can: every call must get its own reply and every block must
// be served once, in order and intact.

#include "tavropair.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

using namespace TavroApi;
using namespace zoaptest;

namespace {

float sampleValue(uint32_t sequence, int i) {
    return float(sequence % 10000 * 1000 + unsigned(i));
}

// As the unit it answers with records made from the arguments; as the
// application it keeps the sequence numbers of the blocks pushed to it.
class Node : public Tavro {
public:
    Node(bool threaded, unsigned int maxPacket) : Tavro(threaded, maxPacket) {}

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

TEST(TavroStress, CallsWhileTheUnitPushes) {
    TavroPair<Node> p(Transport::Loopback, true, 5000000);
    ASSERT_FALSE(p.joined);
    Node &app = p.client, &unit = p.unit;
    p.start();

    const int threads = 4, calls = 150;
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
    for (int t = 0; t < threads; t++)
        callers.emplace_back([&, t] {
            for (int i = 0; i < calls; i++) {
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
