// Connecting the units, running captures and taking the data they bring.

#include "gui.h"
#include "guimessages.h"
#include "wcapture.h"
#include "wcapturedemo.h"
#include "wcaptureprocessed.h"

#include <QAction>
#include <QIcon>
#include <QThread>

using TavroApi::Mode;
using TavroApi::NodeStatus;
using TavroApi::TavroUnit1;
using TavroApi::TavroUnitsDataBlock;

namespace {

// Block status bits.
constexpr unsigned int statusRun = 0x04;
// The bits of the accumulated block status that make a capture fail, and
// among them the overrun bits.
constexpr unsigned int captureErrorMask = 0xFECB;
constexpr unsigned int captureOverrunMask = 0xC0;
// sendDataEnable: status only, or status, data and processed data.
constexpr unsigned char sendDataStatus = 1;
constexpr unsigned char sendDataAll = 7;

} // namespace

void Gui::unitsConnectToggle() {
    unitsConnect(!oconnected);
}

void Gui::unitsConnect(bool on) {
    if (on == oconnected)
        return;

    if (!on) {
        stop(false);
        ocontrol.unitsDisconnect();
        oconnectAction->setIcon(QIcon(":/images/connect_off.svg"));
        oconnected = false;
        ologgedIn = false;
        firmwareUpdateClear();
        ocontrol.dataStreamEnable(false);
        update(true);
        return;
    }

    ZError err = ocontrol.unitsConnect();
    if (err.num() == 2) {
        // The units need new firmware: only the configuration pages stay usable.
        GuiMessages::warning(this, titleWarning, err.str().str());
        firmwareUpdate();
    } else if (err) {
        GuiMessages::critical(this, titleError, err.str().str());
    }

    if (!ocontrol.unitsConnected()) {
        GuiMessages::warning(this, titleWarning, "No units connected");
        return;
    }

    oconnectAction->setIcon(QIcon(":/images/connect_on.svg"));
    oconnected = true;
    ounitsGone = false;
    ologgedIn = false;
    ocontrol.update();
    update(true);

    // A capture that already runs on the unit is shown as it comes: its data
    // are asked for; otherwise the unit sends its status only.
    NodeStatus status;
    if (!refreshStatus(status) && status.mode == Mode::Run) {
        ocontrol.dataSetNumStreams(2);
        ocontrol.dataStreamEnable(true);
        ocontrol.sendDataEnable(sendDataAll);
        orunning = true;
    } else {
        ocontrol.sendDataEnable(sendDataStatus);
    }
}

ZError Gui::refreshStatus(NodeStatus& status) {
    TavroUnit1* master = ocontrol.unitMaster();
    if (!master)
        return ZError("No master unit set");
    ZError err = master->getStatus(status);
    if (!err)
        ocontrol.sendStatusServe(status);
    return err;
}

void Gui::unitsDisconnected() {
    if (ounitsGone)
        return;
    ounitsGone = true;
    GuiMessages::warning(this, titleError, "One or more units have disconnected");
    unitsConnect(false);
}

void Gui::unitsConnectionGone() {
    unitsDisconnected();
}

void Gui::run(bool program) {
    if (!oconnected) {
        GuiMessages::critical(this, titleError, "Not connected to any units");
        return;
    }
    if (orunning)
        return;

    if (ocaptureView) {
        ocaptureView->update(false);
        ocaptureView->clear();
    }
    if (ocaptureProcessedView)
        ocaptureProcessedView->clear();
    update(false);
    orunning = true;

    ZError err = ocontrol.measureStart(program);
    if (err) {
        GuiMessages::critical(this, titleError, err.str().str());
        return;
    }
    // Let the unit settle, then show its state at once: a unit pushes its
    // status only once a second.
    QThread::msleep(100);
    NodeStatus status;
    refreshStatus(status);
    processStatus();
}

void Gui::doStop() {
    stop(true);
}

void Gui::stop(bool) {
    if (!oconnected) {
        GuiMessages::critical(this, titleError, "Not connected to any units");
        update(false);
        orunning = false;
        return;
    }
    if (!orunning)
        return;
    // Units that are gone take no commands.
    ocontrol.measureStop(ounitsGone ? 2 : 1);
    if (!ounitsGone) {
        NodeStatus status;
        refreshStatus(status);
    }
    processStatus();
    orunning = false;
}

void Gui::dataReady() {
    if (ocaptureView && ocaptureView->isVisible()) {
        ocaptureView->dataReady();
        return;
    }
    if (ocaptureDemoView && ocaptureDemoView->isVisible()) {
        ocaptureDemoView->dataReady();
        return;
    }
    // Nobody shows the data: it is dropped, but the end of a capture is noted.
    while (TavroUnitsDataBlock* block = ocontrol.dataRead(0)) {
        bool ended = !(block->header.status & statusRun);
        ocontrol.dataDone(0);
        if (ended)
            dataCaptureFinished();
    }
}

void Gui::dataProcReady() {
    if (ocaptureProcessedView) {
        ocaptureProcessedView->dataReady();
        return;
    }
    ocontrol.dataProcSkip(0);
}

void Gui::dataCaptureFinished() {
    orunning = false;
    stateSet(0);
    unsigned int status = ocontrol.dataStatus();
    if (!(status & captureErrorMask))
        return;
    QString text;
    if (status & captureOverrunMask)
        text = QString::asprintf("Capture error: Overrun: 0x%x\n", status);
    else
        text = QString::asprintf("Capture error: 0x%x\n", status);
    GuiMessages::critical(this, titleError, text);
}
