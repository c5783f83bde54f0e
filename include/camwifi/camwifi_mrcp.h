/*
 * camwifi: the renderer control point. The camera lists the TVs (DLNA media
 * renderers) on the network, the user chooses one, and the camera shows a
 * photo or plays a video on it with pause, resume, stop, seek and volume.
 *
 * Order: DlnaMrcpStart (share mode 9), DlnaMrcpGetDmrList, DlnaMrcpSetDmr,
 * then DlnaMrcpShowFile / DlnaMrcpPlayFile and the playback calls, and at the
 * end DlnaMrcpTerminate. Playback calls only send a request and return; what
 * the TV does arrives later as events on the callback given to
 * DlnaMrcpStart (or DlnaMrcpSetCallback), on the stack's threads:
 *
 *   id  event                          value, length
 *   15  EVT_MRCP_REFRESH_DMR_LIST      UDN text of the new renderer, 0
 *   16  EVT_MRCP_SELECTED_DMR_BYEBYE   UDN text of the renderer that left, 0
 *   17  EVT_MRCP_PLAY_STARTED          NULL, 0
 *   18  EVT_MRCP_PLAY_PAUSED           NULL, 0
 *   19  EVT_MRCP_PLAY_RESUMED          NULL, 0
 *   20  EVT_MRCP_PLAY_COMPLETE         NULL, 0
 *   21  EVT_MRCP_PLAY_STOP             NULL, 0
 *   22  EVT_MRCP_PLAY_POSITION         MrcpPlayPosition*, position in seconds
 *   23  EVT_MRCP_PLAY_FAILED           NULL, 0
 *   24  EVT_MRCP_SHOW_READY            NULL, 0 (the next photo may be shown)
 *   25  EVT_MRCP_UNSUPPORTED_FILE      NULL, 0
 *
 * Events may come from the moment the stack is set up inside DlnaMrcpStart:
 * a renderer found while the start runs is announced (15) before it returns.
 * Only the chosen renderer's state reports drive events 17 to 25: another
 * TV stopping does not end the video playing on the chosen one. The callback
 * may call the functions below, itself or from another thread it waits for
 * (the control point holds no lock while it calls the UI or the stack); it
 * must not wait for a DlnaMrcpTerminate, which waits for the callbacks.
 *
 * Status codes of the content functions: 0 success, 801 no camera address,
 * 802 no configuration / no buffer, 803 no database, 805 database or entry
 * missing, 806 not a photo or video.
 */
#ifndef CAMWIFI_CAMWIFI_MRCP_H
#define CAMWIFI_CAMWIFI_MRCP_H

#include <stdbool.h>
#include <stdint.h>

#include "camwifi/camwifi_frame.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
    EVT_MRCP_REFRESH_DMR_LIST = 15,
    EVT_MRCP_SELECTED_DMR_BYEBYE = 16,
    EVT_MRCP_PLAY_STARTED = 17,
    EVT_MRCP_PLAY_PAUSED = 18,
    EVT_MRCP_PLAY_RESUMED = 19,
    EVT_MRCP_PLAY_COMPLETE = 20,
    EVT_MRCP_PLAY_STOP = 21,
    EVT_MRCP_PLAY_POSITION = 22,
    EVT_MRCP_PLAY_FAILED = 23,
    EVT_MRCP_SHOW_READY = 24,
    EVT_MRCP_UNSUPPORTED_FILE = 25
};

/* Most rows of the renderer list. */
#define DLNA_MRCP_MAX_DMR 20

/* One row of the renderer list (312 bytes: 4 + 50 + 256, 2 bytes of padding
 * at the end). Written by DlnaMrcpGetDmrList, read by the UI. */
typedef struct {
    int32_t index;   /* 0-based position in the list */
    char name[50];   /* friendly name, at most 49 characters and a zero */
    char udn[256];   /* UDN, at most 255 characters and a zero */
} DmrListEntry;

/* Details of one renderer of the list (1296 bytes), filled by
 * DlnaMrcpGetDeviceInformation; every text zero-terminated and cut to its
 * array. */
typedef struct {
    char ip[16];            /* dotted IPv4 address */
    char name[256];         /* friendly name */
    char udn[256];          /* UDN */
    char manufacturer[256]; /* manufacturer */
    char modelName[256];    /* model name */
    char modelNumber[256];  /* model number */
} DeviceInfo;

/* The record of EVT_MRCP_PLAY_POSITION (12 bytes), valid during the call. */
typedef struct {
    int32_t percent;   /* position as a percentage of the duration, 0 to 100 */
    int32_t duration;  /* length of the video, seconds */
    int32_t position;  /* playing position, seconds */
} MrcpPlayPosition;

/* What the media database knows of one card file (ZEBGetMetadataFromDB;
 * 44 bytes on the camera: ten text pointers and one int). Every text is an allocated copy the caller frees with free(); absent
 * texts are NULL. */
typedef struct {
    char* objectId;    /* "<class>$<id>": "3$12" is the video of id 12 */
    char* parentId;    /* object id of the folder holding it */
    char* title;       /* file name */
    char* mimeType;    /* "image/jpeg", "video/mp4", ... */
    int duration;      /* videos: length in milliseconds; else 0 */
    char* size;        /* bytes, decimal */
    char* date;        /* "YYYY-MM-DDTHH:MM:SS" */
    char* uri;         /* where the streaming server serves it */
    char* objectClass; /* "1" image, "3" video */
    char* dlnaProfile; /* DLNA profile name, e.g. "JPEG_LRG" */
    char* resolution;  /* "WIDTHxHEIGHT" */
} ZEB_CONTENT_METADATA;

