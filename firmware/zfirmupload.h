#ifndef ZFIRMUPLOAD_H
#define ZFIRMUPLOAD_H

#include "zerror.h"
#include "zfile.h"
#include "zfirmware.h"
#include "zstring.h"

#include <cstdint>
#include <functional>

namespace TavroApi {
class Tavro;
}

// Uploads one platform's section of a firmware package to a unit over the
// device API: the section (its 64-byte header, then the image, as the package
// holds it) is written to the unit file named after the target
// ("FirmwareCpu", ...), which the unit installs at its next reboot.
//
//   ZFirmwareUpload upload(control.unitMaster());
//   upload.setProgress([&](const ZString& text, double done) { ...; return !cancelled; });
//   ZError err = upload.upload("tavro-40x-1.2.3.zfirm", ZFirmwarePlatformCpu);
//
// Failures, all number 1: "Uknown platform", "Not connected", "Unable to
// open file", "Invalid firmware file", target + ": firmware not found in
// file", "Currupt firmware file" (a section header without the magic, or
// "Currupt firmware file: section runs past the end of the file" for a
// length beyond the end), "Upload cancelled"; the unit's own errors as it
// gives them. After a failure or a cancel part way through, the unit file is
// closed and deleted, so the unit has nothing to install. Blocks the calling
// thread.
class ZFirmwareUpload {
public:
    // Text and fraction done (0 to 1); returning false cancels the upload.
    typedef std::function<bool(const ZString& text, double done)> Progress;
    static constexpr unsigned int pieceMax = 512;

    // unit: the unit to upload to; null when none is connected.
    explicit ZFirmwareUpload(TavroApi::Tavro* unit) : ounit(unit) {}

    void setProgress(Progress progress) { oprogress = std::move(progress); }
    ZError upload(const ZString& fileName, uint32_t platform);

    // Positions file (just after its file header) on the first section of
    // platform: section gets its header, offset where the header starts.
    // target names the platform in the "not found" message.
    static ZError findSection(ZFile& file, uint32_t platform, const ZString& target,
                              ZFirmwareFirmwareHeader& section, int64_t& offset);

private:
    bool report(const ZString& text, double done);
    ZError send(ZFile& file, const ZString& target, int64_t offset, uint32_t length);

    TavroApi::Tavro* ounit;
    Progress oprogress;
};

#endif
