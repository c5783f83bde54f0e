#include "ModeServer/ModeHTTPHandler.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Dlna/DlnaLog.h"
#include "ModeServer/ModeServer.h"
#include "ModeServer/ModeSocketIO.h"
#include "SP/osal/SPGenericSocket.h"
#include "SP/osal/SPGenericThread.h"

namespace {

const char kHeadEnd[] = "\r\n\r\n";
const char kControlUrl[] = "/mode/control";
// Read size of one receive.
const size_t kReadChunk = 1001;
// Size of the MAC text buffer (17 characters and room to spare).
const size_t kMacBufferSize = 32;
// The send loop's overall limit: 100 hours, in practice none; the loop ends
// on errors, and each wait for room is 500 ms.
const int64_t kSendDeadlineMs = 360000000;
// Interfaces asked about a peer's MAC address: more than a camera has.
const int kMaxInterfaces = 32;

// Removes every CR LF followed by c, as deleting the last such CR LF again
// and again would: each c takes away every CR LF pair right before it,
// including pairs that only meet it once a nearer one is gone.
void removeFolds(std::string& text, char c) {
    std::string out;
    out.reserve(text.size());
    for (char ch : text) {
        if (ch == c) {
            while (out.size() >= 2 && out[out.size() - 2] == '\r' && out.back() == '\n') out.resize(out.size() - 2);
        }
        out.push_back(ch);
    }
    text.swap(out);
}

}  // namespace

const char* ModeServerModeName(int mode) {
    switch (mode) {
        case MS_MODE_IDLE: return "IDLE";
        case MS_MODE_PHONE_PULL: return "PhonePull";
        case MS_MODE_RVF: return "RVF";
        case MS_MODE_INSTANT_SEND: return "InstantSend";
        case MS_MODE_SELECTIVE_PUSH: return "SelectivePush";
        case MS_MODE_CROWD_SEND: return "CrowdSend";
        case MS_MODE_PHONE_ARCHIVE: return "PhoneArchive";
        default: return "IDLE";
    }
}

ModeHTTPHandler::ModeHTTPHandler(ModeServer* server, SPTCPSocket* socket, eNETWORK_SERVER_MODE mode)
    : m_pSocket(socket), m_pServer(server), m_eMode(mode), m_sModeName(ModeServerModeName(mode)) {}

ModeHTTPHandler::~ModeHTTPHandler() { delete m_pSocket; }

bool ModeHTTPHandler::readRequests(int timeoutMs) {
    if (m_uStopRequested.load() != 0 || m_pSocket == nullptr) return false;
    const int64_t start = SPGenericTime::getMilliseconds();
    if (timeoutMs < 0) return false;
    int64_t remaining = timeoutMs;
    char buf[kReadChunk];
    while (m_sPendingInput.find(kHeadEnd) == std::string::npos) {
        size_t got = 0;
        const modeio::ReadResult r = modeio::readSome(m_pSocket->get_fd(), buf, sizeof buf, remaining, &got);
        // A peer that closed sends nothing more, and a failed read has waited
        // out the time or met a broken connection: no head will end in time.
        if (r != modeio::READ_DATA) return false;
        m_sPendingInput.append(buf, got);
        if (m_sPendingInput.find(kHeadEnd) != std::string::npos) break;
        if (m_sPendingInput.size() > kMaxPendingBytes) return false;
        remaining = start + timeoutMs - SPGenericTime::getMilliseconds();
        if (remaining < 0 || m_uStopRequested.load() != 0) return false;
    }
    size_t end;
    while ((end = m_sPendingInput.find(kHeadEnd)) != std::string::npos) {
        std::string head = m_sPendingInput.substr(0, end + 4);
        m_sPendingInput.erase(0, end + 4);
        if (m_qRequests.size() > kMaxQueuedRequests) {
            DLNA_LOG_I(DLNA_MS_TAG, "Warning! Too many pipelined messages received - pipelining is cancelled");
            return true;
        }
        unfoldRequest(head);
        m_qRequests.push_back(std::move(head));
    }
    return true;
}

void ModeHTTPHandler::unfoldRequest(std::string& head) {
    removeFolds(head, ' ');
    removeFolds(head, '\t');
}

