#include "control_point.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <upnp.h>
#include <upnptools.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <tuple>

#include "dlog.h"
#include "event_receiver.h"
#include "http_client.h"
#include "upnp_log.h"
#include "upnp_xml.h"

namespace camwifi {
namespace upnp {

namespace {

using Clock = std::chrono::steady_clock;

const char* const kRendererType = "urn:schemas-upnp-org:device:MediaRenderer:1";
const char* const kAVTransport = "urn:schemas-upnp-org:service:AVTransport:";
const char* const kRenderingControl = "urn:schemas-upnp-org:service:RenderingControl:";
const char* const kConnectionManager = "urn:schemas-upnp-org:service:ConnectionManager:";
// Search answers are spread over this many seconds by the renderers.
constexpr int kSearchMx = 2;
// Events that arrive for a subscription not yet confirmed are kept (at most
// this many) until its SID is known.
constexpr size_t kMaxEarlyEvents = 16;
// Before a new URI: how long a renderer may take to report itself stopped,
// and how often it is asked meanwhile.
constexpr int kStopWaitMs = 2000;
constexpr int kStopPollMs = 50;
// All UNSUBSCRIBEs of a stop together take at most this long.
constexpr int kUnsubscribeMs = 500;
// A subscription that failed is tried again after this long.
constexpr int kResubscribeMs = 30000;
// Lifetime of the camera's own advertisements (libupnp repeats them in time).
constexpr int kAdvertisementSeconds = 1800;
// Larger description files are not the camera's.
constexpr size_t kMaxDescriptionBytes = 1 << 20;

std::atomic<bool> gLibraryInUse{false};


// The IPv4 address of iface; "" when it has none or does not exist.
std::string ipv4Of(const std::string& iface, bool* exists) {
    *exists = false;
    std::string out;
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return out;
    for (ifaddrs* a = list; a; a = a->ifa_next) {
        if (a->ifa_name == nullptr || iface != a->ifa_name) continue;
        *exists = true;
        if (a->ifa_addr && a->ifa_addr->sa_family == AF_INET && out.empty()) {
            char text[INET_ADDRSTRLEN];
            inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(a->ifa_addr)->sin_addr, text, sizeof text);
            out = text;
        }
    }
    freeifaddrs(list);
    return out;
}

// Which service an action goes to, the SOAP action name and its arguments.
// False for an action the stack does not know.
bool soapFor(const ActionRequest& r, const char** servicePrefix, std::string* soapAction,
             std::vector<std::pair<std::string, std::string>>* args) {
    args->clear();
    const std::string& a = r.action;
    *servicePrefix = kAVTransport;
    *soapAction = a;
    if (a == "SetAVTransportURI") {
        if (!r.uri) return false;
        *args = {{"InstanceID", r.instanceId}, {"CurrentURI", *r.uri}, {"CurrentURIMetaData", r.metadata.value_or("")}};
    } else if (a == "Play" || a == "Resume") {
        // AVTransport has no resume: Play at normal speed continues a pause.
        *soapAction = "Play";
        *args = {{"InstanceID", r.instanceId}, {"Speed", std::to_string(r.speed.value_or(1))}};
    } else if (a == "Stop" || a == "Pause" || a == "GetPositionInfo" || a == "GetTransportInfo") {
        *args = {{"InstanceID", r.instanceId}};
    } else if (a == "Seek") {
        if (!r.seekTarget) return false;
        *args = {{"InstanceID", r.instanceId}, {"Unit", r.seekUnit.value_or("REL_TIME")}, {"Target", *r.seekTarget}};
    } else if (a == "GetVolume") {
        *servicePrefix = kRenderingControl;
        *args = {{"InstanceID", r.instanceId}, {"Channel", r.channel.value_or("Master")}};
    } else if (a == "SetVolume") {
        if (!r.volume) return false;
        *servicePrefix = kRenderingControl;
        *args = {{"InstanceID", r.instanceId},
                 {"Channel", r.channel.value_or("Master")},
                 {"DesiredVolume", std::to_string(*r.volume)}};
    } else if (a == "GetProtocolInfo") {
        *servicePrefix = kConnectionManager;
    } else {
        return false;
    }
    return true;
}

// Fills the typed fields of an answer from its out-arguments.
void readOutArguments(const SoapAnswer& soap, ActionAnswer* answer) {
    answer->arguments = soap.arguments;
    if (const std::string* v = soap.argument("CurrentTransportState")) answer->transportState = *v;
    if (const std::string* v = soap.argument("CurrentTransportStatus")) answer->transportStatus = *v;
    auto time = [](const std::string* v) -> std::optional<int> {
        if (v == nullptr) return std::nullopt;
        long long ms = parseUpnpTime(*v);
        if (ms < 0 || ms > 0x7fffffffLL) return std::nullopt;
        return static_cast<int>(ms);
    };
    if (auto d = time(soap.argument("TrackDuration"))) answer->durationMs = d;
    if (auto t = time(soap.argument("RelTime"))) answer->relTimeMs = t;
    if (const std::string* v = soap.argument("CurrentVolume")) {
        char* end = nullptr;
        long n = strtol(v->c_str(), &end, 10);
        if (!v->empty() && end && *end == '\0' && n >= 0 && n <= 0xffff) answer->volume = static_cast<int>(n);
    }
    if (const std::string* v = soap.argument("Sink")) answer->sinkProtocolInfo = *v;
}

// A worker thread with a queue of jobs, and a descriptor that cuts the
// request in flight short.
class Worker {
public:
    explicit Worker(const std::string& name) : m_cancelFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        m_thread = std::thread([this, name] {
            pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
            run();
        });
    }
    ~Worker() {
        join();
        if (m_cancelFd >= 0) close(m_cancelFd);
    }
    // Cancels and waits until the thread has ended (every job it held, and
    // what the jobs captured, released). Never from the worker itself.
    void join() {
        cancel();
        if (!m_thread.joinable()) return;
        if (m_thread.get_id() == std::this_thread::get_id()) m_thread.detach();
        else m_thread.join();
    }
    // Jobs get true when they run, false when dropped by a cancel.
    bool post(std::function<void(bool run)> job) {
        std::lock_guard<std::mutex> g(m_lock);
        if (m_stopping) return false;
        m_jobs.push_back(std::move(job));
        m_changed.notify_all();
        return true;
    }
    // Stops taking jobs, cuts the one in flight; queued ones are called with
    // false on the worker's thread.
    void cancel() {
        {
            std::lock_guard<std::mutex> g(m_lock);
            if (m_stopping) return;
            m_stopping = true;
            m_changed.notify_all();
        }
        uint64_t one = 1;
        if (m_cancelFd >= 0) (void)!write(m_cancelFd, &one, sizeof one);
    }
    int cancelFd() const { return m_cancelFd; }
    bool cancelled() {
        std::lock_guard<std::mutex> g(m_lock);
        return m_stopping;
    }

private:
    void run() {
        std::unique_lock<std::mutex> l(m_lock);
        for (;;) {
            m_changed.wait(l, [&] { return m_stopping || !m_jobs.empty(); });
            if (m_jobs.empty()) return;
            auto job = std::move(m_jobs.front());
            m_jobs.pop_front();
            bool run = !m_stopping;
            l.unlock();
            job(run);
            l.lock();
        }
    }

