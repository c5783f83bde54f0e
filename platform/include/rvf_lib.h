/*
 * Viewfinder library of the camera (closed): the remote viewfinder service
 * (live view and shutter for a phone), its monitor mode, the camera's event
 * flag word, the live-stream handover and the card's DCF media list used by
 * the media-browsing mode. Declared here as the library calls it; the host
 * stand-ins live in platform/host. The interface is C++ (classes with static
 * members), as the library's own headers declare it.
 */
#ifndef CAMWIFI_PLATFORM_RVF_LIB_H
#define CAMWIFI_PLATFORM_RVF_LIB_H

#include <semaphore.h>
#include <stdint.h>

/* The camera's function tables (shutter, zoom, settings / MPEG live-view
 * control), defined by the viewfinder library's own headers and filled by the
 * camera UI. This library only passes their addresses on. */
struct RVF_CONTROL_FUNCTIONS;
struct RVF_MPEG_FUNCTIONS;
struct BM_CONTROL_FUNCTIONS;
struct BM_MPEG_FUNCTIONS;

/* The callback the service reports to: the UI callback of the viewfinder
 * (event id, pointer to the event's data or null, length or a number; the
 * last word is an int on the camera, pointer-wide elsewhere). */
typedef void (*RVF_SERVICE_CALLBACK)(int event, void* value, intptr_t length);

/* ---- Service lifecycle ---------------------------------------------------- */
/* Starts the viewfinder service (device description, HTTP and streaming
 * sides); creates the event flag word and the two stream semaphores below.
 * callback may be null (monitor mode). 0 on success. */
int StartRVFDevice(RVF_SERVICE_CALLBACK callback);
/* Stops the service and its threads (the streaming side included). 0 on success. */
int terminateRVF(void);
/* Releases the event flag word and the stream semaphores created by
 * StartRVFDevice (the two pointers below become null). Call it only when no
 * thread waits on them any more. The spelling is the library's. */
void RVFAppSemaphoreDestory(void);

/* ---- Event flag word ---------------------------------------------------------
 * Bits the camera raises for the service's waiters: 1 general state change,
 * 2 the user chose start, 4 the user cancelled; 0xffff wakes every waiter.
 * All three return non-zero on success and 0 when the word does not exist
 * (service not started) or the call failed. */
int RVFAppSetEventFlag(unsigned int bits);
/* Blocks until one of the bits in mask is set, then stores the set bits of
 * mask in *bits. The bits stay set until cleared. Returns at once with 0 when
 * the word is released meanwhile. */
int RVFAppReceiveEventFlag(unsigned int mask, unsigned int* bits);
/* Clears the given bits. */
int RVFAppClearEventFlag(unsigned int bits);

/* ---- Notifications to the phone (each returns 0 on success) --------------- */
int RVFAppSendRotationEvent(const char* rotation);
int RVFAppSendFlashStatusEvent(int attached);        /* 1 attached, 0 not */
int RVFAppSendAFModeEvent(int manualFocus);          /* 1 "MF", 0 auto */
int RVFAppSendShutterSpeedEvent(const char* shutterSpeed);
int RVFAppSendApertureEvent(const char* aperture);
int RVFAppSendRemainShotCountEvent(const char* count);
int RVFAppSendEVEvent(const char* ev);
int RVFAppSendMultipleAEEvent(void);                 /* shutter, aperture and EV changed together */
int RVFAppSendShotResultURLEvent(const char* url);
int RVFAppSendZoomStepEvent(const char* step);
int RVFAppSendMoiveRecordTimeEvent(const char* time); /* spelling is the library's */
int RVFAppSendOperationStateEvent(const char* state); /* "TransitionToRVF" / "TransitionToML" */
int RVFAppSendRecordErrorEvent(const char* error);
int RVFAppSendStartMonitorEvent(int start);          /* monitor mode */
int RVFAppUpdateServiceVariable(int variable);       /* monitor mode */

