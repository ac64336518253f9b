#ifndef ZCOND_H
#define ZCOND_H

#include "zmutex.h"

#include <pthread.h>

#include <cstdint>

// Condition variables that wait for a value. Each object is a pthread mutex,
// a pthread condition and its value; every operation holds the mutex for its
// whole duration and waiting releases it inside the POSIX wait. Time-outs are
// in microseconds from now.
class ZCondBase {
public:
    ZCondBase();
    ~ZCondBase();
    ZCondBase(const ZCondBase&) = delete;
    ZCondBase& operator=(const ZCondBase&) = delete;

protected:
    // Called with the mutex held: waits until ready() holds. foreverUs is the
    // time-out value that means no limit. Returns 0 once ready() holds (also
    // when it holds on the time-out itself), else the result of the last
    // pthread wait (ETIMEDOUT). Defined in zcond.cpp for the classes there.
    template <class Ready>
    int waitUntil(Ready ready, uint32_t timeoutUs, uint32_t foreverUs);

    pthread_mutex_t omutex;
    pthread_cond_t ocond;
};

// The integer conditions. The waits return 1 when the value satisfied the
// test, 0 on time-out with the value unchanged; `decrement` subtracts one
// (not v) from the value once it satisfies the test. ZWaitForever waits
// without limit. setValue, increment and decrement broadcast.
template <class T>
class ZCondNumber : public ZCondBase {
public:
    explicit ZCondNumber(T value = 0) : ovalue(value) {}

    void setValue(T v);
    T value();
    void increment(T n = 1);
    void decrement(T n = 1);
    int waitMoreThanOrEqual(T v, bool decrement = false, uint32_t timeoutUs = ZWaitForever);
    int waitLessThanOrEqual(T v, bool decrement = false, uint32_t timeoutUs = ZWaitForever);
    int waitLessThan(T v, uint32_t timeoutUs = ZWaitForever);

protected:
    T ovalue;
};

// Built once in zcond.cpp for the two value types.
extern template class ZCondNumber<int>;
extern template class ZCondNumber<uint32_t>;

// A signed counter.
class ZCondInt : public ZCondNumber<int> {
public:
    explicit ZCondInt(int value = 0) : ZCondNumber<int>(value) {}
};

// A signed value.
class ZCondValue : public ZCondNumber<int> {
public:
    explicit ZCondValue(int value = 0) : ZCondNumber<int>(value) {}
};

// An unsigned sequence number that wraps at 2^32; the waits compare through
// diff(), so 0x00000002 counts as later than 0xFFFFFFFE.
class ZCondWrap : public ZCondNumber<uint32_t> {
public:
    explicit ZCondWrap(uint32_t value = 0) : ZCondNumber<uint32_t>(value) {}

    // The value minus v as a signed 32-bit difference.
    int32_t diff(uint32_t v);
};

// A flag that threads wait to become 1.
class ZCondBool : public ZCondBase {
public:
    explicit ZCondBool(int value = 0) : ovalue(value ? 1 : 0) {}

    // Makes the value 1 and broadcasts.
    void set();
    // Makes the value 0.
    void clear();
    int value();
    // Waits without limit until the value is 1; returns 0.
    int wait();
    // 0 once the value is 1, else the result of the last pthread wait
    // (ETIMEDOUT, 110, on time-out).
    int timedWait(uint32_t timeoutUs);

private:
    int ovalue;
};

// A resource with many users and one exclusive locker. The locker has
// priority: once lock() has been called no new user may start, even while
// users are still inside. Time-outs of 0 wait without limit.
class ZCondResource : public ZCondBase {
public:
    ZCondResource() : olocked(false), oinUse(0) {}

    // Waits while the resource is locked, then counts one more user.
    // 0, or ETIMEDOUT (110) on time-out.
    int start(uint32_t timeoutUs = 0);
    // Counts one user fewer (never below 0) and broadcasts.
    void end();
    // Marks the resource locked at once, then waits for the users to end.
    // 0 when locked; on time-out the mark is taken away again and the
    // result is ETIMEDOUT (110).
    int lock(uint32_t timeoutUs = 0);
    // Clears the mark and broadcasts.
    void unlock();
    bool locked();
    int inUse();

private:
    bool olocked;
    int oinUse;
};

#endif
