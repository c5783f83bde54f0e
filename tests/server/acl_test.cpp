// The push server's access-control list.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "SP/server/SPAccessControlInfo.h"
#include "camwifi/camwifi_frame.h"
#include "support/test_support.h"

using testsupport::countLogged;
using testsupport::logged;
using testsupport::messages;

namespace {

using Entries = std::vector<std::string>;

std::string macOf(int i) {
    char buf[32];
    snprintf(buf, sizeof buf, "02:00:00:00:00:%02x", i);
    return buf;
}
std::string ipOf(int i) { return "198.51.100." + std::to_string(i); }

const Entries kLockPair = {"ZEBAcquireMutex(SP_ACL_MUTEX)", "ZEBReleaseMutex(SP_ACL_MUTEX)"};

class Acl : public testing::Test {
protected:
    void SetUp() override { host::reset(); }

    // Adds phone i (MAC and IP derived from i) to the access list.
    static int addPhone(SPAccessControlInfo& acl, int i) {
        return acl.addEntry(SP_ACL_ACCESS_LIST, macOf(i).c_str(), ipOf(i).c_str(), "phone", 8000 + i);
    }
};

TEST_F(Acl, NewListIsEmptyInModeTwoWithItsNamedMutex) {
    SPAccessControlInfo acl;
    EXPECT_EQ(host::journalEntries("ZEB"), Entries{"ZEBCreateMutex(SP_ACL_MUTEX)"});
    EXPECT_EQ(messages("DLNA_SP"), Entries{"Enter"});
    EXPECT_EQ(acl.getEntrySize(SP_ACL_ACCESS_LIST), 0);
    EXPECT_EQ(acl.getEntrySize(SP_ACL_DENIED_LIST), 0);
    EXPECT_EQ(acl.getEntrySize(SP_ACL_THIRD_LIST), 0);
    EXPECT_EQ(acl.getMode(), 2);
}

TEST_F(Acl, ModeStaysTwoWhateverTheAccessControlSetting) {
    const unsigned int saved = GetACLMode();
    for (unsigned int setting : {0u, 4u, 7u}) {
        SetACLMode(setting);
        SPAccessControlInfo acl;
        EXPECT_EQ(acl.getMode(), 2) << setting;
    }
    SetACLMode(saved);
}

TEST_F(Acl, AddedPhoneIsAppendedWithItsAddressesAndPort) {
    SPAccessControlInfo acl;
    host::clearLog();
    EXPECT_EQ(acl.addEntry(SP_ACL_ACCESS_LIST, "02:00:7f:00:00:01", "127.0.0.1", "phone", 8080), 0);
    EXPECT_EQ(messages("DLNA_SP"), (Entries{"ADD to List!!!", "MAC = 02:00:7f:00:00:01, ipaddr = 127.0.0.1, port = 8080"}));
    EXPECT_EQ(acl.getEntrySize(SP_ACL_ACCESS_LIST), 1);
    SPAclEntry* e = acl.getEntry(SP_ACL_ACCESS_LIST, 0);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->m_sIpAddr, "127.0.0.1");
    EXPECT_EQ(e->m_sMacAddr, "02:00:7f:00:00:01");
    EXPECT_EQ(e->m_iPort, 8080);
}

TEST_F(Acl, PhonesKeepTheirArrivalOrder) {
    SPAccessControlInfo acl;
    for (int i = 1; i <= 3; ++i) ASSERT_EQ(addPhone(acl, i), 0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(acl.getEntry(SP_ACL_ACCESS_LIST, i)->m_sMacAddr, macOf(i + 1));
}

TEST_F(Acl, EleventhDistinctPhoneIsRefusedUntilOneIsDeleted) {
    SPAccessControlInfo acl;
    for (int i = 1; i <= 10; ++i) ASSERT_EQ(addPhone(acl, i), 0) << i;
    testing::internal::CaptureStderr();
    EXPECT_EQ(addPhone(acl, 11), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "[DLNA_SP   ] \x1b[31mCannot add new clients !!! Maximum clients connected !!! \x1b[m\n");
    auto lines = host::logLinesContaining("Cannot add new clients");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].priority, 6);
    EXPECT_EQ(acl.getEntrySize(SP_ACL_ACCESS_LIST), 10);
    EXPECT_EQ(acl.findEntry(SP_ACL_ACCESS_LIST, macOf(11).c_str()), 0);

    ASSERT_EQ(acl.deleteEntry(SP_ACL_ACCESS_LIST, macOf(4).c_str(), nullptr, "phone"), 0);
    EXPECT_EQ(addPhone(acl, 11), 0);
    EXPECT_EQ(acl.getEntrySize(SP_ACL_ACCESS_LIST), 10);
    EXPECT_EQ(acl.getEntry(SP_ACL_ACCESS_LIST, 9)->m_sMacAddr, macOf(11));
}

