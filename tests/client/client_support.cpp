#include "client_support.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include <jpeglib.h>

#include "support/tcp_peer.h"

namespace clienttest {
namespace {

int64_t nowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

// ---- Receiver ------------------------------------------------------------------

Receiver::Receiver(Script script, int connections) : m_script(std::move(script)), m_connections(connections) {
    m_listen = testsupport::listenLoopback(&m_port);
    if (m_listen < 0) {
        ADD_FAILURE() << "cannot listen on loopback";
        return;
    }
    m_thread = std::thread(&Receiver::run, this);
}

Receiver::~Receiver() {
    m_stop = true;
    wait();
    if (m_listen >= 0) close(m_listen);
}

void Receiver::wait() {
    if (m_thread.joinable()) m_thread.join();
}

void Receiver::run() {
    const int64_t giveUp = nowMs() + 30000;
    for (int served = 0; served < m_connections && !m_stop.load();) {
        if (nowMs() > giveUp) return;
        pollfd p{m_listen, POLLIN, 0};
        if (poll(&p, 1, 100) <= 0) continue;
        const int fd = accept(m_listen, nullptr, nullptr);
        if (fd < 0) continue;
        ++m_accepted;
        ++served;
        m_script(fd);
        close(fd);
    }
}

long long contentLength(const std::string& head) {
    const std::string key = "\r\nContent-Length: ";
    const size_t at = head.find(key);
    if (at == std::string::npos) return -1;
    return std::stoll(head.substr(at + key.size()));
}

std::string recvExactly(int fd, size_t n, int timeoutMs) {
    std::string out;
    const int64_t deadline = nowMs() + timeoutMs;
    std::vector<char> buf(256 * 1024);
    while (out.size() < n) {
        const int64_t left = deadline - nowMs();
        if (left <= 0) break;
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(left)) <= 0) break;
        const ssize_t got = recv(fd, buf.data(), std::min(buf.size(), n - out.size()), 0);
        if (got <= 0) break;
        out.append(buf.data(), static_cast<size_t>(got));
    }
    return out;
}

Receiver::Script acceptingPhone(Received* out, const std::string& reply) {
    return [out, reply](int fd) {
        out->head = testsupport::recvUntil(fd, "\r\n\r\n", 10000);
        const long long length = contentLength(out->head);
        if (length < 0) return;
        testsupport::sendAll(fd, "HTTP/1.1 100 Continue\r\n\r\n");
        out->body = recvExactly(fd, static_cast<size_t>(length), 60000);
        if (static_cast<long long>(out->body.size()) != length) {
            out->closedEarly = true;
            return;
        }
        testsupport::sendAll(fd, reply);
        // Wait for the camera to close its side.
        testsupport::peerClosed(fd, 5000);
    };
}

