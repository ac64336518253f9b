#ifndef TAVROMEMBER_H
#define TAVROMEMBER_H

#include "tavroenums.h"
#include "zerror.h"
#include "zlist.h"
#include "zobjmember.h"
#include "zstring.h"
#include "ztime.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

// The machinery shared by the device API records.
//
// A record is a plain standard-layout structure whose memory image is its
// wire and file image: every byte is a named field or an explicit padding
// array, and the constructor zeroes the whole image. Records have no virtual
// functions; a record publishes its member table through a static
// getMembers() and its type name through the static typeName.
//
// In a table an enumeration and a nested record both have type code 0 and
// their own type name ("Mode", "NodeInfo"): the generic routines of
// zobjmember.h write them as "Error" and never look inside the record's
// memory for an object. The record conversions below (toZString,
// toZStringJson of a record) recurse into nested records by their type
// name; enumerations stay "Error" there as well.

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "records are little-endian images");

namespace TavroApi {

// Zeroes a record's whole image, padding included.
template <class T>
inline void zeroRecord(T* record) {
    static_assert(std::is_standard_layout<T>::value, "a record is standard-layout");
    static_assert(std::is_trivially_copyable<T>::value, "a record is trivially copyable");
    memset(static_cast<void*>(record), 0, sizeof(T));
}

// ------------------------------------------------------------ char arrays

// Sets a char array of size bytes from text: at most size - 1 characters
// (never cutting a UTF-8 sequence in half), the rest of the array zeroed, so
// the array always ends in a NUL and carries no stale bytes.
void setChars(char* array, int size, const ZString& text);
// The text of a char array up to its NUL, never reading past size bytes (a
// record from a unit need not hold a NUL).
ZString getChars(const char* array, int size);

template <size_t N>
void setCharArray(char (&array)[N], const ZString& text) {
    static_assert(N > 0 && N < 65536, "a record's char array");
    setChars(array, int(N), text);
}
template <size_t N>
ZString getCharArray(const char (&array)[N]) {
    static_assert(N > 0 && N < 65536, "a record's char array");
    return getChars(array, int(N));
}

// ------------------------------------------------------------ member tables

namespace detail {

// The type code and type name of a field's (element) type.
template <class T, class = void>
struct MemberType; // not a record field type

#define TAVRO_MEMBER_TYPE(T, code, typeName)                                                       \
    template <>                                                                                    \
    struct MemberType<T> {                                                                         \
        static constexpr uint32_t type = code;                                                     \
        static constexpr const char* name = typeName;                                              \
    };
TAVRO_MEMBER_TYPE(uint8_t, ZObjType::UInt8, "UInt8")
TAVRO_MEMBER_TYPE(uint16_t, ZObjType::UInt16, "UInt16")
TAVRO_MEMBER_TYPE(uint32_t, ZObjType::UInt32, "UInt32")
TAVRO_MEMBER_TYPE(int32_t, ZObjType::Int32, "Int32")
TAVRO_MEMBER_TYPE(uint64_t, ZObjType::UInt64, "UInt64")
TAVRO_MEMBER_TYPE(float, ZObjType::Float32, "Float32")
TAVRO_MEMBER_TYPE(double, ZObjType::Float64, "Float64")
TAVRO_MEMBER_TYPE(char, ZObjType::Char, "Char")
TAVRO_MEMBER_TYPE(ZTime, ZObjType::Time, "Time")
TAVRO_MEMBER_TYPE(ZTimeUs, ZObjType::TimeUs, "TimeUs")
#undef TAVRO_MEMBER_TYPE

// Enumerations: one byte, named after their type.
template <class T>
struct MemberType<T, std::enable_if_t<std::is_enum<T>::value>> {
    static_assert(sizeof(T) == 1, "an enumeration inside a record is one byte");
    static constexpr uint32_t type = ZObjType::Enum;
    static constexpr const char* name = enumTypeName(T());
};

// Nested records: named by their typeName.
template <class T>
struct MemberType<T, std::void_t<decltype(T::typeName)>> {
    static constexpr uint32_t type = ZObjType::Enum;
    static constexpr const char* name = T::typeName;
};

} // namespace detail

// The descriptor of a field of type F (an array gives kind Array and its
// element count).
template <class F>
constexpr ZObjMember memberOf(size_t offset, const char* name) {
    using Element = std::remove_all_extents_t<F>;
    static_assert(std::rank<F>::value <= 1, "one-dimensional arrays only");
    return ZObjMember{detail::MemberType<Element>::type,
                      std::is_array<F>::value ? uint32_t(ZObjKind::Array)
                                              : uint32_t(ZObjKind::Single),
                      uint16_t(offset),
                      uint16_t(std::is_array<F>::value ? std::extent<F>::value : 1),
                      detail::MemberType<Element>::name,
                      name};
}

// A Bool field: held in a uint8_t, because a unit may send any byte.
template <class F>
constexpr ZObjMember boolMemberOf(size_t offset, const char* name) {
    static_assert(std::is_same<F, uint8_t>::value, "a Bool field is a uint8_t");
    return ZObjMember{ZObjType::Bool, ZObjKind::Single, uint16_t(offset), 1, "Bool", name};
}

#define TAVRO_MEMBER(Rec, field)                                                                   \
    TavroApi::memberOf<decltype(Rec::field)>(offsetof(Rec, field), #field)
#define TAVRO_MEMBER_BOOL(Rec, field)                                                              \
    TavroApi::boolMemberOf<decltype(Rec::field)>(offsetof(Rec, field), #field)
#define TAVRO_MEMBER_END                                                                           \
    ZObjMember {                                                                                   \
        0, 0, 0, 0, nullptr, nullptr                                                               \
    }

// Compile-time proof of a record's image.
#define TAVRO_RECORD_SIZE(T, size)                                                                 \
    static_assert(std::is_standard_layout<T>::value, #T " is standard-layout");                    \
    static_assert(std::is_trivially_copyable<T>::value, #T " is trivially copyable");              \
    static_assert(!std::is_polymorphic<T>::value, #T " has no vtable");                            \
    static_assert(sizeof(T) == size, #T " is " #size " bytes")
#define TAVRO_OFFSET(T, field, offset)                                                             \
    static_assert(offsetof(T, field) == offset, #T "::" #field " at " #offset)
// An explicit padding array: exactly these bytes, so no implicit padding hides beside it.
#define TAVRO_PAD(T, pad, offset, size)                                                            \
    static_assert(offsetof(T, pad) == offset && sizeof(T::pad) == size,                            \
                  #T "::" #pad " is bytes " #offset " + " #size)

// ------------------------------------------------------------ records by name

struct RecordInfo {
    const char* typeName;
    const ZObjMember* members;
    uint32_t size;
};

// A record type by its name ("NodeInfo"), or null.
const RecordInfo* recordInfoFind(const char* typeName);
// Every record type; number gives the count.
const RecordInfo* recordInfoAll(int& number);

// ------------------------------------------------------------ text and JSON

// The text and JSON forms of zobjmember.h, except that a member that is a
// nested record is written as that record's own form (its JSON with its
// member name as key).
ZString recordToZString(const ZObjMember* table, const void* record,
                        const ZList<ZString>& exclude = ZList<ZString>());
ZString recordToZStringJson(const ZString& name, const ZObjMember* table, const void* record,
                            const ZList<ZString>& exclude = ZList<ZString>());

template <class T>
auto toZString(const ZString&, const T& record, const ZList<ZString>& exclude = ZList<ZString>())
    -> decltype(T::getMembers(), ZString()) {
    return recordToZString(T::getMembers(), &record, exclude);
}
template <class T>
auto toZStringJson(const ZString& name, const T& record,
                   const ZList<ZString>& exclude = ZList<ZString>())
    -> decltype(T::getMembers(), ZString()) {
    return recordToZStringJson(name, T::getMembers(), &record, exclude);
}

// ------------------------------------------------------------ setting members

// The entry of a member by name, or null.
const ZObjMember* findMember(const ZObjMember* table, const ZString& name);

// Sets one member of a record from its text:
//  - integers in decimal, checked against the member's range (a UInt64 may
//    end in the "d" or "ld" that the text and JSON forms append);
//  - floats as strtod reads them (NAN and INFINITY included);
//  - a char array as setChars (truncated, NUL-terminated);
//  - Time and TimeUs as a number (seconds, microseconds) or a date and time;
//  - an enumeration by name or by number;
//  - any other array as "[v0,v1,...]" with exactly as many values as it has.
// Failures: "Invalid number", "Value out of range", "Uknown string value",
// "Invalid character" (more than one for a Char), "Invalid array",
// "Cannot set member" (a nested record); the record is unchanged then.
ZError memberFromZString(const ZObjMember& member, void* record, const ZString& text);

// The bytes of one element of a member's type that memberFromZString can set
// (an enumeration of a known name is 1); 0 for any other type.
int memberElementSize(const ZObjMember& member);

// Sets the members named in a flat JSON object (toZDictStringFromJson).
// Unknown keys, nested records and the values "Error" and "ERROR" (members
// that the JSON form could not write) are ignored. The first failure stops
// and is returned as "<member>: <text>".
ZError fromZStringJson(const ZString& json, const ZObjMember* table, void* record);

template <class T>
auto fromZStringJson(const ZString& json, T& record) -> decltype(T::getMembers(), ZError()) {
    return fromZStringJson(json, T::getMembers(), &record);
}

} // namespace TavroApi

#endif
