// Helpers of the push client suites: a phone's push receiver played by the
// test over loopback, a recorder of transfer events, and test data made on
// the spot (JPEG pictures, MP4 files).
#ifndef CAMWIFI_TEST_CLIENT_SUPPORT_H
#define CAMWIFI_TEST_CLIENT_SUPPORT_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "SP/client/SPClientNotifier.h"

namespace clienttest {

// ---- The phone's receiver --------------------------------------------------------

// Listens on 127.0.0.1 (port chosen by the system) and runs script on each of
// up to `connections` accepted connections, one after another, on its own
// thread. Gives up waiting for a connection after 30 s.
class Receiver {
public:
    using Script = std::function<void(int fd)>;
    explicit Receiver(Script script, int connections = 1);
    ~Receiver();
    uint16_t port() const { return m_port; }
    // Waits for the receiver's thread to end (all connections served).
    void wait();
    int accepted() const { return m_accepted.load(); }

private:
    void run();
    Script m_script;
    int m_connections;
    int m_listen = -1;
    uint16_t m_port = 0;
    std::atomic<bool> m_stop{false};
    std::atomic<int> m_accepted{0};
    std::thread m_thread;
};

// What a receiver saw of one push.
struct Received {
    std::string head;        // the announcement, up to and including the empty line
    std::string body;        // body bytes read
    bool closedEarly = false;  // the camera closed before the whole body came
};

// Content-Length of an announcement, or -1.
long long contentLength(const std::string& head);
// Reads exactly n bytes (fewer when the peer closes or timeoutMs passes).
std::string recvExactly(int fd, size_t n, int timeoutMs);

// The usual phone: reads the announcement, answers 100, reads the whole body,
// answers 200 (with reply as the final head when given).
Receiver::Script acceptingPhone(Received* out, const std::string& reply = "HTTP/1.1 200 OK\r\n\r\n");

// A phone that stops reading mid-body: reads the announcement, answers 100,
// takes the first `taken` body bytes, sets *stalled and then reads nothing
// more (holding the connection open) until *release is set, 60 s at most.
Receiver::Script stallingPhone(size_t taken, std::atomic<bool>* stalled, std::atomic<bool>* release);

// A port of 127.0.0.1 that is bound but never listens: connections to it
// are refused.
class ClosedLoopbackPort {
public:
    ClosedLoopbackPort();
    ~ClosedLoopbackPort();
    uint16_t port() const { return m_port; }

private:
    int m_fd = -1;
    uint16_t m_port = 0;
};

// Threads of this process, counted after ThreadSanitizer's runtime has
// started the helper thread it adds with a program's first thread.
int baselineThreadCount();
// Threads of this process whose name is name.
int countThreadsNamed(const std::string& name);

// ---- Events --------------------------------------------------------------------

struct Event {
    eSPNotifyClntEvent event;
    int value;
    std::string mac;
};

bool isFinal(eSPNotifyClntEvent e);

class EventLog {
public:
    void add(eSPNotifyClntEvent event, int value, const char* mac);
    std::vector<Event> all();
    // Events for one MAC.
    std::vector<Event> of(const std::string& mac);
    // Waits until `count` final events (for mac, or any when empty) arrived.
    bool waitFinals(int count, int timeoutMs, const std::string& mac = "");
    bool waitFor(eSPNotifyClntEvent event, int timeoutMs, const std::string& mac = "");
    void clear();

private:
    std::mutex m_lock;
    std::condition_variable m_cv;
    std::vector<Event> m_events;
};

// A transfer's notifier that records into a log.
class RecordingNotifier : public SPClientNotifier {
public:
    explicit RecordingNotifier(EventLog* log) : m_log(log) {}
    void notifyServiceStatus(eSPNotifyClntEvent event, int reserved, SvcClientNotifyInfo* info) override;
    std::atomic<int> reservedNonZero{0};

private:
    EventLog* m_log;
};

// The log that recordCallback (a client manager callback) writes to.
EventLog& callbackLog();
void recordCallback(eSPNotifyClntEvent event, stSPClntInfo* info);

// Checks one transfer's sequence: at most one START (first), then PROGRESS
// only, then exactly one final event, which is `final`, last.
void expectOneTransfer(const std::vector<Event>& events, eSPNotifyClntEvent final);

// ---- Test data -----------------------------------------------------------------

void writeFile(const std::string& path, const std::string& bytes);
std::string readFile(const std::string& path);
// A file of size bytes that holds no data blocks (reads give zeros).
bool makeSparseFile(const std::string& path, unsigned long long size);
// A width x height colour JPEG (a smooth pattern) or grey one.
std::string makeJpeg(int width, int height, bool grey = false, int quality = 85);
// Decodes a JPEG's size; false when it is not a decodable JPEG.
bool jpegSize(const std::string& bytes, int* width, int* height, int* components = nullptr);
// Mean of each colour component of a decoded JPEG.
bool jpegMean(const std::string& bytes, double mean[3]);
// A uniformly coloured JPEG.
std::string makeSolidJpeg(int width, int height, unsigned char r, unsigned char g, unsigned char b);

// Pieces of an MP4 file, written byte by byte.
std::string be32(uint32_t v);
std::string be16(uint16_t v);
std::string box(const char* type, const std::string& payload);
std::string fullBox(const char* type, uint8_t version, uint32_t flags, const std::string& payload);

struct Mp4Spec {
    uint32_t width = 1920, height = 1080;
    uint32_t timescale = 30000;   // media timescale (mdhd)
    uint32_t samples = 300;       // frames
    uint32_t delta = 1001;        // ticks per frame
    bool version1 = false;        // 64-bit mdhd and tkhd
    bool sizeInTrackHeader = true;  // else only the sample entry has it
    bool audioTrackFirst = false;
    bool movieBoxLast = true;     // mdat before moov, as cameras write
    bool largeMediaBox = false;   // mdat with a 64-bit size
    size_t mediaBytes = 4096;
};
std::string makeMp4(const Mp4Spec& spec = Mp4Spec());
// The payload of the movie box of makeMp4(spec).
std::string movieBoxPayload(const Mp4Spec& spec = Mp4Spec());

}  // namespace clienttest

#endif
