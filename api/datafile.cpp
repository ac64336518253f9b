#include "datafile.h"

#include "commsusb.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace TavroApi {

namespace {

const ZError errBlockSize(12, "DataFile::writeData: Bad block size");

TavdBlockHeader blockHeader(unsigned length, uint64_t type) {
    TavdBlockHeader h;
    h.magic = TavdBlockHeader::magicValue;
    h.length = uint16_t(length);
    h.reserved = 0;
    h.blockType = type;
    return h;
}

} // namespace

DataFile::DataFile() : packed(1), buffer(nullptr), bufferSize(0) {}

DataFile::~DataFile() {
    close();
    free(buffer);
}

ZError DataFile::open(const ZString& fileName, const ZString& mode, const ZString& format) {
    this->fileName = fileName;
    this->mode = mode;
    this->format = format;
    if (mode == "w" && !isCsv() && format != "tdms" && format != "tavd")
        return ZError(ZString("Uknown format: ") + format);
    if (!isCsv())
        this->mode += "b";
    return file.open(fileName, this->mode);
}

ZError DataFile::close() {
    return file.close();
}

uint8_t* DataFile::scratch(size_t n) {
    if (n > bufferSize) {
        uint8_t* b = static_cast<uint8_t*>(realloc(buffer, n));
        if (!b)
            return nullptr;
        buffer = b;
        bufferSize = n;
    }
    return buffer;
}

ZError DataFile::put(const void* data, size_t n) {
    if (file.write(data, n) != n)
        return ZError(15, strerror(errno));
    return ZError();
}

ZError DataFile::writeInfo(const InfoBlock& info, const ZArray<ChannelConfig>& channels) {
    if (format == "csv")
        return ZError();
    if (format == "csv_with_header")
        return writeHeadCsv(info, channels);
    if (format == "tdms")
        return writeHeadTdms(info, channels);
    if (format == "tavd")
        return writeHeadTavd(info, channels);
    return ZError(12, ZString("DataFile::writeInfo: Unknown format: ") + format);
}

ZError DataFile::writeHeadTavd(const InfoBlock& info, const ZArray<ChannelConfig>& channels) {
    if (info.numChannels > channels.size())
        return ZError(12, "DataFile::writeInfo: Too few channels");
    packed = int32_t(info.fileType);
    const size_t infoLength = sizeof(TavdBlockHeader) + sizeof(InfoBlock);
    const size_t channelLength = sizeof(TavdBlockHeader) + sizeof(ChannelConfig);
    const size_t size = packed ? infoLength : round512(infoLength);
    uint8_t* b = scratch(size);
    if (!b)
        return ZError(12, "DataFile::writeInfo: Out of memory");

    TavdBlockHeader h = blockHeader(infoLength, TavdBlockHeader::typeInfo);
    memset(b, 0, size);
    memcpy(b, &h, sizeof(h));
    memcpy(b + sizeof(h), &info, sizeof(info));
    ZError err = put(b, packed ? infoLength : size);
    if (err)
        return err;

    const size_t channelSize = packed ? channelLength : round512(channelLength);
    h = blockHeader(channelLength, TavdBlockHeader::typeChannel);
    memset(b, 0, channelSize);
    memcpy(b, &h, sizeof(h));
    for (int c = 0; c < info.numChannels; c++) {
        memcpy(b + sizeof(h), &channels[c], sizeof(ChannelConfig));
        if ((err = put(b, channelSize)))
            return err;
    }
    return ZError();
}

ZError DataFile::writeData(const DataBlock* block) {
    if (!block || !file.isOpen())
        return ZError();
    if (block->type == DataType::Proc)
        return writeData(reinterpret_cast<const DataBlockProc*>(block));
    return writeFloats(block, sizeof(DataBlock), DataBlock::dataMax);
}

ZError DataFile::writeData(const DataBlockFloat* block) {
    if (!block || !file.isOpen())
        return ZError();
    if (block->type == DataType::Proc)
        return writeData(reinterpret_cast<const DataBlockProc*>(block));
    // The float record shares the DataBlock head; its larger data array is
    // passed on through the record size and sample limit.
    return writeFloats(reinterpret_cast<const DataBlock*>(block), sizeof(DataBlockFloat),
                       DataBlockFloat::dataMax);
}

ZError DataFile::writeFloats(const DataBlock* block, size_t recordSize, unsigned maxSamples) {
    if (format == "tavd")
        return writeTavd(block, recordSize, maxSamples);
    if (isCsv())
        return writeCsv(block, maxSamples);
    if (format == "tdms")
        return writeTdms(block, maxSamples);
    return ZError(12, ZString("DataFile::writeData: Unknown format: ") + format);
}

