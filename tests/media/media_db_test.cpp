// The host's media database: a real scan of a card tree into SQLite, as the
// media server's start leaves it for the renderer's metadata lookup.
#include <sqlite3.h>
#include <sys/stat.h>

#include <map>
#include <thread>

#include "Dlna/DlnaDms.h"
#include "host_media.h"
#include "media_fixture.h"
#include "zeb_stack.h"

namespace {

using Row = std::map<std::string, std::string>;

// Every object row keyed by path, each column as text ("NULL" for null).
std::map<std::string, Row> readObjects(const std::string& file) {
    std::map<std::string, Row> rows;
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        sqlite3_close(db);
        return rows;
    }
    sqlite3_stmt* st = nullptr;
    if (sqlite3_prepare_v2(db, "SELECT * FROM objects", -1, &st, nullptr) == SQLITE_OK) {
        while (sqlite3_step(st) == SQLITE_ROW) {
            Row r;
            for (int i = 0; i < sqlite3_column_count(st); ++i) {
                const unsigned char* t = sqlite3_column_text(st, i);
                r[sqlite3_column_name(st, i)] = t ? reinterpret_cast<const char*>(t) : "NULL";
            }
            rows[r["path"]] = r;
        }
    }
    sqlite3_finalize(st);
    sqlite3_close(db);
    return rows;
}

class MediaDatabase : public mediatest::MediaTest {};

TEST_F(MediaDatabase, ScanRecordsEachPictureAndVideoWithItsAttributes) {
    mediatest::writeFile(dcim() + "/100CAMERA/.hidden.JPG", mediatest::jpegBytes(1, 1));
    runStart();
    auto rows = readObjects(dbPath());
    ASSERT_EQ(rows.size(), 4u) << "one folder, two pictures, one video; no text or hidden file";

    Row folder = rows[dcim() + "/100CAMERA"];
    EXPECT_EQ(folder["class"], "0");
    EXPECT_EQ(folder["parent_id"], "0");
    EXPECT_EQ(folder["title"], "100CAMERA");

    Row picture = rows[jpeg2()];
    EXPECT_EQ(picture["class"], "1");
    EXPECT_EQ(picture["title"], "DSC00002.JPG");
    EXPECT_EQ(picture["mime_type"], "image/jpeg");
    EXPECT_EQ(picture["resolution"], "640x480");
    EXPECT_EQ(picture["size"], std::to_string(mediatest::readFile(jpeg2()).size()));
    EXPECT_EQ(picture["parent_id"], folder["id"]);
    EXPECT_EQ(picture["duration"], "NULL");
    EXPECT_EQ(rows[jpeg1()]["resolution"], "64x48");

    Row movie = rows[video()];
    EXPECT_EQ(movie["class"], "3");
    EXPECT_EQ(movie["mime_type"], "video/mp4");
    EXPECT_EQ(movie["duration"], "0:00:05.000");
    EXPECT_EQ(movie["resolution"], "320x240");
    EXPECT_EQ(movie["parent_id"], folder["id"]);

    // Dates are the files' modification times in UTC.
    struct stat st;
    ASSERT_EQ(stat(video().c_str(), &st), 0);
    struct tm tm;
    gmtime_r(&st.st_mtime, &tm);
    char date[32];
    strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &tm);
    EXPECT_EQ(movie["date"], date);
}

TEST_F(MediaDatabase, SelectionSharesOnlyTheListedPictures) {
    SetAllShareMode(2);
    std::string selection = jpeg1() + "\n" + video() + "\n";
    SetSelectImagePath(&selection[0]);
    runStart();
    auto rows = readObjects(dbPath());
    EXPECT_EQ(rows[jpeg1()]["shared"], "2");
    EXPECT_EQ(rows[video()]["shared"], "2");
    EXPECT_EQ(rows[jpeg2()]["shared"], "0");
}

TEST_F(MediaDatabase, RescanReplacesItemsOfFilesThatAreGone) {
    runStart();
    std::remove(jpeg1().c_str());
    mediatest::writeFile(dcim() + "/101CAMERA/DSC00010.JPG", mediatest::jpegBytes(8, 8));
    runStart();
    auto rows = readObjects(dbPath());
    EXPECT_EQ(rows.count(jpeg1()), 0u);
    EXPECT_EQ(rows[dcim() + "/101CAMERA/DSC00010.JPG"]["resolution"], "8x8");
}

TEST_F(MediaDatabase, ScannerOfAMissingFolderFailsAndLeavesTheDatabaseEmpty) {
    ASSERT_EQ(ZEBInitializeZEB(path("/mnt/mmc/config/UPnPConfig.xml").c_str()), 0);
    EXPECT_NE(ZEBUtilStartFileScanner(20, path("/mnt/mmc/NOPE").c_str()), 0);
    EXPECT_TRUE(readObjects(dbPath()).empty());
    ZEBTerminateZEB();
}

// Scans the card with the scan held at its start; release() lets it go on.
// Returns the scanner's result.
template <typename Release>
int heldScan(const std::string& dir, Release release) {
    host::media::holdScans(true);
    int result = -1;
    std::thread scan([&] { result = ZEBUtilStartFileScanner(20, dir.c_str()); });
    bool held = host::media::waitForHeldScan(10000);
    release();
    scan.join();
    EXPECT_TRUE(held) << "the scan never began";
    return result;
}

TEST_F(MediaDatabase, CancelReleasesAHeldScanPromptlyWithoutRecordingAnything) {
    ASSERT_EQ(ZEBInitializeZEB(path("/mnt/mmc/config/UPnPConfig.xml").c_str()), 0);
    EXPECT_NE(heldScan(dcim(), [] { DirectoryScanner::GetInstance()->CancelScanDirectory(); }), 0);
    EXPECT_TRUE(readObjects(dbPath()).empty());
    ZEBTerminateZEB();
}

TEST_F(MediaDatabase, ReleasedHoldLetsTheScanFinish) {
    ASSERT_EQ(ZEBInitializeZEB(path("/mnt/mmc/config/UPnPConfig.xml").c_str()), 0);
    EXPECT_EQ(heldScan(dcim(), [] { host::media::holdScans(false); }), 0);
    EXPECT_EQ(readObjects(dbPath()).size(), 4u);
    ZEBTerminateZEB();
}

}  // namespace
