#ifndef WCONFIGGENERAL_H
#define WCONFIGGENERAL_H

#include "wconfigpage.h"

// The "Tavro-40x General Config" page: the unit's mode, name, location,
// security and digital modes, and the unit's commands:
//   "Start Autonomous"  the page's measurement (the control object's) becomes
//                       the unit's stored one, the configured mode Run, and
//                       the unit starts it (setMode Run);
//   "Set Time"          sends the computer's clock to the units;
//   "Calibrate DC"      after a question, measures the DC offset of every
//                       analogue channel (calibration stage ChanOffsets; the
//                       inputs must be at 0 V);
//   "Factory Reset"     after a question, the unit forgets its configuration
//                       and reboots;
//   "Reboot"            after a question, the unit reboots.
// startBootloader (no button here) restarts the unit into its boot loader,
// for a firmware download, after a question.
// Each does nothing without a connected unit.
class WConfigGeneral : public WConfigPage {
    Q_OBJECT
public:
    explicit WConfigGeneral(Control& control, QWidget* parent = nullptr);

public slots:
    void startAutonomous();
    void setTime();
    void calibrateDc();
    void factoryReset();
    void reboot();
    void startBootloader();

private:
    bool ask(const QString& text);
    // Asks question, then stops a capture and has the master unit restart
    // (factoryReset with the two flags).
    void restartMaster(const QString& question, bool factory, bool bootloader);
};

#endif
