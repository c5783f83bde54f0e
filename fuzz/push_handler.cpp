// The push server's handler on one connection whose phone sends any bytes
// and closes: SPHTTPHandler reads, cuts and unfolds the requests, handles
// each (reporting to a notifier played here) and writes its replies. The
// first input byte steers the notifier's answers; the rest is the stream.
#include <cstdint>
#include <cstring>
#include <string>

#include "SP/osal/SPGenericSocket.h"
#include "SP/server/SPHTTPHandler.h"
#include "fuzz_support.h"

namespace {

class Notifier : public SPStatusNotifier {
public:
    explicit Notifier(uint8_t control) : m_control(control) {}
    int notifyServiceStatus(eSPNotifyControlEvent event, int unused, SvcSPNotifyInfo* info) override {
        FUZZ_CHECK(event == EVENT_DEVICE_NEW || event == EVENT_DEVICE_REMOVED);
        FUZZ_CHECK(unused == 0);
        FUZZ_CHECK(info != nullptr && info->mac != nullptr && info->ip != nullptr && info->hostPNumber != nullptr);
        FUZZ_CHECK(strlen(info->mac) <= 17);
        FUZZ_CHECK(info->accessMethod == 0 || info->accessMethod == 1);
        // Read every text the way the server copies it.
        m_seen += strlen(info->ip) + strlen(info->hostPNumber);
        ++m_calls;
        return (m_control >> (m_calls % 4)) & 1;
    }

private:
    uint8_t m_control;
    int m_calls = 0;
    size_t m_seen = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const uint8_t control = data[0];
    const std::string stream(reinterpret_cast<const char*>(data + 1), size - 1);

    // Unfolding agrees with the plain reading of it.
    if (stream.size() <= 8192) {
        SPHTTPHandler idle(nullptr, nullptr);
        std::string text = stream;
        idle.unfoldRequest(text);
        FUZZ_CHECK(text == fuzzsupport::referenceUnfold(stream));
        FUZZ_CHECK(fuzzsupport::isUnfolded(text));
        FUZZ_CHECK(idle.readRequests(10) == 0);  // no connection: nothing to read
    }

    fuzzsupport::PeerPair pair;
    if (!pair.open(data + 1, size - 1)) return 0;
    SPTCPSocket socket(static_cast<unsigned int>(pair.cameraFd()));
    Notifier notifier(control);
    {
        SPHTTPHandler handler(&notifier, &socket);
        // One request per call, as the server does; the stream has ended, so
        // a call with nothing queued returns at once. At most 101 requests
        // are queued per read, and after that the handler reads again.
        for (int call = 0; call < 400; ++call) {
            char mac[32];
            memset(mac, 0, sizeof mac);
            const int result = handler.httpHandler(mac);
            FUZZ_CHECK(result >= 0 && result <= 3);
            FUZZ_CHECK(strlen(mac) <= 17);
            if (result == 0 && (control & 0x80)) handler.httpSendUserResponseToClient((control & 0x40) != 0);
            pair.drain();
            if (result == 2) break;  // the phone left: connection closed
            if (result == 1 && handler.queuedRequests() == 0) break;
        }
    }
    // The handler does not own the socket; the pair closes its descriptor.
    pair.take();
    fuzzsupport::forgetJournal();
    return 0;
}
