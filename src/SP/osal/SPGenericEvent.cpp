#include "SP/osal/SPGenericEvent.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <climits>
#include <ctime>

#include "Dlna/DlnaLog.h"
#include "SP/osal/SPGenericMutex.h"
#include "SP/osal/SPGenericThread.h"

SPGenericSemBase::SPGenericSemBase(unsigned int initial) {
    std::memset(&m_hSem, 0, sizeof(m_hSem));
    if (sem_init(&m_hSem, 0, initial) != 0) {
        OSAL_MYASSERT();
        return;
    }
    m_bValid = true;
}

SPGenericSemBase::~SPGenericSemBase() {
    if (m_bValid) sem_destroy(&m_hSem);
}

int SPGenericSemBase::wait() {
    if (!m_bValid) {
        errno = EINVAL;
        return -1;
    }
    return sem_wait(&m_hSem);
}

int SPGenericSemBase::trywait() {
    int rc;
    if (m_bValid) {
        rc = sem_trywait(&m_hSem);
    } else {
        errno = EINVAL;
        rc = -1;
    }
    if (rc == 0) return 1;
    if (errno != EAGAIN) OSAL_MYASSERT();
    return 0;
}

int SPGenericSemBase::wait(unsigned long ms) {
    const int64_t deadline = SPGenericTime::getMilliseconds() + static_cast<int64_t>(ms);
    struct timespec abstime;
    abstime.tv_sec = static_cast<time_t>(deadline / 1000);
    abstime.tv_nsec = static_cast<long>((deadline % 1000) * 1000000);
    for (;;) {
        int rc;
        if (m_bValid) {
            rc = sem_timedwait(&m_hSem, &abstime);
        } else {
            errno = EINVAL;
            rc = -1;
        }
        if (rc == 0) return 1;
        const int err = errno;
        if (rc == EINTR || err == EINTR) {
            // Interrupted by a signal: wait on for what is left of the same
            // deadline, never a fresh period.
            if (deadline - SPGenericTime::getMilliseconds() <= 0) return 0;
            continue;
        }
        if (rc == ETIMEDOUT || err == ETIMEDOUT) return 0;
        fprintf(stderr, "sem_timedwait returns %d, errno=%d(%s)\n", rc, err, strerror(err));
        OSAL_MYASSERT();
        return 0;
    }
}

int SPGenericSemBase::getValue() {
    int value = -1;
    if (!m_bValid || sem_getvalue(&m_hSem, &value) != 0) return -1;
    return value;
}

namespace {

// A negative count or one above SEM_VALUE_MAX is handed on as a value the
// system refuses (logged as "myAssert"), rather than silently wrapped or cut
// to a valid count on a host where long is wider than the semaphore's count.
unsigned int semaphoreInitial(long initial) {
    if (initial < 0 || initial > static_cast<long>(SEM_VALUE_MAX)) return static_cast<unsigned int>(SEM_VALUE_MAX) + 1u;
    return static_cast<unsigned int>(initial);
}

}  // namespace

SPGenericSemaphore::SPGenericSemaphore(long initial) : SPGenericSemBase(semaphoreInitial(initial)) {}

SPGenericSemaphore::~SPGenericSemaphore() = default;

void SPGenericSemaphore::post() {
    // No lock here: a semaphore post is atomic by itself. (The original
    // design created a function-level static mutex here that was never
    // locked; it guarded nothing and only added an object destroyed at
    // process exit under threads that may still post, so it is left out.)
    if (!m_bValid || sem_post(&m_hSem) != 0) OSAL_MYASSERT();
}

SPGenericEvent::SPGenericEvent(bool signalled) : SPGenericSemBase(signalled ? 1 : 0) {}

SPGenericEvent::~SPGenericEvent() = default;

void SPGenericEvent::post() {
    // Shared by all events: makes the test-then-post below one step, so
    // concurrent posts cannot push the count above one.
    static SPGenericMutex s_eventMutex;
    s_eventMutex.lock();
    int value = 0;
    if (m_bValid && sem_getvalue(&m_hSem, &value) != 0) OSAL_MYASSERT();
    if (value > 1) OSAL_MYASSERT();
    // Already signalled: a second post before a wait is lost, by design.
    if (value == 0) {
        if (!m_bValid || sem_post(&m_hSem) != 0) OSAL_MYASSERT();
    }
    s_eventMutex.unlock();
}
