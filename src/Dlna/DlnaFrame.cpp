#include "Dlna/DlnaFrame.h"

#include <csignal>
#include <cstring>

#include "Dlna/DlnaLog.h"
#include "nasl_wifi.h"
#include "zeb_stack.h"

std::atomic<ZEB_UI_CALLBACK> gDMSCallback{nullptr};
std::atomic<ZEB_UI_CALLBACK> gMrcpCallback{nullptr};
std::atomic<ZEB_UI_CALLBACK> gMscpCallback{nullptr};
std::atomic<ZEB_UI_CALLBACK> gSelectivePushCallback{nullptr};
std::atomic<ZEB_UI_CALLBACK> gRVFCallback{nullptr};
std::atomic<ZEB_MODE_CALLBACK> gModeServerCallback{nullptr};

namespace {

// Plain process-wide words; atomic so that a feature thread reading them
// while the UI writes them is not a data race.
std::atomic<unsigned int> gShareMode{0};
std::atomic<char*> gSelectImagePath{nullptr};
std::atomic<unsigned int> gACLMode{4};

}  // namespace

extern "C" {

void DlnaDMSSetCallback(ZEB_UI_CALLBACK callback) { gDMSCallback.store(callback); }

ZEB_UI_CALLBACK DlnaMrcpSetCallback(ZEB_UI_CALLBACK callback) {
    gMrcpCallback.store(callback);
    return gMrcpCallback.load();
}

void DlnaMscpSetCallback(ZEB_UI_CALLBACK callback) { gMscpCallback.store(callback); }

void DlnaSelectivePushSetCallback(ZEB_UI_CALLBACK callback) { gSelectivePushCallback.store(callback); }

unsigned int GetAllShareMode(void) { return gShareMode.load(); }

unsigned int SetAllShareMode(unsigned int mode) {
    gShareMode.store(mode);
    return mode;
}

char* GetSelectImagePath(void) { return gSelectImagePath.load(); }

void SetSelectImagePath(char* path) { gSelectImagePath.store(path); }

unsigned int GetACLMode(void) { return gACLMode.load(); }

void SetACLMode(unsigned int mode) { gACLMode.store(mode); }

int DlnaSetModelName(const char* modelName) {
    DLNA_LOG_I(DLNA_TAG, "DlnaSetModelName(%s)", modelName ? modelName : "(null)");
    return ZEBSetModelName(modelName);
}

int filetypestring(unsigned char type, char* out) {
    static const char* const kCodes[] = {"CAM", "QRA", "HDV", "HDE", "HDA", "SDV", "SDE", "SDA", "MPO"};
    if (type >= sizeof kCodes / sizeof kCodes[0] || out == nullptr) return -1;
    memcpy(out, kCodes[type], 4);
    return 1;
}

int DLNAInitMemory(unsigned long poolSize, unsigned long blockSize) {
    return NASLWifi_InitMemory(poolSize, blockSize);
}

int DLNADestroyMemory(void) { return NASLWifi_DestroyMemory(); }

}  // extern "C"

int DmsSendEventToUI(ZEB_CALLBACK_EVENT event, void* value, intptr_t length) {
    DLNA_LOG_I(DLNA_TAG, "===>DmsSendEventToUI called");
    ZEB_UI_CALLBACK cb = gDMSCallback.load();
    if (cb == nullptr) {
        DLNA_LOG_I(DLNA_TAG, "ERROR : gDMSCallback is NULL");
        return 0;
    }
    cb(event, value, length);
    return 1;
}

int RVFSendEventToUI(ZEB_CALLBACK_EVENT event, void* value, intptr_t length) {
    DLNA_LOG_I(DLNA_TAG, "===>RVFSendEventToUI called....%d", event);
    ZEB_UI_CALLBACK cb = gRVFCallback.load();
    if (cb == nullptr) {
        DLNA_LOG_I(DLNA_TAG, "ERROR : gRVFCallback is NULL");
        return 0;
    }
    cb(event, value, length);
    return 1;
}

int SelectivePushSendEventToUI(ZEB_CALLBACK_EVENT event, void* value, intptr_t length) {
    ZEB_UI_CALLBACK cb = gSelectivePushCallback.load();
    if (cb == nullptr) {
        // The push path names the media server's slot too; the UI's log
        // readers look for this one text.
        DLNA_LOG_E(DLNA_SP_TAG, "ERROR : gDMSCallback is NULL");
        return 0;
    }
    cb(event, value, length);
    return 1;
}

void DlnaSignalHandler(int signo) {
    if (signo == SIGALRM) signal(SIGALRM, DlnaSignalHandler);
}

void DlnaInstallSignalHandler() {
    signal(SIGALRM, DlnaSignalHandler);
    signal(SIGPIPE, DlnaSignalHandler);
}
