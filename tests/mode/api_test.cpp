// The mode server's exported API: the UI's callback and answers, mode
// changes, the device description URL and the AT server, with phones played
// by raw loopback clients and event receivers written here.
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <mutex>
#include <thread>

#include "Dlna/DlnaFrame.h"
#include "Dlna/DlnaPath.h"
#include "ModeServer/ModeServer.h"
#include "ModeServer/ModeServerApi.h"
#include "camwifi/camwifi.h"
#include "host_nasl.h"
#include "host_nic.h"
#include "mode/mode_test_util.h"
#include "support/tcp_peer.h"
#include "support/test_support.h"
#include "zeb_stack.h"

using modetest::msSince;
using modetest::NotifyReceiver;
using modetest::reply;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using testsupport::recvUntil;
using testsupport::sendAll;

namespace {

struct UiEvent {
    int event;
    bool hasMac;
    std::string mac, userAgent;
    intptr_t length;
};

std::mutex gLock;
std::condition_variable gChanged;
std::vector<UiEvent> gEvents;
std::function<void(int)> gHook;

void onModeEvent(ZEB_CALLBACK_EVENT event, void* mac, intptr_t userAgent) {
    {
        std::lock_guard<std::mutex> g(gLock);
        UiEvent e{event, mac != nullptr, mac ? static_cast<const char*>(mac) : "",
                  event == 1 && userAgent ? reinterpret_cast<const char*>(userAgent) : "", userAgent};
        gEvents.push_back(e);
        gChanged.notify_all();
    }
    if (gHook) gHook(event);
}

class ModeApi : public testing::Test {
protected:
    void SetUp() override {
        host::reset();
        {
            std::lock_guard<std::mutex> g(gLock);
            gEvents.clear();
        }
        gHook = nullptr;
        // The last answer outlives a terminate: each test starts without one.
        gModeServerConfirmFlag.store(0);
        setenv("CAMWIFI_ROOT", m_root.path().c_str(), 1);
    }
    void TearDown() override {
        ModeServerTerminate();
        for (auto& t : m_threads) t.join();
        for (int fd : m_phones) close(fd);
        if (m_stackUp) ZEBTerminateZEB();
        unsetenv("CAMWIFI_ROOT");
        gHook = nullptr;
    }
    void start(int mode, ZEB_MODE_CALLBACK cb = onModeEvent) {
        ASSERT_EQ(ModeServerStart(cb, mode), 1);
        ASSERT_NE(ptheModeServer.load(), nullptr);
        ASSERT_TRUE(ptheModeServer.load()->waitUntilListening(5000));
    }
    // The stack's configuration with HTTPTCPServerPort = port (none when empty).
    void configure(const std::string& port) {
        const std::string dir = DlnaFixedPath("/mnt/mmc/config");
        ASSERT_EQ(system(("mkdir -p '" + dir + "'").c_str()), 0);
        std::ofstream(dir + "/UPnPConfig.xml")
            << "<?xml version=\"1.0\"?>\n<UPnPConfig>\n"
            << (port.empty() ? "" : "  <HTTPTCPServerPort>" + port + "</HTTPTCPServerPort>\n") << "</UPnPConfig>\n";
        ASSERT_EQ(ZEBInitializeZEB(DlnaFixedPath("/mnt/mmc/config/UPnPConfig.xml").c_str()), 0);
        m_stackUp = true;
    }
    // Phone n sends text on a thread of its own (its answer may wait for the
    // user); the reply lands in *out.
    void phoneAsync(int n, const std::string& text, std::string* out) {
        int fd = testsupport::connectFrom("127.0.0." + std::to_string(n), "127.0.0.1", 7788);
        ASSERT_GE(fd, 0);
        m_phones.push_back(fd);
        ASSERT_TRUE(sendAll(fd, text));
        m_threads.emplace_back([fd, out] { *out = recvUntil(fd, "\r\n\r\n", 15000); });
    }
    std::string phone(int n, const std::string& text) {
        std::string out;
        phoneAsync(n, text, &out);
        m_threads.back().join();
        m_threads.pop_back();
        return out;
    }
    std::vector<UiEvent> waitEvents(size_t count, int timeoutMs = 5000) {
        std::unique_lock<std::mutex> g(gLock);
        gChanged.wait_for(g, std::chrono::milliseconds(timeoutMs), [&] { return gEvents.size() >= count; });
        return gEvents;
    }
    std::string callbackTo(const NotifyReceiver& r) {
        return "<http://127.0.0.1:" + std::to_string(r.port()) + "/eventCallback>";
    }

