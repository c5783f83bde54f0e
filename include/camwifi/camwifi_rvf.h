/**
 * @file camwifi_rvf.h
 * @brief Remote viewfinder, monitor mode and media-browsing mode.
 *
 * A phone shows the camera's live view and drives the shutter through the
 * camera's viewfinder service; the same service also runs a monitor mode (a
 * phone watches the live view) and a media-browsing mode (a phone browses the
 * card's pictures). The UI starts and stops the service, hands it the
 * camera's function tables and settings, reports the camera's events and
 * feeds the live stream one buffer at a time.
 *
 * Only one of the three modes runs at a time; DlnaRVFTerminate() ends the
 * viewfinder and the browsing mode, DlnaBMTerminate() the monitor mode.
 *
 * @par Events
 * Sent to the callback given to DlnaRVFStart(), DlnaBMStart() or
 * DlnaRVF_ML_FJ_Start():
 * | id | value, length | meaning | thread |
 * | --- | --- | --- | --- |
 * | 91 | NULL, 0 | the card's media database is being built (after camera event 40, SYSEVT_CAMERA_RVF_ML_MAKE_DB) | the database thread ("DlnaDBThread") |
 * | 92 | int*, sizeof(int) | the build ended: 0 database ready, 1 build failed, 2 build cancelled (DlnaDBCancel()) | the database thread |
 * | 95 | NULL, 0 | the phone stopped reading the live stream for 30 seconds; the viewfinder application is taken as closed | the thread blocked in DlanRVFStreamBufferReady() |
 *
 * The int of event 92 lives only during the call.
 */
#ifndef CAMWIFI_CAMWIFI_RVF_H
#define CAMWIFI_CAMWIFI_RVF_H

#include <stdbool.h>

#include "camwifi/camwifi_frame.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The camera's shutter, zoom and settings functions, defined by the
 * viewfinder service's own headers; this library passes their address on
 * unchanged. */
typedef struct RVF_CONTROL_FUNCTIONS RVF_CONTROL_FUNCTIONS;
/** The camera's live-view (MPEG) control functions, defined by the
 * viewfinder service's own headers; passed on unchanged. */
typedef struct RVF_MPEG_FUNCTIONS RVF_MPEG_FUNCTIONS;
/** The monitor mode's control functions, defined by the viewfinder
 * service's own headers; passed on unchanged. */
typedef struct BM_CONTROL_FUNCTIONS BM_CONTROL_FUNCTIONS;
/** The monitor mode's live-view (MPEG) functions, defined by the viewfinder
 * service's own headers; passed on unchanged. */
typedef struct BM_MPEG_FUNCTIONS BM_MPEG_FUNCTIONS;

/** One camera setting as offered to the phone. Written by the UI, read during
 * the call only (the service copies what it keeps). 16 bytes on the camera. */
typedef struct {
    char* pValues;          /**< text list of the values the phone may choose, or NULL */
    unsigned int uiParam1;  /**< first parameter of the setting, passed to the service unchanged */
    unsigned int uiParam2;  /**< second parameter of the setting, passed to the service unchanged */
    unsigned int uiCurrent; /**< the camera's current value */
} RVFSettingValues;

/** The camera's settings, handed over once after the start
 * (DlnaRVFSetSysParams()). Written by the UI, read during the call only.
 * 300 bytes on the camera (3 words, then 18 settings of 4 words). */
typedef struct {
    int iZoom[3];                                /**< zoom words, passed to the service in this order */
    RVFSettingValues stResolution;               /**< picture size */
    RVFSettingValues stFlash;                    /**< flash mode */
    RVFSettingValues stEV;                       /**< exposure compensation */
    RVFSettingValues stISO;                      /**< ISO sensitivity */
    RVFSettingValues stWhiteBalance;             /**< white balance */
    RVFSettingValues stMetering;                 /**< metering mode */
    RVFSettingValues stDrive;                    /**< drive (single, continuous, timer) */
    RVFSettingValues stMode;                     /**< shooting mode */
    RVFSettingValues stShutterSpeed;             /**< shutter speed */
    RVFSettingValues stAperture;                 /**< aperture */
    RVFSettingValues stQuality;                  /**< picture quality */
    RVFSettingValues stMovieResolution;          /**< movie size */
    RVFSettingValues stFileSave;                 /**< where shots are saved */
    RVFSettingValues stRatioOffset;              /**< aspect ratio offset */
    RVFSettingValues stTouchAFOption;            /**< touch AF option */
    RVFSettingValues stAFArea;                   /**< AF area */
    RVFSettingValues stStreamingQuality;         /**< live-stream quality */
    RVFSettingValues stStreamingResolution;      /**< live-stream size */
} RVFSysParams;

