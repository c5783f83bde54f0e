/**
 * @file camwifi_mrcp.h
 * @brief The renderer control point: photos and videos on a TV.
 *
 * The camera lists the TVs (DLNA media renderers) on the network, the user
 * chooses one, and the camera shows a photo or plays a video on it with
 * pause, resume, stop, seek and volume.
 *
 * Order: DlnaMrcpStart() (share mode 9), DlnaMrcpGetDmrList(),
 * DlnaMrcpSetDmr(), then DlnaMrcpShowFile() / DlnaMrcpPlayFile() and the
 * playback calls, and at the end DlnaMrcpTerminate(). Playback calls only
 * send a request and return; what the TV does arrives later as events on the
 * callback given to DlnaMrcpStart() (or DlnaMrcpSetCallback()), on the DLNA
 * stack's threads (its response and event threads, and the timer thread of
 * the 2-second state and position polls):
 *
 * | id | event | value | length |
 * | --- | --- | --- | --- |
 * | 15 | #EVT_MRCP_REFRESH_DMR_LIST | UDN text of the new renderer | 0 |
 * | 16 | #EVT_MRCP_SELECTED_DMR_BYEBYE | UDN text of the renderer that left | 0 |
 * | 17 | #EVT_MRCP_PLAY_STARTED | NULL | 0 |
 * | 18 | #EVT_MRCP_PLAY_PAUSED | NULL | 0 |
 * | 19 | #EVT_MRCP_PLAY_RESUMED | NULL | 0 |
 * | 20 | #EVT_MRCP_PLAY_COMPLETE | NULL | 0 |
 * | 21 | #EVT_MRCP_PLAY_STOP | NULL | 0 |
 * | 22 | #EVT_MRCP_PLAY_POSITION | MrcpPlayPosition* | position in seconds |
 * | 23 | #EVT_MRCP_PLAY_FAILED | NULL | 0 |
 * | 24 | #EVT_MRCP_SHOW_READY | NULL | 0 (the next photo may be shown) |
 * | 25 | #EVT_MRCP_UNSUPPORTED_FILE | NULL | 0 |
 *
 * - Photo: DlnaMrcpShowFile() sends STOP first; the answers chain
 *   SetAVTransportURI and Play, then a 2-second poll of the transport state
 *   runs; when the TV reports PLAYING the UI gets event 24.
 * - Video: DlnaMrcpPlayFile() sends SetAVTransportURI, then Play and the
 *   state poll. PLAYING gives event 17 and starts a 2-second position poll
 *   (event 22); PAUSED gives 18, PLAYING again 19, STOPPED 20 with both
 *   timers gone. A stop ordered by the UI is answered with 21. Errors on any
 *   answer give 23.
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

/** The renderer control point's event ids (see the table above). */
enum {
    EVT_MRCP_REFRESH_DMR_LIST = 15,    /**< a renderer appeared: value is its UDN text */
    EVT_MRCP_SELECTED_DMR_BYEBYE = 16, /**< a renderer left: value is its UDN text */
    EVT_MRCP_PLAY_STARTED = 17,        /**< the video plays */
    EVT_MRCP_PLAY_PAUSED = 18,         /**< the video is paused */
    EVT_MRCP_PLAY_RESUMED = 19,        /**< the video plays again after a pause */
    EVT_MRCP_PLAY_COMPLETE = 20,       /**< the renderer stopped on its own (end of the video) */
    EVT_MRCP_PLAY_STOP = 21,           /**< a stop ordered by the UI was done */
    EVT_MRCP_PLAY_POSITION = 22,       /**< the playing position: value is a MrcpPlayPosition* */
    EVT_MRCP_PLAY_FAILED = 23,         /**< the renderer answered a request with an error */
    EVT_MRCP_SHOW_READY = 24,          /**< the photo is shown: the next one may be sent */
    EVT_MRCP_UNSUPPORTED_FILE = 25     /**< the renderer does not take the file */
};

/** Most rows of the renderer list. */
#define DLNA_MRCP_MAX_DMR 20

/** One row of the renderer list (312 bytes: 4 + 50 + 256, 2 bytes of padding
 * at the end). Written by DlnaMrcpGetDmrList(), read by the UI. */
typedef struct {
    int32_t index;   /**< 0-based position in the list */
    char name[50];   /**< friendly name, at most 49 characters and a zero */
    char udn[256];   /**< UDN, at most 255 characters and a zero */
} DmrListEntry;

