#include "tavromember.h"

#include "zdict.h"
#include "zstringlist.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace TavroApi {

void setChars(char* array, int size, const ZString& text) {
    if (size <= 0)
        return;
    int n = text.len();
    if (n > size - 1) {
        n = size - 1;
        // Back off to the start of a UTF-8 sequence that the cut would split.
        while (n > 0 && (uint8_t(text[n]) & 0xC0) == 0x80)
            n--;
    }
    memcpy(array, text.retStr(), size_t(n));
    memset(array + n, 0, size_t(size - n));
}

ZString getChars(const char* array, int size) {
    if (size <= 0)
        return ZString();
    return ZString(array, int(strnlen(array, size_t(size))));
}

// ------------------------------------------------------------ text and JSON

namespace {

bool excluded(const ZList<ZString>& exclude, const char* name) {
    return !exclude.isEmpty() && zstringListinList(exclude, ZString(name));
}

// The nested record of a single type-0 member, or null (an enumeration).
const RecordInfo* nestedRecord(const ZObjMember& m) {
    if (m.type != ZObjType::Enum || m.kind != ZObjKind::Single)
        return nullptr;
    return recordInfoFind(m.typeName);
}

// A table of one member, for handing one member to the generic routines.
struct OneMember {
    explicit OneMember(const ZObjMember& m) : table{m, {0, 0, 0, 0, nullptr, nullptr}} {}
    ZObjMember table[2];
};

} // namespace

ZString recordToZString(const ZObjMember* table, const void* record,
                        const ZList<ZString>& exclude) {
    ZString out;
    const char* base = static_cast<const char*>(record);
    for (int i = 0; table && table[i].name; i++) {
        const ZObjMember& m = table[i];
        if (excluded(exclude, m.name))
            continue;
        if (i > 0)
            out.append(", ");
        if (const RecordInfo* nested = nestedRecord(m))
            out.append(recordToZString(nested->members, base + m.offset));
        else
            out.append(::toZString(ZString(), OneMember(m).table, record));
    }
    return out;
}

ZString recordToZStringJson(const ZString& name, const ZObjMember* table, const void* record,
                            const ZList<ZString>& exclude) {
    ZString out;
    if (!name.isEmpty()) {
        out.append('"');
        out.append(name);
        out.append("\":");
    }
    out.append("{ ");
    const char* base = static_cast<const char*>(record);
    for (int i = 0; table && table[i].name; i++) {
        const ZObjMember& m = table[i];
        if (excluded(exclude, m.name))
            continue;
        if (i > 0)
            out.append(", ");
        if (const RecordInfo* nested = nestedRecord(m)) {
            out.append(recordToZStringJson(ZString(m.name), nested->members, base + m.offset));
        } else {
            // "{ " member "}" of the generic routine, without its braces.
            ZString one = ::toZStringJson(ZString(), OneMember(m).table, record);
            out.append(one.subString(2, one.len() - 3));
        }
    }
    out.append("}");
    return out;
}

// ------------------------------------------------------------ setting members

const ZObjMember* findMember(const ZObjMember* table, const ZString& name) {
    for (int i = 0; table && table[i].name; i++) {
        if (name == table[i].name)
            return &table[i];
    }
    return nullptr;
}

int memberElementSize(const ZObjMember& m) {
    switch (m.type) {
    case ZObjType::Bool:
    case ZObjType::Int8:
    case ZObjType::UInt8:
    case ZObjType::Char:
        return 1;
    case ZObjType::Int16:
    case ZObjType::UInt16:
        return 2;
    case ZObjType::Int32:
    case ZObjType::UInt32:
    case ZObjType::Float32:
    case ZObjType::Time:
        return 4;
    case ZObjType::Int64:
    case ZObjType::UInt64:
    case ZObjType::Float64:
    case ZObjType::TimeUs:
        return 8;
    case ZObjType::Enum:
        return enumInfoFind(m.typeName) ? 1 : 0;
    default:
        return 0;
    }
}

