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
    {Feature::Tv, 15, "REFRESH_DMR_LIST", "a TV appeared on the network"},
    {Feature::Tv, 16, "SELECTED_DMR_BYEBYE", "a TV left the network"},
    {Feature::Tv, 17, "PLAY_STARTED", "the TV plays the video"},
    {Feature::Tv, 18, "PLAY_PAUSED", "the TV paused the video"},
    {Feature::Tv, 19, "PLAY_RESUMED", "the TV plays the video again"},
    {Feature::Tv, 20, "PLAY_COMPLETE", "the TV stopped on its own (end of the video)"},
    {Feature::Tv, 21, "PLAY_STOP", "the TV stopped as asked"},
    {Feature::Tv, 22, "PLAY_POSITION", "the TV's playing position"},
    {Feature::Tv, 23, "PLAY_FAILED", "the TV answered a request with an error"},
    {Feature::Tv, 24, "SHOW_READY", "the TV shows the photo: the next one may go"},
    {Feature::Tv, 25, "UNSUPPORTED_FILE", "the TV does not take the file"},
};

}  // namespace

const char* featureWord(Feature feature) {
    switch (feature) {
        case Feature::Mode: return "mode";
        case Feature::Tv: return "tv";
        default: return "push";
    }
}

const EventName* eventName(Feature feature, int id) {
    for (const EventName& e : kEvents)
        if (e.feature == feature && e.id == id) return &e;
    return nullptr;
}

std::string eventLabel(Feature feature, int id) {
    const EventName* e = eventName(feature, id);
    if (e == nullptr) return std::string(featureWord(feature)) + " event " + std::to_string(id);
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
    } else if (strncasecmp(text.c_str(), "tv:", 3) == 0) {
        feature = Feature::Tv;
        number = text.substr(3);
    }
    if (number.empty() || number.size() > 3 || number.find_first_not_of("0123456789") != std::string::npos)
        return nullptr;
    const int id = atoi(number.c_str());
    // A bare number: the push ids (60..79) and the TV's (15..25) do not meet.
    if (number == text && eventName(Feature::Push, id) == nullptr) return eventName(Feature::Tv, id);
    return eventName(feature, id);
}

const EventName* allEvents(size_t* count) {
    *count = sizeof kEvents / sizeof kEvents[0];
    return kEvents;
}

}  // namespace camsim
