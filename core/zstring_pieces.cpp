// Cutting texts into pieces: fields, tokens, lines, paths and encodings.
#include "zarray.h"
#include "zlist.h"
#include "zstring.h"

#include <cctype>
#include <cstring>

ZString ZString::subString(int pos, int n) const {
    int l = len();
    if (pos < 0)
        pos = 0;
    if (pos >= l)
        return ZString();
    if (n < 0 || n > l - pos)
        n = l - pos;
    return ZString(retStr() + pos, n);
}

namespace {

// Finds field n of text. A field is a run of non-blank characters, or a
// double-quoted run up to the next quote, or a run from "(" up to the next
// ")". Returns false when there are fewer fields.
bool findField(const char* text, int n, int& start, int& length, bool& quoted) {
    const char* p = text;
    for (int i = 0;; i++) {
        while (*p && isspace((unsigned char)*p))
            p++;
        if (!*p)
            return false;
        const char* begin = p;
        quoted = false;
        if (*p == '"') {
            const char* q = strchr(p + 1, '"');
            p = q ? q + 1 : p + strlen(p);
            quoted = true;
        } else if (*p == '(') {
            const char* q = strchr(p + 1, ')');
            p = q ? q + 1 : p + strlen(p);
        } else {
            while (*p && !isspace((unsigned char)*p))
                p++;
        }
        if (i == n) {
            start = int(begin - text);
            length = int(p - begin);
            return true;
        }
    }
}

bool isSeparator(char c, const ZString& separators) {
    return c && strchr(separators.retStr(), c) != nullptr;
}

} // namespace

ZString ZString::field(int n) const {
    int start, length;
    bool quoted;
    if (n < 0 || !findField(retStr(), n, start, length, quoted))
        return ZString();
    if (quoted) {
        start++;
        length--;
        if (length > 0 && retStr()[start + length - 1] == '"')
            length--;
    }
    return subString(start, length);
}

int ZString::fields() const {
    int n = 0, start, length;
    bool quoted;
    while (findField(retStr(), n, start, length, quoted))
        n++;
    return n;
}

ZString ZString::firstLine() const {
    int i = find('\n');
    ZString line = i < 0 ? *this : subString(0, i);
    if (line.len() && line[line.len() - 1] == '\r')
        line.truncate(line.len() - 1);
    return line;
}

ZString ZString::pullToken(const ZString& separators) {
    const char* s = retStr();
    int l = len();
    int i = 0;
    while (i < l && isSeparator(s[i], separators))
        i++;
    int start = i;
    while (i < l && !isSeparator(s[i], separators))
        i++;
    ZString token = subString(start, i - start);
    while (i < l && isSeparator(s[i], separators))
        i++;
    del(0, i);
    return token;
}

ZString ZString::pullWord() {
    return pullToken(" \t\r\n");
}

ZString ZString::pullLine() {
    int i = find('\n');
    ZString line;
    if (i < 0) {
        line = *this;
        clear();
    } else {
        line = subString(0, i);
        del(0, i + 1);
    }
    if (line.len() && line[line.len() - 1] == '\r')
        line.truncate(line.len() - 1);
    return line;
}

ZString ZString::pullSeparators(const ZString& separators) {
    int i = 0;
    while (i < len() && isSeparator(retStr()[i], separators))
        i++;
    ZString run = subString(0, i);
    del(0, i);
    return run;
}

ZString ZString::removeSeparators(const ZString& separators) const {
    const char* s = retStr();
    int b = 0, e = len();
    while (b < e && isSeparator(s[b], separators))
        b++;
    while (e > b && isSeparator(s[e - 1], separators))
        e--;
    return subString(b, e - b);
}

ZList<ZString> ZString::getTokenList(const ZString& separators) const {
    ZList<ZString> list;
    ZString rest(*this);
    for (;;) {
        ZString token = rest.pullToken(separators);
        if (token.isEmpty())
            break;
        list.append(token.removeSeparators(separators));
    }
    return list;
}

ZList<ZString> ZString::getTokenList(char separator) const {
    char seps[2] = {separator, 0};
    return getTokenList(ZString(seps));
}

ZList<ZString> ZString::split(char c) const {
    ZList<ZString> list;
    int l = len();
    if (l == 0)
        return list;
    const char* s = retStr();
    int start = 0;
    for (int i = 0; i < l; i++) {
        if (s[i] == c) {
            list.append(ZString(s + start, i - start));
            start = i + 1;
        }
    }
    // The last piece; empty when the text ends with the separator.
    list.append(ZString(s + start, l - start));
    return list;
}

// paths

ZString ZString::dirname() const {
    int i = findReverse('/');
    if (i < 0)
        return ".";
    if (i == 0)
        return "/";
    return subString(0, i);
}

ZString ZString::filename() const {
    return subString(findReverse('/') + 1);
}

ZString ZString::basename() const {
    ZString f = filename();
    int i = f.findReverse('.');
    return i <= 0 ? f : f.subString(0, i);
}

ZString ZString::extension() const {
    ZString f = filename();
    int i = f.findReverse('.');
    return i < 0 ? ZString() : f.subString(i + 1);
}

ZString ZString::extensionFull() const {
    ZString f = filename();
    int i = f.find('.');
    return i < 0 ? ZString() : f.subString(i + 1);
}

// codes

namespace {
const char b64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int b64Value(char c) {
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 26;
    if (c >= '0' && c <= '9')
        return c - '0' + 52;
    if (c == '+')
        return 62;
    if (c == '/')
        return 63;
    return -1;
}
} // namespace

ZString ZString::base64Encode() const {
    const unsigned char* s = reinterpret_cast<const unsigned char*>(retStr());
    int l = len();
    ZString out;
    char quad[4];
    for (int i = 0; i < l; i += 3) {
        unsigned v = unsigned(s[i]) << 16;
        if (i + 1 < l)
            v |= unsigned(s[i + 1]) << 8;
        if (i + 2 < l)
            v |= s[i + 2];
        quad[0] = b64[(v >> 18) & 63];
        quad[1] = b64[(v >> 12) & 63];
        quad[2] = i + 1 < l ? b64[(v >> 6) & 63] : '=';
        quad[3] = i + 2 < l ? b64[v & 63] : '=';
        out.append(quad, 4);
    }
    return out;
}

int ZString::base64Decode(ZArray<unsigned char>& out) const {
    out.clear();
    unsigned v = 0;
    int bits = 0;
    for (const char* p = retStr(); *p; p++) {
        if (*p == '=')
            break;
        if (isspace((unsigned char)*p))
            continue;
        int x = b64Value(*p);
        if (x < 0)
            return 1;
        v = (v << 6) | unsigned(x);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.append((unsigned char)((v >> bits) & 0xFF));
        }
    }
    return 0;
}

ZString ZString::csvEncode() const {
    const char* s = retStr();
    int l = len();
    bool quote = l > 0 && (strpbrk(s, ",\"\r\n") || isspace((unsigned char)s[0]) ||
                           isspace((unsigned char)s[l - 1]));
    if (!quote)
        return *this;
    ZString out("\"");
    for (const char* p = s; *p; p++) {
        if (*p == '"')
            out.append('"');
        out.append(*p);
    }
    out.append('"');
    return out;
}

ZString& ZString::csvDecode(const ZString& field) {
    const char* s = field.retStr();
    if (*s != '"') {
        *this = field;
        return *this;
    }
    ZString out;
    for (const char* p = s + 1; *p; p++) {
        if (*p == '"') {
            if (p[1] == '"')
                p++;
            else
                break;
        }
        out.append(*p);
    }
    *this = std::move(out);
    return *this;
}
