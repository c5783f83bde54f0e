// The two stories end to end with real 2-second timers: a photo shown on the
// chosen TV, and a video played, paused, resumed and finished.
#include "Dlna/DlnaMrcp.h"
#include "Dlna/Dlna_response.h"
#include "mrcp_fixture.h"

namespace mrcptest {
namespace {

using host::mrcp::Response;
using host::mrcp::SentRequest;

// Generous upper bound of a 2-second timer on a loaded machine.
constexpr int64_t kLatePollMs = 5000;

class MrcpStory : public MrcpTest {
protected:
    void SetUp() override {
        MrcpTest::SetUp();
        buildDatabase();
        ASSERT_TRUE(start());
        chooseRenderer(2, 1);
    }

    // The photo sent through STOP -> SetAVTransportURI -> Play, all answered.
    void showPhoto(const std::string& file, size_t nth) {
        ASSERT_EQ(DlnaMrcpShowFile(file.c_str()), 1);
        SentRequest stop = waitForRequest("Stop", nth);
        EXPECT_EQ(stop.context.value_or(""), "StopAction");
        EXPECT_EQ(gMrcpStopActionFlag.load(), kMrcpActionSent);
        EXPECT_EQ(gMrcpShowActionFlag.load(), kMrcpActionSent);
        deliver(host::mrcp::answerTo(stop));

        SentRequest uri = waitForRequest("SetAVTransportURI", nth);
        EXPECT_EQ(uri.udn, udnOf(1));
        EXPECT_EQ(uri.context.value_or(""), "image");
        std::string url = uri.uri.value_or("");
        EXPECT_EQ(url.compare(0, 7, "http://"), 0);
        EXPECT_EQ(url.substr(url.size() - file.size()), file);
        std::string title = file.substr(file.rfind('/') + 1);
        EXPECT_NE(uri.metadata.value_or("").find("<dc:title>" + title + "</dc:title>"), std::string::npos);
        EXPECT_NE(uri.metadata.value_or("").find(">" + url + "</res>"), std::string::npos);
        EXPECT_EQ(gMrcpStopActionFlag.load(), kMrcpActionDone);
        EXPECT_EQ(gMrcpShowActionFlag.load(), kMrcpActionDone);
        EXPECT_FALSE(MrcpGetShowReadyFlag());
        deliver(host::mrcp::answerTo(uri));

        SentRequest play = waitForRequest("Play", nth);
        EXPECT_EQ(play.context.value_or(""), "image");
        EXPECT_EQ(play.speed.value_or(0), 1);
        EXPECT_EQ(play.instance.value_or(""), "0");
        EXPECT_EQ(gMrcpPlayActionFlag.load(), kMrcpActionSent);
        deliver(host::mrcp::answerTo(play));
        EXPECT_EQ(gMrcpPlayActionFlag.load(), kMrcpActionDone);
        EXPECT_FALSE(gMrcpContentIsVideo);
    }

    bool timerAlive(const std::string& name) {
        for (auto& t : host::mrcp::timers())
            if (t.name == name) return true;
        return false;
    }

    // Every firing came no earlier than its period and not absurdly late.
    void expectFiringsOnTime(const std::string& name, size_t atLeast) {
        size_t n = 0;
        for (auto& f : host::mrcp::firings()) {
            if (f.name != name) continue;
            ++n;
            EXPECT_EQ(f.periodMs, 2000u) << name;
            EXPECT_GE(f.firedAtMs - f.armedAtMs, 2000) << name << " fired early";
            EXPECT_LT(f.firedAtMs - f.armedAtMs, kLatePollMs) << name << " fired late";
        }
        EXPECT_GE(n, atLeast) << name;
    }

