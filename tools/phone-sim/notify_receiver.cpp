#include "notify_receiver.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>

#include "output.h"

namespace phonesim {

namespace {

using Clock = std::chrono::steady_clock;

// A NOTIFY is a few hundred bytes; anything far larger is not one.
const size_t kMaxRequestBytes = 64 * 1024;
const int kReadTimeoutMs = 5000;

bool readMore(int fd, std::string* into, Clock::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) return false;
        pollfd p{fd, POLLIN, 0};
        const int rc = poll(&p, 1, static_cast<int>(left));
        if (rc < 0 && errno == EINTR) continue;
        if (rc <= 0) return false;
        char buf[4096];
        const ssize_t n = recv(fd, buf, sizeof buf, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        into->append(buf, static_cast<size_t>(n));
        return true;
    }
}

size_t contentLength(const std::string& head) {
    size_t pos = 0;
    while ((pos = head.find("\r\n", pos)) != std::string::npos) {
        pos += 2;
        if (strncasecmp(head.c_str() + pos, "Content-Length:", 15) == 0)
            return strtoul(head.c_str() + pos + 15, nullptr, 10);
    }
    return 0;
}

}  // namespace

std::string Notice::property(const std::string& name) const {
    for (auto& p : properties)
        if (p.first == name) return p.second;
    return "";
}

std::vector<std::pair<std::string, std::string>> parsePropertySet(const std::string& body) {
    std::vector<std::pair<std::string, std::string>> out;
    const std::string open = "<e:property>", close = "</e:property>";
    size_t pos = 0;
    while ((pos = body.find(open, pos)) != std::string::npos) {
        pos += open.size();
        const size_t end = body.find(close, pos);
        if (end == std::string::npos) break;
        const std::string inner = body.substr(pos, end - pos);
        pos = end + close.size();
        // <Name>value</Name>
        if (inner.size() < 5 || inner[0] != '<') continue;
        const size_t gt = inner.find('>');
        if (gt == std::string::npos) continue;
        const std::string name = inner.substr(1, gt - 1);
        const size_t closing = inner.rfind("</" + name + ">");
        if (closing == std::string::npos || closing < gt) continue;
        out.emplace_back(name, inner.substr(gt + 1, closing - gt - 1));
    }
    return out;
}

NotifyReceiver::~NotifyReceiver() { stop(); }

bool NotifyReceiver::start(const std::string& ip, int port, std::string* error) {
    m_listen = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    socklen_t len = sizeof a;
    const int one = 1;
    if (m_listen < 0 || inet_pton(AF_INET, ip.c_str(), &a.sin_addr) != 1 ||
        setsockopt(m_listen, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) != 0 ||
        bind(m_listen, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || listen(m_listen, 8) != 0 ||
        getsockname(m_listen, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
        *error = "cannot listen on " + ip + ":" + std::to_string(port) + ": " + strerror(errno);
        if (m_listen >= 0) close(m_listen);
        m_listen = -1;
        return false;
    }
    m_port = ntohs(a.sin_port);
    m_thread = std::thread([this] { run(); });
    return true;
}

void NotifyReceiver::stop() {
    m_stop.store(true);
    if (m_thread.joinable()) m_thread.join();
    if (m_listen >= 0) close(m_listen);
    m_listen = -1;
}

bool NotifyReceiver::next(Notice* out, int timeoutMs) {
    std::unique_lock<std::mutex> g(m_lock);
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (m_notices.empty()) {
        if (stopRequested() || Clock::now() >= deadline) return false;
        m_changed.wait_for(g, std::chrono::milliseconds(100));
    }
    *out = m_notices.front();
    m_notices.pop_front();
    return true;
}

void NotifyReceiver::run() {
    // Polls in 100 ms slices so that stop() ends the loop promptly.
    while (!m_stop.load()) {
        pollfd p{m_listen, POLLIN, 0};
        if (poll(&p, 1, 100) <= 0) continue;
        const int fd = accept4(m_listen, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) continue;
        serve(fd);
        close(fd);
    }
}

void NotifyReceiver::serve(int fd) {
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(kReadTimeoutMs);
    std::string in;
    size_t headEnd;
    while ((headEnd = in.find("\r\n\r\n")) == std::string::npos) {
        if (in.size() > kMaxRequestBytes || !readMore(fd, &in, deadline)) {
            complain("an event request that never ended was dropped");
            return;
        }
    }
    const std::string head = in.substr(0, headEnd + 4);
    const size_t length = contentLength(head);
    if (length > kMaxRequestBytes) {
        complain("an event body of " + std::to_string(length) + " bytes was refused");
        const char* tooLarge = "HTTP/1.1 413 Request Entity Too Large\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
        send(fd, tooLarge, strlen(tooLarge), MSG_NOSIGNAL);
        return;
    }
    std::string body = in.substr(headEnd + 4);
    while (body.size() < length)
        if (!readMore(fd, &body, deadline)) break;
    body.resize(body.size() < length ? body.size() : length);

    const char* ok = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
    send(fd, ok, strlen(ok), MSG_NOSIGNAL);

    Notice n;
    n.requestLine = head.substr(0, head.find("\r\n"));
    while (!n.requestLine.empty() && n.requestLine.back() == ' ') n.requestLine.pop_back();
    n.properties = parsePropertySet(body);
    std::string text = "event " + n.requestLine + ":";
    for (auto& p : n.properties) text += " " + p.first + "=" + p.second;
    if (n.properties.empty()) text += " (no properties)";
    say(text);
    {
        std::lock_guard<std::mutex> g(m_lock);
        m_notices.push_back(std::move(n));
    }
    m_changed.notify_all();
}

}  // namespace phonesim
