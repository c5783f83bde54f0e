// Photo latency on a real TV: how long from the UI's DlnaMrcpShowFile() until
// the renderer has the whole JPEG, that is until the camera's streaming
// server has written the file's last byte to it. The library (on the real
// DLNA stack, CAMWIFI_DLNA_STACK=upnp) is measured side by side with a
// reference control point written here: a bare SOAP client that sends Stop,
// SetAVTransportURI and Play one after the other, each as soon as the
// previous one has answered, to the same renderer for the same files, served
// by the same streaming server. The two take turns photo by photo (and the
// one that goes first alternates), so whatever else the machine does hits
// both alike. Prints median and p95 for each and the ratio library /
// reference.
//
// The renderer is gmediarender in a network namespace of its own; the camera
// (this process) lives in a second one, joined to the first by a veth pair
// (198.51.100.1 the TV, .2 the camera). Needs root.
//
// "The whole JPEG" is read off the streaming server's count of body bytes
// written: the photo is in when the count has grown by the file's size since
// the command. gmediarender sometimes fetches a photo twice (a second whole
// GET, or a first one it drops after 128 KB and then a whole one); in the
// second case the count reaches the size up to those 128 KB early, well
// under a millisecond over the veth, and alike for both sides. The figure
// "fetched N x the files' bytes" shows how often that happened.
//
//   camwifi_dlna_photo_bench [--photos N] [--files N] [--size WxH] [--log FILE] [--verbose]
#include <arpa/inet.h>
#include <dlfcn.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdarg>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "camwifi/camwifi.h"
#include "host_upnp_stack.h"
#include "support/netns.h"
#include "zeb_stack.h"

using testsupport::EnterNetNamespace;
using testsupport::NetNamespace;
using testsupport::NsProcess;

namespace {

using Clock = std::chrono::steady_clock;

const char* const kTvUdn = "uuid:5eb1c0de-0000-4000-8000-0000000000b1";
const char* const kTvAddress = "198.51.100.1";
const int kTvPort = 49494;
// gmediarender's AVTransport control URL (fixed in gmediarender itself).
const char* const kAvTransportControl = "/upnp/control/rendertransport1";
const char* const kAvTransport = "urn:schemas-upnp-org:service:AVTransport:1";
// How long one photo may take before it counts as lost.
const int kPhotoTimeoutMs = 10000;

bool haveCommand(const std::string& name) {
    return std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) == 0;
}

// ---- UI events --------------------------------------------------------------------

std::atomic<int> gRendererAdded{0};
std::atomic<int> gShowReadyEvents{0};
std::atomic<int> gPlayFailed{0};
// Ctrl-C or a TERM ends the run after the photo under way, so the
// namespaces, gmediarender and the card tree are still taken down.
volatile sig_atomic_t gInterrupted = 0;
void onSignal(int) { gInterrupted = 1; }

void uiCallback(ZEB_CALLBACK_EVENT event, void*, intptr_t) {
    if (event == EVT_MRCP_REFRESH_DMR_LIST) ++gRendererAdded;
    if (event == EVT_MRCP_SHOW_READY) ++gShowReadyEvents;
    if (event == EVT_MRCP_PLAY_FAILED) ++gPlayFailed;
}

// ---- Where the library's time goes ------------------------------------------------
// The library says in its log when each answer of the renderer came back;
// the bench sees those lines through its own __dlog_print (below), which
// notes the time of the first of each kind after a photo was started. The
// reference notes the same moments itself.
enum Step { kStopAnswered, kSetUriSent, kSetUriAnswered, kPlayAnswered, kSteps };
const char* const kStepLog[kSteps] = {"STOP response is received", "Sending Set AV Transport URI action",
                                      "SetAVTransportURI response is received", "PLAY response is received"};
const char* const kStepName[kSteps] = {"Stop answered", "SetAVTransportURI sent", "answered", "Play answered"};
std::array<std::atomic<int64_t>, kSteps> gStepAt{};  // steady clock, ns; 0 = not yet

int64_t nowNs() { return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count(); }

void noteLogLine(const char* text) {
    for (int i = 0; i < kSteps; ++i) {
        int64_t none = 0;
        if (strstr(text, kStepLog[i]) != nullptr) gStepAt[i].compare_exchange_strong(none, nowNs());
    }
}

