// The logging frame, byte for byte: colour codes, cuts, newline handling,
// priorities, tags, buffer, base name and the standard-error copy.
#include <gtest/gtest.h>

#include <dirent.h>
#include <limits.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Dlna/DlnaLog.h"
#include "SP/SPDebug.h"
#include "support/test_support.h"

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

class LogFrame : public testing::Test {
protected:
    void SetUp() override { host::reset(); }

    host::LogLine only() {
        auto lines = host::logLines();
        EXPECT_EQ(lines.size(), 1u);
        return lines.empty() ? host::LogLine{} : lines.back();
    }
};

TEST_F(LogFrame, OrdinaryLineHasPlainColourBufferThreeAndPriorityFour) {
    DlnaLogPrint(DLNA_LOG_INFO, false, "DLNA", "/a/b/c/Dlna_interface.cpp", "DlnaSetModelName", 42,
                 "value %d", 7);
    auto l = only();
    EXPECT_EQ(l.buffer, 3);
    EXPECT_EQ(l.priority, 4);
    EXPECT_EQ(l.tag, "DLNA");
    EXPECT_EQ(l.text, "Dlna_interface.cpp: DlnaSetModelName(42) > \x1b[mvalue 7\x1b[m\n");
}

TEST_F(LogFrame, ErrorLineIsRedAtPriorioritySix) {
    DlnaLogPrint(DLNA_LOG_ERROR, false, "DLNA", "x.cpp", "f", 1, "bad");
    auto l = only();
    EXPECT_EQ(l.priority, 6);
    EXPECT_EQ(l.text, "x.cpp: f(1) > \x1b[31mbad\x1b[m\n");
}

TEST_F(LogFrame, FileNameWithoutDirectoryIsKept) {
    DlnaLogPrint(DLNA_LOG_INFO, false, "DLNA", "SPServer.cpp", "entry", 9, "x");
    EXPECT_EQ(only().text.rfind("SPServer.cpp: entry(9) > ", 0), 0u);
}

TEST_F(LogFrame, MacroUsesBaseNameOfThisSourceFileAndFunction) {
    DLNA_LOG_I(DLNA_SP_TAG, "hello");
    auto l = only();
    EXPECT_EQ(l.tag, "DLNA_SP");
    EXPECT_EQ(l.text.rfind("log_frame_test.cpp: TestBody(", 0), 0u) << l.text;
}

TEST_F(LogFrame, MessageIsCutAt248Bytes) {
    std::string msg(300, 'a');
    DlnaLogPrint(DLNA_LOG_INFO, false, "DLNA", "f.cpp", "fn", 3, "%s", msg.c_str());
    auto l = only();
    EXPECT_EQ(l.text, "f.cpp: fn(3) > \x1b[m" + std::string(248, 'a') + "\x1b[m\n");
}

TEST_F(LogFrame, MessageOfExactly248BytesIsKeptWhole) {
    std::string msg(247, 'b');
    msg += 'c';
    DlnaLogPrint(DLNA_LOG_INFO, false, "DLNA", "f.cpp", "fn", 3, "%s", msg.c_str());
    EXPECT_EQ(testsupport::messageOf(only()), msg);
}

TEST_F(LogFrame, RedLineIsCutAt246Bytes) {
    std::string msg(300, 'r');
    DlnaLogPrint(DLNA_LOG_ERROR, false, "DLNA", "f.cpp", "fn", 3, "%s", msg.c_str());
    auto l = only();
    EXPECT_EQ(l.text, "f.cpp: fn(3) > \x1b[31m" + std::string(246, 'r') + "\x1b[m\n");
}

TEST_F(LogFrame, MessageEndingInTwoNewlinesLosesOnlyTheLast) {
    DlnaLogPrint(DLNA_LOG_INFO, false, "DLNA", "f.cpp", "fn", 3, "two\n\n");
    EXPECT_EQ(only().text, "f.cpp: fn(3) > \x1b[mtwo\n\x1b[m\n");
}

TEST_F(LogFrame, NewlineAtTheCutIsRemovedToo) {
    // The newline test is made on the message as cut.
    std::string msg(247, 'n');
    msg += "\nrest";
    DlnaLogPrint(DLNA_LOG_INFO, false, "DLNA", "f.cpp", "fn", 3, "%s", msg.c_str());
    EXPECT_EQ(testsupport::messageOf(only()), std::string(247, 'n'));
}

