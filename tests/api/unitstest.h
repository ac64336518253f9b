#ifndef UNITSTEST_H
#define UNITSTEST_H

// Simulated units served over real links in this process, and a unit group
// that counts its events.

#include "simpty.h"
#include "simserver.h"
#include "simunit.h"
#include "tavrounits.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

inline void PrintTo(const ZError& e, std::ostream* os) {
    *os << e.number << " " << e.string;
}

namespace unitstest {

using namespace TavroApi;
using TavroSim::SimOptions;
using TavroSim::SimUnit;

inline SimOptions options(const char* serial = "T400-000001") {
    SimOptions o;
    o.serial = serial;
    o.fast = true;
    o.rebootMs = 100;
    return o;
}

// A unit on an ephemeral TCP port of 127.0.0.1.
struct Sim {
    explicit Sim(const SimOptions& o = options()) : unit(o), server(unit) {
        ZError e = server.start("127.0.0.1", 0);
        EXPECT_FALSE(e) << e.string.str();
    }
    ZString url() const { return ZString("zoapn://127.0.0.1:") + ZString(unsigned(server.port())); }

    SimUnit unit;
    TavroSim::SimTcpServer server;
};

template <class F>
bool eventually(F done, int ms = 5000) {
    for (auto t0 = std::chrono::steady_clock::now(); !done();) {
        if (std::chrono::steady_clock::now() - t0 > std::chrono::milliseconds(ms))
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

class Group : public TavroUnits {
public:
    ~Group() override {
        stop();
        unitsDisconnect();
    }
    void disconnected() override { lost++; }
    void dataEvent(unsigned int) override { events++; }

    // Adds a unit for each URL, connects them all and starts processing
    // with `streams` streams.
    ZError connectAll(const std::vector<ZString>& urls, unsigned int streams = 1) {
        setMulti(true);
        for (size_t i = 0; i < urls.size(); i++)
            unitAdd(ZString("u") + ZString(unsigned(i + 1)), urls[i]);
        ZError e;
        if (!(e = unitsConnect()) && !(e = dataSetNumStreams(streams)))
            e = start();
        return e;
    }

    std::atomic<int> lost{0}, events{0};
};

// A float block of unit `unitNo`: value of channel k at sample s is
// unitNo * 1000 + s * 16 + k.
inline DataBlockFloat floatBlock(uint32_t sequence, unsigned int unitNo,
                                 unsigned int samples = 13) {
    DataBlockFloat b;
    b.time = 1000000u * sequence + unitNo;
    b.status = uint16_t(unitNo);
    b.sequence = sequence;
    b.numChannels = 16;
    b.numSamples = uint16_t(samples);
    for (unsigned int s = 0; s < samples && s < 13; s++)
        for (unsigned int k = 0; k < 16; k++)
            b.data[s * 16 + k] = float(unitNo * 1000 + s * 16 + k);
    return b;
}

inline MeasurementConfig capture(MeasureMode mode, uint32_t samples, double rate = 10000.0) {
    MeasurementConfig m;
    m.measureMode = mode;
    m.sampleRate = rate;
    m.numSamples0 = samples;
    return m;
}

} // namespace unitstest

#endif
