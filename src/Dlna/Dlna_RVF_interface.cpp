// Remote viewfinder: start and stop of the viewfinder service, the camera's
// function tables and settings, and the translation of the camera's events
// into calls of the viewfinder library.
#include "Dlna/Dlna_RVF_interface.h"

#include <sys/time.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "Dlna/DlnaAbi.h"
#include "Dlna/DlnaFrame.h"
#include "Dlna/DlnaLog.h"
#include "nasl_wifi.h"
#include "rvf_lib.h"

std::atomic<bool> gRVFTerminated{true};

namespace {

// Mode of the EV, shutter-speed and aperture setters.
enum SettingMode {
    kSettingFullInit = 0,      // the start's initialisation
    kSettingReplaceValues = 1, // new allowed values after a reset
    kSettingCurrentOnly = 2,   // only the current value changed
};

// Names of the camera's events, by id, as the log shows them.
const char* const kEventNames[] = {
    "SYSEVT_CAMERA_SEARCHING_CANCEL",
    "SYSEVT_CAMERA_MPEG_STARTED",
    "SYSEVT_CAMERA_MPEG_STOPED",
    "SYSEVT_CAMERA_AFFINISHED",
    "SYSEVT_CAMERA_AFRELEASEFINISHED",
    "SYSEVT_CAMERA_SHOTFINIHED",
    "SYSEVT_CAMERA_ROTATE",
    "SYSEVT_CAMERA_NETWORK",
    "SYSEVT_CAMERA_NOBATTERY",
    "SYSEVT_CAMERA_ZOOM_STOP",
    "SYSEVT_CAMERA_FLASH_REMOVEABLE",
    "SYSEVT_CAMERA_SHOT_FAIL",
    "SYSEVT_CAMERA_SET_STREAMING_QUALITY",
    "SYSEVT_CAMERA_SETFLASH",
    "SYSEVT_CAMERA_TOUCHAFFINISHED",
    "SYSEVT_CAMERA_AF_MODE_CHANGED",
    "SYSEVT_CAMERA_SET_GPS_INFO",
    "SYSEVT_CAMERA_SET_RESOLUTION",
    "SYSEVT_CAMERA_SET_SHUTTER_SPEED",
    "SYSEVT_CAMERA_SET_APERTURE",
    "SYSEVT_CAMERA_SET_EV",
    "SYSEVT_CAMERA_SET_ISO",
    "SYSEVT_CAMERA_SET_QUALITY",
    "SYSEVT_CAMERA_SET_MODE",
    "SYSEVT_CAMERA_STOP_SHOT_FINISHED",
    "SYSEVT_CAMERA_ZOOM_START",
    "SYSEVT_CAMERA_SET_MOVIE_RESOLUTION",
    "SYSEVT_CAMERA_RECORD_STARTED",
    "SYSEVT_CAMERA_RECORD_STOPED",
    "SYSEVT_CAMERA_TOUCH_AF_MOVIE_FINISHED",
    "SYSEVT_CAMERA_CANCEL_TOUCH_AF_MOVIE",
    "SYSEVT_CAMERA_SHUTTER_SPEED",
    "SYSEVT_CAMERA_APERTURE",
    "SYSEVT_CAMERA_REMAIN_SHOT_COUNT",
    "SYSEVT_CAMERA_EV",
    "SYSEVT_CAMERA_UPDATE_AE",
    "SYSEVT_CAMERA_SHOT_RESULT",
    "SYSEVT_CAMERA_NOTIFY_ZOOM_STEP",
    "SYSEVT_CAMERA_RECORDING_TIME",
    "SYSEVT_CAMERA_RVF_ML_CHANGE_DONE",
    "SYSEVT_CAMERA_RVF_ML_MAKE_DB",
    "SYSEVT_CAMERA_RVF_ML_START_RVF",
    "SYSEVT_CAMERA_RVF_ML_START_ML",
    "SYSEVT_CAMERA_RECORD_ERROR",
};
constexpr int kEventCount = static_cast<int>(sizeof kEventNames / sizeof kEventNames[0]);
static_assert(kEventCount == 44, "the camera reports 44 events");

// Ids without a name of their own still show in the log.
const char* eventName(int event) { return event >= 0 && event < kEventCount ? kEventNames[event] : "UNKNOWN_EVENT"; }

const char* shown(const char* value) { return value ? value : "NULL"; }

// Exact, case-sensitive; a missing value never matches.
int valueIs(const char* value, const char* text) { return value != nullptr && strcmp(value, text) == 0 ? 1 : 0; }

int raiseStateFlag() { return RvfSetEventFlag(kRvfFlagStateChanged) ? 1 : 0; }

// Notifications that carry a camera text go out only with one.
int sendText(int (*send)(const char*), const char* value) {
    if (value != nullptr) send(value);
    return 1;
}

using InitSetter = void (*)(char*, unsigned int, unsigned int, unsigned int);
using ModeSetter = void (*)(char*, unsigned int, unsigned int, unsigned int, int);

void apply(InitSetter setter, const RVFSettingValues& v) { setter(v.pValues, v.uiParam1, v.uiParam2, v.uiCurrent); }
void apply(ModeSetter setter, const RVFSettingValues& v, int mode) {
    setter(v.pValues, v.uiParam1, v.uiParam2, v.uiCurrent, mode);
}

// A setting with a mode changed: after a reset its allowed values are
// replaced, otherwise only its current value is updated.
int changeSetting(void (*deleteValues)(int), ModeSetter setter, int reset, unsigned int current, char* values,
                  unsigned int param1, unsigned int param2) {
    if (reset != 0) {
        deleteValues(kSettingFullInit);
        setter(values, param1, param2, current, kSettingReplaceValues);
    } else {
        setter(values, param1, param2, current, kSettingCurrentOnly);
    }
    return 1;
}

// Forgets every setting the start handed over, in the service's order.
void deleteSettings() {
    UPnPCDSRVFSetEV::deleteRVFEVInitValue();
    UPnPCDSRVFSetISO::deleteRVFISOInitValue();
    UPnPCDSRVFSetWhiteBalance::deleteRVFWhiteBalanceInitValue();
    UPnPCDSRVFSetMetering::deleteRVFMeteringInitValue();
    UPnPCDSRVFSetDrive::deleteRVFDriveInitValue();
    UPnPCDSRVFSetMode::deleteRVFModeInitValue();
    UPnPCDSRVFSetFlash::deleteRVFFlashInitValue();
    UPnPCDSRVFSetResolution::deleteRVFResolutionInitValue();
    UPnPCDSRVFSetShutterSpeed::deleteRVFShutterSpeedInitValue(kSettingFullInit);
    UPnPCDSRVFSetAperture::deleteRVFApertureInitValue(kSettingFullInit);
    UPnPCDSRVFSetQuality::deleteRVFQualityInitValue();
    UPnPCDSRVFSetMovieResolution::deleteRVFMovieResolutionInitValue();
    UPnPCDSRVFSetFileSave::deleteRVFFileSaveInitValue();
    UPnPCDSRVFSetRatioOffset::deleteRVFRatioOffsetInitValue();
    UPnPCDSRVFSetTouchAFOption::deleteRVFTouchAFOptionInitValue();
    UPnPCDSRVFSetAFArea::deleteRVFAFAreaInitValue();
    UPnPCDSRVFSetStreamingQuality::deleteRVFStreamingQualityInitValue();
    UPnPCDSRVFSetStreamingResolution::deleteRVFStreamingResolutionInitValue();
    UPnPCDSRVFSetResolution::deleteRVFResolutionDisableValue();
    UPnPCDSRVFSetFileSave::deleteRVFFileSaveDisableValue();
    UPnPCDSRVFSetTouchAFOption::deleteRVFTouchAFOptionDisableValue();
    UPnPCDSRVFSetAFArea::deleteRVFAFAreaDisableValue();
}

}  // namespace

