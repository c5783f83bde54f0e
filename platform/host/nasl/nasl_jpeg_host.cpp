// Host stand-in of the application-service library's in-memory JPEG resizer:
// decodes the file with libjpeg-turbo (using its DCT scaling to decode close
// to the target size), averages the pixels down to the exact target size and
// encodes the result again.
//
// libjpeg reports errors by calling a function that must not return; here it
// jumps back to the call (setjmp/longjmp). Everything a jump may leave behind
// lives in a heap-held context that the caller releases, so no error path
// leaks and no C++ object is skipped by a jump.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

#include <jpeglib.h>
#include <jerror.h>

#include "host_internal.h"
#include "host_jpeg.h"
#include "nasl_wifi.h"

namespace {

// Pictures above this are refused rather than decoded (a 100-megapixel
// medium-format frame still passes).
constexpr unsigned long long kMaxPixels = 120ull * 1000 * 1000;
// Files above this are refused without reading them.
constexpr long long kMaxFileBytes = 256ll * 1024 * 1024;
// libjpeg's working memory (coefficient buffers of progressive files).
constexpr long kMaxDecoderMemory = 512l * 1024 * 1024;
constexpr int kQuality = 90;

std::mutex gLock;
std::set<const void*> gLive;
std::size_t gStrayFrees = 0;

void resetJpeg() {
    std::lock_guard<std::mutex> lock(gLock);
    // Buffers still held by someone stay valid; only the stray count restarts.
    gStrayFrees = 0;
}
const bool registered = (host::addResetHook(resetJpeg), true);

struct ErrorManager {
    jpeg_error_mgr pub;
    jmp_buf jump;
};

void onError(j_common_ptr cinfo) { longjmp(reinterpret_cast<ErrorManager*>(cinfo->err)->jump, 1); }
void onOutput(j_common_ptr) {}  // warnings of damaged files stay quiet

// A growing malloc buffer as libjpeg's destination; owned by the context.
struct Destination {
    jpeg_destination_mgr pub;
    unsigned char* data;
    size_t capacity;
    size_t length;
};

void destInit(j_compress_ptr cinfo) {
    Destination* d = reinterpret_cast<Destination*>(cinfo->dest);
    d->pub.next_output_byte = d->data;
    d->pub.free_in_buffer = d->capacity;
}

boolean destGrow(j_compress_ptr cinfo) {
    Destination* d = reinterpret_cast<Destination*>(cinfo->dest);
    const size_t bigger = d->capacity * 2;
    unsigned char* p = static_cast<unsigned char*>(realloc(d->data, bigger));
    if (p == nullptr) ERREXIT1(cinfo, JERR_OUT_OF_MEMORY, 0);
    d->data = p;
    d->pub.next_output_byte = p + d->capacity;
    d->pub.free_in_buffer = bigger - d->capacity;
    d->capacity = bigger;
    return TRUE;
}

void destTerm(j_compress_ptr cinfo) {
    Destination* d = reinterpret_cast<Destination*>(cinfo->dest);
    d->length = d->capacity - d->pub.free_in_buffer;
}

// Everything one resize holds; released by ~Context on every path.
struct Context {
    std::vector<unsigned char> file;   // the JPEG as read from the card
    unsigned char* pixels = nullptr;   // decoded (DCT-scaled) picture, malloc
    unsigned char* scaled = nullptr;   // picture at the target size, malloc
    Destination dest{};                // encoded output (data is malloc)
    unsigned width = 0, height = 0;    // of pixels
    unsigned outWidth = 0, outHeight = 0;
    int components = 0;
    J_COLOR_SPACE space = JCS_RGB;
    ~Context() {
        free(pixels);
        free(scaled);
        free(dest.data);
    }
};

bool readFile(const char* path, std::vector<unsigned char>* out) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_LARGEFILE);
    if (fd < 0) return false;
    struct stat64 st;
    bool ok = fstat64(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0 && st.st_size <= kMaxFileBytes;
    if (ok) {
        out->resize(static_cast<size_t>(st.st_size));
        size_t got = 0;
        while (ok && got < out->size()) {
            const ssize_t n = read(fd, out->data() + got, out->size() - got);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) ok = false;
            else got += static_cast<size_t>(n);
        }
    }
    close(fd);
    return ok;
}

// The target keeps the aspect ratio with the long side at longSide.
void targetSize(unsigned w, unsigned h, unsigned longSide, unsigned* tw, unsigned* th) {
    if (w >= h) {
        *tw = longSide;
        *th = std::max(1u, static_cast<unsigned>((static_cast<unsigned long long>(h) * longSide + w / 2) / w));
    } else {
        *th = longSide;
        *tw = std::max(1u, static_cast<unsigned>((static_cast<unsigned long long>(w) * longSide + h / 2) / h));
    }
}

