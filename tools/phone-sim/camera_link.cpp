#include "camera_link.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "output.h"

namespace phonesim {

namespace {

using Clock = std::chrono::steady_clock;

int remainingMs(Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left < 0 ? 0 : static_cast<int>(left);
}

// Waits for events on fd in slices, so that a stop signal ends the wait.
// 1 ready, 0 time-out or stop, -1 error.
int waitFor(int fd, short events, Clock::time_point deadline) {
    for (;;) {
        if (stopRequested()) return 0;
        const int left = remainingMs(deadline);
        if (left == 0) return 0;
        pollfd p{fd, events, 0};
        const int rc = poll(&p, 1, left < 100 ? left : 100);
        if (rc > 0) return 1;
        if (rc < 0 && errno != EINTR) return -1;
    }
}

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string trim(const std::string& s) {
    size_t b = 0, e = s.size();
    while (b < e && (s[b] == ' ' || s[b] == '\t')) ++b;
    while (e > b && (s[e - 1] == ' ' || s[e - 1] == '\t')) --e;
    return s.substr(b, e - b);
}

}  // namespace

std::string Reply::header(const std::string& lowerName) const {
    auto it = headers.find(lowerName);
    return it == headers.end() ? "" : it->second;
}

std::string Reply::statusLine() const { return std::to_string(status) + (reason.empty() ? "" : " " + reason); }

bool parseReplyHead(const std::string& head, Reply* out) {
    size_t end = head.find("\r\n");
    const std::string first = head.substr(0, end);
    if (first.compare(0, 5, "HTTP/") != 0) return false;
    const size_t sp = first.find(' ');
    if (sp == std::string::npos) return false;
    const std::string rest = first.substr(sp + 1);
    if (rest.size() < 3 || !isdigit(static_cast<unsigned char>(rest[0]))) return false;
    out->status = atoi(rest.c_str());
    const size_t sp2 = rest.find(' ');
    out->reason = sp2 == std::string::npos ? "" : trim(rest.substr(sp2 + 1));
    while (end != std::string::npos) {
        const size_t start = end + 2;
        end = head.find("\r\n", start);
        const std::string line = head.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (line.empty()) break;
        const size_t colon = line.find(':');
        if (colon == std::string::npos) continue;
        out->headers[lower(trim(line.substr(0, colon)))] = trim(line.substr(colon + 1));
    }
    return true;
}

Reply exchange(const std::string& fromIp, const std::string& host, int port, const std::string& request,
               int timeoutMs) {
    Reply r;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port));
    if (inet_pton(AF_INET, host.c_str(), &to.sin_addr) != 1) {
        r.error = "not an IPv4 address: " + host;
        return r;
    }
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        r.error = std::string("socket: ") + strerror(errno);
        return r;
    }
    struct Closer {
        int fd;
        ~Closer() { close(fd); }
    } closer{fd};
    if (!fromIp.empty()) {
        sockaddr_in from{};
        from.sin_family = AF_INET;
        if (inet_pton(AF_INET, fromIp.c_str(), &from.sin_addr) != 1 ||
            bind(fd, reinterpret_cast<sockaddr*>(&from), sizeof from) != 0) {
            r.error = "cannot send from " + fromIp + ": " + strerror(errno);
            return r;
        }
    }
    if (connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to) != 0) {
        if (errno != EINPROGRESS) {
            r.error = std::string("connect: ") + strerror(errno);
            return r;
        }
        if (waitFor(fd, POLLOUT, deadline) != 1) {
            r.error = "connect: no answer in time";
            return r;
        }
        int err = 0;
        socklen_t len = sizeof err;
        getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &len);
        if (err != 0) {
            r.error = std::string("connect: ") + strerror(err);
            return r;
        }
    }
    r.connected = true;
    size_t sent = 0;
    while (sent < request.size()) {
        if (waitFor(fd, POLLOUT, deadline) != 1) {
            r.error = "send: time-out";
            return r;
        }
        const ssize_t n = send(fd, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno != EAGAIN && errno != EINTR) {
            r.error = std::string("send: ") + strerror(errno);
            return r;
        }
        if (n > 0) sent += static_cast<size_t>(n);
    }
    std::string in;
    while (in.find("\r\n\r\n") == std::string::npos && in.size() < 65536) {
        const int w = waitFor(fd, POLLIN, deadline);
        if (w != 1) {
            r.error = stopRequested() ? "stopped" : w == 0 ? "no answer in time" : "poll failed";
            break;
        }
        char buf[2048];
        const ssize_t n = recv(fd, buf, sizeof buf, 0);
        if (n == 0) {
            r.closed = true;
            break;
        }
        if (n < 0) {
            if (errno == EAGAIN || errno == EINTR) continue;
            r.error = std::string("recv: ") + strerror(errno);
            break;
        }
        in.append(buf, static_cast<size_t>(n));
    }
    const size_t end = in.find("\r\n\r\n");
    if (end != std::string::npos) {
        r.head = in.substr(0, end + 4);
        r.complete = parseReplyHead(r.head, &r);
        if (!r.complete) r.error = "not an HTTP reply";
    } else if (r.error.empty() && !r.closed) {
        r.error = "reply too long";
    }
    return r;
}

}  // namespace phonesim
