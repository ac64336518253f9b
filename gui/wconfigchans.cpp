#include "wconfigchans.h"

#include "control.h"
#include "guimessages.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include <algorithm>
#include <cstring>

using namespace TavroApi;

namespace {

const char* const titleError = "Tavro-gui - Error";
const char* const titleWarning = "Tavro-gui - Warning";

QString toQString(const ZString& text) {
    return QString::fromUtf8(text.str(), text.len());
}

// Fills a fixed-width text field: at most its whole width (no room kept for
// a terminating zero), never cutting a UTF-8 sequence, the rest zeroed.
template <size_t N>
void setField(char (&field)[N], const QString& text) {
    const QByteArray bytes = text.toUtf8();
    int n = bytes.size();
    if (n > int(N)) {
        n = int(N);
        while (n > 0 && (uint8_t(bytes[n]) & 0xC0) == 0x80)
            n--;
    }
    memset(field, 0, N);
    memcpy(field, bytes.constData(), size_t(n));
}

QTableWidgetItem* textItem(const ZString& text, bool editable) {
    QTableWidgetItem* item = new QTableWidgetItem(toQString(text));
    if (!editable)
        item->setFlags(item->flags() & ~Qt::ItemIsEditable);
    return item;
}

QString cellText(QTableWidget* table, int row, int column) {
    QTableWidgetItem* item = table->item(row, column);
    return item ? item->text() : QString();
}

} // namespace

ZString channelTypeString(ChannelType type) {
    switch (type) {
    case ChannelType::None:
        return "None";
    case ChannelType::AnalogueIn:
        return "Analogue In";
    case ChannelType::AnalogueOut:
        return "Analogue Out";
    case ChannelType::DigitalIn:
        return "Digital In";
    case ChannelType::DigitalOut:
        return "Digital Out";
    }
    return "Unknown";
}

WConfigChans::WConfigChans(Control& control, QWidget* parent) : QWidget(parent), ocontrol(control) {
    QVBoxLayout* layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel("<b>Channels Configuration</b>", this));
    otable = new QTableWidget(0, ColNum, this);
    otable->setHorizontalHeaderLabels({"Enable", "Attenuator", "PgaGain", "Type", "ID", "Name",
                                       "Units", "Scale", "Offset", "Process"});
    otable->verticalHeader()->hide();
    otable->horizontalHeader()->setStretchLastSection(true);
    layout->addWidget(otable, 1);

    QHBoxLayout* row = new QHBoxLayout();
    osave = new QPushButton("Save", this);
    ocancel = new QPushButton("Cancel", this);
    connect(osave, SIGNAL(clicked()), this, SLOT(save()));
    connect(ocancel, SIGNAL(clicked()), this, SLOT(update()));
    row->addWidget(osave);
    row->addWidget(ocancel);
    row->addStretch();
    layout->addLayout(row);
    update();
}

bool WConfigChans::busy() const {
    return ocontrol.measureRunning();
}

void WConfigChans::update() {
    const ZArray<ChannelConfig>& channels = ocontrol.channelConfigs();
    const bool editable = !busy();
    otable->setRowCount(0);
    otable->setRowCount(channels.size());
    for (int r = 0; r < channels.size(); r++) {
        const ChannelConfig& c = channels[r];
        QCheckBox* enabled = new QCheckBox(otable);
        QCheckBox* attenuator = new QCheckBox(otable);
        enabled->setChecked(c.enabled);
        attenuator->setChecked(c.attenuator);
        QComboBox* gain = new QComboBox(otable);
        gain->addItems({"1", "2", "4", "8"});
        gain->setCurrentIndex(c.pgaGain == 8.0   ? 3
                              : c.pgaGain == 4.0 ? 2
                              : c.pgaGain == 2.0 ? 1
                                                 : 0);
        QComboBox* process = new QComboBox(otable);
        process->addItems({"", "Power"});
        const QString processText = toQString(getCharArray(c.process));
        if (process->findText(processText) < 0)
            process->addItem(processText); // a process this program does not offer is kept
        process->setCurrentText(processText);
        for (QWidget* w : {static_cast<QWidget*>(enabled), static_cast<QWidget*>(attenuator),
                           static_cast<QWidget*>(gain), static_cast<QWidget*>(process)})
            w->setEnabled(editable);
        otable->setCellWidget(r, ColEnable, enabled);
        otable->setCellWidget(r, ColAttenuator, attenuator);
        otable->setCellWidget(r, ColPgaGain, gain);
        otable->setCellWidget(r, ColProcess, process);
        otable->setItem(r, ColType, textItem(channelTypeString(c.type), false));
        otable->setItem(r, ColId, textItem(getCharArray(c.id), false));
        otable->setItem(r, ColName, textItem(getCharArray(c.name), editable));
        otable->setItem(r, ColUnits, textItem(getCharArray(c.siUnits), editable));
        otable->setItem(r, ColScale, textItem(ZString().printf("%g", c.scale), editable));
        otable->setItem(r, ColOffset, textItem(ZString().printf("%g", c.offset), editable));
    }
    osave->setEnabled(editable);
}

void WConfigChans::save() {
    if (busy()) {
        GuiMessages::warning(this, titleWarning,
                             "The channels cannot be changed while a capture is running");
        return;
    }
    const ZArray<ChannelConfig>& cached = ocontrol.channelConfigs();
    const int rows = std::min(otable->rowCount(), cached.size());
    for (int r = 0; r < rows; r++) {
        ChannelConfig c = cached[r];
        auto check = [&](int column) {
            QCheckBox* box = qobject_cast<QCheckBox*>(otable->cellWidget(r, column));
            return uint8_t(box && box->isChecked());
        };
        auto comboText = [&](int column) {
            QComboBox* combo = qobject_cast<QComboBox*>(otable->cellWidget(r, column));
            return combo ? combo->currentText() : QString();
        };
        c.enabled = check(ColEnable);
        c.attenuator = check(ColAttenuator);
        c.pgaGain = comboText(ColPgaGain).toDouble();
        setField(c.name, cellText(otable, r, ColName));
        setField(c.siUnits, cellText(otable, r, ColUnits));
        c.scale = cellText(otable, r, ColScale).trimmed().toDouble(); // 0 when not a number
        c.offset = cellText(otable, r, ColOffset).trimmed().toDouble();
        setField(c.process, comboText(ColProcess));
        ZError err = ocontrol.setChannelConfig(unsigned(r), c);
        if (err) {
            GuiMessages::critical(this, titleError,
                                  "Error setting Channel config: " + toQString(err.string));
            break;
        }
    }
    ZError err = ocontrol.update();
    if (err)
        GuiMessages::critical(this, titleError, toQString(err.string));
    update();
}
