#include "wunits.h"

#include "control.h"
#include "guimessages.h"

#include <QApplication>
#include <QCheckBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QIcon>
#include <QInputDialog>
#include <QLabel>
#include <QPushButton>
#include <QSettings>
#include <QSignalBlocker>
#include <QTableWidget>
#include <QVBoxLayout>

#include <algorithm>
#include <cstring>

using TavroApi::TavroUnit1;

namespace {

const char* const titleWarning = "Tavro-gui - Warning";

ZString toZString(const QString& text) {
    QByteArray bytes = text.toUtf8();
    return ZString(bytes.constData(), bytes.size());
}

QString toQString(const ZString& text) {
    return QString::fromUtf8(text.str(), text.len());
}

// The prefix of the settings keys of saved unit n: "units/unit3".
QString unitKey(int n) {
    return QString("units/unit%1").arg(n);
}

void removeUnitKeys(QSettings& settings, int n) {
    QString key = unitKey(n);
    settings.remove(key + ".device");
    settings.remove(key + ".serialNumber");
    settings.remove(key + ".enabled");
}

} // namespace

WUnits::WUnits(Control& control, QWidget* parent)
    : QWidget(parent), ocontrol(control), otable(nullptr), omultiConnect(nullptr),
      oautoConnect(nullptr), oautoRun(nullptr) {
    init();
}

void WUnits::init() {
    QVBoxLayout* layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(tr("<b>Units Configuration</b>"), this));

    otable = new QTableWidget(0, ColNum, this);
    otable->setHorizontalHeaderLabels(
        {"Enable", "Up", "Down", "Connected", "Serial Number", "Unit", "Info"});
    otable->setSelectionBehavior(QAbstractItemView::SelectRows);
    otable->setSelectionMode(QAbstractItemView::SingleSelection);
    otable->setEditTriggers(QAbstractItemView::NoEditTriggers);
    otable->verticalHeader()->hide();
    otable->horizontalHeader()->setStretchLastSection(true);
    otable->setColumnWidth(ColSerial, 140);
    otable->setColumnWidth(ColUnit, 260);
    layout->addWidget(otable, 1);

    QHBoxLayout* flags = new QHBoxLayout();
    omultiConnect = new QCheckBox("Multi connect", this);
    oautoConnect = new QCheckBox("Auto connect", this);
    oautoRun = new QCheckBox("Run on auto connect", this);
    oautoRun->setToolTip("Start a capture as soon as the units are connected at start-up");
    connect(omultiConnect, SIGNAL(toggled(bool)), this, SLOT(setMultiConnect(bool)));
    connect(oautoConnect, SIGNAL(toggled(bool)), this, SLOT(setAutoConnect(bool)));
    connect(oautoRun, SIGNAL(toggled(bool)), this, SLOT(setAutoRun(bool)));
    flags->addWidget(omultiConnect);
    flags->addWidget(oautoConnect);
    flags->addWidget(oautoRun);
    flags->addStretch();
    layout->addLayout(flags);

    struct Button {
        const char* text;
        const char* slot;
    };
    static const Button buttons[] = {{"Find units", SLOT(findUnits())},
                                     {"Manual add unit", SLOT(addUnit())},
                                     {"Delete unit", SLOT(deleteUnit())},
                                     {"Connect/Disconnect", SLOT(connectUnits())},
                                     {"Save", SLOT(save())},
                                     {"Clear", SLOT(clear())}};
    QHBoxLayout* row = new QHBoxLayout();
    for (const Button& b : buttons) {
        QPushButton* button = new QPushButton(b.text, this);
        connect(button, SIGNAL(clicked()), this, b.slot);
        row->addWidget(button);
    }
    row->addStretch();
    layout->addLayout(row);
}

QPushButton* WUnits::getButton(const QString& text) const {
    for (QPushButton* button : findChildren<QPushButton*>(QString(), Qt::FindDirectChildrenOnly)) {
        if (button->text() == text)
            return button;
    }
    return nullptr;
}

ZString WUnits::infoText(const TavroApi::Information& info) {
    const TavroApi::Version& v = info.nodeInfo.softwareVersion;
    if (info.numChannels == 0 && v.ver0 == 0 && v.ver1 == 0 && v.ver2 == 0)
        return ZString();
    // The variant fills its field without a terminating zero when it is long.
    const char* variant = info.nodeInfo.variant;
    ZString text(variant, int(strnlen(variant, sizeof(info.nodeInfo.variant))));
    if (!text.isEmpty())
        text += " ";
    ZString rest;
    rest.printf("software %u.%u.%u, %u channels", v.ver0, v.ver1, v.ver2,
                unsigned(info.numChannels));
    return text + rest;
}

