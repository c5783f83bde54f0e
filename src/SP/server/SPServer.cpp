#include "SP/server/SPServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Dlna/DlnaLog.h"
#include "SP/osal/SPGenericSocket.h"
#include "SP/osal/SPSocketListener.h"
#include "SP/server/SPAccessControlInfo.h"
#include "SP/server/SPHTTPHandler.h"

namespace {

// Connections accepted but not yet served. A peer that opens more without
// sending anything gets its new connections closed at once, so descriptors
// cannot run out.
const size_t kMaxPendingConnections = 64;
// Room for a dotted IPv4 address and its zero; what a caller's buffer holds.
const size_t kIpTextSize = 16;
// Room for a MAC text (17 characters) and its zero.
const size_t kMacTextSize = 18;

void copyText(char* out, const std::string& text, size_t size) {
    const size_t n = text.size() < size - 1 ? text.size() : size - 1;
    memcpy(out, text.data(), n);
    out[n] = '\0';
}

class ClientLock {
public:
    explicit ClientLock(ZEB_MUTEX m) : m_h(m) { m_bHeld = m_h && ZEBAcquireMutex(m_h) == 0; }
    ~ClientLock() {
        if (m_bHeld) ZEBReleaseMutex(m_h);
    }

private:
    ZEB_MUTEX m_h;
    bool m_bHeld;
};

}  // namespace

SPServer::SPServer() : m_pAcl(new SPAccessControlInfo) {
    DLNA_LOG_I(DLNA_SP_TAG, "initialize m_pSem");
    if (ZEBCreateMutex(&m_hClientLock, "SP_CLIENT_MUTEX") != 0) m_hClientLock = nullptr;
}

SPServer::~SPServer() {
    stopAndJoin();
    if (m_pListenSocket) {
        delete m_pListenSocket;
        m_pListenSocket = nullptr;
    }
    shutdown();
    delete m_pAcl;
    if (m_hClientLock) ZEBDeleteMutex(m_hClientLock);
}

void SPServer::stopAndJoin() {
    requestExit();
    join();
}

int SPServer::waitSemaphore(unsigned long ms) {
    DLNA_LOG_I(DLNA_SP_TAG, "WAIT FOR READY !!");
    if (m_oReadySem.wait(ms)) {
        DLNA_LOG_I(DLNA_SP_TAG, "SERVER IS READY !!");
        return 1;
    }
    DLNA_LOG_I(DLNA_SP_TAG, "TIMEOUT !!");
    return 0;
}

void SPServer::notifyUI(eSPNotifyControlEvent event, stSPInformation* info) {
    if (SPControlCallback cb = m_pCallback.load()) cb(event, info);
}

bool SPServer::listenOnFirstFreePort() {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        DLNA_LOG_E(DLNA_SP_TAG, "[SP] socket() error");
        return false;
    }
    fd = SPKeepOffDescriptorZero(fd);
    m_pListenSocket = new SPTCPSocket(static_cast<unsigned int>(fd));
    int one = 1;
    if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) != 0) {
        // Like every other set-up step, a failure ends the server with event
        // 3: the UI learns it at once, rather than running a server whose
        // port may not be taken again on the next start.
        DLNA_LOG_E(DLNA_SP_TAG, "[SP] setsockopt() SO_REUSEADD Rerror");
        return false;
    }

    uint16_t port = kFirstPort;
    for (;; ++port) {
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_ANY);
        addr.sin_port = htons(port);
        if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0) break;
        if (port == kLastPort) {
            DLNA_LOG_E(DLNA_SP_TAG, "[SP] bind() error");
            return false;
        }
        DLNA_LOG_I(DLNA_SP_TAG, "\033[m[SP] port %d is busy!", port);
    }
    DLNA_LOG_I(DLNA_SP_TAG, "\033[m[SP] bind success with %d", port);
    m_usPort.store(port);
    if (::listen(fd, 20) != 0) {
        DLNA_LOG_E(DLNA_SP_TAG, "[SP] listen() error");
        return false;
    }
    return true;
}

void SPServer::failAndStop() {
    if (m_pListenSocket) {
        delete m_pListenSocket;
        m_pListenSocket = nullptr;
    }
    notifyUI(EVENT_DEVICE_SERVER_FAIL, nullptr);
}

