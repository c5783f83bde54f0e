// The media server start: database preparation, server start, icons and the
// UI events of every outcome.
#include <sqlite3.h>

#include <thread>

#include "Dlna/DlnaDms.h"
#include "Dlna/DlnaStack.h"
#include "host_media.h"
#include "media_fixture.h"

using mediatest::Event;
using mediatest::events;
using testsupport::logged;

namespace {

class DmsStart : public mediatest::MediaTest {};

const std::vector<Event> kStarted = {{5, 0}, {6, 0}, {4, 0}};

// Builds a database file of this host's schema as an earlier start left it.
void writeDatabase(const std::string& file, const std::string& root, int version, const std::string& itemPath) {
    mediatest::writeFile(file, "");
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(file.c_str(), &db), SQLITE_OK);
    std::string sql =
        "CREATE TABLE meta(key TEXT PRIMARY KEY, value TEXT);"
        "CREATE TABLE objects(id INTEGER PRIMARY KEY, parent_id INTEGER NOT NULL, class TEXT NOT NULL,"
        " path TEXT NOT NULL UNIQUE, title TEXT NOT NULL, mime_type TEXT, size INTEGER, date TEXT,"
        " duration TEXT, resolution TEXT, shared INTEGER NOT NULL DEFAULT 0);"
        "INSERT INTO meta VALUES('root', '" + root + "');"
        "INSERT INTO objects(parent_id, class, path, title) VALUES(0, '1', '" + itemPath + "', 'old');"
        "PRAGMA user_version=" + std::to_string(version) + ";";
    ASSERT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
}

int countRows(const std::string& file, const std::string& where) {
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        sqlite3_close(db);
        return -1;
    }
    sqlite3_stmt* st = nullptr;
    int n = -1;
    std::string sql = "SELECT count(*) FROM objects WHERE " + where;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr) == SQLITE_OK && sqlite3_step(st) == SQLITE_ROW)
        n = sqlite3_column_int(st, 0);
    sqlite3_finalize(st);
    sqlite3_close(db);
    return n;
}

TEST_F(DmsStart, StartReportsPreparingReadyAndStartedInOrder) {
    SetACLMode(3);
    runStart();
    EXPECT_EQ(events(), kStarted);
    EXPECT_TRUE(gDmsServerStarted);
    EXPECT_NE(gDmsHandle.load(), kDmsNoHandle);
    EXPECT_EQ(journalOf({"ZEBInitializeZEB", "ZEBHTTPInitialize", "ZEBUtilStartFileScanner", "DMSAppInitialize",
                         "DMSAppStart"}),
              (std::vector<std::string>{
                  "ZEBInitializeZEB(" + path("/mnt/mmc/config/UPnPConfig.xml") + ")",
                  "ZEBHTTPInitialize()",
                  "ZEBUtilStartFileScanner(20, " + dcim() + ")",
                  "DMSAppInitialize(" + dbPath() + ", " + dcim() + ", " + dcim() + ", " +
                      path("/mnt/mmc/config/DMS/xml") + ", 9797)",
                  "DMSAppStart(3)",
              }));
    // The stack copied the record during the call: the library freed its own.
    host::media::DmsConfig config = host::media::dmsConfig();
    EXPECT_EQ(config.httpStreamingPort, 9797);
    EXPECT_EQ(config.sharedFolder2, dcim());
    EXPECT_TRUE(logged("DlnaDmsStartThread() enter", "DLNA"));
    EXPECT_TRUE(logged("[DMCUI] DMSAppStart Success... ", "DLNA"));
    EXPECT_TRUE(logged("DlnaDmsStartThread() EXIT", "DLNA"));
    EXPECT_TRUE(logged("[DlnaDmsStartThread] media dir : " + dcim(), "DLNA"));
}