/** What the phone may not choose now (DlnaRVFSetDisableParams()). Written by
 * the UI, read during the call only. 64 bytes on the camera. */
typedef struct {
    RVFSettingValues stResolution;    /**< picture sizes not available */
    RVFSettingValues stFileSave;      /**< save targets not available */
    RVFSettingValues stTouchAFOption; /**< touch AF options not available */
    RVFSettingValues stAFArea;        /**< AF areas not available */
} RVFDisableParams;

/* ==== Viewfinder ============================================================ */

/**
 * Starts the viewfinder service (share mode 5) reporting to callback (events
 * 91, 92 and 95 above).
 * @param callback the callback of the viewfinder's events.
 * @return true when the service started; false for a NULL callback or a
 *         failed start.
 */
CAMWIFI_API bool DlnaRVFStart(ZEB_UI_CALLBACK callback);
/**
 * Hands the camera's shutter, zoom and settings functions to the service.
 * @param functions the camera's table.
 * @return the service's result (non-zero stored), or 0 for NULL.
 */
CAMWIFI_API int DlnaRVFSet_Control_Function(RVF_CONTROL_FUNCTIONS* functions);
/**
 * Hands the camera's live-view functions to the service.
 * @param functions the camera's table.
 * @return the service's result (non-zero stored), or 0 for NULL.
 */
CAMWIFI_API int DlnaRVFSet_Mpeg_Function(RVF_MPEG_FUNCTIONS* functions);
/**
 * Stops the viewfinder (and the browsing mode): forgets the settings, wakes
 * every waiter and a producer blocked in DlanRVFStreamBufferReady(), cancels
 * a media database build and waits for it (its event 92 with 2 still
 * reaches the callback), stops the service, releases the file list and sets
 * the share mode to 0. The wait for the build is bounded, 30 seconds: a
 * build that cannot end by then (its callback does not return) is left to
 * end on its own, unheard, and the terminate goes on. May be called from
 * the build's own event 92. A second call does nothing.
 * @return 1.
 */
CAMWIFI_API int DlnaRVFTerminate(void);

