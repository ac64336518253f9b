#include "wconfigfilesave.h"

#include "control.h"
#include "guimessages.h"
#include "zformcombo.h"
#include "zformtext.h"

#include <QCheckBox>
#include <QDir>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QPushButton>
#include <QSettings>

namespace {

QString checkName(const QString& name) {
    if (name.trimmed().isEmpty())
        return "A file name is needed";
    if (name.contains('/'))
        return "A file name must not hold \"/\"";
    return QString();
}

QString checkDir(const QString& dir) {
    if (dir.trimmed().isEmpty())
        return "A folder is needed";
    if (!QFileInfo(dir).isDir())
        return QString("No such folder: %1").arg(dir);
    return QString();
}

} // namespace

WConfigFileSave::WConfigFileSave(Control& control, QWidget* parent)
    : ZFormPage("Measurement File Save Config", "File Save", parent), ocontrol(control) {
    QWidget* dirRow = new QWidget(this);
    QHBoxLayout* dirLayout = new QHBoxLayout(dirRow);
    dirLayout->setContentsMargins(0, 0, 0, 0);
    odir = new ZFormText(0, dirRow);
    QPushButton* browse = new QPushButton("Browse", dirRow);
    connect(browse, SIGNAL(clicked()), this, SLOT(fileBrowser()));
    dirLayout->addWidget(odir, 1);
    dirLayout->addWidget(browse);
    addRow("File directory", dirRow);
    addFieldOnly("File directory", odir);

    orawSave = new QCheckBox(this);
    addRow("Save raw sample data to file", orawSave);
    orawName = addField("Raw File name", new ZFormText(0, this));
    orawName->setCheck(checkName);
    orawType = addField("Raw File type", new ZFormCombo(types, this));
    oprocSave = new QCheckBox(this);
    addRow("Save processed data to file", oprocSave);
    oprocName = addField("Processed File name", new ZFormText(0, this));
    oprocName->setCheck(checkName);
    oprocType = addField("Processed File type", new ZFormCombo(types, this));

    // The folder matters only when something is saved.
    odir->setCheck([this](const QString& dir) {
        return orawSave->isChecked() || oprocSave->isChecked() ? checkDir(dir) : QString();
    });
    connect(orawSave, SIGNAL(toggled(bool)), this, SLOT(fileRawChange()));
    connect(oprocSave, SIGNAL(toggled(bool)), this, SLOT(fileProcChange()));
    configRead();
}

void WConfigFileSave::configRead() {
    FileSave raw = ocontrol.fileRawSave();
    FileSave proc = ocontrol.fileProcSave();
    odir->setValue(raw.dir);
    orawSave->setChecked(raw.save);
    orawName->setValue(raw.name.isEmpty() ? QString(rawNameDefault)
                                          : ZFormField::toQString(raw.name));
    orawType->setText(raw.type.isEmpty() ? QString(typeDefault) : ZFormField::toQString(raw.type));
    oprocSave->setChecked(proc.save);
    oprocName->setValue(proc.name.isEmpty() ? QString(procNameDefault)
                                            : ZFormField::toQString(proc.name));
    oprocType->setText(proc.type.isEmpty() ? QString(typeDefault)
                                           : ZFormField::toQString(proc.type));
    fileRawChange();
    fileProcChange();
}

bool WConfigFileSave::configChange(FileSave& raw, FileSave& proc) const {
    QString label, err;
    if (firstError(label, err))
        return false;
    raw.save = orawSave->isChecked();
    raw.dir = odir->value();
    raw.name = orawName->value();
    raw.type = ZFormField::toZString(orawType->text());
    proc.save = oprocSave->isChecked();
    proc.dir = raw.dir;
    proc.name = oprocName->value();
    proc.type = ZFormField::toZString(oprocType->text());
    return true;
}

void WConfigFileSave::configSave() {
    FileSave raw, proc;
    if (!configChange(raw, proc))
        return;
    ocontrol.setFileRawSave(raw);
    ocontrol.setFileProcSave(proc);
    writeSettings();
    configRead();
}

void WConfigFileSave::readSettings() {
    QSettings settings("Korvel", "Tavro-gui");
    FileSave raw, proc;
    raw.dir = proc.dir =
        ZFormField::toZString(settings.value("fileDir", QDir::homePath()).toString());
    raw.save = settings.value("fileRawSave", false).toBool();
    raw.name = ZFormField::toZString(settings.value("fileRawName", rawNameDefault).toString());
    raw.type = ZFormField::toZString(settings.value("fileRawType", typeDefault).toString());
    proc.save = settings.value("fileProcSave", false).toBool();
    proc.name = ZFormField::toZString(settings.value("fileProcName", procNameDefault).toString());
    proc.type = ZFormField::toZString(settings.value("fileProcType", typeDefault).toString());
    // A type the program does not write falls back to the default.
    QStringList known = QString(types).split(',');
    if (!known.contains(ZFormField::toQString(raw.type)))
        raw.type = typeDefault;
    if (!known.contains(ZFormField::toQString(proc.type)))
        proc.type = typeDefault;
    ocontrol.setFileRawSave(raw);
    ocontrol.setFileProcSave(proc);
    configRead();
}

void WConfigFileSave::writeSettings() {
    QSettings settings("Korvel", "Tavro-gui");
    FileSave raw = ocontrol.fileRawSave();
    FileSave proc = ocontrol.fileProcSave();
    settings.setValue("fileDir", ZFormField::toQString(raw.dir));
    settings.setValue("fileRawSave", raw.save);
    settings.setValue("fileRawName", ZFormField::toQString(raw.name));
    settings.setValue("fileRawType", ZFormField::toQString(raw.type));
    settings.setValue("fileProcSave", proc.save);
    settings.setValue("fileProcName", ZFormField::toQString(proc.name));
    settings.setValue("fileProcType", ZFormField::toQString(proc.type));
    settings.sync();
}

void WConfigFileSave::fileBrowser() {
    QString dir = GuiMessages::directory(this, "File directory", odir->text());
    if (!dir.isEmpty())
        odir->setText(dir);
}

void WConfigFileSave::fileRawChange() {
    orawName->setEnabled(orawSave->isChecked());
    orawType->setEnabled(orawSave->isChecked());
    odir->showError();
}

void WConfigFileSave::fileProcChange() {
    oprocName->setEnabled(oprocSave->isChecked());
    oprocType->setEnabled(oprocSave->isChecked());
    odir->showError();
}
