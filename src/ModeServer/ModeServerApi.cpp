#include "ModeServer/ModeServerApi.h"

#include <semaphore.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include "Dlna/DlnaFrame.h"
#include "Dlna/DlnaLog.h"
#include "Dlna/DlnaRvfMl.h"
#include "ModeServer/ModeServer.h"
#include "SP/SPInterface.h"
#include "SP/osal/SPGenericThread.h"
#include "nasl_wifi.h"
#include "zeb_stack.h"

static_assert(std::atomic<ZEB_MODE_CALLBACK>::is_always_lock_free,
              "the mode server's callback slot must be a lock-free atomic word");
static_assert(sizeof(intptr_t) == sizeof(void*), "the mode callback's third slot holds a pointer");

std::atomic<ModeServer*> ptheModeServer{nullptr};
std::atomic<int> gModeServerConfirmFlag{0};

namespace {

// Sizes of the texts handed to the UI with event 1.
const size_t kMacTextSize = 32;
const size_t kUserAgentTextSize = 64;
// Size of the description URL buffer handed to the UI.
const size_t kDescUrlSize = 64;
// The camera's own address as access point, used when no interface has one.
const char kDefaultDescHost[] = "http://192.168.107.1:";

// Owner of the running server. A mode change in progress on one UI thread
// keeps its own reference, so a terminate on another thread never frees the
// server under it.
std::mutex gServerLock;
std::shared_ptr<ModeServer> gServer;
// Start and terminate one at a time.
std::mutex gLifecycleLock;

// The confirmation semaphore, from the stack's allocator. Created, posted and
// destroyed under gSemLock; waited on by the server thread without it
// (terminate destroys it only after that thread has ended).
std::mutex gSemLock;
std::atomic<sem_t*> gModeServerConfirmSem{nullptr};

std::shared_ptr<ModeServer> runningServer() {
    std::lock_guard<std::mutex> g(gServerLock);
    return gServer;
}

void copyBounded(char* out, size_t size, const char* text) {
    if (text == nullptr) return;
    const size_t n = strnlen(text, size - 1);
    memcpy(out, text, n);
    out[n] = '\0';
}

bool createConfirmSem() {
    std::lock_guard<std::mutex> g(gSemLock);
    if (gModeServerConfirmSem.load() != nullptr) return true;
    auto* sem = static_cast<sem_t*>(ZEBMemAllocMA(sizeof(sem_t)));
    if (sem == nullptr) return false;
    if (sem_init(sem, 0, 0) != 0) {
        ZEBMemFreeMA(sem);
        return false;
    }
    gModeServerConfirmSem.store(sem);
    return true;
}

void destroyConfirmSem() {
    std::lock_guard<std::mutex> g(gSemLock);
    sem_t* sem = gModeServerConfirmSem.exchange(nullptr);
    if (sem == nullptr) return;
    sem_destroy(sem);
    ZEBMemFreeMA(sem);
}

// Waits without a time limit until the UI answers or the server is
// terminated (both post the semaphore).
void waitForConfirmation() {
    sem_t* sem = gModeServerConfirmSem.load();
    if (sem == nullptr) return;  // the API was never started: nobody would post
    while (sem_wait(sem) != 0 && errno == EINTR) {
    }
}

// The server whose thread is calling: the one the answer belongs to.
ModeServer* callingServer() {
    if (auto* s = dynamic_cast<ModeServer*>(SPGenericThread::current_thread())) return s;
    return ptheModeServer.load();
}

}  // namespace

bool ModeServerConfirmSemExists() { return gModeServerConfirmSem.load() != nullptr; }

int ModeServerConfirmSemValue() {
    std::lock_guard<std::mutex> g(gSemLock);
    sem_t* sem = gModeServerConfirmSem.load();
    int value = -1;
    if (sem != nullptr) sem_getvalue(sem, &value);
    return value;
}

