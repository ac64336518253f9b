#ifndef WCONFIGMQTT_H
#define WCONFIGMQTT_H

#include "wconfigpage.h"

// The "Tavro-40x MQTT" page: when the unit publishes (mqttMode), to which
// server (mqttServer, at most 31 characters) and port (mqttPort, 0 to 65535).
class WConfigMqtt : public WConfigPage {
    Q_OBJECT
public:
    explicit WConfigMqtt(Control& control, QWidget* parent = nullptr);
};

#endif
