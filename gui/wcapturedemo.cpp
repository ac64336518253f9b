#include "wcapturedemo.h"

#include "control.h"
#include "graph.h"
#include "guimessages.h"
#include "wchannelcontrols.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMetaObject>
#include <QPushButton>
#include <QVBoxLayout>

#include <cmath>
#include <cstdio>
#include <cstring>

using namespace TavroApi;

namespace {

// Block status bits.
constexpr uint16_t statusRun = 0x04;
constexpr uint16_t statusEnd0 = 0x10;

const double levelKeep = 0.97;
const double levelTake = 0.03;

QString toQString(const ZString& s) {
    return QString::fromUtf8(s.retStr(), s.len());
}

ZString toZString(const QString& s) {
    QByteArray b = s.toUtf8();
    return ZString(b.constData(), b.size());
}

} // namespace

WCaptureDemo::WCaptureDemo(Control& control, QWidget* parent)
    : QWidget(parent), control(control), graph(nullptr), rowBox(nullptr), rowLayout(nullptr),
      startButton(nullptr), numChans(0), clearPending(false), inDataReady(false), processCount(0) {
    init();
}

WCaptureDemo::~WCaptureDemo() = default;

void WCaptureDemo::init() {
    if (graph)
        return;
    QHBoxLayout* top = new QHBoxLayout(this);
    graph = new Graph;
    graph->setObjectName("graph");
    graph->init();
    graph->enableLegends(true);
    graph->setAxis(QwtPlot::yLeft, "Amplitude", false, -1.0, 8.0);
    graph->enableAxisLabels(QwtPlot::yLeft, false);
    graph->setAxis(QwtPlot::xBottom, "Time (Seconds)", true, 0.0, 0.0);
    graph->setYAutoScale(true);
    graph->setYActive(0);
    top->addWidget(graph, 1);

    QVBoxLayout* side = new QVBoxLayout;
    top->addLayout(side);
    startButton = new QPushButton("Start demo");
    startButton->setObjectName("startDemo");
    side->addWidget(startButton);
    rowBox = new QWidget;
    rowLayout = new QVBoxLayout(rowBox);
    rowLayout->setContentsMargins(0, 0, 0, 0);
    side->addWidget(rowBox);
    side->addStretch(1);

    connect(startButton, &QPushButton::clicked, this, &WCaptureDemo::configDemo);
    update();
}

void WCaptureDemo::update() {
    for (QWidget* w : rows)
        delete w;
    rows.clear();
    levelLabels.clear();
    graph->clear();
    channelMap.clear();

    const ZArray<ChannelConfig>& configs = control.channelConfigs();
    for (int c = 0; c < configs.size(); c++) {
        const ChannelConfig& config = configs[c];
        if (!config.enabled)
            continue;
        const int i = channelMap.size();
        channelMap.append(c);
        QString name =
            QString::fromUtf8(config.name, int(strnlen(config.name, sizeof(config.name))));
        graph->addCurve(toZString(name), QPen(colorDefault(i)));
        graph->setLegend(unsigned(i), toZString(name));

        QWidget* row = new QWidget;
        QHBoxLayout* layout = new QHBoxLayout(row);
        layout->setContentsMargins(0, 0, 0, 0);
        QLabel* title = new QLabel(QString::asprintf("Channel %d - ", c) + name);
        title->setStyleSheet("QLabel { background-color : #a8e37b; }");
        QLabel* value = new QLabel;
        value->setObjectName(QString("level_%1").arg(i));
        value->setMinimumWidth(80);
        value->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        layout->addWidget(title, 1);
        layout->addWidget(value);
        rowLayout->addWidget(row);
        rows.append(row);
        levelLabels.append(value);
    }
    numChans = unsigned(channelMap.size());
    graph->setYAutoScale(true);
    startButton->setEnabled(control.unitsConnected());
    clear();
}

void WCaptureDemo::clear() {
    data = QVector<QVector<double>>(int(numChans));
    level.fill(0.0, int(numChans));
    processCount = 0;
    clearPending = false;
    for (QLabel* l : levelLabels)
        l->clear();
}

double WCaptureDemo::getLevel(unsigned int channel) const {
    return channel < unsigned(level.size()) ? level[int(channel)] : 0.0;
}

QString WCaptureDemo::getLevelText(unsigned int channel) const {
    return channel < unsigned(levelLabels.size()) ? levelLabels[int(channel)]->text() : QString();
}

const QVector<double>& WCaptureDemo::getData(unsigned int channel) const {
    static const QVector<double> none;
    return channel < unsigned(data.size()) ? data[int(channel)] : none;
}

