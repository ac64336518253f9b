#include "comms/usbmock.h"

#include <umockdev.h>

#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <deque>
#include <dlfcn.h>
#include <fcntl.h>
#include <list>
#include <mutex>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace usbmock {

Bytes Setup::bytes() const {
    return Bytes{requestType,
                 request,
                 uint8_t(value & 0xFF),
                 uint8_t(value >> 8),
                 uint8_t(index & 0xFF),
                 uint8_t(index >> 8),
                 uint8_t(length & 0xFF),
                 uint8_t(length >> 8)};
}

namespace {

const uint8_t DescDevice = 1;
const uint8_t DescConfig = 2;
const uint8_t DescString = 3;
const uint8_t GetDescriptor = 6;
const size_t SetupSize = 8;

Bytes le16(uint16_t v) {
    return Bytes{uint8_t(v & 0xFF), uint8_t(v >> 8)};
}

void append(Bytes& to, const Bytes& from) {
    to.insert(to.end(), from.begin(), from.end());
}

std::string hex(const Bytes& b) {
    std::string s;
    char two[3];
    for (uint8_t c : b) {
        snprintf(two, sizeof(two), "%02X", c);
        s += two;
    }
    return s;
}

Bytes stringDescriptor(const std::string& text) {
    size_t n = std::min<size_t>(text.size(), 126);
    Bytes d{uint8_t(2 + 2 * n), DescString};
    for (size_t i = 0; i < n; i++) {
        d.push_back(uint8_t(text[i]));
        d.push_back(0);
    }
    return d;
}

Bytes defaultConfigDescriptor(uint16_t maxPacket) {
    Bytes d{9, DescConfig, 32, 0, 1, 1, 0, 0x80, 50}; // one interface
    append(d, Bytes{9, 4, 0, 0, 2, 0xFF, 0, 0, 0});   // interface 0, vendor
    append(d, Bytes{7, 5, 0x81, 2, uint8_t(maxPacket & 0xFF), uint8_t(maxPacket >> 8), 0});
    append(d, Bytes{7, 5, 0x01, 2, uint8_t(maxPacket & 0xFF), uint8_t(maxPacket >> 8), 0});
    return d;
}

// One URB the client submitted, with our references to its memory. The
// client's memory (data, buffer) is only touched on umockdev's worker thread:
// bytes for an IN transfer are collected in `in` and copied over at reap.
struct Urb {
    UMockdevIoctlClient* client; // identity only
    UMockdevIoctlData* data;     // the usbdevfs_urb (reference held)
    UMockdevIoctlData* buffer;   // its buffer (reference held), null when empty
    uint8_t type;
    uint8_t endpoint;
    int length; // of the data stage (a control URB's buffer has the setup first)
    int actual;
    int status;
    int extra; // bytes over-reported at reap
    Bytes in;  // received data stage

    uint8_t* bytes() const { return buffer ? buffer->data : nullptr; }
    void release() {
        if (buffer)
            g_object_unref(buffer);
        if (data)
            g_object_unref(data);
        buffer = data = nullptr;
    }
};

} // namespace

struct UsbMockDevice::State {
    DeviceConfig config;
    UMockdevTestbed* testbed = nullptr; // owned by the bus
    std::string sysPath;
    std::string devNode;
    int fifo = -1;
    UMockdevIoctlBase* handler = nullptr;
    Bytes deviceDescriptor;
    Bytes configDescriptor;
    std::map<uint8_t, std::string> strings;

    mutable std::mutex m;
    mutable std::condition_variable changed;
    bool gone = false;
    bool closing = false;
    std::set<UMockdevIoctlClient*> clients; // open handles
    std::list<Urb> pending;                 // IN transfers waiting for data
    std::list<Urb> done;                    // finished, waiting to be reaped
    std::map<uint8_t, std::deque<Bytes>> inPackets;
    std::map<uint8_t, int> failIn, failOut, overReport;
    int claimError = 0;
    ControlHandler controlHandler;
    std::vector<OutTransfer> outs;
    std::vector<ControlRequest> controls;
    std::vector<InRequest> ins;
    std::vector<InterfaceEvent> ifEvents;

