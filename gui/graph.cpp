#include "graph.h"

#include <qwt_interval.h>
#include <qwt_plot_canvas.h>
#include <qwt_plot_grid.h>
#include <qwt_plot_legenditem.h>
#include <qwt_scale_draw.h>
#include <qwt_scale_map.h>
#include <qwt_scale_widget.h>

#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace {

QString toQString(const ZString& s) {
    return QString::fromUtf8(s.retStr(), s.len());
}

// Qwt puts a point in the pixel column qRound(xMap.transform(x)); this is
// the same rounding without the overflow of an int far off the canvas.
inline double pixelColumn(const QwtScaleMap& xMap, double x) {
    return std::floor(xMap.transform(x) + 0.5);
}

} // namespace

// GraphSeries

void GraphSeries::setPoints(const QVector<QPointF>& p, bool sortedX, const QRectF* rect) {
    points = p;
    values.reset();
    valueCount = 0;
    generation++;
    rectValid = rect != nullptr;
    if (rect)
        d_boundingRect = *rect;
    sorted = sortedX;
    if (!sorted) {
        // The negated test also catches NaN.
        sorted = true;
        const QPointF* d = points.constData();
        for (int i = 0; i < points.size(); i++) {
            if (!std::isfinite(d[i].x()) || (i > 0 && !(d[i].x() >= d[i - 1].x()))) {
                sorted = false;
                break;
            }
        }
    }
}

void GraphSeries::setValues(std::shared_ptr<const QVector<double>> v, int n, double step,
                            double yScale, double yOffset, const QRectF& rect) {
    points = QVector<QPointF>();
    values = std::move(v);
    valueCount = values ? std::max(0, n) : 0;
    dx = step;
    scale = yScale;
    offset = yOffset;
    generation++;
    d_boundingRect = rect;
    rectValid = true;
    sorted = std::isfinite(dx) && dx >= 0 && std::isfinite(valueCount * dx);
}

size_t GraphSeries::size() const {
    return view ? size_t(view->size()) : size_t(count());
}

QPointF GraphSeries::sample(size_t i) const {
    return view ? view->at(int(i)) : point(int(i));
}

QRectF GraphSeries::boundingRect() const {
    if (!rectValid) {
        // As qwtBoundingRect() finds it, without a virtual call per point.
        QRectF r(1.0, 1.0, -2.0, -2.0);
        const int n = count();
        if (n > 0) {
            const QPointF first = point(0);
            double left = first.x(), right = left, top = first.y(), bottom = top;
            for (int i = 1; i < n; i++) {
                const QPointF p = point(i);
                left = qMin(left, p.x());
                right = qMax(right, p.x());
                top = qMin(top, p.y());
                bottom = qMax(bottom, p.y());
            }
            r = QRectF(QPointF(left, top), QPointF(right, bottom));
        }
        d_boundingRect = r;
        rectValid = true;
    }
    return d_boundingRect;
}

// GraphPlotCurve

GraphPlotCurve::GraphPlotCurve(const QString& title)
    : QwtPlotCurve(title), decimation(true), drawnPoints(0), viewGeneration(0), viewS1(0),
      viewS2(0), viewP1(0), viewP2(0), viewLeft(0), viewRight(0), viewReduced(false),
      viewValid(false) {
    setData(new GraphSeries);
}

GraphSeries* GraphPlotCurve::series() const {
    return dynamic_cast<GraphSeries*>(const_cast<GraphPlotCurve*>(this)->data());
}

GraphSeries* GraphPlotCurve::ownSeries() {
    GraphSeries* s = series();
    if (!s) {
        // Somebody gave the curve other series data: take over again.
        s = new GraphSeries;
        setData(s);
    }
    viewValid = false;
    view.clear();
    return s;
}

void GraphPlotCurve::setPoints(const QVector<QPointF>& points, bool sortedX, const QRectF* rect) {
    ownSeries()->setPoints(points, sortedX, rect);
    dataChanged();
}

void GraphPlotCurve::setValues(std::shared_ptr<const QVector<double>> values, int count, double dx,
                               double scale, double offset, const QRectF& rect) {
    ownSeries()->setValues(std::move(values), count, dx, scale, offset, rect);
    dataChanged();
}

void GraphPlotCurve::setDecimation(bool on) {
    decimation = on;
    viewValid = false;
    view.clear();
    itemChanged();
}

