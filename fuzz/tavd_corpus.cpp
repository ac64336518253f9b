// Writes the seed files of the ".tavd" fuzz target (fuzz/corpus/tavd):
//   tavd_corpus DIR
// Stream files come from DataFile as the application records them; Block512
// files are laid out as a unit records them, every block after the info
// block filling whole 512-byte sectors. The contents are fixed, so the seeds
// come out the same on every run.
#include "datafile.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

using namespace TavroApi;

namespace {

InfoBlock makeInfo(TavdFileType fileType, DataType dataType, int numChannels) {
    InfoBlock info;
    info.time = 1700000000123456ull;
    info.source = 1;
    info.numChannels = uint16_t(numChannels);
    info.version = 1;
    info.fileType = fileType;
    info.dataType = dataType;
    strcpy(info.name, "Seed");
    strcpy(info.location, "Lab");
    info.nodeInfo.softwareVersion.ver0 = 1;
    info.nodeInfo.softwareVersion.ver2 = 8;
    strcpy(info.nodeInfo.serialNumber, "T400-000001");
    info.measureConfig.measureMode = MeasureMode(1);
    info.measureConfig.sampleRate = 4000.0;
    info.measureConfig.numSamples0 = 1000;
    strcpy(info.measureConfig.description, "seed");
    return info;
}

ZArray<ChannelConfig> makeChannels(int n) {
    ZArray<ChannelConfig> channels;
    for (int c = 0; c < n; c++) {
        ChannelConfig ch;
        ch.number = uint8_t(c);
        ch.enabled = 1;
        snprintf(ch.id, sizeof(ch.id), "AI%d", c);
        if (c % 3 != 2) // some channels are known by their id only
            snprintf(ch.name, sizeof(ch.name), "ch%d", c);
        strcpy(ch.siUnits, "V");
        ch.calibScale = ch.calibScaleAtten1 = ch.pgaGain = ch.scale = 1.0;
        channels.append(ch);
    }
    return channels;
}

DataBlockFloat floatBlock(int channels, int samples, uint32_t sequence) {
    DataBlockFloat b;
    b.time = 1700000000123456ull + sequence * 3250ull;
    b.status = 4;
    b.numChannels = uint16_t(channels);
    b.numSamples = uint16_t(samples);
    b.sequence = sequence;
    b.type = DataType::Float32;
    for (int i = 0; i < channels * samples; i++)
        b.data[i] = float(2.5 * sin(i * 0.7)) * (i % 5 == 4 ? 1000.0f : 1.0f);
    return b;
}

// A unit's raw block: rows of 8 analogue values and a word of digital bits.
DataBlock rawBlock(int samples, uint32_t sequence) {
    DataBlock b;
    b.time = 1700000000123456ull + sequence * 3250ull;
    b.status = 4;
    b.numChannels = DataBlock::rawRowWords;
    b.numSamples = uint16_t(samples);
    b.sequence = sequence;
    b.type = DataType::Raw40x;
    for (int s = 0; s < samples; s++) {
        float* row = b.data + s * DataBlock::rawRowWords;
        for (int c = 0; c < DataBlock::rawAnalogue; c++)
            row[c] = float(c - 4) * 0.125f + float(s) * 0.01f;
        const uint32_t bits = uint32_t(0xA5 ^ s);
        memcpy(&row[DataBlock::rawAnalogue], &bits, sizeof(bits));
    }
    return b;
}

DataBlockProc procBlock(int channels, uint32_t sequence) {
    DataBlockProc b;
    b.time = 1700000000123456ull + sequence * 1000000ull;
    b.status = 4;
    b.numChannels = uint16_t(channels);
    b.numSamples = 1;
    b.sequence = sequence;
    b.type = DataType::Proc;
    for (int c = 0; c < DataBlockProc::analogueMax; c++) {
        DataProc& p = b.analogueData[c];
        p.mean = float(c) * 0.5f;
        p.rms = float(c) * 0.7f;
        p.peakHigh = float(c) + 1.0f;
        p.peakLow = -float(c);
        p.power = float(c * c);
        p.alarm = uint8_t(c == 3);
    }
    b.digitalData = 0x5;
    b.period = 1.0f;
    return b;
}

bool writeStream(const std::string& name, const InfoBlock& info, int channels,
                 void (*body)(DataFile&)) {
    DataFile f;
    ZError err = f.open(name.c_str(), "w", "tavd");
    if (!err)
        err = f.writeInfo(info, makeChannels(channels));
    if (!err)
        body(f);
    if (!err)
        err = f.close();
    if (err)
        fprintf(stderr, "tavd_corpus: %s: %s\n", name.c_str(), err.str().retStr());
    return !err;
}

// A Block512 file as a unit writes it.
class SectorFile {
public:
    void add(uint64_t type, const void* record, size_t size, bool sector = true) {
        TavdBlockHeader h{TavdBlockHeader::magicValue, uint16_t(sizeof(h) + size), 0, type};
        bytes.append(reinterpret_cast<const char*>(&h), sizeof(h));
        bytes.append(static_cast<const char*>(record), size);
        if (sector)
            bytes.append((512 - bytes.size() % 512) % 512, '\0');
    }
    bool save(const std::string& name) const {
        FILE* f = fopen(name.c_str(), "wb");
        const bool ok = f && fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
        if (f)
            fclose(f);
        if (!ok)
            fprintf(stderr, "tavd_corpus: cannot write %s\n", name.c_str());
        return ok;
    }

