// The spectrum of one channel: smooth transform lengths, peaks of known
// sines, the plan kept while the length stays, and refused input.
#include "spectrum.h"

#include <QtTest>

#include <cmath>
#include <vector>

namespace {

// Oracle: n has no prime factor above 5.
bool isSmooth(unsigned int n) {
    for (unsigned int p : {2u, 3u, 5u})
        while (n && n % p == 0)
            n /= p;
    return n == 1;
}

// n samples of a sine after junk samples, which a transform of n leaves out.
std::vector<double> sine(unsigned int n, double amplitude, double hz, double rate,
                         unsigned int junk = 0) {
    std::vector<double> v(junk, 1e6);
    for (unsigned int i = 0; i < n; i++)
        v.push_back(amplitude * std::sin(2.0 * M_PI * hz * i / rate));
    return v;
}

} // namespace

class SpectrumTest : public QObject {
    Q_OBJECT

private slots:
    void smoothLength();
    void sinePeak();
    void constantAndSilence();
    void planKeptWhileLengthStays();
    void refused();
};

void SpectrumTest::smoothLength() {
    unsigned int expected = 0;
    for (unsigned int n = 0; n <= 20000; n++) {
        if (isSmooth(n))
            expected = n;
        QCOMPARE(Spectrum::smoothLength(n), expected);
    }
    const unsigned int large[][2] = {{1u << 20, 1u << 20},       {(1u << 20) + 1, 1u << 20},
                                     {1000003, 1000000},         {2880000, 2880000},
                                     {2147483647u, 2125764000u}, {4294967295u, 4271484375u}};
    for (const auto& l : large)
        QCOMPARE(Spectrum::smoothLength(l[0]), l[1]);
}

void SpectrumTest::sinePeak() {
    // On a bin the periodic Hann window gives |X| = A N / 4: A / 2 after
    // dividing by N / 2 (rounded down for an odd N).
    const struct {
        unsigned int n;
        double rate, hz, amplitude, scale, level;
    } cases[] = {
        {16000, 16000.0, 1000.0, 5.0, 1.0, 20.0 * std::log10(2.5)},
        {4096, 8192.0, 512.0, 1.0, 100.0, 20.0 * std::log10(0.5) - 40.0},
        {2187, 2187.0, 100.0, 4.0, 1.0, 20.0 * std::log10(2.0 * 2187.0 / 2186.0)}, // 3^7
    };
    for (const auto& c : cases) {
        // Three older samples ahead of the sine: only the newest n count.
        std::vector<double> s = sine(c.n, c.amplitude, c.hz, c.rate, 3);
        Spectrum spectrum;
        QVector<QPointF> p;
        QVERIFY(!spectrum.compute(s.data(), c.n + 3, c.rate, c.scale, p));
        QCOMPARE(spectrum.length(), c.n);
        QCOMPARE(p.size(), int(c.n / 2));
        QCOMPARE(p[0].x(), 0.0);
        QVERIFY(qAbs(p.last().x() - (c.n / 2 - 1) * c.rate / c.n) < 1e-9);
        int k = 0;
        for (int i = 1; i < p.size(); i++)
            if (p[i].y() > p[k].y())
                k = i;
        QVERIFY(qAbs(p[k].x() - c.hz) < 1e-9);
        QVERIFY2(qAbs(p[k].y() - c.level) < 1e-6, qPrintable(QString::number(p[k].y())));
        // The window spreads half the amplitude to each neighbour (-6.02 dB)
        // and nothing anywhere else.
        for (int i = 0; i < p.size(); i++) {
            if (qAbs(i - k) == 1)
                QVERIFY(qAbs(p[i].y() - (c.level + 20.0 * std::log10(0.5))) < 1e-6);
            else if (i != k)
                QVERIFY2(p[i].y() < c.level - 150.0, qPrintable(QString::number(i)));
        }
    }
}

