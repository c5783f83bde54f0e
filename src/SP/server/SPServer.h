// The push server: the HTTP server on which phones announce that they want to
// receive files ("alive") or leave ("byebye"). It runs its own thread
// ("SPServerThread"), listens on the first free port of 8100 to 8102, serves
// each phone connection with an SPHTTPHandler, keeps the admitted phones in an
// access list and asks the UI (through the push API's callback) whether the
// first phone may connect.
#ifndef CAMWIFI_SP_SERVER_H
#define CAMWIFI_SP_SERVER_H

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "SP/osal/SPGenericEvent.h"
#include "SP/osal/SPGenericThread.h"
#include "SP/server/SPStatusNotifier.h"
#include "zeb_stack.h"

class SPAccessControlInfo;
class SPHTTPHandler;
class SPTCPSocket;

using SPControlCallback = void (*)(eSPNotifyControlEvent, stSPInformation*);

class SPServer : public SPGenericThreadEx, public SPStatusNotifier {
public:
    static constexpr uint16_t kFirstPort = 8100;
    static constexpr uint16_t kLastPort = 8102;
    // Phone connections kept after their request (one per MAC address). A
    // request without NTS keeps its connection as the entry of the phone its
    // Data-Server names, so a peer naming a new address every time would
    // otherwise make the server keep a connection for each; past this many
    // the oldest entry of a phone outside the access list (which holds at
    // most 10) is closed.
    static constexpr size_t kMaxClientEntries = 64;

    SPServer();
    // Stops the thread if it still runs, then closes every connection.
    ~SPServer() override;

    void setCallback(SPControlCallback callback) { m_pCallback.store(callback); }
    // Waits up to ms for the server to listen; 1 ready, 0 not (yet).
    int waitSemaphore(unsigned long ms);
    int notifyServiceStatus(eSPNotifyControlEvent event, int unused, SvcSPNotifyInfo* info) override;
    uint16_t getServerPort() const { return m_usPort.load(); }

    // The confirmed phone's data server address and port; 0 for a null pointer.
    int getDataServerInfo(char* ip, int* port);
    // The confirmed phone's MAC address text; 0 for a null pointer.
    int getDataServerInfo(char* mac);
    // Address (and port) of an admitted phone by MAC; 0 when not admitted.
    int getDataServerInfo(const char* mac, int* port, char* ip);

    // The user's answer for a phone: written to the phone through its
    // handler; a refusal also forgets the phone.
    void sendClientStartNotice(const char* mac, bool accept);
    // Drops a phone: it leaves the access list and its connection is closed.
    // 1 when it was admitted, 0 otherwise.
    int removeClientfromPermittedList(const char* mac);
    // Number of admitted phones.
    int getPermittedListSize();
    // True while a phone accepted by the user has not left.
    bool isClientConfirmed() const { return m_bConfirmed.load(); }

    // Whether a new phone may be admitted; the push API switches it.
    void setAllowNewConnection(bool allowed) { m_bAllowNewConnection.store(allowed); }
    bool isNewConnectionAllowed() const { return m_bAllowNewConnection.load(); }

    // Makes the thread leave its loop (within a second) and joins it.
    void stopAndJoin();

    // Test access: the handler recorded for a phone (null when none).
    bool hasClientEntry(const char* mac);

protected:
    void entry() override;

private:
    // One admitted (or announcing) phone: its handler and connection, owned
    // by the entry.
    struct ClientEntry {
        std::string mac;
        SPHTTPHandler* handler;
        SPTCPSocket* socket;
        bool removeWhenIdle;  // refused while the server thread was using it
    };

    bool listenOnFirstFreePort();
    void failAndStop();
    // Serves one readable connection; false when the server must stop.
    bool serveConnection(size_t index);
    void shutdown();

    // Client entries, under m_hClientLock.
    void addSpClientEntry(SPHTTPHandler* handler, SPTCPSocket* socket, const char* mac);
    void deleteSpClientEntry(SPHTTPHandler* keep, const char* mac);
    SPHTTPHandler* getSPHttpHandlerfromSocketInfo(const char* mac);
    bool isRecorded(SPHTTPHandler* handler);
    void terminateSPClientEntry();
    static void destroyEntry(ClientEntry& entry);

    void fillInformation(stSPInformation& info, const SvcSPNotifyInfo& svc);
    // Makes the phone the confirmed one (caller holds m_infoLock).
    void confirmLocked(const std::string& mac, const std::string& ip, int port);
    void notifyUI(eSPNotifyControlEvent event, stSPInformation* info);

    std::atomic<bool> m_bAllowNewConnection{true};  // starts open: the single-phone push admits its first phone
    std::atomic<bool> m_bConfirmed{false};          // a phone accepted by the user has not left
    std::atomic<uint16_t> m_usPort{0};              // the bound port
    std::atomic<SPControlCallback> m_pCallback{nullptr};
    std::string m_sConfirmedIP;                     // confirmed phone's data server address (under m_infoLock)
    std::string m_sConfirmedMac;                    // confirmed phone's MAC address (under m_infoLock)
    int m_iConfirmedPort = 0;                       // confirmed phone's data server port (under m_infoLock)
    bool m_bFirstConfirmed = false;                 // a phone was ever accepted (under m_infoLock)
    bool m_bClientDenied = false;                   // the user refused a phone: the next one is asked as the first (under m_infoLock)
    unsigned m_uDenials = 0;                        // refusals so far (under m_infoLock)
    std::string m_sAskingMac;                       // phone the UI is being asked about (under m_infoLock)
    std::string m_sAskingIP;                        // its data server address (under m_infoLock)
    int m_iAskingPort = 0;                          // its data server port (under m_infoLock)
    std::string m_sLastDeniedMac;                   // MAC of the last refused phone (under m_infoLock)
    SPAccessControlInfo* m_pAcl;                    // admitted phones (its entries read under m_infoLock)
    SPGenericSemaphore m_oReadySem{0};              // posted when the server listens

    std::mutex m_infoLock;                          // confirmed-phone fields and access-list reads
    ZEB_MUTEX m_hClientLock = nullptr;              // client entries, shared with API threads
    std::vector<ClientEntry> m_vClients;
    SPHTTPHandler* m_pBusyHandler = nullptr;        // handler the server thread is using (under m_hClientLock)

    // Server thread only.
    SPTCPSocket* m_pListenSocket = nullptr;
    std::vector<SPTCPSocket*> m_vConnections;       // accepted, waiting for their request
};

#endif
