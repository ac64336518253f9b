#ifndef WCONFIGNETWORK_H
#define WCONFIGNETWORK_H

#include "wconfigpage.h"

// The "Tavro-40x Network Config" page: the unit's Ethernet set-up. The
// addresses are edited as dotted quads ("192.168.1.10"); anything else is
// refused at the field.
class WConfigNetwork : public WConfigPage {
    Q_OBJECT
public:
    explicit WConfigNetwork(Control& control, QWidget* parent = nullptr);
};

#endif
