// The exported network functions of the DLNA stack's contract: each one
// forwards to the implementation CAMWIFI_DLNA_STACK names, so the same
// libcamwifi.so runs on the scripted stand-in (the unit tests) or on the real
// stack over libupnp (real renderers, the simulator) without a rebuild.
//
//   CAMWIFI_DLNA_STACK=upnp      the real stack (also when the variable is
//                                unset or empty: whoever runs the library on a
//                                PC by hand wants to reach a real TV)
//   CAMWIFI_DLNA_STACK=scripted  the scripted stand-in (every unit test sets it)
//
// The variable is read at every call, so it must be set before the feature
// starts and left alone until it has ended. Any other value makes every call
// fail with its failure code and one log line saying why; the start
// functions of the library therefore fail cleanly at their first stack call.
#include <cstdlib>
#include <cstring>
#include <string>

#include "dlog.h"
#include "zeb_network_stack.h"
#include "zeb_stack.h"

namespace {

using host::zeb::NetworkStack;

// The chosen implementation, or null (logged, naming the caller) when the
// variable names none.
const NetworkStack* chosen(const char* fn) {
    const char* name = getenv("CAMWIFI_DLNA_STACK");
    if (name == nullptr || name[0] == '\0' || strcmp(name, "upnp") == 0) return &host::zeb::upnpStack();
    if (strcmp(name, "scripted") == 0) return &host::zeb::scriptedStack();
    __dlog_print(DLOG_BUFFER_APPS, DLOG_PRIO_ERROR, "ZEB",
                 "%s: CAMWIFI_DLNA_STACK=%s names no DLNA stack of this host (use upnp or scripted)", fn, name);
    return nullptr;
}

}  // namespace

#define ZEB_FORWARD(fn, member, failure, params, args) \
    extern "C" ZEB_ERROR_CODE fn params {              \
        const NetworkStack* s = chosen(#fn);           \
        return s ? s->member args : (failure);         \
    }

ZEB_FORWARD(ZEBInitializeZEB, initializeZEB, 1, (const char* configFile), (configFile))
ZEB_FORWARD(ZEBTerminateZEB, terminateZEB, 1, (void), ())
ZEB_FORWARD(ZEBHTTPInitialize, httpInitialize, 1, (void), ())
ZEB_FORWARD(ZEBHTTPTerminate, httpTerminate, 1, (void), ())
ZEB_FORWARD(ZEBMRCPInitialize, mrcpInitialize, 1,
            (ZEBMRCPExceptionCallback exception, ZEBMRCPDeviceInfoCallback deviceInfo,
             ZEBMRCPDeviceStatusCallback deviceStatus, ZEBMRCPCommandResponseCallback commandResponse,
             int* profileId, const char* directory),
            (exception, deviceInfo, deviceStatus, commandResponse, profileId, directory))
ZEB_FORWARD(ZEBMRCPStart, mrcpStart, 1, (int profileId), (profileId))
ZEB_FORWARD(ZEBMRCPStop, mrcpStop, 1, (int profileId), (profileId))
ZEB_FORWARD(ZEBMRCPTerminate, mrcpTerminate, 1, (int profileId), (profileId))
ZEB_FORWARD(ZEBMRCPGetDeviceList, getDeviceList, 1, (int profileId, stZEBAppList** response),
            (profileId, response))
ZEB_FORWARD(ZEBMRCPSubscribeDevice, subscribeDevice, 1, (int profileId, const char* udn), (profileId, udn))
ZEB_FORWARD(ZEBMRCPGetDeviceDetails, getDeviceDetails, 1,
            (int profileId, const char* udn, stZEBMRCPDeviceDetails* details), (profileId, udn, details))
#undef ZEB_FORWARD

#define ZEB_FORWARD_SEND(fn)                                                                                  \
    extern "C" ZEB_ERROR_CODE fn(int profileId, const char* udn, stZEBAppList* request, const char* context) { \
        const NetworkStack* s = chosen(#fn);                                                                  \
        return s ? s->send(#fn, profileId, udn, request, context) : 1;                                        \
    }
ZEB_FORWARD_SEND(ZEBMRCPSetAVTransportURI)
ZEB_FORWARD_SEND(ZEBMRCPAVPlay)
ZEB_FORWARD_SEND(ZEBMRCPAVStop)
ZEB_FORWARD_SEND(ZEBMRCPAVPause)
ZEB_FORWARD_SEND(ZEBMRCPAVResume)
ZEB_FORWARD_SEND(ZEBMRCPAVSeek)
ZEB_FORWARD_SEND(ZEBMRCPGetPlayPositionInfo)
ZEB_FORWARD_SEND(ZEBMRCPSetVolume)
ZEB_FORWARD_SEND(ZEBMRCPGetVolume)
ZEB_FORWARD_SEND(ZEBMRCPGetPlayState)
ZEB_FORWARD_SEND(ZEBMRCPGetProtocolInfo)
#undef ZEB_FORWARD_SEND

extern "C" int HTTPStreamingServerInitialize(int profileId, int port) {
    const NetworkStack* s = chosen("HTTPStreamingServerInitialize");
    return s ? s->streamingInitialize(profileId, port) : 0;
}

extern "C" void HTTPStreamingServerTerminate(void) {
    // Both may have something running when the variable changed in between:
    // terminate is never the place to leave a server behind.
    host::zeb::upnpStack().streamingTerminate();
    host::zeb::scriptedStack().streamingTerminate();
}
