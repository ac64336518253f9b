#ifndef TAVROUNITS_H
#define TAVROUNITS_H

#include "tavrounit.h"
#include "zcond.h"
#include "zlist.h"
#include "zmutex.h"
#include "zstring.h"
#include "zthread.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace TavroApi {

class TavroUnits;

// A merged block of all channels of all units. The value of channel c at
// sample s is data[s * numChannels + c].
class TavroUnitsDataBlock {
public:
    TavroUnitsDataBlock(unsigned int channels, unsigned int samples);
    void init(unsigned int channels, unsigned int samples);

    DataBlockHeader header; // from the first unit's block
    uint32_t unitMask;      // bit n - 1: unit n has delivered its samples
    unsigned int numChannels;
    unsigned int numSamples;
    std::vector<float> data;

    float value(unsigned int channel, unsigned int sample) const {
        return data[sample * numChannels + channel];
    }
};

// A unit as a member of a group: forwards what it pushes to the group.
class TavroUnit1 : public TavroUnit {
public:
    TavroUnit1(TavroUnits& units, unsigned int number);
    ~TavroUnit1() override;

    ZString name() const { return oname; }
    void setName(const ZString& name) { oname = name; }
    ZString serialNumber() const { return oserialNumber; }
    void setSerialNumber(const ZString& serial) { oserialNumber = serial; }
    ZString url() const { return ourl; }
    void setUrl(const ZString& url) { ourl = url; }
    bool enabled() const { return oenabled; }
    void setEnabled(bool on) { oenabled = on; }
    // The unit's place in the group, 1 for the first. While every unit is
    // enabled and connected its bit in the merge mask is number - 1 and its
    // channels start at (number - 1) * blockNumChannels; in general both
    // follow its place among the units merged (see TavroUnits).
    unsigned int number() const { return onumber; }
    void setNumber(unsigned int number) { onumber = number; }

    void disconnected() override;
    ZError sendDataFloatServe(const DataBlockFloat& block) override;
    ZError sendDataProcServe(const DataBlockProc& block) override;
    ZError sendStatusServe(const NodeStatus& status) override;
    ZError sendMessageServe(const unsigned int& type, const ZString& text) override;

private:
    friend class TavroUnits;

    TavroUnits& ounits;
    int oslot; // place among the units merged, -1 for none; the group's fill mutex
    ZString oname;
    ZString oserialNumber;
    ZString ourl;
    std::atomic<bool> oenabled;
    std::atomic<unsigned int> onumber;
};

// A group of units acting as one instrument.
//
// The units merged are the enabled ones that are connected (only the master,
// the first enabled unit, unless setMulti(true)); they take places 0, 1, ...
// in list order whenever the group is connected or changed (unitsConnect,
// unitsDisconnect, unitSetEnabled, unitSetOrder, setMulti, unitAdd,
// unitDelete). The unit in place p owns bit p of the merge mask and the
// merged channels p * blockNumChannels to p * blockNumChannels +
// blockNumChannels - 1, the same numbering the channel calls use. A unit that
// loses its link keeps its place (its channels stay 0) and is no longer
// waited for.
//
// Pushed raw blocks are merged by block key (the sequence number) into
// blocks of all channels; complete blocks are released in order to the
// processing thread, which queues each on every output stream and calls
// dataEvent(stream). Processed blocks from the master unit go the same
// way to dataProcEvent(stream).
//
// Bounds: a stream queue holds at most streamMaxBlocks blocks; a block that
// finds its queue full is dropped for that stream and counted
// (droppedBlocks), and the drop is reported on standard output. At most
// fillMaxBlocks blocks wait for a missing unit: a unit that far ahead of
// another waits for it (its receive thread, and so the unit through its
// link and the replies to calls made to it, is held back) for up to
// fillWaitUs. A unit that does not catch up in
// that time is given up on: from then on, until the waiting blocks are down
// to half, the oldest incomplete block is dropped instead and counted
// (droppedIncomplete) and reported the same way. Complete blocks go to the
// streams batchMaxBlocks at a time, and at most readyMaxBlocks wait for the
// processing thread (held up by a slow event); beyond that the oldest is
// dropped, counted (droppedBehind) and reported.
//
// Threads: group calls come from any thread and run one at a time under the
// group mutex; each unit's receive thread feeds the merge; the processing
// thread (start()) feeds the streams; one reader per stream. A block that
// dataRead returned stays valid memory until the group is destroyed, its
// contents until dataDone or dataClear.
//
// disconnected(), sendStatusServe() and sendMessageServe() run on a unit's
// receive thread, dataEvent() and dataProcEvent() on the processing thread;
// none of them may wait for the group mutex or make a group call. A subclass
// that overrides them calls stop() and unitsDisconnect() in its destructor.
class TavroUnits {
public:
    static constexpr unsigned int maxStreams = 2;
    static constexpr unsigned int streamMaxBlocks = 32768;
    static constexpr unsigned int fillMaxBlocks = 4096;
    static constexpr unsigned int fillWaitUs = 1000000;
    static constexpr unsigned int batchMaxBlocks = 1024;
    static constexpr unsigned int readyMaxBlocks = 49152;
    static constexpr unsigned int maxUnits = 32;

    // options is kept for the application (options()); none is defined here.
    explicit TavroUnits(int options = 0);
    virtual ~TavroUnits();
    TavroUnits(const TavroUnits&) = delete;
    TavroUnits& operator=(const TavroUnits&) = delete;

    // Starts the processing thread; harmless when it runs.
    ZError start();
    // Ends and joins the processing thread; the destructor does it too.
    void stop();

