#ifndef SIMHARNESS_H
#define SIMHARNESS_H

// A client keeping what the unit pushes, on a real transport (Connection) or
// on a loopback pair to a unit of the test (Rig); a child process (Program).

#include "commsnet.h"
#include "commsserial.h"
#include "simunit.h"
#include "tavro.h"
#include "zcommsloopback.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

namespace simtest {

using namespace TavroApi;
using TavroSim::SimOptions;
using TavroSim::SimUnit;

class Client : public Tavro {
public:
    Client() : Tavro(true, 1024) {}

    ZError sendDataServe(const DataBlock& b) override {
        std::lock_guard<std::mutex> lock(omutex);
        if (b.type == DataType::Proc) {
            DataBlockProc p;
            memcpy(static_cast<void*>(&p), &b, sizeof(p));
            procs.push_back(p);
        } else {
            blocks.push_back(b);
        }
        ochanged.notify_all();
        return ZError();
    }
    ZError sendStatusServe(const NodeStatus&) override {
        std::lock_guard<std::mutex> lock(omutex);
        statuses++;
        ochanged.notify_all();
        return ZError();
    }
    ZError sendMessageServe(const unsigned int&, const ZString&) override {
        std::lock_guard<std::mutex> lock(omutex);
        ochanged.notify_all();
        return ZError();
    }
    // Waits (at most timeoutMs) until done() holds, under the client's lock.
    template <class F>
    bool waitFor(F done, int timeoutMs = 3000) {
        std::unique_lock<std::mutex> lock(omutex);
        return ochanged.wait_for(lock, std::chrono::milliseconds(timeoutMs), done);
    }
    // Copies taken under the lock.
    std::vector<DataBlock> rawCopy() {
        std::lock_guard<std::mutex> lock(omutex);
        return blocks;
    }
    std::vector<DataBlockProc> procCopy() {
        std::lock_guard<std::mutex> lock(omutex);
        return procs;
    }
    // Sets the measurement and starts it with data sending on.
    ZError start(const MeasurementConfig& m, unsigned char enable = 7) {
        clear();
        ZError err = setMeasurementConfig(false, m);
        if (!err)
            err = sendDataEnable(enable);
        return err ? err : setMode(Mode::Run);
    }
    void clear() {
        std::lock_guard<std::mutex> lock(omutex);
        blocks.clear();
        procs.clear();
        statuses = 0;
    }

