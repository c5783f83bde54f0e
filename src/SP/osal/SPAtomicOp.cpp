#include "SP/osal/SPAtomicOp.h"

#include <atomic>
#include <new>

#include "Dlna/DlnaLog.h"
#include "SP/osal/SPGenericMutex.h"

namespace {

std::atomic<SPGenericMutex*> gAtomicMutex{nullptr};
// Set by the release. The pointer itself is left as it was (callers release
// only at final shutdown), but a second release must not delete it again.
std::atomic<bool> gAtomicMutexReleased{false};

}  // namespace

int SPInitAtomicOp() {
    if (gAtomicMutex.load() == nullptr) {
        SPGenericMutex* created = new (std::nothrow) SPGenericMutex;
        SPGenericMutex* expected = nullptr;
        // Two threads racing through the first use must end up with one mutex.
        if (created != nullptr && !gAtomicMutex.compare_exchange_strong(expected, created)) delete created;
    }
    return gAtomicMutex.load() != nullptr ? 1 : 0;
}

SPGenericMutex* SPGetAtomicMutex() {
    if (gAtomicMutex.load() == nullptr) SPInitAtomicOp();
    SPGenericMutex* mutex = gAtomicMutex.load();
    if (mutex == nullptr) OSAL_MYASSERT();
    return mutex;
}

void SPReleaseAtomicOp() {
    SPGenericMutex* mutex = gAtomicMutex.load();
    if (mutex == nullptr || gAtomicMutexReleased.exchange(true)) return;
    delete mutex;
}
