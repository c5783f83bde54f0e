#include "SP/client/SPHTTPClientHandler.h"

#include <arpa/inet.h>
#include <strings.h>
#include <sys/prctl.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

#include "Dlna/DlnaLog.h"
#include "SP/SPDeviceName.h"
#include "SP/client/SPFileStream.h"
#include "SP/osal/SPGenericSocket.h"
#include "SP/osal/SPSocketWait.h"
#include "nasl_wifi.h"

namespace {

// Where the phone's receiver files what the camera pushes; the file name follows.
const char kPhoneFolder[] = "/mnt/sdcard/DCIM/Camera/TessalyLensmate/";
// The Host line of every announcement carries this text, whatever address
// and port the connection actually uses (the phones' receivers expect it).
const char kAnnouncedHost[] = "192.168.104.1:18100";
const char kUserAgentPrefix[] = "ORB_SP_";
const char kTurnDownPath[] = "/sp/AppControl";

// In effect no limit (100 hours): a send only ends by completing, failing or
// being stopped.
constexpr int64_t kSendDeadlineMs = 360000000;
constexpr int kFirstSendWaitMs = 500;
constexpr unsigned long kPauseMs = 5;  // before and after each chunk: paces the sender
constexpr unsigned long kStallPollMs = 100;
constexpr int kMaxStalls = 51;
constexpr int kTurnDownAttempts = 3;
constexpr int kReplyPeriods = 3;
// A reply head longer than this is not a push receiver's answer; it is
// treated like a head that never ends instead of growing without bound.
constexpr size_t kMaxReplyBytes = 64 * 1024;

int64_t nowMs() { return SPGenericTime::getMilliseconds(); }

// Blocks for at least ms milliseconds in one sleep to an absolute monotonic
// deadline. The pauses pace the body (one before and one after every chunk),
// so they run hundreds of times a second per transfer: the OS layer's sleep,
// which re-reads the wall clock through many microsecond naps, would spend
// several times the CPU on them for the same pacing.
void pause(unsigned long ms) {
    struct timespec until;
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += static_cast<time_t>(ms / 1000);
    until.tv_nsec += static_cast<long>(ms % 1000) * 1000000L;
    if (until.tv_nsec >= 1000000000L) {
        until.tv_sec += 1;
        until.tv_nsec -= 1000000000L;
    }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

std::string deviceName() { return std::string(gDeviceName, strnlen(gDeviceName, sizeof gDeviceName)); }

void removeFolds(std::string& text, char blank) {
    const char fold[] = {'\r', '\n', blank, '\0'};
    size_t pos = text.rfind(fold);
    while (pos != std::string::npos) {
        text.erase(pos, 2);
        pos = pos == 0 ? std::string::npos : text.rfind(fold, pos - 1);
    }
}

}  // namespace

std::string SPHTTPClientHandler::extensionOf(const std::string& path) {
    const size_t dot = path.rfind('.');
    return dot == std::string::npos ? std::string() : path.substr(dot + 1, 3);
}

SPHTTPClientHandler::SPHTTPClientHandler(SPClientNotifier* notifier, const char* filePath, const char* address,
                                         int port, const char* clientMac) {
    init(notifier, filePath, address, port, clientMac);
}

SPHTTPClientHandler::SPHTTPClientHandler(SPClientNotifier* notifier, const char* filePath, const char* address,
                                         int port) {
    init(notifier, filePath, address, port, "");
}

SPHTTPClientHandler::SPHTTPClientHandler(const char* address, int port) : m_sAddress(address ? address : ""), m_iPort(port) {}

SPHTTPClientHandler::SPHTTPClientHandler(SPTCPSocket* socket) : m_pSocket(socket) {}

SPHTTPClientHandler::SPHTTPClientHandler() = default;

SPHTTPClientHandler::~SPHTTPClientHandler() {
    DLNA_LOG_I(DLNA_SP_TAG, "SPHTTPClientHandler destruct !!!");
    // The body uses the socket, the stream and the strings below: it must be
    // over before they go (the base class would join only after they are gone).
    requestExit();
    join();
    delete m_pSocket;
    delete m_pStream;
}

void SPHTTPClientHandler::init(SPClientNotifier* notifier, const char* filePath, const char* address, int port,
                               const char* clientMac) {
    m_pNotifier = notifier;
    m_sFilePath = filePath ? filePath : "";
    m_sAddress = address ? address : "";
    m_iPort = port;
    m_sClientMac = clientMac ? clientMac : "";
    classifyFile();
}

void SPHTTPClientHandler::classifyFile() {
    DLNA_LOG_I(DLNA_SP_TAG, "m_sFilePath=[%s]", m_sFilePath.c_str());
    const std::string ext = extensionOf(m_sFilePath);
    if (strcasecmp(ext.c_str(), "jpg") == 0) {
        m_sMimetype = "image/jpeg";
    } else if (strcasecmp(ext.c_str(), "mp4") == 0) {
        m_sMimetype = "video/mp4";
        sVideoAttribute attr;
        memset(&attr, 0, sizeof attr);
        if (!NASLWifi_getVideoAttribute(m_sFilePath.data(), &attr)) {
            DLNA_LOG_E(DLNA_SP_TAG, "ASLWifi_getVideoAttribute Error!!!");
            memset(&attr, 0, sizeof attr);
        }
        char resolution[32];
        snprintf(resolution, sizeof resolution, "%dX%d", attr.nWidth, attr.nHeight);
        nResolution = resolution;
        m_fps = static_cast<double>(attr.nFrameRate);
        m_ulDuration = attr.ulDuration;
        DLNA_LOG_I(DLNA_SP_TAG, "nWidth = %d, m_nHeight = %d, m_ulDuration = %ul, m_fps = %f", attr.nWidth,
                   attr.nHeight, m_ulDuration, m_fps);
        DLNA_LOG_I(DLNA_SP_TAG, "nResolution = %s", nResolution.c_str());
    }
    const size_t slash = m_sFilePath.rfind('/');
    m_sFilename = slash == std::string::npos ? m_sFilePath : m_sFilePath.substr(slash + 1);
    DLNA_LOG_I(DLNA_SP_TAG, "m_sFilename=[%s]", m_sFilename.c_str());
    DLNA_LOG_I(DLNA_SP_TAG, "m_sMimetype=[%s]", m_sMimetype.c_str());
}

void SPHTTPClientHandler::setResizeParams(bool resized, char* buffer, unsigned int length) {
    m_bResized = resized;
    m_pResizedBuffer = buffer;
    m_iResizedLength = length > 0x7FFFFFFFu ? 0 : static_cast<int>(length);
    DLNA_LOG_I(DLNA_SP_TAG, "[SP] BufferPtr = 0x%x, File Size = %d , Saved file size = %d ",
               static_cast<unsigned>(reinterpret_cast<uintptr_t>(buffer)), m_iResizedLength, m_iResizedLength);
}

void SPHTTPClientHandler::post(eSPNotifyClntEvent event, int value) {
    if (m_pNotifier == nullptr) return;
    SvcClientNotifyInfo info = {value, m_sClientMac.c_str()};
    m_pNotifier->notifyServiceStatus(event, 0, &info);
}

// ---- The transfer ------------------------------------------------------------

void SPHTTPClientHandler::entry() {
    DLNA_LOG_I(DLNA_SP_TAG, ">>>>>>>>>>  Starting Streaming connection with %s", m_sClientMac.c_str());
    prctl(PR_SET_NAME, "SPClientThread", 0, 0, 0);
    unsigned char* chunk = nullptr;
    const Outcome outcome = transfer(&chunk);

    // Everything is released before the one final event: the receiver of the
    // event may delete this handler (for instance by sending the next file to
    // the same phone), so nothing after the event touches a member.
    if (m_pSocket != nullptr) m_pSocket->close();
    if (m_pStream != nullptr) {
        m_pStream->Close();
        delete m_pStream;
        m_pStream = nullptr;
    }
    free(chunk);
    m_pResizedBuffer = nullptr;
    m_pResizedOwner.reset();

    switch (outcome) {
    case OUTCOME_SUCCESS: post(EVENT_CLIENT_TRANSFER_COMPLETE, 100); break;
    case OUTCOME_STORAGE_FULL: post(EVENT_CLIENT_VOLUME_STORTAGE, 0); break;
    case OUTCOME_NOT_SUPPORTED: post(EVENT_CLIENT_NOT_SUPPORTED_FILE, 0); break;
    case OUTCOME_FAIL: post(EVENT_CLIENT_TRANSFER_FAIL, 0); break;
    }
}

SPHTTPClientHandler::Outcome SPHTTPClientHandler::transfer(unsigned char** chunk) {
    if (!openSource() || !connectToPhone()) return OUTCOME_FAIL;
    if (!sendRequests(kReplyTimeoutMs)) {
        DLNA_LOG_E(DLNA_SP_TAG, "Error: can't send HTTP request");
        return OUTCOME_FAIL;
    }
    DLNA_LOG_I(DLNA_SP_TAG, "Sent request is OK ");
    if (!receiveReply(false)) return OUTCOME_FAIL;
    DLNA_LOG_I(DLNA_SP_TAG, "Parse Response OK !!! Now Check 100 !!!");
    if (strcasecmp(m_oResponse.m_sStatusCode.c_str(), "100") != 0) return answerToAnnouncement();

    DLNA_LOG_I(DLNA_SP_TAG, " !!! Checked 100  !!! OK");
    // The start event carries no value of its own.
    post(EVENT_CLIENT_TRANSFER_START, 0);
    *chunk = static_cast<unsigned char*>(malloc(kChunkSize));
    if (*chunk == nullptr) {
        DLNA_LOG_E(DLNA_SP_TAG, "Unable to allocate Buffer ");
        return OUTCOME_FAIL;
    }
    const bool sent = m_bResized ? sendResizedBody(*chunk) : sendFileBody(*chunk);
    return sent ? finalReply() : OUTCOME_FAIL;
}

bool SPHTTPClientHandler::openSource() {
    if (m_bResized) {
        if (m_iResizedLength <= 0 || m_pResizedBuffer == nullptr) {
            DLNA_LOG_E(DLNA_SP_TAG, "Invalid Resized File size or Buffer ");
            return false;
        }
        return true;
    }
    if (m_pStream == nullptr) m_pStream = new (std::nothrow) SPFileStream;
    if (m_pStream == nullptr) {
        DLNA_LOG_E(DLNA_SP_TAG, "Error: m_pStream is NULL");
        return false;
    }
    if (!m_pStream->Open(m_sFilePath.c_str())) {
        DLNA_LOG_E(DLNA_SP_TAG, "file open error");
        return false;
    }
    DLNA_LOG_I(DLNA_SP_TAG, "file open is OK");
    return true;
}

bool SPHTTPClientHandler::phoneAddress(struct sockaddr_in* a) const {
    memset(a, 0, sizeof *a);
    a->sin_family = AF_INET;
    a->sin_port = htons(static_cast<uint16_t>(m_iPort));
    return m_iPort > 0 && m_iPort < 65536 && inet_pton(AF_INET, m_sAddress.c_str(), &a->sin_addr) == 1;
}

bool SPHTTPClientHandler::connectToPhone() {
    if (m_pSocket != nullptr) return true;  // handed in connected
    m_pSocket = new SPTCPSocket();
    struct sockaddr_in a;
    if (!phoneAddress(&a) || !m_pSocket->connect(&a, kTransferConnectSeconds)) {
        DLNA_LOG_E(DLNA_SP_TAG, "connect error");
        return false;
    }
    DLNA_LOG_I(DLNA_SP_TAG, "Connect is OK");
    return true;
}

bool SPHTTPClientHandler::receiveReply(bool afterBody) {
    if (!readResponse(kReplyTimeoutMs)) {
        if (m_sResponse.empty())
            DLNA_LOG_E(DLNA_SP_TAG, "HTTP Connection Timeout - thread will be stopped!");
        else
            DLNA_LOG_E(DLNA_SP_TAG, "HTTP Connection: received corrupted HTTP header:\n%s", m_sResponse.c_str());
        DLNA_LOG_E(DLNA_SP_TAG, "Error: can't receive HTTP reply");
        return false;
    }
    if (!afterBody) DLNA_LOG_I(DLNA_SP_TAG, "Read response is OK ");
    if (exitRequested()) {
        if (afterBody)
            DLNA_LOG_E(DLNA_SP_TAG, "Task Stop requested after readresponse");
        else
            DLNA_LOG_E(DLNA_SP_TAG, "Task Stop requested");
        return false;
    }
    if (!m_oResponse.parse(m_sResponse)) {
        DLNA_LOG_E(DLNA_SP_TAG, "Invalid HTTP header:\n%s", m_sResponse.c_str());
        return false;
    }
    return true;
}

SPHTTPClientHandler::Outcome SPHTTPClientHandler::answerToAnnouncement() {
    const int sub = m_oResponse.m_nSubErrorCode;
    if (m_oResponse.m_sStatusCode.find("500") == std::string::npos) {
        DLNA_LOG_E(DLNA_SP_TAG, "STREAM_FAIL 2...%d", sub);
        return OUTCOME_FAIL;
    }
    if (sub == 2502) {
        DLNA_LOG_E(DLNA_SP_TAG, "STREAM_EXCEED_STORAGE_SPACE");
        return OUTCOME_STORAGE_FULL;
    }
    if (sub == 2503) {
        DLNA_LOG_E(DLNA_SP_TAG, "NOT Supported File");
        return OUTCOME_NOT_SUPPORTED;
    }
    DLNA_LOG_E(DLNA_SP_TAG, "STREAM_FAIL 1...%d", sub);
    return OUTCOME_FAIL;
}

bool SPHTTPClientHandler::sendChunk(const unsigned char* chunk, unsigned long length) {
    pause(kPauseMs);
    if (!sendData(reinterpret_cast<const char*>(chunk), static_cast<long>(length))) {
        DLNA_LOG_E(DLNA_SP_TAG, "Error while sending HTTP stream");
        requestExit();
        return false;
    }
    return true;
}

bool SPHTTPClientHandler::sendFileBody(unsigned char* chunk) {
    // Tiny files have a base of 0: their percentage stays 0 instead of
    // dividing by zero.
    m_uPercentBase = m_pStream->GetSize() / 1024;
    m_uLastPercent = 0;
    uint64_t sent = 0;
    int stalls = -1;
    bool readError = false;
    while (!exitRequested()) {
        if (m_pStream->EOS()) return true;
        unsigned long got = 0;
        const bool ok = m_pStream->GetData(chunk, kChunkSize, &got);
        if (got > 0) {
            sent += got;
            const unsigned percent =
                m_uPercentBase == 0 ? 0u : static_cast<unsigned>((sent / 1024) * 100 / m_uPercentBase);
            if (percent != m_uLastPercent) post(EVENT_CLIENT_TRANSFER_PROGRESS, static_cast<int>(percent));
            if (!sendChunk(chunk, got)) return false;
            pause(kPauseMs);
            stalls = 0;
            m_uLastPercent = percent;
            continue;
        }
        if (!ok && !m_pStream->EOS()) {
            DLNA_LOG_E(DLNA_SP_TAG, "Stream FAILED.. nCurRead = %ld , m_pStream->EOS() = %d ", static_cast<long>(got),
                       m_pStream->EOS() ? 1 : 0);
            readError = true;
            break;
        }
        // Nothing to send yet (a source that is still being written).
        pause(kStallPollMs);
        if (++stalls >= kMaxStalls) {
            DLNA_LOG_E(DLNA_SP_TAG, "Error: Live stream buffer has stuck!");
            return false;
        }
    }
    DLNA_LOG_E(DLNA_SP_TAG, "Error Check = %d , Thread Stopped = %d ", readError ? 1 : 0, exitRequested() ? 1 : 0);
    DLNA_LOG_E(DLNA_SP_TAG, "Error reading file stream");
    m_pStream->Close();
    return false;
}

bool SPHTTPClientHandler::sendResizedBody(unsigned char* chunk) {
    DLNA_LOG_I(DLNA_SP_TAG, "Send resized file with length %ld", static_cast<long>(m_iResizedLength));
    const long base = m_iResizedLength / 1024;
    const long length = m_iResizedLength;
    long offset = 0;
    m_uLastPercent = 0;
    while (!exitRequested()) {
        const long n = length - offset < static_cast<long>(kChunkSize) ? length - offset : static_cast<long>(kChunkSize);
        memcpy(chunk, m_pResizedBuffer + offset, static_cast<size_t>(n));
        offset += n;
        const unsigned percent = base == 0 ? 0u : static_cast<unsigned>((offset / 1024) * 100 / base);
        if (percent != m_uLastPercent) post(EVENT_CLIENT_TRANSFER_PROGRESS, static_cast<int>(percent));
        if (!sendData(reinterpret_cast<const char*>(chunk), n)) {
            DLNA_LOG_E(DLNA_SP_TAG, "Error while sending HTTP stream");
            requestExit();
            return false;
        }
        if (offset == length) return true;
        pause(kPauseMs);
        m_uLastPercent = percent;
    }
    DLNA_LOG_E(DLNA_SP_TAG, "Error Check = %d , Thread Stopped = %d ", 0, 1);
    DLNA_LOG_E(DLNA_SP_TAG, "Error reading file stream");
    return false;
}

SPHTTPClientHandler::Outcome SPHTTPClientHandler::finalReply() {
    // The answer to the announcement is dropped, but not what followed it:
    // a phone may send its final reply to an empty body in the same segment
    // as its 100, and that reply must not be lost.
    const size_t end = m_sResponse.find("\r\n\r\n");
    m_sResponse.erase(0, end == std::string::npos ? std::string::npos : end + 4);
    if (exitRequested() || !receiveReply(true)) return OUTCOME_FAIL;
    if (strcasecmp(m_oResponse.m_sStatusCode.c_str(), "200") != 0) {
        DLNA_LOG_E(DLNA_SP_TAG, "error response: %s", m_oResponse.m_sStatusCode.c_str());
        return OUTCOME_FAIL;
    }
    DLNA_LOG_I(DLNA_SP_TAG, "Response is OK: %s Received ", m_oResponse.m_sStatusCode.c_str());
    return OUTCOME_SUCCESS;
}

// ---- Wire operations -----------------------------------------------------------

bool SPHTTPClientHandler::sendRequests(int) {
    char length[32];
    if (m_bResized)
        snprintf(length, sizeof length, "%d", m_iResizedLength);
    else
        snprintf(length, sizeof length, "%" PRId64, static_cast<int64_t>(m_pStream ? m_pStream->GetSize() : 0));
    std::string request = "POST ";
    request += kPhoneFolder + m_sFilename + " HTTP/1.1 \r\n";
    request += std::string("Host: ") + kAnnouncedHost + "\r\n";
    request += std::string("User-Agent: ") + kUserAgentPrefix + deviceName() + "\r\n";
    request += "Content-Type: " + m_sMimetype + "\r\n";
    request += std::string("Content-Length: ") + length + "\r\n";
    request += "Connection: Close\r\n";
    request += "Expect: 100-continue\r\n";
    if (strcasecmp(m_sMimetype.c_str(), "video/mp4") == 0) {
        char fps[64];
        snprintf(fps, sizeof fps, "%f", m_fps);
        request += "Resolution: " + nResolution + "\r\n";
        request += std::string("Framerate: ") + fps + "\r\n";
        // The phones' receivers know this line as it always was: the
        // duration went through the format "ld", which prints those two
        // letters and no number.
        request += "Duration: ld\r\n";
    }
    request += "\r\n";
    DLNA_LOG_I(DLNA_SP_TAG, "Sending request:%s", request.c_str());
    if (!sendData(request.data(), static_cast<long>(request.size()))) {
        DLNA_LOG_E(DLNA_SP_TAG, "Error: can't send HTTP reply");
        return false;
    }
    return true;
}

bool SPHTTPClientHandler::sendData(const char* data, long length) {
    if (m_pSocket == nullptr || (!m_pSocket->isNonBlocking() && !m_pSocket->SetNonBlocking(true))) {
        DLNA_LOG_E(DLNA_SP_TAG, "SPHTTPClientHandler::SendData - Cant set socket to non-blocking mode!");
        return false;
    }
    if (length <= 0) return true;
    const int64_t deadline = nowMs() + kSendDeadlineMs;
    int64_t left = kFirstSendWaitMs;
    long remaining = length;
    while (left >= 0) {
        if (exitRequested()) {
            DLNA_LOG_E(DLNA_SP_TAG, "[SPHTTPClientHandler::sendData] Sending operaition is cancelled!");
            return false;
        }
        // Waits of a second at most, so a stop request is seen within one.
        bool writable = false;
        const int rc = SPWaitWritable(m_pSocket->get_fd(), left < 1000 ? left : 1000, &writable);
        if (rc < 0 && errno != EINTR) {
            DLNA_LOG_E(DLNA_SP_TAG, "Error in SPHTTPClientHandler - select() failure");
            return false;
        }
        if (rc > 0) {
            unsigned long sent = 0;
            if (!m_pSocket->send(data + (length - remaining), static_cast<unsigned long>(remaining), &sent)) {
                DLNA_LOG_E(DLNA_SP_TAG, "Error in SPHTTPClientHandler - socket send() failure");
                return false;
            }
            remaining -= static_cast<long>(sent);
            if (remaining <= 0) return true;
        }
        left = deadline - nowMs();
    }
    DLNA_LOG_E(DLNA_SP_TAG, "Error in SPHTTPClientHandler- TCP connection timeout.");
    return false;
}

bool SPHTTPClientHandler::readResponse(int timeoutMs) {
    int64_t start = nowMs();
    int64_t left = timeoutMs;
    int reads = 0;
    if (m_sResponse.find("\r\n\r\n") != std::string::npos) {
        DLNA_LOG_I(DLNA_SP_TAG, "put messages to the queue");
        return true;  // already received with the previous reply
    }
    while (m_pSocket != nullptr && !exitRequested()) {
        // A period whose time is used up (to the millisecond) is over: reading
        // again with no time left would only count one more read and defeat
        // the three-period limit.
        if (left <= 0) {
            if (reads == kReplyPeriods) {
                DLNA_LOG_E(DLNA_SP_TAG, "Timedout.. No response");
                return false;
            }
            // Once more than three reads were made (the reply trickles in),
            // the wait goes on until the head is complete or a stop comes.
            start = nowMs();
            left = timeoutMs;
        }
        if (!awaitReply(left)) break;  // a stop request
        left = start + timeoutMs - nowMs();
        char buf[kReplyReadSize + 1];
        unsigned long got = 0;
        const bool ok = m_pSocket->read(buf, kReplyReadSize, &got, static_cast<unsigned long>(left > 0 ? left : 0));
        ++reads;
        if (ok && got == 0) break;  // the phone closed: no reply can follow
        if (got > 0) {
            buf[got] = '\0';
            m_sResponse.append(buf, got);
            if (m_sResponse.find("\r\n\r\n") != std::string::npos) {
                DLNA_LOG_I(DLNA_SP_TAG, "put messages to the queue");
                return true;
            }
            if (m_sResponse.size() > kMaxReplyBytes) break;
        }
        left = start + timeoutMs - nowMs();
    }
    DLNA_LOG_E(DLNA_SP_TAG, " Exiting from readResponse: No Data Read");
    return false;
}

bool SPHTTPClientHandler::awaitReply(int64_t ms) {
    // In slices of a second at most: a phone that stays silent must not keep
    // a stopped transfer (and the terminate joining it) for a whole reply
    // period. Readable, failed or out of time: the read that follows tells.
    const int64_t deadline = nowMs() + ms;
    for (;;) {
        if (exitRequested()) return false;
        const int64_t left = deadline - nowMs();
        if (left <= 0) return true;
        bool readable = false;
        const int rc = SPWaitReadable(m_pSocket->get_fd(), left < 1000 ? left : 1000, &readable);
        if (rc > 0 || (rc < 0 && errno != EINTR)) return true;
    }
}


bool SPHTTPClientHandler::isRequestPending() {
    if (m_pSocket == nullptr || m_pSocket->get_fd() <= 0) return false;
    bool readable = false;
    return SPWaitReadable(m_pSocket->get_fd(), 0, &readable) > 0 && readable;
}

void SPHTTPClientHandler::unfoldRequest(std::string& text) {
    removeFolds(text, ' ');
    removeFolds(text, '\t');
}

bool SPHTTPClientHandler::turnDownRequestHandler() {
    delete m_pSocket;
    m_pSocket = new SPTCPSocket();
    DLNA_LOG_I(DLNA_SP_TAG, "<<=== [Selective Push] connection ===== ");
    DLNA_LOG_I(DLNA_SP_TAG, "connection IP        : [%s]", m_sAddress.c_str());
    DLNA_LOG_I(DLNA_SP_TAG, "connection Port      : [%d]", m_iPort);
    DLNA_LOG_I(DLNA_SP_TAG, "===== [Selective Push] connection ====>> ");
    struct sockaddr_in a;
    if (!phoneAddress(&a) || !m_pSocket->connect(&a, kTurnDownConnectSeconds)) {
        DLNA_LOG_E(DLNA_SP_TAG, "[SP] connect error");
        m_pSocket->close();
        return false;
    }
    std::string request = "HEAD ";
    request += std::string(kTurnDownPath) + " HTTP/1.1 \r\n";
    request += "Host: " + m_sAddress + ":" + std::to_string(m_iPort) + "\r\n";
    request += std::string("User-Agent: ") + kUserAgentPrefix + deviceName() + "\r\n";
    request += "Connection: Close\r\n";
    request += "Command: Getout\r\n";
    request += "HOST-Pnumber:none\r\n";
    request += "\r\n";
    DLNA_LOG_I(DLNA_SP_TAG, "<<======_ Selective Push Turndown Request info ======= ");
    DLNA_LOG_I(DLNA_SP_TAG, "%s", request.c_str());
    DLNA_LOG_I(DLNA_SP_TAG, "=======================================>> ");
    for (int attempt = 0; attempt < kTurnDownAttempts; ++attempt) {
        if (sendData(request.data(), static_cast<long>(request.size()))) {
            m_pSocket->close();
            return true;
        }
        DLNA_LOG_E(DLNA_SP_TAG, "[SP] can't send HTTP Turn down request ");
    }
    DLNA_LOG_E(DLNA_SP_TAG, "[SP] Maximum retries attempted ");
    m_pSocket->close();
    return false;
}
