#include "zoapmc1comms.h"

#include <algorithm>
#include <cstring>

namespace {

const uint8_t MagicLow = 0x5A;  // 'Z'
const uint8_t MagicHigh = 0x55; // 'U'

ZError packetDataError() {
    return ZError(6, "ZoapMc1 packet data error");
}

} // namespace

ZoapMc1Comms::ZoapMc1Comms(bool threaded, unsigned int maxPacket)
    : othreaded(threaded), omaxPacket(maxPacket), ocomms(nullptr), ocommsMode(false),
      otimeout(DefaultTimeout), odestination(0), osource(0), oreplyExpected(0), oreplyLeft(-1) {
    // Resynchronising reads up to 16 bytes behind the 16 of a header, so a
    // buffer must hold 32; a smaller channel is refused rather than shrunk.
    if (maxPacket < MinPacket)
        ostatus = ZError(1, "ZoapMc1 packet size too small");
    unsigned int size = std::max(maxPacket, MinPacket);
    orx.reset(new uint8_t[size]());
    otx.reset(new uint8_t[size]());
}

ZoapMc1Comms::~ZoapMc1Comms() {}

void ZoapMc1Comms::setComms(ZComms* comms) {
    ocomms = comms;
    if (!comms && othreaded && oreplyExpected.exchange(0))
        oreplyArrived.set();
}

void ZoapMc1Comms::setAddress(unsigned short destination, unsigned short source) {
    odestination = destination;
    osource = source;
}

ZoapMc1Header ZoapMc1Comms::rxHeader() const {
    ZoapMc1Header h;
    memcpy(&h, orx.get(), sizeof(h));
    return h;
}

ZError ZoapMc1Comms::packetTx(ZDataChunk* chunks, unsigned int n, unsigned short replyFunction) {
    ZMutexLock lock(otxMutex);
    ZComms* c = ocomms;
    if (!c)
        return noConnection();
    if (ostatus)
        return ostatus;

    oreplyLeft = -1;
    if (replyFunction)
        oreplyExpected = replyFunction | ReplyBit;
    unsigned int written = 0;
    ZError err = c->writeChunks(chunks, n, written);
    if (err || !replyFunction)
        return err;

    if (othreaded) {
        if (!oreplyArrived.wait(otimeout))
            return ZError(4, "Timeout");
        return err;
    }

    // Polled: serve what comes in until the reply header is seen. When the
    // input runs dry first the exchange still counts as sent; the caller's
    // payload read then meets the transport's own time-out.
    c->wait(2, otimeout, 1);
    while (c->readAvailable() > 0) {
        err = processRx();
        if (err)
            break;
        if (oreplyArrived.wait(0))
            break;
    }
    return err;
}

ZError ZoapMc1Comms::packetRxData(void* data, unsigned int len) {
    ZComms* c = ocomms;
    if (!c)
        return noConnection();
    int32_t left = oreplyLeft;
    if (left >= 0 && len > uint32_t(left)) {
        // The reply is shorter than its fields: drop the rest so the stream
        // stays in step, and keep the caller's data as it was.
        oreplyLeft = 0;
        ZError err = discard(*c, uint32_t(left));
        return err ? err : corrupt();
    }
    ZError err = readFully(*c, data, len);
    if (!err && left >= 0)
        oreplyLeft = left - int32_t(len);
    return err;
}

ZError ZoapMc1Comms::packetRxEnd() {
    ZComms* c = ocomms;
    ZError err;
    int32_t left = oreplyLeft.exchange(-1);
    if (c && left > 0)
        err = discard(*c, uint32_t(left));
    if (othreaded)
        oreplyDone.set();
    return err;
}

ZError ZoapMc1Comms::validate() {
    return ZError();
}

ZError ZoapMc1Comms::processRx() {
    ZComms* c = ocomms;
    if (!c)
        return noConnection();
    if (ostatus)
        return ostatus;
    ZMutexLock lock(orxMutex);

    ZError err = readFully(*c, orx.get(), HeaderSize);
    if (err)
        return err;
    if (!goodHeader()) {
        if (c->packetMode())
            return packetDataError();
        err = resynchronise(*c);
        if (err)
            return err;
    }

    ZoapMc1Header h = rxHeader();
    uint16_t expected = h.function;
    if (expected != 0 && oreplyExpected.compare_exchange_strong(expected, 0)) {
        oreplyLeft = int32_t(h.length) - int32_t(HeaderSize);
        // A requester that gave up late may have signalled a reply long gone.
        while (oreplyDone.wait(0)) {
        }
        oreplyArrived.set();
        if (othreaded)
            oreplyDone.wait(otimeout);
        return ZError();
    }
    if (h.function & ReplyBit)
        return corrupt();
    return processRequest();
}

ZError ZoapMc1Comms::processRequests() {
    if (!ocomms)
        return noConnection();
    return processRx();
}

ZError ZoapMc1Comms::processRequest() {
    return ZError();
}

