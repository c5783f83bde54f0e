// The video-attribute stand-in and its MP4 box reader: real files written
// byte by byte here, truncated, damaged and hostile ones.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <random>

#include "client_support.h"
#include "host_mp4.h"
#include "nasl_wifi.h"
#include "support/test_support.h"

using namespace clienttest;

namespace {

class VideoAttributes : public testing::Test {
protected:
    void SetUp() override { host::reset(); }
    std::string write(const std::string& name, const std::string& bytes) {
        const std::string path = m_dir.path() + "/" + name;
        writeFile(path, bytes);
        return path;
    }
    bool read(const std::string& path, host::mp4::VideoInfo* info) { return host::mp4::readVideoInfo(path, info); }
    // Writes makeMp4(spec) and reads it back; fails the test when unreadable.
    host::mp4::VideoInfo readSpec(const Mp4Spec& spec) {
        host::mp4::VideoInfo info;
        EXPECT_TRUE(read(write("clip.mp4", makeMp4(spec)), &info));
        return info;
    }
    testsupport::TempDir m_dir;
};

// The movie box payload parsed from a heap copy of exactly its bytes, so any
// read past them is caught by the address sanitizer.
bool parseExact(const std::string& payload, host::mp4::VideoInfo* info) {
    std::vector<uint8_t> copy(payload.begin(), payload.end());
    uint8_t dummy = 0;
    return host::mp4::parseMovieBox(copy.empty() ? &dummy : copy.data(), copy.size(), info);
}

TEST_F(VideoAttributes, ReadsSizeFrameRateAndDurationOfTheVideoTrack) {
    host::mp4::VideoInfo info;
    ASSERT_TRUE(read(write("clip.mp4", makeMp4()), &info));
    EXPECT_EQ(info.width, 1920u);
    EXPECT_EQ(info.height, 1080u);
    EXPECT_NEAR(info.frameRate, 30000.0 / 1001.0, 1e-9);
    EXPECT_EQ(info.durationMs, 10010u);  // 300 frames of 1001/30000 s
}

TEST_F(VideoAttributes, ServiceReportsWholeFramesPerSecondAndMilliseconds) {
    const std::string path = write("clip.mp4", makeMp4());
    sVideoAttribute attr;
    memset(&attr, 0x7f, sizeof attr);
    ASSERT_EQ(NASLWifi_getVideoAttribute(const_cast<char*>(path.c_str()), &attr), 1);
    EXPECT_EQ(attr.nWidth, 1920);
    EXPECT_EQ(attr.nHeight, 1080);
    EXPECT_EQ(attr.nFrameRate, 30);
    EXPECT_EQ(attr.ulDuration, 10010u);
    EXPECT_EQ(host::journalEntries("NASLWifi_getVideoAttribute"),
              std::vector<std::string>{"NASLWifi_getVideoAttribute(" + path + ")"});
}

TEST_F(VideoAttributes, ScriptedFailureReturnsZeroWithZeroedAttributes) {
    const std::string path = write("clip.mp4", makeMp4());
    host::scriptResult("NASLWifi_getVideoAttribute", 0);
    sVideoAttribute attr;
    memset(&attr, 0x7f, sizeof attr);
    EXPECT_EQ(NASLWifi_getVideoAttribute(const_cast<char*>(path.c_str()), &attr), 0);
    EXPECT_EQ(attr.nWidth, 0);
    EXPECT_EQ(attr.nHeight, 0);
    EXPECT_EQ(attr.nFrameRate, 0);
    EXPECT_EQ(attr.ulDuration, 0u);
}

TEST_F(VideoAttributes, MissingFileDirectoryAndFifoAreRefusedWithoutBlocking) {
    sVideoAttribute attr;
    std::string missing = m_dir.path() + "/none.mp4";
    EXPECT_EQ(NASLWifi_getVideoAttribute(&missing[0], &attr), 0);
    std::string dir = m_dir.path();
    EXPECT_EQ(NASLWifi_getVideoAttribute(&dir[0], &attr), 0);
    std::string fifo = m_dir.path() + "/pipe.mp4";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(NASLWifi_getVideoAttribute(&fifo[0], &attr), 0);
}

TEST_F(VideoAttributes, MovieBoxAfterMediaBoxWith64BitSizeIsFound) {
    Mp4Spec spec;
    spec.largeMediaBox = true;
    spec.mediaBytes = 100000;
    const host::mp4::VideoInfo info = readSpec(spec);
    EXPECT_EQ(info.width, 1920u);
    EXPECT_EQ(info.durationMs, 10010u);
}

TEST_F(VideoAttributes, MovieBoxBeforeMediaDataIsFoundToo) {
    Mp4Spec spec;
    spec.movieBoxLast = false;
    const host::mp4::VideoInfo info = readSpec(spec);
    EXPECT_EQ(info.height, 1080u);
}

TEST_F(VideoAttributes, AudioTrackBeforeTheVideoTrackIsPassedOver) {
    Mp4Spec spec;
    spec.audioTrackFirst = true;
    spec.width = 1280;
    spec.height = 720;
    spec.timescale = 60;
    spec.delta = 1;
    spec.samples = 600;
    const host::mp4::VideoInfo info = readSpec(spec);
    EXPECT_EQ(info.width, 1280u);
    EXPECT_EQ(info.height, 720u);
    EXPECT_DOUBLE_EQ(info.frameRate, 60.0);
    EXPECT_EQ(info.durationMs, 10000u);
}

TEST_F(VideoAttributes, SizeComesFromTheSampleEntryWhenTheTrackHeaderHasNone) {
    Mp4Spec spec;
    spec.sizeInTrackHeader = false;
    spec.width = 640;
    spec.height = 480;
    const host::mp4::VideoInfo info = readSpec(spec);
    EXPECT_EQ(info.width, 640u);
    EXPECT_EQ(info.height, 480u);
}

TEST_F(VideoAttributes, VersionOneHeadersWith64BitTimesAreRead) {
    Mp4Spec spec;
    spec.version1 = true;
    spec.timescale = 90000;
    spec.delta = 3000;  // 30 fps
    spec.samples = 1800;
    const host::mp4::VideoInfo info = readSpec(spec);
    EXPECT_EQ(info.width, 1920u);
    EXPECT_DOUBLE_EQ(info.frameRate, 30.0);
    EXPECT_EQ(info.durationMs, 60000u);
}

TEST_F(VideoAttributes, FileWithoutVideoTrackIsRefused) {
    const std::string ftyp = box("ftyp", std::string("isom") + be32(0) + "isom");
    const std::string moov = box("moov", fullBox("mvhd", 0, 0, std::string(96, '\0')));
    host::mp4::VideoInfo info;
    EXPECT_FALSE(read(write("audio.mp4", ftyp + moov), &info));
    EXPECT_FALSE(read(write("notmp4.mp4", "this is not an mp4 file at all"), &info));
    EXPECT_FALSE(read(write("empty.mp4", ""), &info));
}

// ---- the summary a media scanner lists ----

TEST_F(VideoAttributes, MovieSummaryHasTheMoviesPlayingTimeAndTheFirstTrackSizeGiven) {
    Mp4Spec spec;
    spec.audioTrackFirst = true;  // its track header gives no size
    host::mp4::MovieSummary movie;
    ASSERT_TRUE(host::mp4::readMovieSummary(write("clip.mp4", makeMp4(spec)), &movie));
    EXPECT_TRUE(movie.timed);
    EXPECT_EQ(movie.durationMs, 10000u) << "the movie header's time, not the video track's 10010";
    EXPECT_EQ(movie.width, 1920u);
    EXPECT_EQ(movie.height, 1080u);
}

TEST_F(VideoAttributes, MovieSummaryOfAMovieWithoutTracksHasOnlyItsTime) {
    const std::string mvhd = fullBox("mvhd", 0, 0, std::string(8, '\0') + be32(600) + be32(1500) + std::string(80, '\0'));
    host::mp4::MovieSummary movie;
    ASSERT_TRUE(host::mp4::readMovieSummary(write("bare.mp4", box("moov", mvhd)), &movie));
    EXPECT_TRUE(movie.timed);
    EXPECT_EQ(movie.durationMs, 2500u);
    EXPECT_EQ(movie.width, 0u);
    EXPECT_EQ(movie.height, 0u);

    const std::string untimed = fullBox("mvhd", 0, 0, std::string(96, '\0'));
    ASSERT_TRUE(host::mp4::readMovieSummary(write("untimed.mp4", box("moov", untimed)), &movie));
    EXPECT_FALSE(movie.timed) << "a timescale of 0 gives no playing time";
}

TEST_F(VideoAttributes, MovieSummaryOfAFileWithoutAWholeMovieBoxFails) {
    host::mp4::MovieSummary movie;
    EXPECT_FALSE(host::mp4::readMovieSummary(write("notmp4.mp4", "this is not an mp4 file at all"), &movie));
    EXPECT_FALSE(host::mp4::readMovieSummary(write("empty.mp4", ""), &movie));
    const std::string whole = makeMp4();
    EXPECT_FALSE(host::mp4::readMovieSummary(write("cut.mp4", whole.substr(0, whole.size() - 1)), &movie));
    EXPECT_FALSE(host::mp4::readMovieSummary(m_dir.path() + "/missing.mp4", &movie));
}

TEST_F(VideoAttributes, EveryTruncationOfTheFileIsRefused) {
    const std::string whole = makeMp4();
    const std::string path = m_dir.path() + "/cut.mp4";
    for (size_t n = 0; n < whole.size(); n += (n < 64 || whole.size() - n < 1200) ? 1 : 97) {
        writeFile(path, whole.substr(0, n));
        host::mp4::VideoInfo info;
        EXPECT_FALSE(read(path, &info)) << "prefix of " << n << " bytes";
    }
}

TEST_F(VideoAttributes, EveryTruncationOfTheMovieBoxIsRefusedWithinItsBytes) {
    const std::string payload = movieBoxPayload();
    for (size_t n = 0; n < payload.size(); ++n) {
        host::mp4::VideoInfo info;
        EXPECT_FALSE(parseExact(payload.substr(0, n), &info)) << "prefix of " << n << " bytes";
    }
    host::mp4::VideoInfo info;
    EXPECT_TRUE(parseExact(payload, &info));
}

TEST_F(VideoAttributes, BoxSizesThatLieAreRefused) {
    host::mp4::VideoInfo info;
    // A box claiming fewer bytes than its own header.
    EXPECT_FALSE(parseExact(be32(4) + "trak" + std::string(32, '\0'), &info));
    // A box claiming more bytes than its container holds.
    EXPECT_FALSE(parseExact(be32(0x7FFFFFF0) + "trak" + std::string(32, '\0'), &info));
    // A 64-bit size beyond everything.
    EXPECT_FALSE(parseExact(be32(1) + "trak" + be32(0xFFFFFFFF) + be32(0xFFFFFFF0) + std::string(16, '\0'), &info));
    // Top level: a media box bigger than the file.
    const std::string ftyp = box("ftyp", std::string("isom") + be32(0) + "isom");
    EXPECT_FALSE(read(write("lying.mp4", ftyp + be32(0xFFFFFF00) + "mdat" + std::string(64, 'x')), &info));
}

TEST_F(VideoAttributes, MovieBoxLargerThanTheReaderTakesInIsRefused) {
    // A sparse file whose movie box claims 65 MiB: refused before reading it.
    const std::string ftyp = box("ftyp", std::string("isom") + be32(0) + "isom");
    const uint64_t moovSize = host::mp4::kMaxMovieBoxBytes + 1024 * 1024;
    const std::string path = write("huge.mp4", ftyp + be32(static_cast<uint32_t>(moovSize)) + "moov");
    ASSERT_EQ(truncate64(path.c_str(), static_cast<off64_t>(ftyp.size() + moovSize)), 0);
    host::mp4::VideoInfo info;
    EXPECT_FALSE(read(path, &info));
}

TEST_F(VideoAttributes, TimeToSampleTableLongerThanItsBoxIsRefused) {
    std::string payload = movieBoxPayload();
    // The first stts entry count becomes 0xFFFFFFFF: the table would run far
    // past its box.
    const size_t at = payload.find("stts");
    ASSERT_NE(at, std::string::npos);
    payload.replace(at + 8, 4, be32(0xFFFFFFFF));
    host::mp4::VideoInfo info;
    EXPECT_FALSE(parseExact(payload, &info));
}

TEST_F(VideoAttributes, DamagedMovieBoxesNeverReadOutsideTheirBytes) {
    // Deterministic damage: bytes of the movie box overwritten at random.
    // Each parse must stay within the copy (the address sanitizer checks
    // that) and whatever it accepts must be a usable rate, never the result
    // of a division by zero.
    const std::string payload = movieBoxPayload();
    std::mt19937 rng(1234);
    for (int round = 0; round < 3000; ++round) {
        std::string damaged = payload;
        const int hits = 1 + static_cast<int>(rng() % 4);
        for (int i = 0; i < hits; ++i) damaged[rng() % damaged.size()] = static_cast<char>(rng() & 0xFF);
        host::mp4::VideoInfo info;
        if (parseExact(damaged, &info)) {
            EXPECT_TRUE(std::isfinite(info.frameRate)) << "round " << round;
            EXPECT_GE(info.frameRate, 0.0) << "round " << round;
        }
    }
}

TEST_F(VideoAttributes, DamageToTablesTheReaderSkipsChangesNothing) {
    // The payloads of the chunk and size tables are not read: damaging them
    // leaves the attributes as they were.
    const std::string payload = movieBoxPayload();
    std::mt19937 rng(99);
    for (const char* type : {"stsc", "stsz", "stco"}) {
        const size_t at = payload.find(type);
        ASSERT_NE(at, std::string::npos);
        const size_t size = (static_cast<unsigned char>(payload[at - 4]) << 24 | static_cast<unsigned char>(payload[at - 3]) << 16 |
                             static_cast<unsigned char>(payload[at - 2]) << 8 | static_cast<unsigned char>(payload[at - 1]));
        for (int round = 0; round < 50; ++round) {
            std::string damaged = payload;
            for (size_t i = at + 4; i < at - 4 + size; ++i) damaged[i] = static_cast<char>(rng() & 0xFF);
            host::mp4::VideoInfo info;
            ASSERT_TRUE(parseExact(damaged, &info)) << type;
            EXPECT_EQ(info.width, 1920u);
            EXPECT_EQ(info.height, 1080u);
            EXPECT_EQ(info.durationMs, 10010u);
        }
    }
}

}  // namespace
