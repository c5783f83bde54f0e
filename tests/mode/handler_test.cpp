// The mode server's request handler over a real loopback connection: the test
// plays the phone (from 127.0.0.5) and checks the exact bytes it gets back.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "ModeServer/ModeHTTPHandler.h"
#include "ModeServer/ModeServer.h"
#include "SP/osal/SPGenericSocket.h"
#include "mode/mode_test_util.h"
#include "support/netns.h"
#include "support/tcp_peer.h"
#include "support/test_support.h"

using modetest::msSince;
using modetest::reply;
using modetest::request;
using testsupport::recvUntil;
using testsupport::sendAll;

namespace {

// What the server's callback saw, and how the "user" answers.
struct Seen {
    int fd;
    eModeServerInternalEvent event;
    std::string mac, userAgent;
};
std::vector<Seen> gSeen;
ModeHTTPHandler* gHandler = nullptr;
int gAnswer = 1;

void onServerEvent(int fd, eModeServerInternalEvent event, intptr_t mac, intptr_t userAgent) {
    gSeen.push_back({fd, event, mac ? reinterpret_cast<const char*>(mac) : "(null)",
                     userAgent ? reinterpret_cast<const char*>(userAgent) : "(null)"});
    if (event == eEVENT_NEW_DEVICE && gHandler) gHandler->setConfirmResult(gAnswer);
}

class ModeHandler : public testing::Test {
protected:
    void SetUp() override {
        host::reset();
        gSeen.clear();
        gAnswer = 1;
        m_listen = new SPTCPSocket();
        sockaddr_in a{};
        a.sin_family = AF_INET;
        inet_pton(AF_INET, "127.0.0.1", &a.sin_addr);
        ASSERT_TRUE(m_listen->bind(&a));
        ASSERT_TRUE(m_listen->listen());
        socklen_t len = sizeof a;
        ASSERT_EQ(getsockname(m_listen->get_fd(), reinterpret_cast<sockaddr*>(&a), &len), 0);
        m_phone = testsupport::connectFrom("127.0.0.5", "127.0.0.1", ntohs(a.sin_port));
        ASSERT_GE(m_phone, 0);
        SPTCPSocket* accepted = m_listen->accept();
        ASSERT_NE(accepted, nullptr);
        m_server = new ModeServer(MS_MODE_RVF);
        m_server->setCallback(onServerEvent);
        makeHandler(accepted, MS_MODE_RVF);
    }
    void TearDown() override {
        gHandler = nullptr;
        delete m_handler;
        delete m_server;
        delete m_listen;
        if (m_phone >= 0) close(m_phone);
    }
    void makeHandler(SPTCPSocket* socket, eNETWORK_SERVER_MODE mode) {
        delete m_handler;
        m_handler = new ModeHTTPHandler(m_server, socket, mode);
        gHandler = m_handler;
    }
    std::string served(const std::string& text, bool expectOk = true, int noNewPermit = 0) {
        EXPECT_TRUE(sendAll(m_phone, text));
        EXPECT_EQ(m_handler->httpHandler(noNewPermit), expectOk);
        return recvUntil(m_phone, "\r\n\r\n", 2000);
    }

