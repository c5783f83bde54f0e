// The process-wide owner of all file pushes: starts a transfer of one file to
// one phone (resizing JPEGs first in resize mode, once per picture however
// many phones get it), stops transfers by phone or all at once, sends the
// turn-down request, and hands the transfers' events on to the push API's
// callback.
#ifndef CAMWIFI_SP_CLIENT_MANAGER_H
#define CAMWIFI_SP_CLIENT_MANAGER_H

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "SP/client/SPClientNotifier.h"

class SPHTTPClientHandler;

// The push API's callback for transfer events (called on transfer threads).
typedef void (*SPClntNotificationCallbackFn)(eSPNotifyClntEvent event, stSPClntInfo* info);

// A resized picture handed out by the application-service library. Shared by
// the resize history and by every transfer that sends it; the last holder to
// let go returns the buffer through the library's own free function.
class SPResizedImage {
public:
    SPResizedImage(char* data, int length) : m_pData(data), m_iLength(length) {}
    ~SPResizedImage();
    char* data() const { return m_pData; }
    int length() const { return m_iLength; }

private:
    SPResizedImage(const SPResizedImage&) = delete;
    SPResizedImage& operator=(const SPResizedImage&) = delete;
    char* m_pData;
    int m_iLength;
};

// The one-entry resize history: the last picture resized and its result.
struct stSPImageResizeData {
    std::string path = "empty";             // path of the last image resized successfully
    char* buffer = nullptr;                  // the resized image in memory (owned through image)
    int length = 0;                          // its length in bytes
    bool resized = false;                    // buffer holds the resized form of path
    bool isJPEG = false;                     // the last examined file had the extension "jpg"
    std::atomic<bool> stopRequested{false};  // a stop by MAC came while a transfer was being created
    std::shared_ptr<SPResizedImage> image;   // the history's share of buffer
};

class SPClientManager : public SPClientNotifier {
public:
    // Image transfer size value that turns resizing on.
    static constexpr int kResizeMode = 1;

    // The instance, created on first use.
    static SPClientManager* getInstance();
    // Deletes the instance (see the destructor); the next getInstance makes a
    // new one.
    static void destroyInstance();

    void setCallback(SPClntNotificationCallbackFn callback) { m_pCallback.store(callback); }
    void setImageTransferSize(int size) { m_iImageTransferSize.store(size); }
    int getImageTransferSize() const { return m_iImageTransferSize.load(); }

    // A transfer without MAC and without resizing.
    void createFileTransfer(const char* path, const char* address, int port);
    // The push of path to the phone mac at address:port; replaces that
    // phone's earlier transfer.
    void createFileTransfer(const char* path, const char* address, const char* mac, int port);
    // The first transfer whose MAC text equals mac exactly; null for "" or none.
    SPHTTPClientHandler* getHTTPClientHandlerbyMac(const char* mac);
    // Deletes handler (stopping its transfer) if it is one of this manager's.
    void deleteFileTransfer(void* handler);
    // Stops the transfer of one phone (and, by the walk's design, not the
    // entry after it), then clears the resize history.
    void stopFileTransfer(const char* mac);
    // Stops transfers like stopAllFileTransfer, keeping the resize history.
    void stopFileTransfer(void* unused);
    // Stops every second transfer (the walk passes over the entry after each
    // removal), then clears the resize history.
    void stopAllFileTransfer();
    // Sends the turn-down request to address:port on the calling thread;
    // 1 sent, 0 not.
    int sendTurnDownRequest(char* address, int port);
    // Forgets the last resized picture (its buffer goes when no transfer
    // still sends it).
    void ClearResizeHistory();

    void notifyServiceStatus(eSPNotifyClntEvent event, int reserved, SvcClientNotifyInfo* info) override;

    // Transfers held (running or finished).
    size_t transferCount();

    static SPClientManager* m_Instance;

private:
    SPClientManager();
    // Asks every transfer still held to stop (the stop-all walk leaves every
    // second one running), then joins and deletes them: returns within one
    // transfer's stop latency, whatever the phones do.
    ~SPClientManager() override;
    SPClientManager(const SPClientManager&) = delete;
    SPClientManager& operator=(const SPClientManager&) = delete;

    // The walk shared by the stop-all calls.
    void stopEverySecond();
    // Removes handler from the vector; true when it was there (the caller
    // then owns it).
    bool claim(SPHTTPClientHandler* handler);
    void startAndKeep(SPHTTPClientHandler* handler);
    void resetHistory();
    void fail(const char* mac);

    // Held only for short looks at the vector and the history; never while a
    // thread is joined or the callback runs, since a transfer's callback may
    // call back into the manager.
    std::mutex m_oLock;
    std::vector<SPHTTPClientHandler*> m_vHandlers;                 // running and finished transfers, in creation order
    std::atomic<SPClntNotificationCallbackFn> m_pCallback{nullptr};  // the push API's callback; may be null
    std::atomic<int> m_iImageTransferSize{0};                      // 1: resize JPEGs before sending
    std::atomic<bool> m_bClosing{false};                           // being destroyed: no new transfers
    stSPImageResizeData m_oResize;                                  // the resize history
};

#endif
