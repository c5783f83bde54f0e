#include "support/test_support.h"

#include <dirent.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace {

// The unit tests drive the scripted DLNA stack. ctest sets
// CAMWIFI_DLNA_STACK for every test; this covers a test binary run by hand,
// which would otherwise get the real stack (the default). A suite of the
// real stack sets the variable itself.
const bool kScriptedStackByDefault = (setenv("CAMWIFI_DLNA_STACK", "scripted", 0), true);

}  // namespace

namespace testsupport {

std::string messageOf(const host::LogLine& line) {
    const std::string& t = line.text;
    size_t start = t.find("> ");
    if (start == std::string::npos) return t;
    start += 2;
    if (t.compare(start, 5, "\x1b[31m") == 0) start += 5;
    else if (t.compare(start, 3, "\x1b[m") == 0) start += 3;
    size_t end = t.size();
    if (t.size() >= 4 && t.compare(t.size() - 4, 4, "\x1b[m\n") == 0) end -= 4;
    return t.substr(start, end - start);
}

std::vector<std::string> messages(const std::string& tag) {
    std::vector<std::string> out;
    for (auto& l : host::logLines())
        if (tag.empty() || l.tag == tag) out.push_back(messageOf(l));
    return out;
}

int countLogged(const std::string& text, const std::string& tag) {
    int n = 0;
    for (auto& m : messages(tag))
        if (m == text) ++n;
    return n;
}

bool logged(const std::string& text, const std::string& tag) { return countLogged(text, tag) > 0; }

TempDir::TempDir() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "camwifi-test-XXXXXX").string();
    if (mkdtemp(&tmpl[0]) == nullptr) throw std::runtime_error("mkdtemp failed");
    m_path = tmpl;
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(m_path, ec);
}

void Hold::enter(int limitMs) {
    std::unique_lock<std::mutex> l(m_lock);
    m_inside = true;
    m_changed.notify_all();
    m_changed.wait_for(l, std::chrono::milliseconds(limitMs), [this] { return m_released; });
}

bool Hold::waitInside(int timeoutMs) {
    std::unique_lock<std::mutex> l(m_lock);
    return m_changed.wait_for(l, std::chrono::milliseconds(timeoutMs), [this] { return m_inside; });
}

void Hold::release() {
    std::lock_guard<std::mutex> g(m_lock);
    m_released = true;
    m_changed.notify_all();
}

void Hold::reset() {
    std::lock_guard<std::mutex> g(m_lock);
    m_inside = m_released = false;
}

namespace {
int countEntries(const char* dir) {
    int n = 0;
    DIR* d = opendir(dir);
    if (d == nullptr) return -1;
    while (readdir(d) != nullptr) ++n;
    closedir(d);
    return n;
}
}  // namespace

int openFds() { return countEntries("/proc/self/fd"); }
int threads() { return countEntries("/proc/self/task"); }

bool haveCommand(const std::string& name) {
    return std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) == 0;
}

}  // namespace testsupport