TEST_F(Acl, FullListStillRecognisesAPhoneAlreadyThere) {
    SPAccessControlInfo acl;
    for (int i = 1; i <= 10; ++i) ASSERT_EQ(addPhone(acl, i), 0);
    EXPECT_EQ(addPhone(acl, 10), 1);
}

TEST_F(Acl, SameMacAndIpTwiceGivesOneAndKeepsOneEntry) {
    SPAccessControlInfo acl;
    ASSERT_EQ(addPhone(acl, 1), 0);
    host::clearLog();
    EXPECT_EQ(addPhone(acl, 1), 1);
    EXPECT_EQ(acl.getEntrySize(SP_ACL_ACCESS_LIST), 1);
    EXPECT_EQ(messages("DLNA_SP"),
              (Entries{"Same Entry exists ",
                       "Existing IP = [198.51.100.1], New IP  = [198.51.100.1]\n Existing MAC = [02:00:00:00:00:01], "
                       "New Mac  = [02:00:00:00:00:01]"}));
}

TEST_F(Acl, SameMacWithNewIpIsRefusedUntilTheOldEntryIsDeleted) {
    SPAccessControlInfo acl;
    ASSERT_EQ(addPhone(acl, 1), 0);
    host::clearLog();
    EXPECT_EQ(acl.addEntry(SP_ACL_ACCESS_LIST, macOf(1).c_str(), "198.51.100.99", "phone", 1), -1);
    EXPECT_EQ(messages("DLNA_SP"),
              (Entries{"Existing IP = [198.51.100.1], New IP  = [198.51.100.99]\n Existing MAC = [02:00:00:00:00:01], "
                       "New Mac  = [02:00:00:00:00:01]"}));
    EXPECT_EQ(acl.getEntrySize(SP_ACL_ACCESS_LIST), 1);

    ASSERT_EQ(acl.deleteEntry(SP_ACL_ACCESS_LIST, macOf(1).c_str(), nullptr, "phone"), 0);
    EXPECT_EQ(acl.addEntry(SP_ACL_ACCESS_LIST, macOf(1).c_str(), "198.51.100.99", "phone", 1), 0);
    EXPECT_EQ(acl.getEntryByMac(SP_ACL_ACCESS_LIST, macOf(1).c_str())->m_sIpAddr, "198.51.100.99");
}

TEST_F(Acl, SameIpWithAnotherMacIsRefused) {
    SPAccessControlInfo acl;
    ASSERT_EQ(addPhone(acl, 1), 0);
    EXPECT_EQ(acl.addEntry(SP_ACL_ACCESS_LIST, macOf(2).c_str(), ipOf(1).c_str(), "phone", 1), -1);
    EXPECT_EQ(countLogged("Same Entry exists ", "DLNA_SP"), 0);
    EXPECT_EQ(acl.getEntrySize(SP_ACL_ACCESS_LIST), 1);
}

