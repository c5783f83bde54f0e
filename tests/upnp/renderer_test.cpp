// The real stack's control point against a real renderer (gmediarender, a
// MediaRenderer on its own pupnp), each in a network namespace of its own
// joined by a veth pair. Needs root and gmediarender; skips otherwise.
#include <dirent.h>
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <fstream>
#include <mutex>

#include "control_point.h"
#include "streaming_server.h"
#include "support/netns.h"
#include "support/test_support.h"
#include "support/tv_renderer.h"

using namespace camwifi::upnp;
using testsupport::EnterNetNamespace;
using testsupport::NetNamespace;
using testsupport::haveCommand;
using testsupport::openFds;
using testsupport::threads;
using testsupport::NsProcess;

namespace {

const char* const kTvUdn = "uuid:5eb1c0de-0000-4000-8000-000000000001";
const char* const kTvName = "Living Room TV";
constexpr int kStreamingPort = 18100;


// What the listener saw, for the test thread to wait on.
struct Seen {
    std::mutex lock;
    std::condition_variable changed;
    std::vector<std::pair<std::string, std::string>> deviceEvents;  // type, udn
    std::vector<ActionAnswer> answers;
    std::vector<std::string> transportStates;  // from LastChange
    std::vector<std::string> lastChanges;

    UpnpControlPoint::Listener listener() {
        UpnpControlPoint::Listener l;
        l.deviceInfo = [this](const char* type, const RendererDetails& r) {
            std::lock_guard<std::mutex> g(lock);
            deviceEvents.emplace_back(type, r.udn);
            changed.notify_all();
        };
        l.commandResponse = [this](const ActionAnswer& a) {
            std::lock_guard<std::mutex> g(lock);
            answers.push_back(a);
            changed.notify_all();
        };
        l.deviceStatus = [this](const StatusEvent& e) {
            std::lock_guard<std::mutex> g(lock);
            for (auto& v : e.variables) {
                if (v.first != "LastChange") continue;
                lastChanges.push_back(v.second);
                size_t p = v.second.find("<TransportState val=\"");
                if (p != std::string::npos) {
                    p += 21;
                    transportStates.push_back(v.second.substr(p, v.second.find('"', p) - p));
                }
            }
            changed.notify_all();
        };
        return l;
    }
    template <typename Pred>
    bool waitFor(int ms, Pred pred) {
        std::unique_lock<std::mutex> l(lock);
        return changed.wait_for(l, std::chrono::milliseconds(ms), [&] { return pred(); });
    }
    // The answer to the n-th request of action (1-based), waiting for it.
    bool answer(const std::string& action, size_t n, int ms, ActionAnswer* out) {
        return waitFor(ms, [&] {
            size_t seen = 0;
            for (auto& a : answers)
                if (a.action == action && ++seen == n) {
                    *out = a;
                    return true;
                }
            return false;
        });
    }
    bool sawState(const std::string& state) {
        for (auto& s : transportStates)
            if (s == state) return true;
        return false;
    }
};

class RendererTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_skip = testsupport::netnsUnavailableReason();
        if (s_skip.empty() && !haveCommand("gmediarender"))
            s_skip = "gmediarender is not installed (scripts/setup.sh --upnp installs it)";
        if (s_skip.empty() && !haveCommand("gst-launch-1.0"))
            s_skip = "gst-launch-1.0 is not installed (scripts/setup.sh --upnp installs it)";
        if (!s_skip.empty()) return;
        s_media = new testsupport::TempDir;
        std::string dcim = s_media->path() + "/DCIM";
        mkdir(dcim.c_str(), 0755);
        for (int i = 1; i <= 3; ++i) {
            std::string cmd = "gst-launch-1.0 -q videotestsrc num-buffers=1 pattern=" + std::to_string(i) +
                              " ! video/x-raw,width=640,height=480 ! jpegenc ! filesink location=" + dcim + "/photo" +
                              std::to_string(i) + ".jpg >/dev/null 2>&1";
            if (std::system(cmd.c_str()) != 0) s_skip = "could not make test JPEGs with GStreamer";
        }
        std::string mp4 = "gst-launch-1.0 -q videotestsrc num-buffers=40 ! video/x-raw,width=320,height=240,"
                          "framerate=10/1 ! x264enc ! mp4mux ! filesink location=" + dcim + "/clip.mp4 >/dev/null 2>&1";
        if (std::system(mp4.c_str()) != 0) s_skip = "could not make the test MP4 (x264enc, mp4mux)";
    }
    static void TearDownTestSuite() {
        delete s_media;
        s_media = nullptr;
    }

    void SetUp() override {
        if (!s_skip.empty()) GTEST_SKIP() << s_skip;
        tv.reset(new NetNamespace("cw-tv"));
        cam.reset(new NetNamespace("cw-cam"));
        ASSERT_TRUE(tv->ok() && cam->ok());
        ASSERT_EQ(tv->exec("ip link add tv0 type veth peer name cam0 netns " + cam->name()), 0);
        // IPv6 off before the links come up: libupnp would race the
        // link-local address; multicast needs a route on the veth.
        ASSERT_EQ(tv->exec("sysctl -qw net.ipv6.conf.tv0.disable_ipv6=1"), 0);
        ASSERT_EQ(cam->exec("sysctl -qw net.ipv6.conf.cam0.disable_ipv6=1"), 0);
        ASSERT_EQ(tv->exec("ip addr add 198.51.100.1/24 dev tv0"), 0);
        ASSERT_EQ(cam->exec("ip addr add 198.51.100.2/24 dev cam0"), 0);
        ASSERT_EQ(tv->exec("ip link set tv0 up"), 0);
        ASSERT_EQ(cam->exec("ip link set cam0 up"), 0);
        ASSERT_EQ(tv->exec("ip route add 239.0.0.0/8 dev tv0"), 0);
        ASSERT_EQ(cam->exec("ip route add 239.0.0.0/8 dev cam0"), 0);
        inCam.reset(new EnterNetNamespace(*cam));
        ASSERT_TRUE(inCam->ok());
    }
    void TearDown() override {
        cp.terminate();
        server.stop();
        renderer.reset();
        inCam.reset();
        cam.reset();
        tv.reset();
    }
    void startRenderer() {
        renderer.reset(new NsProcess(*tv, {"gmediarender", "-I", "tv0", "-p", "49494", "-u", std::string(kTvUdn + 5),
                                           "-f", kTvName, "--gstout-audiopipe", "fakesink sync=true",
                                           "--gstout-videopipe", "fakesink sync=true"}));
    }
    // Starts the control point and waits until the renderer was added.
    void startAndFindRenderer() {
        startRenderer();
        ASSERT_EQ(cp.init("cam0", seen.listener()), 0) << cp.why();
        ASSERT_EQ(cp.start(), 0);
        // gmediarender needs a moment to come up; the periodic search and its
        // alive messages find it.
        ASSERT_TRUE(seen.waitFor(20000, [&] { return !seen.deviceEvents.empty(); })) << "renderer never found";
    }
    std::string dcim() const { return s_media->path() + "/DCIM"; }
    std::string uriOf(const std::string& file) {
        return "http://198.51.100.2:" + std::to_string(kStreamingPort) + dcim() + "/" + file;
    }
    // The renderer's own view, read with curl from the camera's namespace.
    std::string rendererTransportState() {
        std::string body =
            "<?xml version=\"1.0\"?><s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\"><s:Body>"
            "<u:GetTransportInfo xmlns:u=\"urn:schemas-upnp-org:service:AVTransport:1\"><InstanceID>0</InstanceID>"
            "</u:GetTransportInfo></s:Body></s:Envelope>";
        std::string out = cam->output(
            "curl -s -m 5 -H 'Content-Type: text/xml; charset=\"utf-8\"' "
            "-H 'SOAPACTION: \"urn:schemas-upnp-org:service:AVTransport:1#GetTransportInfo\"' --data '" +
            body + "' http://198.51.100.1:49494/upnp/control/rendertransport1");
        size_t p = out.find("<CurrentTransportState>");
        if (p == std::string::npos) return "";
        p += 23;
        return out.substr(p, out.find('<', p) - p);
    }
    int send(const ActionRequest& r, const std::string& context) { return cp.sendAction(kTvUdn, r, context); }
    ActionAnswer sendAndWait(const ActionRequest& r, int ms = 15000) {
        size_t n = 0;
        {
            std::lock_guard<std::mutex> g(seen.lock);
            for (auto& a : seen.answers)
                if (a.action == r.action) ++n;
        }
        ActionAnswer a;
        EXPECT_EQ(send(r, r.action + "Context"), 0);
        EXPECT_TRUE(seen.answer(r.action, n + 1, ms, &a)) << "no answer to " << r.action;
        return a;
    }
    static ActionRequest request(const std::string& action) {
        ActionRequest r;
        r.action = action;
        return r;
    }

    static std::string s_skip;
    static testsupport::TempDir* s_media;
    std::unique_ptr<NetNamespace> tv, cam;
    std::unique_ptr<EnterNetNamespace> inCam;
    std::unique_ptr<NsProcess> renderer;
    Seen seen;
    UpnpControlPoint cp;
    HttpStreamingServer server;
};

