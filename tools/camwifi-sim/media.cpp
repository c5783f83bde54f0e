#include "media.h"

#include <sys/stat.h>

#include <cerrno>
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include <jpeglib.h>  // after <cstdio>: it needs FILE and size_t

namespace camsim {

namespace {

const int kLongSide = 1920;

struct JpegError {
    jpeg_error_mgr mgr;
    jmp_buf jump;
};

void onJpegError(j_common_ptr c) { longjmp(reinterpret_cast<JpegError*>(c->err)->jump, 1); }

}  // namespace

std::string baseName(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool readWholeFile(const std::string& path, std::string* bytes) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream s;
    s << in.rdbuf();
    *bytes = s.str();
    return !in.bad();
}

unsigned long long fileSize(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? static_cast<unsigned long long>(st.st_size) : 0;
}

bool checkPushable(const std::string& path, MediaKind* kind, std::string* why) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) {
        *why = (errno == ENOENT ? "no such file: " : "cannot read " + path + ": ") +
               (errno == ENOENT ? path : std::string(strerror(errno)));
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        *why = "not a file: " + path;
        return false;
    }
    FILE* f = fopen(path.c_str(), "rb");
    if (f == nullptr) {
        *why = "cannot read " + path + ": " + strerror(errno);
        return false;
    }
    unsigned char head[12] = {0};
    const size_t n = fread(head, 1, sizeof head, f);
    fclose(f);
    if (n >= 3 && head[0] == 0xff && head[1] == 0xd8 && head[2] == 0xff) {
        *kind = MediaKind::Photo;
        return true;
    }
    if (n >= 8 && memcmp(head + 4, "ftyp", 4) == 0) {
        *kind = MediaKind::Video;
        return true;
    }
    *why = "not a picture or video: " + path + " (the camera pushes JPEG photos and MP4 videos)";
    return false;
}

bool decodeJpegSize(const std::string& path, int* width, int* height) {
    FILE* f = fopen(path.c_str(), "rb");
    if (f == nullptr) return false;
    jpeg_decompress_struct c;
    JpegError err;
    c.err = jpeg_std_error(&err.mgr);
    err.mgr.error_exit = onJpegError;
    err.mgr.output_message = [](j_common_ptr) {};
    if (setjmp(err.jump)) {
        jpeg_destroy_decompress(&c);
        fclose(f);
        return false;
    }
    jpeg_create_decompress(&c);
    jpeg_stdio_src(&c, f);
    jpeg_read_header(&c, TRUE);
    jpeg_start_decompress(&c);
    std::vector<unsigned char> row(static_cast<size_t>(c.output_width) * c.output_components);
    while (c.output_scanline < c.output_height) {
        JSAMPROW p = row.data();
        jpeg_read_scanlines(&c, &p, 1);
    }
    *width = static_cast<int>(c.output_width);
    *height = static_cast<int>(c.output_height);
    jpeg_finish_decompress(&c);
    jpeg_destroy_decompress(&c);
    fclose(f);
    return true;
}

void resizedSize(int width, int height, int* outWidth, int* outHeight) {
    const int longSide = width > height ? width : height;
    if (longSide <= kLongSide) {
        *outWidth = width;
        *outHeight = height;
        return;
    }
    *outWidth = width >= height ? kLongSide : static_cast<int>(static_cast<long long>(width) * kLongSide / height);
    *outHeight = width >= height ? static_cast<int>(static_cast<long long>(height) * kLongSide / width) : kLongSide;
}

}  // namespace camsim
