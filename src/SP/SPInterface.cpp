#include "SP/SPInterface.h"

#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

#include "Dlna/DlnaFrame.h"
#include "Dlna/DlnaHandshake.h"
#include "Dlna/DlnaLog.h"
#include "SP/SPDeviceName.h"
#include "SP/client/SPClientManager.h"
#include "SP/server/SPServer.h"

std::atomic<SPServer*> ptheSpServer{nullptr};

namespace {

// Port of a phone's data server when the server knows none.
const int kDefaultDataServerPort = 18100;

// Shared by both variants; only one of them runs at a time.
std::atomic<int> gImageTransferSize{0};    // handed to the client manager at start; 1 resizes JPEGs
std::atomic<bool> gTransferIdle{true};     // no file sent since the last stop of the feature
std::atomic<int> gSNPushState{0};          // last SNPushChangeState value
// Parameters of the new-phone and removed-phone UI events: written on the
// server thread just before the event, read by the UI during the call.
char mMacAddressParam[32];
char mUserAgentParam[32];
// The phone named by the latest new-phone event (61/62): the one the UI asks
// the user about, so the one its answer is for. It is not always the
// confirmed phone (the data server): the UI may answer while the server is
// still busy with the announcement (even from inside the callback), before
// the phone is confirmed; and once a confirmed phone has left, the next one
// is admitted without taking its place. Until a phone announces itself the
// answer goes to the confirmed phone.
std::mutex gPendingLock;
std::string gPendingMac;

void setPendingMac(const char* mac) {
    std::lock_guard<std::mutex> g(gPendingLock);
    gPendingMac = mac ? mac : "";
}

std::string pendingMac() {
    std::lock_guard<std::mutex> g(gPendingLock);
    return gPendingMac;
}

DlnaHandshake& multiPushHandshake() {
    static DlnaHandshake* h = new DlnaHandshake(kSPNoUserStart);
    return *h;
}

void logNotStarted() { DLNA_LOG_E(DLNA_SP_TAG, "[SP] Server is either already terminated or not Started yet "); }

void* number(intptr_t n) { return reinterpret_cast<void*>(n); }

intptr_t text(const char* t) { return reinterpret_cast<intptr_t>(t); }

void copyParam(char* out, const char* in) {
    memset(out, 0, 32);
    if (in) snprintf(out, 32, "%s", in);
}

// Starts a push server with the given event callback; it becomes
// ptheSpServer before its thread can report anything.
SPServer* startServer(SPControlCallback callback) {
    auto* server = new SPServer;
    server->setCallback(callback);
    ptheSpServer.store(server);
    server->start();
    return server;
}

void stopServer() {
    SPServer* server = ptheSpServer.load();
    if (server == nullptr) return;
    server->stopAndJoin();
    ptheSpServer.store(nullptr);
    delete server;
}

void setUpClientManager(SPClntNotificationCallbackFn callback) {
    SPClientManager* manager = SPClientManager::getInstance();
    manager->setImageTransferSize(gImageTransferSize.load());
    manager->setCallback(callback);
}

}  // namespace

DlnaHandshake& SPUserStartHandshake() {
    static DlnaHandshake* h = new DlnaHandshake(kSPNoUserStart);
    return *h;
}

// ---- single phone -----------------------------------------------------------

extern "C" int SPStart(const char* deviceName) {
    DLNA_LOG_I(DLNA_SP_TAG, "[SPStart] Entry ");
    if (ptheSpServer.load() != nullptr) {
        // A second start would lose the running server and its phone.
        DLNA_LOG_E(DLNA_SP_TAG, "[SPStart] the push server is already running");
        return 0;
    }
    if (deviceName != nullptr) {
        memset(gDeviceName, 0, sizeof gDeviceName);
        strncpy(gDeviceName, deviceName, sizeof gDeviceName - 1);
    }
    SPServer* server = startServer(SPControlNotificationCallback);
    server->waitSemaphore(20);
    setUpClientManager(SPClntNotificationCallback);
    return 1;
}

