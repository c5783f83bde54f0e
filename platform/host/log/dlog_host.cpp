// Host platform log: keeps each line for tests and, when CAMWIFI_LOG names a
// file, appends it there so a person can follow the simulator.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "dlog.h"
#include "host_internal.h"

namespace {

std::mutex& fileLock() {
    static std::mutex* m = new std::mutex;
    return *m;
}

void writeToLogFile(int prio, const char* tag, const std::string& text) {
    const char* path = getenv("CAMWIFI_LOG");
    if (path == nullptr || *path == '\0') return;
    std::lock_guard<std::mutex> g(fileLock());
    FILE* f = fopen(path, "a");
    if (f == nullptr) return;
    fprintf(f, "%c/%s %s", prio >= DLOG_PRIO_ERROR ? 'E' : 'I', tag ? tag : "", text.c_str());
    if (text.empty() || text.back() != '\n') fputc('\n', f);
    fclose(f);
}

}  // namespace

extern "C" int __dlog_print(int log_id, int prio, const char* tag, const char* fmt, ...) {
    if (fmt == nullptr) return -1;
    va_list ap, ap2;
    va_start(ap, fmt);
    va_copy(ap2, ap);
    int n = vsnprintf(nullptr, 0, fmt, ap);
    va_end(ap);
    if (n < 0) {
        va_end(ap2);
        return -1;
    }
    std::string text(static_cast<size_t>(n) + 1, '\0');
    vsnprintf(&text[0], text.size(), fmt, ap2);
    va_end(ap2);
    text.resize(static_cast<size_t>(n));
    writeToLogFile(prio, tag, text);
    host::recordLogLine(host::LogLine{log_id, prio, tag ? tag : "", text});
    return n;
}
