#include "zcond.h"
#include "zmutex.h"
#include "zsemaphore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

long elapsedUs(Clock::time_point since) {
    return long(
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - since).count());
}

void sleepMs(int ms) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

} // namespace

TEST(ZMutex, NormalRecursiveAndTimedLock) {
    ZMutex normal;
    EXPECT_EQ(normal.tryLock(), 0);
    EXPECT_EQ(normal.tryLock(), EBUSY); // not recursive: the owner is refused too
    EXPECT_EQ(normal.unlock(), 0);

    ZMutex recursive(ZMutex::Recursive);
    EXPECT_EQ(recursive.lock(), 0);
    EXPECT_EQ(recursive.lock(), 0);
    EXPECT_EQ(recursive.tryLock(), 0);
    EXPECT_EQ(recursive.timedLock(1000), 0);
    std::thread([&] { EXPECT_EQ(recursive.tryLock(), EBUSY); }).join();
    for (int i = 0; i < 4; i++)
        EXPECT_EQ(recursive.unlock(), 0);
    std::thread([&] {
        EXPECT_EQ(recursive.tryLock(), 0);
        recursive.unlock();
    }).join();

    // The time-out is an absolute moment in 1970, so a held mutex refuses at
    // once even when asked to wait ten seconds; a free one is taken.
    EXPECT_EQ(normal.timedLock(10000000), 0);
    Clock::time_point t0 = Clock::now();
    std::thread([&] { EXPECT_EQ(normal.timedLock(10000000), ETIMEDOUT); }).join();
    EXPECT_LT(elapsedUs(t0), 5000000);
    normal.unlock();
    {
        ZMutexLock hold(normal);
        std::thread([&] { EXPECT_EQ(normal.tryLock(), EBUSY); }).join();
    }
    EXPECT_EQ(normal.tryLock(), 0);
    normal.unlock();
}

TEST(ZSemaphore, PostWaitAndTimeOut) {
    ZSemaphore sem;
    Clock::time_point t0 = Clock::now();
    EXPECT_FALSE(sem.wait(10000));
    EXPECT_GE(elapsedUs(t0), 9000);
    sem.set();
    sem.set();
    EXPECT_EQ(sem.getValue(), 2);
    EXPECT_TRUE(sem.wait(0));
    EXPECT_TRUE(sem.wait(ZWaitForever));
    EXPECT_FALSE(sem.wait(0));

    std::thread poster([&] {
        sleepMs(5);
        sem.set();
    });
    EXPECT_TRUE(sem.wait(ZWaitForever)); // woken by the other thread
    poster.join();
    EXPECT_EQ(sem.getValue(), 0);
}

TEST(ZSemaphoreBool, WaitForValue) {
    ZSemaphoreBool b;
    EXPECT_FALSE(b.value());
    EXPECT_EQ(b.wait(false, 1000), 1); // already the wanted value
    EXPECT_EQ(b.wait(true, 5000), 0);

    std::thread setter([&] {
        sleepMs(5);
        b.set(true);
    });
    EXPECT_EQ(b.wait(true, 5000000), 1);
    setter.join();
    EXPECT_TRUE(b.value());
    b.clear();
    EXPECT_FALSE(b.value());
    // Posts left over from earlier changes do not satisfy a wait for true.
    EXPECT_EQ(b.wait(true, 5000), 0);
}

TEST(ZSemaphoreCount, AddTakeWait) {
    ZSemaphoreCount c;
    c.add(1);
    c.add(1);
    c.add(1);
    EXPECT_EQ(c.take(3, 10000), 1);
    EXPECT_EQ(c.value(), 0u);
    Clock::time_point t0 = Clock::now();
    EXPECT_EQ(c.take(1, 10000), 0);
    EXPECT_GE(elapsedUs(t0), 9000);
    EXPECT_EQ(c.value(), 0u);

    c.setValue(5);
    EXPECT_EQ(c.wait(5, 1000), 1);
    EXPECT_EQ(c.value(), 5u); // wait does not take
    EXPECT_EQ(c.take(2), 1);
    EXPECT_EQ(c.value(), 3u);
    EXPECT_EQ(c.wait(4, 5000), 0);

    std::thread adder([&] {
        sleepMs(5);
        c.add(2);
    });
    EXPECT_EQ(c.take(5, 5000000), 1);
    adder.join();
    EXPECT_EQ(c.value(), 0u);
}