TEST_F(LogFrame, ErrorLineCopyOnStandardErrorPadsTheTagToTenColumns) {
    CaptureStderr();
    DLNA_LOG_E(DLNA_SP_TAG, "oops %s", "now");
    std::string err = GetCapturedStderr();
    EXPECT_EQ(err, "[DLNA_SP   ] \x1b[31moops now\x1b[m\n");
    EXPECT_EQ(only().priority, 6);
}

TEST_F(LogFrame, LogOnlyErrorLineWritesNothingToStandardError) {
    CaptureStderr();
    DLNA_LOG_E_LOGONLY(DLNA_TAG, "quiet");
    EXPECT_EQ(GetCapturedStderr(), "");
    EXPECT_EQ(testsupport::messageOf(only()), "quiet");
}

TEST_F(LogFrame, OrdinaryLineWritesNothingToStandardError) {
    CaptureStderr();
    DLNA_LOG_I(DLNA_MS_TAG, "info");
    EXPECT_EQ(GetCapturedStderr(), "");
}

TEST_F(LogFrame, EachAreaTagIsPassedThrough) {
    DLNA_LOG_I(DLNA_TAG, "a");
    DLNA_LOG_I(DLNA_MS_TAG, "b");
    DLNA_LOG_I(DLNA_SP_TAG, "c");
    DLNA_LOG_I(DLNA_OSAL_TAG, "d");
    auto lines = host::logLines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0].tag, "DLNA");
    EXPECT_EQ(lines[1].tag, "DLNA_MS");
    EXPECT_EQ(lines[2].tag, "DLNA_SP");
    EXPECT_EQ(lines[3].tag, "DLNA_OSAL");
}

TEST_F(LogFrame, MyAssertIsARedOsalLineAlsoOnStandardError) {
    CaptureStderr();
    OSAL_MYASSERT();
    EXPECT_EQ(GetCapturedStderr(), "[DLNA_OSAL ] \x1b[31mmyAssert\x1b[m\n");
    auto l = only();
    EXPECT_EQ(l.tag, "DLNA_OSAL");
    EXPECT_EQ(l.priority, 6);
}

TEST_F(LogFrame, SPPrintfPrefixesSPAndLogsUnderDlnaSp) {
    EXPECT_EQ(SPPrintf("count=%d", 5), 0);
    auto l = only();
    EXPECT_EQ(l.tag, "DLNA_SP");
    EXPECT_EQ(l.priority, 4);
    EXPECT_EQ(testsupport::messageOf(l), "SP : count=5");
}

TEST_F(LogFrame, SPPrintfLongTextIsCutByTheFrame) {
    std::string msg(600, 'p');
    SPPrintf("%s", msg.c_str());
    EXPECT_EQ(testsupport::messageOf(only()), "SP : " + std::string(243, 'p'));
}

TEST_F(LogFrame, SPMyAssertDoesNothing) {
    char text[] = "ignored";
    SPMyAssert(text);
    EXPECT_TRUE(host::logLines().empty());
}

TEST_F(LogFrame, LogFileNamedByCamwifiLogReceivesEachLine) {
    testsupport::TempDir dir;
    std::string path = dir.path() + "/camwifi.log";
    setenv("CAMWIFI_LOG", path.c_str(), 1);
    DLNA_LOG_I(DLNA_TAG, "to the file");
    DLNA_LOG_E(DLNA_MS_TAG, "and an error");
    unsetenv("CAMWIFI_LOG");
    FILE* f = fopen(path.c_str(), "r");
    ASSERT_NE(f, nullptr);
    char buf[1024] = {};
    size_t n = fread(buf, 1, sizeof buf - 1, f);
    fclose(f);
    std::string content(buf, n);
    EXPECT_NE(content.find("I/DLNA log_frame_test.cpp: TestBody("), std::string::npos) << content;
    EXPECT_NE(content.find("\x1b[mto the file\x1b[m\n"), std::string::npos);
    EXPECT_NE(content.find("E/DLNA_MS "), std::string::npos);
    EXPECT_NE(content.find("\x1b[31mand an error\x1b[m\n"), std::string::npos);
}

namespace fileonly {

// Descriptors of this process open on path.
int descriptorsOpenOn(const std::string& path) {
    int count = 0;
    DIR* d = opendir("/proc/self/fd");
    if (d == nullptr) return -1;
    while (dirent* e = readdir(d)) {
        if (e->d_name[0] == '.') continue;
        char target[PATH_MAX];
        const std::string link = std::string("/proc/self/fd/") + e->d_name;
        const ssize_t n = readlink(link.c_str(), target, sizeof target - 1);
        if (n <= 0) continue;
        target[n] = '\0';
        if (path == target) ++count;
    }
    closedir(d);
    return count;
}

std::vector<std::string> linesOf(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string l; std::getline(in, l);) lines.push_back(l);
    return lines;
}

}  // namespace fileonly

