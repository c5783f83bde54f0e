// The real DLNA stack's streaming server (the one TVs fetch the card's files
// from) against clients that do not follow the protocol. It serves every
// connection on a thread of its own, at most kMaxStreamingClients at once
// (503 beyond them), gives a request head 10 seconds and 8 KiB, and answers
// "Connection: close". One server meets every client of a scenario; after
// it, the server still serves files, and the process holds the descriptors,
// threads and (near enough) the memory it held before.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <fstream>
#include <string>

#include "hostile/hostile_support.h"
#include "streaming_server.h"
#include "support/tcp_peer.h"
#include "support/test_support.h"

using camwifi::upnp::HttpStreamingServer;
using camwifi::upnp::kMaxStreamingClients;

namespace {

// What the server gives a request head: 10 seconds, and about 8 KiB (a
// longer head is closed without an answer).
constexpr int kHeadTimeLimitMs = 10000;
constexpr size_t kHeadByteLimit = 8192;

// The photo the clients fetch: small, so that a request costs its handling
// and not its copying.
const std::string kPhotoBody(2000, 'p');

std::string clientAddress(int n) { return "127.0.1." + std::to_string(1 + n % 250); }

class HostileStreamingClient : public testing::Test {
protected:
    void SetUp() override {
        host::reset();
        m_media = m_dir.path() + "/DCIM";
        ASSERT_EQ(mkdir(m_media.c_str(), 0755), 0);
        std::ofstream(m_media + "/photo.JPG", std::ios::binary) << kPhotoBody;
        // A port nobody holds, found by trying: this suite needs no lock.
        for (int p = 18400; p < 18500 && m_port == 0; ++p)
            if (m_server.start(p, {m_media}) == 0) m_port = static_cast<uint16_t>(p);
        ASSERT_NE(m_port, 0);
        m_get = "GET " + m_media + "/photo.JPG HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(m_port) +
                "\r\nUser-Agent: TV/1.0\r\n\r\n";
        m_ok = "HTTP/1.1 200 OK\r\nContent-Type: image/jpeg\r\nContent-Length: " + std::to_string(kPhotoBody.size());
        // One ordinary fetch first, so that what a served request leaves for
        // good (the first thread's stack, the allocator's arena) is part of
        // the baseline.
        ASSERT_TRUE(fetchesThePhoto(0));
        m_base = hostile::snapshot();
    }
    void TearDown() override { m_server.stop(); }

    // Client n fetches the photo; the whole answer (the server closes after it).
    std::string fetch(int n) {
        const int fd = testsupport::connectFrom(clientAddress(n), "127.0.0.1", m_port);
        if (fd < 0) return "(no connection)";
        std::string answer;
        if (testsupport::sendAll(fd, m_get)) answer = testsupport::recvAll(fd, 8000);
        hostile::drop(fd, false);
        return answer;
    }
    bool fetchesThePhoto(int n) {
        const std::string answer = fetch(n);
        return answer.compare(0, m_ok.size(), m_ok) == 0 && answer.size() > kPhotoBody.size() &&
               answer.compare(answer.size() - kPhotoBody.size(), kPhotoBody.size(), kPhotoBody) == 0;
    }
    // The server still serves, and holds what it held before the scenario.
    void expectServingAtBaseline() {
        EXPECT_TRUE(fetchesThePhoto(1)) << "the server goes on";
        // A client's thread is reaped by the accept loop at its next turn,
        // within a second.
        hostile::expectBackTo(m_base, 8000);
    }
    // A client sends text that the server must refuse by closing without an
    // answer, well before the time limit of a head.
    void expectClosedWithoutAnswer(const std::string& text) {
        hostile::expectClosedWithoutReply(clientAddress(5), m_port, text, kHeadTimeLimitMs - 1000);
    }