bool ModeHTTPHandler::httpHandler(int noNewPermit) {
    if (m_qRequests.empty()) readRequests(5000);
    if (m_qRequests.empty()) {
        if (!m_sPendingInput.empty())
            DLNA_LOG_E(DLNA_MS_TAG, "HTTP Connection: received corrupted HTTP header:\n%s", m_sPendingInput.c_str());
        else
            DLNA_LOG_E(DLNA_MS_TAG, "HTTP Connection Timeout - thread will be halted!");
        return false;
    }
    const std::string head = std::move(m_qRequests.front());
    m_qRequests.pop_front();

    if (!m_oRequest.parse(head)) {
        DLNA_LOG_E(DLNA_MS_TAG, "Invalid HTTP header:\n%s", head.c_str());
        writeReply(http::RES_BAD_REQUEST);
        return false;
    }
    if (m_oRequest.m_iMethod == ModeHttpRequest::METHOD_OTHER) {
        writeReply(http::RES_NOT_IMPLEMENTED);
        return false;
    }
    if (noNewPermit == 1) {
        writeReply(http::RES_UNAUTHORIZED);
        return false;
    }
    m_sCurrentUrl = m_oRequest.m_sUrl;
    if (!http::equalsNoCase(m_sCurrentUrl, kControlUrl)) {
        DLNA_LOG_E(DLNA_MS_TAG, "\n\n\nRES_SERVICE_UNAVAILABLE\n");
        writeReply(http::RES_SERVICE_UNAVAILABLE);
        return false;
    }

    char* mac = static_cast<char*>(calloc(kMacBufferSize, 1));
    if (mac == nullptr) {
        DLNA_LOG_E(DLNA_MS_TAG, "Error : malloc fail str");
        writeReply(http::RES_SERVICE_UNAVAILABLE);
        return false;
    }
    char peerIp[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &m_pSocket->getRemoteAddress().sin_addr, peerIp, sizeof peerIp);
    DLNA_LOG_I(DLNA_MS_TAG, "strIpAddr = %s", peerIp);
    if (!GetMacAddrFromARPCache(peerIp, mac)) {
        DLNA_LOG_E(DLNA_MS_TAG, "[httpHandler] It is failed a get MacAddress.. ");
        mac[0] = '\0';
    }
    DLNA_LOG_I(DLNA_MS_TAG, "strMacAddr = %s", mac);
    m_sPeerMac = mac;

    const HTTP_RESULT status = decideStatus(mac);
    free(mac);
    if (!writeReply(status)) {
        DLNA_LOG_E(DLNA_MS_TAG, "writeReply failed");
        return false;
    }
    return true;
}

HTTP_RESULT ModeHTTPHandler::decideStatus(const char* mac) {
    const int fd = m_pSocket->get_fd();
    const intptr_t userAgent = reinterpret_cast<intptr_t>(m_oRequest.m_sUserAgent.c_str());
    if (m_oRequest.m_uFlags & ModeHttpRequest::FLAG_NTS_ALIVE) {
        // For a new phone this returns once the user has answered (the
        // server's callback waits for it and writes confirmResult).
        if (!m_pServer || !m_pServer->notifyServiceStatus(fd, eEVENT_NEW_DEVICE, reinterpret_cast<intptr_t>(mac), userAgent))
            return http::RES_UNAUTHORIZED;
        if (m_iConfirmResult.load() != 0) {
            DLNA_LOG_I(DLNA_MS_TAG, "YES");
            return http::RES_OK;
        }
        DLNA_LOG_I(DLNA_MS_TAG, "NO");
        return http::RES_UNAUTHORIZED;
    }
    if (m_oRequest.m_uFlags & ModeHttpRequest::FLAG_NTS_BYEBYE) {
        if (m_pServer && m_pServer->notifyServiceStatus(fd, eEVENT_REMOVED_DEVICE, reinterpret_cast<intptr_t>(mac), userAgent))
            return http::RES_OK;
        return http::RES_SERVICE_UNAVAILABLE;
    }
    DLNA_LOG_I(DLNA_MS_TAG, "NOT defined message from Phone");
    return http::RES_OK;
}

