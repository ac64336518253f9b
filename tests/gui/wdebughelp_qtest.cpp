// The debug console (unit messages with their time, its bound, the command
// line and its history) and the manual (every page and link, topics, the
// status page's help button).

#include "control.h"
#include "gui.h"
#include "guimessagesdouble.h"
#include "helpwindow.h"
#include "wdebug.h"
#include "wstatus.h"

#include <QDir>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QRegularExpression>
#include <QTextBlock>
#include <QTextBrowser>
#include <QToolButton>
#include <QVBoxLayout>
#include <QtTest>

// Stands for a main window that opens manual topics.
class TopicWindow : public QWidget {
    Q_OBJECT
public slots:
    void manualTopic(const QString& topic) { topics << topic; }

public:
    QStringList topics;
};

class WDebugHelpTest : public QObject {
    Q_OBJECT
private slots:
    void console();
    void commandLine();
    void manualPages();
    void topics();
};

void WDebugHelpTest::console() {
    QCOMPARE(WDebug::messageLine(QTime(9, 5, 7, 42), 1, "cpu load 4%\r\n"),
             QString("09:05:07.042 [Debug] cpu load 4%"));
    QCOMPARE(WDebug::messageLine(QTime(23, 0, 0), 99, "a\nb\xff"),
             QString("23:00:00.000 [Uknown] a\nb") + QChar(0xFFFD));
    QCOMPARE(WDebug::messageLine(QTime(0, 0, 0), -1, ""), QString("00:00:00.000 [Uknown] "));

    WDebug page;
    QSignalSpy received(&page, SIGNAL(messageReceived(int, QByteArray)));
    QVERIFY(QMetaObject::invokeMethod(&page, "sendMessageServe", Qt::QueuedConnection,
                                      Q_ARG(int, 3), Q_ARG(QByteArray, "Wifi connected")));
    QVERIFY(page.getConsole()->toPlainText().isEmpty());
    QTRY_COMPARE(received.count(), 1);
    QVERIFY(QRegularExpression("^\\d\\d:\\d\\d:\\d\\d\\.\\d{3} \\[Wifi\\] Wifi connected$")
                .match(page.getConsole()->toPlainText())
                .hasMatch());

    for (int i = 0; i < WDebug::consoleLines + 10; i++)
        page.sendMessageServe(0, QByteArray::number(i));
    QCOMPARE(page.getConsole()->blockCount(), WDebug::consoleLines);
    QVERIFY(page.getConsole()->document()->firstBlock().text().endsWith("[General] 10"));
}

void WDebugHelpTest::commandLine() {
    WDebug page;
    QSignalSpy commands(&page, SIGNAL(command(QByteArray)));
    QLineEdit* line = page.getCommandLine();
    for (const char* text : {"status", "", "  ", "dump 1", "dump 1", "wifi scan"}) {
        line->setText(text);
        QTest::keyClick(line, Qt::Key_Return);
    }
    QCOMPARE(commands.count(), 4);
    QCOMPARE(commands.at(3).at(0).toByteArray(), QByteArray("wifi scan"));
    QCOMPARE(page.getHistory(), QStringList({"status", "dump 1", "wifi scan"}));
    QVERIFY(line->text().isEmpty());
    QVERIFY(page.getConsole()->toPlainText().endsWith(" > wifi scan"));

    // Up and Down walk the history; past its end the typed line comes back.
    line->setText("draft");
    QStringList seen;
    for (Qt::Key key : {Qt::Key_Up, Qt::Key_Up, Qt::Key_Up, Qt::Key_Up, Qt::Key_Down, Qt::Key_Down,
                        Qt::Key_Down, Qt::Key_Down}) {
        QTest::keyClick(line, key);
        seen << line->text();
    }
    QCOMPARE(seen, QStringList({"wifi scan", "dump 1", "status", "status", "dump 1", "wifi scan",
                                "draft", "draft"}));
    for (int i = 0; i < WDebug::historyMax + 5; i++) {
        line->setText(QString("c%1").arg(i));
        QTest::keyClick(line, Qt::Key_Return);
    }
    QCOMPARE(page.getHistory().size(), WDebug::historyMax);
    QCOMPARE(page.getHistory().first(), QString("c5"));

    // In a main window the command goes to the units through it.
    GuiMessagesDouble messages;
    Gui gui;
    WDebug* inWindow = new WDebug();
    gui.setCentralWidget(inWindow);
    QSignalSpy none(inWindow, SIGNAL(command(QByteArray)));
    inWindow->getCommandLine()->setText("status");
    QTest::keyClick(inWindow->getCommandLine(), Qt::Key_Return);
    QCOMPARE(none.count(), 0);
    QCOMPARE(messages.messages.size(), 1);
    QVERIFY(messages.texts()[0].startsWith("Tavro-gui - Warning: Unable to send command: "));
}

