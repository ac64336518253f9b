#include "zobjmember.h"

#include "zstringlist.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// The forms are kept to the letter, including what looks like
// mistakes and is kept on purpose:
//  - the ", " separator is counted by table entries, not by written members;
//  - uint64 is written with "%lud" in the text form (the number, then a
//    literal "d") and with "%uld" in JSON (the low 32 bits, then "ld");
//  - type 15 in the text form is the record's first byte as one character;
//  - the JSON object opens with "{ " and closes with "}";
//  - JSON texts are written without any escaping.
// A character that is NUL (type 12 single, or the type-15 first byte) is
// written as nothing: a ZString cannot hold a NUL.

const ZObjMember* ZObj::getMembers() const {
    static const ZObjMember empty[] = {{0, 0, 0, 0, nullptr, nullptr}};
    return empty;
}

namespace {

template <class T>
T load(const void* p) {
    T v;
    memcpy(&v, p, sizeof(T)); // members may sit at any offset
    return v;
}

void appendf(ZString& out, const char* format, ...) __attribute__((format(printf, 2, 3)));
void appendf(ZString& out, const char* format, ...) {
    char buf[64];
    va_list ap;
    va_start(ap, format);
    int n = vsnprintf(buf, sizeof(buf), format, ap);
    va_end(ap);
    if (n < 0)
        return;
    if (n < int(sizeof(buf))) {
        out.append(buf, n);
        return;
    }
    // Only "%e" of a double or an integer can come here, and they all fit in
    // 64; kept general anyway.
    va_start(ap, format);
    char* s = nullptr;
    if (vasprintf(&s, format, ap) >= 0) {
        out.append(s);
        free(s);
    }
    va_end(ap);
}

void appendChar(ZString& out, char c) {
    if (c)
        out.append(c);
}

// Types 1 to 8: "%d", "%u" for unsigned 32-bit, "%lld" for signed 64-bit.
// Returns false for any other type.
bool appendInteger(ZString& out, uint32_t type, const void* p) {
    switch (type) {
    case ZObjType::Bool:
    case ZObjType::UInt8:
        appendf(out, "%d", int(load<uint8_t>(p)));
        return true;
    case ZObjType::Int8:
        appendf(out, "%d", int(load<int8_t>(p)));
        return true;
    case ZObjType::Int16:
        appendf(out, "%d", int(load<int16_t>(p)));
        return true;
    case ZObjType::UInt16:
        appendf(out, "%d", int(load<uint16_t>(p)));
        return true;
    case ZObjType::Int32:
        appendf(out, "%d", load<int32_t>(p));
        return true;
    case ZObjType::UInt32:
        appendf(out, "%u", load<uint32_t>(p));
        return true;
    case ZObjType::Int64:
        appendf(out, "%lld", (long long)load<int64_t>(p));
        return true;
    default:
        return false;
    }
}

// The text form of one single value of the given type at p.
void appendText(ZString& out, uint32_t type, const void* p) {
    if (appendInteger(out, type, p))
        return;
    switch (type) {
    case ZObjType::UInt64:
        appendf(out, "%lud", (unsigned long)load<uint64_t>(p));
        break;
    case ZObjType::Float32:
        appendf(out, "%e", double(load<float>(p)));
        break;
    case ZObjType::Float64:
        appendf(out, "%e", load<double>(p));
        break;
    case ZObjType::Char:
        appendChar(out, load<char>(p));
        break;
    case ZObjType::String:
        out.append(*static_cast<const ZString*>(p));
        break;
    case ZObjType::Error: {
        const ZError* e = static_cast<const ZError*>(p);
        appendf(out, "%d", e->number);
        out.append(", ");
        out.append(e->string);
        break;
    }
    case ZObjType::Time:
        appendChar(out, load<char>(p)); // the first byte, deliberately
        break;
    case ZObjType::Obj: {
        const ZObj* o = static_cast<const ZObj*>(p);
        out.append(toZString(ZString(), o->getMembers(), o));
        break;
    }
    default: // 0, 16 and unknown codes
        out.append("Error");
        break;
    }
}

void appendJsonFloat(ZString& out, double v) {
    if (std::isnan(v))
        out.append("\"NAN\"");
    else if (std::fabs(v) > 3.4028235e38)
        out.append("\"INFINITY\"");
    else
        appendf(out, "%e", v);
}

void appendKey(ZString& out, const ZString& name) {
    out.append('"');
    out.append(name);
    out.append("\":");
}

// "\"key\":value" of one single value of the given type at p; without a key
// when key is empty (except for ZError, which always writes one).
void appendJson(ZString& out, const ZString& key, uint32_t type, const void* p) {
    if (type == ZObjType::Obj) {
        const ZObj* o = static_cast<const ZObj*>(p);
        out.append(toZStringJson(key, o->getMembers(), o));
        return;
    }
    if (type == ZObjType::Error) {
        const ZError* e = static_cast<const ZError*>(p);
        appendKey(out, key); // even when empty: "":{...}
        appendf(out, "{\"number\":%d,\"string\":\"", e->number);
        out.append(e->string);
        out.append("\"}");
        return;
    }
    if (!key.isEmpty())
        appendKey(out, key);
    if (appendInteger(out, type, p))
        return;
    switch (type) {
    case ZObjType::UInt64:
        appendf(out, "%uld", (unsigned int)load<uint64_t>(p));
        break;
    case ZObjType::Float32:
        appendJsonFloat(out, double(load<float>(p)));
        break;
    case ZObjType::Float64:
        appendJsonFloat(out, load<double>(p));
        break;
    case ZObjType::Char:
        out.append('"');
        appendChar(out, load<char>(p));
        out.append('"');
        break;
    case ZObjType::String:
        out.append('"');
        out.append(*static_cast<const ZString*>(p));
        out.append('"');
        break;
    case ZObjType::Time:
        out.append('"');
        out.append(load<ZTime>(p).getString("iso"));
        out.append('"');
        break;
    default: // 0, 16 and unknown codes
        out.append("\"Error\"");
        break;
    }
}

// The characters of a char array, up to its NUL and never past its
// `number` bytes (records from a unit need not hold a NUL).
void appendCharArray(ZString& out, const char* p, uint16_t number) {
    out.append(p, int(strnlen(p, number)));
}

bool excluded(const ZList<ZString>& exclude, const char* name) {
    return !exclude.isEmpty() && zstringListinList(exclude, ZString(name));
}

} // namespace