    testsupport::TempDir m_root;
    bool m_stackUp = false;
    std::vector<int> m_phones;
    std::vector<std::thread> m_threads;
};

TEST_F(ModeApi, PhoneAcceptedByTheUserIsRegisteredAndHearsTheNextModeChange) {
    NotifyReceiver receiver;
    ASSERT_TRUE(receiver.ok());
    start(MS_MODE_IDLE);
    EXPECT_TRUE(testsupport::logged("ModeServerStart() Start: 0", "DLNA_MS"));
    std::string answer;
    phoneAsync(5, modetest::alive("ORB_MODE_Pixel7", callbackTo(receiver)), &answer);
    auto events = waitEvents(1);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].event, 1);
    EXPECT_TRUE(events[0].hasMac);
    EXPECT_EQ(events[0].mac, "") << "a loopback phone is in no ARP cache";
    EXPECT_EQ(events[0].userAgent, "pixel7");
    EXPECT_EQ(ModeServerSendEventToModule(0, 1, "yes"), 1);
    m_threads.back().join();
    m_threads.pop_back();
    EXPECT_EQ(answer, reply(200, "OK", "IDLE"));
    auto devices = ptheModeServer.load()->devices();
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].m_iPort, receiver.port());
    EXPECT_TRUE(testsupport::logged("ClientMacAddress = , ClientUserAgent = pixel7", "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged("wait for confirm!", "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged("received FLG_MS_CONFIRM_YES", "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged("[ModeServerSendEventToModule][0:1:yes]", "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged("sleep for 10msec", "DLNA_MS"));
    EXPECT_EQ(gModeServerConfirmFlag.load(), 0) << "the answer is used up";

    EXPECT_EQ(ModeServerSendEventToModule(1, 3, nullptr), 1);
    EXPECT_TRUE(testsupport::logged("[ModeServerSendEventToModule][1:3:NULL]", "DLNA_MS"));
    auto got = receiver.waitRequests(1, 3000);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0], "NOTIFY /eventCallback HTTP/1.1 \r\nHost: 127.0.0.1:" + std::to_string(receiver.port()) +
                          "\r\nUser-Agent: Tessaly mode server\r\nContent-Length: 116\r\nConnection: Close\r\n\r\n"
                          "<?xml version=\"1.0\"?>\r<e:propertyset><e:property><CurrentMode>InstantSend</CurrentMode>"
                          "</e:property></e:propertyset>");
    // Phones that ask from now on hear the new mode.
    EXPECT_EQ(phone(6, modetest::request()), reply(200, "OK", "InstantSend"));
}

TEST_F(ModeApi, AnswerFromInsideTheCallbackIsTaken) {
    gHook = [](int event) {
        if (event == 1) ModeServerSendEventToModule(0, 1, nullptr);
    };
    start(MS_MODE_RVF);
    EXPECT_EQ(phone(5, modetest::alive("ORB_MODE_A", "<http://127.0.0.5:9000/x>")), reply(200, "OK", "RVF"));
    EXPECT_EQ(ptheModeServer.load()->devices().size(), 1u);
}

TEST_F(ModeApi, RefusedPhoneIsAnswered401AndNotRegistered) {
    gHook = [](int event) {
        if (event == 1) ModeServerSendEventToModule(0, 0, nullptr);
    };
    start(MS_MODE_RVF);
    EXPECT_EQ(phone(5, modetest::alive("ORB_MODE_A", "<http://127.0.0.5:9000/x>")), reply(401, "Unauthorized", "RVF"));
    EXPECT_TRUE(ptheModeServer.load()->devices().empty());
    EXPECT_TRUE(testsupport::logged("received FLG_MS_CONFIRM_NO", "DLNA_MS"));
}

