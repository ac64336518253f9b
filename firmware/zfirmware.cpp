#include "zfirmware.h"

#include "zfile.h"

#include <cstring>

uint32_t zfirmGet32(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

void zfirmPut32(uint8_t* p, uint32_t value) {
    for (int i = 0; i < 4; i++)
        p[i] = uint8_t(value >> (8 * i));
}

ZFirmwareFileHeader::ZFirmwareFileHeader()
    : magic(0), fileType(0), versionMajor(0), versionMinor(0), versionPatch(0) {}

void ZFirmwareFileHeader::fromBytes(const uint8_t* data) {
    magic = zfirmGet32(data);
    fileType = zfirmGet32(data + 16);
    versionMajor = data[32];
    versionMinor = data[33];
    versionPatch = data[34];
}

void ZFirmwareFileHeader::toBytes(uint8_t* data) const {
    memset(data, 0, size);
    zfirmPut32(data, magic);
    zfirmPut32(data + 16, fileType);
    data[32] = versionMajor;
    data[33] = versionMinor;
    data[34] = versionPatch;
}

ZString ZFirmwareFileHeader::versionString() const {
    return ZString().printf("%d.%d.%d", versionMajor, versionMinor, versionPatch);
}

ZFirmwareFirmwareHeader::ZFirmwareFirmwareHeader() : magic(0), length(0), platform(0) {}

void ZFirmwareFirmwareHeader::fromBytes(const uint8_t* data) {
    magic = zfirmGet32(data);
    length = zfirmGet32(data + 8);
    platform = zfirmGet32(data + 16);
}

void ZFirmwareFirmwareHeader::toBytes(uint8_t* data) const {
    memset(data, 0, size);
    zfirmPut32(data, magic);
    zfirmPut32(data + 8, length);
    zfirmPut32(data + 16, platform);
}

ZString zfirmTarget(uint32_t platform) {
    switch (platform) {
    case ZFirmwarePlatformCpu:
        return "FirmwareCpu";
    case ZFirmwarePlatformFpga:
        return "FirmwareFpga";
    case ZFirmwarePlatformWifi:
        return "FirmwareWifi";
    default:
        return ZString();
    }
}

ZError zfirmValidate(const ZString& fileName, uint32_t platform, ZString& version) {
    ZFile file;
    if (file.open(fileName, "rb"))
        return ZError("Unable to open file");

    uint8_t head[ZFirmwareFileHeader::size + ZFirmwareFirmwareHeader::size];
    if (file.read(head, sizeof(head)) != sizeof(head))
        return ZError("File format error");

    ZFirmwareFileHeader fileHeader;
    ZFirmwareFirmwareHeader section;
    fileHeader.fromBytes(head);
    section.fromBytes(head + ZFirmwareFileHeader::size);
    if (fileHeader.magic != ZFirmwareFileHeader::magicValue)
        return ZError("Not a firmware file");
    if (fileHeader.fileType != ZFirmwareFileHeader::typeFirmware || section.platform != platform)
        return ZError("Not a firmware file for this platform");
    version = fileHeader.versionString();
    return ZError();
}

ZError zfirmReadHeader(const ZString& fileName, ZFirmwareFileHeader& header) {
    ZFile file;
    if (file.open(fileName, "rb"))
        return ZError("Unable to open file");
    uint8_t head[ZFirmwareFileHeader::size];
    if (file.read(head, sizeof(head)) != sizeof(head))
        return ZError("Invalid firmware file");
    header.fromBytes(head);
    return header.valid() ? ZError() : ZError("Invalid firmware file");
}

ZError zfirmListSections(const ZString& fileName, ZFirmwareFileHeader& header,
                         std::vector<ZFirmwareSection>& sections) {
    sections.clear();
    ZError err = zfirmReadHeader(fileName, header);
    ZFile file;
    if (err || (err = file.open(fileName, "rb")))
        return err;
    const int64_t end = file.length();
    int64_t at = ZFirmwareFileHeader::size;
    // Each section moves on by its header at least and may not pass the end.
    while (at < end) {
        uint8_t head[ZFirmwareFirmwareHeader::size];
        ZFirmwareSection s;
        if (file.seek(at) || file.read(head, sizeof(head)) != sizeof(head))
            return ZError("Currupt firmware file");
        s.header.fromBytes(head);
        s.offset = at;
        if (s.header.magic != ZFirmwareFirmwareHeader::magicValue)
            return ZError("Currupt firmware file");
        at += ZFirmwareFirmwareHeader::size + int64_t(s.header.length);
        if (at > end)
            return ZError("Currupt firmware file: section runs past the end of the file");
        sections.push_back(s);
    }
    return ZError();
}

bool firmwareUpdateCheck(const ZFirmwareFileHeader& header, const TavroApi::Version& unitVersion,
                         bool force) {
    if (force)
        return true;
    return header.versionMajor != unitVersion.ver0 || header.versionMinor != unitVersion.ver1 ||
           header.versionPatch != unitVersion.ver2;
}
