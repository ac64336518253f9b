#ifndef WDEBUG_H
#define WDEBUG_H

#include <QByteArray>
#include <QStringList>
#include <QWidget>

class QLineEdit;
class QPlainTextEdit;
class QTime;

// The "Debug" page: a console of the units' messages, each line stamped
// with the time it arrived and the message's source, and a command line
// whose text goes to the units. Enter passes the line to the main window's
// commandPut (the Gui holding the page); without a main window the page
// emits command() instead. Up and Down walk the commands given before.
//
// The control object reaches the page through a queued call of
// "sendMessageServe(int, QByteArray)". GUI thread only.
class WDebug : public QWidget {
    Q_OBJECT
public:
    // Lines the console keeps; the oldest go first.
    static constexpr int consoleLines = 2000;
    // Commands the history keeps.
    static constexpr int historyMax = 100;

    WDebug(QWidget* parent = nullptr);

    void init();

    // "12:03:59.120 [Debug] cpu load 4%": the console line of a message.
    static QString messageLine(const QTime& time, int id, const QByteArray& text);

    // The widgets and history, for the main window and tests.
    QPlainTextEdit* getConsole() const { return oconsole; }
    QLineEdit* getCommandLine() const { return ocommand; }
    const QStringList& getHistory() const { return ohistory; }

signals:
    // A command given while the page is not in a main window.
    void command(QByteArray command);
    // Every message after it is shown, for other pages that follow them.
    void messageReceived(int id, QByteArray text);

public slots:
    // A message of a unit.
    void sendMessageServe(int id, QByteArray text);
    // Adds a line of the program's own to the console.
    void consolePut(const QString& line);
    void clear();

private slots:
    void commandEnter();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // Shows history entry pos; ohistory.size() is the line being typed.
    void historyShow(int pos);

    QPlainTextEdit* oconsole;
    QLineEdit* ocommand;
    QStringList ohistory;
    int ohistoryPos;
    QString odraft;
};

#endif