    ~State() {
        for (Urb& u : pending)
            u.release();
        for (Urb& u : done)
            u.release();
        if (fifo >= 0)
            close(fifo);
        if (handler)
            g_object_unref(handler);
    }

    // libusb sleeps in poll() for POLLOUT on the device node, which is a FIFO
    // here: kept full it is not writable, drained it wakes libusb up to reap.
    void sleepLocked() {
        static const char filler[4096] = {};
        while (write(fifo, filler, sizeof(filler)) > 0) {
        }
    }
    void wakeLocked() {
        char sink[4096];
        while (read(fifo, sink, sizeof(sink)) > 0) {
        }
    }
    void updateWakeLocked() {
        if (done.empty())
            sleepLocked();
        else
            wakeLocked();
        changed.notify_all();
    }

    void finishLocked(std::list<Urb>::iterator it, int status) {
        it->status = status;
        done.splice(done.end(), pending, it);
    }

    // Moves queued IN packets into the pending transfers, in order.
    void fillLocked() {
        for (auto it = pending.begin(); it != pending.end();) {
            std::deque<Bytes>& q = inPackets[it->endpoint];
            if (q.empty()) {
                ++it;
                continue;
            }
            auto next = std::next(it);
            while (!q.empty()) {
                Bytes p = std::move(q.front());
                q.pop_front();
                size_t room = size_t(it->length) - it->in.size();
                if (p.size() > room) { // babble: more than the buffer holds
                    it->in.insert(it->in.end(), p.begin(), p.begin() + long(room));
                    finishLocked(it, -EOVERFLOW);
                    break;
                }
                it->in.insert(it->in.end(), p.begin(), p.end());
                if (p.size() < config.maxPacket || it->in.size() == size_t(it->length)) {
                    auto over = overReport.find(it->endpoint);
                    if (over != overReport.end()) {
                        it->extra = over->second;
                        overReport.erase(over);
                    }
                    finishLocked(it, 0);
                    break;
                }
            }
            it = next;
        }
        updateWakeLocked();
    }

    bool standardRequest(const Setup& s, ControlReply& reply) {
        if (s.requestType != 0x80 || s.request != GetDescriptor)
            return false;
        uint8_t type = uint8_t(s.value >> 8), index = uint8_t(s.value & 0xFF);
        reply = ControlReply::stalled();
        if (type == DescDevice)
            reply = ControlReply::reply(deviceDescriptor);
        else if (type == DescConfig && index == 0)
            reply = ControlReply::reply(configDescriptor);
        else if (type == DescString && index == 0)
            reply = ControlReply::reply(Bytes{4, DescString, 0x09, 0x04});
        else if (type == DescString && strings.count(index))
            reply = ControlReply::reply(stringDescriptor(strings[index]));
        return true;
    }

    void control(std::unique_lock<std::mutex>& lock, Urb& u) {
        if (u.length < int(SetupSize)) {
            u.status = -EINVAL;
            return;
        }
        const uint8_t* b = u.bytes();
        Setup s{b[0], b[1], uint16_t(b[2] | b[3] << 8), uint16_t(b[4] | b[5] << 8),
                uint16_t(b[6] | b[7] << 8)};
        u.length -= int(SetupSize);
        int room = std::min<int>(s.length, u.length);
        Bytes out;
        if (!s.isIn())
            out.assign(b + SetupSize, b + SetupSize + room);

        ControlReply reply;
        if (!standardRequest(s, reply)) {
            ControlHandler h = controlHandler;
            lock.unlock(); // the handler may take its time and its own locks
            if (h)
                reply = h(s, out);
            else
                reply = s.isIn() ? ControlReply::stalled() : ControlReply::ack();
            lock.lock();
        }

        ControlRequest rec{s, out, reply.stall};
        if (reply.stall) {
            u.status = -EPIPE;
        } else if (s.isIn()) {
            int n = std::min<int>(int(reply.data.size()), room);
            u.in.assign(reply.data.begin(), reply.data.begin() + n);
            rec.data = u.in;
        } else {
            u.actual = room;
        }
        controls.push_back(rec);
    }

