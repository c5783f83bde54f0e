// The mode server: a small HTTP server at which phone apps learn the camera's
// operation mode, announce themselves with a callback URL and say goodbye.
// Its thread ("ModeServerThread") listens on the first free port of 7788 to
// 7791 and serves one request per connection, one at a time. It keeps the
// registry of accepted phones (by MAC address) and sends each of them a
// NOTIFY when the mode changes. Arrivals, departures and its own failure
// reach the API layer through one callback, which asks the user about a new
// phone while the server thread waits.
#ifndef CAMWIFI_MODE_SERVER_H
#define CAMWIFI_MODE_SERVER_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "ModeServer/MSDeviceInfo.h"
#include "ModeServer/ModeServerTypes.h"
#include "SP/osal/SPGenericMutex.h"
#include "SP/osal/SPGenericThread.h"

class ModeHTTPHandler;
class SPTCPSocket;

class ModeServer : public SPGenericThreadEx {
public:
    static constexpr uint16_t kFirstPort = 7788;
    static constexpr uint16_t kLastPort = 7791;
    // Connections accepted but not yet served. A peer that opens more without
    // sending anything gets its newest ones closed at once, so descriptors
    // cannot run out.
    static constexpr size_t kMaxWaitingConnections = 64;

    explicit ModeServer(eNETWORK_SERVER_MODE mode);
    // Stops and joins the thread if it still runs, then frees the handlers
    // and the registered phones.
    ~ModeServer() override;

    void setCallback(ModeServerCallback callback) { m_pCallback.store(callback); }
    void initialize() {}

    // A handler's report of a phone arriving (1) or leaving (2). False when
    // the server is stopped, or (access mode 1) when an unregistered phone
    // announces itself.
    bool notifyServiceStatus(int socketFd, eModeServerInternalEvent event, intptr_t mac, intptr_t userAgent);
    // The user's answer for the phone on connection socketFd: accepted
    // registers it. Always true.
    bool setConfirmResult(int socketFd, bool accepted);
    // Appends a phone to the registry (taking ownership).
    void addDeviceInfo(MSDeviceInfo* device);
    // Deletes every registered phone.
    void removeDeviceInfo();

    void setDesciptionUrl(const char* url);
    std::string getDescriptionUrl();
    void setSPServerPort(unsigned short port) { m_usSPServerPort.store(port); }
    unsigned short getSPServerPort() const { return m_usSPServerPort.load(); }

    // The camera changed to mode: stored for new replies, and every
    // registered phone is sent a NOTIFY, on the calling thread. The result of
    // the last phone tried (true when there is none).
    bool sendNotifyMessage(eNETWORK_SERVER_MODE mode);
    // Only logs; stopping is stop() and join().
    void shutdown();

    // Makes the thread leave its loop (within a second) and refuses further
    // notifications.
    void stop() { m_bStopped.store(true); }
    bool isStopped() const { return m_bStopped.load(); }
    // stop(), then wait for the thread.
    void stopAndJoin();

    // Waits up to ms until the thread listens (true) or has failed (false).
    bool waitUntilListening(unsigned long ms);
    // The bound port; 0 before it is bound or after binding failed.
    uint16_t getPort() const { return m_usPort.load(); }
    eNETWORK_SERVER_MODE getMode() const { return m_eMode.load(); }
    int getAccessMode() const { return m_iAccessMode.load(); }
    void setAccessMode(int accessMode) { m_iAccessMode.store(accessMode); }
    // Copies of the registered phones, in registration order.
    std::vector<MSDeviceInfo> devices();

protected:
    void entry() override;

private:
    // Binds and listens; false on a fatal failure (logged).
    bool listenOnFirstFreePort();
    // The accept loop; false on a fatal failure.
    bool serveLoop();
    // Serves one ready connection (taking it); false when no handler could
    // be made.
    bool serveConnection(SPTCPSocket* connection);
    // Deletes the listening socket's wrapper, reports a fatal end (event 3)
    // and closes the descriptor without lingering.
    void closeListeningSocket(bool fatal);
    void markListening(bool listening);

    std::atomic<bool> m_bStopped{false};              // stop the thread, refuse notifications
    std::atomic<eNETWORK_SERVER_MODE> m_eMode;        // current operation mode (UI writes, thread reads)
    std::atomic<ModeServerCallback> m_pCallback{nullptr};
    std::vector<ModeHTTPHandler*> m_vHttpHandler;     // handlers serving a request (under m_oLock)
    std::atomic<int> m_iAccessMode;                   // ACCESS_MODE_* value
    std::vector<MSDeviceInfo*> m_vDevices;            // registered phones, owned (under m_oLock)
    std::string m_sDescriptionUrl;                    // announced for modes 1 and 2 (under m_oLock)
    std::atomic<unsigned short> m_usSPServerPort{0};  // push server's port, announced for mode 4
    // Guards the registry, the handler list and the description URL between
    // the server thread and the UI's notifications: a phone leaving while a
    // NOTIFY round runs must not free an entry under it.
    SPGenericMutex m_oLock;

    std::atomic<uint16_t> m_usPort{0};                // the bound port
    std::mutex m_readyLock;                           // with m_readyChanged: start-up outcome
    std::condition_variable m_readyChanged;
    int m_iReadyState = 0;                            // 0 starting, 1 listening, 2 failed (under m_readyLock)

    // Server thread only.
    SPTCPSocket* m_pListenSocket = nullptr;
    std::vector<SPTCPSocket*> m_vWaiting;             // accepted, waiting for their request
};

#endif
