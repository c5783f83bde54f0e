#include "SP/client/SPClientManager.h"

#include <strings.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "Dlna/DlnaLog.h"
#include "SP/client/SPHTTPClientHandler.h"
#include "nasl_wifi.h"

namespace {

const char kNoPicture[] = "empty";

std::mutex& instanceLock() {
    static std::mutex lock;
    return lock;
}

unsigned hex32(const void* p) { return static_cast<unsigned>(reinterpret_cast<uintptr_t>(p)); }

}  // namespace

SPClientManager* SPClientManager::m_Instance = nullptr;

SPResizedImage::~SPResizedImage() { NASLWifi_jpegResizeFree(m_pData); }

SPClientManager* SPClientManager::getInstance() {
    std::lock_guard<std::mutex> lock(instanceLock());
    if (m_Instance == nullptr) m_Instance = new SPClientManager;
    return m_Instance;
}

void SPClientManager::destroyInstance() {
    SPClientManager* dying;
    {
        std::lock_guard<std::mutex> lock(instanceLock());
        dying = m_Instance;
        // Already going (another thread is destroying it): nothing to do.
        if (dying == nullptr || dying->m_bClosing.exchange(true)) return;
    }
    // Deleted outside the instance lock: the destructor waits for transfers
    // whose event callbacks may ask for the instance. Until it is gone they
    // get this one, which refuses new transfers; a fresh manager made for
    // them would start transfers that no terminate ever stops.
    delete dying;
    std::lock_guard<std::mutex> lock(instanceLock());
    m_Instance = nullptr;
}

SPClientManager::SPClientManager() { ClearResizeHistory(); }

SPClientManager::~SPClientManager() {
    // The stop-all walk passes over every second transfer by design, and
    // those keep running and report later. Their events arrive through this
    // object, so it must outlive them; but waiting for them to end on their
    // own could take without limit (a phone that stops reading or trickles
    // its reply keeps a transfer going for as long as it likes, and the UI's
    // terminate would hang with it). So each is asked to stop (it reports
    // TRANSFER_FAIL like any stopped transfer), then joined and deleted: the
    // manager goes within one transfer's stop latency. Transfers asked for
    // from their callbacks meanwhile are refused (see createFileTransfer), so
    // the reaping ends.
    m_bClosing.store(true);  // also when deleted other than through destroyInstance
    for (;;) {
        std::vector<SPHTTPClientHandler*> left;
        {
            std::lock_guard<std::mutex> lock(m_oLock);
            if (m_vHandlers.empty()) break;
            left.swap(m_vHandlers);
        }
        // All asked first, so they wind down together rather than one after
        // another.
        for (SPHTTPClientHandler* handler : left) handler->requestExit();
        for (SPHTTPClientHandler* handler : left) {
            handler->join();
            delete handler;
        }
    }
    std::lock_guard<std::mutex> lock(m_oLock);
    resetHistory();
}

void SPClientManager::resetHistory() {
    m_oResize.path = kNoPicture;
    m_oResize.buffer = nullptr;
    m_oResize.length = 0;
    m_oResize.resized = false;
    m_oResize.isJPEG = false;
    // stopRequested is left alone: it is the handshake between a stop and a
    // creation in progress, and the stop itself clears the history.
    // The history's share only: a transfer still sending the picture keeps
    // the buffer until it is done.
    m_oResize.image.reset();
}

void SPClientManager::ClearResizeHistory() {
    std::lock_guard<std::mutex> lock(m_oLock);
    resetHistory();
}

size_t SPClientManager::transferCount() {
    std::lock_guard<std::mutex> lock(m_oLock);
    return m_vHandlers.size();
}

void SPClientManager::fail(const char* mac) {
    SPClntNotificationCallbackFn callback = m_pCallback.load();
    if (callback == nullptr) return;
    stSPClntInfo info = {0, mac};
    callback(EVENT_CLIENT_TRANSFER_FAIL, &info);
}

void SPClientManager::startAndKeep(SPHTTPClientHandler* handler) {
    {
        // Started and appended under the lock, so no stop walks past a
        // handler that runs but is not yet in the vector.
        std::lock_guard<std::mutex> lock(m_oLock);
        if (!m_bClosing.load()) {
            handler->start();
            m_vHandlers.push_back(handler);
            return;
        }
    }
    // The manager is being torn down: a transfer started now would only be
    // stopped again, and a UI that retries a failed push from its callback
    // would keep the teardown going. The push fails at once instead.
    const std::string phone = handler->clientMac();
    delete handler;
    DLNA_LOG_E(DLNA_SP_TAG, "Transfer refused while the push is terminating, MAC %s", phone.c_str());
    fail(phone.c_str());
}

