#ifndef WDATALOG_H
#define WDATALOG_H

#include "zerror.h"
#include "zstring.h"

#include <QElapsedTimer>
#include <QString>
#include <QVariant>
#include <QWidget>

#include <cstdint>

class Control;
class QAction;
class QComboBox;
class QLabel;
class QProgressDialog;
class QPushButton;
class QTableWidget;

namespace TavroApi {
class TavroUnit1;
}

// The "Data Log" page: data logging on the unit itself. The unit can record
// its data to its own storage ("Enable Logging", "Logging Mode" and
// "Logging Device" are the logData, logDataMode and logDataDevice of the
// unit manager's configuration, sent to the units as they change); the page
// lists the data files of the chosen storage, downloads one (byte for byte
// as ".tavd", or converted to CSV or TDMS on the way), deletes one or all of
// them and formats the storage. It works on the master unit.
//
// The list is read when the page is shown, or the units connect while it is
// shown, and has not been read since the units connected; "Refresh" reads it
// again. A failure of that first listing goes to the storage line, not a box.
//
// Settings: "dataLog/csvFormat" (the "CSV format" text) and "dataLog/format"
// (the format of the last download: "tavd", "csv" or "tdms"), in the main
// window's settings when the page sits in one.
//
// Downloads and conversions run on the GUI thread piece by piece under a
// modal progress dialog whose Cancel stops them (the unfinished local file
// is removed). GUI thread only.
class WDatalog : public QWidget {
    Q_OBJECT
public:
    enum Column { ColName, ColTime, ColType, ColSize, ColNum };

    WDatalog(Control& control, QWidget* parent = nullptr);

    void init();

    // The widgets, for the main window and tests.
    QComboBox* getLogData() const { return ologData; }
    QComboBox* getLogMode() const { return ologMode; }
    QComboBox* getLogDevice() const { return ologDevice; }
    QComboBox* getCsvFormat() const { return ocsvFormat; }
    QLabel* getStorage() const { return ostorage; }
    QTableWidget* getTable() const { return otable; }
    QAction* getFormatAction() const { return oformatAction; }
    // The button of the given text ("Refresh", "Download", ...); null for none.
    QPushButton* getButton(const QString& text) const;

    // The storage "Logging Device" names: "/internal" or "/sdcard".
    ZString root() const;
    // Converts the raw file ofileNameIn into ofileNameOut.
    ZError convert();

    using QWidget::update;

public slots:
    void logDataChanged();
    void logModeChanged();
    void logDeviceChanged();
    void csvFormatChanged();
    void update();
    void refresh();
    void download();
    void deleteFile();
    void deleteAllFiles();
    void format();

protected:
    void showEvent(QShowEvent* event) override;

private:
    // Lists the files once the event loop is back, when nothing has been
    // listed since the units connected and the page is visible.
    void listSoon();
    // Fills the storage line and the table from the master unit.
    ZError list();
    // The master unit when it is connected; null otherwise.
    TavroApi::TavroUnit1* master() const;
    // Sends the configuration with one field changed by change.
    template <class F>
    void configChange(F change);
    // The selected row; -1 (after the warning "No files selected") for none.
    int selectedRow();
    // The master unit and the selected row, for an action on one file; null
    // while a download runs, with no row selected or no unit.
    TavroApi::TavroUnit1* selectedFileUnit(int& row);
    QVariant setting(const QString& key, const QVariant& fallback) const;
    void setSetting(const QString& key, const QVariant& value);
    // Moves the progress dialog on now and then and takes in the user's
    // Cancel; false once cancelled.
    bool progressStep(QProgressDialog& dialog, uint64_t done, uint64_t total);
    void showError(const QString& text);
    // Asks ask + root + askEnd; on Yes runs command on the storage root and
    // shows failure + the error when it fails.
    template <class F>
    void storageCommand(const QString& ask, const QString& askEnd, const QString& failure,
                        F command);

    Control& ocontrol;
    QComboBox* ologData;
    QComboBox* ologMode;
    QComboBox* ologDevice;
    QComboBox* ocsvFormat;
    QLabel* ostorage;
    QTableWidget* otable;
    QAction* oformatAction;

    // The download under way: the converted output, the raw input and the
    // format word ("tavd", "csv", "tdms").
    ZString ofileNameOut;
    ZString ofileNameIn;
    ZString oformat;
    QProgressDialog* oprogress; // the dialog of the download under way
    QElapsedTimer ostepTimer;   // since the progress dialog last moved
    bool obusy;                 // a download is under way
    bool olisted;               // the table holds a listing of the connected units
};

#endif
