#include "upnp_log.h"

#include <cstdarg>
#include <cstdio>

#include "dlog.h"

namespace camwifi {
namespace upnp {

void logLine(int prio, const char* fmt, ...) {
    char buf[512];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof buf, fmt, ap);
    va_end(ap);
    __dlog_print(DLOG_BUFFER_APPS, prio, "ZEB_UPNP", "%s", buf);
}

}  // namespace upnp
}  // namespace camwifi
