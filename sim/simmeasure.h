#ifndef SIMMEASURE_H
#define SIMMEASURE_H

#include "simsignals.h"
#include "tavrorecords.h"
#include "zerror.h"

#include <cstdint>
#include <vector>

namespace TavroSim {

// One block made by a capture: a raw DataBlock or a DataBlockProc.
struct SimBlock {
    bool processed = false;
    TavroApi::DataBlock raw;
    TavroApi::DataBlockProc proc;
};

// The measurement engine of a simulated unit. It turns the inputs into the
// blocks a capture delivers, sample period by sample period; the caller
// decides how many periods pass (real time, or as fast as the link takes).
//
// The MeasurementConfig as the unit reads it:
//  - measureMode: OneShot captures numSamples0 samples once; Repeat captures
//    numSamples0 samples every measurePeriod samples (back to back when the
//    period is shorter); Continuous never ends.
//  - sampleRate in Hz, above 0 and at most 1 MHz.
//  - numSamplesBlock: rows in a raw block, 1 to 13; 0 or more than 13 give 13.
//  - numSamples1: samples in one processing period; 0 means one second.
//  - triggerMode Positive or Negative: each capture starts at the sample where
//    the raw value of triggerChannel (8 to 15 are the digital inputs, 0 or 1)
//    crosses triggerLevel upwards or downwards, triggerDelay seconds later
//    when the delay is positive.
// Raw blocks are DataBlock of type 1: rows of 8 Float32 raw values and the
// digital bits, sequence counting the blocks from the start of the
// measurement, time the unit's clock at the first row in microseconds.
// Status: Run on every block but the last of a one-shot capture, End0 on the
// last block of each capture, Alarm while an alarm is latched, DataOverrun on
// the first block after samples had to be skipped. Processed blocks
// (DataBlockProc of type 2, 16 channels, 1 sample) carry the mean, rms,
// peaks and power (mean square) of the raw values of each processing period
// of a capture (the last one of a capture may be short), the digital bits of
// its last sample and its length in seconds; their status follows the same
// rules. Alarm n watches channel n (the peaks of an analogue channel; for a
// digital one 1 when the bit was ever set, 0 when it was ever clear) on every
// processing period and stays latched until cleared.
class SimMeasure {
public:
    enum class Phase { Idle, WaitTrigger, Delay, Capture, WaitPeriod, Done };
    static constexpr double rateMax = 1000000.0;

    explicit SimMeasure(SimSignals& signals);

    // 22 "Invalid measure mode", "Invalid sample rate", "Invalid number of
    // samples", "Invalid trigger channel"; 66 "Sample rate too fast".
    static ZError check(const TavroApi::MeasurementConfig& config);

    // The factor from volts to raw value of each analogue input.
    void setScale(const double scale[SimSignals::analogue]);
    void setAlarms(const TavroApi::AlarmConfig* alarms, int number);
    uint32_t alarms() const { return oalarms; }
    void clearAlarms(uint32_t mask) { oalarms &= ~mask; }

    // Starts a capture at the unit time timeUs; config has passed check().
    void start(const TavroApi::MeasurementConfig& config, uint64_t timeUs);
    void stop() { ophase = Phase::Idle; }
    Phase phase() const { return ophase; }
    // Between start() and the end of the capture (or stop()).
    bool running() const { return ophase != Phase::Idle && ophase != Phase::Done; }
    bool finished() const { return ophase == Phase::Done; }
    double sampleRate() const { return orate; }

    // Lets up to periods sample periods pass, appending the blocks that are
    // complete; stops early once maxBlocks blocks were added. Returns the
    // periods used.
    uint64_t run(uint64_t periods, unsigned int maxBlocks, std::vector<SimBlock>& out);
    // Periods that passed without being sampled (the link fell behind): the
    // next block carries DataOverrun.
    void skip(uint64_t periods);

    // One block of the inputs as they are at time t (seconds): type 1 raw rows,
    // type 0 floats of 16 channels, type 2 the processed values of its rows.
    ZError snapshot(TavroApi::DataType type, double t, uint64_t timeUs, TavroApi::DataBlock& block);

private:
    struct Sums {
        double sum[SimSignals::analogue];
        double square[SimSignals::analogue];
        float high[SimSignals::analogue];
        float low[SimSignals::analogue];
        uint32_t digital; // of the last sample
        uint32_t anyHigh; // bits that were 1 at some sample
        uint32_t anyLow;  // bits that were 0 at some sample
        uint32_t count;
        void clear();
        void add(const float raw[SimSignals::analogue], uint32_t bits);
    };

    void sampleNow(float raw[SimSignals::analogue], uint32_t& digital);
    bool triggered(const float raw[SimSignals::analogue], uint32_t digital);
    void beginCapture();
    void capture(const float raw[SimSignals::analogue], uint32_t digital,
                 std::vector<SimBlock>& out);
    uint16_t blockStatus(bool last);
    void fillProc(TavroApi::DataBlockProc& p, const Sums& s);
    uint64_t timeOf(uint64_t sample) const;

    SimSignals& osignals;
    TavroApi::MeasurementConfig oconfig;
    double oscale[SimSignals::analogue];
    TavroApi::AlarmConfig oalarmConfig[16];
    uint32_t oalarms;
    Phase ophase;
    double orate;
    uint64_t ostartUs;
    uint64_t on;            // sample periods since start()
    uint64_t ocaptureStart; // sample of the current capture's start
    uint64_t ocaptured;     // samples taken in the current capture
    uint64_t owaitUntil;    // end of a trigger delay or of a repeat period
    uint32_t orows;
    uint32_t oprocPeriod;
    uint32_t osequence;
    uint32_t oprocSequence;
    bool ohavePrevious;
    float oprevious;
    bool ooverrun;
    TavroApi::DataBlock oblock; // the raw block being filled
    uint64_t oblockStart;
    Sums osums;
};

} // namespace TavroSim

#endif
