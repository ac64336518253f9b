// The raw capture page: its widgets, channels and view settings.

#include "wcapture.h"

#include "control.h"
#include "graph.h"
#include "wchannelcontrols.h"

#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMap>
#include <QPushButton>
#include <QScrollArea>
#include <QSettings>
#include <QSplitter>
#include <QStackedWidget>
#include <QTimer>
#include <QVBoxLayout>

#include <cmath>
#include <cstring>

namespace {

const char* const settingsOrganisation = "Korvel";
const char* const settingsApplication = "Tavro-gui";
const bool yAutoScaleDefault = true;

QString chanKey(int number, const char* item) {
    return QString("graph/chan_%1.%2").arg(number).arg(item);
}

// A fixed-size text field of a record, which need not be terminated.
QString fieldText(const char* field, size_t size) {
    return QString::fromUtf8(field, int(strnlen(field, size)));
}

ZString toZString(const QString& s) {
    QByteArray b = s.toUtf8();
    return ZString(b.constData(), b.size());
}

} // namespace

WCapture::WCapture(Control& control, QWidget* parent)
    : QWidget(parent), control(control), graph(nullptr), singleGraph(nullptr),
      spectrumGraph(nullptr), stack(nullptr), clearPending(false), numChans(0), viewChan(-1),
      sampleCount(0), dataXScale(1.0), maxSamples(maxSamplesDefault), droppedSamples(0),
      inDataReady(false), drawn(false), undrawn(false), liveTimer(nullptr), stripBox(nullptr),
      statsBox(nullptr), statsGrid(nullptr), xOffsetLabel(nullptr), xScaleLabel(nullptr),
      xOffsetSpin(nullptr), xScaleSpin(nullptr), yAutoScaleBox(nullptr), limitLabel(nullptr) {
    QSettings settings(settingsOrganisation, settingsApplication);
    bool ok = false;
    unsigned int limit = settings.value("graph/maxsamples").toUInt(&ok);
    if (ok && setMaxSamples(limit))
        maxSamples = maxSamplesDefault;
    liveTimer = new QTimer(this);
    liveTimer->setSingleShot(true);
    liveTimer->setInterval(liveRedrawMs);
    connect(liveTimer, SIGNAL(timeout()), this, SLOT(liveRedraw()));
    init();
}

WCapture::~WCapture() = default;