TEST_F(Acl, MacIsComparedAsExactText) {
    SPAccessControlInfo acl;
    ASSERT_EQ(acl.addEntry(SP_ACL_ACCESS_LIST, "0a:1b:2c:3d:4e:5f", "198.51.100.1", "phone", 1), 0);
    EXPECT_EQ(acl.findEntry(SP_ACL_ACCESS_LIST, "0a:1b:2c:3d:4e:5f"), 1);
    EXPECT_EQ(acl.findEntry(SP_ACL_ACCESS_LIST, "0A:1B:2C:3D:4E:5F"), 0);
    EXPECT_EQ(acl.findEntry(SP_ACL_ACCESS_LIST, "0a:1b:2c:3d:4e"), 0);
    EXPECT_EQ(acl.findEntry(SP_ACL_ACCESS_LIST, "0a:1b:2c:3d:4e:5f "), 0);
    EXPECT_EQ(acl.findEntry(SP_ACL_ACCESS_LIST, nullptr), 0);
    EXPECT_EQ(acl.getEntryByMac(SP_ACL_ACCESS_LIST, "0A:1B:2C:3D:4E:5F"), nullptr);
    // A MAC in other case is another phone: with another IP it is admitted.
    EXPECT_EQ(acl.addEntry(SP_ACL_ACCESS_LIST, "0A:1B:2C:3D:4E:5F", "198.51.100.2", "phone", 1), 0);
}

TEST_F(Acl, FindOnTheThirdOrAnUnknownListGivesZero) {
    SPAccessControlInfo acl;
    ASSERT_EQ(addPhone(acl, 1), 0);
    host::clearJournal();
    EXPECT_EQ(acl.findEntry(SP_ACL_THIRD_LIST, macOf(1).c_str()), 0);
    EXPECT_EQ(acl.findEntry(static_cast<SPAclType>(9), macOf(1).c_str()), 0);
    EXPECT_TRUE(host::journalEntries("ZEB").empty());
}

TEST_F(Acl, AddingToAnotherListTypeIsRefused) {
    SPAccessControlInfo acl;
    host::clearJournal();
    for (SPAclType t : {SP_ACL_DENIED_LIST, SP_ACL_THIRD_LIST, static_cast<SPAclType>(-1)})
        EXPECT_EQ(acl.addEntry(t, macOf(1).c_str(), ipOf(1).c_str(), "phone", 1), -1);
    EXPECT_EQ(countLogged("Incorrect ACL Type selected. Failed to create the Access Entry", "DLNA_SP"), 3);
    EXPECT_EQ(acl.getEntrySize(SP_ACL_ACCESS_LIST), 0);
    EXPECT_TRUE(host::journalEntries("ZEB").empty()) << "no list was touched";
}

TEST_F(Acl, ValidateAcceptsOnlyThreeTexts) {
    SPAccessControlInfo acl;
    EXPECT_EQ(acl.validateACLInput("m", "i", "n"), 1);
    EXPECT_FALSE(logged("[AccessControlInfo::ValidateACLInput] Input Variables are Invalid", "DLNA_SP"));
    EXPECT_EQ(acl.validateACLInput(nullptr, "i", "n"), 0);
    EXPECT_EQ(acl.validateACLInput("m", nullptr, "n"), 0);
    EXPECT_EQ(acl.validateACLInput("m", "i", nullptr), 0);
    EXPECT_EQ(countLogged("[AccessControlInfo::ValidateACLInput] Input Variables are Invalid", "DLNA_SP"), 3);
}

TEST_F(Acl, AddingWithAMissingTextIsRefused) {
    SPAccessControlInfo acl;
    EXPECT_EQ(acl.addEntry(SP_ACL_ACCESS_LIST, nullptr, "198.51.100.1", "phone", 1), -1);
    EXPECT_EQ(acl.addEntry(SP_ACL_ACCESS_LIST, "02:00:00:00:00:01", nullptr, "phone", 1), -1);
    EXPECT_EQ(countLogged("[AccessControlInfo::ValidateACLInput] Input Variables are Invalid", "DLNA_SP"), 2);
    EXPECT_EQ(acl.getEntrySize(SP_ACL_ACCESS_LIST), 0);
}

TEST_F(Acl, DeleteRemovesThePhoneLoggingEachComparison) {
    SPAccessControlInfo acl;
    for (int i = 1; i <= 3; ++i) ASSERT_EQ(addPhone(acl, i), 0);
    host::clearLog();
    EXPECT_EQ(acl.deleteEntry(SP_ACL_ACCESS_LIST, macOf(2).c_str(), ipOf(2).c_str(), "phone"), 0);
    EXPECT_EQ(messages("DLNA_SP"),
              (Entries{"MAC Address = 02:00:00:00:00:01, Request to delete MAC = 02:00:00:00:00:02",
                       "MAC Address = 02:00:00:00:00:02, Request to delete MAC = 02:00:00:00:00:02",
                       "DELETED from the List!!!"}));
    EXPECT_EQ(acl.getEntrySize(SP_ACL_ACCESS_LIST), 2);
    EXPECT_EQ(acl.findEntry(SP_ACL_ACCESS_LIST, macOf(2).c_str()), 0);
    EXPECT_EQ(acl.getEntry(SP_ACL_ACCESS_LIST, 1)->m_sMacAddr, macOf(3));
}

