// The socket listener, the host's interface addresses (in a network namespace
// of the test's own) and the URL prefix of a connection's own address.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "SP/osal/SPGenericSocket.h"
#include "SP/osal/SPSocketListener.h"
#include "osal_test_util.h"
#include "support/high_descriptors.h"
#include "support/test_support.h"

using osaltest::elapsedMs;

namespace {

// Socket pairs whose first ends the listener watches; writing into the
// second end makes the first readable.
class Pairs {
public:
    explicit Pairs(int n) {
        for (int i = 0; i < n; ++i) {
            int sv[2];
            if (socketpair(AF_UNIX, SOCK_STREAM, 0, sv) == 0) {
                m_watched.push_back(sv[0]);
                m_writer.push_back(sv[1]);
            }
        }
    }
    ~Pairs() {
        for (int fd : m_watched) close(fd);
        for (int fd : m_writer) close(fd);
    }
    int size() const { return static_cast<int>(m_watched.size()); }
    int watched(int i) const { return m_watched[i]; }
    void makeReadable(int i) { (void)!write(m_writer[i], "x", 1); }

private:
    std::vector<int> m_watched;
    std::vector<int> m_writer;
};

class Listener : public testing::Test {
protected:
    void SetUp() override { host::reset(); }
    SPSocketListener listener;
};

TEST_F(Listener, ListenerWithEmptyListSleepsWholeTime) {
    std::vector<int> fds;
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_TRUE(listener.listen(fds, 150));
    const int64_t took = elapsedMs(t0);
    EXPECT_GE(took, 149);  // the sleep counts truncated wall-clock milliseconds
    EXPECT_LT(took, 2000);
    EXPECT_TRUE(fds.empty());
    EXPECT_TRUE(testsupport::messages().empty());
}

TEST_F(Listener, ListenerKeepsOnlyReadableDescriptorsInTheirOrder) {
    Pairs p(4);
    ASSERT_EQ(p.size(), 4);
    p.makeReadable(0);
    p.makeReadable(2);
    // Given out of numeric order: the order of the list is what is kept.
    std::vector<int> fds = {p.watched(3), p.watched(2), p.watched(1), p.watched(0)};
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_TRUE(listener.listen(fds, 5000));
    EXPECT_LT(elapsedMs(t0), 1000) << "returns as soon as something is readable";
    const std::vector<int> expected = {p.watched(2), p.watched(0)};
    EXPECT_EQ(fds, expected);
    EXPECT_TRUE(testsupport::messages().empty());
}

TEST_F(Listener, ListenerTimeOutLeavesAnEmptyListAndReturnsOne) {
    Pairs p(2);
    std::vector<int> fds = {p.watched(0), p.watched(1)};
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_TRUE(listener.listen(fds, 1150));
    const int64_t took = elapsedMs(t0);
    EXPECT_GE(took, 1150) << "whole seconds and the milliseconds left over";
    EXPECT_LT(took, 4000);
    EXPECT_TRUE(fds.empty());
}

TEST_F(Listener, ListenerWaitFailureEmptiesTheListAndReturnsZero) {
    Pairs p(1);
    int closedFd = dup(p.watched(0));
    close(closedFd);
    std::vector<int> fds = {p.watched(0), closedFd};
    p.makeReadable(0);
    EXPECT_FALSE(listener.listen(fds, 100));
    EXPECT_TRUE(fds.empty());
}

TEST_F(Listener, ListenerWithMoreThan32DescriptorsLogsMyAssertAndStillWaits) {
    Pairs p(33);
    ASSERT_EQ(p.size(), 33);
    std::vector<int> fds;
    for (int i = 0; i < 33; ++i) fds.push_back(p.watched(i));
    p.makeReadable(32);
    EXPECT_TRUE(listener.listen(fds, 1000));
    EXPECT_EQ(fds, std::vector<int>{p.watched(32)});
    EXPECT_EQ(testsupport::countLogged("myAssert", "DLNA_OSAL"), 1);
}

TEST_F(Listener, ListenerWithExactly32DescriptorsLogsNothing) {
    Pairs p(32);
    ASSERT_EQ(p.size(), 32);
    std::vector<int> fds;
    for (int i = 0; i < 32; ++i) fds.push_back(p.watched(i));
    p.makeReadable(5);
    EXPECT_TRUE(listener.listen(fds, 1000));
    EXPECT_EQ(fds, std::vector<int>{p.watched(5)});
    EXPECT_TRUE(testsupport::messages().empty());
}

TEST_F(Listener, ListenerWaitsOnDescriptorsAbove1024) {
    testsupport::HighDescriptors high;
    if (!high.why().empty()) GTEST_SKIP() << high.why();
    Pairs p(3);
    ASSERT_EQ(p.size(), 3);
    ASSERT_GT(p.watched(0), 1024);
    p.makeReadable(1);
    std::vector<int> fds = {p.watched(0), p.watched(1), p.watched(2)};
    EXPECT_TRUE(listener.listen(fds, 5000));
    EXPECT_EQ(fds, std::vector<int>{p.watched(1)});
    fds = {p.watched(0), p.watched(2)};
    EXPECT_TRUE(listener.listen(fds, 100));
    EXPECT_TRUE(fds.empty()) << "a time-out";
    EXPECT_TRUE(testsupport::messages().empty());
}

TEST_F(Listener, ServersWaitOnMoreThan32DescriptorsWithoutMyAssert) {
    // The servers wait on their listening socket and up to 64 connections.
    Pairs p(65);
    ASSERT_EQ(p.size(), 65);
    std::vector<int> fds;
    for (int i = 0; i < 65; ++i) fds.push_back(p.watched(i));
    p.makeReadable(3);
    p.makeReadable(64);
    EXPECT_TRUE(SPSocketListener::waitReadable(fds, 1000));
    EXPECT_EQ(fds, (std::vector<int>{p.watched(3), p.watched(64)}));
    EXPECT_TRUE(testsupport::messages().empty());
}

TEST_F(Listener, WaitEndedByASignalFailsWithEintr) {
    osaltest::InterruptingSignal sig;
    Pairs p(1);
    std::vector<int> fds = {p.watched(0)};
    std::atomic<pthread_t> waiter{0};
    std::atomic<bool> started{false};
    std::atomic<bool> result{true};
    int err = 0;
    std::thread t([&] {
        waiter = pthread_self();
        started = true;
        result = listener.listen(fds, 5000);
        err = errno;
    });
    ASSERT_TRUE(osaltest::waitFor(started));
    osaltest::sleepMs(100);
    pthread_kill(waiter.load(), SIGUSR1);
    t.join();
    EXPECT_FALSE(result.load());
    EXPECT_EQ(err, EINTR) << "the servers tell a signal from a failed wait by it";
    EXPECT_TRUE(fds.empty());
}

// --- SPHostInfo in a network namespace ----------------------------------------------------

// Outcome of building an SPHostInfo in a fresh network namespace set up by
// `commands` (each run with `ip` inside the namespace).
struct NamespaceResult {
    bool skipped = false;
    std::string why;
    std::vector<std::string> addresses;  // dotted, in SPHostInfo order
};

NamespaceResult hostInfoInNamespace(const std::vector<std::string>& commands) {
    NamespaceResult r;
    if (geteuid() != 0) {
        r.skipped = true;
        r.why = "needs root to create a network namespace";
        return r;
    }
    int pipefd[2];
    if (pipe(pipefd) != 0) {
        r.skipped = true;
        r.why = "pipe failed";
        return r;
    }
    const pid_t child = fork();
    if (child == 0) {
        close(pipefd[0]);
        FILE* out = fdopen(pipefd[1], "w");
        if (unshare(CLONE_NEWNET) != 0) {
            fprintf(out, "SKIP network namespaces unavailable: %s\n", strerror(errno));
            fclose(out);
            _exit(0);
        }
        for (const auto& cmd : commands) {
            const std::string full = "ip " + cmd + " >/dev/null 2>&1";
            if (system(full.c_str()) != 0) {
                fprintf(out, "SKIP could not run 'ip %s' in the namespace\n", cmd.c_str());
                fclose(out);
                _exit(0);
            }
        }
        SPHostInfo info;
        for (uint32_t a : info.addresses()) {
            struct in_addr in;
            in.s_addr = htonl(a);
            fprintf(out, "%s\n", inet_ntoa(in));
        }
        fclose(out);
        _exit(0);
    }
    close(pipefd[1]);
    std::string text;
    char buf[256];
    ssize_t n;
    while ((n = read(pipefd[0], buf, sizeof(buf))) > 0) text.append(buf, static_cast<size_t>(n));
    close(pipefd[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        r.skipped = true;
        r.why = "namespace child failed";
        ADD_FAILURE() << "the namespace child ended abnormally";
        return r;
    }
    if (text.rfind("SKIP ", 0) == 0) {
        r.skipped = true;
        r.why = text.substr(5);
        return r;
    }
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line))
        if (!line.empty()) r.addresses.push_back(line);
    return r;
}

