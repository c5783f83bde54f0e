// The push server over loopback: phones played by raw test clients from
// distinct 127.0.0.N addresses (each gets its own MAC from the host ARP
// stand-in), the UI played by the server's callback.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "SP/server/SPServer.h"
#include "support/netns.h"
#include "support/tcp_peer.h"
#include "support/test_support.h"

using testsupport::recvUntil;
using testsupport::sendAll;

// ---- A socket option that cannot be set ----------------------------------------
// The kernel never refuses SO_REUSEADDR on a fresh socket, so this suite
// stands in for setsockopt itself (the library is linked into this program,
// so its calls come here): every call goes on to the system's, except that,
// while armed, SO_REUSEADDR asked for on the push server's thread fails as
// an unsupported option would.
std::atomic<bool> gFailServerReuseAddr{false};
std::atomic<int> gRefusedReuseAddr{0};

extern "C" int setsockopt(int fd, int level, int name, const void* value, socklen_t length) noexcept {
    using Setsockopt = int (*)(int, int, int, const void*, socklen_t);
    static const Setsockopt system = reinterpret_cast<Setsockopt>(dlsym(RTLD_NEXT, "setsockopt"));
    if (level == SOL_SOCKET && name == SO_REUSEADDR && gFailServerReuseAddr.load()) {
        char thread[16] = {};
        prctl(PR_GET_NAME, thread, 0, 0, 0);
        if (strcmp(thread, "SPServerThread") == 0) {
            ++gRefusedReuseAddr;
            errno = ENOPROTOOPT;
            return -1;
        }
    }
    return system(fd, level, name, value, length);
}

namespace {

const std::string kOk =
    "HTTP/1.1 200 OK\r\nServer: ORB_SP_Camera\r\nContent-Type: text/xml;charset=utf-8 \r\n"
    "Cache-Control: no-cache\r\n\r\n";
const std::string k401 = "HTTP/1.1 401 Unauthorized\r\nServer: ORB_SP_Camera\r\n\r\n";
const std::string k503 = "HTTP/1.1 503 Service Unavailable\r\nServer: ORB_SP_Camera\r\n\r\n";

struct UiEvent {
    eSPNotifyControlEvent event;
    bool hasInfo;
    stSPInformation info;
};

std::mutex gLock;
std::condition_variable gChanged;
std::vector<UiEvent> gEvents;
std::function<void(eSPNotifyControlEvent, stSPInformation*)> gHook;

void onServerEvent(eSPNotifyControlEvent event, stSPInformation* info) {
    if (gHook) gHook(event, info);
    std::lock_guard<std::mutex> g(gLock);
    UiEvent e{event, info != nullptr, {}};
    if (info) e.info = *info;
    gEvents.push_back(e);
    gChanged.notify_all();
}

std::string mac(int n) {
    char text[18];
    snprintf(text, sizeof text, "02:00:7f:00:00:%02x", n);
    return text;
}

std::string ip(int n) { return "127.0.0." + std::to_string(n); }

// True once the push server logged text, polling for at most timeoutMs.
bool loggedWithin(const std::string& text, int timeoutMs) {
    for (int waited = 0; waited < timeoutMs; waited += 10) {
        if (testsupport::logged(text, "DLNA_SP")) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return testsupport::logged(text, "DLNA_SP");
}

std::string aliveFrom(int n, int dataPort = 8080, const std::string& extra = "") {
    return "GET /sp/control HTTP/1.1\r\nHOST: 127.0.0.1:8100\r\nNTS: alive\r\nUser-Agent: ORB_SP_Phone" +
           std::to_string(n) + "\r\nHOST-PNumber: 0101234567" + std::to_string(n % 10) + "\r\nData-Server: " + ip(n) +
           ":" + std::to_string(dataPort) + "\r\n" + extra + "\r\n";
}

std::string byebyeFrom(int n) {
    return "GET /sp/control HTTP/1.1\r\nNTS: byebye\r\nData-Server: " + ip(n) + ":8080\r\n\r\n";
}

class PushServer : public testing::Test {
protected:
    void SetUp() override {
        host::reset();
        {
            std::lock_guard<std::mutex> g(gLock);
            gEvents.clear();
        }
        gHook = nullptr;
    }
    void TearDown() override {
        delete m_server;
        m_server = nullptr;
        for (int fd : m_phones) close(fd);
        gHook = nullptr;
    }
    void startServer() {
        m_server = new SPServer;
        m_server->setCallback(onServerEvent);
        m_server->start();
        ASSERT_EQ(m_server->waitSemaphore(5000), 1);
    }
    // Connects phone n and sends text; the connection is closed at tear-down.
    int phoneSends(int n, const std::string& text, uint16_t port = 8100) {
        int fd = testsupport::connectFrom(ip(n), "127.0.0.1", port);
        EXPECT_GE(fd, 0);
        if (fd >= 0) {
            m_phones.push_back(fd);
            EXPECT_TRUE(sendAll(fd, text));
        }
        return fd;
    }
    // Waits until at least count events arrived; returns a copy of them.
    std::vector<UiEvent> waitEvents(size_t count, int timeoutMs = 5000) {
        std::unique_lock<std::mutex> g(gLock);
        gChanged.wait_for(g, std::chrono::milliseconds(timeoutMs), [&] { return gEvents.size() >= count; });
        return gEvents;
    }
    std::vector<UiEvent> eventsNow() {
        std::lock_guard<std::mutex> g(gLock);
        return gEvents;
    }

    SPServer* m_server = nullptr;
    std::vector<int> m_phones;
};

TEST_F(PushServer, ListensOn8100AndTellsTheUiItIsReady) {
    startServer();
    EXPECT_EQ(m_server->getServerPort(), 8100);
    auto events = waitEvents(1);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].event, EVENT_DEVICE_SERVER_READY);
    EXPECT_FALSE(events[0].hasInfo);
    EXPECT_TRUE(testsupport::logged("\033[m[SP] bind success with 8100", "DLNA_SP"));
    EXPECT_TRUE(testsupport::logged("WAIT FOR READY !!", "DLNA_SP"));
    EXPECT_TRUE(testsupport::logged("SERVER IS READY !!", "DLNA_SP"));
    // Logged by the server thread after it posted the ready semaphore.
    delete m_server;
    m_server = nullptr;
    EXPECT_TRUE(testsupport::logged("BIND IS OK !!", "DLNA_SP"));
}

