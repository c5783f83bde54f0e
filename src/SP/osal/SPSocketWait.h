// The OS layer's one readiness wait on descriptors. Every timed wait of the
// platform layer (read, readfrom, connect with a time limit, the listener),
// the servers' accept loops and the push handlers' sends and reply waits go
// through it.
//
// It is built on poll(), not select(): a descriptor set ends at FD_SETSIZE
// (1024), and a process that holds many files (the media database, the
// DLNA stack, many phones) gets socket numbers above that, which select
// cannot wait on at all. What it reports is what select reports, so the
// callers keep their logic and their log lines:
//   - a descriptor at end of file, hung up or in error counts as readable
//     (and, hung up or in error, as writable), so the caller's next receive
//     or send sees what happened;
//   - a descriptor that is not open, or a negative one, fails the whole
//     wait with EBADF;
//   - a signal ends the wait with EINTR and marks nothing.
#ifndef CAMWIFI_SP_SOCKET_WAIT_H
#define CAMWIFI_SP_SOCKET_WAIT_H

#include <cstddef>
#include <cstdint>

struct SPWaitItem {
    int fd;         // descriptor to watch (written by the caller)
    bool read;      // watch for readability (written by the caller)
    bool write;     // watch for writability (written by the caller)
    bool readable;  // ready to read, at end of file or in error (written by the wait)
    bool writable;  // ready to write or in error (written by the wait)
};

// Waits until some item is ready or timeoutMs milliseconds have passed
// (negative: no limit). Returns the number of ready items, 0 at the
// time-out, -1 with errno set when the wait fails (EINTR, EBADF, ...).
// readable and writable are set on every item; they are all false unless the
// result is above 0.
int SPWaitForSockets(SPWaitItem* items, size_t count, int64_t timeoutMs);

// The same for one descriptor and readability only.
int SPWaitReadable(int fd, int64_t timeoutMs, bool* readable);
// The same for one descriptor and writability only.
int SPWaitWritable(int fd, int64_t timeoutMs, bool* writable);

#endif
