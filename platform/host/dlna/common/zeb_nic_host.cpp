// Host stand-in of the DLNA stack's network interface list: the host's real
// IPv4 interfaces (as the stack lists the camera's), or a list a test
// scripted through host_nic.h.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <cstring>
#include <mutex>

#include "host_internal.h"
#include "host_nic.h"
#include "zeb_stack.h"

namespace {

struct NicState {
    std::mutex lock;
    bool scripted = false;
    std::vector<host::nic::Entry> entries;
};

NicState& nicState() {
    static NicState* s = new NicState;  // outlives every static destructor
    return *s;
}

void resetNic() { host::nic::useRealNicList(); }

const bool registered = (host::addResetHook(resetNic), true);

std::vector<host::nic::Entry> realInterfaces() {
    std::vector<host::nic::Entry> out;
    struct ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return out;
    for (struct ifaddrs* i = list; i != nullptr; i = i->ifa_next) {
        if (i->ifa_addr == nullptr || i->ifa_addr->sa_family != AF_INET) continue;
        // The stack serves phones on real links only.
        if ((i->ifa_flags & IFF_LOOPBACK) || !(i->ifa_flags & IFF_UP)) continue;
        char ip[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &reinterpret_cast<struct sockaddr_in*>(i->ifa_addr)->sin_addr, ip, sizeof ip);
        out.push_back({ip, i->ifa_name ? i->ifa_name : ""});
    }
    freeifaddrs(list);
    return out;
}

// Copy in the stack's allocator; null for an empty text.
char* stackText(const std::string& text) {
    if (text.empty()) return nullptr;
    char* p = static_cast<char*>(ZEBMemAllocMA(static_cast<unsigned int>(text.size() + 1)));
    if (p != nullptr) memcpy(p, text.c_str(), text.size() + 1);
    return p;
}

}  // namespace

namespace host {
namespace nic {

void scriptNicList(const std::vector<Entry>& entries) {
    NicState& s = nicState();
    std::lock_guard<std::mutex> g(s.lock);
    s.scripted = true;
    s.entries = entries;
}

void useRealNicList() {
    NicState& s = nicState();
    std::lock_guard<std::mutex> g(s.lock);
    s.scripted = false;
    s.entries.clear();
}

}  // namespace nic
}  // namespace host

ZEB_ERROR_CODE ZEBGetNicList(DMSCDSList* list) {
    host::journal("ZEBGetNicList()");
    long long scripted;
    if (host::takeScriptedResult("ZEBGetNicList", &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    if (list == nullptr) return 1;
    std::vector<host::nic::Entry> entries;
    bool scriptedList;
    {
        NicState& s = nicState();
        std::lock_guard<std::mutex> g(s.lock);
        scriptedList = s.scripted;
        if (scriptedList) entries = s.entries;
    }
    if (!scriptedList) entries = realInterfaces();
    for (const host::nic::Entry& e : entries) {
        auto* info = static_cast<ZEB_UI_NET_INFO*>(ZEBMemAllocMA(sizeof(ZEB_UI_NET_INFO)));
        if (info == nullptr) return 1;
        info->pIPAddress = stackText(e.ip);
        info->pFriendlyName = stackText(e.friendlyName);
        list->AddItem(info);
    }
    return 0;
}
