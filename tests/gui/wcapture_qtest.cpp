// The raw capture page against a simulated unit's channels, with blocks of
// known contents queued through the unit manager.
#include "capturerig.h"
#include "wcapture.h"
#include "wchannelcontrols.h"

#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>
#include <QStackedWidget>
#include <QtTest>

#include <cmath>

using TavroApi::ChannelConfig;

namespace {

QColor pickedColour;
QColor pickColour(const QColor&, QWidget*) {
    return pickedColour;
}

} // namespace

class WCaptureTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();

    void channelsAndStatistics();
    void blocks_data();
    void blocks();
    void throttle();
    void samplesLimit();
    void colours();
    void singleChannelSpectrum_data();
    void singleChannelSpectrum();
    void viewSettings();
    void xAxis();

private:
    QString stat(int channel, int column) {
        QLabel* l = view->findChild<QLabel*>(QString("stat_%1_%2").arg(channel).arg(column));
        return l ? l->text() : QString("no label");
    }
    QPushButton* button(unsigned int channel, const char* name) {
        return view->getChannelControls(channel)->findChild<QPushButton*>(name);
    }

    CaptureRig* rig = nullptr;
    WCapture* view = nullptr;
};

// One unit, control object and page for all cases, put back to their
// first state before each: a sanitizer build spends seconds building a page.
void WCaptureTest::initTestCase() {
    QSettings("Korvel", "Tavro-gui").clear();
    rig = new CaptureRig;
    QVERIFY(!rig->start());
    view = new WCapture(rig->control, &rig->host);
    rig->host.onData = [this] { view->dataReady(); };
    rig->host.resize(1000, 700);
    rig->host.show();
    view->update(true);
}

void WCaptureTest::cleanupTestCase() {
    delete rig;
}

void WCaptureTest::init() {
    QSettings("Korvel", "Tavro-gui").clear();
    QVERIFY(!rig->restore());
    rig->setRate(4000.0);
    QVERIFY(!view->setMaxSamples(WCapture::maxSamplesDefault));
    view->show();
    view->update(false);
    view->viewChannel(-1);
    view->configReset();
    view->clear();
    rig->host.finished = 0;
}

void WCaptureTest::channelsAndStatistics() {
    QCOMPARE(view->getNumChans(), 16u);
    QCOMPARE(view->getGraph()->axisTitle(QwtPlot::yLeft).text(), QString("Data Values"));
    QCOMPARE(view->getGraph()->axisTitle(QwtPlot::xBottom).text(), QString("Time (Seconds)"));
    QCOMPARE(view->getGraph()->itemList(QwtPlotItem::Rtti_PlotCurve)[9]->title().text(),
             QString("Channel 9 - Digital 1"));
    // Disabled channels leave; the others keep their columns.
    for (unsigned int c : {1u, 3u})
        QVERIFY(!rig->setChannel(c, [](ChannelConfig& cc) { cc.enabled = 0; }));
    view->update(false);
    rig->setRate(4000.0);
    QCOMPARE(view->getNumChans(), 14u);
    QCOMPARE((QVector<int>{view->getChannelNumber(0), view->getChannelNumber(1),
                           view->getChannelNumber(2), view->getChannelNumber(13),
                           view->getChannelNumber(14)}),
             (QVector<int>{0, 2, 4, 15, -1}));
    QCOMPARE(view->getGraph()->itemList(QwtPlotItem::Rtti_PlotCurve)[1]->title().text(),
             QString("Channel 2 - Square 2Hz"));
    // Column c holds c + 2 on even rows and c - 2 on odd ones (mean c, RMS
    // sqrt(c^2 + 4)); column 15 the row number.
    unsigned int row = 0;
    auto value = [&row](unsigned s, unsigned c) -> float {
        return c == 15 ? float(row + s) : float(c) + ((row + s) % 2 ? -2.0f : 2.0f);
    };
    for (unsigned int rows : {13u, 13u, 4u, 2u}) {
        QVERIFY(!rig->push(rows == 2 ? run | end0 : run, rows, value));
        row += rows;
    }
    view->dataReady();
    QCOMPARE(rig->control.dataAvailable(0), 0u);
    QCOMPARE(view->getSampleCount(), uint64_t(32));
    QCOMPARE(view->getData(1).size(), 32); // column 2
    QCOMPARE(view->getData(1)[0], 4.0);
    QCOMPARE(view->getData(1)[31], 0.0);
    QCOMPARE(curvePoints(view->getGraph(), 13).size(), 32);
    const char* const expect[][5] = {{"0", "2", "0", "2", "-2"},
                                     {"1", "2.82843", "2", "4", "0"},
                                     {"2", "4.47214", "4", "6", "2"},
                                     {"12", "14.1421", "14", "16", "12"},
                                     {"13", "18.0416", "15.5", "31", "0"}};
    for (const auto& e : expect)
        for (int col = 1; col < 5; col++)
            QCOMPARE(stat(QString(e[0]).toInt(), col), QString(e[col]));
    // The next block starts a new trace; the statistics go on.
    QVERIFY(!rig->push(run | end0, 2, value));
    view->dataReady();
    QCOMPARE(view->getData(13), (QVector<double>{32.0, 33.0}));
    QCOMPARE(stat(13, 2), QString("16.5"));
    view->clear();
    QCOMPARE(view->getSampleCount(), uint64_t(0));
    QCOMPARE(stat(13, 2), QString());
    QCOMPARE(curvePoints(view->getGraph(), 13).size(), 0);
}