// lo comes first in a new namespace (index 1); wlan0 is a veth end, which
// needs no hardware (the dummy link type is not available here).
const std::vector<std::string> kLoThenWlan0 = {
    "link set lo up",
    "link add wlan0 type veth peer name wl-peer",
    "addr add 198.51.100.5/24 dev wlan0",
    "link set wlan0 up",
};

TEST_F(Listener, HostInfoListsTheRealInterfaceFirstAndLoopbackLast) {
    auto r = hostInfoInNamespace(kLoThenWlan0);
    if (r.skipped) GTEST_SKIP() << r.why;
    const std::vector<std::string> expected = {"198.51.100.5", "127.0.0.1"};
    EXPECT_EQ(r.addresses, expected);
}

TEST_F(Listener, HostInfoSwapsLoopbackWithTheLastEntry) {
    auto cmds = kLoThenWlan0;
    cmds.push_back("link add wlan1 type veth peer name wl-peer1");
    cmds.push_back("addr add 198.51.100.6/24 dev wlan1");
    cmds.push_back("link set wlan1 up");
    auto r = hostInfoInNamespace(cmds);
    if (r.skipped) GTEST_SKIP() << r.why;
    // Loopback and the last entry trade places; the middle stays.
    const std::vector<std::string> expected = {"198.51.100.6", "198.51.100.5", "127.0.0.1"};
    EXPECT_EQ(r.addresses, expected);
}