    void submit(UMockdevIoctlClient* client, UMockdevIoctlData* arg) {
        std::unique_lock<std::mutex> lock(m);
        if (gone || closing) {
            umockdev_ioctl_client_complete(client, -1, ENODEV);
            return;
        }
        Urb u{client, nullptr, nullptr, 0, 0, 0, 0, 0, 0, {}};
        u.data = umockdev_ioctl_data_resolve(arg, 0, sizeof(usbdevfs_urb), nullptr);
        if (!u.data) {
            umockdev_ioctl_client_complete(client, -1, EFAULT);
            return;
        }
        usbdevfs_urb* k = reinterpret_cast<usbdevfs_urb*>(u.data->data);
        u.type = k->type;
        u.endpoint = k->endpoint;
        u.length = std::max(k->buffer_length, 0);
        if (u.length > 0)
            u.buffer = umockdev_ioctl_data_resolve(u.data, offsetof(usbdevfs_urb, buffer),
                                                   size_t(u.length), nullptr);
        if (u.length > 0 && !u.buffer) {
            u.release();
            umockdev_ioctl_client_complete(client, -1, EFAULT);
            return;
        }
        bool in = (u.endpoint & 0x80) != 0;

        if (u.type == USBDEVFS_URB_TYPE_CONTROL) {
            control(lock, u);
        } else if (u.type != USBDEVFS_URB_TYPE_BULK && u.type != USBDEVFS_URB_TYPE_INTERRUPT) {
            u.release();
            umockdev_ioctl_client_complete(client, -1, EINVAL);
            return;
        } else if (!in) {
            auto f = failOut.find(u.endpoint);
            if (f != failOut.end()) {
                u.status = f->second;
                failOut.erase(f);
            } else {
                u.actual = u.length;
            }
            outs.push_back(
                OutTransfer{u.endpoint, Bytes(u.bytes(), u.bytes() + u.length), u.status});
        } else {
            ins.push_back(InRequest{u.endpoint, u.length});
            auto f = failIn.find(u.endpoint);
            if (f != failIn.end()) {
                u.status = f->second;
                failIn.erase(f);
            } else {
                pending.push_back(u);
                umockdev_ioctl_client_complete(client, 0, 0);
                fillLocked();
                return;
            }
        }
        done.push_back(u);
        umockdev_ioctl_client_complete(client, 0, 0);
        updateWakeLocked();
    }

    void reap(UMockdevIoctlClient* client, UMockdevIoctlData* arg) {
        std::lock_guard<std::mutex> lock(m);
        auto it = std::find_if(done.begin(), done.end(),
                               [client](const Urb& u) { return u.client == client; });
        if (it == done.end()) {
            updateWakeLocked();
            umockdev_ioctl_client_complete(client, -1, gone ? ENODEV : EAGAIN);
            return;
        }
        usbdevfs_urb* k = reinterpret_cast<usbdevfs_urb*>(it->data->data);
        if (!it->in.empty()) {
            size_t offset = it->type == USBDEVFS_URB_TYPE_CONTROL ? SetupSize : 0;
            memcpy(it->bytes() + offset, it->in.data(), it->in.size());
            it->actual = int(it->in.size());
        }
        k->status = it->status;
        k->actual_length = it->actual + it->extra;
        UMockdevIoctlData* ptr = umockdev_ioctl_data_resolve(arg, 0, sizeof(void*), nullptr);
        if (ptr) {
            umockdev_ioctl_data_set_ptr(ptr, 0, it->data);
            umockdev_ioctl_client_complete(client, 0, 0);
            g_object_unref(ptr);
        } else {
            umockdev_ioctl_client_complete(client, -1, EFAULT);
        }
        it->release();
        done.erase(it);
        updateWakeLocked();
    }

