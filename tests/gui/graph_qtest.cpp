#include "graph.h"

#include <qwt_plot_canvas.h>
#include <qwt_scale_draw.h>
#include <qwt_scale_map.h>

#include <QSignalSpy>
#include <QWheelEvent>
#include <QtTest>

#include <cmath>

namespace {

QwtPlotCurve* curveOf(Graph& g, int n) {
    return static_cast<QwtPlotCurve*>(g.itemList(QwtPlotItem::Rtti_PlotCurve).at(n));
}

bool sameYs(Graph& g, int n, const QVector<double>& expected) {
    const QwtSeriesData<QPointF>* d = curveOf(g, n)->data();
    bool same = d->size() == size_t(expected.size());
    for (int i = 0; same && i < expected.size(); i++)
        same = std::fabs(d->sample(size_t(i)).y() - expected[i]) < 1e-12;
    return same;
}

void addCurves(Graph& g, int n) {
    for (int i = 0; i < n; i++)
        g.addCurve(ZString("c") + ZString(i), QPen(Qt::green));
}

void wheel(Graph& g, int dx, int dy, bool shift) {
    QWheelEvent e(QPointF(20, 20), QPointF(20, 20), QPoint(), QPoint(dx, dy), Qt::NoButton,
                  shift ? Qt::ShiftModifier : Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(&g, &e);
}

// Kind 0 a sine, 1 noise, 2 a square wave, 3 sparse spikes.
QVector<double> signal(int kind, int n) {
    QVector<double> v(n);
    uint32_t seed = 12345;
    for (int i = 0; i < n; i++) {
        seed = seed * 1664525u + 1013904223u;
        const double r = (seed >> 8) / double(1 << 24);
        const double values[] = {std::sin(i * 2 * M_PI / 3777.0), r - 0.5,
                                 (i / 1013) % 2 ? 1.0 : -1.0, i % 1931 == 17 ? 0.2 + r : 0.0};
        v[i] = values[kind];
    }
    return v;
}

// Per pixel column of the canvas: the first and last row drawn in green.
QVector<QPair<int, int>> extents(Graph& g) {
    const QImage img = g.grab().toImage().convertToFormat(QImage::Format_RGB32);
    const QRect area = g.canvas()->contentsRect().translated(g.canvas()->pos());
    QVector<QPair<int, int>> out;
    for (int x = area.left(); x <= area.right(); x++) {
        int top = -1, bottom = -1;
        for (int y = area.top(); y <= area.bottom(); y++) {
            const QRgb c = img.pixel(x, y);
            if (qGreen(c) > 64 && qRed(c) < 32 && qBlue(c) < 32) {
                if (top < 0)
                    top = y;
                bottom = y;
            }
        }
        out.append(qMakePair(top, bottom));
    }
    return out;
}

} // namespace

class GraphTest : public QObject {
    Q_OBJECT
private slots:
    void curvesAndErrors();
    void scalesAndBands();
    void xAxisAndWheel();
    void wheelActiveCurve();
    void reduce();
    void decimatedDrawingMatchesFull();
};

void GraphTest::curvesAndErrors() {
    Graph g;
    addCurves(g, 2);
    double v[2] = {1, 2}, a = 7, b = 7;
    QVector<double> vec{1, 2};
    QVector<QPointF> pts{{0, 1}};
    for (unsigned int n : {2u, 4294967295u}) {
        const ZError errs[] = {g.setData(n, v, 2),      g.setData(n, vec), g.setData(n, pts),
                               g.setYOffset(n, 1),      g.setYScale(n, 1), g.getYMinMax(n, a, b),
                               g.setColour(n, Qt::red), g.replotChan(n)};
        for (const ZError& e : errs) {
            QCOMPARE(e.num(), 1);
            QCOMPARE(QString(e.str().retStr()), QString("No such curve: %1").arg(n));
        }
        QCOMPARE(g.getYOffset(n), 0.0);
        QCOMPARE(g.getYScale(n), 1.0);
        g.setLegend(n, "ignored");
    }
    QCOMPARE(a, 7.0);
    // Bad sample arrays are refused; an empty one changes nothing.
    QCOMPARE(g.setData(0, nullptr, 3).num(), 1);
    QCOMPARE(QString(g.setData(0, v, -1).str().retStr()), QString("Bad sample array for curve 0"));
    QVERIFY(!g.setData(0, nullptr, 0));
    QCOMPARE(curveOf(g, 0)->dataSize(), size_t(0));
    // clear() keeps the grid.
    g.init();
    g.clear();
    QCOMPARE(g.getNumCurves(), 0u);
    QCOMPARE(g.itemList(QwtPlotItem::Rtti_PlotCurve).size(), 0);
    QCOMPARE(g.itemList(QwtPlotItem::Rtti_PlotGrid).size(), 1);
}

void GraphTest::scalesAndBands() {
    // One auto-scaled curve: scale 1, offset 0, whatever was stored.
    Graph one;
    addCurves(one, 1);
    one.setYAutoScale(true);
    one.setYScale(0, 5);
    one.setYOffset(0, 3);
    double d1[] = {10, 20, 30};
    QVERIFY(!one.setData(0, d1, 3));
    QCOMPARE(one.getYScale(0), 1.0);
    QCOMPARE(one.getYOffset(0), 0.0);
    QVERIFY(sameYs(one, 0, {10, 20, 30}));
    // Three: bands of height 1 around the means, curve 0 on top.
    Graph g;
    addCurves(g, 3);
    g.setYAutoScale(true);
    g.setDataXScale(0.5);
    QVector<double> c0{0, 4, 2}, c1{0, 0, 0, 4}, c2{7, 10, 7, 4};
    QVERIFY(!g.setData(0, c0) && !g.setData(1, c1) && !g.setData(2, c2));
    QCOMPARE(g.getYScale(0), 0.25);
    QCOMPARE(g.getYOffset(0), -0.5);
    QCOMPARE(g.getYOffset(1), -0.25);
    QCOMPARE(g.getYScale(2), 1.0 / 6);
    QVERIFY(sameYs(g, 0, {1.5, 2.5, 2.0}));
    QVERIFY(sameYs(g, 1, {0.75, 0.75, 0.75, 1.75}));
    QVERIFY(sameYs(g, 2, {0.0, 0.5, 0.0, -0.5}));
    QCOMPARE(curveOf(g, 1)->sample(3).x(), 1.5);
    double min = 0, max = 0;
    QVERIFY(!g.getYMinMax(0, min, max));
    QCOMPARE(qMakePair(min, max), qMakePair(1.5, 2.5));
    // A constant curve of 2.0 gets 0.5 / 2; one of zeros an infinite scale.
    QVector<double> two(50, 2.0), zero(50, 0.0);
    QVERIFY(!g.setData(1, two));
    QCOMPARE(g.getYScale(1), 0.25);
    QCOMPARE(g.getYOffset(1), 0.0);
    QCOMPARE(curveOf(g, 1)->sample(0).y(), 1.5);
    QVERIFY(!g.setData(2, zero));
    QVERIFY(std::isinf(g.getYScale(2)));
    g.resize(400, 300);
    QVERIFY(!g.grab().isNull()); // drawn without a hang or a crash
    // Fixed scales: the stored values, the band added, the offset unchanged.
    g.setYAutoScale(false);
    QVERIFY(!g.setYScale(0, 2) && !g.setYOffset(0, 1));
    QVector<double> d{1, 2};
    QVERIFY(!g.setData(0, d));
    QVERIFY(sameYs(g, 0, {5, 7}));
    QCOMPARE(g.getYOffset(0), 1.0);
}

void GraphTest::xAxisAndWheel() {
    Graph g;
    addCurves(g, 1);
    QVector<double> d(100, 1.0);
    QVERIFY(!g.setData(0, d)); // xLow 0, xRange 100
    QSignalSpy offsets(&g, &Graph::xOffsetChanged);
    QSignalSpy scales(&g, &Graph::xScaleChanged);
    double min = 0, max = 0;
    auto axis = [&] {
        g.getXMinMax(min, max);
        return qMakePair(min, max);
    };
    auto setAxis = [&g](double a, double b) {
        g.setAxisScale(QwtPlot::xBottom, a, b);
        g.replot();
    };
    setAxis(30, 50);
    g.setXOffset(5); // inside the limits: the view stays
    QCOMPARE(axis(), qMakePair(30.0, 50.0));
    g.setXOffset(100);
    QCOMPARE(axis(), qMakePair(30.0, 50.0));
    g.setXOffset(-1);
    QCOMPARE(axis(), qMakePair(0.0, 20.0));
    g.setXOffset(150);
    QCOMPARE(axis(), qMakePair(80.0, 100.0));
    g.setXScale(4);
    QCOMPARE(axis(), qMakePair(80.0, 105.0));
    g.setXScale(0); // refused: no infinite axis
    QCOMPARE(axis(), qMakePair(80.0, 105.0));
    g.setXRange(5);
    QCOMPARE(axis(), qMakePair(80.0, 85.0));
    QCOMPARE(offsets.size() + scales.size(), 0);
    // Pan by a quarter of the width per notch, held within [0, xRange].
    setAxis(0, 20);
    wheel(g, 0, 120, false);
    QCOMPARE(axis(), qMakePair(5.0, 25.0));
    wheel(g, 0, -240, false);
    QCOMPARE(axis(), qMakePair(0.0, 20.0));
    setAxis(75, 95);
    wheel(g, 0, 120, false);
    QCOMPARE(axis(), qMakePair(80.0, 100.0));
    // Zoom: halving stops at 1.0; the axis is xRange / xScale wide.
    g.setXScale(1);
    wheel(g, 0, -120, true);
    QCOMPARE(g.getXScale(), 1.0);
    QCOMPARE(axis(), qMakePair(80.0, 180.0));
    wheel(g, 0, 120, true);
    QCOMPARE(g.getXScale(), 2.0);
    QCOMPARE(axis(), qMakePair(80.0, 130.0));
    QList<double> got;
    for (const QList<QVariant>& args : offsets + scales)
        got.append(args.at(0).toDouble());
    QCOMPARE(got, (QList<double>{5, 0, 80, 80, 80, 1, 2})); // offsets, then scales
}

void GraphTest::wheelActiveCurve() {
    Graph g;
    addCurves(g, 2);
    QVector<double> d{1, 2};
    g.setData(1, d);
    g.setYActive(1);
    QSignalSpy offsets(&g, &Graph::yOffsetChanged);
    QSignalSpy scales(&g, &Graph::yScaleChanged);
    QSignalSpy xOffsets(&g, &Graph::xOffsetChanged);
    wheel(g, 120, 0, false);
    QCOMPARE(g.getYOffset(1), 0.12);
    QVERIFY(sameYs(g, 1, {1.12, 2.12}));
    for (int dx : {120, 120, -120})
        wheel(g, dx, 0, true);
    QCOMPARE(g.getYScale(1), 2.0);
    QCOMPARE(offsets.at(0), (QList<QVariant>{1u, 0.12}));
    QCOMPARE(scales.at(2), (QList<QVariant>{1u, 2.0}));
    // No active curve, or one that does not exist: nothing changes.
    g.setYActive(-1);
    wheel(g, 120, 0, false);
    g.setYActive(7);
    wheel(g, 120, 0, true);
    QCOMPARE(offsets.size() + scales.size() + xOffsets.size(), 4);
    QCOMPARE(g.getYOffset(1), 0.12);
}

void GraphTest::reduce() {
    // A million points with ten in view: those, and the neighbours either
    // side moved along their lines to just beside the canvas.
    QVector<QPointF> pts(1000000);
    for (int i = 0; i < pts.size(); i++)
        pts[i] = QPointF(i, i % 2 ? 1.0 : -1.0);
    QwtScaleMap map;
    map.setScaleInterval(500000, 500010);
    map.setPaintInterval(0, 1000);
    QVector<QPointF> out;
    QVERIFY(GraphPlotCurve::reduce(pts, map, -5, 1005, out));
    QCOMPARE(out.size(), 13);
    QCOMPARE(out[1], QPointF(500000, -1));
    QCOMPARE(qRound(map.transform(out.first().x())), -6);
    QCOMPARE(out.first().y(), 1.0 - 2 * (out.first().x() - 499999));
    QCOMPARE(qRound(map.transform(out.last().x())), 1006);
    // Sparse points all in view are left as they are.
    map.setScaleInterval(0, 1e6);
    QVERIFY(!GraphPlotCurve::reduce(pts.mid(0, 3), map, 0, 1000, out));
    // Unsorted points are never bucketed.
    Graph g;
    addCurves(g, 1);
    g.resize(600, 400);
    pts.resize(5000);
    std::swap(pts[10], pts[20]);
    QVERIFY(!g.setData(0, pts));
    g.setAxisScale(QwtPlot::xBottom, 0, 5000);
    g.replot();
    g.grab();
    QCOMPARE(g.getDrawnPoints(0), 5000);
}

// Per pixel column, the rows drawn with and without decimation differ by at
// most one at either end, for whole traces and zoomed views.
void GraphTest::decimatedDrawingMatchesFull() {
    const struct {
        int kind;        // of signal()
        double from, to; // the X axis; whole when from < 0
    } cases[] = {{0, -1, -1}, {1, -1, -1},       {2, -1, -1},
                 {3, -1, -1}, {1, 10000, 30000}, {0, 20000.5, 20400.5}};
    const int n = 60000;
    Graph g;
    g.setCanvasBackground(Qt::black);
    g.addCurve("c", QPen(Qt::green));
    g.resize(800, 500);
    g.show();
    QVERIFY(QTest::qWaitForWindowExposed(&g));
    for (const auto& c : cases) {
        QVector<double> d = signal(c.kind, n);
        QVERIFY(!g.setData(0, d));
        if (c.from >= 0)
            g.setAxisScale(QwtPlot::xBottom, c.from, c.to);
        g.setAxisScale(QwtPlot::yLeft, -1.5, 1.5);
        g.replot();
        g.setDecimation(false);
        const QVector<QPair<int, int>> full = extents(g);
        QCOMPARE(g.getDrawnPoints(0), n);
        g.setDecimation(true);
        const QVector<QPair<int, int>> reduced = extents(g);
        int lit = 0;
        for (int x = 0; x < full.size(); x++) {
            const auto a = full[x], b = reduced[x];
            const bool same = (a.first < 0) == (b.first < 0) && qAbs(a.first - b.first) <= 1 &&
                              qAbs(a.second - b.second) <= 1;
            QVERIFY2(same,
                     qPrintable(QString("%1 from %2: column %3").arg(c.kind).arg(c.from).arg(x)));
            lit += a.first >= 0;
        }
        QVERIFY(lit > full.size() / 2); // the comparison saw a trace
        const int columns = g.canvas()->width();
        QVERIFY(g.getDrawnPoints(0) <= 4 * (columns + 12));
        QVERIFY(c.from >= 0 || g.getDrawnPoints(0) >= columns);
    }
}

QTEST_MAIN(GraphTest)
#include "graph_qtest.moc"
