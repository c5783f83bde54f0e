// TV link and smartphone link: the two ways the card is shared through the
// media server, their fixed teardown order, and the smartphone link's
// user-start handshake.
#include "Dlna/DlnaLinks.h"

#include <sys/stat.h>

#include <cerrno>
#include <mutex>

#include "Dlna/DlnaDms.h"
#include "Dlna/DlnaFrame.h"
#include "Dlna/DlnaHandshake.h"
#include "Dlna/DlnaLog.h"
#include "Dlna/DlnaPath.h"
#include "Dlna/DlnaStack.h"
#include "SP/osal/SPGenericThread.h"
#include "camwifi/camwifi_media.h"
#include "nasl_wifi.h"
#include "zeb_stack.h"

std::atomic<int> gDmsStartFinishWaitMs{10000};

namespace {

// "No answer yet" in the user start value.
constexpr int kSPLNoAnswer = 65535;

// The handshake exists from the smartphone link start to its terminate.
DlnaHandshake& splHandshake() {
    static DlnaHandshake* h = new DlnaHandshake(kSPLNoAnswer);  // outlives every waiter
    return *h;
}

std::mutex gPhoneAddressLock;
std::string gSmartphoneLinkIPAddr;

// A start thread still preparing the server would use the stack while it is
// taken down: it is cancelled and waited for first, for a bounded time, so
// that a start that cannot end (a UI callback that does not return) cannot
// hold the terminate for ever. A start that outlives the wait ends on its
// own, with the cancelled report. The cancel is made again when a start that
// had not yet begun cleared it.
void finishStartThreads() {
    if (DlnaDmsStartThreadsRunning() == 0) return;
    DlnaDmsCancel();
    const int limitMs = gDmsStartFinishWaitMs.load();
    for (int waitedMs = 0; DlnaDmsStartThreadsRunning() > 0; waitedMs += 10) {
        if (waitedMs >= limitMs) {
            DLNA_LOG_E_LOGONLY(DLNA_TAG, "ERR: DlnaDmsStartThread still running");
            return;
        }
        if (!gDmsCancelRequested) DlnaDmsCancel();
        SPGenericThread::sleep(10);
    }
}

// Teardown shared by both links: each part that was brought up, once.
void stopMediaServer() {
    DLNAStopThread();
    if (gDmsServerStarted.exchange(false)) {
        DMSAppStop();
        DLNA_LOG_I(DLNA_TAG, "DMSApp stopped");
    }
    if (gDmsHandle.exchange(kDmsNoHandle) != kDmsNoHandle) {
        DMSAppTerminate();
        DLNA_LOG_I(DLNA_TAG, "DMSApp Terminated");
    }
    if (gDlnaHTTPInitialized.exchange(false)) {
        ZEBHTTPTerminate();
        DLNA_LOG_I(DLNA_TAG, "ZEBHTTP Terminated");
    }
    if (gDlnaStackInitialized.exchange(false)) {
        ZEBTerminateZEB();
        DLNA_LOG_I(DLNA_TAG, "ZEBTerminateZEB() completed");
    }
}

void initFileList(const char* caller) {
    if (!NASLWifi_InitFileList(0)) DLNA_LOG_E_LOGONLY(DLNA_TAG, "ERR: [%s] NASLWifi_InitFileList() failed !!! ", caller);
}

void destroyFileList(const char* caller) {
    if (!NASLWifi_DestroyFileList())
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "ERR: [%s] NASLWifi_DestroyFileList() failed !!! ", caller);
}

}  // namespace

void SetSmartphoneLinkIPAddr(const char* address) {
    std::lock_guard<std::mutex> g(gPhoneAddressLock);
    gSmartphoneLinkIPAddr = address ? address : "";
}

std::string GetSmartphoneLinkIPAddr() {
    std::lock_guard<std::mutex> g(gPhoneAddressLock);
    return gSmartphoneLinkIPAddr;
}

extern "C" {

int DlnaTVLinkStart(ZEB_UI_CALLBACK callback, const char* mediaDir, int aclMode) {
    SetAllShareMode(1);
    DlnaSetTransferSize(1);  // pictures reach the TV unchanged
    struct stat st;
    if (stat(DlnaFixedPath("/mnt/mmc/autoip.txt").c_str(), &st) == 0) {
        ZEBSetDlnaCertificationState(true);
        DLNA_LOG_I(DLNA_TAG, "UPnP/DLNA certification mode");
    }
    SetSelectImagePath(nullptr);
    DlnaDMSSetCallback(callback);
    SetACLMode(static_cast<unsigned int>(aclMode));
    initFileList(__FUNCTION__);
    return DlnaDmsLaunchStartThread("DlnaTVLinkStart", mediaDir);
}

void DlnaTVLinkTerminate(void) {
    DLNA_LOG_I(DLNA_TAG, "DlnaTVLinkTerminate() ENTER ");
    SPGenericThread::sleep(500);
    finishStartThreads();
    stopMediaServer();
    ZEBSetDlnaCertificationState(false);
    destroyFileList(__FUNCTION__);
    DLNA_LOG_I(DLNA_TAG, "DlnaTVLinkTerminate() EXIT ");
}

int DlnaTVLinkSendAlive(void) { return DMSAppSendAliveTemporary(); }

int DlnaTVLinkSetConnectionState(int state, const char* mac) {
    DLNA_LOG_I(DLNA_TAG, "[DlnaTVLinkSetConnectionState] received event result -> macAddr [%s] ",
               mac ? mac : "(null)");
    int result = DmsAppACLAddEntry(state == 0, mac);
    DMSAppSendAliveTemporary();
    return result;
}

int DlnaSmartphoneLinkStart(ZEB_UI_CALLBACK callback, const char* mediaDir, char* selectPath,
                            const char* phoneAddress) {
    SetAllShareMode(2);
    SetSmartphoneLinkIPAddr(phoneAddress);
    if (!splHandshake().create())
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "ERR: [DlnaSmartphoneLinkStart] gDlnaSPLSemaphore not created ");
    SetSelectImagePath(selectPath);
    DlnaDMSSetCallback(callback);
    initFileList(__FUNCTION__);
    return DlnaDmsLaunchStartThread("DlnaSmartphoneLinkStart", mediaDir);
}

void DlnaSmartphoneLinkTerminate(void) {
    DLNA_LOG_I(DLNA_TAG, "DlnaSmartphoneLinkTerminate() enter");
    if (GlobalEventHandleLock* lock = GlobalEventHandleLock::GetInstance()) lock->ReleaseLock();
    finishStartThreads();
    stopMediaServer();
    // Wakes every waiter (with no answer unless one was given).
    splHandshake().destroy();
    SetAllShareMode(0);
    destroyFileList(__FUNCTION__);
    DLNA_LOG_I(DLNA_TAG, "DlnaSmartphoneLinkTerminate() EXIT ");
}

int DlnaSPLWaitingUserStartEvent(int* answer) {
    // An answer already posted keeps its value for this wait.
    const int r = splHandshake().wait(answer);
    if (r != 0)
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[DlnaSPLWaitingUserStartEvent] sem_wait(gMpegStopedSemaphore) error no. %d",
                           errno);
    return r;
}

void DlnaSPLSendUserStartEvent(bool confirmed) {
    if (splHandshake().post(confirmed ? 1 : 2))
        DLNA_LOG_I(DLNA_TAG, "DlnaSPLSendUserStartEvent () give semaphone gDlnaSPLSemaphore");
}

}  // extern "C"