bool RvfStartService(ZEB_UI_CALLBACK uiCallback, RVF_SERVICE_CALLBACK serviceCallback) {
    gRVFCallback = uiCallback;
    int r = StartRVFDevice(serviceCallback);
    RvfSetTerminated(false);
    return r == 0;
}

bool RvfSetEventFlag(unsigned int bits) {
    if (RVFAppSetEventFlag(bits) != 0) return true;
    DLNA_LOG_E_LOGONLY(DLNA_TAG, "RVFAppSetEventFlag error");
    return false;
}

extern "C" {

bool DlnaRVFStart(ZEB_UI_CALLBACK callback) {
    DLNA_LOG_I(DLNA_TAG, "DlanRVFStart () is called ");
    SetAllShareMode(5);
    if (callback == nullptr) {
        printf(" DlnaRVFStart call back is NULL!!!\n");
        return false;
    }
    return RvfStartService(callback, callback);
}

int DlnaRVFSet_Control_Function(RVF_CONTROL_FUNCTIONS* functions) {
    return RvfForwardTable(__FUNCTION__, functions, CDSRVF_Set_Control_Function);
}

int DlnaRVFSet_Mpeg_Function(RVF_MPEG_FUNCTIONS* functions) {
    return RvfForwardTable(__FUNCTION__, functions, CDSRVF_Set_Mpeg_Function);
}

int DlnaRVFTerminate(void) {
    DLNA_LOG_I(DLNA_TAG, "DlnaRVFTerminate is callled");
    if (RvfSetTerminated(true)) {
        printf("%s() is callled Return!!!\n", __FUNCTION__);
        return 1;
    }
    // A database build still running would report to a cleared callback and
    // use the media list released below: it is cancelled and waited for first.
    RvfFinishDBThreads();
    RVFStreamingThruGet::setStreamingStop(true);
    CDSRVF_Delete_Function();
    deleteSettings();
    RVFAppSetEventFlag(kRvfFlagAll);
    CDSRVF_Sysfunc_set_FocusString(nullptr);
    RvfStopService(true);
    CDSRVF_Sysfunc_set_af_status(1);
    SetAllShareMode(0);
    DcfFileInfoVector::DestroyInstance();
    if (NASLWifi_DestroyFileList() == 0)
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "ERR: [%s] NASLWifi_DestroyFileList() failed !!! ", "DlnaRVFTerminate");
    DLNA_LOG_I(DLNA_TAG, "DlnaRVFTerminate () is finishing .... done ");
    return 1;
}