    std::string bytes;
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "Usage: tavd_corpus DIR\n");
        return 2;
    }
    const std::string dir = argv[1];
    bool ok = true;

    // Float blocks of a few sizes, the special values among them.
    ok &= writeStream(dir + "/stream-float", makeInfo(TavdFileType::Stream, DataType::Float32, 3),
                      3, [](DataFile& f) {
                          DataBlockFloat b = floatBlock(3, 4, 10);
                          f.writeData(&b);
                          b = floatBlock(3, 2, 11);
                          b.data[0] = -0.0f;
                          b.data[1] = std::numeric_limits<float>::infinity();
                          b.data[2] = std::numeric_limits<float>::quiet_NaN();
                          b.data[3] = 3e38f;
                          b.data[4] = 1e-40f;
                          f.writeData(&b);
                      });
    // One whole 16 x 13 block as the application records a unit.
    ok &= writeStream(dir + "/stream-float16",
                      makeInfo(TavdFileType::Stream, DataType::Float32, 16), 16, [](DataFile& f) {
                          DataBlockFloat b = floatBlock(16, 13, 1);
                          f.writeData(&b);
                      });
    ok &= writeStream(dir + "/stream-raw40x", makeInfo(TavdFileType::Stream, DataType::Raw40x, 9),
                      9, [](DataFile& f) {
                          DataBlock b = rawBlock(13, 1);
                          f.writeData(&b);
                          b = rawBlock(3, 2);
                          f.writeData(&b);
                      });
    ok &= writeStream(dir + "/stream-proc", makeInfo(TavdFileType::Stream, DataType::Proc, 10), 10,
                      [](DataFile& f) {
                          DataBlockProc b = procBlock(10, 1);
                          f.writeData(&b);
                          b = procBlock(8, 2);
                          f.writeData(&b);
                      });

    // Unit recordings: raw blocks, processed blocks, and a block of a type
    // the reader passes over.
    {
        SectorFile s;
        InfoBlock info = makeInfo(TavdFileType::Block512, DataType::Raw40x, 2);
        s.add(TavdBlockHeader::typeInfo, &info, sizeof(info));
        for (const ChannelConfig& ch : makeChannels(2))
            s.add(TavdBlockHeader::typeChannel, &ch, sizeof(ch));
        for (uint32_t n = 0; n < 2; n++) {
            DataBlock b = rawBlock(13, n);
            s.add(TavdBlockHeader::typeData, &b, sizeof(b));
        }
        s.add(33, "note", 4);
        ok &= s.save(dir + "/block512-raw40x");
    }
    {
        SectorFile s;
        InfoBlock info = makeInfo(TavdFileType::Block512, DataType::Proc, 9);
        s.add(TavdBlockHeader::typeInfo, &info, sizeof(info));
        for (const ChannelConfig& ch : makeChannels(9))
            s.add(TavdBlockHeader::typeChannel, &ch, sizeof(ch));
        DataBlockProc b = procBlock(9, 1);
        s.add(TavdBlockHeader::typeData, &b, sizeof(b));
        ok &= s.save(dir + "/block512-proc");
    }
    {
        // A float block cut short after its samples, as a unit may write it.
        SectorFile s;
        InfoBlock info = makeInfo(TavdFileType::Block512, DataType::Float32, 1);
        s.add(TavdBlockHeader::typeInfo, &info, sizeof(info));
        const ZArray<ChannelConfig> channels = makeChannels(1);
        s.add(TavdBlockHeader::typeChannel, &channels[0], sizeof(ChannelConfig));
        DataBlockFloat b = floatBlock(2, 5, 7);
        s.add(TavdBlockHeader::typeData, &b, sizeof(DataBlockHeader) + 4 * 10);
        ok &= s.save(dir + "/block512-float");
    }
    // What DataFile writes for Block512: padded after the block header, so
    // it does not read back as sectors.
    ok &= writeStream(dir + "/datafile-block512",
                      makeInfo(TavdFileType::Block512, DataType::Float32, 1), 1, [](DataFile& f) {
                          DataBlockFloat b = floatBlock(1, 3, 1);
                          f.writeData(&b);
                      });
    return ok ? 0 : 1;
}
