#include "sim_process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <sstream>

namespace simtest {

namespace {
using Clock = std::chrono::steady_clock;
}

Process::~Process() {
    if (m_pid > 0 && !m_reaped) {
        kill(m_pid, SIGKILL);
        waitExit(5000);
    }
    closeInput();
    if (m_reader.joinable()) m_reader.join();
}

bool Process::start(const std::string& program, const std::vector<std::string>& args) {
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0) return false;
    if (pipe2(out, O_CLOEXEC) != 0) {
        close(in[0]);
        close(in[1]);
        return false;
    }
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    m_pid = fork();
    if (m_pid == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        dup2(out[1], 2);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    if (m_pid < 0) {
        close(in[1]);
        close(out[0]);
        return false;
    }
    m_input = in[1];
    m_reader = std::thread([this, fd = out[0]] { collect(fd); });
    return true;
}

void Process::collect(int fd) {
    // Ends when the program and every child that shares its output exited.
    char buf[4096];
    for (;;) {
        const ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        std::lock_guard<std::mutex> g(m_lock);
        m_output.append(buf, static_cast<size_t>(n));
        m_changed.notify_all();
    }
    close(fd);
}

bool Process::write(const std::string& text) {
    size_t done = 0;
    while (m_input >= 0 && done < text.size()) {
        const ssize_t n = ::write(m_input, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return m_input >= 0;
}

void Process::closeInput() {
    if (m_input >= 0) close(m_input);
    m_input = -1;
}

bool Process::waitOutput(const std::string& text, int timeoutMs) {
    std::unique_lock<std::mutex> g(m_lock);
    return m_changed.wait_for(g, std::chrono::milliseconds(timeoutMs),
                              [&] { return m_output.find(text) != std::string::npos; });
}

std::string Process::output() {
    std::lock_guard<std::mutex> g(m_lock);
    return m_output;
}

int Process::waitExit(int timeoutMs) {
    if (m_reaped) return m_status;
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    int status = 0;
    for (;;) {
        const pid_t r = waitpid(m_pid, &status, WNOHANG);
        if (r == m_pid) break;
        if (Clock::now() >= deadline) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, &status, 0);
            m_reaped = true;
            m_status = -1;
            if (m_reader.joinable()) m_reader.join();
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    m_reaped = true;
    m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    if (m_reader.joinable()) m_reader.join();
    return m_status;
}

void Process::signal(int sig) {
    if (m_pid > 0 && !m_reaped) kill(m_pid, sig);
}

bool isolateNetwork() {
    static int state = -1;
    if (state >= 0) return state == 1;
    state = 0;
    if (unshare(CLONE_NEWNET) != 0) return false;
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq ifr{};
    strncpy(ifr.ifr_name, "lo", IFNAMSIZ - 1);
    const bool up = fd >= 0 && ioctl(fd, SIOCGIFFLAGS, &ifr) == 0 &&
                    (ifr.ifr_flags |= IFF_UP | IFF_RUNNING, ioctl(fd, SIOCSIFFLAGS, &ifr) == 0);
    if (fd >= 0) close(fd);
    state = up ? 1 : 0;
    return up;
}

bool portFree(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    const bool ok = fd >= 0 && bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
    if (fd >= 0) close(fd);
    return ok;
}

PortHolder::PortHolder(int port) {
    m_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    if (m_fd >= 0 && (bind(m_fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || listen(m_fd, 4) != 0)) {
        close(m_fd);
        m_fd = -1;
    }
}

PortHolder::~PortHolder() {
    if (m_fd >= 0) close(m_fd);
}

bool jpegFrameSize(const std::string& b, int* width, int* height) {
    if (b.size() < 4 || static_cast<unsigned char>(b[0]) != 0xff || static_cast<unsigned char>(b[1]) != 0xd8)
        return false;
    size_t i = 2;
    while (i + 9 < b.size()) {
        if (static_cast<unsigned char>(b[i]) != 0xff) return false;
        const unsigned char marker = static_cast<unsigned char>(b[i + 1]);
        const size_t length = (static_cast<unsigned char>(b[i + 2]) << 8) | static_cast<unsigned char>(b[i + 3]);
        // Start-of-frame markers, except the DHT, JPG and DAC ones among them.
        if (marker >= 0xc0 && marker <= 0xcf && marker != 0xc4 && marker != 0xc8 && marker != 0xcc) {
            *height = (static_cast<unsigned char>(b[i + 5]) << 8) | static_cast<unsigned char>(b[i + 6]);
            *width = (static_cast<unsigned char>(b[i + 7]) << 8) | static_cast<unsigned char>(b[i + 8]);
            return true;
        }
        i += 2 + length;
    }
    return false;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

void printLibraryLog(const std::string& path, int maxLines) {
    std::ifstream in(path);
    std::string line;
    int n = 0;
    while (std::getline(in, line) && n++ < maxLines) fprintf(stderr, "[library] %s\n", line.c_str());
}

}  // namespace simtest
