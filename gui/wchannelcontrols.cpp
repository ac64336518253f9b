#include "wchannelcontrols.h"

#include <QColorDialog>
#include <QDoubleValidator>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

#include <cmath>

namespace {

QColor pickColour(const QColor& initial, QWidget* parent) {
    return QColorDialog::getColor(initial, parent, "Channel Colour");
}

WChannelControls::ColourPicker colourPicker = pickColour;

} // namespace

QColor colorDefault(int channel) {
    static const int rgb[6][3] = {{0, 0, 255},   {0, 255, 255}, {0, 255, 0},
                                  {255, 255, 0}, {255, 0, 0},   {255, 0, 255}};
    if (channel < 0)
        return QColor(0, 0, 0, 255);
    const int* c = rgb[channel % 6];
    return QColor(c[0], c[1], c[2], 255);
}

void WChannelControls::setColourPicker(ColourPicker picker) {
    colourPicker = picker ? picker : pickColour;
}

WChannelControls::WChannelControls(unsigned int channel, const QString& name, QWidget* parent)
    : QFrame(parent), channel(channel), name(name), colour(colorDefault(int(channel))), scale(1.0),
      offset(0.0), alone(false) {
    setFrameStyle(QFrame::StyledPanel | QFrame::Plain);

    QLabel* title = new QLabel(name);
    title->setObjectName("name");
    swatch = new QLabel;
    swatch->setObjectName("swatch");
    swatch->setFixedSize(16, 16);

    singleButton = new QPushButton("Single");
    singleButton->setObjectName("single");
    QPushButton* colourButton = new QPushButton("Set Colour");
    colourButton->setObjectName("colour");

    QDoubleValidator* validator = new QDoubleValidator(this);
    validator->setNotation(QDoubleValidator::ScientificNotation);
    scaleEdit = new QLineEdit(numberText(scale));
    scaleEdit->setObjectName("scale");
    scaleEdit->setValidator(validator);
    offsetEdit = new QLineEdit(numberText(offset));
    offsetEdit->setObjectName("offset");
    offsetEdit->setValidator(validator);

    QGridLayout* grid = new QGridLayout(this);
    grid->setContentsMargins(4, 4, 4, 4);
    grid->setSpacing(2);
    grid->addWidget(swatch, 0, 0);
    grid->addWidget(title, 0, 1, 1, 3);
    grid->addWidget(singleButton, 1, 0, 1, 2);
    grid->addWidget(colourButton, 1, 2, 1, 2);
    grid->addWidget(new QLabel("Scale"), 2, 0, 1, 2);
    grid->addWidget(scaleEdit, 2, 2, 1, 2);
    grid->addWidget(new QLabel("Offset"), 3, 0, 1, 2);
    grid->addWidget(offsetEdit, 3, 2, 1, 2);

    connect(singleButton, &QPushButton::clicked, this, &WChannelControls::singlePressed);
    connect(colourButton, &QPushButton::clicked, this, &WChannelControls::colourPressed);
    connect(scaleEdit, &QLineEdit::editingFinished, this, &WChannelControls::scaleEdited);
    connect(offsetEdit, &QLineEdit::editingFinished, this, &WChannelControls::offsetEdited);
    setColour(colour);
    setManual(false);
}

QString WChannelControls::numberText(double v) {
    return QString::number(v, 'g', 6);
}

void WChannelControls::setColour(const QColor& c) {
    colour = c;
    swatch->setStyleSheet(QString("QLabel { background-color : %1; }").arg(c.name()));
}

void WChannelControls::update(double s, double o) {
    scale = s;
    offset = o;
    scaleEdit->setText(numberText(s));
    offsetEdit->setText(numberText(o));
}

void WChannelControls::viewChan() {
    alone = true;
    singleButton->setText("All");
}

void WChannelControls::viewAll() {
    alone = false;
    singleButton->setText("Single");
}

void WChannelControls::setManual(bool on) {
    scaleEdit->setEnabled(on);
    offsetEdit->setEnabled(on);
}

void WChannelControls::singlePressed() {
    emit viewChannel(alone ? -1 : int(channel));
}

void WChannelControls::colourPressed() {
    QColor c = colourPicker(colour, this);
    if (!c.isValid() || c == colour)
        return;
    setColour(c);
    emit colourChanged(channel, c);
}

void WChannelControls::scaleEdited() {
    // Leaving the field unchanged keeps the exact value it shows rounded.
    if (scaleEdit->text() == numberText(scale))
        return;
    bool ok = false;
    double v = scaleEdit->text().toDouble(&ok);
    if (!ok || !std::isfinite(v)) {
        scaleEdit->setText(numberText(scale));
        return;
    }
    if (v == scale)
        return;
    scale = v;
    emit scaleChanged(channel, v);
}

void WChannelControls::offsetEdited() {
    // Leaving the field unchanged keeps the exact value it shows rounded.
    if (offsetEdit->text() == numberText(offset))
        return;
    bool ok = false;
    double v = offsetEdit->text().toDouble(&ok);
    if (!ok || !std::isfinite(v)) {
        offsetEdit->setText(numberText(offset));
        return;
    }
    if (v == offset)
        return;
    offset = v;
    emit offsetChanged(channel, v);
}
