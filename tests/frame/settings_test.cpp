// Process-wide settings, the small utilities and the signal handler.
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>

#include "Dlna/DlnaFrame.h"
#include "Dlna/DlnaPath.h"
#include "support/test_support.h"

namespace {

class Settings : public testing::Test {
protected:
    void SetUp() override { host::reset(); }
};

TEST_F(Settings, DefaultsAtLoad) {
    // Runs in a process of its own under ctest, before anything changes them.
    EXPECT_EQ(GetAllShareMode(), 0u);
    EXPECT_EQ(GetACLMode(), 4u);
    EXPECT_EQ(GetSelectImagePath(), nullptr);
}

TEST_F(Settings, SetAllShareModeReturnsTheValueSet) {
    EXPECT_EQ(SetAllShareMode(9), 9u);
    EXPECT_EQ(GetAllShareMode(), 9u);
    EXPECT_EQ(SetAllShareMode(0), 0u);
    EXPECT_EQ(GetAllShareMode(), 0u);
}

TEST_F(Settings, AclModeIsStored) {
    SetACLMode(0);
    EXPECT_EQ(GetACLMode(), 0u);
    SetACLMode(4);
    EXPECT_EQ(GetACLMode(), 4u);
}

TEST_F(Settings, SelectImagePathKeepsTheCallersPointer) {
    char selection[] = "/DCIM/100CAMERA/SAM_0001.JPG";
    SetSelectImagePath(selection);
    EXPECT_EQ(GetSelectImagePath(), selection);
    // Changing the caller's text changes what the next reader sees.
    selection[1] = 'X';
    EXPECT_STREQ(GetSelectImagePath(), "/XCIM/100CAMERA/SAM_0001.JPG");
    SetSelectImagePath(nullptr);
    EXPECT_EQ(GetSelectImagePath(), nullptr);
}

TEST_F(Settings, ModelNameIsLoggedAndForwardedUnchanged) {
    EXPECT_EQ(DlnaSetModelName("WB150F"), 0);
    EXPECT_EQ(host::journalEntries(), std::vector<std::string>{"ZEBSetModelName(WB150F)"});
    EXPECT_TRUE(testsupport::logged("DlnaSetModelName(WB150F)", "DLNA"));
}

TEST_F(Settings, ModelNameReturnsTheStacksStatus) {
    host::scriptResult("ZEBSetModelName", 7);
    EXPECT_EQ(DlnaSetModelName("NX300"), 7);
}

TEST_F(Settings, FileTypeCodes) {
    const char* expected[] = {"CAM", "QRA", "HDV", "HDE", "HDA", "SDV", "SDE", "SDA", "MPO"};
    for (unsigned t = 0; t < 9; ++t) {
        char out[8] = "zzzzzzz";
        EXPECT_EQ(filetypestring(static_cast<unsigned char>(t), out), 1);
        EXPECT_STREQ(out, expected[t]);
        EXPECT_EQ(out[4], 'z') << "writes at most 4 bytes";
    }
}

TEST_F(Settings, FileTypeFourIsHda) {
    char out[4];
    EXPECT_EQ(filetypestring(4, out), 1);
    EXPECT_STREQ(out, "HDA");
}

TEST_F(Settings, UnknownFileTypeReturnsMinusOneAndLeavesOutputAlone) {
    char out[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(filetypestring(9, out), -1);
    EXPECT_EQ(memcmp(out, "abcd", 4), 0);
    EXPECT_EQ(filetypestring(255, out), -1);
    EXPECT_EQ(memcmp(out, "abcd", 4), 0);
}

TEST_F(Settings, MemoryForwardersPassArgumentsAndResultsThrough) {
    host::scriptResult("NASLWifi_InitMemory", 12);
    host::scriptResult("NASLWifi_DestroyMemory", -3);
    EXPECT_EQ(DLNAInitMemory(4194304, 256), 12);
    EXPECT_EQ(DLNADestroyMemory(), -3);
    EXPECT_EQ(host::journalEntries(),
              (std::vector<std::string>{"NASLWifi_InitMemory(4194304, 256)", "NASLWifi_DestroyMemory()"}));
}

TEST_F(Settings, AlarmHandlerReinstallsItselfAndIgnoresTheSignal) {
    DlnaInstallSignalHandler();
    raise(SIGALRM);
    raise(SIGALRM);  // still handled: the handler re-installed itself
    struct sigaction sa;
    sigaction(SIGALRM, nullptr, &sa);
    EXPECT_EQ(sa.sa_handler, &DlnaSignalHandler);
}

TEST_F(Settings, BrokenPipeSignalIsIgnoredByTheCommonHandler) {
    DlnaInstallSignalHandler();
    raise(SIGPIPE);
    struct sigaction sa;
    sigaction(SIGPIPE, nullptr, &sa);
    EXPECT_EQ(sa.sa_handler, &DlnaSignalHandler);
}

TEST_F(Settings, FixedPathsFollowCamwifiRoot) {
    unsetenv("CAMWIFI_ROOT");
    EXPECT_EQ(DlnaFixedPath("/mnt/mmc/config"), "/mnt/mmc/config");
    setenv("CAMWIFI_ROOT", "/tmp/card", 1);
    EXPECT_EQ(DlnaFixedPath("/mnt/mmc/config"), "/tmp/card/mnt/mmc/config");
    setenv("CAMWIFI_ROOT", "/tmp/card/", 1);
    EXPECT_EQ(DlnaFixedPath("/mnt/mmc/autoip.txt"), "/tmp/card/mnt/mmc/autoip.txt");
    setenv("CAMWIFI_ROOT", "", 1);
    EXPECT_EQ(DlnaFixedPath("/network/icon/a.png"), "/network/icon/a.png");
    unsetenv("CAMWIFI_ROOT");
}

}  // namespace
