// Host stand-in of the application-service library.
#include "host_internal.h"
#include "nasl_wifi.h"

extern "C" int NASLWifi_InitMemory(unsigned long poolSize, unsigned long blockSize) {
    host::journal("NASLWifi_InitMemory(%lu, %lu)", poolSize, blockSize);
    return static_cast<int>(host::scriptedOr("NASLWifi_InitMemory", 0));
}

extern "C" int NASLWifi_DestroyMemory(void) {
    host::journal("NASLWifi_DestroyMemory()");
    return static_cast<int>(host::scriptedOr("NASLWifi_DestroyMemory", 0));
}
