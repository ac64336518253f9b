#include "spectrum.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

Spectrum::Spectrum() : n(0), in(nullptr), out(nullptr), plan(nullptr), plans(0) {}

Spectrum::~Spectrum() {
    release();
}

void Spectrum::release() {
    if (plan)
        fftw_destroy_plan(plan);
    if (in)
        fftw_free(in);
    if (out)
        fftw_free(out);
    plan = nullptr;
    in = nullptr;
    out = nullptr;
    n = 0;
    window = QVector<double>();
}

unsigned int Spectrum::smoothLength(unsigned int count) {
    // For every 3^b * 5^c not above count, the largest power of two that
    // still fits on top of it.
    const uint64_t limit = count;
    uint64_t best = 0;
    for (uint64_t p5 = 1; p5 <= limit; p5 *= 5) {
        for (uint64_t p35 = p5; p35 <= limit; p35 *= 3) {
            uint64_t v = p35;
            while (v * 2 <= limit)
                v *= 2;
            best = std::max(best, v);
        }
    }
    return unsigned(best);
}

ZError Spectrum::prepare(unsigned int length) {
    if (plan && n == length)
        return ZError();
    release();
    const size_t bins = size_t(length) / 2 + 1;
    in = static_cast<double*>(fftw_malloc(sizeof(double) * length));
    out = static_cast<fftw_complex*>(fftw_malloc(sizeof(fftw_complex) * bins));
    if (!in || !out) {
        release();
        return ZError(12,
                      ZString("Out of memory for a spectrum of ") + ZString(length) + " samples");
    }
    // FFTW_ESTIMATE leaves the buffers alone while planning.
    plan = fftw_plan_dft_r2c_1d(int(length), in, out, FFTW_ESTIMATE);
    if (!plan) {
        release();
        return ZError(ZString("Unable to plan a transform of ") + ZString(length) + " samples");
    }
    plans++;
    n = length;

    // Periodic Hann window: the divisor is N, not N - 1.
    window.resize(int(length));
    double* w = window.data();
    const double step = 2.0 * M_PI / length;
    for (unsigned int i = 0; i < length; i++)
        w[i] = 0.5 * (1.0 - std::cos(step * i));
    return ZError();
}

ZError Spectrum::compute(const double* samples, unsigned int count, double sampleRate, double scale,
                         QVector<QPointF>& points) {
    points.clear();
    if (!std::isfinite(sampleRate) || !(sampleRate > 0.0))
        return ZError(ZString("Invalid sample rate for a spectrum: ") + ZString(sampleRate));
    if (!std::isfinite(scale) || !(scale > 0.0))
        return ZError(ZString("Invalid channel scale for a spectrum: ") + ZString(scale));
    const unsigned int length = smoothLength(count);
    if (length <= 1)
        return ZError();
    if (!samples)
        return ZError("No samples for a spectrum");
    if (length > maxLength)
        return ZError(ZString("Too many samples for a spectrum: ") + ZString(length) +
                      ", at most " + ZString(maxLength));
    ZError err = prepare(length);
    if (err)
        return err;

    // The newest samples.
    const double* s = samples + (count - length);
    const double* w = window.constData();
    for (unsigned int i = 0; i < length; i++)
        in[i] = w[i] * s[i];
    fftw_execute(plan);

    const unsigned int m = length / 2;
    const double scaleDb = 20.0 * std::log10(scale);
    const double binHz = sampleRate / length;
    points.resize(int(m));
    QPointF* p = points.data();
    for (unsigned int k = 0; k < m; k++) {
        const double magnitude = std::max(std::hypot(out[k][0], out[k][1]) / m, magnitudeFloor);
        p[k] = QPointF(k * binHz, 20.0 * std::log10(magnitude) - scaleDb);
    }
    return ZError();
}