/* ---- Camera state the service reports to the phone ------------------------ */
/* Store the camera's function tables; non-zero on success. Delete_Function
 * forgets them. */
int CDSRVF_Set_Control_Function(RVF_CONTROL_FUNCTIONS* functions);
int CDSRVF_Set_Mpeg_Function(RVF_MPEG_FUNCTIONS* functions);
void CDSRVF_Delete_Function(void);
int CDSBM_Set_Control_Function(BM_CONTROL_FUNCTIONS* functions);
int CDSBM_Set_Mpeg_Function(BM_MPEG_FUNCTIONS* functions);
void CDSBM_Delete_Function(void);

/* Size words of the last picture taken. */
void CDSRVF_Sysfunc_set_ImageInfo(unsigned int a, unsigned int b);
/* Focus result text (copied); null forgets it. */
void CDSRVF_Sysfunc_set_FocusString(const char* focus);
void CDSRVF_Sysfunc_set_ShotStatus(int failed);
void CDSRVF_Sysfunc_set_ratio_change_status(int changed);
void CDSRVF_Sysfunc_set_RecordStatus(int error);
void CDSRVF_Sysfunc_set_RecordingStopTime(const char* time);
void CDSRVF_Sysfunc_set_Isvideo_hotswap(bool hotswap);
/* While the stop status is set the live stream is not fed. */
void CDSRVF_Sysfunc_set_Streaming_stop_status(bool stopped);
int CDSRVF_Sysfunc_get_Streaming_stop_status(void);
void CDSRVF_Sysfunc_set_af_status(int status);

/* ---- Live-stream handover --------------------------------------------------
 * The camera posts g_RVFsemBufferReady4Read after handing a filled buffer
 * over (RVFStreamingThruGet::setBufferPtr); the streaming side reads it and
 * posts g_RVFsemBufferReadComplete. Both are created by StartRVFDevice and
 * released by RVFAppSemaphoreDestory; either may be null. */
extern sem_t* g_RVFsemBufferReady4Read;
extern sem_t* g_RVFsemBufferReadComplete;

class RVFStreamingThruGet {
public:
    /* Stops (true) or allows (false) the streaming side's sending. */
    static void setStreamingStop(bool stop);
    /* The buffer the streaming side reads next: size bytes at buffer. */
    static void setBufferPtr(void* buffer, long long size);
};

/* ---- Camera settings offered to the phone ----------------------------------
 * Each setting class keeps the allowed values (a text list, copied), two
 * parameters the phone application interprets and the current value.
 * Init sets them, Delete forgets them; Disable values list what the phone
 * may not choose now. EV, shutter speed and aperture take a mode: 0 full
 * initialisation, 1 replace the values after a reset, 2 update the current
 * value only. */
#define CAMWIFI_RVF_SETTING_CLASS(Class, Name)                                                      \
    class Class {                                                                                    \
    public:                                                                                          \
        static void setRVF##Name##InitValue(char* values, unsigned int param1, unsigned int param2, \
                                            unsigned int current);                                   \
        static void deleteRVF##Name##InitValue(void);                                               \
    }

