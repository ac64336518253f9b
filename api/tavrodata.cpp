#include "tavrodata.h"

namespace TavroApi {

#define M(field) TAVRO_MEMBER(R, field)
#define HEADER M(time), M(source), M(status), M(numChannels), M(numSamples), M(sequence), M(type)

const ZObjMember* DataBlockHeader::getMembers() {
    using R = DataBlockHeader;
    static constexpr ZObjMember members[] = {HEADER, TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* DataBlock::getMembers() {
    using R = DataBlock;
    static constexpr ZObjMember members[] = {HEADER, M(data), TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* DataBlockFloat::getMembers() {
    using R = DataBlockFloat;
    static constexpr ZObjMember members[] = {HEADER, M(data), TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* DataProc::getMembers() {
    using R = DataProc;
    static constexpr ZObjMember members[] = {M(mean),         M(rms),   M(peakHigh),
                                             M(peakLow),      M(power), TAVRO_MEMBER_BOOL(R, alarm),
                                             TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* DataBlockProc::getMembers() {
    using R = DataBlockProc;
    static constexpr ZObjMember members[] = {HEADER, M(analogueData), M(digitalData), M(period),
                                             TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* InfoBlock::getMembers() {
    using R = InfoBlock;
    static constexpr ZObjMember members[] = {
        M(time), M(source),   M(numChannels), M(version),       M(fileType),     M(dataType),
        M(name), M(location), M(nodeInfo),    M(measureConfig), TAVRO_MEMBER_END};
    return members;
}

} // namespace TavroApi
