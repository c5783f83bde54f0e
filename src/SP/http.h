// HTTP vocabulary shared by the push server and the push client: status codes
// with their reason texts, the header record, the header flag bits and the
// small text helpers both parsers use.
#ifndef CAMWIFI_SP_HTTP_H
#define CAMWIFI_SP_HTTP_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace http {

// An HTTP status code as its number. The underlying type is fixed so that any
// code received or asked for (418, 999, ...) is a valid value.
enum RESULT : int {
    RES_CONTINUE = 100,
    RES_SWITCHING_PROTOCOLS = 101,
    RES_OK = 200,
    RES_CREATED = 201,
    RES_ACCEPTED = 202,
    RES_NON_AUTHORITATIVE_INFORMATION = 203,
    RES_NO_CONTENT = 204,
    RES_RESET_CONTENT = 205,
    RES_PARTIAL_CONTENT = 206,
    RES_MULTIPLE_CHOICES = 300,
    RES_MOVED_PERMANENTLY = 301,
    RES_FOUND = 302,
    RES_SEE_OTHER = 303,
    RES_NOT_MODIFIED = 304,
    RES_USE_PROXY = 305,
    RES_UNUSED = 306,
    RES_TEMPORARY_REDIRECT = 307,
    RES_BAD_REQUEST = 400,
    RES_UNAUTHORIZED = 401,
    RES_PAYMENT_REQUIRED = 402,
    RES_FORBIDDEN = 403,
    RES_NOT_FOUND = 404,
    RES_METHOD_NOT_ALLOWED = 405,
    RES_NOT_ACCEPTABLE = 406,
    RES_PROXY_AUTHENTICATION_REQUIRED = 407,
    RES_REQUEST_TIMEOUT = 408,
    RES_CONFLICT = 409,
    RES_GONE = 410,
    RES_LENGTH_REQUIRED = 411,
    RES_PRECONDITION_FAILED = 412,
    RES_REQUEST_ENTITY_TOO_LARGE = 413,
    RES_REQUEST_URI_TOO_LONG = 414,
    RES_UNSUPPORTED_MEDIA_TYPE = 415,
    RES_REQUEST_RANGE_NOT_SATISFIABLE = 416,
    RES_EXPECTATION_FAILED = 417,
    RES_INTERNAL_SERVER_ERROR = 500,
    RES_NOT_IMPLEMENTED = 501,
    RES_BAD_GATEWAY = 502,
    RES_SERVICE_UNAVAILABLE = 503,
    RES_GATEWAY_TIMEOUT = 504,
    RES_VERSION_NOT_SUPPORTED = 505,
};

// Reason text of a status code for a reply's status line; "Unknown Status
// Code" for any code not in the table. The spellings are the ones phones have
// always received from the camera ("Multiple Choises" included).
const char* ResToStr(RESULT code);

// Header flag bits of SP_HTTP_Request::m_uFlags and SP_HTTP_Response::m_uFlags.
constexpr uint64_t FLAG_CONNECTION = 0x1;           // a Connection header was seen
constexpr uint64_t FLAG_SUB_ERRORCODE = 0x200000;   // a Sub-ErrorCode header was seen (responses)
constexpr uint64_t FLAG_NTS_ALIVE = 0x10000000;     // NTS: alive (requests)
constexpr uint64_t FLAG_NTS_BYEBYE = 0x20000000;    // NTS: byebye (requests)

// True when a and b are equal without regard to ASCII case (length included,
// so embedded NUL bytes never end a comparison early).
bool equalsNoCase(const std::string& a, const char* b);
// True when text begins with prefix, without regard to ASCII case.
bool startsWithNoCase(const std::string& text, const char* prefix);
// Reads a decimal number the way "%d" does: leading white space, an optional
// sign, then digits; 0 when no digit follows. Values beyond the range of int
// stop at INT_MAX / INT_MIN, as on the camera, where long is 32 bits wide.
int scanDecimal(const std::string& text);

// Position of the first character at or after pos that is not a blank
// (space or tab); text.size() when there is none.
size_t skipBlanks(const std::string& text, size_t pos);
// Position of the first blank at or after pos; text.size() when there is none.
size_t skipToken(const std::string& text, size_t pos);
// text without its trailing blanks.
std::string trimEndBlanks(const std::string& text);
// The header line [begin, end) of text, split at its first colon: the name
// without trailing blanks, the value without leading ones. False (and both
// left alone) when the line has no colon.
bool splitHeaderLine(const std::string& text, size_t begin, size_t end, std::string* name, std::string* value);

// Walks a message head line by line. Only CR LF ends a line (a bare LF is an
// ordinary character); the walk ends at the empty line that closes the head
// or when no further CR LF follows, so a last line without CR LF is never
// returned.
class LineReader {
public:
    explicit LineReader(const std::string& text) : m_text(text) {}
    // The next line as [*begin, *end) of the text, CR LF excluded.
    bool next(size_t* begin, size_t* end);
    bool next(std::string* line);

private:
    const std::string& m_text;
    size_t m_pos = 0;
};

}  // namespace http

// One header line of a request or a response. Written by the parser that
// read it; read by the push server's handler and the push client.
struct SP_HTTP_entity {
    SP_HTTP_entity() = default;
    SP_HTTP_entity(std::string name, std::string value) : m_sName(std::move(name)), m_sValue(std::move(value)) {}

    std::string m_sName;   // header name as received, trailing blanks removed
    std::string m_sValue;  // header value, leading blanks skipped
};

#endif
