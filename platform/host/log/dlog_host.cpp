// Host platform log: keeps each line for tests and, when CAMWIFI_LOG names a
// file, appends it there so a person can follow the simulator.
//
// The file is opened once per process (again only when CAMWIFI_LOG comes to
// name another file) and each line goes out as one write() to a descriptor
// opened for appending: the kernel puts every line whole at the end, whichever
// thread writes it, and a reader sees it as soon as the call returns (nothing
// waits in a user-space buffer).
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "dlog.h"
#include "host_internal.h"

namespace {

// The open log file. Made on first use and never destroyed, so a line logged
// by a thread still running while the process exits finds it intact.
struct LogFile {
    std::mutex lock;
    std::string path;  // the CAMWIFI_LOG value fd was opened for
    int fd = -1;       // -1: not open (never asked, or the open failed)
};

LogFile& logFile() {
    static LogFile* f = new LogFile;
    return *f;
}

// The descriptor for path, opened when path is not the one already open. A
// failed open is tried again on the next line (the folder may appear later).
// Called with the lock held.
int descriptorFor(LogFile& f, const char* path) {
    if (f.fd >= 0 && f.path == path) return f.fd;
    if (f.fd >= 0) ::close(f.fd);
    f.fd = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    f.path = path;
    return f.fd;
}

bool writeAll(int fd, const char* data, size_t len) {
    while (len > 0) {
        const ssize_t n = ::write(fd, data, len);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        data += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}

void writeToLogFile(int prio, const char* tag, const std::string& text) {
    const char* path = getenv("CAMWIFI_LOG");
    if (path == nullptr || *path == '\0') return;
    // "I/TAG text\n" built first, so that the line is one write.
    std::string line;
    line.reserve(text.size() + 40);
    line += prio >= DLOG_PRIO_ERROR ? 'E' : 'I';
    line += '/';
    if (tag) line += tag;
    line += ' ';
    line += text;
    if (text.empty() || text.back() != '\n') line += '\n';
    LogFile& f = logFile();
    std::lock_guard<std::mutex> g(f.lock);
    const int fd = descriptorFor(f, path);
    if (fd >= 0) writeAll(fd, line.data(), line.size());
}

}  // namespace

extern "C" int __dlog_print(int log_id, int prio, const char* tag, const char* fmt, ...) {
    if (fmt == nullptr) return -1;
    va_list ap, ap2;
    va_start(ap, fmt);
    va_copy(ap2, ap);
    // Most lines fit here, and take one formatting pass instead of two.
    char first[512];
    int n = vsnprintf(first, sizeof first, fmt, ap);
    va_end(ap);
    if (n < 0) {
        va_end(ap2);
        return -1;
    }
    std::string text;
    if (static_cast<size_t>(n) < sizeof first) {
        text.assign(first, static_cast<size_t>(n));
    } else {
        text.assign(static_cast<size_t>(n) + 1, '\0');
        vsnprintf(&text[0], text.size(), fmt, ap2);
        text.resize(static_cast<size_t>(n));
    }
    va_end(ap2);
    writeToLogFile(prio, tag, text);
    host::recordLogLine(host::LogLine{log_id, prio, tag ? tag : "", text});
    return n;
}
