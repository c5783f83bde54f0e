// Thread objects, the per-thread registry, sleep and the wall clock.
#include <gtest/gtest.h>

#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "SP/osal/SPGenericThread.h"
#include "support/test_support.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

// A thread object whose body is a function given by the test.
class FnThread : public SPGenericThreadEx {
public:
    explicit FnThread(std::function<void(FnThread*)> body) : m_body(std::move(body)) {}
    ~FnThread() override { join(); }
    std::atomic<bool> ran{false};
    std::atomic<SPGenericThread*> seenCurrent{nullptr};
    std::atomic<bool> handleMatched{false};

protected:
    void entry() override {
        seenCurrent.store(current_thread());
        handleMatched.store(pthread_equal(handle(), pthread_self()) != 0);
        ran.store(true);
        if (m_body) m_body(this);
    }

private:
    std::function<void(FnThread*)> m_body;
};

int64_t elapsedMs(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - since).count();
}

class Threads : public testing::Test {
protected:
    void SetUp() override { host::reset(); }
};

TEST_F(Threads, SleepZeroReturnsAtOnce) {
    auto t0 = std::chrono::steady_clock::now();
    SPGenericThread::sleep(0);
    EXPECT_LT(elapsedMs(t0), 5);
}

TEST_F(Threads, SleepOneWaitsForTheMillisecondClockToAdvance) {
    const int64_t before = SPGenericTime::getMilliseconds();
    SPGenericThread::sleep(1);
    EXPECT_GE(SPGenericTime::getMilliseconds() - before, 1);
}

TEST_F(Threads, SleepLastsAtLeastTheGivenTime) {
    const int64_t before = SPGenericTime::getMilliseconds();
    SPGenericThread::sleep(120);
    const int64_t took = SPGenericTime::getMilliseconds() - before;
    EXPECT_GE(took, 120);
    EXPECT_LT(took, 2000);
}

TEST_F(Threads, MillisecondsAndMicrosecondsFollowTheWallClock) {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    const int64_t ref = static_cast<int64_t>(tv.tv_sec) * 1000 + tv.tv_usec / 1000;
    const int64_t ms = SPGenericTime::getMilliseconds();
    const int64_t us = SPGenericTime::getMicroseconds();
    EXPECT_GE(ms, ref);
    EXPECT_LT(ms - ref, 1000);
    EXPECT_GE(us / 1000, ms);
    EXPECT_LT(us / 1000 - ms, 1000);
    EXPECT_GT(ms, int64_t{1600000000} * 1000) << "64-bit, not truncated";
}

TEST_F(Threads, StartedBodyRunsOnItsOwnThreadAndFindsItself) {
    FnThread t(nullptr);
    t.start();
    t.join();
    EXPECT_TRUE(t.ran.load());
    EXPECT_EQ(t.seenCurrent.load(), &t);
    EXPECT_TRUE(t.handleMatched.load());
    EXPECT_TRUE(t.joined());
    EXPECT_TRUE(testsupport::messages().empty()) << "no myAssert on a normal start";
}

TEST_F(Threads, CurrentThreadOnTheStartingThreadIsNull) {
    FnThread t(nullptr);
    t.start();
    EXPECT_EQ(SPGenericThread::current_thread(), nullptr);
    t.join();
}

