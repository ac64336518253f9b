// The capture demo page against a simulated unit: its graph and rows, the
// smoothed levels of known captures (the generator's channel mapped), what
// ends a capture here, the backlog limit, and "Start demo" from the set-up
// sent to the unit through a real capture in demonstration mode.
#include "capturerig.h"
#include "guimessagesdouble.h"
#include "wcapturedemo.h"

#include <qwt_plot_legenditem.h>
#include <qwt_scale_draw.h>

#include <QLabel>
#include <QPushButton>
#include <QtTest>

#include <cmath>

using TavroApi::AwgConfig;
using TavroApi::MeasureMode;

// Stands for the main window: hands the data to the page, records the
// calls the page makes and runs the capture it is asked for.
class Host : public QWidget {
    Q_OBJECT
public:
    WCaptureDemo* view = nullptr;
    Control* control = nullptr;
    QStringList calls;
    int finished = 0;

public slots:
    void dataReady() {
        if (view)
            view->dataReady();
    }
    void dataProcReady() {}
    void unitsDisconnected() {}
    void dataCaptureFinished() { finished++; }
    void update(bool all) { calls << QString("update(%1)").arg(all ? "true" : "false"); }
    void run(bool program) {
        calls << QString("run(%1)").arg(program ? "true" : "false");
        ZError err = control->measureStart(program);
        if (err)
            calls << QString("measureStart: ") + err.str().str();
    }
};

namespace {

const uint16_t run = 0x04;
const uint16_t end0 = 0x10;
const uint16_t end1 = 0x20;

} // namespace

class WCaptureDemoTest : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void page();
    void levels_data();
    void levels();
    void captureEnds_data();
    void captureEnds();
    void throttle();
    void startDemo();
    void startDemoRefused();

private:
    Host* host = nullptr;
    CaptureRig* rig = nullptr;
    WCaptureDemo* view = nullptr;
};

void WCaptureDemoTest::init() {
    host = new Host;
    rig = new CaptureRig(host);
    QVERIFY(!rig->start());
    host->control = &rig->control;
    view = new WCaptureDemo(rig->control, host);
    host->view = view;
    host->resize(900, 600);
    host->show();
    view->update();
    rig->setRate(16000.0);
}

void WCaptureDemoTest::cleanup() {
    delete rig;
    delete host;
    rig = nullptr;
    host = nullptr;
    view = nullptr;
}

void WCaptureDemoTest::page() {
    Graph* graph = view->getGraph();
    QCOMPARE(view->getNumChans(), 16u);
    QCOMPARE(graph->getNumCurves(), 16u);
    QCOMPARE(graph->axisTitle(QwtPlot::yLeft).text(), QString("Amplitude"));
    QCOMPARE(graph->axisInterval(QwtPlot::yLeft).minValue(), -1.0);
    QCOMPARE(graph->axisInterval(QwtPlot::yLeft).maxValue(), 8.0);
    QVERIFY(!graph->axisScaleDraw(QwtPlot::yLeft)->hasComponent(QwtAbstractScaleDraw::Labels));
    QCOMPARE(graph->axisTitle(QwtPlot::xBottom).text(), QString("Time (Seconds)"));
    QVERIFY(graph->axisAutoScale(QwtPlot::xBottom));
    QVERIFY(graph->getYAutoScale());
    QCOMPARE(graph->itemList(QwtPlotItem::Rtti_PlotLegend).size(), 1);
    QwtPlotItemList curves = graph->itemList(QwtPlotItem::Rtti_PlotCurve);
    QCOMPARE(curves[7]->title().text(), QString("AWG loopback"));
    QCOMPARE(curveColour(graph, 7), QColor(0, 255, 255));
    QCOMPARE(curveColour(graph, 12), QColor(0, 0, 255));

    QStringList names;
    for (QLabel* l : view->findChildren<QLabel*>())
        if (l->styleSheet() == "QLabel { background-color : #a8e37b; }")
            names << l->text();
    QCOMPARE(names.size(), 16);
    QVERIFY(names.contains("Channel 7 - AWG loopback"));
    QVERIFY(view->getStartButton()->isEnabled());
    QCOMPARE(view->getStartButton()->text(), QString("Start demo"));

    rig->control.unitsDisconnect();
    view->update();
    QVERIFY(!view->getStartButton()->isEnabled());
}

void WCaptureDemoTest::levels_data() {
    QTest::addColumn<int>("channel");
    QTest::addColumn<double>("rms");
    // Channel 0 holds 3, channel 1 alternates 2 and -2, the generator's
    // channel 7 holds 0.53125, which maps to (0.53125 - 0.5) / 0.01 - 1.5.
    QTest::newRow("constant 3") << 0 << 3.0;
    QTest::newRow("+-2") << 1 << 2.0;
    QTest::newRow("generator") << 7 << (0.03125 / 0.01 - 1.5);
    QTest::newRow("digital 0") << 8 << 0.0;
}