    // Units.
    ZError unitAdd(const ZString& name, const ZString& url);
    ZError unitDelete(const ZString& name);
    // Adds the units found on the network and on USB that are not in the
    // group yet (by URL); found lists every unit seen.
    ZError unitsFind(ZList<TavroUnitDevice>* found = nullptr);
    unsigned int unitsNum() const;
    unsigned int unitsConnectedNum() const;
    // Null when the number is not present.
    TavroUnit1* unit(unsigned int number) const;
    // The first enabled unit; null when there is none.
    TavroUnit1* unitMaster() const;
    // Connects every enabled unit in list order; the first failure is
    // returned and the units connected so far are disconnected again.
    ZError unitsConnect();
    ZError unitsDisconnect();
    bool unitsConnected() const;
    ZError unitSetEnabled(unsigned int number, bool on);
    // Moves a unit to a new place in the list.
    ZError unitSetOrder(unsigned int number, unsigned int position);
    void setMulti(bool on);
    bool multi() const { return omulti; }
    int options() const { return ooptions; }
    // Channels over all enabled units.
    unsigned int numChannels() const;

    // Group calls.
    virtual ZError getNodeInfo(NodeInfo& info);
    ZError login(const ZString& user, const ZString& password);
    ZError logout();
    ZError changePassword(const ZString& user, const ZString& password, const ZString& newPassword);
    ZError setMode(Mode mode);
    virtual ZError getStatus(NodeStatus& status);
    ZError sendTime(const ZTimeUs& time);
    ZError getInformation(Information& information);
    ZError getInfoBlock(InfoBlock& infoBlock);
    ZError getChannelConfig(unsigned int channel, ChannelConfig& config);
    ZError setChannelConfig(unsigned int channel, const ChannelConfig& config);
    ZError getConfig(Configuration& config);
    ZError setConfig(const Configuration& config);
    ZError getMeasurementConfig(bool which, MeasurementConfig& config);
    ZError setMeasurementConfig(bool which, const MeasurementConfig& config);
    ZError sendDataEnable(unsigned char enable);
    ZError getAwgConfig(bool which, AwgConfig& config);
    ZError setAwgConfig(bool which, const AwgConfig& config);
    ZError alarmsClear(unsigned int mask);
    ZError sendMessage(unsigned int type, const ZString& text);

    // Data access.
    // Sets the number of output streams (0 to 2) and enables them. Streams
    // beyond num are emptied.
    ZError dataSetNumStreams(unsigned int num);
    unsigned int dataNumStreams() const;
    // Off: complete blocks go back to the free list instead of the streams
    // (what is queued stays) until it is switched on again.
    void dataStreamEnable(bool on);
    // Empties the merge and every stream (blocks go back to the free list).
    void dataClear();
    // Disconnects and removes every unit, then dataClear().
    void clear();
    unsigned int dataAvailable(unsigned int stream);
    // Success once a block is available on stream; 4 "Timeout" after timeoutUs.
    ZError dataWait(unsigned int stream, unsigned int timeoutUs);
    // The oldest block of stream, or null; dataDone releases it.
    TavroUnitsDataBlock* dataRead(unsigned int stream);
    ZError dataDone(unsigned int stream);
    // The processed blocks of the master unit, queued per stream like the
    // merged ones: the oldest first, released with dataProcDone.
    unsigned int dataProcAvailable(unsigned int stream);
    DataBlockProc* dataProcRead(unsigned int stream);
    ZError dataProcDone(unsigned int stream);
    // Releases every block (or processed block) waiting on stream, under one
    // lock; the number released.
    unsigned int dataSkip(unsigned int stream);
    unsigned int dataProcSkip(unsigned int stream);
    // Waits until every complete block has been handed to the streams and
    // their events have returned; false after timeoutUs.
    bool dataFlush(unsigned int timeoutUs);
    // Blocks dropped so far because a queue was full, per stream, and
    // incomplete blocks dropped from the merge.
    uint64_t droppedBlocks(unsigned int stream) const;
    uint64_t droppedProcBlocks(unsigned int stream) const;
    uint64_t droppedIncomplete() const;
    uint64_t droppedBehind() const;

    // Events, empty here.
    virtual void disconnected();
    virtual void dataEvent(unsigned int stream);
    virtual void dataProcEvent(unsigned int stream);
    virtual ZError sendStatusServe(const NodeStatus& status);
    virtual ZError sendMessageServe(const unsigned int& type, const ZString& text);

    // Called by the members on their receive threads.
    ZError sendDataFloatQueue(TavroUnit1& unit, const DataBlockFloat& block);
    ZError sendDataProcQueue(TavroUnit1& unit, const DataBlockProc& block);

protected:
    // Group mutex: one group call at a time.
    ZMutex& groupMutex() { return ogroupMutex; }
    // The processing thread's loop.
    void sendDataProcess();

private:
    friend class TavroUnit1;
    struct Impl;
    class Processor;

    // Places the units merged (see above); empties the merge when the
    // places change. Under the group mutex.
    void updateLayout();
    // A member's receive thread lost its link: it is no longer waited for.
    void unitLost(TavroUnit1& unit);
    // The units merged in list order (the enabled ones; only the master
    // unless multi). Under the group mutex.
    void activeUnits(ZList<TavroUnit1*>& units) const;
    // call(unit) on every enabled unit in order, the first failure at once.
    template <class F>
    ZError eachUnit(F call);
    // call(master).
    template <class F>
    ZError masterCall(F call);
    // The unit holding the group channel and its own number for it.
    ZError routeChannel(unsigned int channel, TavroUnit1*& unit, unsigned int& local);
    void renumber();

    mutable ZMutex ogroupMutex; // recursive
    std::unique_ptr<Impl> od;
    std::atomic<bool> omulti;
    const int ooptions;
};

} // namespace TavroApi

#endif
