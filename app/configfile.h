#ifndef CONFIGFILE_H
#define CONFIGFILE_H

#include "tavrorecords.h"
#include "zarray.h"
#include "zerror.h"
#include "zlist.h"
#include "zobjmember.h"
#include "zstring.h"

#include <cstdint>
#include <functional>

class Control;

// The ".zconfig" configuration file: the whole configuration of the master
// unit as text, one "member: value" item per line in sections opened by a
// line in square brackets ("[file]", "[boardConfig]", "[configuration]",
// "[measurementConfig]", "[awgConfig]", "[channelN]").

// An IPv4 address held most significant byte first, as "a.b.c.d".
ZString networkToString(uint32_t address);
// Reads exactly four decimal fields 0-255 separated by "." (blanks around
// the whole text allowed, nothing else); address is left alone on failure.
ZError networkFromString(const ZString& text, uint32_t& address);

// Appends one "name: value" line per member of the record's table: network
// addresses (not networkNameServer0) dotted, versions "[%u,%u,%u,%u]",
// one-byte enumerations as numbers, each alarm entry as "alarmN.mode" ...
// "alarmN.levelLow", char arrays as their text, other arrays "[v0,v1,...]",
// scalars by toZString. A member that cannot be written is reported as
// "Error: %s\n" on standard output and left out; the first such failure is
// returned ("Object to string conversion error1: " + name for a scalar,
// "...error2: " for an array); "Cannot set object" for a null record or table.
ZError objToDict(const void* record, const ZObjMember* members, ZList<ZString>& lineList);

// The records of one unit's configuration.
struct ConfigSet {
    TavroApi::BoardConfig boardConfig;
    TavroApi::Configuration config;
    TavroApi::MeasurementConfig measurementConfig;
    TavroApi::AwgConfig awgConfig;
    ZArray<TavroApi::ChannelConfig> channels;

    ConfigSet();
};

// A parsed file: the sections and their items, in file order.
struct ConfigFileItem {
    ZString name;
    ZString value;
};
struct ConfigFileSection {
    ZString name; // the text between the brackets
    ZList<ConfigFileItem> items;
};

class ConfigFile {
public:
    // Lines longer than this are refused as a whole file.
    static constexpr int maxLineLen = 4096;
    // Files larger than this are refused.
    static constexpr long maxFileLen = 4 * 1024 * 1024;

    // The whole text of a file from its records.
    static ZError toText(const ConfigSet& set, ZString& text);
    // Writes the records to fileName (opened with "w").
    static ZError write(const ConfigSet& set, const ZString& fileName);
    // Reads the master unit's records and writes them to fileName.
    static ZError save(Control& control, const ZString& fileName);

    // Splits the text into sections. Each line is split at its first ":"
    // and both sides trimmed; lines without one, and items before the first
    // section, are ignored. Refused: a file over maxFileLen, a line over
    // maxLineLen or holding a NUL byte, and a file whose "[file]" section has
    // no "type: zconfig" ("Not a zconfig file"). Nothing is kept on failure.
    ZError parse(const char* data, long length);
    ZError readFile(const ZString& fileName);

    // Overwrites the members of set that the file lists and that a restore
    // may change; everything else keeps its value. Unknown members, alarm
    // entries and channels beyond their tables and "[boardConfig]" are
    // ignored; a value that does not fit its member fails with
    // "[section] name: " and the reason, and set may then be half changed.
    ZError apply(ConfigSet& set) const;

    const ZList<ConfigFileSection>& getSections() const { return osections; }

private:
    ZList<ConfigFileSection> osections;
};

// Reads the records of the master unit: the board configuration, the
// configuration, the present measurement and waveform generator records (the
// ones Control caches, which = false) and every channel.
ZError configRead(Control& control, ConfigSet& set);

// Restores a unit from a file: reads and checks the file, reads the unit's
// present records, applies the file's items, asks confirm (false leaves the
// unit alone, with no error), sends the records in order and reboots the
// unit through Control::reboot; done tells that it got that far. No unit
// connected: nothing happens. The first set call that fails stops the
// restore with its message ("Error setting config", "Error setting
// Measurement config", "Error setting Channel config", "Error setting Awg"),
// ": " and the unit's reason, under the unit's error number; no reboot then.
using ConfigConfirm = std::function<bool()>;
ZError configRestore(Control& control, const ZString& fileName, const ConfigConfirm& confirm,
                     bool& done);

#endif
