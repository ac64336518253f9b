// The raw capture page over a long capture, and the spectrum of one channel.
//
// Hour: one hour of a continuous 16 kHz capture of the 16 channels of a
// simulated unit, fed as fast as it goes: blocks of 13 rows are put into the
// unit manager as a unit's receive thread would and the page reads them. The
// counters give the resident memory at its peak and at the end, the samples
// kept per channel (the page's limit) and those dropped; "Drawn" draws the
// whole store once at the end, as a capture end would, and gives the memory
// after it.
//
// Spectrum: a transform of 1,000,000 samples with the plan kept, with a new
// plan each time, and 2^20 + 1 samples, which the page transforms as 2^20,
// against a plain FFTW transform of all 2^20 + 1.
//
//   capture_bench                                   everything
//   capture_bench --benchmark_filter=Spectrum       the transforms only
#include "control.h"
#include "simserver.h"
#include "simunit.h"
#include "spectrum.h"
#include "wcapture.h"

#include <benchmark/benchmark.h>

#include <fftw3.h>

#include <QApplication>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

// Resident memory in MB: "VmHWM" (peak) or "VmRSS" (now).
double residentMb(const char* field) {
    FILE* f = fopen("/proc/self/status", "r");
    if (!f)
        return -1.0;
    char line[256];
    double kb = -1.0;
    const size_t n = strlen(field);
    while (fgets(line, sizeof(line), f)) {
        if (strncmp(line, field, n) == 0 && line[n] == ':') {
            kb = atof(line + n + 1);
            break;
        }
    }
    fclose(f);
    return kb / 1024.0;
}

// A unit to take the channels from, a Control without a window (nothing
// queues notifications) and the page, shown.
struct Rig {
    Rig() : unit(options()), server(unit), control(nullptr) {
        ZError err;
        if ((err = server.start("127.0.0.1", 0)) || (err = control.init()) ||
            (err = control.unitAdd("unit1",
                                   "zoapn://127.0.0.1:" + ZString(unsigned(server.port())))) ||
            (err = control.unitsConnect()) || (err = control.update()) ||
            (err = control.dataSetNumStreams(1))) {
            fprintf(stderr, "capture_bench: %s\n", err.str().str());
            exit(1);
        }
        TavroApi::MeasurementConfig m = control.measurementConfig();
        m.measureMode = TavroApi::MeasureMode::Continuous;
        m.sampleRate = 16000.0;
        control.setMeasurement(m);
        view.reset(new WCapture(control));
        view->update(true);
        view->resize(1200, 800);
        view->show();
        QApplication::processEvents();
    }
    ~Rig() { view.reset(); }
    static TavroSim::SimOptions options() {
        TavroSim::SimOptions o;
        o.fast = true;
        return o;
    }

    TavroSim::SimUnit unit;
    TavroSim::SimTcpServer server;
    Control control;
    std::unique_ptr<WCapture> view;
};

void hour(benchmark::State& state, bool drawn) {
    const double rate = 16000.0;
    const uint64_t rows = uint64_t(rate * 3600.0);
    const unsigned int blockRows = 13;
    // Well below the page's backlog limit.
    const unsigned int batch = 500;
    for (auto _ : state) {
        Rig rig;
        TavroApi::TavroUnit1& unit = *rig.control.unit(1);
        TavroApi::DataBlockFloat b;
        b.numChannels = 16;
        b.numSamples = blockRows;
        b.status = 0x04;
        uint64_t row = 0;
        uint32_t sequence = 0;
        while (row < rows) {
            for (unsigned int n = 0; n < batch && row < rows; n++) {
                b.sequence = sequence++;
                for (unsigned int s = 0; s < blockRows; s++, row++)
                    for (unsigned int c = 0; c < 16; c++)
                        b.data[s * 16 + c] =
                            c < 8 ? float(std::sin(row * (c + 1) * 0.001)) : float((row >> c) & 1);
                rig.control.sendDataFloatQueue(unit, b);
            }
            rig.control.dataFlush(10000000);
            rig.view->dataReady();
        }
        if (drawn)
            rig.view->processData();
        state.counters["peak_rss_MB"] = residentMb("VmHWM");
        state.counters["end_rss_MB"] = residentMb("VmRSS");
        state.counters["channels"] = rig.view->getNumChans();
        state.counters["kept_per_channel"] = double(rig.view->getData(0).size());
        state.counters["cap_per_channel"] = rig.view->getMaxSamples();
        state.counters["dropped_per_channel"] = double(rig.view->getDroppedSamples());
        state.counters["rows"] = double(rig.view->getSampleCount());
        state.counters["stream_drops"] = double(rig.control.droppedBlocks(0));
    }
}

