#include "zfirmbuild.h"

#include "zfile.h"
#include "zfirmware.h"

namespace {

const size_t ImageHeaderAt = 512;
const size_t ImageHeaderSize = 16;
const uint32_t ImageMagic = 0x7C5D3E00;

} // namespace

std::vector<uint8_t> zfirmBuildImage(uint8_t platform, ZFirmwareVersion version, size_t length) {
    std::vector<uint8_t> image(length);
    for (size_t i = 0; i < length; i++)
        image[i] = uint8_t(i * 7 + (i >> 11) * 13 + (i >> 9) + platform);
    if (length >= ImageHeaderAt + ImageHeaderSize) {
        uint8_t* h = image.data() + ImageHeaderAt;
        zfirmPut32(h, ImageMagic);
        h[12] = platform;
        h[13] = version.major;
        h[14] = version.minor;
        h[15] = version.patch;
    }
    return image;
}

std::vector<uint8_t> zfirmBuildPackage(ZFirmwareVersion version,
                                       const std::vector<ZFirmwarePart>& parts) {
    std::vector<uint8_t> out(ZFirmwareFileHeader::size);
    ZFirmwareFileHeader file;
    file.magic = ZFirmwareFileHeader::magicValue;
    file.fileType = ZFirmwareFileHeader::typeFirmware;
    file.versionMajor = version.major;
    file.versionMinor = version.minor;
    file.versionPatch = version.patch;
    file.toBytes(out.data());
    for (const ZFirmwarePart& part : parts) {
        ZFirmwareFirmwareHeader section;
        section.magic = ZFirmwareFirmwareHeader::magicValue;
        section.length = uint32_t(part.image.size());
        section.platform = part.platform;
        size_t at = out.size();
        out.resize(at + ZFirmwareFirmwareHeader::size);
        section.toBytes(out.data() + at);
        out.insert(out.end(), part.image.begin(), part.image.end());
    }
    return out;
}

std::vector<uint8_t> zfirmBuildPackageAll(ZFirmwareVersion version, size_t length) {
    std::vector<ZFirmwarePart> parts;
    for (uint32_t p : {ZFirmwarePlatformCpu, ZFirmwarePlatformFpga, ZFirmwarePlatformWifi})
        parts.push_back({p, zfirmBuildImage(uint8_t(p), version, length)});
    return zfirmBuildPackage(version, parts);
}

ZError zfirmWriteFile(const ZString& fileName, const std::vector<uint8_t>& data) {
    ZFile file;
    ZError err = file.open(fileName, "wb");
    if (err)
        return err;
    if (file.write(data.data(), data.size()) != data.size())
        return ZError("File write error: " + fileName);
    return file.close();
}
