#include "ModeServer/ModeSocketIO.h"

#include <sys/socket.h>

#include <cerrno>

#include "SP/osal/SPGenericSocket.h"
#include "SP/osal/SPGenericThread.h"
#include "SP/osal/SPSocketWait.h"

namespace modeio {

namespace {
// One wait for room to write.
const int kWriteWaitMs = 500;
}  // namespace

ReadResult readSome(int fd, char* buf, size_t len, int64_t ms, size_t* got) {
    *got = 0;
    const int64_t deadline = SPGenericTime::getMilliseconds() + (ms > 0 ? ms : 0);
    for (;;) {
        int64_t left = deadline - SPGenericTime::getMilliseconds();
        if (left < 0) left = 0;
        bool readable = false;
        const int rc = SPWaitReadable(fd, left > 60000 ? 60000 : left, &readable);
        if (rc < 0) {
            if (errno == EINTR) continue;
            return READ_ERROR;
        }
        if (rc == 0) {
            if (SPGenericTime::getMilliseconds() >= deadline) return READ_TIMEOUT;
            continue;
        }
        const ssize_t n = recv(fd, buf, len, 0);
        if (n > 0) {
            *got = static_cast<size_t>(n);
            return READ_DATA;
        }
        if (n == 0) return READ_CLOSED;
        if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK) continue;
        return READ_ERROR;
    }
}

SendResult sendAll(SPTCPSocket* socket, const char* data, unsigned long length, int64_t deadlineMs,
                   const std::atomic<int>* cancelled) {
    if (socket == nullptr || !socket->SetNonBlocking(true)) return SEND_NONBLOCK_FAILED;
    unsigned long done = 0;
    while (done < length) {
        if (cancelled != nullptr && cancelled->load() != 0) return SEND_CANCELLED;
        SPWaitItem room = {socket->get_fd(), false, true, false, false};
        const int rc = SPWaitForSockets(&room, 1, kWriteWaitMs);
        if (rc < 0 && errno != EINTR) return SEND_WAIT_FAILED;
        if (rc > 0) {
            unsigned long sent = 0;
            if (!socket->send(data + done, length - done, &sent)) {
                // A full send buffer is not an error: wait for room again.
                if (errno != EAGAIN && errno != EWOULDBLOCK) return SEND_FAILED;
                sent = 0;
            }
            done += sent;
            if (done == length) return SEND_OK;
        }
        if (SPGenericTime::getMilliseconds() > deadlineMs) return SEND_TIMEOUT;
    }
    return SEND_OK;
}

}  // namespace modeio
