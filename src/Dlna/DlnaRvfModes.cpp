// The viewfinder service's two other modes: monitor mode (a phone watches the
// live view) and media-browsing mode (a phone browses the card).
#include <cstdio>

#include "Dlna/DlnaFrame.h"
#include "Dlna/DlnaLog.h"
#include "Dlna/DlnaPath.h"
#include "Dlna/Dlna_RVF_interface.h"
#include "camwifi/camwifi_media.h"
#include "nasl_wifi.h"
#include "rvf_lib.h"

namespace {

// Icons the browsing mode shows for files it cannot show or has no
// thumbnail of, copied into the service's description folder.
const struct {
    const char* from;
    const char* to;
} kBrowsingIcons[] = {
    {"/network/icon/NoSupport.JPG", "/mnt/mmc/config/RVF/xml/NoSupport.JPG"},
    {"/network/icon/NoThumb.JPG", "/mnt/mmc/config/RVF/xml/NoThumb.JPG"},
};

// Browsing mode value that keeps the thumbnail maker idle.
constexpr int kBrowsingWithoutThumbnails = 1;

}  // namespace

extern "C" {

bool DlnaBMStart(ZEB_UI_CALLBACK callback) {
    DLNA_LOG_I(DLNA_TAG, "DlnaBMStart () is called ");
    SetAllShareMode(7);
    if (callback == nullptr) {
        printf(" DlnaBMStart call back is NULL!!!\n");
        return false;
    }
    // The monitor service reports nothing itself: it gets no callback.
    return RvfStartService(callback, nullptr);
}

int DlnaBMSet_Control_Function(BM_CONTROL_FUNCTIONS* functions) {
    return RvfForwardTable(__FUNCTION__, functions, CDSBM_Set_Control_Function);
}

int DlnaBMSet_Mpeg_Function(BM_MPEG_FUNCTIONS* functions) {
    return RvfForwardTable(__FUNCTION__, functions, CDSBM_Set_Mpeg_Function);
}

int DlnaBMTerminate(void) {
    if (RvfSetTerminated(true)) {
        printf("%s() is callled Return!!!\n", __FUNCTION__);
        return 1;
    }
    DLNA_LOG_I(DLNA_TAG, "%s() is callled ", "DlnaBMTerminate");
    RvfFinishDBThreads();
    RVFStreamingThruGet::setStreamingStop(true);
    CDSBM_Delete_Function();
    RVFAppSetEventFlag(kRvfFlagAll);
    // The monitor mode leaves the stream-stop status clear, unlike the
    // viewfinder's terminate.
    RvfStopService(false);
    SetAllShareMode(0);
    DLNA_LOG_I(DLNA_TAG, "DlnaBMTerminate () is finishing .... done ");
    return 1;
}

int DlnaBMEvent(int event, const char* value) {
    printf("%s  () is callled and Event = %d, value =%s\n", "DlnaBMEvent", event, value ? value : "NULL");
    switch (event) {
        case 1:
        case 2:
        case 4:
        case 6:
        case 7:
            return RvfSetEventFlag(kRvfFlagStateChanged) ? 1 : 0;
        case 3:
            RVFAppSendRotationEvent(value);
            return 1;
        case 5:
            RVFAppSendStartMonitorEvent(1);
            RVFAppUpdateServiceVariable(0);
            return 1;
        default:
            return 1;
    }
}

int _HeartBeatTimerInitialize(void) { return 1; }

bool DlnaRVF_ML_FJ_Start(int mode, bool noCard, ZEB_UI_CALLBACK callback) {
    DLNA_LOG_I(DLNA_TAG, "mode = [%d], no card = [%d]", mode, noCard ? 1 : 0);
    SetAllShareMode(8);
    if (callback == nullptr) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "pCallback is NULL!!!");
        return false;
    }
    gRVFCallback = callback;
    if (NASLWifi_InitFileList(noCard ? 1 : 0) == 0) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "ERR: NASLWifi_InitFileList() failed !!! ");
        return false;
    }
    MultiMediaDbConnector::SetThumbnailWorkingStatus(mode != kBrowsingWithoutThumbnails);
    bool started = RvfStartService(callback, callback);
    // Into the folder the service has just prepared; a missing icon only
    // leaves the phone without it.
    for (const auto& icon : kBrowsingIcons)
        DlnaDataCopyFile(DlnaFixedPath(icon.from).c_str(), DlnaFixedPath(icon.to).c_str());
    return started;
}

void DlnaRVF_ML_FJ_Terminate(void) {}

}  // extern "C"
