// A group of simulated units: the merge (order, channel places, a unit holding back later
// blocks, one going away), channel routing, call errors, stream limits, drop counting, load.
#include "unitstest.h"

#include <cmath>
#include <vector>

using namespace unitstest;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

// The blocks on stream 0 once the processing thread is through.
std::vector<TavroUnitsDataBlock> drain(Group& g, unsigned int stream = 0) {
    EXPECT_TRUE(g.dataFlush(2000000));
    std::vector<TavroUnitsDataBlock> v;
    while (TavroUnitsDataBlock* b = g.dataRead(stream)) {
        v.push_back(*b);
        g.dataDone(stream);
    }
    return v;
}

// Unit n's raw value of analogue input 7, the output AO0 wired back, is
// proportional to the level set on that unit.
void setLevels(Group& g, const std::vector<float>& volts) {
    for (size_t i = 0; i < volts.size(); i++)
        ASSERT_FALSE(g.unit(unsigned(i) + 1)->setAnalogueOut(0, volts[i]));
}

} // namespace

TEST(TavroUnits, ThreeUnitsMergeInOrderEachInItsPlace) {
    Sim a(options("T400-000101")), b(options("T400-000102")), c(options("T400-000103"));
    Group g;
    ASSERT_FALSE(g.connectAll({a.url(), b.url(), c.url()}));
    EXPECT_EQ(g.numChannels(), 48u);
    EXPECT_EQ(g.unit(2)->serialNumber(), "T400-000102");
    Information info;
    InfoBlock ib;
    ASSERT_FALSE(g.getInformation(info) || g.getInfoBlock(ib));
    EXPECT_EQ(info.numChannels, 48);
    EXPECT_EQ(ib.numChannels, 48);

    // Key 7 lacks unit 3; key 8 is complete but waits behind it.
    TavroUnit1 &u1 = *g.unit(1), &u2 = *g.unit(2), &u3 = *g.unit(3);
    EXPECT_FALSE(g.sendDataFloatQueue(u2, floatBlock(7, 2)));
    EXPECT_FALSE(g.sendDataFloatQueue(u1, floatBlock(7, 1)));
    for (TavroUnit1* u : {&u3, &u1, &u2})
        EXPECT_FALSE(g.sendDataFloatQueue(*u, floatBlock(8, u->number(), 5)));
    EXPECT_TRUE(drain(g).empty()) << "released before unit 3 delivered block 7";
    EXPECT_FALSE(g.sendDataFloatQueue(u3, floatBlock(7, 3)));
    std::vector<TavroUnitsDataBlock> v = drain(g);
    ASSERT_EQ(v.size(), 2u);
    for (size_t i = 0; i < 2; i++) {
        const TavroUnitsDataBlock& m = v[i];
        const unsigned int samples = i == 0 ? 13 : 5, first = i == 0 ? 2 : 3;
        EXPECT_EQ(m.header.sequence, 7 + i);
        EXPECT_EQ(m.unitMask, 7u);
        EXPECT_EQ(m.numChannels, 48u);
        EXPECT_EQ(m.header.numChannels, 48);
        EXPECT_EQ(m.numSamples, samples);
        EXPECT_EQ(m.data.size(), 48u * samples);
        // The header is the first arrival's: unit 2 for key 7, unit 3 for key 8.
        EXPECT_EQ(m.header.status, first);
        EXPECT_EQ(m.header.time, 1000000u * (7 + i) + first);
        for (unsigned int s = 0; s < samples; s++)
            for (unsigned int ch = 0; ch < 48; ch++)
                ASSERT_EQ(m.value(ch, s), float((ch / 16 + 1) * 1000 + s * 16 + ch % 16))
                    << "block " << i << " channel " << ch << " sample " << s;
    }
    EXPECT_GE(g.events, 1);

    // The same through the units' own captures: AI7 of unit n carries n volts.
    setLevels(g, {1.0f, 2.0f, 3.0f});
    ASSERT_FALSE(g.setMeasurementConfig(false, capture(MeasureMode::OneShot, 130)));
    ASSERT_FALSE(g.sendDataEnable(7));
    ASSERT_FALSE(g.setMode(Mode::Run));
    ASSERT_TRUE(eventually([&] { return g.dataAvailable(0) == 10; }));
    v = drain(g);
    ASSERT_EQ(v.size(), 10u);
    for (size_t i = 0; i < v.size(); i++) {
        EXPECT_EQ(v[i].header.sequence, i);
        EXPECT_EQ(v[i].unitMask, 7u);
        const float one = v[i].value(7, 0);
        EXPECT_GT(std::fabs(one), 0.0f);
        EXPECT_NEAR(v[i].value(16 + 7, 0) / one, 2.0, 0.05) << "unit 2 in place 2";
        EXPECT_NEAR(v[i].value(32 + 7, 0) / one, 3.0, 0.05) << "unit 3 in place 3";
        for (unsigned int bit = 8; bit < 16; bit++)
            EXPECT_TRUE(v[i].value(bit, 0) == 0.0f || v[i].value(bit, 0) == 1.0f) << bit;
    }
    ASSERT_TRUE(eventually([&] { return g.dataProcAvailable(0) == 1; }))
        << "the master's processed block, and only the master's";
    EXPECT_EQ(g.dataProcRead(0)->type, DataType::Proc);
    EXPECT_FALSE(g.dataProcDone(0));
    EXPECT_EQ(g.dataProcRead(0), nullptr);
    EXPECT_EQ(g.lost, 0);
}

