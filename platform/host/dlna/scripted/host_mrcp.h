// Test control of the host stand-ins of the DLNA stack's renderer control
// point: the renderers "on the network", every request the library sends
// (with every field it set), the answers and notifications a test delivers
// through the callbacks the library registered (on the stand-in's own event
// thread, as the stack does), the stack's timers, the HTTP streaming server
// and the stored protocol infos.
//
// The stand-in does not answer requests by itself: the test plays the
// renderer and decides what comes back and when.
#ifndef CAMWIFI_HOST_MRCP_H
#define CAMWIFI_HOST_MRCP_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host_timer.h"

namespace host {
namespace mrcp {

// --- Renderers on the network ------------------------------------------------------
struct Renderer {
    std::string name;  // friendlyName
    std::string udn;
    std::string ip = "127.0.0.2";
    std::string manufacturer = "Host TV Works";
    std::string modelName = "HostTV";
    std::string modelNumber = "1";
};
// What ZEBMRCPGetDeviceList and ZEBMRCPGetDeviceDetails report from now on
// (initially none: the device list is then null).
void setRenderers(const std::vector<Renderer>& renderers);

// --- Requests the library sent -----------------------------------------------------
struct SentRequest {
    std::string function;  // sending call, e.g. "ZEBMRCPAVPlay"
    int profile = 0;
    std::string udn;       // renderer it was sent to
    std::optional<std::string> context;
    std::optional<std::string> action, instance, uri, metadata, seekUnit, seekTarget, channel;
    std::optional<int> speed, volume;
    int64_t sentAtMs = 0;  // steady clock
};
// Every request sent since the last reset, in order; with action given only
// those of that action.
std::vector<SentRequest> sentRequests(const std::string& action = "");
// Waits (at most timeoutMs) until at least count requests of action were
// sent; true if so.
bool waitForRequests(const std::string& action, size_t count, int timeoutMs);

// --- Answers and notifications -----------------------------------------------------
// An answer to one request, as the command-response callback receives it.
struct Response {
    std::string action;                  // action name handed to the callback
    int error = 0;                       // 0, or 801 (the action failed)
    std::optional<std::string> context;  // context text of the request
    std::optional<std::string> transportState;   // GetTransportInfo: "PLAYING", "STOPPED",
                                                 // "PAUSED_PLAYBACK", "TRANSITIONING", ...
    std::optional<std::string> transportStatus;  // "OK" or "ERROR_OCCURRED"
    std::optional<int> durationMs, relTimeMs;    // GetPositionInfo
    std::optional<int> volume;                   // GetVolume
    std::optional<std::string> sinkProtocolInfo; // GetProtocolInfo
};
// The answer to request r: its action and context, no error.
Response answerTo(const SentRequest& r);

// Evented variables of a renderer.
struct StatusNotification {
    int error = 0;
    std::string udn;
    std::string serviceType = "urn:schemas-upnp-org:service:AVTransport:1";
    std::vector<std::pair<std::string, std::string>> variables;  // name, value
};
// The LastChange text of an AVTransport event carrying the given variables
// (e.g. {{"TransportState", "PLAYING"}}), attribute values escaped.
std::string lastChange(const std::vector<std::pair<std::string, std::string>>& variables);

// Each queues one call of the matching callback on the stand-in's event
// thread and returns at once; false when no profile is initialised (no
// callbacks registered). A null type is passed as a null pointer.
bool deliverResponse(const Response& response);
bool deliverStatus(const StatusNotification& notification);
bool deliverDeviceInfo(const char* type, const std::string& name, const std::string& udn, int error = 0);
bool deliverException(int type, const std::string& value);
// Waits (at most timeoutMs) until every queued callback has returned.
bool waitIdle(int timeoutMs = 5000);
// Number of request, response and notification objects not yet released.
int liveObjects();

// --- Stack calls that wait for the stack's own threads ---------------------------
// The next call of the stack function fn ("ZEBMRCPStart", "ZEBMRCPSubscribeDevice",
// "ZEBMRCPGetDeviceList" or a sending call such as "ZEBMRCPAVStop") runs during()
// on the calling thread once its own work is done, before it returns: as a real
// stack may announce renderers while it starts, or wait in a call until its
// notification thread has run a callback. during() may deliver callbacks and
// wait for them (waitIdle). Used once; a reset forgets it.
void duringNextCall(const std::string& fn, std::function<void()> during);

// --- Profile, subscriptions, protocol infos, streaming server ---------------------
bool profileInitialised();  // ZEBMRCPInitialize done, ZEBMRCPTerminate not since
bool profileStarted();      // ZEBMRCPStart done, ZEBMRCPStop not since
std::vector<std::string> subscriptions();  // UDNs passed to ZEBMRCPSubscribeDevice
// ZEBMRCPstoreRendererProtocolInfo calls: UDN, protocol info.
std::vector<std::pair<std::string, std::string>> storedProtocolInfos();
bool streamingServerRunning();
int streamingServerPort();  // port of the last successful start

}  // namespace mrcp
}  // namespace host

#endif
