// Push client benchmark: pushes a file (20 MB by default) over loopback to a
// receiver that reads as fast as it can, once alone and then N at once
// (10 by default), and prints the throughput, its ratio to the paced limit
// of the body (20,480 bytes per 10 ms: a 5 ms pause before and after each
// chunk) and the CPU seconds per MB spent by the sending process.
//
// The receiver runs in a child process forked before any thread exists, so
// getrusage(RUSAGE_SELF) counts the camera's side only.
//
//   camwifi_push_bench [--size-mb N] [--parallel N]
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "SP/client/SPClientManager.h"

namespace {

constexpr double kPacedLimit = 20480.0 / 0.010;  // bytes per second
constexpr double kMB = 1e6;

// ---- The receiver (child process) ------------------------------------------------

bool sendAll(int fd, const char* data, size_t len) {
    while (len > 0) {
        const ssize_t n = send(fd, data, len, MSG_NOSIGNAL);
        if (n <= 0) return false;
        data += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}

// One push: head, 100, the whole body read as fast as it comes, 200.
void serve(int fd) {
    std::string head;
    std::vector<char> buf(1 << 20);
    while (head.find("\r\n\r\n") == std::string::npos && head.size() < 65536) {
        const ssize_t n = recv(fd, buf.data(), 4096, 0);
        if (n <= 0) {
            close(fd);
            return;
        }
        head.append(buf.data(), static_cast<size_t>(n));
    }
    const size_t at = head.find("Content-Length: ");
    long long left = at == std::string::npos ? 0 : atoll(head.c_str() + at + 16);
    const size_t extra = head.size() - (head.find("\r\n\r\n") + 4);
    left -= static_cast<long long>(extra);
    const char cont[] = "HTTP/1.1 100 Continue\r\n\r\n";
    if (sendAll(fd, cont, sizeof cont - 1)) {
        while (left > 0) {
            const ssize_t n = recv(fd, buf.data(), buf.size(), 0);
            if (n <= 0) break;
            left -= n;
        }
        const char ok[] = "HTTP/1.1 200 OK\r\n\r\n";
        if (left <= 0) sendAll(fd, ok, sizeof ok - 1);
        char tail[64];
        while (recv(fd, tail, sizeof tail, 0) > 0) {
        }
    }
    close(fd);
}

// Accepts until the parent closes its end of the control pipe.
[[noreturn]] void receiverMain(int listenFd, int controlFd) {
    std::vector<std::thread> threads;
    for (;;) {
        pollfd p[2] = {{listenFd, POLLIN, 0}, {controlFd, POLLIN, 0}};
        if (poll(p, 2, 1000) < 0) continue;
        if (p[1].revents != 0) break;
        if (p[0].revents & POLLIN) {
            const int fd = accept(listenFd, nullptr, nullptr);
            if (fd >= 0) threads.emplace_back(serve, fd);
        }
    }
    for (std::thread& t : threads) t.join();
    _exit(0);
}

// ---- The camera (this process) ---------------------------------------------------

std::mutex gLock;
std::condition_variable gDone;
int gFinals = 0;
int gCompleted = 0;

void onEvent(eSPNotifyClntEvent event, stSPClntInfo*) {
    if (event < EVENT_CLIENT_TRANSFER_COMPLETE) return;
    std::lock_guard<std::mutex> lock(gLock);
    ++gFinals;
    if (event == EVENT_CLIENT_TRANSFER_COMPLETE) ++gCompleted;
    gDone.notify_all();
}

double cpuSeconds() {
    rusage u;
    getrusage(RUSAGE_SELF, &u);
    return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
           static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

struct Result {
    int completed;
    double seconds;
    double cpu;
};

Result pushMany(const std::string& path, uint16_t port, int count) {
    {
        std::lock_guard<std::mutex> lock(gLock);
        gFinals = gCompleted = 0;
    }
    SPClientManager* mgr = SPClientManager::getInstance();
    mgr->setCallback(onEvent);
    const double cpu0 = cpuSeconds();
    const auto t0 = std::chrono::steady_clock::now();
    for (int i = 0; i < count; ++i) {
        char mac[32];
        snprintf(mac, sizeof mac, "02:00:7f:00:01:%02x", i);
        mgr->createFileTransfer(path.c_str(), "127.0.0.1", mac, port);
    }
    {
        std::unique_lock<std::mutex> lock(gLock);
        gDone.wait_for(lock, std::chrono::minutes(10), [&] { return gFinals >= count; });
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    const double cpu = cpuSeconds() - cpu0;
    SPClientManager::destroyInstance();
    std::lock_guard<std::mutex> lock(gLock);
    return {gCompleted, seconds, cpu};
}

void report(const char* label, const Result& r, int count, double bytes) {
    const double total = bytes * r.completed;
    const double rate = total / r.seconds;
    printf("%s: %d of %d transfers complete, %.1f MB in %.2f s\n", label, r.completed, count, total / kMB, r.seconds);
    printf("  throughput            %.3f MB/s%s\n", rate / kMB, count > 1 ? " (aggregate)" : "");
    printf("  ratio to paced limit  %.3f (limit %.3f MB/s per transfer%s)\n", rate / (kPacedLimit * count),
           kPacedLimit / kMB, count > 1 ? ", times the transfers" : "");
    printf("  CPU of the sender     %.3f s per MB (%.2f s user+system)\n", r.cpu / (total / kMB), r.cpu);
}

}  // namespace

int main(int argc, char** argv) {
    long sizeMb = 20;
    int parallel = 10;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (strcmp(argv[i], "--size-mb") == 0) sizeMb = atol(argv[i + 1]);
        if (strcmp(argv[i], "--parallel") == 0) parallel = atoi(argv[i + 1]);
    }
    if (sizeMb <= 0 || parallel <= 0 || parallel > 100) {
        fprintf(stderr, "usage: %s [--size-mb N] [--parallel N (1-100)]\n", argv[0]);
        return 2;
    }

    char dir[] = "/tmp/camwifi-bench-XXXXXX";
    if (mkdtemp(dir) == nullptr) return 1;
    const std::string path = std::string(dir) + "/bench.jpg";
    const size_t bytes = static_cast<size_t>(sizeMb) * 1000 * 1000;
    {
        FILE* f = fopen(path.c_str(), "wb");
        if (f == nullptr) return 1;
        std::vector<char> block(1 << 20);
        for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>(i * 2654435761u >> 11);
        for (size_t done = 0; done < bytes;) {
            const size_t n = std::min(block.size(), bytes - done);
            fwrite(block.data(), 1, n, f);
            done += n;
        }
        fclose(f);
    }

    const int listenFd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    if (listenFd < 0 || bind(listenFd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || listen(listenFd, 128) != 0 ||
        getsockname(listenFd, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
        perror("receiver socket");
        return 1;
    }
    const uint16_t port = ntohs(a.sin_port);
    int control[2];
    if (pipe(control) != 0) return 1;
    const pid_t child = fork();
    if (child < 0) return 1;
    if (child == 0) {
        close(control[1]);
        receiverMain(listenFd, control[0]);
    }
    close(control[0]);
    close(listenFd);

    printf("push client benchmark: %ld MB file over loopback (127.0.0.1:%u)\n", sizeMb, port);
    const Result one = pushMany(path, port, 1);
    report("one transfer", one, 1, static_cast<double>(bytes));
    const Result many = pushMany(path, port, parallel);
    char label[64];
    snprintf(label, sizeof label, "%d transfers in parallel", parallel);
    report(label, many, parallel, static_cast<double>(bytes));

    close(control[1]);
    int status = 0;
    waitpid(child, &status, 0);
    unlink(path.c_str());
    rmdir(dir);
    return one.completed == 1 && many.completed == parallel ? 0 : 1;
}
