// Host stand-in of the application-service library's file list: it only
// remembers whether a list exists, which is what the features' start and
// terminate paths depend on.
#include <atomic>

#include "host_internal.h"
#include "host_nasl.h"
#include "nasl_wifi.h"

namespace {

std::atomic<bool> gFileList{false};

void resetFileList() { gFileList = false; }

const bool registered = (host::addResetHook(resetFileList), true);

}  // namespace

bool host::media::fileListExists() { return gFileList; }

extern "C" int NASLWifi_InitFileList(int noCard) {
    host::journal("NASLWifi_InitFileList(%d)", noCard);
    long long scripted;
    if (host::takeScriptedResult("NASLWifi_InitFileList", &scripted)) return static_cast<int>(scripted);
    gFileList = true;
    return 1;
}

extern "C" int NASLWifi_DestroyFileList(void) {
    host::journal("NASLWifi_DestroyFileList()");
    long long scripted;
    if (host::takeScriptedResult("NASLWifi_DestroyFileList", &scripted)) return static_cast<int>(scripted);
    return gFileList.exchange(false) ? 1 : 0;
}
