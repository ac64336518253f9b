// The command line of tavroGui: the parser in this process, and the program
// itself run as a child on the offscreen platform.

#include "gui.h"
#include "guioptions.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QtTest>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

const char* const usageLines[] = {
    "Usage: tavroGui [options] ...",
    " -help                 - Help on command line parameters",
    " -d <ttyDevice>        - The /dev/tty* device to use for communications",
    " -cal                  - Enable calibration functions",
    " -demo                 - Simple demo mode",
};

QString usageText() {
    QString text;
    for (const char* line : usageLines)
        text += QString(line) + "\n";
    return text;
}

// Parses a command line given as words after the program name; the usage
// printed goes to usage.
int parse(const QStringList& words, GuiOptions& options, QString& usage) {
    std::vector<QByteArray> storage;
    storage.push_back("tavroGui");
    for (const QString& w : words)
        storage.push_back(w.toUtf8());
    std::vector<char*> argv;
    for (QByteArray& s : storage)
        argv.push_back(s.data());
    argv.push_back(nullptr);

    char* text = nullptr;
    size_t size = 0;
    FILE* out = open_memstream(&text, &size);
    int status = guiParseOptions(int(argv.size()) - 1, argv.data(), options, out);
    fclose(out);
    usage = QString::fromUtf8(text, int(size));
    free(text);
    return status;
}

// The program run as a child in a folder of its own.
struct Run {
    int exitCode = -1;
    bool exited = false;  // it ended by itself
    bool started = false; // its main window was built (it opened "log.txt")
    QStringList errLines;
};

Run runProgram(const QStringList& args) {
    Run r;
    QTemporaryDir dir;
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("QT_QPA_PLATFORM", "offscreen");
    env.insert("XDG_CONFIG_HOME", dir.path() + "/config");
    p.setProcessEnvironment(env);
    p.setWorkingDirectory(dir.path());
    p.start(TAVRO_GUI_PROGRAM, args);
    if (!p.waitForStarted(10000))
        return r;
    // Wait for the end or for the window; whichever comes first.
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < 20000) {
        if (p.waitForFinished(50)) {
            r.exited = true;
            break;
        }
        if (QFile::exists(dir.path() + "/log.txt")) {
            r.started = true;
            // Leave it time to reach the event loop before it is ended.
            QTest::qWait(200);
            break;
        }
    }
    r.started = r.started || QFile::exists(dir.path() + "/log.txt");
    if (!r.exited) {
        p.kill();
        p.waitForFinished(10000);
    } else {
        r.exitCode = p.exitCode();
    }
    r.errLines = QString::fromUtf8(p.readAllStandardError()).split('\n');
    return r;
}

} // namespace

class GuiOptionsTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { Q_INIT_RESOURCE(tavro); }

    void parser_data();
    void parser();
    void pagesFromOptions_data();
    void pagesFromOptions();
    void program_data();
    void program();
};

void GuiOptionsTest::parser_data() {
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("tty");
    QTest::addColumn<bool>("cal");
    QTest::addColumn<bool>("demo");
    QTest::addColumn<bool>("dev");
    QTest::addColumn<bool>("usage");

    QTest::newRow("none") << QStringList() << -1 << "" << false << false << false << false;
    QTest::newRow("all") << QStringList{"-dev", "x", "-demo", "-cal"} << -1 << "" << true << true
                         << true << false;
    QTest::newRow("tty") << QStringList{"-d", "/dev/ttyUSB0"} << -1 << "/dev/ttyUSB0" << false
                         << false << false << false;
    QTest::newRow("double dash") << QStringList{"--d", "/dev/ttyS1", "--cal"} << -1 << "/dev/ttyS1"
                                 << true << false << false << false;
    QTest::newRow("prefix") << QStringList{"-dem"} << -1 << "" << false << true << false << false;
    QTest::newRow("d without value")
        << QStringList{"-d"} << -1 << "" << false << false << false << false;
    QTest::newRow("dev without value")
        << QStringList{"-cal", "-dev"} << -1 << "" << true << false << false << false;
    QTest::newRow("help goes on") << QStringList{"-help", "-cal"} << -1 << "" << true << false
                                  << false << true;
    QTest::newRow("h ends") << QStringList{"-cal", "-h", "-demo"} << 1 << "" << true << false
                            << false << true;
    QTest::newRow("question mark ends")
        << QStringList{"-?"} << 1 << "" << false << false << false << true;
    QTest::newRow("unknown stops") << QStringList{"-cal", "-bogus", "-demo", "-h"} << -1 << ""
                                   << true << false << false << false;
    QTest::newRow("ambiguous stops")
        << QStringList{"-de", "-cal"} << -1 << "" << false << false << false << false;
}

