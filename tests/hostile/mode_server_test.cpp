// The mode server against phones that do not follow the protocol. It serves
// one request per connection and goes on after any failure, so one server
// meets every peer of a scenario; afterwards it still answers, and it holds
// the descriptors, threads and (near enough) the memory it held before.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "ModeServer/ModeHTTPHandler.h"
#include "ModeServer/ModeServer.h"
#include "hostile/hostile_support.h"
#include "mode/mode_test_util.h"
#include "support/tcp_peer.h"
#include "support/test_support.h"

namespace {

ModeServer* gServer = nullptr;

// The API layer's part: a new phone is accepted.
void onServerEvent(int fd, eModeServerInternalEvent event, intptr_t, intptr_t) {
    if (event == eEVENT_NEW_DEVICE && gServer) gServer->setConfirmResult(fd, true);
}

std::string phoneAddress(int n) { return "127.0.0." + std::to_string(2 + n % 250); }

class HostileModePeer : public testing::Test {
protected:
    void SetUp() override {
        host::reset();
        m_server = new ModeServer(MS_MODE_IDLE);
        gServer = m_server;
        m_server->setCallback(onServerEvent);
        m_server->start();
        ASSERT_TRUE(m_server->waitUntilListening(5000));
        // 7788 unless another server holds it (the fallback ports serve the same).
        m_port = m_server->getPort();
        ASSERT_NE(m_port, 0);
        // One ordinary query first, so that everything a served request
        // leaves for good (the first use of the C library's resolver,
        // interface lists, ...) is part of the baseline.
        ASSERT_EQ(query(0), m_ok);
        m_base = hostile::snapshot();
    }
    void TearDown() override {
        delete m_server;
        gServer = nullptr;
    }

    // Phone n asks for the mode; the reply it gets. It closes with a reset,
    // so that no closing state is left per connection.
    std::string query(int n) {
        const int fd = testsupport::connectFrom(phoneAddress(n), "127.0.0.1", m_port);
        if (fd < 0) return "(no connection)";
        std::string reply;
        if (testsupport::sendAll(fd, modetest::request())) reply = testsupport::recvUntil(fd, "\r\n\r\n", 8000);
        hostile::drop(fd, true);
        return reply;
    }
    // The server still answers, and holds what it held before the scenario.
    void expectServingAtBaseline() {
        EXPECT_EQ(query(1), m_ok) << "the server goes on";
        hostile::expectBackTo(m_base, 8000);
    }
    // A phone sends text that the server must refuse by closing, without a
    // reply, well before the 5-second limit of a head.
    void expectClosedAtTheBound(const std::string& text) {
        hostile::expectClosedWithoutReply(phoneAddress(5), m_port, text, 4500);
    }