extern "C" int SPTerminate(void) {
    DLNA_LOG_I(DLNA_SP_TAG, "Enter ");
    gTransferIdle.store(true);
    if (SPServer* server = ptheSpServer.load()) {
        char mac[32] = {};
        char ip[32] = {};
        int port = 0;
        server->getDataServerInfo(mac);
        server->getDataServerInfo(ip, &port);
        if (port == 0) port = kDefaultDataServerPort;
        SPClientManager* manager = SPClientManager::getInstance();
        manager->stopFileTransfer(mac);
        if (server->isClientConfirmed() && ip[0] != '\0') manager->sendTurnDownRequest(ip, port);
        SPClientManager::destroyInstance();
        stopServer();
    }
    setPendingMac(nullptr);
    DLNA_LOG_I(DLNA_SP_TAG, "Exit ");
    return 1;
}

extern "C" int SPTransferFile(const char* path) {
    SPServer* server = ptheSpServer.load();
    if (server == nullptr) {
        logNotStarted();
        return 0;
    }
    char ip[32] = {};
    char mac[32] = {};
    int port = 0;
    if (!server->getDataServerInfo(ip, &port) || !server->getDataServerInfo(mac)) return 0;
    // No phone accepted yet: there is no data server to send to.
    if (path == nullptr || ip[0] == '\0' || mac[0] == '\0') return 0;
    DLNA_LOG_I(DLNA_SP_TAG, "Entry -> strIP = %s, port = %d ,Mac = %s ", ip, port, mac);
    SPClientManager::getInstance()->createFileTransfer(path, ip, mac, port);
    gTransferIdle.store(false);
    return 1;
}

extern "C" int SPStopFile(void) {
    DLNA_LOG_I(DLNA_SP_TAG, " Entry ");
    if (gTransferIdle.load()) {
        DLNA_LOG_I(DLNA_SP_TAG, "SPStopFile() was already called... return !!!");
        return 0;
    }
    SPServer* server = ptheSpServer.load();
    if (server == nullptr) {
        logNotStarted();
        return 0;
    }
    char mac[32] = {};
    server->getDataServerInfo(mac);
    SPClientManager::getInstance()->stopFileTransfer(mac);
    return 1;
}

extern "C" int SPDisconnectClient(void) {
    DLNA_LOG_I(DLNA_SP_TAG, "Entry ");
    SPServer* server = ptheSpServer.load();
    if (server == nullptr) {
        logNotStarted();
        return 0;
    }
    char mac[32] = {};
    if (!server->getDataServerInfo(mac)) return 0;
    return server->removeClientfromPermittedList(mac);
}

extern "C" void SPSendUserStartEvent(int answer) {
    DLNA_LOG_I(DLNA_SP_TAG, "Entry ");
    SPServer* server = ptheSpServer.load();
    if (server == nullptr) {
        logNotStarted();
        return;
    }
    char mac[32] = {};
    const std::string pending = pendingMac();
    if (!pending.empty())
        snprintf(mac, sizeof mac, "%s", pending.c_str());
    else
        server->getDataServerInfo(mac);
    server->sendClientStartNotice(mac, answer != 0);
    // A refused phone is no longer served, so the server takes new phones
    // again (it stopped taking them when this one announced itself). Nothing
    // else would reopen it: a refused phone was never accepted, so no
    // bye-bye of it reaches the UI, and one refusal would lock every other
    // phone out until the push is restarted.
    if (answer == 0) server->setAllowNewConnection(true);
}

extern "C" void SPSetImageTransferSize(int mode) {
    gImageTransferSize.store(mode);
    if (mode != 0)
        DLNA_LOG_I(DLNA_SP_TAG, "Set to RESIZE MODE ");
    else
        DLNA_LOG_I(DLNA_SP_TAG, "Set to DEFAULT MODE file transfer ");
}

extern "C" int SPGetServerPort(void) {
    SPServer* server = ptheSpServer.load();
    if (server == nullptr) {
        logNotStarted();
        return 0;
    }
    return server->getServerPort();
}

