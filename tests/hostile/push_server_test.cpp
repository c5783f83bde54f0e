// The push server against phones that do not follow the protocol. One
// failing connection stops the server by design (the UI hears event 3), so
// every scenario starts its own server, and several restart it. Whatever the
// peer does, the server's connections, threads and memory must be gone once
// it is stopped.
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
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
// When set, the UI's part: every announced phone is accepted from inside
// the callback, as the push API does when the user says yes at once.
std::atomic<SPServer*> gAccepting{nullptr};

void onServerEvent(eSPNotifyControlEvent event, stSPInformation* info) {
    if (event == EVENT_DEVICE_NEW && info != nullptr)
        if (SPServer* server = gAccepting.load()) server->sendClientStartNotice(info->mac, true);
    std::lock_guard<std::mutex> g(gLock);
    gEvents.push_back(event);
    gChanged.notify_all();
}

const std::string kAlive =
    "GET /sp/control HTTP/1.1\r\nHOST: 127.0.0.1:8100\r\nNTS: alive\r\nUser-Agent: ORB_SP_Phone\r\n"
    "HOST-PNumber: 01012345678\r\nData-Server: 127.0.0.5:8080\r\n\r\n";
const std::string kOk =
    "HTTP/1.1 200 OK\r\nServer: ORB_SP_Camera\r\nContent-Type: text/xml;charset=utf-8 \r\nCache-Control: no-cache\r\n\r\n";

std::string phoneAddress(int n) { return "127.0.0." + std::to_string(10 + n % 200); }
// Phone n's announcement (nts "alive") or departure ("byebye"), naming its
// own address as its data server.
std::string phoneRequest(int n, const std::string& nts) {
    return "GET /sp/control HTTP/1.1\r\nHOST: 127.0.0.1:8100\r\nNTS: " + nts +
           "\r\nUser-Agent: ORB_SP_Phone\r\nHOST-PNumber: 0101234" + std::to_string(1000 + n % 1000) +
           "\r\nData-Server: " + phoneAddress(n) + ":8080\r\n\r\n";
}

class HostilePushPeer : public testing::Test {
protected:
    void SetUp() override {
        host::reset();
        clearEvents();
        m_base = hostile::snapshot();
    }
    void TearDown() override {
        gAccepting = nullptr;
        delete m_server;
    }

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
        gAccepting = nullptr;
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
        hostile::expectClosedWithoutReply("127.0.0.5", m_port, text, 4500);
        EXPECT_EQ(waitForFailure(3000), 1u);
    }
    // Log lines (of the push server) that contain needle.
    static int countLoggedContaining(const std::string& needle) {
        return static_cast<int>(host::logLinesContaining(needle).size());
    }

    // Phone n announces itself and is accepted (200); then it leaves with a
    // request of its own, and the server closes both connections: two
    // requests answered.
    bool phoneComesAndGoes(int n) {
        const int fd = testsupport::connectFrom(phoneAddress(n), "127.0.0.1", m_port);
        if (fd < 0) return false;
        bool ok = testsupport::sendAll(fd, phoneRequest(n, "alive"));
        const std::string reply = ok ? testsupport::recvUntil(fd, "\r\n\r\n", 8000) : "";
        if (reply != kOk) {
            ADD_FAILURE() << "phone " << n << " was answered [" << reply << "]";
            ok = false;
        }
        ok = ok && phoneLeaves(phoneAddress(n));
        if (ok && !hostile::closedByPeer(fd, 8000, nullptr)) {
            ADD_FAILURE() << "phone " << n << ": its announcement's connection stays open after it left";
            ok = false;
        }
        hostile::drop(fd, false);
        return ok;
    }
    // The phone at address says goodbye; the server closes that connection.
    bool phoneLeaves(const std::string& address) {
        const int fd = testsupport::connectFrom(address, "127.0.0.1", m_port);
        if (fd < 0) return false;
        bool ok = testsupport::sendAll(fd, "GET /sp/control HTTP/1.1\r\nNTS: byebye\r\nData-Server: " + address +
                                               ":8080\r\n\r\n");
        if (ok && !hostile::closedByPeer(fd, 8000, nullptr)) {
            ADD_FAILURE() << "phone " << address << ": the goodbye's connection stays open";
            ok = false;
        }
        hostile::drop(fd, false);
        return ok;
    }
    // Rounds of 50 phones that each send the first bytes of an announcement
    // (none of them complete) and go, every other one with a reset. The
    // first one the server reads stops it with exactly one event 3 (one
    // failing connection stops the server by design); the others are closed
    // with it. A new server starts for every round.
    void dropRounds(bool midRequest) {
        const int kRounds = 20, kPerRound = 50;
        for (int round = 0; round < kRounds; ++round) {
            clearEvents();
            startServer();
            for (int i = 0; i < kPerRound; ++i) {
                const std::string from = "127.0.0." + std::to_string(10 + i);
                if (midRequest)
                    hostile::dropMidRequest(from, m_port, kAlive, 1 + (round * kPerRound + i) % (kAlive.size() - 4),
                                            i % 2 == 1);
                else
                    hostile::drop(hostile::openNonBlocking(from, m_port), i % 2 == 1);
            }
            EXPECT_EQ(waitForFailure(8000), 1u) << "round " << round;
            stopServer();
        }
        EXPECT_TRUE(testsupport::logged("[SP] Client httpHandler fail..", "DLNA_SP"));
        // A server started afterwards answers a phone as ever.
        clearEvents();
        startServer();
        gAccepting = m_server;
        EXPECT_TRUE(phoneComesAndGoes(1));
        expectBackToBaseline();
    }

    SPServer* m_server = nullptr;
    uint16_t m_port = 0;
    hostile::Resources m_base{};
};