TEST_F(Acl, DeleteLooksOnlyAtTheMac) {
    SPAccessControlInfo acl;
    ASSERT_EQ(addPhone(acl, 1), 0);
    EXPECT_EQ(acl.deleteEntry(SP_ACL_ACCESS_LIST, macOf(1).c_str(), "203.0.113.1", nullptr), 0);
    EXPECT_EQ(acl.getEntrySize(SP_ACL_ACCESS_LIST), 0);
}

TEST_F(Acl, DeleteOfAnUnknownPhoneFails) {
    SPAccessControlInfo acl;
    ASSERT_EQ(addPhone(acl, 1), 0);
    EXPECT_EQ(acl.deleteEntry(SP_ACL_ACCESS_LIST, macOf(2).c_str(), nullptr, "phone"), -1);
    EXPECT_EQ(acl.deleteEntry(SP_ACL_ACCESS_LIST, nullptr, nullptr, "phone"), -1);
    EXPECT_EQ(countLogged("Unable to find the entry from the access list  !!!", "DLNA_SP"), 2);
    EXPECT_EQ(acl.getEntrySize(SP_ACL_ACCESS_LIST), 1);
}

TEST_F(Acl, DeleteFromAnEmptyDeniedListFails) {
    SPAccessControlInfo acl;
    EXPECT_EQ(acl.deleteEntry(SP_ACL_DENIED_LIST, macOf(1).c_str(), nullptr, "phone"), -1);
    EXPECT_TRUE(logged("Unable to find the entry from Denied list  !!!", "DLNA_SP"));
}

TEST_F(Acl, DeleteFromAnUnsupportedListFails) {
    SPAccessControlInfo acl;
    host::clearJournal();
    EXPECT_EQ(acl.deleteEntry(SP_ACL_THIRD_LIST, macOf(1).c_str(), nullptr, "phone"), -1);
    EXPECT_EQ(acl.deleteEntry(static_cast<SPAclType>(5), macOf(1).c_str(), nullptr, "phone"), -1);
    EXPECT_EQ(countLogged("UNSUPPORTED ACL Type !!!", "DLNA_SP"), 2);
    EXPECT_TRUE(host::journalEntries("ZEB").empty());
}

TEST_F(Acl, DeniedListSizeReadsAsTheAccessListSize) {
    SPAccessControlInfo acl;
    ASSERT_EQ(addPhone(acl, 1), 0);
    ASSERT_EQ(addPhone(acl, 2), 0);
    for (int i = 20; i < 23; ++i) ASSERT_EQ(acl.addDeniedEntry(macOf(i).c_str(), ipOf(i).c_str(), 1), 0);
    EXPECT_EQ(acl.getEntrySize(SP_ACL_ACCESS_LIST), 2);
    EXPECT_EQ(acl.getEntrySize(SP_ACL_DENIED_LIST), 2) << "kept as the server has always read it";
    EXPECT_EQ(acl.getEntrySize(SP_ACL_THIRD_LIST), 0);
    EXPECT_EQ(acl.getEntrySize(static_cast<SPAclType>(3)), 0);
    EXPECT_NE(acl.getEntry(SP_ACL_DENIED_LIST, 2), nullptr) << "three phones are on the denied list";
    EXPECT_EQ(acl.getEntry(SP_ACL_DENIED_LIST, 3), nullptr);
}

