// tavroCli record: a capture of one unit, or of a merged group, to files.
#include "clicommands.h"
#include "clirecorder.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

using namespace TavroApi;

namespace {

const char* const Usage =
    "Usage: tavroCli record URL... [OPTION]...\n"
    "Records a capture of the unit at URL, or of several units merged into one\n"
    "group of channels, to data files. Progress (blocks, samples, rate) goes to\n"
    "standard error once a second; SIGINT or SIGTERM stops the capture cleanly.\n"
    "At the end the paths of the files are printed on standard output, one a line.\n"
    "\n"
    "  --seconds N            stop after N seconds\n"
    "  --blocks N             stop after N raw data blocks\n"
    "  --samples N            a one-shot capture of N samples that ends by itself;\n"
    "                         without it the capture runs continuously\n"
    "  --rate HZ              sample rate (default: the unit's)\n"
    "  --format F             tavd, csv, csv_with_header or tdms (default tavd)\n"
    "  --out DIR              directory of the files (default .)\n"
    "  --name TEMPLATE        raw data file name without extension (default\n"
    "                         tavro_data_%{datetime}; %{datetime} becomes the start\n"
    "                         time, YYYY-MM-DD_hh-mm-ss)\n"
    "  --processed            also record the units' processed values, in the same\n"
    "                         format (not tdms)\n"
    "  --proc-name TEMPLATE   processed data file name (default\n"
    "                         tavro_dataproc_%{datetime})\n"
    "  --user U --password P  log in first\n"
    "  --help                 show this help and exit\n"
    "\n"
    "Exit status: 0 when the capture ran to its end and every file is complete,\n"
    "1 on failure (no unit, a unit lost, a file error), 2 for a bad command line.\n";

const CliOption Options[] = {{"seconds", true}, {"blocks", true},     {"samples", true},
                             {"rate", true},    {"format", true},     {"out", true},
                             {"name", true},    {"processed", false}, {"proc-name", true},
                             {"user", true},    {"password", true},   {"help", false},
                             {nullptr, false}};

ZError readOptions(const CliArgs& args, CliRecordOptions& o) {
    ZError err;
    const uint64_t max = 0xFFFFFFFFu;
    if ((err = args.number("seconds", o.seconds, 1, max)) ||
        (err = args.number("blocks", o.blocks, 1, max)) ||
        (err = args.number("samples", o.samples, 1, max)) || (err = args.positive("rate", o.rate)))
        return err;
    if (args.has("seconds") && args.has("blocks"))
        return ZError("Give --seconds or --blocks, not both");
    o.urls = args.arguments();
    if (o.urls.isEmpty())
        return ZError("A unit URL is needed");
    const ZString format = args.value("format", "tavd");
    if (format != "tavd" && format != "csv" && format != "csv_with_header" && format != "tdms")
        return ZError("Unknown format: " + format);
    o.user = args.value("user");
    o.password = args.value("password");
    o.raw.save = true;
    o.raw.dir = args.value("out", ".");
    o.raw.name = args.value("name", "tavro_data_%{datetime}");
    o.raw.type = format;
    o.processed = o.raw;
    o.processed.save = args.has("processed");
    o.processed.name = args.value("proc-name", "tavro_dataproc_%{datetime}");
    if (o.processed.save && format == "tdms")
        return ZError("TDMS files cannot hold processed data");
    return ZError();
}

} // namespace

int cliRecord(int argc, char** argv) {
    CliArgs args;
    int status = cliParse(args, argc, argv, Options, "record", Usage);
    if (status >= 0)
        return status;
    CliRecordOptions options;
    ZError err = readOptions(args, options);
    if (err)
        return cliBadUsage(err, "record");

    // The stop signals are blocked in every thread (threads inherit the mask)
    // and read through a descriptor in the event loop.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    signal(SIGPIPE, SIG_IGN);
    const int signalFd = signalfd(-1, &stopSignals, SFD_NONBLOCK | SFD_CLOEXEC);
    if (signalFd < 0)
        return cliFail(zerrorFromErrno(errno, "signalfd: "));

    int qtArgc = 1;
    char qtName[] = "tavroCli";
    char* qtArgv[] = {qtName, nullptr};
    QCoreApplication application(qtArgc, qtArgv);
    {
        CliRecorder recorder(options, signalFd);
        status = recorder.run();
    }
    close(signalFd);
    return status;
}

// ------------------------------------------------------------ CliRecorder

