#ifndef WCAPTUREDEMO_H
#define WCAPTUREDEMO_H

#include "zlist.h"

#include <QVector>
#include <QWidget>

class Control;
class Graph;
class QLabel;
class QPushButton;
class QVBoxLayout;

// The "Capture Demo" page: "Start demo" puts the unit into its demonstration
// mode (16 kHz captures of 1000 samples, one after the other, the waveform
// generator running) and the page shows every enabled channel stacked, with
// a smoothed RMS level per channel.
//
// Channel demoChannel reads the waveform generator back; its samples are
// mapped by (x - 0.5) / 0.01 - 1.5 before its level is taken. Levels are
// smoothed over captures, 0.97 of the old and 0.03 of the new, and their
// labels rewritten every tenth drawing.
//
// It reads stream 0 of the unit manager like the raw capture page, while the
// main window hands it the data. The main window's slots "update(bool)",
// "run(bool)" and "dataCaptureFinished()" are called on the top-level widget
// holding the page. GUI thread only.
class WCaptureDemo : public QWidget {
    Q_OBJECT
public:
    static constexpr unsigned int throttleBlocks = 1000;
    static constexpr double slowRate = 10.0;
    static constexpr int demoChannel = 7;
    // Samples kept per channel when no capture end comes: the older half
    // goes beyond it.
    static constexpr int maxSamples = 1000000;
    // Drawings between two rewrites of the level labels.
    static constexpr unsigned int levelLabelEvery = 10;

    WCaptureDemo(Control& control, QWidget* parent = nullptr);
    ~WCaptureDemo() override;

    void init();
    using QWidget::update;
    // Rebuilds the channel rows from the control object's channel
    // configurations; "Start demo" works while units are connected.
    void update();
    void clear();
    void processData();

    // The page, for tests.
    unsigned int getNumChans() const { return numChans; }
    double getLevel(unsigned int channel) const;
    QString getLevelText(unsigned int channel) const;
    unsigned int getProcessCount() const { return processCount; }
    const QVector<double>& getData(unsigned int channel) const;
    Graph* getGraph() const { return graph; }
    QPushButton* getStartButton() const { return startButton; }

public slots:
    void configDemo();
    void dataReady();

private:
    void addBlock(const float* values, unsigned int columns, unsigned int rows);
    // Calls a slot of the main window now; false when there is none.
    bool callGui(const char* slot, bool arg);
    void notifyCaptureFinished();

    Control& control;
    Graph* graph;
    QWidget* rowBox;
    QVBoxLayout* rowLayout;
    ZList<QWidget*> rows;
    QVector<QLabel*> levelLabels;
    QPushButton* startButton;
    unsigned int numChans;
    QVector<int> channelMap;
    QVector<QVector<double>> data;
    bool clearPending;
    bool inDataReady;
    QVector<double> level;
    unsigned int processCount;
};

#endif
