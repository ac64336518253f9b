#ifndef ZFIRMBUILD_H
#define ZFIRMBUILD_H

#include "zerror.h"
#include "zstring.h"

#include <cstdint>
#include <vector>

// Builds firmware packages and raw main-processor images, for release
// tooling and for tests.
//
//   std::vector<uint8_t> cpu = zfirmBuildImage(ZFirmwarePlatformTavro40x, {1, 2, 3}, 200 * 1024);
//   std::vector<uint8_t> pkg = zfirmBuildPackage({1, 2, 3}, {{ZFirmwarePlatformCpu, cpu}});
//   zfirmWriteFile("tavro-40x-1.2.3.zfirm", pkg);

struct ZFirmwareVersion {
    uint8_t major, minor, patch;
};

struct ZFirmwarePart {
    uint32_t platform;          // ZFirmwarePlatformCpu, Fpga or Wifi (or anything, for tests)
    std::vector<uint8_t> image; // the bytes after the section header
};

// A raw processor image of `length` bytes (at least 528) with its image
// header at offset 512: magic 0x7C5D3E00, the platform byte at 12 and the
// version at 13 to 15. The other bytes follow a pattern that differs from
// block to block, so that misplaced blocks show. Shorter lengths give the
// pattern alone (a truncated image, for tests).
std::vector<uint8_t> zfirmBuildImage(uint8_t platform, ZFirmwareVersion version, size_t length);

// A package: the file header (magic 0x01524F4B, file type 33, version), then
// one section per part in order, each a section header (magic, the image
// length, the platform) and the image.
std::vector<uint8_t> zfirmBuildPackage(ZFirmwareVersion version,
                                       const std::vector<ZFirmwarePart>& parts);

// A package with one section per processor (Cpu, Fpga, Wifi), each an image
// of `length` bytes made by zfirmBuildImage with the package's version.
std::vector<uint8_t> zfirmBuildPackageAll(ZFirmwareVersion version, size_t length);

// Writes the bytes to a new file (replacing one of that name).
ZError zfirmWriteFile(const ZString& fileName, const std::vector<uint8_t>& data);

#endif
