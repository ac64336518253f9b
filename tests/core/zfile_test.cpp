#include "zdir.h"
#include "zfile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

// A fresh folder under $TAVRO_TEST_TMP (or /tmp), removed again at the end.
class TempDir {
public:
    TempDir() {
        const char* base = getenv("TAVRO_TEST_TMP");
        std::string b = base && *base ? base : "/tmp";
        fs::create_directories(b);
        std::string t = b + "/zfileXXXXXX";
        std::vector<char> buf(t.begin(), t.end());
        buf.push_back(0);
        if (!mkdtemp(buf.data()))
            ADD_FAILURE() << "mkdtemp: " << strerror(errno);
        path = buf.data();
    }
    ~TempDir() {
        std::error_code ec;
        fs::remove_all(path, ec);
    }
    std::string operator/(const std::string& name) const { return path + "/" + name; }
    std::string path;
};

void writeText(const std::string& path, const std::string& text) {
    std::ofstream f(path, std::ios::binary);
    f << text;
}

std::string readText(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

// Open descriptors of this process.
int openFds() {
    int n = 0;
    for (auto& e : fs::directory_iterator("/proc/self/fd")) {
        (void)e;
        n++;
    }
    return n;
}

std::vector<std::string> names(const ZDir& dir) {
    std::vector<std::string> v;
    for (ZIter it = dir.first(); !dir.isEnd(it); it = dir.next(it))
        v.push_back(dir.entryName(it).retStr());
    return v;
}

// got is prefix + six letters or digits (mkstemps' replacement of XXXXXX) + suffix.
bool tempName(const std::string& got, const std::string& prefix, const std::string& suffix) {
    if (got.size() != prefix.size() + 6 + suffix.size())
        return false;
    if (got.compare(0, prefix.size(), prefix) != 0 ||
        got.compare(prefix.size() + 6, suffix.size(), suffix) != 0)
        return false;
    for (size_t i = prefix.size(); i < prefix.size() + 6; i++)
        if (!isalnum((unsigned char)got[i]))
            return false;
    return true;
}

std::string sysText(int err) {
    return strerror(err);
}

} // namespace

// ---------------------------------------------------------------- ZFile open/close

TEST(ZFileOpen, FailureGivesNegatedErrnoAndText) {
    ZFile f;
    ZError e = f.open("/nonexistent-dir/x.txt", "r");
    EXPECT_EQ(e.number, -ENOENT);
    EXPECT_EQ(std::string(e.string.retStr()),
              "Cannot open file: /nonexistent-dir/x.txt: " + sysText(ENOENT));
    EXPECT_FALSE(f.isOpen());
    EXPECT_TRUE(f.isEnd());
    EXPECT_EQ(f.getFd(), -1);
}

TEST(ZFileOpen, OpenWriteReadBack) {
    TempDir d;
    ZFile f;
    ASSERT_EQ(f.open((d / "a.txt").c_str(), "w").number, 0);
    EXPECT_TRUE(f.isOpen());
    EXPECT_STREQ(f.fileName().retStr(), (d / "a.txt").c_str());
    EXPECT_GE(f.getFd(), 0);
    EXPECT_EQ(f.writeString("hello "), 6);
    EXPECT_EQ(f.printf("%d-%s\n", 42, "x"), 5);
    EXPECT_EQ(f.write("zz", 2), 2u);
    EXPECT_EQ(f.position(), 13);
    EXPECT_EQ(f.length(), 13); // flushed before fstat
    EXPECT_EQ(f.close().number, 0);
    EXPECT_EQ(readText(d / "a.txt"), "hello 42-x\nzz");

    ASSERT_EQ(f.open((d / "a.txt").c_str(), "r").number, 0);
    char buf[32];
    ASSERT_NE(f.fgets(buf, sizeof(buf)), nullptr);
    EXPECT_STREQ(buf, "hello 42-x\n");
    EXPECT_EQ(f.seek(6), 0);
    EXPECT_EQ(f.read(buf, 4), 4u);
    EXPECT_EQ(std::string(buf, 4), "42-x");
    EXPECT_FALSE(f.isEnd());
    EXPECT_EQ(f.read(buf, sizeof(buf)), 3u);
    EXPECT_TRUE(f.isEnd());
}

TEST(ZFileClose, ClosingAClosedFileSucceeds) {
    ZFile f;
    EXPECT_EQ(f.close().number, 0);
    TempDir d;
    ASSERT_EQ(f.open((d / "c").c_str(), "w").number, 0);
    EXPECT_EQ(f.close().number, 0);
    EXPECT_EQ(f.close().number, 0);
    EXPECT_FALSE(f.isOpen());
}