TEST_F(Acl, DeniedPhonesAreFoundAndDeletedOnTheirOwnList) {
    SPAccessControlInfo acl;
    ASSERT_EQ(addPhone(acl, 1), 0);
    host::clearLog();
    ASSERT_EQ(acl.addDeniedEntry(macOf(5).c_str(), ipOf(5).c_str(), 9000), 0);
    EXPECT_TRUE(logged("ADD to Denied List!!! MAC = 02:00:00:00:00:05, ipaddr = 198.51.100.5, port = 9000", "DLNA_SP"));
    EXPECT_EQ(acl.addDeniedEntry(macOf(5).c_str(), ipOf(6).c_str(), 9000), 1) << "already denied";
    EXPECT_EQ(acl.findEntry(SP_ACL_DENIED_LIST, macOf(5).c_str()), 1);
    EXPECT_EQ(acl.findEntry(SP_ACL_ACCESS_LIST, macOf(5).c_str()), 0);
    EXPECT_EQ(acl.findEntry(SP_ACL_DENIED_LIST, macOf(1).c_str()), 0);
    SPAclEntry* e = acl.getEntryByMac(SP_ACL_DENIED_LIST, macOf(5).c_str());
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->m_sIpAddr, ipOf(5));
    EXPECT_EQ(e->m_iPort, 9000);

    EXPECT_EQ(acl.deleteEntry(SP_ACL_DENIED_LIST, macOf(5).c_str(), nullptr, "phone"), 0);
    EXPECT_TRUE(logged("DELETED from the List!!!", "DLNA_SP"));
    EXPECT_EQ(acl.findEntry(SP_ACL_DENIED_LIST, macOf(5).c_str()), 0);
    EXPECT_EQ(acl.findEntry(SP_ACL_ACCESS_LIST, macOf(1).c_str()), 1) << "the access list is untouched";
}

TEST_F(Acl, FullDeniedListForgetsItsOldestPhone) {
    SPAccessControlInfo acl;
    for (int i = 1; i <= 12; ++i) ASSERT_EQ(acl.addDeniedEntry(macOf(i).c_str(), ipOf(i).c_str(), i), 0);
    EXPECT_EQ(acl.findEntry(SP_ACL_DENIED_LIST, macOf(1).c_str()), 0);
    EXPECT_EQ(acl.findEntry(SP_ACL_DENIED_LIST, macOf(2).c_str()), 0);
    EXPECT_EQ(acl.findEntry(SP_ACL_DENIED_LIST, macOf(3).c_str()), 1);
    EXPECT_EQ(acl.getEntry(SP_ACL_DENIED_LIST, 9)->m_sMacAddr, macOf(12));
    EXPECT_EQ(acl.getEntry(SP_ACL_DENIED_LIST, 10), nullptr);
}

TEST_F(Acl, DenyingWithAMissingTextIsRefused) {
    SPAccessControlInfo acl;
    EXPECT_EQ(acl.addDeniedEntry(nullptr, "198.51.100.1", 1), -1);
    EXPECT_EQ(acl.addDeniedEntry("02:00:00:00:00:01", nullptr, 1), -1);
    EXPECT_EQ(acl.getEntry(SP_ACL_DENIED_LIST, 0), nullptr);
}

TEST_F(Acl, GetEntryOutOfRangeGivesNull) {
    SPAccessControlInfo acl;
    ASSERT_EQ(addPhone(acl, 1), 0);
    EXPECT_NE(acl.getEntry(SP_ACL_ACCESS_LIST, 0), nullptr);
    EXPECT_EQ(acl.getEntry(SP_ACL_ACCESS_LIST, 1), nullptr);
    EXPECT_EQ(acl.getEntry(SP_ACL_ACCESS_LIST, -1), nullptr);
    EXPECT_EQ(acl.getEntry(SP_ACL_ACCESS_LIST, 1 << 30), nullptr);
    EXPECT_EQ(acl.getEntry(SP_ACL_THIRD_LIST, 0), nullptr);
    EXPECT_EQ(acl.getEntry(static_cast<SPAclType>(7), 0), nullptr);
}

TEST_F(Acl, GetEntryByMacGivesTheFirstMatchAndLogsEachMacSeen) {
    SPAccessControlInfo acl;
    for (int i = 1; i <= 3; ++i) ASSERT_EQ(addPhone(acl, i), 0);
    host::clearLog();
    SPAclEntry* e = acl.getEntryByMac(SP_ACL_ACCESS_LIST, macOf(2).c_str());
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->m_sIpAddr, ipOf(2));
    EXPECT_EQ(e->m_iPort, 8002);
    EXPECT_EQ(messages("DLNA_SP"), (Entries{"MAC Address = 02:00:00:00:00:01", "MAC Address = 02:00:00:00:00:02"}));
    EXPECT_EQ(acl.getEntryByMac(SP_ACL_ACCESS_LIST, macOf(9).c_str()), nullptr);
    EXPECT_EQ(acl.getEntryByMac(SP_ACL_ACCESS_LIST, nullptr), nullptr);
}

