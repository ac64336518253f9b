#ifndef SIMUNIT_H
#define SIMUNIT_H

#include "tavrorecords.h"
#include "zcomms.h"
#include "zerror.h"
#include "zlist.h"
#include "zstring.h"

#include <cstdint>
#include <memory>
#include <vector>

// A simulated Tavro-40x unit: its records, measurement engine, signals,
// file system, users and faults, served over any stream transport.
//
// Identity and behaviour:
//  - Software 1.0.8 and newer push NodeStatus every second while status
//    sending is on (sendDataEnable bit 1, on when a link starts); 1.0.7 and
//    older push nothing and only answer getStatus.
//  - Users: the default user is "admin" with the password "tavro"
//    (changePassword changes it; a state file keeps it). While nobody is
//    logged in, security mode Config refuses the calls that change the
//    configuration or the files, and security mode Full refuses every call
//    but getNodeInfo, getStatus, login, logout and changePassword, with
//    13 "Access denied: login required". The default security mode is Basic.
//  - Signals, in volts before calibration: AI0 5 V sine 50 Hz, AI1 1 V + 2 V
//    sine 5 Hz, AI2 3 V square 2 Hz, AI3 noise of 0.5 V rms, AI4 ramp 0 to
//    10 V every 60 s, AI5 50 Hz with its third harmonic, AI6 0.5 V sine 1 kHz,
//    AI7 the analogue output AO0 wired back (the waveform generator when it
//    drives AO0, else the level set with setAnalogueOut(0, v)). DI0..DI7 an
//    8-bit counter stepping 10 times a second (the outputs set with setDigital
//    in digital mode Output).
//  - factoryReset(resetConfig, bootLoader) always reboots the unit: the link
//    is closed, firmware written to "FirmwareCpu", "FirmwareFpga" or
//    "FirmwareWifi" is installed, and the unit is away for rebootMs.
//
// Threads: the unit runs one thread of its own (captures, status, messages)
// from construction to destruction; serve() runs the receive loop on the
// caller's thread. Every other operation may be called from any thread.
namespace TavroSim {

struct SimOptions {
    ZString serial = "T400-000001";
    ZString software = "1.0.8"; // 1.0.8 and newer push NodeStatus every second
    ZString api = "1.0";        // MAJ.MIN reported in NodeInfo.apiVersion
    bool sdcard = false;
    bool fast = false;  // push data as fast as the link takes
    ZString stateFile;  // optional: keep the records across restarts
    bool debug = false; // push a debug message every few seconds
    // The default capture: 1 one shot, 2 repeat, 3 continuous (MeasureMode).
    int measureMode = 1;
    unsigned int rebootMs = 1000; // how long a reboot keeps the unit away
};

struct SimCore;

class SimUnit {
public:
    explicit SimUnit(const SimOptions& options);
    ~SimUnit();
    SimUnit(const SimUnit&) = delete;
    SimUnit& operator=(const SimUnit&) = delete;

    // Success, or why the unit cannot run (bad options, a refused state
    // file); serve() then refuses with the same error.
    ZError status() const;

    // Serves one connected stream link (an accepted TCP socket, a pty master,
    // a loopback end) until the link fails or closes, the unit reboots, a
    // fault drops it, or stop() is called. Blocks; runs the receive loop here
    // and the unit's pushes (status, data, messages) from the unit's thread.
    // One link at a time: a second one is refused with 16 "Unit already
    // connected". While a reboot is under way it first waits for the unit to
    // come back. The link is closed (disconnect()) when the unit ends it;
    // writes to the link must give up within a few seconds (or when the link
    // is disconnected from another thread) so that serve() can return.
    // Returns success after stop() or a reboot, 5 "Connection dropped" after
    // a fault, otherwise the link's own error (-32 when the peer closed it).
    ZError serve(ZComms& link);
    // Ends the current serve() promptly and refuses later ones.
    void stop();
    bool serving() const;
    // Waits until a link is being served; false after timeoutUs.
    bool waitServing(unsigned int timeoutUs) const;
    bool rebooting() const;
    // Links served so far.
    unsigned int links() const;

    // The unit's records as a client would read them.
    TavroApi::NodeInfo nodeInfo() const;
    TavroApi::NodeStatus nodeStatus() const;
    TavroApi::Information information() const;
    TavroApi::Configuration configuration() const;
    TavroApi::BoardConfig boardConfig() const;
    TavroApi::ChannelConfig channelConfig(unsigned int channel) const;
    TavroApi::MeasurementConfig measurementConfig() const;
    TavroApi::AwgConfig awgConfig() const;
    TavroApi::Mode mode() const;
    // Latched alarms, bit n for Configuration.alarms[n].
    uint32_t alarms() const;
    bool loggedIn() const;
    // The checks of setConfig apply; no login is needed.
    ZError setConfiguration(const TavroApi::Configuration& config);

    // Data blocks (raw and processed) pushed so far.
    uint64_t blocksSent() const;

    // The unit's file system, by full path ("/internal/data/x.tavd").
    ZError readFile(const ZString& path, std::vector<uint8_t>& data) const;
    ZError writeFile(const ZString& path, const std::vector<uint8_t>& data);
    // Names of the files and folders in a folder, in listing order.
    ZList<ZString> fileNames(const ZString& folder) const;

    // Reboots as if a client had asked for it.
    void reboot();
    // Pushes a message to the client now (when a link is served).
    void pushMessage(unsigned int type, const ZString& text);

    // Faults, each in force until changed.
    // Closes the link once this many more data blocks have been pushed; 0 off.
    void faultDropAfterBlocks(unsigned int blocks);
    // Holds every reply back for this long; 0 off.
    void faultDelayReplies(unsigned int us);
    // Writes this many garbage bytes in front of each of the next packets.
    void faultGarbage(unsigned int bytes, unsigned int packets = 1);
    // Answers every request of this function with an error reply carrying
    // err; function 0 off.
    void faultErrorReply(uint16_t function, const ZError& err);
    // Stops (or resumes) the pushing of NodeStatus.
    void faultStopStatus(bool on);
    // Closes the link now.
    void dropConnection();

private:
    std::unique_ptr<SimCore> ocore;
};

} // namespace TavroSim

#endif