    void answerPosition(size_t nth, int durationMs, int relMs) {
        Response a = host::mrcp::answerTo(waitForRequest("GetPositionInfo", nth));
        a.durationMs = durationMs;
        a.relTimeMs = relMs;
        deliver(a);
    }
};

TEST_F(MrcpStory, PhotoIsStoppedSentPlayedAndReportedReadyByTheStatePoll) {
    showPhoto(photo(), 1);
    // The Play answer armed the state poll; its first GetTransportInfo comes
    // 2 seconds later.
    SentRequest poll = waitForRequest("GetTransportInfo", 1, kLatePollMs + 1000);
    EXPECT_EQ(poll.function, "ZEBMRCPGetPlayState");
    EXPECT_EQ(poll.context.value_or(""), "GetPlayStateAction");
    EXPECT_EQ(poll.udn, udnOf(1));
    expectFiringsOnTime("GetTransportInfoTimer", 1);
    EXPECT_TRUE(events().empty()) << "nothing is reported before the renderer plays";

    answerTransportInfo(poll, "PLAYING");
    auto ids = eventIds();
    ASSERT_FALSE(ids.empty());
    EXPECT_EQ(ids[0], EVT_MRCP_SHOW_READY);
    EXPECT_TRUE(MrcpGetShowReadyFlag());
    EXPECT_FALSE(timerAlive("MrcpTimer")) << "a photo has no position to poll";

    // The next photo can be shown at once.
    showPhoto(photo2(), 2);
}

TEST_F(MrcpStory, PhotoIsReportedReadyByTheRenderersLastChangeEvent) {
    showPhoto(photo(), 1);
    ASSERT_TRUE(timerAlive("GetTransportInfoTimer"));
    notifyTransportState(udnOf(1), "PLAYING");
    EXPECT_EQ(eventIds(), std::vector<int>{EVT_MRCP_SHOW_READY});
    EXPECT_TRUE(MrcpGetShowReadyFlag());
    // The event said it all: no state polling for a photo any more.
    EXPECT_TRUE(host::mrcp::timers().empty());
    EXPECT_TRUE(host::mrcp::sentRequests("GetTransportInfo").empty());
    showPhoto(photo2(), 2);
}

TEST_F(MrcpStory, VideoPlaysPausesResumesAndCompletesWithPositionsEveryTwoSeconds) {
    ASSERT_EQ(DlnaMrcpPlayFile(video().c_str()), 1);
    SentRequest uri = lastRequest("SetAVTransportURI");
    EXPECT_EQ(uri.context.value_or(""), "video");
    deliver(host::mrcp::answerTo(uri));
    SentRequest play = lastRequest("Play");
    EXPECT_EQ(play.context.value_or(""), "video");
    deliver(host::mrcp::answerTo(play));
    EXPECT_TRUE(gMrcpContentIsVideo);

    // PLAYING: started, position polling begins with an immediate request.
    answerTransportInfo(waitForRequest("GetTransportInfo", 1, kLatePollMs + 1000), "PLAYING");
    EXPECT_EQ(eventIds(), std::vector<int>{EVT_MRCP_PLAY_STARTED});
    answerPosition(1, 5000, 1000);
    // The position timer itself asks again 2 seconds later.
    SentRequest byTimer = waitForRequest("GetPositionInfo", 2, kLatePollMs + 1000);
    EXPECT_EQ(byTimer.context.value_or(""), "GetPositionInfoAction");
    answerPosition(2, 5000, 3000);
    auto positions = events();
    ASSERT_EQ(positions.size(), 3u);
    EXPECT_EQ(positions[1].id, EVT_MRCP_PLAY_POSITION);
    EXPECT_EQ(positions[1].position.duration, 5);
    EXPECT_EQ(positions[1].position.position, 1);
    EXPECT_EQ(positions[2].position.position, 3);
    EXPECT_EQ(positions[2].length, 3);

    // Still PLAYING at the next poll: no second start.
    answerTransportInfo(waitForRequest("GetTransportInfo", 2, kLatePollMs + 1000), "PLAYING");
    // PAUSED: paused, position polling stops.
    answerTransportInfo(waitForRequest("GetTransportInfo", 3, kLatePollMs + 1000), "PAUSED_PLAYBACK");
    EXPECT_FALSE(timerAlive("MrcpTimer"));
    // PLAYING again: resumed.
    answerTransportInfo(waitForRequest("GetTransportInfo", 4, kLatePollMs + 1000), "PLAYING");
    EXPECT_TRUE(timerAlive("MrcpTimer"));
    // STOPPED: complete, both timers gone, no more polls.
    answerTransportInfo(waitForRequest("GetTransportInfo", 5, kLatePollMs + 1000), "STOPPED");
    EXPECT_TRUE(host::mrcp::timers().empty());

    std::vector<int> states;
    for (int id : eventIds())
        if (id != EVT_MRCP_PLAY_POSITION) states.push_back(id);
    EXPECT_EQ(states, (std::vector<int>{EVT_MRCP_PLAY_STARTED, EVT_MRCP_PLAY_PAUSED, EVT_MRCP_PLAY_RESUMED,
                                        EVT_MRCP_PLAY_COMPLETE}));
    expectFiringsOnTime("GetTransportInfoTimer", 5);
    expectFiringsOnTime("MrcpTimer", 1);
    size_t polls = host::mrcp::sentRequests("GetTransportInfo").size();
    // Consecutive state polls are at least the timer's period apart.
    auto sent = host::mrcp::sentRequests("GetTransportInfo");
    for (size_t i = 1; i < sent.size(); ++i) EXPECT_GE(sent[i].sentAtMs - sent[i - 1].sentAtMs, 2000);

    // A stop the UI orders is answered with PLAY_STOP.
    clearEvents();
    ASSERT_EQ(DlnaMrcpStopFile(), 1);
    answerLast("Stop");
    EXPECT_EQ(eventIds(), std::vector<int>{EVT_MRCP_PLAY_STOP});
    EXPECT_EQ(host::mrcp::sentRequests("GetTransportInfo").size(), polls) << "polling ended with STOPPED";
}

}  // namespace
}  // namespace mrcptest
