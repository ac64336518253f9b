#ifndef TAVROMISC_H
#define TAVROMISC_H

#include "tavroenums.h"
#include "tavromember.h"

#include <cstdint>

// WiFi access points, the serial port and the device streams (serial and
// I2C transfers through a unit's digital pins).

namespace TavroApi {

struct WifiAccessPoint {
    static constexpr const char* typeName = "WifiAccessPoint";
    WifiAccessPoint() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    char name[36];
    int32_t signalLevel;
    uint8_t channel;
    uint8_t auth;
    uint8_t pad0[2];
};

struct SerialConfig {
    static constexpr const char* typeName = "SerialConfig";
    SerialConfig() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    uint8_t enable;   // Bool
    uint8_t enableTx; // Bool
    uint8_t enableRx; // Bool
    uint8_t numBits;
    uint8_t numStopBits;
    uint8_t pad0[3];
    uint32_t baudRate;
};

// Data of a stream; length counts the bytes in use (at most dataMax, which
// a receiver must check).
struct StreamData {
    static constexpr const char* typeName = "StreamData";
    static constexpr uint32_t dataMax = 64;
    StreamData() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    uint32_t stream; // Stream
    uint32_t status;
    uint32_t length;
    uint8_t data[dataMax];
};

struct DevConfig {
    static constexpr const char* typeName = "DevConfig";
    DevConfig() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    uint8_t stream; // Stream
    uint8_t enable; // Bool
    uint8_t slave;  // Bool
    uint8_t pad0[1];
    uint32_t bitRate;
};

// A transaction on a stream: txNum bytes of data sent, rxNum bytes expected
// back (each at most dataMax, which a receiver must check).
struct Transact {
    static constexpr const char* typeName = "Transact";
    static constexpr uint16_t dataMax = 256;
    Transact() { zeroRecord(this); }
    static const ZObjMember* getMembers();

    uint16_t txNum;
    uint16_t rxNum;
    uint8_t stream; // Stream
    uint8_t devAddress;
    uint8_t mode;
    uint8_t rxGap;
    uint8_t data[dataMax];
};

TAVRO_RECORD_SIZE(WifiAccessPoint, 44);
TAVRO_OFFSET(WifiAccessPoint, name, 0);
TAVRO_OFFSET(WifiAccessPoint, signalLevel, 36);
TAVRO_OFFSET(WifiAccessPoint, channel, 40);
TAVRO_OFFSET(WifiAccessPoint, auth, 41);
TAVRO_PAD(WifiAccessPoint, pad0, 42, 2);

TAVRO_RECORD_SIZE(SerialConfig, 12);
TAVRO_OFFSET(SerialConfig, enable, 0);
TAVRO_OFFSET(SerialConfig, enableTx, 1);
TAVRO_OFFSET(SerialConfig, enableRx, 2);
TAVRO_OFFSET(SerialConfig, numBits, 3);
TAVRO_OFFSET(SerialConfig, numStopBits, 4);
TAVRO_OFFSET(SerialConfig, baudRate, 8);
TAVRO_PAD(SerialConfig, pad0, 5, 3);

TAVRO_RECORD_SIZE(StreamData, 76);
TAVRO_OFFSET(StreamData, stream, 0);
TAVRO_OFFSET(StreamData, status, 4);
TAVRO_OFFSET(StreamData, length, 8);
TAVRO_OFFSET(StreamData, data, 12);

TAVRO_RECORD_SIZE(DevConfig, 8);
TAVRO_OFFSET(DevConfig, stream, 0);
TAVRO_OFFSET(DevConfig, enable, 1);
TAVRO_OFFSET(DevConfig, slave, 2);
TAVRO_OFFSET(DevConfig, bitRate, 4);
TAVRO_PAD(DevConfig, pad0, 3, 1);

TAVRO_RECORD_SIZE(Transact, 264);
TAVRO_OFFSET(Transact, txNum, 0);
TAVRO_OFFSET(Transact, rxNum, 2);
TAVRO_OFFSET(Transact, stream, 4);
TAVRO_OFFSET(Transact, devAddress, 5);
TAVRO_OFFSET(Transact, mode, 6);
TAVRO_OFFSET(Transact, rxGap, 7);
TAVRO_OFFSET(Transact, data, 8);

} // namespace TavroApi

#endif
