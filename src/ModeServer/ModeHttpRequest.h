// The mode server's request parser: one complete request head (request line,
// header lines, blank line) becomes a small record with the method, the
// target, the HTTP minor version, every header, and the values the mode
// protocol gives meaning to (user agent, callback URL, data server, access
// method, announcement or goodbye). Cleared and refilled for every request.
#ifndef CAMWIFI_MODE_HTTP_REQUEST_H
#define CAMWIFI_MODE_HTTP_REQUEST_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// One header line. Written by the parser; read by the request handler.
struct MODE_HTTP_entity {
    MODE_HTTP_entity() = default;
    MODE_HTTP_entity(std::string name, std::string value) : m_sName(std::move(name)), m_sValue(std::move(value)) {}

    std::string m_sName;   // header name as received, trailing blanks removed
    std::string m_sValue;  // header value, leading blanks skipped, trailing kept
};

class ModeHttpRequest {
public:
    enum { METHOD_GET = 0, METHOD_HEAD = 1, METHOD_OTHER = 2 };

    static constexpr uint64_t FLAG_CONNECTION = 0x00000001;  // "Connection" seen on HTTP/1.1
    static constexpr uint64_t FLAG_NTS_ALIVE = 0x10000000;   // "NTS: alive": the phone announces itself
    static constexpr uint64_t FLAG_NTS_BYEBYE = 0x20000000;  // "NTS: byebye": the phone leaves

    ModeHttpRequest() = default;
    ~ModeHttpRequest() = default;

    // Back to the values of a new record.
    void clear();
    // Parses one request head (ending in CR LF CR LF). False only when the
    // request line of a GET or HEAD names neither HTTP/1.1 nor HTTP/1.0.
    bool parse(const std::string& text);

    int m_iMethod = METHOD_OTHER;                // 0 GET, 1 HEAD, 2 any other method
    int m_iVersionMinor = 0;                     // 1 for HTTP/1.1, 0 for HTTP/1.0
    std::string m_sMethodText;                   // the method token as received
    std::string m_sUrl;                          // the request target as received (no decoding)
    std::string m_sUserAgent;                    // "User-Agent" after "ORB_MODE_", lower-cased
    std::string m_sDataServerHost;               // host part of "Data-Server"
    int m_iDataServerPort = 0;                   // port part of "Data-Server"
    int m_iAccessMethod = 0;                     // 1 when "Access-Method" is "nfc"
    std::string m_sCallbackUrl;                  // "CALLBACK" as received, angle brackets included
    std::vector<MODE_HTTP_entity> m_vHeaders;    // every header line, in arrival order
    bool m_bKeepAlive = false;                   // the client's wish to keep the connection
    uint64_t m_uFlags = 0;                       // FLAG_ bits above

private:
    bool parseRequestLine(const std::string& line);
    // The header line [begin, end) of text; a line without a colon is none.
    void addHeaderLine(const std::string& text, size_t begin, size_t end);
    void interpretHeaders();
};

#endif
