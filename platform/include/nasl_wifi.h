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

#ifdef __cplusplus
}
#endif

#endif
