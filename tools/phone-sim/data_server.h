// The phone's data server: the camera POSTs each pushed file here with
// "Expect: 100-continue", and sends its turn-down request (HEAD
// /sp/AppControl) when it ends the push. Built on cpp-httplib, a library
// nobody here wrote, so that the phone side does not share code or mistakes
// with the camera side it tests.
#ifndef PHONESIM_DATA_SERVER_H
#define PHONESIM_DATA_SERVER_H

#include <httplib.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace phonesim {

class DataServer {
public:
    // How the phone answers a POST before its body: take it, or refuse it
    // with "500" and the sub-error the camera understands.
    enum class Refusal { None, StorageFull, Unsupported };

    DataServer(std::string storeDir, Refusal refusal);
    ~DataServer();

    // Listens on ip:port (port 0: any free one). False with a reason.
    bool start(const std::string& ip, int port, std::string* error);
    void stop();
    int port() const { return m_port; }

    // Files stored completely, in arrival order (names inside the store).
    std::vector<std::string> stored();
    // Waits until count files are stored; false on time-out or stop signal.
    bool waitStored(size_t count, int timeoutMs);

private:
    void receive(const httplib::Request& req, httplib::Response& res, const httplib::ContentReader& reader);
    // Waits (a few seconds at most) until the server's loop runs.
    bool waitRunning();
    // Answers a refusal; true when one was given.
    bool refuse(httplib::Response& res);

    std::string m_store;
    Refusal m_refusal;
    httplib::Server m_server;
    std::thread m_thread;
    int m_port = 0;
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::vector<std::string> m_stored;
};

// The file name the phone keeps for a POST target: its last path segment,
// never empty, never a way out of the store.
std::string storedNameFor(const std::string& target);

}  // namespace phonesim

#endif
