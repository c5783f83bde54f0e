#include "streaming_server.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <list>
#include <map>
#include <mutex>
#include <strings.h>
#include <thread>

#include "dlog.h"
#include "upnp_log.h"
#include "http_client.h"

namespace camwifi {
namespace upnp {

namespace {

constexpr size_t kMaxRequestHead = 8192;
constexpr int kRequestTimeoutMs = 10000;

bool parseU64(const std::string& s, uint64_t* out) {
    if (s.empty() || s.size() > 19) return false;
    uint64_t v = 0;
    for (char c : s) {
        if (c < '0' || c > '9') return false;
        v = v * 10 + static_cast<uint64_t>(c - '0');
    }
    *out = v;
    return true;
}

std::string trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t");
    if (b == std::string::npos) return "";
    size_t e = s.find_last_not_of(" \t\r");
    return s.substr(b, e - b + 1);
}

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return s;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

const char* reasonOf(int status) {
    switch (status) {
        case 200: return "OK";
        case 206: return "Partial Content";
        case 400: return "Bad Request";
        case 403: return "Forbidden";
        case 404: return "Not Found";
        case 405: return "Method Not Allowed";
        case 416: return "Requested Range Not Satisfiable";
        case 500: return "Internal Server Error";
        case 503: return "Service Unavailable";
    }
    return "Error";
}

}  // namespace

bool parseRequestHead(const std::string& head, StreamingRequest* out) {
    size_t end = head.find("\r\n\r\n");
    if (end == std::string::npos) return false;
    size_t lineEnd = head.find("\r\n");
    std::string requestLine = head.substr(0, lineEnd);
    size_t sp1 = requestLine.find(' '), sp2 = requestLine.rfind(' ');
    if (sp1 == std::string::npos || sp2 == sp1 || requestLine.compare(sp2 + 1, 5, "HTTP/") != 0) return false;
    out->method = requestLine.substr(0, sp1);
    out->target = requestLine.substr(sp1 + 1, sp2 - sp1 - 1);
    out->headers.clear();
    return parseHeaderLines(head, lineEnd + 2, end, &out->headers);
}

RangeKind parseRange(const std::string& headerIn, uint64_t size, uint64_t* first, uint64_t* last) {
    std::string header = trim(headerIn);
    if (header.size() < 6 || strncasecmp(header.c_str(), "bytes=", 6) != 0) return RangeKind::kWhole;
    std::string spec = trim(header.substr(6));
    if (spec.find(',') != std::string::npos) return RangeKind::kWhole;
    size_t dash = spec.find('-');
    if (dash == std::string::npos) return RangeKind::kWhole;
    std::string a = trim(spec.substr(0, dash)), b = trim(spec.substr(dash + 1));
    uint64_t from, to;
    if (a.empty()) {
        // Suffix: the last n bytes.
        if (!parseU64(b, &to)) return RangeKind::kWhole;
        if (to == 0 || size == 0) return RangeKind::kUnsatisfiable;
        *first = to >= size ? 0 : size - to;
        *last = size - 1;
        return RangeKind::kPart;
    }
    if (!parseU64(a, &from)) return RangeKind::kWhole;
    if (b.empty()) {
        to = size == 0 ? 0 : size - 1;
    } else {
        if (!parseU64(b, &to) || to < from) return RangeKind::kWhole;
        if (size > 0 && to >= size) to = size - 1;
    }
    if (from >= size) return RangeKind::kUnsatisfiable;
    *first = from;
    *last = to;
    return RangeKind::kPart;
}

std::string contentTypeFor(const std::string& path) {
    static const struct { const char* ext; const char* type; } kTypes[] = {
        {"jpg", "image/jpeg"},   {"jpeg", "image/jpeg"},       {"png", "image/png"},
        {"gif", "image/gif"},    {"bmp", "image/bmp"},         {"mp4", "video/mp4"},
        {"m4v", "video/mp4"},    {"mov", "video/quicktime"},   {"avi", "video/x-msvideo"},
        {"mts", "video/vnd.dlna.mpeg-tts"}, {"m2ts", "video/vnd.dlna.mpeg-tts"},
        {"mpg", "video/mpeg"},   {"mkv", "video/x-matroska"},  {"mp3", "audio/mpeg"},
        {"wav", "audio/wav"},    {"m4a", "audio/mp4"},
    };
    size_t dot = path.rfind('.');
    size_t slash = path.rfind('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "application/octet-stream";
    std::string ext = lower(path.substr(dot + 1));
    for (auto& t : kTypes)
        if (ext == t.ext) return t.type;
    return "application/octet-stream";
}

std::string contentFeaturesFor(const std::string& mimeType) {
    // OP=01: byte seeking; FLAGS: DLNA 1.5, streaming (video) or interactive
    // (image) transfer, background transfer.
    if (mimeType == "image/jpeg")
        return "DLNA.ORG_PN=JPEG_LRG;DLNA.ORG_OP=01;DLNA.ORG_CI=0;DLNA.ORG_FLAGS=00f00000000000000000000000000000";
    if (mimeType.compare(0, 6, "image/") == 0)
        return "DLNA.ORG_OP=01;DLNA.ORG_CI=0;DLNA.ORG_FLAGS=00f00000000000000000000000000000";
    return "DLNA.ORG_OP=01;DLNA.ORG_CI=0;DLNA.ORG_FLAGS=01700000000000000000000000000000";
}

bool decodeTargetPath(const std::string& target, std::string* path) {
    std::string raw = target.substr(0, target.find_first_of("?#"));
    if (raw.empty() || raw[0] != '/') return false;
    std::string out;
    for (size_t i = 0; i < raw.size(); ++i) {
        char c = raw[i];
        if (c == '%') {
            if (i + 2 >= raw.size()) return false;
            int h = hexDigit(raw[i + 1]), l = hexDigit(raw[i + 2]);
            if (h < 0 || l < 0) return false;
            c = static_cast<char>(h * 16 + l);
            i += 2;
        }
        if (c == '\0') return false;
        out += c;
    }
    *path = out;
    return true;
}

struct HttpStreamingServer::Impl {
    struct Client {
        std::thread thread;
        std::atomic<bool> done{false};
    };

    mutable std::mutex lock;
    bool isRunning = false;
    int listenFd = -1, stopFd = -1, listenPort = 0;
    std::vector<std::string> roots;  // real paths, each ending in "/"
    std::thread acceptThread;
    std::list<Client> clients;
    std::atomic<uint64_t> answers{0};
    std::atomic<uint64_t> bytes{0};
    // Whole files written to their last byte, by request path. A lock of its
    // own: stop() holds `lock` while it joins the client threads.
    mutable std::mutex wholeLock;
    std::map<std::string, uint64_t> wholeFiles;

    // Waits for events on fd; false on stop, timeout or error.
    bool waitFor(int fd, short events, int timeoutMs) {
        for (;;) {
            pollfd p[2] = {{fd, events, 0}, {stopFd, POLLIN, 0}};
            int n = poll(p, 2, timeoutMs);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0 || (p[1].revents & POLLIN)) return false;
            return (p[0].revents & (events | POLLHUP | POLLERR)) != 0;
        }
    }

    bool sendAll(int fd, const char* data, size_t size) {
        while (size > 0) {
            ssize_t n = send(fd, data, size, MSG_NOSIGNAL);
            if (n > 0) {
                data += n;
                size -= static_cast<size_t>(n);
                continue;
            }
            if (n < 0 && errno == EINTR) continue;
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
                if (!waitFor(fd, POLLOUT, kClientStallMs)) return false;
                continue;
            }
            return false;  // the client went away
        }
        return true;
    }