void WCaptureTest::blocks_data() {
    QTest::addColumn<double>("rate");
    QTest::addColumn<uint16_t>("status");
    QTest::addColumn<bool>("everyBlock"); // drawn after each block
    QTest::addColumn<bool>("end");        // drawn and a new trace next
    QTest::addColumn<int>("finished");    // the main window told
    QTest::newRow("running") << 4000.0 << uint16_t(run) << false << false << 0;
    QTest::newRow("End0, more to come") << 4000.0 << uint16_t(run | end0) << false << true << 0;
    QTest::newRow("End1, more to come") << 4000.0 << uint16_t(run | end1) << false << true << 0;
    QTest::newRow("End0, last") << 4000.0 << uint16_t(end0) << false << true << 1;
    QTest::newRow("End1, last") << 4000.0 << uint16_t(end1) << false << true << 1;
    QTest::newRow("stopped, no end") << 4000.0 << uint16_t(0) << false << false << 0;
    QTest::newRow("10.0/s") << 10.0 << uint16_t(run) << true << false << 0;
    QTest::newRow("10.5/s") << 10.5 << uint16_t(run) << false << false << 0;
    QTest::newRow("0.5/s, End0") << 0.5 << uint16_t(run | end0) << true << true << 0;
}

void WCaptureTest::blocks() {
    QFETCH(double, rate);
    QFETCH(uint16_t, status);
    QFETCH(bool, everyBlock);
    QFETCH(bool, end);
    QFETCH(int, finished);
    rig->setRate(rate);
    for (int b = 1; b <= 4; b++) {
        QVERIFY(!rig->push(b == 4 ? status : run, 1, one));
        view->dataReady();
        QCOMPARE(curvePoints(view->getGraph(), 0).size(), everyBlock || (b == 4 && end) ? b : 0);
    }
    // Not drawn block by block: drawn a moment later all the same.
    if (!everyBlock && !end)
        QTRY_COMPARE_WITH_TIMEOUT(curvePoints(view->getGraph(), 0).size(), 4, 2000);
    // X in seconds.
    if (everyBlock || end)
        QVERIFY(qAbs(curvePoints(view->getGraph(), 0)[3].x() - 3.0 / rate) < 1e-12);
    // The main window hears of the end later, from its own event loop.
    QCOMPARE(rig->host.finished, 0);
    QCoreApplication::processEvents();
    QCOMPARE(rig->host.finished, finished);
    QVERIFY(!rig->push(run, 3, one));
    view->dataReady();
    QCOMPARE(view->getData(0).size(), end ? 3 : 7);
}

