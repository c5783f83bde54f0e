// The mode server's handler on one connection whose phone sends any bytes
// and closes: ModeHTTPHandler reads, cuts and unfolds the heads, serves them
// (announcements and goodbyes reach a mode server that is never started,
// whose callback answers for the user) and writes its replies. The first
// input byte picks the mode, the user's answer and the no-new-phone switch.
#include <cstdint>
#include <cstring>
#include <string>

#include "ModeServer/ModeHTTPHandler.h"
#include "ModeServer/ModeServer.h"
#include "SP/osal/SPGenericSocket.h"
#include "fuzz_support.h"

namespace {

ModeServer* gServer = nullptr;
bool gAnswer = true;

void onServerEvent(int fd, eModeServerInternalEvent event, intptr_t mac, intptr_t userAgent) {
    FUZZ_CHECK(event == eEVENT_NEW_DEVICE || event == eEVENT_REMOVED_DEVICE);
    FUZZ_CHECK(mac != 0 && userAgent != 0);
    FUZZ_CHECK(strlen(reinterpret_cast<const char*>(mac)) <= 17);
    (void)strlen(reinterpret_cast<const char*>(userAgent));
    if (event == eEVENT_NEW_DEVICE) FUZZ_CHECK(gServer->setConfirmResult(fd, gAnswer));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const uint8_t control = data[0];
    const std::string stream(reinterpret_cast<const char*>(data + 1), size - 1);
    if (gServer == nullptr) {
        // One server for the whole run, never started: it only takes the
        // handlers' reports. Kept to the end of the process.
        gServer = new ModeServer(MS_MODE_IDLE);
        gServer->setCallback(onServerEvent);
    }
    gAnswer = (control & 0x10) != 0;
    // Access mode 1 asks the registry instead of the user.
    gServer->setAccessMode((control & 0x20) ? 1 : 2);

    if (stream.size() <= 8192) {
        ModeHTTPHandler idle(nullptr, nullptr, MS_MODE_IDLE);
        std::string text = stream;
        idle.unfoldRequest(text);
        FUZZ_CHECK(text == fuzzsupport::referenceUnfold(stream));
        FUZZ_CHECK(fuzzsupport::isUnfolded(text));
    }

    fuzzsupport::PeerPair pair;
    if (!pair.open(data + 1, size - 1)) return 0;
    const auto mode = static_cast<eNETWORK_SERVER_MODE>(control & 0x07);
    // The handler owns its socket and closes it.
    ModeHTTPHandler handler(gServer, new SPTCPSocket(static_cast<unsigned int>(pair.take())), mode);
    const int noNewPermit = (control & 0x40) ? 1 : 0;
    for (int call = 0; call < 400; ++call) {
        handler.httpHandler(noNewPermit);
        pair.drain();
        FUZZ_CHECK(handler.pendingInput().size() <= ModeHTTPHandler::kMaxPendingBytes + 1001);
        if (handler.queuedRequests() == 0) break;
    }
    // Accepted phones are registered; the registry is emptied so that runs
    // do not depend on one another.
    gServer->removeDeviceInfo();
    fuzzsupport::forgetJournal();
    return 0;
}
