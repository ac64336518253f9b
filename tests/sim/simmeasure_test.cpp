// The measurement engine of the simulated unit, seen from a client.

#include "simharness.h"

#include <array>
#include <cmath>

using namespace simtest;

namespace {

const uint16_t RunBit = uint16_t(Status::Run);
const uint16_t EndBit = uint16_t(Status::End0);

// Waits for n raw blocks and returns the first n.
std::vector<DataBlock> rawBlocks(Rig& rig, size_t n) {
    EXPECT_TRUE(rig.client.waitFor([&] { return rig.client.blocks.size() >= n; }))
        << rig.client.rawCopy().size() << " of " << n;
    std::vector<DataBlock> b = rig.client.rawCopy();
    b.resize(std::min(b.size(), n));
    return b;
}

// The time in seconds of a row, read off the 60 s ramp on AI4.
double rampTime(const DataBlock& b, int r, const ChannelConfig& ai4) {
    return volts(b, r, 4, ai4) * 6.0;
}

} // namespace

TEST(SimMeasure, BlocksOfEachMeasureMode) {
    const uint16_t Both = RunBit | EndBit;
    // Per block: rows, status, sample of its first row; whether the capture ends.
    struct Case {
        MeasurementConfig m;
        std::vector<std::array<unsigned int, 3>> blocks;
        bool ends;
    } cases[] = {
        {measurement(MeasureMode::OneShot, 1000, 30, 13),
         {{13, RunBit, 0}, {13, RunBit, 13}, {4, EndBit, 26}},
         true},
        {measurement(MeasureMode::Repeat, 1000, 20, 10, 0, 50),
         {{10, RunBit, 0}, {10, Both, 10}, {10, RunBit, 50}, {10, Both, 60}},
         false},
        {measurement(MeasureMode::Continuous, 500, 0, 5),
         {{5, RunBit, 0}, {5, RunBit, 5}, {5, RunBit, 10}, {5, RunBit, 15}},
         false},
    };
    Rig rig;
    ChannelConfig ch[8];
    for (int c = 0; c < 8; c++)
        ASSERT_FALSE(rig.client.getChannelConfig(c, ch[c]));
    for (const Case& k : cases) {
        SCOPED_TRACE(int(&k - cases));
        ASSERT_FALSE(rig.client.start(k.m));
        std::vector<DataBlock> b = rawBlocks(rig, k.blocks.size());
        ASSERT_EQ(b.size(), k.blocks.size());
        for (size_t i = 0; i < b.size(); i++) {
            EXPECT_EQ(b[i].type, DataType::Raw40x);
            EXPECT_EQ(b[i].numChannels, 9);
            auto [rows, status, first] = k.blocks[i];
            EXPECT_EQ(b[i].numSamples, rows);
            EXPECT_EQ(b[i].sequence, i);
            EXPECT_EQ(b[i].status, status);
            EXPECT_EQ(b[i].time - b[0].time, uint64_t(double(first) * 1e6 / k.m.sampleRate + 0.5));
            // The documented inputs, at the time of every row.
            for (int r = 0; r < b[i].numSamples; r++) {
                double t = double(first + r) / k.m.sampleRate;
                const double pi2 = 2 * M_PI;
                EXPECT_NEAR(volts(b[i], r, 0, ch[0]), 5 * std::sin(pi2 * 50 * t), 1e-4);
                EXPECT_NEAR(volts(b[i], r, 1, ch[1]), 1 + 2 * std::sin(pi2 * 5 * t), 1e-4);
                EXPECT_NEAR(volts(b[i], r, 2, ch[2]), std::fmod(t * 2, 1) < 0.5 ? 3 : -3, 1e-4);
                EXPECT_NEAR(rampTime(b[i], r, ch[4]), t, 1e-4);
                EXPECT_EQ(digitalBits(b[i], r), uint32_t(t * 10 + 1e-9) & 0xFF);
            }
        }
        if (k.ends) {
            // A one-shot capture ends by itself and the unit goes idle.
            EXPECT_TRUE(rig.client.waitFor([&] { return rig.unit.mode() == Mode::Idle; }, 2000));
            NodeStatus s;
            ASSERT_FALSE(rig.client.getStatus(s));
            EXPECT_EQ(s.status & RunBit, 0);
            EXPECT_EQ(s.mode, Mode::Idle);
        }
        ASSERT_FALSE(rig.client.setMode(Mode::Idle));
    }
}

