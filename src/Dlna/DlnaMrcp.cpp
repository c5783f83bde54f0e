// Renderer control point: start and stop, the renderer list and the choice
// of one renderer, renderer arrival and departure, the camera's address, the
// content URL and the playback commands the UI sends to the chosen renderer.
#include "Dlna/DlnaMrcp.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "Dlna/DlnaFrame.h"
#include "Dlna/DlnaLog.h"
#include "Dlna/DlnaMrcpDescriptions.h"
#include "Dlna/DlnaPath.h"
#include "Dlna/DlnaStack.h"
#include "Dlna/Dlna_response.h"
#include "SP/osal/SPGenericThread.h"
#include "camwifi/camwifi_media.h"
#include "nasl_wifi.h"

// The records the UI reads keep their documented sizes on every target
// (none of them holds a pointer).
static_assert(sizeof(DmrListEntry) == 312, "DmrListEntry is 4 + 50 + 256 bytes, padded to 312");
static_assert(offsetof(DmrListEntry, name) == 4 && offsetof(DmrListEntry, udn) == 54, "DmrListEntry field offsets");
static_assert(sizeof(DeviceInfo) == 1296, "DeviceInfo is 16 + 5 x 256 bytes");
static_assert(sizeof(MrcpPlayPosition) == 12, "MrcpPlayPosition is three 32-bit integers");

std::atomic<int> gMrcpProfileID{kMrcpNoProfile};
char gSelectedDmrUDN[256];
std::atomic<int> gMrcpStopActionFlag{kMrcpActionIdle};
std::atomic<int> gMrcpPlayActionFlag{kMrcpActionIdle};
std::atomic<int> gMrcpShowActionFlag{kMrcpActionIdle};
std::atomic<bool> gMrcpStarted{false};
std::atomic<bool> gMrcpCallbacksOpen{false};
std::atomic<int> gMrcpListWaitMs{2000};

namespace {

// Logs under the name of the exported function a shared step works for.
#define MRCP_LOG_AS(function, ...) \
    DlnaLogPrint(DLNA_LOG_INFO, false, DLNA_TAG, __FILE__, function, __LINE__, __VA_ARGS__)
#define MRCP_ERR_AS(function, ...) \
    DlnaLogPrint(DLNA_LOG_ERROR, false, DLNA_TAG, __FILE__, function, __LINE__, __VA_ARGS__)

// "Name() ENTER" on entry and "Name() EXIT" on every way out.
class MrcpTrace {
public:
    MrcpTrace(const char* file, const char* function, int line) : m_file(file), m_function(function), m_line(line) {
        DlnaLogPrint(DLNA_LOG_INFO, false, DLNA_TAG, m_file, m_function, m_line, "%s() ENTER", m_function);
    }
    ~MrcpTrace() { DlnaLogPrint(DLNA_LOG_INFO, false, DLNA_TAG, m_file, m_function, m_line, "%s() EXIT", m_function); }

private:
    const char* m_file;
    const char* m_function;
    int m_line;
};
#define MRCP_TRACE() MrcpTrace mrcpTrace(__FILE__, __FUNCTION__, __LINE__)

std::atomic<bool> gShowReady{true};
std::atomic<bool> gDmrSelected{false};
std::atomic<int> gSelectedDmrIndex{0};

// Guarded by MrcpLock(). The list keeps its rows until the next list call
// writes them again (a terminate does not forget them either).
DmrListEntry gDmrList[DLNA_MRCP_MAX_DMR];
int gDmrListCount = 0;
std::string gPendingPhotoPath;
char gMyIP[16] = "0.0.0.0";

// Callbacks and timer handlers running now, and how many of them the
// calling thread is inside of.
std::atomic<int> gCallbacksRunning{0};
thread_local int tCallbackDepth = 0;

// Terminate gives a callback in flight this long to return.
constexpr int kCallbackDrainMs = 5000;

const char* orEmpty(const char* s) { return s ? s : ""; }

void copyText(char* out, size_t size, const char* text) { snprintf(out, size, "%s", orEmpty(text)); }

// One line of dashes around logged blocks.
const char* const kDashes = "------------------------------------";

}  // namespace

std::mutex& MrcpLock() {
    static std::mutex* lock = new std::mutex;  // used by stack threads until exit
    return *lock;
}

std::string MrcpChosenUdn() {
    std::lock_guard<std::mutex> g(MrcpLock());
    return gSelectedDmrUDN;
}

void MrcpForgetRenderers() {
    std::lock_guard<std::mutex> g(MrcpLock());
    gDmrSelected = false;
    gSelectedDmrIndex = 0;
    gSelectedDmrUDN[0] = '\0';
    memset(gDmrList, 0, sizeof gDmrList);
    gDmrListCount = 0;
}

MrcpCallbackScope::MrcpCallbackScope() {
    ++tCallbackDepth;
    ++gCallbacksRunning;
}

MrcpCallbackScope::~MrcpCallbackScope() {
    --gCallbacksRunning;
    --tCallbackDepth;
}

