// Glue of the viewfinder's media browsing mode that other features ask about.
#ifndef CAMWIFI_DLNA_RVF_ML_H
#define CAMWIFI_DLNA_RVF_ML_H

// Path part of the viewfinder's device description URL, written into path
// (size bytes) when the browsing mode has one. It supplies none: the
// description is served at the root of the stack's HTTP port, so path is left
// as the caller prepared it (the mode server passes an empty text).
void DlnaRvfMlGetDeviceDescUrl(char* path, unsigned int size);

#endif
