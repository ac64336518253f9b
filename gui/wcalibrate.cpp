#include "wcalibrate.h"

#include "control.h"
#include "gui.h"
#include "guimessages.h"
#include "wdebug.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFontDatabase>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSpinBox>
#include <QTime>
#include <QVBoxLayout>

#include <cmath>

using namespace TavroApi;

namespace {

using S = CalibrateStage;

const WCalibrate::Stage channelStages[] = {
    {S::ChanClear, "Clear the channel calibration",
     "Nothing needs to be connected. The selected channels go back to an offset of 0 and a "
     "scale of 1."},
    {S::Settle, "Let the inputs settle",
     "Leave the inputs as they are. The unit waits for the settle time before it answers."},
    {S::ChanOffsets, "Measure the channel offsets",
     "Short each selected input to its ground (0 V)."},
    {S::ChanScaling, "Measure the channel scales",
     "Connect the reference of %1 V at %2 Hz (0 Hz: DC) to each selected input."},
};

const WCalibrate::Stage boardStages[] = {
    {S::Clear, "Clear the board calibration",
     "Nothing needs to be connected. The unit's factory calibration of its inputs, outputs and "
     "reference is cleared."},
    {S::Settle, "Let the unit settle",
     "Leave the unit powered with its inputs open. The unit waits for the settle time before it "
     "answers."},
    {S::AdcOffsets, "Measure the input offsets",
     "Short every analogue input, AI0 to AI7, to ground (0 V)."},
    {S::DacOffsets, "Measure the output offsets",
     "Connect output AO0 to input AI0 and output AO1 to input AI1; leave the other inputs "
     "shorted."},
    {S::DacScaling0, "Scale output AO0", "Keep output AO0 connected to input AI0."},
    {S::DacScaling1, "Scale output AO1", "Keep output AO1 connected to input AI1."},
    {S::AdcScaling, "Measure the input scales",
     "Remove the output connections and connect the reference of %1 V at %2 Hz (0 Hz: DC) to "
     "every analogue input."},
    {S::AttenScaling, "Measure the attenuator scales",
     "Keep the reference of %1 V connected: the unit measures it through its attenuators."},
    {S::geFiveVolts, "Enter the 5 V reference",
     "Measure the unit's 5 V reference with a voltmeter and enter the reading under \"Measured "
     "5 V\" before pressing Next."},
    {S::AdcScalingWithAtten, "Check the input scales with the attenuators",
     "Keep the reference of %1 V connected to every analogue input."},
};

const char* const procedureNames[] = {"Channel calibration", "Board calibration"};

const char* const procedureTexts[] = {
    "The channel calibration measures the offset and the scale of the selected inputs and keeps "
    "them in the unit's channel configuration. It needs a reference voltage source.",
    "The board calibration is the factory calibration of the unit's inputs, outputs and 5 V "
    "reference, kept in the unit's board data. It needs a reference voltage source, a voltmeter "
    "and wire links between the outputs and the inputs."};

bool measuring(CalibrateStage stage) {
    return stage != S::None && stage != S::Clear && stage != S::ChanClear && stage != S::Settle;
}

bool scaling(CalibrateStage stage) {
    return stage == S::AdcScaling || stage == S::AttenScaling || stage == S::AdcScalingWithAtten ||
           stage == S::ChanScaling;
}

QDoubleSpinBox* doubleBox(QWidget* parent, double min, double max, double value, int decimals,
                          const char* suffix) {
    QDoubleSpinBox* box = new QDoubleSpinBox(parent);
    box->setDecimals(decimals);
    box->setRange(min, max);
    box->setValue(value);
    box->setSuffix(suffix);
    return box;
}

// The reply time-out of a unit, put back when the object goes.
class TimeoutGuard {
public:
    TimeoutGuard(TavroUnit1* unit, unsigned int timeoutUs)
        : ounit(unit), obefore(unit ? unit->setTimeout(timeoutUs) : 0) {}
    ~TimeoutGuard() {
        if (ounit)
            ounit->setTimeout(obefore);
    }
    TimeoutGuard(const TimeoutGuard&) = delete;
    TimeoutGuard& operator=(const TimeoutGuard&) = delete;

private:
    TavroUnit1* ounit;
    unsigned int obefore;
};

} // namespace

WCalibrate::WCalibrate(Control& control, QWidget* parent)
    : QWidget(parent), ocontrol(control), ocurrent(-1), ofailed(-1), oprocedure(nullptr),
      ochannels(), oamplitude(nullptr), ofrequency(nullptr), osettle(nullptr), oaverage(nullptr),
      osampleRate(nullptr), ofiveVolts(nullptr), ostageList(nullptr), ostate(nullptr),
      oinstruction(nullptr), oprogress(nullptr), onext(nullptr), ocancel(nullptr),
      omessages(nullptr) {
    init();
}

