#include "zarray.h"
#include "zlist.h"
#include "zstring.h"
#include "zstringlist.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <sstream>
#include <thread>
#include <vector>

namespace {

std::vector<std::string> items(const ZList<ZString>& list) {
    std::vector<std::string> v;
    for (const ZString& s : list)
        v.push_back(s.retStr());
    return v;
}

typedef std::vector<std::string> Strings;

} // namespace

TEST(ZString, EmptyAndNullAreTheSameState) {
    const char* null = nullptr;
    ZString a(null), b(""), c;
    for (const ZString* s : {&a, &b, &c}) {
        EXPECT_EQ(s->len(), 0);
        ASSERT_NE(s->retStr(), nullptr);
        EXPECT_STREQ(s->retStr(), "");
    }
    EXPECT_TRUE(a == b);
    EXPECT_EQ(ZString(char(0)).len(), 0);
    char* dup = c.retStrDup();
    EXPECT_STREQ(dup, "");
    free(dup);
}

TEST(ZString, Hash) {
    EXPECT_EQ(ZString("a").hash(), 177670u);
    EXPECT_EQ(ZString().hash(), 0u); // no block
    ZString s("x");
    s.truncate(0);
    EXPECT_EQ(s.len(), 0);
    EXPECT_EQ(s.hash(), 5381u); // an empty block
    // Bytes above 0x7f count as negative (signed char widened).
    EXPECT_EQ(ZString("\xff").hash(), 5381u * 33u - 1u);
}

TEST(ZString, NumbersInAndOut) {
    EXPECT_STREQ(ZString(42).retStr(), "42");
    EXPECT_STREQ(ZString(-7).retStr(), "-7");
    EXPECT_STREQ(ZString(4000000000u).retStr(), "4000000000");
    EXPECT_STREQ(ZString(18446744073709551615ul).retStr(), "18446744073709551615");
    EXPECT_STREQ(ZString(1.5).retStr(), "1.500000");
    EXPECT_STREQ(ZString('q').retStr(), "q");
    ZString s;
    EXPECT_STREQ(s.convert(1.5, 1).retStr(), "1.500000e+00");
    EXPECT_STREQ(s.convertHex(255).retStr(), "0xff");
    EXPECT_STREQ(s.convertHex(-1).retStr(), "0xffffffff");
    EXPECT_EQ(ZString("0x10").retInt(), 16);
    EXPECT_EQ(ZString("010").retInt(), 8);
    EXPECT_EQ(ZString("-12abc").retInt(), -12);
    EXPECT_EQ(ZString().retInt(), 0);
    EXPECT_EQ(ZString("0xffffffff").retUInt(), 0xffffffffu);
    EXPECT_DOUBLE_EQ(ZString("2.5e3").retDouble(), 2500.0);
    EXPECT_DOUBLE_EQ(ZString().retFloat64(), 0.0);
    EXPECT_STREQ(s.printf("%s-%03d", "ab", 7).retStr(), "ab-007");
}

TEST(ZString, CopyOnWriteKeepsSharersIndependent) {
    ZString a("shared");
    ZString b = a, c = a;
    EXPECT_EQ(a.retStr(), b.retStr()); // one block
    b.append("+b");
    c.toUpper();
    ZString d = a;
    d.del(0, 3).insert(0, "X");
    EXPECT_STREQ(a.retStr(), "shared");
    EXPECT_STREQ(b.retStr(), "shared+b");
    EXPECT_STREQ(c.retStr(), "SHARED");
    EXPECT_STREQ(d.retStr(), "Xred");
    a.append(a); // appending to itself
    EXPECT_STREQ(a.retStr(), "sharedshared");
    a.append(a.retStr() + a.len() / 2); // from inside its own block
    EXPECT_STREQ(a.retStr(), "sharedsharedshared");
    ZString e = a.copy();
    EXPECT_NE(e.retStr(), a.retStr());
    EXPECT_TRUE(e == a);
}

// Many threads copy one shared block and append to their copies; every copy
// must see exactly its own text and the original must stay intact.
TEST(ZString, CopyOnWriteUnderManyThreads) {
    const ZString original("block shared by every thread");
    const int threads = 8, rounds = 2000;
    std::atomic<int> bad{0};
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; t++) {
        pool.emplace_back([&, t] {
            for (int r = 0; r < rounds; r++) {
                ZString mine = original;
                ZString other = mine;
                mine.append(char('a' + t));
                other.append(ZString(r));
                ZString expect("block shared by every thread");
                if (mine != expect + ZString(char('a' + t)) || other != expect + ZString(r))
                    bad++;
            }
        });
    }
    for (auto& th : pool)
        th.join();
    EXPECT_EQ(bad.load(), 0);
    EXPECT_STREQ(original.retStr(), "block shared by every thread");
}