std::string RendererTest::s_skip;

testsupport::TempDir* RendererTest::s_media = nullptr;

}  // namespace

TEST_F(RendererTest, StartAndTerminateTwentyTimesLeaveNoDescriptorOrThread) {
    // ThreadSanitizer starts a helper thread of its own with the first
    // thread a process creates: let that happen before counting.
    std::thread([] {}).join();
    int fds = openFds(), tasks = threads();
    for (int i = 0; i < 20; ++i) {
        UpnpControlPoint one;
        ASSERT_EQ(one.init("cam0", seen.listener()), 0) << "round " << i << ": " << one.why();
        ASSERT_EQ(one.start(), 0);
        one.terminate();
        // libupnp's pool threads have left its shutdown when it returns but
        // may still be on their way out of the kernel: wait a bounded moment.
        for (int t = 0; t < 100 && threads() > tasks; ++t) usleep(20 * 1000);
        EXPECT_EQ(openFds(), fds) << "round " << i;
        EXPECT_EQ(threads(), tasks) << "round " << i;
    }
}

TEST_F(RendererTest, UnknownInterfaceIsAClearErrorAtInit) {
    EXPECT_NE(cp.init("nosuch0", seen.listener()), 0);
    EXPECT_NE(cp.why().find("nosuch0"), std::string::npos);
    EXPECT_FALSE(cp.initialised());
    // The library is free again for a good interface.
    EXPECT_EQ(cp.init("cam0", seen.listener()), 0) << cp.why();
}

