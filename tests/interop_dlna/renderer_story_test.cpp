// The renderer control point of libcamwifi on the real DLNA stack, driven
// only through the library's exported functions, against two real renderers
// on independent UPnP stacks: gmediarender (pupnp) and Rygel's playbin
// renderer (GUPnP), each as the TV in a network namespace of its own. The
// camera's side runs in a second namespace joined to the TV's by a veth
// pair: the test thread enters it before the library starts, so every
// thread the library and the stack start lives there. Each story asserts the
// UI events by name and the renderer's own view, read with SOAP requests of
// the test's own.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <mutex>

#include "camwifi/camwifi.h"
#include "host_control.h"
#include "host_upnp_stack.h"
#include "support/netns.h"
#include "support/test_support.h"
#include "support/tv_renderer.h"
#include "zeb_stack.h"

using testsupport::EnterNetNamespace;
using testsupport::NetNamespace;
using testsupport::haveCommand;
using testsupport::openFds;
using testsupport::threads;
using testsupport::NsProcess;
using testsupport::TvKind;
using testsupport::TvRenderer;

namespace {

const char* const kTvName = "Camera Test TV";
const char* const kCameraAddress = "198.51.100.2";
constexpr int kStreamingPort = 18100;

const char* eventName(int id) {
    switch (id) {
        case EVT_MRCP_REFRESH_DMR_LIST: return "REFRESH_DMR_LIST";
        case EVT_MRCP_SELECTED_DMR_BYEBYE: return "SELECTED_DMR_BYEBYE";
        case EVT_MRCP_PLAY_STARTED: return "PLAY_STARTED";
        case EVT_MRCP_PLAY_PAUSED: return "PLAY_PAUSED";
        case EVT_MRCP_PLAY_RESUMED: return "PLAY_RESUMED";
        case EVT_MRCP_PLAY_COMPLETE: return "PLAY_COMPLETE";
        case EVT_MRCP_PLAY_STOP: return "PLAY_STOP";
        case EVT_MRCP_PLAY_POSITION: return "PLAY_POSITION";
        case EVT_MRCP_PLAY_FAILED: return "PLAY_FAILED";
        case EVT_MRCP_SHOW_READY: return "SHOW_READY";
        case EVT_MRCP_UNSUPPORTED_FILE: return "UNSUPPORTED_FILE";
        default: return "OTHER";
    }
}

// The UI: every event by name, in order.
std::mutex gLock;
std::condition_variable gChanged;
std::vector<std::string> gEvents;
std::vector<std::string> gAddedUdns;
std::vector<intptr_t> gPositions;  // PLAY_POSITION values, in seconds

void uiCallback(ZEB_CALLBACK_EVENT event, void* value, intptr_t number) {
    std::lock_guard<std::mutex> g(gLock);
    gEvents.push_back(eventName(event));
    if (event == EVT_MRCP_REFRESH_DMR_LIST && value != nullptr) gAddedUdns.push_back(static_cast<const char*>(value));
    if (event == EVT_MRCP_PLAY_POSITION) gPositions.push_back(number);
    gChanged.notify_all();
}

// Events of that name so far; gLock held by the caller.
size_t countOfLocked(const std::string& name) {
    size_t n = 0;
    for (auto& e : gEvents) n += e == name ? 1 : 0;
    return n;
}

// Events of that name so far (the UI's callback may be adding one).
size_t countOf(const std::string& name) {
    std::lock_guard<std::mutex> g(gLock);
    return countOfLocked(name);
}

// Waits until count events of that name arrived in all.
bool waitForEvent(const std::string& name, size_t count, int timeoutMs) {
    std::unique_lock<std::mutex> l(gLock);
    return gChanged.wait_for(l, std::chrono::milliseconds(timeoutMs), [&] { return countOfLocked(name) >= count; });
}

std::string eventList() {
    std::lock_guard<std::mutex> g(gLock);
    std::string out;
    for (auto& e : gEvents) out += e + " ";
    return out;
}

void clearEvents() {
    std::lock_guard<std::mutex> g(gLock);
    gEvents.clear();
    gAddedUdns.clear();
    gPositions.clear();
}

// Polls cond every 50 ms until it holds or timeoutMs passed.
template <typename Cond>
bool eventually(int timeoutMs, Cond cond) {
    for (int waited = 0; waited < timeoutMs; waited += 50) {
        if (cond()) return true;
        usleep(50 * 1000);
    }
    return cond();
}


// The thread count once it holds still for 200 ms (at most 2 s): threads of
// a terminate that just returned may still be on their way out of the
// kernel, and a baseline taken while they are would be too high.
int settledThreads() {
    int last = threads();
    for (int i = 0; i < 10; ++i) {
        usleep(200 * 1000);
        const int now = threads();
        if (now == last) break;
        last = now;
    }
    return last;
}

bool loggedContaining(const std::string& needle) { return !host::logLinesContaining(needle).empty(); }

// A card tree with the stack's configuration, as the camera has it.
class Card {
public:
    Card() {
        mkdirs("/mnt/mmc/DCIM/100CAMERA");
        mkdirs("/mnt/mmc/config/DMS");
        std::ofstream(path("/mnt/mmc/config/UPnPConfig.xml"))
            << "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<UPnPConfig>\n"
            << "  <HTTPStreamingPort>18100</HTTPStreamingPort>\n"
            << "  <SHARED-MEDIA-FOLDER-PATH>" << path("/mnt/mmc/DCIM") << "</SHARED-MEDIA-FOLDER-PATH>\n"
            << "  <MEDIA-DB-FILEPATH>" << path("/mnt/mmc/config/DMS/media.db") << "</MEDIA-DB-FILEPATH>\n"
            << "  <MEDIA-TV-DB-FILEPATH>" << path("/mnt/mmc/config/DMS/tv.db") << "</MEDIA-TV-DB-FILEPATH>\n"
            << "</UPnPConfig>\n";
    }
    std::string path(const std::string& p) const { return m_root.path() + p; }
    std::string root() const { return m_root.path(); }
    std::string dcim() const { return path("/mnt/mmc/DCIM/100CAMERA"); }

private:
    void mkdirs(const std::string& p) {
        std::string acc = m_root.path();
        size_t start = 1;
        while (start <= p.size()) {
            size_t end = p.find('/', start);
            if (end == std::string::npos) end = p.size();
            acc += "/" + p.substr(start, end - start);
            mkdir(acc.c_str(), 0755);
            start = end + 1;
        }
    }
    testsupport::TempDir m_root;
};


// The camera and the network of the tests: a card with the stack's
// configuration, the camera's namespace and a TV namespace joined to it.
class DlnaRealStack : public ::testing::Test {
protected:
    void SetUp() override {
        host::reset();
        clearEvents();
        setenv("CAMWIFI_DLNA_STACK", "upnp", 1);
        unsetenv("CAMWIFI_IFACE");
        setenv("CAMWIFI_ROOT", card.root().c_str(), 1);
    }
    void TearDown() override {
        DlnaMrcpTerminate();
        tvRenderer.reset();
        inCam.reset();
        cam.reset();
        tv.reset();
        unsetenv("CAMWIFI_ROOT");
        unsetenv("CAMWIFI_IFACE");
        setenv("CAMWIFI_DLNA_STACK", "upnp", 1);
    }

