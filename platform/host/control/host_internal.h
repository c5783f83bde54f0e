// Shared by the stand-in modules of platform/host only.
#ifndef CAMWIFI_HOST_INTERNAL_H
#define CAMWIFI_HOST_INTERNAL_H

#include <thread>

#include "host_control.h"

namespace host {
void recordLogLine(LogLine line);

// Scripted result of fn if one is queued, else fallback.
inline long long scriptedOr(const char* fn, long long fallback) {
    long long r;
    return takeScriptedResult(fn, &r) ? r : fallback;
}

// Ends a stand-in's worker thread that was told to stop: joined, or detached
// when the stop comes from that thread itself (a callback that terminates).
inline void joinUnlessSelf(std::thread& t) {
    if (!t.joinable()) return;
    if (t.get_id() == std::this_thread::get_id()) t.detach();
    else t.join();
}
}  // namespace host

#endif