TEST(ZFileClose, StreamIsForgottenEvenWhenFcloseFails) {
    TempDir d;
    int fd = ::open((d / "x").c_str(), O_CREAT | O_WRONLY, 0600);
    ASSERT_GE(fd, 0);
    ZFile f;
    ASSERT_EQ(f.open(fd, "w").number, 0);
    ASSERT_EQ(f.getFd(), fd);
    f.writeString("pending bytes");
    ::close(fd); // pull the descriptor away: the flush inside fclose fails with EBADF
    ZError e = f.close();
    EXPECT_EQ(e.number, -EBADF);
    EXPECT_EQ(std::string(e.string.retStr()), sysText(EBADF));
    EXPECT_FALSE(f.isOpen());
    EXPECT_EQ(f.close().number, 0);
}

TEST(ZFileClose, DestructorCloses) {
    TempDir d;
    int before = openFds();
    {
        ZFile f;
        ASSERT_EQ(f.open((d / "x").c_str(), "w").number, 0);
        EXPECT_EQ(openFds(), before + 1);
        f.writeString("abc");
    }
    EXPECT_EQ(openFds(), before);
    EXPECT_EQ(readText(d / "x"), "abc");
}

TEST(ZFileOpen, AdoptStreamAndDescriptor) {
    TempDir d;
    FILE* s = fopen((d / "s").c_str(), "w");
    ASSERT_NE(s, nullptr);
    ZFile f;
    ASSERT_EQ(f.open(s).number, 0);
    EXPECT_EQ(f.stream(), s);
    f.writeString("s");
    EXPECT_EQ(f.close().number, 0);
    EXPECT_EQ(readText(d / "s"), "s");

    EXPECT_EQ(f.open(static_cast<FILE*>(nullptr)).number, -EINVAL);
    EXPECT_FALSE(f.isOpen());
    ZError e = f.open(-1, "r");
    EXPECT_EQ(e.number, -EBADF);
    EXPECT_EQ(std::string(e.string.retStr()), "Cannot open file descriptor: -1: " + sysText(EBADF));
}

TEST(ZFileOpen, MoveTransfersTheStream) {
    TempDir d;
    ZFile a;
    ASSERT_EQ(a.open((d / "m").c_str(), "w").number, 0);
    ZFile b(std::move(a));
    EXPECT_FALSE(a.isOpen());
    EXPECT_TRUE(b.isOpen());
    ZFile c;
    c = std::move(b);
    EXPECT_TRUE(c.isOpen());
    EXPECT_FALSE(b.isOpen());
}

// ---------------------------------------------------------------- ZFile lines

TEST(ZFileReadString, KeepsLineEndAndReturnsZeroAtEnd) {
    TempDir d;
    writeText(d / "l", "ab\r\nc\n\nlast");
    ZFile f;
    ASSERT_EQ(f.open((d / "l").c_str(), "r").number, 0);
    ZString s;
    EXPECT_EQ(f.readString(s), 4);
    EXPECT_STREQ(s.retStr(), "ab\r\n");
    EXPECT_EQ(f.readString(s), 2);
    EXPECT_STREQ(s.retStr(), "c\n");
    EXPECT_EQ(f.readString(s), 1);
    EXPECT_STREQ(s.retStr(), "\n");
    EXPECT_EQ(f.readString(s), 4);
    EXPECT_STREQ(s.retStr(), "last");
    EXPECT_EQ(f.readString(s), 0);
    EXPECT_EQ(s.len(), 0);
    EXPECT_EQ(f.readString(s), 0);
}

TEST(ZFileReadString, ReadsAtMost10240Bytes) {
    TempDir d;
    std::string line(25000, 'q');
    writeText(d / "long", line + "\nnext\n");
    ZFile f;
    ASSERT_EQ(f.open((d / "long").c_str(), "r").number, 0);
    ZString s;
    EXPECT_EQ(f.readString(s), 10240);
    EXPECT_EQ(f.readString(s), 10240);
    EXPECT_EQ(f.readString(s), 25000 - 20480 + 1);
    EXPECT_EQ(s[s.len() - 1], '\n');
    EXPECT_EQ(f.readString(s), 5);
    EXPECT_STREQ(s.retStr(), "next\n");
    EXPECT_EQ(f.readString(s), 0);

    ZFile closed;
    EXPECT_EQ(closed.readString(s), 0);
}