/** Details of one renderer of the list (1296 bytes), filled by
 * DlnaMrcpGetDeviceInformation(); every text zero-terminated and cut to its
 * array. */
typedef struct {
    char ip[16];            /**< dotted IPv4 address */
    char name[256];         /**< friendly name */
    char udn[256];          /**< UDN */
    char manufacturer[256]; /**< manufacturer */
    char modelName[256];    /**< model name */
    char modelNumber[256];  /**< model number */
} DeviceInfo;

/** The record of #EVT_MRCP_PLAY_POSITION (12 bytes), valid during the call. */
typedef struct {
    int32_t percent;   /**< position as a percentage of the duration, 0 to 100 */
    int32_t duration;  /**< length of the video, seconds */
    int32_t position;  /**< playing position, seconds */
} MrcpPlayPosition;

/** What the media database knows of one card file (ZEBGetMetadataFromDB();
 * 44 bytes on the camera: ten text pointers and one int). Every text is an
 * allocated copy the caller frees with free(); absent texts are NULL. */
typedef struct {
    char* objectId;    /**< "<class>$<id>": "3$12" is the video of id 12 */
    char* parentId;    /**< object id of the folder holding it */
    char* title;       /**< file name */
    char* mimeType;    /**< "image/jpeg", "video/mp4", ... */
    int duration;      /**< videos: length in milliseconds; else 0 */
    char* size;        /**< bytes, decimal */
    char* date;        /**< "YYYY-MM-DDTHH:MM:SS" */
    char* uri;         /**< where the streaming server serves it */
    char* objectClass; /**< "1" image, "3" video */
    char* dlnaProfile; /**< DLNA profile name, e.g. "JPEG_LRG" */
    char* resolution;  /**< "WIDTHxHEIGHT" */
} ZEB_CONTENT_METADATA;

/* ==== Lifecycle and renderers ============================================== */

/**
 * Starts the renderer control point: sets share mode 9, transfer size 1, no
 * selected images and access-control mode 0, stores callback, and brings the
 * stack, its HTTP layer, the control point and the HTTP streaming server up
 * (each part once). Renderers appearing and leaving give events 15 and 16 on
 * the stack's threads from then on.
 * @param callback the callback of events 15 to 25.
 * @return 1 when started, 0 on failure (call DlnaMrcpTerminate() all the
 *         same).
 */
CAMWIFI_API int DlnaMrcpStart(ZEB_UI_CALLBACK callback);
/**
 * Stops the polling timers and takes down what DlnaMrcpStart() brought up;
 * from its first step on, no answer, event or timer of the stack acts. The
 * stack's stop returns once its callbacks have returned; a polling timer's
 * handler still on its way out is waited for at most 5 seconds. No event
 * follows. The chosen renderer, its UDN and the renderer list are kept:
 * after the next DlnaMrcpStart() the playback calls go to the same renderer.
 * A UI callback must therefore not wait for a terminate made on another
 * thread.
 * @return 1.
 */
CAMWIFI_API int DlnaMrcpTerminate(void);
/**
 * Waits 2 seconds for renderers to answer, then lists at most
 * #DLNA_MRCP_MAX_DMR of them.
 * @param[out] count receives the number of rows.
 * @param[out] list  receives the rows (valid until the next call).
 * @return 1 (also with no renderer: the outputs are then left as they were),
 *         0 on failure.
 */
CAMWIFI_API int DlnaMrcpGetDmrList(int* count, DmrListEntry** list);
/**
 * Chooses row index of the last list (its UDN), subscribes to its events and
 * makes it ready for a photo. A row the last list did not fill holds what an
 * earlier list left there (or nothing). An index outside
 * 0 .. #DLNA_MRCP_MAX_DMR - 1 is logged and chooses nothing: the earlier
 * choice stands.
 * @param index the row of the last DlnaMrcpGetDmrList().
 * @param udn   only logged.
 * @return 1, always.
 */
CAMWIFI_API int DlnaMrcpSetDmr(int index, const char* udn);
/**
 * Asks the chosen renderer for its transport state once; the answer drives
 * the events above.
 * @return 1.
 */
CAMWIFI_API int DlnaGetDmrStatus(void);
/**
 * Details of row index of the last list.
 * @param[out] info  receives the details.
 * @param      index the row of the last DlnaMrcpGetDmrList().
 * @return 1, or 0 (info untouched) for a bad index or when the stack cannot
 *         tell.
 */
