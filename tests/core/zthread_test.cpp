#include "zcond.h"
#include "zthread.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>

namespace {

// A body that reports it has begun, waits to be released and returns 42.
class Worker : public ZThread {
public:
    ~Worker() override { waitForCompletion(); }
    int function() override {
        begun.set();
        release.wait();
        return 42;
    }
    ZCondBool begun, release;
};

// A body that blocks in a cancellation point until cancelled.
class Sleeper : public ZThread {
public:
    ~Sleeper() override { waitForCompletion(); }
    int function() override {
        begun.set();
        for (;;)
            usleep(1000);
        return 1;
    }
    ZCondBool begun;
};

// A body blocked in a condition wait, which is a cancellation point.
class CondWaiter : public ZThread {
public:
    explicit CondWaiter(ZCondBool& c) : cond(c) {}
    ~CondWaiter() override { waitForCompletion(); }
    int function() override { return cond.wait(); }
    ZCondBool& cond;
};

// A task that only computes, so a stop lands between arbitrary instructions.
class Spinner : public ZTask {
public:
    ~Spinner() override {
        stop();
        waitForCompletion();
    }
    void run() override {
        volatile unsigned long spins = 0;
        for (;;)
            spins = spins + 1;
    }
};

// A task that reports it has begun and then idles in usleep.
class Idler : public ZTask {
public:
    explicit Idler(const ZString& name) : ZTask(name, 0, 10) {}
    ~Idler() override {
        stop();
        waitForCompletion();
    }
    void run() override {
        begun.set();
        for (;;)
            usleep(1000);
    }
    ZCondBool begun;
};

// A task whose body returns after one increment.
class OneShot : public ZTask {
public:
    ~OneShot() override { waitForCompletion(); }
    void run() override { runs++; }
    std::atomic<int> runs{0};
};

const size_t hugeStack = size_t(1) << 62;

void callerPolicy(int& policy, int& priority) {
    sched_param p;
    policy = sched_getscheduler(0);
    sched_getparam(0, &p);
    priority = p.sched_priority;
}

} // namespace

TEST(ZThread, ResultRunningAndFailure) {
    int policy, priority;
    callerPolicy(policy, priority);

    ZThread plain;
    EXPECT_EQ(plain.policy(), policy);
    EXPECT_EQ(plain.priority(), priority);
    EXPECT_FALSE(plain.running());
    EXPECT_EQ(plain.start(), 0);
    EXPECT_EQ(plain.waitForCompletion(), 0); // the base body ends at once
    EXPECT_FALSE(plain.running());
    EXPECT_EQ(plain.result(), 0);

    Worker w;
    EXPECT_EQ(w.start(), 0);
    EXPECT_EQ(w.begun.timedWait(5000000), 0);
    EXPECT_TRUE(w.running());
    EXPECT_EQ(w.start(), EBUSY);
    EXPECT_EQ(w.setPriority(policy, priority), 0);
    EXPECT_EQ(w.result(), 0);
    w.release.set();
    EXPECT_EQ(w.waitForCompletion(), 42);
    EXPECT_FALSE(w.running());
    EXPECT_EQ(w.result(), 42);
    EXPECT_EQ(w.setPriority(policy, priority), ESRCH); // nothing to change any more
    EXPECT_EQ(w.start(), 0);                           // a second run
    EXPECT_EQ(w.waitForCompletion(), 42);

    // A thread that cannot be created leaves running() clear.
    ZThread big;
    big.setInitStackSize(hugeStack);
    int r = big.start();
    EXPECT_TRUE(r == ENOMEM || r == EAGAIN) << r;
    EXPECT_FALSE(big.running());
    ZThread bad;
    bad.setInitPriority(SCHED_OTHER, 5); // SCHED_OTHER takes priority 0 only
    EXPECT_EQ(bad.start(), EINVAL);
    EXPECT_FALSE(bad.running());
    EXPECT_EQ(bad.waitForCompletion(), 0);
    EXPECT_EQ(bad.cancel(), ESRCH);
}

