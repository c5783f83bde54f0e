// The real DLNA stack behind the contract's network functions: the renderer
// control point and the HTTP streaming server of dlna/upnp (libupnp), their
// answers turned into the contract's objects.
//
// - ZEBMRCPInitialize brings libupnp up on the interface CAMWIFI_IFACE names,
//   or by default on the interface whose IPv4 address the camera reports as
//   its own (the last non-loopback IPv4 interface); an interface that does
//   not exist or has no IPv4 address fails with a log line naming it.
//   ZEBMRCPStart searches, ZEBMRCPStop stops, ZEBMRCPTerminate takes libupnp
//   down again. The stack's set-up and HTTP layer (configuration file, the
//   stack's own threads) are not network and are shared with the scripted
//   stand-in.
// - The control point's listener runs on its own event thread, one call at a
//   time: each renderer added / removed, evented variables and action answer
//   becomes one stZEBAppList handed to the library's callback, which owns
//   and releases it.
// - Actions are queued and answered later: no call blocks the caller for
//   longer than a queue operation; an answer comes at the latest after the
//   control point's action time (camwifi::upnp::kActionTimeoutMs), as 801.
#include <arpa/inet.h>
#include <cstdio>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "control_point.h"
#include "dlog.h"
#include "host_upnp_stack.h"
#include "scripted_stack.h"
#include "streaming_server.h"
#include "upnp_log.h"
#include "zeb_media_internal.h"
#include "zeb_network_stack.h"
#include "zeb_objects.h"
#include "zeb_stack.h"

namespace {

using camwifi::upnp::ActionAnswer;
using camwifi::upnp::ActionRequest;
using camwifi::upnp::HttpStreamingServer;
using camwifi::upnp::RendererDetails;
using camwifi::upnp::StatusEvent;
using camwifi::upnp::UpnpControlPoint;
using camwifi::upnp::logLine;

// The one profile the real stack hands out (the library keeps 20 for "none").
constexpr int kProfile = 1;


struct UpnpStack {
    std::mutex lock;
    // Between ZEBMRCPInitialize and ZEBMRCPTerminate. Shared, so a call in
    // progress on another thread keeps it alive while terminate ends it.
    std::shared_ptr<UpnpControlPoint> cp;
    int profile = 0;
    // Never destroyed: a terminate from a thread that outlives main's statics
    // must still find it.
    HttpStreamingServer* server = new HttpStreamingServer;
};

UpnpStack& state() {
    static UpnpStack* s = new UpnpStack;
    return *s;
}

std::shared_ptr<UpnpControlPoint> controlPoint(int profileId) {
    UpnpStack& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    if (!s.cp || profileId != s.profile) return nullptr;
    return s.cp;
}

// The name of the interface whose IPv4 address the camera reports as its
// own: the last non-loopback IPv4 entry of the kernel's interface list, read
// the way the library reads it. "" when there is none.
std::string defaultInterface() {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) return "";
    ifreq entries[10];
    ifconf conf{};
    conf.ifc_len = sizeof entries;
    conf.ifc_req = entries;
    int rc = ioctl(fd, SIOCGIFCONF, &conf);
    close(fd);
    if (rc < 0) return "";
    std::string name;
    int count = conf.ifc_len / static_cast<int>(sizeof(ifreq));
    for (int i = 0; i < count; ++i) {
        const ifreq& e = entries[i];
        if (e.ifr_addr.sa_family != AF_INET) continue;
        const sockaddr_in* a = reinterpret_cast<const sockaddr_in*>(&e.ifr_addr);
        if (a->sin_addr.s_addr == htonl(INADDR_LOOPBACK)) continue;
        name.assign(e.ifr_name, strnlen(e.ifr_name, sizeof e.ifr_name));
    }
    return name;
}

// --- The control point's reports as the contract's objects -------------------
UpnpControlPoint::Listener listenerFor(int profile, ZEBMRCPDeviceInfoCallback deviceInfo,
                                       ZEBMRCPDeviceStatusCallback deviceStatus,
                                       ZEBMRCPCommandResponseCallback commandResponse) {
    UpnpControlPoint::Listener l;
    l.deviceInfo = [=](const char* type, const RendererDetails& r) {
        stZEBAppList* o = host::zeb::newObject();
        o->name = r.friendlyName;
        o->udn = r.udn;
        // The callback takes a writable text: hand it a copy of its own.
        std::string kind = type ? type : "";
        deviceInfo(profile, type ? &kind[0] : nullptr, 0, o);
    };
    l.deviceStatus = [=](const StatusEvent& e) {
        stZEBAppList* o = host::zeb::newObject();
        o->status.udn = e.udn;
        o->status.serviceType = e.serviceType;
        o->status.variables = e.variables;
        deviceStatus(profile, 0, o);
    };
    l.commandResponse = [=](const ActionAnswer& a) {
        stZEBAppList* o = host::zeb::newObject();
        host::mrcp::Response& r = o->response;
        r.action = a.action;
        r.error = a.error;
        r.context = a.context;
        r.transportState = a.transportState;
        r.transportStatus = a.transportStatus;
        r.durationMs = a.durationMs;
        r.relTimeMs = a.relTimeMs;
        r.volume = a.volume;
        r.sinkProtocolInfo = a.sinkProtocolInfo;
        commandResponse(profile, r.action.c_str(), r.error, o);
    };
    return l;
}

