#include "zcond.h"
#include "zmutex.h"
#include "zsemaphore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

namespace {

void sleepMs(int ms) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

// Microseconds that f takes.
template <class F>
long usTaken(F f) {
    auto t0 = std::chrono::steady_clock::now();
    f();
    auto d = std::chrono::steady_clock::now() - t0;
    return long(std::chrono::duration_cast<std::chrono::microseconds>(d).count());
}

} // namespace

TEST(ZMutex, NormalAndRecursive) {
    ZMutex normal, recursive(ZMutex::Recursive);
    {
        ZMutexLock hold(normal);
        EXPECT_EQ(normal.tryLock(), EBUSY); // not recursive: the owner is refused too
        std::thread([&] { EXPECT_EQ(normal.tryLock(), EBUSY); }).join();
    }
    EXPECT_EQ(normal.tryLock() || normal.unlock(), 0);
    EXPECT_EQ(recursive.lock() || recursive.lock(), 0);
    std::thread([&] { EXPECT_EQ(recursive.tryLock(), EBUSY); }).join();
    EXPECT_EQ(recursive.unlock() || recursive.unlock(), 0);
    std::thread([&] { EXPECT_EQ(recursive.tryLock() || recursive.unlock(), 0); }).join();
}

// Every timed wait (ZMutex aside) really waits for its time-out and then
// fails, and is woken by a change from another thread.
TEST(ZSync, TimeOutsAndWakeUps) {
    ZSemaphore sem;
    ZSemaphoreBool b;
    ZSemaphoreCount count;
    ZCondInt n(6);
    ZCondWrap w(0xFFFFFFFEu);
    ZCondBool flag, flag2;
    ZCondResource r;
    std::function<int()> timeOuts[] = {
        [&] { return int(sem.wait(10000)); },
        [&] { return b.wait(true, 10000); },
        [&] { return count.wait(1, 10000); },
        [&] { return count.take(1, 10000); },
        [&] { return n.waitMoreThanOrEqual(7, true, 10000); },
        [&] { return n.waitLessThanOrEqual(5, true, 10000); },
        [&] { return n.waitLessThan(6, 10000); },
        [&] { return w.waitMoreThanOrEqual(2, false, 10000); }, // 2 is later than 0xFFFFFFFE
        [&] { return flag.timedWait(10000) != ETIMEDOUT; },
        [&] { return r.start() || r.lock(10000) != 110 || r.locked(); }, // a user is inside
        [&] { return (r.end(), r.lock(0)) || r.start(10000) != ETIMEDOUT; }};
    int i = 0;
    for (auto& wait : timeOuts) {
        SCOPED_TRACE(i++);
        EXPECT_GE(usTaken([&] { EXPECT_EQ(wait(), 0); }), 9000);
    }
    EXPECT_EQ(count.value(), 0u);
    EXPECT_EQ(n.value(), 6);
    struct {
        std::function<int()> wait;
        std::function<void()> wake;
    } wakeUps[] = {
        {[&] { return int(sem.wait(ZWaitForever)); }, [&] { sem.set(); }},
        {[&] { return b.wait(true, 5000000); }, [&] { b.set(true); }},
        {[&] { return count.take(2, 5000000); }, [&] { count.add(2); }},
        {[&] { return n.waitMoreThanOrEqual(8, true); }, [&] { n.increment(2); }},
        {[&] { return n.waitLessThan(-4, 5000000); }, [&] { n.setValue(-5); }},
        {[&] { return w.waitMoreThanOrEqual(2, true, ZWaitForever); }, [&] { w.increment(4); }},
        {[&] { return int(flag.wait() == 0); }, [&] { flag.set(); }},
        {[&] { return int(flag2.timedWait(5000000) == 0); }, [&] { flag2.set(); }},
        {[&] { return int(r.start(0) == 0); }, [&] { r.unlock(); }}};
    for (auto& c : wakeUps) {
        SCOPED_TRACE(i++);
        std::thread t([&] {
            sleepMs(5);
            c.wake();
        });
        EXPECT_EQ(c.wait(), 1);
        t.join();
    }
    EXPECT_EQ(count.value(), 0u);
    EXPECT_EQ(n.value(), -5);
    EXPECT_EQ(w.value(), 1u);
    EXPECT_EQ(r.inUse(), 1);
}

