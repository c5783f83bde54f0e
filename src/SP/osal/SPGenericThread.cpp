#include "SP/osal/SPGenericThread.h"

#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <unordered_set>

#include "Dlna/DlnaLog.h"

namespace {

pthread_key_t gThreadKey;
std::atomic<bool> gThreadKeyReady{false};

// The thread objects that exist now. A thread that ran a body through
// attach() keeps finding that object under its key after the body returned,
// and the object may be destroyed on another thread meanwhile; the key is
// only believed while its object is in this set. Never destroyed, so objects
// that outlive static destruction can still leave it.
std::mutex& liveLock() {
    static std::mutex* lock = new std::mutex;
    return *lock;
}
std::unordered_set<const SPGenericThread*>& liveObjects() {
    static auto* objects = new std::unordered_set<const SPGenericThread*>;
    return *objects;
}

}  // namespace

// Runs when the library is loaded: the key under which each running thread
// object finds itself.
__attribute__((constructor)) static void autoinit() {
    if (pthread_key_create(&gThreadKey, nullptr) != 0) {
        OSAL_MYASSERT();
        return;
    }
    gThreadKeyReady.store(true);
}

int64_t SPGenericTime::getMilliseconds() {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    return static_cast<int64_t>(tv.tv_sec) * 1000 + tv.tv_usec / 1000;
}

int64_t SPGenericTime::getMicroseconds() {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    return static_cast<int64_t>(tv.tv_sec) * 1000000 + tv.tv_usec;
}

SPGenericThread::SPGenericThread(long) {
    std::lock_guard<std::mutex> g(liveLock());
    liveObjects().insert(this);
}

SPGenericThread::~SPGenericThread() {
    if (!m_bJoined.load()) join();
    {
        std::lock_guard<std::mutex> g(liveLock());
        liveObjects().erase(this);
    }
    // Destroyed on the thread that attached it: that thread has no thread
    // object any more.
    if (gThreadKeyReady.load() && pthread_getspecific(gThreadKey) == this) pthread_setspecific(gThreadKey, nullptr);
}

void SPGenericThread::start() {
    pthread_t tid;
    if (pthread_create(&tid, nullptr, &SPGenericThread::threadEntry, this) != 0) {
        OSAL_MYASSERT();
        return;
    }
    m_hThread.store(tid);
}

void SPGenericThread::start(bool joinable) {
    m_bJoinable = joinable;
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    if (!joinable && pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED) != 0) {
        DLNA_LOG_E(DLNA_OSAL_TAG, "fail to set PTHREAD_CREATE_DETACHED, %s", strerror(errno));
        OSAL_MYASSERT();
    }
    pthread_t tid;
    if (pthread_create(&tid, &attr, &SPGenericThread::threadEntry, this) != 0) {
        OSAL_MYASSERT();
    } else {
        m_hThread.store(tid);
    }
    if (pthread_attr_destroy(&attr) != 0) {
        DLNA_LOG_E(DLNA_OSAL_TAG, "fail to set pthread_attr_destroy, %s", strerror(errno));
        OSAL_MYASSERT();
    }
}

void SPGenericThread::join() {
    const bool wasJoined = m_bJoined.exchange(true);
    const pthread_t tid = m_hThread.load();
    // Never started, detached, or already reaped: nothing to wait for (a
    // second pthread_join of one thread would be undefined).
    if (wasJoined || tid == 0 || !m_bJoinable) return;
    if (pthread_equal(tid, pthread_self())) {
        // Joining oneself returns at once; detach so the thread's resources
        // are still released when its body ends, as nobody will join it.
        pthread_detach(tid);
        return;
    }
    pthread_join(tid, nullptr);
}

void SPGenericThread::attach() {
    if (current_thread() != nullptr) {
        OSAL_MYASSERT();
        return;
    }
    if (gThreadKeyReady.load()) pthread_setspecific(gThreadKey, this);
    m_hThread.store(pthread_self());
    entry();
    // The body ran to its end on the caller: nobody must try to join the
    // caller's thread later. The caller keeps this object as its thread
    // object (a second attach is refused) for as long as the object exists.
    m_bJoined.store(true);
}

void SPGenericThread::sleep(unsigned long ms) {
    const int64_t start = SPGenericTime::getMilliseconds();
    if (ms == 0) return;
    int64_t now = start;
    do {
        // The remaining milliseconds are handed to usleep as microseconds, so
        // the wait is many short sleeps that re-check the wall clock.
        const uint32_t remaining = static_cast<uint32_t>(ms) + static_cast<uint32_t>(start) -
                                   static_cast<uint32_t>(now);
        usleep(remaining);
        now = SPGenericTime::getMilliseconds();
    } while (now - start < static_cast<int64_t>(ms));
}

SPGenericThread* SPGenericThread::current_thread() {
    if (!gThreadKeyReady.load()) return nullptr;
    auto* self = static_cast<SPGenericThread*>(pthread_getspecific(gThreadKey));
    if (self == nullptr) return nullptr;
    std::lock_guard<std::mutex> g(liveLock());
    if (liveObjects().count(self) != 0) return self;
    // Attached, then destroyed on another thread: forget it.
    pthread_setspecific(gThreadKey, nullptr);
    return nullptr;
}

int SPGenericThread::current_errno() { return errno; }

void* SPGenericThread::threadEntry(void* object) {
    SPGenericThread* self = static_cast<SPGenericThread*>(object);
    while (self->m_hThread.load() == 0) sleep(1);
    if (!pthread_equal(self->m_hThread.load(), pthread_self())) OSAL_MYASSERT();
    if (gThreadKeyReady.load()) pthread_setspecific(gThreadKey, self);
    self->entry();
    return nullptr;
}

SPGenericThreadEx::~SPGenericThreadEx() { m_bExit.store(true); }

void SPGenericThreadEx::print_start_msg(const char* name) {
    if (name != nullptr) fputs(name, stdout);
    DLNA_LOG_I(DLNA_OSAL_TAG, "Thread %ld  has started at %lld msec", static_cast<long>(pthread_self()),
               static_cast<long long>(SPGenericTime::getMilliseconds()));
}

void SPGenericThreadEx::print_exit_msg(const char* name) {
    if (name != nullptr) fputs(name, stdout);
    DLNA_LOG_I(DLNA_OSAL_TAG, "Thread %ld  has finished at %lld msec", static_cast<long>(pthread_self()),
               static_cast<long long>(SPGenericTime::getMilliseconds()));
}
