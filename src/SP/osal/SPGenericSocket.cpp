#include "SP/osal/SPGenericSocket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

#include "Dlna/DlnaLog.h"
#include "SP/osal/SPGenericThread.h"
#include "SP/osal/SPSocketWait.h"

namespace {

// Send limit of accepted connections: a phone that stops reading cannot
// hold a server thread for longer than this.
constexpr time_t kAcceptedSendTimeoutSec = 120;
constexpr int kListenBacklog = 128;
constexpr int kUdpSendBuffer = 102400;
// read/readfrom: no readiness wait, straight into the blocking receive.
constexpr unsigned long kWaitForever = 0xFFFFFFFFUL;

// The address record of the system calls is the 16-byte IPv4 one.
constexpr socklen_t kAddrLen = sizeof(struct sockaddr_in);
static_assert(sizeof(struct sockaddr_in) == 16, "IPv4 socket address is 16 bytes");

void copyAddress(struct sockaddr_in* to, const struct sockaddr_in* from) {
    to->sin_family = AF_INET;
    to->sin_port = from->sin_port;
    to->sin_addr = from->sin_addr;
}

// The wait before one receive of read and readfrom: true when fd is
// readable within ms (or ms is kWaitForever: no wait). Failures are logged as
// read's; a time-out is logged only when logTimeout is set.
bool readyToReceive(int fd, unsigned long ms, bool logTimeout) {
    if (ms == kWaitForever) return true;
    bool ready = false;
    const int rc = SPWaitReadable(fd, static_cast<int64_t>(ms), &ready);
    if (rc == 0) {
        if (logTimeout) DLNA_LOG_E(DLNA_OSAL_TAG, "[SPGenericSocket::read] >> Time Out !!!");
        return false;
    }
    if (rc < 0 && errno != EINTR) {
        DLNA_LOG_E(DLNA_OSAL_TAG, "[SPGenericSocket::read] >> select failed !!!");
        return false;
    }
    if (!ready) {
        DLNA_LOG_E(DLNA_OSAL_TAG, "[SPGenericSocket::read] >> FD_ISSET() is Zero !!!");
        return false;
    }
    return true;
}

// Logs a failed receive of read and readfrom.
void logReceiveFailed() { DLNA_LOG_E(DLNA_OSAL_TAG, "[SPGenericSocket::read] >> read lenth is Zero !!!"); }

}  // namespace

int SPKeepOffDescriptorZero(int fd) {
    if (fd != 0) return fd;
    const int moved = fcntl(0, F_DUPFD_CLOEXEC, 1);
    ::close(0);
    if (moved < 0) {
        // Could not move it (no descriptor left): the socket is unusable here.
        OSAL_MYASSERT();
        return -1;
    }
    return moved;
}

SPGenericSocket::SPGenericSocket() {
    std::memset(&m_local, 0, sizeof(m_local));
    std::memset(&m_remote, 0, sizeof(m_remote));
}

SPGenericSocket::SPGenericSocket(unsigned int fd) : SPGenericSocket() {
    const int adopted = static_cast<int>(fd);
    m_iSocket = adopted > 0 ? adopted : 0;
}

SPGenericSocket::~SPGenericSocket() { close(); }

bool SPGenericSocket::bind(struct sockaddr_in* a) {
    copyAddress(&m_local, a);
    return ::bind(sysFd(), reinterpret_cast<struct sockaddr*>(&m_local), kAddrLen) == 0;
}

bool SPGenericSocket::connect(struct sockaddr_in* a) {
    copyAddress(&m_remote, a);
    return ::connect(sysFd(), reinterpret_cast<struct sockaddr*>(&m_remote), kAddrLen) == 0;
}

