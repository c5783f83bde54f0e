// A phone served by the mode server, and its NOTIFY arriving, while every
// descriptor number up to 1100 is taken: a camera process that holds many
// files gets socket numbers above FD_SETSIZE (1024), which select() cannot
// wait on. Every socket here (the server's listening socket and connection,
// the NOTIFY connection, the phone's own sockets) gets a number above 1024.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "ModeServer/ModeServer.h"
#include "ModeServer/ModeServerApi.h"
#include "camwifi/camwifi.h"
#include "mode/mode_test_util.h"
#include "support/high_descriptors.h"
#include "support/tcp_peer.h"
#include "support/test_support.h"

namespace {

void onModeEvent(ZEB_CALLBACK_EVENT id, void*, intptr_t) {
    if (id == 1) ModeServerSendEventToModule(0, 1, nullptr);
}

// Descriptor numbers the server logged after prefix (decimal, or hex after
// "0x"), in log order.
std::vector<long> loggedDescriptors(const std::string& prefix) {
    std::vector<long> out;
    for (const std::string& m : testsupport::messages("DLNA_MS"))
        if (m.rfind(prefix, 0) == 0) out.push_back(std::strtol(m.c_str() + prefix.size(), nullptr, 0));
    return out;
}

class ModeHighDescriptors : public testing::Test {
protected:
    void SetUp() override {
        host::reset();
        gModeServerConfirmFlag.store(0);
    }
    void TearDown() override { ModeServerTerminate(); }
};

TEST_F(ModeHighDescriptors, ModeServerServesAPhoneAndItsNotifyArrivesAbove1024) {
    testsupport::HighDescriptors high;
    if (!high.why().empty()) GTEST_SKIP() << high.why();
    modetest::NotifyReceiver receiver;
    ASSERT_TRUE(receiver.ok());
    ASSERT_EQ(ModeServerStart(onModeEvent, MS_MODE_IDLE), 1);
    ASSERT_TRUE(ptheModeServer.load()->waitUntilListening(5000));
    const std::vector<long> listening = loggedDescriptors("servSock = ");
    ASSERT_EQ(listening.size(), 1u);
    EXPECT_GT(listening[0], 1024);

    int fd = testsupport::connectFrom("127.0.0.5", "127.0.0.1", 7788);
    ASSERT_GT(fd, 1024);
    ASSERT_TRUE(testsupport::sendAll(
        fd, modetest::alive("ORB_MODE_A", "<http://127.0.0.1:" + std::to_string(receiver.port()) + "/cb>")));
    EXPECT_EQ(testsupport::recvUntil(fd, "\r\n\r\n", 8000), modetest::reply(200, "OK", "IDLE"));
    close(fd);
    const std::vector<long> accepted = loggedDescriptors("clntSock = ");
    ASSERT_EQ(accepted.size(), 1u);
    EXPECT_GT(accepted[0], 1024);
    ASSERT_EQ(ptheModeServer.load()->devices().size(), 1u);

    // The NOTIFY's own connection is above 1024 too.
    EXPECT_EQ(ModeServerSendEventToModule(1, 4, nullptr), 1);
    EXPECT_EQ(receiver.waitRequests(1, 5000).size(), 1u);
    ModeServerTerminate();
    EXPECT_EQ(testsupport::countLogged("myAssert"), 0);
}

}  // namespace
