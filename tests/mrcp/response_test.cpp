// The stack's answers and the renderers' events turned into the next request
// and into UI events: every rule of the state machine that needs no timer to
// fire (the stories with real timers are in story_test.cpp).
#include <thread>

#include "Dlna/DlnaMrcp.h"
#include "Dlna/Dlna_response.h"
#include "mrcp_fixture.h"

namespace mrcptest {
namespace {

using host::mrcp::Response;

class MrcpResponse : public MrcpTest {
protected:
    void SetUp() override {
        MrcpTest::SetUp();
        buildDatabase();
        ASSERT_TRUE(start());
        chooseRenderer(2, 0);
    }

    bool timerArmed(const std::string& name) {
        for (auto& t : host::mrcp::timers())
            if (t.name == name && t.armed) return true;
        return false;
    }

    // A video sent and its Play answered: the state poll is armed.
    void videoPlaying() {
        ASSERT_EQ(DlnaMrcpPlayFile(video().c_str()), 1);
        answerLast("SetAVTransportURI");
        answerLast("Play");
    }

    // The renderer asked once for its state and answering state.
    void reportState(const std::string& state) {
        size_t n = host::mrcp::sentRequests("GetTransportInfo").size();
        ASSERT_EQ(DlnaGetDmrStatus(), 1);
        answerTransportInfo(waitForRequest("GetTransportInfo", n + 1), state);
    }
};

TEST_F(MrcpResponse, StopAnswerWithError801WhileShowReadySendsNothingAndKeepsTheFlags) {
    ASSERT_EQ(DlnaMrcpShowFile(photo().c_str()), 1);
    answerLast("Stop", 801);
    EXPECT_TRUE(events().empty());
    EXPECT_EQ(gMrcpStopActionFlag.load(), kMrcpActionSent);
    EXPECT_EQ(gMrcpShowActionFlag.load(), kMrcpActionSent);
    EXPECT_TRUE(host::mrcp::sentRequests("SetAVTransportURI").empty());
    EXPECT_TRUE(testsupport::logged(
        "MrcpSetShowReadyFlag is TRUE .. Dont send the next action until TV is in Stopped state. ", "DLNA"));
    EXPECT_TRUE(testsupport::logged("[MrcpCommandResponse] Error in sending action == Stop , ErrorCode = 801 ", "DLNA"));
}

TEST_F(MrcpResponse, StopAnswerWithError801AfterShowReadyWasClearedSendsShowReady) {
    ASSERT_EQ(DlnaMrcpShowFile(photo().c_str()), 1);
    ASSERT_EQ(DlnaMrcpShowFile(photo2().c_str()), 0);  // clears show-ready
    answerLast("Stop", 801);
    EXPECT_EQ(eventIds(), std::vector<int>{EVT_MRCP_SHOW_READY});
    EXPECT_TRUE(MrcpGetShowReadyFlag());
    EXPECT_EQ(gMrcpStopActionFlag.load(), kMrcpActionDone);
    EXPECT_EQ(gMrcpShowActionFlag.load(), kMrcpActionDone);
    EXPECT_EQ(gMrcpTransportStatus.load(), 4);
    EXPECT_TRUE(host::mrcp::sentRequests("SetAVTransportURI").empty());
}

TEST_F(MrcpResponse, StopAnswerForAPhotoTheDatabaseDoesNotKnowSendsPlayFailed) {
    std::string unknown = dcim() + "/100CAMERA/NEW00009.JPG";
    mediatest::writeFile(unknown, mediatest::jpegBytes(64, 48));
    ASSERT_EQ(DlnaMrcpShowFile(unknown.c_str()), 1);
    answerLast("Stop");
    EXPECT_EQ(eventIds(), std::vector<int>{EVT_MRCP_PLAY_FAILED});
    EXPECT_TRUE(MrcpGetShowReadyFlag());
    EXPECT_TRUE(testsupport::logged("SetAVTransportURL Failed. Send EVT_MRCP_PLAY_FAILED to UI", "DLNA"));
    EXPECT_EQ(gMrcpStopActionFlag.load(), kMrcpActionDone);
}

TEST_F(MrcpResponse, SetAVTransportURIAnswerWithError801ForAPhotoSendsShowReadyAndNoPlay) {
    ASSERT_EQ(DlnaMrcpShowFile(photo().c_str()), 1);
    answerLast("Stop");
    ASSERT_FALSE(MrcpGetShowReadyFlag()) << "a photo on its way keeps the next one back";
    answerLast("SetAVTransportURI", 801);
    EXPECT_EQ(eventIds(), std::vector<int>{EVT_MRCP_SHOW_READY});
    EXPECT_TRUE(MrcpGetShowReadyFlag());
    EXPECT_TRUE(host::mrcp::sentRequests("Play").empty());
    EXPECT_TRUE(testsupport::logged("Send EVT_MRCP_SHOW_READY Event to UI and Return ", "DLNA"));
}

TEST_F(MrcpResponse, SetAVTransportURIAnswerWithError801WhileShowReadyStillSendsPlay) {
    ASSERT_EQ(DlnaMrcpPlayFile(video().c_str()), 1);
    answerLast("SetAVTransportURI", 801);
    EXPECT_TRUE(testsupport::logged("MrcpSetShowReadyFlag is FALSE ", "DLNA"));
    auto play = lastRequest("Play");
    EXPECT_EQ(play.function, "ZEBMRCPAVPlay");
    EXPECT_EQ(play.context.value_or(""), "video");
    EXPECT_EQ(play.speed.value_or(0), 1);
    EXPECT_EQ(gMrcpPlayActionFlag.load(), kMrcpActionSent);
    EXPECT_TRUE(events().empty());
}

TEST_F(MrcpResponse, SetAVTransportURIAnswerWithAnUnknownContextPlaysUnknownContent) {
    ASSERT_EQ(DlnaMrcpPlayFile(video().c_str()), 1);
    Response a = host::mrcp::answerTo(lastRequest("SetAVTransportURI"));
    a.context.reset();
    deliver(a);
    EXPECT_TRUE(testsupport::logged("pContext = UNKNOWN_Context", "DLNA"));
    EXPECT_TRUE(testsupport::logged("Unknown Content  in SetAVTransportURI response", "DLNA"));
    EXPECT_EQ(lastRequest("Play").context.value_or(""), "Unknown");
    answerLast("Play");
    EXPECT_TRUE(testsupport::logged("Unknown Content  in Play response", "DLNA"));
    EXPECT_FALSE(timerArmed("GetTransportInfoTimer"));
}

TEST_F(MrcpResponse, PlayThatCannotBeSentReportsPlayFailed) {
    ASSERT_EQ(DlnaMrcpShowFile(photo().c_str()), 1);
    answerLast("Stop");
    host::scriptResult("ZEBMRCPAVPlay", 2);
    answerLast("SetAVTransportURI");
    EXPECT_EQ(eventIds(), std::vector<int>{EVT_MRCP_PLAY_FAILED});
    EXPECT_TRUE(MrcpGetShowReadyFlag());
    // No Play is pending: the UI may show the next photo at once.
    EXPECT_NE(gMrcpPlayActionFlag.load(), kMrcpActionSent);
    EXPECT_EQ(DlnaMrcpShowFile(photo2().c_str()), 1);
}

TEST_F(MrcpResponse, PlayAnswerWithError801ForAPhotoSendsShowReadyAndPollsNothing) {
    ASSERT_EQ(DlnaMrcpShowFile(photo().c_str()), 1);
    answerLast("Stop");
    answerLast("SetAVTransportURI");
    answerLast("Play", 801);
    EXPECT_EQ(eventIds(), std::vector<int>{EVT_MRCP_SHOW_READY});
    EXPECT_TRUE(testsupport::logged("MrcpSetShowReadyFlag TRUE as Play command failed.", "DLNA"));
    EXPECT_FALSE(timerArmed("GetTransportInfoTimer"));
    EXPECT_EQ(gMrcpPlayActionFlag.load(), kMrcpActionDone);
}

TEST_F(MrcpResponse, PlayAnswerOfAVideoArmsTheStatePollForTwoSeconds) {
    videoPlaying();
    auto t = host::mrcp::timers();
    ASSERT_EQ(t.size(), 1u);
    EXPECT_EQ(t[0].name, "GetTransportInfoTimer");
    EXPECT_TRUE(t[0].armed);
    EXPECT_EQ(t[0].periodMs, 2000u);
    EXPECT_TRUE(gMrcpContentIsVideo);
    EXPECT_EQ(gMrcpPlayActionFlag.load(), kMrcpActionDone);
    EXPECT_TRUE(testsupport::logged("video Context  in Play response", "DLNA"));
}

TEST_F(MrcpResponse, TransportInfoAnswerWithAnErrorEndsThePolling) {
    ASSERT_EQ(DlnaGetDmrStatus(), 1);
    answerLast("GetTransportInfo", 801);
    EXPECT_TRUE(testsupport::logged("GetTransportInfo Action returned error.!!", "DLNA"));
    EXPECT_TRUE(host::mrcp::timers().empty());
    EXPECT_TRUE(events().empty());
}

TEST_F(MrcpResponse, UnreadableTransportInfoSendsPlayFailed) {
    MrcpSetShowReadyFlag(false);
    ASSERT_EQ(DlnaGetDmrStatus(), 1);
    answerLast("GetTransportInfo");  // no state in the answer
    EXPECT_EQ(eventIds(), std::vector<int>{EVT_MRCP_PLAY_FAILED});
    EXPECT_TRUE(MrcpGetShowReadyFlag());
    EXPECT_TRUE(testsupport::logged("HZebMRCPRQGetTransportInfo failed !! Send EVT_MRCP_PLAY_FAILED to UI  !!", "DLNA"));
    EXPECT_TRUE(host::mrcp::timers().empty());
}

TEST_F(MrcpResponse, TransportStatusErrorSendsUnsupportedFile) {
    ASSERT_EQ(DlnaGetDmrStatus(), 1);
    answerTransportInfo(lastRequest("GetTransportInfo"), "STOPPED", "ERROR_OCCURRED");
    EXPECT_EQ(eventIds(), std::vector<int>{EVT_MRCP_UNSUPPORTED_FILE});
    EXPECT_TRUE(testsupport::logged("Send EVT_MRCP_UNSUPPORTED_FILE Event to UI", "DLNA"));
    EXPECT_TRUE(host::mrcp::timers().empty());
}

TEST_F(MrcpResponse, ASecondPlayingReportSendsNoSecondPlayStarted) {
    reportState("PLAYING");
    reportState("PLAYING");
    EXPECT_EQ(eventIds(), std::vector<int>{EVT_MRCP_PLAY_STARTED});
    EXPECT_TRUE(gFirstPlayFlag);
    EXPECT_EQ(DlnaMrcpGetRendererState(udnOf(0).c_str()), PLAYING);
    EXPECT_TRUE(timerArmed("GetTransportInfoTimer")) << "each answer re-arms the state poll";
}

TEST_F(MrcpResponse, TransitioningAndUnknownStatesOnlyKeepPolling) {
    reportState("TRANSITIONING");
    EXPECT_TRUE(testsupport::logged("Player Buffering ", "DLNA"));
    EXPECT_TRUE(testsupport::logged("Player_state == TRANSITIONING ", "DLNA"));
    reportState("NO_MEDIA_PRESENT");
    EXPECT_TRUE(testsupport::logged("Invalid Status ", "DLNA"));
    EXPECT_TRUE(testsupport::logged("Player_state == UNKNOWN ", "DLNA"));
    EXPECT_TRUE(events().empty());
    EXPECT_TRUE(timerArmed("GetTransportInfoTimer"));
}

TEST_F(MrcpResponse, PositionAnswerSendsDurationAndPositionInSeconds) {
    videoPlaying();
    reportState("PLAYING");
    EXPECT_TRUE(timerArmed("MrcpTimer"));
    Response a = host::mrcp::answerTo(lastRequest("GetPositionInfo"));
    a.durationMs = 125000;
    a.relTimeMs = 61500;
    deliver(a);
    auto e = events();
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[1].id, EVT_MRCP_PLAY_POSITION);
    ASSERT_TRUE(e[1].hasPosition);
    EXPECT_EQ(e[1].position.duration, 125);
    EXPECT_EQ(e[1].position.position, 61);
    EXPECT_EQ(e[1].position.percent, 48);
    EXPECT_EQ(e[1].length, 61);
    EXPECT_TRUE(timerArmed("MrcpTimer"));
    EXPECT_TRUE(testsupport::logged(
        "** Send EVT_MRCP_PLAY_POSITION Event to UI - Duration = 125 , PlayPosition = 61", "DLNA"));
}

TEST_F(MrcpResponse, PositionAnswerWithDurationZeroStopsThePositionTimerAndSendsNoPosition) {
    videoPlaying();
    reportState("PLAYING");
    ASSERT_TRUE(timerArmed("MrcpTimer"));
    Response a = host::mrcp::answerTo(lastRequest("GetPositionInfo"));
    a.durationMs = 0;
    a.relTimeMs = 0;
    deliver(a);
    EXPECT_FALSE(timerArmed("MrcpTimer"));
    EXPECT_EQ(eventIds(), std::vector<int>{EVT_MRCP_PLAY_STARTED});
    EXPECT_TRUE(testsupport::logged("[ProcessGetPositionInfoResponse] !!!  Terminate MRCP Timer !!!", "DLNA"));
}

TEST_F(MrcpResponse, PositionAtTheEndStopsThePositionTimerAndStillReportsIt) {
    videoPlaying();
    reportState("PLAYING");
    Response a = host::mrcp::answerTo(lastRequest("GetPositionInfo"));
    a.durationMs = 5000;
    a.relTimeMs = 5400;
    deliver(a);
    EXPECT_FALSE(timerArmed("MrcpTimer"));
    ASSERT_EQ(events().size(), 2u);
    EXPECT_EQ(events()[1].position.position, 5);
    EXPECT_EQ(events()[1].position.percent, 100);
}

TEST_F(MrcpResponse, UnreadablePositionSendsNothing) {
    videoPlaying();
    reportState("PLAYING");
    answerLast("GetPositionInfo");
    EXPECT_EQ(eventIds(), std::vector<int>{EVT_MRCP_PLAY_STARTED});
}

TEST_F(MrcpResponse, StopOrderedByTheUiIsAnsweredWithPlayStop) {
    MrcpSetShowReadyFlag(false);
    ASSERT_EQ(DlnaMrcpStopFile(), 1);
    answerLast("Stop");
    EXPECT_EQ(eventIds(), std::vector<int>{EVT_MRCP_PLAY_STOP});
    EXPECT_TRUE(MrcpGetShowReadyFlag());
    EXPECT_EQ(gMrcpTransportStatus.load(), 4);
    EXPECT_TRUE(testsupport::logged("STOP response is received. Sending STOPEvent to UI", "DLNA"));
}

TEST_F(MrcpResponse, StopOrderedByTheUiAfterAFinishedShowSendsNoPlayStop) {
    ASSERT_EQ(DlnaMrcpShowFile(photo().c_str()), 1);
    answerLast("Stop");
    clearEvents();
    ASSERT_EQ(DlnaMrcpStopFile(), 1);
    answerLast("Stop");
    EXPECT_TRUE(events().empty());
}

TEST_F(MrcpResponse, Error801OnEveryOtherAnswerKindIsLoggedAndHandledAsAnAnswer) {
    const char* actions[] = {"Pause", "Resume", "Seek", "GetVolume", "GetPositionInfo", "GetProtocolInfo",
                             "SetVolume"};
    for (const char* action : actions) {
        Response a;
        a.action = action;
        a.error = 801;
        deliver(a);
        EXPECT_TRUE(testsupport::logged(std::string("[MrcpCommandResponse] Error in sending action == ") + action +
                                            " , ErrorCode = 801 ",
                                        "DLNA"))
            << action;
    }
    EXPECT_TRUE(testsupport::logged("PAUSE response is received.!!", "DLNA"));
    EXPECT_TRUE(testsupport::logged("RESUME response is received.!!", "DLNA"));
    EXPECT_TRUE(testsupport::logged("SEEK response is received.!!", "DLNA"));
    EXPECT_TRUE(testsupport::logged("Volume : -1", "DLNA"));
    EXPECT_TRUE(testsupport::logged("Get Protocol Info Response for DMR - ", "DLNA"));
    EXPECT_TRUE(events().empty());
    EXPECT_TRUE(host::mrcp::storedProtocolInfos().empty());
    EXPECT_EQ(host::mrcp::liveObjects(), 0);
}

TEST_F(MrcpResponse, VolumeAnswerIsLoggedAndCommandErrorsToo) {
    ASSERT_EQ(DlnaMrcpGetVolume(nullptr), 1);
    Response a = host::mrcp::answerTo(lastRequest("GetVolume"));
    a.volume = 42;
    deliver(a);
    EXPECT_TRUE(testsupport::logged("Get Volume Response ", "DLNA"));
    EXPECT_TRUE(testsupport::logged("Volume : 42", "DLNA"));
    Response error;
    error.action = "COMMAND_ERROR";
    deliver(error);
    EXPECT_TRUE(testsupport::logged("[MRCP ERR] Command Error Reponse ", "DLNA"));
}

TEST_F(MrcpResponse, ActionNamesAreComparedWithoutRegardToCase) {
    ASSERT_EQ(DlnaMrcpStopFile(), 1);
    Response a = host::mrcp::answerTo(lastRequest("Stop"));
    a.action = "STOP";
    deliver(a);
    EXPECT_EQ(eventIds(), std::vector<int>{EVT_MRCP_PLAY_STOP});
}

TEST_F(MrcpResponse, LastChangeEventsDriveAVideoFromStartToComplete) {
    videoPlaying();
    notifyTransportState(udnOf(0), "PLAYING");
    EXPECT_EQ(eventIds(), std::vector<int>{EVT_MRCP_PLAY_STARTED});
    EXPECT_TRUE(timerArmed("MrcpTimer"));
    EXPECT_EQ(lastRequest("GetPositionInfo").context.value_or(""), "GetPositionInfoAction");
    EXPECT_TRUE(testsupport::logged("NOTIFY : PLAYING", "DLNA"));
    notifyTransportState(udnOf(0), "PAUSED_PLAYBACK");
    EXPECT_TRUE(testsupport::logged("NOTIFY : PAUSED", "DLNA"));
    EXPECT_FALSE(timerArmed("MrcpTimer"));
    notifyTransportState(udnOf(0), "PLAYING");
    notifyTransportState(udnOf(0), "STOPPED");
    EXPECT_EQ(eventIds(), (std::vector<int>{EVT_MRCP_PLAY_STARTED, EVT_MRCP_PLAY_PAUSED, EVT_MRCP_PLAY_RESUMED,
                                            EVT_MRCP_PLAY_COMPLETE}));
    EXPECT_TRUE(host::mrcp::timers().empty());
    EXPECT_FALSE(gFirstPlayFlag);
}

TEST_F(MrcpResponse, LastChangeOfAnotherRendererOrWithoutStateChangesNothing) {
    videoPlaying();
    notifyTransportState(udnOf(1), "PLAYING");
    host::mrcp::StatusNotification n;
    n.udn = udnOf(0);
    n.variables = {{"Volume", "20"}, {"LastChange", host::mrcp::lastChange({{"CurrentTrack", "1"}})}};
    ASSERT_TRUE(host::mrcp::deliverStatus(n));
    ASSERT_TRUE(host::mrcp::waitIdle());
    EXPECT_TRUE(events().empty());
    EXPECT_TRUE(testsupport::logged("type = Volume , value = 20 ", "DLNA"));
    EXPECT_TRUE(testsupport::logged("MrcpDeviceStatusNotificationCallback() Enter", "DLNA"));
    EXPECT_EQ(DlnaMrcpGetRendererState(udnOf(0).c_str()), STOPPED);
}

TEST_F(MrcpResponse, StoppedFromASecondRendererDoesNotEndTheChosenRenderersVideo) {
    // Every renderer that appeared is subscribed to, so the second TV's
    // events arrive too; the video plays on the first.
    videoPlaying();
    notifyTransportState(udnOf(0), "PLAYING");
    ASSERT_EQ(eventIds(), std::vector<int>{EVT_MRCP_PLAY_STARTED});
    ASSERT_TRUE(timerArmed("MrcpTimer"));
    notifyTransportState(udnOf(1), "STOPPED");
    notifyTransportState(udnOf(1), "PAUSED_PLAYBACK");
    EXPECT_EQ(eventIds(), std::vector<int>{EVT_MRCP_PLAY_STARTED}) << "no PLAY_COMPLETE, no PLAY_PAUSED";
    bool positionPolled = false;
    for (auto& t : host::mrcp::timers()) positionPolled = positionPolled || t.name == "MrcpTimer";
    EXPECT_TRUE(positionPolled) << "the position is still polled";
    EXPECT_TRUE(gFirstPlayFlag);
    EXPECT_EQ(DlnaMrcpGetRendererState(udnOf(0).c_str()), PLAYING);
    // The chosen TV's own STOPPED still ends it.
    notifyTransportState(udnOf(0), "STOPPED");
    EXPECT_EQ(eventIds(), (std::vector<int>{EVT_MRCP_PLAY_STARTED, EVT_MRCP_PLAY_COMPLETE}));
    EXPECT_TRUE(host::mrcp::timers().empty());
}

TEST_F(MrcpResponse, TerminateWaitsForTheCallbackInFlightAndStopsTheTimers) {
    videoPlaying();
    ASSERT_TRUE(timerArmed("GetTransportInfoTimer"));
    setCallbackDelayMs(600);
    ASSERT_EQ(DlnaMrcpStopFile(), 1);
    ASSERT_TRUE(host::mrcp::deliverResponse(host::mrcp::answerTo(lastRequest("Stop"))));
    // Let the answer reach the (slow) UI callback.
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    int64_t before = host::mrcp::nowMs();
    EXPECT_EQ(DlnaMrcpTerminate(), 1);
    EXPECT_GE(host::mrcp::nowMs() - before, 300) << "terminate returned under a running callback";
    EXPECT_EQ(eventIds(), std::vector<int>{EVT_MRCP_PLAY_STOP}) << "the callback ran to its end";
    EXPECT_TRUE(host::mrcp::timers().empty());
    // Nothing reaches the control point any more.
    EXPECT_FALSE(host::mrcp::deliverResponse(host::mrcp::answerTo(lastRequest("Stop"))));
}

}  // namespace
}  // namespace mrcptest
