// The push API's inner layer: the SP* functions that drive the push server and
// the client manager and translate their events for the UI.
#ifndef CAMWIFI_SP_INTERFACE_H
#define CAMWIFI_SP_INTERFACE_H

#include <atomic>

class SPServer;

// The running push server; null when stopped. Set and cleared by the push
// start and terminate functions on the UI thread; read by other API calls.
extern std::atomic<SPServer*> ptheSpServer;

// The push server's listening port, or 0 (with the not-started line) when no
// server runs.
int SPGetServerPort();

#endif
