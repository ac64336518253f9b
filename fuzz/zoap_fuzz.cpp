// libFuzzer target: arbitrary bytes as what a unit sends to a Tavro channel.
//   cmake -S . -B build-fuzz -DTAVRO_FUZZ=ON -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
//   cmake --build build-fuzz --target zoap_fuzz
//   build-fuzz/fuzz/zoap_fuzz -max_total_time=600 new-corpus fuzz/corpus/zoap
//
// The first byte sets up the channel: bits 0-2 pick the largest packet,
// bit 3 packet mode, bit 4 client calls. The rest is the input stream; in
// packet mode it is cut into packets, each preceded by its length as one
// byte. Serving, the channel answers every request it can decode; as a
// client it makes calls whose replies come from the stream. Every packet the
// channel writes must be whole and well-formed.
#include "tavro.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

using namespace TavroApi;

namespace {

const unsigned int MaxPackets[8] = {32, 33, 40, 56, 57, 64, 600, 1024};

class MemoryComms : public ZComms {
public:
    MemoryComms(const uint8_t* data, size_t size, bool packets, unsigned int maxPacket)
        : omaxPacket(maxPacket) {
        opacketMode = packets;
        if (!packets) {
            obytes.assign(data, data + size);
            if (size)
                oends.push_back(size);
        } else {
            size_t i = 0;
            while (i < size) {
                size_t n = std::min<size_t>(data[i], size - i - 1);
                obytes.insert(obytes.end(), data + i + 1, data + i + 1 + n);
                if (n)
                    oends.push_back(obytes.size());
                i += 1 + n;
            }
        }
        ZComms::connect(nullptr);
    }

    size_t left() const { return obytes.size() - opos; }

    unsigned int readAvailable() override {
        return onext < oends.size() ? unsigned(oends[onext] - opos) : 0;
    }
    ZError read(void* data, unsigned int len, unsigned int& got) override {
        got = 0;
        if (onext >= oends.size())
            return ZError(-110, "Timeout");
        // A stream read may come back short, as a socket's does.
        size_t n = std::min<size_t>(len, oends[onext] - opos);
        memcpy(data, obytes.data() + opos, n);
        opos += n;
        got = unsigned(n);
        if (opos == oends[onext])
            onext++;
        return ZError();
    }
    ZError write(const void* data, unsigned int len, unsigned int& written) override {
        check(static_cast<const uint8_t*>(data), len);
        written = len;
        return ZError();
    }
    ZError writeChunks(const ZDataChunk* chunks, unsigned int n, unsigned int& written) override {
        std::vector<uint8_t> packet;
        for (unsigned int i = 0; i < n; i++) {
            const uint8_t* p = static_cast<const uint8_t*>(chunks[i].data);
            packet.insert(packet.end(), p, p + chunks[i].length);
        }
        return write(packet.data(), unsigned(packet.size()), written);
    }

private:
    // A packet written by the channel: one whole, well-formed packet.
    void check(const uint8_t* p, unsigned int len) {
        ZoapMc1Header h;
        if (len < sizeof(h))
            __builtin_trap();
        memcpy(&h, p, sizeof(h));
        if (h.magic != ZoapMc1Comms::Magic || h.length != len || h.reserved != 0)
            __builtin_trap();
        if (h.function & ZoapMc1Comms::ReplyBit) {
            if (h.status == 1 ? len != 56 : (h.status != 0 || len > omaxPacket))
                __builtin_trap();
            ZoapMc1ErrorRecord record;
            memcpy(&record, p + len - sizeof(record), sizeof(record));
            if (strnlen(record.text, sizeof(record.text)) > ZoapMc1Comms::ErrorTextMax)
                __builtin_trap();
        }
    }

    unsigned int omaxPacket;
    std::vector<uint8_t> obytes;
    std::vector<size_t> oends; // where each packet (or the stream) ends
    size_t opos = 0;
    size_t onext = 0;
};

// A few client calls of every result shape, in turn.
void clientCall(Tavro& t, unsigned int i) {
    NodeStatus status;
    bool on = false;
    unsigned int value = 0;
    Configuration config;
    Transact transact;
    FileInfo info;
    DataBlock block;
    switch (i % 8) {
    case 0:
        t.getStatus(status);
        break;
    case 1:
        t.getSwitch(1, on);
        break;
    case 2:
        t.getDigital(value);
        break;
    case 3:
        t.login("user", "");
        break;
    case 4:
        t.getConfig(config);
        break;
    case 5:
        t.transactDev(transact, transact);
        break;
    case 6:
        t.fileList("/", 3, info);
        break;
    default:
        t.measure(DataType::Raw40x, block);
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    uint8_t setup = data[0];
    unsigned int maxPacket = MaxPackets[setup & 7];
    MemoryComms comms(data + 1, size - 1, setup & 8, maxPacket);
    Tavro tavro(false, maxPacket);
    tavro.setComms(comms);
    tavro.setAddress(1, 2);
    for (unsigned int i = 0; comms.left() > 0; i++) {
        if (setup & 16)
            clientCall(tavro, i);
        else
            tavro.processRx();
    }
    return 0;
}
