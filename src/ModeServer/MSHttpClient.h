// One NOTIFY to one phone: connects to the phone's event receiver, sends the
// request with the property-set body, and waits for the reply's head. Made
// for one exchange and destroyed after it.
#ifndef CAMWIFI_MS_HTTP_CLIENT_H
#define CAMWIFI_MS_HTTP_CLIENT_H

#include <atomic>
#include <cstddef>
#include <string>

#include "zeb_stack.h"

class SPTCPSocket;

class MSHttpClient {
public:
    // Most reply bytes kept while waiting for the end of the reply's head;
    // a receiver that sends more without ending it has not answered.
    static constexpr size_t kMaxResponseBytes = 64 * 1024;

    MSHttpClient(const char* host, int port);
    ~MSHttpClient();

    // One complete exchange carrying variables (MSEventVariable*). True when
    // the request was sent and the head of a reply (any status) came back.
    bool sendNotification(DMSCDSList* variables);
    // Creates the socket and connects to the receiver within 10 seconds.
    // Only a real address and port are tried.
    bool connectToReceiver();
    // Sends the NOTIFY head and body; up to 3 attempts.
    bool sendRequests(const char* body, int length);
    // Sends the NOTIFY head alone, its Content-Length line without a number.
    bool sendRequests(int length);
    // Reads until the reply's head has ended (true) or timeoutMs has passed,
    // the connection failed or closed first (false).
    bool readResponse(int timeoutMs);
    // Sends all of data within 5 seconds.
    bool sendData(const char* data, long length);

    // Makes a running send give up at its next look.
    void cancel() { m_iCancelled.store(1); }
    const std::string& response() const { return m_sResponse; }

private:
    MSHttpClient(const MSHttpClient&) = delete;
    MSHttpClient& operator=(const MSHttpClient&) = delete;

    std::string requestHead(const std::string& contentLength) const;
    bool sendWithRetries(const std::string& request);

    SPTCPSocket* m_pSocket = nullptr;  // created when sending; owned
    std::string m_sHost;               // receiver's dotted IPv4 address
    int m_iPort;                       // receiver's port
    std::atomic<int> m_iCancelled{0};  // set: sending stops
    std::string m_sResponse;           // reply bytes received
};

#endif
