// Media server start and stop: the start thread that prepares the card's
// database and brings the stack's media server up, cancelling, stopping the
// stack's threads, and the small helpers around it (friendly name, HTTPMU,
// file copy, transfer size).
#include "Dlna/DlnaDms.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Dlna/DlnaFrame.h"
#include "Dlna/DlnaLog.h"
#include "Dlna/DlnaPath.h"
#include "Dlna/DlnaStack.h"
#include "camwifi/camwifi_media.h"
#include "zeb_stack.h"

std::atomic<bool> gDmsCancelRequested{false};
std::atomic<bool> gDmsServerStarted{false};
std::atomic<int> gDmsHandle{kDmsNoHandle};

namespace {

// 0 lets the push features shrink JPEGs before sending them.
std::atomic<int> gTransferSize{0};
std::atomic<int> gStartThreadsRunning{0};

const char* const kDmsDescriptionDir = "/mnt/mmc/config/DMS/xml";

// Device icons copied into the description folder once the server exists.
const struct {
    const char* from;
    const char* to;
} kDmsIcons[] = {
    {"/network/icon/DEVICE_DSC.JPG", "/mnt/mmc/config/DMS/xml/icon_120x120.jpg"},
    {"/network/icon/DEVICE_DSC.PNG", "/mnt/mmc/config/DMS/xml/icon_120x120.png"},
    {"/network/icon/DEVICE_DSC_S.JPG", "/mnt/mmc/config/DMS/xml/icon_48x48.jpg"},
    {"/network/icon/DEVICE_DSC_S.PNG", "/mnt/mmc/config/DMS/xml/icon_48x48.png"},
    {"/network/icon/NoSupport.JPG", "/mnt/mmc/config/DMS/xml/NoSupport.JPG"},
    {"/network/icon/NoThumb.JPG", "/mnt/mmc/config/DMS/xml/NoThumb.JPG"},
};

// Parameters of the media server's UI events (carried in the length slot).
enum {
    kDmsEventStarted = 4,  // 0 started, 1 failed
    kDmsEventPreparing = 5,
    kDmsEventPrepared = 6,  // 0 ready, 1 failed, 2 cancelled
};

void sendDmsEvent(ZEB_CALLBACK_EVENT event, int parameter) { DmsSendEventToUI(event, nullptr, parameter); }

// The record's texts come from the stack's allocator, except the
// description folder, which is the library's own copy.
void freeDmsConfig(stDMSAppConfig* config) {
    if (config == nullptr) return;
    ZEBMemFreeMA(config->pDBFilePath);
    ZEBMemFreeMA(config->pSharedFolderPath);
    ZEBMemFreeMA(config->pSharedFolderPath2);
    free(config->pDescriptionDir);
    free(config);
}

// Reads every configured value of the record; false when one is missing.
bool readDmsConfig(stDMSAppConfig* config) {
    const char* dbKey = GetAllShareMode() == 1 ? "MEDIA-TV-DB-FILEPATH" : "MEDIA-DB-FILEPATH";
    config->pDBFilePath = ZEBGetConfigurationMA(dbKey);
    config->pSharedFolderPath = ZEBGetConfigurationMA("SHARED-MEDIA-FOLDER-PATH");
    config->pSharedFolderPath2 = ZEBGetConfigurationMA("SHARED-MEDIA-FOLDER-PATH");
    config->pDescriptionDir = strdup(DlnaFixedPath(kDmsDescriptionDir).c_str());
    config->iHTTPStreamingPort = 7679;
    char* port = ZEBGetConfigurationMA("HTTPStreamingPort");
    if (port != nullptr) config->iHTTPStreamingPort = static_cast<int>(strtol(port, nullptr, 10));
    bool complete = config->pDBFilePath && config->pSharedFolderPath && config->pSharedFolderPath2 &&
                    config->pDescriptionDir && port;
    ZEBMemFreeMA(port);
    return complete;
}

bool fileExists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

// Step of the start that decides whether the card's existing database is kept:
// one built for another folder or in an older sort order is deleted so that
// the scan rebuilds it. false when the database could not be opened or
// removed.
bool prepareDatabase(const char* dbPath, const char* sharedFolder) {
    if (!fileExists(dbPath)) {
        ZEBCreateDirectoryStructure(dbPath);
    } else {
        DataBaseMgr* db = DataBaseMgr::GetInstance();
        if (db == nullptr || !db->OpenDB(dbPath)) {
            DLNA_LOG_E_LOGONLY(DLNA_TAG, "[DlnaDmsStartThread] OpenDB fail. ");
            if (db != nullptr) DataBaseMgr::DestroyInstance();
            return false;
        }
        bool outdated = db->NeedToDeleteDB(sharedFolder) || !db->NeedToDeleteDBforSorting();
        // The scanner writes the file itself: the manager lets go of it
        // either way.
        DataBaseMgr::DestroyInstance();
        if (outdated && ZEBRemoveFile(dbPath) != 0) {
            DLNA_LOG_E_LOGONLY(DLNA_TAG, "[DlnaDmsStartThread] ZEBRemoveFile fail. ");
            return false;
        }
    }
    std::string journal = std::string(dbPath) + "-journal";
    if (fileExists(journal)) {
        ZEBRemoveFile(journal.c_str());
        DLNA_LOG_I(DLNA_TAG, " Remove DB journal file : %s", journal.c_str());
    }
    return true;
}

// Scans the media folder into the database and marks what is shared. false
// when the scanned database could not be updated.
bool scanMedia(const char* mediaDir, const char* dbPath, char* selectPaths) {
    DLNA_LOG_I(DLNA_TAG, "[DlnaDmsStartThread] media dir : %s", mediaDir ? mediaDir : "(null)");
    if (ZEBUtilStartFileScanner(gDmsHandle.load(), mediaDir) != 0) return true;
    bool ok = true;
    DataBaseMgr* db = DataBaseMgr::GetInstance();
    if (db == nullptr || !db->OpenDB(dbPath)) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[DlnaDmsStartThread] OpenDB fail. ");
        ok = false;
    } else if (!db->UpdateShareStatus(selectPaths, static_cast<int>(GetAllShareMode()))) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[DlnaDmsStartThread] UpdateShareStatus fail. ");
        ok = false;
    }
    if (db != nullptr) DataBaseMgr::DestroyInstance();
    return ok;
}

