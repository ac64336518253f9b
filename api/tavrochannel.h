#ifndef TAVROCHANNEL_H
#define TAVROCHANNEL_H

#include "tavroenums.h"
#include "tavromember.h"

#include <cstdint>

// Records of a measurement: channels, the measurement itself and the
// waveform generator.

namespace TavroApi {

struct ChannelConfig {
    static constexpr const char* typeName = "ChannelConfig";
    ChannelConfig() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    uint8_t number;
    uint8_t enabled;
    uint8_t attenuator;
    ChannelType type;
    SampleType sampleType;
    uint8_t pad0[3];
    uint32_t dataChannel;
    char id[16];
    char name[16];
    char siUnits[8];
    uint8_t pad1[4];
    double calibOffset;
    double calibScale;
    double calibScaleAtten1;
    double pgaGain;
    double scale;
    double offset;
    char process[32];
};

struct MeasurementConfig {
    static constexpr const char* typeName = "MeasurementConfig";
    MeasurementConfig() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    MeasureMode measureMode;
    uint8_t measureOptions; // MeasureOption bits
    uint8_t peakFilter;
    uint8_t pad0[1];
    TriggerMode triggerMode;
    TriggerConfig triggerConfig;
    uint8_t triggerChannel;
    uint8_t pad1[1];
    float triggerLevel;
    int32_t triggerDelay;
    double sampleRate;
    uint32_t numSamples0;
    uint32_t numSamples1;
    uint32_t numSamples2;
    uint32_t measurePeriod;
    uint32_t numSamplesBlock;
    uint8_t pad2[4];
    char description[64];
};

// The arbitrary waveform generator.
struct AwgConfig {
    static constexpr const char* typeName = "AwgConfig";
    AwgConfig() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    AwgMode mode;
    AwgOutput output;
    uint8_t trackChannel;
    uint8_t pad0[1];
    float frequency;
    float amplitude;
    float offset;
    float duty;
    uint32_t numSamples;
};

TAVRO_RECORD_SIZE(ChannelConfig, 136);
TAVRO_OFFSET(ChannelConfig, number, 0);
TAVRO_OFFSET(ChannelConfig, enabled, 1);
TAVRO_OFFSET(ChannelConfig, attenuator, 2);
TAVRO_OFFSET(ChannelConfig, type, 3);
TAVRO_OFFSET(ChannelConfig, sampleType, 4);
TAVRO_OFFSET(ChannelConfig, dataChannel, 8);
TAVRO_OFFSET(ChannelConfig, id, 12);
TAVRO_OFFSET(ChannelConfig, name, 28);
TAVRO_OFFSET(ChannelConfig, siUnits, 44);
TAVRO_OFFSET(ChannelConfig, calibOffset, 56);
TAVRO_OFFSET(ChannelConfig, calibScale, 64);
TAVRO_OFFSET(ChannelConfig, calibScaleAtten1, 72);
TAVRO_OFFSET(ChannelConfig, pgaGain, 80);
TAVRO_OFFSET(ChannelConfig, scale, 88);
TAVRO_OFFSET(ChannelConfig, offset, 96);
TAVRO_OFFSET(ChannelConfig, process, 104);
TAVRO_PAD(ChannelConfig, pad0, 5, 3);
TAVRO_PAD(ChannelConfig, pad1, 52, 4);

TAVRO_RECORD_SIZE(MeasurementConfig, 112);
TAVRO_OFFSET(MeasurementConfig, measureMode, 0);
TAVRO_OFFSET(MeasurementConfig, measureOptions, 1);
TAVRO_OFFSET(MeasurementConfig, peakFilter, 2);
TAVRO_OFFSET(MeasurementConfig, triggerMode, 4);
TAVRO_OFFSET(MeasurementConfig, triggerConfig, 5);
TAVRO_OFFSET(MeasurementConfig, triggerChannel, 6);
TAVRO_OFFSET(MeasurementConfig, triggerLevel, 8);
TAVRO_OFFSET(MeasurementConfig, triggerDelay, 12);
TAVRO_OFFSET(MeasurementConfig, sampleRate, 16);
TAVRO_OFFSET(MeasurementConfig, numSamples0, 24);
TAVRO_OFFSET(MeasurementConfig, numSamples1, 28);
TAVRO_OFFSET(MeasurementConfig, numSamples2, 32);
TAVRO_OFFSET(MeasurementConfig, measurePeriod, 36);
TAVRO_OFFSET(MeasurementConfig, numSamplesBlock, 40);
TAVRO_OFFSET(MeasurementConfig, description, 48);
TAVRO_PAD(MeasurementConfig, pad0, 3, 1);
TAVRO_PAD(MeasurementConfig, pad1, 7, 1);
TAVRO_PAD(MeasurementConfig, pad2, 44, 4);

TAVRO_RECORD_SIZE(AwgConfig, 24);
TAVRO_OFFSET(AwgConfig, mode, 0);
TAVRO_OFFSET(AwgConfig, output, 1);
TAVRO_OFFSET(AwgConfig, trackChannel, 2);
TAVRO_OFFSET(AwgConfig, frequency, 4);
TAVRO_OFFSET(AwgConfig, amplitude, 8);
TAVRO_OFFSET(AwgConfig, offset, 12);
TAVRO_OFFSET(AwgConfig, duty, 16);
TAVRO_OFFSET(AwgConfig, numSamples, 20);
TAVRO_PAD(AwgConfig, pad0, 3, 1);

} // namespace TavroApi

#endif
