// What the media database tells about one card file, and the removal of a
// stale entry.
#include <cstdlib>

#include "mrcp_fixture.h"
#include "zeb_stack.h"

namespace mrcptest {
namespace {

class MrcpMetadata : public MrcpTest {
protected:
    void SetUp() override {
        MrcpTest::SetUp();
        buildDatabase();
        SetAllShareMode(9);
        ASSERT_EQ(ZEBInitializeZEB(path("/mnt/mmc/config/UPnPConfig.xml").c_str()), 0);
    }
    void TearDown() override {
        freeRecord();
        ZEBTerminateZEB();
        MrcpTest::TearDown();
    }
    void freeRecord() {
        for (char* text : {m.objectId, m.parentId, m.title, m.mimeType, m.size, m.date, m.uri, m.objectClass,
                           m.dlnaProfile, m.resolution})
            free(text);
        m = ZEB_CONTENT_METADATA();
    }
    static std::string text(const char* s) { return s ? s : "(null)"; }

    ZEB_CONTENT_METADATA m = {};
};

TEST_F(MrcpMetadata, VideoEntryGivesEveryField) {
    ASSERT_EQ(ZEBGetMetadataFromDB(video().c_str(), &m), 0);
    std::string id = text(m.objectId);
    EXPECT_EQ(id.compare(0, 2, "3$"), 0) << id;
    EXPECT_GT(atoi(id.c_str() + 2), 0) << id;
    EXPECT_EQ(text(m.parentId).compare(0, 2, "0$"), 0);
    EXPECT_EQ(text(m.title), "MOV00003.MP4");
    EXPECT_EQ(text(m.mimeType), "video/mp4");
    EXPECT_EQ(m.duration, 5000);
    EXPECT_EQ(text(m.size), std::to_string(mediatest::mp4Bytes(5000, 320, 240).size()));
    EXPECT_EQ(text(m.date).size(), 19u);
    EXPECT_EQ(text(m.uri), video());
    EXPECT_EQ(text(m.objectClass), "3");
    EXPECT_EQ(text(m.dlnaProfile), "AVC_MP4_BL_CIF15_AAC_520");
    EXPECT_EQ(text(m.resolution), "320x240");
    EXPECT_TRUE(testsupport::logged("Content Type is VIDEO ", "DLNA"));
    EXPECT_TRUE(testsupport::logged("[K700] nContentDuration : 5000", "DLNA"));
    EXPECT_TRUE(testsupport::logged("File path: " + video(), "DLNA"));
    EXPECT_TRUE(testsupport::logged("[ZEBGetMetadataFromDB] pContentType : 3", "DLNA"));
    // The TV database, since the control point's share mode is 9.
    EXPECT_FALSE(host::journalEntries("DataBaseMgr::OpenDB(" + tvDbPath() + ")").empty());
}

TEST_F(MrcpMetadata, ImageEntryHasNoDuration) {
    ASSERT_EQ(ZEBGetMetadataFromDB(photo2().c_str(), &m), 0);
    EXPECT_EQ(text(m.objectId).compare(0, 2, "1$"), 0);
    EXPECT_EQ(text(m.title), "DSC00002.JPG");
    EXPECT_EQ(text(m.mimeType), "image/jpeg");
    EXPECT_EQ(m.duration, 0);
    EXPECT_EQ(text(m.resolution), "1920x1080");
    EXPECT_EQ(text(m.dlnaProfile), "JPEG_LRG");
    EXPECT_TRUE(testsupport::logged("Content Type is IMAGE ", "DLNA"));
}

TEST_F(MrcpMetadata, OtherShareModesReadThePhoneDatabase) {
    SetAllShareMode(2);
    EXPECT_EQ(ZEBGetMetadataFromDB(video().c_str(), &m), 805) << "only the TV database was built";
    EXPECT_FALSE(host::journalEntries("DataBaseMgr::OpenDB(" + dbPath() + ")").empty());
}

TEST_F(MrcpMetadata, ErrorCodesOfTheLookup) {
    EXPECT_EQ(ZEBGetMetadataFromDB(path("/mnt/mmc/DCIM/100CAMERA/NONE.JPG").c_str(), &m), 805);
    EXPECT_TRUE(testsupport::logged("Error in getting Class at ", "DLNA") ||
                !host::logLinesContaining("Error in getting Class at").empty());
    EXPECT_EQ(ZEBGetMetadataFromDB(path("/mnt/mmc/DCIM/100CAMERA").c_str(), &m), 806) << "a folder";
    EXPECT_TRUE(testsupport::logged("Error 806", "DLNA"));
    host::scriptResult("DataBaseMgr::GetInstance", 0);
    EXPECT_EQ(ZEBGetMetadataFromDB(video().c_str(), &m), 803);
    EXPECT_FALSE(host::logLinesContaining("Error in getting db instance at ").empty());
    host::scriptResult("DataBaseMgr::OpenDB", 0);
    EXPECT_EQ(ZEBGetMetadataFromDB(video().c_str(), &m), 805);
    EXPECT_FALSE(host::logLinesContaining("Error in openingdb at ").empty());
    writeConfig({"MEDIA-TV-DB-FILEPATH"});
    EXPECT_EQ(ZEBGetMetadataFromDB(video().c_str(), &m), 802);
    EXPECT_FALSE(host::logLinesContaining("Error in getting mediaDBPath at ").empty());
    EXPECT_EQ(m.objectId, nullptr);
}

TEST_F(MrcpMetadata, StaleEntryIsDeletedAndAFileStillOnTheCardKeepsIts) {
    EXPECT_EQ(ZEBDeleteItemInDB(photo().c_str()), 806);
    ASSERT_EQ(ZEBGetMetadataFromDB(photo().c_str(), &m), 0);
    freeRecord();
    ASSERT_EQ(remove(photo().c_str()), 0);
    EXPECT_EQ(ZEBDeleteItemInDB(photo().c_str()), 0);
    EXPECT_TRUE(testsupport::logged("[DLNA] Delete Invalid Items in DB : " + photo(), "DLNA"));
    EXPECT_EQ(ZEBGetMetadataFromDB(photo().c_str(), &m), 805);
    EXPECT_EQ(ZEBDeleteItemInDB(photo().c_str()), 805) << "nothing left to delete";
    EXPECT_EQ(ZEBGetMetadataFromDB(photo2().c_str(), &m), 0) << "other entries stay";
}

}  // namespace
}  // namespace mrcptest