TEST(TavroUnits, ChannelCallsGoToTheOwningUnitWithItsNumber) {
    Sim a(options("T400-000201")), b(options("T400-000202")), c(options("T400-000203"));
    Group g;
    ASSERT_FALSE(g.connectAll({a.url(), b.url(), c.url()}));
    struct {
        unsigned int channel;
        SimUnit& unit;
        unsigned int local;
    } routes[] = {{0, a.unit, 0},  {15, a.unit, 15}, {16, b.unit, 0},
                  {20, b.unit, 4}, {35, c.unit, 3},  {47, c.unit, 15}};
    for (auto& r : routes) {
        ChannelConfig cfg;
        ASSERT_FALSE(g.getChannelConfig(r.channel, cfg));
        snprintf(cfg.name, sizeof(cfg.name), "g%u", r.channel);
        ASSERT_FALSE(g.setChannelConfig(r.channel, cfg)) << r.channel;
        EXPECT_STREQ(r.unit.channelConfig(r.local).name, cfg.name) << r.channel;
        ChannelConfig back;
        ASSERT_FALSE(g.getChannelConfig(r.channel, back));
        EXPECT_STREQ(back.name, cfg.name);
    }
    ChannelConfig cfg;
    for (ZError e : {g.getChannelConfig(48, cfg), g.setChannelConfig(1000, cfg)})
        EXPECT_EQ(e, ZError(1, "Channel number out of range"));

    // Unit 2 left out: its channels are gone and unit 3 moves down.
    ASSERT_FALSE(g.unitSetEnabled(2, false));
    EXPECT_EQ(g.numChannels(), 32u);
    ASSERT_FALSE(g.getChannelConfig(20, cfg));
    EXPECT_STREQ(cfg.name, c.unit.channelConfig(4).name);
    // And moved to the front it is the master.
    ASSERT_FALSE(g.unitSetEnabled(2, true));
    ASSERT_FALSE(g.unitSetOrder(2, 1));
    EXPECT_EQ(g.unitMaster()->name(), "u2");
    EXPECT_EQ(g.unit(2)->name(), "u1");
    NodeInfo n;
    ASSERT_FALSE(g.getNodeInfo(n));
    EXPECT_STREQ(n.serialNumber, "T400-000202");
    ASSERT_FALSE(g.getChannelConfig(4, cfg));
    EXPECT_STREQ(cfg.name, "g20");

    // Calls to every unit.
    ASSERT_FALSE(g.login("admin", "tavro"));
    EXPECT_TRUE(a.unit.loggedIn() && b.unit.loggedIn() && c.unit.loggedIn());
    ASSERT_FALSE(g.logout());
    EXPECT_FALSE(a.unit.loggedIn() || b.unit.loggedIn() || c.unit.loggedIn());
    EXPECT_NE(g.login("admin", "wrong").number, 0) << "the first failure comes back";
    // Without multi only the master counts.
    g.setMulti(false);
    EXPECT_EQ(g.numChannels(), 16u);
    ASSERT_FALSE(g.login("admin", "tavro"));
    EXPECT_TRUE(b.unit.loggedIn());
    EXPECT_FALSE(a.unit.loggedIn() || c.unit.loggedIn());
}

