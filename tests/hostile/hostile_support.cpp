#include "hostile/hostile_support.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <malloc.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
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
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define HOSTILE_TSAN 1
#endif
#endif
#if defined(__SANITIZE_THREAD__)
#define HOSTILE_TSAN 1
#endif
#ifdef HOSTILE_ASAN
// The sanitizer runtime's count of live heap bytes (declared here: g++ ships
// no header for it).
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace hostile {

size_t rssSlackBytes() {
    const size_t mib = 1024 * 1024;
#if defined(HOSTILE_ASAN)
    return (32 + 256) * mib;
#elif defined(HOSTILE_TSAN)
    return 4 * 32 * mib;
#else
    return 32 * mib;
#endif
}

bool emulated() {
    // The ARM build's tests run under qemu-arm, which the build tells them.
    const char* e = getenv("CAMWIFI_EMULATED");
    return e != nullptr && *e != '\0';
}

int scaled(int n) {
#if defined(HOSTILE_ASAN) || defined(HOSTILE_TSAN)
    const bool slow = true;
#else
    const bool slow = emulated();
#endif
    return slow ? (n / 10 > 0 ? n / 10 : 1) : n;
}

size_t residentBytes() {
    FILE* f = fopen("/proc/self/statm", "re");
    if (f == nullptr) return 0;
    unsigned long size = 0, resident = 0;
    const int got = fscanf(f, "%lu %lu", &size, &resident);
    fclose(f);
    return got == 2 ? resident * static_cast<size_t>(sysconf(_SC_PAGESIZE)) : 0;
}

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
    r.rss = residentBytes();
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

void expectClosedWithoutReply(const std::string& src, uint16_t port, const std::string& text, int64_t withinMs) {
    int64_t took = 0;
    std::string reply;
    EXPECT_TRUE(sendAndWaitForClose(src, port, text, 8000, &took, &reply)) << "the server kept the connection";
    EXPECT_EQ(reply, "");
    EXPECT_LT(took, withinMs);
}

std::string endlessHead(const std::string& requestLine, size_t bytes) {
    std::string head = requestLine + "\r\n";
    while (head.size() < bytes) head += "X-Padding: 0123456789abcdef0123456789abcdef\r\n";
    return head;
}

std::string headWithLines(const std::string& requestLine, int count, const std::string& line,
                          const std::string& last) {
    std::string head = requestLine + "\r\n";
    head.reserve(head.size() + static_cast<size_t>(count) * (line.size() + 2) + last.size() + 2);
    for (int i = 0; i < count; ++i) head += line + "\r\n";
    return head + last + "\r\n";
}

bool sendEndlessBody(const std::string& src, uint16_t port, const std::string& head, int timeoutMs,
                     std::string* reply, size_t* bodySent, int* kept) {
    *bodySent = 0;
    const int fd = testsupport::connectFrom(src, "127.0.0.1", port);
    if (fd < 0) return false;
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    const std::string chunk(16 * 1024, 'b');
    const int64_t deadline = nowMs() + timeoutMs;
    size_t headSent = 0;
    bool closed = false;
    // One wait per pass, so the loop ends by the deadline.
    while (!closed && nowMs() < deadline) {
        pollfd p{fd, static_cast<short>(POLLIN | POLLOUT), 0};
        if (poll(&p, 1, 100) <= 0) continue;
        if (p.revents & POLLIN) {
            char buf[4096];
            const ssize_t n = recv(fd, buf, sizeof buf, 0);
            if (n > 0) reply->append(buf, static_cast<size_t>(n));
            else if (n == 0 || (errno != EAGAIN && errno != EINTR)) closed = true;
            continue;
        }
        if (p.revents & (POLLERR | POLLHUP)) {
            closed = true;
            continue;
        }
        const std::string& what = headSent < head.size() ? head : chunk;
        const size_t from = headSent < head.size() ? headSent : 0;
        const ssize_t n = send(fd, what.data() + from, what.size() - from, MSG_NOSIGNAL);
        if (n < 0) {
            if (errno != EAGAIN && errno != EINTR) closed = true;
            continue;
        }
        if (headSent < head.size()) headSent += static_cast<size_t>(n);
        else *bodySent += static_cast<size_t>(n);
    }
    if (closed) {
        // A server that closes with the body unread resets the connection,
        // and a send may meet the reset before its answer was read: what
        // arrived before the reset is still there to read.
        char buf[4096];
        ssize_t n;
        while ((n = recv(fd, buf, sizeof buf, MSG_DONTWAIT)) > 0) reply->append(buf, static_cast<size_t>(n));
    }
    if (kept != nullptr && !closed) *kept = fd;
    else drop(fd, false);
    return closed;
}

void dropMidRequest(const std::string& src, uint16_t port, const std::string& request, size_t bytes, bool reset) {
    // Without waiting on a full accept queue (a server busy with one phone):
    // a connection not made within 200 ms is dropped with nothing sent.
    const int fd = openNonBlocking(src, port);
    if (fd < 0) return;
    pollfd p{fd, POLLOUT, 0};
    if (poll(&p, 1, 200) == 1 && (p.revents & POLLOUT) && !(p.revents & (POLLERR | POLLHUP)))
        (void)send(fd, request.data(), std::min(bytes, request.size()), MSG_NOSIGNAL | MSG_DONTWAIT);
    drop(fd, reset);
}

bool Tricklers::start(const std::vector<std::string>& srcs, int count, uint16_t port, const std::string& data,
                      int intervalMs) {
    stop();
    m_stop = false;
    m_closed = 0;
    for (int i = 0; i < count; ++i) {
        const int fd = testsupport::connectFrom(srcs[static_cast<size_t>(i) % srcs.size()], "127.0.0.1", port);
        if (fd < 0) {
            stop();
            return false;
        }
        m_fds.push_back(fd);
    }
    m_thread = std::thread([this, data, intervalMs] { run(data, intervalMs); });
    return true;
}

void Tricklers::run(std::string data, int intervalMs) {
    std::vector<bool> open(m_fds.size(), true);
    for (size_t i = 0; i < data.size() && !m_stop; ++i) {
        for (size_t c = 0; c < m_fds.size(); ++c) {
            if (!open[c]) continue;
            // Whatever the server said is read and dropped; its close ends
            // this client.
            char buf[1024];
            ssize_t n;
            while ((n = recv(m_fds[c], buf, sizeof buf, MSG_DONTWAIT)) > 0) {
            }
            const bool gone = n == 0 || (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR);
            if (gone || send(m_fds[c], data.data() + i, 1, MSG_NOSIGNAL | MSG_DONTWAIT) < 0) {
                open[c] = false;
                ++m_closed;
            }
        }
        for (int waited = 0; waited < intervalMs && !m_stop; waited += 10)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

void Tricklers::stop() {
    m_stop = true;
    if (m_thread.joinable()) m_thread.join();
    for (int fd : m_fds) drop(fd, true);
    m_fds.clear();
}

void expectMemoryNear(const Resources& now, const Resources& base) {
    EXPECT_LE(now.heap, base.heap + kHeapSlackBytes) << "memory kept";
    // Under an emulator the resident set is the emulator's (each guest
    // thread that ever ran leaves its own state and translated code there,
    // 170 MiB after 1,000 threads): only the guest's heap count tells.
    if (emulated()) return;
    EXPECT_LE(now.rss, base.rss + rssSlackBytes())
        << "resident memory kept: " << (static_cast<long long>(now.rss) - static_cast<long long>(base.rss)) / 1024
        << " KiB more than at the start";
}

void expectBackTo(const Resources& base, int timeoutMs) {
    const Resources now = settleTo(base, timeoutMs);
    EXPECT_EQ(now.descriptors, base.descriptors) << "descriptors left open";
    EXPECT_EQ(now.threads, base.threads) << "threads left running";
    expectMemoryNear(now, base);
}

}  // namespace hostile
