// Mutations for replaying the fuzz targets whose input is a stream of blocks
// starting with the magic "ZU": Zoap packets (fuzz/zoap_fuzz.cpp) and ".tavd"
// files (fuzz/tavd_fuzz.cpp).

#include "fuzzreplay.h"

#include <algorithm>
#include <cstring>

namespace {

std::vector<size_t> blockStarts(const FuzzBytes& v) {
    std::vector<size_t> at;
    for (size_t i = 0; i + 16 <= v.size(); i++)
        if (v[i] == 0x5A && v[i + 1] == 0x55)
            at.push_back(i);
    return at;
}

} // namespace

void fuzzReplayMutate(FuzzBytes& v, const std::vector<FuzzBytes>& all, std::mt19937& rng) {
    // From a block's start: the header's length and function (type) words, then
    // the record words that steer a reader: channel and sample counts, types.
    static const size_t fields[] = {2, 8, 16 + 12, 16 + 14, 16 + 15, 16 + 20};
    static const unsigned lengths[] = {0, 15, 16, 17, 40, 232, 511, 512, 513, 4096, 4097};
    for (int k = 1 + int(rng() % 5); k > 0; k--) {
        const size_t n = v.size(), at = n ? rng() % n : 0;
        const std::vector<size_t> starts = blockStarts(v);
        const size_t block = starts.empty() ? 0 : starts[rng() % starts.size()];
        switch (rng() % 6) {
        case 0: // a byte; the first is the Zoap target's setup byte
            if (n)
                v[rng() % 4 ? at : 0] ^= uint8_t(1 + rng() % 255);
            break;
        case 1: // a cut to the end, or of up to 24 bytes
            v.erase(v.begin() + long(at),
                    rng() % 2 ? v.end() : v.begin() + long(std::min(n, at + 1 + rng() % 24)));
            break;
        case 2: {
            const uint8_t magic[2] = {0x5A, 0x55};
            v.insert(v.begin() + long(at), magic, magic + 2);
            break;
        }
        case 3: { // a length near a limit, a small value or any
            const size_t to = block + fields[rng() % 6];
            const unsigned r = unsigned(rng() % 3);
            const uint16_t value = uint16_t(r == 0   ? lengths[rng() % 11]
                                            : r == 1 ? rng() % 80
                                                     : rng());
            if (to + 2 <= n)
                memcpy(&v[to], &value, 2);
            break;
        }
        case 4: // a block repeated
            if (!starts.empty()) {
                const size_t length = std::min<size_t>(n - block, 16 + rng() % 1024);
                FuzzBytes copy(v.begin() + long(block), v.begin() + long(block + length));
                v.insert(v.begin() + long(block), copy.begin(), copy.end());
            }
            break;
        default: { // a piece of another seed, from one of its blocks or anywhere
            const FuzzBytes& o = all[rng() % all.size()];
            const std::vector<size_t> from = blockStarts(o);
            if (o.empty())
                break;
            const size_t start =
                !from.empty() && rng() % 2 ? from[rng() % from.size()] : size_t(rng() % o.size());
            const size_t length = std::min<size_t>(o.size() - start, 1 + rng() % 1024);
            v.insert(v.begin() + long(n ? rng() % (n + 1) : 0), o.begin() + long(start),
                     o.begin() + long(start + length));
        }
        }
    }
}
