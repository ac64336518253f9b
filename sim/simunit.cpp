#include "simunit.h"

#include "simcore.h"
#include "simserve.h"
#include "simwire.h"

namespace TavroSim {

using namespace TavroApi;
typedef std::lock_guard<std::mutex> Lock;

namespace {

// The receive loop looks at stop(), faults and reboots this often.
const unsigned int PollUs = 100000;
// A link that would wait for ever for the rest of a packet gets this limit.
const unsigned int ReadTimeoutUs = 2000000;

bool passing(const ZError& err) {
    // Time-outs, and packets the framing refused: it resynchronises on the next.
    return err.number == 4 || err.number == -110 || err.number == 6;
}

} // namespace

SimUnit::SimUnit(const SimOptions& options) : ocore(new SimCore(options)) {}

SimUnit::~SimUnit() {
    stop();
    std::unique_lock<std::mutex> lock(ocore->linkMutex);
    ocore->linkChanged.wait(lock, [this] { return !ocore->serving; });
}

ZError SimUnit::status() const {
    return ocore->status;
}

ZError SimUnit::serve(ZComms& link) {
    SimCore& c = *ocore;
    if (c.status)
        return c.status;
    {
        std::unique_lock<std::mutex> lock(c.linkMutex);
        if (c.stopped)
            return ZError(5, "Unit stopped");
        if (c.serving)
            return ZError(16, "Unit already connected");
        c.serving = true;
        // A rebooting unit answers once it is back.
        for (;;) {
            SimCore::Clock::time_point until;
            {
                Lock state(c.mutex);
                until = c.awayUntil;
            }
            if (c.stopped || SimCore::Clock::now() >= until)
                break;
            c.linkChanged.wait_until(lock, until);
        }
        if (c.stopped) {
            c.serving = false;
            c.linkChanged.notify_all();
            return ZError(5, "Unit stopped");
        }
    }
    if (link.timeout() == ZComms::WaitForever)
        link.setTimeout(ReadTimeoutUs);

    SimWire wire(link);
    SimServer server(c);
    server.setComms(wire);
    server.setAddress(2, 1);
    {
        Lock lock(c.linkMutex);
        {
            Lock state(c.mutex);
            c.loggedIn = false;
            c.dataEnable = 1;
        }
        wire.setGarbage(c.garbageBytes, c.garbagePackets);
        c.garbagePackets = 0;
        c.server = &server;
        c.wire = &wire;
        c.links++;
        c.dropNow = false;
    }
    c.linkChanged.notify_all();
    c.wake();

    ZError result;
    bool rebooting = false;
    while (!c.stopped && !c.dropNow) {
        {
            Lock state(c.mutex);
            rebooting = c.rebootPending;
        }
        if (rebooting)
            break;
        ZError err = wire.wait(2, PollUs, 1);
        while (!err && !c.stopped && !c.dropNow && wire.readAvailable() > 0) {
            err = server.processRx();
            Lock state(c.mutex);
            if (c.rebootPending)
                break;
        }
        if (err && !passing(err)) {
            result = err;
            break;
        }
    }

    // Closing the link is what ends a wait in it: the cause counts, not that.
    if (c.stopped)
        result = ZError();
    else if (c.dropNow)
        result = ZError(5, "Connection dropped");
    wire.disconnect();
    {
        Lock lock(c.linkMutex);
        c.server = nullptr;
        c.wire = nullptr;
        c.serving = false;
        c.dropNow = false;
        Lock state(c.mutex);
        c.loggedIn = false;
        if (c.rebootPending) {
            bool reset = c.resetPending;
            c.rebootPending = false;
            c.resetPending = false;
            c.restart(reset);
            result = ZError();
        }
    }
    c.linkChanged.notify_all();
    c.wake();
    return result;
}

void SimUnit::stop() {
    SimCore& c = *ocore;
    c.stopped = true;
    {
        Lock lock(c.linkMutex);
        if (c.wire)
            c.wire->disconnect();
    }
    c.linkChanged.notify_all();
    c.wake();
}

bool SimUnit::serving() const {
    Lock lock(ocore->linkMutex);
    return ocore->server != nullptr;
}

bool SimUnit::waitServing(unsigned int timeoutUs) const {
    std::unique_lock<std::mutex> lock(ocore->linkMutex);
    return ocore->linkChanged.wait_for(lock, std::chrono::microseconds(timeoutUs),
                                       [this] { return ocore->server != nullptr; });
}

bool SimUnit::rebooting() const {
    Lock lock(ocore->mutex);
    return ocore->rebootPending || SimCore::Clock::now() < ocore->awayUntil;
}

unsigned int SimUnit::links() const {
    Lock lock(ocore->linkMutex);
    return ocore->links;
}

// ------------------------------------------------------------ state

NodeInfo SimUnit::nodeInfo() const {
    Lock lock(ocore->mutex);
    return ocore->state.nodeInfo;
}

NodeStatus SimUnit::nodeStatus() const {
    Lock lock(ocore->mutex);
    return ocore->nodeStatus();
}

Information SimUnit::information() const {
    Lock lock(ocore->mutex);
    return ocore->information();
}

Configuration SimUnit::configuration() const {
    Lock lock(ocore->mutex);
    return ocore->state.config;
}

BoardConfig SimUnit::boardConfig() const {
    Lock lock(ocore->mutex);
    return ocore->state.board;
}

ChannelConfig SimUnit::channelConfig(unsigned int channel) const {
    Lock lock(ocore->mutex);
    return channel < unsigned(SimState::channels) ? ocore->state.channel[channel] : ChannelConfig();
}

MeasurementConfig SimUnit::measurementConfig() const {
    Lock lock(ocore->mutex);
    return ocore->state.measure[0];
}

AwgConfig SimUnit::awgConfig() const {
    Lock lock(ocore->mutex);
    return ocore->state.awg[0];
}

Mode SimUnit::mode() const {
    Lock lock(ocore->mutex);
    return ocore->mode;
}

uint32_t SimUnit::alarms() const {
    Lock lock(ocore->mutex);
    return ocore->measure.alarms();
}

bool SimUnit::loggedIn() const {
    Lock lock(ocore->mutex);
    return ocore->loggedIn;
}

ZError SimUnit::setConfiguration(const Configuration& config) {
    Lock lock(ocore->mutex);
    return ocore->setConfiguration(config);
}

uint64_t SimUnit::blocksSent() const {
    return ocore->blocksSent;
}

ZError SimUnit::readFile(const ZString& path, std::vector<uint8_t>& data) const {
    Lock lock(ocore->mutex);
    return ocore->files.contents(path, data);
}

ZError SimUnit::writeFile(const ZString& path, const std::vector<uint8_t>& data) {
    Lock lock(ocore->mutex);
    return ocore->files.put(path, data, uint32_t(ocore->unitTimeUs() / 1000000));
}

ZList<ZString> SimUnit::fileNames(const ZString& folder) const {
    Lock lock(ocore->mutex);
    return ocore->files.names(folder);
}

// ------------------------------------------------------------ control and faults

void SimUnit::reboot() {
    Lock lock(ocore->linkMutex);
    Lock state(ocore->mutex);
    if (ocore->server)
        ocore->rebootPending = true;
    else
        ocore->restart(false);
}

void SimUnit::pushMessage(unsigned int type, const ZString& text) {
    {
        Lock lock(ocore->mutex);
        ocore->message(type, text.copy());
    }
    ocore->wake();
}

void SimUnit::faultDropAfterBlocks(unsigned int blocks) {
    ocore->dropAfter = blocks;
}

void SimUnit::faultDelayReplies(unsigned int us) {
    ocore->delayUs = us;
}

void SimUnit::faultGarbage(unsigned int bytes, unsigned int packets) {
    Lock lock(ocore->linkMutex);
    if (ocore->wire) {
        ocore->wire->setGarbage(bytes, packets);
        return;
    }
    ocore->garbageBytes = bytes;
    ocore->garbagePackets = packets;
}

void SimUnit::faultErrorReply(uint16_t function, const ZError& err) {
    Lock lock(ocore->mutex);
    ocore->errorReply = err.copy();
    ocore->errorFunction = function;
}

void SimUnit::faultStopStatus(bool on) {
    ocore->noStatus = on;
}

void SimUnit::dropConnection() {
    Lock lock(ocore->linkMutex);
    if (!ocore->server)
        return;
    ocore->dropNow = true;
    ocore->wire->disconnect();
    ocore->linkChanged.notify_all();
}

} // namespace TavroSim