// ---------------------------------------------------------------- ZFile flush/truncate

TEST(ZFileFlush, FullDeviceGivesNegatedErrno) {
    ZFile f;
    ZError e = f.open("/dev/full", "w");
    if (e.number)
        GTEST_SKIP() << "no /dev/full: " << e.string.retStr();
    f.writeString("data");
    e = f.flush();
    EXPECT_EQ(e.number, -ENOSPC);
    EXPECT_EQ(std::string(e.string.retStr()), sysText(ENOSPC));
    f.close();
    EXPECT_FALSE(f.isOpen());
    EXPECT_EQ(f.flush().number, -EBADF);
}

TEST(ZFileTruncate, CutsAtCurrentPosition) {
    TempDir d;
    ZFile f;
    ASSERT_EQ(f.open((d / "t").c_str(), "w+").number, 0);
    f.writeString("hello world");
    EXPECT_EQ(f.seek(5), 0);
    EXPECT_EQ(f.truncate().number, 0);
    EXPECT_EQ(f.length(), 5);
    f.close();
    EXPECT_EQ(readText(d / "t"), "hello");

    ASSERT_EQ(f.open((d / "t").c_str(), "r").number, 0);
    ZError e = f.truncate(); // read-only descriptor
    EXPECT_LT(e.number, 0);
    EXPECT_GT(e.string.len(), 0);
    EXPECT_EQ(f.flush().number, 0);
}

TEST(ZFileSetVBuf, Unbuffered) {
    TempDir d;
    ZFile f;
    ASSERT_EQ(f.open((d / "u").c_str(), "w").number, 0);
    EXPECT_EQ(f.setVBuf(nullptr, _IONBF, 0), 0);
    f.writeString("now");
    EXPECT_EQ(readText(d / "u"), "now"); // on disk without a flush
}

// ---------------------------------------------------------------- ZFile openTemp

TEST(ZFileOpenTemp, ExtensionKeptAsSuffix) {
    TempDir d;
    ZString pattern = (d / "data.csv").c_str();
    ZFile f;
    ASSERT_EQ(f.openTemp(pattern, "w").number, 0);
    std::string name = pattern.retStr();
    EXPECT_TRUE(tempName(name, d / "data-", ".csv")) << name;
    EXPECT_EQ(name.find("XXXXXX"), std::string::npos);
    EXPECT_STREQ(f.fileName().retStr(), name.c_str());
    f.writeString("x");
    f.close();
    EXPECT_EQ(readText(name), "x");

    // A second file from the same pattern gets another name.
    ZString again = (d / "data.csv").c_str();
    ZFile g;
    ASSERT_EQ(g.openTemp(again, "w").number, 0);
    EXPECT_NE(std::string(again.retStr()), name);
}

TEST(ZFileOpenTemp, NoExtensionAppends) {
    TempDir d;
    ZString pattern = (d / "name").c_str();
    ZFile f;
    ASSERT_EQ(f.openTemp(pattern, "w+").number, 0);
    EXPECT_TRUE(tempName(pattern.retStr(), d / "name-", "")) << pattern.retStr();
    EXPECT_TRUE(fs::exists(pattern.retStr()));

    // A dot in a folder name is not an extension, nor is a leading dot.
    fs::create_directories(d / "dir.d");
    ZString p2 = (d / "dir.d/plain").c_str();
    ASSERT_EQ(f.openTemp(p2, "w").number, 0);
    EXPECT_TRUE(tempName(p2.retStr(), d / "dir.d/plain-", "")) << p2.retStr();
    ZString p3 = (d / ".rc").c_str();
    ASSERT_EQ(f.openTemp(p3, "w").number, 0);
    EXPECT_TRUE(tempName(p3.retStr(), d / ".rc-", "")) << p3.retStr();
}

TEST(ZFileOpenTemp, FailureGivesNegatedErrnoAndKeepsPattern) {
    ZString pattern = "/nonexistent-dir/data.csv";
    ZFile f;
    ZError e = f.openTemp(pattern, "w");
    EXPECT_EQ(e.number, -ENOENT);
    EXPECT_EQ(std::string(e.string.retStr()), sysText(ENOENT));
    EXPECT_STREQ(pattern.retStr(), "/nonexistent-dir/data.csv");
    EXPECT_FALSE(f.isOpen());
}

// ---------------------------------------------------------------- ZDir

class ZDirTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (const char* n : {"b.csv", "a.csv", "c.txt", "d.csv.bak", "e.CSV"})
            writeText(d / n, n);
        fs::create_directories(d / "sub.csv");
    }
    TempDir d;
};

TEST_F(ZDirTest, WildcardAndSort) {
    ZDir dir;
    dir.setSort(1);
    EXPECT_EQ(dir.setWild("*.csv").number, 0); // no path yet: nothing read
    EXPECT_EQ(dir.number(), 0);
    ASSERT_EQ(dir.open(d.path.c_str()).number, 0);
    EXPECT_EQ(names(dir), (std::vector<std::string>{"a.csv", "b.csv", "sub.csv"}));

    // Reads again; ".." matches "?.*" and is kept like any other name.
    ASSERT_EQ(dir.setWild("?.*").number, 0);
    EXPECT_EQ(names(dir),
              (std::vector<std::string>{"..", "a.csv", "b.csv", "c.txt", "d.csv.bak", "e.CSV"}));
}

TEST_F(ZDirTest, NoFilterKeepsDotEntriesAndUnsortedHasAll) {
    ZDir dir(d.path.c_str());
    EXPECT_EQ(dir.error().number, 0);
    std::vector<std::string> v = names(dir);
    std::sort(v.begin(), v.end());
    EXPECT_EQ(v, (std::vector<std::string>{".", "..", "a.csv", "b.csv", "c.txt", "d.csv.bak",
                                           "e.CSV", "sub.csv"}));
    dir.setSort(1);
    ASSERT_EQ(dir.read().number, 0);
    EXPECT_EQ(names(dir), (std::vector<std::string>{".", "..", "a.csv", "b.csv", "c.txt",
                                                    "d.csv.bak", "e.CSV", "sub.csv"}));
    dir.clear();
    EXPECT_EQ(dir.number(), 0);
}

TEST_F(ZDirTest, EntryStat) {
    ZDir dir;
    dir.setSort(1);
    dir.setWild("*.csv");
    ASSERT_EQ(dir.open(d.path.c_str()).number, 0);
    ZIter it = dir.first();
    EXPECT_STREQ(dir.entryName(it).retStr(), "a.csv"); // no path in the name
    struct stat st = dir.entryStat(it);
    EXPECT_EQ(dir.error().number, 0);
    EXPECT_TRUE(S_ISREG(st.st_mode));
    EXPECT_EQ(st.st_size, 5);
    it = dir.next(dir.next(it));
    struct stat64 st64 = dir.entryStat64(it);
    EXPECT_TRUE(S_ISDIR(st64.st_mode));
    unsigned char type = dir.entries().nodeGet(it).type;
    EXPECT_TRUE(type == DT_DIR || type == DT_UNKNOWN) << int(type);

    fs::remove(d / "a.csv");
    st = dir.entryStat(dir.first());
    EXPECT_EQ(dir.error().number, -ENOENT);
    EXPECT_EQ(st.st_size, 0);
}

TEST(ZDir, MissingDirectory) {
    ZDir dir;
    ZError e = dir.open("/nonexistent-dir");
    EXPECT_EQ(e.number, -ENOENT);
    EXPECT_EQ(std::string(e.string.retStr()),
              "Cannot read directory: /nonexistent-dir: " + sysText(ENOENT));
    EXPECT_EQ(dir.error().number, -ENOENT);
    EXPECT_EQ(dir.number(), 0);
}

// Filtered reads from several threads at once, each with its own pattern,
// always see their own pattern (the process-wide pattern is mutex-guarded).
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
            const char* wild = t % 2 ? "*.csv" : "*.txt";
            const char* ext = t % 2 ? ".csv" : ".txt";
            for (int k = 0; k < 100; k++) {
                ZDir dir;
                dir.setWild(wild);
                if (dir.open(d.path.c_str()).number || dir.number() != 20)
                    bad++;
                for (const ZDirEntry& e : dir.entries())
                    if (!strstr(e.name.retStr(), ext))
                        bad++;
            }
        });
    }
    for (auto& th : threads)
        th.join();
    EXPECT_EQ(bad.load(), 0);
}

// ---------------------------------------------------------------- zcopyFile

