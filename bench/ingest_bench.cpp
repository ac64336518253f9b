// Ingest of pushed raw blocks from simulated units running flat out
// ("tavroSim --fast", one child process per unit, on 127.0.0.1) through
// Control into a ".tavd" file, with a reader draining stream 0 as the views
// do; beside it a plain TCP client that only reads what a unit sends after
// the same start-up calls.
//
//   ingest_bench                 1 and 4 units, 5 s each, and the socket rate
//   ingest_bench --units N --seconds S [--no-file] [--rate HZ]
//                                --rate: the units sample in real time at HZ
//                                instead of running flat out
//   ingest_bench --memory [BLOCKS]  BLOCKS (default 10 million) blocks of one
//                                unit into a file on /dev/null, printing the
//                                peak RSS every million blocks
//
// The file goes to $TMPDIR (default /tmp). After each capture it is read
// back with TavdReader: every sequence number from the first to the last
// must be there (zero loss), and nothing may have been dropped by the queues
// while the capture ran (the units stop one after the other, so the last
// blocks of the later ones never complete: those are counted apart). CPU
// time is measured per thread (schedstat) and for the simulator processes,
// to show what limits the rate. Exit status 1 on any loss.
// The simulator program is TAVRO_SIM_PROGRAM, or $TAVRO_SIM when set.
#include "control.h"
#include "tavdreader.h"

#include "commsnet.h"
#include "tavro.h"

#include <dirent.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace TavroApi;

namespace {

using Clock = std::chrono::steady_clock;

double since(Clock::time_point t) {
    return std::chrono::duration<double>(Clock::now() - t).count();
}

// ------------------------------------------------------------ simulator

// One "tavroSim --port 0" child, with --fast unless it keeps to real time;
// the port is read from what it prints.
class SimProcess {
public:
    SimProcess(unsigned int number, bool fast) {
        const char* program = getenv("TAVRO_SIM") ? getenv("TAVRO_SIM") : TAVRO_SIM_PROGRAM;
        char serial[32];
        snprintf(serial, sizeof(serial), "T400-%06u", number);
        int out[2];
        if (pipe(out) != 0)
            return;
        pid = fork();
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGTERM); // goes with the bench if it dies
            dup2(out[1], 1);
            close(out[0]);
            close(out[1]);
            execl(program, program, "--port", "0", "--serial", serial,
                  fast ? "--fast" : static_cast<char*>(nullptr), static_cast<char*>(nullptr));
            _exit(127);
        }
        close(out[1]);
        FILE* f = fdopen(out[0], "r");
        char line[256];
        while (f && fgets(line, sizeof(line), f)) {
            const char* at = strstr(line, "listening on ");
            const char* colon = at ? strrchr(at, ':') : nullptr;
            if (colon) {
                port = (unsigned short)atoi(colon + 1);
                break;
            }
        }
        if (f)
            fclose(f); // the simulator ignores SIGPIPE
        else
            close(out[0]);
    }
    ~SimProcess() {
        if (pid > 0) {
            kill(pid, SIGTERM);
            waitpid(pid, nullptr, 0);
        }
    }
    SimProcess(const SimProcess&) = delete;
    SimProcess& operator=(const SimProcess&) = delete;

    // CPU seconds of the whole process so far (all its threads).
    double cpu() const {
        char name[64];
        snprintf(name, sizeof(name), "/proc/%d/stat", int(pid));
        FILE* f = fopen(name, "r");
        if (!f)
            return 0;
        char text[1024];
        const size_t n = fread(text, 1, sizeof(text) - 1, f);
        fclose(f);
        text[n] = 0;
        const char* p = strrchr(text, ')'); // fields after the command name
        unsigned long utime = 0, stime = 0;
        if (p)
            sscanf(p + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu", &utime, &stime);
        return double(utime + stime) / double(sysconf(_SC_CLK_TCK));
    }
    ZString url() const { return "zoapn://127.0.0.1:" + ZString(unsigned(port)); }

    pid_t pid = -1;
    unsigned short port = 0;
};

// ------------------------------------------------------------ threads' CPU

std::set<int> threadIds() {
    std::set<int> ids;
    if (DIR* d = opendir("/proc/self/task")) {
        while (struct dirent* e = readdir(d))
            if (e->d_name[0] != '.')
                ids.insert(atoi(e->d_name));
        closedir(d);
    }
    return ids;
}

