// A temporary camera card for the media-sharing tests: configuration, a DCIM
// folder with small pictures and a video, device icons, and a recorder of the
// media server's UI events.
#ifndef CAMWIFI_TESTS_MEDIA_FIXTURE_H
#define CAMWIFI_TESTS_MEDIA_FIXTURE_H

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "camwifi/camwifi.h"
#include "support/test_support.h"

namespace mediatest {

// One UI event: id and the parameter carried in the length slot.
using Event = std::pair<int, int>;

// Records every media server event (thread-safe).
void recordEvent(ZEB_CALLBACK_EVENT event, void* value, intptr_t length);
std::vector<Event> events();
void clearEvents();
// Waits (bounded) for the final event of a start: 4/x, 6/1 or 6/2.
bool waitForFinalEvent(int timeoutMs = 10000);

// Bytes of a baseline JPEG whose frame header says width x height.
std::string jpegBytes(int width, int height);
// Bytes of an MP4 file with a movie header of durationMs and one video track
// of width x height.
std::string mp4Bytes(int durationMs, int width, int height);
void writeFile(const std::string& path, const std::string& bytes);
std::string readFile(const std::string& path);
bool exists(const std::string& path);

class MediaTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Path inside the card tree of a fixed camera path ("/mnt/mmc/...").
    std::string path(const std::string& fixed) const { return m_root.path() + fixed; }
    // Writes UPnPConfig.xml with every key, minus those named in omit.
    void writeConfig(const std::vector<std::string>& omit = {});
    // Writes the six device icons (each with its own content).
    void writeIcons();
    // Runs the media server start on the calling thread.
    void runStart();

    std::string dcim() const { return path("/mnt/mmc/DCIM"); }
    std::string dbPath() const { return path("/mnt/mmc/config/DMS/media.db"); }
    std::string tvDbPath() const { return path("/mnt/mmc/config/DMS/tvmedia.db"); }
    std::string jpeg1() const { return dcim() + "/100CAMERA/DSC00001.JPG"; }
    std::string jpeg2() const { return dcim() + "/100CAMERA/DSC00002.JPG"; }
    std::string video() const { return dcim() + "/100CAMERA/MOV00003.MP4"; }
    std::vector<std::string> journalOf(const std::vector<std::string>& prefixes) const;

    testsupport::TempDir m_root;
};

}  // namespace mediatest

#endif
