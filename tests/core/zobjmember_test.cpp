#include "zobjmember.h"
#include "zstringlist.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

// The records below derive from ZObj or hold ZString members, so they are not
// standard-layout; offsetof works on them with GCC and Clang all the same.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

namespace {

std::string s(const ZString& z) {
    return z.retStr();
}

// The type name is not part of either form: the code's own name serves.
#define MEMBER(rec, type, kind, field, n)                                                          \
    { ZObjType::type, ZObjKind::kind, offsetof(rec, field), n, #type, #field }
#define END                                                                                        \
    { 0, 0, 0, 0, nullptr, nullptr }

struct Nested : ZObj {
    int32_t x = 7;
    char tag[4] = {'a', 'b', 0, 0};
    const ZObjMember* getMembers() const override;
};
const ZObjMember nestedMembers[] = {MEMBER(Nested, Int32, Single, x, 1),
                                    MEMBER(Nested, Char, Array, tag, 4), END};
const ZObjMember* Nested::getMembers() const {
    return nestedMembers;
}

// One member of every type code.
// clang-format off
struct Rec {
    uint8_t flag = 1;     int8_t i8 = -5;         uint8_t u8 = 200;       int16_t i16 = -300;
    uint16_t u16 = 60000; int32_t i32 = -70000;   uint32_t u32 = 4000000000u;
    int64_t i64 = -5000000000;                    uint64_t u64 = 0x100000005ull; // low 32 bits: 5
    float f32 = 1.5f;     double f64 = -0.25;     char c = 'Z';           char text[8] = "hello";
    ZString str = "str";  ZError err = ZError(3, "Timeout");
    ZTime t = ZTime(1700000065u); // 2023-11-14T22:14:25; first byte 0x41 'A'
    ZTimeUs tus = ZTimeUs(5);     Nested obj;     uint8_t mode = 2;
    uint16_t arr[3] = {1, 2, 3};  uint8_t unk = 9;
};

#define S(type, field) MEMBER(Rec, type, Single, field, 1)
const ZObjMember recMembers[] = {
    S(Bool, flag),   S(Int8, i8),       S(UInt8, u8),      S(Int16, i16),    S(UInt16, u16),
    S(Int32, i32),   S(UInt32, u32),    S(Int64, i64),     S(UInt64, u64),   S(Float32, f32),
    S(Float64, f64), S(Char, c),        MEMBER(Rec, Char, Array, text, 8),   S(String, str),
    S(Error, err),   S(Time, t),        S(TimeUs, tus),    S(Obj, obj),      S(Enum, mode),
    MEMBER(Rec, UInt16, Array, arr, 3), {42, 0, offsetof(Rec, unk), 1, "Unknown", "unk"}, END};
// clang-format on

const std::string recText =
    "1, -5, 200, -300, 60000, -70000, 4000000000, -5000000000, 4294967301d, 1.500000e+00, "
    "-2.500000e-01, Z, hello, str, 3, Timeout, A, Error, 7, ab, Error, Error, Error";

const std::string recJson =
    "{ \"flag\":1, \"i8\":-5, \"u8\":200, \"i16\":-300, \"u16\":60000, \"i32\":-70000, "
    "\"u32\":4000000000, \"i64\":-5000000000, \"u64\":5ld, \"f32\":1.500000e+00, "
    "\"f64\":-2.500000e-01, \"c\":\"Z\", \"text\":\"hello\", \"str\":\"str\", "
    "\"err\":{\"number\":3,\"string\":\"Timeout\"}, \"t\":\"2023-11-14T22:14:25\", "
    "\"tus\":\"Error\", \"obj\":{ \"x\":7, \"tag\":\"ab\"}, \"mode\":\"Error\", "
    "\"arr\":\"ERROR\", \"unk\":\"Error\"}";

// A nested object at an offset other than 0 inside a ZObj.
struct RecObj : ZObj {
    Rec rec;
    const ZObjMember* getMembers() const override { return members; }
    static const ZObjMember members[];
};
const ZObjMember RecObj::members[] = {MEMBER(RecObj, UInt8, Single, rec.u8, 1),
                                      MEMBER(RecObj, Obj, Single, rec.obj, 1), END};

typedef std::vector<std::pair<std::string, std::string>> Items;
Items items(const ZDict<ZString>& d) {
    Items v;
    for (const ZDictItem<ZString>& i : d)
        v.emplace_back(i.key.retStr(), i.value.retStr());
    return v;
}

} // namespace

TEST(ZObjMemberTable, EveryTypeCodeNestedAndEmpty) {
    Rec r;
    EXPECT_EQ(s(toZString("ignored", recMembers, &r)), recText);
    EXPECT_EQ(s(toZStringJson("", recMembers, &r)), recJson);
    EXPECT_EQ(s(toZStringJson("rec", recMembers, &r)), "\"rec\":" + recJson);
    RecObj o;
    EXPECT_EQ(s(toZString("", o)), "200, 7, ab");
    EXPECT_EQ(s(toZStringJson("o", o)),
              "\"o\":{ \"rec.u8\":200, \"rec.obj\":{ \"x\":7, \"tag\":\"ab\"}}");
    const ZObjMember empty[] = {END};
    EXPECT_EQ(s(toZStringJson("e", empty, &r)), "\"e\":{ }");
    EXPECT_EQ(s(toZString("", empty, &r)), "");
    EXPECT_EQ(s(toZStringJson("", nullptr, nullptr)), "{ }");
    EXPECT_EQ(s(toZString("", nullptr, nullptr)), "");
    ZObj plain; // the default table is empty
    EXPECT_EQ(s(toZStringJson("", plain)), "{ }");
}

TEST(ZObjMemberTable, FloatNanAndInfinity) {
    struct {
        float f32;
        double f64;
        const char *json, *text;
    } cases[] = {
        {std::nanf(""), 1e300, "\"f32\":\"NAN\", \"f64\":\"INFINITY\"", ", nan, 1.000000e+300, "},
        {-INFINITY, -std::nan(""), "\"f32\":\"INFINITY\", \"f64\":\"NAN\"", ", -inf, -nan, "},
        // Only magnitudes above 3.4028235e38 are not numbers.
        {FLT_MAX, 3.4028235e38, "\"f32\":3.402823e+38, \"f64\":3.402823e+38", ""},
        {0, 3.4028236e38, "\"f64\":\"INFINITY\"", ""}};
    Rec r;
    for (const auto& c : cases) {
        r.f32 = c.f32;
        r.f64 = c.f64;
        std::string json = s(toZStringJson("", recMembers, &r));
        std::string text = s(toZString("", recMembers, &r));
        EXPECT_NE(json.find(c.json), std::string::npos) << json;
        EXPECT_NE(text.find(c.text), std::string::npos) << text;
    }
}

TEST(ZObjMemberTable, ExclusionKeepsSeparatorCountedByEntries) {
    Rec r;
    ZList<ZString> first{"flag"};
    EXPECT_EQ(s(toZString("", recMembers, &r, first)), recText.substr(1));
    EXPECT_EQ(s(toZStringJson("n", recMembers, &r, first)), "\"n\":{ , " + recJson.substr(12));
    // Excluded members elsewhere leave no trace.
    ZList<ZString> mid{"i8", "u8", "unk"};
    std::string text = s(toZString("", recMembers, &r, mid));
    EXPECT_EQ(text.substr(0, 11), "1, -300, 60");
    EXPECT_EQ(text.substr(text.size() - 12), "Error, Error");
    std::string json = s(toZStringJson("", recMembers, &r, mid));
    EXPECT_EQ(json.substr(0, 24), "{ \"flag\":1, \"i16\":-300, ");
    EXPECT_EQ(json.substr(json.size() - 30), "\"mode\":\"Error\", \"arr\":\"ERROR\"}");
}

TEST(ZObjMemberTable, ArraysCharsAndTimeBytes) {
    struct R {
        char single;
        char kind1[4];
        char time0[4];
        uint8_t flag;
    } r = {0, {'x', 'y', 0, 0}, {0, 1, 0, 0}, 2};
    const ZObjMember m[] = {MEMBER(R, Char, Single, single, 1),
                            {ZObjType::Char, 1, offsetof(R, kind1), 4, "Char", "kind1"},
                            MEMBER(R, Time, Single, time0, 1),
                            MEMBER(R, Bool, Single, flag, 1),
                            END};
    // A NUL character writes nothing; kind 1 counts as an array; bool is "%d" of the byte.
    EXPECT_EQ(s(toZString("", m, &r)), ", Error, , 2");
    EXPECT_EQ(s(toZStringJson("", m, &r)), "{ \"single\":\"\", \"kind1\":\"ERROR\", "
                                           "\"time0\":\"1970-01-01T00:04:16\", \"flag\":2}");
    // Records from a unit need not terminate their char arrays: the text
    // stops at `number` bytes.
    struct Two {
        char a[4], b[4];
    } two = {{'w', 'x', 'y', 'z'}, {'Q', 0, 'R', 0}};
    const ZObjMember m2[] = {MEMBER(Two, Char, Array, a, 4), MEMBER(Two, Char, Array, b, 4), END};
    EXPECT_EQ(s(toZString("", m2, &two)), "wxyz, Q");
    EXPECT_EQ(s(toZStringJson("", m2, &two)), "{ \"a\":\"wxyz\", \"b\":\"Q\"}");
}

namespace {
// json is the bare JSON value; with a name it follows "\"k\":".
template <class T>
void scalar(const T& v, const std::string& json, const std::string& text) {
    EXPECT_EQ(s(toZStringJson("", v)), json);
    EXPECT_EQ(s(toZStringJson("k", v)), "\"k\":" + json);
    EXPECT_EQ(s(toZString("k", v)), text);
}
} // namespace

TEST(ZObjMemberScalar, JsonAndTextForms) {
    // One of each overload.
    scalar(5, "5", "5");
    scalar(true, "1", "1");
    scalar('c', "\"c\"", "c");
    scalar(int8_t(-5), "-5", "-5");
    scalar(uint8_t(200), "200", "200");
    scalar(int16_t(-300), "-300", "-300");
    scalar(uint16_t(60000), "60000", "60000");
    scalar(4000000000u, "4000000000", "4000000000");
    scalar(int64_t(-5000000000), "-5000000000", "-5000000000");
    scalar(-5000000000ll, "-5000000000", "-5000000000");
    scalar(7ull, "7ld", "7d");
    // uint64: text "%lud" = the number and "d"; JSON "%uld" = the low 32 bits and "ld".
    scalar(uint64_t(0x100000005ull), "5ld", "4294967301d");
    scalar(UINT64_MAX, "4294967295ld", "18446744073709551615d");
    scalar(1.5f, "1.500000e+00", "1.500000e+00");
    scalar(-0.25, "-2.500000e-01", "-2.500000e-01");
    scalar(std::nanf(""), "\"NAN\"", "nan");
    scalar(std::nan(""), "\"NAN\"", "nan");
    scalar(INFINITY, "\"INFINITY\"", "inf");
    scalar(-1e39, "\"INFINITY\"", "-1.000000e+39");
    scalar("te\"xt", "\"te\"xt\"", "te\"xt"); // no escaping
    scalar(static_cast<const char*>(nullptr), "\"\"", "");
    scalar(ZString("v"), "\"v\"", "v");
    // A ZTime value gives its "iso" text (the first-byte quirk is the table's alone).
    scalar(ZTime(1700000065u), "\"2023-11-14T22:14:25\"", "2023-11-14T22:14:25");
    scalar(Nested(), "{ \"x\":7, \"tag\":\"ab\"}", "7, ab");
    // A ZError without a name still writes a key, an empty one.
    ZError e(3, "Timeout");
    EXPECT_EQ(s(toZStringJson("", e)), "\"\":{\"number\":3,\"string\":\"Timeout\"}");
    EXPECT_EQ(s(toZStringJson("err", e)), "\"err\":{\"number\":3,\"string\":\"Timeout\"}");
    EXPECT_EQ(s(toZString("ignored", e)), "3, Timeout");
    // A non-const ZString lvalue as second argument selects the plain
    // toZString(value, ZString& out) of zstringlist.h; const values,
    // temporaries and texts select the name-first form.
    ZString v = "old";
    toZString(ZString("k"), v);
    EXPECT_EQ(s(v), "k");
    EXPECT_EQ(s(toZString(ZString("k"), std::as_const(v))), "k");
    EXPECT_EQ(s(toZString("k", ZString("tmp"))), "tmp");
}

TEST(ZObjMemberJsonReader, FlatAndForgiving) {
    struct {
        const char* json;
        Items want;
    } cases[] = {{"{\"a\":1, \"c\":\"x\", \"b\":[1,2]}", {{"a", "1"}, {"c", "x"}, {"b", "[1,2]"}}},
                 {" { \"b\": [ 1, 2 ] } ", {{"b", "[ 1, 2]"}}},
                 // The member after an array is swallowed with the rest of the array.
                 {"{\"b\":[1,2], \"d\":4, \"e\":5}", {{"b", "[1,2]"}, {"e", "5"}}},
                 {"{\"a\":1,\"b\":2,\"a\":3}", {{"a", "3"}, {"b", "2"}}},
                 // An embedded quote is written unescaped and not read back faithfully.
                 {"{ \"k\":\"say \"hi\"\"}", {{"k", "say \"hi"}}},
                 {"", {}},
                 {"garbage", {{"garbage", ""}}}};
    for (const auto& c : cases) {
        ZDict<ZString> d;
        EXPECT_EQ(toZDictStringFromJson(c.json, d).number, 0);
        EXPECT_EQ(items(d), c.want) << c.json;
    }
    // Entries already there are kept; nested objects are cut at the first comma.
    Rec r;
    ZDict<ZString> d;
    d["old"] = "kept";
    toZDictStringFromJson(toZStringJson("", recMembers, &r), d);
    EXPECT_EQ(s(d.value("old")), "kept");
    EXPECT_EQ(s(d.value("t")), "2023-11-14T22:14:25");
    EXPECT_EQ(s(d.value("err")), "{\"number\":3");
    EXPECT_EQ(s(d.value("obj")), "{ \"x\":7");
}