int DlnaRVFEvent(int event, const char* value) {
    if (gRVFTerminated) {
        DLNA_LOG_I(DLNA_TAG, "Event Return!!! terminate status [%s] [%s]", eventName(event), shown(value));
        return 0;
    }
    DLNA_LOG_I(DLNA_TAG, "Event [%s] value [%s]", eventName(event), shown(value));
    switch (event) {
        case 1:   // MPEG_STARTED
        case 2:   // MPEG_STOPED
        case 4:   // AFRELEASEFINISHED
        case 5:   // SHOTFINIHED
        case 9:   // ZOOM_STOP
        case 12:  // SET_STREAMING_QUALITY
        case 13:  // SETFLASH
        case 16:  // SET_GPS_INFO
        case 18:  // SET_SHUTTER_SPEED
        case 19:  // SET_APERTURE
        case 20:  // SET_EV
        case 21:  // SET_ISO
        case 24:  // STOP_SHOT_FINISHED
        case 25:  // ZOOM_START
        case 26:  // SET_MOVIE_RESOLUTION
        case 29:  // TOUCH_AF_MOVIE_FINISHED
        case 30:  // CANCEL_TOUCH_AF_MOVIE
        case 39:  // RVF_ML_CHANGE_DONE
            return raiseStateFlag();
        case 3:   // AFFINISHED
        case 14:  // TOUCHAFFINISHED
            CDSRVF_Sysfunc_set_FocusString(value);
            return raiseStateFlag();
        case 6:  // ROTATE
            RVFAppSendRotationEvent(value);
            return 1;
        case 10:  // FLASH_REMOVEABLE
            RVFAppSendFlashStatusEvent(valueIs(value, "ATTACHED"));
            return 1;
        case 11:  // SHOT_FAIL
            CDSRVF_Sysfunc_set_ShotStatus(1);
            return raiseStateFlag();
        case 15:  // AF_MODE_CHANGED
            RVFAppSendAFModeEvent(valueIs(value, "MF"));
            return 1;
        case 17:  // SET_RESOLUTION
        case 22:  // SET_QUALITY
        case 23:  // SET_MODE
            CDSRVF_Sysfunc_set_ratio_change_status(valueIs(value, "CHANGE"));
            return raiseStateFlag();
        case 27:  // RECORD_STARTED: only an "ERROR" value marks the record status
            CDSRVF_Sysfunc_set_RecordStatus(valueIs(value, "ERROR"));
            return raiseStateFlag();
        case 28:  // RECORD_STOPED
            RVFStreamingThruGet::setStreamingStop(true);
            CDSRVF_Sysfunc_set_RecordingStopTime(value);
            return raiseStateFlag();
        case 31:
            return sendText(RVFAppSendShutterSpeedEvent, value);
        case 32:
            return sendText(RVFAppSendApertureEvent, value);
        case 33:
            return sendText(RVFAppSendRemainShotCountEvent, value);
        case 34:
            return sendText(RVFAppSendEVEvent, value);
        case 35:  // UPDATE_AE
            RVFAppSendMultipleAEEvent();
            return 1;
        case 36:
            return sendText(RVFAppSendShotResultURLEvent, value);
        case 37:
            return sendText(RVFAppSendZoomStepEvent, value);
        case 38:
            return sendText(RVFAppSendMoiveRecordTimeEvent, value);
        case 40:  // RVF_ML_MAKE_DB: the whole card is browsed, no selection
            SetSelectImagePath(nullptr);
            return RvfStartDBThread();
        case 41:
            RVFAppSendOperationStateEvent("TransitionToRVF");
            return 1;
        case 42:
            RVFAppSendOperationStateEvent("TransitionToML");
            return 1;
        case 43:
            RVFAppSendRecordErrorEvent(value);
            return 1;
        default:  // 0 SEARCHING_CANCEL, 7 NETWORK, 8 NOBATTERY and unknown ids
            return 1;
    }
}