namespace {

// The reduction of GraphPlotCurve::reduce over n points, point i being at(i).
template <class At>
bool reducePoints(int n, At at, const QwtScaleMap& xMap, double left, double right,
                  QVector<QPointF>& out) {
    out.clear();
    if (n < 3 || xMap.transformation())
        return false;
    const double s1 = xMap.s1(), s2 = xMap.s2(), p1 = xMap.p1(), p2 = xMap.p2();
    if (!std::isfinite(s1) || !std::isfinite(s2) || !std::isfinite(p1) || !std::isfinite(p2) ||
        s1 == s2 || p1 == p2 || !std::isfinite(left) || !std::isfinite(right) || left > right)
        return false;

    // key() is the pixel column made non-decreasing along the points
    // (X sorted ascending; an inverted axis maps them right to left).
    const double sign = ((p2 - p1) > 0) == ((s2 - s1) > 0) ? 1.0 : -1.0;
    auto key = [&](int i) { return sign * pixelColumn(xMap, at(i).x()); };
    const double kMin = sign > 0 ? left : -right;
    const double kMax = sign > 0 ? right : -left;
    // The first index in [from, n) whose key fails below(key).
    auto partition = [&](int from, auto below) {
        int a = from, b = n;
        while (a < b) {
            const int m = a + (b - a) / 2;
            if (below(key(m)))
                a = m + 1;
            else
                b = m;
        }
        return a;
    };

    // Points on the canvas plus the one either side whose line enters it.
    const int firstIn = partition(0, [&](double k) { return k < kMin; });
    const int pastIn = partition(firstIn, [&](double k) { return k <= kMax; });
    int lo = firstIn;
    int hi = pastIn - 1;
    if (lo > 0)
        lo--;
    if (hi < n - 1)
        hi++;
    if (hi < lo)
        return false;
    const double columns = kMax - kMin + 1;
    const int count = hi - lo + 1;

    if (count < 2.0 * columns) {
        if (count == n)
            return false; // everything is in view and sparse: draw it as it is
        out.reserve(count);
        for (int i = lo; i <= hi; i++)
            out.append(at(i));
    } else {
        out.reserve(int(std::min(double(count), 4.0 * (columns + 2))));
        int i = lo;
        while (i <= hi) {
            // The run [i, end) shares one column: gallop, then bisect.
            const double k = key(i);
            int a = i, b = i + 1, step = 1;
            while (b <= hi && key(b) == k) {
                a = b;
                step *= 2;
                b = a + step;
            }
            if (b > hi + 1)
                b = hi + 1;
            while (b - a > 1) {
                const int m = a + (b - a) / 2;
                if (key(m) == k)
                    a = m;
                else
                    b = m;
            }
            const int last = b - 1;
            int iMin = i, iMax = i;
            double yMin = at(i).y(), yMax = yMin;
            for (int j = i + 1; j <= last; j++) {
                const double y = at(j).y();
                if (y < yMin) {
                    yMin = y;
                    iMin = j;
                } else if (y > yMax) {
                    yMax = y;
                    iMax = j;
                }
            }
            // First, lowest and highest in the order they came, last: the
            // lines in and out of the column and its vertical extent stay.
            int keep[4] = {i, std::min(iMin, iMax), std::max(iMin, iMax), last};
            int prev = -1;
            for (int idx : keep) {
                if (idx != prev)
                    out.append(at(idx));
                prev = idx;
            }
            i = b;
        }
    }

    // A neighbour far off the canvas is moved along its line to just beside
    // it, so that no pixel position handed on is out of an int's range.
    auto pullIn = [&](int outer, int inner, double column) {
        QPointF& p = out[outer];
        const QPointF& q = out[inner];
        const double px = pixelColumn(xMap, p.x());
        if (std::fabs(px - column) <= 1.0 || q.x() == p.x())
            return;
        const double x = xMap.invTransform(column);
        const double t = (x - p.x()) / (q.x() - p.x());
        if (t > 0 && t < 1)
            p = QPointF(x, p.y() + t * (q.y() - p.y()));
    };
    if (out.size() >= 2) {
        pullIn(0, 1, sign > 0 ? left - 1 : right + 1);
        pullIn(out.size() - 1, out.size() - 2, sign > 0 ? right + 1 : left - 1);
    }
    return true;
}

} // namespace

bool GraphPlotCurve::reduce(const QVector<QPointF>& points, const QwtScaleMap& xMap, double left,
                            double right, QVector<QPointF>& out) {
    const QPointF* d = points.constData();
    return reducePoints(
        points.size(), [d](int i) { return d[i]; }, xMap, left, right, out);
}

