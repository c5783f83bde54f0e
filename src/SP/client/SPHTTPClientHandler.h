// Pushes one file from the camera to one phone: a thread that connects to the
// phone's push receiver, announces the file in a POST with
// "Expect: 100-continue", waits for the phone's "100", streams the body in
// 20,480-byte chunks while reporting progress, waits for the final "200" and
// reports the outcome exactly once. The file comes from the card or, when the
// client manager resized a JPEG, from memory. The same class sends the
// one-shot turn-down request that tells a phone application to leave.
//
// Created, started, stopped and deleted by the client manager only. A stop
// (requestExit) is seen within about a second wherever the transfer waits:
// for the phone to take more body bytes, or for its reply. That is what
// bounds stopping, replacing and terminating, whatever the phone does.
#ifndef CAMWIFI_SP_HTTP_CLIENT_HANDLER_H
#define CAMWIFI_SP_HTTP_CLIENT_HANDLER_H

#include <cstdint>
#include <memory>
#include <string>

#include "SP/SP_HTTP_Response.h"
#include "SP/client/SPClientNotifier.h"
#include "SP/osal/SPGenericThread.h"

class SPTCPSocket;
class SPFileStream;
struct sockaddr_in;

class SPHTTPClientHandler : public SPGenericThreadEx {
public:
    static constexpr unsigned long kChunkSize = 20480;     // body bytes per send
    static constexpr unsigned long kReplyReadSize = 1025;  // most bytes per reply read
    static constexpr int kReplyTimeoutMs = 7000;           // one reply-read period
    static constexpr int kTransferConnectSeconds = 10;
    static constexpr int kTurnDownConnectSeconds = 5;

    // A push of filePath to the phone's receiver at address:port; clientMac
    // names the phone in logs and events.
    SPHTTPClientHandler(SPClientNotifier* notifier, const char* filePath, const char* address, int port,
                        const char* clientMac);
    // The same with an empty MAC text.
    SPHTTPClientHandler(SPClientNotifier* notifier, const char* filePath, const char* address, int port);
    // For the turn-down request only: no notifier, no file.
    SPHTTPClientHandler(const char* address, int port);
    // Adopts a connected socket (entry() then makes no connection).
    explicit SPHTTPClientHandler(SPTCPSocket* socket);
    SPHTTPClientHandler();
    // Stops and joins the thread before anything it uses goes away.
    ~SPHTTPClientHandler() override;

    // Send `buffer` (length bytes, a resized JPEG) instead of the file when
    // resized is true. Called before start(); the buffer must stay valid
    // until the thread ends (see keepResizedImage).
    void setResizeParams(bool resized, char* buffer, unsigned int length);
    // Holds a share of the resized picture's owner until the thread has sent
    // it, so a buffer shared by several transfers outlives each of them.
    void keepResizedImage(std::shared_ptr<const void> owner) { m_pResizedOwner = std::move(owner); }

    // Builds and sends the announcement of the file; the argument is unused.
    bool sendRequests(int timeout);
    // Sends all bytes through the (then non-blocking) socket; false on a
    // send failure or a stop request.
    bool sendData(const char* data, long length);
    // Collects the phone's reply head (up to the empty line) in m_sResponse
    // within three periods of timeoutMs.
    bool readResponse(int timeoutMs);
    // Sends the turn-down request (three attempts); true when it was sent.
    bool turnDownRequestHandler();
    // True when the socket is readable right now.
    bool isRequestPending();
    // Joins folded header lines: removes the CR LF of every CR LF + blank,
    // then of every CR LF + tab.
    void unfoldRequest(std::string& text);

    // The three characters after the last '.' of path (fewer at its end):
    // what decides the file type ("x.jpeg" gives "jpe").
    static std::string extensionOf(const std::string& path);

    const std::string& clientMac() const { return m_sClientMac; }
    const std::string& filePath() const { return m_sFilePath; }
    const std::string& fileName() const { return m_sFilename; }
    const std::string& mimeType() const { return m_sMimetype; }
    const std::string& resolution() const { return nResolution; }
    double frameRate() const { return m_fps; }
    uint32_t duration() const { return m_ulDuration; }

protected:
    void entry() override;

private:
    // How a transfer ended; decides its one final event.
    enum Outcome { OUTCOME_FAIL, OUTCOME_SUCCESS, OUTCOME_STORAGE_FULL, OUTCOME_NOT_SUPPORTED };

    SPHTTPClientHandler(const SPHTTPClientHandler&) = delete;
    SPHTTPClientHandler& operator=(const SPHTTPClientHandler&) = delete;

    void init(SPClientNotifier* notifier, const char* filePath, const char* address, int port, const char* clientMac);
    void classifyFile();
    Outcome transfer(unsigned char** chunk);
    bool openSource();
    // The phone's IPv4 address and port; false when they are not usable.
    bool phoneAddress(struct sockaddr_in* a) const;
    bool connectToPhone();
    // Reads and parses one reply head; logs the failure texts of the two
    // reply reads. afterBody selects the stop text of the final reply.
    bool receiveReply(bool afterBody);
    Outcome answerToAnnouncement();
    bool sendFileBody(unsigned char* chunk);
    bool sendResizedBody(unsigned char* chunk);
    bool sendChunk(const unsigned char* chunk, unsigned long length);
    Outcome finalReply();
    // Waits up to ms for reply bytes; false as soon as a stop is requested.
    bool awaitReply(int64_t ms);
    void post(eSPNotifyClntEvent event, int value);

    std::string m_sClientMac;            // receiving phone's MAC text; empty when none was given
    SPTCPSocket* m_pSocket = nullptr;    // owned; created on connect or handed in
    SP_HTTP_Response m_oResponse;        // the parsed reply
    SPFileStream* m_pStream = nullptr;   // owned; the file source, created on the thread
    [[maybe_unused]] uint32_t m_uReserved[4] = {0, 0, 0, 0};  // reserved words, zeroed, unread
    std::string m_sFilePath;             // full path of the file on the camera
    std::string m_sFilename;             // the part after the last '/'
    std::string m_sMimetype;             // "image/jpeg", "video/mp4" or empty
    std::string m_sResponse;             // raw reply bytes received so far
    SPClientNotifier* m_pNotifier = nullptr;  // not owned; receives the events
    std::string m_sAddress;              // the phone's IPv4 address, dotted
    int m_iPort = 0;                     // the phone's push receiver port
    int m_iResizedLength = 0;            // bytes in the resized buffer
    char* m_pResizedBuffer = nullptr;    // not owned; the resized JPEG
    bool m_bResized = false;             // send the buffer instead of the file
    std::string nResolution;             // video size "%dX%d"
    double m_fps = 0;                    // video frame rate
    uint32_t m_ulDuration = 0;           // video duration as the attribute service reports it
    std::shared_ptr<const void> m_pResizedOwner;  // keeps m_pResizedBuffer alive while sending
    uint64_t m_uPercentBase = 0;         // body size / 1024: the percentage's divisor
    unsigned m_uLastPercent = 0;         // last percentage posted
};

#endif