TEST(ZString, Editing) {
    EXPECT_STREQ(ZString("ab\r\n").removeNL().retStr(), "ab");
    EXPECT_STREQ(ZString("ab\n").removeNL().retStr(), "ab");
    EXPECT_STREQ(ZString("\n").removeNL().retStr(), "");
    EXPECT_STREQ(ZString("ab\r").removeNL().retStr(), "ab\r");
    EXPECT_STREQ(ZString("ab\n\n").removeNL().retStr(), "ab\n");
    EXPECT_STREQ(ZString("ab").pad(4).retStr(), "ab  ");
    EXPECT_STREQ(ZString("abcd").pad(2).retStr(), "abcd");
    EXPECT_STREQ(ZString("abc").fixedLen(5, 0).retStr(), "abc  ");
    EXPECT_STREQ(ZString("abc").fixedLen(5, 1).retStr(), "  abc");
    EXPECT_STREQ(ZString("abcdef").fixedLen(3, 0).retStr(), "abc");
    EXPECT_STREQ(ZString("abcdef").fixedLen(3, 1).retStr(), "abc");
    EXPECT_STREQ(ZString("ab").justify(1, 5).retStr(), "   ab");
    EXPECT_STREQ(ZString("ab").justify(2, 6).retStr(), "  ab  ");
    EXPECT_STREQ(ZString("abc").insert(-5, "<").insert(99, ">").retStr(), "<abc>");
    EXPECT_STREQ(ZString("abcdef").del(4, 99).del(-1, 1).del(9, 1).retStr(), "abcd");
    EXPECT_STREQ(ZString("a.b.c").translateChar('.', '/').retStr(), "a/b/c");
    EXPECT_STREQ(ZString("abc").reverse().retStr(), "cba");
    EXPECT_STREQ(ZString("Hello").lowerFirst().retStr(), "hello");
    EXPECT_STREQ(ZString("MiXed").toLower().retStr(), "mixed");
    EXPECT_STREQ(ZString("abcdef").truncate(3).retStr(), "abc");
    EXPECT_STREQ(ZString("abcdef").subString(2, 2).retStr(), "cd");
    EXPECT_STREQ(ZString("abcdef").subString(4, 100).retStr(), "ef");
    EXPECT_STREQ(ZString("abcdef").subString(10).retStr(), "");
    EXPECT_STREQ((ZString("a") + "b" + ZString("c")).retStr(), "abc");
}

TEST(ZString, SearchAndCompare) {
    ZString s("path/to/file.tar.gz");
    EXPECT_EQ(s.find('/'), 4);
    EXPECT_EQ(s.findReverse('/'), 7);
    EXPECT_EQ(s.find('#'), -1);
    EXPECT_EQ(s.find(ZString("file")), 8);
    EXPECT_EQ(s.find(ZString("nope")), -1);
    EXPECT_EQ(s.inString(3), 3);
    EXPECT_EQ(s.inString(99), -1);
    EXPECT_LT(ZString("a").compare("b"), 0);
    EXPECT_EQ(ZString().compare(""), 0);

    struct {
        const char* text;
        const char* pattern;
        int match;
    } wild[] = {
        {"data.csv", "*.csv", 1},
        {"data.csv", "*.tdms", 0},
        {"a", "?", 1},
        {"ab", "?", 0},
        {"x1", "x[0-9]", 1},
        {"xa", "x[!0-9]", 1},
        {"x5", "x[!0-9]", 0},
        {"a*b", "a\\*b", 1},
        {"axb", "a\\*b", 0},
        {"", "*", 1},
        {"abcabc", "*abc", 1},
        {"[x", "[x", 1},
    };
    for (auto& w : wild)
        EXPECT_EQ(ZString(w.text).compareWild(w.pattern) == 0, w.match == 1)
            << w.text << " ~ " << w.pattern;
    EXPECT_EQ(ZString("a.tavd").compareWildExpression("*.csv|*.tavd"), 0);
    EXPECT_EQ(ZString("a.txt").compareWildExpression("*.csv, *.tavd"), 1);
    EXPECT_EQ(ZString("abc123").compareRegex("^[a-z]+[0-9]+$", REG_EXTENDED), 0);
    EXPECT_EQ(ZString("abc").compareRegex("^[0-9]+$", REG_EXTENDED), 1);
    EXPECT_EQ(ZString("abc").compareRegex("(", REG_EXTENDED), -1);
}