void MrcpSendEventToUI(ZEB_CALLBACK_EVENT event, void* value, int length) {
    if (ZEB_UI_CALLBACK cb = gMrcpCallback.load()) cb(event, value, length);
}

ZEB_ERROR_CODE MrcpSendAction(MrcpSender send, const char* action, const char* context,
                              const std::function<ZEB_ERROR_CODE(stZEBAppList*)>& fill, const char* udn) {
    const std::string target = udn && *udn ? udn : MrcpChosenUdn();
    if (target.empty()) return -1;
    stZEBAppList* request = nullptr;
    if (HZebMRCPAllocRequestResources(&request) != 0 || request == nullptr) return -1;
    ZEB_ERROR_CODE r = -1;
    if (HZebMRCPRQSetActionName(request, action) == 0 && HZebMRCPRQSetInstanceID(request, "0") == 0 &&
        (!fill || fill(request) == 0))
        r = send(gMrcpProfileID.load(), target.c_str(), request, context);
    HZebMRCPReleaseRequestResources(request);
    return r;
}

// ==== Camera address and content URL ==========================================

char* __GetMyIP() {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return nullptr;
    // Room for 10 interfaces, as on the camera.
    struct ifreq entries[10];
    struct ifconf conf;
    memset(entries, 0, sizeof entries);
    conf.ifc_len = sizeof entries;
    conf.ifc_req = entries;
    int r = ioctl(fd, SIOCGIFCONF, &conf);
    close(fd);
    if (r < 0) return nullptr;
    std::lock_guard<std::mutex> g(MrcpLock());
    snprintf(gMyIP, sizeof gMyIP, "0.0.0.0");
    int count = conf.ifc_len / static_cast<int>(sizeof(struct ifreq));
    for (int i = 0; i < count; ++i) {
        if (entries[i].ifr_addr.sa_family != AF_INET) continue;
        struct sockaddr_in addr;
        memcpy(&addr, &entries[i].ifr_addr, sizeof addr);
        char text[INET_ADDRSTRLEN];
        if (inet_ntop(AF_INET, &addr.sin_addr, text, sizeof text) == nullptr || strcmp(text, "127.0.0.1") == 0)
            continue;
        // The last address found wins.
        snprintf(gMyIP, sizeof gMyIP, "%s", text);
        DLNA_LOG_I(DLNA_TAG, "IP: %s", gMyIP);
    }
    return gMyIP;
}

extern "C" int DlnaGetContentUri(const char* path, char** uri) {
    if (uri == nullptr) return 802;
    *uri = nullptr;
    // A missing path would name no file at all: the URL would be empty of content.
    if (path == nullptr || *path == '\0') return 805;
    // "0.0.0.0" still makes a URL (a camera whose only link is loopback, as
    // in a simulator); only unreadable interfaces mean no address.
    const char* myIp = __GetMyIP();
    if (myIp == nullptr) return 801;
    std::string ip;
    {
        std::lock_guard<std::mutex> g(MrcpLock());
        ip = myIp;
    }
    char* port = ZEBGetConfigurationMA("HTTPStreamingPort");
    if (port == nullptr) return 802;
    std::string base = std::string("http://") + ip + ":" + port;
    ZEBMemFreeMA(port);
    DLNA_LOG_I(DLNA_TAG, "[MRCP] pszURLBase : %s", base.c_str());
    std::string full = base + path;
    if (full.empty()) return 805;
    *uri = strdup(full.c_str());
    if (*uri == nullptr) return 802;
    DLNA_LOG_I(DLNA_TAG, "[MRCP] pszContentURI : %s", *uri);
    return 0;
}

// ==== SetAVTransportURI for a card file =======================================

