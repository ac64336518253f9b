#ifndef TAVROUNIT_H
#define TAVROUNIT_H

#include "tavro.h"
#include "zarray.h"
#include "zcomms.h"
#include "zcond.h"
#include "zlist.h"
#include "zmutex.h"
#include "zstring.h"
#include "zthread.h"

#include <atomic>
#include <memory>

namespace TavroApi {

// A unit found on the network or on USB.
struct TavroUnitDevice {
    ZString name;   // the unit's serial number or service name
    ZString device; // the URL that connects to it ("zoapn://10.0.0.5", "zoapu://T400-000001")
    ZString type;   // "network" or "usb"
};

// One connected unit: a Tavro channel with its own receive thread.
//
// URLs: "zoapn://HOST" (TCP, port 40358; "zoapn://HOST:PORT" picks another
// port), "zoaps://DEVICE" (a serial tty), "zoapu://SERIAL" (USB).
//
// The receive thread lives from the first connect() to the destructor and
// idles while the unit is not connected. When the link fails it disconnects
// and detaches the transport, calls disconnected() once and goes back to
// idling; the transport object itself is freed by the next connect(),
// disconnect() or the destructor, so a client call still running on another
// thread never touches freed memory (it fails with "No connection").
//
// connect(), disconnect() and the destructor belong to the owner; client
// calls may come from any thread while the unit is connected, and must have
// returned before the owner disconnects (disconnect() frees the transport).
// The pushed data and status are served on the receive thread, one packet a
// step of the loop; disconnect() waits for the step under way (at most
// rxWaitUs, or one packet) and for a disconnected() under way, so that
// neither runs once it has returned. The transport's own read time-out is
// replyTimeoutUs, so a packet that stops half way cannot hold the loop for
// ever.
class TavroUnit : public Tavro, public ZThread {
public:
    // Channels per unit in a merged block and the most samples a block may
    // carry per channel. Change them only while no unit is connected.
    static unsigned int blockNumChannels; // 16
    static unsigned int blockNumSamples;  // 13

    static constexpr unsigned int replyTimeoutUs = 5000000;
    // The largest packet taken from a unit: every record (the biggest reply,
    // a Configuration or FileData, is 572 bytes) and messages of a few
    // thousand characters.
    static constexpr unsigned int packetMax = 4096;
    // How long one wait of the receive loop lasts.
    static constexpr unsigned int rxWaitUs = 100000;
    static constexpr uint16_t usbVendorId = 0x0483;
    static constexpr uint16_t usbProductId = 0xA2E0;

    TavroUnit();
    ~TavroUnit() override;

    // Connects by URL, checks the unit's API version and reads its
    // information and channel configurations.
    ZError connect(const ZString& url);
    ZError disconnect();
    bool isConnected() const;

    // The URL last connected to.
    ZString device() const;
    // The serial number the unit reported at connect.
    ZString serialNumber() const;
    Information info() const;
    unsigned int numChannels() const;
    NodeInfo nodeInfo() const;
    // A copy of channel's configuration, an empty one beyond numChannels().
    ChannelConfig channelConfig(unsigned int channel) const;
    // The measurement configuration last set in force (which = false)
    // through this unit; empty before.
    MeasurementConfig measurementConfig() const;

    // The unit's calls that also update the copies kept here (the
    // measurement configuration only for which = false, the one in force).
    ZError getNodeInfo(NodeInfo& info);
    ZError setChannelConfig(unsigned char channel, const ChannelConfig& config);
    ZError setMeasurementConfig(bool which, const MeasurementConfig& config);
    using Tavro::getChannelConfig;

    // Keeps the link after a receive error instead of dropping it.
    void setKeepConnection(bool on) { okeepConnection = on; }

    // The link was lost (receive thread).
    virtual void disconnected();
    // A raw block converted to floats, or a processed block (receive thread).
    virtual ZError sendDataFloatServe(const DataBlockFloat& block);
    virtual ZError sendDataProcServe(const DataBlockProc& block);

    // Checks a pushed block's sizes, converts and forwards it.
    ZError sendDataServe(const DataBlock& block) override;

    // Turns a raw block (9 words a row: 8 Float32 values and the digital
    // bits) into 16 float channels; any other type is copied as it is.
    // Refuses a block whose rows would not fit: 1 "Invalid data block".
    static ZError processdataBlock(const DataBlock& in, DataBlockFloat& out);

    // Units answering the mDNS query for "_tavro._tcp.local.".
    static ZError findDevicesNetwork(ZList<TavroUnitDevice>& found, unsigned int timeoutMs = 1000);
    // Units on USB (vendor 0x0483, product 0xA2E0), named by serial number.
    static ZError findDevicesUsb(ZList<TavroUnitDevice>& found);

protected:
    // The receive loop.
    int function() override;
    // Disconnects and ends the receive thread; a subclass whose overrides
    // the thread calls (disconnected, the serving operations) calls it in its
    // own destructor, before its part of the object goes.
    void shutdown();

private:
    ZError openTransport(const ZString& url, std::unique_ptr<ZComms>& transport);
    // Node information, API version, information and channel configurations.
    ZError readUnit();
    // The receive thread lost the link: detaches it (olinkMutex held).
    void dropLink();

    mutable ZMutex odataMutex; // the copies below
    ZString odevice;
    NodeInfo onodeInfo;
    Information oinformation;
    ZArray<ChannelConfig> ochannels;
    MeasurementConfig omeasurementConfig;
    std::atomic<unsigned int> onumChannels; // ochannels.number(), for the receive thread

    // The transport and one step of the receive loop (a wait and the packets
    // that came) are under olinkMutex; disconnected() runs under
    // ocallbackMutex, which disconnect() takes last so that no call of it
    // is still running when disconnect() returns.
    ZMutex olinkMutex;
    ZMutex ocallbackMutex;
    std::unique_ptr<ZComms> otransport; // owned; freed by the owner only
    std::unique_ptr<ZComms> oretired;   // a link dropped by the receive thread
    DataBlockFloat ofloatBlock;         // receive thread only
    ZCondBool orun;                     // the receive loop may run
    std::atomic<bool> oquit;
    std::atomic<bool> okeepConnection;
    std::atomic<bool> oconnectedFlag;
    bool othreadStarted; // owner only
};

} // namespace TavroApi

#endif