TEST_F(HostilePushPeer, ThousandDroppedConnectionsEachStopTheServerOnceAndLeaveNothing) { dropRounds(false); }

TEST_F(HostilePushPeer, ThousandConnectionsDroppedMidRequestEachStopTheServerOnceAndLeaveNothing) {
    dropRounds(true);
}

TEST_F(HostilePushPeer, TenThousandSequentialRequestsLeaveNothingBehind) {
    // 5,000 phones one after another, each announcing itself, accepted, and
    // leaving: 10,000 requests served by one server.
    startServer();
    gAccepting = m_server;
    ASSERT_TRUE(phoneComesAndGoes(0));
    const hostile::Resources serving = hostile::snapshot();
    const int kPhones = hostile::scaled(10000) / 2;
    const int64_t deadline = hostile::nowMs() + 240000;
    int served = 0;
    hostile::Resources halfway{};
    for (int n = 1; n <= kPhones && hostile::nowMs() < deadline; ++n) {
        if (!phoneComesAndGoes(n)) break;
        ++served;
        if (n == kPhones / 2) halfway = hostile::snapshot();
    }
    EXPECT_EQ(served, kPhones);
    EXPECT_EQ(m_server->getPermittedListSize(), 0) << "every phone left";
    EXPECT_FALSE(m_server->isClientConfirmed());
    EXPECT_EQ(waitForFailure(0), 0u) << "nothing failed";
    // Memory does not grow with the number of requests served, and the
    // running server holds what it held after its first phone.
    hostile::expectMemoryNear(halfway, serving);
    hostile::expectBackTo(serving, 8000);
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

TEST_F(HostilePushPeer, SlowClientsStopTheServerAndAPhoneArrivingMeanwhileIsNeverAnswered) {
    // 50 clients each send an announcement one byte a second. The server
    // serves one connection at a time and gives it 5 seconds for its head;
    // the first slow client to be served runs out of them, and one failing
    // connection stops the server (event 3) by design. A phone that arrives
    // meanwhile is never answered: the server stops within 5 seconds of its
    // arrival, and the phone is served again only once the UI starts the
    // push server anew (the README says so). The connections the server had
    // taken stay open, unread, until the UI terminates it: at most its
    // bound of waiting connections.
    startServer();
    gAccepting = m_server;
    hostile::Tricklers slow;
    ASSERT_TRUE(slow.start({"127.0.1.1", "127.0.1.2"}, 50, m_port, kAlive, 1000));
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    const int phone = testsupport::connectFrom(phoneAddress(7), "127.0.0.1", m_port);
    ASSERT_GE(phone, 0);
    ASSERT_TRUE(testsupport::sendAll(phone, phoneRequest(7, "alive")));
    EXPECT_EQ(waitForFailure(5000 + 2000), 1u) << "the first slow client stops the server";
    std::string reply;
    hostile::closedByPeer(phone, 500, &reply);
    EXPECT_EQ(reply, "") << "the phone is not answered";
    EXPECT_EQ(m_server->getPermittedListSize(), 0);
    stopServer();  // the UI terminates the failed server
    EXPECT_TRUE(hostile::closedByPeer(phone, 3000, &reply));
    EXPECT_EQ(reply, "");
    hostile::drop(phone, false);
    for (int w = 0; w < 100 && slow.closedByServer() < 50; ++w)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(slow.closedByServer(), 50) << "every slow client was closed by the terminate";
    slow.stop();
    expectBackToBaseline();
}

TEST_F(HostilePushPeer, TenThousandHeaderLinesBelowTheBoundAreReadAsOneAnnouncement) {
    // 10,000 short header lines make a head of 110 KB, within the 256 KiB
    // the handler keeps: it is parsed like any other and the phone behind
    // it is accepted.
    const std::string head = hostile::headWithLines("GET /sp/control HTTP/1.1", 10000, "X-Line: 1",
                                                    "NTS: alive\r\nUser-Agent: ORB_SP_Phone\r\n"
                                                    "Data-Server: 127.0.0.5:8080\r\n");
    ASSERT_LT(head.size(), SPHTTPHandler::kMaxPendingBytes);
    startServer();
    gAccepting = m_server;
    const int fd = testsupport::connectFrom("127.0.0.5", "127.0.0.1", m_port);
    ASSERT_GE(fd, 0);
    ASSERT_TRUE(testsupport::sendAll(fd, head));
    EXPECT_EQ(testsupport::recvUntil(fd, "\r\n\r\n", 8000), kOk);
    EXPECT_EQ(m_server->getPermittedListSize(), 1);
    EXPECT_TRUE(phoneLeaves("127.0.0.5"));
    EXPECT_TRUE(hostile::closedByPeer(fd, 3000, nullptr));
    hostile::drop(fd, false);
    EXPECT_EQ(m_server->getPermittedListSize(), 0);
    EXPECT_EQ(waitForFailure(0), 0u);
    expectBackToBaseline();
}

TEST_F(HostilePushPeer, BodyThatNeverEndsIsNeverReadAndTheConnectionIsKeptUntilThePhoneLeaves) {
    // An announcement followed by a body without end: the head is answered
    // (200), and the connection is then kept as the phone's, unread, so the
    // body stops in the kernel's buffers (the sender is held once they are
    // full) and costs the server nothing. The phone's goodbye closes it.
    startServer();
    gAccepting = m_server;
    std::string reply;
    size_t bodySent = 0;
    std::string head = kAlive;
    head.insert(head.size() - 2, "Content-Length: 1000000000000\r\n");
    const hostile::Resources before = hostile::snapshot();
    int kept = -1;
    EXPECT_FALSE(hostile::sendEndlessBody("127.0.0.5", m_port, head, 2000, &reply, &bodySent, &kept))
        << "the server does not close the phone's connection";
    EXPECT_EQ(reply, kOk);
    EXPECT_LT(bodySent, 64u * 1024 * 1024) << "the sender was held by full buffers";
    EXPECT_LE(hostile::heapInUse(), before.heap + hostile::kHeapSlackBytes) << "the server read none of it";
    EXPECT_TRUE(phoneLeaves("127.0.0.5"));
    EXPECT_TRUE(hostile::closedByPeer(kept, 3000, nullptr)) << "the goodbye closes the phone's connection";
    hostile::drop(kept, false);
    EXPECT_EQ(waitForFailure(0), 0u);
    expectBackToBaseline();
}

TEST_F(HostilePushPeer, NulByteInTheTargetIsAnswered503AndStopsTheServer) {
    startServer();
    gAccepting = m_server;
    int64_t took = 0;
    std::string reply;
    EXPECT_TRUE(hostile::sendAndWaitForClose(
        "127.0.0.5", m_port, "GET /sp/control" + std::string(1, '\0') + " HTTP/1.1\r\nNTS: alive\r\n\r\n", 8000,
        &took, &reply));
    EXPECT_EQ(reply, "HTTP/1.1 503 Service Unavailable\r\nServer: ORB_SP_Camera\r\n\r\n");
    EXPECT_EQ(waitForFailure(3000), 1u) << "a refused request stops the server, as any failing one";
    EXPECT_EQ(m_server->getPermittedListSize(), 0);
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
