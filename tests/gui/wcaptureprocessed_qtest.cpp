// The processed data page against a simulated unit's channels, with
// processed blocks of known contents queued through the unit manager: the
// channel list and headers, rows and summaries for one channel and for all,
// collecting while hidden, the block limit and clearing.
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

// Stands for the main window: hands the processed data to the page.
class Host : public QWidget {
    Q_OBJECT
public:
    WCaptureProcessed* view = nullptr;

public slots:
    void dataReady() {}
    void dataProcReady() {
        if (view)
            view->dataReady();
    }
    void unitsDisconnected() {}
};

namespace {

// 2024-01-15 09:30:00 UTC.
const uint64_t t0 = 1705311000ull * 1000000ull;

// Block b: channel c has rms c + b, mean c - b, peaks c + 10 and c - 10 - b,
// power 2 c (all exact in float).
DataBlockProc block(int b) {
    DataBlockProc p;
    p.time = t0 + uint64_t(b) * 1000000u + 123u;
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

QStringList headers(QTableView* table) {
    QStringList h;
    QAbstractItemModel* m = table->model();
    for (int c = 0; c < m->columnCount(); c++)
        h << m->headerData(c, Qt::Horizontal).toString();
    return h;
}

QStringList row(QTableView* table, int r) {
    QStringList cells;
    QAbstractItemModel* m = table->model();
    for (int c = 0; c < m->columnCount(); c++)
        cells << m->index(r, c).data().toString();
    return cells;
}

} // namespace

class WCaptureProcessedTest : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void channelsAndHeaders();
    void rows_data();
    void rows();
    void hiddenPageCollects();
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

    Host* host = nullptr;
    CaptureRig* rig = nullptr;
    WCaptureProcessed* view = nullptr;
};

void WCaptureProcessedTest::init() {
    host = new Host;
    rig = new CaptureRig(host);
    QVERIFY(!rig->start());
    view = new WCaptureProcessed(rig->control, host);
    host->view = view;
    host->resize(900, 600);
    host->show();
    view->update(true);
}

void WCaptureProcessedTest::cleanup() {
    delete rig;
    delete host;
    rig = nullptr;
    host = nullptr;
    view = nullptr;
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
    QCOMPARE(headers(table), all);
    QCOMPARE(table->columnWidth(0), 190);
    select->setCurrentIndex(2);
    QCOMPARE(view->getSelected(), 2);
    QCOMPARE(headers(table), single);
    QCOMPARE(table->columnWidth(0), 190);
    select->setCurrentIndex(0);
    QCOMPARE(headers(table), all);

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
    QCOMPARE(headers(table), all);
}

void WCaptureProcessedTest::rows_data() {
    QTest::addColumn<int>("entry");
    QTest::addColumn<QStringList>("first");
    QTest::addColumn<QStringList>("last");
    QTest::addColumn<QStringList>("summary");
    // Blocks 0, 1, 2.
    QTest::newRow("channel 2") << 3 << QStringList{"2024-01-15T09:30:00.000123",
                                                   "2.000000",
                                                   "2.000000",
                                                   "12.000000",
                                                   "-8.000000",
                                                   "4.000000"}
                               << QStringList{"2024-01-15T09:30:02.000123",
                                              "4.000000",
                                              "0.000000",
                                              "14.000000",
                                              "-10.000000",
                                              "4.000000"}
                               << QStringList{"3.000000", "1.000000", "14.000000", "-10.000000",
                                              "4.000000"};
    QTest::newRow("channel 7") << 8 << QStringList{"2024-01-15T09:30:00.000123",
                                                   "7.000000",
                                                   "7.000000",
                                                   "17.000000",
                                                   "-3.000000",
                                                   "14.000000"}
                               << QStringList{"2024-01-15T09:30:02.000123",
                                              "9.000000",
                                              "5.000000",
                                              "19.000000",
                                              "-5.000000",
                                              "14.000000"}
                               << QStringList{"8.000000", "6.000000", "19.000000", "-5.000000",
                                              "14.000000"};
    // A digital channel has no processed values: times only.
    QTest::newRow("digital channel 9")
        << 10 << QStringList{"2024-01-15T09:30:00.000123", "", "", "", "", ""}
        << QStringList{"2024-01-15T09:30:02.000123", "", "", "", "", ""}
        << QStringList{"", "", "", "", ""};
    // All channels: the RMS of each; the summary over all eight.
    QTest::newRow("all channels") << 0
                                  << QStringList{"2024-01-15T09:30:00.000123",
                                                 "0.000000",
                                                 "1.000000",
                                                 "2.000000",
                                                 "3.000000",
                                                 "4.000000",
                                                 "5.000000",
                                                 "6.000000",
                                                 "7.000000"}
                                  << QStringList{"2024-01-15T09:30:02.000123",
                                                 "2.000000",
                                                 "3.000000",
                                                 "4.000000",
                                                 "5.000000",
                                                 "6.000000",
                                                 "7.000000",
                                                 "8.000000",
                                                 "9.000000"}
                                  << QStringList{"4.500000", "2.500000", "19.000000", "-12.000000",
                                                 "7.000000"};
}

void WCaptureProcessedTest::rows() {
    QFETCH(int, entry);
    QFETCH(QStringList, first);
    QFETCH(QStringList, last);
    QFETCH(QStringList, summary);
    view->getChannelSelect()->setCurrentIndex(entry);
    push(0, 3);
    QCoreApplication::processEvents();
    QCOMPARE(view->getNumBlocks(), 3);
    QTableView* table = view->getTable();
    QCOMPARE(table->model()->rowCount(), 3);
    QCOMPARE(row(table, 0), first);
    QCOMPARE(row(table, 2), last);
    QCOMPARE(this->summary(), summary);

    view->clear();
    QCOMPARE(view->getNumBlocks(), 0);
    QCOMPARE(table->model()->rowCount(), 0);
    QCOMPARE(this->summary(), QStringList({"", "", "", "", ""}));
}

void WCaptureProcessedTest::hiddenPageCollects() {
    view->hide();
    push(0, 3);
    view->dataReady();
    QCOMPARE(view->getNumBlocks(), 3);
    QCOMPARE(view->getTable()->model()->rowCount(), 0);
    // Shown, the table waits for the next block.
    view->show();
    QCOMPARE(view->getTable()->model()->rowCount(), 0);
    push(3, 1);
    view->dataReady();
    QCOMPARE(view->getTable()->model()->rowCount(), 4);
    QCOMPARE(row(view->getTable(), 3)[0], QString("2024-01-15T09:30:03.000123"));
}

void WCaptureProcessedTest::blockLimit() {
    // Beyond the limit the oldest go; a hidden table lets go of them at once.
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
    view->show();
    view->processData();
    QCOMPARE(view->getTable()->model()->rowCount(), WCaptureProcessed::maxBlocks);
    QCOMPARE(row(view->getTable(), 0)[1], QString("5.000000"));
    QCOMPARE(row(view->getTable(), WCaptureProcessed::maxBlocks - 1)[1],
             QString::asprintf("%f", double(total - 1)));
}

QTEST_MAIN(WCaptureProcessedTest)
#include "wcaptureprocessed_qtest.moc"