void ModeServerNotificationCallback(int socketFd, eModeServerInternalEvent event, intptr_t mac, intptr_t userAgent) {
    char macText[kMacTextSize];
    char userAgentText[kUserAgentTextSize];
    memset(macText, 0, sizeof macText);
    memset(userAgentText, 0, sizeof userAgentText);
    ZEB_CALLBACK_EVENT uiEvent = 0;
    void* value = nullptr;
    intptr_t length = 0;
    switch (event) {
        case eEVENT_NEW_DEVICE:
            DLNA_LOG_I(DLNA_MS_TAG, "Event : New Device!!");
            printf(">> Event : New Device!!\n");
            copyBounded(macText, sizeof macText, reinterpret_cast<const char*>(mac));
            copyBounded(userAgentText, sizeof userAgentText, reinterpret_cast<const char*>(userAgent));
            DLNA_LOG_I(DLNA_MS_TAG, "ClientMacAddress = %s, ClientUserAgent = %s", macText, userAgentText);
            uiEvent = 1;
            value = macText;
            length = reinterpret_cast<intptr_t>(userAgentText);
            break;
        case eEVENT_REMOVED_DEVICE:
            DLNA_LOG_I(DLNA_MS_TAG, ">> Event : eEVENT_REMOVED_DEVICE!!");
            uiEvent = 2;
            break;
        case eINTERNAL_EVENT_FAIL:
            DLNA_LOG_I(DLNA_MS_TAG, ">> Event : eINTERNAL_EVENT_FAIL!!");
            uiEvent = 3;
            break;
        default:
            break;
    }
    ZEB_MODE_CALLBACK callback = gModeServerCallback.load();
    if (callback == nullptr) {
        DLNA_LOG_E(DLNA_MS_TAG, "ERROR : gDMSCallback is NULL");
        return;
    }
    callback(uiEvent, value, length);
    if (event != eEVENT_NEW_DEVICE) return;

    DLNA_LOG_I(DLNA_MS_TAG, "wait for confirm!");
    waitForConfirmation();
    const int flag = gModeServerConfirmFlag.load();
    ModeServer* server = callingServer();
    if (flag & FLG_MS_CONFIRM_YES) {
        DLNA_LOG_I(DLNA_MS_TAG, "received FLG_MS_CONFIRM_YES");
        gModeServerConfirmFlag.store(0);
        if (server) server->setConfirmResult(socketFd, true);
    } else if (flag & FLG_MS_CONFIRM_NO) {
        DLNA_LOG_I(DLNA_MS_TAG, "received FLG_MS_CONFIRM_NO");
        gModeServerConfirmFlag.store(0);
        if (server) server->setConfirmResult(socketFd, false);
    } else {
        // Woken by terminate: the phone keeps the default answer (200) but is
        // not registered.
        DLNA_LOG_I(DLNA_MS_TAG, "Not supported Event!");
    }
}

int AT_HttpSeverStart_wrapper() {
    DLNA_LOG_I(DLNA_MS_TAG, "ENTER");
    const int rc = AT_HttpSeverStart();
    DLNA_LOG_I(DLNA_MS_TAG, "EXIT");
    return rc;
}

int AT_HttpServerTerminate_wrapper() {
    DLNA_LOG_I(DLNA_MS_TAG, "ENTER");
    const int rc = AT_HttpServerTerminate();
    DLNA_LOG_I(DLNA_MS_TAG, "EXIT");
    return rc;
}

