// The push client against phone receivers that do not follow the protocol:
// receivers that drop the connection, answer one byte at a time, or send a
// reply head that never ends. Every transfer must end with exactly one final
// event within its documented limits, and leave no descriptor, thread or
// memory behind.
#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "SP/client/SPHTTPClientHandler.h"
#include "client_support.h"
#include "hostile/hostile_support.h"
#include "support/tcp_peer.h"
#include "support/test_support.h"

using namespace clienttest;

namespace {

const char kMac[] = "02:00:7f:00:00:09";

class HostileReceiver : public testing::Test {
protected:
    void SetUp() override {
        host::reset();
        baselineThreadCount();
        m_picture.assign(3000, 'p');
        m_base = hostile::snapshot();
    }

    // A transfer of the 3000-byte "resized picture" to 127.0.0.1:port.
    std::unique_ptr<SPHTTPClientHandler> transfer(uint16_t port) {
        auto h = std::make_unique<SPHTTPClientHandler>(&m_notifier, "/DCIM/100CAMER/HOST0001.JPG", "127.0.0.1", port,
                                                       kMac);
        h->setResizeParams(true, &m_picture[0], static_cast<unsigned int>(m_picture.size()));
        return h;
    }
    std::vector<eSPNotifyClntEvent> kinds() {
        std::vector<eSPNotifyClntEvent> out;
        for (const Event& e : m_events.all()) out.push_back(e.event);
        return out;
    }
    void expectBackToBaseline() { hostile::expectBackTo(m_base, 5000); }

    std::string m_picture;
    EventLog m_events;
    RecordingNotifier m_notifier{&m_events};
    hostile::Resources m_base{};
};

TEST_F(HostileReceiver, ThousandDroppedConnectionsEachFailTheirTransferOnce) {
    uint16_t port = 0;
    const int listenFd = testsupport::listenLoopback(&port, 64);
    ASSERT_GE(listenFd, 0);
    const int kTransfers = 1000;
    const int64_t deadline = hostile::nowMs() + 120000;
    int done = 0;
    for (int i = 0; i < kTransfers && hostile::nowMs() < deadline; ++i) {
        m_events.clear();
        auto h = transfer(port);
        h->start();
        pollfd p{listenFd, POLLIN, 0};
        ASSERT_EQ(poll(&p, 1, 10000), 1) << "transfer " << i << " did not connect";
        // The receiver takes the connection and drops it (every other one
        // with a reset) without a word.
        hostile::drop(accept(listenFd, nullptr, nullptr), i % 2 == 1);
        ASSERT_TRUE(m_events.waitFinals(1, 10000)) << "transfer " << i << " never ended";
        h.reset();
        ASSERT_EQ(kinds(), std::vector<eSPNotifyClntEvent>{EVENT_CLIENT_TRANSFER_FAIL}) << "transfer " << i;
        ++done;
    }
    close(listenFd);
    EXPECT_EQ(done, kTransfers);
    expectBackToBaseline();
}

TEST_F(HostileReceiver, TricklingReplyHeadKeepsTheTransferOnlyUntilItIsStopped) {
    {
        // One byte every 500 ms of a head that never ends: past its three reply
        // periods the client keeps reading (the reply is still coming), so only a
        // stop ends it; the stop is seen at the next byte.
        Receiver phone([](int fd) {
            testsupport::recvUntil(fd, "\r\n\r\n", 10000);
            hostile::trickle(fd, "HTTP/1.1 100 Continue\r\nX-Slow: " + std::string(40, 's'), 500);
        });
        auto h = transfer(phone.port());
        h->start();
        EXPECT_FALSE(m_events.waitFinals(1, 3000)) << "still waiting for the reply";
        const int64_t t0 = hostile::nowMs();
        h.reset();  // stop and join
        EXPECT_LT(hostile::nowMs() - t0, 2500);
        EXPECT_EQ(kinds(), std::vector<eSPNotifyClntEvent>{EVENT_CLIENT_TRANSFER_FAIL});
        phone.wait();
    }  // the receiver is gone too
    expectBackToBaseline();
}

TEST_F(HostileReceiver, SlowButCompleteRepliesAreWaitedForAndTheTransferCompletes) {
    {
        Receiver phone([this](int fd) {
            testsupport::recvUntil(fd, "\r\n\r\n", 10000);
            hostile::trickle(fd, "HTTP/1.1 100 Go\r\n\r\n", 500);
            recvExactly(fd, m_picture.size(), 10000);
            hostile::trickle(fd, "HTTP/1.1 200 OK\r\n\r\n", 500);
            testsupport::peerClosed(fd, 10000);
        });
        const int64_t t0 = hostile::nowMs();
        auto h = transfer(phone.port());
        h->start();
        ASSERT_TRUE(m_events.waitFinals(1, 60000));
        EXPECT_GE(hostile::nowMs() - t0, 15000) << "38 bytes at 500 ms each";
        h.reset();
        expectOneTransfer(m_events.all(), EVENT_CLIENT_TRANSFER_COMPLETE);
        phone.wait();
    }  // the receiver is gone too
    expectBackToBaseline();
}

TEST_F(HostileReceiver, MegabyteReplyHeaderLineFailsTheTransferWithoutGrowth) {
    {
        Receiver phone([](int fd) {
            testsupport::recvUntil(fd, "\r\n\r\n", 10000);
            hostile::pushUntilRefused(fd, "HTTP/1.1 100 Continue\r\nX-Long: " + std::string(1024 * 1024, 'a') + "\r\n\r\n",
                                      10000);
        });
        const int64_t t0 = hostile::nowMs();
        auto h = transfer(phone.port());
        h->start();
        ASSERT_TRUE(m_events.waitFinals(1, 10000));
        EXPECT_LT(hostile::nowMs() - t0, 7000) << "given up at the bound, not after the reply periods";
        h.reset();
        EXPECT_EQ(kinds(), std::vector<eSPNotifyClntEvent>{EVENT_CLIENT_TRANSFER_FAIL});
        EXPECT_FALSE(host::logLinesContaining("HTTP Connection: received corrupted HTTP header:\nHTTP/1.1 100 Continue").empty());
        phone.wait();
    }  // the receiver is gone too
    expectBackToBaseline();
}

TEST_F(HostileReceiver, FinalReplyThatNeverEndsFailsTheTransferNeverCompletes) {
    {
        Receiver phone([this](int fd) {
            testsupport::recvUntil(fd, "\r\n\r\n", 10000);
            testsupport::sendAll(fd, "HTTP/1.1 100 Continue\r\n\r\n");
            recvExactly(fd, m_picture.size(), 10000);
            hostile::pushUntilRefused(fd, hostile::endlessHead("HTTP/1.1 200 OK", 4 * 1024 * 1024), 10000);
        });
        auto h = transfer(phone.port());
        h->start();
        ASSERT_TRUE(m_events.waitFinals(1, 15000));
        h.reset();
        expectOneTransfer(m_events.all(), EVENT_CLIENT_TRANSFER_FAIL);
        phone.wait();
    }  // the receiver is gone too
    expectBackToBaseline();
}

}  // namespace
