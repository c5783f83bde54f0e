// The library's one logging frame. Every line goes to the platform log with
// buffer 3, the area's tag and "file: function(line) > message", the message
// wrapped in terminal colour codes: ordinary lines at priority 4, error lines
// in red at priority 6. Error lines of the push, mode server, OS-layer and
// callback areas are copied to standard error as "[tag       ] message".
#ifndef CAMWIFI_DLNA_LOG_H
#define CAMWIFI_DLNA_LOG_H

#include <cstdarg>

#define DLNA_TAG "DLNA"
#define DLNA_MS_TAG "DLNA_MS"
#define DLNA_SP_TAG "DLNA_SP"
#define DLNA_OSAL_TAG "DLNA_OSAL"

enum DlnaLogLevel {
    DLNA_LOG_INFO = 4,   // ordinary line, default colour
    DLNA_LOG_ERROR = 6,  // error line, red
};

// Longest message kept (after the colour prefix); longer ones are cut.
constexpr int kDlnaLogMaxMessage = 248;
constexpr int kDlnaLogMaxErrorMessage = 246;

void DlnaLogPrint(DlnaLogLevel level, bool copyToStderr, const char* tag, const char* file,
                  const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 7, 8)));
void DlnaLogPrintV(DlnaLogLevel level, bool copyToStderr, const char* tag, const char* file,
                   const char* function, int line, const char* format, va_list args);

// Ordinary line.
#define DLNA_LOG_I(tag, ...) \
    DlnaLogPrint(DLNA_LOG_INFO, false, tag, __FILE__, __FUNCTION__, __LINE__, __VA_ARGS__)
// Error line, also on standard error.
#define DLNA_LOG_E(tag, ...) \
    DlnaLogPrint(DLNA_LOG_ERROR, true, tag, __FILE__, __FUNCTION__, __LINE__, __VA_ARGS__)
// Error line that stays in the platform log only (the "DLNA" feature areas).
#define DLNA_LOG_E_LOGONLY(tag, ...) \
    DlnaLogPrint(DLNA_LOG_ERROR, false, tag, __FILE__, __FUNCTION__, __LINE__, __VA_ARGS__)

// The OS layer's report of an internal inconsistency; execution goes on.
#define OSAL_MYASSERT() DLNA_LOG_E(DLNA_OSAL_TAG, "myAssert")

#endif
