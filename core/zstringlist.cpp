#include "zstringlist.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

ZList<ZString> zstringToList(const ZString& s, int stripSpaces) {
    ZList<ZString> list = s.split(',');
    if (stripSpaces)
        for (ZString& item : list)
            item = item.removeSeparators(" \t\r\n\v\f");
    return list;
}

ZArray<ZString> zstringToArray(const ZString& s, int stripSpaces) {
    ZArray<ZString> array;
    for (const ZString& item : zstringToList(s, stripSpaces))
        array.append(item);
    return array;
}

ZList<ZString> charToList(const char** texts) {
    ZList<ZString> list;
    for (; texts && *texts; texts++)
        list.append(ZString(*texts));
    return list;
}

ZArray<ZString> charToArray(const char** texts) {
    ZArray<ZString> array;
    for (; texts && *texts; texts++)
        array.append(ZString(*texts));
    return array;
}

namespace {
template <class C>
ZString join(const C& items) {
    ZString out;
    bool first = true;
    for (const ZString& item : items) {
        if (!first)
            out.append(',');
        out.append(item);
        first = false;
    }
    return out;
}
} // namespace

ZString zlistToString(const ZList<ZString>& list) {
    return join(list);
}
ZString zarrayToString(const ZArray<ZString>& array) {
    return join(array);
}

int zstringListinList(const ZList<ZString>& list, const ZString& s) {
    for (const ZString& item : list)
        if (item.compare(s) == 0)
            return 1;
    return 0;
}

void toZString(const ZString& value, ZString& out) {
    out = value;
}
void toZString(const ZList<ZString>& value, ZString& out) {
    out = zlistToString(value);
}
void toZString(int value, ZString& out) {
    out.convert(value);
}
void toZString(unsigned int value, ZString& out) {
    out.convert(value);
}
void toZString(unsigned long value, ZString& out) {
    out.convert(value);
}
void toZString(double value, ZString& out) {
    out.convert(value, 0);
}
void fromZString(const ZString& text, ZString& value) {
    value = text;
}
void fromZString(const ZString& text, ZList<ZString>& value) {
    value = zstringToList(text, 0);
}
void fromZString(const ZString& text, int& value) {
    value = text.retInt();
}
void fromZString(const ZString& text, unsigned int& value) {
    value = text.retUInt();
}
void fromZString(const ZString& text, unsigned long& value) {
    value = strtoul(text.retStr(), nullptr, 0);
}
void fromZString(const ZString& text, double& value) {
    value = text.retDouble();
}

namespace {
// Writes the digits of v (without sign) right to left ending at end; returns the start.
char* digits(char* end, uint64_t v) {
    do {
        *--end = char('0' + v % 10);
        v /= 10;
    } while (v);
    return end;
}

int place(char* buf, int size, const char* text, int n, int width) {
    if (!buf || size <= 0)
        return 0;
    int pad = width > n ? width - n : 0;
    int out = 0;
    for (; out < pad && out < size - 1; out++)
        buf[out] = ' ';
    for (int i = 0; i < n && out < size - 1; i++)
        buf[out++] = text[i];
    buf[out] = 0;
    return out;
}
} // namespace

int int64ToString(char* buf, int size, int64_t value, int width) {
    char tmp[24];
    char* end = tmp + sizeof(tmp);
    uint64_t mag = value < 0 ? uint64_t(0) - uint64_t(value) : uint64_t(value);
    char* p = digits(end, mag);
    if (value < 0)
        *--p = '-';
    return place(buf, size, p, int(end - p), width);
}

int intToString(char* buf, int size, int value, int width) {
    return int64ToString(buf, size, value, width);
}

int floatToString(char* buf, int size, double value, int digitsAfter) {
    if (!buf || size <= 0)
        return 0;
    if (std::isnan(value))
        return place(buf, size, "nan", 3, 0);
    if (std::isinf(value))
        return value < 0 ? place(buf, size, "-inf", 4, 0) : place(buf, size, "inf", 3, 0);
    if (digitsAfter < 0)
        digitsAfter = 0;
    if (digitsAfter > 9)
        digitsAfter = 9;
    char tmp[48];
    char* end = tmp + sizeof(tmp);
    bool neg = std::signbit(value);
    double mag = std::fabs(value);
    if (mag >= 1e18) { // too large for the integer path
        int n = snprintf(tmp, sizeof(tmp), "%.*f", digitsAfter, value);
        return place(buf, size, tmp, n < int(sizeof(tmp)) ? n : int(sizeof(tmp)) - 1, 0);
    }
    uint64_t scale = 1;
    for (int i = 0; i < digitsAfter; i++)
        scale *= 10;
    uint64_t whole = uint64_t(std::llround(mag * double(scale)));
    char* p = end;
    if (digitsAfter > 0) {
        uint64_t frac = whole % scale;
        for (int i = 0; i < digitsAfter; i++) {
            *--p = char('0' + frac % 10);
            frac /= 10;
        }
        *--p = '.';
    }
    p = digits(p, whole / scale);
    if (neg && whole != 0)
        *--p = '-';
    return place(buf, size, p, int(end - p), 0);
}

char* zstrncpy(char* dst, const char* src, int n) {
    if (n <= 0)
        return dst;
    strncpy(dst, src, size_t(n));
    dst[n - 1] = 0;
    return dst;
}

char* zstrtrim(char* s) {
    if (!s)
        return s;
    char* b = s;
    while (*b && isspace((unsigned char)*b))
        b++;
    size_t n = strlen(b);
    while (n > 0 && isspace((unsigned char)b[n - 1]))
        n--;
    memmove(s, b, n);
    s[n] = 0;
    return s;
}
