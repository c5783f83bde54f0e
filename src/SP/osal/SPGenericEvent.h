// Counting semaphores and auto-reset events over unnamed POSIX semaphores.
// Time limits are in milliseconds of wall-clock time.
#ifndef CAMWIFI_SP_GENERIC_EVENT_H
#define CAMWIFI_SP_GENERIC_EVENT_H

#include <semaphore.h>

class SPGenericSemBase {
public:
    virtual ~SPGenericSemBase();

    virtual void post() = 0;

    // Blocks until the count is positive and takes one; returns the system
    // call's result (an interrupted wait is not retried).
    int wait();
    // 1 taken, 0 when the count is 0.
    int trywait();
    // 1 taken, 0 timed out (or failed). The deadline is fixed when the call
    // starts; signals that interrupt the wait do not extend it.
    int wait(unsigned long ms);

    // The current count (for diagnostics and tests); -1 when unavailable.
    int getValue();

protected:
    explicit SPGenericSemBase(unsigned int initial);

    sem_t m_hSem;
    // False when the system refused to create the semaphore: every operation
    // then fails the way the system reports an invalid semaphore (EINVAL)
    // instead of touching uninitialised memory.
    bool m_bValid = false;

private:
    SPGenericSemBase(const SPGenericSemBase&) = delete;
    SPGenericSemBase& operator=(const SPGenericSemBase&) = delete;
};

// Counting semaphore: post() adds one.
class SPGenericSemaphore : public SPGenericSemBase {
public:
    explicit SPGenericSemaphore(long initial);
    ~SPGenericSemaphore() override;
    void post() override;
};

// Two-state event: post() signals it only when it is not signalled already
// (the count never goes above one); each successful wait consumes the signal.
class SPGenericEvent : public SPGenericSemBase {
public:
    explicit SPGenericEvent(bool signalled);
    ~SPGenericEvent() override;
    void post() override;
};

#endif
