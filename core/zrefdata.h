#ifndef ZREFDATA_H
#define ZREFDATA_H

#include <atomic>
#include <cstdint>

// One reference-counted heap block shared by ZString copies.
//
// `len` is the length in use (for a string: characters plus the NUL); the
// block may hold more (`alloc`) so that repeated appends grow geometrically
// instead of reallocating on every call.
class ZRefData {
public:
    explicit ZRefData(int len = 0);
    ~ZRefData();
    ZRefData(const ZRefData&) = delete;
    ZRefData& operator=(const ZRefData&) = delete;

    ZRefData* addRef() {
        refCount.fetch_add(1, std::memory_order_relaxed);
        return this;
    }
    // Returns the new count; the caller deletes the block when it reaches 0.
    int deleteRef() { return refCount.fetch_sub(1, std::memory_order_acq_rel) - 1; }

    // Copy-on-write step: returns a block that the caller owns alone, either
    // this one (when it was the only owner) or a fresh copy.
    ZRefData* copy();

    // Reallocates the block to exactly n bytes. Returns 0, or 1 when memory ran out.
    int setLen(int n);
    // Makes room for at least n bytes without changing `len`. Returns 0 or 1.
    int reserve(int n);

    std::atomic<int32_t> refCount;
    int32_t len;
    char* data;
    int32_t alloc;
};

#endif
