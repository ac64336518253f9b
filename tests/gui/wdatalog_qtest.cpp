// The data log page against a simulated unit: logging devices and settings,
// the file list, downloads and their failures, a unit recording converted to
// CSV and TDMS, deleting and formatting.

#include "guimessagesdouble.h"
#include "simgui.h"
#include "unitfiles.h"
#include "wdatalog.h"

#include <QAction>
#include <QComboBox>
#include <QFileInfo>
#include <QLabel>
#include <QProgressDialog>
#include <QPushButton>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QtTest>

#include <functional>

namespace TavroFn = TavroApi::TavroFn;

namespace {

const QString tavdFilter = "Tavro raw data [*.tavd] (*.tavd)";
const QString csvFilter = "Comma seperated values [*.csv] (*.csv)";
const QString tdmsFilter = "NI Labview [*.tdms] (*.tdms)";

QByteArray readLocal(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}

// The page on a unit manager connected to a simulated unit.
struct Rig : SimControl {
    explicit Rig(bool sdcard = false)
        : SimControl(simOptions([sdcard](TavroSim::SimOptions& o) { o.sdcard = sdcard; })) {
        ok = ok && connect();
        page.update();
    }
    void put(const char* name, size_t n, uint8_t fill = 0x5A) {
        unit.writeFile(ZString("/internal/data/") + name, std::vector<uint8_t>(n, fill));
    }
    // Refreshes the list and selects the row of name.
    void select(const QString& name) {
        page.refresh();
        QList<QTableWidgetItem*> found = page.getTable()->findItems(name, Qt::MatchExactly);
        QVERIFY(!found.isEmpty());
        page.getTable()->selectRow(found[0]->row());
    }
    // Downloads name as file through the chosen filter; the messages shown.
    QStringList download(const QString& name, const QString& file, const QString& filter) {
        GuiMessagesDouble messages;
        messages.fileAnswers << GuiMessagesDouble::FileAnswer{file, filter};
        select(name);
        page.getButton("Download")->click();
        return messages.texts();
    }
    QStringList names() {
        QStringList list;
        for (const ZString& n : unit.fileNames("/internal/data"))
            list << n.str();
        return list;
    }
    WDatalog page{control};
};

} // namespace

class WDatalogTest : public QObject {
    Q_OBJECT
private slots:
    void init() { QSettings("Korvel", "Tavro-gui").clear(); }
    void devicesConfigurationAndSettings();
    void listsWhenShown();
    void listAndDownload();
    void recordingConverts();
    void deleteAndFormat();
};

void WDatalogTest::devicesConfigurationAndSettings() {
    Rig noCard(false), rig(true);
    QVERIFY(noCard.ok && rig.ok);
    QCOMPARE(noCard.page.getLogDevice()->count(), 1);
    QCOMPARE(rig.page.getLogDevice()->itemText(1), QString("SD Card"));
    // Each choice goes to the unit at once.
    rig.page.getLogData()->setCurrentText("Both");
    rig.page.getLogMode()->setCurrentText("Delete old");
    rig.page.getLogDevice()->setCurrentText("SD Card");
    TavroApi::Configuration c = rig.unit.configuration();
    QCOMPARE(QList<int>({c.logData, c.logDataMode, c.logDataDevice}), QList<int>({3, 1, 1}));
    rig.page.refresh();
    QCOMPARE(rig.page.getStorage()->text(), QString("Storage size: 256 MBytes, Free: 256 MBytes"));
    // The page follows the configuration; without units only the cache changes.
    c.logData = 2;
    rig.control.setConfiguration(c);
    rig.page.update();
    QCOMPARE(rig.page.getLogData()->currentText(), QString("Processed Data"));
    rig.control.unitsDisconnect();
    rig.page.getLogData()->setCurrentIndex(0);
    QCOMPARE(int(rig.control.configuration().logData) * 10 + rig.unit.configuration().logData, 3);
    rig.page.getCsvFormat()->setCurrentText("With Header");
    QCOMPARE(QSettings("Korvel", "Tavro-gui").value("dataLog/csvFormat").toString(),
             QString("With Header"));
    QCOMPARE(WDatalog(rig.control).getCsvFormat()->currentText(), QString("With Header"));
}

// Showing the page lists the files once per connection; a disconnect
// takes the listing away.
void WDatalogTest::listsWhenShown() {
    Rig rig;
    QVERIFY(rig.ok);
    rig.put("a.tavd", 10);
    QCoreApplication::processEvents();
    QCOMPARE(rig.page.getTable()->rowCount(), 0);
    rig.page.show();
    QTRY_COMPARE(rig.page.getTable()->rowCount(), 1);
    QVERIFY(rig.page.getStorage()->text().startsWith("Storage size: "));
    rig.put("b.tavd", 10);
    rig.page.hide();
    rig.page.show();
    QCoreApplication::processEvents();
    QCOMPARE(rig.page.getTable()->rowCount(), 1);
    rig.control.unitsDisconnect();
    rig.page.update();
    QCOMPARE(rig.page.getTable()->rowCount(), 0);
    QCOMPARE(rig.page.getStorage()->text(), QString("Click on the Refresh button to update"));
    ZError e = rig.control.unitsConnect();
    QVERIFY2(!e, e.string.str());
    rig.page.update();
    QTRY_COMPARE(rig.page.getTable()->rowCount(), 2);
}

