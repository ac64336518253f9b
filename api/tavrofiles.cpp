#include "tavrofiles.h"

namespace TavroApi {

#define M(field) TAVRO_MEMBER(R, field)

const ZObjMember* FilesysInfo::getMembers() {
    using R = FilesysInfo;
    static constexpr ZObjMember members[] = {M(name), M(size), M(free), TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* FileInfo::getMembers() {
    using R = FileInfo;
    static constexpr ZObjMember members[] = {M(name), M(time), M(fileType), M(fileLength),
                                             TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* FileData::getMembers() {
    using R = FileData;
    static constexpr ZObjMember members[] = {M(length), M(data), TAVRO_MEMBER_END};
    return members;
}

} // namespace TavroApi