TEST(SimMeasure, TriggerLevelSlopeAndDelay) {
    // mode, channel, level, delay; seconds from the start to the first sample taken
    const std::tuple<TriggerMode, uint8_t, float, int32_t, double> cases[] = {
        {TriggerMode::Positive, 2, 0.0f, 0, 0.5},   // square AI2 rising
        {TriggerMode::Negative, 8, 0.5f, 0, 0.2},   // DI0 falling
        {TriggerMode::Positive, 0, 4.0f, 1, 1.003}, // AI0 through 4 V, then one second
    };
    Rig rig;
    ChannelConfig ai4;
    ASSERT_FALSE(rig.client.getChannelConfig(4, ai4));
    MeasurementConfig m = measurement(MeasureMode::OneShot, 1000, 20);
    for (auto& [mode, channel, level, delay, start] : cases) {
        SCOPED_TRACE(int(channel));
        std::tie(m.triggerMode, m.triggerChannel, m.triggerLevel, m.triggerDelay) =
            std::tie(mode, channel, level, delay);
        ASSERT_FALSE(rig.client.start(m));
        NodeStatus s;
        ASSERT_FALSE(rig.client.getStatus(s));
        EXPECT_EQ(s.status & uint32_t(RunBit | uint16_t(Status::TriggerWait)),
                  uint32_t(RunBit | uint16_t(Status::TriggerWait)));
        std::vector<DataBlock> b = rawBlocks(rig, 2);
        ASSERT_EQ(b.size(), 2u);
        EXPECT_NEAR(rampTime(b[0], 0, ai4), start, 1e-4);
        EXPECT_EQ(b[0].sequence, 0u);
        EXPECT_EQ(b[1].status, EndBit);
    }
    m.triggerChannel = 16; // past the digital inputs
    EXPECT_EQ(rig.client.setMeasurementConfig(false, m), ZError(22, "Invalid trigger channel"));
}

TEST(SimMeasure, ProcessedValuesFollowTheRawSamples) {
    Rig rig;
    ASSERT_FALSE(rig.client.start(measurement(MeasureMode::OneShot, 1000, 100, 13, 40)));
    std::vector<DataBlock> raw = rawBlocks(rig, 8);
    ASSERT_TRUE(rig.client.waitFor([&] { return rig.client.procs.size() >= 3; }));
    // The samples of the capture, in order.
    std::vector<std::vector<float>> rows;
    std::vector<uint32_t> bits;
    std::vector<uint64_t> times;
    for (const DataBlock& b : raw)
        for (int r = 0; r < b.numSamples; r++) {
            rows.emplace_back(b.data + r * 9, b.data + r * 9 + 8);
            bits.push_back(digitalBits(b, r));
            times.push_back(b.time + uint64_t(r) * 1000);
        }
    ASSERT_EQ(rows.size(), 100u);
    std::vector<DataBlockProc> procs = rig.client.procCopy();
    const int counts[] = {40, 40, 20};
    size_t at = 0;
    for (int p = 0; p < 3; p++) {
        const DataBlockProc& d = procs[p];
        SCOPED_TRACE(p);
        EXPECT_EQ(d.sequence, uint32_t(p));
        EXPECT_EQ(d.status, p < 2 ? RunBit : EndBit);
        EXPECT_EQ(d.numChannels, 16);
        EXPECT_EQ(d.numSamples, 1);
        EXPECT_EQ(d.time, times[at]);
        EXPECT_FLOAT_EQ(d.period, counts[p] / 1000.0f);
        EXPECT_EQ(d.digitalData, bits[at + counts[p] - 1]);
        for (int c = 0; c < 8; c++) {
            double sum = 0, square = 0, high = -1e9, low = 1e9;
            for (int i = 0; i < counts[p]; i++) {
                double v = rows[at + i][c];
                sum += v;
                square += v * v;
                high = std::max(high, v);
                low = std::min(low, v);
            }
            const DataProc& v = d.analogueData[c];
            EXPECT_NEAR(v.mean, sum / counts[p], 1e-5);
            EXPECT_NEAR(v.power, square / counts[p], 1e-4);
            EXPECT_NEAR(v.rms, std::sqrt(square / counts[p]), 1e-5);
            EXPECT_EQ(v.peakHigh, float(high));
            EXPECT_EQ(v.peakLow, float(low));
            EXPECT_EQ(v.alarm, 0);
        }
        at += counts[p];
    }
    // Processed blocks only when asked for.
    ASSERT_FALSE(rig.client.start(measurement(MeasureMode::OneShot, 1000, 30, 13, 10), 3));
    rawBlocks(rig, 3);
    EXPECT_TRUE(rig.client.procCopy().empty());
}