TEST_F(Acl, StorageAndModeOperationsDoNothingAndReturnZero) {
    testsupport::TempDir dir;
    const std::string file = dir.path() + "/acl.txt";
    SPAccessControlInfo acl;
    ASSERT_EQ(addPhone(acl, 1), 0);
    host::clearJournal();
    host::clearLog();
    EXPECT_EQ(acl.setMode(static_cast<SPAclMode>(0)), 0);
    EXPECT_EQ(acl.getMode(), 2);
    EXPECT_EQ(acl.savetoFile(file.c_str()), 0);
    EXPECT_NE(access(file.c_str(), F_OK), 0) << "the list is never stored on disk";
    EXPECT_EQ(acl.loadFromFile(file.c_str()), 0);
    EXPECT_EQ(acl.swapEntry(SP_ACL_ACCESS_LIST, 0, 1), 0);
    EXPECT_EQ(acl.addEntryWithOutLock(SP_ACL_ACCESS_LIST, macOf(2).c_str(), ipOf(2).c_str(), "phone", 1), 0);
    EXPECT_EQ(acl.deleteEntryWithOutLock(SP_ACL_ACCESS_LIST, macOf(1).c_str(), nullptr, "phone"), 0);
    EXPECT_EQ(acl.getEventNotificationType(), 0);
    int index = 7;
    EXPECT_EQ(acl.getNewDeviceIndex(&index), &index);
    EXPECT_EQ(index, 7);
    EXPECT_EQ(acl.getEntrySize(SP_ACL_ACCESS_LIST), 1);
    EXPECT_EQ(acl.findEntry(SP_ACL_ACCESS_LIST, macOf(1).c_str()), 1);
    EXPECT_EQ(acl.findEntry(SP_ACL_ACCESS_LIST, macOf(2).c_str()), 0);
    EXPECT_TRUE(messages("DLNA_SP").empty());
}

TEST_F(Acl, EveryListOperationHoldsTheMutexOnceForItsWholeRun) {
    SPAccessControlInfo acl;
    struct Op {
        const char* name;
        std::function<void()> run;
    };
    const std::vector<Op> ops = {
        {"addEntry", [&] { addPhone(acl, 1); }},
        {"addEntry again", [&] { addPhone(acl, 1); }},
        {"findEntry", [&] { acl.findEntry(SP_ACL_ACCESS_LIST, macOf(1).c_str()); }},
        {"getEntry", [&] { acl.getEntry(SP_ACL_ACCESS_LIST, 0); }},
        {"getEntry out of range", [&] { acl.getEntry(SP_ACL_ACCESS_LIST, 5); }},
        {"getEntryByMac", [&] { acl.getEntryByMac(SP_ACL_ACCESS_LIST, macOf(1).c_str()); }},
        {"addDeniedEntry", [&] { acl.addDeniedEntry(macOf(2).c_str(), ipOf(2).c_str(), 1); }},
        {"deleteEntry", [&] { acl.deleteEntry(SP_ACL_ACCESS_LIST, macOf(1).c_str(), nullptr, "phone"); }},
        {"deleteEntry not found", [&] { acl.deleteEntry(SP_ACL_ACCESS_LIST, macOf(1).c_str(), nullptr, "phone"); }},
    };
    for (const Op& op : ops) {
        host::clearJournal();
        op.run();
        EXPECT_EQ(host::journalEntries("ZEB"), kLockPair) << op.name;
    }
    host::clearJournal();
    acl.getEntrySize(SP_ACL_ACCESS_LIST);
    acl.getEntrySize(SP_ACL_DENIED_LIST);
    EXPECT_TRUE(host::journalEntries("ZEB").empty()) << "sizes are read without the mutex";
}