void WCapture::init() {
    if (graph)
        return;
    QVBoxLayout* top = new QVBoxLayout(this);
    QGroupBox* box = new QGroupBox("Graphs");
    top->addWidget(box, 1);
    QHBoxLayout* boxLayout = new QHBoxLayout(box);
    QSplitter* split = new QSplitter(Qt::Horizontal);
    boxLayout->addWidget(split);

    // All channels, or one channel with its spectrum.
    stack = new QStackedWidget;
    graph = new Graph;
    graph->setObjectName("graph");
    graph->init();
    graph->setAxis(QwtPlot::xBottom, "Time (Seconds)", true, 0.0, 0.0);
    graph->setAxis(QwtPlot::yLeft, "Data Values", true, 0.0, 0.0);
    stack->addWidget(graph);

    QSplitter* single = new QSplitter(Qt::Vertical);
    singleGraph = new Graph;
    singleGraph->setObjectName("singleGraph");
    singleGraph->init();
    singleGraph->setAxis(QwtPlot::xBottom, "Time (Seconds)", true, 0.0, 0.0);
    singleGraph->setAxis(QwtPlot::yLeft, "Data Values", true, 0.0, 0.0);
    singleGraph->setYAutoScale(true);
    spectrumGraph = new Graph;
    spectrumGraph->setObjectName("spectrumGraph");
    spectrumGraph->init();
    spectrumGraph->setAxis(QwtPlot::xBottom, "Frequency (Hz)", true, 0.0, 0.0);
    spectrumGraph->setAxis(QwtPlot::yLeft, "Level (dB)", true, 0.0, 0.0);
    spectrumGraph->setYAutoScale(true);
    single->addWidget(singleGraph);
    single->addWidget(spectrumGraph);
    stack->addWidget(single);
    split->addWidget(stack);

    QScrollArea* strips = new QScrollArea;
    strips->setWidgetResizable(true);
    strips->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    stripBox = new QWidget;
    QVBoxLayout* stripLayout = new QVBoxLayout(stripBox);
    stripLayout->setContentsMargins(2, 2, 2, 2);
    stripLayout->addStretch(1);
    strips->setWidget(stripBox);
    split->addWidget(strips);
    split->setStretchFactor(0, 1);

    // X axis, Y scaling and the saved view settings.
    QHBoxLayout* row = new QHBoxLayout;
    top->addLayout(row);
    row->addWidget(new QLabel("X Offset"));
    xOffsetSpin = new QDoubleSpinBox;
    xOffsetSpin->setObjectName("xOffset");
    xOffsetSpin->setRange(0.0, 1e9);
    xOffsetSpin->setDecimals(6);
    xOffsetSpin->setSingleStep(0.1);
    // Narrower than its largest value needs: the row fits a laptop screen.
    xOffsetSpin->setMinimumWidth(110);
    row->addWidget(xOffsetSpin);
    xOffsetLabel = new QLabel(QString::asprintf("X Offset: %f", 0.0));
    xOffsetLabel->setObjectName("xOffsetLabel");
    row->addWidget(xOffsetLabel);
    row->addWidget(new QLabel("X Scale"));
    xScaleSpin = new QDoubleSpinBox;
    xScaleSpin->setObjectName("xScale");
    xScaleSpin->setRange(1.0, 1e6);
    xScaleSpin->setDecimals(3);
    xScaleSpin->setValue(1.0);
    xScaleSpin->setMinimumWidth(90);
    row->addWidget(xScaleSpin);
    xScaleLabel = new QLabel(QString::asprintf("X Scale: %f", 1.0));
    xScaleLabel->setObjectName("xScaleLabel");
    row->addWidget(xScaleLabel);
    yAutoScaleBox = new QCheckBox("Y Auto Scale");
    yAutoScaleBox->setObjectName("yAutoScale");
    row->addWidget(yAutoScaleBox);
    row->addStretch(1);
    QPushButton* load = new QPushButton("Load");
    QPushButton* save = new QPushButton("Save");
    QPushButton* reset = new QPushButton("Reset");
    load->setToolTip("Restore the saved view settings");
    save->setToolTip("Save the view settings");
    reset->setToolTip("Default colours and scales");
    row->addWidget(load);
    row->addWidget(save);
    row->addWidget(reset);

    limitLabel = new QLabel;
    limitLabel->setObjectName("limitLabel");
    limitLabel->hide();
    top->addWidget(limitLabel);

    QScrollArea* stats = new QScrollArea;
    stats->setWidgetResizable(true);
    stats->setMaximumHeight(160);
    statsBox = new QWidget;
    statsGrid = new QGridLayout(statsBox);
    statsGrid->setContentsMargins(2, 2, 2, 2);
    stats->setWidget(statsBox);
    top->addWidget(stats);

    connect(xOffsetSpin, QOverload<double>::of(&QDoubleSpinBox::valueChanged), this,
            &WCapture::xoffsetUpdate);
    connect(xScaleSpin, QOverload<double>::of(&QDoubleSpinBox::valueChanged), this,
            &WCapture::xscaleChanged);
    connect(graph, &Graph::xOffsetChanged, this, &WCapture::xoffsetUpdate);
    connect(graph, &Graph::xScaleChanged, this, &WCapture::xscaleChanged);
    connect(graph, &Graph::yScaleChanged, this, &WCapture::graphScaleChanged);
    connect(graph, &Graph::yOffsetChanged, this, &WCapture::graphOffsetChanged);
    connect(yAutoScaleBox, &QCheckBox::toggled, this, &WCapture::yautoScale);
    connect(load, &QPushButton::clicked, this, &WCapture::configLoad);
    connect(save, &QPushButton::clicked, this, &WCapture::configSave);
    connect(reset, &QPushButton::clicked, this, &WCapture::configReset);

    yAutoScaleBox->setChecked(yAutoScaleDefault);
    build(QVector<Channel>());
}

