#include "tavroconfig.h"

namespace TavroApi {

#define M(field) TAVRO_MEMBER(R, field)

const ZObjMember* AlarmConfig::getMembers() {
    using R = AlarmConfig;
    static constexpr ZObjMember members[] = {M(mode),      M(output),   M(outputChannel),
                                             M(levelHigh), M(levelLow), TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* Configuration::getMembers() {
    using R = Configuration;
    static constexpr ZObjMember members[] = {M(version),
                                             M(name),
                                             M(location),
                                             M(mode),
                                             M(securityMode),
                                             M(logData),
                                             M(logDataMode),
                                             M(logDataDevice),
                                             M(source),
                                             M(sampleFrequencyMode),
                                             M(digitalMode),
                                             M(digitalPins),
                                             M(networkMode),
                                             M(networkAddress),
                                             M(networkMask),
                                             M(networkGateway),
                                             M(networkNameServer0),
                                             M(networkTimeServer),
                                             M(rs485Mode),
                                             M(rs485Bits),
                                             M(rs485StopBits),
                                             M(rs485BaudRate),
                                             M(wifiMode),
                                             M(wifiAp0),
                                             M(alarms),
                                             M(mqttMode),
                                             M(mqttServer),
                                             M(mqttPort),
                                             M(emailMode),
                                             M(emailAddress),
                                             M(program),
                                             TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* ConfigItem::getMembers() {
    using R = ConfigItem;
    static constexpr ZObjMember members[] = {M(name), M(type), M(value), TAVRO_MEMBER_END};
    return members;
}

} // namespace TavroApi
