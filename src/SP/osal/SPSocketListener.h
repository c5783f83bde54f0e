// Waiting for readability on a list of descriptors, the host's IPv4 interface
// addresses, and the URL prefix of a connection's own address.
#ifndef CAMWIFI_SP_SOCKET_LISTENER_H
#define CAMWIFI_SP_SOCKET_LISTENER_H

#include <cstddef>
#include <cstdint>
#include <vector>

// Kept as an object (it holds no state) so callers can own one beside their
// sockets, as the servers do.
class SPSocketListener {
public:
    SPSocketListener() = default;
    virtual ~SPSocketListener() = default;

    // Waits up to ms milliseconds until some descriptor of fds is readable and
    // leaves only the readable ones in fds, in their order; 1 also after a
    // time-out (fds is then empty), 0 when the wait fails (fds emptied; errno
    // tells why, EINTR for a signal). An empty list just sleeps for ms and
    // returns 1. More than 32 descriptors are more than this listener is
    // meant for: logged as "myAssert", and waited on all the same.
    bool listen(std::vector<int>& fds, unsigned long ms);

    // listen() without the 32-descriptor check, for waits that are meant to
    // be larger: each server waits on its listening socket and up to 64
    // accepted connections. Any descriptor number works.
    static bool waitReadable(std::vector<int>& fds, unsigned long ms);
};

// The host's IPv4 interface addresses (host order) as the system lists them,
// except that the loopback address is moved last so a real interface comes
// first.
class SPHostInfo {
public:
    SPHostInfo();
    virtual ~SPHostInfo() = default;

    std::size_t getCount() const { return m_addresses.size(); }
    uint32_t getAddress(std::size_t i) const { return m_addresses.at(i); }
    const std::vector<uint32_t>& addresses() const { return m_addresses; }

private:
    std::vector<uint32_t> m_addresses;
};

// Writes "http://<own IPv4 address>:9001" for the connection fd into out (at
// least 28 bytes) and logs it; 0 when the own address cannot be read.
int GetLocalAddr(int fd, char* out);

#endif
