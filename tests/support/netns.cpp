#include "support/netns.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace testsupport {
namespace {

int run(const std::string& command) {
    int rc = std::system((command + " >/dev/null 2>&1").c_str());
    return WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
}

}  // namespace

std::string netnsUnavailableReason() {
    // Set by the armhf build's test emulator (cmake/toolchain-armhf.cmake).
    // qemu-arm does not hand every network ioctl to the kernel whole (the
    // address of a SIOCGARP request arrives empty), so tests of real peers in
    // namespaces run natively only.
    if (const char* emulator = std::getenv("CAMWIFI_EMULATED"))
        return std::string("network namespace tests do not run under user-mode emulation (") + emulator +
               "): it does not pass every network ioctl to the kernel";
    if (geteuid() != 0) return "network namespace tests need root (CI runs them as root)";
    if (run("command -v ip") != 0) return "the ip command (iproute2) is not installed";
    NetNamespace probe("cw-probe");
    if (!probe.ok()) return "ip netns add failed: network namespaces are not available here";
    return "";
}

NetNamespace::NetNamespace(const std::string& baseName) {
    static std::atomic<int> counter{0};
    m_name = baseName + "-" + std::to_string(getpid()) + "-" + std::to_string(counter++);
    m_ok = run("ip netns add " + m_name) == 0 && exec("ip link set lo up") == 0;
}

NetNamespace::~NetNamespace() {
    if (!m_name.empty()) run("ip netns del " + m_name);
}

int NetNamespace::exec(const std::string& command) const {
    return run("ip netns exec " + m_name + " " + command);
}

std::string NetNamespace::output(const std::string& command) const {
    std::string out;
    FILE* p = popen(("ip netns exec " + m_name + " " + command + " 2>/dev/null").c_str(), "r");
    if (p == nullptr) return out;
    char buf[256];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
    pclose(p);
    while (!out.empty() && (out.back() == '\n' || out.back() == ' ')) out.pop_back();
    return out;
}

bool joinByVeth(const NetNamespace& a, const std::string& ifA, const std::string& addrA,
                const NetNamespace& b, const std::string& ifB, const std::string& addrB) {
    return a.exec("ip link add " + ifA + " type veth peer name " + ifB + " netns " + b.name()) == 0 &&
           a.exec("ip addr add " + addrA + " dev " + ifA) == 0 && a.exec("ip link set " + ifA + " up") == 0 &&
           b.exec("ip addr add " + addrB + " dev " + ifB) == 0 && b.exec("ip link set " + ifB + " up") == 0;
}

EnterNetNamespace::EnterNetNamespace(const NetNamespace& ns) {
    m_oldFd = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    int fd = open(("/var/run/netns/" + ns.name()).c_str(), O_RDONLY | O_CLOEXEC);
    if (m_oldFd >= 0 && fd >= 0) m_ok = setns(fd, CLONE_NEWNET) == 0;
    if (fd >= 0) close(fd);
}

EnterNetNamespace::~EnterNetNamespace() {
    if (m_oldFd >= 0) {
        if (m_ok) setns(m_oldFd, CLONE_NEWNET);
        close(m_oldFd);
    }
}

NsProcess::NsProcess(const NetNamespace& ns, const std::vector<std::string>& argv) {
    std::vector<std::string> all = {"ip", "netns", "exec", ns.name()};
    all.insert(all.end(), argv.begin(), argv.end());
    std::vector<char*> args;
    for (auto& a : all) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    // CAMWIFI_RENDERER_LOG_DIR keeps each process's output (a renderer's
    // assertion text when it aborts) for a look after a failed run. Named
    // before the fork: the child of a threaded program only execs.
    static std::atomic<int> started{0};
    std::string logFile = "/dev/null";
    if (const char* dir = getenv("CAMWIFI_RENDERER_LOG_DIR"))
        logFile = std::string(dir) + "/" + argv.at(0) + "-" + std::to_string(getpid()) + "-" +
                  std::to_string(++started) + ".log";
    m_pid = fork();
    if (m_pid == 0) {
        int out = open(logFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (out < 0) out = open("/dev/null", O_WRONLY);
        dup2(out, 1);
        dup2(out, 2);
        execvp(args[0], args.data());
        _exit(127);
    }
}

NsProcess::~NsProcess() { end(); }

bool NsProcess::alive() { return m_pid > 0 && waitpid(m_pid, nullptr, WNOHANG) == 0; }

void NsProcess::signal(int sig) {
    if (m_pid > 0) kill(m_pid, sig);
}

void NsProcess::end() {
    if (m_pid <= 0) return;
    kill(m_pid, SIGTERM);
    for (int i = 0; i < 50; ++i) {
        if (waitpid(m_pid, nullptr, WNOHANG) == m_pid) {
            m_pid = -1;
            return;
        }
        usleep(100 * 1000);
    }
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
    m_pid = -1;
}

}  // namespace testsupport
