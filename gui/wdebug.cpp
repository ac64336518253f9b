#include "wdebug.h"

#include "gui.h"
#include "tavroenums.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTime>
#include <QVBoxLayout>

WDebug::WDebug(QWidget* parent)
    : QWidget(parent), oconsole(nullptr), ocommand(nullptr), ohistoryPos(0) {
    init();
}

void WDebug::init() {
    QVBoxLayout* layout = new QVBoxLayout(this);
    QHBoxLayout* top = new QHBoxLayout();
    top->addWidget(new QLabel(tr("<b>Debug Console</b>"), this));
    top->addStretch();
    QPushButton* clearButton = new QPushButton("Clear", this);
    clearButton->setToolTip("Empty the console");
    connect(clearButton, SIGNAL(clicked()), this, SLOT(clear()));
    top->addWidget(clearButton);
    layout->addLayout(top);

    Gui* gui = qobject_cast<Gui*>(window());
    QFont font = gui ? gui->fixedFont() : QFontDatabase::systemFont(QFontDatabase::FixedFont);
    oconsole = new QPlainTextEdit(this);
    oconsole->setReadOnly(true);
    oconsole->setFont(font);
    oconsole->setMaximumBlockCount(consoleLines);
    oconsole->setLineWrapMode(QPlainTextEdit::NoWrap);
    layout->addWidget(oconsole, 1);

    QHBoxLayout* line = new QHBoxLayout();
    line->addWidget(new QLabel("Command", this));
    ocommand = new QLineEdit(this);
    ocommand->setFont(font);
    ocommand->setToolTip("A text command for the units: Enter sends it, Up and Down walk the "
                         "commands given before");
    ocommand->installEventFilter(this);
    connect(ocommand, SIGNAL(returnPressed()), this, SLOT(commandEnter()));
    line->addWidget(ocommand, 1);
    layout->addLayout(line);
}

QString WDebug::messageLine(const QTime& time, int id, const QByteArray& text) {
    using TavroApi::MessageSource;
    ZString source = enumInfo(MessageSource()).toZString(uint32_t(id));
    // A message is one console entry: its own line ends are dropped from the
    // end and kept inside.
    QString body = QString::fromUtf8(text);
    while (body.endsWith('\n') || body.endsWith('\r'))
        body.chop(1);
    return time.toString("HH:mm:ss.zzz") + " [" + source.str() + "] " + body;
}

void WDebug::sendMessageServe(int id, QByteArray text) {
    consolePut(messageLine(QTime::currentTime(), id, text));
    emit messageReceived(id, text);
}

void WDebug::consolePut(const QString& line) {
    oconsole->appendPlainText(line);
}

void WDebug::clear() {
    oconsole->clear();
}

void WDebug::commandEnter() {
    QString text = ocommand->text();
    if (text.trimmed().isEmpty())
        return;
    if (ohistory.isEmpty() || ohistory.last() != text)
        ohistory.append(text);
    while (ohistory.size() > historyMax)
        ohistory.removeFirst();
    ohistoryPos = ohistory.size();
    odraft.clear();
    ocommand->clear();

    consolePut(QTime::currentTime().toString("HH:mm:ss.zzz") + " > " + text);
    QByteArray bytes = text.toUtf8();
    if (Gui* gui = qobject_cast<Gui*>(window()))
        gui->commandPut(bytes);
    else
        emit command(bytes);
}

void WDebug::historyShow(int pos) {
    if (pos < 0 || pos > ohistory.size() || pos == ohistoryPos)
        return;
    // Leaving the line being typed keeps it for the way back.
    if (ohistoryPos == ohistory.size())
        odraft = ocommand->text();
    ohistoryPos = pos;
    ocommand->setText(pos == ohistory.size() ? odraft : ohistory[pos]);
}

bool WDebug::eventFilter(QObject* watched, QEvent* event) {
    if (watched == ocommand && event->type() == QEvent::KeyPress) {
        int key = static_cast<QKeyEvent*>(event)->key();
        if (key == Qt::Key_Up || key == Qt::Key_Down) {
            historyShow(ohistoryPos + (key == Qt::Key_Up ? -1 : 1));
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}