void WCaptureDemoTest::levels() {
    QFETCH(int, channel);
    QFETCH(double, rms);
    auto value = [](unsigned s, unsigned c) -> float {
        switch (c) {
        case 0:
            return 3.0f;
        case 1:
            return s % 2 ? -2.0f : 2.0f;
        case 7:
            return 0.53125f;
        default:
            return 0.0f;
        }
    };
    for (int capture = 1; capture <= 10; capture++) {
        QVERIFY(!rig->push(run, 13, value));
        QVERIFY(!rig->push(run | end0, 7, value));
        view->dataReady();
        // Each capture's 20 samples, smoothed over the captures.
        QCOMPARE(view->getProcessCount(), unsigned(capture));
        const double expected = rms * (1.0 - std::pow(0.97, capture));
        QVERIFY2(qAbs(view->getLevel(unsigned(channel)) - expected) < 1e-9,
                 qPrintable(QString::number(view->getLevel(unsigned(channel)))));
        // The labels follow every tenth capture.
        QCOMPARE(view->getLevelText(unsigned(channel)),
                 capture < 10 ? QString() : QString::asprintf("%.3f", expected));
    }
    QCOMPARE(curvePoints(view->getGraph(), channel).size(), 20);

    view->clear();
    QCOMPARE(view->getLevel(unsigned(channel)), 0.0);
    QCOMPARE(view->getProcessCount(), 0u);
    QCOMPARE(view->getLevelText(unsigned(channel)), QString());
}

void WCaptureDemoTest::captureEnds_data() {
    QTest::addColumn<uint16_t>("status");
    QTest::addColumn<bool>("end");
    QTest::addColumn<int>("finished");
    // Only End0 ends a capture here.
    QTest::newRow("End0, more to come") << uint16_t(run | end0) << true << 0;
    QTest::newRow("End0, last") << uint16_t(end0) << true << 1;
    QTest::newRow("End1") << uint16_t(run | end1) << false << 0;
    QTest::newRow("End1, last") << uint16_t(end1) << false << 0;
}

void WCaptureDemoTest::captureEnds() {
    QFETCH(uint16_t, status);
    QFETCH(bool, end);
    QFETCH(int, finished);
    QVERIFY(!rig->push(status, 4, [](unsigned, unsigned) { return 1.0f; }));
    view->dataReady();
    QCOMPARE(view->getProcessCount(), end ? 1u : 0u);
    QCoreApplication::processEvents();
    QCOMPARE(host->finished, finished);
    QVERIFY(!rig->push(run, 3, [](unsigned, unsigned) { return 1.0f; }));
    view->dataReady();
    QCOMPARE(view->getData(0).size(), end ? 3 : 7);
}

void WCaptureDemoTest::throttle() {
    for (unsigned int queued : {1000u, 1001u}) {
        for (unsigned int b = 0; b < queued; b++)
            QVERIFY(!rig->push(run, 1, [](unsigned, unsigned) { return 1.0f; }));
        view->clear();
        StdoutCapture out;
        view->dataReady();
        QCOMPARE(out.text().contains("Throttle\n"), queued > 1000);
        QCOMPARE(rig->control.dataAvailable(0), 0u);
        QCOMPARE(view->getData(0).size(), queued > 1000 ? 1 : int(queued));
    }
}

void WCaptureDemoTest::startDemo() {
    AwgConfig before = rig->unit.awgConfig();
    FileSave save;
    save.save = true;
    save.dir = "/nonexistent";
    save.name = "x";
    save.type = "tavd";
    rig->control.setFileRawSave(save);
    rig->control.setFileProcSave(save);

    view->getStartButton()->click();
    QCOMPARE(host->calls, (QStringList{"update(true)", "run(true)"}));

    const TavroApi::MeasurementConfig& m = rig->control.measurementConfig();
    QCOMPARE(m.measureMode, MeasureMode::Repeat);
    QCOMPARE(int(m.triggerConfig), 0);
    QCOMPARE(m.triggerLevel, 0.0f);
    QCOMPARE(m.triggerDelay, 0);
    QCOMPARE(m.sampleRate, 16000.0);
    QCOMPARE(m.numSamples0, 1000u);
    QCOMPARE(m.numSamples2, 0u);
    AwgConfig awg = rig->unit.awgConfig();
    QCOMPARE(awg.offset, 0.0f);
    QCOMPARE(awg.duty, 0.5f);
    QCOMPARE(awg.frequency, before.frequency);
    QCOMPARE(awg.amplitude, before.amplitude);
    QVERIFY(!rig->control.fileRawSave().save);
    QVERIFY(!rig->control.fileProcSave().save);

    // The unit captures in demonstration mode and the page draws it.
    QTRY_VERIFY_WITH_TIMEOUT(view->getProcessCount() >= 10, 20000);
    QCOMPARE(int(rig->unit.mode()), 5);
    QCOMPARE(rig->unit.measurementConfig().sampleRate, 16000.0);
    QVERIFY(!view->getLevelText(0).isEmpty());
    QVERIFY(view->getLevel(0) > 0.0);
    QVERIFY(!rig->control.measureStop(1));
}

void WCaptureDemoTest::startDemoRefused() {
    GuiMessagesDouble messages;
    rig->unit.faultErrorReply(TavroApi::TavroFn::setAwgConfig, ZError(22, "Invalid duty"));
    view->configDemo();
    QCOMPARE(messages.texts(), QStringList{"Tavro-gui - Error: Invalid duty"});
    QCOMPARE(messages.messages[0].kind, GuiMessages::Critical);
    QVERIFY(host->calls.isEmpty());
}

QTEST_MAIN(WCaptureDemoTest)
#include "wcapturedemo_qtest.moc"