    std::mutex m_lock;
    std::condition_variable m_changed;
    std::deque<std::function<void(bool)>> m_jobs;
    bool m_stopping = false;
    int m_cancelFd;
    std::thread m_thread;
};

}  // namespace

struct UpnpControlPoint::Impl {
    enum class State { kFetching, kRenderer, kOther };
    struct Device {
        std::string udn;
        std::string location;
        Clock::time_point firstSeen;  // first SSDP message: actions wait for it to settle
        Clock::time_point expires;
        State state = State::kFetching;
        DeviceInfo description;
        RendererDetails details;
        bool announced = false;
        bool subscribing = false;
        std::string sid;
        std::string eventSubUrl;       // where the subscription was made
        Clock::time_point renewAt;     // when to renew it
        std::unique_ptr<Worker> worker;
        // True once the device left: answers of requests cut short say so.
        std::atomic<bool> gone{false};
    };

    mutable std::mutex lock;
    std::mutex terminateLock;
    Listener listener;
    Options options;
    std::string iface, ip, whyText;
    bool libraryOwned = false, registered = false, started = false;
    UpnpClient_Handle handle = -1;
    // The camera's own device while it is advertised.
    UpnpDevice_Handle deviceHandle = -1;
    std::string ownUdn;
    std::string webRoot;  // only start() and stop() touch it, one after the other

    std::map<std::string, std::shared_ptr<Device>> devices;  // by UDN
    std::vector<std::string> order;                          // announced renderers, in order
    std::vector<std::shared_ptr<Device>> retired;            // left; workers to join
    EventReceiver receiver;  // the CALLBACK address of every subscription
    std::map<std::string, std::string> sidToUdn;
    std::map<std::string, std::vector<std::vector<std::pair<std::string, std::string>>>> earlyEvents;

    // Event thread: every listener call, one at a time.
    std::mutex eventLock;
    std::condition_variable eventChanged;
    std::deque<std::function<void()>> events;
    bool eventsStopping = false;
    std::thread eventThread;

    // Search / expiry thread.
    std::mutex houseLock;
    std::condition_variable houseChanged;
    bool houseStopping = false;
    std::thread houseThread;

    void fail(const std::string& why) {
        whyText = why;
        logLine(DLOG_PRIO_ERROR, "%s", why.c_str());
    }

    // --- Event thread ---------------------------------------------------------
    void post(std::function<void()> call) {
        std::lock_guard<std::mutex> g(eventLock);
        if (eventsStopping) return;
        events.push_back(std::move(call));
        eventChanged.notify_all();
    }
    void eventLoop() {
        pthread_setname_np(pthread_self(), "UpnpCPEvents");
        std::unique_lock<std::mutex> l(eventLock);
        for (;;) {
            eventChanged.wait(l, [&] { return eventsStopping || !events.empty(); });
            if (eventsStopping) return;
            auto call = std::move(events.front());
            events.pop_front();
            l.unlock();
            call();
            l.lock();
        }
    }

