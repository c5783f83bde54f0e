// The browsing mode's media database thread: its reports (91, then 92 with
// 0 ready, 1 failed, 2 cancelled), each failing step, the stale journal and
// the outdated database, and that no thread outlives a terminate.
#include <sqlite3.h>

#include <chrono>
#include <thread>

#include "Dlna/DlnaFrame.h"
#include "Dlna/Dlna_RVF_interface.h"
#include "rvf_fixture.h"
#include "support/tcp_peer.h"

using rvftest::RvfTest;
using testsupport::logged;
using Calls = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

namespace {

// Runs one SQL query on the database file; the first column of each row.
std::vector<std::string> query(const std::string& dbPath, const std::string& sql) {
    std::vector<std::string> rows;
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(dbPath.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_stmt* st = nullptr;
        if (sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr) == SQLITE_OK)
            while (sqlite3_step(st) == SQLITE_ROW) {
                const unsigned char* t = sqlite3_column_text(st, 0);
                rows.emplace_back(t ? reinterpret_cast<const char*>(t) : "");
            }
        sqlite3_finalize(st);
    }
    sqlite3_close(db);
    return rows;
}

class DbThread : public RvfTest {
protected:
    void SetUp() override {
        RvfTest::SetUp();
        writeCard();
        startBrowsing();
    }
    // Camera event 40, then the build's final event and the thread's last line.
    void build() {
        int ended = testsupport::countLogged("[DlnaDBThread] return", "DLNA");
        ASSERT_EQ(DlnaRVFEvent(40, nullptr), 1);
        ASSERT_TRUE(rvftest::waitForEvent(kRvfEventDBFinished)) << "no final event";
        for (int i = 0; i < 1000 && testsupport::countLogged("[DlnaDBThread] return", "DLNA") == ended; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        ASSERT_EQ(testsupport::countLogged("[DlnaDBThread] return", "DLNA"), ended + 1);
    }
    // The final report of the build (event 92's value); -1 when none.
    int finalReport() const {
        for (const rvftest::Event& e : rvftest::events())
            if (e.id == kRvfEventDBFinished) return e.intValue;
        return -1;
    }
    // A database of the host stack's schema built for another folder.
    void writeOutdatedDatabase() {
        rvftest::writeFile(dbPath(), "");
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open(dbPath().c_str(), &db), SQLITE_OK);
        const char* sql =
            "CREATE TABLE meta(key TEXT PRIMARY KEY, value TEXT);"
            "CREATE TABLE objects(id INTEGER PRIMARY KEY, parent_id INTEGER NOT NULL, class TEXT NOT NULL,"
            " path TEXT NOT NULL UNIQUE, title TEXT NOT NULL, mime_type TEXT, size INTEGER, date TEXT,"
            " duration TEXT, resolution TEXT, shared INTEGER NOT NULL DEFAULT 0);"
            "INSERT INTO meta VALUES('root', '/elsewhere/DCIM');"
            "INSERT INTO objects(parent_id, class, path, title) VALUES(0, '1', '/elsewhere/DCIM/OLD.JPG', 'OLD.JPG');"
            "PRAGMA user_version=1;";
        EXPECT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(db);
    }
    std::vector<std::string> titles() const {
        return query(dbPath(), "SELECT title FROM objects WHERE class <> '0' ORDER BY title");
    }
};

const Calls kPictureTitles = {"DSC00001.JPG", "DSC00002.JPG", "MOV00003.MP4"};

// A UI whose callback does not return from event 91 (build started) until
// the test lets it: no cancel reaches the build there.
testsupport::Hold gStuckInBuildStart;
void stuckInBuildStart(int event) {
    if (event == kRvfEventDBStarted) gStuckInBuildStart.enter();
}

// The terminates' wait for a build, shortened for one test.
struct ShortBuildWait {
    explicit ShortBuildWait(int ms) {
        gStuckInBuildStart.reset();
        gDBThreadFinishWaitMs = ms;
    }
    ~ShortBuildWait() {
        gStuckInBuildStart.release();
        gDBThreadFinishWaitMs = 30000;
    }
};

