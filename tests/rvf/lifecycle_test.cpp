// Viewfinder start and terminate, the function tables, the settings seeding
// and the small helpers around them.
#include <sys/time.h>

#include <cstdint>

#include "Dlna/DlnaFrame.h"
#include "Dlna/Dlna_RVF_interface.h"
#include "host_media.h"
#include "rvf_fixture.h"
#include "rvf_lib.h"

using rvftest::RvfTest;
using testsupport::logged;
using Calls = std::vector<std::string>;

namespace {

// Every call of the viewfinder terminate, in its order.
Calls terminateCalls() {
    return {
        "RVFStreamingThruGet::setStreamingStop(1)",
        "CDSRVF_Delete_Function()",
        "UPnPCDSRVFSetEV::deleteRVFEVInitValue()",
        "UPnPCDSRVFSetISO::deleteRVFISOInitValue()",
        "UPnPCDSRVFSetWhiteBalance::deleteRVFWhiteBalanceInitValue()",
        "UPnPCDSRVFSetMetering::deleteRVFMeteringInitValue()",
        "UPnPCDSRVFSetDrive::deleteRVFDriveInitValue()",
        "UPnPCDSRVFSetMode::deleteRVFModeInitValue()",
        "UPnPCDSRVFSetFlash::deleteRVFFlashInitValue()",
        "UPnPCDSRVFSetResolution::deleteRVFResolutionInitValue()",
        "UPnPCDSRVFSetShutterSpeed::deleteRVFShutterSpeedInitValue(0)",
        "UPnPCDSRVFSetAperture::deleteRVFApertureInitValue(0)",
        "UPnPCDSRVFSetQuality::deleteRVFQualityInitValue()",
        "UPnPCDSRVFSetMovieResolution::deleteRVFMovieResolutionInitValue()",
        "UPnPCDSRVFSetFileSave::deleteRVFFileSaveInitValue()",
        "UPnPCDSRVFSetRatioOffset::deleteRVFRatioOffsetInitValue()",
        "UPnPCDSRVFSetTouchAFOption::deleteRVFTouchAFOptionInitValue()",
        "UPnPCDSRVFSetAFArea::deleteRVFAFAreaInitValue()",
        "UPnPCDSRVFSetStreamingQuality::deleteRVFStreamingQualityInitValue()",
        "UPnPCDSRVFSetStreamingResolution::deleteRVFStreamingResolutionInitValue()",
        "UPnPCDSRVFSetResolution::deleteRVFResolutionDisableValue()",
        "UPnPCDSRVFSetFileSave::deleteRVFFileSaveDisableValue()",
        "UPnPCDSRVFSetTouchAFOption::deleteRVFTouchAFOptionDisableValue()",
        "UPnPCDSRVFSetAFArea::deleteRVFAFAreaDisableValue()",
        "RVFAppSetEventFlag(65535)",
        "CDSRVF_Sysfunc_set_FocusString((null))",
        "GlobalEventHandleLock::ReleaseLock()",
        "terminateRVF()",
        "RVFAppSemaphoreDestory()",
        "CDSRVF_Sysfunc_set_Isvideo_hotswap(0)",
        "CDSRVF_Sysfunc_set_Streaming_stop_status(1)",
        "CDSRVF_Sysfunc_set_af_status(1)",
        "DcfFileInfoVector::DestroyInstance()",
        "NASLWifi_DestroyFileList()",
    };
}

RVFSettingValues setting(char* values, unsigned int base) { return RVFSettingValues{values, base + 1, base + 2, base + 3}; }

}  // namespace

TEST_F(RvfTest, StartStoresTheCallbackStartsTheServiceWithItAndSetsShareMode5) {
    EXPECT_TRUE(DlnaRVFStart(rvftest::recorder()));
    EXPECT_EQ(GetAllShareMode(), 5u);
    EXPECT_EQ(host::journalEntries(), Calls{"StartRVFDevice(" + callbackText() + ")"});
    EXPECT_TRUE(logged("DlanRVFStart () is called ", "DLNA"));
    EXPECT_TRUE(host::rvf::running());
    EXPECT_FALSE(gRVFTerminated);
    EXPECT_EQ(gRVFCallback.load(), rvftest::recorder());
}