    // --- The camera's own device -----------------------------------------------
    // Advertises the device the description folder describes and serves its
    // descriptions with libupnp's web server. The folder holds the service
    // descriptions under their own names ("AVTransport_1.xml") while the
    // device description refers to them by longer ones
    // ("_urn:schemas-upnp-org:service:AVTransport_1.xml"), as the camera's
    // stack maps them: the web server gets a folder of its own with every
    // file under the name the device description uses. Nothing here is
    // needed to control renderers: a failure is logged and the control point
    // works on unseen.
    void advertise() {
        const std::string& dir = options.descriptionDir;
        std::string text = readFile(dir + "/DeviceDescription.xml");
        std::vector<DeviceInfo> devices;
        if (text.empty() || !parseDeviceDescription(text, "http://" + ip + "/", &devices) || devices.empty()) {
            logLine(DLOG_PRIO_ERROR, "no device description to advertise in %s", dir.c_str());
            return;
        }
        char root[] = "/tmp/camwifi-upnp-XXXXXX";
        if (mkdtemp(root) == nullptr) {
            logLine(DLOG_PRIO_ERROR, "no folder for the web server: %s", strerror(errno));
            return;
        }
        webRoot = root;
        bool copied = writeFile(webRoot + "/DeviceDescription.xml", text);
        for (const ServiceInfo& service : devices[0].services) {
            std::string name = service.scpdUrl.substr(service.scpdUrl.rfind('/') + 1);
            if (name.empty() || name == "." || name == "..") continue;
            std::string own = name.substr(name.rfind(':') + 1);  // the folder's name of it
            std::string body = readFile(dir + "/" + name);
            if (body.empty()) body = readFile(dir + "/" + own);
            copied = copied && !body.empty() && writeFile(webRoot + "/" + name, body);
        }
        {
            std::lock_guard<std::mutex> g(lock);
            ownUdn = devices[0].udn;  // before the first advertisement comes back to us
        }
        // Not under the lock: libupnp's threads may be in our discovery
        // callback, waiting for it, while these calls wait for them.
        std::string url = "http://" + ip + ":" + std::to_string(UpnpGetServerPort()) + "/DeviceDescription.xml";
        int rc = copied ? UpnpSetWebServerRootDir(webRoot.c_str()) : UPNP_E_FILE_NOT_FOUND;
        UpnpDevice_Handle h = -1;
        if (rc == UPNP_E_SUCCESS) rc = UpnpRegisterRootDevice(url.c_str(), &Impl::deviceCallback, this, &h);
        if (rc == UPNP_E_SUCCESS) {
            rc = UpnpSendAdvertisement(h, kAdvertisementSeconds);
            if (rc != UPNP_E_SUCCESS) UpnpUnRegisterRootDevice(h);
        }
        if (rc != UPNP_E_SUCCESS) {
            logLine(DLOG_PRIO_ERROR, "advertising %s failed: %d (%s)", url.c_str(), rc, UpnpGetErrorMessage(rc));
            removeWebRoot();
            return;
        }
        {
            std::lock_guard<std::mutex> g(lock);
            deviceHandle = h;
        }
        logLine(DLOG_PRIO_INFO, "advertising \"%s\" %s at %s", devices[0].friendlyName.c_str(), ownUdn.c_str(),
                url.c_str());
    }

