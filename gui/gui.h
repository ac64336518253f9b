#ifndef GUI_H
#define GUI_H

#include "control.h"
#include "tavronode.h"
#include "zerror.h"
#include "zfile.h"
#include "zmainwindow.h"
#include "zstring.h"

#include <QByteArray>
#include <QFont>
#include <QSettings>
#include <QTimer>

#include <memory>

class QAction;
class QCloseEvent;
class QLabel;
class QSplitter;
class QTabWidget;
class HelpWindow;
class WCalibrate;
class WCapture;
class WCaptureDemo;
class WCaptureProcessed;
class WConfig;
class WConfigChans;
class WDatalog;
class WDebug;
class WStatus;
class WUnits;

// The application's main window. It owns the control object, builds the
// menus, the "Control" tool bar and the pages, keeps the connection, login
// and run state, shows the units' state in the status bar every second and
// hands the control object's notifications to the pages.
//
// The control object's threads reach the window only through queued calls
// of the slots "dataReady()", "dataProcReady()" and "unitsDisconnected()";
// everything here runs on the GUI thread.
class Gui : public ZMainWindow {
    Q_OBJECT
public:
    static constexpr const char* version = "1.3.1";
    static constexpr const char* titleError = "Tavro-gui - Error";
    static constexpr const char* titleWarning = "Tavro-gui - Warning";
    static constexpr int statusPeriodMs = 1000;

    explicit Gui(QWidget* parent = nullptr);
    ~Gui() override;

    // Builds the window with the options of the command line, starts the
    // control object, reads the settings and starts the status timer.
    ZError init(const ZString& name, const ZString& ttyDevice, bool cal, bool demo, bool dev);

    bool isConnected() const { return oconnected; }
    bool isRunning() const { return orunning; }
    bool isLoggedIn() const { return ologgedIn; }
    bool isInUpdate() const { return oinUpdate; }
    ZString getUserid() const { return ouserid; }
    Control& getControl() { return ocontrol; }
    QSettings& getSettings() { return osettings; }
    // A fixed-pitch font for the pages' text areas.
    QFont fixedFont() const { return ofixedFont; }

    // The state of the units in words, as the status bar shows it. Also
    // follows the status word: sets the run flag and the state indicator.
    ZString statusString();
    // The state indicator: 0 stopped ("S", red), 1 awaiting trigger ("T",
    // yellow), 2 running ("R", green); -1 before the first status.
    void stateSet(int n);
    int getState() const { return ostate; }

    // The widgets of the window, for the pages and for tests.
    QTabWidget* getTabs() const { return otabs; }
    QLabel* getStateLabel() const { return ostateLabel; }
    QAction* getConnectAction() const { return oconnectAction; }
    WStatus* getStatusView() const { return ostatusView; }
    WUnits* getUnitsView() const { return ounitsView; }
    WCapture* getCaptureView() const { return ocaptureView; }
    WCaptureProcessed* getCaptureProcessedView() const { return ocaptureProcessedView; }
    WCaptureDemo* getCaptureDemoView() const { return ocaptureDemoView; }
    WConfig* getConfigView() const { return oconfigView; }
    WConfigChans* getChannelConfigView() const { return ochannelConfigView; }
    WDatalog* getDatalogView() const { return odatalogView; }
    WCalibrate* getCalibrateView() const { return ocalibrateView; }
    WDebug* getDebugView() const { return odebugView; }
    HelpWindow* getHelpWindow() const { return ohelpWindow.get(); }

    QSize sizeHint() const override;

    using ZMainWindow::update;

public slots:
    void login();
    void changePassword();
    void logout();
    void quit() override;
    void manual();
    // The manual at one of its topics ("status", "files#csv", ...).
    void manualTopic(const QString& topic);
    void about();

    void unitsConnectToggle();
    void unitsConnect(bool on);
    // Starts a capture; program selects the unit's program mode.
    void run(bool program = false);
    void doStop();
    void stop(bool arg);

    // A lost connection, reported once: then every unit is disconnected.
    void unitsDisconnected();
    void unitsConnectionGone();

    void dataReady();
    void dataProcReady();
    void dataCaptureFinished();

    void processStatus();
    void enableStatus(bool on);

    // While a unit's firmware is updated only the configuration pages work.
    void firmwareUpdate();
    void firmwareUpdateClear();

    // Refreshes the pages from the control object's caches.
    void update(bool all);
    // A text command for the units (debug view).
    void commandPut(QByteArray command);

private slots:
    // Once, shortly after start: connects to the saved units when asked to.
    void started();

protected:
    void initMenus() override;
    void initToolBars() override;
    void initMainArea() override;
    void initStatusBar() override;
    void closeEvent(QCloseEvent* event) override;

private:
    void readSettings();
    void writeSettings();
    // Reads the master unit's status now and keeps it as the latest one.
    ZError refreshStatus(TavroApi::NodeStatus& status);
    // The pages whose work needs the units, enabled or not.
    void setDataPagesEnabled(bool on);

    QSettings osettings;
    ZString ottyDevice;
    bool ocal;
    bool odemo;
    bool odev;
    bool oinUpdate;
    bool oconnected;
    bool ounitsGone;
    bool ologgedIn;
    ZString ouserid;
    Control ocontrol;

    // Pages, owned by the tab widget; null when not created.
    WStatus* ostatusView;
    WUnits* ounitsView;
    WConfig* oconfigView;
    WConfigChans* ochannelConfigView;
    WCapture* ocaptureView;
    WCaptureProcessed* ocaptureProcessedView;
    WDatalog* odatalogView;
    WCalibrate* ocalibrateView;
    WCaptureDemo* ocaptureDemoView;
    WDebug* odebugView;
    std::unique_ptr<HelpWindow> ohelpWindow;

    int ostate;
    bool orunning;
    TavroApi::NodeStatus ostatus;
    ZFile ologFile;
    QTimer ostatusTimer;
    QLabel* ostateLabel;
    QAction* oconnectAction;

    QFont ofixedFont;
    QSplitter* osplitter;
    QTabWidget* otabs;
};

#endif
