// libFuzzer target: arbitrary bytes as a ".tavd" file.
//   cmake -S . -B build-fuzz -DTAVRO_FUZZ=ON -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
//   cmake --build build-fuzz --target tavd_fuzz
//   build-fuzz/fuzz/tavd_fuzz -max_total_time=600 new-corpus fuzz/corpus/tavd
//
// The bytes go into an in-memory file and are converted with tavdConvert to
// "csv", "csv_with_header", "tdms" and "tavd" (raw unit blocks through
// TavroUnit::processdataBlock), then read block by block with TavdReader.
// The two csv conversions must agree: the same result, and the plain csv
// output is the tail of the one with a head. Every block the reader accepts
// must keep to its limits.
#include "tavdreader.h"
#include "tavrounit.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using namespace TavroApi;

namespace {

// One in-memory file, reachable by a path with the suffix that picks the
// output format: DIR/out.csv -> /proc/self/fd/N.
class MemoryFile {
public:
    MemoryFile(const std::string& dir, const char* name) {
        fd = memfd_create(name, 0);
        if (fd < 0)
            abort();
        target = "/proc/self/fd/" + std::to_string(fd);
        path = dir + "/" + name;
        unlink(path.c_str());
        if (symlink(target.c_str(), path.c_str()) != 0)
            abort();
    }
    ~MemoryFile() {
        unlink(path.c_str());
        close(fd);
    }
    void set(const uint8_t* data, size_t size) {
        if (ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != ssize_t(size))
            abort();
    }
    std::vector<uint8_t> get() const {
        struct stat st;
        if (fstat(fd, &st) != 0)
            abort();
        std::vector<uint8_t> bytes(size_t(st.st_size));
        if (pread(fd, bytes.data(), bytes.size(), 0) != ssize_t(bytes.size()))
            abort();
        return bytes;
    }

    int fd;
    std::string target;
    std::string path;
};

// A private folder, removed (empty) when it goes.
struct TempDir {
    TempDir() {
        const char* tmp = getenv("TMPDIR");
        path = std::string(tmp && *tmp ? tmp : "/tmp") + "/tavd_fuzz_XXXXXX";
        if (!mkdtemp(&path[0]))
            abort();
    }
    ~TempDir() { rmdir(path.c_str()); }

    std::string path;
};

// The folder goes last, after the files' links in it.
struct Files {
    Files()
        : input(dir.path, "in.tavd"), csv(dir.path, "out.csv"), tdms(dir.path, "out.tdms"),
          tavd(dir.path, "out.tavd") {}

    TempDir dir;
    MemoryFile input, csv, tdms, tavd;
};

// What every block TavdReader accepts keeps to.
void readBlocks(const std::string& name) {
    TavdReader in;
    if (in.open(name.c_str()))
        __builtin_trap();
    for (unsigned int n = 0; n < 100000 && !in.readPacket(); n++) {
        const TavdBlockHeader& h = in.header();
        if (h.magic != TavdBlockHeader::magicValue || h.length < sizeof(h) ||
            h.length > TavdReader::packetMax || in.blockType() < 30 || in.blockType() > 33 ||
            in.payloadLength() > TavdReader::packetMax - sizeof(h))
            __builtin_trap();
        if (in.blockType() == TavdBlockHeader::typeInfo &&
            in.payloadLength() >= sizeof(InfoBlock)) {
            memcpy(static_cast<void*>(&in.info), in.payload(), sizeof(InfoBlock));
            if (in.info.fileType == TavdFileType::Block512 && in.alignSector())
                break;
        }
    }
    in.close();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Files files;
    files.input.set(data, size);
    const ZString input = files.input.path.c_str();
    const TavdRawConverter raw = TavroUnit::processdataBlock;

    const ZError plain = tavdConvert(input, files.csv.path.c_str(), false, raw);
    const std::vector<uint8_t> plainText = files.csv.get();
    const ZError headed = tavdConvert(input, files.csv.path.c_str(), true, raw);
    const std::vector<uint8_t> headedText = files.csv.get();
    if (!(plain == headed) || plainText.size() > headedText.size() ||
        !std::equal(plainText.begin(), plainText.end(), headedText.end() - long(plainText.size())))
        __builtin_trap();

    tavdConvert(input, files.tdms.path.c_str(), false, raw);
    tavdConvert(input, files.tavd.path.c_str(), false, raw);
    readBlocks(files.input.path);
    return 0;
}
