#include "SP/osal/SPSocketWait.h"

#include <poll.h>

#include <cerrno>
#include <climits>
#include <vector>

#include "SP/osal/SPGenericThread.h"

namespace {

// What select() counts as readable and as writable. A hang-up also counts as
// writable (the next send fails at once), so every descriptor poll reports
// is marked somehow and a wait never returns early with nothing marked.
constexpr short kReadableEvents = POLLIN | POLLRDNORM | POLLRDBAND | POLLHUP | POLLERR;
constexpr short kWritableEvents = POLLOUT | POLLWRNORM | POLLWRBAND | POLLERR | POLLHUP;

// One poll(): its own time limit is an int of milliseconds.
int pollOnce(std::vector<struct pollfd>& fds, int64_t timeoutMs) {
    int limit = -1;
    if (timeoutMs >= 0) limit = timeoutMs > INT_MAX ? INT_MAX : static_cast<int>(timeoutMs);
    return poll(fds.data(), static_cast<nfds_t>(fds.size()), limit);
}

}  // namespace

int SPWaitForSockets(SPWaitItem* items, size_t count, int64_t timeoutMs) {
    std::vector<struct pollfd> fds(count);
    for (size_t i = 0; i < count; ++i) {
        items[i].readable = false;
        items[i].writable = false;
        // poll() would skip a negative descriptor silently; select fails.
        if (items[i].fd < 0) {
            errno = EBADF;
            return -1;
        }
        fds[i].fd = items[i].fd;
        fds[i].events = static_cast<short>((items[i].read ? POLLIN : 0) | (items[i].write ? POLLOUT : 0));
        fds[i].revents = 0;
    }
    const int64_t deadline = timeoutMs < 0 ? 0 : SPGenericTime::getMilliseconds() + timeoutMs;
    int rc;
    for (;;) {
        rc = pollOnce(fds, timeoutMs);
        // Only a wait longer than poll's own limit (24 days) comes back here.
        if (rc != 0 || timeoutMs <= INT_MAX) break;
        timeoutMs = deadline - SPGenericTime::getMilliseconds();
        if (timeoutMs <= 0) break;
    }
    if (rc <= 0) return rc;
    int ready = 0;
    for (size_t i = 0; i < count; ++i) {
        const short got = fds[i].revents;
        if (got & POLLNVAL) {
            // A descriptor that is not open: select reports no readiness at
            // all, only the failure.
            for (size_t j = 0; j < count; ++j) items[j].readable = items[j].writable = false;
            errno = EBADF;
            return -1;
        }
        items[i].readable = items[i].read && (got & kReadableEvents) != 0;
        items[i].writable = items[i].write && (got & kWritableEvents) != 0;
        if (items[i].readable || items[i].writable) ++ready;
    }
    return ready;
}

int SPWaitReadable(int fd, int64_t timeoutMs, bool* readable) {
    SPWaitItem item = {fd, true, false, false, false};
    const int rc = SPWaitForSockets(&item, 1, timeoutMs);
    *readable = item.readable;
    return rc;
}

int SPWaitWritable(int fd, int64_t timeoutMs, bool* writable) {
    SPWaitItem item = {fd, false, true, false, false};
    const int rc = SPWaitForSockets(&item, 1, timeoutMs);
    *writable = item.writable;
    return rc;
}
