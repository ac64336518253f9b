#include "wconfigsaverestore.h"

#include "configfile.h"
#include "control.h"
#include "guimessages.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

ZString toZString(const QString& text) {
    QByteArray bytes = text.toUtf8();
    return ZString(bytes.constData(), bytes.size());
}

QString toQString(const ZString& text) {
    return QString::fromUtf8(text.str(), text.len());
}

// A wait cursor for as long as it lives.
struct WaitCursor {
    WaitCursor() { QApplication::setOverrideCursor(Qt::WaitCursor); }
    ~WaitCursor() { QApplication::restoreOverrideCursor(); }
};

} // namespace

WConfigSaveRestore::WConfigSaveRestore(Control& control, QWidget* parent)
    : QWidget(parent), ocontrol(control) {
    QVBoxLayout* layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel("<b>Save/Restore Configuration</b>", this));
    QHBoxLayout* row = new QHBoxLayout();
    osave = new QPushButton("Save Configuration", this);
    orestore = new QPushButton("Restore Configuration", this);
    connect(osave, SIGNAL(clicked()), this, SLOT(configSaveFile()));
    connect(orestore, SIGNAL(clicked()), this, SLOT(configRestoreFile()));
    row->addWidget(osave);
    row->addWidget(orestore);
    row->addStretch();
    layout->addLayout(row);
    layout->addStretch();
}

void WConfigSaveRestore::showError(const QString& title, const ZError& err) {
    GuiMessages::critical(this, title, toQString(err.string));
}

void WConfigSaveRestore::configSaveFile() {
    if (!ocontrol.unitsConnected())
        return;
    ConfigSet set;
    ZError err;
    {
        WaitCursor wait;
        err = configRead(ocontrol, set);
    }
    if (err)
        return showError("Tavro-gui - Error", err);

    ZString name;
    name.printf("tavro-config_%s_%s.zconfig",
                TavroApi::getCharArray(set.boardConfig.serialNumber).str(),
                ZTime::now().getString("filename").str());
    const QString fileName =
        GuiMessages::saveFileName(this, "Save Tavro configuration", toQString(name), fileFilter);
    if (fileName.isEmpty())
        return;
    if ((err = ConfigFile::write(set, toZString(fileName))))
        showError("Tavro-gui - Error", err);
}

void WConfigSaveRestore::configRestoreFile() {
    if (!ocontrol.unitsConnected())
        return;
    const QString fileName =
        GuiMessages::openFileName(this, "Restore Tavro configuration", QString(), fileFilter);
    if (fileName.isEmpty())
        return;
    bool done = false;
    auto confirm = [this]() {
        return GuiMessages::question(this, "Question",
                                     "Are you sure you want to reload the configuration of the "
                                     "unit (Unit will reboot after this)?") == QMessageBox::Yes;
    };
    ZError err;
    {
        WaitCursor wait;
        err = configRestore(
            ocontrol, toZString(fileName),
            [&]() {
                QApplication::restoreOverrideCursor();
                const bool yes = confirm();
                QApplication::setOverrideCursor(Qt::WaitCursor);
                return yes;
            },
            done);
    }
    if (err)
        showError("Error", err);
}
