// TV link and smartphone link: starts, fixed teardown orders, certification
// mode, the TV's connection answer and the smartphone link's user-start
// handshake.
#include <chrono>
#include <thread>

#include "Dlna/DlnaDms.h"
#include "Dlna/DlnaLinks.h"
#include "Dlna/DlnaStack.h"
#include "SP/osal/SPGenericThread.h"
#include "host_media.h"
#include "host_nasl.h"
#include "media_fixture.h"

using mediatest::Event;
using mediatest::events;
using testsupport::logged;

namespace {

const std::vector<Event> kStarted = {{5, 0}, {6, 0}, {4, 0}};

// Every call of a terminate, in the order they are expected.
const std::vector<std::string> kTeardownCalls = {
    "GlobalEventHandleLock::ReleaseLock", "DMSAppStopTimerThread", "ZEBHTTPStopAsyncThread",
    "ZEBStopTimerThreadZEB", "DMSAppStop", "DMSAppTerminate", "ZEBHTTPTerminate", "ZEBTerminateZEB",
    "ZEBSetDlnaCertificationState", "NASLWifi_DestroyFileList"};

// A UI whose callback does not return from event 5 (preparation begins)
// until the test lets it: no cancel reaches the start there.
testsupport::Hold gStuckInPreparing;
void stuckInPreparing(ZEB_CALLBACK_EVENT event, void* value, intptr_t length) {
    mediatest::recordEvent(event, value, length);
    if (event == 5) gStuckInPreparing.enter();
}

class Links : public mediatest::MediaTest {
protected:
    void SetUp() override {
        MediaTest::SetUp();
        gStuckInPreparing.reset();
        gDmsStartFinishWaitMs = 10000;
    }
    void TearDown() override {
        gStuckInPreparing.release();
        // Never leave a handshake behind for the next test of this process.
        DlnaSmartphoneLinkTerminate();
        gDmsStartFinishWaitMs = 10000;
        MediaTest::TearDown();
    }
    int startTvLink(int acl = 2) {
        int r = DlnaTVLinkStart(mediatest::recordEvent, dcim().c_str(), acl);
        EXPECT_TRUE(mediatest::waitForFinalEvent()) << "no final event";
        waitForStartThread();
        return r;
    }
    int startSmartphoneLink(char* selection = nullptr) {
        int r = DlnaSmartphoneLinkStart(mediatest::recordEvent, dcim().c_str(), selection, "127.0.0.9");
        EXPECT_TRUE(mediatest::waitForFinalEvent()) << "no final event";
        waitForStartThread();
        return r;
    }
    // The start thread still logs its last line after the final event.
    static void waitForStartThread() {
        for (int i = 0; i < 1000 && DlnaDmsStartThreadsRunning() > 0; ++i) SPGenericThread::sleep(10);
        EXPECT_EQ(DlnaDmsStartThreadsRunning(), 0);
    }
    std::vector<std::string> teardownJournal() { return journalOf(kTeardownCalls); }
};

TEST_F(Links, TvLinkStartsTheServerOnItsOwnThreadWithTvSettings) {
    DlnaDMSSetCallback(nullptr);
    DlnaSetTransferSize(0);
    ASSERT_EQ(startTvLink(2), 1);
    EXPECT_EQ(events(), kStarted);
    EXPECT_EQ(GetAllShareMode(), 1u);
    EXPECT_EQ(GetACLMode(), 2u);
    EXPECT_EQ(GetSelectImagePath(), nullptr);
    EXPECT_EQ(DlnaGetTransferSize(), 1) << "pictures reach the TV unchanged";
    EXPECT_EQ(host::journalEntries("NASLWifi_InitFileList"), std::vector<std::string>{"NASLWifi_InitFileList(0)"});
    EXPECT_EQ(host::journalEntries("DMSAppStart"), std::vector<std::string>{"DMSAppStart(2)"});
    EXPECT_EQ(host::media::dmsConfig().dbFilePath, tvDbPath());
    EXPECT_TRUE(host::journalEntries("ZEBSetDlnaCertificationState").empty());
    EXPECT_FALSE(host::media::certificationState());
    EXPECT_TRUE(logged("[DlnaTVLinkStart] media dir : " + dcim(), "DLNA"));
    DlnaTVLinkTerminate();
}

TEST_F(Links, TvLinkWithAutoipFileRunsInCertificationModeUntilTerminate) {
    mediatest::writeFile(path("/mnt/mmc/autoip.txt"), "");
    ASSERT_EQ(startTvLink(), 1);
    EXPECT_TRUE(host::media::certificationState());
    EXPECT_TRUE(logged("UPnP/DLNA certification mode", "DLNA"));
    DlnaTVLinkTerminate();
    EXPECT_FALSE(host::media::certificationState());
    EXPECT_EQ(host::journalEntries("ZEBSetDlnaCertificationState"),
              (std::vector<std::string>{"ZEBSetDlnaCertificationState(1)", "ZEBSetDlnaCertificationState(0)"}));
}

TEST_F(Links, TvLinkTerminateTakesEverythingDownInItsOrder) {
    ASSERT_EQ(startTvLink(), 1);
    host::clearJournal();
    host::clearLog();
    auto before = std::chrono::steady_clock::now();
    DlnaTVLinkTerminate();
    auto elapsed = std::chrono::steady_clock::now() - before;
    // The terminate waits half a second (timed in whole milliseconds of
    // wall-clock time, so allow for rounding against this clock).
    EXPECT_GE(elapsed, std::chrono::milliseconds(490));
    EXPECT_LT(elapsed, std::chrono::seconds(20));
    EXPECT_EQ(teardownJournal(),
              (std::vector<std::string>{"DMSAppStopTimerThread()", "ZEBHTTPStopAsyncThread()",
                                        "ZEBStopTimerThreadZEB()", "DMSAppStop()", "DMSAppTerminate()",
                                        "ZEBHTTPTerminate()", "ZEBTerminateZEB()", "ZEBSetDlnaCertificationState(0)",
                                        "NASLWifi_DestroyFileList()"}));
    EXPECT_EQ(testsupport::messages("DLNA"),
              (std::vector<std::string>{"DlnaTVLinkTerminate() ENTER ", "DMSApp stopped", "DMSApp Terminated",
                                        "ZEBHTTP Terminated", "ZEBTerminateZEB() completed",
                                        "DlnaTVLinkTerminate() EXIT "}));
    EXPECT_TRUE(host::media::runningThreads().empty());
    EXPECT_FALSE(host::media::fileListExists());
    EXPECT_FALSE(gDlnaStackInitialized);
    EXPECT_FALSE(gDlnaHTTPInitialized);
    EXPECT_EQ(gDmsHandle.load(), kDmsNoHandle);
}

TEST_F(Links, TvLinkCanStartAgainAfterTerminate) {
    ASSERT_EQ(startTvLink(), 1);
    DlnaTVLinkTerminate();
    mediatest::clearEvents();
    host::clearJournal();
    ASSERT_EQ(startTvLink(), 1);
    EXPECT_EQ(events(), kStarted);
    EXPECT_EQ(host::journalEntries("ZEBInitializeZEB").size(), 1u) << "the stack comes up again";
    DlnaTVLinkTerminate();
}

TEST_F(Links, TerminateAfterAFailedInitialiseSkipsTheServerSteps) {
    host::scriptResult("DMSAppInitialize", 1);
    ASSERT_EQ(startTvLink(), 1);
    EXPECT_EQ(events().back(), Event(4, 1));
    host::clearJournal();
    DlnaTVLinkTerminate();
    EXPECT_EQ(teardownJournal(),
              (std::vector<std::string>{"DMSAppStopTimerThread()", "ZEBHTTPStopAsyncThread()",
                                        "ZEBStopTimerThreadZEB()", "ZEBHTTPTerminate()", "ZEBTerminateZEB()",
                                        "ZEBSetDlnaCertificationState(0)", "NASLWifi_DestroyFileList()"}));
    EXPECT_FALSE(logged("DMSApp stopped", "DLNA"));
    EXPECT_FALSE(logged("DMSApp Terminated", "DLNA"));
}

TEST_F(Links, TerminateAfterAFailedServerStartReleasesTheServerButDoesNotStopIt) {
    host::scriptResult("DMSAppStart", 1);
    ASSERT_EQ(startTvLink(), 1);
    host::clearJournal();
    DlnaTVLinkTerminate();
    auto calls = teardownJournal();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "DMSAppStop()"), 0);
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "DMSAppTerminate()"), 1);
}