TEST_F(DmsStart, FreshCardGetsDatabaseFoldersCreatedAndScanned) {
    ASSERT_FALSE(mediatest::exists(dbPath()));
    runStart();
    EXPECT_EQ(events(), kStarted);
    EXPECT_EQ(host::journalEntries("ZEBCreateDirectoryStructure(" + dbPath() + ")").size(), 1u);
    EXPECT_EQ(countRows(dbPath(), "class IN ('1','3')"), 3);
    // Without a selection every item is shared with the share mode's status.
    EXPECT_EQ(host::journalEntries("DataBaseMgr::UpdateShareStatus").back(),
              "DataBaseMgr::UpdateShareStatus((null), 0)");
}

TEST_F(DmsStart, TvShareUsesTheTvDatabase) {
    SetAllShareMode(1);
    runStart();
    EXPECT_EQ(events(), kStarted);
    EXPECT_EQ(host::media::dmsConfig().dbFilePath, tvDbPath());
    EXPECT_EQ(countRows(tvDbPath(), "class IN ('1','3') AND shared=1"), 3);
    EXPECT_FALSE(mediatest::exists(dbPath()));
}

TEST_F(DmsStart, SecondStartSkipsTheOneTimeSetUpAndSaysSo) {
    runStart();
    mediatest::clearEvents();
    runStart();
    EXPECT_EQ(events(), kStarted);
    EXPECT_EQ(host::journalEntries("ZEBInitializeZEB").size(), 1u);
    EXPECT_EQ(host::journalEntries("ZEBHTTPInitialize").size(), 1u);
    EXPECT_EQ(testsupport::countLogged("HTTP Stream Thread is already initialize", "DLNA"), 1);
}

TEST_F(DmsStart, IconsAreCopiedIntoTheDescriptionFolder) {
    writeIcons();
    runStart();
    EXPECT_EQ(events(), kStarted);
    const std::pair<const char*, const char*> icons[] = {
        {"DEVICE_DSC.JPG", "icon_120x120.jpg"}, {"DEVICE_DSC.PNG", "icon_120x120.png"},
        {"DEVICE_DSC_S.JPG", "icon_48x48.jpg"}, {"DEVICE_DSC_S.PNG", "icon_48x48.png"},
        {"NoSupport.JPG", "NoSupport.JPG"},     {"NoThumb.JPG", "NoThumb.JPG"}};
    for (auto& icon : icons)
        EXPECT_EQ(mediatest::readFile(path(std::string("/mnt/mmc/config/DMS/xml/") + icon.second)),
                  std::string("icon ") + icon.first)
            << icon.second;
}

TEST_F(DmsStart, MissingIconsDoNotStopTheStart) {
    mediatest::writeFile(path("/network/icon/NoThumb.JPG"), "thumb");
    runStart();
    EXPECT_EQ(events(), kStarted);
    EXPECT_EQ(mediatest::readFile(path("/mnt/mmc/config/DMS/xml/NoThumb.JPG")), "thumb");
    EXPECT_FALSE(mediatest::exists(path("/mnt/mmc/config/DMS/xml/icon_120x120.jpg")));
    EXPECT_EQ(host::journalEntries("DMSAppStart").size(), 1u);
}

TEST_F(DmsStart, DatabaseBuiltForAnotherFolderIsDeletedAndRebuilt) {
    writeDatabase(dbPath(), "/mnt/mmc/OTHER", 1, "/mnt/mmc/OTHER/old.jpg");
    runStart();
    EXPECT_EQ(events(), kStarted);
    EXPECT_EQ(host::journalEntries("ZEBRemoveFile(" + dbPath() + ")").size(), 1u);
    EXPECT_EQ(countRows(dbPath(), "path LIKE '/mnt/mmc/OTHER/%'"), 0);
    EXPECT_EQ(countRows(dbPath(), "class IN ('1','3')"), 3);
}

TEST_F(DmsStart, DatabaseInAnOlderSortOrderIsDeletedAndRebuilt) {
    writeDatabase(dbPath(), dcim(), 0, dcim() + "/old.jpg");
    runStart();
    EXPECT_EQ(events(), kStarted);
    EXPECT_EQ(journalOf({"DataBaseMgr::NeedToDelete", "ZEBRemoveFile(" + dbPath() + ")"}),
              (std::vector<std::string>{"DataBaseMgr::NeedToDeleteDB(" + dcim() + ")",
                                        "DataBaseMgr::NeedToDeleteDBforSorting()",
                                        "ZEBRemoveFile(" + dbPath() + ")"}));
    EXPECT_EQ(countRows(dbPath(), "title='old'"), 0);
}