void SPServer::entry() {
    prctl(PR_SET_NAME, "SPServerThread", 0, 0, 0);
    if (!listenOnFirstFreePort()) {
        failAndStop();
        return;
    }
    notifyUI(EVENT_DEVICE_SERVER_READY, nullptr);
    m_oReadySem.post();
    DLNA_LOG_I(DLNA_SP_TAG, "BIND IS OK !!");

    for (;;) {
        if (exitRequested()) {
            delete m_pListenSocket;
            m_pListenSocket = nullptr;
            shutdown();
            return;
        }
        // The listening socket and every phone connection; the wait leaves
        // the readable ones (the platform layer's wait, which takes any
        // number of descriptors with any numbers).
        std::vector<int> readable;
        readable.push_back(m_pListenSocket->get_fd());
        for (SPTCPSocket* s : m_vConnections) readable.push_back(s->get_fd());
        if (!SPSocketListener::waitReadable(readable, 1000)) {
            if (errno == EINTR) continue;
            DLNA_LOG_E(DLNA_SP_TAG, "[SP] select() error");
            failAndStop();
            return;
        }
        if (readable.empty()) continue;
        const auto isReadable = [&readable](const SPTCPSocket* s) {
            return std::find(readable.begin(), readable.end(), s->get_fd()) != readable.end();
        };

        // Serve the phone connections that were waiting before this accept;
        // each is served once and then leaves the wait set.
        for (size_t i = m_vConnections.size(); i-- > 0;) {
            if (!isReadable(m_vConnections[i])) continue;
            if (!serveConnection(i)) {
                failAndStop();
                return;
            }
        }
        if (isReadable(m_pListenSocket)) {
            SPTCPSocket* client = m_pListenSocket->accept();
            if (client == nullptr) {
                DLNA_LOG_E(DLNA_SP_TAG, "[SP] accept() error");
                failAndStop();
                return;
            }
            const sockaddr_in& peer = client->getRemoteAddress();
            char peerIp[INET_ADDRSTRLEN] = "";
            inet_ntop(AF_INET, &peer.sin_addr, peerIp, sizeof peerIp);
            DLNA_LOG_I(DLNA_SP_TAG, "clntSock = %d", client->get_fd());
            DLNA_LOG_I(DLNA_SP_TAG, "connection request : %s:%d", peerIp, ntohs(peer.sin_port));
            if (m_vConnections.size() >= kMaxPendingConnections) {
                DLNA_LOG_E(DLNA_SP_TAG, "[SP] too many waiting connections, closing %s:%d", peerIp,
                           ntohs(peer.sin_port));
                delete client;
                continue;
            }
            {
                std::lock_guard<std::mutex> g(m_infoLock);
                if (m_sConfirmedIP.empty()) m_sConfirmedIP = peerIp;
            }
            m_vConnections.push_back(client);
        }
    }
}

bool SPServer::serveConnection(size_t index) {
    SPTCPSocket* socket = m_vConnections[index];
    // Served once: out of the wait set from now on, whatever happens.
    m_vConnections.erase(m_vConnections.begin() + static_cast<long>(index));
    DLNA_LOG_I(DLNA_SP_TAG, "### fd = %d", socket->get_fd());

    auto* handler = new SPHTTPHandler(this, socket);
    {
        ClientLock lock(m_hClientLock);
        m_pBusyHandler = handler;
    }
    char mac[32];
    memset(mac, 0, sizeof mac);
    const int result = handler->httpHandler(mac);

    ClientLock lock(m_hClientLock);
    m_pBusyHandler = nullptr;
    // An announcement records its handler before the user is asked (so that
    // an immediate answer finds it); such an entry now owns handler and socket.
    bool recorded = false;
    for (size_t i = 0; i < m_vClients.size(); ++i) {
        if (m_vClients[i].handler != handler) continue;
        recorded = true;
        if (result != 0 || m_vClients[i].removeWhenIdle) {
            destroyEntry(m_vClients[i]);
            m_vClients.erase(m_vClients.begin() + static_cast<long>(i));
        }
        break;
    }
    switch (result) {
        case 0:
            if (!recorded) {
                deleteSpClientEntry(nullptr, mac);
                addSpClientEntry(handler, socket, mac);
            }
            return true;
        case 2:
            DLNA_LOG_I(DLNA_SP_TAG, "[SP] [%s] Disconnected ", mac);
            deleteSpClientEntry(nullptr, mac);
            break;
        case 1:
            DLNA_LOG_E(DLNA_SP_TAG, "[SP] Client httpHandler fail..");
            break;
        default:
            break;
    }
    if (!recorded) {
        delete handler;
        delete socket;
    }
    // One failing connection stops the server: the push API hears event 3.
    return result != 1;
}

