// The user-start handshake both the single-phone push and the smartphone link
// wait on: one semaphore and the answer its post carried.
#include <gtest/gtest.h>

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <thread>

#include "Dlna/DlnaHandshake.h"

namespace {

constexpr int kNoAnswer = 65535;

TEST(Handshake, WaitWithoutASemaphoreFailsWithEinval) {
    DlnaHandshake h(kNoAnswer);
    int answer = 7;
    errno = 0;
    EXPECT_EQ(h.wait(&answer), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(answer, 7) << "a failed wait stores nothing";
    EXPECT_FALSE(h.post(1));
}

TEST(Handshake, AnswerPostedBeforeTheWaitIsKept) {
    DlnaHandshake h(kNoAnswer);
    ASSERT_TRUE(h.create());
    ASSERT_TRUE(h.post(1));
    int answer = 0;
    EXPECT_EQ(h.wait(&answer), 0);
    EXPECT_EQ(answer, 1);
}

TEST(Handshake, WaitThatFindsNothingPostedForgetsTheLastAnswer) {
    DlnaHandshake h(kNoAnswer);
    ASSERT_TRUE(h.create());
    ASSERT_TRUE(h.post(2));
    int answer = 0;
    ASSERT_EQ(h.wait(&answer), 0);
    ASSERT_EQ(answer, 2);

    auto waiter = std::async(std::launch::async, [&] {
        int a = 0;
        const int rc = h.wait(&a);
        return rc == 0 ? a : -1;
    });
    ASSERT_EQ(waiter.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    ASSERT_TRUE(h.post());  // a wake-up that carries no answer
    EXPECT_EQ(waiter.get(), kNoAnswer);
}

TEST(Handshake, AnswerPostedJustAsTheWaitStartsIsNeverLost) {
    // The check for a pending post and the reset of the answer are one step
    // with post: whichever comes first, the waiter gets the answer.
    DlnaHandshake h(kNoAnswer);
    ASSERT_TRUE(h.create());
    // Both sides start together and each lets a different number of turns
    // pass first, so the rounds cover post-before-wait, post-during-wait and
    // post-after-wait alike.
    for (int round = 0; round < 1000; ++round) {
        std::atomic<bool> go{false};
        std::thread poster([&] {
            while (!go.load()) std::this_thread::yield();
            for (int i = 0; i < (round * 7) % 40; ++i) std::this_thread::yield();
            h.post(1);
        });
        go.store(true);
        for (int i = 0; i < round % 40; ++i) std::this_thread::yield();
        int answer = 0;
        ASSERT_EQ(h.wait(&answer), 0);
        poster.join();
        ASSERT_EQ(answer, 1) << "round " << round;
    }
}

void ignoreSignal(int) {}

TEST(Handshake, SignalDoesNotEndTheWait) {
    struct sigaction sa {};
    struct sigaction old {};
    sa.sa_handler = ignoreSignal;  // no SA_RESTART: sem_wait returns EINTR
    sigemptyset(&sa.sa_mask);
    ASSERT_EQ(sigaction(SIGUSR1, &sa, &old), 0);

    DlnaHandshake h(kNoAnswer);
    ASSERT_TRUE(h.create());
    std::atomic<pthread_t> waiterThread{};
    std::atomic<bool> started{false};
    auto waiter = std::async(std::launch::async, [&] {
        waiterThread.store(pthread_self());
        started.store(true);
        int a = 0;
        const int rc = h.wait(&a);
        return rc == 0 ? a : -1;
    });
    for (int i = 0; i < 200 && !started.load(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ASSERT_TRUE(started.load());
    for (int i = 0; i < 5; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        pthread_kill(waiterThread.load(), SIGUSR1);
    }
    EXPECT_EQ(waiter.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout)
        << "the signals did not end the wait";
    ASSERT_TRUE(h.post(2));
    EXPECT_EQ(waiter.get(), 2);
    sigaction(SIGUSR1, &old, nullptr);
}

TEST(Handshake, DestroyWakesTheWaiterWithNoAnswerAndLaterWaitsFail) {
    DlnaHandshake h(kNoAnswer);
    ASSERT_TRUE(h.create());
    auto waiter = std::async(std::launch::async, [&] {
        int a = 0;
        const int rc = h.wait(&a);
        return rc == 0 ? a : -1;
    });
    ASSERT_EQ(waiter.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    h.destroy();
    EXPECT_EQ(waiter.get(), kNoAnswer);
    int answer = 0;
    EXPECT_EQ(h.wait(&answer), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_FALSE(h.post(1));
}

}  // namespace
