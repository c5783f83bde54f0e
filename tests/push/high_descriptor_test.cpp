// A phone served by the push server, and the push reaching it, while every
// descriptor number up to 1100 is taken: a camera process that holds many
// files gets socket numbers above FD_SETSIZE (1024), which select() cannot
// wait on. Every socket here (the server's listening socket and connections,
// the push client's connection to the phone, the phone's own sockets) gets a
// number above 1024.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

#include "camwifi/camwifi.h"
#include "client_support.h"
#include "support/high_descriptors.h"
#include "support/test_support.h"
#include "test_phone.h"

namespace {

std::mutex gLock;
std::condition_variable gChanged;
std::vector<int> gEvents;

void onPushEvent(ZEB_CALLBACK_EVENT id, void*, intptr_t) {
    std::lock_guard<std::mutex> g(gLock);
    gEvents.push_back(id);
    gChanged.notify_all();
}

bool waitFor(int id, int timeoutMs) {
    std::unique_lock<std::mutex> g(gLock);
    return gChanged.wait_for(g, std::chrono::milliseconds(timeoutMs), [id] {
        for (int e : gEvents)
            if (e == id) return true;
        return false;
    });
}

class PushHighDescriptors : public testing::Test {
protected:
    void SetUp() override {
        host::reset();
        std::lock_guard<std::mutex> g(gLock);
        gEvents.clear();
    }
    void TearDown() override { DlnaSelectivePush_Terminate(); }
    testsupport::TempDir m_dir;
};

TEST_F(PushHighDescriptors, PushServerServesAPhoneAndThePushReachesItAbove1024) {
    testsupport::HighDescriptors high;
    if (!high.why().empty()) GTEST_SKIP() << high.why();
    DlnaSetModelName("EX2F");
    DlnaSetTransferSize(1);  // the file goes out unchanged
    pushtest::TestPhone phone(5);
    ASSERT_EQ(DlnaSelectivePush_ServerStart(onPushEvent), 1);
    ASSERT_TRUE(waitFor(69, 5000));
    ASSERT_TRUE(phone.announce());
    ASSERT_TRUE(waitFor(61, 5000)) << "the announcement was read and reached the UI";
    DlnaSelectivePush_SendUserStartEvent(1);
    EXPECT_EQ(phone.answer().rfind("HTTP/1.1 200 OK\r\n", 0), 0u);
    // The connection the server accepted ("clntSock = %d").
    long accepted = -1;
    for (const std::string& m : testsupport::messages("DLNA_SP"))
        if (m.rfind("clntSock = ", 0) == 0) accepted = std::strtol(m.c_str() + 11, nullptr, 10);
    EXPECT_GT(accepted, 1024);

    const std::string path = m_dir.path() + "/SAM_0001.JPG";
    clienttest::writeFile(path, clienttest::makeJpeg(320, 240));
    EXPECT_EQ(DlnaSelectivePush_SendFile(path.c_str()), 1);
    ASSERT_TRUE(waitFor(64, 15000)) << "the transfer to the phone completed";
    ASSERT_EQ(phone.files().size(), 1u);
    EXPECT_TRUE(phone.files()[0] == clienttest::readFile(path));
    EXPECT_EQ(DlnaSelectivePush_Terminate(), 1);
    EXPECT_EQ(host::logLinesContaining("select failed").size(), 0u);
    EXPECT_EQ(testsupport::countLogged("myAssert"), 0);
}

}  // namespace
