#include "ModeServer/MSHttpClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cerrno>
#include <cstring>

#include "Dlna/DlnaLog.h"
#include "ModeServer/MSEventVariable.h"
#include "ModeServer/ModeSocketIO.h"
#include "SP/osal/SPGenericSocket.h"
#include "SP/osal/SPGenericThread.h"

namespace {

const int kConnectSeconds = 10;
const int kSendAttempts = 3;
const int64_t kSendLimitMs = 5000;
const int kReplyWaitMs = 5000;
const size_t kReadChunk = 1025;
const char kSeparator[] = "--------------------------------";

}  // namespace

MSHttpClient::MSHttpClient(const char* host, int port) : m_sHost(host ? host : ""), m_iPort(port) {}

MSHttpClient::~MSHttpClient() {
    DLNA_LOG_I(DLNA_MS_TAG, "~MSHttpClient()");
    delete m_pSocket;
}

bool MSHttpClient::sendNotification(DMSCDSList* variables) {
    std::string body;
    EventMsgGenerator::createNotifyXMLBody(variables, body);
    DLNA_LOG_I(DLNA_MS_TAG, "%s", kSeparator);
    DLNA_LOG_I(DLNA_MS_TAG, "connection IP        : [%s]", m_sHost.c_str());
    DLNA_LOG_I(DLNA_MS_TAG, "connection Port      : [%d]", m_iPort);
    DLNA_LOG_I(DLNA_MS_TAG, "%s", kSeparator);
    DLNA_LOG_I(DLNA_MS_TAG, "Body : %s", body.c_str());

    if (!connectToReceiver()) {
        DLNA_LOG_E(DLNA_MS_TAG, "[MSHttpClient::sendNotification] connect error");
        return false;
    }
    if (!sendRequests(body.data(), static_cast<int>(body.size()))) {
        DLNA_LOG_E(DLNA_MS_TAG, "can't send HTTP request");
        return false;
    }
    DLNA_LOG_I(DLNA_MS_TAG, "Send Requst done!");
    DLNA_LOG_I(DLNA_MS_TAG, "Send Body done and  wait for resonse");
    if (!readResponse(kReplyWaitMs)) {
        DLNA_LOG_E(DLNA_MS_TAG, "can't receive HTTP reply");
        return false;
    }
    DLNA_LOG_I(DLNA_MS_TAG, "Read Respose done");
    return true;
}

bool MSHttpClient::connectToReceiver() {
    delete m_pSocket;
    m_pSocket = new SPTCPSocket();
    // A phone whose CALLBACK gave no address or port must not cause a
    // connection attempt anywhere else (an empty host would otherwise become
    // the broadcast address, port 0 is nobody's).
    struct sockaddr_in to;
    memset(&to, 0, sizeof to);
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(m_iPort));
    if (inet_aton(m_sHost.c_str(), &to.sin_addr) == 0 || m_iPort <= 0 || m_iPort > 65535) return false;
    return m_pSocket->connect(&to, kConnectSeconds);
}

std::string MSHttpClient::requestHead(const std::string& contentLength) const {
    // The request line ends in a blank before its CR LF, and the path is
    // always "/eventCallback": what phone apps have always been sent.
    return "NOTIFY /eventCallback HTTP/1.1 \r\nHost: " + m_sHost + ":" + std::to_string(m_iPort) +
           "\r\nUser-Agent: Tessaly mode server\r\nContent-Length: " + contentLength +
           "\r\nConnection: Close\r\n\r\n";
}

bool MSHttpClient::sendRequests(const char* body, int length) {
    std::string request = requestHead(std::to_string(length));
    if (body != nullptr && length > 0) request.append(body, static_cast<size_t>(length));
    return sendWithRetries(request);
}

bool MSHttpClient::sendRequests(int /*length*/) { return sendWithRetries(requestHead("")); }

bool MSHttpClient::sendWithRetries(const std::string& request) {
    DLNA_LOG_I(DLNA_MS_TAG, "Request : [%s]", request.c_str());
    for (int attempt = 1; attempt <= kSendAttempts; ++attempt) {
        if (sendData(request.data(), static_cast<long>(request.size()))) return true;
        DLNA_LOG_E(DLNA_MS_TAG, "[ MSHttpClient::sendRequests] can't send HTTP request ");
    }
    DLNA_LOG_E(DLNA_MS_TAG, "[ MSHttpClient::sendRequests] Maximum retries attempted ");
    return false;
}

bool MSHttpClient::sendData(const char* data, long length) {
    if (m_pSocket == nullptr || length < 0) return false;
    const int64_t deadline = SPGenericTime::getMilliseconds() + kSendLimitMs;
    switch (modeio::sendAll(m_pSocket, data, static_cast<unsigned long>(length), deadline, &m_iCancelled)) {
        case modeio::SEND_OK: return true;
        case modeio::SEND_NONBLOCK_FAILED:
            DLNA_LOG_E(DLNA_MS_TAG, "[ MSHttpClient::sendData] Cant set socket to non-blocking mode! ");
            return false;
        case modeio::SEND_CANCELLED:
            DLNA_LOG_E(DLNA_MS_TAG, "[ MSHttpClient::sendData] Sending operaition is cancelled! #4 ");
            return false;
        case modeio::SEND_WAIT_FAILED:
            DLNA_LOG_E(DLNA_MS_TAG, "[ MSHttpClient::sendData] select() failure with : %s  !!!", strerror(errno));
            return false;
        case modeio::SEND_TIMEOUT:
            DLNA_LOG_E(DLNA_MS_TAG, "[ MSHttpClient::sendData] TCP connection timeout.");
            return false;
        default:
            DLNA_LOG_E(DLNA_MS_TAG, "[ MSHttpClient::sendData] socket send() failure ");
            return false;
    }
}

bool MSHttpClient::readResponse(int timeoutMs) {
    if (m_pSocket == nullptr) return false;
    const int64_t start = SPGenericTime::getMilliseconds();
    char buf[kReadChunk + 1];
    for (;;) {
        const int64_t remaining = start + timeoutMs - SPGenericTime::getMilliseconds();
        if (remaining < 0) {
            DLNA_LOG_E(DLNA_MS_TAG, "[ MSHttpClient::readResponse] wait timeout.");
            return false;
        }
        size_t got = 0;
        const modeio::ReadResult r = modeio::readSome(m_pSocket->get_fd(), buf, kReadChunk, remaining, &got);
        if (r == modeio::READ_TIMEOUT) {
            DLNA_LOG_E(DLNA_MS_TAG, "[ MSHttpClient::readResponse] wait timeout.");
            return false;
        }
        // A receiver that closed before its head ended sent no answer.
        if (r != modeio::READ_DATA || m_sResponse.size() + got > kMaxResponseBytes) {
            DLNA_LOG_E(DLNA_MS_TAG, "[ MSHttpClient::readResponse] read response fail");
            return false;
        }
        buf[got] = '\0';
        m_sResponse.append(buf, got);
        DLNA_LOG_I(DLNA_MS_TAG, "buf = [%s]", buf);
        if (m_sResponse.find("\r\n\r\n") != std::string::npos) {
            DLNA_LOG_I(DLNA_MS_TAG, "[ MSHttpClient::readResponse] read response sucess.");
            return true;
        }
    }
}
