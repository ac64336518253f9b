#include "tavrounit.h"

#include "commsnet.h"
#include "commsserial.h"
#include "commsusb.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace TavroApi {

unsigned int TavroUnit::blockNumChannels = 16;
unsigned int TavroUnit::blockNumSamples = 13;

namespace {

const char* const PrefixNet = "zoapn://";
const char* const PrefixSerial = "zoaps://";
const char* const PrefixUsb = "zoapu://";
const int PrefixLength = 8;

// "HOST" or "HOST:PORT"; false for an empty host or a port that is not a
// number from 1 to 65535.
bool splitHostPort(const ZString& address, ZString& host, unsigned short& port) {
    host = address;
    port = CommsNet::UnitPort;
    int colon = address.findReverse(':');
    if (colon >= 0) {
        ZString digits = address.subString(colon + 1);
        if (digits.isEmpty() || digits.len() > 5)
            return false;
        for (int i = 0; i < digits.len(); i++)
            if (digits[i] < '0' || digits[i] > '9')
                return false;
        unsigned int p = unsigned(atoi(digits.str()));
        if (p == 0 || p > 0xFFFF)
            return false;
        host = address.subString(0, colon);
        port = (unsigned short)p;
    }
    return !host.isEmpty();
}

ZString fixedText(const char* text, size_t size) {
    return ZString(text, int(strnlen(text, size)));
}

} // namespace

TavroUnit::TavroUnit()
    : Tavro(true, packetMax), onumChannels(0), ocallbackMutex(ZMutex::Recursive), oquit(false),
      okeepConnection(false), oconnectedFlag(false), othreadStarted(false) {}

TavroUnit::~TavroUnit() {
    shutdown();
}

void TavroUnit::shutdown() {
    disconnect();
    if (othreadStarted) {
        oquit = true;
        orun.set();
        waitForCompletion();
        othreadStarted = false;
    }
}

ZError TavroUnit::openTransport(const ZString& url, std::unique_ptr<ZComms>& transport) {
    ZString prefix = url.subString(0, PrefixLength);
    ZString rest = url.subString(PrefixLength);
    ZError err;
    if (prefix == PrefixNet) {
        ZString host;
        unsigned short port;
        if (!splitHostPort(rest, host, port))
            return ZError(1, "Invalid device name: " + url);
        auto net = std::make_unique<CommsNet>(1024, 1024);
        err = net->connect(host, port);
        transport = std::move(net);
    } else if (prefix == PrefixSerial) {
        auto serial = std::make_unique<CommsSerial>();
        err = serial->connect(rest);
        transport = std::move(serial);
    } else if (prefix == PrefixUsb) {
        auto usb = std::make_unique<CommsUsb>();
        err = usb->connect(rest);
        transport = std::move(usb);
    } else {
        return ZError(1, "Invalid device name: " + url);
    }
    if (err) {
        printf("Connect error: %d,%s\n", err.number, err.string.str());
        fflush(stdout);
        transport.reset();
        return ZError(1, "No connection");
    }
    return ZError();
}

ZError TavroUnit::connect(const ZString& url) {
    disconnect();
    std::unique_ptr<ZComms> transport;
    ZError err = openTransport(url, transport);
    if (err)
        return err;
    // A read that stalls inside a packet gives up instead of holding the
    // receive loop (and so disconnect()) for ever.
    transport->setTimeout(replyTimeoutUs);
    {
        ZMutexLock lock(odataMutex);
        odevice = url;
        ochannels.clear();
        onumChannels = 0;
    }
    setTimeout(replyTimeoutUs);
    {
        ZMutexLock link(olinkMutex);
        otransport = std::move(transport);
        setComms(otransport.get());
    }
    if (!othreadStarted) {
        if (ZThread::start() != 0) {
            disconnect();
            return ZError(1, "Unable to start the receive thread");
        }
        othreadStarted = true;
    }
    oconnectedFlag = true;
    orun.set();
    err = readUnit();
    if (err)
        disconnect();
    return err;
}

