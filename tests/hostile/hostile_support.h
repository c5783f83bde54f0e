// Helpers of the hostile-peer suites: what a peer that does not follow the
// protocol does to a server (drops connections, trickles bytes, sends heads
// that never end or endless header lines), and a snapshot of the process's
// resources (descriptors, threads, heap) to compare before and after.
#ifndef CAMWIFI_TESTS_HOSTILE_SUPPORT_H
#define CAMWIFI_TESTS_HOSTILE_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace hostile {

// Heap growth still counted as "back near the baseline": generous, since
// allocator caches and the sanitizers' bookkeeping keep some memory, but far
// below what any of the scenarios would leave if it leaked per connection.
constexpr size_t kHeapSlackBytes = 16 * 1024 * 1024;

// What the process holds at one moment.
struct Resources {
    int descriptors;  // entries of /proc/self/fd
    int threads;      // entries of /proc/self/task, once they settle
    size_t heap;      // bytes allocated and not freed (the sanitizer's count under it)
};

// Bytes allocated and not yet freed by the process.
size_t heapInUse();
// The resources now. The host stand-ins' kept log and call journal are
// emptied first: they are bounded, and hold memory only for the tests.
Resources snapshot();
// Waits (at most timeoutMs) until the descriptors and threads are back to
// those of base, and returns the last snapshot either way.
Resources settleTo(const Resources& base, int timeoutMs);

// Milliseconds since an arbitrary fixed point (steady clock).
int64_t nowMs();

// Opens a TCP connection from src (any port) to 127.0.0.1:port without
// waiting for the handshake; -1 when the socket cannot be made.
int openNonBlocking(const std::string& src, uint16_t port);
// Closes fd; with reset, by a reset instead of the closing handshake.
void drop(int fd, bool reset);
// Sends data one byte every intervalMs; stops early (false) when a send
// fails or the peer closed. At most data.size() sends.
bool trickle(int fd, const std::string& data, int intervalMs);
// Sends as much of data as the peer takes before closing or before
// timeoutMs passes; returns the number of bytes sent.
size_t pushUntilRefused(int fd, const std::string& data, int timeoutMs);
// True when the peer closed (or reset) the connection within timeoutMs;
// what arrives before that is appended to received.
bool closedByPeer(int fd, int timeoutMs, std::string* received);
// A phone at src that connects to 127.0.0.1:port and sends text as fast as
// the server takes it. Whether the server closed the connection within
// timeoutMs, and (when it did) after how long and with what reply.
bool sendAndWaitForClose(const std::string& src, uint16_t port, const std::string& text, int timeoutMs,
                         int64_t* tookMs, std::string* reply);
// A head that never ends: a request line and header lines up to about
// `bytes`, without the empty line.
std::string endlessHead(const std::string& requestLine, size_t bytes);

// Test expectations: the resources of now are those of base (descriptors
// and threads exactly, the heap within kHeapSlackBytes), waiting up to
// timeoutMs for them to settle.
void expectBackTo(const Resources& base, int timeoutMs);

}  // namespace hostile

#endif
