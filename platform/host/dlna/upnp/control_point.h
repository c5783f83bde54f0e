// The real DLNA stack's renderer control point, on libupnp (pupnp 1.8).
//
// It finds MediaRenderer:1 devices (an M-SEARCH at start and periodically,
// SSDP alive / byebye, advertisement expiry), reads their descriptions,
// subscribes to their AVTransport events and sends them actions. Everything
// it reports goes through one listener, called on one thread of its own
// ("UpnpCPEvents") one call at a time, as the stack's callbacks are: the
// renderer-added / -removed notifications, the evented variables and the
// answer to every action. The contract's ZEBMRCP* functions forward to it.
//
// Who does what:
// - libupnp: SSDP (search, advertisements) and the web server of the
//   camera's own device description.
// - this class: descriptions, SOAP actions and GENA subscriptions (SUBSCRIBE,
//   renewal at half the granted time, UNSUBSCRIBE at stop) over its own HTTP
//   client, each renderer's requests in order on that renderer's own worker
//   thread; NOTIFY messages arrive at its EventReceiver. libupnp's GENA
//   client is not used: its shutdown unsubscribes with a 30-second wait
//   per renderer, so a hung TV would hold terminate that long.
//   An action has kActionTimeoutMs for its whole exchange: a renderer that
//   accepts and never answers gets a failure answer (801) after that time,
//   and a stop cuts every exchange in flight at once. libupnp's own action
//   call waits 30 s and cannot be interrupted, so it is not used. The first
//   actions to a renderer that has only just appeared wait until it has
//   been on the network for kRendererSettleMs. A SetAVTransportURI goes
//   only to a renderer that reports itself stopped: one still playing is
//   stopped first, one still stopping is waited for (at most 2 s more).
//
// One instance may be initialised per process at a time (libupnp is
// process-wide).
#ifndef CAMWIFI_DLNA_UPNP_CONTROL_POINT_H
#define CAMWIFI_DLNA_UPNP_CONTROL_POINT_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace camwifi {
namespace upnp {

// The stack's failure code of an action (the renderer refused it, answered
// with an HTTP error, was unreachable or did not answer in time).
constexpr int kActionFailed = 801;
// Whole time one action may take, from connect to the last byte of the answer.
constexpr int kActionTimeoutMs = 8000;
// A renderer gets no action before it has been on the network this long
// (counted from its first SSDP message). A device that has just come up
// advertises itself and answers actions before all of its services are
// ready: gmediarender registers with its UPnP stack before its AVTransport
// has finished starting, and a Play in that window makes it abort (its
// LastChange bookkeeping appears in the middle of the action). TVs that
// advertise while still booting behave alike. In normal use the user picks
// a renderer seconds after it was listed, so this costs nothing there.
constexpr int kRendererSettleMs = 3000;

// Details of one renderer, from its description.
struct RendererDetails {
    std::string ip;            // dotted IPv4 address (host of its description URL)
    std::string friendlyName;
    std::string udn;           // "uuid:..."
    std::string manufacturer;
    std::string modelName;
    std::string modelNumber;
};

// One request as the library fills it (the fields of the request object).
struct ActionRequest {
    // "SetAVTransportURI", "Play", "Stop", "Pause", "Resume" (sent as Play),
    // "Seek", "GetPositionInfo", "GetTransportInfo", "GetVolume", "SetVolume",
    // "GetProtocolInfo". The answer carries this name.
    std::string action;
    std::string instanceId = "0";
    std::optional<std::string> uri, metadata;       // SetAVTransportURI
    std::optional<std::string> seekUnit, seekTarget; // Seek ("REL_TIME", "0:00:10")
    std::optional<std::string> channel;              // Get/SetVolume ("Master")
    std::optional<int> speed;                        // Play (1)
    std::optional<int> volume;                       // SetVolume
};

// The answer to one request, as the command-response callback gets it.
struct ActionAnswer {
    std::string udn;                     // renderer it was sent to
    std::string action;                  // the request's action name
    int error = 0;                       // 0, or kActionFailed
    int upnpError = 0;                   // UPnP error code of a SOAP fault (0: none)
    std::string why;                     // for the log when error != 0
    std::optional<std::string> context;  // the context the request was sent with
    std::optional<std::string> transportState;   // GetTransportInfo
    std::optional<std::string> transportStatus;  // GetTransportInfo ("OK", "ERROR_OCCURRED")
    std::optional<int> durationMs, relTimeMs;    // GetPositionInfo (absent when not a time)
    std::optional<int> volume;                   // GetVolume
    std::optional<std::string> sinkProtocolInfo; // GetProtocolInfo
    std::vector<std::pair<std::string, std::string>> arguments;  // every out-argument
};

// Evented variables of a renderer's service (one GENA NOTIFY). A LastChange
// value is handed on as the event text of instance 0 only, rewritten in one
// plain form (<Event xmlns="..."><InstanceID val="0"><Name val="..."/>...),
// whatever spacing, quoting or instances the renderer used.
struct StatusEvent {
    std::string udn;
    std::string serviceType;
    std::vector<std::pair<std::string, std::string>> variables;  // name, value
};

class UpnpControlPoint {
public:
    struct Listener {
        // "DMR_ADDED" / "DMR_REMOVED", once per renderer (UDN).
        std::function<void(const char* type, const RendererDetails& renderer)> deviceInfo;
        std::function<void(const StatusEvent& event)> deviceStatus;
        std::function<void(const ActionAnswer& answer)> commandResponse;
    };
    struct Options {
        int searchIntervalMs = 30000;    // period of the M-SEARCH after the first
        int descriptionTimeoutMs = 5000; // fetching one description
        int actionTimeoutMs = kActionTimeoutMs;
        int subscriptionSeconds = 1800;  // requested GENA timeout (renewed at half the granted time)
        int settleMs = kRendererSettleMs; // no action before a renderer is this old
        // Folder of the camera's own device description
        // ("DeviceDescription.xml" and its service descriptions): while
        // started, that device is served and advertised on the network, and
        // never listed as a renderer. Empty: nothing is advertised.
        std::string descriptionDir;
    };

