#ifndef FUZZREPLAY_H
#define FUZZREPLAY_H

// The driver that replays a fuzz target without libFuzzer (fuzzreplay.cpp):
// every seed file, then randomly mutated seeds for a while. Each input lies in
// a heap block of exactly its size, so a sanitizer build reports any read past
// the end.
//   NAME_replay [-seconds=N] [-seed=N] FILE_OR_FOLDER...
// A target's replay source supplies the mutations that matter to its input.

#include <cstdint>
#include <random>
#include <vector>

using FuzzBytes = std::vector<uint8_t>;

// Edits v a few times; all holds every seed (for splicing).
void fuzzReplayMutate(FuzzBytes& v, const std::vector<FuzzBytes>& all, std::mt19937& rng);

#endif