TEST_F(DbThread, BuildOnAFreshCardReportsStartThenReadyAndSharesEveryItem) {
    char selection[] = "/some/selection";
    SetSelectImagePath(selection);
    build();
    EXPECT_EQ(GetSelectImagePath(), nullptr) << "the browsing mode shows the whole card";
    ASSERT_EQ(rvftest::eventIds(), (std::vector<int>{91, 92}));
    auto events = rvftest::events();
    EXPECT_FALSE(events[0].hasValue);
    EXPECT_EQ(events[0].length, 0);
    EXPECT_TRUE(events[1].hasValue);
    EXPECT_EQ(events[1].intValue, 0);
    EXPECT_EQ(events[1].length, static_cast<long long>(sizeof(int)));
    EXPECT_EQ(events[0].thread, "DlnaDBThread");
    EXPECT_EQ(events[1].thread, "DlnaDBThread");
    EXPECT_EQ(titles(), kPictureTitles);
    EXPECT_EQ(query(dbPath(), "SELECT DISTINCT shared FROM objects"), Calls{"8"});
    EXPECT_EQ(host::rvf::dcfFiles().size(), 3u);
    EXPECT_TRUE(logged("[DlnaDBThread] start...[" + dbPath() + "]...[" + dcim() + "]", "DLNA"));
    EXPECT_TRUE(logged("Enter", "DLNA"));
    EXPECT_TRUE(logged("Exit", "DLNA"));
}

TEST_F(DbThread, AnUpToDateDatabaseIsCheckedAndKept) {
    build();
    rvftest::clearEvents();
    host::clearJournal();
    build();
    EXPECT_EQ(finalReport(), 0);
    EXPECT_EQ(rvftest::journalOf({"DataBaseMgr::OpenDB", "DataBaseMgr::NeedToDeleteDB", "ZEBRemoveFile",
                                  "ZEBCreateDirectoryStructure"}),
              (Calls{"DataBaseMgr::OpenDB(" + dbPath() + ")", "DataBaseMgr::NeedToDeleteDB(" + dcim() + ")",
                     "DataBaseMgr::OpenDB(" + dbPath() + ")"}));
    EXPECT_EQ(titles(), kPictureTitles);
}

TEST_F(DbThread, AnOutdatedDatabaseIsDeletedAndRebuilt) {
    writeOutdatedDatabase();
    build();
    EXPECT_EQ(finalReport(), 0);
    EXPECT_EQ(rvftest::journalOf({"ZEBRemoveFile", "DcfFileInfoVector::DestroyInstance", "parseMediaFilesDcfDB"}),
              (Calls{"ZEBRemoveFile(" + dbPath() + ")", "DcfFileInfoVector::DestroyInstance()",
                     "parseMediaFilesDcfDB(" + dcim() + ", " + dbPath() + ")"}));
    EXPECT_EQ(titles(), kPictureTitles) << "the old folder's item is gone";
    EXPECT_EQ(query(dbPath(), "SELECT value FROM meta WHERE key='root'"), Calls{dcim()});
}

TEST_F(DbThread, AStaleJournalIsRemovedBeforeTheScan) {
    std::string journal = dbPath() + "-journal";
    rvftest::writeFile(journal, "left over from a crash");
    build();
    EXPECT_FALSE(rvftest::exists(journal));
    EXPECT_TRUE(logged(" Remove DB journal file : " + journal, "DLNA"));
    EXPECT_EQ(rvftest::journalOf({"ZEBRemoveFile", "parseMediaFilesDcfDB"}),
              (Calls{"ZEBRemoveFile(" + journal + ")", "parseMediaFilesDcfDB(" + dcim() + ", " + dbPath() + ")"}));
    EXPECT_EQ(finalReport(), 0);
}

TEST_F(DbThread, DatabaseThatCannotBeOpenedFailsTheBuild) {
    build();
    rvftest::clearEvents();
    host::clearJournal();
    host::scriptResult("DataBaseMgr::OpenDB", 0);
    build();
    EXPECT_EQ(rvftest::eventIds(), (std::vector<int>{91, 92}));
    EXPECT_EQ(finalReport(), 1);
    EXPECT_TRUE(logged("[DlnaDmsStartThread] OpenDB fail 111. ", "DLNA"));
    EXPECT_TRUE(host::journalEntries("parseMediaFilesDcfDB").empty());
    EXPECT_EQ(host::journalEntries("DataBaseMgr::DestroyInstance").size(), 1u);
}

