#include "host_control.h"

#include <cstdio>
#include <deque>
#include <map>
#include <mutex>

namespace host {
namespace {

struct State {
    std::mutex lock;
    std::deque<std::string> journal;
    std::map<std::string, std::deque<long long>> scripts;
    std::deque<LogLine> log;
    std::vector<ResetHook> hooks;
};

// Never destroyed: stand-ins may log from threads that outlive main's statics.
State& state() {
    static State* s = new State;
    return *s;
}

template <typename T>
void pushBounded(std::deque<T>& q, T value) {
    if (q.size() >= kMaxKept) q.pop_front();
    q.push_back(std::move(value));
}

}  // namespace

void journal(const char* fmt, ...) {
    char buf[1024];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof buf, fmt, ap);
    va_end(ap);
    State& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    pushBounded(s.journal, std::string(buf));
}

std::vector<std::string> journalEntries() {
    State& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    return {s.journal.begin(), s.journal.end()};
}

std::vector<std::string> journalEntries(const std::string& prefix) {
    std::vector<std::string> out;
    for (auto& e : journalEntries())
        if (e.compare(0, prefix.size(), prefix) == 0) out.push_back(e);
    return out;
}

void clearJournal() {
    State& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.journal.clear();
}

void scriptResult(const std::string& fn, long long result) {
    State& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.scripts[fn].push_back(result);
}

bool takeScriptedResult(const std::string& fn, long long* result) {
    State& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    auto it = s.scripts.find(fn);
    if (it == s.scripts.end() || it->second.empty()) return false;
    *result = it->second.front();
    it->second.pop_front();
    return true;
}

void clearScripts() {
    State& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.scripts.clear();
}

void recordLogLine(LogLine line) {
    State& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    pushBounded(s.log, std::move(line));
}

std::vector<LogLine> logLines() {
    State& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    return {s.log.begin(), s.log.end()};
}

std::vector<LogLine> logLinesContaining(const std::string& needle) {
    std::vector<LogLine> out;
    for (auto& l : logLines())
        if (l.text.find(needle) != std::string::npos) out.push_back(l);
    return out;
}

void clearLog() {
    State& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.log.clear();
}

void addResetHook(ResetHook hook) {
    State& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.hooks.push_back(hook);
}

void reset() {
    std::vector<ResetHook> hooks;
    {
        State& s = state();
        std::lock_guard<std::mutex> g(s.lock);
        s.journal.clear();
        s.scripts.clear();
        s.log.clear();
        hooks = s.hooks;
    }
    for (ResetHook h : hooks) h();
}

}  // namespace host
