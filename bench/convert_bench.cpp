// Converting a ".tavd" file of float blocks to "csv": tavdConvert beside a
// plain writer that reads the same blocks with TavdReader and prints every
// value with fprintf("%f") in the same layout. The two outputs must be byte
// for byte the same; the figures are MB of CSV written per second.
//
//   convert_bench [BLOCKS] [DIR]
//
// BLOCKS (default 100000) blocks of 16 channels x 13 samples are written to
// DIR (default $TMPDIR or /tmp); the files are removed at the end. Each
// conversion runs twice and the faster run counts. Exit status 1 when the
// outputs differ or a step fails.
#include "datafile.h"
#include "tavdreader.h"

#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

using namespace TavroApi;

namespace {

const unsigned int Channels = DataBlockFloat::channelsMax;
const unsigned int Samples = DataBlockFloat::samplesMax;

double seconds(std::chrono::steady_clock::time_point from) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - from).count();
}

long long fileSize(const std::string& name) {
    FILE* f = fopen(name.c_str(), "rb");
    if (!f)
        return -1;
    fseek(f, 0, SEEK_END);
    long long n = ftell(f);
    fclose(f);
    return n;
}

// What a capture looks like: sines of a few volts with noise, a slow
// millivolt signal, a sensor in the thousands, a channel near zero, a
// counter growing to millions, and eight digital inputs.
void fillBlock(DataBlockFloat& b, unsigned int n, std::mt19937& rng) {
    std::normal_distribution<float> noise(0.0f, 0.002f);
    b.time = 1700000000000000ull + uint64_t(n) * 3250;
    b.numChannels = Channels;
    b.numSamples = Samples;
    b.sequence = n;
    b.type = DataType::Float32;
    b.status = 4;
    for (unsigned int s = 0; s < Samples; s++) {
        const double t = double(n * Samples + s) / 4000.0;
        float* row = b.data + s * Channels;
        for (unsigned int c = 0; c < 4; c++)
            row[c] = float((c + 1) * 2.5 * sin(2 * M_PI * 50 * t + c)) + noise(rng);
        row[4] = float(0.004 * sin(2 * M_PI * 0.5 * t)) + noise(rng) * 0.01f;
        row[5] = float(1013.25 + 40 * sin(t)) + noise(rng);
        row[6] = noise(rng) * 1e-4f;
        row[7] = float(n * Samples + s) * 3.75f;
        for (unsigned int c = 8; c < Channels; c++)
            row[c] = ((n >> (c - 8)) & 1) ? 1.0f : 0.0f;
    }
}

bool writeTavd(const std::string& name, unsigned int blocks) {
    InfoBlock info;
    info.fileType = TavdFileType::Stream;
    info.dataType = DataType::Float32;
    info.numChannels = Channels;
    strcpy(info.name, "Bench");
    ZArray<ChannelConfig> channels;
    for (unsigned int c = 0; c < Channels; c++) {
        ChannelConfig ch;
        ch.number = uint8_t(c);
        snprintf(ch.name, sizeof(ch.name), "ch%u", c);
        channels.append(ch);
    }
    DataFile f;
    ZError err = f.open(name.c_str(), "w", "tavd");
    if (!err)
        err = f.writeInfo(info, channels);
    std::mt19937 rng(7);
    DataBlockFloat block;
    for (unsigned int n = 0; !err && n < blocks; n++) {
        fillBlock(block, n, rng);
        err = f.writeData(&block);
    }
    if (!err)
        err = f.close();
    if (err)
        fprintf(stderr, "writing %s: %s\n", name.c_str(), err.str().retStr());
    return !err;
}

