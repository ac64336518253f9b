#include "simmeasure.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace TavroSim {

using namespace TavroApi;

namespace {

const int Analogue = SimSignals::analogue;
const uint16_t RawWords = DataBlock::rawRowWords;
const int ProcChannels = 16;
const int Alarms = 16;

uint16_t flag(Status s) {
    return uint16_t(s);
}

} // namespace

void SimMeasure::Sums::clear() {
    for (int c = 0; c < Analogue; c++) {
        sum[c] = 0.0;
        square[c] = 0.0;
        high[c] = 0.0f;
        low[c] = 0.0f;
    }
    digital = 0;
    anyHigh = 0;
    anyLow = 0;
    count = 0;
}

void SimMeasure::Sums::add(const float raw[Analogue], uint32_t bits) {
    for (int c = 0; c < Analogue; c++) {
        double v = raw[c];
        sum[c] += v;
        square[c] += v * v;
        high[c] = count == 0 ? raw[c] : std::max(high[c], raw[c]);
        low[c] = count == 0 ? raw[c] : std::min(low[c], raw[c]);
    }
    digital = bits;
    anyHigh |= bits;
    anyLow |= ~bits;
    count++;
}

SimMeasure::SimMeasure(SimSignals& signals)
    : osignals(signals), oalarms(0), ophase(Phase::Idle), orate(1.0), ostartUs(0), on(0),
      ocaptureStart(0), ocaptured(0), owaitUntil(0), orows(DataBlock::rawRowsMax), oprocPeriod(1),
      osequence(0), oprocSequence(0), ohavePrevious(false), oprevious(0.0f), ooverrun(false),
      oblockStart(0) {
    for (int c = 0; c < Analogue; c++)
        oscale[c] = 1.0;
    osums.clear();
}

ZError SimMeasure::check(const MeasurementConfig& config) {
    if (uint8_t(config.measureMode) > uint8_t(MeasureMode::Continuous))
        return ZError(22, "Invalid measure mode");
    if (!std::isfinite(config.sampleRate) || config.sampleRate <= 0.0)
        return ZError(22, "Invalid sample rate");
    if (config.sampleRate > rateMax)
        return ZError(66, "Sample rate too fast");
    bool ends =
        config.measureMode == MeasureMode::OneShot || config.measureMode == MeasureMode::Repeat;
    if (ends && config.numSamples0 == 0)
        return ZError(22, "Invalid number of samples");
    if (uint8_t(config.triggerMode) > uint8_t(TriggerMode::Negative))
        return ZError(22, "Invalid trigger mode");
    if (config.triggerMode != TriggerMode::Off && config.triggerChannel >= ProcChannels)
        return ZError(22, "Invalid trigger channel");
    return ZError();
}

void SimMeasure::setScale(const double scale[Analogue]) {
    for (int c = 0; c < Analogue; c++)
        oscale[c] = std::isfinite(scale[c]) ? scale[c] : 1.0;
}

void SimMeasure::setAlarms(const AlarmConfig* alarms, int number) {
    for (int i = 0; i < Alarms; i++)
        oalarmConfig[i] = i < number ? alarms[i] : AlarmConfig();
}

void SimMeasure::start(const MeasurementConfig& config, uint64_t timeUs) {
    oconfig = config;
    orate = config.sampleRate;
    ostartUs = timeUs;
    on = 0;
    osequence = 0;
    oprocSequence = 0;
    ooverrun = false;
    ohavePrevious = false;
    orows = config.numSamplesBlock >= 1 && config.numSamplesBlock <= DataBlock::rawRowsMax
                ? config.numSamplesBlock
                : DataBlock::rawRowsMax;
    double period = config.numSamples1 ? double(config.numSamples1) : std::ceil(orate);
    oprocPeriod = uint32_t(std::max(1.0, std::min(period, 4294967295.0)));
    osignals.reset();
    if (config.measureMode == MeasureMode::Off)
        ophase = Phase::Done;
    else if (config.triggerMode != TriggerMode::Off)
        ophase = Phase::WaitTrigger;
    else
        beginCapture();
}

void SimMeasure::beginCapture() {
    ophase = Phase::Capture;
    ocaptureStart = on;
    ocaptured = 0;
    oblock = DataBlock();
    osums.clear();
}

