// The mode server with peers nobody here wrote: curl plays the phone, and
// Python's http.server is the phone's event receiver. Phones in their own
// network namespace are known by their real MAC address.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>

#include "ModeServer/ModeServer.h"
#include "ModeServer/ModeServerApi.h"
#include "camwifi/camwifi.h"
#include "mode/mode_test_util.h"
#include "support/netns.h"
#include "support/tcp_peer.h"
#include "support/test_support.h"

using modetest::reply;

namespace {

// Runs a shell command and returns its standard output.
std::string run(const std::string& command) {
    std::string out;
    FILE* p = popen(command.c_str(), "r");
    if (p == nullptr) return out;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
    pclose(p);
    return out;
}

bool haveCommand(const char* name) { return system((std::string("command -v ") + name + " >/dev/null 2>&1").c_str()) == 0; }

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

std::string hex(const std::string& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (unsigned char c : bytes) {
        out += digits[c >> 4];
        out += digits[c & 15];
    }
    return out;
}

void acceptEveryPhone(ZEB_CALLBACK_EVENT event, void*, intptr_t) {
    if (event == 1) ModeServerSendEventToModule(0, 1, nullptr);
}

std::mutex gUiLock;
std::vector<int> gUiEvents;
void recordAndAccept(ZEB_CALLBACK_EVENT event, void* mac, intptr_t ua) {
    {
        std::lock_guard<std::mutex> g(gUiLock);
        gUiEvents.push_back(event);
    }
    acceptEveryPhone(event, mac, ua);
}
std::vector<int> uiEvents() {
    std::lock_guard<std::mutex> g(gUiLock);
    return gUiEvents;
}

// Python's http.server as a NOTIFY receiver, started and stopped by the test.
class PythonReceiver {
public:
    explicit PythonReceiver(const std::string& record) {
        int out[2];
        if (pipe(out) != 0) return;
        m_pid = fork();
        if (m_pid == 0) {
            dup2(out[1], 1);
            close(out[0]);
            close(out[1]);
            execlp("python3", "python3", MODE_NOTIFY_RECEIVER_SCRIPT, record.c_str(), "60", static_cast<char*>(nullptr));
            _exit(127);
        }
        close(out[1]);
        std::string line;
        char c;
        // Bounded: the script prints its port first, or exits.
        while (line.size() < 16 && read(out[0], &c, 1) == 1 && c != '\n') line += c;
        close(out[0]);
        m_port = atoi(line.c_str());
    }
    ~PythonReceiver() {
        if (m_pid > 0) {
            kill(m_pid, SIGTERM);
            waitpid(m_pid, nullptr, 0);
        }
    }
    int port() const { return m_port; }

private:
    pid_t m_pid = -1;
    int m_port = 0;
};

class ModeInterop : public testing::Test {
protected:
    void SetUp() override {
        host::reset();
        std::lock_guard<std::mutex> g(gUiLock);
        gUiEvents.clear();
    }
    void TearDown() override { ModeServerTerminate(); }
    void start(int mode, ZEB_MODE_CALLBACK cb = acceptEveryPhone) {
        ASSERT_EQ(ModeServerStart(cb, mode), 1);
        ASSERT_TRUE(ptheModeServer.load()->waitUntilListening(5000));
    }
    testsupport::TempDir m_dir;
};

TEST_F(ModeInterop, CurlPhoneLearnsTheModeWithGetAndHead) {
    if (!haveCommand("curl")) GTEST_SKIP() << "curl is not installed (scripts/setup.sh installs it)";
    start(MS_MODE_RVF);
    const std::string headers =
        " -H 'NTS: alive' -H 'User-Agent: ORB_MODE_CurlPhone/1.0'"
        " -H 'CALLBACK: <http://127.0.0.1:9/eventCallback>' ";
    std::string got = run("curl -s -i --max-time 10" + headers + "http://127.0.0.1:7788/mode/control");
    EXPECT_EQ(got, reply(200, "OK", "RVF"));
    got = run("curl -s -I --max-time 10" + headers + "http://127.0.0.1:7788/mode/control");
    EXPECT_EQ(got, reply(200, "OK", "RVF"));
    auto devices = ptheModeServer.load()->devices();
    ASSERT_EQ(devices.size(), 2u);
    EXPECT_EQ(devices[0].m_sUserAgent, "curlphone/1.0");
    EXPECT_EQ(devices[0].m_iPort, 9);
    // A plain query reads the mode only.
    got = run("curl -s -o /dev/null -D - --max-time 10 http://127.0.0.1:7788/MODE/control");
    EXPECT_NE(got.find("Operation-Mode: RVF\r\n"), std::string::npos) << got;
    EXPECT_EQ(ptheModeServer.load()->devices().size(), 2u);
    got = run("curl -s -o /dev/null -w '%{http_code}' --max-time 10 http://127.0.0.1:7788/other");
    EXPECT_EQ(got, "503");
}

TEST_F(ModeInterop, PythonReceiverGetsTheModeChangeNotify) {
    if (!haveCommand("python3")) GTEST_SKIP() << "python3 is not installed (scripts/setup.sh installs it)";
    const std::string record = m_dir.path() + "/notify.txt";
    PythonReceiver receiver(record);
    ASSERT_GT(receiver.port(), 0);
    start(MS_MODE_IDLE);
    int fd = testsupport::connectFrom("127.0.0.5", "127.0.0.1", 7788);
    ASSERT_GE(fd, 0);
    ASSERT_TRUE(testsupport::sendAll(
        fd, modetest::alive("ORB_MODE_Py", "<http://127.0.0.1:" + std::to_string(receiver.port()) + "/cb>")));
    EXPECT_EQ(testsupport::recvUntil(fd, "\r\n\r\n", 5000), reply(200, "OK", "IDLE"));
    close(fd);
    EXPECT_EQ(ModeServerSendEventToModule(1, 5, nullptr), 1) << "http.server answered 200";
    const std::string body = modetest::propertySet({{"CurrentMode", "CrowdSend"}});
    const std::string expected = "NOTIFY /eventCallback HTTP/1.1 \nHost: 127.0.0.1:" + std::to_string(receiver.port()) +
                                 "\nUser-Agent: Tessaly mode server\nContent-Length: " + std::to_string(body.size()) +
                                 "\nConnection: Close\n\n" + hex(body) + "\n";
    EXPECT_EQ(readFile(record), expected);
}

TEST_F(ModeInterop, PhoneInItsOwnNetworkIsKnownByItsRealMacUntilItLeaves) {
    const std::string why = testsupport::netnsUnavailableReason();
    if (!why.empty()) GTEST_SKIP() << why;
    testsupport::NetNamespace camera("cw-mcam");
    testsupport::NetNamespace phoneNet("cw-mphone");
    ASSERT_TRUE(camera.ok() && phoneNet.ok());
    ASSERT_TRUE(testsupport::joinByVeth(camera, "wlan0", "198.51.100.1/24", phoneNet, "ph0", "198.51.100.7/24"));
    const std::string phoneMac = phoneNet.output("cat /sys/class/net/ph0/address");
    ASSERT_EQ(phoneMac.size(), 17u);
    {
        testsupport::EnterNetNamespace in(camera);
        ASSERT_TRUE(in.ok());
        start(MS_MODE_IDLE, recordAndAccept);  // its thread lives in the camera's namespace
    }
    std::unique_ptr<modetest::NotifyReceiver> receiver;
    std::string answer;
    {
        testsupport::EnterNetNamespace in(phoneNet);
        ASSERT_TRUE(in.ok());
        receiver.reset(new modetest::NotifyReceiver("HTTP/1.1 200 OK\r\n\r\n", "198.51.100.7"));
        ASSERT_TRUE(receiver->ok());
        int fd = testsupport::connectFrom("198.51.100.7", "198.51.100.1", 7788);
        ASSERT_GE(fd, 0);
        testsupport::sendAll(fd, modetest::alive("ORB_MODE_Pixel", "<http://198.51.100.7:" +
                                                                        std::to_string(receiver->port()) + "/cb>"));
        answer = testsupport::recvUntil(fd, "\r\n\r\n", 5000);
        close(fd);
    }
    EXPECT_EQ(answer, reply(200, "OK", "IDLE"));
    auto devices = ptheModeServer.load()->devices();
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].m_sMacAddr, phoneMac);
    {
        // The NOTIFY leaves from the camera's network.
        testsupport::EnterNetNamespace in(camera);
        ASSERT_TRUE(in.ok());
        EXPECT_EQ(ModeServerSendEventToModule(1, 3, nullptr), 1);
    }
    EXPECT_EQ(receiver->waitRequests(1, 3000).size(), 1u);
    {
        testsupport::EnterNetNamespace in(phoneNet);
        ASSERT_TRUE(in.ok());
        int fd = testsupport::connectFrom("198.51.100.7", "198.51.100.1", 7788);
        ASSERT_GE(fd, 0);
        testsupport::sendAll(fd, modetest::byebye());
        answer = testsupport::recvUntil(fd, "\r\n\r\n", 5000);
        close(fd);
    }
    EXPECT_EQ(answer, reply(200, "OK", "InstantSend"));
    EXPECT_TRUE(ptheModeServer.load()->devices().empty());
    EXPECT_TRUE(testsupport::logged("MS BYE : ClientMacAddress = " + phoneMac, "DLNA_MS"));
    EXPECT_EQ(uiEvents(), (std::vector<int>{1, 2}));
    ModeServerTerminate();  // before the namespaces go
    receiver.reset();
}

}  // namespace
