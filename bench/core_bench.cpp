// ZString and ZDict beside std::string and std::unordered_map doing the same work.
#include "zdict.h"
#include "zstring.h"

#include <benchmark/benchmark.h>

#include <string>
#include <unordered_map>
#include <vector>

namespace {

const char* kShort = "channel 3";
const char* kLong = "a text long enough to leave the small-string buffer of std::string behind";

template <class S>
void copyText(benchmark::State& state, const char* text) {
    S s(text);
    for (auto _ : state) {
        S c(s);
        benchmark::DoNotOptimize(c);
    }
}

void BM_ZStringCopyShort(benchmark::State& s) {
    copyText<ZString>(s, kShort);
}
void BM_StdStringCopyShort(benchmark::State& s) {
    copyText<std::string>(s, kShort);
}
void BM_ZStringCopyLong(benchmark::State& s) {
    copyText<ZString>(s, kLong);
}
void BM_StdStringCopyLong(benchmark::State& s) {
    copyText<std::string>(s, kLong);
}

// Builds a line of 64 pieces, as a CSV writer does.
template <class S>
void appendPieces(benchmark::State& state) {
    for (auto _ : state) {
        S line;
        for (int i = 0; i < 64; i++) {
            line += "12.345";
            line += ',';
        }
        benchmark::DoNotOptimize(line);
    }
    state.SetItemsProcessed(state.iterations() * 128);
}

void BM_ZStringAppend(benchmark::State& s) {
    appendPieces<ZString>(s);
}
void BM_StdStringAppend(benchmark::State& s) {
    appendPieces<std::string>(s);
}

// Copy a shared string, then change the copy (the copy-on-write path).
template <class S>
void copyThenAppend(benchmark::State& state) {
    S base(kLong);
    for (auto _ : state) {
        S c(base);
        c += "x";
        benchmark::DoNotOptimize(c);
    }
}

void BM_ZStringCopyAppend(benchmark::State& s) {
    copyThenAppend<ZString>(s);
}
void BM_StdStringCopyAppend(benchmark::State& s) {
    copyThenAppend<std::string>(s);
}

const int kKeys = 100000;

std::vector<std::string> stdKeys() {
    std::vector<std::string> keys;
    for (int i = 0; i < kKeys; i++)
        keys.push_back("key" + std::to_string(i));
    return keys;
}

std::vector<ZString> zKeys() {
    std::vector<ZString> keys;
    for (const std::string& k : stdKeys())
        keys.push_back(ZString(k.c_str()));
    return keys;
}

void BM_ZDictInsert(benchmark::State& state) {
    std::vector<ZString> keys = zKeys();
    for (auto _ : state) {
        ZDict<int> d;
        for (int i = 0; i < kKeys; i++)
            d[keys[i]] = i;
        benchmark::DoNotOptimize(d);
    }
    state.SetItemsProcessed(state.iterations() * kKeys);
}

void BM_StdMapInsert(benchmark::State& state) {
    std::vector<std::string> keys = stdKeys();
    for (auto _ : state) {
        std::unordered_map<std::string, int> d;
        for (int i = 0; i < kKeys; i++)
            d[keys[i]] = i;
        benchmark::DoNotOptimize(d);
    }
    state.SetItemsProcessed(state.iterations() * kKeys);
}

void BM_ZDictFind(benchmark::State& state) {
    std::vector<ZString> keys = zKeys();
    ZDict<int> d;
    for (int i = 0; i < kKeys; i++)
        d[keys[i]] = i;
    for (auto _ : state) {
        long sum = 0;
        ZIter it;
        for (int i = 0; i < kKeys; i++)
            if (d.hashFind(keys[i], it))
                sum += d.nodeGet(it).value;
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kKeys);
}

void BM_StdMapFind(benchmark::State& state) {
    std::vector<std::string> keys = stdKeys();
    std::unordered_map<std::string, int> d;
    for (int i = 0; i < kKeys; i++)
        d[keys[i]] = i;
    for (auto _ : state) {
        long sum = 0;
        for (int i = 0; i < kKeys; i++) {
            auto f = d.find(keys[i]);
            if (f != d.end())
                sum += f->second;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kKeys);
}

} // namespace

BENCHMARK(BM_ZStringCopyShort);
BENCHMARK(BM_StdStringCopyShort);
BENCHMARK(BM_ZStringCopyLong);
BENCHMARK(BM_StdStringCopyLong);
BENCHMARK(BM_ZStringAppend);
BENCHMARK(BM_StdStringAppend);
BENCHMARK(BM_ZStringCopyAppend);
BENCHMARK(BM_StdStringCopyAppend);
BENCHMARK(BM_ZDictInsert)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StdMapInsert)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ZDictFind)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StdMapFind)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