// ---- The reference control point: SOAP over a plain socket -------------------------

// One HTTP request to the TV, answered in full (the renderer closes after
// each answer); the status code, or -1 when it could not be had.
int httpPost(const std::string& path, const std::string& soapAction, const std::string& body,
             std::string* answer) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(kTvPort);
    inet_pton(AF_INET, kTvAddress, &a.sin_addr);
    timeval tv{5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
    if (connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
        close(fd);
        return -1;
    }
    std::string req = "POST " + path + " HTTP/1.1\r\nHost: " + kTvAddress + ":" + std::to_string(kTvPort) +
                      "\r\nContent-Type: text/xml; charset=\"utf-8\"\r\nSOAPACTION: \"" + soapAction +
                      "\"\r\nContent-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
    size_t off = 0;
    while (off < req.size()) {
        ssize_t n = send(fd, req.data() + off, req.size() - off, MSG_NOSIGNAL);
        if (n <= 0) {
            close(fd);
            return -1;
        }
        off += static_cast<size_t>(n);
    }
    std::string in;
    char buf[4096];
    // Until the connection closes or the body announced by Content-Length is in.
    for (int reads = 0; reads < 10000; ++reads) {
        ssize_t n = recv(fd, buf, sizeof buf, 0);
        if (n <= 0) break;
        in.append(buf, static_cast<size_t>(n));
        size_t end = in.find("\r\n\r\n");
        if (end == std::string::npos) continue;
        std::string head = in.substr(0, end);
        for (char& c : head) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
        size_t cl = head.find("content-length:");
        if (cl != std::string::npos && in.size() >= end + 4 + strtoul(head.c_str() + cl + 15, nullptr, 10)) break;
    }
    close(fd);
    if (in.compare(0, 5, "HTTP/") != 0 || in.size() < 12) return -1;
    if (answer) *answer = in;
    return atoi(in.c_str() + 9);
}

// The reference shares no code with the library's stack on purpose (its
// XML escaping included): it is the yardstick.
std::string xmlEscape(const std::string& s) {
    std::string out;
    for (char c : s) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            default: out += c;
        }
    }
    return out;
}

int avTransport(const std::string& action, const std::string& args, std::string* answer = nullptr) {
    std::string body =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n"
        "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\" "
        "s:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\"><s:Body>"
        "<u:" + action + " xmlns:u=\"" + kAvTransport + "\"><InstanceID>0</InstanceID>" + args +
        "</u:" + action + "></s:Body></s:Envelope>";
    return httpPost(kAvTransportControl, std::string(kAvTransport) + "#" + action, body, answer);
}

// Stop, SetAVTransportURI, Play: each sent when the one before has answered
// 200. False when one of them did not (*why says which, with its status and
// UPnP error code).
bool referenceShow(const std::string& uri, const std::string& title, std::string* why) {
    for (auto& at : gStepAt) at = 0;
    auto failed = [&](const char* action, int status, const std::string& answer) {
        std::string code;
        size_t a = answer.find("<errorCode>"), b = answer.find("</errorCode>");
        if (a != std::string::npos && b != std::string::npos && b > a) code = answer.substr(a + 11, b - a - 11);
        *why = std::string(action) + " answered " + std::to_string(status) + (code.empty() ? "" : " (UPnP error " + code + ")");
        return false;
    };
    std::string answer;
    int status = avTransport("Stop", "", &answer);
    if (status != 200) return failed("Stop", status, answer);
    gStepAt[kStopAnswered] = nowNs();
    std::string didl =
        "<DIDL-Lite xmlns=\"urn:schemas-upnp-org:metadata-1-0/DIDL-Lite/\" "
        "xmlns:dc=\"http://purl.org/dc/elements/1.1/\" xmlns:upnp=\"urn:schemas-upnp-org:metadata-1-0/upnp/\">"
        "<item id=\"1\" parentID=\"0\" restricted=\"1\"><dc:title>" + xmlEscape(title) +
        "</dc:title><upnp:class>object.item.imageItem.photo</upnp:class>"
        "<res protocolInfo=\"http-get:*:image/jpeg:DLNA.ORG_OP=01\">" + xmlEscape(uri) +
        "</res></item></DIDL-Lite>";
    gStepAt[kSetUriSent] = nowNs();
    status = avTransport("SetAVTransportURI", "<CurrentURI>" + xmlEscape(uri) + "</CurrentURI><CurrentURIMetaData>" +
                                                  xmlEscape(didl) + "</CurrentURIMetaData>", &answer);
    if (status != 200) return failed("SetAVTransportURI", status, answer);
    gStepAt[kSetUriAnswered] = nowNs();
    status = avTransport("Play", "<Speed>1</Speed>", &answer);
    if (status != 200) return failed("Play", status, answer);
    gStepAt[kPlayAnswered] = nowNs();
    return true;
}

