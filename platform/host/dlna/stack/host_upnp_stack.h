// Test control of the real DLNA stack behind the contract: what its HTTP
// streaming server served and whether its control point is up, for tests
// and the simulator that drive the library against real renderers.
#ifndef CAMWIFI_HOST_UPNP_STACK_H
#define CAMWIFI_HOST_UPNP_STACK_H

#include <cstdint>

namespace host {
namespace upnpstack {

// Body bytes the streaming server wrote to clients since its last start.
uint64_t streamingBytesSent();
// Answers (any status) the streaming server completed since its last start.
uint64_t streamingAnswered();
bool streamingServerRunning();
// True between a successful ZEBMRCPInitialize and its ZEBMRCPTerminate.
bool controlPointUp();

}  // namespace upnpstack
}  // namespace host

#endif
