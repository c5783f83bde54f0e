// The push client facing a phone that answers with any bytes and closes.
// First input byte, bit 0 clear: SPHTTPClientHandler::readResponse on a
// socket pair (the reply head reader), its unfolding and the reply parser.
// Bit 0 set: a whole transfer of a one-kilobyte resized picture to a loopback
// receiver played here, which answers with the input: the transfer must end
// with exactly one final event, after at most one start.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "SP/SP_HTTP_Response.h"
#include "SP/client/SPHTTPClientHandler.h"
#include "SP/osal/SPGenericSocket.h"
#include "fuzz_support.h"

namespace {

class Events : public SPClientNotifier {
public:
    void notifyServiceStatus(eSPNotifyClntEvent event, int reserved, SvcClientNotifyInfo* info) override {
        FUZZ_CHECK(reserved == 0 && info != nullptr && info->mac != nullptr);
        std::lock_guard<std::mutex> g(m_lock);
        m_events.push_back(event);
    }
    std::vector<int> events() {
        std::lock_guard<std::mutex> g(m_lock);
        return m_events;
    }

private:
    std::mutex m_lock;
    std::vector<int> m_events;
};

// The receiver's listening socket on 127.0.0.1, made once.
int receiverPort(int* listenFd) {
    static int fd = -1;
    static int port = 0;
    if (fd < 0) {
        fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof a;
        if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || listen(fd, 16) != 0 ||
            getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
            fuzzsupport::fail("loopback receiver", __FILE__, __LINE__);
        }
        port = ntohs(a.sin_port);
    }
    *listenFd = fd;
    return port;
}

void wholeTransfer(const uint8_t* data, size_t size) {
    int listenFd;
    const int port = receiverPort(&listenFd);
    static char picture[1024];
    Events events;
    {
        SPHTTPClientHandler transfer(&events, "/DCIM/100CAMER/FUZZ0001.JPG", "127.0.0.1", port, "02:00:7f:00:00:01");
        transfer.setResizeParams(true, picture, sizeof picture);
        transfer.start();
        // libFuzzer's own alarm (its time limit per input) interrupts waits.
        pollfd p = {listenFd, POLLIN, 0};
        int ready;
        while ((ready = poll(&p, 1, 10000)) < 0 && errno == EINTR) {
        }
        FUZZ_CHECK(ready == 1);
        int phone;
        while ((phone = accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC)) < 0 && errno == EINTR) {
        }
        FUZZ_CHECK(phone >= 0);
        const int room = static_cast<int>(2 * fuzzsupport::kMaxSocketInput);
        setsockopt(phone, SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
        setsockopt(phone, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
        size_t done = 0;
        while (done < size) {
            const ssize_t n = send(phone, data + done, size - done, MSG_NOSIGNAL);
            if (n <= 0) break;
            done += static_cast<size_t>(n);
        }
        shutdown(phone, SHUT_WR);
        transfer.join();
        // Reset instead of a closing handshake: no TIME_WAIT left per run.
        const linger off = {1, 0};
        setsockopt(phone, SOL_SOCKET, SO_LINGER, &off, sizeof off);
        close(phone);
    }
    const std::vector<int> seen = events.events();
    FUZZ_CHECK(!seen.empty());
    const int last = seen.back();
    FUZZ_CHECK(last == EVENT_CLIENT_TRANSFER_COMPLETE || last == EVENT_CLIENT_VOLUME_STORTAGE ||
               last == EVENT_CLIENT_TRANSFER_FAIL || last == EVENT_CLIENT_NOT_SUPPORTED_FILE);
    int starts = 0;
    for (size_t i = 0; i + 1 < seen.size(); ++i) {
        FUZZ_CHECK(seen[i] == EVENT_CLIENT_TRANSFER_START || seen[i] == EVENT_CLIENT_TRANSFER_PROGRESS);
        if (seen[i] == EVENT_CLIENT_TRANSFER_START) ++starts;
    }
    FUZZ_CHECK(starts <= 1);
    // Completion needs the phone's 100 first.
    if (last == EVENT_CLIENT_TRANSFER_COMPLETE) FUZZ_CHECK(starts == 1);
}

void replyReading(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    {
        SPHTTPClientHandler idle;
        std::string unfolded = text;
        idle.unfoldRequest(unfolded);
        if (text.size() <= 8192) FUZZ_CHECK(unfolded == fuzzsupport::referenceUnfold(text));
        FUZZ_CHECK(fuzzsupport::isUnfolded(unfolded));
        SP_HTTP_Response response;
        FUZZ_CHECK(response.parse(unfolded));
    }
    fuzzsupport::PeerPair pair;
    if (!pair.open(data, size)) return;
    SPHTTPClientHandler client(new SPTCPSocket(static_cast<unsigned int>(pair.take())));
    // The announcement's answer, then the final reply, as a transfer reads
    // them; the stream has ended, so neither waits.
    const bool first = client.readResponse(SPHTTPClientHandler::kReplyTimeoutMs);
    const bool second = client.readResponse(SPHTTPClientHandler::kReplyTimeoutMs);
    if (text.find("\r\n\r\n") == std::string::npos) FUZZ_CHECK(!first && !second);
    // The ended stream reads as pending (its end is there to read).
    FUZZ_CHECK(client.isRequestPending());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    if (data[0] & 1)
        wholeTransfer(data + 1, size - 1);
    else
        replyReading(data + 1, size - 1);
    fuzzsupport::forgetJournal();
    return 0;
}