void SPServer::shutdown() {
    for (SPTCPSocket* s : m_vConnections) delete s;
    m_vConnections.clear();
    terminateSPClientEntry();
}

void SPServer::fillInformation(stSPInformation& info, const SvcSPNotifyInfo& svc) {
    memset(&info, 0, sizeof info);
    info.one = 1;
    if (svc.mac) copyText(info.mac, svc.mac, sizeof info.mac);
    if (svc.hostPNumber) copyText(info.hostPNumber, svc.hostPNumber, sizeof info.hostPNumber);
    info.accessMethod = svc.accessMethod;
    info.total = m_pAcl ? m_pAcl->getEntrySize(SP_ACL_ACCESS_LIST) : 0;
}

int SPServer::notifyServiceStatus(eSPNotifyControlEvent event, int, SvcSPNotifyInfo* info) {
    if (event == EVENT_DEVICE_REMOVED) {
        {
            std::lock_guard<std::mutex> g(m_infoLock);
            if (!m_bFirstConfirmed) return 0;
        }
        if (info == nullptr || info->mac == nullptr) return 0;
        DLNA_LOG_I(DLNA_SP_TAG, "SPServer Event : EVENT_DEVICE_REMOVED : ByeBye Device !!");
        {
            std::lock_guard<std::mutex> g(m_infoLock);
            m_pAcl->deleteEntry(SP_ACL_ACCESS_LIST, info->mac, info->ip, "phone");
        }
        m_bConfirmed.store(false);
        stSPInformation record;
        fillInformation(record, *info);
        DLNA_LOG_I(DLNA_SP_TAG, "[SP -- Removed ] No if Devices = %d", record.total);
        notifyUI(EVENT_DEVICE_REMOVED, &record);
        return 0;
    }
    if (event != EVENT_DEVICE_NEW) return 0;

    DLNA_LOG_I(DLNA_SP_TAG, "SPServer Event : New Device!!");
    if (!m_bAllowNewConnection.load()) {
        DLNA_LOG_I(DLNA_SP_TAG, "New Connection not allowed. This request should be denied");
        return 0;
    }
    if (info == nullptr || info->mac == nullptr || info->ip == nullptr) return 0;
    DLNA_LOG_I(DLNA_SP_TAG, "AGENT = %s, AGENT IP = %s ", info->mac, info->ip);
    if (m_pAcl == nullptr) {
        DLNA_LOG_E(DLNA_SP_TAG, "[SP]  NoAccessControlInfo Structure to start. !! Returning !!");
        return 0;
    }
    int added;
    {
        std::lock_guard<std::mutex> g(m_infoLock);
        added = m_pAcl->addEntry(SP_ACL_ACCESS_LIST, info->mac, info->ip, "phone", info->port);
    }
    if (added < 0) {
        DLNA_LOG_E(DLNA_SP_TAG, "[SP]  Failed to ctreate a new device entry !! Returning  !!");
        return 0;
    }
    stSPInformation record;
    fillInformation(record, *info);
    DLNA_LOG_I(DLNA_SP_TAG, "[SP]  Total size = %d", record.total);

    // Record the phone's handler now, before anyone is asked: the UI may
    // answer from inside its callback or from another thread right away.
    {
        ClientLock lock(m_hClientLock);
        if (m_pBusyHandler != nullptr && !isRecorded(m_pBusyHandler)) {
            deleteSpClientEntry(m_pBusyHandler, info->mac);
            addSpClientEntry(m_pBusyHandler, m_pBusyHandler->socket(), info->mac);
        }
    }

    bool firstTime;
    unsigned denialsBefore;
    {
        std::lock_guard<std::mutex> g(m_infoLock);
        // After the user refused a phone, the next one is asked as the first.
        firstTime = !m_bFirstConfirmed || m_bClientDenied;
        denialsBefore = m_uDenials;
        if (firstTime) {
            m_sAskingMac = info->mac;
            m_sAskingIP = info->ip;
            m_iAskingPort = info->port;
        }
    }
    int result = 1;
    if (firstTime) {
        DLNA_LOG_I(DLNA_SP_TAG, "[SP]  This is first time!!!");
        notifyUI(EVENT_DEVICE_NEW, &record);
        std::lock_guard<std::mutex> g(m_infoLock);
        m_sAskingMac.clear();
        if (m_uDenials != denialsBefore && m_sLastDeniedMac == info->mac) {
            // The user already refused this phone through the answer
            // function (401 sent): nothing more is written to it.
            DLNA_LOG_I(DLNA_SP_TAG, "[SP]  DENY");
        } else if (record.answer == 0) {
            confirmLocked(info->mac, info->ip, info->port);
            DLNA_LOG_I(DLNA_SP_TAG, "[SP] m_sConfirmedIP = %s", m_sConfirmedIP.c_str());
        } else {
            DLNA_LOG_I(DLNA_SP_TAG, "[SP]  DENY");
            result = 0;
        }
    } else {
        DLNA_LOG_I(DLNA_SP_TAG, "[SP]  This is not first!!!");
        notifyUI(EVENT_DEVICE_NEW, &record);
    }
    DLNA_LOG_I(DLNA_SP_TAG, "SPServer confirmed from UI");
    return result;
}

