// A small reader of ISO base media files (MP4): just enough of the movie
// header to tell a video's picture size, frame rate and playing time. Used by
// the host stand-ins of the application-service library's video attributes
// and of the DLNA stack's media scanner.
//
// Every length in the file is checked against the bytes that hold it, so a
// truncated or hostile file yields "not readable", never a read out of
// bounds; the movie box is read whole only up to kMaxMovieBoxBytes.
#ifndef CAMWIFI_HOST_MP4_H
#define CAMWIFI_HOST_MP4_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace host {
namespace mp4 {

// Movie boxes larger than this are refused (an hour of 60 fps video needs a
// few megabytes of sample tables).
constexpr uint64_t kMaxMovieBoxBytes = 64ull * 1024 * 1024;

struct VideoInfo {
    uint32_t width = 0;        // pixels, from the track header (or the sample entry)
    uint32_t height = 0;       // pixels
    double frameRate = 0;      // samples per second over the whole track
    uint64_t durationMs = 0;   // the video track's playing time in milliseconds
};

// Reads the first video track of the MP4 file at path. False when the file
// cannot be opened, is malformed where the reader looks, or has no video track.
bool readVideoInfo(const std::string& path, VideoInfo* out);

// The same for the payload of a movie box ('moov') held in memory.
bool parseMovieBox(const uint8_t* data, size_t length, VideoInfo* out);

// What a media scanner lists of a movie: the whole movie's playing time (its
// movie header) and the first picture size a track header gives.
struct MovieSummary {
    bool timed = false;        // the movie header gave a timescale
    uint64_t durationMs = 0;   // playing time in milliseconds, when timed
    uint32_t width = 0;        // pixels; 0 when no track header gives a size
    uint32_t height = 0;
};

// Reads the summary of the MP4 file at path; false when the file cannot be
// opened or has no readable movie box.
bool readMovieSummary(const std::string& path, MovieSummary* out);

}  // namespace mp4
}  // namespace host

#endif