void WCalibrate::init() {
    QVBoxLayout* layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(tr("<b>Calibration</b>"), this));

    QHBoxLayout* top = new QHBoxLayout();
    QFormLayout* form = new QFormLayout();
    oprocedure = new QComboBox(this);
    for (const char* name : procedureNames)
        oprocedure->addItem(name);
    form->addRow("Procedure", oprocedure);
    QHBoxLayout* channels = new QHBoxLayout();
    for (int c = 0; c < numChannels; c++) {
        ochannels[c] = new QCheckBox(QString("AI%1").arg(c), this);
        ochannels[c]->setChecked(true);
        channels->addWidget(ochannels[c]);
    }
    channels->addStretch();
    form->addRow("Channels", channels);
    oamplitude = doubleBox(this, 0.001, 100.0, 5.0, 4, " V");
    oamplitude->setToolTip("The reference voltage connected for the scaling stages");
    form->addRow("Reference", oamplitude);
    ofrequency = doubleBox(this, 0.0, 100000.0, 0.0, 1, " Hz");
    ofrequency->setToolTip("The frequency of the reference; 0 for a DC reference");
    form->addRow("Reference frequency", ofrequency);
    osettle = new QSpinBox(this);
    osettle->setRange(0, int(maxTimeoutS - marginS));
    osettle->setValue(10);
    osettle->setSuffix(" s");
    form->addRow("Settle time", osettle);
    oaverage = new QSpinBox(this);
    oaverage->setRange(1, 1000000);
    oaverage->setValue(1000);
    oaverage->setToolTip("Samples averaged for each measurement");
    form->addRow("Samples averaged", oaverage);
    osampleRate = doubleBox(this, 1.0, 1000000.0, 1000.0, 1, " Hz");
    form->addRow("Sample rate", osampleRate);
    ofiveVolts = doubleBox(this, 4.5, 5.5, 5.0, 4, " V");
    ofiveVolts->setToolTip("The unit's 5 V reference as a voltmeter reads it");
    form->addRow("Measured 5 V", ofiveVolts);
    top->addLayout(form);

    ostageList = new QListWidget(this);
    ostageList->setSelectionMode(QAbstractItemView::NoSelection);
    ostageList->setFocusPolicy(Qt::NoFocus);
    top->addWidget(ostageList, 1);
    layout->addLayout(top);

    ostate = new QLabel(this);
    oinstruction = new QLabel(this);
    oinstruction->setWordWrap(true);
    oinstruction->setFrameShape(QFrame::StyledPanel);
    oinstruction->setMinimumHeight(48);
    layout->addWidget(ostate);
    layout->addWidget(oinstruction);

    QHBoxLayout* buttons = new QHBoxLayout();
    oprogress = new QProgressBar(this);
    oprogress->setFormat("%v of %m stages");
    onext = new QPushButton("Start", this);
    ocancel = new QPushButton("Cancel", this);
    buttons->addWidget(oprogress, 1);
    buttons->addWidget(onext);
    buttons->addWidget(ocancel);
    layout->addLayout(buttons);

    Gui* gui = qobject_cast<Gui*>(window());
    omessages = new QPlainTextEdit(this);
    omessages->setReadOnly(true);
    omessages->setFont(gui ? gui->fixedFont()
                           : QFontDatabase::systemFont(QFontDatabase::FixedFont));
    omessages->setMaximumBlockCount(messageLines);
    layout->addWidget(new QLabel("Messages", this));
    layout->addWidget(omessages, 1);

    connect(oprocedure, SIGNAL(currentIndexChanged(int)), this, SLOT(procedureChanged()));
    connect(onext, SIGNAL(clicked()), this, SLOT(next()));
    connect(ocancel, SIGNAL(clicked()), this, SLOT(cancel()));
    procedureChanged();
}

const WCalibrate::Stage* WCalibrate::stages(int procedure, int& number) {
    if (procedure == ProcedureBoard) {
        number = int(sizeof(boardStages) / sizeof(boardStages[0]));
        return boardStages;
    }
    number = int(sizeof(channelStages) / sizeof(channelStages[0]));
    return channelStages;
}

int WCalibrate::procedure() const {
    return oprocedure->currentIndex() == ProcedureBoard ? ProcedureBoard : ProcedureChannels;
}

QCheckBox* WCalibrate::getChannel(int channel) const {
    return channel >= 0 && channel < numChannels ? ochannels[channel] : nullptr;
}

uint32_t WCalibrate::channelMask() const {
    uint32_t mask = 0;
    for (int c = 0; c < numChannels; c++) {
        if (ochannels[c]->isChecked())
            mask |= 1u << c;
    }
    return mask;
}

CalibrateInfo WCalibrate::stageInfo(int index) const {
    int number;
    const Stage* s = stages(procedure(), number);
    CalibrateInfo info;
    if (index < 0 || index >= number)
        return info;
    CalibrateStage stage = s[index].stage;
    info.stage = uint32_t(stage);
    info.channelMask = channelMask();
    info.calibrateFrequency = ofrequency->value();
    info.calibrateAmplitude = oamplitude->value();
    info.numAverage = uint32_t(oaverage->value());
    info.sampleRate = osampleRate->value();
    if (stage == S::Settle)
        info.calibrateTime = osettle->value();
    else if (measuring(stage))
        info.calibrateTime = info.numAverage / info.sampleRate;
    if (stage == S::geFiveVolts)
        info.value = ofiveVolts->value();
    else if (scaling(stage))
        info.value = oamplitude->value();
    return info;
}

