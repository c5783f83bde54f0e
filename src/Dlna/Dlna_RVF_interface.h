// The remote viewfinder glue's shared state: the three modes (viewfinder,
// monitor, media browsing) run the same viewfinder service, share its stop
// flag, the live-stream handover and the media database thread.
#ifndef CAMWIFI_DLNA_RVF_INTERFACE_H
#define CAMWIFI_DLNA_RVF_INTERFACE_H

#include <atomic>
#include <cstdio>

#include "camwifi/camwifi_rvf.h"
#include "rvf_lib.h"

// UI events of the viewfinder.
enum {
    kRvfEventDBStarted = 91,   // value NULL: the media database build began
    kRvfEventDBFinished = 92,  // value int*: 0 ready, 1 failed, 2 cancelled
    kRvfEventAppClosed = 95,   // value NULL: the phone stopped reading the stream
};

// Bits of the viewfinder service's event flag word.
enum : unsigned int {
    kRvfFlagStateChanged = 1,
    kRvfFlagUserStart = 2,
    kRvfFlagUserCancel = 4,
    kRvfFlagAll = 0xffff,  // wakes every waiter
};

// True while no mode runs (also before the first start): events are refused
// and the stream handover returns at once. Written only through
// RvfSetTerminated.
extern std::atomic<bool> gRVFTerminated;
// Set by DlnaDBCancel, cleared when a database thread starts; decides the
// build's final report.
extern std::atomic<bool> gDBCancelled;

// Raises bits in the service's event flag word; false (and "RVFAppSetEventFlag
// error" logged) when the service refused.
bool RvfSetEventFlag(unsigned int bits);

// Stores the UI callback, starts the service with serviceCallback and lets
// events in (also when the start failed). true when the service started.
bool RvfStartService(ZEB_UI_CALLBACK uiCallback, RVF_SERVICE_CALLBACK serviceCallback);

// Hands one of the camera's function tables to the service and returns its
// result; a missing table is printed as "<name> param is NULL!!!" and
// refused with 0.
template <typename Table>
int RvfForwardTable(const char* name, Table* table, int (*forward)(Table*)) {
    if (table == nullptr) {
        printf("%s param is NULL!!!\n", name);
        return 0;
    }
    return forward(table);
}

// --- Live-stream handover (DlnaRvfStream.cpp) -----------------------------------
// Sets the stop flag and returns its previous value. The stream handover reads
// the flag under the same lock, so after RvfSetTerminated(true) no producer
// enters the handover any more.
bool RvfSetTerminated(bool terminated);
// The tail of every terminate, from waking the stream to the stream status:
// posts both stream semaphores (when present) and returns once no producer is
// inside the handover, releases the stack's event lock, stops the service,
// clears the UI callback, releases the service's semaphores and resets its
// hot-swap and stream-stop status (streamingStopStatus).
void RvfStopService(bool streamingStopStatus);

// --- Media database thread (DlnaRvfDb.cpp) --------------------------------------
// Camera event 40: starts the detached "DlnaDBThread". Returns 1.
int RvfStartDBThread();
// Cancels a database build in progress and waits until every database thread
// has finished (used by the terminates before they take the service down),
// at most gDBThreadFinishWaitMs.
void RvfFinishDBThreads();
// How long a terminate waits for a cancelled database build before it goes
// on without it, in milliseconds (30000; tests shorten it).
extern std::atomic<int> gDBThreadFinishWaitMs;

#endif
