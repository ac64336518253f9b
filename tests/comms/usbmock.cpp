#include "comms/usbmock.h"

#include <umockdev.h>

#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <dlfcn.h>
#include <fcntl.h>
#include <list>
#include <memory>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

namespace usbmock {

Bytes Setup::bytes() const {
    Bytes b{requestType, request};
    for (uint16_t v : {value, index, length})
        b.insert(b.end(), {uint8_t(v), uint8_t(v >> 8)});
    return b;
}

namespace {

const int SetupSize = 8;
const size_t MaxPacket = 512; // of the bulk endpoints

// Takes the one-shot fault armed for `ep`, if there is one.
bool takeFault(std::map<uint8_t, int>& faults, uint8_t ep, int& to) {
    auto f = faults.find(ep);
    if (f == faults.end())
        return false;
    to = f->second;
    faults.erase(f);
    return true;
}

typedef std::shared_ptr<UMockdevIoctlData> Ref;

// `len` bytes at `offset` of the client's memory, or null.
Ref resolve(UMockdevIoctlData* from, size_t offset, size_t len) {
    UMockdevIoctlData* p = umockdev_ioctl_data_resolve(from, offset, len, nullptr);
    return p ? Ref(p, g_object_unref) : nullptr;
}

// A submitted URB. The client's memory is only touched on the worker thread:
// IN bytes gather in `in` and are copied over at reap.
struct Urb {
    UMockdevIoctlClient* client = nullptr; // identity only
    Ref data, buffer;                      // the usbdevfs_urb and its buffer (null when empty)
    uint8_t type = 0, endpoint = 0;
    int length = 0; // of the data stage (a control URB's buffer has the setup first)
    int actual = 0, status = 0, extra = 0;
    Bytes in;
};

} // namespace

struct UsbMockDevice::State {
    ~State() {
        if (fifo >= 0)
            close(fifo);
        if (handler)
            g_object_unref(handler);
    }
    std::string serial; // empty without hasSerial
    bool hasSerial = false;
    UMockdevTestbed* testbed = nullptr; // owned by the bus
    std::string sysPath, devNode;
    int fifo = -1;
    UMockdevIoctlBase* handler = nullptr;
    Bytes deviceDescriptor, configDescriptor;
    mutable std::mutex m;
    mutable std::condition_variable changed;
    std::atomic<bool> gone{false};
    std::list<Urb> pending; // IN transfers waiting for data
    std::list<Urb> done;    // finished, waiting to be reaped
    std::map<uint8_t, std::deque<Bytes>> inPackets;
    std::map<uint8_t, int> failNext, overReport;
    int claimError = 0;
    ControlHandler controlHandler;
    Records rec;
    // libusb sleeps in poll() for POLLOUT on the device node, a FIFO here:
    // kept full it is not writable, drained it wakes libusb up to reap.
    void updateWakeLocked() {
        char buf[4096] = {};
        if (done.empty())
            while (write(fifo, buf, sizeof(buf)) > 0)
                ;
        else
            while (read(fifo, buf, sizeof(buf)) > 0)
                ;
        changed.notify_all();
    }
    void finishLocked(std::list<Urb>::iterator it, int status) {
        it->status = status;
        done.splice(done.end(), pending, it);
    }
    // Moves queued IN packets into the pending transfers, in order.
    void fillLocked() {
        for (auto it = pending.begin(); it != pending.end();) {
            auto next = std::next(it);
            std::deque<Bytes>& q = inPackets[it->endpoint];
            while (!q.empty()) {
                Bytes p = std::move(q.front());
                q.pop_front();
                size_t room = size_t(it->length) - it->in.size();
                it->in.insert(it->in.end(), p.begin(), p.begin() + long(std::min(room, p.size())));
                if (p.size() > room) { // babble: more than the buffer holds
                    finishLocked(it, -EOVERFLOW);
                    break;
                }
                if (p.size() < MaxPacket || p.size() == room) {
                    takeFault(overReport, it->endpoint, it->extra);
                    finishLocked(it, 0);
                    break;
                }
            }
            it = next;
        }
        updateWakeLocked();
    }
    ControlReply descriptor(uint8_t type, uint8_t index) {
        if (type == 1)
            return ControlReply{deviceDescriptor};
        if (type == 2 && index == 0)
            return ControlReply{configDescriptor};
        if (type == 3 && index == 0)
            return ControlReply{{4, 3, 0x09, 0x04}}; // English (US) only
        if (type != 3 || index != 3 || !hasSerial)
            return ControlReply{{}, true};
        Bytes d{uint8_t(2 + 2 * serial.size()), 3};
        for (char c : serial)
            d.insert(d.end(), {uint8_t(c), 0});
        return ControlReply{d};
    }
    void control(std::unique_lock<std::mutex>& lock, Urb& u) {
        if (u.length < SetupSize) {
            u.status = -EINVAL;
            return;
        }
        const uint8_t* b = u.buffer->data;
        Setup s{b[0], b[1], uint16_t(b[2] | b[3] << 8), uint16_t(b[4] | b[5] << 8),
                uint16_t(b[6] | b[7] << 8)};
        u.length -= SetupSize;
        int room = std::min<int>(s.length, u.length);
        Bytes out;
        if (!s.isIn())
            out.assign(b + SetupSize, b + SetupSize + room);
        ControlReply reply{{}, s.isIn()};              // unanswered: IN stalls, OUT is accepted
        if (s.requestType == 0x80 && s.request == 6) { // GET_DESCRIPTOR
            reply = descriptor(uint8_t(s.value >> 8), uint8_t(s.value));
        } else if (ControlHandler h = controlHandler) {
            lock.unlock(); // the handler may take its time and its own locks
            reply = h(s, out);
            lock.lock();
        }
        if (reply.stall)
            u.status = -EPIPE;
        else if (s.isIn())
            u.in.assign(reply.data.begin(),
                        reply.data.begin() + std::min<int>(reply.data.size(), room));
        else
            u.actual = room;
        rec.controls.push_back({s, reply.stall});
    }
    void submit(UMockdevIoctlClient* client, UMockdevIoctlData* arg) {
        std::unique_lock<std::mutex> lock(m);
        Urb u;
        u.client = client;
        u.data = gone ? nullptr : resolve(arg, 0, sizeof(usbdevfs_urb));
        if (!u.data)
            return umockdev_ioctl_client_complete(client, -1, gone ? ENODEV : EFAULT);
        const usbdevfs_urb* k = reinterpret_cast<const usbdevfs_urb*>(u.data->data);
        u.type = k->type;
        u.endpoint = k->endpoint;
        u.length = std::max(k->buffer_length, 0);
        if (u.length > 0)
            u.buffer = resolve(u.data.get(), offsetof(usbdevfs_urb, buffer), size_t(u.length));
        bool bulk = u.type == USBDEVFS_URB_TYPE_BULK || u.type == USBDEVFS_URB_TYPE_INTERRUPT;
        int err = u.length > 0 && !u.buffer                      ? EFAULT
                  : !bulk && u.type != USBDEVFS_URB_TYPE_CONTROL ? EINVAL
                                                                 : 0;
        if (err)
            return umockdev_ioctl_client_complete(client, -1, err);
        if (!bulk) {
            control(lock, u);
        } else if (!(u.endpoint & 0x80)) {
            if (!takeFault(failNext, u.endpoint, u.status))
                u.actual = u.length;
            const uint8_t* p = u.buffer ? u.buffer->data : nullptr;
            rec.outs.push_back(OutTransfer{u.endpoint, Bytes(p, p + u.length)});
        } else {
            rec.ins[u.endpoint].push_back(u.length);
            if (!takeFault(failNext, u.endpoint, u.status)) {
                pending.push_back(u);
                umockdev_ioctl_client_complete(client, 0, 0);
                return fillLocked();
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
        if (it == done.end())
            return umockdev_ioctl_client_complete(client, -1, gone ? ENODEV : EAGAIN);
        if (!it->in.empty()) {
            int offset = it->type == USBDEVFS_URB_TYPE_CONTROL ? SetupSize : 0;
            memcpy(it->buffer->data + offset, it->in.data(), it->in.size());
            it->actual = int(it->in.size());
        }
        usbdevfs_urb* k = reinterpret_cast<usbdevfs_urb*>(it->data->data);
        k->status = it->status;
        k->actual_length = it->actual + it->extra;
        Ref ptr = resolve(arg, 0, sizeof(void*));
        if (ptr)
            umockdev_ioctl_data_set_ptr(ptr.get(), 0, it->data.get());
        umockdev_ioctl_client_complete(client, ptr ? 0 : -1, ptr ? 0 : EFAULT);
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
        if (it == pending.end())
            return umockdev_ioctl_client_complete(client, -1, EINVAL);
        finishLocked(it, -ENOENT); // bytes already received stay with it
        umockdev_ioctl_client_complete(client, 0, 0);
        updateWakeLocked();
    }
    // Claim, release and alternate setting: the interface number comes first.
    void interfaceEvent(UMockdevIoctlClient* client, UMockdevIoctlData* arg, unsigned long req) {
        std::lock_guard<std::mutex> lock(m);
        bool alt = req == USBDEVFS_SETINTERFACE, claim = !alt && req != USBDEVFS_RELEASEINTERFACE;
        Ref p = resolve(arg, 0, alt ? sizeof(usbdevfs_setinterface) : sizeof(unsigned int));
        int err = gone ? ENODEV : !p ? EFAULT : claim ? claimError : 0;
        if (!err) {
            const unsigned int* v = reinterpret_cast<const unsigned int*>(p->data);
            std::string what = claim ? "claim " : alt ? "alt " : "release ";
            rec.interfaces.push_back(what + std::to_string(v[0]) +
                                     (alt ? " " + std::to_string(v[1]) : ""));
        }
        umockdev_ioctl_client_complete(client, err ? -1 : 0, err);
    }
    static gboolean onIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
        State* s = static_cast<State*>(self);
        unsigned long r = umockdev_ioctl_client_get_request(client);
        UMockdevIoctlData* arg = umockdev_ioctl_client_get_arg(client);
        if (r == USBDEVFS_SUBMITURB) {
            s->submit(client, arg);
        } else if (r == USBDEVFS_REAPURB || r == USBDEVFS_REAPURBNDELAY) {
            s->reap(client, arg);
        } else if (r == USBDEVFS_DISCARDURB) {
            s->discard(client, arg);
        } else if (r == USBDEVFS_CLAIMINTERFACE || r == USBDEVFS_DISCONNECT_CLAIM ||
                   r == USBDEVFS_RELEASEINTERFACE || r == USBDEVFS_SETINTERFACE) {
            s->interfaceEvent(client, arg, r);
        } else if (r == USBDEVFS_GET_CAPABILITIES) {
            uint32_t caps = USBDEVFS_CAP_BULK_SCATTER_GATHER | USBDEVFS_CAP_BULK_CONTINUATION |
                            USBDEVFS_CAP_NO_PACKET_SIZE_LIM | USBDEVFS_CAP_REAP_AFTER_DISCONNECT |
                            USBDEVFS_CAP_ZERO_PACKET;
            Ref p = resolve(arg, 0, sizeof(caps));
            if (p)
                memcpy(p->data, &caps, sizeof(caps));
            umockdev_ioctl_client_complete(client, p ? 0 : -1, p ? 0 : EFAULT);
        } else if (r == USBDEVFS_SETCONFIGURATION || r == USBDEVFS_CLEAR_HALT ||
                   r == USBDEVFS_RESETEP || r == USBDEVFS_RESET) {
            umockdev_ioctl_client_complete(client, s->gone ? -1 : 0, s->gone ? ENODEV : 0);
        } else if (r == USBDEVFS_GETDRIVER || r == USBDEVFS_IOCTL) { // no driver is ever bound
            umockdev_ioctl_client_complete(client, -1, ENODATA);
        } else {
            fprintf(stderr, "usbmock: %s: unhandled ioctl 0x%lx\n", s->devNode.c_str(), r);
            umockdev_ioctl_client_complete(client, -1, ENOTTY);
        }
        return TRUE;
    }
};

UsbMockDevice::UsbMockDevice(const DeviceConfig& config) : d(new State) {
    d->hasSerial = config.serial != nullptr;
    d->serial = d->hasSerial ? config.serial : "";
}
UsbMockDevice::~UsbMockDevice() {}

void UsbMockDevice::queueIn(uint8_t ep, const Bytes& data, bool terminate) {
    std::lock_guard<std::mutex> lock(d->m);
    for (size_t pos = 0; pos < data.size(); pos += MaxPacket)
        d->inPackets[ep].emplace_back(data.begin() + long(pos),
                                      data.begin() + long(std::min(data.size(), pos + MaxPacket)));
    if (terminate && data.size() % MaxPacket == 0)
        d->inPackets[ep].emplace_back(); // zero-length packet ends the transfer
    d->fillLocked();
}

void UsbMockDevice::failNext(uint8_t ep, int status) {
    std::lock_guard<std::mutex> lock(d->m);
    d->failNext[ep] = status;
}
void UsbMockDevice::overReportNextIn(uint8_t ep, int extra) {
    std::lock_guard<std::mutex> lock(d->m);
    d->overReport[ep] = extra;
}
void UsbMockDevice::failClaim(int err) {
    std::lock_guard<std::mutex> lock(d->m);
    d->claimError = err;
}
void UsbMockDevice::setControlHandler(ControlHandler handler) {
    std::lock_guard<std::mutex> lock(d->m);
    d->controlHandler = std::move(handler);
}

Records UsbMockDevice::records() const {
    std::lock_guard<std::mutex> lock(d->m);
    return d->rec;
}

bool UsbMockDevice::waitPendingIn(uint8_t ep, int timeoutMs) const {
    std::unique_lock<std::mutex> lock(d->m);
    return d->changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
        return std::any_of(d->pending.begin(), d->pending.end(),
                           [ep](const Urb& u) { return u.endpoint == ep; });
    });
}

