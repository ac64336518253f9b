#include "wconfigmqtt.h"

using TavroApi::Configuration;

WConfigMqtt::WConfigMqtt(Control& control, QWidget* parent)
    : WConfigPage(control, "Tavro-40x MQTT", "MQTT Configuration", parent) {
    addCombo("MQTT Mode", "Off,On Alarm,On Data", &Configuration::mqttMode);
    addText("MQTT Server", &Configuration::mqttServer);
    addNumber("MQTT Server Port", 0, 65535, &Configuration::mqttPort);
    configRead();
}
