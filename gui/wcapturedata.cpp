// The raw capture page: taking the blocks, keeping the samples, drawing them.

#include "wcapture.h"

#include "control.h"
#include "graph.h"
#include "wchannelcontrols.h"

#include <QDoubleSpinBox>
#include <QLabel>
#include <QMetaObject>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <cstdio>

using TavroApi::TavroUnitsDataBlock;

namespace {

// Block status bits.
constexpr uint16_t statusRun = 0x04;
constexpr uint16_t statusEnd = 0x30; // End0 or End1: a capture is complete

QString statText(float v) {
    return QString::asprintf("%.6g", double(v));
}

} // namespace

void WCapture::clear() {
    // Fresh stores: the curves let go of the old ones as they take these.
    data.resize(int(numChans));
    for (auto& d : data)
        d = std::make_shared<QVector<double>>();
    sumSquares.fill(0.0f, int(numChans));
    sum.fill(0.0f, int(numChans));
    max.fill(-HUGE_VALF, int(numChans));
    min.fill(HUGE_VALF, int(numChans));
    sampleCount = 0;
    droppedSamples = 0;
    clearPending = false;
    drawn = false;
    undrawn = false;
    liveTimer->stop();
    showLimit();
    for (QLabel* l : statsLabels)
        l->clear();
    // Empty curves: the last capture's traces go too.
    QVector<QPointF> none;
    for (unsigned int i = 0; i < numChans; i++)
        graph->setData(i, none);
    singleGraph->setData(0, none);
    spectrumGraph->setData(0, none);
}

void WCapture::dataReady() {
    // Hidden, the page leaves the blocks to whoever shows them; a message
    // box of the main window must not bring us back in half way.
    if (!isVisible() || inDataReady)
        return;
    inDataReady = true;
    const double rate = control.measurementConfig().sampleRate;
    while (const TavroUnitsDataBlock* block = control.dataRead(0)) {
        // This block included.
        const unsigned int queued = control.dataAvailable(0);
        if (clearPending) {
            // A new trace: the curves keep the last one until it is drawn.
            for (auto& d : data)
                d = std::make_shared<QVector<double>>();
            droppedSamples = 0;
            showLimit();
            clearPending = false;
        }
        if (addBlock(*block) && block->numSamples)
            undrawn = true;
        const uint16_t status = block->header.status;
        const bool end = status & statusEnd;
        if (end)
            clearPending = true;
        if (end || rate <= slowRate)
            processData();
        if (end && !(status & statusRun))
            notifyCaptureFinished();
        control.dataDone(0);

        // Falling behind a fast unit: the backlog goes unread.
        if (queued > throttleBlocks) {
            printf("Throttle\n");
            fflush(stdout);
            control.dataSkip(0);
        }
    }
    inDataReady = false;
    if (undrawn && !liveTimer->isActive())
        liveTimer->start();
}

void WCapture::liveRedraw() {
    if (undrawn && isVisible())
        processData();
}

bool WCapture::addBlock(const TavroUnitsDataBlock& block) {
    const unsigned int columns = block.numChannels;
    const unsigned int rows = block.numSamples;
    if (size_t(columns) * rows > block.data.size()) {
        printf("WCapture: block of %u samples of %u channels holds %zu values, ignoring\n", rows,
               columns, block.data.size());
        fflush(stdout);
        return false;
    }
    for (unsigned int i = 0; i < numChans; i++) {
        if (unsigned(channelMap[int(i)]) >= columns) {
            printf("WCapture: block of %u channels lacks channel %d, ignoring\n", columns,
                   channelMap[int(i)]);
            fflush(stdout);
            return false;
        }
    }
    if (rows == 0)
        return true;

    makeRoom(rows);
    // Rows beyond the limit in this block alone are never kept.
    const unsigned int first = rows > maxSamples ? rows - maxSamples : 0;
    const float* values = block.data.data();
    for (unsigned int i = 0; i < numChans; i++) {
        const unsigned int column = unsigned(channelMap[int(i)]);
        QVector<double>& d = *data[int(i)];
        float squares = sumSquares[int(i)], total = sum[int(i)];
        float high = max[int(i)], low = min[int(i)];
        for (unsigned int s = 0; s < rows; s++) {
            const float v = values[s * columns + column];
            squares += v * v;
            total += v;
            high = std::max(high, v);
            low = std::min(low, v);
            if (s >= first)
                d.append(double(v));
        }
        sumSquares[int(i)] = squares;
        sum[int(i)] = total;
        max[int(i)] = high;
        min[int(i)] = low;
    }
    if (first) {
        droppedSamples += first;
        showLimit();
    }
    sampleCount += rows;
    return true;
}