// Seconds on a CPU of one thread of this process.
double threadCpu(int tid) {
    char name[64];
    snprintf(name, sizeof(name), "/proc/self/task/%d/schedstat", tid);
    FILE* f = fopen(name, "r");
    if (!f)
        return 0;
    unsigned long long ns = 0;
    if (fscanf(f, "%llu", &ns) != 1)
        ns = 0;
    fclose(f);
    return double(ns) / 1e9;
}

// Threads by role: each role is the set of threads a step created.
class ThreadRoles {
public:
    void mark() { before = threadIds(); }
    void name(const std::string& role) {
        for (int id : threadIds())
            if (!before.count(id) && !known.count(id)) {
                roles[role].push_back(id);
                known.insert(id);
            }
    }
    void add(const std::string& role, int tid) {
        roles[role].push_back(tid);
        known.insert(tid);
    }
    std::map<std::string, double> cpu() const {
        std::map<std::string, double> out;
        for (const auto& r : roles)
            for (int id : r.second)
                out[r.first] += threadCpu(id);
        return out;
    }

private:
    std::set<int> before, known;
    std::map<std::string, std::vector<int>> roles;
};

// ------------------------------------------------------------ memory

long vmHwmKb() {
    FILE* f = fopen("/proc/self/status", "r");
    long kb = -1;
    char line[256];
    while (f && fgets(line, sizeof(line), f))
        if (strncmp(line, "VmHWM:", 6) == 0)
            kb = atol(line + 6);
    if (f)
        fclose(f);
    return kb;
}

long vmRssKb() {
    FILE* f = fopen("/proc/self/status", "r");
    long kb = -1;
    char line[256];
    while (f && fgets(line, sizeof(line), f))
        if (strncmp(line, "VmRSS:", 6) == 0)
            kb = atol(line + 6);
    if (f)
        fclose(f);
    return kb;
}

long maxRssKb() {
    struct rusage u;
    getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss;
}

// ------------------------------------------------------------ the capture

// A continuous capture; rate 0 for a unit running flat out (its sample
// rate then only sets the time stamps).
MeasurementConfig capture(double rate) {
    MeasurementConfig m;
    m.measureMode = MeasureMode::Continuous;
    m.sampleRate = rate > 0 ? rate : 100000.0;
    m.numSamples0 = 1000;
    m.numSamplesBlock = 13;
    return m;
}

// Drains stream 0 as the views do; counts the raw blocks and samples.
class StreamReader {
public:
    explicit StreamReader(Control& control) : ocontrol(control) {
        othread = std::thread([this] { run(); });
        while (tid == 0)
            std::this_thread::yield();
    }
    ~StreamReader() {
        ostop = true;
        othread.join();
    }

    std::atomic<uint64_t> blocks{0};
    std::atomic<uint64_t> samples{0};
    std::atomic<int> tid{0};

private:
    void run() {
        tid = int(gettid());
        while (!ostop) {
            ocontrol.dataWait(0, 100000);
            while (TavroUnitsDataBlock* b = ocontrol.dataRead(0)) {
                samples.fetch_add(b->numSamples, std::memory_order_relaxed);
                blocks.fetch_add(1, std::memory_order_relaxed);
                ocontrol.dataDone(0);
            }
            // The processed view takes its blocks too.
            while (ocontrol.dataProcRead(0))
                ocontrol.dataProcDone(0);
        }
    }

    Control& ocontrol;
    std::atomic<bool> ostop{false};
    std::thread othread;
};

struct FileCheck {
    uint64_t blocks = 0, records = 0, samples = 0;
    uint32_t first = 0, last = 0;
    uint64_t gaps = 0;
    ZError error;
};

// Reads the capture back: merged blocks split into several records share
// one sequence number; a new sequence must be the one after the last.
FileCheck checkFile(const ZString& path) {
    FileCheck c;
    TavdReader in;
    if ((c.error = in.open(path)))
        return c;
    ZError err;
    bool started = false;
    while (!(err = in.readPacket())) {
        if (in.blockType() != TavdBlockHeader::typeData)
            continue;
        DataBlockHeader h;
        memcpy(static_cast<void*>(&h), in.payload(), sizeof(h));
        c.records++;
        c.samples += h.numSamples;
        if (started && h.sequence == c.last)
            continue;
        if (!started)
            c.first = h.sequence;
        else if (h.sequence != c.last + 1)
            c.gaps++;
        started = true;
        c.last = h.sequence;
        c.blocks++;
    }
    if (err.number != 14)
        c.error = err;
    in.close();
    return c;
}