TEST_F(RvfTest, StartWithoutCallbackPrintsAndFailsButStillClaimsShareMode5) {
    testing::internal::CaptureStdout();
    EXPECT_FALSE(DlnaRVFStart(nullptr));
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find(" DlnaRVFStart call back is NULL!!!"), std::string::npos) << out;
    EXPECT_EQ(GetAllShareMode(), 5u);
    EXPECT_TRUE(host::journalEntries("StartRVFDevice").empty());
    EXPECT_TRUE(gRVFTerminated) << "events stay refused";
    EXPECT_EQ(DlnaRVFEvent(1, nullptr), 0);
}

TEST_F(RvfTest, StartReportsFalseWhenTheServiceDoesNotStart) {
    host::scriptResult("StartRVFDevice", -1);
    EXPECT_FALSE(DlnaRVFStart(rvftest::recorder()));
    EXPECT_EQ(host::journalEntries("StartRVFDevice").size(), 1u);
    EXPECT_FALSE(host::rvf::running());
}

TEST_F(RvfTest, FunctionTablesAreForwardedWithTheServiceResult) {
    int control = 0, mpeg = 0;
    auto* controlTable = reinterpret_cast<RVF_CONTROL_FUNCTIONS*>(&control);
    auto* mpegTable = reinterpret_cast<RVF_MPEG_FUNCTIONS*>(&mpeg);
    EXPECT_EQ(DlnaRVFSet_Control_Function(controlTable), 1);
    host::scriptResult("CDSRVF_Set_Mpeg_Function", 7);
    EXPECT_EQ(DlnaRVFSet_Mpeg_Function(mpegTable), 7);
    EXPECT_EQ(host::journalEntries(), (Calls{"CDSRVF_Set_Control_Function(" + rvftest::pointerText(&control) + ")",
                                             "CDSRVF_Set_Mpeg_Function(" + rvftest::pointerText(&mpeg) + ")"}));
}

TEST_F(RvfTest, MissingFunctionTablesArePrintedAndNotForwarded) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(DlnaRVFSet_Control_Function(nullptr), 0);
    EXPECT_EQ(DlnaRVFSet_Mpeg_Function(nullptr), 0);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("DlnaRVFSet_Control_Function param is NULL!!!"), std::string::npos) << out;
    EXPECT_NE(out.find("DlnaRVFSet_Mpeg_Function param is NULL!!!"), std::string::npos) << out;
    EXPECT_TRUE(host::journalEntries().empty());
}

TEST_F(RvfTest, TerminateTakesEverythingDownInItsFixedOrder) {
    startViewfinder();
    SetAllShareMode(5);
    EXPECT_EQ(DlnaRVFTerminate(), 1);
    EXPECT_EQ(host::journalEntries(), terminateCalls());
    EXPECT_EQ(GetAllShareMode(), 0u);
    EXPECT_EQ(gRVFCallback.load(), nullptr);
    EXPECT_TRUE(gRVFTerminated);
    EXPECT_FALSE(host::rvf::running());
    EXPECT_EQ(g_RVFsemBufferReadComplete, nullptr);
    EXPECT_EQ(g_RVFsemBufferReady4Read, nullptr);
    // Nobody waited on the stream: both posts are still there when released.
    EXPECT_EQ(host::rvf::semaphoreValuesAtRelease().ready4Read, 1);
    EXPECT_EQ(host::rvf::semaphoreValuesAtRelease().readComplete, 1);
    EXPECT_TRUE(host::media::globalEventLockReleased());
    EXPECT_EQ(testsupport::messages("DLNA"),
              (Calls{"DlnaRVFTerminate is callled", "ERR: [DlnaRVFTerminate] NASLWifi_DestroyFileList() failed !!! ",
                     "DlnaRVFTerminate () is finishing .... done "}))
        << "the plain viewfinder builds no file list, so releasing it fails";
}

TEST_F(RvfTest, SecondTerminatePrintsAndDoesNothing) {
    startViewfinder();
    DlnaRVFTerminate();
    host::clearJournal();
    testing::internal::CaptureStdout();
    EXPECT_EQ(DlnaRVFTerminate(), 1);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("DlnaRVFTerminate() is callled Return!!!"), std::string::npos) << out;
    EXPECT_TRUE(host::journalEntries().empty());
}

TEST_F(RvfTest, TerminateWithoutStartIsHarmless) {
    EXPECT_EQ(DlnaRVFTerminate(), 1);
    EXPECT_TRUE(host::journalEntries().empty());
    EXPECT_EQ(DlnaBMTerminate(), 1);
    EXPECT_TRUE(host::journalEntries().empty());
}