TEST_F(Links, TerminateWithoutAnyStartOnlyStopsThreadsAndReportsTheMissingFileList) {
    DlnaTVLinkTerminate();
    EXPECT_EQ(teardownJournal(),
              (std::vector<std::string>{"DMSAppStopTimerThread()", "ZEBHTTPStopAsyncThread()",
                                        "ZEBStopTimerThreadZEB()", "ZEBSetDlnaCertificationState(0)",
                                        "NASLWifi_DestroyFileList()"}));
    EXPECT_TRUE(logged("ERR: [DlnaTVLinkTerminate] NASLWifi_DestroyFileList() failed !!! ", "DLNA"));
}

TEST_F(Links, FailedFileListIsLoggedAndTheStartGoesOn) {
    host::scriptResult("NASLWifi_InitFileList", 0);
    ASSERT_EQ(startTvLink(), 1);
    EXPECT_TRUE(logged("ERR: [DlnaTVLinkStart] NASLWifi_InitFileList() failed !!! ", "DLNA"));
    EXPECT_EQ(events(), kStarted);
    DlnaTVLinkTerminate();
}

TEST_F(Links, TerminateDuringAStartCancelsItAndWaitsForIt) {
    host::media::holdScans(true);
    ASSERT_EQ(DlnaTVLinkStart(mediatest::recordEvent, dcim().c_str(), 1), 1);
    ASSERT_TRUE(host::media::waitForHeldScan(10000));
    DlnaTVLinkTerminate();
    EXPECT_EQ(DlnaDmsStartThreadsRunning(), 0);
    EXPECT_EQ(events(), (std::vector<Event>{{5, 0}, {6, 2}}));
    EXPECT_TRUE(host::media::runningThreads().empty());
    EXPECT_TRUE(host::journalEntries("DMSAppInitialize").empty());
}

