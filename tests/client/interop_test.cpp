// Interop with a receiver nobody here wrote: Python 3's standard http.server
// (HTTP/1.1, answering "Expect: 100-continue" by itself) plays the phone's
// data server and stores what it receives; the stored file must equal what
// the camera sent, byte for byte.
#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "SP/SPDeviceName.h"
#include "SP/client/SPClientManager.h"
#include "SP/client/SPHTTPClientHandler.h"
#include "client_support.h"
#include "support/test_support.h"

extern char** environ;

using namespace clienttest;

namespace {

// phone_receiver.py run with python3; port() is where it listens.
class PythonPhone {
public:
    explicit PythonPhone(const std::string& outDir) {
        int out[2];
        if (pipe(out) != 0) return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, out[0]);
        std::string script = PHONE_RECEIVER_SCRIPT;
        std::string idle = "60";
        std::string python = "python3";
        char* argv[] = {&python[0], &script[0], const_cast<char*>(outDir.c_str()), &idle[0], nullptr};
        m_spawnError = posix_spawnp(&m_pid, "python3", &actions, nullptr, argv, environ);
        posix_spawn_file_actions_destroy(&actions);
        close(out[1]);
        if (m_spawnError != 0) {
            m_pid = -1;
            close(out[0]);
            return;
        }
        // The first line is the port; wait for it (bounded).
        std::string line;
        for (int i = 0; i < 100 && line.find('\n') == std::string::npos; ++i) {
            pollfd p{out[0], POLLIN, 0};
            if (poll(&p, 1, 100) <= 0) continue;
            char buf[64];
            const ssize_t n = read(out[0], buf, sizeof buf);
            if (n <= 0) break;
            line.append(buf, static_cast<size_t>(n));
        }
        close(out[0]);
        if (line.find('\n') != std::string::npos) m_port = static_cast<uint16_t>(std::stoi(line));
    }
    ~PythonPhone() {
        if (m_pid > 0) {
            kill(m_pid, SIGTERM);
            int status;
            waitpid(m_pid, &status, 0);
        }
    }
    bool missing() const { return m_spawnError == ENOENT; }
    uint16_t port() const { return m_port; }

private:
    pid_t m_pid = -1;
    int m_spawnError = 0;
    uint16_t m_port = 0;
};

class PythonReceiver : public testing::Test {
protected:
    void SetUp() override {
        host::reset();
        strcpy(gDeviceName, "Camera");
        ASSERT_EQ(mkdir((m_dir.path() + "/phone").c_str(), 0700), 0);
        ASSERT_EQ(mkdir((m_dir.path() + "/card").c_str(), 0700), 0);
        m_phone.reset(new PythonPhone(m_dir.path() + "/phone"));
        if (m_phone->missing()) GTEST_SKIP() << "python3 is not installed: interop with Python's http.server skipped";
        ASSERT_NE(m_phone->port(), 0) << "phone_receiver.py did not start";
    }
    std::string card(const std::string& name, const std::string& bytes) {
        const std::string path = m_dir.path() + "/card/" + name;
        writeFile(path, bytes);
        return path;
    }
    std::string stored(const std::string& name) { return readFile(m_dir.path() + "/phone/" + name); }
    std::string storedHead(const std::string& name) { return stored(name + ".head"); }

    testsupport::TempDir m_dir;
    std::unique_ptr<PythonPhone> m_phone;
    EventLog m_events;
    RecordingNotifier m_notifier{&m_events};
};

std::string bytesOf(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((i * 2654435761u) >> 13);
    return s;
}

TEST_F(PythonReceiver, StoresThePushedFileByteForByte) {
    const std::string bytes = bytesOf(1500 * 1000 + 17);
    const std::string path = card("DSC0500.JPG", bytes);
    {
        SPHTTPClientHandler h(&m_notifier, path.c_str(), "127.0.0.1", m_phone->port(), "02:00:7f:00:00:01");
        h.start();
        ASSERT_TRUE(m_events.waitFinals(1, 60000));
    }
    expectOneTransfer(m_events.all(), EVENT_CLIENT_TRANSFER_COMPLETE);
    EXPECT_EQ(stored("DSC0500.JPG"), bytes);
    const std::string head = storedHead("DSC0500.JPG");
    EXPECT_EQ(head.rfind("POST /mnt/sdcard/DCIM/Camera/TessalyLensmate/DSC0500.JPG HTTP/1.1", 0), 0u);
    EXPECT_NE(head.find("Content-Type: image/jpeg"), std::string::npos);
    EXPECT_NE(head.find("User-Agent: ORB_SP_Camera"), std::string::npos);
}

TEST_F(PythonReceiver, StoresAVideoAnnouncedWithItsAttributeLines) {
    const std::string bytes = makeMp4();
    const std::string path = card("MOV0500.MP4", bytes);
    {
        SPHTTPClientHandler h(&m_notifier, path.c_str(), "127.0.0.1", m_phone->port(), "02:00:7f:00:00:01");
        h.start();
        ASSERT_TRUE(m_events.waitFinals(1, 60000));
    }
    expectOneTransfer(m_events.all(), EVENT_CLIENT_TRANSFER_COMPLETE);
    EXPECT_EQ(stored("MOV0500.MP4"), bytes);
    const std::string head = storedHead("MOV0500.MP4");
    EXPECT_NE(head.find("Resolution: 1920X1080"), std::string::npos);
    EXPECT_NE(head.find("Duration: ld"), std::string::npos);
}

TEST_F(PythonReceiver, StoresAnEmptyFile) {
    const std::string path = card("EMPTY.JPG", "");
    {
        SPHTTPClientHandler h(&m_notifier, path.c_str(), "127.0.0.1", m_phone->port(), "02:00:7f:00:00:01");
        h.start();
        ASSERT_TRUE(m_events.waitFinals(1, 60000));
    }
    expectOneTransfer(m_events.all(), EVENT_CLIENT_TRANSFER_COMPLETE);
    EXPECT_EQ(access((m_dir.path() + "/phone/EMPTY.JPG").c_str(), F_OK), 0);
    EXPECT_EQ(stored("EMPTY.JPG"), "");
}

TEST_F(PythonReceiver, StoresTheResizedPictureWhenTheManagerResizes) {
    const std::string path = card("DSC0501.JPG", makeJpeg(4000, 3000));
    callbackLog().clear();
    SPClientManager* mgr = SPClientManager::getInstance();
    mgr->setCallback(recordCallback);
    mgr->setImageTransferSize(1);
    mgr->createFileTransfer(path.c_str(), "127.0.0.1", "02:00:7f:00:00:02", m_phone->port());
    ASSERT_TRUE(callbackLog().waitFinals(1, 60000));
    SPClientManager::destroyInstance();
    expectOneTransfer(callbackLog().all(), EVENT_CLIENT_TRANSFER_COMPLETE);
    int w = 0, h = 0;
    ASSERT_TRUE(jpegSize(stored("DSC0501.JPG"), &w, &h));
    EXPECT_EQ(w, 1920);
    EXPECT_EQ(h, 1440);
}

}  // namespace