TEST_F(RvfTest, ViewfinderStartsAgainAfterTerminate) {
    startViewfinder();
    DlnaRVFTerminate();
    EXPECT_TRUE(DlnaRVFStart(rvftest::recorder()));
    EXPECT_TRUE(host::rvf::running());
    EXPECT_EQ(DlnaRVFEvent(1, nullptr), 1);
    EXPECT_EQ(host::rvf::eventFlags(), 1u);
}

TEST_F(RvfTest, LastPictureInfoIsPassedOnAndRaisesTheFlag) {
    startViewfinder();
    EXPECT_EQ(DlanRVFLastPicImageInfo(640, 480), 1);
    EXPECT_EQ(host::journalEntries(), (Calls{"CDSRVF_Sysfunc_set_ImageInfo(640, 480)", "RVFAppSetEventFlag(1)"}));
    EXPECT_TRUE(logged("DlanRVFLastPicImageInfo () is called with  640, 480", "DLNA"));
    EXPECT_EQ(host::rvf::eventFlags(), 1u);
}

TEST_F(RvfTest, LastPictureInfoReportsAFlagThatCannotBeRaised) {
    startViewfinder();
    host::scriptResult("RVFAppSetEventFlag", 0);
    EXPECT_EQ(DlanRVFLastPicImageInfo(1, 2), 0);
    EXPECT_TRUE(logged("RVFAppSetEventFlag error", "DLNA"));
    EXPECT_EQ(host::rvf::eventFlags(), 0u);
}

TEST_F(RvfTest, SystemParametersSeedEverySettingInTheServiceOrder) {
    char names[18][8];
    RVFSettingValues v[18];
    for (unsigned i = 0; i < 18; ++i) {
        snprintf(names[i], sizeof names[i], "v%u", i);
        v[i] = setting(names[i], i * 10);
    }
    RVFSysParams p{{-1, 5, 9}, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8],
                   v[9], v[10], v[11], v[12], v[13], v[14], v[15], v[16], v[17]};
    EXPECT_EQ(DlnaRVFSetSysParams(&p), 1);
    EXPECT_EQ(host::journalEntries(),
              (Calls{
                  "UPnPCDSRVFSetEV::setRVFEVInitValue(v2, 21, 22, 23, 0)",
                  "UPnPCDSRVFSetISO::setRVFISOInitValue(v3, 31, 32, 33)",
                  "UPnPCDSRVFSetWhiteBalance::setRVFWhiteBalanceInitValue(v4, 41, 42, 43)",
                  "UPnPCDSRVFSetMetering::setRVFMeteringInitValue(v5, 51, 52, 53)",
                  "UPnPCDSRVFSetDrive::setRVFDriveInitValue(v6, 61, 62, 63)",
                  "UPnPCDSRVFSetMode::setRVFModeInitValue(v7, 71, 72, 73)",
                  "UPnPCDSRVFSetFlash::setRVFFlashInitValue(v1, 11, 12, 13)",
                  "UPnPCDSRVFSetResolution::setRVFResolutionInitValue(v0, 1, 2, 3)",
                  "UPnPCDSRVFSetShutterSpeed::setRVFShutterSpeedInitValue(v8, 81, 82, 83, 0)",
                  "UPnPCDSRVFSetAperture::setRVFApertureInitValue(v9, 91, 92, 93, 0)",
                  "UPnPCDSRVFSetQuality::setRVFQualityInitValue(v10, 101, 102, 103)",
                  "UPnPCDSRVFSetMovieResolution::setRVFMovieResolutionInitValue(v11, 111, 112, 113)",
                  "UPnPCDSRVFSetFileSave::setRVFFileSaveInitValue(v12, 121, 122, 123)",
                  "UPnPCDSRVFZoomStart::setRVFZoomLevel(-1, 5, 9)",
                  "UPnPCDSRVFSetRatioOffset::setRVFRatioOffsetInitValue(v13, 131, 132, 133)",
                  "UPnPCDSRVFSetTouchAFOption::setRVFTouchAFOptionInitValue(v14, 141, 142, 143)",
                  "UPnPCDSRVFSetAFArea::setRVFAFAreaInitValue(v15, 151, 152, 153)",
                  "UPnPCDSRVFSetStreamingQuality::setRVFStreamingQualityInitValue(v16, 161, 162, 163)",
                  "UPnPCDSRVFSetStreamingResolution::setRVFStreamingResolutionInitValue(v17, 171, 172, 173)",
              }));
}