TEST_F(Links, SmartphoneLinkTerminateDuringAStartCancelsItAndWaitsForIt) {
    host::media::holdScans(true);
    ASSERT_EQ(DlnaSmartphoneLinkStart(mediatest::recordEvent, dcim().c_str(), nullptr, "127.0.0.9"), 1);
    ASSERT_TRUE(host::media::waitForHeldScan(10000));
    DlnaSmartphoneLinkTerminate();
    EXPECT_EQ(DlnaDmsStartThreadsRunning(), 0);
    EXPECT_EQ(events(), (std::vector<Event>{{5, 0}, {6, 2}}));
    EXPECT_TRUE(host::media::runningThreads().empty());
    EXPECT_TRUE(host::journalEntries("DMSAppInitialize").empty());
    EXPECT_EQ(GetAllShareMode(), 0u);
}

TEST_F(Links, TerminateGivesUpOnAStartThatDoesNotEndWithinItsBound) {
    // The start is held in the UI's callback, where no cancel reaches it.
    gDmsStartFinishWaitMs = 300;
    ASSERT_EQ(DlnaTVLinkStart(stuckInPreparing, dcim().c_str(), 1), 1);
    ASSERT_TRUE(gStuckInPreparing.waitInside());
    auto before = std::chrono::steady_clock::now();
    DlnaTVLinkTerminate();
    auto tookMs =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - before).count();
    // Its own half second before the teardown, then the bounded wait.
    EXPECT_GE(tookMs, 800);
    EXPECT_LT(tookMs, 8000);
    EXPECT_TRUE(logged("ERR: DlnaDmsStartThread still running", "DLNA"));
    EXPECT_TRUE(logged("DlnaTVLinkTerminate() EXIT ", "DLNA"));
    EXPECT_EQ(DlnaDmsStartThreadsRunning(), 1) << "the held start was left running";
    EXPECT_FALSE(gDlnaStackInitialized) << "the terminate went on without it";
    // Let go, the start ends on its own with the cancelled report.
    gStuckInPreparing.release();
    waitForStartThread();
    EXPECT_EQ(events(), (std::vector<Event>{{5, 0}, {6, 2}}));
    EXPECT_TRUE(host::journalEntries("DMSAppInitialize").empty());
}