TEST_F(LogFrame, LogFileStaysOpenOnceAcrossLines) {
    testsupport::TempDir dir;
    const std::string path = dir.path() + "/camwifi.log";
    setenv("CAMWIFI_LOG", path.c_str(), 1);
    for (int i = 0; i < 50; ++i) DLNA_LOG_I(DLNA_TAG, "line %d", i);
    // One descriptor for the whole run, not one per line, and every line is
    // already readable while the process goes on.
    EXPECT_EQ(fileonly::descriptorsOpenOn(path), 1);
    EXPECT_EQ(fileonly::linesOf(path).size(), 50u);
    DLNA_LOG_I(DLNA_TAG, "one more");
    EXPECT_EQ(fileonly::descriptorsOpenOn(path), 1);
    const auto lines = fileonly::linesOf(path);
    ASSERT_EQ(lines.size(), 51u);
    EXPECT_NE(lines.back().find("\x1b[mone more\x1b[m"), std::string::npos) << lines.back();
    unsetenv("CAMWIFI_LOG");
}

TEST_F(LogFrame, LogFileFollowsCamwifiLogToAnotherFile) {
    testsupport::TempDir dir;
    const std::string first = dir.path() + "/first.log";
    const std::string second = dir.path() + "/second.log";
    setenv("CAMWIFI_LOG", first.c_str(), 1);
    DLNA_LOG_I(DLNA_TAG, "to the first");
    setenv("CAMWIFI_LOG", second.c_str(), 1);
    DLNA_LOG_I(DLNA_TAG, "to the second");
    unsetenv("CAMWIFI_LOG");
    DLNA_LOG_I(DLNA_TAG, "to no file");
    const auto a = fileonly::linesOf(first);
    const auto b = fileonly::linesOf(second);
    ASSERT_EQ(a.size(), 1u);
    ASSERT_EQ(b.size(), 1u);
    EXPECT_NE(a[0].find("to the first"), std::string::npos);
    EXPECT_NE(b[0].find("to the second"), std::string::npos);
    // The first file is let go once the log has moved on.
    EXPECT_EQ(fileonly::descriptorsOpenOn(first), 0);
}

TEST_F(LogFrame, LogFileKeepsEveryLineWholeFromManyThreads) {
    testsupport::TempDir dir;
    const std::string path = dir.path() + "/camwifi.log";
    setenv("CAMWIFI_LOG", path.c_str(), 1);
    constexpr int kThreads = 8;
    constexpr int kLines = 500;
    // Long lines, so that interleaved pieces of two lines would show.
    const std::string filler(180, 'x');
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t, &filler] {
            for (int i = 0; i < kLines; ++i) DLNA_LOG_I(DLNA_TAG, "t%d n%d %s end", t, i, filler.c_str());
        });
    for (auto& th : threads) th.join();
    unsetenv("CAMWIFI_LOG");
    const auto lines = fileonly::linesOf(path);
    ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kLines));
    std::set<std::string> seen;
    for (const std::string& l : lines) {
        const size_t at = l.find("> \x1b[mt");
        ASSERT_NE(at, std::string::npos) << l;
        ASSERT_EQ(l.compare(0, 7, "I/DLNA "), 0) << l;
        const std::string body = l.substr(at + 5);
        ASSERT_GE(body.size(), filler.size() + 7) << l;
        ASSERT_EQ(body.substr(body.size() - 7), " end\x1b[m") << l;
        seen.insert(body.substr(0, body.find(' ', body.find(' ') + 1)));
    }
    EXPECT_EQ(seen.size(), static_cast<size_t>(kThreads * kLines));
    EXPECT_EQ(fileonly::descriptorsOpenOn(path), 1);
}

TEST_F(LogFrame, CapturedLinesAreBounded) {
    for (size_t i = 0; i < host::kMaxKept + 10; ++i) DLNA_LOG_I(DLNA_TAG, "line %zu", i);
    auto lines = host::logLines();
    ASSERT_EQ(lines.size(), host::kMaxKept);
    EXPECT_EQ(testsupport::messageOf(lines.front()), "line 10");
}

}  // namespace
