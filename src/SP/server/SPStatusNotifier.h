// How a push request handler reports a phone's announcement or departure to
// the push server, and what the server hands to the push API's callback.
#ifndef CAMWIFI_SP_STATUS_NOTIFIER_H
#define CAMWIFI_SP_STATUS_NOTIFIER_H

#include <cstdint>

// Events of the push server.
enum eSPNotifyControlEvent {
    EVENT_DEVICE_NEW = 1,           // a phone announced itself (NTS alive)
    EVENT_DEVICE_REMOVED = 2,       // a phone left (NTS byebye)
    EVENT_DEVICE_SERVER_FAIL = 3,   // the server stopped on an error
    EVENT_DEVICE_SERVER_READY = 4,  // the server listens
};

// Filled by the request handler from the phone's request, read by the server
// during notifyServiceStatus only.
struct SvcSPNotifyInfo {
    int port;                 // the phone's data server port (Data-Server header)
    char* mac;                // the phone's MAC address text (buffer of the handler's caller)
    const char* ip;           // the phone's data server address (Data-Server header)
    const char* hostPNumber;  // the phone's number (HOST-PNumber header)
    int accessMethod;         // 1 when the phone came by NFC, else 0
};

// Filled by the push server (zeroed first) and handed to the push API's
// callback; lives only for the duration of the call. 100 bytes on the camera.
struct stSPInformation {
    int one;                // always 1
    char mac[32];           // the phone's MAC address text
    char hostPNumber[20];   // the phone's number, cut to 19 characters
    int accessMethod;       // 1 = NFC
    int total;              // phones in the access list
    int answer;             // written by the callback before it returns: 0 accept, else deny
    char reserved[28];      // zero
    void* last;             // zero; cleared again by the push API after use
};
#if defined(__SIZEOF_POINTER__) && __SIZEOF_POINTER__ == 4
static_assert(sizeof(stSPInformation) == 100, "stSPInformation is 100 bytes on the camera");
#endif

// Implemented by the push server; the handler holds it by this interface.
class SPStatusNotifier {
public:
    virtual ~SPStatusNotifier() = default;
    // event 1 (announcement) or 2 (departure); the int is always 0.
    // For an announcement: non-zero when the phone was added (its answer
    // follows later), 0 when it was refused.
    virtual int notifyServiceStatus(eSPNotifyControlEvent event, int unused, SvcSPNotifyInfo* info) = 0;
};

#endif