void SPServer::confirmLocked(const std::string& mac, const std::string& ip, int port) {
    m_sConfirmedIP = ip;
    m_sConfirmedMac = mac;
    m_iConfirmedPort = port;
    m_bConfirmed.store(true);
    m_bFirstConfirmed = true;
    m_bClientDenied = false;
}

int SPServer::getDataServerInfo(char* ip, int* port) {
    if (ip == nullptr || port == nullptr) return 0;
    std::lock_guard<std::mutex> g(m_infoLock);
    copyText(ip, m_sConfirmedIP, kIpTextSize);
    *port = m_iConfirmedPort;
    return 1;
}

int SPServer::getDataServerInfo(char* mac) {
    if (mac == nullptr) return 0;
    std::lock_guard<std::mutex> g(m_infoLock);
    copyText(mac, m_sConfirmedMac, kMacTextSize);
    return 1;
}

int SPServer::getDataServerInfo(const char* mac, int* port, char* ip) {
    if (mac == nullptr || port == nullptr || ip == nullptr) return 0;
    std::lock_guard<std::mutex> g(m_infoLock);
    SPAclEntry* entry = m_pAcl->getEntryByMac(SP_ACL_ACCESS_LIST, mac);
    if (entry == nullptr) {
        DLNA_LOG_E(DLNA_SP_TAG, "[SP] Entry Not found for the MAC Addr %s", mac);
        return 0;
    }
    DLNA_LOG_I(DLNA_SP_TAG, "[SP] IP Address is  %s, MAC = %s ", entry->m_sIpAddr.c_str(), mac);
    copyText(ip, entry->m_sIpAddr, kIpTextSize);
    // The multi-phone push needs the port with the address.
    *port = entry->m_iPort;
    return 1;
}

void SPServer::sendClientStartNotice(const char* mac, bool accept) {
    if (mac == nullptr) return;
    ClientLock lock(m_hClientLock);
    SPHTTPHandler* handler = getSPHttpHandlerfromSocketInfo(mac);
    if (handler == nullptr) {
        DLNA_LOG_E(DLNA_SP_TAG, "[SP] Entry Not found ");
        return;
    }
    handler->httpSendUserResponseToClient(accept);
    if (accept) {
        // Accepted while the server is still asking about it (the UI may answer
        // before its callback returns): it is the data server from now on, so
        // a file sent right after the answer finds it.
        std::lock_guard<std::mutex> g(m_infoLock);
        if (!m_sAskingMac.empty() && m_sAskingMac == mac) confirmLocked(m_sAskingMac, m_sAskingIP, m_iAskingPort);
    } else {
        deleteSpClientEntry(nullptr, mac);
        std::lock_guard<std::mutex> g(m_infoLock);
        m_pAcl->deleteEntry(SP_ACL_ACCESS_LIST, mac, nullptr, "phone");
        // A refused phone is no longer the confirmed one: the next phone
        // that announces itself is asked about again.
        m_bClientDenied = true;
        ++m_uDenials;
        m_sLastDeniedMac = mac;
        if (m_sConfirmedMac == mac) {
            m_bConfirmed.store(false);
            m_sConfirmedMac.clear();
            m_sConfirmedIP.clear();
            m_iConfirmedPort = 0;
        }
    }
    DLNA_LOG_I(DLNA_SP_TAG, "[SP] Returning ..");
}

