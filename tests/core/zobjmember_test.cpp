#include "zobjmember.h"
#include "zstringlist.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

// The records below derive from ZObj or hold ZString members, so they are not
// standard-layout; offsetof works on them with GCC and Clang all the same.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

namespace {

std::string s(const ZString& z) {
    return z.retStr();
}

struct Nested : ZObj {
    int32_t x = 7;
    char tag[4] = {'a', 'b', 0, 0};
    const ZObjMember* getMembers() const override;
};

const ZObjMember nestedMembers[] = {
    {ZObjType::Int32, ZObjKind::Single, offsetof(Nested, x), 1, "Int32", "x"},
    {ZObjType::Char, ZObjKind::Array, offsetof(Nested, tag), 4, "Char", "tag"},
    {0, 0, 0, 0, nullptr, nullptr}};

const ZObjMember* Nested::getMembers() const {
    return nestedMembers;
}

// One member of every type code.
struct Rec {
    uint8_t flag = 1;
    int8_t i8 = -5;
    uint8_t u8 = 200;
    int16_t i16 = -300;
    uint16_t u16 = 60000;
    int32_t i32 = -70000;
    uint32_t u32 = 4000000000u;
    int64_t i64 = -5000000000;
    uint64_t u64 = 0x100000005ull; // 4294967301: low 32 bits are 5
    float f32 = 1.5f;
    double f64 = -0.25;
    char c = 'Z';
    char text[8] = "hello";
    ZString str = "str";
    ZError err = ZError(3, "Timeout");
    ZTime t = ZTime(1700000065u); // 2023-11-14T22:14:25; first byte 0x41 'A'
    ZTimeUs tus = ZTimeUs(5);
    Nested obj;
    uint8_t mode = 2;
    uint16_t arr[3] = {1, 2, 3};
    uint8_t unk = 9;
};

#define M(type, kind, field, number, typeName)                                                     \
    { type, kind, offsetof(Rec, field), number, typeName, #field }

const ZObjMember recMembers[] = {M(ZObjType::Bool, ZObjKind::Single, flag, 1, "Bool"),
                                 M(ZObjType::Int8, ZObjKind::Single, i8, 1, "Int8"),
                                 M(ZObjType::UInt8, ZObjKind::Single, u8, 1, "UInt8"),
                                 M(ZObjType::Int16, ZObjKind::Single, i16, 1, "Int16"),
                                 M(ZObjType::UInt16, ZObjKind::Single, u16, 1, "UInt16"),
                                 M(ZObjType::Int32, ZObjKind::Single, i32, 1, "Int32"),
                                 M(ZObjType::UInt32, ZObjKind::Single, u32, 1, "UInt32"),
                                 M(ZObjType::Int64, ZObjKind::Single, i64, 1, "Int64"),
                                 M(ZObjType::UInt64, ZObjKind::Single, u64, 1, "UInt64"),
                                 M(ZObjType::Float32, ZObjKind::Single, f32, 1, "Float32"),
                                 M(ZObjType::Float64, ZObjKind::Single, f64, 1, "Float64"),
                                 M(ZObjType::Char, ZObjKind::Single, c, 1, "Char"),
                                 M(ZObjType::Char, ZObjKind::Array, text, 8, "Char"),
                                 M(ZObjType::String, ZObjKind::Single, str, 1, "String"),
                                 M(ZObjType::Error, ZObjKind::Single, err, 1, "Error"),
                                 M(ZObjType::Time, ZObjKind::Single, t, 1, "Time"),
                                 M(ZObjType::TimeUs, ZObjKind::Single, tus, 1, "TimeUs"),
                                 M(ZObjType::Obj, ZObjKind::Single, obj, 1, "Nested"),
                                 M(ZObjType::Enum, ZObjKind::Single, mode, 1, "Mode"),
                                 M(ZObjType::UInt16, ZObjKind::Array, arr, 3, "UInt16"),
                                 M(42, ZObjKind::Single, unk, 1, "Unknown"),
                                 {0, 0, 0, 0, nullptr, nullptr}};

const char* recText = "1, -5, 200, -300, 60000, -70000, 4000000000, -5000000000, 4294967301d, "
                      "1.500000e+00, -2.500000e-01, Z, hello, str, 3, Timeout, A, Error, 7, ab, "
                      "Error, Error, Error";

const char* recJsonBody =
    "{ \"flag\":1, \"i8\":-5, \"u8\":200, \"i16\":-300, \"u16\":60000, \"i32\":-70000, "
    "\"u32\":4000000000, \"i64\":-5000000000, \"u64\":5ld, \"f32\":1.500000e+00, "
    "\"f64\":-2.500000e-01, \"c\":\"Z\", \"text\":\"hello\", \"str\":\"str\", "
    "\"err\":{\"number\":3,\"string\":\"Timeout\"}, \"t\":\"2023-11-14T22:14:25\", "
    "\"tus\":\"Error\", \"obj\":{ \"x\":7, \"tag\":\"ab\"}, \"mode\":\"Error\", "
    "\"arr\":\"ERROR\", \"unk\":\"Error\"}";

const ZObjMember emptyMembers[] = {{0, 0, 0, 0, nullptr, nullptr}};

struct RecObj : ZObj {
    Rec rec;
    const ZObjMember* getMembers() const override { return members; }
    static const ZObjMember members[];
};
const ZObjMember RecObj::members[] = {{ZObjType::UInt8, ZObjKind::Single,
                                       offsetof(RecObj, rec) + offsetof(Rec, u8), 1, "UInt8", "u8"},
                                      {ZObjType::Obj, ZObjKind::Single,
                                       offsetof(RecObj, rec) + offsetof(Rec, obj), 1, "Nested",
                                       "inner"},
                                      {0, 0, 0, 0, nullptr, nullptr}};

std::vector<std::pair<std::string, std::string>> items(const ZDict<ZString>& d) {
    std::vector<std::pair<std::string, std::string>> v;
    for (const ZDictItem<ZString>& i : d)
        v.emplace_back(i.key.retStr(), i.value.retStr());
    return v;
}
typedef std::vector<std::pair<std::string, std::string>> Items;

} // namespace

// ---------------------------------------------------------------- table: every type code

TEST(ZObjMemberTable, TextFormOfEveryTypeCode) {
    Rec r;
    EXPECT_EQ(s(toZString("ignored", recMembers, &r)), recText);
}

TEST(ZObjMemberTable, JsonFormOfEveryTypeCode) {
    Rec r;
    EXPECT_EQ(s(toZStringJson("", recMembers, &r)), recJsonBody);
    EXPECT_EQ(s(toZStringJson(ZString(), recMembers, &r, ZList<ZString>())), recJsonBody);
    EXPECT_EQ(s(toZStringJson("rec", recMembers, &r)), std::string("\"rec\":") + recJsonBody);
}

TEST(ZObjMemberTable, NestedObjectAtAnOffset) {
    RecObj o;
    EXPECT_EQ(s(toZString("", o)), "200, 7, ab");
    EXPECT_EQ(s(toZStringJson("", o)), "{ \"u8\":200, \"inner\":{ \"x\":7, \"tag\":\"ab\"}}");
    EXPECT_EQ(s(toZStringJson("o", o)),
              "\"o\":{ \"u8\":200, \"inner\":{ \"x\":7, \"tag\":\"ab\"}}");
}

TEST(ZObjMemberTable, FloatNanAndInfinity) {
    Rec r;
    r.f32 = std::nanf("");
    r.f64 = 1e300;
    std::string json = s(toZStringJson("", recMembers, &r));
    EXPECT_NE(json.find("\"f32\":\"NAN\", \"f64\":\"INFINITY\""), std::string::npos) << json;
    std::string text = s(toZString("", recMembers, &r));
    EXPECT_NE(text.find(", nan, 1.000000e+300, "), std::string::npos) << text;

    r.f32 = -INFINITY;
    r.f64 = -std::nan("");
    json = s(toZStringJson("", recMembers, &r));
    EXPECT_NE(json.find("\"f32\":\"INFINITY\", \"f64\":\"NAN\""), std::string::npos) << json;
    text = s(toZString("", recMembers, &r));
    EXPECT_NE(text.find(", -inf, -nan, "), std::string::npos) << text;

    // The largest finite float is still a number; only magnitudes above 3.4028235e38 are not.
    r.f32 = FLT_MAX;
    r.f64 = 3.4028235e38;
    json = s(toZStringJson("", recMembers, &r));
    EXPECT_NE(json.find("\"f32\":3.402823e+38, \"f64\":3.402823e+38"), std::string::npos) << json;
    r.f64 = 3.4028236e38;
    json = s(toZStringJson("", recMembers, &r));
    EXPECT_NE(json.find("\"f64\":\"INFINITY\""), std::string::npos) << json;
}

TEST(ZObjMemberTable, ExcludedFirstEntryLeavesLeadingSeparator) {
    Rec r;
    ZList<ZString> ex{"flag"};
    std::string text = s(toZString("", recMembers, &r, ex));
    EXPECT_EQ(text.substr(0, 6), ", -5, ");
    EXPECT_EQ(text, std::string(recText).substr(1));
    std::string json = s(toZStringJson("", recMembers, &r, ex));
    EXPECT_EQ(json.substr(0, 14), "{ , \"i8\":-5, \"");
    EXPECT_EQ(s(toZStringJson("n", recMembers, &r, ex)).substr(0, 8), "\"n\":{ , ");

    // An excluded member elsewhere leaves no trace.
    ZList<ZString> mid{"i8", "u8", "unk"};
    text = s(toZString("", recMembers, &r, mid));
    EXPECT_EQ(text.substr(0, 11), "1, -300, 60");
    EXPECT_EQ(text.substr(text.size() - 12), "Error, Error");
    json = s(toZStringJson("", recMembers, &r, mid));
    EXPECT_EQ(json.substr(0, 24), "{ \"flag\":1, \"i16\":-300, ");
    EXPECT_EQ(json.substr(json.size() - 30), "\"mode\":\"Error\", \"arr\":\"ERROR\"}");
}

TEST(ZObjMemberTable, EmptyTable) {
    Rec r;
    EXPECT_EQ(s(toZStringJson("", emptyMembers, &r)), "{ }");
    EXPECT_EQ(s(toZString("", emptyMembers, &r)), "");
    EXPECT_EQ(s(toZStringJson("e", emptyMembers, &r)), "\"e\":{ }");
    EXPECT_EQ(s(toZStringJson("", nullptr, nullptr)), "{ }");
    EXPECT_EQ(s(toZString("", nullptr, nullptr)), "");
    ZObj plain; // the default table is empty
    EXPECT_EQ(s(toZStringJson("", plain)), "{ }");
    EXPECT_EQ(s(toZString("", plain)), "");
}

TEST(ZObjMemberTable, ArrayKindsAndOddCases) {
    struct R {
        char single;
        char one[4];
        char time0[4];
        uint8_t flag;
    } r = {0, {'x', 'y', 0, 0}, {0, 1, 0, 0}, 2};
    const ZObjMember m[] = {{ZObjType::Char, ZObjKind::Single, 0, 1, "Char", "single"},
                            {ZObjType::Char, 1, 1, 4, "Char", "kind1"},
                            {ZObjType::Time, ZObjKind::Single, 5, 1, "Time", "time0"},
                            {ZObjType::Enum, ZObjKind::Array, 1, 4, "Mode", "modes"},
                            {ZObjType::Bool, ZObjKind::Single, 9, 1, "Bool", "flag"},
                            {16, ZObjKind::Array, 1, 1, "TimeUs", "tus"},
                            {0, 0, 0, 0, nullptr, nullptr}};
    // A NUL character writes nothing; kind 1 counts as an array; bool is "%d" of the byte.
    EXPECT_EQ(s(toZString("", m, &r)), ", Error, , Error, 2, Error");
    EXPECT_EQ(s(toZStringJson("", m, &r)),
              "{ \"single\":\"\", \"kind1\":\"ERROR\", \"time0\":\"1970-01-01T00:04:16\", "
              "\"modes\":\"ERROR\", \"flag\":2, \"tus\":\"ERROR\"}");
}

// Records from a unit need not terminate their char arrays: the text stops at
// `number` bytes. The buffer is exactly as large as the array, so reading past
// it is caught by AddressSanitizer.
TEST(ZObjMemberTable, CharArrayNeverReadPastNumber) {
    const ZObjMember m[] = {{ZObjType::Char, ZObjKind::Array, 0, 4, "Char", "a"},
                            {0, 0, 0, 0, nullptr, nullptr}};
    char* buf = static_cast<char*>(malloc(4));
    memcpy(buf, "wxyz", 4);
    EXPECT_EQ(s(toZString("", m, buf)), "wxyz");
    EXPECT_EQ(s(toZStringJson("", m, buf)), "{ \"a\":\"wxyz\"}");
    free(buf);

    struct Two {
        char a[4];
        char b[4];
    } two = {{'w', 'x', 'y', 'z'}, {'Q', 0, 'R', 0}};
    const ZObjMember m2[] = {{ZObjType::Char, ZObjKind::Array, 0, 4, "Char", "a"},
                             {ZObjType::Char, ZObjKind::Array, 4, 4, "Char", "b"},
                             {0, 0, 0, 0, nullptr, nullptr}};
    EXPECT_EQ(s(toZString("", m2, &two)), "wxyz, Q");
    EXPECT_EQ(s(toZStringJson("", m2, &two)), "{ \"a\":\"wxyz\", \"b\":\"Q\"}");
}

// ---------------------------------------------------------------- scalars

TEST(ZObjMemberScalar, JsonWithAndWithoutName) {
    EXPECT_EQ(s(toZStringJson("", 5)), "5");
    EXPECT_EQ(s(toZStringJson("k", 5)), "\"k\":5");
    EXPECT_EQ(s(toZStringJson("k", true)), "\"k\":1");
    EXPECT_EQ(s(toZStringJson("", false)), "0");
    EXPECT_EQ(s(toZStringJson("k", 'c')), "\"k\":\"c\"");
    EXPECT_EQ(s(toZStringJson("", 'c')), "\"c\"");
    EXPECT_EQ(s(toZStringJson("", int8_t(-5))), "-5");
    EXPECT_EQ(s(toZStringJson("", uint8_t(200))), "200");
    EXPECT_EQ(s(toZStringJson("", int16_t(-300))), "-300");
    EXPECT_EQ(s(toZStringJson("", uint16_t(60000))), "60000");
    EXPECT_EQ(s(toZStringJson("", 4000000000u)), "4000000000");
    EXPECT_EQ(s(toZStringJson("", int64_t(-5000000000))), "-5000000000");
    EXPECT_EQ(s(toZStringJson("", -5000000000ll)), "-5000000000");
    EXPECT_EQ(s(toZStringJson("", 1.5f)), "1.500000e+00");
    EXPECT_EQ(s(toZStringJson("d", -0.25)), "\"d\":-2.500000e-01");
    EXPECT_EQ(s(toZStringJson("", std::nanf(""))), "\"NAN\"");
    EXPECT_EQ(s(toZStringJson("x", std::nan(""))), "\"x\":\"NAN\"");
    EXPECT_EQ(s(toZStringJson("", INFINITY)), "\"INFINITY\"");
    EXPECT_EQ(s(toZStringJson("", -1e39)), "\"INFINITY\"");
    EXPECT_EQ(s(toZStringJson("", "text")), "\"text\"");
    EXPECT_EQ(s(toZStringJson("k", "te\"xt")), "\"k\":\"te\"xt\""); // no escaping
    const char* null = nullptr;
    EXPECT_EQ(s(toZStringJson("", null)), "\"\"");
    EXPECT_EQ(s(toZStringJson("", ZString("v"))), "\"v\"");
    EXPECT_EQ(s(toZStringJson("k", ZString("v"))), "\"k\":\"v\"");
    EXPECT_EQ(s(toZStringJson("", ZTime(1700000065u))), "\"2023-11-14T22:14:25\"");
    EXPECT_EQ(s(toZStringJson("t", ZTime(0))), "\"t\":\"1970-01-01T00:00:00\"");
    Nested n;
    EXPECT_EQ(s(toZStringJson("", n)), "{ \"x\":7, \"tag\":\"ab\"}");
    EXPECT_EQ(s(toZStringJson("n", n)), "\"n\":{ \"x\":7, \"tag\":\"ab\"}");
}

TEST(ZObjMemberScalar, ErrorWithoutNameStillWritesEmptyKey) {
    ZError e(3, "Timeout");
    EXPECT_EQ(s(toZStringJson("", e)), "\"\":{\"number\":3,\"string\":\"Timeout\"}");
    EXPECT_EQ(s(toZStringJson("err", e)), "\"err\":{\"number\":3,\"string\":\"Timeout\"}");
    EXPECT_EQ(s(toZStringJson("", ZError())), "\"\":{\"number\":0,\"string\":\"\"}");
    EXPECT_EQ(s(toZString("ignored", e)), "3, Timeout");
    EXPECT_EQ(s(toZString("", ZError(-110, "Connection timed out"))), "-110, Connection timed out");
}

TEST(ZObjMemberScalar, Uint64Quirks) {
    // Text: "%lud" = the number and a literal "d". JSON: "%uld" = the low 32 bits and "ld".
    EXPECT_EQ(s(toZString("", uint64_t(0))), "0d");
    EXPECT_EQ(s(toZString("", uint64_t(0x100000005ull))), "4294967301d");
    EXPECT_EQ(s(toZString("", UINT64_MAX)), "18446744073709551615d");
    EXPECT_EQ(s(toZString("", 7ull)), "7d");
    EXPECT_EQ(s(toZStringJson("", uint64_t(0))), "0ld");
    EXPECT_EQ(s(toZStringJson("", uint64_t(0x100000005ull))), "5ld");
    EXPECT_EQ(s(toZStringJson("u", UINT64_MAX)), "\"u\":4294967295ld");
    EXPECT_EQ(s(toZStringJson("", 7ull)), "7ld");
    struct {
        uint64_t v;
    } r = {123};
    const ZObjMember m[] = {{ZObjType::UInt64, ZObjKind::Single, 0, 1, "UInt64", "v"},
                            {0, 0, 0, 0, nullptr, nullptr}};
    EXPECT_EQ(s(toZString("", m, &r)), "123d");
    EXPECT_EQ(s(toZStringJson("", m, &r)), "{ \"v\":123ld}");
}

TEST(ZObjMemberScalar, TextForms) {
    EXPECT_EQ(s(toZString("k", true)), "1");
    EXPECT_EQ(s(toZString("k", 'c')), "c");
    EXPECT_EQ(s(toZString("k", int8_t(-5))), "-5");
    EXPECT_EQ(s(toZString("k", uint8_t(200))), "200");
    EXPECT_EQ(s(toZString("k", int16_t(-300))), "-300");
    EXPECT_EQ(s(toZString("k", uint16_t(60000))), "60000");
    EXPECT_EQ(s(toZString("k", -70000)), "-70000");
    EXPECT_EQ(s(toZString("k", 4000000000u)), "4000000000");
    EXPECT_EQ(s(toZString("k", int64_t(-5000000000))), "-5000000000");
    EXPECT_EQ(s(toZString("k", 1.5f)), "1.500000e+00");
    EXPECT_EQ(s(toZString("k", -0.25)), "-2.500000e-01");
    EXPECT_EQ(s(toZString("k", std::nan(""))), "nan");
    EXPECT_EQ(s(toZString("k", "text")), "text");
    EXPECT_EQ(s(toZString("k", ZString("v"))), "v");
    // A ZTime value gives its "iso" text (the first-byte quirk is the table's alone).
    EXPECT_EQ(s(toZString("k", ZTime(1700000065u))), "2023-11-14T22:14:25");
    Nested n;
    EXPECT_EQ(s(toZString("k", n)), "7, ab");
}

// ---------------------------------------------------------------- overloads next to zstringlist.h

namespace {
template <class A, class B, class = void>
struct NameFirst : std::false_type {};
template <class A, class B>
struct NameFirst<A, B, std::void_t<decltype(toZString(std::declval<A>(), std::declval<B>()))>>
    : std::is_same<decltype(toZString(std::declval<A>(), std::declval<B>())), ZString> {};

template <class T, class = void>
struct JsonCallable : std::false_type {};
template <class T>
struct JsonCallable<T, std::void_t<decltype(toZStringJson(ZString(), std::declval<T>()))>>
    : std::true_type {};
template <class T, class = void>
struct TextCallable : std::false_type {};
template <class T>
struct TextCallable<T, std::void_t<decltype(toZString(ZString(), std::declval<T>()))>>
    : std::true_type {};
} // namespace

// A non-const ZString lvalue as second argument selects the plain output form
// of zstringlist.h; const values, temporaries and texts select the name-first form.
static_assert(
    std::is_same<decltype(toZString(ZString("k"), std::declval<ZString&>())), void>::value,
    "non-const ZString lvalue: plain toZString(value, out)");
static_assert(NameFirst<ZString, const ZString&>::value, "const ZString: name-first");
static_assert(NameFirst<ZString, ZString>::value, "temporary ZString: name-first");
static_assert(NameFirst<const char*, const char*>::value, "texts: name-first");
static_assert(NameFirst<ZString, int>::value, "int: name-first");
static_assert(std::is_same<decltype(toZString(5, std::declval<ZString&>())), void>::value,
              "int and ZString&: plain");
// Pointers other than const char* do not turn into bool.
static_assert(JsonCallable<const char*>::value && JsonCallable<char*>::value, "texts");
static_assert(!JsonCallable<const ZObjMember*>::value && !JsonCallable<void*>::value,
              "pointers refused");
static_assert(!TextCallable<const ZObjMember*>::value && !TextCallable<int*>::value,
              "pointers refused");

TEST(ZObjMemberOverloads, WhichToZStringRuns) {
    ZString v = "old";
    toZString(ZString("k"), v); // plain form of zstringlist.h: v is the output
    EXPECT_EQ(s(v), "k");

    ZString value = "hello";
    const ZString& cv = value;
    EXPECT_EQ(s(toZString(ZString("k"), cv)), "hello");
    EXPECT_EQ(s(toZString(ZString("k"), std::as_const(value))), "hello");
    EXPECT_EQ(s(toZString("k", ZString("tmp"))), "tmp");
    EXPECT_EQ(s(value), "hello");

    ZString out;
    toZString(42, out); // plain
    EXPECT_EQ(s(out), "42");
    EXPECT_EQ(s(toZString("k", 42)), "42");
}

// ---------------------------------------------------------------- reading JSON

TEST(ZObjMemberJsonReader, FlatObjectWithTrailingArray) {
    ZDict<ZString> d;
    ZError e = toZDictStringFromJson("{\"a\":1, \"c\":\"x\", \"b\":[1,2]}", d);
    EXPECT_EQ(e.number, 0);
    EXPECT_EQ(items(d), (Items{{"a", "1"}, {"c", "x"}, {"b", "[1,2]"}}));

    ZDict<ZString> d2;
    toZDictStringFromJson(" { \"b\": [ 1, 2 ] } ", d2);
    EXPECT_EQ(items(d2), (Items{{"b", "[ 1, 2]"}}));
}

TEST(ZObjMemberJsonReader, ArrayFollowedByMemberLosesThatMember) {
    ZDict<ZString> d;
    EXPECT_EQ(toZDictStringFromJson("{\"b\":[1,2], \"d\":4, \"e\":5}", d).number, 0);
    EXPECT_EQ(items(d), (Items{{"b", "[1,2]"}, {"e", "5"}}));
}

TEST(ZObjMemberJsonReader, RepeatedKeyKeepsLast) {
    ZDict<ZString> d;
    toZDictStringFromJson("{\"a\":1,\"b\":2,\"a\":3}", d);
    EXPECT_EQ(items(d), (Items{{"a", "3"}, {"b", "2"}}));
}

TEST(ZObjMemberJsonReader, EmbeddedQuoteIsNotReadBackFaithfully) {
    ZString json = ZString("{ ") + toZStringJson("k", ZString("say \"hi\"")) + "}";
    EXPECT_EQ(s(json), "{ \"k\":\"say \"hi\"\"}");
    ZDict<ZString> d;
    toZDictStringFromJson(json, d);
    EXPECT_EQ(items(d), (Items{{"k", "say \"hi"}}));
}

TEST(ZObjMemberJsonReader, ForgivingAndAlwaysSuccessful) {
    ZDict<ZString> d;
    EXPECT_EQ(toZDictStringFromJson("", d).number, 0);
    EXPECT_EQ(toZDictStringFromJson("{ }", d).number, 0);
    EXPECT_EQ(d.number(), 0);
    EXPECT_EQ(toZDictStringFromJson("garbage", d).number, 0);
    EXPECT_EQ(items(d), (Items{{"garbage", ""}}));

    // Entries already there are kept; nested objects are cut at the first comma.
    Rec r;
    ZDict<ZString> d2;
    d2["old"] = "kept";
    toZDictStringFromJson(toZStringJson("", recMembers, &r), d2);
    EXPECT_EQ(d2.value("old").retStr(), std::string("kept"));
    EXPECT_EQ(s(d2.value("u32")), "4000000000");
    EXPECT_EQ(s(d2.value("u64")), "5ld");
    EXPECT_EQ(s(d2.value("text")), "hello");
    EXPECT_EQ(s(d2.value("t")), "2023-11-14T22:14:25");
    EXPECT_EQ(s(d2.value("err")), "{\"number\":3");
    EXPECT_EQ(s(d2.value("obj")), "{ \"x\":7");
    EXPECT_EQ(s(d2.value("arr")), "ERROR");
}
