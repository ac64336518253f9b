#include "zcomms.h"

#include <cerrno>
#include <ctime>

ZComms::ZComms()
    : oconnected(false), opacketMode(false), otimeout(WaitForever), oeventQueue(nullptr),
      oeventsEnabled(false), oeventParams{0, 0, 0} {}

ZComms::~ZComms() {
    ZComms::disconnect();
}

ZError ZComms::init() {
    return ZError();
}
void ZComms::close() {}
ZString ZComms::name() {
    return ZString();
}
unsigned int ZComms::byteRate() {
    return 0;
}
ZError ZComms::setPacketMode(bool) {
    return ZError(5, "Packet mode not supported");
}
bool ZComms::packetMode() {
    return opacketMode;
}

ZError ZComms::setTimeout(unsigned int timeoutUs) {
    otimeout = timeoutUs;
    return ZError();
}

ZError ZComms::connect(const char*) {
    oconnected = true;
    return ZError();
}

bool ZComms::isConnected() {
    return oconnected;
}

ZError ZComms::disconnect() {
    oconnected = false;
    return ZError();
}

void ZComms::flush(Flush) {}
unsigned int ZComms::writeAvailable() {
    return 0;
}

ZError ZComms::writeChunks(const ZDataChunk* chunks, unsigned int n, unsigned int& written) {
    written = 0;
    for (unsigned int i = 0; i < n; i++) {
        unsigned int w = 0;
        ZError err = write(chunks[i].data, chunks[i].length, w);
        if (err)
            return err;
        written += w;
    }
    return ZError();
}

unsigned int ZComms::readAvailable() {
    return 0;
}
ZError ZComms::wait(unsigned int, unsigned int, unsigned int) {
    return ZError();
}

void ZComms::eventQueue(ZQueue<ZEvent>* queue, unsigned int p1, unsigned int p2, unsigned int p3) {
    oeventQueue = queue;
    oeventParams[0] = p1;
    oeventParams[1] = p2;
    oeventParams[2] = p3;
    oeventsEnabled = true;
}

void ZComms::eventEnable(bool on) {
    oeventsEnabled = on;
}

void delayUs(unsigned int us) {
    struct timespec ts;
    ts.tv_sec = us / 1000000;
    ts.tv_nsec = long(us % 1000000) * 1000;
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

void delayMs(unsigned int ms) {
    delayUs(ms * 1000u);
}
