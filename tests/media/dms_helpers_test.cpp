// The media server's helpers: whole-file copy, transfer size, stopping the
// stack's threads, friendly name, HTTPMU pause and resume.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>

#include "Dlna/DlnaDms.h"
#include "host_media.h"
#include "media_fixture.h"
#include "zeb_stack.h"

using testsupport::logged;

namespace {

int openDescriptors() {
    int n = 0;
    DIR* d = opendir("/proc/self/fd");
    if (d == nullptr) return -1;
    while (readdir(d) != nullptr) ++n;
    closedir(d);
    return n;
}

std::string randomBytes(size_t n) {
    std::mt19937 gen(42);
    std::string s(n, '\0');
    for (auto& c : s) c = static_cast<char>(gen());
    return s;
}

class DmsHelpers : public mediatest::MediaTest {};

TEST_F(DmsHelpers, CopyFileCopiesTheWholeContent) {
    std::string from = path("/src.bin"), to = path("/dst.bin");
    std::string content = randomBytes(300 * 1024);
    mediatest::writeFile(from, content);
    EXPECT_EQ(DlnaDataCopyFile(from.c_str(), to.c_str()), 0);
    EXPECT_EQ(mediatest::readFile(to), content);
}

TEST_F(DmsHelpers, CopyFileCreatesTheTargetWithMode0755) {
    std::string from = path("/src.bin"), to = path("/new.bin");
    mediatest::writeFile(from, "abc");
    mode_t old = umask(0);
    int r = DlnaDataCopyFile(from.c_str(), to.c_str());
    umask(old);
    ASSERT_EQ(r, 0);
    struct stat st;
    ASSERT_EQ(stat(to.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0755u);
}

TEST_F(DmsHelpers, CopyFileDoesNotTruncateALongerTarget) {
    std::string from = path("/src.bin"), to = path("/old.bin");
    mediatest::writeFile(from, "NEW");
    mediatest::writeFile(to, "oldoldold-tail");
    EXPECT_EQ(DlnaDataCopyFile(from.c_str(), to.c_str()), 0);
    EXPECT_EQ(mediatest::readFile(to), "NEWoldold-tail");
}

TEST_F(DmsHelpers, CopyFileLogsPathsAndDescriptors) {
    std::string from = path("/src.bin"), to = path("/dst.bin");
    mediatest::writeFile(from, "x");
    ASSERT_EQ(DlnaDataCopyFile(from.c_str(), to.c_str()), 0);
    auto msgs = testsupport::messages("DLNA");
    ASSERT_EQ(msgs.size(), 1u);
    EXPECT_EQ(msgs[0].rfind("DlnaDataCopyFile : " + from + "[", 0), 0u) << msgs[0];
    EXPECT_NE(msgs[0].find("]   " + to + "["), std::string::npos) << msgs[0];
}

TEST_F(DmsHelpers, CopyFileOfAnEmptySourceSucceeds) {
    std::string from = path("/empty.bin"), to = path("/dst.bin");
    mediatest::writeFile(from, "");
    EXPECT_EQ(DlnaDataCopyFile(from.c_str(), to.c_str()), 0);
    EXPECT_TRUE(mediatest::exists(to));
    EXPECT_EQ(mediatest::readFile(to), "");
}

TEST_F(DmsHelpers, CopyFileFromAMissingSourceFailsAndCreatesNothing) {
    std::string to = path("/dst.bin");
    EXPECT_EQ(DlnaDataCopyFile(path("/missing.bin").c_str(), to.c_str()), -1);
    EXPECT_FALSE(mediatest::exists(to));
}

TEST_F(DmsHelpers, CopyFileToAnUnwritableTargetFails) {
    std::string from = path("/src.bin");
    mediatest::writeFile(from, "abc");
    // A folder cannot be opened for writing, not even by root.
    EXPECT_EQ(DlnaDataCopyFile(from.c_str(), dcim().c_str()), -1);
    EXPECT_EQ(DlnaDataCopyFile(from.c_str(), path("/no/such/dir/x").c_str()), -1);
    EXPECT_EQ(DlnaDataCopyFile(nullptr, path("/x").c_str()), -1);
}

TEST_F(DmsHelpers, CopyFileReportsAFailedWrite) {
    // A target that opens but takes no byte (a full device): nothing was
    // copied, and a caller must not take the target for a whole copy.
    if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "/dev/full is not available here";
    std::string from = path("/src.bin");
    mediatest::writeFile(from, randomBytes(4096));
    const int before = openDescriptors();
    EXPECT_EQ(DlnaDataCopyFile(from.c_str(), "/dev/full"), -1);
    EXPECT_EQ(openDescriptors(), before);
    // The empty source writes nothing, so nothing can fail.
    mediatest::writeFile(from, "");
    EXPECT_EQ(DlnaDataCopyFile(from.c_str(), "/dev/full"), 0);
}

TEST_F(DmsHelpers, CopyFileLeaksNoDescriptorOnAnyPath) {
    std::string from = path("/src.bin");
    mediatest::writeFile(from, randomBytes(4096));
    int before = openDescriptors();
    ASSERT_GT(before, 0);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(DlnaDataCopyFile(from.c_str(), path("/dst.bin").c_str()), 0);
        EXPECT_EQ(DlnaDataCopyFile(path("/missing").c_str(), path("/dst.bin").c_str()), -1);
        EXPECT_EQ(DlnaDataCopyFile(from.c_str(), dcim().c_str()), -1);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(DmsHelpers, TransferSizeIsStoredAndLoggedUnderTheModeServerTag) {
    DlnaSetTransferSize(0);
    EXPECT_EQ(DlnaGetTransferSize(), 0);
    DlnaSetTransferSize(1);
    EXPECT_EQ(DlnaGetTransferSize(), 1);
    EXPECT_TRUE(logged("DlnaSetTransferSize() sizeOption = 1", "DLNA_MS"));
    EXPECT_TRUE(logged("gTransferSize = 1", "DLNA_MS"));
    EXPECT_TRUE(logged("gTransferSize = 0", "DLNA_MS"));
}

TEST_F(DmsHelpers, StopThreadStopsTheServerHttpAndStackThreadsInOrder) {
    runStart();
    ASSERT_TRUE(mediatest::waitForFinalEvent(0));
    EXPECT_EQ(host::media::runningThreads().size(), 3u);
    host::clearJournal();
    DLNAStopThread();
    EXPECT_EQ(host::journalEntries(), (std::vector<std::string>{"DMSAppStopTimerThread()", "ZEBHTTPStopAsyncThread()",
                                                                "ZEBStopTimerThreadZEB()"}));
    EXPECT_TRUE(host::media::runningThreads().empty());
    EXPECT_FALSE(logged("DLNAStopThread... AsyncThread Stop Fail !!!", "DLNA"));
}

TEST_F(DmsHelpers, StopThreadLogsAFailedAsyncThreadStop) {
    host::scriptResult("ZEBHTTPStopAsyncThread", 5);
    DLNAStopThread();
    EXPECT_TRUE(logged("DLNAStopThread... AsyncThread Stop Fail !!!", "DLNA"));
    EXPECT_EQ(host::journalEntries("ZEBStopTimerThreadZEB").size(), 1u) << "the other stops still run";
}

TEST_F(DmsHelpers, FriendlyNameComesFromTheServersDescription) {
    char name[64] = "untouched";
    EXPECT_EQ(DlnaDmsGetFriendlyName(name, sizeof name), 0) << "no server, no description";
    EXPECT_STREQ(name, "");
    mediatest::writeFile(path("/mnt/mmc/config/DMS/xml/DeviceDescription.xml"),
                         "<root><device><friendlyName> Living &amp; Room </friendlyName></device></root>");
    EXPECT_EQ(DlnaDmsGetFriendlyName(name, sizeof name), 1);
    EXPECT_STREQ(name, "Living & Room");
    char small[5];
    EXPECT_EQ(DlnaDmsGetFriendlyName(small, sizeof small), 1);
    EXPECT_STREQ(small, "Livi");
    EXPECT_EQ(host::journalEntries("ZEBGetDeviceName").back(),
              "ZEBGetDeviceName(" + path("/mnt/mmc/config/DMS/xml/DeviceDescription.xml") + ")");
}

TEST_F(DmsHelpers, StartedServerHasTheCameraAsFriendlyName) {
    runStart();
    char name[64];
    EXPECT_EQ(DlnaDmsGetFriendlyName(name, sizeof name), 1);
    EXPECT_STREQ(name, "Camera");
}

TEST_F(DmsHelpers, HttpmuPauseAndResumeForwardArgumentAndResult) {
    host::scriptResult("ZEBPauseHTTPMUServer", 4);
    EXPECT_EQ(DlnaPauseHTTPMUServer(17), 4);
    EXPECT_EQ(DlnaResumeHTTPMUServer(18), 0);
    EXPECT_EQ(host::journalEntries(),
              (std::vector<std::string>{"ZEBPauseHTTPMUServer(17)", "ZEBResumeHTTPMUServer(18)"}));
}

// The configuration value of key as the stack hands it out, "(none)" when
// it has none.
std::string configValue(const char* key) {
    char* v = ZEBGetConfigurationMA(key);
    std::string s = v ? v : "(none)";
    ZEBMemFreeMA(v);
    return s;
}

TEST_F(DmsHelpers, ConfigurationValuesAreReadFromTheXmlFile) {
    mediatest::writeFile(path("/mnt/mmc/config/UPnPConfig.xml"),
                         "<?xml version=\"1.0\"?>\n<!-- <HTTPStreamingPort>1</HTTPStreamingPort> -->\n"
                         "<UPnPConfig>\n<HTTPStreamingPortOld>2</HTTPStreamingPortOld>\n"
                         "<HTTPStreamingPort note=\"x\">\n 7001 \n</HTTPStreamingPort>\n"
                         "<MEDIA-DB-FILEPATH></MEDIA-DB-FILEPATH><MEDIA-TV-DB-FILEPATH/>\n"
                         "<SHARED-MEDIA-FOLDER-PATH>/a&lt;b</SHARED-MEDIA-FOLDER-PATH>\n"
                         "<HTTPTCPServerPort><![CDATA[80&81]]></HTTPTCPServerPort>\n"
                         "<FriendlyName><b>nested</b></FriendlyName>\n</UPnPConfig>\n");
    ASSERT_EQ(ZEBInitializeZEB(path("/mnt/mmc/config/UPnPConfig.xml").c_str()), 0);
    EXPECT_EQ(configValue("HTTPStreamingPort"), "7001");
    EXPECT_EQ(configValue("SHARED-MEDIA-FOLDER-PATH"), "/a<b");
    EXPECT_EQ(configValue("HTTPTCPServerPort"), "80&81");
    EXPECT_EQ(configValue("MEDIA-DB-FILEPATH"), "(none)");
    EXPECT_EQ(configValue("MEDIA-TV-DB-FILEPATH"), "(none)");
    EXPECT_EQ(configValue("FriendlyName"), "(none)") << "an element holding elements is no value";
    EXPECT_EQ(configValue("NoSuchKey"), "(none)");
    ZEBTerminateZEB();
    EXPECT_EQ(configValue("HTTPStreamingPort"), "(none)") << "no configuration without the stack";
}

TEST_F(DmsHelpers, AConfigurationFileThatIsNotWellFormedYieldsNoValue) {
    // An unterminated element: a real XML parser refuses the whole file
    // instead of guessing which values are still good.
    mediatest::writeFile(path("/mnt/mmc/config/UPnPConfig.xml"),
                         "<?xml version=\"1.0\"?>\n<UPnPConfig>\n"
                         "<HTTPStreamingPort>7001</HTTPStreamingPort>\n"
                         "<HTTPTCPServerPort>unterminated\n</UPnPConfig>\n");
    ASSERT_EQ(ZEBInitializeZEB(path("/mnt/mmc/config/UPnPConfig.xml").c_str()), 0);
    EXPECT_EQ(configValue("HTTPStreamingPort"), "(none)");
    EXPECT_EQ(configValue("HTTPTCPServerPort"), "(none)");
    ZEBTerminateZEB();
}

// A file cut short inside a character reference (a card pulled while the
// file was written): no value, and the parser never reads past the text.
TEST_F(DmsHelpers, AConfigurationFileCutShortInACharacterReferenceYieldsNoValue) {
    mediatest::writeFile(path("/mnt/mmc/config/UPnPConfig.xml"),
                         "<?xml version=\"1.0\"?>\n<UPnPConfig>\n"
                         "<HTTPStreamingPort>7001</HTTPStreamingPort>\n<FriendlyName>Cam&#");
    ASSERT_EQ(ZEBInitializeZEB(path("/mnt/mmc/config/UPnPConfig.xml").c_str()), 0);
    EXPECT_EQ(configValue("HTTPStreamingPort"), "(none)");
    ZEBTerminateZEB();
}

}  // namespace
