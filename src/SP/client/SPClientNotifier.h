// How a file transfer reports to its owner (the client manager), and what the
// client manager hands on to the push API's callback.
#ifndef CAMWIFI_SP_CLIENT_NOTIFIER_H
#define CAMWIFI_SP_CLIENT_NOTIFIER_H

// Events of one file transfer. A transfer posts at most one START, any number
// of PROGRESS, and exactly one of the final four (3 to 6) as its last event.
enum eSPNotifyClntEvent {
    EVENT_CLIENT_TRANSFER_START = 1,      // the phone answered the announcement with "100"
    EVENT_CLIENT_TRANSFER_PROGRESS = 2,   // the whole-number percentage sent changed
    EVENT_CLIENT_TRANSFER_COMPLETE = 3,   // the phone answered the body with "200"; value 100
    EVENT_CLIENT_VOLUME_STORTAGE = 4,     // "500" with sub-error 2502: the phone's storage is full
    EVENT_CLIENT_TRANSFER_FAIL = 5,       // any other failure, a stop request included
    EVENT_CLIENT_NOT_SUPPORTED_FILE = 6,  // "500" with sub-error 2503: the phone refuses the file type
};

// Filled by the transfer thread for each event; lives only during the call.
struct SvcClientNotifyInfo {
    int value;        // progress percentage, 100 at completion, else 0
    const char* mac;  // the receiving phone's MAC text (the transfer's own string)
};

// Handed by the client manager to the push API's callback: a copy of the
// transfer's record, valid only during the call. 8 bytes on the camera.
struct stSPClntInfo {
    int value;        // progress percentage, 100 at completion, else 0
    const char* mac;  // the receiving phone's MAC text; copy it to keep it
};
#if defined(__SIZEOF_POINTER__) && __SIZEOF_POINTER__ == 4
static_assert(sizeof(stSPClntInfo) == 8, "stSPClntInfo is 8 bytes on the camera");
static_assert(sizeof(SvcClientNotifyInfo) == 8, "SvcClientNotifyInfo is 8 bytes on the camera");
#endif

// Receives the events of transfers; called on the transfer threads, possibly
// from several at once.
class SPClientNotifier {
public:
    virtual ~SPClientNotifier() = default;
    // reserved is always 0.
    virtual void notifyServiceStatus(eSPNotifyClntEvent event, int reserved, SvcClientNotifyInfo* info) = 0;
};

#endif