    SPTCPSocket* m_listen = nullptr;
    ModeServer* m_server = nullptr;
    ModeHTTPHandler* m_handler = nullptr;
    int m_phone = -1;
};

TEST_F(ModeHandler, PlainQueryIsAnswered200WithTheModeAndRegistersNobody) {
    EXPECT_EQ(served(request()), reply(200, "OK", "RVF"));
    EXPECT_TRUE(gSeen.empty());
    EXPECT_TRUE(m_server->devices().empty());
    EXPECT_TRUE(testsupport::logged("NOT defined message from Phone", "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged("sRep= [" + reply(200, "OK", "RVF") + "]", "DLNA_MS"));
}

TEST_F(ModeHandler, HeadIsServedLikeGetWithoutABody) {
    EXPECT_EQ(served(request("", "HEAD")), reply(200, "OK", "RVF"));
    // No body follows the head: the connection stays quiet.
    EXPECT_EQ(testsupport::recvAll(m_phone, 300), "");
}

TEST_F(ModeHandler, TargetInCapitalsIsAccepted) {
    EXPECT_EQ(served(request("", "GET", "/MODE/CONTROL")), reply(200, "OK", "RVF"));
}

TEST_F(ModeHandler, EveryModeIsAnnouncedByItsName) {
    const char* names[] = {"IDLE", "PhonePull", "RVF", "InstantSend", "SelectivePush", "CrowdSend", "PhoneArchive"};
    for (int mode = 0; mode <= 7; ++mode) {
        makeHandler(nullptr, static_cast<eNETWORK_SERVER_MODE>(mode));
        EXPECT_EQ(m_handler->modeName(), mode < 7 ? names[mode] : "IDLE") << mode;
    }
    makeHandler(nullptr, static_cast<eNETWORK_SERVER_MODE>(-1));
    EXPECT_EQ(m_handler->modeName(), "IDLE");
}

TEST_F(ModeHandler, NoNewPermitAnswers401) {
    EXPECT_EQ(served(request("NTS: alive\r\n"), false, 1), reply(401, "Unauthorized", "RVF"));
    EXPECT_TRUE(gSeen.empty());
}

TEST_F(ModeHandler, BadVersionIsAnswered400WithoutContentType) {
    EXPECT_EQ(served("GET /mode/control HTTP/2.0\r\nNTS: alive\r\n\r\n", false),
              "HTTP/1.1 400 Bad Request\r\nServer: ORB Mode Server\r\nOperation-Mode: RVF\r\n"
              "Default-URL: unavailable\r\nMVERSION: 1.0\r\n\r\n");
    EXPECT_TRUE(testsupport::logged("Invalid HTTP header:\nGET /mode/control HTTP/2.0\r\nNTS: alive\r\n\r", "DLNA_MS"));
}

TEST_F(ModeHandler, OtherMethodIsAnswered501) {
    EXPECT_EQ(served(request("NTS: alive\r\n", "POST"), false), reply(501, "Not Implemented", "RVF"));
    EXPECT_TRUE(gSeen.empty());
}

TEST_F(ModeHandler, OtherTargetIsAnswered503) {
    EXPECT_EQ(served(request("NTS: alive\r\n", "GET", "/index.html"), false),
              reply(503, "Service Unavailable", "RVF"));
    EXPECT_TRUE(testsupport::logged("\n\n\nRES_SERVICE_UNAVAILABLE", "DLNA_MS"));
    EXPECT_TRUE(gSeen.empty());
}

TEST_F(ModeHandler, PeerAbsentFromTheArpCacheIsServedWithAnEmptyMac) {
    EXPECT_EQ(served(request()), reply(200, "OK", "RVF"));
    EXPECT_EQ(m_handler->peerMac(), "");
    EXPECT_TRUE(testsupport::logged("strIpAddr = 127.0.0.5", "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged(
        "MAC NOT FOUND...PeerIP: 127.0.0.5  This Request may not be proceesed if ACL enabled ", "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged("[httpHandler] It is failed a get MacAddress.. ", "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged("strMacAddr = ", "DLNA_MS"));
}

TEST_F(ModeHandler, AnnouncementAcceptedByTheUserIsAnswered200) {
    EXPECT_EQ(served(modetest::alive("ORB_MODE_Pixel7", "<http://127.0.0.5:9000/x>")), reply(200, "OK", "RVF"));
    ASSERT_EQ(gSeen.size(), 1u);
    EXPECT_EQ(gSeen[0].event, eEVENT_NEW_DEVICE);
    EXPECT_EQ(gSeen[0].fd, m_handler->socket()->get_fd());
    EXPECT_EQ(gSeen[0].mac, "");
    EXPECT_EQ(gSeen[0].userAgent, "pixel7");
    EXPECT_TRUE(testsupport::logged("YES", "DLNA_MS"));
}

TEST_F(ModeHandler, AnnouncementRefusedByTheUserIsAnswered401) {
    gAnswer = 0;
    EXPECT_EQ(served(modetest::alive("ORB_MODE_Pixel7", "")), reply(401, "Unauthorized", "RVF"));
    EXPECT_TRUE(testsupport::logged("NO", "DLNA_MS"));
}

TEST_F(ModeHandler, AnnouncementToAServerThatRefusesNewPhonesIsAnswered401) {
    m_server->setAccessMode(ACCESS_MODE_NO_NEW_CP_PERMIT);
    EXPECT_EQ(served(modetest::alive("ORB_MODE_Pixel7", "")), reply(401, "Unauthorized", "RVF"));
    EXPECT_TRUE(gSeen.empty());
}

TEST_F(ModeHandler, AnnouncementToAStoppedServerIsAnswered401) {
    m_server->stop();
    EXPECT_EQ(served(modetest::alive("ORB_MODE_Pixel7", "")), reply(401, "Unauthorized", "RVF"));
    EXPECT_TRUE(testsupport::logged("ModeServer::notifyServiceStatus() : already stopedd", "DLNA_MS"));
    EXPECT_TRUE(gSeen.empty());
}

TEST_F(ModeHandler, GoodbyeToAStoppedServerIsAnswered503) {
    m_server->stop();
    EXPECT_EQ(served(modetest::byebye()), reply(503, "Service Unavailable", "RVF"));
}

TEST_F(ModeHandler, GoodbyeIsAnswered200) {
    EXPECT_EQ(served(modetest::byebye()), reply(200, "OK", "RVF"));
    EXPECT_TRUE(testsupport::logged(" NOT FOUND : Ignore", "DLNA_MS"));
}

TEST_F(ModeHandler, AliveAndByebyeInOneRequestIsAnAnnouncement) {
    EXPECT_EQ(served(request("NTS: byebye\r\nNTS: alive\r\n")), reply(200, "OK", "RVF"));
    ASSERT_EQ(gSeen.size(), 1u);
    EXPECT_EQ(gSeen[0].event, eEVENT_NEW_DEVICE);
}

TEST_F(ModeHandler, ReasonPhrasesComeFromTheStatusTable) {
    ASSERT_TRUE(m_handler->writeReply(static_cast<HTTP_RESULT>(300)));
    EXPECT_EQ(recvUntil(m_phone, "\r\n\r\n", 2000), reply(300, "Multiple Choises", "RVF"));
    ASSERT_TRUE(m_handler->writeReply(static_cast<HTTP_RESULT>(999)));
    EXPECT_EQ(recvUntil(m_phone, "\r\n\r\n", 2000), reply(999, "Unknown Status Code", "RVF"));
    ASSERT_TRUE(m_handler->writeReply(static_cast<HTTP_RESULT>(204)));
    EXPECT_EQ(recvUntil(m_phone, "\r\n\r\n", 2000), reply(204, "No Content", "RVF"));
}

TEST_F(ModeHandler, FoldedHeaderLinesAreJoinedBeforeParsing) {
    EXPECT_EQ(served("GET /mode/control HTTP/1.1\r\nUser-Agent: ORB_MODE_Pixel\r\n 7\r\nNTS:\r\n\talive\r\n\r\n"),
              reply(200, "OK", "RVF"));
    ASSERT_EQ(gSeen.size(), 1u);
    EXPECT_EQ(gSeen[0].userAgent, "pixel 7");
}

TEST_F(ModeHandler, UnfoldingRemovesEveryFoldBlanksFirst) {
    std::string text = "A: 1\r\n 2\r\n\t3\r\nB: x\r\n\r\n y\r\n\r\n";
    m_handler->unfoldRequest(text);
    // Removing the fold before " y" uncovers an earlier CR LF now followed by
    // the blank, which goes too.
    EXPECT_EQ(text, "A: 1 2\t3\r\nB: x y\r\n\r\n");
}

TEST_F(ModeHandler, MoreThanAHundredPipelinedHeadsCancelPipelining) {
    std::string burst;
    for (int i = 0; i < 150; ++i) burst += "HEAD /mode/control HTTP/1.1\r\n\r\n";
    ASSERT_TRUE(sendAll(m_phone, burst));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    ASSERT_TRUE(m_handler->readRequests(2000));
    for (int reads = 0; reads < 20 && m_handler->queuedRequests() <= 100 && m_handler->readRequests(500); ++reads) {
    }
    EXPECT_EQ(m_handler->queuedRequests(), 101u);
    EXPECT_FALSE(m_handler->pendingInput().empty()) << "the rest stays unread in pendingInput";
    EXPECT_GE(testsupport::countLogged("Warning! Too many pipelined messages received - pipelining is cancelled",
                                       "DLNA_MS"),
              1);
    // Only the first is served.
    EXPECT_TRUE(m_handler->httpHandler(0));
    EXPECT_EQ(m_handler->queuedRequests(), 100u);
    EXPECT_EQ(recvUntil(m_phone, "\r\n\r\n", 2000), reply(200, "OK", "RVF"));
}

TEST_F(ModeHandler, HeadThatNeverEndsGetsNoReplyAfterFiveSeconds) {
    ASSERT_TRUE(sendAll(m_phone, "GET /mode/control HTTP/1.1\r\nNTS: al"));
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_FALSE(m_handler->httpHandler(0));
    const int64_t took = msSince(t0);
    EXPECT_GE(took, 4900);
    EXPECT_LT(took, 9000);
    EXPECT_TRUE(testsupport::logged(
        "HTTP Connection: received corrupted HTTP header:\nGET /mode/control HTTP/1.1\r\nNTS: al", "DLNA_MS"));
    EXPECT_EQ(testsupport::recvAll(m_phone, 200), "");
}

TEST_F(ModeHandler, SilentPeerTimesOutAfterFiveSeconds) {
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_FALSE(m_handler->httpHandler(0));
    EXPECT_GE(msSince(t0), 4900);
    EXPECT_TRUE(testsupport::logged("HTTP Connection Timeout - thread will be halted!", "DLNA_MS"));
}

TEST_F(ModeHandler, PeerThatClosesAtOnceEndsTheWaitWithoutSpinning) {
    close(m_phone);
    m_phone = -1;
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_FALSE(m_handler->httpHandler(0));
    EXPECT_LT(msSince(t0), 4000);
    EXPECT_TRUE(testsupport::logged("HTTP Connection Timeout - thread will be halted!", "DLNA_MS"));
}

TEST_F(ModeHandler, HeadLongerThanTheBoundIsTreatedAsCorrupted) {
    std::string big = "GET /mode/control HTTP/1.1\r\nX-Padding: " + std::string(ModeHTTPHandler::kMaxPendingBytes, 'x');
    std::thread writer([&] { sendAll(m_phone, big); });
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_FALSE(m_handler->httpHandler(0));
    writer.join();
    EXPECT_LT(msSince(t0), 4000) << "given up at the bound, not at the time limit";
    EXPECT_EQ(host::logLinesContaining("HTTP Connection: received corrupted HTTP header:").size(), 1u);
    EXPECT_EQ(testsupport::recvAll(m_phone, 200), "");
}

TEST_F(ModeHandler, HeaderLineOf32KiBIsReadWhole) {
    EXPECT_EQ(served(request("X-Padding: " + std::string(32 * 1024, 'x') + "\r\nNTS: alive\r\n")),
              reply(200, "OK", "RVF"));
    EXPECT_EQ(gSeen.size(), 1u);
}

TEST_F(ModeHandler, GarbageWithAHeadEndIsAnswered400) {
    std::string junk;
    for (int i = 0; i < 600; ++i) junk += static_cast<char>(1 + (i * 37) % 200);
    EXPECT_EQ(served("GET " + junk + "\r\n\r\n", false),
              "HTTP/1.1 400 Bad Request\r\nServer: ORB Mode Server\r\nOperation-Mode: RVF\r\n"
              "Default-URL: unavailable\r\nMVERSION: 1.0\r\n\r\n");
}

TEST_F(ModeHandler, FirstArpEntryFoundAnswersEvenWhileItIsStillIncomplete) {
    const std::string why = testsupport::netnsUnavailableReason();
    if (!why.empty()) GTEST_SKIP() << why;
    // A camera with two interfaces: the first one still resolves the phone's
    // address, the second one knows a hardware address for it.
    testsupport::NetNamespace camera("cw-arp");
    ASSERT_TRUE(camera.ok());
    for (const char* cmd : {"ip link add wlan0 type veth peer name wlan0p", "ip link add wlan1 type veth peer name wlan1p",
                            "ip addr add 198.51.100.1/25 dev wlan0", "ip addr add 198.51.100.129/25 dev wlan1",
                            "ip link set wlan0 up", "ip link set wlan1 up",
                            "ip neigh add 198.51.100.9 dev wlan0 nud incomplete",
                            "ip neigh add 198.51.100.9 dev wlan1 lladdr 02:11:22:33:44:55 nud permanent"})
        ASSERT_EQ(camera.exec(cmd), 0) << cmd;

    testsupport::EnterNetNamespace in(camera);
    ASSERT_TRUE(in.ok());
    char mac[32];
    memset(mac, 'x', sizeof mac);
    EXPECT_TRUE(m_handler->GetMacAddrFromARPCache("198.51.100.9", mac));
    EXPECT_STREQ(mac, "00:00:00:00:00:00");
    EXPECT_TRUE(testsupport::logged("ioctl for SIOCGARP -- MAC ADDR FOUND.. ", "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged("[ZEBARP:GetMacAddrFromARPCache]LocalPeerMAC: 00:00:00:00:00:00 ", "DLNA_MS"));

    // Once the first interface has no entry at all, the second one answers.
    ASSERT_EQ(camera.exec("ip neigh del 198.51.100.9 dev wlan0"), 0);
    memset(mac, 'x', sizeof mac);
    EXPECT_TRUE(m_handler->GetMacAddrFromARPCache("198.51.100.9", mac));
    EXPECT_STREQ(mac, "02:11:22:33:44:55");
}

TEST_F(ModeHandler, MacLookupRejectsMissingAndMalformedAddresses) {
    char mac[32] = {0};
    EXPECT_FALSE(m_handler->GetMacAddrFromARPCache(nullptr, mac));
    EXPECT_TRUE(testsupport::logged("local Peer IP is NULL !! I am not sure this is error or info ", "DLNA_MS"));
    EXPECT_FALSE(m_handler->GetMacAddrFromARPCache("not-an-address", mac));
    EXPECT_TRUE(testsupport::logged(
        "inet_aton is Failed -- Returns 0 if failed.. I am not sure this is error or info  ", "DLNA_MS"));
    EXPECT_STREQ(mac, "");
}

}  // namespace