TEST_F(ModeApi, TerminateWhileAConfirmationWaitsAnswersThePhone200WithoutRegistering) {
    start(MS_MODE_IDLE);
    std::string answer;
    phoneAsync(5, modetest::alive("ORB_MODE_A", "<http://127.0.0.5:9000/x>"), &answer);
    ASSERT_EQ(waitEvents(1).size(), 1u);
    auto t0 = std::chrono::steady_clock::now();
    ModeServerTerminate();
    EXPECT_LT(msSince(t0), 4000);
    m_threads.back().join();
    m_threads.pop_back();
    EXPECT_EQ(answer, reply(200, "OK", "IDLE"));
    EXPECT_TRUE(testsupport::logged("ModeServerTerminate() : sem_post", "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged("Not supported Event!", "DLNA_MS"));
    EXPECT_FALSE(testsupport::logged("found HTTP handler", "DLNA_MS"));
    EXPECT_EQ(ptheModeServer.load(), nullptr);
    EXPECT_EQ(gModeServerCallback.load(), nullptr);
    EXPECT_FALSE(ModeServerConfirmSemExists());
}

TEST_F(ModeApi, AnswerGivenWhileNoPhoneWaitsDecidesTheNextPhoneAtOnce) {
    start(MS_MODE_IDLE);
    EXPECT_EQ(ModeServerSendEventToModule(0, 1, nullptr), 1);
    EXPECT_EQ(ModeServerConfirmSemValue(), 1);
    EXPECT_EQ(gModeServerConfirmFlag.load(), FLG_MS_CONFIRM_YES);
    // The callback does not answer; the kept answer decides.
    EXPECT_EQ(phone(5, modetest::alive("ORB_MODE_A", "<http://127.0.0.5:9000/x>")), reply(200, "OK", "IDLE"));
    EXPECT_EQ(ptheModeServer.load()->devices().size(), 1u);
    EXPECT_EQ(ModeServerConfirmSemValue(), 0);
}

TEST_F(ModeApi, ModeChangeWithoutAServerSendsNothing) {
    EXPECT_EQ(ModeServerSendEventToModule(1, 4, "push"), 1);
    EXPECT_EQ(ModeServerSendEventToModule(1, 1, nullptr), 1);
    EXPECT_TRUE(host::journalEntries("ZEBGetNicList").empty());
    EXPECT_TRUE(host::logLinesContaining("HostIp").empty());
    EXPECT_EQ(ModeServerSendEventToModule(7, 0, nullptr), 1) << "other kinds";
}

TEST_F(ModeApi, AnswerWithoutEverStartingIsKeptWithoutAnySemaphorePost) {
    EXPECT_FALSE(ModeServerConfirmSemExists());
    EXPECT_EQ(ModeServerSendEventToModule(0, 1, nullptr), 1);
    EXPECT_EQ(gModeServerConfirmFlag.load(), FLG_MS_CONFIRM_YES);
    EXPECT_FALSE(ModeServerConfirmSemExists()) << "no semaphore is made to take the post";
    EXPECT_TRUE(testsupport::logged("sleep for 10msec", "DLNA_MS"));
    EXPECT_EQ(ModeServerSendEventToModule(0, 0, "no"), 1);
    EXPECT_EQ(gModeServerConfirmFlag.load(), FLG_MS_CONFIRM_NO);
    ModeServerTerminate();
    ModeServerTerminate();
    EXPECT_FALSE(testsupport::logged("ModeServerTerminate() : sem_post", "DLNA_MS"));
    EXPECT_EQ(ptheModeServer.load(), nullptr);
    EXPECT_EQ(gModeServerConfirmFlag.load(), FLG_MS_CONFIRM_NO);
}

TEST_F(ModeApi, AnswerGivenBeforeStartDecidesThePhoneWhoseWaitTerminateEnds) {
    EXPECT_EQ(ModeServerSendEventToModule(0, 0, nullptr), 1);
    start(MS_MODE_IDLE);
    std::string answer;
    phoneAsync(5, modetest::alive("ORB_MODE_A", "<http://127.0.0.5:9000/x>"), &answer);
    ASSERT_EQ(waitEvents(1).size(), 1u);
    // The user is still asked: without a post the phone waits.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_TRUE(testsupport::logged("wait for confirm!", "DLNA_MS"));
    EXPECT_FALSE(testsupport::logged("received FLG_MS_CONFIRM_NO", "DLNA_MS"));
    ModeServerTerminate();
    m_threads.back().join();
    m_threads.pop_back();
    // The wait ended by terminate finds the earlier refusal.
    EXPECT_EQ(answer, reply(401, "Unauthorized", "IDLE"));
    EXPECT_TRUE(testsupport::logged("received FLG_MS_CONFIRM_NO", "DLNA_MS"));
    EXPECT_FALSE(testsupport::logged("Not supported Event!", "DLNA_MS"));
}

TEST_F(ModeApi, TerminateKeepsTheLastAnswer) {
    start(MS_MODE_IDLE);
    EXPECT_EQ(ModeServerSendEventToModule(0, 1, nullptr), 1);
    ModeServerTerminate();
    EXPECT_FALSE(ModeServerConfirmSemExists());
    EXPECT_EQ(gModeServerConfirmFlag.load(), FLG_MS_CONFIRM_YES);
}

TEST_F(ModeApi, TerminateWithASecondPhoneQueuedBehindAWaitingOneReturns) {
    start(MS_MODE_IDLE);
    std::string first, second;
    phoneAsync(5, modetest::alive("ORB_MODE_A", "<http://127.0.0.5:9000/x>"), &first);
    ASSERT_EQ(waitEvents(1).size(), 1u);
    phoneAsync(6, modetest::alive("ORB_MODE_B", "<http://127.0.0.6:9000/x>"), &second);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    auto t0 = std::chrono::steady_clock::now();
    ModeServerTerminate();
    EXPECT_LT(msSince(t0), 4000) << "no wait for an answer outlives the terminate";
    for (auto& t : m_threads) t.join();
    m_threads.clear();
    EXPECT_EQ(first, reply(200, "OK", "IDLE"));
    // The second phone is either dropped unanswered or, when the server took
    // it before the stop, ends its wait like the first.
    EXPECT_TRUE(second.empty() || second == reply(200, "OK", "IDLE")) << second;
    EXPECT_EQ(ptheModeServer.load(), nullptr);
}

TEST_F(ModeApi, NewPhoneWithoutAUiCallbackIsLoggedAndAnswered200Unregistered) {
    start(MS_MODE_IDLE, nullptr);
    CaptureStderr();
    const std::string answer = phone(5, modetest::alive("ORB_MODE_A", "<http://127.0.0.5:9000/x>"));
    const std::string err = GetCapturedStderr();
    EXPECT_EQ(answer, reply(200, "OK", "IDLE"));
    EXPECT_NE(err.find("[DLNA_MS   ] \x1b[31mERROR : gDMSCallback is NULL\x1b[m\n"), std::string::npos);
    auto lines = host::logLinesContaining("ERROR : gDMSCallback is NULL");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].tag, "DLNA_MS");
    EXPECT_EQ(lines[0].priority, 6);
    EXPECT_TRUE(ptheModeServer.load()->devices().empty());
    EXPECT_FALSE(testsupport::logged("wait for confirm!", "DLNA_MS"));
}