bool SPClientManager::claim(SPHTTPClientHandler* handler) {
    std::lock_guard<std::mutex> lock(m_oLock);
    auto it = std::find(m_vHandlers.begin(), m_vHandlers.end(), handler);
    if (it == m_vHandlers.end()) return false;
    m_vHandlers.erase(it);
    return true;
}

void SPClientManager::createFileTransfer(const char* path, const char* address, int port) {
    SPHTTPClientHandler* handler = new SPHTTPClientHandler(this, path, address, port);
    DLNA_LOG_I(DLNA_SP_TAG, "**StreamServer : THREAD_Start received!... 0x%x", hex32(handler));
    startAndKeep(handler);
}

void SPClientManager::createFileTransfer(const char* pathArg, const char* addressArg, const char* macArg, int port) {
    // Copies first: the texts may belong to the transfer that is replaced
    // below (an event callback passing its own record's MAC text on).
    const std::string phoneText = macArg ? macArg : "", pathText = pathArg ? pathArg : "",
                      addressText = addressArg ? addressArg : "";
    const char* phone = phoneText.c_str();
    const char* path = pathText.c_str();
    const char* address = addressText.c_str();
    if (pathArg == nullptr || addressArg == nullptr) {
        // Nothing to send or nowhere to send it: the push fails at once, as a
        // transfer that could not start would.
        DLNA_LOG_E(DLNA_SP_TAG, "Invalid transfer request for MAC %s", phone);
        fail(phone);
        return;
    }
    m_oResize.stopRequested = false;
    // A phone has at most one transfer: a new file replaces the old one.
    if (SPHTTPClientHandler* old = getHTTPClientHandlerbyMac(phone)) deleteFileTransfer(old);

    SPHTTPClientHandler* handler = nullptr;
    {
        std::lock_guard<std::mutex> lock(m_oLock);
        const bool resizeMode = m_iImageTransferSize.load() == kResizeMode;
        if (resizeMode && strcasecmp(path, m_oResize.path.c_str()) != 0) {
            // Another picture than the one in the history: the history's
            // buffer no longer describes what is examined now, so it is let
            // go (otherwise the old picture, sent again later, would find its
            // path in the history with this file's flags and go unresized).
            resetHistory();
            DLNA_LOG_I(DLNA_SP_TAG, "Checking if this is a JPEG file or not");
            m_oResize.isJPEG = strcasecmp(SPHTTPClientHandler::extensionOf(path).c_str(), "jpg") == 0;
            if (m_oResize.isJPEG)
                DLNA_LOG_I(DLNA_SP_TAG, "[%s] JPG FILE HERE  ", path);
            else
                DLNA_LOG_I(DLNA_SP_TAG, " [%s]THIS IS NOT A JPG FILE ", path);
        }
        if (resizeMode && m_oResize.isJPEG) {
            DLNA_LOG_I(DLNA_SP_TAG, "This image file should be rezied before transfer ");
            if (!m_oResize.resized) {
                DLNA_LOG_I(DLNA_SP_TAG, "[%s] will be resized before transfer", path);
                DLNA_LOG_I(DLNA_SP_TAG, "Calling resize function ASLWifi_jpegResizeInMemory ");
                std::string target(pathText);
                char* out = nullptr;
                int length = 0;
                if (!NASLWifi_jpegResizeInMemory(&target[0], WIFI_RESIZE_PIXEL_1920, out, length) || out == nullptr ||
                    length <= 0) {
                    if (out != nullptr) NASLWifi_jpegResizeFree(out);
                    resetHistory();
                } else {
                    m_oResize.image = std::make_shared<SPResizedImage>(out, length);
                    m_oResize.buffer = out;
                    m_oResize.length = length;
                    m_oResize.path = path;
                    m_oResize.resized = true;
                    DLNA_LOG_I(DLNA_SP_TAG, "Resized buffer addr = 0x%x, length = %d ", hex32(out), length);
                }
            }
            if (m_oResize.resized) {
                handler = new SPHTTPClientHandler(this, path, address, port, phone);
                handler->setResizeParams(true, m_oResize.buffer, static_cast<unsigned int>(m_oResize.length));
                handler->keepResizedImage(m_oResize.image);
            }
        } else {
            DLNA_LOG_I(DLNA_SP_TAG, " !! No Resize required !! ");
            handler = new SPHTTPClientHandler(this, path, address, port, phone);
        }
    }
    if (handler == nullptr) {
        // The resize failed: no transfer; the callback runs outside the lock
        // (it may call back into the manager).
        fail(phone);
        DLNA_LOG_E(DLNA_SP_TAG, "[SP: ERR] Failed to resize the image file");
        return;
    }
    if (m_oResize.stopRequested.load()) {
        // A stop for a phone came while this transfer was being prepared:
        // it is neither started nor kept.
        fail(phone);
        ClearResizeHistory();
        delete handler;
        return;
    }
    startAndKeep(handler);
}

