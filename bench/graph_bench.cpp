// Redraw cost of a Graph of 16 stacked curves, drawn as a min/max per pixel
// column (decimated) or point by point, on the offscreen platform.
//
//   graph_bench                          all cases
//   graph_bench --benchmark_filter=Full  point by point only
#include "graph.h"

#include <benchmark/benchmark.h>

#include <qwt_plot_canvas.h>

#include <QApplication>
#include <QImage>
#include <QPainter>

#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>

namespace {

const int curvesPerGraph = 16;

// One graph per length, filled once and shared by the cases.
struct Fixture {
    std::unique_ptr<Graph> graph;
    QVector<QVector<double>> data;
};

// Made and emptied by main, so that the widgets go before the application.
std::map<int, Fixture>* fixtures;

Fixture& fixture(int points) {
    Fixture& f = (*fixtures)[points];
    if (f.graph)
        return f;
    f.graph.reset(new Graph);
    Graph& g = *f.graph;
    g.init();
    g.setYAutoScale(true);
    g.setAxis(QwtPlot::yLeft, "Data Values", false, 0.0, double(curvesPerGraph));
    g.resize(1000, 600); // a canvas of about 950 x 570
    g.show();
    QApplication::processEvents();
    uint32_t seed = 1;
    for (int c = 0; c < curvesPerGraph; c++) {
        g.addCurve(ZString("Channel ") + ZString(c), QPen(QColor::fromHsv(c * 22, 255, 255)));
        QVector<double> v(points);
        for (int i = 0; i < points; i++) {
            seed = seed * 1664525u + 1013904223u;
            v[i] = std::sin(i * 0.001 * (c + 1)) + (seed >> 8) / double(1 << 24) * 0.2;
        }
        f.data.append(v);
        g.setData(unsigned(c), f.data[c]);
    }
    return f;
}

// Draws the canvas as its paint event would: background, grid, curves.
void drawCanvas(Graph& g, QImage& image) {
    image.fill(Qt::black);
    QPainter painter(&image);
    g.drawCanvas(&painter);
}

QImage canvasImage(Graph& g) {
    return QImage(g.canvas()->size(), QImage::Format_RGB32);
}

// Repaint of unchanged data and view (the reduced points are kept).
void redraw(benchmark::State& state, bool decimated) {
    Fixture& f = fixture(int(state.range(0)));
    Graph& g = *f.graph;
    g.setDecimation(decimated);
    QImage image = canvasImage(g);
    for (auto _ : state)
        drawCanvas(g, image);
    state.counters["points"] = double(curvesPerGraph) * state.range(0);
    state.counters["drawn"] = g.getDrawnPoints(0) * double(curvesPerGraph);
}

// New samples for every curve, then a redraw: what a capture view does per
// block (scaling, the reduction for the new points, drawing).
void newData(benchmark::State& state, bool decimated) {
    Fixture& f = fixture(int(state.range(0)));
    Graph& g = *f.graph;
    g.setDecimation(decimated);
    QImage image = canvasImage(g);
    for (auto _ : state) {
        for (int c = 0; c < curvesPerGraph; c++)
            g.setData(unsigned(c), f.data[c]);
        drawCanvas(g, image);
    }
}

void BM_RedrawDecimated(benchmark::State& state) {
    redraw(state, true);
}
void BM_RedrawFull(benchmark::State& state) {
    redraw(state, false);
}
void BM_NewDataDecimated(benchmark::State& state) {
    newData(state, true);
}
void BM_NewDataFull(benchmark::State& state) {
    newData(state, false);
}

BENCHMARK(BM_RedrawDecimated)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RedrawFull)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NewDataDecimated)
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NewDataFull)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    if (!getenv("QT_QPA_PLATFORM"))
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    std::map<int, Fixture> graphs;
    fixtures = &graphs;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    graphs.clear();
    return 0;
}
