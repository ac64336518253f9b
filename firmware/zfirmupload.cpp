#include "zfirmupload.h"

#include "tavro.h"

#include <algorithm>
#include <cstring>

using namespace TavroApi;

bool ZFirmwareUpload::report(const ZString& text, double done) {
    return !oprogress || oprogress(text, done);
}

ZError ZFirmwareUpload::findSection(ZFile& file, uint32_t platform, const ZString& target,
                                    ZFirmwareFirmwareHeader& section, int64_t& offset) {
    const int64_t end = file.length();
    int64_t at = file.position();
    if (end < 0 || at < 0)
        return ZError("Invalid firmware file");

    // Every pass moves on by a whole header at least, and no length may
    // take a section past the end: the walk ends on any input.
    while (true) {
        uint8_t head[ZFirmwareFirmwareHeader::size];
        if (file.seek(at) || file.read(head, sizeof(head)) != sizeof(head))
            return ZError(target + ": firmware not found in file");
        section.fromBytes(head);
        if (section.magic != ZFirmwareFirmwareHeader::magicValue)
            return ZError("Currupt firmware file");
        const int64_t next = at + ZFirmwareFirmwareHeader::size + int64_t(section.length);
        if (next > end)
            return ZError("Currupt firmware file: section runs past the end of the file");
        if (section.platform == platform) {
            offset = at;
            return file.seek(at) ? ZError("Invalid firmware file") : ZError();
        }
        at = next;
    }
}

ZError ZFirmwareUpload::send(ZFile& file, const ZString& target, int64_t offset, uint32_t length) {
    unsigned int handle = 0;
    ZError err = ounit->fileOpen(target, "w", handle);
    if (err)
        return err;

    const ZString text = "Uploading: " + target;
    const uint64_t total = uint64_t(ZFirmwareFirmwareHeader::size) + length;
    uint64_t done = 0;
    report(text, 0.0);
    if (file.seek(offset))
        err = ZError("Invalid firmware file");
    while (!err && done < total) {
        FileData piece;
        piece.length = uint32_t(std::min<uint64_t>(pieceMax, total - done));
        if (file.read(piece.data, piece.length) != piece.length) {
            err = ZError("Invalid firmware file");
            break;
        }
        err = ounit->fileWrite(handle, uint32_t(done), piece);
        done += piece.length;
        if (!err && !report(text, double(done) / double(total)))
            err = ZError("Upload cancelled");
    }
    // The unit file is closed on every path, also after a failure. A unit
    // installs whatever it holds under the target's name at its next reboot,
    // so a part-written image is deleted again.
    ZError closeErr = ounit->fileClose(handle);
    if (err || closeErr)
        ounit->fileDelete(target);
    return err ? err : closeErr;
}

ZError ZFirmwareUpload::upload(const ZString& fileName, uint32_t platform) {
    const ZString target = zfirmTarget(platform);
    if (target.isEmpty())
        return ZError("Uknown platform");
    if (!ounit)
        return ZError("Not connected");

    ZFile file;
    if (file.open(fileName, "rb"))
        return ZError("Unable to open file");
    if (!report("Validadting firmware", 0.0))
        return ZError("Upload cancelled");

    uint8_t head[ZFirmwareFileHeader::size];
    ZFirmwareFileHeader header;
    if (file.read(head, sizeof(head)) != sizeof(head))
        return ZError("Invalid firmware file");
    header.fromBytes(head);
    if (!header.valid())
        return ZError("Invalid firmware file");

    ZFirmwareFirmwareHeader section;
    int64_t offset = 0;
    ZError err = findSection(file, platform, target, section, offset);
    if (err)
        return err;
    return send(file, target, offset, section.length);
}
