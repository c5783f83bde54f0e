// Test control of the host DLNA stack's timer service (DMSAppCreateTimer,
// DMSAppStartTimer, DMSAppDeleteTimer), which the renderer control point's
// polling and the media server share.
#ifndef CAMWIFI_HOST_TIMER_H
#define CAMWIFI_HOST_TIMER_H

#include <cstdint>
#include <string>
#include <vector>

namespace host {
namespace mrcp {

// --- Timers (DMSAppCreateTimer & co.) -----------------------------------------------
struct Timer {
    int handle = 0;
    std::string name;
    bool armed = false;
    unsigned int periodMs = 0;  // of the last start
};
// Timers created and not deleted.
std::vector<Timer> timers();
struct Firing {
    std::string name;
    int64_t armedAtMs = 0;  // steady clock when the timer was (re-)armed
    int64_t firedAtMs = 0;  // steady clock when its handler was called
    unsigned int periodMs = 0;
};
// Every firing since the last reset, in order.
std::vector<Firing> firings();
// The steady clock the timestamps above use.
int64_t nowMs();

}  // namespace mrcp
}  // namespace host

#endif