    static std::string readFile(const std::string& path) {
        std::string text;
        if (FILE* f = fopen(path.c_str(), "rb")) {
            char buf[4096];
            size_t n;
            while ((n = fread(buf, 1, sizeof buf, f)) > 0 && text.size() < kMaxDescriptionBytes) text.append(buf, n);
            fclose(f);
        }
        return text;
    }
    static bool writeFile(const std::string& path, const std::string& text) {
        FILE* f = fopen(path.c_str(), "wb");
        if (f == nullptr) return false;
        bool ok = fwrite(text.data(), 1, text.size(), f) == text.size();
        return fclose(f) == 0 && ok;
    }
    void removeWebRoot() {
        if (webRoot.empty()) return;
        if (DIR* d = opendir(webRoot.c_str())) {
            while (dirent* e = readdir(d))
                if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) unlink((webRoot + "/" + e->d_name).c_str());
            closedir(d);
        }
        rmdir(webRoot.c_str());
        webRoot.clear();
    }

    bool isOwn(const char* udn) {
        std::lock_guard<std::mutex> g(lock);
        return ownUdn == udn;
    }

    // Says byebye for the camera's device.
    void withdraw() {
        UpnpDevice_Handle h;
        {
            std::lock_guard<std::mutex> g(lock);
            h = deviceHandle;
            deviceHandle = -1;
        }
        if (h != -1) UpnpUnRegisterRootDevice(h);
        removeWebRoot();
    }

    // The camera's device is a description for the network to see, not a
    // renderer: it takes no action.
    static int deviceCallback(Upnp_EventType type, const void* event, void*) {
        if (type == UPNP_CONTROL_ACTION_REQUEST && event != nullptr) {
            auto* request = static_cast<UpnpActionRequest*>(const_cast<void*>(event));
            UpnpActionRequest_set_ErrCode(request, 401);
            UpnpActionRequest_strcpy_ErrStr(request, "Invalid Action");
            UpnpActionRequest_set_ActionResult(request, nullptr);
        }
        return 0;
    }

    // --- Search and expiry ----------------------------------------------------
    void houseLoop() {
        pthread_setname_np(pthread_self(), "UpnpCPSearch");
        auto nextSearch = Clock::now();
        std::unique_lock<std::mutex> l(houseLock);
        while (!houseStopping) {
            if (Clock::now() >= nextSearch) {
                l.unlock();
                int rc = UpnpSearchAsync(handle, kSearchMx, kRendererType, this);
                if (rc != UPNP_E_SUCCESS) logLine(DLOG_PRIO_ERROR, "M-SEARCH failed: %d (%s)", rc, UpnpGetErrorMessage(rc));
                l.lock();
                nextSearch = Clock::now() + std::chrono::milliseconds(options.searchIntervalMs);
            }
            l.unlock();
            expire();
            renewSubscriptions();
            joinRetired();
            l.lock();
            houseChanged.wait_for(l, std::chrono::milliseconds(500), [&] { return houseStopping; });
        }
    }

    void expire() {
        std::vector<std::string> gone;
        {
            std::lock_guard<std::mutex> g(lock);
            auto now = Clock::now();
            for (auto& d : devices)
                if (d.second->expires < now) gone.push_back(d.first);
        }
        for (auto& udn : gone) {
            logLine(DLOG_PRIO_INFO, "advertisement of %s expired", udn.c_str());
            remove(udn);
        }
    }

    void joinRetired() {
        std::vector<std::shared_ptr<Device>> done;
        {
            std::lock_guard<std::mutex> g(lock);
            done.swap(retired);
        }
        // Jobs hold their device: end the threads before the last reference goes.
        for (auto& d : done) d->worker->join();
    }

    // --- Discovery ------------------------------------------------------------
    void seen(const std::string& udn, const std::string& location, int maxAge) {
        if (udn.empty() || location.empty()) return;
        std::lock_guard<std::mutex> g(lock);
        if (!started || udn == ownUdn) return;
        auto expires = Clock::now() + std::chrono::seconds(maxAge > 0 ? maxAge : 1800);
        auto it = devices.find(udn);
        if (it != devices.end()) {
            if (it->second->expires < expires) it->second->expires = expires;
            return;
        }
        auto d = std::make_shared<Device>();
        d->udn = udn;
        d->location = location;
        d->firstSeen = Clock::now();
        d->expires = expires;
        d->worker.reset(new Worker("UpnpCPDevice"));
        devices[udn] = d;
        std::weak_ptr<Device> weak = d;
        d->worker->post([this, weak](bool run) {
            auto dev = weak.lock();
            if (run && dev) fetchDescription(dev);
        });
    }

    void fetchDescription(const std::shared_ptr<Device>& d) {
        HttpResult r = httpRequest("GET", d->location, {}, "", options.descriptionTimeoutMs, d->worker->cancelFd());
        std::vector<DeviceInfo> all;
        const DeviceInfo* mine = nullptr;
        if (r.outcome == HttpResult::kOk && r.status == 200 && parseDeviceDescription(r.body, d->location, &all)) {
            for (const DeviceInfo& info : all)
                if (info.udn == d->udn) mine = &info;
        }
        if (r.outcome == HttpResult::kCancelled) return;
        if (mine == nullptr) {
            if (r.outcome != HttpResult::kOk || r.status != 200) {
                logLine(DLOG_PRIO_ERROR, "description of %s at %s: %s %d %s", d->udn.c_str(), d->location.c_str(),
                        outcomeName(r.outcome), r.status, r.error.c_str());
                remove(d->udn);  // the next advertisement tries again
                return;
            }
            std::lock_guard<std::mutex> g(lock);
            d->state = State::kOther;
            return;
        }
        bool renderer = mine->deviceType.find(":MediaRenderer:") != std::string::npos &&
                        mine->service(kAVTransport) != nullptr;
        RendererDetails details;
        HttpUrl url;
        if (parseHttpUrl(d->location, &url)) details.ip = url.host;
        details.friendlyName = mine->friendlyName;
        details.udn = mine->udn;
        details.manufacturer = mine->manufacturer;
        details.modelName = mine->modelName;
        details.modelNumber = mine->modelNumber;
        {
            std::lock_guard<std::mutex> g(lock);
            if (d->gone) return;
            d->description = *mine;
            d->details = details;
            d->state = renderer ? State::kRenderer : State::kOther;
            if (!renderer) return;
            d->announced = true;
            order.push_back(d->udn);
        }
        logLine(DLOG_PRIO_INFO, "renderer %s \"%s\" at %s", details.udn.c_str(), details.friendlyName.c_str(),
                details.ip.c_str());
        post([this, details] {
            if (listener.deviceInfo) listener.deviceInfo("DMR_ADDED", details);
        });
    }

    // Forgets a device; a renderer that was announced is reported removed.
    void remove(const std::string& udn) {
        std::shared_ptr<Device> d;
        {
            std::lock_guard<std::mutex> g(lock);
            auto it = devices.find(udn);
            if (it == devices.end()) return;
            d = it->second;
            devices.erase(it);
            d->gone = true;
            if (d->announced) {
                for (auto o = order.begin(); o != order.end(); ++o)
                    if (*o == udn) {
                        order.erase(o);
                        break;
                    }
            }
            if (!d->sid.empty()) sidToUdn.erase(d->sid);
            retired.push_back(d);
        }
        // Requests still queued are answered as failed from the worker's thread.
        d->worker->cancel();
        if (d->announced) {
            RendererDetails details = d->details;
            post([this, details] {
                if (listener.deviceInfo) listener.deviceInfo("DMR_REMOVED", details);
            });
        }
        houseChanged.notify_all();
    }

    // --- Actions --------------------------------------------------------------
    // Holds the first actions to a renderer that has only just appeared until
    // it has settled (see kRendererSettleMs). False when cut short by a stop
    // or the renderer leaving.
    bool waitUntilSettled(const Device& d) {
        auto ready = d.firstSeen + std::chrono::milliseconds(options.settleMs);
        for (;;) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(ready - Clock::now()).count();
            if (left <= 0) return true;
            pollfd p = {d.worker->cancelFd(), POLLIN, 0};
            int n = poll(&p, 1, static_cast<int>(left));
            if (n > 0) return false;
            if (n < 0 && errno != EINTR) return true;
        }
    }

    HttpResult postSoap(const Device& d, const std::string& controlUrl, const std::string& serviceType,
                    const std::string& soapAction, const std::string& body, int timeoutMs) {
        return httpRequest("POST", controlUrl,
                           {{"Content-Type", "text/xml; charset=\"utf-8\""},
                            {"SOAPACTION", "\"" + serviceType + "#" + soapAction + "\""},
                            {"User-Agent", "Linux/1.0 UPnP/1.0 camwifi/1.0"}},
                           body, timeoutMs, d.worker->cancelFd());
    }

    // The renderer's transport state as it reports it now; "" when it does
    // not answer or was cut short.
    std::string askTransportState(const Device& d, const ServiceInfo& avt, int timeoutMs) {
        HttpResult r = postSoap(d, avt.controlUrl, avt.serviceType, "GetTransportInfo",
                            soapEnvelope(avt.serviceType, "GetTransportInfo", {{"InstanceID", "0"}}), timeoutMs);
        SoapAnswer soap;
        if (r.outcome != HttpResult::kOk || r.status != 200 || !parseSoapAnswer(r.body, "GetTransportInfo", &soap) ||
            soap.fault)
            return "";
        const std::string* state = soap.argument("CurrentTransportState");
        return state ? *state : "";
    }

    // A new URI goes only to a renderer that says it is stopped. One that is
    // still playing or stopping when it arrives may drop it once its stop
    // lands: gmediarender ends a photo by itself moments after showing it and
    // clears whatever URI it holds by then, so a video sent right after a
    // photo would never play. A renderer that plays is stopped first; one
    // that is on its way (TRANSITIONING) is waited for. At most kStopWaitMs,
    // then the URI is sent whatever the renderer says.
    void waitUntilStopped(const Device& d, const ServiceInfo& avt) {
        auto deadline = Clock::now() + std::chrono::milliseconds(kStopWaitMs);
        auto left = [&] {
            return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count());
        };
        bool stopSent = false;
        std::string state = askTransportState(d, avt, std::min(left(), options.actionTimeoutMs));
        while (!state.empty() && state != "STOPPED" && state != "NO_MEDIA_PRESENT" && left() > 0) {
            if (!stopSent && state != "TRANSITIONING") {
                logLine(DLOG_PRIO_INFO, "%s is %s: stopping it before the new URI", d.udn.c_str(), state.c_str());
                postSoap(d, avt.controlUrl, avt.serviceType, "Stop",
                     soapEnvelope(avt.serviceType, "Stop", {{"InstanceID", "0"}}), std::max(left(), 1));
                stopSent = true;
            }
            pollfd p = {d.worker->cancelFd(), POLLIN, 0};
            if (poll(&p, 1, std::max(0, std::min(left(), kStopPollMs))) > 0) return;  // cut short
            if (left() <= 0) break;
            state = askTransportState(d, avt, left());
        }
        if (!state.empty() && state != "STOPPED" && state != "NO_MEDIA_PRESENT")
            logLine(DLOG_PRIO_ERROR, "%s still %s after %d ms: the new URI goes anyway", d.udn.c_str(), state.c_str(),
                    kStopWaitMs);
    }

    void runAction(const std::shared_ptr<Device>& d, const std::string& controlUrl, const std::string& serviceType,
                   const std::string& soapAction, const std::string& body, ActionAnswer answer) {
        HttpResult r;
        if (waitUntilSettled(*d)) {
            if (soapAction == "SetAVTransportURI") {
                ServiceInfo avt;
                {
                    std::lock_guard<std::mutex> g(lock);
                    if (const ServiceInfo* s = d->description.service(kAVTransport)) avt = *s;
                }
                if (!avt.controlUrl.empty()) waitUntilStopped(*d, avt);
            }
            r = postSoap(*d, controlUrl, serviceType, soapAction, body, options.actionTimeoutMs);
        } else {
            r.outcome = HttpResult::kCancelled;
            r.error = "cut short before it was sent";
        }
        if (r.outcome == HttpResult::kCancelled && !d->gone) return;  // stopped: nobody waits any more
        SoapAnswer soap;
        bool parsed = r.outcome == HttpResult::kOk && parseSoapAnswer(r.body, soapAction, &soap);
        if (parsed && !soap.fault && r.status == 200) {
            readOutArguments(soap, &answer);
        } else {
            answer.error = kActionFailed;
            if (parsed && soap.fault) {
                answer.upnpError = soap.upnpErrorCode;
                answer.why = "SOAP fault, HTTP " + std::to_string(r.status) + ", UPnP error " +
                             std::to_string(soap.upnpErrorCode) + " \"" + soap.errorDescription + "\"";
            } else if (r.outcome == HttpResult::kOk) {
                answer.why = "HTTP " + std::to_string(r.status) + " without a valid answer";
            } else if (r.outcome == HttpResult::kCancelled) {
                answer.why = "the renderer left";
            } else {
                answer.why = std::string(outcomeName(r.outcome)) + ": " + r.error;
            }
            logLine(DLOG_PRIO_ERROR, "%s to %s failed: %s", answer.action.c_str(), d->udn.c_str(), answer.why.c_str());
        }
        post([this, answer] {
            if (listener.commandResponse) listener.commandResponse(answer);
        });
    }

    // --- GENA -------------------------------------------------------------------
    // SUBSCRIBE (or, with a SID, its renewal) on the device's worker. On
    // success the SID is known and the renewal due at half the granted time.
    void subscribeNow(const std::shared_ptr<Device>& d, const std::string& url, const std::string& sid) {
        std::vector<std::pair<std::string, std::string>> headers;
        if (sid.empty()) {
            headers = {{"CALLBACK", "<" + receiver.callbackUrl() + ">"}, {"NT", "upnp:event"}};
        } else {
            headers = {{"SID", sid}};
        }
        headers.push_back({"TIMEOUT", "Second-" + std::to_string(options.subscriptionSeconds)});
        HttpResult r = httpRequest("SUBSCRIBE", url, headers, "", options.actionTimeoutMs, d->worker->cancelFd());
        if (r.outcome == HttpResult::kCancelled) return;
        const std::string* newSid = r.outcome == HttpResult::kOk ? findHeader(r.headers, "SID") : nullptr;
        const std::string* timeout = r.outcome == HttpResult::kOk ? findHeader(r.headers, "TIMEOUT") : nullptr;
        int seconds = timeout ? parseSubscriptionTimeout(*timeout) : -1;
        if (seconds < 0) seconds = options.subscriptionSeconds;  // none or malformed: what was asked for
        if (seconds == 0) seconds = 24 * 3600;                     // "infinite": renewed daily all the same
        std::vector<std::vector<std::pair<std::string, std::string>>> early;
        bool ok = r.status == 200 && newSid != nullptr && !newSid->empty();
        {
            std::lock_guard<std::mutex> g(lock);
            d->subscribing = false;
            if (!d->sid.empty()) sidToUdn.erase(d->sid);
            d->sid.clear();
            d->eventSubUrl = url;
            d->renewAt = Clock::now() + std::chrono::milliseconds(kResubscribeMs);  // after a failure
            if (ok && !d->gone) {
                d->sid = *newSid;
                d->renewAt = Clock::now() + std::chrono::seconds(std::max(1, seconds / 2));
                sidToUdn[d->sid] = d->udn;
                auto it = earlyEvents.find(d->sid);
                if (it != earlyEvents.end()) {
                    early = std::move(it->second);
                    earlyEvents.erase(it);
                }
            }
        }
        if (!ok) {
            // A new subscription follows after kResubscribeMs (a renewal may
            // be refused when the renderer restarted and forgot us).
            logLine(DLOG_PRIO_ERROR, "%s of %s failed: %s %d %s", sid.empty() ? "subscription" : "renewal",
                    url.c_str(), outcomeName(r.outcome), r.status, r.error.c_str());
            return;
        }
        if (sid.empty()) logLine(DLOG_PRIO_INFO, "subscribed to %s: %s", url.c_str(), newSid->c_str());
        for (auto& vars : early) deliverEvent(d->udn, std::move(vars));
    }

    // Renews the subscriptions that are due and subscribes again where a
    // renewal failed (search thread).
    void renewSubscriptions() {
        std::vector<std::tuple<std::shared_ptr<Device>, std::string, std::string>> due;
        {
            std::lock_guard<std::mutex> g(lock);
            auto now = Clock::now();
            for (auto& e : devices) {
                Device& d = *e.second;
                if (d.subscribing || d.eventSubUrl.empty() || d.renewAt > now) continue;
                d.subscribing = true;
                due.emplace_back(e.second, d.eventSubUrl, d.sid);
            }
        }
        for (auto& job : due) {
            std::shared_ptr<Device> d = std::get<0>(job);
            std::weak_ptr<Device> weak = d;
            std::string url = std::get<1>(job), sid = std::get<2>(job);
            if (!d->worker->post([this, weak, url, sid](bool run) {
                    auto dev = weak.lock();
                    if (run && dev) subscribeNow(dev, url, sid);
                })) {
                std::lock_guard<std::mutex> g(lock);
                d->subscribing = false;
            }
        }
    }

    // Best-effort UNSUBSCRIBE of every subscription, all of them within
    // kUnsubscribeMs: a renderer that does not hear it lets the
    // subscription expire.
    void unsubscribeAll(const std::map<std::string, std::shared_ptr<Device>>& all) {
        auto deadline = Clock::now() + std::chrono::milliseconds(kUnsubscribeMs);
        for (auto& e : all) {
            std::string url, sid;
            {
                std::lock_guard<std::mutex> g(lock);
                url = e.second->eventSubUrl;
                sid = e.second->sid;
            }
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
            if (sid.empty() || url.empty() || left <= 0) continue;
            httpRequest("UNSUBSCRIBE", url, {{"SID", sid}}, "", static_cast<int>(left));
        }
    }

    // A NOTIFY the receiver took; false for a SID that is not ours.
    bool eventReceived(const EventMessage& message) {
        std::vector<std::pair<std::string, std::string>> vars;
        if (!parsePropertySet(message.body, &vars)) return true;  // ours, but nothing to read
        std::string udn;
        {
            std::lock_guard<std::mutex> g(lock);
            auto it = sidToUdn.find(message.sid);
            if (it == sidToUdn.end()) {
                bool pending = false;
                for (auto& d : devices) pending = pending || d.second->subscribing;
                if (!pending) return false;
                // The first NOTIFY may overtake the answer to the SUBSCRIBE.
                auto& early = earlyEvents[message.sid];
                if (early.size() < kMaxEarlyEvents) early.push_back(std::move(vars));
                if (earlyEvents.size() > kMaxEarlyEvents) earlyEvents.erase(earlyEvents.begin());
                return true;
            }
            udn = it->second;
        }
        deliverEvent(udn, std::move(vars));
        return true;
    }

    void deliverEvent(const std::string& udn, std::vector<std::pair<std::string, std::string>> vars) {
        for (auto& v : vars) {
            if (v.first != "LastChange") continue;
            std::vector<std::pair<std::string, std::string>> inner;
            if (parseLastChange(v.second, &inner)) v.second = lastChangeText("urn:schemas-upnp-org:metadata-1-0/AVT/", inner);
        }
        StatusEvent event;
        event.udn = udn;
        event.serviceType = std::string(kAVTransport) + "1";
        event.variables = std::move(vars);
        post([this, event] {
            if (listener.deviceStatus) listener.deviceStatus(event);
        });
    }

    // --- libupnp's callback ---------------------------------------------------
    static int callback(Upnp_EventType type, const void* event, void* cookie) {
        auto* self = static_cast<Impl*>(cookie);
        switch (type) {
            case UPNP_DISCOVERY_SEARCH_RESULT:
            case UPNP_DISCOVERY_ADVERTISEMENT_ALIVE: {
                auto* d = static_cast<const UpnpDiscovery*>(event);
                if (UpnpDiscovery_get_ErrCode(d) != UPNP_E_SUCCESS) break;
                const char* udn = UpnpDiscovery_get_DeviceID_cstr(d);
                const char* location = UpnpDiscovery_get_Location_cstr(d);
                self->seen(udn ? udn : "", location ? location : "", UpnpDiscovery_get_Expires(d));
                break;
            }
            case UPNP_DISCOVERY_ADVERTISEMENT_BYEBYE: {
                auto* d = static_cast<const UpnpDiscovery*>(event);
                const char* udn = UpnpDiscovery_get_DeviceID_cstr(d);
                if (udn && *udn && !self->isOwn(udn)) {
                    logLine(DLOG_PRIO_INFO, "byebye from %s", udn);
                    self->remove(udn);
                }
                break;
            }
            default:
                break;
        }
        return 0;
    }
};