void WUnits::update() {
    const QIcon iconUp(":/images/up.svg");
    const QIcon iconDown(":/images/down.svg");
    const QIcon iconOn(":/images/connect_on.svg");
    const QIcon iconOff(":/images/connect_off.svg");

    // The widgets of the old rows are deleted later by the view, so a row's
    // own button may rebuild the table from its click.
    otable->setRowCount(0);
    int num = int(ocontrol.unitsNum());
    otable->setRowCount(num);
    for (int row = 0; row < num; row++) {
        TavroUnit1* u = ocontrol.unit(unsigned(row) + 1);
        if (!u) {
            otable->setRowCount(row);
            break;
        }
        QCheckBox* enable = new QCheckBox();
        enable->setChecked(u->enabled());
        enable->setProperty("row", row);
        connect(enable, SIGNAL(toggled(bool)), this, SLOT(unitEnabled(bool)));
        otable->setCellWidget(row, ColEnable, enable);

        QPushButton* up = new QPushButton(iconUp, QString());
        up->setProperty("row", row);
        connect(up, SIGNAL(clicked()), this, SLOT(unitMoveUp()));
        otable->setCellWidget(row, ColUp, up);

        QPushButton* down = new QPushButton(iconDown, QString());
        down->setProperty("row", row);
        connect(down, SIGNAL(clicked()), this, SLOT(unitMoveDown()));
        otable->setCellWidget(row, ColDown, down);

        otable->setItem(row, ColConnected,
                        new QTableWidgetItem(u->isConnected() ? iconOn : iconOff, QString()));
        otable->setItem(row, ColSerial, new QTableWidgetItem(toQString(u->serialNumber())));
        otable->setItem(row, ColUnit, new QTableWidgetItem(toQString(u->url())));
        otable->setItem(row, ColInfo, new QTableWidgetItem(toQString(infoText(u->info()))));
    }
}

int WUnits::senderRow() const {
    QObject* from = sender();
    if (!from)
        return -1;
    QVariant row = from->property("row");
    return row.isValid() ? row.toInt() : -1;
}

void WUnits::unitMove(int row, int step) {
    int num = int(ocontrol.unitsNum());
    int to = row + step;
    if (row < 0 || row >= num || to < 0 || to >= num)
        return;
    ZError err = ocontrol.unitSetOrder(unsigned(row) + 1, unsigned(to) + 1);
    if (err)
        showError(err);
    update();
}

void WUnits::unitMoveUp() {
    unitMove(senderRow(), -1);
}

void WUnits::unitMoveDown() {
    unitMove(senderRow(), 1);
}

void WUnits::unitEnabled(bool on) {
    int row = senderRow();
    if (row < 0)
        return;
    ZError err = ocontrol.unitSetEnabled(unsigned(row) + 1, on);
    if (err)
        showError(err);
    ocontrol.setMulti(omultiConnect->isChecked());
}

void WUnits::setMultiConnect(bool on) {
    QSettings settings("Korvel", "Tavro-gui");
    settings.setValue("units/unitMultiConnect", on);
    ocontrol.setMulti(on);
}

void WUnits::setAutoConnect(bool on) {
    QSettings settings("Korvel", "Tavro-gui");
    settings.setValue("units/unitAutoConnect", on);
}

void WUnits::setAutoRun(bool on) {
    QSettings settings("Korvel", "Tavro-gui");
    settings.setValue("units/unitAutoRun", on);
}

