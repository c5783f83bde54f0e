#include "Dlna/DlnaHandshake.h"

#include <cerrno>
#include <chrono>

#include "Dlna/DlnaLog.h"
#include "zeb_stack.h"

bool DlnaHandshake::create() {
    std::lock_guard<std::mutex> g(m_oLock);
    if (m_pSem != nullptr) return true;
    // sem_t is 16 bytes on the camera and larger on 64-bit hosts.
    sem_t* sem = static_cast<sem_t*>(ZEBMemAllocMA(sizeof(sem_t)));
    if (sem == nullptr) return false;
    if (sem_init(sem, 0, 0) != 0) {
        ZEBMemFreeMA(sem);
        return false;
    }
    m_pSem = sem;
    return true;
}

void DlnaHandshake::destroy() {
    std::unique_lock<std::mutex> g(m_oLock);
    sem_t* sem = m_pSem;
    if (sem == nullptr) return;
    m_pSem = nullptr;  // later waits and answers find no semaphore
    for (int i = 0; i < m_iWaiters; ++i) sem_post(sem);
    if (!m_oWaitersGone.wait_for(g, std::chrono::seconds(5), [this] { return m_iWaiters == 0; })) {
        // A waiter that never left would wait on freed memory: keep it.
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "semaphore 0x%lx still has waiters; not released",
                   static_cast<unsigned long>(reinterpret_cast<uintptr_t>(sem)));
        return;
    }
    sem_destroy(sem);
    ZEBMemFreeMA(sem);
}

int DlnaHandshake::wait(int* answer) {
    sem_t* sem;
    {
        std::lock_guard<std::mutex> g(m_oLock);
        sem = m_pSem;
        if (sem == nullptr) {
            errno = EINVAL;
            return -1;
        }
        int pending = 0;
        if (sem_getvalue(sem, &pending) != 0 || pending <= 0) m_iAnswer = m_iNoAnswer;
        ++m_iWaiters;
    }
    int rc;
    do {
        rc = sem_wait(sem);
    } while (rc != 0 && errno == EINTR);  // the camera's alarm signal interrupts waits
    const int err = errno;
    {
        std::lock_guard<std::mutex> g(m_oLock);
        --m_iWaiters;
        if (rc == 0 && answer != nullptr) *answer = m_iAnswer;
    }
    m_oWaitersGone.notify_all();
    errno = err;
    return rc;
}

bool DlnaHandshake::post(int answer) {
    std::lock_guard<std::mutex> g(m_oLock);
    if (m_pSem == nullptr) return false;
    m_iAnswer = answer;
    return sem_post(m_pSem) == 0;
}

bool DlnaHandshake::post() {
    std::lock_guard<std::mutex> g(m_oLock);
    return m_pSem != nullptr && sem_post(m_pSem) == 0;
}

const void* DlnaHandshake::address() {
    std::lock_guard<std::mutex> g(m_oLock);
    return m_pSem;
}
