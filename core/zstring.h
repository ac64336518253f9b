#ifndef ZSTRING_H
#define ZSTRING_H

#include "zrefdata.h"

#include <cstdint>
#include <cstring>
#include <iosfwd>

template <class T>
class ZList;
template <class T>
class ZArray;

// Shared copy-on-write text. Copies share one ZRefData block; the first
// change of a shared string gives it a private block. An empty string holds
// no block, so empty and null are the same state. Indexes are 0-based.
class ZString {
public:
    ZString() : d(nullptr) {}
    ZString(const char* text);
    ZString(const char* text, int n);
    ZString(char c);
    ZString(int value);
    ZString(unsigned int value);
    ZString(unsigned long value);
    ZString(double value);
    ZString(const ZString& s) : d(s.d ? s.d->addRef() : nullptr) {}
    ZString(ZString&& s) noexcept : d(s.d) { s.d = nullptr; }
    ~ZString() { release(); }
    ZString& operator=(const ZString& s);
    ZString& operator=(ZString&& s) noexcept;
    ZString& operator=(const char* text);

    // size
    int len() const { return d ? d->len - 1 : 0; }
    bool isEmpty() const { return len() == 0; }
    void clear() { release(); }
    ZString& truncate(int n);
    const char* retStr() const { return d ? d->data : ""; }
    const char* str() const { return retStr(); }
    char* retStrDup() const;
    // A private copy whose block is shared with no one, for handing to another thread.
    ZString copy() const;

    // number in
    ZString& convert(char c);
    ZString& convert(int value);
    ZString& convert(unsigned int value);
    ZString& convert(long value);
    ZString& convert(unsigned long value);
    ZString& convert(double value, int exp);
    ZString& convertHex(int value);
    ZString& convertHex(unsigned int value);

    // number out (strtol/strtoul base 0, strtod)
    int retInt() const;
    unsigned int retUInt() const;
    double retDouble() const;
    double retFloat64() const;

    // case
    ZString& toUpper();
    ZString& toLower();
    ZString lowerFirst() const;

    // edit
    ZString& append(const ZString& s);
    ZString& append(const char* text) { return text ? append(text, int(strlen(text))) : *this; }
    // Inline fast path: a private block with room to spare takes the bytes
    // directly; everything else goes through appendSlow.
    ZString& append(const char* text, int n) {
        if (d && n > 0 && d->len + n <= d->alloc &&
            d->refCount.load(std::memory_order_acquire) == 1 &&
            (text < d->data || text >= d->data + d->len)) {
            memcpy(d->data + d->len - 1, text, n);
            d->len += n;
            d->data[d->len - 1] = 0;
            return *this;
        }
        return appendSlow(text, n);
    }
    ZString& append(char c) { return c ? append(&c, 1) : *this; }
    ZString add(const ZString& s) const;
    ZString& insert(int pos, const ZString& s);
    ZString& del(int pos, int n);
    ZString& removeNL();
    ZString& pad(int n);
    // mode 0 left, 1 right, 2 centred in a field of n characters; a longer text is kept whole.
    ZString& justify(int mode, int n);
    ZString fixedLen(int n, int rightAlign) const;
    ZString& translateChar(char c, char replacement);
    ZString& reverse();

    // search: index or -1
    int find(char c) const;
    int findReverse(char c) const;
    int find(const ZString& s) const;
    int inString(int pos) const;

    // compare
    int compare(const ZString& s) const;
    // 0 when this text matches the shell wildcard pattern (*, ?, [...]).
    int compareWild(const ZString& pattern) const;
    // 0 when this text matches any of the patterns separated by "|" or ",".
    int compareWildExpression(const ZString& patterns) const;
    // 0 when this text matches the POSIX regular expression; 1 when not, -1 when it is invalid.
    int compareRegex(const ZString& regex, int flags) const;

    // pieces
    ZString subString(int pos, int n = -1) const;
    ZString field(int n) const;
    int fields() const;
    ZString firstLine() const;
    ZString pullToken(const ZString& separators);
    ZString pullWord();
    ZString pullLine();
    ZString pullSeparators(const ZString& separators);
    ZString removeSeparators(const ZString& separators) const;
    char get(int i) const { return (i >= 0 && i < len()) ? d->data[i] : 0; }
    char operator[](int i) const { return get(i); }

    // paths
    ZString dirname() const;
    ZString filename() const;
    ZString basename() const;
    ZString extension() const;
    ZString extensionFull() const;

    // codes
    ZString base64Encode() const;
    // Decodes into out; returns 0, or 1 on a character outside the alphabet.
    int base64Decode(ZArray<unsigned char>& out) const;
    ZString csvEncode() const;
    ZString& csvDecode(const ZString& field);

    ZString& printf(const char* format, ...) __attribute__((format(printf, 2, 3)));

    uint32_t hash() const;

    ZList<ZString> getTokenList(const ZString& separators) const;
    ZList<ZString> getTokenList(char separator) const;
    ZList<ZString> split(char c) const;

    ZString& operator+=(const ZString& s) { return append(s); }
    ZString& operator+=(const char* s) { return append(s); }
    ZString& operator+=(char c) { return append(c); }

private:
    void release();
    ZString& appendSlow(const char* text, int n);
    void assign(const char* text, int n);
    void detach();
    char* grow(int n); // private block with room for n characters; returns the data

    ZRefData* d;
};

inline bool operator==(const ZString& a, const ZString& b) {
    return a.compare(b) == 0;
}
inline bool operator!=(const ZString& a, const ZString& b) {
    return a.compare(b) != 0;
}
inline bool operator<(const ZString& a, const ZString& b) {
    return a.compare(b) < 0;
}
inline bool operator==(const ZString& a, const char* b) {
    return a.compare(b) == 0;
}
inline bool operator!=(const ZString& a, const char* b) {
    return a.compare(b) != 0;
}
inline ZString operator+(const ZString& a, const ZString& b) {
    return a.add(b);
}
inline ZString operator+(const ZString& a, const char* b) {
    return a.add(b);
}
inline ZString operator+(const char* a, const ZString& b) {
    return ZString(a).add(b);
}

std::ostream& operator<<(std::ostream& os, const ZString& s);
std::istream& operator>>(std::istream& is, ZString& s);

// Shell-style wildcard match; 1 when text matches pattern.
int gmatch(const char* text, const char* pattern);

#endif