void WCaptureTest::throttle() {
    for (unsigned int queued : {1000u, 1001u}) {
        for (unsigned int b = 0; b < queued; b++)
            QVERIFY(!rig->push(run, 1, one));
        // Hidden, the page leaves the blocks where they are.
        view->hide();
        view->dataReady();
        QCOMPARE(rig->control.dataAvailable(0), queued);
        view->show();
        QCOMPARE(stdoutOf([this] { view->dataReady(); }),
                 QString(queued > 1000 ? "Throttle\n" : ""));
        QCOMPARE(rig->control.dataAvailable(0), 0u);
        // Throttled, only the first block was read.
        QCOMPARE(view->getSampleCount(), uint64_t(queued > 1000 ? 1 : queued));
        view->clear();
    }
}

void WCaptureTest::samplesLimit() {
    for (unsigned int bad : {0u, (1u << 27) + 1})
        QCOMPARE(QString(view->setMaxSamples(bad).str().str()),
                 QString("Samples kept per channel must be 1 to 134217728, not %1").arg(bad));
    QCOMPARE(view->getMaxSamples(), 2880000u);
    QVERIFY(!view->setMaxSamples(100));
    QLabel* limit = view->findChild<QLabel*>("limitLabel");
    unsigned int row = 0;
    for (int b = 0; b < 20; b++) {
        QVERIFY(!rig->push(run, 13, [&row](unsigned s, unsigned) { return float(row + s); }));
        row += 13;
        view->dataReady();
        // The newest samples, in order, never more than the limit.
        const QVector<double>& d = view->getData(5);
        QVERIFY(d.size() <= 100);
        QCOMPARE(view->getDroppedSamples() + uint64_t(d.size()), uint64_t(row));
        QCOMPARE(d.last(), double(row - 1));
        QCOMPARE(d.first(), double(row - d.size()));
        QCOMPARE(limit->isVisible(), row > 100);
    }
    QCOMPARE(limit->text(),
             QString("Older samples dropped: %1 of each channel (at most 100 samples are kept)")
                 .arg(260 - view->getData(5).size()));
    // The statistics still cover all 260 rows.
    QVERIFY(!rig->push(run | end0, 0, one));
    view->dataReady();
    QCOMPARE(stat(5, 2), QString("129.5"));
    QCOMPARE(stat(5, 4), QString("0"));
    // A block longer than the limit keeps its newest rows.
    QVERIFY(!view->setMaxSamples(5));
    QVERIFY(!rig->push(run, 13, [](unsigned s, unsigned) { return float(s); }));
    view->dataReady();
    QCOMPARE(view->getData(0), (QVector<double>{8, 9, 10, 11, 12}));
    QCOMPARE(view->getDroppedSamples(), uint64_t(8));
    view->clear();
    QVERIFY(!limit->isVisible());
    // The settings key sets it for new pages, within the same bounds.
    QSettings settings("Korvel", "Tavro-gui");
    for (unsigned int v : {0u, 1234u}) {
        settings.setValue("graph/maxsamples", v);
        QCOMPARE(WCapture(rig->control).getMaxSamples(), v ? v : 2880000u);
    }
}

void WCaptureTest::colours() {
    // Blue, cyan, green, yellow, red, magenta, over again; black for none.
    const QRgb cycle[] = {0x0000ff, 0x00ffff, 0x00ff00, 0xffff00, 0xff0000, 0xff00ff};
    QCOMPARE(colorDefault(-1), QColor(0, 0, 0));
    for (int c = 0; c < 16; c++) {
        QCOMPARE(colorDefault(c), QColor(cycle[c % 6]));
        QCOMPARE(view->getChannelControls(unsigned(c))->getColour(), QColor(cycle[c % 6]));
        QCOMPARE(curveColour(view->getGraph(), c), QColor(cycle[c % 6]));
    }
    // "Set Colour" on channel 7 with the user's choice; cancelling changes nothing.
    WChannelControls::setColourPicker(pickColour);
    QSignalSpy spy(view->getChannelControls(7), &WChannelControls::colourChanged);
    for (QColor picked : {QColor(18, 52, 86), QColor()}) {
        pickedColour = picked;
        button(7, "colour")->click();
        QCOMPARE(spy.size(), 1);
        QCOMPARE(spy[0][0].toUInt(), 7u);
        QCOMPARE(curveColour(view->getGraph(), 7), QColor(18, 52, 86));
    }
    // Kept when the channels are read again.
    view->update(true);
    QCOMPARE(curveColour(view->getGraph(), 7), QColor(18, 52, 86));
    WChannelControls::setColourPicker(nullptr);
}