int SPServer::removeClientfromPermittedList(const char* mac) {
    if (mac == nullptr) return 0;
    int removed;
    {
        std::lock_guard<std::mutex> g(m_infoLock);
        removed = m_pAcl->deleteEntry(SP_ACL_ACCESS_LIST, mac, nullptr, "phone");
    }
    ClientLock lock(m_hClientLock);
    deleteSpClientEntry(nullptr, mac);
    return removed == 0 ? 1 : 0;
}

int SPServer::getPermittedListSize() { return m_pAcl->getEntrySize(SP_ACL_ACCESS_LIST); }

bool SPServer::hasClientEntry(const char* mac) {
    ClientLock lock(m_hClientLock);
    return getSPHttpHandlerfromSocketInfo(mac) != nullptr;
}

// --- client entries (callers hold m_hClientLock) -------------------------------

void SPServer::destroyEntry(ClientEntry& entry) {
    delete entry.handler;
    delete entry.socket;
    entry.handler = nullptr;
    entry.socket = nullptr;
}

void SPServer::addSpClientEntry(SPHTTPHandler* handler, SPTCPSocket* socket, const char* mac) {
    // Bounded: a peer could name a new Data-Server address in every request.
    // Admitted and announcing phones are in the access list and keep their
    // entries (a user's answer may still be on its way to one of them).
    if (m_vClients.size() >= kMaxClientEntries) {
        std::lock_guard<std::mutex> g(m_infoLock);
        for (size_t i = 0; i < m_vClients.size(); ++i) {
            ClientEntry& e = m_vClients[i];
            if (e.handler == m_pBusyHandler || m_pAcl->getEntryByMac(SP_ACL_ACCESS_LIST, e.mac.c_str()) != nullptr)
                continue;
            DLNA_LOG_E(DLNA_SP_TAG, "[SP] too many phone connections, closing the oldest [%s]", e.mac.c_str());
            destroyEntry(e);
            m_vClients.erase(m_vClients.begin() + static_cast<long>(i));
            break;
        }
    }
    m_vClients.push_back(ClientEntry{mac ? mac : "", handler, socket, false});
}

void SPServer::deleteSpClientEntry(SPHTTPHandler* keep, const char* mac) {
    if (mac == nullptr) return;
    for (size_t i = 0; i < m_vClients.size();) {
        ClientEntry& e = m_vClients[i];
        if (e.mac != mac || e.handler == keep) {
            ++i;
            continue;
        }
        if (e.handler == m_pBusyHandler) {
            // The server thread is using it: it goes when the thread is done.
            e.removeWhenIdle = true;
            ++i;
            continue;
        }
        destroyEntry(e);
        m_vClients.erase(m_vClients.begin() + static_cast<long>(i));
    }
}

SPHTTPHandler* SPServer::getSPHttpHandlerfromSocketInfo(const char* mac) {
    if (mac == nullptr) return nullptr;
    for (ClientEntry& e : m_vClients)
        if (e.mac == mac && !e.removeWhenIdle) return e.handler;
    return nullptr;
}

bool SPServer::isRecorded(SPHTTPHandler* handler) {
    for (ClientEntry& e : m_vClients)
        if (e.handler == handler) return true;
    return false;
}

void SPServer::terminateSPClientEntry() {
    ClientLock lock(m_hClientLock);
    for (ClientEntry& e : m_vClients) destroyEntry(e);
    m_vClients.clear();
}
