// What every feature shares: the UI callback slots, the forwarding of events
// to the UI and the process-wide settings (their exported accessors are in
// camwifi/camwifi_frame.h).
#ifndef CAMWIFI_DLNA_FRAME_H
#define CAMWIFI_DLNA_FRAME_H

#include <atomic>

#include "camwifi/camwifi_frame.h"
#include "camwifi/camwifi_mode.h"
#include "Dlna/DlnaAbi.h"

// Callback slots, null until the UI registers one. Written by the UI thread,
// read by server, transfer and stack threads: atomic words, no lock.
extern std::atomic<ZEB_UI_CALLBACK> gDMSCallback;
extern std::atomic<ZEB_UI_CALLBACK> gMrcpCallback;
extern std::atomic<ZEB_UI_CALLBACK> gMscpCallback;
extern std::atomic<ZEB_UI_CALLBACK> gSelectivePushCallback;
extern std::atomic<ZEB_UI_CALLBACK> gRVFCallback;
// The mode server's slot has its own type: its third argument carries a
// pointer (the user agent text), so it is pointer-wide (camwifi_mode.h).
extern std::atomic<ZEB_MODE_CALLBACK> gModeServerCallback;

// Forward one event to the feature's callback. 1 when a callback was called,
// 0 when none was registered (the event is logged and dropped).
int DmsSendEventToUI(ZEB_CALLBACK_EVENT event, void* value, intptr_t length);
int RVFSendEventToUI(ZEB_CALLBACK_EVENT event, void* value, intptr_t length);
int SelectivePushSendEventToUI(ZEB_CALLBACK_EVENT event, void* value, intptr_t length);

// The program's common handler for SIGALRM and SIGPIPE: a SIGALRM re-installs
// the handler and is otherwise ignored; other signals are ignored.
void DlnaSignalHandler(int signo);
// Installs DlnaSignalHandler for SIGALRM and SIGPIPE.
void DlnaInstallSignalHandler();

#endif
