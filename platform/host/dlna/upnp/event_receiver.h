// The control point's GENA event receiver: a small HTTP server that takes the
// NOTIFY messages renderers send to the CALLBACK address of a subscription.
//
// The control point subscribes, renews and unsubscribes with its own HTTP
// client (each exchange bounded and cut short by a stop), and receives here,
// rather than through libupnp's GENA client: libupnp unsubscribes every
// subscription while it shuts down, each with a 30-second wait nobody can cut
// short, so one TV that hangs would hold the camera's terminate that long.
//
// One connection at a time, each bounded by kEventReadMs, its head by
// kMaxEventHead and its body by kMaxEventBody: a renderer's NOTIFY is a few
// hundred bytes and comes in one piece. Answers: 200 for a NOTIFY with a SID
// and a property set the listener took, 412 for an unknown SID, 400 for
// anything else.
#ifndef CAMWIFI_DLNA_UPNP_EVENT_RECEIVER_H
#define CAMWIFI_DLNA_UPNP_EVENT_RECEIVER_H

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace camwifi {
namespace upnp {

constexpr int kEventReadMs = 2000;
constexpr size_t kMaxEventHead = 8 * 1024;
constexpr size_t kMaxEventBody = 256 * 1024;

// One NOTIFY as the receiver read it.
struct EventMessage {
    std::string sid;
    std::string body;  // the property set
};

// Checks a NOTIFY request (its head up to and including the empty line, and
// its body) and takes out SID and body. 0 when it is one; else the status to
// answer (400). Exposed for the fuzz target.
int parseEventRequest(const std::string& head, const std::string& body, EventMessage* out);

// Seconds of a TIMEOUT header ("Second-1800"); 0 for "infinite"; -1 when
// malformed.
int parseSubscriptionTimeout(const std::string& value);

class EventReceiver {
public:
    // Called on the receiver's thread for each NOTIFY; true when the SID is
    // one of ours (200), false when it is not (412).
    using Handler = std::function<bool(const EventMessage& message)>;

    EventReceiver();
    ~EventReceiver();  // stops
    EventReceiver(const EventReceiver&) = delete;
    EventReceiver& operator=(const EventReceiver&) = delete;

    // Listens on address (IPv4 text) on a port the system picks. 0 on
    // success, else an errno value.
    int start(const std::string& address, Handler handler);
    // Closes the port and joins the thread; a message being read is dropped.
    void stop();
    // "http://address:port/event" while started, else "".
    std::string callbackUrl() const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace upnp
}  // namespace camwifi

#endif
