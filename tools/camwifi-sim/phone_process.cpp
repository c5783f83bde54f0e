#include "phone_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace camsim {

namespace {
using Clock = std::chrono::steady_clock;
}

PhoneProcess::~PhoneProcess() {
    terminate();
    if (m_reader.joinable()) m_reader.join();
}

bool PhoneProcess::start(const std::string& program, const std::vector<std::string>& args, std::string* why) {
    if (access(program.c_str(), X_OK) != 0) {
        *why = "cannot run phone-sim at " + program + " (build it, or name it with --phone-sim PATH)";
        return false;
    }
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        *why = std::string("pipe: ") + strerror(errno);
        return false;
    }
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    const pid_t pid = fork();
    if (pid < 0) {
        *why = std::string("fork: ") + strerror(errno);
        close(fds[0]);
        close(fds[1]);
        return false;
    }
    if (pid == 0) {
        // The child: report into the pipe, no terminal input, and none of
        // the camera's descriptors (its listening sockets must not live on
        // in the phone).
        dup2(fds[1], 1);
        dup2(fds[1], 2);
        const int devnull = open("/dev/null", O_RDONLY);
        if (devnull >= 0) dup2(devnull, 0);
        close_range(3, ~0U, 0);
        execv(program.c_str(), argv.data());
        const char* msg = "phone-sim: exec failed\n";
        ssize_t ignored = write(2, msg, strlen(msg));
        (void)ignored;
        _exit(127);
    }
    close(fds[1]);
    m_pid = pid;
    m_reader = std::thread([this, fd = fds[0]] { readReport(fd); });
    return true;
}

void PhoneProcess::readReport(int fd) {
    // Ends when every writer has closed the pipe: the phone exited.
    std::string pending;
    char buf[4096];
    for (;;) {
        const ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        pending.append(buf, static_cast<size_t>(n));
        size_t nl;
        while ((nl = pending.find('\n')) != std::string::npos) {
            const std::string line = pending.substr(0, nl);
            pending.erase(0, nl + 1);
            m_log.line("phone", line);
            std::lock_guard<std::mutex> g(m_lock);
            m_lines.push_back(line);
            m_changed.notify_all();
        }
    }
    if (!pending.empty()) m_log.line("phone", pending);
    close(fd);
}

bool PhoneProcess::sawLine(const std::string& text) {
    std::lock_guard<std::mutex> g(m_lock);
    for (auto& l : m_lines)
        if (l.find(text) != std::string::npos) return true;
    return false;
}

bool PhoneProcess::waitLine(const std::string& text, int timeoutMs, const std::atomic<int>& cancel) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    std::unique_lock<std::mutex> g(m_lock);
    size_t checked = 0;
    for (;;) {
        for (; checked < m_lines.size(); ++checked)
            if (m_lines[checked].find(text) != std::string::npos) return true;
        if (cancel.load() != 0 || Clock::now() >= deadline) return false;
        m_changed.wait_for(g, std::chrono::milliseconds(100));
    }
}

bool PhoneProcess::reap(bool block) {
    if (m_pid <= 0 || m_exited) return m_exited;
    int status = 0;
    pid_t r;
    do {
        r = waitpid(m_pid, &status, block ? 0 : WNOHANG);
    } while (r < 0 && errno == EINTR);
    if (r == m_pid) {
        m_exited = true;
        m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return m_exited;
}

int PhoneProcess::waitExit(int timeoutMs, const std::atomic<int>& cancel) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!reap(false)) {
        if (cancel.load() != 0 || Clock::now() >= deadline) return -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (m_reader.joinable()) m_reader.join();
    return m_status;
}

void PhoneProcess::terminate() {
    if (m_pid <= 0 || reap(false)) return;
    kill(m_pid, SIGTERM);
    const auto deadline = Clock::now() + std::chrono::seconds(3);
    while (!reap(false) && Clock::now() < deadline) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    if (!m_exited) {
        kill(m_pid, SIGKILL);
        reap(true);
    }
    if (m_reader.joinable()) m_reader.join();
}

}  // namespace camsim
