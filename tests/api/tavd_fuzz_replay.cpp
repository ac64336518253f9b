// Mutations for replaying the ".tavd" fuzz target (fuzz/tavd_fuzz.cpp).

#include "fuzzreplay.h"

#include <algorithm>

namespace {

// Offsets of the block header words and of the record fields that steer the
// reader and the writers, from the start of a block.
const size_t LengthAt = 2, TypeAt = 8;
const size_t FileTypeAt = 16 + 14, DataTypeAt = 16 + 15;                  // info block
const size_t ChannelsAt = 16 + 12, SamplesAt = 16 + 14, KindAt = 16 + 20; // data block

void put16(FuzzBytes& v, size_t at, unsigned value) {
    if (at + 2 <= v.size()) {
        v[at] = uint8_t(value);
        v[at + 1] = uint8_t(value >> 8);
    }
}

// Where the blocks begin: every magic "ZU" in the bytes.
std::vector<size_t> blockStarts(const FuzzBytes& v) {
    std::vector<size_t> at;
    for (size_t i = 0; i + 16 <= v.size(); i++)
        if (v[i] == 0x5A && v[i + 1] == 0x55)
            at.push_back(i);
    return at;
}

} // namespace

// Edits that matter to a block reader: the length, type and magic of a
// header; the file type, channel and sample counts and data type in a
// record; cuts, repeated blocks and blocks of other seeds.
void fuzzReplayMutate(FuzzBytes& v, const std::vector<FuzzBytes>& all, std::mt19937& rng) {
    int edits = 1 + int(rng() % 4);
    for (int k = 0; k < edits; k++) {
        const size_t n = v.size();
        const std::vector<size_t> starts = blockStarts(v);
        const size_t block = starts.empty() ? 0 : starts[rng() % starts.size()];
        switch (rng() % 9) {
        case 0:
            if (n)
                v[rng() % n] ^= uint8_t(1u << (rng() % 8));
            break;
        case 1:
            v.resize(n ? rng() % n : 0);
            break;
        case 2: { // a length near a limit or at random
            static const unsigned lengths[] = {0, 15, 16, 17, 40, 232, 511, 512, 513, 4096, 4097};
            put16(v, block + LengthAt, rng() % 2 ? lengths[rng() % 11] : unsigned(rng() % 65536));
            break;
        }
        case 3:
            if (block + TypeAt < n)
                v[block + TypeAt] = uint8_t(29 + rng() % 6);
            break;
        case 4: // Block512 or Stream, or another data type
            if (block + DataTypeAt < n)
                v[block + (rng() % 2 ? FileTypeAt : DataTypeAt)] = uint8_t(rng() % 4);
            break;
        case 5: // channel or sample counts of a data block
            put16(v, block + (rng() % 2 ? ChannelsAt : SamplesAt),
                  rng() % 2 ? unsigned(rng() % 20) : unsigned(rng() % 65536));
            break;
        case 6:
            if (block + KindAt < n)
                v[block + KindAt] = uint8_t(rng() % 4);
            break;
        case 7: // a block repeated
            if (!starts.empty()) {
                const size_t length = std::min<size_t>(n - block, 16 + rng() % 1024);
                FuzzBytes copy(v.begin() + long(block), v.begin() + long(block + length));
                v.insert(v.begin() + long(block), copy.begin(), copy.end());
            }
            break;
        default: { // a piece of another seed, from one of its blocks
            const FuzzBytes& o = all[rng() % all.size()];
            const std::vector<size_t> from = blockStarts(o);
            if (!from.empty()) {
                const size_t at = from[rng() % from.size()];
                const size_t length = std::min<size_t>(o.size() - at, 16 + rng() % 1024);
                v.insert(v.begin() + long(n ? rng() % (n + 1) : 0), o.begin() + long(at),
                         o.begin() + long(at + length));
            }
            break;
        }
        }
    }
}