    void discard(UMockdevIoctlClient* client, UMockdevIoctlData* arg) {
        std::lock_guard<std::mutex> lock(m);
        unsigned long addr = 0;
        memcpy(&addr, arg->data, std::min(sizeof(addr), size_t(arg->data_len)));
        auto it = std::find_if(pending.begin(), pending.end(), [&](const Urb& u) {
            return u.client == client && u.data->client_addr == addr;
        });
        if (it == pending.end()) {
            umockdev_ioctl_client_complete(client, -1, EINVAL);
            return;
        }
        finishLocked(it, -ENOENT); // bytes already received stay with it
        umockdev_ioctl_client_complete(client, 0, 0);
        updateWakeLocked();
    }

    void interfaceEvent(UMockdevIoctlClient* client, UMockdevIoctlData* arg,
                        InterfaceEvent::Kind kind) {
        std::lock_guard<std::mutex> lock(m);
        if (gone) {
            umockdev_ioctl_client_complete(client, -1, ENODEV);
            return;
        }
        InterfaceEvent e{kind, 0, 0};
        size_t size = kind == InterfaceEvent::Claim || kind == InterfaceEvent::Release
                          ? sizeof(unsigned int)
                          : sizeof(usbdevfs_setinterface);
        UMockdevIoctlData* p = umockdev_ioctl_data_resolve(arg, 0, size, nullptr);
        if (p && kind == InterfaceEvent::SetAltSetting) {
            const usbdevfs_setinterface* si =
                reinterpret_cast<const usbdevfs_setinterface*>(p->data);
            e.interface = si->interface;
            e.altSetting = si->altsetting;
        } else if (p) {
            memcpy(&e.interface, p->data, sizeof(unsigned int));
        }
        if (p)
            g_object_unref(p);
        if (kind == InterfaceEvent::Claim && claimError) {
            umockdev_ioctl_client_complete(client, -1, claimError);
            return;
        }
        ifEvents.push_back(e);
        umockdev_ioctl_client_complete(client, 0, 0);
    }

    gboolean handleIoctl(UMockdevIoctlClient* client) {
        unsigned long request = umockdev_ioctl_client_get_request(client);
        UMockdevIoctlData* arg = umockdev_ioctl_client_get_arg(client);

        switch (request) {
        case USBDEVFS_GET_CAPABILITIES: {
            UMockdevIoctlData* p = umockdev_ioctl_data_resolve(arg, 0, sizeof(uint32_t), nullptr);
            if (p) {
                uint32_t caps = USBDEVFS_CAP_BULK_SCATTER_GATHER | USBDEVFS_CAP_BULK_CONTINUATION |
                                USBDEVFS_CAP_NO_PACKET_SIZE_LIM |
                                USBDEVFS_CAP_REAP_AFTER_DISCONNECT | USBDEVFS_CAP_ZERO_PACKET;
                memcpy(p->data, &caps, sizeof(caps));
                g_object_unref(p);
            }
            umockdev_ioctl_client_complete(client, 0, 0);
            return TRUE;
        }
        case USBDEVFS_SUBMITURB:
            submit(client, arg);
            return TRUE;
        case USBDEVFS_REAPURB:
        case USBDEVFS_REAPURBNDELAY:
            reap(client, arg);
            return TRUE;
        case USBDEVFS_DISCARDURB:
            discard(client, arg);
            return TRUE;
        case USBDEVFS_CLAIMINTERFACE:
        case USBDEVFS_DISCONNECT_CLAIM: // same layout: the interface number first
            interfaceEvent(client, arg, InterfaceEvent::Claim);
            return TRUE;
        case USBDEVFS_RELEASEINTERFACE:
            interfaceEvent(client, arg, InterfaceEvent::Release);
            return TRUE;
        case USBDEVFS_SETINTERFACE:
            interfaceEvent(client, arg, InterfaceEvent::SetAltSetting);
            return TRUE;
        case USBDEVFS_SETCONFIGURATION:
        case USBDEVFS_CLEAR_HALT:
        case USBDEVFS_RESETEP:
        case USBDEVFS_RESET: {
            std::lock_guard<std::mutex> lock(m);
            umockdev_ioctl_client_complete(client, gone ? -1 : 0, gone ? ENODEV : 0);
            return TRUE;
        }
        case USBDEVFS_GETDRIVER:
        case USBDEVFS_IOCTL: // no kernel driver is ever bound
            umockdev_ioctl_client_complete(client, -1, ENODATA);
            return TRUE;
        default:
            fprintf(stderr, "usbmock: %s: unhandled ioctl 0x%lx\n", devNode.c_str(), request);
            umockdev_ioctl_client_complete(client, -1, ENOTTY);
            return TRUE;
        }
    }

