#include "zcond.h"
#include "zthread.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

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

// A task body that counts its runs and then idles in usleep or returns. It
// takes no lock, as a body that can be stopped must not.
class Task : public ZTask {
public:
    Task(const ZString& name, bool once = false) : ZTask(name, 0, 10), once(once) {}
    ~Task() override {
        stop();
        waitForCompletion();
    }
    void run() override {
        runs++;
        while (!once)
            usleep(1000);
    }
    bool once;
    std::atomic<int> runs{0};
};

// A task that only computes, so a stop lands between arbitrary instructions.
// Its body calls nothing, so even sanitizer builds give it no handler table;
// a frame with one cannot be unwound from between two calls.
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

// Polls for up to five seconds.
template <class F>
bool eventually(F f) {
    for (int i = 0; i < 5000 && !f(); i++)
        usleep(1000);
    return f();
}

const size_t hugeStack = size_t(1) << 62;

} // namespace

TEST(ZThread, ResultRunningAndCancel) {
    sched_param param;
    int policy = sched_getscheduler(0);
    sched_getparam(0, &param);
    Worker w;
    EXPECT_EQ(w.policy(), policy);
    EXPECT_EQ(w.start(), 0);
    EXPECT_EQ(w.begun.timedWait(5000000), 0);
    EXPECT_TRUE(w.running());
    EXPECT_EQ(w.start(), EBUSY);
    EXPECT_EQ(w.setPriority(policy, param.sched_priority), 0);
    EXPECT_EQ(w.result(), 0);
    w.release.set();
    EXPECT_EQ(w.waitForCompletion(), 42);
    EXPECT_FALSE(w.running());
    EXPECT_EQ(w.setPriority(policy, param.sched_priority), ESRCH); // nothing to change any more
    EXPECT_EQ(w.start(), 0);                                       // a second run
    EXPECT_EQ(w.waitForCompletion(), 42);
    // Cancelled inside the condition wait, the thread gives the condition's
    // mutex back as it unwinds (release.set() would block for ever otherwise).
    Worker c;
    EXPECT_EQ(c.start(), 0);
    EXPECT_EQ(c.begun.timedWait(5000000), 0);
    EXPECT_EQ(c.cancel(), 0);
    EXPECT_EQ(c.waitForCompletion(), 0);
    EXPECT_FALSE(c.running());
    c.release.set();
}

TEST(ZTask, NameStopRestartAndFailedStart) {
    ZTask idle("idle"); // never started: stop and wait do nothing
    idle.stop();
    idle.waitForCompletion();
    EXPECT_EQ(idle.setPriority(0).num(), ESRCH);
    // The priority given applies only under a real-time policy.
    ZThread caller;
    Task task("measurement-task-with-a-long-name");
    bool realTime = caller.policy() == SCHED_FIFO || caller.policy() == SCHED_RR;
    EXPECT_EQ(task.priority(), realTime ? 10 : caller.priority());
    ZError err = task.start();
    ASSERT_FALSE(err) << err.str();
    EXPECT_TRUE(eventually([&] { return task.runs == 1; }));
    char name[32] = {};
    EXPECT_EQ(pthread_getname_np(task.getThread(), name, sizeof(name)), 0);
    EXPECT_STREQ(name, "measurement-tas"); // cut to 15 characters
    EXPECT_EQ(task.start().num(), EBUSY);
    EXPECT_FALSE(task.setPriority(caller.priority()));
    task.stop();
    EXPECT_FALSE(task.running());
    task.waitForCompletion();   // the cancelled thread has really ended
    ASSERT_FALSE(task.start()); // a stopped task starts again; its destructor stops it
    EXPECT_TRUE(eventually([&] { return task.runs == 2; }));
    Task once("once", true);
    for (int i = 1; i <= 2; i++) {
        ASSERT_FALSE(once.start());
        once.waitForCompletion();
        EXPECT_FALSE(once.running());
        EXPECT_EQ(once.runs, i);
        once.stop(); // finished: nothing to cancel
    }
    ZTask big("big", hugeStack, 0);
    err = big.start();
    EXPECT_TRUE(err.num() == ENOMEM || err.num() == EAGAIN) << err.num();
    EXPECT_FALSE(err.str().isEmpty());
    EXPECT_FALSE(big.running());
}

// Stops at once after start and in the middle of computing: every thread
// ends and is joined.
TEST(ZTask, RepeatedStartStop) {
    Task idler("idler");
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
    {
        ZTask plain("plain"); // the base body sleeps until stopped by the destructor
        ASSERT_FALSE(plain.start());
    }
}
