#include "simsignals.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace TavroSim {

using namespace TavroApi;

namespace {

const double TwoPi = 6.283185307179586;
const uint64_t NoiseSeed = 0x9E3779B97F4A7C15ull;
const unsigned int WaveformMax = 65536; // samples of an arbitrary waveform

double clip(double v, double range) {
    if (!std::isfinite(v))
        return 0.0;
    return std::max(-range, std::min(range, v));
}

// The fraction of a cycle at time t, 0 <= p < 1.
double phase(double t, double frequency) {
    double p = t * frequency;
    return p - std::floor(p);
}

} // namespace

SimSignals::SimSignals() : oanalogueOut{0.0f, 0.0f}, odigitalOut(0) {
    odigitalMode = DigitalMode::Input;
    reset();
}

void SimSignals::reset() {
    onoise = NoiseSeed;
    otrackMean = 0.0;
    otrackSquare = 0.0;
}

void SimSignals::setAwg(const AwgConfig& config) {
    oawg = config;
}

void SimSignals::setAwgWaveform(unsigned int index, unsigned int length, const uint8_t* data,
                                unsigned int bytes) {
    length = std::min(length, WaveformMax);
    owaveform.resize(length, 0.0f);
    unsigned int n = bytes / sizeof(float);
    for (unsigned int i = 0; i < n && index < length && i < length - index; i++)
        memcpy(&owaveform[index + i], data + i * sizeof(float), sizeof(float));
}

void SimSignals::setAnalogueOut(unsigned int channel, float volts) {
    if (channel < 2)
        oanalogueOut[channel] = float(clip(volts, inputRange));
}

float SimSignals::analogueOut(unsigned int channel) const {
    return channel < 2 ? oanalogueOut[channel] : 0.0f;
}

void SimSignals::setDigital(uint32_t outputs, DigitalMode mode) {
    odigitalOut = outputs & 0xFF;
    odigitalMode = mode;
}

// xorshift64* and Box-Muller: the same noise after every reset().
double SimSignals::gaussian() {
    auto uniform = [this]() {
        onoise ^= onoise >> 12;
        onoise ^= onoise << 25;
        onoise ^= onoise >> 27;
        return double((onoise * 2685821657736338717ull) >> 11) / 9007199254740992.0;
    };
    double u1 = std::max(uniform(), 1e-300);
    double u2 = uniform();
    return std::sqrt(-2.0 * std::log(u1)) * std::cos(TwoPi * u2);
}

double SimSignals::generator(double t) {
    bool drivesAo0 = oawg.output == AwgOutput::AO0 || oawg.output == AwgOutput::AO01;
    if (!drivesAo0 || oawg.mode == AwgMode::None)
        return oanalogueOut[0];
    double f = std::isfinite(oawg.frequency) ? oawg.frequency : 0.0;
    double a = std::isfinite(oawg.amplitude) ? oawg.amplitude : 0.0;
    double o = std::isfinite(oawg.offset) ? oawg.offset : 0.0;
    double duty = std::isfinite(oawg.duty) ? std::max(0.0, std::min(1.0, double(oawg.duty))) : 0.5;
    double p = phase(t, f);
    switch (oawg.mode) {
    case AwgMode::Dc:
        return o;
    case AwgMode::Sine:
        return o + a * std::sin(TwoPi * p);
    case AwgMode::Square:
        return o + (p < duty ? a : -a);
    case AwgMode::Triangle:
        return o + a * (p < 0.5 ? 4.0 * p - 1.0 : 3.0 - 4.0 * p);
    case AwgMode::Noise:
        return o + a * gaussian();
    case AwgMode::TrackMean:
        return otrackMean;
    case AwgMode::TrackRms:
        return std::sqrt(otrackSquare);
    case AwgMode::Arbitrary:
        if (owaveform.empty())
            return o;
        return o +
               a * owaveform[std::min(size_t(p * double(owaveform.size())), owaveform.size() - 1)];
    default:
        return oanalogueOut[0];
    }
}

void SimSignals::sample(double t, float volts[analogue], uint32_t& digital) {
    double v[analogue];
    v[0] = 5.0 * std::sin(TwoPi * phase(t, 50.0));
    v[1] = 1.0 + 2.0 * std::sin(TwoPi * phase(t, 5.0));
    v[2] = phase(t, 2.0) < 0.5 ? 3.0 : -3.0;
    v[3] = 0.5 * gaussian();
    v[4] = 10.0 * phase(t, 1.0 / 60.0);
    v[5] = 4.0 * std::sin(TwoPi * phase(t, 50.0)) + 1.5 * std::sin(TwoPi * phase(t, 150.0));
    v[6] = 0.5 * std::sin(TwoPi * phase(t, 1000.0));
    v[7] = generator(t);

    // The tracking modes follow their channel with a time constant of
    // about a hundred samples.
    unsigned int track = oawg.trackChannel;
    if (track < analogue - 1) {
        otrackMean += 0.01 * (v[track] - otrackMean);
        otrackSquare += 0.01 * (v[track] * v[track] - otrackSquare);
    }
    for (int c = 0; c < analogue; c++)
        volts[c] = float(clip(v[c], inputRange));
    digital = digitalAt(t);
}

uint32_t SimSignals::digitalAt(double t) const {
    uint32_t counter = uint32_t(std::fmod(std::floor(t * 10.0 + 1e-9), 256.0));
    switch (odigitalMode) {
    case DigitalMode::Output:
        return odigitalOut;
    case DigitalMode::InOut:
        return (counter & 0x0F) | (odigitalOut & 0xF0);
    default:
        return counter;
    }
}

} // namespace TavroSim