struct IngestResult {
    bool ok = false;
    double seconds = 0;
    uint64_t blocks = 0, samples = 0; // stream 0, steady part
};

// CPU per role over the capture: share of one core and microseconds per
// block; a role's microseconds per block bound the rate it can sustain on
// a core of its own.
void printCpu(const std::map<std::string, double>& before,
              const std::map<std::string, double>& after, double simCpu, double seconds,
              uint64_t blocks) {
    printf("  CPU (%% of a core, us per merged block):");
    auto show = [&](const char* role, double used) {
        printf(" %s %.0f%% %.2f,", role, 100 * used / seconds,
               blocks ? 1e6 * used / double(blocks) : 0.0);
    };
    for (const auto& r : after) {
        const auto b = before.find(r.first);
        show(r.first.c_str(), r.second - (b == before.end() ? 0.0 : b->second));
    }
    show("simulators", simCpu);
    printf("\n");
}

IngestResult ingest(unsigned int units, double rate, double seconds, bool withFile,
                    const std::string& dir, uint64_t memoryBlocks = 0,
                    const char* fileName = nullptr) {
    IngestResult result;
    std::vector<std::unique_ptr<SimProcess>> sims;
    for (unsigned int n = 1; n <= units; n++) {
        sims.emplace_back(new SimProcess(n, rate <= 0));
        if (!sims.back()->port) {
            fprintf(stderr, "simulator %u did not start\n", n);
            return result;
        }
    }
    ThreadRoles roles;
    Control control;
    roles.mark();
    ZError err = control.init();
    roles.name("processing");
    control.setMulti(units > 1);
    for (unsigned int n = 0; !err && n < units; n++)
        err = control.unitAdd(("unit" + std::to_string(n + 1)).c_str(), sims[n]->url());
    roles.mark();
    if (!err)
        err = control.unitsConnect();
    roles.name("receive");
    if (!err)
        err = control.update();
    roles.name("status");
    if (err) {
        fprintf(stderr, "connecting: %d %s\n", err.number, err.str().retStr());
        return result;
    }
    FileSave save;
    save.save = withFile;
    save.dir = dir.c_str();
    save.name = fileName ? fileName : ("ingest_" + std::to_string(getpid())).c_str();
    save.type = "tavd";
    control.setFileRawSave(save);
    control.setMeasurement(capture(rate));

    StreamReader reader(control);
    roles.add("reader", reader.tid);
    const long hwmStart = vmHwmKb();
    if ((err = control.measureStart(false))) {
        fprintf(stderr, "measureStart: %d %s\n", err.number, err.str().retStr());
        return result;
    }
    const Clock::time_point start = Clock::now();
    // The first second is the warm-up; the rate counts from there.
    double simCpu0 = 0;
    std::map<std::string, double> cpu0;
    uint64_t blocks0 = 0, samples0 = 0;
    Clock::time_point steady;
    if (memoryBlocks) {
        printf("  %12s %10s %10s %10s %12s\n", "blocks", "VmHWM kB", "maxrss kB", "VmRSS kB",
               "blocks/s");
        printf("  %12u %10ld %10ld %10ld\n", 0u, hwmStart, maxRssKb(), vmRssKb());
        uint64_t next = 100000; // then 200k, 500k, 1M and every million
        Clock::time_point mark = Clock::now();
        uint64_t markBlocks = 0;
        while (reader.blocks < memoryBlocks) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            const uint64_t b = reader.blocks;
            if (b >= next) {
                printf("  %12llu %10ld %10ld %10ld %12.0f\n", (unsigned long long)b, vmHwmKb(),
                       maxRssKb(), vmRssKb(), double(b - markBlocks) / since(mark));
                fflush(stdout);
                mark = Clock::now();
                markBlocks = b;
                next = next < 200000    ? 200000
                       : next < 500000  ? 500000
                       : next < 1000000 ? 1000000
                                        : next + 1000000;
            }
            if (since(start) > 600) {
                fprintf(stderr, "too slow: %llu blocks in 600 s\n", (unsigned long long)b);
                break;
            }
        }
        steady = start;
    } else {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        steady = Clock::now();
        blocks0 = reader.blocks;
        samples0 = reader.samples;
        cpu0 = roles.cpu();
        for (auto& s : sims)
            simCpu0 += s->cpu();
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    }
    result.seconds = since(steady);
    result.blocks = reader.blocks - blocks0;
    result.samples = reader.samples - samples0;
    const std::map<std::string, double> cpu1 = roles.cpu();
    double simCpu1 = 0;
    for (auto& s : sims)
        simCpu1 += s->cpu();
    // Units stop one after the other: the blocks the later ones send after
    // the first has stopped can never be complete and are dropped as such.
    // Only what was dropped before the stop is lost data.
    const uint64_t incompleteRunning = control.droppedIncomplete();

    err = control.measureStop(1);
    const ControlFileStats stats = control.fileStats();
    const uint64_t read = reader.blocks;
    if (err)
        fprintf(stderr, "measureStop: %d %s\n", err.number, err.str().retStr());
    const uint64_t dropped0 = control.droppedBlocks(0), dropped1 = control.droppedBlocks(1),
                   incomplete = control.droppedIncomplete();
    const bool overrun = control.dataStatus() & uint16_t(Status::DataOverrun);
    control.unitsDisconnect();

    // A merged block holds one block of every unit.
    printf("  %.0f merged blocks/s = %.0f unit blocks/s, %.0f samples/s per unit (%.1f s after a "
           "1 s warm-up)\n",
           double(result.blocks) / result.seconds, double(result.blocks * units) / result.seconds,
           double(result.samples) / result.seconds, result.seconds);
    if (!memoryBlocks)
        printCpu(cpu0, cpu1, simCpu1 - simCpu0, result.seconds, result.blocks);
    bool ok = !err && !dropped0 && !dropped1 && !incompleteRunning && !overrun;
    if (withFile && memoryBlocks) {
        ok = ok && stats.blocks == read && !stats.error;
    } else if (withFile) {
        const FileCheck check = checkFile(stats.path);
        unlink(stats.path.retStr());
        printf(
            "  file: %llu blocks (%llu records, %llu samples), sequences %u to %u, %llu gaps%s%s\n",
            (unsigned long long)check.blocks, (unsigned long long)check.records,
            (unsigned long long)check.samples, check.first, check.last,
            (unsigned long long)check.gaps, check.error ? ", read error: " : "",
            check.error ? check.error.str().retStr() : "");
        ok = ok && !check.error && check.gaps == 0 && check.first == 0 &&
             check.blocks == stats.blocks && check.blocks == read;
        if (stats.error)
            printf("  file error: %s\n", stats.error.str().retStr());
        ok = ok && !stats.error;
    }
    printf("  stream 0 read %llu blocks; dropped: stream 0 %llu, stream 1 %llu, incomplete %llu "
           "while running (+%llu at the stop)%s -> %s\n",
           (unsigned long long)read, (unsigned long long)dropped0, (unsigned long long)dropped1,
           (unsigned long long)incompleteRunning,
           (unsigned long long)(incomplete - incompleteRunning),
           overrun ? ", DataOverrun seen" : "", ok ? "no loss" : "LOSS");
    result.ok = ok;
    return result;
}

