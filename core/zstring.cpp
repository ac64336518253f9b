#include "zstring.h"

#include "zlist.h"

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <istream>
#include <new>
#include <ostream>
#include <regex.h>

ZString::ZString(const char* text) : d(nullptr) {
    if (text && *text)
        assign(text, int(strlen(text)));
}

ZString::ZString(const char* text, int n) : d(nullptr) {
    if (text && n > 0)
        assign(text, int(strnlen(text, n)));
}

ZString::ZString(char c) : d(nullptr) {
    convert(c);
}
ZString::ZString(int value) : d(nullptr) {
    convert(value);
}
ZString::ZString(unsigned int value) : d(nullptr) {
    convert(value);
}
ZString::ZString(unsigned long value) : d(nullptr) {
    convert(value);
}
ZString::ZString(double value) : d(nullptr) {
    convert(value, 0);
}

ZString& ZString::operator=(const ZString& s) {
    if (d != s.d) {
        ZRefData* n = s.d ? s.d->addRef() : nullptr;
        release();
        d = n;
    }
    return *this;
}

ZString& ZString::operator=(ZString&& s) noexcept {
    if (this != &s) {
        release();
        d = s.d;
        s.d = nullptr;
    }
    return *this;
}

ZString& ZString::operator=(const char* text) {
    ZString t(text);
    *this = std::move(t);
    return *this;
}

void ZString::release() {
    if (d && d->deleteRef() == 0)
        delete d;
    d = nullptr;
}

void ZString::assign(const char* text, int n) {
    release();
    if (n <= 0)
        return;
    d = new ZRefData(n + 1);
    memcpy(d->data, text, n);
    d->data[n] = 0;
}

void ZString::detach() {
    // A count of 1 means no one else holds the block, and no one can start
    // sharing it while this object is being changed: skip the atomic round trip.
    if (d && d->refCount.load(std::memory_order_acquire) != 1)
        d = d->copy();
}

char* ZString::grow(int n) {
    if (!d) {
        d = new ZRefData(0);
        d->len = 1;
    } else if (d->refCount.load(std::memory_order_acquire) != 1) {
        // Shared: copy straight into a block of the new size rather than
        // copying first and growing after.
        ZRefData* fresh = new ZRefData(0);
        if (fresh->reserve(n + 1) != 0) {
            delete fresh;
            throw std::bad_alloc();
        }
        memcpy(fresh->data, d->data, d->len);
        fresh->len = d->len;
        release();
        d = fresh;
        return d->data;
    }
    if (d->reserve(n + 1) != 0)
        throw std::bad_alloc();
    return d->data;
}

ZString& ZString::truncate(int n) {
    if (n < 0)
        n = 0;
    if (n < len()) {
        detach();
        d->data[n] = 0;
        d->len = n + 1;
    }
    return *this;
}

char* ZString::retStrDup() const {
    return strdup(retStr());
}

ZString ZString::copy() const {
    return ZString(retStr(), len());
}

// number in

ZString& ZString::convert(char c) {
    char buf[2] = {c, 0};
    assign(buf, c ? 1 : 0);
    return *this;
}

ZString& ZString::convert(int value) {
    return printf("%d", value);
}
ZString& ZString::convert(unsigned int value) {
    return printf("%u", value);
}
ZString& ZString::convert(long value) {
    return printf("%ld", value);
}
ZString& ZString::convert(unsigned long value) {
    return printf("%lu", value);
}
ZString& ZString::convert(double value, int exp) {
    return exp ? printf("%e", value) : printf("%f", value);
}
ZString& ZString::convertHex(int value) {
    return printf("0x%x", unsigned(value));
}
ZString& ZString::convertHex(unsigned int value) {
    return printf("0x%x", value);
}

// number out

int ZString::retInt() const {
    return int(strtol(retStr(), nullptr, 0));
}
unsigned int ZString::retUInt() const {
    return unsigned(strtoul(retStr(), nullptr, 0));
}
double ZString::retDouble() const {
    return strtod(retStr(), nullptr);
}
double ZString::retFloat64() const {
    return strtod(retStr(), nullptr);
}

