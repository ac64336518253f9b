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

typedef std::vector<std::string> Strings;

Strings items(const ZList<ZString>& list) {
    Strings v;
    for (const ZString& s : list)
        v.push_back(s.retStr());
    return v;
}

} // namespace

TEST(ZString, EmptyNullHashAndNumbers) {
    const char* null = nullptr;
    ZString a(null), b(""), c;
    for (const ZString* s : {&a, &b, &c}) {
        ASSERT_NE(s->retStr(), nullptr);
        EXPECT_STREQ(s->retStr(), "");
    }
    EXPECT_TRUE(a == b);
    EXPECT_EQ(ZString(char(0)).len(), 0);
    EXPECT_EQ(ZString("a").hash(), 177670u);
    EXPECT_EQ(ZString().hash(), 0u); // no block
    ZString s("x");
    s.truncate(0);
    EXPECT_EQ(s.hash(), 5381u); // an empty block
    // Bytes above 0x7f count as negative (signed char widened).
    EXPECT_EQ(ZString("\xff").hash(), 5381u * 33u - 1u);
    EXPECT_STREQ(ZString(18446744073709551615ul).retStr(), "18446744073709551615");
    EXPECT_STREQ(ZString(1.5).retStr(), "1.500000");
    EXPECT_STREQ(s.convert(1.5, 1).retStr(), "1.500000e+00");
    EXPECT_STREQ(s.convertHex(-1).retStr(), "0xffffffff");
    EXPECT_EQ(ZString("0x10").retInt(), 16);
    EXPECT_EQ(ZString("010").retInt(), 8);
    EXPECT_EQ(ZString("-12abc").retInt(), -12);
    EXPECT_EQ(ZString("0xffffffff").retUInt(), 0xffffffffu);
    EXPECT_DOUBLE_EQ(ZString("2.5e3").retDouble(), 2500.0);
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
    a.append(a);
    a.append(a.retStr() + a.len() / 2); // from inside its own block
    EXPECT_STREQ(a.retStr(), "sharedsharedshared");
    EXPECT_NE(a.copy().retStr(), a.retStr());
}