void UsbMockDevice::unplug() {
    {
        std::lock_guard<std::mutex> lock(d->m);
        if (d->gone.exchange(true))
            return;
        while (!d->pending.empty())
            d->finishLocked(d->pending.begin(), -ENODEV);
        d->updateWakeLocked();
    }
    umockdev_testbed_uevent(d->testbed, d->sysPath.c_str(), "remove");
    umockdev_testbed_remove_device(d->testbed, d->sysPath.c_str());
}

struct UsbMockBus::Impl {
    UMockdevTestbed* testbed = umockdev_testbed_new();
    int nextDevice = 2;
    std::vector<std::unique_ptr<UsbMockDevice>> devices;
};

bool UsbMockBus::available(std::string* why) {
    // umockdev_in_mock_environment() caches its first answer, which is false
    // until a testbed exists; ask the loader whether the preload is in.
    void* preload = dlopen("libumockdev-preload.so.0", RTLD_NOW | RTLD_NOLOAD);
    if (preload)
        dlclose(preload);
    else if (why)
        *why = "not running under umockdev-wrapper (LD_PRELOAD of libumockdev-preload)";
    return preload != nullptr;
}

UsbMockBus::UsbMockBus() : d(new Impl) {}

UsbMockBus::~UsbMockBus() {
    for (auto& dev : d->devices) {
        dev->d->gone = true;
        umockdev_testbed_detach_ioctl(d->testbed, dev->d->devNode.c_str(), nullptr);
        g_signal_handlers_disconnect_by_data(dev->d->handler, dev->d.get());
    }
    g_object_unref(d->testbed);
}

