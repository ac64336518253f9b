#ifndef ZOBJMEMBER_H
#define ZOBJMEMBER_H

#include "zdict.h"
#include "zerror.h"
#include "zlist.h"
#include "zstring.h"
#include "ztime.h"

#include <cstdint>

// Self-describing records and their text and JSON forms.
//
// A record publishes a static table of ZObjMember descriptors ended by an
// entry whose name is null. toZString / toZStringJson walk such a table over
// the record's memory; toZDictStringFromJson reads a flat JSON object back
// into key/value texts. The quirks of the forms are deliberate and kept (see
// zobjmember.cpp).

// Type codes of ZObjMember::type.
namespace ZObjType {
enum : uint32_t {
    Enum = 0, // an enumeration or nested record handled by the record's own code
    Bool = 1, // one byte
    Int8 = 2,
    UInt8 = 3,
    Int16 = 4,
    UInt16 = 5,
    Int32 = 6,
    UInt32 = 7,
    Int64 = 8,
    UInt64 = 9,
    Float32 = 10,
    Float64 = 11,
    Char = 12,   // with kind Array: a NUL-terminated character array of `number` bytes
    String = 13, // ZString
    Error = 14,  // ZError
    Time = 15,   // ZTime
    TimeUs = 16, // ZTimeUs
    Obj = 100    // an object derived from ZObj, converted through its own getMembers()
};
}

// Values of ZObjMember::kind.
namespace ZObjKind {
enum : uint32_t {
    Single = 0, // one value
    Array = 2   // a fixed array of `number` values
};
}

struct ZObjMember {
    uint32_t type;        // ZObjType
    uint32_t kind;        // ZObjKind
    uint16_t offset;      // byte position inside the record
    uint16_t number;      // element count (1 for a single value)
    const char* typeName; // the type's name as shown to users ("UInt8", "Mode", ...)
    const char* name;     // member name and JSON key; null ends the table
};

// The base of records that can describe themselves. A type-100 member is
// read as a ZObj at its offset and converted through its getMembers(), the
// member offsets counting from the start of that object.
class ZObj {
public:
    virtual ~ZObj() = default;
    // The descriptor table; the default is an empty table.
    virtual const ZObjMember* getMembers() const;
};

// ------------------------------------------------------------ over a table

// The members' values joined by ", " (no names, no braces). Excluded members
// are skipped, but the separator is counted by table entries, so an excluded
// first entry leaves a leading ", ". A null table is an empty table.
// A char array (type 12, kind 2) is never read past its `number` bytes.
ZString toZString(const ZString& name, const ZObjMember* table, const void* record,
                  const ZList<ZString>& exclude = ZList<ZString>());

// ["\"" name "\":"] "{ " members "}" with the same exclusion and separator
// rule; a member is "\"key\":value".
ZString toZStringJson(const ZString& name, const ZObjMember* table, const void* record,
                      const ZList<ZString>& exclude = ZList<ZString>());

// ------------------------------------------------------------ scalars
//
// toZStringJson(name, value): "\"name\":value", or the bare value when name is
// empty (quoted for char, texts and the time). A ZError always writes a key,
// an empty one ("":{...}) when name is empty. Values are formatted exactly as
// the table routine formats a member of that type, quirks included
// (uint64 as "%uld", NaN as "NAN", magnitudes above 3.4028235e38 as "INFINITY").
//
// toZString(name, value) ignores the name and gives the text form of the
// table routine (uint64 as "%lud", floats "%e", ZError "N, text"). One
// exception: a ZTime gives its "iso" text here (the table's first-byte quirk
// belongs to reading a record's memory, not to a value).
//
// Overloads next to the plain-text ones of zstringlist.h: there
// `void toZString(const ZString& value, ZString& out)` takes its second
// argument as an output. With a NON-CONST ZString lvalue as second argument
// that overload is the better match (reference binding without added const)
// and runs: toZString(ZString("k"), s) writes "k" into s and returns void.
// The name-first form below runs for a const ZString, a temporary, or a
// const char* value: toZString(ZString("k"), std::as_const(s)). Neither call
// is ambiguous; tests/core/zobjmember_test.cpp pins both.
//
// Pointers other than const char* are refused at compile time (they would
// otherwise turn silently into bool).

ZString toZStringJson(const ZString& name, bool value);
ZString toZStringJson(const ZString& name, char value);
ZString toZStringJson(const ZString& name, signed char value);
ZString toZStringJson(const ZString& name, unsigned char value);
ZString toZStringJson(const ZString& name, short value);
ZString toZStringJson(const ZString& name, unsigned short value);
ZString toZStringJson(const ZString& name, int value);
ZString toZStringJson(const ZString& name, unsigned int value);
ZString toZStringJson(const ZString& name, long value);
ZString toZStringJson(const ZString& name, unsigned long value);
ZString toZStringJson(const ZString& name, long long value);
ZString toZStringJson(const ZString& name, unsigned long long value);
ZString toZStringJson(const ZString& name, float value);
ZString toZStringJson(const ZString& name, double value);
ZString toZStringJson(const ZString& name, const char* value);
ZString toZStringJson(const ZString& name, const ZString& value);
ZString toZStringJson(const ZString& name, const ZError& value);
ZString toZStringJson(const ZString& name, const ZTime& value);
ZString toZStringJson(const ZString& name, const ZObj& value);
template <class T>
ZString toZStringJson(const ZString& name, const T* value) = delete;

ZString toZString(const ZString& name, bool value);
ZString toZString(const ZString& name, char value);
ZString toZString(const ZString& name, signed char value);
ZString toZString(const ZString& name, unsigned char value);
ZString toZString(const ZString& name, short value);
ZString toZString(const ZString& name, unsigned short value);
ZString toZString(const ZString& name, int value);
ZString toZString(const ZString& name, unsigned int value);
ZString toZString(const ZString& name, long value);
ZString toZString(const ZString& name, unsigned long value);
ZString toZString(const ZString& name, long long value);
ZString toZString(const ZString& name, unsigned long long value);
ZString toZString(const ZString& name, float value);
ZString toZString(const ZString& name, double value);
ZString toZString(const ZString& name, const char* value);
ZString toZString(const ZString& name, const ZString& value);
ZString toZString(const ZString& name, const ZError& value);
ZString toZString(const ZString& name, const ZTime& value);
ZString toZString(const ZString& name, const ZObj& value);
template <class T>
ZString toZString(const ZString& name, const T* value) = delete;

// ------------------------------------------------------------ reading JSON

// A flat, forgiving reader: strips "{} \t" off both
// ends, then repeatedly pulls a key up to ":" and a value up to "," (an array
// value "[...]" is kept with its brackets, and the token after it up to the
// next "," is discarded, which loses the member that follows an array).
// Quotes are stripped from the ends of keys and values, no escape is decoded,
// nested objects are not understood. Values are stored with operator[], so a
// repeated key keeps its last value; entries already in out are kept.
// Always returns number 0.
ZError toZDictStringFromJson(const ZString& json, ZDict<ZString>& out);

#endif