ZString toZString(const ZString&, const ZObjMember* table, const void* record,
                  const ZList<ZString>& exclude) {
    ZString out;
    if (!table)
        return out;
    const char* base = static_cast<const char*>(record);
    for (int i = 0; table[i].name; i++) {
        const ZObjMember& m = table[i];
        if (excluded(exclude, m.name))
            continue;
        if (i > 0)
            out.append(", ");
        const char* p = base + m.offset;
        if (m.type == ZObjType::Char && m.kind == ZObjKind::Array)
            appendCharArray(out, p, m.number);
        else if (m.kind != ZObjKind::Single)
            out.append("Error");
        else
            appendText(out, m.type, p);
    }
    return out;
}

ZString toZStringJson(const ZString& name, const ZObjMember* table, const void* record,
                      const ZList<ZString>& exclude) {
    ZString out;
    if (!name.isEmpty())
        appendKey(out, name);
    out.append("{ ");
    const char* base = static_cast<const char*>(record);
    for (int i = 0; table && table[i].name; i++) {
        const ZObjMember& m = table[i];
        if (excluded(exclude, m.name))
            continue;
        if (i > 0)
            out.append(", ");
        ZString key(m.name);
        const char* p = base + m.offset;
        if (m.type == ZObjType::Char && m.kind == ZObjKind::Array) {
            appendKey(out, key);
            out.append('"');
            appendCharArray(out, p, m.number);
            out.append('"');
        } else if (m.kind != ZObjKind::Single) {
            appendKey(out, key);
            out.append("\"ERROR\"");
        } else {
            appendJson(out, key, m.type, p);
        }
    }
    out.append("}");
    return out;
}

// ------------------------------------------------------------ scalars

namespace {

template <class T>
ZString json(const ZString& name, uint32_t type, const T& v) {
    ZString out;
    appendJson(out, name, type, &v);
    return out;
}

template <class T>
ZString text(uint32_t type, const T& v) {
    ZString out;
    appendText(out, type, &v);
    return out;
}

const uint32_t longType = sizeof(long) == 8 ? ZObjType::Int64 : ZObjType::Int32;
const uint32_t ulongType = sizeof(unsigned long) == 8 ? ZObjType::UInt64 : ZObjType::UInt32;

} // namespace