TEST_F(RendererTest, RendererIsAddedOnceWithTheDetailsOfItsDescription) {
    startAndFindRenderer();
    // Several search answers and alive messages come in; still one addition.
    std::this_thread::sleep_for(std::chrono::seconds(3));
    {
        std::lock_guard<std::mutex> g(seen.lock);
        ASSERT_EQ(seen.deviceEvents.size(), 1u);
        EXPECT_EQ(seen.deviceEvents[0].first, "DMR_ADDED");
        EXPECT_EQ(seen.deviceEvents[0].second, kTvUdn);
    }
    auto list = cp.renderers();
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].friendlyName, kTvName);
    RendererDetails d;
    ASSERT_EQ(cp.details(kTvUdn, &d), 0);
    EXPECT_EQ(d.ip, "198.51.100.1");
    EXPECT_EQ(d.modelName, "gmediarender");
    EXPECT_EQ(d.manufacturer, "Ivo Clarysse, Henner Zeller");
}

TEST_F(RendererTest, RendererSayingByebyeIsRemovedOnceAndTerminateReturnsAtOnce) {
    startAndFindRenderer();
    // gmediarender ends without a byebye of its own: the TV's side of the
    // network sends the SSDP byebye its stack would send.
    renderer->end();
    {
        EnterNetNamespace inTv(*tv);
        ASSERT_TRUE(inTv.ok());
        int fd = socket(AF_INET, SOCK_DGRAM, 0);
        ASSERT_GE(fd, 0);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(1900);
        to.sin_addr.s_addr = inet_addr("239.255.255.250");
        for (const std::string& nt : {std::string(kTvUdn), std::string("urn:schemas-upnp-org:device:MediaRenderer:1")}) {
            std::string usn = nt == kTvUdn ? nt : std::string(kTvUdn) + "::" + nt;
            std::string msg = "NOTIFY * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nNT: " + nt +
                              "\r\nNTS: ssdp:byebye\r\nUSN: " + usn + "\r\n\r\n";
            EXPECT_GT(sendto(fd, msg.data(), msg.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to), 0);
        }
        close(fd);
    }
    ASSERT_TRUE(seen.waitFor(10000, [&] {
        for (auto& e : seen.deviceEvents)
            if (e.first == "DMR_REMOVED") return true;
        return false;
    }));
    EXPECT_TRUE(cp.renderers().empty());
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    {
        std::lock_guard<std::mutex> g(seen.lock);
        EXPECT_EQ(seen.deviceEvents.size(), 2u);  // added once, removed once
    }
    EXPECT_NE(send(request("Stop"), "StopAction"), 0);  // no such renderer any more
    auto t0 = std::chrono::steady_clock::now();
    cp.terminate();
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(5));
}

