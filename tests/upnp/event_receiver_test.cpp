// The control point's GENA event receiver over loopback: what renderers'
// NOTIFY messages get, and what a peer that is slow or not a renderer gets.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

#include "event_receiver.h"
#include "http_client.h"
#include "support/tcp_peer.h"
#include "support/test_support.h"

using camwifi::upnp::EventMessage;
using camwifi::upnp::EventReceiver;
using camwifi::upnp::HttpUrl;
using camwifi::upnp::kEventReadMs;
using camwifi::upnp::parseEventRequest;
using camwifi::upnp::parseHttpUrl;
using camwifi::upnp::parseSubscriptionTimeout;

namespace {

const char kBody[] =
    "<?xml version=\"1.0\"?><e:propertyset xmlns:e=\"urn:schemas-upnp-org:event-1-0\"><e:property>"
    "<LastChange>x</LastChange></e:property></e:propertyset>";

std::string notify(const std::string& sid, const std::string& body = kBody) {
    return "NOTIFY /event HTTP/1.1\r\nHOST: 127.0.0.1\r\nCONTENT-TYPE: text/xml\r\nNT: upnp:event\r\n"
           "NTS: upnp:propchange\r\nSID: " + sid + "\r\nSEQ: 0\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

class EventReceiverTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(receiver.start("127.0.0.1", [this](const EventMessage& m) {
            std::lock_guard<std::mutex> g(lock);
            received.push_back(m);
            return m.sid == "uuid:ours";
        }), 0);
        ASSERT_TRUE(parseHttpUrl(receiver.callbackUrl(), &url));
        EXPECT_EQ(url.path, "/event");
    }
    // Sends text on a connection of its own; the status line of the answer.
    std::string exchange(const std::string& text) {
        int fd = testsupport::connectFrom("", "127.0.0.1", static_cast<uint16_t>(url.port));
        if (fd < 0) return "";
        testsupport::sendAll(fd, text);
        std::string answer = testsupport::recvAll(fd, 5000);
        close(fd);
        return answer.substr(0, answer.find("\r\n"));
    }
    std::vector<EventMessage> messages() {
        std::lock_guard<std::mutex> g(lock);
        return received;
    }

    EventReceiver receiver;
    HttpUrl url;
    std::mutex lock;
    std::vector<EventMessage> received;
};

}  // namespace

TEST(EventRequest, NotifyWithSidAndPropchangeIsAnEvent) {
    std::string text = notify("uuid:1");
    size_t head = text.find("\r\n\r\n") + 4;
    EventMessage m;
    EXPECT_EQ(parseEventRequest(text.substr(0, head), text.substr(head), &m), 0);
    EXPECT_EQ(m.sid, "uuid:1");
    EXPECT_EQ(m.body, kBody);
}

TEST(EventRequest, AnythingElseIsABadRequest) {
    EventMessage m;
    EXPECT_EQ(parseEventRequest("GET /event HTTP/1.1\r\nSID: uuid:1\r\nNT: upnp:event\r\nNTS: upnp:propchange\r\n\r\n",
                                "", &m), 400);
    EXPECT_EQ(parseEventRequest("NOTIFY /event HTTP/1.1\r\nNT: upnp:event\r\nNTS: upnp:propchange\r\n\r\n", "", &m),
              400) << "no SID";
    EXPECT_EQ(parseEventRequest("NOTIFY /event HTTP/1.1\r\nSID: uuid:1\r\nNT: upnp:event\r\nNTS: ssdp:alive\r\n\r\n",
                                "", &m), 400);
    EXPECT_EQ(parseEventRequest("NOTIFY\r\n\r\n", "", &m), 400);
}

TEST(EventRequest, SubscriptionTimeouts) {
    EXPECT_EQ(parseSubscriptionTimeout("Second-1800"), 1800);
    EXPECT_EQ(parseSubscriptionTimeout("second-300"), 300);
    EXPECT_EQ(parseSubscriptionTimeout("infinite"), 0);
    EXPECT_EQ(parseSubscriptionTimeout("Second-"), -1);
    EXPECT_EQ(parseSubscriptionTimeout("Second--5"), -1);
    EXPECT_EQ(parseSubscriptionTimeout("Second-99999999999999"), -1);
    EXPECT_EQ(parseSubscriptionTimeout("1800"), -1);
}

