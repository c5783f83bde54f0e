// Callback registration and the forwarding of events to the UI.
#include <gtest/gtest.h>

#include <vector>

#include "Dlna/DlnaFrame.h"
#include "support/test_support.h"

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

struct Received {
    ZEB_CALLBACK_EVENT event;
    void* value;
    intptr_t length;
};
std::vector<Received> gReceived;

void record(ZEB_CALLBACK_EVENT event, void* value, intptr_t length) { gReceived.push_back({event, value, length}); }

class Callbacks : public testing::Test {
protected:
    void SetUp() override {
        host::reset();
        gReceived.clear();
        DlnaDMSSetCallback(nullptr);
        DlnaSelectivePushSetCallback(nullptr);
        DlnaMrcpSetCallback(nullptr);
        DlnaMscpSetCallback(nullptr);
        gRVFCallback.store(nullptr);
    }
};

TEST_F(Callbacks, SlotsAreEmptyAtLoad) {
    // Runs in a process of its own under ctest, before anything registers.
    EXPECT_EQ(gDMSCallback.load(), nullptr);
    EXPECT_EQ(gMrcpCallback.load(), nullptr);
    EXPECT_EQ(gMscpCallback.load(), nullptr);
    EXPECT_EQ(gSelectivePushCallback.load(), nullptr);
    EXPECT_EQ(gRVFCallback.load(), nullptr);
    EXPECT_EQ(gModeServerCallback.load(), nullptr);
}

TEST_F(Callbacks, PushEventReachesTheCallbackWithItsArgumentsUnchanged) {
    DlnaSelectivePushSetCallback(record);
    int data = 5;
    EXPECT_EQ(SelectivePushSendEventToUI(65, &data, 17), 1);
    ASSERT_EQ(gReceived.size(), 1u);
    EXPECT_EQ(gReceived[0].event, 65);
    EXPECT_EQ(gReceived[0].value, &data);
    EXPECT_EQ(gReceived[0].length, 17);
    EXPECT_TRUE(host::logLines().empty()) << "a delivered push event logs nothing";
}

TEST_F(Callbacks, PushEventWithoutCallbackLogsRedLineOnDlnaSpAndStandardError) {
    CaptureStderr();
    EXPECT_EQ(SelectivePushSendEventToUI(64, nullptr, 0), 0);
    EXPECT_EQ(GetCapturedStderr(), "[DLNA_SP   ] \x1b[31mERROR : gDMSCallback is NULL\x1b[m\n");
    auto lines = host::logLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].tag, "DLNA_SP");
    EXPECT_EQ(lines[0].priority, 6);
    EXPECT_EQ(testsupport::messageOf(lines[0]), "ERROR : gDMSCallback is NULL");
    EXPECT_TRUE(gReceived.empty());
}

TEST_F(Callbacks, MediaServerEventIsLoggedThenForwarded) {
    DlnaDMSSetCallback(record);
    EXPECT_EQ(DmsSendEventToUI(6, nullptr, 1), 1);
    ASSERT_EQ(gReceived.size(), 1u);
    EXPECT_EQ(gReceived[0].event, 6);
    EXPECT_EQ(gReceived[0].length, 1);
    EXPECT_EQ(testsupport::messages(), std::vector<std::string>{"===>DmsSendEventToUI called"});
    EXPECT_EQ(host::logLines()[0].tag, "DLNA");
}

TEST_F(Callbacks, MediaServerEventWithoutCallbackIsAnOrdinaryLineAndDropped) {
    CaptureStderr();
    EXPECT_EQ(DmsSendEventToUI(4, nullptr, 0), 0);
    EXPECT_EQ(GetCapturedStderr(), "");
    auto lines = host::logLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(testsupport::messageOf(lines[1]), "ERROR : gDMSCallback is NULL");
    EXPECT_EQ(lines[1].priority, 4);
    EXPECT_EQ(lines[1].tag, "DLNA");
    EXPECT_EQ(lines[1].text.find("\x1b[31m"), std::string::npos);
}

TEST_F(Callbacks, ViewfinderEventLogsItsIdAndIsForwarded) {
    gRVFCallback.store(record);
    EXPECT_EQ(RVFSendEventToUI(95, nullptr, 0), 1);
    ASSERT_EQ(gReceived.size(), 1u);
    EXPECT_EQ(gReceived[0].event, 95);
    EXPECT_EQ(testsupport::messages(), std::vector<std::string>{"===>RVFSendEventToUI called....95"});
}

TEST_F(Callbacks, ViewfinderEventWithoutCallbackIsDropped) {
    EXPECT_EQ(RVFSendEventToUI(91, nullptr, 0), 0);
    EXPECT_TRUE(testsupport::logged("ERROR : gRVFCallback is NULL", "DLNA"));
    EXPECT_EQ(host::logLines().back().priority, 4);
}

TEST_F(Callbacks, RegisteringReplacesAndNullUnregisters) {
    DlnaSelectivePushSetCallback(record);
    DlnaSelectivePushSetCallback(nullptr);
    EXPECT_EQ(SelectivePushSendEventToUI(60, nullptr, 0), 0);
    EXPECT_TRUE(gReceived.empty());
}

TEST_F(Callbacks, MrcpRegistrationReturnsTheStoredPointer) {
    EXPECT_EQ(DlnaMrcpSetCallback(record), &record);
    EXPECT_EQ(gMrcpCallback.load(), &record);
    EXPECT_EQ(DlnaMrcpSetCallback(nullptr), nullptr);
}

TEST_F(Callbacks, MscpRegistrationFillsItsSlot) {
    DlnaMscpSetCallback(record);
    EXPECT_EQ(gMscpCallback.load(), &record);
}

}  // namespace
