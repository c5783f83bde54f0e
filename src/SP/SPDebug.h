// Logging and assertion hooks of the push subsystem.
#ifndef CAMWIFI_SP_DEBUG_H
#define CAMWIFI_SP_DEBUG_H

// Formats into a 512-byte buffer, prefixes "SP : " and logs it as an ordinary
// line under "DLNA_SP". Returns 0.
int SPPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The push subsystem's assertion hook: does nothing.
void SPMyAssert(char* message);

#endif
