#include "mrcp_fixture.h"

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <thread>

#include "Dlna/DlnaMrcp.h"
#include "Dlna/DlnaStack.h"
#include "host_control.h"
#include "media/media_fixture.h"
#include "zeb_stack.h"

namespace mrcptest {

namespace {

std::mutex gLock;
std::condition_variable gChanged;
std::vector<Event> gEvents;
std::atomic<int> gDelayMs{0};

}  // namespace

void recordEvent(ZEB_CALLBACK_EVENT event, void* value, CallbackLength length) {
    Event e;
    e.id = event;
    e.length = static_cast<long long>(length);
    e.atMs = host::mrcp::nowMs();
    if ((event == EVT_MRCP_REFRESH_DMR_LIST || event == EVT_MRCP_SELECTED_DMR_BYEBYE) && value != nullptr)
        e.text = static_cast<const char*>(value);
    if (event == EVT_MRCP_PLAY_POSITION && value != nullptr) {
        e.hasPosition = true;
        e.position = *static_cast<const MrcpPlayPosition*>(value);
    }
    if (int delay = gDelayMs.load()) std::this_thread::sleep_for(std::chrono::milliseconds(delay));
    std::lock_guard<std::mutex> g(gLock);
    gEvents.push_back(e);
    gChanged.notify_all();
}

std::vector<Event> events() {
    std::lock_guard<std::mutex> g(gLock);
    return gEvents;
}

std::vector<int> eventIds() {
    std::vector<int> ids;
    for (auto& e : events()) ids.push_back(e.id);
    return ids;
}

void clearEvents() {
    std::lock_guard<std::mutex> g(gLock);
    gEvents.clear();
}

bool waitForEvent(int id, int timeoutMs, size_t count) {
    std::unique_lock<std::mutex> l(gLock);
    return gChanged.wait_for(l, std::chrono::milliseconds(timeoutMs), [&] {
        size_t n = 0;
        for (auto& e : gEvents) n += e.id == id ? 1 : 0;
        return n >= count;
    });
}

void setCallbackDelayMs(int ms) { gDelayMs = ms; }

bool wellFormedXml(const std::string& text) {
    char name[] = "/tmp/mrcp-xml-XXXXXX";
    int fd = mkstemp(name);
    if (fd < 0) return false;
    close(fd);
    {
        std::ofstream out(name, std::ios::binary);
        out << text;
    }
    std::string command =
        std::string("python3 -c 'import sys, xml.dom.minidom; xml.dom.minidom.parse(sys.argv[1])' ") + name +
        " 2>/dev/null";
    int status = system(command.c_str());
    unlink(name);
    return status == 0;
}

void MrcpTest::SetUp() {
    host::reset();
    clearEvents();
    setCallbackDelayMs(0);
    setenv("CAMWIFI_ROOT", m_root.path().c_str(), 1);
    gDlnaStackInitialized = false;
    gDlnaHTTPInitialized = false;
    gMrcpStarted = false;
    gMrcpCallbacksOpen = false;
    gMrcpProfileID = kMrcpNoProfile;
    // A terminate keeps the chosen renderer and the list: each case begins
    // with none chosen and none listed.
    MrcpForgetRenderers();
    // Only the list test waits the real 2 seconds.
    gMrcpListWaitMs = 0;
    SetAllShareMode(0);
    SetSelectImagePath(nullptr);
    SetACLMode(4);
    DlnaMrcpSetCallback(nullptr);
    writeConfig();
    mediatest::writeFile(photo(), mediatest::jpegBytes(640, 480));
    mediatest::writeFile(photo2(), mediatest::jpegBytes(1920, 1080));
    mediatest::writeFile(video(), mediatest::mp4Bytes(5000, 320, 240));
}

void MrcpTest::TearDown() {
    DlnaMrcpTerminate();
    EXPECT_TRUE(host::mrcp::timers().empty()) << "a timer outlived terminate";
    EXPECT_EQ(host::mrcp::liveObjects(), 0) << "a request, response or notification was not released";
    host::reset();
    DlnaMrcpSetCallback(nullptr);
    setCallbackDelayMs(0);
    unsetenv("CAMWIFI_ROOT");
}

void MrcpTest::writeConfig(const std::vector<std::string>& omit) {
    const std::vector<std::pair<std::string, std::string>> keys = {
        {"HTTPStreamingPort", "18100"},
        {"SHARED-MEDIA-FOLDER-PATH", dcim()},
        {"MEDIA-DB-FILEPATH", dbPath()},
        {"MEDIA-TV-DB-FILEPATH", tvDbPath()},
    };
    std::string xml = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<UPnPConfig>\n";
    for (auto& kv : keys) {
        bool skip = false;
        for (auto& o : omit) skip = skip || o == kv.first;
        if (!skip) xml += "  <" + kv.first + ">" + kv.second + "</" + kv.first + ">\n";
    }
    xml += "</UPnPConfig>\n";
    mediatest::writeFile(path("/mnt/mmc/config/UPnPConfig.xml"), xml);
}

void MrcpTest::buildDatabase() {
    // The stack must know its configuration for the scanner to find the
    // database files; the control point's start does the same later.
    bool wasUp = gDlnaStackInitialized;
    if (!wasUp) {
        ASSERT_EQ(ZEBInitializeZEB(path("/mnt/mmc/config/UPnPConfig.xml").c_str()), 0);
    }
    ZEBCreateDirectoryStructure(tvDbPath().c_str());
    ASSERT_EQ(ZEBUtilStartFileScanner(1, dcim().c_str()), 0);
    if (!wasUp) ZEBTerminateZEB();
}

bool MrcpTest::start() { return DlnaMrcpStart(recordEvent) == 1; }

void MrcpTest::chooseRenderer(int n, int chosen) {
    std::vector<host::mrcp::Renderer> renderers;
    for (int i = 0; i < n; ++i) {
        host::mrcp::Renderer r;
        r.name = "TV " + std::to_string(i);
        r.udn = udnOf(i);
        renderers.push_back(r);
    }
    host::mrcp::setRenderers(renderers);
    int count = -1;
    DmrListEntry* list = nullptr;
    ASSERT_EQ(DlnaMrcpGetDmrList(&count, &list), 1);
    ASSERT_EQ(DlnaMrcpSetDmr(chosen, udnOf(chosen).c_str()), 1);
}

host::mrcp::SentRequest MrcpTest::lastRequest(const std::string& action) {
    auto sent = host::mrcp::sentRequests(action);
    EXPECT_FALSE(sent.empty()) << "no " << action << " request was sent";
    return sent.empty() ? host::mrcp::SentRequest() : sent.back();
}

host::mrcp::SentRequest MrcpTest::waitForRequest(const std::string& action, size_t count, int timeoutMs) {
    EXPECT_TRUE(host::mrcp::waitForRequests(action, count, timeoutMs)) << "no " << action << " request #" << count;
    auto sent = host::mrcp::sentRequests(action);
    return sent.size() >= count ? sent[count - 1] : host::mrcp::SentRequest();
}

void MrcpTest::deliver(const host::mrcp::Response& a) {
    ASSERT_TRUE(host::mrcp::deliverResponse(a));
    ASSERT_TRUE(host::mrcp::waitIdle());
}

void MrcpTest::answerLast(const std::string& action, int error) {
    host::mrcp::Response a = host::mrcp::answerTo(lastRequest(action));
    a.error = error;
    deliver(a);
}

void MrcpTest::answerTransportInfo(const host::mrcp::SentRequest& r, const std::string& state,
                                   const std::string& status) {
    host::mrcp::Response a = host::mrcp::answerTo(r);
    a.transportState = state;
    a.transportStatus = status;
    deliver(a);
}

void MrcpTest::notifyTransportState(const std::string& udn, const std::string& state) {
    host::mrcp::StatusNotification n;
    n.udn = udn;
    n.variables = {{"LastChange", host::mrcp::lastChange({{"TransportState", state}})}};
    ASSERT_TRUE(host::mrcp::deliverStatus(n));
    ASSERT_TRUE(host::mrcp::waitIdle());
}

}  // namespace mrcptest