TEST_F(DmsStart, CurrentDatabaseIsKept) {
    runStart();
    host::clearJournal();
    mediatest::clearEvents();
    runStart();
    EXPECT_EQ(events(), kStarted);
    EXPECT_EQ(host::journalEntries("DataBaseMgr::NeedToDeleteDBforSorting").size(), 1u);
    EXPECT_TRUE(host::journalEntries("ZEBRemoveFile").empty());
}

TEST_F(DmsStart, LeftoverJournalFileIsRemoved) {
    mediatest::writeFile(dbPath() + "-journal", "stale journal");
    runStart();
    EXPECT_EQ(events(), kStarted);
    EXPECT_FALSE(mediatest::exists(dbPath() + "-journal"));
    EXPECT_TRUE(logged(" Remove DB journal file : " + dbPath() + "-journal", "DLNA"));
}

class DmsStartMissingKey : public DmsStart, public testing::WithParamInterface<const char*> {};

TEST_P(DmsStartMissingKey, MissingConfigurationValueFailsWithOneEventAndNothingStarted) {
    writeConfig({GetParam()});
    runStart();
    EXPECT_EQ(events(), (std::vector<Event>{{6, 1}}));
    EXPECT_TRUE(host::journalEntries("ZEBUtilStartFileScanner").empty());
    EXPECT_TRUE(host::journalEntries("DMSAppInitialize").empty());
    EXPECT_FALSE(gDmsServerStarted);
    // The stack stays up for the next start.
    EXPECT_TRUE(gDlnaStackInitialized);
    EXPECT_TRUE(gDlnaHTTPInitialized);
}

INSTANTIATE_TEST_SUITE_P(EachKey, DmsStartMissingKey,
                         testing::Values("HTTPStreamingPort", "SHARED-MEDIA-FOLDER-PATH", "MEDIA-DB-FILEPATH"));

TEST_F(DmsStart, TvShareWithoutTvDatabaseKeyFails) {
    SetAllShareMode(1);
    writeConfig({"MEDIA-TV-DB-FILEPATH"});
    runStart();
    EXPECT_EQ(events(), (std::vector<Event>{{6, 1}}));
}

TEST_F(DmsStart, MissingConfigurationFileFailsWithOneEvent) {
    std::remove(path("/mnt/mmc/config/UPnPConfig.xml").c_str());
    runStart();
    EXPECT_EQ(events(), (std::vector<Event>{{6, 1}}));
}

TEST_F(DmsStart, DatabaseThatCannotBeOpenedFailsWithOneEvent) {
    mediatest::writeFile(dbPath(), std::string(4096, 'G'));
    runStart();
    EXPECT_EQ(events(), (std::vector<Event>{{5, 0}, {6, 1}}));
    EXPECT_TRUE(logged("[DlnaDmsStartThread] OpenDB fail. ", "DLNA"));
    EXPECT_TRUE(host::journalEntries("ZEBUtilStartFileScanner").empty());
}

TEST_F(DmsStart, DatabaseThatCannotBeRemovedFailsWithOneEvent) {
    writeDatabase(dbPath(), "/elsewhere", 1, "/elsewhere/a.jpg");
    host::scriptResult("ZEBRemoveFile", 1);
    runStart();
    EXPECT_EQ(events(), (std::vector<Event>{{5, 0}, {6, 1}}));
    EXPECT_TRUE(host::journalEntries("DMSAppInitialize").empty());
}

TEST_F(DmsStart, DatabaseThatCannotBeReopenedAfterTheScanFails) {
    host::scriptResult("DataBaseMgr::OpenDB", 0);  // the fresh card's only open is after the scan
    runStart();
    EXPECT_EQ(events(), (std::vector<Event>{{5, 0}, {6, 1}}));
    EXPECT_TRUE(logged("[DlnaDmsStartThread] OpenDB fail. ", "DLNA"));
}