/**
 * Reports one camera event to the phone.
 * | id | event | id | event |
 * | --- | --- | --- | --- |
 * | 0 | SYSEVT_CAMERA_SEARCHING_CANCEL | 23 | SYSEVT_CAMERA_SET_MODE ("CHANGE") |
 * | 1 | SYSEVT_CAMERA_MPEG_STARTED | 24 | SYSEVT_CAMERA_STOP_SHOT_FINISHED |
 * | 2 | SYSEVT_CAMERA_MPEG_STOPED | 25 | SYSEVT_CAMERA_ZOOM_START |
 * | 3 | SYSEVT_CAMERA_AFFINISHED (focus text) | 26 | SYSEVT_CAMERA_SET_MOVIE_RESOLUTION |
 * | 4 | SYSEVT_CAMERA_AFRELEASEFINISHED | 27 | SYSEVT_CAMERA_RECORD_STARTED ("ERROR") |
 * | 5 | SYSEVT_CAMERA_SHOTFINIHED | 28 | SYSEVT_CAMERA_RECORD_STOPED (stop time) |
 * | 6 | SYSEVT_CAMERA_ROTATE (rotation) | 29 | SYSEVT_CAMERA_TOUCH_AF_MOVIE_FINISHED |
 * | 7 | SYSEVT_CAMERA_NETWORK | 30 | SYSEVT_CAMERA_CANCEL_TOUCH_AF_MOVIE |
 * | 8 | SYSEVT_CAMERA_NOBATTERY | 31 | SYSEVT_CAMERA_SHUTTER_SPEED (text) |
 * | 9 | SYSEVT_CAMERA_ZOOM_STOP | 32 | SYSEVT_CAMERA_APERTURE (text) |
 * | 10 | SYSEVT_CAMERA_FLASH_REMOVEABLE ("ATTACHED") | 33 | SYSEVT_CAMERA_REMAIN_SHOT_COUNT (text) |
 * | 11 | SYSEVT_CAMERA_SHOT_FAIL | 34 | SYSEVT_CAMERA_EV (text) |
 * | 12 | SYSEVT_CAMERA_SET_STREAMING_QUALITY | 35 | SYSEVT_CAMERA_UPDATE_AE |
 * | 13 | SYSEVT_CAMERA_SETFLASH | 36 | SYSEVT_CAMERA_SHOT_RESULT (URL) |
 * | 14 | SYSEVT_CAMERA_TOUCHAFFINISHED (focus) | 37 | SYSEVT_CAMERA_NOTIFY_ZOOM_STEP (text) |
 * | 15 | SYSEVT_CAMERA_AF_MODE_CHANGED ("MF") | 38 | SYSEVT_CAMERA_RECORDING_TIME (text) |
 * | 16 | SYSEVT_CAMERA_SET_GPS_INFO | 39 | SYSEVT_CAMERA_RVF_ML_CHANGE_DONE |
 * | 17 | SYSEVT_CAMERA_SET_RESOLUTION ("CHANGE") | 40 | SYSEVT_CAMERA_RVF_ML_MAKE_DB |
 * | 18 | SYSEVT_CAMERA_SET_SHUTTER_SPEED | 41 | SYSEVT_CAMERA_RVF_ML_START_RVF |
 * | 19 | SYSEVT_CAMERA_SET_APERTURE | 42 | SYSEVT_CAMERA_RVF_ML_START_ML |
 * | 20 | SYSEVT_CAMERA_SET_EV | 43 | SYSEVT_CAMERA_RECORD_ERROR (text) |
 * | 21 | SYSEVT_CAMERA_SET_ISO | | |
 * | 22 | SYSEVT_CAMERA_SET_QUALITY ("CHANGE") | | |
 *
 * Texts in quotes are compared exactly (case-sensitive); any other text or
 * NULL means the opposite. Event 40 clears the selected image path and builds
 * the card's media database on a thread of its own ("DlnaDBThread"), which
 * sends events 91 and 92 to the callback. Other ids are ignored.
 * @param event the camera event's id.
 * @param value the event's text, or NULL.
 * @return 1; 0 when the viewfinder is not running (nothing is done) or the
 *         service's event flag could not be raised.
 */
CAMWIFI_API int DlnaRVFEvent(int event, const char* value);
/**
 * Hands the last picture's two information words to the service.
 * @param info1 the first word, passed on unchanged.
 * @param info2 the second word, passed on unchanged.
 * @return 1, or 0 when the service's event flag could not be raised.
 */
CAMWIFI_API int DlanRVFLastPicImageInfo(unsigned int info1, unsigned int info2);

/**
 * Hands the camera's settings to the service (zoom, then every setting).
 * @param params the settings (read during the call only).
 * @return 1, or 0 for NULL.
 */
CAMWIFI_API int DlnaRVFSetSysParams(RVFSysParams* params);
/**
 * The aperture changed.
 * @param reset   non-zero: the allowed values are replaced by values (param1,
 *                param2, current); 0: only the current value is updated.
 * @param current the camera's current value.
 * @param values  text list of the allowed values (read when reset is set).
 * @param param1  first parameter of the setting, passed on unchanged.
 * @param param2  second parameter of the setting, passed on unchanged.
 * @return 1.
 */
CAMWIFI_API int DlnaRVFSetApertureValue(int reset, unsigned int current, char* values, unsigned int param1,
                                        unsigned int param2);
/**
 * The shutter speed changed.
 * @param reset   non-zero: the allowed values are replaced by values (param1,
 *                param2, current); 0: only the current value is updated.
 * @param current the camera's current value.
 * @param values  text list of the allowed values (read when reset is set).
 * @param param1  first parameter of the setting, passed on unchanged.
 * @param param2  second parameter of the setting, passed on unchanged.
 * @return 1.
 */
CAMWIFI_API int DlnaRVFSetShutterSpeedValue(int reset, unsigned int current, char* values, unsigned int param1,
                                            unsigned int param2);
/**
 * The current exposure compensation changed.
 * @param current the camera's current value.
 * @return 1.
 */
CAMWIFI_API int DlnaRVFSetEVValue(unsigned int current);
/**
 * What the phone may not choose now.
 * @param params the settings not available (read during the call only).
 * @return 1, or 0 for NULL.
 */
CAMWIFI_API int DlnaRVFSetDisableParams(RVFDisableParams* params);

