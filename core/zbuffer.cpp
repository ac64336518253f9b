#include "zbuffer.h"

#include <climits>
#include <cstdlib>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

inline uint64_t round256(uint64_t n) {
    return (n + 255u) & ~uint64_t(255u);
}

// Reverses one element of k bytes (2, 4 or 8) from s to d; s may equal d.
inline void reverseElement(const uint8_t* s, uint8_t* d, unsigned k) {
    switch (k) {
    case 2: {
        uint16_t v;
        memcpy(&v, s, 2);
        v = __builtin_bswap16(v);
        memcpy(d, &v, 2);
        break;
    }
    case 4: {
        uint32_t v;
        memcpy(&v, s, 4);
        v = __builtin_bswap32(v);
        memcpy(d, &v, 4);
        break;
    }
    default: {
        uint64_t v;
        memcpy(&v, s, 8);
        v = __builtin_bswap64(v);
        memcpy(d, &v, 8);
        break;
    }
    }
}

// Reverses count elements of 2, 4 or 8 bytes; s may equal d. Sixteen bytes at a time with SSE2
// where available (shifts and word shuffles: the baseline x86-64 instruction set).
template <unsigned K>
void reverseArray(const uint8_t* s, uint8_t* d, uint32_t count) {
    uint32_t i = 0;
#if defined(__SSE2__)
    const uint32_t perVector = 16 / K;
    for (; i + perVector <= count; i += perVector) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + size_t(i) * K));
        v = _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8)); // bytes in 16-bit words
        if (K >= 4) {
            v = _mm_shufflelo_epi16(v, _MM_SHUFFLE(2, 3, 0, 1)); // words in 32-bit elements
            v = _mm_shufflehi_epi16(v, _MM_SHUFFLE(2, 3, 0, 1));
        }
        if (K == 8)
            v = _mm_shuffle_epi32(v, _MM_SHUFFLE(2, 3, 0, 1)); // halves of 64-bit elements
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + size_t(i) * K), v);
    }
#endif
    for (; i < count; i++)
        reverseElement(s + size_t(i) * K, d + size_t(i) * K, K);
}

inline unsigned elementSize(char c) {
    return (c == '2' || c == '4' || c == '8') ? unsigned(c - '0') : 1u;
}

} // namespace

void bswap_copy(int swap, const void* src, void* dst, uint32_t n, const char* format) {
    const uint8_t* s = static_cast<const uint8_t*>(src);
    uint8_t* d = static_cast<uint8_t*>(dst);
    if (n == 0)
        return;
    if (!swap || !format || !format[0]) {
        if (s != d)
            memmove(d, s, n);
        return;
    }
    if (!format[1]) {
        unsigned k = elementSize(format[0]);
        if (k == 1) {
            if (s != d)
                memmove(d, s, n);
            return;
        }
        uint32_t count;
        if (k == 2) {
            count = n >> 1;
            reverseArray<2>(s, d, count);
        } else if (k == 4) {
            count = n >> 2;
            reverseArray<4>(s, d, count);
        } else {
            count = n >> 3;
            reverseArray<8>(s, d, count);
        }
        uint32_t done = count * k;
        if (done < n && s != d)
            memmove(d + done, s + done, n - done); // a partial last element is copied as it is
        return;
    }
    // A record format, restarted from its first character until n bytes are done.
    uint32_t i = 0;
    const char* f = format;
    while (i < n) {
        if (!*f)
            f = format;
        unsigned k = elementSize(*f++);
        if (k == 1) {
            d[i] = s[i];
            i++;
        } else if (n - i < k) {
            // The element would run past n: copy what is left as it is.
            if (s != d)
                memmove(d + i, s + i, n - i);
            i = n;
        } else {
            reverseElement(s + i, d + i, k);
            i += k;
        }
    }
}

// ---------------- ZBuffer ----------------

ZBuffer::ZBuffer(uint32_t size) : oallocSize(0), odata(nullptr), osize(0) {
    setSize(size);
}

ZBuffer::ZBuffer(const ZBuffer& b) : oallocSize(0), odata(nullptr), osize(0) {
    setData(b.odata, b.osize);
}

ZBuffer::ZBuffer(ZBuffer&& b) noexcept : oallocSize(b.oallocSize), odata(b.odata), osize(b.osize) {
    b.oallocSize = 0;
    b.odata = nullptr;
    b.osize = 0;
}

ZBuffer& ZBuffer::operator=(const ZBuffer& b) {
    if (this != &b)
        setData(b.odata, b.osize);
    return *this;
}

ZBuffer& ZBuffer::operator=(ZBuffer&& b) noexcept {
    if (this != &b) {
        free(odata);
        oallocSize = b.oallocSize;
        odata = b.odata;
        osize = b.osize;
        b.oallocSize = 0;
        b.odata = nullptr;
        b.osize = 0;
    }
    return *this;
}

ZBuffer::~ZBuffer() {
    free(odata);
}

int ZBuffer::setSize(uint32_t n) {
    uint64_t want = round256(n);
    if (want > 0xFFFFFF00u) {
        // The allocation would not fit the 32-bit allocSize: treat as out of memory.
        free(odata);
        odata = nullptr;
        oallocSize = osize = 0;
        return 1;
    }
    if (want != oallocSize) {
        if (want == 0) {
            free(odata);
            odata = nullptr;
            oallocSize = osize = 0;
            return 0;
        }
        uint8_t* p = static_cast<uint8_t*>(realloc(odata, size_t(want)));
        if (!p) {
            free(odata);
            odata = nullptr;
            oallocSize = osize = 0;
            return 1;
        }
        odata = p;
        oallocSize = uint32_t(want);
    }
    if (n > osize)
        memset(odata + osize, 0, n - osize);
    osize = n;
    return 0;
}

