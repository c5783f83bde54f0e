// Test control of the host DLNA stack's network interface list: the host's
// real IPv4 interfaces, or a list a test scripts.
#ifndef CAMWIFI_HOST_NIC_H
#define CAMWIFI_HOST_NIC_H

#include <string>
#include <vector>

namespace host {
namespace nic {

// One interface as ZEBGetNicList hands it out; an empty text is handed out
// as a null pointer.
struct Entry {
    std::string ip;            // dotted IPv4 address
    std::string friendlyName;  // interface name
};

// From now until useRealNicList() (or host::reset()), ZEBGetNicList hands
// out exactly these entries instead of the host's interfaces. An empty
// vector plays a camera without any interface address.
void scriptNicList(const std::vector<Entry>& entries);
// Back to the host's real IPv4 interfaces (loopback and interfaces that are
// down left out).
void useRealNicList();

}  // namespace nic
}  // namespace host

#endif
