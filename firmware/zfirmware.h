#ifndef ZFIRMWARE_H
#define ZFIRMWARE_H

#include "tavronode.h"
#include "zerror.h"
#include "zstring.h"

#include <cstdint>
#include <vector>

// Firmware packages (".zfirm"): a 64-byte file header, then sections, each a
// 64-byte section header followed by the image bytes of one processor. All
// integers are little-endian; the headers are parsed field by field from
// their byte images, never by casting.

// Platform numbers: the package (and the raw main-processor image) of a
// Tavro-40x, and the sections for its three processors.
enum ZFirmwarePlatform : uint32_t {
    ZFirmwarePlatformTavro40x = 33,
    ZFirmwarePlatformCpu = 34,
    ZFirmwarePlatformFpga = 35,
    ZFirmwarePlatformWifi = 36
};

struct ZFirmwareFileHeader {
    static constexpr uint32_t magicValue = 0x01524F4B;
    static constexpr uint32_t typeFirmware = 33;
    static constexpr unsigned int size = 64;

    ZFirmwareFileHeader();
    // Fields from the 64 bytes at data.
    void fromBytes(const uint8_t* data);
    // The 64-byte image; bytes not interpreted here are zero.
    void toBytes(uint8_t* data) const;
    // The magic and the firmware file type are right.
    bool valid() const { return magic == magicValue && fileType == typeFirmware; }
    // "major.minor.patch"
    ZString versionString() const;

    uint32_t magic;                                   // at 0
    uint32_t fileType;                                // at 16
    uint8_t versionMajor, versionMinor, versionPatch; // at 32, 33, 34
};

struct ZFirmwareFirmwareHeader {
    static constexpr uint32_t magicValue = 0x01524F4B;
    static constexpr unsigned int size = 64;

    ZFirmwareFirmwareHeader();
    void fromBytes(const uint8_t* data);
    void toBytes(uint8_t* data) const;

    uint32_t magic;    // at 0
    uint32_t length;   // at 8: image bytes after this header
    uint32_t platform; // at 16: ZFirmwarePlatformCpu, Fpga or Wifi
};

// Little-endian 32-bit value at p.
uint32_t zfirmGet32(const uint8_t* p);
void zfirmPut32(uint8_t* p, uint32_t value);

// The unit's name of a section platform: "FirmwareCpu", "FirmwareFpga",
// "FirmwareWifi"; empty for any other number.
ZString zfirmTarget(uint32_t platform);

// Checks that fileName is a firmware package whose first section is for
// `platform` and gives the package's version as "%d.%d.%d". Failures, all
// number 1: "Unable to open file", "File format error" (no whole file header
// and first section header), "Not a firmware file" (magic),
// "Not a firmware file for this platform" (file type or first section).
ZError zfirmValidate(const ZString& fileName, uint32_t platform, ZString& version);

// Reads the file header of a package: "Unable to open file", or "Invalid
// firmware file" for a short read, a wrong magic or a wrong file type.
ZError zfirmReadHeader(const ZString& fileName, ZFirmwareFileHeader& header);

// One section of a package: its header and where that header starts.
struct ZFirmwareSection {
    ZFirmwareFirmwareHeader header;
    int64_t offset;
};

// The file header and every section of a package, in file order. Fails like
// zfirmReadHeader, and with "Currupt firmware file" for a section header
// without the magic or cut short, or "Currupt firmware file: section runs
// past the end of the file".
ZError zfirmListSections(const ZString& fileName, ZFirmwareFileHeader& header,
                         std::vector<ZFirmwareSection>& sections);

// Whether a unit running unitVersion (its software Version record) needs the
// package: always when forced, otherwise when major, minor or patch differ.
bool firmwareUpdateCheck(const ZFirmwareFileHeader& header, const TavroApi::Version& unitVersion,
                         bool force);

#endif
