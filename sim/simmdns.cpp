#include "simmdns.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <vector>

namespace TavroSim {

namespace {

const unsigned int HeaderSize = 12;
const uint16_t TypeA = 1;
const uint16_t TypePTR = 12;
const uint16_t TypeTXT = 16;
const uint16_t TypeSRV = 33;
const uint16_t TypeAny = 255;
const uint16_t ClassIN = 1;
const uint16_t ClassAny = 255;
const uint16_t CacheFlush = 0x8000;
const uint16_t ReplyFlags = 0x8400; // a response, authoritative
const unsigned int NameMax = 255;
// Big enough for any datagram on a network with jumbo frames.
const unsigned int DatagramMax = 9000;

const char* const ServiceLabels[] = {"_tavro", "_tcp", "local"};
const int ServiceLabelCount = 3;

uint16_t get16(const unsigned char* p) {
    return uint16_t((p[0] << 8) | p[1]);
}

// A name of the query as the positions of its labels (each a length byte
// and its characters) in the datagram.
struct Name {
    unsigned int label[128];
    int count = 0;
};

// Reads the name at `position` strictly; `end` becomes the first byte after
// it where it stands. False when anything would lie outside the datagram,
// a pointer does not point backwards, a label type is reserved or the name
// is longer than 255 bytes.
bool readName(const unsigned char* d, size_t size, unsigned int position, Name& name,
              unsigned int& end) {
    unsigned int at = position;
    unsigned int length = 1;
    bool jumped = false;
    name.count = 0;
    for (;;) {
        if (at >= size)
            return false;
        unsigned int n = d[at];
        if ((n & 0xC0) == 0xC0) {
            if (size_t(at) + 1 >= size)
                return false;
            unsigned int target = ((n & 0x3F) << 8) | d[at + 1];
            // Backwards only: no loops, and every step makes progress.
            if (target >= at)
                return false;
            if (!jumped)
                end = at + 2;
            jumped = true;
            at = target;
            continue;
        }
        if (n & 0xC0)
            return false;
        if (n == 0) {
            if (!jumped)
                end = at + 1;
            return true;
        }
        length += n + 1;
        if (length > NameMax || size_t(at) + 1 + n > size)
            return false;
        name.label[name.count++] = at;
        at += 1 + n;
    }
}

bool sameLabel(const unsigned char* label, const char* text) {
    size_t n = strlen(text);
    if (label[0] != n)
        return false;
    for (size_t i = 0; i < n; i++)
        if (tolower(label[1 + i]) != text[i])
            return false;
    return true;
}

bool isService(const unsigned char* d, const Name& name) {
    if (name.count != ServiceLabelCount)
        return false;
    for (int i = 0; i < ServiceLabelCount; i++)
        if (!sameLabel(d + name.label[i], ServiceLabels[i]))
            return false;
    return true;
}

// Writes a reply into a bounded buffer; once anything does not fit, the
// writer is spoilt and the reply is dropped.
class Writer {
public:
    Writer(unsigned char* out, unsigned int size) : o(out), osize(size), opos(0), ook(true) {}

    unsigned int pos() const { return opos; }
    bool ok() const { return ook; }

