// Host stand-in of the DLNA stack's renderer control point: the profile and
// its four callbacks, request / response / notification objects, the device
// list, the configuration check, the HTTP streaming server, the item list
// and the media-server object requests with their DIDL-Lite metadata.
//
// Requests are real objects: every field the library sets is kept, and a
// send records a copy a test can read (host_mrcp.h). Answers and
// notifications are built by the test and delivered through the callbacks
// the library registered, on the stand-in's event thread ("ZEBMRCPEvents"),
// one at a time, as the stack's own thread would.
#include <pthread.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host_internal.h"
#include "host_mrcp.h"
#include "zeb_media_internal.h"
#include "zeb_stack.h"

using host::mrcp::Renderer;
using host::mrcp::Response;
using host::mrcp::SentRequest;
using host::mrcp::StatusNotification;

// One object of the stack: a request, a response, a notification or a
// media-server object; which fields count depends on what made it.
struct stZEBAppList {
    // Request fields (function, profile, udn and context are set at send).
    SentRequest request;
    // Response / notification fields.
    Response response;
    int stackEvent = 0;
    std::vector<Renderer> devices;
    std::string name, udn;  // renderer added / removed
    int exceptionType = 0;
    std::string exceptionValue;
    StatusNotification status;
    // Media-server object fields.
    std::optional<std::string> objectId, parentId, title, date, objectType;
    std::vector<std::vector<std::optional<std::string>>> resources;  // in stZEBMSCPResource order
    int numResources = 0;
};

struct ZEBList_s {
    std::vector<void*> items;
};