void WCaptureDemo::configDemo() {
    MeasurementConfig m = control.measurementConfig();
    m.measureMode = MeasureMode::Repeat;
    m.triggerConfig = TriggerConfig::None;
    m.triggerLevel = 0.0f;
    m.triggerDelay = 0;
    m.sampleRate = 16000.0;
    m.numSamples0 = 1000;
    m.numSamples2 = 0;
    control.setMeasurement(m);

    AwgConfig awg = control.awgConfig();
    awg.offset = 0.0f;
    awg.duty = 0.5f;
    ZError err = control.setAwgConfig(false, awg);
    if (err) {
        GuiMessages::critical(this, "Tavro-gui - Error", toQString(err.str()));
        return;
    }

    FileSave save = control.fileRawSave();
    save.save = false;
    control.setFileRawSave(save);
    save = control.fileProcSave();
    save.save = false;
    control.setFileProcSave(save);

    callGui("update", true);
    callGui("run", true);
}

bool WCaptureDemo::callGui(const char* slot, bool arg) {
    QWidget* w = window();
    if (w == this || w->metaObject()->indexOfSlot((QByteArray(slot) + "(bool)").constData()) < 0)
        return false;
    return QMetaObject::invokeMethod(w, slot, Qt::DirectConnection, Q_ARG(bool, arg));
}

void WCaptureDemo::notifyCaptureFinished() {
    QWidget* w = window();
    if (w != this && w->metaObject()->indexOfSlot("dataCaptureFinished()") >= 0)
        QMetaObject::invokeMethod(w, "dataCaptureFinished", Qt::QueuedConnection);
}

void WCaptureDemo::dataReady() {
    if (!isVisible() || inDataReady)
        return;
    inDataReady = true;
    const double rate = control.measurementConfig().sampleRate;
    while (const TavroUnitsDataBlock* block = control.dataRead(0)) {
        const unsigned int queued = control.dataAvailable(0);
        if (clearPending) {
            for (QVector<double>& d : data)
                d.resize(0);
            clearPending = false;
        }
        if (size_t(block->numChannels) * block->numSamples <= block->data.size())
            addBlock(block->data.data(), block->numChannels, block->numSamples);
        const uint16_t status = block->header.status;
        const bool end = status & statusEnd0;
        if (end)
            clearPending = true;
        if (end || rate <= slowRate)
            processData();
        if (end && !(status & statusRun))
            notifyCaptureFinished();
        control.dataDone(0);

        if (queued > throttleBlocks) {
            printf("Throttle\n");
            fflush(stdout);
            control.dataSkip(0);
        }
    }
    inDataReady = false;
}

void WCaptureDemo::addBlock(const float* values, unsigned int columns, unsigned int rows) {
    for (unsigned int i = 0; i < numChans; i++) {
        if (unsigned(channelMap[int(i)]) >= columns) {
            printf("WCaptureDemo: block of %u channels lacks channel %d, ignoring\n", columns,
                   channelMap[int(i)]);
            fflush(stdout);
            return;
        }
    }
    for (unsigned int i = 0; i < numChans; i++) {
        QVector<double>& d = data[int(i)];
        if (d.size() + int(rows) > maxSamples)
            d.remove(0, d.size() / 2 + int(rows));
        const unsigned int column = unsigned(channelMap[int(i)]);
        for (unsigned int s = 0; s < rows; s++)
            d.append(double(values[s * columns + column]));
    }
}

void WCaptureDemo::processData() {
    const double rate = control.measurementConfig().sampleRate;
    graph->setDataXScale(std::isfinite(rate) && rate > 0.0 ? 1.0 / rate : 1.0);
    graph->setUpdatesEnabled(false);
    for (unsigned int i = 0; i < numChans; i++)
        graph->setData(i, data[int(i)]);
    graph->setUpdatesEnabled(true);
    graph->replot();

    for (unsigned int i = 0; i < numChans; i++) {
        const QVector<double>& d = data[int(i)];
        const bool demo = channelMap[int(i)] == demoChannel;
        double squares = 0.0;
        for (double x : d) {
            if (demo)
                x = (x - 0.5) / 0.01 - 1.5;
            squares += x * x;
        }
        const double rms = d.isEmpty() ? 0.0 : std::sqrt(squares / d.size());
        level[int(i)] = levelKeep * level[int(i)] + levelTake * rms;
    }
    processCount++;
    if (processCount % levelLabelEvery == 0) {
        for (unsigned int i = 0; i < numChans; i++)
            levelLabels[int(i)]->setText(QString::asprintf("%.3f", level[int(i)]));
    }
}
