// A stand-in for libFuzzer's driver where clang is not at hand: runs the mDNS
// fuzz target (fuzz/mdns_fuzz.cpp) on every seed file, then on randomly
// mutated seeds for a while. Each input lies in a heap block of exactly its
// size, so a sanitizer build (-DTAVRO_SANITIZE=address,undefined) reports any
// read past the end.
//   mdns_fuzz_replay [-seconds=N] [-seed=N] FILE_OR_FOLDER...
#include <dirent.h>
#include <sys/stat.h>

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

void runOne(const std::vector<uint8_t>& v) {
    std::unique_ptr<uint8_t[]> p(new uint8_t[v.size() ? v.size() : 1]);
    if (!v.empty())
        memcpy(p.get(), v.data(), v.size());
    LLVMFuzzerTestOneInput(p.get(), v.size());
}

bool load(const std::string& path, std::vector<std::vector<uint8_t>>& out) {
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

void mutate(std::vector<uint8_t>& v, std::mt19937& rng) {
    int edits = 1 + int(rng() % 8);
    for (int k = 0; k < edits; k++) {
        size_t n = v.size();
        switch (rng() % 8) {
        case 0: // set a byte
            if (n)
                v[rng() % n] = uint8_t(rng());
            break;
        case 1: // flip a bit
            if (n)
                v[rng() % n] ^= uint8_t(1u << (rng() % 8));
            break;
        case 2: // cut the end off
            v.resize(n ? rng() % n : 0);
            break;
        case 3: // insert a byte
            v.insert(v.begin() + long(n ? rng() % (n + 1) : 0), uint8_t(rng()));
            break;
        case 4: // erase a stretch
            if (n) {
                size_t at = rng() % n, len = 1 + rng() % std::min<size_t>(16, n - at);
                v.erase(v.begin() + long(at), v.begin() + long(at + len));
            }
            break;
        case 5: // a compression pointer somewhere
            if (n >= 2) {
                size_t at = rng() % (n - 1);
                unsigned target = unsigned(rng() % (n + 8));
                v[at] = uint8_t(0xC0 | ((target >> 8) & 0x3F));
                v[at + 1] = uint8_t(target);
            }
            break;
        case 6: // a large count or data length
            if (n >= 2) {
                size_t at = rng() % (n - 1);
                v[at] = 0xFF;
                v[at + 1] = uint8_t(rng());
            }
            break;
        default: // duplicate a stretch
            if (n) {
                size_t at = rng() % n, len = 1 + rng() % std::min<size_t>(32, n - at);
                std::vector<uint8_t> piece(v.begin() + long(at), v.begin() + long(at + len));
                v.insert(v.begin() + long(rng() % (n + 1)), piece.begin(), piece.end());
            }
            break;
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    double seconds = 3;
    unsigned long seed = 20241121;
    std::vector<std::vector<uint8_t>> inputs;
    for (int i = 1; i < argc; i++) {
        if (strncmp(argv[i], "-seconds=", 9) == 0)
            seconds = atof(argv[i] + 9);
        else if (strncmp(argv[i], "-seed=", 6) == 0)
            seed = strtoul(argv[i] + 6, nullptr, 0);
        else if (!load(argv[i], inputs)) {
            fprintf(stderr, "mdns_fuzz_replay: cannot read %s\n", argv[i]);
            return 1;
        }
    }
    if (inputs.empty()) {
        fprintf(stderr, "mdns_fuzz_replay: no inputs\n");
        return 1;
    }
    for (const std::vector<uint8_t>& v : inputs)
        runOne(v);
    runOne({});

    std::mt19937 rng{static_cast<unsigned>(seed)};
    auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    unsigned long runs = 0;
    while (std::chrono::steady_clock::now() < end) {
        for (int i = 0; i < 256; i++, runs++) {
            std::vector<uint8_t> v = inputs[rng() % inputs.size()];
            mutate(v, rng);
            runOne(v);
        }
    }
    printf("mdns_fuzz_replay: %zu seed inputs, %lu mutated runs in %.1f s (seed %lu)\n",
           inputs.size(), runs, seconds, seed);
    return 0;
}
