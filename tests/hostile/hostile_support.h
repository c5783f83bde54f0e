// Helpers of the hostile-peer suites: what a peer that does not follow the
// protocol does to a server (drops connections, trickles bytes, sends heads
// that never end or endless header lines), and a snapshot of the process's
// resources (descriptors, threads, heap) to compare before and after.
#ifndef CAMWIFI_TESTS_HOSTILE_SUPPORT_H
#define CAMWIFI_TESTS_HOSTILE_SUPPORT_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace hostile {

// Heap growth still counted as "back near the baseline": generous, since
// allocator caches and the sanitizers' bookkeeping keep some memory, but far
// below what any of the scenarios would leave if it leaked per connection.
constexpr size_t kHeapSlackBytes = 16 * 1024 * 1024;

// Resident memory still counted as "back near the baseline". The resident
// set also holds what the allocator keeps for reuse (one arena per thread
// that ever ran, at most 8 x cores of them, each keeping freed chunks), the
// stacks that ended threads touched and the test's own buffers (a 4 MiB head
// that never ends, a 1 MiB header line): at most 5 MiB measured after any
// scenario here (10,000 announcements to the push server), so 32 MiB. A leak
// of one 4 KiB page per request in a run of 10,000 requests is 40 MiB, and
// of one 64 KiB read buffer per connection in 1,000 dropped ones 64 MiB, so
// either would still show. Under AddressSanitizer freed blocks wait in its
// quarantine (256 MiB by default) before reuse, and under ThreadSanitizer
// every touched page has shadow pages besides: the bound grows by those,
// and the heap count above is the finer check there. Under an emulator
// (the 32-bit ARM suite runs under qemu-arm) the resident set is the
// emulator's and is not checked at all; the guest's heap count is.
size_t rssSlackBytes();

// True when the tests run under an emulator (CAMWIFI_EMULATED set, as the
// ARM build's test commands do).
bool emulated();

// A count of a load scenario for this build: n in a plain build, n / 10
// (at least 1) under a sanitizer or an emulator, where each request costs 5
// to 10 times the CPU and CI runs those suites side by side on two cores.
// What is checked per request is the same; only the repetitions shrink.
int scaled(int n);

// What the process holds at one moment.
struct Resources {
    int descriptors;  // entries of /proc/self/fd
    int threads;      // entries of /proc/self/task, once they settle
    size_t heap;      // bytes allocated and not freed (the sanitizer's count under it)
    size_t rss;       // resident bytes of the process (/proc/self/statm)
};

// Bytes allocated and not yet freed by the process.
size_t heapInUse();
// Resident bytes of the process.
size_t residentBytes();
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
// Test expectation: a client at src sends text, and the server closes the
// connection without a reply in less than withinMs (the server's head time
// limit less a margin: the refusal comes from a bound, not the clock).
void expectClosedWithoutReply(const std::string& src, uint16_t port, const std::string& text, int64_t withinMs);
// A head that never ends: a request line and header lines up to about
// `bytes`, without the empty line.
std::string endlessHead(const std::string& requestLine, size_t bytes);
// A complete head: the request line, `count` copies of `line` (without its
// CR LF), then `last` lines as given (each ending in CR LF) and the empty line.
std::string headWithLines(const std::string& requestLine, int count, const std::string& line,
                          const std::string& last = "");
// Connects from src to 127.0.0.1:port, sends head and then body bytes
// without end, as fast as the server takes them, until the server closes or
// resets the connection, or timeoutMs passes. True when it closed; what it
// answered meanwhile goes to reply, the body bytes sent to bodySent. When
// the server did not close and kept is given, the connection stays open
// and *kept is its descriptor (the caller drops it); else it is closed.
bool sendEndlessBody(const std::string& src, uint16_t port, const std::string& head, int timeoutMs,
                     std::string* reply, size_t* bodySent, int* kept = nullptr);
// Opens a connection from src, sends the first `bytes` of request and drops
// it (with a reset when asked) without waiting for anything.
void dropMidRequest(const std::string& src, uint16_t port, const std::string& request, size_t bytes, bool reset);

// Slow clients: connections that each send data one byte every intervalMs,
// all from one thread, until every one is done (the whole of data sent) or
// closed by the server, or stop() is called. At most data.size() rounds.
class Tricklers {
public:
    // Connects count clients, from srcs[i % srcs.size()], to 127.0.0.1:port;
    // false when one of them could not connect (none is kept then).
    bool start(const std::vector<std::string>& srcs, int count, uint16_t port, const std::string& data,
               int intervalMs);
    // Ends the thread and closes every connection still open.
    void stop();
    ~Tricklers() { stop(); }
    // Connections the server closed so far.
    int closedByServer() const { return m_closed.load(); }
    int count() const { return static_cast<int>(m_fds.size()); }

private:
    void run(std::string data, int intervalMs);
    std::vector<int> m_fds;
    std::thread m_thread;
    std::atomic<bool> m_stop{false};
    std::atomic<int> m_closed{0};
};

// Test expectations: the resources of now are those of base (descriptors
// and threads exactly, the heap within kHeapSlackBytes, the resident set
// within rssSlackBytes() unless emulated()), waiting up to timeoutMs for
// them to settle.
void expectBackTo(const Resources& base, int timeoutMs);
// The memory part of it: the heap of now within kHeapSlackBytes of base's,
// the resident set within rssSlackBytes() (not under an emulator).
void expectMemoryNear(const Resources& now, const Resources& base);

}  // namespace hostile

#endif
