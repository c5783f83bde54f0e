// Word sizes, 64-bit time and the variadic log frame: what the camera's
// 32-bit ARM build must get right and a 64-bit build machine never notices.
#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/utsname.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <string>
#include <thread>
#include <type_traits>

#include "Dlna/DlnaAbi.h"
#include "Dlna/DlnaFrame.h"
#include "Dlna/DlnaLog.h"
#include "SP/osal/SPGenericThread.h"
#include "support/test_support.h"

namespace {

class Abi : public testing::Test {
protected:
    void SetUp() override { host::reset(); }
};

int64_t systemClockMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

TEST_F(Abi, MillisecondClockIsSixtyFourBitAndFarBeyondThirtyOneBits) {
    static_assert(std::is_same<decltype(SPGenericTime::getMilliseconds()), int64_t>::value,
                  "milliseconds are 64-bit");
    const int64_t ms = SPGenericTime::getMilliseconds();
    // Seconds since 1970 times 1000 passed 2^31 in January 1970 and 2^40 in
    // 2004: a product formed in a 32-bit time_t or long would wrap.
    EXPECT_GT(ms, int64_t{1} << 40);
    EXPECT_NEAR(static_cast<double>(ms), static_cast<double>(systemClockMs()), 5000.0);
}

TEST_F(Abi, MicrosecondClockAgreesWithTheMillisecondClock) {
    static_assert(std::is_same<decltype(SPGenericTime::getMicroseconds()), int64_t>::value,
                  "microseconds are 64-bit");
    const int64_t ms = SPGenericTime::getMilliseconds();
    const int64_t us = SPGenericTime::getMicroseconds();
    EXPECT_GT(us, int64_t{1} << 50);
    EXPECT_GE(us / 1000, ms);
    EXPECT_LT(us / 1000 - ms, 5000);
}

TEST_F(Abi, LogFramePassesLongAndSixtyFourBitArgumentsInOrder) {
    // On ARM a 64-bit variadic argument sits on an even register pair; a
    // mismatch between format and argument shows up as garbage after it.
    DLNA_LOG_I(DLNA_OSAL_TAG, "%ld|%lld|%ld|%d|%ld", LONG_MIN, static_cast<long long>(1) << 40, LONG_MAX,
               -7, -1L);
    const std::string expected = std::to_string(LONG_MIN) + "|1099511627776|" + std::to_string(LONG_MAX) +
                                 "|-7|-1";
    const auto msgs = testsupport::messages(DLNA_OSAL_TAG);
    ASSERT_EQ(msgs.size(), 1u);
    EXPECT_EQ(msgs[0], expected);
}

TEST_F(Abi, ThreadStartLineCarriesTheThreadIdAsLongAndTheTimeInFull) {
    // The line is written by the thread it names, as a transfer or server
    // thread writes it on the camera.
    std::string expectedId;
    std::thread worker([&expectedId] {
        expectedId = std::to_string(static_cast<long>(pthread_self()));
        class Named : public SPGenericThreadEx {
        protected:
            void entry() override {}
        } named;
        named.print_start_msg(nullptr);
    });
    worker.join();
    const auto msgs = testsupport::messages(DLNA_OSAL_TAG);
    ASSERT_EQ(msgs.size(), 1u);
    const std::string prefix = "Thread " + expectedId + "  has started at ";
    ASSERT_EQ(msgs[0].rfind(prefix, 0), 0u) << msgs[0];
    const std::string rest = msgs[0].substr(prefix.size());
    ASSERT_GT(rest.size(), 5u);
    EXPECT_EQ(rest.substr(rest.size() - 5), " msec");
    const long long at = std::stoll(rest);
    EXPECT_GT(at, 1LL << 40) << "time printed whole, not cut to 32 bits";
    EXPECT_NEAR(static_cast<double>(at), static_cast<double>(systemClockMs()), 5000.0);
}

TEST_F(Abi, PointerTravelsThroughAnIntegerSlotAndTheCallback) {
    static_assert(sizeof(intptr_t) == sizeof(void*), "an integer slot holds a pointer");
    static std::atomic<void*> received{nullptr};
    static std::atomic<intptr_t> receivedLength{0};
    DlnaDMSSetCallback([](ZEB_CALLBACK_EVENT, void* value, intptr_t length) {
        received.store(value);
        receivedLength.store(length);
    });
    int payload = 42;
    char text[] = "second parameter";
    const intptr_t slot = reinterpret_cast<intptr_t>(&payload);
    // Some events carry a second pointer (a text) in the length slot.
    EXPECT_EQ(DmsSendEventToUI(4, reinterpret_cast<void*>(slot), reinterpret_cast<intptr_t>(text)), 1);
    DlnaDMSSetCallback(nullptr);
    EXPECT_EQ(received.load(), &payload);
    EXPECT_EQ(*static_cast<int*>(received.load()), 42);
    EXPECT_STREQ(reinterpret_cast<const char*>(receivedLength.load()), "second parameter");
}

#if defined(CAMWIFI_ABI_32BIT)
TEST_F(Abi, CameraBuildRunsThirtyTwoBitCode) {
    EXPECT_EQ(sizeof(void*), 4u);
    EXPECT_EQ(sizeof(long), 4u);
    EXPECT_EQ(sizeof(intptr_t), sizeof(int));
    EXPECT_EQ(sizeof(ZEB_UI_CALLBACK), 4u);
#if defined(__arm__)
    // The kernel (or qemu-arm standing in for it) reports an ARM machine.
    struct utsname u;
    ASSERT_EQ(uname(&u), 0);
    EXPECT_EQ(std::string(u.machine).rfind("arm", 0), 0u) << u.machine;
#endif
}
#else
TEST_F(Abi, CameraBuildRunsThirtyTwoBitCode) {
    GTEST_SKIP() << "64-bit build: the 32-bit checks run in the armhf build (scripts/test-arm.sh)";
}
#endif

}  // namespace