uint64_t SimMeasure::timeOf(uint64_t sample) const {
    return ostartUs + uint64_t(double(sample) * 1e6 / orate + 0.5);
}

void SimMeasure::sampleNow(float raw[Analogue], uint32_t& digital) {
    float volts[Analogue];
    osignals.sample(double(on) / orate, volts, digital);
    for (int c = 0; c < Analogue; c++)
        raw[c] = float(volts[c] * oscale[c]);
}

bool SimMeasure::triggered(const float raw[Analogue], uint32_t digital) {
    unsigned int ch = oconfig.triggerChannel;
    float v = ch < unsigned(Analogue) ? raw[ch] : float((digital >> (ch - Analogue)) & 1);
    bool was = ohavePrevious;
    float before = oprevious;
    ohavePrevious = true;
    oprevious = v;
    if (!was)
        return false;
    float level = oconfig.triggerLevel;
    if (oconfig.triggerMode == TriggerMode::Positive)
        return before < level && v >= level;
    return before > level && v <= level;
}

uint64_t SimMeasure::run(uint64_t periods, unsigned int maxBlocks, std::vector<SimBlock>& out) {
    size_t first = out.size();
    uint64_t used = 0;
    while (used < periods && out.size() - first < maxBlocks) {
        if (ophase == Phase::Idle || ophase == Phase::Done)
            return periods;
        if (ophase == Phase::Delay || ophase == Phase::WaitPeriod) {
            // Nothing is sampled while waiting: time jumps to the end of the wait.
            uint64_t jump = std::min(periods - used, owaitUntil > on ? owaitUntil - on : 0);
            on += jump;
            used += jump;
            if (on < owaitUntil)
                continue;
            ohavePrevious = false;
            if (ophase == Phase::WaitPeriod && oconfig.triggerMode != TriggerMode::Off)
                ophase = Phase::WaitTrigger;
            else
                beginCapture();
            continue;
        }
        float raw[Analogue];
        uint32_t digital = 0;
        sampleNow(raw, digital);
        if (ophase == Phase::WaitTrigger && triggered(raw, digital)) {
            double delay = oconfig.triggerDelay > 0 ? double(oconfig.triggerDelay) * orate : 0.0;
            if (delay >= 1.0) {
                owaitUntil = on + uint64_t(delay);
                ophase = Phase::Delay;
            } else {
                beginCapture();
            }
        }
        if (ophase == Phase::Capture)
            capture(raw, digital, out);
        on++;
        used++;
    }
    return used;
}

void SimMeasure::skip(uint64_t periods) {
    if (!running() || periods == 0)
        return;
    on += periods;
    ooverrun = true;
}

uint16_t SimMeasure::blockStatus(bool last) {
    uint16_t s = 0;
    if (!(last && oconfig.measureMode == MeasureMode::OneShot))
        s |= flag(Status::Run);
    if (last)
        s |= flag(Status::End0);
    if (oalarms)
        s |= flag(Status::Alarm);
    return s;
}

void SimMeasure::capture(const float raw[Analogue], uint32_t digital, std::vector<SimBlock>& out) {
    if (oblock.numSamples == 0)
        oblockStart = on;
    float* row = oblock.data + oblock.numSamples * RawWords;
    memcpy(row, raw, Analogue * sizeof(float));
    memcpy(row + Analogue, &digital, sizeof(digital));
    oblock.numSamples++;
    uint64_t procStart = on - osums.count;
    osums.add(raw, digital);
    ocaptured++;

    bool last = oconfig.measureMode != MeasureMode::Continuous && ocaptured >= oconfig.numSamples0;
    if (oblock.numSamples >= orows || last) {
        SimBlock b;
        oblock.time = timeOf(oblockStart);
        oblock.numChannels = RawWords;
        oblock.sequence = osequence++;
        oblock.type = DataType::Raw40x;
        oblock.status = blockStatus(last);
        if (ooverrun)
            oblock.status |= flag(Status::DataOverrun);
        ooverrun = false;
        b.raw = oblock;
        out.push_back(b);
        oblock = DataBlock();
    }
    if (osums.count >= oprocPeriod || last) {
        SimBlock b;
        b.processed = true;
        fillProc(b.proc, osums);
        b.proc.time = timeOf(procStart);
        b.proc.sequence = oprocSequence++;
        b.proc.status = blockStatus(last);
        out.push_back(b);
        osums.clear();
    }
    if (!last)
        return;
    if (oconfig.measureMode == MeasureMode::OneShot) {
        ophase = Phase::Done;
        return;
    }
    uint64_t next = ocaptureStart + std::max<uint64_t>(oconfig.measurePeriod, oconfig.numSamples0);
    owaitUntil = std::max(next, on + 1);
    ophase = Phase::WaitPeriod;
}

