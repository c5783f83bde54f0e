// Joinable thread objects over POSIX threads, the per-thread registry of the
// running thread object, and wall-clock time.
#ifndef CAMWIFI_SP_GENERIC_THREAD_H
#define CAMWIFI_SP_GENERIC_THREAD_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

class SPGenericTime {
public:
    // Wall-clock time of day: seconds * 1000 + microseconds / 1000.
    static int64_t getMilliseconds();
    // Wall-clock time of day: seconds * 1000000 + microseconds.
    static int64_t getMicroseconds();
};

// A thread object: derive, supply entry(), start() it once; the owner joins it
// (explicitly or through the destructor). Derived classes whose body touches
// their own members must stop and join the thread in their own destructor:
// by the time this base destructor joins, the derived part is gone.
class SPGenericThread {
public:
    // The argument is accepted and ignored (kept for callers that pass one).
    explicit SPGenericThread(long unused = 0);
    virtual ~SPGenericThread();

    // Creates the thread (joinable) running entry(); failure logs "myAssert".
    void start();
    // Same, detached when joinable is false.
    void start(bool joinable);
    // Waits for the body to return; from the thread itself it returns at once.
    void join();
    // Runs this object's body on the calling thread, which keeps it as its
    // thread object afterwards (until the object is destroyed). Refused with
    // "myAssert" when the caller already has a thread object.
    void attach();

    // Blocks for at least ms milliseconds of wall-clock time; 0 returns at once.
    static void sleep(unsigned long ms);
    // The thread object of the calling thread, or null (also once that
    // object has been destroyed).
    static SPGenericThread* current_thread();
    // The calling thread's last system error number.
    static int current_errno();
    // Handed to pthread_create.
    static void* threadEntry(void* object);

    pthread_t handle() const { return m_hThread.load(); }
    bool joined() const { return m_bJoined.load(); }
    bool joinable() const { return m_bJoinable; }

protected:
    virtual void entry() = 0;

private:
    SPGenericThread(const SPGenericThread&) = delete;
    SPGenericThread& operator=(const SPGenericThread&) = delete;

    // Written by the creating thread once creation returns, polled by the new
    // thread until it is set: the one hand-over between the two.
    std::atomic<pthread_t> m_hThread{0};
    std::atomic<bool> m_bJoined{false};
    bool m_bJoinable = true;
};

class SPGenericThreadEx : public SPGenericThread {
public:
    explicit SPGenericThreadEx(long unused = 0) : SPGenericThread(unused) {}
    ~SPGenericThreadEx() override;

    // Writes name (if any) to standard output, then logs
    // "Thread %ld  has started at %qd msec".
    void print_start_msg(const char* name);
    // The same with "has finished".
    void print_exit_msg(const char* name);

    bool exitRequested() const { return m_bExit.load(); }
    void requestExit() { m_bExit.store(true); }

protected:
    // Set by the owner's terminate path, polled by the body.
    std::atomic<bool> m_bExit{false};
};

#endif
