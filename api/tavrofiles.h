#ifndef TAVROFILES_H
#define TAVROFILES_H

#include "tavroenums.h"
#include "tavromember.h"

#include <cstdint>

// Records of a unit's file system.

namespace TavroApi {

struct FilesysInfo {
    static constexpr const char* typeName = "FilesysInfo";
    FilesysInfo() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    char name[128];
    uint64_t size;
    uint64_t free;
};

struct FileInfo {
    static constexpr const char* typeName = "FileInfo";
    FileInfo() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    char name[128];
    ZTime time;
    FileType fileType;
    uint8_t pad0[3];
    uint64_t fileLength;
};

// One piece of a file read from or written to a unit; length counts the
// bytes of data in use (at most dataMax, which a receiver must check).
struct FileData {
    static constexpr const char* typeName = "FileData";
    static constexpr uint32_t dataMax = 512;
    FileData() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    uint32_t length;
    uint8_t data[dataMax];
};

TAVRO_RECORD_SIZE(FilesysInfo, 144);
TAVRO_OFFSET(FilesysInfo, name, 0);
TAVRO_OFFSET(FilesysInfo, size, 128);
TAVRO_OFFSET(FilesysInfo, free, 136);

TAVRO_RECORD_SIZE(FileInfo, 144);
TAVRO_OFFSET(FileInfo, name, 0);
TAVRO_OFFSET(FileInfo, time, 128);
TAVRO_OFFSET(FileInfo, fileType, 132);
TAVRO_OFFSET(FileInfo, fileLength, 136);
TAVRO_PAD(FileInfo, pad0, 133, 3);

TAVRO_RECORD_SIZE(FileData, 516);
TAVRO_OFFSET(FileData, length, 0);
TAVRO_OFFSET(FileData, data, 4);

} // namespace TavroApi

#endif