void GuiOptionsTest::parser() {
    QFETCH(QStringList, words);
    QFETCH(bool, usage);
    GuiOptions options;
    QString printed;
    QTEST(parse(words, options, printed), "status");
    QTEST(QString(options.ttyDevice.str()), "tty");
    QTEST(options.cal, "cal");
    QTEST(options.demo, "demo");
    QTEST(options.dev, "dev");
    QCOMPARE(printed, usage ? usageText() : QString());
}

// The pages that the options add, in their order after the fixed ones.
void GuiOptionsTest::pagesFromOptions_data() {
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<QStringList>("extra");
    QTest::newRow("none") << QStringList() << QStringList();
    QTest::newRow("cal") << QStringList{"-cal"} << QStringList{"Calibrate"};
    QTest::newRow("demo") << QStringList{"-demo"} << QStringList{"Capture Demo"};
    QTest::newRow("dev") << QStringList{"-dev", "1"} << QStringList{"Calibrate", "Debug"};
    QTest::newRow("dev demo cal") << QStringList{"-dev", "x", "-demo", "-cal"}
                                  << QStringList{"Calibrate", "Capture Demo", "Debug"};
}

void GuiOptionsTest::pagesFromOptions() {
    QFETCH(QStringList, words);
    QFETCH(QStringList, extra);
    GuiOptions options;
    QString printed;
    QCOMPARE(parse(words, options, printed), -1);

    Gui gui;
    QVERIFY(!gui.init("Tavro", options.ttyDevice, options.cal, options.demo, options.dev));
    QStringList tabs;
    for (int i = 0; i < gui.getTabs()->count(); i++)
        tabs << gui.getTabs()->tabText(i);
    QStringList expected{"Status",   "Units",          "Config",  "Channel Config",
                         "Raw Data", "Processed Data", "Data Log"};
    QCOMPARE(tabs, expected + extra);
    QCOMPARE(gui.getCaptureDemoView() != nullptr, options.demo);
}

void GuiOptionsTest::program_data() {
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<bool>("starts");
    QTest::addColumn<bool>("usage");
    QTest::addColumn<QString>("complaint"); // the parser's line after the usage, if any

    QTest::newRow("-help") << QStringList{"-help"} << true << true << "";
    QTest::newRow("-h") << QStringList{"-h"} << false << true << "";
    QTest::newRow("-?") << QStringList{"-?"} << false << true << "";
    QTest::newRow("-d without value")
        << QStringList{"-d"} << true << false
        << QString(TAVRO_GUI_PROGRAM) + ": option '-d' requires an argument";
    QTest::newRow("unknown before -h")
        << QStringList{"-bogus", "-h"} << true << false
        << QString(TAVRO_GUI_PROGRAM) + ": unrecognized option '-bogus'";
    QTest::newRow("-dev x -demo -cal")
        << QStringList{"-dev", "x", "-demo", "-cal"} << true << false << "";
}

void GuiOptionsTest::program() {
    QFETCH(QStringList, args);
    QFETCH(bool, starts);
    QFETCH(bool, usage);
    QFETCH(QString, complaint);

    Run r = runProgram(args);
    QCOMPARE(r.started, starts);
    if (!starts) {
        QVERIFY(r.exited);
        QCOMPARE(r.exitCode, 1);
    }
    int n = 0;
    if (usage) {
        QVERIFY(r.errLines.size() >= 5);
        for (const char* line : usageLines)
            QCOMPARE(r.errLines[n++], QString(line));
    }
    if (!complaint.isEmpty())
        QCOMPARE(r.errLines.value(n), complaint);
}

QTEST_MAIN(GuiOptionsTest)
#include "guioptions_qtest.moc"
