// A wait for the user: a POSIX semaphore from the stack's allocator on which
// one feature's thread (or the UI) blocks until an answer is posted, and the
// answer that the post carried. Answers and terminates may come from any
// thread, also when the feature never started; destroying it wakes every
// waiter and frees the semaphore only once they have all left, so nobody
// waits on freed memory.
#ifndef CAMWIFI_DLNA_HANDSHAKE_H
#define CAMWIFI_DLNA_HANDSHAKE_H

#include <semaphore.h>

#include <condition_variable>
#include <mutex>

class DlnaHandshake {
public:
    // noAnswer: what a wait returns when the post that woke it carried none.
    explicit DlnaHandshake(int noAnswer) : m_iNoAnswer(noAnswer), m_iAnswer(noAnswer) {}
    ~DlnaHandshake() { destroy(); }

    // Creates the semaphore (count 0) unless it exists; false when it cannot.
    bool create();
    // Wakes every waiter, then destroys and frees the semaphore.
    void destroy();
    // Blocks until posted (a signal does not end the wait): 0 with the answer
    // stored through answer (when not null), or -1 with errno set (EINVAL when
    // there is no semaphore). A wait that finds nothing posted forgets the
    // last answer first; one that finds a post pending gets its answer: the
    // user (or the phone) may well answer before the UI gets round to
    // waiting, and resetting unconditionally would turn that answer into
    // "no answer" although the post wakes the wait at once. The check and
    // the reset are one step with post, so no answer is lost between them.
    int wait(int* answer);
    // Stores answer and adds one to the count; false when there is no semaphore.
    bool post(int answer);
    // Adds one to the count, leaving the answer as it is.
    bool post();
    // The semaphore's address, for log lines.
    const void* address();

private:
    DlnaHandshake(const DlnaHandshake&) = delete;
    DlnaHandshake& operator=(const DlnaHandshake&) = delete;

    const int m_iNoAnswer;
    std::mutex m_oLock;
    std::condition_variable m_oWaitersGone;
    sem_t* m_pSem = nullptr;  // null when not created
    int m_iWaiters = 0;       // threads inside sem_wait
    int m_iAnswer;            // what the last post carried
};

#endif