TEST_F(PushServer, FallsBackToThirdPortWhenTheFirstTwoAreTaken) {
    int a = testsupport::occupyPort(8100), b = testsupport::occupyPort(8101);
    ASSERT_GE(a, 0);
    ASSERT_GE(b, 0);
    startServer();
    EXPECT_EQ(m_server->getServerPort(), 8102);
    EXPECT_TRUE(testsupport::logged("\033[m[SP] port 8100 is busy!", "DLNA_SP"));
    EXPECT_TRUE(testsupport::logged("\033[m[SP] port 8101 is busy!", "DLNA_SP"));
    // A phone reaches it there.
    phoneSends(5, aliveFrom(5), 8102);
    auto events = waitEvents(2);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[1].event, EVENT_DEVICE_NEW);
    close(a);
    close(b);
}

TEST_F(PushServer, AllThreePortsTakenStopsTheServerWithEvent3) {
    int a = testsupport::occupyPort(8100), b = testsupport::occupyPort(8101), c = testsupport::occupyPort(8102);
    ASSERT_GE(a, 0);
    ASSERT_GE(b, 0);
    ASSERT_GE(c, 0);
    m_server = new SPServer;
    m_server->setCallback(onServerEvent);
    m_server->start();
    EXPECT_EQ(m_server->waitSemaphore(300), 0);
    EXPECT_TRUE(testsupport::logged("TIMEOUT !!", "DLNA_SP"));
    auto events = waitEvents(1);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].event, EVENT_DEVICE_SERVER_FAIL);
    EXPECT_TRUE(testsupport::logged("[SP] bind() error", "DLNA_SP"));
    close(a);
    close(b);
    close(c);
}