void SPClntNotificationCallback(eSPNotifyClntEvent event, stSPClntInfo* info) {
    switch (event) {
        case EVENT_CLIENT_TRANSFER_START:
            DLNA_LOG_I(DLNA_SP_TAG, "Event : EVENT_CLIENT_TRANSFER_START!!");
            SelectivePushSendEventToUI(65, number(1), 0);
            break;
        case EVENT_CLIENT_TRANSFER_PROGRESS:
            if (info != nullptr) SelectivePushSendEventToUI(65, number(info->value), 0);
            break;
        case EVENT_CLIENT_TRANSFER_COMPLETE:
            DLNA_LOG_I(DLNA_SP_TAG, "Event : EVENT_CLIENT_TRANSFER_COMPLETE!!");
            SelectivePushSendEventToUI(64, nullptr, 0);
            break;
        case EVENT_CLIENT_VOLUME_STORTAGE:
            DLNA_LOG_I(DLNA_SP_TAG, "Event : EVENT_CLIENT_VOLUME_STORTAGE!!");
            SelectivePushSendEventToUI(67, nullptr, 0);
            break;
        case EVENT_CLIENT_TRANSFER_FAIL:
            DLNA_LOG_I(DLNA_SP_TAG, "Event : EVENT_CLIENT_TRANSFER_FAIL!!");
            SelectivePushSendEventToUI(66, nullptr, 0);
            break;
        case EVENT_CLIENT_NOT_SUPPORTED_FILE:
            DLNA_LOG_I(DLNA_SP_TAG, "Event : EVENT_CLIENT_NOT_SUPPORTED_FILE!!");
            SelectivePushSendEventToUI(68, nullptr, 0);
            break;
    }
}

void SPControlNotificationCallback(eSPNotifyControlEvent event, stSPInformation* info) {
    DLNA_LOG_I(DLNA_SP_TAG, "Entry ");
    SPServer* server = ptheSpServer.load();
    if (server == nullptr) {
        logNotStarted();
        return;
    }
    switch (event) {
        case EVENT_DEVICE_NEW: {
            DLNA_LOG_I(DLNA_SP_TAG, "[SP]Event : New Device!!");
            if (info != nullptr) {
                DLNA_LOG_I(DLNA_SP_TAG, "AGENT = %s", info->mac);
                DLNA_LOG_I(DLNA_SP_TAG, "Phone Num = %s", info->hostPNumber);
                DLNA_LOG_I(DLNA_SP_TAG, "Access-Method = %d", info->accessMethod);
            }
            copyParam(mUserAgentParam, info ? info->hostPNumber : nullptr);
            copyParam(mMacAddressParam, info ? info->mac : nullptr);
            setPendingMac(mMacAddressParam);
            // One phone at a time: no other is accepted while this one is served.
            server->setAllowNewConnection(false);
            const bool nfc = info != nullptr && info->accessMethod != 0;
            SelectivePushSendEventToUI(nfc ? 62 : 61, mMacAddressParam, text(mUserAgentParam));
            if (info != nullptr) info->last = nullptr;
            // A UI waiting for a phone learns that one asks to start.
            SPUserStartHandshake().post(1);
            break;
        }
        case EVENT_DEVICE_REMOVED:
            DLNA_LOG_I(DLNA_SP_TAG, "[SP]Event : ByeBye Device!!");
            server->setAllowNewConnection(true);
            SelectivePushSendEventToUI(63, nullptr, 0);
            break;
        case EVENT_DEVICE_SERVER_FAIL:
            DLNA_LOG_E(DLNA_SP_TAG, "[SP]Event : Server Fail!!");
            server->setAllowNewConnection(true);
            SelectivePushSendEventToUI(60, nullptr, 0);
            // A UI waiting for a phone must not wait for a server that is gone.
            SPUserStartHandshake().post();
            break;
        case EVENT_DEVICE_SERVER_READY:
            DLNA_LOG_I(DLNA_SP_TAG, "Event : EVENT_DEVICE_SERVER_READY!!");
            SelectivePushSendEventToUI(69, nullptr, 0);
            break;
    }
}