// Takes the control point down (outside the lock: its listener may be in a
// library callback that sends, which takes the lock).
void endControlPoint() {
    std::shared_ptr<UpnpControlPoint> cp;
    {
        UpnpStack& s = state();
        std::lock_guard<std::mutex> g(s.lock);
        cp.swap(s.cp);
    }
    if (cp) cp->terminate();
}

// --- Set-up: shared with the scripted stack, plus the control point's end ------
ZEB_ERROR_CODE initializeZEB(const char* configFile) { return host::scripted::initializeZEB(configFile); }

ZEB_ERROR_CODE terminateZEB() {
    // The stack's end is the control point's end too, should the library
    // not have terminated its profile.
    endControlPoint();
    return host::scripted::terminateZEB();
}

// --- Profile ---------------------------------------------------------------------
ZEB_ERROR_CODE mrcpInitialize(ZEBMRCPExceptionCallback exception, ZEBMRCPDeviceInfoCallback deviceInfo,
                              ZEBMRCPDeviceStatusCallback deviceStatus, ZEBMRCPCommandResponseCallback commandResponse,
                              int* profileId, const char* directory) {
    if (!exception || !deviceInfo || !deviceStatus || !commandResponse || profileId == nullptr) return 1;
    const char* chosenIface = getenv("CAMWIFI_IFACE");
    std::string iface = chosenIface && *chosenIface ? chosenIface : defaultInterface();
    if (iface.empty()) {
        logLine(DLOG_PRIO_ERROR, "ZEBMRCPInitialize: no network interface with an IPv4 address to run the "
                                 "DLNA stack on (set CAMWIFI_IFACE)");
        return 1;
    }
    endControlPoint();  // a second profile replaces the first
    auto cp = std::make_shared<UpnpControlPoint>();
    // The camera's control-point device, written there by ZEBCheckFileState,
    // is advertised while the profile runs, as the camera's stack does.
    UpnpControlPoint::Options options;
    if (directory != nullptr) options.descriptionDir = directory;
    if (cp->init(iface, listenerFor(kProfile, deviceInfo, deviceStatus, commandResponse), options) != 0) {
        logLine(DLOG_PRIO_ERROR, "ZEBMRCPInitialize: the DLNA stack cannot come up on interface %s%s: %s",
                iface.c_str(), chosenIface && *chosenIface ? " (CAMWIFI_IFACE)" : "", cp->why().c_str());
        return 1;
    }
    logLine(DLOG_PRIO_INFO, "ZEBMRCPInitialize: DLNA stack on %s (%s)", iface.c_str(), cp->address().c_str());
    {
        UpnpStack& s = state();
        std::lock_guard<std::mutex> g(s.lock);
        s.cp = cp;
        s.profile = kProfile;
    }
    *profileId = kProfile;
    return 0;
}

ZEB_ERROR_CODE mrcpStart(int profileId) {
    auto cp = controlPoint(profileId);
    if (!cp) return 1;
    int rc = cp->start();
    if (rc != 0) logLine(DLOG_PRIO_ERROR, "ZEBMRCPStart: %s", cp->why().c_str());
    return rc == 0 ? 0 : 1;
}

ZEB_ERROR_CODE mrcpStop(int profileId) {
    auto cp = controlPoint(profileId);
    if (!cp) return 1;
    cp->stop();
    return 0;
}

ZEB_ERROR_CODE mrcpTerminate(int profileId) {
    if (!controlPoint(profileId)) return 1;
    endControlPoint();
    return 0;
}

// --- Renderers ---------------------------------------------------------------------
host::mrcp::Renderer rendererOf(const RendererDetails& d) {
    host::mrcp::Renderer r;
    r.name = d.friendlyName;
    r.udn = d.udn;
    r.ip = d.ip;
    r.manufacturer = d.manufacturer;
    r.modelName = d.modelName;
    r.modelNumber = d.modelNumber;
    return r;
}

ZEB_ERROR_CODE getDeviceList(int profileId, stZEBAppList** response) {
    if (response == nullptr) return 1;
    *response = nullptr;
    auto cp = controlPoint(profileId);
    if (!cp) return 1;
    std::vector<RendererDetails> found = cp->renderers();
    if (found.empty()) return 0;
    stZEBAppList* o = host::zeb::newObject();
    o->response.action = "GetDeviceList";
    o->stackEvent = ZEB_MRCP_EVENT_DEVICE_LIST;
    for (const RendererDetails& d : found) o->devices.push_back(rendererOf(d));
    *response = o;
    return 0;
}

ZEB_ERROR_CODE subscribeDevice(int profileId, const char* udn) {
    auto cp = controlPoint(profileId);
    if (!cp || udn == nullptr) return 1;
    return cp->subscribe(udn) == 0 ? 0 : 1;
}

