#include "wconfiggeneral.h"

#include "control.h"
#include "guimessages.h"
#include "ztime.h"

using namespace TavroApi;

WConfigGeneral::WConfigGeneral(Control& control, QWidget* parent)
    : WConfigPage(control, "Tavro-40x General Config", "General Configuration", parent) {
    addCombo("Autonomous Mode", "Idle,Run", &Configuration::mode);
    addText("Unit Name", &Configuration::name);
    addText("Unit Location", &Configuration::location);
    addCombo("Security Mode", "Basic", &Configuration::securityMode);
    addCombo("Digital Mode", "Input,Output,InOut,SyncMaster,SyncSlave,Individual",
             &Configuration::digitalMode);
    addButtons({{"Start Autonomous", SLOT(startAutonomous())},
                {"Set Time", SLOT(setTime())},
                {"Calibrate DC", SLOT(calibrateDc())},
                {"Factory Reset", SLOT(factoryReset())},
                {"Reboot", SLOT(reboot())}},
               this);
    configRead();
}

bool WConfigGeneral::ask(const QString& text) {
    return GuiMessages::question(this, "Question", text) == QMessageBox::Yes;
}

void WConfigGeneral::startAutonomous() {
    if (!ocontrol.unitsConnected())
        return;
    Configuration config = ocontrol.configuration();
    config.mode = Mode::Run;
    if (showError(ocontrol.setMeasurementConfig(true, ocontrol.measurementConfig())) ||
        showError(ocontrol.setConfig(config)) || showError(ocontrol.setMode(Mode::Run)))
        return;
    refreshRecords();
}

void WConfigGeneral::setTime() {
    if (ocontrol.unitsConnected())
        showError(ocontrol.sendTime(ZTimeUs::now()));
}

void WConfigGeneral::calibrateDc() {
    if (!ocontrol.unitsConnected() ||
        !ask("Connect every analogue input to 0 V. Calibrate the DC offsets of all analogue "
             "channels now?"))
        return;
    CalibrateInfo info;
    info.stage = uint32_t(CalibrateStage::ChanOffsets);
    info.channelMask = 0xFF;
    info.numAverage = 1000;
    info.sampleRate = ocontrol.measurementConfig().sampleRate;
    if (!showError(ocontrol.calibrate(info)))
        refreshRecords();
}

void WConfigGeneral::factoryReset() {
    restartMaster("Are you sure you want to reset the unit to its factory configuration (Unit will "
                  "reboot after this)?",
                  true, false);
}

void WConfigGeneral::reboot() {
    if (ocontrol.unitsConnected() && ask("Are you sure you want to reboot the unit?"))
        showError(ocontrol.reboot());
}

void WConfigGeneral::startBootloader() {
    restartMaster("Are you sure you want to restart the unit in its boot loader?", false, true);
}

void WConfigGeneral::restartMaster(const QString& question, bool factory, bool bootloader) {
    if (!ocontrol.unitsConnected() || !ask(question))
        return;
    TavroUnit1* master = ocontrol.unitMaster();
    if (!master)
        return;
    if (ocontrol.measureRunning())
        ocontrol.measureStop(1);
    showError(master->factoryReset(factory, bootloader));
}
