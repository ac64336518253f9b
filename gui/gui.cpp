#include "gui.h"

#include "guimessages.h"
#include "helpwindow.h"
#include "wcalibrate.h"
#include "wcapture.h"
#include "wcapturedemo.h"
#include "wcaptureprocessed.h"
#include "wconfig.h"
#include "wconfigchans.h"
#include "wconfigfirmware.h"
#include "wconfigsaverestore.h"
#include "wdatalog.h"
#include "wdebug.h"
#include "wstatus.h"
#include "wunits.h"

#include <QCloseEvent>
#include <QIcon>
#include <QSplitter>
#include <QStatusBar>
#include <QTabWidget>
#include <QVBoxLayout>

#include <cstdio>

// The icons live in a static library: registering them here (again, which
// is harmless) keeps the window whole wherever it is built.
static void resourcesInit() {
    Q_INIT_RESOURCE(tavro);
}

Gui::Gui(QWidget* parent)
    : ZMainWindow(parent), osettings("Korvel", "Tavro-gui"), ocal(false), odemo(false), odev(false),
      oinUpdate(false), oconnected(false), ounitsGone(false), ologgedIn(false), ocontrol(this),
      ostatusView(nullptr), ounitsView(nullptr), oconfigView(nullptr), ochannelConfigView(nullptr),
      ocaptureView(nullptr), ocaptureProcessedView(nullptr), odatalogView(nullptr),
      ocalibrateView(nullptr), ocaptureDemoView(nullptr), odebugView(nullptr), ostate(-1),
      orunning(false), ostateLabel(nullptr), oconnectAction(nullptr), ofixedFont("Monospace", 12),
      osplitter(nullptr), otabs(nullptr) {
    resourcesInit();
    ofixedFont.setStyleHint(QFont::TypeWriter);
    setWindowTitle("Tavro-gui");
    setWindowIcon(QIcon(":/images/tavro.svg"));
}

Gui::~Gui() {
    ostatusTimer.stop();
    // No more unit messages for the pages, which go before the control
    // object they refer to.
    ocontrol.setDebugView(nullptr);
    delete otabs;
    otabs = nullptr;
    ologFile.close();
}

ZError Gui::init(const ZString& name, const ZString& ttyDevice, bool cal, bool demo, bool dev) {
    ottyDevice = ttyDevice;
    ocal = cal;
    odemo = demo;
    odev = dev;

    ZError err = ZMainWindow::init(name);
    if (err)
        return err;
    if ((err = ocontrol.init(ttyDevice)))
        fprintf(stderr, "Control init error: %d, %s\n", err.num(), err.str().str());
    readSettings();
    if (ounitsView)
        ounitsView->readSettings();
    update(true);
    connect(&ostatusTimer, SIGNAL(timeout()), this, SLOT(processStatus()));
    ostatusTimer.start(statusPeriodMs);
    QTimer::singleShot(200, this, SLOT(started()));
    return err;
}

void Gui::started() {
    if (!osettings.value("units/unitAutoConnect", false).toBool() || ocontrol.unitsNum() == 0)
        return;
    unitsConnect(true);
    // "Run on auto connect": a capture starts at once unless one already runs.
    // Not while the units wait for new firmware (the capture page is off).
    if (oconnected && !orunning && ocaptureView && ocaptureView->isEnabled() &&
        osettings.value("units/unitAutoRun", false).toBool()) {
        if (ocaptureView)
            otabs->setCurrentWidget(ocaptureView);
        run();
    }
}