TEST(ZCondInt, WaitsDecrementAndTimeOut) {
    ZCondInt c(7);
    EXPECT_EQ(c.waitMoreThanOrEqual(5, true, 10000), 1);
    EXPECT_EQ(c.value(), 6); // one off, not five
    Clock::time_point t0 = Clock::now();
    EXPECT_EQ(c.waitMoreThanOrEqual(7, true, 10000), 0);
    EXPECT_GE(elapsedUs(t0), 9000);
    EXPECT_EQ(c.value(), 6);

    struct Case {
        int value;
        int ge, le, lt; // expected results against 6
    } cases[] = {{5, 0, 1, 1}, {6, 1, 1, 0}, {7, 1, 0, 0}};
    for (const Case& k : cases) {
        SCOPED_TRACE(k.value);
        c.setValue(k.value);
        EXPECT_EQ(c.waitMoreThanOrEqual(6, false, 1000), k.ge);
        EXPECT_EQ(c.waitLessThanOrEqual(6, false, 1000), k.le);
        EXPECT_EQ(c.waitLessThan(6, 1000), k.lt);
        EXPECT_EQ(c.value(), k.value);
    }
    EXPECT_EQ(c.waitLessThanOrEqual(7, true, 1000), 1);
    EXPECT_EQ(c.value(), 6);
    c.increment(3);
    c.decrement(10);
    EXPECT_EQ(c.value(), -1);

    std::thread t([&] {
        sleepMs(5);
        c.increment(2);
        sleepMs(5);
        c.setValue(-5);
    });
    EXPECT_EQ(c.waitMoreThanOrEqual(1, true), 1);
    EXPECT_EQ(c.waitLessThan(-4, 5000000), 1);
    t.join();
    EXPECT_EQ(c.value(), -5);

    ZCondValue v(3);
    EXPECT_EQ(v.waitLessThan(3, 1000), 0);
    EXPECT_EQ(v.waitMoreThanOrEqual(3, true, 1000), 1);
    EXPECT_EQ(v.value(), 2);
}

TEST(ZCondWrap, ComparesAcrossTheWrap) {
    ZCondWrap w(0xFFFFFFFEu);
    EXPECT_EQ(w.diff(2), -4);
    EXPECT_EQ(w.diff(0xFFFFFFF0u), 14);
    EXPECT_EQ(w.waitMoreThanOrEqual(2, false, 5000), 0); // 2 is later than 0xFFFFFFFE
    EXPECT_EQ(w.waitLessThan(2, 1000), 1);

    std::thread t([&] {
        sleepMs(5);
        w.increment(4);
    });
    EXPECT_EQ(w.waitMoreThanOrEqual(2, true, 5000000), 1);
    t.join();
    EXPECT_EQ(w.value(), 1u);
    EXPECT_EQ(w.diff(0xFFFFFFFEu), 3);
    EXPECT_EQ(w.waitLessThan(0xFFFFFFFFu, 1000), 0);
    EXPECT_EQ(w.waitLessThanOrEqual(1, true, 1000), 1);
    EXPECT_EQ(w.waitLessThanOrEqual(0xFFFFFFFFu, false, 1000), 0);
    EXPECT_EQ(w.value(), 0u);
    w.decrement(1);
    EXPECT_EQ(w.value(), 0xFFFFFFFFu);
}

