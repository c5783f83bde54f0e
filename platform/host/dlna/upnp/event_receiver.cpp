#include "event_receiver.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <strings.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include "http_client.h"
#include "streaming_server.h"

namespace camwifi {
namespace upnp {

int parseEventRequest(const std::string& head, const std::string& body, EventMessage* out) {
    StreamingRequest request;
    if (!parseRequestHead(head, &request) || request.method != "NOTIFY") return 400;
    const std::string* sid = findHeader(request.headers, "SID");
    const std::string* nt = findHeader(request.headers, "NT");
    const std::string* nts = findHeader(request.headers, "NTS");
    if (sid == nullptr || sid->empty() || nt == nullptr || *nt != "upnp:event" || nts == nullptr ||
        *nts != "upnp:propchange")
        return 400;
    out->sid = *sid;
    out->body = body;
    return 0;
}

int parseSubscriptionTimeout(const std::string& value) {
    if (strcasecmp(value.c_str(), "infinite") == 0) return 0;
    const char kPrefix[] = "Second-";
    if (value.size() <= sizeof kPrefix - 1 || strncasecmp(value.c_str(), kPrefix, sizeof kPrefix - 1) != 0) return -1;
    const std::string digits = value.substr(sizeof kPrefix - 1);
    if (digits.size() > 9 || digits.find_first_not_of("0123456789") != std::string::npos) return -1;
    return atoi(digits.c_str());
}

namespace {

using Clock = std::chrono::steady_clock;

int msLeft(Clock::time_point deadline) {
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return ms > 0 ? static_cast<int>(ms) : 0;
}

}  // namespace

struct EventReceiver::Impl {
    mutable std::mutex lock;
    int listenFd = -1, stopFd = -1;
    std::string url;
    Handler handler;
    std::thread thread;

    // Waits until fd is readable; false on stop, deadline or error.
    bool readable(int fd, Clock::time_point deadline) {
        for (;;) {
            pollfd p[2] = {{fd, POLLIN, 0}, {stopFd, POLLIN, 0}};
            int n = poll(p, 2, msLeft(deadline));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0 || (p[1].revents & POLLIN)) return false;
            return (p[0].revents & (POLLIN | POLLHUP | POLLERR)) != 0;
        }
    }

    void answer(int fd, int status) {
        const char* reason = status == 200 ? "OK" : status == 412 ? "Precondition Failed" : "Bad Request";
        std::string text = "HTTP/1.1 " + std::to_string(status) + " " + reason +
                           "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
        (void)!send(fd, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    }

    // Reads one NOTIFY within kEventReadMs and answers it.
    void serve(int fd) {
        const auto deadline = Clock::now() + std::chrono::milliseconds(kEventReadMs);
        std::string data;
        size_t headEnd = std::string::npos;
        size_t want = 0;
        char buf[4096];
        for (;;) {
            if (headEnd == std::string::npos) {
                headEnd = data.find("\r\n\r\n");
                if (headEnd != std::string::npos) {
                    headEnd += 4;
                    StreamingRequest request;
                    const std::string* length = nullptr;
                    if (parseRequestHead(data.substr(0, headEnd), &request))
                        length = findHeader(request.headers, "Content-Length");
                    char* end = nullptr;
                    unsigned long n = length ? strtoul(length->c_str(), &end, 10) : 0;
                    if (length == nullptr || length->empty() || *end != '\0' || n > kMaxEventBody ||
                        length->find_first_not_of("0123456789") != std::string::npos) {
                        answer(fd, 400);
                        return;
                    }
                    want = headEnd + n;
                } else if (data.size() > kMaxEventHead) {
                    answer(fd, 400);
                    return;
                }
            }
            if (headEnd != std::string::npos && data.size() >= want) break;
            if (!readable(fd, deadline)) return;  // too slow, or stopping: dropped
            ssize_t n = recv(fd, buf, sizeof buf, 0);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) return;
            data.append(buf, static_cast<size_t>(n));
        }
        EventMessage message;
        int status = parseEventRequest(data.substr(0, headEnd), data.substr(headEnd, want - headEnd), &message);
        if (status == 0) status = handler(message) ? 200 : 412;
        answer(fd, status);
    }

    void loop() {
        pthread_setname_np(pthread_self(), "UpnpCPNotify");
        for (;;) {
            pollfd p[2] = {{listenFd, POLLIN, 0}, {stopFd, POLLIN, 0}};
            int n = poll(p, 2, -1);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0 || (p[1].revents & POLLIN)) return;
            if (!(p[0].revents & POLLIN)) continue;
            int fd = accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) continue;
            serve(fd);
            close(fd);
        }
    }
};

EventReceiver::EventReceiver() : m_impl(new Impl) {}

EventReceiver::~EventReceiver() { stop(); }

int EventReceiver::start(const std::string& address, Handler handler) {
    Impl& m = *m_impl;
    std::lock_guard<std::mutex> g(m.lock);
    if (m.listenFd >= 0) return EALREADY;
    sockaddr_in a{};
    a.sin_family = AF_INET;
    if (inet_pton(AF_INET, address.c_str(), &a.sin_addr) != 1) return EINVAL;
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return errno;
    socklen_t len = sizeof a;
    if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || listen(fd, 16) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
        int e = errno;
        close(fd);
        return e;
    }
    int stop = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (stop < 0) {
        int e = errno;
        close(fd);
        return e;
    }
    m.listenFd = fd;
    m.stopFd = stop;
    m.handler = std::move(handler);
    m.url = "http://" + address + ":" + std::to_string(ntohs(a.sin_port)) + "/event";
    m.thread = std::thread([&m] { m.loop(); });
    return 0;
}

void EventReceiver::stop() {
    Impl& m = *m_impl;
    {
        std::lock_guard<std::mutex> g(m.lock);
        if (m.listenFd < 0) return;
        uint64_t one = 1;
        (void)!write(m.stopFd, &one, sizeof one);
    }
    if (m.thread.joinable()) m.thread.join();
    std::lock_guard<std::mutex> g(m.lock);
    close(m.listenFd);
    close(m.stopFd);
    m.listenFd = m.stopFd = -1;
    m.url.clear();
    m.handler = nullptr;
}

std::string EventReceiver::callbackUrl() const {
    std::lock_guard<std::mutex> g(m_impl->lock);
    return m_impl->url;
}

}  // namespace upnp
}  // namespace camwifi
