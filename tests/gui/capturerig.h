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
#include <QStringList>
#include <QTemporaryFile>
#include <QVector>
#include <QWidget>

#include <cstdio>
#include <functional>
#include <unistd.h>

// Block status bits (running, end of trace 0 and 1), and a sample value.
const uint16_t run = 0x04, end0 = 0x10, end1 = 0x20;
const auto one = [](unsigned, unsigned) { return 1.0f; };

// Stands for the main window: hands the data to a page through the hooks,
// counts the captures it is told of, records the calls a page makes of it
// and starts the capture asked for.
class Host : public QWidget {
    Q_OBJECT
public:
    Control* control = nullptr;
    std::function<void()> onData, onProc;
    QStringList calls;
    int finished = 0;

public slots:
    void dataReady() {
        if (onData)
            onData();
    }
    void dataProcReady() {
        if (onProc)
            onProc();
    }
    void unitsDisconnected() {}
    void dataCaptureFinished() { finished++; }
    void update(bool all) { calls << QString("update(%1)").arg(all); }
    void run(bool program) {
        calls << QString("run(%1)").arg(program);
        if (ZError err = control->measureStart(program))
            calls << QString("measureStart: ") + err.str().str();
    }
};

// The pages' parent is host; the control object notifies it.
struct CaptureRig {
    CaptureRig() : unit(options()), server(unit), control(&host) { host.control = &control; }
    static TavroSim::SimOptions options() {
        TavroSim::SimOptions o;
        o.fast = true;
        o.rebootMs = 100;
        return o;
    }

    // Connects, reads the caches and keeps one stream (the views' own).
    ZError start() {
        ZError err;
        if ((err = server.start("127.0.0.1", 0)) || (err = control.init()) ||
            (err = control.unitAdd("unit1",
                                   "zoapn://127.0.0.1:" + ZString(unsigned(server.port())))) ||
            (err = control.unitsConnect()) || (err = control.update()) ||
            (err = control.dataSetNumStreams(1)))
            return err;
        saved = control.channelConfigs();
        return ZError();
    }
    // Puts back the channels as start() found them, and empties the streams.
    ZError restore() {
        control.dataClear();
        for (int c = 0; c < saved.size(); c++)
            if (ZError err = control.unit(1)->setChannelConfigFull(0, unsigned(c), saved[c]))
                return err;
        return control.update();
    }

    // Changes channel c on the unit (pgaGain and calibration included) and
    // reads the caches again.
    ZError setChannel(unsigned int c, std::function<void(TavroApi::ChannelConfig&)> change) {
        TavroApi::ChannelConfig config;
        ZError err = control.getChannelConfig(c, config);
        if (!err)
            change(config);
        if (err || (err = control.unit(1)->setChannelConfigFull(0, c, config)))
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
        return flushed(control.sendDataFloatQueue(*control.unit(1), b));
    }
    ZError pushProc(const TavroApi::DataBlockProc& block) {
        return flushed(control.sendDataProcQueue(*control.unit(1), block));
    }
    ZError flushed(ZError err) {
        return err || control.dataFlush(5000000) ? err : ZError("Block not queued");
    }

    Host host; // deleted last, with the pages
    TavroSim::SimUnit unit;
    TavroSim::SimTcpServer server;
    Control control;
    ZArray<TavroApi::ChannelConfig> saved;
    uint32_t sequence = 0;
};

// Curve n of a graph, the points Qwt holds for it and its colour.
inline QwtPlotCurve* curve(Graph* graph, int n) {
    return static_cast<QwtPlotCurve*>(graph->itemList(QwtPlotItem::Rtti_PlotCurve).at(n));
}
inline QVector<QPointF> curvePoints(Graph* graph, int n) {
    QVector<QPointF> points;
    for (size_t i = 0; i < curve(graph, n)->dataSize(); i++)
        points.append(curve(graph, n)->sample(int(i)));
    return points;
}
inline QColor curveColour(Graph* graph, int n) {
    return curve(graph, n)->pen().color();
}

// What f prints on standard output.
inline QString stdoutOf(const std::function<void()>& f) {
    QTemporaryFile file;
    if (!file.open())
        return "no temporary file";
    fflush(stdout);
    const int saved = dup(1);
    dup2(file.handle(), 1);
    f();
    fflush(stdout);
    dup2(saved, 1);
    close(saved);
    QFile written(file.fileName());
    written.open(QIODevice::ReadOnly);
    return QString::fromUtf8(written.readAll());
}

#endif
