// Zoap channel throughput: getStatus round trips per second and pushed
// sendData blocks decoded per second, over the loopback transport and over
// TCP on 127.0.0.1; beside them a plain recv loop over the same 512-byte
// records, for what the socket alone gives.
#include "commsnet.h"
#include "tavro.h"
#include "zcommsloopback.h"
#include "zsocket.h"
#include "zthread.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <memory>
#include <thread>

using namespace TavroApi;

namespace {

const unsigned int RecordSize = 512; // a sendData packet: header and DataBlock

// The unit's side of an accepted TCP connection.
class AcceptedNet : public CommsNet {
public:
    explicit AcceptedNet(int fd) {
        socket().setFd(fd);
        ZComms::connect(nullptr);
    }
};

// A connected TCP pair on an ephemeral port of 127.0.0.1.
bool tcpPair(std::unique_ptr<ZComms>& a, std::unique_ptr<ZComms>& b) {
    ZSocket listener(ZSocket::Stream);
    ZSocketAddressINET any, bound;
    auto client = std::make_unique<CommsNet>();
    int fd = -1;
    if (any.set("127.0.0.1", 0) || listener.bind(any) || listener.listen() ||
        listener.getAddress(bound) || client->connect("127.0.0.1", (unsigned short)bound.port()) ||
        listener.accept(fd))
        return false;
    a = std::move(client);
    b = std::make_unique<AcceptedNet>(fd);
    return true;
}

bool join(bool tcp, std::unique_ptr<ZComms>& a, std::unique_ptr<ZComms>& b) {
    if (tcp)
        return tcpPair(a, b);
    auto la = std::make_unique<ZCommsLoopback>();
    auto lb = std::make_unique<ZCommsLoopback>();
    ZCommsLoopback::connectPair(*la, *lb);
    a = std::move(la);
    b = std::move(lb);
    return true;
}

// Calls processRx until stopped or the transport fails.
class RxLoop : public ZThread {
public:
    explicit RxLoop(ZoapMc1Comms& channel) : ochannel(channel), ostop(false) { start(); }
    ~RxLoop() override {
        ostop = true;
        waitForCompletion();
    }
    int function() override {
        while (!ostop) {
            ZError err = ochannel.processRx();
            if (err && err.number != -110 && err.number != 6)
                break;
        }
        return 0;
    }

private:
    ZoapMc1Comms& ochannel;
    std::atomic<bool> ostop;
};

class Unit : public Tavro {
public:
    Unit() : Tavro(true, 1024) {}
    ZError getStatusServe(NodeStatus& status) override {
        status.status = 4;
        return ZError();
    }
};

class App : public Tavro {
public:
    App() : Tavro(true, 1024), blocks(0) {}
    ZError sendDataServe(const DataBlock& block) override {
        sum += block.sequence;
        blocks.fetch_add(1, std::memory_order_release);
        return ZError();
    }
    std::atomic<uint64_t> blocks;
    uint64_t sum = 0;
};

// An application and a unit over one transport, each with a receive thread.
struct Link {
    explicit Link(bool tcp) {
        ok = join(tcp, appEnd, unitEnd);
        if (!ok)
            return;
        appEnd->setTimeout(20000);
        unitEnd->setTimeout(20000);
        app.setComms(appEnd.get());
        unit.setComms(unitEnd.get());
        app.setTimeout(5000000);
        unit.setTimeout(5000000);
        appRx.reset(new RxLoop(app));
        unitRx.reset(new RxLoop(unit));
    }
    ~Link() {
        appRx.reset();
        unitRx.reset();
    }

    bool ok;
    std::unique_ptr<ZComms> appEnd, unitEnd;
    App app;
    Unit unit;
    std::unique_ptr<RxLoop> appRx, unitRx;
};

void BM_GetStatus(benchmark::State& state) {
    Link link(state.range(0) != 0);
    if (!link.ok) {
        state.SkipWithError("no TCP pair on 127.0.0.1");
        return;
    }
    NodeStatus status;
    for (auto _ : state) {
        if (link.app.getStatus(status)) {
            state.SkipWithError("getStatus failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

// The unit pushes blocks of 1000 sendData packets; each iteration ends when
// the application's receive thread has served all of them.
void BM_PushedBlocks(benchmark::State& state) {
    Link link(state.range(0) != 0);
    if (!link.ok) {
        state.SkipWithError("no TCP pair on 127.0.0.1");
        return;
    }
    const uint64_t batch = 1000;
    DataBlock block;
    block.numSamples = 13;
    uint64_t sent = 0;
    for (auto _ : state) {
        for (uint64_t i = 0; i < batch; i++) {
            block.sequence = uint32_t(sent++);
            link.unit.sendData(block);
        }
        while (link.app.blocks.load(std::memory_order_acquire) < sent)
            std::this_thread::yield();
    }
    state.SetItemsProcessed(int64_t(sent));
    state.SetBytesProcessed(int64_t(sent * RecordSize));
}

// The same 512-byte records through a bare TCP socket and a recv loop.
void BM_PlainSocketRecords(benchmark::State& state) {
    std::unique_ptr<ZComms> a, b;
    if (!tcpPair(a, b)) {
        state.SkipWithError("no TCP pair on 127.0.0.1");
        return;
    }
    ZSocket& tx = static_cast<CommsNet&>(*b).socket();
    ZSocket& rx = static_cast<CommsNet&>(*a).socket();
    const uint64_t batch = 1000;
    uint8_t record[RecordSize] = {0x5A, 0x55};
    uint8_t in[RecordSize];
    for (auto _ : state) {
        std::thread sender([&] {
            unsigned int n = 0;
            for (uint64_t i = 0; i < batch; i++)
                tx.send(record, RecordSize, n);
        });
        for (uint64_t i = 0; i < batch; i++) {
            unsigned int got = 0;
            if (rx.recv(in, RecordSize, got, MSG_WAITALL) || got != RecordSize) {
                state.SkipWithError("recv failed");
                break;
            }
        }
        sender.join();
    }
    state.SetItemsProcessed(int64_t(state.iterations() * batch));
    state.SetBytesProcessed(int64_t(state.iterations() * batch * RecordSize));
}

} // namespace

BENCHMARK(BM_GetStatus)->ArgName("tcp")->Arg(0)->Arg(1)->UseRealTime();
BENCHMARK(BM_PushedBlocks)->ArgName("tcp")->Arg(0)->Arg(1)->UseRealTime();
BENCHMARK(BM_PlainSocketRecords)->UseRealTime();

BENCHMARK_MAIN();