// case

ZString& ZString::toUpper() {
    if (d) {
        detach();
        for (char* p = d->data; *p; p++)
            *p = char(toupper((unsigned char)*p));
    }
    return *this;
}

ZString& ZString::toLower() {
    if (d) {
        detach();
        for (char* p = d->data; *p; p++)
            *p = char(tolower((unsigned char)*p));
    }
    return *this;
}

ZString ZString::lowerFirst() const {
    ZString s(retStr(), len());
    if (s.d)
        s.d->data[0] = char(tolower((unsigned char)s.d->data[0]));
    return s;
}

// edit

ZString& ZString::append(const ZString& s) {
    if (!s.d)
        return *this;
    if (!d) {
        *this = s;
        return *this;
    }
    ZString keep(s); // keeps the source alive when it is this very string
    return append(keep.retStr(), keep.len());
}

ZString& ZString::appendSlow(const char* text, int n) {
    if (!text || n <= 0)
        return *this;
    int old = len();
    if (d && text >= d->data && text < d->data + d->len) {
        ZString t(text, n); // the source lies in our own block, which may move
        return append(t.retStr(), t.len());
    }
    char* p = grow(old + n);
    memcpy(p + old, text, n);
    p[old + n] = 0;
    d->len = old + n + 1;
    return *this;
}

ZString ZString::add(const ZString& s) const {
    ZString r(*this);
    r.append(s);
    return r;
}

ZString& ZString::insert(int pos, const ZString& s) {
    int n = s.len();
    if (n == 0)
        return *this;
    int l = len();
    if (pos < 0)
        pos = 0;
    if (pos > l)
        pos = l;
    ZString keep(s);
    char* p = grow(l + n);
    memmove(p + pos + n, p + pos, l - pos + 1);
    memcpy(p + pos, keep.retStr(), n);
    d->len = l + n + 1;
    return *this;
}

ZString& ZString::del(int pos, int n) {
    int l = len();
    if (pos < 0 || pos >= l || n <= 0)
        return *this;
    if (n > l - pos)
        n = l - pos;
    detach();
    memmove(d->data + pos, d->data + pos + n, l - pos - n + 1);
    d->len = l - n + 1;
    return *this;
}

ZString& ZString::removeNL() {
    int l = len();
    if (l > 1 && d->data[l - 2] == '\r' && d->data[l - 1] == '\n')
        truncate(l - 2);
    else if (l > 0 && d->data[l - 1] == '\n')
        truncate(l - 1);
    return *this;
}

ZString& ZString::pad(int n) {
    int l = len();
    if (n > l) {
        char* p = grow(n);
        memset(p + l, ' ', n - l);
        p[n] = 0;
        d->len = n + 1;
    }
    return *this;
}

ZString& ZString::justify(int mode, int n) {
    int l = len();
    if (n <= l)
        return *this;
    int before = 0;
    if (mode == 1)
        before = n - l;
    else if (mode == 2)
        before = (n - l) / 2;
    ZString r;
    r.pad(before);
    r.append(*this);
    r.pad(n);
    *this = std::move(r);
    return *this;
}

ZString ZString::fixedLen(int n, int rightAlign) const {
    if (n <= 0)
        return ZString();
    int l = len();
    ZString r;
    if (rightAlign && n > l) {
        r.pad(n - l);
        r.append(retStr(), l);
    } else {
        r.append(retStr(), l < n ? l : n);
        r.pad(n);
    }
    return r;
}

ZString& ZString::translateChar(char c, char replacement) {
    if (find(c) < 0 || !c)
        return *this;
    detach();
    for (char* p = d->data; *p; p++)
        if (*p == c)
            *p = replacement;
    if (!replacement)
        d->len = int(strlen(d->data)) + 1;
    return *this;
}

ZString& ZString::reverse() {
    int l = len();
    if (l < 2)
        return *this;
    detach();
    for (int i = 0, j = l - 1; i < j; i++, j--) {
        char t = d->data[i];
        d->data[i] = d->data[j];
        d->data[j] = t;
    }
    return *this;
}

