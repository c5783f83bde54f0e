#include "mode/mode_test_util.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>

#include "support/tcp_peer.h"

namespace modetest {

std::string reply(int code, const std::string& phrase, const std::string& modeName) {
    std::string r = "HTTP/1.1 " + std::to_string(code) + " " + phrase +
                    "\r\nServer: ORB Mode Server\r\nOperation-Mode: " + modeName +
                    "\r\nDefault-URL: unavailable\r\nMVERSION: 1.0\r\n";
    if (code >= 200 && code <= 299) r += "Content-Type: text/xml;charset=utf-8 \r\nCache-Control: no-cache\r\n";
    return r + "\r\n";
}

std::string request(const std::string& headers, const std::string& method, const std::string& target) {
    return method + " " + target + " HTTP/1.1\r\nHOST: 127.0.0.1:7788\r\n" + headers + "\r\n";
}

std::string alive(const std::string& userAgent, const std::string& callback) {
    std::string h = "NTS: alive\r\nUser-Agent: " + userAgent + "\r\n";
    if (!callback.empty()) h += "CALLBACK: " + callback + "\r\n";
    return request(h);
}

std::string byebye() { return request("NTS: byebye\r\n"); }

std::string notifyRequest(const std::string& host, int port, const std::string& body) {
    return "NOTIFY /eventCallback HTTP/1.1 \r\nHost: " + host + ":" + std::to_string(port) +
           "\r\nUser-Agent: Tessaly mode server\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\nConnection: Close\r\n\r\n" + body;
}

std::string propertySet(const std::vector<std::pair<std::string, std::string>>& variables) {
    std::string b = "<?xml version=\"1.0\"?>\r<e:propertyset>";
    for (auto& v : variables) b += "<e:property><" + v.first + ">" + v.second + "</" + v.first + "></e:property>";
    return b + "</e:propertyset>";
}

NotifyReceiver::NotifyReceiver(const std::string& answer, const std::string& address) : m_answer(answer) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return;
    sockaddr_in a{};
    a.sin_family = AF_INET;
    inet_pton(AF_INET, address.c_str(), &a.sin_addr);
    socklen_t len = sizeof a;
    if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || listen(fd, 16) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
        close(fd);
        return;
    }
    m_listenFd = fd;
    m_port = ntohs(a.sin_port);
    m_thread = std::thread([this] { run(); });
}

NotifyReceiver::~NotifyReceiver() {
    {
        std::lock_guard<std::mutex> g(m_lock);
        m_stop = true;
    }
    if (m_thread.joinable()) m_thread.join();
    for (int fd : m_open) close(fd);
    if (m_listenFd >= 0) close(m_listenFd);
}

void NotifyReceiver::run() {
    for (;;) {
        {
            std::lock_guard<std::mutex> g(m_lock);
            if (m_stop) return;
        }
        pollfd p{m_listenFd, POLLIN, 0};
        if (poll(&p, 1, 100) <= 0) continue;
        int fd = accept(m_listenFd, nullptr, nullptr);
        if (fd < 0) continue;
        std::string got = testsupport::recvUntil(fd, "\r\n\r\n", 5000);
        const size_t headEnd = got.find("\r\n\r\n");
        if (headEnd != std::string::npos) {
            const size_t at = got.find("Content-Length: ");
            const size_t want = at == std::string::npos ? 0 : strtoul(got.c_str() + at + 16, nullptr, 10);
            // The body follows the head; bounded wait for the rest of it.
            for (int waits = 0; got.size() < headEnd + 4 + want && waits < 20; ++waits) {
                pollfd q{fd, POLLIN, 0};
                if (poll(&q, 1, 100) <= 0) continue;
                char buf[4096];
                const ssize_t n = recv(fd, buf, sizeof buf, 0);
                if (n <= 0) break;
                got.append(buf, static_cast<size_t>(n));
            }
        }
        {
            std::lock_guard<std::mutex> g(m_lock);
            m_requests.push_back(got);
            m_changed.notify_all();
        }
        if (m_answer.empty()) {
            m_open.push_back(fd);
        } else {
            testsupport::sendAll(fd, m_answer);
            close(fd);
        }
    }
}

std::vector<std::string> NotifyReceiver::waitRequests(size_t count, int timeoutMs) {
    std::unique_lock<std::mutex> g(m_lock);
    m_changed.wait_for(g, std::chrono::milliseconds(timeoutMs), [&] { return m_requests.size() >= count; });
    return m_requests;
}

std::vector<std::string> NotifyReceiver::requests() {
    std::lock_guard<std::mutex> g(m_lock);
    return m_requests;
}

}  // namespace modetest
