#ifndef WCONFIGFILESAVE_H
#define WCONFIGFILESAVE_H

#include "controlfile.h"
#include "zformpage.h"

class Control;
class QCheckBox;
class ZFormCombo;
class ZFormText;

// The "Measurement File Save Config" page: where a capture's raw and
// processed data are written (the control object's two FileSave records,
// which share one folder). The settings keep them under "fileDir",
// "fileRawSave", "fileRawName", "fileRawType", "fileProcSave",
// "fileProcName" and "fileProcType".
//
// "Save" checks the folder (it must exist when a stream is saved) and the
// names (not empty, no "/") and hands the records to the control object;
// "Browse" picks the folder in a directory dialog (GuiMessages).
class WConfigFileSave : public ZFormPage {
    Q_OBJECT
public:
    static constexpr const char* rawNameDefault = "tavro_data_%{datetime}";
    static constexpr const char* procNameDefault = "tavro_dataproc_%{datetime}";
    static constexpr const char* typeDefault = "tavd";
    static constexpr const char* types = "tavd,csv,csv_with_header,tdms";

    explicit WConfigFileSave(Control& control, QWidget* parent = nullptr);

    // Fields from the control object's records.
    void configRead();
    // The records of the fields; false when a field is invalid.
    bool configChange(FileSave& raw, FileSave& proc) const;
    // Hands the fields to the control object (the fields must be valid).
    void configSave();
    // The records from the settings into the control object, then the fields.
    void readSettings();
    // The control object's records into the settings.
    void writeSettings();

    QCheckBox* rawSave() const { return orawSave; }
    QCheckBox* procSave() const { return oprocSave; }

public slots:
    void fileBrowser();
    void fileRawChange();
    void fileProcChange();

private:
    Control& ocontrol;
    ZFormText* odir;
    QCheckBox* orawSave;
    ZFormText* orawName;
    ZFormCombo* orawType;
    QCheckBox* oprocSave;
    ZFormText* oprocName;
    ZFormCombo* oprocType;
};

#endif
