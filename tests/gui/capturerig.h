#ifndef CAPTURERIG_H
#define CAPTURERIG_H

// What the capture page tests share: a simulated unit served over TCP in
// the test process, a Control connected to it (its channel configurations
// are the unit's), and blocks put straight into the unit manager's merge as
// the unit's receive thread would, so that their contents are known.

#include "control.h"
#include "graph.h"
#include "simserver.h"
#include "simunit.h"

#include <qwt_plot_curve.h>

#include <QFile>
#include <QPointF>
#include <QTemporaryFile>
#include <QVector>

#include <cstdio>
#include <cstring>
#include <functional>
#include <unistd.h>

struct CaptureRig {
    static TavroSim::SimOptions options() {
        TavroSim::SimOptions o;
        o.fast = true;
        o.rebootMs = 100;
        return o;
    }

    // host receives the control object's queued notifications.
    explicit CaptureRig(QObject* host) : unit(options()), server(unit), control(host) {}

    // Connects, reads the caches and keeps one stream (the views' own).
    ZError start() {
        ZError err;
        if ((err = server.start("127.0.0.1", 0)) || (err = control.init()) ||
            (err = control.unitAdd("unit1", url())) || (err = control.unitsConnect()) ||
            (err = control.update()))
            return err;
        if ((err = control.dataSetNumStreams(1)))
            return err;
        saved = control.channelConfigs();
        return ZError();
    }
    // Puts back the channels as start() found them, and empties the streams.
    ZError restore() {
        control.dataClear();
        const ZArray<TavroApi::ChannelConfig>& now = control.channelConfigs();
        bool changed = false;
        for (int c = 0; c < saved.size() && c < now.size(); c++) {
            if (memcmp(&now[c], &saved[c], sizeof(TavroApi::ChannelConfig)) == 0)
                continue;
            changed = true;
            if (ZError err = control.unit(1)->setChannelConfigFull(0, unsigned(c), saved[c]))
                return err;
        }
        return changed ? control.update() : ZError();
    }
    ZString url() const { return "zoapn://127.0.0.1:" + ZString(unsigned(server.port())); }

    // Changes channel c on the unit (pgaGain and calibration included) and
    // reads the caches again.
    ZError setChannel(unsigned int c, std::function<void(TavroApi::ChannelConfig&)> change) {
        TavroApi::ChannelConfig config;
        ZError err = control.getChannelConfig(c, config);
        if (err)
            return err;
        change(config);
        if ((err = control.unit(1)->setChannelConfigFull(0, c, config)))
            return err;
        return control.update();
    }

    void setRate(double rate) {
        TavroApi::MeasurementConfig m = control.measurementConfig();
        m.sampleRate = rate;
        control.setMeasurement(m);
    }

    // One raw block of 16 channels, value(row, column) for row 0 to rows - 1;
    // queued on stream 0 when this returns.
    ZError push(uint16_t status, unsigned int rows,
                std::function<float(unsigned, unsigned)> value) {
        TavroApi::DataBlockFloat b;
        b.numChannels = 16;
        b.numSamples = uint16_t(rows);
        b.sequence = sequence++;
        b.status = status;
        b.type = TavroApi::DataType::Float32;
        for (unsigned int s = 0; s < rows && s < 13; s++)
            for (unsigned int c = 0; c < 16; c++)
                b.data[s * 16 + c] = value(s, c);
        ZError err = control.sendDataFloatQueue(*control.unit(1), b);
        if (!err && !control.dataFlush(5000000))
            err = ZError("Block not queued");
        return err;
    }

    ZError pushProc(const TavroApi::DataBlockProc& block) {
        ZError err = control.sendDataProcQueue(*control.unit(1), block);
        if (!err && !control.dataFlush(5000000))
            err = ZError("Block not queued");
        return err;
    }

    TavroSim::SimUnit unit;
    TavroSim::SimTcpServer server;
    Control control;
    ZArray<TavroApi::ChannelConfig> saved;
    uint32_t sequence = 0;
};

// The points Qwt holds for curve n of a graph.
inline QVector<QPointF> curvePoints(Graph* graph, int n) {
    QVector<QPointF> points;
    QwtPlotItemList items = graph->itemList(QwtPlotItem::Rtti_PlotCurve);
    if (n < 0 || n >= items.size())
        return points;
    const QwtSeriesData<QPointF>* data = static_cast<QwtPlotCurve*>(items[n])->data();
    for (size_t i = 0; i < data->size(); i++)
        points.append(data->sample(i));
    return points;
}

inline QColor curveColour(Graph* graph, int n) {
    QwtPlotItemList items = graph->itemList(QwtPlotItem::Rtti_PlotCurve);
    return n >= 0 && n < items.size() ? static_cast<QwtPlotCurve*>(items[n])->pen().color()
                                      : QColor();
}

// Standard output while it lives, kept in a file.
class StdoutCapture {
public:
    StdoutCapture() : saved(-1) {
        if (!file.open())
            return;
        fflush(stdout);
        saved = dup(1);
        dup2(file.handle(), 1);
    }
    ~StdoutCapture() { text(); }
    // Everything printed so far; output goes to the terminal again.
    QString text() {
        if (saved >= 0) {
            fflush(stdout);
            dup2(saved, 1);
            close(saved);
            saved = -1;
            QFile f(file.fileName());
            f.open(QIODevice::ReadOnly);
            captured = QString::fromUtf8(f.readAll());
        }
        return captured;
    }

private:
    QTemporaryFile file;
    int saved;
    QString captured;
};

#endif