namespace {

// Log texts of the two ways a file is sent to the renderer.
struct TransportUriTexts {
    const char* function;
    const char* objectAllocFailed;
    const char* sendFailed;  // takes the stack's status
};

const TransportUriTexts kPlayFileTexts = {
    "DlnaMrcpPlayFile",
    "[MRCP ERR] DLNAPlayFile(), HZebMSCPAllocRequestResources() failed!!",
    "[MRCP ERR] DLNAPlayFile(), ZEBMRCPSetAVTransportURI() failed!!!- %d",
};
const TransportUriTexts kShowFileTexts = {
    "Mrcp_SetAvtransportUrl",
    "[MRCP ERR] HZebMSCPAllocRequestResources Allocation Error!!",
    "[MRCP ERR] ZEBMRCPSetAVTransportURI() failed!!!- %d",
};

// The DIDL-Lite description of the file the stack makes from an object
// request; allocated by the stack, null on failure (logged).
char* describeFile(const TransportUriTexts& t, const stZEBMediaFileInfo& info, const char* uri, bool video) {
    stZEBAppList* object = nullptr;
    if (HZebMSCPAllocRequestResources(&object) != 0 || object == nullptr) {
        MRCP_ERR_AS(t.function, "%s", t.objectAllocFailed);
        return nullptr;
    }
    HZebMSCPRQSetObjectID(object, info.szObjectID);
    HZebMSCPRQSetParentID(object, info.szParentID);
    HZebMSCPRQSetTitle(object, info.szTitle);
    HZebMSCPRQSetDate(object, info.szDate);
    HZebMSCPRQSetObjectType(object, video ? "VIDEO" : "IMAGE");
    MRCP_LOG_AS(t.function, "[MRCP] Mrcp_SetAvtransportUrl(), Resolution : %s", info.szResolution);
    stZEBMSCPResource resource = {};
    resource.pURI = uri;
    resource.pProtocol = "http-get";
    resource.pMimeType = info.szMimeType;
    resource.pDuration = info.szDuration[0] ? info.szDuration : nullptr;
    resource.pSize = info.szSize[0] ? info.szSize : nullptr;
    resource.pResolution = info.szResolution[0] ? info.szResolution : nullptr;
    resource.pAdditionalInfo = "DLNA.ORG_OP=01";
    char* metadata = nullptr;
    ZEB_LIST resources = ZEBListCreate();
    if (resources != nullptr && ZEBListAppend(resources, &resource) == 0 &&
        HZebMSCPRQSetResources(object, resources) == 0 && HZebMSCPRQSetNumOfResources(object, 1) == 0)
        metadata = HZebMSCPRQGetAVTransportURIMetadata(object);
    ZEBListDestroy(resources);
    if (metadata == nullptr) {
        MRCP_ERR_AS(t.function, "[MRCP ERR] pMetadata == NULL!!!");
    } else {
        MRCP_LOG_AS(t.function, "%s", kDashes);
        MRCP_LOG_AS(t.function, "%s", metadata);
        MRCP_LOG_AS(t.function, "%s", kDashes);
    }
    HZebMSCPReleaseRequestResources(object);
    return metadata;
}

// Describes the card file at path and sends SetAVTransportURI with its URL
// to the chosen renderer; the context is the content kind ("image" or
// "video") that the answer hands on to Play. 1 when sent.
int sendTransportUri(const TransportUriTexts& t, const char* path, const char* uri) {
    stZEBMediaFileInfo info;
    if (ZEBUtilParseMediaFile(path, &info) != 0) {
        // Without the database entry there is nothing to describe the file with.
        MRCP_ERR_AS(t.function, "[MRCP ERR] !!!! DLNAPlayFile(), ZEBUtilParseMediaFile() failed !!!! ");
        return 0;
    }
    bool video = strcmp(info.szClass, "3") == 0;
    if (!video && strcmp(info.szClass, "1") != 0) {
        MRCP_ERR_AS(t.function, "[MRCP ERR] DLNAPlayFile(), contentType is invalid!!");
        return 0;
    }
    const char* kind = video ? "video" : "image";
    char* metadata = describeFile(t, info, uri, video);
    if (metadata == nullptr) return 0;

    stZEBAppList* request = nullptr;
    if (HZebMRCPAllocRequestResources(&request) != 0 || request == nullptr) {
        MRCP_ERR_AS(t.function, "[MRCP ERR] DLNAPlayFile(), HZebMRCPAllocRequestResources() failed!!");
        ZEBMemFreeMA(metadata);
        return 0;
    }
    int sent = 0;
    if (HZebMRCPRQSetActionName(request, "SetAVTransportURI") != 0 || HZebMRCPRQSetInstanceID(request, "0") != 0 ||
        HZebMRCPRQSetMatchedURI(request, uri) != 0 || HZebMRCPRQSetMetaData(request, metadata) != 0) {
        MRCP_ERR_AS(t.function, "[MRCP ERR] DLNAPlayFile(), SetActionRequest() failed!!!");
    } else {
        MRCP_LOG_AS(t.function, "[MRCP] Sending Set AV Transport URI action");
        const std::string udn = MrcpChosenUdn();
        ZEB_ERROR_CODE r = ZEBMRCPSetAVTransportURI(gMrcpProfileID.load(), udn.c_str(), request, kind);
        if (r != 0) MRCP_ERR_AS(t.function, t.sendFailed, r);
        else sent = 1;
    }
    HZebMRCPReleaseRequestResources(request);
    ZEBMemFreeMA(metadata);
    return sent;
}

// One playback command of the UI to the chosen renderer, logged under the
// command's name with its own texts (failed takes the stack's status). 1
// when sent.
int sendUiCommand(const char* function, MrcpSender send, const char* action, const char* context,
                  const char* started, const char* failed,
                  const std::function<ZEB_ERROR_CODE(stZEBAppList*)>& fill = nullptr) {
    ZEB_ERROR_CODE r = MrcpSendAction(send, action, context, fill);
    if (r != 0) {
        MRCP_ERR_AS(function, failed, r);
        return 0;
    }
    MRCP_LOG_AS(function, "%s", started);
    return 1;
}

}  // namespace