TEST(ZThread, CancelClearsRunning) {
    Sleeper s;
    EXPECT_EQ(s.start(), 0);
    EXPECT_EQ(s.begun.timedWait(5000000), 0);
    EXPECT_TRUE(s.running());
    EXPECT_EQ(s.cancel(), 0);
    EXPECT_EQ(s.waitForCompletion(), 0);
    EXPECT_FALSE(s.running());

    // Cancelled inside a condition wait, the thread gives the condition's
    // mutex back as it unwinds.
    ZCondBool cond;
    CondWaiter w(cond);
    EXPECT_EQ(w.start(), 0);
    usleep(2000);
    EXPECT_EQ(w.cancel(), 0);
    w.waitForCompletion();
    EXPECT_FALSE(w.running());
    cond.set();
    EXPECT_EQ(cond.value(), 1);
}

TEST(ZTask, NameStopAndCompletion) {
    // Never started: stop and wait do nothing.
    ZTask idle("idle");
    EXPECT_FALSE(idle.running());
    idle.stop();
    idle.waitForCompletion();
    EXPECT_FALSE(idle.running());
    EXPECT_EQ(idle.setPriority(0).num(), ESRCH);

    // The priority given applies only under a real-time policy.
    int policy, priority;
    callerPolicy(policy, priority);
    Idler task("measurement-task-with-a-long-name");
    EXPECT_EQ(task.policy(), policy);
    EXPECT_EQ(task.priority(), (policy == SCHED_FIFO || policy == SCHED_RR) ? 10 : priority);

    ZError err = task.start();
    ASSERT_FALSE(err) << err.str();
    EXPECT_TRUE(task.running());
    EXPECT_EQ(task.begun.timedWait(5000000), 0);
    char name[32] = {};
    EXPECT_EQ(pthread_getname_np(task.getThread(), name, sizeof(name)), 0);
    EXPECT_STREQ(name, "measurement-tas"); // cut to 15 characters
    EXPECT_EQ(task.start().num(), EBUSY);
    EXPECT_FALSE(task.setPriority(priority));

    task.stop();
    EXPECT_FALSE(task.running());
    task.waitForCompletion(); // the cancelled thread has really ended
    task.stop();              // again: nothing to do

    // A stopped task starts again; its destructor stops it.
    task.begun.clear();
    ASSERT_FALSE(task.start());
    EXPECT_EQ(task.begun.timedWait(5000000), 0);
    EXPECT_TRUE(task.running());

    // The base body sleeps until stopped; the destructor stops it.
    {
        ZTask plain("plain");
        ASSERT_FALSE(plain.start());
        usleep(2000);
        EXPECT_TRUE(plain.running());
    }
}

// Stops at once after start and stops of a body in the middle of computing:
// every thread ends and is joined.
TEST(ZTask, RepeatedStartStop) {
    Idler idler("idler");
    Spinner spinner;
    for (int i = 0; i < 50; i++) {
        ASSERT_FALSE(idler.start());
        idler.stop();
        ASSERT_FALSE(spinner.start());
        if (i % 2)
            usleep(100);
        spinner.stop();
        EXPECT_FALSE(spinner.running());
    }
    idler.waitForCompletion();
    spinner.waitForCompletion();
}

TEST(ZTask, BodyReturnsAndFailedStart) {
    OneShot once;
    ASSERT_FALSE(once.start());
    once.waitForCompletion();
    EXPECT_FALSE(once.running());
    EXPECT_EQ(once.runs, 1);
    once.stop(); // finished: nothing to cancel
    ASSERT_FALSE(once.start());
    once.waitForCompletion();
    EXPECT_EQ(once.runs, 2);

    ZTask big("big", hugeStack, 0);
    ZError err = big.start();
    EXPECT_TRUE(err.num() == ENOMEM || err.num() == EAGAIN) << err.num();
    EXPECT_FALSE(err.str().isEmpty());
    EXPECT_FALSE(big.running());
    big.stop();
}
