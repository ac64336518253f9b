#ifndef ZMUTEX_H
#define ZMUTEX_H

#include <pthread.h>

#include <cstdint>
#include <ctime>

// Time-out value that waits without limit, for the waits that take an
// unsigned time-out in microseconds.
const uint32_t ZWaitForever = 0xFFFFFFFF;

// The absolute time (time of day, CLOCK_REALTIME) timeoutUs microseconds
// from now, for the timed POSIX waits.
void zdeadline(timespec& ts, uint32_t timeoutUs);

// A pthread mutex, plain or recursive. The operations return the pthread
// result: 0 on success, else the error number (EBUSY, ETIMEDOUT, ...).
class ZMutex {
public:
    enum Type { Normal = 0, Recursive = 1 };

    // 1 (Recursive) gives a mutex that its owner may lock again.
    explicit ZMutex(int type = Normal);
    ~ZMutex();
    ZMutex(const ZMutex&) = delete;
    ZMutex& operator=(const ZMutex&) = delete;

    int lock();
    int unlock();
    // 0 when the mutex was taken, EBUSY when it is held.
    int tryLock();
    // The time-out is handed to pthread_mutex_timedlock as an absolute time,
    // i.e. a moment shortly after 1970: a held mutex gives ETIMEDOUT at once
    // whatever timeoutUs is. Callers rely on that immediate answer.
    int timedLock(uint32_t timeoutUs);

    pthread_mutex_t* handle() { return &omutex; }

private:
    pthread_mutex_t omutex;
};

// Holds a ZMutex locked for the lifetime of a scope.
class ZMutexLock {
public:
    explicit ZMutexLock(ZMutex& mutex) : omutex(mutex) { omutex.lock(); }
    ~ZMutexLock() { omutex.unlock(); }
    ZMutexLock(const ZMutexLock&) = delete;
    ZMutexLock& operator=(const ZMutexLock&) = delete;

private:
    ZMutex& omutex;
};

#endif
