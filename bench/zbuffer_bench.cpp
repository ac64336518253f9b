// ZBufferStore push/pop of a typical record beside the same work done with a
// std::vector<uint8_t> and memcpy. Goal: within 1.5x of the std version.
//
// Record: a u32, two u16, a double, a ZTimeStamp (11 bytes) and 64 raw bytes with format "4"
// (91 bytes). Each iteration writes kRecords records from position 0, then reads them back.
#include "zbuffer.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace {

const int kRecords = 1000;

struct Record {
    uint32_t id;
    uint16_t a, b;
    double value;
    ZTimeStamp time;
    uint32_t raw[16];
};

Record makeRecord(int i) {
    Record r;
    r.id = uint32_t(i);
    r.a = uint16_t(i * 3);
    r.b = uint16_t(i * 5);
    r.value = i * 0.5;
    r.time.set(2024, 3, 1, 12, 30, 5, i);
    for (int k = 0; k < 16; k++)
        r.raw[k] = uint32_t(i * 16 + k);
    return r;
}

// ---- ZBufferStore ----

void BM_ZBufferStore(benchmark::State& state) {
    const int swap = int(state.range(0));
    ZBufferStore st(0, swap);
    std::vector<Record> recs;
    for (int i = 0; i < kRecords; i++)
        recs.push_back(makeRecord(i));
    Record out;
    uint64_t sum = 0;
    for (auto _ : state) {
        st.setPos(0);
        for (const Record& r : recs) {
            st.push(r.id);
            st.push(r.a);
            st.push(r.b);
            st.push(r.value);
            st.push(r.time);
            st.push(64, r.raw, "4");
        }
        st.setPos(0);
        for (int i = 0; i < kRecords; i++) {
            if (st.pop(out.id) || st.pop(out.a) || st.pop(out.b) || st.pop(out.value) ||
                st.pop(out.time) || st.pop(64, out.raw, "4"))
                state.SkipWithError("short pop");
            sum += out.id + out.a + out.raw[15];
        }
        benchmark::DoNotOptimize(sum);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * kRecords * 91 * 2);
    state.SetItemsProcessed(int64_t(state.iterations()) * kRecords);
}

// ---- std::vector<uint8_t> + memcpy, the same bytes and the same checks ----

struct VecStore {
    std::vector<uint8_t> v; // grows, never shrinks (like the store's allocation)
    size_t used = 0;        // bytes in use: pos + length after a put, as ZBufferStore
    size_t pos = 0;
    int swap = 0;