TEST_F(DmsStart, FailedShareStatusUpdateFailsWithOneEvent) {
    host::scriptResult("DataBaseMgr::UpdateShareStatus", 0);
    runStart();
    EXPECT_EQ(events(), (std::vector<Event>{{5, 0}, {6, 1}}));
    EXPECT_TRUE(logged("[DlnaDmsStartThread] UpdateShareStatus fail. ", "DLNA"));
}

TEST_F(DmsStart, FailedInitialiseReportsServerFailure) {
    host::scriptResult("DMSAppInitialize", 7);
    writeIcons();
    runStart();
    EXPECT_EQ(events(), (std::vector<Event>{{5, 0}, {6, 0}, {4, 1}}));
    EXPECT_TRUE(logged("[DMCUI] DMS Init Failed.. ", "DLNA"));
    EXPECT_TRUE(logged("[DMCUI] DMS Fail event to UI... ", "DLNA"));
    EXPECT_TRUE(host::journalEntries("DMSAppStart").empty());
    EXPECT_FALSE(mediatest::exists(path("/mnt/mmc/config/DMS/xml/NoThumb.JPG"))) << "no icons without a server";
    EXPECT_EQ(gDmsHandle.load(), kDmsNoHandle);
}

TEST_F(DmsStart, FailedServerStartReportsServerFailure) {
    host::scriptResult("DMSAppStart", 3);
    runStart();
    EXPECT_EQ(events(), (std::vector<Event>{{5, 0}, {6, 0}, {4, 1}}));
    EXPECT_TRUE(logged("[DMCUI] DMSAppStart Failed... ", "DLNA"));
    EXPECT_FALSE(gDmsServerStarted);
    EXPECT_NE(gDmsHandle.load(), kDmsNoHandle);
}

TEST_F(DmsStart, CancelDuringTheScanReportsCancelledAndStartsNoServer) {
    host::media::holdScans(true);
    std::thread start([this] { runStart(); });
    bool held = host::media::waitForHeldScan(10000);
    DlnaDmsCancel();
    start.join();
    ASSERT_TRUE(held) << "the scan never began";
    EXPECT_EQ(events(), (std::vector<Event>{{5, 0}, {6, 2}}));
    EXPECT_TRUE(logged("DlnaDmsCancel() ENTER", "DLNA"));
    EXPECT_TRUE(logged("[DMCUI] DMS Cancel event to UI... ", "DLNA"));
    EXPECT_EQ(host::journalEntries("DataBaseMgr::CancelInvalidateAllItems").size(), 1u);
    EXPECT_EQ(host::journalEntries("DirectoryScanner::CancelScanDirectory").size(), 1u);
    EXPECT_TRUE(host::journalEntries("DMSAppInitialize").empty());
    EXPECT_FALSE(gDmsServerStarted);
    // The interrupted scan recorded nothing (a fresh card has no database at all).
    EXPECT_LE(countRows(dbPath(), "1"), 0);
}

void cancelWhenReady(ZEB_CALLBACK_EVENT event, void* value, intptr_t length) {
    mediatest::recordEvent(event, value, length);
    if (event == 6 && length == 0) DlnaDmsCancel();
}

TEST_F(DmsStart, CancelWhileTheServerStartsReportsCancelledInsteadOfStarted) {
    DlnaDMSSetCallback(cancelWhenReady);
    runStart();
    EXPECT_EQ(events(), (std::vector<Event>{{5, 0}, {6, 0}, {6, 2}}));
    EXPECT_EQ(testsupport::countLogged("[DMCUI] DMS Cancel event to UI... ", "DLNA"), 1);
}

TEST_F(DmsStart, NewStartClearsAnEarlierCancel) {
    DlnaDmsCancel();
    runStart();
    EXPECT_EQ(events(), kStarted);
}

}  // namespace