    void clientConnected(UMockdevIoctlClient* client) {
        std::lock_guard<std::mutex> lock(m);
        clients.insert(client);
        // umockdev has no signal for a closed client: watch its "connected"
        // property and, should that never change, its end.
        g_signal_connect(client, "notify::connected", G_CALLBACK(onClientNotify), this);
        g_object_weak_ref(G_OBJECT(client), onClientGone, this);
        changed.notify_all();
    }

    void unwatchLocked(UMockdevIoctlClient* client) {
        g_signal_handlers_disconnect_by_data(client, this);
        g_object_weak_unref(G_OBJECT(client), onClientGone, this);
    }

    void clientVanished(UMockdevIoctlClient* client, bool finalized) {
        std::lock_guard<std::mutex> lock(m);
        if (!clients.erase(client))
            return;
        if (!finalized)
            unwatchLocked(client);
        for (std::list<Urb>* l : {&pending, &done}) {
            for (auto it = l->begin(); it != l->end();) {
                if (it->client == client) {
                    it->release();
                    it = l->erase(it);
                } else {
                    ++it;
                }
            }
        }
        updateWakeLocked();
    }

    static gboolean onIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
        return static_cast<State*>(self)->handleIoctl(client);
    }
    static void onConnected(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
        static_cast<State*>(self)->clientConnected(client);
    }
    static void onClientNotify(GObject* client, GParamSpec*, gpointer self) {
        UMockdevIoctlClient* c = reinterpret_cast<UMockdevIoctlClient*>(client);
        if (!umockdev_ioctl_client_get_connected(c))
            static_cast<State*>(self)->clientVanished(c, false);
    }
    static void onClientGone(gpointer self, GObject* client) {
        static_cast<State*>(self)->clientVanished(reinterpret_cast<UMockdevIoctlClient*>(client),
                                                  true);
    }
};

UsbMockDevice::UsbMockDevice() : d(new State) {}
UsbMockDevice::~UsbMockDevice() {}

const std::string& UsbMockDevice::sysPath() const {
    return d->sysPath;
}
const std::string& UsbMockDevice::devNode() const {
    return d->devNode;
}

void UsbMockDevice::queueIn(uint8_t ep, const Bytes& data, bool terminate) {
    std::lock_guard<std::mutex> lock(d->m);
    std::deque<Bytes>& q = d->inPackets[ep];
    size_t mp = d->config.maxPacket;
    for (size_t pos = 0; pos < data.size(); pos += mp)
        q.push_back(Bytes(data.begin() + pos, data.begin() + std::min(data.size(), pos + mp)));
    if (terminate && data.size() % mp == 0)
        q.push_back(Bytes()); // zero-length packet ends the transfer
    d->fillLocked();
}

void UsbMockDevice::failNextIn(uint8_t ep, int status) {
    std::lock_guard<std::mutex> lock(d->m);
    d->failIn[ep] = status;
}
void UsbMockDevice::overReportNextIn(uint8_t ep, int extra) {
    std::lock_guard<std::mutex> lock(d->m);
    d->overReport[ep] = extra;
}
void UsbMockDevice::failNextOut(uint8_t ep, int status) {
    std::lock_guard<std::mutex> lock(d->m);
    d->failOut[ep] = status;
}
void UsbMockDevice::failClaim(int err) {
    std::lock_guard<std::mutex> lock(d->m);
    d->claimError = err;
}
void UsbMockDevice::setControlHandler(ControlHandler handler) {
    std::lock_guard<std::mutex> lock(d->m);
    d->controlHandler = std::move(handler);
}

