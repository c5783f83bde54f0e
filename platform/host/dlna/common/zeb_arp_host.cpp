// Host stand-in of the stack's ARP cache lookup. Phones played on the loopback
// network (127.0.0.0/8) have no ARP entry, so they get a locally administered
// MAC derived from their address (02:00:7f:xx:xx:xx); every other address is
// looked up in the kernel's ARP cache, interface by interface, as on the camera.
#include <arpa/inet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "host_internal.h"
#include "zeb_stack.h"

namespace {

void formatMac(const unsigned char* b, char* out) {
    char text[18];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4], b[5]);
    memcpy(out, text, 17);  // no terminating zero, as the stack does
}

bool lookUpKernelArpCache(const in_addr& peer, char* macOut) {
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    char buf[32 * sizeof(struct ifreq)];
    struct ifconf ifc;
    ifc.ifc_len = sizeof buf;
    ifc.ifc_buf = buf;
    bool found = false;
    if (ioctl(fd, SIOCGIFCONF, &ifc) == 0) {
        const int count = ifc.ifc_len / static_cast<int>(sizeof(struct ifreq));
        for (int i = 0; i < count && !found; ++i) {
            struct arpreq req;
            memset(&req, 0, sizeof req);
            auto* pa = reinterpret_cast<struct sockaddr_in*>(&req.arp_pa);
            pa->sin_family = AF_INET;
            pa->sin_addr = peer;
            snprintf(req.arp_dev, sizeof req.arp_dev, "%s", ifc.ifc_req[i].ifr_name);
            // Only a complete entry carries a real hardware address.
            if (ioctl(fd, SIOCGARP, &req) == 0 && (req.arp_flags & ATF_COM)) {
                formatMac(reinterpret_cast<const unsigned char*>(req.arp_ha.sa_data), macOut);
                found = true;
            }
        }
    }
    close(fd);
    return found;
}

}  // namespace

bool ZEBGetMacAddress::GetMacAddrFromARPCache(const char* peerIp, char* macOut) {
    host::journal("ZEBGetMacAddress::GetMacAddrFromARPCache(%s)", peerIp ? peerIp : "(null)");
    long long scripted;
    if (host::takeScriptedResult("ZEBGetMacAddress::GetMacAddrFromARPCache", &scripted) && scripted == 0)
        return false;
    if (peerIp == nullptr || macOut == nullptr) return false;
    in_addr peer;
    if (inet_aton(peerIp, &peer) == 0) return false;
    const uint32_t h = ntohl(peer.s_addr);
    if ((h >> 24) == 127) {
        const unsigned char mac[6] = {0x02, 0x00, 0x7f, static_cast<unsigned char>(h >> 16),
                                      static_cast<unsigned char>(h >> 8), static_cast<unsigned char>(h)};
        formatMac(mac, macOut);
        return true;
    }
    return lookUpKernelArpCache(peer, macOut);
}