TEST_F(ModeApi, RegisteredPhoneLeavingReachesTheUiAsEvent2) {
    gHook = [](int event) {
        if (event == 1) ModeServerSendEventToModule(0, 1, nullptr);
    };
    start(MS_MODE_IDLE);
    phone(5, modetest::alive("ORB_MODE_A", "<http://127.0.0.5:9000/x>"));
    EXPECT_EQ(phone(5, modetest::byebye()), reply(200, "OK", "IDLE"));
    auto events = waitEvents(2);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[1].event, 2);
    EXPECT_FALSE(events[1].hasMac);
    EXPECT_EQ(events[1].length, 0);
    EXPECT_TRUE(testsupport::logged(">> Event : eEVENT_REMOVED_DEVICE!!", "DLNA_MS"));
}

TEST_F(ModeApi, ServerFailureReachesTheUiAsEvent3) {
    std::vector<int> taken;
    for (uint16_t p = 7788; p <= 7791; ++p) taken.push_back(testsupport::occupyPort(p));
    ASSERT_EQ(ModeServerStart(onModeEvent, 0), 1);
    auto events = waitEvents(1);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].event, 3);
    EXPECT_FALSE(events[0].hasMac);
    EXPECT_TRUE(testsupport::logged(">> Event : eINTERNAL_EVENT_FAIL!!", "DLNA_MS"));
    ModeServerTerminate();
    for (int fd : taken) close(fd);
}

