#include "test_phone.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

#include "client_support.h"
#include "support/tcp_peer.h"

namespace pushtest {

TestPhone::TestPhone(int n) : m_n(n) {
    m_listen = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    inet_pton(AF_INET, ip().c_str(), &a.sin_addr);
    socklen_t len = sizeof a;
    if (m_listen >= 0 && bind(m_listen, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 && listen(m_listen, 8) == 0 &&
        getsockname(m_listen, reinterpret_cast<sockaddr*>(&a), &len) == 0) {
        m_port = ntohs(a.sin_port);
        m_thread = std::thread([this] { serve(); });
    }
}

TestPhone::~TestPhone() {
    m_stop.store(true);
    if (m_thread.joinable()) m_thread.join();
    if (m_listen >= 0) close(m_listen);
    if (m_control >= 0) close(m_control);
}

std::string TestPhone::mac() const {
    char text[18];
    snprintf(text, sizeof text, "02:00:7f:00:00:%02x", m_n);
    return text;
}

bool TestPhone::announce(bool nfc, uint16_t serverPort) {
    if (m_control >= 0) close(m_control);
    // The server may still be on its way to listening (the multi-phone start
    // does not wait for it): a few tries, 20 ms apart.
    m_control = -1;
    for (int i = 0; i < 150 && m_control < 0; ++i) {
        m_control = testsupport::connectFrom(ip(), "127.0.0.1", serverPort);
        if (m_control < 0) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (m_control < 0) return false;
    std::string req = "GET /sp/control HTTP/1.1\r\nHOST: 127.0.0.1:" + std::to_string(serverPort) +
                      "\r\nNTS: alive\r\nUser-Agent: Android ORB_SP_Phone" + std::to_string(m_n) +
                      "\r\nHOST-PNumber: 0109999" + std::to_string(1000 + m_n) + "\r\nData-Server: " + ip() + ":" +
                      std::to_string(m_port) + "\r\n" + (nfc ? "Access-Method: nfc\r\n" : "") + "\r\n";
    return testsupport::sendAll(m_control, req);
}

std::string TestPhone::answer(int timeoutMs) {
    if (m_control < 0) return "";
    return testsupport::recvUntil(m_control, "\r\n\r\n", timeoutMs);
}

bool TestPhone::leave(uint16_t serverPort) {
    int fd = testsupport::connectFrom(ip(), "127.0.0.1", serverPort);
    if (fd < 0) return false;
    const bool sent = testsupport::sendAll(
        fd, "GET /sp/control HTTP/1.1\r\nNTS: byebye\r\nData-Server: " + ip() + ":" + std::to_string(m_port) + "\r\n\r\n");
    const bool closed = sent && testsupport::peerClosed(fd, 5000);
    close(fd);
    return closed;
}

std::vector<std::string> TestPhone::files() {
    std::lock_guard<std::mutex> g(m_lock);
    return m_files;
}

std::vector<std::string> TestPhone::heads() {
    std::lock_guard<std::mutex> g(m_lock);
    return m_heads;
}

bool TestPhone::waitHeads(size_t count, int timeoutMs) {
    std::unique_lock<std::mutex> g(m_lock);
    return m_changed.wait_for(g, std::chrono::milliseconds(timeoutMs), [&] { return m_heads.size() >= count; });
}

bool TestPhone::waitStoppedReading(int timeoutMs) {
    std::unique_lock<std::mutex> g(m_lock);
    return m_changed.wait_for(g, std::chrono::milliseconds(timeoutMs), [&] { return m_bStoppedReading; });
}

void TestPhone::serve() {
    // Bounded: the camera makes a handful of connections per test; the loop
    // ends when the phone is destroyed.
    while (!m_stop.load()) {
        pollfd p{m_listen, POLLIN, 0};
        if (poll(&p, 1, 100) <= 0) continue;
        int fd = accept(m_listen, nullptr, nullptr);
        if (fd < 0) continue;
        serveOne(fd);
        close(fd);
    }
}

void TestPhone::serveOne(int fd) {
    if (m_answer.load() == Answer::StopReading) {
        // A small window: the camera's sends block soon after the phone stops.
        const int small = 4096;
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    }
    const std::string head = testsupport::recvUntil(fd, "\r\n\r\n", 10000);
    {
        std::lock_guard<std::mutex> g(m_lock);
        m_heads.push_back(head);
    }
    m_changed.notify_all();
    if (head.rfind("POST ", 0) != 0) return;  // the turn-down request: no answer
    const int delay = m_delayMs.load();
    if (delay > 0) std::this_thread::sleep_for(std::chrono::milliseconds(delay));
    switch (m_answer.load()) {
        case Answer::StorageFull:
            testsupport::sendAll(fd, "HTTP/1.1 500 Internal Server Error\r\nSub-ErrorCode: 2502\r\n\r\n");
            return;
        case Answer::Unsupported:
            testsupport::sendAll(fd, "HTTP/1.1 500 Internal Server Error\r\nSub-ErrorCode: 2503\r\n\r\n");
            return;
        case Answer::Accept:
        case Answer::StopReading:
            break;
    }
    if (!testsupport::sendAll(fd, "HTTP/1.1 100 Continue\r\n\r\n")) return;
    if (m_answer.load() == Answer::StopReading) {
        clienttest::recvExactly(fd, 64 * 1024, 10000);
        {
            std::lock_guard<std::mutex> g(m_lock);
            m_bStoppedReading = true;
        }
        m_changed.notify_all();
        // Bounded by the phone's life (and a minute at most).
        for (int i = 0; i < 3000 && !m_stop.load(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return;
    }
    const long long length = clienttest::contentLength(head);
    if (length < 0) return;
    std::string body = clienttest::recvExactly(fd, static_cast<size_t>(length), 20000);
    if (body.size() != static_cast<size_t>(length)) return;  // stopped by the camera
    // Kept before the "200": the camera reports the transfer done as soon as
    // it reads the answer, and a test then looks at the files at once.
    {
        std::lock_guard<std::mutex> g(m_lock);
        m_files.push_back(std::move(body));
    }
    testsupport::sendAll(fd, "HTTP/1.1 200 OK\r\n\r\n");
}

}  // namespace pushtest