// The renderer's transport state as GetTransportInfo tells it ("" when it
// did not answer).
std::string transportState() {
    std::string answer;
    if (avTransport("GetTransportInfo", "", &answer) != 200) return "";
    size_t a = answer.find("<CurrentTransportState>");
    size_t b = answer.find("</CurrentTransportState>");
    if (a == std::string::npos || b == std::string::npos) return "";
    a += strlen("<CurrentTransportState>");
    return answer.substr(a, b - a);
}

// ---- Set-up -------------------------------------------------------------------------

struct TempTree {
    std::string root;
    TempTree() {
        char tmpl[] = "/tmp/camwifi-photo-bench-XXXXXX";
        if (mkdtemp(tmpl) != nullptr) root = tmpl;
    }
    ~TempTree() {
        if (!root.empty()) (void)!std::system(("rm -rf '" + root + "'").c_str());
    }
};

bool mkdirs(const std::string& path) {
    return std::system(("mkdir -p '" + path + "'").c_str()) == 0;
}

double percentile(std::vector<double> v, double p) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    size_t rank = static_cast<size_t>(p * static_cast<double>(v.size()) + 0.999999);
    if (rank < 1) rank = 1;
    return v[std::min(rank, v.size()) - 1];
}

void usage() {
    fprintf(stderr,
            "usage: camwifi_dlna_photo_bench [--photos N] [--files N] [--size WxH] [--log FILE] [--verbose]\n"
            "  --photos N   photos shown by each control point (default 50)\n"
            "  --files N    distinct JPEGs they cycle through (default 5)\n"
            "  --size WxH   size of the JPEGs (default 3000x2000)\n"
            "  --log FILE   the library's own log (default: inside the temporary card tree)\n"
            "  --verbose    one line per photo\n");
}

struct Side {
    const char* name;
    std::vector<double> ms;
    std::array<std::vector<double>, kSteps> stepMs;  // from the command to each step
    int failed = 0;
    uint64_t fetched = 0, expected = 0;  // bytes the renderer took, bytes of the files shown
};

}  // namespace

// The platform log, as the library and the stand-ins call it: each line is
// noted (noteLogLine) and handed on whole to the host's own __dlog_print. It
// costs one more formatting of each line, a microsecond or so against the
// milliseconds measured.
extern "C" int __dlog_print(int logId, int prio, const char* tag, const char* fmt, ...) {
    using Print = int (*)(int, int, const char*, const char*, ...);
    static const Print next = reinterpret_cast<Print>(dlsym(RTLD_NEXT, "__dlog_print"));
    char small[1024];
    va_list ap, again;
    va_start(ap, fmt);
    va_copy(again, ap);
    const int n = vsnprintf(small, sizeof small, fmt, ap);
    va_end(ap);
    std::vector<char> large;
    const char* text = small;
    if (n >= static_cast<int>(sizeof small)) {
        large.resize(static_cast<size_t>(n) + 1);
        vsnprintf(large.data(), large.size(), fmt, again);
        text = large.data();
    }
    va_end(again);
    noteLogLine(text);
    return next != nullptr ? next(logId, prio, tag, "%s", text) : 0;
}