ZString toZStringJson(const ZString& name, bool value) {
    return json(name, ZObjType::Bool, uint8_t(value ? 1 : 0));
}
ZString toZStringJson(const ZString& name, char value) {
    return json(name, ZObjType::Char, value);
}
ZString toZStringJson(const ZString& name, signed char value) {
    return json(name, ZObjType::Int8, value);
}
ZString toZStringJson(const ZString& name, unsigned char value) {
    return json(name, ZObjType::UInt8, value);
}
ZString toZStringJson(const ZString& name, short value) {
    return json(name, ZObjType::Int16, value);
}
ZString toZStringJson(const ZString& name, unsigned short value) {
    return json(name, ZObjType::UInt16, value);
}
ZString toZStringJson(const ZString& name, int value) {
    return json(name, ZObjType::Int32, value);
}
ZString toZStringJson(const ZString& name, unsigned int value) {
    return json(name, ZObjType::UInt32, value);
}
ZString toZStringJson(const ZString& name, long value) {
    return json(name, longType, value);
}
ZString toZStringJson(const ZString& name, unsigned long value) {
    return json(name, ulongType, value);
}
ZString toZStringJson(const ZString& name, long long value) {
    return json(name, ZObjType::Int64, int64_t(value));
}
ZString toZStringJson(const ZString& name, unsigned long long value) {
    return json(name, ZObjType::UInt64, uint64_t(value));
}
ZString toZStringJson(const ZString& name, float value) {
    return json(name, ZObjType::Float32, value);
}
ZString toZStringJson(const ZString& name, double value) {
    return json(name, ZObjType::Float64, value);
}
ZString toZStringJson(const ZString& name, const char* value) {
    return json(name, ZObjType::String, ZString(value));
}
ZString toZStringJson(const ZString& name, const ZString& value) {
    return json(name, ZObjType::String, value);
}
ZString toZStringJson(const ZString& name, const ZError& value) {
    return json(name, ZObjType::Error, value);
}
ZString toZStringJson(const ZString& name, const ZTime& value) {
    return json(name, ZObjType::Time, value);
}
ZString toZStringJson(const ZString& name, const ZObj& value) {
    return toZStringJson(name, value.getMembers(), &value);
}

ZString toZString(const ZString&, bool value) {
    return text(ZObjType::Bool, uint8_t(value ? 1 : 0));
}
ZString toZString(const ZString&, char value) {
    return text(ZObjType::Char, value);
}
ZString toZString(const ZString&, signed char value) {
    return text(ZObjType::Int8, value);
}
ZString toZString(const ZString&, unsigned char value) {
    return text(ZObjType::UInt8, value);
}
ZString toZString(const ZString&, short value) {
    return text(ZObjType::Int16, value);
}
ZString toZString(const ZString&, unsigned short value) {
    return text(ZObjType::UInt16, value);
}
ZString toZString(const ZString&, int value) {
    return text(ZObjType::Int32, value);
}
ZString toZString(const ZString&, unsigned int value) {
    return text(ZObjType::UInt32, value);
}
ZString toZString(const ZString&, long value) {
    return text(longType, value);
}
ZString toZString(const ZString&, unsigned long value) {
    return text(ulongType, value);
}
ZString toZString(const ZString&, long long value) {
    return text(ZObjType::Int64, int64_t(value));
}
ZString toZString(const ZString&, unsigned long long value) {
    return text(ZObjType::UInt64, uint64_t(value));
}
ZString toZString(const ZString&, float value) {
    return text(ZObjType::Float32, value);
}
ZString toZString(const ZString&, double value) {
    return text(ZObjType::Float64, value);
}
ZString toZString(const ZString&, const char* value) {
    return ZString(value);
}
ZString toZString(const ZString&, const ZString& value) {
    return value;
}
ZString toZString(const ZString&, const ZError& value) {
    return text(ZObjType::Error, value);
}
ZString toZString(const ZString&, const ZTime& value) {
    return value.getString("iso");
}
ZString toZString(const ZString&, const ZObj& value) {
    return toZString(ZString(), value.getMembers(), &value);
}

// ------------------------------------------------------------ reading JSON

ZError toZDictStringFromJson(const ZString& json, ZDict<ZString>& out) {
    ZError err; // step 1: number 0
    ZString rest = json.removeSeparators("{} \t");
    for (;;) {
        // step 2: the key
        ZString key = rest.pullToken(":").removeSeparators(" \t\"");
        if (key.isEmpty())
            return err;
        // step 3: the value
        rest.pullSeparators(" \t\r\n\v\f");
        ZString value;
        if (rest[0] == '[') {
            value = rest.pullToken("]").removeSeparators(" \t") + "]";
            rest.pullToken(","); // discarded: loses the member after an array
        } else {
            value = rest.pullToken(",").removeSeparators(" \t\"");
        }
        // step 4
        out[key] = value;
    }
}
