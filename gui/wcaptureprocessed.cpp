#include "wcaptureprocessed.h"

#include "control.h"
#include "ztime.h"

#include <QAbstractTableModel>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QStringList>
#include <QTableView>
#include <QVBoxLayout>

#include <algorithm>
#include <cstring>

using TavroApi::DataBlockProc;
using TavroApi::DataProc;

namespace {

const char* const headerSingle = "Time,RMS,Mean,PeakHigh,PeakLow,Power";
const char* const headerAll = "Time,AI0,AI1,AI2,AI3,AI4,AI5,AI6,AI7";

QString toQString(const ZString& s) {
    return QString::fromUtf8(s.retStr(), s.len());
}

QString numberText(double v) {
    return toQString(ZString(v));
}

} // namespace

// The rows of the table, read from the stored blocks when the view asks.
class WCaptureProcessedModel : public QAbstractTableModel {
public:
    explicit WCaptureProcessedModel(QObject* parent) : QAbstractTableModel(parent), channel(-1) {}

    // channel: the entry of analogueData shown, -1 for all channels.
    void setRows(const QVector<const DataBlockProc*>& r, int c, const QStringList& h) {
        beginResetModel();
        rows = r;
        channel = c;
        headers = h;
        endResetModel();
    }

    int rowCount(const QModelIndex& parent = QModelIndex()) const override {
        return parent.isValid() ? 0 : rows.size();
    }
    int columnCount(const QModelIndex& parent = QModelIndex()) const override {
        return parent.isValid() ? 0 : headers.size();
    }
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override {
        if (orientation == Qt::Horizontal && role == Qt::DisplayRole && section >= 0 &&
            section < headers.size())
            return headers[section];
        return QAbstractTableModel::headerData(section, orientation, role);
    }
    QVariant data(const QModelIndex& index, int role) const override {
        if (!index.isValid() || index.row() >= rows.size() || index.column() >= headers.size())
            return QVariant();
        if (role == Qt::TextAlignmentRole)
            return index.column() ? int(Qt::AlignRight | Qt::AlignVCenter)
                                  : int(Qt::AlignLeft | Qt::AlignVCenter);
        if (role != Qt::DisplayRole)
            return QVariant();
        const DataBlockProc& b = *rows[index.row()];
        const int col = index.column();
        if (col == 0)
            return toQString(ZTimeUs(b.time).getStringUs("isoT"));
        if (channel < 0)
            return col - 1 < DataBlockProc::analogueMax ? numberText(b.analogueData[col - 1].rms)
                                                        : QString();
        if (channel >= DataBlockProc::analogueMax)
            return QString();
        const DataProc& p = b.analogueData[channel];
        const float values[] = {p.rms, p.mean, p.peakHigh, p.peakLow, p.power};
        return col - 1 < 5 ? numberText(values[col - 1]) : QString();
    }

private:
    QVector<const DataBlockProc*> rows;
    int channel;
    QStringList headers;
};

WCaptureProcessed::WCaptureProcessed(Control& control, QWidget* parent)
    : QWidget(parent), control(control), channelSelect(nullptr), selected(0), table(nullptr),
      model(nullptr), rmsValue(nullptr), meanValue(nullptr), peakHighValue(nullptr),
      peakLowValue(nullptr), powerValue(nullptr) {
    init();
}

WCaptureProcessed::~WCaptureProcessed() = default;

void WCaptureProcessed::init() {
    if (table)
        return;
    QVBoxLayout* top = new QVBoxLayout(this);
    QGroupBox* box = new QGroupBox("Processed Data");
    top->addWidget(box);
    QVBoxLayout* layout = new QVBoxLayout(box);

    QHBoxLayout* row = new QHBoxLayout;
    layout->addLayout(row);
    row->addWidget(new QLabel("Channel"));
    channelSelect = new QComboBox;
    channelSelect->setObjectName("channelSelect");
    channelSelect->addItem("All Channels");
    row->addWidget(channelSelect);
    row->addStretch(1);

    table = new QTableView;
    table->setObjectName("table");
    model = new WCaptureProcessedModel(this);
    table->setModel(model);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->verticalHeader()->setDefaultSectionSize(table->fontMetrics().height() + 4);
    layout->addWidget(table, 1);

    // Summary.
    QGridLayout* summary = new QGridLayout;
    layout->addLayout(summary);
    const char* const names[] = {"RMS", "Mean", "PeakHigh", "PeakLow", "Power"};
    QLabel** values[] = {&rmsValue, &meanValue, &peakHighValue, &peakLowValue, &powerValue};
    for (int i = 0; i < 5; i++) {
        summary->addWidget(new QLabel(names[i]), 0, i);
        QLabel* value = new QLabel;
        value->setObjectName(QString("summary") + names[i]);
        value->setFrameStyle(QFrame::StyledPanel | QFrame::Sunken);
        value->setTextInteractionFlags(Qt::TextSelectableByMouse);
        summary->addWidget(value, 1, i);
        *values[i] = value;
    }

    connect(channelSelect, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &WCaptureProcessed::selectChannel);
    model->setRows(QVector<const DataBlockProc*>(), -1, QString(headerAll).split(','));
    table->setColumnWidth(0, timeColumnWidth);
}

