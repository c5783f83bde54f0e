// The real DLNA stack's HTTP streaming server: renderers fetch the card's
// photos and videos from it at http://<camera>:<port><absolute path>.
//
// Its own small server rather than libupnp's web server: libupnp serves one
// document root on its own port and lifetime (tied to UpnpInit), while this
// one runs on the configured "HTTPStreamingPort", from
// HTTPStreamingServerInitialize to HTTPStreamingServerTerminate, serves only
// below the card's media folders and adds the DLNA headers renderers look
// for. One thread per client (at most kMaxStreamingClients at once), each
// answer "Connection: close".
//
// GET and HEAD; one byte range ("bytes=a-b", "bytes=a-", "bytes=-n") gets
// 206 with Content-Range, a range past the end 416; several ranges are
// answered whole (200). Paths with a ".." segment are refused (403), and so
// is a file whose real path (symlinks resolved) is not below a media folder;
// a missing file is 404. A client that goes away mid-file ends its thread at
// the next write; one that stops reading is dropped after kClientStallMs.
#ifndef CAMWIFI_DLNA_UPNP_STREAMING_SERVER_H
#define CAMWIFI_DLNA_UPNP_STREAMING_SERVER_H

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace camwifi {
namespace upnp {

constexpr int kMaxStreamingClients = 32;
constexpr int kClientStallMs = 30000;

// A request's line and header fields, as a client sent them.
struct StreamingRequest {
    std::string method, target;
    std::vector<std::pair<std::string, std::string>> headers;  // names and values trimmed
};
// head: the bytes up to and including the first empty line ("\r\n\r\n").
// False for anything that is not "METHOD TARGET HTTP/..." followed by
// "Name: value" lines (the answer is then 400).
bool parseRequestHead(const std::string& head, StreamingRequest* out);

// What a Range header asks of a file of size bytes.
enum class RangeKind { kWhole, kPart, kUnsatisfiable };
// header: the Range value ("" when absent). kPart fills *first and *last
// (inclusive). Anything malformed, another unit or several ranges: kWhole.
RangeKind parseRange(const std::string& header, uint64_t size, uint64_t* first, uint64_t* last);

// MIME type by file extension (without regard to case); "application/octet-stream" otherwise.
std::string contentTypeFor(const std::string& path);
// The contentFeatures.dlna.org value for a MIME type.
std::string contentFeaturesFor(const std::string& mimeType);

// Percent-decodes the path part of a request target (the query is dropped).
// False for a bad escape, a NUL, or a target not starting with "/".
bool decodeTargetPath(const std::string& target, std::string* path);

class HttpStreamingServer {
public:
    HttpStreamingServer();
    ~HttpStreamingServer();  // stops
    HttpStreamingServer(const HttpStreamingServer&) = delete;
    HttpStreamingServer& operator=(const HttpStreamingServer&) = delete;

    // Listens on port (all IPv4 addresses) and serves files below the
    // folders of roots (each must exist). 0 on success, else errno-like
    // non-zero (port taken, no root).
    int start(int port, const std::vector<std::string>& roots);
    // Closes the port, cuts every transfer and joins every thread.
    void stop();
    bool running() const;
    int port() const;
    // Answers completed since start (any status).
    uint64_t answered() const;
    // Body bytes written to clients since start.
    uint64_t bytesSent() const;
    // How often the whole of the file at request path (decoded, as in the
    // content URI) was written to a client to its last byte since start.
    uint64_t wholeFilesSent(const std::string& path) const;

    struct Impl;

private:
    std::unique_ptr<Impl> m_impl;
};

}  // namespace upnp
}  // namespace camwifi

#endif