UpnpControlPoint::UpnpControlPoint() : m_impl(new Impl) {}

UpnpControlPoint::~UpnpControlPoint() { terminate(); }

int UpnpControlPoint::init(const std::string& iface, Listener listener, Options options) {
    Impl& m = *m_impl;
    std::lock_guard<std::mutex> g(m.lock);
    if (m.registered) return 0;
    bool exists = false;
    std::string ip = iface.empty() ? "" : ipv4Of(iface, &exists);
    if (iface.empty() || !exists) {
        m.fail("no network interface named \"" + iface + "\"");
        return UPNP_E_INVALID_INTERFACE;
    }
    if (ip.empty()) {
        m.fail("network interface \"" + iface + "\" has no IPv4 address");
        return UPNP_E_INVALID_INTERFACE;
    }
    bool expected = false;
    if (!gLibraryInUse.compare_exchange_strong(expected, true)) {
        m.fail("libupnp is already in use by another control point of this process");
        return UPNP_E_INIT;
    }
    int rc = UpnpInit2(iface.c_str(), 0);
    if (rc != UPNP_E_SUCCESS) {
        gLibraryInUse = false;
        m.fail("UpnpInit2(" + iface + ") failed: " + std::to_string(rc) + " (" + UpnpGetErrorMessage(rc) + ")");
        return rc;
    }
    rc = UpnpRegisterClient(&Impl::callback, m_impl.get(), &m.handle);
    if (rc != UPNP_E_SUCCESS) {
        UpnpFinish();
        gLibraryInUse = false;
        m.fail("UpnpRegisterClient failed: " + std::to_string(rc) + " (" + UpnpGetErrorMessage(rc) + ")");
        return rc;
    }
    m.libraryOwned = true;
    m.registered = true;
    m.iface = iface;
    m.ip = ip;
    m.listener = std::move(listener);
    m.options = options;
    m.whyText.clear();
    logLine(DLOG_PRIO_INFO, "control point up on %s (%s), libupnp port %u", iface.c_str(), ip.c_str(),
            UpnpGetServerPort());
    return 0;
}