TEST_F(Links, ConnectionStateAllowsTheTvForStateZeroAndAnnouncesAgain) {
    EXPECT_EQ(DlnaTVLinkSetConnectionState(0, "0a:1b:2c:3d:4e:5f"), 0);
    EXPECT_EQ(DlnaTVLinkSetConnectionState(3, "00:11:22:33:44:55"), 0);
    EXPECT_EQ(host::journalEntries(),
              (std::vector<std::string>{"DmsAppACLAddEntry(1, 0a:1b:2c:3d:4e:5f)", "DMSAppSendAliveTemporary()",
                                        "DmsAppACLAddEntry(0, 00:11:22:33:44:55)", "DMSAppSendAliveTemporary()"}));
    EXPECT_TRUE(logged("[DlnaTVLinkSetConnectionState] received event result -> macAddr [0a:1b:2c:3d:4e:5f] ",
                       "DLNA"));
}

TEST_F(Links, SendAliveAnnouncesTheServerOnce) {
    host::scriptResult("DMSAppSendAliveTemporary", 9);
    EXPECT_EQ(DlnaTVLinkSendAlive(), 9);
    EXPECT_EQ(host::journalEntries(), std::vector<std::string>{"DMSAppSendAliveTemporary()"});
}

TEST_F(Links, SmartphoneLinkSharesTheSelectionWithThePhone) {
    SetACLMode(4);
    DlnaSetTransferSize(0);
    std::string selection = jpeg2();
    ASSERT_EQ(startSmartphoneLink(&selection[0]), 1);
    EXPECT_EQ(events(), kStarted);
    EXPECT_EQ(GetAllShareMode(), 2u);
    EXPECT_EQ(GetSelectImagePath(), &selection[0]);
    EXPECT_EQ(GetSmartphoneLinkIPAddr(), "127.0.0.9");
    EXPECT_EQ(GetACLMode(), 4u) << "no access-control change";
    EXPECT_EQ(DlnaGetTransferSize(), 0) << "no transfer-size change";
    EXPECT_TRUE(host::journalEntries("ZEBSetDlnaCertificationState").empty());
    EXPECT_EQ(host::journalEntries("DataBaseMgr::UpdateShareStatus").back(),
              "DataBaseMgr::UpdateShareStatus(" + jpeg2() + ", 2)");
    EXPECT_EQ(host::journalEntries("ZEBMemAllocMA").size(), 1u) << "the handshake's semaphore";
    EXPECT_TRUE(logged("[DlnaSmartphoneLinkStart] media dir : " + dcim(), "DLNA"));
}

