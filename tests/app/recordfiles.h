#ifndef TESTS_APP_RECORDFILES_H
#define TESTS_APP_RECORDFILES_H

// Reading back what a recording wrote, and a fresh folder for each test.

#include "sim/simharness.h"
#include "tavdreader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <string>
#include <vector>

inline void PrintTo(const ZError& e, std::ostream* os) {
    *os << e.number << " " << e.string;
}

namespace recordtest {

using namespace TavroApi;
using simtest::eventually;
using simtest::readFile;

// A new empty folder under $TAVRO_TEST_TMP (or /tmp).
inline std::string freshDir(const std::string& what) {
    const char* t = getenv("TAVRO_TEST_TMP");
    std::string base = t && *t ? t : "/tmp";
    mkdir(base.c_str(), 0755);
    std::string pattern = base + "/" + what + "-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back(0);
    return mkdtemp(name.data()) ? std::string(name.data()) : std::string();
}

inline std::vector<std::string> readLines(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

// The data lines of a csv file: those that begin with a number.
inline std::vector<std::string> dataLines(const std::string& path) {
    std::vector<std::string> lines;
    for (const std::string& l : readLines(path))
        if (!l.empty() && (isdigit(static_cast<unsigned char>(l[0])) || l[0] == '-'))
            lines.push_back(l);
    return lines;
}

inline int fields(const std::string& line) {
    return line.empty() ? 0 : 1 + int(std::count(line.begin(), line.end(), ','));
}

// The blocks of a ".tavd" file; end is the reader's last answer (14 "File
// read end" for a complete file).
struct TavdContents {
    ZError end;
    InfoBlock info;
    std::vector<ChannelConfig> channels;
    std::vector<DataBlockFloat> data; // Float32 records
    std::vector<DataBlockProc> proc;
};

inline TavdContents readTavd(const std::string& path) {
    TavdContents c;
    TavdReader reader;
    if ((c.end = reader.open(path.c_str())))
        return c;
    while (!(c.end = reader.readPacket())) {
        const unsigned n = reader.payloadLength();
        const uint8_t* p = reader.payload();
        const bool data =
            reader.blockType() == TavdBlockHeader::typeData && n >= sizeof(DataBlockHeader);
        if (reader.blockType() == TavdBlockHeader::typeInfo && n >= sizeof(InfoBlock)) {
            memcpy(static_cast<void*>(&c.info), p, sizeof(InfoBlock));
            reader.info = c.info;
        } else if (reader.blockType() == TavdBlockHeader::typeChannel &&
                   n >= sizeof(ChannelConfig)) {
            c.channels.emplace_back();
            memcpy(static_cast<void*>(&c.channels.back()), p, sizeof(ChannelConfig));
        } else if (data && DataType(p[20]) == DataType::Proc && n >= sizeof(DataBlockProc)) {
            c.proc.emplace_back();
            memcpy(static_cast<void*>(&c.proc.back()), p, sizeof(DataBlockProc));
        } else if (data && DataType(p[20]) == DataType::Float32) {
            c.data.emplace_back();
            memcpy(static_cast<void*>(&c.data.back()), p, std::min<size_t>(n, sizeof(c.data[0])));
        }
    }
    return c;
}

// The samples per block of a complete tavd file whose blocks are numbered
// from 0 without a gap (the records of one block share its sequence number).
inline std::vector<unsigned> tavdBlocks(const std::string& path) {
    const TavdContents t = readTavd(path);
    EXPECT_EQ(t.end.number, 14) << path << ": " << t.end.string.str();
    std::vector<unsigned> samples;
    for (const DataBlockFloat& b : t.data) {
        if (b.sequence == samples.size()) {
            samples.push_back(b.numSamples);
        } else if (!samples.empty() && b.sequence + 1 == samples.size()) {
            samples.back() += b.numSamples;
        } else {
            ADD_FAILURE() << path << ": sequence numbers from 0 without a gap";
            samples.push_back(b.numSamples);
        }
    }
    return samples;
}

} // namespace recordtest

#endif
