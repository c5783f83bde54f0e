// Names of the events the library sends to the camera UI, for the event log
// and for the shell's "wait" command. The library itself knows them only by
// number.
#ifndef CAMWIFI_SIM_UI_EVENTS_H
#define CAMWIFI_SIM_UI_EVENTS_H

#include <string>

namespace camsim {

// Which callback an event came through: the push callback (ids 60..79), the
// mode server's own (ids 0..3) or the renderer control point's (ids 15..25,
// what a TV does).
enum class Feature { Push, Mode, Tv };

struct EventName {
    Feature feature;
    int id;
    const char* name;     // e.g. "PUSH_TRANSFER_COMPLETE"
    const char* meaning;  // e.g. "file transfer complete"
};

// "push", "mode" or "tv".
const char* featureWord(Feature feature);
// The entry for an event, or null for an id no feature sends.
const EventName* eventName(Feature feature, int id);
// "PUSH_TRANSFER_COMPLETE (64)", or "push event 99" for an unknown id.
std::string eventLabel(Feature feature, int id);
// Looks an event up by name (case-insensitive) or by "push:64" / "mode:1" /
// "tv:24" / a bare push or TV id (the two ranges do not meet); null when
// nothing matches.
const EventName* findEvent(const std::string& text);
// Every known event, for help texts.
const EventName* allEvents(size_t* count);

}  // namespace camsim

#endif