Receiver::Script stallingPhone(size_t taken, std::atomic<bool>* stalled, std::atomic<bool>* release) {
    return [taken, stalled, release](int fd) {
        // A small window: the camera's sends block soon after the phone stops.
        const int small = 4096;
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
        testsupport::recvUntil(fd, "\r\n\r\n", 10000);
        testsupport::sendAll(fd, "HTTP/1.1 100 Continue\r\n\r\n");
        recvExactly(fd, taken, 10000);
        stalled->store(true);
        for (int i = 0; i < 6000 && !release->load(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    };
}

ClosedLoopbackPort::ClosedLoopbackPort() {
    m_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    if (m_fd < 0 || bind(m_fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
        getsockname(m_fd, reinterpret_cast<sockaddr*>(&a), &len) != 0)
        ADD_FAILURE() << "cannot bind a loopback port";
    m_port = ntohs(a.sin_port);
}

ClosedLoopbackPort::~ClosedLoopbackPort() {
    if (m_fd >= 0) close(m_fd);
}

int baselineThreadCount() {
    std::thread([] {}).join();
    return testsupport::threadCount();
}

int countThreadsNamed(const std::string& name) {
    DIR* d = opendir("/proc/self/task");
    if (d == nullptr) return -1;
    int n = 0;
    while (dirent* e = readdir(d)) {
        if (e->d_name[0] == '.') continue;
        std::ifstream comm(std::string("/proc/self/task/") + e->d_name + "/comm");
        std::string line;
        std::getline(comm, line);
        if (line == name) ++n;
    }
    closedir(d);
    return n;
}

// ---- Events --------------------------------------------------------------------

bool isFinal(eSPNotifyClntEvent e) { return e >= EVENT_CLIENT_TRANSFER_COMPLETE && e <= EVENT_CLIENT_NOT_SUPPORTED_FILE; }

void EventLog::add(eSPNotifyClntEvent event, int value, const char* mac) {
    std::lock_guard<std::mutex> lock(m_lock);
    m_events.push_back({event, value, mac ? mac : ""});
    m_cv.notify_all();
}

std::vector<Event> EventLog::all() {
    std::lock_guard<std::mutex> lock(m_lock);
    return m_events;
}

std::vector<Event> EventLog::of(const std::string& mac) {
    std::vector<Event> out;
    for (const Event& e : all())
        if (e.mac == mac) out.push_back(e);
    return out;
}

bool EventLog::waitFinals(int count, int timeoutMs, const std::string& mac) {
    std::unique_lock<std::mutex> lock(m_lock);
    return m_cv.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
        int n = 0;
        for (const Event& e : m_events)
            if (isFinal(e.event) && (mac.empty() || e.mac == mac)) ++n;
        return n >= count;
    });
}

bool EventLog::waitFor(eSPNotifyClntEvent event, int timeoutMs, const std::string& mac) {
    std::unique_lock<std::mutex> lock(m_lock);
    return m_cv.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
        for (const Event& e : m_events)
            if (e.event == event && (mac.empty() || e.mac == mac)) return true;
        return false;
    });
}

void EventLog::clear() {
    std::lock_guard<std::mutex> lock(m_lock);
    m_events.clear();
}

void RecordingNotifier::notifyServiceStatus(eSPNotifyClntEvent event, int reserved, SvcClientNotifyInfo* info) {
    if (reserved != 0) ++reservedNonZero;
    m_log->add(event, info ? info->value : -1, info ? info->mac : "(no info)");
}

EventLog& callbackLog() {
    static EventLog log;
    return log;
}

void recordCallback(eSPNotifyClntEvent event, stSPClntInfo* info) {
    callbackLog().add(event, info ? info->value : -1, info ? info->mac : "(no info)");
}

void expectOneTransfer(const std::vector<Event>& events, eSPNotifyClntEvent final) {
    ASSERT_FALSE(events.empty());
    int finals = 0, starts = 0;
    for (size_t i = 0; i < events.size(); ++i) {
        const Event& e = events[i];
        if (isFinal(e.event)) {
            ++finals;
            EXPECT_EQ(i, events.size() - 1) << "a final event that is not the last";
        } else if (e.event == EVENT_CLIENT_TRANSFER_START) {
            ++starts;
            EXPECT_EQ(i, 0u) << "START after other events";
        } else {
            EXPECT_EQ(e.event, EVENT_CLIENT_TRANSFER_PROGRESS);
        }
    }
    EXPECT_EQ(finals, 1);
    EXPECT_LE(starts, 1);
    EXPECT_EQ(events.back().event, final);
}

// ---- Test data -----------------------------------------------------------------

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream f(path, std::ios::binary);
    f.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string readFile(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

bool makeSparseFile(const std::string& path, unsigned long long size) {
    const int fd = open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC | O_LARGEFILE, 0600);
    if (fd < 0) return false;
    const bool ok = ftruncate64(fd, static_cast<off64_t>(size)) == 0;
    close(fd);
    return ok;
}

namespace {

struct JpegError {
    jpeg_error_mgr pub;
    jmp_buf jump;
};
void jpegFail(j_common_ptr c) { longjmp(reinterpret_cast<JpegError*>(c->err)->jump, 1); }
void jpegQuiet(j_common_ptr) {}

std::string encode(int width, int height, int components, const std::vector<unsigned char>& pixels, int quality) {
    jpeg_compress_struct c;
    jpeg_error_mgr err;
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&c, &out, &size);
    c.image_width = static_cast<JDIMENSION>(width);
    c.image_height = static_cast<JDIMENSION>(height);
    c.input_components = components;
    c.in_color_space = components == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, quality, TRUE);
    jpeg_start_compress(&c, TRUE);
    const size_t stride = static_cast<size_t>(width) * components;
    while (c.next_scanline < c.image_height) {
        JSAMPROW row = const_cast<unsigned char*>(pixels.data()) + stride * c.next_scanline;
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    std::string bytes(reinterpret_cast<char*>(out), size);
    free(out);
    return bytes;
}

