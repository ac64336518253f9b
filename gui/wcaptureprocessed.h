#ifndef WCAPTUREPROCESSED_H
#define WCAPTUREPROCESSED_H

#include "tavrodata.h"
#include "zlist.h"

#include <QString>
#include <QVector>
#include <QWidget>

class Control;
class QComboBox;
class QLabel;
class QShowEvent;
class QTableView;
class WCaptureProcessedModel;

// The "Processed Data" page: the values the units compute themselves (mean,
// RMS, peaks, power per channel and processing period), one row per
// processed block, with a summary underneath.
//
// With one channel selected the rows hold that channel's RMS, mean, peaks
// and power, and the summary their averages (RMS, mean, power) and extremes
// (peaks). With "All Channels" the rows hold the RMS of each of the eight
// analogue channels, and the summary the same figures over all eight.
//
// Blocks are collected whether the page is visible or not; the table is
// rebuilt when blocks arrive while it is visible. At most maxBlocks are
// kept, the oldest going first. GUI thread only.
class WCaptureProcessed : public QWidget {
    Q_OBJECT
public:
    static constexpr int maxBlocks = 100000;
    static constexpr int timeColumnWidth = 190;

    WCaptureProcessed(Control& control, QWidget* parent = nullptr);
    ~WCaptureProcessed() override;

    void init();
    using QWidget::update;
    // Refills the channel list from the control object's channel
    // configurations and selects "All Channels", when the channels changed
    // or when all is set.
    void update(int all);
    void clear();
    void processData();

    // The page, for the main window and tests.
    int getSelected() const { return selected; }
    int getNumBlocks() const { return blocks.number(); }
    QComboBox* getChannelSelect() const { return channelSelect; }
    QTableView* getTable() const { return table; }

public slots:
    void selectChannel(int index);
    void dataReady();

protected:
    void showEvent(QShowEvent* event) override;

private:
    void setSummary(const QString& rms, const QString& mean, const QString& peakHigh,
                    const QString& peakLow, const QString& power);

    Control& control;
    ZList<TavroApi::DataBlockProc> blocks;
    QComboBox* channelSelect;
    int selected;
    QVector<int> channelMap;
    QVector<QString> channelTitles;
    QTableView* table;
    WCaptureProcessedModel* model;
    QLabel* rmsValue;
    QLabel* meanValue;
    QLabel* peakHighValue;
    QLabel* peakLowValue;
    QLabel* powerValue;
};

#endif