TEST(SimMeasure, RecordsEachCaptureAsBlock512File) {
    Rig rig;
    Configuration c;
    ASSERT_FALSE(rig.client.getConfig(c));
    c.logData = 3; // raw and processed
    ASSERT_FALSE(rig.client.setConfig(c));
    ASSERT_FALSE(rig.client.start(measurement(MeasureMode::OneShot, 1000, 30, 13)));
    ASSERT_TRUE(rig.client.waitFor([&] { return rig.client.procs.size() == 1; }));
    ASSERT_TRUE(rig.client.waitFor([&] { return rig.unit.mode() == Mode::Idle; }));
    FileInfo info;
    ASSERT_FALSE(rig.client.fileList("/internal/data", 0, info));
    ZString name = getCharArray(info.name);
    EXPECT_EQ(name.subString(0, 5), "data_");
    EXPECT_EQ(name.extension(), "tavd");
    EXPECT_EQ(info.fileLength, 21u * 512);
    EXPECT_EQ(rig.client.fileList("/internal/data", 1, info), ZError(14, "No more files"));
    std::vector<uint8_t> file;
    ASSERT_FALSE(rig.unit.readFile("/internal/data/" + name, file));
    ASSERT_EQ(file.size(), 21u * 512);
    const std::vector<DataBlock> raw = rig.client.rawCopy();
    const DataBlockProc proc = rig.client.procCopy()[0];
    // Read back by the reader's rules: every block at a multiple of 512.
    // Block 0: info (232 bytes, type 30); 1-16: channels (152, 32); 17-19 raw
    // data (512, 31); 20: processed data (432, 31).
    for (size_t i = 0; i < 21; i++) {
        const uint8_t* b = file.data() + i * 512;
        uint16_t magic, length;
        uint64_t type;
        memcpy(&magic, b, 2);
        memcpy(&length, b + 2, 2);
        memcpy(&type, b + 8, 8);
        SCOPED_TRACE(i);
        EXPECT_EQ(magic, 0x555A);
        EXPECT_EQ(length, i == 0 ? 232 : i <= 16 ? 152 : i < 20 ? 512 : 432);
        EXPECT_EQ(type, i == 0 ? 30u : i <= 16 ? 32u : 31u);
        for (size_t k = length; k < 512; k++)
            ASSERT_EQ(b[k], 0) << k;
        if (i == 0) {
            InfoBlock ib;
            memcpy(static_cast<void*>(&ib), b + 16, sizeof(ib));
            EXPECT_EQ(ib.fileType, TavdFileType::Block512);
            EXPECT_EQ(ib.dataType, DataType::Raw40x);
            EXPECT_EQ(ib.measureConfig.numSamples0, 30u);
        } else if (i <= 16) {
            EXPECT_EQ(b[16], uint8_t(i - 1)); // ChannelConfig.number
        } else {
            const void* sent = i < 20 ? static_cast<const void*>(&raw[i - 17]) : &proc;
            EXPECT_EQ(memcmp(b + 16, sent, length - 16), 0);
        }
    }
    // Logging to a card that is not there is refused.
    c.logDataDevice = 1;
    EXPECT_EQ(rig.client.setConfig(c), ZError(19, "No such device"));
}
