// The smartphone link's phone address, kept for the features that talk back
// to the phone.
#ifndef CAMWIFI_DLNA_LINKS_H
#define CAMWIFI_DLNA_LINKS_H

#include <string>

// Stores a copy of the phone's address (null clears it).
void SetSmartphoneLinkIPAddr(const char* address);
std::string GetSmartphoneLinkIPAddr();

#endif