// Creates and starts the server; the icons are copied once it exists (a
// missing icon only leaves the TV without it). true when it serves.
bool startServer(stDMSAppConfig* config) {
    int handle = gDmsHandle.load();
    ZEB_ERROR_CODE r = DMSAppInitialize(&handle, config);
    gDmsHandle.store(handle);
    if (r != 0) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[DMCUI] DMS Init Failed.. ");
        return false;
    }
    for (const auto& icon : kDmsIcons)
        DlnaDataCopyFile(DlnaFixedPath(icon.from).c_str(), DlnaFixedPath(icon.to).c_str());
    if (DMSAppStart(GetACLMode()) != 0) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[DMCUI] DMSAppStart Failed... ");
        return false;
    }
    DLNA_LOG_I(DLNA_TAG, "[DMCUI] DMSAppStart Success... ");
    gDmsServerStarted = true;
    return true;
}

void sendCancelled() {
    DLNA_LOG_I(DLNA_TAG, "[DMCUI] DMS Cancel event to UI... ");
    sendDmsEvent(kDmsEventPrepared, 2);
}

void* startThreadEntry(void* mediaDirCopy) {
    DlnaDmsStartThread(mediaDirCopy);
    free(mediaDirCopy);
    gStartThreadsRunning.fetch_sub(1);
    return nullptr;
}

}  // namespace

