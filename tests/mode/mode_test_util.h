// Helpers of the mode server suites: the phone's requests, the exact replies
// it expects, and a NOTIFY receiver written here (a raw loopback server that
// records the bytes it gets).
#ifndef CAMWIFI_TESTS_MODE_TEST_UTIL_H
#define CAMWIFI_TESTS_MODE_TEST_UTIL_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace modetest {

// Milliseconds since t0.
inline int64_t msSince(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0).count();
}

// The exact reply of the mode server: status line, its four fixed headers,
// and for 2xx the content type (value ending in a blank) and cache control.
std::string reply(int code, const std::string& phrase, const std::string& modeName);

// A request to "/mode/control" (GET unless method says otherwise) with the
// given extra header lines (each ending in CR LF).
std::string request(const std::string& headers = "", const std::string& method = "GET",
                    const std::string& target = "/mode/control");
// An announcement with a user agent and, unless callback is empty, a
// CALLBACK header.
std::string alive(const std::string& userAgent, const std::string& callback);
std::string byebye();

// The NOTIFY the camera sends to host:port for one property-set body.
std::string notifyRequest(const std::string& host, int port, const std::string& body);
// The property-set body of a mode change: pairs of variable name and value.
std::string propertySet(const std::vector<std::pair<std::string, std::string>>& variables);

// A NOTIFY receiver on 127.0.0.1 (port chosen by the system). Each accepted
// connection is read until its head and Content-Length body are in, then
// answered with `answer` (nothing at all when answer is empty, keeping the
// connection open until the receiver is destroyed).
class NotifyReceiver {
public:
    explicit NotifyReceiver(const std::string& answer = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n",
                            const std::string& address = "127.0.0.1");
    ~NotifyReceiver();
    bool ok() const { return m_listenFd >= 0; }
    uint16_t port() const { return m_port; }
    // Waits (at most timeoutMs) until count requests have arrived; returns
    // the requests received so far.
    std::vector<std::string> waitRequests(size_t count, int timeoutMs);
    std::vector<std::string> requests();

private:
    void run();

    std::string m_answer;
    int m_listenFd = -1;
    uint16_t m_port = 0;
    bool m_stop = false;
    std::vector<int> m_open;  // connections left open (silent receiver)
    std::vector<std::string> m_requests;
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::thread m_thread;
};

}  // namespace modetest

#endif
