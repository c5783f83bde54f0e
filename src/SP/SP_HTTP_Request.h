// A request that a phone sends to the push server's "/sp/control": the
// request line, the headers and what the push server needs from them (the
// announcement flags, the phone's user agent, number and data server).
#ifndef CAMWIFI_SP_HTTP_REQUEST_H
#define CAMWIFI_SP_HTTP_REQUEST_H

#include <cstdint>
#include <list>
#include <string>

#include "SP/http.h"

class SP_HTTP_Request {
public:
    // m_nMethod values.
    enum { METHOD_GET = 0, METHOD_HEAD = 1, METHOD_OTHER = 2 };

    SP_HTTP_Request();

    // Back to the constructed state: method 2, version 0, empty texts and
    // list, port, access method, flags and keep-alive cleared.
    void clear();

    // Parses one request (request line and headers, CR LF separated, up to
    // the empty line; a last line without CR LF is not read). Returns 1 when
    // the request was read, 0 when a GET or HEAD request line carries no
    // "HTTP/1.1" or "HTTP/1.0". Clears the record first. Any bytes are safe:
    // nothing is read beyond text, NUL bytes are ordinary characters.
    int parse(const std::string& text);

    // All fields are written by parse() and read by the push server's
    // request handler.
    int m_nMethod;                       // 0 GET, 1 HEAD, 2 any other method (or no request line)
    int m_nVersion;                      // minor HTTP version: 1 for HTTP/1.1, 0 for HTTP/1.0
    std::string m_sMethod;               // method token as received
    std::string m_sUrl;                  // request target as received (empty for other methods)
    std::string m_sUserAgent;            // User-Agent after "ORB_SP_" (or whole), lower case
    std::string m_sHostPNumber;          // HOST-PNumber value; "none" stores the user agent
    std::string m_sDataServerAddr;       // Data-Server value before its last colon
    int m_nDataServerPort;               // Data-Server value after its last colon, decimal
    int m_nAccessMethod;                 // 1 when Access-Method is "nfc" (the phone came by NFC), else 0
    std::list<SP_HTTP_entity> m_Headers; // every header line in arrival order
    uint32_t m_uReserved;                // cleared with the record; carries nothing yet
    bool m_bKeepAlive;                   // HTTP/1.1 unless a Connection header begins with "close"
    uint64_t m_uFlags;                   // http::FLAG_CONNECTION, FLAG_NTS_ALIVE, FLAG_NTS_BYEBYE

private:
    // Reads the request line; false on a version error (already logged).
    bool parseRequestLine(const std::string& line);
    // Applies the known headers to the record's fields and flags.
    void interpretHeaders();
    void applyDataServer(const std::string& value);
};

#endif
