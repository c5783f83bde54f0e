// Vocabulary shared by the mode server's classes: its internal events, the
// callback through which it reports them, and the texts of the operation
// modes.
#ifndef CAMWIFI_MODE_SERVER_TYPES_H
#define CAMWIFI_MODE_SERVER_TYPES_H

#include <cstdint>

#include "camwifi/camwifi_mode.h"

// What the server reports to the API layer.
enum eModeServerInternalEvent {
    eEVENT_NEW_DEVICE = 1,      // a phone announced itself ("NTS: alive")
    eEVENT_REMOVED_DEVICE = 2,  // a registered phone said goodbye ("NTS: byebye")
    eINTERNAL_EVENT_FAIL = 3,   // the server thread failed and stopped
};

// Access modes of the server.
enum {
    ACCESS_MODE_ANY_CP = 0,                // any phone is welcome (asked like any other)
    ACCESS_MODE_NO_NEW_CP_PERMIT = 1,      // only registered phones
    ACCESS_MODE_CONFIRM_NEW_CP = 2,        // each new phone needs the user's confirmation
};

// The server's event sink. mac and userAgent carry text pointers (null for
// events other than 1); pointer-wide slots, the documented int on the camera.
using ModeServerCallback = void (*)(int socketFd, eModeServerInternalEvent event, intptr_t mac, intptr_t userAgent);

// Text of a mode in the "Operation-Mode" reply header; "IDLE" for a value
// outside the table.
const char* ModeServerModeName(int mode);

#endif
