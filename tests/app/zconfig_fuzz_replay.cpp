// Mutations for replaying the ".zconfig" fuzz target (fuzz/zconfig_fuzz.cpp).

#include "fuzzreplay.h"

#include <algorithm>
#include <string>

namespace {

// Lines that steer the reader beyond what the seeds hold: odd values, alarm
// and channel indexes beyond their ends.
const char* const Lines[] = {
    "[file]\n",
    "type: other\n",
    "[channel-1]\n",
    "[channel\n",
    "alarm15.levelLow: -1e38\n",
    "alarm-1.mode: 1\n",
    "alarm99999999999.output: 1\n",
    "digitalPins: [1,2,3,4,5,6,7,8,9]\n",
    "digitalPins: [\n",
    "digitalPins: []\n",
    "networkAddress: 300.1.1.1\n",
    "networkMask: 255.255.255.255\n",
    "networkNameServer0: 4294967296\n",
    "name: 0123456789abcdefghijklmnop\n",
    "description: a:b:c\n",
    "mode: Arbitrary\n",
    "mode: 255\n",
    "pgaGain: nan\n",
    "scale: -inf\n",
    "sampleRate: 1e400\n",
    "no colon\n",
};

} // namespace

// Whole lines inserted, doubled or cut; a long line; a NUL byte; bit flips;
// pieces of other seeds.
void fuzzReplayMutate(FuzzBytes& v, const std::vector<FuzzBytes>& all, std::mt19937& rng) {
    int edits = 1 + int(rng() % 4);
    for (int k = 0; k < edits; k++) {
        const size_t n = v.size();
        const size_t at = n ? rng() % (n + 1) : 0;
        switch (rng() % 7) {
        case 0:
        case 1: {
            const std::string line = Lines[rng() % (sizeof(Lines) / sizeof(Lines[0]))];
            v.insert(v.begin() + long(at), line.begin(), line.end());
            break;
        }
        case 2:
            if (n)
                v[rng() % n] ^= uint8_t(1u << (rng() % 8));
            break;
        case 3:
            v.resize(n ? rng() % n : 0);
            break;
        case 4: // a line at or past the longest allowed
            v.insert(v.begin() + long(at), size_t(4090 + rng() % 12), uint8_t('x'));
            break;
        case 5:
            v.insert(v.begin() + long(at), uint8_t(rng() % 2 ? 0 : '\r'));
            break;
        default: {
            const FuzzBytes& o = all[rng() % all.size()];
            if (!o.empty()) {
                const size_t from = rng() % o.size();
                const size_t length = std::min<size_t>(o.size() - from, 1 + rng() % 512);
                v.insert(v.begin() + long(at), o.begin() + long(from),
                         o.begin() + long(from + length));
            }
            break;
        }
        }
    }
}