TEST_F(Links, SmartphoneLinkTerminateTakesEverythingDownInItsOrder) {
    ASSERT_EQ(startSmartphoneLink(), 1);
    host::clearJournal();
    host::clearLog();
    DlnaSmartphoneLinkTerminate();
    EXPECT_EQ(teardownJournal(),
              (std::vector<std::string>{"GlobalEventHandleLock::ReleaseLock()", "DMSAppStopTimerThread()",
                                        "ZEBHTTPStopAsyncThread()", "ZEBStopTimerThreadZEB()", "DMSAppStop()",
                                        "DMSAppTerminate()", "ZEBHTTPTerminate()", "ZEBTerminateZEB()",
                                        "NASLWifi_DestroyFileList()"}));
    EXPECT_EQ(testsupport::messages("DLNA"),
              (std::vector<std::string>{"DlnaSmartphoneLinkTerminate() enter", "DMSApp stopped", "DMSApp Terminated",
                                        "ZEBHTTP Terminated", "ZEBTerminateZEB() completed",
                                        "DlnaSmartphoneLinkTerminate() EXIT "}));
    EXPECT_EQ(GetAllShareMode(), 0u);
    EXPECT_TRUE(host::media::runningThreads().empty());
    EXPECT_TRUE(host::media::globalEventLockReleased());
    int answer = 0;
    EXPECT_EQ(DlnaSPLWaitingUserStartEvent(&answer), -1) << "the handshake is gone";
}

TEST_F(Links, UserAnswerBeforeAnyStartDoesNothing) {
    DlnaSPLSendUserStartEvent(true);
    DlnaSPLSendUserStartEvent(false);
    EXPECT_FALSE(logged("DlnaSPLSendUserStartEvent () give semaphone gDlnaSPLSemaphore", "DLNA"));
    int answer = 77;
    EXPECT_EQ(DlnaSPLWaitingUserStartEvent(&answer), -1) << "nothing to wait for";
    EXPECT_EQ(answer, 77);
}

TEST_F(Links, SmartphoneTerminateWithoutStartDoesNotCrash) {
    DlnaSmartphoneLinkTerminate();
    DlnaSmartphoneLinkTerminate();
    EXPECT_EQ(GetAllShareMode(), 0u);
}

TEST_F(Links, UserConfirmationWakesTheWaiterWithOne) {
    ASSERT_EQ(startSmartphoneLink(), 1);
    int answer = 0, result = -2;
    std::thread waiter([&] { result = DlnaSPLWaitingUserStartEvent(&answer); });
    SPGenericThread::sleep(50);
    DlnaSPLSendUserStartEvent(true);
    waiter.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(answer, 1);
    EXPECT_TRUE(logged("DlnaSPLSendUserStartEvent () give semaphone gDlnaSPLSemaphore", "DLNA"));
}

TEST_F(Links, UserRefusalWakesTheWaiterWithTwo) {
    ASSERT_EQ(startSmartphoneLink(), 1);
    int answer = 0;
    std::thread waiter([&] { DlnaSPLWaitingUserStartEvent(&answer); });
    SPGenericThread::sleep(50);
    DlnaSPLSendUserStartEvent(false);
    waiter.join();
    EXPECT_EQ(answer, 2);
}

TEST_F(Links, AnswerGivenBeforeTheWaitIsKept) {
    ASSERT_EQ(startSmartphoneLink(), 1);
    DlnaSPLSendUserStartEvent(false);
    int answer = 0;
    EXPECT_EQ(DlnaSPLWaitingUserStartEvent(&answer), 0);
    EXPECT_EQ(answer, 2);
}

TEST_F(Links, TerminateWakesAWaitingThreadWithNoAnswer) {
    ASSERT_EQ(startSmartphoneLink(), 1);
    int answer = 0, result = -2;
    std::thread waiter([&] { result = DlnaSPLWaitingUserStartEvent(&answer); });
    SPGenericThread::sleep(100);
    DlnaSmartphoneLinkTerminate();
    waiter.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(answer, 65535);
    DlnaSPLSendUserStartEvent(true);  // after terminate: nothing to post
}

}  // namespace