int Mrcp_SetAvtransportUrl() {
    MRCP_TRACE();
    std::string path;
    {
        std::lock_guard<std::mutex> g(MrcpLock());
        path = gPendingPhotoPath;
    }
    DLNA_LOG_I(DLNA_TAG, "[MRCP] Mrcp_SetAvtransportUrl(), File to play  = %s", path.c_str());
    char* uri = nullptr;
    int r = DlnaGetContentUri(path.c_str(), &uri);
    if (r != 0) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[MRCP ERR] DLNAPlayFile(), ZEBGetContentURI() failed!!![%d]", r);
        return 0;
    }
    // The photo is on its way: no next one until the renderer plays it
    // (EVT_MRCP_SHOW_READY). Cleared before the send, since the answers may
    // come back, up to that SHOW_READY, before the send returns.
    const bool wasReady = gShowReady.exchange(false);
    int sent = sendTransportUri(kShowFileTexts, path.c_str(), uri);
    free(uri);
    if (!sent) gShowReady = wasReady;
    return sent;
}

// ==== Stack callbacks of this part ===============================================

void MrcpExceptionNotification(int /*id*/, stZEBAppList* info) {
    MrcpCallbackScope scope;
    int type = 0;
    const char* value = nullptr;
    HZebMRCPEIGetExceptionType(info, &type);
    HZebMRCPEIGetExceptionValue(info, &value);
    if (info != nullptr) HZebMRCPReleaseInfoResources(info);
}

void MrcpDeviceInfoNotification(int /*id*/, char* type, ZEB_ERROR_CODE /*error*/, stZEBAppList* info) {
    MrcpCallbackScope scope;
    if (type != nullptr && info != nullptr && gMrcpCallbacksOpen) {
        const char* name = nullptr;
        const char* udn = nullptr;
        HZebMRCPRQGetDeviceName(info, &name);
        HZebMRCPRQGetDeviceUDN(info, &udn);
        if (strcmp(type, "DMR_ADDED") == 0) {
            DLNA_LOG_I(DLNA_TAG, "[Adding DMR..] Renederer Name : %s - UDN: %s", orEmpty(name), orEmpty(udn));
            if (udn != nullptr) {
                ZEBMRCPSubscribeDevice(gMrcpProfileID.load(), udn);
                // The answer names the renderer by this context.
                const std::string context = udn;
                MrcpSendAction(ZEBMRCPGetProtocolInfo, "GetProtocolInfo", context.c_str(), nullptr, udn);
            }
            gShowReady = true;
            DLNA_LOG_I(DLNA_TAG, "MrcpSetShowReadyFlag TRUE");
            if (gMrcpCallback.load() != nullptr) {
                DLNA_LOG_I(DLNA_TAG, "Send EVT_MRCP_REFRESH_DMR_LIST Event to UI");
                MrcpSendEventToUI(EVT_MRCP_REFRESH_DMR_LIST, const_cast<char*>(orEmpty(udn)), 0);
            }
        } else if (strcmp(type, "DMR_REMOVED") == 0) {
            DLNA_LOG_I(DLNA_TAG, "[Removing DMR..] Type : %s UDN : %s ", type, orEmpty(udn));
            gShowReady = true;
            // Over the chosen UDN's length: with none chosen every departure matches.
            const std::string chosen = MrcpChosenUdn();
            if (strncasecmp(orEmpty(udn), chosen.c_str(), chosen.size()) == 0) {
                DLNA_LOG_I(DLNA_TAG, "the selected DMR is disappeared in the Network");
                if (gMrcpCallback.load() != nullptr) {
                    DLNA_LOG_I(DLNA_TAG,
                               "[MrcpDeviceInfoNotification]** Send EVT_MRCP_SELECTED_DMR_BYEBYE Event to UI");
                    MrcpSendEventToUI(EVT_MRCP_SELECTED_DMR_BYEBYE, const_cast<char*>(orEmpty(udn)), 0);
                }
            }
        }
    }
    if (info != nullptr) HZebMRCPReleaseInfoResources(info);
}

// ==== Lifecycle ==================================================================

