#ifndef SIMSTATE_H
#define SIMSTATE_H

#include "simunit.h"
#include "tavrorecords.h"
#include "zerror.h"
#include "zstring.h"

#include <cstdint>
#include <vector>

namespace TavroSim {

// A user of a unit: name and password, zero-terminated.
struct SimUser {
    char name[32];
    char password[32];
};

// The records a simulated unit keeps: identity, board data, configuration,
// channels, measurement and waveform generator, users. Not locked: the unit
// guards it.
//
// A state file keeps them across restarts. It is binary: "TAVROSIM", a u32
// version (1) and a u32 section count, then sections of a u32 tag, a u32
// length and the record images, and a CRC-32 of everything before it. It is
// checked whole (sizes, checksum, every value the unit would refuse from a
// client) before anything of it is taken.
class SimState {
public:
    static constexpr int channels = 16;
    static constexpr int analogue = 8;
    static constexpr int usersMax = 16;

    SimState();

    // The defaults of a unit with these options: 1 "Invalid serial number",
    // "Invalid software version", "Invalid API version".
    ZError init(const SimOptions& options);
    // Configuration, channels, measurement and generator back to the
    // defaults; identity, board data, firmware and users stay.
    void factoryDefaults();

    // Checks a record as a client sends it: 22 "Invalid <member>".
    static ZError checkConfiguration(const TavroApi::Configuration& config);
    static ZError checkAwg(const TavroApi::AwgConfig& config);

    // 13 "Invalid user or password" when the pair is not in the table.
    ZError checkLogin(const ZString& user, const ZString& password) const;
    // The password check as checkLogin (none when own: the user is logged
    // in and changes his own password); 22 "Invalid new password" for an
    // empty one or one of more than 31 characters.
    ZError changePassword(const ZString& user, const ZString& password, const ZString& newPassword,
                          bool own = false);

    // A missing file is no error (the unit starts with its defaults); a bad
    // one is refused with 1 "Bad state file <path>: <reason>" and nothing of
    // it is taken.
    ZError load(const ZString& path);
    ZError save(const ZString& path) const;
    // The file image of the state, and taking one in.
    void image(std::vector<uint8_t>& out) const;
    ZError fromImage(const std::vector<uint8_t>& in);

    // The factor from volts to raw value of an analogue channel: the inverse
    // of the calibration the application applies.
    double rawScale(int channel) const;

    TavroApi::NodeInfo nodeInfo;
    TavroApi::BoardConfig board;
    TavroApi::Configuration config;
    TavroApi::ChannelConfig channel[channels];
    TavroApi::MeasurementConfig measure[2]; // in use, kept for autonomous runs
    TavroApi::AwgConfig awg[2];
    std::vector<SimUser> users;
    bool firmwareInstalled; // the versions in nodeInfo came from an installed image
};

} // namespace TavroSim

#endif