void SimMeasure::fillProc(DataBlockProc& p, const Sums& s) {
    // Alarms first, so that the block already shows what its values set off.
    for (int i = 0; i < Alarms && s.count; i++) {
        const AlarmConfig& a = oalarmConfig[i];
        double high, low;
        if (i < Analogue) {
            high = s.high[i];
            low = s.low[i];
        } else {
            high = double((s.anyHigh >> (i - Analogue)) & 1);
            low = double(((~s.anyLow) >> (i - Analogue)) & 1);
        }
        bool on = false;
        switch (a.mode) {
        case AlarmMode::High:
            on = high > a.levelHigh;
            break;
        case AlarmMode::Low:
            on = low < a.levelLow;
            break;
        case AlarmMode::Range:
            on = high > a.levelHigh || low < a.levelLow;
            break;
        case AlarmMode::Magnitude:
            on = std::max(std::fabs(high), std::fabs(low)) > a.levelHigh;
            break;
        default:
            break;
        }
        if (on)
            oalarms |= 1u << i;
    }
    p = DataBlockProc();
    p.numChannels = ProcChannels;
    p.numSamples = 1;
    p.type = DataType::Proc;
    for (int c = 0; c < Analogue && s.count; c++) {
        DataProc& d = p.analogueData[c];
        double n = s.count;
        d.mean = float(s.sum[c] / n);
        d.power = float(s.square[c] / n);
        d.rms = float(std::sqrt(s.square[c] / n));
        d.peakHigh = s.high[c];
        d.peakLow = s.low[c];
        d.alarm = (oalarms >> c) & 1;
    }
    p.digitalData = s.digital;
    p.period = float(double(s.count) / orate);
}

ZError SimMeasure::snapshot(DataType type, double t, uint64_t timeUs, DataBlock& block) {
    double rate =
        std::isfinite(oconfig.sampleRate) && oconfig.sampleRate > 0.0 ? oconfig.sampleRate : 4000.0;
    float raw[DataBlock::rawRowsMax][Analogue];
    uint32_t digital[DataBlock::rawRowsMax];
    int rows =
        type == DataType::Float32 ? DataBlock::dataMax / ProcChannels : DataBlock::rawRowsMax;
    Sums sums;
    sums.clear();
    for (int r = 0; r < rows; r++) {
        float volts[Analogue];
        osignals.sample(t + double(r) / rate, volts, digital[r]);
        for (int c = 0; c < Analogue; c++)
            raw[r][c] = float(volts[c] * oscale[c]);
        sums.add(raw[r], digital[r]);
    }
    block = DataBlock();
    switch (type) {
    case DataType::Raw40x:
        block.numChannels = RawWords;
        for (int r = 0; r < rows; r++) {
            memcpy(block.data + r * RawWords, raw[r], sizeof(raw[r]));
            memcpy(block.data + r * RawWords + Analogue, &digital[r], sizeof(uint32_t));
        }
        break;
    case DataType::Float32:
        block.numChannels = ProcChannels;
        for (int r = 0; r < rows; r++)
            for (int c = 0; c < ProcChannels; c++)
                block.data[r * ProcChannels + c] =
                    c < Analogue ? raw[r][c] : float((digital[r] >> (c - Analogue)) & 1);
        break;
    case DataType::Proc: {
        static_assert(sizeof(DataBlockProc) <= sizeof(DataBlock), "a processed block fits");
        DataBlockProc p;
        double saved = orate;
        orate = rate;
        uint32_t alarms = oalarms;
        fillProc(p, sums);
        oalarms = alarms;
        orate = saved;
        p.time = timeUs;
        memcpy(static_cast<void*>(&block), &p, sizeof(p));
        return ZError();
    }
    default:
        return ZError(22, "Invalid data type");
    }
    block.time = timeUs;
    block.numSamples = uint16_t(rows);
    block.type = type;
    return ZError();
}

} // namespace TavroSim