// ------------------------------------------------------------ plain socket

// The same start-up calls through a polled client, then only recv() on the
// socket: what the unit sends, counted in 512-byte sendData packets.
double socketRate(unsigned int units, double rate, double seconds) {
    std::vector<std::unique_ptr<SimProcess>> sims;
    std::vector<std::unique_ptr<CommsNet>> links;
    std::vector<std::unique_ptr<Tavro>> clients;
    for (unsigned int n = 1; n <= units; n++) {
        sims.emplace_back(new SimProcess(n, rate <= 0));
        links.emplace_back(new CommsNet());
        clients.emplace_back(new Tavro(false, 1024));
        Tavro& t = *clients.back();
        t.setComms(links.back().get());
        t.setAddress(1, 2);
        t.setTimeout(5000000);
        MeasurementConfig m = capture(rate);
        m.numSamplesBlock = 0;
        ZError err = links.back()->connect("127.0.0.1", sims.back()->port);
        if (!err)
            err = t.setMeasurementConfig(false, m);
        if (!err)
            err = t.sendDataEnable(7);
        if (!err)
            err = t.setMode(Mode::Run);
        if (err) {
            fprintf(stderr, "socket client %u: %d %s\n", n, err.number, err.str().retStr());
            return 0;
        }
    }
    std::atomic<bool> counting{false}, stop{false};
    std::vector<uint64_t> bytes(units, 0);
    std::vector<std::thread> readers;
    for (unsigned int n = 0; n < units; n++)
        readers.emplace_back([&, n] {
            const int fd = links[n]->socket().getFd();
            std::vector<char> buffer(1 << 16);
            while (!stop) {
                const ssize_t got = recv(fd, buffer.data(), buffer.size(), 0);
                if (got <= 0)
                    break;
                if (counting)
                    bytes[n] += uint64_t(got);
            }
        });
    std::this_thread::sleep_for(std::chrono::seconds(1));
    double simCpu0 = 0;
    for (auto& s : sims)
        simCpu0 += s->cpu();
    counting = true;
    const Clock::time_point start = Clock::now();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    counting = false;
    const double elapsed = since(start);
    double simCpu1 = 0;
    for (auto& s : sims)
        simCpu1 += s->cpu();
    stop = true;
    for (auto& l : links)
        shutdown(l->socket().getFd(), SHUT_RDWR);
    for (auto& r : readers)
        r.join();
    uint64_t total = 0;
    for (uint64_t b : bytes)
        total += b;
    const double blocksPerS = double(total) / 512 / elapsed;
    printf("  plain socket, %u unit%s: %.0f blocks/s (%.1f MB/s), simulators %.0f%% of a core, "
           "%.2f us per block\n",
           units, units > 1 ? "s" : "", blocksPerS, double(total) / 1e6 / elapsed,
           100 * (simCpu1 - simCpu0) / elapsed,
           total ? 1e6 * (simCpu1 - simCpu0) / (double(total) / 512) : 0.0);
    return blocksPerS;
}

