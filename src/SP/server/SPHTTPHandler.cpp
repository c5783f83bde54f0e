#include "SP/server/SPHTTPHandler.h"


#include <cerrno>
#include <cstdint>

#include "Dlna/DlnaLog.h"
#include "SP/SPDeviceName.h"
#include "SP/osal/SPGenericSocket.h"
#include "SP/osal/SPSocketWait.h"
#include "SP/osal/SPGenericThread.h"
#include "zeb_stack.h"

namespace {

const char kHeadEnd[] = "\r\n\r\n";
// The send loop's overall limit: 100 hours, in practice none; the loop ends on
// errors, and each wait for writability is 500 ms.
const int64_t kSendDeadlineMs = 360000000;

// Removes every CR LF followed by c, searching from the end, so that a CR LF
// uncovered by a removal is looked at too.
void removeFolds(std::string& text, char c) {
    std::string reversed;
    reversed.reserve(text.size());
    for (size_t i = text.size(); i-- > 0;) {
        const size_t n = reversed.size();
        if (text[i] == '\r' && n >= 2 && reversed[n - 1] == '\n' && reversed[n - 2] == c) {
            reversed.pop_back();  // drop the LF, skip the CR
            continue;
        }
        reversed.push_back(text[i]);
    }
    text.assign(reversed.rbegin(), reversed.rend());
}

}  // namespace

SPHTTPHandler::SPHTTPHandler(SPStatusNotifier* notifier, SPTCPSocket* socket)
    : m_pSocket(socket), m_pNotifier(notifier) {}

SPHTTPHandler::~SPHTTPHandler() = default;

int SPHTTPHandler::readRequests(int ms) {
    const int64_t start = SPGenericTime::getMilliseconds();
    if (m_bStop.load() || ms < 0 || m_pSocket == nullptr) return 0;
    int64_t remaining = ms;
    char buf[1001];
    for (;;) {
        unsigned long got = 0;
        const bool ok = m_pSocket->read(buf, sizeof buf, &got, static_cast<unsigned long>(remaining));
        if (ok && got > 0) m_sRecvBuffer.append(buf, got);
        if (m_sRecvBuffer.find(kHeadEnd) != std::string::npos) break;
        // A failed read has waited out the time or met a broken connection,
        // and a closed peer sends nothing more: either way no head will end
        // within the time, so stop now instead of spinning until it is up.
        if (!ok || got == 0) return 0;
        if (m_sRecvBuffer.size() > kMaxPendingBytes) return 0;
        if (m_bStop.load()) return 0;
        remaining = start + ms - SPGenericTime::getMilliseconds();
        if (remaining < 0) return 0;
    }
    size_t end;
    while ((end = m_sRecvBuffer.find(kHeadEnd)) != std::string::npos) {
        std::string request = m_sRecvBuffer.substr(0, end + 4);
        m_sRecvBuffer.erase(0, end + 4);
        if (m_qRequests.size() > kMaxQueuedRequests) {
            DLNA_LOG_I(DLNA_SP_TAG, "Warning! Too many pipelined messages received - pipelining is cancelled");
            return 1;
        }
        unfoldRequest(request);
        DLNA_LOG_I(DLNA_SP_TAG, "<== received data: \n[%s]", request.c_str());
        m_qRequests.push_back(std::move(request));
    }
    return 1;
}

void SPHTTPHandler::unfoldRequest(std::string& text) {
    removeFolds(text, ' ');
    removeFolds(text, '\t');
}