unsigned int WCalibrate::stageTimeoutUs(int index) const {
    double seconds = std::ceil(stageInfo(index).calibrateTime) + marginS;
    if (!(seconds < maxTimeoutS))
        seconds = maxTimeoutS;
    return unsigned(seconds) * 1000000u;
}

QString WCalibrate::instruction() const {
    return oinstruction->text();
}

QString WCalibrate::stateText() const {
    return ostate->text();
}

void WCalibrate::procedureChanged() {
    ocurrent = -1;
    ofailed = -1;
    showState();
}

void WCalibrate::showState() {
    int number;
    const Stage* s = stages(procedure(), number);
    bool inProcedure = ocurrent >= 0 && ocurrent < number;

    ostageList->clear();
    for (int i = 0; i < number; i++) {
        QString text = QString("%1. %2").arg(i + 1).arg(s[i].title);
        if (i < ocurrent)
            text += "  (done)";
        else if (i == ofailed)
            text += "  (failed)";
        QListWidgetItem* item = new QListWidgetItem(text, ostageList);
        QFont font = item->font();
        font.setBold(i == ocurrent);
        item->setFont(font);
    }

    oprogress->setRange(0, number);
    oprogress->setValue(ocurrent < 0 ? 0 : ocurrent);
    if (inProcedure) {
        ostate->setText(
            QString("Stage %1 of %2: %3").arg(ocurrent + 1).arg(number).arg(s[ocurrent].title));
        QString text = s[ocurrent].connect;
        if (text.contains("%2"))
            text = text.arg(oamplitude->value()).arg(ofrequency->value());
        else if (text.contains("%1"))
            text = text.arg(oamplitude->value());
        oinstruction->setText(text);
    } else {
        ostate->setText(ocurrent == number ? "Calibration complete"
                                           : "Choose a procedure and press Start");
        oinstruction->setText(procedureTexts[procedure()]);
    }
    onext->setText(inProcedure ? "Next" : "Start");
    ocancel->setEnabled(inProcedure);
    oprocedure->setEnabled(!inProcedure);
}

void WCalibrate::log(const QString& line) {
    omessages->appendPlainText(QTime::currentTime().toString("HH:mm:ss.zzz") + " " + line);
}

void WCalibrate::sendMessageServe(int id, QByteArray text) {
    omessages->appendPlainText(WDebug::messageLine(QTime::currentTime(), id, text));
}

bool WCalibrate::ready() {
    Gui* gui = qobject_cast<Gui*>(window());
    QString why;
    if (!ocontrol.unitsConnected() || (gui && !gui->isConnected()))
        why = "Not connected to any units";
    else if ((ocontrol.measureRunning() && !ocontrol.measureEnded()) || (gui && gui->isRunning()))
        why = "Calibration is not possible while a capture is running: stop the capture first";
    else if (!channelMask())
        why = "Select at least one channel to calibrate";
    if (why.isEmpty())
        return true;
    GuiMessages::critical(this, titleError, why);
    return false;
}

bool WCalibrate::runStage() {
    int number;
    const Stage& s = stages(procedure(), number)[ocurrent];
    QString title = QString("Stage %1 of %2: %3").arg(ocurrent + 1).arg(number).arg(s.title);
    ostate->setText(title + ", running");
    ostate->repaint();
    log(title);

    ZError err;
    {
        TimeoutGuard timeout(ocontrol.unitMaster(), stageTimeoutUs(ocurrent));
        QApplication::setOverrideCursor(Qt::WaitCursor);
        err = ocontrol.calibrate(stageInfo(ocurrent));
        QApplication::restoreOverrideCursor();
    }
    if (err) {
        ofailed = ocurrent;
        QString text = QString("Calibration stage \"%1\" failed: %2").arg(s.title, err.str().str());
        log(text);
        GuiMessages::critical(this, titleError, text);
        return false;
    }
    ofailed = -1;
    log(QString("Stage %1 done").arg(ocurrent + 1));
    return true;
}

void WCalibrate::next() {
    int number;
    stages(procedure(), number);
    if (!ready())
        return;
    if (ocurrent < 0 || ocurrent >= number) {
        ocurrent = 0;
        ofailed = -1;
        log(QString("%1 started").arg(procedureNames[procedure()]));
    } else if (runStage() && ++ocurrent == number) {
        log(QString("%1 complete").arg(procedureNames[procedure()]));
    }
    showState();
}

void WCalibrate::cancel() {
    int number;
    const Stage* s = stages(procedure(), number);
    if (ocurrent < 0 || ocurrent >= number)
        return;
    log(QString("Cancelled before stage %1: %2").arg(ocurrent + 1).arg(s[ocurrent].title));
    ocurrent = -1;
    ofailed = -1;
    showState();
}
