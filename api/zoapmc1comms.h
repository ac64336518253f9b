#ifndef ZOAPMC1COMMS_H
#define ZOAPMC1COMMS_H

#include "zcomms.h"
#include "zdatachunk.h"
#include "zerror.h"
#include "zmutex.h"
#include "zsemaphore.h"

#include <atomic>
#include <cstdint>
#include <memory>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "Zoap packets are the little-endian memory image of their fields");

// The protocol version of an interface: major in the upper 16 bits, minor in
// the lower 16 bits (1.0 is 0x00010000).
class ZoapMc1ApiVer {
public:
    ZoapMc1ApiVer(uint32_t version = 0) : oversion(version) {}
    ZoapMc1ApiVer(unsigned short majorNo, unsigned short minorNo)
        : oversion(uint32_t(majorNo) << 16 | minorNo) {}

    operator uint32_t() const { return oversion; }
    unsigned short majorNo() const { return oversion >> 16; }
    unsigned short minorNo() const { return oversion & 0xFFFF; }

private:
    uint32_t oversion;
};

// The 16-byte header in front of every packet.
struct ZoapMc1Header {
    uint16_t magic;  // "ZU": 0x5A, 0x55
    uint16_t length; // whole packet, header included
    uint16_t destination;
    uint16_t source;
    uint16_t function; // bit 15 set in a reply
    uint16_t status;   // 0, or 1 in an error reply
    uint32_t reserved;
};
static_assert(sizeof(ZoapMc1Header) == 16, "Zoap header is 16 bytes");

// The error record closing every reply.
struct ZoapMc1ErrorRecord {
    int16_t number;
    char text[38]; // zero-terminated when it fits; a sender writes at most 32 characters
};
static_assert(sizeof(ZoapMc1ErrorRecord) == 40, "Zoap error record is 40 bytes");

// A request/reply channel to one unit over a byte or packet transport.
//
// The application calls out with packetTx (one exchange at a time under the
// transmit mutex) and reads the reply's fields with packetRxData and
// packetRxEnd. Replies and the unit's own requests come in through processRx:
// in threaded mode a receive thread calls it in a loop and hands each awaited
// reply header to the waiting requester (replyArrived), then waits until the
// requester has read the payload (replyDone) before it reads the next header;
// in polled mode packetTx calls it itself while the transport has input.
// Requests from the unit go to processRequest, which a subclass overrides.
//
// Only one request may be outstanding; a reply is matched by its function
// number. A reply that comes after its time-out is still taken for the
// awaited one when no other function was called in the meantime (also when
// the same function is called again); otherwise it is "Currupt packet".
//
// The receive and transmit buffers hold maxPacket bytes each. A channel made
// with maxPacket below 32 is refused: every exchange then returns the
// construction error and nothing is ever read into the buffers.
class ZoapMc1Comms {
public:
    static constexpr uint16_t Magic = 0x555A;
    static constexpr uint16_t ReplyBit = 0x8000;
    static constexpr unsigned int HeaderSize = sizeof(ZoapMc1Header);
    static constexpr unsigned int ErrorRecordSize = sizeof(ZoapMc1ErrorRecord);
    static constexpr unsigned int ErrorTextMax = 32;
    static constexpr unsigned int MinPacket = 32;
    static constexpr unsigned int DefaultTimeout = 2000000;

    ZoapMc1Comms(bool threaded, unsigned int maxPacket);
    virtual ~ZoapMc1Comms();
    ZoapMc1Comms(const ZoapMc1Comms&) = delete;
    ZoapMc1Comms& operator=(const ZoapMc1Comms&) = delete;

    // The transport is not owned; a null pointer detaches it. A call waiting
    // for its reply when the transport goes (a dropped link, a disconnect)
    // is woken at once and meets "No connection" instead of its time-out.
    void setComms(ZComms& comms) { ocomms = &comms; }
    void setComms(ZComms* comms);
    ZComms* comms() const { return ocomms; }

