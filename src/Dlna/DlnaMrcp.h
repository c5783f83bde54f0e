// The renderer control point's process-wide state and the helpers its
// lifecycle, playback commands and response handling share (their exported
// functions are in camwifi/camwifi_mrcp.h).
//
// Threads: the UI calls the exported functions; the stack calls the four
// callbacks on its own threads; the two polling timers fire on the stack's
// timer thread. The flags are atomic words; where two handlers could race
// for one report (SHOW_READY, PLAY_STARTED, the end of a busy flag) the
// decision is one atomic step (exchange, compare-exchange), so only one of
// them makes it. MrcpLock() guards only the texts and handles below, and is
// never held while the UI callback or the stack is called: a UI may hand an
// event to its own thread and wait there for a call back into the control
// point, and a stack call may wait until the stack's notification thread
// has run a callback of ours. Either would deadlock on a lock held across
// the call. What a call needs is copied under the lock, then the lock is
// released, then the call is made.
#ifndef CAMWIFI_DLNA_MRCP_H
#define CAMWIFI_DLNA_MRCP_H

#include <atomic>
#include <functional>
#include <mutex>
#include <string>

#include "camwifi/camwifi_mrcp.h"
#include "zeb_stack.h"

// gMrcpProfileID while the stack gave no profile.
constexpr int kMrcpNoProfile = 20;
// Busy flags: nothing pending, sent and not yet answered, answered.
enum { kMrcpActionIdle = 0, kMrcpActionSent = 1, kMrcpActionDone = 2 };

extern std::atomic<int> gMrcpProfileID;
// UDN of the chosen renderer; empty while none. Guarded by MrcpLock(); read
// it through MrcpChosenUdn().
extern char gSelectedDmrUDN[256];
extern std::atomic<int> gMrcpStopActionFlag;
extern std::atomic<int> gMrcpPlayActionFlag;
extern std::atomic<int> gMrcpShowActionFlag;
// ZEBMRCPStart succeeded and DlnaMrcpTerminate has not run since (the
// control-point-started guard of start and terminate).
extern std::atomic<bool> gMrcpStarted;
// The stack's callbacks and the polling timers act while it is set: from the
// moment ZEBMRCPInitialize handed out a profile (a stack announces renderers
// from its own threads while ZEBMRCPStart is still running) until
// DlnaMrcpTerminate begins.
extern std::atomic<bool> gMrcpCallbacksOpen;
// How long DlnaMrcpGetDmrList lets renderers answer the search, in
// milliseconds (2000; tests that are not about the list shorten it).
extern std::atomic<int> gMrcpListWaitMs;

// The lock of the control point's texts and timer handles. Held only to read
// or write them: never across a call into the UI or the stack, and never
// taken twice by one thread.
std::mutex& MrcpLock();

// A copy of gSelectedDmrUDN (empty while no renderer is chosen).
std::string MrcpChosenUdn();
// No renderer chosen and an empty renderer list, as at load (the tests start
// each case from there; nothing in the library forgets a choice).
void MrcpForgetRenderers();

// Marks one callback or timer handler of the control point as running, so
// that terminate can wait for it to return.
class MrcpCallbackScope {
public:
    MrcpCallbackScope();
    ~MrcpCallbackScope();
    MrcpCallbackScope(const MrcpCallbackScope&) = delete;
    MrcpCallbackScope& operator=(const MrcpCallbackScope&) = delete;
};

// Sends one event to the UI callback when one is registered. Never called
// with MrcpLock() held.
void MrcpSendEventToUI(ZEB_CALLBACK_EVENT event, void* value, int length);

// One stack call that sends a request.
using MrcpSender = ZEB_ERROR_CODE (*)(int profileId, const char* udn, stZEBAppList* request, const char* context);
// Makes a request for action (instance "0"), lets fill set its own fields,
// sends it with send to udn (null: the chosen renderer) with context, and
// releases it. Returns the stack's status, or -1 when the request could not
// be made or there is no renderer to send it to. Never called with
// MrcpLock() held (the stack may wait in the send for its own threads).
ZEB_ERROR_CODE MrcpSendAction(MrcpSender send, const char* action, const char* context,
                              const std::function<ZEB_ERROR_CODE(stZEBAppList*)>& fill = nullptr,
                              const char* udn = nullptr);

// Sets the show-ready flag and returns what it was: the one step that lets
// only one of two handlers send SHOW_READY for one photo.
bool MrcpExchangeShowReadyFlag(bool ready);

// Sends SetAVTransportURI for the photo DlnaMrcpShowFile left pending. 1
// when sent, 0 when not (the caller reports EVT_MRCP_PLAY_FAILED).
int Mrcp_SetAvtransportUrl();

// Text of the camera's IPv4 address in the my-IP buffer ("0.0.0.0" when
// there is none but loopback), or null when the interfaces cannot be read.
// Read the buffer with MrcpLock() held (taken here too: not while held).
char* __GetMyIP();

// Stack callbacks of renderer arrival / departure and of exceptions.
void MrcpExceptionNotification(int id, stZEBAppList* info);
void MrcpDeviceInfoNotification(int id, char* type, ZEB_ERROR_CODE error, stZEBAppList* info);

#endif
