// Recursive mutex, semaphores, auto-reset events and the atomic-operation
// mutex, between real threads.
#include <gtest/gtest.h>

#include <pthread.h>
#include <semaphore.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <string>
#include <thread>
#include <vector>

#include "SP/osal/SPAtomicOp.h"
#include "SP/osal/SPGenericEvent.h"
#include "SP/osal/SPGenericMutex.h"
#include "osal_test_util.h"
#include "support/test_support.h"

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using namespace osaltest;

namespace {

// The semaphore's deadline is taken from the millisecond clock (truncated), so
// a wait of N ms may end up to 1 ms before N ms have passed on a finer clock.
constexpr int64_t kClockSlackMs = 1;

class Sync : public testing::Test {
protected:
    void SetUp() override { host::reset(); }
};

// --- SPGenericMutex ------------------------------------------------------------

TEST_F(Sync, MutexLockedThreeTimesGoesToAnotherThreadOnlyAfterThreeUnlocks) {
    SPGenericMutex m;
    m.lock();
    m.lock();
    m.lock();
    EXPECT_TRUE(pthread_equal(m.getOwner(), pthread_self()));
    EXPECT_EQ(m.getCount(), 3);

    std::atomic<bool> acquired{false};
    std::atomic<bool> ownerWasOther{false};
    std::atomic<bool> release{false};
    std::thread other([&] {
        m.lock();
        ownerWasOther = pthread_equal(m.getOwner(), pthread_self()) && m.getCount() == 1;
        acquired = true;
        waitFor(release);
        m.unlock();
    });
    sleepMs(50);
    EXPECT_FALSE(acquired.load());
    m.unlock();
    sleepMs(50);
    EXPECT_FALSE(acquired.load()) << "two holds left";
    EXPECT_EQ(m.getCount(), 2);
    m.unlock();
    sleepMs(50);
    EXPECT_FALSE(acquired.load()) << "one hold left";
    EXPECT_EQ(m.getCount(), 1);
    m.unlock();
    EXPECT_TRUE(waitFor(acquired)) << "the third unlock frees it";
    EXPECT_TRUE(ownerWasOther.load());
    release = true;
    other.join();
    EXPECT_EQ(m.getOwner(), pthread_t{0});
    EXPECT_EQ(m.getCount(), 0);
    EXPECT_TRUE(testsupport::messages().empty());
}

TEST_F(Sync, MutexThirdUnlockResetsTheOwner) {
    SPGenericMutex m;
    for (int i = 0; i < 3; ++i) m.lock();
    m.unlock();
    m.unlock();
    EXPECT_TRUE(pthread_equal(m.getOwner(), pthread_self()));
    m.unlock();
    EXPECT_EQ(m.getOwner(), pthread_t{0});
    EXPECT_EQ(m.getCount(), 0);
    // Free for real: another thread takes it without waiting.
    std::atomic<int> got{-1};
    std::thread([&] {
        got = m.trylock();
        m.unlock();
    }).join();
    EXPECT_EQ(got.load(), 1);
}

TEST_F(Sync, MutexUnlockFromANonOwnerChangesNothingAndLogsNothing) {
    SPGenericMutex m;
    m.lock();
    std::atomic<int> otherTry{-1};
    std::thread([&] {
        m.unlock();
        m.unlock();
        otherTry = m.trylock();
    }).join();
    EXPECT_TRUE(pthread_equal(m.getOwner(), pthread_self()));
    EXPECT_EQ(m.getCount(), 1);
    EXPECT_EQ(otherTry.load(), 0) << "still held by this thread";
    EXPECT_TRUE(testsupport::messages().empty());
    m.unlock();
    EXPECT_EQ(m.getOwner(), pthread_t{0});
}

TEST_F(Sync, MutexTrylockOnAMutexHeldByAnotherThreadReturnsZeroSilently) {
    SPGenericMutex m;
    std::atomic<bool> held{false};
    std::atomic<bool> release{false};
    std::thread holder([&] {
        m.lock();
        held = true;
        waitFor(release);
        m.unlock();
    });
    ASSERT_TRUE(waitFor(held));
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(m.trylock(), 0);
    EXPECT_LT(elapsedMs(t0), 100) << "trylock never blocks";
    EXPECT_EQ(m.getCount(), 1);
    release = true;
    holder.join();
    EXPECT_TRUE(testsupport::messages().empty());
}

TEST_F(Sync, MutexTrylockByTheOwnerCountsUp) {
    SPGenericMutex m;
    EXPECT_EQ(m.trylock(), 1);
    EXPECT_EQ(m.trylock(), 1);
    m.lock();
    EXPECT_EQ(m.getCount(), 3);
    m.unlock();
    m.unlock();
    m.unlock();
    EXPECT_EQ(m.getOwner(), pthread_t{0});
    EXPECT_TRUE(testsupport::messages().empty());
}

TEST_F(Sync, MutexKeepsCriticalSectionsApartUnderContention) {
    SPGenericMutex m;
    long counter = 0;  // guarded by m only: a data race here would show under TSan
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                m.lock();
                m.lock();
                ++counter;
                m.unlock();
                m.unlock();
            }
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(counter, 8000);
    EXPECT_EQ(m.getCount(), 0);
    EXPECT_TRUE(testsupport::messages().empty());
}

