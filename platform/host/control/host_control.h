// Test control of the host stand-ins.
//
// The stand-ins of the closed libraries record every call in a journal, take
// scripted results that a test queues, and keep the lines the library logs.
// Tests, the simulator and the stand-ins themselves use this header; the
// library never includes it.
#ifndef CAMWIFI_HOST_CONTROL_H
#define CAMWIFI_HOST_CONTROL_H

#include <cstdarg>
#include <cstddef>
#include <string>
#include <vector>

namespace host {

// One line handed to __dlog_print.
struct LogLine {
    int buffer;        // log buffer id the library passed (3 for applications)
    int priority;      // 4 info, 6 error
    std::string tag;   // source area tag, e.g. "DLNA_SP"
    std::string text;  // the whole formatted line, colour codes and newline included
};

// Journal and captured log keep at most this many entries each (oldest
// dropped first), so a long-running process does not grow.
constexpr std::size_t kMaxKept = 20000;

// --- Call journal -------------------------------------------------------------
// Appends one entry, formatted like printf ("NASLWifi_InitMemory(1, 2)").
void journal(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::vector<std::string> journalEntries();
// Entries whose text starts with prefix, in call order.
std::vector<std::string> journalEntries(const std::string& prefix);
void clearJournal();

// --- Scripted results ---------------------------------------------------------
// Queues a result for the next call of function fn (first in, first out).
void scriptResult(const std::string& fn, long long result);
// Takes the next scripted result of fn; false when none is queued.
bool takeScriptedResult(const std::string& fn, long long* result);
void clearScripts();

// --- Captured log ---------------------------------------------------------------
std::vector<LogLine> logLines();
// Lines whose text contains needle.
std::vector<LogLine> logLinesContaining(const std::string& needle);
void clearLog();

// Clears journal, scripts, captured log and the stand-ins' own state.
void reset();

// Called by reset(); each stand-in module registers its own state reset.
using ResetHook = void (*)();
void addResetHook(ResetHook hook);

}  // namespace host

#endif
