// Auto backup: start and terminate around the backup library, the event
// translation table and the forwarding of every step.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <mutex>

#include "Dlna/DlnaAutoBackup.h"
#include "Dlna/DlnaFrame.h"
#include "camwifi/camwifi.h"
#include "host_autobackup.h"
#include "host_media.h"
#include "support/test_support.h"

using testsupport::logged;

namespace {

struct Received {
    int event;
    uintptr_t value;
    int length;
};
std::mutex gLock;
std::vector<Received> gReceived;

void record(ZEB_CALLBACK_EVENT event, void* value, intptr_t length) {
    std::lock_guard<std::mutex> g(gLock);
    gReceived.push_back({event, reinterpret_cast<uintptr_t>(value), static_cast<int>(length)});
}

class AutoBackupTest : public testing::Test {
protected:
    void SetUp() override {
        host::reset();
        gReceived.clear();
        DlnaMscpSetCallback(nullptr);
        SetAllShareMode(0);
    }
    void TearDown() override {
        DlnaMscpSetCallback(nullptr);
        host::reset();
    }
};

TEST_F(AutoBackupTest, StartSetsItsModesAndStartsTheBackupThread) {
    DlnaSetTransferSize(0);
    host::scriptResult("AutoBackup::StartAutoBackupbyThread", 7);
    EXPECT_EQ(DlnaMscpAutoBackupStart(record, "/mnt/mmc/DCIM"), 7);
    EXPECT_EQ(GetAllShareMode(), 6u);
    EXPECT_EQ(DlnaGetTransferSize(), 1);
    EXPECT_EQ(gMscpCallback.load(), &record);
    EXPECT_EQ(host::journalEntries(),
              (std::vector<std::string>{"AutoBackup::GetInstance()", "NASLWifi_InitFileList(0)",
                                        "AutoBackup::setUiEventCallBack(set)",
                                        "AutoBackup::StartAutoBackupbyThread(/mnt/mmc/DCIM)"}));
}

TEST_F(AutoBackupTest, StartWithoutTheBackupLibraryReturnsZero) {
    host::scriptResult("AutoBackup::GetInstance", 0);
    EXPECT_EQ(DlnaMscpAutoBackupStart(record, "/mnt/mmc/DCIM"), 0);
    EXPECT_EQ(GetAllShareMode(), 6u);
    EXPECT_EQ(gMscpCallback.load(), nullptr);
    EXPECT_TRUE(host::journalEntries("AutoBackup::StartAutoBackupbyThread").empty());
}

TEST_F(AutoBackupTest, StartWithAFailedFileListLogsAndGoesOn) {
    host::scriptResult("NASLWifi_InitFileList", 0);
    EXPECT_EQ(DlnaMscpAutoBackupStart(record, "/p"), 1);
    EXPECT_TRUE(logged("ERR: [DlnaMscpAutoBackupStart] NASLWifi_InitFileList() failed !!! ", "DLNA"));
}

TEST_F(AutoBackupTest, EveryBackupEventReachesTheUiWithItsMappedIdAndBothValues) {
    ASSERT_EQ(DlnaMscpAutoBackupStart(record, "/p"), 1);
    const int expected[] = {34, 35, 36, 37, 38, 39, 40, 41, 42, 30, 31, 32, 33, 43, 45, -1, 44, -1};
    for (int e = 0; e <= 17; ++e) {
        int result = 0;
        ASSERT_TRUE(host::media::fireAutoBackupEvent(e, 1000u + e, 0xFFFFFF00u + e, &result));
        EXPECT_EQ(result, expected[e]) << "event " << e;
    }
    ASSERT_EQ(gReceived.size(), 18u);
    for (int e = 0; e <= 17; ++e) {
        EXPECT_EQ(gReceived[e].event, expected[e]) << "event " << e;
        EXPECT_EQ(gReceived[e].value, 1000u + e) << "event " << e;
        EXPECT_EQ(static_cast<unsigned int>(gReceived[e].length), 0xFFFFFF00u + e) << "event " << e;
    }
}

TEST_F(AutoBackupTest, WithoutACallbackNothingIsSentAndTheIdIsReturned) {
    EXPECT_EQ(DlnaMscpAutoBackupEventTranslator(static_cast<eAUTOBACKUP_EVENT>(9), 1, 2), 30);
    EXPECT_EQ(DlnaMscpAutoBackupEventTranslator(static_cast<eAUTOBACKUP_EVENT>(16), 1, 2), 44);
    EXPECT_EQ(DlnaMscpAutoBackupEventTranslator(static_cast<eAUTOBACKUP_EVENT>(-3), 1, 2), -1);
    EXPECT_TRUE(gReceived.empty());
}

TEST_F(AutoBackupTest, TerminateStopsAndReleasesInOrder) {
    ASSERT_EQ(DlnaMscpAutoBackupStart(record, "/p"), 1);
    host::clearJournal();
    EXPECT_EQ(DlnaMscpAutoBackupTerminate(), 1);
    EXPECT_EQ(host::journalEntries(),
              (std::vector<std::string>{"AutoBackup::GetInstance()", "AutoBackup::StopAutoBackup()",
                                        "AutoBackup::DestroyInstance()", "DirectoryScanner::DestroyInstance()",
                                        "NASLWifi_DestroyFileList()"}));
    EXPECT_EQ(GetAllShareMode(), 0u);
    EXPECT_FALSE(host::media::fireAutoBackupEvent(0, 0, 0, nullptr)) << "no events after terminate";
}

TEST_F(AutoBackupTest, TerminateWithoutStartLogsTheMissingFileList) {
    EXPECT_EQ(DlnaMscpAutoBackupTerminate(), 1);
    EXPECT_TRUE(logged("ERR: [DlnaMscpAutoBackupTerminate] NASLWifi_DestroyFileList() failed !!! ", "DLNA"));
}

struct Member {
    const char* function;                // exported name
    std::function<int()> call;           // calls it with fixed arguments
    const char* method;                  // the AutoBackup method
    const char* journalled;              // what the stand-in records
};

char gUdn[] = "uuid:pc-1";
char gName[] = "Office PC";
char* gPcName = nullptr;
char* gPcAddress = nullptr;
unsigned int gCount = 99;
void* gServers = &gCount;

std::string pointerText(const void* p) {
    char buf[32];
    snprintf(buf, sizeof buf, "%p", p);
    return buf;
}

TEST_F(AutoBackupTest, EveryStepForwardsItsArgumentsAndResultBetweenTwoLogLines) {
    const std::string getPcInfo = "AutoBackup::GetPCInfo(" + pointerText(&gPcName) + ", " + pointerText(&gPcAddress) + ")";
    const std::string search = "AutoBackup::SearchServer(" + pointerText(&gCount) + ", " + pointerText(&gServers) + ")";
    const std::vector<Member> members = {
        {"DlnaMscpAutoBackupGetPCInfo", [] { return DlnaMscpAutoBackupGetPCInfo(&gPcName, &gPcAddress); },
         "AutoBackup::GetPCInfo", getPcInfo.c_str()},
        {"DlnaMscpAutobackupInvalidatePCInfo", [] { return DlnaMscpAutobackupInvalidatePCInfo(); },
         "AutoBackup::InvalidatePCInfo", "AutoBackup::InvalidatePCInfo()"},
        {"DlnaMscpAutoBackupGetDmsList", [] { return DlnaMscpAutoBackupGetDmsList(&gCount, &gServers); },
         "AutoBackup::SearchServer", search.c_str()},
        {"DlnaMscpAutoBackupSaveServerInfo", [] { return DlnaMscpAutoBackupSaveServerInfo(3); },
         "AutoBackup::SaveAutobackupServer", "AutoBackup::SaveAutobackupServer(3)"},
        {"DlnaMscpAutoBackupConnect", [] { return DlnaMscpAutoBackupConnect(2, 7); }, "AutoBackup::Connect",
         "AutoBackup::Connect(2, 7)"},
        {"DlnaMscpAutoBackupComplete", [] { return DlnaMscpAutoBackupComplete(-4); }, "AutoBackup::Complete",
         "AutoBackup::Complete(-4)"},
        {"DlnaMscpAutoBackupSearchTarget", [] { return DlnaMscpAutoBackupSearchTarget(gUdn, gName); },
         "AutoBackup::RegisterTargetServer", "AutoBackup::RegisterTargetServer(uuid:pc-1, Office PC)"},
        {"DlnaMscpAutoBackupPrepare", [] { return DlnaMscpAutoBackupPrepare(); }, "AutoBackup::Prepare",
         "AutoBackup::Prepare()"},
        {"DlnaMscpAutoBackupGetObject", [] { return DlnaMscpAutoBackupGetObject(); }, "AutoBackup::GetObject",
         "AutoBackup::GetObject()"},
        {"DlnaMscpAutoBackupFileUpload", [] { return DlnaMscpAutoBackupFileUpload(); }, "AutoBackup::FileUpload",
         "AutoBackup::FileUpload()"},
        {"DlnaMscpAutoBackupPause", [] { return DlnaMscpAutoBackupPause(); }, "AutoBackup::Pause",
         "AutoBackup::Pause()"},
        {"DlnaMscpAutoBackupResume", [] { return DlnaMscpAutoBackupResume(); }, "AutoBackup::Resume",
         "AutoBackup::Resume()"},
        {"DlnaMscpAutoBackupRemoveDB", [] { return DlnaMscpAutoBackupRemoveDB(); }, "AutoBackup::RemoveDB",
         "AutoBackup::RemoveDB()"},
        {"DlnaMscpAutoBackupDeletePCInfo", [] { return DlnaMscpAutoBackupDeletePCInfo(); },
         "AutoBackup::DeletePCInfo", "AutoBackup::DeletePCInfo()"},
    };
    int scripted = 100;
    for (const Member& m : members) {
        host::clearJournal();
        host::clearLog();
        host::scriptResult(m.method, ++scripted);
        EXPECT_EQ(m.call(), scripted) << m.function;
        EXPECT_EQ(host::journalEntries(), (std::vector<std::string>{"AutoBackup::GetInstance()", m.journalled}))
            << m.function;
        EXPECT_EQ(testsupport::messages("DLNA"),
                  (std::vector<std::string>{std::string(m.function) + "() called!!",
                                            std::string(m.function) + "() return!!"}))
            << m.function;
    }
    EXPECT_STREQ(gPcName, "HOST-PC") << "out values come back from the backup library";
    EXPECT_EQ(gCount, 0u);
}

TEST_F(AutoBackupTest, CancelHasItsOwnLogLines) {
    host::scriptResult("AutoBackup::Cancel", 5);
    EXPECT_EQ(DlnaMscpAutoBackupCancel(), 5);
    EXPECT_EQ(testsupport::messages("DLNA"),
              (std::vector<std::string>{"DlnaMscpAutoBackupCancel() called!!*****", "DlnaMscpAutoBackupCancel() return!!"}));
    EXPECT_EQ(host::journalEntries("AutoBackup::Cancel"), std::vector<std::string>{"AutoBackup::Cancel()"});
}

TEST_F(AutoBackupTest, StepsWithoutTheBackupLibraryReturnMinusOne) {
    host::scriptResult("AutoBackup::GetInstance", 0);
    EXPECT_EQ(DlnaMscpAutoBackupPrepare(), -1);
    host::scriptResult("AutoBackup::GetInstance", 0);
    EXPECT_EQ(DlnaMscpAutoBackupCancel(), -1);
}

}  // namespace
