// Programs run by the simulator tests as a person runs them: camwifi-sim and
// phone-sim as child processes with a pipe on standard input and one that
// collects standard output and error.
#ifndef CAMWIFI_TESTS_SIM_PROCESS_H
#define CAMWIFI_TESTS_SIM_PROCESS_H

#include <sys/types.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace simtest {

class Process {
public:
    Process() = default;
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    bool start(const std::string& program, const std::vector<std::string>& args);
    pid_t pid() const { return m_pid; }

    // Writes text to its standard input; closeInput() ends that input.
    bool write(const std::string& text);
    void closeInput();
    // Waits (at most timeoutMs) until its output contains text; true if so.
    bool waitOutput(const std::string& text, int timeoutMs);
    std::string output();
    // Exit status once it ended (128 + signal when a signal ended it), or
    // -1 when it still runs after timeoutMs (it is then killed).
    int waitExit(int timeoutMs);
    void signal(int sig);

private:
    void collect(int fd);

    pid_t m_pid = -1;
    int m_input = -1;
    int m_status = -1;
    bool m_reaped = false;
    std::thread m_reader;
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::string m_output;
};

// Gives this test process a network namespace of its own (with loopback up)
// when it may make one: the camera's fixed ports are then its own, whatever
// else runs on the machine. False where it may not (not root); the ctest
// resource locks then keep the suites that bind those ports apart.
bool isolateNetwork();

// True when the TCP port can be bound on every address (nothing listens).
bool portFree(int port);
// Listens on 0.0.0.0:port until destroyed (to make the port busy).
class PortHolder {
public:
    explicit PortHolder(int port);
    ~PortHolder();
    bool ok() const { return m_fd >= 0; }

private:
    int m_fd = -1;
};

// Width and height from a JPEG's frame header; false when there is none.
bool jpegFrameSize(const std::string& bytes, int* width, int* height);
std::string readFile(const std::string& path);
// Prints the first maxLines lines of the library's log at path to standard
// error, each marked [library]: what a failed test shows of the library.
void printLibraryLog(const std::string& path, int maxLines);

}  // namespace simtest

#endif
