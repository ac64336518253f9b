#include "wconfig.h"

#include "control.h"
#include "guimessages.h"
#include "wconfigalarms.h"
#include "wconfigawg.h"
#include "wconfigfilesave.h"
#include "wconfiggeneral.h"
#include "wconfigmeasurement.h"
#include "wconfigmqtt.h"
#include "wconfignetwork.h"
#include "wconfigwifi.h"

#include <QHBoxLayout>
#include <QListWidget>
#include <QPushButton>
#include <QScrollArea>
#include <QStackedWidget>
#include <QVBoxLayout>

WConfig::WConfig(Control& control, QWidget* parent)
    : QWidget(parent), ocontrol(control), olist(new QListWidget(this)),
      ostack(new QStackedWidget(this)) {
    QVBoxLayout* layout = new QVBoxLayout(this);
    QHBoxLayout* pages = new QHBoxLayout();
    pages->addWidget(olist);
    // The longest pages scroll on a small screen.
    QScrollArea* scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidget(ostack);
    pages->addWidget(scroll, 1);
    layout->addLayout(pages, 1);
    QHBoxLayout* buttons = new QHBoxLayout();
    buttons->addStretch();
    QPushButton* save = new QPushButton("Save", this);
    QPushButton* cancel = new QPushButton("Cancel", this);
    buttons->addWidget(save);
    buttons->addWidget(cancel);
    layout->addLayout(buttons);
    connect(save, SIGNAL(clicked()), this, SLOT(configSave()));
    connect(cancel, SIGNAL(clicked()), this, SLOT(configRead()));
    connect(olist, SIGNAL(currentRowChanged(int)), this, SLOT(showConfigItem(int)));

    omeasurement = new WConfigMeasurement(control);
    ofileSave = new WConfigFileSave(control);
    ogeneral = new WConfigGeneral(control);
    oawg = new WConfigAwg(control);
    oalarms = new WConfigAlarms(control);
    omqtt = new WConfigMqtt(control);
    onetwork = new WConfigNetwork(control);
    owifi = new WConfigWifi(control);
    odevicePages = {omeasurement, ogeneral, oawg, oalarms, omqtt, onetwork, owifi};
    QWidget* const all[] = {omeasurement, ofileSave, ogeneral, oawg,
                            oalarms,      omqtt,     onetwork, owifi};
    for (QWidget* p : all) {
        addPage(static_cast<ZFormPage*>(p)->title(), p);
        if (WConfigPage* device = qobject_cast<WConfigPage*>(p))
            connect(device, SIGNAL(recordsChanged()), this, SLOT(recordsChanged()));
    }
    olist->setCurrentRow(0);
    readSettings();
}

int WConfig::addPage(const QString& title, QWidget* page) {
    olist->addItem(title);
    olist->setMinimumWidth(olist->sizeHintForColumn(0) + 2 * olist->frameWidth() + 8);
    int index = ostack->addWidget(page);
    fitStackToPage();
    return index;
}

// The stack is as large as the page on show, so that only a page taller
// than the screen scrolls: hidden pages are left out of the size.
void WConfig::fitStackToPage() {
    for (int i = 0; i < ostack->count(); i++) {
        QSizePolicy::Policy policy =
            i == ostack->currentIndex() ? QSizePolicy::Preferred : QSizePolicy::Ignored;
        ostack->widget(i)->setSizePolicy(policy, policy);
    }
    ostack->updateGeometry();
}

int WConfig::pageCount() const {
    return ostack->count();
}

QString WConfig::pageTitle(int index) const {
    QListWidgetItem* item = olist->item(index);
    return item ? item->text() : QString();
}

QWidget* WConfig::page(int index) const {
    return ostack->widget(index);
}

int WConfig::pageIndex(const QString& title) const {
    for (int i = 0; i < olist->count(); i++) {
        if (olist->item(i)->text() == title)
            return i;
    }
    return -1;
}

int WConfig::currentIndex() const {
    return ostack->currentIndex();
}

