#include "zlist.h"
#include "zstring.h"
#include "zstringlist.h"

#include <gtest/gtest.h>

#include <atomic>
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
    EXPECT_EQ(ZString("0x10").retInt(), 16);
    EXPECT_EQ(ZString("010").retInt(), 8);
    EXPECT_EQ(ZString("-12abc").retInt(), -12);
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

TEST(ZString, SplitAndLists) {
    EXPECT_EQ(items(ZString("a::b:").split(':')), (Strings{"a", "", "b", ""}));
    EXPECT_EQ(items(ZString().split(':')), Strings{});
    EXPECT_EQ(items(zstringToList("a,b,", 0)), (Strings{"a", "b", ""}));
    EXPECT_EQ(items(zstringToList("", 1)), Strings{});
    EXPECT_EQ(items(zstringToList(" a , b ", 1)), (Strings{"a", "b"}));
    EXPECT_EQ(items(zstringToList(" a , b ", 0)), (Strings{" a ", " b "}));
    EXPECT_EQ(items(zstringToList("a,   ,b", 1)), (Strings{"a", "", "b"}));
    EXPECT_STREQ(ZString("--a-b--").removeSeparators("-").retStr(), "a-b");
    ZList<ZString> list{"p", "q", "r"};
    EXPECT_EQ(zstringListinList(list, "q"), 1);
    EXPECT_EQ(zstringListinList(list, "s"), 0);
}

TEST(ZString, EditingAndPaths) {
    EXPECT_STREQ(ZString("abc").insert(-5, "<").insert(99, ">").retStr(), "<abc>");
    EXPECT_STREQ(ZString("abcdef").del(4, 99).del(-1, 1).del(9, 1).retStr(), "abcd");
    EXPECT_STREQ(ZString("abcdef").subString(4, 100).retStr(), "ef");
    EXPECT_STREQ(ZString("abcdef").subString(10).retStr(), "");
    ZString p("/data/run1/capture.tar.gz");
    EXPECT_STREQ(p.dirname().retStr(), "/data/run1");
    EXPECT_STREQ(p.basename().retStr(), "capture.tar");
    EXPECT_STREQ(p.extension().retStr(), "gz");
    EXPECT_STREQ(ZString("file").dirname().retStr(), ".");
    EXPECT_STREQ(ZString("/file").dirname().retStr(), "/");
    EXPECT_STREQ(ZString("dir.d/file").extension().retStr(), "");
    EXPECT_STREQ(ZString(".hidden").basename().retStr(), ".hidden");
}
