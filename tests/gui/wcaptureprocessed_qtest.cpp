// The processed data page against a simulated unit's channels, with
// processed blocks of known contents queued through the unit manager.
#include "capturerig.h"
#include "wcaptureprocessed.h"

#include <QAbstractItemModel>
#include <QComboBox>
#include <QHeaderView>
#include <QLabel>
#include <QTableView>
#include <QtTest>

using TavroApi::ChannelConfig;
using TavroApi::DataBlockProc;

namespace {

// Block b: channel c has rms c + b, mean c - b, peaks c + 10 and c - 10 - b,
// power 2 c (all exact in float).
DataBlockProc block(int b) {
    DataBlockProc p;
    p.time = (1705311000ull + uint64_t(b)) * 1000000u + 123u; // 2024-01-15 09:30:0b UTC
    p.sequence = uint32_t(b);
    p.status = 0x04;
    p.numChannels = 16;
    p.numSamples = 1;
    p.type = TavroApi::DataType::Proc;
    for (int c = 0; c < DataBlockProc::analogueMax; c++) {
        p.analogueData[c].rms = float(c + b);
        p.analogueData[c].mean = float(c - b);
        p.analogueData[c].peakHigh = float(c + 10 + b);
        p.analogueData[c].peakLow = float(c - 10 - b);
        p.analogueData[c].power = float(2 * c);
    }
    return p;
}

// The numbers in s as the page writes them; "-" for an empty cell.
QStringList numbers(const char* s) {
    QStringList out;
    for (const QString& n : QString(s).split(' '))
        out << (n == "-" ? QString() : QString::asprintf("%f", n.toDouble()));
    return out;
}

// Row r of the table, or its headers for r = -1.
QStringList row(QTableView* table, int r) {
    QStringList cells;
    QAbstractItemModel* m = table->model();
    for (int c = 0; c < m->columnCount(); c++)
        cells << (r < 0 ? m->headerData(c, Qt::Horizontal) : m->index(r, c).data()).toString();
    return cells;
}

} // namespace

class WCaptureProcessedTest : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void channelsAndHeaders();
    void rows();
    void blockLimit();

private:
    QStringList summary() const {
        QStringList s;
        for (const char* n : {"RMS", "Mean", "PeakHigh", "PeakLow", "Power"})
            s << view->findChild<QLabel*>(QString("summary") + n)->text();
        return s;
    }
    void push(int first, int count) {
        for (int b = first; b < first + count; b++)
            QVERIFY(!rig->pushProc(block(b)));
    }

    CaptureRig* rig = nullptr;
    WCaptureProcessed* view = nullptr;
};

void WCaptureProcessedTest::init() {
    rig = new CaptureRig;
    QVERIFY(!rig->start());
    view = new WCaptureProcessed(rig->control, &rig->host);
    rig->host.onProc = [this] { view->dataReady(); };
    rig->host.resize(900, 600);
    rig->host.show();
    view->update(true);
}

void WCaptureProcessedTest::cleanup() {
    delete rig;
}

void WCaptureProcessedTest::channelsAndHeaders() {
    QVERIFY(!rig->setChannel(1, [](ChannelConfig& c) { c.enabled = 0; }));
    view->update(false);
    QComboBox* select = view->getChannelSelect();
    QCOMPARE(select->count(), 16);
    QCOMPARE(select->itemText(0), QString("All Channels"));
    QCOMPARE(select->itemText(1), QString("Channel 0 - Sine 50Hz"));
    QCOMPARE(select->itemText(2), QString("Channel 2 - Square 2Hz"));
    QCOMPARE(select->itemText(15), QString("Channel 15 - Digital 7"));
    QTableView* table = view->getTable();
    const QStringList all = QString("Time,AI0,AI1,AI2,AI3,AI4,AI5,AI6,AI7").split(',');
    const QStringList single = QString("Time,RMS,Mean,PeakHigh,PeakLow,Power").split(',');
    QCOMPARE(row(table, -1), all);
    select->setCurrentIndex(2);
    QCOMPARE(view->getSelected(), 2);
    QCOMPARE(row(table, -1), single);
    QCOMPARE(table->columnWidth(0), 190);
    // The same channels keep the choice; a change of channels, or a full
    // update, goes back to "All Channels".
    select->setCurrentIndex(3);
    view->update(false);
    QCOMPARE(view->getSelected(), 3);
    view->update(true);
    QCOMPARE(view->getSelected(), 0);
    select->setCurrentIndex(3);
    QVERIFY(!rig->setChannel(1, [](ChannelConfig& c) { c.enabled = 1; }));
    view->update(false);
    QCOMPARE(view->getSelected(), 0);
    QCOMPARE(select->count(), 17);
    // An entry beyond the list leaves the table as it is.
    push(0, 2);
    view->dataReady();
    view->selectChannel(40);
    QCOMPARE(table->model()->rowCount(), 2);
    QCOMPARE(row(table, -1), all);
}

