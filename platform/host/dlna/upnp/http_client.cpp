#include "http_client.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <strings.h>

namespace camwifi {
namespace upnp {

namespace {

using Clock = std::chrono::steady_clock;

bool iequals(const std::string& a, const std::string& b) {
    return a.size() == b.size() && strncasecmp(a.c_str(), b.c_str(), a.size()) == 0;
}

std::string trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t");
    if (b == std::string::npos) return "";
    size_t e = s.find_last_not_of(" \t\r");
    return s.substr(b, e - b + 1);
}

// Parses digits only (no sign, no blanks); false on overflow past max.
bool parseDecimal(const std::string& text, unsigned long long max, unsigned long long* out) {
    if (text.empty()) return false;
    unsigned long long v = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        unsigned d = static_cast<unsigned>(c - '0');
        if (v > (max - d) / 10) return false;
        v = v * 10 + d;
    }
    *out = v;
    return true;
}

bool parseHex(const std::string& text, unsigned long long max, unsigned long long* out) {
    if (text.empty()) return false;
    unsigned long long v = 0;
    for (char c : text) {
        unsigned d;
        if (c >= '0' && c <= '9') d = static_cast<unsigned>(c - '0');
        else if (c >= 'a' && c <= 'f') d = static_cast<unsigned>(c - 'a' + 10);
        else if (c >= 'A' && c <= 'F') d = static_cast<unsigned>(c - 'A' + 10);
        else return false;
        if (v > (max - d) / 16) return false;
        v = v * 16 + d;
    }
    *out = v;
    return true;
}

// Decodes a chunked body starting at data[pos]. 1 complete, 0 needs more
// bytes, -1 malformed.
int dechunk(const std::string& data, size_t pos, std::string* body) {
    body->clear();
    for (;;) {
        size_t eol = data.find("\r\n", pos);
        if (eol == std::string::npos) return data.size() - pos > 64 ? -1 : 0;
        std::string sizeText = data.substr(pos, eol - pos);
        size_t semi = sizeText.find(';');  // chunk extensions are ignored
        if (semi != std::string::npos) sizeText.resize(semi);
        unsigned long long size;
        if (!parseHex(trim(sizeText), kMaxHttpBody, &size)) return -1;
        pos = eol + 2;
        if (size == 0) {
            // Trailer lines up to an empty line.
            for (;;) {
                size_t end = data.find("\r\n", pos);
                if (end == std::string::npos) return 0;
                if (end == pos) return 1;
                pos = end + 2;
            }
        }
        if (body->size() + size > kMaxHttpBody) return -1;
        if (data.size() - pos < size + 2) return 0;
        body->append(data, pos, size);
        pos += size;
        if (data.compare(pos, 2, "\r\n") != 0) return -1;
        pos += 2;
    }
}

// 1 complete response in out, 0 incomplete, -1 not HTTP. atEof: the peer
// closed, so a body without length ends here.
int parseResponse(const std::string& data, bool atEof, HttpResult* out, bool headRequest = false) {
    size_t headEnd = data.find("\r\n\r\n");
    if (headEnd == std::string::npos) return data.size() > 64 * 1024 ? -1 : 0;
    size_t lineEnd = data.find("\r\n");
    std::string statusLine = data.substr(0, lineEnd);
    // "HTTP/1.x NNN reason"
    if (statusLine.compare(0, 5, "HTTP/") != 0) return -1;
    size_t sp = statusLine.find(' ');
    if (sp == std::string::npos || statusLine.size() < sp + 4) return -1;
    unsigned long long status;
    if (!parseDecimal(statusLine.substr(sp + 1, 3), 999, &status) || status < 100) return -1;
    std::vector<std::pair<std::string, std::string>> headers;
    if (!parseHeaderLines(data, lineEnd + 2, headEnd, &headers)) return -1;
    size_t bodyStart = headEnd + 4;
    std::string body;
    const std::string* te = findHeader(headers, "Transfer-Encoding");
    const std::string* cl = findHeader(headers, "Content-Length");
    if (headRequest) {
        // The answer to HEAD has headers only, whatever they announce.
    } else if (te != nullptr && strcasestr(te->c_str(), "chunked") != nullptr) {
        int r = dechunk(data, bodyStart, &body);
        if (r <= 0) return r < 0 || atEof ? -1 : 0;
    } else if (cl != nullptr) {
        unsigned long long length;
        if (!parseDecimal(*cl, kMaxHttpBody, &length)) return -1;
        if (data.size() - bodyStart < length) return atEof ? -1 : 0;
        body = data.substr(bodyStart, length);
    } else if (status == 204 || status == 304 || status < 200) {
        // No body by definition.
    } else {
        if (!atEof) return data.size() - bodyStart > kMaxHttpBody ? -1 : 0;
        body = data.substr(bodyStart);
        if (body.size() > kMaxHttpBody) return -1;
    }
    out->outcome = HttpResult::kOk;
    out->status = static_cast<int>(status);
    out->headers = std::move(headers);
    out->body = std::move(body);
    out->error.clear();
    return 1;
}

int remainingMs(Clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

// Waits until fd is ready for events, the deadline passes or cancelFd fires.
HttpResult::Outcome waitFor(int fd, short events, int cancelFd, Clock::time_point deadline) {
    for (;;) {
        pollfd p[2] = {{fd, events, 0}, {cancelFd, POLLIN, 0}};
        int left = remainingMs(deadline);
        if (left == 0) return HttpResult::kTimeout;
        int n = poll(p, cancelFd >= 0 ? 2 : 1, left);
        if (n < 0) {
            if (errno == EINTR) continue;
            return HttpResult::kBadResponse;
        }
        if (n == 0) return HttpResult::kTimeout;
        if (cancelFd >= 0 && (p[1].revents & POLLIN)) return HttpResult::kCancelled;
        if (p[0].revents) return HttpResult::kOk;
    }
}

HttpResult failure(HttpResult::Outcome outcome, const std::string& why) {
    HttpResult r;
    r.outcome = outcome;
    r.error = why;
    return r;
}

}  // namespace

bool parseHeaderLines(const std::string& head, size_t from, size_t end,
                      std::vector<std::pair<std::string, std::string>>* headers) {
    size_t pos = from;
    while (pos < end) {
        size_t e = head.find("\r\n", pos);
        std::string line = head.substr(pos, e - pos);
        pos = e == std::string::npos ? end : e + 2;
        size_t colon = line.find(':');
        if (colon == std::string::npos || colon == 0) return false;
        headers->emplace_back(trim(line.substr(0, colon)), trim(line.substr(colon + 1)));
    }
    return true;
}

const char* outcomeName(HttpResult::Outcome outcome) {
    switch (outcome) {
        case HttpResult::kOk: return "ok";
        case HttpResult::kBadUrl: return "bad URL";
        case HttpResult::kUnreachable: return "unreachable";
        case HttpResult::kTimeout: return "timed out";
        case HttpResult::kCancelled: return "cancelled";
        case HttpResult::kBadResponse: return "bad response";
    }
    return "?";
}

const std::string* findHeader(const std::vector<std::pair<std::string, std::string>>& headers,
                              const std::string& name) {
    for (const auto& h : headers)
        if (iequals(h.first, name)) return &h.second;
    return nullptr;
}

bool parseHttpUrl(const std::string& url, HttpUrl* out) {
    if (url.size() < 8 || strncasecmp(url.c_str(), "http://", 7) != 0) return false;
    size_t hostStart = 7;
    size_t pathStart = url.find_first_of("/?", hostStart);
    std::string authority = url.substr(hostStart, pathStart == std::string::npos ? std::string::npos
                                                                                  : pathStart - hostStart);
    if (authority.empty() || authority.find('@') != std::string::npos) return false;
    HttpUrl u;
    std::string portText;
    if (authority[0] == '[') {
        size_t close = authority.find(']');
        if (close == std::string::npos) return false;
        u.host = authority.substr(1, close - 1);
        if (close + 1 < authority.size()) {
            if (authority[close + 1] != ':') return false;
            portText = authority.substr(close + 2);
        }
    } else {
        size_t colon = authority.find(':');
        u.host = authority.substr(0, colon);
        if (colon != std::string::npos) portText = authority.substr(colon + 1);
    }
    if (u.host.empty()) return false;
    if (!portText.empty()) {
        unsigned long long port;
        if (!parseDecimal(portText, 65535, &port) || port == 0) return false;
        u.port = static_cast<int>(port);
    }
    if (pathStart != std::string::npos) u.path = url.substr(pathStart);
    if (u.path[0] == '?') u.path = "/" + u.path;
    for (char c : u.path)
        if (static_cast<unsigned char>(c) <= ' ' || c == 0x7f) return false;  // no header injection
    *out = u;
    return true;
}

bool parseHttpResponse(const std::string& data, HttpResult* out) { return parseResponse(data, true, out) == 1; }

HttpResult httpRequest(const std::string& method, const std::string& url,
                       const std::vector<std::pair<std::string, std::string>>& headers, const std::string& body,
                       int timeoutMs, int cancelFd) {
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    HttpUrl u;
    if (!parseHttpUrl(url, &u)) return failure(HttpResult::kBadUrl, "not an http URL: " + url);

    // Only numeric addresses: a name lookup could block without limit.
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo* ai = nullptr;
    if (getaddrinfo(u.host.c_str(), std::to_string(u.port).c_str(), &hints, &ai) != 0 || ai == nullptr)
        return failure(HttpResult::kUnreachable, "not an address: " + u.host);
    int fd = socket(ai->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        freeaddrinfo(ai);
        return failure(HttpResult::kUnreachable, std::string("socket: ") + strerror(errno));
    }
    struct Closer {
        int fd;
        ~Closer() { close(fd); }
    } closer{fd};
    int rc = connect(fd, ai->ai_addr, ai->ai_addrlen);
    freeaddrinfo(ai);
    if (rc != 0 && errno != EINPROGRESS) return failure(HttpResult::kUnreachable, std::string("connect: ") + strerror(errno));
    if (rc != 0) {
        HttpResult::Outcome w = waitFor(fd, POLLOUT, cancelFd, deadline);
        if (w != HttpResult::kOk) return failure(w, "connect to " + u.host + ":" + std::to_string(u.port));
        int err = 0;
        socklen_t len = sizeof err;
        getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &len);
        if (err != 0) return failure(HttpResult::kUnreachable, std::string("connect: ") + strerror(err));
    }

