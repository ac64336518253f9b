#ifndef ZBUFFER_H
#define ZBUFFER_H

#include "zerror.h"
#include "zstring.h"
#include "ztimestamp.h"

#include <complex>
#include <cstdint>
#include <cstring>

// Copies n bytes from src to dst. With swap 0 a plain copy. Otherwise format
// tells the element sizes: a single character "2", "4" or "8" reverses every 2-, 4- or 8-byte
// element across the n bytes, any other single character (as "1") copies plainly; a longer
// format describes one record, each character the size of the next element ("2", "4", "8"
// reversed, any other character one byte copied as it is), restarting from its first character
// until the n bytes are done. Bytes of an element that would run past n are copied as they are
// (never reading or writing beyond n). A null or empty format is a plain copy. src may equal
// dst (conversion in place); other overlaps are not supported.
void bswap_copy(int swap, const void* src, void* dst, uint32_t n, const char* format);

// A growable byte block. The allocation is always a multiple of 256 bytes: setSize(),
// setData() and the constructor make it exactly the size rounded up to a multiple of 256
// (a size of 300 allocates 512); the append paths of ZBufferStore grow it geometrically
// (still multiples of 256, never shrinking) so that many small pushes stay cheap.
class ZBuffer {
public:
    explicit ZBuffer(uint32_t size = 0);
    ZBuffer(const ZBuffer& b);
    ZBuffer(ZBuffer&& b) noexcept;
    ZBuffer& operator=(const ZBuffer& b);
    ZBuffer& operator=(ZBuffer&& b) noexcept;
    ~ZBuffer();

    uint32_t size() const { return osize; }
    uint32_t allocSize() const { return oallocSize; }
    uint8_t* data() { return odata; }
    const uint8_t* data() const { return odata; }

    // Resizes to n bytes, the allocation to n rounded up to a multiple of 256; new bytes are
    // zero. Returns 0, or 1 when memory ran out (the buffer is then empty).
    int setSize(uint32_t n);
    // Replaces the contents by n bytes of data. Returns 0 or 1 (out of memory, buffer empty).
    int setData(const void* data, uint32_t n);
    // Grows if needed (a gap after the old end is zero), then copies n bytes in at offset.
    // Returns 0, or 1 when memory ran out (the buffer is then unchanged).
    int writeData(uint32_t offset, const void* data, uint32_t n);
    void clear() { setSize(0); }

protected:
    // Makes the allocation at least n bytes, growing geometrically. 0, or 1 when out of memory
    // or n does not fit 32 bits (the buffer is then unchanged).
    int reserve(uint64_t n);

public:
    uint32_t oallocSize; // bytes allocated
    uint8_t* odata;      // malloc/realloc block
    uint32_t osize;      // bytes in use
};

// A ZBuffer with a read/write position and a byte-order flag. Every push writes at pos, sets
// size = pos + the value's length (cutting off what followed) and advances pos; every pop
// reads at pos and returns 1, leaving pos unchanged, when too few bytes remain.
class ZBufferStore : public ZBuffer {
public:
    // swap non-zero: multi-byte values are stored byte-reversed relative to the host.
    explicit ZBufferStore(uint32_t size = 0, int swap = 0) : ZBuffer(size), pos(0), swap(swap) {}

    uint32_t getPos() const { return pos; }
    void setPos(uint32_t p) { pos = p; }
    int getSwap() const { return swap; }
    void setSwap(int s) { swap = s; }
    // Bytes from pos to the end (0 when pos is past the end).
    uint32_t remaining() const { return pos < osize ? osize - pos : 0; }
    // Size and pos 0 (keeps the allocation).
    void reset() { osize = 0, pos = 0; }