    void bytes(const void* data, unsigned int n) {
        if (!ook || n > osize - opos) {
            ook = false;
            return;
        }
        memcpy(o + opos, data, n);
        opos += n;
    }
    void u8(unsigned int v) {
        unsigned char b = uint8_t(v);
        bytes(&b, 1);
    }
    void u16(unsigned int v) {
        u8(v >> 8);
        u8(v);
    }
    void u32(uint32_t v) {
        u16(v >> 16);
        u16(v & 0xFFFF);
    }
    void label(const ZString& s) {
        u8(unsigned(s.len()));
        bytes(s.retStr(), unsigned(s.len()));
    }
    void pointer(unsigned int offset) { u16(0xC000 | offset); }
    // A record's name (a pointer), type, class and time to live; the data
    // length is patched by endRecord().
    void record(unsigned int owner, uint16_t type, uint16_t cls, uint32_t ttl) {
        pointer(owner);
        u16(type);
        u16(cls);
        u32(ttl);
        u16(0);
        odata = opos;
    }
    void endRecord() {
        if (!ook)
            return;
        unsigned int n = opos - odata;
        o[odata - 2] = uint8_t(n >> 8);
        o[odata - 1] = uint8_t(n);
    }

private:
    unsigned char* o;
    unsigned int osize;
    unsigned int opos;
    unsigned int odata = 0;
    bool ook;
};

} // namespace

ZString simMdnsHostName(const ZString& serial) {
    ZString host;
    for (int i = 0; i < serial.len(); i++) {
        unsigned char c = (unsigned char)serial[i];
        host.append(isalnum(c) ? char(tolower(c)) : '-');
    }
    return host;
}

unsigned int simMdnsAnswer(const unsigned char* d, size_t size, unsigned int sourcePort,
                           const SimMdnsUnit& unit, unsigned char* out, unsigned int outSize) {
    if (size < HeaderSize || size > 65535)
        return 0;
    uint16_t flags = get16(d + 2);
    // Responses, other opcodes and non-zero response codes are not queries to answer.
    if ((flags & 0x8000) || ((flags >> 11) & 0xF) != 0 || (flags & 0xF) != 0)
        return 0;
    const ZString host = simMdnsHostName(unit.serial);
    if (unit.serial.isEmpty() || unit.serial.len() > 63)
        return 0;

    // Every question must be well formed; the first one for the service is answered.
    unsigned int questions = get16(d + 4);
    unsigned int at = HeaderSize;
    int match = -1;
    unsigned int matchAt = 0;
    Name name, matchName;
    for (unsigned int i = 0; i < questions; i++) {
        unsigned int end = 0;
        if (!readName(d, size, at, name, end) || size_t(end) + 4 > size)
            return 0;
        uint16_t type = get16(d + end);
        uint16_t cls = get16(d + end + 2) & 0x7FFF;
        if (match < 0 && isService(d, name) && (type == TypePTR || type == TypeAny) &&
            (cls == ClassIN || cls == ClassAny)) {
            match = int(i);
            matchAt = end;
            matchName = name;
        }
        at = end + 4;
    }
    if (match < 0)
        return 0;

    const bool legacy = sourcePort != SimMdnsPort;
    const uint16_t unique = legacy ? ClassIN : uint16_t(ClassIN | CacheFlush);
    const uint32_t shortTtl = legacy ? 10 : 120;
    const uint32_t longTtl = legacy ? 10 : 4500;

    Writer w(out, outSize);
    w.u16(get16(d));
    w.u16(ReplyFlags);
    w.u16(1); // the question
    w.u16(1); // PTR
    w.u16(0);
    w.u16(3); // SRV, TXT, A
    // The question as it came, its labels written out in full.
    const unsigned int question = w.pos();
    for (int i = 0; i < matchName.count; i++)
        w.bytes(d + matchName.label[i], 1u + d[matchName.label[i]]);
    w.u8(0);
    w.bytes(d + matchAt, 4);

    w.record(question, TypePTR, ClassIN, longTtl);
    const unsigned int instance = w.pos();
    w.label(unit.serial);
    w.pointer(question);
    w.endRecord();

    w.record(instance, TypeSRV, unique, shortTtl);
    w.u16(0); // priority
    w.u16(0); // weight
    w.u16(unit.port);
    const unsigned int target = w.pos();
    w.label(host);
    w.label("local");
    w.u8(0);
    w.endRecord();

    w.record(instance, TypeTXT, unique, longTtl);
    w.label(ZString("serial=") + unit.serial);
    w.endRecord();

    w.record(target, TypeA, unique, shortTtl);
    w.u32(unit.address);
    w.endRecord();
    return w.ok() ? w.pos() : 0;
}

SimMdns::SimMdns() : owake(-1), ostopping(false), oanswered(0), othread([this] { run(); }) {}

SimMdns::~SimMdns() {
    stop();
}

ZError SimMdns::start(const SimMdnsUnit& unit, uint32_t interfaceAddress) {
    stop();
    if (unit.serial.isEmpty() || unit.serial.len() > 63)
        return ZError(1, "mDNS: the serial number must be 1 to 63 characters");
    ounit = unit;
    ZError err = osocket.init(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (!err)
        err = osocket.setReuseAddress(true);
    if (!err) {
        ZSocketAddressINET any(0u, SimMdnsPort);
        err = osocket.bind(any);
        if (err)
            err = ZError(err.number, ZString("mDNS: cannot use port 5353: ") + err.string);
    }
    if (!err) {
        struct ip_mreq group;
        memset(&group, 0, sizeof(group));
        group.imr_multiaddr.s_addr = htonl(SimMdnsGroup);
        group.imr_interface.s_addr = htonl(interfaceAddress);
        err = osocket.setSockOpt(IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof(group));
        if (err)
            err = ZError(err.number, ZString("mDNS: cannot join 224.0.0.251 on ") +
                                         ZSocketAddressINET::addressString(interfaceAddress) +
                                         ": " + err.string);
    }
    if (!err) {
        // Only the group joined here, on its interface: not every group
        // another program of this host has joined.
        int off = 0;
        osocket.setSockOpt(IPPROTO_IP, IP_MULTICAST_ALL, &off, sizeof(off));
        owake = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        if (owake < 0)
            err = zerrorFromErrno(errno, "mDNS: ");
    }
    int r = 0;
    if (!err) {
        ostopping = false;
        r = othread.start();
        if (r)
            err = zerrorFromErrno(r, "mDNS: cannot start the responder thread: ");
    }
    if (err) {
        osocket.close();
        if (owake >= 0)
            ::close(owake);
        owake = -1;
    }
    return err;
}

void SimMdns::stop() {
    if (owake < 0)
        return;
    ostopping = true;
    uint64_t one = 1;
    ssize_t w = ::write(owake, &one, sizeof(one));
    (void)w;
    othread.waitForCompletion();
    osocket.close();
    ::close(owake);
    owake = -1;
}

uint32_t SimMdns::localAddressFor(const ZSocketAddressINET& peer) const {
    ZSocket probe;
    ZSocketAddressINET local;
    if (probe.init(ZSocket::Datagram) || probe.connect(peer) || probe.getAddress(local))
        return 0;
    return local.address();
}

void SimMdns::run() {
    std::vector<unsigned char> datagram(DatagramMax);
    unsigned char reply[SimMdnsReplyMax];
    while (!ostopping) {
        struct pollfd p[2] = {{osocket.getFd(), POLLIN, 0}, {owake, POLLIN, 0}};
        if (::poll(p, 2, -1) <= 0 || ostopping || !(p[0].revents & POLLIN))
            continue;
        ZSocketAddressINET from;
        unsigned int got = 0;
        if (osocket.recvFrom(from, datagram.data(), DatagramMax, got, MSG_DONTWAIT))
            continue;
        SimMdnsUnit unit = ounit;
        if (unit.address == 0)
            unit.address = localAddressFor(from);
        unsigned int n =
            simMdnsAnswer(datagram.data(), got, from.port(), unit, reply, sizeof(reply));
        if (n == 0)
            continue;
        unsigned int sent = 0;
        if (!osocket.sendTo(from, reply, n, sent))
            oanswered++;
    }
}

} // namespace TavroSim
