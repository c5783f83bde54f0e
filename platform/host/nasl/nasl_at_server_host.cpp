// Host stand-in of the application-service library's AT HTTP server. What
// that server serves belongs to the service library; here it only records
// whether it runs.
#include <atomic>

#include "host_internal.h"
#include "host_nasl.h"
#include "nasl_wifi.h"

namespace {

std::atomic<bool> gAtServerRunning{false};

void resetAtServer() { gAtServerRunning.store(false); }

const bool registered = (host::addResetHook(resetAtServer), true);

}  // namespace

bool host::at::serverRunning() { return gAtServerRunning.load(); }

extern "C" int AT_HttpSeverStart(void) {
    host::journal("AT_HttpSeverStart()");
    const int rc = static_cast<int>(host::scriptedOr("AT_HttpSeverStart", 0));
    if (rc == 0) gAtServerRunning.store(true);
    return rc;
}

extern "C" int AT_HttpServerTerminate(void) {
    host::journal("AT_HttpServerTerminate()");
    const int rc = static_cast<int>(host::scriptedOr("AT_HttpServerTerminate", 0));
    if (rc == 0) gAtServerRunning.store(false);
    return rc;
}