TEST_F(PushServer, SocketOptionThatCannotBeSetStopsTheServerWithEvent3) {
    const int fdsBefore = testsupport::openDescriptorCount();
    gRefusedReuseAddr = 0;
    gFailServerReuseAddr = true;
    m_server = new SPServer;
    m_server->setCallback(onServerEvent);
    m_server->start();
    EXPECT_EQ(m_server->waitSemaphore(300), 0);
    auto events = waitEvents(1);
    m_server->stopAndJoin();
    gFailServerReuseAddr = false;
    EXPECT_GT(gRefusedReuseAddr.load(), 0);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].event, EVENT_DEVICE_SERVER_FAIL);
    EXPECT_FALSE(events[0].hasInfo);
    EXPECT_TRUE(testsupport::logged("[SP] setsockopt() SO_REUSEADD Rerror", "DLNA_SP"));
    // The thread ended there: nothing bound, nothing listening, the socket
    // closed, and no ready event after the failure.
    EXPECT_FALSE(testsupport::logged("\033[m[SP] bind success with 8100", "DLNA_SP"));
    EXPECT_EQ(m_server->getServerPort(), 0);
    EXPECT_LT(testsupport::connectFrom("127.0.0.1", "127.0.0.1", 8100), 0);
    EXPECT_EQ(testsupport::openDescriptorCount(), fdsBefore);
    EXPECT_EQ(eventsNow().size(), 1u);
}

TEST_F(PushServer, FirstPhoneIsAskedAndAcceptedLaterFromAnotherThread) {
    startServer();
    int phone = phoneSends(5, aliveFrom(5, 8080, "Access-Method: nfc\r\n"));
    auto events = waitEvents(2);
    ASSERT_EQ(events.size(), 2u);
    const UiEvent& e = events[1];
    EXPECT_EQ(e.event, EVENT_DEVICE_NEW);
    ASSERT_TRUE(e.hasInfo);
    EXPECT_EQ(e.info.one, 1);
    EXPECT_STREQ(e.info.mac, "02:00:7f:00:00:05");
    EXPECT_STREQ(e.info.hostPNumber, "01012345675");
    EXPECT_EQ(e.info.accessMethod, 1);
    EXPECT_EQ(e.info.total, 1);
    EXPECT_TRUE(testsupport::logged("[SP]  This is first time!!!", "DLNA_SP"));
    // The server records and logs the acceptance once the UI's callback has
    // returned, on its own thread: wait for the line (bounded).
    EXPECT_TRUE(loggedWithin("[SP] m_sConfirmedIP = 127.0.0.5", 3000));

    std::thread ui([this] { m_server->sendClientStartNotice("02:00:7f:00:00:05", true); });
    ui.join();
    EXPECT_EQ(recvUntil(phone, "\r\n\r\n", 3000), kOk);
    EXPECT_TRUE(m_server->isClientConfirmed());

    char addr[16] = {}, macText[18] = {};
    int port = 0;
    EXPECT_EQ(m_server->getDataServerInfo(addr, &port), 1);
    EXPECT_STREQ(addr, "127.0.0.5");
    EXPECT_EQ(port, 8080);
    EXPECT_EQ(m_server->getDataServerInfo(macText), 1);
    EXPECT_STREQ(macText, "02:00:7f:00:00:05");
    EXPECT_EQ(m_server->getDataServerInfo(static_cast<char*>(nullptr), &port), 0);
}

TEST_F(PushServer, AnswerGivenFromInsideTheCallbackReachesThePhone) {
    startServer();
    gHook = [this](eSPNotifyControlEvent event, stSPInformation* info) {
        if (event == EVENT_DEVICE_NEW) m_server->sendClientStartNotice(info->mac, true);
    };
    int phone = phoneSends(6, aliveFrom(6));
    EXPECT_EQ(recvUntil(phone, "\r\n\r\n", 3000), kOk);
    EXPECT_FALSE(testsupport::logged("[SP] Entry Not found ", "DLNA_SP"));
}

