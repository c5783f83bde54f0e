// Raw loopback peers for network tests: exact bytes out, exact bytes back.
#ifndef CAMWIFI_TEST_TCP_PEER_H
#define CAMWIFI_TEST_TCP_PEER_H

#include <cstdint>
#include <string>

namespace testsupport {

// Connects from source address src (any port; "" for the default) to
// dst:port. Returns the descriptor, or -1.
int connectFrom(const std::string& src, const std::string& dst, uint16_t port);
// Writes all of data; false on failure.
bool sendAll(int fd, const std::string& data);
// Reads until the text received contains terminator, the peer closes or
// timeoutMs passes; returns what was received.
std::string recvUntil(int fd, const std::string& terminator, int timeoutMs);
// Reads until the peer closes or timeoutMs passes.
std::string recvAll(int fd, int timeoutMs);
// True when the peer has closed the connection within timeoutMs (data that
// arrives first is discarded).
bool peerClosed(int fd, int timeoutMs);
// A listening socket on 127.0.0.1 with a port chosen by the system.
int listenLoopback(uint16_t* port, int backlog = 16);
// Binds a TCP socket to 0.0.0.0:port and listens, to keep the port busy.
int occupyPort(uint16_t port);
// Number of open descriptors of this process.
int openDescriptorCount();
// Number of threads of this process, once threads that are just ending have
// gone (waits until two counts 20 ms apart agree, at most two seconds).
int threadCount();

}  // namespace testsupport

#endif