void SpectrumTest::constantAndSilence() {
    Spectrum spectrum;
    QVector<QPointF> p;
    // A constant c sums to c N / 2 under the window: 20 log10(c) at 0 Hz.
    std::vector<double> dc(8, 3.0);
    QVERIFY(!spectrum.compute(dc.data(), 8, 8.0, 1.0, p));
    QCOMPARE(p.size(), 4);
    QVERIFY(qAbs(p[0].y() - 20.0 * std::log10(3.0)) < 1e-9);
    QVERIFY(qAbs(p[1].y() - 20.0 * std::log10(1.5)) < 1e-9);
    // Silence gives the floor, never -inf.
    std::vector<double> zero(64, 0.0);
    QVERIFY(!spectrum.compute(zero.data(), 64, 64.0, 1.0, p));
    QCOMPARE(p.size(), 32);
    for (const QPointF& q : p)
        QCOMPARE(q.y(), -400.0);
    // One sample or none: nothing to draw, no failure.
    QVERIFY(!spectrum.compute(zero.data(), 1, 64.0, 1.0, p));
    QVERIFY(p.isEmpty());
    QVERIFY(!spectrum.compute(nullptr, 0, 64.0, 1.0, p));
    QVERIFY(p.isEmpty());
}

void SpectrumTest::planKeptWhileLengthStays() {
    Spectrum spectrum;
    std::vector<double> s = sine(1000, 1.0, 10.0, 100.0);
    QVector<QPointF> first, p;
    QVERIFY(!spectrum.compute(s.data(), 1000, 100.0, 1.0, first));
    // 1000 to 1023 samples all transform the last 1000 with the one plan.
    for (unsigned int junk : {0u, 1u, 23u}) {
        std::vector<double> v = sine(1000, 1.0, 10.0, 100.0, junk);
        QVERIFY(!spectrum.compute(v.data(), 1000 + junk, 100.0, 1.0, p));
        QCOMPARE(spectrum.plansMade(), 1u);
        QCOMPARE(p, first);
    }
    std::vector<double> v = sine(1000, 1.0, 10.0, 100.0, 24);
    QVERIFY(!spectrum.compute(v.data(), 1024, 100.0, 1.0, p));
    QCOMPARE(spectrum.length(), 1024u);
    QCOMPARE(spectrum.plansMade(), 2u);
    spectrum.release();
    QCOMPARE(spectrum.length(), 0u);
    QVERIFY(!spectrum.compute(s.data(), 1000, 100.0, 1.0, p));
    QCOMPARE(spectrum.plansMade(), 3u);
    QCOMPARE(p, first);
}

void SpectrumTest::refused() {
    const struct {
        unsigned int count; // 2^28 is refused before a sample is read
        double rate, scale;
        bool samples;
        const char* error;
    } cases[] = {
        {16, 0.0, 1.0, true, "Invalid sample rate for a spectrum: 0.000000"},
        {16, NAN, 1.0, true, "Invalid sample rate for a spectrum: nan"},
        {16, 100.0, 0.0, true, "Invalid channel scale for a spectrum: 0.000000"},
        {16, 100.0, INFINITY, true, "Invalid channel scale for a spectrum: inf"},
        {16, 100.0, 1.0, false, "No samples for a spectrum"},
        {1u << 28, 100.0, 1.0, true,
         "Too many samples for a spectrum: 268435456, at most 134217728"},
    };
    std::vector<double> s(16, 1.0);
    for (const auto& c : cases) {
        Spectrum spectrum;
        QVector<QPointF> p(3);
        ZError err = spectrum.compute(c.samples ? s.data() : nullptr, c.count, c.rate, c.scale, p);
        QCOMPARE(err.num(), 1);
        QCOMPARE(QString(err.str().str()), QString(c.error));
        QVERIFY(p.isEmpty());
        QCOMPARE(spectrum.length(), 0u);
    }
}

QTEST_APPLESS_MAIN(SpectrumTest)
#include "spectrum_qtest.moc"
