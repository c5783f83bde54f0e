/*
 * Application-service library of the camera (closed): memory pool, file lists,
 * video attributes, JPEG resizing and the AT HTTP server. Declared here as the
 * library calls it; the host stand-ins live in platform/host.
 */
#ifndef CAMWIFI_PLATFORM_NASL_WIFI_H
#define CAMWIFI_PLATFORM_NASL_WIFI_H

#ifdef __cplusplus
extern "C" {
#endif

/* Sets up the service library's memory pool. Returns its status unchanged. */
int NASLWifi_InitMemory(unsigned long poolSize, unsigned long blockSize);
/* Releases the memory pool. Returns its status unchanged. */
int NASLWifi_DestroyMemory(void);

/* ---- AT HTTP server (used by the mode server API) ------------------------- */
/* Starts the service library's own HTTP server. Returns its status unchanged
 * (0 success). The name's spelling is the library's. */
int AT_HttpSeverStart(void);
/* Stops that server. Returns its status unchanged (0 success). */
int AT_HttpServerTerminate(void);

/* ---- File list of the memory card ---------------------------------------- */
/* Builds the service library's list of the card's files, which the network
 * features read while they run; noCard non-zero builds it for a camera
 * without a card. Non-zero (1) on success, 0 on failure. */
int NASLWifi_InitFileList(int noCard);
/* Releases the file list. Non-zero (1) on success, 0 on failure (no list). */
int NASLWifi_DestroyFileList(void);

#ifdef __cplusplus
}
#endif

#endif
