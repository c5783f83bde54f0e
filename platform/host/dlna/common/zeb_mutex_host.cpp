// Host stand-in of the DLNA stack's mutexes.
//
// The stack's mutexes are recursive: the push server takes its client-entry
// lock and, still holding it, calls helpers that take the same lock again, so
// a plain mutex would deadlock there. Here each one is a real recursive mutex
// that knows its owner, so a release by a thread not holding it (EPERM) and
// the deletion of a held mutex (EBUSY) are refused the way the stack refuses
// them, instead of reaching the system lock as undefined behaviour.
//
// Every call is journalled with the mutex's name ("ZEBAcquireMutex(SP_ACL_MUTEX)",
// "(null)" for a null handle). A scripted result makes a call fail:
// ZEBCreateMutex and ZEBAcquireMutex then return it without creating or
// taking anything; ZEBReleaseMutex and ZEBDeleteMutex return it after doing
// the real thing, so a test that scripts a failure cannot leave a mutex
// held or leaked behind it.
#include <atomic>
#include <cerrno>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "host_internal.h"
#include "zeb_stack.h"

struct ZEBMutex_s {
    std::recursive_mutex mutex;          // the real lock
    std::string name;                    // label given at creation, for the journal
    std::atomic<std::thread::id> owner;  // holder, default id when free; only its holder sees itself here
    int depth = 0;                       // holds by the owner; changed only while holding the lock
};

namespace {

// Handles alive now: a call on a deleted or made-up handle fails cleanly
// instead of touching freed memory.
struct Registry {
    std::mutex lock;
    std::set<ZEB_MUTEX> live;
};

Registry& registry() {
    static Registry* r = new Registry;
    return *r;
}

bool isLive(ZEB_MUTEX m) {
    Registry& r = registry();
    std::lock_guard<std::mutex> g(r.lock);
    return r.live.count(m) != 0;
}

// Name for the journal; only read while the handle is known to be alive.
std::string nameOf(ZEB_MUTEX m) {
    if (m == nullptr) return "(null)";
    if (!isLive(m)) return "(invalid)";
    return m->name;
}

}  // namespace

extern "C" ZEB_ERROR_CODE ZEBCreateMutex(ZEB_MUTEX* mutex, const char* name) {
    host::journal("ZEBCreateMutex(%s)", name ? name : "(null)");
    if (mutex == nullptr) return EINVAL;
    *mutex = nullptr;
    const long long scripted = host::scriptedOr("ZEBCreateMutex", 0);
    if (scripted != 0) return static_cast<ZEB_ERROR_CODE>(scripted);

    ZEB_MUTEX m = new ZEBMutex_s;
    m->name = name ? name : "";
    Registry& r = registry();
    std::lock_guard<std::mutex> g(r.lock);
    r.live.insert(m);
    *mutex = m;
    return 0;
}

extern "C" ZEB_ERROR_CODE ZEBAcquireMutex(ZEB_MUTEX mutex) {
    host::journal("ZEBAcquireMutex(%s)", nameOf(mutex).c_str());
    const long long scripted = host::scriptedOr("ZEBAcquireMutex", 0);
    if (scripted != 0) return static_cast<ZEB_ERROR_CODE>(scripted);
    if (mutex == nullptr || !isLive(mutex)) return EINVAL;
    mutex->mutex.lock();
    if (mutex->depth++ == 0) mutex->owner.store(std::this_thread::get_id());
    return 0;
}

extern "C" ZEB_ERROR_CODE ZEBReleaseMutex(ZEB_MUTEX mutex) {
    host::journal("ZEBReleaseMutex(%s)", nameOf(mutex).c_str());
    int rc = EINVAL;
    if (mutex != nullptr && isLive(mutex)) {
        rc = EPERM;
        if (mutex->owner.load() == std::this_thread::get_id()) {
            if (--mutex->depth == 0) mutex->owner.store(std::thread::id());
            mutex->mutex.unlock();
            rc = 0;
        }
    }
    return static_cast<ZEB_ERROR_CODE>(host::scriptedOr("ZEBReleaseMutex", rc));
}

extern "C" ZEB_ERROR_CODE ZEBDeleteMutex(ZEB_MUTEX mutex) {
    host::journal("ZEBDeleteMutex(%s)", nameOf(mutex).c_str());
    int rc = EINVAL;
    if (mutex != nullptr) {
        Registry& r = registry();
        std::unique_lock<std::mutex> g(r.lock);
        if (r.live.count(mutex) != 0) {
            // A mutex still held (EBUSY) stays alive: destroying it would be
            // undefined, and its holder may still release it.
            rc = EBUSY;
            if (mutex->mutex.try_lock()) {
                if (mutex->depth == 0) rc = 0;  // held by nobody, the caller included
                mutex->mutex.unlock();
            }
            if (rc == 0) {
                r.live.erase(mutex);
                g.unlock();
                delete mutex;
            }
        }
    }
    return static_cast<ZEB_ERROR_CODE>(host::scriptedOr("ZEBDeleteMutex", rc));
}
