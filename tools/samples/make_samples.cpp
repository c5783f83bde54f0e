// Writes the simulator's sample card content, made here from nothing:
//   SAM_0001.JPG  a 3000x2000 photo (a drawn landscape), so that the push's
//                 shrinking to a 1920-pixel long side is plainly visible;
//   SAM_0002.MP4  a two-second 240x160 video at 8 frames per second: an ISO
//                 base media file whose one video track holds JPEG frames
//                 (sample entry 'mp4v', object type 0x6C), which common
//                 players and the camera's video attribute reader accept.
// Usage: camwifi-make-samples OUTPUT_DIR. The results are committed in
// tools/samples/; run this only to make them again.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <jpeglib.h>  // after <cstdio>: it needs FILE and size_t

namespace {

struct Rgb {
    unsigned char r, g, b;
};

std::string encodeJpeg(const std::vector<Rgb>& pixels, int width, int height, int quality) {
    jpeg_compress_struct c;
    jpeg_error_mgr err;
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    unsigned char* out = nullptr;
    unsigned long outSize = 0;
    jpeg_mem_dest(&c, &out, &outSize);
    c.image_width = static_cast<JDIMENSION>(width);
    c.image_height = static_cast<JDIMENSION>(height);
    c.input_components = 3;
    c.in_color_space = JCS_RGB;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, quality, TRUE);
    // Huffman tables made for this picture: a flat block then costs about
    // two bits instead of seven, which keeps a 3000x2000 photo small.
    c.optimize_coding = TRUE;
    jpeg_start_compress(&c, TRUE);
    while (c.next_scanline < c.image_height) {
        JSAMPROW row = reinterpret_cast<JSAMPROW>(const_cast<Rgb*>(&pixels[c.next_scanline * width]));
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    std::string bytes(reinterpret_cast<char*>(out), outSize);
    free(out);
    return bytes;
}

unsigned char clamp(double v) { return static_cast<unsigned char>(v < 0 ? 0 : v > 255 ? 255 : v); }

// A landscape: sky gradient, a sun, two rows of hills, a lake. Smooth areas
// keep the file small at this size. sunX moves the sun (for video frames).
std::vector<Rgb> landscape(int w, int h, double sunX) {
    std::vector<Rgb> px(static_cast<size_t>(w) * h);
    for (int y = 0; y < h; ++y) {
        const double fy = static_cast<double>(y) / h;
        // Colours change in bands of 16 rows, the height of a JPEG block
        // row, so the blocks inside a band are flat and cost a few bits.
        const double band = static_cast<double>(y / 16 * 16) / h;
        for (int x = 0; x < w; ++x) {
            const double fx = static_cast<double>(x) / w;
            Rgb c{clamp(90 + 120 * band), clamp(150 + 80 * band), clamp(235 - 30 * band)};
            const double dx = (fx - sunX) * w / h, dy = fy - 0.22;
            if (dx * dx + dy * dy < 0.08 * 0.08) c = {255, 220, 90};
            const double far = 0.55 + 0.06 * std::sin(fx * 9.0) + 0.03 * std::sin(fx * 23.0);
            const double near = 0.68 + 0.05 * std::sin(fx * 5.0 + 1.3);
            if (fy > far) c = {clamp(70 + 40 * band), clamp(110 + 30 * band), clamp(90 + 20 * band)};
            if (fy > near) c = {clamp(40 + 60 * (band - near)), clamp(120 + 60 * (band - near)), 50};
            const double lx = (fx - 0.5) / 0.28, ly = (fy - 0.88) / 0.07;
            if (lx * lx + ly * ly < 1.0) c = {clamp(40 + 60 * band), clamp(90 + 50 * band), 200};
            px[static_cast<size_t>(y) * w + x] = c;
        }
    }
    return px;
}

// ---- ISO base media file pieces ----
std::string be32(uint32_t v) {
    return {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8), static_cast<char>(v)};
}
std::string be16(uint16_t v) { return {static_cast<char>(v >> 8), static_cast<char>(v)}; }
std::string zeros(size_t n) { return std::string(n, '\0'); }
std::string box(const char* type, const std::string& payload) {
    return be32(static_cast<uint32_t>(payload.size() + 8)) + type + payload;
}
std::string fullBox(const char* type, uint32_t flags, const std::string& payload) {
    return box(type, be32(flags & 0xffffff) + payload);
}
std::string matrix() {
    return be32(0x00010000) + be32(0) + be32(0) + be32(0) + be32(0x00010000) + be32(0) + be32(0) + be32(0) +
           be32(0x40000000);
}
// An MPEG-4 descriptor with a one-byte length (all ours are short).
std::string descriptor(uint8_t tag, const std::string& body) {
    return std::string(1, static_cast<char>(tag)) + static_cast<char>(body.size()) + body;
}

