#include "ModeServer/ModeServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <new>

#include "Dlna/DlnaLog.h"
#include "ModeServer/MSEventVariable.h"
#include "ModeServer/MSHttpClient.h"
#include "ModeServer/ModeHTTPHandler.h"
#include "SP/osal/SPGenericSocket.h"
#include "SP/osal/SPSocketListener.h"

namespace {

// One wait of the accept loop: how often the stop flag is looked at.
const unsigned long kWaitMs = 1000;
// Pause after a failed accept (descriptors exhausted): the listening socket
// stays readable, and the loop must not spin.
const unsigned long kAcceptBackoffMs = 100;

class Guard {
public:
    explicit Guard(SPGenericMutex& m) : m_m(m) { m_m.lock(); }
    ~Guard() { m_m.unlock(); }

private:
    SPGenericMutex& m_m;
};

const char* text(intptr_t p) { return p ? reinterpret_cast<const char*>(p) : ""; }

// Where one registered phone wants its events, copied for a NOTIFY round.
struct Receiver {
    std::string host;
    int port;
    std::string callbackUrl;
};

}  // namespace

ModeServer::ModeServer(eNETWORK_SERVER_MODE mode)
    : m_eMode(mode), m_iAccessMode(mode == MS_MODE_CROWD_SEND ? ACCESS_MODE_ANY_CP : ACCESS_MODE_CONFIRM_NEW_CP) {}

ModeServer::~ModeServer() {
    stopAndJoin();
    {
        Guard g(m_oLock);
        for (ModeHTTPHandler* h : m_vHttpHandler) delete h;
        m_vHttpHandler.clear();
    }
    removeDeviceInfo();
    closeListeningSocket(false);
    for (SPTCPSocket* s : m_vWaiting) delete s;
    m_vWaiting.clear();
}

void ModeServer::stopAndJoin() {
    stop();
    join();
}

void ModeServer::shutdown() { DLNA_LOG_I(DLNA_MS_TAG, "ModeServer Shut down..."); }

void ModeServer::markListening(bool listening) {
    std::lock_guard<std::mutex> g(m_readyLock);
    m_iReadyState = listening ? 1 : 2;
    m_readyChanged.notify_all();
}

bool ModeServer::waitUntilListening(unsigned long ms) {
    std::unique_lock<std::mutex> g(m_readyLock);
    m_readyChanged.wait_for(g, std::chrono::milliseconds(ms), [this] { return m_iReadyState != 0; });
    return m_iReadyState == 1;
}

// --- the server thread ------------------------------------------------------------

void ModeServer::entry() {
    prctl(PR_SET_NAME, "ModeServerThread", 0, 0, 0);
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    DLNA_LOG_I(DLNA_MS_TAG, "servSock = %d", fd);
    if (fd < 0) {
        DLNA_LOG_E(DLNA_MS_TAG, "socket() error");
        markListening(false);
        return;
    }
    m_pListenSocket = new SPTCPSocket(static_cast<unsigned int>(SPKeepOffDescriptorZero(fd)));
    const bool listening = listenOnFirstFreePort();
    markListening(listening);
    const bool fatal = !listening || !serveLoop();

    for (SPTCPSocket* s : m_vWaiting) delete s;
    m_vWaiting.clear();
    closeListeningSocket(fatal);
}

bool ModeServer::listenOnFirstFreePort() {
    const int fd = m_pListenSocket->get_fd();
    int one = 1;
    if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) != 0) {
        DLNA_LOG_E(DLNA_MS_TAG, "setsockopt() SO_REUSEADDR error");
        return false;
    }
    for (uint16_t port = kFirstPort;; ++port) {
        struct sockaddr_in addr;
        memset(&addr, 0, sizeof addr);
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_ANY);
        addr.sin_port = htons(port);
        if (::bind(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof addr) == 0) {
            DLNA_LOG_I(DLNA_MS_TAG, "bind success");
            if (::listen(fd, 128) != 0) {
                DLNA_LOG_E(DLNA_MS_TAG, "listen() error");
                return false;
            }
            m_usPort.store(port);
            return true;
        }
        DLNA_LOG_I(DLNA_MS_TAG, "[%d]port is busy!", port);
        if (port == kLastPort) {
            DLNA_LOG_E(DLNA_MS_TAG, "bind() error");
            return false;
        }
    }
}

void ModeServer::closeListeningSocket(bool fatal) {
    if (m_pListenSocket == nullptr) return;
    // The wrapper goes first, then the API hears of a failure, then the
    // descriptor is closed. The wrapper hands its descriptor over instead of
    // closing it, so the lingering option below is set on the open socket and
    // the close can never hit a number the callback's thread has reused.
    const int fd = m_pListenSocket->release();
    delete m_pListenSocket;
    m_pListenSocket = nullptr;
    if (fatal) {
        if (ModeServerCallback cb = m_pCallback.load()) cb(0, eINTERNAL_EVENT_FAIL, 0, 0);
    }
    // No lingering: the port is free for the next start at once.
    struct linger off = {1, 0};
    if (setsockopt(fd, SOL_SOCKET, SO_LINGER, &off, sizeof off) != 0)
        DLNA_LOG_E(DLNA_MS_TAG, "setsockopt() SO_LINGER error");
    if (fd > 0) ::close(fd);
}