// 1: decoded into ctx->pixels; 0: not a usable JPEG; -1: small enough already.
int decode(Context* ctx, unsigned longSide) {
    jpeg_decompress_struct cinfo;
    ErrorManager err;
    cinfo.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = onError;
    err.pub.output_message = onOutput;
    if (setjmp(err.jump)) {
        jpeg_destroy_decompress(&cinfo);
        return 0;
    }
    jpeg_create_decompress(&cinfo);
    cinfo.mem->max_memory_to_use = kMaxDecoderMemory;
    jpeg_mem_src(&cinfo, ctx->file.data(), static_cast<unsigned long>(ctx->file.size()));
    if (jpeg_read_header(&cinfo, TRUE) != JPEG_HEADER_OK ||
        static_cast<unsigned long long>(cinfo.image_width) * cinfo.image_height > kMaxPixels ||
        cinfo.jpeg_color_space == JCS_CMYK || cinfo.jpeg_color_space == JCS_YCCK) {
        jpeg_destroy_decompress(&cinfo);
        return 0;
    }
    if (std::max(cinfo.image_width, cinfo.image_height) <= longSide) {
        jpeg_destroy_decompress(&cinfo);
        return -1;
    }
    targetSize(cinfo.image_width, cinfo.image_height, longSide, &ctx->outWidth, &ctx->outHeight);
    ctx->space = cinfo.num_components == 1 ? JCS_GRAYSCALE : JCS_RGB;
    cinfo.out_color_space = ctx->space;
    // The smallest DCT scaling (n/8) that still decodes at least the target
    // size; the rest is averaged down below.
    cinfo.scale_denom = 8;
    for (unsigned n = 1; n <= 8; ++n) {
        cinfo.scale_num = n;
        jpeg_calc_output_dimensions(&cinfo);
        if (cinfo.output_width >= ctx->outWidth && cinfo.output_height >= ctx->outHeight) break;
    }
    jpeg_start_decompress(&cinfo);
    ctx->width = cinfo.output_width;
    ctx->height = cinfo.output_height;
    ctx->components = cinfo.output_components;
    const size_t stride = static_cast<size_t>(ctx->width) * ctx->components;
    ctx->pixels = static_cast<unsigned char*>(malloc(stride * ctx->height));
    if (ctx->pixels == nullptr) ERREXIT1(&cinfo, JERR_OUT_OF_MEMORY, 1);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = ctx->pixels + stride * cinfo.output_scanline;
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return 1;
}

// Area average: each target pixel is the mean of the source pixels it covers.
bool scaleDown(Context* ctx) {
    const unsigned sw = ctx->width, sh = ctx->height, tw = ctx->outWidth, th = ctx->outHeight;
    const int c = ctx->components;
    ctx->scaled = static_cast<unsigned char*>(malloc(static_cast<size_t>(tw) * th * c));
    if (ctx->scaled == nullptr) return false;
    std::vector<unsigned> x0(tw), x1(tw);
    for (unsigned x = 0; x < tw; ++x) {
        x0[x] = static_cast<unsigned>(static_cast<unsigned long long>(x) * sw / tw);
        x1[x] = std::max(x0[x] + 1, static_cast<unsigned>(static_cast<unsigned long long>(x + 1) * sw / tw));
    }
    std::vector<unsigned long> sum(static_cast<size_t>(tw) * c);
    for (unsigned y = 0; y < th; ++y) {
        const unsigned y0 = static_cast<unsigned>(static_cast<unsigned long long>(y) * sh / th);
        const unsigned y1 = std::max(y0 + 1, static_cast<unsigned>(static_cast<unsigned long long>(y + 1) * sh / th));
        std::fill(sum.begin(), sum.end(), 0);
        for (unsigned sy = y0; sy < y1; ++sy) {
            const unsigned char* row = ctx->pixels + static_cast<size_t>(sy) * sw * c;
            for (unsigned x = 0; x < tw; ++x)
                for (unsigned sx = x0[x]; sx < x1[x]; ++sx)
                    for (int k = 0; k < c; ++k) sum[static_cast<size_t>(x) * c + k] += row[static_cast<size_t>(sx) * c + k];
        }
        unsigned char* out = ctx->scaled + static_cast<size_t>(y) * tw * c;
        for (unsigned x = 0; x < tw; ++x) {
            const unsigned long area = static_cast<unsigned long>(x1[x] - x0[x]) * (y1 - y0);
            for (int k = 0; k < c; ++k)
                out[static_cast<size_t>(x) * c + k] =
                    static_cast<unsigned char>((sum[static_cast<size_t>(x) * c + k] + area / 2) / area);
        }
    }
    return true;
}

