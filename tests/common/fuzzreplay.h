#ifndef FUZZREPLAY_H
#define FUZZREPLAY_H

// Replays a fuzz target without libFuzzer (fuzzreplay.cpp): every seed, then
// mutated seeds for a while, each in a heap block of exactly its size so that
// a sanitizer reports any read past the end.
//   NAME_replay [-seconds=N] [-seed=N] FILE_OR_FOLDER...

#include <cstdint>
#include <random>
#include <vector>

using FuzzBytes = std::vector<uint8_t>;

// Supplied by each target's replay source: edits v a few times; all holds
// every seed (for splicing).
void fuzzReplayMutate(FuzzBytes& v, const std::vector<FuzzBytes>& all, std::mt19937& rng);

#endif
