// The live-stream handover under its 30-second limit, and the user-start
// handshake through the service's event flags.
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "Dlna/DlnaFrame.h"
#include "Dlna/Dlna_RVF_interface.h"
#include "rvf_fixture.h"
#include "rvf_lib.h"

using rvftest::RvfTest;
using testsupport::logged;
using Calls = std::vector<std::string>;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

namespace {

// Generous bound for a call that must not wait for the phone.
constexpr auto kPrompt = std::chrono::seconds(5);

// DlanRVFStreamBufferReady on a thread of its own, as the camera's frame
// producer calls it.
class Producer {
public:
    Producer(void* buffer, long size) {
        m_thread = std::thread([this, buffer, size] {
            m_native = pthread_self();
            m_started = true;
            auto t0 = Clock::now();
            m_result = DlanRVFStreamBufferReady(buffer, size);
            m_took = Clock::now() - t0;
            m_done = true;
        });
        while (!m_started) std::this_thread::yield();
    }
    ~Producer() {
        if (m_thread.joinable()) m_thread.join();
    }
    void join() { m_thread.join(); }
    pthread_t native() const { return m_native; }
    bool done() const { return m_done; }
    int result() const { return m_result; }
    Clock::duration took() const { return m_took; }

private:
    std::thread m_thread;
    pthread_t m_native{};
    std::atomic<bool> m_started{false};
    std::atomic<bool> m_done{false};
    int m_result = 0;
    Clock::duration m_took{};
};

class Stream : public RvfTest {
protected:
    void SetUp() override {
        RvfTest::SetUp();
        startViewfinder();
    }
};

TEST_F(Stream, ReaderThatKeepsUpGetsEveryBufferAndEachCallReturnsPromptly) {
    host::rvf::startReader(host::rvf::Reader::KeepsUp);
    std::vector<std::string> sent;
    for (int i = 0; i < 40; ++i) {
        std::string frame = "frame " + std::to_string(i) + std::string(static_cast<size_t>(i) * 100, char('a' + i % 26));
        auto t0 = Clock::now();
        EXPECT_EQ(DlanRVFStreamBufferReady(&frame[0], static_cast<long>(frame.size())), 1);
        EXPECT_LT(Clock::now() - t0, kPrompt) << "buffer " << i;
        sent.push_back(frame);  // the call returned: the buffer may be reused
    }
    EXPECT_EQ(host::rvf::buffersRead(), sent);
    EXPECT_EQ(host::journalEntries("RVFStreamingThruGet::setBufferPtr").size(), sent.size());
    EXPECT_TRUE(rvftest::events().empty());
}

TEST_F(Stream, WithoutReadCompleteSemaphoreTheBufferIsHandedOverAndTheCallReturnsAtOnce) {
    DlnaRVFTerminate();
    host::rvf::createStreamSemaphores(true, false);
    ASSERT_TRUE(DlnaRVFStart(rvftest::recorder()));
    host::clearJournal();
    char frame[] = "one frame";
    auto t0 = Clock::now();
    EXPECT_EQ(DlanRVFStreamBufferReady(frame, sizeof frame), 1);
    EXPECT_LT(Clock::now() - t0, kPrompt);
    EXPECT_EQ(host::journalEntries(),
              (Calls{"CDSRVF_Sysfunc_get_Streaming_stop_status()",
                     "RVFStreamingThruGet::setBufferPtr(" + rvftest::pointerText(frame) + ", 10)"}));
    EXPECT_EQ(host::rvf::ready4ReadValue(), 1) << "the streaming side was told";
}

TEST_F(Stream, StalledReaderEndsWithEvent95AfterThirtySecondsAndASignalDoesNotShortenIt) {
    // The one 30-second test: a reader that never answers, and a signal in
    // the middle of the wait.
    DlnaInstallSignalHandler();
    testing::internal::CaptureStderr();
    host::rvf::startReader(host::rvf::Reader::NeverSignals);
    std::string frame = "stalled frame";
    auto t0 = Clock::now();
    Producer producer(&frame[0], static_cast<long>(frame.size()));
    ASSERT_TRUE(host::rvf::waitForBuffersRead(1, 10000));
    std::this_thread::sleep_for(milliseconds(1000));
    ASSERT_FALSE(producer.done());
    pthread_kill(producer.native(), SIGALRM);
    for (int i = 0; i < 100 && !logged("ignore signal", "DLNA"); ++i) std::this_thread::sleep_for(milliseconds(50));
    EXPECT_TRUE(logged("ignore signal", "DLNA")) << "the wait went on after the signal";
    EXPECT_FALSE(producer.done());
    producer.join();
    auto elapsed = Clock::now() - t0;
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(producer.result(), 1);
    EXPECT_GE(elapsed, milliseconds(29900));
    EXPECT_LT(elapsed, std::chrono::seconds(90));
    ASSERT_EQ(rvftest::eventIds(), std::vector<int>{95});
    EXPECT_FALSE(rvftest::events()[0].hasValue);
    EXPECT_EQ(rvftest::events()[0].length, 0);
    EXPECT_TRUE(logged("time out 222", "DLNA"));
    EXPECT_FALSE(logged("time out 111", "DLNA"));
    // The deadline passed: the wait ended with ETIMEDOUT, logged in red and
    // on standard error.
    auto lines = host::logLinesContaining("EVT_RVF_ML_APP_CLOSE call..." + std::to_string(ETIMEDOUT));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].priority, 6);
    EXPECT_NE(err.find("[DLNA      ] "), std::string::npos) << err;
    EXPECT_NE(err.find("EVT_RVF_ML_APP_CLOSE call..." + std::to_string(ETIMEDOUT)), std::string::npos) << err;
    EXPECT_EQ(host::rvf::buffersRead(), std::vector<std::string>{frame});
}

