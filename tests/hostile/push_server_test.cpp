// The push server against phones that do not follow the protocol. One
// failing connection stops the server by design (the UI hears event 3), so
// every scenario starts its own server, and several restart it. Whatever the
// peer does, the server's connections, threads and memory must be gone once
// it is stopped.
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <string>
#include <vector>

#include "SP/server/SPHTTPHandler.h"
#include "SP/server/SPServer.h"
#include "hostile/hostile_support.h"
#include "support/tcp_peer.h"
#include "support/test_support.h"

namespace {

std::mutex gLock;
std::condition_variable gChanged;
std::vector<eSPNotifyControlEvent> gEvents;

void onServerEvent(eSPNotifyControlEvent event, stSPInformation*) {
    std::lock_guard<std::mutex> g(gLock);
    gEvents.push_back(event);
    gChanged.notify_all();
}

const std::string kAlive =
    "GET /sp/control HTTP/1.1\r\nHOST: 127.0.0.1:8100\r\nNTS: alive\r\nUser-Agent: ORB_SP_Phone\r\n"
    "HOST-PNumber: 01012345678\r\nData-Server: 127.0.0.5:8080\r\n\r\n";

class HostilePushPeer : public testing::Test {
protected:
    void SetUp() override {
        host::reset();
        clearEvents();
        m_base = hostile::snapshot();
    }
    void TearDown() override { delete m_server; }

    void clearEvents() {
        std::lock_guard<std::mutex> g(gLock);
        gEvents.clear();
    }
    void startServer() {
        m_server = new SPServer;
        m_server->setCallback(onServerEvent);
        m_server->start();
        ASSERT_EQ(m_server->waitSemaphore(5000), 1);
        // 8100 unless another server holds it (the fallback ports serve the same).
        m_port = m_server->getServerPort();
        ASSERT_NE(m_port, 0);
    }
    // Waits (at most timeoutMs) for the server to report that it stopped on
    // an error; the number of such reports.
    size_t waitForFailure(int timeoutMs) {
        std::unique_lock<std::mutex> g(gLock);
        gChanged.wait_for(g, std::chrono::milliseconds(timeoutMs), [] {
            for (eSPNotifyControlEvent e : gEvents)
                if (e == EVENT_DEVICE_SERVER_FAIL) return true;
            return false;
        });
        size_t n = 0;
        for (eSPNotifyControlEvent e : gEvents) n += (e == EVENT_DEVICE_SERVER_FAIL);
        return n;
    }
    void stopServer() {
        delete m_server;
        m_server = nullptr;
    }
    // The server is stopped: nothing it used may be left.
    void expectBackToBaseline() {
        stopServer();
        hostile::expectBackTo(m_base, 5000);
    }
    // A phone sends text that the server must refuse by closing, without a
    // reply, well before the 5-second limit of a head; the server stops.
    void expectClosedAtTheBound(const std::string& text) {
        int64_t took = 0;
        std::string reply;
        EXPECT_TRUE(hostile::sendAndWaitForClose("127.0.0.5", m_port, text, 8000, &took, &reply));
        EXPECT_EQ(reply, "");
        EXPECT_LT(took, 4500);
        EXPECT_EQ(waitForFailure(3000), 1u);
    }
    // Log lines (of the push server) that contain needle.
    static int countLoggedContaining(const std::string& needle) {
        return static_cast<int>(host::logLinesContaining(needle).size());
    }

