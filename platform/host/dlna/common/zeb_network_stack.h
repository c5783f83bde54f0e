// The network half of the DLNA stack's contract (zeb_stack.h), which the
// host implements twice: the scripted stand-in (scripted/, driven by the unit
// tests) and the real stack on libupnp (stack/). The exported functions of
// that half (stack/zeb_stack_select.cpp) forward every call to the
// implementation chosen at run time by CAMWIFI_DLNA_STACK; everything else of
// the contract (objects, lists, configuration, timers, database) is shared.
#ifndef CAMWIFI_HOST_ZEB_NETWORK_STACK_H
#define CAMWIFI_HOST_ZEB_NETWORK_STACK_H

#include "zeb_stack.h"

namespace host {
namespace zeb {

// One implementation: each member has the meaning and result of the exported
// function of the same name in zeb_stack.h.
struct NetworkStack {
    const char* name;  // "scripted", "upnp"
    ZEB_ERROR_CODE (*initializeZEB)(const char* configFile);
    ZEB_ERROR_CODE (*terminateZEB)();
    ZEB_ERROR_CODE (*httpInitialize)();
    ZEB_ERROR_CODE (*httpTerminate)();
    ZEB_ERROR_CODE (*mrcpInitialize)(ZEBMRCPExceptionCallback exception, ZEBMRCPDeviceInfoCallback deviceInfo,
                                     ZEBMRCPDeviceStatusCallback deviceStatus,
                                     ZEBMRCPCommandResponseCallback commandResponse, int* profileId,
                                     const char* directory);
    ZEB_ERROR_CODE (*mrcpStart)(int profileId);
    ZEB_ERROR_CODE (*mrcpStop)(int profileId);
    ZEB_ERROR_CODE (*mrcpTerminate)(int profileId);
    ZEB_ERROR_CODE (*getDeviceList)(int profileId, stZEBAppList** response);
    ZEB_ERROR_CODE (*subscribeDevice)(int profileId, const char* udn);
    ZEB_ERROR_CODE (*getDeviceDetails)(int profileId, const char* udn, stZEBMRCPDeviceDetails* details);
    // Every sending call; fn is the exported function's name
    // ("ZEBMRCPAVPlay"), which says what the request is for.
    ZEB_ERROR_CODE (*send)(const char* fn, int profileId, const char* udn, stZEBAppList* request,
                           const char* context);
    int (*streamingInitialize)(int profileId, int port);
    void (*streamingTerminate)();
};

const NetworkStack& scriptedStack();
const NetworkStack& upnpStack();

}  // namespace zeb
}  // namespace host

#endif