int main(int argc, char** argv) {
    int photos = 50, files = 5;
    std::string size = "3000x2000", log;
    bool verbose = false;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--photos" && i + 1 < argc) photos = atoi(argv[++i]);
        else if (a == "--files" && i + 1 < argc) files = atoi(argv[++i]);
        else if (a == "--size" && i + 1 < argc) size = argv[++i];
        else if (a == "--log" && i + 1 < argc) log = argv[++i];
        else if (a == "--verbose") verbose = true;
        else {
            usage();
            return a == "--help" || a == "-h" ? 0 : 2;
        }
    }
    int w = 0, h = 0;
    if (photos < 1 || photos > 10000 || files < 1 || files > 100 || sscanf(size.c_str(), "%dx%d", &w, &h) != 2 ||
        w < 16 || h < 16 || w > 10000 || h > 10000) {
        usage();
        return 2;
    }
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    const std::string why = testsupport::netnsUnavailableReason();
    if (!why.empty()) {
        fprintf(stderr, "photo bench: cannot run: %s (run it as root: sudo scripts/bench.sh --dlna-photo)\n",
                why.c_str());
        return 1;
    }
    for (const char* tool : {"gmediarender", "gst-launch-1.0"}) {
        if (!haveCommand(tool)) {
            fprintf(stderr, "photo bench: %s is missing (scripts/setup.sh --upnp installs it)\n", tool);
            return 1;
        }
    }

    // The card tree: configuration, the photos, the media database.
    TempTree tree;
    if (tree.root.empty()) {
        perror("photo bench: mkdtemp");
        return 1;
    }
    const std::string card = tree.root + "/mnt/mmc", dcim = card + "/DCIM/100CAMERA";
    if (!mkdirs(dcim) || !mkdirs(card + "/config/DMS")) return 1;
    std::ofstream(card + "/config/UPnPConfig.xml")
        << "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<UPnPConfig>\n"
        << "  <HTTPStreamingPort>18100</HTTPStreamingPort>\n"
        << "  <SHARED-MEDIA-FOLDER-PATH>" << card << "/DCIM</SHARED-MEDIA-FOLDER-PATH>\n"
        << "  <MEDIA-DB-FILEPATH>" << card << "/config/DMS/media.db</MEDIA-DB-FILEPATH>\n"
        << "  <MEDIA-TV-DB-FILEPATH>" << card << "/config/DMS/tv.db</MEDIA-TV-DB-FILEPATH>\n"
        << "</UPnPConfig>\n";
    setenv("CAMWIFI_ROOT", tree.root.c_str(), 1);
    setenv("CAMWIFI_DLNA_STACK", "upnp", 1);
    setenv("CAMWIFI_LOG", (log.empty() ? tree.root + "/camwifi.log" : log).c_str(), 1);
    unsetenv("CAMWIFI_IFACE");

    std::vector<std::string> paths;
    std::vector<uint64_t> sizes;
    for (int i = 0; i < files; ++i) {
        char name[32];
        snprintf(name, sizeof name, "/SAM_%04d.JPG", i + 1);
        const std::string path = dcim + name;
        // Test patterns of different kinds, so the files differ in size as
        // photos do; pattern 1 (snow) is the largest.
        const std::string cmd = "gst-launch-1.0 -q videotestsrc num-buffers=1 pattern=" + std::to_string(i % 25) +
                                " ! video/x-raw,width=" + std::to_string(w) + ",height=" + std::to_string(h) +
                                " ! jpegenc quality=90 ! filesink location=" + path + " >/dev/null 2>&1";
        struct stat st;
        if (std::system(cmd.c_str()) != 0 || stat(path.c_str(), &st) != 0 || st.st_size == 0) {
            fprintf(stderr, "photo bench: could not make %s with GStreamer (jpegenc)\n", path.c_str());
            return 1;
        }
        paths.push_back(path);
        sizes.push_back(static_cast<uint64_t>(st.st_size));
    }
    if (ZEBInitializeZEB((card + "/config/UPnPConfig.xml").c_str()) != 0) {
        fprintf(stderr, "photo bench: the DLNA stack did not initialise\n");
        return 1;
    }
    ZEBCreateDirectoryStructure((card + "/config/DMS/tv.db").c_str());
    const int scanned = ZEBUtilStartFileScanner(1, (card + "/DCIM").c_str());
    ZEBTerminateZEB();
    if (scanned != 0) {
        fprintf(stderr, "photo bench: the media database could not be built\n");
        return 1;
    }

    // The network: the TV's namespace and the camera's, which this thread
    // (and every thread the library starts) enters.
    NetNamespace tv("cw-btv"), cam("cw-bcam");
    bool netOk = tv.ok() && cam.ok() && tv.exec("ip link add tv0 type veth peer name cam0 netns " + cam.name()) == 0 &&
                 tv.exec("sysctl -qw net.ipv6.conf.tv0.disable_ipv6=1") == 0 &&
                 cam.exec("sysctl -qw net.ipv6.conf.cam0.disable_ipv6=1") == 0 &&
                 tv.exec("ip addr add 198.51.100.1/24 dev tv0") == 0 &&
                 cam.exec("ip addr add 198.51.100.2/24 dev cam0") == 0 && tv.exec("ip link set tv0 up") == 0 &&
                 cam.exec("ip link set cam0 up") == 0 && tv.exec("ip route add 239.0.0.0/8 dev tv0") == 0 &&
                 cam.exec("ip route add 239.0.0.0/8 dev cam0") == 0;
    if (!netOk) {
        fprintf(stderr, "photo bench: could not set up the namespaces and their veth pair\n");
        return 1;
    }
    EnterNetNamespace inCam(cam);
    if (!inCam.ok()) {
        fprintf(stderr, "photo bench: could not enter the camera's namespace\n");
        return 1;
    }
    NsProcess renderer(tv, {"gmediarender", "-I", "tv0", "-p", std::to_string(kTvPort), "-u", std::string(kTvUdn + 5),
                            "-f", "Bench TV", "--gstout-audiopipe", "fakesink sync=true", "--gstout-videopipe",
                            "fakesink sync=true"});

    int rc = 1;
    if (DlnaMrcpStart(uiCallback) != 1) {
        fprintf(stderr, "photo bench: DlnaMrcpStart failed (see the log)\n");
        DlnaMrcpTerminate();
        return 1;
    }
    for (int i = 0; i < 200 && gRendererAdded == 0; ++i) usleep(100 * 1000);
    int count = 0;
    DmrListEntry* list = nullptr;
    if (gRendererAdded == 0 || DlnaMrcpGetDmrList(&count, &list) != 1 || count < 1 ||
        DlnaMrcpSetDmr(0, kTvUdn) != 1) {
        fprintf(stderr, "photo bench: gmediarender was not found by the library%s\n",
                renderer.alive() ? "" : " (it has ended)");
        DlnaMrcpTerminate();
        return 1;
    }

    // Bounded wait until the TV is idle: stopped as the library sees it (its
    // events) and as it answers itself, and the library ready for a photo.
    auto waitIdle = [&]() {
        for (int i = 0; i < 500; ++i) {
            if (DlnaMrcpGetRendererState(kTvUdn) == 0 && MrcpGetShowReadyFlag() && transportState() == "STOPPED")
                break;
            usleep(10 * 1000);
        }
        // Lets the renderer's own stop settle (its events, its pipeline).
        usleep(100 * 1000);
    };
    // Waits (bounded) until the streaming server has written target bytes in all.
    auto waitBytes = [&](uint64_t target) {
        const Clock::time_point limit = Clock::now() + std::chrono::milliseconds(kPhotoTimeoutMs);
        while (host::upnpstack::streamingBytesSent() < target) {
            if (Clock::now() > limit) return false;
            usleep(100);
        }
        return true;
    };

    Side lib{"library", {}, {}, 0, 0, 0}, ref{"reference", {}, {}, 0, 0, 0};
    auto showOne = [&](Side& side, int index) {
        const std::string& path = paths[static_cast<size_t>(index) % paths.size()];
        const uint64_t fileSize = sizes[static_cast<size_t>(index) % sizes.size()];
        waitIdle();
        const uint64_t before = host::upnpstack::streamingBytesSent();
        const int failedBefore = gPlayFailed;
        bool sent;
        std::string why;
        const Clock::time_point t0 = Clock::now();
        if (&side == &lib) {
            for (auto& at : gStepAt) at = 0;
            sent = DlnaMrcpShowFile(path.c_str()) == 1;
        } else {
            char* uri = nullptr;
            sent = DlnaGetContentUri(path.c_str(), &uri) == 0 && uri != nullptr &&
                   referenceShow(uri, path.substr(path.rfind('/') + 1), &why);
            free(uri);
        }
        const bool whole = sent && waitBytes(before + fileSize);
        const Clock::time_point t1 = Clock::now();
        if (whole && gPlayFailed == failedBefore) {
            side.ms.push_back(std::chrono::duration<double, std::milli>(t1 - t0).count());
            const int64_t start = std::chrono::duration_cast<std::chrono::nanoseconds>(t0.time_since_epoch()).count();
            for (int k = 0; k < kSteps; ++k)
                if (gStepAt[k] != 0) side.stepMs[k].push_back(static_cast<double>(gStepAt[k] - start) / 1e6);
        } else {
            ++side.failed;
            if (!sent && why.empty()) why = "not sent";
            else if (why.empty()) why = gPlayFailed != failedBefore ? "PLAY_FAILED" : "the photo was not fetched in full in time";
            fprintf(stderr, "photo bench: %s, photo %d failed: %s%s\n", side.name, index, why.c_str(),
                    renderer.alive() ? "" : " (gmediarender has ended)");
        }
        // What the renderer fetched for this photo in all (read once it is
        // idle again): more than the file means it fetched it twice.
        waitIdle();
        const uint64_t fetched = host::upnpstack::streamingBytesSent() - before;
        if (verbose)
            printf("    %-9s photo %3d: %8.1f ms  file %llu bytes, fetched %llu (%llu answers so far)\n", side.name,
                   index, whole ? std::chrono::duration<double, std::milli>(t1 - t0).count() : -1.0,
                   static_cast<unsigned long long>(fileSize), static_cast<unsigned long long>(fetched),
                   static_cast<unsigned long long>(host::upnpstack::streamingAnswered()));
        side.fetched += fetched;
        side.expected += fileSize;
    };

    printf("photo latency: %d photos each (%d JPEGs of %s, %.2f MB on average), gmediarender, library on the real "
           "DLNA stack vs a bare SOAP control point, same streaming server\n",
           photos, files, size.c_str(),
           [&] {
               double s = 0;
               for (uint64_t b : sizes) s += static_cast<double>(b);
               return s / static_cast<double>(sizes.size()) / 1e6;
           }());
    fflush(stdout);
    // Each side once unmeasured: the renderer's first pipeline, first connections.
    showOne(lib, 0);
    showOne(ref, 0);
    lib = Side{"library", {}, {}, 0, 0, 0};
    ref = Side{"reference", {}, {}, 0, 0, 0};
    for (int i = 0; i < photos; ++i) {
        // The one that goes first alternates, so neither always follows the other.
        if (i % 2 == 0) {
            showOne(lib, i);
            showOne(ref, i);
        } else {
            showOne(ref, i);
            showOne(lib, i);
        }
        if (!renderer.alive()) {
            fprintf(stderr, "photo bench: gmediarender ended during the run\n");
            break;
        }
        if (gInterrupted) {
            fprintf(stderr, "photo bench: interrupted; the figures are of the photos shown so far\n");
            break;
        }
    }

    for (Side* s : {&lib, &ref}) {
        printf("  %-9s  median %8.1f ms   p95 %8.1f ms   min %8.1f ms   (%zu ok, %d failed; fetched %.2f x the "
               "files' bytes)\n",
               s->name, percentile(s->ms, 0.5), percentile(s->ms, 0.95), percentile(s->ms, 0.0), s->ms.size(),
               s->failed, s->expected ? static_cast<double>(s->fetched) / static_cast<double>(s->expected) : 0.0);
    }
    printf("  median time from the command to each step (ms):\n");
    for (Side* s : {&lib, &ref}) {
        printf("  %-9s ", s->name);
        for (int k = 0; k < kSteps; ++k) printf("  %s %.1f", kStepName[k], percentile(s->stepMs[k], 0.5));
        // (The library's Play answer is logged on its callback thread after
        // its events of the same moment, so it may come after the photo.)
        printf("  | photo in %.1f\n", percentile(s->ms, 0.5));
    }
    if (!lib.ms.empty() && !ref.ms.empty()) {
        printf("  ratio library / reference:  median %.2f   p95 %.2f\n",
               percentile(lib.ms, 0.5) / percentile(ref.ms, 0.5), percentile(lib.ms, 0.95) / percentile(ref.ms, 0.95));
        rc = 0;
    }
    DlnaMrcpTerminate();
    return rc;
}
