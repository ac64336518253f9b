#ifndef TAVROPAIR_H
#define TAVROPAIR_H

// Two Tavro ends joined by a real transport (loopback pair or TCP on
// 127.0.0.1), each with a receive thread when threaded.

#include "commsnet.h"
#include "tavro.h"
#include "zcommsloopback.h"
#include "zsocket.h"
#include "zthread.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

namespace zoaptest {

// Calls processRx until stopped; keeps every error but the transport's
// time-out, and ends when the transport has gone.
class RxLoop : public ZThread {
public:
    explicit RxLoop(ZoapMc1Comms& channel) : ochannel(channel), ostop(false) { start(); }
    ~RxLoop() override { stop(); }

    void stop() {
        ostop = true;
        waitForCompletion();
    }
    std::vector<ZError> errors() {
        std::lock_guard<std::mutex> lock(omutex);
        return oerrors;
    }

    int function() override {
        while (!ostop) {
            ZError err = ochannel.processRx();
            if (!err || err.number == -110)
                continue;
            std::lock_guard<std::mutex> lock(omutex);
            oerrors.push_back(err.copy());
            if (err.number == -32 || err.number == 1 || err.number == 5)
                break;
        }
        return 0;
    }

private:
    ZoapMc1Comms& ochannel;
    std::atomic<bool> ostop;
    std::mutex omutex;
    std::vector<ZError> oerrors;
};

// The unit's side of an accepted TCP connection.
class AcceptedNet : public TavroApi::CommsNet {
public:
    explicit AcceptedNet(int fd) {
        socket().setFd(fd);
        ZComms::connect(nullptr);
    }
};

enum class Transport { Loopback, Tcp };

// A client and a unit of type T over one transport (TCP through a listener on
// an ephemeral port); reads give up after 20 ms, replies after 2 s. Receive
// threads are started by start(); declared last, they end before anything else.
template <class T>
struct TavroPair {
    TavroPair(Transport kind, bool clientThreaded)
        : client(clientThreaded, 1024), unit(true, 1024) {
        if (kind == Transport::Loopback) {
            auto a = std::make_unique<ZCommsLoopback>(), b = std::make_unique<ZCommsLoopback>();
            ZCommsLoopback::connectPair(*a, *b);
            clientEnd = std::move(a);
            unitEnd = std::move(b);
        } else {
            ZSocket listener(ZSocket::Stream);
            ZSocketAddressINET address;
            auto net = std::make_unique<TavroApi::CommsNet>();
            int fd = -1;
            if ((joined = address.set("127.0.0.1", 0)) || (joined = listener.bind(address)) ||
                (joined = listener.listen()) || (joined = listener.getAddress(address)) ||
                (joined = net->connect("127.0.0.1", (unsigned short)address.port())) ||
                (joined = listener.accept(fd)))
                return;
            clientEnd = std::move(net);
            unitEnd = std::make_unique<AcceptedNet>(fd);
        }
        for (ZComms* end : {clientEnd.get(), unitEnd.get()})
            end->setTimeout(20000);
        client.setComms(clientEnd.get());
        unit.setComms(unitEnd.get());
        client.setAddress(1, 2);
        unit.setAddress(2, 1);
        client.setTimeout(2000000);
        unit.setTimeout(2000000);
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
