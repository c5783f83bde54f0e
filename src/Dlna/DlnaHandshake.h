// A wait for the user: a POSIX semaphore from the stack's allocator on which
// one feature's thread (or the UI) blocks until an answer is posted. Answers
// and terminates may come from any thread, also when the feature never
// started; destroying it wakes every waiter and frees the semaphore only once
// they have all left, so nobody waits on freed memory.
#ifndef CAMWIFI_DLNA_HANDSHAKE_H
#define CAMWIFI_DLNA_HANDSHAKE_H

#include <semaphore.h>

#include <condition_variable>
#include <mutex>

class DlnaHandshake {
public:
    DlnaHandshake() = default;
    ~DlnaHandshake() { destroy(); }

    // Creates the semaphore (count 0) unless it exists; false when it cannot.
    bool create();
    // Wakes every waiter, then destroys and frees the semaphore.
    void destroy();
    bool exists();
    // Blocks until posted: sem_wait's result (0), or -1 with errno set (EINVAL
    // when there is no semaphore).
    int wait();
    // Adds one to the count; false when there is no semaphore.
    bool post();
    // Posts waiting on the semaphore (0 when there is none).
    int pending();
    // The semaphore's address, for log lines.
    const void* address();

private:
    DlnaHandshake(const DlnaHandshake&) = delete;
    DlnaHandshake& operator=(const DlnaHandshake&) = delete;

    std::mutex m_oLock;
    std::condition_variable m_oWaitersGone;
    sem_t* m_pSem = nullptr;  // null when not created
    int m_iWaiters = 0;       // threads inside sem_wait
};

#endif
