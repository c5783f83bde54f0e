// The camera's events: every id leads to exactly the viewfinder library calls
// of its row (checked against the call journal), raises the state-change flag
// where it should, and the value comparisons are exact.
#include <cctype>

#include "Dlna/Dlna_RVF_interface.h"
#include "rvf_fixture.h"

using rvftest::RvfTest;
using testsupport::logged;
using Calls = std::vector<std::string>;

namespace {

struct Row {
    int id;
    const char* name;   // as the log shows it
    const char* value;  // the event's text (null: none)
    Calls calls;        // the library calls, "{db}" and "{root}" standing for the card's paths
    bool raises;        // ends with RVFAppSetEventFlag(1) and leaves flag bit 1 set
};

const char* const kFlag = "RVFAppSetEventFlag(1)";

const Row kRows[] = {
    {0, "SYSEVT_CAMERA_SEARCHING_CANCEL", "x", {}, false},
    {1, "SYSEVT_CAMERA_MPEG_STARTED", nullptr, {}, true},
    {2, "SYSEVT_CAMERA_MPEG_STOPED", nullptr, {}, true},
    {3, "SYSEVT_CAMERA_AFFINISHED", "AF_OK", {"CDSRVF_Sysfunc_set_FocusString(AF_OK)"}, true},
    {4, "SYSEVT_CAMERA_AFRELEASEFINISHED", nullptr, {}, true},
    {5, "SYSEVT_CAMERA_SHOTFINIHED", nullptr, {}, true},
    {6, "SYSEVT_CAMERA_ROTATE", "90", {"RVFAppSendRotationEvent(90)"}, false},
    {7, "SYSEVT_CAMERA_NETWORK", "down", {}, false},
    {8, "SYSEVT_CAMERA_NOBATTERY", nullptr, {}, false},
    {9, "SYSEVT_CAMERA_ZOOM_STOP", nullptr, {}, true},
    {10, "SYSEVT_CAMERA_FLASH_REMOVEABLE", "ATTACHED", {"RVFAppSendFlashStatusEvent(1)"}, false},
    {11, "SYSEVT_CAMERA_SHOT_FAIL", nullptr, {"CDSRVF_Sysfunc_set_ShotStatus(1)"}, true},
    {12, "SYSEVT_CAMERA_SET_STREAMING_QUALITY", "HIGH", {}, true},
    {13, "SYSEVT_CAMERA_SETFLASH", nullptr, {}, true},
    {14, "SYSEVT_CAMERA_TOUCHAFFINISHED", "120,80", {"CDSRVF_Sysfunc_set_FocusString(120,80)"}, true},
    {15, "SYSEVT_CAMERA_AF_MODE_CHANGED", "MF", {"RVFAppSendAFModeEvent(1)"}, false},
    {16, "SYSEVT_CAMERA_SET_GPS_INFO", nullptr, {}, true},
    {17, "SYSEVT_CAMERA_SET_RESOLUTION", "CHANGE", {"CDSRVF_Sysfunc_set_ratio_change_status(1)"}, true},
    {18, "SYSEVT_CAMERA_SET_SHUTTER_SPEED", nullptr, {}, true},
    {19, "SYSEVT_CAMERA_SET_APERTURE", nullptr, {}, true},
    {20, "SYSEVT_CAMERA_SET_EV", nullptr, {}, true},
    {21, "SYSEVT_CAMERA_SET_ISO", nullptr, {}, true},
    {22, "SYSEVT_CAMERA_SET_QUALITY", "SAME", {"CDSRVF_Sysfunc_set_ratio_change_status(0)"}, true},
    {23, "SYSEVT_CAMERA_SET_MODE", "CHANGE", {"CDSRVF_Sysfunc_set_ratio_change_status(1)"}, true},
    {24, "SYSEVT_CAMERA_STOP_SHOT_FINISHED", nullptr, {}, true},
    {25, "SYSEVT_CAMERA_ZOOM_START", nullptr, {}, true},
    {26, "SYSEVT_CAMERA_SET_MOVIE_RESOLUTION", nullptr, {}, true},
    {27, "SYSEVT_CAMERA_RECORD_STARTED", "ERROR", {"CDSRVF_Sysfunc_set_RecordStatus(1)"}, true},
    {28,
     "SYSEVT_CAMERA_RECORD_STOPED",
     "00:01:05",
     {"RVFStreamingThruGet::setStreamingStop(1)", "CDSRVF_Sysfunc_set_RecordingStopTime(00:01:05)"},
     true},
    {29, "SYSEVT_CAMERA_TOUCH_AF_MOVIE_FINISHED", nullptr, {}, true},
    {30, "SYSEVT_CAMERA_CANCEL_TOUCH_AF_MOVIE", nullptr, {}, true},
    {31, "SYSEVT_CAMERA_SHUTTER_SPEED", "1/250", {"RVFAppSendShutterSpeedEvent(1/250)"}, false},
    {32, "SYSEVT_CAMERA_APERTURE", "F5.6", {"RVFAppSendApertureEvent(F5.6)"}, false},
    {33, "SYSEVT_CAMERA_REMAIN_SHOT_COUNT", "123", {"RVFAppSendRemainShotCountEvent(123)"}, false},
    {34, "SYSEVT_CAMERA_EV", "+0.3", {"RVFAppSendEVEvent(+0.3)"}, false},
    {35, "SYSEVT_CAMERA_UPDATE_AE", nullptr, {"RVFAppSendMultipleAEEvent()"}, false},
    {36, "SYSEVT_CAMERA_SHOT_RESULT", "http://cam/1.JPG", {"RVFAppSendShotResultURLEvent(http://cam/1.JPG)"}, false},
    {37, "SYSEVT_CAMERA_NOTIFY_ZOOM_STEP", "4", {"RVFAppSendZoomStepEvent(4)"}, false},
    {38, "SYSEVT_CAMERA_RECORDING_TIME", "00:00:12", {"RVFAppSendMoiveRecordTimeEvent(00:00:12)"}, false},
    {39, "SYSEVT_CAMERA_RVF_ML_CHANGE_DONE", nullptr, {}, true},
    // The database thread's calls (it runs to its end before the check).
    {40,
     "SYSEVT_CAMERA_RVF_ML_MAKE_DB",
     nullptr,
     {"ZEBCreateDirectoryStructure({db})", "parseMediaFilesDcfDB({root}, {db})", "DataBaseMgr::GetInstance()",
      "DataBaseMgr::OpenDB({db})", "DataBaseMgr::UpdateShareStatus((null), 8)", "DataBaseMgr::DestroyInstance()"},
     false},
    {41, "SYSEVT_CAMERA_RVF_ML_START_RVF", nullptr, {"RVFAppSendOperationStateEvent(TransitionToRVF)"}, false},
    {42, "SYSEVT_CAMERA_RVF_ML_START_ML", "ignored", {"RVFAppSendOperationStateEvent(TransitionToML)"}, false},
    {43, "SYSEVT_CAMERA_RECORD_ERROR", "CARD_FULL", {"RVFAppSendRecordErrorEvent(CARD_FULL)"}, false},
    {44, "UNKNOWN_EVENT", "x", {}, false},
    {99, "UNKNOWN_EVENT", nullptr, {}, false},
    {-1, "UNKNOWN_EVENT", nullptr, {}, false},
};

std::string replaced(std::string text, const std::string& key, const std::string& by) {
    for (size_t at = text.find(key); at != std::string::npos; at = text.find(key, at + by.size()))
        text.replace(at, key.size(), by);
    return text;
}

class CameraEvent : public RvfTest, public testing::WithParamInterface<Row> {
protected:
    void SetUp() override {
        RvfTest::SetUp();
        writeCard();
        startViewfinder();
    }
    Calls expectedCalls(const Row& row) const {
        Calls calls;
        for (const std::string& c : row.calls) calls.push_back(replaced(replaced(c, "{db}", dbPath()), "{root}", dcim()));
        if (row.raises) calls.push_back(kFlag);
        return calls;
    }
};

TEST_P(CameraEvent, LeadsToExactlyTheCallsOfItsRow) {
    const Row& row = GetParam();
    EXPECT_EQ(DlnaRVFEvent(row.id, row.value), 1);
    // The database thread makes its last call before its final event.
    if (row.id == 40) {
        ASSERT_TRUE(rvftest::waitForEvent(kRvfEventDBFinished));
    }
    EXPECT_EQ(host::journalEntries(), expectedCalls(row));
    EXPECT_EQ(host::rvf::eventFlags(), row.raises ? 1u : 0u);
    EXPECT_TRUE(logged(std::string("Event [") + row.name + "] value [" + (row.value ? row.value : "NULL") + "]",
                       "DLNA"));
}

std::string rowName(const testing::TestParamInfo<Row>& info) {
    std::string name = info.param.name;
    const std::string prefix = "SYSEVT_CAMERA_";
    if (name.compare(0, prefix.size(), prefix) == 0) name = name.substr(prefix.size());
    std::string id = info.param.id < 0 ? "Minus" + std::to_string(-info.param.id) : std::to_string(info.param.id);
    std::string out = "Id" + id + "_";
    for (char c : name) out += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return out;
}

INSTANTIATE_TEST_SUITE_P(EveryId, CameraEvent, testing::ValuesIn(kRows), rowName);

// One viewfinder running, journal clear.
class EventValues : public RvfTest {
protected:
    void SetUp() override {
        RvfTest::SetUp();
        startViewfinder();
    }
    // The journal of one event alone.
    Calls callsOf(int id, const char* value) {
        host::clearJournal();
        EXPECT_EQ(DlnaRVFEvent(id, value), 1);
        return host::journalEntries();
    }
};

TEST_F(EventValues, FlashIsAttachedOnlyForTheExactTextAttached) {
    EXPECT_EQ(callsOf(10, "ATTACHED"), Calls{"RVFAppSendFlashStatusEvent(1)"});
    EXPECT_EQ(callsOf(10, "DETACHED"), Calls{"RVFAppSendFlashStatusEvent(0)"});
    EXPECT_EQ(callsOf(10, nullptr), Calls{"RVFAppSendFlashStatusEvent(0)"});
    EXPECT_EQ(callsOf(10, "attached"), Calls{"RVFAppSendFlashStatusEvent(0)"}) << "compared case-sensitively";
}

TEST_F(EventValues, AfModeIsManualOnlyForTheExactTextMF) {
    EXPECT_EQ(callsOf(15, "MF"), Calls{"RVFAppSendAFModeEvent(1)"});
    EXPECT_EQ(callsOf(15, "AF"), Calls{"RVFAppSendAFModeEvent(0)"});
    EXPECT_EQ(callsOf(15, "mf"), Calls{"RVFAppSendAFModeEvent(0)"});
    EXPECT_EQ(callsOf(15, "MF "), Calls{"RVFAppSendAFModeEvent(0)"});
    EXPECT_EQ(callsOf(15, nullptr), Calls{"RVFAppSendAFModeEvent(0)"});
}

TEST_F(EventValues, RatioChangeIsMarkedOnlyForTheExactTextChange) {
    for (int id : {17, 22, 23}) {
        EXPECT_EQ(callsOf(id, "CHANGE"), (Calls{"CDSRVF_Sysfunc_set_ratio_change_status(1)", kFlag})) << id;
        EXPECT_EQ(callsOf(id, "Change"), (Calls{"CDSRVF_Sysfunc_set_ratio_change_status(0)", kFlag})) << id;
        EXPECT_EQ(callsOf(id, nullptr), (Calls{"CDSRVF_Sysfunc_set_ratio_change_status(0)", kFlag})) << id;
    }
}

TEST_F(EventValues, RecordStartMarksTheRecordStatusOnlyForError) {
    EXPECT_EQ(callsOf(27, "ERROR"), (Calls{"CDSRVF_Sysfunc_set_RecordStatus(1)", kFlag}));
    EXPECT_EQ(callsOf(27, "OK"), (Calls{"CDSRVF_Sysfunc_set_RecordStatus(0)", kFlag}));
    EXPECT_EQ(callsOf(27, nullptr), (Calls{"CDSRVF_Sysfunc_set_RecordStatus(0)", kFlag}));
}

TEST_F(EventValues, TextEventsWithoutATextSendNothing) {
    for (int id : {31, 32, 33, 34, 36, 37, 38}) EXPECT_TRUE(callsOf(id, nullptr).empty()) << id;
}

TEST_F(EventValues, TextsPassedWithoutCheckGoOnEvenWhenMissing) {
    EXPECT_EQ(callsOf(6, nullptr), Calls{"RVFAppSendRotationEvent((null))"});
    EXPECT_EQ(callsOf(43, nullptr), Calls{"RVFAppSendRecordErrorEvent((null))"});
    EXPECT_EQ(callsOf(3, nullptr), (Calls{"CDSRVF_Sysfunc_set_FocusString((null))", kFlag}));
    EXPECT_EQ(callsOf(28, nullptr), (Calls{"RVFStreamingThruGet::setStreamingStop(1)",
                                           "CDSRVF_Sysfunc_set_RecordingStopTime((null))", kFlag}));
}

TEST_F(EventValues, UnknownEventDoesNothingAndSucceeds) {
    EXPECT_TRUE(callsOf(99, "anything").empty());
    EXPECT_TRUE(logged("Event [UNKNOWN_EVENT] value [anything]", "DLNA"));
}

TEST_F(EventValues, AFlagThatCannotBeRaisedFailsTheEvent) {
    for (int id : {1, 3, 11, 17, 27, 28, 39}) {
        host::scriptResult("RVFAppSetEventFlag", 0);
        host::clearLog();
        EXPECT_EQ(DlnaRVFEvent(id, "v"), 0) << id;
        EXPECT_TRUE(logged("RVFAppSetEventFlag error", "DLNA")) << id;
    }
    EXPECT_EQ(host::rvf::eventFlags(), 0u);
}

TEST_F(EventValues, EventsAfterTerminateAreRefusedWithoutACall) {
    DlnaRVFTerminate();
    host::clearJournal();
    for (const Row& row : kRows) {
        host::clearLog();
        EXPECT_EQ(DlnaRVFEvent(row.id, row.value), 0) << row.id;
        EXPECT_TRUE(logged(std::string("Event Return!!! terminate status [") + row.name + "] [" +
                               (row.value ? row.value : "NULL") + "]",
                           "DLNA"))
            << row.id;
    }
    EXPECT_TRUE(host::journalEntries().empty());
    EXPECT_TRUE(rvftest::events().empty());
}

TEST_F(RvfTest, EventsBeforeAnyStartAreRefusedWithoutACall) {
    for (int id = -1; id <= 44; ++id) EXPECT_EQ(DlnaRVFEvent(id, "v"), 0) << id;
    EXPECT_TRUE(host::journalEntries().empty());
}

}  // namespace