TEST_F(RvfTest, MissingParameterBlocksAreRefusedWithoutACall) {
    EXPECT_EQ(DlnaRVFSetSysParams(nullptr), 0);
    EXPECT_EQ(DlnaRVFSetDisableParams(nullptr), 0);
    EXPECT_TRUE(host::journalEntries().empty());
}

TEST_F(RvfTest, DisableParametersGoToTheFourSettingsInBlockOrder) {
    char a[] = "a", b[] = "b", c[] = "c";
    RVFDisableParams p{setting(a, 0), setting(b, 10), setting(c, 20), setting(nullptr, 30)};
    EXPECT_EQ(DlnaRVFSetDisableParams(&p), 1);
    EXPECT_EQ(host::journalEntries(),
              (Calls{"UPnPCDSRVFSetResolution::setRVFResolutionDisableValue(a, 1, 2, 3)",
                     "UPnPCDSRVFSetFileSave::setRVFFileSaveDisableValue(b, 11, 12, 13)",
                     "UPnPCDSRVFSetTouchAFOption::setRVFTouchAFOptionDisableValue(c, 21, 22, 23)",
                     "UPnPCDSRVFSetAFArea::setRVFAFAreaDisableValue((null), 31, 32, 33)"}));
}

TEST_F(RvfTest, ApertureResetReplacesTheValuesOtherwiseOnlyTheCurrentOneChanges) {
    char values[] = "F2.8,F4,F5.6";
    EXPECT_EQ(DlnaRVFSetApertureValue(1, 2, values, 3, 4), 1);
    EXPECT_EQ(DlnaRVFSetApertureValue(0, 1, values, 3, 4), 1);
    EXPECT_EQ(host::journalEntries(),
              (Calls{"UPnPCDSRVFSetAperture::deleteRVFApertureInitValue(0)",
                     "UPnPCDSRVFSetAperture::setRVFApertureInitValue(F2.8,F4,F5.6, 3, 4, 2, 1)",
                     "UPnPCDSRVFSetAperture::setRVFApertureInitValue(F2.8,F4,F5.6, 3, 4, 1, 2)"}));
}

TEST_F(RvfTest, ShutterSpeedResetReplacesTheValuesOtherwiseOnlyTheCurrentOneChanges) {
    char values[] = "1/60,1/125";
    EXPECT_EQ(DlnaRVFSetShutterSpeedValue(5, 0, values, 7, 8), 1);
    EXPECT_EQ(DlnaRVFSetShutterSpeedValue(0, 1, nullptr, 0, 0), 1);
    EXPECT_EQ(host::journalEntries(),
              (Calls{"UPnPCDSRVFSetShutterSpeed::deleteRVFShutterSpeedInitValue(0)",
                     "UPnPCDSRVFSetShutterSpeed::setRVFShutterSpeedInitValue(1/60,1/125, 7, 8, 0, 1)",
                     "UPnPCDSRVFSetShutterSpeed::setRVFShutterSpeedInitValue((null), 0, 0, 1, 2)"}));
}

TEST_F(RvfTest, EvValueUpdatesOnlyTheCurrentValue) {
    EXPECT_EQ(DlnaRVFSetEVValue(4), 1);
    EXPECT_EQ(host::journalEntries(), Calls{"UPnPCDSRVFSetEV::setRVFEVInitValue((null), 0, 0, 4, 2)"});
}

TEST_F(RvfTest, TickCountIsWallClockMillisecondsCutTo32Bits) {
    auto wallMs = [] {
        struct timeval tv;
        gettimeofday(&tv, nullptr);
        return static_cast<uint64_t>(tv.tv_sec) * 1000u + static_cast<uint64_t>(tv.tv_usec) / 1000u;
    };
    uint64_t before = wallMs();
    unsigned int tick = GetRVFTickCount();
    uint64_t after = wallMs();
    // Compared modulo 2^32: the tick has long since wrapped.
    uint32_t sinceBefore = tick - static_cast<uint32_t>(before);
    EXPECT_LE(sinceBefore, after - before);
    EXPECT_GT(before, uint64_t{1} << 32) << "the wall clock's milliseconds no longer fit in 32 bits";
}