bool SPGenericSocket::connect(struct sockaddr_in* a, int seconds) {
    const int64_t start = SPGenericTime::getMilliseconds();
    const int64_t deadline = start + static_cast<int64_t>(seconds) * 1000;
    copyAddress(&m_remote, a);
    const int fd = sysFd();

    if (!SetNonBlocking(true)) DLNA_LOG_E(DLNA_OSAL_TAG, "SetNonBlocking failed with : %s  !!!", strerror(errno));

    int pending = 0;
    if (::connect(fd, reinterpret_cast<struct sockaddr*>(&m_remote), kAddrLen) == 0) {
        DLNA_LOG_I(DLNA_OSAL_TAG, "Connect Successful !!!");
    } else {
        if (errno != EINTR && errno != EINPROGRESS) {
            DLNA_LOG_E(DLNA_OSAL_TAG, "Connect failed with : %s  !!!", strerror(errno));
            return false;
        }
        SPWaitItem item = {fd, true, true, false, false};
        int64_t remaining = deadline - SPGenericTime::getMilliseconds();
        for (;;) {
            int rc = -1;
            if (seconds == 0) {
                // A time limit of 0 seconds means no time value: no limit.
                rc = SPWaitForSockets(&item, 1, -1);
            } else if (remaining < 0) {
                // A negative time value is refused by the system's wait.
                errno = EINVAL;
            } else {
                // Kept as designed: above one second the wait is the whole
                // seconds plus 999999 microseconds, so each wait may last up
                // to a second longer than what remains.
                const int64_t waitMs = remaining < 1000 ? remaining : (remaining / 1000) * 1000 + 1000;
                rc = SPWaitForSockets(&item, 1, waitMs);
            }
            if (rc > 0) break;
            if (rc == 0) {
                DLNA_LOG_E(DLNA_OSAL_TAG, "Timeout Error-1 !!!");
                return false;
            }
            if (errno != EINTR) {
                DLNA_LOG_E(DLNA_OSAL_TAG, "select failed  with : %s !!!", strerror(errno));
                return false;
            }
            remaining = deadline - SPGenericTime::getMilliseconds();
            if (remaining < 0) {
                DLNA_LOG_E(DLNA_OSAL_TAG, "Timeout Error-2  !!!");
                return false;
            }
            fprintf(stderr, "ignore signal : %s !!!\n", strerror(EINTR));
        }
        if (!item.readable && !item.writable) {
            // Reported as success, as designed.
            DLNA_LOG_E(DLNA_OSAL_TAG, "Socket Not set : %s !!!", strerror(errno));
            pending = 0;
        } else {
            socklen_t len = sizeof(pending);
            if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &pending, &len) < 0) {
                DLNA_LOG_E(DLNA_OSAL_TAG, "Error in getsockopt : %s !!!", strerror(errno));
                return false;
            }
        }
    }

    SetNonBlocking(false);
    if (pending == 0) return true;
    DLNA_LOG_E(DLNA_OSAL_TAG, "SO_ERROR error code : %d!!!", pending);
    switch (pending) {
        case ETIMEDOUT: DLNA_LOG_E(DLNA_OSAL_TAG, "ETIMEDOUT"); break;
        case ECONNREFUSED: DLNA_LOG_E(DLNA_OSAL_TAG, "ECONNREFUSED"); break;
        case EHOSTDOWN: DLNA_LOG_E(DLNA_OSAL_TAG, "EHOSTDOWN"); break;
        case EHOSTUNREACH: DLNA_LOG_E(DLNA_OSAL_TAG, "EHOSTUNREACH"); break;
        case EALREADY: DLNA_LOG_E(DLNA_OSAL_TAG, "EALREADY"); break;
        default: DLNA_LOG_E(DLNA_OSAL_TAG, "OTHER ERR !!"); break;
    }
    return false;
}

bool SPGenericSocket::read(char* buf, unsigned long len, unsigned long* got, unsigned long ms) {
    const int fd = sysFd();
    if (!readyToReceive(fd, ms, true)) return false;
    const ssize_t n = recv(fd, buf, len, 0);
    if (n < 0) {
        *got = 0;
        logReceiveFailed();
        return false;
    }
    *got = static_cast<unsigned long>(n);
    return true;
}

bool SPGenericSocket::send(const char* buf, unsigned long len, unsigned long* sent) {
    const ssize_t n = ::send(sysFd(), buf, len, MSG_NOSIGNAL);
    if (n < 0) {
        *sent = 0;
        return false;
    }
    *sent = static_cast<unsigned long>(n);
    return true;
}

bool SPGenericSocket::SetNonBlocking(bool on) {
    const int flags = fcntl(sysFd(), F_GETFL, 0);
    if (flags < 0) return false;
    const int wanted = on ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK);
    if (fcntl(sysFd(), F_SETFL, wanted) < 0) return false;
    m_bNonBlocking = on;
    return true;
}

void SPGenericSocket::close() {
    if (m_iSocket == 0) return;
    shutdown(m_iSocket, SHUT_WR);
#ifndef CAMWIFI_FUZZ_BUILD
    // A moment for what was sent to leave before the descriptor goes.
    usleep(500);
#endif
    // (The fuzz build's peers are socket pairs that hold everything sent
    // until read: the pause would only cap how many inputs run per second.)
    ::close(m_iSocket);
    m_iSocket = 0;
}

int SPGenericSocket::release() {
    const int fd = m_iSocket;
    m_iSocket = 0;
    return fd;
}

bool SPGenericSocket::open(int type) {
    const int fd = SPKeepOffDescriptorZero(socket(AF_INET, type, 0));
    if (fd < 0) {
        OSAL_MYASSERT();
        return false;
    }
    m_iSocket = fd;
    return true;
}