ZError TavroUnit::readUnit() {
    NodeInfo node;
    ZError err = getNodeInfo(node);
    if (err)
        return err;
    if (node.apiVersion.maj != getApiVersion().majorNo()) {
        ZString text;
        text.printf("API version %u.%u not supported", unsigned(node.apiVersion.maj),
                    unsigned(node.apiVersion.mid));
        return ZError(23, text);
    }
    Information information;
    if ((err = Tavro::getInformation(information)))
        return err;
    ZArray<ChannelConfig> channels;
    channels.reserve(information.numChannels);
    for (unsigned int c = 0; c < information.numChannels; c++) {
        ChannelConfig config;
        if ((err = Tavro::getChannelConfig(c, config)))
            return err;
        channels.append(config);
    }
    ZMutexLock lock(odataMutex);
    oinformation = information;
    ochannels = channels;
    onumChannels = unsigned(ochannels.number());
    return ZError();
}

ZError TavroUnit::disconnect() {
    orun.clear();
    oconnectedFlag = false;
    std::unique_ptr<ZComms> transport, retired;
    {
        // Waits for the receive loop to finish its step.
        ZMutexLock link(olinkMutex);
        setComms(nullptr);
        transport = std::move(otransport);
        retired = std::move(oretired);
    }
    ZError err;
    if (transport)
        err = transport->disconnect();
    // A disconnected() the receive thread had begun has returned.
    ZMutexLock callback(ocallbackMutex);
    return err;
}

bool TavroUnit::isConnected() const {
    return oconnectedFlag;
}

void TavroUnit::dropLink() {
    ZComms* c = otransport.get();
    setComms(nullptr);
    if (c)
        c->disconnect();
    oretired = std::move(otransport);
    orun.clear();
    oconnectedFlag = false;
}

int TavroUnit::function() {
    while (!oquit) {
        if (!orun.value()) {
            orun.wait();
            continue;
        }
        bool lost = false, idle = false, pause = false;
        {
            ZMutexLock link(olinkMutex);
            ZComms* c = otransport.get();
            if (oquit || !orun.value() || !c)
                continue;
            if (!c->isConnected()) {
                idle = true;
            } else {
                // One packet a step. A wait for what is already buffered
                // returns at once; a network link whose peer has closed
                // reports input too, and the read in processRx the close.
                ZError err = c->wait(2, rxWaitUs, 1);
                if (!err)
                    err = processRx();
                if (err && err.number != 4 && err.number != -110 && orun.value()) {
                    if (okeepConnection) {
                        pause = true;
                    } else {
                        dropLink();
                        lost = true;
                        // Taken before the link mutex goes, so that a
                        // disconnect() coming now waits for disconnected().
                        ocallbackMutex.lock();
                    }
                }
            }
        }
        if (lost) {
            disconnected();
            ocallbackMutex.unlock();
        } else if (idle) {
            delayMs(100);
        } else if (pause) {
            delayMs(10);
        }
    }
    return 0;
}

ZString TavroUnit::device() const {
    ZMutexLock lock(odataMutex);
    return odevice.copy();
}

ZString TavroUnit::serialNumber() const {
    ZMutexLock lock(odataMutex);
    return fixedText(onodeInfo.serialNumber, sizeof(onodeInfo.serialNumber));
}

Information TavroUnit::info() const {
    ZMutexLock lock(odataMutex);
    return oinformation;
}

unsigned int TavroUnit::numChannels() const {
    return onumChannels;
}

NodeInfo TavroUnit::nodeInfo() const {
    ZMutexLock lock(odataMutex);
    return onodeInfo;
}

ChannelConfig TavroUnit::channelConfig(unsigned int channel) const {
    ZMutexLock lock(odataMutex);
    return channel < unsigned(ochannels.number()) ? ochannels[int(channel)] : ChannelConfig();
}

MeasurementConfig TavroUnit::measurementConfig() const {
    ZMutexLock lock(odataMutex);
    return omeasurementConfig;
}

ZError TavroUnit::getNodeInfo(NodeInfo& info) {
    ZError err = Tavro::getNodeInfo(info);
    if (!err) {
        ZMutexLock lock(odataMutex);
        onodeInfo = info;
    }
    return err;
}