int DlanRVFLastPicImageInfo(unsigned int info1, unsigned int info2) {
    DLNA_LOG_I(DLNA_TAG, "DlanRVFLastPicImageInfo () is called with  %d, %d", static_cast<int>(info1),
               static_cast<int>(info2));
    CDSRVF_Sysfunc_set_ImageInfo(info1, info2);
    return raiseStateFlag();
}

int DlnaRVFSetSysParams(RVFSysParams* p) {
    if (p == nullptr) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "DlnaRVFSetSysParams param is NULL!!!");
        return 0;
    }
    apply(UPnPCDSRVFSetEV::setRVFEVInitValue, p->stEV, kSettingFullInit);
    apply(UPnPCDSRVFSetISO::setRVFISOInitValue, p->stISO);
    apply(UPnPCDSRVFSetWhiteBalance::setRVFWhiteBalanceInitValue, p->stWhiteBalance);
    apply(UPnPCDSRVFSetMetering::setRVFMeteringInitValue, p->stMetering);
    apply(UPnPCDSRVFSetDrive::setRVFDriveInitValue, p->stDrive);
    apply(UPnPCDSRVFSetMode::setRVFModeInitValue, p->stMode);
    apply(UPnPCDSRVFSetFlash::setRVFFlashInitValue, p->stFlash);
    apply(UPnPCDSRVFSetResolution::setRVFResolutionInitValue, p->stResolution);
    apply(UPnPCDSRVFSetShutterSpeed::setRVFShutterSpeedInitValue, p->stShutterSpeed, kSettingFullInit);
    apply(UPnPCDSRVFSetAperture::setRVFApertureInitValue, p->stAperture, kSettingFullInit);
    apply(UPnPCDSRVFSetQuality::setRVFQualityInitValue, p->stQuality);
    apply(UPnPCDSRVFSetMovieResolution::setRVFMovieResolutionInitValue, p->stMovieResolution);
    apply(UPnPCDSRVFSetFileSave::setRVFFileSaveInitValue, p->stFileSave);
    UPnPCDSRVFZoomStart::setRVFZoomLevel(p->iZoom[0], p->iZoom[1], p->iZoom[2]);
    apply(UPnPCDSRVFSetRatioOffset::setRVFRatioOffsetInitValue, p->stRatioOffset);
    apply(UPnPCDSRVFSetTouchAFOption::setRVFTouchAFOptionInitValue, p->stTouchAFOption);
    apply(UPnPCDSRVFSetAFArea::setRVFAFAreaInitValue, p->stAFArea);
    apply(UPnPCDSRVFSetStreamingQuality::setRVFStreamingQualityInitValue, p->stStreamingQuality);
    apply(UPnPCDSRVFSetStreamingResolution::setRVFStreamingResolutionInitValue, p->stStreamingResolution);
    return 1;
}

int DlnaRVFSetApertureValue(int reset, unsigned int current, char* values, unsigned int param1,
                            unsigned int param2) {
    return changeSetting(UPnPCDSRVFSetAperture::deleteRVFApertureInitValue,
                         UPnPCDSRVFSetAperture::setRVFApertureInitValue, reset, current, values, param1, param2);
}

int DlnaRVFSetShutterSpeedValue(int reset, unsigned int current, char* values, unsigned int param1,
                                unsigned int param2) {
    return changeSetting(UPnPCDSRVFSetShutterSpeed::deleteRVFShutterSpeedInitValue,
                         UPnPCDSRVFSetShutterSpeed::setRVFShutterSpeedInitValue, reset, current, values, param1,
                         param2);
}

int DlnaRVFSetEVValue(unsigned int current) {
    UPnPCDSRVFSetEV::setRVFEVInitValue(nullptr, 0, 0, current, kSettingCurrentOnly);
    return 1;
}

int DlnaRVFSetDisableParams(RVFDisableParams* p) {
    if (p == nullptr) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "DlnaRVFSetDisableParams param is NULL!!!");
        return 0;
    }
    apply(UPnPCDSRVFSetResolution::setRVFResolutionDisableValue, p->stResolution);
    apply(UPnPCDSRVFSetFileSave::setRVFFileSaveDisableValue, p->stFileSave);
    apply(UPnPCDSRVFSetTouchAFOption::setRVFTouchAFOptionDisableValue, p->stTouchAFOption);
    apply(UPnPCDSRVFSetAFArea::setRVFAFAreaDisableValue, p->stAFArea);
    return 1;
}

unsigned int GetRVFTickCount(void) {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    // Formed in 64 bits, then cut: the tick wraps every 49.7 days.
    uint64_t ms = static_cast<uint64_t>(tv.tv_sec) * 1000u + static_cast<uint64_t>(tv.tv_usec) / 1000u;
    return static_cast<unsigned int>(ms);
}

}  // extern "C"