bool encode(Context* ctx) {
    jpeg_compress_struct cinfo;
    ErrorManager err;
    cinfo.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = onError;
    err.pub.output_message = onOutput;
    if (setjmp(err.jump)) {
        jpeg_destroy_compress(&cinfo);
        return false;
    }
    jpeg_create_compress(&cinfo);
    ctx->dest.capacity = 64 * 1024;
    ctx->dest.data = static_cast<unsigned char*>(malloc(ctx->dest.capacity));
    if (ctx->dest.data == nullptr) ERREXIT1(&cinfo, JERR_OUT_OF_MEMORY, 2);
    ctx->dest.pub.init_destination = destInit;
    ctx->dest.pub.empty_output_buffer = destGrow;
    ctx->dest.pub.term_destination = destTerm;
    cinfo.dest = &ctx->dest.pub;
    cinfo.image_width = ctx->outWidth;
    cinfo.image_height = ctx->outHeight;
    cinfo.input_components = ctx->components;
    cinfo.in_color_space = ctx->space;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, kQuality, TRUE);
    jpeg_start_compress(&cinfo, TRUE);
    const size_t stride = static_cast<size_t>(ctx->outWidth) * ctx->components;
    while (cinfo.next_scanline < cinfo.image_height) {
        JSAMPROW row = ctx->scaled + stride * cinfo.next_scanline;
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
    return true;
}

// Hands a malloc buffer out and records it as live.
char* handOut(unsigned char* data) {
    std::lock_guard<std::mutex> lock(gLock);
    gLive.insert(data);
    return reinterpret_cast<char*>(data);
}

}  // namespace

int host::jpeg::longSideOf(int pixel) {
    switch (pixel) {
    case WIFI_RESIZE_PIXEL_1920: return 1920;
    case WIFI_RESIZE_PIXEL_640: return 640;
    default: return 0;
    }
}

std::size_t host::jpeg::liveResizeBuffers() {
    std::lock_guard<std::mutex> lock(gLock);
    return gLive.size();
}

std::size_t host::jpeg::strayResizeFrees() {
    std::lock_guard<std::mutex> lock(gLock);
    return gStrayFrees;
}

int NASLWifi_jpegResizeInMemory(char* path, WIFI_RESIZE_PIXEL pixel, char*& out, int& outLength) {
    host::journal("NASLWifi_jpegResizeInMemory(%s, %d)", path ? path : "(null)", static_cast<int>(pixel));
    out = nullptr;
    outLength = 0;
    long long scripted;
    // A scripted 0 plays a failure of the service; otherwise the real resize.
    if (host::takeScriptedResult("NASLWifi_jpegResizeInMemory", &scripted) && scripted == 0) return 0;
    const int longSide = host::jpeg::longSideOf(pixel);
    if (path == nullptr || longSide == 0) return 0;
    std::unique_ptr<Context> ctx(new Context);
    if (!readFile(path, &ctx->file)) return 0;
    const int decoded = decode(ctx.get(), static_cast<unsigned>(longSide));
    if (decoded == 0) return 0;
    unsigned char* result;
    size_t length;
    if (decoded < 0) {
        // Not larger than the target: the picture is handed back as it is.
        if (ctx->file.size() > 0x7FFFFFFF) return 0;
        result = static_cast<unsigned char*>(malloc(ctx->file.size()));
        if (result == nullptr) return 0;
        memcpy(result, ctx->file.data(), ctx->file.size());
        length = ctx->file.size();
    } else {
        if (!scaleDown(ctx.get()) || !encode(ctx.get()) || ctx->dest.length > 0x7FFFFFFF) return 0;
        result = ctx->dest.data;
        length = ctx->dest.length;
        ctx->dest.data = nullptr;  // handed out below
    }
    out = handOut(result);
    outLength = static_cast<int>(length);
    return 1;
}

extern "C" void NASLWifi_jpegResizeFree(char* buffer) {
    host::journal("NASLWifi_jpegResizeFree(%s)", buffer ? "buffer" : "(null)");
    if (buffer == nullptr) return;
    {
        std::lock_guard<std::mutex> lock(gLock);
        if (gLive.erase(buffer) == 0) {
            ++gStrayFrees;
            return;
        }
    }
    free(buffer);
}
