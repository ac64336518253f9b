#ifndef WCONFIGWIFI_H
#define WCONFIGWIFI_H

#include "wconfigpage.h"

#include <QTimer>

class QLabel;
class QListWidget;
class QListWidgetItem;

// The "Tavro-40x Wifi Config" page: the unit's WiFi mode and access point.
// "Search" has the master unit scan (wifiCommand Scan) and lists the access
// points it reports (at most maxAccessPoints) in the unit's order; picking
// one fills "Wifi Access Point Name". "Save and Set" sends this page's
// fields alone (setConfig) and then has the unit connect (Client) or switch
// its WiFi off (Off); "Connect" and "Disconnect" send those commands. "Wifi
// Status" shows the status the unit last reported, refreshed every
// refreshMs while the page is visible.
//
// The unit's configuration holds no password: the password field is shown
// but cannot be edited.
class WConfigWifi : public WConfigPage {
    Q_OBJECT
public:
    static constexpr unsigned int maxAccessPoints = 64;
    static constexpr int refreshMs = 1000;

    explicit WConfigWifi(Control& control, QWidget* parent = nullptr);

    void configRead() override;

    QListWidget* accessPoints() const { return olist; }
    QString statusText() const;

public slots:
    void wifiSearch();
    void wifiSelect(QListWidgetItem* item);
    void wifiSaveAndSet();
    void wifiConnect();
    void wifiDisconnect();
    void statusUpdate();

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void command(TavroApi::WifiCmd command);

    QListWidget* olist;
    ZFormText* oname;
    QLabel* ostatus;
    QTimer otimer;
};

#endif
