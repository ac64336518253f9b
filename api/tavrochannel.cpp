#include "tavrochannel.h"

namespace TavroApi {

#define M(field) TAVRO_MEMBER(R, field)

const ZObjMember* ChannelConfig::getMembers() {
    using R = ChannelConfig;
    static constexpr ZObjMember members[] = {
        M(number),  M(enabled), M(attenuator), M(type),        M(sampleType),   M(dataChannel),
        M(id),      M(name),    M(siUnits),    M(calibOffset), M(calibScale),   M(calibScaleAtten1),
        M(pgaGain), M(scale),   M(offset),     M(process),     TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* MeasurementConfig::getMembers() {
    using R = MeasurementConfig;
    static constexpr ZObjMember members[] = {
        M(measureMode),   M(measureOptions),  M(peakFilter),   M(triggerMode),
        M(triggerConfig), M(triggerChannel),  M(triggerLevel), M(triggerDelay),
        M(sampleRate),    M(numSamples0),     M(numSamples1),  M(numSamples2),
        M(measurePeriod), M(numSamplesBlock), M(description),  TAVRO_MEMBER_END};
    return members;
}

const ZObjMember* AwgConfig::getMembers() {
    using R = AwgConfig;
    static constexpr ZObjMember members[] = {M(mode),      M(output),     M(trackChannel),
                                             M(frequency), M(amplitude),  M(offset),
                                             M(duty),      M(numSamples), TAVRO_MEMBER_END};
    return members;
}

} // namespace TavroApi
