#include "sim_log.h"

#include <unistd.h>

namespace camsim {

namespace {
const int kBarWidth = 30;
}

std::string groupDigits(unsigned long long n) {
    std::string digits = std::to_string(n), out;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0) out += ',';
        out += digits[i];
    }
    return out;
}

SimLog::SimLog(FILE* out) : m_out(out), m_tty(isatty(fileno(out)) == 1), m_t0(std::chrono::steady_clock::now()) {}

double SimLog::elapsed() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_t0).count();
}

std::string SimLog::stamp() const {
    char text[32];
    snprintf(text, sizeof text, "[%7.3f]", elapsed());
    return text;
}

void SimLog::endBarLocked() {
    if (m_barOpen) fputc('\n', m_out);
    m_barOpen = false;
}

void SimLog::writeLineLocked(const std::string& text) {
    endBarLocked();
    if (!m_prompt.empty()) fputs("\r\033[K", m_out);  // over the prompt
    fprintf(m_out, "%s\n", text.c_str());
    if (!m_prompt.empty()) fputs(m_prompt.c_str(), m_out);
    fflush(m_out);
}

void SimLog::line(const std::string& source, const std::string& text) {
    std::lock_guard<std::mutex> g(m_lock);
    char head[48];
    snprintf(head, sizeof head, "%s %-6s ", stamp().c_str(), source.c_str());
    writeLineLocked(head + text);
}

void SimLog::plain(const std::string& text) {
    std::lock_guard<std::mutex> g(m_lock);
    writeLineLocked(text);
}

void SimLog::prompt(const std::string& text) {
    std::lock_guard<std::mutex> g(m_lock);
    endBarLocked();
    m_prompt = text;
    fputs(text.c_str(), m_out);
    fflush(m_out);
}

void SimLog::promptAnswered() {
    std::lock_guard<std::mutex> g(m_lock);
    m_prompt.clear();
}

void SimLog::flush() {
    std::lock_guard<std::mutex> g(m_lock);
    endBarLocked();
    fflush(m_out);
}

void SimLog::progress(const std::string& name, int percent) {
    if (percent < 0) percent = 0;
    if (percent > 100) percent = 100;
    std::lock_guard<std::mutex> g(m_lock);
    if (name != m_barName) {
        m_barName = name;
        m_lastQuarter = -1;
    }
    const int filled = percent * kBarWidth / 100;
    const std::string bar = std::string(static_cast<size_t>(filled), '#') + std::string(kBarWidth - filled, '-');
    char text[256];
    snprintf(text, sizeof text, "%s %-6s %-14s [%s] %3d%%", stamp().c_str(), "push", name.c_str(), bar.c_str(),
             percent);
    if (m_tty) {
        fprintf(m_out, "\r%s%s", m_prompt.empty() ? "" : "\033[K", text);
        m_barOpen = true;
        if (percent == 100) {
            endBarLocked();
            if (!m_prompt.empty()) fputs(m_prompt.c_str(), m_out);
        }
    } else {
        // A pipe gets the bar at 0, 25, 50, 75 and 100 percent only.
        const int quarter = percent / 25;
        if (quarter == m_lastQuarter) return;
        m_lastQuarter = quarter;
        fprintf(m_out, "%s\n", text);
    }
    fflush(m_out);
}

}  // namespace camsim
