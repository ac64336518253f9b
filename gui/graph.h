#ifndef GRAPH_H
#define GRAPH_H

#include "zerror.h"
#include "zlist.h"
#include "zstring.h"

#include <qwt_plot.h>
#include <qwt_plot_curve.h>
#include <qwt_series_data.h>

#include <QColor>
#include <QPen>
#include <QPointF>
#include <QVector>

#include <algorithm>
#include <memory>

class QWheelEvent;
class QwtPlotGrid;
class QwtPlotLegendItem;

// The points of one curve as Qwt sees them: either points of its own, or
// values of a store it shares with their owner, point i being
// (i * dx, scale * value[i] + offset). While a decimated drawing is under
// way size() and sample() answer from the reduced set instead. The bounding
// rectangle is always that of all the points.
class GraphSeries : public QwtSeriesData<QPointF> {
public:
    GraphSeries()
        : sorted(false), rectValid(false), generation(0), valueCount(0), dx(1.0), scale(1.0),
          offset(0.0), view(nullptr) {}

    // sortedX: the caller knows the X values are finite and non-decreasing;
    // otherwise they are checked here. rect: their bounding rectangle, if the
    // caller has it already.
    void setPoints(const QVector<QPointF>& points, bool sortedX, const QRectF* rect = nullptr);
    // The first count values of the store. The owner may go on changing the
    // store; the series never reads past its present end.
    void setValues(std::shared_ptr<const QVector<double>> values, int count, double dx,
                   double scale, double offset, const QRectF& rect);
    // X values finite and non-decreasing: the points can be bucketed by pixel column.
    bool isSorted() const { return sorted; }
    unsigned int getGeneration() const { return generation; }

    // Every point, without the reduced set.
    int count() const { return values ? std::min(valueCount, values->size()) : points.size(); }
    QPointF point(int i) const {
        return values ? QPointF(i * dx, scale * values->at(i) + offset) : points.at(i);
    }

    // Points that size() and sample() answer from; nullptr for all of them.
    void setView(const QVector<QPointF>* points) { view = points; }

    size_t size() const override;
    QPointF sample(size_t i) const override;
    QRectF boundingRect() const override;

private:
    QVector<QPointF> points;
    bool sorted;
    mutable bool rectValid;
    unsigned int generation;
    std::shared_ptr<const QVector<double>> values;
    int valueCount;
    double dx, scale, offset;
    const QVector<QPointF>* view;
};

// A plot curve that hands Qwt only the points in view (and the neighbour
// either side) and, when there are two or more per pixel column, only the
// first, lowest, highest and last point of each column. Columns are those of
// Qwt's own X map, rounded as Qwt rounds them, so the trace covers the same
// pixels as the full drawing. Points with X unsorted are drawn as they are.
class GraphPlotCurve : public QwtPlotCurve {
public:
    explicit GraphPlotCurve(const QString& title);

    void setPoints(const QVector<QPointF>& points, bool sortedX, const QRectF* rect = nullptr);
    void setValues(std::shared_ptr<const QVector<double>> values, int count, double dx,
                   double scale, double offset, const QRectF& rect);
    void setDecimation(bool on);
    bool getDecimation() const { return decimation; }
    // Points handed to Qwt at the last drawing.
    int getDrawnPoints() const { return drawnPoints; }

    void drawSeries(QPainter* painter, const QwtScaleMap& xMap, const QwtScaleMap& yMap,
                    const QRectF& canvasRect, int from, int to) const override;

    // Picks from points (X finite and non-decreasing) what gives the same
    // drawing under xMap on the pixel columns [left, right]: the points in
    // view with one neighbour either side, and when there are at least two
    // per column only the first, lowest, highest and last of each column.
    // False when all the points are to be drawn as they are.
    static bool reduce(const QVector<QPointF>& points, const QwtScaleMap& xMap, double left,
                       double right, QVector<QPointF>& out);

private:
    GraphSeries* series() const;
    // A series of this curve's own, made when somebody replaced it.
    GraphSeries* ownSeries();

    bool decimation;
    mutable int drawnPoints;
    // Last reduced set and what it was made from.
    mutable QVector<QPointF> view;
    mutable unsigned int viewGeneration;
    mutable double viewS1, viewS2, viewP1, viewP2, viewLeft, viewRight;
    mutable bool viewReduced;
    mutable bool viewValid;
};

struct GraphCurve {
    double yScale = 1.0;
    double yOffset = 0.0;
    // Values drawn at X steps of the data X scale, shared with their owner;
    // or, for a curve given points, those points.
    std::shared_ptr<const QVector<double>> values;
    QVector<QPointF> points;
    QwtPlotCurve* curve = nullptr;
};

// The plot of the capture views: curves stacked in bands of height 1 (curve
// 0 on top), each with its own scale and offset, zoomed and panned with the
// mouse wheel.
class Graph : public QwtPlot {
    Q_OBJECT
public:
    explicit Graph(QWidget* parent = nullptr);
    ~Graph() override;

    void init();
    void clear();
    void addCurve(ZString name, QPen pen);
    void setAxis(int axis, ZString title, bool autoScale, double min, double max);
    void enableAxisLabels(int axis, bool on);
    void setLegend(unsigned int n, ZString name);
    void enableLegends(bool on);
    void setDataXScale(double scale) { dataXScale = scale; }

    ZError setData(unsigned int n, double* values, int count);
    ZError setData(unsigned int n, QVector<double>& values);
    ZError setData(unsigned int n, QVector<QPointF>& points);
    // Draws curve n from a store the caller keeps and may go on filling:
    // no copy is made. The curve shows the values the store held at this
    // call (or at the next replotChan) and never reads past its end.
    ZError setData(unsigned int n, std::shared_ptr<const QVector<double>> values);

    void setXOffset(double x);
    void setXScale(double s);
    void setXRange(double r);
    void getXMinMax(double& min, double& max) const;

    void setYAutoScale(bool on);
    double getYOffset(unsigned int n) const;
    double getYScale(unsigned int n) const;
    ZError setYOffset(unsigned int n, double v);
    ZError setYScale(unsigned int n, double v);
    ZError getYMinMax(unsigned int n, double& min, double& max) const;
    void setYActive(int n) { yActive = n; }
    ZError setColour(unsigned int n, QColor colour);

    ZError replotChan(unsigned int n);

    unsigned int getNumCurves() const { return numCurves; }
    double getXScale() const { return xScale; }
    bool getYAutoScale() const { return yAutoScale; }

    // Drawing of long curves as a min/max per pixel column (on by default).
    void setDecimation(bool on);
    bool getDecimation() const { return decimation; }
    // Points handed to Qwt for curve n at its last drawing; -1 for an unknown n.
    int getDrawnPoints(unsigned int n) const;

signals:
    void xOffsetChanged(double);
    void xScaleChanged(double);
    void yOffsetChanged(unsigned int, double);
    void yScaleChanged(unsigned int, double);

protected:
    void wheelEvent(QWheelEvent* event) override;

private:
    static ZError noSuchCurve(unsigned int n);
    GraphPlotCurve* plotCurve(unsigned int n) const;
    void setXAxis(double min, double max);

    ZList<GraphCurve> curves;
    unsigned int numCurves;
    double dataXScale;
    double xLow;
    double xRange;
    double xScale;
    int yActive;
    bool yAutoScale;
    double yMin;
    double yMax;

    bool decimation;
    QwtPlotGrid* grid;
    QwtPlotLegendItem* legendItem;
};

#endif