    // The TV and the camera in namespaces of their own; the test thread in
    // the camera's. False (with *why) when this machine cannot.
    bool makeNetwork(std::string* why) {
        *why = testsupport::netnsUnavailableReason();
        if (!why->empty()) return false;
        tv.reset(new NetNamespace("cw-dtv"));
        cam.reset(new NetNamespace("cw-dcam"));
        if (!tv->ok() || !cam->ok()) {
            *why = "ip netns add failed";
            return false;
        }
        // IPv6 off before the links come up (libupnp would race the
        // link-local address); multicast needs a route on the veth.
        bool ok = tv->exec("ip link add tv0 type veth peer name cam0 netns " + cam->name()) == 0 &&
                  tv->exec("sysctl -qw net.ipv6.conf.tv0.disable_ipv6=1") == 0 &&
                  cam->exec("sysctl -qw net.ipv6.conf.cam0.disable_ipv6=1") == 0 &&
                  tv->exec("ip addr add 198.51.100.1/24 dev tv0") == 0 &&
                  cam->exec("ip addr add 198.51.100.2/24 dev cam0") == 0 && tv->exec("ip link set tv0 up") == 0 &&
                  cam->exec("ip link set cam0 up") == 0 && tv->exec("ip route add 239.0.0.0/8 dev tv0") == 0 &&
                  cam->exec("ip route add 239.0.0.0/8 dev cam0") == 0;
        if (!ok) {
            *why = "could not set up the veth pair between the namespaces";
            return false;
        }
        inCam.reset(new EnterNetNamespace(*cam));
        if (!inCam->ok()) *why = "could not enter the camera's namespace";
        return inCam->ok();
    }

