// A processing thread held up inside an event (a slow file): the backlog
// reaches the streams a batch at a time, so a reader that catches up loses
// nothing, and beyond its cap the oldest complete blocks are dropped,
// counted and reported.
#include "unitstest.h"

#include <gtest/gtest.h>

#include <thread>

using namespace unitstest;

namespace {

class SlowGroup : public Group {
public:
    // The units and the processing thread end before this part goes.
    ~SlowGroup() override {
        hold = false;
        stop();
        unitsDisconnect();
    }
    void dataEvent(unsigned int stream) override {
        if (stream != 1)
            return;
        while (hold)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        while (TavroUnitsDataBlock* b = dataRead(1)) {
            if (b->header.sequence < next)
                outOfOrder++;
            next = b->header.sequence + 1;
            taken++;
            dataDone(1);
        }
    }
    std::atomic<bool> hold{true};
    std::atomic<uint64_t> taken{0}, outOfOrder{0};
    uint32_t next = 0;
};

} // namespace

TEST(TavroUnits, BacklogBehindASlowEventIsBatchedThenCapped) {
    Sim sim;
    SlowGroup g;
    ASSERT_FALSE(g.connectAll({sim.url()}, 2));
    TavroUnit1& u = *g.unit(1);
    uint32_t sequence = 0;
    auto push = [&](unsigned int n) {
        for (unsigned int i = 0; i < n; i++)
            ASSERT_FALSE(g.sendDataFloatQueue(u, floatBlock(sequence++, 1, 1)));
    };

    // More than a stream holds, less than may wait: all of it arrives.
    // However little the held batch took, what waits stays below the cap.
    const unsigned int within = TavroUnits::streamMaxBlocks + 4 * TavroUnits::batchMaxBlocks;
    static_assert(within + 1 < TavroUnits::readyMaxBlocks, "below the cap");
    push(within);
    g.hold = false;
    ASSERT_TRUE(g.dataFlush(10000000));
    EXPECT_EQ(g.taken, within);
    EXPECT_EQ(g.droppedBlocks(1), 0u);
    EXPECT_EQ(g.droppedBehind(), 0u);

    // Far more: the oldest waiting go, each one counted and reported.
    g.hold = true;
    testing::internal::CaptureStdout();
    push(TavroUnits::readyMaxBlocks + 3 * TavroUnits::batchMaxBlocks);
    std::string out = testing::internal::GetCapturedStdout();
    g.hold = false;
    ASSERT_TRUE(g.dataFlush(10000000));
    EXPECT_GT(g.droppedBehind(), 0u);
    EXPECT_EQ(g.taken + g.droppedBehind(), sequence) << "a block went missing uncounted";
    EXPECT_EQ(g.droppedBlocks(1), 0u);
    EXPECT_EQ(g.outOfOrder, 0u);
    EXPECT_NE(out.find("TavroUnits::sendDataQueue: processing behind, block "), std::string::npos)
        << out;
}
