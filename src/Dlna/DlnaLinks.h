// The smartphone link's phone address, kept for the features that talk back
// to the phone, and how long the links' terminates wait for a start.
#ifndef CAMWIFI_DLNA_LINKS_H
#define CAMWIFI_DLNA_LINKS_H

#include <atomic>
#include <string>

// How long a link's terminate waits for a media server start it cancelled,
// in milliseconds, before it goes on without it (10000; tests shorten it).
extern std::atomic<int> gDmsStartFinishWaitMs;

// Stores a copy of the phone's address (null clears it).
void SetSmartphoneLinkIPAddr(const char* address);
std::string GetSmartphoneLinkIPAddr();

#endif
