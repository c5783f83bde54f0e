// The UI's entry points of the single-phone and multi-phone push: share
// mode, callback, file list, model name and the user-start wait around the
// SP*/SNPush* layer.
#include <cerrno>

#include "Dlna/DlnaFrame.h"
#include "Dlna/DlnaHandshake.h"
#include "Dlna/DlnaLog.h"
#include "SP/SPInterface.h"
#include "camwifi/camwifi_media.h"
#include "nasl_wifi.h"
#include "zeb_stack.h"

namespace {

// Reads the model name set through DlnaSetModelName; false when none is set.
bool readModelName(char* out, unsigned int size) {
    const ZEBString* name = ZEBGetModelName();
    return name != nullptr && ZEBString_ReadString(name, out, size) > 0;
}

void initFileList() {
    if (NASLWifi_InitFileList(0) == 0) DLNA_LOG_E(DLNA_SP_TAG, "ERR: NASLWifi_InitFileList() failed !!!\n ");
}

}  // namespace

extern "C" {

int DlnaSelectivePush_ServerStart(ZEB_UI_CALLBACK callback) {
    DLNA_LOG_I(DLNA_SP_TAG, "[%s] : Enter", __FUNCTION__);
    SetAllShareMode(3);
    if (!SPUserStartHandshake().create())
        DLNA_LOG_E(DLNA_SP_TAG, "gDlnaSelectivePushSemaphore could not be created");
    DlnaSelectivePushSetCallback(callback);
    // Resizing is on exactly when the camera's transfer-size setting is 0.
    SPSetImageTransferSize(!DlnaGetTransferSize());
    char modelName[64] = {};
    if (!readModelName(modelName, sizeof modelName)) {
        DLNA_LOG_E(DLNA_SP_TAG, "ERR: no model name!");
        SelectivePushSendEventToUI(60, nullptr, 0);
        return 0;
    }
    initFileList();
    SPStart(modelName);
    return 1;
}

int DlnaSelectivePush_SendFile(const char* path) {
    DLNA_LOG_I(DLNA_SP_TAG, "Enter -> File Path = %s ", path ? path : "(null)");
    SPTransferFile(path);
    return 1;
}

int DlnaSelectivePush_Close(void) {
    DLNA_LOG_I(DLNA_SP_TAG, "Enter");
    const int result = SPStopFile();
    if (result == 0) DLNA_LOG_E(DLNA_SP_TAG, "DlnaSelectivePush_Close Failed.. ");
    return result;
}

int DlnaSelectivePush_Disconnect(void) {
    DLNA_LOG_I(DLNA_SP_TAG, "Enter");
    const int result = SPDisconnectClient();
    if (result == 0) DLNA_LOG_E(DLNA_SP_TAG, "[SP] Unable to Disconnect the client ");
    return result;
}

int DlnaSelectivePush_SendUserStartEvent(int answer) {
    DLNA_LOG_I(DLNA_SP_TAG, "Enter");
    SPSendUserStartEvent(answer);
    return 1;
}

int DlnaSelectivePush_WaitingUserStartEvent(int* answer) {
    DlnaHandshake& handshake = SPUserStartHandshake();
    DLNA_LOG_I(DLNA_SP_TAG, "gDlnaSelectivePushSemaphore = 0x%lx",
               static_cast<unsigned long>(reinterpret_cast<uintptr_t>(handshake.address())));
    // An announcement already posted keeps its answer; otherwise the wait
    // starts from "no answer" (65535).
    const int result = handshake.wait(answer);
    if (result != 0) DLNA_LOG_E(DLNA_SP_TAG, "sem_wait(gDlnaSelectivePushSemaphore) error no. %d", errno);
    return result;
}

int DlnaSelectivePush_Terminate(void) {
    DLNA_LOG_I(DLNA_SP_TAG, "Enter");
    SPTerminate();
    SPUserStartHandshake().destroy();
    SetAllShareMode(0);
    if (NASLWifi_DestroyFileList() == 0) DLNA_LOG_E(DLNA_SP_TAG, "ERR: NASLWifi_DestroyFileList() failed !!!\n ");
    return 1;
}

int DlnaSelective_NPush_Initialize(ZEB_UI_CALLBACK callback) {
    DLNA_LOG_I(DLNA_SP_TAG, " Enter");
    SetAllShareMode(4);
    initFileList();
    if (!SNPushInitialize()) {
        DLNA_LOG_E(DLNA_SP_TAG, " SNPushInit Failed !! ");
        SelectivePushSendEventToUI(70, nullptr, 0);
        return 0;
    }
    DlnaSelectivePushSetCallback(callback);
    SPSetImageTransferSize(!DlnaGetTransferSize());
    char modelName[64] = {};
    if (!readModelName(modelName, sizeof modelName)) {
        DLNA_LOG_E(DLNA_SP_TAG, " No MODEL Name Set!! ");
        SelectivePushSendEventToUI(70, nullptr, 0);
        return 0;
    }
    SNPushStart();
    return 1;
}

int DlnaSelective_NPush_Terminate(void) {
    DLNA_LOG_I(DLNA_SP_TAG, " Enter");
    SNPushTerminate();
    SetAllShareMode(0);
    if (NASLWifi_DestroyFileList() == 0) DLNA_LOG_E(DLNA_SP_TAG, "ERR: NASLWifi_DestroyFileList() failed !!! ");
    return 1;
}

int DlnaSelective_NPush_StartFileTransfer(const char* mac, const char* path) {
    DLNA_LOG_I(DLNA_SP_TAG, " Send File [%s] to [%s] ", path ? path : "(null)", mac ? mac : "(null)");
    if (mac == nullptr || path == nullptr) {
        DLNA_LOG_E(DLNA_SP_TAG, "Invalid Client Selected !!!");
        return 0;
    }
    return SNPushTransferFile(mac, path);
}

int DlnaSelective_NPush_StopFileTransfer(const char* mac) {
    DLNA_LOG_I(DLNA_SP_TAG, " Enter");
    if (mac == nullptr) {
        DLNA_LOG_E(DLNA_SP_TAG, "Invalid Client Selected !!!");
        return 0;
    }
    const int result = SNPushStopFile(mac);
    if (result == 0) DLNA_LOG_E(DLNA_SP_TAG, "DlnaSelectivePush_Close Failed.. ");
    return result;
}

int DlnaSelective_Npush_RemoveUserAgent(const char* mac) {
    DLNA_LOG_I(DLNA_SP_TAG, " Enter");
    if (mac == nullptr) {
        DLNA_LOG_E(DLNA_SP_TAG, " Invalid Client Selected !!!");
        return 0;
    }
    const int result = SNPushRemoveClientFromAccessList(mac);
    if (result == 0)
        DLNA_LOG_E(DLNA_SP_TAG,
                   "[DlnaSelective_Npush_RemoveUserAgent] Unable to remove the uger agent from Access table ");
    return result;
}

int DlnaSelective_Npush_AllowNewConnection(bool allow) { return SNPushAllowNewConnection(allow); }

int DlnaSelective_NPush_SendUserStartEvent(const char* mac, int confirm) {
    DLNA_LOG_I(DLNA_SP_TAG, "[DlnaSelective_NPush_SendUserStartEvent] IsConfirm = %d", confirm);
    SNPushSendUserStartEvent(mac, confirm);
    return 1;
}

}  // extern "C"
