// Network namespaces made by a test: several hosts on one machine, joined by
// veth pairs, with addresses from 198.51.100.0/24. Nothing leaves the machine.
// Needs root (CI runs as root); elsewhere tests skip with a clear message.
#ifndef CAMWIFI_TEST_NETNS_H
#define CAMWIFI_TEST_NETNS_H

#include <string>
#include <vector>

namespace testsupport {

// Empty when namespaces can be made here, else why not (for GTEST_SKIP).
std::string netnsUnavailableReason();

// A named network namespace, deleted (with its interfaces) on destruction.
class NetNamespace {
public:
    explicit NetNamespace(const std::string& baseName);
    ~NetNamespace();
    const std::string& name() const { return m_name; }
    bool ok() const { return m_ok; }
    // Runs a shell command inside the namespace; returns its exit status.
    int exec(const std::string& command) const;
    // Runs a command inside the namespace and returns its standard output.
    std::string output(const std::string& command) const;

private:
    std::string m_name;
    bool m_ok = false;
};

// Joins a and b by a veth pair: ifA in a with addrA, ifB in b with addrB
// (addresses with prefix, e.g. "198.51.100.1/24"); links and lo set up.
bool joinByVeth(const NetNamespace& a, const std::string& ifA, const std::string& addrA,
                const NetNamespace& b, const std::string& ifB, const std::string& addrB);

// While alive, the calling thread (and threads it starts) live in the
// namespace; the thread's former namespace is restored on destruction.
class EnterNetNamespace {
public:
    explicit EnterNetNamespace(const NetNamespace& ns);
    ~EnterNetNamespace();
    bool ok() const { return m_ok; }

private:
    int m_oldFd = -1;
    bool m_ok = false;
};

// A command started inside a namespace (its output discarded), ended with
// SIGTERM (then SIGKILL after 5 seconds) on destruction.
class NsProcess {
public:
    NsProcess(const NetNamespace& ns, const std::vector<std::string>& argv);
    ~NsProcess();
    // False once the process has ended (crashed or exited).
    bool alive();
    // Sends sig to the process (SIGSTOP freezes it, SIGCONT thaws it).
    void signal(int sig);
    void end();

private:
    int m_pid = -1;
};

}  // namespace testsupport

#endif
