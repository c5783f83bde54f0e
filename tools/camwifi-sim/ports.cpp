#include "ports.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

namespace camsim {

bool portFree(int port, std::string* why) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        *why = std::string("socket: ") + strerror(errno);
        return false;
    }
    // As the camera's servers bind: any address, address reuse on, so that
    // connections of an earlier run in TIME_WAIT do not count as busy.
    const int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_ANY);
    a.sin_port = htons(static_cast<uint16_t>(port));
    const bool ok = bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
    if (!ok) *why = "port " + std::to_string(port) + " is busy: " + strerror(errno);
    close(fd);
    return ok;
}

bool portListening(int port) {
    std::ifstream in("/proc/net/tcp");
    std::string line;
    std::getline(in, line);  // column titles
    while (std::getline(in, line)) {
        unsigned int localAddr = 0, localPort = 0, state = 0;
        // "  0: 00000000:1E6C 00000000:0000 0A ..."
        if (sscanf(line.c_str(), " %*d: %x:%x %*x:%*x %x", &localAddr, &localPort, &state) == 3 &&
            static_cast<int>(localPort) == port && state == 0x0A)
            return true;
    }
    return false;
}

std::vector<std::string> networkAddresses() {
    std::vector<std::string> out;
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return out;
    for (ifaddrs* i = list; i != nullptr; i = i->ifa_next) {
        if (i->ifa_addr == nullptr || i->ifa_addr->sa_family != AF_INET || (i->ifa_flags & IFF_LOOPBACK)) continue;
        char text[INET_ADDRSTRLEN];
        inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(i->ifa_addr)->sin_addr, text, sizeof text);
        out.push_back(std::string(text) + " (" + i->ifa_name + ")");
    }
    freeifaddrs(list);
    return out;
}

}  // namespace camsim
