#include "support/tcp_peer.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <mutex>
#include <thread>

namespace testsupport {
namespace {

int64_t nowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

int countEntries(const char* dir) {
    DIR* d = opendir(dir);
    if (d == nullptr) return -1;
    int n = 0;
    while (dirent* e = readdir(d))
        if (e->d_name[0] != '.') ++n;
    closedir(d);
    return n;
}

}  // namespace

int connectFrom(const std::string& src, const std::string& dst, uint16_t port) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    if (!src.empty()) {
        sockaddr_in a{};
        a.sin_family = AF_INET;
        inet_pton(AF_INET, src.c_str(), &a.sin_addr);
        if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
            close(fd);
            return -1;
        }
    }
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    inet_pton(AF_INET, dst.c_str(), &to.sin_addr);
    if (connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

bool sendAll(int fd, const std::string& data) {
    size_t off = 0;
    while (off < data.size()) {
        ssize_t n = send(fd, data.data() + off, data.size() - off, MSG_NOSIGNAL);
        if (n <= 0) return false;
        off += static_cast<size_t>(n);
    }
    return true;
}

std::string recvUntil(int fd, const std::string& terminator, int timeoutMs) {
    std::string out;
    const int64_t deadline = nowMs() + timeoutMs;
    for (;;) {
        if (!terminator.empty() && out.find(terminator) != std::string::npos) return out;
        const int64_t left = deadline - nowMs();
        if (left <= 0) return out;
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(left)) <= 0) return out;
        char buf[4096];
        ssize_t n = recv(fd, buf, sizeof buf, 0);
        if (n <= 0) return out;
        out.append(buf, static_cast<size_t>(n));
    }
}

std::string recvAll(int fd, int timeoutMs) { return recvUntil(fd, "", timeoutMs); }

bool peerClosed(int fd, int timeoutMs) {
    const int64_t deadline = nowMs() + timeoutMs;
    for (;;) {
        const int64_t left = deadline - nowMs();
        if (left <= 0) return false;
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(left)) <= 0) return false;
        char buf[4096];
        ssize_t n = recv(fd, buf, sizeof buf, 0);
        if (n <= 0) return true;
    }
}

int listenLoopback(uint16_t* port, int backlog) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || listen(fd, backlog) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
        close(fd);
        return -1;
    }
    if (port) *port = ntohs(a.sin_port);
    return fd;
}

int occupyPort(uint16_t port) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    // A connection of an earlier test may linger in TIME_WAIT on the port.
    int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_ANY);
    a.sin_port = htons(port);
    if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || listen(fd, 4) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

int openDescriptorCount() { return countEntries("/proc/self/fd"); }

int threadCount() {
    // ThreadSanitizer's runtime starts a helper thread of its own with the
    // first thread a program creates: make it exist before the first count,
    // so every count includes it.
    static std::once_flag helperStarted;
    std::call_once(helperStarted, [] { std::thread([] {}).join(); });
    // A joined thread can still be listed for a moment while it finishes
    // exiting (under qemu-arm the join returns before the host thread ends):
    // count until two reads 20 ms apart agree, for at most two seconds.
    int n = countEntries("/proc/self/task");
    for (int i = 0; i < 100; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        const int again = countEntries("/proc/self/task");
        if (again == n) break;
        n = again;
    }
    return n;
}

}  // namespace testsupport
