// Serves one accepted phone connection of the mode server: reads request
// heads (splitting pipelined ones), parses one, decides what a request to
// "/mode/control" means (an announcement, a goodbye or a plain query of the
// mode), lets the server register or drop the phone, and answers with the
// fixed headers that tell the phone the camera's operation mode. Phones are
// known by MAC address, which it looks up in the kernel's ARP cache.
#ifndef CAMWIFI_MODE_HTTP_HANDLER_H
#define CAMWIFI_MODE_HTTP_HANDLER_H

#include <atomic>
#include <cstddef>
#include <deque>
#include <string>

#include "ModeServer/ModeHttpRequest.h"
#include "ModeServer/ModeServerTypes.h"
#include "SP/http.h"

class ModeServer;
class SPTCPSocket;

// The numeric HTTP status of a reply; reason phrases as the push server's.
using HTTP_RESULT = http::RESULT;

class ModeHTTPHandler {
public:
    // Longest request head kept while waiting for its blank line. Phones send
    // a few hundred bytes; 64 KiB is the most any common HTTP server accepts
    // for a whole head. A peer that sends more without ending its head is
    // treated like one whose head never ends (no reply).
    static constexpr size_t kMaxPendingBytes = 64 * 1024;
    // More queued heads than this cancel pipelining.
    static constexpr size_t kMaxQueuedRequests = 100;

    // Takes ownership of socket (deleted, and so closed, with the handler).
    ModeHTTPHandler(ModeServer* server, SPTCPSocket* socket, eNETWORK_SERVER_MODE mode);
    virtual ~ModeHTTPHandler();

    // Serves one request. noNewPermit 1 answers 401 to every well-formed
    // GET or HEAD. True when the request was answered as the protocol wants
    // (including a refusal); false on errors (no head, bad request, wrong
    // method or target, reply not sent).
    bool httpHandler(int noNewPermit);
    // Reads until at least one complete head is queued (true), or the time is
    // up, the peer closed or sent more than kMaxPendingBytes without ending
    // its head (false).
    bool readRequests(int timeoutMs);
    // Joins folded header lines: removes every CR LF followed by a blank,
    // then every CR LF followed by a tab.
    void unfoldRequest(std::string& head);
    // Builds the reply for status and sends it.
    bool writeReply(HTTP_RESULT status);
    // Sends all of data (non-blocking writes, each waited for up to 500 ms).
    bool sendData(const char* data, unsigned long length);
    // MAC text of peerIp from the kernel's ARP cache into macOut (at least 18
    // bytes, zeroed by the caller).
    bool GetMacAddrFromARPCache(const char* peerIp, char* macOut);

    SPTCPSocket* socket() const { return m_pSocket; }
    const ModeHttpRequest& request() const { return m_oRequest; }
    const std::string& peerMac() const { return m_sPeerMac; }
    int confirmResult() const { return m_iConfirmResult.load(); }
    // Written by the server when the user answered for this phone.
    void setConfirmResult(int accepted) { m_iConfirmResult.store(accepted); }
    const std::string& modeName() const { return m_sModeName; }
    size_t queuedRequests() const { return m_qRequests.size(); }
    const std::string& pendingInput() const { return m_sPendingInput; }

private:
    ModeHTTPHandler(const ModeHTTPHandler&) = delete;
    ModeHTTPHandler& operator=(const ModeHTTPHandler&) = delete;

    HTTP_RESULT decideStatus(const char* mac);

    std::atomic<uint16_t> m_uStopRequested{0};  // set: reading stops at once (nothing sets it here)
    SPTCPSocket* m_pSocket;                     // the phone's connection; owned
    ModeHttpRequest m_oRequest;                 // the request being served
    std::string m_sCurrentUrl;                  // its target
    std::deque<std::string> m_qRequests;        // complete, unfolded heads waiting, oldest first
    std::string m_sPendingInput;                // bytes read but not yet a complete head
    ModeServer* m_pServer;                      // the owning server
    [[maybe_unused]] eNETWORK_SERVER_MODE m_eMode;  // operation mode when the handler was made (kept, unread)
    std::string m_sModeName;                    // its text for "Operation-Mode"
    std::atomic<int> m_iConfirmResult{1};       // the user's answer; 1 (accepted) until told otherwise
    std::string m_sPeerMac;                     // the phone's MAC text (empty when unknown)
};

#endif
