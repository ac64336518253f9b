#include "fuzzreplay.h"

#include <dirent.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void runOne(const FuzzBytes& v) {
    std::unique_ptr<uint8_t[]> p(new uint8_t[std::max<size_t>(v.size(), 1)]);
    std::copy(v.begin(), v.end(), p.get());
    LLVMFuzzerTestOneInput(p.get(), v.size());
}

// A file, or every file of a folder.
bool load(const std::string& path, std::vector<FuzzBytes>& out) {
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

} // namespace

int main(int argc, char** argv) {
    const char* self = strrchr(argv[0], '/') ? strrchr(argv[0], '/') + 1 : argv[0];
    double seconds = 3;
    unsigned long seed = 20241121;
    std::vector<FuzzBytes> inputs;
    for (int i = 1; i < argc; i++) {
        if (strncmp(argv[i], "-seconds=", 9) == 0)
            seconds = atof(argv[i] + 9);
        else if (strncmp(argv[i], "-seed=", 6) == 0)
            seed = strtoul(argv[i] + 6, nullptr, 0);
        else if (!load(argv[i], inputs))
            return fprintf(stderr, "%s: cannot read %s\n", self, argv[i]), 1;
    }
    if (inputs.empty())
        return fprintf(stderr, "%s: no inputs\n", self), 1;
    for (const FuzzBytes& v : inputs)
        runOne(v);
    runOne({});

    std::mt19937 rng{static_cast<unsigned>(seed)};
    auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    unsigned long runs = 0;
    for (; runs % 64 || std::chrono::steady_clock::now() < end; runs++) {
        FuzzBytes v = inputs[rng() % inputs.size()];
        fuzzReplayMutate(v, inputs, rng);
        runOne(v);
    }
    printf("%s: %zu seed inputs, %lu mutated runs in %.1f s (seed %lu)\n", self, inputs.size(),
           runs, seconds, seed);
    return 0;
}
