#include "Dlna/DlnaLog.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "dlog.h"

namespace {

const char kPlainPrefix[] = "\x1b[m";
const char kRedPrefix[] = "\x1b[31m";
const char kSuffix[] = "\x1b[m\n";

const char* baseName(const char* path) {
    if (path == nullptr) return "";
    const char* slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

#ifdef CAMWIFI_FUZZ_BUILD
// A fuzz target runs an input in microseconds and logs a dozen lines for it:
// formatting them would take most of the run, for lines nobody reads. The fuzz
// build formats them only when CAMWIFI_FUZZ_LOG is set (not "0"), which then
// checks every line's arguments under the sanitizers; scripts/fuzz.sh sets it
// when it replays a whole corpus.
bool fuzzFormatsLines() {
    static const bool on = [] {
        const char* v = getenv("CAMWIFI_FUZZ_LOG");
        return v != nullptr && *v != '\0' && strcmp(v, "0") != 0;
    }();
    return on;
}
#endif

}  // namespace

void DlnaLogPrintV(DlnaLogLevel level, bool copyToStderr, const char* tag, const char* file,
                   const char* function, int line, const char* format, va_list args) {
#ifdef CAMWIFI_FUZZ_BUILD
    if (!fuzzFormatsLines()) return;
#endif
    const bool red = level == DLNA_LOG_ERROR;
    const char* prefix = red ? kRedPrefix : kPlainPrefix;
    const size_t prefixLen = strlen(prefix);
    const size_t limit = red ? kDlnaLogMaxErrorMessage : kDlnaLogMaxMessage;

    // prefix + message (at most 248, or 246 for red) + suffix fits 256 bytes.
    char buf[256];
    memcpy(buf, prefix, prefixLen);
    int n = vsnprintf(buf + prefixLen, limit + 1, format ? format : "", args);
    size_t len = n < 0 ? 0 : static_cast<size_t>(n);
    if (len > limit) len = limit;
    if (len > 0 && buf[prefixLen + len - 1] == '\n') --len;
    memcpy(buf + prefixLen + len, kSuffix, sizeof kSuffix);

    __dlog_print(DLOG_BUFFER_APPS, red ? DLOG_PRIO_ERROR : DLOG_PRIO_INFO, tag, "%s: %s(%d) > %s",
                 baseName(file), function ? function : "", line, buf);
#ifdef CAMWIFI_FUZZ_BUILD
    // The fuzz targets run with standard error closed: the copy would be
    // formatted for a write that fails.
    (void)copyToStderr;
#else
    if (copyToStderr) fprintf(stderr, "[%-10s] %s", tag ? tag : "", buf);
#endif
}

void DlnaLogPrint(DlnaLogLevel level, bool copyToStderr, const char* tag, const char* file,
                  const char* function, int line, const char* format, ...) {
    va_list args;
    va_start(args, format);
    DlnaLogPrintV(level, copyToStderr, tag, file, function, line, format, args);
    va_end(args);
}
