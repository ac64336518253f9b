#include "controlfile.h"

#include <algorithm>
#include <cstring>

using namespace TavroApi;

ZString ControlFile::expandName(const ZString& name, const ZTime& start) {
    static const ZString tag("%{datetime}");
    const int at = name.find(tag);
    if (at < 0)
        return name;
    ZString out = name;
    out.del(at, tag.len());
    out.insert(at, start.getString("filename"));
    return out;
}

ZString ControlFile::extension(const ZString& type) {
    return type == "csv_with_header" ? ZString("csv") : type;
}

ZString ControlFile::openMode(const ZString& type) {
    return extension(type) == "csv" ? ZString("w") : ZString("wb");
}

ZString ControlFile::path(const FileSave& save, const ZTime& start) {
    return save.dir + "/" + expandName(save.name, start) + "." + extension(save.type);
}

ZError ControlFile::open(const FileSave& save, const ZString& path, const InfoBlock& info,
                         const ZArray<ChannelConfig>& channels) {
    ostats = ControlFileStats();
    ostats.path = path;
    oopened = false;
    ostats.mode = openMode(save.type);
    ZError err = ofile.open(path, ostats.mode, save.type);
    if (err) {
        err = ZError(15, "Unable to create file: " + path + ", " + err.string);
        ostats.error = err;
        return err;
    }
    ostats.open = true;
    oopened = true;
    if ((err = ofile.writeInfo(info, channels)))
        ostats.error = err;
    return err;
}

void ControlFile::fail(const ZError& err) {
    if (err && !ostats.error)
        ostats.error = err;
}

void ControlFile::write(const TavroUnitsDataBlock& block) {
    if (!ofile.isOpen() || ostats.error)
        return;
    const unsigned channels = block.numChannels;
    const unsigned samples = block.numSamples;
    if (size_t(channels) * samples > block.data.size()) {
        fail(ZError(12, "Control: a merged block holds fewer values than its size says"));
        return;
    }
    const unsigned perRecord =
        channels ? unsigned(DataBlockFloat::dataMax) / channels : unsigned(samples ? samples : 1);
    if (perRecord == 0) {
        fail(ZError(12, "Control: a block of " + ZString(channels) +
                            " channels does not fit a data file"));
        return;
    }
    DataBlockFloat record;
    copyDataBlockHeader(record, block.header);
    record.type = DataType::Float32;
    record.numChannels = uint16_t(channels);
    unsigned done = 0;
    do {
        const unsigned n = std::min(perRecord, samples - done);
        const size_t values = size_t(n) * channels;
        record.numSamples = uint16_t(n);
        if (values)
            memcpy(record.data, block.data.data() + size_t(done) * channels, values * 4);
        // The float after the last sample goes out with a tavd record: keep it zero.
        if (values < size_t(DataBlockFloat::dataMax))
            record.data[values] = 0.0f;
        ZError err = ofile.writeData(&record);
        if (err) {
            fail(err);
            return;
        }
        done += n;
    } while (done < samples);
    ostats.blocks++;
    ostats.samples += samples;
}

void ControlFile::write(const DataBlockProc& block) {
    if (!ofile.isOpen() || ostats.error)
        return;
    ZError err = ofile.writeData(&block);
    if (err) {
        fail(err);
        return;
    }
    ostats.blocks++;
    ostats.samples += block.numSamples;
}

ZError ControlFile::finish() {
    if (!oopened)
        return ZError();
    if (ofile.isOpen()) {
        fail(ofile.writeEnd());
        fail(ofile.close());
    }
    ostats.open = false;
    return ostats.error;
}