    testsupport::TempDir m_dir;
    std::string m_media;
    HttpStreamingServer m_server;
    uint16_t m_port = 0;
    std::string m_get, m_ok;
    hostile::Resources m_base{};
};

TEST_F(HostileStreamingClient, TenThousandSequentialRequestsLeaveNothingBehind) {
    const int kRequests = hostile::scaled(10000);
    const int64_t deadline = hostile::nowMs() + 240000;
    int served = 0;
    hostile::Resources halfway{};
    for (int i = 0; i < kRequests && hostile::nowMs() < deadline; ++i) {
        if (!fetchesThePhoto(i)) {
            ADD_FAILURE() << "request " << i << " got [" << fetch(i).substr(0, 200) << "]";
            break;
        }
        ++served;
        if (i == kRequests / 2) halfway = hostile::snapshot();
    }
    EXPECT_EQ(served, kRequests);
    // Memory does not grow with the number of requests served.
    hostile::expectMemoryNear(halfway, m_base);
    EXPECT_EQ(m_server.answered(), static_cast<uint64_t>(kRequests) + 1);
    expectServingAtBaseline();
}

TEST_F(HostileStreamingClient, ThousandConnectionsDroppedMidRequestLeaveNothingBehind) {
    // Batches of 50 clients that send part of the request line or head and
    // go (every other one with a reset), each batch followed by an ordinary
    // fetch. A batch can fill the 32 client slots for a moment: that fetch
    // is then refused with 503 until the dropped ones' threads end, which
    // they do at once, so it is tried again (at most 50 times).
    for (int batch = 0; batch < 20; ++batch) {
        for (int i = 0; i < 50; ++i)
            hostile::dropMidRequest(clientAddress(i), m_port, m_get, 1 + (batch * 50 + i) % (m_get.size() - 4),
                                    i % 2 == 1);
        bool served = false;
        for (int attempt = 0; attempt < 50 && !served; ++attempt) {
            served = fetchesThePhoto(batch);
            if (!served) std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        ASSERT_TRUE(served) << "after batch " << batch;
    }
    expectServingAtBaseline();
}

TEST_F(HostileStreamingClient, FiftySlowClientsFillTheSlotsAndATvIsRefusedAtOnceUntilTheHeadLimit) {
    // 50 clients each send their request one byte a second: it would take
    // them two minutes. The first 32 take every client slot; the other 18
    // are answered 503 at once and closed.
    hostile::Tricklers slow;
    ASSERT_TRUE(slow.start({"127.0.2.1", "127.0.2.2"}, 50, m_port, m_get, 1000));
    // (The slow clients look for the close once a second.)
    for (int w = 0; w < 60 && slow.closedByServer() < 50 - kMaxStreamingClients; ++w)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(slow.closedByServer(), 50 - kMaxStreamingClients) << "the ones beyond the slots are closed";
    // A TV arriving meanwhile is not kept waiting: it is answered at once,
    // with 503, while the slots are held ...
    const std::string refused = fetch(7);
    EXPECT_EQ(refused.compare(0, 32, "HTTP/1.1 503 Service Unavailable"), 0) << refused;
    EXPECT_EQ(slow.closedByServer(), 50 - kMaxStreamingClients) << "the ones in the slots are still sending";
    // ... and once the slow clients reach the time limit of a head they are
    // closed, without an answer, and the TV is served.
    const int64_t t0 = hostile::nowMs();
    for (int w = 0; w < 300 && slow.closedByServer() < 50; ++w)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(slow.closedByServer(), 50);
    EXPECT_LT(hostile::nowMs() - t0, kHeadTimeLimitMs + 3000);
    EXPECT_TRUE(fetchesThePhoto(7));
    slow.stop();
    expectServingAtBaseline();
}

TEST_F(HostileStreamingClient, MegabyteHeaderLineIsClosedWithoutAnswerOrGrowth) {
    expectClosedWithoutAnswer("GET " + m_media + "/photo.JPG HTTP/1.1\r\nX-Long: " + std::string(1024 * 1024, 'a') +
                              "\r\n\r\n");
    expectServingAtBaseline();
}

TEST_F(HostileStreamingClient, TenThousandHeaderLinesAreClosedWithoutAnswer) {
    const std::string head =
        hostile::headWithLines("GET " + m_media + "/photo.JPG HTTP/1.1", 10000, "X-Line: 1");
    ASSERT_GT(head.size(), kHeadByteLimit);
    expectClosedWithoutAnswer(head);
    expectServingAtBaseline();
}

TEST_F(HostileStreamingClient, BodyThatNeverEndsIsIgnoredAfterTheAnswer) {
    // The request announces a body and sends it without end: the server
    // reads the head only, answers, and closes.
    std::string reply;
    size_t bodySent = 0;
    EXPECT_TRUE(hostile::sendEndlessBody(clientAddress(3), m_port,
                                         "GET " + m_media + "/photo.JPG HTTP/1.1\r\nContent-Length: 1000000000000\r\n\r\n",
                                         8000, &reply, &bodySent));
    EXPECT_EQ(reply.compare(0, m_ok.size(), m_ok), 0) << reply.substr(0, 200);
    expectServingAtBaseline();
}

TEST_F(HostileStreamingClient, NulBytesInTheTargetAreRefusedWith400) {
    int64_t took = 0;
    std::string reply;
    const std::string target = m_media + "/photo.JPG";
    EXPECT_TRUE(hostile::sendAndWaitForClose(clientAddress(4), m_port,
                                             "GET " + target + std::string(1, '\0') + ".txt HTTP/1.1\r\n\r\n", 8000,
                                             &took, &reply));
    EXPECT_EQ(reply.compare(0, 24, "HTTP/1.1 400 Bad Request"), 0) << reply;
    // An escaped NUL is refused the same way.
    reply.clear();
    EXPECT_TRUE(hostile::sendAndWaitForClose(clientAddress(4), m_port, "GET " + target + "%00.txt HTTP/1.1\r\n\r\n",
                                             8000, &took, &reply));
    EXPECT_EQ(reply.compare(0, 24, "HTTP/1.1 400 Bad Request"), 0) << reply;
    expectServingAtBaseline();
}

}  // namespace