std::string makeVideo(int w, int h, int frames, int fps) {
    std::vector<std::string> samples;
    for (int i = 0; i < frames; ++i) samples.push_back(encodeJpeg(landscape(w, h, 0.15 + 0.7 * i / frames), w, h, 70));

    const uint32_t timescale = 1000;
    const uint32_t delta = timescale / static_cast<uint32_t>(fps);
    const uint32_t duration = delta * static_cast<uint32_t>(frames);
    const std::string ftyp = box("ftyp", std::string("isom") + be32(0x200) + "isommp41");

    std::string media;
    for (auto& s : samples) media += s;
    const std::string mdatHeader = be32(static_cast<uint32_t>(media.size() + 8)) + "mdat";
    const uint32_t firstSampleOffset = static_cast<uint32_t>(ftyp.size() + mdatHeader.size());

    const std::string mvhd = fullBox("mvhd", 0,
                                     be32(0) + be32(0) + be32(timescale) + be32(duration) + be32(0x00010000) +
                                         be16(0x0100) + zeros(10) + matrix() + zeros(24) + be32(2));
    const std::string tkhd =
        fullBox("tkhd", 3,
                be32(0) + be32(0) + be32(1) + be32(0) + be32(duration) + zeros(8) + be16(0) + be16(0) + be16(0) +
                    be16(0) + matrix() + be32(static_cast<uint32_t>(w) << 16) + be32(static_cast<uint32_t>(h) << 16));
    const std::string mdhd =
        fullBox("mdhd", 0, be32(0) + be32(0) + be32(timescale) + be32(duration) + be16(0x55c4) + be16(0));
    const std::string hdlr = fullBox("hdlr", 0, be32(0) + "vide" + zeros(12) + std::string("VideoHandler", 13));
    const std::string vmhd = fullBox("vmhd", 1, zeros(8));
    const std::string dinf = box("dinf", fullBox("dref", 0, be32(1) + fullBox("url ", 1, "")));

    // Elementary stream descriptor: object type 0x6C (JPEG), visual stream.
    const std::string decoderConfig =
        descriptor(0x04, std::string(1, '\x6c') + '\x11' + zeros(3) + be32(0) + be32(0));
    const std::string esds =
        fullBox("esds", 0, descriptor(0x03, be16(1) + std::string(1, '\0') + decoderConfig + descriptor(0x06, "\x02")));
    std::string compressor(32, '\0');
    const std::string name = "Motion JPEG";
    compressor[0] = static_cast<char>(name.size());
    compressor.replace(1, name.size(), name);
    const std::string mp4v = box("mp4v", zeros(6) + be16(1) + zeros(16) + be16(static_cast<uint16_t>(w)) +
                                             be16(static_cast<uint16_t>(h)) + be32(0x00480000) + be32(0x00480000) +
                                             be32(0) + be16(1) + compressor + be16(0x18) + be16(0xffff) + esds);
    std::string sizes;
    for (auto& s : samples) sizes += be32(static_cast<uint32_t>(s.size()));
    const std::string stbl =
        box("stbl", fullBox("stsd", 0, be32(1) + mp4v) +
                        fullBox("stts", 0, be32(1) + be32(static_cast<uint32_t>(frames)) + be32(delta)) +
                        fullBox("stsc", 0, be32(1) + be32(1) + be32(static_cast<uint32_t>(frames)) + be32(1)) +
                        fullBox("stsz", 0, be32(0) + be32(static_cast<uint32_t>(frames)) + sizes) +
                        fullBox("stco", 0, be32(1) + be32(firstSampleOffset)));
    const std::string trak = box("trak", tkhd + box("mdia", mdhd + hdlr + box("minf", vmhd + dinf + stbl)));
    const std::string moov = box("moov", mvhd + trak);
    // Media first, movie box last, as cameras write their files.
    return ftyp + mdatHeader + media + moov;
}

bool writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s OUTPUT_DIR\n", argv[0]);
        return 2;
    }
    const std::string dir = argv[1];
    const std::string photo = encodeJpeg(landscape(3000, 2000, 0.72), 3000, 2000, 75);
    const std::string video = makeVideo(240, 160, 16, 8);
    if (!writeFile(dir + "/SAM_0001.JPG", photo) || !writeFile(dir + "/SAM_0002.MP4", video)) {
        fprintf(stderr, "%s: cannot write into %s\n", argv[0], dir.c_str());
        return 1;
    }
    printf("SAM_0001.JPG %zu bytes, SAM_0002.MP4 %zu bytes\n", photo.size(), video.size());
    return 0;
}