// search

int ZString::find(char c) const {
    if (!d || !c)
        return -1;
    const char* p = strchr(d->data, c);
    return p ? int(p - d->data) : -1;
}

int ZString::findReverse(char c) const {
    if (!d || !c)
        return -1;
    const char* p = strrchr(d->data, c);
    return p ? int(p - d->data) : -1;
}

int ZString::find(const ZString& s) const {
    if (!d)
        return s.len() == 0 ? 0 : -1;
    const char* p = strstr(d->data, s.retStr());
    return p ? int(p - d->data) : -1;
}

int ZString::inString(int pos) const {
    return (pos >= 0 && pos < len()) ? pos : -1;
}

// compare

int ZString::compare(const ZString& s) const {
    return strcmp(retStr(), s.retStr());
}

int ZString::compareWild(const ZString& pattern) const {
    return gmatch(retStr(), pattern.retStr()) ? 0 : 1;
}

int ZString::compareWildExpression(const ZString& patterns) const {
    ZString rest(patterns);
    for (;;) {
        ZString p = rest.pullToken("|,");
        if (p.isEmpty())
            return 1;
        if (compareWild(p.removeSeparators(" \t")) == 0)
            return 0;
    }
}

int ZString::compareRegex(const ZString& regex, int flags) const {
    regex_t re;
    if (regcomp(&re, regex.retStr(), flags | REG_NOSUB) != 0)
        return -1;
    int r = regexec(&re, retStr(), 0, nullptr, 0);
    regfree(&re);
    return r == 0 ? 0 : 1;
}

ZString& ZString::printf(const char* format, ...) {
    char* out = nullptr;
    va_list ap;
    va_start(ap, format);
    int n = vasprintf(&out, format, ap);
    va_end(ap);
    if (n < 0) {
        release();
        return *this;
    }
    assign(out, n);
    free(out);
    return *this;
}

uint32_t ZString::hash() const {
    if (!d)
        return 0;
    uint32_t h = 5381;
    for (const char* p = d->data; *p; p++)
        h = h * 33 + uint32_t(int(static_cast<signed char>(*p)));
    return h;
}

std::ostream& operator<<(std::ostream& os, const ZString& s) {
    return os << s.retStr();
}

std::istream& operator>>(std::istream& is, ZString& s) {
    std::string w;
    is >> w;
    s = ZString(w.c_str(), int(w.size()));
    return is;
}

// Shell wildcard match: '*' any run, '?' one character, '[...]' a set with
// ranges and '!' or '^' negation, '\' quotes the next character.
int gmatch(const char* s, const char* p) {
    const char* star = nullptr;
    const char* mark = nullptr;
    while (*s) {
        if (*p == '*') {
            while (*p == '*')
                p++;
            if (!*p)
                return 1;
            star = p;
            mark = s;
            continue;
        }
        bool ok = false;
        const char* after = p + 1;
        if (*p == '?') {
            ok = true;
        } else if (*p == '[') {
            const char* q = p + 1;
            bool neg = (*q == '!' || *q == '^');
            if (neg)
                q++;
            bool in = false;
            bool first = true;
            while (*q && (*q != ']' || first)) {
                first = false;
                char lo = *q;
                if (q[1] == '-' && q[2] && q[2] != ']') {
                    if ((unsigned char)*s >= (unsigned char)lo &&
                        (unsigned char)*s <= (unsigned char)q[2])
                        in = true;
                    q += 3;
                } else {
                    if (*s == lo)
                        in = true;
                    q++;
                }
            }
            if (*q == ']') {
                ok = in != neg;
                after = q + 1;
            } else {
                ok = (*s == '['); // an unclosed '[' is an ordinary character
            }
        } else if (*p == '\\' && p[1]) {
            ok = (*s == p[1]);
            after = p + 2;
        } else if (*p) {
            ok = (*s == *p);
        }
        if (ok) {
            s++;
            p = after;
        } else if (star) {
            p = star;
            s = ++mark;
        } else {
            return 0;
        }
    }
    while (*p == '*')
        p++;
    return *p == 0;
}
