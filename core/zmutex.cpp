#include "zmutex.h"

#include <sys/time.h>

void zdeadline(timespec& ts, uint32_t timeoutUs) {
    timeval now;
    gettimeofday(&now, nullptr);
    uint64_t us = uint64_t(now.tv_usec) + timeoutUs;
    ts.tv_sec = now.tv_sec + time_t(us / 1000000);
    ts.tv_nsec = long(us % 1000000) * 1000;
}

ZMutex::ZMutex(int type) {
    if (type == Recursive) {
        pthread_mutexattr_t attr;
        pthread_mutexattr_init(&attr);
        pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(&omutex, &attr);
        pthread_mutexattr_destroy(&attr);
    } else {
        pthread_mutex_init(&omutex, nullptr);
    }
}

ZMutex::~ZMutex() {
    pthread_mutex_destroy(&omutex);
}

int ZMutex::lock() {
    return pthread_mutex_lock(&omutex);
}

int ZMutex::unlock() {
    return pthread_mutex_unlock(&omutex);
}

int ZMutex::tryLock() {
    return pthread_mutex_trylock(&omutex);
}

int ZMutex::timedLock(uint32_t timeoutUs) {
    // Deliberately not relative to now: see the header.
    timespec ts;
    ts.tv_sec = time_t(timeoutUs / 1000000);
    ts.tv_nsec = long(timeoutUs % 1000000) * 1000;
    return pthread_mutex_timedlock(&omutex, &ts);
}