TEST(ZString, Fields) {
    ZString s("  one \"two words\" (three, four)  five\t\"\"");
    EXPECT_EQ(s.fields(), 5);
    EXPECT_STREQ(s.field(0).retStr(), "one");
    EXPECT_STREQ(s.field(1).retStr(), "two words");
    EXPECT_STREQ(s.field(2).retStr(), "(three, four)");
    EXPECT_STREQ(s.field(3).retStr(), "five");
    EXPECT_STREQ(s.field(4).retStr(), "");
    EXPECT_STREQ(s.field(5).retStr(), "");
    EXPECT_STREQ(s.field(-1).retStr(), "");
    // Unterminated quote and parenthesis run to the end.
    EXPECT_STREQ(ZString("a \"b c").field(1).retStr(), "b c");
    EXPECT_STREQ(ZString("a (b c").field(1).retStr(), "(b c");
    EXPECT_EQ(ZString().fields(), 0);
}

TEST(ZString, TokensAndLines) {
    ZString s(",,alpha,;beta;;gamma");
    EXPECT_STREQ(s.pullToken(",;").retStr(), "alpha");
    EXPECT_STREQ(s.retStr(), "beta;;gamma");
    EXPECT_STREQ(s.pullToken(",;").retStr(), "beta");
    EXPECT_STREQ(s.pullToken(",;").retStr(), "gamma");
    EXPECT_STREQ(s.retStr(), "");
    EXPECT_STREQ(s.pullToken(",;").retStr(), "");

    ZString w("  first second\n");
    EXPECT_STREQ(w.pullWord().retStr(), "first");
    EXPECT_STREQ(w.pullWord().retStr(), "second");
    EXPECT_STREQ(w.retStr(), "");

    ZString lines("l1\r\nl2\nl3");
    EXPECT_STREQ(lines.firstLine().retStr(), "l1");
    EXPECT_STREQ(lines.pullLine().retStr(), "l1");
    EXPECT_STREQ(lines.pullLine().retStr(), "l2");
    EXPECT_STREQ(lines.pullLine().retStr(), "l3");
    EXPECT_EQ(lines.len(), 0);

    ZString seps(" \t x y ");
    EXPECT_STREQ(seps.pullSeparators(" \t").retStr(), " \t ");
    EXPECT_STREQ(seps.retStr(), "x y ");
    EXPECT_STREQ(ZString("--a-b--").removeSeparators("-").retStr(), "a-b");
    EXPECT_STREQ(ZString("----").removeSeparators("-").retStr(), "");

    EXPECT_EQ(items(ZString(" a  b\tc ").getTokenList(" \t")), (Strings{"a", "b", "c"}));
    EXPECT_EQ(items(ZString("a::b").getTokenList(':')), (Strings{"a", "b"}));
    EXPECT_EQ(items(ZString("a::b:").split(':')), (Strings{"a", "", "b", ""}));
    EXPECT_EQ(items(ZString(":").split(':')), (Strings{"", ""}));
    EXPECT_EQ(items(ZString().split(':')), Strings{});
}

TEST(ZString, CommaListsAndJoins) {
    EXPECT_EQ(items(zstringToList("a,b,", 0)), (Strings{"a", "b", ""}));
    EXPECT_EQ(items(zstringToList("", 1)), Strings{});
    EXPECT_EQ(items(zstringToList(" a , b ", 1)), (Strings{"a", "b"}));
    EXPECT_EQ(items(zstringToList(" a , b ", 0)), (Strings{" a ", " b "}));
    EXPECT_EQ(items(zstringToList("a,   ,b", 1)), (Strings{"a", "", "b"}));
    EXPECT_EQ(zstringToArray("x, y", 1).number(), 2);
    EXPECT_STREQ(zstringToArray("x, y", 1)[1].retStr(), "y");

    const char* texts[] = {"p", "q", "r", nullptr};
    ZList<ZString> list = charToList(texts);
    EXPECT_STREQ(zlistToString(list).retStr(), "p,q,r");
    EXPECT_STREQ(zarrayToString(charToArray(texts)).retStr(), "p,q,r");
    EXPECT_EQ(zstringListinList(list, "q"), 1);
    EXPECT_EQ(zstringListinList(list, "s"), 0);

    ZString out;
    toZString(list, out);
    EXPECT_STREQ(out.retStr(), "p,q,r");
    ZList<ZString> back;
    fromZString(out, back);
    EXPECT_EQ(items(back), (Strings{"p", "q", "r"}));
    unsigned long ul;
    fromZString(ZString("0x100000000"), ul);
    EXPECT_EQ(ul, 0x100000000ul);
}

