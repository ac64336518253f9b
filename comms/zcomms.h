#ifndef ZCOMMS_H
#define ZCOMMS_H

#include "zdatachunk.h"
#include "zerror.h"
#include "zqueue.h"
#include "zstring.h"

#include <atomic>
#include <cstdint>

// Abstract byte-and-packet transport. Concrete transports supply read, write
// and wait; everything else has a sensible default here. Time-outs are in
// microseconds; 0xFFFFFFFF waits without limit.
class ZComms {
public:
    enum Flush { FlushRead = 1, FlushWrite = 2, FlushAll = 3 };
    static const uint32_t WaitForever = 0xFFFFFFFF;

    ZComms();
    virtual ~ZComms();
    ZComms(const ZComms&) = delete;
    ZComms& operator=(const ZComms&) = delete;

    virtual ZError init();
    virtual void close();
    virtual ZString name();
    virtual unsigned int byteRate();
    virtual ZError setPacketMode(bool on);
    virtual bool packetMode();
    virtual ZError setTimeout(unsigned int timeoutUs);
    virtual ZError connect(const char* address);
    virtual bool isConnected();
    virtual ZError disconnect();
    virtual void flush(Flush what);
    virtual unsigned int writeAvailable();
    virtual ZError write(const void* data, unsigned int len, unsigned int& written) = 0;
    virtual ZError writeChunks(const ZDataChunk* chunks, unsigned int n, unsigned int& written);
    virtual unsigned int readAvailable();
    virtual ZError read(void* data, unsigned int len, unsigned int& got) = 0;
    // Blocks until `count` bytes (or a packet) can be read or timeoutUs passes.
    virtual ZError wait(unsigned int what, unsigned int timeoutUs, unsigned int count);
    virtual void eventQueue(ZQueue<ZEvent>* queue, unsigned int p1, unsigned int p2,
                            unsigned int p3);
    virtual void eventEnable(bool on);

    unsigned int timeout() const { return otimeout; }

protected:
    std::atomic<bool> oconnected;
    bool opacketMode;
    std::atomic<uint32_t> otimeout;
    ZQueue<ZEvent>* oeventQueue;
    bool oeventsEnabled;
    uint32_t oeventParams[3];
};

// Sleep helpers. delayMs multiplies in 32 bits, so values above 4294967 ms wrap.
void delayUs(unsigned int us);
void delayMs(unsigned int ms);

#endif
