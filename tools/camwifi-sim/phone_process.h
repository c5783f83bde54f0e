// phone-sim as a separate process: started with its arguments, its report
// (standard output and error) read line by line into the event log, and
// ended cleanly.
#ifndef CAMWIFI_SIM_PHONE_PROCESS_H
#define CAMWIFI_SIM_PHONE_PROCESS_H

#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "sim_log.h"

namespace camsim {

class PhoneProcess {
public:
    explicit PhoneProcess(SimLog& log) : m_log(log) {}
    ~PhoneProcess();

    bool start(const std::string& program, const std::vector<std::string>& args, std::string* why);
    pid_t pid() const { return m_pid; }

    // Waits until a line of the report contains text (a line that came
    // before the call counts too); false on time-out or cancel.
    bool waitLine(const std::string& text, int timeoutMs, const std::atomic<int>& cancel);
    bool sawLine(const std::string& text);
    // Waits for the process to end by itself; its exit status, or -1 when it
    // is still running after timeoutMs (or cancel was set).
    int waitExit(int timeoutMs, const std::atomic<int>& cancel);
    // Ends it: SIGTERM, then SIGKILL when it does not go within 3 s.
    void terminate();
    bool running() const { return m_pid > 0 && !m_exited; }

private:
    void readReport(int fd);
    bool reap(bool block);

    SimLog& m_log;
    pid_t m_pid = -1;
    bool m_exited = false;
    int m_status = -1;
    std::thread m_reader;
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::vector<std::string> m_lines;
};

}  // namespace camsim

#endif