// The plain writer: every value through fprintf.
ZError printfConvert(const std::string& input, const std::string& output) {
    TavdReader in;
    ZError err = in.open(input.c_str());
    if (err)
        return err;
    FILE* out = fopen(output.c_str(), "w");
    if (!out)
        return ZError(output.c_str());
    DataBlockFloat block;
    while (!(err = in.readPacket())) {
        if (in.blockType() != TavdBlockHeader::typeData)
            continue;
        const unsigned int length = in.payloadLength();
        memcpy(&block, in.payload(), length < sizeof(block) ? length : sizeof(block));
        for (unsigned int s = 0; s < block.numSamples; s++) {
            for (unsigned int c = 0; c < block.numChannels; c++)
                fprintf(out, c ? ",%f" : "%f", double(block.data[s * block.numChannels + c]));
            fputc('\n', out);
        }
    }
    fclose(out);
    return err.number == 14 ? ZError() : err;
}

// 0 when the two files hold the same bytes.
int compareFiles(const std::string& a, const std::string& b) {
    FILE* fa = fopen(a.c_str(), "rb");
    FILE* fb = fopen(b.c_str(), "rb");
    int result = (fa && fb) ? 0 : -1;
    static char ba[1 << 16], bb[1 << 16];
    long long at = 0;
    while (result == 0) {
        const size_t na = fread(ba, 1, sizeof(ba), fa);
        const size_t nb = fread(bb, 1, sizeof(bb), fb);
        if (na != nb || memcmp(ba, bb, na) != 0) {
            size_t i = 0;
            while (i < na && i < nb && ba[i] == bb[i])
                i++;
            fprintf(stderr, "outputs differ at byte %lld\n", at + (long long)i);
            result = 1;
        }
        if (na == 0)
            break;
        at += (long long)na;
    }
    if (fa)
        fclose(fa);
    if (fb)
        fclose(fb);
    return result;
}

template <class F>
double bestOfTwo(F run) {
    double best = 1e30;
    for (int i = 0; i < 2; i++) {
        auto start = std::chrono::steady_clock::now();
        if (!run())
            return -1;
        best = std::min(best, seconds(start));
    }
    return best;
}

} // namespace

int main(int argc, char** argv) {
    const unsigned int blocks = argc > 1 ? unsigned(strtoul(argv[1], nullptr, 0)) : 100000;
    std::string dir = argc > 2 ? argv[2] : (getenv("TMPDIR") ? getenv("TMPDIR") : "/tmp");
    const std::string base = dir + "/convert_bench_" + std::to_string(getpid());
    const std::string tavd = base + ".tavd", fast = base + "_convert.csv",
                      plain = base + "_printf.csv";

    auto start = std::chrono::steady_clock::now();
    if (!writeTavd(tavd, blocks))
        return 1;
    printf("%u blocks of %u x %u floats: %.1f MB of tavd written in %.2f s\n", blocks, Channels,
           Samples, double(fileSize(tavd)) / 1e6, seconds(start));

    const double tConvert = bestOfTwo([&] {
        ZError err = tavdConvert(tavd.c_str(), fast.c_str(), false);
        if (err)
            fprintf(stderr, "tavdConvert: %s\n", err.str().retStr());
        return !err;
    });
    const double tPrintf = bestOfTwo([&] {
        ZError err = printfConvert(tavd, plain);
        if (err)
            fprintf(stderr, "printf writer: %s\n", err.str().retStr());
        return !err;
    });
    const int same = (tConvert > 0 && tPrintf > 0) ? compareFiles(fast, plain) : -1;
    const double mb = double(fileSize(fast)) / 1e6;
    unlink(tavd.c_str());
    unlink(fast.c_str());
    unlink(plain.c_str());
    if (same != 0) {
        fprintf(stderr, "FAILED: tavdConvert and the printf writer do not give the same CSV\n");
        return 1;
    }
    printf("CSV output %.1f MB, identical in both\n", mb);
    printf("tavdConvert   %7.3f s  %7.1f MB/s\n", tConvert, mb / tConvert);
    printf("printf writer %7.3f s  %7.1f MB/s\n", tPrintf, mb / tPrintf);
    printf("ratio %.2f (target 3)\n", tPrintf / tConvert);
    return 0;
}
