#ifndef TAVRODATA_H
#define TAVRODATA_H

#include "tavrochannel.h"
#include "tavroenums.h"
#include "tavromember.h"
#include "tavronode.h"

#include <cstdint>
#include <cstring>
#include <type_traits>

// Data blocks pushed by a unit and the information block of a data file.
//
// DataBlock, DataBlockFloat and DataBlockProc begin with the same 24-byte
// header (DataBlockHeader): the fields are repeated in each record so that
// every record stays a flat standard-layout structure, and the offsets are
// proven identical below; copyDataBlockHeader copies the header between
// any two of them.

namespace TavroApi {

struct DataBlockHeader {
    static constexpr const char* typeName = "DataBlockHeader";
    DataBlockHeader() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    uint64_t time;
    uint16_t source;
    uint16_t status; // Status flags
    uint16_t numChannels;
    uint16_t numSamples;
    uint32_t sequence;
    DataType type;
    uint8_t pad0[3];
};

// A block as a unit sends it. In a raw block (DataType Raw40x) each sample is
// a row of numChannels words: rawAnalogue Float32 analogue values, then one
// word of digital input bits.
struct DataBlock {
    static constexpr const char* typeName = "DataBlock";
    static constexpr int dataMax = 118;
    static constexpr int rawAnalogue = 8;               // analogue values in a row
    static constexpr int rawRowWords = rawAnalogue + 1; // plus the digital word
    static constexpr int rawRowsMax = 13;               // rows in one block
    DataBlock() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    uint64_t time;
    uint16_t source;
    uint16_t status;
    uint16_t numChannels;
    uint16_t numSamples;
    uint32_t sequence;
    DataType type;
    uint8_t pad0[3];
    float data[dataMax];
};

// A block converted to 16 float channels of up to 13 samples.
struct DataBlockFloat {
    static constexpr const char* typeName = "DataBlockFloat";
    static constexpr int channelsMax = 16;
    static constexpr int samplesMax = 13;
    static constexpr int dataMax = channelsMax * samplesMax;
    DataBlockFloat() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    uint64_t time;
    uint16_t source;
    uint16_t status;
    uint16_t numChannels;
    uint16_t numSamples;
    uint32_t sequence;
    DataType type;
    uint8_t pad0[3];
    float data[dataMax];
};

// The processed values of one analogue channel.
struct DataProc {
    static constexpr const char* typeName = "DataProc";
    DataProc() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    float mean;
    float rms;
    float peakHigh;
    float peakLow;
    float power;
    uint8_t pad0[24];
    uint8_t alarm; // Bool
    uint8_t pad1[3];
};

// A block of processed values.
struct DataBlockProc {
    static constexpr const char* typeName = "DataBlockProc";
    static constexpr int analogueMax = 8;
    DataBlockProc() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    uint64_t time;
    uint16_t source;
    uint16_t status;
    uint16_t numChannels;
    uint16_t numSamples;
    uint32_t sequence;
    DataType type;
    uint8_t pad0[3];
    DataProc analogueData[analogueMax];
    uint32_t digitalData;
    float period;
};

// The information block at the start of a data file.
struct InfoBlock {
    static constexpr const char* typeName = "InfoBlock";
    InfoBlock() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    uint64_t time;
    uint16_t source;
    uint16_t numChannels;
    uint16_t version;
    TavdFileType fileType;
    DataType dataType;
    char name[16];
    char location[16];
    NodeInfo nodeInfo;
    MeasurementConfig measureConfig;
};

template <class T>
struct IsDataBlock : std::false_type {};
template <>
struct IsDataBlock<DataBlockHeader> : std::true_type {};
template <>
struct IsDataBlock<DataBlock> : std::true_type {};
template <>
struct IsDataBlock<DataBlockFloat> : std::true_type {};
template <>
struct IsDataBlock<DataBlockProc> : std::true_type {};

// Copies the 24-byte header (time to type, with its padding) from one block
// to another; the data of to is left as it is.
template <class To, class From>
void copyDataBlockHeader(To& to, const From& from) {
    static_assert(IsDataBlock<To>::value && IsDataBlock<From>::value, "data blocks");
    memcpy(static_cast<void*>(&to), static_cast<const void*>(&from), sizeof(DataBlockHeader));
}

#define TAVRO_DATA_BLOCK_HEADER(T)                                                                 \
    TAVRO_OFFSET(T, time, 0);                                                                      \
    TAVRO_OFFSET(T, source, 8);                                                                    \
    TAVRO_OFFSET(T, status, 10);                                                                   \
    TAVRO_OFFSET(T, numChannels, 12);                                                              \
    TAVRO_OFFSET(T, numSamples, 14);                                                               \
    TAVRO_OFFSET(T, sequence, 16);                                                                 \
    TAVRO_OFFSET(T, type, 20);                                                                     \
    TAVRO_PAD(T, pad0, 21, 3)

TAVRO_RECORD_SIZE(DataBlockHeader, 24);
TAVRO_DATA_BLOCK_HEADER(DataBlockHeader);

TAVRO_RECORD_SIZE(DataBlock, 496);
TAVRO_DATA_BLOCK_HEADER(DataBlock);
TAVRO_OFFSET(DataBlock, data, 24);
static_assert(DataBlock::rawRowWords * DataBlock::rawRowsMax <= DataBlock::dataMax,
              "a raw block fits");

TAVRO_RECORD_SIZE(DataBlockFloat, 856);
TAVRO_DATA_BLOCK_HEADER(DataBlockFloat);
TAVRO_OFFSET(DataBlockFloat, data, 24);

TAVRO_RECORD_SIZE(DataProc, 48);
TAVRO_OFFSET(DataProc, mean, 0);
TAVRO_OFFSET(DataProc, rms, 4);
TAVRO_OFFSET(DataProc, peakHigh, 8);
TAVRO_OFFSET(DataProc, peakLow, 12);
TAVRO_OFFSET(DataProc, power, 16);
TAVRO_OFFSET(DataProc, alarm, 44);
TAVRO_PAD(DataProc, pad0, 20, 24);
TAVRO_PAD(DataProc, pad1, 45, 3);

TAVRO_RECORD_SIZE(DataBlockProc, 416);
TAVRO_DATA_BLOCK_HEADER(DataBlockProc);
TAVRO_OFFSET(DataBlockProc, analogueData, 24);
TAVRO_OFFSET(DataBlockProc, digitalData, 408);
TAVRO_OFFSET(DataBlockProc, period, 412);

#undef TAVRO_DATA_BLOCK_HEADER

TAVRO_RECORD_SIZE(InfoBlock, 216);
TAVRO_OFFSET(InfoBlock, time, 0);
TAVRO_OFFSET(InfoBlock, source, 8);
TAVRO_OFFSET(InfoBlock, numChannels, 10);
TAVRO_OFFSET(InfoBlock, version, 12);
TAVRO_OFFSET(InfoBlock, fileType, 14);
TAVRO_OFFSET(InfoBlock, dataType, 15);
TAVRO_OFFSET(InfoBlock, name, 16);
TAVRO_OFFSET(InfoBlock, location, 32);
TAVRO_OFFSET(InfoBlock, nodeInfo, 48);
TAVRO_OFFSET(InfoBlock, measureConfig, 104);

} // namespace TavroApi

#endif