void WCaptureProcessed::update(int all) {
    QVector<int> map;
    QVector<QString> titles;
    const ZArray<TavroApi::ChannelConfig>& configs = control.channelConfigs();
    for (int c = 0; c < configs.size(); c++) {
        const TavroApi::ChannelConfig& config = configs[c];
        if (!config.enabled)
            continue;
        map.append(c);
        titles.append(
            QString::asprintf("Channel %d - ", c) +
            QString::fromUtf8(config.name, int(strnlen(config.name, sizeof(config.name)))));
    }
    if (!all && map == channelMap && titles == channelTitles)
        return;
    channelMap = map;
    channelTitles = titles;
    {
        QSignalBlocker block(channelSelect);
        channelSelect->clear();
        channelSelect->addItem("All Channels");
        for (const QString& t : titles)
            channelSelect->addItem(t);
        channelSelect->setCurrentIndex(0);
    }
    selectChannel(0);
}

void WCaptureProcessed::selectChannel(int index) {
    selected = index < 0 ? 0 : index;
    if (channelSelect->currentIndex() != selected) {
        QSignalBlocker block(channelSelect);
        channelSelect->setCurrentIndex(selected);
    }
    processData();
}

void WCaptureProcessed::setSummary(const QString& rms, const QString& mean, const QString& peakHigh,
                                   const QString& peakLow, const QString& power) {
    rmsValue->setText(rms);
    meanValue->setText(mean);
    peakHighValue->setText(peakHigh);
    peakLowValue->setText(peakLow);
    powerValue->setText(power);
}

void WCaptureProcessed::clear() {
    blocks.clear();
    model->setRows(QVector<const DataBlockProc*>(), selected > 0 ? selected - 1 : -1,
                   QString(selected > 0 ? headerSingle : headerAll).split(','));
    table->setColumnWidth(0, timeColumnWidth);
    setSummary(QString(), QString(), QString(), QString(), QString());
}

void WCaptureProcessed::dataReady() {
    bool dropped = false;
    while (DataBlockProc* block = control.dataProcRead(0)) {
        blocks.append(*block);
        control.dataProcDone(0);
        if (blocks.number() > maxBlocks) {
            blocks.del(blocks.first());
            dropped = true;
        }
    }
    if (isVisible())
        processData();
    else if (dropped)
        // The table reads the blocks themselves: none of it may outlive one.
        model->setRows(QVector<const DataBlockProc*>(), -1,
                       QString(selected > 0 ? headerSingle : headerAll).split(','));
}

void WCaptureProcessed::processData() {
    // One channel: the entry of analogueData it has; all channels: -1.
    int channel = -1;
    if (selected > 0) {
        if (selected - 1 >= channelMap.size()) {
            table->scrollToBottom();
            return;
        }
        channel = channelMap[selected - 1];
    }
    const bool known = channel < DataBlockProc::analogueMax;

    QVector<const DataBlockProc*> rows;
    rows.reserve(blocks.number());
    double rmsSum = 0.0, meanSum = 0.0, powerSum = 0.0;
    double peakHigh = 0.0, peakLow = 0.0;
    long values = 0;
    for (const DataBlockProc& b : blocks) {
        rows.append(&b);
        if (!known)
            continue;
        const int first = channel < 0 ? 0 : channel;
        const int last = channel < 0 ? DataBlockProc::analogueMax - 1 : channel;
        for (int c = first; c <= last; c++) {
            const DataProc& p = b.analogueData[c];
            rmsSum += p.rms;
            meanSum += p.mean;
            powerSum += p.power;
            peakHigh = values ? std::max(peakHigh, double(p.peakHigh)) : p.peakHigh;
            peakLow = values ? std::min(peakLow, double(p.peakLow)) : p.peakLow;
            values++;
        }
    }
    model->setRows(rows, channel, QString(channel < 0 ? headerAll : headerSingle).split(','));
    table->setColumnWidth(0, timeColumnWidth);
    if (values)
        setSummary(numberText(rmsSum / values), numberText(meanSum / values), numberText(peakHigh),
                   numberText(peakLow), numberText(powerSum / values));
    else
        setSummary(QString(), QString(), QString(), QString(), QString());
    table->scrollToBottom();
}

void WCaptureProcessed::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
}