// ---- several phones ----------------------------------------------------------

extern "C" void SNPushChangeState(int state) {
    DLNA_LOG_I(DLNA_SP_TAG, "Entry ");
    gSNPushState.store(state);
    SPServer* server = ptheSpServer.load();
    if (server == nullptr) return;
    if (state == 1 || state == 2) server->setAllowNewConnection(true);
    if (state == 3) server->setAllowNewConnection(false);
}

extern "C" int SNPushInitialize(void) {
    DLNA_LOG_I(DLNA_SP_TAG, " Entry ");
    SNPushChangeState(0);
    return multiPushHandshake().create() ? 1 : 0;
}

extern "C" int SNPushStart(void) {
    DLNA_LOG_I(DLNA_SP_TAG, " Entry ");
    if (ptheSpServer.load() != nullptr) {
        DLNA_LOG_E(DLNA_SP_TAG, "[SNPushStart] the push server is already running");
        return 0;
    }
    startServer(SNPushControlNotificationCallback);
    SNPushChangeState(1);
    setUpClientManager(SNPushClientNotificationCallback);
    return 1;
}

extern "C" int SNPushTerminate(void) {
    DLNA_LOG_I(DLNA_SP_TAG, "  Enter");
    multiPushHandshake().destroy();
    if (SPClientManager::m_Instance != nullptr) {
        SPClientManager::getInstance()->stopAllFileTransfer();
        SPClientManager::destroyInstance();
    }
    gTransferIdle.store(true);
    stopServer();
    SNPushChangeState(0);
    DLNA_LOG_I(DLNA_SP_TAG, " Exit");
    return 1;
}

extern "C" int SNPushTransferFile(const char* mac, const char* path) {
    SPServer* server = ptheSpServer.load();
    if (server == nullptr) {
        logNotStarted();
        return 0;
    }
    server->getPermittedListSize();
    char ip[32] = {};
    int port = 0;
    if (mac == nullptr || path == nullptr || !server->getDataServerInfo(mac, &port, ip)) return 0;
    if (port == 0) port = kDefaultDataServerPort;
    DLNA_LOG_I(DLNA_SP_TAG, "[SP] [File path = %s], [MacAddr = %s], [IPAddr = %s], [Port = %d] ", path, mac, ip, port);
    SPClientManager::getInstance()->createFileTransfer(path, ip, mac, port);
    gTransferIdle.store(false);
    return 1;
}

extern "C" int SNPushStopFile(const char* mac) {
    DLNA_LOG_I(DLNA_SP_TAG, "Entry ");
    if (mac == nullptr) {
        DLNA_LOG_E(DLNA_SP_TAG, "No Device selected to stop !!!");
        return 0;
    }
    SPClientManager::getInstance()->stopFileTransfer(mac);
    return 1;
}

extern "C" void SNPushSendUserStartEvent(const char* mac, int answer) {
    DLNA_LOG_I(DLNA_SP_TAG, "Entry ");
    SPServer* server = ptheSpServer.load();
    if (server == nullptr) {
        DLNA_LOG_E(DLNA_SP_TAG, "Server is either already terminated or not Started yet ");
        return;
    }
    server->sendClientStartNotice(mac, answer != 0);
}

extern "C" int SNPushAllowNewConnection(bool allow) {
    DLNA_LOG_I(DLNA_SP_TAG, " Entry ");
    SNPushChangeState(allow ? 2 : 3);
    return 1;
}

extern "C" int SNPushRemoveClientFromAccessList(const char* mac) {
    DLNA_LOG_I(DLNA_SP_TAG, " Entry ");
    SPServer* server = ptheSpServer.load();
    if (server == nullptr) {
        DLNA_LOG_E(DLNA_SP_TAG, " Server is either already terminated or not Started yet ");
        return 0;
    }
    return server->removeClientfromPermittedList(mac);
}