    // push: 0, or 1 only when memory ran out (nothing is written then).
    int push(bool v) { return pushBits(uint8_t(v ? 1 : 0)); }
    int push(char v) { return pushBits(uint8_t(v)); }
    int push(int8_t v) { return pushBits(uint8_t(v)); }
    int push(uint8_t v) { return pushBits(v); }
    int push(int16_t v) { return pushBits(uint16_t(v)); }
    int push(uint16_t v) { return pushBits(v); }
    int push(int32_t v) { return pushBits(uint32_t(v)); }
    int push(uint32_t v) { return pushBits(v); }
    int push(long v) { return pushBits(uint64_t(v)); }
    int push(unsigned long v) { return pushBits(uint64_t(v)); }
    int push(long long v) { return pushBits(uint64_t(v)); }
    int push(unsigned long long v) { return pushBits(uint64_t(v)); }
    int push(float v) {
        uint32_t u;
        memcpy(&u, &v, 4);
        return pushBits(u);
    }
    int push(double v) {
        uint64_t u;
        memcpy(&u, &v, 8);
        return pushBits(u);
    }
    int push(const std::complex<double>& v);
    // 32-bit length n = characters + 1, then the n bytes including the NUL.
    int push(const ZString& s);
    int push(const char* s) { return push(ZString(s)); }
    // The number as 32 bits, then the text as a ZString.
    int push(const ZError& e);
    // year 16, yday 16, hour 8, minute 8, second 8, microSecond 32: 11 bytes.
    int push(const ZTimeStamp& t);
    // n raw bytes converted as format says (see bswap_copy).
    int push(uint32_t n, const void* data, const char* format = "1");
    int push(uint32_t n, const void* data, const ZString& format) {
        return push(n, data, format.retStr());
    }

    // pop: 0, or 1 when fewer bytes remain than the value needs (pos and value unchanged).
    int pop(bool& v) {
        uint8_t u;
        if (popBits(u))
            return 1;
        v = u != 0;
        return 0;
    }
    int pop(char& v) { return popAs<uint8_t>(v); }
    int pop(int8_t& v) { return popAs<uint8_t>(v); }
    int pop(uint8_t& v) { return popBits(v); }
    int pop(int16_t& v) { return popAs<uint16_t>(v); }
    int pop(uint16_t& v) { return popBits(v); }
    int pop(int32_t& v) { return popAs<uint32_t>(v); }
    int pop(uint32_t& v) { return popBits(v); }
    int pop(long& v) { return popAs<uint64_t>(v); }
    int pop(unsigned long& v) { return popAs<uint64_t>(v); }
    int pop(long long& v) { return popAs<uint64_t>(v); }
    int pop(unsigned long long& v) { return popAs<uint64_t>(v); }
    int pop(float& v) {
        uint32_t u;
        if (popBits(u))
            return 1;
        memcpy(&v, &u, 4);
        return 0;
    }
    int pop(double& v) {
        uint64_t u;
        if (popBits(u))
            return 1;
        memcpy(&v, &u, 8);
        return 0;
    }
    int pop(std::complex<double>& v);
    // Tests the 4-byte length, then the n bytes. The text is taken up to its first NUL within
    // the n bytes (at most n - 1 characters); a length of 0 gives an empty string.
    int pop(ZString& s);
    int pop(ZError& e);
    int pop(ZTimeStamp& t);
    int pop(uint32_t n, void* data, const char* format = "1");
    int pop(uint32_t n, void* data, const ZString& format) { return pop(n, data, format.retStr()); }

    // Two upper-case hexadecimal digits per byte of the whole buffer, from the start.
    ZString getHexString() const;
    // The reverse: size = length / 2 and pos 0. Accepts digits and upper-case A-F only; an odd
    // length or any other character is refused with 1 and the buffer and pos left unchanged.
    int setHexString(const ZString& text);

    uint32_t pos; // the next byte to read or write
    int swap;     // non-zero: multi-byte values byte-reversed

private:
    static uint8_t bswapT(uint8_t v) { return v; }
    static uint16_t bswapT(uint16_t v) { return __builtin_bswap16(v); }
    static uint32_t bswapT(uint32_t v) { return __builtin_bswap32(v); }
    static uint64_t bswapT(uint64_t v) { return __builtin_bswap64(v); }

    // Makes room for n bytes at pos (zero-filling a gap when pos is past the end); returns the
    // place to write, or null when memory ran out. Sets size = pos + n.
    uint8_t* room(uint32_t n) {
        uint64_t end = uint64_t(pos) + n;
        if (__builtin_expect(pos > osize || end > oallocSize, 0))
            return roomSlow(n);
        osize = uint32_t(end);
        return odata + pos;
    }
    uint8_t* roomSlow(uint32_t n);