void* DlnaDmsStartThread(void* arg) {
    const char* mediaDir = static_cast<const char*>(arg);
    DLNA_LOG_I(DLNA_TAG, "DlnaDmsStartThread() enter");
    prctl(PR_SET_NAME, "DlnaDmsStart", 0, 0, 0);
    char* selectPaths = GetSelectImagePath();
    gDmsCancelRequested = false;
    DlnaInstallSignalHandler();
    gDmsHandle = kDmsNoHandle;

    // The stack is brought up once per process run; a failure is only logged
    // here (the configuration reads below then fail and report it).
    if (!gDlnaStackInitialized.exchange(true)) {
        std::string configFile = DlnaFixedPath(DLNA_UPNP_CONFIG_FILE);
        ZEB_ERROR_CODE r = ZEBInitializeZEB(configFile.c_str());
        DLNA_LOG_I(DLNA_TAG, "Return_value: %u, ZEBInitializeZEB: %s", static_cast<unsigned>(r), configFile.c_str());
    }
    if (!gDlnaHTTPInitialized.exchange(true)) ZEBHTTPInitialize();
    else DLNA_LOG_I(DLNA_TAG, "HTTP Stream Thread is already initialize");

    stDMSAppConfig* config = static_cast<stDMSAppConfig*>(calloc(1, sizeof(stDMSAppConfig)));
    if (config == nullptr) {
        int err = errno;
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[%s:%d] failed to allocate memory. err[%d] %s", __FUNCTION__, __LINE__, err,
                           strerror(err));
        // The UI waits for a final event: a start that cannot even begin
        // reports failure like any other.
        sendDmsEvent(kDmsEventPrepared, 1);
        return nullptr;
    }
    if (!readDmsConfig(config)) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[DlnaDmsStartThread] configuration incomplete. ");
        freeDmsConfig(config);
        sendDmsEvent(kDmsEventPrepared, 1);
        return nullptr;
    }

    sendDmsEvent(kDmsEventPreparing, 0);
    if (!prepareDatabase(config->pDBFilePath, config->pSharedFolderPath)) {
        freeDmsConfig(config);
        sendDmsEvent(kDmsEventPrepared, 1);
        return nullptr;
    }
    bool prepared = scanMedia(mediaDir, config->pDBFilePath, selectPaths);
    if (gDmsCancelRequested) {
        freeDmsConfig(config);
        sendCancelled();
    } else if (!prepared) {
        freeDmsConfig(config);
        sendDmsEvent(kDmsEventPrepared, 1);
    } else {
        sendDmsEvent(kDmsEventPrepared, 0);
        bool started = startServer(config);
        freeDmsConfig(config);
        if (gDmsCancelRequested) {
            sendCancelled();
        } else if (started) {
            sendDmsEvent(kDmsEventStarted, 0);
        } else {
            DLNA_LOG_E_LOGONLY(DLNA_TAG, "[DMCUI] DMS Fail event to UI... ");
            sendDmsEvent(kDmsEventStarted, 1);
        }
    }
    DLNA_LOG_I(DLNA_TAG, "DlnaDmsStartThread() EXIT");
    return nullptr;
}

int DlnaDmsLaunchStartThread(const char* caller, const char* mediaDir) {
    DLNA_LOG_I(DLNA_TAG, "[%s] media dir : %s", caller, mediaDir ? mediaDir : "(null)");
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) != 0) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "ERR: [%s] pthread_attr_init() failed: ", caller);
        return 0;
    }
    int launched = 0;
    if (pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED) != 0) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "ERR: [%s] pthread_attr_setdetachstate() failed: ", caller);
    } else {
        // The UI's text may be gone before the thread reads it.
        char* copy = mediaDir ? strdup(mediaDir) : nullptr;
        gStartThreadsRunning.fetch_add(1);
        pthread_t thread;
        int err = (mediaDir && !copy) ? ENOMEM : pthread_create(&thread, &attr, startThreadEntry, copy);
        if (err != 0) {
            gStartThreadsRunning.fetch_sub(1);
            free(copy);
            DLNA_LOG_E_LOGONLY(DLNA_TAG, "ERR: [%s] pthread_create() failed: errno=%d (%s) ", caller, err,
                               strerror(err));
        } else {
            launched = 1;
        }
    }
    if (pthread_attr_destroy(&attr) != 0)
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "ERR: [%s] pthread_attr_destroy() failed: ", caller);
    return launched;
}

