// Recursive mutex that records its owner, over a plain (non-recursive)
// system mutex.
#ifndef CAMWIFI_SP_GENERIC_MUTEX_H
#define CAMWIFI_SP_GENERIC_MUTEX_H

#include <pthread.h>

#include <atomic>

class SPGenericMutex {
public:
    SPGenericMutex();
    virtual ~SPGenericMutex();

    // Recursive acquire: the owner only counts up, anyone else blocks.
    void lock();
    // Non-blocking acquire: 1 acquired (or re-entered), 0 held by another thread.
    int trylock();
    // Recursive release; a call from a thread that does not own it does nothing.
    void unlock();

    // The holding thread (0 when free) and the recursion depth.
    pthread_t getOwner() const { return m_owner.load(); }
    long getCount() const { return m_count.load(); }

private:
    SPGenericMutex(const SPGenericMutex&) = delete;
    SPGenericMutex& operator=(const SPGenericMutex&) = delete;

    pthread_mutex_t m_hMutex;
    // Owner and count are read outside the system mutex (each thread only
    // compares the owner with its own id), hence atomic.
    std::atomic<pthread_t> m_owner{0};
    std::atomic<long> m_count{0};
};

#endif
