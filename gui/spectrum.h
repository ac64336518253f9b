#ifndef SPECTRUM_H
#define SPECTRUM_H

#include "zerror.h"

#include <QPointF>
#include <QVector>

#include <fftw3.h>

// The amplitude spectrum of one channel: a periodic Hann window, the FFTW
// real-to-complex transform and levels in decibels.
//
// The transform runs over the last N samples given, with N the largest
// 2^a * 3^b * 5^c not above their number: such lengths transform several
// times faster than a length with a large prime factor, and at most a few
// per cent of the oldest samples are left out. The plan, its buffers and the
// window are kept while N stays the same, so that a trace redrawn as it grows
// within the same length costs only the transform.
//
// Not thread-safe (the FFTW planner is not): one thread per process plans.
class Spectrum {
public:
    // Samples transformed at most: the buffers stay below 2 GB.
    static constexpr unsigned int maxLength = 1u << 27;
    // A smaller magnitude (0 in particular, whose log10 is -inf) counts as
    // this one: -400 dB.
    static constexpr double magnitudeFloor = 1e-20;

    Spectrum();
    ~Spectrum();
    Spectrum(const Spectrum&) = delete;
    Spectrum& operator=(const Spectrum&) = delete;

    // The largest 2^a * 3^b * 5^c not above n; 0 for 0.
    static unsigned int smoothLength(unsigned int n);

    // The spectrum of the last smoothLength(count) samples into points:
    // M = N / 2 points (frequency in Hz, level in dB) for bins 0 to M - 1,
    // bin k at k * sampleRate / N, level 20 log10(|X[k]| / M) - 20 log10(scale).
    // A sine of amplitude A on a bin gives 20 log10(A / 2) - 20 log10(scale).
    // Fewer than 2 samples give no points. Fails on a sample rate or scale
    // that is not finite and above 0, and on more than maxLength samples
    // transformed; points is then empty.
    ZError compute(const double* samples, unsigned int count, double sampleRate, double scale,
                   QVector<QPointF>& points);

    // N of the plan held; 0 for none.
    unsigned int length() const { return n; }
    // Plans made so far (one per change of N).
    unsigned int plansMade() const { return plans; }
    // Frees the plan and the buffers (until the next compute).
    void release();

private:
    ZError prepare(unsigned int length);

    unsigned int n;
    double* in;
    fftw_complex* out;
    fftw_plan plan;
    QVector<double> window;
    unsigned int plans;
};

#endif
