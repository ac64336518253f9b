#include "tavronode.h"

namespace TavroApi {

#define M(field) TAVRO_MEMBER(R, field)

const ZObjMember* ApiVersion::getMembers() {
    using R = ApiVersion;
    static constexpr ZObjMember members[] = {M(mid), M(maj), TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* Version::getMembers() {
    using R = Version;
    static constexpr ZObjMember members[] = {M(type), M(ver0), M(ver1), M(ver2), TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* NodeInfo::getMembers() {
    using R = NodeInfo;
    static constexpr ZObjMember members[] = {
        M(apiVersion), M(hardwareVersion), M(fpgaVersion),  M(wifiVersion),   M(softwareVersion),
        M(variant),    M(serialNumber),    M(securityMode), M(apiSubVersion), TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* NodeStatus::getMembers() {
    using R = NodeStatus;
    static constexpr ZObjMember members[] = {M(time),       M(status),       M(error),
                                             M(errorStr),   M(mode),         M(ethernetStatus),
                                             M(wifiStatus), TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* BoardConfig::getMembers() {
    using R = BoardConfig;
    static constexpr ZObjMember members[] = {M(magic),
                                             M(hardwareVersion),
                                             M(serialNumber),
                                             M(buildTime),
                                             M(macAddress),
                                             M(testMode),
                                             M(calibTime),
                                             M(calibTemp),
                                             M(calibDacOffsets),
                                             M(calibDacScales),
                                             M(calibAdcOffsets),
                                             M(calibAdcScales),
                                             M(calibAttenScales),
                                             M(calibFiveVolts),
                                             M(fpgaVersion),
                                             M(wifiVersion),
                                             TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* Information::getMembers() {
    using R = Information;
    static constexpr ZObjMember members[] = {
        M(nodeInfo),       M(numConfigItems),     M(numChannels),       M(time),
        M(networkMode),    M(networkMacAddress),  M(networkAddress),    M(networkMask),
        M(networkGateway), M(networkNameServer0), M(networkTimeServer), M(wifiMode),
        M(wifiMacAddress), M(wifiAddress),        M(wifiMask),          M(wifiGateway),
        M(calibTime),      TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* CalibrateInfo::getMembers() {
    using R = CalibrateInfo;
    static constexpr ZObjMember members[] = {
        M(stage),       M(calibrateFrequency), M(calibrateAmplitude), M(calibrateTime), M(value),
        M(channelMask), M(numAverage),         M(sampleRate),         TAVRO_MEMBER_END};
    return members;
}

} // namespace TavroApi
