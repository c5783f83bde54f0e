// Calls back into the control point while it is itself calling out: from a
// UI whose callback hands the event to the UI's own thread and waits there
// until that thread's calls into the control point returned, and from a
// stack whose call waits until its notification thread has run a callback of
// ours. Every wait is bounded: a control point that held a lock across such
// a call makes these tests fail after the wait, never hang.
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "Dlna/DlnaMrcp.h"
#include "Dlna/Dlna_response.h"
#include "mrcp_fixture.h"

namespace mrcptest {
namespace {

using host::mrcp::Response;

// How long the UI's callback, or the stack's call, waits for the other thread.
constexpr int kOtherThreadWaitMs = 5000;

// The UI with a thread of its own.
std::mutex gUiLock;
std::map<int, std::function<void()>> gReactions;  // event id -> what the UI's thread does, once
std::vector<std::thread> gUiThreads;
std::atomic<int> gReactionsInTime{0};
std::atomic<int> gReactionsLate{0};

// Records the event like the other tests' UI, then hands it to a thread of
// the UI and waits (bounded) until that thread's reaction returned.
void handOffToUiThread(ZEB_CALLBACK_EVENT event, void* value, CallbackLength length) {
    recordEvent(event, value, length);
    std::function<void()> reaction;
    {
        std::lock_guard<std::mutex> g(gUiLock);
        auto it = gReactions.find(event);
        if (it == gReactions.end()) return;
        reaction = std::move(it->second);
        gReactions.erase(it);
    }
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> finished = done->get_future();
    std::thread uiThread([reaction, done] {
        reaction();
        done->set_value();
    });
    {
        std::lock_guard<std::mutex> g(gUiLock);
        gUiThreads.push_back(std::move(uiThread));
    }
    if (finished.wait_for(std::chrono::milliseconds(kOtherThreadWaitMs)) == std::future_status::ready)
        ++gReactionsInTime;
    else
        ++gReactionsLate;
}

class MrcpReentry : public MrcpTest {
protected:
    void SetUp() override {
        MrcpTest::SetUp();
        {
            std::lock_guard<std::mutex> g(gUiLock);
            gReactions.clear();
        }
        gReactionsInTime = 0;
        gReactionsLate = 0;
        buildDatabase();
        ASSERT_EQ(DlnaMrcpStart(handOffToUiThread), 1);
    }
    void TearDown() override {
        joinUiThreads();
        MrcpTest::TearDown();
    }

