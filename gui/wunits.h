#ifndef WUNITS_H
#define WUNITS_H

#include "zerror.h"
#include "zstring.h"

#include <QWidget>

class Control;
class QCheckBox;
class QPushButton;
class QTableWidget;

namespace TavroApi {
struct Information;
}

// The "Units Configuration" page: the units of the unit manager in their
// order, one row each, with their enabled state, place, connection, serial
// number, address and information. From here units are found, added by
// address, deleted, enabled, moved, connected, and saved to the settings
// (keys "units/unitsNum", "units/unitN.device", "units/unitN.serialNumber"
// and "units/unitN.enabled", N from 0, at most maxSaved of them, plus the
// flags "units/unitMultiConnect" and "units/unitAutoConnect").
//
// Connecting and disconnecting belong to the main window: "Connect/Disconnect"
// calls the slot "unitsConnectToggle()" of the top-level widget holding the
// page. The main window also connects to the saved units at start when
// "units/unitAutoConnect" is set. GUI thread only.
class WUnits : public QWidget {
    Q_OBJECT
public:
    enum Column { ColEnable, ColUp, ColDown, ColConnected, ColSerial, ColUnit, ColInfo, ColNum };
    // Entries the settings hold at most; save() removes those beyond the units.
    static constexpr int maxSaved = 16;

    WUnits(Control& control, QWidget* parent = nullptr);

    void init();
    using QWidget::update;
    // Rebuilds the table from the unit manager.
    void update();

    // The widgets, for the main window and tests.
    QTableWidget* getTable() const { return otable; }
    QCheckBox* getMultiConnect() const { return omultiConnect; }
    QCheckBox* getAutoConnect() const { return oautoConnect; }
    QCheckBox* getAutoRun() const { return oautoRun; }
    // The button of the given text ("Find units", "Save", ...); null for none.
    QPushButton* getButton(const QString& text) const;

    // What the "Info" column says of a unit: its variant, software version
    // and channels; empty before the unit was first connected.
    static ZString infoText(const TavroApi::Information& info);

public slots:
    void unitMoveUp();
    void unitMoveDown();
    void unitEnabled(bool on);
    void setMultiConnect(bool on);
    void setAutoConnect(bool on);
    void setAutoRun(bool on);
    void readSettings();
    void findUnits();
    void addUnit();
    void deleteUnit();
    void connectUnits();
    void save();
    void clear();

private:
    // The row held by the sender's "row" property; -1 without one.
    int senderRow() const;
    // Moves the unit of row to row + step (±1) when both rows exist.
    void unitMove(int row, int step);
    void showError(const ZError& err);

    Control& ocontrol;
    QTableWidget* otable;
    QCheckBox* omultiConnect;
    QCheckBox* oautoConnect;
    QCheckBox* oautoRun;
};

#endif