TEST(TavroUnits, UnitsAndStreamsRefuseWhatIsNotThere) {
    Group g;
    NodeInfo n;
    ChannelConfig cfg;
    const std::pair<ZError, const char*> cases[] = {
        {g.getNodeInfo(n), "No master unit set"},
        {g.getChannelConfig(0, cfg), "No master unit set"},
        {g.login("admin", "tavro"), "Not connected"},
        {g.unitDelete("nobody"), "Unit not found"},
        {g.unitSetEnabled(1, false), "Unit number not present"},
        {g.unitsConnect(), "No master unit set"},
        {g.dataSetNumStreams(3), "Max number of streams is 2"},
        {g.dataWait(0, 1000), "No such stream"},
        {g.dataDone(0), "No such stream"},
    };
    for (auto& c : cases)
        EXPECT_EQ(c.first, ZError(1, c.second));
    EXPECT_EQ(g.unit(0), nullptr);
    EXPECT_EQ(g.unit(1), nullptr);
    ASSERT_FALSE(g.unitAdd("a", "zoapn://127.0.0.1:1"));
    ASSERT_FALSE(g.unitAdd("b", "zoapn://127.0.0.1:1"));
    EXPECT_EQ(g.setMode(Mode::Run).string, "Not connected") << "enabled but not connected";
    EXPECT_EQ(g.unitSetOrder(1, 3).string, "Unit number not present");
    ASSERT_FALSE(g.unitSetEnabled(1, false));
    ASSERT_FALSE(g.unitSetEnabled(2, false));
    EXPECT_EQ(g.setMode(Mode::Run).string, "Not connected") << "none enabled";
    NodeStatus st;
    EXPECT_EQ(g.getStatus(st).string, "No master unit set");
    ASSERT_FALSE(g.unitDelete("a"));
    EXPECT_EQ(g.unit(1)->name(), "b");
    EXPECT_EQ(g.unit(1)->number(), 1u);
    ASSERT_FALSE(g.dataSetNumStreams(1));
    EXPECT_EQ(g.dataWait(0, 20000), ZError(4, "Timeout"));
    EXPECT_EQ(g.dataRead(0), nullptr);
    EXPECT_EQ(g.dataDone(0).number, 1);
    CaptureStdout(); // blocks of no group at all
    g.sendDataFloatQueue(*g.unit(1), floatBlock(0, 1));
    EXPECT_EQ(GetCapturedStdout(), "TavroUnits::sendDataQueue: No channels configured, ignoring\n");
    g.clear();
    EXPECT_EQ(g.unitsNum(), 0u);
}

