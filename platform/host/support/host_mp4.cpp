// Bounds-checked ISO base media file reader (see host_mp4.h).
#include "host_mp4.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace host {
namespace mp4 {
namespace {

constexpr uint32_t fourcc(const char (&s)[5]) {
    return (static_cast<uint32_t>(static_cast<uint8_t>(s[0])) << 24) |
           (static_cast<uint32_t>(static_cast<uint8_t>(s[1])) << 16) |
           (static_cast<uint32_t>(static_cast<uint8_t>(s[2])) << 8) | static_cast<uint32_t>(static_cast<uint8_t>(s[3]));
}

uint16_t be16(const uint8_t* p) { return static_cast<uint16_t>((p[0] << 8) | p[1]); }
uint32_t be32(const uint8_t* p) {
    return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
           (static_cast<uint32_t>(p[2]) << 8) | p[3];
}
uint64_t be64(const uint8_t* p) { return (static_cast<uint64_t>(be32(p)) << 32) | be32(p + 4); }

// One box inside a byte range: its type and its payload.
struct Box {
    uint32_t type = 0;
    const uint8_t* body = nullptr;
    size_t length = 0;
};

// A cursor over the boxes of one byte range.
class BoxCursor {
public:
    BoxCursor(const uint8_t* data, size_t length) : m_p(data), m_end(data + length) {}

    // The next box; false at the end of the range or on a box whose size
    // does not fit in it (the rest of the range is then ignored).
    bool next(Box* box) {
        const size_t left = static_cast<size_t>(m_end - m_p);
        if (left < 8) return false;
        uint64_t size = be32(m_p);
        box->type = be32(m_p + 4);
        size_t header = 8;
        if (size == 1) {
            if (left < 16) return false;
            size = be64(m_p + 8);
            header = 16;
        } else if (size == 0) {
            size = left;  // the box runs to the end of its container
        }
        if (size < header || size > left) return false;
        box->body = m_p + header;
        box->length = static_cast<size_t>(size) - header;
        m_p += static_cast<size_t>(size);
        return true;
    }

private:
    const uint8_t* m_p;
    const uint8_t* m_end;
};

bool findChild(const Box& parent, uint32_t type, Box* child) {
    BoxCursor cursor(parent.body, parent.length);
    Box b;
    while (cursor.next(&b)) {
        if (b.type == type) {
            *child = b;
            return true;
        }
    }
    return false;
}

// mvhd and mdhd share their start: version, flags, two times, timescale,
// duration (32-bit times in version 0, 64-bit in version 1).
bool readTimescale(const Box& box, uint32_t* timescale, uint64_t* duration) {
    if (box.length < 4) return false;
    const uint8_t version = box.body[0];
    if (version == 0 && box.length >= 20) {
        *timescale = be32(box.body + 12);
        const uint32_t d = be32(box.body + 16);
        *duration = d == 0xFFFFFFFFu ? 0 : d;  // all ones: unknown
        return true;
    }
    if (version == 1 && box.length >= 32) {
        *timescale = be32(box.body + 20);
        const uint64_t d = be64(box.body + 24);
        *duration = d == ~0ull ? 0 : d;
        return true;
    }
    return false;
}

uint64_t toMilliseconds(uint64_t duration, uint32_t timescale) {
    if (timescale == 0) return 0;
    const uint64_t whole = duration / timescale;
    if (whole > UINT64_MAX / 1000 - 1) return UINT64_MAX;
    return whole * 1000 + (duration % timescale) * 1000 / timescale;
}

// Track header: width and height as 16.16 fixed point at its end.
void readTrackSize(const Box& tkhd, VideoInfo* out) {
    if (tkhd.length < 4) return;
    const size_t at = tkhd.body[0] == 1 ? 88 : tkhd.body[0] == 0 ? 76 : 0;
    if (at == 0 || tkhd.length < at + 8) return;
    out->width = be32(tkhd.body + at) >> 16;
    out->height = be32(tkhd.body + at + 4) >> 16;
}

// First visual sample entry of the sample description: 16-bit width and
// height after 24 bytes of fixed fields.
void readSampleEntrySize(const Box& stsd, VideoInfo* out) {
    if (stsd.length < 8 || be32(stsd.body + 4) == 0) return;
    BoxCursor cursor(stsd.body + 8, stsd.length - 8);
    Box entry;
    if (!cursor.next(&entry) || entry.length < 28) return;
    out->width = be16(entry.body + 24);
    out->height = be16(entry.body + 26);
}

// Time-to-sample table: samples and their total time, for the mean rate.
bool readFrameRate(const Box& stts, uint32_t timescale, double* rate) {
    *rate = 0;
    if (stts.length < 8) return false;
    const uint64_t entries = be32(stts.body + 4);
    if (entries > (stts.length - 8) / 8) return false;  // table longer than its box
    uint64_t samples = 0, ticks = 0;
    for (uint64_t i = 0; i < entries; ++i) {
        const uint8_t* e = stts.body + 8 + i * 8;
        const uint64_t count = be32(e), delta = be32(e + 4);
        if (__builtin_add_overflow(samples, count, &samples) ||
            __builtin_add_overflow(ticks, count * delta, &ticks))
            return false;
    }
    if (ticks > 0 && timescale > 0)
        *rate = static_cast<double>(samples) * timescale / static_cast<double>(ticks);
    return true;
}

bool isVideoTrack(const Box& mdia) {
    Box hdlr;
    // version and flags, pre_defined, then the handler type
    return findChild(mdia, fourcc("hdlr"), &hdlr) && hdlr.length >= 12 && be32(hdlr.body + 8) == fourcc("vide");
}

bool readVideoTrack(const Box& trak, uint32_t movieTimescale, uint64_t movieDuration, VideoInfo* out) {
    Box mdia, mdhd, tkhd, minf, stbl, box;
    if (!findChild(trak, fourcc("mdia"), &mdia) || !isVideoTrack(mdia)) return false;
    VideoInfo info;
    uint32_t timescale = 0;
    uint64_t duration = 0;
    if (!findChild(mdia, fourcc("mdhd"), &mdhd) || !readTimescale(mdhd, &timescale, &duration) || timescale == 0) {
        // Without a usable media header the movie's own clock is the best there is.
        timescale = movieTimescale;
        duration = movieDuration;
    }
    info.durationMs = toMilliseconds(duration, timescale);
    if (findChild(trak, fourcc("tkhd"), &tkhd)) readTrackSize(tkhd, &info);
    if (findChild(mdia, fourcc("minf"), &minf) && findChild(minf, fourcc("stbl"), &stbl)) {
        if ((info.width == 0 || info.height == 0) && findChild(stbl, fourcc("stsd"), &box))
            readSampleEntrySize(box, &info);
        if (findChild(stbl, fourcc("stts"), &box) && !readFrameRate(box, timescale, &info.frameRate)) return false;
    }
    *out = info;
    return true;
}

bool preadAll(int fd, void* buf, size_t len, uint64_t offset) {
    uint8_t* p = static_cast<uint8_t*>(buf);
    while (len > 0) {
        const ssize_t n = pread64(fd, p, len, static_cast<off64_t>(offset));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        p += n;
        len -= static_cast<size_t>(n);
        offset += static_cast<uint64_t>(n);
    }
    return true;
}

// Finds the top-level movie box by reading box headers only, so the media
// data (gigabytes) is never read.
bool readMovieBox(int fd, uint64_t fileSize, std::vector<uint8_t>* moov) {
    uint64_t offset = 0;
    while (fileSize - offset >= 8) {
        uint8_t h[16];
        const size_t want = fileSize - offset >= 16 ? 16 : 8;
        if (!preadAll(fd, h, want, offset)) return false;
        uint64_t size = be32(h);
        uint64_t header = 8;
        if (size == 1) {
            if (want < 16) return false;
            size = be64(h + 8);
            header = 16;
        } else if (size == 0) {
            size = fileSize - offset;
        }
        if (size < header || size > fileSize - offset) return false;
        if (be32(h + 4) == fourcc("moov")) {
            const uint64_t body = size - header;
            if (body > kMaxMovieBoxBytes) return false;
            moov->resize(static_cast<size_t>(body));
            return body == 0 || preadAll(fd, moov->data(), moov->size(), offset + header);
        }
        offset += size;
    }
    return false;
}

// The movie box of the file at path.
bool loadMovieBox(const std::string& path, std::vector<uint8_t>* moov) {
    // 64-bit offsets also on the 32-bit camera: videos pass 2 GiB.
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_LARGEFILE);
    if (fd < 0) return false;
    struct stat64 st;
    const bool ok = fstat64(fd, &st) == 0 && S_ISREG(st.st_mode) &&
                    readMovieBox(fd, static_cast<uint64_t>(st.st_size), moov);
    close(fd);
    return ok;
}

}  // namespace

