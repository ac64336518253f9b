// Runs the Zoap fuzz target (fuzz/zoap_fuzz.cpp) without libFuzzer: every
// seed file, then randomly mutated seeds for a while. Each input lies in a
// heap block of exactly its size, so a sanitizer build reports any read past
// the end.
//   zoap_fuzz_replay [-seconds=N] [-seed=N] FILE_OR_FOLDER...
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

typedef std::vector<uint8_t> Bytes;

void runOne(const Bytes& v) {
    std::unique_ptr<uint8_t[]> p(new uint8_t[v.empty() ? 1 : v.size()]);
    std::copy(v.begin(), v.end(), p.get());
    LLVMFuzzerTestOneInput(p.get(), v.size());
}

bool load(const std::string& path, std::vector<Bytes>& out) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0)
        return false;
    if (S_ISDIR(st.st_mode)) {
        DIR* d = opendir(path.c_str());
        if (!d)
            return false;
        while (struct dirent* e = readdir(d))
            if (e->d_name[0] != '.')
                load(path + "/" + e->d_name, out);
        closedir(d);
        return true;
    }
    std::ifstream f(path, std::ios::binary);
    out.emplace_back(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
    return true;
}

// Edits that matter to a packet reader: bytes, cuts and splices, a stray
// magic, and odd values in a header's length and function words.
void mutate(Bytes& v, const std::vector<Bytes>& all, std::mt19937& rng) {
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
            const Bytes& o = all[rng() % all.size()];
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

} // namespace

int main(int argc, char** argv) {
    double seconds = 3;
    unsigned long seed = 20241121;
    std::vector<Bytes> inputs;
    for (int i = 1; i < argc; i++) {
        if (strncmp(argv[i], "-seconds=", 9) == 0)
            seconds = atof(argv[i] + 9);
        else if (strncmp(argv[i], "-seed=", 6) == 0)
            seed = strtoul(argv[i] + 6, nullptr, 0);
        else if (!load(argv[i], inputs)) {
            fprintf(stderr, "zoap_fuzz_replay: cannot read %s\n", argv[i]);
            return 1;
        }
    }
    if (inputs.empty()) {
        fprintf(stderr, "zoap_fuzz_replay: no inputs\n");
        return 1;
    }
    for (const Bytes& v : inputs)
        runOne(v);
    runOne({});

    std::mt19937 rng{static_cast<unsigned>(seed)};
    auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    unsigned long runs = 0;
    while (std::chrono::steady_clock::now() < end) {
        for (int i = 0; i < 64; i++, runs++) {
            Bytes v = inputs[rng() % inputs.size()];
            mutate(v, inputs, rng);
            runOne(v);
        }
    }
    printf("zoap_fuzz_replay: %zu seed inputs, %lu mutated runs in %.1f s (seed %lu)\n",
           inputs.size(), runs, seconds, seed);
    return 0;
}
