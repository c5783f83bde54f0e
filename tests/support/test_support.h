// Helpers shared by the test suites.
#ifndef CAMWIFI_TEST_SUPPORT_H
#define CAMWIFI_TEST_SUPPORT_H

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "host_control.h"

namespace testsupport {

// Message part of a captured line: what follows "> " up to the closing colour
// code, without the colour prefix ("\x1b[m" or "\x1b[31m").
std::string messageOf(const host::LogLine& line);
// Messages of all captured lines with the given tag (all tags when empty).
std::vector<std::string> messages(const std::string& tag = "");
// True when some captured line's message equals text exactly.
bool logged(const std::string& text, const std::string& tag = "");
// Number of captured lines whose message equals text.
int countLogged(const std::string& text, const std::string& tag = "");

// A temporary directory removed (with its contents) on destruction.
class TempDir {
public:
    TempDir();
    ~TempDir();
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

// A place where a thread of the library is held, typically inside a UI
// callback that does not return, until the test lets it go or limitMs
// passed; the test can wait until a thread is inside.
class Hold {
public:
    // Called by the thread to hold.
    void enter(int limitMs = 20000);
    // True once a thread entered (waits at most timeoutMs).
    bool waitInside(int timeoutMs = 10000);
    // Lets every held thread, and every later one, go on.
    void release();
    // As new: nobody inside, not released.
    void reset();

private:
    std::mutex m_lock;
    std::condition_variable m_changed;
    bool m_inside = false;
    bool m_released = false;
};

// Open descriptors and threads of this process (entries of /proc/self/fd and
// /proc/self/task; -1 when unreadable), for leak checks around a start and
// terminate.
int openFds();
int threads();
// Whether a program of that name is on PATH.
bool haveCommand(const std::string& name);

}  // namespace testsupport

#endif