extern "C" {

int ModeServerStart(ZEB_MODE_CALLBACK callback, int mode) {
    DLNA_LOG_I(DLNA_MS_TAG, "ModeServerStart() Start: %d", mode);
    printf("ModeServerStart() Start: %d\n", mode);
    std::lock_guard<std::mutex> lifecycle(gLifecycleLock);
    if (runningServer()) {
        DLNA_LOG_E(DLNA_MS_TAG, "ModeServerStart() : already started");
        return 0;
    }
    gModeServerCallback.store(callback);
    if (!createConfirmSem()) {
        DLNA_LOG_E(DLNA_MS_TAG, "ModeServerStart() : can't create the confirm semaphore");
        return 0;
    }
    auto server = std::make_shared<ModeServer>(static_cast<eNETWORK_SERVER_MODE>(mode));
    server->setCallback(ModeServerNotificationCallback);
    {
        std::lock_guard<std::mutex> g(gServerLock);
        gServer = server;
    }
    ptheModeServer.store(server.get());
    server->start();
    return 1;
}

void ModeServerTerminate(void) {
    printf("ModeServerTerminate() Enter\n");
    std::shared_ptr<ModeServer> server = runningServer();
    if (server && SPGenericThread::current_thread() == server.get()) {
        // From inside the callback the server would have to wait for itself.
        DLNA_LOG_E(DLNA_MS_TAG, "ModeServerTerminate() : called on the server's own thread, ignored");
        return;
    }
    server.reset();
    std::lock_guard<std::mutex> lifecycle(gLifecycleLock);
    {
        std::lock_guard<std::mutex> g(gServerLock);
        server = std::move(gServer);
    }
    // Wake a thread waiting for the user first, then stop the server.
    {
        std::lock_guard<std::mutex> g(gSemLock);
        if (sem_t* sem = gModeServerConfirmSem.load()) {
            sem_post(sem);
            DLNA_LOG_I(DLNA_MS_TAG, "ModeServerTerminate() : sem_post");
        }
    }
    if (server) {
        server->stop();
        // The thread woken above may have gone on to the next phone and begun
        // to wait again before it saw the stop; that wait would hold the join
        // below for ever. One more post ends it (once stopped, the server asks
        // the UI about no further phone). The semaphore is destroyed below, so
        // the extra count is never seen.
        {
            std::lock_guard<std::mutex> g(gSemLock);
            if (sem_t* sem = gModeServerConfirmSem.load()) sem_post(sem);
        }
        server->join();
        ptheModeServer.store(nullptr);
        server.reset();  // deleted here unless a mode change still holds it
    }
    gModeServerCallback.store(nullptr);
    destroyConfirmSem();
    // The answer flag is left as it is: an answer given now still decides the
    // next phone.
}

int ModeServerSendEventToModule(int kind, int value, const char* text) {
    DLNA_LOG_I(DLNA_MS_TAG, "[ModeServerSendEventToModule][%d:%d:%s]", kind, value, text ? text : "NULL");
    printf("[ModeServerSendEventToModule][%d:%d:%s]\n", kind, value, text ? text : "NULL");
    if (kind == MS_EVENT_KIND_CONFIRM) {
        {
            std::lock_guard<std::mutex> g(gSemLock);
            // The answer is kept even when nobody waits: it decides the next
            // phone whose wait ends without an answer of its own.
            gModeServerConfirmFlag.store(value != 0 ? FLG_MS_CONFIRM_YES : FLG_MS_CONFIRM_NO);
            if (sem_t* sem = gModeServerConfirmSem.load()) {
                sem_post(sem);
            } else {
                // Never started, or terminated: there is no semaphore to post.
                DLNA_LOG_E(DLNA_MS_TAG, "ModeServerSendEventToModule() : mode server not started");
            }
        }
        DLNA_LOG_I(DLNA_MS_TAG, "sleep for 10msec");
        SPGenericThread::sleep(10);
        return 1;
    }
    if (kind != MS_EVENT_KIND_MODE_CHANGE) return 1;

    std::shared_ptr<ModeServer> server = runningServer();
    if (!server) return 1;
    if (value == MS_MODE_PHONE_PULL || value == MS_MODE_RVF) {
        if (char* url = DlnaGetDeviceDescURL()) {
            server->setDesciptionUrl(url);
            free(url);
        }
    } else if (value == MS_MODE_SELECTIVE_PUSH) {
        server->setSPServerPort(static_cast<unsigned short>(SPGetServerPort()));
    }
    return server->sendNotifyMessage(static_cast<eNETWORK_SERVER_MODE>(value)) ? 1 : 0;
}

char* DlnaGetDeviceDescURL(void) {
    char* buffer = static_cast<char*>(calloc(kDescUrlSize, 1));
    if (buffer == nullptr) return nullptr;

    std::string url;
    DMSCDSList nics;
    if (ZEBGetNicList(&nics) == 0) {
        for (unsigned int i = 0; i < nics.GetNumberOfItems() && url.empty(); ++i) {
            const auto* pUINetInfo = static_cast<const ZEB_UI_NET_INFO*>(nics.GetItemAt(i));
            if (pUINetInfo == nullptr || pUINetInfo->pIPAddress == nullptr || pUINetInfo->pIPAddress[0] == '\0')
                continue;
            DLNA_LOG_I(DLNA_MS_TAG, "pUINetInfo->pIPAddress = %s", pUINetInfo->pIPAddress);
            DLNA_LOG_I(DLNA_MS_TAG, "pUINetInfo->pFriendlyName = %s",
                       pUINetInfo->pFriendlyName ? pUINetInfo->pFriendlyName : "(null)");
            url = std::string("http://") + pUINetInfo->pIPAddress + ":";
        }
    }
    nics.RemoveAllListItem([](void* item) {
        auto* info = static_cast<ZEB_UI_NET_INFO*>(item);
        ZEBMemFreeMA(info->pIPAddress);
        ZEBMemFreeMA(info->pFriendlyName);
        ZEBMemFreeMA(info);
    });
    if (url.empty()) url = kDefaultDescHost;

    if (char* port = ZEBGetConfigurationMA("HTTPTCPServerPort")) {
        url += port;
        ZEBMemFreeMA(port);
    } else {
        DLNA_LOG_E(DLNA_MS_TAG, "can't get desc port()");
    }
    char path[kDescUrlSize];
    memset(path, 0, sizeof path);
    DlnaRvfMlGetDeviceDescUrl(path, sizeof path);
    path[sizeof path - 1] = '\0';
    url += path;

    if (url.size() >= kDescUrlSize)
        DLNA_LOG_E(DLNA_MS_TAG, "url longer than %d characters is cut", static_cast<int>(kDescUrlSize - 1));
    copyBounded(buffer, kDescUrlSize, url.c_str());
    DLNA_LOG_I(DLNA_MS_TAG, "url = %s", buffer);
    return buffer;
}

int ATServerStart(void) {
    DLNA_LOG_I(DLNA_MS_TAG, "ATServerStart() ENTER ");
    AT_HttpSeverStart_wrapper();
    DLNA_LOG_I(DLNA_MS_TAG, "ATServerStart() EXIT ");
    return 0;
}

int ATServerTerminate(void) {
    DLNA_LOG_I(DLNA_MS_TAG, "ATServerTerminate() ENTER ");
    AT_HttpServerTerminate_wrapper();
    DLNA_LOG_I(DLNA_MS_TAG, "ATServerTerminate() EXIT ");
    return 0;
}

}  // extern "C"
