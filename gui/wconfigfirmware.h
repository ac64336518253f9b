#ifndef WCONFIGFIRMWARE_H
#define WCONFIGFIRMWARE_H

#include "tavronode.h"
#include "zerror.h"
#include "zfirmware.h"

#include <QString>
#include <QWidget>

class Control;
class QCheckBox;
class QLineEdit;
class QProgressDialog;
class QShowEvent;

// The "Tavro-40x Firmware" configuration page: the versions the master unit
// reports, and the upload of a firmware package's images to it (installed
// at the unit's next reboot). The upload is for logged-in users only: the
// login state is the main window's (Gui, the top-level widget holding the
// page); without one nobody counts as logged in.
//
// Uploads and DFU flashing block the GUI thread behind a progress dialog
// that can cancel them. GUI thread only.
class WConfigFirmware : public QWidget {
    Q_OBJECT
public:
    WConfigFirmware(Control& control, QWidget* parent = nullptr);

    // The chosen package, and what the page shows of it ("%u.%u.%u", or
    // "Invalid file").
    QString fileName() const;
    QString fileVersion() const;
    // The value shown beside a label ("Software Version", ...).
    QString value(const QString& label) const;

    // Uploads the image of one platform (34 Cpu, 35 Fpga, 36 Wifi) to the
    // master unit, with the progress dialog.
    ZError uploadFirmware(const QString& fileName, unsigned int platform);
    // Whether the unit at unitVersion needs the package: always when the
    // force box is ticked.
    bool firmwareUpdateCheck(const ZFirmwareFileHeader& header,
                             const TavroApi::Version& unitVersion) const;

    using QWidget::update;

public slots:
    // The unit's versions from the control object's records.
    void update();
    // The file dialog ("Firmware browser"), then firmwareSetFile.
    void firmwareSelect();
    void firmwareSetFile(const QString& fileName);
    void firmwareUploadAll();
    void firmwareUploadCpu();
    void firmwareUploadWifi();
    void firmwareUploadFpga();
    // Flashes a raw main-processor image over USB DFU, asking a connected
    // unit to restart into its boot loader first.
    void firmwareCpuFlashDfu(const QString& fileName);

protected:
    void showEvent(QShowEvent* event) override;

private:
    // Checks the login and the versions, then uploads the platforms in order.
    void uploadPlatforms(const unsigned int* platforms, int number);
    bool loggedIn();
    // The progress dialog's answer to a progress report; false when cancelled.
    bool progress(QProgressDialog& dialog, const ZString& text, double done);

    Control& ocontrol;
    QLineEdit* ohardware;
    QLineEdit* osoftware;
    QLineEdit* ofpga;
    QLineEdit* owifi;
    QLineEdit* ofile;
    QLineEdit* oversion;
    QCheckBox* oforce;
};

#endif
