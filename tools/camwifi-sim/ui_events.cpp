#include "ui_events.h"

#include <strings.h>

#include <cstdlib>

namespace camsim {

namespace {

const EventName kEvents[] = {
    {Feature::Mode, 0, "MODE_OTHER_EVENT", "another mode server event"},
    {Feature::Mode, 1, "MODE_NEW_PHONE", "a phone asks to register with the mode server"},
    {Feature::Mode, 2, "MODE_PHONE_LEFT", "a registered phone left the mode server"},
    {Feature::Mode, 3, "MODE_SERVER_FAIL", "the mode server failed and stopped"},
    {Feature::Push, 60, "PUSH_SERVER_FAIL", "the push server failed (or no model name)"},
    {Feature::Push, 61, "PUSH_NEW_PHONE", "a phone announced itself"},
    {Feature::Push, 62, "PUSH_NEW_PHONE_NFC", "a phone announced itself, having come by NFC"},
    {Feature::Push, 63, "PUSH_PHONE_LEFT", "the phone left"},
    {Feature::Push, 64, "PUSH_TRANSFER_COMPLETE", "file transfer complete"},
    {Feature::Push, 65, "PUSH_TRANSFER_PROGRESS", "file transfer progress"},
    {Feature::Push, 66, "PUSH_TRANSFER_FAIL", "file transfer failed"},
    {Feature::Push, 67, "PUSH_STORAGE_FULL", "the phone's storage is full"},
    {Feature::Push, 68, "PUSH_NOT_SUPPORTED", "the phone does not take this file type"},
    {Feature::Push, 69, "PUSH_SERVER_READY", "the push server is ready"},
    {Feature::Push, 70, "NPUSH_SERVER_FAIL", "the multi-phone push server failed"},
    {Feature::Push, 71, "NPUSH_FIRST_PHONE", "a phone announced itself and is the only one"},
    {Feature::Push, 72, "NPUSH_LAST_PHONE_REMOVED", "a phone was removed and none remain"},
    {Feature::Push, 73, "NPUSH_TRANSFER_COMPLETE", "transfer to a phone complete"},
    {Feature::Push, 74, "NPUSH_TRANSFER_PROGRESS", "transfer to a phone in progress"},
    {Feature::Push, 75, "NPUSH_TRANSFER_FAIL", "transfer to a phone failed"},
    {Feature::Push, 76, "NPUSH_NOT_SUPPORTED", "the phone does not take this file type"},
    {Feature::Push, 77, "NPUSH_STORAGE_FULL", "the phone's storage is full"},
    {Feature::Push, 78, "NPUSH_ANOTHER_PHONE", "a phone announced itself while others are registered"},
    {Feature::Push, 79, "NPUSH_PHONE_REMOVED", "a phone was removed and others remain"},
};

}  // namespace

const EventName* eventName(Feature feature, int id) {
    for (const EventName& e : kEvents)
        if (e.feature == feature && e.id == id) return &e;
    return nullptr;
}

std::string eventLabel(Feature feature, int id) {
    const EventName* e = eventName(feature, id);
    if (e == nullptr) return std::string(feature == Feature::Push ? "push" : "mode") + " event " + std::to_string(id);
    return std::string(e->name) + " (" + std::to_string(id) + ")";
}

const EventName* findEvent(const std::string& text) {
    for (const EventName& e : kEvents)
        if (strcasecmp(e.name, text.c_str()) == 0) return &e;
    Feature feature = Feature::Push;
    std::string number = text;
    if (strncasecmp(text.c_str(), "push:", 5) == 0) {
        number = text.substr(5);
    } else if (strncasecmp(text.c_str(), "mode:", 5) == 0) {
        feature = Feature::Mode;
        number = text.substr(5);
    }
    if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos) return nullptr;
    return eventName(feature, atoi(number.c_str()));
}

const EventName* allEvents(size_t* count) {
    *count = sizeof kEvents / sizeof kEvents[0];
    return kEvents;
}

}  // namespace camsim