UsbMockDevice& UsbMockBus::addDevice(const DeviceConfig& config) {
    d->devices.emplace_back(new UsbMockDevice(config));
    UsbMockDevice::State& s = *d->devices.back()->d;
    int num = d->nextDevice++;
    char node[32], sys[64], text[512];
    snprintf(node, sizeof(node), "/dev/bus/usb/001/%03d", num);
    snprintf(sys, sizeof(sys), "/devices/pci0000:00/0000:00:14.0/usb1/1-%d", num - 1);
    s.testbed = d->testbed;
    s.devNode = node;
    s.sysPath = std::string("/sys") + sys;
    s.configDescriptor = !config.configDescriptor.empty()
                             ? config.configDescriptor
                             : Bytes{9, 2, 32,   0, 1, 1,    0, 0x80, 50, // one configuration,
                                     9, 4, 0,    0, 2, 0xFF, 0, 0,    0,  // interface 0 (vendor),
                                     7, 5, 0x81, 2, 0, 2,    0,           // bulk IN
                                     7, 5, 0x01, 2, 0, 2,    0};          // and bulk OUT
    Bytes& dd = s.deviceDescriptor;
    dd = {18, 1, 0x00, 0x02, 0, 0, 0, 64}; // USB 2.0, 64-byte control packets
    for (uint16_t v : {config.vendorId, config.productId, uint16_t(0x0100)})
        dd.insert(dd.end(), {uint8_t(v), uint8_t(v >> 8)});
    dd.insert(dd.end(), {0, 0, uint8_t(s.hasSerial ? 3 : 0), 1}); // string 3: the serial
    // The handler must be in place before the device appears.
    s.handler = umockdev_ioctl_base_new();
    g_signal_connect_after(s.handler, "handle-ioctl", G_CALLBACK(UsbMockDevice::State::onIoctl),
                           &s);
    umockdev_testbed_attach_ioctl(d->testbed, node, s.handler, nullptr);
    snprintf(text, sizeof(text),
             "P: %s\nN: %s\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: DEVNAME=%s\n"
             "E: BUSNUM=001\nE: DEVNUM=%03d\nE: MAJOR=189\nE: MINOR=%d\n"
             "A: busnum=1\\n\nA: devnum=%d\\n\nA: speed=480\\n\nA: bConfigurationValue=1\\n\n"
             "H: descriptors=",
             sys, node + 5, node, num, num - 1, num);
    std::string desc = text;
    Bytes all = s.deviceDescriptor;
    all.insert(all.end(), s.configDescriptor.begin(), s.configDescriptor.end());
    for (uint8_t c : all) {
        snprintf(text, sizeof(text), "%02X", c);
        desc += text;
    }
    GError* err = nullptr;
    if (!umockdev_testbed_add_from_string(d->testbed, (desc + "\n").c_str(), &err)) {
        fprintf(stderr, "usbmock: cannot add %s: %s\n", node, err ? err->message : "?");
        g_clear_error(&err);
    }
    // Replace the plain-file node by a FIFO so that libusb's poll() sleeps.
    gchar* root = umockdev_testbed_get_root_dir(d->testbed);
    std::string path = std::string(root) + node;
    g_free(root);
    unlink(path.c_str());
    if (mkfifo(path.c_str(), 0666) == 0)
        s.fifo = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (s.fifo < 0)
        fprintf(stderr, "usbmock: cannot make FIFO %s: %s\n", path.c_str(), strerror(errno));
    fcntl(s.fifo, F_SETPIPE_SZ, 4096);
    std::lock_guard<std::mutex> lock(s.m);
    s.updateWakeLocked();
    return *d->devices.back();
}

} // namespace usbmock

#if defined(__SANITIZE_THREAD__)
// libumockdev, GLib and libudev are not built with ThreadSanitizer: their
// locks are invisible to it, so the memory they touch through intercepted
// calls (malloc, strlen, getrandom, ...) looks racy. Ignore those calls only;
// this harness, the code under test and libusb's locking stay checked.
extern "C" const char* __tsan_default_suppressions() {
    return "called_from_lib:libumockdev.so.0\ncalled_from_lib:libglib-2.0.so.0\n"
           "called_from_lib:libgobject-2.0.so.0\ncalled_from_lib:libgio-2.0.so.0\n"
           "called_from_lib:libudev.so.1\nmutex:libglib-2.0.so.0\n";
}
#endif
