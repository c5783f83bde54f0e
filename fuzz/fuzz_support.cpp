#include "fuzz_support.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "dlog.h"
#include "host_control.h"

// AddressSanitizer keeps freed memory out of use for a while to catch use
// after free; by default 256 MB of it. A target frees a few kilobytes per
// input, so the default makes every run of the first hundred thousand touch
// fresh pages (page faults took half the time). 16 MB still holds thousands
// of runs' worth of freed blocks, far more than one input's lifetime, which
// is where a use after free happens. ASAN_OPTIONS still overrides it.
extern "C" const char* __asan_default_options() { return "quarantine_size_mb=16"; }

// The platform log inside a fuzz target: lines are dropped. The host
// stand-in would keep them for tests, and memory kept across runs makes
// libFuzzer scan for leaks after every run. The library's logging frame has
// already formatted the message in full (so a format that does not match its
// arguments is caught there) and hands over a fixed frame format whose
// arguments it made itself: that line is not formatted a second time. Any
// other caller's line is formatted, then dropped.
namespace {
const char kFrameFormat[] = "%s: %s(%d) > %s";
}

extern "C" int __dlog_print(int, int, const char*, const char* fmt, ...) {
    if (fmt == nullptr) return -1;
    if (strcmp(fmt, kFrameFormat) == 0) return 0;
    char line[4096];
    va_list ap;
    va_start(ap, fmt);
    const int n = vsnprintf(line, sizeof line, fmt, ap);
    va_end(ap);
    return n;
}

namespace fuzzsupport {

namespace {
// Input sizes that the default socket buffers take whole.
constexpr size_t kDefaultRoom = 32 * 1024;
}  // namespace

void forgetJournal() { host::clearJournal(); }

void fail(const char* what, const char* file, int line) {
    fprintf(stderr, "FUZZ CHECK FAILED: %s (%s:%d)\n", what, file, line);
    abort();
}

bool PeerPair::open(const uint8_t* data, size_t size) {
    if (size > kMaxSocketInput) return false;
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) return false;
    m_camera = fds[0];
    m_phone = fds[1];
    // Room for the whole input in one go, in both directions. The default
    // buffers (about 200 KiB) hold the common small inputs already; four
    // calls fewer per run for those.
    if (size > kDefaultRoom) {
        const int room = static_cast<int>(2 * kMaxSocketInput);
        setsockopt(m_phone, SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
        setsockopt(m_camera, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
        setsockopt(m_camera, SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
        setsockopt(m_phone, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    }
    size_t done = 0;
    while (done < size) {
        // Never waits: what does not fit is a failed open.
        const ssize_t n = send(m_phone, data + done, size - done, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n <= 0) {
            close(m_camera);
            close(m_phone);
            m_camera = m_phone = -1;
            return false;
        }
        done += static_cast<size_t>(n);
    }
    shutdown(m_phone, SHUT_WR);
    return true;
}

PeerPair::~PeerPair() {
    if (m_camera >= 0) close(m_camera);
    if (m_phone >= 0) close(m_phone);
}

int PeerPair::take() {
    const int fd = m_camera;
    m_camera = -1;
    return fd;
}

void PeerPair::drain() {
    char buf[4096];
    while (m_phone >= 0 && recv(m_phone, buf, sizeof buf, MSG_DONTWAIT) > 0) {
    }
}

std::string referenceUnfold(std::string text) {
    for (const char* fold : {"\r\n ", "\r\n\t"}) {
        // After the last fold's CR LF goes, the next one can end no later
        // than where it was (the blank now there may complete a new one).
        size_t at = text.rfind(fold);
        while (at != std::string::npos) {
            text.erase(at, 2);
            at = text.rfind(fold, at);
        }
    }
    return text;
}

bool isUnfolded(const std::string& text) {
    return text.find("\r\n ") == std::string::npos && text.find("\r\n\t") == std::string::npos;
}

}  // namespace fuzzsupport
