#ifndef TAVRONODE_H
#define TAVRONODE_H

#include "tavroenums.h"
#include "tavromember.h"

#include <cstdint>

// Records describing a unit: its versions, identity, status, board data,
// information and calibration steps.

namespace TavroApi {

struct ApiVersion {
    static constexpr const char* typeName = "ApiVersion";
    ApiVersion() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    uint16_t mid; // minor
    uint16_t maj; // major
};

struct Version {
    static constexpr const char* typeName = "Version";
    Version() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    uint8_t type;
    uint8_t ver0;
    uint8_t ver1;
    uint8_t ver2;
};

struct NodeInfo {
    static constexpr const char* typeName = "NodeInfo";
    NodeInfo() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    ApiVersion apiVersion;
    Version hardwareVersion;
    Version fpgaVersion;
    Version wifiVersion;
    Version softwareVersion;
    char variant[12];
    char serialNumber[12];
    SecurityMode securityMode;
    uint8_t pad0[3];
    uint32_t apiSubVersion;
    uint8_t pad1[4];
};

struct NodeStatus {
    static constexpr const char* typeName = "NodeStatus";
    NodeStatus() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    ZTimeUs time;
    uint32_t status; // Status flags
    uint32_t error;
    char errorStr[32];
    Mode mode;
    uint8_t ethernetStatus;
    uint8_t wifiStatus;
    uint8_t pad0[13];
};

// Factory data of a unit's board: identity and calibration.
struct BoardConfig {
    static constexpr const char* typeName = "BoardConfig";
    BoardConfig() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    uint32_t magic;
    Version hardwareVersion;
    char serialNumber[12];
    ZTime buildTime;
    uint8_t macAddress[6];
    uint8_t testMode;
    uint8_t pad0[1];
    ZTime calibTime;
    float calibTemp;
    double calibDacOffsets[2];
    double calibDacScales[2];
    double calibAdcOffsets[8];
    double calibAdcScales[8];
    double calibAttenScales[8];
    double calibFiveVolts;
    Version fpgaVersion;
    Version wifiVersion;
    uint8_t pad1[32];
};

struct Information {
    static constexpr const char* typeName = "Information";
    Information() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    NodeInfo nodeInfo;
    uint8_t numConfigItems;
    uint8_t numChannels;
    uint8_t pad0[6];
    ZTimeUs time;
    uint32_t networkMode;
    uint8_t networkMacAddress[6];
    uint8_t pad1[2];
    uint32_t networkAddress;
    uint32_t networkMask;
    uint32_t networkGateway;
    uint32_t networkNameServer0;
    uint32_t networkTimeServer;
    uint32_t wifiMode;
    uint8_t wifiMacAddress[6];
    uint8_t pad2[2];
    uint32_t wifiAddress;
    uint32_t wifiMask;
    uint32_t wifiGateway;
    ZTime calibTime;
    uint8_t pad3[28];
};

struct CalibrateInfo {
    static constexpr const char* typeName = "CalibrateInfo";
    CalibrateInfo() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    uint32_t stage; // CalibrateStage
    uint8_t pad0[4];
    double calibrateFrequency;
    double calibrateAmplitude;
    double calibrateTime;
    double value;
    uint32_t channelMask;
    uint32_t numAverage;
    double sampleRate;
};

TAVRO_RECORD_SIZE(ApiVersion, 4);
TAVRO_OFFSET(ApiVersion, mid, 0);
TAVRO_OFFSET(ApiVersion, maj, 2);

TAVRO_RECORD_SIZE(Version, 4);
TAVRO_OFFSET(Version, type, 0);
TAVRO_OFFSET(Version, ver0, 1);
TAVRO_OFFSET(Version, ver1, 2);
TAVRO_OFFSET(Version, ver2, 3);

TAVRO_RECORD_SIZE(NodeInfo, 56);
TAVRO_OFFSET(NodeInfo, apiVersion, 0);
TAVRO_OFFSET(NodeInfo, hardwareVersion, 4);
TAVRO_OFFSET(NodeInfo, fpgaVersion, 8);
TAVRO_OFFSET(NodeInfo, wifiVersion, 12);
TAVRO_OFFSET(NodeInfo, softwareVersion, 16);
TAVRO_OFFSET(NodeInfo, variant, 20);
TAVRO_OFFSET(NodeInfo, serialNumber, 32);
TAVRO_OFFSET(NodeInfo, securityMode, 44);
TAVRO_OFFSET(NodeInfo, apiSubVersion, 48);
TAVRO_PAD(NodeInfo, pad0, 45, 3);
TAVRO_PAD(NodeInfo, pad1, 52, 4);

TAVRO_RECORD_SIZE(NodeStatus, 64);
TAVRO_OFFSET(NodeStatus, time, 0);
TAVRO_OFFSET(NodeStatus, status, 8);
TAVRO_OFFSET(NodeStatus, error, 12);
TAVRO_OFFSET(NodeStatus, errorStr, 16);
TAVRO_OFFSET(NodeStatus, mode, 48);
TAVRO_OFFSET(NodeStatus, ethernetStatus, 49);
TAVRO_OFFSET(NodeStatus, wifiStatus, 50);
TAVRO_PAD(NodeStatus, pad0, 51, 13);

TAVRO_RECORD_SIZE(BoardConfig, 312);
TAVRO_OFFSET(BoardConfig, magic, 0);
TAVRO_OFFSET(BoardConfig, hardwareVersion, 4);
TAVRO_OFFSET(BoardConfig, serialNumber, 8);
TAVRO_OFFSET(BoardConfig, buildTime, 20);
TAVRO_OFFSET(BoardConfig, macAddress, 24);
TAVRO_OFFSET(BoardConfig, testMode, 30);
TAVRO_OFFSET(BoardConfig, calibTime, 32);
TAVRO_OFFSET(BoardConfig, calibTemp, 36);
TAVRO_OFFSET(BoardConfig, calibDacOffsets, 40);
TAVRO_OFFSET(BoardConfig, calibDacScales, 56);
TAVRO_OFFSET(BoardConfig, calibAdcOffsets, 72);
TAVRO_OFFSET(BoardConfig, calibAdcScales, 136);
TAVRO_OFFSET(BoardConfig, calibAttenScales, 200);
TAVRO_OFFSET(BoardConfig, calibFiveVolts, 264);
TAVRO_OFFSET(BoardConfig, fpgaVersion, 272);
TAVRO_OFFSET(BoardConfig, wifiVersion, 276);
TAVRO_PAD(BoardConfig, pad0, 31, 1);
TAVRO_PAD(BoardConfig, pad1, 280, 32);

TAVRO_RECORD_SIZE(Information, 160);
TAVRO_OFFSET(Information, nodeInfo, 0);
TAVRO_OFFSET(Information, numConfigItems, 56);
TAVRO_OFFSET(Information, numChannels, 57);
TAVRO_OFFSET(Information, time, 64);
TAVRO_OFFSET(Information, networkMode, 72);
TAVRO_OFFSET(Information, networkMacAddress, 76);
TAVRO_OFFSET(Information, networkAddress, 84);
TAVRO_OFFSET(Information, networkMask, 88);
TAVRO_OFFSET(Information, networkGateway, 92);
TAVRO_OFFSET(Information, networkNameServer0, 96);
TAVRO_OFFSET(Information, networkTimeServer, 100);
TAVRO_OFFSET(Information, wifiMode, 104);
TAVRO_OFFSET(Information, wifiMacAddress, 108);
TAVRO_OFFSET(Information, wifiAddress, 116);
TAVRO_OFFSET(Information, wifiMask, 120);
TAVRO_OFFSET(Information, wifiGateway, 124);
TAVRO_OFFSET(Information, calibTime, 128);
TAVRO_PAD(Information, pad0, 58, 6);
TAVRO_PAD(Information, pad1, 82, 2);
TAVRO_PAD(Information, pad2, 114, 2);
TAVRO_PAD(Information, pad3, 132, 28);

TAVRO_RECORD_SIZE(CalibrateInfo, 56);
TAVRO_OFFSET(CalibrateInfo, stage, 0);
TAVRO_OFFSET(CalibrateInfo, calibrateFrequency, 8);
TAVRO_OFFSET(CalibrateInfo, calibrateAmplitude, 16);
TAVRO_OFFSET(CalibrateInfo, calibrateTime, 24);
TAVRO_OFFSET(CalibrateInfo, value, 32);
TAVRO_OFFSET(CalibrateInfo, channelMask, 40);
TAVRO_OFFSET(CalibrateInfo, numAverage, 44);
TAVRO_OFFSET(CalibrateInfo, sampleRate, 48);
TAVRO_PAD(CalibrateInfo, pad0, 4, 4);

} // namespace TavroApi

#endif