TEST_F(DbThread, OutdatedDatabaseThatCannotBeRemovedFailsTheBuild) {
    writeOutdatedDatabase();
    host::scriptResult("ZEBRemoveFile", 1);
    build();
    EXPECT_EQ(finalReport(), 1);
    EXPECT_TRUE(logged("[DlnaDmsStartThread] ZEBRemoveFile fail 222. ", "DLNA"));
    EXPECT_TRUE(host::journalEntries("parseMediaFilesDcfDB").empty());
}

TEST_F(DbThread, DatabaseThatCannotBeReopenedAfterTheScanFailsTheBuild) {
    host::scriptResult("DataBaseMgr::OpenDB", 0);
    build();
    EXPECT_EQ(finalReport(), 1);
    EXPECT_TRUE(logged("OpenDB fail 444. ", "DLNA"));
    EXPECT_TRUE(host::journalEntries("DataBaseMgr::UpdateShareStatus").empty());
}

TEST_F(DbThread, FailedShareMarkingIsLoggedAndTheDatabaseStillReady) {
    host::scriptResult("DataBaseMgr::UpdateShareStatus", 0);
    build();
    EXPECT_TRUE(logged("UpdateShareStatus fail 555. ", "DLNA"));
    EXPECT_EQ(finalReport(), 0);
}

TEST_F(DbThread, ParseThatFindsNothingSkipsTheShareMarking) {
    host::scriptResult("parseMediaFilesDcfDB", 0);
    build();
    EXPECT_EQ(finalReport(), 0);
    EXPECT_TRUE(host::journalEntries("DataBaseMgr::OpenDB").empty());
    EXPECT_TRUE(logged("[DlnaDBThread] return", "DLNA"));
}

TEST_F(DbThread, CancellingDuringTheScanEndsWith92AndValue2) {
    host::rvf::holdParses(true);
    ASSERT_EQ(DlnaRVFEvent(40, nullptr), 1);
    ASSERT_TRUE(host::rvf::waitForHeldParse(10000));
    EXPECT_EQ(DlnaDBCancel(), 1);
    ASSERT_TRUE(rvftest::waitForEvent(kRvfEventDBFinished));
    EXPECT_EQ(rvftest::eventIds(), (std::vector<int>{91, 92}));
    EXPECT_EQ(finalReport(), 2);
    EXPECT_TRUE(logged("Cancel event to UI... ", "DLNA"));
    EXPECT_FALSE(rvftest::exists(dbPath())) << "a cancelled parse writes nothing";
}

TEST_F(DbThread, TerminateDuringABuildCancelsItAndWaitsForTheThread) {
    host::rvf::holdParses(true);
    ASSERT_EQ(DlnaRVFEvent(40, nullptr), 1);
    ASSERT_TRUE(host::rvf::waitForHeldParse(10000));
    auto t0 = Clock::now();
    DlnaRVFTerminate();
    EXPECT_LT(Clock::now() - t0, std::chrono::seconds(10));
    // The UI heard the end of the build before its callback was cleared.
    EXPECT_EQ(rvftest::eventIds(), (std::vector<int>{91, 92}));
    EXPECT_EQ(finalReport(), 2);
    EXPECT_EQ(DlnaRVFEvent(40, nullptr), 0) << "no build after the terminate";
}

