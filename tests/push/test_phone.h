// A phone as the push features meet it, played by the test over loopback:
// it announces itself to the camera's push server from 127.0.0.N (so the
// host's ARP stand-in gives it the MAC 02:00:7f:00:00:NN) and runs its own
// data server on 127.0.0.N, which receives the camera's POSTs and the
// turn-down request.
#ifndef CAMWIFI_TEST_PHONE_H
#define CAMWIFI_TEST_PHONE_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace pushtest {

class TestPhone {
public:
    // How the data server answers a POST. StopReading: answers 100, takes the
    // first 64 KiB of the body and then reads nothing more (keeping the
    // connection open) until the phone is destroyed.
    enum class Answer { Accept, StorageFull, Unsupported, StopReading };

    explicit TestPhone(int n);
    ~TestPhone();

    std::string mac() const;
    std::string ip() const { return "127.0.0." + std::to_string(m_n); }
    uint16_t dataPort() const { return m_port; }

    void setAnswer(Answer a) { m_answer.store(a); }
    // Milliseconds the data server waits before its "100".
    void setDelayBeforeContinue(int ms) { m_delayMs.store(ms); }

    // Sends "alive" to the push server (port 8100) on a new connection and
    // keeps it open for the camera's answer. nfc adds "Access-Method: nfc".
    bool announce(bool nfc = false, uint16_t serverPort = 8100);
    // The camera's answer on the announcement connection (empty on time-out).
    std::string answer(int timeoutMs = 5000);
    // Sends "byebye" on a new connection; true when the camera closed it.
    bool leave(uint16_t serverPort = 8100);

    // Bodies received completely (one per accepted POST), in order.
    std::vector<std::string> files();
    // Request heads received (POST announcements and the turn-down HEAD).
    std::vector<std::string> heads();
    // Waits until count heads arrived.
    bool waitHeads(size_t count, int timeoutMs);
    // Waits until a StopReading phone has stopped reading.
    bool waitStoppedReading(int timeoutMs);

private:
    void serve();
    void serveOne(int fd);

    int m_n;
    int m_listen = -1;
    uint16_t m_port = 0;
    int m_control = -1;  // the announcement connection
    std::atomic<Answer> m_answer{Answer::Accept};
    std::atomic<int> m_delayMs{0};
    std::atomic<bool> m_stop{false};
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::vector<std::string> m_files;
    std::vector<std::string> m_heads;
    bool m_bStoppedReading = false;
    std::thread m_thread;
};

}  // namespace pushtest

#endif
