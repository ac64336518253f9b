#ifndef WCONFIGCHANS_H
#define WCONFIGCHANS_H

#include "tavroenums.h"
#include "zstring.h"

#include <QWidget>

class Control;
class QPushButton;
class QTableWidget;

// The text of a channel type for the channel table.
ZString channelTypeString(TavroApi::ChannelType type);

// The "Channels Configuration" page: one row per channel of the unit
// manager's channel list (Control's cache) with the editable members of its
// ChannelConfig. "Save" sends every row to its unit (setChannelConfig) and
// reads the caches again; "Cancel" shows the cached records again. While a
// capture runs the table is read-only and Save is refused. GUI thread only.
class WConfigChans : public QWidget {
    Q_OBJECT
public:
    enum Column {
        ColEnable,
        ColAttenuator,
        ColPgaGain,
        ColType,
        ColId,
        ColName,
        ColUnits,
        ColScale,
        ColOffset,
        ColProcess,
        ColNum
    };

    WConfigChans(Control& control, QWidget* parent = nullptr);

    QTableWidget* getTable() const { return otable; }
    QPushButton* getSaveButton() const { return osave; }
    QPushButton* getCancelButton() const { return ocancel; }
    // A capture runs: the table cannot be changed.
    bool busy() const;

    using QWidget::update;

public slots:
    // Fills the table from the cached channel records.
    void update();
    void save();

private:
    Control& ocontrol;
    QTableWidget* otable;
    QPushButton* osave;
    QPushButton* ocancel;
};

#endif