int SPHTTPHandler::httpHandler(char* mac) {
    if (m_qRequests.empty() && !readRequests(5000)) {
        if (!m_sRecvBuffer.empty())
            DLNA_LOG_E(DLNA_SP_TAG, "HTTP Connection: received corrupted HTTP header:\n%s", m_sRecvBuffer.c_str());
        else
            DLNA_LOG_E(DLNA_SP_TAG, "HTTP Connection Timeout - thread will be stopped!");
        return 1;
    }
    std::string text = std::move(m_qRequests.front());
    m_qRequests.pop_front();

    if (!m_oRequest.parse(text)) {
        DLNA_LOG_E(DLNA_SP_TAG, "Invalid HTTP header:\n%s", text.c_str());
        writeReply(http::RES_BAD_REQUEST);
        return 1;
    }
    if (m_oRequest.m_nMethod != SP_HTTP_Request::METHOD_GET && m_oRequest.m_nMethod != SP_HTTP_Request::METHOD_HEAD) {
        writeReply(http::RES_NOT_IMPLEMENTED);
        return 1;
    }
    m_sUrl = m_oRequest.m_sUrl;
    DLNA_LOG_I(DLNA_SP_TAG, "m_url = %s", m_sUrl.c_str());
    if (!http::equalsNoCase(m_sUrl, "/sp/control")) {
        DLNA_LOG_E(DLNA_SP_TAG, "RES_SERVICE_UNAVAILABLE");
        writeReply(http::RES_SERVICE_UNAVAILABLE);
        return 1;
    }
    if (mac == nullptr || !GetClientMACAddressFromIpAddr(m_oRequest.m_sDataServerAddr.c_str(), mac)) return 1;

    const char* address = m_oRequest.m_sDataServerAddr.c_str();
    if (m_oRequest.m_uFlags & http::FLAG_NTS_ALIVE) {
        DLNA_LOG_I(DLNA_SP_TAG, "ALIVE Msg received from [%s] [%s]", address, mac);
        SvcSPNotifyInfo info{m_oRequest.m_nDataServerPort, mac, address, m_oRequest.m_sHostPNumber.c_str(),
                             m_oRequest.m_nAccessMethod};
        const int rc = m_pNotifier ? m_pNotifier->notifyServiceStatus(EVENT_DEVICE_NEW, 0, &info) : 0;
        DLNA_LOG_I(DLNA_SP_TAG, "Notifyservice return code = %d", rc);
        if (rc != 0) return 0;  // the user's answer is written later
        if (writeReply(http::RES_SERVICE_UNAVAILABLE)) {
            DLNA_LOG_E(DLNA_SP_TAG, "Failed to Add the device into AccessList Returinging HTTP UNAVAILABLE ");
            return 3;
        }
        DLNA_LOG_E(DLNA_SP_TAG, "writeReply failed");
        m_pSocket->close();
        return 1;
    }
    if (m_oRequest.m_uFlags & http::FLAG_NTS_BYEBYE) {
        DLNA_LOG_I(DLNA_SP_TAG, "BYEBYE Msg received from [%s] [%s]", address, mac);
        SvcSPNotifyInfo info{m_oRequest.m_nDataServerPort, mac, address, m_oRequest.m_sHostPNumber.c_str(),
                             m_oRequest.m_nAccessMethod};
        if (m_pNotifier) m_pNotifier->notifyServiceStatus(EVENT_DEVICE_REMOVED, 0, &info);
        m_pSocket->close();
        return 2;
    }
    return 0;
}

int SPHTTPHandler::writeReply(http::RESULT code) {
    std::string reply = "HTTP/1.1 " + std::to_string(static_cast<int>(code)) + " " + http::ResToStr(code) + "\r\n";
    reply += "Server: ORB_SP_";
    reply += gDeviceName;
    reply += "\r\n";
    if (code >= 200 && code <= 299) reply += "Content-Type: text/xml;charset=utf-8 \r\nCache-Control: no-cache\r\n";
    reply += "\r\n";
    DLNA_LOG_I(DLNA_SP_TAG, "sRep= %s", reply.c_str());
    if (!sendData(reply.data(), reply.size())) {
        DLNA_LOG_E(DLNA_SP_TAG, "Error: can't send HTTP reply");
        return 0;
    }
    return 1;
}

void SPHTTPHandler::httpSendUserResponseToClient(bool accepted) {
    if (accepted) {
        if (writeReply(http::RES_OK)) {
            DLNA_LOG_I(DLNA_SP_TAG, "writeReply SUCCESS to Client");
            return;
        }
    } else if (writeReply(http::RES_UNAUTHORIZED)) {
        DLNA_LOG_I(DLNA_SP_TAG, "writeReply RES_UNAUTHORIZED to Client");
        return;
    }
    DLNA_LOG_E(DLNA_SP_TAG, "[SP] Write Failed.. ");
}

int SPHTTPHandler::GetClientMACAddressFromIpAddr(const char* ip, char* mac) {
    if (ip == nullptr || mac == nullptr) return 0;
    return ZEBGetMacAddress::GetMacAddrFromARPCache(ip, mac) ? 1 : 0;
}

int SPHTTPHandler::sendData(const char* data, unsigned long len) {
    if (m_pSocket == nullptr || !m_pSocket->SetNonBlocking(true)) {
        DLNA_LOG_E(DLNA_SP_TAG, "Cant set socket to non-blocking mode!");
        return 0;
    }
    const int64_t deadline = SPGenericTime::getMilliseconds() + kSendDeadlineMs;
    unsigned long left = len;
    while (left > 0) {
        bool writable = false;
        const int rc = SPWaitWritable(m_pSocket->get_fd(), 500, &writable);
        if (rc < 0 && errno != EINTR) {
            DLNA_LOG_E(DLNA_SP_TAG, "Error in SP : select() failure");
            return 0;
        }
        if (rc > 0) {
            unsigned long sent = 0;
            if (!m_pSocket->send(data + (len - left), left, &sent)) {
                DLNA_LOG_E(DLNA_SP_TAG, "Error in SP :  socket send() failure");
                return 0;
            }
            left -= sent;
            if (left == 0) return 1;
        }
        if (SPGenericTime::getMilliseconds() > deadline) {
            DLNA_LOG_E(DLNA_SP_TAG, "Error in SP : TCP connection timeout.");
            return 0;
        }
    }
    return 1;
}
