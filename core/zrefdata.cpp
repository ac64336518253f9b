#include "zrefdata.h"

#include <cstdlib>
#include <cstring>
#include <new>

ZRefData::ZRefData(int n) : refCount(1), len(0), data(nullptr), alloc(0) {
    if (n > 0) {
        data = static_cast<char*>(malloc(n));
        if (!data)
            throw std::bad_alloc();
        len = alloc = n;
    }
}

ZRefData::~ZRefData() {
    free(data);
}

ZRefData* ZRefData::copy() {
    if (refCount.fetch_add(1, std::memory_order_acq_rel) + 1 < 3) {
        refCount.fetch_sub(1, std::memory_order_acq_rel);
        return this;
    }
    ZRefData* fresh = new ZRefData(len);
    if (len > 0)
        memcpy(fresh->data, data, len);
    // Drop the temporary reference and the caller's own; another owner may
    // have let go meanwhile, in which case the old block is ours to free.
    if (refCount.fetch_sub(2, std::memory_order_acq_rel) - 2 == 0)
        delete this;
    return fresh;
}

int ZRefData::setLen(int n) {
    if (n <= 0) {
        free(data);
        data = nullptr;
        len = alloc = 0;
        return 0;
    }
    char* p = static_cast<char*>(realloc(data, n));
    if (!p)
        return 1;
    data = p;
    len = alloc = n;
    return 0;
}

int ZRefData::reserve(int n) {
    if (n <= alloc)
        return 0;
    long want = long(alloc) * 2;
    if (want < n)
        want = n;
    if (want < 16)
        want = 16;
    if (want > 0x7fffffff)
        want = n;
    char* p = static_cast<char*>(realloc(data, want));
    if (!p)
        return 1;
    data = p;
    alloc = int32_t(want);
    return 0;
}
