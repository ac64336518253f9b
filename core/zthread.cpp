#include "zthread.h"

#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#if defined(__SANITIZE_ADDRESS__)
#define ZTHREAD_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZTHREAD_ASAN 1
#endif
#endif
#ifdef ZTHREAD_ASAN
#include <sanitizer/asan_interface.h>
#endif

namespace {

// A cancelled thread leaves its frames by unwinding, not by returning, so
// AddressSanitizer never takes back the red zones of the frames it skips and
// the thread's own exit code later trips over them. Called once the
// cancellation is under way, to clear the marks of the whole stack; a
// no-op in other builds.
void forgetStackRedZones() {
#ifdef ZTHREAD_ASAN
    pthread_attr_t attr;
    if (pthread_getattr_np(pthread_self(), &attr) == 0) {
        void* addr = nullptr;
        size_t size = 0;
        if (pthread_attr_getstack(&attr, &addr, &size) == 0)
            __asan_unpoison_memory_region(addr, size);
        pthread_attr_destroy(&attr);
    }
#endif
}

// Policy and priority of the calling thread; 0 for both when either cannot be read.
void callerScheduling(int& policy, int& priority) {
    sched_param param;
    int p = sched_getscheduler(0);
    if (p < 0 || sched_getparam(0, &param) < 0) {
        policy = 0;
        priority = 0;
        return;
    }
    policy = p & ~SCHED_RESET_ON_FORK;
    priority = param.sched_priority;
}

// Creates a joinable thread with the given stack size (0 = default), policy
// and priority. Policies pthread attributes cannot carry (SCHED_BATCH,
// SCHED_IDLE) are inherited from the creating thread instead.
int createThread(pthread_t& thread, size_t stackSize, int policy, int priority,
                 void* (*main)(void*), void* arg) {
    pthread_attr_t attr;
    int r = pthread_attr_init(&attr);
    if (r)
        return r;
    if (stackSize)
        r = pthread_attr_setstacksize(&attr, stackSize);
    if (!r && (policy == SCHED_OTHER || policy == SCHED_FIFO || policy == SCHED_RR)) {
        sched_param param;
        memset(&param, 0, sizeof(param));
        param.sched_priority = priority;
        r = pthread_attr_setinheritsched(&attr, PTHREAD_EXPLICIT_SCHED);
        if (!r)
            r = pthread_attr_setschedpolicy(&attr, policy);
        if (!r)
            r = pthread_attr_setschedparam(&attr, &param);
    }
    if (!r)
        r = pthread_create(&thread, &attr, main, arg);
    pthread_attr_destroy(&attr);
    return r;
}

} // namespace

ZThread::ZThread()
    : othread(), ojoinable(false), ostackSize(0), opolicy(0), opriority(0), orunning(false),
      oresult(0) {
    callerScheduling(opolicy, opriority);
}

ZThread::~ZThread() {
    waitForCompletion();
}

void* ZThread::threadMain(void* arg) {
    ZThread* t = static_cast<ZThread*>(arg);
    try {
        t->oresult = t->function();
    } catch (...) {
        // Cancelled (glibc unwinds the thread). The unwinding must go on to
        // the end of the thread, so the catch always rethrows.
        t->orunning = false;
        forgetStackRedZones();
        throw;
    }
    t->orunning = false;
    return nullptr;
}

int ZThread::start() {
    if (orunning)
        return EBUSY;
    waitForCompletion();
    orunning = true;
    int r = createThread(othread, ostackSize, opolicy, opriority, threadMain, this);
    if (r) {
        orunning = false;
        return r;
    }
    ojoinable = true;
    return 0;
}

int ZThread::function() {
    return 0;
}

int ZThread::cancel() {
    if (!ojoinable)
        return ESRCH;
    return pthread_cancel(othread);
}

int ZThread::waitForCompletion() {
    if (ojoinable) {
        pthread_join(othread, nullptr);
        ojoinable = false;
    }
    return oresult;
}

void ZThread::setInitPriority(int policy, int priority) {
    opolicy = policy;
    opriority = priority;
}

int ZThread::setPriority(int policy, int priority) {
    if (!ojoinable)
        return ESRCH;
    sched_param param;
    memset(&param, 0, sizeof(param));
    param.sched_priority = priority;
    return pthread_setschedparam(othread, policy, &param);
}

ZTask::ZTask(const ZString& name, size_t stackSize, int priority)
    : ostackSize(0), opolicy(0), opriority(0), othread(), ojoinable(false), orunning(false) {
    init(name, stackSize, priority);
}

ZTask::~ZTask() {
    stop();
    waitForCompletion();
}

void ZTask::init(const ZString& name, size_t stackSize, int priority) {
    oname = name;
    ostackSize = stackSize;
    callerScheduling(opolicy, opriority);
    if (opolicy == SCHED_FIFO || opolicy == SCHED_RR)
        opriority = priority;
}

// The only stretch of a task thread that is asynchronously cancellable. It
// must stay a frame of its own without handlers or destructors: a
// cancellation that lands between two calls of a frame that has them ends
// the program (std::terminate), while frames without them are unwound
// from any instruction.
__attribute__((noinline)) void ZTask::runCancellable(ZTask* t) {
    pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr);
    t->run();
    pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, nullptr);
}

void* ZTask::threadMain(void* arg) {
    ZTask* t = static_cast<ZTask*>(arg);
    try {
        runCancellable(t);
    } catch (...) {
        // Stopped; see ZThread::threadMain.
        t->orunning = false;
        forgetStackRedZones();
        throw;
    }
    t->orunning = false;
    return nullptr;
}

ZError ZTask::start() {
    if (orunning)
        return ZError(EBUSY, strerror(EBUSY));
    // A stopped or finished thread of an earlier start.
    waitForCompletion();
    orunning = true;
    int r = createThread(othread, ostackSize, opolicy, opriority, threadMain, this);
    if (r) {
        ZError err(r, strerror(errno));
        orunning = false;
        return err;
    }
    ojoinable = true;
    if (!oname.isEmpty()) {
        // Thread names hold 15 characters.
        pthread_setname_np(othread, oname.subString(0, 15).str());
    }
    return ZError();
}

void ZTask::run() {
    for (;;)
        sleep(1);
}

void ZTask::stop() {
    // The flag goes first: a task that stops itself does not come back from
    // pthread_cancel.
    if (orunning.exchange(false))
        pthread_cancel(othread);
}

void ZTask::waitForCompletion() {
    if (ojoinable) {
        pthread_join(othread, nullptr);
        ojoinable = false;
    }
}

ZError ZTask::setPriority(int priority) {
    if (!ojoinable)
        return ZError(ESRCH, strerror(ESRCH));
    sched_param param;
    memset(&param, 0, sizeof(param));
    param.sched_priority = priority;
    int r = pthread_setschedparam(othread, opolicy, &param);
    if (r)
        return ZError(r, strerror(r));
    opriority = priority;
    return ZError();
}
