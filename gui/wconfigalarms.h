#ifndef WCONFIGALARMS_H
#define WCONFIGALARMS_H

#include "wconfigpage.h"

// The "Tavro-40x Alarms" page: a grid of the unit's alarms
// (Configuration.alarms), one row each, "Alarm0" to "Alarm15": mode, low and
// high level, output mode and output channel (0 to 15). The fields are
// known to the page as "Alarm3 Level High" and so on. "Clear Alarms" clears
// every latched alarm of the units.
class WConfigAlarms : public WConfigPage {
    Q_OBJECT
public:
    enum Column { ColAlarm, ColMode, ColLevelLow, ColLevelHigh, ColOutputMode, ColOutputChannel };

    explicit WConfigAlarms(Control& control, QWidget* parent = nullptr);

    // The field of alarm n in column (not ColAlarm); null for none.
    ZFormField* alarmField(int n, Column column) const;

public slots:
    void clearAlarms();
};

#endif
