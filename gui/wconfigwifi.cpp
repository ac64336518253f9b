#include "wconfigwifi.h"

#include "control.h"

#include <QLabel>
#include <QListWidget>

#include <algorithm>

using namespace TavroApi;

WConfigWifi::WConfigWifi(Control& control, QWidget* parent)
    : WConfigPage(control, "Tavro-40x Wifi Config", "Wifi Config", parent) {
    addCombo("Wifi Mode", "Off,Client", &Configuration::wifiMode);
    olist = new QListWidget(this);
    olist->setMaximumHeight(150);
    addRow("Wifi access points", olist);
    addButtons({{"Search", SLOT(wifiSearch())}}, this);
    oname = addText("Wifi Access Point Name", &Configuration::wifiAp0);
    ZFormText* password = addField("Wifi Access Point Password", new ZFormText(0, this));
    password->setPassword(true);
    password->setEnabled(false);
    password->setToolTip("The unit's configuration holds no password");
    ostatus = new QLabel(this);
    addRow("Wifi Status", ostatus);
    addButtons({{"Save and Set", SLOT(wifiSaveAndSet())},
                {"Connect", SLOT(wifiConnect())},
                {"Disconnect", SLOT(wifiDisconnect())}},
               this);
    connect(olist, SIGNAL(itemClicked(QListWidgetItem*)), this, SLOT(wifiSelect(QListWidgetItem*)));
    connect(&otimer, SIGNAL(timeout()), this, SLOT(statusUpdate()));
    configRead();
}

void WConfigWifi::configRead() {
    WConfigPage::configRead();
    statusUpdate();
}

QString WConfigWifi::statusText() const {
    return ostatus->text();
}

void WConfigWifi::statusUpdate() {
    ostatus->setText(ocontrol.unitsConnected()
                         ? ZFormField::toQString(ocontrol.getWifiStatusString())
                         : QString());
}

void WConfigWifi::showEvent(QShowEvent* event) {
    WConfigPage::showEvent(event);
    statusUpdate();
    otimer.start(refreshMs);
}

void WConfigWifi::hideEvent(QHideEvent* event) {
    otimer.stop();
    WConfigPage::hideEvent(event);
}

void WConfigWifi::wifiSearch() {
    olist->clear();
    TavroUnit1* master = ocontrol.unitsConnected() ? ocontrol.unitMaster() : nullptr;
    if (!master)
        return;
    unsigned int num = 0;
    if (showError(master->wifiCommand(WifiCmd::Scan)) || showError(master->wifiAccesspointNum(num)))
        return;
    num = std::min(num, maxAccessPoints);
    for (unsigned int i = 0; i < num; i++) {
        WifiAccessPoint ap;
        if (showError(master->wifiAccesspointInfo(i, ap)))
            break;
        QString name = ZFormField::toQString(getCharArray(ap.name));
        QListWidgetItem* item = new QListWidgetItem(
            QString("%1 (%2 dBm, channel %3)").arg(name).arg(ap.signalLevel).arg(ap.channel),
            olist);
        item->setData(Qt::UserRole, name);
    }
    statusUpdate();
}

void WConfigWifi::wifiSelect(QListWidgetItem* item) {
    if (item)
        oname->setText(item->data(Qt::UserRole).toString());
}

void WConfigWifi::wifiSaveAndSet() {
    if (!ocontrol.unitsConnected() || !checkFields())
        return;
    WConfigRecords records;
    records.config = ocontrol.configuration();
    configChange(records);
    if (records.configChanged && showError(ocontrol.setConfig(records.config)))
        return;
    WifiMode mode = records.config.wifiMode;
    TavroUnit1* master = ocontrol.unitMaster();
    if (master &&
        showError(master->wifiCommand(mode == WifiMode::Off ? WifiCmd::Off : WifiCmd::Connect)))
        return;
    refreshRecords();
}

void WConfigWifi::command(WifiCmd command) {
    TavroUnit1* master = ocontrol.unitsConnected() ? ocontrol.unitMaster() : nullptr;
    if (master)
        showError(master->wifiCommand(command));
    statusUpdate();
}

void WConfigWifi::wifiConnect() {
    command(WifiCmd::Connect);
}

void WConfigWifi::wifiDisconnect() {
    command(WifiCmd::Disconnect);
}