void Gui::initMainArea() {
    QWidget* area = new QWidget(this);
    QVBoxLayout* layout = new QVBoxLayout(area);
    layout->setContentsMargins(2, 2, 2, 2);
    osplitter = new QSplitter(Qt::Vertical, area);
    otabs = new QTabWidget(osplitter);
    otabs->setTabPosition(QTabWidget::North);
    osplitter->addWidget(otabs);
    layout->addWidget(osplitter);
    setCentralWidget(area);

    ZError err = ologFile.open("log.txt", "w");
    if (err)
        fprintf(stderr, "%s\n", err.str().str());

    ostatusView = new WStatus(ocontrol, otabs);
    otabs->addTab(ostatusView, "Status");
    ounitsView = new WUnits(ocontrol, otabs);
    otabs->addTab(ounitsView, "Units");
    oconfigView = new WConfig(ocontrol, otabs);
    oconfigView->addPage("Tavro-40x Firmware", new WConfigFirmware(ocontrol));
    oconfigView->addPage("Tavro-40x Config Save/Restore", new WConfigSaveRestore(ocontrol));
    otabs->addTab(oconfigView, "Config");
    ochannelConfigView = new WConfigChans(ocontrol, otabs);
    otabs->addTab(ochannelConfigView, "Channel Config");
    ocaptureView = new WCapture(ocontrol, otabs);
    otabs->addTab(ocaptureView, "Raw Data");
    ocaptureProcessedView = new WCaptureProcessed(ocontrol, otabs);
    otabs->addTab(ocaptureProcessedView, "Processed Data");
    odatalogView = new WDatalog(ocontrol, otabs);
    otabs->addTab(odatalogView, "Data Log");
    if (ocal || odev) {
        ocalibrateView = new WCalibrate(ocontrol, otabs);
        otabs->addTab(ocalibrateView, "Calibrate");
    }
    if (odemo) {
        ocaptureDemoView = new WCaptureDemo(ocontrol, otabs);
        otabs->addTab(ocaptureDemoView, "Capture Demo");
    }
    if (odev) {
        odebugView = new WDebug(otabs);
        otabs->addTab(odebugView, "Debug");
    }
    // The units' messages: to the debug console, which passes them on to
    // the calibration page; with no console, to that page alone.
    if (odebugView) {
        ocontrol.setDebugView(odebugView);
        if (ocalibrateView)
            connect(odebugView, &WDebug::messageReceived, ocalibrateView,
                    &WCalibrate::sendMessageServe);
    } else if (ocalibrateView) {
        ocontrol.setDebugView(ocalibrateView);
    }
}

void Gui::initStatusBar() {
    statusBar()->showMessage(statusString().str());
}

QSize Gui::sizeHint() const {
    // A 1280 x 800 screen less a panel and the title bar.
    return QSize(1280, 740);
}

void Gui::readSettings() {
    QSize size = osettings.value("windowSize", sizeHint()).toSize();
    if (size.isValid())
        resize(size);
}

void Gui::writeSettings() {
    if (oconfigView)
        oconfigView->configSaveGui();
    osettings.setValue("windowSize", size());
    osettings.sync();
}

void Gui::closeEvent(QCloseEvent* event) {
    writeSettings();
    event->accept();
}

void Gui::update(bool all) {
    oinUpdate = true;
    if (ounitsView)
        ounitsView->update();
    if (ocaptureView)
        ocaptureView->update(all);
    if (ocaptureDemoView)
        ocaptureDemoView->update();
    if (ocaptureProcessedView)
        ocaptureProcessedView->update(all);
    if (oconfigView)
        oconfigView->update(-1);
    if (ochannelConfigView)
        ochannelConfigView->update();
    if (odatalogView)
        odatalogView->update();
    oinUpdate = false;
}

void Gui::setDataPagesEnabled(bool on) {
    QWidget* pages[] = {
        ostatusView,           ounitsView,         ocaptureDemoView, ocaptureView,
        ocaptureProcessedView, ochannelConfigView, odatalogView,     ocalibrateView};
    for (QWidget* page : pages) {
        if (page)
            page->setEnabled(on);
    }
}

void Gui::firmwareUpdate() {
    setDataPagesEnabled(false);
    if (oconfigView) {
        otabs->setCurrentWidget(oconfigView);
        oconfigView->firmwareUpdate(true);
    }
}

void Gui::firmwareUpdateClear() {
    setDataPagesEnabled(true);
    if (oconfigView)
        oconfigView->firmwareUpdate(false);
}

void Gui::enableStatus(bool on) {
    if (on)
        ostatusTimer.start(statusPeriodMs);
    else
        ostatusTimer.stop();
}

void Gui::commandPut(QByteArray command) {
    ZError err = ocontrol.sendMessage(0, ZString(command.constData(), command.size()));
    if (err)
        GuiMessages::warning(this, titleWarning,
                             QString("Unable to send command: ") + err.str().str());
}