ZError DataFile::writeData(const DataBlockProc* block) {
    if (!block || !file.isOpen())
        return ZError();
    if (format == "tavd")
        return writeTavd(block);
    if (isCsv())
        return writeCsv(block);
    if (format == "tdms")
        return ZError(12, "DataFile::writeData: TDMS format not supported");
    return ZError(12, ZString("DataFile::writeData: Unknown format: ") + format);
}

ZError DataFile::writeTavd(const DataBlock* block, size_t recordSize, unsigned maxSamples) {
    size_t length = sizeof(DataBlock);
    if (block->type == DataType::Float32) {
        const unsigned samples = unsigned(block->numChannels) * block->numSamples;
        if (samples > maxSamples)
            return errBlockSize;
        // One float past the last sample goes out with the block.
        length = sizeof(DataBlockHeader) + 4 * samples + 4;
    }
    if (!packed)
        length = round512(length);
    TavdBlockHeader h = blockHeader(length + sizeof(h), TavdBlockHeader::typeData);
    ZError err = put(&h, sizeof(h));
    if (err)
        return err;
    if (length <= recordSize)
        return put(block, length);
    // Past the record's end the payload is zeros.
    uint8_t* b = scratch(length);
    if (!b)
        return ZError(12, "DataFile::writeData: Out of memory");
    memcpy(b, block, recordSize);
    memset(b + recordSize, 0, length - recordSize);
    return put(b, length);
}

ZError DataFile::writeTavd(const DataBlockProc* block) {
    TavdBlockHeader h = blockHeader(sizeof(h) + sizeof(DataBlockProc), TavdBlockHeader::typeData);
    ZError err = put(&h, sizeof(h));
    if (err)
        return err;
    return put(block, sizeof(DataBlockProc));
}

ZError DataFile::writeEnd() {
    if (format != "tdms" || !file.isOpen())
        return ZError();
    const int64_t end = file.length();
    if (end < 28)
        return ZError(15, "DataFile::writeEnd: File too short");
    const uint64_t next = uint64_t(end - 28);
    if (file.seek(12))
        return ZError(15, strerror(errno));
    ZError err = put(&next, sizeof(next));
    if (!err && file.seek(end))
        err = ZError(15, strerror(errno));
    return err;
}

// ------------------------------------------------------------ tdms

namespace {

void putU32(ZArray<uint8_t>& out, uint32_t v) {
    for (int i = 0; i < 4; i++)
        out.append(uint8_t(v >> (8 * i)));
}

void putU64(ZArray<uint8_t>& out, uint64_t v) {
    for (int i = 0; i < 8; i++)
        out.append(uint8_t(v >> (8 * i)));
}

void putPath(ZArray<uint8_t>& out, const ZString& path) {
    putU32(out, uint32_t(path.len()));
    for (int i = 0; i < path.len(); i++)
        out.append(uint8_t(path.get(i)));
}

ZString fieldString(const char* text, size_t max) {
    return ZString(text, int(strnlen(text, max)));
}

} // namespace

ZError DataFile::writeHeadTdms(const InfoBlock& info, const ZArray<ChannelConfig>& channels) {
    if (info.numChannels > channels.size())
        return ZError(12, "DataFile::writeInfo: Too few channels");
    const uint32_t noData = 0xFFFFFFFF;
    const uint32_t tocMask = 46; // meta data, new object list, raw data, interleaved
    const uint32_t typeSingle = 9;
    ZArray<uint8_t> head;
    for (char c : {'T', 'D', 'S', 'm'})
        head.append(uint8_t(c));
    putU32(head, tocMask);
    putU32(head, 4713);
    putU64(head, ~uint64_t(0)); // next segment, set by writeEnd
    putU64(head, 0);            // raw data offset, set below
    const int leadIn = head.size();

    putU32(head, uint32_t(info.numChannels) + 1);
    putPath(head, "/'Group'");
    putU32(head, noData);
    putU32(head, 0);
    for (int c = 0; c < info.numChannels; c++) {
        ZString name = fieldString(channels[c].name, sizeof(channels[c].name));
        if (name.isEmpty())
            name = fieldString(channels[c].id, sizeof(channels[c].id));
        putPath(head, ZString("/'Group'/'") + name + "'");
        putU32(head, 20);
        putU32(head, typeSingle);
        putU32(head, 1);
        putU64(head, 1);
        putU32(head, 0);
    }
    const uint64_t metaLength = uint64_t(head.size() - leadIn);
    memcpy(head.data() + 20, &metaLength, sizeof(metaLength));
    return put(head.data(), size_t(head.size()));
}

ZError DataFile::writeTdms(const DataBlock* block, unsigned maxSamples) {
    const unsigned samples = unsigned(block->numChannels) * block->numSamples;
    if (samples > maxSamples)
        return errBlockSize;
    return put(block->data, 4 * size_t(samples));
}

} // namespace TavroApi
