#include "data_server.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "output.h"

namespace phonesim {

namespace {

// The sub-errors of a "500" refusal, as the camera reads them.
const char* kStorageFull = "2502";
const char* kUnsupported = "2503";

std::string describe(const httplib::Request& req) {
    std::string text = storedNameFor(req.path) + ": " +
                       (req.has_header("Content-Type") && !req.get_header_value("Content-Type").empty()
                            ? req.get_header_value("Content-Type")
                            : "no type") +
                       ", " + (req.has_header("Content-Length") ? req.get_header_value("Content-Length") : "?") +
                       " bytes";
    for (const char* name : {"Resolution", "Framerate", "Duration"})
        if (req.has_header(name)) text += std::string(", ") + name + " " + req.get_header_value(name);
    return text;
}

}  // namespace

std::string storedNameFor(const std::string& target) {
    std::string name = target.substr(target.find_last_of('/') == std::string::npos ? 0 : target.find_last_of('/') + 1);
    for (char& c : name)
        if (c == '\\' || c == '\0') c = '_';
    if (name.empty() || name == "." || name == "..") name = "unnamed";
    return name;
}

DataServer::DataServer(std::string storeDir, Refusal refusal) : m_store(std::move(storeDir)), m_refusal(refusal) {
    // The camera asks before it sends the body; a refusal is answered then,
    // so the body is never read.
    m_server.set_expect_100_continue_handler([this](const httplib::Request& req, httplib::Response& res) {
        say("POST " + describe(req));
        if (refuse(res)) return res.status;
        say("answered 100 Continue");
        return 100;
    });
    m_server.Post(R"(/.*)", [this](const httplib::Request& req, httplib::Response& res,
                                   const httplib::ContentReader& reader) { receive(req, res, reader); });
    // HEAD is served by the GET route: the camera's turn-down request.
    m_server.Get("/sp/AppControl", [](const httplib::Request& req, httplib::Response& res) {
        say("turned down by the camera: " + req.method + " /sp/AppControl, Command: " +
            req.get_header_value("Command"));
        res.status = 200;
    });
}

DataServer::~DataServer() { stop(); }

bool DataServer::start(const std::string& ip, int port, std::string* error) {
    if (port == 0) {
        m_port = m_server.bind_to_any_port(ip.c_str());
    } else {
        m_port = m_server.bind_to_port(ip.c_str(), port) ? port : -1;
    }
    if (m_port <= 0) {
        *error = "cannot listen on " + ip + ":" + std::to_string(port) + " (address not local, or port busy)";
        m_port = 0;
        return false;
    }
    m_thread = std::thread([this] { m_server.listen_after_bind(); });
    if (!waitRunning()) {
        *error = "the data server did not start";
        return false;
    }
    return true;
}

bool DataServer::waitRunning() {
    // cpp-httplib's stop() does nothing to a server whose loop has not begun
    // yet, and that loop would then run for ever. Its socket is bound and
    // listening already, so the loop begins at once.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!m_server.is_running() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return m_server.is_running();
}

void DataServer::stop() {
    if (!m_thread.joinable()) return;
    waitRunning();
    m_server.stop();
    m_thread.join();
}

std::vector<std::string> DataServer::stored() {
    std::lock_guard<std::mutex> g(m_lock);
    return m_stored;
}

bool DataServer::waitStored(size_t count, int timeoutMs) {
    std::unique_lock<std::mutex> g(m_lock);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (m_stored.size() < count) {
        if (stopRequested() || std::chrono::steady_clock::now() >= deadline) return false;
        m_changed.wait_for(g, std::chrono::milliseconds(100));
    }
    return true;
}

bool DataServer::refuse(httplib::Response& res) {
    if (m_refusal == Refusal::None) return false;
    const bool full = m_refusal == Refusal::StorageFull;
    res.status = 500;
    res.set_header("Sub-ErrorCode", full ? kStorageFull : kUnsupported);
    say(std::string("answered 500, Sub-ErrorCode ") + (full ? kStorageFull : kUnsupported) +
        (full ? " (storage full)" : " (file type not supported)"));
    return true;
}

void DataServer::receive(const httplib::Request& req, httplib::Response& res, const httplib::ContentReader& reader) {
    // A sender that did not ask first ("Expect") is refused here instead.
    if (!req.has_header("Expect")) {
        say("POST " + describe(req) + " (without Expect: 100-continue)");
        if (refuse(res)) return;
    }
    const std::string name = storedNameFor(req.path);
    const std::string path = m_store + "/" + name;
    const std::string partial = path + ".part";
    std::ofstream out(partial, std::ios::binary | std::ios::trunc);
    if (!out) {
        complain("cannot write " + partial);
        res.status = 500;
        return;
    }
    unsigned long long received = 0;
    reader([&](const char* data, size_t length) {
        out.write(data, static_cast<std::streamsize>(length));
        received += length;
        return static_cast<bool>(out);
    });
    out.close();
    const unsigned long long expected =
        req.has_header("Content-Length") ? strtoull(req.get_header_value("Content-Length").c_str(), nullptr, 10) : received;
    if (!out || received != expected || rename(partial.c_str(), path.c_str()) != 0) {
        remove(partial.c_str());
        say("incomplete " + name + ": " + std::to_string(received) + " of " + std::to_string(expected) +
            " bytes; answered 400");
        res.status = 400;
        return;
    }
    say("stored " + name + ": " + std::to_string(received) + " bytes in " + path);
    res.status = 200;
    {
        std::lock_guard<std::mutex> g(m_lock);
        m_stored.push_back(name);
    }
    m_changed.notify_all();
}

}  // namespace phonesim
