#ifndef ZMDNS_H
#define ZMDNS_H

#include "zerror.h"
#include "zlist.h"
#include "zsocket.h"
#include "zstring.h"

#include <cstddef>
#include <cstdint>

// One unit found on the local network: its IPv4 address and port,
// its host name from the SRV record ("host.local.") and its TXT strings in
// arrival order.
struct ZMdnsService {
    ZSocketAddressINET address;
    ZString name;
    ZList<ZString> texts;
};

// A received datagram. Every read below is checked against `size`: a
// datagram is untrusted input.
struct ZMdnsPacket {
    const unsigned char* data;
    unsigned int size;
};

// Returned by the readers below when the bytes they would read lie past the
// end of the packet (or, for mdns_read_name, when the name is not a valid
// RFC 1035 name). Any other result is the number of bytes consumed.
const int MdnsMalformed = -1;

// One step of a name at `position` (quirks kept): a compression
// pointer yields the single label found at its target and consumes 2 bytes
// (the rest of the name the target leads on to is not followed); a label of
// length n yields that label and consumes n + 1; a zero byte yields nothing
// and consumes 0.
int mdns_read_string(const ZMdnsPacket& packet, unsigned int position, ZString& out);

// A whole name as the Part reads it: labels by mdns_read_string while the
// byte at the position is not zero, each appended with "."; returns the
// bytes consumed plus 1.
int mdns_read_strings(const ZMdnsPacket& packet, unsigned int position, ZString& out);

// A standard RFC 1035 name decoder: follows compression pointers to the end
// of the name (at most MdnsMaxPointerHops jumps, at most 255 bytes of name),
// refuses the reserved label types 0x40 and 0x80. The result is dotted labels
// each followed by "." ("" for the root name); returns the bytes the name
// occupies at `position` (up to and including its first pointer or its zero
// byte).
const int MdnsMaxPointerHops = 127;
int mdns_read_name(const ZMdnsPacket& packet, unsigned int position, ZString& out);

// The discovery query: a PTR question for "_tavro._tcp.local." with class
// 0x8001 (unicast reply asked for). Writes MdnsQuerySize bytes.
const unsigned int MdnsQuerySize = 35;
void mdnsBuildQuery(uint16_t id, unsigned char out[MdnsQuerySize]);

// What became of one received datagram.
enum class ZMdnsReply {
    Accepted,  // a reply to our query: `out` holds the service it describes
    Ignored,   // another id, flags other than 0x8400, no question or another service
    Malformed, // a count, label, pointer or record runs past the datagram's end
};

// Parses one datagram as a reply to the query with `id` for `service`.
// Reads nothing outside data[0, size). Only an
// Accepted reply leaves a meaningful `out`. Records of type A, SRV and TXT in
// the answer section (as standard responders such as avahi send them to a
// legacy unicast query) are used like those of the additional section, with
// the SRV target read by mdns_read_name.
ZMdnsReply mdnsParseReply(const unsigned char* data, size_t size, uint16_t id,
                          const ZString& service, ZMdnsService& out);

// Multicast DNS discovery: one query, one socket, answers collected until a
// receive time-out.
class ZMdns {
public:
    ZMdns();
    ~ZMdns();
    ZMdns(const ZMdns&) = delete;
    ZMdns& operator=(const ZMdns&) = delete;

    // UDP socket, bound to the wildcard address and port 0, multicast TTL 1
    // and loop 1, member of 224.0.0.251 on the default interface.
    ZError init();
    // Sends the query and collects one service per accepted reply until no
    // datagram comes for timeoutMs; that time-out is success.
    ZError findServices(ZString service, unsigned int timeoutMs, ZList<ZMdnsService>& found);

    // The id of the last query sent (0 before the first).
    uint32_t counter() const { return ocounter; }
    ZSocket& socket() { return osocket; }

private:
    ZSocket osocket;
    uint32_t ocounter;
};

#endif
