#include "wconfigfirmware.h"

#include "control.h"
#include "dfu.h"
#include "dfuflash.h"
#include "gui.h"
#include "guimessages.h"
#include "zfirmupload.h"

#include <QCheckBox>
#include <QCoreApplication>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressDialog>
#include <QPushButton>
#include <QVBoxLayout>

using namespace TavroApi;

namespace {

const char* const titleInformation = "Tavro-gui";
const int progressSteps = 1000;

QString versionText(const Version& v) {
    return QString::asprintf("%u.%u.%u", v.ver0, v.ver1, v.ver2);
}

QLineEdit* addRow(QGridLayout* grid, int row, const char* label, QWidget* parent) {
    QLineEdit* edit = new QLineEdit(parent);
    edit->setReadOnly(true);
    edit->setObjectName(label);
    grid->addWidget(new QLabel(label, parent), row, 0);
    grid->addWidget(edit, row, 1);
    return edit;
}

QPushButton* addButton(QBoxLayout* box, const char* text, QWidget* parent) {
    QPushButton* b = new QPushButton(text, parent);
    b->setObjectName(text);
    box->addWidget(b);
    return b;
}

} // namespace

WConfigFirmware::WConfigFirmware(Control& control, QWidget* parent)
    : QWidget(parent), ocontrol(control) {
    QVBoxLayout* box = new QVBoxLayout(this);
    QGridLayout* grid = new QGridLayout();
    box->addLayout(grid);

    grid->addWidget(new QLabel(tr("<b>Firmware</b>"), this), 0, 0, 1, 3);
    ohardware = addRow(grid, 1, "Hardware Version", this);
    osoftware = addRow(grid, 2, "Software Version", this);
    ofpga = addRow(grid, 3, "Fpga Version", this);
    owifi = addRow(grid, 4, "Wifi Version", this);

    grid->addWidget(new QLabel(tr("<b>Firmware upload</b>"), this), 5, 0, 1, 3);
    ofile = addRow(grid, 6, "Firmware file", this);
    QPushButton* browse = new QPushButton("Browse", this);
    browse->setObjectName("Browse");
    grid->addWidget(browse, 6, 2);
    oversion = addRow(grid, 7, "Firmware file version", this);
    oforce = new QCheckBox("Force update when versions the same", this);
    grid->addWidget(oforce, 8, 0, 1, 3);
    QLabel* note =
        new QLabel("Make sure unit is kept powered during the firmware install and once uploaded "
                   "reboot the unit.",
                   this);
    note->setWordWrap(true);
    grid->addWidget(note, 9, 0, 1, 3);

    QHBoxLayout* buttons = new QHBoxLayout();
    box->addLayout(buttons);
    connect(addButton(buttons, "Upload firmware", this), SIGNAL(clicked()), this,
            SLOT(firmwareUploadAll()));
    connect(addButton(buttons, "Upload Cpu firmware", this), SIGNAL(clicked()), this,
            SLOT(firmwareUploadCpu()));
    connect(addButton(buttons, "Upload Wifi firmware", this), SIGNAL(clicked()), this,
            SLOT(firmwareUploadWifi()));
    connect(addButton(buttons, "Upload Fpga firmware", this), SIGNAL(clicked()), this,
            SLOT(firmwareUploadFpga()));
    buttons->addStretch();
    box->addStretch();
    connect(browse, SIGNAL(clicked()), this, SLOT(firmwareSelect()));
}

QString WConfigFirmware::fileName() const {
    return ofile->text();
}

QString WConfigFirmware::fileVersion() const {
    return oversion->text();
}

QString WConfigFirmware::value(const QString& label) const {
    QLineEdit* edit = findChild<QLineEdit*>(label);
    return edit ? edit->text() : QString();
}

void WConfigFirmware::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    update();
}

void WConfigFirmware::update() {
    const NodeInfo& info = ocontrol.nodeInfo();
    ohardware->setText(versionText(info.hardwareVersion));
    osoftware->setText(versionText(info.softwareVersion));
    ofpga->setText(versionText(info.fpgaVersion));
    owifi->setText(versionText(info.wifiVersion));
}

void WConfigFirmware::firmwareSelect() {
    QString name = GuiMessages::openFileName(this, "Firmware browser", ofile->text(),
                                             "Firmware (tavro-40x-*.zfirm)");
    if (!name.isEmpty())
        firmwareSetFile(name);
}

