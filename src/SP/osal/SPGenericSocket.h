// IPv4 sockets of the OS layer: the common part (descriptor, addresses, bind,
// connect with a time limit, read with a time limit, send, blocking mode), the
// stream socket (listen, accept) and the datagram socket (multicast options).
// Every operation reports 1 (true) on success and 0 on failure; none throws.
// Descriptor 0 means "no socket": an object holding 0 never touches stdin.
#ifndef CAMWIFI_SP_GENERIC_SOCKET_H
#define CAMWIFI_SP_GENERIC_SOCKET_H

#include <netinet/in.h>

// Returns fd unchanged unless it is 0: a descriptor 0 (stdin was closed
// before the socket was created) is moved to a higher number and 0 closed
// again, because 0 means "no socket" to the classes below. Anyone who creates
// a socket to hand to them should pass it through here first.
int SPKeepOffDescriptorZero(int fd);

class SPGenericSocket {
public:
    SPGenericSocket();
    // Adopts fd (0 or a negative value: no socket).
    explicit SPGenericSocket(unsigned int fd);
    // Closes the socket.
    virtual ~SPGenericSocket();

    int get_fd() const { return m_iSocket; }

    // Takes port and address of a (family IPv4) as the local address and binds.
    bool bind(struct sockaddr_in* a);
    // Blocking connect to a's port and address.
    bool connect(struct sockaddr_in* a);
    // Connect within `seconds` seconds (0: without a limit). The socket is back
    // in blocking mode when this returns 1.
    bool connect(struct sockaddr_in* a, int seconds);
    // One receive of at most len bytes after waiting up to ms milliseconds for
    // data (0xFFFFFFFF: no wait, straight into the blocking receive). 1 with
    // *got = 0 means the peer closed the connection.
    bool read(char* buf, unsigned long len, unsigned long* got, unsigned long ms);
    // One send call that never raises SIGPIPE; *sent is the count (0 on failure).
    bool send(const char* buf, unsigned long len, unsigned long* sent);
    // Sets or clears O_NONBLOCK, keeping the other status flags.
    bool SetNonBlocking(bool on);
    // Shuts the sending side down and closes; safe to call again.
    void close();
    // Gives the descriptor up without closing it: the object holds no socket
    // afterwards and the caller closes the descriptor. 0 when there was none.
    int release();

    const struct sockaddr_in& getLocalAddress() const { return m_local; }
    const struct sockaddr_in& getRemoteAddress() const { return m_remote; }
    bool isNonBlocking() const { return m_bNonBlocking; }

protected:
    // The descriptor to hand to the system: -1 when there is no socket, so a
    // call on an empty object fails with EBADF instead of reaching stdin.
    int sysFd() const { return m_iSocket > 0 ? m_iSocket : -1; }
    // Creates an IPv4 socket of the given type (never on descriptor 0);
    // failure logs "myAssert" and leaves the object without a socket.
    bool open(int type);

    int m_iSocket = 0;
    struct sockaddr_in m_local;
    struct sockaddr_in m_remote;
    bool m_bNonBlocking = false;

private:
    SPGenericSocket(const SPGenericSocket&) = delete;
    SPGenericSocket& operator=(const SPGenericSocket&) = delete;
};

class SPTCPSocket : public SPGenericSocket {
public:
    // Creates an IPv4 stream socket with address reuse.
    SPTCPSocket();
    // Adopts an accepted descriptor: address reuse and a 120-second send limit.
    explicit SPTCPSocket(unsigned int fd);
    ~SPTCPSocket() override;

    // Listens with a backlog of 128.
    bool listen();
    // Accepts one connection; the new socket belongs to the caller. Null on failure.
    SPTCPSocket* accept();
};

class SPUDPSocket : public SPGenericSocket {
public:
    // Creates an IPv4 datagram socket with a 102400-byte send buffer.
    SPUDPSocket();
    ~SPUDPSocket() override;

    // Like read, with the sender's address in *from; ms = 0xFFFFFFFF waits
    // without limit. A wait that ends without data returns 0 silently.
    bool readfrom(void* buf, unsigned long len, struct sockaddr_in* from, unsigned long* got, unsigned long ms);
    bool sendto(const char* buf, unsigned long len, struct sockaddr_in* to, unsigned long* sent);

    // Group addresses are in host order; the interface is the local address.
    bool joinMulticast(unsigned long group);
    bool dropMulticast(unsigned long group);
    bool setMulticastTTL(unsigned char ttl);
    bool setMulticastLoop(bool on);
    // addr in host order.
    bool setMulticastIF(unsigned long addr);

private:
    bool multicastMembership(int option, unsigned long group);
};

#endif
