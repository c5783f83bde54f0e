// The mode server over loopback: phones played by raw test clients, the API
// layer played by the server's callback (which answers for a new phone on the
// server thread, as the API's confirmation does), event receivers written
// here.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "ModeServer/ModeServer.h"
#include "mode/mode_test_util.h"
#include "support/tcp_peer.h"
#include "support/test_support.h"

using modetest::msSince;
using modetest::NotifyReceiver;
using modetest::reply;
using testsupport::recvUntil;
using testsupport::sendAll;

namespace {

struct Seen {
    int fd;
    eModeServerInternalEvent event;
    std::string mac, userAgent;
};

std::mutex gLock;
std::condition_variable gChanged;
std::vector<Seen> gSeen;
ModeServer* gServer = nullptr;
bool gAnswer = true;

void onServerEvent(int fd, eModeServerInternalEvent event, intptr_t mac, intptr_t userAgent) {
    if (event == eEVENT_NEW_DEVICE && gServer) gServer->setConfirmResult(fd, gAnswer);
    std::lock_guard<std::mutex> g(gLock);
    gSeen.push_back({fd, event, mac ? reinterpret_cast<const char*>(mac) : "(null)",
                     userAgent ? reinterpret_cast<const char*>(userAgent) : "(null)"});
    gChanged.notify_all();
}

class ModeServerTest : public testing::Test {
protected:
    void SetUp() override {
        host::reset();
        std::lock_guard<std::mutex> g(gLock);
        gSeen.clear();
        gAnswer = true;
    }
    void TearDown() override {
        delete m_server;
        gServer = nullptr;
        for (int fd : m_phones) close(fd);
    }
    void startServer(eNETWORK_SERVER_MODE mode, bool expectListening = true) {
        m_server = new ModeServer(mode);
        gServer = m_server;
        m_server->setCallback(onServerEvent);
        m_server->start();
        EXPECT_EQ(m_server->waitUntilListening(5000), expectListening);
    }
    // Phone n (127.0.0.n) sends text; returns the reply it gets.
    std::string phone(int n, const std::string& text, uint16_t port = 7788) {
        int fd = testsupport::connectFrom("127.0.0." + std::to_string(n), "127.0.0.1", port);
        EXPECT_GE(fd, 0);
        if (fd < 0) return "";
        m_phones.push_back(fd);
        EXPECT_TRUE(sendAll(fd, text));
        return recvUntil(fd, "\r\n\r\n", 8000);
    }
    std::vector<Seen> waitSeen(size_t count, int timeoutMs = 5000) {
        std::unique_lock<std::mutex> g(gLock);
        gChanged.wait_for(g, std::chrono::milliseconds(timeoutMs), [&] { return gSeen.size() >= count; });
        return gSeen;
    }
    std::string callbackTo(const NotifyReceiver& r) {
        return "<http://127.0.0.1:" + std::to_string(r.port()) + "/eventCallback>";
    }

