// A small HTTP/1.1 client for the real DLNA stack's requests to renderers:
// device descriptions (GET) and SOAP actions (POST).
//
// Every request has a deadline for the whole exchange (connect, send,
// receive) and can be cut short from another thread through a cancel
// descriptor, so a renderer that accepts and never answers costs a bounded
// time and never holds a shutdown. libupnp's own downloads and actions wait
// up to 30 s and cannot be interrupted, which is why the stack does not use
// them for this.
#ifndef CAMWIFI_DLNA_UPNP_HTTP_CLIENT_H
#define CAMWIFI_DLNA_UPNP_HTTP_CLIENT_H

#include <string>
#include <utility>
#include <vector>

namespace camwifi {
namespace upnp {

// Parts of an "http://host[:port]/path" URL (IPv4 or a name; no user info).
struct HttpUrl {
    std::string host;         // address or name, without brackets
    int port = 80;            // 80 when not given
    std::string path = "/";   // path and query, "/" when empty
};
// False for anything but a well-formed http URL.
bool parseHttpUrl(const std::string& url, HttpUrl* out);

// The outcome of one request.
struct HttpResult {
    enum Outcome {
        kOk,           // a complete response was read (any status)
        kBadUrl,       // the URL could not be parsed
        kUnreachable,  // resolving or connecting failed
        kTimeout,      // the deadline passed first
        kCancelled,    // the cancel descriptor became readable
        kBadResponse,  // the peer broke the connection or sent no valid HTTP
    };
    Outcome outcome = kBadResponse;
    int status = 0;                                              // HTTP status code (kOk)
    std::vector<std::pair<std::string, std::string>> headers;    // as received
    std::string body;                                            // de-chunked
    std::string error;                                           // why, for the log (not kOk)
};
const char* outcomeName(HttpResult::Outcome outcome);

// A response body larger than this is refused (kBadResponse): descriptions
// and SOAP answers are a few kilobytes.
constexpr size_t kMaxHttpBody = 1024 * 1024;

// Sends one request (with "Connection: close") and reads the whole answer.
// headers are extra request header lines (name, value); timeoutMs bounds the
// whole exchange; cancelFd (-1: none) ends it early when readable.
HttpResult httpRequest(const std::string& method, const std::string& url,
                       const std::vector<std::pair<std::string, std::string>>& headers, const std::string& body,
                       int timeoutMs, int cancelFd = -1);

// Parses a complete HTTP response held in data (status line, headers, body
// by Content-Length, chunked coding or up to the end). False when data is not
// a valid response. Exposed for the fuzz target.
bool parseHttpResponse(const std::string& data, HttpResult* out);

// The "Name: value" lines of a message head between offsets from and end
// (end: where the empty line starts), appended to headers with names and
// values trimmed. False for a line without a name and colon.
bool parseHeaderLines(const std::string& head, size_t from, size_t end,
                      std::vector<std::pair<std::string, std::string>>* headers);

// Value of the first header named name (compared without case), or null.
const std::string* findHeader(const std::vector<std::pair<std::string, std::string>>& headers,
                              const std::string& name);

}  // namespace upnp
}  // namespace camwifi

#endif
