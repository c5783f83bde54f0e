#include "SP/SPDebug.h"

#include <cstdarg>
#include <cstdio>

#include "Dlna/DlnaLog.h"

int SPPrintf(const char* format, ...) {
    char buf[512] = "";
    if (format != nullptr) {
        va_list args;
        va_start(args, format);
        vsnprintf(buf, sizeof buf, format, args);
        va_end(args);
    }
    DLNA_LOG_I(DLNA_SP_TAG, "SP : %s", buf);
    return 0;
}

void SPMyAssert(char*) {}