    ModeServer* m_server = nullptr;
    std::vector<int> m_phones;
};

// The listening descriptor as the server logged it ("servSock = %d"), or -1.
int loggedListeningDescriptor() {
    for (const std::string& m : testsupport::messages("DLNA_MS"))
        if (m.rfind("servSock = ", 0) == 0) return std::stoi(m.substr(11));
    return -1;
}

// What the event-3 callback finds of the listening socket.
struct AtFailure {
    bool called = false;
    bool open = false;
    int type = -1;
    int lingerOn = -1;
};
AtFailure gAtFailure;

void onFailureLookAtTheListeningSocket(int, eModeServerInternalEvent event, intptr_t, intptr_t) {
    if (event != eINTERNAL_EVENT_FAIL) return;
    gAtFailure.called = true;
    const int fd = loggedListeningDescriptor();
    if (fd <= 0) return;
    gAtFailure.open = fcntl(fd, F_GETFD) != -1;
    socklen_t len = sizeof gAtFailure.type;
    if (getsockopt(fd, SOL_SOCKET, SO_TYPE, &gAtFailure.type, &len) != 0) gAtFailure.type = -1;
    struct linger l = {0, 0};
    len = sizeof l;
    if (getsockopt(fd, SOL_SOCKET, SO_LINGER, &l, &len) == 0) gAtFailure.lingerOn = l.l_onoff;
}

TEST_F(ModeServerTest, FailingServerReportsEvent3BeforeItLingersAndClosesTheListeningSocket) {
    std::vector<int> taken;
    for (uint16_t p = 7788; p <= 7791; ++p) taken.push_back(testsupport::occupyPort(p));
    for (int fd : taken) ASSERT_GE(fd, 0);
    gAtFailure = AtFailure();
    m_server = new ModeServer(MS_MODE_IDLE);
    m_server->setCallback(onFailureLookAtTheListeningSocket);
    m_server->start();
    m_server->join();
    const int fd = loggedListeningDescriptor();
    ASSERT_GT(fd, 0);
    ASSERT_TRUE(gAtFailure.called);
    // At the callback the socket is still open and not yet set to linger...
    EXPECT_TRUE(gAtFailure.open);
    EXPECT_EQ(gAtFailure.type, SOCK_STREAM);
    EXPECT_EQ(gAtFailure.lingerOn, 0);
    // ...which is done on the open socket afterwards, and then it is closed.
    EXPECT_FALSE(testsupport::logged("setsockopt() SO_LINGER error", "DLNA_MS"));
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    for (int t : taken) close(t);
}

TEST_F(ModeServerTest, ListensOnTheFirstPortAndAnswersAQuery) {
    startServer(MS_MODE_IDLE);
    EXPECT_EQ(m_server->getPort(), 7788);
    EXPECT_TRUE(testsupport::logged("bind success", "DLNA_MS"));
    EXPECT_EQ(phone(5, modetest::request()), reply(200, "OK", "IDLE"));
    EXPECT_TRUE(testsupport::peerClosed(m_phones.back(), 3000)) << "one request per connection";
    EXPECT_TRUE(m_server->devices().empty());
}

TEST_F(ModeServerTest, FallsBackToTheThirdPortWhenTheFirstTwoAreTaken) {
    int a = testsupport::occupyPort(7788), b = testsupport::occupyPort(7789);
    ASSERT_GE(a, 0);
    ASSERT_GE(b, 0);
    startServer(MS_MODE_RVF);
    EXPECT_EQ(m_server->getPort(), 7790);
    EXPECT_TRUE(testsupport::logged("[7788]port is busy!", "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged("[7789]port is busy!", "DLNA_MS"));
    EXPECT_EQ(phone(5, modetest::request(), 7790), reply(200, "OK", "RVF"));
    close(a);
    close(b);
}

TEST_F(ModeServerTest, AllFourPortsTakenFailsWithEvent3) {
    std::vector<int> taken;
    for (uint16_t p = 7788; p <= 7791; ++p) taken.push_back(testsupport::occupyPort(p));
    for (int fd : taken) ASSERT_GE(fd, 0);
    startServer(MS_MODE_IDLE, false);
    auto seen = waitSeen(1);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].fd, 0);
    EXPECT_EQ(seen[0].event, eINTERNAL_EVENT_FAIL);
    EXPECT_EQ(seen[0].mac, "(null)");
    EXPECT_EQ(testsupport::countLogged("[7791]port is busy!", "DLNA_MS"), 1);
    EXPECT_TRUE(testsupport::logged("bind() error", "DLNA_MS"));
    for (int fd : taken) close(fd);
}

TEST_F(ModeServerTest, AcceptedPhoneIsRegisteredWithItsReceiver) {
    startServer(MS_MODE_PHONE_PULL);
    EXPECT_EQ(phone(5, modetest::alive("ORB_MODE_Pixel7", "<http://127.0.0.5:9000/eventCallback>")),
              reply(200, "OK", "PhonePull"));
    auto devices = m_server->devices();
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].m_sUserAgent, "pixel7");
    EXPECT_EQ(devices[0].m_sMacAddr, "") << "a loopback phone is in no ARP cache";
    EXPECT_EQ(devices[0].m_sHost, "127.0.0.5");
    EXPECT_EQ(devices[0].m_iPort, 9000);
    EXPECT_TRUE(testsupport::logged("found HTTP handler", "DLNA_MS"));
    ASSERT_TRUE(testsupport::peerClosed(m_phones.back(), 3000));
    EXPECT_TRUE(testsupport::logged("m_vHttpHandler size = 0", "DLNA_MS"));
}

TEST_F(ModeServerTest, RefusedPhoneIsAnswered401AndNotRegistered) {
    gAnswer = false;
    startServer(MS_MODE_PHONE_PULL);
    EXPECT_EQ(phone(5, modetest::alive("ORB_MODE_Pixel7", "<http://127.0.0.5:9000/x>")),
              reply(401, "Unauthorized", "PhonePull"));
    EXPECT_TRUE(m_server->devices().empty());
}

