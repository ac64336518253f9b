#ifndef TAVROCONFIG_H
#define TAVROCONFIG_H

#include "tavroenums.h"
#include "tavromember.h"

#include <cstdint>

// A unit's general configuration: identity, modes, network, RS485, WiFi,
// alarms, MQTT and e-mail events.

namespace TavroApi {

struct AlarmConfig {
    static constexpr const char* typeName = "AlarmConfig";
    AlarmConfig() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    AlarmMode mode;
    AlarmOutput output;
    uint8_t outputChannel;
    uint8_t pad0[1];
    float levelHigh;
    float levelLow;
    uint8_t pad1[4];
};

struct Configuration {
    static constexpr const char* typeName = "Configuration";
    static constexpr int numAlarms = 16;
    Configuration() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    uint32_t version;
    char name[16];
    char location[16];
    Mode mode;
    SecurityMode securityMode;
    uint8_t logData;     // LogData
    uint8_t logDataMode; // LogDataMode
    uint8_t logDataDevice;
    uint8_t source;
    uint8_t sampleFrequencyMode;
    DigitalMode digitalMode;
    uint8_t digitalPins[8]; // DigPinMode of each pin
    NetworkMode networkMode;
    uint8_t pad0[3];
    uint32_t networkAddress;
    uint32_t networkMask;
    uint32_t networkGateway;
    uint32_t networkNameServer0;
    uint32_t networkTimeServer;
    Rs485Mode rs485Mode;
    uint8_t rs485Bits;
    uint8_t rs485StopBits;
    uint8_t pad1[1];
    uint32_t rs485BaudRate;
    WifiMode wifiMode;
    uint8_t pad2[3];
    char wifiAp0[32];
    uint8_t pad3[32];
    AlarmConfig alarms[numAlarms];
    EventMode mqttMode;
    uint8_t pad4[3];
    char mqttServer[32];
    uint32_t mqttPort;
    EventMode emailMode;
    uint8_t pad5[3];
    char emailAddress[32];
    char program[32];
};

// One named configuration item of a unit.
struct ConfigItem {
    static constexpr const char* typeName = "ConfigItem";
    ConfigItem() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    char name[16];
    uint8_t type;
    uint8_t pad0[7];
    char value[16];
};

TAVRO_RECORD_SIZE(AlarmConfig, 16);
TAVRO_OFFSET(AlarmConfig, mode, 0);
TAVRO_OFFSET(AlarmConfig, output, 1);
TAVRO_OFFSET(AlarmConfig, outputChannel, 2);
TAVRO_OFFSET(AlarmConfig, levelHigh, 4);
TAVRO_OFFSET(AlarmConfig, levelLow, 8);
TAVRO_PAD(AlarmConfig, pad0, 3, 1);
TAVRO_PAD(AlarmConfig, pad1, 12, 4);

TAVRO_RECORD_SIZE(Configuration, 516);
TAVRO_OFFSET(Configuration, version, 0);
TAVRO_OFFSET(Configuration, name, 4);
TAVRO_OFFSET(Configuration, location, 20);
TAVRO_OFFSET(Configuration, mode, 36);
TAVRO_OFFSET(Configuration, securityMode, 37);
TAVRO_OFFSET(Configuration, logData, 38);
TAVRO_OFFSET(Configuration, logDataMode, 39);
TAVRO_OFFSET(Configuration, logDataDevice, 40);
TAVRO_OFFSET(Configuration, source, 41);
TAVRO_OFFSET(Configuration, sampleFrequencyMode, 42);
TAVRO_OFFSET(Configuration, digitalMode, 43);
TAVRO_OFFSET(Configuration, digitalPins, 44);
TAVRO_OFFSET(Configuration, networkMode, 52);
TAVRO_OFFSET(Configuration, networkAddress, 56);
TAVRO_OFFSET(Configuration, networkMask, 60);
TAVRO_OFFSET(Configuration, networkGateway, 64);
TAVRO_OFFSET(Configuration, networkNameServer0, 68);
TAVRO_OFFSET(Configuration, networkTimeServer, 72);
TAVRO_OFFSET(Configuration, rs485Mode, 76);
TAVRO_OFFSET(Configuration, rs485Bits, 77);
TAVRO_OFFSET(Configuration, rs485StopBits, 78);
TAVRO_OFFSET(Configuration, rs485BaudRate, 80);
TAVRO_OFFSET(Configuration, wifiMode, 84);
TAVRO_OFFSET(Configuration, wifiAp0, 88);
TAVRO_OFFSET(Configuration, alarms, 152);
TAVRO_OFFSET(Configuration, mqttMode, 408);
TAVRO_OFFSET(Configuration, mqttServer, 412);
TAVRO_OFFSET(Configuration, mqttPort, 444);
TAVRO_OFFSET(Configuration, emailMode, 448);
TAVRO_OFFSET(Configuration, emailAddress, 452);
TAVRO_OFFSET(Configuration, program, 484);
TAVRO_PAD(Configuration, pad0, 53, 3);
TAVRO_PAD(Configuration, pad1, 79, 1);
TAVRO_PAD(Configuration, pad2, 85, 3);
TAVRO_PAD(Configuration, pad3, 120, 32);
TAVRO_PAD(Configuration, pad4, 409, 3);
TAVRO_PAD(Configuration, pad5, 449, 3);

TAVRO_RECORD_SIZE(ConfigItem, 40);
TAVRO_OFFSET(ConfigItem, name, 0);
TAVRO_OFFSET(ConfigItem, type, 16);
TAVRO_OFFSET(ConfigItem, value, 24);
TAVRO_PAD(ConfigItem, pad0, 17, 7);

} // namespace TavroApi

#endif