void WCaptureProcessedTest::rows() {
    // Entry, first and last row after the time, summary; blocks 0 to 2.
    const char* const cases[][4] = {
        {"3", "2 2 12 -8 4", "4 0 14 -10 4", "3 1 14 -10 4"},
        {"8", "7 7 17 -3 14", "9 5 19 -5 14", "8 6 19 -5 14"},
        // A digital channel has no processed values: times only.
        {"10", "- - - - -", "- - - - -", "- - - - -"},
        // All channels: the RMS of each; the summary over all eight.
        {"0", "0 1 2 3 4 5 6 7", "2 3 4 5 6 7 8 9", "4.5 2.5 19 -12 7"},
    };
    QTableView* table = view->getTable();
    view->getChannelSelect()->setCurrentIndex(3);
    push(0, 3);
    QCoreApplication::processEvents();
    QCOMPARE(view->getNumBlocks(), 3);
    for (const auto& c : cases) {
        view->getChannelSelect()->setCurrentIndex(atoi(c[0]));
        QCOMPARE(table->model()->rowCount(), 3);
        QCOMPARE(row(table, 0), QStringList("2024-01-15T09:30:00.000123") + numbers(c[1]));
        QCOMPARE(row(table, 2), QStringList("2024-01-15T09:30:02.000123") + numbers(c[2]));
        QCOMPARE(summary(), numbers(c[3]));
    }
    view->clear();
    QCOMPARE(view->getNumBlocks(), 0);
    QCOMPARE(table->model()->rowCount(), 0);
    QCOMPARE(summary(), numbers("- - - - -"));
}

void WCaptureProcessedTest::blockLimit() {
    // Hidden, the page collects blocks; beyond the limit the oldest go, and
    // the table lets go of them at once.
    view->hide();
    const int total = WCaptureProcessed::maxBlocks + 5;
    for (int b = 0; b < total; b++) {
        TavroApi::DataBlockProc p = block(b);
        QVERIFY(!rig->control.sendDataProcQueue(*rig->control.unit(1), p));
        if (b % 20000 == 19999 || b == total - 1) {
            QVERIFY(rig->control.dataFlush(5000000));
            view->dataReady();
        }
    }
    QCOMPARE(rig->control.droppedProcBlocks(0), uint64_t(0));
    QCOMPARE(view->getNumBlocks(), WCaptureProcessed::maxBlocks);
    QCOMPARE(view->getTable()->model()->rowCount(), 0);
    // Shown, the table waits for the next block.
    view->show();
    QCOMPARE(view->getTable()->model()->rowCount(), 0);
    push(total, 1);
    view->dataReady();
    QCOMPARE(view->getTable()->model()->rowCount(), WCaptureProcessed::maxBlocks);
    QCOMPARE(row(view->getTable(), 0)[1], QString("6.000000"));
    QCOMPARE(row(view->getTable(), WCaptureProcessed::maxBlocks - 1)[1],
             QString::asprintf("%f", double(total)));
}

QTEST_MAIN(WCaptureProcessedTest)
#include "moc_capturerig.cpp"
#include "wcaptureprocessed_qtest.moc"