TEST_F(PushServer, AnswerGivenAtOnceFromAnotherThreadReachesThePhone) {
    startServer();
    std::thread answerer;
    gHook = [this, &answerer](eSPNotifyControlEvent event, stSPInformation* info) {
        if (event != EVENT_DEVICE_NEW) return;
        std::string macText = info->mac;
        // The UI answers on its own thread while the server is still busy
        // with the announcement.
        answerer = std::thread([this, macText] { m_server->sendClientStartNotice(macText.c_str(), true); });
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    };
    int phone = phoneSends(7, aliveFrom(7));
    EXPECT_EQ(recvUntil(phone, "\r\n\r\n", 3000), kOk);
    waitEvents(2);
    answerer.join();
}

TEST_F(PushServer, FirstPhoneDeniedByTheAnswerFieldGets503AndTheNextPhoneIsAskedAgain) {
    startServer();
    gHook = [](eSPNotifyControlEvent event, stSPInformation* info) {
        if (event == EVENT_DEVICE_NEW && info) info->answer = 1;
    };
    int first = phoneSends(5, aliveFrom(5));
    EXPECT_EQ(recvUntil(first, "\r\n\r\n", 3000), k503);
    EXPECT_TRUE(testsupport::logged("[SP]  DENY", "DLNA_SP"));
    gHook = nullptr;
    phoneSends(8, aliveFrom(8));
    auto events = waitEvents(3);
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[2].event, EVENT_DEVICE_NEW);
    EXPECT_EQ(testsupport::countLogged("[SP]  This is first time!!!", "DLNA_SP"), 2);
}

TEST_F(PushServer, RefusalByTheUserGets401AndForgetsThePhone) {
    startServer();
    int phone = phoneSends(5, aliveFrom(5));
    waitEvents(2);
    m_server->sendClientStartNotice("02:00:7f:00:00:05", false);
    EXPECT_EQ(recvUntil(phone, "\r\n\r\n", 3000), k401);
    EXPECT_EQ(m_server->getPermittedListSize(), 0);
    EXPECT_FALSE(m_server->isClientConfirmed());
    EXPECT_FALSE(m_server->hasClientEntry("02:00:7f:00:00:05"));
    EXPECT_TRUE(testsupport::peerClosed(phone, 3000)) << "the refused phone's connection is closed";
    // The next phone is asked as the first one.
    phoneSends(9, aliveFrom(9));
    waitEvents(3);
    EXPECT_EQ(testsupport::countLogged("[SP]  This is first time!!!", "DLNA_SP"), 2);
}

TEST_F(PushServer, SecondPhoneIsAdmittedWithoutAQuestion) {
    startServer();
    int first = phoneSends(5, aliveFrom(5));
    waitEvents(2);
    m_server->sendClientStartNotice(mac(5).c_str(), true);
    EXPECT_EQ(recvUntil(first, "\r\n\r\n", 3000), kOk);
    int second = phoneSends(6, aliveFrom(6, 9090));
    auto events = waitEvents(3);
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[2].event, EVENT_DEVICE_NEW);
    EXPECT_EQ(events[2].info.total, 2);
    EXPECT_TRUE(testsupport::logged("[SP]  This is not first!!!", "DLNA_SP"));
    EXPECT_EQ(m_server->getPermittedListSize(), 2);
    // Its answer is written when the push API sends it.
    m_server->sendClientStartNotice(mac(6).c_str(), true);
    EXPECT_EQ(recvUntil(second, "\r\n\r\n", 3000), kOk);
    int port = 0;
    char addr[16] = {};
    EXPECT_EQ(m_server->getDataServerInfo(mac(6).c_str(), &port, addr), 1);
    EXPECT_STREQ(addr, "127.0.0.6");
    EXPECT_EQ(port, 9090);
    EXPECT_TRUE(testsupport::logged("[SP] IP Address is  127.0.0.6, MAC = 02:00:7f:00:00:06 ", "DLNA_SP"));
    EXPECT_EQ(m_server->getDataServerInfo("02:00:7f:00:00:99", &port, addr), 0);
    EXPECT_TRUE(testsupport::logged("[SP] Entry Not found for the MAC Addr 02:00:7f:00:00:99", "DLNA_SP"));
}