    template <class U>
    int pushBits(U v) {
        uint8_t* p = room(sizeof(U));
        if (__builtin_expect(!p, 0))
            return 1;
        if (swap)
            v = bswapT(v);
        memcpy(p, &v, sizeof(U));
        pos += sizeof(U);
        return 0;
    }
    template <class U>
    int popBits(U& v) {
        if (__builtin_expect(pos > osize || osize - pos < sizeof(U), 0))
            return 1;
        U u;
        memcpy(&u, odata + pos, sizeof(U));
        v = swap ? bswapT(u) : u;
        pos += sizeof(U);
        return 0;
    }
    template <class U, class T>
    int popAs(T& v) {
        U u;
        if (popBits(u))
            return 1;
        v = T(u);
        return 0;
    }
};

// ---- inline fast paths ----

inline int ZBufferStore::push(const ZTimeStamp& t) {
    uint8_t* p = room(11);
    if (__builtin_expect(!p, 0))
        return 1;
    uint16_t y = uint16_t(t.oyear), d = uint16_t(t.oyday);
    uint32_t us = uint32_t(t.omicroSecond);
    if (swap) {
        y = __builtin_bswap16(y), d = __builtin_bswap16(d), us = __builtin_bswap32(us);
    }
    memcpy(p, &y, 2);
    memcpy(p + 2, &d, 2);
    p[4] = t.ohour, p[5] = t.ominute, p[6] = t.osecond;
    memcpy(p + 7, &us, 4);
    pos += 11;
    return 0;
}

inline int ZBufferStore::pop(ZTimeStamp& t) {
    if (__builtin_expect(pos > osize || osize - pos < 11, 0))
        return 1;
    const uint8_t* p = odata + pos;
    uint16_t y, d;
    uint32_t us;
    memcpy(&y, p, 2);
    memcpy(&d, p + 2, 2);
    memcpy(&us, p + 7, 4);
    if (swap) {
        y = __builtin_bswap16(y), d = __builtin_bswap16(d), us = __builtin_bswap32(us);
    }
    t.oyear = int16_t(y), t.oyday = int16_t(d);
    t.ohour = p[4], t.ominute = p[5], t.osecond = p[6];
    t.omicroSecond = int32_t(us);
    pos += 11;
    return 0;
}

inline int ZBufferStore::push(uint32_t n, const void* data, const char* format) {
    uint8_t* p = room(n);
    if (__builtin_expect(!p, 0))
        return 1;
    if (swap)
        bswap_copy(swap, data, p, n, format);
    else if (n)
        memcpy(p, data, n);
    pos += n;
    return 0;
}

inline int ZBufferStore::pop(uint32_t n, void* data, const char* format) {
    if (__builtin_expect(pos > osize || osize - pos < n, 0))
        return 1;
    if (swap)
        bswap_copy(swap, odata + pos, data, n, format);
    else if (n)
        memcpy(data, odata + pos, n);
    pos += n;
    return 0;
}

inline int ZBufferStore::push(const std::complex<double>& v) {
    double re = v.real(), im = v.imag();
    uint8_t* p = room(16);
    if (__builtin_expect(!p, 0))
        return 1;
    uint64_t a, b;
    memcpy(&a, &re, 8);
    memcpy(&b, &im, 8);
    if (swap)
        a = __builtin_bswap64(a), b = __builtin_bswap64(b);
    memcpy(p, &a, 8);
    memcpy(p + 8, &b, 8);
    pos += 16;
    return 0;
}

inline int ZBufferStore::pop(std::complex<double>& v) {
    if (__builtin_expect(pos > osize || osize - pos < 16, 0))
        return 1;
    uint64_t a, b;
    memcpy(&a, odata + pos, 8);
    memcpy(&b, odata + pos + 8, 8);
    if (swap)
        a = __builtin_bswap64(a), b = __builtin_bswap64(b);
    double re, im;
    memcpy(&re, &a, 8);
    memcpy(&im, &b, 8);
    v = std::complex<double>(re, im);
    pos += 16;
    return 0;
}

#endif
