// Host stand-in of the DLNA stack's timer service (DMSAppCreateTimer,
// DMSAppStartTimer, DMSAppDeleteTimer): real one-shot timers that fire on
// one timer thread of their own ("DMSAppTimers", started with the first
// timer), on the steady clock. Every arming and firing is recorded so that a
// test can check the periods for real.
#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host_internal.h"
#include "host_timer.h"
#include "zeb_stack.h"

namespace {

using Clock = std::chrono::steady_clock;

struct TimerEntry {
    std::string name;
    bool armed = false;
    unsigned int periodMs = 0;
    Clock::time_point armedAt, deadline;
    DMSAppTimerHandler handler = nullptr;
    void* userData = nullptr;
};

struct TimerState {
    std::mutex lock;
    std::condition_variable wake;
    std::map<int, TimerEntry> timers;
    std::vector<host::mrcp::Firing> firings;
    int nextHandle = 1;
    bool stop = false;
    std::thread thread;
};

TimerState& timerState() {
    static TimerState* s = new TimerState;  // never destroyed: the thread may outlive main's statics
    return *s;
}

int64_t toMs(Clock::time_point t) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(t.time_since_epoch()).count();
}

// Fires due timers one by one, the handler called without the lock held (a
// handler may start or delete timers).
void timerLoop() {
    pthread_setname_np(pthread_self(), "DMSAppTimers");
    TimerState& s = timerState();
    std::unique_lock<std::mutex> l(s.lock);
    while (!s.stop) {
        auto due = s.timers.end();
        for (auto it = s.timers.begin(); it != s.timers.end(); ++it)
            if (it->second.armed && (due == s.timers.end() || it->second.deadline < due->second.deadline)) due = it;
        if (due == s.timers.end()) {
            s.wake.wait(l);
            continue;
        }
        // A copy: the timer may be deleted while the thread waits.
        const Clock::time_point deadline = due->second.deadline;
        if (Clock::now() < deadline) {
            s.wake.wait_until(l, deadline);
            continue;  // the set of timers may have changed meanwhile
        }
        TimerEntry& t = due->second;
        t.armed = false;
        s.firings.push_back({t.name, toMs(t.armedAt), toMs(Clock::now()), t.periodMs});
        DMSAppTimerHandler handler = t.handler;
        void* userData = t.userData;
        l.unlock();
        handler(userData);
        l.lock();
    }
}

void stopThread() {
    TimerState& s = timerState();
    std::thread t;
    {
        std::lock_guard<std::mutex> g(s.lock);
        s.stop = true;
        t.swap(s.thread);
    }
    s.wake.notify_all();
    host::joinUnlessSelf(t);
}

void resetTimers() {
    stopThread();
    TimerState& s = timerState();
    std::lock_guard<std::mutex> g(s.lock);
    s.timers.clear();
    s.firings.clear();
    s.stop = false;
}

const bool registered = (host::addResetHook(resetTimers), true);

}  // namespace

namespace host {
namespace mrcp {

std::vector<Timer> timers() {
    TimerState& s = timerState();
    std::lock_guard<std::mutex> g(s.lock);
    std::vector<Timer> out;
    for (auto& kv : s.timers) out.push_back({kv.first, kv.second.name, kv.second.armed, kv.second.periodMs});
    return out;
}

std::vector<Firing> firings() {
    TimerState& s = timerState();
    std::lock_guard<std::mutex> g(s.lock);
    return s.firings;
}

int64_t nowMs() { return toMs(Clock::now()); }

}  // namespace mrcp
}  // namespace host

extern "C" int DMSAppCreateTimer(const char* name) {
    host::journal("DMSAppCreateTimer(%s)", name ? name : "(null)");
    if (host::scriptedOr("DMSAppCreateTimer", 1) == 0) return 0;
    TimerState& s = timerState();
    std::lock_guard<std::mutex> g(s.lock);
    if (!s.thread.joinable()) {
        s.stop = false;
        s.thread = std::thread(timerLoop);
    }
    int handle = s.nextHandle++;
    s.timers[handle].name = name ? name : "";
    return handle;
}

extern "C" ZEB_ERROR_CODE DMSAppStartTimer(int handle, unsigned int milliseconds, DMSAppTimerHandler handler,
                                           void* userData) {
    host::journal("DMSAppStartTimer(%d, %u)", handle, milliseconds);
    long long scripted;
    if (host::takeScriptedResult("DMSAppStartTimer", &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    TimerState& s = timerState();
    {
        std::lock_guard<std::mutex> g(s.lock);
        auto it = s.timers.find(handle);
        if (it == s.timers.end() || handler == nullptr) return 1;
        TimerEntry& t = it->second;
        t.armed = true;
        t.periodMs = milliseconds;
        t.armedAt = Clock::now();
        t.deadline = t.armedAt + std::chrono::milliseconds(milliseconds);
        t.handler = handler;
        t.userData = userData;
    }
    s.wake.notify_all();
    return 0;
}

extern "C" ZEB_ERROR_CODE DMSAppDeleteTimer(int handle) {
    host::journal("DMSAppDeleteTimer(%d)", handle);
    long long scripted;
    if (host::takeScriptedResult("DMSAppDeleteTimer", &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    TimerState& s = timerState();
    std::lock_guard<std::mutex> g(s.lock);
    return s.timers.erase(handle) == 1 ? 0 : 1;
}
