// camwifi-sim's event log: one timestamped line per thing that happens,
// whoever reports it ("sim" for what the camera's UI does, "ui" for the
// events the library sends the UI, "phone" for phone-sim's report), and the
// live progress bar of a transfer.
#ifndef CAMWIFI_SIM_LOG_H
#define CAMWIFI_SIM_LOG_H

#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>

namespace camsim {

class SimLog {
public:
    // Writes to out (the terminal or a pipe); redraws the progress bar in
    // place only when out is a terminal, else prints it at each quarter.
    explicit SimLog(FILE* out);

    void line(const std::string& source, const std::string& text);
    // The progress of the transfer of name; percent 0..100.
    void progress(const std::string& name, int percent);
    // Text without timestamp (help, summary).
    void plain(const std::string& text);
    void flush();
    // A prompt on a terminal: lines that arrive while it waits for input are
    // printed above it, and it is drawn again below them.
    void prompt(const std::string& text);
    // The person ended the input line: the prompt is gone.
    void promptAnswered();
    double elapsed() const;

private:
    void endBarLocked();
    void writeLineLocked(const std::string& text);
    std::string stamp() const;

    FILE* m_out;
    bool m_tty;
    std::chrono::steady_clock::time_point m_t0;
    std::mutex m_lock;
    std::string m_prompt;        // drawn and waiting for input, or empty
    bool m_barOpen = false;      // a bar is drawn on the current terminal line
    std::string m_barName;
    int m_lastQuarter = -1;      // last quarter printed (pipe output)
};

// "12,345" for 12345.
std::string groupDigits(unsigned long long n);

}  // namespace camsim

#endif
