// libFuzzer target: arbitrary bytes as a received mDNS datagram.
//   cmake -S . -B build-fuzz -DTAVRO_FUZZ=ON -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
//   cmake --build build-fuzz --target mdns_fuzz
//   build-fuzz/fuzz/mdns_fuzz -max_total_time=600 new-corpus fuzz/corpus/mdns
#include "zmdns.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The reply parser, with the id taken from the datagram itself so that
    // the id check passes and the sections are reached.
    uint16_t id = size >= 2 ? uint16_t((data[0] << 8) | data[1]) : 0;
    static const ZString service("_tavro._tcp.local.");
    ZMdnsService found;
    mdnsParseReply(data, size, id, service, found);

    // The three name readers on their own, at the start of the questions and
    // at a position chosen by the input's last byte.
    if (size == 0 || size > 65535)
        return 0;
    ZMdnsPacket packet{data, unsigned(size)};
    ZString out;
    for (unsigned int position : {12u, unsigned(data[size - 1])}) {
        mdns_read_string(packet, position, out);
        mdns_read_strings(packet, position, out);
        mdns_read_name(packet, position, out);
    }
    return 0;
}