    void answerStatus(int fd, int status, const std::string& extra = "") {
        std::string head = "HTTP/1.1 " + std::to_string(status) + " " + reasonOf(status) +
                           "\r\nContent-Length: 0\r\nConnection: close\r\n" + extra + "\r\n";
        sendAll(fd, head.data(), head.size());
        ++answers;
    }

    // The real path of a request path when it lies below a media folder.
    int resolve(const std::string& path, std::string* real) {
        // A ".." segment is refused outright, whatever it would resolve to.
        size_t pos = 0;
        while (pos <= path.size()) {
            size_t next = path.find('/', pos);
            if (next == std::string::npos) next = path.size();
            if (path.compare(pos, next - pos, "..") == 0 && next - pos == 2) return 403;
            pos = next + 1;
        }
        char buf[PATH_MAX];
        if (realpath(path.c_str(), buf) == nullptr) return errno == EACCES ? 403 : 404;
        std::string r = buf;
        bool inside = false;
        for (const std::string& root : roots)
            if (r.compare(0, root.size(), root) == 0) inside = true;
        if (!inside) return 403;
        *real = r;
        return 200;
    }

    void serve(int fd) {
        std::string head;
        char buf[2048];
        auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kRequestTimeoutMs);
        while (head.find("\r\n\r\n") == std::string::npos) {
            int left = static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                            deadline - std::chrono::steady_clock::now())
                                            .count());
            if (left <= 0 || head.size() > kMaxRequestHead || !waitFor(fd, POLLIN, left)) return;
            ssize_t n = recv(fd, buf, sizeof buf, 0);
            if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
            if (n <= 0) return;
            head.append(buf, static_cast<size_t>(n));
        }
        StreamingRequest request;
        if (!parseRequestHead(head, &request)) return answerStatus(fd, 400);
        const std::string& method = request.method;
        const std::string& target = request.target;
        const auto& headers = request.headers;
        bool headOnly = method == "HEAD";
        if (method != "GET" && !headOnly) return answerStatus(fd, 405, "Allow: GET, HEAD\r\n");
        std::string path, real;
        if (!decodeTargetPath(target, &path)) return answerStatus(fd, 400);
        int status = resolve(path, &real);
        if (status != 200) return answerStatus(fd, status);
        int file = open(real.c_str(), O_RDONLY | O_CLOEXEC);
        if (file < 0) return answerStatus(fd, errno == EACCES ? 403 : 404);
        struct Closer {
            int fd;
            ~Closer() { close(fd); }
        } closer{file};
        struct stat st;
        if (fstat(file, &st) != 0 || !S_ISREG(st.st_mode)) return answerStatus(fd, 404);
        uint64_t size = static_cast<uint64_t>(st.st_size), first = 0, last = size ? size - 1 : 0;
        const std::string* rangeHeader = findHeader(headers, "Range");
        RangeKind kind = rangeHeader ? parseRange(*rangeHeader, size, &first, &last) : RangeKind::kWhole;
        if (kind == RangeKind::kUnsatisfiable)
            return answerStatus(fd, 416, "Content-Range: bytes */" + std::to_string(size) + "\r\n");
        if (kind == RangeKind::kWhole) {
            first = 0;
            last = size ? size - 1 : 0;
        }
        uint64_t length = size == 0 ? 0 : last - first + 1;
        std::string mime = contentTypeFor(real);
        std::string transferMode = mime.compare(0, 6, "image/") == 0 ? "Interactive" : "Streaming";
        if (const std::string* asked = findHeader(headers, "transferMode.dlna.org")) {
            if (*asked == "Streaming" || *asked == "Interactive" || *asked == "Background") transferMode = *asked;
        }
        int code = kind == RangeKind::kPart ? 206 : 200;
        std::string out = "HTTP/1.1 " + std::to_string(code) + " " + reasonOf(code) + "\r\n";
        out += "Content-Type: " + mime + "\r\n";
        out += "Content-Length: " + std::to_string(length) + "\r\n";
        if (code == 206)
            out += "Content-Range: bytes " + std::to_string(first) + "-" + std::to_string(last) + "/" +
                   std::to_string(size) + "\r\n";
        out += "Accept-Ranges: bytes\r\n";
        out += "transferMode.dlna.org: " + transferMode + "\r\n";
        out += "contentFeatures.dlna.org: " + contentFeaturesFor(mime) + "\r\n";
        out += "Server: Linux/1.0 UPnP/1.0 camwifi/1.0\r\nConnection: close\r\n\r\n";
        if (!sendAll(fd, out.data(), out.size())) return;
        ++answers;
        if (headOnly) return;
        std::vector<char> chunk(64 * 1024);
        uint64_t offset = first, left = length;
        while (left > 0) {
            size_t want = static_cast<size_t>(std::min<uint64_t>(left, chunk.size()));
            ssize_t n = pread(file, chunk.data(), want, static_cast<off_t>(offset));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) return;  // the file shrank: the client sees a short body
            if (!sendAll(fd, chunk.data(), static_cast<size_t>(n))) return;
            offset += static_cast<uint64_t>(n);
            left -= static_cast<uint64_t>(n);
            bytes += static_cast<uint64_t>(n);
        }
        if (first == 0 && length == size) {  // also a range that asked for all of it
            std::lock_guard<std::mutex> g(wholeLock);
            ++wholeFiles[path];
        }
    }

    void reap(bool all) {
        for (auto it = clients.begin(); it != clients.end();) {
            if (all || it->done) {
                if (it->thread.joinable()) it->thread.join();
                it = clients.erase(it);
            } else {
                ++it;
            }
        }
    }

    void acceptLoop() {
        pthread_setname_np(pthread_self(), "HTTPStreaming");
        for (;;) {
            reap(false);
            if (!waitFor(listenFd, POLLIN, 1000)) {
                pollfd p = {stopFd, POLLIN, 0};
                if (poll(&p, 1, 0) > 0) return;
                continue;
            }
            int fd = accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
            if (fd < 0) continue;
            // Clients that ended while this loop waited free their slots
            // now: counting them would refuse this one although a slot is free.
            reap(false);
            if (clients.size() >= static_cast<size_t>(kMaxStreamingClients)) {
                answerStatus(fd, 503);
                close(fd);
                continue;
            }
            clients.emplace_back();
            Client& c = clients.back();
            c.thread = std::thread([this, fd, &c] {
                pthread_setname_np(pthread_self(), "HTTPStreamClnt");
                serve(fd);
                shutdown(fd, SHUT_WR);
                close(fd);
                c.done = true;
            });
        }
    }
};

