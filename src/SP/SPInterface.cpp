#include "SP/SPInterface.h"

#include "Dlna/DlnaLog.h"
#include "SP/server/SPServer.h"

std::atomic<SPServer*> ptheSpServer{nullptr};

namespace {

void logNotStarted() { DLNA_LOG_E(DLNA_SP_TAG, "[SP] Server is either already terminated or not Started yet "); }

}  // namespace

int SPGetServerPort() {
    SPServer* server = ptheSpServer.load();
    if (server == nullptr) {
        logNotStarted();
        return 0;
    }
    return server->getServerPort();
}
