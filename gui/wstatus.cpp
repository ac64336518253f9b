#include "wstatus.h"

#include "control.h"
#include "gui.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QScrollArea>
#include <QToolButton>

#include <cstring>

using namespace TavroApi;

namespace {

const char* const rowLabels[WStatus::RowNum] = {
    "Serial Number",   "Unit Status",        "Unit Mode",          "Unit Time",
    "Ethernet Mode",   "Ethernet MAC",       "Ethernet Address",   "Ethernet Netmask",
    "Network Gateway", "Network NameServer", "Network TimeServer", "Wifi Mode",
    "Wifi MAC",        "Wifi Address",       "Wifi Netmask",       "Wifi Gateway",
    "Wifi Status",     "Calibration Date"};

// A fixed-size text field that need not end in a zero.
ZString fieldText(const char* field, size_t size) {
    return ZString(field, int(strnlen(field, size)));
}

} // namespace

WStatus::WStatus(Control& control, QWidget* parent)
    : QFrame(parent), ocontrol(control), ogrid(nullptr) {
    init();
}

void WStatus::init() {
    QHBoxLayout* box = new QHBoxLayout(this);
    ogrid = new QWidget(this);
    QGridLayout* grid = new QGridLayout(ogrid);
    grid->setSizeConstraint(QLayout::SetFixedSize);
    // Tight rows: the table fits a laptop screen.
    grid->setVerticalSpacing(2);

    grid->addWidget(new QLabel(tr("<b>Tavro Status</b>"), ogrid), 0, 0);
    QToolButton* help = new QToolButton(ogrid);
    help->setText("?");
    help->setToolTip("Tavro Status");
    help->setObjectName("help");
    grid->addWidget(help, 0, 1, Qt::AlignLeft);
    // The help topic lives in the main window's manual: its page of this
    // topic when the window opens topics, else the manual's first page.
    connect(help, &QToolButton::clicked, this, [this]() {
        QWidget* top = window();
        if (top == this)
            return;
        if (top->metaObject()->indexOfSlot("manualTopic(QString)") >= 0)
            QMetaObject::invokeMethod(top, "manualTopic", Q_ARG(QString, QString("status")));
        else if (top->metaObject()->indexOfSlot("manual()") >= 0)
            QMetaObject::invokeMethod(top, "manual");
    });

    for (int row = 0; row < RowNum; row++) {
        QLabel* label = new QLabel(rowLabels[row], ogrid);
        QLineEdit* value = new QLineEdit(ogrid);
        value->setReadOnly(true);
        value->setFixedWidth(valueWidth);
        grid->addWidget(label, row + 1, 0);
        grid->addWidget(value, row + 1, 1);
        ovalues.append(value);
        olabels.append(rowLabels[row]);
    }
    // On a small screen the table scrolls rather than pushing the window
    // off the screen.
    QScrollArea* scroll = new QScrollArea(this);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidget(ogrid);
    scroll->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    box->setContentsMargins(0, 0, 0, 0);
    box->addWidget(scroll);

    otimer.setInterval(refreshMs);
    connect(&otimer, SIGNAL(timeout()), this, SLOT(update()));
}

QString WStatus::value(int row) const {
    return row >= 0 && row < ovalues.number() ? ovalues[row]->text() : QString();
}

QString WStatus::label(int row) const {
    return row >= 0 && row < olabels.number() ? olabels[row] : QString();
}

ZString WStatus::modeName(unsigned int mode) {
    static const char* const names[] = {"Idle", "Run", "RunProgram", "Internal", "Sleep", "Demo"};
    return mode < sizeof(names) / sizeof(names[0]) ? names[mode] : "Uknown";
}

ZString WStatus::macString(const uint8_t mac[6]) {
    ZString text;
    text.printf("%2.2X:%2.2X:%2.2X:%2.2X:%2.2X:%2.2X", mac[0], mac[1], mac[2], mac[3], mac[4],
                mac[5]);
    return text;
}

ZString WStatus::dottedString(uint32_t address) {
    ZString text;
    text.printf("%d.%d.%d.%d", int(address >> 24), int((address >> 16) & 0xFF),
                int((address >> 8) & 0xFF), int(address & 0xFF));
    return text;
}

ZString WStatus::networkModeName(uint32_t mode) {
    ZList<ZString> names = ZString("Off,DHCP,Manual").split(',');
    return mode < unsigned(names.number()) ? names[int(mode)] : ZString(unsigned(mode));
}

void WStatus::setValue(int row, const ZString& text) {
    ovalues[row]->setText(QString::fromUtf8(text.str(), text.len()));
}

void WStatus::update() {
    Gui* gui = qobject_cast<Gui*>(window());
    NodeStatus status;
    if (!gui || !gui->isConnected() || !ocontrol.unitsConnected() || ocontrol.getStatus(status)) {
        for (QLineEdit* value : ovalues)
            value->clear();
        setValue(RowUnitStatus, "Not Connected");
        return;
    }

    // A failed read leaves the record as it was made: zero.
    NodeInfo nodeInfo;
    Information info;
    if (TavroUnit1* master = ocontrol.unitMaster()) {
        master->getNodeInfo(nodeInfo);
        master->getInformation(info);
    }

    setValue(RowSerialNumber, fieldText(nodeInfo.serialNumber, sizeof(nodeInfo.serialNumber)));
    setValue(RowUnitStatus, gui->statusString());
    setValue(RowUnitMode, modeName(unsigned(status.mode)));
    setValue(RowUnitTime, status.time.getString("isoSpace"));
    setValue(RowEthernetMode, networkModeName(info.networkMode));
    setValue(RowEthernetMac, macString(info.networkMacAddress));
    setValue(RowEthernetAddress, dottedString(info.networkAddress));
    setValue(RowEthernetNetmask, dottedString(info.networkMask));
    setValue(RowNetworkGateway, dottedString(info.networkGateway));
    setValue(RowNetworkNameServer, dottedString(info.networkNameServer0));
    setValue(RowNetworkTimeServer, dottedString(info.networkTimeServer));
    setValue(RowWifiMode, networkModeName(info.wifiMode));
    setValue(RowWifiMac, macString(info.wifiMacAddress));
    setValue(RowWifiAddress, dottedString(info.wifiAddress));
    setValue(RowWifiNetmask, dottedString(info.wifiMask));
    setValue(RowWifiGateway, dottedString(info.wifiGateway));
    setValue(RowWifiStatus, ocontrol.getWifiStatusString());
    setValue(RowCalibrationDate, info.calibTime.getString("isoSpace"));
}

void WStatus::showEvent(QShowEvent* event) {
    QFrame::showEvent(event);
    update();
    otimer.start(refreshMs);
}

void WStatus::hideEvent(QHideEvent* event) {
    otimer.stop();
    QFrame::hideEvent(event);
}
