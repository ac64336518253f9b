#ifndef TESTS_COMMS_MDNS_BUILDER_H
#define TESTS_COMMS_MDNS_BUILDER_H

// Builds DNS messages byte by byte for the mDNS tests and responders, and
// writes found services as text.

#include "zmdns.h"

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace mdnstest {

struct DnsBuilder {
    std::vector<uint8_t> bytes;
    size_t data = 0; // first data byte of the record being written
    size_t pos() const { return bytes.size(); }
    DnsBuilder& u8(unsigned v) {
        bytes.push_back(uint8_t(v));
        return *this;
    }
    DnsBuilder& u16(unsigned v) { return u8(v >> 8).u8(v); }
    DnsBuilder& u32(uint32_t v) { return u16(v >> 16).u16(v & 0xFFFF); }
    DnsBuilder& put(std::initializer_list<uint8_t> v) {
        bytes.insert(bytes.end(), v);
        return *this;
    }
    DnsBuilder& header(unsigned id, unsigned flags, unsigned qd, unsigned an, unsigned ns,
                       unsigned ar) {
        return u16(id).u16(flags).u16(qd).u16(an).u16(ns).u16(ar);
    }
    // One length-prefixed label, no terminator.
    DnsBuilder& label(const std::string& s) {
        u8(unsigned(s.size()));
        bytes.insert(bytes.end(), s.begin(), s.end());
        return *this;
    }
    DnsBuilder& name(std::initializer_list<std::string> labels) {
        for (const std::string& l : labels)
            label(l);
        return u8(0);
    }
    DnsBuilder& ptr(size_t offset) { return u8(0xC0 | unsigned(offset >> 8)).u8(offset & 0xFF); }
    // A PTR question, class 0x8001; "_tavro" "_tcp" "local" puts "local" at 24.
    DnsBuilder& question(std::initializer_list<std::string> labels = {"_tavro", "_tcp", "local"}) {
        return name(labels).u16(12).u16(0x8001);
    }
    // A record whose name is a pointer to `owner`; end() patches its data length.
    DnsBuilder& record(size_t owner, unsigned type, unsigned cls = 0x8001, uint32_t ttl = 120) {
        ptr(owner).u16(type).u16(cls).u32(ttl).u16(0);
        data = pos();
        return *this;
    }
    DnsBuilder& end() {
        bytes[data - 2] = uint8_t((pos() - data) >> 8);
        bytes[data - 1] = uint8_t(pos() - data);
        return *this;
    }
};

// What one unit announces.
struct Unit {
    std::string instance = "Tavro-0042";
    std::string host = "tavro-0042";
    uint32_t address = 0xC0A8012A; // 192.168.1.42
    unsigned port = 40358;
    std::vector<std::string> texts = {"serial=0042"};
};

// A reply as a unit sends it: the question echoed, PTR in the answers; SRV
// (target in full labels), TXT and A in the additional records.
inline std::vector<uint8_t> unitReply(unsigned id, const Unit& u = Unit(), unsigned flags = 0x8400,
                                      std::initializer_list<std::string> service = {
                                          "_tavro", "_tcp", "local"}) {
    DnsBuilder b;
    b.header(id, flags, 1, 1, 0, 3).question(service);
    size_t instance = b.record(12, 12, 1, 4500).pos();
    size_t host =
        b.label(u.instance).ptr(12).end().record(instance, 33).u16(0).u16(0).u16(u.port).pos();
    b.name({u.host, "local"}).end().record(instance, 16, 0x8001, 4500);
    for (const std::string& t : u.texts)
        b.label(t);
    return b.end().record(host, 1).u32(u.address).end().bytes;
}

inline std::string str(const ZString& s) {
    return std::string(s.retStr(), size_t(s.len()));
}

// "address:port name text,text"
inline std::string describe(const ZMdnsService& s) {
    std::string r = str(s.address.getString()) + " " + str(s.name) + " ", comma;
    for (const ZString& t : s.texts) {
        r += comma + str(t);
        comma = ",";
    }
    return r;
}

} // namespace mdnstest

#endif
