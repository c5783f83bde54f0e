// Monitor mode and media-browsing mode: starts, fixed teardown order, monitor
// events, the database cancel and the mode server's description URL hook.
#include <cstring>
#include <fstream>
#include <iterator>

#include "Dlna/DlnaFrame.h"
#include "Dlna/DlnaRvfMl.h"
#include "Dlna/Dlna_RVF_interface.h"
#include "host_media.h"
#include "host_nasl.h"
#include "rvf_fixture.h"
#include "rvf_lib.h"

using rvftest::RvfTest;
using testsupport::logged;
using Calls = std::vector<std::string>;

namespace {

std::string captured(void (*fn)()) {
    testing::internal::CaptureStdout();
    fn();
    return testing::internal::GetCapturedStdout();
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// --- Monitor mode ------------------------------------------------------------------------------

TEST_F(RvfTest, MonitorStartGivesTheServiceNoCallbackButKeepsItForTheUi) {
    EXPECT_TRUE(DlnaBMStart(rvftest::recorder()));
    EXPECT_EQ(GetAllShareMode(), 7u);
    EXPECT_EQ(host::journalEntries(), Calls{"StartRVFDevice(" + rvftest::pointerText(nullptr) + ")"});
    EXPECT_TRUE(logged("DlnaBMStart () is called ", "DLNA"));
    EXPECT_FALSE(gRVFTerminated);
    EXPECT_EQ(RVFSendEventToUI(95, nullptr, 0), 1) << "the UI's callback is stored";
    EXPECT_EQ(rvftest::eventIds(), std::vector<int>{95});
}

TEST_F(RvfTest, MonitorStartWithoutCallbackPrintsAndFails) {
    std::string out = captured([] { EXPECT_FALSE(DlnaBMStart(nullptr)); });
    EXPECT_TRUE(contains(out, " DlnaBMStart call back is NULL!!!")) << out;
    EXPECT_EQ(GetAllShareMode(), 7u);
    EXPECT_TRUE(host::journalEntries().empty());
    EXPECT_TRUE(gRVFTerminated);
}

TEST_F(RvfTest, MonitorStartReportsAFailedServiceStart) {
    host::scriptResult("StartRVFDevice", 3);
    EXPECT_FALSE(DlnaBMStart(rvftest::recorder()));
}

TEST_F(RvfTest, MonitorFunctionTablesAreForwardedAndMissingOnesPrinted) {
    int control = 0, mpeg = 0;
    EXPECT_EQ(DlnaBMSet_Control_Function(reinterpret_cast<BM_CONTROL_FUNCTIONS*>(&control)), 1);
    host::scriptResult("CDSBM_Set_Mpeg_Function", 0);
    EXPECT_EQ(DlnaBMSet_Mpeg_Function(reinterpret_cast<BM_MPEG_FUNCTIONS*>(&mpeg)), 0);
    EXPECT_EQ(host::journalEntries(), (Calls{"CDSBM_Set_Control_Function(" + rvftest::pointerText(&control) + ")",
                                             "CDSBM_Set_Mpeg_Function(" + rvftest::pointerText(&mpeg) + ")"}));
    host::clearJournal();
    std::string out = captured([] {
        EXPECT_EQ(DlnaBMSet_Control_Function(nullptr), 0);
        EXPECT_EQ(DlnaBMSet_Mpeg_Function(nullptr), 0);
    });
    EXPECT_TRUE(contains(out, "DlnaBMSet_Control_Function param is NULL!!!")) << out;
    EXPECT_TRUE(contains(out, "DlnaBMSet_Mpeg_Function param is NULL!!!")) << out;
    EXPECT_TRUE(host::journalEntries().empty());
}

TEST_F(RvfTest, MonitorTerminateTakesTheServiceDownInItsOrderAndLeavesTheStreamRunnable) {
    ASSERT_TRUE(DlnaBMStart(rvftest::recorder()));
    host::clearJournal();
    host::clearLog();
    EXPECT_EQ(DlnaBMTerminate(), 1);
    EXPECT_EQ(host::journalEntries(),
              (Calls{"RVFStreamingThruGet::setStreamingStop(1)", "CDSBM_Delete_Function()", "RVFAppSetEventFlag(65535)",
                     "GlobalEventHandleLock::ReleaseLock()", "terminateRVF()", "RVFAppSemaphoreDestory()",
                     "CDSRVF_Sysfunc_set_Isvideo_hotswap(0)", "CDSRVF_Sysfunc_set_Streaming_stop_status(0)"}));
    EXPECT_EQ(testsupport::messages("DLNA"),
              (Calls{"DlnaBMTerminate() is callled ", "DlnaBMTerminate () is finishing .... done "}));
    EXPECT_EQ(GetAllShareMode(), 0u);
    EXPECT_EQ(gRVFCallback.load(), nullptr);
    EXPECT_TRUE(gRVFTerminated);
    EXPECT_EQ(host::rvf::semaphoreValuesAtRelease().ready4Read, 1) << "both stream semaphores were posted";
    EXPECT_EQ(host::rvf::semaphoreValuesAtRelease().readComplete, 1);
    EXPECT_EQ(CDSRVF_Sysfunc_get_Streaming_stop_status(), 0);
}

TEST_F(RvfTest, SecondMonitorTerminatePrintsAndDoesNothing) {
    ASSERT_TRUE(DlnaBMStart(rvftest::recorder()));
    DlnaBMTerminate();
    host::clearJournal();
    std::string out = captured([] { EXPECT_EQ(DlnaBMTerminate(), 1); });
    EXPECT_TRUE(contains(out, "DlnaBMTerminate() is callled Return!!!")) << out;
    EXPECT_TRUE(host::journalEntries().empty());
}

TEST_F(RvfTest, MonitorEventsRaiseTheFlagRotateOrStartMonitoring) {
    ASSERT_TRUE(DlnaBMStart(rvftest::recorder()));
    const struct {
        int id;
        const char* value;
        Calls calls;
    } rows[] = {
        {0, nullptr, {}},
        {1, nullptr, {"RVFAppSetEventFlag(1)"}},
        {2, "x", {"RVFAppSetEventFlag(1)"}},
        {3, "270", {"RVFAppSendRotationEvent(270)"}},
        {4, nullptr, {"RVFAppSetEventFlag(1)"}},
        {5, nullptr, {"RVFAppSendStartMonitorEvent(1)", "RVFAppUpdateServiceVariable(0)"}},
        {6, nullptr, {"RVFAppSetEventFlag(1)"}},
        {7, nullptr, {"RVFAppSetEventFlag(1)"}},
        {8, "y", {}},
        {40, nullptr, {}},
    };
    for (const auto& row : rows) {
        host::clearJournal();
        host::rvf::clearEventFlags();
        std::string out;
        testing::internal::CaptureStdout();
        EXPECT_EQ(DlnaBMEvent(row.id, row.value), 1) << row.id;
        out = testing::internal::GetCapturedStdout();
        EXPECT_EQ(host::journalEntries(), row.calls) << row.id;
        EXPECT_EQ(host::rvf::eventFlags(), row.calls == Calls{"RVFAppSetEventFlag(1)"} ? 1u : 0u) << row.id;
        std::string printed = "DlnaBMEvent  () is callled and Event = " + std::to_string(row.id) +
                              ", value =" + (row.value ? row.value : "NULL");
        EXPECT_TRUE(contains(out, printed)) << out;
    }
}

TEST_F(RvfTest, MonitorEventFailsWhenTheFlagCannotBeRaised) {
    ASSERT_TRUE(DlnaBMStart(rvftest::recorder()));
    host::scriptResult("RVFAppSetEventFlag", 0);
    EXPECT_EQ(DlnaBMEvent(1, nullptr), 0);
    EXPECT_TRUE(logged("RVFAppSetEventFlag error", "DLNA"));
}

TEST_F(RvfTest, MonitorEventsDoNotLookAtTheStopFlag) {
    EXPECT_EQ(DlnaBMEvent(3, "90"), 1);
    EXPECT_EQ(host::journalEntries(), Calls{"RVFAppSendRotationEvent(90)"});
}

TEST_F(RvfTest, HeartBeatTimerInitialiseDoesNothing) {
    EXPECT_EQ(_HeartBeatTimerInitialize(), 1);
    EXPECT_TRUE(host::journalEntries().empty());
}

// --- Media-browsing mode ----------------------------------------------------------------------

TEST_F(RvfTest, BrowsingStartBuildsTheFileListStartsTheServiceAndCopiesTheIcons) {
    rvftest::writeFile(path("/network/icon/NoSupport.JPG"), "no support icon");
    rvftest::writeFile(path("/network/icon/NoThumb.JPG"), "no thumbnail icon");
    EXPECT_TRUE(DlnaRVF_ML_FJ_Start(2, false, rvftest::recorder()));
    EXPECT_EQ(GetAllShareMode(), 8u);
    EXPECT_EQ(rvftest::journalOf({"NASLWifi", "MultiMedia", "StartRVFDevice"}),
              (Calls{"NASLWifi_InitFileList(0)", "MultiMediaDbConnector::SetThumbnailWorkingStatus(1)",
                     "StartRVFDevice(" + callbackText() + ")"}));
    EXPECT_TRUE(logged("mode = [2], no card = [0]", "DLNA"));
    EXPECT_TRUE(host::media::fileListExists());
    EXPECT_TRUE(host::rvf::thumbnailWorking());
    EXPECT_FALSE(gRVFTerminated);
    std::ifstream a(path("/mnt/mmc/config/RVF/xml/NoSupport.JPG")), b(path("/mnt/mmc/config/RVF/xml/NoThumb.JPG"));
    std::string textA((std::istreambuf_iterator<char>(a)), {}), textB((std::istreambuf_iterator<char>(b)), {});
    EXPECT_EQ(textA, "no support icon");
    EXPECT_EQ(textB, "no thumbnail icon");
}

TEST_F(RvfTest, BrowsingModeOneKeepsThumbnailsIdleAndNoCardReachesTheFileList) {
    EXPECT_TRUE(DlnaRVF_ML_FJ_Start(1, true, rvftest::recorder()));
    EXPECT_EQ(rvftest::journalOf({"NASLWifi", "MultiMedia"}),
              (Calls{"NASLWifi_InitFileList(1)", "MultiMediaDbConnector::SetThumbnailWorkingStatus(0)"}));
    EXPECT_FALSE(host::rvf::thumbnailWorking());
    EXPECT_TRUE(logged("mode = [1], no card = [1]", "DLNA"));
}

TEST_F(RvfTest, BrowsingStartWithoutIconsStillStarts) {
    EXPECT_TRUE(DlnaRVF_ML_FJ_Start(0, false, rvftest::recorder()));
    EXPECT_FALSE(rvftest::exists(path("/mnt/mmc/config/RVF/xml/NoThumb.JPG")));
    EXPECT_TRUE(host::rvf::running());
}

TEST_F(RvfTest, BrowsingStartWithoutCallbackFailsBeforeTouchingAnything) {
    EXPECT_FALSE(DlnaRVF_ML_FJ_Start(2, false, nullptr));
    EXPECT_TRUE(logged("pCallback is NULL!!!", "DLNA"));
    EXPECT_EQ(GetAllShareMode(), 8u);
    EXPECT_TRUE(host::journalEntries().empty());
    EXPECT_TRUE(gRVFTerminated);
}

TEST_F(RvfTest, BrowsingStartStopsWhenTheFileListFails) {
    host::scriptResult("NASLWifi_InitFileList", 0);
    EXPECT_FALSE(DlnaRVF_ML_FJ_Start(2, false, rvftest::recorder()));
    EXPECT_TRUE(logged("ERR: NASLWifi_InitFileList() failed !!! ", "DLNA"));
    EXPECT_EQ(host::journalEntries(), Calls{"NASLWifi_InitFileList(0)"});
    EXPECT_TRUE(gRVFTerminated);
}

TEST_F(RvfTest, BrowsingTerminateDoesNothingAndTheViewfinderTerminateEndsTheMode) {
    startBrowsing();
    DlnaRVF_ML_FJ_Terminate();
    EXPECT_TRUE(host::journalEntries().empty());
    EXPECT_TRUE(host::rvf::running());
    DlnaRVFTerminate();
    EXPECT_FALSE(host::rvf::running());
    EXPECT_FALSE(host::media::fileListExists());
    EXPECT_FALSE(logged("ERR: [DlnaRVFTerminate] NASLWifi_DestroyFileList() failed !!! ", "DLNA"));
    EXPECT_EQ(GetAllShareMode(), 0u);
}

TEST_F(RvfTest, BrowsingTransitionsAreSentAsOperationStates) {
    startBrowsing();
    EXPECT_EQ(DlnaRVFEvent(41, nullptr), 1);
    EXPECT_EQ(DlnaRVFEvent(42, nullptr), 1);
    EXPECT_EQ(host::journalEntries(), (Calls{"RVFAppSendOperationStateEvent(TransitionToRVF)",
                                             "RVFAppSendOperationStateEvent(TransitionToML)"}));
}

TEST_F(RvfTest, DatabaseCancelInterruptsEveryScannerInItsOrder) {
    gDBCancelled = false;
    EXPECT_EQ(DlnaDBCancel(), 1);
    EXPECT_TRUE(gDBCancelled);
    EXPECT_TRUE(logged(" ENTER", "DLNA"));
    EXPECT_EQ(host::journalEntries(),
              (Calls{"DcfFileInfoVector::GetInstance()", "DcfFileInfoVector::CancelInvalidateAllItems()",
                     "DataBaseMgr::GetInstance()", "DataBaseMgr::CancelInvalidateAllItems()",
                     "DirectoryScanner::GetInstance()", "DirectoryScanner::CancelScanDirectory()",
                     "DcfFileInfoVector::DestroyInstance()"}));
}

TEST_F(RvfTest, DeviceDescriptionUrlSuppliesNoPath) {
    char path[16];
    strcpy(path, "untouched");
    DlnaRvfMlGetDeviceDescUrl(path, sizeof path);
    EXPECT_STREQ(path, "untouched");
    EXPECT_TRUE(host::journalEntries().empty());
}

}  // namespace
