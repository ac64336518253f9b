#include "wdatalog.h"

#include "control.h"
#include "gui.h"
#include "guimessages.h"
#include "unitfiles.h"
#include "ztime.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QProgressDialog>
#include <QPushButton>
#include <QSettings>
#include <QSignalBlocker>
#include <QTableWidget>
#include <QTemporaryFile>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>

using namespace TavroApi;

namespace {

// The download dialog's filters and the format each stands for; "Any file"
// takes the format from the name's suffix.
const char* const Filters[] = {"Tavro raw data [*.tavd] (*.tavd)",
                               "Comma seperated values [*.csv] (*.csv)",
                               "NI Labview [*.tdms] (*.tdms)", "Any file [*] (*)"};
const char* const FilterFormats[] = {"tavd", "csv", "tdms", ""};
const char* const initialText = "Click on the Refresh button to update";
const int progressMax = 1000;
const int progressStepMs = 100;

ZString toZString(const QString& text) {
    QByteArray bytes = text.toUtf8();
    return ZString(bytes.constData(), bytes.size());
}

QString toQString(const ZString& text) {
    return QString::fromUtf8(text.str(), text.len());
}

// The wait cursor while it lives.
class WaitCursor {
public:
    WaitCursor() { QApplication::setOverrideCursor(Qt::WaitCursor); }
    ~WaitCursor() { QApplication::restoreOverrideCursor(); }
    WaitCursor(const WaitCursor&) = delete;
    WaitCursor& operator=(const WaitCursor&) = delete;
};

// Sets a flag for as long as it lives.
class Busy {
public:
    explicit Busy(bool& flag) : oflag(flag) { oflag = true; }
    ~Busy() { oflag = false; }
    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;

private:
    bool& oflag;
};

QComboBox* comboBox(const QStringList& items, QWidget* parent) {
    QComboBox* box = new QComboBox(parent);
    box->addItems(items);
    return box;
}

} // namespace

WDatalog::WDatalog(Control& control, QWidget* parent)
    : QWidget(parent), ocontrol(control), ologData(nullptr), ologMode(nullptr), ologDevice(nullptr),
      ocsvFormat(nullptr), ostorage(nullptr), otable(nullptr), oformatAction(nullptr),
      oprogress(nullptr), obusy(false), olisted(false) {
    init();
}

void WDatalog::init() {
    QVBoxLayout* layout = new QVBoxLayout(this);

    QGroupBox* group = new QGroupBox("Data Logging", this);
    QFormLayout* form = new QFormLayout(group);
    ologData = comboBox({"Off", "Data", "Processed Data", "Both"}, group);
    ologMode = comboBox({"Normal", "Delete old"}, group);
    ologDevice = comboBox({"Internal"}, group);
    ocsvFormat = comboBox({"Normal", "With Header"}, group);
    form->addRow("Enable Logging", ologData);
    form->addRow("Logging Mode", ologMode);
    form->addRow("Logging Device", ologDevice);
    form->addRow("CSV format", ocsvFormat);
    layout->addWidget(group);

    int csv = ocsvFormat->findText(setting("dataLog/csvFormat", "Normal").toString());
    ocsvFormat->setCurrentIndex(std::max(csv, 0));
    connect(ologData, SIGNAL(currentIndexChanged(int)), this, SLOT(logDataChanged()));
    connect(ologMode, SIGNAL(currentIndexChanged(int)), this, SLOT(logModeChanged()));
    connect(ologDevice, SIGNAL(currentIndexChanged(int)), this, SLOT(logDeviceChanged()));
    connect(ocsvFormat, SIGNAL(currentIndexChanged(int)), this, SLOT(csvFormatChanged()));

    ostorage = new QLabel(initialText, this);
    layout->addWidget(ostorage);

    otable = new QTableWidget(0, ColNum, this);
    otable->setHorizontalHeaderLabels({"Name", "Time", "Type", "Size"});
    otable->setSelectionBehavior(QAbstractItemView::SelectRows);
    otable->setSelectionMode(QAbstractItemView::SingleSelection);
    otable->setEditTriggers(QAbstractItemView::NoEditTriggers);
    otable->verticalHeader()->hide();
    otable->horizontalHeader()->setStretchLastSection(true);
    otable->horizontalHeader()->setSortIndicator(ColName, Qt::AscendingOrder);
    otable->setSortingEnabled(true);
    otable->setColumnWidth(ColName, 260);
    otable->setColumnWidth(ColTime, 160);
    layout->addWidget(otable, 1);

    oformatAction = new QAction("Format", this);
    oformatAction->setStatusTip("Format the file system of the logging device");
    connect(oformatAction, SIGNAL(triggered()), this, SLOT(format()));
    otable->addAction(oformatAction);
    otable->setContextMenuPolicy(Qt::ActionsContextMenu);

    struct Button {
        const char* text;
        const char* slot;
    };
    static const Button buttons[] = {{"Refresh", SLOT(refresh())},
                                     {"Download", SLOT(download())},
                                     {"Delete File", SLOT(deleteFile())},
                                     {"Delete All Data", SLOT(deleteAllFiles())}};
    QHBoxLayout* row = new QHBoxLayout();
    for (const Button& b : buttons) {
        QPushButton* button = new QPushButton(b.text, this);
        connect(button, SIGNAL(pressed()), this, b.slot);
        row->addWidget(button);
    }
    row->addStretch();
    layout->addLayout(row);
}