TEST_F(ModeServerTest, AcceptingTwiceRegistersTwice) {
    startServer(MS_MODE_IDLE);
    phone(5, modetest::alive("ORB_MODE_A", "<http://127.0.0.5:9000/x>"));
    phone(5, modetest::alive("ORB_MODE_A", "<http://127.0.0.5:9000/x>"));
    EXPECT_EQ(m_server->devices().size(), 2u);
}

TEST_F(ModeServerTest, AnswerForAnUnknownConnectionFindsNoHandler) {
    startServer(MS_MODE_IDLE);
    EXPECT_TRUE(m_server->setConfirmResult(12345, true));
    EXPECT_TRUE(testsupport::logged("Can't found HTTP handler", "DLNA_MS"));
    EXPECT_TRUE(m_server->devices().empty());
}

TEST_F(ModeServerTest, RegisteredPhoneAnnouncingAgainInAccessMode1IsAnswered200WithoutAsking) {
    startServer(MS_MODE_IDLE);
    m_server->addDeviceInfo(new MSDeviceInfo("a", "<http://127.0.0.5:9000/x>", ""));
    m_server->setAccessMode(ACCESS_MODE_NO_NEW_CP_PERMIT);
    EXPECT_EQ(phone(5, modetest::alive("ORB_MODE_A", "")), reply(200, "OK", "IDLE"));
    EXPECT_TRUE(waitSeen(1, 300).empty()) << "the user is not asked";
    EXPECT_TRUE(testsupport::logged("NEW_DEVICE : Same Mac is found!!", "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged("ACCESS_MODE_NO_NEW_CP_PERMIT", "DLNA_MS"));
    EXPECT_EQ(m_server->devices().size(), 1u);
}

TEST_F(ModeServerTest, UnregisteredPhoneInAccessMode1IsAnswered401) {
    startServer(MS_MODE_IDLE);
    m_server->addDeviceInfo(new MSDeviceInfo("a", "<http://127.0.0.5:9000/x>", "02:00:00:00:00:01"));
    m_server->setAccessMode(ACCESS_MODE_NO_NEW_CP_PERMIT);
    EXPECT_EQ(phone(5, modetest::alive("ORB_MODE_A", "")), reply(401, "Unauthorized", "IDLE"));
    EXPECT_TRUE(testsupport::logged("MS ALIVE : ClientMacAddress = ", "DLNA_MS"));
}

TEST_F(ModeServerTest, GoodbyeFromAnUnknownPhoneIsAnswered200AndReportedToNobody) {
    startServer(MS_MODE_IDLE);
    EXPECT_EQ(phone(5, modetest::byebye()), reply(200, "OK", "IDLE"));
    EXPECT_TRUE(testsupport::logged(" NOT FOUND : Ignore", "DLNA_MS"));
    EXPECT_TRUE(waitSeen(1, 300).empty());
}

TEST_F(ModeServerTest, GoodbyeFromARegisteredPhoneRemovesItAndIsReported) {
    startServer(MS_MODE_IDLE);
    phone(5, modetest::alive("ORB_MODE_A", "<http://127.0.0.5:9000/x>"));
    ASSERT_EQ(m_server->devices().size(), 1u);
    EXPECT_EQ(phone(5, modetest::byebye()), reply(200, "OK", "IDLE"));
    EXPECT_TRUE(m_server->devices().empty());
    auto seen = waitSeen(2);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[1].event, eEVENT_REMOVED_DEVICE);
    EXPECT_TRUE(testsupport::logged("REMOVED_DEVICE : Same Mac is found!!", "DLNA_MS"));
}

TEST_F(ModeServerTest, GoodbyeInCrowdSendResetsAccessModeTo0) {
    startServer(MS_MODE_CROWD_SEND);
    EXPECT_EQ(m_server->getAccessMode(), 0);
    m_server->setAccessMode(ACCESS_MODE_NO_NEW_CP_PERMIT);
    phone(5, modetest::byebye());
    EXPECT_EQ(m_server->getAccessMode(), 0);
}

TEST_F(ModeServerTest, GoodbyeInAnyOtherModeResetsAccessModeTo2) {
    startServer(MS_MODE_RVF);
    EXPECT_EQ(m_server->getAccessMode(), 2);
    m_server->setAccessMode(ACCESS_MODE_NO_NEW_CP_PERMIT);
    phone(5, modetest::byebye());
    EXPECT_EQ(m_server->getAccessMode(), 2);
}

TEST_F(ModeServerTest, NoRegisteredPhonesSendsNothingAndSucceeds) {
    startServer(MS_MODE_IDLE);
    EXPECT_TRUE(m_server->sendNotifyMessage(MS_MODE_RVF));
    EXPECT_EQ(m_server->getMode(), MS_MODE_RVF);
    EXPECT_TRUE(host::logLinesContaining("HostIp =").empty());
    // New replies announce the new mode.
    EXPECT_EQ(phone(5, modetest::request()), reply(200, "OK", "RVF"));
}

TEST_F(ModeServerTest, StoppedServerRefusesToNotify) {
    startServer(MS_MODE_IDLE);
    m_server->stopAndJoin();
    EXPECT_FALSE(m_server->sendNotifyMessage(MS_MODE_RVF));
    EXPECT_TRUE(testsupport::logged("ModeServer::sendNotifyMessage() : already stopedd", "DLNA_MS"));
}

TEST_F(ModeServerTest, SelectivePushNotifiesThePushServersPort) {
    NotifyReceiver receiver;
    ASSERT_TRUE(receiver.ok());
    startServer(MS_MODE_IDLE);
    phone(5, modetest::alive("ORB_MODE_A", callbackTo(receiver)));
    m_server->setSPServerPort(8090);
    EXPECT_TRUE(m_server->sendNotifyMessage(MS_MODE_SELECTIVE_PUSH));
    auto got = receiver.waitRequests(1, 3000);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0], modetest::notifyRequest("127.0.0.1", receiver.port(),
                                              modetest::propertySet({{"CurrentMode", "SelectivePush"},
                                                                     {"SPServerPort", "8090"}})));
    EXPECT_TRUE(testsupport::logged("HostIp = 127.0.0.1, port = " + std::to_string(receiver.port()), "DLNA_MS"));
}