CAMWIFI_API int DlnaMrcpGetDeviceInformation(DeviceInfo* info, int index);

/* ==== Playback (each returns 1 when the request was sent, else 0) ========= */

/**
 * Plays the video (or shows the photo) at path on the chosen renderer:
 * events 17, then 22 every 2 seconds, and 18 to 21 or 23 as the TV goes.
 * @param path the card file.
 * @return 1 when the request was sent, else 0.
 */
CAMWIFI_API int DlnaMrcpPlayFile(const char* path);
/**
 * Shows the photo at path: the renderer is stopped first, then the photo is
 * sent and played; event 24 (or 23) follows.
 * @param path the card file.
 * @return 1 when the request was sent; 0 when it was not, and until event 24
 *         after the previous photo.
 */
CAMWIFI_API int DlnaMrcpShowFile(const char* path);
/**
 * Pauses the video (event 18 follows).
 * @return 1 when the request was sent, else 0.
 */
CAMWIFI_API int DlnaMrcpPauseFile(void);
/**
 * Resumes the paused video (event 19 follows).
 * @return 1 when the request was sent, else 0.
 */
CAMWIFI_API int DlnaMrcpResumeFile(void);
/**
 * Stops the playback (event 21 follows).
 * @return 1 when the request was sent, else 0.
 */
CAMWIFI_API int DlnaMrcpStopFile(void);
/**
 * Seeks the video.
 * @param target a relative time "H:MM:SS", handed to the renderer as it is.
 * @return 1 when the request was sent, else 0.
 */
CAMWIFI_API int DlnaMrcpSeekFile(const char* target);
/**
 * Asks for the playing position (answered by event 22).
 * @return 1 when the request was sent, else 0.
 */
CAMWIFI_API int DlnaMrcpGetPositionInfo(void);
/**
 * Sets the Master volume of the chosen renderer, as every playback call
 * addresses it.
 * @param udn    not used (NULL is fine).
 * @param volume 0 to 100.
 * @return 1 when the request was sent; 0 when no renderer is chosen, the
 *         volume is outside 0 to 100 or the request could not be sent.
 */
CAMWIFI_API int DlnaMrcpSetVolume(const char* udn, int volume);
/**
 * Asks for the Master volume of the chosen renderer, as every playback call
 * addresses it.
 * @param udn not used (NULL is fine).
 * @return 1 when the request was sent; 0 when no renderer is chosen or the
 *         request could not be sent.
 */
CAMWIFI_API int DlnaMrcpGetVolume(const char* udn);
/**
 * The state last reported by the chosen renderer.
 * @param udn the chosen renderer's UDN.
 * @return 0 stopped, 1 transitioning, 2 playing, 3 paused, 4 unknown; -1 when
 *         udn is not the chosen renderer.
 */
CAMWIFI_API int DlnaMrcpGetRendererState(const char* udn);
/**
 * Sets the show-ready flag (true when a new photo may be shown).
 * @param ready the new value.
 * @return 1.
 */
CAMWIFI_API int MrcpSetShowReadyFlag(bool ready);
/**
 * The show-ready flag.
 * @return true when a new photo may be shown.
 */
CAMWIFI_API bool MrcpGetShowReadyFlag(void);

/* ==== Content ============================================================== */

/**
 * The URL a renderer fetches a card file from:
 * "http://<camera address>:<HTTPStreamingPort><path>".
 * @param      path the card file.
 * @param[out] uri  receives the URL, allocated (release it with free()).
 * @return 0, 801, 802 or 805 (see above).
 */
CAMWIFI_API int DlnaGetContentUri(const char* path, char** uri);
/**
 * Looks a card file up in the media database.
 * @param      path   the card file.
 * @param[out] record zeroed first, then filled (free() each text).
 * @return 0, 802, 803, 805 or 806 (see above).
 */
CAMWIFI_API int ZEBGetMetadataFromDB(const char* path, ZEB_CONTENT_METADATA* record);
/**
 * Removes the database entry of a card file that no longer exists.
 * @param path the card file.
 * @return 0 when removed, 802, 803 or 805 as above, or 806 when the file
 *         still exists on the card (the entry is kept).
 */
CAMWIFI_API int ZEBDeleteItemInDB(const char* path);

#ifdef __cplusplus
}
#endif

#endif