QPushButton* WDatalog::getButton(const QString& text) const {
    for (QPushButton* button : findChildren<QPushButton*>(QString(), Qt::FindDirectChildrenOnly)) {
        if (button->text() == text)
            return button;
    }
    return nullptr;
}

ZString WDatalog::root() const {
    return UnitFiles::root(unsigned(std::max(ologDevice->currentIndex(), 0)));
}

TavroUnit1* WDatalog::master() const {
    TavroUnit1* unit = ocontrol.unitsConnected() ? ocontrol.unitMaster() : nullptr;
    return unit && unit->isConnected() ? unit : nullptr;
}

QVariant WDatalog::setting(const QString& key, const QVariant& fallback) const {
    if (Gui* gui = qobject_cast<Gui*>(window()))
        return gui->getSettings().value(key, fallback);
    QSettings settings("Korvel", "Tavro-gui");
    return settings.value(key, fallback);
}

void WDatalog::setSetting(const QString& key, const QVariant& value) {
    if (Gui* gui = qobject_cast<Gui*>(window())) {
        gui->getSettings().setValue(key, value);
        return;
    }
    QSettings settings("Korvel", "Tavro-gui");
    settings.setValue(key, value);
}

void WDatalog::showError(const QString& text) {
    GuiMessages::critical(this, "Error", text);
}

template <class F>
void WDatalog::configChange(F change) {
    Configuration config = ocontrol.configuration();
    change(config);
    ocontrol.setConfiguration(config);
    if (!ocontrol.unitsConnected())
        return;
    ZError err;
    {
        WaitCursor wait;
        err = ocontrol.setConfig(config);
    }
    if (err)
        showError(toQString(err.str()));
}

void WDatalog::logDataChanged() {
    int index = ologData->currentIndex();
    if (index >= 0)
        configChange([index](Configuration& c) { c.logData = uint8_t(index); });
}

void WDatalog::logModeChanged() {
    int index = ologMode->currentIndex();
    if (index >= 0)
        configChange([index](Configuration& c) { c.logDataMode = uint8_t(index); });
}

void WDatalog::logDeviceChanged() {
    int index = ologDevice->currentIndex();
    if (index >= 0)
        configChange([index](Configuration& c) { c.logDataDevice = uint8_t(index); });
}

void WDatalog::csvFormatChanged() {
    setSetting("dataLog/csvFormat", ocsvFormat->currentText());
}

void WDatalog::update() {
    TavroUnit1* unit = master();
    if (!unit && olisted) {
        // Nothing of a disconnected unit stays on show as if it were current.
        otable->setRowCount(0);
        ostorage->setText(initialText);
        olisted = false;
    }
    if (unit) {
        FilesysInfo info;
        ZError err;
        {
            WaitCursor wait;
            err = unit->filesysInfo("/sdcard", info);
        }
        QSignalBlocker block(ologDevice);
        ologDevice->clear();
        ologDevice->addItems(err ? QStringList{"Internal"} : QStringList{"Internal", "SD Card"});
    }
    const Configuration& c = ocontrol.configuration();
    QSignalBlocker blockData(ologData);
    QSignalBlocker blockMode(ologMode);
    QSignalBlocker blockDevice(ologDevice);
    ologData->setCurrentIndex(c.logData);
    ologMode->setCurrentIndex(c.logDataMode);
    ologDevice->setCurrentIndex(c.logDataDevice);
    listSoon();
}