SPTCPSocket::SPTCPSocket() {
    if (!open(SOCK_STREAM)) return;
    const int on = 1;
    if (setsockopt(m_iSocket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0) OSAL_MYASSERT();
}

SPTCPSocket::SPTCPSocket(unsigned int fd) : SPGenericSocket(fd) {
    if (m_iSocket < 1) {
        // Nothing adopted: there is no descriptor to set options on.
        OSAL_MYASSERT();
        return;
    }
    const int on = 1;
    if (setsockopt(m_iSocket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0) {
        DLNA_LOG_E(DLNA_OSAL_TAG, "ERRNO :%d", errno);
        OSAL_MYASSERT();
    }
    struct timeval limit;
    limit.tv_sec = kAcceptedSendTimeoutSec;
    limit.tv_usec = 0;
    if (setsockopt(m_iSocket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit)) != 0) {
        DLNA_LOG_E(DLNA_OSAL_TAG, "ERRNO :%d", errno);
        OSAL_MYASSERT();
    }
}

SPTCPSocket::~SPTCPSocket() = default;

bool SPTCPSocket::listen() { return ::listen(sysFd(), kListenBacklog) == 0; }

SPTCPSocket* SPTCPSocket::accept() {
    struct sockaddr_in peer;
    int fd;
    do {
        std::memset(&peer, 0, sizeof(peer));
        socklen_t len = kAddrLen;
        fd = ::accept(sysFd(), reinterpret_cast<struct sockaddr*>(&peer), &len);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        DLNA_LOG_E(DLNA_OSAL_TAG, "accept failure, error code = %d", errno);
        return nullptr;
    }
    fd = SPKeepOffDescriptorZero(fd);
    if (fd < 0) return nullptr;
    SPTCPSocket* conn = new (std::nothrow) SPTCPSocket(static_cast<unsigned int>(fd));
    if (conn == nullptr) {
        ::close(fd);
        return nullptr;
    }
    conn->m_remote = peer;
    conn->m_local = m_local;
    return conn;
}

SPUDPSocket::SPUDPSocket() {
    if (!open(SOCK_DGRAM)) return;
    const int size = kUdpSendBuffer;
    (void)setsockopt(m_iSocket, SOL_SOCKET, SO_SNDBUF, &size, sizeof(size));
}

SPUDPSocket::~SPUDPSocket() = default;

bool SPUDPSocket::readfrom(void* buf, unsigned long len, struct sockaddr_in* from, unsigned long* got,
                           unsigned long ms) {
    const int fd = sysFd();
    *got = 0;
    // Datagram readers poll in loops: a wait that ends without data is their
    // normal case and is not logged. Every other failure is, as for read.
    if (!readyToReceive(fd, ms, false)) return false;
    socklen_t fromLen = kAddrLen;
    const ssize_t n = recvfrom(fd, buf, len, 0, reinterpret_cast<struct sockaddr*>(from), &fromLen);
    if (n < 0) {
        logReceiveFailed();
        return false;
    }
    *got = static_cast<unsigned long>(n);
    return true;
}

bool SPUDPSocket::sendto(const char* buf, unsigned long len, struct sockaddr_in* to, unsigned long* sent) {
    const ssize_t n =
        ::sendto(sysFd(), buf, len, MSG_NOSIGNAL, reinterpret_cast<const struct sockaddr*>(to), kAddrLen);
    if (n < 0) {
        *sent = 0;
        return false;
    }
    *sent = static_cast<unsigned long>(n);
    return true;
}

bool SPUDPSocket::multicastMembership(int option, unsigned long group) {
    struct ip_mreq mreq;
    std::memset(&mreq, 0, sizeof(mreq));
    mreq.imr_multiaddr.s_addr = htonl(static_cast<uint32_t>(group));
    mreq.imr_interface = m_local.sin_addr;
    return setsockopt(sysFd(), IPPROTO_IP, option, &mreq, sizeof(mreq)) == 0;
}

bool SPUDPSocket::joinMulticast(unsigned long group) { return multicastMembership(IP_ADD_MEMBERSHIP, group); }

bool SPUDPSocket::dropMulticast(unsigned long group) { return multicastMembership(IP_DROP_MEMBERSHIP, group); }

bool SPUDPSocket::setMulticastTTL(unsigned char ttl) {
    return setsockopt(sysFd(), IPPROTO_IP, IP_MULTICAST_TTL, &ttl, sizeof(ttl)) == 0;
}

bool SPUDPSocket::setMulticastLoop(bool on) {
    const unsigned char loop = on ? 1 : 0;
    return setsockopt(sysFd(), IPPROTO_IP, IP_MULTICAST_LOOP, &loop, sizeof(loop)) == 0;
}

bool SPUDPSocket::setMulticastIF(unsigned long addr) {
    struct in_addr ifaddr;
    ifaddr.s_addr = htonl(static_cast<uint32_t>(addr));
    return setsockopt(sysFd(), IPPROTO_IP, IP_MULTICAST_IF, &ifaddr, sizeof(ifaddr)) == 0;
}