ZError TavroUnit::setChannelConfig(unsigned char channel, const ChannelConfig& config) {
    ZError err = Tavro::setChannelConfig(channel, config);
    if (!err) {
        ZMutexLock lock(odataMutex);
        if (channel < ochannels.number())
            ochannels[channel] = config;
    }
    return err;
}

ZError TavroUnit::setMeasurementConfig(bool which, const MeasurementConfig& config) {
    ZError err = Tavro::setMeasurementConfig(which, config);
    if (!err && !which) {
        ZMutexLock lock(odataMutex);
        omeasurementConfig = config;
    }
    return err;
}

void TavroUnit::disconnected() {}

ZError TavroUnit::sendDataFloatServe(const DataBlockFloat&) {
    return ZError();
}

ZError TavroUnit::sendDataProcServe(const DataBlockProc&) {
    return ZError();
}

ZError TavroUnit::sendDataServe(const DataBlock& block) {
    if (onumChannels < blockNumChannels) {
        puts("TavroUnit::sendDataServe: invalid number of channels in block, ignoring block");
        return ZError(1, "Invalid number of channels");
    }
    if (block.numSamples > blockNumSamples) {
        puts("TavroUnit::sendDataServe: invalid number of samples in block, ignoring block");
        return ZError(1, "Invalid number of samples");
    }
    switch (block.type) {
    case DataType::Raw40x: {
        ZError err = processdataBlock(block, ofloatBlock);
        if (err) {
            printf("TavroUnit::sendDataServe: %s, ignoring block\n", err.string.str());
            return err;
        }
        return sendDataFloatServe(ofloatBlock);
    }
    case DataType::Proc: {
        DataBlockProc proc;
        static_assert(sizeof(DataBlockProc) <= sizeof(DataBlock),
                      "a processed block is sent whole");
        memcpy(static_cast<void*>(&proc), &block, sizeof(proc));
        return sendDataProcServe(proc);
    }
    default:
        return ZError();
    }
}

ZError TavroUnit::processdataBlock(const DataBlock& in, DataBlockFloat& out) {
    if (in.type != DataType::Raw40x) {
        static_assert(sizeof(DataBlock) <= sizeof(DataBlockFloat), "a block fits a float block");
        out = DataBlockFloat();
        memcpy(static_cast<void*>(&out), &in, sizeof(in));
        return ZError();
    }
    // Each row is numChannels words, the digital bits in word 8: a row
    // narrower than that, or rows beyond the block's 118 words, would be
    // read from outside it.
    const unsigned int rowWords = in.numChannels;
    const unsigned int rows = in.numSamples;
    if (rowWords < unsigned(DataBlock::rawRowWords) ||
        rowWords * rows > unsigned(DataBlock::dataMax))
        return ZError(1, "Invalid data block");
    // The float block holds 16 channels of 13 samples however the class-wide
    // sizes are set
    // (at most 13 rows pass the test above).
    static_assert(DataBlock::dataMax / DataBlock::rawRowWords <= DataBlockFloat::samplesMax,
                  "the rows of a raw block fit a float block");
    const unsigned int channels = std::min(blockNumChannels, unsigned(DataBlockFloat::channelsMax));

    // Written whole: the header, the rows, zeros behind them.
    copyDataBlockHeader(out, in);
    out.numChannels = uint16_t(channels);
    out.numSamples = uint16_t(rows);
    out.type = DataType::Float32;
    memset(out.pad0, 0, sizeof(out.pad0));
    memset(out.data + rows * channels, 0, sizeof(out.data) - rows * channels * sizeof(out.data[0]));
    for (unsigned int s = 0; s < rows; s++) {
        const float* row = in.data + s * rowWords;
        float* to = out.data + s * channels;
        uint32_t bits;
        memcpy(&bits, &row[DataBlock::rawAnalogue], sizeof(bits));
        for (unsigned int c = 0; c < channels; c++) {
            if (c < unsigned(DataBlock::rawAnalogue))
                to[c] = row[c];
            else
                to[c] = (bits >> (c - DataBlock::rawAnalogue)) & 1 ? 1.0f : 0.0f;
        }
    }
    return ZError();
}

} // namespace TavroApi
