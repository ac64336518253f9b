#ifndef SIMMDNS_H
#define SIMMDNS_H

#include "simlink.h"
#include "zerror.h"
#include "zsocket.h"
#include "zstring.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace TavroSim {

// What the unit announces for "_tavro._tcp.local.".
struct SimMdnsUnit {
    ZString serial;          // instance name, host name and TXT "serial=..."
    uint32_t address = 0;    // the A record, host order
    unsigned short port = 0; // the SRV record's port: the unit's TCP server
};

const unsigned int SimMdnsPort = 5353;
const uint32_t SimMdnsGroup = 0xE00000FB; // 224.0.0.251
// No reply of ours is longer; a smaller buffer gets no reply at all.
const unsigned int SimMdnsReplyMax = 512;

// The host name a unit announces for its serial: "t400-000001" for
// "T400-000001" (lower case, anything but letters, digits and '-' made '-').
ZString simMdnsHostName(const ZString& serial);

// The answer of the unit to one received datagram, written to out: its
// length, or 0 when the datagram is not a well-formed standard query with a
// question for "_tavro._tcp.local." of type PTR or ANY, class IN or ANY.
// Names in the query may use compression; they are read strictly (pointers
// only backwards, no reserved label types, at most 255 bytes) and nothing
// outside query[0, size) is read.
//
// The answer, as a unit gives it: the query's id, flags 0x8400, the
// matching question echoed as it came; PTR in the answer section (name a
// pointer to the question, data the instance "<serial>" and a pointer to
// the question); SRV (priority 0, weight 0, the port, the target
// "<host>.local." in plain labels ending in a zero byte), TXT
// "serial=<serial>" and A in the additional section, their names pointers
// to the instance and the host. sourcePort is the query's: a query from a
// port other than 5353 (a one-shot querier) gets records of class IN with a
// time to live of 10 s; otherwise unique records carry the cache-flush bit.
unsigned int simMdnsAnswer(const unsigned char* query, size_t size, unsigned int sourcePort,
                           const SimMdnsUnit& unit, unsigned char* out, unsigned int outSize);

// The unit's mDNS responder: a UDP socket on port 5353 (shared with other
// responders by SO_REUSEADDR), member of 224.0.0.251, answering each query
// for the unit unicast to the query's source address and port.
class SimMdns {
public:
    SimMdns();
    ~SimMdns();
    SimMdns(const SimMdns&) = delete;
    SimMdns& operator=(const SimMdns&) = delete;

    // Joins the group on the interface that has `interfaceAddress` (host
    // order; 0 picks the interface by the routing table) and starts
    // answering. With unit.address 0 the A record carries the address by
    // which this host reaches the querier.
    ZError start(const SimMdnsUnit& unit, uint32_t interfaceAddress);
    // Ends the thread and closes the socket. Harmless twice.
    void stop();

    unsigned int answered() const { return oanswered; }

private:
    void run();
    uint32_t localAddressFor(const ZSocketAddressINET& peer) const;

    SimMdnsUnit ounit;
    ZSocket osocket;
    int owake;
    std::atomic<bool> ostopping;
    std::atomic<unsigned int> oanswered;
    SimThread othread;
};

} // namespace TavroSim

#endif
