#ifndef WCHANNELCONTROLS_H
#define WCHANNELCONTROLS_H

#include <QColor>
#include <QFrame>
#include <QString>

class QLabel;
class QLineEdit;
class QPushButton;

// The default colour of a channel: blue, cyan, green, yellow, red and
// magenta in turn; black for a negative channel.
QColor colorDefault(int channel);

// The controls of one channel of the raw capture view: its name and colour,
// a "Single" button that shows the channel alone (and then reads "All" and
// shows all channels again), a "Set Colour" button, and the vertical scale
// and offset of its curve, editable while auto-scaling is off.
//
// channel is the curve's number on the graph; the signals carry it.
class WChannelControls : public QFrame {
    Q_OBJECT
public:
    // Asks the user for a colour; an invalid colour when none was chosen.
    using ColourPicker = QColor (*)(const QColor& initial, QWidget* parent);
    // nullptr restores the colour dialog.
    static void setColourPicker(ColourPicker picker);

    WChannelControls(unsigned int channel, const QString& name, QWidget* parent = nullptr);

    unsigned int getChannel() const { return channel; }
    QString getName() const { return name; }
    QColor getColour() const { return colour; }
    // Changes the colour shown; no signal.
    void setColour(const QColor& colour);
    double getScale() const { return scale; }
    double getOffset() const { return offset; }

    using QFrame::update;
    // Shows scale and offset (from auto-scaling or from saved settings); no signal.
    void update(double scale, double offset);
    // This channel is shown alone: the button goes back to all channels.
    void viewChan();
    // All channels are shown: the button shows this one alone.
    void viewAll();
    bool isViewedAlone() const { return alone; }
    // Scale and offset can be edited (auto-scaling is off).
    void setManual(bool on);

signals:
    void viewChannel(int);
    void colourChanged(unsigned int, QColor);
    void scaleChanged(unsigned int, double);
    void offsetChanged(unsigned int, double);

private slots:
    void singlePressed();
    void colourPressed();
    void scaleEdited();
    void offsetEdited();

private:
    static QString numberText(double v);

    unsigned int channel;
    QString name;
    QColor colour;
    double scale;
    double offset;
    bool alone;

    QLabel* swatch;
    QPushButton* singleButton;
    QLineEdit* scaleEdit;
    QLineEdit* offsetEdit;
};

#endif