extern "C" {

int DlnaMrcpStart(ZEB_UI_CALLBACK callback) {
    DLNA_LOG_I(DLNA_TAG, "DlnaMrcpStart() ENTER");
    SetAllShareMode(9);
    DlnaSetTransferSize(1);
    SetSelectImagePath(nullptr);
    SetACLMode(0);
    DlnaInstallSignalHandler();
    if (NASLWifi_InitFileList(false) == 0)
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "ERR: [%s] NASLWifi_InitFileList() failed !!! ", __FUNCTION__);
    DlnaMrcpSetCallback(callback);

    if (!gDlnaStackInitialized) {
        std::string configFile = DlnaFixedPath(DLNA_UPNP_CONFIG_FILE);
        ZEB_ERROR_CODE r = ZEBInitializeZEB(configFile.c_str());
        if (r != 0) {
            DLNA_LOG_E_LOGONLY(DLNA_TAG, "[%s]Return_value: %u ZEBInitializeZEB: %s", __FUNCTION__,
                               static_cast<unsigned>(r), configFile.c_str());
            return 0;
        }
        gDlnaStackInitialized = true;
    }
    if (!gDlnaHTTPInitialized) {
        if (ZEBHTTPInitialize() != 0) {
            DLNA_LOG_E_LOGONLY(DLNA_TAG, "[%s]Failed to Initialize HTTP", __FUNCTION__);
            return 0;
        }
        gDlnaHTTPInitialized = true;
    } else {
        DLNA_LOG_I(DLNA_TAG, "HTTP Stream Thread is already initialized");
    }

    gShowReady = true;
    gMrcpStopActionFlag = kMrcpActionIdle;
    gMrcpPlayActionFlag = kMrcpActionIdle;
    gMrcpShowActionFlag = kMrcpActionIdle;
    gMrcpProfileID = kMrcpNoProfile;
    // A new session starts with a renderer that plays nothing.
    MrcpResetPlaybackState();

    std::string configDir = DlnaFixedPath(DLNA_MRCP_CONFIG_DIR);
    if (ZEBCheckFileState(configDir.c_str(), kMrcpConfigFiles, kMrcpConfigFileCount) == 0) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[%s] MRCP Configuration file not present ", __FUNCTION__);
        return 0;
    }
    int profile = kMrcpNoProfile;
    if (ZEBMRCPInitialize(MrcpExceptionNotification, MrcpDeviceInfoNotification, MrcpDeviceStatusNotificationCallback,
                          MrcpCommandResponse, &profile, configDir.c_str()) != 0) {
        gMrcpProfileID = profile;
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[%s]Error In Initalizing MRCP Profile ", __FUNCTION__);
        return 0;
    }
    gMrcpProfileID = profile;
    if (profile == kMrcpNoProfile) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "Error : gMSCPConnectionID=%d", profile);
        return 0;
    }
    // From here the stack may call back at any time: a renderer it finds
    // while it starts (below) must be subscribed to, asked for its protocols
    // and shown to the UI like any later one.
    gMrcpCallbacksOpen = true;
    char* portText = ZEBGetConfigurationMA("HTTPStreamingPort");
    if (portText == nullptr) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[%s]Failed to get HTTPStreamingPort from UpnpConfig ", __FUNCTION__);
        return 0;
    }
    int port = static_cast<int>(strtol(portText, nullptr, 10));
    ZEBMemFreeMA(portText);
    if (HTTPStreamingServerInitialize(profile, port) == 0) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[%s]Failed to Init HTTP Streaming Server ", __FUNCTION__);
        return 0;
    }
    if (ZEBMRCPStart(profile) != 0) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[%s] Failed to Start MRCP ", __FUNCTION__);
        return 0;
    }
    gMrcpStarted = true;
    DLNA_LOG_I(DLNA_TAG, "DlnaMrcpStart() EXIT");
    return 1;
}

int DlnaMrcpTerminate(void) {
    DLNA_LOG_I(DLNA_TAG, "DlnaMrcpTerminate() ENTER");
    // No response, event or timer acts from here on. The chosen renderer, its
    // UDN and the renderer list stay: the next start finds them as they were.
    gMrcpCallbacksOpen = false;
    const bool started = gMrcpStarted.exchange(false);
    MrcpTimerTerminate();
    TransportInfoTimerTerminate();
    DLNAStopThread();
    if (gDlnaHTTPInitialized.exchange(false)) {
        ZEBHTTPTerminate();
        DLNA_LOG_I(DLNA_TAG, "ZEBHTTP Terminated");
    }
    // The stack returns from these once no callback of the profile runs.
    if (started) ZEBMRCPStop(gMrcpProfileID.load());
    if (gMrcpProfileID.load() != kMrcpNoProfile) {
        ZEBMRCPTerminate(gMrcpProfileID.load());
        gMrcpProfileID = kMrcpNoProfile;
    }
    if (gDlnaStackInitialized.exchange(false)) {
        ZEBTerminateZEB();
        DLNA_LOG_I(DLNA_TAG, "ZEBTerminateZEB() completed");
    }
    HTTPStreamingServerTerminate();
    // A timer handler that fired just before its timer was deleted may still
    // be on its way out (it does nothing now): let it leave, for a bounded
    // time. A timer it re-armed meanwhile was deleted already, and one it
    // creates now is deleted again by itself (the callbacks are closed).
    for (int waited = 0; gCallbacksRunning.load() > tCallbackDepth && waited < kCallbackDrainMs; waited += 5)
        SPGenericThread::sleep(5);
    if (NASLWifi_DestroyFileList() == 0)
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "ERR: [%s] NASLWifi_DestroyFileList() failed !!! ", __FUNCTION__);
    DLNA_LOG_I(DLNA_TAG, "DlnaDmsTerminate() EXIT");
    return 1;
}