int ZBuffer::setData(const void* data, uint32_t n) {
    if (n && odata && data >= static_cast<const void*>(odata) &&
        data < static_cast<const void*>(odata + oallocSize)) {
        // Data from inside this very buffer: copy it aside first.
        void* tmp = malloc(n);
        if (!tmp) {
            setSize(0);
            return 1;
        }
        memcpy(tmp, data, n);
        int r = setData(tmp, n);
        free(tmp);
        return r;
    }
    osize = 0; // nothing to keep: setSize must not zero what is about to be overwritten
    if (setSize(n))
        return 1;
    if (n && data)
        memcpy(odata, data, n);
    return 0;
}

int ZBuffer::reserve(uint64_t n) {
    if (n <= oallocSize)
        return 0;
    if (n > 0xFFFFFF00u)
        return 1;
    uint64_t want = uint64_t(oallocSize) + oallocSize / 2; // 1.5x
    if (want < n)
        want = n;
    want = round256(want);
    if (want > 0xFFFFFF00u)
        want = round256(n);
    uint8_t* p = static_cast<uint8_t*>(realloc(odata, size_t(want)));
    if (!p)
        return 1;
    odata = p;
    oallocSize = uint32_t(want);
    return 0;
}

int ZBuffer::writeData(uint32_t offset, const void* data, uint32_t n) {
    uint64_t end = uint64_t(offset) + n;
    if (n && !data)
        return 1;
    if (end > osize) {
        const uint8_t* d = static_cast<const uint8_t*>(data);
        if (n && odata && d >= odata && d < odata + oallocSize && end > oallocSize) {
            // Data from inside this buffer, which is about to move: follow it.
            size_t at = size_t(d - odata);
            if (reserve(end))
                return 1;
            data = odata + at;
        } else if (reserve(end)) {
            return 1;
        }
        if (offset > osize)
            memset(odata + osize, 0, offset - osize);
        osize = uint32_t(end);
    }
    if (n)
        memmove(odata + offset, data, n);
    return 0;
}

// ---------------- ZBufferStore ----------------

uint8_t* ZBufferStore::roomSlow(uint32_t n) {
    uint64_t end = uint64_t(pos) + n;
    if (reserve(end))
        return nullptr;
    if (pos > osize)
        memset(odata + osize, 0, pos - osize); // a gap left by setPos beyond the end
    osize = uint32_t(end);
    return odata + pos;
}

int ZBufferStore::push(const ZString& s) {
    uint32_t len = uint32_t(s.len()) + 1;
    uint8_t* p = room(4 + len);
    if (!p)
        return 1;
    uint32_t l = swap ? __builtin_bswap32(len) : len;
    memcpy(p, &l, 4);
    memcpy(p + 4, s.retStr(), len); // retStr() always has the NUL, "" for an empty string
    pos += 4 + len;
    return 0;
}

int ZBufferStore::pop(ZString& s) {
    if (pos > osize || osize - pos < 4)
        return 1;
    uint32_t n;
    memcpy(&n, odata + pos, 4);
    if (swap)
        n = __builtin_bswap32(n);
    if (osize - pos - 4 < n || n > uint32_t(INT_MAX))
        return 1;
    const char* t = reinterpret_cast<const char*>(odata + pos + 4);
    s = n > 1 ? ZString(t, int(n - 1)) : ZString();
    pos += 4 + n;
    return 0;
}

int ZBufferStore::push(const ZError& e) {
    uint32_t start = pos, oldSize = osize;
    if (push(int32_t(e.number)))
        return 1;
    if (push(e.string)) {
        pos = start;
        osize = oldSize;
        return 1;
    }
    return 0;
}

int ZBufferStore::pop(ZError& e) {
    uint32_t start = pos;
    int32_t number;
    ZString text;
    if (pop(number))
        return 1;
    if (pop(text)) {
        pos = start;
        return 1;
    }
    e.number = number;
    e.string = text;
    return 0;
}

ZString ZBufferStore::getHexString() const {
    static const char digits[] = "0123456789ABCDEF";
    if (osize == 0)
        return ZString();
    char* buf = static_cast<char*>(malloc(size_t(osize) * 2 + 1));
    if (!buf)
        return ZString();
    for (uint32_t i = 0; i < osize; i++) {
        buf[2 * i] = digits[odata[i] >> 4];
        buf[2 * i + 1] = digits[odata[i] & 15];
    }
    buf[size_t(osize) * 2] = 0;
    ZString s(buf);
    free(buf);
    return s;
}

static int hexValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

int ZBufferStore::setHexString(const ZString& text) {
    uint32_t len = uint32_t(text.len());
    const char* t = text.retStr();
    if (len % 2)
        return 1;
    for (uint32_t i = 0; i < len; i++) {
        if (hexValue(t[i]) < 0)
            return 1;
    }
    osize = 0;
    if (setSize(len / 2))
        return 1;
    for (uint32_t i = 0; i < len / 2; i++)
        odata[i] = uint8_t(hexValue(t[2 * i]) << 4 | hexValue(t[2 * i + 1]));
    pos = 0;
    return 0;
}
