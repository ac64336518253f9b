#ifndef TAVROUNITSIMPL_H
#define TAVROUNITSIMPL_H

// The private state of TavroUnits, shared by tavrounits.cpp (units and group
// calls) and tavrounitsdata.cpp (merge, processing and streams).

#include "tavrounits.h"
#include "zarray.h"
#include "zcond.h"
#include "zlist.h"
#include "zmutex.h"
#include "zthread.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

namespace TavroApi {

// Counts dropped blocks and says so on standard output: at the first drop,
// then at most once a second, with the running count. The owner's mutex
// guards it.
class TavroDropReport {
public:
    explicit TavroDropReport(const char* what) : owhat(what), ocount(0), oreported(false) {}

    void add(unsigned int stream);
    uint64_t count() const { return ocount; }

private:
    const char* owhat;
    uint64_t ocount;
    bool oreported;
    std::chrono::steady_clock::time_point olast;
};

class TavroUnits::Processor : public ZThread {
public:
    explicit Processor(TavroUnits& units) : ounits(units) {}
    ~Processor() override { waitForCompletion(); }
    int function() override {
        ounits.sendDataProcess();
        return 0;
    }

private:
    TavroUnits& ounits;
};

typedef ZList<TavroUnitsDataBlock> TavroBlockList;
typedef ZList<DataBlockProc> TavroProcList;

struct TavroUnitsStream {
    TavroUnitsStream();

    TavroBlockList blocks;
    TavroProcList procs;
    ZCondInt available; // blocks in `blocks`, for dataWait
    TavroDropReport dropped;
    TavroDropReport procDropped;
};

// Locks, outermost first: group, units; process, fill, free; process, out,
// free. The free lists are taken last and held briefly.
struct TavroUnits::Impl {
    Impl();

    // Under fillMutex: puts a unit's block in its place (false: a new block
    // would overfill the merge; nothing done), then releases what is
    // complete.
    bool place(int unitPlace, const DataBlockFloat& block);
    void release();
    // Moves the oldest block being filled to `to`.
    void takeFront(TavroBlockList& to);
    void fillChanged();

    // The members, under unitsMutex (and the group mutex for changes).
    mutable ZMutex unitsMutex;
    ZArray<std::unique_ptr<TavroUnit1>> units;

    // The merge, under fillMutex: the layout, the blocks being filled (oldest
    // first) and the complete ones waiting for the processing thread.
    ZMutex fillMutex;
    uint32_t allMask;      // the places still waited for
    unsigned int channels; // merged channels: places x blockNumChannels
    TavroUnit1* master;    // whose processed blocks are passed on
    TavroBlockList filling;
    TavroBlockList ready;
    TavroProcList procReady;
    TavroDropReport incomplete;
    TavroDropReport overflow; // complete blocks the processing thread was too late for
    bool stalled;             // a unit was given up on: nobody waits until it catches up
    int fillNumber;           // filling.number() as fillCount last heard it
    ZCondInt fillCount;       // filling.number(), for a unit waiting for another
    // The newest block being filled of each key, at key % IndexSize, so that
    // a block finds its place at once; twice the most blocks waiting.
    static constexpr unsigned int IndexSize = 2 * TavroUnits::fillMaxBlocks;
    static_assert((IndexSize & (IndexSize - 1)) == 0, "a power of two");
    std::vector<ZIter> index;
    ZCondInt readyCount; // wakes the processing thread
    ZCondInt pending;    // blocks handed over and not yet through the events

    ZMutex freeMutex;
    TavroBlockList freeBlocks;
    TavroProcList freeProcs;

    // The processing thread's batch; processMutex covers one batch from
    // taking it to queuing it (not the events), so dataClear never misses one.
    ZMutex processMutex;
    TavroBlockList batch;
    TavroProcList procBatch;
    TavroBlockList spare;
    TavroProcList procSpare;

    // The output streams, under outMutex.
    mutable ZMutex outMutex;
    unsigned int numStreams;
    bool streamsOn;
    TavroUnitsStream streams[TavroUnits::maxStreams];

    std::atomic<bool> quit;
    std::unique_ptr<Processor> processor;
};

} // namespace TavroApi

#endif