TEST_F(RendererTest, PhotoIsShownFetchedInFullFromTheStreamingServer) {
    ASSERT_EQ(server.start(kStreamingPort, {dcim()}), 0);
    startAndFindRenderer();
    ASSERT_EQ(cp.subscribe(kTvUdn), 0);
    ActionAnswer a = sendAndWait(request("Stop"));
    EXPECT_EQ(a.error, 0) << a.why;
    EXPECT_EQ(a.context.value_or(""), "StopContext");

    struct stat st;
    ASSERT_EQ(stat((dcim() + "/photo1.jpg").c_str(), &st), 0);
    ActionRequest set = request("SetAVTransportURI");
    set.uri = uriOf("photo1.jpg");
    set.metadata = "";
    a = sendAndWait(set);
    ASSERT_EQ(a.error, 0) << a.why;
    // Play at once after the SetAVTransportURI answer (a late Play fails on
    // this renderer every second photo).
    ActionRequest play = request("Play");
    play.speed = 1;
    a = sendAndWait(play);
    EXPECT_EQ(a.error, 0) << a.why << (renderer->alive() ? "" : " (gmediarender has ended)");
    // The renderer reports PLAYING through its events and fetched the whole file.
    EXPECT_TRUE(seen.waitFor(10000, [&] { return seen.sawState("PLAYING"); }));
    for (int i = 0; i < 100 && server.bytesSent() < static_cast<uint64_t>(st.st_size); ++i) usleep(50 * 1000);
    EXPECT_GE(server.bytesSent(), static_cast<uint64_t>(st.st_size));
    EXPECT_TRUE(renderer->alive()) << "gmediarender has ended";
}

// A slideshow: Stop, SetAVTransportURI, and Play at once after the
// SetAVTransportURI answer, for three photos in a row. Each one is fetched
// whole from the streaming server and goes PLAYING; none is refused (a Play
// that comes late fails on this renderer for every second photo).
TEST_F(RendererTest, ThreePhotosInARowAreEachFetchedInFullAndPlayed) {
    ASSERT_EQ(server.start(kStreamingPort, {dcim()}), 0);
    startAndFindRenderer();
    ASSERT_EQ(cp.subscribe(kTvUdn), 0);
    auto playingCount = [&] {
        size_t n = 0;
        for (auto& s : seen.transportStates)
            if (s == "PLAYING") ++n;
        return n;
    };
    for (int i = 1; i <= 3; ++i) {
        SCOPED_TRACE("photo " + std::to_string(i));
        std::string file = "photo" + std::to_string(i) + ".jpg";
        size_t playingBefore;
        {
            std::lock_guard<std::mutex> g(seen.lock);
            playingBefore = playingCount();
        }
        ActionAnswer a = sendAndWait(request("Stop"));
        EXPECT_EQ(a.error, 0) << a.why;
        ActionRequest set = request("SetAVTransportURI");
        set.uri = uriOf(file);
        a = sendAndWait(set);
        ASSERT_EQ(a.error, 0) << a.why;
        ActionRequest play = request("Play");
        play.speed = 1;
        a = sendAndWait(play);
        ASSERT_EQ(a.error, 0) << a.why << (renderer->alive() ? "" : " (gmediarender has ended)");
        EXPECT_TRUE(seen.waitFor(10000, [&] { return playingCount() > playingBefore; })) << "no PLAYING for " << file;
        for (int t = 0; t < 200 && server.wholeFilesSent(dcim() + "/" + file) == 0; ++t) usleep(50 * 1000);
        EXPECT_GE(server.wholeFilesSent(dcim() + "/" + file), 1u) << file << " was not fetched in full";
    }
    EXPECT_TRUE(renderer->alive()) << "gmediarender has ended";
}