SPHTTPClientHandler* SPClientManager::getHTTPClientHandlerbyMac(const char* mac) {
    if (mac == nullptr || mac[0] == '\0') return nullptr;
    std::lock_guard<std::mutex> lock(m_oLock);
    for (SPHTTPClientHandler* handler : m_vHandlers)
        if (handler->clientMac() == mac) return handler;
    return nullptr;
}

void SPClientManager::deleteFileTransfer(void* handler) {
    DLNA_LOG_I(DLNA_SP_TAG, "Enter");
    SPHTTPClientHandler* h = static_cast<SPHTTPClientHandler*>(handler);
    // Taken out of the vector first, so no other caller can reach it while
    // its thread is stopped and joined (outside the lock).
    if (claim(h)) delete h;
}

void SPClientManager::stopFileTransfer(const char* mac) {
    const std::string phone = mac ? mac : "";
    DLNA_LOG_I(DLNA_SP_TAG, "with %s ", phone.c_str());
    m_oResize.stopRequested = true;
    // The walk advances its index after a removal, so the entry after a
    // stopped one is not looked at: kept as designed.
    for (size_t i = 0;; ++i) {
        SPHTTPClientHandler* match = nullptr;
        {
            std::lock_guard<std::mutex> lock(m_oLock);
            if (i >= m_vHandlers.size()) break;
            if (m_vHandlers[i]->clientMac() == phone) {
                match = m_vHandlers[i];
                m_vHandlers.erase(m_vHandlers.begin() + static_cast<std::ptrdiff_t>(i));
            }
        }
        if (match == nullptr) {
            DLNA_LOG_I(DLNA_SP_TAG, "**stopFileTransfer : MAC %s  Not found to stop transfer", phone.c_str());
            continue;
        }
        DLNA_LOG_I(DLNA_SP_TAG, "**stopFileTransfer(void *path) : Going to stop file for MAC %s ", phone.c_str());
        match->requestExit();
        match->join();
        delete match;
    }
    ClearResizeHistory();
}

void SPClientManager::stopEverySecond() {
    // Index advanced after each removal: every second transfer is passed over
    // and keeps running (kept as designed; the destructor reaps them).
    for (size_t i = 0;; ++i) {
        SPHTTPClientHandler* handler;
        {
            std::lock_guard<std::mutex> lock(m_oLock);
            if (i >= m_vHandlers.size()) break;
            handler = m_vHandlers[i];
            m_vHandlers.erase(m_vHandlers.begin() + static_cast<std::ptrdiff_t>(i));
        }
        handler->requestExit();
        handler->join();
        delete handler;
    }
}

void SPClientManager::stopFileTransfer(void*) {
    DLNA_LOG_I(DLNA_SP_TAG, " size... %d", static_cast<int>(transferCount()));
    stopEverySecond();
}

void SPClientManager::stopAllFileTransfer() {
    DLNA_LOG_I(DLNA_SP_TAG, "Total Size... %d", static_cast<int>(transferCount()));
    stopEverySecond();
    ClearResizeHistory();
}

int SPClientManager::sendTurnDownRequest(char* address, int port) {
    SPHTTPClientHandler* handler = new SPHTTPClientHandler(address, port);
    const bool sent = handler->turnDownRequestHandler();
    delete handler;
    return sent ? 1 : 0;
}

void SPClientManager::notifyServiceStatus(eSPNotifyClntEvent event, int, SvcClientNotifyInfo* info) {
    if (info == nullptr) return;
    switch (event) {
    case EVENT_CLIENT_TRANSFER_START:
        DLNA_LOG_I(DLNA_SP_TAG, "SPClientManager Event : EVENT_CLIENT_TRANSFER_START!!");
        break;
    case EVENT_CLIENT_TRANSFER_PROGRESS:
        if (info->value == 0) return;
        break;
    case EVENT_CLIENT_TRANSFER_COMPLETE:
        DLNA_LOG_I(DLNA_SP_TAG, "SPClientManager Event : !!");
        break;
    case EVENT_CLIENT_VOLUME_STORTAGE:
        DLNA_LOG_I(DLNA_SP_TAG, "SPClientManager Event : EVENT_CLIENT_VOLUME_STORTAGE!!");
        break;
    case EVENT_CLIENT_TRANSFER_FAIL:
        DLNA_LOG_I(DLNA_SP_TAG, "SPClientManager Event : EVENT_CLIENT_TRANSFER_FAIL!!");
        break;
    case EVENT_CLIENT_NOT_SUPPORTED_FILE:
        DLNA_LOG_I(DLNA_SP_TAG, "SPClientManager Event : EVENT_CLIENT_NOT_SUPPORTED_FILE!!");
        break;
    default:
        return;
    }
    SPClntNotificationCallbackFn callback = m_pCallback.load();
    if (callback == nullptr) return;
    stSPClntInfo copy = {info->value, info->mac};
    callback(event, &copy);
}
