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

/* ---- Video attributes ------------------------------------------------------ */
/* What the service library reads from a video file's header. */
typedef struct {
    int nWidth;                /* picture width in pixels */
    int nHeight;               /* picture height in pixels */
    int nFrameRate;            /* frames per second, rounded to a whole number */
    unsigned int ulDuration;   /* playing time in milliseconds */
} sVideoAttribute;

/* Reads the attributes of the video file at path into *attr (zeroed first).
 * Non-zero (1) on success, 0 when the file cannot be read or holds no video
 * track. */
int NASLWifi_getVideoAttribute(char* path, sVideoAttribute* attr);

/* ---- In-memory JPEG resizing ----------------------------------------------- */
/* Target sizes of the resizer. The push client always asks for the first one:
 * the long side becomes 1920 pixels (full-HD, what phone screens show and
 * what phone galleries keep without scaling again), the aspect ratio is kept,
 * and a picture whose long side is 1920 or less is not enlarged (its bytes
 * are handed back unchanged). */
typedef enum {
    WIFI_RESIZE_PIXEL_1920 = 0, /* long side 1920 pixels */
    WIFI_RESIZE_PIXEL_640 = 1   /* long side 640 pixels (VGA) */
} WIFI_RESIZE_PIXEL;

/* Releases a buffer handed out by NASLWifi_jpegResizeInMemory; null is
 * ignored. */
void NASLWifi_jpegResizeFree(char* buffer);

#ifdef __cplusplus
}

/* Decodes the JPEG file at path and encodes it again at the size `pixel`
 * stands for. On success returns non-zero (1) and hands out the new JPEG in
 * out (allocated by the service library: release it with
 * NASLWifi_jpegResizeFree) and its length in outLength; on failure returns 0
 * and leaves out null and outLength 0. The library's interface is C++ (it
 * takes references), hence its place outside the C block. */
int NASLWifi_jpegResizeInMemory(char* path, WIFI_RESIZE_PIXEL pixel, char*& out, int& outLength);
#endif

#endif
