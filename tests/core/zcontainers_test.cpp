#include "zarray.h"
#include "zdict.h"
#include "zerror.h"
#include "zlist.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace {

template <class T>
std::vector<T> values(const ZList<T>& list) {
    std::vector<T> v;
    for (ZIter it = list.first(); !list.isEnd(it); it = list.next(it))
        v.push_back(list.nodeGet(it));
    return v;
}

} // namespace

TEST(ZError, Conventions) {
    ZError e(-110, "Timeout"), text("Not connected");
    EXPECT_TRUE(e);
    e.clear();
    EXPECT_EQ(e, ZError());
    EXPECT_EQ(text, ZError(1, "Not connected"));
    e.set(6, "Currupt packet");
    ZError copy = e.copy();
    EXPECT_EQ(copy, e);
    EXPECT_NE(copy.string.retStr(), e.string.retStr()); // private text
    ZError sys = zerrorFromErrno(ENOENT);
    EXPECT_EQ(sys.num(), -ENOENT);
    EXPECT_STREQ(sys.str().retStr(), strerror(ENOENT));
}

TEST(ZListAndArray, InsertDeleteWalkAndCopies) {
    ZList<int> list;
    ZIter two = list.append(2);
    list.append(4);
    list.insert(two, 1);
    ZIter four = list.last();
    list.insert(four, 3);
    list.insert(list.next(four), 5); // an end position appends
    EXPECT_EQ(values(list), (std::vector<int>{1, 2, 3, 4, 5}));
    EXPECT_EQ(list[4], 5);
    EXPECT_EQ(list.nodeGet(list.del(two)), 3);
    list.del(list.first());
    list.del(list.last());
    list.nodeGet(list.nodeCreate()) = 9;
    EXPECT_EQ(values(list), (std::vector<int>{3, 4, 9}));
    ZList<int> copy = list;
    copy.front() = 100;
    EXPECT_EQ(list.front(), 3);
    list.clear();
    EXPECT_TRUE(list.isEnd(list.first()));
    ZArray<int> a(3);
    a[1] = 7;
    a.append(9);
    a.del(0);
    a.del(99);
    ZArray<int> b = a;
    b[0] = 1;
    EXPECT_EQ(std::vector<int>(a.data(), a.data() + a.number()), (std::vector<int>{7, 0, 9}));
}

TEST(ZListDeathTest, IndexOverRangeEndsTheProgram) {
    ZList<int> list{1, 2};
    EXPECT_DEATH(list[2], "ZList over range");
    EXPECT_DEATH(list[-1], "ZList over range");
}

TEST(ZDict, InsertionOrderLookupAndDelete) {
    ZDict<ZString> d;
    d["zeta"] = "1";
    d["alpha"] = "2";
    d["mid"] = "3";
    d["alpha"] = "4"; // a repeated key keeps its place and takes the new value
    std::vector<std::string> order;
    for (const auto& item : d)
        order.push_back(std::string(item.key.retStr()) + "=" + item.value.retStr());
    EXPECT_EQ(order, (std::vector<std::string>{"zeta=1", "alpha=4", "mid=3"}));
    ZIter it = nullptr;
    ASSERT_EQ(d.hashFind("zeta", it), 1);
    EXPECT_STREQ(d.nodeGet(it).value.retStr(), "1");
    EXPECT_EQ(d.hashFind("", it), 0);
    EXPECT_STREQ(d.value("absent", "dflt").retStr(), "dflt");
    d.del(it);
    EXPECT_FALSE(d.contains("zeta"));
    EXPECT_EQ(d.del("nothing"), 0);
    ZDict<ZString> copy = d;
    copy["alpha"] = "changed";
    EXPECT_STREQ(d.value("alpha").retStr(), "4");
    d.clear();
    d["again"] = "ok";
    EXPECT_EQ(d.number(), 1);
    EXPECT_FALSE(d.contains("alpha"));
}

// The index grows with the items, so the buckets stay short; order survives deletions.
TEST(ZDict, IndexGrowsWithTheItems) {
    ZDict<int> d;
    const int n = 20000;
    for (int i = 0; i < n; i++)
        d[ZString(i)] = i;
    EXPECT_GE(d.bucketCount(), n / 2);
    EXPECT_LE(d.bucketCount(), 4 * n);
    for (int i = 0; i < n; i += 2)
        d.del(ZString(i));
    EXPECT_EQ(d.number(), n / 2);
    for (int i = 0; i < n; i += 997)
        EXPECT_EQ(d.value(ZString(i), -1), i % 2 ? i : -1);
    EXPECT_EQ(d.list().front().value, 1);
}