// Many threads copy one shared block and append to their copies; every copy
// must see exactly its own text and the original must stay intact.
TEST(ZString, CopyOnWriteUnderManyThreads) {
    const ZString original("block shared by every thread");
    std::atomic<int> bad{0};
    std::vector<std::thread> pool;
    for (int t = 0; t < 8; t++) {
        pool.emplace_back([&, t] {
            for (int r = 0; r < 2000; r++) {
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
    EXPECT_STREQ(ZString("ab\r").removeNL().retStr(), "ab\r");
    EXPECT_STREQ(ZString("ab\n\n").removeNL().retStr(), "ab\n");
    EXPECT_STREQ(ZString("ab").pad(4).retStr(), "ab  ");
    EXPECT_STREQ(ZString("abc").fixedLen(5, 1).retStr(), "  abc");
    EXPECT_STREQ(ZString("abcdef").fixedLen(3, 1).retStr(), "abc");
    EXPECT_STREQ(ZString("ab").justify(2, 6).retStr(), "  ab  ");
    EXPECT_STREQ(ZString("abc").insert(-5, "<").insert(99, ">").retStr(), "<abc>");
    EXPECT_STREQ(ZString("abcdef").del(4, 99).del(-1, 1).del(9, 1).retStr(), "abcd");
    EXPECT_STREQ(ZString("a.b.c").translateChar('.', '/').retStr(), "a/b/c");
    EXPECT_STREQ(ZString("abc").reverse().retStr(), "cba");
    EXPECT_STREQ(ZString("Hello").lowerFirst().retStr(), "hello");
    EXPECT_STREQ(ZString("abcdef").subString(4, 100).retStr(), "ef");
    EXPECT_STREQ(ZString("abcdef").subString(10).retStr(), "");
}

TEST(ZString, SearchAndCompare) {
    ZString s("path/to/file.tar.gz");
    EXPECT_EQ(s.find('/'), 4);
    EXPECT_EQ(s.findReverse('/'), 7);
    EXPECT_EQ(s.find(ZString("file")), 8);
    EXPECT_EQ(s.find(ZString("nope")), -1);
    EXPECT_EQ(s.inString(99), -1);
    EXPECT_EQ(ZString().compare(""), 0);
    // {text, pattern, matches}
    const char* wild[][3] = {{"data.csv", "*.csv", "1"},
                             {"ab", "?", ""},
                             {"x1", "x[0-9]", "1"},
                             {"x5", "x[!0-9]", ""},
                             {"a*b", "a\\*b", "1"},
                             {"axb", "a\\*b", ""},
                             {"", "*", "1"},
                             {"abcabc", "*abc", "1"},
                             {"[x", "[x", "1"}};
    for (auto& w : wild)
        EXPECT_EQ(ZString(w[0]).compareWild(w[1]) == 0, *w[2] == '1') << w[0] << " ~ " << w[1];
    EXPECT_EQ(ZString("a.tavd").compareWildExpression("*.csv|*.tavd"), 0);
    EXPECT_EQ(ZString("a.txt").compareWildExpression("*.csv, *.tavd"), 1);
    EXPECT_EQ(ZString("abc123").compareRegex("^[a-z]+[0-9]+$", REG_EXTENDED), 0);
    EXPECT_EQ(ZString("abc").compareRegex("^[0-9]+$", REG_EXTENDED), 1);
    EXPECT_EQ(ZString("abc").compareRegex("(", REG_EXTENDED), -1);
}

TEST(ZString, Fields) {
    ZString s("  one \"two words\" (three, four)  five\t\"\"");
    EXPECT_EQ(s.fields(), 5);
    Strings got;
    for (int i = -1; i <= 5; i++)
        got.push_back(s.field(i).retStr());
    EXPECT_EQ(got, (Strings{"", "one", "two words", "(three, four)", "five", "", ""}));
    // Unterminated quote and parenthesis run to the end.
    EXPECT_STREQ(ZString("a \"b c").field(1).retStr(), "b c");
    EXPECT_STREQ(ZString("a (b c").field(1).retStr(), "(b c");
    EXPECT_EQ(ZString().fields(), 0);
}

TEST(ZString, TokensLinesAndLists) {
    ZString s(",,alpha,;beta;;gamma");
    EXPECT_STREQ(s.pullToken(",;").retStr(), "alpha");
    EXPECT_STREQ(s.retStr(), "beta;;gamma");
    EXPECT_STREQ(s.pullToken(",;").retStr(), "beta");
    EXPECT_STREQ(s.pullToken(",;").retStr(), "gamma");
    EXPECT_STREQ(s.pullToken(",;").retStr(), "");
    ZString w("  first second\n");
    EXPECT_STREQ(w.pullWord().retStr(), "first");
    EXPECT_STREQ(w.pullWord().retStr(), "second");
    ZString lines("l1\r\nl2\nl3");
    EXPECT_STREQ(lines.firstLine().retStr(), "l1");
    EXPECT_STREQ(lines.pullLine().retStr(), "l1");
    EXPECT_STREQ(lines.pullLine().retStr(), "l2");
    EXPECT_STREQ(lines.pullLine().retStr(), "l3");
    EXPECT_EQ(lines.len(), 0);
    ZString seps(" \t x y ");
    EXPECT_STREQ(seps.pullSeparators(" \t").retStr(), " \t ");
    EXPECT_STREQ(ZString("--a-b--").removeSeparators("-").retStr(), "a-b");
    EXPECT_EQ(items(ZString(" a  b\tc ").getTokenList(" \t")), (Strings{"a", "b", "c"}));
    EXPECT_EQ(items(ZString("a::b:").split(':')), (Strings{"a", "", "b", ""}));
    EXPECT_EQ(items(ZString().split(':')), Strings{});
    EXPECT_EQ(items(zstringToList("a,b,", 0)), (Strings{"a", "b", ""}));
    EXPECT_EQ(items(zstringToList("", 1)), Strings{});
    EXPECT_EQ(items(zstringToList(" a , b ", 1)), (Strings{"a", "b"}));
    EXPECT_EQ(items(zstringToList(" a , b ", 0)), (Strings{" a ", " b "}));
    EXPECT_EQ(items(zstringToList("a,   ,b", 1)), (Strings{"a", "", "b"}));
    EXPECT_STREQ(zstringToArray("x, y", 1)[1].retStr(), "y");
    const char* texts[] = {"p", "q", "r", nullptr};
    ZList<ZString> list = charToList(texts);
    EXPECT_STREQ(zarrayToString(charToArray(texts)).retStr(), "p,q,r");
    EXPECT_EQ(zstringListinList(list, "q"), 1);
    EXPECT_EQ(zstringListinList(list, "s"), 0);
    ZString out;
    toZString(list, out);
    ZList<ZString> back;
    fromZString(out, back);
    EXPECT_EQ(items(back), (Strings{"p", "q", "r"}));
    unsigned long ul;
    fromZString(ZString("0x100000000"), ul);
    EXPECT_EQ(ul, 0x100000000ul);
}

TEST(ZString, PathsCodingsAndStreams) {
    ZString p("/data/run1/capture.tar.gz");
    EXPECT_STREQ(p.dirname().retStr(), "/data/run1");
    EXPECT_STREQ(p.basename().retStr(), "capture.tar");
    EXPECT_STREQ(p.extension().retStr(), "gz");
    EXPECT_STREQ(p.extensionFull().retStr(), "tar.gz");
    EXPECT_STREQ(ZString("file").dirname().retStr(), ".");
    EXPECT_STREQ(ZString("/file").dirname().retStr(), "/");
    EXPECT_STREQ(ZString("dir.d/file").extension().retStr(), "");
    EXPECT_STREQ(ZString(".hidden").basename().retStr(), ".hidden");
    const char* base64[][2] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foobar", "Zm9vYmFy"}, {"\xff\xfe", "//4="}};
    ZArray<unsigned char> out;
    for (auto& v : base64) {
        EXPECT_STREQ(ZString(v[0]).base64Encode().retStr(), v[1]);
        ASSERT_EQ(ZString(v[1]).base64Decode(out), 0);
        EXPECT_EQ(std::string(out.data(), out.data() + out.size()), v[0]);
    }
    EXPECT_EQ(ZString("Zm9v*").base64Decode(out), 1);
    for (const char* f : {"plain", "a,b", "say \"hi\"", " padded", "two\nlines", ""}) {
        ZString coded = ZString(f).csvEncode(), back;
        EXPECT_STREQ(back.csvDecode(coded).retStr(), f) << coded;
    }
    EXPECT_STREQ(ZString("say \"hi\"").csvEncode().retStr(), "\"say \"\"hi\"\"\"");
    EXPECT_STREQ(ZString("plain").csvEncode().retStr(), "plain");
    std::istringstream in("  word1 word2");
    ZString a, b;
    in >> a >> b;
    std::ostringstream os;
    os << a << "|" << b << "|" << ZString();
    EXPECT_EQ(os.str(), "word1|word2|");
}

TEST(ZStringList, AllocationFreeFormatting) {
    char buf[16];
    EXPECT_EQ(intToString(buf, sizeof(buf), -42, 0), 3);
    EXPECT_STREQ(buf, "-42");
    auto i = [&](int v, int width, size_t n = 16) { return intToString(buf, n, v, width), buf; };
    auto f = [&](double v, int prec, size_t n = 16) { return floatToString(buf, n, v, prec), buf; };
    EXPECT_STREQ(i(7, 4), "   7");
    EXPECT_STREQ(i(-2147483647 - 1, 0), "-2147483648");
    EXPECT_STREQ(i(123456, 0, 4), "123");
    int64ToString(buf, sizeof(buf), -9223372036854775807LL - 1, 0);
    EXPECT_STREQ(buf, "-92233720368547"); // cut at size - 1, still terminated
    EXPECT_STREQ(f(-0.005, 2), "-0.01");
    EXPECT_STREQ(f(2.0, 0), "2");
    EXPECT_STREQ(f(0.0 / 0.0, 3), "nan");
    EXPECT_STREQ(f(5.0, 1, 1), "");
    char dst[4];
    zstrncpy(dst, "abcdef", sizeof(dst));
    EXPECT_STREQ(dst, "abc");
    char t[] = " \t trim me \n", e[] = "   ";
    EXPECT_STREQ(zstrtrim(t), "trim me");
    EXPECT_STREQ(zstrtrim(e), "");
}