TEST(TavroUnits, WrongSizesAndLimitsDropAndCount) {
    Sim a(options("T400-000301")), b(options("T400-000302"));
    Group g;
    ASSERT_FALSE(g.connectAll({a.url(), b.url()}, 2));
    TavroUnit1 &u1 = *g.unit(1), &u2 = *g.unit(2);

    // Blocks that do not fit the group go no further.
    CaptureStdout();
    for (auto change : {+[](DataBlockFloat& b) { b.numSamples = 14; },
                        +[](DataBlockFloat& b) { b.numChannels = 17; }}) {
        DataBlockFloat big = floatBlock(0, 1);
        change(big);
        EXPECT_EQ(g.sendDataFloatQueue(u1, big).string, "DataBlock sizes wrong");
    }
    EXPECT_EQ(GetCapturedStdout(), "TavroUnits::sendDataQueue: DataBlock sizes wrong, ignoring\n"
                                   "TavroUnits::sendDataQueue: DataBlock sizes wrong, ignoring\n");
    EXPECT_TRUE(g.dataFlush(1000000));
    EXPECT_EQ(g.dataAvailable(0) + g.dataAvailable(1), 0u);

    // Unit 1 runs 4096 blocks ahead: it waits for unit 2 to catch up.
    const unsigned int waiting = TavroUnits::fillMaxBlocks;
    for (unsigned int k = 0; k < waiting; k++)
        g.sendDataFloatQueue(u1, floatBlock(k, 1));
    std::atomic<bool> placed{false};
    std::thread ahead([&] {
        g.sendDataFloatQueue(u1, floatBlock(waiting, 1));
        placed = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    g.sendDataFloatQueue(u2, floatBlock(0, 2));
    ahead.join();
    EXPECT_TRUE(placed);
    EXPECT_EQ(g.droppedIncomplete(), 0u);
    EXPECT_TRUE(g.dataFlush(1000000));
    ASSERT_EQ(g.dataAvailable(0), 1u);
    EXPECT_EQ(g.dataRead(0)->header.sequence, 0u);
    g.dataClear();

    // Unit 2 never delivers: after a second's wait the oldest go.
    CaptureStdout();
    auto t0 = std::chrono::steady_clock::now();
    for (unsigned int k = 0; k < waiting + 3; k++)
        g.sendDataFloatQueue(u1, floatBlock(k, 1));
    std::string out = GetCapturedStdout();
    EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(999))
        << "gave up without waiting";
    EXPECT_EQ(g.droppedIncomplete(), 3u);
    EXPECT_EQ(out.rfind("TavroUnits::sendDataQueue: block 0 still waits for a unit, 1 incomplete "
                        "blocks dropped\n",
                        0),
              0u)
        << out;
    // Unit 2 catches up with the oldest kept block: it is released alone.
    g.sendDataFloatQueue(u2, floatBlock(3, 2));
    EXPECT_TRUE(g.dataFlush(1000000));
    ASSERT_EQ(g.dataAvailable(0), 1u);
    EXPECT_EQ(g.dataRead(0)->header.sequence, 3u);
    g.dataClear();
    EXPECT_EQ(g.dataAvailable(0) + g.dataAvailable(1), 0u);

    // Readers that never read: each stream keeps 32768 blocks and counts the rest.
    const unsigned int extra = 5;
    CaptureStdout();
    for (unsigned int k = 0; k < TavroUnits::streamMaxBlocks + extra; k++) {
        g.sendDataFloatQueue(u1, floatBlock(k, 1, 1));
        g.sendDataFloatQueue(u2, floatBlock(k, 2, 1));
    }
    EXPECT_TRUE(g.dataFlush(20000000));
    out = GetCapturedStdout();
    for (unsigned int s = 0; s < 2; s++) {
        EXPECT_EQ(g.dataAvailable(s), TavroUnits::streamMaxBlocks);
        EXPECT_EQ(g.droppedBlocks(s), extra);
        EXPECT_NE(out.find("TavroUnits::outputBlock: stream " + std::to_string(s) +
                           " full, 1 blocks dropped\n"),
                  std::string::npos)
            << out;
    }
    EXPECT_EQ(g.dataRead(1)->header.sequence, 0u);
    EXPECT_FALSE(g.dataDone(1));
    EXPECT_EQ(g.dataRead(1)->header.sequence, 1u);
    EXPECT_EQ(g.dataRead(0)->header.sequence, 0u) << "the streams are read apart";
    const unsigned int queued = g.dataAvailable(1);
    EXPECT_GT(queued, 0u);
    EXPECT_EQ(g.dataSkip(1), queued);
    EXPECT_EQ(g.dataRead(1), nullptr);
    EXPECT_NE(g.dataRead(0), nullptr) << "only stream 1 skipped";
    g.dataClear();
    EXPECT_EQ(g.dataAvailable(0) + g.dataAvailable(1), 0u);
}

TEST(TavroUnits, AUnitLosingItsLinkIsReportedOnceWithEveryBlockKept) {
    Sim sim(options("T400-000401"));
    Group g;
    ASSERT_FALSE(g.connectAll({sim.url()}));
    for (int round = 1; round <= 2; round++) {
        const unsigned int sent = 40;
        sim.unit.faultDropAfterBlocks(sent);
        ASSERT_FALSE(g.setMeasurementConfig(false, capture(MeasureMode::Continuous, 100)));
        ASSERT_FALSE(g.sendDataEnable(3));
        ASSERT_FALSE(g.setMode(Mode::Run));
        ASSERT_TRUE(eventually([&] { return g.lost == round; }));
        EXPECT_FALSE(g.unitsConnected());
        std::vector<TavroUnitsDataBlock> v = drain(g);
        ASSERT_EQ(v.size(), sent) << "round " << round;
        for (size_t i = 0; i < v.size(); i++)
            EXPECT_EQ(v[i].header.sequence, i);
        // The same unit object connects again.
        ASSERT_TRUE(eventually([&] { return !sim.unit.serving(); }));
        ASSERT_EQ(g.unitsConnect(), ZError());
        EXPECT_EQ(g.unitMaster()->serialNumber(), "T400-000401");
    }
    ASSERT_FALSE(g.unitsDisconnect());
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(g.lost, 2) << "the owner's disconnect is no loss";
}

TEST(TavroUnits, ACaptureComesWholeOverASerialLine) {
    SimUnit unit(options("T400-000402"));
    TavroSim::SimPty pty(unit);
    ASSERT_FALSE(pty.start());
    Group g;
    ASSERT_FALSE(g.connectAll({"zoaps://" + pty.path()}));
    ASSERT_FALSE(g.setMeasurementConfig(false, capture(MeasureMode::OneShot, 40 * 13)));
    ASSERT_FALSE(g.sendDataEnable(7));
    ASSERT_FALSE(g.setMode(Mode::Run));
    ASSERT_TRUE(eventually([&] { return g.dataAvailable(0) == 40 && g.dataProcAvailable(0); }));
    std::vector<TavroUnitsDataBlock> v = drain(g);
    for (size_t i = 0; i < v.size(); i++)
        EXPECT_EQ(v[i].header.sequence, i);
    EXPECT_EQ(g.dataProcRead(0)->numSamples, 1);
}

TEST(TavroUnits, TwoFastUnitsStreamInOrderUnderLoad) {
    Sim a(options("T400-000501")), b(options("T400-000502"));
    Group g;
    ASSERT_FALSE(g.connectAll({a.url(), b.url()}));
    setLevels(g, {1.0f, 2.0f});
    std::atomic<bool> done{false};
    std::atomic<uint64_t> read{0}, disorder{0}, misplaced{0};
    std::thread reader([&] {
        int64_t last = -1;
        while (!done || g.dataAvailable(0)) {
            if (g.dataWait(0, 20000))
                continue;
            const TavroUnitsDataBlock* m = g.dataRead(0);
            if (int64_t(m->header.sequence) <= last || m->unitMask != 3)
                disorder++;
            last = m->header.sequence;
            if (std::fabs(m->value(16 + 7, 0) / m->value(7, 0) - 2.0f) > 0.05f)
                misplaced++;
            read++;
            g.dataDone(0);
        }
    });
    ASSERT_FALSE(g.setMeasurementConfig(false, capture(MeasureMode::Continuous, 1000, 100000.0)));
    ASSERT_FALSE(g.sendDataEnable(3));
    ASSERT_FALSE(g.setMode(Mode::Run));
    std::this_thread::sleep_for(std::chrono::seconds(1));
    ASSERT_FALSE(g.setMode(Mode::Idle));
    ASSERT_FALSE(g.unitsDisconnect());
    EXPECT_TRUE(g.dataFlush(5000000));
    done = true;
    reader.join();
    EXPECT_GT(read, 100u);
    EXPECT_EQ(disorder, 0u);
    EXPECT_EQ(misplaced, 0u);
    EXPECT_EQ(g.lost, 0);
}