void WDatalogTest::listAndDownload() {
    Rig rig;
    QVERIFY(rig.ok);
    QTemporaryDir dir;
    rig.put("b.tavd", 1300);
    rig.put("empty.tavd", 0);
    rig.put("big.tavd", (3u << 20) + 4096);
    rig.page.refresh();
    // Whole MBytes, rounded down: 64 MiB less 3 MiB and a bit.
    QCOMPARE(rig.page.getStorage()->text(), QString("Storage size: 64 MBytes, Free: 60 MBytes"));
    QTableWidget* t = rig.page.getTable();
    QCOMPARE(t->rowCount(), 3);
    QCOMPARE(t->item(0, 0)->text() + " " + t->item(0, 2)->text() + " " + t->item(0, 3)->text(),
             QString("b.tavd file 1300"));
    QVERIFY(QRegularExpression("^\\d{4}(-\\d\\d){2} \\d\\d(:\\d\\d){2}$")
                .match(t->item(0, 1)->text())
                .hasMatch());
    // No row, then a dialog cancelled: nothing is written.
    {
        GuiMessagesDouble messages;
        rig.page.download();
        QCOMPARE(messages.texts(), QStringList{"Warning: No files selected"});
        rig.select("b.tavd");
        rig.page.download();
        QCOMPARE(messages.fileAsks.size(), 1);
        const GuiMessagesDouble::FileAsk& a = messages.fileAsks[0];
        QCOMPARE(
            a.path + "|" + a.selectedFilter + "|" + a.filter,
            "b.tavd|" + tavdFilter + "|" +
                QStringList({tavdFilter, csvFilter, tdmsFilter, "Any file [*] (*)"}).join(";;"));
    }
    const QString b = dir.filePath("b.tavd"), empty = dir.filePath("empty.tavd");
    QCOMPARE(rig.download("b.tavd", b, tavdFilter), QStringList());
    QCOMPARE(readLocal(b), QByteArray(1300, 0x5A));
    QCOMPARE(rig.download("empty.tavd", empty, QString()), QStringList());
    QCOMPARE(readLocal(empty), QByteArray(""));
    // Cancelled from the progress dialog: the unfinished file goes.
    const QString big = dir.filePath("big.tavd");
    QTimer::singleShot(0, [&] {
        if (QProgressDialog* p = rig.page.findChild<QProgressDialog*>())
            p->cancel();
    });
    QCOMPARE(rig.download("big.tavd", big, QString()), QStringList());
    QVERIFY(!QFileInfo(big).exists());
    // Failures.
    rig.put("bad.tavd", 600, 0x11);
    rig.put("gone.tavd", 10);
    QCOMPARE(rig.download("bad.tavd", dir.filePath("x.csv"), csvFilter),
             QStringList{"Error: Cannot convert data format: Magic number incorrect"});
    QCOMPARE(rig.download("bad.tavd", "/nonexistent/dir/x.tavd", tavdFilter),
             QStringList{"Error: Cannot create file"});
    // Gone on the unit after the list was read.
    rig.select("gone.tavd");
    QVERIFY(!rig.control.unitMaster()->fileDelete("/internal/data/gone.tavd"));
    {
        GuiMessagesDouble messages;
        messages.fileAnswers << GuiMessagesDouble::FileAnswer{dir.filePath("g.tavd"), tavdFilter};
        rig.page.download();
        QCOMPARE(messages.texts(), QStringList{"Error: Cannot open file on Tavro"});
    }
    rig.unit.faultErrorReply(uint16_t(TavroFn::fileRead), ZError(5, "I/O error"));
    QCOMPARE(rig.download("bad.tavd", dir.filePath("y.tavd"), tavdFilter),
             QStringList{"Error: Cannot read file on Tavro"});
    rig.unit.faultErrorReply(uint16_t(TavroFn::fileList), ZError(5, "I/O error"));
    GuiMessagesDouble messages;
    rig.page.refresh();
    QCOMPARE(messages.texts(), QStringList{"Error: I/O error"});
    QCOMPARE(rig.page.getTable()->rowCount(), 0);
}