    std::vector<DataBlock> blocks;
    std::vector<DataBlockProc> procs;
    int statuses = 0;

private:
    std::mutex omutex;
    std::condition_variable ochanged;
};

inline SimOptions fastOptions() {
    SimOptions o;
    o.fast = true;
    o.rebootMs = 100;
    return o;
}

inline MeasurementConfig measurement(MeasureMode mode, double rate, uint32_t samples,
                                     uint32_t rows = 0, uint32_t procPeriod = 0,
                                     uint32_t period = 0) {
    MeasurementConfig m;
    m.measureMode = mode;
    m.sampleRate = rate;
    m.numSamples0 = samples;
    m.numSamplesBlock = rows;
    m.numSamples1 = procPeriod;
    m.measurePeriod = period;
    return m;
}

// Volts of analogue channel c in row r of a raw block, with the unit's calibration.
inline double volts(const DataBlock& b, int r, int c, const ChannelConfig& ch) {
    return double(b.data[r * DataBlock::rawRowWords + c]) * ch.calibScale / ch.pgaGain;
}
inline uint32_t digitalBits(const DataBlock& b, int r) {
    uint32_t bits;
    memcpy(&bits, &b.data[r * DataBlock::rawRowWords + DataBlock::rawAnalogue], 4);
    return bits;
}

// Polls done() every few milliseconds until it holds (true) or ms pass.
template <class F>
bool eventually(F done, int ms = 5000) {
    for (auto t0 = std::chrono::steady_clock::now(); !done();) {
        if (std::chrono::steady_clock::now() - t0 > std::chrono::milliseconds(ms))
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

// A client on a real transport with a receive thread run as the application
// runs one: it waits for input and calls processRx until closed or the link ends.
struct Connection {
    ~Connection() { close(); }

    ZError openTcp(unsigned short port) {
        auto net = std::make_unique<CommsNet>(1024, 1024);
        ZError e = net->connect("127.0.0.1", port);
        return e ? e : begin(std::move(net));
    }
    ZError openSerial(const ZString& path) {
        auto serial = std::make_unique<CommsSerial>();
        ZError e = serial->connect(path);
        return e ? e : begin(std::move(serial));
    }
    ZError begin(std::unique_ptr<ZComms> transport) {
        close();
        stop = false;
        ended = 0;
        comms = std::move(transport);
        comms->setTimeout(2000000);
        client.setComms(comms.get());
        client.setAddress(1, 2);
        client.setTimeout(3000000);
        rx = std::thread([this] {
            while (!stop) {
                ZError e = comms->wait(2, 20000, 1);
                if (!e)
                    e = client.processRx();
                if (e && e.number != -110 && e.number != 6) {
                    ended = e.number;
                    client.sendMessageServe(0, "link ended"); // wakes waitFor
                    return;
                }
            }
        });
        return ZError();
    }
    void close() {
        stop = true;
        if (rx.joinable())
            rx.join();
        if (comms)
            comms->disconnect();
    }
    // The link's end as the receive thread met it: 0 while it runs.
    bool endedWith(int number) {
        return client.waitFor([&] { return ended != 0; }) && ended == number;
    }

    Client client;
    std::unique_ptr<ZComms> comms;
    std::thread rx;
    std::atomic<bool> stop{false};
    std::atomic<int> ended{0};
};

// The unit serving one loopback link on a thread of its own and a client on
// the other end; connect() makes a fresh link after the unit closed the last one.
struct Rig {
    explicit Rig(const SimOptions& options = fastOptions()) : unit(options) { connect(); }
    ~Rig() {
        unit.stop();
        ended();
        link.close();
    }
    void connect() {
        link.close();
        ended();
        auto clientEnd = std::make_unique<ZCommsLoopback>();
        unitEnd = std::make_unique<ZCommsLoopback>();
        ZCommsLoopback::connectPair(*clientEnd, *unitEnd);
        serving = std::thread([this] { served = unit.serve(*unitEnd); });
        ASSERT_FALSE(link.begin(std::move(clientEnd)));
        ASSERT_TRUE(unit.waitServing(3000000));
    }
    // The error serve() returned once the unit has let the link go.
    ZError ended() {
        if (serving.joinable())
            serving.join();
        return served;
    }

    SimUnit unit;
    std::unique_ptr<ZCommsLoopback> unitEnd;
    Connection link;
    Client& client = link.client;
    std::thread serving;
    ZError served;
};

// Reads records, then runs a one-shot capture of `samples` samples at 10 kHz
// in blocks of 13: every raw block comes, in order, the last one marked End0.
inline void readAndCapture(Client& c, const char* serial, unsigned int samples = 1000) {
    NodeInfo info;
    Configuration config;
    ChannelConfig channel;
    ASSERT_FALSE(c.getNodeInfo(info) || c.getConfig(config) || c.getChannelConfig(15, channel));
    EXPECT_STREQ(info.serialNumber, serial);
    ASSERT_FALSE(c.start(measurement(MeasureMode::OneShot, 10000, samples, 13)));
    const size_t expect = (samples + 12) / 13;
    ASSERT_TRUE(c.waitFor([&] { return c.blocks.size() >= expect; }, 5000));
    std::vector<DataBlock> blocks = c.rawCopy();
    ASSERT_EQ(blocks.size(), expect);
    for (size_t i = 0; i < expect; i++)
        EXPECT_EQ(blocks[i].sequence, i);
    EXPECT_TRUE(statusHas(blocks.back().status, Status::End0));
}

inline std::string readFile(const std::string& path) {
    std::stringstream s;
    s << std::ifstream(path, std::ios::binary).rdbuf();
    return s.str();
}

// A program run as a child process in dir (if given) with input on its
// standard input, its output and errors going to files; killed and reaped
// on every way out.
struct Program {
    Program(const char* program, const std::vector<std::string>& args,
            const std::string& input = "", const std::string& dir = "") {
        const char* t = getenv("TAVRO_TEST_TMP");
        std::string base = t && *t ? t : "/tmp";
        mkdir(base.c_str(), 0755);
        out = base + "/program-" + std::to_string(getpid()) + "-" + std::to_string(++runs);
        err = out + ".err";
        in = out + ".in";
        std::ofstream(in) << input;
        std::vector<char*> argv{const_cast<char*>(program)};
        for (const std::string& a : args)
            argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        pid_t parent = getpid();
        if ((pid = fork()) == 0) { // system calls only until exec
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            int i = open(in.c_str(), O_RDONLY);
            int o = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            int e = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            if (getppid() == parent && dup2(i, 0) == 0 && dup2(o, 1) == 1 && dup2(e, 2) == 2 &&
                (dir.empty() || chdir(dir.c_str()) == 0))
                execv(argv[0], argv.data());
            _exit(127);
        }
    }
    ~Program() {
        if (pid > 0 && kill(pid, SIGKILL) == 0)
            waitpid(pid, nullptr, 0);
        for (const std::string& f : {in, out, err})
            unlink(f.c_str());
    }
    std::string output() const { return readFile(out); }
    std::string errors() const { return readFile(err); }
    // The rest of the first output line holding `what`; "" after 5 s.
    std::string after(const std::string& what) const {
        std::string line;
        eventually([&] {
            std::string o = output();
            size_t at = o.find(what), end = at == o.npos ? at : o.find('\n', at);
            if (end != o.npos)
                line = o.substr(at + what.size(), end - at - what.size());
            return end != o.npos;
        });
        return line;
    }
    // The exit status (128 + signal when killed by one); -1 when the program
    // is still running after ms. Sends SIGINT once interrupt() holds.
    int exitStatus(int ms = 5000, const std::function<bool()>& interrupt = nullptr) {
        int status = 0;
        bool interrupted = false;
        if (!eventually(
                [&] {
                    if (interrupt && !interrupted && interrupt())
                        interrupted = kill(pid, SIGINT) == 0;
                    return waitpid(pid, &status, WNOHANG) == pid;
                },
                ms))
            return -1;
        pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    static inline int runs = 0;
    std::string in, out, err;
    pid_t pid = -1;
};

} // namespace simtest

#endif