    SPServer* m_server = nullptr;
    uint16_t m_port = 0;
    hostile::Resources m_base{};
};

TEST_F(HostilePushPeer, ThousandDroppedConnectionsEachStopTheServerOnceAndLeaveNothing) {
    // 20 servers, each met by 50 phones that open a connection and drop it at
    // once (every other one with a reset). The first failing one stops the
    // server with exactly one event 3; the others are closed with it.
    const int kRounds = 20, kPerRound = 50;
    for (int round = 0; round < kRounds; ++round) {
        clearEvents();
        startServer();
        for (int i = 0; i < kPerRound; ++i)
            hostile::drop(hostile::openNonBlocking("127.0.0." + std::to_string(10 + i), m_port), i % 2 == 1);
        EXPECT_EQ(waitForFailure(8000), 1u) << "round " << round;
        stopServer();
    }
    EXPECT_TRUE(testsupport::logged("[SP] Client httpHandler fail..", "DLNA_SP"));
    expectBackToBaseline();
}

TEST_F(HostilePushPeer, IdleConnectionsBeyondTheBoundAreClosedAtOnce) {
    startServer();
    std::vector<int> idle;
    for (int i = 0; i < 100; ++i) {
        const int fd = testsupport::connectFrom("127.0.0." + std::to_string(10 + i), "127.0.0.1", m_port);
        ASSERT_GE(fd, 0);
        idle.push_back(fd);
    }
    // The newest connections are over the bound of 64 waiting ones: closed.
    EXPECT_TRUE(hostile::closedByPeer(idle.back(), 5000, nullptr));
    EXPECT_FALSE(hostile::closedByPeer(idle.front(), 200, nullptr)) << "the first ones still wait";
    EXPECT_EQ(testsupport::countLogged("myAssert"), 0) << "64 waiting connections are a normal wait";
    for (int fd : idle) hostile::drop(fd, false);
    EXPECT_EQ(waitForFailure(8000), 1u);
    expectBackToBaseline();
}

TEST_F(HostilePushPeer, SlowSenderIsGivenUpAfterFiveSecondsWithoutAReply) {
    startServer();
    const int fd = testsupport::connectFrom("127.0.0.5", "127.0.0.1", m_port);
    ASSERT_GE(fd, 0);
    const int64_t t0 = hostile::nowMs();
    // One byte every 500 ms: the whole announcement would take a minute.
    EXPECT_FALSE(hostile::trickle(fd, kAlive, 500)) << "the server must close before the head is complete";
    const int64_t took = hostile::nowMs() - t0;
    std::string reply;
    EXPECT_TRUE(hostile::closedByPeer(fd, 3000, &reply));
    EXPECT_EQ(reply, "") << "a head that did not end gets no reply";
    hostile::drop(fd, false);
    EXPECT_GE(took, 4500);
    EXPECT_LT(took, 12000);
    EXPECT_EQ(waitForFailure(3000), 1u);
    EXPECT_FALSE(host::logLinesContaining("HTTP Connection: received corrupted HTTP header:\nGET /sp").empty());
    expectBackToBaseline();
}

TEST_F(HostilePushPeer, HeadThatNeverEndsIsCutAtItsBoundBeforeTheTimeLimit) {
    startServer();
    expectClosedAtTheBound(hostile::endlessHead("GET /sp/control HTTP/1.1", 4 * 1024 * 1024));
    expectBackToBaseline();
}

TEST_F(HostilePushPeer, MegabyteHeaderLineIsRefusedWithoutReplyOrGrowth) {
    static_assert(SPHTTPHandler::kMaxPendingBytes < 1024 * 1024, "the line is longer than any head kept");
    startServer();
    expectClosedAtTheBound("GET /sp/control HTTP/1.1\r\nX-Long: " + std::string(1024 * 1024, 'a') +
                           "\r\nNTS: alive\r\n\r\n");
    expectBackToBaseline();
}
TEST_F(HostilePushPeer, RequestsNamingManyAddressesKeepABoundedNumberOfConnections) {
    // A request without NTS is "nothing to do", and its connection is kept as
    // the entry of the phone its Data-Server names. A peer naming a new
    // address every time must not make the server keep a connection each.
    startServer();
    const int kPeers = 200;
    std::vector<int> peers;
    for (int i = 0; i < kPeers; ++i) {
        const int fd = testsupport::connectFrom("127.0.0.5", "127.0.0.1", m_port);
        ASSERT_GE(fd, 0);
        peers.push_back(fd);
        const std::string address = "127.0." + std::to_string(1 + i / 250) + "." + std::to_string(1 + i % 250);
        ASSERT_TRUE(testsupport::sendAll(fd, "GET /sp/control HTTP/1.1\r\nData-Server: " + address + ":8080\r\n\r\n"));
        // Served one after another, as a phone would come.
        for (int w = 0; w < 200 && countLoggedContaining("### fd = ") < i + 1; ++w)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    // This side holds its 200 ends; the server its listening socket and at
    // most its bound of kept connections, not one per address (once the
    // last request is through).
    const int bound = 1 + static_cast<int>(SPServer::kMaxClientEntries);
    int held = 0;
    for (int w = 0; w < 100; ++w) {
        held = testsupport::openDescriptorCount() - m_base.descriptors - kPeers;
        if (held <= bound) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_LE(held, bound);
    EXPECT_TRUE(hostile::closedByPeer(peers.front(), 3000, nullptr)) << "the oldest kept connection was closed";
    EXPECT_FALSE(hostile::closedByPeer(peers.back(), 200, nullptr)) << "the newest is kept";
    EXPECT_EQ(waitForFailure(0), 0u) << "nothing failed: the server goes on";
    for (int fd : peers) hostile::drop(fd, false);
    expectBackToBaseline();
}

}  // namespace
