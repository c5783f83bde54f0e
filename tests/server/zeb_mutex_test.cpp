// The host stand-in of the DLNA stack's mutexes: real recursive locks,
// journalled by name, failing on demand.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>

#include "support/test_support.h"
#include "zeb_stack.h"

namespace {

using Entries = std::vector<std::string>;

class ZebMutex : public testing::Test {
protected:
    void SetUp() override { host::reset(); }
};

TEST_F(ZebMutex, CreateGivesAHandleAndJournalsTheName) {
    ZEB_MUTEX m = nullptr;
    ASSERT_EQ(ZEBCreateMutex(&m, "TEST_MUTEX"), 0);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(ZEBAcquireMutex(m), 0);
    EXPECT_EQ(ZEBReleaseMutex(m), 0);
    EXPECT_EQ(ZEBDeleteMutex(m), 0);
    EXPECT_EQ(host::journalEntries("ZEB"), (Entries{"ZEBCreateMutex(TEST_MUTEX)", "ZEBAcquireMutex(TEST_MUTEX)",
                                                    "ZEBReleaseMutex(TEST_MUTEX)", "ZEBDeleteMutex(TEST_MUTEX)"}));
}

TEST_F(ZebMutex, OwnerMayTakeItAgainAndOthersWaitUntilTheLastRelease) {
    ZEB_MUTEX m = nullptr;
    ASSERT_EQ(ZEBCreateMutex(&m, "M"), 0);
    ASSERT_EQ(ZEBAcquireMutex(m), 0);
    ASSERT_EQ(ZEBAcquireMutex(m), 0) << "recursive for its owner";

    std::atomic<bool> got{false};
    std::thread other([&] {
        if (ZEBAcquireMutex(m) == 0) {
            got = true;
            ZEBReleaseMutex(m);
        }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(got.load()) << "held twice";
    ASSERT_EQ(ZEBReleaseMutex(m), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(got.load()) << "still held once";
    ASSERT_EQ(ZEBReleaseMutex(m), 0);
    other.join();
    EXPECT_TRUE(got.load());
    EXPECT_EQ(ZEBDeleteMutex(m), 0);
}

TEST_F(ZebMutex, ReleaseByAThreadNotHoldingItFails) {
    ZEB_MUTEX m = nullptr;
    ASSERT_EQ(ZEBCreateMutex(&m, "M"), 0);
    EXPECT_EQ(ZEBReleaseMutex(m), EPERM);
    ASSERT_EQ(ZEBAcquireMutex(m), 0);
    int otherResult = 0;
    std::thread([&] { otherResult = ZEBReleaseMutex(m); }).join();
    EXPECT_EQ(otherResult, EPERM);
    EXPECT_EQ(ZEBReleaseMutex(m), 0);
    EXPECT_EQ(ZEBDeleteMutex(m), 0);
}

TEST_F(ZebMutex, ScriptedCreationFailureGivesNoHandle) {
    host::scriptResult("ZEBCreateMutex", 12);
    ZEB_MUTEX m = reinterpret_cast<ZEB_MUTEX>(0x1);
    EXPECT_EQ(ZEBCreateMutex(&m, "M"), 12);
    EXPECT_EQ(m, nullptr);
    EXPECT_EQ(host::journalEntries("ZEB"), (Entries{"ZEBCreateMutex(M)"}));
}

TEST_F(ZebMutex, ScriptedAcquisitionFailureTakesNothing) {
    ZEB_MUTEX m = nullptr;
    ASSERT_EQ(ZEBCreateMutex(&m, "M"), 0);
    host::scriptResult("ZEBAcquireMutex", 22);
    EXPECT_EQ(ZEBAcquireMutex(m), 22);
    EXPECT_EQ(ZEBReleaseMutex(m), EPERM) << "nothing was taken";
    EXPECT_EQ(ZEBDeleteMutex(m), 0);
}

TEST_F(ZebMutex, ScriptedReleaseFailureStillReleases) {
    ZEB_MUTEX m = nullptr;
    ASSERT_EQ(ZEBCreateMutex(&m, "M"), 0);
    ASSERT_EQ(ZEBAcquireMutex(m), 0);
    host::scriptResult("ZEBReleaseMutex", 5);
    EXPECT_EQ(ZEBReleaseMutex(m), 5);
    int otherResult = -1;
    std::thread([&] {
        otherResult = ZEBAcquireMutex(m);
        ZEBReleaseMutex(m);
    }).join();
    EXPECT_EQ(otherResult, 0);
    EXPECT_EQ(ZEBDeleteMutex(m), 0);
}

TEST_F(ZebMutex, HeldMutexIsNotDeleted) {
    ZEB_MUTEX m = nullptr;
    ASSERT_EQ(ZEBCreateMutex(&m, "M"), 0);
    ASSERT_EQ(ZEBAcquireMutex(m), 0);
    EXPECT_EQ(ZEBDeleteMutex(m), EBUSY);
    EXPECT_EQ(ZEBReleaseMutex(m), 0) << "still alive after the refused delete";
    EXPECT_EQ(ZEBDeleteMutex(m), 0);
}

TEST_F(ZebMutex, CallsOnNullOrDeletedHandlesFailCleanly) {
    EXPECT_EQ(ZEBCreateMutex(nullptr, "M"), EINVAL);
    EXPECT_EQ(ZEBAcquireMutex(nullptr), EINVAL);
    EXPECT_EQ(ZEBReleaseMutex(nullptr), EINVAL);
    EXPECT_EQ(ZEBDeleteMutex(nullptr), EINVAL);
    EXPECT_EQ(host::journalEntries("ZEB"), (Entries{"ZEBCreateMutex(M)", "ZEBAcquireMutex((null))",
                                                    "ZEBReleaseMutex((null))", "ZEBDeleteMutex((null))"}));
    ZEB_MUTEX m = nullptr;
    ASSERT_EQ(ZEBCreateMutex(&m, "M"), 0);
    ASSERT_EQ(ZEBDeleteMutex(m), 0);
    host::clearJournal();
    EXPECT_EQ(ZEBAcquireMutex(m), EINVAL);
    EXPECT_EQ(ZEBDeleteMutex(m), EINVAL);
    EXPECT_EQ(host::journalEntries("ZEB"), (Entries{"ZEBAcquireMutex((invalid))", "ZEBDeleteMutex((invalid))"}));
}

}  // namespace
