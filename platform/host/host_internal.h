// Shared by the stand-in modules of platform/host only.
#ifndef CAMWIFI_HOST_INTERNAL_H
#define CAMWIFI_HOST_INTERNAL_H

#include "host_control.h"

namespace host {
void recordLogLine(LogLine line);

// Scripted result of fn if one is queued, else fallback.
inline long long scriptedOr(const char* fn, long long fallback) {
    long long r;
    return takeScriptedResult(fn, &r) ? r : fallback;
}
}  // namespace host

#endif