void WDatalog::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    listSoon();
}

void WDatalog::listSoon() {
    if (olisted || obusy || !isVisible() || !master())
        return;
    QTimer::singleShot(0, this, [this] {
        if (olisted || obusy || !isVisible() || !master())
            return;
        ZError err = list();
        if (err)
            ostorage->setText("Cannot list files: " + toQString(err.str()));
    });
}

void WDatalog::refresh() {
    if (obusy)
        return;
    ZError err = list();
    if (err)
        showError(toQString(err.str()));
}

ZError WDatalog::list() {
    otable->setRowCount(0);
    TavroUnit1* unit = master();
    if (!unit)
        return ZError();
    UnitFiles files(*unit);
    FilesysInfo info;
    ZList<FileInfo> list;
    ZError err;
    {
        WaitCursor wait;
        err = files.info(root(), info);
        if (!err)
            err = files.list(root(), list);
    }
    if (err)
        return err;
    ZString text;
    text.printf("Storage size: %u MBytes, Free: %u MBytes", unsigned(info.size >> 20),
                unsigned(info.free >> 20));
    ostorage->setText(toQString(text));

    otable->setSortingEnabled(false);
    otable->setRowCount(list.number());
    int row = 0;
    for (const FileInfo& f : list) {
        otable->setItem(row, ColName, new QTableWidgetItem(toQString(UnitFiles::fileName(f))));
        otable->setItem(row, ColTime,
                        new QTableWidgetItem(toQString(ZTimeUs(f.time).getString("isoSpace"))));
        otable->setItem(row, ColType, new QTableWidgetItem(toQString(UnitFiles::typeText(f))));
        QTableWidgetItem* size = new QTableWidgetItem();
        size->setData(Qt::DisplayRole, qulonglong(f.fileLength));
        otable->setItem(row, ColSize, size);
        row++;
    }
    otable->setSortingEnabled(true);
    olisted = true;
    return ZError();
}

TavroUnit1* WDatalog::selectedFileUnit(int& row) {
    if (obusy)
        return nullptr;
    row = selectedRow();
    return row < 0 ? nullptr : master();
}

int WDatalog::selectedRow() {
    QModelIndexList rows = otable->selectionModel()->selectedRows();
    if (rows.isEmpty() || !otable->item(rows[0].row(), ColName)) {
        GuiMessages::warning(this, "Warning", "No files selected");
        return -1;
    }
    return rows[0].row();
}

bool WDatalog::progressStep(QProgressDialog& dialog, uint64_t done, uint64_t total) {
    if (ostepTimer.isValid() && ostepTimer.elapsed() < progressStepMs)
        return !dialog.wasCanceled();
    ostepTimer.start();
    if (total) {
        dialog.setMaximum(progressMax);
        dialog.setValue(int(std::min(done, total) * progressMax / total));
    } else {
        // Size not known: a busy bar.
        dialog.setMaximum(0);
        dialog.setValue(0);
    }
    QCoreApplication::processEvents();
    return !dialog.wasCanceled();
}

ZError WDatalog::convert() {
    TavdProgress step;
    if (oprogress) {
        ostepTimer.invalidate();
        step = [this](uint64_t done, uint64_t total) {
            return progressStep(*oprogress, done, total);
        };
    }
    return UnitFiles::convert(ofileNameIn, ofileNameOut, ocsvFormat->currentText() == "With Header",
                              step);
}

