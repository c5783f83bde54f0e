// The renderer control point of libcamwifi on the real DLNA stack, driven
// only through the library's exported functions, against gmediarender (a
// MediaRenderer on its own pupnp) in a network namespace of its own. The
// camera's side runs in a second namespace joined to the TV's by a veth
// pair: the test thread enters it before the library starts, so every
// thread the library and the stack start lives there.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

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
#include "zeb_stack.h"

using testsupport::EnterNetNamespace;
using testsupport::NetNamespace;
using testsupport::haveCommand;
using testsupport::openFds;
using testsupport::threads;
using testsupport::NsProcess;

namespace {

const char* const kTvUdn = "uuid:5eb1c0de-0000-4000-8000-0000000000a7";
const char* const kTvName = "Camera Test TV";

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

void uiCallback(ZEB_CALLBACK_EVENT event, void* value, intptr_t) {
    std::lock_guard<std::mutex> g(gLock);
    gEvents.push_back(eventName(event));
    if (event == EVT_MRCP_REFRESH_DMR_LIST && value != nullptr) gAddedUdns.push_back(static_cast<const char*>(value));
    gChanged.notify_all();
}

size_t countOf(const std::string& name) {
    size_t n = 0;
    for (auto& e : gEvents) n += e == name ? 1 : 0;
    return n;
}

// Waits until count events of that name arrived in all.
bool waitForEvent(const std::string& name, size_t count, int timeoutMs) {
    std::unique_lock<std::mutex> l(gLock);
    return gChanged.wait_for(l, std::chrono::milliseconds(timeoutMs), [&] { return countOf(name) >= count; });
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
        renderer.reset();
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

    // gmediarender as the TV, with sinks that keep real time.
    void startRenderer() {
        renderer.reset(new NsProcess(*tv, {"gmediarender", "-I", "tv0", "-p", "49494", "-u", std::string(kTvUdn + 5),
                                           "-f", kTvName, "--gstout-audiopipe", "fakesink sync=true",
                                           "--gstout-videopipe", "fakesink sync=true"}));
    }

    // Test pictures and a clip made with GStreamer, and the stack's media
    // database of them (what the camera's media server keeps).
    bool makeMedia(std::string* why) {
        for (int i = 1; i <= 2; ++i) {
            std::string cmd = "gst-launch-1.0 -q videotestsrc num-buffers=1 pattern=" + std::to_string(i) +
                              " ! video/x-raw,width=640,height=480 ! jpegenc ! filesink location=" + card.dcim() +
                              "/SAM_000" + std::to_string(i) + ".JPG >/dev/null 2>&1";
            if (std::system(cmd.c_str()) != 0) {
                *why = "could not make test JPEGs with GStreamer";
                return false;
            }
        }
        std::string mp4 = "gst-launch-1.0 -q videotestsrc num-buffers=40 ! video/x-raw,width=320,height=240,"
                          "framerate=10/1 ! x264enc ! mp4mux ! filesink location=" + card.dcim() +
                          "/SAM_0003.MP4 >/dev/null 2>&1";
        if (std::system(mp4.c_str()) != 0) {
            *why = "could not make the test MP4 (x264enc, mp4mux)";
            return false;
        }
        // The media server's database, built by the stack's scanner as the
        // camera's media server would have built it.
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

    std::string skipReasonForRenderer() {
        std::string why;
        if (!haveCommand("gmediarender")) return "gmediarender is not installed (scripts/setup.sh --upnp installs it)";
        if (!haveCommand("gst-launch-1.0")) return "gst-launch-1.0 is not installed (scripts/setup.sh --upnp)";
        if (!makeNetwork(&why)) return why;
        if (!makeMedia(&why)) return why;
        return "";
    }

    std::string rendererGone() { return renderer && renderer->alive() ? "" : " (gmediarender has ended)"; }

    Card card;
    std::unique_ptr<NetNamespace> tv, cam;
    std::unique_ptr<EnterNetNamespace> inCam;
    std::unique_ptr<NsProcess> renderer;
};

}  // namespace

// The whole way of a photo and a video from the UI's calls to a real TV: the
// renderer is announced and listed with its own name, chosen, shows a photo
// it fetched in full from the camera's streaming server, and plays an MP4 to
// its end; terminate returns.
TEST_F(DlnaRealStack, RendererIsListedChosenShowsAPhotoAndPlaysAVideoToItsEnd) {
    std::string skip = skipReasonForRenderer();
    if (!skip.empty()) GTEST_SKIP() << skip;
    startRenderer();
    ASSERT_EQ(DlnaMrcpStart(uiCallback), 1);
    ASSERT_TRUE(waitForEvent("REFRESH_DMR_LIST", 1, 20000)) << "the renderer was never announced: " << eventList();
    {
        std::lock_guard<std::mutex> g(gLock);
        EXPECT_EQ(gAddedUdns.at(0), kTvUdn);
    }

    int count = 0;
    DmrListEntry* list = nullptr;
    ASSERT_EQ(DlnaMrcpGetDmrList(&count, &list), 1);
    ASSERT_EQ(count, 1);
    ASSERT_NE(list, nullptr);
    EXPECT_STREQ(list[0].name, kTvName);
    EXPECT_STREQ(list[0].udn, kTvUdn);
    DeviceInfo info = {};
    ASSERT_EQ(DlnaMrcpGetDeviceInformation(&info, 0), 1);
    EXPECT_STREQ(info.ip, "198.51.100.1");
    EXPECT_STREQ(info.modelName, "gmediarender");
    ASSERT_EQ(DlnaMrcpSetDmr(0, list[0].udn), 1);

    // A photo: Stop, SetAVTransportURI, Play; SHOW_READY once it plays.
    std::string photo = card.dcim() + "/SAM_0001.JPG";
    struct stat st;
    ASSERT_EQ(stat(photo.c_str(), &st), 0);
    ASSERT_EQ(DlnaMrcpShowFile(photo.c_str()), 1);
    ASSERT_TRUE(waitForEvent("SHOW_READY", 1, 20000)) << eventList() << rendererGone();
    EXPECT_EQ(countOf("PLAY_FAILED"), 0u) << eventList() << rendererGone();
    for (int i = 0; i < 100 && host::upnpstack::streamingBytesSent() < static_cast<uint64_t>(st.st_size); ++i)
        usleep(50 * 1000);
    EXPECT_GE(host::upnpstack::streamingBytesSent(), static_cast<uint64_t>(st.st_size))
        << "the renderer did not fetch the whole photo";

    // gmediarender shows a photo for a moment and stops by itself; a new
    // URI sent before it has stopped is dropped when the stop lands (it
    // clears its URI). A UI waits for the TV to have stopped, as here.
    for (int i = 0; i < 100 && DlnaMrcpGetRendererState(kTvUdn) != 0; ++i) usleep(50 * 1000);
    EXPECT_EQ(DlnaMrcpGetRendererState(kTvUdn), 0) << "the renderer did not stop after the photo";

    // A video: PLAY_STARTED, then PLAY_COMPLETE at its end (4 seconds).
    std::string clip = card.dcim() + "/SAM_0003.MP4";
    ASSERT_EQ(DlnaMrcpPlayFile(clip.c_str()), 1);
    ASSERT_TRUE(waitForEvent("PLAY_STARTED", 1, 20000)) << eventList() << rendererGone();
    EXPECT_TRUE(waitForEvent("PLAY_COMPLETE", 1, 30000)) << eventList() << rendererGone();
    EXPECT_EQ(countOf("PLAY_FAILED"), 0u) << eventList();
    EXPECT_EQ(countOf("UNSUPPORTED_FILE"), 0u) << eventList();

    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(DlnaMrcpTerminate(), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(10));
    EXPECT_FALSE(host::upnpstack::controlPointUp());
    EXPECT_FALSE(host::upnpstack::streamingServerRunning());
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
