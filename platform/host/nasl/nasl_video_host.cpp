// Host stand-in of the application-service library's video attributes: reads
// them from the real MP4 file through the bounds-checked box reader.
#include <cmath>
#include <cstring>

#include "host_internal.h"
#include "host_mp4.h"
#include "nasl_wifi.h"

extern "C" int NASLWifi_getVideoAttribute(char* path, sVideoAttribute* attr) {
    host::journal("NASLWifi_getVideoAttribute(%s)", path ? path : "(null)");
    if (attr != nullptr) memset(attr, 0, sizeof *attr);
    long long scripted;
    // A scripted 0 plays an unreadable file; a scripted non-zero still reads
    // the real file, since the attributes come from it.
    if (host::takeScriptedResult("NASLWifi_getVideoAttribute", &scripted) && scripted == 0) return 0;
    if (path == nullptr || attr == nullptr) return 0;
    host::mp4::VideoInfo info;
    if (!host::mp4::readVideoInfo(path, &info)) return 0;
    attr->nWidth = static_cast<int>(info.width);
    attr->nHeight = static_cast<int>(info.height);
    attr->nFrameRate = info.frameRate > 0 && info.frameRate < 1e6 ? static_cast<int>(std::lround(info.frameRate)) : 0;
    attr->ulDuration = info.durationMs > 0xFFFFFFFFull ? 0xFFFFFFFFu : static_cast<unsigned int>(info.durationMs);
    return 1;
}
