#include "tavrounits.h"

#include "tavrounitsimpl.h"

#include <algorithm>

namespace TavroApi {

namespace {

ZError notConnected() {
    return ZError(1, "Not connected");
}

ZError noMaster() {
    return ZError(1, "No master unit set");
}

ZError notPresent() {
    return ZError(1, "Unit number not present");
}

} // namespace

TavroUnit1::TavroUnit1(TavroUnits& units, unsigned int number)
    : ounits(units), oslot(-1), oenabled(true), onumber(number) {}

TavroUnit1::~TavroUnit1() {
    // The receive thread calls the overrides below: it ends while they exist.
    shutdown();
}

void TavroUnit1::disconnected() {
    ounits.unitLost(*this);
    ounits.disconnected();
}

ZError TavroUnit1::sendDataFloatServe(const DataBlockFloat& block) {
    return ounits.sendDataFloatQueue(*this, block);
}

ZError TavroUnit1::sendDataProcServe(const DataBlockProc& block) {
    return ounits.sendDataProcQueue(*this, block);
}

ZError TavroUnit1::sendStatusServe(const NodeStatus& status) {
    return ounits.sendStatusServe(status);
}

ZError TavroUnit1::sendMessageServe(const unsigned int& type, const ZString& text) {
    return ounits.sendMessageServe(type, text);
}

TavroUnits::TavroUnits(int options)
    : ogroupMutex(ZMutex::Recursive), od(new Impl), omulti(false), ooptions(options) {}

TavroUnits::~TavroUnits() {
    // The units first: no receive thread feeds the merge any more.
    {
        ZMutexLock group(ogroupMutex);
        ZArray<std::unique_ptr<TavroUnit1>> units;
        {
            ZMutexLock lock(od->unitsMutex);
            std::swap(units, od->units);
        }
        for (std::unique_ptr<TavroUnit1>& u : units)
            u->disconnect();
        units.clear();
    }
    stop();
}

// Units.

ZError TavroUnits::unitAdd(const ZString& name, const ZString& url) {
    ZMutexLock group(ogroupMutex);
    {
        ZMutexLock lock(od->unitsMutex);
        if (unsigned(od->units.number()) >= maxUnits)
            return ZError(1, "Too many units");
        std::unique_ptr<TavroUnit1> u(new TavroUnit1(*this, unsigned(od->units.number()) + 1));
        u->setName(name);
        u->setUrl(url);
        u->setAddress(1, 2);
        od->units.append(std::move(u));
    }
    updateLayout();
    return ZError();
}

ZError TavroUnits::unitDelete(const ZString& name) {
    ZMutexLock group(ogroupMutex);
    std::unique_ptr<TavroUnit1> gone;
    {
        ZMutexLock lock(od->unitsMutex);
        for (int i = 0; i < od->units.number() && !gone; i++)
            if (od->units[i]->name() == name) {
                gone = std::move(od->units[i]);
                od->units.del(i);
            }
    }
    if (!gone)
        return ZError(1, "Unit not found");
    gone->disconnect();
    renumber();
    updateLayout();
    return ZError();
}

void TavroUnits::renumber() {
    ZMutexLock lock(od->unitsMutex);
    for (int i = 0; i < od->units.number(); i++)
        od->units[i]->setNumber(unsigned(i) + 1);
}

ZError TavroUnits::unitsFind(ZList<TavroUnitDevice>* found) {
    // Discovery takes its time: no lock is held meanwhile.
    ZList<TavroUnitDevice> devices;
    ZError net = TavroUnit::findDevicesNetwork(devices);
    ZError usb = TavroUnit::findDevicesUsb(devices);
    {
        ZMutexLock group(ogroupMutex);
        for (const TavroUnitDevice& d : devices) {
            bool known = false;
            {
                ZMutexLock lock(od->unitsMutex);
                for (const std::unique_ptr<TavroUnit1>& u : od->units)
                    known = known || u->url() == d.device;
            }
            if (!known) {
                ZError err = unitAdd(d.name, d.device);
                if (err)
                    return err;
                if (TavroUnit1* u = unit(unitsNum()))
                    u->setSerialNumber(d.name);
            }
        }
    }
    if (found)
        *found = devices;
    // Nothing to complain of while one way of looking worked.
    if (net && usb)
        return net;
    return ZError();
}

unsigned int TavroUnits::unitsNum() const {
    ZMutexLock lock(od->unitsMutex);
    return unsigned(od->units.number());
}

unsigned int TavroUnits::unitsConnectedNum() const {
    ZMutexLock lock(od->unitsMutex);
    unsigned int n = 0;
    for (const std::unique_ptr<TavroUnit1>& u : od->units)
        n += u->isConnected() ? 1 : 0;
    return n;
}

TavroUnit1* TavroUnits::unit(unsigned int number) const {
    ZMutexLock lock(od->unitsMutex);
    if (number < 1 || number > unsigned(od->units.number()))
        return nullptr;
    return od->units[int(number) - 1].get();
}

TavroUnit1* TavroUnits::unitMaster() const {
    ZMutexLock lock(od->unitsMutex);
    for (const std::unique_ptr<TavroUnit1>& u : od->units)
        if (u->enabled())
            return u.get();
    return nullptr;
}

void TavroUnits::activeUnits(ZList<TavroUnit1*>& units) const {
    ZMutexLock lock(od->unitsMutex);
    for (const std::unique_ptr<TavroUnit1>& u : od->units) {
        if (!u->enabled())
            continue;
        units.append(u.get());
        if (!omulti)
            break;
    }
}

ZError TavroUnits::unitsConnect() {
    ZMutexLock group(ogroupMutex);
    ZList<TavroUnit1*> units;
    activeUnits(units);
    if (units.isEmpty())
        return noMaster();
    ZList<TavroUnit1*> connected;
    ZError err;
    for (TavroUnit1* u : units) {
        if (u->isConnected())
            continue;
        if ((err = u->connect(u->url())))
            break;
        connected.append(u);
        ZString serial = u->TavroUnit::serialNumber();
        if (!serial.isEmpty())
            u->setSerialNumber(serial);
    }
    if (err)
        for (TavroUnit1* u : connected)
            u->disconnect();
    updateLayout();
    return err;
}

ZError TavroUnits::unitsDisconnect() {
    ZMutexLock group(ogroupMutex);
    // Not under the units mutex: disconnect() waits for a disconnected()
    // under way, which may look at the units.
    ZList<TavroUnit1*> units;
    {
        ZMutexLock lock(od->unitsMutex);
        for (std::unique_ptr<TavroUnit1>& u : od->units)
            units.append(u.get());
    }
    ZError first;
    for (TavroUnit1* u : units) {
        ZError err = u->disconnect();
        if (err && !first)
            first = err;
    }
    updateLayout();
    return first;
}

bool TavroUnits::unitsConnected() const {
    return unitsConnectedNum() > 0;
}

ZError TavroUnits::unitSetEnabled(unsigned int number, bool on) {
    ZMutexLock group(ogroupMutex);
    TavroUnit1* u = unit(number);
    if (!u)
        return notPresent();
    u->setEnabled(on);
    updateLayout();
    return ZError();
}

ZError TavroUnits::unitSetOrder(unsigned int number, unsigned int position) {
    ZMutexLock group(ogroupMutex);
    {
        ZMutexLock lock(od->unitsMutex);
        unsigned int n = unsigned(od->units.number());
        if (number < 1 || number > n || position < 1 || position > n)
            return notPresent();
        std::unique_ptr<TavroUnit1> moving = std::move(od->units[int(number) - 1]);
        ZArray<std::unique_ptr<TavroUnit1>> order;
        for (int i = 0; i < int(n); i++) {
            if (order.number() == int(position) - 1)
                order.append(std::move(moving));
            if (od->units[i])
                order.append(std::move(od->units[i]));
        }
        if (moving)
            order.append(std::move(moving));
        od->units = std::move(order);
    }
    renumber();
    updateLayout();
    return ZError();
}

void TavroUnits::setMulti(bool on) {
    ZMutexLock group(ogroupMutex);
    omulti = on;
    updateLayout();
}

unsigned int TavroUnits::numChannels() const {
    ZList<TavroUnit1*> units;
    activeUnits(units);
    unsigned int n = 0;
    for (TavroUnit1* u : units)
        if (u->isConnected())
            n += u->numChannels();
    return n;
}

void TavroUnits::clear() {
    ZMutexLock group(ogroupMutex);
    ZArray<std::unique_ptr<TavroUnit1>> units;
    {
        ZMutexLock lock(od->unitsMutex);
        std::swap(units, od->units);
    }
    for (std::unique_ptr<TavroUnit1>& u : units)
        u->disconnect();
    units.clear();
    updateLayout();
    dataClear();
}

// Group calls.

template <class F>
ZError TavroUnits::eachUnit(F call) {
    ZMutexLock group(ogroupMutex);
    ZList<TavroUnit1*> units;
    activeUnits(units);
    bool any = false;
    for (TavroUnit1* u : units)
        any = any || u->isConnected();
    if (!any)
        return notConnected();
    for (TavroUnit1* u : units) {
        ZError err = call(*u);
        if (err)
            return err;
    }
    return ZError();
}

template <class F>
ZError TavroUnits::masterCall(F call) {
    ZMutexLock group(ogroupMutex);
    TavroUnit1* master = unitMaster();
    if (!master)
        return noMaster();
    return call(*master);
}

ZError TavroUnits::getNodeInfo(NodeInfo& info) {
    return masterCall([&](TavroUnit1& u) { return u.getNodeInfo(info); });
}

ZError TavroUnits::login(const ZString& user, const ZString& password) {
    return eachUnit([&](TavroUnit1& u) { return u.login(user, password); });
}

ZError TavroUnits::logout() {
    return eachUnit([&](TavroUnit1& u) { return u.logout(); });
}

ZError TavroUnits::changePassword(const ZString& user, const ZString& password,
                                  const ZString& newPassword) {
    return eachUnit([&](TavroUnit1& u) { return u.changePassword(user, password, newPassword); });
}

ZError TavroUnits::setMode(Mode mode) {
    return eachUnit([&](TavroUnit1& u) { return u.setMode(mode); });
}

ZError TavroUnits::getStatus(NodeStatus& status) {
    return masterCall([&](TavroUnit1& u) { return u.getStatus(status); });
}

ZError TavroUnits::sendTime(const ZTimeUs& time) {
    return eachUnit([&](TavroUnit1& u) { return u.sendTime(time); });
}

ZError TavroUnits::getInformation(Information& information) {
    ZMutexLock group(ogroupMutex);
    ZError err = masterCall([&](TavroUnit1& u) { return u.Tavro::getInformation(information); });
    if (!err)
        information.numChannels = uint8_t(std::min(numChannels(), 255u));
    return err;
}

ZError TavroUnits::getInfoBlock(InfoBlock& infoBlock) {
    ZMutexLock group(ogroupMutex);
    ZError err = masterCall([&](TavroUnit1& u) { return u.getInfoBlock(infoBlock); });
    if (!err)
        infoBlock.numChannels = uint16_t(std::min(numChannels(), 0xFFFFu));
    return err;
}

ZError TavroUnits::routeChannel(unsigned int channel, TavroUnit1*& unit, unsigned int& local) {
    if (!unitMaster())
        return noMaster();
    if (channel >= numChannels())
        return ZError(1, "Channel number out of range");
    ZList<TavroUnit1*> units;
    activeUnits(units);
    unsigned int first = 0;
    for (TavroUnit1* u : units) {
        if (!u->isConnected())
            continue;
        unsigned int n = u->numChannels();
        if (channel < first + n) {
            unit = u;
            local = channel - first;
            return ZError();
        }
        first += n;
    }
    // Only when a unit went away since numChannels() was counted.
    return ZError(1, "Channel number out of range");
}

ZError TavroUnits::getChannelConfig(unsigned int channel, ChannelConfig& config) {
    ZMutexLock group(ogroupMutex);
    TavroUnit1* u = nullptr;
    unsigned int local = 0;
    ZError err = routeChannel(channel, u, local);
    return err ? err : u->getChannelConfig(local, config);
}

ZError TavroUnits::setChannelConfig(unsigned int channel, const ChannelConfig& config) {
    ZMutexLock group(ogroupMutex);
    TavroUnit1* u = nullptr;
    unsigned int local = 0;
    ZError err = routeChannel(channel, u, local);
    // local < the unit's channel count, which is a byte.
    return err ? err : u->setChannelConfig((unsigned char)local, config);
}

ZError TavroUnits::getConfig(Configuration& config) {
    return masterCall([&](TavroUnit1& u) { return u.getConfig(config); });
}

ZError TavroUnits::setConfig(const Configuration& config) {
    return masterCall([&](TavroUnit1& u) { return u.setConfig(config); });
}

ZError TavroUnits::getMeasurementConfig(bool which, MeasurementConfig& config) {
    return masterCall([&](TavroUnit1& u) { return u.getMeasurementConfig(which, config); });
}

ZError TavroUnits::setMeasurementConfig(bool which, const MeasurementConfig& config) {
    return eachUnit([&](TavroUnit1& u) { return u.setMeasurementConfig(which, config); });
}

ZError TavroUnits::sendDataEnable(unsigned char enable) {
    return eachUnit([&](TavroUnit1& u) { return u.sendDataEnable(enable); });
}

ZError TavroUnits::getAwgConfig(bool which, AwgConfig& config) {
    return masterCall([&](TavroUnit1& u) { return u.getAwgConfig(which, config); });
}

ZError TavroUnits::setAwgConfig(bool which, const AwgConfig& config) {
    return masterCall([&](TavroUnit1& u) { return u.setAwgConfig(which, config); });
}

ZError TavroUnits::alarmsClear(unsigned int mask) {
    return eachUnit([&](TavroUnit1& u) { return u.alarmsClear(mask); });
}

ZError TavroUnits::sendMessage(unsigned int type, const ZString& text) {
    return eachUnit([&](TavroUnit1& u) { return u.sendMessage(type, text); });
}

// Events.

void TavroUnits::disconnected() {}
void TavroUnits::dataEvent(unsigned int) {}
void TavroUnits::dataProcEvent(unsigned int) {}

ZError TavroUnits::sendStatusServe(const NodeStatus&) {
    return ZError();
}

ZError TavroUnits::sendMessageServe(const unsigned int&, const ZString&) {
    return ZError();
}

} // namespace TavroApi
