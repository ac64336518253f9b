#ifndef WCONFIG_H
#define WCONFIG_H

#include <QList>
#include <QWidget>

class Control;
class QListWidget;
class QPushButton;
class QStackedWidget;
class WConfigAlarms;
class WConfigAwg;
class WConfigFileSave;
class WConfigGeneral;
class WConfigMeasurement;
class WConfigMqtt;
class WConfigNetwork;
class WConfigPage;
class WConfigWifi;
struct WConfigRecords;

// The "Config" page: the device configuration pages, their titles listed on
// the left and the chosen one shown on the right, with "Save" and "Cancel"
// for the whole set below. Its own pages, in order: "Measurement Config",
// "Measurement File Save Config", "Tavro-40x General Config", "Tavro-40x AWG
// Config", "Tavro-40x Alarms", "Tavro-40x MQTT", "Tavro-40x Network Config",
// "Tavro-40x Wifi Config"; further pages come with addPage.
//
// "Save" (configSave) first checks every field of every page: the first one
// that cannot be taken is named in one warning box, its page is shown and
// nothing is sent. Otherwise each record whose fields were changed is sent
// with exactly those members changed: the Configuration (setConfig), the
// measurement (the control object's copy, which the next capture sends, and
// setMeasurementConfig) and the waveform generator (setAwgConfig); the file
// save settings go to the control object and the settings. Then the control
// object's records are read again (Control::update) and the fields reloaded.
// Without a connected unit the unit's records are not sent (a warning says
// so when they were changed) and the changed fields stay as they are.
// "Cancel" (configRead) reloads every field from the control object.
//
// GUI thread only; unit calls wait for the unit on this thread.
class WConfig : public QWidget {
    Q_OBJECT
public:
    WConfig(Control& control, QWidget* parent = nullptr);

    // Appends a page under title; the set owns it. Returns its index.
    int addPage(const QString& title, QWidget* page);
    int pageCount() const;
    QString pageTitle(int index) const;
    QWidget* page(int index) const;
    // The index of the page of title; -1 for none.
    int pageIndex(const QString& title) const;
    int currentIndex() const;

    // Every field's records into records (changed fields only).
    void configChange(WConfigRecords& records);
    // The file save records from the settings (done at construction).
    void readSettings();

    QListWidget* getList() const { return olist; }
    QStackedWidget* getStack() const { return ostack; }
    QPushButton* getButton(const QString& text) const;
    WConfigMeasurement* getMeasurementPage() const { return omeasurement; }
    WConfigFileSave* getFileSavePage() const { return ofileSave; }
    WConfigGeneral* getGeneralPage() const { return ogeneral; }
    WConfigAwg* getAwgPage() const { return oawg; }
    WConfigAlarms* getAlarmsPage() const { return oalarms; }
    WConfigMqtt* getMqttPage() const { return omqtt; }
    WConfigNetwork* getNetworkPage() const { return onetwork; }
    WConfigWifi* getWifiPage() const { return owifi; }

    using QWidget::update;

public slots:
    // Every field from the control object's records ("Cancel").
    void configRead();
    // Sends the changed records ("Save").
    void configSave();
    // The file save records into the settings (for the main window when it
    // saves its settings).
    void configSaveGui();
    void showConfigItem(int index);
    // The units need new firmware (on): the firmware page, when there is
    // one, is shown.
    void firmwareUpdate(bool on);
    // Reloads page index from the control object's records; -1 all pages.
    void update(int index);

private slots:
    // A page had the control object's records read again.
    void recordsChanged();

private:
    bool checkFields();
    void fitStackToPage();

    Control& ocontrol;
    QListWidget* olist;
    QStackedWidget* ostack;
    WConfigMeasurement* omeasurement;
    WConfigFileSave* ofileSave;
    WConfigGeneral* ogeneral;
    WConfigAwg* oawg;
    WConfigAlarms* oalarms;
    WConfigMqtt* omqtt;
    WConfigNetwork* onetwork;
    WConfigWifi* owifi;
    QList<WConfigPage*> odevicePages; // the pages of unit records, in order
};

#endif