// Decodes bytes; false when libjpeg refuses them.
bool decode(const std::string& bytes, int* width, int* height, int* components, std::vector<unsigned char>* pixels) {
    jpeg_decompress_struct d;
    JpegError err;
    d.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = jpegFail;
    err.pub.output_message = jpegQuiet;
    if (setjmp(err.jump)) {
        jpeg_destroy_decompress(&d);
        return false;
    }
    jpeg_create_decompress(&d);
    jpeg_mem_src(&d, reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<unsigned long>(bytes.size()));
    jpeg_read_header(&d, TRUE);
    jpeg_start_decompress(&d);
    *width = static_cast<int>(d.output_width);
    *height = static_cast<int>(d.output_height);
    if (components) *components = d.output_components;
    if (pixels) {
        const size_t stride = static_cast<size_t>(d.output_width) * d.output_components;
        pixels->resize(stride * d.output_height);
        while (d.output_scanline < d.output_height) {
            JSAMPROW row = pixels->data() + stride * d.output_scanline;
            jpeg_read_scanlines(&d, &row, 1);
        }
    } else {
        jpeg_abort_decompress(&d);
    }
    if (pixels) jpeg_finish_decompress(&d);
    jpeg_destroy_decompress(&d);
    return true;
}

}  // namespace

std::string makeJpeg(int width, int height, bool grey, int quality) {
    const int c = grey ? 1 : 3;
    std::vector<unsigned char> pixels(static_cast<size_t>(width) * height * c);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int k = 0; k < c; ++k)
                pixels[(static_cast<size_t>(y) * width + x) * c + k] =
                    static_cast<unsigned char>((x * 255 / width + y * 255 / height + k * 80) & 0xFF);
    return encode(width, height, c, pixels, quality);
}

std::string makeSolidJpeg(int width, int height, unsigned char r, unsigned char g, unsigned char b) {
    std::vector<unsigned char> pixels(static_cast<size_t>(width) * height * 3);
    for (size_t i = 0; i < pixels.size(); i += 3) {
        pixels[i] = r;
        pixels[i + 1] = g;
        pixels[i + 2] = b;
    }
    return encode(width, height, 3, pixels, 90);
}

bool jpegSize(const std::string& bytes, int* width, int* height, int* components) {
    return decode(bytes, width, height, components, nullptr);
}

bool jpegMean(const std::string& bytes, double mean[3]) {
    int w = 0, h = 0, c = 0;
    std::vector<unsigned char> pixels;
    if (!decode(bytes, &w, &h, &c, &pixels) || c != 3) return false;
    double sum[3] = {0, 0, 0};
    for (size_t i = 0; i < pixels.size(); i += 3)
        for (int k = 0; k < 3; ++k) sum[k] += pixels[i + k];
    const double n = static_cast<double>(pixels.size() / 3);
    for (int k = 0; k < 3; ++k) mean[k] = sum[k] / n;
    return true;
}

std::string be32(uint32_t v) {
    const char b[4] = {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8),
                       static_cast<char>(v)};
    return std::string(b, 4);
}

std::string be16(uint16_t v) {
    const char b[2] = {static_cast<char>(v >> 8), static_cast<char>(v)};
    return std::string(b, 2);
}

std::string box(const char* type, const std::string& payload) {
    return be32(static_cast<uint32_t>(payload.size() + 8)) + std::string(type, 4) + payload;
}

std::string fullBox(const char* type, uint8_t version, uint32_t flags, const std::string& payload) {
    return box(type, be32((static_cast<uint32_t>(version) << 24) | (flags & 0xFFFFFF)) + payload);
}

