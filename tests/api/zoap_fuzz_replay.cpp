// Mutations for replaying the Zoap fuzz target (fuzz/zoap_fuzz.cpp).

#include "fuzzreplay.h"

#include <algorithm>

// Edits that matter to a packet reader: bytes, cuts and splices, a stray
// magic, and odd values in a header's length and function words.
void fuzzReplayMutate(FuzzBytes& v, const std::vector<FuzzBytes>& all, std::mt19937& rng) {
    int edits = 1 + int(rng() % 6);
    for (int k = 0; k < edits; k++) {
        size_t n = v.size();
        size_t at = n ? rng() % n : 0;
        switch (rng() % 8) {
        case 0:
            if (n)
                v[at] = uint8_t(rng());
            break;
        case 1:
            if (n)
                v[at] ^= uint8_t(1u << (rng() % 8));
            break;
        case 2:
            v.resize(n ? rng() % n : 0);
            break;
        case 3:
            if (n) {
                size_t len = 1 + rng() % std::min<size_t>(24, n - at);
                v.erase(v.begin() + long(at), v.begin() + long(at + len));
            }
            break;
        case 4: { // a stray magic
            const uint8_t magic[2] = {0x5A, 0x55};
            v.insert(v.begin() + long(at), magic, magic + 2);
            break;
        }
        case 5: // a header word (length 2, function 8) at a magic
            for (size_t i = 0; i + 16 <= n; i++)
                if (v[i] == 0x5A && v[i + 1] == 0x55 && rng() % 2) {
                    size_t word = i + (rng() % 2 ? 2 : 8);
                    uint16_t value = rng() % 2 ? uint16_t(rng() % 80) : uint16_t(rng());
                    v[word] = uint8_t(value);
                    v[word + 1] = uint8_t(value >> 8);
                    break;
                }
            break;
        case 6: { // a piece of another seed
            const FuzzBytes& o = all[rng() % all.size()];
            if (o.size() > 1) {
                size_t from = 1 + rng() % (o.size() - 1);
                size_t len = 1 + rng() % (o.size() - from);
                v.insert(v.begin() + long(n ? rng() % (n + 1) : 0), o.begin() + long(from),
                         o.begin() + long(from + len));
            }
            break;
        }
        default: // the setup byte
            if (n)
                v[0] = uint8_t(rng());
            break;
        }
    }
}