bool ModeServer::serveLoop() {
    while (!m_bStopped.load()) {
        // The listening socket and every waiting connection; the wait leaves
        // the readable ones (the platform layer's wait, which takes any
        // number of descriptors with any numbers).
        std::vector<int> readable;
        readable.push_back(m_pListenSocket->get_fd());
        for (SPTCPSocket* s : m_vWaiting) readable.push_back(s->get_fd());
        if (!SPSocketListener::waitReadable(readable, kWaitMs)) {
            if (errno == EINTR) continue;
            DLNA_LOG_E(DLNA_MS_TAG, "select() error");
            m_bStopped.store(true);
            return false;
        }
        if (readable.empty()) continue;
        const auto isReadable = [&readable](const SPTCPSocket* s) {
            return std::find(readable.begin(), readable.end(), s->get_fd()) != readable.end();
        };

        // The connections that were ready in this wait, in list order; they
        // leave the waiting list whatever happens to them.
        std::vector<SPTCPSocket*> ready, stillWaiting;
        for (SPTCPSocket* s : m_vWaiting) (isReadable(s) ? ready : stillWaiting).push_back(s);
        m_vWaiting.swap(stillWaiting);

        if (isReadable(m_pListenSocket)) {
            SPTCPSocket* client = m_pListenSocket->accept();
            if (client == nullptr) {
                SPGenericThread::sleep(kAcceptBackoffMs);
            } else {
                const struct sockaddr_in& peer = client->getRemoteAddress();
                char peerIp[INET_ADDRSTRLEN] = "";
                inet_ntop(AF_INET, &peer.sin_addr, peerIp, sizeof peerIp);
                DLNA_LOG_I(DLNA_MS_TAG, "clntSock = 0x%x", static_cast<unsigned int>(client->get_fd()));
                DLNA_LOG_I(DLNA_MS_TAG, "connection request : %s:%d", peerIp, ntohs(peer.sin_port));
                if (m_vWaiting.size() + ready.size() >= kMaxWaitingConnections) {
                    DLNA_LOG_E(DLNA_MS_TAG, "too many waiting connections, closing %s:%d", peerIp,
                               ntohs(peer.sin_port));
                    delete client;
                } else {
                    m_vWaiting.push_back(client);
                }
            }
        }

        for (size_t i = 0; i < ready.size(); ++i) {
            // A stop while serving leaves the other phones unanswered: the
            // server is going away.
            if (m_bStopped.load()) {
                delete ready[i];
                continue;
            }
            if (!serveConnection(ready[i])) {
                for (size_t j = i + 1; j < ready.size(); ++j) delete ready[j];
                return false;
            }
        }
    }
    return true;
}

bool ModeServer::serveConnection(SPTCPSocket* connection) {
    ModeHTTPHandler* handler = new (std::nothrow) ModeHTTPHandler(this, connection, m_eMode.load());
    if (handler == nullptr) {
        DLNA_LOG_E(DLNA_MS_TAG, "error : new ModeHTTPHandler() fail..");
        delete connection;
        return false;
    }
    {
        Guard g(m_oLock);
        m_vHttpHandler.push_back(handler);
    }
    if (m_iAccessMode.load() == ACCESS_MODE_NO_NEW_CP_PERMIT) DLNA_LOG_I(DLNA_MS_TAG, "ACCESS_MODE_NO_NEW_CP_PERMIT");
    const bool ok = handler->httpHandler(0);
    size_t left;
    {
        Guard g(m_oLock);
        for (size_t i = 0; i < m_vHttpHandler.size(); ++i) {
            if (m_vHttpHandler[i] != handler) continue;
            m_vHttpHandler.erase(m_vHttpHandler.begin() + static_cast<long>(i));
            break;
        }
        left = m_vHttpHandler.size();
    }
    DLNA_LOG_I(DLNA_MS_TAG, "m_vHttpHandler size = %d", static_cast<int>(left));
    if (!ok) DLNA_LOG_E(DLNA_MS_TAG, "Client httpHandler fail..");
    delete handler;  // closes the connection
    return true;
}

// --- phones arriving and leaving (server thread) ------------------------------------