QPushButton* WConfig::getButton(const QString& text) const {
    for (QPushButton* button : findChildren<QPushButton*>(QString(), Qt::FindDirectChildrenOnly)) {
        if (button->text() == text)
            return button;
    }
    return nullptr;
}

void WConfig::readSettings() {
    ofileSave->readSettings();
}

void WConfig::configSaveGui() {
    ofileSave->writeSettings();
}

void WConfig::showConfigItem(int index) {
    if (index < 0 || index >= ostack->count())
        return;
    ostack->setCurrentIndex(index);
    fitStackToPage();
    if (olist->currentRow() != index)
        olist->setCurrentRow(index);
}

void WConfig::firmwareUpdate(bool on) {
    int index = pageIndex("Tavro-40x Firmware");
    if (on && index >= 0)
        showConfigItem(index);
}

void WConfig::update(int index) {
    if (index < 0) {
        configRead();
        // The pages added from outside refresh themselves, when they can.
        for (int i = 0; i < ostack->count(); i++) {
            QWidget* p = ostack->widget(i);
            if (!qobject_cast<ZFormPage*>(p) && p->metaObject()->indexOfSlot("update()") >= 0)
                QMetaObject::invokeMethod(p, "update");
        }
        return;
    }
    QWidget* p = page(index);
    if (WConfigPage* device = qobject_cast<WConfigPage*>(p))
        device->configRead();
    else if (p == ofileSave)
        ofileSave->configRead();
    else if (p && p->metaObject()->indexOfSlot("update()") >= 0)
        QMetaObject::invokeMethod(p, "update");
}

void WConfig::configRead() {
    for (WConfigPage* p : odevicePages)
        p->configRead();
    ofileSave->configRead();
}

void WConfig::configChange(WConfigRecords& records) {
    for (WConfigPage* p : odevicePages)
        p->configChange(records);
}

bool WConfig::checkFields() {
    const QList<ZFormPage*> pages = {omeasurement, ofileSave, ogeneral, oawg,
                                     oalarms,      omqtt,     onetwork, owifi};
    for (ZFormPage* p : pages) {
        QString label, err;
        if (!p->firstError(label, err))
            continue;
        showConfigItem(ostack->indexOf(p));
        GuiMessages::warning(this, "Tavro-gui - Warning",
                             WConfigPage::invalidText(p->title(), label, err));
        if (ZFormField* f = p->field(label))
            f->setFocus();
        return false;
    }
    return true;
}

void WConfig::configSave() {
    if (!checkFields())
        return;
    WConfigRecords records;
    records.config = ocontrol.configuration();
    records.measurement = ocontrol.measurementConfig();
    records.awg = ocontrol.awgConfig();
    configChange(records);
    ofileSave->configSave();

    ZError err;
    bool connected = ocontrol.unitsConnected();
    // The next capture sends the measurement: it is kept once the units took it.
    if (records.measurementChanged) {
        if (connected)
            err = ocontrol.setMeasurementConfig(false, records.measurement);
        if (!err)
            ocontrol.setMeasurement(records.measurement);
        if (!err && !connected)
            omeasurement->configRead();
    }
    bool unitChanged = records.configChanged || records.awgChanged;
    if (!err && connected && records.configChanged)
        err = ocontrol.setConfig(records.config);
    if (!err && connected && records.awgChanged)
        err = ocontrol.setAwgConfig(false, records.awg);
    if (err) {
        GuiMessages::critical(this, "Tavro-gui - Error", ZFormField::toQString(err.str()));
        return;
    }
    if (!connected) {
        if (unitChanged)
            GuiMessages::warning(this, "Tavro-gui - Warning",
                                 "No unit is connected: the unit configuration was not sent");
        return;
    }
    if (records.measurementChanged || unitChanged) {
        err = ocontrol.update();
        if (err)
            GuiMessages::critical(this, "Tavro-gui - Error", ZFormField::toQString(err.str()));
        configRead();
    }
}

void WConfig::recordsChanged() {
    configRead();
}
