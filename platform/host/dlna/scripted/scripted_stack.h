// The scripted stack's set-up and HTTP layer (zeb_dms_host.cpp), which the
// real stack shares: the configuration file and the stack's own threads are
// not network, so both stacks bring them up and down the same way.
#ifndef CAMWIFI_HOST_SCRIPTED_STACK_H
#define CAMWIFI_HOST_SCRIPTED_STACK_H

#include "zeb_stack.h"

namespace host {
namespace scripted {

// Each as the exported function of the same name in zeb_stack.h
// (ZEBInitializeZEB, ZEBTerminateZEB, ZEBHTTPInitialize, ZEBHTTPTerminate).
ZEB_ERROR_CODE initializeZEB(const char* configFile);
ZEB_ERROR_CODE terminateZEB();
ZEB_ERROR_CODE httpInitialize();
ZEB_ERROR_CODE httpTerminate();

}  // namespace scripted
}  // namespace host

#endif
