// The command line of tavroGui: the parser in this process, and the program
// itself run as a child on the offscreen platform.
#include "gui.h"
#include "guioptions.h"

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

// Parses words after the program name; the usage printed goes to usage.
int parse(const QString& words, GuiOptions& options, QString& usage) {
    std::vector<QByteArray> storage{"tavroGui"};
    for (const QString& w : words.split(' ', Qt::SkipEmptyParts))
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

// Runs the program in a folder of its own until it ends or has built its
// main window (it opens "log.txt"): its exit status, -1 for a window.
int runProgram(const QStringList& args, QStringList& errLines) {
    QTemporaryDir dir;
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("QT_QPA_PLATFORM", "offscreen");
    env.insert("XDG_CONFIG_HOME", dir.path() + "/config");
    p.setProcessEnvironment(env);
    p.setWorkingDirectory(dir.path());
    p.start(TAVRO_GUI_PROGRAM, args);
    const QString log = dir.path() + "/log.txt";
    bool exited = false;
    for (int i = 0; i < 400 && !exited && !QFile::exists(log); i++)
        exited = p.waitForFinished(50);
    const int status = exited ? p.exitCode() : QFile::exists(log) ? -1 : -2;
    if (!exited) {
        QTest::qWait(200); // leave it time to reach the event loop
        p.kill();
        p.waitForFinished(10000);
    }
    errLines = QString::fromUtf8(p.readAllStandardError()).split('\n');
    return status;
}

} // namespace

class GuiOptionsTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { Q_INIT_RESOURCE(tavro); }
    void parser();
    void pagesFromOptions();
    void program_data();
    void program();
};

void GuiOptionsTest::parser() {
    struct {
        const char* words;
        int status;
        const char* tty;
        const char* flags; // cal, demo, dev
        bool usage;
    } const cases[] = {
        {"--d /dev/ttyS1 --cal", -1, "/dev/ttyS1", "cal", false},
        {"-dem", -1, "", "demo", false},
        {"-cal -d", -1, "", "cal", false},
        {"-help -cal", -1, "", "cal", true},
        {"-cal -h -demo", 1, "", "cal", true},
        {"-cal -bogus -demo -h", -1, "", "cal", false},
        {"-de -cal", -1, "", "", false},
    };
    QString usage;
    for (const char* line : usageLines)
        usage += QString(line) + "\n";
    for (const auto& c : cases) {
        GuiOptions o;
        QString printed;
        QCOMPARE(parse(c.words, o, printed), c.status);
        QCOMPARE(QString(o.ttyDevice.str()), QString(c.tty));
        const QString flags =
            QString(o.cal ? "cal " : "") + (o.demo ? "demo " : "") + (o.dev ? "dev" : "");
        QCOMPARE(flags.trimmed(), QString(c.flags));
        QCOMPARE(printed, c.usage ? usage : QString());
    }
}

// The pages that the options add, in their order after the fixed ones.
void GuiOptionsTest::pagesFromOptions() {
    const QStringList fixed{"Status",   "Units",          "Config",  "Channel Config",
                            "Raw Data", "Processed Data", "Data Log"};
    const struct {
        const char* words;
        QStringList extra;
    } cases[] = {{"", {}},
                 {"-dev 1", {"Calibrate", "Debug"}},
                 {"-dev x -demo -cal", {"Calibrate", "Capture Demo", "Debug"}}};
    for (const auto& c : cases) {
        GuiOptions options;
        QString printed;
        QCOMPARE(parse(c.words, options, printed), -1);
        Gui gui;
        QVERIFY(!gui.init("Tavro", options.ttyDevice, options.cal, options.demo, options.dev));
        QStringList tabs;
        for (int i = 0; i < gui.getTabs()->count(); i++)
            tabs << gui.getTabs()->tabText(i);
        QCOMPARE(tabs, fixed + c.extra);
        QCOMPARE(gui.getCaptureDemoView() != nullptr, options.demo);
    }
}

void GuiOptionsTest::program_data() {
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("exitCode"); // -1: the window was built
    QTest::addColumn<bool>("usage");
    QTest::addColumn<QString>("complaint"); // the parser's line after the usage, if any
    const QString program(TAVRO_GUI_PROGRAM);
    QTest::newRow("-help") << QStringList{"-help"} << -1 << true << "";
    QTest::newRow("-h") << QStringList{"-h"} << 1 << true << "";
    QTest::newRow("-?") << QStringList{"-?"} << 1 << true << "";
    QTest::newRow("-d") << QStringList{"-d"} << -1 << false
                        << program + ": option '-d' requires an argument";
    QTest::newRow("unknown before -h")
        << QStringList{"-bogus", "-h"} << -1 << false << program + ": unrecognized option '-bogus'";
}

void GuiOptionsTest::program() {
    QFETCH(QStringList, args);
    QFETCH(int, exitCode);
    QFETCH(bool, usage);
    QFETCH(QString, complaint);
    QStringList err;
    QCOMPARE(runProgram(args, err), exitCode);
    int n = 0;
    if (usage)
        for (const char* line : usageLines)
            QCOMPARE(err.value(n++), QString(line));
    if (!complaint.isEmpty())
        QCOMPARE(err.value(n), complaint);
}

QTEST_MAIN(GuiOptionsTest)
#include "guioptions_qtest.moc"