ZError WCapture::setMaxSamples(unsigned int samples) {
    if (samples < 1 || samples > maxSamplesLimit)
        return ZError(ZString("Samples kept per channel must be 1 to ") + ZString(maxSamplesLimit) +
                      ", not " + ZString(samples));
    maxSamples = samples;
    return ZError();
}

const QVector<double>& WCapture::getData(unsigned int channel) const {
    static const QVector<double> none;
    return channel < unsigned(data.size()) ? *data[int(channel)] : none;
}

int WCapture::getChannelNumber(unsigned int channel) const {
    return channel < unsigned(channels.size()) ? channels[int(channel)].number : -1;
}

WChannelControls* WCapture::getChannelControls(unsigned int channel) const {
    return channel < unsigned(channelControls.size()) ? channelControls[int(channel)] : nullptr;
}

bool WCapture::running() const {
    return control.measureRunning();
}

// Channels

void WCapture::update(int all) {
    QVector<Channel> list;
    const ZArray<TavroApi::ChannelConfig>& configs = control.channelConfigs();
    for (int c = 0; c < configs.size(); c++) {
        const TavroApi::ChannelConfig& config = configs[c];
        if (!config.enabled)
            continue;
        Channel ch;
        ch.number = c;
        ch.title =
            QString::asprintf("Channel %d - ", c) + fieldText(config.name, sizeof(config.name));
        list.append(ch);
    }
    if (all || list != channels)
        build(list);
}

