#ifndef SIMHARNESS_H
#define SIMHARNESS_H

// A simulated unit served over a loopback pair inside the test, and a client
// Tavro on the other end whose receive thread keeps what the unit pushes.

#include "simunit.h"
#include "tavro.h"
#include "zcommsloopback.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
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
    ZError sendMessageServe(const unsigned int& type, const ZString& text) override {
        std::lock_guard<std::mutex> lock(omutex);
        messages.push_back(ZString(type) + ":" + text.copy());
        ochanged.notify_all();
        return ZError();
    }
    // Waits (at most timeoutMs) until done() holds, under the client's lock.
    template <class F>
    bool waitFor(F done, int timeoutMs = 3000) {
        std::unique_lock<std::mutex> lock(omutex);
        return ochanged.wait_for(lock, std::chrono::milliseconds(timeoutMs), done);
    }
    // Copies taken under the lock, while the receive thread may be adding.
    std::vector<DataBlock> rawCopy() {
        std::lock_guard<std::mutex> lock(omutex);
        return blocks;
    }
    std::vector<DataBlockProc> procCopy() {
        std::lock_guard<std::mutex> lock(omutex);
        return procs;
    }
    int statusCount() {
        std::lock_guard<std::mutex> lock(omutex);
        return statuses;
    }
    void clear() {
        std::lock_guard<std::mutex> lock(omutex);
        blocks.clear();
        procs.clear();
        messages.clear();
        statuses = 0;
    }

    // Read these in waitFor's test or through the copies above.
    std::vector<DataBlock> blocks;
    std::vector<DataBlockProc> procs;
    std::vector<ZString> messages;
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

// The unit serving one loopback link on a thread of its own; connect()
// makes a fresh link (new ends: the client's receive thread is paused
// meanwhile) after the unit closed the last one.
struct Rig {
    explicit Rig(const SimOptions& options = fastOptions(), bool withClient = true)
        : unit(options), withRx(withClient), rxStop(false) {
        client.setAddress(1, 2);
        client.setTimeout(2000000);
        connect();
    }
    ~Rig() {
        unit.stop();
        if (serving.joinable())
            serving.join();
        stopRx();
    }
    void stopRx() {
        rxStop = true;
        if (rx.joinable())
            rx.join();
        rxStop = false;
    }
    void connect() {
        stopRx();
        if (serving.joinable())
            serving.join();
        clientEnd.reset(new ZCommsLoopback);
        unitEnd.reset(new ZCommsLoopback);
        ZCommsLoopback::connectPair(*clientEnd, *unitEnd);
        clientEnd->setTimeout(20000);
        client.setComms(clientEnd.get());
        serving = std::thread([this] { served = unit.serve(*unitEnd); });
        if (withRx)
            rx = std::thread([this] {
                while (!rxStop) {
                    ZError err = client.processRx();
                    if (err && err.number != -110)
                        std::this_thread::sleep_for(std::chrono::milliseconds(2));
                }
            });
        ASSERT_TRUE(unit.waitServing(3000000));
    }
    // The error serve() returned once the unit has let the link go.
    ZError ended() {
        if (serving.joinable())
            serving.join();
        return served;
    }
    // Sets the measurement and starts it with data sending on.
    ZError start(const MeasurementConfig& m, unsigned char enable = 7) {
        client.clear();
        ZError err = client.setMeasurementConfig(false, m);
        if (!err)
            err = client.sendDataEnable(enable);
        if (!err)
            err = client.setMode(Mode::Run);
        return err;
    }

    SimUnit unit;
    std::unique_ptr<ZCommsLoopback> clientEnd, unitEnd;
    Client client;
    bool withRx;
    std::thread serving, rx;
    std::atomic<bool> rxStop;
    ZError served;
};

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

} // namespace simtest

#endif