TEST_F(ModeApi, PhonePullAnnouncesTheDescriptionUrl) {
    configure("52323");
    host::nic::scriptNicList({{"198.51.100.1", "wlan0"}});
    NotifyReceiver receiver;
    ASSERT_TRUE(receiver.ok());
    start(MS_MODE_IDLE);
    ModeServerSendEventToModule(0, 1, nullptr);  // the phone below is accepted at once
    phone(5, modetest::alive("ORB_MODE_A", callbackTo(receiver)));
    EXPECT_EQ(ModeServerSendEventToModule(1, 1, nullptr), 1);
    auto got = receiver.waitRequests(1, 3000);
    ASSERT_EQ(got.size(), 1u);
    const std::string body = modetest::propertySet(
        {{"CurrentMode", "PhonePull"}, {"DescriptionURL", "http://198.51.100.1:52323"}});
    EXPECT_EQ(got[0], modetest::notifyRequest("127.0.0.1", receiver.port(), body));
    EXPECT_EQ(ptheModeServer.load()->getDescriptionUrl(), "http://198.51.100.1:52323");
}

TEST_F(ModeApi, SelectivePushAnnouncesThePushServersPort) {
    NotifyReceiver receiver;
    ASSERT_TRUE(receiver.ok());
    start(MS_MODE_IDLE);
    ModeServerSendEventToModule(0, 1, nullptr);
    phone(5, modetest::alive("ORB_MODE_A", callbackTo(receiver)));
    // No push server runs: its port reads as 0.
    EXPECT_EQ(ModeServerSendEventToModule(1, 4, nullptr), 1);
    auto got = receiver.waitRequests(1, 3000);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_NE(got[0].find("<SPServerPort>0</SPServerPort>"), std::string::npos);
    EXPECT_TRUE(testsupport::logged("SPServerPort = 0", "DLNA_MS"));
}

TEST_F(ModeApi, FailedNotifyMakesTheModeChangeReturn0) {
    start(MS_MODE_IDLE);
    ModeServerSendEventToModule(0, 1, nullptr);
    phone(5, modetest::alive("ORB_MODE_A", "<http://127.0.0.1:1/eventCallback>"));
    EXPECT_EQ(ModeServerSendEventToModule(1, 0, nullptr), 0);
}

TEST_F(ModeApi, SecondStartWhileRunningIsRefusedAndTheFirstGoesOn) {
    start(MS_MODE_RVF);
    ModeServer* first = ptheModeServer.load();
    EXPECT_EQ(ModeServerStart(onModeEvent, 0), 0);
    EXPECT_EQ(ptheModeServer.load(), first);
    EXPECT_EQ(phone(5, modetest::request()), reply(200, "OK", "RVF"));
}

TEST_F(ModeApi, TerminateFromInsideTheCallbackIsIgnored) {
    gHook = [](int event) {
        if (event == 1) {
            ModeServerTerminate();
            ModeServerSendEventToModule(0, 1, nullptr);
        }
    };
    start(MS_MODE_IDLE);
    EXPECT_EQ(phone(5, modetest::alive("ORB_MODE_A", "<http://127.0.0.5:9000/x>")), reply(200, "OK", "IDLE"));
    EXPECT_TRUE(testsupport::logged("ModeServerTerminate() : called on the server's own thread, ignored", "DLNA_MS"));
    ASSERT_NE(ptheModeServer.load(), nullptr);
    EXPECT_EQ(ptheModeServer.load()->devices().size(), 1u);
}