// gmediarender answers actions before its AVTransport has finished starting,
// and a Play in that moment makes it abort. The control point leaves a
// renderer that has just appeared alone until it has settled: Play sent the
// moment the renderer is found works, and the renderer lives on.
TEST_F(RendererTest, RendererJustStartedGetsItsFirstActionOnlyOnceSettled) {
    ASSERT_EQ(server.start(kStreamingPort, {dcim()}), 0);
    auto t0 = std::chrono::steady_clock::now();
    startAndFindRenderer();
    ActionRequest set = request("SetAVTransportURI");
    set.uri = uriOf("clip.mp4");
    ActionAnswer a = sendAndWait(set);
    EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(kRendererSettleMs));
    ASSERT_EQ(a.error, 0) << a.why;
    ActionRequest play = request("Play");
    play.speed = 1;
    a = sendAndWait(play);
    EXPECT_EQ(a.error, 0) << a.why << (renderer->alive() ? "" : " (gmediarender has ended)");
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_TRUE(renderer->alive()) << "gmediarender has ended";
    EXPECT_EQ(sendAndWait(request("Stop")).error, 0);
}

TEST_F(RendererTest, VideoPlaysPausesResumesSeeksAndReportsItsPosition) {
    ASSERT_EQ(server.start(kStreamingPort, {dcim()}), 0);
    startAndFindRenderer();
    ASSERT_EQ(cp.subscribe(kTvUdn), 0);
    ActionRequest set = request("SetAVTransportURI");
    set.uri = uriOf("clip.mp4");
    ASSERT_EQ(sendAndWait(set).error, 0);
    ActionAnswer played = sendAndWait(request("Play"));
    ASSERT_EQ(played.error, 0) << played.why << (renderer->alive() ? "" : " (gmediarender has ended)");
    ASSERT_TRUE(seen.waitFor(10000, [&] { return seen.sawState("PLAYING"); }));

    ActionAnswer info = sendAndWait(request("GetTransportInfo"));
    ASSERT_EQ(info.error, 0) << info.why;
    EXPECT_EQ(info.transportState.value_or(""), "PLAYING");
    EXPECT_EQ(info.transportStatus.value_or(""), "OK");

    // The position advances (the 4-second clip plays in real time).
    int first = -1, later = -1, duration = 0;
    for (int i = 0; i < 20 && later <= first; ++i) {
        ActionAnswer pos = sendAndWait(request("GetPositionInfo"));
        ASSERT_EQ(pos.error, 0) << pos.why;
        if (pos.relTimeMs && first < 0) first = *pos.relTimeMs;
        else if (pos.relTimeMs) later = *pos.relTimeMs;
        if (pos.durationMs && *pos.durationMs > duration) duration = *pos.durationMs;
        usleep(300 * 1000);
    }
    EXPECT_GT(later, first);
    EXPECT_GT(duration, 3000);  // known once the renderer has read the file's header

    ASSERT_EQ(sendAndWait(request("Pause")).error, 0);
    EXPECT_TRUE(seen.waitFor(5000, [&] { return seen.sawState("PAUSED_PLAYBACK"); }));
    EXPECT_EQ(rendererTransportState(), "PAUSED_PLAYBACK");
    ActionAnswer resume = sendAndWait(request("Resume"));
    EXPECT_EQ(resume.error, 0) << resume.why;
    EXPECT_EQ(rendererTransportState(), "PLAYING");

    ActionRequest seek = request("Seek");
    seek.seekUnit = "REL_TIME";
    seek.seekTarget = "0:00:03";
    ActionAnswer s = sendAndWait(seek);
    EXPECT_EQ(s.error, 0) << s.why;
    ActionAnswer pos = sendAndWait(request("GetPositionInfo"));
    ASSERT_TRUE(pos.relTimeMs.has_value());
    EXPECT_GE(*pos.relTimeMs, 2500);

    // To its end: STOPPED comes as an event.
    EXPECT_TRUE(seen.waitFor(15000, [&] {
        return !seen.transportStates.empty() && seen.transportStates.back() == "STOPPED";
    }));
    EXPECT_TRUE(renderer->alive()) << "gmediarender has ended";
}

