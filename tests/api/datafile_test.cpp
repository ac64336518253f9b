// DataFile writing every format, and TavdReader reading ".tavd" files back
// (converting them, and refusing hostile ones).
#include "datafile.h"
#include "tavdreader.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>
#include <vector>

using namespace TavroApi;

namespace {

std::string tempName(const char* name) {
    return "/tmp/datafile_test_" + std::to_string(getpid()) + "_" + name;
}

std::string readAll(const std::string& name) {
    std::ifstream in(name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeAll(const std::string& name, const std::string& bytes) {
    std::ofstream(name, std::ios::binary) << bytes;
}

// What a file of the given format holds once body has written to it and it is closed.
template <class F>
std::string written(const char* format, F body) {
    const std::string name = tempName(format);
    {
        DataFile f;
        EXPECT_FALSE(f.open(name.c_str(), "w", format)) << format;
        body(f);
    }
    const std::string b = readAll(name);
    unlink(name.c_str());
    return b;
}

template <class T>
std::string image(const T& record) {
    return std::string(reinterpret_cast<const char*>(&record), sizeof(T));
}

uint64_t le(const std::string& b, size_t at, int n) {
    uint64_t v = 0;
    for (int i = n - 1; i >= 0; i--)
        v = (v << 8) | uint8_t(b.at(at + size_t(i)));
    return v;
}

InfoBlock makeInfo(TavdFileType fileType, int numChannels, DataType dataType = DataType::Float32) {
    InfoBlock info;
    info.time = 1700000000123456ull;
    info.source = 3;
    info.numChannels = uint16_t(numChannels);
    info.version = 2;
    info.fileType = fileType;
    info.dataType = dataType;
    strcpy(info.name, "Bench1");
    memcpy(info.location, "Lab0123456789ABC", 16); // no terminating NUL
    info.nodeInfo.softwareVersion.ver0 = 1;
    info.nodeInfo.softwareVersion.ver1 = 12;
    info.nodeInfo.softwareVersion.ver2 = 3;
    strcpy(info.nodeInfo.serialNumber, "SN0042");
    info.measureConfig.measureMode = MeasureMode(1);
    info.measureConfig.measureOptions = 5;
    info.measureConfig.triggerConfig = TriggerConfig(2);
    info.measureConfig.triggerChannel = 4;
    info.measureConfig.triggerLevel = 1.5f;
    info.measureConfig.triggerDelay = -1;
    info.measureConfig.sampleRate = 10000.25;
    info.measureConfig.numSamples0 = 100;
    info.measureConfig.numSamples1 = 200;
    info.measureConfig.numSamples2 = 300;
    strcpy(info.measureConfig.description, "Pump test");
    return info;
}

ZArray<ChannelConfig> makeChannels(int n) {
    ZArray<ChannelConfig> channels;
    for (int c = 0; c < n; c++) {
        ChannelConfig ch;
        ch.number = uint8_t(c);
        ch.enabled = 1;
        snprintf(ch.id, sizeof(ch.id), "ai%d", c);
        if (c != 1)
            snprintf(ch.name, sizeof(ch.name), "Ch%d", c);
        ch.scale = 1.0 + c;
        channels.append(ch);
    }
    return channels;
}

DataBlock makeBlock(DataType type, int numChannels, int numSamples) {
    DataBlock b;
    b.time = 99;
    b.numChannels = uint16_t(numChannels);
    b.numSamples = uint16_t(numSamples);
    b.sequence = 7;
    b.type = type;
    for (int i = 0; i < DataBlock::dataMax; i++)
        b.data[i] = float(i) * 0.5f - 3;
    return b;
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

// Converts bytes as a ".tavd" file to the output's format; text is what it wrote.
ZError convert(const std::string& bytes, std::string& text, bool header = false,
               const char* output = "out.csv", const TavdRawConverter& raw = TavdRawConverter()) {
    const std::string in = tempName("in.tavd"), out = tempName(output);
    writeAll(in, bytes);
    const ZError err = tavdConvert(in.c_str(), out.c_str(), header, raw);
    text = readAll(out);
    unlink(in.c_str());
    unlink(out.c_str());
    return err;
}

} // namespace

TEST(DataFile, OpenAndUnknownFormats) {
    const std::string name = tempName("open");
    DataFile f;
    EXPECT_EQ(f.open(name.c_str(), "w", "xls"), ZError(1, "Uknown format: xls"));
    EXPECT_FALSE(f.isOpen());
    EXPECT_NE(access(name.c_str(), F_OK), 0);
    // Reading does not check the format word.
    { std::ofstream(name) << "x"; }
    EXPECT_FALSE(f.open(name.c_str(), "r", "xls"));
    EXPECT_TRUE(f.isOpen());
    EXPECT_EQ(f.writeInfo(makeInfo(TavdFileType::Stream, 0), {}),
              ZError(12, "DataFile::writeInfo: Unknown format: xls"));
    DataBlock block = makeBlock(DataType::Float32, 1, 1);
    EXPECT_EQ(f.writeData(&block), ZError(12, "DataFile::writeData: Unknown format: xls"));
    EXPECT_FALSE(f.writeData(static_cast<const DataBlock*>(nullptr)));
    EXPECT_FALSE(f.close());
    EXPECT_FALSE(f.writeData(&block)); // closed: nothing written
    EXPECT_EQ(readAll(name), "x");
    unlink(name.c_str());
}

TEST(DataFile, TavdHead) {
    for (size_t step : {512, 0}) {
        const InfoBlock info = makeInfo(step ? TavdFileType::Block512 : TavdFileType::Stream, 3);
        const ZArray<ChannelConfig> channels = makeChannels(4);
        const std::string b =
            written("tavd", [&](DataFile& f) { ASSERT_FALSE(f.writeInfo(info, channels)); });
        const size_t infoStep = step ? step : 232, channelStep = step ? step : 152;
        ASSERT_EQ(b.size(), infoStep + 3 * channelStep);
        EXPECT_EQ(b.substr(0, 16), std::string("ZU\xe8\0\0\0\0\0\x1e\0\0\0\0\0\0\0", 16));
        EXPECT_EQ(b.substr(16, 216), image(info));
        EXPECT_EQ(b.substr(232, infoStep - 232), std::string(infoStep - 232, '\0'));
        for (int ch = 0; ch < 3; ch++) {
            const size_t at = infoStep + size_t(ch) * channelStep;
            EXPECT_EQ(b.substr(at, 16), std::string("ZU\x98\0\0\0\0\0\x20\0\0\0\0\0\0\0", 16));
            EXPECT_EQ(b.substr(at + 16, 136), image(channels[ch]));
            EXPECT_EQ(b.substr(at + 152, channelStep - 152), std::string(channelStep - 152, '\0'));
        }
    }
    // A full disk: 15 with the system's text; fewer channel records than announced: 12.
    DataFile full;
    ASSERT_FALSE(full.open("/dev/full", "w", "tavd"));
    EXPECT_EQ(full.writeInfo(makeInfo(TavdFileType::Block512, 40), makeChannels(40)),
              ZError(15, strerror(ENOSPC)));
    written("tavd", [](DataFile& f) {
        EXPECT_EQ(f.writeInfo(makeInfo(TavdFileType::Stream, 3), makeChannels(2)).number, 12);
    });
}

TEST(DataFile, TavdDataBlocks) {
    const DataBlock plain = makeBlock(DataType::Float32, 2, 10);
    const DataBlock raw = makeBlock(DataType::Raw40x, 9, 13);
    const DataBlock proc = makeBlock(DataType::Proc, 10, 1);
    DataBlockFloat full;
    full.numChannels = 16;
    full.numSamples = 13;
    for (int i = 0; i < DataBlockFloat::dataMax; i++)
        full.data[i] = float(i) + 1;
    const struct {
        TavdFileType fileType;
        const void* block;
        bool isFloat;
        size_t record, payload;
    } cases[] = {
        {TavdFileType::Stream, &plain, false, 496, 108},
        {TavdFileType::Block512, &plain, false, 496, 512},
        {TavdFileType::Stream, &raw, false, 496, 496},
        {TavdFileType::Block512, &raw, false, 496, 512},
        {TavdFileType::Stream, &proc, false, 416, 416}, // processed: never padded
        {TavdFileType::Block512, &proc, false, 416, 416},
        {TavdFileType::Stream, &full, true, 856, 860}, // one float past the record
        {TavdFileType::Block512, &full, true, 856, 1024},
    };
    for (const auto& c : cases) {
        const std::string b = written("tavd", [&](DataFile& f) {
            ASSERT_FALSE(f.writeInfo(makeInfo(c.fileType, 0), {}));
            for (int i = 0; i < 2; i++)
                ASSERT_FALSE(c.isFloat ? f.writeData(static_cast<const DataBlockFloat*>(c.block))
                                       : f.writeData(static_cast<const DataBlock*>(c.block)));
        });
        const size_t head = c.fileType == TavdFileType::Block512 ? 512 : 232;
        ASSERT_EQ(b.size(), head + 2 * (16 + c.payload)) << c.payload;
        for (size_t at = head; at < b.size(); at += 16 + c.payload) {
            EXPECT_EQ(le(b, at, 2), 0x555Au);
            EXPECT_EQ(le(b, at + 2, 2), 16 + c.payload);
            EXPECT_EQ(le(b, at + 4, 4), 0u);
            EXPECT_EQ(le(b, at + 8, 8), 31u);
            const size_t n = std::min(c.record, c.payload);
            EXPECT_EQ(b.substr(at + 16, n), std::string(static_cast<const char*>(c.block), n));
            EXPECT_EQ(b.substr(at + 16 + n, c.payload - n), std::string(c.payload - n, '\0'));
        }
    }
    // More samples than the record holds; 208 floats fit a DataBlockFloat.
    written("tavd", [&](DataFile& f) {
        const DataBlock big = makeBlock(DataType::Float32, 12, 10);
        EXPECT_EQ(f.writeData(&big), ZError(12, "DataFile::writeData: Bad block size"));
        EXPECT_EQ(f.writeData(&full), ZError());
    });
}

// Special values, exact halves of the sixth decimal (round to even), values next to the
// 2^64 limit of the integer path; random floats and doubles of every exponent, and random
// floats of capture size.
TEST(DataFile, FloatTextMatchesPrintf) {
    std::vector<double> values(
        {0.0f, 1.0f, 2.5f, 0.1234565f, 1e-7f, 5e-7f, 123456.789f, 1e30f, 3.4028235e38f});
    values.insert(values.end(), {1.17549435e-38f, 1e-45f, 0.0078125, 0.0234375, 0.9999995, 0x1p63,
                                 0x1p64, 0x1.fffffffffffffp63});
    values.insert(values.end(), {4.9406564584124654e-324, 2.5e-6 + 0.0000005, 1.0 / 1024 / 1024,
                                 0x1p64 - 0x1p11, std::numeric_limits<float>::infinity(),
                                 std::numeric_limits<float>::quiet_NaN()});
    uint64_t x = 0x9E3779B97F4A7C15ull;
    for (int i = 0; i < 60000; i++) {
        x ^= x << 13, x ^= x >> 7, x ^= x << 17;
        float f;
        const uint32_t fbits = uint32_t(x >> 32);
        memcpy(&f, &fbits, sizeof(f));
        double d;
        memcpy(&d, &x, sizeof(d));
        values.insert(values.end(), {f, d, double(float(int64_t(x % 2000001) - 1000000) / 64.0f)});
    }
    for (double v : values)
        for (double w : {v, -v}) {
            char want[400], got[400];
            snprintf(want, sizeof(want), "%f", w);
            const int n = dataFileFormatFloat(got, w);
            ASSERT_EQ(std::string(got, size_t(n)), want) << std::hexfloat << w;
        }
}

TEST(DataFile, CsvLines) {
    DataBlock block = makeBlock(DataType::Float32, 3, 2);
    block.data[1] = -0.0f;
    block.data[5] = 1e10f;
    DataBlock proc = makeBlock(DataType::Proc, 10, 1);
    DataBlockProc& p = reinterpret_cast<DataBlockProc&>(proc);
    for (int c = 0; c < 8; c++)
        p.analogueData[c] = DataProc();
    p.analogueData[0].rms = 1.5f;
    p.analogueData[0].mean = -1;
    p.analogueData[0].alarm = 1;
    p.analogueData[7].power = 0.25f;
    p.digitalData = 0x2; // channel 9 high
    const std::string b = written("csv", [&](DataFile& f) {
        ASSERT_FALSE(f.writeInfo(makeInfo(TavdFileType::Stream, 3), makeChannels(3)));
        ASSERT_FALSE(f.writeData(&block));
        ASSERT_FALSE(f.writeData(&proc)); // type Proc goes to the processed writer
        p.numSamples = 2;
        EXPECT_EQ(f.writeData(&p), ZError(12, "DataFile::writeData: Bad block size"));
        ASSERT_FALSE(f.writeEnd());
    });
    const std::string zero5 = "0.000000,0.000000,0.000000,0.000000,0.000000,0";
    std::string want = "-3.000000,-0.000000,-2.000000\n-1.500000,-1.000000,10000000000.000000\n"
                       "1.500000,-1.000000,0.000000,0.000000,0.000000,1";
    for (int c = 1; c < 7; c++)
        want += "," + zero5;
    want += ",0.000000,0.000000,0.000000,0.000000,0.250000,0,0,1\n";
    EXPECT_EQ(b, want);
}

TEST(DataFile, CsvHead) {
    for (DataType type : {DataType::Float32, DataType::Proc}) {
        const bool proc = type == DataType::Proc;
        const std::string b = written("csv_with_header", [&](DataFile& f) {
            ASSERT_FALSE(
                f.writeInfo(makeInfo(TavdFileType::Stream, proc ? 10 : 3, type), makeChannels(10)));
        });
        std::string want;
        for (const char* line :
             {"Unit serial number,SN0042", "Unit firmware,1.12.3", "Unit name,Bench1",
              "Unit location,Lab0123456789ABC", "Time,2023-11-14T22:13:20",
              proc ? "NumChannels,10" : "NumChannels,3", "Description,Pump test", "MeasureMode,1",
              "MeasureOptions,5", "TriggerConfig,2", "TriggerChannel,4", "TriggerLevel,1.500000",
              "TriggerDelay,4294967295", "SampleRate,10000.250000", "NumSamples0,100",
              "NumSamples1,200", "NumSamples2,300", proc ? "File DataType,2" : "File DataType,0"})
            want += std::string(line) + "\n";
        if (proc) {
            for (const char* n : {"Ch0", "ai1", "Ch2", "Ch3", "Ch4", "Ch5", "Ch6", "Ch7"}) {
                if (strcmp(n, "Ch0"))
                    want += ",";
                for (const char* field : {".rms,", ".mean,", ".peakHigh,", ".peakLow,", ".power,"})
                    want += std::string(n) + field;
                want += std::string(n) + ".alarm";
            }
            want += ",Ch8.State,Ch9.State\n";
        } else {
            want += "Ch0,ai1,Ch2\n";
        }
        EXPECT_EQ(b, want);
    }
}

TEST(DataFile, Tdms) {
    const DataBlock block = makeBlock(DataType::Float32, 2, 3);
    const std::string b = written("tdms", [&](DataFile& f) {
        ASSERT_FALSE(f.writeInfo(makeInfo(TavdFileType::Stream, 2), makeChannels(2)));
        ASSERT_FALSE(f.writeData(&block));
        DataBlockProc proc;
        EXPECT_EQ(f.writeData(&proc), ZError(12, "DataFile::writeData: TDMS format not supported"));
        ASSERT_FALSE(f.writeEnd());
    });
    auto u32 = [](uint32_t v) { return std::string(reinterpret_cast<const char*>(&v), 4); };
    auto u64 = [](uint64_t v) { return std::string(reinterpret_cast<const char*>(&v), 8); };
    std::string meta = u32(3) + u32(8) + "/'Group'" + u32(0xFFFFFFFF) + u32(0);
    for (const char* path : {"/'Group'/'Ch0'", "/'Group'/'ai1'"}) // no name: the id
        meta += u32(uint32_t(strlen(path))) + path + u32(20) + u32(9) + u32(1) + u64(1) + u32(0);
    const std::string data(reinterpret_cast<const char*>(block.data), 6 * 4);
    const std::string want = std::string("TDSm") + u32(46) + u32(4713) +
                             u64(meta.size() + data.size()) + u64(meta.size()) + meta + data;
    EXPECT_EQ(b, want);
}

// What DataFile writes in a Stream file converts to exactly what DataFile
// writes directly in the other formats.
TEST(TavdReader, StreamRoundTrip) {
    DataBlock data = makeBlock(DataType::Float32, 10, 3);
    DataBlockProc proc;
    proc.numChannels = 10;
    proc.numSamples = 1;
    proc.type = DataType::Proc;
    proc.analogueData[2].rms = 4.5f;
    proc.digitalData = 3;
    auto body = [&](DataFile& f) {
        ASSERT_FALSE(f.writeInfo(makeInfo(TavdFileType::Stream, 10), makeChannels(10)));
        ASSERT_FALSE(f.writeData(&data) || f.writeData(&proc) || f.writeData(&data));
        ASSERT_FALSE(f.writeEnd());
    };
    const std::string tavd = written("tavd", body);
    std::string text;
    ASSERT_FALSE(convert(tavd, text, true));
    EXPECT_EQ(text, written("csv_with_header", body));
    // Processed blocks have no TDMS form.
    EXPECT_EQ(convert(tavd, text, true, "out.tdms"),
              ZError(12, "DataFile::writeData: TDMS format not supported"));
}

// A unit's Block512 file: every block after the info block fills whole sectors.
TEST(TavdReader, Block512Sectors) {
    DataBlock data = makeBlock(DataType::Float32, 2, 2);
    std::string file = sector(block(232, 30, image(makeInfo(TavdFileType::Block512, 2))));
    for (const ChannelConfig& ch : makeChannels(2))
        file += sector(block(152, 32, image(ch)));
    file += sector(block(16 + 40, 31, image(data).substr(0, 40)));
    file += sector(block(16 + 496, 31, image(data))); // 528 bytes: two sectors
    file += sector(block(20, 33, "abcd"));            // skipped
    std::string text;
    ASSERT_FALSE(convert(file, text));
    const std::string lines = "-3.000000,-2.500000\n-2.000000,-1.500000\n";
    EXPECT_EQ(text, lines + lines);
}

TEST(TavdReader, HostileFilesRefused) {
    const std::string info = block(232, 30, image(makeInfo(TavdFileType::Stream, 0)));
    DataBlock big = makeBlock(DataType::Float32, 10, 10), tooBig = big, raw40x = big;
    tooBig.numSamples = 12;         // more than a DataBlock holds: refused by the writer
    raw40x.type = DataType::Raw40x; // without a converter
    DataBlockFloat full;
    full.numChannels = 19; // 209 samples claimed in a payload long enough for them
    full.numSamples = 11;
    const struct Case {
        std::string bytes;
        ZError error;
        bool numberOnly = false;
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
        {info + block(16 + 496, 31, image(tooBig)), ZError(15, ""), true},
        {info + block(16 + 24 + 4 * 209, 31, image(full) + std::string(4, '\0')),
         ZError(15, "File read error")},
        {info + block(16 + 496, 31, image(raw40x)), ZError(12, ""), true},
        {"", ZError()}, // an empty file is an empty conversion
    };
    for (const Case& c : cases) {
        std::string text;
        const ZError err = convert(c.bytes, text);
        EXPECT_TRUE(c.numberOnly ? err.number == c.error.number : err == c.error)
            << err.number << " " << err.str().retStr() << " for " << c.error.str().retStr();
    }
    const std::string raw = tempName("bad.tavd");
    writeAll(raw, block(100, 33));
    TavdReader in;
    ASSERT_FALSE(in.open(raw.c_str()));
    EXPECT_EQ(in.readPacket(), ZError(14, "File read end"));
    EXPECT_EQ(tavdConvert(raw.c_str(), "", false), ZError(1, "No output file given"));
    const ZError err = tavdConvert("/nonexistent/x.tavd", tempName("x.csv").c_str(), false);
    EXPECT_EQ(err.number, 1);
    EXPECT_EQ(strncmp(err.str().retStr(), "Unable to open file: /nonexistent/x.tavd: ", 42), 0);
    unlink(raw.c_str());
}

// Raw unit blocks go through the converter into a full 16-channel block; the
// application's own 16 x 13 float blocks (860-byte payloads) convert back.
TEST(TavdReader, RawAndFullFloatBlocks) {
    int calls = 0;
    auto converter = [&](const DataBlock& in, DataBlockFloat& f) {
        calls++;
        EXPECT_EQ(in.numSamples, 13);
        f.numChannels = DataBlockFloat::channelsMax;
        f.numSamples = DataBlockFloat::samplesMax;
        for (int i = 0; i < DataBlockFloat::dataMax; i++)
            f.data[i] = float(i);
        return ZError();
    };
    std::string text;
    ASSERT_FALSE(convert(block(232, 30, image(makeInfo(TavdFileType::Stream, 0))) +
                             block(16 + 496, 31, image(makeBlock(DataType::Raw40x, 9, 13))),
                         text, false, "out.csv", converter));
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 13);
    EXPECT_EQ(text.substr(text.size() - 12), ",207.000000\n");
    DataBlockFloat full;
    full.numChannels = DataBlockFloat::channelsMax;
    full.numSamples = DataBlockFloat::samplesMax;
    for (int i = 0; i < DataBlockFloat::dataMax; i++)
        full.data[i] = float(i) - 0.5f;
    const std::string file = written("tavd", [&](DataFile& f) {
        ASSERT_FALSE(f.writeInfo(makeInfo(TavdFileType::Stream, 0), {}));
        ASSERT_FALSE(f.writeData(&full));
    });
    ASSERT_FALSE(convert(file, text));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 13);
    EXPECT_EQ(text.substr(0, 20), "-0.500000,0.500000,1");
    EXPECT_EQ(text.substr(text.size() - 12), ",206.500000\n");
}
