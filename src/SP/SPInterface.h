// The push API's inner layer: the SP* (single phone) and SNPush* (several
// phones) functions that drive the push server and the client manager, and
// the callbacks that turn their events into UI events.
#ifndef CAMWIFI_SP_INTERFACE_H
#define CAMWIFI_SP_INTERFACE_H

#include <atomic>

#include "SP/client/SPClientNotifier.h"
#include "SP/server/SPStatusNotifier.h"
#include "camwifi/camwifi_push.h"

class SPServer;

// The running push server; null when stopped. Set and cleared by the push
// start and terminate functions on the UI thread; read by other API calls
// and by the server's callbacks.
extern std::atomic<SPServer*> ptheSpServer;

// Value of the user-start answer before anything is posted.
constexpr int kSPNoUserStart = 65535;

// Posted with 1 on each phone announcement (single-phone push); created by
// the push start, destroyed by its terminate.
class DlnaHandshake;
DlnaHandshake& SPUserStartHandshake();

// Server and client events of the single-phone push.
void SPControlNotificationCallback(eSPNotifyControlEvent event, stSPInformation* info);
void SPClntNotificationCallback(eSPNotifyClntEvent event, stSPClntInfo* info);
// The same for the multi-phone push.
void SNPushControlNotificationCallback(eSPNotifyControlEvent event, stSPInformation* info);
void SNPushClientNotificationCallback(eSPNotifyClntEvent event, stSPClntInfo* info);

#endif
