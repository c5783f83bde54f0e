#include "SP/osal/SPSocketListener.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Dlna/DlnaLog.h"
#include "SP/osal/SPGenericThread.h"
#include "SP/osal/SPSocketWait.h"

namespace {

// More descriptors than a listener is meant to wait on at once.
constexpr std::size_t kListenerMaxFds = 32;
// SIOCGIFCONF sees at most this many interfaces (512 bytes of 32-byte records
// on the camera; the records are wider on 64-bit hosts).
constexpr int kMaxInterfaces = 16;
// Port of the push handler's data URL.
constexpr int kLocalUrlPort = 9001;

}  // namespace

bool SPSocketListener::listen(std::vector<int>& fds, unsigned long ms) {
    if (fds.size() > kListenerMaxFds) OSAL_MYASSERT();
    return waitReadable(fds, ms);
}

bool SPSocketListener::waitReadable(std::vector<int>& fds, unsigned long ms) {
    if (fds.empty()) {
        SPGenericThread::sleep(ms);
        return true;
    }
    std::vector<SPWaitItem> items;
    items.reserve(fds.size());
    for (int fd : fds) items.push_back({fd, true, false, false, false});
    if (SPWaitForSockets(items.data(), items.size(), static_cast<int64_t>(ms)) < 0) {
        const int err = errno;
        fds.clear();
        errno = err;
        return false;
    }
    size_t kept = 0;
    for (size_t i = 0; i < items.size(); ++i)
        if (items[i].readable) fds[kept++] = items[i].fd;
    fds.resize(kept);
    return true;
}

SPHostInfo::SPHostInfo() {
    const int sock = socket(AF_INET, SOCK_DGRAM, 0);
    if (sock < 0) {
        printf("error: socket call failed! error code = %d\n", errno);
        return;
    }
    struct ifreq records[kMaxInterfaces];
    std::memset(records, 0, sizeof(records));
    struct ifconf conf;
    conf.ifc_len = sizeof(records);
    conf.ifc_req = records;
    const int rc = ioctl(sock, SIOCGIFCONF, &conf);
    const int err = errno;
    close(sock);
    if (rc < 0) {
        printf("error: ioctl call failed! error code = %d\n", err);
        return;
    }
    const int count = std::min(conf.ifc_len / static_cast<int>(sizeof(struct ifreq)), kMaxInterfaces);
    for (int i = 0; i < count; ++i) {
        const struct sockaddr_in* addr = reinterpret_cast<const struct sockaddr_in*>(&records[i].ifr_addr);
        m_addresses.push_back(ntohl(addr->sin_addr.s_addr));
    }
    if (m_addresses.size() >= 2) {
        auto loopback = std::find(m_addresses.begin(), m_addresses.end(), static_cast<uint32_t>(INADDR_LOOPBACK));
        if (loopback != m_addresses.end()) std::iter_swap(loopback, m_addresses.end() - 1);
    }
}

int GetLocalAddr(int fd, char* out) {
    struct sockaddr_in own;
    std::memset(&own, 0, sizeof(own));
    socklen_t len = sizeof(own);
    if (getsockname(fd, reinterpret_cast<struct sockaddr*>(&own), &len) < 0) {
        DLNA_LOG_E(DLNA_SP_TAG, "error in getsockname");
        return 0;
    }
    char ip[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &own.sin_addr, ip, sizeof(ip));
    // "http://" + 15 address characters + ":9001" + NUL fits the 28 bytes.
    snprintf(out, 28, "http://%s:%d", ip, kLocalUrlPort);
    DLNA_LOG_I(DLNA_SP_TAG, "PREFIX : %s", out);
    return 1;
}
