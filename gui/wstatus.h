#ifndef WSTATUS_H
#define WSTATUS_H

#include "zlist.h"
#include "zstring.h"

#include <QFrame>
#include <QString>
#include <QTimer>

#include <cstdint>

class Control;
class QLineEdit;
class QShowEvent;
class QHideEvent;

// The "Status" page: a fixed table of read-only values about the master
// unit (serial number, the state line of the main window, mode, clock,
// Ethernet and WiFi set-up, calibration date). While the page is visible it
// refreshes itself every refreshMs, asking the unit for its node
// information and information each time; hidden it causes no traffic.
//
// The state line and whether the units count as connected come from the
// main window (Gui), the top-level widget holding the page; without one the
// page shows "Not Connected". GUI thread only.
class WStatus : public QFrame {
    Q_OBJECT
public:
    enum Row {
        RowSerialNumber,
        RowUnitStatus,
        RowUnitMode,
        RowUnitTime,
        RowEthernetMode,
        RowEthernetMac,
        RowEthernetAddress,
        RowEthernetNetmask,
        RowNetworkGateway,
        RowNetworkNameServer,
        RowNetworkTimeServer,
        RowWifiMode,
        RowWifiMac,
        RowWifiAddress,
        RowWifiNetmask,
        RowWifiGateway,
        RowWifiStatus,
        RowCalibrationDate,
        RowNum
    };
    static constexpr int refreshMs = 1000;
    static constexpr int valueWidth = 350;

    WStatus(Control& control, QWidget* parent = nullptr);

    void init();

    // The text of a row's value box; empty for a row that does not exist.
    QString value(int row) const;
    QString label(int row) const;
    // The periodic refresh runs (between a show and the next hide).
    bool isRefreshing() const { return otimer.isActive(); }

    // Mode 0 "Idle" to 5 "Demo", anything else "Uknown".
    static ZString modeName(unsigned int mode);
    // Six bytes as "0A:1B:2C:3D:4E:5F", the first byte first.
    static ZString macString(const uint8_t mac[6]);
    // An IPv4 address held most significant byte first, as "192.168.1.57".
    static ZString dottedString(uint32_t address);
    // Entry n of "Off,DHCP,Manual"; the number itself beyond the list.
    static ZString networkModeName(uint32_t mode);

    using QFrame::update;

public slots:
    // Reads the status of the master unit and refreshes every row.
    void update();

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void setValue(int row, const ZString& text);

    Control& ocontrol;
    QWidget* ogrid;
    ZList<QLineEdit*> ovalues;
    ZList<QString> olabels;
    QTimer otimer;
};

#endif
