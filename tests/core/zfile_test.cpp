#include "zdir.h"
#include "zfile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
typedef std::vector<std::string> Names;

namespace {

// A fresh folder under $TAVRO_TEST_TMP (or /tmp), removed again at the end.
struct TempDir {
    TempDir() : path(getenv("TAVRO_TEST_TMP") ? getenv("TAVRO_TEST_TMP") : "/tmp") {
        fs::create_directories(path);
        path += "/zfileXXXXXX";
        EXPECT_NE(mkdtemp(&path[0]), nullptr) << strerror(errno);
    }
    ~TempDir() {
        std::error_code ec;
        fs::remove_all(path, ec);
    }
    std::string operator/(const std::string& name) const { return path + "/" + name; }
    std::string path;
};

void writeText(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::string readText(const std::string& path) {
    std::stringstream s;
    s << std::ifstream(path, std::ios::binary).rdbuf();
    return s.str();
}

int openFds() {
    auto it = fs::directory_iterator("/proc/self/fd");
    return int(std::distance(it, fs::directory_iterator()));
}

std::string str(const ZString& z) {
    return z.retStr();
}

// An error as "number: text", and the one expected for errno n after prefix.
std::string err(const ZError& e) {
    return std::to_string(e.number) + ": " + str(e.string);
}
std::string sys(int n, const std::string& prefix = "") {
    return std::to_string(-n) + ": " + prefix + strerror(n);
}

Names names(const ZDir& dir) {
    Names v;
    for (ZIter it = dir.first(); !dir.isEnd(it); it = dir.next(it))
        v.push_back(str(dir.entryName(it)));
    return v;
}

} // namespace

TEST(ZFile, OpenAdoptWriteReadCloseAndFlush) {
    ZFile f;
    EXPECT_EQ(err(f.open("/nonexistent-dir/x.txt", "r")),
              sys(ENOENT, "Cannot open file: /nonexistent-dir/x.txt: "));
    EXPECT_TRUE(!f.isOpen() && f.isEnd() && f.getFd() == -1);
    EXPECT_EQ(f.close().number, 0); // closing a closed file succeeds
    TempDir d;
    int fds = openFds();
    ASSERT_EQ(f.open((d / "a").c_str(), "w").number, 0);
    EXPECT_EQ(str(f.fileName()), d / "a");
    EXPECT_EQ(f.writeString("hello "), 6);
    EXPECT_EQ(f.printf("%d-%s\n", 42, "x"), 5);
    EXPECT_EQ(f.write("zz", 2), 2u);
    EXPECT_EQ(f.length(), 13); // flushed before fstat
    EXPECT_EQ(f.close().number, 0);
    EXPECT_EQ(readText(d / "a"), "hello 42-x\nzz");
    ASSERT_EQ(f.open((d / "a").c_str(), "r").number, 0);
    char buf[32];
    ASSERT_NE(f.fgets(buf, sizeof(buf)), nullptr);
    EXPECT_STREQ(buf, "hello 42-x\n");
    EXPECT_EQ(f.seek(6), 0);
    EXPECT_EQ(f.read(buf, 4), 4u);
    EXPECT_EQ(std::string(buf, 4), "42-x");
    EXPECT_EQ(f.read(buf, sizeof(buf)), 3u);
    EXPECT_TRUE(f.isEnd());
    ZFile moved(std::move(f));
    EXPECT_TRUE(moved.isOpen() && !f.isOpen());
    {
        ZFile g; // the destructor closes and writes out
        ASSERT_EQ(g.open((d / "g").c_str(), "w").number, 0);
        g.writeString("abc");
    }
    EXPECT_EQ(readText(d / "g"), "abc");
    EXPECT_EQ(f.open(static_cast<FILE*>(nullptr)).number, -EINVAL);
    EXPECT_EQ(err(f.open(-1, "r")), sys(EBADF, "Cannot open file descriptor: -1: "));
    // The descriptor pulled away: the flush inside fclose fails, the stream is forgotten.
    int fd = ::open((d / "x").c_str(), O_CREAT | O_WRONLY, 0600);
    ASSERT_EQ(f.open(fd, "w").number, 0);
    f.writeString("pending bytes");
    ::close(fd);
    EXPECT_EQ(err(f.close()), sys(EBADF));
    EXPECT_FALSE(f.isOpen());
    EXPECT_EQ(f.close().number, 0);
    moved.close();
    EXPECT_EQ(openFds(), fds);
    if (f.open("/dev/full", "w").number)
        GTEST_SKIP() << "no /dev/full";
    f.writeString("data");
    EXPECT_EQ(err(f.flush()), sys(ENOSPC));
    f.close();
    EXPECT_EQ(f.flush().number, -EBADF);
}

TEST(ZFile, OpenTempNames) {
    TempDir d;
    fs::create_directories(d / "dir.d");
    // A dot in a folder name is not an extension, nor is a leading dot.
    struct {
        const char *pattern, *prefix, *suffix;
    } cases[] = {{"data.csv", "data-", ".csv"},
                 {"name", "name-", ""},
                 {"dir.d/plain", "dir.d/plain-", ""},
                 {".rc", ".rc-", ""}};
    ZFile f;
    for (const auto& c : cases) {
        ZString pattern = (d / c.pattern).c_str();
        ASSERT_EQ(f.openTemp(pattern, "w+").number, 0) << c.pattern;
        std::string got = str(pattern), prefix = d / c.prefix, mid = got.substr(prefix.size(), 6);
        // mkstemps replaced the six X by letters and digits.
        EXPECT_EQ(got, prefix + mid + c.suffix);
        EXPECT_TRUE(mid != "XXXXXX" && std::all_of(mid.begin(), mid.end(), isalnum)) << got;
        EXPECT_EQ(str(f.fileName()), got);
        f.writeString(c.pattern);
        f.close();
        EXPECT_EQ(readText(got), c.pattern);
    }
    ZString missing = "/nonexistent-dir/data.csv";
    EXPECT_EQ(err(f.openTemp(missing, "w")), sys(ENOENT));
    EXPECT_EQ(str(missing), "/nonexistent-dir/data.csv");
    EXPECT_FALSE(f.isOpen());
}

TEST(ZDir, WildcardAndSort) {
    TempDir d;
    for (const char* n : {"b.csv", "a.csv", "c.txt", "d.csv.bak", "e.CSV"})
        writeText(d / n, n);
    fs::create_directories(d / "sub.csv");
    ZDir dir;
    dir.setSort(1);
    EXPECT_EQ(dir.setWild("*.csv").number, 0); // no path yet: nothing read
    EXPECT_EQ(dir.number(), 0);
    ASSERT_EQ(dir.open(d.path.c_str()).number, 0);
    EXPECT_EQ(names(dir), (Names{"a.csv", "b.csv", "sub.csv"}));
    fs::remove(d / "a.csv");
    // Reads again; ".." matches "?.*" and is kept like any other name.
    ASSERT_EQ(dir.setWild("?.*").number, 0);
    EXPECT_EQ(names(dir), (Names{"..", "b.csv", "c.txt", "d.csv.bak", "e.CSV"}));
    ZDir all(d.path.c_str());
    all.setSort(1);
    ASSERT_EQ(all.read().number, 0);
    EXPECT_EQ(names(all), (Names{".", "..", "b.csv", "c.txt", "d.csv.bak", "e.CSV", "sub.csv"}));
    EXPECT_EQ(err(dir.open("/nonexistent-dir")),
              sys(ENOENT, "Cannot read directory: /nonexistent-dir: "));
    EXPECT_EQ(dir.number(), 0);
}

// Threads reading with different patterns at once each see their own pattern.
TEST(ZDir, ConcurrentFilteredReads) {
    TempDir d;
    for (int i = 0; i < 20; i++) {
        writeText(d / ("f" + std::to_string(i) + ".csv"), "");
        writeText(d / ("f" + std::to_string(i) + ".txt"), "");
    }
    std::atomic<int> bad(0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++) {
        threads.emplace_back([&, t] {
            const char* ext = t % 2 ? ".csv" : ".txt";
            for (int k = 0; k < 100; k++) {
                ZDir dir;
                dir.setWild(ZString("*") + ext);
                bad += dir.open(d.path.c_str()).number || dir.number() != 20;
                for (const ZDirEntry& e : dir.entries())
                    bad += !strstr(e.name.retStr(), ext);
            }
        });
    }
    for (auto& th : threads)
        th.join();
    EXPECT_EQ(bad.load(), 0);
}

TEST(ZCopy, FileAndDir) {
    TempDir d;
    std::string data;
    for (int i = 0; i < 30000; i++)
        data += char('a' + i % 26);
    fs::create_directories(d / "src/sub");
    writeText(d / "src/big", data);
    writeText(d / "src/a.txt", "alpha");
    int fds = openFds();
    EXPECT_EQ(zcopyFile((d / "src/big").c_str(), (d / "big").c_str()).number, 0);
    EXPECT_EQ(readText(d / "big"), data);
    // Open failures come back as from ZFile::open.
    EXPECT_EQ(err(zcopyFile((d / "missing").c_str(), (d / "x").c_str())),
              sys(ENOENT, "Cannot open file: " + (d / "missing") + ": "));
    EXPECT_EQ(err(zcopyFile((d / "big").c_str(), (d / "no/x").c_str())),
              sys(ENOENT, "Cannot open file: " + (d / "no/x") + ": "));
    ASSERT_EQ(zcopyDir((d / "src").c_str(), (d / "dst").c_str()).number, 0);
    EXPECT_EQ(readText(d / "dst/a.txt"), "alpha");
    EXPECT_EQ(readText(d / "dst/big"), data);
    EXPECT_EQ(err(zcopyDir((d / "src").c_str(), (d / "no/such/dst").c_str())),
              sys(ENOENT, "Cannot create directory: " + (d / "no/such/dst") + ": "));
    EXPECT_EQ(openFds(), fds);
    if (access("/dev/full", W_OK) != 0)
        GTEST_SKIP() << "no /dev/full";
    // Large: the short write happens inside the copy loop. Small: the bytes
    // sit in the stream's buffer until the destination closes.
    for (const char* from : {"big", "src/a.txt"})
        EXPECT_EQ(err(zcopyFile((d / from).c_str(), "/dev/full")),
                  "1: File write error: " + std::string(strerror(ENOSPC)) + "\n")
            << from;
    EXPECT_EQ(openFds(), fds);
}
