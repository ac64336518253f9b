// A stand-in for libFuzzer's driver where clang is not at hand: runs the mDNS
// fuzz target (fuzz/mdns_fuzz.cpp) on every seed file, then on randomly
// mutated seeds for a while. Each input lies in a heap block of exactly its
// size, so a sanitizer build (-DTAVRO_SANITIZE=address,undefined) reports any
// read past the end.
//   mdns_fuzz_replay [-seconds=N] [-seed=N] FILE_OR_FOLDER...
#include <dirent.h>

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

using Bytes = std::vector<uint8_t>;

void runOne(const Bytes& v) {
    std::unique_ptr<uint8_t[]> p(new uint8_t[std::max<size_t>(v.size(), 1)]);
    std::copy(v.begin(), v.end(), p.get());
    LLVMFuzzerTestOneInput(p.get(), v.size());
}

// A file, or every file of a folder.
bool load(const std::string& path, std::vector<Bytes>& out) {
    if (DIR* d = opendir(path.c_str())) {
        while (struct dirent* e = readdir(d))
            if (e->d_name[0] != '.')
                load(path + "/" + e->d_name, out);
        closedir(d);
        return true;
    }
    std::ifstream f(path, std::ios::binary);
    out.emplace_back(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
    return bool(f);
}

void mutate(Bytes& v, std::mt19937& rng) {
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
            Bytes piece(v.begin() + long(at),
                        v.begin() + long(at + 1 + rng() % std::min<size_t>(32, n - at)));
            v.insert(v.begin() + long(rng() % (n + 1)), piece.begin(), piece.end());
        }
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
        else if (!load(argv[i], inputs))
            return fprintf(stderr, "mdns_fuzz_replay: cannot read %s\n", argv[i]), 1;
    }
    if (inputs.empty())
        return fprintf(stderr, "mdns_fuzz_replay: no inputs\n"), 1;
    for (const Bytes& v : inputs)
        runOne(v);
    runOne({});
    std::mt19937 rng{static_cast<unsigned>(seed)};
    auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    unsigned long runs = 0;
    for (; std::chrono::steady_clock::now() < end; runs += 256) {
        for (int i = 0; i < 256; i++) {
            Bytes v = inputs[rng() % inputs.size()];
            mutate(v, rng);
            runOne(v);
        }
    }
    printf("mdns_fuzz_replay: %zu seed inputs, %lu mutated runs in %.1f s (seed %lu)\n",
           inputs.size(), runs, seconds, seed);
    return 0;
}