// --- SPGenericEvent --------------------------------------------------------------

TEST_F(Sync, EventPostedTwiceIsTakenOnceThenTheSecondWaitTimesOut) {
    SPGenericEvent e(false);
    e.post();
    e.post();
    EXPECT_EQ(e.getValue(), 1) << "an event never counts above one";
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(e.wait(100), 1);
    EXPECT_LT(elapsedMs(t0), 50) << "the first wait returns at once";
    t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(e.wait(100), 0);
    const int64_t took = elapsedMs(t0);
    EXPECT_GE(took, 100 - kClockSlackMs);
    EXPECT_LT(took, 1500);
    EXPECT_TRUE(testsupport::messages().empty());
}

TEST_F(Sync, TimedWaitOfZeroOnAnUnsignalledEventReturnsZeroWithoutBlocking) {
    SPGenericEvent e(false);
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(e.wait(0), 0);
    EXPECT_LT(elapsedMs(t0), 50);
    e.post();
    EXPECT_EQ(e.wait(0), 1) << "a due deadline still takes a pending signal";
    EXPECT_TRUE(testsupport::messages().empty());
}

TEST_F(Sync, EventCreatedSignalledIsConsumedByOneWait) {
    SPGenericEvent e(true);
    EXPECT_EQ(e.getValue(), 1);
    EXPECT_EQ(e.trywait(), 1);
    EXPECT_EQ(e.trywait(), 0);
    EXPECT_EQ(e.getValue(), 0);
    EXPECT_TRUE(testsupport::messages().empty()) << "an empty trywait is not an error";
}

TEST_F(Sync, EventPostWakesAWaiterOnAnotherThread) {
    SPGenericEvent e(false);
    std::atomic<int> result{-1};
    std::atomic<bool> waiting{false};
    std::thread waiter([&] {
        waiting = true;
        result = e.wait(5000);
    });
    ASSERT_TRUE(waitFor(waiting));
    sleepMs(50);
    const auto t0 = std::chrono::steady_clock::now();
    e.post();
    waiter.join();
    EXPECT_EQ(result.load(), 1);
    EXPECT_LT(elapsedMs(t0), 1000);
    EXPECT_EQ(e.getValue(), 0) << "the wait consumed the signal";
}

TEST_F(Sync, ConcurrentEventPostsNeverCountAboveOne) {
    SPGenericEvent e(false);
    std::atomic<bool> stop{false};
    std::atomic<int> highest{0};
    std::thread watcher([&] {
        while (!stop.load()) {
            const int v = e.getValue();
            if (v > highest.load()) highest = v;
        }
    });
    std::vector<std::thread> posters;
    for (int t = 0; t < 4; ++t)
        posters.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                e.post();
                if (i % 3 == 0) e.trywait();
            }
        });
    for (auto& t : posters) t.join();
    stop = true;
    watcher.join();
    EXPECT_LE(highest.load(), 1);
    e.post();
    EXPECT_EQ(e.getValue(), 1);
    EXPECT_EQ(testsupport::countLogged("myAssert", "DLNA_OSAL"), 0);
}

TEST_F(Sync, TimedWaitInterruptedBySignalsEndsAtTheFirstDeadline) {
    InterruptingSignal sig;
    SPGenericEvent e(false);
    std::atomic<pthread_t> waiterId{0};
    std::atomic<bool> started{false};
    std::atomic<int> result{-1};
    std::atomic<int64_t> took{0};
    std::thread waiter([&] {
        waiterId = pthread_self();
        const auto t0 = std::chrono::steady_clock::now();
        started = true;
        result = e.wait(900);
        took = elapsedMs(t0);
    });
    ASSERT_TRUE(waitFor(started));
    // Two interruptions: a wait that restarted its full period after each
    // would end near 300 + 300 + 900 = 1500 ms instead of 900 ms.
    sleepMs(300);
    pthread_kill(waiterId.load(), SIGUSR1);
    sleepMs(300);
    pthread_kill(waiterId.load(), SIGUSR1);
    waiter.join();
    EXPECT_EQ(gSignalsSeen.load(), 2);
    EXPECT_EQ(result.load(), 0);
    EXPECT_GE(took.load(), 900 - kClockSlackMs);
    EXPECT_LT(took.load(), 1350);
    EXPECT_TRUE(testsupport::messages().empty()) << "an interruption is not an error";
}

