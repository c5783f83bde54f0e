// The phone's requests to the camera: the mode server's "/mode/control"
// (query, announce with a CALLBACK, goodbye) and the push server's
// "/sp/control" (alive, byebye). Plain sockets: each request is one short
// header block on its own connection, sent from the phone's own address.
#ifndef PHONESIM_CAMERA_LINK_H
#define PHONESIM_CAMERA_LINK_H

#include <map>
#include <string>

namespace phonesim {

struct Reply {
    bool connected = false;   // the camera took the connection
    bool complete = false;    // a whole header block came back
    bool closed = false;      // the camera closed the connection
    int status = 0;
    std::string reason;
    std::string head;                            // the header block as received
    std::map<std::string, std::string> headers;  // names lower-cased
    std::string error;                           // why nothing usable came back
    std::string header(const std::string& lowerName) const;
    std::string statusLine() const;  // "200 OK"
};

// Connects from `fromIp` (any local address when empty) to host:port, sends
// request and reads the reply's header block; waits at most timeoutMs in all
// and gives up early when a stop signal arrives.
Reply exchange(const std::string& fromIp, const std::string& host, int port, const std::string& request,
               int timeoutMs);

// Parses a reply header block ("HTTP/1.1 200 OK\r\nName: value\r\n...").
bool parseReplyHead(const std::string& head, Reply* out);

}  // namespace phonesim

#endif
