#include "tavdreader.h"

#include "commsusb.h"

#include <cerrno>
#include <cstring>

namespace TavroApi {

namespace {

const ZError errReadEnd(14, "File read end");
const ZError errRead(15, "File read error");

// The block's own record copied into a zeroed one: a payload shorter than
// the record leaves zeros, a longer one is cut.
template <class T>
void takeRecord(T& record, const uint8_t* payload, unsigned length) {
    memset(static_cast<void*>(&record), 0, sizeof(T));
    memcpy(static_cast<void*>(&record), payload, length < sizeof(T) ? length : sizeof(T));
}

ZString suffix(const ZString& name) {
    const char* base = strrchr(name.retStr(), '/');
    base = base ? base + 1 : name.retStr();
    const char* dot = strrchr(base, '.');
    return dot ? ZString(dot + 1) : ZString();
}

} // namespace

TavdReader::TavdReader() {
    info.fileType = TavdFileType::Stream;
    memset(buffer, 0, sizeof(buffer));
}

ZError TavdReader::open(const ZString& fileName) {
    info = InfoBlock();
    info.fileType = TavdFileType::Stream;
    ZError err = file.open(fileName, "rb");
    if (err)
        return ZError(ZString("Unable to open file: ") + fileName + ": " + err.str());
    return ZError();
}

ZError TavdReader::readPacket() {
    TavdBlockHeader& h = *reinterpret_cast<TavdBlockHeader*>(buffer);
    const size_t got = file.read(buffer, sizeof(h));
    if (got == 0)
        return errReadEnd;
    if (got != sizeof(h))
        return errRead;
    if (h.magic != TavdBlockHeader::magicValue)
        return ZError("Magic number incorrect");
    if (h.length > packetMax)
        return ZError("Excesive packet length");
    const unsigned type = blockType();
    if (type < 30 || type > 33)
        return ZError(ZString("Unkown data packet: ") + ZString(type));
    if (h.length < sizeof(h))
        return errRead;

    unsigned length = h.length - unsigned(sizeof(h));
    if (info.fileType == TavdFileType::Block512)
        length = round512(h.length) - unsigned(sizeof(h));
    const size_t n = file.read(buffer + sizeof(h), length);
    if (n != length)
        return n == 0 ? errReadEnd : errRead;
    return ZError();
}

ZError TavdReader::alignSector() {
    const int64_t position = file.position();
    if (position < 0 || file.seek(int64_t(round512(unsigned(position)))))
        return errRead;
    return ZError();
}

ZError tavdConvert(const ZString& input, const ZString& output, bool csvWithHeader,
                   const TavdRawConverter& rawConverter, const TavdProgress& progress) {
    if (output.isEmpty())
        return ZError("No output file given");
    TavdReader in;
    ZError err = in.open(input);
    if (err)
        return err;
    ZString format = suffix(output);
    if (format == "csv" && csvWithHeader)
        format = "csv_with_header";
    DataFile out;
    if ((err = out.open(output, "w", format)))
        return err;

    ZArray<ChannelConfig> channels;
    bool headWritten = false;
    DataBlock block;
    DataBlockProc proc;
    DataBlockFloat floats;
    const int64_t inputLength = progress ? in.length() : 0;
    while (!(err = in.readPacket())) {
        const uint8_t* payload = in.payload();
        const unsigned length = in.payloadLength();
        if (in.blockType() == TavdBlockHeader::typeInfo) {
            if (length < sizeof(InfoBlock))
                return errRead;
            takeRecord(in.info, payload, length);
            if (in.info.fileType == TavdFileType::Block512 && (err = in.alignSector()))
                return err;
        } else if (in.blockType() == TavdBlockHeader::typeChannel) {
            if (length < sizeof(ChannelConfig))
                return errRead;
            ChannelConfig channel;
            takeRecord(channel, payload, length);
            channels.append(channel);
        } else if (in.blockType() == TavdBlockHeader::typeData) {
            if (length < sizeof(DataBlockHeader))
                return errRead;
            if (!headWritten) {
                if ((err = out.writeInfo(in.info, channels)))
                    return err;
                headWritten = true;
            }
            DataBlockHeader head;
            takeRecord(head, payload, length);
            if (head.type == DataType::Proc) {
                if (length < sizeof(DataBlockProc))
                    return errRead;
                takeRecord(proc, payload, length);
                err = out.writeData(&proc);
            } else if (head.type == DataType::Raw40x) {
                if (!rawConverter)
                    return ZError(12, "Raw data blocks cannot be converted here");
                takeRecord(block, payload, length);
                memset(static_cast<void*>(&floats), 0, sizeof(floats));
                if (!(err = rawConverter(block, floats)))
                    err = out.writeData(&floats);
            } else {
                // Float blocks as the application records them: up to 16
                // channels of 13 samples, more than a unit's DataBlock holds.
                const unsigned samples = unsigned(head.numChannels) * head.numSamples;
                if (samples > unsigned(DataBlockFloat::dataMax) ||
                    sizeof(DataBlockHeader) + 4 * samples > length)
                    return errRead;
                takeRecord(floats, payload, length);
                err = out.writeData(&floats);
            }
            if (err)
                return err;
        }
        if (progress && !progress(uint64_t(in.position()), uint64_t(inputLength)))
            return ZError(-ECANCELED, "Conversion cancelled");
    }
    if (err.number != errReadEnd.number)
        return err;
    if ((err = out.writeEnd()))
        return err;
    return out.close();
}

} // namespace TavroApi
