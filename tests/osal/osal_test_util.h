// Timing and signal helpers shared by the OS-layer suites.
#ifndef CAMWIFI_TEST_OSAL_UTIL_H
#define CAMWIFI_TEST_OSAL_UTIL_H

#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

namespace osaltest {

inline int64_t elapsedMs(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - since).count();
}

inline void sleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

// Polls flag for up to limitMs; true once it is set.
inline bool waitFor(const std::atomic<bool>& flag, int limitMs = 5000) {
    for (int i = 0; i < limitMs && !flag.load(); ++i) sleepMs(1);
    return flag.load();
}

// Deliveries of SIGUSR1 while an InterruptingSignal is installed.
inline std::atomic<int> gSignalsSeen{0};

// Handles SIGUSR1 without SA_RESTART while the object lives, so a blocked
// system call in the thread it is sent to (pthread_kill) fails with EINTR.
class InterruptingSignal {
public:
    InterruptingSignal() {
        gSignalsSeen = 0;
        struct sigaction sa {};
        sa.sa_handler = [](int) { gSignalsSeen.fetch_add(1); };
        sigemptyset(&sa.sa_mask);
        sa.sa_flags = 0;
        sigaction(SIGUSR1, &sa, &m_old);
    }
    ~InterruptingSignal() { sigaction(SIGUSR1, &m_old, nullptr); }
    InterruptingSignal(const InterruptingSignal&) = delete;
    InterruptingSignal& operator=(const InterruptingSignal&) = delete;

private:
    struct sigaction m_old {};
};

}  // namespace osaltest

#endif