std::string tempDir() {
    const char* tmp = getenv("TMPDIR");
    return tmp && *tmp ? tmp : "/tmp";
}

int memoryRun(uint64_t blocks) {
    // The raw file goes to /dev/null through a link named as Control names it.
    std::string dir = tempDir() + "/ingest_memory_XXXXXX";
    if (!mkdtemp(&dir[0]))
        return 1;
    const std::string link = dir + "/sink.tavd";
    if (symlink("/dev/null", link.c_str()) != 0)
        return 1;
    printf("memory: %llu blocks of one fast unit through Control, raw file to /dev/null\n",
           (unsigned long long)blocks);
    const IngestResult r = ingest(1, 0, 0, true, dir, blocks, "sink");
    unlink(link.c_str());
    rmdir(dir.c_str());
    return r.ok ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);
    double seconds = 5;
    int units = 0;
    bool withFile = true;
    double rate = 0;
    for (int i = 1; i < argc; i++) {
        if (!strcmp(argv[i], "--memory"))
            return memoryRun(i + 1 < argc ? strtoull(argv[i + 1], nullptr, 0) : 10000000);
        if (!strcmp(argv[i], "--units") && i + 1 < argc)
            units = atoi(argv[++i]);
        else if (!strcmp(argv[i], "--seconds") && i + 1 < argc)
            seconds = atof(argv[++i]);
        else if (!strcmp(argv[i], "--no-file"))
            withFile = false;
        else if (!strcmp(argv[i], "--rate") && i + 1 < argc)
            rate = atof(argv[++i]);
        else {
            fprintf(stderr,
                    "Usage: ingest_bench [--units N] [--seconds S] [--no-file] [--rate HZ] | "
                    "--memory [BLOCKS]\n");
            return 2;
        }
    }
    bool ok = true;
    for (int n : units ? std::vector<int>{units} : std::vector<int>{1, 4}) {
        printf("%d unit%s %s through Control%s:\n", n, n > 1 ? "s" : "",
               rate > 0 ? ("at " + std::to_string(int(rate)) + " Hz").c_str() : "flat out",
               withFile ? " into a tavd file" : "");
        const IngestResult r = ingest(unsigned(n), rate, seconds, withFile, tempDir());
        ok = ok && r.ok;
        const double plain = socketRate(unsigned(n), rate, seconds);
        if (plain > 0 && r.seconds > 0)
            printf("  Control takes %.0f%% of the plain socket rate (unit blocks)\n",
                   100 * double(r.blocks) * n / r.seconds / plain);
    }
    return ok ? 0 : 1;
}
