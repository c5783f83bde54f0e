#include "support/tv_renderer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <vector>

#include "support/tcp_peer.h"
#include "support/netns.h"

namespace testsupport {

namespace {

// The text between <tag> and </tag> (first one at or after from), "" when absent.
std::string element(const std::string& xml, const std::string& tag, size_t from = 0, size_t* end = nullptr) {
    size_t a = xml.find("<" + tag + ">", from);
    if (a == std::string::npos) return "";
    a += tag.size() + 2;
    size_t b = xml.find("</" + tag + ">", a);
    if (b == std::string::npos) return "";
    if (end) *end = b;
    return xml.substr(a, b - a);
}

struct Url {
    std::string host, path;
    uint16_t port = 80;
};

bool parseUrl(const std::string& text, Url* out) {
    const std::string scheme = "http://";
    if (text.compare(0, scheme.size(), scheme) != 0) return false;
    size_t hostStart = scheme.size();
    size_t slash = text.find('/', hostStart);
    std::string hostPort = text.substr(hostStart, slash == std::string::npos ? std::string::npos : slash - hostStart);
    out->path = slash == std::string::npos ? "/" : text.substr(slash);
    size_t colon = hostPort.find(':');
    out->host = hostPort.substr(0, colon);
    if (colon != std::string::npos) out->port = static_cast<uint16_t>(atoi(hostPort.c_str() + colon + 1));
    return !out->host.empty();
}

// One HTTP/1.0 exchange; the body of a 2xx/5xx answer ("" when none came).
std::string httpExchange(const std::string& url, const std::string& method, const std::string& headers,
                         const std::string& body) {
    Url u;
    if (!parseUrl(url, &u)) return "";
    int fd = connectFrom("", u.host, u.port);
    if (fd < 0) return "";
    std::string request = method + " " + u.path + " HTTP/1.0\r\nHost: " + u.host + ":" + std::to_string(u.port) +
                          "\r\n" + headers + "Content-Length: " + std::to_string(body.size()) +
                          "\r\nConnection: close\r\n\r\n" + body;
    std::string answer;
    if (sendAll(fd, request)) answer = recvAll(fd, 5000);
    close(fd);
    size_t p = answer.find("\r\n\r\n");
    return p == std::string::npos ? "" : answer.substr(p + 4);
}

// A description's URL made absolute against the description's own location.
std::string absolute(const std::string& location, const std::string& ref) {
    if (ref.compare(0, 7, "http://") == 0) return ref;
    Url u;
    if (!parseUrl(location, &u)) return "";
    std::string base = "http://" + u.host + ":" + std::to_string(u.port);
    return base + (ref.empty() || ref[0] != '/' ? "/" : "") + ref;
}

// Seconds of an H:MM:SS[.fff] time; -1 when it is not one.
int seconds(const std::string& t) {
    int h = 0, m = 0, s = 0;
    if (sscanf(t.c_str(), "%d:%d:%d", &h, &m, &s) != 3) return -1;
    return h * 3600 + m * 60 + s;
}

}  // namespace

const char* tvKindName(TvKind kind) { return kind == TvKind::kRygel ? "rygel" : "gmediarender"; }

std::string tvUnavailableReason(TvKind kind) {
    std::string why = netnsUnavailableReason();
    if (!why.empty()) return why;
    const char* program = tvKindName(kind);
    if (!haveCommand(program))
        return std::string(program) + " is not installed (scripts/setup.sh --upnp installs it)";
    if (!haveCommand("gst-launch-1.0")) return "gst-launch-1.0 is not installed (scripts/setup.sh --upnp installs it)";
    return "";
}

TvRenderer::TvRenderer(TvKind kind, const NetNamespace& ns, const std::string& iface, const std::string& name)
    : m_kind(kind), m_name(name) {
    if (kind == TvKind::kGmediarender) {
        m_process.reset(new NsProcess(ns, {"gmediarender", "-I", iface, "-p", "49494", "-f", name, "--logfile", "stdout",
                                           "--gstout-audiopipe", "fakesink sync=true", "--gstout-videopipe",
                                           "fakesink sync=true"}));
        return;
    }
    // Rygel headless: no D-Bus session, its configuration in a scratch home,
    // only the playbin renderer. fakevideosink / fakeaudiosink keep real
    // time (a plain fakesink ends a video at once).
    const std::string config = m_home.path() + "/rygel.conf";
    std::ofstream(config) << "[general]\nipv6=false\ninterface=" << iface
                          << "\nupnp-enabled=true\nenable-transcoding=false\n"
                             "[Playbin]\nenabled=true\ntitle="
                          << name
                          << "\naudio-sink=fakeaudiosink\nvideo-sink=fakevideosink\n"
                             "[MediaExport]\nenabled=false\n[External]\nenabled=false\n[MPRIS]\nenabled=false\n"
                             "[Tracker]\nenabled=false\n[Tracker3]\nenabled=false\n[LMSPlugin]\nenabled=false\n"
                             "[GstLaunch]\nenabled=false\n[Ruih]\nenabled=false\n";
    m_process.reset(new NsProcess(ns, {"env", "HOME=" + m_home.path(), "XDG_CONFIG_HOME=" + m_home.path(),
                                       "XDG_CACHE_HOME=" + m_home.path(), "XDG_DATA_HOME=" + m_home.path(),
                                       "rygel", "-c", config}));
}

TvRenderer::~TvRenderer() = default;

bool TvRenderer::alive() { return m_process && m_process->alive(); }

void TvRenderer::end() {
    if (m_process) m_process->end();
}

void TvRenderer::freeze() {
    if (m_process) m_process->signal(SIGSTOP);
}

void TvRenderer::thaw() {
    if (m_process) m_process->signal(SIGCONT);
}

bool searchDevice(const std::string& friendlyName, int timeoutMs, FoundDevice* out) {
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(1900);
    to.sin_addr.s_addr = inet_addr("239.255.255.250");
    const std::string search =
        "M-SEARCH * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nMAN: \"ssdp:discover\"\r\nMX: 1\r\n"
        "ST: urn:schemas-upnp-org:device:MediaRenderer:1\r\n\r\n";
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    std::vector<std::string> tried;
    bool found = false;
    // Bounded by the deadline: one search a second, answers read in between.
    while (!found && std::chrono::steady_clock::now() < deadline) {
        sendto(fd, search.data(), search.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
        auto roundEnd = std::chrono::steady_clock::now() + std::chrono::seconds(1);
        while (!found && std::chrono::steady_clock::now() < roundEnd) {
            pollfd p = {fd, POLLIN, 0};
            if (poll(&p, 1, 200) <= 0) continue;
            char buf[2048];
            ssize_t n = recv(fd, buf, sizeof buf - 1, 0);
            if (n <= 0) continue;
            std::string answer(buf, static_cast<size_t>(n)), location;
            for (size_t at = 0; at < answer.size();) {
                size_t eol = answer.find("\r\n", at);
                if (eol == std::string::npos) eol = answer.size();
                std::string line = answer.substr(at, eol - at);
                if (line.size() > 9 && strncasecmp(line.c_str(), "location:", 9) == 0) {
                    location = line.substr(9);
                    while (!location.empty() && location[0] == ' ') location.erase(0, 1);
                }
                at = eol + 2;
            }
            bool seenBefore = false;
            for (auto& t : tried) seenBefore = seenBefore || t == location;
            if (location.empty() || seenBefore) continue;
            tried.push_back(location);
            std::string description = httpGet(location);
            if (element(description, "friendlyName") != friendlyName) continue;  // another device
            out->location = location;
            out->description = description;
            out->udn = element(description, "UDN");
            found = !out->udn.empty();
        }
    }
    close(fd);
    return found;
}

std::string httpGet(const std::string& url) { return httpExchange(url, "GET", "", ""); }

std::string absoluteUrl(const std::string& location, const std::string& ref) { return absolute(location, ref); }

std::string xmlElement(const std::string& xml, const std::string& tag) { return element(xml, tag); }

bool TvRenderer::locate(int timeoutMs) {
    FoundDevice device;
    if (!searchDevice(m_name, timeoutMs, &device)) return false;
    m_udn = device.udn;
    m_modelName = element(device.description, "modelName");
    // Each service's type and control URL.
    size_t at = 0, end = 0;
    for (;;) {
        std::string service = element(device.description, "service", at, &end);
        if (service.empty()) break;
        at = end;
        std::string type = element(service, "serviceType");
        std::string control = absolute(device.location, element(service, "controlURL"));
        if (type.find(":service:AVTransport:") != std::string::npos) m_avtControl = control, m_avtType = type;
        if (type.find(":service:RenderingControl:") != std::string::npos) m_rcControl = control, m_rcType = type;
    }
    return !m_avtControl.empty();
}

std::string TvRenderer::soap(const std::string& controlUrl, const std::string& serviceType, const std::string& action,
                             const std::string& arguments) {
    if (controlUrl.empty()) return "";
    std::string body = "<?xml version=\"1.0\"?><s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\" "
                       "s:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\"><s:Body><u:" + action +
                       " xmlns:u=\"" + serviceType + "\">" + arguments + "</u:" + action + "></s:Body></s:Envelope>";
    return httpExchange(controlUrl, "POST",
                        "Content-Type: text/xml; charset=\"utf-8\"\r\nSOAPACTION: \"" + serviceType + "#" + action +
                            "\"\r\n",
                        body);
}

std::string TvRenderer::transportState() {
    return element(soap(m_avtControl, m_avtType, "GetTransportInfo", "<InstanceID>0</InstanceID>"),
                   "CurrentTransportState");
}

std::string TvRenderer::currentUri() {
    std::string uri = element(soap(m_avtControl, m_avtType, "GetMediaInfo", "<InstanceID>0</InstanceID>"), "CurrentURI");
    // XML text: the one entity a URI of ours may carry.
    for (size_t p; (p = uri.find("&amp;")) != std::string::npos;) uri.replace(p, 5, "&");
    return uri;
}

int TvRenderer::relTimeSeconds() {
    return seconds(element(soap(m_avtControl, m_avtType, "GetPositionInfo", "<InstanceID>0</InstanceID>"), "RelTime"));
}

int TvRenderer::volume() {
    std::string v = element(soap(m_rcControl, m_rcType, "GetVolume", "<InstanceID>0</InstanceID><Channel>Master</Channel>"),
                            "CurrentVolume");
    return v.empty() ? -1 : atoi(v.c_str());
}

SilentRenderer::SilentRenderer(const NetNamespace& ns, const std::string& address, uint16_t port,
                               const std::string& udn, const std::string& name)
    : m_location("http://" + address + ":" + std::to_string(port) + "/desc.xml"), m_udn(udn) {
    m_description =
        "<?xml version=\"1.0\"?><root xmlns=\"urn:schemas-upnp-org:device-1-0\"><device>"
        "<deviceType>urn:schemas-upnp-org:device:MediaRenderer:1</deviceType><friendlyName>" + name +
        "</friendlyName><UDN>" + udn + "</UDN><serviceList><service>"
        "<serviceType>urn:schemas-upnp-org:service:AVTransport:1</serviceType><controlURL>/ctl</controlURL>"
        "</service><service><serviceType>urn:schemas-upnp-org:service:RenderingControl:1</serviceType>"
        "<controlURL>/rc</controlURL></service></serviceList></device></root>";
    EnterNetNamespace in(ns);
    if (!in.ok()) return;
    m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    a.sin_addr.s_addr = inet_addr(address.c_str());
    if (m_listener >= 0 &&
        (bind(m_listener, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || listen(m_listener, 8) != 0)) {
        close(m_listener);
        m_listener = -1;
    }
    m_ssdp = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (m_listener >= 0) m_thread = std::thread([this] { serve(); });
}

SilentRenderer::~SilentRenderer() {
    m_done = true;
    if (m_thread.joinable()) m_thread.join();
    if (m_listener >= 0) close(m_listener);
    if (m_ssdp >= 0) close(m_ssdp);
}

void SilentRenderer::announce() {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(1900);
    to.sin_addr.s_addr = inet_addr("239.255.255.250");
    std::string alive = "NOTIFY * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nCACHE-CONTROL: max-age=1800\r\n"
                        "LOCATION: " + m_location + "\r\nNT: " + m_udn +
                        "\r\nNTS: ssdp:alive\r\nSERVER: Linux/1.0 UPnP/1.0 silent/1.0\r\nUSN: " + m_udn + "\r\n\r\n";
    sendto(m_ssdp, alive.data(), alive.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
}

void SilentRenderer::serve() {
    std::vector<int> held;
    // Bounded: ends when the owner says so, polling every 100 ms.
    while (!m_done) {
        pollfd p = {m_listener, POLLIN, 0};
        if (poll(&p, 1, 100) <= 0) continue;
        int fd = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) continue;
        std::string request = recvUntil(fd, "\r\n\r\n", 2000);
        if (request.compare(0, 4, "GET ") == 0) {
            sendAll(fd, "HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\nContent-Length: " +
                            std::to_string(m_description.size()) + "\r\nConnection: close\r\n\r\n" + m_description);
            close(fd);
        } else {
            held.push_back(fd);  // accepted, never answered
            ++m_held;
        }
    }
    for (int fd : held) close(fd);
}

}  // namespace testsupport