int UpnpControlPoint::start() {
    Impl& m = *m_impl;
    {
        std::lock_guard<std::mutex> g(m.lock);
        if (!m.registered) {
            m.fail("start without init");
            return UPNP_E_FINISH;
        }
        if (m.started) return 0;
        m.started = true;
    }
    {
        std::lock_guard<std::mutex> g(m.eventLock);
        m.eventsStopping = false;
        m.events.clear();
    }
    {
        std::lock_guard<std::mutex> g(m.houseLock);
        m.houseStopping = false;
    }
    int rc = m.receiver.start(m.ip, [&m](const EventMessage& message) { return m.eventReceived(message); });
    if (rc != 0) {
        std::lock_guard<std::mutex> g(m.lock);
        m.started = false;
        m.fail(std::string("no port for renderer events: ") + strerror(rc));
        return rc;
    }
    m.eventThread = std::thread([&m] { m.eventLoop(); });
    m.houseThread = std::thread([&m] { m.houseLoop(); });
    if (!m.options.descriptionDir.empty()) m.advertise();
    return 0;
}

int UpnpControlPoint::stop() {
    Impl& m = *m_impl;
    {
        std::lock_guard<std::mutex> g(m.lock);
        if (!m.started) return 0;
        m.started = false;  // no new devices from here on
    }
    m.withdraw();
    {
        std::lock_guard<std::mutex> g(m.houseLock);
        m.houseStopping = true;
    }
    m.houseChanged.notify_all();
    if (m.houseThread.joinable()) m.houseThread.join();
    std::map<std::string, std::shared_ptr<Impl::Device>> devices;
    {
        std::lock_guard<std::mutex> g(m.lock);
        devices.swap(m.devices);
        m.order.clear();
        m.sidToUdn.clear();
        m.earlyEvents.clear();
    }
    {
        std::lock_guard<std::mutex> g(m.eventLock);
        m.eventsStopping = true;
        m.events.clear();
    }
    m.eventChanged.notify_all();
    m.receiver.stop();
    m.unsubscribeAll(devices);
    for (auto& d : devices) d.second->worker->cancel();
    for (auto& d : devices) d.second->worker->join();
    m.joinRetired();
    if (m.eventThread.joinable()) {
        if (m.eventThread.get_id() == std::this_thread::get_id()) m.eventThread.detach();
        else m.eventThread.join();
    }
    return 0;
}

