#ifndef WCONFIGSAVERESTORE_H
#define WCONFIGSAVERESTORE_H

#include "zerror.h"

#include <QWidget>

class Control;
class QPushButton;

// The "Save/Restore Configuration" page: saves the whole configuration of
// the master unit to a ".zconfig" text file and restores a unit from one
// (app/configfile.h). A restore asks first and reboots the unit when it has
// sent everything. Both do nothing while no unit is connected. The file
// dialogs and messages go through GuiMessages. GUI thread only; the unit
// calls block it.
class WConfigSaveRestore : public QWidget {
    Q_OBJECT
public:
    static constexpr const char* fileFilter = "Tavro config [*.zconfig] (*.zconfig)";

    WConfigSaveRestore(Control& control, QWidget* parent = nullptr);

    QPushButton* getSaveButton() const { return osave; }
    QPushButton* getRestoreButton() const { return orestore; }

public slots:
    void configSaveFile();
    void configRestoreFile();

private:
    void showError(const QString& title, const ZError& err);

    Control& ocontrol;
    QPushButton* osave;
    QPushButton* orestore;
};

#endif