TEST_F(EventReceiverTest, NotifyOfOurSubscriptionIsTakenAndAnswered200) {
    EXPECT_EQ(exchange(notify("uuid:ours")), "HTTP/1.1 200 OK");
    ASSERT_EQ(messages().size(), 1u);
    EXPECT_EQ(messages()[0].sid, "uuid:ours");
    EXPECT_EQ(messages()[0].body, kBody);
}

TEST_F(EventReceiverTest, NotifyOfAnUnknownSubscriptionIsAnswered412) {
    EXPECT_EQ(exchange(notify("uuid:stranger")), "HTTP/1.1 412 Precondition Failed");
}

TEST_F(EventReceiverTest, MalformedOrOversizedRequestsAreAnswered400AndNotHandedOn) {
    EXPECT_EQ(exchange("GET /event HTTP/1.1\r\nContent-Length: 0\r\n\r\n"), "HTTP/1.1 400 Bad Request");
    EXPECT_EQ(exchange("NOTIFY /event HTTP/1.1\r\nSID: uuid:ours\r\nNT: upnp:event\r\nNTS: upnp:propchange\r\n\r\n"),
              "HTTP/1.1 400 Bad Request") << "no Content-Length";
    EXPECT_EQ(exchange("NOTIFY /event HTTP/1.1\r\nSID: uuid:ours\r\nContent-Length: 99999999\r\n\r\n"),
              "HTTP/1.1 400 Bad Request") << "a body larger than any event";
    EXPECT_EQ(exchange("NOTIFY /event HTTP/1.1\r\nX: " + std::string(20000, 'a') + "\r\n\r\n"),
              "HTTP/1.1 400 Bad Request") << "a head larger than any event's";
    EXPECT_TRUE(messages().empty());
    EXPECT_EQ(exchange(notify("uuid:ours")), "HTTP/1.1 200 OK") << "still serving";
}

// A peer that sends half a message and waits is dropped after the read
// bound; the renderer behind it is served then.
TEST_F(EventReceiverTest, SlowPeerIsDroppedAfterTheReadBoundAndTheNextIsServed) {
    int slow = testsupport::connectFrom("", "127.0.0.1", static_cast<uint16_t>(url.port));
    ASSERT_GE(slow, 0);
    testsupport::sendAll(slow, "NOTIFY /event HTTP/1.1\r\nSID: uuid:ours\r\n");
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(exchange(notify("uuid:ours")), "HTTP/1.1 200 OK");
    EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(kEventReadMs - 200));
    EXPECT_TRUE(testsupport::peerClosed(slow, 1000));
    close(slow);
}

// Stop returns at once while a peer holds a connection half sent, and the
// descriptors and thread go with it.
TEST(EventReceiverLifecycle, StopWhileAPeerHoldsAConnectionReturnsAtOnceAndLeavesNothing) {
    const int fds = testsupport::openFds(), threads = testsupport::threadCount();
    {
        EventReceiver receiver;
        ASSERT_EQ(receiver.start("127.0.0.1", [](const EventMessage&) { return true; }), 0);
        HttpUrl url;
        ASSERT_TRUE(parseHttpUrl(receiver.callbackUrl(), &url));
        int held = testsupport::connectFrom("", "127.0.0.1", static_cast<uint16_t>(url.port));
        ASSERT_GE(held, 0);
        testsupport::sendAll(held, "NOTIFY /event HTTP/1.1\r\n");
        usleep(100 * 1000);
        auto t0 = std::chrono::steady_clock::now();
        receiver.stop();
        EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(500));
        EXPECT_EQ(receiver.callbackUrl(), "");
        close(held);
    }
    EXPECT_EQ(testsupport::openFds(), fds);
    EXPECT_EQ(testsupport::threadCount(), threads);
}

TEST(EventReceiverLifecycle, AnAddressThatIsNotOneIsRefused) {
    EventReceiver receiver;
    EXPECT_NE(receiver.start("not an address", [](const EventMessage&) { return true; }), 0);
    EXPECT_EQ(receiver.callbackUrl(), "");
}
