#include "tavrounit.h"

#include "commsnet.h"
#include "zmdns.h"

#include <libusb.h>

#include <cstring>

namespace TavroApi {

namespace {

const char* const Service = "_tavro._tcp.local.";
const char* const SerialKey = "serial=";

bool knownDevice(const ZList<TavroUnitDevice>& found, const ZString& device) {
    for (const TavroUnitDevice& d : found)
        if (d.device == device)
            return true;
    return false;
}

// The serial number from the TXT strings, else the host name without ".local.".
ZString serviceName(const ZMdnsService& s) {
    const int keyLength = int(strlen(SerialKey));
    for (const ZString& t : s.texts)
        if (t.len() > keyLength && t.subString(0, keyLength) == SerialKey)
            return t.subString(keyLength);
    ZString name = s.name;
    int dot = name.find('.');
    return dot > 0 ? name.subString(0, dot) : name;
}

// Closes the device list and the context on every path.
class UsbList {
public:
    UsbList() : ctx(nullptr), list(nullptr), count(0) {}
    ~UsbList() {
        if (list)
            libusb_free_device_list(list, 1);
        if (ctx)
            libusb_exit(ctx);
    }
    UsbList(const UsbList&) = delete;
    UsbList& operator=(const UsbList&) = delete;

    ZError init() {
        if (libusb_init(&ctx) < 0) {
            ctx = nullptr;
            return ZError(1, "Libusb init error");
        }
        count = libusb_get_device_list(ctx, &list);
        if (count < 0) {
            list = nullptr;
            count = 0;
            return ZError(1, "Libusb error");
        }
        return ZError();
    }

    libusb_context* ctx;
    libusb_device** list;
    ssize_t count;
};

// The serial-number string of a device, empty when it cannot be read.
ZString usbSerial(libusb_device* device, uint8_t index) {
    libusb_device_handle* handle = nullptr;
    if (index == 0 || libusb_open(device, &handle) < 0)
        return ZString();
    unsigned char text[64];
    int len = libusb_get_string_descriptor_ascii(handle, index, text, sizeof(text));
    libusb_close(handle);
    if (len <= 0 || len >= int(sizeof(text)))
        return ZString();
    return ZString(reinterpret_cast<const char*>(text), int(strnlen((char*)text, size_t(len))));
}

} // namespace

ZError TavroUnit::findDevicesNetwork(ZList<TavroUnitDevice>& found, unsigned int timeoutMs) {
    ZMdns mdns;
    ZError err = mdns.init();
    if (err)
        return err;
    ZList<ZMdnsService> services;
    // What came before an error is still reported.
    err = mdns.findServices(Service, timeoutMs, services);
    for (const ZMdnsService& s : services) {
        TavroUnitDevice d;
        ZString address = ZSocketAddressINET::addressString(s.address.address());
        d.device = "zoapn://" + address;
        if (s.address.port() != CommsNet::UnitPort)
            d.device += ZString(":") + ZString(s.address.port());
        d.name = serviceName(s);
        d.type = "network";
        if (!knownDevice(found, d.device))
            found.append(d);
    }
    return err;
}

ZError TavroUnit::findDevicesUsb(ZList<TavroUnitDevice>& found) {
    UsbList usb;
    ZError err = usb.init();
    if (err)
        return err;
    for (ssize_t i = 0; i < usb.count; i++) {
        libusb_device_descriptor desc;
        if (libusb_get_device_descriptor(usb.list[i], &desc) < 0 || desc.idVendor != usbVendorId ||
            desc.idProduct != usbProductId)
            continue;
        ZString serial = usbSerial(usb.list[i], desc.iSerialNumber);
        if (serial.isEmpty())
            continue;
        TavroUnitDevice d;
        d.name = serial;
        d.device = "zoapu://" + serial;
        d.type = "usb";
        if (!knownDevice(found, d.device))
            found.append(d);
    }
    return ZError();
}

} // namespace TavroApi