void WUnits::readSettings() {
    QSettings settings("Korvel", "Tavro-gui");
    bool multi = settings.value("units/unitMultiConnect", false).toBool();
    bool autoConnect = settings.value("units/unitAutoConnect", false).toBool();
    bool autoRun = settings.value("units/unitAutoRun", false).toBool();
    {
        QSignalBlocker blockMulti(omultiConnect);
        QSignalBlocker blockAuto(oautoConnect);
        QSignalBlocker blockRun(oautoRun);
        omultiConnect->setChecked(multi);
        oautoConnect->setChecked(autoConnect);
        oautoRun->setChecked(autoRun);
    }
    ocontrol.setMulti(multi);

    // The unit manager takes no more than maxUnits: a larger count is not
    // walked through.
    int num =
        std::min(settings.value("units/unitsNum", 0).toInt(), int(TavroApi::TavroUnits::maxUnits));
    for (int n = 0; n < num; n++) {
        QString key = unitKey(n);
        if (!settings.contains(key + ".device"))
            continue;
        ZString device = toZString(settings.value(key + ".device").toString().trimmed());
        if (device.isEmpty())
            continue;
        ZString serial = toZString(settings.value(key + ".serialNumber").toString());
        bool enabled = settings.value(key + ".enabled", true).toBool();

        // A unit already in the list is not added twice.
        unsigned int number = 0;
        for (unsigned int i = 1; i <= ocontrol.unitsNum() && !number; i++) {
            TavroUnit1* u = ocontrol.unit(i);
            if (u && u->url() == device)
                number = i;
        }
        if (!number) {
            ZError err = ocontrol.unitAdd(device, device);
            if (err) {
                showError(err);
                break;
            }
            number = ocontrol.unitsNum();
        }
        TavroUnit1* u = ocontrol.unit(number);
        if (u && !serial.isEmpty())
            u->setSerialNumber(serial);
        ocontrol.unitSetEnabled(number, enabled);
        ocontrol.unitSetOrder(number, std::min(unsigned(n) + 1, ocontrol.unitsNum()));
    }
    update();
}

void WUnits::findUnits() {
    QApplication::setOverrideCursor(Qt::WaitCursor);
    ZError err = ocontrol.unitsFind();
    QApplication::restoreOverrideCursor();
    if (err)
        showError(err);
    update();
}

void WUnits::addUnit() {
    bool ok = false;
    QString url = QInputDialog::getText(this, "Add Unit", "Unit device URL:", QLineEdit::Normal,
                                        "zoapn://", &ok)
                      .trimmed();
    if (!ok || url.isEmpty())
        return;
    ZString device = toZString(url);
    ZError err = ocontrol.unitAdd(device, device);
    if (err)
        showError(err);
    update();
}

void WUnits::deleteUnit() {
    QModelIndexList rows = otable->selectionModel()->selectedRows();
    TavroUnit1* u = rows.isEmpty() ? nullptr : ocontrol.unit(unsigned(rows[0].row()) + 1);
    if (!u) {
        GuiMessages::warning(this, "Warning", "No unit selected");
        return;
    }
    ZError err = ocontrol.unitDelete(u->name());
    if (err)
        showError(err);
    update();
}

void WUnits::connectUnits() {
    QWidget* top = window();
    if (top != this && top->metaObject()->indexOfSlot("unitsConnectToggle()") >= 0)
        QMetaObject::invokeMethod(top, "unitsConnectToggle");
    update();
}

void WUnits::save() {
    QSettings settings("Korvel", "Tavro-gui");
    int num = int(ocontrol.unitsNum());
    settings.setValue("units/unitsNum", num);
    for (int n = 0; n < num; n++) {
        TavroUnit1* u = ocontrol.unit(unsigned(n) + 1);
        if (!u)
            break;
        QString key = unitKey(n);
        settings.setValue(key + ".device", toQString(u->url()));
        settings.setValue(key + ".serialNumber", toQString(u->serialNumber()));
        settings.setValue(key + ".enabled", u->enabled());
    }
    for (int n = num; n < maxSaved; n++)
        removeUnitKeys(settings, n);
    settings.sync();
}

void WUnits::clear() {
    QSettings settings("Korvel", "Tavro-gui");
    int saved =
        std::min(settings.value("units/unitsNum", 0).toInt(), int(TavroApi::TavroUnits::maxUnits));
    for (int n = 0; n < std::max(saved, int(maxSaved)); n++)
        removeUnitKeys(settings, n);
    settings.setValue("units/unitsNum", 0);
    settings.sync();
    // Connected units are let go through the main window first, so that it
    // knows they are gone.
    QWidget* top = window();
    if (ocontrol.unitsConnected() && top != this &&
        top->metaObject()->indexOfSlot("unitsConnect(bool)") >= 0)
        QMetaObject::invokeMethod(top, "unitsConnect", Q_ARG(bool, false));
    ocontrol.clear();
    update();
}

void WUnits::showError(const ZError& err) {
    GuiMessages::warning(this, titleWarning, toQString(err.str()));
}