namespace {

std::string matrix() {
    return be32(0x00010000) + be32(0) + be32(0) + be32(0) + be32(0x00010000) + be32(0) + be32(0) + be32(0) +
           be32(0x40000000);
}

std::string zeros(size_t n) { return std::string(n, '\0'); }

std::string trak(const Mp4Spec& s, bool video) {
    const uint64_t duration = static_cast<uint64_t>(s.samples) * s.delta;
    const uint32_t w = video && s.sizeInTrackHeader ? s.width << 16 : 0;
    const uint32_t h = video && s.sizeInTrackHeader ? s.height << 16 : 0;
    std::string tkhd;
    if (s.version1)
        tkhd = fullBox("tkhd", 1, 7, zeros(8) + zeros(8) + be32(1) + zeros(4) + zeros(8) + zeros(8) + zeros(8) +
                                         matrix() + be32(w) + be32(h));
    else
        tkhd = fullBox("tkhd", 0, 7, zeros(4) + zeros(4) + be32(1) + zeros(4) + be32(static_cast<uint32_t>(duration)) +
                                         zeros(8) + zeros(8) + matrix() + be32(w) + be32(h));
    std::string mdhd;
    if (s.version1)
        mdhd = fullBox("mdhd", 1, 0,
                       zeros(8) + zeros(8) + be32(s.timescale) + be32(static_cast<uint32_t>(duration >> 32)) +
                           be32(static_cast<uint32_t>(duration)) + be16(0x55c4) + be16(0));
    else
        mdhd = fullBox("mdhd", 0, 0,
                       zeros(8) + be32(s.timescale) + be32(static_cast<uint32_t>(duration)) + be16(0x55c4) + be16(0));
    const std::string hdlr =
        fullBox("hdlr", 0, 0, zeros(4) + (video ? "vide" : "soun") + zeros(12) + std::string("Handler\0", 8));
    std::string entry;
    if (video)
        entry = box("avc1", zeros(6) + be16(1) + zeros(16) + be16(static_cast<uint16_t>(s.width)) +
                                be16(static_cast<uint16_t>(s.height)) + be32(0x00480000) + be32(0x00480000) +
                                zeros(4) + be16(1) + zeros(32) + be16(0x18) + be16(0xFFFF));
    else
        entry = box("mp4a", zeros(6) + be16(1) + zeros(8) + be16(2) + be16(16) + zeros(4) + be32(48000u << 16));
    const std::string stsd = fullBox("stsd", 0, 0, be32(1) + entry);
    // Two runs of samples, as an edited clip has.
    const uint32_t first = s.samples / 2;
    const std::string stts =
        fullBox("stts", 0, 0, be32(2) + be32(first) + be32(s.delta) + be32(s.samples - first) + be32(s.delta));
    const std::string stbl = box("stbl", stsd + stts + fullBox("stsc", 0, 0, be32(0)) +
                                              fullBox("stsz", 0, 0, be32(0) + be32(0)) + fullBox("stco", 0, 0, be32(0)));
    const std::string media = video ? fullBox("vmhd", 0, 1, zeros(8)) : fullBox("smhd", 0, 0, zeros(4));
    const std::string dinf = box("dinf", fullBox("dref", 0, 0, be32(1) + fullBox("url ", 0, 1, "")));
    const std::string minf = box("minf", media + dinf + stbl);
    return box("trak", tkhd + box("mdia", mdhd + hdlr + minf));
}

}  // namespace

std::string movieBoxPayload(const Mp4Spec& s) {
    const std::string mvhd = fullBox("mvhd", 0, 0,
                                     zeros(8) + be32(1000) + be32(10000) + be32(0x00010000) + be16(0x0100) +
                                         zeros(10) + matrix() + zeros(24) + be32(3));
    std::string payload = mvhd;
    if (s.audioTrackFirst) payload += trak(s, false);
    payload += trak(s, true);
    return payload;
}

std::string makeMp4(const Mp4Spec& s) {
    const std::string ftyp = box("ftyp", std::string("isom") + be32(0x200) + "isomiso2avc1mp41");
    const std::string moov = box("moov", movieBoxPayload(s));
    std::string mdat;
    const std::string media(s.mediaBytes, '\x5a');
    if (s.largeMediaBox)
        mdat = be32(1) + "mdat" + be32(0) + be32(static_cast<uint32_t>(media.size() + 16)) + media;
    else
        mdat = box("mdat", media);
    return s.movieBoxLast ? ftyp + mdat + moov : ftyp + moov + mdat;
}

}  // namespace clienttest
