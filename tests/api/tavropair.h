#ifndef TAVROPAIR_H
#define TAVROPAIR_H

// Two Tavro ends joined by a real transport (loopback pair or TCP on
// 127.0.0.1), each with a receive thread when threaded.

#include "commsnet.h"
#include "tavro.h"
#include "zoaptest.h"
#include "zsocket.h"

#include <memory>

namespace zoaptest {

// The unit's side of an accepted TCP connection.
class AcceptedNet : public TavroApi::CommsNet {
public:
    explicit AcceptedNet(int fd) {
        socket().setFd(fd);
        ZComms::connect(nullptr);
    }
};

enum class Transport { Loopback, Tcp };

// Joins two transports; a TCP pair is connected through a listener on an
// ephemeral port of 127.0.0.1. Reads on both ends give up after readUs.
inline ZError joinPair(Transport kind, std::unique_ptr<ZComms>& a, std::unique_ptr<ZComms>& b,
                       unsigned int readUs) {
    if (kind == Transport::Loopback) {
        auto la = std::make_unique<ZCommsLoopback>();
        auto lb = std::make_unique<ZCommsLoopback>();
        ZCommsLoopback::connectPair(*la, *lb);
        a = std::move(la);
        b = std::move(lb);
    } else {
        ZSocket listener(ZSocket::Stream);
        ZSocketAddressINET address;
        auto client = std::make_unique<TavroApi::CommsNet>();
        int fd = -1;
        ZError err;
        if ((err = address.set("127.0.0.1", 0)) || (err = listener.bind(address)) ||
            (err = listener.listen()) || (err = listener.getAddress(address)) ||
            (err = client->connect("127.0.0.1", (unsigned short)address.port())) ||
            (err = listener.accept(fd)))
            return err;
        a = std::move(client);
        b = std::make_unique<AcceptedNet>(fd);
    }
    a->setTimeout(readUs);
    b->setTimeout(readUs);
    return ZError();
}

// A client and a unit of type T over one transport; receive threads are
// started by start() and stopped before anything else goes.
template <class T>
struct TavroPair {
    TavroPair(Transport kind, bool clientThreaded, unsigned int replyUs = 2000000,
              unsigned int readUs = 20000)
        : client(clientThreaded, 1024), unit(true, 1024) {
        joined = joinPair(kind, clientEnd, unitEnd, readUs);
        client.setComms(clientEnd.get());
        unit.setComms(unitEnd.get());
        client.setAddress(1, 2);
        unit.setAddress(2, 1);
        client.setTimeout(replyUs);
        unit.setTimeout(replyUs);
    }
    ~TavroPair() {
        unitRx.reset();
        clientRx.reset();
    }
    void start() {
        unitRx.reset(new RxLoop(unit));
        if (client.threaded())
            clientRx.reset(new RxLoop(client));
    }
    // Ends the receive threads; their errors stay readable.
    void stop() {
        for (RxLoop* rx : {unitRx.get(), clientRx.get()})
            if (rx)
                rx->stop();
    }

    ZError joined;
    std::unique_ptr<ZComms> clientEnd, unitEnd;
    T client, unit;
    std::unique_ptr<RxLoop> unitRx, clientRx;
};

} // namespace zoaptest

#endif