TEST_F(DbThread, TerminateGivesUpOnABuildThatDoesNotEndWithinItsBound) {
    ShortBuildWait shortWait(300);
    rvftest::setEventAction(stuckInBuildStart);
    ASSERT_EQ(DlnaRVFEvent(40, nullptr), 1);
    ASSERT_TRUE(gStuckInBuildStart.waitInside());
    auto t0 = Clock::now();
    EXPECT_EQ(DlnaRVFTerminate(), 1);
    auto took = Clock::now() - t0;
    EXPECT_GE(took, std::chrono::milliseconds(300));
    EXPECT_LT(took, std::chrono::seconds(8));
    EXPECT_TRUE(logged("DlnaDBThread still running", "DLNA"));
    EXPECT_TRUE(logged("DlnaRVFTerminate () is finishing .... done ", "DLNA")) << "the terminate went on";
    EXPECT_EQ(GetAllShareMode(), 0u);
    // Let go, the build ends on its own; its report reaches no callback.
    gStuckInBuildStart.release();
    for (int i = 0; i < 1000 && !logged("[DlnaDBThread] return", "DLNA"); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_TRUE(logged("[DlnaDBThread] return", "DLNA"));
    EXPECT_EQ(rvftest::eventIds(), std::vector<int>{kRvfEventDBStarted});
    EXPECT_TRUE(logged("ERROR : gRVFCallback is NULL", "DLNA"));
}

TEST_F(RvfTest, MonitorTerminateDuringABuildCancelsItAndWaitsForTheThread) {
    writeCard();
    ASSERT_TRUE(DlnaBMStart(rvftest::recorder()));
    host::rvf::holdParses(true);
    ASSERT_EQ(DlnaRVFEvent(40, nullptr), 1);
    ASSERT_TRUE(host::rvf::waitForHeldParse(10000));
    auto t0 = Clock::now();
    EXPECT_EQ(DlnaBMTerminate(), 1);
    EXPECT_LT(Clock::now() - t0, std::chrono::seconds(10));
    // The UI heard the end of the build before its callback was cleared.
    EXPECT_EQ(rvftest::eventIds(), (std::vector<int>{kRvfEventDBStarted, kRvfEventDBFinished}));
    int report = -1;
    for (const rvftest::Event& e : rvftest::events())
        if (e.id == kRvfEventDBFinished) report = e.intValue;
    EXPECT_EQ(report, 2);
    EXPECT_TRUE(logged("DlnaBMTerminate () is finishing .... done ", "DLNA"));
    EXPECT_EQ(DlnaRVFEvent(40, nullptr), 0) << "no build after the terminate";
}

TEST_F(DbThread, TheUiMayTerminateFromTheBuildsFinalEvent) {
    rvftest::setEventAction([](int event) {
        if (event == kRvfEventDBFinished) DlnaRVFTerminate();
    });
    build();  // returns once the thread has passed its terminate
    EXPECT_EQ(GetAllShareMode(), 0u) << "the terminate on the database thread finished";
    EXPECT_TRUE(gRVFTerminated);
    EXPECT_TRUE(logged("DlnaRVFTerminate () is finishing .... done ", "DLNA"));
}

TEST_F(RvfTest, NoThreadIsLeftBehindAfterTerminate) {
    // A thread made and joined first lets a sanitizer start its own helper.
    std::thread([] {}).join();
    const int before = testsupport::threadCount();
    writeCard();
    startBrowsing();
    host::rvf::startReader(host::rvf::Reader::NeverSignals);
    std::string frame = "frame";
    std::thread producer([&] { DlanRVFStreamBufferReady(&frame[0], static_cast<long>(frame.size())); });
    ASSERT_TRUE(host::rvf::waitForBuffersRead(1, 10000));
    std::thread waiter([] {
        unsigned int r;
        DlnaRVFWaitingUserStartEvent(&r);
    });
    ASSERT_TRUE(host::rvf::waitForEventFlagWaiters(1, 10000));
    ASSERT_EQ(DlnaRVFEvent(40, nullptr), 1);  // a finished build
    ASSERT_TRUE(rvftest::waitForEvent(kRvfEventDBFinished));
    host::rvf::holdParses(true);  // and one still running
    ASSERT_EQ(DlnaRVFEvent(40, nullptr), 1);
    ASSERT_TRUE(host::rvf::waitForHeldParse(10000));
    DlnaRVFTerminate();
    // The test's own threads return at once; the library's are gone already.
    producer.join();
    waiter.join();
    EXPECT_EQ(testsupport::threadCount(), before);
}

}  // namespace