    std::string hostHeader = u.host.find(':') != std::string::npos ? "[" + u.host + "]" : u.host;
    std::string request = method + " " + u.path + " HTTP/1.1\r\nHost: " + hostHeader + ":" +
                          std::to_string(u.port) + "\r\nConnection: close\r\n";
    for (const auto& h : headers) request += h.first + ": " + h.second + "\r\n";
    if (!body.empty() || method == "POST") request += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    request += "\r\n";
    request += body;

    size_t sent = 0;
    while (sent < request.size()) {
        ssize_t n = send(fd, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
        if (n > 0) {
            sent += static_cast<size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            HttpResult::Outcome w = waitFor(fd, POLLOUT, cancelFd, deadline);
            if (w != HttpResult::kOk) return failure(w, "sending the request");
            continue;
        }
        return failure(HttpResult::kBadResponse, std::string("send: ") + strerror(errno));
    }

    std::string data;
    char buf[8192];
    for (;;) {
        HttpResult::Outcome w = waitFor(fd, POLLIN, cancelFd, deadline);
        if (w != HttpResult::kOk) return failure(w, "waiting for the answer");
        ssize_t n = recv(fd, buf, sizeof buf, 0);
        if (n < 0) {
            if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK) continue;
            return failure(HttpResult::kBadResponse, std::string("recv: ") + strerror(errno));
        }
        HttpResult r;
        if (n == 0) {
            if (parseResponse(data, true, &r, method == "HEAD") == 1) return r;
            return failure(HttpResult::kBadResponse, data.empty() ? "connection closed without an answer"
                                                                  : "incomplete or invalid answer");
        }
        data.append(buf, static_cast<size_t>(n));
        int p = parseResponse(data, false, &r, method == "HEAD");
        if (p == 1) return r;
        if (p < 0) return failure(HttpResult::kBadResponse, "invalid answer");
    }
}

}  // namespace upnp
}  // namespace camwifi
