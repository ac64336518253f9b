#include "zmdns.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <climits>
#include <cstring>

namespace {

const uint16_t TypeA = 1;
const uint16_t TypePTR = 12;
const uint16_t TypeTXT = 16;
const uint16_t TypeSRV = 33;
const uint16_t ReplyFlags = 0x8400;
const unsigned int HeaderSize = 12;
const unsigned int DatagramSize = 1024;
const uint32_t MdnsGroup = 0xE00000FB; // 224.0.0.251
const unsigned int MdnsPort = 5353;

uint16_t get16(const unsigned char* p) {
    return uint16_t((p[0] << 8) | p[1]);
}

void put16(unsigned char* p, uint16_t v) {
    p[0] = uint8_t(v >> 8);
    p[1] = uint8_t(v);
}

// Exact equality, length included: labels may carry zero bytes, which a
// plain C-string comparison would stop at.
bool sameText(const ZString& a, const ZString& b) {
    return a.len() == b.len() && memcmp(a.retStr(), b.retStr(), size_t(a.len())) == 0;
}

// One record of a section, located the Part's way (step 5): labels are read
// while mdns_read_string returns non-zero; the position of the first zero
// result is the start of the fixed part. Fails when anything lies past the end.
struct Record {
    unsigned int fixed; // type, class, ttl, data length
    uint16_t type;
    unsigned int data; // first data byte
    unsigned int dataLength;
    unsigned int end; // first byte after the record
};

bool readRecord(const ZMdnsPacket& p, unsigned int position, Record& r) {
    ZString label;
    for (;;) {
        int n = mdns_read_string(p, position, label);
        if (n < 0)
            return false;
        if (n == 0)
            break;
        position += unsigned(n);
    }
    if (size_t(position) + 10 > p.size)
        return false;
    r.fixed = position;
    r.type = get16(p.data + position);
    r.dataLength = get16(p.data + position + 8);
    r.data = position + 10;
    if (size_t(r.data) + r.dataLength > p.size)
        return false;
    r.end = r.data + r.dataLength;
    return true;
}

// Uses an A, SRV or TXT record for the service (step 6). `standardNames`
// selects the RFC 1035 decoder for the SRV target (answer-section records)
// instead of the Part's mdns_read_strings (additional-section records).
// Fails when the record's content does not fit its data or the datagram.
bool useRecord(const ZMdnsPacket& p, const Record& r, bool standardNames, ZMdnsService& s) {
    const unsigned char* d = p.data + r.data;
    switch (r.type) {
    case TypeA: {
        if (r.dataLength < 4)
            return false;
        uint32_t a = (uint32_t(d[0]) << 24) | (uint32_t(d[1]) << 16) | (uint32_t(d[2]) << 8) | d[3];
        s.address.set(a, s.address.port());
        return true;
    }
    case TypeSRV: {
        if (r.dataLength < 6)
            return false;
        ZString target;
        if (standardNames) {
            int n = mdns_read_name(p, r.data + 6, target);
            if (n < 0 || r.data + 6 + unsigned(n) > r.end)
                return false;
        } else if (mdns_read_strings(p, r.data + 6, target) < 0) {
            return false;
        }
        s.address.setPort(get16(d + 4));
        s.name = target;
        return true;
    }
    case TypeTXT: {
        if (r.dataLength < 1 || 1u + d[0] > r.dataLength)
            return false;
        ZString text;
        text.append(reinterpret_cast<const char*>(d + 1), d[0]);
        s.texts.append(text);
        return true;
    }
    default:
        return true;
    }
}

} // namespace

int mdns_read_string(const ZMdnsPacket& p, unsigned int position, ZString& out) {
    out.clear();
    if (position >= p.size)
        return MdnsMalformed;
    unsigned int n = p.data[position];
    if ((n & 0xC0) == 0xC0) {
        // Compression pointer: only the one label at the target is taken.
        if (size_t(position) + 1 >= p.size)
            return MdnsMalformed;
        unsigned int target = ((n & 0x3F) << 8) | p.data[position + 1];
        if (target >= p.size)
            return MdnsMalformed;
        unsigned int m = p.data[target];
        if (size_t(target) + 1 + m > p.size)
            return MdnsMalformed;
        out.append(reinterpret_cast<const char*>(p.data + target + 1), int(m));
        return 2;
    }
    if (n == 0)
        return 0;
    if (size_t(position) + 1 + n > p.size)
        return MdnsMalformed;
    out.append(reinterpret_cast<const char*>(p.data + position + 1), int(n));
    return int(n + 1);
}