void GraphPlotCurve::drawSeries(QPainter* painter, const QwtScaleMap& xMap, const QwtScaleMap& yMap,
                                const QRectF& canvasRect, int from, int to) const {
    GraphSeries* s = series();
    if (!s || !decimation || !s->isSorted() || from != 0 || to >= 0 ||
        style() != QwtPlotCurve::Lines || testCurveAttribute(QwtPlotCurve::Fitted)) {
        drawnPoints = to >= 0 ? to - from + 1 : int(dataSize()) - from;
        QwtPlotCurve::drawSeries(painter, xMap, yMap, canvasRect, from, to);
        return;
    }

    // Columns that can show anything: the canvas widened by the pen.
    const double margin = std::ceil(std::max(1.0, pen().widthF())) + 2;
    const double left = std::floor(canvasRect.left()) - margin;
    const double right = std::ceil(canvasRect.right()) + margin;
    if (!viewValid || viewGeneration != s->getGeneration() || viewS1 != xMap.s1() ||
        viewS2 != xMap.s2() || viewP1 != xMap.p1() || viewP2 != xMap.p2() || viewLeft != left ||
        viewRight != right) {
        viewReduced = reducePoints(
            s->count(), [s](int i) { return s->point(i); }, xMap, left, right, view);
        viewGeneration = s->getGeneration();
        viewS1 = xMap.s1();
        viewS2 = xMap.s2();
        viewP1 = xMap.p1();
        viewP2 = xMap.p2();
        viewLeft = left;
        viewRight = right;
        viewValid = true;
    }
    if (!viewReduced) {
        drawnPoints = int(dataSize());
        QwtPlotCurve::drawSeries(painter, xMap, yMap, canvasRect, 0, -1);
        return;
    }
    drawnPoints = view.size();
    if (view.isEmpty())
        return;
    s->setView(&view);
    QwtPlotCurve::drawSeries(painter, xMap, yMap, canvasRect, 0, view.size() - 1);
    s->setView(nullptr);
}

// Graph