    // Test pictures and clips made with GStreamer, and the stack's media
    // database of them (what the camera's media server keeps).
    bool makeMedia(std::string* why) {
        for (int i = 1; i <= 3; ++i) {
            std::string cmd = "gst-launch-1.0 -q videotestsrc num-buffers=1 pattern=" + std::to_string(i) +
                              " ! video/x-raw,width=640,height=480 ! jpegenc ! filesink location=" + card.dcim() +
                              "/SAM_000" + std::to_string(i) + ".JPG >/dev/null 2>&1";
            if (std::system(cmd.c_str()) != 0) {
                *why = "could not make test JPEGs with GStreamer";
                return false;
            }
        }
        // An 8-second clip played to its end (long enough for its position to
        // be polled a few times), a 12-second one to pause and seek in.
        for (auto clip : {std::make_pair("SAM_0004.MP4", 80), std::make_pair("SAM_0005.MP4", 120)}) {
            std::string mp4 = "gst-launch-1.0 -q videotestsrc num-buffers=" + std::to_string(clip.second) +
                              " ! video/x-raw,width=320,height=240,framerate=10/1 ! x264enc ! mp4mux ! filesink "
                              "location=" + card.dcim() + "/" + clip.first + " >/dev/null 2>&1";
            if (std::system(mp4.c_str()) != 0) {
                *why = "could not make the test MP4 (x264enc, mp4mux)";
                return false;
            }
        }
        if (ZEBInitializeZEB(card.path("/mnt/mmc/config/UPnPConfig.xml").c_str()) != 0) {
            *why = "the stack did not initialise";
            return false;
        }
        ZEBCreateDirectoryStructure(card.path("/mnt/mmc/config/DMS/tv.db").c_str());
        int rc = ZEBUtilStartFileScanner(1, card.path("/mnt/mmc/DCIM").c_str());
        ZEBTerminateZEB();
        if (rc != 0) *why = "the media database could not be built";
        return rc == 0;
    }