TEST(ZCondBool, SetClearAndTimedWait) {
    ZCondBool b;
    EXPECT_EQ(b.value(), 0);
    Clock::time_point t0 = Clock::now();
    EXPECT_EQ(b.timedWait(10000), ETIMEDOUT);
    EXPECT_GE(elapsedUs(t0), 9000);

    std::thread t([&] {
        sleepMs(5);
        b.set();
    });
    EXPECT_EQ(b.wait(), 0);
    t.join();
    EXPECT_EQ(b.value(), 1);
    EXPECT_EQ(b.timedWait(1000), 0);
    b.clear();
    EXPECT_EQ(b.value(), 0);

    std::thread t2([&] {
        sleepMs(5);
        b.set();
    });
    EXPECT_EQ(b.timedWait(5000000), 0);
    t2.join();
}

TEST(ZCondResource, LockerHasPriorityAndGivesUp) {
    ZCondResource r;
    EXPECT_EQ(r.start(), 0);
    EXPECT_EQ(r.inUse(), 1);

    // A locker waits for the user inside and keeps new users out meanwhile.
    std::atomic<int> lockResult(-1);
    std::thread locker([&] { lockResult = r.lock(0); });
    while (!r.locked())
        sleepMs(1);
    EXPECT_EQ(r.start(10000), ETIMEDOUT);
    EXPECT_EQ(r.inUse(), 1);
    std::atomic<int> userResult(-1);
    std::thread user([&] { userResult = r.start(0); });
    sleepMs(10);
    EXPECT_EQ(lockResult, -1);
    EXPECT_EQ(userResult, -1);
    r.end();
    locker.join();
    EXPECT_EQ(lockResult, 0);
    EXPECT_EQ(r.inUse(), 0);
    EXPECT_EQ(userResult, -1); // still locked out
    r.unlock();
    user.join();
    EXPECT_EQ(userResult, 0);
    EXPECT_EQ(r.inUse(), 1);

    // A locker that times out returns 110, clears the mark and lets the
    // users queued behind it in.
    Clock::time_point t0 = Clock::now();
    EXPECT_EQ(r.lock(1000), 110);
    EXPECT_GE(elapsedUs(t0), 900);
    EXPECT_FALSE(r.locked());
    std::atomic<int> lockResult2(-1);
    std::thread locker2([&] { lockResult2 = r.lock(30000); });
    while (!r.locked() && lockResult2 == -1)
        sleepMs(1);
    std::thread waiting([&] { EXPECT_EQ(r.start(0), 0); });
    locker2.join();
    waiting.join();
    EXPECT_EQ(lockResult2, 110);
    EXPECT_FALSE(r.locked());
    EXPECT_EQ(r.start(1000), 0);
    EXPECT_EQ(r.inUse(), 3);
    for (int i = 0; i < 4; i++)
        r.end();
    EXPECT_EQ(r.inUse(), 0); // never below 0
    EXPECT_EQ(r.lock(1000), 0);
    EXPECT_TRUE(r.locked());
    r.unlock();
    EXPECT_FALSE(r.locked());
}

// Producers and consumers hammer a counter pair; every item made is taken
// exactly once.
TEST(ZSyncStress, ProducersAndConsumersLoseNothing) {
    const int producers = 3, consumers = 3, perProducer = 10000;
    const int total = producers * perProducer;
    ZCondInt items;
    ZSemaphoreCount slots;
    std::atomic<int> takenCond(0), takenSem(0);
    ZCondBool go; // everyone starts together
    std::vector<std::thread> threads;
    for (int p = 0; p < producers; p++) {
        threads.emplace_back([&] {
            go.wait();
            for (int i = 0; i < perProducer; i++) {
                items.increment(1);
                slots.add(1);
            }
        });
    }
    for (int c = 0; c < consumers; c++) {
        threads.emplace_back([&] {
            while (takenCond < total) {
                if (items.waitMoreThanOrEqual(1, true, 20000))
                    takenCond++;
            }
        });
        threads.emplace_back([&] {
            while (takenSem < total) {
                if (slots.take(1, 20000))
                    takenSem++;
            }
        });
    }
    go.set();
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(takenCond, total);
    EXPECT_EQ(takenSem, total);
    EXPECT_EQ(items.value(), 0);
    EXPECT_EQ(slots.value(), 0u);
}