    const std::string m_ok = modetest::reply(200, "OK", "IDLE");
    ModeServer* m_server = nullptr;
    uint16_t m_port = 0;
    hostile::Resources m_base{};
};

TEST_F(HostileModePeer, ThousandDroppedConnectionsAreClosedAndTheServerGoesOn) {
    // Batches of 50 phones that open a connection and drop it at once (every
    // other one with a reset), each batch followed by an ordinary query that
    // must still be answered.
    for (int batch = 0; batch < 20; ++batch) {
        for (int i = 0; i < 50; ++i) hostile::drop(hostile::openNonBlocking(phoneAddress(i), m_port), i % 2 == 1);
        ASSERT_EQ(query(batch), m_ok) << "after batch " << batch;
    }
    EXPECT_TRUE(testsupport::logged("Client httpHandler fail..", "DLNA_MS"));
    expectServingAtBaseline();
}

TEST_F(HostileModePeer, ThousandConnectionsDroppedMidRequestAreClosedAndTheServerGoesOn) {
    // Batches of 50 phones that send part of a request and go (every other
    // one with a reset), each batch followed by an ordinary query.
    const std::string request = modetest::alive("phoneapp", "<http://127.0.0.1:9/eventCallback>");
    for (int batch = 0; batch < 20; ++batch) {
        for (int i = 0; i < 50; ++i)
            hostile::dropMidRequest(phoneAddress(i), m_port, request, 1 + (batch * 50 + i) % (request.size() - 4),
                                    i % 2 == 1);
        ASSERT_EQ(query(batch), m_ok) << "after batch " << batch;
    }
    EXPECT_TRUE(m_server->devices().empty()) << "no announcement was ever complete";
    expectServingAtBaseline();
}

TEST_F(HostileModePeer, SlowClientsDelayAPhoneByTheHeadLimitEachOneAtATime) {
    // The server serves one connection at a time and gives each 5 seconds
    // for its head: a phone that arrives behind k slow clients (one byte a
    // second) is answered once each of them has had its 5 seconds. With 50
    // of them that is 250 seconds, and 63 (the bound of waiting
    // connections, the phone's own included in 64) make the longest wait,
    // 315 seconds; the README says so. Three show the rule here in 15.
    const int kSlow = 3;
    const int kHeadLimitMs = 5000;
    hostile::Tricklers slow;
    ASSERT_TRUE(slow.start({phoneAddress(20), phoneAddress(21)}, kSlow, m_port,
                           modetest::alive("slowapp", "<http://127.0.0.1:9/eventCallback>"), 1000));
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    const int fd = testsupport::connectFrom(phoneAddress(7), "127.0.0.1", m_port);
    ASSERT_GE(fd, 0);
    const int64_t t0 = hostile::nowMs();
    ASSERT_TRUE(testsupport::sendAll(fd, modetest::alive("phoneapp", "<http://127.0.0.1:9/eventCallback>")));
    const std::string reply = testsupport::recvUntil(fd, "\r\n\r\n", (kSlow + 2) * kHeadLimitMs);
    const int64_t took = hostile::nowMs() - t0;
    hostile::drop(fd, true);
    EXPECT_EQ(reply, m_ok) << "the phone is answered once the slow clients are through";
    // It arrived while the first was being served: the others had their
    // whole 5 seconds each after that.
    EXPECT_GE(took, (kSlow - 1) * kHeadLimitMs - 200);
    // Each slow client 5 seconds, and the server's one-second wait per turn.
    EXPECT_LE(took, kSlow * kHeadLimitMs + 3000);
    // The slow clients look for the close once a second.
    for (int w = 0; w < 60 && slow.closedByServer() < kSlow; ++w)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(slow.closedByServer(), kSlow) << "every slow client was closed";
    ASSERT_EQ(m_server->devices().size(), 1u);
    EXPECT_EQ(m_server->devices()[0].m_sUserAgent, "phoneapp");
    slow.stop();
    expectServingAtBaseline();
}

TEST_F(HostileModePeer, SlowSenderIsClosedAfterFiveSecondsWithoutAReply) {
    const int fd = testsupport::connectFrom(phoneAddress(5), "127.0.0.1", m_port);
    ASSERT_GE(fd, 0);
    const int64_t t0 = hostile::nowMs();
    EXPECT_FALSE(hostile::trickle(fd, modetest::alive("phoneapp", "<http://127.0.0.1:9/eventCallback>"), 500))
        << "the server must close before the head is complete";
    const int64_t took = hostile::nowMs() - t0;
    std::string reply;
    EXPECT_TRUE(hostile::closedByPeer(fd, 3000, &reply));
    EXPECT_EQ(reply, "");
    hostile::drop(fd, false);
    EXPECT_GE(took, 4500);
    EXPECT_LT(took, 12000);
    EXPECT_FALSE(host::logLinesContaining("HTTP Connection: received corrupted HTTP header:\nGET /mo").empty());
    EXPECT_TRUE(m_server->devices().empty());
    expectServingAtBaseline();
}

TEST_F(HostileModePeer, HeadThatNeverEndsIsCutAtItsBoundBeforeTheTimeLimit) {
    expectClosedAtTheBound(hostile::endlessHead("GET /mode/control HTTP/1.1", 4 * 1024 * 1024));
    expectServingAtBaseline();
}

TEST_F(HostileModePeer, MegabyteHeaderLineIsRefusedWithoutReplyOrGrowth) {
    static_assert(ModeHTTPHandler::kMaxPendingBytes < 1024 * 1024, "the line is longer than any head kept");
    expectClosedAtTheBound("GET /mode/control HTTP/1.1\r\nX-Long: " + std::string(1024 * 1024, 'a') +
                           "\r\nNTS: alive\r\n\r\n");
    EXPECT_TRUE(m_server->devices().empty()) << "the announcement behind the line was never read";
    expectServingAtBaseline();
}

TEST_F(HostileModePeer, TenThousandHeaderLinesAreRefusedWithoutReplyOrGrowth) {
    const std::string head = hostile::headWithLines("GET /mode/control HTTP/1.1", 10000, "X-Line: 1", "NTS: alive\r\n");
    ASSERT_GT(head.size(), ModeHTTPHandler::kMaxPendingBytes);
    expectClosedAtTheBound(head);
    EXPECT_TRUE(m_server->devices().empty());
    expectServingAtBaseline();
}

TEST_F(HostileModePeer, BodyThatNeverEndsIsLeftUnreadAfterTheReply) {
    // A request announcing a body that never ends: the server reads the head
    // only, answers it, and closes the connection.
    std::string reply;
    size_t bodySent = 0;
    EXPECT_TRUE(hostile::sendEndlessBody(phoneAddress(3), m_port,
                                         modetest::request("Content-Length: 1000000000000\r\n"), 8000, &reply,
                                         &bodySent));
    EXPECT_EQ(reply, m_ok);
    expectServingAtBaseline();
}

TEST_F(HostileModePeer, NulBytesNeitherNameTheServiceNorAnnounceAPhone) {
    const std::string nul(1, '\0');
    // In the target: it is not /mode/control.
    int fd = testsupport::connectFrom(phoneAddress(4), "127.0.0.1", m_port);
    ASSERT_GE(fd, 0);
    ASSERT_TRUE(testsupport::sendAll(fd, modetest::request("", "GET", "/mode/control" + nul)));
    EXPECT_EQ(testsupport::recvUntil(fd, "\r\n\r\n", 8000), modetest::reply(503, "Service Unavailable", "IDLE"));
    hostile::drop(fd, true);
    // In the NTS value: it is not "alive", so the request is a plain query.
    fd = testsupport::connectFrom(phoneAddress(4), "127.0.0.1", m_port);
    ASSERT_GE(fd, 0);
    ASSERT_TRUE(testsupport::sendAll(fd, modetest::request("NTS: alive" + nul + "\r\nUser-Agent: nulapp\r\n")));
    EXPECT_EQ(testsupport::recvUntil(fd, "\r\n\r\n", 8000), m_ok);
    hostile::drop(fd, true);
    EXPECT_TRUE(m_server->devices().empty());
    expectServingAtBaseline();
}

TEST_F(HostileModePeer, TenThousandSequentialRequestsLeaveNothingBehind) {
    const int kRequests = 10000;
    const int64_t deadline = hostile::nowMs() + 240000;
    int answered = 0;
    size_t heapHalfway = 0;
    for (int i = 0; i < kRequests && hostile::nowMs() < deadline; ++i) {
        const std::string reply = query(i);
        if (reply != m_ok) {
            ADD_FAILURE() << "request " << i << " got [" << reply << "]";
            break;
        }
        ++answered;
        if (i == kRequests / 2) heapHalfway = hostile::snapshot().heap;
    }
    EXPECT_EQ(answered, kRequests);
    // Memory does not grow with the number of requests served.
    EXPECT_LE(heapHalfway, m_base.heap + hostile::kHeapSlackBytes);
    expectServingAtBaseline();
}

}  // namespace