void WCaptureTest::singleChannelSpectrum_data() {
    QTest::addColumn<double>("scale");
    QTest::addColumn<double>("pgaGain");
    QTest::addColumn<int>("attenuator");
    QTest::addColumn<double>("level");
    // 2 V at 50 Hz on a bin: 0 dB against a factor of 1; calibScale never counts.
    QTest::newRow("factor 1") << 1.0 << 1.0 << 0 << 0.0;
    QTest::newRow("scale 2 / gain 4") << 2.0 << 4.0 << 0 << -20.0 * std::log10(0.5);
    QTest::newRow("attenuator x10") << 2.0 << 4.0 << 1 << -20.0 * std::log10(5.0);
    QTest::newRow("gain 0: factor 1") << 1.0 << 0.0 << 0 << 0.0;
}

void WCaptureTest::singleChannelSpectrum() {
    QFETCH(double, scale);
    QFETCH(double, pgaGain);
    QFETCH(int, attenuator);
    QFETCH(double, level);
    QVERIFY(!rig->setChannel(2, [&](ChannelConfig& c) {
        c.scale = scale;
        c.pgaGain = pgaGain;
        c.attenuator = uint8_t(attenuator);
        c.calibScale = 3.0;
        c.calibScaleAtten1 = 10.0;
    }));
    view->update(false);
    rig->setRate(1000.0);
    // 1003 rows; the spectrum takes the newest 1000.
    unsigned int row = 0;
    auto value = [&row](unsigned s, unsigned c) -> float {
        const unsigned r = row + s;
        if (c != 2)
            return 0.0f;
        return r < 3 ? 100.0f : float(2.0 * std::sin(2.0 * M_PI * 50.0 * (r - 3) / 1000.0));
    };
    for (unsigned int rows; row < 1003; row += rows) {
        rows = std::min(13u, 1003 - row);
        QVERIFY(!rig->push(row + rows == 1003 ? end0 : run, rows, value));
    }
    view->viewChannel(2);
    view->dataReady();
    QCOMPARE(view->getViewChan(), 2);
    QCOMPARE(view->findChild<QStackedWidget*>()->currentIndex(), 1);
    QCOMPARE(button(2, "single")->text(), QString("All"));
    QCOMPARE(curvePoints(view->getSingleGraph(), 0).size(), 1003);
    QVector<QPointF> p = curvePoints(view->getSpectrumGraph(), 0);
    QCOMPARE(p.size(), 500);
    int peak = 0;
    for (int k = 1; k < p.size(); k++)
        if (p[k].y() > p[peak].y())
            peak = k;
    QCOMPARE(p[peak].x(), 50.0);
    QVERIFY2(qAbs(p[peak].y() - level) < 1e-4, qPrintable(QString::number(p[peak].y())));
    QCOMPARE(stdoutOf([this] { view->processDataSingle(16); }),
             QString("Channel greater than available data\n"));
    // "All" goes back to every channel.
    button(2, "single")->click();
    QCOMPARE(view->getViewChan(), -1);
    QCOMPARE(view->findChild<QStackedWidget*>()->currentIndex(), 0);
    QCOMPARE(curvePoints(view->getGraph(), 2).size(), 1003);
}