// A capture the unit records itself ("Block512"), downloaded raw, as CSV
// (plain and with its head) and as TDMS: the same as converting the raw file.
void WDatalogTest::recordingConverts() {
    Rig rig;
    QVERIFY(rig.ok);
    QTemporaryDir dir;
    rig.page.getLogData()->setCurrentIndex(1);
    QVERIFY(!rig.control.measureStart(false));
    QTRY_VERIFY_WITH_TIMEOUT(rig.control.measureEnded(), 10000);
    QVERIFY(!rig.control.measureStop(1));
    QCOMPARE(rig.names().size(), 1);
    const QString name = rig.names()[0];
    std::vector<uint8_t> recorded;
    QVERIFY(!rig.unit.readFile(("/internal/data/" + name).toUtf8().constData(), recorded));
    QVERIFY(recorded.size() > 4 * 512);
    QCOMPARE(int(recorded[16 + 14]), 0); // InfoBlock.fileType: Block512
    const QString raw = dir.filePath("raw.tavd");
    QCOMPARE(rig.download(name, raw, tavdFilter), QStringList());
    QCOMPARE(readLocal(raw),
             QByteArray(reinterpret_cast<const char*>(recorded.data()), int(recorded.size())));
    QCOMPARE(QSettings("Korvel", "Tavro-gui").value("dataLog/format").toString(), QString("tavd"));
    const struct {
        const char* file;
        QString filter;
        const char* csvFormat;
    } rows[] = {{"a.csv", csvFilter, "Normal"},
                {"h.csv", csvFilter, "With Header"},
                {"t.tdms", tdmsFilter, "Normal"},
                {"any.tdms", "Any file [*] (*)", "Normal"}};
    for (const auto& r : rows) {
        rig.page.getCsvFormat()->setCurrentText(r.csvFormat);
        const QString out = dir.filePath(r.file), expected = dir.filePath(QString("e-") + r.file);
        QCOMPARE(rig.download(name, out, r.filter), QStringList());
        QVERIFY(!UnitFiles::convert(raw.toUtf8().constData(), expected.toUtf8().constData(),
                                    QString(r.csvFormat) == "With Header"));
        QVERIFY(readLocal(out).size() > 1000);
        QCOMPARE(readLocal(out), readLocal(expected));
    }
    QVERIFY(readLocal(dir.filePath("h.csv")).startsWith("Unit serial number,T400-000001\n"));
    QCOMPARE(readLocal(dir.filePath("a.csv")).count('\n'), 1000); // the capture's samples
    QCOMPARE(QSettings("Korvel", "Tavro-gui").value("dataLog/format").toString(), QString("tdms"));
}

void WDatalogTest::deleteAndFormat() {
    Rig rig;
    QVERIFY(rig.ok);
    GuiMessagesDouble messages;
    rig.page.deleteFile();
    QCOMPARE(messages.texts(), QStringList{"Warning: No files selected"});
    rig.unit.writeFile("/internal/other.bin", {1, 2});
    const QString ask = "Question: Are you sure you want to ";
    const struct {
        std::function<void()> press;
        QString question;
        QStringList left;
    } rows[] = {
        {[&] { rig.page.getButton("Delete File")->click(); },
         "delete a.tavd on Tavro ?",
         {"b.tavd"}},
        {[&] { rig.page.getButton("Delete All Data")->click(); },
         "delete all data files on Tavro: /internal ?",
         {}},
        {[&] { rig.page.getFormatAction()->trigger(); },
         "format file system on Tavro /internal ?",
         {}},
    };
    // Asked first: No leaves everything, Yes deletes.
    for (const auto& r : rows) {
        rig.put("a.tavd", 10);
        rig.put("b.tavd", 10);
        rig.select("a.tavd");
        messages.clear();
        messages.answers << QMessageBox::No << QMessageBox::Yes;
        r.press();
        QCOMPARE(rig.names(), QStringList({"a.tavd", "b.tavd"}));
        r.press();
        QCOMPARE(rig.names(), r.left);
        QCOMPARE(rig.page.getTable()->rowCount(), r.left.size());
        QCOMPARE(messages.texts(), QStringList({ask + r.question, ask + r.question}));
    }
    QCOMPARE(rig.unit.fileNames("/internal").number(), 1); // the format left only "data"
    rig.put("d.tavd", 10);
    rig.select("d.tavd");
    messages.clear();
    rig.unit.faultErrorReply(uint16_t(TavroFn::fileDelete), ZError(16, "File is open"));
    rig.page.deleteFile();
    rig.unit.faultErrorReply(uint16_t(TavroFn::filesysDelete), ZError(19, "No such device"));
    rig.page.deleteAllFiles();
    rig.page.format();
    QCOMPARE(messages.texts().filter("Error: "),
             QStringList({"Error: Cannot delete file on Tavro",
                          "Error: Cannot delete all data files on Tavro: No such device",
                          "Error: Cannot format file system on Tavro: No such device"}));
}

QTEST_MAIN(WDatalogTest)
#include "wdatalog_qtest.moc"