std::vector<OutTransfer> UsbMockDevice::outTransfers() const {
    std::lock_guard<std::mutex> lock(d->m);
    return d->outs;
}
std::vector<ControlRequest> UsbMockDevice::controlRequests() const {
    std::lock_guard<std::mutex> lock(d->m);
    return d->controls;
}
std::vector<InRequest> UsbMockDevice::inRequests() const {
    std::lock_guard<std::mutex> lock(d->m);
    return d->ins;
}
std::vector<InterfaceEvent> UsbMockDevice::interfaceEvents() const {
    std::lock_guard<std::mutex> lock(d->m);
    return d->ifEvents;
}
int UsbMockDevice::openCount() const {
    std::lock_guard<std::mutex> lock(d->m);
    return int(d->clients.size());
}
int UsbMockDevice::pendingIn(uint8_t ep) const {
    std::lock_guard<std::mutex> lock(d->m);
    return int(std::count_if(d->pending.begin(), d->pending.end(),
                             [ep](const Urb& u) { return u.endpoint == ep; }));
}
bool UsbMockDevice::waitPendingIn(uint8_t ep, int timeoutMs) const {
    std::unique_lock<std::mutex> lock(d->m);
    return d->changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
        return std::any_of(d->pending.begin(), d->pending.end(),
                           [ep](const Urb& u) { return u.endpoint == ep; });
    });
}
void UsbMockDevice::clearRecords() {
    std::lock_guard<std::mutex> lock(d->m);
    d->outs.clear();
    d->controls.clear();
    d->ins.clear();
    d->ifEvents.clear();
}

void UsbMockDevice::unplug() {
    {
        std::lock_guard<std::mutex> lock(d->m);
        if (d->gone)
            return;
        d->gone = true;
        while (!d->pending.empty())
            d->finishLocked(d->pending.begin(), -ENODEV);
        d->updateWakeLocked();
    }
    umockdev_testbed_uevent(d->testbed, d->sysPath.c_str(), "remove");
    umockdev_testbed_remove_device(d->testbed, d->sysPath.c_str());
}

bool UsbMockDevice::plugged() const {
    std::lock_guard<std::mutex> lock(d->m);
    return !d->gone;
}

struct UsbMockBus::Impl {
    UMockdevTestbed* testbed = nullptr;
    std::string root;
    int nextDevice = 2;
    std::vector<std::unique_ptr<UsbMockDevice>> devices;
};

bool UsbMockBus::available(std::string* why) {
    // umockdev_in_mock_environment() caches its first answer, which is false
    // until a testbed exists; ask the loader whether the preload is in.
    if (void* preload = dlopen("libumockdev-preload.so.0", RTLD_NOW | RTLD_NOLOAD)) {
        dlclose(preload);
        return true;
    }
    if (why)
        *why = "not running under umockdev-wrapper (LD_PRELOAD of libumockdev-preload)";
    return false;
}

UsbMockBus::UsbMockBus() : d(new Impl) {
    d->testbed = umockdev_testbed_new();
    gchar* root = umockdev_testbed_get_root_dir(d->testbed);
    d->root = root;
    g_free(root);
}

UsbMockBus::~UsbMockBus() {
    for (auto& dev : d->devices) {
        std::lock_guard<std::mutex> lock(dev->d->m);
        dev->d->closing = true;
        for (UMockdevIoctlClient* c : dev->d->clients)
            dev->d->unwatchLocked(c);
        dev->d->clients.clear();
    }
    for (auto& dev : d->devices) {
        umockdev_testbed_detach_ioctl(d->testbed, dev->d->devNode.c_str(), nullptr);
        g_signal_handlers_disconnect_by_data(dev->d->handler, dev->d.get());
    }
    g_object_unref(d->testbed);
    d->devices.clear();
}

