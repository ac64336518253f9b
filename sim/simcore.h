#ifndef SIMCORE_H
#define SIMCORE_H

#include "simfiles.h"
#include "simmeasure.h"
#include "simrecorder.h"
#include "simsignals.h"
#include "simstate.h"
#include "simunit.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

namespace TavroSim {

class SimServer;
class SimWire;

// What a WiFi scan finds around the bench, and how far a connection gets.
struct SimAccessPoint {
    static constexpr int number = 4;
    static const SimAccessPoint all[number];
    // The access point of that name, or null.
    static const SimAccessPoint* find(const ZString& name);

    const char* name;
    int level; // dBm
    uint8_t channel;
    uint8_t auth;
    TavroApi::WifiStatus reach;
};

// The inside of a simulated unit, shared by the facade (SimUnit), the
// serving operations (SimServer) and the unit's own thread.
//
// Locks: `mutex` guards the unit's state (everything from `state` to
// `awayUntil`); `linkMutex` guards the link being served. Pushes are written
// under both, so a link is never left while a push is on it and a push
// never overtakes the reply to a call that changed what is pushed. A thread
// may take `mutex` while it holds `linkMutex`, never the other way round;
// replies are written holding neither.
struct SimCore {
    typedef std::chrono::steady_clock Clock;

    // Who may make a call: anyone, a logged-in user when the security mode
    // is Full, a logged-in user unless the security mode is Basic.
    enum class Access { Open, Read, Change };

    explicit SimCore(const SimOptions& options);
    ~SimCore();

    // ---------------------------------------------------- under mutex
    uint64_t unitTimeUs() const;
    TavroApi::NodeStatus nodeStatus() const;
    TavroApi::Information information() const;
    TavroApi::InfoBlock infoBlock() const;
    // 13 "Access denied: login required" when the call is not allowed now.
    ZError allowed(Access access) const;
    ZError setMode(TavroApi::Mode mode);
    ZError setConfiguration(const TavroApi::Configuration& config);
    // The measurement takes the channels' calibration.
    void applyScale();
    void startCapture(const TavroApi::MeasurementConfig& config);
    void stopCapture();
    // The channels' calibration from the board data.
    void applyBoardCalibration();
    void wifiCommand(TavroApi::WifiCmd command);
    void message(unsigned int type, const ZString& text);
    // Power-on: the links's settings cleared, the autonomous mode started.
    void boot();
    // Installs staged firmware, resets when asked, boots.
    void restart(bool factoryReset);

    // ---------------------------------------------------- unit thread
    void run();
    // Moves the capture on; the blocks to push go to out.
    void step(std::vector<SimBlock>& out, bool linked, bool& more);
    void record(const SimBlock& block);
    // Pushes blocks, status and messages to the link being served.
    void push(const std::vector<SimBlock>& blocks, uint32_t made, bool status);
    void wake();
    bool softwarePushesStatus() const;

    const SimOptions options;
    ZError status;

    mutable std::mutex mutex;
    SimState state;
    SimSignals signals;
    SimMeasure measure;
    SimFiles files;
    SimRecorder recorder;
    TavroApi::MeasurementConfig captureConfig; // of the capture under way
    TavroApi::Mode mode;
    uint64_t clockOffsetUs; // unit clock minus system clock, modulo 2^64
    uint8_t dataEnable;
    uint32_t generation; // counts the starts and stops of captures
    bool loggedIn;
    ZString loginUser; // who logged in last; counts only while loggedIn
    uint32_t relays;
    uint32_t errorNumber;
    ZString errorText;
    bool overrun;
    bool dirty;
    TavroApi::WifiStatus wifiStatus;
    ZString wifiTarget;
    Clock::time_point wifiReadyAt;
    double owed;
    Clock::time_point lastStep;
    std::vector<ZString> messages; // waiting to be pushed: type digit, then text
    bool rebootPending;
    bool resetPending;
    Clock::time_point awayUntil;

    // Faults.
    std::atomic<unsigned int> dropAfter;
    std::atomic<unsigned int> delayUs;
    std::atomic<unsigned int> garbageBytes;
    std::atomic<unsigned int> garbagePackets;
    std::atomic<uint16_t> errorFunction;
    ZError errorReply; // under mutex
    std::atomic<bool> noStatus;
    std::atomic<bool> dropNow;

    std::mutex linkMutex;
    std::condition_variable linkChanged;
    SimServer* server;
    SimWire* wire;
    bool serving;
    unsigned int links;
    std::atomic<bool> stopped;
    std::atomic<uint64_t> blocksSent;

    std::mutex wakeMutex;
    std::condition_variable wakeUp;
    bool quit;
    std::thread thread;
};

} // namespace TavroSim

#endif