namespace {

std::atomic<int> gLiveObjects{0};

stZEBAppList* newObject() {
    ++gLiveObjects;
    return new stZEBAppList;
}

// A new request or object in *out (null on failure); scripted failures count.
ZEB_ERROR_CODE allocObject(const char* fn, stZEBAppList** out) {
    host::journal("%s()", fn);
    if (out == nullptr) return 1;
    *out = nullptr;
    long long scripted;
    if (host::takeScriptedResult(fn, &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    *out = newObject();
    return 0;
}

ZEB_ERROR_CODE releaseObject(const char* fn, stZEBAppList* object) {
    host::journal("%s()", fn);
    if (object == nullptr) return 1;
    delete object;
    --gLiveObjects;
    return 0;
}

struct QueuedCall {
    std::function<void()> run;   // calls the callback (which releases the object)
    std::function<void()> drop;  // releases the object when the call never happens
};

struct MrcpState {
    std::mutex lock;
    std::condition_variable changed;
    // Profile.
    bool initialised = false, started = false;
    int profile = 0;
    ZEBMRCPExceptionCallback exception = nullptr;
    ZEBMRCPDeviceInfoCallback deviceInfo = nullptr;
    ZEBMRCPDeviceStatusCallback deviceStatus = nullptr;
    ZEBMRCPCommandResponseCallback commandResponse = nullptr;
    // Event thread.
    std::deque<QueuedCall> queue;
    bool busy = false, stopEvents = false;
    std::thread events;
    // What the tests read.
    std::vector<Renderer> renderers;
    std::vector<SentRequest> sent;
    std::vector<std::string> subscriptions;
    std::vector<std::pair<std::string, std::string>> protocolInfos;
    bool streaming = false;
    int streamingPort = 0;
    // What the next call of a stack function runs before it returns.
    std::map<std::string, std::function<void()>> during;
};

MrcpState& mrcpState() {
    static MrcpState* s = new MrcpState;  // never destroyed: the event thread may outlive main's statics
    return *s;
}

const char* orNull(const char* s) { return s ? s : "(null)"; }

ZEB_ERROR_CODE result(const char* fn, long long fallback = 0) {
    return static_cast<ZEB_ERROR_CODE>(host::scriptedOr(fn, fallback));
}

void eventLoop() {
    pthread_setname_np(pthread_self(), "ZEBMRCPEvents");
    MrcpState& s = mrcpState();
    std::unique_lock<std::mutex> l(s.lock);
    for (;;) {
        s.changed.wait(l, [&] { return s.stopEvents || !s.queue.empty(); });
        if (s.stopEvents) break;
        QueuedCall call = std::move(s.queue.front());
        s.queue.pop_front();
        s.busy = true;
        l.unlock();
        call.run();
        l.lock();
        s.busy = false;
        s.changed.notify_all();
    }
}

// Ends the event thread after the callback in flight; calls still queued are
// dropped (their objects released). From a callback itself (the library
// stopping inside one) the thread is left to end on its own.
void stopEvents() {
    MrcpState& s = mrcpState();
    std::thread t;
    std::deque<QueuedCall> dropped;
    {
        std::lock_guard<std::mutex> g(s.lock);
        s.stopEvents = true;
        t.swap(s.events);
        dropped.swap(s.queue);
    }
    s.changed.notify_all();
    for (auto& call : dropped) call.drop();
    host::joinUnlessSelf(t);
}

void resetMrcp() {
    stopEvents();
    MrcpState& s = mrcpState();
    std::lock_guard<std::mutex> g(s.lock);
    s.initialised = s.started = false;
    s.exception = nullptr;
    s.deviceInfo = nullptr;
    s.deviceStatus = nullptr;
    s.commandResponse = nullptr;
    s.busy = false;
    s.renderers.clear();
    s.sent.clear();
    s.subscriptions.clear();
    s.protocolInfos.clear();
    s.streaming = false;
    s.streamingPort = 0;
    s.during.clear();
}

const bool registered = (host::addResetHook(resetMrcp), true);

// Queues one callback call; false (object released) without a profile.
bool enqueue(stZEBAppList* object, std::function<void(MrcpState&)> call) {
    MrcpState& s = mrcpState();
    {
        std::lock_guard<std::mutex> g(s.lock);
        if (s.initialised && s.events.joinable()) {
            s.queue.push_back({[call, &s] { call(s); }, [object] { releaseObject("(dropped)", object); }});
            s.changed.notify_all();
            return true;
        }
    }
    releaseObject("(undelivered)", object);
    return false;
}

int64_t steadyMs() { return host::mrcp::nowMs(); }

// Runs what a test asked the next call of fn to run before it returns, on
// the calling thread and without the stand-in's lock (it delivers callbacks
// and waits for them, as a stack waits for its notification thread).
void runDuring(const char* fn) {
    MrcpState& s = mrcpState();
    std::function<void()> during;
    {
        std::lock_guard<std::mutex> g(s.lock);
        auto it = s.during.find(fn);
        if (it == s.during.end()) return;
        during = std::move(it->second);
        s.during.erase(it);
    }
    during();
}

// --- Reading fields -----------------------------------------------------------------
// Each getter: journalled, a scripted failure when queued, else the field.
bool scriptedFailure(const char* fn) { return host::scriptedOr(fn, 0) != 0; }

// field points into the object (null: absent), so the text lives as long as it.
ZEB_ERROR_CODE getText(const char* fn, stZEBAppList* object, const char** out, const std::string* field) {
    host::journal("%s()", fn);
    if (object == nullptr || out == nullptr || scriptedFailure(fn) || field == nullptr) return 1;
    *out = field->c_str();
    return 0;
}

const std::string* present(const std::optional<std::string>& field) { return field ? &*field : nullptr; }

ZEB_ERROR_CODE getInt(const char* fn, stZEBAppList* object, int* out, const std::optional<int>& field) {
    host::journal("%s()", fn);
    if (object == nullptr || out == nullptr || scriptedFailure(fn) || !field) return 1;
    *out = *field;
    return 0;
}

// --- Setting fields -------------------------------------------------------------------
template <typename T>
ZEB_ERROR_CODE setField(const char* fn, stZEBAppList* object, std::optional<T> SentRequest::*field, T value) {
    if (object == nullptr) return 1;
    long long scripted;
    if (host::takeScriptedResult(fn, &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    object->request.*field = value;
    return 0;
}

ZEB_ERROR_CODE setText(const char* fn, stZEBAppList* object, std::optional<std::string> SentRequest::*field,
                       const char* value) {
    host::journal("%s(%s)", fn, orNull(value));
    if (value == nullptr) return 1;
    return setField(fn, object, field, std::string(value));
}

ZEB_ERROR_CODE setObjectText(const char* fn, stZEBAppList* object, std::optional<std::string> stZEBAppList::*field,
                             const char* value) {
    host::journal("%s(%s)", fn, orNull(value));
    if (object == nullptr || value == nullptr) return 1;
    object->*field = std::string(value);
    return 0;
}

// --- Sending -------------------------------------------------------------------------
ZEB_ERROR_CODE send(const char* fn, int profile, const char* udn, stZEBAppList* request, const char* context) {
    host::journal("%s(%d, %s, %s)", fn, profile, orNull(udn), orNull(context));
    long long scripted;
    if (host::takeScriptedResult(fn, &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    if (request == nullptr || udn == nullptr) return 1;
    MrcpState& s = mrcpState();
    {
        std::lock_guard<std::mutex> g(s.lock);
        if (!s.initialised || profile != s.profile) return 1;
        SentRequest r = request->request;
        r.function = fn;
        r.profile = profile;
        r.udn = udn;
        if (context != nullptr) r.context = std::string(context);
        r.sentAtMs = steadyMs();
        s.sent.push_back(r);
        s.changed.notify_all();
    }
    runDuring(fn);
    return 0;
}

// --- DIDL-Lite --------------------------------------------------------------------------
std::string escapeXml(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            case '\'': out += "&apos;"; break;
            default: out += c;
        }
    }
    return out;
}

std::string didlLite(const stZEBAppList& o) {
    bool video = *o.objectType == "VIDEO";
    std::string xml =
        "<DIDL-Lite xmlns=\"urn:schemas-upnp-org:metadata-1-0/DIDL-Lite/\""
        " xmlns:dc=\"http://purl.org/dc/elements/1.1/\""
        " xmlns:upnp=\"urn:schemas-upnp-org:metadata-1-0/upnp/\""
        " xmlns:dlna=\"urn:schemas-dlna-org:metadata-1-0/\">";
    xml += "<item id=\"" + escapeXml(*o.objectId) + "\" parentID=\"" + escapeXml(o.parentId.value_or("-1")) +
           "\" restricted=\"1\">";
    xml += "<dc:title>" + escapeXml(*o.title) + "</dc:title>";
    if (o.date) xml += "<dc:date>" + escapeXml(*o.date) + "</dc:date>";
    xml += std::string("<upnp:class>") + (video ? "object.item.videoItem" : "object.item.imageItem.photo") +
           "</upnp:class>";
    int count = o.numResources > 0 ? std::min<int>(o.numResources, static_cast<int>(o.resources.size()))
                                   : static_cast<int>(o.resources.size());
    for (int i = 0; i < count; ++i) {
        const auto& r = o.resources[static_cast<size_t>(i)];
        // pURI, pProtocol, pMimeType, pDuration, pSize, pResolution, pAdditionalInfo
        std::string protocolInfo = r[1].value_or("http-get") + ":*:" + r[2].value_or("*") + ":" + r[6].value_or("*");
        xml += "<res protocolInfo=\"" + escapeXml(protocolInfo) + "\"";
        if (r[4]) xml += " size=\"" + escapeXml(*r[4]) + "\"";
        if (r[3]) xml += " duration=\"" + escapeXml(*r[3]) + "\"";
        if (r[5]) xml += " resolution=\"" + escapeXml(*r[5]) + "\"";
        xml += ">" + escapeXml(r[0].value_or("")) + "</res>";
    }
    xml += "</item></DIDL-Lite>";
    return xml;
}

}  // namespace

// ==== Test control ========================================================================
namespace host {
namespace mrcp {

void setRenderers(const std::vector<Renderer>& renderers) {
    MrcpState& s = mrcpState();
    std::lock_guard<std::mutex> g(s.lock);
    s.renderers = renderers;
}

std::vector<SentRequest> sentRequests(const std::string& action) {
    MrcpState& s = mrcpState();
    std::lock_guard<std::mutex> g(s.lock);
    std::vector<SentRequest> out;
    for (auto& r : s.sent)
        if (action.empty() || r.action.value_or("") == action) out.push_back(r);
    return out;
}

bool waitForRequests(const std::string& action, size_t count, int timeoutMs) {
    MrcpState& s = mrcpState();
    std::unique_lock<std::mutex> l(s.lock);
    return s.changed.wait_for(l, std::chrono::milliseconds(timeoutMs), [&] {
        size_t n = 0;
        for (auto& r : s.sent)
            if (r.action.value_or("") == action) ++n;
        return n >= count;
    });
}

Response answerTo(const SentRequest& r) {
    Response a;
    a.action = r.action.value_or("");
    a.context = r.context;
    return a;
}

std::string lastChange(const std::vector<std::pair<std::string, std::string>>& variables) {
    std::string xml = "<Event xmlns=\"urn:schemas-upnp-org:metadata-1-0/AVT/\"><InstanceID val=\"0\">";
    for (auto& v : variables) xml += "<" + v.first + " val=\"" + escapeXml(v.second) + "\"/>";
    return xml + "</InstanceID></Event>";
}

bool deliverResponse(const Response& response) {
    stZEBAppList* o = newObject();
    o->response = response;
    return enqueue(o, [o](MrcpState& s) {
        s.commandResponse(s.profile, o->response.action.c_str(), o->response.error, o);
    });
}

bool deliverStatus(const StatusNotification& notification) {
    stZEBAppList* o = newObject();
    o->status = notification;
    return enqueue(o, [o](MrcpState& s) { s.deviceStatus(s.profile, o->status.error, o); });
}

bool deliverDeviceInfo(const char* type, const std::string& name, const std::string& udn, int error) {
    stZEBAppList* o = newObject();
    o->name = name;
    o->udn = udn;
    std::optional<std::string> kind;
    if (type != nullptr) kind = std::string(type);
    return enqueue(o, [o, kind, error](MrcpState& s) {
        std::string text = kind.value_or("");
        s.deviceInfo(s.profile, kind ? &text[0] : nullptr, error, o);
    });
}

bool deliverException(int type, const std::string& value) {
    stZEBAppList* o = newObject();
    o->exceptionType = type;
    o->exceptionValue = value;
    return enqueue(o, [o](MrcpState& s) { s.exception(s.profile, o); });
}

bool waitIdle(int timeoutMs) {
    MrcpState& s = mrcpState();
    std::unique_lock<std::mutex> l(s.lock);
    return s.changed.wait_for(l, std::chrono::milliseconds(timeoutMs), [&] { return s.queue.empty() && !s.busy; });
}

int liveObjects() { return gLiveObjects.load(); }

void duringNextCall(const std::string& fn, std::function<void()> during) {
    MrcpState& s = mrcpState();
    std::lock_guard<std::mutex> g(s.lock);
    s.during[fn] = std::move(during);
}

bool profileInitialised() {
    MrcpState& s = mrcpState();
    std::lock_guard<std::mutex> g(s.lock);
    return s.initialised;
}

bool profileStarted() {
    MrcpState& s = mrcpState();
    std::lock_guard<std::mutex> g(s.lock);
    return s.started;
}

std::vector<std::string> subscriptions() {
    MrcpState& s = mrcpState();
    std::lock_guard<std::mutex> g(s.lock);
    return s.subscriptions;
}

std::vector<std::pair<std::string, std::string>> storedProtocolInfos() {
    MrcpState& s = mrcpState();
    std::lock_guard<std::mutex> g(s.lock);
    return s.protocolInfos;
}

bool streamingServerRunning() {
    MrcpState& s = mrcpState();
    std::lock_guard<std::mutex> g(s.lock);
    return s.streaming;
}

int streamingServerPort() {
    MrcpState& s = mrcpState();
    std::lock_guard<std::mutex> g(s.lock);
    return s.streamingPort;
}

}  // namespace mrcp
}  // namespace host

// ==== Configuration check =================================================================
extern "C" int ZEBCheckFileState(const char* directory, const stZEBConfigFile* files, int count) {
    host::journal("ZEBCheckFileState(%s, %d)", orNull(directory), count);
    long long scripted;
    if (host::takeScriptedResult("ZEBCheckFileState", &scripted)) return static_cast<int>(scripted);
    if (directory == nullptr || files == nullptr || count <= 0) return 0;
    std::string dir = directory;
    if (!host::media::makeParentDirectories(dir + "/x")) return 0;
    for (int i = 0; i < count; ++i) {
        const stZEBConfigFile& f = files[i];
        if (f.pFileName == nullptr || f.pContent == nullptr) return 0;
        std::string path = dir + "/" + f.pFileName;
        struct stat st;
        if (stat(path.c_str(), &st) == 0) continue;
        // The length field may exceed the text: never read past its end.
        size_t length = strnlen(f.pContent, f.uiLength);
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(f.pContent, static_cast<std::streamsize>(length));
        if (!out) return 0;
    }
    return 1;
}

// ==== Profile ==============================================================================
extern "C" ZEB_ERROR_CODE ZEBMRCPInitialize(ZEBMRCPExceptionCallback exception, ZEBMRCPDeviceInfoCallback deviceInfo,
                                            ZEBMRCPDeviceStatusCallback deviceStatus,
                                            ZEBMRCPCommandResponseCallback commandResponse, int* profileId,
                                            const char* directory) {
    host::journal("ZEBMRCPInitialize(%s)", orNull(directory));
    long long scripted;
    if (host::takeScriptedResult("ZEBMRCPInitialize", &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    if (!exception || !deviceInfo || !deviceStatus || !commandResponse || profileId == nullptr) return 1;
    // A test may make the stack hand out no handle ("ZEBMRCPInitialize.profile").
    int handle = static_cast<int>(host::scriptedOr("ZEBMRCPInitialize.profile", 1));
    stopEvents();  // a second profile replaces the first
    MrcpState& s = mrcpState();
    std::lock_guard<std::mutex> g(s.lock);
    s.exception = exception;
    s.deviceInfo = deviceInfo;
    s.deviceStatus = deviceStatus;
    s.commandResponse = commandResponse;
    s.initialised = true;
    s.profile = handle;
    s.stopEvents = false;
    s.events = std::thread(eventLoop);
    *profileId = handle;
    return 0;
}

extern "C" ZEB_ERROR_CODE ZEBMRCPStart(int profileId) {
    host::journal("ZEBMRCPStart(%d)", profileId);
    long long scripted;
    if (host::takeScriptedResult("ZEBMRCPStart", &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    MrcpState& s = mrcpState();
    {
        std::lock_guard<std::mutex> g(s.lock);
        if (!s.initialised || profileId != s.profile) return 1;
        s.started = true;
    }
    runDuring("ZEBMRCPStart");
    return 0;
}

extern "C" ZEB_ERROR_CODE ZEBMRCPStop(int profileId) {
    host::journal("ZEBMRCPStop(%d)", profileId);
    {
        MrcpState& s = mrcpState();
        std::lock_guard<std::mutex> g(s.lock);
        s.started = false;
    }
    stopEvents();
    return result("ZEBMRCPStop");
}

extern "C" ZEB_ERROR_CODE ZEBMRCPTerminate(int profileId) {
    host::journal("ZEBMRCPTerminate(%d)", profileId);
    stopEvents();
    MrcpState& s = mrcpState();
    std::lock_guard<std::mutex> g(s.lock);
    s.initialised = s.started = false;
    s.exception = nullptr;
    s.deviceInfo = nullptr;
    s.deviceStatus = nullptr;
    s.commandResponse = nullptr;
    return result("ZEBMRCPTerminate");
}

extern "C" ZEB_ERROR_CODE ZEBMRCPGetDeviceList(int profileId, stZEBAppList** response) {
    host::journal("ZEBMRCPGetDeviceList(%d)", profileId);
    if (response == nullptr) return 1;
    *response = nullptr;
    long long scripted;
    if (host::takeScriptedResult("ZEBMRCPGetDeviceList", &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    MrcpState& s = mrcpState();
    {
        std::lock_guard<std::mutex> g(s.lock);
        if (!s.initialised || profileId != s.profile) return 1;
        if (!s.renderers.empty()) {
            stZEBAppList* o = newObject();
            o->response.action = "GetDeviceList";
            o->stackEvent = ZEB_MRCP_EVENT_DEVICE_LIST;
            o->devices = s.renderers;
            *response = o;
        }
    }
    runDuring("ZEBMRCPGetDeviceList");
    return 0;
}

extern "C" ZEB_ERROR_CODE ZEBMRCPSubscribeDevice(int profileId, const char* udn) {
    host::journal("ZEBMRCPSubscribeDevice(%d, %s)", profileId, orNull(udn));
    long long scripted;
    if (host::takeScriptedResult("ZEBMRCPSubscribeDevice", &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    if (udn == nullptr) return 1;
    MrcpState& s = mrcpState();
    {
        std::lock_guard<std::mutex> g(s.lock);
        s.subscriptions.push_back(udn);
    }
    runDuring("ZEBMRCPSubscribeDevice");
    return 0;
}

extern "C" ZEB_ERROR_CODE ZEBMRCPstoreRendererProtocolInfo(const char* udn, const char* protocolInfo) {
    host::journal("ZEBMRCPstoreRendererProtocolInfo(%s, %s)", orNull(udn), orNull(protocolInfo));
    long long scripted;
    if (host::takeScriptedResult("ZEBMRCPstoreRendererProtocolInfo", &scripted))
        return static_cast<ZEB_ERROR_CODE>(scripted);
    if (udn == nullptr || protocolInfo == nullptr) return 1;
    MrcpState& s = mrcpState();
    std::lock_guard<std::mutex> g(s.lock);
    s.protocolInfos.emplace_back(udn, protocolInfo);
    return 0;
}

extern "C" ZEB_ERROR_CODE ZEBMRCPGetDeviceDetails(int profileId, const char* udn, stZEBMRCPDeviceDetails* details) {
    host::journal("ZEBMRCPGetDeviceDetails(%d, %s)", profileId, orNull(udn));
    long long scripted;
    if (host::takeScriptedResult("ZEBMRCPGetDeviceDetails", &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    if (udn == nullptr || details == nullptr) return 1;
    MrcpState& s = mrcpState();
    std::lock_guard<std::mutex> g(s.lock);
    for (const Renderer& r : s.renderers) {
        if (r.udn != udn) continue;
        memset(details, 0, sizeof *details);
        snprintf(details->szIPAddress, sizeof details->szIPAddress, "%s", r.ip.c_str());
        snprintf(details->szFriendlyName, sizeof details->szFriendlyName, "%s", r.name.c_str());
        snprintf(details->szUDN, sizeof details->szUDN, "%s", r.udn.c_str());
        snprintf(details->szManufacturer, sizeof details->szManufacturer, "%s", r.manufacturer.c_str());
        snprintf(details->szModelName, sizeof details->szModelName, "%s", r.modelName.c_str());
        snprintf(details->szModelNumber, sizeof details->szModelNumber, "%s", r.modelNumber.c_str());
        return 0;
    }
    return 1;
}

// ==== Requests ================================================================================
extern "C" ZEB_ERROR_CODE HZebMRCPAllocRequestResources(stZEBAppList** request) {
    return allocObject("HZebMRCPAllocRequestResources", request);
}

extern "C" ZEB_ERROR_CODE HZebMRCPReleaseRequestResources(stZEBAppList* request) {
    return releaseObject("HZebMRCPReleaseRequestResources", request);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQSetActionName(stZEBAppList* request, const char* action) {
    return setText("HZebMRCPRQSetActionName", request, &SentRequest::action, action);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQSetInstanceID(stZEBAppList* request, const char* instanceId) {
    return setText("HZebMRCPRQSetInstanceID", request, &SentRequest::instance, instanceId);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQSetPlaySpeed(stZEBAppList* request, int speed) {
    host::journal("HZebMRCPRQSetPlaySpeed(%d)", speed);
    return setField("HZebMRCPRQSetPlaySpeed", request, &SentRequest::speed, speed);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQSetMatchedURI(stZEBAppList* request, const char* uri) {
    return setText("HZebMRCPRQSetMatchedURI", request, &SentRequest::uri, uri);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQSetMetaData(stZEBAppList* request, const char* metadata) {
    return setText("HZebMRCPRQSetMetaData", request, &SentRequest::metadata, metadata);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQSetSeekUnit(stZEBAppList* request, const char* unit) {
    return setText("HZebMRCPRQSetSeekUnit", request, &SentRequest::seekUnit, unit);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQSetCurrPos(stZEBAppList* request, const char** position) {
    return setText("HZebMRCPRQSetCurrPos", request, &SentRequest::seekTarget, position ? *position : nullptr);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQSetChannel(stZEBAppList* request, const char* channel) {
    return setText("HZebMRCPRQSetChannel", request, &SentRequest::channel, channel);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQSetVolume(stZEBAppList* request, int volume) {
    host::journal("HZebMRCPRQSetVolume(%d)", volume);
    return setField("HZebMRCPRQSetVolume", request, &SentRequest::volume, volume);
}

#define MRCP_SEND(fn)                                                                                     \
    extern "C" ZEB_ERROR_CODE fn(int profileId, const char* udn, stZEBAppList* request, const char* context) { \
        return send(#fn, profileId, udn, request, context);                                              \
    }
MRCP_SEND(ZEBMRCPSetAVTransportURI)
MRCP_SEND(ZEBMRCPAVPlay)
MRCP_SEND(ZEBMRCPAVStop)
MRCP_SEND(ZEBMRCPAVPause)
MRCP_SEND(ZEBMRCPAVResume)
MRCP_SEND(ZEBMRCPAVSeek)
MRCP_SEND(ZEBMRCPGetPlayPositionInfo)
MRCP_SEND(ZEBMRCPSetVolume)
MRCP_SEND(ZEBMRCPGetVolume)
MRCP_SEND(ZEBMRCPGetPlayState)
MRCP_SEND(ZEBMRCPGetProtocolInfo)
#undef MRCP_SEND

// ==== Responses ================================================================================
extern "C" ZEB_ERROR_CODE HZebMRCPReleaseResponseResources(stZEBAppList* response) {
    return releaseObject("HZebMRCPReleaseResponseResources", response);
}

extern "C" ZEB_ERROR_CODE HZebMRCPCRGetActionName(stZEBAppList* response, const char** action) {
    return getText("HZebMRCPCRGetActionName", response, action, response ? &response->response.action : nullptr);
}

extern "C" ZEB_ERROR_CODE HZebValidateUIResponse(stZEBAppList* response, int stackEvent) {
    host::journal("HZebValidateUIResponse(%d)", stackEvent);
    if (response == nullptr || scriptedFailure("HZebValidateUIResponse")) return 1;
    return response->stackEvent == stackEvent ? 0 : 1;
}

extern "C" ZEB_ERROR_CODE HZebMRCPCRGetNumberOfDevices(stZEBAppList* response, int* count) {
    std::optional<int> n;
    if (response != nullptr && response->stackEvent == ZEB_MRCP_EVENT_DEVICE_LIST)
        n = static_cast<int>(response->devices.size());
    return getInt("HZebMRCPCRGetNumberOfDevices", response, count, n);
}

namespace {
const std::string* deviceField(stZEBAppList* response, int device, std::string Renderer::*field) {
    if (response == nullptr || device < 1 || static_cast<size_t>(device) > response->devices.size())
        return nullptr;
    return &(response->devices[static_cast<size_t>(device - 1)].*field);
}
}  // namespace

extern "C" ZEB_ERROR_CODE HZebMRCPCRGetNameFromDeviceInfo(stZEBAppList* response, int device, const char** name) {
    return getText("HZebMRCPCRGetNameFromDeviceInfo", response, name, deviceField(response, device, &Renderer::name));
}

extern "C" ZEB_ERROR_CODE HZebMRCPCRGetUDNFromDeviceInfo(stZEBAppList* response, int device, const char** udn) {
    return getText("HZebMRCPCRGetUDNFromDeviceInfo", response, udn, deviceField(response, device, &Renderer::udn));
}

extern "C" ZEB_ERROR_CODE HZebMRCPCRGetTCharContext(stZEBAppList* response, const char** context) {
    return getText("HZebMRCPCRGetTCharContext", response, context,
                   response ? present(response->response.context) : nullptr);
}

namespace {
ZEB_MRCP_DEVICE_STATUS stateOfText(const std::string& text) {
    static const struct { const char* text; ZEB_MRCP_DEVICE_STATUS state; } kStates[] = {
        {"STOPPED", ZEB_MRCP_STATE_STOPPED},
        {"PLAYING", ZEB_MRCP_STATE_PLAYING},
        {"PAUSED_PLAYBACK", ZEB_MRCP_STATE_PAUSED_PLAYBACK},
        {"TRANSITIONING", ZEB_MRCP_STATE_TRANSITIONING},
        {"PAUSED_RECORDING", ZEB_MRCP_STATE_PAUSED_RECORDING},
        {"RECORDING", ZEB_MRCP_STATE_RECORDING},
        {"NO_MEDIA_PRESENT", ZEB_MRCP_STATE_NO_MEDIA_PRESENT},
    };
    for (auto& s : kStates)
        if (text == s.text) return s.state;
    return ZEB_MRCP_STATE_UNKNOWN;
}
}  // namespace

extern "C" ZEB_ERROR_CODE HZebMRCPRQGetTransportInfo(stZEBAppList* response, ZEB_MRCP_DEVICE_STATUS* state,
                                                     int* status) {
    host::journal("HZebMRCPRQGetTransportInfo()");
    if (response == nullptr || state == nullptr || status == nullptr || scriptedFailure("HZebMRCPRQGetTransportInfo"))
        return 1;
    const Response& r = response->response;
    if (!r.transportState) return 1;
    *state = stateOfText(*r.transportState);
    *status = r.transportStatus.value_or("OK") == "ERROR_OCCURRED" ? ZEB_MRCP_TRANSPORT_STATUS_ERROR
                                                                   : ZEB_MRCP_TRANSPORT_STATUS_OK;
    return 0;
}

extern "C" ZEB_ERROR_CODE HZebMRCPCRGetTrackDuration(stZEBAppList* response, int* milliseconds) {
    return getInt("HZebMRCPCRGetTrackDuration", response, milliseconds,
                  response ? response->response.durationMs : std::nullopt);
}

extern "C" ZEB_ERROR_CODE HZebMRCPCRGetRelTime(stZEBAppList* response, int* milliseconds) {
    return getInt("HZebMRCPCRGetRelTime", response, milliseconds,
                  response ? response->response.relTimeMs : std::nullopt);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQGetVolume(stZEBAppList* response, int* volume) {
    return getInt("HZebMRCPRQGetVolume", response, volume, response ? response->response.volume : std::nullopt);
}

extern "C" ZEB_ERROR_CODE HZebMRCPCRGetSinkProtocolInfo(stZEBAppList* response, const char** protocolInfo) {
    return getText("HZebMRCPCRGetSinkProtocolInfo", response, protocolInfo,
                   response ? present(response->response.sinkProtocolInfo) : nullptr);
}

// ==== Notifications ===========================================================================
extern "C" ZEB_ERROR_CODE HZebMRCPReleaseInfoResources(stZEBAppList* info) {
    return releaseObject("HZebMRCPReleaseInfoResources", info);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQGetDeviceName(stZEBAppList* info, const char** name) {
    return getText("HZebMRCPRQGetDeviceName", info, name, info ? &info->name : nullptr);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQGetDeviceUDN(stZEBAppList* info, const char** udn) {
    return getText("HZebMRCPRQGetDeviceUDN", info, udn, info ? &info->udn : nullptr);
}

extern "C" ZEB_ERROR_CODE HZebMRCPEIGetExceptionType(stZEBAppList* info, int* type) {
    return getInt("HZebMRCPEIGetExceptionType", info, type,
                  info ? std::optional<int>(info->exceptionType) : std::nullopt);
}

extern "C" ZEB_ERROR_CODE HZebMRCPEIGetExceptionValue(stZEBAppList* info, const char** value) {
    return getText("HZebMRCPEIGetExceptionValue", info, value, info ? &info->exceptionValue : nullptr);
}

extern "C" ZEB_ERROR_CODE HZebMRCPDIGetDeviceUDN(stZEBAppList* info, const char** udn) {
    return getText("HZebMRCPDIGetDeviceUDN", info, udn, info ? &info->status.udn : nullptr);
}

extern "C" ZEB_ERROR_CODE HZebMRCPDIGetServiceType(stZEBAppList* info, const char** serviceType) {
    return getText("HZebMRCPDIGetServiceType", info, serviceType, info ? &info->status.serviceType : nullptr);
}

extern "C" ZEB_ERROR_CODE HZebMRCPDIGetNumOfArgument(stZEBAppList* info, int* count) {
    return getInt("HZebMRCPDIGetNumOfArgument", info, count,
                  info ? std::optional<int>(static_cast<int>(info->status.variables.size())) : std::nullopt);
}

extern "C" ZEB_ERROR_CODE HZebMRCPDIGetStateVariable(stZEBAppList* info, int index, const char** name,
                                                     const char** value) {
    host::journal("HZebMRCPDIGetStateVariable(%d)", index);
    if (info == nullptr || name == nullptr || value == nullptr || index < 0 ||
        static_cast<size_t>(index) >= info->status.variables.size() || scriptedFailure("HZebMRCPDIGetStateVariable"))
        return 1;
    *name = info->status.variables[static_cast<size_t>(index)].first.c_str();
    *value = info->status.variables[static_cast<size_t>(index)].second.c_str();
    return 0;
}

// ==== HTTP streaming server ======================================================================
extern "C" int HTTPStreamingServerInitialize(int profileId, int port) {
    host::journal("HTTPStreamingServerInitialize(%d, %d)", profileId, port);
    long long scripted;
    if (host::takeScriptedResult("HTTPStreamingServerInitialize", &scripted)) return static_cast<int>(scripted);
    if (port <= 0 || port > 65535) return 0;
    MrcpState& s = mrcpState();
    std::lock_guard<std::mutex> g(s.lock);
    s.streaming = true;
    s.streamingPort = port;
    return 1;
}

extern "C" void HTTPStreamingServerTerminate(void) {
    host::journal("HTTPStreamingServerTerminate()");
    MrcpState& s = mrcpState();
    std::lock_guard<std::mutex> g(s.lock);
    s.streaming = false;
}

// ==== Item list ===================================================================================
extern "C" ZEB_LIST ZEBListCreate(void) {
    host::journal("ZEBListCreate()");
    if (host::scriptedOr("ZEBListCreate", 1) == 0) return nullptr;
    return new ZEBList_s;
}

extern "C" ZEB_ERROR_CODE ZEBListAppend(ZEB_LIST list, void* item) {
    if (list == nullptr || item == nullptr) return 1;
    list->items.push_back(item);
    return 0;
}

extern "C" unsigned int ZEBListCount(ZEB_LIST list) {
    return list ? static_cast<unsigned int>(list->items.size()) : 0;
}

extern "C" void* ZEBListGetAt(ZEB_LIST list, unsigned int index) {
    return list && index < list->items.size() ? list->items[index] : nullptr;
}

extern "C" void ZEBListDestroy(ZEB_LIST list) { delete list; }

// ==== Media-server object requests ====================================================================
extern "C" ZEB_ERROR_CODE HZebMSCPAllocRequestResources(stZEBAppList** object) {
    return allocObject("HZebMSCPAllocRequestResources", object);
}

extern "C" ZEB_ERROR_CODE HZebMSCPReleaseRequestResources(stZEBAppList* object) {
    return releaseObject("HZebMSCPReleaseRequestResources", object);
}

extern "C" ZEB_ERROR_CODE HZebMSCPRQSetObjectID(stZEBAppList* object, const char* id) {
    return setObjectText("HZebMSCPRQSetObjectID", object, &stZEBAppList::objectId, id);
}

extern "C" ZEB_ERROR_CODE HZebMSCPRQSetParentID(stZEBAppList* object, const char* parentId) {
    return setObjectText("HZebMSCPRQSetParentID", object, &stZEBAppList::parentId, parentId);
}

extern "C" ZEB_ERROR_CODE HZebMSCPRQSetTitle(stZEBAppList* object, const char* title) {
    return setObjectText("HZebMSCPRQSetTitle", object, &stZEBAppList::title, title);
}

extern "C" ZEB_ERROR_CODE HZebMSCPRQSetDate(stZEBAppList* object, const char* date) {
    return setObjectText("HZebMSCPRQSetDate", object, &stZEBAppList::date, date);
}

extern "C" ZEB_ERROR_CODE HZebMSCPRQSetObjectType(stZEBAppList* object, const char* type) {
    if (type != nullptr && strcmp(type, "VIDEO") != 0 && strcmp(type, "IMAGE") != 0) {
        host::journal("HZebMSCPRQSetObjectType(%s)", type);
        return 1;
    }
    return setObjectText("HZebMSCPRQSetObjectType", object, &stZEBAppList::objectType, type);
}

extern "C" ZEB_ERROR_CODE HZebMSCPRQSetResources(stZEBAppList* object, ZEB_LIST resources) {
    host::journal("HZebMSCPRQSetResources(%u)", ZEBListCount(resources));
    if (object == nullptr || resources == nullptr) return 1;
    object->resources.clear();
    auto text = [](const char* s) { return s ? std::optional<std::string>(s) : std::nullopt; };
    for (void* item : resources->items) {
        const stZEBMSCPResource* r = static_cast<const stZEBMSCPResource*>(item);
        object->resources.push_back({text(r->pURI), text(r->pProtocol), text(r->pMimeType), text(r->pDuration),
                                     text(r->pSize), text(r->pResolution), text(r->pAdditionalInfo)});
    }
    return 0;
}

extern "C" ZEB_ERROR_CODE HZebMSCPRQSetNumOfResources(stZEBAppList* object, int count) {
    host::journal("HZebMSCPRQSetNumOfResources(%d)", count);
    if (object == nullptr || count < 0) return 1;
    object->numResources = count;
    return 0;
}

extern "C" char* HZebMSCPRQGetAVTransportURIMetadata(stZEBAppList* object) {
    host::journal("HZebMSCPRQGetAVTransportURIMetadata()");
    if (object == nullptr || !object->objectId || !object->title || !object->objectType || object->resources.empty())
        return nullptr;
    if (host::scriptedOr("HZebMSCPRQGetAVTransportURIMetadata", 1) == 0) return nullptr;
    return host::media::copyText(didlLite(*object));
}
