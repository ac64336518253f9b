#ifndef TESTS_APP_RECORDFILES_H
#define TESTS_APP_RECORDFILES_H

// Reading back what a recording wrote: text lines, whole files, and the
// blocks of a ".tavd" file; and a fresh folder for each test.

#include "tavdreader.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

inline void PrintTo(const ZError& e, std::ostream* os) {
    *os << e.number << " " << e.string;
}

namespace recordtest {

using namespace TavroApi;

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

inline std::string readAll(const std::string& path) {
    std::stringstream s;
    s << std::ifstream(path, std::ios::binary).rdbuf();
    return s.str();
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
    int n = line.empty() ? 0 : 1;
    for (char c : line)
        n += c == ',';
    return n;
}

// Polls done() every few milliseconds until it holds (true) or ms pass.
template <class F>
bool eventually(F done, int ms = 5000) {
    for (auto t0 = std::chrono::steady_clock::now(); !done();) {
        if (std::chrono::steady_clock::now() - t0 > std::chrono::milliseconds(ms))
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
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
        if (reader.blockType() == TavdBlockHeader::typeInfo && n >= sizeof(InfoBlock)) {
            memcpy(static_cast<void*>(&c.info), p, sizeof(InfoBlock));
            reader.info = c.info;
        } else if (reader.blockType() == TavdBlockHeader::typeChannel &&
                   n >= sizeof(ChannelConfig)) {
            ChannelConfig ch;
            memcpy(static_cast<void*>(&ch), p, sizeof(ch));
            c.channels.push_back(ch);
        } else if (reader.blockType() == TavdBlockHeader::typeData &&
                   n >= sizeof(DataBlockHeader) && DataType(p[20]) == DataType::Proc &&
                   n >= sizeof(DataBlockProc)) {
            DataBlockProc b;
            memcpy(static_cast<void*>(&b), p, sizeof(b));
            c.proc.push_back(b);
        } else if (reader.blockType() == TavdBlockHeader::typeData &&
                   n >= sizeof(DataBlockHeader) && DataType(p[20]) == DataType::Float32) {
            DataBlockFloat b;
            memcpy(static_cast<void*>(&b), p, std::min<size_t>(n, sizeof(b)));
            c.data.push_back(b);
        }
    }
    return c;
}

// The data records of a tavd file grouped into the blocks they came from
// (records of one block share its sequence number): the samples per block.
inline std::vector<unsigned> samplesPerSequence(const TavdContents& c, bool& contiguous) {
    std::vector<unsigned> samples;
    contiguous = true;
    for (const DataBlockFloat& b : c.data) {
        if (b.sequence == samples.size()) {
            samples.push_back(b.numSamples);
        } else if (!samples.empty() && b.sequence + 1 == samples.size()) {
            samples.back() += b.numSamples;
        } else {
            contiguous = false;
            samples.push_back(b.numSamples);
        }
    }
    return samples;
}

// The samples per block of a complete tavd file whose blocks are numbered from 0 without a gap.
inline std::vector<unsigned> tavdBlocks(const std::string& path) {
    const TavdContents t = readTavd(path);
    EXPECT_EQ(t.end.number, 14) << path << ": " << t.end.string.str();
    bool contiguous = false;
    std::vector<unsigned> blocks = samplesPerSequence(t, contiguous);
    EXPECT_TRUE(contiguous) << path << ": sequence numbers from 0 without a gap";
    return blocks;
}

} // namespace recordtest

#endif