void UpnpControlPoint::terminate() {
    stop();
    Impl& m = *m_impl;
    // libupnp's own threads may be in our callback waiting for the lock
    // (an advertisement arriving) while it shuts down and waits for them:
    // the lock is not held across its calls. terminateLock keeps two
    // terminates apart.
    std::lock_guard<std::mutex> t(m.terminateLock);
    bool registered, owned;
    UpnpClient_Handle handle;
    {
        std::lock_guard<std::mutex> g(m.lock);
        registered = m.registered;
        owned = m.libraryOwned;
        handle = m.handle;
    }
    if (registered) UpnpUnRegisterClient(handle);
    if (owned) UpnpFinish();
    std::lock_guard<std::mutex> g(m.lock);
    m.registered = false;
    m.handle = -1;
    if (owned) {
        m.libraryOwned = false;
        gLibraryInUse = false;
        logLine(DLOG_PRIO_INFO, "control point down");
    }
}

bool UpnpControlPoint::initialised() const {
    std::lock_guard<std::mutex> g(m_impl->lock);
    return m_impl->registered;
}

std::string UpnpControlPoint::why() const {
    std::lock_guard<std::mutex> g(m_impl->lock);
    return m_impl->whyText;
}

std::string UpnpControlPoint::address() const {
    std::lock_guard<std::mutex> g(m_impl->lock);
    return m_impl->ip;
}