ZEB_ERROR_CODE getDeviceDetails(int profileId, const char* udn, stZEBMRCPDeviceDetails* details) {
    auto cp = controlPoint(profileId);
    if (!cp || udn == nullptr || details == nullptr) return 1;
    RendererDetails d;
    if (cp->details(udn, &d) != 0) return 1;
    host::zeb::fillDeviceDetails(rendererOf(d), details);
    return 0;
}

// --- Sending -----------------------------------------------------------------------
// The action a sending call stands for, when the request names none.
const char* actionOf(const char* fn) {
    static const struct { const char* fn; const char* action; } kActions[] = {
        {"ZEBMRCPSetAVTransportURI", "SetAVTransportURI"}, {"ZEBMRCPAVPlay", "Play"},
        {"ZEBMRCPAVStop", "Stop"},                         {"ZEBMRCPAVPause", "Pause"},
        {"ZEBMRCPAVResume", "Resume"},                     {"ZEBMRCPAVSeek", "Seek"},
        {"ZEBMRCPGetPlayPositionInfo", "GetPositionInfo"}, {"ZEBMRCPSetVolume", "SetVolume"},
        {"ZEBMRCPGetVolume", "GetVolume"},                 {"ZEBMRCPGetPlayState", "GetTransportInfo"},
        {"ZEBMRCPGetProtocolInfo", "GetProtocolInfo"},
    };
    for (auto& a : kActions)
        if (strcmp(a.fn, fn) == 0) return a.action;
    return "";
}

ZEB_ERROR_CODE send(const char* fn, int profileId, const char* udn, stZEBAppList* request, const char* context) {
    if (request == nullptr || udn == nullptr) return 1;
    auto cp = controlPoint(profileId);
    if (!cp) return 1;
    const host::mrcp::SentRequest& q = request->request;
    ActionRequest a;
    a.action = q.action.value_or(actionOf(fn));
    a.instanceId = q.instance.value_or("0");
    a.uri = q.uri;
    a.metadata = q.metadata;
    a.seekUnit = q.seekUnit;
    a.seekTarget = q.seekTarget;
    a.channel = q.channel;
    a.speed = q.speed;
    a.volume = q.volume;
    std::optional<std::string> ctx;
    if (context != nullptr) ctx = std::string(context);
    if (cp->sendAction(udn, a, ctx) != 0) {
        logLine(DLOG_PRIO_ERROR, "%s: %s not sent to %s (unknown renderer or action, or the stack is stopped)", fn,
                a.action.c_str(), udn);
        return 1;
    }
    return 0;
}

// --- HTTP streaming server ------------------------------------------------------------
// The folders whose files renderers may fetch: the configured shared media
// folder and the card's picture folder, those that exist.
std::vector<std::string> mediaRoots() {
    std::vector<std::string> roots;
    std::string shared;
    if (host::media::configValue("SHARED-MEDIA-FOLDER-PATH", &shared)) roots.push_back(shared);
    const char* root = getenv("CAMWIFI_ROOT");
    std::string card = std::string(root ? root : "") + "/mnt/mmc/DCIM";
    if (roots.empty() || roots[0] != card) roots.push_back(card);
    std::vector<std::string> present;
    for (const std::string& r : roots) {
        struct stat st;
        if (stat(r.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) present.push_back(r);
    }
    return present;
}

int streamingInitialize(int profileId, int port) {
    (void)profileId;
    if (port <= 0 || port > 65535) {
        logLine(DLOG_PRIO_ERROR, "HTTPStreamingServerInitialize: port %d is not a port", port);
        return 0;
    }
    std::vector<std::string> roots = mediaRoots();
    if (roots.empty()) {
        logLine(DLOG_PRIO_ERROR, "HTTPStreamingServerInitialize: no media folder to serve (SHARED-MEDIA-FOLDER-PATH "
                                 "or the card's DCIM)");
        return 0;
    }
    HttpStreamingServer* server = state().server;
    server->stop();
    int rc = server->start(port, roots);
    if (rc != 0) {
        logLine(DLOG_PRIO_ERROR, "HTTPStreamingServerInitialize: cannot serve on port %d: %s", port, strerror(rc));
        return 0;
    }
    return 1;
}

void streamingTerminate() { state().server->stop(); }

}  // namespace

namespace host {
namespace zeb {

const NetworkStack& upnpStack() {
    static const NetworkStack stack = {
        "upnp",        initializeZEB,    terminateZEB,    host::scripted::httpInitialize,
        host::scripted::httpTerminate,  mrcpInitialize,  mrcpStart,       mrcpStop,
        mrcpTerminate, getDeviceList,    subscribeDevice, getDeviceDetails,
        send,          streamingInitialize, streamingTerminate,
    };
    return stack;
}

}  // namespace zeb
}  // namespace host

namespace host {
namespace upnpstack {

uint64_t streamingBytesSent() { return state().server->bytesSent(); }
uint64_t streamingAnswered() { return state().server->answered(); }
bool streamingServerRunning() { return state().server->running(); }

bool controlPointUp() {
    UpnpStack& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    return s.cp != nullptr;
}

}  // namespace upnpstack
}  // namespace host
