#include "zsemaphore.h"

#include <cerrno>

ZSemaphore::ZSemaphore(unsigned int initial) {
    sem_init(&osem, 0, initial);
}

ZSemaphore::~ZSemaphore() {
    sem_destroy(&osem);
}

void ZSemaphore::set() {
    sem_post(&osem);
}

bool ZSemaphore::wait(uint32_t timeoutUs) {
    if (timeoutUs == ZWaitForever) {
        while (sem_wait(&osem) != 0) {
            if (errno != EINTR)
                return false;
        }
        return true;
    }
    timespec ts;
    zdeadline(ts, timeoutUs);
    while (sem_timedwait(&osem, &ts) != 0) {
        if (errno != EINTR)
            return false;
    }
    return true;
}

int ZSemaphore::getValue() {
    int v = 0;
    sem_getvalue(&osem, &v);
    return v;
}

void ZSemaphoreBool::set(bool value) {
    ovalue = value;
    osem.set();
}

void ZSemaphoreBool::clear() {
    set(false);
}

int ZSemaphoreBool::wait(bool value, uint32_t timeoutUs) {
    while (ovalue != value) {
        if (!osem.wait(timeoutUs))
            return 0;
    }
    return 1;
}

void ZSemaphoreCount::add(uint32_t n) {
    omutex.lock();
    ovalue += n;
    omutex.unlock();
    osem.set();
}

void ZSemaphoreCount::setValue(uint32_t n) {
    omutex.lock();
    ovalue = n;
    omutex.unlock();
    osem.set();
}

uint32_t ZSemaphoreCount::value() {
    ZMutexLock lock(omutex);
    return ovalue;
}

int ZSemaphoreCount::wait(uint32_t n, uint32_t timeoutUs) {
    while (value() < n) {
        if (!osem.wait(timeoutUs))
            return 0;
    }
    return 1;
}

int ZSemaphoreCount::take(uint32_t n, uint32_t timeoutUs) {
    for (;;) {
        omutex.lock();
        if (ovalue >= n) {
            ovalue -= n;
            omutex.unlock();
            return 1;
        }
        omutex.unlock();
        if (!osem.wait(timeoutUs))
            return 0;
    }
}