bool ModeServer::notifyServiceStatus(int socketFd, eModeServerInternalEvent event, intptr_t mac, intptr_t userAgent) {
    if (m_bStopped.load()) {
        DLNA_LOG_E(DLNA_MS_TAG, "ModeServer::notifyServiceStatus() : already stopedd");
        return false;
    }
    const std::string macText = text(mac);
    if (event == eEVENT_NEW_DEVICE) {
        DLNA_LOG_I(DLNA_MS_TAG, "Server Event : New Device!!");
        if (m_iAccessMode.load() == ACCESS_MODE_NO_NEW_CP_PERMIT) {
            DLNA_LOG_I(DLNA_MS_TAG, "MS ALIVE : ClientMacAddress = %s", macText.c_str());
            Guard g(m_oLock);
            for (MSDeviceInfo* d : m_vDevices) {
                if (d->m_sMacAddr != macText) continue;
                DLNA_LOG_I(DLNA_MS_TAG, "NEW_DEVICE : Same Mac is found!!");
                return true;
            }
            return false;
        }
    } else if (event == eEVENT_REMOVED_DEVICE) {
        DLNA_LOG_I(DLNA_MS_TAG, "Server Event : Remove Device!!");
        m_iAccessMode.store(m_eMode.load() == MS_MODE_CROWD_SEND ? ACCESS_MODE_ANY_CP : ACCESS_MODE_CONFIRM_NEW_CP);
        DLNA_LOG_I(DLNA_MS_TAG, "MS BYE : ClientMacAddress = %s", macText.c_str());
        Guard g(m_oLock);
        bool found = false;
        for (size_t i = 0; i < m_vDevices.size(); ++i) {
            if (m_vDevices[i]->m_sMacAddr != macText) continue;
            DLNA_LOG_I(DLNA_MS_TAG, "REMOVED_DEVICE : Same Mac is found!!");
            delete m_vDevices[i];
            m_vDevices.erase(m_vDevices.begin() + static_cast<long>(i));
            found = true;
            break;
        }
        if (!found) {
            DLNA_LOG_I(DLNA_MS_TAG, " NOT FOUND : Ignore");
            return true;
        }
    } else {
        DLNA_LOG_I(DLNA_MS_TAG, "Undefined Event");
    }
    DLNA_LOG_I(DLNA_MS_TAG, "send Event!!");
    if (ModeServerCallback cb = m_pCallback.load()) cb(socketFd, event, mac, userAgent);
    return true;
}

bool ModeServer::setConfirmResult(int socketFd, bool accepted) {
    Guard g(m_oLock);
    ModeHTTPHandler* handler = nullptr;
    for (ModeHTTPHandler* h : m_vHttpHandler) {
        if (h->socket() != nullptr && h->socket()->get_fd() == socketFd) {
            handler = h;
            break;
        }
    }
    if (handler == nullptr) {
        DLNA_LOG_E(DLNA_MS_TAG, "Can't found HTTP handler");
        return true;
    }
    DLNA_LOG_I(DLNA_MS_TAG, "found HTTP handler");
    if (accepted)
        addDeviceInfo(new MSDeviceInfo(handler->request().m_sUserAgent, handler->request().m_sCallbackUrl,
                                       handler->peerMac()));
    handler->setConfirmResult(accepted ? 1 : 0);
    return true;
}

void ModeServer::addDeviceInfo(MSDeviceInfo* device) {
    if (device == nullptr) return;
    Guard g(m_oLock);
    m_vDevices.push_back(device);
}

void ModeServer::removeDeviceInfo() {
    Guard g(m_oLock);
    for (MSDeviceInfo* d : m_vDevices) delete d;
    m_vDevices.clear();
}

std::vector<MSDeviceInfo> ModeServer::devices() {
    Guard g(m_oLock);
    std::vector<MSDeviceInfo> out;
    for (MSDeviceInfo* d : m_vDevices) out.push_back(*d);
    return out;
}

void ModeServer::setDesciptionUrl(const char* url) {
    Guard g(m_oLock);
    m_sDescriptionUrl = url ? url : "";
}

std::string ModeServer::getDescriptionUrl() {
    Guard g(m_oLock);
    return m_sDescriptionUrl;
}

// --- mode change (UI thread) -------------------------------------------------------

bool ModeServer::sendNotifyMessage(eNETWORK_SERVER_MODE mode) {
    if (m_bStopped.load()) {
        DLNA_LOG_E(DLNA_MS_TAG, "ModeServer::sendNotifyMessage() : already stopedd");
        return false;
    }
    m_eMode.store(mode);
    DMSCDSList variables;
    MSBuildModeVariables(mode, getDescriptionUrl(), getSPServerPort(), &variables);

    // The round works on a copy of the registry taken now: the server thread
    // may register or drop phones meanwhile (a round can take many seconds),
    // and a phone that leaves during it is still sent this one event.
    std::vector<Receiver> receivers;
    {
        Guard g(m_oLock);
        for (MSDeviceInfo* d : m_vDevices) receivers.push_back({d->m_sHost, d->m_iPort, d->m_sCallbackUrl});
    }
    bool result = true;
    for (const Receiver& r : receivers) {
        DLNA_LOG_I(DLNA_MS_TAG, "HostIp = %s, port = %d", r.host.c_str(), r.port);
        if (r.callbackUrl.empty()) {
            // The phones after one without a callback are not told: the round
            // ends here.
            DLNA_LOG_I(DLNA_MS_TAG, "No CallbackURL");
            variables.RemoveAllListItem(MSEventVariable::deleteItem);
            return true;
        }
        MSHttpClient client(r.host.c_str(), r.port);
        result = client.sendNotification(&variables);
    }
    variables.RemoveAllListItem(MSEventVariable::deleteItem);
    return result;
}