UsbMockDevice& UsbMockBus::addDevice(const DeviceConfig& config) {
    std::unique_ptr<UsbMockDevice> dev(new UsbMockDevice);
    UsbMockDevice::State& s = *dev->d;
    int num = d->nextDevice++;
    char node[64], sys[96];
    snprintf(node, sizeof(node), "/dev/bus/usb/001/%03d", num);
    snprintf(sys, sizeof(sys), "/devices/pci0000:00/0000:00:14.0/usb1/1-%d", num - 1);
    s.config = config;
    if (s.config.maxPacket == 0)
        s.config.maxPacket = 512;
    s.testbed = d->testbed;
    s.devNode = node;
    s.sysPath = std::string("/sys") + sys;

    s.strings = config.strings;
    uint8_t iManufacturer = 0, iProduct = 0, iSerial = 0;
    if (!config.manufacturer.empty())
        s.strings[iManufacturer = 1] = config.manufacturer;
    if (!config.product.empty())
        s.strings[iProduct = 2] = config.product;
    if (config.hasSerial)
        s.strings[iSerial = 3] = config.serial;
    s.configDescriptor = config.configDescriptor.empty()
                             ? defaultConfigDescriptor(s.config.maxPacket)
                             : config.configDescriptor;
    s.deviceDescriptor = Bytes{18, DescDevice, 0x00, 0x02, 0, 0, 0, 64};
    append(s.deviceDescriptor, le16(config.vendorId));
    append(s.deviceDescriptor, le16(config.productId));
    append(s.deviceDescriptor, le16(config.bcdDevice));
    append(s.deviceDescriptor, Bytes{iManufacturer, iProduct, iSerial, 1});

    // The handler must be in place before the device appears.
    s.handler = umockdev_ioctl_base_new();
    g_signal_connect_after(s.handler, "handle-ioctl", G_CALLBACK(UsbMockDevice::State::onIoctl),
                           &s);
    g_signal_connect(s.handler, "client-connected", G_CALLBACK(UsbMockDevice::State::onConnected),
                     &s);
    umockdev_testbed_attach_ioctl(d->testbed, node, s.handler, nullptr);

    char text[1024];
    snprintf(text, sizeof(text),
             "P: %s\nN: %s\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: DEVNAME=%s\n"
             "E: BUSNUM=001\nE: DEVNUM=%03d\nE: MAJOR=189\nE: MINOR=%d\n"
             "A: busnum=1\\n\nA: devnum=%d\\n\nA: speed=480\\n\nA: bConfigurationValue=1\\n\n",
             sys, node + 5, node, num, num - 1, num);
    std::string desc = text;
    Bytes all = s.deviceDescriptor;
    append(all, s.configDescriptor);
    desc += "H: descriptors=" + hex(all) + "\n";
    GError* err = nullptr;
    if (!umockdev_testbed_add_from_string(d->testbed, desc.c_str(), &err)) {
        fprintf(stderr, "usbmock: cannot add %s: %s\n", node, err ? err->message : "?");
        g_clear_error(&err);
    }

    // Replace the plain-file node by a FIFO so that libusb's poll() sleeps.
    std::string path = d->root + node;
    unlink(path.c_str());
    if (mkfifo(path.c_str(), 0666) == 0)
        s.fifo = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (s.fifo < 0) {
        fprintf(stderr, "usbmock: cannot make FIFO %s: %s\n", path.c_str(), strerror(errno));
    } else {
        fcntl(s.fifo, F_SETPIPE_SZ, 4096);
        std::lock_guard<std::mutex> lock(s.m);
        s.sleepLocked();
    }

    d->devices.push_back(std::move(dev));
    return *d->devices.back();
}

} // namespace usbmock

#if defined(__SANITIZE_THREAD__)
// libumockdev, GLib and libudev are not built with ThreadSanitizer: their
// locks are invisible to it, so the memory they touch through intercepted
// calls (malloc, strlen, getrandom, ...) looks racy. Ignore those calls only;
// everything done by this harness, the code under test and libusb's locking
// stays checked.
extern "C" const char* __tsan_default_suppressions() {
    return "called_from_lib:libumockdev.so.0\n"
           "called_from_lib:libglib-2.0.so.0\n"
           "called_from_lib:libgobject-2.0.so.0\n"
           "called_from_lib:libgio-2.0.so.0\n"
           "called_from_lib:libudev.so.1\n"
           "mutex:libglib-2.0.so.0\n";
}
#endif
