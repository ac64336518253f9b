// The text formats of DataFile: "csv" and "csv_with_header".

#include "datafile.h"

#include "ztime.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string>

namespace TavroApi {

namespace {

ZString fieldString(const char* text, size_t max) {
    return ZString(text, int(strnlen(text, max)));
}

void appendFloat(std::string& line, float value) {
    char text[400];
    line.append(text, size_t(dataFileFormatFloat(text, value)));
}

void appendInt(std::string& line, unsigned value) {
    char text[16];
    const std::to_chars_result r = std::to_chars(text, text + sizeof(text), value);
    line.append(text, size_t(r.ptr - text));
}

// Decimal digits of v at out; returns the end.
char* putDigits(char* out, uint64_t v) {
    return std::to_chars(out, out + 20, v).ptr;
}

// The six decimals of "%f" done in integers, for |value| < 2^64: the
// double is m * 2^e exactly, so the integer part and the fraction scaled
// by 10^6 come out of shifts, rounded half to even as printf rounds.
// Returns null when the value is out of that range.
char* formatFixed6(char* out, double value) {
    uint64_t bits;
    memcpy(&bits, &value, sizeof(bits));
    const int biased = int((bits >> 52) & 0x7FF);
    uint64_t m = bits & ((uint64_t(1) << 52) - 1);
    int e = -1074;
    if (biased) {
        m |= uint64_t(1) << 52;
        e = biased - 1075;
    }
    uint64_t whole = 0, frac6 = 0;
    if (e >= 0) {
        if (e > 11) // m << e might not fit 64 bits
            return nullptr;
        whole = m << e;
    } else {
        const unsigned k = unsigned(-e);
        uint64_t fraction = m; // the k bits below the point
        if (k < 64) {
            whole = m >> k;
            fraction = m & ((uint64_t(1) << k) - 1);
        }
        // fraction * 10^6 < 2^(53 + 20): 128 bits hold it and the shift.
        const unsigned __int128 scaled = (unsigned __int128)fraction * 1000000u;
        if (k < 128) {
            frac6 = uint64_t(scaled >> k);
            const unsigned __int128 rest = scaled - ((unsigned __int128)frac6 << k);
            const unsigned __int128 half = (unsigned __int128)1 << (k - 1);
            if (rest > half || (rest == half && (frac6 & 1)))
                frac6++;
            if (frac6 == 1000000) {
                frac6 = 0;
                whole++;
            }
        }
    }
    if (bits >> 63)
        *out++ = '-';
    out = putDigits(out, whole);
    *out++ = '.';
    for (int i = 5; i >= 0; i--) {
        out[i] = char('0' + frac6 % 10);
        frac6 /= 10;
    }
    return out + 6;
}

} // namespace

int dataFileFormatFloat(char* out, double value) {
    // printf spells the special values in lower case, with the sign of a NaN.
    if (std::isnan(value)) {
        const char* text = std::signbit(value) ? "-nan" : "nan";
        strcpy(out, text);
        return int(strlen(text));
    }
    if (std::isinf(value)) {
        const char* text = value < 0 ? "-inf" : "inf";
        strcpy(out, text);
        return int(strlen(text));
    }
    if (const char* end = formatFixed6(out, value))
        return int(end - out);
    const std::to_chars_result r =
        std::to_chars(out, out + 399, value, std::chars_format::fixed, 6);
    return int(r.ptr - out);
}

ZError DataFile::writeHeadCsv(const InfoBlock& info, const ZArray<ChannelConfig>& channels) {
    const NodeInfo& node = info.nodeInfo;
    const MeasurementConfig& m = info.measureConfig;
    ZString head;
    head.printf("Unit serial number,%s\n",
                fieldString(node.serialNumber, sizeof(node.serialNumber)).retStr());
    head += ZString().printf("Unit firmware,%d.%d.%d\n", node.softwareVersion.ver0,
                             node.softwareVersion.ver1, node.softwareVersion.ver2);
    head += ZString().printf("Unit name,%s\n", fieldString(info.name, sizeof(info.name)).retStr());
    head += ZString().printf("Unit location,%s\n",
                             fieldString(info.location, sizeof(info.location)).retStr());
    head += ZString().printf("Time,%s\n", ZTimeUs(info.time).getString("isoT").retStr());
    head += ZString().printf("NumChannels,%u\n", unsigned(info.numChannels));
    head += ZString().printf("Description,%s\n",
                             fieldString(m.description, sizeof(m.description)).retStr());
    head += ZString().printf("MeasureMode,%u\n", unsigned(m.measureMode));
    head += ZString().printf("MeasureOptions,%u\n", unsigned(m.measureOptions));
    head += ZString().printf("TriggerConfig,%u\n", unsigned(m.triggerConfig));
    head += ZString().printf("TriggerChannel,%u\n", unsigned(m.triggerChannel));
    head += ZString().printf("TriggerLevel,%f\n", double(m.triggerLevel));
    head += ZString().printf("TriggerDelay,%u\n", unsigned(m.triggerDelay));
    head += ZString().printf("SampleRate,%f\n", m.sampleRate);
    head += ZString().printf("NumSamples0,%u\n", unsigned(m.numSamples0));
    head += ZString().printf("NumSamples1,%u\n", unsigned(m.numSamples1));
    head += ZString().printf("NumSamples2,%u\n", unsigned(m.numSamples2));
    head += ZString().printf("File DataType,%u\n", unsigned(info.dataType));

    // Column headings: a channel without a name is shown by its id.
    auto name = [&](int c) {
        if (c >= channels.size())
            return ZString();
        ZString n = fieldString(channels[c].name, sizeof(channels[c].name));
        return n.isEmpty() ? fieldString(channels[c].id, sizeof(channels[c].id)) : n;
    };
    if (info.dataType == DataType::Proc) {
        for (int c = 0; c < DataBlockProc::analogueMax; c++) {
            const ZString n = name(c);
            if (c)
                head += ",";
            for (const char* field : {".rms,", ".mean,", ".peakHigh,", ".peakLow,", ".power,"})
                head += n + field;
            head += n + ".alarm";
        }
        for (int c = DataBlockProc::analogueMax; c < info.numChannels; c++)
            head += ZString(",") + name(c) + ".State";
    } else {
        for (int c = 0; c < info.numChannels; c++) {
            if (c)
                head += ",";
            head += name(c);
        }
    }
    head += "\n";
    return put(head.retStr(), size_t(head.len()));
}

ZError DataFile::writeCsv(const DataBlock* block, unsigned maxSamples) {
    const unsigned numChannels = block->numChannels;
    const unsigned numSamples = block->numSamples;
    if (numChannels * numSamples > maxSamples)
        return ZError(12, "DataFile::writeData: Bad block size");
    // The data may run on into a DataBlockFloat's larger array.
    const float* data = reinterpret_cast<const float*>(reinterpret_cast<const uint8_t*>(block) +
                                                       sizeof(DataBlockHeader));
    // A float takes at most 48 characters ("-" and 39 digits, point and six
    // decimals); the formatter is given room for its longest text besides.
    const size_t valueMax = 48, formatRoom = 400;
    char* const text =
        reinterpret_cast<char*>(scratch(numSamples * (numChannels * valueMax + 1) + formatRoom));
    if (!text)
        return ZError(12, "DataFile::writeData: Out of memory");
    char* out = text;
    for (unsigned s = 0; s < numSamples; s++) {
        for (unsigned c = 0; c < numChannels; c++) {
            if (c)
                *out++ = ',';
            out += dataFileFormatFloat(out, data[s * numChannels + c]);
        }
        *out++ = '\n';
    }
    return put(text, size_t(out - text));
}

ZError DataFile::writeCsv(const DataBlockProc* block) {
    const unsigned numChannels = block->numChannels;
    const unsigned numSamples = block->numSamples;
    const unsigned analogue = DataBlockProc::analogueMax;
    // Sample s of channel c is entry numChannels * s + c: only what fits the
    // eight entries is accepted.
    if (numSamples && numChannels * (numSamples - 1) + analogue > analogue)
        return ZError(12, "DataFile::writeData: Bad block size");
    std::string text;
    for (unsigned s = 0; s < numSamples; s++) {
        for (unsigned c = 0; c < analogue; c++) {
            const DataProc& p = block->analogueData[numChannels * s + c];
            if (c)
                text += ',';
            for (float v : {p.rms, p.mean, p.peakHigh, p.peakLow, p.power}) {
                appendFloat(text, v);
                text += ',';
            }
            appendInt(text, p.alarm);
        }
        for (unsigned n = analogue; n < numChannels; n++) {
            const unsigned bit = n - analogue;
            text += ',';
            appendInt(text, bit < 32 ? (block->digitalData >> bit) & 1 : 0);
        }
        text += '\n';
    }
    return put(text.data(), text.size());
}

} // namespace TavroApi