void WDebugHelpTest::manualPages() {
    HelpWindow help;
    int number;
    const HelpWindow::Topic* topics = HelpWindow::topics(number);
    QStringList names;
    for (int i = 0; i < number; i++) {
        names << QString(topics[i].name) + ".html";
        QVERIFY(help.showTopic(topics[i].name));
        QCOMPARE(help.currentTopic(), QString(topics[i].name));
        QCOMPARE(help.getContents()->currentRow(), i);
        QVERIFY2(!help.getBrowser()->documentTitle().isEmpty(), topics[i].name);
    }
    // Every page is in the contents, every link and picture is there.
    QDir dir(HelpWindow::manualPath);
    QStringList pages = dir.entryList({"*.html"});
    std::sort(names.begin(), names.end());
    QCOMPARE(pages, names);
    QRegularExpression link("(?:href|src)=\"([^\"]*)\"");
    for (const QString& page : pages) {
        QFile file(dir.filePath(page));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QString text = QString::fromUtf8(file.readAll());
        for (auto m = link.globalMatch(text); m.hasNext();) {
            QString target = m.next().captured(1);
            if (target.startsWith("http://") || target.startsWith("https://"))
                continue;
            QString to = target.section('#', 0, 0);
            QString anchor = target.section('#', 1);
            QString where = page + ": " + target;
            QFile linked(dir.filePath(to.isEmpty() ? page : to));
            QVERIFY2(linked.open(QIODevice::ReadOnly), qPrintable(where));
            if (!anchor.isEmpty())
                QVERIFY2(linked.readAll().contains(("id=\"" + anchor + "\"").toUtf8()),
                         qPrintable(where));
        }
    }
}

void WDebugHelpTest::topics() {
    HelpWindow help;
    QCOMPARE(help.currentTopic(), QString("index"));
    QVERIFY(help.showTopic("status"));
    QVERIFY(help.isVisible());
    QCOMPARE(help.getBrowser()->source(), QUrl("qrc:/manual/status.html"));
    QVERIFY(help.getBrowser()->toPlainText().contains("Calibration Date"));
    QVERIFY(help.showTopic("files.html#csv"));
    QCOMPARE(help.getBrowser()->source(), QUrl("qrc:/manual/files.html#csv"));
    for (const char* bad : {"nosuch", "", "../gui", ":/images/run", "index/x"}) {
        QVERIFY(!help.showTopic(bad));
        QCOMPARE(help.currentTopic(), QString("files"));
    }
    help.showContents();
    QCOMPARE(help.currentTopic(), QString("index"));

    // The status page's help button asks its window for its topic.
    Control control;
    TopicWindow window;
    WStatus* status = new WStatus(control, &window);
    status->findChild<QToolButton*>("help")->click();
    QCOMPARE(window.topics, QStringList{"status"});
}

QTEST_MAIN(WDebugHelpTest)
#include "wdebughelp_qtest.moc"
