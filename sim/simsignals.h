#ifndef SIMSIGNALS_H
#define SIMSIGNALS_H

#include "tavrorecords.h"

#include <cstdint>
#include <vector>

namespace TavroSim {

// What the inputs of a simulated unit see, in volts, sample by sample:
//   AI0 5 V sine 50 Hz           AI4 ramp 0 to 10 V every 60 s
//   AI1 1 V + 2 V sine 5 Hz      AI5 4 V 50 Hz + 1.5 V 150 Hz
//   AI2 3 V square 2 Hz          AI6 0.5 V sine 1 kHz
//   AI3 noise, 0.5 V rms         AI7 the analogue output AO0, wired back
// AO0 carries the waveform generator when its output is AO0 or AO01 and its
// mode is not None, else the level set with setAnalogueOut. The digital
// inputs are an 8-bit counter stepping 10 times a second; in digital mode
// Output they show the outputs, in InOut the low four bits are inputs.
// Inputs clip at +-10.24 V. Noise is reproducible: it restarts with reset().
class SimSignals {
public:
    static constexpr int analogue = 8;
    static constexpr double inputRange = 10.24;

    SimSignals();

    // Restarts the noise and the generator's tracking.
    void reset();
    void setAwg(const TavroApi::AwgConfig& config);
    // Samples of the arbitrary waveform, as float values from sample index on.
    void setAwgWaveform(unsigned int index, unsigned int length, const uint8_t* data,
                        unsigned int bytes);
    void setAnalogueOut(unsigned int channel, float volts);
    float analogueOut(unsigned int channel) const;
    void setDigital(uint32_t outputs, TavroApi::DigitalMode mode);
    uint32_t digitalOutputs() const { return odigitalOut; }

    // The inputs at time t (seconds).
    void sample(double t, float volts[analogue], uint32_t& digital);
    // The digital inputs alone at time t.
    uint32_t digitalAt(double t) const;

private:
    double generator(double t);
    double gaussian();

    TavroApi::AwgConfig oawg;
    std::vector<float> owaveform;
    float oanalogueOut[2];
    uint32_t odigitalOut;
    TavroApi::DigitalMode odigitalMode;
    uint64_t onoise;
    double otrackMean;
    double otrackSquare;
};

} // namespace TavroSim

#endif