namespace {

const ZError invalidNumber(1, "Invalid number");
const ZError outOfRange(1, "Value out of range");

bool isDigits(const ZString& s) {
    if (s.isEmpty())
        return false;
    for (int i = 0; i < s.len(); i++) {
        if (s[i] < '0' || s[i] > '9')
            return false;
    }
    return true;
}

ZError parseSigned(const ZString& s, int64_t min, int64_t max, int64_t& v) {
    if (s.isEmpty())
        return invalidNumber;
    char* end = nullptr;
    errno = 0;
    long long n = strtoll(s.retStr(), &end, 10);
    if (*end)
        return invalidNumber;
    if (errno == ERANGE || n < min || n > max)
        return outOfRange;
    v = n;
    return ZError();
}

ZError parseUnsigned(ZString s, uint64_t max, bool suffix, uint64_t& v) {
    // The 64-bit forms write "%lud" and "%uld": the number then "d" or "ld".
    if (suffix && s.len() > 2 && s.subString(s.len() - 2) == "ld")
        s.truncate(s.len() - 2);
    else if (suffix && s.len() > 1 && s[s.len() - 1] == 'd')
        s.truncate(s.len() - 1);
    if (s.isEmpty() || s[0] == '-' || s[0] == '+' || s[0] == ' ')
        return s[0] == '-' ? outOfRange : invalidNumber;
    char* end = nullptr;
    errno = 0;
    unsigned long long n = strtoull(s.retStr(), &end, 10);
    if (*end)
        return invalidNumber;
    if (errno == ERANGE || n > max)
        return outOfRange;
    v = n;
    return ZError();
}

ZError parseDouble(const ZString& s, double& v) {
    if (s.isEmpty())
        return invalidNumber;
    char* end = nullptr;
    v = strtod(s.retStr(), &end);
    return *end ? invalidNumber : ZError();
}

template <class T>
void store(void* p, T v) {
    memcpy(p, &v, sizeof(T));
}

// One value of the member's type from text into p (memberElementSize bytes).
ZError scalarFromZString(const ZObjMember& m, void* p, const ZString& s) {
    int64_t i = 0;
    uint64_t u = 0;
    double d = 0;
    ZError err;
    switch (m.type) {
    case ZObjType::Bool:
        if (!(err = parseUnsigned(s, 1, false, u)))
            store(p, uint8_t(u));
        return err;
    case ZObjType::Int8:
        if (!(err = parseSigned(s, INT8_MIN, INT8_MAX, i)))
            store(p, int8_t(i));
        return err;
    case ZObjType::UInt8:
        if (!(err = parseUnsigned(s, UINT8_MAX, false, u)))
            store(p, uint8_t(u));
        return err;
    case ZObjType::Int16:
        if (!(err = parseSigned(s, INT16_MIN, INT16_MAX, i)))
            store(p, int16_t(i));
        return err;
    case ZObjType::UInt16:
        if (!(err = parseUnsigned(s, UINT16_MAX, false, u)))
            store(p, uint16_t(u));
        return err;
    case ZObjType::Int32:
        if (!(err = parseSigned(s, INT32_MIN, INT32_MAX, i)))
            store(p, int32_t(i));
        return err;
    case ZObjType::UInt32:
        if (!(err = parseUnsigned(s, UINT32_MAX, false, u)))
            store(p, uint32_t(u));
        return err;
    case ZObjType::Int64:
        if (!(err = parseSigned(s, INT64_MIN, INT64_MAX, i)))
            store(p, int64_t(i));
        return err;
    case ZObjType::UInt64:
        if (!(err = parseUnsigned(s, UINT64_MAX, true, u)))
            store(p, uint64_t(u));
        return err;
    case ZObjType::Float32:
        if (!(err = parseDouble(s, d)))
            store(p, float(d));
        return err;
    case ZObjType::Float64:
        if (!(err = parseDouble(s, d)))
            store(p, d);
        return err;
    case ZObjType::Char:
        if (s.len() > 1)
            return ZError(1, "Invalid character");
        store(p, s[0]);
        return ZError();
    case ZObjType::Time: {
        ZTime t;
        if (!isDigits(s))
            err = t.setString(s);
        else if (!(err = parseUnsigned(s, UINT32_MAX, false, u)))
            t.set(uint32_t(u));
        if (!err)
            store(p, t);
        return err;
    }
    case ZObjType::TimeUs: {
        ZTimeUs t;
        if (!isDigits(s))
            err = t.setString(s);
        else if (!(err = parseUnsigned(s, UINT64_MAX, false, u)))
            t.set(u);
        if (!err)
            store(p, t);
        return err;
    }
    case ZObjType::Enum: {
        const EnumInfo* info = enumInfoFind(m.typeName);
        if (!info)
            return ZError(1, "Cannot set member");
        uint32_t v = 0;
        if (!isDigits(s))
            err = info->fromZString(s, v);
        else if (!(err = parseUnsigned(s, UINT8_MAX, false, u)))
            v = uint32_t(u);
        if (!err && v > UINT8_MAX)
            err = outOfRange;
        if (!err)
            store(p, uint8_t(v));
        return err;
    }
    default:
        return ZError(1, "Cannot set member");
    }
}

} // namespace

ZError memberFromZString(const ZObjMember& m, void* record, const ZString& text) {
    char* p = static_cast<char*>(record) + m.offset;
    ZString s = text.removeSeparators(" \t\r\n");
    if (m.type == ZObjType::Char && m.kind == ZObjKind::Array) {
        setChars(p, m.number, text);
        return ZError();
    }
    int size = memberElementSize(m);
    if (!size)
        return ZError(1, "Cannot set member");
    if (m.kind == ZObjKind::Single)
        return scalarFromZString(m, p, s);

    // "[v0,v1,...]": every value is converted before any is stored.
    if (s.len() < 2 || s[0] != '[' || s[s.len() - 1] != ']')
        return ZError(1, "Invalid array");
    ZList<ZString> values = zstringToList(s.subString(1, s.len() - 2), 1);
    if (values.number() != m.number)
        return ZError(1, "Invalid array");
    std::vector<char> image(size_t(m.number) * size_t(size));
    int k = 0;
    for (const ZString& v : values) {
        ZError err = scalarFromZString(m, &image[size_t(k) * size_t(size)], v);
        if (err)
            return err;
        k++;
    }
    memcpy(p, image.data(), image.size());
    return ZError();
}

ZError fromZStringJson(const ZString& json, const ZObjMember* table, void* record) {
    ZDict<ZString> values;
    toZDictStringFromJson(json, values);
    for (int i = 0; table && table[i].name; i++) {
        const ZObjMember& m = table[i];
        if (nestedRecord(m) || !values.contains(ZString(m.name)))
            continue;
        ZString value = values.value(ZString(m.name));
        if (value == "Error" || value == "ERROR")
            continue;
        ZError err = memberFromZString(m, record, value);
        if (err)
            return ZError(err.number, ZString(m.name) + ": " + err.string);
    }
    return ZError();
}

} // namespace TavroApi
