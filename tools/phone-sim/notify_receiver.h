// The phone's event receiver: the camera's mode server sends a NOTIFY with a
// property set (CurrentMode, and DescriptionURL or SPServerPort) to the
// CALLBACK address the phone registered, whenever the camera changes mode.
//
// This one server is written here on plain sockets: the camera's request
// line is "NOTIFY /eventCallback HTTP/1.1 " (a blank after the version), and
// neither HTTP server library at hand takes it (cpp-httplib 0.11 refuses
// any method outside its own list with 400, libmicrohttpd refuses the
// trailing blank with 400). Phones meet the same request, so phone-sim reads
// it as it comes: head, Content-Length body, then "200 OK".
#ifndef PHONESIM_NOTIFY_RECEIVER_H
#define PHONESIM_NOTIFY_RECEIVER_H

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace phonesim {

struct Notice {
    std::string requestLine;
    std::vector<std::pair<std::string, std::string>> properties;  // in body order
    std::string property(const std::string& name) const;
};

// The name/value pairs of a property-set body
// (<e:propertyset><e:property><Name>value</Name></e:property>...).
std::vector<std::pair<std::string, std::string>> parsePropertySet(const std::string& body);

class NotifyReceiver {
public:
    NotifyReceiver() = default;
    ~NotifyReceiver();

    bool start(const std::string& ip, int port, std::string* error);
    void stop();
    int port() const { return m_port; }

    // Takes the oldest notice not yet taken; false on time-out or stop signal.
    bool next(Notice* out, int timeoutMs);

private:
    void run();
    void serve(int fd);

    int m_listen = -1;
    int m_port = 0;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::deque<Notice> m_notices;
};

}  // namespace phonesim

#endif