TEST(ZString, Paths) {
    ZString p("/data/run1/capture.tar.gz");
    EXPECT_STREQ(p.dirname().retStr(), "/data/run1");
    EXPECT_STREQ(p.filename().retStr(), "capture.tar.gz");
    EXPECT_STREQ(p.basename().retStr(), "capture.tar");
    EXPECT_STREQ(p.extension().retStr(), "gz");
    EXPECT_STREQ(p.extensionFull().retStr(), "tar.gz");
    EXPECT_STREQ(ZString("file").dirname().retStr(), ".");
    EXPECT_STREQ(ZString("/file").dirname().retStr(), "/");
    EXPECT_STREQ(ZString("dir.d/file").extension().retStr(), "");
    EXPECT_STREQ(ZString(".hidden").basename().retStr(), ".hidden");
}

TEST(ZString, Base64AndCsv) {
    struct {
        const char* plain;
        const char* coded;
    } vectors[] = {{"", ""},
                   {"f", "Zg=="},
                   {"fo", "Zm8="},
                   {"foo", "Zm9v"},
                   {"foob", "Zm9vYg=="},
                   {"foobar", "Zm9vYmFy"},
                   {"\xff\xfe", "//4="}};
    for (auto& v : vectors) {
        EXPECT_STREQ(ZString(v.plain).base64Encode().retStr(), v.coded);
        ZArray<unsigned char> out;
        ASSERT_EQ(ZString(v.coded).base64Decode(out), 0);
        EXPECT_EQ(std::string(out.data(), out.data() + out.size()), v.plain);
    }
    ZArray<unsigned char> out;
    EXPECT_EQ(ZString("Zm9v*").base64Decode(out), 1);

    const char* fields[] = {"plain", "a,b", "say \"hi\"", " padded", "two\nlines", ""};
    for (const char* f : fields) {
        ZString coded = ZString(f).csvEncode();
        ZString back;
        EXPECT_STREQ(back.csvDecode(coded).retStr(), f) << coded;
    }
    EXPECT_STREQ(ZString("a,b").csvEncode().retStr(), "\"a,b\"");
    EXPECT_STREQ(ZString("say \"hi\"").csvEncode().retStr(), "\"say \"\"hi\"\"\"");
    EXPECT_STREQ(ZString("plain").csvEncode().retStr(), "plain");
}

TEST(ZString, Streams) {
    std::istringstream in("  word1 word2");
    ZString a, b;
    in >> a >> b;
    EXPECT_STREQ(a.retStr(), "word1");
    EXPECT_STREQ(b.retStr(), "word2");
    std::ostringstream out;
    out << a << "|" << ZString();
    EXPECT_EQ(out.str(), "word1|");
}

TEST(ZStringList, AllocationFreeFormatting) {
    char buf[16];
    EXPECT_EQ(intToString(buf, sizeof(buf), -42, 0), 3);
    EXPECT_STREQ(buf, "-42");
    intToString(buf, sizeof(buf), 7, 4);
    EXPECT_STREQ(buf, "   7");
    intToString(buf, sizeof(buf), -2147483647 - 1, 0);
    EXPECT_STREQ(buf, "-2147483648");
    int64ToString(buf, sizeof(buf), -9223372036854775807LL - 1, 0);
    EXPECT_STREQ(buf, "-92233720368547"); // cut at size - 1, still terminated
    intToString(buf, 4, 123456, 0);
    EXPECT_STREQ(buf, "123");
    floatToString(buf, sizeof(buf), 3.14159, 2);
    EXPECT_STREQ(buf, "3.14");
    floatToString(buf, sizeof(buf), -0.005, 2);
    EXPECT_STREQ(buf, "-0.01");
    floatToString(buf, sizeof(buf), 2.0, 0);
    EXPECT_STREQ(buf, "2");
    floatToString(buf, sizeof(buf), 0.0 / 0.0, 3);
    EXPECT_STREQ(buf, "nan");
    floatToString(buf, 1, 5.0, 1);
    EXPECT_STREQ(buf, "");

    char dst[4];
    zstrncpy(dst, "abcdef", sizeof(dst));
    EXPECT_STREQ(dst, "abc");
    char t[] = " \t trim me \n";
    EXPECT_STREQ(zstrtrim(t), "trim me");
    char e[] = "   ";
    EXPECT_STREQ(zstrtrim(e), "");
}