void WDatalog::download() {
    int row = -1;
    TavroUnit1* unit = selectedFileUnit(row);
    if (!unit)
        return;
    Busy busy(obusy);
    const QString name = otable->item(row, ColName)->text();
    QTableWidgetItem* sizeItem = otable->item(row, ColSize);
    const uint64_t size = sizeItem ? sizeItem->data(Qt::DisplayRole).toULongLong() : 0;

    QStringList filters;
    for (const char* f : Filters)
        filters << f;
    const QString last = setting("dataLog/format", "tavd").toString();
    QString filter = filters[0];
    for (int f = 0; f < 3; f++) {
        if (last == FilterFormats[f])
            filter = filters[f];
    }
    const QString chosen =
        GuiMessages::saveFileName(this, "Download file", name, filters.join(";;"), &filter);
    if (chosen.isEmpty())
        return;
    const ZString fileName = toZString(chosen);
    int f = filters.indexOf(filter);
    oformat = f >= 0 && f < 3 ? ZString(FilterFormats[f]) : ZString();
    if (oformat.isEmpty()) {
        const ZString suffix = fileName.extension();
        oformat = suffix == "csv" || suffix == "tdms" ? suffix : ZString("tavd");
    }
    setSetting("dataLog/format", toQString(oformat));

    // A conversion downloads into a temporary file first.
    QTemporaryFile temp(QDir::tempPath() + "/tavro-download-XXXXXX.tavd");
    if (oformat == "tavd") {
        ofileNameIn = fileName;
        ofileNameOut.clear();
    } else {
        if (!temp.open()) {
            showError("Cannot create file");
            return;
        }
        ofileNameIn = toZString(temp.fileName());
        ofileNameOut = fileName;
    }

    QProgressDialog progress("Downloading " + name, "Cancel", 0, progressMax, this);
    progress.setWindowTitle("Data Log");
    // Shown from the first step on, so that nothing else in the window can
    // be used (and no unit taken away) while the events are let through.
    progress.setWindowModality(Qt::WindowModal);
    progress.setMinimumDuration(0);
    progress.setAutoReset(false);
    progress.setAutoClose(false);
    UnitFiles files(*unit);
    ZError err;
    {
        WaitCursor wait;
        ostepTimer.invalidate();
        err = files.download(UnitFiles::dataPath(root(), toZString(name)), ofileNameIn, size,
                             [&progress, this](uint64_t done, uint64_t total) {
                                 return progressStep(progress, done, total);
                             });
    }
    if (err) {
        if (err.number != UnitFiles::cancelled)
            showError(toQString(err.str()));
        return;
    }
    if (ofileNameOut.isEmpty())
        return;

    progress.setLabelText("Converting " + name);
    oprogress = &progress;
    {
        WaitCursor wait;
        err = convert();
    }
    oprogress = nullptr;
    if (err.number == UnitFiles::cancelled)
        QFile::remove(chosen);
    else if (err)
        showError("Cannot convert data format: " + toQString(err.str()));
}

void WDatalog::deleteFile() {
    int row = -1;
    TavroUnit1* unit = selectedFileUnit(row);
    if (!unit)
        return;
    const QString name = otable->item(row, ColName)->text();
    if (GuiMessages::question(this, "Question",
                              QString("Are you sure you want to delete %1 on Tavro ?").arg(name)) !=
        QMessageBox::Yes)
        return;
    ZError err;
    {
        WaitCursor wait;
        err = UnitFiles(*unit).remove(UnitFiles::dataPath(root(), toZString(name)));
    }
    if (err)
        showError("Cannot delete file on Tavro");
    refresh();
}

template <class F>
void WDatalog::storageCommand(const QString& ask, const QString& askEnd, const QString& failure,
                              F command) {
    TavroUnit1* unit = obusy ? nullptr : master();
    if (!unit)
        return;
    if (GuiMessages::question(this, "Question", ask + toQString(root()) + askEnd) !=
        QMessageBox::Yes)
        return;
    ZError err;
    {
        WaitCursor wait;
        UnitFiles files(*unit);
        err = command(files, root());
    }
    if (err)
        showError(failure + toQString(err.str()));
    refresh();
}

void WDatalog::deleteAllFiles() {
    storageCommand("Are you sure you want to delete all data files on Tavro: ", " ?",
                   "Cannot delete all data files on Tavro: ",
                   [](UnitFiles& files, const ZString& root) { return files.removeAll(root); });
}

void WDatalog::format() {
    storageCommand("Are you sure you want to format file system on Tavro ", " ?",
                   "Cannot format file system on Tavro: ",
                   [](UnitFiles& files, const ZString& root) { return files.format(root); });
}