TEST(ZCopyFile, CopiesManyBlocks) {
    TempDir d;
    std::string data;
    for (int i = 0; i < 30000; i++)
        data += char('a' + i % 26);
    writeText(d / "src", data);
    int before = openFds();
    EXPECT_EQ(zcopyFile((d / "src").c_str(), (d / "dst").c_str()).number, 0);
    EXPECT_EQ(readText(d / "dst"), data);
    writeText(d / "empty", "");
    EXPECT_EQ(zcopyFile((d / "empty").c_str(), (d / "dst2").c_str()).number, 0);
    EXPECT_TRUE(fs::exists(d / "dst2"));
    EXPECT_EQ(fs::file_size(d / "dst2"), 0u);
    EXPECT_EQ(openFds(), before);
}

TEST(ZCopyFile, OpenFailuresComeBackAsFromOpen) {
    TempDir d;
    int before = openFds();
    ZError e = zcopyFile((d / "missing").c_str(), (d / "dst").c_str());
    EXPECT_EQ(e.number, -ENOENT);
    EXPECT_EQ(std::string(e.string.retStr()),
              "Cannot open file: " + (d / "missing") + ": " + sysText(ENOENT));
    writeText(d / "src", "x");
    e = zcopyFile((d / "src").c_str(), (d / "nodir/dst").c_str());
    EXPECT_EQ(e.number, -ENOENT);
    EXPECT_EQ(std::string(e.string.retStr()),
              "Cannot open file: " + (d / "nodir/dst") + ": " + sysText(ENOENT));
    EXPECT_EQ(openFds(), before);
}

TEST(ZCopyFile, FullDiskGivesFileWriteError) {
    if (access("/dev/full", W_OK) != 0)
        GTEST_SKIP() << "no /dev/full";
    TempDir d;
    const std::string expected = "File write error: " + sysText(ENOSPC) + "\n";
    int before = openFds();
    // Large: the short write happens inside the copy loop.
    writeText(d / "big", std::string(50000, 'x'));
    ZError e = zcopyFile((d / "big").c_str(), "/dev/full");
    EXPECT_EQ(e.number, 1);
    EXPECT_EQ(std::string(e.string.retStr()), expected);
    // Small: the bytes sit in the stream's buffer until the destination closes.
    writeText(d / "small", "abc");
    e = zcopyFile((d / "small").c_str(), "/dev/full");
    EXPECT_EQ(e.number, 1);
    EXPECT_EQ(std::string(e.string.retStr()), expected);
    EXPECT_EQ(openFds(), before);
}

// ---------------------------------------------------------------- zcopyDir

TEST(ZCopyDir, CreatesDestinationAndCopiesEntries) {
    TempDir d;
    fs::create_directories(d / "src");
    writeText(d / "src/a.txt", "alpha");
    writeText(d / "src/b.csv", std::string(20000, 'b'));
    fs::create_directories(d / "src/sub");
    writeText(d / "src/sub/deep.txt", "deep");

    int before = openFds();
    ASSERT_EQ(zcopyDir((d / "src").c_str(), (d / "dst").c_str()).number, 0);
    EXPECT_TRUE(fs::is_directory(d / "dst"));
    EXPECT_EQ(readText(d / "dst/a.txt"), "alpha");
    EXPECT_EQ(readText(d / "dst/b.csv"), std::string(20000, 'b'));
    // No recursion: the subdirectory becomes an empty file (its read fails with EISDIR).
    EXPECT_TRUE(fs::is_regular_file(d / "dst/sub"));
    EXPECT_EQ(fs::file_size(d / "dst/sub"), 0u);
    EXPECT_FALSE(fs::exists(d / "dst/sub/deep.txt"));
    EXPECT_EQ(openFds(), before);

    // Into an existing destination, overwriting.
    writeText(d / "src/a.txt", "again");
    ASSERT_EQ(zcopyDir((d / "src").c_str(), (d / "dst").c_str()).number, 0);
    EXPECT_EQ(readText(d / "dst/a.txt"), "again");
}

TEST(ZCopyDir, Failures) {
    TempDir d;
    ZError e = zcopyDir((d / "missing").c_str(), (d / "dst").c_str());
    EXPECT_EQ(e.number, -ENOENT);
    EXPECT_FALSE(fs::exists(d / "dst"));

    fs::create_directories(d / "src");
    writeText(d / "src/a", "a");
    e = zcopyDir((d / "src").c_str(), (d / "no/such/dst").c_str());
    EXPECT_EQ(e.number, -ENOENT);
    EXPECT_EQ(std::string(e.string.retStr()),
              "Cannot create directory: " + (d / "no/such/dst") + ": " + sysText(ENOENT));
}
