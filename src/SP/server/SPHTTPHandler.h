// Serves one accepted connection of the push server: reads and queues the
// phone's requests to "/sp/control", handles one per call (an announcement
// "alive" or a departure "byebye"), reports the phone to the server and
// writes the reply. The answer to an announcement is written later, when the
// user has decided.
#ifndef CAMWIFI_SP_HTTP_HANDLER_H
#define CAMWIFI_SP_HTTP_HANDLER_H

#include <atomic>
#include <deque>
#include <string>

#include "SP/SP_HTTP_Request.h"
#include "SP/http.h"
#include "SP/server/SPStatusNotifier.h"

class SPTCPSocket;

class SPHTTPHandler {
public:
    // Longest head kept while waiting for its empty line. Phones send a few
    // hundred bytes; a peer that sends more without ending its head is
    // treated like one whose head never ends.
    static constexpr size_t kMaxPendingBytes = 256 * 1024;
    // More queued requests than this cancel pipelining.
    static constexpr size_t kMaxQueuedRequests = 100;

    // The socket stays owned by the caller.
    SPHTTPHandler(SPStatusNotifier* notifier, SPTCPSocket* socket);
    virtual ~SPHTTPHandler();

    // Reads until at least one complete request is queued (1) or the time is
    // up, the peer closed or the handler was stopped (0).
    int readRequests(int ms);
    // Joins folded header lines: removes every CR LF followed by a blank,
    // then every CR LF followed by a tab.
    void unfoldRequest(std::string& text);
    // Handles one request. 0: announcement waiting for the user, or nothing
    // to do; 1: error or time-out; 2: the phone left (connection closed);
    // 3: refused with 503. mac receives the phone's MAC text (zeroed buffer
    // of at least 18 bytes).
    int httpHandler(char* mac);
    // Builds the reply for code and sends it; 1 sent, 0 failed.
    int writeReply(http::RESULT code);
    // The user's answer to the phone: 200 when accepted, else 401.
    void httpSendUserResponseToClient(bool accepted);
    // MAC text of ip from the stack's ARP cache (no terminating zero written).
    int GetClientMACAddressFromIpAddr(const char* ip, char* mac);
    // Sends all of data without blocking forever on one write; 1 all sent.
    int sendData(const char* data, unsigned long len);

    // Makes a running readRequests give up at its next look.
    void stop() { m_bStop.store(true); }
    SPTCPSocket* socket() const { return m_pSocket; }
    size_t queuedRequests() const { return m_qRequests.size(); }

private:
    SPHTTPHandler(const SPHTTPHandler&) = delete;
    SPHTTPHandler& operator=(const SPHTTPHandler&) = delete;

    std::atomic<bool> m_bStop{false};       // set to make reading give up at once
    SPTCPSocket* m_pSocket;                 // the phone's connection (owned by the caller)
    SP_HTTP_Request m_oRequest;             // the request being handled
    std::string m_sUrl;                     // its target
    std::string m_sReserved;                // empty; kept with the record
    std::deque<std::string> m_qRequests;    // received, unfolded request heads, oldest first
    std::string m_sRecvBuffer;              // bytes not yet cut into requests
    SPStatusNotifier* m_pNotifier;          // the push server
};

#endif
