#include "tavrounits.h"

#include "tavrounitsimpl.h"

#include <algorithm>
#include <cstdio>

namespace TavroApi {

namespace {

typedef std::chrono::steady_clock Clock;

// How often a unit waiting for another looks again.
const unsigned int FillPollUs = 10000;

ZError noStream() {
    return ZError(1, "No such stream");
}

// Moves the first node of `from` to the end of `to`, or a new node when
// `from` is empty; returns the node's element.
template <class T, class Make>
T& takeNode(ZList<T>& to, ZList<T>& from, Make make) {
    if (from.isEmpty())
        to.append(make());
    else
        to.spliceLast(from, from.first());
    return to.back();
}

} // namespace

TavroUnitsDataBlock::TavroUnitsDataBlock(unsigned int channels, unsigned int samples) {
    init(channels, samples);
}

void TavroUnitsDataBlock::init(unsigned int channels, unsigned int samples) {
    header = DataBlockHeader();
    unitMask = 0;
    numChannels = channels;
    numSamples = samples;
    data.assign(size_t(channels) * samples, 0.0f);
}

void TavroDropReport::add(unsigned int value) {
    ocount++;
    std::chrono::steady_clock::time_point now = std::chrono::steady_clock::now();
    if (oreported && now - olast < std::chrono::seconds(1))
        return;
    oreported = true;
    olast = now;
    printf(owhat, value, (unsigned long long)ocount);
    fflush(stdout);
}

TavroUnitsStream::TavroUnitsStream()
    : dropped("TavroUnits::outputBlock: stream %u full, %llu blocks dropped\n"),
      procDropped("TavroUnits::outputBlock: stream %u full, %llu processed blocks dropped\n") {}

TavroUnits::Impl::Impl()
    : allMask(0), channels(0), master(nullptr),
      incomplete("TavroUnits::sendDataQueue: block %u still waits for a unit, %llu incomplete "
                 "blocks dropped\n"),
      overflow("TavroUnits::sendDataQueue: processing behind, block %u and %llu blocks in all "
               "dropped\n"),
      stalled(false), fillNumber(0), index(IndexSize, nullptr), numStreams(0), streamsOn(true),
      quit(false) {}

// The merge.

void TavroUnits::updateLayout() {
    ZMutexLock group(ogroupMutex);
    ZList<TavroUnit1*> active;
    activeUnits(active);
    ZList<TavroUnit1*> all;
    {
        ZMutexLock lock(od->unitsMutex);
        for (std::unique_ptr<TavroUnit1>& u : od->units)
            all.append(u.get());
    }
    Impl& d = *od;
    ZMutexLock fill(d.fillMutex);
    for (TavroUnit1* u : all)
        u->oslot = -1;
    uint32_t mask = 0;
    int places = 0;
    d.master = nullptr;
    for (TavroUnit1* u : active) {
        if (!u->isConnected())
            continue;
        if (places == 0)
            d.master = u;
        u->oslot = places;
        mask |= 1u << places;
        places++;
    }
    unsigned int channels = unsigned(places) * TavroUnit::blockNumChannels;
    // Blocks begun for other places can never be completed.
    if (mask != d.allMask || channels != d.channels) {
        while (!d.filling.isEmpty()) {
            d.incomplete.add(d.filling.front().header.sequence);
            ZMutexLock lock(d.freeMutex);
            d.takeFront(d.freeBlocks);
        }
    }
    d.allMask = mask;
    d.channels = channels;
    d.stalled = false;
    d.fillChanged();
}

void TavroUnits::unitLost(TavroUnit1& unit) {
    Impl& d = *od;
    ZMutexLock fill(d.fillMutex);
    if (unit.oslot < 0)
        return;
    d.allMask &= ~(1u << unit.oslot);
    if (d.master == &unit)
        d.master = nullptr;
    // Blocks that waited for this unit alone are complete now (all of them
    // when no unit is left).
    d.release();
}

bool TavroUnits::Impl::place(int unitPlace, const DataBlockFloat& block) {
    const uint32_t bit = 1u << unitPlace;
    const unsigned int unitChannels = block.numChannels;
    const unsigned int samples = block.numSamples;
    // The newest block of this key, if it lacks this unit.
    ZIter& slot = index[block.sequence & (IndexSize - 1)];
    ZIter it = slot;
    if (it && (filling.nodeGet(it).header.sequence != block.sequence ||
               (filling.nodeGet(it).unitMask & bit)))
        it = nullptr;
    if (!it) {
        if (unsigned(filling.number()) >= TavroUnits::fillMaxBlocks && !stalled)
            return false;
        {
            ZMutexLock lock(freeMutex);
            takeNode(filling, freeBlocks, [] { return TavroUnitsDataBlock(0, 0); });
        }
        it = slot = filling.last();
        DataBlockHeader header;
        copyDataBlockHeader(header, block);
        header.numChannels = uint16_t(channels);
        header.numSamples = uint16_t(samples);
        TavroUnitsDataBlock& b = filling.nodeGet(it);
        b.init(channels, samples);
        b.header = header;
    }
    TavroUnitsDataBlock& b = filling.nodeGet(it);
    b.unitMask |= bit;
    const unsigned int first = unsigned(unitPlace) * TavroUnit::blockNumChannels;
    const unsigned int rows = std::min(samples, b.numSamples);
    for (unsigned int s = 0; s < rows; s++)
        std::copy(block.data + s * unitChannels, block.data + (s + 1) * unitChannels,
                  b.data.begin() + s * b.numChannels + first);
    release();
    return true;
}

void TavroUnits::Impl::release() {
    // Complete blocks leave from the front only, so they keep their order; a
    // block still waiting holds back the ones behind it, up to a limit.
    unsigned int n = 0;
    for (;;) {
        while (!filling.isEmpty() && (filling.front().unitMask & allMask) == allMask) {
            takeFront(ready);
            n++;
        }
        if (unsigned(filling.number()) <= TavroUnits::fillMaxBlocks)
            break;
        incomplete.add(filling.front().header.sequence);
        ZMutexLock lock(freeMutex);
        takeFront(freeBlocks);
    }
    if (stalled && unsigned(filling.number()) <= TavroUnits::fillMaxBlocks / 2)
        stalled = false;
    // While the processing thread is held up (a slow file, a reader inside
    // an event) complete blocks wait here; beyond a stream's worth the
    // oldest go.
    int dropped = 0;
    while (unsigned(ready.number()) > TavroUnits::readyMaxBlocks) {
        overflow.add(ready.front().header.sequence);
        ZMutexLock lock(freeMutex);
        freeBlocks.spliceLast(ready, ready.first());
        dropped++;
    }
    if (n) {
        pending.increment(int(n) - dropped);
        readyCount.increment(int(n));
    }
    fillChanged();
}

void TavroUnits::Impl::takeFront(TavroBlockList& to) {
    ZIter it = filling.first();
    ZIter& slot = index[filling.nodeGet(it).header.sequence & (IndexSize - 1)];
    if (slot == it)
        slot = nullptr;
    to.spliceLast(filling, it);
}

void TavroUnits::Impl::fillChanged() {
    if (fillNumber != filling.number()) {
        fillNumber = filling.number();
        fillCount.setValue(fillNumber);
    }
}

ZError TavroUnits::sendDataFloatQueue(TavroUnit1& unit, const DataBlockFloat& block) {
    Impl& d = *od;
    const unsigned int unitChannels = block.numChannels;
    const unsigned int samples = block.numSamples;
    const char* refused = nullptr;
    bool waiting = false;
    Clock::time_point giveUp;
    for (;;) {
        {
            ZMutexLock fill(d.fillMutex);
            // Beyond the group's channels, beyond a unit's share of them, or
            // beyond the block itself: nothing of it can be placed.
            if (d.channels < unitChannels || samples > TavroUnit::blockNumSamples ||
                unitChannels > TavroUnit::blockNumChannels ||
                unitChannels * samples > unsigned(DataBlockFloat::dataMax)) {
                refused = d.channels == 0 ? "No channels configured" : "DataBlock sizes wrong";
                break;
            }
            // A unit that is not merged (disabled, or not the master while
            // multi is off) is not listened to.
            if (unit.oslot < 0 || d.place(unit.oslot, block))
                return ZError();
        }
        // This unit is fillMaxBlocks blocks ahead of another: its receive
        // thread, and so its link, waits for the other to catch up half way,
        // looking again every few milliseconds (another unit ahead may have
        // taken the room meanwhile). One that does not catch up within
        // fillWaitUs is given up on, and the oldest waiting blocks go.
        Clock::time_point now = Clock::now();
        if (!waiting) {
            waiting = true;
            giveUp = now + std::chrono::microseconds(fillWaitUs);
        }
        if (now >= giveUp) {
            ZMutexLock fill(d.fillMutex);
            d.stalled = true;
        } else {
            d.fillCount.waitLessThan(int(fillMaxBlocks / 2), FillPollUs);
        }
    }
    printf("TavroUnits::sendDataQueue: %s, ignoring\n", refused);
    fflush(stdout);
    return ZError(1, refused);
}

ZError TavroUnits::sendDataProcQueue(TavroUnit1& unit, const DataBlockProc& block) {
    Impl& d = *od;
    ZMutexLock fill(d.fillMutex);
    // The processed values of the other units are not passed on: they
    // describe their own channels only and the master's stand for the group.
    if (d.master != &unit)
        return ZError();
    {
        ZMutexLock lock(d.freeMutex);
        takeNode(d.procReady, d.freeProcs, [] { return DataBlockProc(); });
    }
    d.procReady.back() = block;
    d.pending.increment();
    d.readyCount.increment();
    return ZError();
}

// The processing thread.

ZError TavroUnits::start() {
    Impl& d = *od;
    if (d.processor && d.processor->running())
        return ZError();
    d.processor.reset(); // joins one that has ended
    d.quit = false;
    d.processor.reset(new Processor(*this));
    int err = d.processor->start();
    if (err) {
        d.processor.reset();
        return ZError(err, "Unable to start the processing thread");
    }
    return ZError();
}

void TavroUnits::stop() {
    Impl& d = *od;
    if (!d.processor)
        return;
    d.quit = true;
    d.readyCount.increment();
    d.processor.reset();
    d.quit = false;
}

namespace {

// Hands the first block of `batch` to each of the first `streams` queues
// (member `queue` of each stream): copies to all but the last, the block
// itself to the last; a full queue drops it (counted by `report`), and a
// block no queue took goes back to the free list. Under the out mutex.
template <class T, class Make>
void distribute(TavroUnitsStream* allStreams, ZMutex& freeMutex, ZList<T>& batch, ZList<T>& spare,
                ZList<T>& freeList, unsigned int streams, ZList<T> TavroUnitsStream::*queue,
                TavroDropReport TavroUnitsStream::*report, bool counted, bool* events, Make make) {
    bool taken = false;
    for (unsigned int s = 0; s < streams; s++) {
        TavroUnitsStream& st = allStreams[s];
        ZList<T>& q = st.*queue;
        if (unsigned(q.number()) >= TavroUnits::streamMaxBlocks) {
            (st.*report).add(s);
            continue;
        }
        if (s + 1 < streams) {
            {
                ZMutexLock lock(freeMutex);
                takeNode(spare, freeList, make);
            }
            spare.back() = batch.front();
            q.spliceLast(spare, spare.first());
        } else {
            q.spliceLast(batch, batch.first());
            taken = true;
        }
        if (counted)
            st.available.increment();
        events[s] = true;
    }
    if (!taken) {
        ZMutexLock lock(freeMutex);
        freeList.spliceLast(batch, batch.first());
    }
}

} // namespace

void TavroUnits::sendDataProcess() {
    Impl& d = *od;
    while (!d.quit) {
        if (!d.readyCount.waitMoreThanOrEqual(1, false, 100000))
            continue;
        bool events[maxStreams] = {}, procEvents[maxStreams] = {};
        int n;
        {
            ZMutexLock process(d.processMutex);
            {
                // A batch at a time, so that a backlog reaches the streams
                // no faster than their readers' events can take it.
                ZMutexLock fill(d.fillMutex);
                for (unsigned int i = 0; i < batchMaxBlocks && !d.ready.isEmpty(); i++)
                    d.batch.spliceLast(d.ready, d.ready.first());
                for (unsigned int i = 0; i < batchMaxBlocks && !d.procReady.isEmpty(); i++)
                    d.procBatch.spliceLast(d.procReady, d.procReady.first());
                d.readyCount.setValue(d.ready.number() + d.procReady.number());
            }
            n = d.batch.number() + d.procBatch.number();
            ZMutexLock out(d.outMutex);
            const unsigned int streams = d.streamsOn ? d.numStreams : 0;
            while (!d.batch.isEmpty())
                distribute(d.streams, d.freeMutex, d.batch, d.spare, d.freeBlocks, streams,
                           &TavroUnitsStream::blocks, &TavroUnitsStream::dropped, true, events,
                           [] { return TavroUnitsDataBlock(0, 0); });
            while (!d.procBatch.isEmpty())
                distribute(d.streams, d.freeMutex, d.procBatch, d.procSpare, d.freeProcs, streams,
                           &TavroUnitsStream::procs, &TavroUnitsStream::procDropped, false,
                           procEvents, [] { return DataBlockProc(); });
        }
        // The events run without a lock of ours: a reader may take the data
        // from inside them.
        for (unsigned int s = 0; s < maxStreams; s++)
            if (events[s])
                dataEvent(s);
        for (unsigned int s = 0; s < maxStreams; s++)
            if (procEvents[s])
                dataProcEvent(s);
        d.pending.decrement(n);
    }
}

bool TavroUnits::dataFlush(unsigned int timeoutUs) {
    return od->pending.waitLessThanOrEqual(0, false, timeoutUs) == 1;
}

// Data access.

ZError TavroUnits::dataSetNumStreams(unsigned int num) {
    if (num > maxStreams)
        return ZError(1, "Max number of streams is 2");
    Impl& d = *od;
    ZMutexLock out(d.outMutex);
    for (unsigned int s = num; s < maxStreams; s++) {
        TavroUnitsStream& st = d.streams[s];
        ZMutexLock lock(d.freeMutex);
        while (!st.blocks.isEmpty())
            d.freeBlocks.spliceLast(st.blocks, st.blocks.first());
        while (!st.procs.isEmpty())
            d.freeProcs.spliceLast(st.procs, st.procs.first());
        st.available.setValue(0);
    }
    d.numStreams = num;
    d.streamsOn = true;
    return ZError();
}

unsigned int TavroUnits::dataNumStreams() const {
    ZMutexLock out(od->outMutex);
    return od->numStreams;
}

void TavroUnits::dataStreamEnable(bool on) {
    ZMutexLock out(od->outMutex);
    od->streamsOn = on;
}

void TavroUnits::dataClear() {
    Impl& d = *od;
    ZMutexLock process(d.processMutex);
    {
        ZMutexLock fill(d.fillMutex);
        int n = d.ready.number() + d.procReady.number();
        ZMutexLock lock(d.freeMutex);
        while (!d.filling.isEmpty())
            d.takeFront(d.freeBlocks);
        while (!d.ready.isEmpty())
            d.freeBlocks.spliceLast(d.ready, d.ready.first());
        while (!d.procReady.isEmpty())
            d.freeProcs.spliceLast(d.procReady, d.procReady.first());
        d.readyCount.setValue(0);
        d.pending.decrement(n);
        d.stalled = false;
        d.fillChanged();
    }
    ZMutexLock out(d.outMutex);
    for (TavroUnitsStream& st : d.streams) {
        ZMutexLock lock(d.freeMutex);
        while (!st.blocks.isEmpty())
            d.freeBlocks.spliceLast(st.blocks, st.blocks.first());
        while (!st.procs.isEmpty())
            d.freeProcs.spliceLast(st.procs, st.procs.first());
        st.available.setValue(0);
    }
}

unsigned int TavroUnits::dataAvailable(unsigned int stream) {
    ZMutexLock out(od->outMutex);
    return stream < od->numStreams ? unsigned(od->streams[stream].blocks.number()) : 0;
}

ZError TavroUnits::dataWait(unsigned int stream, unsigned int timeoutUs) {
    {
        ZMutexLock out(od->outMutex);
        if (stream >= od->numStreams)
            return noStream();
    }
    if (!od->streams[stream].available.waitMoreThanOrEqual(1, false, timeoutUs))
        return ZError(4, "Timeout");
    return ZError();
}

TavroUnitsDataBlock* TavroUnits::dataRead(unsigned int stream) {
    ZMutexLock out(od->outMutex);
    if (stream >= od->numStreams || od->streams[stream].blocks.isEmpty())
        return nullptr;
    return &od->streams[stream].blocks.front();
}

ZError TavroUnits::dataDone(unsigned int stream) {
    Impl& d = *od;
    ZMutexLock out(d.outMutex);
    if (stream >= d.numStreams)
        return noStream();
    TavroUnitsStream& st = d.streams[stream];
    if (st.blocks.isEmpty())
        return ZError(1, "No data block");
    {
        ZMutexLock lock(d.freeMutex);
        d.freeBlocks.spliceLast(st.blocks, st.blocks.first());
    }
    st.available.decrement();
    return ZError();
}

unsigned int TavroUnits::dataProcAvailable(unsigned int stream) {
    ZMutexLock out(od->outMutex);
    return stream < od->numStreams ? unsigned(od->streams[stream].procs.number()) : 0;
}

DataBlockProc* TavroUnits::dataProcRead(unsigned int stream) {
    ZMutexLock out(od->outMutex);
    if (stream >= od->numStreams || od->streams[stream].procs.isEmpty())
        return nullptr;
    return &od->streams[stream].procs.front();
}

ZError TavroUnits::dataProcDone(unsigned int stream) {
    Impl& d = *od;
    ZMutexLock out(d.outMutex);
    if (stream >= d.numStreams)
        return noStream();
    TavroUnitsStream& st = d.streams[stream];
    if (st.procs.isEmpty())
        return ZError(1, "No data block");
    ZMutexLock lock(d.freeMutex);
    d.freeProcs.spliceLast(st.procs, st.procs.first());
    return ZError();
}

unsigned int TavroUnits::dataSkip(unsigned int stream) {
    Impl& d = *od;
    ZMutexLock out(d.outMutex);
    if (stream >= d.numStreams)
        return 0;
    TavroUnitsStream& st = d.streams[stream];
    const unsigned int n = unsigned(st.blocks.number());
    {
        ZMutexLock lock(d.freeMutex);
        while (!st.blocks.isEmpty())
            d.freeBlocks.spliceLast(st.blocks, st.blocks.first());
    }
    st.available.decrement(int(n));
    return n;
}

unsigned int TavroUnits::dataProcSkip(unsigned int stream) {
    Impl& d = *od;
    ZMutexLock out(d.outMutex);
    if (stream >= d.numStreams)
        return 0;
    TavroUnitsStream& st = d.streams[stream];
    const unsigned int n = unsigned(st.procs.number());
    ZMutexLock lock(d.freeMutex);
    while (!st.procs.isEmpty())
        d.freeProcs.spliceLast(st.procs, st.procs.first());
    return n;
}

uint64_t TavroUnits::droppedBlocks(unsigned int stream) const {
    ZMutexLock out(od->outMutex);
    return stream < maxStreams ? od->streams[stream].dropped.count() : 0;
}

uint64_t TavroUnits::droppedProcBlocks(unsigned int stream) const {
    ZMutexLock out(od->outMutex);
    return stream < maxStreams ? od->streams[stream].procDropped.count() : 0;
}

uint64_t TavroUnits::droppedIncomplete() const {
    ZMutexLock fill(od->fillMutex);
    return od->incomplete.count();
}

uint64_t TavroUnits::droppedBehind() const {
    ZMutexLock fill(od->fillMutex);
    return od->overflow.count();
}

} // namespace TavroApi
