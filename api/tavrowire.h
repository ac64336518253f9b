#ifndef TAVROWIRE_H
#define TAVROWIRE_H

#include "zerror.h"
#include "zstring.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>

// How the arguments and results of the remote functions look on the wire.
//
// A request argument is one chunk: every scalar (bool, unsigned char, an
// enumeration, unsigned int, float) a 4-byte word, unsigned long 8 bytes, a
// string its characters and a zero padded with zeros to (length + 4) & ~3
// bytes, a record (or ZTimeUs) its memory image. A reply carries the results
// back to back in their natural size (a bool is one byte), then the error
// record.

namespace TavroApi {
namespace wire {

template <class T>
constexpr bool isWideWord = std::is_same<T, unsigned long>::value && sizeof(T) == 8;
template <class T>
constexpr bool isWord = (std::is_arithmetic<T>::value || std::is_enum<T>::value) && !isWideWord<T>;
template <class T>
constexpr bool isImage = std::is_class<T>::value && !std::is_same<T, ZString>::value;

// The size of a string argument on the wire.
inline uint32_t stringSize(const ZString& s) {
    return (uint32_t(s.len()) + 4) & ~3u;
}

// One request argument encoded as a chunk. A record is not copied: the chunk
// points at the caller's object, which must outlive the write.
class RequestArg {
public:
    RequestArg(const ZString& s) : oimage(nullptr), oword(0), olen(stringSize(s)) {
        ostring.reset(new uint8_t[olen]());
        memcpy(ostring.get(), s.retStr(), size_t(s.len()));
    }
    template <class T, class = std::enable_if_t<!std::is_same<T, ZString>::value>>
    RequestArg(const T& v) : oimage(nullptr), oword(0), olen(0) {
        if constexpr (isWideWord<T>) {
            oword = v;
            olen = 8;
        } else if constexpr (std::is_same<T, float>::value) {
            uint32_t w;
            memcpy(&w, &v, sizeof(w));
            oword = w;
            olen = 4;
        } else if constexpr (isWord<T>) {
            static_assert(sizeof(T) <= 4, "a scalar argument travels as one word");
            oword = uint32_t(v);
            olen = 4;
        } else {
            static_assert(isImage<T> && std::is_trivially_copyable<T>::value,
                          "a record argument travels as its image");
            oimage = &v;
            olen = sizeof(T);
        }
    }

    const void* data() const {
        if (oimage)
            return oimage;
        if (ostring)
            return ostring.get();
        return &oword;
    }
    uint32_t length() const { return olen; }

private:
    const void* oimage;
    std::unique_ptr<uint8_t[]> ostring;
    uint64_t oword; // little-endian: a 4-byte word is its first four bytes
    uint32_t olen;
};

// The natural size of a result in a reply.
template <class T>
constexpr uint32_t resultSize() {
    if constexpr (std::is_same<T, bool>::value)
        return 1;
    else
        return sizeof(T);
}

// Takes the arguments of a request from its payload, refusing to read past
// the end of it.
class RequestReader {
public:
    RequestReader(const uint8_t* data, uint32_t len) : op(data), oend(data + len) {}

    ZError take(ZString& s) {
        size_t left = size_t(oend - op);
        const void* zero = memchr(op, 0, left);
        if (!zero)
            return ZError(6, "ZoapMc1 string not terminated");
        size_t n = size_t(static_cast<const uint8_t*>(zero) - op);
        s = ZString(reinterpret_cast<const char*>(op), int(n));
        // The last argument may come without its padding.
        op += std::min(size_t((n + 4) & ~size_t(3)), left);
        return ZError();
    }
    template <class T>
    ZError take(T& v) {
        if constexpr (isWideWord<T>) {
            return bytes(&v, 8);
        } else if constexpr (isWord<T>) {
            uint32_t w = 0;
            ZError err = bytes(&w, 4);
            if (err)
                return err;
            if constexpr (std::is_same<T, bool>::value)
                v = w != 0;
            else if constexpr (std::is_same<T, float>::value)
                memcpy(&v, &w, sizeof(v));
            else if constexpr (std::is_enum<T>::value)
                v = T(std::underlying_type_t<T>(w));
            else
                v = T(w);
            return err;
        } else {
            static_assert(isImage<T> && std::is_trivially_copyable<T>::value, "a record");
            return bytes(static_cast<void*>(&v), sizeof(T));
        }
    }

private:
    ZError bytes(void* to, size_t n) {
        if (size_t(oend - op) < n)
            return ZError(6, "ZoapMc1 request too short");
        memcpy(to, op, n);
        op += n;
        return ZError();
    }

    const uint8_t* op;
    const uint8_t* oend;
};

// Writes the results of a reply into the transmit buffer, refusing to write
// past the room it was given.
class ReplyWriter {
public:
    ReplyWriter(uint8_t* data, uint32_t room) : odata(data), oroom(room), olen(0) {}

    template <class T>
    ZError put(const T& v) {
        if constexpr (std::is_same<T, bool>::value) {
            uint8_t b = v ? 1 : 0;
            return bytes(&b, 1);
        } else {
            static_assert(std::is_trivially_copyable<T>::value, "a result is a scalar or record");
            return bytes(static_cast<const void*>(&v), sizeof(T));
        }
    }
    uint32_t length() const { return olen; }

private:
    ZError bytes(const void* from, uint32_t n) {
        if (oroom - olen < n)
            return ZError(6, "ZoapMc1 reply too large");
        memcpy(odata + olen, from, n);
        olen += n;
        return ZError();
    }

    uint8_t* odata;
    uint32_t oroom;
    uint32_t olen;
};

} // namespace wire
} // namespace TavroApi

#endif