bool ZoapMc1Comms::goodHeader() const {
    ZoapMc1Header h = rxHeader();
    return h.magic == Magic && h.length >= HeaderSize && h.length <= omaxPacket;
}

ZError ZoapMc1Comms::resynchronise(ZComms& comms) {
    uint8_t* b = orx.get();
    unsigned int k = 0;
    while (k < HeaderSize - 1 && !(b[k] == MagicLow && b[k + 1] == MagicHigh))
        k++;
    if (k == HeaderSize - 1)
        return corrupt();
    // Keep what follows the magic and read as many bytes again as were kept
    // (not as many as are missing): whole only when the magic was at 8.
    unsigned int keep = HeaderSize - k;
    memmove(b, b + k, keep);
    ZError err = readFully(comms, b + keep, keep);
    if (err)
        return err;
    return goodHeader() ? ZError() : corrupt();
}

ZError ZoapMc1Comms::readFully(ZComms& comms, void* data, unsigned int len) {
    uint8_t* p = static_cast<uint8_t*>(data);
    unsigned int done = 0;
    while (done < len) {
        unsigned int got = 0;
        ZError err = comms.read(p + done, len - done, got);
        if (err)
            return err;
        if (got == 0)
            return ZError(4, "Timeout");
        done += std::min(got, len - done);
        if (done < len && comms.packetMode())
            return packetDataError();
    }
    return ZError();
}

ZError ZoapMc1Comms::discard(ZComms& comms, unsigned int len) {
    uint8_t scratch[256];
    while (len > 0) {
        unsigned int n = std::min<unsigned int>(len, sizeof(scratch));
        ZError err = readFully(comms, scratch, n);
        if (err)
            return err;
        len -= n;
    }
    return ZError();
}

ZError ZoapMc1Comms::readRequestPayload() {
    ZComms* c = ocomms;
    if (!c)
        return noConnection();
    ZoapMc1Header h = rxHeader();
    if (h.length < HeaderSize || h.length > omaxPacket)
        return corrupt();
    if (h.length == HeaderSize)
        return ZError();
    return readFully(*c, orx.get() + HeaderSize, h.length - HeaderSize);
}

void ZoapMc1Comms::fillReplyHeader(ZoapMc1Header& h, unsigned int length, uint16_t status) const {
    ZoapMc1Header request = rxHeader();
    h.magic = Magic;
    h.length = uint16_t(length);
    h.destination = request.source;
    h.source = osource;
    h.function = request.function | ReplyBit;
    h.status = status;
    h.reserved = 0;
}

// A transport may take fewer bytes than offered (a busy socket, a tty);
// the rest follows until the packet is out. A transport that takes nothing
// and reports no error would loop for ever: that is refused.
ZError ZoapMc1Comms::writeAll(ZComms& comms, const void* data, unsigned int len) {
    const uint8_t* p = static_cast<const uint8_t*>(data);
    while (len > 0) {
        unsigned int written = 0;
        ZError err = comms.write(p, len, written);
        if (err)
            return err;
        if (written == 0 || written > len)
            return ZError(1, "ZoapMc1 write incomplete");
        p += written;
        len -= written;
    }
    return ZError();
}

ZError ZoapMc1Comms::sendReply(unsigned int resultLen, const ZError& err) {
    ZComms* c = ocomms;
    if (!c)
        return noConnection();
    unsigned int length = HeaderSize + resultLen + ErrorRecordSize;
    if (length > omaxPacket)
        return sendErrorReply(ZError(6, "ZoapMc1 reply too large"));
    uint8_t* b = otx.get();
    ZoapMc1Header h;
    fillReplyHeader(h, length, 0);
    memcpy(b, &h, sizeof(h));
    ZoapMc1ErrorRecord record;
    putErrorRecord(record, err);
    memcpy(b + HeaderSize + resultLen, &record, sizeof(record));
    return writeAll(*c, b, length);
}

ZError ZoapMc1Comms::sendErrorReply(const ZError& err) {
    ZComms* c = ocomms;
    if (!c)
        return noConnection();
    // Built apart from the transmit buffer, which may be smaller than 56 bytes.
    struct {
        ZoapMc1Header header;
        ZoapMc1ErrorRecord record;
    } reply;
    static_assert(sizeof(reply) == HeaderSize + ErrorRecordSize, "error reply is 56 bytes");
    fillReplyHeader(reply.header, sizeof(reply), 1);
    putErrorRecord(reply.record, err);
    return writeAll(*c, &reply, sizeof(reply));
}

void ZoapMc1Comms::putErrorRecord(ZoapMc1ErrorRecord& record, const ZError& err) {
    memset(&record, 0, sizeof(record));
    record.number = int16_t(err.number);
    unsigned int n = std::min<unsigned int>(unsigned(err.string.len()), ErrorTextMax);
    memcpy(record.text, err.string.retStr(), n);
}

ZError ZoapMc1Comms::getErrorRecord(const ZoapMc1ErrorRecord& record) {
    size_t n = strnlen(record.text, sizeof(record.text));
    return ZError(record.number, ZString(record.text, int(n)));
}