TEST_F(ModeApi, TerminateLeavesNoDescriptorOrThreadBehind) {
    NotifyReceiver receiver;
    ASSERT_TRUE(receiver.ok());
    const int fds = testsupport::openDescriptorCount();
    const int threads = testsupport::threadCount();
    gHook = [](int event) {
        if (event == 1) ModeServerSendEventToModule(0, 1, nullptr);
    };
    start(MS_MODE_IDLE);
    EXPECT_EQ(phone(5, modetest::alive("ORB_MODE_A", callbackTo(receiver))), reply(200, "OK", "IDLE"));
    EXPECT_EQ(ModeServerSendEventToModule(1, 2, nullptr), 1);
    for (int fd : m_phones) close(fd);
    m_phones.clear();
    ModeServerTerminate();
    EXPECT_EQ(testsupport::openDescriptorCount(), fds);
    EXPECT_EQ(testsupport::threadCount(), threads);
}

// --- device description URL ------------------------------------------------------------

TEST_F(ModeApi, DescriptionUrlUsesTheFirstInterfaceWithAnAddress) {
    configure("52323");
    host::nic::scriptNicList({{"", "p2p0"}, {"198.51.100.1", "wlan0"}, {"198.51.100.9", "wlan1"}});
    char* url = DlnaGetDeviceDescURL();
    ASSERT_NE(url, nullptr);
    EXPECT_STREQ(url, "http://198.51.100.1:52323");
    free(url);
    EXPECT_TRUE(testsupport::logged("pUINetInfo->pIPAddress = 198.51.100.1", "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged("pUINetInfo->pFriendlyName = wlan0", "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged("url = http://198.51.100.1:52323", "DLNA_MS"));
    EXPECT_EQ(host::journalEntries("ZEBGetConfigurationMA"),
              std::vector<std::string>{"ZEBGetConfigurationMA(HTTPTCPServerPort)"});
}

TEST_F(ModeApi, DescriptionUrlWithoutAnyInterfaceAddressUsesTheAccessPointAddress) {
    configure("52323");
    host::nic::scriptNicList({});
    char* url = DlnaGetDeviceDescURL();
    ASSERT_NE(url, nullptr);
    EXPECT_STREQ(url, "http://192.168.107.1:52323");
    free(url);
}

TEST_F(ModeApi, DescriptionUrlWithoutPortSettingEndsAfterTheColon) {
    configure("");
    host::nic::scriptNicList({});
    char* url = DlnaGetDeviceDescURL();
    ASSERT_NE(url, nullptr);
    EXPECT_STREQ(url, "http://192.168.107.1:");
    free(url);
    EXPECT_TRUE(testsupport::logged("can't get desc port()", "DLNA_MS"));
}

TEST_F(ModeApi, DescriptionUrlIsCutToItsBuffer) {
    configure(std::string(80, '9'));
    host::nic::scriptNicList({{"198.51.100.1", "wlan0"}});
    char* url = DlnaGetDeviceDescURL();
    ASSERT_NE(url, nullptr);
    const std::string whole = "http://198.51.100.1:" + std::string(80, '9');
    EXPECT_EQ(std::string(url), whole.substr(0, 63));
    free(url);
}

TEST_F(ModeApi, DescriptionUrlWhenTheInterfaceListFails) {
    configure("52323");
    host::scriptResult("ZEBGetNicList", 1);
    char* url = DlnaGetDeviceDescURL();
    ASSERT_NE(url, nullptr);
    EXPECT_STREQ(url, "http://192.168.107.1:52323");
    free(url);
}

// --- AT server --------------------------------------------------------------------------

TEST_F(ModeApi, AtServerStartAndTerminateWrapTheServiceLibrary) {
    EXPECT_EQ(ATServerStart(), 0);
    EXPECT_TRUE(host::at::serverRunning());
    host::scriptResult("AT_HttpServerTerminate", 5);
    EXPECT_EQ(ATServerTerminate(), 0) << "the library's status is not passed on";
    EXPECT_EQ(host::journalEntries("AT_"),
              (std::vector<std::string>{"AT_HttpSeverStart()", "AT_HttpServerTerminate()"}));
    std::vector<std::string> expected = {"ATServerStart() ENTER ", "ENTER", "EXIT", "ATServerStart() EXIT ",
                                         "ATServerTerminate() ENTER ", "ENTER", "EXIT", "ATServerTerminate() EXIT "};
    EXPECT_EQ(testsupport::messages("DLNA_MS"), expected);
    EXPECT_EQ(AT_HttpServerTerminate_wrapper(), 0);
    EXPECT_FALSE(host::at::serverRunning());
}

}  // namespace