int mdns_read_strings(const ZMdnsPacket& p, unsigned int position, ZString& out) {
    out.clear();
    size_t total = 0;
    ZString label;
    for (;;) {
        size_t at = size_t(position) + total;
        if (at >= p.size)
            return MdnsMalformed;
        if (p.data[at] == 0)
            break;
        int n = mdns_read_string(p, unsigned(at), label);
        if (n <= 0)
            return MdnsMalformed;
        out.append(label);
        out.append('.');
        total += size_t(n);
    }
    return int(total + 1);
}

int mdns_read_name(const ZMdnsPacket& p, unsigned int position, ZString& out) {
    out.clear();
    size_t at = position;
    long consumed = -1; // fixed at the first pointer or at the final zero byte
    int hops = 0;
    unsigned int wire = 1; // length of the name on the wire, final zero included
    for (;;) {
        if (at >= p.size)
            return MdnsMalformed;
        unsigned int n = p.data[at];
        if ((n & 0xC0) == 0xC0) {
            if (at + 1 >= p.size)
                return MdnsMalformed;
            unsigned int target = ((n & 0x3F) << 8) | p.data[at + 1];
            if (target >= p.size || ++hops > MdnsMaxPointerHops)
                return MdnsMalformed;
            if (consumed < 0)
                consumed = long(at + 2 - position);
            at = target;
            continue;
        }
        if (n & 0xC0)
            return MdnsMalformed; // reserved label types 0x40 and 0x80
        if (n == 0) {
            if (consumed < 0)
                consumed = long(at + 1 - position);
            return int(consumed);
        }
        wire += n + 1;
        if (wire > 255 || at + 1 + n > p.size)
            return MdnsMalformed;
        out.append(reinterpret_cast<const char*>(p.data + at + 1), int(n));
        out.append('.');
        at += 1 + n;
    }
}

void mdnsBuildQuery(uint16_t id, unsigned char q[MdnsQuerySize]) {
    static const unsigned char name[] = {6,   '_', 't', 'a', 'v', 'r', 'o', 4,   '_', 't',
                                         'c', 'p', 5,   'l', 'o', 'c', 'a', 'l', 0};
    static_assert(HeaderSize + sizeof(name) + 4 == MdnsQuerySize, "query size");
    put16(q, id);
    put16(q + 2, 0); // flags: standard query
    put16(q + 4, 1); // one question
    put16(q + 6, 0);
    put16(q + 8, 0);
    put16(q + 10, 0);
    memcpy(q + HeaderSize, name, sizeof(name));
    put16(q + HeaderSize + sizeof(name), TypePTR);
    put16(q + HeaderSize + sizeof(name) + 2, 0x8001); // IN, unicast reply asked for
}

