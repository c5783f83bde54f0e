// The renderer control point's process-wide state and the helpers its
// lifecycle, playback commands and response handling share (their exported
// functions are in camwifi/camwifi_mrcp.h).
//
// Threads: the UI calls the exported functions; the stack calls the four
// callbacks on its own threads; the two polling timers fire on the stack's
// timer thread. Every one of these entries holds MrcpLock() while it works on
// the state below, so a response, an event and a timer never interleave
// half-way; flags that are also read without it are atomic.
#ifndef CAMWIFI_DLNA_MRCP_H
#define CAMWIFI_DLNA_MRCP_H

#include <atomic>
#include <functional>
#include <mutex>

#include "camwifi/camwifi_mrcp.h"
#include "zeb_stack.h"

// gMrcpProfileID while the stack gave no profile.
constexpr int kMrcpNoProfile = 20;
// Busy flags: nothing pending, sent and not yet answered, answered.
enum { kMrcpActionIdle = 0, kMrcpActionSent = 1, kMrcpActionDone = 2 };

extern std::atomic<int> gMrcpProfileID;
// UDN of the chosen renderer; empty while none. Guarded by MrcpLock().
extern char gSelectedDmrUDN[256];
extern std::atomic<int> gMrcpStopActionFlag;
extern std::atomic<int> gMrcpPlayActionFlag;
extern std::atomic<int> gMrcpShowActionFlag;
// ZEBMRCPStart succeeded and DlnaMrcpTerminate has not run since: callbacks
// and timers act only while it is set.
extern std::atomic<bool> gMrcpStarted;
// How long DlnaMrcpGetDmrList lets renderers answer the search, in
// milliseconds (2000; tests that are not about the list shorten it).
extern std::atomic<int> gMrcpListWaitMs;

// The one lock of the control point's state (recursive: a UI callback may
// call back into the control point from inside an event).
std::recursive_mutex& MrcpLock();

// Marks one callback or timer handler of the control point as running, so
// that terminate can wait for it to return.
class MrcpCallbackScope {
public:
    MrcpCallbackScope();
    ~MrcpCallbackScope();
    MrcpCallbackScope(const MrcpCallbackScope&) = delete;
    MrcpCallbackScope& operator=(const MrcpCallbackScope&) = delete;
};

// Sends one event to the UI callback when one is registered.
void MrcpSendEventToUI(ZEB_CALLBACK_EVENT event, void* value, int length);

// One stack call that sends a request.
using MrcpSender = ZEB_ERROR_CODE (*)(int profileId, const char* udn, stZEBAppList* request, const char* context);
// Makes a request for action (instance "0"), lets fill set its own fields,
// sends it with send to udn (null: the chosen renderer) with context, and
// releases it. Returns the stack's status, or -1 when the request could not
// be made or there is no renderer to send it to.
ZEB_ERROR_CODE MrcpSendAction(MrcpSender send, const char* action, const char* context,
                              const std::function<ZEB_ERROR_CODE(stZEBAppList*)>& fill = nullptr,
                              const char* udn = nullptr);

// Sends SetAVTransportURI for the photo DlnaMrcpShowFile left pending. 1
// when sent, 0 when not (the caller reports EVT_MRCP_PLAY_FAILED).
int Mrcp_SetAvtransportUrl();

// Text of the camera's IPv4 address in the my-IP buffer ("0.0.0.0" when
// there is none but loopback), or null when the interfaces cannot be read.
// Read the buffer with MrcpLock() held.
char* __GetMyIP();

// Stack callbacks of renderer arrival / departure and of exceptions.
void MrcpExceptionNotification(int id, stZEBAppList* info);
void MrcpDeviceInfoNotification(int id, char* type, ZEB_ERROR_CODE error, stZEBAppList* info);

#endif
