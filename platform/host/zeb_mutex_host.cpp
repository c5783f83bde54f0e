// Host stand-in of the DLNA stack's mutexes.
//
// The stack's mutexes are recursive: the push server takes its client-entry
// lock and, still holding it, calls helpers that take the same lock again, so
// a plain mutex would deadlock there. Here each one is a real recursive
// pthread mutex, which also reports a release by a thread that does not hold
// it (EPERM) the way the stack does, instead of undefined behaviour.
//
// Every call is journalled with the mutex's name ("ZEBAcquireMutex(SP_ACL_MUTEX)",
// "(null)" for a null handle). A scripted result makes a call fail:
// ZEBCreateMutex and ZEBAcquireMutex then return it without creating or
// taking anything; ZEBReleaseMutex and ZEBDeleteMutex return it after doing
// the real thing, so a test that scripts a failure cannot leave a mutex
// held or leaked behind it.
#include <pthread.h>

#include <cerrno>
#include <mutex>
#include <set>
#include <string>

#include "host_internal.h"
#include "zeb_stack.h"

struct ZEBMutex_s {
    pthread_mutex_t mutex;  // the real lock, recursive
    std::string name;       // label given at creation, for the journal
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
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    const int rc = pthread_mutex_init(&m->mutex, &attr);
    pthread_mutexattr_destroy(&attr);
    if (rc != 0) {
        delete m;
        return rc;
    }
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
    return pthread_mutex_lock(&mutex->mutex);
}

extern "C" ZEB_ERROR_CODE ZEBReleaseMutex(ZEB_MUTEX mutex) {
    host::journal("ZEBReleaseMutex(%s)", nameOf(mutex).c_str());
    int rc = EINVAL;
    if (mutex != nullptr && isLive(mutex)) rc = pthread_mutex_unlock(&mutex->mutex);
    return static_cast<ZEB_ERROR_CODE>(host::scriptedOr("ZEBReleaseMutex", rc));
}

extern "C" ZEB_ERROR_CODE ZEBDeleteMutex(ZEB_MUTEX mutex) {
    host::journal("ZEBDeleteMutex(%s)", nameOf(mutex).c_str());
    int rc = EINVAL;
    if (mutex != nullptr) {
        Registry& r = registry();
        std::unique_lock<std::mutex> g(r.lock);
        if (r.live.count(mutex) != 0) {
            rc = pthread_mutex_destroy(&mutex->mutex);
            // A mutex still held (EBUSY) stays alive: destroying it would be
            // undefined, and its holder may still release it.
            if (rc == 0) {
                r.live.erase(mutex);
                g.unlock();
                delete mutex;
            }
        }
    }
    return static_cast<ZEB_ERROR_CODE>(host::scriptedOr("ZEBDeleteMutex", rc));
}