TEST_F(Acl, TerminateDeletesEntriesKeepsTheirSlotsAndDeletesTheMutexOnce) {
    {
        SPAccessControlInfo acl;
        ASSERT_EQ(addPhone(acl, 1), 0);
        ASSERT_EQ(addPhone(acl, 2), 0);
        ASSERT_EQ(acl.addDeniedEntry(macOf(3).c_str(), ipOf(3).c_str(), 1), 0);
        host::clearJournal();
        acl.terminateACL();
        EXPECT_EQ(host::journalEntries("ZEB"), (Entries{"ZEBAcquireMutex(SP_ACL_MUTEX)", "ZEBReleaseMutex(SP_ACL_MUTEX)",
                                                        "ZEBDeleteMutex(SP_ACL_MUTEX)"}));
        EXPECT_EQ(acl.getEntrySize(SP_ACL_ACCESS_LIST), 2) << "the slots stay in place";
        host::clearJournal();
    }
    EXPECT_TRUE(host::journalEntries("ZEB").empty()) << "the destructor's second terminate has nothing left to do";
    // Under ASan, a leaked or doubly deleted entry or mutex fails this test.
}

TEST_F(Acl, DestructorDeletesEveryEntryAndTheMutex) {
    {
        SPAccessControlInfo acl;
        for (int i = 1; i <= 10; ++i) ASSERT_EQ(addPhone(acl, i), 0);
        ASSERT_EQ(acl.addDeniedEntry(macOf(30).c_str(), ipOf(30).c_str(), 1), 0);
        host::clearJournal();
    }
    EXPECT_EQ(host::journalEntries("ZEBDeleteMutex"), Entries{"ZEBDeleteMutex(SP_ACL_MUTEX)"});
}

TEST_F(Acl, FailedMutexCreationRefusesEveryListAccessWithAClearLog) {
    host::scriptResult("ZEBCreateMutex", 12);
    testing::internal::CaptureStderr();
    {
        SPAccessControlInfo acl;
        EXPECT_EQ(addPhone(acl, 1), -1);
        EXPECT_EQ(acl.findEntry(SP_ACL_ACCESS_LIST, macOf(1).c_str()), 0);
        EXPECT_EQ(acl.deleteEntry(SP_ACL_ACCESS_LIST, macOf(1).c_str(), nullptr, "phone"), -1);
        EXPECT_EQ(acl.getEntry(SP_ACL_ACCESS_LIST, 0), nullptr);
        EXPECT_EQ(acl.getEntryByMac(SP_ACL_ACCESS_LIST, macOf(1).c_str()), nullptr);
        EXPECT_EQ(acl.addDeniedEntry(macOf(1).c_str(), ipOf(1).c_str(), 1), -1);
        EXPECT_EQ(acl.getEntrySize(SP_ACL_ACCESS_LIST), 0);
    }
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(err.find("ZEBCreateMutex(SP_ACL_MUTEX) failed (12): no phone can be admitted"), std::string::npos) << err;
    EXPECT_TRUE(logged("ZEBCreateMutex(SP_ACL_MUTEX) failed (12): no phone can be admitted", "DLNA_SP"));
    EXPECT_EQ(countLogged("SP_ACL_MUTEX does not exist: list access refused", "DLNA_SP"), 6);
    EXPECT_EQ(host::journalEntries("ZEB"), Entries{"ZEBCreateMutex(SP_ACL_MUTEX)"})
        << "nothing is taken or deleted without a mutex";
}

TEST_F(Acl, FailedAcquisitionRefusesOnlyThatOperation) {
    SPAccessControlInfo acl;
    host::scriptResult("ZEBAcquireMutex", 22);
    host::clearJournal();
    testing::internal::CaptureStderr();
    EXPECT_EQ(addPhone(acl, 1), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "[DLNA_SP   ] \x1b[31mZEBAcquireMutex(SP_ACL_MUTEX) failed (22): list access refused\x1b[m\n");
    EXPECT_EQ(host::journalEntries("ZEB"), Entries{"ZEBAcquireMutex(SP_ACL_MUTEX)"}) << "nothing to release";
    EXPECT_EQ(acl.getEntrySize(SP_ACL_ACCESS_LIST), 0);
    EXPECT_EQ(addPhone(acl, 1), 0) << "the next operation gets the mutex again";
}