int DlnaDmsStartThreadsRunning() { return gStartThreadsRunning.load(); }

extern "C" {

void DlnaDmsCancel(void) {
    DLNA_LOG_I(DLNA_TAG, "DlnaDmsCancel() ENTER");
    gDmsCancelRequested = true;
    if (DataBaseMgr* db = DataBaseMgr::GetInstance()) db->CancelInvalidateAllItems();
    if (DirectoryScanner* scanner = DirectoryScanner::GetInstance()) scanner->CancelScanDirectory();
}

void DLNAStopThread(void) {
    DMSAppStopTimerThread();
    if (ZEBHTTPStopAsyncThread() != 0) DLNA_LOG_E_LOGONLY(DLNA_TAG, "DLNAStopThread... AsyncThread Stop Fail !!!");
    ZEBStopTimerThreadZEB();
}

int DlnaDmsGetFriendlyName(char* name, int size) {
    if (name == nullptr || size <= 0) return 0;
    name[0] = '\0';
    char* deviceName = ZEBGetDeviceName(DlnaFixedPath("/mnt/mmc/config/DMS/xml/DeviceDescription.xml").c_str());
    if (deviceName == nullptr) return 0;
    snprintf(name, static_cast<size_t>(size), "%s", deviceName);
    ZEBMemFreeMA(deviceName);
    return 1;
}

int DlnaPauseHTTPMUServer(int profileId) { return ZEBPauseHTTPMUServer(profileId); }

int DlnaResumeHTTPMUServer(int profileId) { return ZEBResumeHTTPMUServer(profileId); }

int DlnaDataCopyFile(const char* from, const char* to) {
    if (from == nullptr || to == nullptr) return -1;
    int in = open(from, O_RDONLY | O_CLOEXEC);
    if (in < 0) return -1;
    // Not truncated: a longer existing target keeps its tail.
    int out = open(to, O_WRONLY | O_CREAT | O_CLOEXEC, 0755);
    if (out < 0) {
        close(in);
        return -1;
    }
    DLNA_LOG_I(DLNA_TAG, "DlnaDataCopyFile : %s[%d]   %s[%d]", from, in, to, out);
    int result = -1;
    struct stat st;
    char* buffer = nullptr;
    if (fstat(in, &st) == 0 && (buffer = static_cast<char*>(malloc(st.st_size > 0 ? st.st_size : 1))) != nullptr) {
        size_t size = static_cast<size_t>(st.st_size), got = 0;
        bool readFailed = false;
        while (got < size) {
            ssize_t n = read(in, buffer + got, size - got);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) readFailed = true;
            if (n <= 0) break;
            got += static_cast<size_t>(n);
        }
        size_t put = 0;
        bool writeFailed = false;
        while (!readFailed && put < got) {
            ssize_t n = write(out, buffer + put, got - put);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) {
                writeFailed = true;
                break;
            }
            put += static_cast<size_t>(n);
        }
        // A copy that did not reach the target is reported like a failed
        // read: the caller must not take a partial icon for a whole one.
        result = (readFailed || writeFailed) ? -1 : 0;
    }
    free(buffer);
    close(in);
    close(out);
    return result;
}

void DlnaSetTransferSize(int sizeOption) {
    DLNA_LOG_I(DLNA_MS_TAG, "DlnaSetTransferSize() sizeOption = %d", sizeOption);
    gTransferSize = sizeOption;
}

int DlnaGetTransferSize(void) {
    int size = gTransferSize.load();
    DLNA_LOG_I(DLNA_MS_TAG, "gTransferSize = %d", size);
    return size;
}

}  // extern "C"
