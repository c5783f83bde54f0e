// Local ports and addresses, as camwifi-sim tells a person about them.
#ifndef CAMWIFI_SIM_PORTS_H
#define CAMWIFI_SIM_PORTS_H

#include <string>
#include <vector>

namespace camsim {

// True when a TCP port can be bound on every local address (nobody listens).
bool portFree(int port, std::string* why);
// True when something on this machine listens on the IPv4 TCP port (read
// from /proc/net/tcp, without connecting: a connection would be a request
// to the server).
bool portListening(int port);
// The machine's IPv4 addresses other than loopback, where a phone on the
// same network can reach the simulator.
std::vector<std::string> networkAddresses();

}  // namespace camsim

#endif
