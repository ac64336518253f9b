// The units' state in the status bar and the run-state indicator.

#include "gui.h"

#include <QLabel>
#include <QStatusBar>

namespace {

// Status word bits.
constexpr uint32_t statusRun = 0x04;
constexpr uint32_t statusTrigger = 0x08;
constexpr uint32_t statusOverrun = 0xC0;
constexpr uint32_t statusAlarm = 0x100;

const char* modeName(TavroApi::Mode mode) {
    switch (static_cast<unsigned int>(mode)) {
    case 0:
        return "Idle";
    case 1:
        return "Run";
    case 2:
        return "RunProgram";
    case 3:
        return "Internal";
    case 4:
        return "Sleep";
    case 5:
        return "Demo";
    default:
        return "Uknown";
    }
}

} // namespace

void Gui::processStatus() {
    // Any failure, a status that has not come for too long included, counts
    // as a lost connection.
    if (oconnected && ocontrol.getStatus(ostatus))
        unitsDisconnected();
    statusBar()->showMessage(statusString().str());
}

ZString Gui::statusString() {
    if (!oconnected)
        return "Not connected";

    ZString text = modeName(ostatus.mode);
    if (ostatus.status & statusRun) {
        orunning = true;
        if (ostatus.status & statusTrigger) {
            stateSet(1);
            text += ": Awaiting Trigger";
        } else {
            stateSet(2);
            text += ": Running";
        }
        if (ocontrol.configuration().logData)
            text += ": Data logging";
        if (ocontrol.fileRawSave().save || ocontrol.fileProcSave().save)
            text += ": Data file saving";
    } else {
        orunning = false;
        stateSet(0);
        text += ": Stopped";
    }
    if (ostatus.status & statusOverrun)
        text += ", overrun";
    if (ostatus.status & statusAlarm)
        text += ", alarm";
    return text;
}

void Gui::stateSet(int n) {
    if (n == ostate)
        return;
    static const char* const texts[] = {"S", "T", "R"};
    static const char* const styles[] = {
        "QLabel { margin: 10px; background-color : red; }",
        "QLabel { margin: 10px; background-color : yellow; }",
        "QLabel { margin: 10px; background-color : green; }",
    };
    if (n < 0 || n > 2)
        return;
    ostate = n;
    ostateLabel->setText(texts[n]);
    ostateLabel->setStyleSheet(styles[n]);
}