HttpStreamingServer::HttpStreamingServer() : m_impl(new Impl) {}

HttpStreamingServer::~HttpStreamingServer() { stop(); }

int HttpStreamingServer::start(int port, const std::vector<std::string>& roots) {
    Impl& m = *m_impl;
    std::lock_guard<std::mutex> g(m.lock);
    if (m.isRunning) return EBUSY;
    if (port <= 0 || port > 65535) return EINVAL;
    std::vector<std::string> real;
    for (const std::string& r : roots) {
        char buf[PATH_MAX];
        if (realpath(r.c_str(), buf) == nullptr) continue;
        std::string s = buf;
        if (s.empty() || s.back() != '/') s += '/';
        real.push_back(s);
    }
    if (real.empty()) {
        logLine(DLOG_PRIO_ERROR, "streaming server: no media folder exists");
        return ENOENT;
    }
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return errno;
    int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 || listen(fd, 64) != 0) {
        int err = errno;
        close(fd);
        logLine(DLOG_PRIO_ERROR, "streaming server: port %d: %s", port,
                     strerror(err));
        return err;
    }
    m.stopFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (m.stopFd < 0) {
        int err = errno;
        close(fd);
        return err;
    }
    m.listenFd = fd;
    m.listenPort = port;
    m.roots = real;
    m.answers = 0;
    m.bytes = 0;
    {
        std::lock_guard<std::mutex> w(m.wholeLock);
        m.wholeFiles.clear();
    }
    m.isRunning = true;
    m.acceptThread = std::thread([&m] { m.acceptLoop(); });
    return 0;
}

