// The mode server's reads and writes on its connections and on the NOTIFY
// connection, waiting through the platform layer's wait (any descriptor
// number works).
#ifndef CAMWIFI_MODE_SOCKET_IO_H
#define CAMWIFI_MODE_SOCKET_IO_H

#include <atomic>
#include <cstddef>
#include <cstdint>

class SPTCPSocket;

namespace modeio {

// Outcome of receiving once.
enum ReadResult { READ_DATA, READ_CLOSED, READ_TIMEOUT, READ_ERROR };

// Waits up to ms (negative counts as 0) for data on fd, then receives at most
// len bytes; *got is the count (0 unless READ_DATA). A signal does not end
// the wait early.
ReadResult readSome(int fd, char* buf, size_t len, int64_t ms, size_t* got);

// Outcome of sending a whole buffer.
enum SendResult { SEND_OK, SEND_NONBLOCK_FAILED, SEND_WAIT_FAILED, SEND_FAILED, SEND_TIMEOUT, SEND_CANCELLED };

// Puts the socket into non-blocking mode and sends all of data, waiting up
// to 500 ms at a time for room, until deadlineMs (wall clock, as
// SPGenericTime::getMilliseconds). cancelled, when given and non-zero,
// stops the loop before each wait.
SendResult sendAll(SPTCPSocket* socket, const char* data, unsigned long length, int64_t deadlineMs,
                   const std::atomic<int>* cancelled);

}  // namespace modeio

#endif
