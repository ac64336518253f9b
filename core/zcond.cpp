#include "zcond.h"

#include <cerrno>

ZCondBase::ZCondBase() {
    pthread_mutex_init(&omutex, nullptr);
    pthread_cond_init(&ocond, nullptr);
}

ZCondBase::~ZCondBase() {
    pthread_cond_destroy(&ocond);
    pthread_mutex_destroy(&omutex);
}

template <class Ready>
int ZCondBase::waitUntil(Ready ready, uint32_t timeoutUs, uint32_t foreverUs) {
    if (timeoutUs == foreverUs) {
        while (!ready())
            pthread_cond_wait(&ocond, &omutex);
        return 0;
    }
    timespec ts;
    zdeadline(ts, timeoutUs);
    while (!ready()) {
        int r = pthread_cond_timedwait(&ocond, &omutex, &ts);
        if (r != 0 && !ready())
            return r;
    }
    return 0;
}

namespace {
// Holds a pthread mutex for a scope.
class Hold {
public:
    explicit Hold(pthread_mutex_t& mutex) : m(mutex) { pthread_mutex_lock(&m); }
    ~Hold() { pthread_mutex_unlock(&m); }

private:
    pthread_mutex_t& m;
};

// Sign of value against v: negative, 0 or positive. Unsigned values are
// sequence numbers and compare through their wrapped difference.
int32_t compare(int value, int v) {
    return (value > v) - (value < v);
}

int32_t compare(uint32_t value, uint32_t v) {
    return int32_t(value - v);
}

} // namespace

template <class T>
void ZCondNumber<T>::setValue(T v) {
    Hold h(omutex);
    ovalue = v;
    pthread_cond_broadcast(&ocond);
}

template <class T>
T ZCondNumber<T>::value() {
    Hold h(omutex);
    return ovalue;
}

template <class T>
void ZCondNumber<T>::increment(T n) {
    Hold h(omutex);
    ovalue += n;
    pthread_cond_broadcast(&ocond);
}

template <class T>
void ZCondNumber<T>::decrement(T n) {
    Hold h(omutex);
    ovalue -= n;
    pthread_cond_broadcast(&ocond);
}

template <class T>
int ZCondNumber<T>::waitMoreThanOrEqual(T v, bool decrement, uint32_t timeoutUs) {
    Hold h(omutex);
    if (waitUntil([&] { return compare(ovalue, v) >= 0; }, timeoutUs, ZWaitForever))
        return 0;
    if (decrement)
        ovalue -= 1;
    return 1;
}

template <class T>
int ZCondNumber<T>::waitLessThanOrEqual(T v, bool decrement, uint32_t timeoutUs) {
    Hold h(omutex);
    if (waitUntil([&] { return compare(ovalue, v) <= 0; }, timeoutUs, ZWaitForever))
        return 0;
    if (decrement)
        ovalue -= 1;
    return 1;
}

template <class T>
int ZCondNumber<T>::waitLessThan(T v, uint32_t timeoutUs) {
    Hold h(omutex);
    return waitUntil([&] { return compare(ovalue, v) < 0; }, timeoutUs, ZWaitForever) ? 0 : 1;
}

template class ZCondNumber<int>;
template class ZCondNumber<uint32_t>;

int32_t ZCondWrap::diff(uint32_t v) {
    Hold h(omutex);
    return int32_t(ovalue - v);
}

void ZCondBool::set() {
    Hold h(omutex);
    ovalue = 1;
    pthread_cond_broadcast(&ocond);
}

void ZCondBool::clear() {
    Hold h(omutex);
    ovalue = 0;
}

int ZCondBool::value() {
    Hold h(omutex);
    return ovalue;
}

int ZCondBool::wait() {
    Hold h(omutex);
    return waitUntil([&] { return ovalue != 0; }, ZWaitForever, ZWaitForever);
}

int ZCondBool::timedWait(uint32_t timeoutUs) {
    Hold h(omutex);
    return waitUntil([&] { return ovalue != 0; }, timeoutUs, ZWaitForever);
}

int ZCondResource::start(uint32_t timeoutUs) {
    Hold h(omutex);
    int r = waitUntil([&] { return !olocked; }, timeoutUs, 0);
    if (r == 0)
        oinUse++;
    return r;
}

void ZCondResource::end() {
    Hold h(omutex);
    if (oinUse > 0)
        oinUse--;
    pthread_cond_broadcast(&ocond);
}

int ZCondResource::lock(uint32_t timeoutUs) {
    Hold h(omutex);
    olocked = true;
    int r = waitUntil([&] { return oinUse == 0; }, timeoutUs, 0);
    if (r != 0) {
        // Give up: let the users that queued up behind the mark start.
        olocked = false;
        pthread_cond_broadcast(&ocond);
    }
    return r;
}

void ZCondResource::unlock() {
    Hold h(omutex);
    olocked = false;
    pthread_cond_broadcast(&ocond);
}

bool ZCondResource::locked() {
    Hold h(omutex);
    return olocked;
}

int ZCondResource::inUse() {
    Hold h(omutex);
    return oinUse;
}
