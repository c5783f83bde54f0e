// Live-stream handover to the viewfinder service, the user-start handshake,
// and the part of every viewfinder terminate that takes the service down.
//
// The stream semaphores belong to the viewfinder library: StartRVFDevice
// creates them and RVFAppSemaphoreDestory releases them. A producer blocked in
// DlanRVFStreamBufferReady must therefore have left its wait before a
// terminate lets the library release them. Producers register inside one
// lock together with the stop flag: once a terminate has set the flag no
// producer enters, and the terminate wakes and waits out those inside before
// the service is stopped.
#include <semaphore.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <mutex>

#include "Dlna/DlnaFrame.h"
#include "Dlna/DlnaLog.h"
#include "Dlna/Dlna_RVF_interface.h"
#include "rvf_lib.h"
#include "zeb_stack.h"

namespace {

// How long the phone may take to read one buffer before the viewfinder
// application counts as closed.
constexpr long kReadCompleteTimeoutMs = 30000;
constexpr long kNanosPerSecond = 1000000000L;

std::mutex gStreamLock;
std::condition_variable gProducerLeft;
int gProducersInside = 0;

// Enters the handover unless the viewfinder is stopped.
bool enterHandover() {
    std::lock_guard<std::mutex> g(gStreamLock);
    if (gRVFTerminated) return false;
    ++gProducersInside;
    return true;
}

void leaveHandover() {
    std::lock_guard<std::mutex> g(gStreamLock);
    --gProducersInside;
    gProducerLeft.notify_all();
}

// now + ms on the wall clock, as sem_timedwait takes it. Nanoseconds above
// one second carry into the seconds; exactly one second is left as it is, as
// on the camera (sem_timedwait then refuses the deadline and the wait ends as
// a stall).
timespec deadlineAfter(long ms) {
    timespec t;
    clock_gettime(CLOCK_REALTIME, &t);
    t.tv_sec += ms / 1000;
    t.tv_nsec += (ms % 1000) * 1000000L;
    if (t.tv_nsec > kNanosPerSecond) {
        t.tv_sec += 1;
        t.tv_nsec -= kNanosPerSecond;
    }
    return t;
}

bool before(const timespec& a, const timespec& b) {
    return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec < b.tv_nsec);
}

// Waits for the phone's read-complete signal until one absolute deadline:
// signals that interrupt the wait do not extend or shorten it. true when
// acquired; false on a stall, with the errno of the failed wait in *err.
bool waitReadComplete(sem_t* readComplete, int* err) {
    const timespec deadline = deadlineAfter(kReadCompleteTimeoutMs);
    for (;;) {
        if (sem_timedwait(readComplete, &deadline) == 0) return true;
        *err = errno;
        if (*err != EINTR) {
            DLNA_LOG_E_LOGONLY(DLNA_TAG, "time out 222");
            return false;
        }
        timespec now;
        clock_gettime(CLOCK_REALTIME, &now);
        if (!before(now, deadline)) {
            DLNA_LOG_E_LOGONLY(DLNA_TAG, "time out 111");
            return false;
        }
        DLNA_LOG_I(DLNA_TAG, "ignore signal");
    }
}

}  // namespace

bool RvfSetTerminated(bool terminated) {
    std::lock_guard<std::mutex> g(gStreamLock);
    return gRVFTerminated.exchange(terminated);
}

void RvfStopService(bool streamingStopStatus) {
    {
        std::unique_lock<std::mutex> l(gStreamLock);
        // One read-complete post for each producer inside (at least one, as a
        // producer may be on its way in from the library's side), so each of
        // them returns now instead of after its time limit.
        if (g_RVFsemBufferReadComplete != nullptr)
            for (int i = 0; i < std::max(1, gProducersInside); ++i) sem_post(g_RVFsemBufferReadComplete);
        if (g_RVFsemBufferReady4Read != nullptr) sem_post(g_RVFsemBufferReady4Read);
        // They only have to return from the wait: the UI event of a stall is
        // sent after leaving, so this never waits on a UI callback.
        gProducerLeft.wait(l, [] { return gProducersInside == 0; });
    }
    if (GlobalEventHandleLock* lock = GlobalEventHandleLock::GetInstance()) lock->ReleaseLock();
    terminateRVF();
    gRVFCallback = nullptr;
    RVFAppSemaphoreDestory();
    CDSRVF_Sysfunc_set_Isvideo_hotswap(false);
    CDSRVF_Sysfunc_set_Streaming_stop_status(streamingStopStatus);
}

extern "C" {

int DlanRVFStreamBufferReady(void* buffer, long size) {
    if (!enterHandover()) return 1;
    if (CDSRVF_Sysfunc_get_Streaming_stop_status() != 0) {
        leaveHandover();
        return 1;
    }
    RVFStreamingThruGet::setBufferPtr(buffer, static_cast<long long>(size));
    if (g_RVFsemBufferReady4Read != nullptr) sem_post(g_RVFsemBufferReady4Read);
    int err = 0;
    bool stalled = g_RVFsemBufferReadComplete != nullptr && !waitReadComplete(g_RVFsemBufferReadComplete, &err);
    leaveHandover();
    if (stalled) {
        DLNA_LOG_E(DLNA_TAG, "EVT_RVF_ML_APP_CLOSE call...%d", err);
        RVFSendEventToUI(kRvfEventAppClosed, nullptr, 0);
    }
    return 1;
}

int DlnaRVFWaitingUserStartEvent(unsigned int* result) {
    unsigned int bits = 0;
    if (RVFAppReceiveEventFlag(kRvfFlagUserStart | kRvfFlagUserCancel, &bits) == 0) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "RVFAppReceiveEventFlag error");
        return -1;
    }
    if ((bits & (kRvfFlagUserStart | kRvfFlagUserCancel)) == 0) return -1;
    if (RVFAppClearEventFlag(bits) == 0) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "RVFAppClearEventFlag error");
        return -1;
    }
    // Start wins when both answers are there.
    if (result != nullptr) *result = (bits & kRvfFlagUserStart) ? 1 : 2;
    return 0;
}

int DlnaRVFSendUserStartEvent(int start) {
    return RvfSetEventFlag(start != 0 ? kRvfFlagUserStart : kRvfFlagUserCancel) ? 0 : -1;
}

}  // extern "C"