TEST_F(ModeServerTest, PhoneWithoutCallbackStopsTheRoundBeforeLaterPhones) {
    NotifyReceiver receiver;
    ASSERT_TRUE(receiver.ok());
    startServer(MS_MODE_IDLE);
    phone(5, modetest::alive("ORB_MODE_First", ""));
    phone(6, modetest::alive("ORB_MODE_Second", callbackTo(receiver)));
    ASSERT_EQ(m_server->devices().size(), 2u);
    EXPECT_TRUE(m_server->sendNotifyMessage(MS_MODE_RVF));
    EXPECT_TRUE(testsupport::logged("No CallbackURL", "DLNA_MS"));
    EXPECT_TRUE(receiver.waitRequests(1, 500).empty());
}

TEST_F(ModeServerTest, ReceiverThatNeverAnswersDoesNotKeepTheNextPhoneFromItsNotify) {
    NotifyReceiver silent("");
    NotifyReceiver receiver;
    ASSERT_TRUE(silent.ok() && receiver.ok());
    startServer(MS_MODE_IDLE);
    phone(5, modetest::alive("ORB_MODE_Slow", callbackTo(silent)));
    phone(6, modetest::alive("ORB_MODE_Fast", callbackTo(receiver)));
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_TRUE(m_server->sendNotifyMessage(MS_MODE_INSTANT_SEND)) << "the last phone's result";
    EXPECT_GE(msSince(t0), 4900);
    EXPECT_EQ(silent.requests().size(), 1u);
    EXPECT_EQ(receiver.requests().size(), 1u);
    EXPECT_TRUE(testsupport::logged("[ MSHttpClient::readResponse] wait timeout.", "DLNA_MS"));
}

TEST_F(ModeServerTest, PhoneWhoseReceiverIsUnreachableMakesTheRoundFail) {
    NotifyReceiver receiver;
    ASSERT_TRUE(receiver.ok());
    startServer(MS_MODE_IDLE);
    phone(5, modetest::alive("ORB_MODE_A", callbackTo(receiver)));
    phone(6, modetest::alive("ORB_MODE_NoBrackets", "http://127.0.0.6:9000/eventCallback"));
    auto devices = m_server->devices();
    ASSERT_EQ(devices.size(), 2u);
    EXPECT_EQ(devices[1].m_sHost, "");
    EXPECT_FALSE(m_server->sendNotifyMessage(MS_MODE_RVF));
    EXPECT_EQ(receiver.requests().size(), 1u);
    EXPECT_TRUE(testsupport::logged("[MSHttpClient::sendNotification] connect error", "DLNA_MS"));
}