void BM_CaptureHour16kHz(benchmark::State& state) {
    hour(state, false);
}
void BM_CaptureHour16kHzDrawn(benchmark::State& state) {
    hour(state, true);
}

std::vector<double> signal(unsigned int n) {
    std::vector<double> v(n);
    for (unsigned int i = 0; i < n; i++)
        v[i] = std::sin(i * 0.0123) + 0.1 * std::sin(i * 1.7);
    return v;
}

void BM_SpectrumCachedPlan(benchmark::State& state) {
    const unsigned int n = unsigned(state.range(0));
    std::vector<double> v = signal(n);
    Spectrum spectrum;
    QVector<QPointF> points;
    spectrum.compute(v.data(), n, 16000.0, 1.0, points);
    for (auto _ : state) {
        spectrum.compute(v.data(), n, 16000.0, 1.0, points);
        benchmark::DoNotOptimize(points.data());
    }
    state.counters["length"] = spectrum.length();
}

void BM_SpectrumNewPlan(benchmark::State& state) {
    const unsigned int n = unsigned(state.range(0));
    std::vector<double> v = signal(n);
    Spectrum spectrum;
    QVector<QPointF> points;
    for (auto _ : state) {
        spectrum.release();
        spectrum.compute(v.data(), n, 16000.0, 1.0, points);
        benchmark::DoNotOptimize(points.data());
    }
    state.counters["length"] = spectrum.length();
}

// What a transform of every sample costs: plan, window, execute, destroy.
void BM_SpectrumPlainFftwAllSamples(benchmark::State& state) {
    const int n = int(state.range(0));
    std::vector<double> v = signal(unsigned(n));
    for (auto _ : state) {
        double* in = static_cast<double*>(fftw_malloc(sizeof(double) * n));
        fftw_complex* out =
            static_cast<fftw_complex*>(fftw_malloc(sizeof(fftw_complex) * (n / 2 + 1)));
        fftw_plan plan = fftw_plan_dft_r2c_1d(n, in, out, FFTW_ESTIMATE);
        for (int i = 0; i < n; i++)
            in[i] = 0.5 * (1.0 - std::cos(2.0 * M_PI * i / n)) * v[i];
        fftw_execute(plan);
        benchmark::DoNotOptimize(out[1][0]);
        fftw_destroy_plan(plan);
        fftw_free(in);
        fftw_free(out);
    }
}

} // namespace

BENCHMARK(BM_CaptureHour16kHz)->Unit(benchmark::kSecond)->Iterations(1);
BENCHMARK(BM_CaptureHour16kHzDrawn)->Unit(benchmark::kSecond)->Iterations(1);
BENCHMARK(BM_SpectrumCachedPlan)->Unit(benchmark::kMillisecond)->Arg(1000000)->Arg((1 << 20) + 1);
BENCHMARK(BM_SpectrumNewPlan)->Unit(benchmark::kMillisecond)->Arg(1000000)->Arg((1 << 20) + 1);
BENCHMARK(BM_SpectrumPlainFftwAllSamples)
    ->Unit(benchmark::kMillisecond)
    ->Arg(1000000)
    ->Arg((1 << 20) + 1);

int main(int argc, char** argv) {
    if (!getenv("QT_QPA_PLATFORM"))
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