bool ModeHTTPHandler::writeReply(HTTP_RESULT status) {
    std::string reply = "HTTP/1.1 " + std::to_string(static_cast<int>(status)) + " " + http::ResToStr(status) + "\r\n";
    reply += "Server: ORB Mode Server\r\n";
    reply += "Operation-Mode: " + m_sModeName + "\r\n";
    reply += "Default-URL: unavailable\r\n";
    reply += "MVERSION: 1.0\r\n";
    if (status >= 200 && status <= 299) reply += "Content-Type: text/xml;charset=utf-8 \r\nCache-Control: no-cache\r\n";
    reply += "\r\n";
    DLNA_LOG_I(DLNA_MS_TAG, "sRep= [%s]", reply.c_str());
    if (!sendData(reply.data(), reply.size())) {
        DLNA_LOG_E(DLNA_MS_TAG, "Error: can't send HTTP reply");
        return false;
    }
    return true;
}

bool ModeHTTPHandler::sendData(const char* data, unsigned long length) {
    const int64_t deadline = SPGenericTime::getMilliseconds() + kSendDeadlineMs;
    switch (modeio::sendAll(m_pSocket, data, length, deadline, nullptr)) {
        case modeio::SEND_OK: return true;
        case modeio::SEND_NONBLOCK_FAILED:
            DLNA_LOG_E(DLNA_MS_TAG, "ModeHTTPHandler::SendData - Cant set socket to non-blocking mode!");
            return false;
        case modeio::SEND_WAIT_FAILED:
            DLNA_LOG_E(DLNA_MS_TAG, "Error in ModeHTTPHandler - select() failure");
            return false;
        case modeio::SEND_TIMEOUT:
            DLNA_LOG_E(DLNA_MS_TAG, "Error in ModeHTTPHandler- TCP connection timeout.");
            return false;
        default:
            DLNA_LOG_E(DLNA_MS_TAG, "Error in ModeHTTPHandler - socket send() failure");
            return false;
    }
}

bool ModeHTTPHandler::GetMacAddrFromARPCache(const char* peerIp, char* macOut) {
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        DLNA_LOG_E(DLNA_MS_TAG, "Socket creation Failed..");
        return false;
    }
    struct in_addr peer;
    if (peerIp == nullptr) {
        DLNA_LOG_E(DLNA_MS_TAG, "local Peer IP is NULL !! I am not sure this is error or info ");
        close(fd);
        return false;
    }
    if (inet_aton(peerIp, &peer) == 0) {
        DLNA_LOG_E(DLNA_MS_TAG, "inet_aton is Failed -- Returns 0 if failed.. I am not sure this is error or info  ");
        close(fd);
        return false;
    }
    struct ifreq interfaces[kMaxInterfaces];
    struct ifconf ifc;
    memset(interfaces, 0, sizeof interfaces);
    ifc.ifc_len = sizeof interfaces;
    ifc.ifc_req = interfaces;
    if (ioctl(fd, SIOCGIFCONF, &ifc) != 0) {
        DLNA_LOG_E(DLNA_MS_TAG, "ioctl Failed for SIOCGIFCONF.. ");
        close(fd);
        return false;
    }
    const int count = ifc.ifc_len / static_cast<int>(sizeof(struct ifreq));
    for (int i = 0; i < count; ++i) {
        struct arpreq req;
        memset(&req, 0, sizeof req);
        auto* pa = reinterpret_cast<struct sockaddr_in*>(&req.arp_pa);
        pa->sin_family = AF_INET;
        pa->sin_addr = peer;
        static_assert(sizeof req.arp_dev >= IFNAMSIZ, "an interface name fits the ARP request");
        memcpy(req.arp_dev, interfaces[i].ifr_name, IFNAMSIZ);
        req.arp_dev[sizeof req.arp_dev - 1] = '\0';
        // The first interface whose cache has an entry for the peer answers,
        // complete or not: an entry still being resolved has no hardware
        // address yet and gives "00:00:00:00:00:00".
        if (ioctl(fd, SIOCGARP, &req) != 0) continue;
        DLNA_LOG_I(DLNA_MS_TAG, "ioctl for SIOCGARP -- MAC ADDR FOUND.. ");
        const auto* b = reinterpret_cast<const unsigned char*>(req.arp_ha.sa_data);
        char text[18];
        snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4], b[5]);
        DLNA_LOG_I(DLNA_MS_TAG, "[ZEBARP:GetMacAddrFromARPCache]LocalPeerMAC: %s ", text);
        memcpy(macOut, text, sizeof text);
        close(fd);
        return true;
    }
    DLNA_LOG_E(DLNA_MS_TAG, "MAC NOT FOUND...PeerIP: %s  This Request may not be proceesed if ACL enabled ", peerIp);
    close(fd);
    return false;
}
