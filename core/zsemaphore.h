#ifndef ZSEMAPHORE_H
#define ZSEMAPHORE_H

#include "zmutex.h"

#include <semaphore.h>

#include <atomic>
#include <cstdint>

// A POSIX counting semaphore. Time-outs in microseconds; ZWaitForever
// (0xFFFFFFFF) waits without limit.
class ZSemaphore {
public:
    explicit ZSemaphore(unsigned int initial = 0);
    ~ZSemaphore();
    ZSemaphore(const ZSemaphore&) = delete;
    ZSemaphore& operator=(const ZSemaphore&) = delete;

    // Posts the semaphore.
    void set();
    // true when the semaphore was taken, false on time-out.
    bool wait(uint32_t timeoutUs = ZWaitForever);
    int getValue();

private:
    sem_t osem;
};

// A boolean value with a semaphore that is posted on every change.
class ZSemaphoreBool {
public:
    ZSemaphoreBool() : ovalue(false) {}

    // Stores the value and posts the semaphore.
    void set(bool value = true);
    // Same as set(false).
    void clear();
    bool value() const { return ovalue; }
    // 1 as soon as the value equals the wanted one, 0 when a wait on the
    // semaphore times out. Each round waits with the full time-out.
    int wait(bool value, uint32_t timeoutUs = ZWaitForever);

private:
    ZSemaphore osem;
    std::atomic<bool> ovalue;
};

// An unsigned count guarded by a mutex, with a semaphore posted on every add.
class ZSemaphoreCount {
public:
    ZSemaphoreCount() : ovalue(0) {}

    // Adds n under the mutex and posts the semaphore.
    void add(uint32_t n = 1);
    // Sets the value under the mutex and posts the semaphore.
    void setValue(uint32_t n);
    uint32_t value();
    // 1 once the value is at least n, 0 when a wait on the semaphore times
    // out. Each round waits with the full time-out.
    int wait(uint32_t n, uint32_t timeoutUs = ZWaitForever);
    // As wait(), then subtracts n; the test and the subtraction happen under
    // the mutex together, so several takers never drive the value below 0.
    int take(uint32_t n, uint32_t timeoutUs = ZWaitForever);

private:
    ZMutex omutex;
    ZSemaphore osem;
    uint32_t ovalue;
};

#endif