    std::string file(const std::string& name) const { return card.dcim() + "/" + name; }
    // The content URI the camera hands the renderer for a card file.
    std::string uriOf(const std::string& name) const {
        return std::string("http://") + kCameraAddress + ":" + std::to_string(kStreamingPort) + file(name);
    }
    static uint64_t sizeOf(const std::string& path) {
        struct stat st;
        return stat(path.c_str(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
    }

    Card card;
    std::unique_ptr<NetNamespace> tv, cam;
    std::unique_ptr<EnterNetNamespace> inCam;
    std::unique_ptr<TvRenderer> tvRenderer;
};

// The stories, each against both renderers.
// Each story starts with the renderer up, announced, listed and chosen.
class RendererStory : public DlnaRealStack, public ::testing::WithParamInterface<TvKind> {
protected:
    void SetUp() override {
        DlnaRealStack::SetUp();
        std::string skip = skipReason();
        if (!skip.empty()) GTEST_SKIP() << skip;
        startAndChoose();
    }

    std::string skipReason() {
        std::string why = testsupport::tvUnavailableReason(GetParam());
        if (why.empty() && !makeNetwork(&why)) return why;
        if (why.empty() && !makeMedia(&why)) return why;
        return why;
    }

    std::string gone() {
        return tvRenderer && tvRenderer->alive() ? "" : std::string(" (") + testsupport::tvKindName(GetParam()) + " has ended)";
    }

    // The renderer comes up, is announced to the UI (REFRESH_DMR_LIST),
    // listed with its own name and details, and chosen.
    void startAndChoose() {
        tvRenderer.reset(new TvRenderer(GetParam(), *tv, "tv0", kTvName));
        ASSERT_EQ(DlnaMrcpStart(uiCallback), 1);
        ASSERT_TRUE(tvRenderer->locate(20000)) << "the renderer never answered a search of its own" << gone();
        udn = tvRenderer->udn();
        ASSERT_TRUE(eventually(20000, [&] {
            std::lock_guard<std::mutex> g(gLock);
            return std::find(gAddedUdns.begin(), gAddedUdns.end(), udn) != gAddedUdns.end();
        })) << "the renderer was never announced: " << eventList();
        {
            std::lock_guard<std::mutex> g(gLock);
            for (auto& added : gAddedUdns) EXPECT_EQ(added, udn) << "only the TV is a renderer on this network";
        }
        int count = 0;
        DmrListEntry* list = nullptr;
        ASSERT_EQ(DlnaMrcpGetDmrList(&count, &list), 1);
        ASSERT_EQ(count, 1);
        ASSERT_NE(list, nullptr);
        EXPECT_STREQ(list[0].name, kTvName);
        EXPECT_STREQ(list[0].udn, udn.c_str());
        DeviceInfo info = {};
        ASSERT_EQ(DlnaMrcpGetDeviceInformation(&info, 0), 1);
        EXPECT_STREQ(info.ip, "198.51.100.1");
        EXPECT_STREQ(info.modelName, tvRenderer->modelName().c_str());
        ASSERT_EQ(DlnaMrcpSetDmr(0, list[0].udn), 1);
    }

    // Shows one photo: SHOW_READY, no failure, and the renderer fetched the
    // whole file from the camera's streaming server. With lookAtTv, the
    // renderer's own view of it too.
    void showPhoto(const std::string& name, size_t nth, bool lookAtTv = true) {
        const uint64_t before = host::upnpstack::streamingBytesSent();
        const uint64_t size = sizeOf(file(name));
        ASSERT_GT(size, 0u);
        ASSERT_EQ(DlnaMrcpShowFile(file(name).c_str()), 1) << name;
        ASSERT_TRUE(waitForEvent("SHOW_READY", nth, 20000)) << name << ": " << eventList() << gone();
        EXPECT_EQ(countOf("PLAY_FAILED"), 0u) << name << ": " << eventList() << gone();
        EXPECT_TRUE(eventually(5000, [&] { return host::upnpstack::streamingBytesSent() - before >= size; }))
            << name << ": the renderer did not fetch the whole photo";
        // Rygel keeps a photo on screen (PLAYING, its URI current);
        // gmediarender shows it for a moment, then stops and clears its URI.
        if (!lookAtTv) return;
        if (GetParam() == TvKind::kRygel) {
            EXPECT_EQ(tvRenderer->transportState(), "PLAYING") << name;
            EXPECT_EQ(tvRenderer->currentUri(), uriOf(name));
        } else {
            EXPECT_TRUE(eventually(5000, [&] { return tvRenderer->transportState() == "STOPPED"; })) << name;
        }
    }

    // Plays a card video: PLAY_STARTED.
    void playVideo(const std::string& name) {
        ASSERT_EQ(DlnaMrcpPlayFile(file(name).c_str()), 1) << name;
        ASSERT_TRUE(waitForEvent("PLAY_STARTED", 1, 20000)) << name << ": " << eventList() << gone();
    }

    std::string udn;
};

INSTANTIATE_TEST_SUITE_P(Renderers, RendererStory, ::testing::Values(TvKind::kGmediarender, TvKind::kRygel),
                         [](const ::testing::TestParamInfo<TvKind>& p) {
                             return std::string(p.param == TvKind::kRygel ? "Rygel" : "Gmediarender");
                         });

}  // namespace

// Three photos in a row, each fetched in full and shown: no photo fails,
// not even every second one.
TEST_P(RendererStory, IsListedChosenAndShowsThreePhotosInARow) {
    for (int i = 1; i <= 3; ++i) {
        showPhoto("SAM_000" + std::to_string(i) + ".JPG", static_cast<size_t>(i));
        if (HasFatalFailure()) return;
    }
    EXPECT_EQ(countOf("SHOW_READY"), 3u) << eventList();
    EXPECT_EQ(countOf("PLAY_FAILED"), 0u) << eventList();
}

// A video right after a photo, the way a user goes through the card: the
// renderer may still be busy with the photo when the video's URI is sent.
// It plays to its end: PLAY_STARTED, its position advancing, PLAY_COMPLETE.
TEST_P(RendererStory, PlaysAVideoToItsEndRightAfterAPhoto) {
    showPhoto("SAM_0001.JPG", 1, false);  // the video follows at once
    if (HasFatalFailure()) return;
    playVideo("SAM_0004.MP4");
    if (HasFatalFailure()) return;
    EXPECT_EQ(tvRenderer->currentUri(), uriOf("SAM_0004.MP4"));
    // The position advances as the renderer itself reports it, and the UI
    // hears of it (PLAY_POSITION, within the clip's 8 seconds).
    const int first = tvRenderer->relTimeSeconds();
    EXPECT_TRUE(eventually(6000, [&] { return tvRenderer->relTimeSeconds() > first; }))
        << "the position stayed at " << first << gone();
    EXPECT_TRUE(waitForEvent("PLAY_POSITION", 1, 10000)) << eventList();
    EXPECT_TRUE(waitForEvent("PLAY_COMPLETE", 1, 30000)) << eventList() << gone();
    EXPECT_EQ(countOf("PLAY_FAILED"), 0u) << eventList();
    EXPECT_EQ(countOf("UNSUPPORTED_FILE"), 0u) << eventList();
    {
        std::lock_guard<std::mutex> g(gLock);
        for (intptr_t p : gPositions) EXPECT_TRUE(p >= 0 && p <= 8) << p;
    }
    EXPECT_EQ(tvRenderer->transportState(), "STOPPED");
    EXPECT_GE(host::upnpstack::streamingBytesSent(), sizeOf(file("SAM_0004.MP4")));
}

// Pause and resume as the renderer sees them, a seek that moves its
// position there, and the volume set and read back.
TEST_P(RendererStory, PausesResumesSeeksAndSetsTheVolume) {
    playVideo("SAM_0005.MP4");
    if (HasFatalFailure()) return;
    // As a user does, once the video runs: the position bar shows it (a
    // renderer still opening its stream may ignore a seek).
    ASSERT_TRUE(waitForEvent("PLAY_POSITION", 1, 10000)) << eventList() << gone();
    ASSERT_TRUE(eventually(5000, [&] { return tvRenderer->relTimeSeconds() >= 1; })) << gone();

    ASSERT_EQ(DlnaMrcpPauseFile(), 1);
    EXPECT_TRUE(waitForEvent("PLAY_PAUSED", 1, 10000)) << eventList() << gone();
    EXPECT_EQ(tvRenderer->transportState(), "PAUSED_PLAYBACK");
    ASSERT_EQ(DlnaMrcpResumeFile(), 1);
    EXPECT_TRUE(waitForEvent("PLAY_RESUMED", 1, 10000)) << eventList() << gone();
    EXPECT_EQ(tvRenderer->transportState(), "PLAYING");

    ASSERT_EQ(DlnaMrcpSeekFile("0:00:08"), 1);
    EXPECT_TRUE(eventually(5000, [&] { return tvRenderer->relTimeSeconds() >= 8; }))
        << "the renderer's position did not jump to the target: " << tvRenderer->relTimeSeconds();

    ASSERT_EQ(DlnaMrcpSetVolume(nullptr, 37), 1);
    EXPECT_TRUE(eventually(5000, [&] { return tvRenderer->volume() == 37; })) << tvRenderer->volume();
    ASSERT_EQ(DlnaMrcpGetVolume(nullptr), 1);
    EXPECT_TRUE(eventually(5000, [&] { return loggedContaining("Volume : 37"); }));
    EXPECT_EQ(countOf("PLAY_FAILED"), 0u) << eventList();
}

// The TV is switched off while a video plays: SELECTED_DMR_BYEBYE, and
// terminate returns at once.
TEST_P(RendererStory, RendererLeavingWhileAVideoPlaysIsReportedAndTerminateReturnsAtOnce) {
    playVideo("SAM_0005.MP4");
    if (HasFatalFailure()) return;
    tvRenderer->end();
    EXPECT_TRUE(waitForEvent("SELECTED_DMR_BYEBYE", 1, 10000)) << eventList();
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(DlnaMrcpTerminate(), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(3));
    EXPECT_FALSE(host::upnpstack::controlPointUp());
    EXPECT_FALSE(host::upnpstack::streamingServerRunning());
}

// The TV hangs while a video plays (its network stack still accepts, the
// renderer answers nothing): terminate still returns promptly.
TEST_P(RendererStory, TerminateReturnsPromptlyWhenTheTvHangsMidVideo) {
    playVideo("SAM_0005.MP4");
    if (HasFatalFailure()) return;
    tvRenderer->freeze();
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(DlnaMrcpTerminate(), 1);
    auto took = std::chrono::steady_clock::now() - t0;
    tvRenderer->thaw();
    EXPECT_LT(took, std::chrono::seconds(3)) << std::chrono::duration_cast<std::chrono::milliseconds>(took).count() << " ms";
    EXPECT_FALSE(host::upnpstack::controlPointUp());
}

// A TV that accepts every request and never answers: the photo's STOP
// fails (801) within the stack's bounded action time, the UI is not left
// hanging on a call, and terminate returns at once.
TEST_F(DlnaRealStack, RendererThatNeverAnswersFailsWithinTheActionTimeAndTerminateReturnsAtOnce) {
    std::string why;
    if (!makeNetwork(&why)) GTEST_SKIP() << why;
    if (!makeMedia(&why)) GTEST_SKIP() << why;
    const std::string fakeUdn = "uuid:5eb1c0de-0000-4000-8000-00000000dead";
    testsupport::SilentRenderer silent(*tv, "198.51.100.1", 49600, fakeUdn, "Silent TV");
    ASSERT_TRUE(silent.ok());
    ASSERT_EQ(DlnaMrcpStart(uiCallback), 1);
    bool found = false;
    for (int i = 0; i < 20 && !found; ++i) {
        silent.announce();
        found = waitForEvent("REFRESH_DMR_LIST", 1, 500);
    }
    ASSERT_TRUE(found) << "the silent renderer was never announced";
    int count = 0;
    DmrListEntry* list = nullptr;
    ASSERT_EQ(DlnaMrcpGetDmrList(&count, &list), 1);
    ASSERT_EQ(count, 1);
    ASSERT_EQ(DlnaMrcpSetDmr(0, list[0].udn), 1);
    auto t0 = std::chrono::steady_clock::now();
    ASSERT_EQ(DlnaMrcpShowFile((card.dcim() + "/SAM_0001.JPG").c_str()), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(1)) << "the UI's call waited for the TV";
    // Settling (3 s) plus the action time (8 s), with room for a busy machine.
    EXPECT_TRUE(eventually(20000, [] { return loggedContaining("Error in sending action == Stop , ErrorCode = 801"); }));
    EXPECT_TRUE(loggedContaining("Dont send the next action until TV is in Stopped state"));
    // A volume request in flight when terminate comes is cut at once.
    ASSERT_EQ(DlnaMrcpSetVolume(nullptr, 20), 1);
    EXPECT_TRUE(eventually(5000, [&] { return silent.heldRequests() >= 2; }));
    t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(DlnaMrcpTerminate(), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(3));
    EXPECT_EQ(countOf("SHOW_READY"), 0u) << eventList();
}

// While the control point runs, the camera is on the network as its
// control-point device: a search from the TV's side finds "CAMERA_MRCP" with
// the camera's fixed UDN, its description and service descriptions are
// served. The camera never lists itself as a renderer, and after terminate
// it is gone.
TEST_F(DlnaRealStack, CameraIsAdvertisedAsItsControlPointDeviceWhileStarted) {
    std::string why;
    if (!makeNetwork(&why)) GTEST_SKIP() << why;
    ASSERT_EQ(DlnaMrcpStart(uiCallback), 1);
    testsupport::FoundDevice camera;
    {
        EnterNetNamespace inTv(*tv);
        ASSERT_TRUE(inTv.ok());
        ASSERT_TRUE(testsupport::searchDevice("CAMERA_MRCP", 10000, &camera)) << "the camera is not on the network";
        EXPECT_EQ(camera.udn, "uuid:a520f180-00a4-1000-b5d5-000e35c6028e");
        EXPECT_EQ(camera.location.find("http://198.51.100.2:"), 0u) << camera.location;
        EXPECT_EQ(testsupport::xmlElement(camera.description, "modelNumber"), "0.765");
        std::string scpd = testsupport::httpGet(testsupport::absoluteUrl(
            camera.location, testsupport::xmlElement(camera.description, "SCPDURL")));
        EXPECT_NE(scpd.find("<scpd"), std::string::npos) << "its AVTransport description is not served";
        EXPECT_NE(scpd.find("SetAVTransportURI"), std::string::npos);
    }
    usleep(3000 * 1000);  // a periodic search has run meanwhile
    int count = -1;
    DmrListEntry* list = nullptr;
    ASSERT_EQ(DlnaMrcpGetDmrList(&count, &list), 1);
    EXPECT_EQ(count, -1) << "the camera listed a renderer where there is none but itself";
    EXPECT_EQ(countOf("REFRESH_DMR_LIST"), 0u) << eventList();
    EXPECT_EQ(DlnaMrcpTerminate(), 1);
    EnterNetNamespace inTv(*tv);
    EXPECT_FALSE(testsupport::searchDevice("CAMERA_MRCP", 3000, &camera)) << "the camera is still advertised";
}

// Start and terminate through the API twenty times in one process: each
// time it starts, and descriptors and threads are back where they were.
TEST_F(DlnaRealStack, StartAndTerminateTwentyTimesLeaveDescriptorsAndThreadsAtBaseline) {
    std::string why;
    if (!makeNetwork(&why)) GTEST_SKIP() << why;
    // One round first: what the process keeps for its whole life (the log
    // file, the file list's pool) is made once and is not a leak.
    ASSERT_EQ(DlnaMrcpStart(uiCallback), 1);
    DlnaMrcpTerminate();
    const int tasks = settledThreads(), fds = openFds();
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(DlnaMrcpStart(uiCallback), 1) << "round " << i;
        EXPECT_TRUE(host::upnpstack::controlPointUp());
        EXPECT_EQ(DlnaMrcpTerminate(), 1);
        // libupnp's pool threads have left its shutdown when it returns but
        // may still be on their way out of the kernel: a bounded wait.
        for (int t = 0; t < 100 && (threads() > tasks || openFds() > fds); ++t) usleep(20 * 1000);
        EXPECT_EQ(openFds(), fds) << "round " << i;
        EXPECT_EQ(threads(), tasks) << "round " << i;
    }
}

// A wrong CAMWIFI_IFACE: the start fails (0) with a log line naming it.
TEST_F(DlnaRealStack, WrongInterfaceMakesStartFailWithALogLineNamingIt) {
    setenv("CAMWIFI_IFACE", "nosuch0", 1);
    EXPECT_EQ(DlnaMrcpStart(uiCallback), 0);
    EXPECT_TRUE(loggedContaining("cannot come up on interface nosuch0 (CAMWIFI_IFACE)"));
    EXPECT_FALSE(host::upnpstack::controlPointUp());
    EXPECT_EQ(DlnaMrcpTerminate(), 1);
}

// An unknown CAMWIFI_DLNA_STACK: the start fails (0) at its first stack call
// with a log line saying which names there are.
TEST_F(DlnaRealStack, UnknownStackNameMakesStartFailWithALogLine) {
    setenv("CAMWIFI_DLNA_STACK", "realtek", 1);
    EXPECT_EQ(DlnaMrcpStart(uiCallback), 0);
    EXPECT_TRUE(loggedContaining("CAMWIFI_DLNA_STACK=realtek names no DLNA stack of this host (use upnp or scripted)"));
    EXPECT_EQ(DlnaMrcpTerminate(), 1);
}