CliRecorder::CliRecorder(const CliRecordOptions& options, int signalFd)
    : ooptions(options), ocontrol(this),
      osignals(new QSocketNotifier(signalFd, QSocketNotifier::Read, this)), osignalFd(signalFd),
      ofinished(false), ostatus(0) {
    connect(osignals, &QSocketNotifier::activated, this, &CliRecorder::signalled);
    connect(&otimer, &QTimer::timeout, this, &CliRecorder::tick);
}

CliRecorder::~CliRecorder() {
    otimer.stop();
}

ZError CliRecorder::start() {
    ZError err = ocontrol.init();
    if (!err)
        err = cliConnect(ocontrol, ooptions.urls, ooptions.user, ooptions.password);
    if (err)
        return err;
    MeasurementConfig m = ocontrol.measurementConfig();
    m.measureMode = ooptions.samples ? MeasureMode::OneShot : MeasureMode::Continuous;
    if (ooptions.samples)
        m.numSamples0 = uint32_t(ooptions.samples);
    if (ooptions.rate > 0.0)
        m.sampleRate = ooptions.rate;
    ocontrol.setMeasurement(m);
    ocontrol.setFileRawSave(ooptions.raw);
    ocontrol.setFileProcSave(ooptions.processed);
    ocontrol.setBlockLimit(ooptions.blocks);
    if ((err = ocontrol.measureStart(false)))
        ocontrol.measureStop(2); // closes what was opened
    return err;
}

int CliRecorder::run() {
    ZError err = start();
    if (err) {
        ocontrol.unitsDisconnect();
        return cliFail(err);
    }
    fprintf(stderr, "tavroCli: recording %d unit%s to %s\n", ooptions.urls.number(),
            ooptions.urls.number() > 1 ? "s" : "", ocontrol.fileStats(false).path.str());
    ostarted = std::chrono::steady_clock::now();
    onextProgress = ostarted + std::chrono::seconds(1);
    otimer.start(50);
    return QCoreApplication::exec();
}

void CliRecorder::dataReady() {
    // Stream 0 is the views' stream; there are none here.
    ocontrol.dataSkip(0);
}

void CliRecorder::dataProcReady() {
    ocontrol.dataProcSkip(0);
}

void CliRecorder::unitsDisconnected() {
    tick();
}

void CliRecorder::signalled() {
    signalfd_siginfo info;
    if (read(osignalFd, &info, sizeof(info)) != ssize_t(sizeof(info)))
        return;
    fprintf(stderr, "tavroCli: %s, stopping\n", strsignal(int(info.ssi_signo)));
    finish(1, ZError());
}

void CliRecorder::tick() {
    if (ofinished)
        return;
    const auto now = std::chrono::steady_clock::now();
    if (ocontrol.disconnections())
        finish(2, ZError("One or more units have disconnected"));
    else if (ocontrol.measureEnded())
        finish(1, ZError());
    else if (ooptions.seconds && now - ostarted >= std::chrono::seconds(ooptions.seconds))
        finish(1, ZError());
    else if (now >= onextProgress) {
        progress();
        onextProgress += std::chrono::seconds(1);
    }
}

void CliRecorder::progress() {
    const ControlFileStats s = ocontrol.fileStats(false);
    const double t =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - ostarted).count();
    fprintf(stderr, "tavroCli: %.1f s, %llu blocks, %llu samples, %.1f samples/s\n", t,
            (unsigned long long)s.blocks, (unsigned long long)s.samples,
            t > 0.0 ? double(s.samples) / t : 0.0);
}

void CliRecorder::finish(int how, const ZError& why) {
    if (ofinished)
        return;
    ofinished = true;
    otimer.stop();
    ZError err = ocontrol.measureStop(how);
    if (err && how != 2)
        ocontrol.measureStop(2); // the units did not answer: close the files anyway
    progress();

    int status = 0;
    if (why)
        status = cliFail(why);
    if (err && !status)
        status = cliFail(err);
    for (bool processed : {false, true}) {
        const FileSave& save = processed ? ooptions.processed : ooptions.raw;
        const ControlFileStats s = ocontrol.fileStats(processed);
        if (!save.save || s.path.isEmpty())
            continue;
        printf("%s\n", s.path.str());
        fprintf(stderr, "tavroCli: %s data: %s, %llu blocks, %llu samples\n",
                processed ? "processed" : "raw", s.path.str(), (unsigned long long)s.blocks,
                (unsigned long long)s.samples);
        if (s.error)
            status = cliFail(ZError(s.path + ": " + s.error.string));
    }
    fflush(stdout);
    ocontrol.unitsDisconnect();
    QCoreApplication::exit(status);
}