void WCapture::makeRoom(unsigned int rows) {
    if (numChans == 0)
        return;
    const unsigned int kept = unsigned(data[0]->size());
    const unsigned int adding = std::min(rows, maxSamples);
    if (kept + uint64_t(adding) <= maxSamples) {
        // Grow straight to the limit rather than past it.
        const int room = int(kept + adding);
        for (auto& d : data) {
            if (d->capacity() < room && d->capacity() * 2 > int(maxSamples))
                d->reserve(int(maxSamples));
        }
        return;
    }
    // Drop a sixteenth of the limit at a time, so that the samples move
    // once per that many rows rather than once per block.
    const unsigned int excess = unsigned(kept + uint64_t(adding) - maxSamples);
    const unsigned int drop = std::min(kept, std::max(excess, maxSamples / 16));
    for (auto& d : data)
        d->remove(0, int(drop));
    droppedSamples += drop;
    showLimit();
}

void WCapture::showLimit() {
    if (!droppedSamples) {
        limitLabel->hide();
        return;
    }
    limitLabel->setText(
        QString("Older samples dropped: %1 of each channel (at most %2 samples are kept)")
            .arg(droppedSamples)
            .arg(maxSamples));
    limitLabel->show();
}

void WCapture::processData() {
    undrawn = false;
    const double rate = control.measurementConfig().sampleRate;
    const bool seconds = std::isfinite(rate) && rate > 0.0;
    dataXScale = seconds ? 1.0 / rate : 1.0;
    const char* xTitle = seconds ? "Time (Seconds)" : "Time (Samples)";
    graph->setAxisTitle(QwtPlot::xBottom, xTitle);
    singleGraph->setAxisTitle(QwtPlot::xBottom, xTitle);
    graph->setDataXScale(dataXScale);
    singleGraph->setDataXScale(dataXScale);

    if (viewChan < 0) {
        // One drawing for all the curves.
        graph->setUpdatesEnabled(false);
        for (unsigned int i = 0; i < numChans; i++)
            graph->setData(i, data[int(i)]);
        drawn = sampleCount > 0;
        if (drawn && xScaleSpin->value() > 1.0) {
            // Zoomed in: the same zoom, where the view stood when that is
            // still within the samples, else over the newest of them.
            graph->setXScale(xScaleSpin->value());
            double min = 0.0, max = 0.0;
            graph->getXMinMax(min, max);
            graph->setXOffset(min);
        }
        graph->setUpdatesEnabled(true);
        graph->replot();
    } else {
        processDataSingle(unsigned(viewChan));
    }
    updateStatistics();
}

void WCapture::updateStatistics() {
    if (!sampleCount)
        return;
    const float count = float(sampleCount);
    for (unsigned int i = 0; i < numChans; i++) {
        QLabel* const* l = statsLabels.constData() + i * 4;
        l[0]->setText(statText(std::sqrt(sumSquares[int(i)] / count)));
        l[1]->setText(statText(sum[int(i)] / count));
        l[2]->setText(statText(max[int(i)]));
        l[3]->setText(statText(min[int(i)]));
    }
}

double WCapture::channelScale(unsigned int channel) const {
    const ZArray<TavroApi::ChannelConfig>& configs = control.channelConfigs();
    const int number = getChannelNumber(channel);
    if (number < 0 || number >= configs.size())
        return 1.0;
    const TavroApi::ChannelConfig& c = configs[number];
    double s = c.scale / c.pgaGain;
    if (c.attenuator)
        s *= c.calibScaleAtten1;
    // No level can be given against a zero or undefined factor.
    return std::isfinite(s) && s > 0.0 ? s : 1.0;
}

void WCapture::processDataSingle(unsigned int channel) {
    if (channel >= unsigned(data.size())) {
        printf("Channel greater than available data\n");
        fflush(stdout);
        return;
    }
    const QVector<double>& d = *data[int(channel)];
    singleGraph->setData(0, data[int(channel)]);

    QVector<QPointF> points;
    ZError err =
        spectrum.compute(d.constData(), unsigned(d.size()), control.measurementConfig().sampleRate,
                         channelScale(channel), points);
    if (err) {
        printf("Spectrum: %s\n", err.str().str());
        fflush(stdout);
    }
    spectrumGraph->setData(0, points);
}

void WCapture::notifyCaptureFinished() {
    // Queued: the main window may show a message box, and this page must
    // not be re-entered from its event loop.
    QWidget* w = window();
    if (w != this && w->metaObject()->indexOfSlot("dataCaptureFinished()") >= 0)
        QMetaObject::invokeMethod(w, "dataCaptureFinished", Qt::QueuedConnection);
}