class UPnPCDSRVFSetEV {
public:
    static void setRVFEVInitValue(char* values, unsigned int param1, unsigned int param2, unsigned int current,
                                  int mode);
    static void deleteRVFEVInitValue(void);
};
class UPnPCDSRVFSetShutterSpeed {
public:
    static void setRVFShutterSpeedInitValue(char* values, unsigned int param1, unsigned int param2,
                                            unsigned int current, int mode);
    static void deleteRVFShutterSpeedInitValue(int mode);
};
class UPnPCDSRVFSetAperture {
public:
    static void setRVFApertureInitValue(char* values, unsigned int param1, unsigned int param2,
                                        unsigned int current, int mode);
    static void deleteRVFApertureInitValue(int mode);
};
CAMWIFI_RVF_SETTING_CLASS(UPnPCDSRVFSetISO, ISO);
CAMWIFI_RVF_SETTING_CLASS(UPnPCDSRVFSetWhiteBalance, WhiteBalance);
CAMWIFI_RVF_SETTING_CLASS(UPnPCDSRVFSetMetering, Metering);
CAMWIFI_RVF_SETTING_CLASS(UPnPCDSRVFSetDrive, Drive);
CAMWIFI_RVF_SETTING_CLASS(UPnPCDSRVFSetMode, Mode);
CAMWIFI_RVF_SETTING_CLASS(UPnPCDSRVFSetFlash, Flash);
CAMWIFI_RVF_SETTING_CLASS(UPnPCDSRVFSetQuality, Quality);
CAMWIFI_RVF_SETTING_CLASS(UPnPCDSRVFSetMovieResolution, MovieResolution);
CAMWIFI_RVF_SETTING_CLASS(UPnPCDSRVFSetRatioOffset, RatioOffset);
CAMWIFI_RVF_SETTING_CLASS(UPnPCDSRVFSetStreamingQuality, StreamingQuality);
CAMWIFI_RVF_SETTING_CLASS(UPnPCDSRVFSetStreamingResolution, StreamingResolution);

/* The four settings that also carry disable values. */
#define CAMWIFI_RVF_DISABLE_SETTING_CLASS(Class, Name)                                                 \
    class Class {                                                                                       \
    public:                                                                                             \
        static void setRVF##Name##InitValue(char* values, unsigned int param1, unsigned int param2,    \
                                            unsigned int current);                                      \
        static void deleteRVF##Name##InitValue(void);                                                  \
        static void setRVF##Name##DisableValue(char* values, unsigned int param1, unsigned int param2, \
                                               unsigned int current);                                   \
        static void deleteRVF##Name##DisableValue(void);                                               \
    }
CAMWIFI_RVF_DISABLE_SETTING_CLASS(UPnPCDSRVFSetResolution, Resolution);
CAMWIFI_RVF_DISABLE_SETTING_CLASS(UPnPCDSRVFSetFileSave, FileSave);
CAMWIFI_RVF_DISABLE_SETTING_CLASS(UPnPCDSRVFSetTouchAFOption, TouchAFOption);
CAMWIFI_RVF_DISABLE_SETTING_CLASS(UPnPCDSRVFSetAFArea, AFArea);
#undef CAMWIFI_RVF_SETTING_CLASS
#undef CAMWIFI_RVF_DISABLE_SETTING_CLASS

/* The zoom range and position, three words passed on unchanged. */
class UPnPCDSRVFZoomStart {
public:
    static void setRVFZoomLevel(int zoom1, int zoom2, int zoom3);
};

/* ---- The card's DCF media list (media-browsing mode) ----------------------- */
/* The list of the card's DCF files that the browsing mode serves from. */
class DcfFileInfoVector {
public:
    /* The list (created when absent); never null. */
    static DcfFileInfoVector* GetInstance();
    /* Releases the list's entries; a later GetInstance starts an empty one. */
    static void DestroyInstance();
    /* Interrupts a parse in progress (parseMediaFilesDcfDB returns 0). */
    void CancelInvalidateAllItems();
};

/* Walks the DCF tree under mediaRoot, fills the DCF media list and writes the
 * media database dbFilePath (the DLNA stack's database format, see
 * DataBaseMgr). Stores the number of files found in *fileCount. Non-zero when
 * the database was written; 0 when nothing was parsed (no media root,
 * cancelled, or the database could not be written). */
int parseMediaFilesDcfDB(const char* mediaRoot, const char* dbFilePath, int* fileCount);

/* The browsing mode's thumbnail maker. */
class MultiMediaDbConnector {
public:
    /* true lets thumbnails be made while browsing. */
    static void SetThumbnailWorkingStatus(bool working);
};

#endif
