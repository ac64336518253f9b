#include "unitfiles.h"

#include "tavro.h"
#include "tavrounit.h"
#include "zfile.h"

#include <unistd.h>

#include <cerrno>
#include <cstdint>

using namespace TavroApi;

namespace {

const int errEndOfFile = 14;

} // namespace

ZString UnitFiles::root(unsigned int device) {
    return device == 1 ? "/sdcard" : "/internal";
}

ZString UnitFiles::rootNamed(const ZString& name) {
    ZString n = name;
    if (n.get(0) == '/')
        n = n.subString(1);
    if (n == "internal" || n == "sdcard")
        return "/" + n;
    return ZString();
}

ZString UnitFiles::dataPath(const ZString& root, const ZString& name) {
    return root + "/data/" + name;
}

ZString UnitFiles::typeText(const FileInfo& info) {
    if (info.fileType == FileType::File)
        return "file";
    if (info.fileType == FileType::Dir)
        return "dir";
    return "unknown";
}

ZString UnitFiles::fileName(const FileInfo& info) {
    return getCharArray(info.name);
}

ZError UnitFiles::fail(const char* text, const ZError& cause) {
    ocause = cause;
    return ZError(cause.number ? cause.number : 1, text);
}

ZError UnitFiles::info(const ZString& root, FilesysInfo& info) {
    return ounit.filesysInfo(root, info);
}

ZError UnitFiles::list(const ZString& root, ZList<FileInfo>& files) {
    files.clear();
    const ZString folder = root + "/data";
    for (unsigned int index = 0;; index++) {
        if (index == listMax)
            return ZError("Too many files on Tavro: " + folder);
        FileInfo entry;
        ZError err = ounit.fileList(folder, index, entry);
        if (err.number == errEndOfFile)
            return ZError();
        if (err)
            return err;
        files.append(entry);
    }
}

ZError UnitFiles::download(const ZString& path, const ZString& localName, uint64_t total,
                           const Progress& progress) {
    ocause.clear();
    ZFile local;
    ZError err = local.open(localName, "wb");
    if (err)
        return fail("Cannot create file", err);
    unsigned int handle = 0;
    if ((err = ounit.fileOpen(path, "r", handle)))
        return fail("Cannot open file on Tavro", err);

    ZError result;
    uint64_t position = 0;
    bool stopped = false;
    for (;;) {
        FileData data;
        err = ounit.fileRead(handle, unsigned(position), pieceSize, data);
        if (err.number == errEndOfFile)
            break;
        if (err) {
            result = fail("Cannot read file on Tavro", err);
            break;
        }
        // What the unit says it sent must lie inside the piece asked for, and
        // the 32-bit offset must not wrap round to the start of the file.
        if (data.length == 0 || data.length > pieceSize ||
            position + data.length > uint64_t(UINT32_MAX)) {
            result = fail("Cannot read file on Tavro",
                          ZError(ZString("Invalid file data length: ") + ZString(data.length)));
            break;
        }
        if (local.write(data.data, data.length) != data.length) {
            result = fail("Cannot write to file", zerrorFromErrno(errno));
            break;
        }
        position += data.length;
        if (progress && !progress(position, total)) {
            stopped = true;
            break;
        }
    }
    ounit.fileClose(handle);
    err = local.close();
    if (stopped) {
        unlink(localName.str());
        return fail("Download cancelled", ZError(cancelled, "Download cancelled"));
    }
    if (!result && err)
        result = fail("Cannot write to file", err);
    return result;
}

ZError UnitFiles::remove(const ZString& path) {
    return ounit.fileDelete(path);
}

ZError UnitFiles::removeAll(const ZString& root) {
    return ounit.filesysDelete(root, FilesysDeleteType::Data);
}

ZError UnitFiles::format(const ZString& root) {
    return ounit.filesysDelete(root, FilesysDeleteType::Format);
}

ZError UnitFiles::convert(const ZString& input, const ZString& output, bool csvWithHeader,
                          const TavdProgress& progress) {
    return tavdConvert(input, output, csvWithHeader, TavroUnit::processdataBlock, progress);
}
