#ifndef TESTS_COMMS_MDNS_BUILDER_H
#define TESTS_COMMS_MDNS_BUILDER_H

// Builds DNS messages byte by byte for the mDNS tests, the namespace
// responder and the fuzz seed corpus.

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace mdnstest {

class DnsBuilder {
public:
    std::vector<uint8_t> bytes;

    size_t pos() const { return bytes.size(); }

    DnsBuilder& u8(unsigned v) {
        bytes.push_back(uint8_t(v));
        return *this;
    }
    DnsBuilder& u16(unsigned v) {
        u8(v >> 8);
        return u8(v);
    }
    DnsBuilder& u32(uint32_t v) {
        u16(v >> 16);
        return u16(v & 0xFFFF);
    }
    DnsBuilder& raw(const std::string& s) {
        bytes.insert(bytes.end(), s.begin(), s.end());
        return *this;
    }
    DnsBuilder& header(unsigned id, unsigned flags, unsigned qd, unsigned an, unsigned ns,
                       unsigned ar) {
        return u16(id).u16(flags).u16(qd).u16(an).u16(ns).u16(ar);
    }
    // One length-prefixed label, no terminator.
    DnsBuilder& label(const std::string& s) {
        u8(unsigned(s.size()));
        return raw(s);
    }
    // Labels followed by the zero byte.
    DnsBuilder& name(std::initializer_list<std::string> labels) {
        for (const std::string& l : labels)
            label(l);
        return u8(0);
    }
    DnsBuilder& ptr(unsigned offset) { return u8(0xC0 | (offset >> 8)).u8(offset & 0xFF); }
    // Type, class, time to live; the data length is patched by endData().
    size_t beginData(unsigned type, unsigned cls = 0x8001, uint32_t ttl = 120) {
        u16(type).u16(cls).u32(ttl).u16(0);
        return pos();
    }
    DnsBuilder& endData(size_t start) {
        size_t n = pos() - start;
        bytes[start - 2] = uint8_t(n >> 8);
        bytes[start - 1] = uint8_t(n);
        return *this;
    }
    // A question for `labels`, type PTR, class 0x8001.
    DnsBuilder& question(std::initializer_list<std::string> labels, unsigned cls = 0x8001) {
        name(labels);
        return u16(12).u16(cls);
    }
};

// What a responder puts in one reply.
struct Unit {
    std::string instance = "Tavro-0042";
    std::string host = "tavro-0042";
    uint32_t address = 0xC0A8012A; // 192.168.1.42
    unsigned port = 40358;
    std::vector<std::string> texts = {"serial=0042"};
};

// A reply as a unit sends it: the question echoed, the PTR record
// in the answers, SRV, TXT and A in the additional records. Record names are
// compression pointers; the SRV target is written as full labels.
inline std::vector<uint8_t> unitReply(unsigned id, const Unit& u = Unit(), unsigned flags = 0x8400,
                                      std::initializer_list<std::string> service = {
                                          "_tavro", "_tcp", "local"}) {
    DnsBuilder b;
    b.header(id, flags, 1, 1, 0, 3);
    size_t qname = b.pos();
    b.question(service);
    // PTR: service -> instance
    b.ptr(unsigned(qname));
    size_t d = b.beginData(12, 1, 4500);
    size_t instance = b.pos();
    b.label(u.instance).ptr(unsigned(qname));
    b.endData(d);
    // SRV: instance -> host:port
    b.ptr(unsigned(instance));
    d = b.beginData(33);
    b.u16(0).u16(0).u16(u.port);
    size_t host = b.pos();
    b.name({u.host, "local"});
    b.endData(d);
    // TXT
    b.ptr(unsigned(instance));
    d = b.beginData(16, 0x8001, 4500);
    for (const std::string& t : u.texts)
        b.label(t);
    b.endData(d);
    // A: host -> address
    b.ptr(unsigned(host));
    d = b.beginData(1);
    b.u32(u.address);
    b.endData(d);
    return b.bytes;
}

// A reply laid out as avahi-daemon 0.8 answers a legacy unicast query: the
// question echoed, PTR, TXT, SRV and A all in the answer section (class 1,
// time to live 10), nothing in the additional section, names compressed and
// the SRV target a label followed by a pointer to "local".
inline std::vector<uint8_t> avahiStyleReply(unsigned id, const Unit& u = Unit()) {
    DnsBuilder b;
    b.header(id, 0x8400, 1, 4, 0, 0);
    size_t qname = b.pos();
    b.question({"_tavro", "_tcp", "local"});
    size_t local = qname + 1 + 6 + 1 + 4; // the "local" label of the question
    b.ptr(unsigned(qname));
    size_t d = b.beginData(12, 1, 10);
    size_t instance = b.pos();
    b.label(u.instance).ptr(unsigned(qname));
    b.endData(d);
    b.ptr(unsigned(instance));
    d = b.beginData(16, 1, 10);
    for (const std::string& t : u.texts)
        b.label(t);
    b.endData(d);
    b.ptr(unsigned(instance));
    d = b.beginData(33, 1, 10);
    b.u16(0).u16(0).u16(u.port);
    size_t host = b.pos();
    b.label(u.host).ptr(unsigned(local));
    b.endData(d);
    b.ptr(unsigned(host));
    d = b.beginData(1, 1, 10);
    b.u32(u.address);
    b.endData(d);
    return b.bytes;
}

} // namespace mdnstest

#endif