TEST_F(Stream, TerminateWakesABlockedProducerAtOnce) {
    host::rvf::startReader(host::rvf::Reader::NeverSignals);
    std::string frame = "frame the phone never answers";
    Producer producer(&frame[0], static_cast<long>(frame.size()));
    ASSERT_TRUE(host::rvf::waitForBuffersRead(1, 10000));
    std::this_thread::sleep_for(milliseconds(200));
    ASSERT_FALSE(producer.done());
    auto t0 = Clock::now();
    EXPECT_EQ(DlnaRVFTerminate(), 1);
    producer.join();
    EXPECT_LT(Clock::now() - t0, kPrompt);
    EXPECT_EQ(producer.result(), 1);
    EXPECT_TRUE(rvftest::events().empty()) << "a terminate is no stall";
    EXPECT_FALSE(logged("time out 222", "DLNA"));
}

TEST_F(Stream, BufferWhileStoppedReturnsAtOnceWithoutHandover) {
    DlnaRVFTerminate();
    host::clearJournal();
    char frame[] = "late frame";
    EXPECT_EQ(DlanRVFStreamBufferReady(frame, sizeof frame), 1);
    EXPECT_TRUE(host::journalEntries().empty());
}

TEST_F(Stream, BufferWhileTheStreamIsPausedReturnsAtOnceWithoutHandover) {
    CDSRVF_Sysfunc_set_Streaming_stop_status(true);
    host::clearJournal();
    char frame[] = "paused frame";
    auto t0 = Clock::now();
    EXPECT_EQ(DlanRVFStreamBufferReady(frame, sizeof frame), 1);
    EXPECT_LT(Clock::now() - t0, kPrompt);
    EXPECT_EQ(host::journalEntries(), Calls{"CDSRVF_Sysfunc_get_Streaming_stop_status()"});
}

// --- User-start handshake ---------------------------------------------------------------

// DlnaRVFWaitingUserStartEvent on a thread of its own.
class StartWaiter {
public:
    StartWaiter() {
        m_thread = std::thread([this] {
            unsigned int r = 0;
            m_rc = DlnaRVFWaitingUserStartEvent(&r);
            m_result = r;
            m_done = true;
        });
    }
    ~StartWaiter() {
        if (m_thread.joinable()) m_thread.join();
    }
    void join() { m_thread.join(); }
    bool done() const { return m_done; }
    int rc() const { return m_rc; }
    unsigned int result() const { return m_result; }

private:
    std::thread m_thread;
    std::atomic<bool> m_done{false};
    int m_rc = 0;
    unsigned int m_result = 0;
};