    void put(const void* p, size_t n) {
        size_t end = pos + n;
        if (end > v.size())
            v.resize(end); // geometric growth of the capacity is the vector's own
        memcpy(v.data() + pos, p, n);
        pos = used = end;
    }
    bool get(void* p, size_t n) {
        if (pos > used || used - pos < n)
            return true;
        memcpy(p, v.data() + pos, n);
        pos += n;
        return false;
    }
    void push(uint32_t x) {
        if (swap)
            x = __builtin_bswap32(x);
        put(&x, 4);
    }
    void push(uint16_t x) {
        if (swap)
            x = __builtin_bswap16(x);
        put(&x, 2);
    }
    void push(double d) {
        uint64_t x;
        memcpy(&x, &d, 8);
        if (swap)
            x = __builtin_bswap64(x);
        put(&x, 8);
    }
    void push(const ZTimeStamp& t) {
        uint8_t b[11];
        uint16_t y = uint16_t(t.oyear), d = uint16_t(t.oyday);
        uint32_t us = uint32_t(t.omicroSecond);
        if (swap)
            y = __builtin_bswap16(y), d = __builtin_bswap16(d), us = __builtin_bswap32(us);
        memcpy(b, &y, 2);
        memcpy(b + 2, &d, 2);
        b[4] = t.ohour, b[5] = t.ominute, b[6] = t.osecond;
        memcpy(b + 7, &us, 4);
        put(b, 11);
    }
    void pushWords(const uint32_t* w, int n) {
        if (!swap) {
            put(w, size_t(n) * 4);
            return;
        }
        uint32_t x[64];
        for (int i = 0; i < n && i < 64; i++)
            x[i] = __builtin_bswap32(w[i]);
        put(x, size_t(n) * 4);
    }
    bool pop(uint32_t& x) {
        if (get(&x, 4))
            return true;
        if (swap)
            x = __builtin_bswap32(x);
        return false;
    }
    bool pop(uint16_t& x) {
        if (get(&x, 2))
            return true;
        if (swap)
            x = __builtin_bswap16(x);
        return false;
    }
    bool pop(double& d) {
        uint64_t x;
        if (get(&x, 8))
            return true;
        if (swap)
            x = __builtin_bswap64(x);
        memcpy(&d, &x, 8);
        return false;
    }
    bool pop(ZTimeStamp& t) {
        uint8_t b[11];
        if (get(b, 11))
            return true;
        uint16_t y, d;
        uint32_t us;
        memcpy(&y, b, 2);
        memcpy(&d, b + 2, 2);
        memcpy(&us, b + 7, 4);
        if (swap)
            y = __builtin_bswap16(y), d = __builtin_bswap16(d), us = __builtin_bswap32(us);
        t.oyear = int16_t(y), t.oyday = int16_t(d);
        t.ohour = b[4], t.ominute = b[5], t.osecond = b[6];
        t.omicroSecond = int32_t(us);
        return false;
    }
    bool popWords(uint32_t* w, int n) {
        if (get(w, size_t(n) * 4))
            return true;
        if (swap)
            for (int i = 0; i < n; i++)
                w[i] = __builtin_bswap32(w[i]);
        return false;
    }
};

void BM_StdVector(benchmark::State& state) {
    VecStore st;
    st.swap = int(state.range(0));
    std::vector<Record> recs;
    for (int i = 0; i < kRecords; i++)
        recs.push_back(makeRecord(i));
    Record out;
    uint64_t sum = 0;
    for (auto _ : state) {
        st.pos = 0;
        for (const Record& r : recs) {
            st.push(r.id);
            st.push(r.a);
            st.push(r.b);
            st.push(r.value);
            st.push(r.time);
            st.pushWords(r.raw, 16);
        }
        st.pos = 0;
        for (int i = 0; i < kRecords; i++) {
            if (st.pop(out.id) || st.pop(out.a) || st.pop(out.b) || st.pop(out.value) ||
                st.pop(out.time) || st.popWords(out.raw, 16))
                state.SkipWithError("short pop");
            sum += out.id + out.a + out.raw[15];
        }
        benchmark::DoNotOptimize(sum);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * kRecords * 91 * 2);
    state.SetItemsProcessed(int64_t(state.iterations()) * kRecords);
}

// A fresh store every iteration: includes the geometric growth from empty.
void BM_ZBufferStoreFresh(benchmark::State& state) {
    Record r = makeRecord(7);
    for (auto _ : state) {
        ZBufferStore st;
        for (int i = 0; i < kRecords; i++) {
            st.push(r.id);
            st.push(r.a);
            st.push(r.b);
            st.push(r.value);
            st.push(r.time);
            st.push(64, r.raw, "4");
        }
        benchmark::DoNotOptimize(st.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kRecords);
}

void BM_StdVectorFresh(benchmark::State& state) {
    Record r = makeRecord(7);
    for (auto _ : state) {
        VecStore st;
        for (int i = 0; i < kRecords; i++) {
            st.push(r.id);
            st.push(r.a);
            st.push(r.b);
            st.push(r.value);
            st.push(r.time);
            st.pushWords(r.raw, 16);
        }
        benchmark::DoNotOptimize(st.v.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kRecords);
}

} // namespace

BENCHMARK(BM_ZBufferStore)->Arg(0)->Arg(1);
BENCHMARK(BM_StdVector)->Arg(0)->Arg(1);
BENCHMARK(BM_ZBufferStoreFresh);
BENCHMARK(BM_StdVectorFresh);

BENCHMARK_MAIN();