TEST_F(Listener, HostInfoWithOnlyLoopbackListsIt) {
    auto r = hostInfoInNamespace({"link set lo up"});
    if (r.skipped) GTEST_SKIP() << r.why;
    EXPECT_EQ(r.addresses, std::vector<std::string>{"127.0.0.1"});
}

TEST_F(Listener, HostInfoWithNoAddressIsEmpty) {
    auto r = hostInfoInNamespace({});  // lo is down and has no address yet
    if (r.skipped) GTEST_SKIP() << r.why;
    EXPECT_TRUE(r.addresses.empty());
}

// --- GetLocalAddr -------------------------------------------------------------------------

TEST_F(Listener, LocalAddrOfALoopbackConnectionIsTheUrlPrefix) {
    SPTCPSocket server;
    struct sockaddr_in a;
    std::memset(&a, 0, sizeof(a));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_TRUE(server.bind(&a));
    ASSERT_TRUE(server.listen());
    socklen_t len = sizeof(a);
    getsockname(server.get_fd(), reinterpret_cast<struct sockaddr*>(&a), &len);
    SPTCPSocket client;
    ASSERT_TRUE(client.connect(&a));
    char out[28];
    std::memset(out, 'X', sizeof(out));
    EXPECT_EQ(GetLocalAddr(client.get_fd(), out), 1);
    EXPECT_STREQ(out, "http://127.0.0.1:9001");
    EXPECT_TRUE(testsupport::logged("PREFIX : http://127.0.0.1:9001", "DLNA_SP"));
    EXPECT_EQ(testsupport::messages("DLNA_SP").size(), 1u);
}

TEST_F(Listener, LocalAddrOfSomethingThatIsNotASocketLogsAndReturnsZero) {
    int p[2];
    ASSERT_EQ(pipe(p), 0);
    char out[28] = "untouched";
    EXPECT_EQ(GetLocalAddr(p[0], out), 0);
    EXPECT_STREQ(out, "untouched");
    close(p[0]);
    close(p[1]);
    auto lines = host::logLinesContaining("error in getsockname");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].tag, "DLNA_SP");
    EXPECT_EQ(lines[0].priority, 6);
    EXPECT_EQ(testsupport::messageOf(lines[0]), "error in getsockname");
}

}  // namespace