TEST_F(Stream, WaiterReportsStartWhenTheUserStarts) {
    StartWaiter waiter;
    ASSERT_TRUE(host::rvf::waitForEventFlagWaiters(1, 10000));
    EXPECT_FALSE(waiter.done());
    EXPECT_EQ(DlnaRVFSendUserStartEvent(1), 0);
    waiter.join();
    EXPECT_EQ(waiter.rc(), 0);
    EXPECT_EQ(waiter.result(), 1u);
    EXPECT_EQ(host::rvf::eventFlags(), 0u) << "the answer is consumed";
    EXPECT_EQ(host::journalEntries(),
              (Calls{"RVFAppReceiveEventFlag(6)", "RVFAppSetEventFlag(2)", "RVFAppClearEventFlag(2)"}));
}

TEST_F(Stream, WaiterReportsCancelWhenTheUserCancels) {
    StartWaiter waiter;
    ASSERT_TRUE(host::rvf::waitForEventFlagWaiters(1, 10000));
    EXPECT_EQ(DlnaRVFSendUserStartEvent(0), 0);
    waiter.join();
    EXPECT_EQ(waiter.rc(), 0);
    EXPECT_EQ(waiter.result(), 2u);
    EXPECT_EQ(host::journalEntries("RVFAppSetEventFlag"), Calls{"RVFAppSetEventFlag(4)"});
}

TEST_F(Stream, BothStartAndCancelPresentTheWaiterReportsStart) {
    EXPECT_EQ(DlnaRVFSendUserStartEvent(0), 0);
    EXPECT_EQ(DlnaRVFSendUserStartEvent(7), 0);
    unsigned int result = 0;
    EXPECT_EQ(DlnaRVFWaitingUserStartEvent(&result), 0);
    EXPECT_EQ(result, 1u);
    EXPECT_EQ(host::journalEntries("RVFAppClearEventFlag"), Calls{"RVFAppClearEventFlag(6)"});
    EXPECT_EQ(host::rvf::eventFlags(), 0u);
}

TEST_F(Stream, AnAnswerWithoutEitherBitIsAFailure) {
    host::scriptResult("RVFAppReceiveEventFlag.bits", 1);
    unsigned int result = 0;
    EXPECT_EQ(DlnaRVFWaitingUserStartEvent(&result), -1);
    EXPECT_TRUE(host::journalEntries("RVFAppClearEventFlag").empty());
}

TEST_F(Stream, FailedReceiveOrClearIsReportedAsFailure) {
    unsigned int result = 0;
    host::scriptResult("RVFAppReceiveEventFlag", 0);
    EXPECT_EQ(DlnaRVFWaitingUserStartEvent(&result), -1);
    EXPECT_TRUE(logged("RVFAppReceiveEventFlag error", "DLNA"));
    DlnaRVFSendUserStartEvent(1);
    host::scriptResult("RVFAppClearEventFlag", 0);
    EXPECT_EQ(DlnaRVFWaitingUserStartEvent(&result), -1);
    EXPECT_TRUE(logged("RVFAppClearEventFlag error", "DLNA"));
}

TEST_F(Stream, AnswerThatCannotBeRaisedIsAFailure) {
    host::scriptResult("RVFAppSetEventFlag", 0);
    EXPECT_EQ(DlnaRVFSendUserStartEvent(1), -1);
    EXPECT_TRUE(logged("RVFAppSetEventFlag error", "DLNA"));
    EXPECT_EQ(host::rvf::eventFlags(), 0u);
}

TEST_F(Stream, HandshakeWithoutARunningServiceFailsAtOnce) {
    DlnaRVFTerminate();
    unsigned int result = 0;
    EXPECT_EQ(DlnaRVFSendUserStartEvent(1), -1);
    auto t0 = Clock::now();
    EXPECT_EQ(DlnaRVFWaitingUserStartEvent(&result), -1);
    EXPECT_LT(Clock::now() - t0, kPrompt);
}

TEST_F(Stream, TerminateWakesAWaiterForTheUserStart) {
    StartWaiter waiter;
    ASSERT_TRUE(host::rvf::waitForEventFlagWaiters(1, 10000));
    auto t0 = Clock::now();
    DlnaRVFTerminate();
    waiter.join();
    EXPECT_LT(Clock::now() - t0, kPrompt);
    // Every flag was raised to wake it: it sees a start, or finds the flags
    // already released by the terminate; never a cancel.
    EXPECT_TRUE((waiter.rc() == 0 && waiter.result() == 1u) || waiter.rc() == -1)
        << waiter.rc() << " " << waiter.result();
}

}  // namespace