std::vector<RendererDetails> UpnpControlPoint::renderers() const {
    std::lock_guard<std::mutex> g(m_impl->lock);
    std::vector<RendererDetails> out;
    for (const std::string& udn : m_impl->order) {
        auto it = m_impl->devices.find(udn);
        if (it != m_impl->devices.end()) out.push_back(it->second->details);
    }
    return out;
}

int UpnpControlPoint::details(const std::string& udn, RendererDetails* out) const {
    std::lock_guard<std::mutex> g(m_impl->lock);
    auto it = m_impl->devices.find(udn);
    if (it == m_impl->devices.end() || it->second->state != Impl::State::kRenderer || out == nullptr) return 1;
    *out = it->second->details;
    return 0;
}

int UpnpControlPoint::subscribe(const std::string& udn) {
    Impl& m = *m_impl;
    std::string url;
    std::shared_ptr<Impl::Device> d;
    {
        std::lock_guard<std::mutex> g(m.lock);
        auto it = m.devices.find(udn);
        if (!m.started || it == m.devices.end() || it->second->state != Impl::State::kRenderer) return 1;
        d = it->second;
        if (!d->sid.empty() || d->subscribing) return 0;
        const ServiceInfo* s = d->description.service(kAVTransport);
        if (s == nullptr || s->eventSubUrl.empty()) return 0;  // a renderer without events is polled
        url = s->eventSubUrl;
        d->subscribing = true;
    }
    std::weak_ptr<Impl::Device> weak = d;
    Impl* impl = &m;
    if (!d->worker->post([impl, weak, url](bool run) {
            auto dev = weak.lock();
            if (run && dev) impl->subscribeNow(dev, url, "");
        })) {
        std::lock_guard<std::mutex> g(m.lock);
        d->subscribing = false;
        return 1;
    }
    return 0;
}

int UpnpControlPoint::sendAction(const std::string& udn, const ActionRequest& request,
                                 const std::optional<std::string>& context) {
    Impl& m = *m_impl;
    const char* prefix = nullptr;
    std::string soapAction;
    std::vector<std::pair<std::string, std::string>> args;
    if (!soapFor(request, &prefix, &soapAction, &args)) {
        logLine(DLOG_PRIO_ERROR, "unknown or incomplete action \"%s\"", request.action.c_str());
        return 1;
    }
    std::lock_guard<std::mutex> g(m.lock);
    auto it = m.devices.find(udn);
    if (!m.started || it == m.devices.end() || it->second->state != Impl::State::kRenderer) {
        logLine(DLOG_PRIO_ERROR, "%s: no renderer %s", request.action.c_str(), udn.c_str());
        return 1;
    }
    std::shared_ptr<Impl::Device> d = it->second;
    const ServiceInfo* service = d->description.service(prefix);
    if (service == nullptr) {
        logLine(DLOG_PRIO_ERROR, "%s: renderer %s has no %s service", request.action.c_str(), udn.c_str(), prefix);
        return 1;
    }
    ActionAnswer answer;
    answer.udn = udn;
    answer.action = request.action;
    answer.context = context;
    std::string controlUrl = service->controlUrl, serviceType = service->serviceType;
    std::string body = soapEnvelope(serviceType, soapAction, args);
    Impl* impl = &m;
    bool queued = d->worker->post([impl, d, controlUrl, serviceType, soapAction, body, answer](bool run) mutable {
        if (run) {
            impl->runAction(d, controlUrl, serviceType, soapAction, body, answer);
        } else if (d->gone) {
            // The renderer left before its turn: the sender still gets an answer.
            answer.error = kActionFailed;
            answer.why = "the renderer left";
            impl->post([impl, answer] {
                if (impl->listener.commandResponse) impl->listener.commandResponse(answer);
            });
        }
    });
    return queued ? 0 : 1;
}

}  // namespace upnp
}  // namespace camwifi