TEST_F(Threads, DestroyingAStartedThreadWaitsForItsBody) {
    static std::atomic<bool> bodyDone{false};
    static std::atomic<bool> started{false};
    bodyDone = false;
    started = false;
    // Destroyed through the base: the base destructor does the join. The body
    // touches no member of its object, which is already being torn down.
    struct Slow : SPGenericThreadEx {
        void entry() override {
            started.store(true);
            SPGenericThread::sleep(200);
            bodyDone.store(true);
        }
    };
    auto t0 = std::chrono::steady_clock::now();
    auto* t = new Slow;
    t->start();
    while (!started.load()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    delete static_cast<SPGenericThread*>(t);
    EXPECT_TRUE(bodyDone.load());
    // The body's sleep counts truncated wall-clock milliseconds.
    EXPECT_GE(elapsedMs(t0), 190);
}

TEST_F(Threads, JoinFromTheOwnBodyReturnsAtOnceAndDestructionDoesNotJoinAgain) {
    static std::atomic<bool> selfJoinReturned{false};
    static std::atomic<bool> release{false};
    static std::atomic<bool> finished{false};
    selfJoinReturned = false;
    release = false;
    finished = false;
    struct SelfJoin : SPGenericThreadEx {
        void entry() override {
            join();
            selfJoinReturned.store(true);
            // From here on the body touches no member: its object may go.
            while (!release.load()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
            finished.store(true);
        }
    };
    auto* t = new SelfJoin;
    t->start();
    while (!selfJoinReturned.load()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_TRUE(t->joined());
    auto t0 = std::chrono::steady_clock::now();
    delete t;  // must not wait for the still-running body
    EXPECT_LT(elapsedMs(t0), 100);
    EXPECT_FALSE(finished.load());
    release.store(true);
    for (int i = 0; i < 2000 && !finished.load(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_TRUE(finished.load());
}

TEST_F(Threads, JoiningTwiceIsHarmless) {
    FnThread t(nullptr);
    t.start();
    t.join();
    t.join();
    EXPECT_TRUE(t.ran.load());
}

TEST_F(Threads, NeverStartedThreadIsDestroyedWithoutWaiting) {
    auto t0 = std::chrono::steady_clock::now();
    { FnThread t(nullptr); }
    EXPECT_LT(elapsedMs(t0), 100);
}

TEST_F(Threads, DetachedStartRunsTheBodyAndJoinDoesNotWait) {
    static std::atomic<bool> ran{false};
    static std::atomic<bool> release{false};
    ran = false;
    release = false;
    struct Detached : SPGenericThreadEx {
        void entry() override {
            ran.store(true);
            while (!release.load()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    };
    auto* t = new Detached;
    t->start(false);
    EXPECT_FALSE(t->joinable());
    for (int i = 0; i < 2000 && !ran.load(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_TRUE(ran.load());
    auto t0 = std::chrono::steady_clock::now();
    t->join();
    EXPECT_LT(elapsedMs(t0), 100);
    release.store(true);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    delete t;
    EXPECT_TRUE(testsupport::messages().empty());
}

TEST_F(Threads, AttachRunsTheBodyOnTheCallingThreadWhichKeepsTheObject) {
    {
        FnThread t(nullptr);
        t.attach();
        EXPECT_TRUE(t.ran.load());
        EXPECT_EQ(t.seenCurrent.load(), &t);
        EXPECT_TRUE(pthread_equal(t.handle(), pthread_self()));
        EXPECT_EQ(SPGenericThread::current_thread(), &t) << "the caller keeps its thread object after the body";
    }
    EXPECT_EQ(SPGenericThread::current_thread(), nullptr) << "until the object is destroyed";
    EXPECT_TRUE(testsupport::messages().empty());
}

TEST_F(Threads, SecondAttachAfterTheFirstBodyReturnedLogsMyAssertAndDoesNotRun) {
    FnThread first(nullptr);
    FnThread second(nullptr);
    first.attach();
    ASSERT_TRUE(first.ran.load());
    second.attach();
    EXPECT_FALSE(second.ran.load());
    EXPECT_EQ(testsupport::countLogged("myAssert", "DLNA_OSAL"), 1);
    EXPECT_EQ(SPGenericThread::current_thread(), &first);
}

TEST_F(Threads, AttachedObjectDestroyedOnAnotherThreadIsNoLongerTheCallersThreadObject) {
    auto* t = new FnThread(nullptr);
    std::mutex m;
    std::condition_variable cv;
    int stage = 0;
    SPGenericThread* afterBody = nullptr;
    SPGenericThread* afterDelete = reinterpret_cast<SPGenericThread*>(1);
    std::thread caller([&] {
        t->attach();
        afterBody = SPGenericThread::current_thread();
        std::unique_lock<std::mutex> g(m);
        stage = 1;
        cv.notify_all();
        cv.wait_for(g, std::chrono::seconds(10), [&] { return stage == 2; });
        afterDelete = SPGenericThread::current_thread();
    });
    {
        std::unique_lock<std::mutex> g(m);
        ASSERT_TRUE(cv.wait_for(g, std::chrono::seconds(10), [&] { return stage == 1; }));
    }
    EXPECT_EQ(afterBody, t);
    delete t;
    {
        std::lock_guard<std::mutex> g(m);
        stage = 2;
        cv.notify_all();
    }
    caller.join();
    EXPECT_EQ(afterDelete, nullptr) << "a destroyed object is never handed out";
}

TEST_F(Threads, AttachFromAThreadThatHasAThreadObjectLogsMyAssertAndDoesNotRun) {
    FnThread inner(nullptr);
    FnThread outer([&inner](FnThread*) { inner.attach(); });
    outer.start();
    outer.join();
    EXPECT_TRUE(outer.ran.load());
    EXPECT_FALSE(inner.ran.load());
    EXPECT_EQ(testsupport::countLogged("myAssert", "DLNA_OSAL"), 1);
}

TEST_F(Threads, ExitFlagIsSeenByThePollingBody) {
    std::atomic<int> loops{0};
    FnThread t([&loops](FnThread* self) {
        while (!self->exitRequested()) {
            ++loops;
            SPGenericThread::sleep(1);
        }
    });
    t.start();
    SPGenericThread::sleep(20);
    t.requestExit();
    t.join();
    EXPECT_GT(loops.load(), 0);
}

TEST_F(Threads, CurrentErrnoIsTheCallersErrno) {
    errno = EAGAIN;
    EXPECT_EQ(SPGenericThread::current_errno(), EAGAIN);
}

TEST_F(Threads, StartAndExitMessagesGoToStandardOutputAndTheLog) {
    FnThread t(nullptr);
    CaptureStdout();
    t.print_start_msg("SPServerThread\n");
    t.print_exit_msg(nullptr);
    EXPECT_EQ(GetCapturedStdout(), "SPServerThread\n");
    auto msgs = testsupport::messages("DLNA_OSAL");
    ASSERT_EQ(msgs.size(), 2u);
    const std::string id = std::to_string(static_cast<long>(pthread_self()));
    EXPECT_EQ(msgs[0].rfind("Thread " + id + "  has started at ", 0), 0u) << msgs[0];
    EXPECT_EQ(msgs[1].rfind("Thread " + id + "  has finished at ", 0), 0u) << msgs[1];
    EXPECT_EQ(msgs[0].substr(msgs[0].size() - 5), " msec");
    const long long at = std::stoll(msgs[0].substr(msgs[0].find(" at ") + 4));
    EXPECT_NEAR(static_cast<double>(at), static_cast<double>(SPGenericTime::getMilliseconds()), 5000.0);
}

}  // namespace
