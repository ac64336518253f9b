#include "tavdreader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

using namespace TavroApi;

namespace {

std::string tempName(const char* name) {
    return "/tmp/tavdreader_test_" + std::to_string(getpid()) + "_" + name;
}

std::string readAll(const std::string& name) {
    std::ifstream in(name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeAll(const std::string& name, const std::string& bytes) {
    std::ofstream(name, std::ios::binary) << bytes;
}

template <class T>
std::string image(const T& record) {
    return std::string(reinterpret_cast<const char*>(&record), sizeof(T));
}

// A block header with the given length field and type, then the payload.
std::string block(unsigned length, uint64_t type, const std::string& payload = std::string(),
                  uint16_t magic = 0x555A) {
    TavdBlockHeader h{magic, uint16_t(length), 0, type};
    return image(h) + payload;
}

std::string sector(const std::string& bytes) { // pads with junk to the next 512
    return bytes + std::string((512 - bytes.size() % 512) % 512, '\x5a');
}

InfoBlock makeInfo(TavdFileType fileType, int numChannels) {
    InfoBlock info;
    info.fileType = fileType;
    info.numChannels = uint16_t(numChannels);
    strcpy(info.name, "Unit");
    return info;
}

ZArray<ChannelConfig> makeChannels(int n) {
    ZArray<ChannelConfig> channels;
    for (int c = 0; c < n; c++) {
        ChannelConfig ch;
        snprintf(ch.name, sizeof(ch.name), "c%d", c);
        channels.append(ch);
    }
    return channels;
}

DataBlock makeBlock(int numChannels, int numSamples) {
    DataBlock b;
    b.numChannels = uint16_t(numChannels);
    b.numSamples = uint16_t(numSamples);
    for (int i = 0; i < DataBlock::dataMax; i++)
        b.data[i] = float(i) + 0.25f;
    return b;
}

} // namespace

// What DataFile writes in a Stream file converts to exactly what DataFile
// writes directly in the other formats.
TEST(TavdReader, StreamRoundTrip) {
    const std::string raw = tempName("in.tavd");
    const InfoBlock info = makeInfo(TavdFileType::Stream, 10);
    const ZArray<ChannelConfig> channels = makeChannels(10);
    DataBlock data = makeBlock(10, 3);
    DataBlockProc proc;
    proc.numChannels = 10;
    proc.numSamples = 1;
    proc.type = DataType::Proc;
    proc.analogueData[2].rms = 4.5f;
    proc.digitalData = 3;
    for (const char* format : {"tavd", "csv_with_header", "tdms"}) {
        const std::string name = format == std::string("tavd") ? raw : tempName(format);
        DataFile f;
        ASSERT_FALSE(f.open(name.c_str(), "w", format));
        ASSERT_FALSE(f.writeInfo(info, channels));
        ASSERT_FALSE(f.writeData(&data));
        if (format != std::string("tdms")) {
            ASSERT_FALSE(f.writeData(&proc));
        }
        ASSERT_FALSE(f.writeData(&data));
        ASSERT_FALSE(f.writeEnd());
    }
    for (const char* format : {"csv", "tdms"}) {
        const std::string out = tempName("out.") + format;
        ZError err = tavdConvert(raw.c_str(), out.c_str(), true);
        if (format == std::string("tdms")) { // processed blocks have no TDMS form
            EXPECT_EQ(err, ZError(12, "DataFile::writeData: TDMS format not supported"));
            continue;
        }
        ASSERT_FALSE(err) << err.str().retStr();
        EXPECT_EQ(readAll(out), readAll(tempName("csv_with_header")));
        unlink(out.c_str());
    }
    unlink(raw.c_str());
    unlink(tempName("csv_with_header").c_str());
    unlink(tempName("tdms").c_str());
}

// A unit's Block512 file: every block after the info block fills whole sectors.
TEST(TavdReader, Block512Sectors) {
    const std::string raw = tempName("unit.tavd"), out = tempName("unit.csv");
    DataBlock data = makeBlock(2, 2);
    std::string file = sector(block(232, 30, image(makeInfo(TavdFileType::Block512, 2))));
    for (const ChannelConfig& ch : makeChannels(2))
        file += sector(block(152, 32, image(ch)));
    file += sector(block(16 + 40, 31, image(data).substr(0, 40)));
    file += sector(block(16 + 496, 31, image(data))); // 528 bytes: two sectors
    file += sector(block(20, 33, "abcd"));            // skipped
    writeAll(raw, file);
    ASSERT_FALSE(tavdConvert(raw.c_str(), out.c_str(), false));
    const std::string lines = "0.250000,1.250000\n2.250000,3.250000\n";
    EXPECT_EQ(readAll(out), lines + lines);

    // The reader on its own: positions and payload lengths.
    TavdReader in;
    ASSERT_FALSE(in.open(raw.c_str()));
    ASSERT_FALSE(in.readPacket());
    EXPECT_EQ(in.blockType(), 30u);
    EXPECT_EQ(in.payloadLength(), 216u);
    EXPECT_EQ(in.info.fileType, TavdFileType::Stream);
    in.info.fileType = TavdFileType::Block512;
    ASSERT_FALSE(in.alignSector());
    for (unsigned type : {32u, 32u, 31u, 31u, 33u}) {
        ASSERT_FALSE(in.readPacket());
        EXPECT_EQ(in.blockType(), type);
    }
    EXPECT_EQ(in.readPacket(), ZError(14, "File read end"));
    unlink(raw.c_str());
    unlink(out.c_str());
}

TEST(TavdReader, HostileFilesRefused) {
    const std::string info = block(232, 30, image(makeInfo(TavdFileType::Stream, 0)));
    DataBlock big = makeBlock(10, 10);
    struct Case {
        std::string bytes;
        ZError error;
    } cases[] = {
        {block(232, 30, "", 0x5A55), ZError(1, "Magic number incorrect")},
        {block(4097, 30), ZError(1, "Excesive packet length")},
        {block(20, 34, "abcd"), ZError(1, "Unkown data packet: 34")},
        {block(20, 29, "abcd"), ZError(1, "Unkown data packet: 29")},
        {block(10, 30), ZError(15, "File read error")}, // shorter than its header
        {block(20, 30).substr(0, 9), ZError(15, "File read error")},
        {block(100, 33), ZError()}, // a header without payload ends the file
        {block(100, 33, "abc"), ZError(15, "File read error")},
        {block(4096, 33, std::string(4000, 'x')), ZError(15, "File read error")},
        {block(16 + 100, 30, std::string(100, 'i')), ZError(15, "File read error")}, // short info
        {info + block(16 + 100, 32, std::string(100, 'c')), ZError(15, "File read error")},
        {info + block(16 + 10, 31, std::string(10, 'd')), ZError(15, "File read error")},
        // 100 samples claimed, room for 118 in the record but only 28 bytes in the file
        {info + block(16 + 28, 31, image(big).substr(0, 28)), ZError(15, "File read error")},
    };
    const std::string raw = tempName("bad.tavd"), out = tempName("bad.csv");
    for (const Case& c : cases) {
        writeAll(raw, c.bytes);
        EXPECT_EQ(tavdConvert(raw.c_str(), out.c_str(), false), c.error) << c.error.str().retStr();
    }
    TavdReader in;
    writeAll(raw, block(100, 33));
    ASSERT_FALSE(in.open(raw.c_str()));
    EXPECT_EQ(in.readPacket(), ZError(14, "File read end"));
    // Larger than a DataBlock holds: refused by the writer.
    big.numSamples = 12;
    writeAll(raw, info + block(16 + 496, 31, image(big)));
    EXPECT_EQ(tavdConvert(raw.c_str(), out.c_str(), false).number, 15);
    // A raw unit block without a converter.
    DataBlock raw40x = makeBlock(9, 13);
    raw40x.type = DataType::Raw40x;
    writeAll(raw, info + block(16 + 496, 31, image(raw40x)));
    EXPECT_EQ(tavdConvert(raw.c_str(), out.c_str(), false).number, 12);

    // An empty file is an empty conversion.
    writeAll(raw, "");
    EXPECT_FALSE(tavdConvert(raw.c_str(), out.c_str(), false));
    EXPECT_EQ(readAll(out), "");
    EXPECT_EQ(tavdConvert(raw.c_str(), "", false), ZError(1, "No output file given"));
    const ZError err = tavdConvert("/nonexistent/x.tavd", out.c_str(), false);
    EXPECT_EQ(err.number, 1);
    EXPECT_EQ(strncmp(err.str().retStr(), "Unable to open file: /nonexistent/x.tavd: ", 42), 0);
    unlink(raw.c_str());
    unlink(out.c_str());
}

// Raw unit blocks go through the converter into a full 16-channel block.
TEST(TavdReader, RawConverter) {
    const std::string raw = tempName("raw.tavd"), out = tempName("raw.csv");
    DataBlock raw40x = makeBlock(9, 13);
    raw40x.type = DataType::Raw40x;
    writeAll(raw, block(232, 30, image(makeInfo(TavdFileType::Stream, 0))) +
                      block(16 + 496, 31, image(raw40x)));
    int calls = 0;
    auto convert = [&](const DataBlock& in, DataBlockFloat& f) {
        calls++;
        EXPECT_EQ(in.numSamples, 13);
        f.numChannels = DataBlockFloat::channelsMax;
        f.numSamples = DataBlockFloat::samplesMax;
        for (int i = 0; i < DataBlockFloat::dataMax; i++)
            f.data[i] = float(i);
        return ZError();
    };
    ASSERT_FALSE(tavdConvert(raw.c_str(), out.c_str(), false, convert));
    EXPECT_EQ(calls, 1);
    const std::string text = readAll(out);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 13);
    EXPECT_EQ(text.substr(text.size() - 12), ",207.000000\n");
    unlink(raw.c_str());
    unlink(out.c_str());
}

// The application records whole 16 x 13 float blocks (860-byte payloads);
// they convert back. One sample more than a DataBlockFloat holds is refused.
TEST(TavdReader, FloatBlocksOfAFullUnit) {
    const std::string raw = tempName("full.tavd"), out = tempName("full.csv");
    DataBlockFloat full;
    full.numChannels = DataBlockFloat::channelsMax;
    full.numSamples = DataBlockFloat::samplesMax;
    for (int i = 0; i < DataBlockFloat::dataMax; i++)
        full.data[i] = float(i) - 0.5f;
    {
        DataFile f;
        ASSERT_FALSE(f.open(raw.c_str(), "w", "tavd"));
        ASSERT_FALSE(f.writeInfo(makeInfo(TavdFileType::Stream, 0), makeChannels(0)));
        ASSERT_FALSE(f.writeData(&full));
    }
    ASSERT_FALSE(tavdConvert(raw.c_str(), out.c_str(), false));
    const std::string text = readAll(out);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 13);
    EXPECT_EQ(text.substr(0, 20), "-0.500000,0.500000,1");
    EXPECT_EQ(text.substr(text.size() - 12), ",206.500000\n");

    // 209 samples claimed in a payload long enough for them.
    const std::string info = block(232, 30, image(makeInfo(TavdFileType::Stream, 0)));
    full.numChannels = 19;
    full.numSamples = 11;
    writeAll(raw, info + block(16 + 24 + 4 * 209, 31, image(full) + std::string(4, '\0')));
    EXPECT_EQ(tavdConvert(raw.c_str(), out.c_str(), false), ZError(15, "File read error"));
    unlink(raw.c_str());
    unlink(out.c_str());
}
