// Mode-change events: the registered phone's receiver taken from its CALLBACK
// URL, the property-set body, and the one-shot NOTIFY client against
// receivers written here on loopback.
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "ModeServer/MSDeviceInfo.h"
#include "ModeServer/MSEventVariable.h"
#include "ModeServer/MSHttpClient.h"
#include "mode/mode_test_util.h"
#include "support/tcp_peer.h"
#include "support/test_support.h"

using modetest::msSince;
using modetest::NotifyReceiver;
using modetest::notifyRequest;
using modetest::propertySet;

namespace {

class ModeEvent : public testing::Test {
protected:
    void SetUp() override { host::reset(); }
    void TearDown() override { m_vars.RemoveAllListItem(MSEventVariable::deleteItem); }
    std::string body(int mode, const std::string& url = "", unsigned short port = 0) {
        m_vars.RemoveAllListItem(MSEventVariable::deleteItem);
        MSBuildModeVariables(mode, url, port, &m_vars);
        std::string out;
        EventMsgGenerator::createNotifyXMLBody(&m_vars, out);
        return out;
    }
    DMSCDSList m_vars;
};

// --- receiver from the CALLBACK URL ---------------------------------------------------

TEST_F(ModeEvent, CallbackUrlGivesHostAndPort) {
    MSDeviceInfo d("pixel", "<http://192.168.107.20:8888/eventCallback>", "0a:1b:2c:3d:4e:5f");
    EXPECT_EQ(d.m_sHost, "192.168.107.20");
    EXPECT_EQ(d.m_iPort, 8888);
    EXPECT_EQ(d.m_sMacAddr, "0a:1b:2c:3d:4e:5f");
    std::vector<std::string> expected = {"m_sUserAgent = [pixel]",
                                         "m_sCallbackUrl = [<http://192.168.107.20:8888/eventCallback>]",
                                         "m_sMacAddr = [0a:1b:2c:3d:4e:5f]", "[192.168.107.20]:[8888]"};
    EXPECT_EQ(testsupport::messages("DLNA_MS"), expected);
}

TEST_F(ModeEvent, CallbackWithoutAnglesLeavesHostAndPortUnset) {
    MSDeviceInfo d("pixel", "http://192.168.107.20:8888/eventCallback", "");
    EXPECT_EQ(d.m_sHost, "");
    EXPECT_EQ(d.m_iPort, 0);
    EXPECT_TRUE(testsupport::logged("can't find '<'", "DLNA_MS"));
    MSDeviceInfo e("pixel", "<http://192.168.107.20:8888/eventCallback", "");
    EXPECT_EQ(e.m_sHost, "");
    EXPECT_EQ(e.m_iPort, 0);
    EXPECT_TRUE(testsupport::logged("can't find '>'", "DLNA_MS"));
}

TEST_F(ModeEvent, CallbackWithoutPathAfterThePortYieldsNoPort) {
    MSDeviceInfo d("pixel", "<http://192.168.107.20:8888>", "");
    EXPECT_TRUE(testsupport::logged("can't find '/'", "DLNA_MS"));
    EXPECT_EQ(d.m_sHost, "192.168.107.20");
    EXPECT_EQ(d.m_iPort, 0) << "the port is only read up to a '/'";
    EXPECT_TRUE(testsupport::logged("[192.168.107.20]:[0]", "DLNA_MS"));
}

TEST_F(ModeEvent, CallbackWithoutPortGivesTheAnyAddressAndNoPort) {
    MSDeviceInfo d("pixel", "<http://192.168.107.20/eventCallback>");
    EXPECT_EQ(d.m_sHost, "0.0.0.0");
    EXPECT_EQ(d.m_iPort, 0);
    EXPECT_EQ(d.m_sMacAddr, "");
    EXPECT_TRUE(testsupport::logged("[0.0.0.0]:[0]", "DLNA_MS"));
}

TEST_F(ModeEvent, CallbackWithoutSchemeIsReadTheSameWay) {
    MSDeviceInfo d("pixel", "<10.0.0.9:7000/cb>", "");
    EXPECT_EQ(d.m_sHost, "10.0.0.9");
    EXPECT_EQ(d.m_iPort, 7000);
}

TEST_F(ModeEvent, GetPortWithoutColonLogsAndYieldsNoPort) {
    MSDeviceInfo d("pixel", "", "");
    std::string url = "192.168.107.20/eventCallback";
    EXPECT_EQ(d.getPort(url), 0);
    EXPECT_TRUE(testsupport::logged("can't find ':'", "DLNA_MS"));
    url = "192.168.107.20:8888";
    EXPECT_EQ(d.getPort(url), 0);
    EXPECT_TRUE(testsupport::logged("can't find '/'", "DLNA_MS"));
    url = "h:1234/x:5/";
    EXPECT_EQ(d.getPort(url), 1234);
}

// --- the body ------------------------------------------------------------------------

TEST_F(ModeEvent, BodyOfPhonePullCarriesModeAndDescriptionUrlWithALoneCarriageReturn) {
    EXPECT_EQ(body(1, "http://192.168.107.1:52323/desc.xml"),
              "<?xml version=\"1.0\"?>\r<e:propertyset><e:property><CurrentMode>PhonePull</CurrentMode></e:property>"
              "<e:property><DescriptionURL>http://192.168.107.1:52323/desc.xml</DescriptionURL></e:property>"
              "</e:propertyset>");
}

TEST_F(ModeEvent, EveryModeSendsItsVariables) {
    EXPECT_EQ(body(0), propertySet({{"CurrentMode", "IDLE"}}));
    EXPECT_EQ(body(2, "U"), propertySet({{"CurrentMode", "RVF"}, {"DescriptionURL", "U"}}));
    EXPECT_EQ(body(3), propertySet({{"CurrentMode", "InstantSend"}}));
    EXPECT_EQ(body(5), propertySet({{"CurrentMode", "CrowdSend"}}));
    EXPECT_EQ(body(6), propertySet({{"CurrentMode", "PhoneArchive"}}));
    EXPECT_EQ(body(9), propertySet({{"CurrentMode", "Unknown Status Code"}}));
    EXPECT_EQ(body(-3), propertySet({{"CurrentMode", "Unknown Status Code"}}));
}

TEST_F(ModeEvent, SelectivePushSendsThePushServersPortAsText) {
    EXPECT_EQ(body(4, "", 8090), propertySet({{"CurrentMode", "SelectivePush"}, {"SPServerPort", "8090"}}));
    EXPECT_TRUE(testsupport::logged("SPServerPort = 8090", "DLNA_MS"));
}

TEST_F(ModeEvent, ValuesAreNotEscaped) {
    EXPECT_EQ(body(1, "http://a/?x=1&y=<2>"),
              propertySet({{"CurrentMode", "PhonePull"}, {"DescriptionURL", "http://a/?x=1&y=<2>"}}));
}

TEST_F(ModeEvent, VariablesCanBeRenamedAndRevalued) {
    MSEventVariable v("a", "b");
    v.setVarName("CurrentMode");
    v.setVarValue("RVF");
    EXPECT_EQ(v.getVarName(), "CurrentMode");
    EXPECT_EQ(v.getVarValue(), "RVF");
}

// --- the client -----------------------------------------------------------------------

TEST_F(ModeEvent, NotificationSendsTheExactRequestAndTakesAnyReplyHead) {
    NotifyReceiver receiver("HTTP/1.1 500 Internal Server Error\r\n\r\n");
    ASSERT_TRUE(receiver.ok());
    const std::string b = body(3);
    {
        MSHttpClient client("127.0.0.1", receiver.port());
        EXPECT_TRUE(client.sendNotification(&m_vars)) << "a reply of any status counts once its head arrived";
        EXPECT_EQ(client.response(), "HTTP/1.1 500 Internal Server Error\r\n\r\n");
    }
    auto got = receiver.waitRequests(1, 3000);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0], notifyRequest("127.0.0.1", receiver.port(), b));
    EXPECT_TRUE(testsupport::logged("connection IP        : [127.0.0.1]", "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged("connection Port      : [" + std::to_string(receiver.port()) + "]", "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged("Body : " + b, "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged("[ MSHttpClient::readResponse] read response sucess.", "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged("Read Respose done", "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged("~MSHttpClient()", "DLNA_MS"));
}

TEST_F(ModeEvent, ReceiverThatNeverAnswersFailsAfterFiveSeconds) {
    NotifyReceiver silent("");
    ASSERT_TRUE(silent.ok());
    body(0);
    MSHttpClient client("127.0.0.1", silent.port());
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_FALSE(client.sendNotification(&m_vars));
    const int64_t took = msSince(t0);
    EXPECT_GE(took, 4900);
    EXPECT_LT(took, 9000);
    EXPECT_TRUE(testsupport::logged("[ MSHttpClient::readResponse] wait timeout.", "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged("can't receive HTTP reply", "DLNA_MS"));
}

TEST_F(ModeEvent, ReceiverThatClosesWithoutAnAnswerFailsAtOnce) {
    uint16_t port = 0;
    int lfd = testsupport::listenLoopback(&port);
    ASSERT_GE(lfd, 0);
    std::thread closer([&] {
        int fd = accept(lfd, nullptr, nullptr);
        if (fd >= 0) {
            testsupport::recvUntil(fd, "</e:propertyset>", 3000);
            close(fd);
        }
    });
    body(0);
    MSHttpClient client("127.0.0.1", port);
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_FALSE(client.sendNotification(&m_vars));
    closer.join();
    close(lfd);
    EXPECT_LT(msSince(t0), 4000);
    EXPECT_TRUE(testsupport::logged("[ MSHttpClient::readResponse] read response fail", "DLNA_MS"));
}

TEST_F(ModeEvent, ReplyThatNeverEndsItsHeadIsGivenUpAtTheBound) {
    uint16_t port = 0;
    int lfd = testsupport::listenLoopback(&port);
    ASSERT_GE(lfd, 0);
    std::thread flooder([&] {
        int fd = accept(lfd, nullptr, nullptr);
        if (fd >= 0) {
            testsupport::recvUntil(fd, "</e:propertyset>", 3000);
            testsupport::sendAll(fd, std::string(MSHttpClient::kMaxResponseBytes + 4096, 'z'));
            testsupport::peerClosed(fd, 3000);
            close(fd);
        }
    });
    body(0);
    {
        MSHttpClient client("127.0.0.1", port);
        auto t0 = std::chrono::steady_clock::now();
        EXPECT_FALSE(client.sendNotification(&m_vars));
        EXPECT_LT(msSince(t0), 4000);
        EXPECT_LE(client.response().size(), MSHttpClient::kMaxResponseBytes);
    }
    flooder.join();
    close(lfd);
    EXPECT_TRUE(testsupport::logged("[ MSHttpClient::readResponse] read response fail", "DLNA_MS"));
}

TEST_F(ModeEvent, RefusedConnectionIsAConnectError) {
    uint16_t port = 0;
    int lfd = testsupport::listenLoopback(&port);
    ASSERT_GE(lfd, 0);
    close(lfd);  // nobody listens there now
    body(0);
    MSHttpClient client("127.0.0.1", port);
    EXPECT_FALSE(client.sendNotification(&m_vars));
    EXPECT_TRUE(testsupport::logged("[MSHttpClient::sendNotification] connect error", "DLNA_MS"));
    EXPECT_TRUE(testsupport::logged("ECONNREFUSED", "DLNA_OSAL"));
}

TEST_F(ModeEvent, ReceiverWithoutAddressOrPortIsNeverTried) {
    body(0);
    for (auto target : {std::make_pair(std::string(""), 8888), std::make_pair(std::string("0.0.0.0"), 0),
                        std::make_pair(std::string("127.0.0.1"), 70000)}) {
        host::clearLog();
        MSHttpClient client(target.first.c_str(), target.second);
        EXPECT_FALSE(client.sendNotification(&m_vars));
        EXPECT_TRUE(testsupport::logged("[MSHttpClient::sendNotification] connect error", "DLNA_MS"));
        EXPECT_TRUE(host::logLinesContaining("SO_ERROR").empty()) << "no connection was attempted";
    }
}

TEST_F(ModeEvent, HeaderAloneCarriesAContentLengthWithoutNumber) {
    NotifyReceiver receiver;
    ASSERT_TRUE(receiver.ok());
    MSHttpClient client("127.0.0.1", receiver.port());
    ASSERT_TRUE(client.connectToReceiver());
    EXPECT_TRUE(client.sendRequests(42));
    auto got = receiver.waitRequests(1, 3000);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0], "NOTIFY /eventCallback HTTP/1.1 \r\nHost: 127.0.0.1:" + std::to_string(receiver.port()) +
                          "\r\nUser-Agent: Tessaly mode server\r\nContent-Length: \r\nConnection: Close\r\n\r\n");
}

TEST_F(ModeEvent, CancelledSendIsTriedThreeTimesThenGivenUp) {
    NotifyReceiver receiver;
    ASSERT_TRUE(receiver.ok());
    MSHttpClient client("127.0.0.1", receiver.port());
    ASSERT_TRUE(client.connectToReceiver());
    client.cancel();
    EXPECT_FALSE(client.sendRequests("x", 1));
    EXPECT_EQ(testsupport::countLogged("[ MSHttpClient::sendData] Sending operaition is cancelled! #4 ", "DLNA_MS"), 3);
    EXPECT_EQ(testsupport::countLogged("[ MSHttpClient::sendRequests] can't send HTTP request ", "DLNA_MS"), 3);
    EXPECT_EQ(testsupport::countLogged("[ MSHttpClient::sendRequests] Maximum retries attempted ", "DLNA_MS"), 1);
}

TEST_F(ModeEvent, ListRemovesItsItemsInInsertionOrder) {
    static std::vector<int> order;
    order.clear();
    DMSCDSList list;
    int a = 1, b = 2, c = 3;
    EXPECT_EQ(list.AddItem(&a), 0);
    EXPECT_EQ(list.AddItem(&b), 0);
    EXPECT_NE(list.AddItem(nullptr), 0);
    EXPECT_EQ(list.AddItem(&c), 0);
    ASSERT_EQ(list.GetNumberOfItems(), 3u);
    EXPECT_EQ(list.GetItemAt(1), &b);
    EXPECT_EQ(list.GetItemAt(3), nullptr);
    list.RemoveAllListItem([](void* item) { order.push_back(*static_cast<int*>(item)); });
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(list.GetNumberOfItems(), 0u);
}

}  // namespace