bool parseMovieBox(const uint8_t* data, size_t length, VideoInfo* out) {
    if (data == nullptr || out == nullptr) return false;
    const Box moov{fourcc("moov"), data, length};
    uint32_t movieTimescale = 0;
    uint64_t movieDuration = 0;
    Box mvhd;
    if (findChild(moov, fourcc("mvhd"), &mvhd)) readTimescale(mvhd, &movieTimescale, &movieDuration);
    BoxCursor cursor(data, length);
    Box b;
    while (cursor.next(&b)) {
        if (b.type == fourcc("trak") && readVideoTrack(b, movieTimescale, movieDuration, out)) return true;
    }
    return false;
}

bool readVideoInfo(const std::string& path, VideoInfo* out) {
    std::vector<uint8_t> moov;
    return out != nullptr && loadMovieBox(path, &moov) && parseMovieBox(moov.data(), moov.size(), out);
}

bool readMovieSummary(const std::string& path, MovieSummary* out) {
    std::vector<uint8_t> moov;
    if (out == nullptr || !loadMovieBox(path, &moov)) return false;
    *out = MovieSummary();
    const Box movie{fourcc("moov"), moov.data(), moov.size()};
    Box mvhd;
    uint32_t timescale = 0;
    uint64_t duration = 0;
    if (findChild(movie, fourcc("mvhd"), &mvhd) && readTimescale(mvhd, &timescale, &duration) && timescale != 0) {
        out->timed = true;
        out->durationMs = toMilliseconds(duration, timescale);
    }
    BoxCursor cursor(moov.data(), moov.size());
    Box trak, tkhd;
    while (cursor.next(&trak)) {
        if (trak.type != fourcc("trak") || !findChild(trak, fourcc("tkhd"), &tkhd)) continue;
        VideoInfo size;
        readTrackSize(tkhd, &size);
        if (size.width != 0 && size.height != 0) {
            out->width = size.width;
            out->height = size.height;
            break;
        }
    }
    return true;
}

}  // namespace mp4
}  // namespace host