int DlnaMrcpGetDmrList(int* count, DmrListEntry** list) {
    DLNA_LOG_I(DLNA_TAG, "DlnaMrcpGetDmrList() ENTER");
    // Renderers answer the search within this time.
    SPGenericThread::sleep(static_cast<unsigned int>(gMrcpListWaitMs.load()));
    stZEBAppList* response = nullptr;
    if (ZEBMRCPGetDeviceList(gMrcpProfileID.load(), &response) != 0) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[K700 ERR] DLNAGetDMRList(), ZEBMRCPGetDeviceList() failed!!!");
        if (response != nullptr) HZebMRCPReleaseResponseResources(response);
        return 0;
    }
    if (response == nullptr) {
        DLNA_LOG_I(DLNA_TAG, "[MRCP]**** NO Renderers on the network ****");
        return 1;
    }
    int result = 0;
    const char* action = nullptr;
    int devices = 0;
    if (HZebMRCPCRGetActionName(response, &action) != 0 || action == nullptr) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[MRCP ERR] DLNAGetDMRList(), HZebMRCPCRGetActionName() failed!!!");
    } else if (HZebValidateUIResponse(response, ZEB_MRCP_EVENT_DEVICE_LIST) != 0) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[MRCP ERR] DLNAGetDMRList(), HZebValidateUIResponse() failed!!!");
    } else if (strcmp(action, "GetDeviceList") != 0) {
        result = 1;
    } else if (HZebMRCPCRGetNumberOfDevices(response, &devices) != 0) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[MRCP ERR] DLNAGetDMRList(), HZebMRCPCRGetNumberOfDevices() failed!!!");
    } else {
        // The list has room for DLNA_MRCP_MAX_DMR rows; renderers beyond are
        // not listed.
        int rows = devices < 0 ? 0 : (devices > DLNA_MRCP_MAX_DMR ? DLNA_MRCP_MAX_DMR : devices);
        // Read from the stack into rows of our own, then published at once:
        // a failed read leaves the list as it was.
        DmrListEntry read[DLNA_MRCP_MAX_DMR];
        memset(read, 0, sizeof read);
        result = 1;
        for (int i = 1; i <= rows; ++i) {
            const char* name = nullptr;
            const char* udn = nullptr;
            HZebMRCPCRGetNameFromDeviceInfo(response, i, &name);
            if (HZebMRCPCRGetUDNFromDeviceInfo(response, i, &udn) != 0 || udn == nullptr) {
                DLNA_LOG_E_LOGONLY(DLNA_TAG, "[MRCP ERR] DLNAGetDMRList(), GetDevcieInfo() failed!!!");
                result = 0;
                break;
            }
            DmrListEntry& row = read[i - 1];
            row.index = i - 1;
            copyText(row.name, sizeof row.name, name);
            copyText(row.udn, sizeof row.udn, udn);
            DLNA_LOG_I(DLNA_TAG, "%s", kDashes);
            DLNA_LOG_I(DLNA_TAG, "[MRCP] DMR-%02d : [%s]  [%s] ", row.index, row.name, row.udn);
            DLNA_LOG_I(DLNA_TAG, "%s", kDashes);
        }
        if (result) {
            {
                std::lock_guard<std::mutex> g(MrcpLock());
                memcpy(gDmrList, read, sizeof(DmrListEntry) * static_cast<size_t>(rows));
                gDmrListCount = rows;
            }
            if (count != nullptr) *count = rows;
            if (list != nullptr) *list = gDmrList;
        }
    }
    HZebMRCPReleaseResponseResources(response);
    if (result) DLNA_LOG_I(DLNA_TAG, "DlnaMrcpGetDmrList() EXIT");
    return result;
}

int DlnaMrcpSetDmr(int index, const char* udn) {
    DLNA_LOG_I(DLNA_TAG, "deviceID =%d, pDeviceUDN = %s", index, orEmpty(udn));
    // The list has DLNA_MRCP_MAX_DMR rows; another index names none.
    if (index < 0 || index >= DLNA_MRCP_MAX_DMR) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[MRCP ERR] DLNASetDMR(), no renderer at row %d", index);
        return 1;
    }
    char chosen[sizeof gSelectedDmrUDN];
    {
        std::lock_guard<std::mutex> g(MrcpLock());
        gSelectedDmrIndex = index;
        // The row's UDN, not the argument: the row is what the UI was shown.
        memcpy(gSelectedDmrUDN, gDmrList[index].udn, sizeof gSelectedDmrUDN);
        gSelectedDmrUDN[sizeof gSelectedDmrUDN - 1] = '\0';
        memcpy(chosen, gSelectedDmrUDN, sizeof chosen);
        gDmrSelected = true;
    }
    ZEBMRCPSubscribeDevice(gMrcpProfileID.load(), chosen);
    gShowReady = true;
    gMrcpStopActionFlag = kMrcpActionIdle;
    gMrcpPlayActionFlag = kMrcpActionIdle;
    gMrcpShowActionFlag = kMrcpActionIdle;
    DLNA_LOG_I(DLNA_TAG, "[MRCP] DLNASetDMR(), gnSelectedDmrUDN=%s", chosen);
    return 1;
}

int DlnaGetDmrStatus(void) {
    ZEB_ERROR_CODE r = MrcpSendAction(ZEBMRCPGetPlayState, "GetTransportInfo", "GetPlayStateAction");
    if (r != 0) DLNA_LOG_E_LOGONLY(DLNA_TAG, "[MRCP ERR] GetTransportInfo failed!!!- %d", r);
    return 1;
}

