// The DLNA stack's object model, shared by its two host implementations
// (scripted/ and the real one on libupnp, stack/): what one stZEBAppList
// carries (a request the library fills, an answer, a notification, a
// media-server object), how objects are made and released, and the item
// list. The HZeb* accessors of zeb_stack.h read and write these fields
// whichever implementation made the object.
#ifndef CAMWIFI_HOST_ZEB_OBJECTS_H
#define CAMWIFI_HOST_ZEB_OBJECTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zeb_stack.h"

namespace host {
namespace mrcp {

// One renderer as the stack reports it (device list, device details).
struct Renderer {
    std::string name;  // friendlyName
    std::string udn;
    std::string ip = "127.0.0.2";
    std::string manufacturer = "Host TV Works";
    std::string modelName = "HostTV";
    std::string modelNumber = "1";
};

// A request as the library filled it (every field it set), and where it was
// sent (function, profile, udn and context are set when it is sent).
struct SentRequest {
    std::string function;  // sending call, e.g. "ZEBMRCPAVPlay"
    int profile = 0;
    std::string udn;       // renderer it was sent to
    std::optional<std::string> context;
    std::optional<std::string> action, instance, uri, metadata, seekUnit, seekTarget, channel;
    std::optional<int> speed, volume;
    int64_t sentAtMs = 0;  // steady clock
};

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

// Evented variables of a renderer.
struct StatusNotification {
    int error = 0;
    std::string udn;
    std::string serviceType = "urn:schemas-upnp-org:service:AVTransport:1";
    std::vector<std::pair<std::string, std::string>> variables;  // name, value
};

}  // namespace mrcp
}  // namespace host

// One object of the stack: a request, a response, a notification or a
// media-server object; which fields count depends on what made it.
struct stZEBAppList {
    // Request fields, written by the HZebMRCPRQSet* calls.
    host::mrcp::SentRequest request;
    // Response / notification fields, written by the stack that answers.
    host::mrcp::Response response;
    int stackEvent = 0;                         // ZEB_MRCP_EVENT_DEVICE_LIST for a device list
    std::vector<host::mrcp::Renderer> devices;  // device list
    std::string name, udn;                      // renderer added / removed
    int exceptionType = 0;
    std::string exceptionValue;
    host::mrcp::StatusNotification status;      // evented variables
    // Media-server object fields, written by the HZebMSCPRQSet* calls.
    std::optional<std::string> objectId, parentId, title, date, objectType;
    std::vector<std::vector<std::optional<std::string>>> resources;  // in stZEBMSCPResource order
    int numResources = 0;
};

namespace host {
namespace zeb {

// A new empty object, counted until released.
stZEBAppList* newObject();
// Journals "fn()" and releases object; 1 for null.
ZEB_ERROR_CODE releaseObject(const char* fn, stZEBAppList* object);
// Objects made and not yet released.
int liveObjects();

// Fills details (zeroed first, texts cut to their arrays) from renderer.
void fillDeviceDetails(const host::mrcp::Renderer& renderer, stZEBMRCPDeviceDetails* details);

// Text escaped for XML content and attribute values.
std::string escapeXml(const std::string& text);

// The DIDL-Lite text of a complete media-server object (id, title, type and
// at least one resource present).
std::string didlLite(const stZEBAppList& object);

// The DLNA profile name (DLNA.ORG_PN) of a file of this MIME type and
// resolution ("WIDTHxHEIGHT", empty when unknown); empty when none fits.
std::string dlnaProfileFor(const std::string& mimeType, const std::string& resolution);

}  // namespace zeb
}  // namespace host

#endif