void WCaptureTest::viewSettings() {
    QVERIFY(!rig->push(end0, 3, [](unsigned s, unsigned c) { return float(c * 10 + s); }));
    view->dataReady();
    Graph* graph = view->getGraph();
    QCheckBox* autoBox = view->findChild<QCheckBox*>("yAutoScale");
    QLineEdit* offset = view->getChannelControls(4)->findChild<QLineEdit*>("offset");
    QVERIFY(autoBox->isChecked());
    QVERIFY(!offset->isEnabled());
    // Switching auto-scaling off keeps the automatic scales, now editable.
    QCOMPARE(graph->getYScale(4), 0.5);
    autoBox->setChecked(false);
    QCOMPARE(view->getChannelControls(4)->findChild<QLineEdit*>("scale")->text(), QString("0.5"));
    QVERIFY(offset->isEnabled());
    offset->setText("-20.5");
    emit offset->editingFinished();
    // Band 11 of 16: 0.5 * 40 - 20.5 + 11.
    QCOMPARE(curvePoints(graph, 4)[0].y(), 10.5);
    view->colourChanged(4, QColor("#102030"));
    view->configSave();
    QSettings s("Korvel", "Tavro-gui");
    QCOMPARE(s.value("graph/yautoscale").toBool(), false);
    QCOMPARE(s.value("graph/xscale").toDouble(), 1.0);
    QCOMPARE(s.value("graph/chan_4.yscale").toDouble(), 0.5);
    QCOMPARE(s.value("graph/chan_4.yoffset").toDouble(), -20.5);
    QCOMPARE(s.value("graph/chan_4.colour").toString(), QString("#102030"));
    QCOMPARE(s.value("graph/chan_15.colour").toString(), QString("#ffff00"));
    s.setValue("graph/maxsamples", 5000);
    s.sync();
    view->configReset();
    QVERIFY(autoBox->isChecked());
    QCOMPARE(curveColour(graph, 4), QColor(255, 0, 0));
    view->configLoad();
    QVERIFY(!autoBox->isChecked());
    QCOMPARE(offset->text(), QString("-20.5"));
    QCOMPARE(curveColour(graph, 4), QColor("#102030"));
    QCOMPARE(curvePoints(graph, 4)[0].y(), 10.5);
    view->configClear();
    s.sync();
    s.beginGroup("graph");
    QCOMPARE(s.childKeys(), QStringList{"maxsamples"});
}

void WCaptureTest::xAxis() {
    // 0.1 s at 1000 samples/s, then 0.13 s and 0.013 s.
    rig->setRate(1000.0);
    auto capture = [this](unsigned int rows) {
        for (unsigned int n; rows; rows -= n) {
            n = std::min(rows, 13u);
            QVERIFY(!rig->push(rows == n ? end0 | run : run, n, one));
        }
        view->dataReady();
    };
    capture(100);
    Graph* graph = view->getGraph();
    QLabel* scaleLabel = view->findChild<QLabel*>("xScaleLabel");
    QLabel* offsetLabel = view->findChild<QLabel*>("xOffsetLabel");
    QCOMPARE(scaleLabel->text(), QString("X Scale: 1.000000"));
    QCOMPARE(offsetLabel->text(), QString("X Offset: 0.000000"));
    double min = 0, max = 0;
    auto axisIs = [&](double a, double b) {
        graph->getXMinMax(min, max);
        return qAbs(min - a) < 1e-12 && qAbs(max - b) < 1e-12;
    };
    view->findChild<QDoubleSpinBox*>("xScale")->setValue(4.0);
    QCOMPARE(scaleLabel->text(), QString("X Scale: 4.000000"));
    QVERIFY(axisIs(0.0, 0.025));
    view->xoffsetUpdate(5.0); // past the end: the last quarter
    QCOMPARE(offsetLabel->text(), QString("X Offset: 5.000000"));
    QVERIFY(axisIs(0.075, 0.1));
    // The zoom stays: where the view stands, or at the end of a shorter capture.
    capture(130);
    QVERIFY(axisIs(0.075, 0.075 + 0.13 / 4));
    capture(13);
    QVERIFY(axisIs(0.013 - 0.013 / 4, 0.013));
    // Without a sample rate the axis counts samples.
    rig->setRate(0.0);
    view->processData();
    QCOMPARE(graph->axisTitle(QwtPlot::xBottom).text(), QString("Time (Samples)"));
    QCOMPARE(curvePoints(graph, 0)[3].x(), 3.0);
}

QTEST_MAIN(WCaptureTest)
#include "moc_capturerig.cpp"
#include "wcapture_qtest.moc"
