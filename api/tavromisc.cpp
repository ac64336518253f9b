#include "tavromisc.h"

namespace TavroApi {

#define M(field) TAVRO_MEMBER(R, field)
#define B(field) TAVRO_MEMBER_BOOL(R, field)

const ZObjMember* WifiAccessPoint::getMembers() {
    using R = WifiAccessPoint;
    static constexpr ZObjMember members[] = {M(name), M(signalLevel), M(channel), M(auth),
                                             TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* SerialConfig::getMembers() {
    using R = SerialConfig;
    static constexpr ZObjMember members[] = {B(enable),       B(enableTx),    B(enableRx),
                                             M(numBits),      M(numStopBits), M(baudRate),
                                             TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* StreamData::getMembers() {
    using R = StreamData;
    static constexpr ZObjMember members[] = {M(stream), M(status), M(length), M(data),
                                             TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* DevConfig::getMembers() {
    using R = DevConfig;
    static constexpr ZObjMember members[] = {M(stream), B(enable), B(slave), M(bitRate),
                                             TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* Transact::getMembers() {
    using R = Transact;
    static constexpr ZObjMember members[] = {M(txNum), M(rxNum), M(stream), M(devAddress),
                                             M(mode),  M(rxGap), M(data),   TAVRO_MEMBER_END};
    return members;
}

} // namespace TavroApi