TEST_F(ModeServerTest, PhoneLeavingDuringANotifyRoundIsHarmless) {
    NotifyReceiver silent("");
    ASSERT_TRUE(silent.ok());
    startServer(MS_MODE_IDLE);
    phone(5, modetest::alive("ORB_MODE_A", callbackTo(silent)));
    bool result = true;
    std::thread round([&] { result = m_server->sendNotifyMessage(MS_MODE_RVF); });
    ASSERT_EQ(silent.waitRequests(1, 3000).size(), 1u);
    // The phone leaves while its NOTIFY waits for an answer.
    EXPECT_EQ(phone(5, modetest::byebye()), reply(200, "OK", "RVF"));
    EXPECT_TRUE(m_server->devices().empty());
    round.join();
    EXPECT_FALSE(result);
}

TEST_F(ModeServerTest, GarbageIsAnswered400AndTheServerGoesOn) {
    startServer(MS_MODE_IDLE);
    std::string junk;
    for (int i = 0; i < 3000; ++i) junk += static_cast<char>(1 + (i * 53) % 250);
    EXPECT_EQ(phone(5, "GET " + junk + "\r\n\r\n").substr(0, 24), "HTTP/1.1 400 Bad Request");
    ASSERT_TRUE(testsupport::peerClosed(m_phones.back(), 3000));
    EXPECT_TRUE(testsupport::logged("Client httpHandler fail..", "DLNA_MS"));
    EXPECT_EQ(phone(6, modetest::request()), reply(200, "OK", "IDLE"));
}

TEST_F(ModeServerTest, HeadThatNeverEndsHoldsTheServerFiveSecondsThenTheNextPhoneIsServed) {
    startServer(MS_MODE_IDLE);
    int slow = testsupport::connectFrom("127.0.0.5", "127.0.0.1", 7788);
    ASSERT_GE(slow, 0);
    m_phones.push_back(slow);
    ASSERT_TRUE(sendAll(slow, "GET /mode/control HTTP/1.1\r\nNTS: al"));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(phone(6, modetest::request()), reply(200, "OK", "IDLE"));
    EXPECT_GE(msSince(t0), 4000);
    EXPECT_TRUE(testsupport::peerClosed(slow, 3000));
    EXPECT_TRUE(testsupport::logged(
        "HTTP Connection: received corrupted HTTP header:\nGET /mode/control HTTP/1.1\r\nNTS: al", "DLNA_MS"));
}

TEST_F(ModeServerTest, PipelinedHeadsGetOneReplyOnly) {
    startServer(MS_MODE_IDLE);
    std::string burst;
    for (int i = 0; i < 150; ++i) burst += "HEAD /mode/control HTTP/1.1\r\n\r\n";
    int fd = testsupport::connectFrom("127.0.0.5", "127.0.0.1", 7788);
    ASSERT_GE(fd, 0);
    m_phones.push_back(fd);
    ASSERT_TRUE(sendAll(fd, burst));
    EXPECT_EQ(testsupport::recvAll(fd, 3000), reply(200, "OK", "IDLE"));
}

TEST_F(ModeServerTest, IdleConnectionsBeyondTheBoundAreClosed) {
    startServer(MS_MODE_IDLE);
    std::vector<int> idle;
    for (size_t i = 0; i <= ModeServer::kMaxWaitingConnections; ++i) {
        int fd = testsupport::connectFrom("127.0.0.5", "127.0.0.1", 7788);
        ASSERT_GE(fd, 0);
        idle.push_back(fd);
        m_phones.push_back(fd);
    }
    EXPECT_TRUE(testsupport::peerClosed(idle.back(), 3000)) << "the connection over the bound is closed";
    EXPECT_FALSE(testsupport::peerClosed(idle.front(), 200));
    EXPECT_EQ(host::logLinesContaining("too many waiting connections, closing 127.0.0.5:").size(), 1u);
    // 64 waiting connections are a normal wait for the server, not more than
    // its wait was made for.
    EXPECT_EQ(testsupport::countLogged("myAssert"), 0);
}

TEST_F(ModeServerTest, StopEndsTheThreadWithinAboutASecond) {
    startServer(MS_MODE_IDLE);
    auto t0 = std::chrono::steady_clock::now();
    m_server->stopAndJoin();
    EXPECT_LT(msSince(t0), 3000);
    EXPECT_EQ(testsupport::connectFrom("", "127.0.0.1", 7788), -1) << "nobody listens any more";
    m_server->shutdown();
    EXPECT_TRUE(testsupport::logged("ModeServer Shut down...", "DLNA_MS"));
}

}  // namespace