TEST_F(RendererTest, VolumeIsSetAndReadBack) {
    startAndFindRenderer();
    ActionRequest set = request("SetVolume");
    set.channel = "Master";
    set.volume = 37;
    ActionAnswer a = sendAndWait(set);
    ASSERT_EQ(a.error, 0) << a.why;
    ActionRequest get = request("GetVolume");
    get.channel = "Master";
    a = sendAndWait(get);
    ASSERT_EQ(a.error, 0) << a.why;
    EXPECT_EQ(a.volume.value_or(-1), 37);
}

TEST_F(RendererTest, ProtocolInfoListsTheSinkFormats) {
    startAndFindRenderer();
    ActionAnswer a = sendAndWait(request("GetProtocolInfo"));
    ASSERT_EQ(a.error, 0) << a.why;
    EXPECT_NE(a.sinkProtocolInfo.value_or("").find("image/jpeg"), std::string::npos);
}

TEST_F(RendererTest, RefusedActionFailsWith801AndTheUpnpErrorIsLogged) {
    startAndFindRenderer();
    // Play with no media set: the renderer answers a SOAP fault (HTTP 500).
    host::clearLog();
    ActionAnswer a = sendAndWait(request("Play"));
    EXPECT_EQ(a.error, kActionFailed);
    EXPECT_GT(a.upnpError, 0) << a.why;
    bool logged = false;
    for (auto& l : host::logLinesContaining("UPnP error " + std::to_string(a.upnpError))) {
        if (!l.text.empty()) logged = true;
    }
    EXPECT_TRUE(logged);
}

// A renderer that accepts every connection, serves its description, and
// never answers an action: the action fails (801) after the bounded action
// time, and terminate does not wait for it.
TEST_F(RendererTest, RendererThatNeverAnswersFailsWithinTheActionTimeout) {
    const std::string fakeUdn = "uuid:5eb1c0de-0000-4000-8000-00000000dead";
    testsupport::SilentRenderer silent(*tv, "198.51.100.1", 49600, fakeUdn, "Silent TV");
    ASSERT_TRUE(silent.ok());
    ASSERT_EQ(cp.init("cam0", seen.listener()), 0) << cp.why();
    ASSERT_EQ(cp.start(), 0);
    bool found = false;
    auto firstAlive = std::chrono::steady_clock::now();
    for (int i = 0; i < 20 && !found; ++i) {
        silent.announce();
        found = seen.waitFor(500, [&] { return !seen.deviceEvents.empty(); });
    }
    ASSERT_TRUE(found) << "the silent renderer was never added";
    auto t0 = std::chrono::steady_clock::now();
    ASSERT_EQ(cp.sendAction(fakeUdn, request("Stop"), std::string("StopAction")), 0);
    ActionAnswer a;
    ASSERT_TRUE(seen.answer("Stop", 1, kRendererSettleMs + kActionTimeoutMs + 5000, &a));
    auto now = std::chrono::steady_clock::now();
    EXPECT_EQ(a.error, kActionFailed);
    EXPECT_EQ(a.context.value_or(""), "StopAction");
    EXPECT_GE(now - t0, std::chrono::milliseconds(kActionTimeoutMs - 500));
    // A renderer that has just appeared is left to settle before its first action.
    EXPECT_GE(now - firstAlive, std::chrono::milliseconds(kRendererSettleMs + kActionTimeoutMs - 500));
    // A second request in flight when terminate comes is cut at once.
    ASSERT_EQ(cp.sendAction(fakeUdn, request("Play"), std::string("image")), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    t0 = std::chrono::steady_clock::now();
    cp.terminate();
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(3));
    EXPECT_EQ(silent.heldRequests(), 2);
}