TEST(ZSync, ValuesAndWaitsAlreadySatisfied) {
    ZSemaphore sem(2);
    EXPECT_TRUE(sem.wait(0) && sem.wait(ZWaitForever));
    EXPECT_FALSE(sem.wait(0));
    ZSemaphoreBool b;
    EXPECT_EQ(b.wait(false, 1000), 1); // already the wanted value
    b.set(true);
    b.clear();
    EXPECT_EQ(b.wait(true, 5000), 0); // posts left over from the changes do not count
    ZSemaphoreCount c;
    c.setValue(5);
    EXPECT_EQ(c.wait(5, 1000), 1);
    EXPECT_EQ(c.take(2), 1); // wait did not take
    EXPECT_EQ(c.value(), 3u);
    ZCondInt n(7);
    EXPECT_EQ(n.waitMoreThanOrEqual(5, true, 10000), 1);
    EXPECT_EQ(n.value(), 6); // one off, not five
    struct {
        int value, ge, le, lt; // expected results against 6
    } cases[] = {{5, 0, 1, 1}, {6, 1, 1, 0}, {7, 1, 0, 0}};
    for (const auto& k : cases) {
        n.setValue(k.value);
        EXPECT_EQ(n.waitMoreThanOrEqual(6, false, 1000), k.ge) << k.value;
        EXPECT_EQ(n.waitLessThanOrEqual(6, false, 1000), k.le) << k.value;
        EXPECT_EQ(n.waitLessThan(6, 1000), k.lt) << k.value;
        EXPECT_EQ(n.value(), k.value);
    }
}

TEST(ZCondResource, LockerHasPriorityAndGivesUp) {
    ZCondResource r;
    EXPECT_EQ(r.start(), 0);
    EXPECT_EQ(r.inUse(), 1);
    // A locker waits for the user inside and keeps new users out meanwhile.
    std::atomic<int> lockResult(-1), userResult(-1);
    std::thread locker([&] { lockResult = r.lock(0); });
    while (!r.locked())
        sleepMs(1);
    EXPECT_EQ(r.start(1000), ETIMEDOUT);
    EXPECT_EQ(r.inUse(), 1);
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
    // A locker that times out clears the mark and lets the users queued
    // behind it in.
    locker = std::thread([&] { lockResult = r.lock(30000); });
    while (!r.locked() && lockResult == 0)
        sleepMs(1);
    user = std::thread([&] { EXPECT_EQ(r.start(0), 0); });
    locker.join();
    user.join();
    EXPECT_EQ(lockResult, 110);
    EXPECT_FALSE(r.locked());
    EXPECT_EQ(r.start(1000), 0);
    EXPECT_EQ(r.inUse(), 3);
    for (int i = 0; i < 4; i++)
        r.end();
    EXPECT_EQ(r.inUse(), 0); // never below 0
}

// Producers and consumers hammer a counter pair; every item made is taken
// exactly once.
TEST(ZSyncStress, ProducersAndConsumersLoseNothing) {
    const int perProducer = 10000, total = 3 * perProducer;
    ZCondInt items;
    ZSemaphoreCount slots;
    std::atomic<int> takenCond(0), takenSem(0);
    ZCondBool go; // the producers start together
    std::vector<std::thread> threads;
    for (int k = 0; k < 3; k++) {
        threads.emplace_back([&] {
            go.wait();
            for (int i = 0; i < perProducer; i++) {
                items.increment(1);
                slots.add(1);
            }
        });
        threads.emplace_back([&] {
            while (takenCond < total)
                takenCond += items.waitMoreThanOrEqual(1, true, 20000);
        });
        threads.emplace_back([&] {
            while (takenSem < total)
                takenSem += slots.take(1, 20000);
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
