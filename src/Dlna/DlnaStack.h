// The DLNA stack's one-time set-up, shared by every feature that brings the
// stack up (media server, renderer control point): whoever comes first
// initialises the stack and its HTTP layer, the others find it done, and the
// terminate paths take each down once.
#ifndef CAMWIFI_DLNA_STACK_H
#define CAMWIFI_DLNA_STACK_H

#include <atomic>

// ZEBInitializeZEB has been called (and ZEBTerminateZEB not since).
extern std::atomic<bool> gDlnaStackInitialized;
// ZEBHTTPInitialize has been called (and ZEBHTTPTerminate not since).
extern std::atomic<bool> gDlnaHTTPInitialized;

// The stack's configuration file, "/mnt/mmc/config/UPnPConfig.xml".
#define DLNA_UPNP_CONFIG_FILE "/mnt/mmc/config/UPnPConfig.xml"

#endif
