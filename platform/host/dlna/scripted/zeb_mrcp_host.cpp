// The scripted implementation of the DLNA stack's renderer control point:
// the profile and its four callbacks, the device list, sending, the HTTP
// streaming server (common/zeb_objects_host.cpp holds the objects they
// carry).
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
#include "scripted_stack.h"
#include "zeb_media_internal.h"
#include "zeb_network_stack.h"
#include "zeb_objects.h"
#include "zeb_stack.h"

using host::mrcp::Renderer;
using host::mrcp::Response;
using host::mrcp::SentRequest;
using host::mrcp::StatusNotification;

namespace {

using host::zeb::newObject;
using host::zeb::releaseObject;

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
    for (auto& v : variables) xml += "<" + v.first + " val=\"" + host::zeb::escapeXml(v.second) + "\"/>";
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

int liveObjects() { return host::zeb::liveObjects(); }

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

namespace {

// ==== Profile ==============================================================================
ZEB_ERROR_CODE mrcpInitialize(ZEBMRCPExceptionCallback exception, ZEBMRCPDeviceInfoCallback deviceInfo,
                              ZEBMRCPDeviceStatusCallback deviceStatus, ZEBMRCPCommandResponseCallback commandResponse,
                              int* profileId, const char* directory) {
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

ZEB_ERROR_CODE mrcpStart(int profileId) {
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

ZEB_ERROR_CODE mrcpStop(int profileId) {
    host::journal("ZEBMRCPStop(%d)", profileId);
    {
        MrcpState& s = mrcpState();
        std::lock_guard<std::mutex> g(s.lock);
        s.started = false;
    }
    stopEvents();
    return result("ZEBMRCPStop");
}

ZEB_ERROR_CODE mrcpTerminate(int profileId) {
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

ZEB_ERROR_CODE getDeviceList(int profileId, stZEBAppList** response) {
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

ZEB_ERROR_CODE subscribeDevice(int profileId, const char* udn) {
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


ZEB_ERROR_CODE getDeviceDetails(int profileId, const char* udn, stZEBMRCPDeviceDetails* details) {
    host::journal("ZEBMRCPGetDeviceDetails(%d, %s)", profileId, orNull(udn));
    long long scripted;
    if (host::takeScriptedResult("ZEBMRCPGetDeviceDetails", &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    if (udn == nullptr || details == nullptr) return 1;
    MrcpState& s = mrcpState();
    std::lock_guard<std::mutex> g(s.lock);
    for (const Renderer& r : s.renderers) {
        if (r.udn != udn) continue;
        host::zeb::fillDeviceDetails(r, details);
        return 0;
    }
    return 1;
}


// ==== HTTP streaming server ======================================================================
int streamingInitialize(int profileId, int port) {
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

void streamingTerminate() {
    host::journal("HTTPStreamingServerTerminate()");
    MrcpState& s = mrcpState();
    std::lock_guard<std::mutex> g(s.lock);
    s.streaming = false;
}

}  // namespace

// Remembering a renderer's protocols is the stack's own bookkeeping, not
// network: the same in both stacks, kept where the tests read it.
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

namespace host {
namespace zeb {

const NetworkStack& scriptedStack() {
    static const NetworkStack stack = {
        "scripted",       host::scripted::initializeZEB, host::scripted::terminateZEB,
        host::scripted::httpInitialize, host::scripted::httpTerminate, mrcpInitialize, mrcpStart, mrcpStop,
        mrcpTerminate,    getDeviceList, subscribeDevice, getDeviceDetails, send, streamingInitialize,
        streamingTerminate,
    };
    return stack;
}

}  // namespace zeb
}  // namespace host
