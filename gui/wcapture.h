#ifndef WCAPTURE_H
#define WCAPTURE_H

#include "spectrum.h"
#include "zerror.h"
#include "zlist.h"

#include <QColor>
#include <QString>
#include <QVector>
#include <QWidget>

#include <cstdint>
#include <memory>

class Control;
class Graph;
class QCheckBox;
class QDoubleSpinBox;
class QGridLayout;
class QLabel;
class QStackedWidget;
class QTimer;
class WChannelControls;

namespace TavroApi {
class TavroUnitsDataBlock;
}

// The "Raw Data" page: the raw blocks of a capture from stream 0 of the unit
// manager, the samples of every enabled channel stacked on one graph, their
// statistics, and one channel alone with its spectrum.
//
// Samples are kept from one capture end to the next (or to clear()), at most
// maxSamples per channel: beyond that the oldest go, and the page says so.
// The statistics cover every sample since clear(), dropped ones included.
//
// The main window hands the data on ("dataReady") while the page is visible
// and learns of the end of a capture through its slot
// "dataCaptureFinished()", called queued on the top-level widget holding the
// page. GUI thread only.
class WCapture : public QWidget {
    Q_OBJECT
public:
    // Backlog of blocks beyond which the queue is dropped unread.
    static constexpr unsigned int throttleBlocks = 1000;
    // Captures at this rate or slower are drawn block by block.
    static constexpr double slowRate = 10.0;
    // Faster ones are drawn at the end of each trace and, while samples
    // come, at most this often.
    static constexpr int liveRedrawMs = 250;
    // Samples kept per channel by default: three minutes at 16 kHz.
    static constexpr unsigned int maxSamplesDefault = 2880000;
    // The limit may be set from 1 up to this (1 GB per channel).
    static constexpr unsigned int maxSamplesLimit = 1u << 27;

    WCapture(Control& control, QWidget* parent = nullptr);
    ~WCapture() override;

    void init();
    using QWidget::update;
    // Rebuilds the channels from the control object's channel configurations
    // when they changed or when all is set; colours, scales and offsets of
    // the channels that stay are kept.
    void update(int all);
    void clear();
    void processData();
    void processDataSingle(unsigned int channel);

    // Samples kept per channel; refuses 0 and more than maxSamplesLimit. The
    // settings key "graph/maxsamples" sets it at construction.
    ZError setMaxSamples(unsigned int samples);
    unsigned int getMaxSamples() const { return maxSamples; }
    // Samples of each channel dropped since the last capture end or clear().
    uint64_t getDroppedSamples() const { return droppedSamples; }

    // The view, for the main window and tests.
    unsigned int getNumChans() const { return numChans; }
    int getViewChan() const { return viewChan; }
    uint64_t getSampleCount() const { return sampleCount; }
    const QVector<double>& getData(unsigned int channel) const;
    // The channel configuration number of a displayed channel; -1 for none.
    int getChannelNumber(unsigned int channel) const;
    WChannelControls* getChannelControls(unsigned int channel) const;
    Graph* getGraph() const { return graph; }
    Graph* getSingleGraph() const { return singleGraph; }
    Graph* getSpectrumGraph() const { return spectrumGraph; }

public slots:
    void dataReady();
    void viewChannel(int channel);
    void yautoScale(bool on);
    void xscaleChanged(double scale);
    void xoffsetUpdate(double offset);
    void colourChanged(unsigned int channel, QColor colour);
    void configSave();
    void configLoad();
    void configReset();
    void configClear();

private slots:
    // The samples taken since the last drawing are drawn.
    void liveRedraw();
    void scaleChanged(unsigned int channel, double scale);
    void offsetChanged(unsigned int channel, double offset);
    void graphScaleChanged(unsigned int channel, double scale);
    void graphOffsetChanged(unsigned int channel, double offset);

private:
    struct Channel {
        int number;
        QString title;
        bool operator==(const Channel& o) const { return number == o.number && title == o.title; }
    };

    void build(const QVector<Channel>& list);
    // Accumulates the samples of one block; false for a block that does not
    // hold the displayed channels.
    bool addBlock(const TavroApi::TavroUnitsDataBlock& block);
    // Drops the oldest samples so that rows more fit under maxSamples.
    void makeRoom(unsigned int rows);
    void showLimit();
    void updateAutoscale();
    void updateStatistics();
    void setSingleChannel(int channel);
    // The factor of a displayed channel's raw values in the spectrum.
    double channelScale(unsigned int channel) const;
    void notifyCaptureFinished();
    bool running() const;

    Control& control;
    Graph* graph;
    Graph* singleGraph;
    Graph* spectrumGraph;
    QStackedWidget* stack;
    ZList<WChannelControls*> channelControls;
    bool clearPending;
    unsigned int numChans;
    int viewChan;
    QVector<int> channelMap;
    QVector<Channel> channels;
    // The samples kept of each channel, shared with the curves that draw them.
    QVector<std::shared_ptr<QVector<double>>> data;
    QVector<float> sumSquares;
    QVector<float> sum;
    QVector<float> max;
    QVector<float> min;
    uint64_t sampleCount;
    double dataXScale;

    unsigned int maxSamples;
    uint64_t droppedSamples;
    bool inDataReady;
    bool drawn;   // the graph shows samples
    bool undrawn; // samples came since the last drawing
    QTimer* liveTimer;
    Spectrum spectrum;

    QWidget* stripBox;
    QWidget* statsBox;
    QGridLayout* statsGrid;
    QVector<QLabel*> statsLabels; // per channel: RMS, Mean, Max, Min
    QLabel* xOffsetLabel;
    QLabel* xScaleLabel;
    QDoubleSpinBox* xOffsetSpin;
    QDoubleSpinBox* xScaleSpin;
    QCheckBox* yAutoScaleBox;
    QLabel* limitLabel;
};

#endif