int DlnaMrcpGetDeviceInformation(DeviceInfo* info, int index) {
    if (info == nullptr) return 0;
    std::string udn;
    {
        std::lock_guard<std::mutex> g(MrcpLock());
        if (index >= 0 && index < gDmrListCount) udn = gDmrList[index].udn;
    }
    if (udn.empty()) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[DMCUI] no renderer at row %d", index);
        return 0;
    }
    stZEBMRCPDeviceDetails details;
    memset(&details, 0, sizeof details);
    if (ZEBMRCPGetDeviceDetails(gMrcpProfileID.load(), udn.c_str(), &details) != 0) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[DMCUI] ZEBMRCPGetDeviceDetails() failed for %s", udn.c_str());
        return 0;
    }
    memset(info, 0, sizeof *info);
    copyText(info->ip, sizeof info->ip, details.szIPAddress);
    copyText(info->name, sizeof info->name, details.szFriendlyName);
    copyText(info->udn, sizeof info->udn, details.szUDN);
    copyText(info->manufacturer, sizeof info->manufacturer, details.szManufacturer);
    copyText(info->modelName, sizeof info->modelName, details.szModelName);
    copyText(info->modelNumber, sizeof info->modelNumber, details.szModelNumber);
    DLNA_LOG_I(DLNA_TAG, "[DMCUI] DMR IP : %s", info->ip);
    DLNA_LOG_I(DLNA_TAG, "[DMCUI] DMR Name : %s", info->name);
    DLNA_LOG_I(DLNA_TAG, "[DMCUI] DMR UDN : %s", info->udn);
    DLNA_LOG_I(DLNA_TAG, "[DMCUI] DMR Manufacturer : %s", info->manufacturer);
    DLNA_LOG_I(DLNA_TAG, "[DMCUI] DMR ModelName : %s", info->modelName);
    DLNA_LOG_I(DLNA_TAG, "[DMCUI] DMR ModelNumber : %s", info->modelNumber);
    return 1;
}

// ==== Playback commands ===========================================================

int DlnaMrcpPlayFile(const char* path) {
    MRCP_TRACE();
    if (!gDmrSelected) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[MRCP ERR] DLNAPlayFile(), DMR is not selected!!");
        return 0;
    }
    char* uri = nullptr;
    int r = DlnaGetContentUri(path, &uri);
    if (r != 0) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[MRCP ERR] DLNAPlayFile(), ZEBGetContentURI() failed!!![%d]", r);
        return 0;
    }
    DLNA_LOG_I(DLNA_TAG, "[MRCP] DLNAPlayFile(), pContentURI : %s", uri);
    int sent = sendTransportUri(kPlayFileTexts, path, uri);
    free(uri);
    if (sent) DLNA_LOG_I(DLNA_TAG, "[MRCP] DLNAPlayFile(), ZEBMRCPSetAVTransportURI() has started!!");
    return sent;
}

int DlnaMrcpShowFile(const char* path) {
    MRCP_TRACE();
    if (!gDmrSelected) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[MRCP ERR] DLNAMrcpShowFile(), DMR is not selected!!");
        return 0;
    }
    int stopBefore = kMrcpActionIdle;
    int showBefore = kMrcpActionIdle;
    {
        // The busy rules and the marking are one step: of two calls at once
        // only one sends its Stop.
        std::lock_guard<std::mutex> g(MrcpLock());
        if (!gShowReady) {
            DLNA_LOG_E_LOGONLY(DLNA_TAG,
                               "[MRCP ERR] DLNAMrcpShowFile(), Last ShowFile is ongoing.. Wait for SHOWREADY Event ");
            return 0;
        }
        // These two refuse and still clear show-ready: the UI then waits for the
        // SHOWREADY that ends the pending action.
        if (gMrcpStopActionFlag == kMrcpActionSent) {
            gShowReady = false;
            DLNA_LOG_E_LOGONLY(DLNA_TAG,
                               "[MRCP ERR] DLNAMrcpShowFile(), Last STOP is not over yet. Wait until it is over");
            return 0;
        }
        if (gMrcpPlayActionFlag == kMrcpActionSent) {
            gShowReady = false;
            DLNA_LOG_E_LOGONLY(DLNA_TAG,
                               "[MRCP ERR] Mrcp_SetAvtransportUrl(), Last PLAY is not over yet. Wait until it is over");
            return 0;
        }
        if (path == nullptr || *path == '\0') {
            DLNA_LOG_E_LOGONLY(DLNA_TAG, "[MRCP ERR] DLNAMrcpShowFile(), no file given");
            return 0;
        }
        gPendingPhotoPath = path;
        // Marked before the Stop goes out: its answer may arrive before the
        // send returns, and it must find this Stop to be the photo's.
        stopBefore = gMrcpStopActionFlag.exchange(kMrcpActionSent);
        showBefore = gMrcpShowActionFlag.exchange(kMrcpActionSent);
    }
    ZEB_ERROR_CODE r = MrcpSendAction(ZEBMRCPAVStop, "Stop", "StopAction");
    if (r != 0) {
        // Nothing went out: the flags are as they were.
        int sent = kMrcpActionSent;
        gMrcpStopActionFlag.compare_exchange_strong(sent, stopBefore);
        sent = kMrcpActionSent;
        gMrcpShowActionFlag.compare_exchange_strong(sent, showBefore);
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[MRCP ERR] DlnaMrcpShowFile(), ZEBMRCPAVStop() failed!!!- %d", r);
        return 0;
    }
    DLNA_LOG_I(DLNA_TAG, "[MRCP] DlnaMrcpShowFile(), ZEBMRCPAVStop() has started!!");
    return 1;
}