TEST_F(Acl, FailedAcquisitionRefusesEachKindOfAccess) {
    SPAccessControlInfo acl;
    ASSERT_EQ(addPhone(acl, 1), 0);
    for (int i = 0; i < 5; ++i) host::scriptResult("ZEBAcquireMutex", 22);
    EXPECT_EQ(acl.findEntry(SP_ACL_ACCESS_LIST, macOf(1).c_str()), 0);
    EXPECT_EQ(acl.deleteEntry(SP_ACL_ACCESS_LIST, macOf(1).c_str(), nullptr, "phone"), -1);
    EXPECT_EQ(acl.getEntry(SP_ACL_ACCESS_LIST, 0), nullptr);
    EXPECT_EQ(acl.getEntryByMac(SP_ACL_ACCESS_LIST, macOf(1).c_str()), nullptr);
    EXPECT_EQ(acl.addDeniedEntry(macOf(2).c_str(), ipOf(2).c_str(), 1), -1);
    EXPECT_EQ(countLogged("ZEBAcquireMutex(SP_ACL_MUTEX) failed (22): list access refused", "DLNA_SP"), 5);
    EXPECT_EQ(acl.findEntry(SP_ACL_ACCESS_LIST, macOf(1).c_str()), 1) << "nothing was changed";
}

TEST_F(Acl, FailedReleaseIsLoggedAndTheListStaysUsable) {
    SPAccessControlInfo acl;
    host::scriptResult("ZEBReleaseMutex", 5);
    EXPECT_EQ(addPhone(acl, 1), 0);
    EXPECT_TRUE(logged("ZEBReleaseMutex(SP_ACL_MUTEX) failed (5)", "DLNA_SP"));
    int found = -1;
    std::thread([&] { found = acl.findEntry(SP_ACL_ACCESS_LIST, macOf(1).c_str()); }).join();
    EXPECT_EQ(found, 1);
}

TEST_F(Acl, ConcurrentAddsNeverAdmitMoreThanTenPhones) {
    SPAccessControlInfo acl;
    constexpr int kThreads = 4, kPerThread = 6;
    std::atomic<int> added{0}, refused{0}, other{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int k = 0; k < kPerThread; ++k) {
                const int r = addPhone(acl, 1 + t * kPerThread + k);
                (r == 0 ? added : r == -1 ? refused : other)++;
            }
        });
    }
    for (auto& th : threads) th.join();
    EXPECT_EQ(added.load(), 10);
    EXPECT_EQ(refused.load(), kThreads * kPerThread - 10);
    EXPECT_EQ(other.load(), 0);
    EXPECT_EQ(acl.getEntrySize(SP_ACL_ACCESS_LIST), 10);
    std::set<std::string> macs;
    for (int i = 0; i < 10; ++i) {
        SPAclEntry* e = acl.getEntry(SP_ACL_ACCESS_LIST, i);
        ASSERT_NE(e, nullptr);
        macs.insert(e->m_sMacAddr);
    }
    EXPECT_EQ(macs.size(), 10u);
    EXPECT_EQ(host::journalEntries("ZEBAcquireMutex").size(), host::journalEntries("ZEBReleaseMutex").size());
}

TEST_F(Acl, ConcurrentAddsAndDeletesLeaveAConsistentList) {
    SPAccessControlInfo acl;
    constexpr int kThreads = 4, kRounds = 200;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            const std::string mac = macOf(100 + t), ip = ipOf(100 + t);
            for (int k = 0; k < kRounds; ++k) {
                if (acl.addEntry(SP_ACL_ACCESS_LIST, mac.c_str(), ip.c_str(), "phone", k) != 0) ++failures;
                if (acl.findEntry(SP_ACL_ACCESS_LIST, mac.c_str()) != 1) ++failures;
                if (acl.getEntrySize(SP_ACL_ACCESS_LIST) > kThreads) ++failures;
                if (acl.deleteEntry(SP_ACL_ACCESS_LIST, mac.c_str(), nullptr, "phone") != 0) ++failures;
            }
        });
    }
    for (auto& th : threads) th.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(acl.getEntrySize(SP_ACL_ACCESS_LIST), 0);
    EXPECT_EQ(acl.getEntry(SP_ACL_ACCESS_LIST, 0), nullptr);
}

}  // namespace
