// Test control of the host stand-in of the application-service library: its
// file list and its AT HTTP server.
#ifndef CAMWIFI_HOST_NASL_H
#define CAMWIFI_HOST_NASL_H

namespace host {
namespace media {

// Whether the file list of the application-service library exists.
bool fileListExists();

}  // namespace media

namespace at {

// Whether the AT HTTP server runs (AT_HttpSeverStart without a terminate since).
bool serverRunning();

}  // namespace at
}  // namespace host

#endif
