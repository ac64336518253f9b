#ifndef ZTHREAD_H
#define ZTHREAD_H

#include "zerror.h"
#include "zstring.h"

#include <pthread.h>

#include <atomic>
#include <cstddef>

// A thread object whose body is the virtual function(). The scheduling
// policy and priority are those of the thread that constructs the object
// (0 when they cannot be read); setInitPriority changes them for the next
// start().
//
// Lifetime: the destructor joins a thread that was started and not yet
// joined, so the body must be able to end (or reach a cancellation point
// after cancel()) when the object goes. A subclass that overrides function()
// must end and join its thread in its own destructor (waitForCompletion()),
// because by the time this destructor runs the subclass part is gone.
// start(), waitForCompletion() and the destructor belong to the owning
// thread; running() and result() may be read from anywhere.
class ZThread {
public:
    ZThread();
    virtual ~ZThread();
    ZThread(const ZThread&) = delete;
    ZThread& operator=(const ZThread&) = delete;

    // Creates the thread; 0, or the pthread error number when it could not
    // be created (running() is then false again). EBUSY while a thread of
    // this object is still running.
    int start();
    // The body; its return value becomes result(). This one returns 0 at once.
    virtual int function();

    int result() const { return oresult; }
    bool running() const { return orunning; }
    // Requests deferred cancellation (pthread_cancel); 0 or the pthread result.
    int cancel();
    // Joins the thread (when there is one to join) and returns result().
    int waitForCompletion();

    void setInitStackSize(size_t size) { ostackSize = size; }
    void setInitPriority(int policy, int priority);
    // Changes the policy and priority of the running thread; 0 or the pthread result.
    int setPriority(int policy, int priority);
    pthread_t getThread() const { return othread; }

    int policy() const { return opolicy; }
    int priority() const { return opriority; }

private:
    static void* threadMain(void* arg);

    pthread_t othread;
    bool ojoinable;
    size_t ostackSize;
    int opolicy;
    int opriority;
    std::atomic<bool> orunning;
    std::atomic<int> oresult;
};

// A named task whose body is the virtual run(). The thread is made
// asynchronously cancellable before run() is called, and stop() cancels it
// at whatever instruction it is on. So wherever run() can be stopped it must
// not:
//  - hold a lock (ZMutex, the mutexes inside ZCond*, ZSemaphoreCount, stdio,
//    malloc/new): the lock stays held for ever;
//  - own heap memory, files or other resources: they are lost;
//  - have C++ objects with destructors (ZString, containers, lock guards) or
//    try blocks live, in run() or in anything it calls: unwinding out of such
//    a frame from between two calls ends the program;
//  - be inside library calls that are not async-cancel-safe.
// A body that needs any of these switches cancellation off around that work
// (pthread_setcancelstate), or switches itself to deferred cancellation
// (pthread_setcanceltype) when it starts: stop() then acts only at
// cancellation points (sleeps, reads, the ZCond and ZSemaphore waits), and
// the ZCond waits give their mutex back as the thread unwinds. Plain loops
// over sleeps, blocking reads and counters are fine as they are.
//
// stop() does not join. The thread of a stopped or finished task is joined by
// waitForCompletion(), by the next start() or by the destructor, which stops
// the task first; so no thread outlives its task and none is left unjoined.
// A subclass whose run() uses its own members should stop and join in its
// own destructor, before those members go.
class ZTask {
public:
    ZTask(const ZString& name = ZString(), size_t stackSize = 0, int priority = 0);
    virtual ~ZTask();
    ZTask(const ZTask&) = delete;
    ZTask& operator=(const ZTask&) = delete;

    // Sets name, stack size and priority for the next start(). The policy is
    // that of the calling thread; the priority is the given one for SCHED_FIFO
    // and SCHED_RR, else the caller's own.
    void init(const ZString& name, size_t stackSize, int priority);
    // Creates the thread and names it (names longer than 15 characters are
    // cut). On failure the error number is pthread_create's result.
    ZError start();
    // The body. This one sleeps in one-second steps for ever.
    virtual void run();
    // Cancels the thread when it is running and clears the running flag;
    // it does not wait for the thread to end.
    void stop();
    // Waits until the thread has ended (after run() returned or stop()).
    void waitForCompletion();
    // Changes the priority of the running thread under the task's policy.
    ZError setPriority(int priority);

    bool running() const { return orunning; }
    ZString name() const { return oname; }
    int policy() const { return opolicy; }
    int priority() const { return opriority; }
    pthread_t getThread() const { return othread; }

private:
    static void* threadMain(void* arg);
    static void runCancellable(ZTask* t);

    ZString oname;
    size_t ostackSize;
    int opolicy;
    int opriority;
    pthread_t othread;
    bool ojoinable;
    std::atomic<bool> orunning;
};

#endif
