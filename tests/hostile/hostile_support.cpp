#include "hostile/hostile_support.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <malloc.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "host_control.h"
#include "support/tcp_peer.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define HOSTILE_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define HOSTILE_ASAN 1
#endif
#ifdef HOSTILE_ASAN
// The sanitizer runtime's count of live heap bytes (declared here: g++ ships
// no header for it).
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace hostile {

size_t heapInUse() {
#ifdef HOSTILE_ASAN
    // glibc's counters do not see the sanitizer's allocator; its own count
    // leaves out the quarantine of freed blocks.
    return __sanitizer_get_current_allocated_bytes();
#else
    const struct mallinfo2 m = mallinfo2();
    return m.uordblks + m.hblkhd;
#endif
}

Resources snapshot() {
    host::clearLog();
    host::clearJournal();
    Resources r;
    r.threads = testsupport::threadCount();
    r.descriptors = testsupport::openDescriptorCount();
    r.heap = heapInUse();
    return r;
}

Resources settleTo(const Resources& base, int timeoutMs) {
    const int64_t deadline = nowMs() + timeoutMs;
    Resources now = snapshot();
    while ((now.descriptors != base.descriptors || now.threads != base.threads) && nowMs() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        now = snapshot();
    }
    return now;
}

int64_t nowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

int openNonBlocking(const std::string& src, uint16_t port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return -1;
    sockaddr_in from{};
    from.sin_family = AF_INET;
    inet_pton(AF_INET, src.c_str(), &from.sin_addr);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    inet_pton(AF_INET, "127.0.0.1", &to.sin_addr);
    if (bind(fd, reinterpret_cast<sockaddr*>(&from), sizeof from) != 0) {
        close(fd);
        return -1;
    }
    // EINPROGRESS, or refused once the server is gone: either way the
    // connection is "opened" from the peer's side and dropped below.
    (void)connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to);
    return fd;
}

void drop(int fd, bool reset) {
    if (fd < 0) return;
    if (reset) {
        const linger now = {1, 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    }
    close(fd);
}

bool trickle(int fd, const std::string& data, int intervalMs) {
    for (size_t i = 0; i < data.size(); ++i) {
        if (send(fd, data.data() + i, 1, MSG_NOSIGNAL) != 1) return false;
        // The wait between bytes also watches for the server closing; data
        // it sends stays unread and does not shorten the wait.
        const int64_t until = nowMs() + intervalMs;
        for (int64_t left = intervalMs; left > 0; left = until - nowMs()) {
            pollfd p{fd, POLLIN, 0};
            if (poll(&p, 1, static_cast<int>(left)) <= 0) continue;
            char c;
            const ssize_t n = recv(fd, &c, 1, MSG_PEEK | MSG_DONTWAIT);
            if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR)) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(until - nowMs() > 0 ? until - nowMs() : 0));
            break;
        }
    }
    return true;
}

size_t pushUntilRefused(int fd, const std::string& data, int timeoutMs) {
    const int64_t deadline = nowMs() + timeoutMs;
    size_t sent = 0;
    while (sent < data.size() && nowMs() < deadline) {
        pollfd p{fd, POLLOUT, 0};
        if (poll(&p, 1, 100) <= 0) continue;
        if (p.revents & (POLLERR | POLLHUP)) break;
        const ssize_t n = send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n < 0) {
            if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) continue;
            break;
        }
        sent += static_cast<size_t>(n);
    }
    return sent;
}

bool closedByPeer(int fd, int timeoutMs, std::string* received) {
    const int64_t deadline = nowMs() + timeoutMs;
    for (;;) {
        const int64_t left = deadline - nowMs();
        if (left <= 0) return false;
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(left)) <= 0) return false;
        char buf[4096];
        const ssize_t n = recv(fd, buf, sizeof buf, MSG_DONTWAIT);
        if (n == 0) return true;
        if (n < 0) {
            if (errno == EAGAIN || errno == EINTR) continue;
            return true;  // reset
        }
        if (received) received->append(buf, static_cast<size_t>(n));
    }
}

bool sendAndWaitForClose(const std::string& src, uint16_t port, const std::string& text, int timeoutMs,
                         int64_t* tookMs, std::string* reply) {
    const int fd = testsupport::connectFrom(src, "127.0.0.1", port);
    if (fd < 0) return false;
    const int64_t t0 = nowMs();
    pushUntilRefused(fd, text, timeoutMs);
    const bool closed = closedByPeer(fd, timeoutMs, reply);
    *tookMs = nowMs() - t0;
    drop(fd, false);
    return closed;
}

std::string endlessHead(const std::string& requestLine, size_t bytes) {
    std::string head = requestLine + "\r\n";
    while (head.size() < bytes) head += "X-Padding: 0123456789abcdef0123456789abcdef\r\n";
    return head;
}

void expectBackTo(const Resources& base, int timeoutMs) {
    const Resources now = settleTo(base, timeoutMs);
    EXPECT_EQ(now.descriptors, base.descriptors) << "descriptors left open";
    EXPECT_EQ(now.threads, base.threads) << "threads left running";
    EXPECT_LE(now.heap, base.heap + kHeapSlackBytes) << "memory kept";
}

}  // namespace hostile
