#ifndef WCALIBRATE_H
#define WCALIBRATE_H

#include "tavronode.h"

#include <QByteArray>
#include <QString>
#include <QWidget>

class Control;
class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QListWidget;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class QSpinBox;

// The "Calibrate" page: leads the user through a calibration of the master
// unit one stage at a time. Each stage says what to connect; "Next" runs it
// on the unit (a calibrate call carrying the page's settings) and moves on.
// "Start" begins a procedure, "Cancel" abandons it between stages (what
// the unit stored for the stages already run stays).
//
// Two procedures: the channel calibration (the user's own, kept in the
// channel configurations) and the board calibration (the factory one, kept
// in the unit's board data). A stage that fails stays the current one, to
// be run again or cancelled. Nothing starts while no unit is connected or a
// capture runs.
//
// The unit's messages reach the page through "sendMessageServe(int,
// QByteArray)" and are listed with the page's own progress lines.
// Calibrate calls wait for the unit on the GUI thread, with a reply
// time-out stretched to the stage's length. GUI thread only.
class WCalibrate : public QWidget {
    Q_OBJECT
public:
    enum Procedure { ProcedureChannels, ProcedureBoard };
    struct Stage {
        TavroApi::CalibrateStage stage;
        const char* title;
        // What to connect before the stage runs; "%1" is the reference
        // amplitude and "%2" its frequency.
        const char* connect;
    };
    static constexpr int numChannels = 8;
    static constexpr int messageLines = 1000;
    // Added to every stage's own length to give its reply time-out.
    static constexpr unsigned int marginS = 10;
    static constexpr unsigned int maxTimeoutS = 3600;
    static constexpr const char* titleError = "Tavro-gui - Error";

    WCalibrate(Control& control, QWidget* parent = nullptr);

    void init();

    // The stages of a procedure, in order.
    static const Stage* stages(int procedure, int& number);

    // What the unit is asked at stage index of the chosen procedure, from
    // the page's settings.
    TavroApi::CalibrateInfo stageInfo(int index) const;
    // The reply time-out of a stage, in microseconds.
    unsigned int stageTimeoutUs(int index) const;

    // The state: -1 no procedure, else the stage that "Next" runs; the
    // number of stages when all have run.
    int currentStage() const { return ocurrent; }
    int procedure() const;
    QString instruction() const;
    QString stateText() const;

    // The widgets, for tests.
    QComboBox* getProcedureBox() const { return oprocedure; }
    QCheckBox* getChannel(int channel) const;
    QDoubleSpinBox* getAmplitude() const { return oamplitude; }
    QDoubleSpinBox* getFrequency() const { return ofrequency; }
    QSpinBox* getSettle() const { return osettle; }
    QSpinBox* getAverage() const { return oaverage; }
    QDoubleSpinBox* getSampleRate() const { return osampleRate; }
    QDoubleSpinBox* getFiveVolts() const { return ofiveVolts; }
    QListWidget* getStageList() const { return ostageList; }
    QPushButton* getNextButton() const { return onext; }
    QPushButton* getCancelButton() const { return ocancel; }
    QPlainTextEdit* getMessages() const { return omessages; }

public slots:
    // "Start" or "Next", whichever the button shows.
    void next();
    void cancel();
    // A message of a unit.
    void sendMessageServe(int id, QByteArray text);
    // Refills the stage list for the chosen procedure.
    void procedureChanged();

private:
    // Whether a stage may run now; says why not in a message box.
    bool ready();
    // Runs the current stage; true when the unit accepted it.
    bool runStage();
    void showState();
    void log(const QString& line);
    uint32_t channelMask() const;

    Control& ocontrol;
    int ocurrent;
    int ofailed; // the stage that failed last, -1 for none
    QComboBox* oprocedure;
    QCheckBox* ochannels[numChannels];
    QDoubleSpinBox* oamplitude;
    QDoubleSpinBox* ofrequency;
    QSpinBox* osettle;
    QSpinBox* oaverage;
    QDoubleSpinBox* osampleRate;
    QDoubleSpinBox* ofiveVolts;
    QListWidget* ostageList;
    QLabel* ostate;
    QLabel* oinstruction;
    QProgressBar* oprogress;
    QPushButton* onext;
    QPushButton* ocancel;
    QPlainTextEdit* omessages;
};

#endif
