#include "wconfignetwork.h"

using TavroApi::Configuration;

WConfigNetwork::WConfigNetwork(Control& control, QWidget* parent)
    : WConfigPage(control, "Tavro-40x Network Config", "Ethernet", parent) {
    addCombo("Network Mode", "Off,DHCP,Manual", &Configuration::networkMode);
    addAddress("Network Address", &Configuration::networkAddress);
    addAddress("Network Mask", &Configuration::networkMask);
    addAddress("Network Name Server", &Configuration::networkNameServer0);
    addAddress("Network Gateway", &Configuration::networkGateway);
    addAddress("Network Time Server", &Configuration::networkTimeServer);
    configRead();
}
