// The capture demo page against a simulated unit: its graph and rows, the
// smoothed levels of known captures, what ends a capture here, the backlog
// limit, and "Start demo" through a real capture in demonstration mode.
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

class WCaptureDemoTest : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void page();
    void levels();
    void captureEnds_data();
    void captureEnds();
    void throttle();
    void startDemo();

private:
    CaptureRig* rig = nullptr;
    WCaptureDemo* view = nullptr;
};

void WCaptureDemoTest::init() {
    rig = new CaptureRig;
    QVERIFY(!rig->start());
    view = new WCaptureDemo(rig->control, &rig->host);
    rig->host.onData = [this] { view->dataReady(); };
    rig->host.resize(900, 600);
    rig->host.show();
    view->update();
    rig->setRate(16000.0);
}

void WCaptureDemoTest::cleanup() {
    delete rig;
}

void WCaptureDemoTest::page() {
    Graph* graph = view->getGraph();
    QCOMPARE(view->getNumChans(), 16u);
    QCOMPARE(graph->axisTitle(QwtPlot::yLeft).text(), QString("Amplitude"));
    QCOMPARE(graph->axisInterval(QwtPlot::yLeft).minValue(), -1.0);
    QCOMPARE(graph->axisInterval(QwtPlot::yLeft).maxValue(), 8.0);
    QVERIFY(!graph->axisScaleDraw(QwtPlot::yLeft)->hasComponent(QwtAbstractScaleDraw::Labels));
    QCOMPARE(graph->axisTitle(QwtPlot::xBottom).text(), QString("Time (Seconds)"));
    QVERIFY(graph->getYAutoScale());
    QCOMPARE(graph->itemList(QwtPlotItem::Rtti_PlotLegend).size(), 1);
    QCOMPARE(graph->itemList(QwtPlotItem::Rtti_PlotCurve)[7]->title().text(),
             QString("AWG loopback"));
    QCOMPARE(curveColour(graph, 7), QColor(0, 255, 255));
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

void WCaptureDemoTest::levels() {
    // Channel 0 holds 3, channel 1 alternates 2 and -2, the generator's
    // channel 7 holds 0.53125, which maps to (0.53125 - 0.5) / 0.01 - 1.5.
    const unsigned int channels[] = {0, 1, 7, 8};
    const double rms[] = {3.0, 2.0, 0.03125 / 0.01 - 1.5, 0.0};
    auto value = [](unsigned s, unsigned c) -> float {
        return c == 0 ? 3.0f : c == 1 ? (s % 2 ? -2.0f : 2.0f) : c == 7 ? 0.53125f : 0.0f;
    };
    for (int capture = 1; capture <= 10; capture++) {
        QVERIFY(!rig->push(run, 13, value));
        QVERIFY(!rig->push(run | end0, 7, value));
        view->dataReady();
        QCOMPARE(view->getProcessCount(), unsigned(capture));
        // Each capture's 20 samples, smoothed over the captures; the labels
        // follow every tenth capture.
        for (int i = 0; i < 4; i++) {
            const double expected = rms[i] * (1.0 - std::pow(0.97, capture));
            QVERIFY2(qAbs(view->getLevel(channels[i]) - expected) < 1e-9,
                     qPrintable(QString::number(view->getLevel(channels[i]))));
            QCOMPARE(view->getLevelText(channels[i]),
                     capture < 10 ? QString() : QString::asprintf("%.3f", expected));
        }
    }
    QCOMPARE(curvePoints(view->getGraph(), 7).size(), 20);
    view->clear();
    QCOMPARE(view->getLevel(0), 0.0);
    QCOMPARE(view->getProcessCount(), 0u);
    QCOMPARE(view->getLevelText(0), QString());
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
    QVERIFY(!rig->push(status, 4, one));
    view->dataReady();
    QCOMPARE(view->getProcessCount(), end ? 1u : 0u);
    QCoreApplication::processEvents();
    QCOMPARE(rig->host.finished, finished);
    QVERIFY(!rig->push(run, 3, one));
    view->dataReady();
    QCOMPARE(view->getData(0).size(), end ? 3 : 7);
}

void WCaptureDemoTest::throttle() {
    for (unsigned int queued : {1000u, 1001u}) {
        for (unsigned int b = 0; b < queued; b++)
            QVERIFY(!rig->push(run, 1, one));
        view->clear();
        QCOMPARE(stdoutOf([this] { view->dataReady(); }),
                 QString(queued > 1000 ? "Throttle\n" : ""));
        QCOMPARE(rig->control.dataAvailable(0), 0u);
        QCOMPARE(view->getData(0).size(), queued > 1000 ? 1 : int(queued));
    }
}

// Refused by the unit, then through.
void WCaptureDemoTest::startDemo() {
    GuiMessagesDouble messages;
    rig->unit.faultErrorReply(TavroApi::TavroFn::setAwgConfig, ZError(22, "Invalid duty"));
    view->configDemo();
    QCOMPARE(messages.texts(), QStringList{"Tavro-gui - Error: Invalid duty"});
    QCOMPARE(messages.messages[0].kind, GuiMessages::Critical);
    QVERIFY(rig->host.calls.isEmpty());
    rig->unit.faultErrorReply(0, ZError());
    AwgConfig before = rig->unit.awgConfig();
    FileSave save;
    save.save = true;
    rig->control.setFileRawSave(save);
    rig->control.setFileProcSave(save);
    view->getStartButton()->click();
    QCOMPARE(rig->host.calls, (QStringList{"update(1)", "run(1)"}));
    const TavroApi::MeasurementConfig& m = rig->control.measurementConfig();
    QCOMPARE(m.measureMode, MeasureMode::Repeat);
    QCOMPARE(int(m.triggerConfig), 0);
    QCOMPARE(m.triggerLevel, 0.0f);
    QCOMPARE(m.triggerDelay, 0);
    QCOMPARE(m.sampleRate, 16000.0);
    QCOMPARE(m.numSamples0, 1000u);
    QCOMPARE(m.numSamples2, 0u);
    const AwgConfig awg = rig->unit.awgConfig();
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
    QVERIFY(!rig->control.measureStop(1));
}

QTEST_MAIN(WCaptureDemoTest)
#include "moc_capturerig.cpp"
#include "wcapturedemo_qtest.moc"