TEST_F(PushServer, EleventhPhoneIsRefusedWith503) {
    startServer();
    for (int n = 10; n < 20; ++n) {
        int fd = phoneSends(n, aliveFrom(n));
        waitEvents(static_cast<size_t>(n - 8));
        m_server->sendClientStartNotice(mac(n).c_str(), true);
        EXPECT_EQ(recvUntil(fd, "\r\n\r\n", 3000), kOk) << "phone " << n;
    }
    EXPECT_EQ(m_server->getPermittedListSize(), 10);
    int eleventh = phoneSends(20, aliveFrom(20));
    EXPECT_EQ(recvUntil(eleventh, "\r\n\r\n", 3000), k503);
    EXPECT_TRUE(testsupport::logged("Cannot add new clients !!! Maximum clients connected !!! ", "DLNA_SP"));
    EXPECT_TRUE(testsupport::logged("[SP]  Failed to ctreate a new device entry !! Returning  !!", "DLNA_SP"));
    EXPECT_EQ(eventsNow().size(), 11u) << "the UI hears nothing of the refused phone";
}

TEST_F(PushServer, DepartureBeforeAnyAcceptedPhoneSendsNothingToTheUi) {
    startServer();
    int phone = phoneSends(5, byebyeFrom(5));
    EXPECT_TRUE(testsupport::peerClosed(phone, 3000));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    auto events = eventsNow();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].event, EVENT_DEVICE_SERVER_READY);
}

TEST_F(PushServer, DepartureOfTheAcceptedPhoneIsReported) {
    startServer();
    int phone = phoneSends(5, aliveFrom(5));
    waitEvents(2);
    m_server->sendClientStartNotice(mac(5).c_str(), true);
    EXPECT_EQ(recvUntil(phone, "\r\n\r\n", 3000), kOk);
    int bye = phoneSends(5, byebyeFrom(5));
    auto events = waitEvents(3);
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[2].event, EVENT_DEVICE_REMOVED);
    EXPECT_STREQ(events[2].info.mac, "02:00:7f:00:00:05");
    EXPECT_EQ(events[2].info.total, 0);
    EXPECT_FALSE(m_server->isClientConfirmed());
    EXPECT_TRUE(testsupport::peerClosed(bye, 3000));
    EXPECT_TRUE(testsupport::peerClosed(phone, 3000)) << "the phone's earlier connection goes with it";
    EXPECT_TRUE(testsupport::logged("[SP -- Removed ] No if Devices = 0", "DLNA_SP"));
    EXPECT_TRUE(testsupport::logged("[SP] [02:00:7f:00:00:05] Disconnected ", "DLNA_SP"));
}

TEST_F(PushServer, ClientThatConnectsAndClosesAtOnceStopsTheServer) {
    startServer();
    int fd = testsupport::connectFrom(ip(5), "127.0.0.1", 8100);
    ASSERT_GE(fd, 0);
    close(fd);
    auto events = waitEvents(2, 8000);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[1].event, EVENT_DEVICE_SERVER_FAIL);
    EXPECT_TRUE(testsupport::logged("[SP] Client httpHandler fail..", "DLNA_SP"));
    // The listening socket is gone.
    for (int i = 0; i < 100 && testsupport::connectFrom("", "127.0.0.1", 8100) >= 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_LT(testsupport::connectFrom("", "127.0.0.1", 8100), 0);
}

TEST_F(PushServer, GarbageIsAnswered501AndStopsTheServer) {
    startServer();
    int fd = phoneSends(5, std::string("\x16\x03\x01\x02\x00\x01\r\n\r\n", 10));
    EXPECT_EQ(recvUntil(fd, "\r\n\r\n", 3000), "HTTP/1.1 501 Not Implemented\r\nServer: ORB_SP_Camera\r\n\r\n");
    auto events = waitEvents(2);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[1].event, EVENT_DEVICE_SERVER_FAIL);
}

TEST_F(PushServer, PhoneIsRefusedWhileNewConnectionsAreNotAllowed) {
    startServer();
    m_server->setAllowNewConnection(false);
    int fd = phoneSends(5, aliveFrom(5));
    EXPECT_EQ(recvUntil(fd, "\r\n\r\n", 3000), k503);
    EXPECT_TRUE(testsupport::logged("New Connection not allowed. This request should be denied", "DLNA_SP"));
    EXPECT_EQ(m_server->getPermittedListSize(), 0);
}

