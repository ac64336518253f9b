// Mutations for replaying the mDNS fuzz target (fuzz/mdns_fuzz.cpp).

#include "fuzzreplay.h"

#include <algorithm>

void fuzzReplayMutate(FuzzBytes& v, const std::vector<FuzzBytes>&, std::mt19937& rng) {
    for (int edits = 1 + int(rng() % 8); edits > 0; edits--) {
        size_t n = v.size(), at = n ? rng() % n : 0;
        switch (n < 2 ? 3 : rng() % 6) {
        case 0: // set a byte, or flip one bit
            v[at] = rng() % 2 ? uint8_t(rng()) : uint8_t(v[at] ^ (1u << (rng() % 8)));
            break;
        case 1: // cut the end off
            v.resize(at);
            break;
        case 2: // erase a stretch
            v.erase(v.begin() + long(at),
                    v.begin() + long(at + 1 + rng() % std::min<size_t>(16, n - at)));
            break;
        case 3: // insert a byte
            v.insert(v.begin() + long(n ? rng() % (n + 1) : 0), uint8_t(rng()));
            break;
        case 4: { // a compression pointer (maybe past the end), or a large count or length
            size_t target = rng() % (n + 8);
            bool pointer = rng() % 2;
            at = rng() % (n - 1);
            v[at] = pointer ? uint8_t(0xC0 | ((target >> 8) & 0x3F)) : 0xFF;
            v[at + 1] = uint8_t(pointer ? target : rng());
            break;
        }
        default: { // duplicate a stretch
            FuzzBytes piece(v.begin() + long(at),
                            v.begin() + long(at + 1 + rng() % std::min<size_t>(32, n - at)));
            v.insert(v.begin() + long(rng() % (n + 1)), piece.begin(), piece.end());
        }
        }
    }
}