Graph::Graph(QWidget* parent)
    : QwtPlot(parent), numCurves(0), dataXScale(1.0), xLow(0.0), xRange(0.0), xScale(1.0),
      yActive(0), yAutoScale(false), yMin(0.0), yMax(0.0), decimation(true), grid(nullptr),
      legendItem(nullptr) {
    // Qwt makes its plots MinimumExpanding, which turns the size hint into a
    // minimum: pages of several plots would not fit a laptop screen.
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

Graph::~Graph() {
    // The plot deletes the items still attached to it.
}

ZError Graph::noSuchCurve(unsigned int n) {
    return ZError(ZString("No such curve: ") + ZString(n));
}

GraphPlotCurve* Graph::plotCurve(unsigned int n) const {
    return static_cast<GraphPlotCurve*>(curves[int(n)].curve);
}

void Graph::init() {
    setCanvasBackground(QBrush(QColor(0, 0, 0, 255)));
    if (!grid) {
        grid = new QwtPlotGrid;
        grid->setPen(QPen(Qt::white, 0.0, Qt::DotLine));
        grid->attach(this);
    }
}

void Graph::clear() {
    for (GraphCurve& c : curves) {
        c.curve->detach();
        delete c.curve;
    }
    curves.clear();
    numCurves = 0;
    replot();
}

void Graph::addCurve(ZString name, QPen pen) {
    GraphPlotCurve* curve = new GraphPlotCurve(toQString(name));
    curve->setPen(pen);
    curve->setRenderHint(QwtPlotItem::RenderAntialiased, true);
    curve->setDecimation(decimation);
    if (legendItem)
        curve->setLegendIconSize(QSize(20, 20));
    curve->attach(this);
    GraphCurve c;
    c.yScale = 1.0;
    c.yOffset = 0.0;
    c.curve = curve;
    curves.append(c);
    numCurves = curves.number();
}

void Graph::setAxis(int axis, ZString title, bool autoScale, double min, double max) {
    setAxisTitle(axis, toQString(title));
    setAxisAutoScale(axis, autoScale);
    if (!autoScale)
        setAxisScale(axis, min, max);
    if (axis != QwtPlot::xBottom) {
        yMin = min;
        yMax = max;
    }
    replot();
}

void Graph::enableAxisLabels(int axis, bool on) {
    QwtScaleDraw* draw = axisScaleDraw(axis);
    if (!draw)
        return;
    draw->enableComponent(QwtAbstractScaleDraw::Labels, on);
    if (QwtScaleWidget* w = axisWidget(axis))
        w->update();
    updateLayout();
}

void Graph::setLegend(unsigned int n, ZString name) {
    if (n >= numCurves)
        return;
    QwtPlotCurve* curve = curves[int(n)].curve;
    curve->setTitle(toQString(name));
    curve->setLegendAttribute(QwtPlotCurve::LegendShowLine, true);
    curve->setLegendAttribute(QwtPlotCurve::LegendShowSymbol, true);
}

void Graph::enableLegends(bool on) {
    if (on && !legendItem) {
        legendItem = new QwtPlotLegendItem;
        legendItem->setTextPen(QPen(Qt::white));
        legendItem->setMaxColumns(1);
        legendItem->setAlignment(Qt::AlignTop | Qt::AlignRight);
        legendItem->setLegendIconSize(QSize(20, 20));
        for (GraphCurve& c : curves)
            c.curve->setLegendIconSize(QSize(20, 20));
        legendItem->attach(this);
    } else if (!on && legendItem) {
        legendItem->detach();
        delete legendItem;
        legendItem = nullptr;
    }
    replot();
}

ZError Graph::setData(unsigned int n, double* values, int count) {
    if (n >= numCurves)
        return noSuchCurve(n);
    if (count < 0 || (count > 0 && !values))
        return ZError(ZString("Bad sample array for curve ") + ZString(n));
    auto copy = std::make_shared<QVector<double>>(count);
    if (count > 0)
        std::copy(values, values + count, copy->data());
    curves[int(n)].values = std::move(copy);
    return replotChan(n);
}

ZError Graph::setData(unsigned int n, QVector<double>& values) {
    if (n >= numCurves)
        return noSuchCurve(n);
    // Shares the caller's values until one of the two changes them.
    curves[int(n)].values = std::make_shared<const QVector<double>>(values);
    return replotChan(n);
}

ZError Graph::setData(unsigned int n, std::shared_ptr<const QVector<double>> values) {
    if (n >= numCurves)
        return noSuchCurve(n);
    curves[int(n)].values = std::move(values);
    return replotChan(n);
}

ZError Graph::setData(unsigned int n, QVector<QPointF>& points) {
    if (n >= numCurves)
        return noSuchCurve(n);
    GraphCurve& c = curves[int(n)];
    c.values.reset();
    c.points = points;
    plotCurve(n)->setPoints(c.points, false);
    replot();
    return ZError();
}

void Graph::setXAxis(double min, double max) {
    // An infinite or undefined interval would leave Qwt nothing sane to draw.
    if (std::isfinite(min) && std::isfinite(max))
        setAxisScale(QwtPlot::xBottom, min, max);
    replot();
}

void Graph::setXOffset(double x) {
    const QwtInterval iv = axisInterval(QwtPlot::xBottom);
    const double width = iv.maxValue() - iv.minValue();
    if (x < xLow)
        setXAxis(xLow, xLow + width);
    else if (x > xRange)
        setXAxis(xRange - width, xRange);
    else
        setXAxis(iv.minValue(), iv.maxValue());
}

void Graph::setXScale(double s) {
    if (!(s > 0) || !std::isfinite(s))
        return;
    xScale = s;
    const double min = axisInterval(QwtPlot::xBottom).minValue();
    setXAxis(min, min + xRange / s);
}

void Graph::setXRange(double r) {
    const double min = axisInterval(QwtPlot::xBottom).minValue();
    setXAxis(min, min + r);
}

void Graph::getXMinMax(double& min, double& max) const {
    const QwtInterval iv = axisInterval(QwtPlot::xBottom);
    min = iv.minValue();
    max = iv.maxValue();
}

void Graph::setYAutoScale(bool on) {
    yAutoScale = on;
    if (numCurves < 2) {
        if (on)
            setAxisAutoScale(QwtPlot::yLeft, true);
        else
            setAxisScale(QwtPlot::yLeft, yMin, yMax);
    }
}

double Graph::getYOffset(unsigned int n) const {
    return n < numCurves ? curves[int(n)].yOffset : 0.0;
}

double Graph::getYScale(unsigned int n) const {
    return n < numCurves ? curves[int(n)].yScale : 1.0;
}

ZError Graph::setYOffset(unsigned int n, double v) {
    if (n >= numCurves)
        return noSuchCurve(n);
    curves[int(n)].yOffset = v;
    return ZError();
}

ZError Graph::setYScale(unsigned int n, double v) {
    if (n >= numCurves)
        return noSuchCurve(n);
    curves[int(n)].yScale = v;
    return ZError();
}

ZError Graph::getYMinMax(unsigned int n, double& min, double& max) const {
    if (n >= numCurves)
        return noSuchCurve(n);
    const QRectF r = curves[int(n)].curve->boundingRect();
    min = r.top();
    max = r.top() + r.height();
    return ZError();
}

ZError Graph::setColour(unsigned int n, QColor colour) {
    if (n >= numCurves)
        return noSuchCurve(n);
    curves[int(n)].curve->setPen(QPen(colour));
    return ZError();
}

ZError Graph::replotChan(unsigned int n) {
    if (n >= numCurves)
        return noSuchCurve(n);
    GraphCurve& c = curves[int(n)];
    if (!c.values)
        return ZError();
    const int count = c.values->size();
    if (count == 0)
        return ZError();
    const double* data = c.values->constData();

    double offset = 0.0;
    if (yAutoScale && numCurves < 2) {
        c.yScale = 1.0;
        c.yOffset = 0.0;
    } else {
        if (yAutoScale) {
            double max = data[0], min = data[0], sum = 0.0;
            for (int i = 0; i < count; i++) {
                max = std::max(max, data[i]);
                min = std::min(min, data[i]);
                sum += data[i];
            }
            if (max == min) {
                c.yScale = 0.5 / max;
                c.yOffset = 0.0;
            } else {
                c.yScale = 1.0 / (max - min);
                c.yOffset = -(sum / count) * c.yScale;
            }
        }
        offset = c.yOffset;
        if (numCurves > 1)
            offset += double(numCurves - n - 1);
    }

    // The points are made from the values as they are drawn; only their
    // bounding rectangle is found here. X runs from the first to the last.
    c.points = QVector<QPointF>();
    const double scale = c.yScale;
    double top = scale * data[0] + offset, bottom = top;
    for (int i = 0; i < count; i++) {
        const double y = scale * data[i] + offset;
        top = qMin(top, y);
        bottom = qMax(bottom, y);
    }
    const double last = (count - 1) * dataXScale;
    const QRectF rect(QPointF(qMin(0.0, last), top), QPointF(qMax(0.0, last), bottom));
    plotCurve(n)->setValues(c.values, count, dataXScale, scale, offset, rect);

    xLow = 0.0;
    xRange = count * dataXScale;
    replot();
    return ZError();
}

void Graph::setDecimation(bool on) {
    decimation = on;
    for (GraphCurve& c : curves)
        static_cast<GraphPlotCurve*>(c.curve)->setDecimation(on);
    replot();
}

int Graph::getDrawnPoints(unsigned int n) const {
    return n < numCurves ? plotCurve(n)->getDrawnPoints() : -1;
}

void Graph::wheelEvent(QWheelEvent* event) {
    const int dx = event->angleDelta().x();
    const int dy = event->angleDelta().y();
    const bool shift = event->modifiers() & Qt::ShiftModifier;

    if (dx != 0 && yActive >= 0) {
        // Horizontal wheel: scale or move the active curve within its band.
        const unsigned int n = unsigned(yActive);
        if (n < numCurves) {
            GraphCurve& a = curves[yActive];
            if (shift) {
                a.yScale = dx > 0 ? a.yScale * 2.0 : a.yScale / 2.0;
                emit yScaleChanged(n, a.yScale);
            } else {
                a.yOffset += dx * 0.001;
                emit yOffsetChanged(n, a.yOffset);
            }
            replotChan(n);
        }
        replot();
        event->accept();
        return;
    }
    if (dy == 0) {
        event->ignore();
        return;
    }

    // Vertical wheel: zoom (Shift) or pan along X.
    const QwtInterval iv = axisInterval(QwtPlot::xBottom);
    double min = iv.minValue();
    double max = iv.maxValue();
    const double width = max - min;
    const double step = dy * (0.25 * width) / 120.0;
    if (shift) {
        xScale = step > 0 ? xScale * 2.0 : xScale / 2.0;
        if (xScale < 1.0)
            xScale = 1.0;
        max = min + xRange / xScale;
    } else {
        min += step;
        if (min < 0) {
            min = 0;
            max = width;
        } else {
            max += step;
            if (max > xRange) {
                min = xRange - width;
                max = xRange;
            }
        }
    }
    setXAxis(min, max);
    event->accept();
    if (shift)
        emit xScaleChanged(xScale);
    emit xOffsetChanged(min);
}