TEST_F(PushServer, RemovingAPhoneFromThePermittedListClosesItsConnection) {
    startServer();
    int phone = phoneSends(5, aliveFrom(5));
    waitEvents(2);
    m_server->sendClientStartNotice(mac(5).c_str(), true);
    EXPECT_EQ(recvUntil(phone, "\r\n\r\n", 3000), kOk);
    EXPECT_EQ(m_server->removeClientfromPermittedList(mac(5).c_str()), 1);
    EXPECT_EQ(m_server->getPermittedListSize(), 0);
    EXPECT_TRUE(testsupport::peerClosed(phone, 3000));
    EXPECT_EQ(m_server->removeClientfromPermittedList(mac(5).c_str()), 0);
}

TEST_F(PushServer, AnswerForAnUnknownPhoneIsLoggedAndDropped) {
    startServer();
    m_server->sendClientStartNotice("02:00:7f:00:00:42", true);
    EXPECT_TRUE(testsupport::logged("[SP] Entry Not found ", "DLNA_SP"));
    m_server->sendClientStartNotice(nullptr, true);
}

TEST_F(PushServer, StoppingLeavesNoThreadOrDescriptorBehind) {
    const int fdsBefore = testsupport::openDescriptorCount();
    const int threadsBefore = testsupport::threadCount();
    startServer();
    int first = phoneSends(5, aliveFrom(5));
    waitEvents(2);
    m_server->sendClientStartNotice(mac(5).c_str(), true);
    EXPECT_EQ(recvUntil(first, "\r\n\r\n", 3000), kOk);
    phoneSends(6, aliveFrom(6));
    testsupport::connectFrom(ip(7), "127.0.0.1", 8100);  // idle connection, closed below
    waitEvents(3);
    delete m_server;
    m_server = nullptr;
    for (int fd : m_phones) close(fd);
    m_phones.clear();
    // The idle connection's descriptor on this side was not kept; close all
    // client ends the test opened before counting.
    EXPECT_EQ(testsupport::threadCount(), threadsBefore);
    EXPECT_LE(testsupport::openDescriptorCount(), fdsBefore + 1);
}

TEST_F(PushServer, PhoneInItsOwnNetworkIsKnownByItsRealMac) {
    const std::string why = testsupport::netnsUnavailableReason();
    if (!why.empty()) GTEST_SKIP() << why;
    testsupport::NetNamespace camera("cw-cam");
    testsupport::NetNamespace phoneNet("cw-phone");
    ASSERT_TRUE(camera.ok() && phoneNet.ok());
    ASSERT_TRUE(testsupport::joinByVeth(camera, "wlan0", "198.51.100.1/24", phoneNet, "ph0", "198.51.100.7/24"));
    const std::string phoneMac = phoneNet.output("cat /sys/class/net/ph0/address");
    ASSERT_EQ(phoneMac.size(), 17u);
    {
        testsupport::EnterNetNamespace in(camera);
        ASSERT_TRUE(in.ok());
        startServer();  // its thread lives in the camera's namespace
    }
    int fd = -1;
    {
        testsupport::EnterNetNamespace in(phoneNet);
        ASSERT_TRUE(in.ok());
        fd = testsupport::connectFrom("198.51.100.7", "198.51.100.1", 8100);
        ASSERT_GE(fd, 0);
        m_phones.push_back(fd);
        ASSERT_TRUE(sendAll(fd, "GET /sp/control HTTP/1.1\r\nNTS: alive\r\nUser-Agent: ORB_SP_Pixel\r\n"
                                "HOST-PNumber: none\r\nData-Server: 198.51.100.7:8080\r\n\r\n"));
    }
    auto events = waitEvents(2);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[1].event, EVENT_DEVICE_NEW);
    EXPECT_EQ(std::string(events[1].info.mac), phoneMac);
    EXPECT_STREQ(events[1].info.hostPNumber, "pixel");
    m_server->sendClientStartNotice(phoneMac.c_str(), true);
    EXPECT_EQ(recvUntil(fd, "\r\n\r\n", 3000), kOk);
    delete m_server;  // before the namespaces go
    m_server = nullptr;
}

}  // namespace