    UpnpControlPoint();
    ~UpnpControlPoint();  // terminates
    UpnpControlPoint(const UpnpControlPoint&) = delete;
    UpnpControlPoint& operator=(const UpnpControlPoint&) = delete;

    // Brings libupnp up on the interface iface (an IPv4 address is needed)
    // and registers the control point. 0 on success; otherwise a non-zero
    // code and why() says why (unknown interface, another instance active,
    // libupnp's error).
    int init(const std::string& iface, Listener listener, Options options);
    int init(const std::string& iface, Listener listener) { return init(iface, std::move(listener), Options()); }
    // Starts the event thread and the search, and advertises the camera's
    // own device (Options::descriptionDir); a device that cannot be
    // advertised is logged and the control point works on. 0 on success.
    int start();
    // Withdraws the camera's device (ssdp:byebye), stops searching and cuts
    // every request in flight; returns when no
    // listener call runs any more (from inside a listener call it returns at
    // once and the thread ends after it). Pending answers are dropped.
    int stop();
    // Stops, then takes libupnp down. Safe to call more than once.
    void terminate();

    bool initialised() const;
    std::string why() const;         // the reason of the last failure
    std::string address() const;     // the interface's IPv4 address ("" before init)

    // The renderers announced so far, in order of arrival.
    std::vector<RendererDetails> renderers() const;
    // 0 and *out filled for a known renderer, else non-zero.
    int details(const std::string& udn, RendererDetails* out) const;
    // Subscribes to the renderer's AVTransport events (once; later calls for
    // the same renderer do nothing). 0 when the renderer is known.
    int subscribe(const std::string& udn);
    // Queues request for the renderer; the answer comes through the listener
    // with context. 0 when queued; non-zero (nothing will be answered) for an
    // unknown renderer, an unknown action, or a stopped control point.
    int sendAction(const std::string& udn, const ActionRequest& request, const std::optional<std::string>& context);

    struct Impl;

private:
    std::unique_ptr<Impl> m_impl;
};

}  // namespace upnp
}  // namespace camwifi

#endif
