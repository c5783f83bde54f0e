#include "SP/osal/SPGenericMutex.h"

#include <cerrno>

#include "Dlna/DlnaLog.h"

namespace {

// One attribute object (default attributes: the system mutex is not
// recursive; recursion is counted here) shared by every mutex.
pthread_once_t gMutexAttrOnce = PTHREAD_ONCE_INIT;
pthread_mutexattr_t gMutexAttr;

void initMutexAttr() {
    if (pthread_mutexattr_init(&gMutexAttr) != 0) OSAL_MYASSERT();
}

}  // namespace

SPGenericMutex::SPGenericMutex() {
    pthread_once(&gMutexAttrOnce, initMutexAttr);
    if (pthread_mutex_init(&m_hMutex, &gMutexAttr) != 0) OSAL_MYASSERT();
}

SPGenericMutex::~SPGenericMutex() {
    if (pthread_mutex_destroy(&m_hMutex) != 0) OSAL_MYASSERT();
}

void SPGenericMutex::lock() {
    const pthread_t self = pthread_self();
    if (self == 0) OSAL_MYASSERT();
    if (m_owner.load() == self) {
        ++m_count;
        return;
    }
    if (pthread_mutex_lock(&m_hMutex) != 0) OSAL_MYASSERT();
    // Whoever held it last must have left it free.
    if (m_owner.load() != 0 || m_count.load() != 0) OSAL_MYASSERT();
    m_owner.store(self);
    ++m_count;
}

int SPGenericMutex::trylock() {
    const pthread_t self = pthread_self();
    if (m_owner.load() == self) {
        ++m_count;
        return 1;
    }
    const int rc = pthread_mutex_trylock(&m_hMutex);
    if (rc == EBUSY) return 0;
    if (rc != 0) {
        OSAL_MYASSERT();
        return 0;
    }
    if (m_owner.load() == 0 && m_count.load() == 0) {
        m_owner.store(self);
        m_count.store(1);
        return 1;
    }
    OSAL_MYASSERT();
    m_owner.store(self);
    ++m_count;
    return 1;
}

void SPGenericMutex::unlock() {
    if (m_owner.load() != pthread_self()) return;
    if (m_count.load() < 1) OSAL_MYASSERT();
    if (--m_count > 0) return;
    m_owner.store(0);
    if (pthread_mutex_unlock(&m_hMutex) != 0) OSAL_MYASSERT();
}