TEST_F(Sync, TimedWaitInterruptedBySignalStillTakesALaterPost) {
    InterruptingSignal sig;
    SPGenericEvent e(false);
    std::atomic<pthread_t> waiterId{0};
    std::atomic<bool> started{false};
    std::atomic<int> result{-1};
    std::thread waiter([&] {
        waiterId = pthread_self();
        started = true;
        result = e.wait(3000);
    });
    ASSERT_TRUE(waitFor(started));
    sleepMs(100);
    pthread_kill(waiterId.load(), SIGUSR1);
    sleepMs(100);
    e.post();
    waiter.join();
    EXPECT_EQ(gSignalsSeen.load(), 1);
    EXPECT_EQ(result.load(), 1);
}

// --- SPGenericSemaphore ------------------------------------------------------------

TEST_F(Sync, SemaphoreCountsEveryPost) {
    SPGenericSemaphore s(2);
    s.post();
    s.post();
    EXPECT_EQ(s.getValue(), 4);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(s.trywait(), 1) << i;
    EXPECT_EQ(s.trywait(), 0);
    EXPECT_EQ(s.wait(20), 0);
    s.post();
    EXPECT_EQ(s.wait(), 0) << "the system call's result";
    EXPECT_EQ(s.getValue(), 0);
    EXPECT_TRUE(testsupport::messages().empty());
}

TEST_F(Sync, SemaphoreWaitBlocksUntilAnotherThreadPosts) {
    SPGenericSemaphore s(0);
    std::atomic<bool> done{false};
    std::thread waiter([&] {
        s.wait();
        done = true;
    });
    sleepMs(100);
    EXPECT_FALSE(done.load());
    s.post();
    EXPECT_TRUE(waitFor(done));
    waiter.join();
}

TEST_F(Sync, SemaphoreRefusedBySystemLogsMyAssertAndFailsEveryWait) {
    SPGenericSemaphore s(-1);
    EXPECT_EQ(testsupport::countLogged("myAssert", "DLNA_OSAL"), 1);
    EXPECT_EQ(s.trywait(), 0);
    EXPECT_EQ(testsupport::countLogged("myAssert", "DLNA_OSAL"), 2) << "a failure other than EAGAIN";
    CaptureStderr();
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(s.wait(50), 0);
    const std::string err = GetCapturedStderr();
    EXPECT_LT(elapsedMs(t0), 40) << "fails at once, does not wait for the time-out";
    EXPECT_NE(err.find("sem_timedwait returns -1, errno=22(Invalid argument)"), std::string::npos) << err;
    EXPECT_EQ(testsupport::countLogged("myAssert", "DLNA_OSAL"), 3);
    EXPECT_EQ(s.wait(), -1);
    s.post();
    EXPECT_EQ(testsupport::countLogged("myAssert", "DLNA_OSAL"), 4);
}

TEST_F(Sync, SemaphorePostAtTheHighestCountLogsMyAssert) {
    SPGenericSemaphore s(SEM_VALUE_MAX);
    EXPECT_TRUE(testsupport::messages().empty());
    s.post();
    EXPECT_EQ(testsupport::countLogged("myAssert", "DLNA_OSAL"), 1);
    EXPECT_EQ(s.getValue(), SEM_VALUE_MAX);
}

// --- Atomic-operation mutex ----------------------------------------------------------

TEST_F(Sync, AtomicMutexIsCreatedOnceAndServesEveryCaller) {
    EXPECT_EQ(SPInitAtomicOp(), 1);
    SPGenericMutex* m = SPGetAtomicMutex();
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(SPInitAtomicOp(), 1);
    EXPECT_EQ(SPGetAtomicMutex(), m) << "a second init keeps the same mutex";
    std::vector<SPGenericMutex*> seen(4, nullptr);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back([&seen, i] { seen[i] = SPGetAtomicMutex(); });
    for (auto& t : threads) t.join();
    for (auto* p : seen) EXPECT_EQ(p, m);
    m->lock();
    m->lock();
    EXPECT_EQ(m->getCount(), 2);
    m->unlock();
    m->unlock();
    EXPECT_TRUE(testsupport::messages().empty());
}

TEST_F(Sync, AtomicMutexFirstUseFromRacingThreadsMakesOneMutex) {
    // In a fresh process so that the first use is really raced.
    EXPECT_EXIT(
        {
            std::vector<SPGenericMutex*> seen(4, nullptr);
            std::vector<std::thread> threads;
            for (int i = 0; i < 4; ++i) threads.emplace_back([&seen, i] { seen[i] = SPGetAtomicMutex(); });
            for (auto& t : threads) t.join();
            bool same = seen[0] != nullptr;
            for (auto* p : seen) same = same && p == seen[0];
            _exit(same ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(Sync, AtomicMutexReleaseLeavesThePointerAndIsNotRepeated) {
    // Released only at final shutdown, so in a process of its own.
    EXPECT_EXIT(
        {
            SPGenericMutex* m = SPGetAtomicMutex();
            SPReleaseAtomicOp();
            // The pointer is deliberately kept (compared, never used).
            const bool kept = SPGetAtomicMutex() == m;
            SPReleaseAtomicOp();  // a second release must not free it again
            _exit(kept ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