void WCapture::build(const QVector<Channel>& list) {
    // What the user set for the channels that stay.
    struct Look {
        QColor colour;
        double scale;
        double offset;
    };
    QMap<int, Look> looks;
    for (int i = 0; i < channelControls.size(); i++) {
        WChannelControls* w = channelControls[i];
        looks[channels[i].number] =
            Look{w->getColour(), graph->getYScale(unsigned(i)), graph->getYOffset(unsigned(i))};
    }

    setSingleChannel(-1);
    for (WChannelControls* w : channelControls)
        delete w;
    channelControls.clear();
    statsLabels.clear();
    while (QLayoutItem* item = statsGrid->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    graph->clear();

    channels = list;
    numChans = unsigned(list.size());
    channelMap.resize(int(numChans));
    QVBoxLayout* stripLayout = static_cast<QVBoxLayout*>(stripBox->layout());
    const char* const headers[] = {"<b>Channel</b>", "<b>RMS</b>", "<b>Mean</b>", "<b>Max</b>",
                                   "<b>Min</b>"};
    for (int col = 0; col < 5; col++)
        statsGrid->addWidget(new QLabel(headers[col]), 0, col);

    for (unsigned int i = 0; i < numChans; i++) {
        const Channel& ch = list[int(i)];
        channelMap[int(i)] = ch.number;
        Look look{colorDefault(int(i)), 1.0, 0.0};
        if (looks.contains(ch.number))
            look = looks[ch.number];

        graph->addCurve(toZString(ch.title), QPen(look.colour));
        graph->setYScale(i, look.scale);
        graph->setYOffset(i, look.offset);

        WChannelControls* w = new WChannelControls(i, ch.title);
        w->setColour(look.colour);
        w->update(look.scale, look.offset);
        w->setManual(!yAutoScaleBox->isChecked());
        stripLayout->insertWidget(stripLayout->count() - 1, w);
        channelControls.append(w);
        connect(w, &WChannelControls::viewChannel, this, &WCapture::viewChannel);
        connect(w, &WChannelControls::colourChanged, this, &WCapture::colourChanged);
        connect(w, &WChannelControls::scaleChanged, this, &WCapture::scaleChanged);
        connect(w, &WChannelControls::offsetChanged, this, &WCapture::offsetChanged);

        QLabel* name = new QLabel(ch.title);
        name->setStyleSheet("QLabel { background-color : #a8e37b; }");
        statsGrid->addWidget(name, int(i) + 1, 0);
        for (int col = 1; col < 5; col++) {
            QLabel* value = new QLabel;
            value->setObjectName(QString("stat_%1_%2").arg(i).arg(col));
            statsGrid->addWidget(value, int(i) + 1, col);
            statsLabels.append(value);
        }
    }
    statsGrid->setRowStretch(int(numChans) + 1, 1);
    // Bands of height 1 from 0 (the last channel) up to numChans - 1.
    graph->setAxis(QwtPlot::yLeft, "Data Values", numChans < 2, -1.0, double(numChans));
    graph->setYAutoScale(yAutoScaleBox->isChecked());
    graph->replot();
    clear();
}

// The view

void WCapture::setSingleChannel(int channel) {
    if (channel >= int(numChans))
        channel = -1;
    viewChan = channel;
    for (int i = 0; i < channelControls.size(); i++) {
        if (i == channel)
            channelControls[i]->viewChan();
        else
            channelControls[i]->viewAll();
    }
    singleGraph->clear();
    spectrumGraph->clear();
    if (channel < 0) {
        spectrum.release();
        stack->setCurrentIndex(0);
        return;
    }
    const Channel& ch = channels[channel];
    QColor colour = channelControls[channel]->getColour();
    singleGraph->addCurve(toZString(ch.title), QPen(colour));
    spectrumGraph->addCurve(toZString(ch.title), QPen(colour));
    singleGraph->setYAutoScale(true);
    spectrumGraph->setYAutoScale(true);
    stack->setCurrentIndex(1);
}

void WCapture::viewChannel(int channel) {
    setSingleChannel(channel < 0 ? -1 : channel);
    if (sampleCount)
        processData();
}

void WCapture::updateAutoscale() {
    for (int i = 0; i < channelControls.size(); i++)
        channelControls[i]->update(graph->getYScale(unsigned(i)), graph->getYOffset(unsigned(i)));
}

void WCapture::yautoScale(bool on) {
    if (yAutoScaleBox->isChecked() != on) {
        // Through the box, which calls here again.
        yAutoScaleBox->setChecked(on);
        return;
    }
    if (!on)
        updateAutoscale();
    graph->setYAutoScale(on);
    for (WChannelControls* w : channelControls)
        w->setManual(!on);
    if (!running() && sampleCount)
        processData();
}

void WCapture::xscaleChanged(double scale) {
    if (!std::isfinite(scale) || scale < 1.0)
        return;
    // At 1 the axis follows the data; zoomed in, it keeps its lower end.
    if (scale > 1.0) {
        if (drawn)
            graph->setXScale(scale);
    } else {
        graph->setAxisAutoScale(QwtPlot::xBottom, true);
        graph->replot();
    }
    xScaleLabel->setText(QString::asprintf("X Scale: %f", scale));
    if (xScaleSpin->value() != scale) {
        QSignalBlocker block(xScaleSpin);
        xScaleSpin->setValue(scale);
    }
}

void WCapture::xoffsetUpdate(double offset) {
    if (!std::isfinite(offset))
        return;
    // Only a zoomed-in axis over drawn data can move.
    if (drawn && xScaleSpin->value() > 1.0)
        graph->setXOffset(offset);
    xOffsetLabel->setText(QString::asprintf("X Offset: %f", offset));
    if (xOffsetSpin->value() != offset) {
        QSignalBlocker block(xOffsetSpin);
        xOffsetSpin->setValue(offset);
    }
}

void WCapture::colourChanged(unsigned int channel, QColor colour) {
    if (channel >= numChans)
        return;
    channelControls[int(channel)]->setColour(colour);
    graph->setColour(channel, colour);
    if (int(channel) == viewChan) {
        singleGraph->setColour(0, colour);
        spectrumGraph->setColour(0, colour);
    }
    graph->replot();
}

void WCapture::scaleChanged(unsigned int channel, double scale) {
    if (graph->setYScale(channel, scale))
        return;
    if (!graph->getYAutoScale())
        graph->replotChan(channel);
}

void WCapture::offsetChanged(unsigned int channel, double offset) {
    if (graph->setYOffset(channel, offset))
        return;
    if (!graph->getYAutoScale())
        graph->replotChan(channel);
}

void WCapture::graphScaleChanged(unsigned int channel, double scale) {
    if (WChannelControls* w = getChannelControls(channel))
        w->update(scale, w->getOffset());
}

void WCapture::graphOffsetChanged(unsigned int channel, double offset) {
    if (WChannelControls* w = getChannelControls(channel))
        w->update(w->getScale(), offset);
}

// View settings

void WCapture::configSave() {
    QSettings settings(settingsOrganisation, settingsApplication);
    double min = 0.0, max = 0.0;
    graph->getXMinMax(min, max);
    settings.setValue("graph/xoffset", min);
    settings.setValue("graph/xscale", xScaleSpin->value());
    settings.setValue("graph/yautoscale", yAutoScaleBox->isChecked());
    for (unsigned int i = 0; i < numChans; i++) {
        const int n = channels[int(i)].number;
        settings.setValue(chanKey(n, "yscale"), graph->getYScale(i));
        settings.setValue(chanKey(n, "yoffset"), graph->getYOffset(i));
        settings.setValue(chanKey(n, "colour"), channelControls[int(i)]->getColour().name());
    }
    settings.sync();
}

void WCapture::configLoad() {
    QSettings settings(settingsOrganisation, settingsApplication);
    // Auto-scaling first: switching it off stores the automatic scales,
    // which the saved ones then replace.
    yautoScale(settings.value("graph/yautoscale", yAutoScaleBox->isChecked()).toBool());
    for (unsigned int i = 0; i < numChans; i++) {
        const int n = channels[int(i)].number;
        WChannelControls* w = channelControls[int(i)];
        bool okScale = false, okOffset = false;
        double scale = settings.value(chanKey(n, "yscale")).toDouble(&okScale);
        double offset = settings.value(chanKey(n, "yoffset")).toDouble(&okOffset);
        if (okScale && std::isfinite(scale))
            graph->setYScale(i, scale);
        if (okOffset && std::isfinite(offset))
            graph->setYOffset(i, offset);
        w->update(graph->getYScale(i), graph->getYOffset(i));
        QColor colour(settings.value(chanKey(n, "colour")).toString());
        if (colour.isValid())
            colourChanged(i, colour);
    }
    bool ok = false;
    double scale = settings.value("graph/xscale").toDouble(&ok);
    if (ok)
        xscaleChanged(scale);
    double offset = settings.value("graph/xoffset").toDouble(&ok);
    if (ok)
        xoffsetUpdate(offset);
    if (!running() && sampleCount)
        processData();
}

void WCapture::configReset() {
    yautoScale(yAutoScaleDefault);
    for (unsigned int i = 0; i < numChans; i++) {
        graph->setYScale(i, 1.0);
        graph->setYOffset(i, 0.0);
        channelControls[int(i)]->update(1.0, 0.0);
        colourChanged(i, colorDefault(int(i)));
    }
    xscaleChanged(1.0);
    xoffsetUpdate(0.0);
    if (!running() && sampleCount)
        processData();
}

void WCapture::configClear() {
    QSettings settings(settingsOrganisation, settingsApplication);
    settings.beginGroup("graph");
    // The sample limit is not a view setting.
    for (const QString& key : settings.childKeys()) {
        if (key != "maxsamples")
            settings.remove(key);
    }
    settings.endGroup();
    settings.sync();
}
