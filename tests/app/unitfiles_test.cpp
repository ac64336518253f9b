// Downloads from a unit that answers file reads badly: lengths beyond the
// piece asked for or none at all are refused, a listing that never ends is
// cut off, and a cancelled download removes its local file. The unit's file
// is closed on every path.
#include "api/tavropair.h"
#include "app/recordfiles.h"
#include "unitfiles.h"

#include <sys/stat.h>

using namespace TavroApi;
using namespace zoaptest;
using recordtest::freshDir;

namespace {

class HostileUnit : public Tavro {
public:
    HostileUnit(bool threaded, unsigned int maxPacket) : Tavro(threaded, maxPacket) {}
    ZError fileOpenServe(const ZString&, const ZString&, unsigned int& handle) override {
        handle = 7;
        return ZError();
    }
    ZError fileReadServe(const unsigned int&, const unsigned int&, const unsigned int&,
                         FileData& data) override {
        data.length = length;
        return ZError();
    }
    ZError fileCloseServe(const unsigned int& handle) override {
        closed += handle == 7;
        return ZError();
    }
    ZError fileListServe(const ZString&, const unsigned int&, FileInfo&) override {
        return ZError();
    }
    uint32_t length = 0;
    int closed = 0;
};

} // namespace

TEST(UnitFiles, HostileReadsListingAndCancel) {
    TavroPair<HostileUnit> pair(Transport::Loopback, false);
    ASSERT_FALSE(pair.joined);
    pair.start();
    UnitFiles files(pair.client);
    const std::string local = freshDir("unitfiles") + "/x.tavd";
    struct stat st;
    const struct {
        uint32_t length;
        const char* cause;
    } rows[] = {{513, "Invalid file data length: 513"},
                {0xFFFFFFFF, "Invalid file data length: 4294967295"},
                {0, "Invalid file data length: 0"}};
    for (const auto& r : rows) {
        pair.unit.length = r.length;
        ZError err = files.download("/internal/data/x.tavd", local.c_str());
        EXPECT_EQ(err, ZError(1, "Cannot read file on Tavro"));
        EXPECT_EQ(files.cause().str(), ZString(r.cause));
    }
    EXPECT_EQ(pair.unit.closed, 3);
    pair.unit.length = 512;
    int calls = 0;
    ZError err = files.download("/internal/data/x.tavd", local.c_str(), 4096,
                                [&](uint64_t done, uint64_t total) {
                                    EXPECT_EQ(total, 4096u);
                                    return done < 1024 && ++calls;
                                });
    EXPECT_EQ(err, ZError(UnitFiles::cancelled, "Download cancelled"));
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(pair.unit.closed, 4);
    EXPECT_NE(stat(local.c_str(), &st), 0);
    ZList<FileInfo> list;
    EXPECT_EQ(files.list("/internal", list), ZError("Too many files on Tavro: /internal/data"));
    pair.stop();
}