void HttpStreamingServer::stop() {
    Impl& m = *m_impl;
    std::lock_guard<std::mutex> g(m.lock);
    if (!m.isRunning) return;
    uint64_t one = 1;
    (void)!write(m.stopFd, &one, sizeof one);
    if (m.acceptThread.joinable()) m.acceptThread.join();
    m.reap(true);  // every client sees the stop descriptor and ends
    close(m.listenFd);
    close(m.stopFd);
    m.listenFd = m.stopFd = -1;
    m.isRunning = false;
}

bool HttpStreamingServer::running() const {
    std::lock_guard<std::mutex> g(m_impl->lock);
    return m_impl->isRunning;
}

int HttpStreamingServer::port() const {
    std::lock_guard<std::mutex> g(m_impl->lock);
    return m_impl->listenPort;
}

uint64_t HttpStreamingServer::answered() const { return m_impl->answers; }

uint64_t HttpStreamingServer::bytesSent() const { return m_impl->bytes; }

uint64_t HttpStreamingServer::wholeFilesSent(const std::string& path) const {
    std::lock_guard<std::mutex> g(m_impl->wholeLock);
    auto it = m_impl->wholeFiles.find(path);
    return it == m_impl->wholeFiles.end() ? 0 : it->second;
}

}  // namespace upnp
}  // namespace camwifi