int DlnaMrcpPauseFile(void) {
    MRCP_TRACE();
    return sendUiCommand(__FUNCTION__, ZEBMRCPAVPause, "Pause", "PauseAction",
                         "[MRCP] DLNAPlayFile(), ZEBMRCPAVPause() has started!!",
                         "[MRCP ERR] DLNAPlayFile(), ZEBMRCPAVPause() failed!!!- %d");
}

int DlnaMrcpResumeFile(void) {
    MRCP_TRACE();
    return sendUiCommand(__FUNCTION__, ZEBMRCPAVResume, "Resume", "ResumeAction",
                         "[MRCP] DLNAPlayFile(), ZEBMRCPAVResume() has started!!",
                         "[MRCP ERR] DLNAPlayFile(), ZEBMRCPAVResume() failed!!!- %d",
                         [](stZEBAppList* rq) { return HZebMRCPRQSetPlaySpeed(rq, 1); });
}

int DlnaMrcpStopFile(void) {
    MRCP_TRACE();
    return sendUiCommand(__FUNCTION__, ZEBMRCPAVStop, "Stop", "StopAction",
                         "[MRCP] DLNAPlayFile(), ZEBMRCPAVStop() has started!!",
                         "[MRCP ERR] DLNAPlayFile(), ZEBMRCPAVStop() failed!!!- %d");
}

int DlnaMrcpSeekFile(const char* target) {
    MRCP_TRACE();
    // The seek reports itself with the pause texts.
    return sendUiCommand(__FUNCTION__, ZEBMRCPAVSeek, "Seek", "SeekAction",
                         "[MRCP] DLNAPlayFile(), ZEBMRCPAVPause() has started!!",
                         "[MRCP ERR] DLNAPlayFile(), ZEBMRCPAVPause() failed!!!- %d", [&target](stZEBAppList* rq) {
                             if (target == nullptr) return -1;
                             ZEB_ERROR_CODE e = HZebMRCPRQSetSeekUnit(rq, "REL_TIME");
                             return e != 0 ? e : HZebMRCPRQSetCurrPos(rq, &target);
                         });
}

int DlnaMrcpGetPositionInfo(void) {
    MRCP_TRACE();
    return sendUiCommand(__FUNCTION__, ZEBMRCPGetPlayPositionInfo, "GetPositionInfo", "GetPositionInfoAction",
                         "ZEBMRCPGetPlayPositioninfo has started!!", "ZEBMRCPGetPlayPositioninfo failed!!!- %d");
}

// The volume goes to the chosen renderer, as every other request does; the
// udn argument names nothing.
int DlnaMrcpSetVolume(const char* /*udn*/, int volume) {
    MRCP_TRACE();
    // RenderingControl's Volume runs from 0 to 100.
    if (volume < 0 || volume > 100) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[MRCP ERR] DlnaMrcpSetVolume(), volume %d out of 0..100", volume);
        return 0;
    }
    ZEB_ERROR_CODE r = MrcpSendAction(ZEBMRCPSetVolume, "SetVolume", "VolumeAction", [volume](stZEBAppList* rq) {
        ZEB_ERROR_CODE e = HZebMRCPRQSetChannel(rq, "Master");
        return e != 0 ? e : HZebMRCPRQSetVolume(rq, volume);
    });
    if (r != 0) DLNA_LOG_E_LOGONLY(DLNA_TAG, "[MRCP ERR] DlnaMrcpSetVolume(), ZEBMRCPSetVolume() failed!!!- %d", r);
    return r == 0 ? 1 : 0;
}

int DlnaMrcpGetVolume(const char* /*udn*/) {
    MRCP_TRACE();
    ZEB_ERROR_CODE r = MrcpSendAction(ZEBMRCPGetVolume, "GetVolume", "VolumeAction",
                                      [](stZEBAppList* rq) { return HZebMRCPRQSetChannel(rq, "Master"); });
    if (r != 0) DLNA_LOG_E_LOGONLY(DLNA_TAG, "[MRCP ERR] DlnaMrcpGetVolume(), ZEBMRCPGetVolume() failed!!!- %d", r);
    return r == 0 ? 1 : 0;
}

int DlnaMrcpGetRendererState(const char* udn) {
    DLNA_LOG_I(DLNA_TAG, "DlnaMrcpGetRendererState() ENTER , UDN = %s ", orEmpty(udn));
    const std::string chosen = MrcpChosenUdn();
    if (udn == nullptr || chosen.empty() || strcasecmp(udn, chosen.c_str()) != 0) return -1;
    MediaRendererState state;
    GetPlayerState(state);
    return state;
}

int MrcpSetShowReadyFlag(bool ready) {
    gShowReady = ready;
    return 1;
}

bool MrcpGetShowReadyFlag(void) { return gShowReady.load(); }

}  // extern "C"

bool MrcpExchangeShowReadyFlag(bool ready) { return gShowReady.exchange(ready); }