void WConfigFirmware::firmwareSetFile(const QString& fileName) {
    ofile->setText(fileName);
    ZFirmwareFileHeader header;
    if (zfirmReadHeader(fileName.toUtf8().constData(), header))
        oversion->setText("Invalid file");
    else
        oversion->setText(QString::asprintf("%u.%u.%u", header.versionMajor, header.versionMinor,
                                            header.versionPatch));
}

bool WConfigFirmware::firmwareUpdateCheck(const ZFirmwareFileHeader& header,
                                          const Version& unitVersion) const {
    return ::firmwareUpdateCheck(header, unitVersion, oforce->isChecked());
}

bool WConfigFirmware::loggedIn() {
    Gui* gui = qobject_cast<Gui*>(window());
    return gui && gui->isLoggedIn();
}

bool WConfigFirmware::progress(QProgressDialog& dialog, const ZString& text, double done) {
    dialog.setLabelText(text.str());
    dialog.setValue(int(done * progressSteps));
    QCoreApplication::processEvents();
    return !dialog.wasCanceled();
}

ZError WConfigFirmware::uploadFirmware(const QString& fileName, unsigned int platform) {
    QProgressDialog dialog("Validadting firmware", "Cancel", 0, progressSteps, this);
    dialog.setWindowTitle("Firmware upload");
    dialog.setWindowModality(Qt::WindowModal);
    dialog.setMinimumDuration(0);
    TavroUnit1* master = ocontrol.unitsConnected() ? ocontrol.unitMaster() : nullptr;
    ZFirmwareUpload upload(master);
    upload.setProgress(
        [&](const ZString& text, double done) { return progress(dialog, text, done); });
    return upload.upload(fileName.toUtf8().constData(), platform);
}

void WConfigFirmware::uploadPlatforms(const unsigned int* platforms, int number) {
    if (!loggedIn()) {
        GuiMessages::warning(this, Gui::titleWarning,
                             "Access denied. You need to be logged in to upload new firmware.");
        return;
    }
    const QString name = ofile->text();
    ZFirmwareFileHeader header;
    ZError err = zfirmReadHeader(name.toUtf8().constData(), header);
    if (!err && !firmwareUpdateCheck(header, ocontrol.nodeInfo().softwareVersion)) {
        GuiMessages::information(
            this, titleInformation,
            "The unit already runs firmware " + fileVersion() +
                ". Tick \"Force update when versions the same\" to upload it again.");
        return;
    }
    for (int i = 0; i < number && !err; i++)
        err = uploadFirmware(name, platforms[i]);
    if (err) {
        GuiMessages::critical(this, Gui::titleError,
                              QString("Error unable to upload firmware: ") + err.str().str());
        return;
    }
    GuiMessages::information(this, titleInformation, "Firmware upload complete, reboot to install");
}

void WConfigFirmware::firmwareUploadAll() {
    const unsigned int all[] = {ZFirmwarePlatformCpu, ZFirmwarePlatformFpga, ZFirmwarePlatformWifi};
    uploadPlatforms(all, 3);
}

void WConfigFirmware::firmwareUploadCpu() {
    const unsigned int p = ZFirmwarePlatformCpu;
    uploadPlatforms(&p, 1);
}

void WConfigFirmware::firmwareUploadWifi() {
    const unsigned int p = ZFirmwarePlatformWifi;
    uploadPlatforms(&p, 1);
}

void WConfigFirmware::firmwareUploadFpga() {
    const unsigned int p = ZFirmwarePlatformFpga;
    uploadPlatforms(&p, 1);
}

void WConfigFirmware::firmwareCpuFlashDfu(const QString& fileName) {
    QProgressDialog dialog("Validadting firmware", "Cancel", 0, progressSteps, this);
    dialog.setWindowTitle("Firmware DFU download");
    dialog.setWindowModality(Qt::WindowModal);
    dialog.setMinimumDuration(0);
    DfuFlashOptions options;
    options.progress = [&](const ZString& text, double done) {
        return progress(dialog, text, done);
    };
    if (ocontrol.unitsConnected() && ocontrol.unitMaster()) {
        // The unit restarts into its boot loader; its link goes with it.
        options.startBootloader = [this]() {
            ZError err = ocontrol.unitMaster()->factoryReset(false, true);
            if (Gui* gui = qobject_cast<Gui*>(window()))
                gui->unitsConnect(false);
            return err;
        };
    }
    Dfu dfu;
    ZError err = dfuFlashCpu(dfu, fileName.toUtf8().constData(), options);
    if (err)
        GuiMessages::critical(this, Gui::titleError, err.str().str());
    else
        GuiMessages::information(this, titleInformation, "Firmware download complete");
}
