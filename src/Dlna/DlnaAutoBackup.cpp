// Auto backup: the UI's functions over the backup library's AutoBackup
// object, and the translation of its events into UI events.
#include <cstdint>

#include "Dlna/DlnaAutoBackup.h"
#include "Dlna/DlnaFrame.h"
#include "Dlna/DlnaLog.h"
#include "autobackup.h"
#include "camwifi/camwifi_media.h"
#include "nasl_wifi.h"
#include "zeb_stack.h"

namespace {

// UI event id of each backup event 0..16.
const int kAutoBackupEventIds[] = {34, 35, 36, 37, 38, 39, 40, 41, 42, 30, 31, 32, 33, 43, 45, -1, 44};
constexpr int kAutoBackupEventCount = sizeof kAutoBackupEventIds / sizeof kAutoBackupEventIds[0];

// Result of a step when the backup library cannot be had.
constexpr int kNoAutoBackup = -1;

}  // namespace

// Registered with the backup library: runs on its threads.
int DlnaMscpAutoBackupEventTranslator(eAUTOBACKUP_EVENT event, unsigned int value1, unsigned int value2) {
    int index = static_cast<int>(event);
    int id = (index >= 0 && index < kAutoBackupEventCount) ? kAutoBackupEventIds[index] : -1;
    if (ZEB_UI_CALLBACK cb = gMscpCallback.load())
        cb(id, reinterpret_cast<void*>(static_cast<uintptr_t>(value1)), static_cast<int>(value2));
    return id;
}

// Every step: log, forward to the backup library unchanged, log, return its result.
#define AUTOBACKUP_FORWARD(call)                                        \
    do {                                                                \
        DLNA_LOG_I(DLNA_TAG, "%s() called!!", __func__);                \
        AutoBackup* backup = AutoBackup::GetInstance();                 \
        int result = backup != nullptr ? backup->call : kNoAutoBackup;  \
        DLNA_LOG_I(DLNA_TAG, "%s() return!!", __func__);                \
        return result;                                                  \
    } while (0)

extern "C" {

int DlnaMscpAutoBackupStart(ZEB_UI_CALLBACK callback, const char* path) {
    SetAllShareMode(6);
    DlnaSetTransferSize(1);
    AutoBackup* backup = AutoBackup::GetInstance();
    if (backup == nullptr) return 0;
    DlnaMscpSetCallback(callback);
    if (!NASLWifi_InitFileList(0)) DLNA_LOG_E_LOGONLY(DLNA_TAG, "ERR: [%s] NASLWifi_InitFileList() failed !!! ", __func__);
    backup->setUiEventCallBack(DlnaMscpAutoBackupEventTranslator);
    return backup->StartAutoBackupbyThread(path);
}

int DlnaMscpAutoBackupTerminate(void) {
    if (AutoBackup* backup = AutoBackup::GetInstance()) backup->StopAutoBackup();
    AutoBackup::DestroyInstance();
    DirectoryScanner::DestroyInstance();
    SetAllShareMode(0);
    if (!NASLWifi_DestroyFileList())
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "ERR: [%s] NASLWifi_DestroyFileList() failed !!! ", __func__);
    return 1;
}

int DlnaMscpAutoBackupGetPCInfo(char** pcName, char** pcAddress) { AUTOBACKUP_FORWARD(GetPCInfo(pcName, pcAddress)); }

int DlnaMscpAutobackupInvalidatePCInfo(void) { AUTOBACKUP_FORWARD(InvalidatePCInfo()); }

int DlnaMscpAutoBackupGetDmsList(unsigned int* count, void** servers) {
    AUTOBACKUP_FORWARD(SearchServer(count, servers));
}

int DlnaMscpAutoBackupSaveServerInfo(int index) { AUTOBACKUP_FORWARD(SaveAutobackupServer(index)); }

int DlnaMscpAutoBackupCancel(void) {
    DLNA_LOG_I(DLNA_TAG, "DlnaMscpAutoBackupCancel() called!!*****");
    AutoBackup* backup = AutoBackup::GetInstance();
    int result = backup != nullptr ? backup->Cancel() : kNoAutoBackup;
    DLNA_LOG_I(DLNA_TAG, "DlnaMscpAutoBackupCancel() return!!");
    return result;
}

int DlnaMscpAutoBackupConnect(int index, int option) { AUTOBACKUP_FORWARD(Connect(index, option)); }

int DlnaMscpAutoBackupComplete(int outcome) { AUTOBACKUP_FORWARD(Complete(outcome)); }

int DlnaMscpAutoBackupSearchTarget(char* udn, char* name) { AUTOBACKUP_FORWARD(RegisterTargetServer(udn, name)); }

int DlnaMscpAutoBackupPrepare(void) { AUTOBACKUP_FORWARD(Prepare()); }

int DlnaMscpAutoBackupGetObject(void) { AUTOBACKUP_FORWARD(GetObject()); }

int DlnaMscpAutoBackupFileUpload(void) { AUTOBACKUP_FORWARD(FileUpload()); }

int DlnaMscpAutoBackupPause(void) { AUTOBACKUP_FORWARD(Pause()); }

int DlnaMscpAutoBackupResume(void) { AUTOBACKUP_FORWARD(Resume()); }

int DlnaMscpAutoBackupRemoveDB(void) { AUTOBACKUP_FORWARD(RemoveDB()); }

int DlnaMscpAutoBackupDeletePCInfo(void) { AUTOBACKUP_FORWARD(DeletePCInfo()); }

}  // extern "C"