/* ==== Lifecycle and renderers ============================================== */

/* Sets share mode 9, transfer size 1, no selected images and access-control
 * mode 0, stores callback, and brings the stack, its HTTP layer, the control
 * point and the HTTP streaming server up (each part once). Returns 1 when
 * started, 0 on failure (call DlnaMrcpTerminate all the same). */
CAMWIFI_API int DlnaMrcpStart(ZEB_UI_CALLBACK callback);
/* Stops the polling timers and takes down what DlnaMrcpStart brought up;
 * from its first step on, no answer, event or timer of the stack acts. The
 * stack's stop returns once its callbacks have returned; a polling timer's
 * handler still on its way out is waited for at most 5 seconds. The chosen
 * renderer, its UDN and the renderer list are kept: after the next
 * DlnaMrcpStart the playback calls go to the same renderer. Returns 1. */
CAMWIFI_API int DlnaMrcpTerminate(void);
/* Waits 2 seconds for renderers to answer, then lists at most
 * DLNA_MRCP_MAX_DMR of them: *count and *list (valid until the next call)
 * are set. Returns 1 (also with no renderer: the outputs are then left as
 * they were), 0 on failure. */
CAMWIFI_API int DlnaMrcpGetDmrList(int* count, DmrListEntry** list);
/* Chooses row index of the renderer list (its UDN; udn is only logged),
 * subscribes to its events and makes it ready for a photo. A row the last
 * list did not fill holds what an earlier list left there (or nothing). An
 * index outside 0 .. DLNA_MRCP_MAX_DMR - 1 is logged and chooses nothing:
 * the earlier choice stands. Always returns 1. */
CAMWIFI_API int DlnaMrcpSetDmr(int index, const char* udn);
/* Asks the chosen renderer for its transport state once (the answer drives
 * the events above). Returns 1. */
CAMWIFI_API int DlnaGetDmrStatus(void);
/* Details of row index of the last list. Returns 1, or 0 (info untouched)
 * for a bad index or when the stack cannot tell. */
CAMWIFI_API int DlnaMrcpGetDeviceInformation(DeviceInfo* info, int index);

/* ==== Playback (each returns 1 when the request was sent, else 0) ========= */

/* Plays the video (or shows the photo) at path on the chosen renderer. */
CAMWIFI_API int DlnaMrcpPlayFile(const char* path);
/* Shows the photo at path: the renderer is stopped first, then the photo is
 * sent and played. Refused (0) until EVT_MRCP_SHOW_READY after the previous
 * photo. */
CAMWIFI_API int DlnaMrcpShowFile(const char* path);
CAMWIFI_API int DlnaMrcpPauseFile(void);
CAMWIFI_API int DlnaMrcpResumeFile(void);
CAMWIFI_API int DlnaMrcpStopFile(void);
/* Seeks to target, a relative time "H:MM:SS" handed to the renderer as it is. */
CAMWIFI_API int DlnaMrcpSeekFile(const char* target);
/* Asks for the playing position (answered by EVT_MRCP_PLAY_POSITION). */
CAMWIFI_API int DlnaMrcpGetPositionInfo(void);
/* Sets (0 to 100) or asks for the Master volume of the chosen renderer, as
 * every playback call does; udn is not used (NULL is fine). 0 when no
 * renderer is chosen, the volume is outside 0 to 100 or the request could
 * not be sent. */
CAMWIFI_API int DlnaMrcpSetVolume(const char* udn, int volume);
CAMWIFI_API int DlnaMrcpGetVolume(const char* udn);
/* The state last reported by the chosen renderer: 0 stopped,
 * 1 transitioning, 2 playing, 3 paused, 4 unknown; -1 when udn is not the
 * chosen renderer. */
CAMWIFI_API int DlnaMrcpGetRendererState(const char* udn);
/* The show-ready flag: true when a new photo may be shown. Set returns 1. */
CAMWIFI_API int MrcpSetShowReadyFlag(bool ready);
CAMWIFI_API bool MrcpGetShowReadyFlag(void);

/* ==== Content ============================================================== */

/* The URL a renderer fetches the card file path from:
 * "http://<camera address>:<HTTPStreamingPort><path>", allocated into *uri
 * (free() it). Returns 0, 801, 802 or 805 (see above). */
CAMWIFI_API int DlnaGetContentUri(const char* path, char** uri);
/* Looks the card file path up in the media database into *record (zeroed
 * first). Returns 0, 802, 803, 805 or 806 (see above). */
CAMWIFI_API int ZEBGetMetadataFromDB(const char* path, ZEB_CONTENT_METADATA* record);
/* Removes the database entry of a card file that no longer exists. Returns
 * 0 when removed, 802, 803 or 805 as above, or 806 when the file still
 * exists on the card (the entry is kept). */
CAMWIFI_API int ZEBDeleteItemInDB(const char* path);

#ifdef __cplusplus
}
#endif

#endif