    void setAddress(unsigned short destination, unsigned short source);
    unsigned short destination() const { return odestination; }
    unsigned short source() const { return osource; }
    // Sets the reply time-out (microseconds) and returns the one it replaces.
    unsigned int setTimeout(unsigned int timeoutUs) { return otimeout.exchange(timeoutUs); }
    unsigned int timeout() const { return otimeout; }
    void setCommsMode(bool on) { ocommsMode = on; }
    bool commsMode() const { return ocommsMode; }
    ZoapMc1ApiVer getApiVersion() const { return oapiVersion; }
    bool threaded() const { return othreaded; }
    unsigned int maxPacket() const { return omaxPacket; }
    // Success, or why the channel was refused at construction.
    ZError status() const { return ostatus; }

    // The receive buffer: the header of the packet last received, then its payload.
    uint8_t* packetRx() { return orx.get(); }
    // A copy of the header in the receive buffer.
    ZoapMc1Header rxHeader() const;

    // Sends one packet of n chunks, the header first. With a replyFunction
    // other than 0 it then waits for that function's reply header; the caller
    // reads the reply's fields with packetRxData and ends with packetRxEnd.
    ZError packetTx(ZDataChunk* chunks, unsigned int n, unsigned short replyFunction);
    // Reads exactly len payload bytes of the reply now being received. Asking
    // for more than the reply holds reads off the rest of it, leaves data
    // untouched and gives 6 "Currupt packet".
    ZError packetRxData(void* data, unsigned int len);
    // The reply has been read: reads off anything the caller left of it and
    // lets the receive side go on.
    ZError packetRxEnd();

    // Called before a request from the unit is served.
    virtual ZError validate();
    // Receives and handles one packet: a reply or a request from the unit.
    virtual ZError processRx();
    // processRx when a transport is attached.
    virtual ZError processRequests();
    // Serves the request whose header is in the receive buffer.
    virtual ZError processRequest();

protected:
    void setApiVersion(ZoapMc1ApiVer version) { oapiVersion = version; }
    uint8_t* packetTxBuffer() { return otx.get(); }

    // Reads exactly len bytes from the transport. In packet mode a read that
    // comes back short has met the end of the packet: 6 "ZoapMc1 packet data
    // error".
    ZError readFully(ZComms& comms, void* data, unsigned int len);
    // Reads the request's payload (length - 16 bytes) behind its header.
    ZError readRequestPayload();
    // Writes a reply whose results (resultLen bytes) are already in the
    // transmit buffer behind the header, followed by the error record of err.
    ZError sendReply(unsigned int resultLen, const ZError& err);
    // Writes an error reply (status 1, error record only) to the request in
    // the receive buffer.
    ZError sendErrorReply(const ZError& err);

    static ZError noConnection() { return ZError(5, "No connection"); }
    static ZError corrupt() { return ZError(6, "Currupt packet"); }
    static void putErrorRecord(ZoapMc1ErrorRecord& record, const ZError& err);
    static ZError getErrorRecord(const ZoapMc1ErrorRecord& record);

private:
    bool goodHeader() const;
    ZError resynchronise(ZComms& comms);
    void fillReplyHeader(ZoapMc1Header& h, unsigned int length, uint16_t status) const;
    ZError writeAll(ZComms& comms, const void* data, unsigned int len);
    ZError discard(ZComms& comms, unsigned int len);

    const bool othreaded;
    const unsigned int omaxPacket;
    ZError ostatus;
    std::atomic<ZComms*> ocomms;
    ZoapMc1ApiVer oapiVersion;
    bool ocommsMode;
    std::atomic<uint32_t> otimeout;
    std::atomic<uint16_t> odestination;
    std::atomic<uint16_t> osource;
    std::unique_ptr<uint8_t[]> orx;
    std::unique_ptr<uint8_t[]> otx;
    std::atomic<uint16_t> oreplyExpected;
    // Payload bytes of the current reply not yet read; -1 while no reply
    // header has been seen for the exchange (reads then go unchecked).
    std::atomic<int32_t> oreplyLeft;
    ZMutex otxMutex; // one whole exchange at a time
    ZMutex orxMutex; // one reader of packet headers at a time
    ZSemaphore oreplyArrived;
    ZSemaphore oreplyDone;
};

#endif