    // When the UI hears of event id, its thread runs reaction (once).
    static void onEvent(int id, std::function<void()> reaction) {
        std::lock_guard<std::mutex> g(gUiLock);
        gReactions[id] = std::move(reaction);
    }
    // Every callback returned and every thread of the UI ended.
    static void joinUiThreads() {
        EXPECT_TRUE(host::mrcp::waitIdle(3 * kOtherThreadWaitMs));
        std::vector<std::thread> threads;
        {
            std::lock_guard<std::mutex> g(gUiLock);
            threads.swap(gUiThreads);
        }
        for (auto& t : threads) t.join();
    }
    // The UI's thread got through in time, as often as expected.
    static void expectReactionsInTime(int count) {
        joinUiThreads();
        EXPECT_EQ(gReactionsLate.load(), 0) << "the UI's thread was kept out while its callback waited";
        EXPECT_EQ(gReactionsInTime.load(), count);
    }
    // Delivers through deliver and waits for the callback to return, within
    // the stack call that runs it (false when the callback was held up).
    static bool deliveredAndHandled(const std::function<bool()>& deliver) {
        return deliver() && host::mrcp::waitIdle(kOtherThreadWaitMs);
    }
};

// ---- A UI that waits in its callback for its own thread ------------------------------

TEST_F(MrcpReentry, UiThatListsAndChoosesFromItsOwnThreadWhileItsCallbackWaitsIsServed) {
    host::mrcp::setRenderers({host::mrcp::Renderer{"TV 0", udnOf(0)}, host::mrcp::Renderer{"TV 1", udnOf(1)}});
    int listed = -1, chosen = -1, shown = -1;
    onEvent(EVT_MRCP_REFRESH_DMR_LIST, [&] {
        int count = 0;
        DmrListEntry* list = nullptr;
        if (DlnaMrcpGetDmrList(&count, &list) == 1) listed = count;
        chosen = DlnaMrcpSetDmr(1, udnOf(1).c_str());
        shown = DlnaMrcpShowFile(photo().c_str());
    });
    ASSERT_TRUE(host::mrcp::deliverDeviceInfo("DMR_ADDED", "TV 1", udnOf(1)));
    expectReactionsInTime(1);
    EXPECT_EQ(listed, 2);
    EXPECT_EQ(chosen, 1);
    EXPECT_EQ(shown, 1);
    EXPECT_EQ(MrcpChosenUdn(), udnOf(1));
    EXPECT_EQ(lastRequest("Stop").udn, udnOf(1));
}

TEST_F(MrcpReentry, UiThatShowsTheNextPhotoFromItsOwnThreadOnShowReadyIsServed) {
    chooseRenderer(2, 0);
    ASSERT_EQ(DlnaMrcpShowFile(photo().c_str()), 1);
    answerLast("Stop");
    answerLast("SetAVTransportURI");
    answerLast("Play");
    int next = -1;
    onEvent(EVT_MRCP_SHOW_READY, [&] { next = DlnaMrcpShowFile(photo2().c_str()); });
    host::mrcp::StatusNotification n;
    n.udn = udnOf(0);
    n.variables = {{"LastChange", host::mrcp::lastChange({{"TransportState", "PLAYING"}})}};
    ASSERT_TRUE(host::mrcp::deliverStatus(n));
    expectReactionsInTime(1);
    EXPECT_EQ(next, 1) << "the next photo was refused right after SHOW_READY";
    EXPECT_EQ(host::mrcp::sentRequests("Stop").size(), 2u);
    EXPECT_EQ(gMrcpStopActionFlag.load(), kMrcpActionSent);
}

TEST_F(MrcpReentry, UiThatPausesAndSeeksFromItsOwnThreadWhileItsCallbackWaitsIsServed) {
    chooseRenderer(1, 0);
    ASSERT_EQ(DlnaMrcpPlayFile(video().c_str()), 1);
    answerLast("SetAVTransportURI");
    answerLast("Play");
    int paused = -1, state = -1, seeked = -1;
    onEvent(EVT_MRCP_PLAY_STARTED, [&] {
        state = DlnaMrcpGetRendererState(udnOf(0).c_str());
        paused = DlnaMrcpPauseFile();
    });
    onEvent(EVT_MRCP_PLAY_POSITION, [&] { seeked = DlnaMrcpSeekFile("0:00:01"); });
    notifyTransportState(udnOf(0), "PLAYING");
    Response position = host::mrcp::answerTo(waitForRequest("GetPositionInfo"));
    position.durationMs = 5000;
    position.relTimeMs = 2000;
    ASSERT_TRUE(host::mrcp::deliverResponse(position));
    expectReactionsInTime(2);
    EXPECT_EQ(state, PLAYING);
    EXPECT_EQ(paused, 1);
    EXPECT_EQ(seeked, 1);
    EXPECT_EQ(lastRequest("Seek").seekTarget.value_or(""), "0:00:01");
}

// ---- A stack whose call waits for its notification thread -------------------------

TEST_F(MrcpReentry, SubscriptionThatWaitsForTheRenderersFirstEventCompletes) {
    host::mrcp::setRenderers({host::mrcp::Renderer{"TV 0", udnOf(0)}, host::mrcp::Renderer{"TV 1", udnOf(1)}});
    int count = 0;
    DmrListEntry* list = nullptr;
    ASSERT_EQ(DlnaMrcpGetDmrList(&count, &list), 1);
    // A renderer answers a subscription with its current state at once.
    bool handled = false;
    host::mrcp::duringNextCall("ZEBMRCPSubscribeDevice", [&] {
        handled = deliveredAndHandled([&] {
            host::mrcp::StatusNotification n;
            n.udn = udnOf(1);
            n.variables = {{"LastChange", host::mrcp::lastChange({{"TransportState", "PAUSED_PLAYBACK"}})}};
            return host::mrcp::deliverStatus(n);
        });
    });
    EXPECT_EQ(DlnaMrcpSetDmr(1, udnOf(1).c_str()), 1);
    EXPECT_TRUE(handled) << "the renderer's first event waited for the subscribing call";
    EXPECT_EQ(DlnaMrcpGetRendererState(udnOf(1).c_str()), PAUSED) << "the event was taken as the chosen TV's";
}

TEST_F(MrcpReentry, StopThatWaitsForItsAnswerLeadsOnToThePhoto) {
    chooseRenderer(1, 0);
    bool handled = false;
    host::mrcp::duringNextCall("ZEBMRCPAVStop", [&] {
        handled = deliveredAndHandled(
            [] { return host::mrcp::deliverResponse(host::mrcp::answerTo(host::mrcp::sentRequests("Stop").back())); });
    });
    EXPECT_EQ(DlnaMrcpShowFile(photo().c_str()), 1);
    EXPECT_TRUE(handled) << "the Stop's answer waited for the sending call";
    // The answer found the Stop to be the photo's: the photo went out.
    auto uri = host::mrcp::sentRequests("SetAVTransportURI");
    ASSERT_EQ(uri.size(), 1u);
    EXPECT_EQ(uri[0].context.value_or(""), "image");
    EXPECT_EQ(gMrcpStopActionFlag.load(), kMrcpActionDone);
    EXPECT_EQ(gMrcpShowActionFlag.load(), kMrcpActionDone);
    EXPECT_FALSE(MrcpGetShowReadyFlag()) << "the photo is on its way";
    EXPECT_TRUE(events().empty()) << "no PLAY_STOP for the photo's own Stop";
}

TEST_F(MrcpReentry, SetAVTransportURIAndPlayThatWaitForTheirAnswersLeadOnToPolling) {
    chooseRenderer(1, 0);
    bool uriHandled = false;
    host::mrcp::duringNextCall("ZEBMRCPSetAVTransportURI", [&] {
        uriHandled = deliveredAndHandled([] {
            return host::mrcp::deliverResponse(
                host::mrcp::answerTo(host::mrcp::sentRequests("SetAVTransportURI").back()));
        });
    });
    EXPECT_EQ(DlnaMrcpPlayFile(video().c_str()), 1);
    EXPECT_TRUE(uriHandled) << "the SetAVTransportURI answer waited for the sending call";
    // Its answer sent Play from the notification thread; the Play answer
    // finds it pending.
    ASSERT_EQ(host::mrcp::sentRequests("Play").size(), 1u);
    EXPECT_EQ(gMrcpPlayActionFlag.load(), kMrcpActionSent);
    answerLast("Play");
    EXPECT_EQ(gMrcpPlayActionFlag.load(), kMrcpActionDone);
    EXPECT_TRUE(gMrcpContentIsVideo);
    bool polling = false;
    for (auto& t : host::mrcp::timers()) polling = polling || t.name == "GetTransportInfoTimer";
    EXPECT_TRUE(polling);
}

TEST_F(MrcpReentry, DeviceListThatWaitsForAnAnnouncementCompletes) {
    host::mrcp::setRenderers({host::mrcp::Renderer{"TV 0", udnOf(0)}});
    bool handled = false;
    host::mrcp::duringNextCall("ZEBMRCPGetDeviceList", [&] {
        handled = deliveredAndHandled([] { return host::mrcp::deliverDeviceInfo("DMR_ADDED", "TV 0", udnOf(0)); });
    });
    int count = 0;
    DmrListEntry* list = nullptr;
    EXPECT_EQ(DlnaMrcpGetDmrList(&count, &list), 1);
    EXPECT_EQ(count, 1);
    EXPECT_TRUE(handled) << "the announcement waited for the list call";
    EXPECT_EQ(host::mrcp::subscriptions(), std::vector<std::string>{udnOf(0)});
    EXPECT_EQ(eventIds(), std::vector<int>{EVT_MRCP_REFRESH_DMR_LIST});
}

}  // namespace
}  // namespace mrcptest