ZMdnsReply mdnsParseReply(const unsigned char* data, size_t size, uint16_t id,
                          const ZString& service, ZMdnsService& out) {
    out = ZMdnsService();
    out.address.set(0u, 0u);
    if (size < HeaderSize)
        return ZMdnsReply::Malformed;
    if (get16(data) != id || get16(data + 2) != ReplyFlags)
        return ZMdnsReply::Ignored;
    // No UDP datagram is larger; it also keeps every offset sum far from overflow.
    if (size > 65535)
        return ZMdnsReply::Malformed;
    ZMdnsPacket p{data, unsigned(size)};
    unsigned int questions = get16(data + 4);
    unsigned int answers = get16(data + 6);
    unsigned int authorities = get16(data + 8);
    unsigned int additionals = get16(data + 10);
    unsigned int position = HeaderSize;

    // Step 4: the questions; the last one must be the service.
    if (questions == 0)
        return ZMdnsReply::Ignored;
    ZString name;
    for (unsigned int i = 0; i < questions; i++) {
        int n = mdns_read_strings(p, position, name);
        if (n < 0 || size_t(position) + unsigned(n) + 4 > size)
            return ZMdnsReply::Malformed;
        position += unsigned(n) + 4;
    }
    if (!sameText(name, service))
        return ZMdnsReply::Ignored;

    // Step 5: answers (A, SRV and TXT among them used, as a standard responder
    // answers a legacy unicast query) and authorities.
    Record r;
    for (unsigned int i = 0; i < answers; i++) {
        if (!readRecord(p, position, r))
            return ZMdnsReply::Malformed;
        if ((r.type == TypeA || r.type == TypeSRV || r.type == TypeTXT) &&
            !useRecord(p, r, true, out))
            return ZMdnsReply::Malformed;
        position = r.end;
    }
    for (unsigned int i = 0; i < authorities; i++) {
        if (!readRecord(p, position, r))
            return ZMdnsReply::Malformed;
        position = r.end;
    }
    // Step 6: additional records.
    for (unsigned int i = 0; i < additionals; i++) {
        if (!readRecord(p, position, r) || !useRecord(p, r, false, out))
            return ZMdnsReply::Malformed;
        position = r.end;
    }
    return ZMdnsReply::Accepted;
}

ZMdns::ZMdns() : ocounter(0) {}

ZMdns::~ZMdns() {
    osocket.close();
}

ZError ZMdns::init() {
    osocket.close();
    ZError e = osocket.init(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (e)
        return e;
    ZSocketAddressINET any;
    any.set(0u, 0u);
    if ((e = osocket.bind(any)))
        return e;
    unsigned char ttl = 1;
    if ((e = osocket.setSockOpt(IPPROTO_IP, IP_MULTICAST_TTL, &ttl, sizeof(ttl))))
        return e;
    unsigned char loop = 1;
    if ((e = osocket.setSockOpt(IPPROTO_IP, IP_MULTICAST_LOOP, &loop, sizeof(loop))))
        return e;
    struct ip_mreq mreq;
    memset(&mreq, 0, sizeof(mreq));
    mreq.imr_multiaddr.s_addr = htonl(MdnsGroup);
    mreq.imr_interface.s_addr = htonl(INADDR_ANY);
    return osocket.setSockOpt(IPPROTO_IP, IP_ADD_MEMBERSHIP, &mreq, sizeof(mreq));
}

ZError ZMdns::findServices(ZString service, unsigned int timeoutMs, ZList<ZMdnsService>& found) {
    uint16_t id = uint16_t(++ocounter);
    unsigned char query[MdnsQuerySize];
    mdnsBuildQuery(id, query);
    ZSocketAddressINET group;
    group.set(MdnsGroup, MdnsPort);
    unsigned int sent = 0;
    ZError e = osocket.sendTo(group, query, MdnsQuerySize, sent, 0);
    if (e)
        return e;

    // timeoutMs x 1000 microseconds, held within the int the socket takes.
    uint64_t us = uint64_t(timeoutMs) * 1000u;
    int timeoutUs = us > uint64_t(INT_MAX) ? INT_MAX : int(us);
    unsigned char datagram[DatagramSize];
    for (;;) {
        ZSocketAddressINET from;
        unsigned int got = 0;
        e = osocket.recvFromWithTimeout(from, datagram, DatagramSize, got, timeoutUs, 0);
        if (e) {
            // The receive time-out ends the search, successfully.
            if (e.getNumber() == -110) {
                e.clear();
                return e;
            }
            // An empty datagram: the socket layer reports a zero-byte receive as
            // -32 "Connection Closed by Peer", but on a datagram socket it is only
            // a (malformed) datagram; ignore it like any other.
            if (e.getNumber() == -32 && got == 0)
                continue;
            return e;
        }
        ZMdnsService s;
        if (mdnsParseReply(datagram, got, id, service, s) == ZMdnsReply::Accepted)
            found.append(s);
    }
}
