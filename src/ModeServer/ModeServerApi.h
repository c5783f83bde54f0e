// The mode server's exported API (camwifi/camwifi_mode.h) and what it shares
// with the server: the running server, the user's answer for a new phone,
// and the callback that turns the server's events into UI events.
#ifndef CAMWIFI_MODE_SERVER_API_H
#define CAMWIFI_MODE_SERVER_API_H

#include <atomic>
#include <cstdint>

#include "ModeServer/ModeServerTypes.h"

class ModeServer;

// The user's answer, carried in gModeServerConfirmFlag.
constexpr int FLG_MS_CONFIRM_YES = 1;
constexpr int FLG_MS_CONFIRM_NO = 2;

// The running server, or null. Written by start and terminate (terminate
// clears it only once the server's thread has ended).
extern std::atomic<ModeServer*> ptheModeServer;
// The user's last answer (0 none): written by the UI before it posts the
// confirmation semaphore, read by the server thread after its wait.
extern std::atomic<int> gModeServerConfirmFlag;

// Installed as the server's callback; runs on the server thread. For a new
// phone it calls the UI (event 1) and then waits until the UI answers or the
// server is terminated.
void ModeServerNotificationCallback(int socketFd, eModeServerInternalEvent event, intptr_t mac, intptr_t userAgent);

// Whether the confirmation semaphore exists (created by start, destroyed by
// terminate), and its count (-1 when it does not exist).
bool ModeServerConfirmSemExists();
int ModeServerConfirmSemValue();

// Logging wrappers around the AT HTTP server of the application-service
// library; they return its result.
int AT_HttpSeverStart_wrapper();
int AT_HttpServerTerminate_wrapper();

#endif
