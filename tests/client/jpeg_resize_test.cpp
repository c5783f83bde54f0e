// The JPEG resizer stand-in: real pictures made here, decoded after resizing.
#include <gtest/gtest.h>

#include "client_support.h"
#include "host_jpeg.h"
#include "nasl_wifi.h"
#include "support/test_support.h"

using namespace clienttest;

namespace {

class JpegResize : public testing::Test {
protected:
    void SetUp() override {
        host::reset();
        m_liveBefore = host::jpeg::liveResizeBuffers();
    }
    void TearDown() override { EXPECT_EQ(host::jpeg::liveResizeBuffers(), m_liveBefore) << "a buffer was kept"; }

    std::string write(const std::string& name, const std::string& bytes) {
        const std::string path = m_dir.path() + "/" + name;
        writeFile(path, bytes);
        return path;
    }
    // Resizes path to the first target; returns the bytes handed out.
    bool resize(std::string path, std::string* out, WIFI_RESIZE_PIXEL pixel = WIFI_RESIZE_PIXEL_1920) {
        char* buffer = reinterpret_cast<char*>(0x1);
        int length = -1;
        const int ok = NASLWifi_jpegResizeInMemory(&path[0], pixel, buffer, length);
        if (!ok) {
            EXPECT_EQ(buffer, nullptr);
            EXPECT_EQ(length, 0);
            return false;
        }
        out->assign(buffer, static_cast<size_t>(length));
        NASLWifi_jpegResizeFree(buffer);
        return true;
    }

    // Resizes a generated width x height picture and checks the decoded size.
    void expectResized(int width, int height, int toWidth, int toHeight,
                       WIFI_RESIZE_PIXEL pixel = WIFI_RESIZE_PIXEL_1920) {
        std::string out;
        ASSERT_TRUE(resize(write("p.jpg", makeJpeg(width, height)), &out, pixel));
        int w = 0, h = 0;
        ASSERT_TRUE(jpegSize(out, &w, &h));
        EXPECT_EQ(w, toWidth);
        EXPECT_EQ(h, toHeight);
    }

    testsupport::TempDir m_dir;
    size_t m_liveBefore = 0;
};

TEST_F(JpegResize, LandscapePictureGetsLongSide1920WithItsAspectKept) {
    expectResized(4000, 3000, 1920, 1440);
}

TEST_F(JpegResize, PortraitPictureGetsLongSide1920) {
    expectResized(2448, 3264, 1440, 1920);
}

TEST_F(JpegResize, UnusualAspectIsRoundedToTheNearestPixel) {
    expectResized(5000, 1234, 1920, 474);  // 1234 * 1920 / 5000 = 473.9
}

TEST_F(JpegResize, SecondTargetGivesVgaSize) {
    expectResized(2000, 1500, 640, 480, WIFI_RESIZE_PIXEL_640);
}

TEST_F(JpegResize, ColoursSurviveTheResize) {
    std::string out;
    ASSERT_TRUE(resize(write("red.jpg", makeSolidJpeg(3000, 2000, 200, 40, 90)), &out));
    double mean[3];
    ASSERT_TRUE(jpegMean(out, mean));
    EXPECT_NEAR(mean[0], 200, 4);
    EXPECT_NEAR(mean[1], 40, 4);
    EXPECT_NEAR(mean[2], 90, 4);
}

TEST_F(JpegResize, GreyPictureStaysGrey) {
    std::string out;
    ASSERT_TRUE(resize(write("grey.jpg", makeJpeg(3840, 2160, true)), &out));
    int w = 0, h = 0, c = 0;
    ASSERT_TRUE(jpegSize(out, &w, &h, &c));
    EXPECT_EQ(w, 1920);
    EXPECT_EQ(h, 1080);
    EXPECT_EQ(c, 1);
}

TEST_F(JpegResize, PictureNotLargerThanTheTargetIsHandedBackUnchanged) {
    const std::string small = makeJpeg(1920, 1080);
    std::string out;
    ASSERT_TRUE(resize(write("small.jpg", small), &out));
    EXPECT_EQ(out, small);
}

TEST_F(JpegResize, BytesThatAreNoJpegAreRefused) {
    std::string out;
    EXPECT_FALSE(resize(write("text.jpg", std::string(5000, 'x')), &out));
    EXPECT_FALSE(resize(write("empty.jpg", ""), &out));
    const std::string jpeg = makeJpeg(3000, 2000);
    EXPECT_FALSE(resize(write("head.jpg", jpeg.substr(0, 100)), &out));
}

TEST_F(JpegResize, JpegCutShortIsStillResizedToTheTargetSize) {
    // libjpeg fills the missing end of a cut picture with grey and warns;
    // the resizer goes on with what is there.
    const std::string jpeg = makeJpeg(4000, 3000);
    std::string out;
    ASSERT_TRUE(resize(write("cut.jpg", jpeg.substr(0, jpeg.size() / 2)), &out));
    int w = 0, h = 0;
    ASSERT_TRUE(jpegSize(out, &w, &h));
    EXPECT_EQ(w, 1920);
    EXPECT_EQ(h, 1440);
}

TEST_F(JpegResize, MissingFileAndDirectoryAreRefused) {
    std::string out;
    EXPECT_FALSE(resize(m_dir.path() + "/none.jpg", &out));
    EXPECT_FALSE(resize(m_dir.path(), &out));
}

TEST_F(JpegResize, ScriptedFailureHandsOutNothing) {
    const std::string path = write("ok.jpg", makeJpeg(3000, 2000));
    host::scriptResult("NASLWifi_jpegResizeInMemory", 0);
    std::string out;
    EXPECT_FALSE(resize(path, &out));
    EXPECT_TRUE(resize(path, &out));  // the script was used up
}

TEST_F(JpegResize, CallsAreJournalledAndEachBufferIsReleasedOnce) {
    std::string path = write("j.jpg", makeJpeg(3000, 2000));
    char* buffer = nullptr;
    int length = 0;
    ASSERT_EQ(NASLWifi_jpegResizeInMemory(&path[0], WIFI_RESIZE_PIXEL_1920, buffer, length), 1);
    EXPECT_EQ(host::jpeg::liveResizeBuffers(), m_liveBefore + 1);
    NASLWifi_jpegResizeFree(buffer);
    EXPECT_EQ(host::jpeg::liveResizeBuffers(), m_liveBefore);
    // A second release of the same buffer frees nothing and is counted.
    NASLWifi_jpegResizeFree(buffer);
    EXPECT_EQ(host::jpeg::strayResizeFrees(), 1u);
    NASLWifi_jpegResizeFree(nullptr);
    EXPECT_EQ(host::journalEntries("NASLWifi_jpegResizeInMemory"),
              std::vector<std::string>{"NASLWifi_jpegResizeInMemory(" + path + ", 0)"});
    EXPECT_EQ(host::journalEntries("NASLWifi_jpegResizeFree").size(), 3u);
}

}  // namespace