/**
 * Wall-clock milliseconds (seconds * 1000 + microseconds / 1000), cut to 32
 * bits: it wraps, so compare differences only.
 * @return the milliseconds, modulo 2^32.
 */
CAMWIFI_API unsigned int GetRVFTickCount(void);

/**
 * Hands one filled live-view buffer to the service and blocks until the
 * service has read it, so the caller may then reuse it. When the phone does
 * not read for 30 seconds (signals do not shorten the wait), event 95 is sent
 * on the calling thread and the call returns. Returns at once while the
 * viewfinder is stopped or the stream is paused, and when terminated
 * meanwhile.
 * @param buffer the filled buffer.
 * @param size   its length in bytes.
 * @return 1.
 */
CAMWIFI_API int DlanRVFStreamBufferReady(void* buffer, long size);

/**
 * Blocks until the user's decision on the phone's start request arrives
 * (DlnaRVFSendUserStartEvent()). A terminate wakes the waiter by raising
 * every flag, so it then reports 1: look at whether the viewfinder still runs
 * before acting on it.
 * @param[out] result receives 1 start, 2 cancel (start wins when both
 *                    arrived).
 * @return 0, or -1 when the service is not running.
 */
CAMWIFI_API int DlnaRVFWaitingUserStartEvent(unsigned int* result);
/**
 * The user's decision on the phone's start request.
 * @param start non-zero start, 0 cancel.
 * @return 0, or -1 when the service is not running.
 */
CAMWIFI_API int DlnaRVFSendUserStartEvent(int start);

/* ==== Monitor mode ============================================================ */

/**
 * Starts the service in monitor mode (share mode 7); events go to callback.
 * @param callback the callback of the mode's events.
 * @return true when the service started; false for NULL or a failed start.
 */
CAMWIFI_API bool DlnaBMStart(ZEB_UI_CALLBACK callback);
/**
 * Hands the monitor mode's control functions to the service.
 * @param functions the camera's table.
 * @return the service's result (non-zero stored), or 0 for NULL.
 */
CAMWIFI_API int DlnaBMSet_Control_Function(BM_CONTROL_FUNCTIONS* functions);
/**
 * Hands the monitor mode's live-view functions to the service.
 * @param functions the camera's table.
 * @return the service's result (non-zero stored), or 0 for NULL.
 */
CAMWIFI_API int DlnaBMSet_Mpeg_Function(BM_MPEG_FUNCTIONS* functions);
/**
 * Stops the monitor mode. A media database build still running is
 * cancelled and waited for first, at most 30 seconds, as in
 * DlnaRVFTerminate(). A second call does nothing.
 * @return 1.
 */
CAMWIFI_API int DlnaBMTerminate(void);
/**
 * A monitor-mode camera event: 1, 2, 4, 6, 7 state changes; 3 rotation;
 * 5 monitoring starts. Other ids are ignored.
 * @param event the camera event's id.
 * @param value event 3: the rotation text; else unused.
 * @return 1, or 0 when the service's event flag could not be raised.
 */
CAMWIFI_API int DlnaBMEvent(int event, const char* value);
/**
 * Kept for the UI's start sequence; there is no heartbeat timer.
 * @return 1.
 */
CAMWIFI_API int _HeartBeatTimerInitialize(void);

/* ==== Media-browsing mode ====================================================== */

/**
 * Starts the service in media-browsing mode (share mode 8): builds the file
 * list, lets thumbnails be made unless mode is 1, and copies the browsing
 * icons. Build the media database with camera event 40 (DlnaRVFEvent()); stop
 * with DlnaRVFTerminate().
 * @param mode     1 keeps thumbnails from being made.
 * @param noCard   true when the camera has no card.
 * @param callback the callback of events 91 and 92.
 * @return true when the service started; false for a NULL callback, a failed
 *         file list or a failed start.
 */
CAMWIFI_API bool DlnaRVF_ML_FJ_Start(int mode, bool noCard, ZEB_UI_CALLBACK callback);
/** Does nothing: DlnaRVFTerminate() ends the browsing mode. */
CAMWIFI_API void DlnaRVF_ML_FJ_Terminate(void);
/**
 * Cancels a media database build in progress: it ends with event 92 and 2.
 * @return 1.
 */
CAMWIFI_API int DlnaDBCancel(void);

#ifdef __cplusplus
}
#endif

#endif