void SNPushClientNotificationCallback(eSPNotifyClntEvent event, stSPClntInfo* info) {
    const intptr_t mac = text(info ? info->mac : nullptr);
    switch (event) {
        case EVENT_CLIENT_TRANSFER_START:
            DLNA_LOG_I(DLNA_SP_TAG, " Event : EVENT_CLIENT_TRANSFER_START!!");
            SelectivePushSendEventToUI(74, number(1), mac);
            break;
        case EVENT_CLIENT_TRANSFER_PROGRESS:
            if (info != nullptr) SelectivePushSendEventToUI(74, number(info->value), mac);
            break;
        case EVENT_CLIENT_TRANSFER_COMPLETE:
            DLNA_LOG_I(DLNA_SP_TAG, ">>>>>>>>> [SNPushClientNotificationCallback] Event : EVENT_CLIENT_TRANSFER_COMPLETE!!");
            SelectivePushSendEventToUI(73, number(100), mac);
            break;
        case EVENT_CLIENT_VOLUME_STORTAGE:
            DLNA_LOG_I(DLNA_SP_TAG, "Event : EVENT_CLIENT_VOLUME_STORTAGE!!");
            SelectivePushSendEventToUI(77, nullptr, mac);
            break;
        case EVENT_CLIENT_TRANSFER_FAIL:
            DLNA_LOG_I(DLNA_SP_TAG, "Event : EVENT_CLIENT_TRANSFER_FAIL!!");
            SelectivePushSendEventToUI(75, nullptr, mac);
            break;
        case EVENT_CLIENT_NOT_SUPPORTED_FILE:
            DLNA_LOG_I(DLNA_SP_TAG, "Event : EVENT_CLIENT_NOT_SUPPORTED_FILE!!");
            SelectivePushSendEventToUI(76, nullptr, mac);
            break;
    }
}

void SNPushControlNotificationCallback(eSPNotifyControlEvent event, stSPInformation* info) {
    DLNA_LOG_I(DLNA_SP_TAG, "Entry ");
    copyParam(mMacAddressParam, info ? info->mac : nullptr);
    copyParam(mUserAgentParam, info ? info->hostPNumber : nullptr);
    SPServer* server = ptheSpServer.load();
    const int phones = info != nullptr ? info->total : (server ? server->getPermittedListSize() : 0);
    switch (event) {
        case EVENT_DEVICE_NEW:
            DLNA_LOG_I(DLNA_SP_TAG, "[SP] Event : New Device Added!!");
            DLNA_LOG_I(DLNA_SP_TAG, " AGENT = %s", mMacAddressParam);
            DLNA_LOG_I(DLNA_SP_TAG, " Phone Num = %s", mUserAgentParam);
            DLNA_LOG_I(DLNA_SP_TAG, " Access-Method = %d", info ? info->accessMethod : 0);
            DLNA_LOG_I(DLNA_SP_TAG, " No if Devices = %d", phones);
            SelectivePushSendEventToUI(phones == 1 ? 71 : 78, mMacAddressParam, text(mUserAgentParam));
            if (info != nullptr) info->last = nullptr;
            DLNA_LOG_I(DLNA_SP_TAG, " Confirmed from UI");
            break;
        case EVENT_DEVICE_REMOVED:
            DLNA_LOG_I(DLNA_SP_TAG, "[SP] Event Device Removed ");
            DLNA_LOG_I(DLNA_SP_TAG, " AGENT = %s", mMacAddressParam);
            DLNA_LOG_I(DLNA_SP_TAG, " Phone Num = %s", mUserAgentParam);
            DLNA_LOG_I(DLNA_SP_TAG, " Access-Method = %d", info ? info->accessMethod : 0);
            DLNA_LOG_I(DLNA_SP_TAG, " Event : ByeBye Device!!");
            DLNA_LOG_I(DLNA_SP_TAG, " No if Devices = %d", phones);
            SelectivePushSendEventToUI(phones == 0 ? 72 : 79, mMacAddressParam, 0);
            break;
        case EVENT_DEVICE_SERVER_FAIL:
            DLNA_LOG_E(DLNA_SP_TAG, "Event : Server Fail!!");
            SelectivePushSendEventToUI(70, nullptr, 0);
            break;
        default:
            break;
    }
}
